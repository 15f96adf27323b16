// SPDX-License-Identifier: Apache-2.0
//
// The tree: built from a parser's moves into one growable block.
//
//     mem -> . [root][a]"1\0"[b][c]"text\0"        records packed, each value behind its record
//            0 1
//
// Byte 0 is never used. While the tree grows, its block may move. So links are byte offsets (0: none) until
// a last pass turns them into pointers; or, since that pass over every record costs as much as a third of the
// building, they are pointers at once, and are moved along in the rare case that the block moves.
// Nothing recurses: an open container is left through its own parent link, so that any depth of nesting
// costs no stack.

#include <libvxcore/vxlb_json_parser.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_log.h>

#include "vxlb_json_internal.h"
#include "vxlb_json_step.h"

// Bytes that a block may use: offsets are handed on as 32-bit numbers. A smaller limit lets a test reach it.
#ifndef VXLB_JSONT_BLOCK_LIMIT
#    define VXLB_JSONT_BLOCK_LIMIT (UINT64_C(1) << 32)
#endif

enum : uint64_t {
    BLOCK_HEADROOM = 32768,
    BLOCK_LARGE = 1 << 20,
    BLOCK_MAPPED = 256 << 10, // malloc maps such a block, unless it has learnt from a larger one
    BLOCK_HUGE = 8 << 20,     // and large pages are worth their while
    PAGE = 4096,
    TREE_BYTES_PER_BYTE = 20 // a generous guess of what one byte of text takes in the block
};

// A node while the tree is being built: the same record, its links as numbers.
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

// The builder's place in the document and in the block.
struct builder {
    vxlb_json_t *json;
    BBM *bbm;
    bool links_are_pointers; // else they are offsets in the block
    bool takes_whole;        // the tree is that of the whole document
    uint64_t container;      // innermost open container, as an offset
    uint64_t previous;       // the last child placed in it, 0 for none
    bool in_array;           // the open container is one
    const char *at;     // where the next step may begin: the cursor, or behind the member just read
    size_t name_length; // of the current name
};

static growing_node *node_at(const BBM *bbm, uint64_t offset) {
    return reinterpret_cast<growing_node *>(bbm->mem + offset);
}

// ---- Block ----

// The link that stands for an offset.
static uintptr_t link_to(const builder *b, uint64_t offset) {
    return b->links_are_pointers ? reinterpret_cast<uintptr_t>(b->bbm->mem) + offset : offset;
}

// The block has moved, and pointers into it with it.
static void move_links(const BBM *bbm, intptr_t distance) {
    const auto moved = [distance](uintptr_t link) {
        return link == 0 ? 0 : static_cast<uintptr_t>(static_cast<intptr_t>(link) + distance);
    };
    for (uint64_t offset = 1; offset < bbm->offset;) {
        growing_node *node = node_at(bbm, offset);
        node->parent = moved(node->parent);
        node->children = moved(node->children);
        node->next_sib = moved(node->next_sib);
        node->value = moved(node->value);
        offset += sizeof *node;
        if (node->value != 0) {
            offset += static_cast<uint64_t>(node->value_len) + 1;
        }
    }
}

// Bytes to have when `least` are needed. The first block is sized by the document's length: a small one
// then takes a block that the allocator maps, learns from and keeps at hand from the next time on,
// where many small steps would have it give memory back and fault it in again for every document. A large
// block grows to what the part of the document read so far lets expect, within bounds. Memory that is
// asked for too much is never touched.
static uint64_t size_to_have(const builder *b, uint64_t least) {
    const uint64_t length =
        b->takes_whole ? std::min(static_cast<uint64_t>(b->json->f_size), VXLB_JSONT_BLOCK_LIMIT)
                       : 0;
    if (b->bbm->max == 0) {
        const uint64_t guess = std::min<uint64_t>(length * TREE_BYTES_PER_BYTE, BLOCK_LARGE);
        return guess > least ? std::max<uint64_t>(guess, BLOCK_MAPPED) : least;
    }
    if (least <= BLOCK_LARGE) {
        return least;
    }
    const uint64_t done = static_cast<uint64_t>(json_position(b->json, b->json->cursor)) + 1;
    const uint64_t expected = least / done * length;
    return std::clamp(expected + expected / 16, least + least / 2, least * 64);
}

// A block of this size is a mapping of its own, at least the first time, of pages that nobody has touched:
// have them by the large page where the system has such. All of the mapping is named, its first page
// too, since one that is of two kinds can't be resized.
static void use_large_pages(const BBM *bbm) {
    const auto mem = reinterpret_cast<uintptr_t>(bbm->mem);
    const size_t before = mem % PAGE;
    madvise(bbm->mem - before, before + bbm->max, MADV_HUGEPAGE);
}

static void grow_block(builder *b, uint64_t used) {
    BBM *bbm = b->bbm;
    const uint64_t least = used + BLOCK_HEADROOM;
    const auto before = reinterpret_cast<intptr_t>(bbm->mem);
    uint64_t size = size_to_have(b, least);
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
    if (size >= BLOCK_HUGE) {
        use_large_pages(bbm);
    }
    const intptr_t distance = reinterpret_cast<intptr_t>(mem) - before;
    if (b->links_are_pointers && distance != 0) {
        move_links(bbm, distance);
    }
}

// Take `size` bytes; their offset, or 0 if the block would get too large.
static uint64_t take_bytes(builder *b, uint64_t size) {
    BBM *bbm = b->bbm;
    const uint64_t used = bbm->offset + size;
    if (used > VXLB_JSONT_BLOCK_LIMIT) {
        return 0;
    }
    if (__builtin_expect(used >= bbm->max, 0)) {
        grow_block(b, used);
        if (bbm->offset == 0) {
            bbm->offset = 1;
        }
    }
    const uint64_t offset = bbm->offset;
    bbm->offset += size;
    return offset;
}

// ---- Records ----

static void clear64(char *to) {
    store16(to, byte16{});
    store16(to + 16, byte16{});
    store16(to + 32, byte16{});
    store16(to + 48, byte16{});
}

// Copy the parser's current name. All bytes are written: the ones behind the text are zero. No loop and no
// memset here: compilers make a string instruction of both, which takes longer than these stores.
static void set_name(char *to, const char *name, size_t length) {
    static_assert(VXLB_JSONT_NAME_SIZE == 4 * 64);
    clear64(to);
    clear64(to + 64);
    clear64(to + 128);
    clear64(to + 192);
    if (length <= 32) {
        store16(to, load16(name) & lanes_before(length, 0));
        store16(to + 16, load16(name + 16) & lanes_before(length, 16));
    } else {
        memcpy(to, name, std::min<size_t>(length, VXLB_JSONT_NAME_SIZE - 1));
    }
}

// Nodes are written in the order of their addresses: have the lines of a later one at hand. A fetch
// beyond the block is harmless.
static void fetch_ahead(const growing_node *node) {
    const char *later = reinterpret_cast<const char *>(node) + 1024;
    for (size_t line = 0; line < sizeof *node; line += 64) {
        __builtin_prefetch(later + line, 1);
    }
}

// Place a record for the parser's current element; its offset, or 0.
static uint64_t place_node(builder *b, int type) {
    const uint64_t offset = take_bytes(b, sizeof(vxlb_jsont));
    if (offset == 0) {
        return 0;
    }
    growing_node *node = node_at(b->bbm, offset);
    fetch_ahead(node);
    set_name(node->name, b->json->c_element_name, b->name_length);
    if (b->container == 0 && b->name_length == 0) {
        memcpy(node->name, "root", 4);
    }
    node->type = static_cast<int16_t>(type);
    node->parent = b->container == 0 ? 0 : link_to(b, b->container);
    node->num_child = 0;
    node->children = 0;
    node->next_sib = 0;
    node->value = 0;
    node->value_len = 0;
    node->bbm = b->bbm;
    node->future1 = 0;
    return offset;
}

static void link_child(builder *b, uint64_t child) {
    growing_node *node = node_at(b->bbm, b->container);
    if (b->previous == 0) {
        node->children = link_to(b, child);
    } else {
        node_at(b->bbm, b->previous)->next_sib = link_to(b, child);
    }
    if (node->num_child < INT16_MAX) {
        node->num_child++;
    }
    b->previous = child;
}

// Give a node its value text of `length` bytes, not yet filled; null if the block would get too large.
static char *place_text(builder *b, uint64_t node, int length) {
    const uint64_t offset = take_bytes(b, static_cast<uint64_t>(length) + 1);
    if (offset == 0) {
        return nullptr;
    }
    node_at(b->bbm, node)->value = link_to(b, offset);
    node_at(b->bbm, node)->value_len = length;
    b->bbm->mem[offset + static_cast<uint64_t>(length)] = '\0';
    return b->bbm->mem + offset;
}

// ---- Building ----

static int move_irregularly(builder *b, unsigned char operation) {
    const int result = __parse_json(b->json, operation);
    b->name_length = strlen(b->json->c_element_name);
    b->at = b->json->buffer + b->json->cursor;
    return result;
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
static bool extract_value(builder *b, uint64_t node) {
    int length = 0;
    const char *value = vxlb_json_element_value_ex(b->json, &length, 0, 1, b->in_array ? 0 : 1);
    char *text = value == nullptr ? nullptr : place_text(b, node, length);
    if (text == nullptr) {
        return false;
    }
    memcpy(text, value, static_cast<size_t>(length));
    b->at = b->json->buffer + b->json->cursor;
    return true;
}

// Whether 32 bytes may be read from a text in the window, and written to where it goes.
static bool has_room(const builder *b, const char *from) {
    return window_end(b->json) - from >= 32 && b->bbm->max - b->bbm->offset >= 32;
}

static bool read_value(builder *b, uint64_t node, int type) {
    json_value_span span;
    if (!span_value(b->json, type, &span)) {
        return extract_value(b, node);
    }
    const int length = span.length - span.escapes;
    char *text = place_text(b, node, length);
    if (text == nullptr) {
        return extract_value(b, node); // fails too, and leaves the handle as it should
    }
    if (span.escapes != 0) {
        copy_decoded(text, &span);
    } else if (length <= 32 && has_room(b, span.text)) {
        store16(text, load16(span.text)); // short texts, in line: what is too much is written over
        store16(text + 16, load16(span.text + 16));
        text[length] = '\0';
    } else {
        memcpy(text, span.text, static_cast<size_t>(length));
    }
    b->at = span.behind;
    if (b->in_array) {
        b->json->cursor = static_cast<int32_t>(span.behind - b->json->buffer);
    }
    return true;
}

static bool enter(builder *b, uint64_t node, int type) {
    if (!step_into(b->json, type) &&
        move_irregularly(b, type == VXLB_JSON_OBJECT ? OPEN_OBJ : OPEN_ARRAY) == -1) {
        return false;
    }
    b->container = node;
    b->previous = 0;
    b->in_array = type == VXLB_JSON_ARRAY;
    b->at = b->json->buffer + b->json->cursor;
    return true;
}

// Step onto the next child of the open container; its type, or STEP_ENDED at the end of the container and
// when the move fails.
static int advance(builder *b) {
    const int type =
        b->in_array ? step_item(b->json, b->at) : step_member(b->json, b->at, &b->name_length);
    if (type != STEP_IRREGULAR) {
        return type;
    }
    if (move_irregularly(b, b->in_array ? NEXT_ARRAY_ITEM : NEXT_ELEMENT) == -1) {
        return STEP_ENDED;
    }
    return b->json->c_element_type;
}

// Leave the open container, which has no more children; false if it did not end properly.
static bool leave(builder *b) {
    if (b->json->error != (b->in_array ? VXLB_JSON_ARRAY_ENDED : VXLB_JSON_OBJECT_ENDED)) {
        return false;
    }
    if (!step_out(b->json, b->in_array ? ']' : '}') &&
        move_irregularly(b, b->in_array ? CLOSE_ARRAY : CLOSE_OBJ) == -1) {
        return false;
    }
    b->previous = b->container;
    const uintptr_t parent = node_at(b->bbm, b->container)->parent;
    b->container = parent == 0 ? 0 : parent - link_to(b, 0);
    b->in_array = b->container != 0 && node_at(b->bbm, b->container)->type == VXLB_JSON_ARRAY;
    b->at = b->json->buffer + b->json->cursor;
    return true;
}

// Read the scalar, or enter the container, that a new node stands for.
static bool begin_node(builder *b, uint64_t node, int type) {
    switch (type) {
    case VXLB_JSON_OBJECT:
    case VXLB_JSON_ARRAY:
        return enter(b, node, type);
    case VXLB_JSON_STRING:
    case VXLB_JSON_LITERAL:
        return read_value(b, node, type);
    default:
        return false;
    }
}

// Place and fill the children of the open container and of all below it, until `outside` is open again.
static bool build_children(builder *b, uint64_t outside) {
    while (b->container != outside) {
        const int type = advance(b);
        if (type < 0) {
            if (!leave(b)) {
                return false;
            }
            continue;
        }
        const uint64_t child = place_node(b, type);
        if (child == 0) {
            return false;
        }
        link_child(b, child);
        if (!begin_node(b, child, type)) {
            return false;
        }
    }
    return true;
}

static uint32_t build(vxlb_json_t *json, uint64_t parent, BBM *bbm, bool in_array,
                      bool links_are_pointers) {
    builder b = {json,
                 bbm,
                 links_are_pointers,
                 json->depth == 0,
                 parent,
                 0,
                 in_array,
                 json->buffer + json->cursor,
                 strlen(json->c_element_name)};
    // The parser's value for "no element" is 255 and becomes -1.
    // NOLINTNEXTLINE(bugprone-signed-char-misuse): the sign is meant
    const int type = static_cast<signed char>(json->c_element_type);
    const uint64_t top = place_node(&b, type);
    const bool built = top != 0 && begin_node(&b, top, type) && build_children(&b, parent);
    return built ? static_cast<uint32_t>(top) : 0;
}

uint32_t __jsont_traverse(vxlb_json_t *json, uint64_t parent, BBM *bbm, char parent_type) {
    return build(json, parent, bbm, parent_type == VXLB_JSON_ARRAY, false);
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
    vxlb_debug_log_ex(
        VXLB_LEVEL_4, VXLB_MOD_MISC, __FILE__, __LINE__, "__jsont_set_bbm_idx_to_ptr",
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
    // The last pass also traces every node: it is made where somebody reads the trace.
    const bool is_traced = vxlb_debug_log_is_on(VXLB_LEVEL_4, VXLB_MOD_MISC) != 0;
    const uint32_t top = build(json, 0, bbm, false, !is_traced);
    if (top == 0) {
        free_block(bbm);
        return nullptr;
    }
    auto *jsont = reinterpret_cast<vxlb_jsont *>(bbm->mem + top);
    if (is_traced) {
        __jsont_set_bbm_idx_to_ptr(bbm, jsont);
    }
    return jsont;
}

void vxlb_jsont_free(vxlb_jsont *jsont) {
    if (jsont->bbm != nullptr) {
        free_block(jsont->bbm);
    }
}
