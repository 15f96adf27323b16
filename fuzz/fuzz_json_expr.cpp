// SPDX-License-Identifier: Apache-2.0
// Both evaluators of path expressions and the compiler beside a plain reading of the path and a recursive
// walk over the tree.
//
//     length of the expression (2) | expression | document

#include "fuzz.h"
#include "json_handle.h"

#include <climits>
#include <vector>

namespace {

constexpr int MOST_VALUES = 5000;

enum { NO_CONDITION, BY_INDEX, BY_MEMBER };

struct Segment {
    std::string_view name, selector; // before "[" and behind it
    bool has_selector;
};

// What a segment asks of the items of an array.
struct Condition {
    int kind = NO_CONDITION, index = 0;
    std::string_view member, value;
};

using Path = std::vector<Segment>;

// The pieces between dots; empty ones don't count.
Path read_path(std::string_view text, size_t most) {
    Path path;
    while (!text.empty() && path.size() < most) {
        const size_t end = std::min(text.find('.'), text.size());
        const std::string_view piece = text.substr(0, end);
        const size_t bracket = std::min(piece.find('['), piece.size());
        const bool has_selector = bracket < piece.size();
        if (!piece.empty()) {
            path.push_back({piece.substr(0, bracket),
                            piece.substr(has_selector ? bracket + 1 : bracket), has_selector});
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return path;
}

// As atoi reads it, held to the range of an int.
int read_number(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    const bool is_negative = text.starts_with('-');
    text.remove_prefix(is_negative || text.starts_with('+') ? 1 : 0);
    int64_t number = 0;
    for (size_t i = 0; i < text.size() && text[i] >= '0' && text[i] <= '9'; i++) {
        number = std::min<int64_t>(number * 10 + (text[i] - '0'), int64_t{INT_MAX} + 1);
    }
    return static_cast<int>(is_negative ? -number : std::min<int64_t>(number, INT_MAX));
}

Condition read_condition(const Segment &segment) {
    const size_t end = segment.selector.find(']');
    if (!segment.has_selector || end == std::string_view::npos) {
        return {};
    }
    const std::string_view selector = segment.selector.substr(0, end);
    if (selector.find_first_not_of("0123456789") == std::string_view::npos) {
        return {BY_INDEX, read_number(selector), {}, {}};
    }
    const size_t equals = selector.find('=');
    if (equals == std::string_view::npos) {
        return {};
    }
    return {BY_MEMBER, 0, selector.substr(0, equals).substr(0, 255),
            selector.substr(equals + 1).substr(0, 1023)};
}

const vxlb_jsont *step_into(const vxlb_jsont *array, const Segment &segment, bool is_last) {
    const int index = segment.has_selector ? read_number(segment.selector) : -1;
    if (index == -1) {
        return is_last ? array : nullptr;
    }
    if (index >= array->numChild) {
        return nullptr;
    }
    const vxlb_jsont *item = array->children;
    for (int i = 0; i < index; i++) {
        item = item->next_sib;
    }
    return item;
}

// The first of a node's children, of so many at most, that has a name.
const vxlb_jsont *child_named(const vxlb_jsont *node, std::string_view name, int most = INT_MAX) {
    const vxlb_jsont *child = node->children;
    while (most > 0 && child != nullptr && name != child->name) {
        child = child->next_sib;
        most--;
    }
    return most > 0 ? child : nullptr;
}

// Where the node walk ends.
const vxlb_jsont *walk(const vxlb_jsont *node, const Path &path) {
    for (size_t i = 0; i < path.size() && node != nullptr; i++) {
        const bool is_last = i + 1 == path.size();
        if (node->type == VXLB_JSON_ARRAY) {
            node = step_into(node, path[i], is_last);
        }
        if (is_last || node == nullptr) {
            return node;
        }
        node = child_named(node, path[i + 1].name, node->numChild);
    }
    return nullptr;
}

bool has_member(const vxlb_jsont *object, const Condition &wanted) {
    for (const vxlb_jsont *child = object->children; child != nullptr; child = child->next_sib) {
        if (child->type >= VXLB_JSON_STRING && wanted.member == child->name &&
            wanted.value == child->value) {
            return true;
        }
    }
    return false;
}

// The values that a path leads to; `at`: the node's own segment.
void collect(const vxlb_jsont *node, const Path &path, size_t at, std::vector<char *> &values) {
    const bool is_last = at + 1 == path.size();
    if (node->type == VXLB_JSON_OBJECT) {
        const vxlb_jsont *child =
            is_last ? nullptr : child_named(node, path[at + 1].name.substr(0, 255));
        return child == nullptr ? void() : collect(child, path, at + 1, values);
    }
    if (node->type != VXLB_JSON_ARRAY) {
        if (is_last) {
            values.push_back(+node->value);
        }
        return;
    }
    const Condition wanted = read_condition(path[at]);
    int position = 0;
    for (const vxlb_jsont *item = node->children; item != nullptr; item = item->next_sib) {
        if (wanted.kind == NO_CONDITION ||
            (wanted.kind == BY_INDEX && position++ == wanted.index) ||
            (wanted.kind == BY_MEMBER && item->type == VXLB_JSON_OBJECT &&
             has_member(item, wanted))) {
            collect(item, path, at, values);
        }
    }
}

void check_compiled(const json_expr_cond *records, const Path &path) {
    for (const Segment &segment : path) {
        const Condition wanted = read_condition(segment);
        check(segment.name.substr(0, 255) == records->nodename);
        check(records->con_type == wanted.kind && records->cidx == wanted.index);
        check(wanted.member == records->cname && wanted.value == records->cvalue);
        records++;
    }
}

void check_collection(vxlb_jsont *tree, std::string_view expr) {
    static char *values[MOST_VALUES];
    const Path path = read_path(expr, 256);
    const auto count = static_cast<int>(path.size());
    std::vector<char *> expected;
    if (count > 0) {
        collect(tree, path, 0, expected);
    }
    json_expr_cond *records = nullptr;
    check(vxlb_str_to_expr_cond(Pieces::copy(expr), &records) == count);
    check((records != nullptr) == (count > 0));
    check_compiled(records, path);
    const int found = static_cast<int>(expected.size());
    const int total = vxlb_jsont_eval_expr_str(tree, Pieces::copy(expr), values, MOST_VALUES);
    check(total == (expr.size() < 4096 ? std::min(MOST_VALUES, found) : -1));
    check(total < 1 || std::equal(values, values + total, expected.begin()));
    for (int most = 0; most < 2 && count > 0; most++) {
        check(vxlb_jsont_eval_json_expr(tree, records, count, values, most) ==
              std::min(most, found));
        check(found < most || std::equal(values, values + most, expected.begin()));
    }
    free(records);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces::forget();
    static JsonHandle handle;
    Input in = {data, size};
    const unsigned low = in.byte();
    const unsigned length = low + 256 * in.byte();
    const std::string_view expr = until_zero(in.text(length));
    vxlb_jsont *tree = vxlb_json_to_jsont(handle.start(in.rest(), 300, 0));
    if (tree != nullptr) {
        check(vxlb_jsont_eval_expr(tree, Pieces::copy(expr)) ==
              walk(tree, read_path(expr.substr(0, 2047), 64)));
        check_collection(tree, expr);
        vxlb_jsont_free(tree);
    }
    return 0;
}
