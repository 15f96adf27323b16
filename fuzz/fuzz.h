// SPDX-License-Identifier: Apache-2.0
#ifndef FUZZ_H
#define FUZZ_H

// What every target uses: a check that stops the run, and a reader of the input's bytes.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "memory.h"

static inline void check(bool good) {
    if (!good) {
        abort();
    }
}

// A smaller quarantine than usual and no call stacks of allocations: both cost more than the library's own
// work. The environment's ASAN_OPTIONS go before these: a finding is looked at with malloc_context_size=30.
extern "C" __attribute__((visibility("default"))) const char *__asan_default_options();
const char *__asan_default_options() {
    return "malloc_context_size=0:quarantine_size_mb=1:thread_local_quarantine_size_kb=64";
}

static inline std::string_view until_zero(std::string_view text) {
    return text.substr(0, text.find('\0'));
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
    std::string_view text(size_t length) {
        length = std::min(length, left);
        const std::string_view taken(reinterpret_cast<const char *>(at), length);
        at += length;
        left -= length;
        return taken;
    }
    std::string_view rest() { return text(left); }
    // A text without zero bytes, whose length goes before it.
    std::string name(unsigned limit) { return std::string(until_zero(text(byte() % (limit + 1)))); }
};

#endif
