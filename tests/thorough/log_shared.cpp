// SPDX-License-Identifier: Apache-2.0
// Eight processes write records of known texts to one log with a small limit. Each rollover leaves a
// second name of the file it renames, so that every record ever written can be looked for: none may be
// torn, missing, double or, within a file, out of its writer's order.

#include <libvxcore/vxlb_log.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

enum { WRITERS = 8, LONGEST = 63900 };

static std::atomic<int> *g_kept; // names given so far, by all processes
static std::vector<std::vector<bool>> g_seen(WRITERS);
static long g_records, g_faults;

// The library's rename, which it calls under its lock.
extern "C" int rename(const char *from, const char *to) noexcept {
    if (link(from, ("kept-" + std::to_string(*g_kept)).c_str()) == 0) {
        ++*g_kept;
    }
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

// Mostly short texts, a long one now and then.
static int padding(int writer, int number) {
    const unsigned mix =
        (static_cast<unsigned>(number) * 2654435761U) ^ static_cast<unsigned>(writer * 40503);
    return static_cast<int>(mix % 2000 == 0 ? mix % LONGEST : mix % 60);
}

static void write_records(int writer, int count) {
    static char text[LONGEST];
    memset(text, 'a' + writer, sizeof text);
    for (int i = 0; i < count; i++) {
        vxlb_debug_log_ex(VXLB_LEVEL_1, VXLB_MOD_API, "file", 1, "function", "%d %d %.*s %d",
                          writer, i, padding(writer, i), text, i);
    }
    _exit(0);
}

static bool is_whole(const char *record, int *writer, int *number) {
    int begin = 0, end = 0, again = -1;
    const char *message = strstr(record, "|file|1|function|");
    if (message == nullptr || sscanf(message + 17, "%d %d %n", writer, number, &begin) != 2 ||
        *writer < 0 || *writer >= WRITERS) {
        return false;
    }
    const char *text = message + 17 + begin;
    const size_t length = static_cast<size_t>(padding(*writer, *number));
    return strspn(text, std::string(1, static_cast<char>('a' + *writer)).c_str()) == length &&
           sscanf(text + length, " %d%n", &again, &end) == 1 && again == *number &&
           text[length + end] == '\0';
}

// What has been read of a file, and the number of each writer's last record in it.
struct Reader {
    off_t read = 0;
    std::string rest;
    int last[WRITERS] = {-1, -1, -1, -1, -1, -1, -1, -1};

    void take(const std::string &record) {
        int writer = 0, number = 0;
        if (!is_whole(record.c_str(), &writer, &number) || number <= last[writer] ||
            number >= static_cast<int>(g_seen[writer].size()) || g_seen[writer][number]) {
            g_faults++;
            fprintf(stderr, "torn, double or out of order: %.200s\n", record.c_str());
            return;
        }
        last[writer] = number;
        g_seen[writer][number] = true;
        g_records++;
    }
    // Read on, and give the space back: the file keeps its size, which is what the writers look at.
    void read_on(const std::string &path, bool is_final) {
        const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        static char bytes[1 << 20];
        for (ssize_t got; (got = pread(fd, bytes, sizeof bytes, read)) > 0; read += got) {
            rest.append(bytes, static_cast<size_t>(got));
            for (size_t end; (end = rest.find('\n', 1)) != std::string::npos; rest.erase(0, end)) {
                take(rest.substr(1, end - 1));
            }
            fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, read, got);
        }
        if (is_final && !rest.empty()) {
            take(rest.substr(1));
        }
        close(fd);
    }
};

// Returns the number of rollovers.
static int run(int records_each, unsigned limit) {
    std::map<int, Reader> readers;
    *g_kept = 0;
    for (auto &seen : g_seen) {
        seen.assign(static_cast<size_t>(records_each), false);
    }
    vxlb_util_set_log_filename("log", nullptr);
    vxlb_util_set_debug_log_level(VXLB_LEVEL_1);
    vxlb_util_set_modulemask(VXLB_MOD_API);
    vxlb_util_set_debug_log_size(limit);
    for (int writer = 0; writer < WRITERS; writer++) {
        if (fork() == 0) {
            write_records(writer, records_each);
        }
    }
    for (int left = WRITERS; left > 0; usleep(2000)) {
        left -= waitpid(-1, nullptr, WNOHANG) > 0 ? 1 : 0;
        for (int i = std::max(0, *g_kept - 3); i < *g_kept; i++) {
            readers[i].read_on("kept-" + std::to_string(i), false);
        }
    }
    const int rollovers = *g_kept;
    (void)!link("log", ("kept-" + std::to_string(rollovers)).c_str());
    for (int i = 0; i <= rollovers; i++) {
        readers[i].read_on("kept-" + std::to_string(i), true);
        unlink(("kept-" + std::to_string(i)).c_str());
    }
    unlink("log");
    unlink("log.prev");
    return rollovers;
}

int main() {
    const bool is_slice = getenv("SLICE") != nullptr && *getenv("SLICE") != '\0';
    const int each = (is_slice ? 100000 : 8000000) / WRITERS;
    g_kept = static_cast<std::atomic<int> *>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int rollovers = 0;
    rollovers += run(each / 4, 64 << 10);
    rollovers += run(each / 2, 1 << 20);
    rollovers += run(each - each / 4 - each / 2, 8 << 20);
    const long wanted = long{each} * WRITERS;
    printf(
        "09 log shared: %ld of %ld records of %d processes found, %d rollovers, %ld torn, double or out of order\n",
        g_records, wanted, WRITERS, rollovers, g_faults);
    return g_records == wanted && g_faults == 0 && rollovers >= (is_slice ? 10 : 100) ? 0 : 1;
}
