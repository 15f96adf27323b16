// SPDX-License-Identifier: Apache-2.0
#ifndef VXLB_JSON_INTERNAL_H
#define VXLB_JSON_INTERNAL_H

// What the sources of the JSON module share: the scanner's operations, the functions that make up
// the module from the inside, and a handful of inline helpers.

#include <cstddef>
#include <cstdint>

#include <libvxcore/vxlb_json_parser.h>

enum json_operation : unsigned char {
    OPEN_OBJ,
    CLOSE_OBJ,
    OPEN_ARRAY,
    CLOSE_ARRAY,
    NEXT_ELEMENT,
    NEXT_ARRAY_ITEM,
    JSON_OPERATIONS
};

enum json_mode : unsigned char { FILE_MODE, BUFFER_MODE };
enum json_state : unsigned char { IN_OBJECT, IN_ARRAY };

enum { JSON_DEFAULT_DEPTH = 128, JSON_DEFAULT_WINDOW = 8192, JSON_RETURN_BUF_SIZE = 65536 };

// One small number for each byte.
struct json_byte_table {
    unsigned char of[256];
};

extern "C" {

vxlb_json_t *__vxlb_json_init(const char *filename_or_buffer, int16_t max_depth, int buf_length,
                              vxlb_json_error *error, unsigned char mode);

// 0 if the move is allowed; else -1 and error 3. Codes beyond the six moves are allowed.
int __check_parse_operation(vxlb_json_t *json, unsigned char operation);

// One move; 0 or -1.
int __parse_json(vxlb_json_t *json, unsigned char operation);

// Build one node and all below it; the node's offset in the block, 0 on failure. Links are offsets.
// parent_type is the type of the enclosing node, -1 for the top one.
uint32_t __jsont_traverse(vxlb_json_t *json, uint64_t parent, BBM *bbm, char parent_type);

// Turn the offsets of a node and of all below it into pointers.
void __jsont_set_bbm_idx_to_ptr(BBM *bbm, vxlb_jsont *jsont);

// Collect values below one node. num_cond records from expr_cond on are left, the node's own first.
void __jsont_eval(vxlb_jsont *jsont, json_expr_cond *expr_cond, int num_cond, char **values,
                  int max_value, int *tot_values);

// Write one node and all below it at *offset; root is 1 for the start node only.
void __jsont_to_string(vxlb_jsont *jsont, char *buffer, int max_length, int *offset, char indent,
                       short indent_offset, short tab_size, char encode, char root);

// Load the next bytes of the input into the used-up window; 0, or -1 with error 1 or 7.
int __json_refill(vxlb_json_t *json);

// fread that goes on after an interrupted read.
size_t __json_read(FILE *fp, char *to, size_t size);

// Forget the window: the next refill reads on from this input offset, where the stream stands.
void __json_restart_at(vxlb_json_t *json, int64_t position);

// Type of a member's value by its first byte; VXLB_JSON_NONE for a byte that can't begin one.
extern const json_byte_table __json_value_types;

extern const escapedChar escaped_char_list[5];
}

static inline int json_fail(vxlb_json_t *json, int code) {
    json->error = static_cast<unsigned char>(code);
    return -1;
}

// Input offset of the byte at an index of the window.
static inline int64_t json_position(const vxlb_json_t *json, int index) {
    return json->offset - json->buf_max + index;
}

// Not a carriage return: before a line end of two bytes it belongs to the literal.
static inline bool ends_literal(char c) {
    return c == ',' || c == '}' || c == ']' || c == '\n' || c == ' ' || c == '\t';
}

// What an escape stands for. A letter outside the table yields a zero byte.
static inline char decoded_escape(char letter) {
    for (const escapedChar &row : escaped_char_list) {
        if (row.cin == letter) {
            return row.cout;
        }
    }
    return '\0';
}

// Go one level down, into a container whose bytes begin at an index of the window.
static inline void json_enter(vxlb_json_t *json, unsigned char state, int index) {
    json->depth++;
    json->state[json->depth] = state;
    json->c_element_type = VXLB_JSON_NONE;
    json->cursor = index;
    json->os_offset[json->depth] = json_position(json, index);
}

// Go one level up, behind a container's closing bracket. Behind a bracket that closes nothing the
// depth is -1, where every move is refused.
static inline void json_leave(vxlb_json_t *json, int index) {
    json->depth--;
    json->cursor = index;
    json->c_element_type = VXLB_JSON_NONE;
}

#endif
