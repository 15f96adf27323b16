// SPDX-License-Identifier: Apache-2.0
// Tag decoding beside a plain model that looks at six characters at a time.

#include "scenario_tags.h"

#include <cctype>

#include "fuzz.h"

namespace {

// The number of four hexadecimal digits that begin a text, or -1.
int code_of(std::string_view text) {
    int code = 0;
    for (size_t i = 0; i < 4; i++) {
        const int c = i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
        if (isxdigit(c) == 0) {
            return -1;
        }
        code = code * 16 + (c <= '9' ? c - '0' : (c | 32) - 'a' + 10);
    }
    return code;
}

std::string decode_plainly(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size();) {
        const bool is_escape = text[i] == '\\' && i + 1 < text.size() && text[i + 1] == 'u';
        const size_t digits = is_escape ? i + 2 : i + 1;
        const int code = is_escape || text[i] == '\0' ? code_of(text.substr(digits)) : -1;
        if (code == -1 && text[i] != '\0') {
            out += text[i];
        } else if (code >= 1 && code <= 127) {
            out += static_cast<char>(code);
        }
        i = code == -1 ? i + 1 : digits + 4;
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces::forget();
    const std::string_view tag(Pieces::copy(Input{data, size}.rest()), size);
    char *decoded = Pieces::take(size + 1);
    const size_t length = decode_unicode(tag, decoded);
    check(decoded[length] == '\0' && std::string_view(decoded, length) == decode_plainly(tag));
    return 0;
}
