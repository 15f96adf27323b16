/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Tracked allocation: three macros that allocate, resize and release the block of a pointer variable
 * under a label, count what they do for the calling thread, and end the process when memory runs out.
 *
 *     caller's n bytes | g_alloc_extra_size bytes | Z M e m D b g | 1 spare byte
 *     ^ pointer variable
 *
 * Every step is traced with module mask MEMORY and the call site's file, line and function. Each
 * block is reported to the thread's allocation map (vxlb_mem_map.h) when the thread has switched its
 * map on. With tracing and map off a macro costs the system's allocation, a few counters and the
 * marker, in line.
 *
 * Blocks come from malloc: plain free() may release them too, which is neither counted nor reported.
 * A block may be released by another thread than the one that allocated it; each thread counts what
 * it did itself.
 */
#ifndef LIBVXCORE_VXLB_ALLOC_H
#define LIBVXCORE_VXLB_ALLOC_H

#include <libvxcore/vxlb_log.h>

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default) /* what the shared library exports */

#define VXLB_ALLOC_MARK "ZMemDbg" /* what stands behind each block */
#define VXLB_ALLOC_MARK_SIZE 7    /* its bytes, without its NUL */
#define VXLB_ALLOC_TAIL_SIZE 8    /* the marker and a spare byte, which is written as its NUL */

/*
 * The calling thread's statistics. They start at 0, and nothing in the library resets them: the
 * periodic ones are a program's to reset. Bytes freed count 1 for each release, because a release
 * does not know its block's size; a reallocation leaves bytes and counts as they are.
 */
extern __thread uint64_t g_c_mem_allocated; /* bytes allocated, cumulative */
extern __thread uint32_t g_mem_allocated;   /* bytes allocated, periodic */
extern __thread uint64_t g_c_mem_freed;     /* bytes released, cumulative */
extern __thread uint32_t g_mem_freed;       /* bytes released, periodic */
extern __thread uint32_t g_c_alloc_count;   /* allocations, cumulative */
extern __thread uint32_t g_alloc_count;     /* allocations, periodic */
extern __thread uint32_t g_c_free_count;    /* releases, cumulative */
extern __thread uint32_t g_free_count;      /* releases, periodic */

/* Counterparts for shared memory, for programs that keep them; the library does not. */
extern __thread uint64_t g_c_shared_mem_allocated;
extern __thread uint32_t g_shared_mem_allocated;
extern __thread uint32_t g_c_shared_mem_alloc_count;
extern __thread uint32_t g_shared_mem_alloc_count;

/* Bytes added between a block and its marker; 0 unless the program sets it. */
extern __thread int32_t g_alloc_extra_size;

/* Entries that the calling thread's allocation map has room for; 0 while the map is off. */
extern __thread int32_t mem_map_entry_max;

/* The size that is charged for a block: `size` as it is, for any block. */
size_t vxlb_get_mem_chunk_size(char *mem, size_t size);

/*
 * The two reports to the calling thread's allocation map. The wrappers make them and ignore what
 * comes back: 0, or -1 when the map is off or refuses. vxlb_mem_map.h has more.
 */
int vxlb_mem_map_add(void *address, size_t size, const char *msg, const char *file, int line,
                     const char *func);
int vxlb_mem_map_remove(void *address);

/*
 * Allocate `size` bytes into the pointer variable `ptr`; size 0 makes it null. The size may have
 * any integer type. A negative size, or memory that can't be had, is said on standard error and
 * ends the process with exit status -1.
 *
 * The variable holds the block before the block is reported. Each argument is evaluated once.
 */
#define VXLB_MALLOC(ptr, size, label)                                                              \
    do {                                                                                           \
        __typeof__(ptr) *const vxlb_var_ = &(ptr);                                                 \
        const __typeof__((size) + 0) vxlb_size_ = (size);                                          \
        const char *const vxlb_label_ = (label);                                                   \
        if (vxlb_alloc_is_plain((size_t)vxlb_size_)) {                                             \
            *vxlb_var_ = (__typeof__(*vxlb_var_))vxlb_malloc_plain(                                \
                (size_t)vxlb_size_, vxlb_label_, __FILE__, __LINE__, __func__);                    \
        } else {                                                                                   \
            *vxlb_var_ = (__typeof__(*vxlb_var_))vxlb_malloc_traced(                               \
                (size_t)vxlb_size_, VXLB_IS_NEGATIVE(vxlb_size_), vxlb_label_, __FILE__, __LINE__, \
                __func__);                                                                         \
            vxlb_alloc_report((void *)*vxlb_var_, (size_t)vxlb_size_, vxlb_label_, __FILE__,       \
                              __LINE__, __func__);                                                 \
        }                                                                                          \
    } while (0)

/*
 * Resize the block of the pointer variable `ptr` to `new_size` bytes, its contents kept up to the
 * smaller size; a null `ptr` is allocated, as VXLB_MALLOC does. previous_size and index are for the
 * trace only (-1 is the index of a variable that is no element).
 *
 * A new size of 0 or less for a block ends the process with exit status -1, memory that can't be
 * had aborts it; both say so on standard error.
 */
#define VXLB_REALLOC(ptr, new_size, label, previous_size, index)                                   \
    do {                                                                                           \
        __typeof__(ptr) *const vxlb_var_ = &(ptr);                                                 \
        const __typeof__((new_size) + 0) vxlb_size_ = (new_size);                                  \
        const char *const vxlb_label_ = (label);                                                   \
        *vxlb_var_ = (__typeof__(*vxlb_var_))vxlb_realloc_traced(                                  \
            (void *)*vxlb_var_, (size_t)vxlb_size_, VXLB_IS_NEGATIVE(vxlb_size_), vxlb_label_,     \
            (int64_t)(previous_size), (index), __FILE__, __LINE__, __func__);                      \
        vxlb_alloc_report((void *)*vxlb_var_, (size_t)vxlb_size_, vxlb_label_, __FILE__, __LINE__, \
                          __func__);                                                               \
    } while (0)

/*
 * Release the block of `ptr`, if it is not null. The variable itself is left as it is: whoever keeps
 * it clears it. index is for the trace only.
 */
#define VXLB_FREE(ptr, label, index) \
    vxlb_free_block((void *)(ptr), (label), (index), __FILE__, __LINE__, __func__)

/* --- what the macros are made of; not for direct use ----------------------------------------- */

/* Written so that no compiler warns of an unsigned size. */
#define VXLB_IS_NEGATIVE(n) (!((n) > 0 || (n) == 0))

/* Cold: what calls them is kept out of the callers' way. */
void *vxlb_malloc_traced(size_t size, int is_negative, const char *label, const char *file,
                         int line, const char *func) __attribute__((cold));
void *vxlb_realloc_traced(void *block, size_t size, int is_negative, const char *label,
                          int64_t previous_size, int index, const char *file, int line,
                          const char *func);
void vxlb_free_traced(void *block, const char *label, int index, const char *file, int line,
                      const char *func) __attribute__((cold));
void vxlb_alloc_report(void *block, size_t size, const char *label, const char *file, int line,
                       const char *func) __attribute__((cold));
void vxlb_malloc_exhausted(size_t size, const char *label, const char *file, int line,
                           const char *func) __attribute__((noreturn, cold));

/*
 * Where the calling thread's variables lie: side by side, so that one address serves for all and one
 * addition of four numbers, each wrapping for itself, counts a step.
 */
typedef uint32_t vxlb_four_counts __attribute__((vector_size(16), may_alias));
typedef int64_t vxlb_two_settings __attribute__((may_alias));
typedef struct vxlb_alloc_state {
    vxlb_four_counts allocated; /* g_mem_allocated, g_c_alloc_count, g_alloc_count, not used */
    vxlb_four_counts freed;     /* g_mem_freed, g_c_free_count, g_free_count, not used */
    uint64_t c_mem_allocated;   /* g_c_mem_allocated */
    uint64_t c_mem_freed;       /* g_c_mem_freed */
    vxlb_two_settings settings; /* mem_map_entry_max, g_alloc_extra_size */
} vxlb_alloc_state;

extern __thread vxlb_alloc_state vxlb_alloc_thread_state;

/*
 * To a compiler a part and the variable of its own name are two objects. The empty instruction says
 * that memory is read and written here: what the program stored in the variables has arrived when
 * the parts are read, and what it reads afterwards is read anew.
 */
static inline void vxlb_alloc_meet_names(void) {
    __asm__ volatile("" ::: "memory");
}

/* Nothing of the allocation wrappers is traced. */
static inline int vxlb_alloc_is_untraced(void) {
    return !vxlb_debug_log_is_on(VXLB_LEVEL_1 | VXLB_LEVEL_2 | VXLB_LEVEL_3, VXLB_MOD_MEMORY);
}

/* A size between 1 and half the address space, no extra bytes, no map to report to, no trace. */
static inline int vxlb_alloc_is_plain(size_t size) {
    vxlb_alloc_meet_names();
    return __builtin_expect(size - 1 < SIZE_MAX / 2 && vxlb_alloc_thread_state.settings == 0 &&
                                vxlb_alloc_is_untraced(),
                            1) != 0;
}

/* The bytes come first, since the first of four numbers is the cheapest to set. */
static inline void vxlb_count_allocated(size_t size) {
    const vxlb_four_counts bytes = {(uint32_t)size, 0, 0, 0}, blocks = {0, 1, 1, 0};
    vxlb_alloc_thread_state.allocated += bytes | blocks;
    vxlb_alloc_thread_state.c_mem_allocated += size;
    vxlb_alloc_meet_names();
}

static inline void vxlb_count_freed(size_t size) {
    const vxlb_four_counts bytes = {(uint32_t)size, 0, 0, 0}, blocks = {0, 1, 1, 0};
    vxlb_alloc_thread_state.freed += bytes | blocks;
    vxlb_alloc_thread_state.c_mem_freed += size;
    vxlb_alloc_meet_names();
}

static inline void *vxlb_malloc_plain(size_t size, const char *label, const char *file, int line,
                                      const char *func) {
    char *block = (char *)malloc(size + VXLB_ALLOC_TAIL_SIZE);
    if (__builtin_expect(block == NULL, 0)) {
        vxlb_malloc_exhausted(size, label, file, line, func);
    }
    /* One store of 8 bytes; memcpy would become a call where the C library checks sizes. */
    __builtin_memcpy(block + size, VXLB_ALLOC_MARK, VXLB_ALLOC_TAIL_SIZE);
    vxlb_count_allocated(size);
    return block;
}

static inline void vxlb_free_block(void *block, const char *label, int index, const char *file,
                                   int line, const char *func) {
    if (block == NULL) {
        return;
    }
    vxlb_alloc_meet_names();
    if (__builtin_expect(vxlb_alloc_thread_state.settings == 0 && vxlb_alloc_is_untraced(), 1)) {
        vxlb_count_freed(1);
        free(block);
    } else {
        vxlb_free_traced(block, label, index, file, line, func);
    }
}

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
