// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

// The bytes of a text from one offset up to another, both within it. string_view's own substr
// throws, and would bind the command to the C++ run-time library.
constexpr std::string_view text_part(std::string_view text, size_t from, size_t to) {
    return {text.data() + from, to - from};
}
