// SPDX-License-Identifier: Apache-2.0
// Large tables that are read all over spend much of their time on address translation. Where the system
// leaves the choice to programs, a block that is filled at once anyway is asked to use large pages.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <sys/mman.h>

// A hint: errno is kept, refusal means nothing. Blocks of less than two such pages are left alone.
static inline void vxlb_use_large_pages(void *block, size_t size) {
    constexpr uintptr_t LARGE_PAGE = uintptr_t{1} << 21;
    if (size < 2 * LARGE_PAGE) {
        return;
    }
    const uintptr_t address = reinterpret_cast<uintptr_t>(block);
    const size_t before = (LARGE_PAGE - address % LARGE_PAGE) % LARGE_PAGE;
    const size_t whole = (size - before) / LARGE_PAGE * LARGE_PAGE;
    const int reason = errno;
    madvise(static_cast<char *>(block) + before, whole, MADV_HUGEPAGE);
    errno = reason;
}
