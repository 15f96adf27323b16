// SPDX-License-Identifier: Apache-2.0
// Texts for tests: made by printf formats, changed by patterns, read from files and from standard
// error; tables of cases that are texts; a temporary directory.
#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

__attribute__((format(printf, 1, 2))) inline std::string text(const char *format, ...) {
    char *made = nullptr;
    va_list args;
    va_start(args, format);
    const int len = vasprintf(&made, format, args);
    va_end(args);
    std::string result(made, static_cast<size_t>(len));
    free(made);
    return result;
}

inline std::string replaced(const std::string &all, const std::string &what, const char *by) {
    return std::regex_replace(all, std::regex(what), by);
}

// A text with its dates replaced by the word DATE.
inline std::string undated(const std::string &all) {
    return replaced(all, "\\d\\d/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d", "DATE");
}

// A table of cases in a text: "input -> output", apart by semicolons or newlines. It comes back
// with the outputs that a function gives, so that one comparison tests and shows all of them.
template <typename Function> std::string retold(const std::string &table, Function output) {
    std::string told;
    for (size_t at = 0, end = 0; at < table.size(); at = end) {
        end = std::min(table.find_first_of(";\n", at), table.size() - 1) + 1;
        const size_t arrow = std::min(table.find(" -> ", at), end);
        const size_t begin = std::min(table.find_first_not_of(' ', at), arrow);
        const std::string input = table.substr(begin, arrow - begin);
        told += table.substr(at, arrow - at) + " -> " + output(input) + table.substr(end - 1, 1);
    }
    return told;
}

// What a call writes to standard error.
template <typename Call> std::string said(Call call) {
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

inline std::string file_text(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

struct TempDir {
    std::string path;
    TempDir() {
        char name[] = "/tmp/vxlb_test_XXXXXX";
        path = mkdtemp(name);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    std::string operator/(const char *name) const { return path + "/" + name; }
};
