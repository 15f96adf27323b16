// SPDX-License-Identifier: Apache-2.0
// What the models of fuzz_log and fuzz_log_settings leave out: files, descriptors, signals, threads
// and clocks. time and localtime_r are replaced, so that dates follow a clock of the test's own.
#include "trace_log.h"

#include <libvxcore/vxlb_util.h>

#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <thread>

namespace fs = std::filesystem;

namespace {

time_t g_fake_now; // 0: the system's clock
__thread int g_conversions;
char *(*g_during_conversion)();
sigset_t g_blocked; // while a time was converted

char *note_blocked() {
    sigprocmask(SIG_BLOCK, nullptr, &g_blocked);
    return nullptr;
}

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
    return gmtime_r(when, out);
}

namespace {

void log_text(const std::string &message) {
    vxlb_debug_log_ex(VXLB_LEVEL_2, VXLB_MOD_API, "f.c", 12, "fn", "%s", message.c_str());
}

std::string report() {
    return undated(said([] { vxlb_error_log_ex(1, "f.c", 3, "fn", "E7", "attr", "bad %d", 9); }));
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

TEST(VxlbLog, DatesAreConvertedOnceASecondAndZone) {
    g_fake_now = 1000;
    g_during_conversion = get_cur_date_time; // as from a signal handler, which starts no other
    g_conversions = 0;
    strcpy(get_cur_date_time(), "scribbled over");
    g_during_conversion = nullptr;
    EXPECT_STREQ("01/01/1970 00:16:40", get_cur_date_time());
    EXPECT_EQ(1, g_conversions);
    timezone += 3600;
    get_cur_date_time();
    get_cur_date_time();
    timezone -= 3600;
    daylight = !daylight;
    get_cur_date_time();
    daylight = !daylight;
    EXPECT_EQ(3, g_conversions) << "again in another zone";
    g_fake_now = 0;
}

TEST(VxlbLog, AConversionMayBlockSignalsAndThenUnblocksAll) {
    g_during_conversion = note_blocked;
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    sigprocmask(SIG_BLOCK, &mask, nullptr);
    for (const int flag : {2, 1}) { // any flag but 1 leaves signals alone
        char date[VXLB_DATE_TIME_SIZE];
        EXPECT_EQ(date, vxlb_get_cur_date_time(date, flag));
        EXPECT_EQ(flag == 1, sigismember(&g_blocked, SIGUSR2));
        sigprocmask(SIG_BLOCK, nullptr, &mask);
        EXPECT_EQ(flag == 2, sigismember(&mask, SIGUSR1));
    }
    g_during_conversion = nullptr;
}

TEST(VxlbLog, ADisabledTraceEvaluatesNothingAndNoneIsLostForItsFormat) {
    TraceLog log(0x10, 0xFFFF);
    int evaluated = 0;
    vxlb_debug_log_ex(0xFF0000, 0x10, "f", 1, "g", "%d", ++evaluated);
    vxlb_debug_log_ex(0xFF, 0x20, "f", 1, "g", "%d", ++evaluated);
    vxlb_debug_log_ex(0xFF00, 0x30, nullptr, -3, "g", "%d", ++evaluated);
    const wchar_t unprintable[] = {0x7fffffff, 0};
    vxlb_debug_log_ex(1, 0x10, "f.c", 1, "g", "ab%lscd", unprintable);
    EXPECT_EQ("1\nab\n", log.take());
    vxlb_debug_log_ex(1, 0x10, nullptr, -3, nullptr, "%s", "x");
    EXPECT_EQ("\nDATE|(null)|-3|(null)|x", undated(log.content()));
}

TEST(VxlbLog, LogsAreOpenedForAppendingAndNotInherited) {
    TraceLog log;
    const std::string path = log.dir / "error.log";
    vxlb_util_set_log_filename(nullptr, path.c_str());
    EXPECT_EQ(log.path, log_file);
    log_text("");
    EXPECT_EQ("", report());
    for (const int fd : {vxlb_get_debug_fd(), vxlb_get_error_fd()}) {
        EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
        EXPECT_EQ(O_APPEND | O_WRONLY, fcntl(fd, F_GETFL) & (O_APPEND | O_ACCMODE));
    }
    vxlb_close_log_fd();
    EXPECT_LT(0, vxlb_get_error_fd());
    close(lib_error_fd);
    lib_error_fd = -1;
    vxlb_util_set_log_filename(std::string(2000, 'p').c_str(), std::string(2000, 'q').c_str());
    EXPECT_EQ(std::string(1023, 'p') + std::string(1023, 'q'),
              log_file + std::string(error_log_file));
}

TEST(VxlbLog, SaysWhyALogCanNotBeOpenedOrClosed) {
    TraceLog log;
    fs::remove_all(log.dir.path);
    EXPECT_EQ(text("Failed to open(%s). Error = No such file or directory", log.path.c_str()),
              said([] { log_text("a"); }));
    vxlb_util_set_log_filename(nullptr, "/no/error.log");
    EXPECT_EQ("Failed to open(/no/error.log). Error = No such file or directory", report());
    EXPECT_EQ("", said(vxlb_close_log_fd)) << "closed already";
    lib_debug_fd = 9999;
    EXPECT_EQ("error in closing fd ", said(vxlb_close_log_fd));
    EXPECT_EQ(-1, lib_debug_fd);
}

TEST(VxlbLog, StreamTraceGoesToStandardOutputOrSaysThatItIsLost) {
    const TraceLog log;
    const auto trace = [](FILE *to) { lib_debug_log(1, 1, to, "f.c", 4, "fn", "out"); };
    hessian_set_debug_log_level(5);
    hessian_set_debug_log_fp(stderr);
    EXPECT_TRUE(vxlb_log_level == 5 && vxlb_log_fp == stderr);
    testing::internal::CaptureStdout();
    trace(nullptr);
    EXPECT_EQ("\nDATE|f.c|4|fn|out\n", undated(testing::internal::GetCapturedStdout()));
    FILE *const read_only = fopen("/dev/null", "r");
    EXPECT_EQ("\nUnable to write to debug\n", said([&] { trace(read_only); }));
    fclose(read_only);
}

TEST(VxlbLog, DescriptorZeroCountsAsClosedAndIsNotUsed) {
    TempDir dir;
    const int saved = fcntl(0, F_DUPFD_CLOEXEC, 10);
    close(0);
    int fd = 0;
    EXPECT_EQ(1, vxlb_open_file_with_header(&fd, (dir / "log").c_str(), "head"));
    EXPECT_LT(0, fd);
    EXPECT_EQ(-1, fcntl(0, F_GETFD)) << "free again";
    close(fd);
    dup2(saved, 0);
    close(saved);
}

TEST(VxlbLog, TheOtherSchemeAddsHourAndMinuteToTheName) {
    TempDir dir;
    g_fake_now = 7 * 3600 + 8 * 60;
    int fd = open_file(dir / "log", "0123456789");
    const int before = open_descriptors();
    g_during_conversion = note_blocked;
    EXPECT_EQ(0, vxlb_check_rollover_file(&fd, (dir / "log").c_str(), 9, 0));
    g_during_conversion = nullptr;
    EXPECT_TRUE(sigismember(&g_blocked, SIGUSR1)) << "no handler may break in";
    EXPECT_EQ(-1, fd);
    EXPECT_EQ(before - 1, open_descriptors());
    EXPECT_EQ("0123456789", file_text(dir / "log.07.08"));
    EXPECT_FALSE(fs::exists(dir / "log"));
    g_fake_now = 0;
}

TEST(VxlbLog, OneThatIsRolledElsewhereIsOnlyReopened) {
    TempDir dir;
    const std::string path = dir / "log";
    const int before = open_descriptors();
    const int other = open_file(path, "0123456789");
    int fd = open_file(path);
    ASSERT_EQ(0, flock(other, LOCK_EX));
    vxlb_check_rollover_file(&fd, path.c_str(), 5, 1); // loses to the lock
    EXPECT_EQ(-1, fd);
    EXPECT_FALSE(fs::exists(path + ".prev"));
    close(other); // and its lock
    fd = open_file(path);
    fs::rename(path, path + ".prev");
    close(open_file(path, "new file, large enough"));
    vxlb_check_rollover_file(&fd, path.c_str(), 5, 1);
    EXPECT_EQ("-1 0123456789", text("%d ", fd) + file_text(path + ".prev"));
    EXPECT_EQ("new file, large enough", file_text(path)) << "another file has the path";
    EXPECT_EQ(before, open_descriptors());
}

TEST(VxlbLog, ARolledLogTakesThePlaceOfItsDescriptor) {
    TempDir dir;
    const std::string path = dir / "log";
    int fd = open_file(path, "0123456789");
    const int old_fd = fd, before = open_descriptors();
    EXPECT_EQ(0, open_log_ex(path.c_str(), &fd, 2147483648U)) << "negative: never rolled";
    EXPECT_EQ(1, vxlb_open_log(&fd, path.c_str(), 9, "head"));
    EXPECT_EQ(text("%d %d", old_fd, FD_CLOEXEC), text("%d %d", fd, fcntl(fd, F_GETFD)));
    EXPECT_EQ("head0123456789", file_text(path) + file_text(path + ".prev"));
    EXPECT_EQ(before, open_descriptors());
    struct rlimit usual;
    getrlimit(RLIMIT_NOFILE, &usual);
    const struct rlimit none_left = {static_cast<rlim_t>(fd) + 1, usual.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none_left);
    EXPECT_EQ(0, vxlb_open_log(&fd, path.c_str(), 1, nullptr));
    EXPECT_EQ(4, write(fd, "more", 4)) << "to the old file";
    setrlimit(RLIMIT_NOFILE, &usual);
    EXPECT_EQ(1, vxlb_open_log(&fd, path.c_str(), 1, "new"));
    EXPECT_EQ("newheadmore", file_text(path) + file_text(path + ".prev"));
    chmod(path.c_str(), 0); // for somebody who may no longer open it
    chmod(dir.path.c_str(), 0777);
    const uid_t user = geteuid();
    EXPECT_EQ(0, seteuid(user == 0 ? 65534 : user));
    const int opened = vxlb_open_log(&fd, path.c_str(), 1, "last");
    EXPECT_EQ(1, opened + seteuid(user));
    EXPECT_EQ("lastnew", file_text(path) + file_text(path + ".prev"));
    fs::remove_all(dir.path);
    EXPECT_EQ(-1, vxlb_open_log(&fd, path.c_str(), 1, nullptr));
    EXPECT_EQ(text("-1 %d", ENOENT), text("%d %d", fd, errno));
    EXPECT_EQ(before - 1, open_descriptors());
}

// What is written by processes, and every record of it: thorough/09-log-shared and 10-log-races.
TEST(VxlbLog, ThreadsTearNoRecordOfALogThatIsRolled) {
    TraceLog log;
    vxlb_util_set_debug_log_size(100000);
    const auto work = [] {
        for (int length = 1; length < 2000; length++) {
            log_text(text("%*d", length % 90, length % 10));
        }
    };
    const int before = open_descriptors();
    std::thread threads[] = {std::thread(work), std::thread(work), std::thread(work)};
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(before + 1, open_descriptors());
    EXPECT_LE(100000u, fs::file_size(log.path + ".prev"));
    const std::string all = undated(file_text(log.path + ".prev") + log.content());
    EXPECT_EQ("", replaced(all, "\nDATE\\|f\\.c\\|12\\|fn\\| *\\d", ""));
}
