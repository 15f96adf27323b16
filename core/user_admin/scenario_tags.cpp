// SPDX-License-Identifier: Apache-2.0
// Tags stand in a scenario file at $.scenario.TAGS._G[0]: {"scenario": {"TAGS": {"_G": [[...]]}}}.
#include "scenario_tags.h"

#include "output.h"
#include "selection.h"
#include "user_access.h"

#include <libvxcore/vxlb_json_parser.h>

#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr const char *TAG_PATH = "$.scenario.TAGS._G[0]";
constexpr int16_t MAX_NESTING = 32;
constexpr size_t ESCAPE_DIGITS = 4;

// The parser's window holds the whole file as a rule: a string in an array that touches the edge of
// a window would cost the file its tags.
constexpr int USUAL_WINDOW = 8192;
constexpr off_t LARGEST_WINDOW = off_t{64} * 1024 * 1024;

// --- decoding ------------------------------------------------------------------------------------

bool is_hex_digit(char c) {
    return isxdigit(static_cast<unsigned char>(c)) != 0;
}

// The number that four hexadecimal digits at the start of a text stand for, or -1.
int escape_code(std::string_view text) {
    if (text.size() < ESCAPE_DIGITS) {
        return -1;
    }
    char digits[ESCAPE_DIGITS + 1] = {};
    for (size_t i = 0; i < ESCAPE_DIGITS; i++) {
        if (!is_hex_digit(text[i])) {
            return -1;
        }
        digits[i] = text[i];
    }
    return static_cast<int>(strtol(digits, nullptr, 16));
}

// Length of what introduces an escape at the start of a text: backslash and "u", or the zero byte
// that the parser leaves of them. 0: none.
size_t escape_prefix(std::string_view text) {
    return text.starts_with("\\u") ? 2 : text.starts_with('\0') ? 1 : 0;
}

// --- matching ------------------------------------------------------------------------------------

struct release_text {
    void operator()(char *text) const { free(text); }
};

bool holds_a_tag_word(const char *tag) {
    for (int i = 0; i < g_num_tags; i++) {
        if (strcasestr(tag, g_tags[i]) != nullptr) {
            return true;
        }
    }
    return false;
}

bool is_tag_matching(const vxlb_jsont &node) {
    if (node.type != VXLB_JSON_STRING || node.value == nullptr) {
        return false;
    }
    const std::string_view tag = {node.value, static_cast<size_t>(node.value_len)};
    const std::unique_ptr<char, release_text> decoded(static_cast<char *>(malloc(tag.size() + 1)));
    if (decoded == nullptr) {
        die_of_memory();
    }
    decode_unicode(tag, decoded.get());
    return holds_a_tag_word(decoded.get());
}

bool has_matching_tag(vxlb_jsont *root) {
    char path[64];
    vxlb_copy_text(path, sizeof path, TAG_PATH);
    const vxlb_jsont *tags = vxlb_jsont_eval_expr(root, path);
    const vxlb_jsont *tag = tags == nullptr ? nullptr : tags->children;
    while (tag != nullptr && !is_tag_matching(*tag)) {
        tag = tag->next_sib;
    }
    return tag != nullptr;
}

// --- files ---------------------------------------------------------------------------------------

// A stream on the entry's file, or null. Opened beside its directory: going along the whole path
// costs more than all else that is done to a file.
FILE *open_regular_file(const tree_entry &entry) {
    const int fd =
        openat(entry.dir_fd, entry.name().data(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    FILE *stream = fd < 0 ? nullptr : fdopen(fd, "r");
    if (stream == nullptr && fd >= 0) {
        close(fd);
    }
    if (stream != nullptr) {
        setvbuf(stream, nullptr, _IONBF, 0); // the window is the buffer
    }
    return stream;
}

int window_for(off_t size) {
    return size > USUAL_WINDOW && size <= LARGEST_WINDOW ? static_cast<int>(size) + 1
                                                         : USUAL_WINDOW;
}

// A file that can't be read, or is no regular one, is left to the parser to refuse and explain.
vxlb_json_t *open_scenario(const tree_entry &entry, const struct stat &file,
                           vxlb_json_error *error) {
    if (S_ISREG(file.st_mode)) {
        vxlb_json_file_fp = open_regular_file(entry);
    }
    return vxlb_json_init(entry.path.data(), MAX_NESTING, window_for(file.st_size), error);
}

// A refused file is explained by its kind as well as by what happens in a tree.
bool is_usual_refusal(int error) {
    return error == EISDIR || error == EINVAL || is_usual_in_a_tree(error);
}

struct release_json {
    void operator()(vxlb_json_t *json) const { vxlb_json_free(json); }
};

struct release_tree {
    void operator()(vxlb_jsont *root) const { vxlb_jsont_free(root); }
};

} // namespace

size_t decode_unicode(std::string_view tag, char *dst) {
    char *to = dst;
    while (!tag.empty()) {
        const size_t prefix = escape_prefix(tag);
        const int code = prefix == 0 ? -1 : escape_code(text_part(tag, prefix, tag.size()));
        if (code >= 0) {
            tag.remove_prefix(prefix + ESCAPE_DIGITS);
            if (code >= 1 && code <= 127) {
                *to++ = static_cast<char>(code);
            }
            continue;
        }
        if (tag.front() != '\0') {
            *to++ = tag.front();
        }
        tag.remove_prefix(1);
    }
    *to = '\0';
    return static_cast<size_t>(to - dst);
}

bool is_tag_present(const tree_entry &entry, const struct stat &file) {
    if (g_num_tags == 0) {
        return true;
    }
    vxlb_json_error error;
    const std::unique_ptr<vxlb_json_t, release_json> json(open_scenario(entry, file, &error));
    if (json == nullptr) {
        const int reason = errno;
        report_error("Failed to parse JSON: %s, error - %s\n", entry.path.data(), error.str);
        if (!is_usual_refusal(reason)) {
            report_loss(entry.path.data(), reason);
        }
        return false;
    }
    const std::unique_ptr<vxlb_jsont, release_tree> root(vxlb_json_to_jsont(json.get()));
    if (ferror(json->fp) != 0) {
        report_loss(entry.path.data(), EIO);
    }
    return root != nullptr && has_matching_tag(root.get());
}
