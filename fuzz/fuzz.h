// SPDX-License-Identifier: Apache-2.0
#ifndef FUZZ_H
#define FUZZ_H

// What every target uses: a check that stops the run, and a reader of the input's bytes.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

static inline void check(bool good) {
    if (!good) {
        abort();
    }
}

// Smaller quarantine and shorter call stacks than usual: both cost more than the library's own work.
// The environment's ASAN_OPTIONS go before these.
extern "C" __attribute__((visibility("default"))) const char *__asan_default_options();
const char *__asan_default_options() {
    return "malloc_context_size=2:quarantine_size_mb=16";
}

// Takes an input apart from its front; behind its end everything is zero or empty.
struct Input {
    const uint8_t *at;
    size_t left;
    bool is_empty() const { return left == 0; }
    unsigned byte() {
        if (left == 0) {
            return 0;
        }
        left--;
        return *at++;
    }
    std::string text(size_t length) {
        length = std::min(length, left);
        std::string taken(reinterpret_cast<const char *>(at), length);
        at += length;
        left -= length;
        return taken;
    }
    // A text without zero bytes, whose length goes before it.
    std::string name(unsigned limit) {
        const std::string taken = text(byte() % (limit + 1));
        return taken.c_str();
    }
    std::string rest() { return text(left); }
};

#endif
