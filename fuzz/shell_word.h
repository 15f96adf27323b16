// SPDX-License-Identifier: Apache-2.0
#ifndef SHELL_WORD_H
#define SHELL_WORD_H

#include <cctype>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

// What a shell makes of a text that ought to be one word without anything to run or expand.
static inline std::optional<std::string> read_by_shell(std::string_view word) {
    std::string read;
    bool is_quoted = false;
    for (size_t i = 0; i < word.size(); i++) {
        const bool is_plain = isalnum(static_cast<unsigned char>(word[i])) != 0 ||
                              strchr("_.@+-/", word[i]) != nullptr;
        if (word[i] == '\'') {
            is_quoted = !is_quoted;
        } else if (is_quoted || is_plain) {
            read += word[i];
        } else if (word[i] == '\\' && i + 1 < word.size()) {
            read += word[++i];
        } else {
            return {};
        }
    }
    return is_quoted ? std::nullopt : std::optional(read);
}

#endif
