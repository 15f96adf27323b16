// SPDX-License-Identifier: Apache-2.0
// A work directory for one test, with the command's helpers beside it, and runs of the command.
#pragma once

#include "texts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace fs = std::filesystem;

inline void write_file(const fs::path &path, const std::string &text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

constexpr time_t FILE_TIME = 1709820309; // 03/07/2024 14:05:09 in UTC

// What one run gave.
struct outcome {
    int status; // exit status; 128 and the signal for a run that a signal ended
    std::string out, err;
};

struct work_tree {
    TempDir dir;
    const fs::path top = dir.path;      // below /tmp
    const fs::path work = top / "work"; // exactly three components
    std::string starter = "env";        // what starts the command

    work_tree() {
        chmod(top.c_str(), 0777);
        fs::create_directories(work / "workspace/admin/default/maranth");
        rows("");
        helper("vxu_check_user", "exit 0");
        helper("vxu_show_projects", "cat " + (top / "rows").string());
        helper("id", "echo 7001 7002 7003");
    }
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
    std::string scenario(const std::string &path) const {
        const std::string whole = path[0] == 'P' ? "admin/default/" + path : path;
        return work / "workspace" /
               replaced(whole, "^([^/]*/[^/]*)/([^/]*/[^/]*)", "$1/maranth/$2/scenarios");
    }
    // Make such files; blanks keep their names apart.
    void add(const std::string &paths, const std::string &text = "x",
             time_t mtime = FILE_TIME) const {
        std::istringstream in(paths);
        for (std::string path; std::getline(in, path, ' ');) {
            const std::string file = scenario(path);
            write_file(file, text);
            const struct timespec times[] = {{mtime, 0}, {mtime, 0}};
            utimensat(AT_FDCWD, file.c_str(), times, 0);
        }
    }
    // Run the command with the arguments and redirections of a line, as the shell reads them.
    outcome run(const std::string &line) const {
        const std::string out = top / "stdout", err = top / "stderr", bin = top / "bin";
        const int status =
            system(("exec >" + out + " 2>" + err + "; exec env -i TZ=UTC VX_WDIR=" + work.string() +
                    " PATH=" + bin + ":/usr/bin:/bin " + starter + " " VX_COMMAND " " + line)
                       .c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), file_text(out),
                file_text(err)};
    }
};
