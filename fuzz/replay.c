// SPDX-License-Identifier: Apache-2.0
// In place of the fuzzer, for any compiler and sanitizer: run a target on every file of a directory,
// and on so many random changes of each. In C, so that it brings no C++ run-time library that the
// memory sanitizer can't look into.
//
//     fuzz_NAME DIRECTORY [CHANGES]
#include <dirent.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { LARGEST_INPUT = 1 << 20 };

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
__attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

static uint64_t g_random;

static uint64_t next_random(void) { // xorshift64, Marsaglia
    g_random ^= g_random << 13;
    g_random ^= g_random >> 7;
    g_random ^= g_random << 17;
    return g_random;
}

// Write some bytes anew: any, or such as stand elsewhere in the input.
static void change(uint8_t *input, size_t size) {
    for (uint64_t left = 1 + next_random() % 4; left > 0 && size > 0; left--) {
        const uint64_t any = next_random();
        input[any % size] =
            (any >> 40) % 3 == 0 ? (uint8_t)(any >> 32) : input[next_random() % size];
    }
}

// The input is handed on in a block of its own size, so that a read behind its end shows.
static void run(const uint8_t *input, size_t size) {
    uint8_t *data = malloc(size + (size == 0));
    if (data == NULL) {
        abort();
    }
    memcpy(data, input, size);
    LLVMFuzzerTestOneInput(data, size);
    free(data);
}

static int replay(int fd, int changes) {
    static uint8_t input[LARGEST_INPUT];
    const ssize_t size = read(fd, input, sizeof(input));
    close(fd);
    if (size < 0) {
        return -1;
    }
    g_random = 88172645463325252 + (uint64_t)size;
    run(input, (size_t)size);
    for (; changes > 0; changes--) {
        change(input, (size_t)size);
        run(input, (size_t)size);
    }
    return 0;
}

static int replay_all(DIR *inputs, int changes) {
    int count = 0;
    const struct dirent *entry;
    while ((entry = readdir(inputs)) != NULL) {
        const int fd =
            entry->d_type == DT_DIR ? -1 : openat(dirfd(inputs), entry->d_name, O_RDONLY);
        count += fd >= 0 && replay(fd, changes) == 0;
    }
    return count;
}

int main(int argc, char **argv) {
    if (LLVMFuzzerInitialize != NULL) {
        LLVMFuzzerInitialize(&argc, &argv);
    }
    DIR *inputs = opendir(argc > 1 ? argv[1] : "");
    if (inputs == NULL) {
        perror("no directory of inputs");
        return 1;
    }
    const int count = replay_all(inputs, argc > 2 ? atoi(argv[2]) : 0);
    closedir(inputs);
    printf("%d\n", count);
    return count > 0 ? 0 : 1;
}
