// SPDX-License-Identifier: Apache-2.0
#ifndef MEMORY_FILES_H
#define MEMORY_FILES_H

// The file system of the log target: system calls take fifty times as long as the library's own work, so the
// linker leads those of the log module here (-Wl,--wrap). Paths that begin with "/memory/" and descriptors
// from FIRST_FD on are files in memory, all else is the kernel's. One process, one thread, files that are
// written to at their ends.

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <fcntl.h>
#include <map>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace memory_files {

constexpr int FIRST_FD = 1 << 20;
inline std::vector<std::string> files;
inline std::map<std::string, size_t, std::less<>>
    paths;                          // the file that is there, by place in `files`
inline std::vector<int> open_files; // by descriptor; -1: closed
inline size_t most_at_once; // bytes that a write takes, and every other is interrupted; 0: all
inline bool is_interrupted;

static inline bool is_ours(const char *path) {
    return std::string_view(path).starts_with("/memory/");
}
static inline const std::string *at(const char *path) {
    const auto found = paths.find(std::string_view(path));
    return found == paths.end() ? nullptr : &files[found->second];
}
static inline int &file_of(int fd) {
    return open_files[static_cast<size_t>(fd - FIRST_FD)];
}
static inline std::string &contents(int fd) {
    return files[static_cast<size_t>(file_of(fd))];
}
static inline size_t count_open() {
    size_t count = 0;
    for (const int file : open_files) {
        count += file != -1;
    }
    return count;
}
static inline void forget() {
    files.clear();
    paths.clear();
    open_files.clear();
}
static inline int describe(size_t file, struct stat *info) {
    *info = {};
    info->st_mode = S_IFREG | 0644;
    info->st_ino = file + 1;
    info->st_size = static_cast<off_t>(files[file].size());
    return 0;
}
static inline int fail(int error) {
    errno = error;
    return -1;
}

} // namespace memory_files

extern "C" {
int __real_open(const char *, int, ...);
int __real_close(int);
ssize_t __real_write(int, const void *, size_t);
off_t __real_lseek(int, off_t, int);
int __real_stat(const char *, struct stat *);
int __real_fstat(int, struct stat *);
int __real_flock(int, int);
int __real_rename(const char *, const char *);
int __real_dup3(int, int, int);

int __wrap_open(const char *path, int flags, ...) {
    using namespace memory_files;
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    if (!is_ours(path)) {
        return __real_open(path, flags, mode);
    }
    auto found = paths.find(std::string_view(path));
    if (found == paths.end() && (flags & O_CREAT) == 0) {
        return fail(ENOENT);
    }
    if (found == paths.end()) {
        found = paths.emplace(path, files.size()).first;
        files.emplace_back();
    }
    open_files.push_back(static_cast<int>(found->second));
    return FIRST_FD + static_cast<int>(open_files.size()) - 1;
}
int __wrap_close(int fd) {
    using namespace memory_files;
    if (fd < FIRST_FD) {
        return __real_close(fd);
    }
    return std::exchange(file_of(fd), -1) == -1 ? fail(EBADF) : 0;
}
ssize_t __wrap_write(int fd, const void *bytes, size_t size) {
    using namespace memory_files;
    if (fd < FIRST_FD) {
        return __real_write(fd, bytes, size);
    }
    if (most_at_once > 0) {
        is_interrupted = !is_interrupted;
        if (is_interrupted) {
            return fail(EINTR);
        }
        size = std::min(size, most_at_once);
    }
    contents(fd).append(static_cast<const char *>(bytes), size);
    return static_cast<ssize_t>(size);
}
off_t __wrap_lseek(int fd, off_t offset, int whence) {
    using namespace memory_files;
    if (fd < FIRST_FD) {
        return __real_lseek(fd, offset, whence);
    }
    return whence == SEEK_END ? static_cast<off_t>(contents(fd).size()) + offset : fail(EINVAL);
}
int __wrap_stat(const char *path, struct stat *info) {
    using namespace memory_files;
    if (!is_ours(path)) {
        return __real_stat(path, info);
    }
    const auto found = paths.find(std::string_view(path));
    return found == paths.end() ? fail(ENOENT) : describe(found->second, info);
}
int __wrap_fstat(int fd, struct stat *info) {
    using namespace memory_files;
    return fd < FIRST_FD ? __real_fstat(fd, info)
                         : describe(static_cast<size_t>(file_of(fd)), info);
}
int __wrap_flock(int fd, int operation) {
    return fd < memory_files::FIRST_FD ? __real_flock(fd, operation) : 0;
}
int __wrap_rename(const char *from, const char *to) {
    using namespace memory_files;
    if (!is_ours(from)) {
        return __real_rename(from, to);
    }
    const auto found = paths.find(std::string_view(from));
    if (found == paths.end()) {
        return fail(ENOENT);
    }
    paths.insert_or_assign(to, found->second);
    paths.erase(from);
    return 0;
}
int __wrap_dup3(int from, int to, int flags) {
    using namespace memory_files;
    if (from < FIRST_FD) {
        return __real_dup3(from, to, flags);
    }
    file_of(to) = file_of(from);
    return to;
}
}

#endif
