// SPDX-License-Identifier: Apache-2.0
#ifndef FUZZ_MEMORY_H
#define FUZZ_MEMORY_H

// The sanitizer's malloc takes longer than most calls that are tried here. So what a target hands to the
// library lies in pieces of one array, guarded to the byte by hand; and what a model allocates, which needs
// no guard, comes from lists of free blocks. The library's own allocations stay the sanitizer's.

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
    static void forget() {
        if (__asan_poison_memory_region != nullptr) {
            __asan_poison_memory_region(memory, used);
        }
        used = GAP;
    }
};

#ifdef VX_BUILD_FUZZ
// Blocks of models, kept by size and never given back.
namespace blocks {
constexpr size_t STEP = 32, SIZES = 64, CHUNK = 1 << 20;
union Block {
    Block *next;
    size_t place; // in `kept`, while it is in use
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
    const size_t place = (size + sizeof(blocks::Block) + blocks::STEP - 1) / blocks::STEP;
    blocks::Block *block;
    if (place >= blocks::SIZES) {
        block = static_cast<blocks::Block *>(malloc(size + sizeof(blocks::Block)));
    } else if (blocks::kept[place] != nullptr) {
        block = std::exchange(blocks::kept[place], blocks::kept[place]->next);
    } else {
        block = blocks::carve(place * blocks::STEP);
    }
    block->place = place;
    return block + 1;
}
void operator delete(void *memory) noexcept {
    if (memory == nullptr) {
        return;
    }
    auto *block = static_cast<blocks::Block *>(memory) - 1;
    const size_t place = block->place;
    if (place >= blocks::SIZES) {
        return free(block);
    }
    block->next = std::exchange(blocks::kept[place], block);
}
void operator delete(void *memory, size_t) noexcept {
    operator delete(memory);
}
#endif

#endif
