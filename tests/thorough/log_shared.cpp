// SPDX-License-Identifier: Apache-2.0
// Eight processes write records of known texts to one log with a small limit. Each rollover leaves a
// second name of the file it renames, so that every record ever written can be looked for: none may be
// torn, missing, double or, within a file, out of its writer's order.

#include <libvxcore/vxlb_log.h>

#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

enum { WRITERS = 8, LONGEST = 63900 };

static std::atomic<int> *g_kept; // names given so far, by all processes
static std::vector<std::vector<bool>> g_seen(WRITERS);
static long g_records, g_faults;

static std::string kept_name(int i) {
    return "kept-" + std::to_string(i);
}

// The library's rename, which it calls under its lock.
extern "C" int rename(const char *from, const char *to) noexcept {
    *g_kept += link(from, kept_name(*g_kept).c_str()) == 0;
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

// Mostly short texts, a long one now and then, with the number at both ends.
static std::string text_of(int writer, int number) {
    const unsigned mix =
        static_cast<unsigned>(number) * 2654435761U + static_cast<unsigned>(writer) * 40503U;
    const std::string padding(mix % 2000 == 0 ? mix % LONGEST : mix % 60,
                              static_cast<char>('a' + writer));
    return std::to_string(writer) + " " + std::to_string(number) + " " + padding + " " +
           std::to_string(number);
}

// What has been read of a file, and the number of each writer's last record in it.
struct Reader {
    off_t read = 0;
    std::string rest;
    std::vector<int> last = std::vector<int>(WRITERS, -1);

    void take(const std::string &record) {
        unsigned writer = WRITERS, number = 0;
        const size_t text = record.find("|function|") + strlen("|function|");
        sscanf(record.c_str() + std::min(text, record.size()), "%u %u", &writer, &number);
        if (writer >= WRITERS || number >= g_seen[writer].size() || g_seen[writer][number] ||
            static_cast<int>(number) <= last[writer] ||
            record.compare(text, std::string::npos,
                           text_of(static_cast<int>(writer), static_cast<int>(number))) != 0) {
            g_faults++;
            fprintf(stderr, "torn, double or out of order: %.200s\n", record.c_str());
            return;
        }
        last[writer] = static_cast<int>(number);
        g_seen[writer][number] = true;
        g_records++;
    }
    // Read on, and give the space back: the file keeps its size, which is what the writers look at.
    void read_on(const std::string &path, bool is_final) {
        const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        static char bytes[1 << 20];
        for (ssize_t got; (got = pread(fd, bytes, sizeof bytes, read)) > 0; read += got) {
            rest.append(bytes, static_cast<size_t>(got));
            size_t begin = 0;
            for (size_t end; (end = rest.find('\n', begin + 1)) != std::string::npos; begin = end) {
                take(rest.substr(begin + 1, end - begin - 1));
            }
            rest.erase(0, begin);
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
    g_seen.assign(WRITERS, std::vector<bool>(static_cast<size_t>(records_each)));
    vxlb_util_set_debug_log_size(limit);
    for (int writer = 0; writer < WRITERS; writer++) {
        if (fork() == 0) {
            for (int i = 0; i < records_each; i++) {
                vxlb_debug_log_ex(VXLB_LEVEL_1, VXLB_MOD_API, "file", 1, "function", "%s",
                                  text_of(writer, i).c_str());
            }
            _exit(0);
        }
    }
    for (int left = WRITERS; left > 0; usleep(2000)) {
        left -= waitpid(-1, nullptr, WNOHANG) > 0 ? 1 : 0;
        for (int i = std::max(0, *g_kept - 3); i < *g_kept; i++) {
            readers[i].read_on(kept_name(i), false);
        }
    }
    const int rollovers = *g_kept;
    rename("log", "log.prev"); // keeps the last one too
    for (int i = 0; i <= rollovers; i++) {
        readers[i].read_on(kept_name(i), true);
        unlink(kept_name(i).c_str());
    }
    return rollovers;
}

int main(int, char **argv) {
    const int each = std::stoi(argv[1]) / WRITERS;
    g_kept = static_cast<std::atomic<int> *>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    vxlb_util_set_log_filename("log", nullptr);
    vxlb_util_set_debug_log_level(VXLB_LEVEL_1);
    vxlb_util_set_modulemask(VXLB_MOD_API);
    const int rollovers =
        run(each / 4, 64 << 10) + run(each / 2, 1 << 20) + run(each - each / 4 - each / 2, 8 << 20);
    printf(
        "09 log shared: %ld of %d records of %d processes found, %d rollovers, %ld torn, double or "
        "out of order\n",
        g_records, each * WRITERS, WRITERS, rollovers, g_faults);
    return g_records == each * WRITERS && g_faults == 0 && rollovers >= each / 10000 ? 0 : 1;
}
