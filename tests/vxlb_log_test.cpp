// SPDX-License-Identifier: Apache-2.0
#include "trace_log.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

namespace fs = std::filesystem;

namespace {

// A text with its dates replaced by the word DATE.
std::string undated(const std::string &all) {
    static const std::string shape = "00/00/00 00:00:00";
    std::string result;
    for (size_t at = 0; at < all.size(); at++) {
        size_t same = 0;
        while (same < shape.size() && at + same < all.size() &&
               (shape[same] == '0' ? isdigit(static_cast<unsigned char>(all[at + same])) != 0
                                   : shape[same] == all[at + same])) {
            same++;
        }
        const bool is_date = same == shape.size();
        result += is_date ? "DATE" : all.substr(at, 1);
        at += is_date ? same - 1 : 0;
    }
    return result;
}

void log_text(const std::string &message) {
    vxlb_debug_log_ex(VXLB_LEVEL_2, VXLB_MOD_API, "f.c", 12, "fn", "%s", message.c_str());
}

// What a call writes to standard error.
template <typename Call> std::string complaint(Call call) {
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
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

TEST(VxlbLog, StartsSwitchedOff) {
    EXPECT_EQ(0u, vxlb_log_level);
    EXPECT_EQ(0u, lib_module_mask);
    EXPECT_EQ(100000000u, max_debug_log_file_size);
    EXPECT_EQ(-1, vxlb_get_debug_fd());
    EXPECT_EQ(-1, vxlb_get_error_fd());
    EXPECT_STREQ("", log_file);
    EXPECT_STREQ("", error_log_file);
    EXPECT_EQ(nullptr, vxlb_log_fp);
}

TEST(VxlbLog, ARecordNeedsLevelAndModule) {
    const struct {
        int level;
        uint64_t mask;
        int record_level;
        uint64_t record_mask;
        bool is_written;
    } cases[] = {
        {0, UINT64_MAX, VXLB_LEVEL_1, VXLB_MOD_API, false},
        {-1, 0, VXLB_LEVEL_1, VXLB_MOD_API, false},
        {0xFFFF, VXLB_MOD_API, VXLB_LEVEL_2, VXLB_MOD_API, true},
        {0xFF, VXLB_MOD_API, VXLB_LEVEL_2, VXLB_MOD_API, false},
        {-1, VXLB_MOD_API, VXLB_LEVEL_4, VXLB_MOD_API, true},
        {-1, VXLB_MOD_API, VXLB_LEVEL_3, VXLB_MOD_MISC, false},
        {1, uint64_t{1} << 63, VXLB_LEVEL_1, uint64_t{1} << 63, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(text("level %x mask %lx", c.level, c.mask));
        TraceLog log(c.mask, c.level);
        int evaluated = 0;
        vxlb_debug_log_ex(c.record_level, c.record_mask, "f", 1, "g", "%d", ++evaluated);
        EXPECT_EQ(c.is_written, evaluated == 1);
        EXPECT_EQ(c.is_written, fs::exists(log.path));
        (vxlb_debug_log_ex)(c.record_level, c.record_mask, "f", 1, "g", "x");
        EXPECT_EQ(c.is_written ? 2u : 0u, log.take().size());
    }
}

TEST(VxlbLog, ARecordBeginsWithANewlineAndItsOrigin) {
    TraceLog log;
    errno = 77;
    log_text("hello 5");
    vxlb_debug_log_ex(VXLB_LEVEL_1, 1, nullptr, -3, "g", "%d", 8);
    EXPECT_EQ(77, errno);
    EXPECT_EQ("\nDATE|f.c|12|fn|hello 5\nDATE|(null)|-3|g|8", undated(log.content()));
    EXPECT_EQ(FD_CLOEXEC, fcntl(lib_debug_fd, F_GETFD));
    EXPECT_EQ(O_APPEND | O_WRONLY, fcntl(lib_debug_fd, F_GETFL) & (O_APPEND | O_ACCMODE));
}

TEST(VxlbLog, ALongRecordIsCutTo64000Bytes) {
    TraceLog log;
    const size_t prefix = 29; // newline, date, f.c, 12, fn and the bars
    for (const size_t len :
         {63998 - prefix, 63999 - prefix, 64000 - prefix, 64001 - prefix, size_t{99999}}) {
        SCOPED_TRACE(len);
        log_text(std::string(len, 'x'));
        const std::string all = log.content();
        const bool is_cut = prefix + len >= 64000;
        EXPECT_EQ(is_cut ? 64000 : prefix + len, all.size());
        EXPECT_EQ(is_cut ? '\0' : 'x', all.back());
        EXPECT_EQ('x', all[all.size() - 2]);
        log.take();
    }
    vxlb_debug_log_ex(1, 1, std::string(70000, 'f').c_str(), 1, "g", "%s", "message");
    EXPECT_EQ(64000u, log.content().size());
    EXPECT_EQ('f', log.content().back());
    log.take();
    const wchar_t unprintable[] = {0x7fffffff, 0};
    vxlb_debug_log_ex(1, 1, "f.c", 1, "g", "ab%lscd", unprintable);
    EXPECT_EQ(0u, log.content().find("\n")); // what the formatter left of the message follows
    EXPECT_EQ("", log.take().at(0).substr(2));
}

TEST(VxlbLog, SeveritiesHaveNames) {
    EXPECT_STREQ("Critical", log_level_to_str(0xFF));
    EXPECT_STREQ("Major", log_level_to_str(0xFF00));
    EXPECT_STREQ("Minor", log_level_to_str(0xFF0000));
    EXPECT_STREQ("Warning", log_level_to_str(static_cast<int>(0xFF000000)));
    EXPECT_STREQ("Unknown Log Level", log_level_to_str(1));
}

TEST(VxlbLog, ErrorRecordsGoToStandardErrorOrTheErrorLog) {
    TraceLog log(0, 0);
    const std::string record = "\nDATE|E7|Major|attr|f.c|3|fn|Error|bad 9";
    const auto report = [](int level) {
        vxlb_error_log_ex(level, "f.c", 3, "fn", "E7", "attr", "bad %d", 9);
    };
    EXPECT_EQ("", complaint([&] { report(0); }));
    EXPECT_EQ(record, undated(complaint([&] { report(VXLB_LEVEL_2); })));
    const std::string path = log.dir / "error.log";
    vxlb_util_set_log_filename(nullptr, path.c_str());
    EXPECT_STREQ(log.path.c_str(), log_file);
    max_debug_log_file_size = 1;
    report(VXLB_LEVEL_2);
    report(VXLB_LEVEL_2);
    vxlb_error_log_ex(1, "f", 3, "g", "", "", "%s", std::string(70000, 'y').c_str());
    EXPECT_EQ(record + record, undated(file_text(path).substr(0, 2 * (record.size() + 13))));
    EXPECT_EQ(2 * (record.size() + 13) + 64000, file_text(path).size());
    EXPECT_EQ(lib_error_fd, vxlb_get_error_fd());
    vxlb_close_log_fd();
    EXPECT_LT(0, lib_error_fd);
    close(lib_error_fd);
    lib_error_fd = -1;
    vxlb_util_set_log_filename(nullptr, (log.dir / "no/error.log").c_str());
    EXPECT_EQ(text("Failed to open(%s/no/error.log). Error = No such file or directory",
                   log.dir.path.c_str()),
              complaint([&] { report(1); }));
}

TEST(VxlbLog, StreamTracePrintsUpToItsLevel) {
    TempDir dir;
    FILE *const stream = fopen((dir / "s").c_str(), "w");
    const auto trace = [&](FILE *to, int level, int max, const std::string &message) {
        return lib_debug_log(level, max, to, "f.c", 4, "fn", "%s", message.c_str());
    };
    EXPECT_EQ(0, trace(stream, 2, 1, "no"));
    EXPECT_EQ(0, trace(stream, -1, 0, "negative"));
    EXPECT_EQ(0, trace(stream, 1, 1, "equal"));
    EXPECT_EQ("\nDATE|f.c|4|fn|negative\n\nDATE|f.c|4|fn|equal\n", undated(file_text(dir / "s")));
    const size_t before = file_text(dir / "s").size();
    trace(stream, 1, 1, std::string(30000, 'x'));
    EXPECT_EQ(before + 2 + 19999, file_text(dir / "s").size());
    fclose(stream);
    testing::internal::CaptureStdout();
    trace(nullptr, 1, 1, "out");
    EXPECT_EQ("\nDATE|f.c|4|fn|out\n", undated(testing::internal::GetCapturedStdout()));
    FILE *const read_only = fopen("/dev/null", "r");
    EXPECT_EQ("\nUnable to write to debug\n", complaint([&] { trace(read_only, 1, 1, "lost"); }));
    fclose(read_only);
}

TEST(VxlbLog, OpensForAppendingAndWritesAHeaderToNewFilesOnly) {
    TempDir dir;
    const std::string path = dir / "log";
    int fd = -1;
    EXPECT_EQ(1, vxlb_open_file_with_header(&fd, path.c_str(), "head"));
    EXPECT_LT(0, fd);
    EXPECT_EQ("head", file_text(path));
    EXPECT_EQ(0, vxlb_open_file_with_header(&fd, "/nowhere/log", "head")) << "open already";
    close(fd);
    fd = 0; // counts as closed
    EXPECT_EQ(0, vxlb_open_file_with_header(&fd, path.c_str(), "again"));
    close(fd);
    fd = -1;
    EXPECT_EQ(0, vxlb_open_file_with_header(&fd, (dir / "other").c_str(), nullptr));
    close(fd);
    EXPECT_EQ("head", file_text(path));
    fd = 0;
    EXPECT_EQ(-1, vxlb_open_file_with_header(&fd, "/nowhere/log", "head"));
    EXPECT_EQ(-1, fd);
}

TEST(VxlbLog, NeverUsesDescriptor0) {
    TempDir dir;
    const int saved = fcntl(0, F_DUPFD_CLOEXEC, 10);
    close(0);
    int fd = -1;
    EXPECT_EQ(0, vxlb_open_file_with_header(&fd, (dir / "log").c_str(), nullptr));
    EXPECT_LT(0, fd);
    EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
    EXPECT_EQ(-1, fcntl(0, F_GETFD)) << "0 is free again";
    close(fd);
    dup2(saved, 0);
    close(saved);
}

TEST(VxlbLog, SaysWhyALogCanNotBeOpened) {
    TraceLog log;
    fs::remove_all(log.dir.path);
    const std::string said =
        text("Failed to open(%s). Error = No such file or directory", log.path.c_str());
    int fd = -1;
    EXPECT_EQ(said, complaint([&] { EXPECT_EQ(-1, open_log_ex(log.path.c_str(), &fd, 5)); }));
    EXPECT_EQ(said + said, complaint([] { log_text("a"), log_text("b"); })) << "once a record";
    EXPECT_EQ(-1, lib_debug_fd);
}

TEST(VxlbLog, RollsAFileThatIsLargerThanTheLimit) {
    const struct {
        int limit;
        bool is_rolled;
    } cases[] = {{9, true}, {10, false}, {0, false}, {-1, false}, {1, true}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.limit);
        TempDir dir;
        const std::string path = dir / "log";
        std::ofstream(path + ".prev") << "older";
        int fd = open_file(path, "0123456789");
        const int old_fd = fd;
        EXPECT_EQ(0, vxlb_check_rollover_file(&fd, path.c_str(), c.limit, 1));
        EXPECT_EQ(c.is_rolled ? -1 : old_fd, fd);
        EXPECT_EQ(c.is_rolled, fcntl(old_fd, F_GETFD) < 0) << "closed";
        EXPECT_EQ(c.is_rolled, !fs::exists(path));
        EXPECT_EQ(c.is_rolled ? "0123456789" : "older", file_text(path + ".prev"));
        close(fd);
    }
    int closed = -1;
    EXPECT_EQ(0, vxlb_check_rollover_file(&closed, "/nowhere", 1, 1));
}

TEST(VxlbLog, TheOtherSchemeAddsHourAndMinute) {
    TempDir dir;
    const std::string path = dir / "log";
    int fd = open_file(path, "0123456789");
    vxlb_check_rollover_file(&fd, path.c_str(), 5, 0);
    ASSERT_FALSE(fs::is_empty(dir.path));
    const std::string name = fs::directory_iterator(dir.path)->path().filename();
    int hour = -1;
    int minute = -1;
    ASSERT_EQ(2, sscanf(name.c_str(), "log.%d.%d", &hour, &minute));
    EXPECT_EQ(text("log.%02d.%02d", hour, minute), name);
    EXPECT_TRUE(hour >= 0 && hour < 24 && minute >= 0 && minute < 60);
}

TEST(VxlbLog, OneThatIsRolledElsewhereIsOnlyReopened) {
    TempDir dir;
    const std::string path = dir / "log";
    const int other = open_file(path, "0123456789");
    int fd = open_file(path);
    ASSERT_EQ(0, flock(other, LOCK_EX));
    vxlb_check_rollover_file(&fd, path.c_str(), 5, 1);
    EXPECT_EQ(-1, fd) << "the lock was lost";
    EXPECT_FALSE(fs::exists(path + ".prev"));
    close(other); // the lock goes with it
    fd = open_file(path);
    fs::rename(path, path + ".prev");
    close(open_file(path, "new file, large enough"));
    vxlb_check_rollover_file(&fd, path.c_str(), 5, 1);
    EXPECT_EQ(-1, fd) << "another file has the path";
    EXPECT_EQ("0123456789", file_text(path + ".prev"));
    EXPECT_EQ("new file, large enough", file_text(path));
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
    EXPECT_FALSE(fs::exists(log.path + ".prev")) << "as large as the limit";
    log_text("r3");
    EXPECT_FALSE(fs::exists(log.path + ".prev"));
    log_text("r4");
    EXPECT_EQ(93u, fs::file_size(log.path + ".prev"));
    EXPECT_EQ(std::vector<std::string>{"r4"}, log.take());
    vxlb_util_set_debug_log_size(2147483648U); // negative as a signed size: never rolled
    for (int i = 0; i < 10; i++) {
        log_text("r5");
    }
    EXPECT_EQ(10u, log.take().size());
}

TEST(VxlbLog, ClosingTouchesTheDebugLogOnly) {
    TraceLog log;
    log_text("x");
    EXPECT_LT(0, vxlb_get_debug_fd());
    EXPECT_EQ("", complaint(vxlb_close_log_fd));
    EXPECT_EQ(-1, vxlb_get_debug_fd());
    EXPECT_EQ("", complaint(vxlb_close_log_fd)) << "closed already";
    lib_debug_fd = 9999;
    EXPECT_EQ("error in closing fd ", complaint(vxlb_close_log_fd));
    EXPECT_EQ(-1, lib_debug_fd);
}

TEST(VxlbLog, SettersStoreTheirArgument) {
    TraceLog log;
    hessian_set_debug_log_level(5);
    EXPECT_EQ(5u, vxlb_log_level);
    hessian_set_debug_log_fp(stderr);
    EXPECT_EQ(stderr, vxlb_log_fp);
    vxlb_util_set_debug_log_fp(nullptr);
    EXPECT_EQ(nullptr, vxlb_log_fp);
    const std::string longest(2000, 'p');
    vxlb_util_set_log_filename(longest.c_str(), longest.c_str());
    EXPECT_EQ(longest.substr(0, 1023), log_file);
    EXPECT_EQ(longest.substr(0, 1023), error_log_file);
}

TEST(VxlbLog, ReadsLevelLines) {
    const std::string many(600, '1');
    const struct {
        std::string line;
        int result;
        uint32_t level;
        std::string said;
    } cases[] = {
        {"LIB_DEBUG 1", 0, 0xFF, ""},
        {"LIB_DEBUG 2\n", 0, 0xFFFF, ""},
        {"LIB_DEBUG\t3 extra more", 0, 0xFFFFFF, ""},
        {"LIB_DEBUG 4", 0, 0xFFFFFFFF, ""},
        {"LIB_DEBUG 0", 0, 0, ""},
        {"LIB_DEBUG 5", 0, 5, ""},
        {"LIB_DEBUG 65280", 0, 65280, ""},
        {"LIB_DEBUG 4278190080", 0, 4278190080, ""},
        {"LIB_DEBUG " + many, 0, 0xFFFFFFFF, ""},
        {"LIB_DEBUG x1", -1, 77, "Error: Value of LIB_DEBUG is not numeric"},
        {"LIB_DEBUG -1", -1, 77, "Error: Value of LIB_DEBUG is not numeric"},
        {"LIB_DEBUG", 0, 0,
         "Invalid argument to keyword LIB_DEBUG, should be atleast two (LIB_DEBUG <level>)\n"},
        {"", 0, 0, "Invalid argument to keyword , should be atleast two (LIB_DEBUG <level>)\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        vxlb_log_level = 77;
        EXPECT_EQ(c.said, complaint([&] { EXPECT_EQ(c.result, set_vxlb_debug(c.line.c_str())); }));
        EXPECT_EQ(c.level, vxlb_log_level);
    }
    vxlb_log_level = 0;
}

TEST(VxlbLog, ReadsModuleMaskLines) {
    std::string words99 = "K", words100 = "K";
    for (int i = 0; i < 99; i++) {
        words99 += " 1";
    }
    const struct {
        std::string words;
        uint64_t mask;
    } cases[] = {
        {"K", 0},
        {"", 0},
        {"  K  memory   misc \n", 0x60},
        {"K ALL ~ MEMORY", ~uint64_t{0x40}},
        {"K ~ MEMORY", 0},
        {"K MEMORY MEMORY", 0x80},
        {"K ALL SEARCH", 0},
        {"K 0x30\n", 0x30},
        {"K 30", 30},
        {"K \t 5", 5},          // a tab is a word of its own, worth 0
        {"K 0xff 0xZZ", 0x1fe}, // keeps the value of the word before
        {"K 0x FF", 0},         // 0x alone can't be read; FF is no module
        {"K 18446744073709551615", UINT64_MAX},
        {"K 12x", 12},
        {"K Search hessian HASH auth API MISC Memory topo", 0x17F},
        {"K ALL ~ API ~ MISC", ~uint64_t{0x30}}, // the second ~ is passed over as well
        {"K API ~", 0x10},                       // and one at the end
        {"K API ~ ~", 0x10},
        {"K ~API", 0},
        {words99, 99},
        {words99 + " 1", 99}, // 100 words are looked at
    };
    char said[200];
    for (const auto &c : cases) {
        SCOPED_TRACE(c.words);
        lib_module_mask = 7;
        if (c.words == "K 0x FF") {
            EXPECT_EQ(-1, set_vxlb_modulemask(c.words.c_str(), said));
            EXPECT_STREQ("ZylErr[1011357]: Provided Modulemask 'FF' is not a valid modulemask.",
                         said);
            EXPECT_EQ(7u, lib_module_mask);
            continue;
        }
        EXPECT_EQ(0, set_vxlb_modulemask(c.words.c_str(), said));
        EXPECT_EQ(c.mask, lib_module_mask);
    }
    EXPECT_EQ(-1, set_vxlb_modulemask("K API FOO MISC", said));
    EXPECT_STREQ("ZylErr[1011357]: Provided Modulemask 'FOO' is not a valid modulemask.", said);
    EXPECT_EQ(-1, set_vxlb_modulemask("K MEM", said)) << "part of a name";
    for (int row = 0; row < VXLB_MODULE_COUNT; row++) {
        EXPECT_EQ(row == 0 ? UINT64_MAX : uint64_t{1} << (row - 1), lib_module_mask_bit[row]);
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
    std::string got;
    std::thread reader([&] {
        char piece[1000];
        ssize_t len = 0;
        while ((len = read(ends[0], piece, sizeof(piece))) > 0) {
            got.append(piece, static_cast<size_t>(len));
            if (got.size() < 60000) {
                pthread_kill(writer, SIGUSR1);
            }
        }
    });
    lib_debug_fd = ends[1];
    log_text(std::string(70000, 'x'));
    vxlb_close_log_fd();
    reader.join();
    close(ends[0]);
    EXPECT_EQ(64000u, got.size());
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

// Check every record of a log; returns the sequence numbers of each writer.
void check_records(const std::string &all, std::map<int, std::vector<int>> *numbers) {
    std::istringstream lines(undated(all));
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ("", line);
    while (std::getline(lines, line)) {
        int writer = -1;
        int number = -1;
        ASSERT_EQ(2, sscanf(line.c_str(), "DATE|f.c|12|fn|%d:%d:", &writer, &number)) << line;
        ASSERT_EQ("DATE|f.c|12|fn|" + numbered(writer, number), line) << "torn";
        (*numbers)[writer].push_back(number);
    }
}

void run_processes() {
    for (int i = 0; i < WRITERS; i++) {
        if (fork() == 0) {
            write_records(i);
            _exit(0);
        }
    }
    for (int i = 0; i < WRITERS; i++) {
        int status = -1;
        wait(&status);
        EXPECT_EQ(0, status);
    }
}

} // namespace

TEST(VxlbLogWriters, ProcessesLoseAndTearNothingWithRolloverOff) {
    TraceLog log;
    vxlb_util_set_debug_log_size(0);
    run_processes();
    std::map<int, std::vector<int>> numbers;
    check_records(log.content(), &numbers);
    EXPECT_EQ(size_t{WRITERS}, numbers.size());
    for (const auto &[writer, sequence] : numbers) {
        EXPECT_EQ(size_t{RECORDS}, sequence.size());
        EXPECT_TRUE(std::is_sorted(sequence.begin(), sequence.end()));
    }
}

// The survivors of a writer are its last records: rolling loses whole old files, nothing between.
static void expect_unbroken_ends(const TraceLog &log) {
    ASSERT_TRUE(fs::exists(log.path + ".prev"));
    std::map<int, std::vector<int>> numbers;
    check_records(file_text(log.path + ".prev"), &numbers);
    check_records(log.content(), &numbers);
    for (auto &[writer, sequence] : numbers) {
        std::sort(sequence.begin(), sequence.end());
        EXPECT_EQ(RECORDS - 1, sequence.back()) << writer;
        EXPECT_EQ(RECORDS - static_cast<int>(sequence.size()), sequence.front()) << writer;
    }
}

TEST(VxlbLogWriters, ForkedChildrenRollTheirSharedLogOnce) {
    TraceLog log;
    vxlb_util_set_debug_log_size(300000);
    log_text("0:0::0"); // opens the descriptor that the children inherit
    EXPECT_EQ(truncate(log.path.c_str(), 0), 0);
    run_processes();
    expect_unbroken_ends(log);
}

TEST(VxlbLogWriters, ThreadsRollTheirSharedLogOnce) {
    TraceLog log;
    vxlb_util_set_debug_log_size(300000);
    const int before = open_descriptors();
    std::vector<std::thread> threads;
    for (int i = 0; i < WRITERS; i++) {
        threads.emplace_back(write_records, i);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    expect_unbroken_ends(log);
    EXPECT_EQ(before + 1, open_descriptors());
}
