// SPDX-License-Identifier: Apache-2.0
#ifndef JSON_MODEL_H
#define JSON_MODEL_H

// A plain model of the parser and the tree: one byte at a time, every rule spelled out, the document
// held whole. Tests and fuzz targets drive it beside the library and compare the two after every step.

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "vxlb_json_internal.h"

// A file in memory, opened by the parser through its path.
struct MemoryFile {
    int fd = memfd_create("json", MFD_CLOEXEC);
    std::string path = "/proc/self/fd/" + std::to_string(fd);
    explicit MemoryFile(const std::string &text = "") { write(text); }
    MemoryFile(const MemoryFile &) = delete;
    ~MemoryFile() { close(fd); }
    void write(const std::string &text) const {
        const auto size = static_cast<off_t>(text.size());
        if (pwrite(fd, text.data(), text.size(), 0) != size || ftruncate(fd, size) != 0) {
            abort();
        }
    }
};

// memcmp, which the sanitizer makes slow: it looks at every byte first.
static inline bool is_same(const char *a, const char *b, size_t size) {
    for (; size >= sizeof(uint64_t); size -= sizeof(uint64_t)) {
        uint64_t words[2];
        memcpy(&words[0], a, sizeof words[0]);
        memcpy(&words[1], b, sizeof words[1]);
        if (words[0] != words[1]) {
            return false;
        }
        a += sizeof words[0];
        b += sizeof words[0];
    }
    return size == 0 || memcmp(a, b, size) == 0;
}

struct ModelNode {
    std::string name, value;
    int type = 0;
    std::vector<ModelNode> children;
};

struct JsonModel {
    std::string doc;
    std::string_view window; // the part of the document that the handle has at hand
    bool is_buffer;
    int step; // bytes of a refill
    int64_t size, offset = 0, stream = 0;
    int cursor = 0, depth = 0, max_depth;
    std::vector<int64_t> starts;
    std::vector<int> states;
    char name[512] = {};
    int type = 0, error = 0, capacity = 65536;
    bool has_strayed = false; // a string in an array has touched an edge of its window

    JsonModel(const JsonModel &) = delete;
    JsonModel(std::string text, int levels, int refill_size)
        : doc(std::move(text)), is_buffer(refill_size == 0), step(refill_size),
          size(static_cast<int64_t>(doc.size())), max_depth(levels),
          starts(static_cast<size_t>(levels)), states(static_cast<size_t>(levels)) {
        if (!is_buffer) {
            return;
        }
        window = doc;
        offset = size;
        const size_t first = doc.find_first_not_of(" \t\n");
        if (first != std::string::npos && doc[first] == '[') {
            type = states[0] = 1;
        }
    }
    int top() const { return static_cast<int>(window.size()); }
    int64_t position() const { return offset - top() + cursor; }
    int fail(int code) {
        error = code;
        return -1;
    }
    int refill() {
        const size_t left = doc.size() - std::min(doc.size(), static_cast<size_t>(stream));
        if (is_buffer || left == 0) {
            return fail(1);
        }
        window =
            std::string_view(doc).substr(static_cast<size_t>(stream), static_cast<size_t>(step));
        cursor = 0;
        stream += top();
        offset += top();
        return 0;
    }
    bool allowed(int op) const {
        if (depth < 0) {
            return false;
        }
        const int state = states[static_cast<size_t>(depth)];
        const bool answers[] = {type == 0,  state == 0, type == 1,
                                state == 1, state == 0, state == 1};
        return answers[op];
    }
    std::string_view target(int op) const {
        static constexpr const char *plain[] = {"{", "}", "[", "]", ",\"", ",{"};
        if (op == 4 && type == 255) {
            return "\"";
        }
        if (op == 5) {
            return type == 255 ? "{"
                   : type == 1 ? ",["
                   : type == 2 ? ",\""
                   : type == 3 ? ","
                               : ",{";
        }
        return plain[op];
    }
    // The target has been met at i by anything but a name.
    int arrive(int op, int i) {
        cursor = i;
        if (op == 0 || op == 2) {
            if (depth + 1 >= max_depth) {
                return fail(4);
            }
            depth++;
            cursor = i + 1;
            states[static_cast<size_t>(depth)] = op == 2;
            starts[static_cast<size_t>(depth)] = position();
            type = 255;
        } else if (op == 1 || op == 3) {
            depth--;
            cursor = i + 1;
            type = 255;
        } else if (type == 255) {
            type = 0;
        } else if (type == 3) {
            for (cursor++;; cursor++) {
                if (cursor == top() && refill() == -1) {
                    return -1;
                }
                if (!isspace(byte(cursor))) {
                    return byte(cursor) == 0 ? fail(2) : 0;
                }
            }
        }
        return 0;
    }
    int byte(int i) const { return static_cast<unsigned char>(window[static_cast<size_t>(i)]); }
    int move(int op) {
        if (!allowed(op)) {
            return fail(3);
        }
        const std::string_view wanted = target(op);
        size_t met = 0, length = 0;
        int16_t braces = 0, brackets = 0;
        bool quoted = false, escaped = false;
        int state = 0;
        while (offset <= size) {
            if (cursor == top() && refill() == -1) {
                return -1;
            }
            int i = cursor;
            for (; i < top() && byte(i) != 0; i++) {
                const int c = byte(i);
                if (state == 0) {
                    if (c == wanted[met] && braces == 0 && brackets == 0 && !quoted) {
                        met++;
                    }
                    if (met == wanted.size()) {
                        if (op != 4) {
                            return arrive(op, i);
                        }
                        state = 2;
                        escaped = false;
                        continue;
                    }
                    if (!escaped && !quoted) {
                        braces = static_cast<int16_t>(braces + (c == '{') - (c == '}'));
                        brackets = static_cast<int16_t>(brackets + (c == '[') - (c == ']'));
                    }
                    quoted ^= c == '"' && !escaped;
                    if ((braces < 0 && op == 4) || (brackets < 0 && op == 5)) {
                        cursor = i;
                        return fail(op + 1);
                    }
                    if (op == 5 && type == 255 && !isspace(c) && c != ',' && c != '{') {
                        type = c == '"' ? 2 : c == '[' ? 1 : 3;
                        cursor = i;
                        return 0;
                    }
                    escaped = c == '\\' && !escaped;
                } else if (state == 2) {
                    if (c == '"') {
                        name[length] = '\0';
                        state = 3;
                    } else if (length < 511) {
                        name[length++] = static_cast<char>(c);
                    }
                } else if (isspace(c)) {
                    continue;
                } else if (state == 3) {
                    if (c != ':') {
                        return fail(2);
                    }
                    state = 4;
                } else {
                    const bool literal = isxdigit(c) || strchr(".+-tfn", c) != nullptr;
                    type = c == '{' ? 0 : c == '[' ? 1 : c == '"' ? 2 : literal ? 3 : -type - 1;
                    if (type < 0) {
                        type = -type - 1;
                        return fail(2);
                    }
                    cursor = i;
                    return 0;
                }
            }
            cursor = i;
            if (i < top()) {
                return fail(2);
            }
        }
        return -1;
    }
    int rewind() {
        const int64_t start = starts[static_cast<size_t>(depth)];
        cursor = is_buffer ? static_cast<int>(start) : 0;
        if (!is_buffer) {
            stream = offset = start;
            window = {};
        }
        type = 255;
        return 0;
    }
    int goto_element(const std::string &wanted) {
        if (depth < 0 || states[static_cast<size_t>(depth)] != 0) {
            return fail(3);
        }
        for (rewind(); move(4) == 0;) {
            if (wanted == name) {
                return 0;
            }
        }
        error = error == 5 ? 8 : error;
        return -1;
    }
    int goto_item(int index) {
        if (index < 0) {
            return fail(9);
        }
        if (depth < 0 || (!is_buffer && states[static_cast<size_t>(depth)] != 1)) {
            return fail(3);
        }
        rewind();
        for (int i = 0; i <= index; i++) {
            if (move(5) == -1) {
                error = error == 6 ? 8 : error;
                return -1;
            }
        }
        return 0;
    }
    // Without a value when the end is not found.
    bool find_value_end() {
        int quotes = 0;
        bool behind_backslash = false;
        while (offset <= size) {
            if (cursor == top() && refill() == -1) {
                return false;
            }
            for (; cursor < top() && byte(cursor) != 0; cursor++) {
                const int c = byte(cursor);
                quotes += c == '"' && !behind_backslash;
                if (type == 2 && quotes == 2) {
                    cursor++;
                    return true;
                }
                if (type == 3 && strchr(" ,}]\t\n", c) != nullptr) {
                    return true;
                }
                behind_backslash = c == '\\';
            }
            if (cursor < top()) {
                return fail(2) == 0;
            }
        }
        return true;
    }
    static std::string decode(std::string_view raw) {
        std::string out;
        for (size_t i = 0; i < raw.size(); i++) {
            if (raw[i] != '\\') {
                out += raw[i];
            } else if (++i < raw.size()) {
                const char c = raw[i];
                out += c == 'n'    ? '\n'
                       : c == 'r'  ? '\r'
                       : c == 't'  ? '\t'
                       : c == '"'  ? '"'
                       : c == '\\' ? c
                                   : '\0';
            }
        }
        return out;
    }
    std::optional<std::string> value(bool decoded, bool reset, bool own_copy = false) {
        if (type != 2 && type != 3) {
            error = 7;
            return {};
        }
        const int64_t start = position();
        if (!find_value_end()) {
            return {};
        }
        const int64_t end = position(), text = start + (type == 2);
        const int64_t length = end - start - (type == 2 ? 2 : 0);
        if (length < 0) {
            error = 7;
            return {};
        }
        capacity = own_copy ? capacity : std::max(capacity, static_cast<int>(length));
        const bool inside = end < offset && start > offset - top();
        has_strayed |=
            !inside && type == 2 && !is_buffer && states[static_cast<size_t>(depth)] == 1;
        if (inside && reset) {
            cursor = static_cast<int>(start - (offset - top()));
        } else if (!inside && is_buffer) {
            error = 7;
            return {};
        } else if (!inside) {
            stream = offset = reset ? start : text + length;
            cursor = 0;
            window = {};
        }
        const std::string_view raw =
            std::string_view(doc).substr(static_cast<size_t>(text), static_cast<size_t>(length));
        return decoded && type == 2 ? decode(raw) : std::string(raw);
    }
    // What the tree of the current element looks like; `size` is the block's bytes so far.
    std::optional<ModelNode> tree(int parent_type, uint64_t &used) {
        ModelNode node;
        node.name.assign(name, strnlen(name, 255));
        if (node.name.empty() && used == 1) {
            node.name = "root";
        }
        node.type = type;
        used += sizeof(vxlb_jsont);
        if (type == 2 || type == 3) {
            const auto text = value(true, parent_type != 1);
            if (!text) {
                return {};
            }
            node.value = *text;
            used += node.value.size() + 1;
            return node;
        }
        if (type == 255 || move(type == 0 ? 0 : 2) == -1) {
            return {};
        }
        while (move(node.type == 0 ? 4 : 5) == 0) {
            auto child = tree(node.type, used);
            if (!child) {
                return {};
            }
            node.children.push_back(std::move(*child));
        }
        if (error != (node.type == 0 ? 5 : 6) || move(node.type == 0 ? 1 : 3) == -1) {
            return {};
        }
        return node;
    }
    // The first field in which a handle differs, or "".
    std::string difference(const vxlb_json_t *json) const {
#define COMPARE(field, ours)                                                         \
    if (json->field != (ours)) {                                                     \
        return std::string(#field " is ") + std::to_string(json->field) + ", not " + \
               std::to_string(ours);                                                 \
    }
        COMPARE(f_size, size)
        COMPARE(offset, offset)
        COMPARE(buf_max, top())
        COMPARE(cursor, cursor)
        COMPARE(depth, depth)
        COMPARE(max_depth, max_depth)
        COMPARE(c_element_type, type)
        COMPARE(error, error)
        COMPARE(mode, is_buffer)
        COMPARE(return_buf_len, capacity)
        for (size_t i = 0; i < states.size(); i++) {
            COMPARE(state[i], states[i])
            COMPARE(os_offset[i], starts[i])
        }
        if (!is_same(json->c_element_name, name, sizeof name)) {
            return std::string("name is ") + json->c_element_name + ", not " + name;
        }
        if (!is_same(json->buffer, window.data(), window.size()) || json->buffer[top()] != '\0') {
            return "window";
        }
        return "";
    }
};

// "" if a finished tree is what the model says, else the name of the first node that is not.
static inline std::string tree_difference(const vxlb_jsont *node, const vxlb_jsont *parent,
                                          const ModelNode &model, const char *&place) {
    bool same = reinterpret_cast<const char *>(node) == place && node->parent == parent &&
                is_same(node->name, model.name.data(), model.name.size()) &&
                node->type == model.type && node->future1 == 0 &&
                node->value_len == static_cast<int>(model.value.size()) &&
                node->numChild == static_cast<int>(std::min<size_t>(model.children.size(), 32767));
    static constexpr char zeros[256] = {};
    same = same && is_same(node->name + model.name.size(), zeros, 256 - model.name.size());
    place += sizeof *node;
    if (model.type >= 2) {
        same = same && node->value == place &&
               is_same(place, model.value.c_str(), model.value.size() + 1);
        place += model.value.size() + 1;
    } else {
        same = same && node->value == nullptr;
    }
    const vxlb_jsont *child = node->children;
    for (size_t i = 0; same && i < model.children.size(); i++) {
        if (child == nullptr || child->bbm != node->bbm) {
            return model.name;
        }
        const std::string below = tree_difference(child, node, model.children[i], place);
        if (!below.empty()) {
            return model.name + "/" + below;
        }
        child = child->next_sib;
    }
    return same && child == nullptr ? "" : "node " + model.name;
}

// Whether two finished trees say the same.
static inline bool is_same_tree(const vxlb_jsont *one, const vxlb_jsont *other) {
    if (strcmp(one->name, other->name) != 0 || one->type != other->type ||
        one->numChild != other->numChild || one->value_len != other->value_len ||
        (one->value == nullptr) != (other->value == nullptr) ||
        (one->value != nullptr &&
         memcmp(one->value, other->value, static_cast<size_t>(one->value_len) + 1) != 0)) {
        return false;
    }
    const vxlb_jsont *a = one->children;
    const vxlb_jsont *b = other->children;
    for (; a != nullptr && b != nullptr && is_same_tree(a, b); a = a->next_sib) {
        b = b->next_sib;
    }
    return a == nullptr && b == nullptr;
}

// Random documents: nested values with odd pieces among them, some of them damaged.
struct JsonMaker {
    std::minstd_rand random; // cheap to seed: every item of an array does
    bool strings_in_arrays = true;
    explicit JsonMaker(unsigned seed) : random(seed) {}
    unsigned below(unsigned n) { return static_cast<unsigned>(random() % n); }
    std::string pick(const std::vector<std::string> &from) {
        return from[below(static_cast<unsigned>(from.size()))];
    }
    std::string space() {
        return below(3) != 0 ? "" : pick({" ", "\n", "\t", "\r\n", "  ", "\v\f"});
    }
    std::string text() {
        std::string out = "\"";
        for (unsigned n = below(6); n > 0; n--) {
            out += pick({"a", "b,", "{", "}", "[", "]", ":", "\\\"", "\\\\", "\\n", "\\u0041",
                         "\\t", " ", "\xc3\xa9", "plain text of a few words", "\\/"});
        }
        return out + "\"";
    }
    std::string name() {
        return pick(
            {"\"a\"", "\"b\"", "\"\"", "\"long name of a member\"", "\"a\\\"b\"", "\"kind\""});
    }
    std::string value(int levels, bool in_array = false) {
        const unsigned kind = below(levels > 0 ? 6 : 3);
        if (kind == 0 && (strings_in_arrays || !in_array)) {
            return text();
        }
        if (kind < 3) {
            return pick(
                {"1", "-12.5e+3", "true", "false", "null", "abc", "x", "1\"2", "tr\\ue", "7\r\n"});
        }
        const bool object = below(2) == 0;
        const bool mixed = below(3) == 0;
        const unsigned shape = below(1U << 30);
        std::string out = object ? "{" : "[";
        for (unsigned n = below(5); n > 0; n--) {
            JsonMaker same_kind(shape); // items of one array are mostly of one type
            same_kind.strings_in_arrays = strings_in_arrays;
            out +=
                space() + (object ? name() + space() + ":" + space() : "") +
                (object || mixed ? value(levels - 1, !object) : same_kind.value(levels - 1, true)) +
                space() + (n > 1 || below(9) == 0 ? "," : "");
        }
        return out + space() + (object ? "}" : "]");
    }
    std::string document() {
        std::string doc =
            space() + (below(4) == 0 ? "[" + value(3) + "," + value(3) + "]" : value(4));
        for (unsigned n = below(3) == 0 ? below(4) : 0; n > 0 && !doc.empty(); n--) {
            const size_t at = below(static_cast<unsigned>(doc.size()));
            const std::string piece =
                below(8) == 0 ? std::string(1, '\0')
                              : pick({"\"", "\\", "{", "}", "[", "]", ",", ":", " ", "x"});
            switch (below(4)) {
            case 0:
                doc.erase(at, 1 + below(4));
                break;
            case 1:
                doc.resize(at);
                break;
            default:
                doc.insert(at, piece);
                break;
            }
        }
        return doc;
    }
};

#endif
