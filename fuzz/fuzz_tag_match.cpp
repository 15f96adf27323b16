// SPDX-License-Identifier: Apache-2.0
// Whether a scenario file has one of the tag words: the command's way with its first look at the bytes, and
// the plain way through the file, the tree and each tag.
//
//     number of words | words | frame: a whole document, or the tags of one | the document or the tags

#include "scenario_tags.h"

#include "selection.h"

#include <cctype>
#include <cstring>
#include <libvxcore/vxlb_alloc.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "captured_stderr.h"
#include "fuzz.h"
#include "json_handle.h"
#include "json_model.h"

// The file as the command reads it, without system calls: a descriptor that no other file has.
constexpr int DIRECTORY = 1 << 20, FILE_AT_HAND = DIRECTORY + 1;
static std::string g_document;
extern "C" {
int __real_openat(int, const char *, int, ...);
ssize_t __real_read(int, void *, size_t);
int __real_close(int);
int __wrap_openat(int directory, const char *name, int flags, ...) {
    return directory == DIRECTORY ? FILE_AT_HAND : __real_openat(directory, name, flags, 0);
}
ssize_t __wrap_read(int fd, void *to, size_t size) {
    return fd == FILE_AT_HAND ? static_cast<ssize_t>(g_document.copy(static_cast<char *>(to), size))
                              : __real_read(fd, to, size);
}
int __wrap_close(int fd) {
    return fd == FILE_AT_HAND ? 0 : __real_close(fd);
}
}

namespace {

bool holds_a_word(const vxlb_jsont *tag, const std::vector<std::string> &words) {
    if (tag->type != VXLB_JSON_STRING || tag->value == nullptr) {
        return false;
    }
    const std::string_view value(tag->value, static_cast<size_t>(tag->value_len));
    char *decoded = Pieces::take(value.size() + 1);
    decode_unicode(value, decoded);
    return std::any_of(words.begin(), words.end(), [&](const std::string &word) {
        return strcasestr(decoded, word.c_str()) != nullptr;
    });
}

bool is_matching(int window, const std::vector<std::string> &words) {
    static JsonHandle handle;
    vxlb_jsont *root = vxlb_json_to_jsont(handle.start(g_document, 32, window));
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

// Whether the file's bytes alone say that none of the words is in it: then no parser may be made for it.
bool is_plainly_without(const std::vector<std::string> &words) {
    const auto is_same = [](unsigned char a, unsigned char b) { return tolower(a) == tolower(b); };
    return g_document.find('\\') == std::string::npos &&
           std::none_of(words.begin(), words.end(), [&](const std::string &word) {
               return word.empty() ||
                      std::search(g_document.begin(), g_document.end(), word.begin(), word.end(),
                                  is_same) != g_document.end();
           });
}

// What the walk knows about the file. A document that isn't an object is read through its path.
tree_entry make_entry() {
    static const MemoryFile file;
    if (!g_document.starts_with('{')) {
        file.write(g_document);
    }
    tree_entry entry = {};
    entry.path = file.path;
    entry.base = file.path.rfind('/') + 1;
    entry.dir_fd = DIRECTORY;
    return entry;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static CapturedStderr printed;
    Pieces::forget();
    Input in = {data, size};
    std::vector<std::string> words;
    for (unsigned n = 1 + in.byte() % 3; n > 0; n--) {
        words.push_back(in.name(6));
        g_tags[words.size() - 1] = Pieces::copy(words.back());
    }
    g_num_tags = static_cast<int>(words.size());
    const bool is_framed = in.byte() < 200;
    g_document = is_framed ? R"({"x":1,"scenario":{"TAGS":{"_G":[[)" : "";
    g_document.append(in.rest()).append(is_framed ? "]]}}}" : "");
    struct stat info = {};
    info.st_mode = S_IFREG | 0644;
    info.st_size = static_cast<off_t>(g_document.size());
    const int window = std::max(8192, static_cast<int>(info.st_size) + 1);
    const uint32_t count = g_c_alloc_count;
    const bool is_present = is_tag_present(make_entry(), info);
    check(g_c_alloc_count == count || !is_plainly_without(words));
    check(is_present == is_matching(window, words));
    printed.text.clear();
    return 0;
}
