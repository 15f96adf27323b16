// SPDX-License-Identifier: Apache-2.0
// Escape decoding in place, alone and through a value's extraction, beside a plain model.
//
//     the text between the quotes

#include <cstring>
#include <memory>

#include "fuzz.h"
#include "json_handle.h"

namespace {

std::string decode(const std::string &raw) {
    static const std::string letters = "nrt\"\\";
    static const std::string meanings("\n\r\t\"\\\0", 6);
    std::string out;
    for (size_t i = 0; i < raw.size(); i++) {
        if (raw[i] != '\\') {
            out += raw[i];
        } else if (++i < raw.size()) {
            out += meanings[std::min(letters.find(raw[i]), letters.size())];
        }
    }
    return out;
}

void check_in_place(const std::string &raw) {
    const std::unique_ptr<char, decltype(&free)> text(strdup(raw.c_str()), free);
    int length = -1;
    replace_escaped_char(text.get(), &length);
    const std::string expected = decode(raw);
    check(length == static_cast<int>(expected.size()));
    check(memcmp(text.get(), expected.c_str(), expected.size() + 1) == 0);
}

// A member's value from the handle's own buffer and as a copy, decoded and not.
void check_value(const std::string &raw) {
    static JsonHandle handle;
    const std::string doc = "{\"a\":\"" + raw + "\" }";
    size_t end = 0; // the first quote without a backslash right before it
    for (end = doc.find('"', 6); doc[end - 1] == '\\'; end = doc.find('"', end + 1)) {
        if (end == doc.size() - 3) {
            return;
        }
    }
    const std::string value = doc.substr(6, end - 6);
    vxlb_json_t *json = handle.start(doc, 4, 0);
    check(vxlb_json_open_obj(json) == 0 && vxlb_json_next_element(json) == 0);
    for (const int way : {0, 1, 2, 3}) {
        int length = -1;
        char *text = vxlb_json_element_value(json, &length, way & 1, way & 2);
        const std::string expected = (way & 2) != 0 ? decode(value) : value;
        check(text != nullptr && expected == std::string(text, static_cast<size_t>(length)));
        free((way & 1) != 0 ? text : nullptr);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string raw = Input{data, size}.rest().c_str();
    check_in_place(raw);
    check_value(raw);
    return 0;
}
