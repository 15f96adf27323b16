// SPDX-License-Identifier: Apache-2.0
#ifndef CAPTURED_STDERR_H
#define CAPTURED_STDERR_H

// Standard error as the library prints on it, in a string. The fuzzer and the sanitizers keep theirs.

#include <cstdio>
#include <string>
#include <utility>

struct CapturedStderr {
    std::string text;
    CapturedStderr() {
        stderr = fopencookie(&text, "w", {nullptr, write, nullptr, nullptr});
        setvbuf(stderr, nullptr, _IONBF, 0);
    }
    static ssize_t write(void *cookie, const char *bytes, size_t size) {
        static_cast<std::string *>(cookie)->append(bytes, size);
        return static_cast<ssize_t>(size);
    }
    std::string take() { return std::exchange(text, ""); }
};

#endif
