// SPDX-License-Identifier: Apache-2.0
#ifndef VXLB_JSON_STEP_H
#define VXLB_JSON_STEP_H

// The regular road: moves and values as they are in nearly every document.
//
// A tree is built by millions of moves whose answer can be read off a few bytes: white space, a comma, a
// quoted name, a colon, a value that lies in the window. The steps below take those, and only those.
// Whatever else they meet (the end of the window, a zero byte, a name with a backslash, a byte that has
// no business there) they report as irregular, having changed nothing; the caller then makes the move
// with __parse_json, from the cursor, and gets its answer. So each step either does exactly what the move
// does, or nothing; but for the name, which it leaves in the window.
//
// A step begins at `from`, which may lie behind the cursor: a member's value has just been read and
// the cursor stands on its first byte, but scanning it a second time could not change the answer.

#include <cstring>

#include "vxlb_json_internal.h"
#include "vxlb_json_skip.h"

// What comes of a step: the type of the element it has come to, or one of these.
enum { STEP_IRREGULAR = -2, STEP_ENDED = -1 };

// Sixteen bytes at once, in whatever way the machine has; the second type lies at any address.
typedef signed char byte16 __attribute__((vector_size(16)));
typedef signed char byte16_anywhere __attribute__((vector_size(16), aligned(1), may_alias));

static inline byte16 load16(const char *from) {
    return *reinterpret_cast<const byte16_anywhere *>(from);
}

static inline void store16(char *to, byte16 block) {
    *reinterpret_cast<byte16_anywhere *>(to) = block;
}

static inline const char *window_end(const vxlb_json_t *json) {
    return json->buffer + json->buf_max;
}

static inline const char *skip_spaces(const vxlb_json_t *json, const char *p) {
    if (!is_json_space(*p)) {
        return p;
    }
    return is_json_space(p[1]) ? skip_blanks(p + 2, window_end(json)) : p + 1;
}

static inline bool has_grown(const vxlb_json_t *json) {
    return json->offset > json->f_size;
}

static inline int step_end(vxlb_json_t *json, const char *p, int error) {
    json->cursor = static_cast<int32_t>(p - json->buffer);
    json->error = static_cast<unsigned char>(error);
    return STEP_ENDED;
}

static inline int step_to(vxlb_json_t *json, const char *p, unsigned char type) {
    json->cursor = static_cast<int32_t>(p - json->buffer);
    json->c_element_type = type;
    return type;
}

// Lanes of 16 bytes, the first one being number `first`, that lie before lane `count`.
static inline byte16 lanes_before(size_t count, int first) {
    const byte16 lane = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    return lane < byte16{} + static_cast<signed char>(static_cast<int>(count) - first);
}

// Write a name and its zero; what an earlier, longer name has left behind them stays.
static inline void keep_name(vxlb_json_t *json, const char *text, size_t length) {
    char *name = json->c_element_name;
    if (length < 16 && window_end(json) - text >= 16) {
        const byte16 inside = lanes_before(length, 0);
        const byte16 behind = ~lanes_before(length + 1, 0);
        store16(name, (load16(text) & inside) | (load16(name) & behind));
    } else {
        memcpy(name, text, length);
        name[length] = '\0';
    }
}

static inline int step_member(vxlb_json_t *json, const char *from, size_t *name_length) {
    const char *p = skip_spaces(json, from);
    if (has_grown(json)) {
        return STEP_IRREGULAR;
    }
    if (*p == ',') {
        p = skip_spaces(json, p + 1);
    } else if (*p != '}' && json->c_element_type != VXLB_JSON_NONE) {
        return STEP_IRREGULAR;
    }
    if (*p != '"') {
        return *p == '}' ? step_end(json, p, VXLB_JSON_OBJECT_ENDED) : STEP_IRREGULAR;
    }
    const char *text = p + 1;
    const char *quote = skip_string(text, window_end(json));
    if (*quote != '"' || quote - text >= VXLB_JSON_NAME_SIZE) {
        return STEP_IRREGULAR;
    }
    p = skip_spaces(json, quote + 1);
    if (*p != ':') {
        return STEP_IRREGULAR;
    }
    p = skip_spaces(json, p + 1);
    const unsigned char type = __json_value_types.of[static_cast<unsigned char>(*p)];
    if (type == VXLB_JSON_NONE) {
        return STEP_IRREGULAR;
    }
    *name_length = static_cast<size_t>(quote - text);
    keep_name(json, text, *name_length);
    return step_to(json, p, type);
}

// First item, or the one behind an item that was entered: its own first byte tells the type.
static inline int step_first_item(vxlb_json_t *json, const char *p) {
    do {
        p = skip_spaces(json, p);
    } while (*p == ',' && *++p != '\0');
    switch (*p) {
    case '\0':
        return STEP_IRREGULAR;
    case ']':
        return step_end(json, p, VXLB_JSON_ARRAY_ENDED);
    case '{':
        return step_to(json, p, VXLB_JSON_OBJECT);
    case '[':
        return step_to(json, p, VXLB_JSON_ARRAY);
    case '"':
        return step_to(json, p, VXLB_JSON_STRING);
    default:
        return step_to(json, p, VXLB_JSON_LITERAL);
    }
}

static inline int step_item(vxlb_json_t *json, const char *from) {
    const unsigned char type = json->c_element_type;
    if (has_grown(json) || type == VXLB_JSON_OBJECT || type == VXLB_JSON_ARRAY) {
        return STEP_IRREGULAR;
    }
    if (type == VXLB_JSON_NONE) {
        return step_first_item(json, from);
    }
    const char *p = skip_spaces(json, from);
    if (*p == ']') {
        return step_end(json, p, VXLB_JSON_ARRAY_ENDED);
    }
    if (*p != ',') {
        return STEP_IRREGULAR;
    }
    p = skip_spaces(json, p + 1);
    if (*p == '\0' || (type == VXLB_JSON_STRING && *p != '"')) {
        return STEP_IRREGULAR;
    }
    return step_to(json, p, type);
}

// Enter the container whose bracket the cursor stands on; false, with nothing changed, if it doesn't.
static inline bool step_into(vxlb_json_t *json, int type) {
    if (has_grown(json) || json->depth < 0 || json->depth + 1 >= json->max_depth ||
        json->buffer[json->cursor] != (type == VXLB_JSON_OBJECT ? '{' : '[')) {
        return false;
    }
    json_enter(json, type == VXLB_JSON_OBJECT ? IN_OBJECT : IN_ARRAY, json->cursor + 1);
    return true;
}

// Leave the container whose closing bracket the cursor stands on, as after STEP_ENDED.
static inline bool step_out(vxlb_json_t *json, char bracket) {
    if (has_grown(json) || json->buffer[json->cursor] != bracket) {
        return false;
    }
    json_leave(json, json->cursor + 1);
    return true;
}

// A value found in the window: its bytes between any quotes, and where the next move may begin.
struct json_value_span {
    const char *text;
    int length;         // as written
    int escapes;        // pairs of a backslash and a letter among them
    const char *behind; // a closing quote's next byte, or the byte that ends a literal
};

static inline bool span_string(const vxlb_json_t *json, const char *p, json_value_span *span) {
    const char *end = window_end(json);
    span->text = p + 1;
    span->escapes = 0;
    if (*p != '"') {
        return false;
    }
    p = skip_string(p + 1, end);
    while (*p == '\\' && p[1] != '\0') {
        span->escapes++;
        p = skip_string(p + 2, end);
    }
    // Behind an escaped backslash, moves take a quote for the end of the string and extraction doesn't.
    if (*p != '"' || p[-1] == '\\') {
        return false;
    }
    span->length = static_cast<int>(p - span->text);
    span->behind = p + 1;
    return true;
}

// No quote, bracket or backslash in it that a scan could stumble on.
static inline bool span_literal(const vxlb_json_t *json, const char *p, json_value_span *span) {
    span->text = p;
    span->escapes = 0;
    span->behind = skip_literal(p, window_end(json));
    span->length = static_cast<int>(span->behind - p);
    return ends_literal(*span->behind);
}

// Find the current value if extraction would copy it from the window into return_buf as it is.
static inline bool span_value(const vxlb_json_t *json, int type, json_value_span *span) {
    const char *p = json->buffer + json->cursor;
    if (has_grown(json) || json->cursor == 0) {
        return false;
    }
    const bool found =
        type == VXLB_JSON_STRING ? span_string(json, p, span) : span_literal(json, p, span);
    return found && span->behind < window_end(json) && span->length <= json->return_buf_len;
}

#endif
