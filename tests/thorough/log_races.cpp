// SPDX-License-Identifier: Apache-2.0
// A log just over its limit, and contestants that share its descriptor and write at the same moment:
// forked children first, then threads. One rollover is due. Everything must be found in the log
// and its older file together, and nothing in the files that another thread opens meanwhile.

#include <libvxcore/vxlb_log.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

enum { CONTESTANTS = 4, RECORDS = 3, OLD_RECORDS = 20, LIMIT = 1000 };

struct Gate {
    std::atomic<int> ready, race, done;
};
static Gate *g_gate; // shared with the children
static long g_lost, g_rollovers, g_foreign;

static void write_record(int contestant, int number) {
    vxlb_debug_log_ex(VXLB_LEVEL_1, VXLB_MOD_API, "file", 1, "function", "<%d %d>", contestant,
                      number);
}

static void contend(int contestant, int race) {
    g_gate->ready++;
    while (g_gate->race != race) {
        sched_yield();
    }
    for (int i = 0; i < RECORDS; i++) {
        write_record(contestant, i);
    }
    g_gate->done++;
}

static std::string contents(const char *path) {
    std::string text(1 << 16, '\0');
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    text.resize(fd < 0 ? 0 : static_cast<size_t>(read(fd, text.data(), text.size())));
    close(fd);
    return text;
}

// An open log of old records, just over its limit.
static void prepare() {
    vxlb_close_log_fd();
    unlink("log");
    unlink("log.prev");
    vxlb_util_set_debug_log_size(1 << 20);
    for (int i = 0; i < OLD_RECORDS; i++) {
        write_record(CONTESTANTS, i);
    }
    vxlb_util_set_debug_log_size(LIMIT);
}

static void look_for_all() {
    const std::string older = contents("log.prev");
    const std::string all = contents("log") + older;
    for (int contestant = 0; contestant <= CONTESTANTS; contestant++) {
        for (int i = 0; i < (contestant < CONTESTANTS ? RECORDS : OLD_RECORDS); i++) {
            const std::string record =
                "<" + std::to_string(contestant) + " " + std::to_string(i) + ">";
            const size_t at = all.find(record);
            g_lost += at == std::string::npos || all.find(record, at + 1) != std::string::npos;
        }
    }
    g_rollovers += !older.empty();
}

static void open_gate(int race) {
    while (g_gate->ready < CONTESTANTS) {
        sched_yield();
    }
    g_gate->ready = g_gate->done = 0;
    g_gate->race = race;
}

static void race_of_children(int race) {
    prepare();
    for (int contestant = 0; contestant < CONTESTANTS; contestant++) {
        if (fork() == 0) {
            contend(contestant, race);
            _exit(0);
        }
    }
    open_gate(race);
    while (wait(nullptr) > 0) {
    }
    look_for_all();
}

// Somebody else's files get the numbers that the log gives up.
static void open_others(const std::atomic<bool> *stop) {
    for (int i = 0; !*stop; i++) {
        const std::string path = "other-" + std::to_string(i % 8);
        const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
        (void)!write(fd, "mine", 4);
        sched_yield();
        close(fd);
        g_foreign += contents(path.c_str()) != "mine";
    }
}

static void races_of_threads(int first, int count) {
    std::atomic<bool> stop = false;
    std::thread other(open_others, &stop);
    std::vector<std::thread> threads;
    for (int contestant = 0; contestant < CONTESTANTS; contestant++) {
        threads.emplace_back([=] {
            for (int race = first; race < first + count; race++) {
                contend(contestant, race);
            }
        });
    }
    for (int race = first; race < first + count; race++) {
        prepare();
        open_gate(race);
        while (g_gate->done < CONTESTANTS) {
            sched_yield();
        }
        look_for_all();
    }
    for (std::thread &each : threads) {
        each.join();
    }
    stop = true;
    other.join();
}

int main() {
    const bool is_slice = getenv("SLICE") != nullptr && *getenv("SLICE") != '\0';
    const int races = is_slice ? 200 : 20000;
    g_gate = static_cast<Gate *>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    vxlb_util_set_log_filename("log", nullptr);
    vxlb_util_set_debug_log_level(VXLB_LEVEL_1);
    vxlb_util_set_modulemask(VXLB_MOD_API);
    for (int race = 1; race <= races / 2; race++) {
        race_of_children(race);
    }
    races_of_threads(races / 2 + 1, races - races / 2);
    printf(
        "10 log races: %d races of children and threads, %ld rollovers, %ld records lost or double, %ld foreign "
        "files touched\n",
        races, g_rollovers, g_lost, g_foreign);
    return g_lost == 0 && g_foreign == 0 && g_rollovers == races ? 0 : 1;
}
