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
constexpr off_t LARGEST_AT_ONCE = off_t{1024} * 1024; // a larger file is left to the parser to read

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
    const vxlb_jsont *tags = vxlb_jsont_eval_expr(root, TAG_PATH);
    const vxlb_jsont *tag = tags == nullptr ? nullptr : tags->children;
    while (tag != nullptr && !is_tag_matching(*tag)) {
        tag = tag->next_sib;
    }
    return tag != nullptr;
}

// --- a first look --------------------------------------------------------------------------------
//
// Most files hold none of the tag words anywhere, and it takes no tree to tell. A tag is a stretch
// of the text that begins behind a quote, with its escapes decoded, and no escape holds a quote but
// as its last byte. So a word that is not in the whole text, decoded from its start, is in no tag.

constexpr size_t STRIDE = 64;

// A text in memory that is used again for the next file.
struct text_buffer {
    char *bytes; // owned
    size_t capacity;
    size_t length;

    std::string_view view() const { return {bytes, length}; }
};

text_buffer g_text;    // the file at hand
text_buffer g_decoded; // the same without escapes

void reserve(text_buffer *text, size_t capacity) {
    if (text->capacity >= capacity) {
        return;
    }
    free(text->bytes);
    text->bytes = static_cast<char *>(malloc(2 * capacity));
    text->capacity = 2 * capacity;
    if (text->bytes == nullptr) {
        die_of_memory();
    }
}

void append(text_buffer *to, std::string_view text) {
    memcpy(to->bytes + to->length, text.data(), text.size());
    to->length += text.size();
}

// The byte that an escape stands for, zero for none; text begins behind the backslash. *behind: where
// the text goes on. What the parser and decode_unicode do in two steps is done in one.
char decode_escape(std::string_view text, size_t *behind) {
    *behind = 1;
    switch (text.front()) {
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    case '"':
        return '"';
    default:
        break;
    }
    const bool is_backslash = text.front() == '\\';
    const size_t digits = is_backslash ? 2 : 1;
    const bool may_be_code = !is_backslash || text.starts_with("\\u");
    const int code = may_be_code ? escape_code(text_part(text, digits, text.size())) : -1;
    if (code < 0) {
        return is_backslash ? '\\' : '\0';
    }
    *behind = digits + ESCAPE_DIGITS;
    return code <= 127 ? static_cast<char>(code) : '\0';
}

void decode_text(std::string_view text, text_buffer *decoded) {
    decoded->length = 0;
    reserve(decoded, text.size() + 1);
    for (;;) {
        const size_t backslash = text.find('\\');
        if (backslash == std::string_view::npos || backslash + 1 == text.size()) {
            append(decoded, text);
            return;
        }
        append(decoded, text_part(text, 0, backslash));
        text.remove_prefix(backslash + 1);
        size_t behind;
        const char byte = decode_escape(text, &behind);
        append(decoded, {&byte, byte == '\0' ? size_t{0} : 1});
        text.remove_prefix(behind);
    }
}

// A byte of a word: a text's byte with the bits of `fold` set equals it in either case.
struct word_byte {
    size_t at;
    unsigned char fold;
    unsigned char byte;
};

word_byte byte_at(std::string_view word, size_t at) {
    const auto byte = static_cast<unsigned char>(word[at]);
    const unsigned char fold = isalpha(byte) != 0 ? 'a' ^ 'A' : 0;
    return {at, fold, static_cast<unsigned char>(byte | fold)};
}

// The byte of word[from..to) that texts hold least often.
word_byte rarest_byte(std::string_view word, size_t from, size_t to) {
    constexpr std::string_view by_rareness = "zqxjkvbpgwymcufdhlrnsiotae"; // then all but letters
    word_byte rarest = byte_at(word, from);
    for (size_t i = from + 1; i < to; i++) {
        const word_byte byte = byte_at(word, i);
        if (by_rareness.find(static_cast<char>(byte.byte)) <
            by_rareness.find(static_cast<char>(rarest.byte))) {
            rarest = byte;
        }
    }
    return rarest;
}

// Whether two bytes of a word stand where they should for one of STRIDE places where it may begin.
// A plain loop of fixed length: compilers make vector instructions of it.
bool may_begin_near(const char *place, word_byte one, word_byte other) {
    unsigned char hits = 0;
    for (size_t i = 0; i < STRIDE; i++) {
        const auto first = static_cast<unsigned char>(place[i + one.at] | one.fold);
        const auto second = static_cast<unsigned char>(place[i + other.at] | other.fold);
        hits |= static_cast<unsigned char>((first == one.byte) & (second == other.byte));
    }
    return hits != 0;
}

bool begins_near(const char *place, size_t places, std::string_view word) {
    for (size_t i = 0; i < places; i++) {
        if (strncasecmp(place + i, word.data(), word.size()) == 0) {
            return true;
        }
    }
    return false;
}

bool holds_ignoring_case(std::string_view text, std::string_view word) {
    if (word.empty() || word.size() > text.size()) {
        return word.empty();
    }
    const size_t half = word.size() / 2;
    const word_byte one = rarest_byte(word, half, word.size());
    const word_byte other = half == 0 ? one : rarest_byte(word, 0, half);
    const char *place = text.data();
    size_t places = text.size() - word.size() + 1;
    for (; places >= STRIDE; places -= STRIDE) {
        if (may_begin_near(place, one, other) && begins_near(place, STRIDE, word)) {
            return true;
        }
        place += STRIDE;
    }
    return begins_near(place, places, word);
}

bool may_hold_a_tag_word(std::string_view text) {
    if (text.find('\\') != std::string_view::npos) {
        decode_text(text, &g_decoded);
        text = g_decoded.view();
    }
    for (int i = 0; i < g_num_tags; i++) {
        if (holds_ignoring_case(text, g_tags[i])) {
            return true;
        }
    }
    return false;
}

// --- files ---------------------------------------------------------------------------------------

// Read a file of ordinary size in one call. Opened beside its directory: going along the whole path
// costs more than all else that is done to a file. False if it can't be read, or not to its end.
bool read_at_once(const tree_entry &entry, const struct stat &file, text_buffer *text) {
    if (!S_ISREG(file.st_mode) || file.st_size > LARGEST_AT_ONCE) {
        return false;
    }
    const int fd =
        openat(entry.dir_fd, entry.name().data(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        return false;
    }
    // One byte more than there should be tells whether the file has grown. It becomes a newline: from
    // memory, unlike from a file, the parser refuses a value that ends with the input.
    text->length = static_cast<size_t>(file.st_size);
    reserve(text, text->length + 1);
    const ssize_t got = read(fd, text->bytes, text->length + 1);
    close(fd);
    text->bytes[text->length] = '\n';
    return got == file.st_size;
}

int window_for(off_t size) {
    return size > USUAL_WINDOW && size <= LARGEST_WINDOW ? static_cast<int>(size) + 1
                                                         : USUAL_WINDOW;
}

// A parser takes an array at the top of a text for what it is, but at the top of a file for an
// object: all other documents read the same from memory.
bool begins_array(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t\n");
    return first != std::string_view::npos && text[first] == '[';
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
    const bool is_read = read_at_once(entry, file, &g_text);
    if (is_read && (g_text.length == 0 || !may_hold_a_tag_word(g_text.view()))) {
        return false;
    }
    vxlb_json_error error;
    const bool is_in_memory = is_read && !begins_array(g_text.view());
    const std::unique_ptr<vxlb_json_t, release_json> json(
        is_in_memory
            ? vxlb_json_init_buffer(g_text.bytes, MAX_NESTING, static_cast<int>(g_text.length) + 1,
                                    &error)
            : vxlb_json_init(entry.path.data(), MAX_NESTING, window_for(file.st_size), &error));
    if (json == nullptr) {
        const int reason = errno;
        report_error("Failed to parse JSON: %s, error - %s\n", entry.path.data(), error.str);
        if (!is_usual_refusal(reason)) {
            report_loss(entry.path.data(), reason);
        }
        return false;
    }
    const std::unique_ptr<vxlb_jsont, release_tree> root(vxlb_json_to_jsont(json.get()));
    if (json->fp != nullptr && ferror(json->fp) != 0) {
        report_loss(entry.path.data(), EIO);
    }
    return root != nullptr && has_matching_tag(root.get());
}
