// SPDX-License-Identifier: Apache-2.0
// Makes a work directory full of scenarios: the same one for the same arguments, on any machine.
//
//     make_tree DIR SCENARIOS [SEED [JSON_BYTES]]
//
// DIR must not exist and should have three components (/tmp/vx_bench/work), for the command lists
// nothing else. Seven of ten scenarios are directories: a scenario file, up to four asset files and,
// in every third, a folder of assets. The others are flat .conf files. Asset files are holes: they
// have a size but take no disk space. JSON_BYTES (400 if not given) is about the size of a scenario
// file, which varies by a third. One scenario in eight or so has the tag "Smoke", which occurs
// nowhere else in the tree.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sstream>
#include <string>

namespace {

constexpr int SCENARIOS_A_SUB_PROJECT = 100; // on average
constexpr int SUB_PROJECTS_A_PROJECT = 5;
constexpr int PROJECTS_A_PROFILE = 10;
constexpr int PROFILES_A_WORKSPACE = 2;
constexpr time_t FIRST_TIME = 1600000000;

constexpr const char *WORDS[] = {"checkout", "login",  "search",  "catalog", "payment", "report",
                                 "transfer", "upload", "booking", "invoice", "profile", "cart"};
constexpr const char *TAGS[] = {"Smoke",    "regression", "nightly", "soak",    "spike",
                                "capacity", "web",        "mobile",  "api",     "sso",
                                "release",  "weekly",     "demo",    "tuning",  "failover",
                                "sanity",   "baseline",   "CDN",     "database"};

uint64_t g_state;

// Knuth's linear congruential generator: the tree must not depend on a library's.
unsigned pick(unsigned n) {
    g_state = g_state * 6364136223846793005u + 1442695040888963407u;
    return static_cast<unsigned>(g_state >> 33) % n;
}

template <size_t N> const char *pick_of(const char *const (&texts)[N]) {
    return texts[pick(N)];
}

[[noreturn]] void fail(const std::string &name) {
    perror(name.c_str());
    exit(1);
}

// Make a directory and open it.
int make_directory(int parent, const std::string &name) {
    if (mkdirat(parent, name.c_str(), 0755) != 0) {
        fail(name);
    }
    const int fd = openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        fail(name);
    }
    return fd;
}

void make_file(int dir, const std::string &name, const std::string &text, unsigned size) {
    const int fd = openat(dir, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    const auto length = static_cast<ssize_t>(text.size());
    if (fd < 0 || write(fd, text.data(), text.size()) != length ||
        ftruncate(fd, static_cast<off_t>(size)) != 0) {
        fail(name);
    }
    const time_t when = FIRST_TIME + static_cast<time_t>(pick(150000000));
    const struct timespec times[] = {{when, 0}, {when, 0}};
    futimens(fd, times);
    close(fd);
}

// All texts are put together by streams: what << chains is evaluated from left to right, so that
// the numbers are drawn in the same order by every compiler.
std::string tags() {
    std::ostringstream list;
    list << '"' << pick_of(TAGS) << '"';
    for (unsigned i = pick(4); i > 0; i--) {
        list << ", \"" << pick_of(TAGS) << '"';
    }
    return list.str();
}

// A group of virtual users, some 250 bytes; one in six has escapes in its comment.
std::string group(unsigned number) {
    std::ostringstream text;
    text << "      {\"GROUP\": \"g" << number << "\", \"SCRIPT\": \"scripts/" << pick_of(WORDS)
         << "_" << number << ".c\",\n       \"users\": " << pick(5000)
         << ", \"ramp\": {\"up\": " << pick(600) << "." << pick(10) << ", \"down\": " << pick(60)
         << ", \"unit\": \"s\"},\n       \"pacing\": [" << pick(9) << ", " << pick(99)
         << "], \"enabled\": " << (pick(3) == 0 ? "false" : "true") << ",\n       \"comment\": \"";
    const char *quote = pick(6) == 0 ? "\\\"" : "'";
    text << "runs " << quote << pick_of(WORDS) << quote << " against " << pick_of(WORDS)
         << " with data of " << pick_of(WORDS) << "\"}";
    return text.str();
}

std::string scenario_text(unsigned bytes) {
    std::ostringstream head;
    head << "{\n  \"scenario\": {\n    \"NAME\": \"" << pick_of(WORDS)
         << "\",\n    \"TAGS\": {\"_G\": [[" << tags() << "]]},\n    \"GROUPS\": [\n";
    std::string text = head.str();
    const unsigned wanted = bytes * (5 + pick(3)) / 6;
    for (unsigned i = 0; i == 0 || text.size() + 200 < wanted; i++) {
        text += (i == 0 ? "" : ",\n") + group(i);
    }
    return text + "\n    ],\n    \"VERSION\": 3\n  }\n}\n";
}

std::string scenario_name(unsigned number) {
    std::ostringstream name;
    name << pick_of(WORDS) << "_" << pick_of(WORDS) << "_" << number;
    return name.str();
}

void make_assets(int dir) {
    for (unsigned i = pick(5); i > 0; i--) {
        const std::string name = std::string(pick_of(WORDS)) + "_" + std::to_string(i) + ".csv";
        make_file(dir, name, "", pick(60000));
    }
    if (pick(3) == 0) {
        const int assets = make_directory(dir, "assets");
        for (unsigned i = 1 + pick(3); i > 0; i--) {
            make_file(assets, "script_" + std::to_string(i) + ".c", "", pick(9000));
        }
        close(assets);
    }
}

void make_scenario(int dir, unsigned number, unsigned bytes) {
    const std::string name = scenario_name(number), text = scenario_text(bytes);
    const auto size = static_cast<unsigned>(text.size());
    if (pick(10) >= 7) {
        make_file(dir, name + ".conf", text, size);
        return;
    }
    const int own = make_directory(dir, name);
    const bool is_json = pick(20) != 0;
    make_file(own, is_json ? "scenario.json" : "scenario.yaml", text, size);
    make_assets(own);
    close(own);
}

int make_project(int profile, int number, unsigned scenarios, unsigned *made, unsigned bytes) {
    const int project = make_directory(profile, "project_" + std::to_string(number));
    for (int i = 0; i < SUB_PROJECTS_A_PROJECT && *made < scenarios; i++) {
        const int sub_project =
            make_directory(project, std::string(pick_of(WORDS)) + "_" + std::to_string(i));
        const int dir = make_directory(sub_project, "scenarios");
        for (unsigned n = 1 + pick(2 * SCENARIOS_A_SUB_PROJECT); n > 0 && *made < scenarios; n--) {
            make_scenario(dir, (*made)++, bytes);
        }
        close(dir);
        close(sub_project);
    }
    return project;
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s DIR SCENARIOS [SEED [JSON_BYTES]]\n", argv[0]);
        return 2;
    }
    const auto scenarios = static_cast<unsigned>(atoi(argv[2]));
    g_state = argc > 3 ? static_cast<uint64_t>(atoll(argv[3])) : 1;
    const unsigned bytes = argc > 4 ? static_cast<unsigned>(atoi(argv[4])) : 400;
    const int root = make_directory(make_directory(AT_FDCWD, argv[1]), "workspace");
    // The directory that every run changes into.
    close(make_directory(make_directory(make_directory(root, "admin"), "default"), "maranth"));
    unsigned made = 0;
    for (int w = 0; made < scenarios; w++) {
        const int workspace = make_directory(root, "team_" + std::to_string(w));
        for (int p = 0; p < PROFILES_A_WORKSPACE && made < scenarios; p++) {
            const int profile = make_directory(workspace, "profile_" + std::to_string(p));
            const int maranth = make_directory(profile, "maranth");
            for (int i = 0; i < PROJECTS_A_PROFILE && made < scenarios; i++) {
                close(make_project(maranth, i, scenarios, &made, bytes));
            }
            close(maranth);
            close(profile);
        }
        close(workspace);
    }
    return 0;
}
