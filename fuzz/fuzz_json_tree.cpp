// SPDX-License-Identifier: Apache-2.0
// Trees from a buffer and from a file, against the plain model and against each other; then printed.
//
//     window (0: one that holds the document) | levels, 255: by the real initialisation | document

#include "fuzz.h"
#include "json_handle.h"
#include "json_model.h"

namespace {

vxlb_json_t *start(bool is_real, const std::string &doc, int16_t levels, int window) {
    static JsonHandle handles[2]; // by mode: the file's handle is made while the buffer's is in use
    static const MemoryFile file;
    if (!is_real) {
        return handles[window == 0].start(doc, levels, window);
    }
    if (window == 0) {
        return vxlb_json_init_buffer(Pieces::copy(doc), levels, static_cast<int>(doc.size()),
                                     nullptr);
    }
    file.write(doc);
    return vxlb_json_init(file.path.c_str(), levels, window, nullptr);
}

// The tree, or null; it and the handle are what the model says.
vxlb_jsont *build(vxlb_json_t *json, JsonModel &model) {
    uint64_t used = 1;
    const auto expected = model.tree(-1, used);
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    check(model.difference(json).empty());
    check((tree != nullptr) == expected.has_value());
    if (tree != nullptr) {
        const char *place = tree->bbm->mem + 1;
        check(tree_difference(tree, nullptr, *expected, place).empty());
        check(tree->bbm->offset == used);
    }
    return tree;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces::forget();
    if (size < 3) {
        return 0;
    }
    const bool is_real = data[1] == 255;
    const auto levels = static_cast<int16_t>(1 + data[1] % 127);
    const std::string doc(reinterpret_cast<const char *>(data) + 2, size - 2);
    const int window = data[0] == 0 ? static_cast<int>(doc.size()) + 1 : data[0];
    JsonModel buffer_model(doc, levels, 0);
    JsonModel file_model(doc, levels, window);
    vxlb_json_t *buffer = start(is_real, doc, levels, 0);
    vxlb_json_t *file = start(is_real, doc, levels, window);
    vxlb_jsont *from_buffer = build(buffer, buffer_model);
    vxlb_jsont *from_file = build(file, file_model);
    // A file's top is an object, a string in an array at an edge leads astray, and a buffer refuses a
    // value that runs to the document's end. Else the two agree.
    const bool is_object = doc[doc.find_first_not_of(" \t\n") % doc.size()] != '[';
    if (is_object && !file_model.has_strayed && buffer->error != VXLB_JSON_READ_FAILED) {
        check((from_buffer == nullptr) == (from_file == nullptr));
        check(from_buffer == nullptr || is_same_tree(from_buffer, from_file));
    }
    const char indent = window % 2 == 0 ? '\0' : '\1';
    for (vxlb_jsont *tree : {from_buffer, from_file}) {
        if (tree != nullptr) {
            jsont_to_string(tree, nullptr, 0, indent, 2, 0);
            vxlb_jsont_free(tree);
        }
    }
    if (is_real) {
        vxlb_json_free(buffer);
        vxlb_json_free(file);
    }
    return 0;
}
