// SPDX-License-Identifier: Apache-2.0
// Both tokenizers, the digits test and the shell word, each beside a model that works on a copy.
//
//     most fields | length of the delimiter | delimiter | text

#include <libvxcore/vxlb_util.h>

#include <cstring>
#include <vector>

#include "fuzz.h"
#include "shell_word.h"

namespace {

using Fields = std::vector<std::string_view>;

Fields split_at_any(const std::string &text, const std::string &set) {
    Fields fields;
    for (size_t at = 0; at < text.size();) {
        const size_t begin = text.find_first_not_of(set, at);
        const size_t end = std::min(text.find_first_of(set, begin), text.size());
        if (begin != std::string::npos) {
            fields.push_back(std::string_view(text).substr(begin, end - begin));
        }
        at = begin == std::string::npos ? text.size() : end;
    }
    return fields;
}

Fields split_at_text(const std::string &text, const std::string &token) {
    Fields fields;
    for (size_t at = 0;;) {
        const bool is_quoted = text[at] == '"'; // behind the last byte there is a zero
        const size_t begin = at + (is_quoted ? 1 : 0);
        const size_t quote =
            is_quoted && begin < text.size() ? text.find('"', begin + 1) : std::string::npos;
        const size_t from = quote == std::string::npos ? begin : std::min(quote + 2, text.size());
        const size_t next = token.empty() ? std::string::npos : text.find(token, from);
        const size_t end = quote != std::string::npos ? quote + 1 : std::min(next, text.size());
        fields.push_back(std::string_view(text).substr(begin, end - begin));
        if (next == std::string::npos) {
            return fields;
        }
        for (at = next; text.compare(at, token.size(), token) == 0;) {
            at += token.size();
        }
    }
}

// The text is in an array of its exact size, so that the sanitizer sees any byte beyond.
template <typename Tokenizer>
void check_fields(Tokenizer tokenizer, std::string_view text, const char *token, int limit,
                  const Fields &expected) {
    char *copy = Pieces::copy(text);
    const auto count = std::min(expected.size(), static_cast<size_t>(limit));
    char **fields =
        reinterpret_cast<char **>(Pieces::take(static_cast<size_t>(limit) * sizeof *fields));
    check(tokenizer(copy, fields, token, limit) == static_cast<int>(count));
    for (size_t i = 0; i < count; i++) {
        check(expected[i] == fields[i]);
        check(fields[i] >= copy && fields[i] <= copy + text.size());
    }
}

void check_shell_word(const char *text, size_t room) {
    const size_t length = vxlb_shell_word(text, "/", nullptr, 0);
    char *whole = Pieces::take(length + 1);
    check(vxlb_shell_word(text, "/", whole, length + 1) == length);
    check(strlen(whole) == length && read_by_shell(whole) == text);
    const bool is_plain = std::all_of(text, text + strlen(text), [](unsigned char c) {
        return isalnum(c) != 0 || strchr("_.@+-/", c) != nullptr;
    });
    check(is_plain == (strcmp(text, whole) == 0));
    char *cut = Pieces::take(room);
    memset(cut, 'x', room);
    check(vxlb_shell_word(text, "/", cut, room) == length);
    check(room == 0 || std::string_view(whole, std::min(length, room - 1)) == cut);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces::forget();
    Input in = {data, size};
    const int limit = static_cast<int>(in.byte() % 20);
    const std::string token = in.name(5);
    const std::string text(until_zero(in.rest()));
    const char *own_token = Pieces::copy(token);
    const char *own_text = Pieces::copy(text);
    check_fields(get_tokens, text, own_token, limit, split_at_any(text, token));
    check_fields(vxlb_get_tokens, text, token.empty() ? nullptr : own_token, limit,
                 split_at_text(text, token)); // a null delimiter is none
    const bool is_number =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    check(vx_is_numeric(own_text) == (is_number ? 1 : 0));
    check_shell_word(own_text, static_cast<size_t>(limit));
    return 0;
}
