// SPDX-License-Identifier: Apache-2.0
// The whole command, again and again in this process: arguments, answers of the helpers and a small tree
// come from the input. It may end with status 0, 1 or 255 and in no other way.
//
//     closed descriptors | number of arguments | arguments | answer and status of the user check |
//     project rows | groups | entries of the tree: kind, depth, components, contents

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <ftw.h>
#include <map>
#include <set>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <libvxcore/vxlb_log.h>

#include "fuzz.h"
#include "run_again.h"
#include "selection.h"
#include "shell_word.h"

int vxu_main(int argc, char **argv); // the command's main function
extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void *fd);

namespace {

constexpr int DEEPEST = 9;

// Shorter paths first, so that a directory comes before what it holds. Without memcmp, at each call of which
// the fuzzer takes notes.
struct Shorter {
    bool operator()(const std::string &a, const std::string &b) const {
        if (a.size() != b.size()) {
            return a.size() < b.size();
        }
        size_t i = a.size();
        while (i > 1 && a[i - 1] == b[i - 1]) {
            i--;
        }
        return a[i - 1] < b[i - 1];
    }
};

enum class Kind { DIRECTORY, LINK, OTHER };

std::map<std::string, Kind, Shorter> g_made; // what the work directory holds
std::vector<std::string> g_dated;            // what of it has another time than its own
std::set<std::string, Shorter> g_left;       // directories of the run before
bool g_is_tangled;                           // something was made through a link
std::string g_root;                          // of three components, as the command wants it
std::vector<std::string> g_arguments;
std::string g_rows, g_groups;
int g_check_status;
int g_standard[3]; // this process's own
int g_out, g_errors, g_directory;
std::vector<FILE *> g_streams; // of helpers, open

std::string word(Input &in, const char *const *usual, unsigned count) {
    const unsigned code = in.byte();
    return code < 200 ? usual[code % count] : in.name(12);
}

std::vector<std::string> read_arguments(Input &in) {
    static const char *const usual[] = {
        "-A", "-g", "-u", "bob",   "-p",   "proj/sub", "-w",           "w2/p2", "-W",
        "w2", "-s", "3",  "-k",    "a s1", "-t",       "functional",   "-T",    "smoke",
        "-d", "-A", "--", "-ubob", "-Ag",  "maranth",  "admin/default"};
    std::vector<std::string> arguments = {"vxu_show_scenarios"};
    for (unsigned n = in.byte() % 8; n > 0; n--) {
        arguments.push_back(word(in, usual, std::size(usual)));
    }
    return arguments;
}

void remove_tree() {
    nftw(
        g_root.c_str(),
        [](const char *path, const struct stat *, int, struct FTW *) { return remove(path); }, 20,
        FTW_DEPTH | FTW_PHYS);
}

// Remove directories that no entry of this input asked for.
void remove_left() {
    for (auto path = g_left.rbegin(); path != g_left.rend(); ++path) {
        rmdir(path->c_str());
    }
    g_left.clear();
}

// Directories stay for the next input, which mostly wants the same: to make and to remove them takes longer
// than the command. What was made through a link is on no list, so then none stays.
void remove_all() {
    for (const std::string &path : g_dated) {
        utimensat(AT_FDCWD, path.c_str(), nullptr, AT_SYMLINK_NOFOLLOW);
    }
    g_dated.clear();
    for (auto each = g_made.rbegin(); each != g_made.rend(); ++each) {
        if (each->second == Kind::DIRECTORY) {
            g_left.insert(each->first);
        } else {
            unlink(each->first.c_str());
        }
    }
    g_made.clear();
    if (std::exchange(g_is_tangled, false)) {
        remove_tree();
        g_left.clear();
    }
}

// What is made at this path goes where a link leads.
void go_through_link() {
    g_is_tangled = true;
    remove_left();
}

void make_directory(const std::string &path) {
    const auto found = g_made.find(path);
    if (found != g_made.end() && found->second == Kind::LINK) {
        go_through_link();
    } else if (found == g_made.end() &&
               (g_left.erase(path) != 0 || mkdir(path.c_str(), 0755) == 0)) {
        g_made.emplace(path, Kind::DIRECTORY);
    }
}

// One entry below the work directory, with the directories above it.
std::string read_path(Input &in) {
    static const char *const usual[DEEPEST][4] = {
        {"workspace", "workspace", "workspace", "workspace"},
        {"admin", "w2", "admin", "maranth"},
        {"default", "p2", "default", "system"},
        {"maranth", "maranth", "maranth", "other"},
        {"proj", "P", "proj", ".hidden"},
        {"sub", "S", "sub", "b.yaml"},
        {"scenarios", "scenarios", "scenarios", "data"},
        {"s1", "a.conf", "b.yaml", "c.config"},
        {"scenario.json", "scenario.yaml", ".functional", "scenario.jmx"},
    };
    std::string path = g_root;
    const unsigned depth = 7 + in.byte() % 3;
    for (unsigned i = 0; i < depth; i++) {
        make_directory(path);
        std::string name = word(in, usual[i], 4);
        std::replace(name.begin(), name.end(), '/', '-');
        path += "/" + (name.empty() || name == "." || name == ".." ? "x" : name);
    }
    return path;
}

void make_file(const std::string &path, const std::string &contents) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, 0644);
    if (fd >= 0) {
        check(write(fd, contents.data(), contents.size()) == static_cast<ssize_t>(contents.size()));
        close(fd);
    }
}

void make_entry(Input &in) {
    static const char *const targets[] = {".",         "..", "../..",  "x",
                                          "/dev/zero", "s1", "a.conf", "../../proj"};
    static const time_t times[] = {0, 1, 2147483648, 4102444800, -1, 15032385535};
    const unsigned kind = in.byte();
    const std::string path = read_path(in);
    const bool is_link = kind % 8 == 1;
    const auto found = g_made.find(path);
    if (found != g_made.end() && found->second == Kind::LINK) {
        go_through_link();
    } else if (kind % 8 != 0 && g_left.contains(path)) {
        remove_left();
    }
    switch (kind % 8) {
    case 0:
        make_directory(path);
        break;
    case 1:
        (void)!symlink(targets[in.byte() % std::size(targets)], path.c_str());
        break;
    case 2:
        mkfifo(path.c_str(), 0644);
        break;
    case 3:
        make_file(path, R"({"scenario":{"TAGS":{"_G":["smoke","sm\u006fke x"]}}})");
        break;
    case 4:
        make_file(path, R"({"scenario":{"TAGS":{"_G":[")" + in.name(40) + "\",\"t\"]}}}");
        break;
    default:
        make_file(path, in.name(60));
        break;
    }
    g_made.emplace(path, is_link ? Kind::LINK : Kind::OTHER);
    if (kind >= 128) {
        const struct timespec when[2] = {{times[kind % std::size(times)], 0},
                                         {times[kind % std::size(times)], 0}};
        utimensat(AT_FDCWD, path.c_str(), when, AT_SYMLINK_NOFOLLOW);
        g_dated.push_back(path);
    }
}

// The command's text without what must stand around the name; the name must be one of the arguments.
bool names_an_argument(const std::string &command, const std::string &before,
                       const std::string &after) {
    if (!command.starts_with(before) || !command.ends_with(after)) {
        return false;
    }
    const auto name =
        read_by_shell(command.substr(before.size(), command.size() - before.size() - after.size()));
    return name && std::any_of(g_arguments.begin(), g_arguments.end(),
                               [&](const std::string &each) { return each.ends_with(*name); });
}

// The lines that grep lets through.
std::string rows_but_headings(const std::string &rows) {
    std::string kept;
    for (size_t at = 0; at < rows.size();) {
        const size_t end = std::min(rows.find('\n', at), rows.size() - 1) + 1;
        kept += rows.compare(at, 9, "User Name") == 0 ? "" : rows.substr(at, end - at);
        at = end;
    }
    return kept;
}

// Give back a stream that reads a text.
FILE *stream_of(const std::string &text) {
    const int fd = memfd_create("helper", MFD_CLOEXEC);
    check(write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    lseek(fd, 0, SEEK_SET);
    return g_streams.emplace_back(fdopen(fd, "r"));
}

// The command with some of its standard descriptors closed.
int run_command(unsigned closed) {
    std::vector<char *> argv;
    for (const std::string &each : g_arguments) {
        argv.push_back(Pieces::copy(each));
    }
    argv.push_back(nullptr);
    dup2(g_out, STDOUT_FILENO);
    dup2(g_errors, STDERR_FILENO);
    for (int fd = 0; fd < 3; fd++) {
        if (closed % 16 == 15 && ((closed >> (4 + fd)) & 1) != 0) {
            close(fd);
        }
    }
    const int status =
        run_again::run([&] { return vxu_main(static_cast<int>(argv.size()) - 1, argv.data()); });
    for (int fd = 0; fd < 3; fd++) {
        dup2(g_standard[fd], fd);
    }
    for (FILE *stream : g_streams) {
        fclose(stream);
    }
    g_streams.clear();
    check(fchdir(g_directory) == 0);
    return status;
}

std::string contents_of(int fd) {
    std::string text(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
    check(pread(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    return text;
}

void check_end(int status, const std::string &out, const std::string &errors, bool all_open) {
    const bool has_header = out.starts_with("WorkProfile|Project|");
    if ((status != 0 && status != 1 && status != 255) || (all_open && status == 0 && !has_header)) {
        fprintf(stderr, "status %d\n%s\n%s\n", status, out.c_str(), errors.c_str());
        abort();
    }
}

} // namespace

// What the command calls, in place of the shell; and of the end of the process, which the fuzzer watches.
extern "C" {
int __lsan_is_turned_off() { // the command never gives back its memory
    return 1;
}
int system(const char *command) {
    const run_again::Pause pause;
    check(names_an_argument(command, "vxu_check_user ", " vxu_show_scenarios"));
    return g_check_status;
}
FILE *popen(const char *command, const char *) {
    const run_again::Pause pause;
    if (strncmp(command, "id ", 3) == 0) {
        return stream_of(g_groups);
    }
    check(names_an_argument(command, "vxu_show_projects -u ", "| grep -a -v \"^User Name\""));
    return stream_of(rows_but_headings(g_rows));
}
int pclose(FILE *stream) {
    const run_again::Pause pause;
    std::erase(g_streams, stream);
    return fclose(stream);
}
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    check(run_again::puts_back(&g_num_tags) && run_again::puts_back(&vxlb_log_level));
    g_root = "/dev/shm/vx-fuzz-" + std::to_string(getpid());
    atexit(remove_tree);
    setenv("VX_WDIR", g_root.c_str(), 1);
    for (int fd = 0; fd < 3; fd++) {
        g_standard[fd] = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    }
    g_directory = open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
    g_out = memfd_create("out", MFD_CLOEXEC);
    g_errors = memfd_create("errors", MFD_CLOEXEC);
    if (__sanitizer_set_report_fd != nullptr) {
        __sanitizer_set_report_fd(reinterpret_cast<void *>(intptr_t{g_standard[2]}));
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces::forget();
    for (const int fd : {g_out, g_errors}) {
        check(ftruncate(fd, 0) == 0 && lseek(fd, 0, SEEK_SET) == 0);
    }
    Input in = {data, std::min<size_t>(size, 1000)};
    const unsigned closed = in.byte();
    g_arguments = read_arguments(in);
    g_check_status = in.byte() > 220 ? 256 : 0;
    g_rows = in.byte() < 128 ? "User Name|x\nw2|p2|proj|All\n" : in.name(200);
    g_groups = in.byte() < 128 ? "0 1 27\n" : in.name(20);
    make_directory(g_root);
    for (int i = 0; i < 10 && !in.is_empty(); i++) {
        make_entry(in);
    }
    remove_left();
    const int status = run_command(closed);
    remove_all();
    check_end(status, contents_of(g_out), contents_of(g_errors), closed % 16 != 15);
    return 0;
}
