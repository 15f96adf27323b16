// SPDX-License-Identifier: Apache-2.0
// log_shared ROUNDS own|shared: eight writers on one log with a small limit. They are processes with
// a descriptor of their own; or children that share one, then threads. Each rollover leaves a second
// name of the file it renames, so that every record can be looked for: none may be torn, missing or
// double. No file may be renamed before its time, and
// files that another thread opens, which get the numbers that the log gives up, must stay its own.

#include <libvxcore/vxlb_log.h>

#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

enum { WRITERS = 8, RECORDS = 4000, LONGEST = 63900 };

static std::atomic<int> *g_kept,
    *g_early; // shared by the processes: files renamed, and those too soon
static off_t g_limit;
static long g_rollovers, g_lost, g_faults, g_foreign;

// The library's rename, which it calls under its lock; slow on small logs, so that the others come
// upon it.
extern "C" int rename(const char *from, const char *to) noexcept {
    struct stat file = {};
    stat(from, &file);
    *g_early += file.st_size <= g_limit;
    (void)!link(from, std::to_string((*g_kept)++).c_str());
    usleep(g_limit < 4096 && *g_kept % 4 != 0 ? 100 : 0);
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

// Mostly short texts, a long one now and then, with the number at both ends.
static std::string text_of(unsigned writer, unsigned number) {
    const unsigned mix = number * 2654435761U + writer * 40503U;
    const std::string padding(mix % 2000 == 0 ? mix % LONGEST : mix % 60,
                              static_cast<char>('a' + writer));
    return std::to_string(writer) + " " + std::to_string(number) + " " + padding + " " +
           std::to_string(number);
}

static void write_records(unsigned writer) {
    for (unsigned i = 0; i < RECORDS; i++) {
        vxlb_debug_log_ex(VXLB_LEVEL_1, VXLB_MOD_API, "file", 1, "function", "%s",
                          text_of(writer, i).c_str());
    }
}

static void read_records(const std::string &path, std::map<std::string, int> *found) {
    std::ifstream in(path);
    std::string record;
    std::getline(in, record); // a record begins with its newline
    while (std::getline(in, record)) {
        ++(*found)[record.substr(std::min(record.find("|function|"), record.size()))];
    }
    unlink(path.c_str());
}

static void open_others(const std::atomic<bool> *stop) {
    while (!*stop) {
        const int fd = open("other", O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
        sched_yield();
        g_foreign += lseek(fd, 0, SEEK_END) != 0;
        close(fd);
    }
}

static void run_threads() {
    std::atomic<bool> stop = false;
    std::thread other(open_others, &stop), threads[WRITERS];
    for (unsigned writer = 0; writer < WRITERS; writer++) {
        threads[writer] = std::thread(write_records, writer);
    }
    for (std::thread &each : threads) {
        each.join();
    }
    stop = true;
    other.join();
}

static void run_processes() {
    for (unsigned writer = 0; writer < WRITERS; writer++) {
        if (fork() == 0) {
            write_records(writer);
            _exit(0);
        }
    }
    while (wait(nullptr) > 0) {
    }
}

static void run(void run_writers(), off_t limit) {
    vxlb_util_set_debug_log_size(static_cast<unsigned>(g_limit = limit));
    *g_kept = 0;
    run_writers();
    g_rollovers += *g_kept;
    std::map<std::string, int> found;
    for (int i = 0; i < *g_kept; i++) {
        read_records(std::to_string(i), &found);
    }
    read_records("log", &found);
    for (unsigned i = 0; i < WRITERS * RECORDS; i++) {
        --found["|function|" + text_of(i % WRITERS, i / WRITERS)];
    }
    for (const auto &[text, excess] : found) {
        g_lost += excess < 0;
        g_faults += excess > 0;
    }
}

int main(int, char **argv) {
    const int rounds = std::stoi(argv[1]);
    const bool is_shared = argv[2] == std::string("shared");
    g_kept = static_cast<std::atomic<int> *>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    g_early = g_kept + 1;
    vxlb_util_set_log_filename("log", nullptr);
    vxlb_util_set_debug_log_level(VXLB_LEVEL_1);
    vxlb_util_set_modulemask(VXLB_MOD_API);
    for (int round = 0; round < rounds; round++) {
        vxlb_close_log_fd();
        if (is_shared) {
            open_log_ex("log", &lib_debug_fd, 0);
        }
        run(is_shared && round % 2 == 0 ? run_threads : run_processes,
            is_shared ? 2000 : off_t{65536} << round % 3 * 2);
    }
    printf(
        "%s: %ld records, %ld rollovers, %ld records lost, %ld torn or double, %d files renamed too "
        "soon, %ld foreign files touched\n",
        is_shared ? "10 log races" : "09 log shared", long{WRITERS} * RECORDS * rounds, g_rollovers,
        g_lost, g_faults, g_early->load(), g_foreign);
    return g_lost + g_faults + *g_early + g_foreign == 0 && g_rollovers > rounds ? 0 : 1;
}
