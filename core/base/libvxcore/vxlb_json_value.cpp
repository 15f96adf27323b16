// SPDX-License-Identifier: Apache-2.0
//
// Values: where the current scalar ends, its bytes, and its escapes.
//
// A value that lies inside the window, with at least one byte before and behind it, is copied from there.
// Any other one has lost its beginning to a refill (or can't be told from one that has): its bytes
// are read again from the stream, at the offset where it began. So a value may be longer than the window.

#include <libvxcore/vxlb_json_parser.h>

#include <cerrno>
#include <cstring>

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_util.h>

#include "vxlb_json_internal.h"
#include "vxlb_json_skip.h"

// Bytes of the longest value. A smaller limit lets a test reach it.
#ifndef VXLB_JSON_VALUE_MAX
#    define VXLB_JSON_VALUE_MAX 2147483646
#endif

const escapedChar escaped_char_list[5] = {
    {'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'"', '"'}, {'\\', '\\'},
};

// What is kept between the bytes of one value.
struct value_scan {
    int quotes;
    bool behind_backslash;
};

// Look at the window's bytes from the cursor on; true, with the cursor set, when the value's end is found.
static bool find_end_in_window(vxlb_json_t *json, value_scan *s) {
    const bool is_string = json->c_element_type == VXLB_JSON_STRING;
    const char *const end = json->buffer + json->buf_max;
    const char *p = json->buffer + json->cursor;
    bool found = false;
    while (p < end && *p != '\0') {
        if (*p == '"' && !s->behind_backslash) {
            s->quotes++;
        }
        found = is_string ? s->quotes == 2 : ends_literal(*p);
        if (found) {
            p += is_string ? 1 : 0;
            break;
        }
        // One byte of memory, not a toggle: an escaped backslash hides the quote behind it, and the
        // value runs on to the next one.
        s->behind_backslash = *p == '\\';
        p++;
        if (is_string && !s->behind_backslash) {
            p = skip_string(p, end);
        }
    }
    json->cursor = static_cast<int32_t>(p - json->buffer);
    return found;
}

// Put the cursor behind a string, or on the byte that ends a literal.
static int move_to_value_end(vxlb_json_t *json) {
    value_scan s = {};
    while (json->offset <= json->f_size) {
        if (json->cursor == json->buf_max && __json_refill(json) == -1) {
            return -1;
        }
        if (find_end_in_window(json, &s)) {
            return 0;
        }
        if (json->cursor < json->buf_max) {
            return json_fail(json, VXLB_JSON_BAD_FORMAT); // a zero byte
        }
    }
    return 0; // the file has grown: what has been read so far is the value
}

static char *value_buffer(vxlb_json_t *json, int length, int malloc_flag) {
    const size_t size = static_cast<size_t>(length) + 1;
    if (malloc_flag != 0) {
        char *copy = nullptr;
        VXLB_MALLOC(copy, size, "element_Value");
        return copy;
    }
    if (length > json->return_buf_len || json->return_buf == nullptr) {
        const size_t old_size = static_cast<size_t>(json->return_buf_len) + 1;
        VXLB_REALLOC(json->return_buf, size, "json->return_buf", old_size, -1);
        json->return_buf_len = length;
    }
    return json->return_buf;
}

// A value, as input offsets: `text` is where its bytes begin, `start` is one less for a string.
struct value_place {
    int64_t start;
    int64_t text;
    int64_t end;
    int length;
};

static int read_again(vxlb_json_t *json, const value_place *v, char *to, bool reset) {
    const auto length = static_cast<size_t>(v->length);
    if (json->mode == BUFFER_MODE || fseeko(json->fp, v->text, SEEK_SET) == -1) {
        return json_fail(json, VXLB_JSON_READ_FAILED);
    }
    if (__json_read(json->fp, to, length) != length) {
        fprintf(stderr, "Failed to read from file, error = %s\n", vxlb_strerror(errno));
        return json_fail(json, VXLB_JSON_READ_FAILED);
    }
    if (reset && fseeko(json->fp, v->start, SEEK_SET) == -1) {
        return json_fail(json, VXLB_JSON_READ_FAILED);
    }
    // Without reset the stream stands behind the bytes just read. For a string that is its closing quote,
    // on which the next scan then begins: callers who read strings in arrays use a window that holds them.
    __json_restart_at(json, reset ? v->start : v->text + v->length);
    return 0;
}

static int copy_value(vxlb_json_t *json, const value_place *v, char *to, bool reset) {
    const int64_t window = json_position(json, 0);
    if (v->end >= json->offset || v->start <= window) {
        return read_again(json, v, to, reset);
    }
    memcpy(to, json->buffer + (v->text - window), static_cast<size_t>(v->length));
    if (reset) {
        json->cursor = static_cast<int32_t>(v->start - window);
    }
    return 0;
}

char *vxlb_json_element_value_ex(vxlb_json_t *json, int *var_length, int malloc_flag,
                                 int decode_flag, unsigned char reset_offset_to_begin_of_var) {
    *var_length = 0;
    const bool is_string = json->c_element_type == VXLB_JSON_STRING;
    if (!is_string && json->c_element_type != VXLB_JSON_LITERAL) {
        json_fail(json, VXLB_JSON_READ_FAILED);
        return nullptr;
    }
    value_place v = {};
    v.start = json_position(json, json->cursor);
    v.text = v.start + (is_string ? 1 : 0);
    if (move_to_value_end(json) == -1) {
        return nullptr;
    }
    v.end = json_position(json, json->cursor);
    const int64_t length = v.end - v.start - (is_string ? 2 : 0);
    if (length < 0 || length > VXLB_JSON_VALUE_MAX) {
        json_fail(json, VXLB_JSON_READ_FAILED);
        return nullptr;
    }
    v.length = *var_length = static_cast<int>(length);
    char *value = value_buffer(json, v.length, malloc_flag);
    if (copy_value(json, &v, value, reset_offset_to_begin_of_var != 0) == -1) {
        if (malloc_flag != 0) {
            VXLB_FREE(value, "element_Value", -1);
        }
        return nullptr;
    }
    value[v.length] = '\0';
    if (decode_flag != 0 && is_string) {
        replace_escaped_char(value, var_length);
    }
    return value;
}

char *vxlb_json_element_value(vxlb_json_t *json, int *var_length, int malloc_flag,
                              int decode_flag) {
    return vxlb_json_element_value_ex(json, var_length, malloc_flag, decode_flag, 1);
}

void replace_escaped_char(char *in, int *length) {
    char *out = in;
    bool escaped = false;
    for (const char *p = in; *p != '\0'; p++) {
        if (escaped) {
            escaped = false;
            *out++ = decoded_escape(*p);
        } else if (*p == '\\') {
            escaped = true;
        } else {
            *out++ = *p;
        }
    }
    *out = '\0';
    *length = static_cast<int>(out - in);
}
