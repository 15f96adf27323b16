// SPDX-License-Identifier: Apache-2.0
#ifndef JSON_HANDLE_H
#define JSON_HANDLE_H

// One parser handle, used again for every input: as initialisation leaves it, but without a new result
// buffer (64 KB) each time, and reading from memory through a stream without system calls. Window
// and stacks are new each time and guarded at their ends.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "memory.h"
#include "vxlb_json_internal.h"

struct JsonHandle {
    vxlb_json_t *json = vxlb_json_init_buffer("{}", 1, 0, nullptr);
    std::string_view text; // what the stream reads
    size_t position = 0;
    FILE *stream = fopencookie(this, "r", {read, nullptr, seek, nullptr});

    JsonHandle() {
        free(json->buffer);
        free(json->os_offset);
        free(json->state);
        setvbuf(stream, nullptr, _IOFBF, 512);
    }
    JsonHandle(const JsonHandle &) = delete;
    ~JsonHandle() {
        json->buffer = nullptr;
        json->os_offset = nullptr;
        json->state = nullptr;
        json->fp = stream;
        vxlb_json_free(json);
    }
    static ssize_t read(void *cookie, char *to, size_t size) {
        auto *self = static_cast<JsonHandle *>(cookie);
        const size_t left = self->text.size() - std::min(self->position, self->text.size());
        const size_t got = std::min(size, left);
        memcpy(to, self->text.data() + self->position, got);
        self->position += got;
        return static_cast<ssize_t>(got);
    }
    static int seek(void *cookie, off64_t *offset, int whence) {
        auto *self = static_cast<JsonHandle *>(cookie);
        const auto base = whence == SEEK_CUR   ? static_cast<off64_t>(self->position)
                          : whence == SEEK_END ? static_cast<off64_t>(self->text.size())
                                               : 0;
        *offset += base;
        if (*offset < 0) {
            return -1;
        }
        self->position = static_cast<size_t>(*offset);
        return 0;
    }
    // The handle at the start of a document; window 0 is buffer mode.
    vxlb_json_t *start(std::string_view document, int16_t levels, int window) {
        const size_t size = window == 0 ? document.size() : static_cast<size_t>(window);
        const auto entries = static_cast<size_t>(levels);
        if (json->return_buf_len != JSON_RETURN_BUF_SIZE) {
            free(json->return_buf);
            json->return_buf = static_cast<char *>(malloc(JSON_RETURN_BUF_SIZE + 1));
        }
        char *kept = json->return_buf;
        *json = {};
        json->return_buf = kept;
        json->return_buf_len = JSON_RETURN_BUF_SIZE;
        json->f_size = static_cast<int64_t>(document.size());
        json->buffer_length = static_cast<int32_t>(size);
        json->buffer = Pieces::zeroed(size + 1);
        json->max_depth = levels;
        json->os_offset =
            reinterpret_cast<int64_t *>(Pieces::zeroed(entries * sizeof *json->os_offset));
        json->state = reinterpret_cast<unsigned char *>(Pieces::zeroed(entries));
        text = document;
        if (window != 0) {
            json->mode = FILE_MODE;
            json->fp = stream;
            rewind(stream);
            return json;
        }
        json->mode = BUFFER_MODE;
        document.copy(json->buffer, size);
        json->offset = json->buf_max = json->buffer_length;
        if (json->buffer[strspn(json->buffer, " \t\n")] == '[') {
            json->c_element_type = VXLB_JSON_ARRAY;
            json->state[0] = IN_ARRAY;
        }
        return json;
    }
};

#endif
