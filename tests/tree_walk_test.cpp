// SPDX-License-Identifier: Apache-2.0
// The walk beside nftw itself, on random trees that nftw survives.
#include "tree_walk.h"

#include "directory_set.h"
#include "work_tree.h"

#include <gtest/gtest.h>

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

int pick(int n) {
    return static_cast<int>(g_random() % static_cast<unsigned>(n));
}

// One answer a path, the same for both walks.
int action_for(const std::string &path) {
    constexpr int actions[] = {FTW_CONTINUE, FTW_CONTINUE, FTW_CONTINUE,     FTW_CONTINUE,
                               FTW_CONTINUE, FTW_CONTINUE, FTW_SKIP_SUBTREE, FTW_SKIP_SIBLINGS};
    return !g_skips ? FTW_CONTINUE : actions[std::hash<std::string>{}(path) % 8];
}

int note(const char *path, int base, int level, int type) {
    g_trace.push_back(std::string(path) + " " + std::to_string(base) + " " + std::to_string(level) +
                      (g_traces_type ? " " + std::to_string(type) : ""));
    return action_for(path);
}

int note_ours(const tree_entry &entry) {
    EXPECT_EQ(entry.path.data()[entry.path.size()], '\0');
    struct stat sb;
    if (entry.type == FTW_D || entry.type == FTW_F) {
        EXPECT_EQ(fstatat(entry.dir_fd, entry.level == 0 ? entry.path.data() : entry.name().data(),
                          &sb, 0),
                  0)
            << entry.path;
    }
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
    EXPECT_EQ(tree_walk(root.c_str(), {note_ours, fail_on_loss, deepest, exact}), 0);
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
            fs::create_symlink(
                (*targets)[static_cast<size_t>(pick(static_cast<int>(targets->size())))], entry);
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

TEST(TreeWalk, VisitsWhatNftwVisits) {
    for (unsigned seed = 1; seed <= 100; seed++) {
        SCOPED_TRACE(seed);
        g_random.seed(seed);
        g_skips = seed % 2 == 0;
        work_tree tree;
        std::vector<fs::path> targets = {tree.work};
        grow(tree.work, 3, &targets);
        g_traces_type = true;
        const std::string root = tree.work.string() + (seed % 3 == 0 ? "//" : "");
        EXPECT_EQ(walk_ours(root, INT_MAX, true), walk_theirs(root));
        g_traces_type = false;
        EXPECT_EQ(walk_ours(root, INT_MAX, false), walk_theirs(root));
    }
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
        EXPECT_EQ(tree_walk(missing.c_str(), {note_ours, fail_on_loss, 9, false}), -1);
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
    write_file(tree.work / "z", "");
    g_traces_type = true;
    trace found = walk_ours(tree.work, 1, true);
    std::sort(found.begin(), found.end());
    const std::string base = " " + std::to_string(tree.work.string().size() + 1) + " 1 ";
    const std::string work = tree.work.string();
    EXPECT_EQ(std::count(found.begin(), found.end(), work + "/z" + base + std::to_string(FTW_F)),
              1);
    EXPECT_EQ(
        std::count(found.begin(), found.end(), work + "/loop" + base + std::to_string(FTW_SLN)), 1);
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
        ASSERT_EQ(tree_walk(tree.work.c_str(), {continue_always, fail_on_loss, INT_MAX, exact}), 0);
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
