// SPDX-License-Identifier: Apache-2.0
// A log just over its limit, and contestants that share its descriptor and write at the same moment:
// forked children first, then threads. One rollover is due. Everything must be found in the log
// and its older file together, and nothing in the files that another thread opens meanwhile.

#include <libvxcore/vxlb_log.h>

#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

enum { CONTESTANTS = 4, RECORDS = 3, OLD_RECORDS = 20, LIMIT = 1000 };

static std::atomic<int> *g_ready, *g_race; // shared with the children
static long g_lost, g_rollovers, g_foreign;

// The library's rename, slow in three races of four, so that the others come upon it.
extern "C" int rename(const char *from, const char *to) noexcept {
    usleep(*g_race % 4 == 0 ? 0 : 100);
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

static void write_records(int contestant, int count) {
    for (int i = 0; i < count; i++) {
        vxlb_debug_log_ex(VXLB_LEVEL_1, VXLB_MOD_API, "file", 1, "function", "<%d %d>", contestant,
                          i);
    }
}

static void contend(int contestant, int race) {
    ++*g_ready;
    while (*g_race != race) {
        sched_yield();
    }
    write_records(contestant, RECORDS);
}

static std::string contents(const std::string &path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
}

// An open log of old records, just over its limit.
static void prepare() {
    vxlb_close_log_fd();
    unlink("log");
    unlink("log.prev");
    vxlb_util_set_debug_log_size(1 << 20);
    write_records(CONTESTANTS, OLD_RECORDS);
    vxlb_util_set_debug_log_size(LIMIT);
}

static void look_for_all() {
    const std::string older = contents("log.prev"), all = contents("log") + older;
    for (int contestant = 0; contestant <= CONTESTANTS; contestant++) {
        for (int i = 0; i < (contestant < CONTESTANTS ? RECORDS : OLD_RECORDS); i++) {
            const auto record = "<" + std::to_string(contestant) + " " + std::to_string(i) + ">";
            const size_t at = all.find(record);
            g_lost += at == std::string::npos || all.find(record, at + 1) != std::string::npos;
        }
    }
    g_rollovers += !older.empty();
}

static void run_race(int number, bool is_of_children) {
    std::vector<std::thread> threads;
    prepare();
    *g_ready = 0;
    for (int contestant = 0; contestant < CONTESTANTS; contestant++) {
        if (!is_of_children) {
            threads.emplace_back(contend, contestant, number);
        } else if (fork() == 0) {
            contend(contestant, number);
            _exit(0);
        }
    }
    while (*g_ready < CONTESTANTS) {
        sched_yield();
    }
    *g_race = number;
    for (std::thread &each : threads) {
        each.join();
    }
    while (wait(nullptr) > 0) {
    }
    look_for_all();
}

// Somebody else's files get the numbers that the log gives up.
static void open_others(const std::atomic<bool> *stop) {
    while (!*stop) {
        const int fd = open("other", O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
        (void)!write(fd, "mine", 4);
        sched_yield();
        close(fd);
        g_foreign += contents("other") != "mine";
    }
}

int main(int, char **argv) {
    const int races = std::stoi(argv[1]);
    g_ready = static_cast<std::atomic<int> *>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    g_race = g_ready + 1;
    vxlb_util_set_log_filename("log", nullptr);
    vxlb_util_set_debug_log_level(VXLB_LEVEL_1);
    vxlb_util_set_modulemask(VXLB_MOD_API);
    for (int race = 1; race <= races / 2; race++) {
        run_race(race, true);
    }
    std::atomic<bool> stop = false;
    std::thread other(open_others, &stop);
    for (int race = races / 2 + 1; race <= races; race++) {
        run_race(race, false);
    }
    stop = true;
    other.join();
    printf("10 log races: %d races of children and threads, %ld rollovers, %ld records lost or "
           "double, %ld foreign files touched\n",
           races, g_rollovers, g_lost, g_foreign);
    return g_lost == 0 && g_foreign == 0 && g_rollovers == races ? 0 : 1;
}
