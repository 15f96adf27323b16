// SPDX-License-Identifier: Apache-2.0
// The directories that a walk has met, by device and inode.
//
// One open-addressing table for each device; a tree lies on one device as a rule. A slot stands for 64
// neighbouring inode numbers, since a file system gives such numbers to what is made in one place: a
// large tree takes few slots, and the walk finds them in the processor's cache. A table is at most three
// quarters full.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

struct inode_group {
    uint64_t number;  // of its inodes, without the last six bits
    uint64_t members; // a bit for each; no bit marks a free slot
};

struct device_table {
    dev_t device;
    inode_group *groups; // owned
    size_t capacity;     // slots, a power of two
    size_t used;
};

// All zero to begin with.
struct directory_set {
    device_table *devices; // owned
    size_t device_count;
};

enum class directory_meeting { FIRST, AGAIN, OUT_OF_MEMORY };

// Add a directory to the set.
directory_meeting directory_set_add(directory_set *set, dev_t device, ino_t inode);

void directory_set_free(directory_set *set);
