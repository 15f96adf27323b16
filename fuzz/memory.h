// SPDX-License-Identifier: Apache-2.0
#ifndef FUZZ_MEMORY_H
#define FUZZ_MEMORY_H

// The sanitizer's malloc takes longer than most calls that are tried here. So what a target hands to the
// library lies in pieces of one array, guarded to the byte by hand; and what a model allocates, which needs
// no guard, comes from lists of free blocks. The library's own allocations stay the sanitizer's.

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

// Not there in programs without the sanitizer.
extern "C" {
__attribute__((weak)) void __asan_poison_memory_region(const volatile void *, size_t);
__attribute__((weak)) void __asan_unpoison_memory_region(const volatile void *, size_t);
__attribute__((weak)) void __msan_allocated_memory(const volatile void *, size_t);
}

// Pieces last until the next input.
class Pieces {
    static constexpr size_t ROOM = 16 << 20, GAP = 32;
    alignas(16) static inline char memory[ROOM];
    static inline size_t used = ROOM; // so that all is guarded the first time

public:
    static char *take(size_t size) {
        char *piece = memory + used;
        used += (size + 2 * GAP - 1) / GAP * GAP;
        if (used > ROOM) {
            abort();
        }
        if (__asan_unpoison_memory_region != nullptr) {
            __asan_unpoison_memory_region(piece, size);
        }
        if (__msan_allocated_memory != nullptr) {
            __msan_allocated_memory(piece, size);
        }
        return piece;
    }
    static char *zeroed(size_t size) { return static_cast<char *>(memset(take(size), 0, size)); }
    // A text with a zero byte behind it.
    static char *copy(std::string_view text) {
        char *piece = take(text.size() + 1);
        memcpy(piece, text.data(), text.size());
        piece[text.size()] = '\0';
        return piece;
    }
    static std::string_view repeat(char c, size_t size) {
        char *piece = take(size + 1);
        memset(piece, c, size);
        piece[size] = '\0';
        return {piece, size};
    }
    static void forget() {
        if (__asan_poison_memory_region != nullptr) {
            __asan_poison_memory_region(memory, used);
        }
        used = GAP;
    }
};

#ifdef VX_BUILD_FUZZ
// Blocks of models, kept by the power of two that holds them and never given back.
namespace blocks {
constexpr size_t SMALLEST = 5, SIZES = 21, CHUNK = size_t{1} << SIZES;
union Block {
    Block *next;
    size_t power; // while it is in use
    std::max_align_t alignment;
};
inline Block *kept[SIZES];
inline char *chunk;
inline size_t left;

static inline Block *carve(size_t size) {
    if (left < size) {
        chunk = static_cast<char *>(malloc(CHUNK));
        left = CHUNK;
    }
    left -= size;
    return reinterpret_cast<Block *>(chunk + left);
}
} // namespace blocks

void *operator new(size_t size) {
    using namespace blocks;
    const size_t power = std::max(SMALLEST, std::bit_width(size + sizeof(Block) - 1) + size_t{0});
    Block *block;
    if (power >= SIZES) {
        block = static_cast<Block *>(malloc(size + sizeof(Block)));
    } else if (kept[power] != nullptr) {
        block = std::exchange(kept[power], kept[power]->next);
    } else {
        block = carve(size_t{1} << power);
    }
    block->power = power;
    return block + 1;
}
void operator delete(void *memory) noexcept {
    using namespace blocks;
    if (memory == nullptr) {
        return;
    }
    auto *block = static_cast<Block *>(memory) - 1;
    const size_t power = block->power;
    if (power >= SIZES) {
        return free(block);
    }
    block->next = std::exchange(kept[power], block);
}
void operator delete(void *memory, size_t) noexcept {
    operator delete(memory);
}
#endif

#endif
