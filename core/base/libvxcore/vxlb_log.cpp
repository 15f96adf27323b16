// SPDX-License-Identifier: Apache-2.0
// A record is put together in a buffer on the stack and leaves in one write to a descriptor opened
// for appending; that alone keeps the records of several processes and threads apart.
//
// There is no lock, so nothing can be left locked in a forked child or under a signal handler:
//
//   descriptor  read and stored atomically. A rolled log is opened anew beside the old descriptor
//               and put in its place by dup3, so a thread that has just read the number writes
//               either to the old file or to the new one, never into somebody else's.
//   rollover    a file lock decides who renames. It is taken on a description opened for the
//               purpose: one that children inherit, or threads share, would be locked for all.
//   date        converted once a second for each thread. The conversion takes a lock inside the
//               C library, which a fork can leave locked in the child.
#include <libvxcore/vxlb_log.h>
#include <libvxcore/vxlb_util.h>

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

enum {
    RECORD_LIMIT = 64000,
    STREAM_RECORD_LIMIT = 20000,
    DATE_TEXT_SIZE = 100,
    ROLLED_PATH_SIZE = 4096,
    SETTING_WORD_SIZE = 512,
    MASK_WORDS_MAX = 100,
    NUMBER_TEXT_SIZE = 12,
};

uint32_t vxlb_log_level;
uint64_t lib_module_mask;
char log_file[VXLB_LOG_PATH_SIZE];
char error_log_file[VXLB_LOG_PATH_SIZE];
int32_t lib_debug_fd = -1;
int32_t lib_error_fd = -1;
uint32_t max_debug_log_file_size = 100000000;
FILE *vxlb_log_fp;

const char *const lib_module_mask_name[VXLB_MODULE_COUNT] = {
    "ALL", "SEARCH", "HESSIAN", "HASH", "AUTH", "API", "MISC", "MEMORY", "", "TOPO",
};
const uint64_t lib_module_mask_bit[VXLB_MODULE_COUNT] = {
    UINT64_MAX,   VXLB_MOD_SEARCH, VXLB_MOD_HESSIAN, VXLB_MOD_HASH, VXLB_MOD_AUTH,
    VXLB_MOD_API, VXLB_MOD_MISC,   VXLB_MOD_MEMORY,  0x80,          VXLB_MOD_TOPO,
};

// The date text of one second. The zone's offset and its kind belong to the key: a program may
// change its zone.
typedef struct DateCache {
    time_t second;
    long zone;
    int dst;
    bool is_busy; // a refresh is under way; seen by signal handlers only
    size_t len;   // 0: nothing kept
    char text[DATE_TEXT_SIZE];
} DateCache;

static __thread DateCache date_cache;

static void refresh_date(DateCache *cache, time_t now) {
    struct tm local;
    cache->len = 0;
    memcpy(cache->text, "Error", sizeof("Error"));
    if (localtime_r(&now, &local) == nullptr) {
        return;
    }
    const int len =
        snprintf(cache->text, sizeof(cache->text), "%02d/%02d/%02d %02d:%02d:%02d",
                 local.tm_mon + 1, local.tm_mday, static_cast<int>((local.tm_year + 1900L) % 2000),
                 local.tm_hour, local.tm_min, local.tm_sec);
    cache->second = now;
    cache->zone = timezone;
    cache->dst = daylight;
    cache->len = static_cast<size_t>(len);
}

// The current date text of the calling thread. A signal handler that breaks into a refresh gets what
// there is: a conversion of its own would wait for the C library's lock for ever.
static const char *date_text() {
    DateCache *const cache = &date_cache;
    const time_t now = time(nullptr);
    const bool is_fresh = cache->len != 0 && cache->second == now && cache->zone == timezone &&
                          cache->dst == daylight;
    if (!is_fresh && !cache->is_busy) {
        cache->is_busy = true;
        refresh_date(cache, now);
        cache->is_busy = false;
    }
    return cache->text;
}

char *get_cur_date_time(void) {
    static __thread char text[DATE_TEXT_SIZE];
    const char *const current = date_text();
    return static_cast<char *>(memcpy(text, current, strlen(current) + 1));
}

static const char *severity_name(int level) {
    switch (level) {
    case VXLB_LEVEL_1:
        return "Critical";
    case VXLB_LEVEL_2:
        return "Major";
    case VXLB_LEVEL_3:
        return "Minor";
    case VXLB_LEVEL_4:
        return "Warning";
    default:
        return "Unknown Log Level";
    }
}

char *log_level_to_str(int level) {
    return const_cast<char *>(severity_name(level)); // not to be written to
}

static int load_fd(const int *fd) {
    return __atomic_load_n(fd, __ATOMIC_ACQUIRE);
}

static void store_fd(int *fd, int value) {
    __atomic_store_n(fd, value, __ATOMIC_RELEASE);
}

static void close_keeping_errno(int fd) {
    const int saved = errno;
    close(fd);
    errno = saved;
}

// Write all of a text, over interruptions and partial writes; what a full disk refuses is lost.
static void write_whole(int fd, const char *text, size_t len) {
    while (len > 0) {
        const ssize_t written = write(fd, text, len);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        text += written;
        len -= static_cast<size_t>(written);
    }
}

// Open a log's path and keep the descriptor clear of 0, which counts as closed.
static int open_for_append(const char *path) {
    int fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (fd == 0) {
        fd = fcntl(0, F_DUPFD_CLOEXEC, 1);
        close_keeping_errno(0);
    }
    return fd;
}

int vxlb_open_file_with_header(int *fd, const char *path, const char *header) {
    int current = load_fd(fd);
    if (current > 0) {
        return 0;
    }
    struct stat st;
    if (stat(path, &st) == 0) {
        header = nullptr;
    }
    const int opened = open_for_append(path);
    // Another thread may have opened the log in the meantime: its descriptor stays.
    if (!__atomic_compare_exchange_n(fd, &current, opened < 1 ? -1 : opened, false,
                                     __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE) &&
        opened > 0) {
        close(opened);
        return 0;
    }
    if (opened < 1) {
        return -1;
    }
    if (header == nullptr) {
        return 0;
    }
    write_whole(opened, header, strlen(header));
    return 1;
}

static bool is_file_at(const char *path, const struct stat *file) {
    struct stat st;
    return stat(path, &st) == 0 && st.st_ino == file->st_ino && st.st_dev == file->st_dev;
}

static void rename_rolled(const char *path, int prev_or_mmdd) {
    char rolled[ROLLED_PATH_SIZE];
    int len = 0;
    if (prev_or_mmdd != 0) {
        len = snprintf(rolled, sizeof(rolled), "%s.prev", path);
    } else {
        struct tm local = {};
        time_t now = time(nullptr);
        vxlb_localtime(&now, &local, 1);
        len = snprintf(rolled, sizeof(rolled), "%s.%02d.%02d", path, local.tm_hour, local.tm_min);
    }
    if (len > 0 && static_cast<size_t>(len) < sizeof(rolled)) {
        rename(path, rolled);
    }
}

// Open a description to lock: for writing, as some file systems want it, or as rights allow.
static int open_for_lock(const char *path) {
    const int fd = open(path, O_WRONLY | O_APPEND | O_CLOEXEC | O_NONBLOCK);
    return fd < 0 && errno == EACCES ? open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK) : fd;
}

// Rename the path if it still names the descriptor's file, and if nobody else is about to do so.
static void roll_file(int fd, const char *path, const struct stat *file, int prev_or_mmdd) {
    const int probe = open_for_lock(path);
    // Where none can be had, for want of descriptors or rights, the log's own has to do.
    const int locked = probe < 0 ? fd : probe;
    struct stat st;
    if (fstat(locked, &st) == 0 && st.st_ino == file->st_ino && st.st_dev == file->st_dev &&
        flock(locked, LOCK_EX | LOCK_NB) == 0) {
        if (is_file_at(path, file)) {
            rename_rolled(path, prev_or_mmdd);
        }
        flock(locked, LOCK_UN);
    }
    if (probe >= 0) {
        close(probe);
    }
}

// Whether the open file has grown past the limit; then *file describes it.
static bool is_too_large(int fd, int max_file_size, struct stat *file) {
    return fd > 0 && max_file_size > 0 && fstat(fd, file) == 0 && file->st_size > max_file_size;
}

int vxlb_check_rollover_file(int *fd, const char *path, int max_file_size, int prev_or_mmdd) {
    const int current = load_fd(fd);
    struct stat file;
    if (is_too_large(current, max_file_size, &file)) {
        roll_file(current, path, &file, prev_or_mmdd);
        store_fd(fd, -1);
        close(current);
    }
    return 0;
}

// Let the descriptor's number stand for the file that is now at the path.
static int reopen_in_place(int *fd, int current, const char *path, const char *header) {
    int fresh = -1;
    const int result = vxlb_open_file_with_header(&fresh, path, header);
    if (fresh < 1 && (errno == EMFILE || errno == ENFILE)) {
        // The old file takes the record: to close it first would give its number away.
        return 0;
    }
    if (fresh > 0 && dup3(fresh, current, O_CLOEXEC) == current) {
        close(fresh);
        return result;
    }
    store_fd(fd, fresh);
    close_keeping_errno(current);
    return result;
}

int vxlb_open_log(int *fd, const char *path, int max_file_size, const char *header) {
    const int current = load_fd(fd);
    struct stat file;
    if (!is_too_large(current, max_file_size, &file)) {
        return vxlb_open_file_with_header(fd, path, header);
    }
    roll_file(current, path, &file, 1);
    return reopen_in_place(fd, current, path, header);
}

int open_log_ex(const char *path, int *fd, unsigned int max_size) {
    const int result = vxlb_open_log(fd, path, static_cast<int>(max_size), nullptr);
    if (result < 0) {
        fprintf(stderr, "Failed to open(%s). Error = %s", path, vxlb_strerror(errno));
    }
    return result;
}

void vxlb_close_log_fd(void) {
    const int current = load_fd(&lib_debug_fd);
    store_fd(&lib_debug_fd, -1);
    if (current > 0 && close(current) != 0) {
        fputs("error in closing fd ", stderr);
    }
}

int vxlb_get_debug_fd(void) {
    return load_fd(&lib_debug_fd);
}

int vxlb_get_error_fd(void) {
    return load_fd(&lib_error_fd);
}

void vxlb_util_set_debug_log_level(int level) {
    __atomic_store_n(&vxlb_log_level, static_cast<uint32_t>(level), __ATOMIC_RELAXED);
}

void hessian_set_debug_log_level(int level) {
    vxlb_util_set_debug_log_level(level);
}

void vxlb_util_set_debug_log_fp(FILE *stream) {
    vxlb_log_fp = stream;
}

void hessian_set_debug_log_fp(FILE *stream) {
    vxlb_util_set_debug_log_fp(stream);
}

void vxlb_util_set_modulemask(uint64_t mask) {
    __atomic_store_n(&lib_module_mask, mask, __ATOMIC_RELAXED);
}

void vxlb_util_set_debug_log_size(unsigned int size) {
    __atomic_store_n(&max_debug_log_file_size, size, __ATOMIC_RELAXED);
}

static void copy_path(char (&to)[VXLB_LOG_PATH_SIZE], const char *from) {
    if (from != nullptr) {
        const size_t len = strnlen(from, sizeof(to) - 1);
        memmove(to, from, len);
        to[len] = '\0';
    }
}

void vxlb_util_set_log_filename(const char *log_file_name, const char *error_log_file_name) {
    copy_path(log_file, log_file_name);
    copy_path(error_log_file, error_log_file_name);
}

// A record under construction: text has room for limit bytes and a terminator.
typedef struct Record {
    char *text;
    size_t limit;
    size_t len;
} Record;

static void append_text(Record *record, const char *text) {
    if (text == nullptr) {
        text = "(null)";
    }
    const size_t len = strnlen(text, record->limit - record->len);
    memcpy(record->text + record->len, text, len);
    record->len += len;
}

static void append_field(Record *record, const char *text) {
    append_text(record, text);
    append_text(record, "|");
}

// "file|line|function|"
static void append_call_site(Record *record, const char *file, int line, const char *function) {
    char digits[NUMBER_TEXT_SIZE];
    *std::to_chars(digits, digits + sizeof(digits) - 1, line).ptr = '\0';
    append_field(record, file);
    append_field(record, digits);
    append_field(record, function);
}

// Put the message behind the prefix. A message that does not fit takes the rest of the record, the
// formatter's terminator included; one that can't be formatted ends where the formatter stopped.
__attribute__((format(printf, 2, 0))) static void append_message(Record *record, const char *format,
                                                                 va_list args) {
    const size_t room = record->limit - record->len;
    char *const message = record->text + record->len;
    message[0] = '\0';
    const int len = vsnprintf(message, room, format, args);
    record->text[record->limit] = '\0';
    const size_t wanted = len < 0 ? strlen(message) : static_cast<size_t>(len);
    record->len += wanted > room ? room : wanted;
}

// Whether the debug log is open and within its limit. It is opened for appending, so moving its
// position is safe, and the cheapest way to learn its size. Not for descriptors of other origin.
static bool is_within_limit(int fd, unsigned int max_size) {
    const off_t size = fd > 0 ? lseek(fd, 0, SEEK_END) : -1;
    return size >= 0 && size <= static_cast<int>(max_size);
}

// Programs that use the stream of the debug log get one for a new file. The writer asks for no
// header, so this waits for the day it does.
static void wrap_new_log() {
    FILE *const stream = fdopen(load_fd(&lib_debug_fd), "a");
    if (stream == nullptr) {
        fprintf(stderr, "Failed to fdopen(%s). Error = %s", log_file, vxlb_strerror(errno));
        return;
    }
    vxlb_util_set_debug_log_fp(stream);
}

// Not inlined: the buffer belongs to the frame of a record that is written, not to that of a
// disabled trace.
__attribute__((noinline, format(printf, 4, 0))) static void
write_debug_record(const char *file, int line, const char *function, const char *format,
                   va_list args) {
    __attribute__((uninitialized)) char text[RECORD_LIMIT + 1];
    Record record = {text, RECORD_LIMIT, 0};
    append_text(&record, "\n");
    append_field(&record, date_text());
    append_call_site(&record, file, line, function);
    append_message(&record, format, args);
    const unsigned int max_size = __atomic_load_n(&max_debug_log_file_size, __ATOMIC_RELAXED);
    if (!is_within_limit(load_fd(&lib_debug_fd), max_size) &&
        open_log_ex(log_file, &lib_debug_fd, max_size) == 1) {
        wrap_new_log();
    }
    write_whole(load_fd(&lib_debug_fd), record.text, record.len);
}

// The name in parentheses is the function, not the macro.
void(vxlb_debug_log_ex)(int level, uint64_t mask, const char *file, int line, const char *function,
                        const char *format, ...) {
    if (!vxlb_debug_log_is_on(level, mask)) {
        return;
    }
    const int saved = errno;
    va_list args;
    va_start(args, format);
    write_debug_record(file, line, function, format, args);
    va_end(args);
    errno = saved;
}

void vxlb_error_log_ex(int level, const char *file, int line, const char *function,
                       const char *error_id, const char *error_attr, const char *format, ...) {
    if (level == 0) {
        return;
    }
    const int saved = errno;
    __attribute__((uninitialized)) char text[RECORD_LIMIT + 1];
    Record record = {text, RECORD_LIMIT, 0};
    append_text(&record, "\n");
    append_field(&record, date_text());
    append_field(&record, error_id);
    append_field(&record, log_level_to_str(level));
    append_field(&record, error_attr);
    append_call_site(&record, file, line, function);
    append_text(&record, "Error|");
    va_list args;
    va_start(args, format);
    append_message(&record, format, args);
    va_end(args);
    if (error_log_file[0] == '\0') {
        fputs(record.text, stderr);
    } else {
        open_log_ex(error_log_file, &lib_error_fd, 0);
        write_whole(load_fd(&lib_error_fd), record.text, record.len);
    }
    errno = saved;
}

__attribute__((noinline, format(printf, 5, 0))) static void
print_stream_record(FILE *log_fp, const char *file, int line, const char *function,
                    const char *format, va_list args) {
    char date[DATE_TEXT_SIZE];
    __attribute__((uninitialized)) char text[STREAM_RECORD_LIMIT + 1];
    Record record = {text, STREAM_RECORD_LIMIT, 0};
    append_field(&record, vxlb_get_cur_date_time(date, 1));
    append_call_site(&record, file, line, function);
    append_message(&record, format, args);
    const int printed = fprintf(log_fp == nullptr ? stdout : log_fp, "\n%s\n", record.text);
    if (log_fp != nullptr) {
        fflush(log_fp);
    }
    if (printed < 0) {
        fprintf(stderr, "\n%s\n", "Unable to write to debug");
    }
}

int lib_debug_log(int log_level, int max_log_level, FILE *log_fp, const char *file_name, int line,
                  const char *function, const char *format, ...) {
    if (log_level > max_log_level) {
        return 0;
    }
    const int saved = errno;
    va_list args;
    va_start(args, format);
    print_stream_record(log_fp, file_name, line, function, format, args);
    va_end(args);
    errno = saved;
    return 0;
}

// Levels 1 to 4 stand for themselves and all below; any other number is a mask.
static int level_mask(const char *number) {
    const int value = static_cast<int>(strtol(number, nullptr, 10));
    switch (value) {
    case 1:
        return 0x000000FF;
    case 2:
        return 0x0000FFFF;
    case 3:
        return 0x00FFFFFF;
    case 4:
        return -1;
    default:
        return value;
    }
}

int set_vxlb_debug(const char *buf) {
    char keyword[SETTING_WORD_SIZE] = "";
    char value[SETTING_WORD_SIZE] = "";
    char extra[SETTING_WORD_SIZE] = "";
    static_assert(SETTING_WORD_SIZE == 512, "the widths below leave room for the terminator");
    if (sscanf(buf, "%511s %511s %511s", keyword, value, extra) < 2) {
        fprintf(stderr,
                "Invalid argument to keyword %s, should be atleast two (LIB_DEBUG <level>)\n",
                keyword);
    }
    if (vx_is_numeric(value) == 0) {
        fputs("Error: Value of LIB_DEBUG is not numeric", stderr);
        return -1;
    }
    const int level = level_mask(value);
    vxlb_util_set_debug_log_level(level);
    hessian_set_debug_log_level(level);
    return 0;
}

// A word of the line that is being read: text runs on beyond len.
typedef struct Word {
    const char *text;
    size_t len;
} Word;

// Take the next word off a line; len is 0 at its end.
static Word next_word(const char **line, const char *end) {
    const char *begin = *line;
    while (begin < end && *begin == ' ') {
        begin++;
    }
    *line = begin;
    while (*line < end && **line != ' ') {
        (*line)++;
    }
    return {begin, static_cast<size_t>(*line - begin)};
}

static bool is_word(Word word, const char *text) {
    return strlen(text) == word.len && strncasecmp(word.text, text, word.len) == 0;
}

static int module_row(Word word) {
    for (int row = 0; row < VXLB_MODULE_COUNT; row++) {
        if (is_word(word, lib_module_mask_name[row])) {
            return row;
        }
    }
    return -1;
}

// The value of a word; false for an unknown name. One would expect "0x" without a digit to be an
// error: it repeats the value of the word before.
static bool read_mask_word(Word word, unsigned long long *value) {
    if (isalpha(static_cast<unsigned char>(word.text[0])) != 0) {
        const int row = module_row(word);
        *value = row < 0 ? *value : lib_module_mask_bit[row];
        return row >= 0;
    }
    if (strncmp(word.text, "0x", 2) != 0) {
        char *behind = nullptr;
        const unsigned long long number = strtoull(word.text, &behind, 10);
        // A word of other white space alone must not read the word behind it.
        *value = behind > word.text + word.len ? 0 : number;
    } else if (isxdigit(static_cast<unsigned char>(word.text[2])) != 0) {
        *value = strtoull(word.text, nullptr, 16);
    }
    return true;
}

int set_vxlb_modulemask(const char *buf, char *err_msg) {
    const size_t len = strlen(buf);
    const char *const end = buf + len - (len > 0 && buf[len - 1] == '\n' ? 1 : 0);
    uint64_t mask = 0;
    unsigned long long value = 0;
    bool is_negated = false;
    next_word(&buf, end); // the keyword
    for (int count = 1; count < MASK_WORDS_MAX; count++) {
        Word word = next_word(&buf, end);
        if (is_word(word, "~")) {
            is_negated = true;
            word = ++count < MASK_WORDS_MAX ? next_word(&buf, end) : Word{buf, 0};
        }
        if (word.len == 0) {
            break;
        }
        if (!read_mask_word(word, &value)) {
            sprintf(err_msg,
                    "ZylErr[1011357]: Provided Modulemask '%.*s' is not a valid modulemask.",
                    static_cast<int>(word.len), word.text);
            return -1;
        }
        mask = is_negated ? mask & ~value : mask + value;
    }
    vxlb_util_set_modulemask(mask);
    return 0;
}
