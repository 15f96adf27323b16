// SPDX-License-Identifier: Apache-2.0
// Every way of adding to the buffer is the same three steps: make room for the bytes and their NUL,
// put them at offset, advance offset. The variants differ in where the bytes come from.
#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_big_buf.h>
#include <libvxcore/vxlb_util.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vxlb_big_buf_append.h"
#include "vxlb_large_pages.h"

#define TRACE(level, ...) \
    vxlb_debug_log_ex(level, VXLB_MOD_MISC, __FILE__, __LINE__, __func__, __VA_ARGS__)

// The text does not follow the size: programs look for this very line.
#define INIT_TRACE "Method called, allocate big buffer of len = 1MB"

static void allocate(bigbuf_t *bigbuf, int size) {
    VXLB_MALLOC(bigbuf->buffer, size, "bigbuf");
    vxlb_use_large_pages(bigbuf->buffer, static_cast<size_t>(size));
    memset(bigbuf->buffer, 0, static_cast<size_t>(size));
    bigbuf->offset = 0;
    bigbuf->bufsize = size;
}

int vxlb_bigbuf_init(bigbuf_t *bigbuf) {
    if (bigbuf == nullptr) {
        return -1;
    }
    TRACE(VXLB_LEVEL_3, INIT_TRACE);
    allocate(bigbuf, BIGBUF_INIT_SIZE);
    return 0;
}

int vxlb_bigbuf_init_ex(bigbuf_t *bigbuf, int init_size) {
    if (bigbuf == nullptr || init_size <= 0) {
        return -1;
    }
    TRACE(VXLB_LEVEL_3, INIT_TRACE);
    allocate(bigbuf, init_size);
    return 0;
}

int vxlb_bigbuf_realloc(bigbuf_t *bigbuf) {
    if (bigbuf == nullptr) {
        return -1;
    }
    const int64_t new_size = bigbuf->bufsize + BIGBUF_STEP;
    if (bigbuf->buffer != nullptr) {
        VXLB_REALLOC(bigbuf->buffer, new_size, "bigbuf", bigbuf->bufsize, -1);
    } else {
        VXLB_MALLOC(bigbuf->buffer, new_size, "bigbuf");
    }
    memset(bigbuf->buffer + bigbuf->bufsize, 0, BIGBUF_STEP);
    bigbuf->bufsize = new_size;
    return 0;
}

int vxlb_bigbuf_chk_avail_space(bigbuf_t *bigbuf, int needed_space) {
    if (bigbuf == nullptr) {
        return -1;
    }
    return bigbuf_has_room(bigbuf, needed_space) ? 1 : 0;
}

static void make_room(bigbuf_t *bigbuf, int64_t needed_space) {
    while (!bigbuf_has_room(bigbuf, needed_space)) {
        vxlb_bigbuf_realloc(bigbuf);
    }
}

// Length of a text as the copies count it; negative when it has none that fits.
static int measured(const char *string, int len) {
    if (len != 0) {
        return len;
    }
    const size_t measured_len = strlen(string);
    return measured_len > INT_MAX ? -1 : static_cast<int>(measured_len);
}

static void trace_entry(const bigbuf_t *bigbuf, int len, const char *function) {
    vxlb_debug_log_ex(VXLB_LEVEL_3, VXLB_MOD_MISC, __FILE__, __LINE__, function,
                      "Method called. bufsize = %d, bigbuf buffer = %p, needed space = %d, "
                      "offset = %d",
                      static_cast<int>(bigbuf->bufsize), static_cast<void *>(bigbuf->buffer), len,
                      static_cast<int>(bigbuf->offset));
}

int64_t vxlb_bigbuf_copy_into_bigbuf(bigbuf_t *bigbuf, const char *string, int len) {
    if (bigbuf == nullptr || string == nullptr) {
        return -1;
    }
    len = measured(string, len);
    if (len < 0) {
        return -1;
    }
    trace_entry(bigbuf, len, __func__);
    make_room(bigbuf, int64_t{len} + 1);
    TRACE(VXLB_LEVEL_3, "Copy data '%.*s' of len '%d' into big buf", len, string, len);
    memcpy(bigbuf->buffer + bigbuf->offset, string, static_cast<size_t>(len));
    return bigbuf_close_copy(bigbuf, len);
}

int vxlb_read_file_and_fill_buf_ex(int fd, char *buf, int64_t size, int) {
    while (size > 0) {
        const ssize_t got = read(fd, buf, static_cast<size_t>(size));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            errno = got == 0 ? ENODATA : errno;
            return -1;
        }
        buf += got;
        size -= got;
    }
    return 0;
}

static void say_read_failure(char *err_msg, const char *path, int reason) {
    sprintf(err_msg, "Error in reading file[%s]. SysErr[%s]", path, vxlb_strerror(reason));
}

// Open a file for copying and learn its length; -1 with a message when it can't be copied.
static int open_source(const char *path, int *len, char *err_msg) {
    fprintf(stderr, "LBBB: Read file %s\n", path);
    struct stat st;
    if (stat(path, &st) != 0) {
        const int reason = errno;
        sprintf(err_msg, "File '%s' does not exists. err(%d)=%s.", path, reason,
                vxlb_strerror(reason));
        return -1;
    }
    const long size = static_cast<long>(st.st_size);
    fprintf(stderr, "LBBB: Read file-size = %ld\n", size);
    if (size == 0) {
        sprintf(err_msg, "File '%s' is blank err(%d)=%s.", path, 0, vxlb_strerror(0));
        return -1;
    }
    if (size >= INT_MAX) {
        say_read_failure(err_msg, path, EFBIG);
        return -1;
    }
    *len = static_cast<int>(size);
    TRACE(VXLB_LEVEL_3, "file size = %ld", size);
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        const int reason = errno;
        sprintf(err_msg, "Failed to open file '%s'. err(%d)=%s", path, reason,
                vxlb_strerror(reason));
    }
    return fd;
}

// Put len bytes of the file at offset and close it; false with a message when they can't be read.
static bool read_source(bigbuf_t *bigbuf, int fd, const char *path, int len, char *err_msg) {
    const int result = vxlb_read_file_and_fill_buf_ex(fd, bigbuf->buffer + bigbuf->offset, len, 0);
    if (result < 0) {
        say_read_failure(err_msg, path, errno);
        // What was read stays unused: the bytes from offset on are zero.
        memset(bigbuf->buffer + bigbuf->offset, 0, static_cast<size_t>(len));
    }
    close(fd);
    return result >= 0;
}

int64_t vxlb_bigbuf_copy_into_bigbuf_ex(bigbuf_t *bigbuf, const char *string, int len, char flag,
                                        char *err_msg) {
    // Data that comes with its length need not be terminated.
    const bool is_bounded = string != nullptr && flag != BIGBUF_TYPE_FILE && len > 0;
    const int shown = is_bounded ? len : INT_MAX;
    fprintf(stderr, "Method called, string = %.*s, len = %d, flag = %d", shown,
            string == nullptr ? "(null)" : string, len, flag);
    if (bigbuf == nullptr || string == nullptr || err_msg == nullptr) {
        return -1;
    }
    len = measured(string, len);
    if (flag != BIGBUF_TYPE_FILE && flag != BIGBUF_TYPE_BUFFER) {
        sprintf(err_msg, "Flag type can only be BIGBUF_TYPE_FILE or BIGBUF_TYPE_BUFFER");
        return -1;
    }
    trace_entry(bigbuf, len, __func__);
    int fd = -1;
    if (flag == BIGBUF_TYPE_FILE && (fd = open_source(string, &len, err_msg)) < 0) {
        return -1;
    }
    if (len < 0) {
        sprintf(err_msg, "Invalid length %d", len);
        return -1;
    }
    fprintf(stderr, "LBBB: Read and fill into bigbuf = %d\n", len);
    make_room(bigbuf, int64_t{len} + 1);
    TRACE(VXLB_LEVEL_3, "Copy data '%.*s' of len '%d' into big buf", shown, string, len);
    if (flag == BIGBUF_TYPE_BUFFER) {
        memcpy(bigbuf->buffer + bigbuf->offset, string, static_cast<size_t>(len));
    } else if (!read_source(bigbuf, fd, string, len, err_msg)) {
        return -1;
    }
    const int64_t begin = bigbuf_close_copy(bigbuf, len);
    fprintf(stderr, "DONE!!!, offset = %ld\n", static_cast<long>(bigbuf->offset));
    return begin;
}

char *vxlb_bigbuf_get_value(bigbuf_t *bigbuf, int64_t offset) {
    return bigbuf == nullptr ? nullptr : bigbuf->buffer + offset;
}

void vxlb_bigbuf_free(bigbuf_t *bigbuf) {
    if (bigbuf == nullptr) {
        return;
    }
    VXLB_FREE(bigbuf->buffer, "bigbuf", -1);
    *bigbuf = {};
}
