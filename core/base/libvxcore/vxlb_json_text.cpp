// SPDX-License-Identifier: Apache-2.0
//
// Text: a tree written as JSON, and the editor of flat objects.
//
// Writing saturates: once a buffer is full the rest is cut, in the middle of a text if need be, without an
// error. The writer follows the tree's links instead of recursing.

#include <libvxcore/vxlb_json_parser.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "vxlb_json_internal.h"

// Bytes of jsont_to_string's own buffer, its last zero not counted.
enum { TEXT_BUFFER_SIZE = 65536, MAX_INDENT = 2048 };

enum { EDIT_BUFFER_SIZE = 4096, EDIT_LIMIT = EDIT_BUFFER_SIZE - 1, EDIT_DEPTH = 4 };

// ---- Writing ----

// A text being written: always terminated at *offset, which stays below max_length.
struct text_writer {
    char *buffer;
    int max_length;
    int *offset;
    bool indent;
    int tab_size;
};

// How many of `length` bytes still fit.
static size_t room_for(const text_writer *w, size_t length) {
    const int room = w->max_length - *w->offset;
    return room < 1 ? 0 : std::min(length, static_cast<size_t>(room) - 1);
}

static bool is_full(const text_writer *w) {
    return w->max_length <= 0 || *w->offset >= w->max_length - 1;
}

static void advance_text(const text_writer *w, size_t length) {
    if (w->max_length - *w->offset >= 1) {
        *w->offset += static_cast<int>(length);
        w->buffer[*w->offset] = '\0';
    }
}

static void put(const text_writer *w, std::string_view text) {
    const size_t length = room_for(w, text.size());
    memcpy(w->buffer + *w->offset, text.data(), length);
    advance_text(w, length);
}

static void put_indent(const text_writer *w, int level) {
    if (!w->indent) {
        return;
    }
    const int blanks = std::clamp(w->tab_size * level, 0, static_cast<int>(MAX_INDENT));
    const size_t length = room_for(w, static_cast<size_t>(blanks));
    memset(w->buffer + *w->offset, ' ', length);
    advance_text(w, length);
}

static bool is_container(const vxlb_jsont *node) {
    return node->type == VXLB_JSON_OBJECT || node->type == VXLB_JSON_ARRAY;
}

// Indentation and name, and the bracket or the value behind them.
static void put_opening(const text_writer *w, const vxlb_jsont *node, int level, bool is_root) {
    if (node->type < VXLB_JSON_OBJECT || node->type > VXLB_JSON_LITERAL) {
        return;
    }
    put_indent(w, level);
    if (node->parent != nullptr && node->parent->type != VXLB_JSON_ARRAY && !is_root) {
        put(w, "\"");
        put(w, node->name);
        put(w, w->indent ? "\" : " : "\":");
    }
    if (is_container(node)) {
        put(w, node->type == VXLB_JSON_OBJECT ? "{" : "[");
        put(w, w->indent ? "\n" : "");
        return;
    }
    const char *quote = node->type == VXLB_JSON_STRING ? "\"" : "";
    put(w, quote);
    put(w, node->value == nullptr ? "" : node->value); // as stored: a quote is not escaped again
    put(w, quote);
}

static void put_closing(const text_writer *w, const vxlb_jsont *node, int level) {
    if (is_container(node)) {
        put(w, w->indent ? "\n" : "");
        put_indent(w, level);
        put(w, node->type == VXLB_JSON_OBJECT ? "}" : "]");
    }
}

void __jsont_to_string(vxlb_jsont *jsont, char *buffer, int max_length, int *offset, char indent,
                       short indent_offset, short tab_size, [[maybe_unused]] char encode,
                       char root) {
    const text_writer w = {buffer, max_length, offset, indent != 0, tab_size};
    const vxlb_jsont *node = jsont;
    int level = indent_offset;
    while (!is_full(&w)) { // a full text can't change any more
        put_opening(&w, node, level, node == jsont && root != 0);
        if (is_container(node) && node->children != nullptr) {
            node = node->children;
            level++;
            continue;
        }
        put_closing(&w, node, level);
        while (node != jsont && node->next_sib == nullptr) {
            node = node->parent;
            level--;
            put_closing(&w, node, level);
        }
        if (node == jsont) {
            return;
        }
        put(&w, w.indent ? ",\n" : ",");
        node = node->next_sib;
    }
}

char *jsont_to_string(vxlb_jsont *jsont, char *buffer, int max_length, char indent, short tab_size,
                      char encode) {
    static char own_buffer[TEXT_BUFFER_SIZE + 1];
    if (buffer == nullptr) {
        buffer = own_buffer;
        max_length = TEXT_BUFFER_SIZE;
    }
    int offset = 0;
    __jsont_to_string(jsont, buffer, max_length, &offset, indent, 0, tab_size, encode, 1);
    buffer[offset] = '\0';
    return buffer;
}

// ---- Editing a flat object ----

enum edit_operation { REPLACE_OR_ADD = 1, REPLACE = 2, DELETE = 4 };

// One call of the editor.
struct edit {
    int8_t op;
    const char *key;
    const char *value;
    int limit;
    text_writer out; // the static buffer
    bool is_done;    // a member has been deleted
    bool is_first;   // no member has been written
};

static char *edit_failure(char *error_ptr, const char *reason) {
    if (error_ptr != nullptr) {
        sprintf(error_ptr, "Failed to parse json, error - %s", reason);
    }
    return nullptr;
}

static const char *error_text(const vxlb_json_t *json) {
    return json->error < VXLB_JSON_ERROR_CODES ? vxlb_json_error_string[json->error]
                                               : "Undefined Error";
}

// Room that a member is taken to need, counted from the start of the text.
static int64_t estimate(const edit *e, const char *name, const char *text) {
    return *e->out.offset + static_cast<int64_t>(strlen(name)) +
           static_cast<int64_t>(strlen(text)) + 10;
}

static void put_member(edit *e, const char *name, const char *text, bool quoted) {
    put(&e->out, e->is_first ? "\"" : ", \"");
    put(&e->out, name);
    put(&e->out, quoted ? "\": \"" : "\": ");
    put(&e->out, text);
    put(&e->out, quoted ? "\"" : "");
    e->is_first = false;
}

static void put_members(edit *e, const vxlb_jsont *object) {
    for (const vxlb_jsont *m = object->children; m != nullptr; m = m->next_sib) {
        const char *text = m->value;
        if (!e->is_done && strcmp(m->name, e->key) == 0) {
            if (e->op == DELETE) {
                e->is_done = true;
                continue;
            }
            if (e->op == REPLACE_OR_ADD || e->op == REPLACE) {
                text = e->value;
            }
        }
        if (e->limit < estimate(e, m->name, text)) {
            return;
        }
        put_member(e, m->name, text, m->type == VXLB_JSON_STRING);
    }
}

static bool is_flat_object(const vxlb_jsont *top) {
    const vxlb_jsont *m = top->children;
    while (m != nullptr && !is_container(m)) {
        m = m->next_sib;
    }
    return top->type == VXLB_JSON_OBJECT && m == nullptr;
}

// Parse a flat object; null, with the reason, if the text is none.
static vxlb_jsont *parse_flat_object(const char *input, char *error_ptr) {
    vxlb_json_error error = {};
    vxlb_json_t *json = vxlb_json_init_buffer(input, EDIT_DEPTH, 0, &error);
    if (json == nullptr) {
        edit_failure(error_ptr, error.str);
        return nullptr;
    }
    vxlb_jsont *top = vxlb_json_to_jsont(json);
    if (top == nullptr) {
        edit_failure(error_ptr, error_text(json));
    } else if (!is_flat_object(top)) {
        edit_failure(error_ptr, vxlb_json_error_string[VXLB_JSON_BAD_OPERATION]);
        vxlb_jsont_free(top);
        top = nullptr;
    }
    vxlb_json_free(json);
    return top;
}

char *vxlb_modify_json_obj_depth1(const char *input, int8_t op, const char *key, const char *value,
                                  int8_t is_str, char *error_ptr, char *out_buffer_ptr,
                                  int out_buffer_size) {
    static char own_buffer[EDIT_BUFFER_SIZE];
    if (key == nullptr || (value == nullptr && (op == REPLACE_OR_ADD || op == REPLACE))) {
        return edit_failure(error_ptr, vxlb_json_error_string[VXLB_JSON_INVALID_ARGUMENTS]);
    }
    vxlb_jsont *top = parse_flat_object(input, error_ptr);
    if (top == nullptr) {
        return nullptr;
    }
    // The opening brace alone goes to the caller's buffer; everything else, and what is returned, is the
    // static buffer, whose first byte then stays as it was. Callers use the returned text.
    const bool has_buffer = out_buffer_ptr != nullptr;
    if (!has_buffer || out_buffer_size > 0) {
        *(has_buffer ? out_buffer_ptr : own_buffer) = '{';
    }
    int length = 1;
    edit e = {};
    e.op = op;
    e.key = key;
    e.value = value;
    e.limit = has_buffer ? std::min(out_buffer_size, static_cast<int>(EDIT_LIMIT)) : EDIT_LIMIT;
    e.out = {own_buffer, EDIT_BUFFER_SIZE, &length, false, 0};
    e.is_first = true;
    put_members(&e, top);
    if (op == REPLACE_OR_ADD && e.limit > estimate(&e, key, value)) {
        put_member(&e, key, value, is_str != 0);
    }
    put(&e.out, "}");
    vxlb_jsont_free(top);
    return own_buffer;
}
