// SPDX-License-Identifier: Apache-2.0
// A walk over a directory tree with nftw's contract: pre-order, symbolic links followed, a
// directory entered once however many paths lead to it, FTW_SKIP_SUBTREE and FTW_SKIP_SIBLINGS
// honoured. Where nftw gives up, over a link that leads to itself, an entry that vanished or a path
// that grew too long, this walk reports the entry as one that can't be examined and goes on.
//
// It is made for many directories of few entries: it works on directory descriptors, takes entry
// types and inode numbers from the directories themselves wherever the file system gives them, and
// examines with a system call only what they leave open. It does not recurse, and it holds eight
// descriptors at the most, however deep the tree.
#pragma once

#include "text_part.h"

#include <cstddef>
#include <string_view>

#include <ftw.h>

struct walked_directory; // the walk's own

// One entry, valid during the visit.
struct tree_entry {
    std::string_view path; // the whole path, zero-terminated
    size_t base;           // where the entry's name begins in it
    int level;             // 0 for the start, then one more a directory
    int type;              // FTW_F, FTW_D, FTW_DNR, FTW_NS or FTW_SLN
    int dir_fd;            // descriptor of the directory that holds the entry (AT_FDCWD: the start)
    walked_directory *directory; // that directory (null: the start)

    std::string_view name() const { return text_part(path, base, path.size()); }
};

// Called for every entry; returns FTW_CONTINUE, FTW_SKIP_SUBTREE or FTW_SKIP_SIBLINGS.
using tree_visit = int(const tree_entry &entry);

// Called when the entries of a directory, or an entry's type, are lost to an error that is no
// matter of permissions, loops or changes to the tree (a failing disk, say): the walk goes on, but
// it did not see everything.
using tree_loss = void(const char *path, int error);

// Whether a tree may cause an error by what it is, or by changing while it is walked.
bool is_usual_in_a_tree(int error);

struct tree_walk_rules {
    tree_visit *visit;
    tree_loss *lost;
    int deepest; // directories at this level are reported but not entered
    bool exact;  // every entry's type is what examining it just before the visit says
    // So many directories are examined before the list of mounts is read, which may show that the
    // others need not be: a small tree does not repay the reading.
    unsigned examined_first;
};

// Walk the tree at `root`. Returns 0, or -1 with errno when the start can't be examined or opened
// (one that may not be read is reported as FTW_DNR), or when descriptors or memory run out.
//
// Without `exact` a regular entry may turn out not to exist any more, and a directory is reported
// as FTW_D before it is known whether it can be read.
int tree_walk(const char *root, const tree_walk_rules &rules);

// Whether a name (zero-terminated, not empty) may stand beside an entry. True means that only the file
// system can tell. False comes from the entries read, mostly at the price of one getdents64, and on
// shared storage saves a round trip; it is certain but where the file system takes letters beyond ASCII
// for letters within (a Kelvin sign for a k).
bool tree_may_hold(const tree_entry &entry, std::string_view name);
