// SPDX-License-Identifier: Apache-2.0
// The rules by depth. The depth of an entry is base_level plus its level in the walk, so that the
// rules are the same wherever the walk begins:
//
//     <work dir>/workspace/<workspace>/<profile>/maranth/<project>/<sub-project>/scenarios/x.conf
//     depth:     0         1           2         3       4         5             6         7
//                                                                 a directory x: its files are at 8
#include "scenario_walk.h"

#include "output.h"
#include "scenario_tags.h"
#include "selection.h"
#include "tree_walk.h"
#include "user_access.h"

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

path_list scen_list;

namespace {

enum POS_IN_SCENARIO_PATH {
    POS_ROOT,
    POS_WORKSPACE,
    POS_PROFILE,
    POS_MARANTH_DIR,
    POS_PROJECT,
    POS_SUB_PROJECT,
    POS_SCENARIO_DIR,
    POS_SCENARIO_NAME,
    POS_INSIDE_SCENARIO_DIR
};

constexpr std::string_view CONF_SUFFIX = ".conf";
constexpr int KEPT_HEAP = 16 * 1024 * 1024; // bytes
constexpr int LARGEST_HEAP_BLOCK = 1024 * 1024;
constexpr unsigned EXAMINED_FIRST = 64; // directories
constexpr double SECONDS_PER_DAY = 86400.0;

int base_level; // depth of the walk's start, by scan_scen_list

// --- progress on a terminal ----------------------------------------------------------------------

constexpr unsigned long PROGRESS_STRIDE = 512; // entries between two looks at the clock

unsigned long g_entries_seen;
int64_t g_last_shown; // milliseconds of the monotonic clock: progress shown, or the walk begun
bool g_shows_progress;

int64_t monotonic_milliseconds() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{1000} * now.tv_sec + now.tv_nsec / 1000000;
}

void begin_progress() {
    g_shows_progress = g_is_debug == 0 && is_terminal(STDOUT_FILENO) && is_terminal(STDERR_FILENO);
    g_last_shown = monotonic_milliseconds();
}

// Tell somebody who waits at a terminal, once a second, how far the walk is.
void count_progress() {
    if (++g_entries_seen % PROGRESS_STRIDE != 0 || !g_shows_progress) {
        return;
    }
    const int64_t now = monotonic_milliseconds();
    if (now - g_last_shown >= 1000) {
        g_last_shown = now;
        show_progress(g_entries_seen);
    }
}

// --- files ---------------------------------------------------------------------------------------

// What an entry is judged by is not known: unless the tree itself explains it, a row may be lost.
void note_error(const tree_entry &entry, int error) {
    if (!is_usual_in_a_tree(error)) {
        report_loss(entry.path.data(), error);
    }
}

// What stat says of the entry's file, or of another beside it, links followed; mode 0 when it says
// nothing.
struct stat examine(const tree_entry &entry, const char *name) {
    struct stat file = {};
    while (fstatat(entry.dir_fd, name, &file, 0) != 0) {
        if (errno != EINTR) {
            note_error(entry, errno);
            file.st_mode = 0;
            break;
        }
    }
    return file;
}

bool is_known(const struct stat &file) {
    return file.st_mode != 0;
}

// Whether a directory of the entry's name less its suffix stands beside it: it is the scenario
// then. A name that is nothing but the suffix stands for the directory it lies in.
bool is_beside_directory(const tree_entry &entry, std::string_view suffix) {
    __attribute__((uninitialized)) char stem[NAME_MAX + 1];
    const size_t length = entry.name().size() - suffix.size();
    if (length == 0) {
        return true;
    }
    if (length >= sizeof stem) {
        return false;
    }
    memcpy(stem, entry.name().data(), length);
    stem[length] = '\0';
    return tree_may_hold(entry, {stem, length}) && S_ISDIR(examine(entry, stem).st_mode);
}

// --- filters -------------------------------------------------------------------------------------

bool is_mtime_within_last_n_days(const struct stat &file) {
    if (last_n_days == -1) {
        return true;
    }
    if (!is_known(file)) {
        return false;
    }
    return difftime(time(nullptr), file.st_mtime) / SECONDS_PER_DAY <= last_n_days;
}

// name: zero-terminated.
bool is_keyword_matching(const char *name) {
    for (int i = 0; i < num_search_key; i++) {
        if (strcasestr(name, search_keys[i]) != nullptr) {
            return true;
        }
    }
    return num_search_key == 0;
}

// Whether "/<name>" ends a text, which loses it then.
bool take_component(std::string_view *text, std::string_view name) {
    if (!text->ends_with(name)) {
        return false;
    }
    std::string_view before = *text;
    before.remove_suffix(name.size());
    if (!before.ends_with('/')) {
        return false;
    }
    before.remove_suffix(1);
    *text = before;
    return true;
}

// Rows match at the end of the path, in whatever workspace it lies.
bool is_sub_project_allowed(const tree_entry &entry) {
    for (int i = 0; i < num_projs; i++) {
        std::string_view rest = entry.path;
        if (usr_sub_project[i][0] == '*') {
            rest = text_part(entry.path, 0, entry.base - 1);
        } else if (!take_component(&rest, usr_sub_project[i])) {
            continue;
        }
        if (take_component(&rest, usr_project[i])) {
            return true;
        }
    }
    return num_projs == 0;
}

bool are_tag_age_and_name_wanted(const tree_entry &entry, const struct stat &file,
                                 const char *scenario_name) {
    return is_tag_present(entry, file) && is_mtime_within_last_n_days(file) &&
           is_keyword_matching(scenario_name);
}

// Without tags to look for, whose messages must not be lost, the name may be judged first: it
// costs no system call.
bool is_name_ruled_out(const char *scenario_name) {
    return g_num_tags == 0 && !is_keyword_matching(scenario_name);
}

// --- rules by depth ------------------------------------------------------------------------------

// The list is one of lines: a name with a newline can't stand in it, nor can an overlong path.
bool fits_a_line(std::string_view path) {
    return path.size() <= MAX_PATH_LENGTH && path.find('\n') == std::string_view::npos;
}

// Record a scenario file. Its path is shared with its neighbours' up to `shared`.
void record(const tree_entry &entry, size_t shared, const struct stat &file) {
    if (fits_a_line(entry.path) &&
        !path_list_add(&scen_list, entry.path, shared, attributes_of(&file))) {
        die(1, "Error: Internal error, msg - open_memstream failed, %s\n", strerror(ENOMEM));
    }
}

int filter_profile(const tree_entry &entry) {
    if (w_set != 0 && entry.name() == VXLB_DEFAULT_PROFILE) {
        return FTW_SKIP_SUBTREE;
    }
    return all != 0 && entry.path.ends_with("/admin/system") ? FTW_SKIP_SUBTREE : FTW_CONTINUE;
}

int enter_only(const tree_entry &entry, std::string_view name) {
    return entry.name() == name ? FTW_CONTINUE : FTW_SKIP_SUBTREE;
}

// A flat scenario: a file whose name ends in ".conf".
int filter_scenario_name(const tree_entry &entry) {
    const char *name = entry.name().data();
    if (entry.type != FTW_F) {
        return FTW_CONTINUE;
    }
    if (!entry.name().ends_with(CONF_SUFFIX) || g_test_type != ORDINARY_SCENARIOS ||
        is_name_ruled_out(name)) {
        return FTW_SKIP_SUBTREE;
    }
    const struct stat file = examine(entry, entry.name().data());
    if (is_known(file) && !is_beside_directory(entry, CONF_SUFFIX) &&
        are_tag_age_and_name_wanted(entry, file, name)) {
        record(entry, entry.base, file);
    }
    return FTW_SKIP_SUBTREE;
}

bool is_scenario_file(std::string_view name) {
    if (name.ends_with("scenario.json")) {
        return !name.ends_with(".scenario.json");
    }
    return name.ends_with("scenario.yaml") || name.ends_with("scenario.jmx") ||
           name.ends_with("scenario.wzrd");
}

bool is_beside_functional_marker(const tree_entry &entry) {
    constexpr const char *marker = ".functional";
    if (!tree_may_hold(entry, marker)) {
        return false;
    }
    while (faccessat(entry.dir_fd, marker, F_OK, 0) != 0) {
        if (errno != EINTR) {
            note_error(entry, errno);
            return false;
        }
    }
    return true;
}

// The first scenario file of a directory decides for the whole directory. Its type is not asked
// for: whatever bears the name is recorded.
int filter_inside_scenario_dir(const tree_entry &entry) {
    if (!is_scenario_file(entry.name())) {
        return FTW_CONTINUE;
    }
    const std::string_view directory = text_part(entry.path, 0, entry.base - 1);
    const size_t name_at = directory.rfind('/') + 1;
    __attribute__((uninitialized)) char name[MAX_PATH_LENGTH + 1];
    if (!fits_a_line(entry.path)) {
        return FTW_SKIP_SIBLINGS;
    }
    memcpy(name, directory.data() + name_at, directory.size() - name_at);
    name[directory.size() - name_at] = '\0';

    const bool functional_wanted = g_test_type == FUNCTIONAL_SCENARIOS;
    if (is_name_ruled_out(name) || is_beside_functional_marker(entry) != functional_wanted) {
        return FTW_SKIP_SIBLINGS;
    }
    const struct stat file = examine(entry, entry.name().data());
    if (are_tag_age_and_name_wanted(entry, file, name)) {
        record(entry, name_at, file);
    }
    return FTW_SKIP_SIBLINGS;
}

int scen_filter(const tree_entry &entry) {
    count_progress();
    if (g_is_debug != 0) {
        report_error("LOG: fpath: %s, level - %d, typeflag - %d\n", entry.path.data(), entry.level,
                     entry.type);
    }
    switch (base_level + entry.level) {
    case POS_PROFILE:
        return filter_profile(entry);
    case POS_MARANTH_DIR:
        return enter_only(entry, "maranth");
    case POS_SUB_PROJECT:
        return is_sub_project_allowed(entry) ? FTW_CONTINUE : FTW_SKIP_SUBTREE;
    case POS_SCENARIO_DIR:
        return enter_only(entry, "scenarios");
    case POS_SCENARIO_NAME:
        return filter_scenario_name(entry);
    case POS_INSIDE_SCENARIO_DIR:
        return filter_inside_scenario_dir(entry);
    default: // the workspace root, workspaces, projects, and all that lies too deep
        return FTW_CONTINUE;
    }
}

// Where the walk begins, in one's own copy.
char *choose_root() {
    base_level = w_set != 0 ? POS_WORKSPACE : all != 0 ? POS_ROOT : POS_MARANTH_DIR;
    if (base_level != POS_ROOT) {
        return strdup(scenario_dir);
    }
    char *root;
    return asprintf(&root, "%s/workspace", vx_wdir) < 0 ? nullptr : root;
}

} // namespace

void scan_scen_list() {
    char *root = choose_root();
    if (root == nullptr) {
        die_of_memory();
    }
    // Nothing below a scenario's own files can be listed; only a trace shows it.
    const bool is_traced = g_is_debug != 0;
    const int deepest = is_traced ? INT_MAX : POS_INSIDE_SCENARIO_DIR - base_level;
    if (g_num_tags > 0) {
        // Every file takes and gives back the same few blocks; they need not go back to the system
        // in between.
        mallopt(M_TRIM_THRESHOLD, KEPT_HEAP);
        mallopt(M_MMAP_THRESHOLD, LARGEST_HEAP_BLOCK);
    }
    begin_progress();
    if (tree_walk(root, {scen_filter, report_loss, deepest, is_traced, EXAMINED_FIRST}) != 0) {
        die(1, "Error: Internal error, msg - nftw failed for workspace directory, %s\n",
            strerror(errno));
    }
    free(root);
    erase_progress();
}
