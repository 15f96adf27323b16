// SPDX-License-Identifier: Apache-2.0
// The walk beside nftw itself, on random trees that nftw survives: with links, directories closed to
// the caller, mounts, and entries whose type the file system keeps to itself.
#include "tree_walk.h"

#include "directory_set.h"
#include "work_tree.h"

#include <climits>
#include <dirent.h>
#include <random>
#include <sched.h>
#include <set>
#include <sys/mount.h>
#include <sys/syscall.h>

namespace {

using trace = std::vector<std::string>;
std::minstd_rand g_random;
trace g_trace;
std::vector<fs::path> g_directories, g_targets; // of a random tree, with files among the latter
bool g_traces_type, g_skips, g_hides_types;
unsigned g_examined_first;
int g_deepest = INT_MAX;
int g_examined;  // calls of fstatat
int g_ruled_out; // names that tree_may_hold said are not there

int pick(int n) {
    return static_cast<int>(g_random() % static_cast<unsigned>(n));
}

const fs::path &pick_of(const std::vector<fs::path> &paths) {
    return paths[g_random() % paths.size()];
}

} // namespace

// In place of libc's, for the walk alone.
extern "C" ssize_t getdents64(int fd, void *entries, size_t size) {
    const ssize_t got = syscall(SYS_getdents64, fd, entries, size);
    for (ssize_t at = 0; g_hides_types && at < got;) {
        auto *entry = reinterpret_cast<dirent64 *>(static_cast<char *>(entries) + at);
        entry->d_type =
            entry->d_ino % 3 == 0 ? entry->d_type : static_cast<unsigned char>(DT_UNKNOWN);
        at += entry->d_reclen;
    }
    return got;
}
extern "C" int fstatat(int fd, const char *name, struct stat *to, int flags) noexcept {
    g_examined++;
    return static_cast<int>(syscall(SYS_newfstatat, fd, name, to, flags));
}

namespace {

// One answer a path below the start's parent, the same for both walks.
int note(const char *path, int base, int level, int type) {
    g_trace.push_back(text("%s %d %d %d", path, base, level, g_traces_type ? type : -1));
    const size_t any = g_skips ? std::hash<std::string>{}(strstr(path, "/work")) % 8 : 0;
    return level >= g_deepest || any == 1 ? FTW_SKIP_SUBTREE
           : any == 2                     ? FTW_SKIP_SIBLINGS
                                          : FTW_CONTINUE;
}

int note_ours(const tree_entry &entry) {
    const char *name = entry.level == 0 ? entry.path.data() : entry.name().data();
    const std::string own(entry.name()), beyond_ascii = own + "\xc3\xa9";
    const int examined = g_examined;
    struct stat sb;
    EXPECT_TRUE((entry.type != FTW_D && entry.type != FTW_F) ||
                fstatat(entry.dir_fd, name, &sb, 0) == 0 || errno == EACCES)
        << name;
    for (const std::string &other : {own, own + "b", own.substr(0, 1), text("%c", 'a' + pick(6))}) {
        std::string upper = other;
        std::ranges::transform(upper, upper.begin(), toupper);
        const bool is_there = fstatat(entry.dir_fd, other.c_str(), &sb, AT_SYMLINK_NOFOLLOW) == 0;
        const bool is_ruled_out = !tree_may_hold(entry, upper);
        EXPECT_FALSE(is_ruled_out && is_there) << other;
        g_ruled_out += is_ruled_out;
    }
    EXPECT_TRUE(tree_may_hold(entry, beyond_ascii));
    g_examined = examined;
    return note(entry.path.data(), static_cast<int>(entry.base), entry.level, entry.type);
}

int note_theirs(const char *path, const struct stat *, int type, struct FTW *ftw) {
    return note(path, ftw->base, ftw->level, type);
}

void fail_on_loss(const char *path, int error) {
    ADD_FAILURE() << path << ": " << strerror(error);
}

trace walk_ours(const std::string &root, bool exact) {
    g_trace.clear();
    g_traces_type = exact;
    const int deepest = exact ? INT_MAX : g_deepest;
    EXPECT_EQ(tree_walk(root.c_str(), {note_ours, fail_on_loss, deepest, exact, g_examined_first}),
              0);
    return g_trace;
}

// Whether both ways of walking give what nftw gives, or nftw gives up. As somebody to whom directories
// can be closed, if the tests run as root.
bool is_as_nftw_says(const std::string &root) {
    const bool is_changed = geteuid() == 0 && seteuid(65534) == 0;
    bool survives = true;
    for (const bool exact : {false, true}) {
        const trace ours = walk_ours(root, exact);
        g_trace.clear();
        survives = nftw(root.c_str(), note_theirs, 64, FTW_ACTIONRETVAL) == 0;
        EXPECT_TRUE(!survives || ours == g_trace) << root;
    }
    EXPECT_TRUE(!is_changed || seteuid(0) == 0);
    return survives;
}

// A random tree, which begins with a deep and narrow one if it is deep; links lead to any directory or
// file made so far, or nowhere.
void grow(const fs::path &dir, int depth) {
    g_directories.push_back(dir);
    g_targets.push_back(dir);
    const int last = pick(5), inner = pick(last + 1);
    for (int i = last; i >= 0; i--) {
        const fs::path entry = dir / std::string(1, static_cast<char>('a' + i));
        const int kind = depth > 3 && i == inner ? 4 : pick(depth == 0 || depth > 3 ? 4 : 8);
        if (kind == 0) {
            mkfifo(entry.c_str(), 0600);
        } else if (kind == 1) {
            write_file(entry, "x");
            g_targets.push_back(entry);
        } else if (kind < 4) {
            fs::create_symlink(pick(4) == 0 ? "nowhere" : pick_of(g_targets), entry);
        } else {
            fs::create_directory(entry);
            grow(entry, depth - 1);
        }
    }
}

TEST(TreeWalk, VisitsWhatNftwVisits) {
    constexpr mode_t modes[] = {0755, 0755, 0755, 0755, 0711, 0744, 0700, 0755};
    const bool may_mount = unshare(CLONE_NEWNS) == 0 &&
                           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                           mount("none", "/tmp", "tmpfs", 0, nullptr) == 0;
    const int descriptor = dup(0);
    int survived = 0;
    for (unsigned seed = 1; seed <= 500; seed++) {
        SCOPED_TRACE(seed);
        g_random.seed(seed);
        g_skips = seed % 2 == 0;
        g_deepest = seed % 3 == 0 ? 2 : INT_MAX;
        g_hides_types = seed % 5 == 0;
        g_examined_first = seed % 7;
        work_tree tree;
        g_directories.clear();
        g_targets.clear();
        fs::create_directory(tree.top / "outside"); // links alone lead there
        grow(tree.top / "outside", 2);
        const std::vector<fs::path> outside = g_directories;
        grow(tree.work, seed % 4 == 1 ? 25 : 3);
        for (const fs::path &dir : g_directories) {
            EXPECT_TRUE(dir == tree.work || chmod(dir.c_str(), modes[pick(8)]) == 0);
        }
        std::vector<fs::path> mounted;
        for (int i = may_mount ? pick(5) : 0; i > 0; i--) {
            std::error_code error; // what is mounted may have put another entry there
            const fs::path to =
                fs::canonical(pick_of(seed % 4 < 2 ? outside : g_directories), error);
            if (mount(pick_of(g_directories).c_str(), to.c_str(), nullptr, MS_BIND, nullptr) == 0) {
                mounted.push_back(to);
            }
        }
        survived += is_as_nftw_says(tree.work.string() + (seed % 3 == 0 ? "//" : ""));
        for (; !mounted.empty(); mounted.pop_back()) {
            EXPECT_EQ(umount2(mounted.back().c_str(), MNT_DETACH), 0);
        }
    }
    EXPECT_GT(survived, 250);
    EXPECT_EQ(dup(0), descriptor + 1) << "descriptors are left";
    if (may_mount) { // on tmpfs, whose directories can be trusted
        work_tree tree;
        for (int i = 0; i < 500; i++) {
            fs::create_directories(tree.work / std::to_string(i) / "below");
            const std::string rest = i % 100 == 0 ? "" : text("%0200d", i); // more than a buffer
            write_file(tree.work / "0" / (text("%c", 'a' + i / 100) + rest), "");
        }
        g_skips = g_hides_types = false;
        g_examined = 0;
        walk_ours(tree.work, false);
        EXPECT_EQ(g_examined, 1 + static_cast<int>(g_examined_first)) << "the start, and a few";
        EXPECT_GT(g_ruled_out, 1000);
    }
}

TEST(TreeWalk, StartsAreJudgedAsNftwDoes) {
    work_tree tree;
    write_file(tree.top / "file", "x");
    fs::create_symlink("nowhere", tree.top / "dangling");
    fs::current_path(tree.top);
    for (const char *start : {"file", "dangling", "work"}) {
        EXPECT_TRUE(is_as_nftw_says(start));
    }
    for (const char *missing : {"missing", "file/x", ""}) {
        EXPECT_EQ(tree_walk(missing, {note_ours, fail_on_loss, 9, false, 0}), -1);
        const int ours = errno;
        EXPECT_EQ(nftw(missing, note_theirs, 64, FTW_ACTIONRETVAL), -1);
        EXPECT_EQ(ours, errno) << missing;
    }
}

TEST(DirectorySet, RemembersDeviceAndInode) {
    std::set<std::pair<dev_t, ino_t>> model;
    directory_set set = {};
    for (int i = 0; i < 20000; i++) {
        const dev_t device = static_cast<dev_t>(pick(3));
        const ino_t inode = static_cast<ino_t>(pick(8000)) * (device == 0 ? 1 : 0x123456789ABC5);
        ASSERT_EQ(directory_set_add(&set, device, inode) == directory_meeting::FIRST,
                  model.emplace(device, inode).second);
    }
    directory_set_free(&set);
    EXPECT_EQ(set.device_count, 0u);
}

} // namespace
