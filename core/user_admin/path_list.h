// SPDX-License-Identifier: Apache-2.0
// The scenario files that the walk has found, in its order, with what stat said of each.
//
// Paths are front-coded: what a path shares with the one before it is stored once.
//
//     head | /w/workspace/a/b/maranth/p/s/scenarios/ one.conf | head | two.conf | head | three/...
//            `--------------- shared ---------------´
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

constexpr size_t MAX_PATH_LENGTH = 2047; // a longer path can't be listed

// Owner, group, mode and modification time of a file. Mode 0: stat failed.
struct file_attributes {
    int64_t mtime; // seconds since 1970
    uid_t uid;
    gid_t gid;
    uint16_t mode;
};

file_attributes attributes_of(const struct stat *sb);

// All zero to begin with; lives until the process ends.
struct path_list {
    char *bytes; // owned
    size_t used;
    size_t capacity;
    size_t last_shared; // length of the shared part of the last path, which begins at ...
    size_t last_at;     // ... this offset of bytes
};

// Append a path of at most MAX_PATH_LENGTH bytes, of which the first `shared` are likely to be
// those of its neighbours. Returns false when memory runs out.
bool path_list_add(path_list *list, std::string_view path, size_t shared,
                   const file_attributes &attributes);

// A reader's place in a list, and the path it stands on. Zero to begin with, but for the list.
struct path_reader {
    const path_list *list;
    size_t at;
    char path[MAX_PATH_LENGTH + 1]; // zero-terminated
    size_t length;
    size_t shared;      // bytes of the path that are the same as those of the path before
    size_t next_shared; // bytes that the next path may share
    file_attributes attributes;
};

// Step to the next path. Returns false behind the last one.
bool path_reader_next(path_reader *reader);
