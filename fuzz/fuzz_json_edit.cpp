// SPDX-License-Identifier: Apache-2.0
// The object editor and the printer, with limits, beside plain ones that make whole texts.
//
//     operation | value is a string | limit | bytes of the key | bytes of the value | key | value | document

#include "fuzz.h"
#include "json_handle.h"

namespace {

std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

std::string value_of(const vxlb_jsont *node) {
    return node->type == VXLB_JSON_STRING ? quoted(node->value) : std::string(node->value);
}

std::string print(const vxlb_jsont *node, const vxlb_jsont *top, const char *line, int tab,
                  int level) {
    const std::string blanks(*line == '\0' ? 0 : static_cast<size_t>(std::min(tab * level, 2048)),
                             ' ');
    const bool is_named = node != top && node->parent->type != VXLB_JSON_ARRAY;
    std::string out = blanks;
    out += is_named ? quoted(node->name) + (*line == '\0' ? ":" : " : ") : "";
    if (node->type >= VXLB_JSON_STRING) {
        return out + value_of(node);
    }
    out += (node->type == VXLB_JSON_OBJECT ? "{" : "[") + std::string(line);
    for (const vxlb_jsont *child = node->children; child != nullptr; child = child->next_sib) {
        out += print(child, top, line, tab, level + 1);
        out += child->next_sib == nullptr ? "" : "," + std::string(line);
    }
    return out + line + blanks + (node->type == VXLB_JSON_OBJECT ? "}" : "]");
}

// With any limit the text is the beginning of the whole text.
void check_printer(std::string_view doc, int limit) {
    static JsonHandle handle;
    vxlb_jsont *tree = vxlb_json_to_jsont(handle.start(doc, 64, 0));
    if (tree == nullptr) {
        return;
    }
    const auto tab = static_cast<short>(limit % 7);
    for (const char *line : {"", "\n"}) {
        const std::string whole = print(tree, tree, line, tab, 0);
        check(jsont_to_string(tree, nullptr, 0, *line, tab, 0) == whole.substr(0, 65535));
        char *text = Pieces::zeroed(static_cast<size_t>(limit) + 1);
        jsont_to_string(tree, text, limit, *line, tab, 0);
        check(text == whole.substr(0, limit > 0 ? static_cast<size_t>(limit) - 1 : 0));
    }
    vxlb_jsont_free(tree);
}

// One call of the editor.
struct Edit {
    int8_t operation, is_string;
    const char *key, *value, *doc;
};

// Whether one more member fits a limit, by the editor's estimate.
size_t size_with(const std::string &out, std::string_view name, std::string_view text) {
    return out.size() + name.size() + text.size() + 10;
}

std::string edited_plainly(const vxlb_jsont *object, const Edit &edit, size_t limit) {
    std::string out = "{";
    bool is_deleted = false;
    const auto put = [&](const char *name, const std::string &text) {
        out += (out.size() > 1 ? ", " : "") + quoted(name) + ": " + text;
    };
    for (const vxlb_jsont *m = object->children; m != nullptr; m = m->next_sib) {
        const bool is_meant = !is_deleted && strcmp(m->name, edit.key) == 0;
        if (is_meant && edit.operation == 4) {
            is_deleted = true;
            continue;
        }
        const bool is_replaced = is_meant && (edit.operation == 1 || edit.operation == 2);
        const std::string text = is_replaced ? edit.value : m->value;
        if (limit < size_with(out, m->name, text)) {
            break;
        }
        put(m->name, m->type == VXLB_JSON_STRING ? quoted(text) : text);
    }
    if (edit.operation == 1 && limit > size_with(out, edit.key, edit.value)) {
        put(edit.key, edit.is_string != 0 ? quoted(edit.value) : edit.value);
    }
    return out + "}";
}

// Why the editor refuses a document; null if it doesn't.
const char *reason_against(const vxlb_jsont *tree, const vxlb_json_t *json) {
    if (tree == nullptr) {
        return vxlb_json_error_string[json->error];
    }
    bool is_flat = tree->type == VXLB_JSON_OBJECT;
    for (const vxlb_jsont *m = tree->children; m != nullptr; m = m->next_sib) {
        is_flat = is_flat && m->type >= VXLB_JSON_STRING;
    }
    return is_flat ? nullptr : vxlb_json_error_string[VXLB_JSON_BAD_OPERATION];
}

// With a buffer of the caller's the brace goes there, and what is returned begins as it did before.
void check_editor(const Edit &edit, int limit) {
    static JsonHandle handle;
    vxlb_json_t *json = handle.start(until_zero(edit.doc), 4, 0);
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    const char *reason = reason_against(tree, json);
    char error[200];
    char none = '#';
    char *out = limit == 0 ? &none : Pieces::take(static_cast<size_t>(limit));
    static char first; // byte of the editor's own text
    for (char *buffer : {out, static_cast<char *>(nullptr)}) {
        const char *edited = vxlb_modify_json_obj_depth1(
            edit.doc, edit.operation, edit.key, edit.value, edit.is_string, error, buffer, limit);
        check((edited == nullptr) == (reason != nullptr));
        if (reason != nullptr) {
            check(error == "Failed to parse json, error - " + std::string(reason));
            continue;
        }
        const int most = buffer == nullptr ? 4095 : std::min(limit, 4095);
        first = buffer == nullptr ? '{' : first;
        check(edited + 1 == edited_plainly(tree, edit, static_cast<size_t>(most)).substr(1));
        check(*edited == first && (buffer == nullptr || *buffer == (limit == 0 ? '#' : '{')));
    }
    if (tree != nullptr) {
        vxlb_jsont_free(tree);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces::forget();
    if (size < 5 || size < 5U + data[3] + data[4]) {
        return 0;
    }
    Input in = {data, size};
    const auto operation = static_cast<int8_t>(in.byte());
    const auto is_string = static_cast<int8_t>(in.byte());
    const int limit = static_cast<int>(in.byte()) * 20;
    const unsigned key_length = in.byte();
    const unsigned value_length = in.byte();
    const char *key = Pieces::copy(in.text(key_length));
    const char *value = Pieces::copy(in.text(value_length));
    const char *doc = Pieces::copy(in.rest());
    check_editor({operation, is_string, key, value, doc}, limit);
    check_printer(std::string_view(doc, size - 5 - key_length - value_length), limit);
    return 0;
}
