/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Preloaded, it lets allocation number FAIL_AT fail, or with FAIL_FROM that and all later ones, in
 * the process itself and not in its children. Blocks move whenever they are resized, and released
 * ones are overwritten, so that an address held too long shows. A process that ends by itself says
 * on standard error how many allocations it asked for and how many blocks it still holds.
 *
 * A look-up of a user or group counts as one allocation: the C library's name service does not
 * survive a failure inside (it ends the process by an assertion, or by a null pointer).
 *
 * The counters of a coverage build are written as if nothing had failed, also by a process that
 * aborts.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <malloc.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

void *__libc_malloc(size_t size);
void __libc_free(void *block);

static long count, live, fail_at, fail_from;
static int is_looking_up; /* in the name service */
static int is_over;       /* nothing fails or is counted any more */

__attribute__((constructor)) static void begin(void) {
    fail_at = atol(getenv("FAIL_AT"));
    fail_from = atol(getenv("FAIL_FROM"));
    unsetenv("LD_PRELOAD");
    count = live = 0;
}

__attribute__((destructor)) static void end(void) {
    if (!is_over) {
        dprintf(2, "allocations: %ld, held: %ld\n", count, live);
    }
    is_over = 1;
}

/* The counters ask for their settings before anything else. */
char *getenv(const char *name) {
    if (strncmp(name, "GCOV_", 5) == 0) {
        end();
    }
    return secure_getenv(name);
}

void abort(void) {
    if (fork() == 0) {
        exit(0);
    }
    wait(NULL);
    signal(SIGABRT, SIG_DFL);
    raise(SIGABRT);
    _exit(1);
}

static int fails(void) {
    count += !is_looking_up;
    const int is_due = !is_over && (count == fail_at || (fail_from != 0 && count >= fail_from));
    errno = is_due ? ENOMEM : errno;
    return is_due && !is_looking_up;
}

void *malloc(size_t size) {
    void *block = fails() ? NULL : __libc_malloc(size);
    live += block != NULL;
    return block;
}

void *calloc(size_t number, size_t size) {
    void *block = malloc(number * size); /* the sizes asked for here don't overflow */
    return block == NULL ? NULL : memset(block, 0, number * size);
}

void free(void *block) {
    if (block != NULL) {
        live--;
        __libc_free(memset(block, 0xDB, malloc_usable_size(block)));
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

#define LOOK_UP(function)                                                                         \
    void *function(unsigned int id) {                                                             \
        void *(*const real)(unsigned int) = (void *(*)(unsigned int))dlsym(RTLD_NEXT, #function); \
        is_looking_up = !fails();                                                                 \
        void *found = is_looking_up ? real(id) : NULL;                                            \
        is_looking_up = 0;                                                                        \
        return found;                                                                             \
    }
LOOK_UP(getpwuid)
LOOK_UP(getgrgid)
