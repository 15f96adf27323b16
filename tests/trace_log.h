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
#include <string>
#include <unistd.h>
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

// An address as %p takes it.
inline const void *shown(const void *address) {
    return address;
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

    // The messages written since the last call, without their prefixes.
    std::vector<std::string> take() const {
        std::vector<std::string> messages;
        const std::string all = content();
        size_t begin = all.find('\n');
        while (begin != std::string::npos) {
            size_t end = all.find('\n', begin + 1);
            while (end != std::string::npos && (end + 3 >= all.size() || all[end + 3] != '/')) {
                end = all.find('\n', end + 1);
            }
            std::string record =
                all.substr(begin + 1, end == std::string::npos ? end : end - begin - 1);
            for (int bars = 0; bars < 4; bars++) {
                record.erase(0, record.find('|') + 1);
            }
            messages.push_back(record);
            begin = end;
        }
        if (!all.empty() && truncate(path.c_str(), 0) != 0) {
            ADD_FAILURE() << "truncate " << path;
        }
        return messages;
    }
};
