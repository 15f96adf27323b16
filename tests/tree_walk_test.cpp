// SPDX-License-Identifier: Apache-2.0
// The walk beside nftw itself, on random trees that nftw survives: with links, directories closed to
// the caller, mounts, and entries whose type the file system keeps to itself.
#include "tree_walk.h"

#include "directory_set.h"
#include "work_tree.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

namespace {

using trace = std::vector<std::string>;
std::minstd_rand g_random;
trace g_trace;
bool g_traces_type;
bool g_skips;
int g_deepest = INT_MAX;
bool g_hides_types;
unsigned g_examined_first;

int pick(int n) {
    return static_cast<int>(g_random() % static_cast<unsigned>(n));
}

const fs::path &pick_of(const std::vector<fs::path> &paths, size_t first) {
    return paths[g_random() % first];
}

// One answer a path below the start's parent, the same for both walks.
int action_for(const std::string &path) {
    constexpr int actions[] = {FTW_CONTINUE, FTW_CONTINUE, FTW_CONTINUE,     FTW_CONTINUE,
                               FTW_CONTINUE, FTW_CONTINUE, FTW_SKIP_SUBTREE, FTW_SKIP_SIBLINGS};
    return !g_skips ? FTW_CONTINUE
                    : actions[std::hash<std::string>{}(path.substr(path.find("/work"))) % 8];
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

namespace {

int note(const char *path, int base, int level, int type) {
    g_trace.push_back(std::string(path) + " " + std::to_string(base) + " " + std::to_string(level) +
                      (g_traces_type ? " " + std::to_string(type) : ""));
    return level >= g_deepest ? FTW_SKIP_SUBTREE : action_for(path);
}

int note_ours(const tree_entry &entry) {
    EXPECT_EQ(entry.path.data()[entry.path.size()], '\0');
    struct stat sb;
    if (entry.type == FTW_D || entry.type == FTW_F) {
        const char *name = entry.level == 0 ? entry.path.data() : entry.name().data();
        EXPECT_TRUE(fstatat(entry.dir_fd, name, &sb, 0) == 0 || errno == EACCES) << entry.path;
    }
    const char name[] = {"abcdef"[pick(6)], '\0'},
               upper[] = {static_cast<char>(name[0] - 32), '\0'};
    EXPECT_TRUE(tree_may_hold(entry, upper) || fstatat(entry.dir_fd, name, &sb, 0) != 0) << name;
    return note(entry.path.data(), static_cast<int>(entry.base), entry.level, entry.type);
}

int note_theirs(const char *path, const struct stat *, int type, struct FTW *ftw) {
    return note(path, ftw->base, ftw->level, type);
}

void fail_on_loss(const char *path, int error) {
    ADD_FAILURE() << path << ": " << strerror(error);
}

trace walk_ours(const std::string &root, int deepest, bool exact) {
    g_trace.clear();
    EXPECT_EQ(tree_walk(root.c_str(), {note_ours, fail_on_loss, deepest, exact, g_examined_first}),
              0);
    return g_trace;
}

trace walk_theirs(const std::string &root) {
    g_trace.clear();
    EXPECT_EQ(nftw(root.c_str(), note_theirs, 64, FTW_ACTIONRETVAL), 0) << strerror(errno);
    return g_trace;
}

// A random tree; links lead to any directory or file made so far, or nowhere.
void grow(const fs::path &dir, int depth, std::vector<fs::path> *targets) {
    targets->push_back(dir);
    for (int i = pick(5); i >= 0; i--) {
        const fs::path entry = dir / std::string(1, static_cast<char>('a' + i));
        const int kind = depth == 0 ? pick(3) : pick(7);
        if (kind == 0) {
            fs::create_symlink(pick_of(*targets, targets->size()), entry);
        } else if (kind == 1) {
            write_file(entry, "x");
            targets->push_back(entry);
        } else if (kind == 2 && pick(2) == 0) {
            fs::create_symlink("nowhere", entry);
        } else if (kind == 2) {
            mkfifo(entry.c_str(), 0600);
        } else {
            fs::create_directory(entry);
            grow(entry, depth - 1, targets);
        }
    }
}

// Directories of a random tree, those outside the walk's start first: links alone lead there.
std::vector<fs::path> grow_tree(const work_tree &tree, size_t *outside) {
    std::vector<fs::path> targets, within;
    fs::create_directory(tree.top / "outside");
    grow(tree.top / "outside", 2, &targets);
    const auto is_no_directory = [](const fs::path &path) { return !fs::is_directory(path); };
    *outside = targets.size() - std::erase_if(targets, is_no_directory);
    grow(tree.work, 3, &targets);
    std::erase_if(targets, is_no_directory);
    return targets;
}

// As somebody to whom directories can be closed, if the tests run as root. False: nftw gives up.
bool walk_both_ways(const std::string &root) {
    const bool is_changed = geteuid() == 0 && seteuid(65534) == 0;
    const bool survives = nftw(root.c_str(), note_theirs, 64, FTW_ACTIONRETVAL) == 0;
    for (const bool exact : {false, true}) {
        g_traces_type = exact;
        EXPECT_TRUE(!survives ||
                    walk_ours(root, exact ? INT_MAX : g_deepest, exact) == walk_theirs(root));
    }
    EXPECT_TRUE(!is_changed || seteuid(0) == 0);
    return survives;
}

TEST(TreeWalk, VisitsWhatNftwVisits) {
    constexpr mode_t modes[] = {0755, 0755, 0755, 0755, 0711, 0744, 0700, 0755};
    const bool may_mount = unshare(CLONE_NEWNS) == 0 &&
                           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                           mount("none", "/tmp", "tmpfs", 0, nullptr) == 0;
    int survived = 0;
    for (unsigned seed = 1; seed <= 500; seed++) {
        SCOPED_TRACE(seed);
        g_random.seed(seed);
        g_skips = seed % 2 == 0;
        g_deepest = seed % 3 == 0 ? 2 : INT_MAX;
        g_hides_types = seed % 5 == 0;
        g_examined_first = seed % 7;
        work_tree tree;
        size_t outside;
        const std::vector<fs::path> dirs = grow_tree(tree, &outside);
        for (size_t i = 0; i < dirs.size(); i++) {
            EXPECT_TRUE(i == outside || chmod(dirs[i].c_str(), modes[pick(8)]) == 0);
        }
        std::vector<fs::path> mounted;
        for (int i = may_mount ? pick(5) : 0; i > 0; i--) {
            const fs::path &to = pick_of(dirs, seed % 4 < 2 ? outside : dirs.size());
            if (mount(pick_of(dirs, dirs.size()).c_str(), to.c_str(), nullptr, MS_BIND, nullptr) ==
                0) {
                mounted.push_back(to);
            }
        }
        survived += walk_both_ways(tree.work.string() + (seed % 3 == 0 ? "//" : ""));
        for (; !mounted.empty(); mounted.pop_back()) {
            umount2(mounted.back().c_str(), MNT_DETACH);
        }
    }
    EXPECT_GT(survived, 250);
    g_deepest = INT_MAX;
    g_skips = false;
}

TEST(TreeWalk, RootsAreJudgedAsNftwDoes) {
    work_tree tree;
    const std::string file = tree.top / "file", dangling = tree.top / "dangling";
    write_file(file, "x");
    fs::create_symlink("nowhere", dangling);
    g_traces_type = true;
    EXPECT_EQ(walk_ours(file, 9, true), walk_theirs(file));
    EXPECT_EQ(walk_ours(dangling, 9, true), walk_theirs(dangling));
    for (const std::string &missing :
         {tree.top.string() + "/missing", file + "/x", std::string()}) {
        errno = 0;
        EXPECT_EQ(tree_walk(missing.c_str(), {note_ours, fail_on_loss, 9, false, 0}), -1);
        const int ours = errno;
        EXPECT_EQ(nftw(missing.c_str(), note_theirs, 64, FTW_ACTIONRETVAL), -1);
        EXPECT_EQ(ours, errno) << missing;
    }
    fs::current_path(tree.top);
    EXPECT_EQ(walk_ours("work", 9, true), walk_theirs("work"));
}

TEST(TreeWalk, GoesOnWhereNftwGivesUp) {
    work_tree tree;
    fs::create_symlink("loop", tree.work / "loop");
    g_traces_type = true;
    const trace found = walk_ours(tree.work, 1, true);
    const std::string work = tree.work;
    const std::string loop = text("%s/loop %zu 1 %d", work.c_str(), work.size() + 1, FTW_SLN);
    EXPECT_EQ(std::count(found.begin(), found.end(), loop), 1);
}

int continue_always(const tree_entry &entry) {
    g_trace.emplace_back(entry.path);
    return FTW_CONTINUE;
}

// Deeper than descriptors last, with a sibling on the way back at every level.
TEST(TreeWalk, ComesBackThroughClosedDirectories) {
    constexpr int depth = 60;
    work_tree tree;
    fs::path dir = tree.work;
    std::vector<std::string> all = {dir};
    for (int i = 0; i < depth; i++) {
        // Every tenth directory is a link to where ".." does not lead back.
        const fs::path inner = dir / "d";
        if (i % 10 == 9) {
            fs::create_directory(tree.top / std::to_string(i));
            fs::create_directory_symlink(tree.top / std::to_string(i), inner);
        } else {
            fs::create_directory(inner);
        }
        for (const char *sibling : {"a", "z"}) {
            fs::create_directory(dir / sibling);
            all.push_back(dir / sibling);
        }
        all.push_back(inner);
        dir = inner;
    }
    fs::remove_all(tree.work / "workspace");
    for (const bool exact : {false, true}) {
        g_trace.clear();
        ASSERT_EQ(tree_walk(tree.work.c_str(), {continue_always, fail_on_loss, INT_MAX, exact, 0}),
                  0);
        std::sort(g_trace.begin(), g_trace.end());
        std::sort(all.begin(), all.end());
        EXPECT_EQ(g_trace, all);
    }
}

TEST(DirectorySet, RemembersDeviceAndInode) {
    std::minstd_rand random(7);
    std::set<std::pair<dev_t, ino_t>> model;
    directory_set set = {};
    for (int i = 0; i < 20000; i++) {
        const dev_t device = random() % 3;
        const ino_t inode = random() % 8000;
        const bool is_new = model.emplace(device, inode).second;
        ASSERT_EQ(directory_set_add(&set, device, inode) == directory_meeting::FIRST, is_new);
    }
    directory_set_free(&set);
    EXPECT_EQ(set.device_count, 0u);
}

} // namespace
