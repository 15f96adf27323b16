// SPDX-License-Identifier: Apache-2.0
// log_shared ROUNDS own|shared: eight writers on one log with a small limit. They are processes with
// a descriptor of their own; or children that share one, then threads. Each rollover leaves a second
// name of the file it renames, so that every record can be looked for: none may be torn, missing,
// double or, within a file, out of its writer's order. No file may be renamed before its time, and
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
#include <vector>

enum { WRITERS = 8, RECORDS = 4000, LONGEST = 63900 };
enum Kind { PROCESSES, CHILDREN, THREADS };

static std::atomic<int> *g_kept,
    *g_early; // shared by the processes: files renamed, and those too soon
static off_t g_limit;
static long g_found, g_rollovers, g_faults, g_foreign;

static std::string kept_name(int i) {
    return "kept-" + std::to_string(i);
}

// The library's rename, which it calls under its lock; slow on small logs, so that the others come
// upon it.
extern "C" int rename(const char *from, const char *to) noexcept {
    struct stat file = {};
    stat(from, &file);
    *g_early += file.st_size <= g_limit;
    (void)!link(from, kept_name((*g_kept)++).c_str());
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

static void read_records(const std::string &path, std::vector<bool> *seen) {
    std::ifstream in(path);
    std::string record;
    std::map<unsigned, unsigned> next;
    std::getline(in, record); // a record begins with its newline
    while (std::getline(in, record)) {
        unsigned writer = WRITERS, number = 0;
        const size_t text = std::min(record.find("|function|"), record.size());
        sscanf(record.c_str() + text, "|function|%u %u", &writer, &number);
        const size_t place = writer * RECORDS + number;
        if (writer >= WRITERS || number >= RECORDS || number < next[writer] || (*seen)[place] ||
            record.substr(text) != "|function|" + text_of(writer, number)) {
            g_faults++;
            fprintf(stderr, "torn, double or out of order: %.200s\n", record.c_str());
            continue;
        }
        next[writer] = number + 1;
        (*seen)[place] = true;
        g_found++;
    }
    unlink(path.c_str());
}

static void open_others(const std::atomic<bool> *stop) {
    while (!*stop) {
        const int fd = open("other", O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
        char bytes[9];
        (void)!write(fd, "mine", 4);
        sched_yield();
        g_foreign += pread(fd, bytes, sizeof bytes, 0) != 4;
        close(fd);
    }
}

static void run_threads() {
    std::atomic<bool> stop = false;
    std::thread other(open_others, &stop);
    std::vector<std::thread> threads;
    for (unsigned writer = 0; writer < WRITERS; writer++) {
        threads.emplace_back(write_records, writer);
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

static void run(Kind kind, off_t limit) {
    vxlb_close_log_fd();
    vxlb_util_set_debug_log_size(static_cast<unsigned>(g_limit = limit));
    if (kind != PROCESSES) {
        open_log_ex("log", &lib_debug_fd, 0);
    }
    *g_kept = 0;
    kind == THREADS ? run_threads() : run_processes();
    g_rollovers += *g_kept;
    std::vector<bool> seen(size_t{WRITERS} * RECORDS);
    for (int i = 0; i < *g_kept; i++) {
        read_records(kept_name(i), &seen);
    }
    read_records("log", &seen);
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
        is_shared ? run(round % 2 == 0 ? CHILDREN : THREADS, 2000)
                  : run(PROCESSES, off_t{65536} << round % 3 * 2);
    }
    const long written = long{WRITERS} * RECORDS * rounds;
    printf("%s: %ld of %ld records found, %ld rollovers, %d too soon, %ld records torn, double or "
           "out of order, %ld foreign files touched\n",
           is_shared ? "10 log races" : "09 log shared", g_found, written, g_rollovers,
           g_early->load(), g_faults, g_foreign);
    return g_found == written && *g_early + g_faults + g_foreign == 0 && g_rollovers > rounds ? 0
                                                                                              : 1;
}
