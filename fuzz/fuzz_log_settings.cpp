// SPDX-License-Identifier: Apache-2.0
// LIB_DEBUG and module-mask lines beside plain models of their readers.
//
//     the line

#include <libvxcore/vxlb_log.h>

#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "captured_stderr.h"
#include "fuzz.h"

namespace {

std::vector<std::string> words_of(std::string_view line, std::string_view blanks, size_t most,
                                  size_t longest) {
    const auto is_blank = [&](char c) { return blanks.find(c) != std::string_view::npos; };
    std::vector<std::string> words;
    for (size_t at = 0; at < line.size() && words.size() < most;) {
        size_t end = at;
        while (end < line.size() && end < at + longest && !is_blank(line[end])) {
            end++;
        }
        if (end > at) {
            words.emplace_back(line.substr(at, end - at));
        }
        at = end == at ? at + 1 : end;
    }
    return words;
}

std::optional<uint64_t> value_of(const std::string &word, uint64_t before) {
    static const std::pair<const char *, uint64_t> modules[] = {
        {"ALL", UINT64_MAX}, {"SEARCH", 1},  {"HESSIAN", 2},   {"HASH", 4},     {"AUTH", 8},
        {"API", 0x10},       {"MISC", 0x20}, {"MEMORY", 0x40}, {"TOPO", 0x100},
    };
    if (isalpha(static_cast<unsigned char>(word[0])) != 0) {
        for (const auto &[name, bit] : modules) {
            if (strcasecmp(name, word.c_str()) == 0) {
                return bit;
            }
        }
        return {};
    }
    if (word.compare(0, 2, "0x") == 0) {
        const bool has_digit = isxdigit(static_cast<unsigned char>(word[2])) != 0;
        return has_digit ? strtoull(word.c_str(), nullptr, 16) : before;
    }
    return strtoull(word.c_str(), nullptr, 10);
}

// The mask, or the word that is wrong.
std::pair<std::optional<uint64_t>, std::string> read_mask(std::string_view line) {
    line.remove_suffix(line.ends_with('\n') ? 1 : 0);
    const auto words = words_of(line, " ", 100, line.size());
    uint64_t mask = 0;
    uint64_t value = 0;
    bool is_negated = false;
    for (size_t i = 1; i < words.size(); i++) {
        if (words[i] == "~") {
            is_negated = true;
            if (++i == words.size()) {
                break;
            }
        }
        const auto read = value_of(words[i], value);
        if (!read) {
            return {{}, words[i]};
        }
        value = *read;
        mask = is_negated ? mask & ~value : mask + value;
    }
    return {mask, ""};
}

void check_mask(const char *line, size_t length) {
    const auto [mask, wrong] = read_mask(std::string_view(line, length));
    char *message = Pieces::take(length + 71);
    message[0] = '\0';
    vxlb_util_set_modulemask(12345);
    check(set_vxlb_modulemask(line, message) == (mask ? 0 : -1));
    check(lib_module_mask == mask.value_or(12345));
    check(mask
              ? message[0] == '\0'
              : "ZylErr[1011357]: Provided Modulemask '" + wrong + "' is not a valid modulemask." ==
                    message);
}

void check_level(const char *line) {
    static CapturedStderr printed;
    const auto words = words_of(line, " \t\n\v\f\r", 3, 511);
    const std::string value = words.size() < 2 ? "" : words[1];
    const bool is_number = value.find_first_not_of("0123456789") == std::string::npos;
    const int number = static_cast<int>(strtol(value.c_str(), nullptr, 10));
    const uint32_t known[] = {0, 0xFF, 0xFFFF, 0xFFFFFF, 0xFFFFFFFF};
    const auto level = number >= 0 && number <= 4 ? known[number] : static_cast<uint32_t>(number);
    vxlb_util_set_debug_log_level(77);
    check(set_vxlb_debug(line) == (is_number ? 0 : -1));
    check(vxlb_log_level == (is_number ? level : 77));
    const std::string keyword = words.empty() ? "" : words[0];
    check(printed.take() == (words.size() < 2 ? "Invalid argument to keyword " + keyword +
                                                    ", should be atleast two (LIB_DEBUG <level>)\n"
                                              : "") +
                                (is_number ? "" : "Error: Value of LIB_DEBUG is not numeric"));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces::forget();
    const std::string_view line = until_zero(Input{data, size}.rest());
    const char *text = Pieces::copy(line);
    check_mask(text, line.size());
    check_level(text);
    return 0;
}
