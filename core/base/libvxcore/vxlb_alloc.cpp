// SPDX-License-Identifier: Apache-2.0
// The roads of tracked allocation that trace, report or fail; the road that does none of it is in
// the header, in line.
//
// A block is made, marked, counted and traced here; the macro then stores it in the caller's
// variable and only after that reports it. The order matters to the allocation map, whose own array
// is resized through these wrappers: the report of the new array is recorded in that array.
#include <libvxcore/vxlb_alloc.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The thread's variables are parts of this one. Their names are given to the assembler, which unlike
// the compiler can name a part.
__attribute__((used)) __thread vxlb_alloc_state vxlb_alloc_thread_state;

#define NAME_PART(name, size, offset)                            \
    static_assert(sizeof(name) == (size), "the size of " #name); \
    __asm__(".globl " #name "\n"                                 \
            ".type " #name ", STT_TLS\n"                         \
            ".size " #name ", " #size "\n"                       \
            ".set " #name ", vxlb_alloc_thread_state + " #offset)

static_assert(offsetof(vxlb_alloc_state, allocated) == 0, "g_mem_allocated comes first");
NAME_PART(g_mem_allocated, 4, 0);
NAME_PART(g_c_alloc_count, 4, 4);
NAME_PART(g_alloc_count, 4, 8);
static_assert(offsetof(vxlb_alloc_state, freed) == 16, "where g_mem_freed is");
NAME_PART(g_mem_freed, 4, 16);
NAME_PART(g_c_free_count, 4, 20);
NAME_PART(g_free_count, 4, 24);
static_assert(offsetof(vxlb_alloc_state, c_mem_allocated) == 32, "where g_c_mem_allocated is");
NAME_PART(g_c_mem_allocated, 8, 32);
NAME_PART(g_c_mem_freed, 8, 40);
static_assert(offsetof(vxlb_alloc_state, settings) == 48, "where mem_map_entry_max is");
NAME_PART(mem_map_entry_max, 4, 48);
NAME_PART(g_alloc_extra_size, 4, 52);

__thread uint64_t g_c_shared_mem_allocated;
__thread uint32_t g_shared_mem_allocated;
__thread uint32_t g_c_shared_mem_alloc_count;
__thread uint32_t g_shared_mem_alloc_count;

// The traces below name the wrapper's call site, not this file.
#define TRACE(level, ...) vxlb_debug_log_ex(level, VXLB_MOD_MEMORY, file, line, func, __VA_ARGS__)

size_t vxlb_get_mem_chunk_size(char *, size_t size) {
    return size;
}

static double megabytes(uint64_t bytes) {
    return static_cast<double>(bytes) / 1048576.0;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat" // the ' flag groups digits where a locale is set
static void trace_statistics(const char *file, int line, const char *func) {
    TRACE(
        VXLB_LEVEL_1,
        "MEM_STATS: Cumulative allocated memory = %'.3f MB, periodic allocated memory = %'.3f MB, "
        "Cumulative freed memory = %'.3f MB, periodic freed memory = %'.3f MB, "
        "Cumulative Net allocated memory =  %'.3f MB, Periodic Net allocated memory =  %'.3f MB",
        megabytes(g_c_mem_allocated), megabytes(g_mem_allocated), megabytes(g_c_mem_freed),
        megabytes(g_mem_freed), megabytes(g_c_mem_allocated - g_c_mem_freed),
        megabytes(g_mem_allocated - g_mem_freed));
}
#pragma GCC diagnostic pop

// Bytes that a block takes with its extra bytes and its marker; false when no size can say it.
static bool get_system_size(size_t size, size_t *total) {
    return !__builtin_add_overflow(size, g_alloc_extra_size, total) &&
           !__builtin_add_overflow(*total, VXLB_ALLOC_TAIL_SIZE, total);
}

static_assert(sizeof(VXLB_ALLOC_MARK) == VXLB_ALLOC_TAIL_SIZE,
              "the marker's NUL is the spare byte");

static void mark(char *block, size_t system_size) {
    memcpy(block + system_size - VXLB_ALLOC_TAIL_SIZE, VXLB_ALLOC_MARK, VXLB_ALLOC_TAIL_SIZE);
}

// Requested size and extra bytes, as traces and the map show it.
static long shown_size(size_t size) {
    return static_cast<long>(size) + g_alloc_extra_size;
}

void vxlb_malloc_exhausted(size_t size, const char *label, const char *file, int line,
                           const char *func) {
    fprintf(stderr, "VXLB: %s|%d|%s| Out of Memory (size = %d): %s \n", file, line, func,
            static_cast<int>(size), label);
    exit(-1);
}

void *vxlb_malloc_traced(size_t size, int is_negative, const char *label, const char *file,
                         int line, const char *func) {
    TRACE(VXLB_LEVEL_2, "size = %ld", static_cast<long>(size));
    if (is_negative != 0) {
        fprintf(stderr, "%s|%d|%s|%s|VXLB: Trying to malloc a negative size (%ld)\n", file, line,
                func, label, static_cast<long>(size));
        exit(-1);
    }
    if (size == 0) {
        TRACE(VXLB_LEVEL_2, "VXLB: Trying to malloc a 0 size\n");
        return nullptr;
    }
    size_t system_size = 0;
    char *block = nullptr;
    if (get_system_size(size, &system_size)) {
        block = static_cast<char *>(malloc(system_size));
    }
    if (block == nullptr) {
        vxlb_malloc_exhausted(size, label, file, line, func);
    }
    const size_t charged = vxlb_get_mem_chunk_size(block, size);
    mark(block, system_size);
    TRACE(VXLB_LEVEL_2, "VXLB_MALLOC'ed (%s) done. ptr = %p, size = %ld, allocated size = %ld",
          label, static_cast<void *>(block), shown_size(size), static_cast<long>(charged));
    vxlb_count_allocated(charged);
    trace_statistics(file, line, func);
    return block;
}

[[noreturn]] static void die_of_size(size_t size, const char *label, int index, const char *file,
                                     int line, const char *func) {
    fprintf(stderr, "%s|%d|%s|%s|VXLB: Trying to realloc a negative or 0 size (%ld) for index %d\n",
            file, line, func, label, static_cast<long>(size), index);
    exit(-1);
}

// The caller's errno is the system's reason.
[[noreturn]] static void abort_for_memory(size_t size, const char *label, int index,
                                          const char *file, int line, const char *func) {
    const int reason = errno;
    fprintf(stderr,
            "VXLB: ERROR %d|%s|%d|%s| Out of Memory (size = %d): %s for index %d err msg %s\n",
            reason, file, line, func, static_cast<int>(size), label, index, strerror(reason));
    abort();
}

// Resize a block that the map does not know any more.
static char *resize(char *block, size_t size, size_t *system_size) {
    if (!get_system_size(size, system_size)) {
        errno = ENOMEM;
        return nullptr;
    }
    return static_cast<char *>(realloc(block, *system_size));
}

void *vxlb_realloc_traced(void *old_block, size_t size, int is_negative, const char *label,
                          int64_t previous_size, int index, const char *file, int line,
                          const char *func) {
    TRACE(VXLB_LEVEL_2, "buf = %p, size = %ld, old_size = %ld, exit = %d", old_block,
          static_cast<long>(size), static_cast<long>(previous_size), 1);
    if (old_block == nullptr) {
        return vxlb_malloc_traced(size, is_negative, label, file, line, func);
    }
    if (is_negative != 0 || size == 0) {
        die_of_size(size, label, index, file, line, func);
    }
    char *block = static_cast<char *>(old_block);
    const size_t old_charged = vxlb_get_mem_chunk_size(block, size);
    TRACE(VXLB_LEVEL_2,
          "MY_FREE'ed (%s) done. ptr = $%p$, size = %ld, old_alloced_size = %ld for index %d",
          label, old_block, static_cast<long>(previous_size), static_cast<long>(old_charged),
          index);
    vxlb_mem_map_remove(old_block);
    size_t system_size = 0;
    block = resize(block, size, &system_size);
    if (block == nullptr) {
        abort_for_memory(size, label, index, file, line, func);
    }
    const size_t new_charged = vxlb_get_mem_chunk_size(block, size);
    mark(block, system_size);
    TRACE(VXLB_LEVEL_2,
          "VXLB_MALLOC'ed (%s) done. ptr = $%p$, size = %ld, new_alloced_size = %ld for index %d",
          label, static_cast<void *>(block), shown_size(size), static_cast<long>(new_charged),
          index);
    // One would expect the difference of the two sizes. Both were asked for with the new size, so a
    // reallocation adds nothing: programs that sum these figures count each block once.
    g_c_mem_allocated += new_charged - old_charged;
    g_mem_allocated += static_cast<uint32_t>(new_charged - old_charged);
    trace_statistics(file, line, func);
    return block;
}

void vxlb_free_traced(void *block, const char *label, int index, const char *file, int line,
                      const char *func) {
    const size_t charged = vxlb_get_mem_chunk_size(static_cast<char *>(block), 1);
    vxlb_count_freed(charged);
    trace_statistics(file, line, func);
    vxlb_mem_map_remove(block);
    TRACE(VXLB_LEVEL_2, "VXLB_FREE'ed (%s) Freed. ptr = $%p$ for index %d, allocated_size = %ld",
          label, block, index, static_cast<long>(charged));
    free(block);
}

void vxlb_alloc_report(void *block, size_t size, const char *label, const char *file, int line,
                       const char *func) {
    if (block != nullptr) {
        vxlb_mem_map_add(block, static_cast<size_t>(shown_size(size)), label, file, line, func);
    }
}
