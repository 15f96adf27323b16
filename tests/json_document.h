// SPDX-License-Identifier: Apache-2.0
// Parsers and trees of documents that are texts.
#pragma once

#include "../fuzz/json_model.h"

// A parser on a buffer for window 0, else on a file that is read in windows of that size.
struct Handle {
    MemoryFile file;
    vxlb_json_t *json;
    Handle(const std::string &doc, int window, int16_t levels = 0)
        : file(window == 0 ? "" : doc),
          json(window == 0 ? vxlb_json_init_buffer(doc.c_str(), levels,
                                                   static_cast<int>(doc.size()), nullptr)
                           : vxlb_json_init(file.path.c_str(), levels, window, nullptr)) {}
    Handle(const Handle &) = delete;
    ~Handle() { vxlb_json_free(json); }
};

// The tree of a document; null if there can be none.
struct Tree {
    vxlb_jsont *root;
    explicit Tree(const std::string &doc, int16_t levels = 0)
        : root(vxlb_json_to_jsont(Handle(doc, 0, levels).json)) {}
    Tree(const Tree &) = delete;
    ~Tree() {
        if (root != nullptr) {
            vxlb_jsont_free(root);
        }
    }
};

// A list of so many items.
inline std::string items(int count, const std::string &item = "1") {
    std::string doc = "[" + item;
    for (int i = 1; i < count; i++) {
        doc += "," + item;
    }
    return doc + "]";
}
