// SPDX-License-Identifier: Apache-2.0
#ifndef BENCH_JSON_FLOOR_H
#define BENCH_JSON_FLOOR_H

// What building a tree of these nodes costs at least: simdjson finds the structural bytes of a text, then
// one loop over them writes the same packed records into one block, pointers at once. It takes well-formed
// texts only, keeps its scanner from one time to the next, and allocates its block in the size that
// the first time has shown.

#include <cstdlib>
#include <cstring>
#include <memory>
#include <simdjson.h>
#include <string>

#include <libvxcore/vxlb_json_parser.h>

struct Floor {
    using Scanner = simdjson::internal::dom_parser_implementation;
    std::unique_ptr<Scanner> scanner;
    simdjson::padded_string text;
    BBM bbm = {};
    char *next = nullptr; // where the next record or value goes
    const char *name = nullptr;
    size_t name_length = 0;

    explicit Floor(const std::string &doc) : text(doc) {
        if (simdjson::get_active_implementation()->create_dom_parser_implementation(
                text.size(), 64, scanner) != simdjson::SUCCESS) {
            abort();
        }
    }
    const uint8_t *bytes() const { return reinterpret_cast<const uint8_t *>(text.data()); }

    vxlb_jsont *place(int type, vxlb_jsont *parent, vxlb_jsont *previous) {
        auto *node = reinterpret_cast<vxlb_jsont *>(next);
        next += sizeof *node;
        memset(node->name, 0, sizeof node->name);
        memcpy(node->name, name, name_length < 255 ? name_length : 255);
        node->type = static_cast<int16_t>(type);
        node->parent = parent;
        node->numChild = 0;
        node->children = nullptr;
        node->next_sib = nullptr;
        node->value = nullptr;
        node->value_len = 0;
        node->bbm = &bbm;
        node->future1 = 0;
        if (previous != nullptr) {
            previous->next_sib = node;
        } else if (parent != nullptr) {
            parent->children = node;
        }
        if (parent != nullptr && parent->numChild < INT16_MAX) {
            parent->numChild++;
        }
        return node;
    }

    // A string without its quotes, escapes decoded.
    void fill_string(vxlb_jsont *node, const char *p, const char *quote) {
        node->value = next;
        while (p < quote) {
            const auto *slash =
                static_cast<const char *>(memchr(p, '\\', static_cast<size_t>(quote - p)));
            const char *end = slash == nullptr ? quote : slash;
            memcpy(next, p, static_cast<size_t>(end - p));
            next += end - p;
            p = end;
            if (p < quote) {
                static const char from[] = "nrt\"\\", to[] = "\n\r\t\"\\";
                const char *row = strchr(from, p[1]);
                *next++ = row == nullptr ? '\0' : to[row - from];
                p += 2;
            }
        }
        node->value_len = static_cast<int32_t>(next - node->value);
        *next++ = '\0';
    }
    void fill_literal(vxlb_jsont *node, const char *p, const char *end) {
        while (end[-1] == ' ' || end[-1] == '\n') {
            end--;
        }
        node->value = next;
        node->value_len = static_cast<int32_t>(end - p);
        memcpy(next, p, static_cast<size_t>(end - p));
        next += end - p;
        *next++ = '\0';
    }

    // The closing quote of the string before a structural byte.
    static const char *quote_before(const char *p) {
        while (*--p != '"') {
        }
        return p;
    }

    vxlb_jsont *build() {
        if (scanner->stage1(bytes(), text.size(), simdjson::stage1_mode::regular) !=
            simdjson::SUCCESS) {
            return nullptr;
        }
        const uint32_t *at = scanner->structural_indexes.get();
        const uint32_t *end = at + scanner->n_structural_indexes;
        if (bbm.max == 0) { // the first time: more than enough
            bbm.max = scanner->n_structural_indexes * sizeof(vxlb_jsont) + text.size() * 2;
        }
        bbm.mem = static_cast<char *>(malloc(bbm.max));
        next = bbm.mem + 1;
        name = "root";
        name_length = 4;
        vxlb_jsont *top = nullptr;
        vxlb_jsont *container = nullptr;
        vxlb_jsont *previous = nullptr;
        for (; at < end; at++) {
            const char *p = text.data() + *at;
            switch (*p) {
            case ',':
                break;
            case '}':
            case ']':
                previous = container;
                container = container->parent;
                break;
            case '{':
            case '[':
                container = place(*p == '{' ? 0 : 1, container, previous);
                top = top == nullptr ? container : top;
                previous = nullptr;
                break;
            case '"':
                if (text.data()[at[1]] == ':') {
                    name = p + 1;
                    name_length = static_cast<size_t>(quote_before(text.data() + at[1]) - name);
                    at++;
                } else {
                    previous = place(2, container, previous);
                    fill_string(previous, p + 1, quote_before(text.data() + at[1]));
                }
                break;
            default:
                previous = place(3, container, previous);
                fill_literal(previous, p, text.data() + at[1]);
            }
        }
        bbm.max = bbm.offset = static_cast<uint64_t>(next - bbm.mem);
        return top;
    }
    void release() { free(bbm.mem); }
};

#endif
