// SPDX-License-Identifier: Apache-2.0
#include "directory_set.h"

#include <cstdlib>

namespace {

constexpr size_t FIRST_CAPACITY = 256;
constexpr unsigned MEMBER_BITS = 6;

// Four neighbouring groups, which fill a line of the cache, stay together; such fours are spread by
// multiplicative hashing (Knuth, The Art of Computer Programming, vol. 3, 6.4).
size_t slot_of(const device_table *table, uint64_t number) {
    const uint64_t hash = ((number >> 2) * 0x9E3779B97F4A7C15u) >> 32;
    return static_cast<size_t>(hash << 2 | (number & 3)) & (table->capacity - 1);
}

// The slot that holds a group, or the free one where it belongs.
inode_group *find(const device_table *table, uint64_t number) {
    size_t slot = slot_of(table, number);
    while (table->groups[slot].members != 0 && table->groups[slot].number != number) {
        slot = (slot + 1) & (table->capacity - 1);
    }
    return &table->groups[slot];
}

bool grow(device_table *table) {
    device_table wider = *table;
    wider.capacity = table->capacity == 0 ? FIRST_CAPACITY : 2 * table->capacity;
    wider.groups = static_cast<inode_group *>(calloc(wider.capacity, sizeof *wider.groups));
    if (wider.groups == nullptr) {
        return false;
    }
    for (size_t i = 0; i < table->capacity; i++) {
        if (table->groups[i].members != 0) {
            *find(&wider, table->groups[i].number) = table->groups[i];
        }
    }
    free(table->groups);
    table->groups = wider.groups;
    table->capacity = wider.capacity;
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
    const uint64_t number = inode >> MEMBER_BITS;
    const uint64_t member = uint64_t{1} << (inode & ((1 << MEMBER_BITS) - 1));
    inode_group *group = find(table, number);
    if ((group->members & member) != 0) {
        return directory_meeting::AGAIN;
    }
    table->used += group->members == 0;
    *group = {number, group->members | member};
    return directory_meeting::FIRST;
}

void directory_set_free(directory_set *set) {
    for (size_t i = 0; i < set->device_count; i++) {
        free(set->devices[i].groups);
    }
    free(set->devices);
    *set = {};
}
