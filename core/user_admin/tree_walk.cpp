// SPDX-License-Identifier: Apache-2.0
// How it works.
//
// The walk keeps one record a directory on the current path (`directory`), each with a buffer of
// entries as the kernel hands them out, and the path itself in one growing text:
//
//     path  /w/workspace/admin/default
//            ^          ^     ^ base of the innermost directory's entries
//
// A directory's identity is device and inode. Where the file system is known to put the true inode
// numbers into its directories, the identity of a subdirectory costs nothing: the inode comes with
// the entry and the device is the parent's. Mount points would break that: an entry there tells of
// the directory that is covered. So entries are trusted only where nothing is mounted below the
// start, and nowhere behind a link, which may lead out of it. What is mounted during the walk is
// noticed when it is opened: RESOLVE_NO_XDEV refuses to cross a mount point, and a refusal takes the
// plain road of stat.
//
// Only MAX_OPEN directories keep their descriptors. When a deeper one is opened, the outermost open
// one reads the rest of its entries into memory and closes; when the walk comes back to it, it is
// opened again, through ".." where that leads to the same directory, else along the path.
#include "tree_walk.h"

#include "directory_set.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <mntent.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// One directory of the current path.
struct walked_directory {
    int fd;          // -1: closed for the time being
    char *entries;   // owned; kept for the next directory of this level
    size_t capacity; // bytes of entries
    size_t used;     // bytes that hold entries
    size_t next;     // where the next entry begins
    bool read_whole; // the kernel has no more entries
    bool may_be_all; // the entries held begin with the directory's first and may reach its last
    size_t base;     // where its entries' names begin in the path
    dev_t device;
    ino_t inode;
    bool inodes_trusted; // its entries' inodes are those that stat would give, but for mounts
};

namespace {

constexpr size_t DIR_BUFFER_SIZE = size_t{32} * 1024;
constexpr size_t MAX_OPEN = 8;
constexpr int OPEN_FLAGS = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;
constexpr long XFS_MAGIC = 0x58465342;

using directory = walked_directory;

struct walk {
    const tree_walk_rules *rules;
    char *path; // owned, zero-terminated
    size_t path_capacity;
    size_t root_length;
    directory *dirs; // owned; the directories of the current path
    size_t depth;    // of them in use
    size_t dirs_capacity;
    size_t first_open; // dirs before this one are closed
    directory_set met;
    unsigned examined;  // directories that were, for want of knowing about mounts
    bool has_no_mounts; // nothing is, as far as asked
    int failure;        // errno that ends the walk; 0: none
};

// What is known of an entry before it is reported.
struct candidate {
    const char *name;
    int type;
    dev_t device; // identity, for a directory
    ino_t inode;
    bool examined; // by stat, not by the word of its directory
    bool is_link;  // or may be one
};

bool is_exhaustion(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

// Take note of an error on the current path: exhaustion ends the walk, a loss is reported.
void note_error(walk *w, int error) {
    if (is_exhaustion(error)) {
        w->failure = error;
    } else if (!is_usual_in_a_tree(error)) {
        w->rules->lost(w->path, error);
    }
}

// --- system calls, repeated when a signal interrupts them ----------------------------------------

int open_at(int dir_fd, const char *name, int more_flags = 0) {
    int fd;
    do {
        fd = openat(dir_fd, name, OPEN_FLAGS | more_flags);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Open what is a directory by the word of its parent, not a mount point nor, by now, a link.
int open_on_same_mount(int dir_fd, const char *name) {
    struct open_how how = {};
    how.flags = OPEN_FLAGS;
    how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS;
    long fd;
    do {
        fd = syscall(SYS_openat2, dir_fd, name, &how, sizeof how);
    } while (fd < 0 && errno == EINTR);
    return static_cast<int>(fd);
}

int stat_at(int dir_fd, const char *name, struct stat *sb, int flags) {
    int result;
    do {
        result = fstatat(dir_fd, name, sb, flags);
    } while (result < 0 && errno == EINTR);
    return result;
}

bool has_true_inodes(int fd) {
    struct statfs fs;
    if (fstatfs(fd, &fs) != 0) {
        return false;
    }
    const long type = static_cast<long>(fs.f_type);
    return type == EXT4_SUPER_MAGIC || type == XFS_MAGIC || type == TMPFS_MAGIC ||
           type == NFS_SUPER_MAGIC;
}

// The path of an open directory as the list of mounts would give it; false when it is not known.
bool find_real_path(int fd, char (&path)[PATH_MAX]) {
    char link[32];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t length = readlink(link, path, sizeof path - 1);
    if (length <= 0) {
        return false;
    }
    path[length] = '\0';
    return path[0] == '/';
}

// Whether something is, or may be, mounted below an open directory.
bool may_hold_mounts(int fd) {
    __attribute__((uninitialized)) char path[PATH_MAX];
    FILE *mounts = find_real_path(fd, path) ? setmntent("/proc/self/mounts", "re") : nullptr;
    if (mounts == nullptr) {
        return true;
    }
    const size_t length = strcmp(path, "/") == 0 ? 0 : strlen(path);
    bool found = false;
    while (const mntent *mount = found ? nullptr : getmntent(mounts)) {
        found = strncmp(mount->mnt_dir, path, length) == 0 && mount->mnt_dir[length] == '/' &&
                mount->mnt_dir[length + 1] != '\0';
    }
    endmntent(mounts);
    return found;
}

// --- path ----------------------------------------------------------------------------------------

bool set_name(walk *w, size_t base, const char *name, size_t length) {
    if (w->path == nullptr || base + length + 2 > w->path_capacity) {
        const size_t capacity = 2 * (base + length + 2);
        char *wider = static_cast<char *>(realloc(w->path, capacity));
        if (wider == nullptr) {
            w->failure = ENOMEM;
            return false;
        }
        w->path = wider;
        w->path_capacity = capacity;
    }
    memcpy(w->path + base, name, length);
    w->path[base + length] = '\0';
    return true;
}

// --- entries of one directory --------------------------------------------------------------------

bool reserve_entries(walk *w, directory *dir, size_t capacity) {
    if (dir->capacity >= capacity) {
        return true;
    }
    char *wider = static_cast<char *>(realloc(dir->entries, capacity));
    if (wider == nullptr) {
        w->failure = ENOMEM;
        return false;
    }
    dir->entries = wider;
    dir->capacity = capacity;
    return true;
}

// Read more entries behind those in use; sets read_whole at the end, which an error is too.
void read_entries(walk *w, directory *dir) {
    if (!reserve_entries(w, dir, dir->used + DIR_BUFFER_SIZE)) {
        return;
    }
    ssize_t got;
    do {
        got = getdents64(dir->fd, dir->entries + dir->used, DIR_BUFFER_SIZE);
    } while (got < 0 && errno == EINTR);
    if (got > 0) {
        dir->used += static_cast<size_t>(got);
        return;
    }
    dir->read_whole = true;
    if (got < 0) {
        const int error = errno;
        const char kept = w->path[dir->base];
        w->path[dir->base] = '\0'; // the error is the directory's
        note_error(w, error);
        w->path[dir->base] = kept;
    }
}

// Read on behind the entries in use as far as the buffer reaches. Returns whether it holds all the
// entries that the directory has.
bool hold_all_entries(directory *dir) {
    while (dir->may_be_all && !dir->read_whole) {
        const ssize_t got =
            getdents64(dir->fd, dir->entries + dir->used, dir->capacity - dir->used);
        if (got < 0) { // no room, or an error that the walk meets too if it goes on here
            dir->may_be_all = false;
            break;
        }
        dir->used += static_cast<size_t>(got);
        dir->read_whole = got == 0;
    }
    return dir->may_be_all;
}

// One bit tells the cases of a letter apart; some other characters, too, pass for the same.
bool may_be_same_letter(char a, char b) {
    return ((a ^ b) & ~0x20) == 0;
}

// Whether an entry has a name, ignoring case, for the file system may do so. Names that people number
// differ at the end, so that is compared first.
bool is_named(const dirent64 *entry, std::string_view name) {
    return entry->d_reclen > offsetof(dirent64, d_name) + name.size() &&
           entry->d_name[name.size()] == '\0' &&
           may_be_same_letter(entry->d_name[name.size() - 1], name.back()) &&
           strcasecmp(entry->d_name, name.data()) == 0;
}

bool is_dot_or_dot_dot(const char *name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// The next entry but "." and "..", or null at the end or on failure.
const dirent64 *next_entry(walk *w, directory *dir) {
    for (;;) {
        if (dir->next == dir->used) {
            dir->may_be_all = dir->used == 0;
            dir->next = dir->used = 0;
            if (!dir->read_whole) {
                read_entries(w, dir);
            }
            if (dir->used == 0 || w->failure != 0) {
                return nullptr;
            }
        }
        const auto *entry = reinterpret_cast<const dirent64 *>(dir->entries + dir->next);
        dir->next += entry->d_reclen;
        if (!is_dot_or_dot_dot(entry->d_name)) {
            return entry;
        }
    }
}

// --- the directories of the current path ---------------------------------------------------------

// Read the rest of the outermost open directory into memory and close it.
void close_outermost(walk *w) {
    directory *dir = &w->dirs[w->first_open];
    dir->may_be_all = false;
    dir->used -= dir->next;
    memmove(dir->entries, dir->entries + dir->next, dir->used);
    dir->next = 0;
    while (!dir->read_whole && w->failure == 0) {
        read_entries(w, dir);
    }
    char *fitting = static_cast<char *>(realloc(dir->entries, dir->used + 1));
    if (fitting != nullptr) {
        dir->entries = fitting;
        dir->capacity = dir->used + 1;
    }
    close(dir->fd);
    dir->fd = -1;
    w->first_open++;
}

directory *add_directory(walk *w) {
    if (w->depth == w->dirs_capacity) {
        const size_t capacity = w->dirs_capacity == 0 ? 16 : 2 * w->dirs_capacity;
        void *wider = reallocarray(w->dirs, capacity, sizeof *w->dirs);
        if (wider == nullptr) {
            w->failure = ENOMEM;
            return nullptr;
        }
        w->dirs = static_cast<directory *>(wider);
        memset(w->dirs + w->dirs_capacity, 0, (capacity - w->dirs_capacity) * sizeof *w->dirs);
        w->dirs_capacity = capacity;
    }
    return &w->dirs[w->depth++];
}

// Make an open directory, whose path the walk holds, the innermost one. Takes the descriptor.
void enter(walk *w, int fd, const candidate &found, bool inodes_trusted) {
    directory *dir = add_directory(w);
    if (dir == nullptr) {
        close(fd);
        return;
    }
    size_t length = strlen(w->path);
    if (w->path[length - 1] != '/') {
        w->path[length++] = '/'; // set_name keeps room for it
        w->path[length] = '\0';
    }
    dir->fd = fd;
    dir->used = dir->next = 0;
    dir->read_whole = false;
    dir->base = length;
    dir->device = found.device;
    dir->inode = found.inode;
    dir->inodes_trusted = inodes_trusted;
}

bool is_same_directory(int fd, const directory *dir) {
    struct stat sb;
    return fstat(fd, &sb) == 0 && sb.st_dev == dir->device && sb.st_ino == dir->inode;
}

// Keep a descriptor for the innermost directory if it really stands for it.
void adopt(walk *w, int fd) {
    directory *dir = &w->dirs[w->depth - 1];
    if (fd >= 0 && is_same_directory(fd, dir)) {
        dir->fd = fd;
        w->first_open = w->depth - 1;
    } else if (fd >= 0) {
        close(fd);
    }
}

// Leave the innermost directory; its entries are done with.
void leave(walk *w) {
    directory *left = &w->dirs[--w->depth];
    const bool needed = w->depth > 0 && w->dirs[w->depth - 1].fd < 0 && left->fd >= 0;
    if (needed) {
        adopt(w, open_at(left->fd, ".."));
    }
    if (left->fd >= 0) {
        close(left->fd);
    }
    if (w->first_open > w->depth) {
        w->first_open = w->depth;
    }
}

// Open the innermost directory again, name by name from the root.
void reopen_by_path(walk *w) {
    char *path = w->path;
    const size_t end = w->dirs[w->depth - 1].base;
    const char kept = path[w->root_length];
    path[w->root_length] = '\0';
    int fd = open_at(AT_FDCWD, path);
    int error = errno;
    path[w->root_length] = kept;
    for (size_t from = w->root_length; fd >= 0;) {
        from += strspn(path + from, "/");
        if (from >= end) {
            break;
        }
        const size_t length = strcspn(path + from, "/");
        path[from + length] = '\0';
        const int inner = open_at(fd, path + from);
        error = errno;
        path[from + length] = '/';
        close(fd);
        fd = inner;
        from += length;
    }
    if (fd < 0) {
        note_error(w, error); // the rest of the directory is lost
    }
    adopt(w, fd);
}

// Whether the innermost directory has a descriptor again. False when the tree has changed so that
// the path leads elsewhere: its other entries can't be visited then.
bool is_reachable(walk *w) {
    const directory *dir = &w->dirs[w->depth - 1];
    if (dir->fd < 0) {
        reopen_by_path(w);
    }
    return dir->fd >= 0;
}

// --- one entry -----------------------------------------------------------------------------------

// What stat says, links followed.
void examine(walk *w, int dir_fd, candidate *found) {
    struct stat sb;
    found->examined = true;
    if (stat_at(dir_fd, found->name, &sb, 0) == 0) {
        found->type = S_ISDIR(sb.st_mode) ? FTW_D : FTW_F;
        found->device = sb.st_dev;
        found->inode = sb.st_ino;
        return;
    }
    const int error = errno;
    note_error(w, error);
    const bool is_link =
        stat_at(dir_fd, found->name, &sb, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(sb.st_mode);
    found->type = is_link ? FTW_SLN : FTW_NS;
}

// Whether the inodes in a directory's entries stand for what is there.
bool vouches_for_entries(walk *w, const directory *dir) {
    if (dir->inodes_trusted && w->examined++ == w->rules->examined_first) {
        w->has_no_mounts = w->dirs[0].fd >= 0 && !may_hold_mounts(w->dirs[0].fd);
    }
    return dir->inodes_trusted && w->has_no_mounts;
}

candidate classify(walk *w, const directory *dir, const dirent64 *entry) {
    candidate found = {entry->d_name, FTW_F, dir->device, entry->d_ino, false, false};
    found.is_link = entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN;
    if (entry->d_type == DT_DIR) {
        found.type = FTW_D;
    }
    if (found.is_link || w->rules->exact || (found.type == FTW_D && !vouches_for_entries(w, dir))) {
        examine(w, dir->fd, &found);
    }
    return found;
}

bool is_met_first(walk *w, const candidate &found) {
    const directory_meeting meeting = directory_set_add(&w->met, found.device, found.inode);
    if (meeting == directory_meeting::OUT_OF_MEMORY) {
        w->failure = ENOMEM;
    }
    return meeting == directory_meeting::FIRST;
}

// Open a directory as it was met: no link, and no mount point where its parent alone vouches for it.
// What it has become in the meantime must not pass for what it was.
int open_as_seen(int dir_fd, const candidate &found) {
    return found.examined ? open_at(dir_fd, found.name, O_NOFOLLOW)
                          : open_on_same_mount(dir_fd, found.name);
}

// Open a directory that was met. Returns -1 with errno; ENOENT also when it turns out to be another
// that was met before. `found` learns its true identity.
int open_met(walk *w, int dir_fd, candidate *found) {
    int fd = open_as_seen(dir_fd, *found);
    const bool is_link = fd < 0 && (errno == ELOOP || errno == ENOTDIR);
    if (fd >= 0 || (!is_link && errno != EXDEV && errno != ENOSYS && errno != EPERM)) {
        return fd;
    }
    // A link, a mount point that has just been made, or a system that does not offer the call.
    found->is_link = found->is_link || is_link;
    fd = open_at(dir_fd, found->name);
    struct stat sb;
    if (fd < 0 || fstat(fd, &sb) != 0 ||
        (sb.st_dev == found->device && sb.st_ino == found->inode)) {
        return fd;
    }
    found->device = sb.st_dev;
    found->inode = sb.st_ino;
    if (!is_met_first(w, *found)) {
        close(fd);
        errno = ENOENT;
        return -1;
    }
    return fd;
}

// Open a directory that was reported or is about to be. On failure its type says why.
int open_candidate(walk *w, candidate *found) {
    const int dir_fd = w->dirs[w->depth - 1].fd;
    const int fd = open_met(w, dir_fd, found);
    if (fd < 0) {
        const int error = errno;
        note_error(w, error);
        found->type = error == EACCES ? FTW_DNR : FTW_NS;
    }
    return fd;
}

void enter_candidate(walk *w, int fd, const candidate &found) {
    const directory *parent = &w->dirs[w->depth - 1];
    const bool is_crossing = found.is_link || found.device != parent->device;
    enter(w, fd, found, parent->inodes_trusted && !is_crossing);
}

// Report the entry whose path the walk holds, one of the innermost directory's.
int report(const walk *w, int type) {
    directory *dir = &w->dirs[w->depth - 1];
    return w->rules->visit({w->path, dir->base, static_cast<int>(w->depth), type, dir->fd, dir});
}

// Open first, so that the report tells whether the directory can be read.
int visit_opened(walk *w, candidate *found) {
    const int fd = open_candidate(w, found);
    if (w->failure != 0) {
        return FTW_CONTINUE;
    }
    const int action = report(w, found->type);
    if (fd >= 0 && action == FTW_CONTINUE) {
        enter_candidate(w, fd, *found);
    } else if (fd >= 0) {
        close(fd);
    }
    return action;
}

int visit_directory(walk *w, candidate *found) {
    if (static_cast<int>(w->depth) >= w->rules->deepest) {
        return report(w, FTW_D);
    }
    if (w->depth - w->first_open >= MAX_OPEN) {
        close_outermost(w);
    }
    if (w->rules->exact) {
        return visit_opened(w, found);
    }
    const int action = report(w, FTW_D);
    if (action == FTW_CONTINUE) {
        const int fd = open_candidate(w, found);
        if (fd >= 0) {
            enter_candidate(w, fd, *found);
        }
    }
    return action;
}

// Whether a directory is met for the first time. Where its parent alone said that it was met before,
// it is examined after all: the parent may not be searchable, and then nobody can tell.
bool is_new_directory(walk *w, int dir_fd, candidate *found) {
    if (is_met_first(w, *found)) {
        return true;
    }
    if (found->examined) {
        return false;
    }
    examine(w, dir_fd, found);
    return found->type == FTW_D && is_met_first(w, *found);
}

int visit_entry(walk *w, const dirent64 *entry) {
    const directory *dir = &w->dirs[w->depth - 1];
    if (!set_name(w, dir->base, entry->d_name, strlen(entry->d_name))) {
        return FTW_CONTINUE;
    }
    if (!is_reachable(w)) {
        return FTW_SKIP_SIBLINGS;
    }
    candidate found = classify(w, dir, entry);
    if (w->failure != 0) {
        return FTW_CONTINUE;
    }
    if (found.type == FTW_D && is_new_directory(w, dir->fd, &found)) {
        return visit_directory(w, &found);
    }
    return found.type == FTW_D ? FTW_CONTINUE : report(w, found.type);
}

// --- the whole walk ------------------------------------------------------------------------------

void walk_entries(walk *w) {
    while (w->depth > 0 && w->failure == 0) {
        const dirent64 *entry = next_entry(w, &w->dirs[w->depth - 1]);
        if (entry == nullptr || visit_entry(w, entry) == FTW_SKIP_SIBLINGS) {
            leave(w);
        }
    }
}

size_t base_of(const char *path) {
    const char *slash = strrchr(path, '/');
    return slash == nullptr ? 0 : static_cast<size_t>(slash + 1 - path);
}

void report_root(walk *w, int type) {
    w->rules->visit({w->path, base_of(w->path), 0, type, AT_FDCWD, nullptr});
}

void walk_root_directory(walk *w, const candidate &root) {
    if (!is_met_first(w, root)) {
        return;
    }
    const int fd = open_at(AT_FDCWD, w->path);
    if (fd < 0 && errno != EACCES) {
        w->failure = errno;
        return;
    }
    if (fd < 0) {
        report_root(w, FTW_DNR);
        return;
    }
    if (w->rules->visit({w->path, base_of(w->path), 0, FTW_D, AT_FDCWD, nullptr}) != FTW_CONTINUE) {
        close(fd);
        return;
    }
    enter(w, fd, root, has_true_inodes(fd));
    walk_entries(w);
}

void walk_root(walk *w) {
    struct stat sb;
    if (stat_at(AT_FDCWD, w->path, &sb, 0) != 0) {
        const int error = errno;
        const bool is_dangling = error == ENOENT &&
                                 stat_at(AT_FDCWD, w->path, &sb, AT_SYMLINK_NOFOLLOW) == 0 &&
                                 S_ISLNK(sb.st_mode);
        if (is_dangling) {
            report_root(w, FTW_SLN);
        } else {
            w->failure = error;
        }
    } else if (S_ISDIR(sb.st_mode)) {
        walk_root_directory(w, {w->path, FTW_D, sb.st_dev, sb.st_ino, true, true});
    } else {
        report_root(w, FTW_F);
    }
}

void release(walk *w) {
    for (size_t i = 0; i < w->depth; i++) {
        if (w->dirs[i].fd >= 0) {
            close(w->dirs[i].fd);
        }
    }
    for (size_t i = 0; i < w->dirs_capacity; i++) {
        free(w->dirs[i].entries);
    }
    free(w->dirs);
    free(w->path);
    directory_set_free(&w->met);
}

bool is_ascii(std::string_view text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) > 0x7f) {
            return false;
        }
    }
    return true;
}

size_t length_without_trailing_slashes(const char *path) {
    size_t length = strlen(path);
    while (length > 1 && path[length - 1] == '/') {
        length--;
    }
    return length;
}

} // namespace

bool is_usual_in_a_tree(int error) {
    switch (error) {
    case EACCES:
    case EPERM:
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case ENAMETOOLONG:
    case ESTALE:
        return true;
    default:
        return false;
    }
}

bool tree_may_hold(const tree_entry &entry, std::string_view name) {
    directory *dir = entry.directory;
    if (dir == nullptr || !dir->inodes_trusted || !is_ascii(name) || !hold_all_entries(dir)) {
        return true;
    }
    for (size_t at = 0; at < dir->used;) {
        const auto *each = reinterpret_cast<const dirent64 *>(dir->entries + at);
        at += each->d_reclen;
        if (is_named(each, name)) {
            return true;
        }
    }
    return false;
}

int tree_walk(const char *root, const tree_walk_rules &rules) {
    walk w = {};
    w.rules = &rules;
    w.root_length = length_without_trailing_slashes(root);
    if (set_name(&w, 0, root, w.root_length)) {
        walk_root(&w);
    }
    release(&w);
    errno = w.failure;
    return w.failure == 0 ? 0 : -1;
}
