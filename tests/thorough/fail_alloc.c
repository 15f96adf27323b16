/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Preloaded, it lets allocation number FAIL_AT fail, or with FAIL_FROM that and all later ones, in
 * the process itself and not in its children. Blocks move whenever they are resized, and released
 * ones are overwritten, so that an address held too long shows. A process that ends by itself says
 * on standard error how many allocations it asked for and how many blocks it still holds.
 *
 * A look-up of a user or group counts as one allocation: the C library's name service does not
 * survive a failure inside (it ends the process by an assertion, or by a null pointer).
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <grp.h>
#include <malloc.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

void *__libc_malloc(size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *block);

static long count, live, fail_at, fail_from;
static int is_looking_up; /* in the name service */

static long number_of(const char *name) {
    const char *text = getenv(name);
    return text == NULL ? 0 : atol(text);
}

__attribute__((constructor)) static void begin(void) {
    fail_at = number_of("FAIL_AT");
    fail_from = number_of("FAIL_FROM");
    unsetenv("LD_PRELOAD");
    count = live = 0;
}

__attribute__((destructor)) static void end(void) {
    char text[64];
    const int length = snprintf(text, sizeof text, "allocations: %ld, held: %ld\n", count, live);
    if (write(STDERR_FILENO, text, (size_t)length) != length) {
        _exit(125);
    }
}

static int fails(void) {
    count += !is_looking_up;
    const int is_due = count == fail_at || (fail_from != 0 && count >= fail_from);
    errno = is_due ? ENOMEM : errno;
    return is_due && !is_looking_up;
}

void *malloc(size_t size) {
    void *block = fails() ? NULL : __libc_malloc(size);
    live += block != NULL;
    return block;
}

#define LOOK_UP(type, name, id_type)                              \
    struct type *name(id_type id) {                               \
        struct type *(*const real)(id_type) =                     \
            (struct type * (*)(id_type)) dlsym(RTLD_NEXT, #name); \
        struct type *found = NULL;                                \
        if (!fails()) {                                           \
            is_looking_up = 1;                                    \
            found = real(id);                                     \
            is_looking_up = 0;                                    \
        }                                                         \
        return found;                                             \
    }
LOOK_UP(passwd, getpwuid, uid_t)
LOOK_UP(group, getgrgid, gid_t)

void *calloc(size_t number, size_t size) {
    size_t total;
    void *block = __builtin_mul_overflow(number, size, &total) ? NULL : malloc(total);
    return block == NULL ? NULL : memset(block, 0, total);
}

void free(void *block) {
    if (block != NULL) {
        live--;
        memset(block, 0xDB, malloc_usable_size(block));
        __libc_free(block);
    }
}

void *realloc(void *old, size_t size) {
    void *block = malloc(size);
    if (block != NULL && old != NULL) {
        const size_t had = malloc_usable_size(old);
        memcpy(block, old, had < size ? had : size);
        free(old);
    }
    return block;
}
