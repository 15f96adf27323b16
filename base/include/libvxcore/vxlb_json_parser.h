/* SPDX-License-Identifier: Apache-2.0 */
#ifndef LIBVXCORE_VXLB_JSON_PARSER_H
#define LIBVXCORE_VXLB_JSON_PARSER_H

/*
 * JSON: a streaming parser, a tree built from it, path expressions over the tree, and text output.
 *
 * The parser moves a cursor through a JSON text without building anything:
 *
 *     vxlb_json_t *json = vxlb_json_init("a.json", 0, 0, NULL);    {"a": 1, "b": {"c": 2}}
 *     vxlb_json_open_obj(json);                                     ^open
 *     vxlb_json_next_element(json);     name "a", type 3                  ^
 *     vxlb_json_next_element(json);     name "b", type 0                          ^
 *     vxlb_json_open_obj(json);                                                    ^
 *     vxlb_json_next_element(json);     name "c", type 3                                ^
 *     vxlb_json_close_obj(json);        behind the inner object                           ^
 *     vxlb_json_next_element(json);     -1, error 5: the object ended
 *     vxlb_json_free(json);
 *
 * The scanner is lenient: it looks for the next structural byte that it needs and passes over everything
 * else, so a malformed text may well be walked. Three of its habits surprise, and callers rely on them:
 *
 *   - the items of one array are taken to be of one type. Moving on from an object finds the next object,
 *     and passes over strings and numbers between the two; everything behind a literal counts as a literal;
 *   - a string value ends at the first quote with no backslash right before it, so a text that ends in an
 *     escaped backslash runs on to the next such quote;
 *   - in file mode, a string in an array that begins on the first or ends on the last byte of the window
 *     leaves the scan on its closing quote, and the next move goes astray. Choose a window larger than the
 *     file (proc_buf_length) where arrays of strings matter.
 *
 * Handle, tree and compiled expression belong to the caller that made them. Each is used by one thread at
 * a time; nothing is locked. When memory runs out the process ends.
 */

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default) /* what the shared library exports */

/* ---- Streaming parser ---- */

/* Types of the current element. */
enum {
    VXLB_JSON_OBJECT = 0,
    VXLB_JSON_ARRAY = 1,
    VXLB_JSON_STRING = 2,
    VXLB_JSON_LITERAL = 3, /* number, true, false, null, or anything else in an array */
    VXLB_JSON_NONE = 0xFF  /* a container was just opened or closed, or a search begins */
};

/* Codes of a failed operation; vxlb_json_error_string has a text for each. */
enum {
    VXLB_JSON_SUCCESS = 0,       /* nothing has failed yet */
    VXLB_JSON_UNEXPECTED_END,    /* the input ended before the move did */
    VXLB_JSON_BAD_FORMAT,        /* a byte that can't stand where it is; a zero byte anywhere */
    VXLB_JSON_BAD_OPERATION,     /* the move is not allowed in this state */
    VXLB_JSON_MAX_DEPTH,         /* one more level would reach max_depth */
    VXLB_JSON_OBJECT_ENDED,      /* next element met the closing brace */
    VXLB_JSON_ARRAY_ENDED,       /* next item met the closing bracket */
    VXLB_JSON_READ_FAILED,       /* a read or seek failed, or the element has no scalar value */
    VXLB_JSON_NOT_FOUND,         /* a search came to the end of its container */
    VXLB_JSON_INVALID_ARGUMENTS, /* null name or negative index */
    VXLB_JSON_ERROR_CODES        /* number of codes */
};

/* Bytes of a name in the handle and of an explanation, their zero included. */
enum { VXLB_JSON_NAME_SIZE = 512, VXLB_JSON_ERROR_SIZE = 1025 };

/* Text of each error code; constant. */
extern const char *const vxlb_json_error_string[VXLB_JSON_ERROR_CODES];

/*
 * Stream for the next file-mode initialisation of this thread, which takes it (and clears this variable)
 * instead of opening the file name. The handle closes it. Null by default.
 */
extern __thread FILE *vxlb_json_file_fp;

/* Filled by initialisation: "success", or why it failed. Later moves don't change it. */
typedef struct vxlb_json_error {
    char str[VXLB_JSON_ERROR_SIZE];
} vxlb_json_error;

/*
 * The parser's handle. The window holds the input bytes [offset - buf_max, offset); the cursor stands on
 * input byte offset - buf_max + cursor. Callers read depth, c_element_type and error; the rest is the
 * parser's own.
 */
typedef struct vxlb_json_t {
    FILE *fp;       /* input in file mode, owned; null in buffer mode */
    int64_t f_size; /* bytes of input, as found at initialisation */
    int64_t offset; /* input offset behind the last byte loaded into the window */
    char *buffer;   /* the window: buffer_length + 1 bytes, a zero behind the valid ones */
    int32_t
        buffer_length;  /* bytes asked for by one refill; in buffer mode the length of the input */
    int32_t buf_max;    /* valid bytes in the window */
    int32_t cursor;     /* index in the window */
    int16_t depth;      /* 0 outside every container; -1 after one closing bracket too many */
    int16_t max_depth;  /* entries of the two stacks */
    int64_t *os_offset; /* by depth: input offset of the byte behind the container's bracket */
    unsigned char *state;   /* by depth: 0 in an object, 1 in an array */
    char *return_buf;       /* value of the last extraction that asked for no copy of its own */
    int32_t return_buf_len; /* capacity of return_buf in bytes of value, its zero not counted */
    char c_element_name[VXLB_JSON_NAME_SIZE]; /* last name read; longer ones are cut to 511 bytes */
    unsigned char c_element_type;
    unsigned char error; /* code of the last failure, 0 before the first */
    unsigned char mode;  /* 0 file, 1 buffer */
} vxlb_json_t;

/* One row of the escape table: the letter behind a backslash, and what the pair stands for. */
typedef struct escapedChar {
    char cin;
    char cout;
} escapedChar;

/*
 * Open a parser on a file.
 *
 * max_depth: levels, the outermost one (depth 0, no container) counted; 0 means 128. proc_buf_length: size
 * of the window in bytes; 0 means 8192. error: may be null.
 *
 * Returns the handle, or null for a null file name, a negative number, or a file that can't be opened.
 * Only regular files are opened: a directory is refused as EISDIR, a FIFO, socket or device as EINVAL.
 */
vxlb_json_t *vxlb_json_init(const char *filename, int16_t max_depth, int proc_buf_length,
                            vxlb_json_error *error);

/*
 * Open a parser on a copy of a text.
 *
 * buffer_len 0 means the text's length up to its terminating zero. If the first byte that is not a space, tab
 * or newline is "[", the top value is an array; in every other case, and always in file mode, the top value is
 * taken to be an object.
 */
vxlb_json_t *vxlb_json_init_buffer(const char *buffer, int16_t max_depth, int buffer_len,
                                   vxlb_json_error *error);

/* Release a handle and close its stream; null is allowed. */
void vxlb_json_free(vxlb_json_t *json);

/*
 * The six moves. Each returns 0, or -1 with `error` set; a failed move leaves depth and stacks alone, while
 * the cursor may have advanced. After a closing bracket at depth 0 the depth is -1 and every move is refused.
 * (When the file has grown since initialisation, a move that runs past the size found then returns -1 and
 * sets no error.)
 */
int vxlb_json_open_obj(vxlb_json_t *json);
int vxlb_json_close_obj(vxlb_json_t *json);
int vxlb_json_open_array(vxlb_json_t *json);
int vxlb_json_close_array(vxlb_json_t *json);

/* Step onto the next member of the object; its name and type are in the handle. Error 5 at the end. */
int vxlb_json_next_element(vxlb_json_t *json);

/* Step onto the next item of the array; the name in the handle does not change. Error 6 at the end. */
int vxlb_json_next_array_item(vxlb_json_t *json);

/*
 * Go to the member of a name, or to the item of an index (from 0), in the current container: searches begin at
 * the container's start, so they may be repeated in any order. At depth 0 they begin at the start of
 * the document. 0, or -1 with error 8 when there is none.
 */
int vxlb_json_goto_element(vxlb_json_t *json, const char *element_name);
int vxlb_json_goto_array_item(vxlb_json_t *json, int index);

/* Name of the current member, in the handle until the next move; null with error 3 if there is none. */
char *vxlb_json_element_name(vxlb_json_t *json);

/*
 * Value of the current string or literal, with a zero behind it.
 *
 * var_length: receives its length in bytes. malloc_flag: 0 for a result in the handle that lives until the
 * next extraction, else for a new buffer that the caller releases (VXLB_FREE, or plain free). decode_flag:
 * decode the escapes of a string. reset_offset_to_begin_of_var: go back to the value's first byte, so that it
 * can be read again; with 0 the cursor stays behind the value.
 *
 * Returns null with error 7 for objects and arrays, 1 when the input ends first, 2 for a zero byte. A
 * carriage return does not end a literal: it becomes part of it.
 */
char *vxlb_json_element_value_ex(vxlb_json_t *json, int *var_length, int malloc_flag,
                                 int decode_flag, unsigned char reset_offset_to_begin_of_var);

/* The same, always going back to the value's first byte. */
char *vxlb_json_element_value(vxlb_json_t *json, int *var_length, int malloc_flag, int decode_flag);

/*
 * Decode the escapes \n \r \t \" \\ of a text in place; *length receives the new length.
 *
 * Any other escape becomes a single zero byte, and the bytes behind it are kept: \u0041 turns into a
 * zero byte and the four digits. Callers that want those characters look past the zero by length.
 */
void replace_escaped_char(char *in, int *length);

/* ---- Tree ---- */

/*
 * One block per tree holds all nodes and value texts, packed, in document order, from byte 1 on:
 *
 *     mem -> . [node root][node a]"1\0"[node b][node c]"text\0"
 *            0 1          309      617
 */
typedef struct BBM {
    char *mem;       /* the block */
    uint64_t offset; /* bytes in use */
    uint64_t max;    /* bytes allocated */
} BBM;

/* Bytes of a name in a node, its zero included. */
enum { VXLB_JSONT_NAME_SIZE = 256 };

/* A node lies at any address, so the record is packed: read its fields through this type only. */
typedef struct __attribute__((packed)) vxlb_jsont {
    char name
        [VXLB_JSONT_NAME_SIZE]; /* the first 255 bytes; "root" for a top node without one. Items of an
                                        array have whatever name the parser read last. */
    int16_t type;               /* object 0, array 1, string 2, literal 3 */
    struct vxlb_jsont *parent;   /* null for the top node */
    int16_t numChild;            /* children, counted up to 32767; the chain holds all of them */
    struct vxlb_jsont *children; /* first child */
    struct vxlb_jsont *next_sib; /* next node of the same parent */
    char *value;                 /* text of a string (decoded) or literal; null for containers */
    int32_t value_len;           /* its bytes, zero bytes of undecoded escapes included */
    BBM *bbm;                    /* the tree's block */
    int32_t future1;             /* always 0 */
} vxlb_jsont;

/*
 * Build the tree of the handle's current element, which the handle then has consumed.
 *
 * Returns the top node, or null when the handle is null, the text is malformed (the handle's error says how
 * far it came), or the tree would need more than 4 GiB. The tree does not refer to the handle.
 */
vxlb_jsont *vxlb_json_to_jsont(vxlb_json_t *json);

/* Release the whole tree, through any of its nodes. */
void vxlb_jsont_free(vxlb_jsont *jsont);

/* ---- Path expressions ---- */

/* One segment of a compiled path. */
typedef struct json_expr_cond {
    char nodename[256];   /* the first 255 bytes */
    signed char con_type; /* 0 none, 1 index of an item, 2 member equals value */
    int32_t cidx;         /* for 1 */
    char cname[256];      /* for 2 */
    char cvalue[1024];    /* for 2 */
} json_expr_cond;

/*
 * Follow a path such as "$.scenario.TAGS._G[0]" to one node.
 *
 * The first segment stands for the start node, whatever it says. An index picks an item of the array that its
 * own segment names. At most 2047 bytes and 64 segments count. Null when nothing is there, and when an array in
 * mid-path has no index.
 */
vxlb_jsont *vxlb_jsont_eval_expr(vxlb_jsont *jsont, const char *expr);

/*
 * Compile a path such as "$.list[kind=x].id" (expr is cut up) into a new array of at most 256 segments, which
 * the caller releases. Returns their number; 0 and a null array for an empty path.
 */
int vxlb_str_to_expr_cond(char *expr, json_expr_cond **json_expr_condition);

/*
 * Collect the values of all scalars that a compiled path matches, in document order: arrays fan out, unless
 * the segment picks an item by [index], or the object items with a member [name=value].
 *
 * values: receives at most max_value pointers into the tree. Returns how many; -1 for a null argument.
 */
int vxlb_jsont_eval_json_expr(vxlb_jsont *jsont, json_expr_cond *expr_cond, int num_cond,
                              char **values, int max_value);

/* The same for a path as text of less than 4096 bytes; a longer one gives -1. */
int vxlb_jsont_eval_expr_str(vxlb_jsont *jsont, const char *expr, char **values, int max_value);

/* ---- Text ---- */

/*
 * Write a tree, or any part of one, as JSON text. Each node's parent must be set, as it is in a built tree.
 *
 * buffer: max_length + 1 bytes, or null for a static buffer of this function (65535 characters, overwritten by
 * the next call of any thread). At most max_length - 1 characters are written and then a zero; longer texts
 * are cut. indent: not 0 for one element a line, tab_size blanks a level. encode: no effect.
 *
 * Strings are written as stored, escapes decoded: nothing is escaped again, so a value that holds a quote
 * gives a text that is not JSON. Returns the buffer.
 */
char *jsont_to_string(vxlb_jsont *jsont, char *buffer, int max_length, char indent, short tab_size,
                      char encode);

/*
 * Edit the text of a flat object: op 1 replaces or adds a member, 2 replaces, 4 deletes the first of that
 * name; any other copies.
 *
 * op 1 on a member that exists replaces it and appends it again. A replaced value is quoted if the member was
 * a string; is_str decides for an appended one. error_ptr: null, or room for a message of 100 bytes.
 *
 * Returns a static buffer of 4096 bytes, overwritten by the next call of any thread; members that don't fit into
 * out_buffer_size (4095 at most) are dropped. One would expect the text in out_buffer_ptr: it only ever receives
 * the opening brace, if it has room, which is then missing from the returned text. Callers that pass null get
 * the whole text. Null is returned for a text that is not a flat object, and for a null argument.
 */
char *vxlb_modify_json_obj_depth1(const char *input, int8_t op, const char *key, const char *value,
                                  int8_t is_str, char *error_ptr, char *out_buffer_ptr,
                                  int out_buffer_size);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
