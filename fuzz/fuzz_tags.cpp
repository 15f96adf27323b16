// SPDX-License-Identifier: Apache-2.0
// Tag decoding beside a plain model that looks at six characters at a time.

#include "scenario_tags.h"

#include <cctype>

#include "fuzz.h"

namespace {

std::string decode_plainly(const std::string &text) {
    const auto has_digits = [](const std::string &all, size_t at) {
        for (size_t i = at; i < at + 4; i++) {
            if (i >= all.size() || isxdigit(static_cast<unsigned char>(all[i])) == 0) {
                return false;
            }
        }
        return true;
    };
    std::string out;
    for (size_t i = 0; i < text.size();) {
        const size_t digits = text[i] == '\0'                        ? i + 1
                              : text.compare(i, 2, "\\u", 0, 2) == 0 ? i + 2
                                                                     : 0;
        if (digits != 0 && has_digits(text, digits)) {
            const int code = std::stoi(text.substr(digits, 4), nullptr, 16);
            out += code >= 1 && code <= 127 ? std::string(1, static_cast<char>(code)) : "";
            i = digits + 4;
        } else {
            out += text[i] == '\0' ? "" : std::string(1, text[i]);
            i++;
        }
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string tag(reinterpret_cast<const char *>(data), size);
    std::string decoded(size + 1, 'x');
    const size_t length = decode_unicode(tag, decoded.data());
    check(decoded[length] == '\0' && decoded.substr(0, length) == decode_plainly(tag));
    return 0;
}
