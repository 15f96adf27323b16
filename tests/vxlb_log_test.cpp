// SPDX-License-Identifier: Apache-2.0
// The log, in a program that replaces time and localtime_r: dates follow a clock of the test's own.
#include "trace_log.h"

#include <libvxcore/vxlb_util.h>

#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <map>
#include <set>
#include <sys/file.h>
#include <sys/wait.h>
#include <thread>

namespace fs = std::filesystem;

namespace {

time_t g_fake_now; // 0: the system's clock
bool g_fails;
__thread int g_conversions;
char *(*g_during_conversion)();

} // namespace

time_t time(time_t *out) {
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    const time_t now = g_fake_now != 0 ? g_fake_now : ts.tv_sec;
    return out == nullptr ? now : *out = now;
}

struct tm *localtime_r(const time_t *when, struct tm *out) {
    g_conversions++;
    if (g_during_conversion != nullptr) {
        g_during_conversion();
    }
    return g_fails ? nullptr : gmtime_r(when, out);
}

namespace {

void log_text(const std::string &message) {
    vxlb_debug_log_ex(VXLB_LEVEL_2, VXLB_MOD_API, "f.c", 12, "fn", "%s", message.c_str());
}

int open_file(const std::string &path, const std::string &content = "") {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    EXPECT_EQ(static_cast<ssize_t>(content.size()), write(fd, content.data(), content.size()));
    return fd;
}

int open_descriptors() {
    return static_cast<int>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

} // namespace

// First of all: what the other tests change is put back only as far as they need.
TEST(VxlbLog, StartsSwitchedOff) {
    EXPECT_EQ("0 0 100000000 -1 -1", text("%u %lu %u %d %d", vxlb_log_level, lib_module_mask,
                                          max_debug_log_file_size, lib_debug_fd, lib_error_fd));
    EXPECT_TRUE(!log_file[0] && !error_log_file[0] && !vxlb_log_fp);
}

TEST(VxlbLog, DatesAreConvertedOnceASecondAndShowTheYearModulo2000) {
    for (const auto &[when, date] :
         std::map<time_t, std::string>{{946684799, "12/31/1999 23:59:59"},
                                       {946684800, "01/01/00 00:00:00"},
                                       {1799999999, "01/15/27 07:59:59"},
                                       {4102444800, "01/01/100 00:00:00"}}) {
        g_fake_now = when;
        EXPECT_EQ(date, get_cur_date_time());
    }
    g_fake_now = 1000;
    g_fails = true;
    char date[VXLB_DATE_TIME_SIZE];
    EXPECT_STREQ("Error", get_cur_date_time());
    EXPECT_STREQ("Error|Error", vxlb_get_cur_date_time(date, 0));
    g_fails = false;
    g_during_conversion = get_cur_date_time; // as from a signal handler, which starts no other
    g_conversions = 0;
    strcpy(get_cur_date_time(), "scribbled over");
    g_during_conversion = nullptr;
    EXPECT_STREQ("01/01/1970 00:16:40", get_cur_date_time());
    EXPECT_EQ(1, g_conversions);
    timezone += 3600;
    get_cur_date_time();
    timezone -= 3600;
    daylight = !daylight;
    get_cur_date_time();
    daylight = !daylight;
    EXPECT_EQ(3, g_conversions) << "again in another zone";
    g_fake_now++;
    EXPECT_STREQ("01/01/1970 00:16:41", get_cur_date_time());
    g_fake_now = 0;
}

TEST(VxlbLog, ARecordNeedsLevelAndModule) {
    const struct {
        uint64_t level, mask, record_level, record_mask;
        bool is_written;
    } cases[] = {{0, UINT64_MAX, 0xFF, 0x10, false},
                 {0xFFFFFFFF, 0, 0xFF, 0x10, false},
                 {0xFFFF, 0x10, 0xFF00, 0x10, true},
                 {0xFF, 0x10, 0xFF00, 0x10, false},
                 {0xFFFFFFFF, 0x10, 0xFF000000, 0x10, true},
                 {0xFFFFFFFF, 0x10, 0xFF0000, 0x20, false},
                 {1, uint64_t{1} << 63, 0xFF, uint64_t{1} << 63, true}};
    for (const auto &c : cases) {
        TraceLog log(c.mask, static_cast<int>(c.level));
        const int level = static_cast<int>(c.record_level);
        int evaluated = 0;
        vxlb_debug_log_ex(level, c.record_mask, "f", 1, "g", "%d", ++evaluated);
        (vxlb_debug_log_ex)(level, c.record_mask, "f", 1, "g", "x");
        EXPECT_EQ(c.is_written ? "1\nx\n" : "", log.take()) << c.level << " " << c.mask;
        EXPECT_EQ(c.is_written, evaluated == 1);
    }
}

TEST(VxlbLog, ARecordBeginsWithANewlineAndIsCutTo64000Bytes) {
    TraceLog log;
    errno = 77;
    log_text("hello");
    vxlb_debug_log_ex(VXLB_LEVEL_1, 1, nullptr, -3, "g", "%d", 8);
    EXPECT_EQ(77, errno);
    EXPECT_EQ("\nDATE|f.c|12|fn|hello\nDATE|(null)|-3|g|8", undated(log.content()));
    EXPECT_EQ(FD_CLOEXEC, fcntl(lib_debug_fd, F_GETFD));
    EXPECT_EQ(O_APPEND | O_WRONLY, fcntl(lib_debug_fd, F_GETFL) & (O_APPEND | O_ACCMODE));
    const size_t prefix = 29; // newline, date, f.c, 12, fn and the bars
    for (const size_t size : {63998, 63999, 64000, 64001, 99999}) {
        fs::resize_file(log.path, 0);
        log_text(std::string(size - prefix, 'x'));
        const std::string all = log.content();
        EXPECT_EQ(std::min<size_t>(size, 64000), all.size());
        EXPECT_EQ(size < 64000 ? 'x' : '\0', all.back());
        EXPECT_EQ('x', all[all.size() - 2]);
    }
    fs::resize_file(log.path, 0);
    vxlb_debug_log_ex(1, 1, std::string(70000, 'f').c_str(), 1, "g", "%s", "message");
    EXPECT_EQ(64000u, fs::file_size(log.path));
    EXPECT_EQ('f', log.content().back());
    fs::resize_file(log.path, 0);
    const wchar_t unprintable[] = {0x7fffffff, 0};
    vxlb_debug_log_ex(1, 1, "f.c", 1, "g", "ab%lscd", unprintable);
    EXPECT_EQ("\nDATE|f.c|1|g|", undated(log.content()).substr(0, 14));
}

TEST(VxlbLog, ErrorRecordsGoToStandardErrorOrTheErrorLog) {
    TraceLog log(0, 0);
    const auto report = [](int level) {
        return undated(said([&] {
            errno = 77;
            vxlb_error_log_ex(level, "f.c", 3, "fn", "E7", "attr", "bad %d", 9);
            EXPECT_EQ(77, errno);
        }));
    };
    EXPECT_EQ("", report(0));
    for (const auto &[level, name] : {std::pair{0xFF, "Critical"},
                                      {0xFF00, "Major"},
                                      {0xFF0000, "Minor"},
                                      {static_cast<int>(0xFF000000), "Warning"},
                                      {1, "Unknown Log Level"}}) {
        EXPECT_EQ(text("\nDATE|E7|%s|attr|f.c|3|fn|Error|bad 9", name), report(level));
    }
    const std::string path = log.dir / "error.log";
    vxlb_util_set_log_filename(nullptr, path.c_str());
    EXPECT_EQ(log.path, log_file);
    max_debug_log_file_size = 1;
    EXPECT_EQ("", report(1) + report(1));
    EXPECT_EQ(2 * (52 + 13), fs::file_size(path));
    vxlb_error_log_ex(1, "f", 3, "g", "", "", "%s", std::string(70000, 'y').c_str());
    EXPECT_EQ(2 * (52 + 13) + 64000, fs::file_size(path));
    vxlb_close_log_fd();
    EXPECT_LT(0, vxlb_get_error_fd());
    close(lib_error_fd);
    lib_error_fd = -1;
    vxlb_util_set_log_filename(nullptr, "/no/error.log");
    EXPECT_EQ("Failed to open(/no/error.log). Error = No such file or directory", report(1));
}

TEST(VxlbLog, StreamTracePrintsUpToItsLevel) {
    TempDir dir;
    FILE *const stream = fopen((dir / "s").c_str(), "w");
    const auto trace = [](FILE *to, int level, const char *message) {
        return lib_debug_log(level, 1, to, "f.c", 4, "fn", "%s", message);
    };
    EXPECT_EQ(0, trace(stream, 2, "no"));
    EXPECT_EQ(0, trace(stream, 1, "equal"));
    EXPECT_EQ("\nDATE|f.c|4|fn|equal\n", undated(file_text(dir / "s")));
    trace(stream, -1, std::string(30000, 'x').c_str());
    EXPECT_EQ(34u + 2 + 19999, fs::file_size(dir / "s"));
    fclose(stream);
    testing::internal::CaptureStdout();
    trace(nullptr, 1, "out");
    EXPECT_EQ("\nDATE|f.c|4|fn|out\n", undated(testing::internal::GetCapturedStdout()));
    FILE *const read_only = fopen("/dev/null", "r");
    EXPECT_EQ("\nUnable to write to debug\n", said([&] { trace(read_only, 1, "lost"); }));
    fclose(read_only);
}

TEST(VxlbLog, OpensForAppendingAndWritesAHeaderToNewFilesOnly) {
    TempDir dir;
    const std::string path = dir / "log";
    const auto open_at = [&](int from, const std::string &at, const char *header) {
        int fd = from;
        const int result = vxlb_open_file_with_header(&fd, at.c_str(), header);
        EXPECT_EQ(result < 0, fd < 1);
        EXPECT_EQ(fd < 1 ? -1 : fd != from ? FD_CLOEXEC : 0, fcntl(fd, F_GETFD));
        fd != from ? close(fd) : 0;
        return result;
    };
    EXPECT_EQ(1, open_at(-1, path, "head"));
    EXPECT_EQ(0, open_at(0, path, "again")) << "0 counts as closed";
    EXPECT_EQ(0, open_at(2, "/nowhere/log", "head")) << "open already";
    EXPECT_EQ(0, open_at(-1, dir / "other", nullptr));
    EXPECT_EQ(-1, open_at(0, "/nowhere/log", "head"));
    EXPECT_EQ("head", file_text(path));
    const int saved = fcntl(0, F_DUPFD_CLOEXEC, 10);
    close(0);
    EXPECT_EQ(0, open_at(-1, path, nullptr));
    EXPECT_EQ(-1, fcntl(0, F_GETFD)) << "0 is not used, and free again";
    dup2(saved, 0);
    close(saved);
}

TEST(VxlbLog, SaysWhyALogCanNotBeOpenedOrClosed) {
    TraceLog log;
    fs::remove_all(log.dir.path);
    EXPECT_EQ(text("Failed to open(%s). Error = No such file or directory", log.path.c_str()),
              said([] { log_text("a"); }));
    EXPECT_EQ(-1, vxlb_get_debug_fd());
    EXPECT_EQ("", said(vxlb_close_log_fd)) << "closed already";
    lib_debug_fd = 9999;
    EXPECT_EQ("error in closing fd ", said(vxlb_close_log_fd));
    EXPECT_EQ(-1, lib_debug_fd);
}

TEST(VxlbLog, RollsAFileThatIsLargerThanTheLimit) {
    int closed = -1;
    EXPECT_EQ(0, vxlb_check_rollover_file(&closed, "/nowhere", 1, 1));
    g_fake_now = 7 * 3600 + 8 * 60; // the other scheme adds hour and minute
    for (const auto &[limit, scheme, rolled] : {std::tuple{9, 1, "log.prev"},
                                                {10, 1, ""},
                                                {0, 1, ""},
                                                {-1, 1, ""},
                                                {1, 0, "log.07.08"}}) {
        SCOPED_TRACE(limit);
        TempDir dir;
        std::ofstream(dir / "log.prev") << "older";
        int fd = open_file(dir / "log", "0123456789");
        const int old_fd = fd;
        EXPECT_EQ(0, vxlb_check_rollover_file(&fd, (dir / "log").c_str(), limit, scheme));
        const bool is_rolled = *rolled != 0;
        EXPECT_EQ(is_rolled ? -1 : old_fd, fd);
        EXPECT_EQ(is_rolled, fcntl(old_fd, F_GETFD) < 0) << "closed";
        EXPECT_EQ(is_rolled, !fs::exists(dir / "log"));
        EXPECT_EQ("0123456789", file_text(dir / (is_rolled ? rolled : "log")));
        close(fd);
    }
    g_fake_now = 0;
}

TEST(VxlbLog, OneThatIsRolledElsewhereIsOnlyReopened) {
    TempDir dir;
    const std::string path = dir / "log";
    const int other = open_file(path, "0123456789");
    const auto roll = [&] {
        int fd = open_file(path);
        vxlb_check_rollover_file(&fd, path.c_str(), 5, 1);
        EXPECT_EQ(-1, fd);
    };
    ASSERT_EQ(0, flock(other, LOCK_EX));
    roll(); // loses to the lock, which goes with its descriptor
    EXPECT_FALSE(fs::exists(path + ".prev"));
    close(other);
    int fd = open_file(path);
    fs::rename(path, path + ".prev");
    close(open_file(path, "new file, large enough"));
    vxlb_check_rollover_file(&fd, path.c_str(), 5, 1);
    EXPECT_EQ("-1 0123456789", text("%d ", fd) + file_text(path + ".prev"));
    EXPECT_EQ("new file, large enough", file_text(path)) << "another file has the path";
}

TEST(VxlbLog, ARolledLogKeepsItsDescriptorNumber) {
    TempDir dir;
    const std::string path = dir / "log";
    int fd = open_file(path, "0123456789");
    const int old_fd = fd;
    const int before = open_descriptors();
    EXPECT_EQ(0, vxlb_open_log(&fd, path.c_str(), 10, "head"));
    EXPECT_EQ(1, vxlb_open_log(&fd, path.c_str(), 9, "head"));
    EXPECT_EQ(old_fd, fd);
    EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_EQ(4, write(fd, "more", 4));
    EXPECT_EQ("headmore", file_text(path));
    EXPECT_EQ("0123456789", file_text(path + ".prev"));
    fs::remove_all(dir.path);
    EXPECT_EQ(-1, vxlb_open_log(&fd, path.c_str(), 1, nullptr));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(-1, fd);
    EXPECT_EQ(before - 1, open_descriptors());
}

TEST(VxlbLog, TheDebugLogMayPassItsLimitByOneRecord) {
    TraceLog log;
    vxlb_util_set_debug_log_size(2 * 31);
    log_text("r1");
    log_text("r2");
    log_text("r3"); // the log was as large as the limit
    EXPECT_FALSE(fs::exists(log.path + ".prev"));
    log_text("r4");
    EXPECT_EQ(93u, fs::file_size(log.path + ".prev"));
    EXPECT_EQ("r4\n", log.take());
    vxlb_util_set_debug_log_size(2147483648U); // negative as a signed size: never rolled
    log_text("r5");
    log_text("r6");
    EXPECT_EQ("r5\nr6\n", log.take());
}

TEST(VxlbLog, SettersStoreTheirArgument) {
    TraceLog log;
    hessian_set_debug_log_level(5);
    hessian_set_debug_log_fp(stderr);
    EXPECT_TRUE(vxlb_log_level == 5 && vxlb_log_fp == stderr);
    vxlb_util_set_debug_log_fp(nullptr);
    const std::string longest(2000, 'p');
    vxlb_util_set_log_filename(longest.c_str(), longest.c_str());
    EXPECT_EQ(longest.substr(0, 1023), log_file);
    EXPECT_EQ(longest.substr(0, 1023), error_log_file);
}

TEST(VxlbLog, ReadsLevelLines) {
    const auto level_of = [](const std::string &line) {
        vxlb_log_level = 0x77;
        int result = 0;
        const std::string complaint = said([&] { result = set_vxlb_debug(line.c_str()); });
        return text("%d %x %s", result, vxlb_log_level, complaint.c_str());
    };
    const std::string cases =
        "LIB_DEBUG 1 -> 0 ff ;LIB_DEBUG 2 -> 0 ffff ;LIB_DEBUG\t3 extra -> 0 ffffff ;"
        "LIB_DEBUG 4 -> 0 ffffffff ;LIB_DEBUG 0 -> 0 0 ;LIB_DEBUG 5 -> 0 5 ;"
        "LIB_DEBUG 4278190080 -> 0 ff000000 ;LIB_DEBUG " +
        std::string(600, '1') +
        " -> 0 ffffffff ;"
        "LIB_DEBUG x1 -> -1 77 Error: Value of LIB_DEBUG is not numeric;"
        "LIB_DEBUG -1 -> -1 77 Error: Value of LIB_DEBUG is not numeric;";
    EXPECT_EQ(cases, retold(cases, level_of));
    const std::string too_few = "should be atleast two (LIB_DEBUG <level>)\n";
    EXPECT_EQ("0 0 Invalid argument to keyword , " + too_few, level_of(""));
    EXPECT_EQ("0 0 Invalid argument to keyword LIB_DEBUG, " + too_few, level_of("LIB_DEBUG"));
    vxlb_log_level = 0;
}

TEST(VxlbLog, ReadsModuleMaskLines) {
    const auto mask_of = [](const std::string &line) {
        char complaint[200] = "";
        lib_module_mask = 7;
        const int result = set_vxlb_modulemask(line.c_str(), complaint);
        EXPECT_EQ(result, *complaint == 0 ? 0 : -1);
        return text("%lx%s", lib_module_mask, complaint);
    };
    const std::string cases = // a second ~ is passed over, and so is one at the end
        "K -> 0;K  memory   misc  -> 60;K ALL ~ MEMORY -> ffffffffffffffbf;K ~ MEMORY -> 0;"
        "K MEMORY MEMORY -> 80;K 30 -> 1e;K 0x30 -> 30;K \t 5 -> 5;K 0xff 0xZZ -> 1fe;K 12x -> c;"
        "K 18446744073709551615 -> ffffffffffffffff;K ALL ~ API ~ MISC -> ffffffffffffffcf;"
        "K Search hessian HASH auth API MISC Memory topo -> 17f;K API ~ -> 10;K API ~ ~ -> 10;"
        "K ~API -> 0;"
        "K 0x FF -> 7ZylErr[1011357]: Provided Modulemask 'FF' is not a valid modulemask.;"
        "K MEM 1 -> 7ZylErr[1011357]: Provided Modulemask 'MEM' is not a valid modulemask.;";
    EXPECT_EQ(cases, retold(cases, mask_of));
    EXPECT_EQ("60 0", mask_of("  K misc MEMORY\n") + " " + mask_of(""));
    std::string words = "K";
    for (int i = 1; i <= 100; i++) {
        words += " 1";
        EXPECT_EQ(text("%x", std::min(i, 99)), mask_of(words)) << "100 words are looked at";
    }
    EXPECT_EQ("62", mask_of(words.substr(0, 197) + " ~ 2")) << "and none behind a last ~";
    for (int row = 1; row < VXLB_MODULE_COUNT; row++) {
        EXPECT_EQ(uint64_t{1} << (row - 1), lib_module_mask_bit[row]);
    }
    EXPECT_STREQ("", lib_module_mask_name[8]);
    lib_module_mask = 0;
}

TEST(VxlbLog, AnInterruptedRecordArrivesWhole) {
    TraceLog log;
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    fcntl(ends[1], F_SETPIPE_SZ, 4096);
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr); // without SA_RESTART
    const pthread_t writer = pthread_self();
    size_t got = 0;
    std::thread reader([&] {
        char piece[1000];
        for (ssize_t len; (len = read(ends[0], piece, sizeof(piece))) > 0;) {
            got += static_cast<size_t>(len);
            if (got < 60000) {
                pthread_kill(writer, SIGUSR1);
            }
        }
    });
    lib_debug_fd = ends[1];
    log_text(std::string(70000, 'x'));
    vxlb_close_log_fd();
    reader.join();
    close(ends[0]);
    EXPECT_EQ(64000u, got);
}

// --- several writers ---------------------------------------------------------------------------

namespace {

enum { WRITERS = 8, RECORDS = 2000 };

// A record that tells whose it is and, at both ends, which.
std::string numbered(int writer, int number) {
    const std::string padding(static_cast<size_t>(number % 90), 'a');
    return text("%d:%d:%s:%d", writer, number, padding.c_str(), number);
}

void write_records(int writer) {
    for (int i = 0; i < RECORDS; i++) {
        log_text(numbered(writer, i));
    }
}

// Writers of one log, as processes or as threads.
void run_writers(bool are_processes) {
    std::vector<std::thread> threads;
    for (int i = 0; i < WRITERS; i++) {
        if (!are_processes) {
            threads.emplace_back(write_records, i);
        } else if (fork() == 0) {
            write_records(i);
            _exit(0);
        }
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (int status; wait(&status) > 0;) {
        EXPECT_EQ(0, status);
    }
}

} // namespace

// No record is torn, and those of each writer that are left are its last ones, with nothing missing
// in between: rolling loses whole old files, once each.
TEST(VxlbLog, WritersRollTheirSharedLogOnce) {
    for (const auto &[limit, are_processes] :
         {std::pair{0, true}, {300000, true}, {300000, false}}) {
        TraceLog log;
        const int before = open_descriptors();
        vxlb_util_set_debug_log_size(static_cast<unsigned>(limit));
        log_text("0"); // opens the descriptor that processes inherit
        fs::resize_file(log.path, 0);
        run_writers(are_processes);
        EXPECT_EQ(before + 1, open_descriptors());
        EXPECT_EQ(limit != 0, fs::exists(log.path + ".prev"));
        std::istringstream lines(file_text(log.path + ".prev") + log.content());
        std::map<int, std::set<int>> writers;
        std::string line;
        std::getline(lines, line);
        while (std::getline(lines, line)) {
            int writer = -1, number = -1;
            sscanf(line.c_str() + 17, "|f.c|12|fn|%d:%d:", &writer, &number);
            ASSERT_EQ("|f.c|12|fn|" + numbered(writer, std::max(number, 0)), line.substr(17));
            writers[writer].insert(number);
        }
        EXPECT_GE(writers.size(), limit == 0 ? 8u : 1u);
        for (const auto &[writer, numbers] : writers) {
            EXPECT_EQ(limit == 0 ? 0 : RECORDS - static_cast<int>(numbers.size()),
                      *numbers.begin());
            EXPECT_EQ(RECORDS - 1, *numbers.rbegin());
        }
    }
}
