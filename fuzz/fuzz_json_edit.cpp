// SPDX-License-Identifier: Apache-2.0
// The object editor, and the printer with a limit.
//
//     operation | value is a string | limit | bytes of the key | bytes of the value | key | value | document

#include "fuzz.h"
#include "json_handle.h"

namespace {

// With any limit the text is the beginning of the whole text.
void check_printer(std::string_view doc, int limit) {
    static JsonHandle handle;
    vxlb_jsont *tree = vxlb_json_to_jsont(handle.start(doc, 64, 0));
    if (tree == nullptr) {
        return;
    }
    const auto tab = static_cast<short>(limit % 7);
    for (const char indent : {'\0', '\1'}) {
        const std::string_view whole = jsont_to_string(tree, nullptr, 0, indent, tab, 0);
        char *text = Pieces::zeroed(static_cast<size_t>(limit) + 1);
        jsont_to_string(tree, text, limit, indent, tab, 0);
        check(text == whole.substr(0, limit > 0 ? static_cast<size_t>(limit) - 1 : 0));
    }
    vxlb_jsont_free(tree);
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
    char error[200];
    char *out = Pieces::take(static_cast<size_t>(limit));
    for (char *buffer : {static_cast<char *>(nullptr), out}) {
        const char *edited = vxlb_modify_json_obj_depth1(doc, operation, key, value, is_string,
                                                         error, buffer, limit);
        check(edited == nullptr ? strncmp(error, "Failed to parse json, error - ", 30) == 0
                                : strlen(edited) < 4096);
    }
    check_printer(std::string_view(doc, size - 5 - key_length - value_length), limit);
    return 0;
}
