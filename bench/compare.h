// SPDX-License-Identifier: Apache-2.0
// One comparison: the same work done by this library and by others, measured in turns.
//
//     round 1   ours  peer A  peer B
//     round 2   peer A  peer B  ours      the order rotates, so that nobody always goes first
//     ...
//
// Each arm's figure is the median of its CPU times, a ratio is ours over theirs, and the noise of a
// ratio is the interquartile range of the ratios of single rounds over their median. Every ratio
// leaves as one line of JSON on standard output; bench/run makes the table.
//
// Where valgrind is installed, each arm also runs once under callgrind in a process of its own: the
// program starts itself anew with --once, and only what run() does is counted.
#ifndef VX_BENCH_COMPARE_H
#define VX_BENCH_COMPARE_H

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace rounds {

// run() is timed; before() and after() are not, and may be left empty.
struct Arm {
    std::string name;
    std::string want; // "<=1.10": what ours over this one must reach; empty: nothing is asked
    std::function<void()> run;
    std::function<void()> before = nullptr;
    std::function<void()> after = nullptr;
};

struct Work {
    std::string group; // "pool"
    std::string name;  // "get and free, 64 bytes"
    double items = 1;  // what one run() does; times are reported for one item
    int rounds = 15;   // of which none is thrown away
    bool instructions = true;
};

inline bool is_quick() {
    const char *const quick = getenv("QUICK");
    return quick != nullptr && *quick != '\0' && strcmp(quick, "0") != 0;
}

// What the command line asks for: nothing, or one arm of one work to run once.
inline std::string &once_work() {
    static std::string work;
    return work;
}
inline std::string &once_arm() {
    static std::string arm;
    return arm;
}

inline void init(int argc, char **argv) {
    if (argc == 4 && strcmp(argv[1], "--once") == 0) {
        once_work() = argv[2];
        once_arm() = argv[3];
    }
}

// Whether works whose names hold this text are asked for: saves the set-up of the others.
inline bool is_wanted(const std::string &text) {
    return once_work().empty() || once_work().find(text) != std::string::npos;
}

inline double cpu_seconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// A function of its own, which callgrind is told to watch.
extern "C" __attribute__((noinline, used)) inline void vx_bench_timed(const Arm &arm) {
    arm.run();
    __asm__ volatile("" ::: "memory");
}

// Leave no arm to pay for what another one freed: an allocation too large for the lists of small
// blocks makes the C library sort the freed blocks, ten thousand at a time.
inline void settle_heap() {
    for (int i = 0; i < 50; i++) {
        const std::unique_ptr<char[]> large(new char[100000]);
        benchmark::DoNotOptimize(reinterpret_cast<uintptr_t>(large.get()));
    }
}

inline double time_once(const Arm &arm) {
    if (arm.before) {
        arm.before();
    }
    settle_heap();
    const double start = cpu_seconds();
    vx_bench_timed(arm);
    const double seconds = cpu_seconds() - start;
    if (arm.after) {
        arm.after();
    }
    return seconds;
}

inline double quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(part * static_cast<double>(values.size() - 1) + 0.5)];
}

inline double median(const std::vector<double> &values) {
    return quantile(values, 0.5);
}

inline double noise_of(const std::vector<double> &ours, const std::vector<double> &theirs) {
    std::vector<double> ratios;
    for (size_t i = 0; i < ours.size(); i++) {
        ratios.push_back(ours[i] / theirs[i]);
    }
    return (quantile(ratios, 0.75) - quantile(ratios, 0.25)) / median(ratios);
}

inline void report(const Work &work, const std::string &name, const Arm &peer, double ours,
                   double theirs, double noise, const char *unit) {
    printf("{\"group\": \"%s\", \"work\": \"%s\", \"against\": \"%s\", \"ratio\": %.4f, "
           "\"noise\": %.4f, \"want\": \"%s\", \"ours\": %.6g, \"theirs\": %.6g, "
           "\"unit\": \"%s\"}\n",
           work.group.c_str(), name.c_str(), peer.name.c_str(), ours / theirs, noise,
           unit[0] == 's' ? peer.want.c_str() : "", ours, theirs, unit);
    fflush(stdout);
}

inline void missing(const Work &work, const std::string &peer) {
    if (once_work().empty()) {
        printf("{\"group\": \"%s\", \"work\": \"%s\", \"against\": \"%s\", \"missing\": true}\n",
               work.group.c_str(), work.name.c_str(), peer.c_str());
        fflush(stdout);
    }
}

inline std::string quoted(const std::string &text) {
    return "'" + text + "'";
}

// Instructions of one run() of an arm, or 0 where they can't be counted.
inline double count_instructions(const Work &work, const Arm &arm) {
    char self[4096] = "";
    if (readlink("/proc/self/exe", self, sizeof(self) - 1) < 0) {
        return 0;
    }
    const std::string command =
        "valgrind --tool=callgrind --callgrind-out-file=/dev/null --toggle-collect=vx_bench_timed " +
        quoted(self) + " --once " + quoted(work.group + "/" + work.name) + " " + quoted(arm.name) +
        " 2>&1";
    FILE *const pipe = popen(command.c_str(), "r");
    double count = 0;
    char line[1024];
    while (pipe != nullptr && fgets(line, sizeof(line), pipe) != nullptr) {
        const char *const collected = strstr(line, "Collected : ");
        if (collected != nullptr) {
            count = strtod(collected + strlen("Collected : "), nullptr);
        }
    }
    if (pipe != nullptr) {
        pclose(pipe);
    }
    return count;
}

inline void compare_instructions(const Work &work, const std::vector<Arm> &arms) {
    const double ours = count_instructions(work, arms[0]);
    for (size_t i = 1; ours > 0 && i < arms.size(); i++) {
        const double theirs = count_instructions(work, arms[i]);
        if (theirs > 0) {
            report(work, work.name + ", instructions", arms[i], ours / work.items,
                   theirs / work.items, 0, "instructions");
        }
    }
}

// Measure all arms of a work; the first one is ours.
inline void arms(const Work &work, const std::vector<Arm> &arms) {
    if (!once_work().empty()) {
        for (const Arm &arm : arms) {
            if (once_work() == work.group + "/" + work.name && once_arm() == arm.name) {
                time_once(arm);
            }
        }
        return;
    }
    std::vector<std::vector<double>> times(arms.size());
    for (const Arm &arm : arms) {
        time_once(arm); // caches, page faults, lazy symbols
    }
    const size_t rounds = static_cast<size_t>(is_quick() ? 5 : work.rounds);
    for (size_t round = 0; round < rounds; round++) {
        for (size_t i = 0; i < arms.size(); i++) {
            const size_t turn = (i + round) % arms.size();
            times[turn].push_back(time_once(arms[turn]));
        }
    }
    for (size_t i = 1; i < arms.size(); i++) {
        report(work, work.name, arms[i], median(times[0]) / work.items,
               median(times[i]) / work.items, noise_of(times[0], times[i]), "s CPU");
    }
    if (work.instructions && !is_quick()) {
        compare_instructions(work, arms);
    }
}

} // namespace rounds

#endif
