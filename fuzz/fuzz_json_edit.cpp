// SPDX-License-Identifier: Apache-2.0
// The object editor, and the printer with a limit.
//
//     operation | value is a string | limit | bytes of the key | bytes of the value | key | value | document

#include "fuzz.h"
#include "json_handle.h"

#include <vector>

namespace {

// With any limit the text is the beginning of the whole text.
void check_printer(const std::string &doc, int limit) {
    static JsonHandle handle;
    vxlb_jsont *tree = vxlb_json_to_jsont(handle.start(doc, 64, 0));
    if (tree == nullptr) {
        return;
    }
    const auto tab = static_cast<short>(limit % 7);
    for (const char indent : {'\0', '\1'}) {
        const std::string whole = jsont_to_string(tree, nullptr, 0, indent, tab, 0);
        std::vector<char> text(static_cast<size_t>(limit) + 1);
        jsont_to_string(tree, text.data(), limit, indent, tab, 0);
        check(text.data() == whole.substr(0, limit > 0 ? static_cast<size_t>(limit) - 1 : 0));
    }
    vxlb_jsont_free(tree);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 5 || size < 5U + data[3] + data[4]) {
        return 0;
    }
    const char *text = reinterpret_cast<const char *>(data) + 5;
    const std::string key(text, data[3]);
    const std::string value(text + data[3], data[4]);
    const std::string doc(text + data[3] + data[4], size - 5 - data[3] - data[4]);
    const int limit = data[2] * 20;
    char error[200];
    std::vector<char> out(static_cast<size_t>(limit));
    for (char *buffer : {static_cast<char *>(nullptr), out.data()}) {
        const char *edited = vxlb_modify_json_obj_depth1(
            doc.c_str(), static_cast<int8_t>(data[0]), key.c_str(), value.c_str(),
            static_cast<int8_t>(data[1]), error, buffer, limit);
        check(edited == nullptr ? strncmp(error, "Failed to parse json, error - ", 30) == 0
                                : strlen(edited) < 4096);
    }
    check_printer(doc, limit);
    return 0;
}
