// SPDX-License-Identifier: Apache-2.0
// Trees from a buffer and from a file, against the plain model and against each other; then printed.
//
//     window (0: one that holds the document) | levels | document

#include "json_model.h"

namespace {

void check(bool good) {
    if (!good) {
        abort();
    }
}

// The tree, or null; it and the handle are what the model says.
vxlb_jsont *build(vxlb_json_t *json, JsonModel model) {
    uint64_t used = 1;
    const auto expected = model.tree(-1, used);
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    check(model.difference(json).empty());
    vxlb_json_free(json);
    check((tree != nullptr) == expected.has_value());
    if (tree != nullptr) {
        const char *place = tree->bbm->mem + 1;
        check(tree_difference(tree, nullptr, *expected, place).empty());
        check(tree->bbm->offset == used);
    }
    return tree;
}

std::string print(vxlb_jsont *tree, char indent) {
    const std::string text = jsont_to_string(tree, nullptr, 0, indent, 2, 0);
    vxlb_jsont_free(tree);
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const MemoryFile file;
    if (size < 3) {
        return 0;
    }
    const auto levels = static_cast<int16_t>(1 + data[1] % 127);
    const std::string doc(reinterpret_cast<const char *>(data) + 2, size - 2);
    const int whole = static_cast<int>(doc.size()) + 1;
    const int window = data[0] == 0 ? whole : data[0];
    file.write(doc);
    vxlb_jsont *from_buffer = build(vxlb_json_init_buffer(doc.data(), levels, whole - 1, nullptr),
                                    JsonModel(doc, levels, 0));
    vxlb_jsont *from_file = build(vxlb_json_init(file.path.c_str(), levels, window, nullptr),
                                  JsonModel(doc, levels, window));
    // A file's top is an object, and a buffer refuses a value that ends with the input; else they agree.
    const size_t first = doc.find_first_not_of(" \t\n");
    const bool agree = from_buffer != nullptr && window >= whole && doc[first] != '[';
    check(!agree || from_file != nullptr);
    const char indent = window % 2 == 0 ? '\0' : '\1';
    const std::string one = from_buffer == nullptr ? "" : print(from_buffer, indent);
    const std::string other = from_file == nullptr ? "" : print(from_file, indent);
    check(!agree || one == other);
    return 0;
}
