// SPDX-License-Identifier: Apache-2.0
// Whether a scenario file has one of the tag words: the command's way with its first look at the bytes, and
// the plain way through the file, the tree and each tag.
//
//     number of words | words | frame: a whole document, or the tags of one | the document or the tags

#include "scenario_tags.h"

#include "selection.h"

#include <cstring>
#include <fcntl.h>
#include <vector>

#include "captured_stderr.h"
#include "fuzz.h"
#include "json_model.h"

namespace {

bool holds_a_word(const vxlb_jsont *tag, const std::vector<std::string> &words) {
    if (tag->type != VXLB_JSON_STRING || tag->value == nullptr) {
        return false;
    }
    const std::string_view value(tag->value, static_cast<size_t>(tag->value_len));
    std::string decoded(value.size() + 1, '\0');
    decode_unicode(value, decoded.data());
    return std::any_of(words.begin(), words.end(), [&](const std::string &word) {
        return strcasestr(decoded.c_str(), word.c_str()) != nullptr;
    });
}

bool is_matching(const MemoryFile &file, int window, const std::vector<std::string> &words) {
    vxlb_json_t *json = vxlb_json_init(file.path.c_str(), 32, window, nullptr);
    vxlb_jsont *root = vxlb_json_to_jsont(json);
    vxlb_json_free(json);
    const vxlb_jsont *tags =
        root == nullptr ? nullptr : vxlb_jsont_eval_expr(root, "$.scenario.TAGS._G[0]");
    bool found = false;
    for (const vxlb_jsont *tag = tags == nullptr ? nullptr : tags->children; tag != nullptr;
         tag = tag->next_sib) {
        found = found || holds_a_word(tag, words);
    }
    if (root != nullptr) {
        vxlb_jsont_free(root);
    }
    return found;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const MemoryFile file;
    static CapturedStderr printed;
    Input in = {data, size};
    std::vector<std::string> words;
    for (unsigned n = 1 + in.byte() % 3; n > 0; n--) {
        words.push_back(in.name(6));
    }
    for (size_t i = 0; i < words.size(); i++) {
        g_tags[i] = words[i].c_str();
    }
    g_num_tags = static_cast<int>(words.size());
    const bool is_framed = in.byte() < 200;
    const std::string text(in.rest());
    file.write(is_framed ? "{\"x\":1,\"scenario\":{\"TAGS\":{\"_G\":[[" + text + "]]}}}" : text);
    struct stat info = {};
    check(fstat(file.fd, &info) == 0);
    tree_entry entry = {};
    entry.path = file.path;
    entry.base = file.path.rfind('/') + 1;
    static const int directory = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    entry.dir_fd = directory;
    const int window = std::max(8192, static_cast<int>(info.st_size) + 1);
    check(is_tag_present(entry, info) == is_matching(file, window, words));
    printed.text.clear();
    return 0;
}
