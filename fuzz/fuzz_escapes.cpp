// SPDX-License-Identifier: Apache-2.0
// Escape decoding in place, alone and through a value's extraction, beside a plain model.
//
//     the text between the quotes

#include <cstring>

#include "fuzz.h"
#include "json_handle.h"

namespace {

std::string decode(std::string_view raw) {
    std::string out;
    for (size_t i = 0; i < raw.size(); i++) {
        if (raw[i] != '\\') {
            out += raw[i];
        } else if (++i < raw.size()) {
            const char c = raw[i];
            out += c == 'n'                ? '\n'
                   : c == 'r'              ? '\r'
                   : c == 't'              ? '\t'
                   : c == '"' || c == '\\' ? c
                                           : '\0';
        }
    }
    return out;
}

void check_in_place(std::string_view raw) {
    char *text = Pieces::copy(raw);
    int length = -1;
    replace_escaped_char(text, &length);
    const std::string expected = decode(raw);
    check(length == static_cast<int>(expected.size()));
    check(memcmp(text, expected.c_str(), expected.size() + 1) == 0);
}

// A member's value from the handle's own buffer and as a copy, decoded and not.
void check_value(std::string_view raw) {
    static JsonHandle handle;
    std::string doc = "{\"a\":\"";
    doc.append(raw).append("\" }");
    size_t end = 6; // the first quote without a backslash right before it
    while (doc[end] != '"' || doc[end - 1] == '\\') {
        if (++end == doc.size()) {
            return;
        }
    }
    const std::string value = doc.substr(6, end - 6);
    const std::string decoded = decode(value);
    vxlb_json_t *json = handle.start(doc, 4, 0);
    check(vxlb_json_open_obj(json) == 0 && vxlb_json_next_element(json) == 0);
    for (const int way : {0, 1, 2, 3}) {
        int length = -1;
        char *text = vxlb_json_element_value(json, &length, way & 1, way & 2);
        const std::string &expected = (way & 2) != 0 ? decoded : value;
        check(text != nullptr && expected == std::string_view(text, static_cast<size_t>(length)));
        free((way & 1) != 0 ? text : nullptr);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces::forget();
    const std::string_view raw = until_zero(Input{data, size}.rest());
    check_in_place(raw);
    check_value(raw);
    return 0;
}
