// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target over files, where libFuzzer's own run-time library is in the way: under the
// memory sanitizer, which must see every byte written.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { INPUT_SIZE = 1 << 20 };

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

static void replay(const char *path) {
    static uint8_t input[INPUT_SIZE];
    FILE *file = fopen(path, "rb");
    if (file == NULL) {
        perror(path);
        exit(2);
    }
    const size_t size = fread(input, 1, sizeof(input), file);
    fclose(file);
    uint8_t *data = malloc(size + 1);
    memcpy(data, input, size);
    LLVMFuzzerTestOneInput(data, size);
    free(data);
}

int main(int argc, char **argv) {
    for (int i = 1; i < argc; i++) {
        replay(argv[i]);
    }
    printf("%d\n", argc - 1);
    return 0;
}
