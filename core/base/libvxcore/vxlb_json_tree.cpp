// SPDX-License-Identifier: Apache-2.0
//
// The tree: built from a parser's moves into one growable block.
//
//     mem -> . [root][a]"1\0"[b][c]"text\0"        records packed, each value behind its record
//            0 1
//
// While the tree grows, its block may move, so links are byte offsets (0: none; byte 0 is never used);
// a last pass turns them into pointers. Nothing recurses: an open container is left through its own parent
// link, so that any depth of nesting costs no stack.

#include <libvxcore/vxlb_json_parser.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_log.h>

#include "vxlb_json_internal.h"
#include "vxlb_json_step.h"

#define TRACE(level, ...) \
    vxlb_debug_log_ex(level, VXLB_MOD_MISC, __FILE__, __LINE__, __func__, __VA_ARGS__)

// Bytes that a block may use: offsets are handed on as 32-bit numbers. A smaller limit lets a test reach it.
#ifndef VXLB_JSONT_BLOCK_LIMIT
#    define VXLB_JSONT_BLOCK_LIMIT (UINT64_C(1) << 32)
#endif

enum : uint64_t { BLOCK_HEADROOM = 32768, BLOCK_LARGE = 1 << 20 };

// A node while the tree is being built: the same record, its links as offsets.
struct __attribute__((packed, may_alias)) growing_node {
    char name[VXLB_JSONT_NAME_SIZE];
    int16_t type;
    uintptr_t parent;
    int16_t num_child;
    uintptr_t children;
    uintptr_t next_sib;
    uintptr_t value;
    int32_t value_len;
    BBM *bbm;
    int32_t future1;
};

static_assert(sizeof(growing_node) == sizeof(vxlb_jsont));
static_assert(offsetof(growing_node, value) == offsetof(vxlb_jsont, value));

static growing_node *node_at(const BBM *bbm, uint64_t offset) {
    return reinterpret_cast<growing_node *>(bbm->mem + offset);
}

// ---- Block ----

// A large block grows by half its size, so that the bytes moved stay in proportion to its size.
static void grow_block(BBM *bbm, uint64_t used) {
    const uint64_t least = used + BLOCK_HEADROOM;
    uint64_t size = least > BLOCK_LARGE ? least + least / 2 : least;
    void *mem = realloc(bbm->mem, size);
    if (mem == nullptr && size > least) {
        size = least;
        mem = realloc(bbm->mem, size);
    }
    if (mem == nullptr) {
        fputs("Memory allocation failed.\n", stderr);
        exit(-1);
    }
    bbm->mem = static_cast<char *>(mem);
    bbm->max = size;
}

// Take `size` bytes; their offset, or 0 if the block would get too large.
static uint64_t take_bytes(BBM *bbm, uint64_t size) {
    const uint64_t used = bbm->offset + size;
    if (used > VXLB_JSONT_BLOCK_LIMIT) {
        return 0;
    }
    if (used >= bbm->max) {
        grow_block(bbm, used);
        if (bbm->offset == 0) {
            bbm->offset = 1;
        }
    }
    const uint64_t offset = bbm->offset;
    bbm->offset += size;
    return offset;
}

// All of the name's bytes are written: the ones behind the text are zero.
static void set_name(char *name, const char *text, size_t length) {
#if defined(__SSE2__)
    // A call of memset, or its string instruction, costs more than these stores.
    for (size_t i = 0; i < VXLB_JSONT_NAME_SIZE; i += sizeof(__m128i)) {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(name + i), _mm_setzero_si128());
    }
#else
    memset(name, 0, VXLB_JSONT_NAME_SIZE);
#endif
    copy_short(name, text, std::min<size_t>(length, VXLB_JSONT_NAME_SIZE - 1));
}

// Nodes are written in the order of their addresses: have the lines of a later one at hand. A fetch
// beyond the block is harmless.
static void fetch_ahead(const growing_node *node) {
    const char *later = reinterpret_cast<const char *>(node) + 1024;
    for (size_t line = 0; line < sizeof *node; line += 64) {
        __builtin_prefetch(later + line, 1);
    }
}

// Place a record for the parser's current element, whose name has `length` bytes; its offset, or 0.
static uint64_t place_node(const vxlb_json_t *json, size_t length, BBM *bbm, uint64_t parent) {
    const uint64_t offset = take_bytes(bbm, sizeof(vxlb_jsont));
    if (offset == 0) {
        return 0;
    }
    growing_node *node = node_at(bbm, offset);
    fetch_ahead(node);
    if (parent == 0 && length == 0) {
        set_name(node->name, "root", 4);
    } else {
        set_name(node->name, json->c_element_name, length);
    }
    // NOLINTNEXTLINE(bugprone-signed-char-misuse): the sign is meant, "no element" becomes -1
    node->type = static_cast<signed char>(json->c_element_type);
    node->parent = parent;
    node->num_child = 0;
    node->children = 0;
    node->next_sib = 0;
    node->value = 0;
    node->value_len = 0;
    node->bbm = bbm;
    node->future1 = 0;
    return offset;
}

static void link_child(const BBM *bbm, uint64_t parent, uint64_t previous, uint64_t child) {
    growing_node *node = node_at(bbm, parent);
    if (previous == 0) {
        node->children = child;
    } else {
        node_at(bbm, previous)->next_sib = child;
    }
    if (node->num_child < INT16_MAX) {
        node->num_child++;
    }
}

// ---- Building ----

// The builder's place in the document.
struct builder {
    vxlb_json_t *json;
    BBM *bbm;
    uint64_t container; // innermost open container
    uint64_t previous;  // the last child placed in it, 0 for none
    size_t name_length; // of the parser's current name
    int resume;         // where the next move may begin: the cursor, or behind the member just read
};

// Give a node its value text of `length` bytes, not yet filled; null if the block would get too large.
static char *place_text(BBM *bbm, uint64_t node, int length) {
    const uint64_t offset = take_bytes(bbm, static_cast<uint64_t>(length) + 1);
    if (offset == 0) {
        return nullptr;
    }
    node_at(bbm, node)->value = offset;
    node_at(bbm, node)->value_len = length;
    bbm->mem[offset + static_cast<uint64_t>(length)] = '\0';
    return bbm->mem + offset;
}

static void copy_decoded(char *to, const json_value_span *span) {
    const char *p = span->text;
    const char *end = p + span->length;
    while (p < end) {
        const char *next = skip_string(p, end);
        memcpy(to, p, static_cast<size_t>(next - p));
        to += next - p;
        p = next;
        if (p < end) { // a backslash: the string's own quotes are outside
            *to++ = p[0] == '\\' ? decoded_escape(p[1]) : p[0];
            p += p[0] == '\\' ? 2 : 1;
        }
    }
}

// Read the current value with the parser's extraction, for whatever the regular road can't take.
static bool extract_value(builder *b, uint64_t node, bool in_array) {
    int length = 0;
    const char *value = vxlb_json_element_value_ex(b->json, &length, 0, 1, in_array ? 0 : 1);
    char *text = value == nullptr ? nullptr : place_text(b->bbm, node, length);
    if (text == nullptr) {
        return false;
    }
    memcpy(text, value, static_cast<size_t>(length));
    b->resume = b->json->cursor;
    return true;
}

static bool read_value(builder *b, uint64_t node, bool in_array) {
    json_value_span span;
    if (!span_value(b->json, &span)) {
        return extract_value(b, node, in_array);
    }
    char *text = place_text(b->bbm, node, span.length - span.escapes);
    if (text == nullptr) {
        return extract_value(b, node, in_array); // fails too, and leaves the handle as it should
    }
    if (span.escapes == 0) {
        copy_short(text, span.text, static_cast<size_t>(span.length));
    } else {
        copy_decoded(text, &span);
    }
    b->resume = span.behind;
    if (in_array) {
        b->json->cursor = span.behind;
    }
    return true;
}

static bool enter(builder *b, uint64_t node, unsigned char type) {
    if (!step_into(b->json, type) &&
        __parse_json(b->json, type == VXLB_JSON_OBJECT ? OPEN_OBJ : OPEN_ARRAY) == -1) {
        return false;
    }
    b->container = node;
    b->previous = 0;
    b->resume = b->json->cursor;
    return true;
}

// Step onto the next child of the open container; false at its end, or when the move fails.
static bool advance(builder *b, bool in_array) {
    const json_step step =
        in_array ? step_item(b->json) : step_member(b->json, b->resume, &b->name_length);
    bool moved = step == STEP_MOVED;
    if (step == STEP_IRREGULAR) {
        moved = __parse_json(b->json, in_array ? NEXT_ARRAY_ITEM : NEXT_ELEMENT) == 0;
        b->name_length = strlen(b->json->c_element_name);
    }
    b->resume = b->json->cursor;
    return moved;
}

// Leave the open container, which has no more children; false if it did not end properly.
static bool leave(builder *b, bool in_array) {
    if (b->json->error != (in_array ? VXLB_JSON_ARRAY_ENDED : VXLB_JSON_OBJECT_ENDED)) {
        return false;
    }
    if (!step_out(b->json, in_array ? ']' : '}') &&
        __parse_json(b->json, in_array ? CLOSE_ARRAY : CLOSE_OBJ) == -1) {
        return false;
    }
    b->previous = b->container;
    b->container = node_at(b->bbm, b->container)->parent;
    b->resume = b->json->cursor;
    return true;
}

// Read the scalar, or enter the container, that a new node stands for.
static bool begin_node(builder *b, uint64_t node, bool in_array) {
    const unsigned char type = b->json->c_element_type;
    switch (type) {
    case VXLB_JSON_OBJECT:
    case VXLB_JSON_ARRAY:
        return enter(b, node, type);
    case VXLB_JSON_STRING:
    case VXLB_JSON_LITERAL:
        return read_value(b, node, in_array);
    default:
        return false;
    }
}

uint32_t __jsont_traverse(vxlb_json_t *json, uint64_t parent, BBM *bbm, char parent_type) {
    builder b = {json, bbm, parent, 0, strlen(json->c_element_name), json->cursor};
    const uint64_t top = place_node(json, b.name_length, bbm, parent);
    if (top == 0 || !begin_node(&b, top, parent_type == VXLB_JSON_ARRAY)) {
        return 0;
    }
    while (b.container != parent) { // until the top node, if it is a container, has been left
        const bool in_array = node_at(bbm, b.container)->type == VXLB_JSON_ARRAY;
        if (!advance(&b, in_array)) {
            if (!leave(&b, in_array)) {
                return 0;
            }
            continue;
        }
        const uint64_t child = place_node(json, b.name_length, bbm, b.container);
        if (child == 0) {
            return 0;
        }
        link_child(bbm, b.container, b.previous, child);
        b.previous = child;
        if (!begin_node(&b, child, in_array)) {
            return 0;
        }
    }
    return static_cast<uint32_t>(top);
}

// ---- Pointers ----

enum { NODE_LINKS = offsetof(vxlb_jsont, parent) };

static void set_pointers(const BBM *bbm, vxlb_jsont *node) {
    const auto *links = reinterpret_cast<const growing_node *>(node);
    const auto pointer = [bbm](uintptr_t offset) {
        return offset == 0 ? nullptr : bbm->mem + offset;
    };
    node->parent = reinterpret_cast<vxlb_jsont *>(pointer(links->parent));
    node->children = reinterpret_cast<vxlb_jsont *>(pointer(links->children));
    node->next_sib = reinterpret_cast<vxlb_jsont *>(pointer(links->next_sib));
    node->value = pointer(links->value);
    TRACE(VXLB_LEVEL_4,
          "json name - %s, type - %d, parent - %p, children - %p, numChild - %d, nextSib - %p",
          node->name, node->type, static_cast<void *>(node->parent),
          static_cast<void *>(node->children), node->numChild, static_cast<void *>(node->next_sib));
}

void __jsont_set_bbm_idx_to_ptr(BBM *bbm, vxlb_jsont *jsont) {
    vxlb_jsont *node = jsont;
    for (;;) {
        // Nodes lie in the order in which they are met, so that their links can be fetched ahead.
        __builtin_prefetch(reinterpret_cast<const char *>(node + 8) + NODE_LINKS, 1);
        __builtin_prefetch(reinterpret_cast<const char *>(node + 9) - 1, 1);
        set_pointers(bbm, node);
        if (node->children != nullptr) {
            node = node->children;
            continue;
        }
        while (node != jsont && node->next_sib == nullptr) {
            node = node->parent;
        }
        if (node == jsont) {
            return;
        }
        node = node->next_sib;
    }
}

// ---- The whole tree ----

// Plain free, not VXLB_FREE: the allocation map keeps its record of a tree's control record.
static void free_block(BBM *bbm) {
    free(bbm->mem);
    free(bbm);
}

vxlb_jsont *vxlb_json_to_jsont(vxlb_json_t *json) {
    if (json == nullptr) {
        return nullptr;
    }
    BBM *bbm = nullptr;
    VXLB_MALLOC(bbm, sizeof *bbm, "bbm");
    *bbm = {};
    const uint32_t top = __jsont_traverse(json, 0, bbm, -1);
    if (top == 0) {
        free_block(bbm);
        return nullptr;
    }
    auto *jsont = reinterpret_cast<vxlb_jsont *>(bbm->mem + top);
    __jsont_set_bbm_idx_to_ptr(bbm, jsont);
    return jsont;
}

void vxlb_jsont_free(vxlb_jsont *jsont) {
    if (jsont->bbm != nullptr) {
        free_block(jsont->bbm);
    }
}
