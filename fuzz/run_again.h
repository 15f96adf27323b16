// SPDX-License-Identifier: Apache-2.0
#ifndef RUN_AGAIN_H
#define RUN_AGAIN_H

// A program that ends in exit(), run again and again in this process. What a run changes is put back: the
// variables of the program and its library (they lie between those of edge_begin.c and edge_end.c), the
// memory that it holds (its malloc and the like come here by -Wl,--wrap), descriptors, the current directory
// and getopt's place. What stays is the C library's: the databases that it has opened, the stream of a helper
// whose answer was not read to its end.

#include <algorithm>
#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

extern "C" {
extern char vx_data_begin[], vx_data_end[], vx_bss_begin[], vx_bss_end[];
void *__real_malloc(size_t);
void *__real_calloc(size_t, size_t);
void *__real_realloc(void *, size_t);
void __real_free(void *);
char *__real_strdup(const char *);
[[noreturn]] void __real_exit(int);
}

namespace run_again {

inline bool is_running; // the program's own code, not what it calls here
inline std::vector<void *> blocks;
inline jmp_buf end;
inline int status;

// While this lives, memory is not the program's.
struct Pause {
    bool before = std::exchange(is_running, false);
    ~Pause() { is_running = before; }
};

static inline void *keep(void *block) {
    if (is_running && block != nullptr) {
        const Pause pause;
        blocks.push_back(block);
    }
    return block;
}
static inline void forget(void *block) {
    if (!is_running) {
        return;
    }
    const auto found = std::find(blocks.rbegin(), blocks.rend(), block);
    if (found != blocks.rend()) {
        *found = blocks.back();
        blocks.pop_back();
    }
}

// The sanitizer's guards lie between the variables, so this must not become a call of memcpy.
__attribute__((noinline, no_sanitize("address"))) static void copy(char *to, const char *from,
                                                                   size_t size) {
    typedef char Line __attribute__((vector_size(64), aligned(1), may_alias));
    for (size_t i = 0; i < size; i += sizeof(Line)) {
        *reinterpret_cast<Line *>(to + i) = *reinterpret_cast<const Line *>(from + i);
        __asm__ volatile("" ::: "memory");
    }
}

struct Variables {
    char *begin;
    std::string first;
    Variables(char *from, const char *to) : begin(from), first(static_cast<size_t>(to - from), 0) {
        copy(first.data(), from, first.size());
    }
    void put_back() const { copy(begin, first.data(), first.size()); }
};

// Whether a variable, one that is zero at first, lies where it should.
static inline bool puts_back(const void *variable) {
    return variable > vx_bss_begin && variable < vx_bss_end;
}

// Give back the status that the program ends with. Its descriptors are those from the first free one on.
template <typename Program> int run(Program program) {
    const int first_free = fcntl(STDIN_FILENO, F_DUPFD, STDERR_FILENO + 1);
    close(first_free);
    static const Variables data(vx_data_begin, vx_data_end);
    static const Variables bss(vx_bss_begin, vx_bss_end);
    optind = 0;
    if (setjmp(end) == 0) {
        is_running = true;
        status = program();
    }
    is_running = false;
    for (void *block : blocks) {
        __real_free(block);
    }
    blocks.clear();
    data.put_back();
    bss.put_back();
    close_range(static_cast<unsigned>(first_free), ~0U, 0);
    return status;
}

} // namespace run_again

extern "C" {
void *__wrap_malloc(size_t size) {
    return run_again::keep(__real_malloc(size));
}
void *__wrap_calloc(size_t count, size_t size) {
    return run_again::keep(__real_calloc(count, size));
}
void *__wrap_realloc(void *block, size_t size) {
    run_again::forget(block);
    return run_again::keep(__real_realloc(block, size));
}
void __wrap_free(void *block) {
    run_again::forget(block);
    __real_free(block);
}
char *__wrap_strdup(const char *text) {
    return static_cast<char *>(run_again::keep(__real_strdup(text)));
}
[[noreturn]] void __wrap_exit(int status) {
    if (!run_again::is_running) {
        __real_exit(status);
    }
    run_again::status = status;
    longjmp(run_again::end, 1);
}
}

#endif
