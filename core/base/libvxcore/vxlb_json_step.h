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
// does, or nothing.
//
// A step may begin behind the cursor, at `from`: a member's value has just been read and the cursor stands
// on its first byte, but scanning it a second time could not change the answer.

#include <cstring>

#include "vxlb_json_internal.h"
#include "vxlb_json_skip.h"

enum json_step { STEP_IRREGULAR, STEP_MOVED, STEP_ENDED };

static inline const char *skip_spaces(const vxlb_json_t *json, const char *p) {
    if (!is_json_space(*p)) {
        return p;
    }
    return is_json_space(p[1]) ? skip_blanks(p + 2, json->buffer + json->buf_max) : p + 1;
}

// memcpy for names and values of a few bytes, in line.
static inline void copy_short(char *to, const char *from, size_t size) {
    if (size > 16) {
        memcpy(to, from, size);
    } else if (size >= 8) {
        uint64_t ends[2];
        memcpy(&ends[0], from, 8);
        memcpy(&ends[1], from + size - 8, 8);
        memcpy(to, &ends[0], 8);
        memcpy(to + size - 8, &ends[1], 8);
    } else {
        for (size_t i = 0; i < size; i++) {
            to[i] = from[i];
        }
    }
}

static inline bool has_grown(const vxlb_json_t *json) {
    return json->offset > json->f_size;
}

static inline json_step step_end(vxlb_json_t *json, const char *p, int error) {
    json->cursor = static_cast<int32_t>(p - json->buffer);
    json->error = static_cast<unsigned char>(error);
    return STEP_ENDED;
}

static inline json_step step_to(vxlb_json_t *json, const char *p, unsigned char type) {
    json->cursor = static_cast<int32_t>(p - json->buffer);
    json->c_element_type = type;
    return STEP_MOVED;
}

// Quote that ends a name, or null for a name that takes a closer look.
static inline const char *end_of_name(const vxlb_json_t *json, const char *name) {
    const char *end = skip_string(name, json->buffer + json->buf_max);
    return *end == '"' && end - name < VXLB_JSON_NAME_SIZE ? end : nullptr;
}

static inline json_step step_member(vxlb_json_t *json, int from, size_t *name_length) {
    const bool first = json->c_element_type == VXLB_JSON_NONE;
    const char *p = skip_spaces(json, json->buffer + from);
    if (has_grown(json) || (*p != ',' && *p != '}' && !first)) {
        return STEP_IRREGULAR;
    }
    if (*p == ',') {
        p = skip_spaces(json, p + 1);
    }
    if (*p == '}') {
        return step_end(json, p, VXLB_JSON_OBJECT_ENDED);
    }
    const char *name = p + 1;
    const char *quote = *p == '"' ? end_of_name(json, name) : nullptr;
    if (quote == nullptr) {
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
    *name_length = static_cast<size_t>(quote - name);
    copy_short(json->c_element_name, name, *name_length);
    json->c_element_name[*name_length] = '\0';
    return step_to(json, p, type);
}

// First item, or the one behind an item that was entered: its own first byte tells the type.
static inline json_step step_first_item(vxlb_json_t *json, const char *p) {
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

static inline json_step step_item(vxlb_json_t *json) {
    const unsigned char type = json->c_element_type;
    const char *p = json->buffer + json->cursor;
    if (has_grown(json) || type == VXLB_JSON_OBJECT || type == VXLB_JSON_ARRAY) {
        return STEP_IRREGULAR;
    }
    if (type == VXLB_JSON_NONE) {
        return step_first_item(json, p);
    }
    p = skip_spaces(json, p);
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
static inline bool step_into(vxlb_json_t *json, unsigned char type) {
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
    int length;  // as written
    int escapes; // pairs of a backslash and a letter among them
    int behind;  // index behind a closing quote, or of the byte that ends a literal
};

static inline bool span_string(const vxlb_json_t *json, json_value_span *span) {
    const char *p = json->buffer + json->cursor;
    const char *end = json->buffer + json->buf_max;
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
    span->behind = static_cast<int>(p - json->buffer) + 1;
    return true;
}

// Letters, digits and signs only: no quote, bracket or backslash that a scan could stumble on.
static inline bool span_literal(const vxlb_json_t *json, json_value_span *span) {
    const char *p = json->buffer + json->cursor;
    span->text = p;
    span->escapes = 0;
    while (__json_literal_bytes.of[static_cast<unsigned char>(*p)] == LITERAL_PLAIN) {
        p++;
    }
    if (__json_literal_bytes.of[static_cast<unsigned char>(*p)] != LITERAL_END) {
        return false;
    }
    span->length = static_cast<int>(p - span->text);
    span->behind = static_cast<int>(p - json->buffer);
    return true;
}

// Find the current value if extraction would copy it from the window into return_buf as it is.
static inline bool span_value(const vxlb_json_t *json, json_value_span *span) {
    if (has_grown(json) || json->cursor == 0) {
        return false;
    }
    const bool found = json->c_element_type == VXLB_JSON_STRING ? span_string(json, span)
                                                                : span_literal(json, span);
    return found && span->behind < json->buf_max && span->length <= json->return_buf_len;
}

#endif
