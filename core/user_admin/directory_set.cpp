// SPDX-License-Identifier: Apache-2.0
#include "directory_set.h"

#include <cstdlib>

namespace {

constexpr size_t FIRST_CAPACITY = 1024;
constexpr uint64_t NUMBER_FOR_ZERO = UINT64_MAX; // in a table 0 marks a free slot

// Multiplicative hashing (Knuth, The Art of Computer Programming, vol. 3, 6.4): neighbouring inode
// numbers, as a file system hands them out, are spread over the table.
size_t slot_of(const device_table *table, uint64_t inode) {
    return static_cast<size_t>((inode * 0x9E3779B97F4A7C15u) >> 32) & (table->capacity - 1);
}

// The slot that holds an inode, or the free one where it belongs.
uint64_t *find(const device_table *table, uint64_t inode) {
    size_t slot = slot_of(table, inode);
    while (table->inodes[slot] != 0 && table->inodes[slot] != inode) {
        slot = (slot + 1) & (table->capacity - 1);
    }
    return &table->inodes[slot];
}

bool grow(device_table *table) {
    device_table wider = *table;
    wider.capacity = table->capacity == 0 ? FIRST_CAPACITY : 2 * table->capacity;
    wider.inodes = static_cast<uint64_t *>(calloc(wider.capacity, sizeof *wider.inodes));
    if (wider.inodes == nullptr) {
        return false;
    }
    for (size_t i = 0; i < table->capacity; i++) {
        if (table->inodes[i] != 0) {
            *find(&wider, table->inodes[i]) = table->inodes[i];
        }
    }
    free(table->inodes);
    *table = wider;
    return true;
}

device_table *table_of(directory_set *set, dev_t device) {
    for (size_t i = 0; i < set->device_count; i++) {
        if (set->devices[i].device == device) {
            return &set->devices[i];
        }
    }
    void *more = reallocarray(set->devices, set->device_count + 1, sizeof *set->devices);
    if (more == nullptr) {
        return nullptr;
    }
    set->devices = static_cast<device_table *>(more);
    device_table *added = &set->devices[set->device_count++];
    *added = {device, nullptr, 0, 0};
    return added;
}

} // namespace

directory_meeting directory_set_add(directory_set *set, dev_t device, ino_t inode) {
    device_table *table = table_of(set, device);
    if (table == nullptr) {
        return directory_meeting::OUT_OF_MEMORY;
    }
    if (4 * (table->used + 1) > 3 * table->capacity && !grow(table)) {
        return directory_meeting::OUT_OF_MEMORY;
    }
    const uint64_t number = inode != 0 ? inode : NUMBER_FOR_ZERO;
    uint64_t *slot = find(table, number);
    if (*slot == number) {
        return directory_meeting::AGAIN;
    }
    *slot = number;
    table->used++;
    return directory_meeting::FIRST;
}

void directory_set_free(directory_set *set) {
    for (size_t i = 0; i < set->device_count; i++) {
        free(set->devices[i].inodes);
    }
    free(set->devices);
    *set = {};
}
