// SPDX-License-Identifier: Apache-2.0
// A work directory for one test, with the command's helpers beside it, and runs of the command.
#pragma once

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

inline std::string read_file(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void write_file(const fs::path &path, const std::string &text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

struct outcome {
    int status; // exit status; 128 and the signal for a run that a signal ended
    std::string out;
    std::string err;
};

constexpr const char *HEADER =
    "WorkProfile|Project|Subproject|Scenario|Owner|Group|Permission|Modification Date|Type\n";
constexpr time_t FILE_TIME = 1709820309; // 03/07/2024 14:05:09 in UTC

inline std::string owner_of_tests() {
    const struct passwd *user = getpwuid(geteuid());
    return user == nullptr ? "UNKNOWN" : user->pw_name;
}

inline std::string group_of_tests() {
    const struct group *group = getgrgid(getegid());
    return group == nullptr ? "UNKNOWN" : group->gr_name;
}

struct work_tree {
    fs::path top;  // a new directory below /tmp
    fs::path work; // top/work: exactly three components
    fs::path bin;  // top/bin: helper commands, first in PATH
    std::vector<std::string> environment = {"TZ=UTC", "LC_ALL=C"};
    uid_t run_as = 0;     // 0: whoever runs the tests
    fs::path start = "/"; // where runs begin

    work_tree() {
        char name[] = "/tmp/vxtXXXXXX";
        top = mkdtemp(name);
        chmod(name, 0755);
        work = top / "work";
        bin = top / "bin";
        fs::create_directories(work / "workspace/admin/default/maranth");
        rows("");
        helper("vxu_check_user", "exit 0");
        helper("vxu_show_projects", "cat " + (top / "rows").string());
        helper("id", "echo 7001 7002 7003");
    }
    ~work_tree() {
        std::error_code ignored;
        fs::remove_all(top, ignored);
    }
    work_tree(const work_tree &) = delete;
    work_tree &operator=(const work_tree &) = delete;

    // A helper command that records its arguments, one a line, in top/NAME.args.
    void helper(const std::string &name, const std::string &body) {
        write_file(bin / name, "#!/bin/sh\nprintf '%s\\n' \"$@\" 2>/dev/null >" +
                                   (top / (name + ".args")).string() + "\n" + body + "\n");
        chmod((bin / name).c_str(), 0755);
    }
    // What vxu_show_projects prints.
    void rows(const std::string &text) { write_file(top / "rows", text); }

    // "admin/default/P/S/x.conf" is work/workspace/admin/default/maranth/P/S/scenarios/x.conf.
    fs::path scenario(const std::string &path) const {
        std::vector<std::string> parts;
        std::istringstream in(path);
        for (std::string part; parts.size() < 4 && std::getline(in, part, '/');) {
            parts.push_back(part);
        }
        std::string rest;
        std::getline(in, rest, '\0');
        return work / "workspace" / parts[0] / parts[1] / "maranth" / parts[2] / parts[3] /
               "scenarios" / rest;
    }
    void add(const std::string &path, const std::string &text = "x", mode_t mode = 0644,
             time_t mtime = FILE_TIME) const {
        const fs::path file = scenario(path);
        write_file(file, text);
        chmod(file.c_str(), mode);
        const struct timespec times[] = {{mtime, 0}, {mtime, 0}};
        utimensat(AT_FDCWD, file.c_str(), times, 0);
    }

    // Run the command. Extra descriptors settings are shell redirections, for example ">&-".
    outcome run(const std::vector<std::string> &arguments,
                const std::string &redirections = "") const {
        const fs::path out = top / "stdout";
        const fs::path err = top / "stderr";
        std::vector<std::string> words = {"/bin/sh", "-c", "exec \"$0\" \"$@\" " + redirections,
                                          VX_COMMAND};
        words.insert(words.end(), arguments.begin(), arguments.end());
        const pid_t child = fork();
        if (child == 0) {
            become(words, out, err);
        }
        int status;
        waitpid(child, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), read_file(out),
                read_file(err)};
    }

    // The rows of a table, less the header.
    std::string rows_of(const std::vector<std::string> &arguments) const {
        const outcome result = run(arguments);
        return result.out.starts_with(HEADER) ? result.out.substr(strlen(HEADER))
                                              : "no header: " + result.out + result.err;
    }

private:
    void become(const std::vector<std::string> &words, const fs::path &out,
                const fs::path &err) const {
        std::vector<std::string> settings = environment;
        settings.push_back("PATH=" + bin.string() + ":/usr/bin:/bin");
        if (std::string all = "," + join(environment); all.find(",VX_WDIR") == std::string::npos) {
            settings.push_back("VX_WDIR=" + work.string());
        }
        if (chdir(start.c_str()) != 0) {
            _exit(125);
        }
        dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDOUT_FILENO);
        dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDERR_FILENO);
        close_range(3, ~0U, 0);
        if (run_as != 0 &&
            (setgroups(0, nullptr) != 0 || setgid(run_as) != 0 || setuid(run_as) != 0)) {
            _exit(126);
        }
        execve(words[0].c_str(), pointers(words).data(), pointers(settings).data());
        _exit(127);
    }
    static std::string join(const std::vector<std::string> &words) {
        std::string all;
        for (const auto &word : words) {
            all += word + ",";
        }
        return all;
    }
    static std::vector<char *> pointers(const std::vector<std::string> &words) {
        std::vector<char *> all;
        for (const auto &word : words) {
            all.push_back(const_cast<char *>(word.c_str()));
        }
        all.push_back(nullptr);
        return all;
    }
};
