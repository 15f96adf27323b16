// SPDX-License-Identifier: Apache-2.0
#include "path_list.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t FIRST_CAPACITY = size_t{64} * 1024;

struct item_head {
    file_attributes attributes;
    uint16_t skipped; // bytes taken from the path before
    uint16_t shared;  // bytes that the next path may take from this one
    uint16_t length;  // of the whole path
};

// A list grows by that at least, so that any item fits.
static_assert(sizeof(item_head) + MAX_PATH_LENGTH < FIRST_CAPACITY);

bool reserve(path_list *list, size_t size) {
    if (list->capacity - list->used >= size) {
        return true;
    }
    const size_t capacity = list->capacity == 0 ? FIRST_CAPACITY : 2 * list->capacity;
    char *wider = static_cast<char *>(realloc(list->bytes, capacity));
    if (wider == nullptr) {
        return false;
    }
    list->bytes = wider;
    list->capacity = capacity;
    return true;
}

void append(path_list *list, const void *bytes, size_t size) {
    memcpy(list->bytes + list->used, bytes, size);
    list->used += size;
}

} // namespace

file_attributes attributes_of(const struct stat *sb) {
    return {static_cast<int64_t>(sb->st_mtime), sb->st_uid, sb->st_gid,
            static_cast<uint16_t>(sb->st_mode)}; // the type and permission bits are 16
}

bool path_list_add(path_list *list, std::string_view path, size_t shared,
                   const file_attributes &attributes) {
    if (!reserve(list, sizeof(item_head) + path.size())) {
        return false;
    }
    const bool same = shared == list->last_shared &&
                      memcmp(list->bytes + list->last_at, path.data(), shared) == 0;
    const size_t skipped = same ? shared : 0;
    const item_head head = {attributes, static_cast<uint16_t>(skipped),
                            static_cast<uint16_t>(shared), static_cast<uint16_t>(path.size())};
    append(list, &head, sizeof head);
    if (!same) {
        list->last_shared = shared;
        list->last_at = list->used;
    }
    append(list, path.data() + skipped, path.size() - skipped);
    return true;
}

bool path_reader_next(path_reader *reader) {
    if (reader->at == reader->list->used) {
        return false;
    }
    item_head head;
    memcpy(&head, reader->list->bytes + reader->at, sizeof head);
    reader->at += sizeof head;
    const size_t rest = static_cast<size_t>(head.length - head.skipped);
    memcpy(reader->path + head.skipped, reader->list->bytes + reader->at, rest);
    reader->at += rest;
    reader->path[head.length] = '\0';
    reader->length = head.length;
    reader->shared = head.skipped;
    reader->next_shared = head.shared;
    reader->attributes = head.attributes;
    return true;
}
