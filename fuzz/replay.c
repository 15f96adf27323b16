// SPDX-License-Identifier: Apache-2.0
// In place of the fuzzer, for any compiler and sanitizer: run a target on every file of a directory.
// In C, so that it brings no C++ run-time library that the memory sanitizer can't look into.
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

// The input is handed on in a block of its own size, so that a read behind its end shows.
static int replay(int fd) {
    static uint8_t input[LARGEST_INPUT];
    const ssize_t size = read(fd, input, sizeof(input));
    close(fd);
    uint8_t *data = size < 0 ? NULL : malloc((size_t)size + (size == 0));
    if (data == NULL) {
        return -1;
    }
    memcpy(data, input, (size_t)size);
    LLVMFuzzerTestOneInput(data, (size_t)size);
    free(data);
    return 0;
}

static int replay_all(DIR *inputs) {
    int count = 0;
    const struct dirent *entry;
    while ((entry = readdir(inputs)) != NULL) {
        const int fd =
            entry->d_type == DT_DIR ? -1 : openat(dirfd(inputs), entry->d_name, O_RDONLY);
        count += fd >= 0 && replay(fd) == 0;
    }
    return count;
}

int main(int argc, char **argv) {
    if (LLVMFuzzerInitialize != NULL) {
        LLVMFuzzerInitialize(&argc, &argv);
    }
    DIR *inputs = opendir(argc == 2 ? argv[1] : "");
    const int count = inputs == NULL ? 0 : replay_all(inputs);
    printf("%d\n", count);
    return count > 0 ? 0 : 1;
}
