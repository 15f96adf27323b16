// SPDX-License-Identifier: Apache-2.0
// A work directory for one test, with the command's helpers beside it, and runs of the command.
#pragma once

#include "texts.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstring>

namespace fs = std::filesystem;

inline void write_file(const fs::path &path, const std::string &text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

constexpr const char *HEADER =
    "WorkProfile|Project|Subproject|Scenario|Owner|Group|Permission|Modification Date|Type\n";
constexpr time_t FILE_TIME = 1709820309; // 03/07/2024 14:05:09 in UTC

// What one run gave.
struct outcome {
    int status; // exit status; 128 and the signal for a run that a signal ended
    std::string out;
    std::string err;
};

struct work_tree {
    TempDir dir;
    const fs::path top = dir.path;      // below /tmp
    const fs::path work = top / "work"; // exactly three components
    std::vector<std::string> environment = {"TZ=UTC", "LC_ALL=C", "VX_WDIR=" + work.string(),
                                            "PATH=" + (top / "bin").string() + ":/usr/bin:/bin"};
    uid_t run_as = 0;     // 0: whoever runs the tests
    fs::path start = "/"; // where runs begin

    work_tree() {
        chmod(top.c_str(), 0777);
        fs::create_directories(work / "workspace/admin/default/maranth");
        rows("");
        helper("vxu_check_user", "exit 0");
        helper("vxu_show_projects", "cat " + (top / "rows").string());
        helper("id", "echo 7001 7002 7003");
    }
    std::string &wdir() { return environment[2]; }

    // A helper command that records its arguments, one a line, in top/NAME.args.
    void helper(const std::string &name, const std::string &body) const {
        write_file(top / "bin" / name, "#!/bin/sh\nprintf '%s\\n' \"$@\" 2>/dev/null >" +
                                           (top / name).string() + ".args\n" + body + "\n");
        chmod((top / "bin" / name).c_str(), 0755);
    }
    std::string arguments_of(const std::string &name) const {
        return file_text(top / (name + ".args"));
    }
    // What vxu_show_projects prints.
    void rows(const std::string &text) const { write_file(top / "rows", text); }

    // "w/f/P/S/x.conf" is work/workspace/w/f/maranth/P/S/scenarios/x.conf; so is "P/S/x.conf" in
    // admin/default.
    fs::path scenario(const std::string &path) const {
        const std::string whole = path[0] == 'P' ? "admin/default/" + path : path;
        return work / "workspace" /
               replaced(whole, "^([^/]*/[^/]*)/([^/]*/[^/]*)", "$1/maranth/$2/scenarios");
    }
    void add(const std::string &path, const std::string &text = "x", mode_t mode = 0644,
             time_t mtime = FILE_TIME) const {
        const fs::path file = scenario(path);
        write_file(file, text);
        chmod(file.c_str(), mode);
        const struct timespec times[] = {{mtime, 0}, {mtime, 0}};
        utimensat(AT_FDCWD, file.c_str(), times, 0);
    }
    // Several of them, apart by blanks.
    void add_all(const std::string &paths) const {
        std::istringstream in(paths);
        for (std::string path; in >> path;) {
            add(path);
        }
    }

    // Run the command. The redirections are the shell's, for example ">&-".
    outcome run(const std::vector<std::string> &arguments, const char *redirections = "") const {
        const std::string program = std::string("exec \"$0\" \"$@\" ") + redirections;
        std::vector<std::string> words = {"/bin/sh", "-c", program, VX_COMMAND};
        words.insert(words.end(), arguments.begin(), arguments.end());
        const pid_t child = fork();
        if (child == 0) {
            become(words);
        }
        int status;
        waitpid(child, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
                file_text(top / "stdout"), file_text(top / "stderr")};
    }

private:
    [[noreturn]] void become(const std::vector<std::string> &words) const {
        for (const auto &[file, fd] : {std::pair{"stdout", 1}, {"stderr", 2}}) {
            dup2(open((top / file).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), fd);
        }
        close_range(3, ~0U, 0);
        const bool is_placed = chdir(start.c_str()) == 0;
        if (run_as != 0 && (setgroups(0, nullptr) + setgid(run_as) + setuid(run_as) != 0)) {
            _exit(126);
        }
        execve(words[0].c_str(), pointers(words).data(), pointers(environment).data());
        _exit(is_placed ? 127 : 125);
    }
    static std::vector<char *> pointers(const std::vector<std::string> &words) {
        std::vector<char *> all;
        for (const std::string &word : words) {
            all.push_back(const_cast<char *>(word.c_str()));
        }
        all.push_back(nullptr);
        return all;
    }
};
