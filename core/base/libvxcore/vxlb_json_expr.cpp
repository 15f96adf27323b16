// SPDX-License-Identifier: Apache-2.0
//
// Path expressions over a finished tree.
//
// The node walk splits its expression, unless it is the one it has split last, and follows one path. The
// collection works on compiled records and fans out over arrays; it goes through the tree depth first
// without recursing, and finds its way back by the parent links.

#include <libvxcore/vxlb_json_parser.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_util.h>

#include "vxlb_json_internal.h"

enum {
    WALK_EXPR_SIZE = 2048,
    WALK_SEGMENTS = 64,
    KEPT_PATH_SIZE = 256,
    EXPR_SIZE = 4096,
    EXPR_SEGMENTS = 256,
    NO_INDEX = -1
};

enum condition { NO_CONDITION, BY_INDEX, BY_MEMBER };

// Leading decimal number of a text, held to the range of an int; 0 if there is none.
static int leading_int(const char *text) {
    const long number = strtol(text, nullptr, 10);
    if (number > INT_MAX) {
        return INT_MAX;
    }
    return number < INT_MIN ? INT_MIN : static_cast<int>(number);
}

// ---- Node walk ----

// A segment of a path: its name in the path's text, and the index behind it or NO_INDEX. The name's first
// bytes, with the zero byte behind a short one, stand in a word: most names are told apart by that alone.
struct path_segment {
    const char *name;
    uint32_t length;
    int32_t index;
    uint64_t first;
    uint64_t mask; // all ones in the bytes that count
};

struct path {
    int count;
    path_segment segments[WALK_SEGMENTS];
};

// The path that this thread followed last: programs ask many trees for the same one.
static __thread struct {
    path split;
    char text[KEPT_PATH_SIZE];
} last_path;

static path_segment segment_of(const char *name, size_t length, int index) {
    path_segment s = {name, static_cast<uint32_t>(length), index, 0, 0};
    memcpy(&s.first, name, length < sizeof s.first ? length : sizeof s.first);
    memset(&s.mask, 0xff, length < sizeof s.mask ? length + 1 : sizeof s.mask);
    return s;
}

// Split the text of a path, which has less than WALK_EXPR_SIZE bytes.
static void split_path(const char *text, path *split) {
    split->count = 0;
    const char *p = text + strspn(text, ".");
    while (*p != '\0' && split->count < WALK_SEGMENTS) {
        const size_t length = strcspn(p, ".[");
        const int index = p[length] == '[' ? leading_int(p + length + 1) : NO_INDEX;
        split->segments[split->count++] = segment_of(p, length, index);
        p += strcspn(p, ".");
        p += strspn(p, ".");
    }
}

// Item of an array; a negative index stands for the first one.
static vxlb_jsont *item_at(vxlb_jsont *array, int index) {
    if (index >= array->numChild) {
        return nullptr;
    }
    vxlb_jsont *item = array->children;
    for (int i = 0; i < index; i++) {
        item = item->next_sib;
    }
    return item;
}

static inline bool is_named(const vxlb_jsont *node, const path_segment *s) {
    uint64_t first;
    memcpy(&first, node->name, sizeof first);
    if ((first & s->mask) != s->first) {
        return false;
    }
    if (s->length < sizeof first) {
        return true;
    }
    if (s->length >= sizeof node->name || node->name[s->length] != '\0') {
        return false;
    }
    size_t at = sizeof first;
    while (at < s->length && node->name[at] == s->name[at]) {
        at++;
    }
    return at == s->length;
}

static inline vxlb_jsont *counted_child(const vxlb_jsont *node, const path_segment *s) {
    vxlb_jsont *child = node->children;
    for (int i = node->numChild; i > 0; i--) {
        if (is_named(child, s)) {
            return child;
        }
        child = child->next_sib;
    }
    return nullptr;
}

// The first segment stands for the start node, whatever its name. Without an index a path may end on an
// array, but not pass through it. This calls nothing, so that it needs to save nothing.
static __attribute__((noinline)) vxlb_jsont *follow(vxlb_jsont *node, const path *split) {
    if (split->count == 0) {
        return nullptr;
    }
    const path_segment *s = split->segments;
    for (const path_segment *last = s + split->count - 1; s != last; s++) {
        if (node->type == VXLB_JSON_ARRAY) {
            node = s->index == NO_INDEX ? nullptr : item_at(node, s->index);
            if (node == nullptr) {
                return nullptr;
            }
        }
        node = counted_child(node, s + 1);
        if (node == nullptr) {
            return nullptr;
        }
    }
    const bool selects = node->type == VXLB_JSON_ARRAY && s->index != NO_INDEX;
    return selects ? item_at(node, s->index) : node;
}

// Only the first bytes of a very long path count.
static __attribute__((noinline)) vxlb_jsont *follow_long(vxlb_jsont *node, const char *expr) {
    char text[WALK_EXPR_SIZE];
    const size_t length = strnlen(expr, WALK_EXPR_SIZE - 1);
    memcpy(text, expr, length);
    text[length] = '\0';
    path split;
    split_path(text, &split);
    return follow(node, &split);
}

static __attribute__((noinline)) vxlb_jsont *follow_new(vxlb_jsont *node, const char *expr) {
    const size_t length = strnlen(expr, KEPT_PATH_SIZE);
    if (length == KEPT_PATH_SIZE) {
        return follow_long(node, expr);
    }
    memcpy(last_path.text, expr, length + 1);
    split_path(last_path.text, &last_path.split);
    return follow(node, &last_path.split);
}

vxlb_jsont *vxlb_jsont_eval_expr(vxlb_jsont *jsont, const char *expr) {
    return strcmp(expr, last_path.text) == 0 ? follow(jsont, &last_path.split)
                                             : follow_new(jsont, expr);
}

// ---- Compiling ----

static void copy_text(char *to, size_t size, const char *from) {
    const size_t length = strnlen(from, size - 1);
    memcpy(to, from, length);
    to[length] = '\0';
}

static bool has_only_digits(const char *text) {
    return text[strspn(text, "0123456789")] == '\0';
}

// A selector is the text between "[" and "]". One that is neither index nor comparison is no condition.
static void compile_selector(char *selector, json_expr_cond *cond) {
    char *end = strchr(selector, ']');
    if (end == nullptr) {
        return;
    }
    *end = '\0';
    if (has_only_digits(selector)) {
        cond->con_type = BY_INDEX;
        cond->cidx = leading_int(selector);
        return;
    }
    char *equals = strchr(selector, '=');
    if (equals != nullptr) {
        *equals = '\0';
        cond->con_type = BY_MEMBER;
        copy_text(cond->cname, sizeof cond->cname, selector);
        copy_text(cond->cvalue, sizeof cond->cvalue, equals + 1);
    }
}

static void compile_segment(char *segment, json_expr_cond *cond) {
    char *bracket = strchr(segment, '[');
    if (bracket != nullptr) {
        *bracket = '\0';
    }
    copy_text(cond->nodename, sizeof cond->nodename, segment);
    if (bracket != nullptr) {
        compile_selector(bracket + 1, cond);
    }
}

int vxlb_str_to_expr_cond(char *expr, json_expr_cond **json_expr_condition) {
    char *segments[EXPR_SEGMENTS];
    const int count = get_tokens(expr, segments, ".", EXPR_SEGMENTS);
    const size_t size = static_cast<size_t>(count) * sizeof(json_expr_cond);
    json_expr_cond *expr_cond = nullptr;
    VXLB_MALLOC(expr_cond, size, "expr_cond");
    *json_expr_condition = expr_cond;
    if (expr_cond == nullptr) { // no segments
        return 0;
    }
    memset(expr_cond, 0, size);
    for (int i = 0; i < count; i++) {
        compile_segment(segments[i], &expr_cond[i]);
    }
    return count;
}

// ---- Value collection ----

static vxlb_jsont *child_named(vxlb_jsont *node, const char *name) {
    vxlb_jsont *child = node->children;
    while (child != nullptr && strcmp(child->name, name) != 0) {
        child = child->next_sib;
    }
    return child;
}

static bool is_scalar(const vxlb_jsont *node) {
    return node->type == VXLB_JSON_STRING || node->type == VXLB_JSON_LITERAL;
}

// Whether an item is an object with a scalar member of the condition's name and value.
static bool has_member(const vxlb_jsont *item, const json_expr_cond *cond) {
    if (item->type != VXLB_JSON_OBJECT) {
        return false;
    }
    for (const vxlb_jsont *child = item->children; child != nullptr; child = child->next_sib) {
        if (is_scalar(child) && child->value != nullptr && strcmp(child->name, cond->cname) == 0 &&
            strcmp(child->value, cond->cvalue) == 0) {
            return true;
        }
    }
    return false;
}

// The first of these items that a condition lets through.
static vxlb_jsont *matching_item(vxlb_jsont *item, const json_expr_cond *cond) {
    while (item != nullptr && cond->con_type == BY_MEMBER && !has_member(item, cond)) {
        item = item->next_sib;
    }
    return item;
}

// Item of an index in the chain, which may be longer than numChild says.
static vxlb_jsont *chained_item(vxlb_jsont *array, int index) {
    vxlb_jsont *item = index < 0 ? nullptr : array->children;
    for (int i = 0; item != nullptr && i < index; i++) {
        item = item->next_sib;
    }
    return item;
}

// Where a collection stands.
struct collection {
    vxlb_jsont *node;
    json_expr_cond *cond; // the node's own record
    int num_cond;         // records from there on
};

// Go down to the first node that the current one leads to; false if it leads to none.
static bool descend(collection *c) {
    vxlb_jsont *next = nullptr;
    if (c->node->type == VXLB_JSON_OBJECT && c->num_cond > 1) {
        next = child_named(c->node, c->cond[1].nodename);
        if (next != nullptr) {
            c->cond++;
            c->num_cond--;
        }
    } else if (c->node->type == VXLB_JSON_ARRAY && c->num_cond != 0) {
        next = c->cond->con_type == BY_INDEX ? chained_item(c->node, c->cond->cidx)
                                             : matching_item(c->node->children, c->cond);
    }
    if (next == nullptr) {
        return false;
    }
    c->node = next;
    return true;
}

// Go on to the next item of the nearest array above that fans out; false if there is none below `start`.
static bool go_on(collection *c, const vxlb_jsont *start) {
    while (c->node != start) {
        vxlb_jsont *parent = c->node->parent;
        if (parent->type == VXLB_JSON_OBJECT) { // one member only is followed
            c->cond--;
            c->num_cond++;
        } else if (c->cond->con_type != BY_INDEX) {
            vxlb_jsont *next = matching_item(c->node->next_sib, c->cond);
            if (next != nullptr) {
                c->node = next;
                return true;
            }
        }
        c->node = parent;
    }
    return false;
}

void __jsont_eval(vxlb_jsont *jsont, json_expr_cond *expr_cond, int num_cond, char **values,
                  int max_value, int *tot_values) {
    collection c = {jsont, expr_cond, num_cond};
    while (*tot_values < max_value) {
        if (descend(&c)) {
            continue;
        }
        if (is_scalar(c.node) && c.num_cond == 1 && c.node->value != nullptr) {
            values[(*tot_values)++] = c.node->value;
        }
        if (!go_on(&c, jsont)) {
            return;
        }
    }
}

int vxlb_jsont_eval_json_expr(vxlb_jsont *jsont, json_expr_cond *expr_cond, int num_cond,
                              char **values, int max_value) {
    if (jsont == nullptr || expr_cond == nullptr || values == nullptr) {
        return -1;
    }
    if (num_cond < 1) {
        return 0;
    }
    int total = 0;
    __jsont_eval(jsont, expr_cond, num_cond, values, max_value, &total);
    return total;
}

int vxlb_jsont_eval_expr_str(vxlb_jsont *jsont, const char *expr, char **values, int max_value) {
    if (jsont == nullptr || expr == nullptr || values == nullptr) {
        return -1;
    }
    char text[EXPR_SIZE];
    const size_t length = strnlen(expr, sizeof text);
    if (length == sizeof text) {
        return -1;
    }
    memcpy(text, expr, length + 1);
    json_expr_cond *expr_cond = nullptr;
    const int count = vxlb_str_to_expr_cond(text, &expr_cond);
    if (count == 0) {
        return 0;
    }
    const int total = vxlb_jsont_eval_json_expr(jsont, expr_cond, count, values, max_value);
    free(expr_cond); // plain: the allocation map keeps its record, as its readers know
    return total;
}
