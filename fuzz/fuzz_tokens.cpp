// SPDX-License-Identifier: Apache-2.0
// Both tokenizers, the digits test and the shell word, each beside a model that works on a copy.
//
//     most fields | length of the delimiter | delimiter | text

#include <libvxcore/vxlb_util.h>

#include <cstring>
#include <memory>
#include <vector>

#include "fuzz.h"
#include "shell_word.h"

namespace {

using Fields = std::vector<std::string>;

Fields split_at_any(const std::string &text, const std::string &set) {
    Fields fields;
    for (size_t at = 0; at < text.size();) {
        const size_t begin = text.find_first_not_of(set, at);
        const size_t end = std::min(text.find_first_of(set, begin), text.size());
        if (begin != std::string::npos) {
            fields.push_back(text.substr(begin, end - begin));
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
        fields.push_back(text.substr(begin, end - begin));
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
void check_fields(Tokenizer tokenizer, const std::string &text, const std::string &token, int limit,
                  Fields expected) {
    const std::unique_ptr<char, decltype(&free)> copy(strdup(text.c_str()), free);
    const auto count = std::min(expected.size(), static_cast<size_t>(limit));
    const auto fields = std::make_unique<char *[]>(static_cast<size_t>(limit));
    check(tokenizer(copy.get(), fields.get(), token.c_str(), limit) == static_cast<int>(count));
    for (size_t i = 0; i < count; i++) {
        check(expected[i] == fields[i]);
        check(fields[i] >= copy.get() && fields[i] <= copy.get() + text.size());
    }
}

void check_shell_word(const std::string &text, size_t room) {
    const size_t length = vxlb_shell_word(text.c_str(), "/", nullptr, 0);
    const auto whole = std::make_unique<char[]>(length + 1);
    check(vxlb_shell_word(text.c_str(), "/", whole.get(), length + 1) == length);
    check(strlen(whole.get()) == length && read_by_shell(whole.get()) == text);
    const auto cut = std::make_unique<char[]>(room);
    check(vxlb_shell_word(text.c_str(), "/", cut.get(), room) == length);
    check(room == 0 || std::string(whole.get(), std::min(length, room - 1)) == cut.get());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input in = {data, size};
    const int limit = static_cast<int>(in.byte() % 20);
    const std::string token = in.name(5);
    const std::string text = in.rest().c_str();
    check_fields(get_tokens, text, token, limit, split_at_any(text, token));
    check_fields(vxlb_get_tokens, text, token, limit, split_at_text(text, token));
    const bool is_number =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    check(vx_is_numeric(text.c_str()) == (is_number ? 1 : 0));
    check_shell_word(text, static_cast<size_t>(limit));
    return 0;
}
