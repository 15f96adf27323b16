// SPDX-License-Identifier: Apache-2.0
// Parsers and trees of documents that are texts.
#pragma once

#include "../fuzz/json_model.h"

#include <memory>

// A parser on a buffer for window 0, else on a file that is read in windows of that size.
using Parser = std::shared_ptr<vxlb_json_t>;
inline Parser parser_of(const std::string &doc, int window = 0, int16_t levels = 0) {
    const MemoryFile file(window == 0 ? "" : doc);
    return {window == 0
                ? vxlb_json_init_buffer(doc.c_str(), levels, static_cast<int>(doc.size()), nullptr)
                : vxlb_json_init(file.path.c_str(), levels, window, nullptr),
            vxlb_json_free};
}

// The tree of what a parser stands on; null if there can be none.
using Tree = std::shared_ptr<vxlb_jsont>;
inline Tree tree_of(const Parser &json) {
    vxlb_jsont *root = vxlb_json_to_jsont(json.get());
    return root == nullptr ? nullptr : Tree(root, vxlb_jsont_free);
}
inline Tree tree_of(const std::string &doc) {
    return tree_of(parser_of(doc));
}

// A list of so many items.
inline std::string items(int count, const std::string &item = "1") {
    std::string doc = "[" + item;
    for (int i = 1; i < count; i++) {
        doc += "," + item;
    }
    return doc + "]";
}
