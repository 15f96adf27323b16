// SPDX-License-Identifier: Apache-2.0
// A log record that is written, to a file in /dev/shm where it is there (no disk), else in /tmp.
//
// The bare writer is the least that gives the same records with the same check of the file's size:
// the date from the clock's second, one snprintf, lseek to the end, write.
#include "compare.h"

#include <libvxcore/vxlb_log.h>

#include <cstdarg>
#include <fcntl.h>
#include <unistd.h>
#ifdef VX_HAVE_SPDLOG
#    include <spdlog/sinks/basic_file_sink.h>
#    include <spdlog/spdlog.h>
#endif

namespace {

constexpr int RECORDS = 20000;
constexpr off_t LIMIT = 100000000;

std::string path_of(const char *name) {
    const char *const directory = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    return std::string(directory) + "/vxcore_bench_" + std::to_string(getpid()) + "_" + name;
}

const std::string filler(900, 'x');

// Two messages: a short one as most traces are, and one that carries a text of some length.
struct Message {
    const char *name;
    const char *text;
};

void ours(const char *text) {
    for (int i = 0; i < RECORDS; i++) {
        vxlb_debug_log_ex(VXLB_LEVEL_2, VXLB_MOD_MISC, "core/base/file.cpp", 120, "function",
                          "Method called key = %p, name = %s, count = %d",
                          static_cast<const void *>(text), text, i);
    }
}

int bare_fd = -1;

const char *bare_date() {
    static time_t second;
    static char text[32];
    const time_t now = time(nullptr);
    if (now != second) {
        struct tm local = {};
        localtime_r(&now, &local);
        strftime(text, sizeof(text), "%m/%d/%Y %H:%M:%S", &local);
        second = now;
    }
    return text;
}

__attribute__((noinline, format(printf, 4, 5))) void
bare_log(const char *file, int line, const char *function, const char *format, ...) {
    __attribute__((uninitialized)) char record[64001];
    const int prefix =
        snprintf(record, sizeof(record), "\n%s|%s|%d|%s|", bare_date(), file, line, function);
    va_list args;
    va_start(args, format);
    const int len = prefix + vsnprintf(record + prefix,
                                       sizeof(record) - static_cast<size_t>(prefix), format, args);
    va_end(args);
    if (lseek(bare_fd, 0, SEEK_END) > LIMIT) {
        abort();
    }
    if (write(bare_fd, record, static_cast<size_t>(len)) != len) {
        abort();
    }
}

void bare(const char *text) {
    for (int i = 0; i < RECORDS; i++) {
        bare_log("core/base/file.cpp", 120, "function",
                 "Method called key = %p, name = %s, count = %d", static_cast<const void *>(text),
                 text, i);
    }
}

void measure(const Message &message) {
    const std::string our_path = path_of("ours");
    const std::string bare_path = path_of("bare");
    const char *const text = message.text;
    vxlb_util_set_debug_log_level(VXLB_LEVEL_2);
    vxlb_util_set_modulemask(VXLB_MOD_MISC);
    vxlb_util_set_log_filename(our_path.c_str(), nullptr);
    open_log_ex(our_path.c_str(), &lib_debug_fd, static_cast<unsigned int>(LIMIT));
    bare_fd = open(bare_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    std::vector<rounds::Arm> arms = {
        {"ours", "", [=] { ours(text); }, [] { (void)!ftruncate(lib_debug_fd, 0); }},
        {"format, lseek, write", "<=1.10", [=] { bare(text); },
         [] { (void)!ftruncate(bare_fd, 0); }}};
    const rounds::Work work = {
        .group = "log", .name = std::string("record, ") + message.name, .items = RECORDS};
#ifdef VX_HAVE_SPDLOG
    const std::string peer_path = path_of("spdlog");
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_st>(peer_path, true);
    spdlog::logger logger("bench", sink);
    logger.set_pattern("%n%D %T|%s|%#|%!|%v");
    logger.flush_on(spdlog::level::trace);
    arms.push_back({"spdlog, file sink, flushed", "<1.00",
                    [&] {
                        for (int i = 0; i < RECORDS; i++) {
                            logger.log(spdlog::source_loc{"core/base/file.cpp", 120, "function"},
                                       spdlog::level::info,
                                       "Method called key = {}, name = {}, count = {}",
                                       static_cast<const void *>(text), text, i);
                        }
                    },
                    [=] { (void)!truncate(peer_path.c_str(), 0); }});
#else
    rounds::missing(work, "spdlog, file sink, flushed");
#endif
    rounds::arms(work, arms);
    vxlb_close_log_fd();
    close(bare_fd);
    unlink(our_path.c_str());
    unlink(bare_path.c_str());
#ifdef VX_HAVE_SPDLOG
    unlink(peer_path.c_str());
#endif
}

} // namespace

int main(int argc, char **argv) {
    rounds::init(argc, argv);
    measure({"short", "bench"});
    measure({"1 KB", filler.c_str()});
    return 0;
}
