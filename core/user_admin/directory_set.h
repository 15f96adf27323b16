// SPDX-License-Identifier: Apache-2.0
// The directories that a walk has met, by device and inode.
//
// One open-addressing table of inode numbers for each device; a tree lies on one device as a rule.
// A table costs 8 bytes a slot and is at most three quarters full.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

struct device_table {
    dev_t device;
    uint64_t *inodes; // owned; 0 marks a free slot
    size_t capacity;  // slots, a power of two
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
