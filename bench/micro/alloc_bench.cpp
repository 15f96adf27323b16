// SPDX-License-Identifier: Apache-2.0
// Tracked allocation with tracing and map off, and what a disabled trace costs.
//
// A pair is an allocation and a release. In "pair" they follow each other; in "burst" a hundred
// blocks live before the first one goes, and the blocks' first byte is written.
#include "compare.h"

#include <libvxcore/vxlb_alloc.h>

namespace {

constexpr int PAIRS = 1000000;
constexpr int LIVE = 100;

void tracked_pairs(size_t size) {
    for (int i = 0; i < PAIRS; i++) {
        char *block = nullptr;
        VXLB_MALLOC(block, size, "block");
        benchmark::DoNotOptimize(reinterpret_cast<uintptr_t>(block));
        VXLB_FREE(block, "block", -1);
    }
}

void plain_pairs(size_t size) {
    for (int i = 0; i < PAIRS; i++) {
        char *const block = static_cast<char *>(malloc(size));
        benchmark::DoNotOptimize(reinterpret_cast<uintptr_t>(block));
        free(block);
    }
}

void tracked_bursts(size_t size) {
    static char *live[LIVE];
    for (int i = 0; i < PAIRS; i += LIVE) {
        for (char *&block : live) {
            VXLB_MALLOC(block, size, "block");
            *block = 'x';
        }
        for (char *block : live) {
            VXLB_FREE(block, "block", -1);
        }
    }
}

void plain_bursts(size_t size) {
    static char *live[LIVE];
    for (int i = 0; i < PAIRS; i += LIVE) {
        for (char *&block : live) {
            block = static_cast<char *>(malloc(size));
            *block = 'x';
        }
        for (char *block : live) {
            free(block);
        }
    }
}

// The settings as the log's header has them, tested the plainest way. Their values stay unknown to
// the compiler.
} // namespace

uint32_t bench_bare_level;
uint64_t bench_bare_mask;

namespace {

void disabled_traces() {
    for (int i = 0; i < PAIRS; i++) {
        vxlb_debug_log_ex(VXLB_LEVEL_2, VXLB_MOD_MISC, __FILE__, __LINE__, __func__, "i = %d", i);
        benchmark::ClobberMemory();
    }
}

void bare_tests() {
    for (int i = 0; i < PAIRS; i++) {
        if ((bench_bare_level & VXLB_LEVEL_2) != 0 && (bench_bare_mask & VXLB_MOD_MISC) != 0) {
            printf("%d", i);
        }
        benchmark::ClobberMemory();
    }
}

} // namespace

int main(int argc, char **argv) {
    rounds::init(argc, argv);
    for (const size_t size : {24, 100, 1000, 4000, 40000}) {
        const std::string bytes = std::to_string(size) + " bytes";
        rounds::arms({.group = "alloc", .name = "tracked pair, " + bytes, .items = PAIRS},
                     {{"ours", "", [=] { tracked_pairs(size); }},
                      {"malloc and free", "<=1.20", [=] { plain_pairs(size); }}});
        rounds::arms({.group = "alloc", .name = "tracked burst, " + bytes, .items = PAIRS},
                     {{"ours", "", [=] { tracked_bursts(size); }},
                      {"malloc and free", "<=1.20", [=] { plain_bursts(size); }}});
    }
    // No call is what counts, and the instructions show that: times of one nanosecond depend on where
    // the loops lie. Ours reads the settings as a program with threads has to, one instruction more.
    rounds::arms({.group = "log", .name = "disabled trace", .items = PAIRS},
                 {{"ours", "", [] { disabled_traces(); }},
                  {"test of two globals", "", [] { bare_tests(); }}});
    return 0;
}
