// SPDX-License-Identifier: Apache-2.0
// What tests of traced modules share: a temporary directory, a debug log in it with everything
// switched on, and texts made by printf formats.
#pragma once

#include <libvxcore/vxlb_log.h>

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

// A table of cases in a text: "input -> output", apart by semicolons or newlines. It comes back with
// the outputs that a function gives, so that one comparison tests and shows all of them.
template <typename Function> std::string retold(const std::string &table, Function output) {
    std::string told;
    for (size_t at = 0, end = 0; at < table.size(); at = end) {
        end = std::min(table.find_first_of(";\n", at), table.size() - 1) + 1;
        const size_t begin = std::min(table.find_first_not_of(' ', at), end);
        const size_t arrow = std::min(table.find(" -> ", begin), end);
        const std::string input = table.substr(begin, arrow - begin);
        told += table.substr(at, arrow - at);
        told += arrow < end ? " -> " + output(input) + table.substr(end - 1, 1) : "";
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

// The debug log of one test; everything about the log is put back at its end.
struct TraceLog {
    TempDir dir;
    std::string path = dir / "trace.log";

    explicit TraceLog(uint64_t mask = UINT64_MAX, int level = -1) {
        vxlb_util_set_log_filename(path.c_str(), "");
        vxlb_util_set_debug_log_level(level);
        vxlb_util_set_modulemask(mask);
    }
    ~TraceLog() {
        vxlb_close_log_fd();
        vxlb_util_set_log_filename("", "");
        vxlb_util_set_debug_log_level(0);
        vxlb_util_set_modulemask(0);
        vxlb_util_set_debug_log_size(100000000);
    }
    std::string content() const { return file_text(path); }

    // The messages since the last call, one a line, without their prefixes. Addresses show as the
    // names that are given for them, or as "@"; a blank at a line's end shows as "_".
    std::string take(const std::vector<std::pair<const void *, const char *>> &names = {}) const {
        std::string all = undated(content() + "\n");
        EXPECT_EQ(0, all == "\n" ? 0 : truncate(path.c_str(), 0));
        all = replaced(all, "\nDATE\\|[^|]*\\|[^|]*\\|[^|]*\\|", "\n").substr(1);
        for (const auto &[address, name] : names) {
            all = replaced(all, text("%p\\b", address), name);
        }
        return replaced(replaced(all, "0x[0-9a-f]+", "@"), " \n", "_\n");
    }
};
