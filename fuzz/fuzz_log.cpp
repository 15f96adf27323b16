// SPDX-License-Identifier: Apache-2.0
// Records of all three kinds beside a model of their text, length and place; a rollover now and then.
//
//     date | level mask (2) | module mask | limit of the log | error log's name | then for each record:
//     kind, level, module, line, lengths of file name, function and message, a byte for the message

#include <libvxcore/vxlb_log.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "captured_stderr.h"
#include "fuzz.h"

// The library's clock. Local time is that of UTC.
static time_t g_now;
extern "C" time_t time(time_t *out) noexcept {
    return out == nullptr ? g_now : (*out = g_now);
}
static const int g_zone = setenv("TZ", "UTC0", 1);

namespace {

constexpr size_t RECORD_LIMIT = 64000;
constexpr size_t STREAM_LIMIT = 20000;

// One log file in memory; the model holds what it and its older file have.
struct Log {
    std::string path, text, older;
    bool is_rolled = false;
    static std::string in_memory(const char *name) {
        return "/dev/shm/vx-fuzz-" + std::to_string(getpid()) + name;
    }
    explicit Log(const char *name) : path(in_memory(name)) {}
    void forget() {
        if (!text.empty()) {
            unlink(path.c_str());
        }
        if (is_rolled) {
            unlink((path + ".prev").c_str());
        }
        text = older = "";
        is_rolled = false;
    }
    static std::string contents(const std::string &path) {
        std::string all;
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            struct stat info = {};
            fstat(fd, &info);
            all.resize(static_cast<size_t>(info.st_size));
            check(read(fd, all.data(), all.size()) == info.st_size);
            close(fd);
        }
        return all;
    }
    void append(const std::string &record, size_t limit) {
        if (limit > 0 && text.size() > limit) {
            older = std::exchange(text, "");
            is_rolled = true;
        }
        text += record;
    }
    void check_files() const {
        check(text.empty() ? access(path.c_str(), F_OK) != 0 : contents(path) == text);
        check(!is_rolled || contents(path + ".prev") == older);
    }
};

struct Record {
    unsigned kind;
    int level, line;
    uint64_t mask;
    std::string file, function, message;
    explicit Record(Input &in) {
        static const int levels[] = {VXLB_LEVEL_1, VXLB_LEVEL_2, VXLB_LEVEL_3, VXLB_LEVEL_4, 0, 1,
                                     -1,           0x10101};
        kind = in.byte() % 8;
        level = levels[in.byte() % 8];
        mask = uint64_t{1} << in.byte() % 64;
        line = static_cast<int>(in.byte() * 16777619U);
        file = long_text(in, 'f');
        function = long_text(in, 'g');
        const size_t length =
            in.byte() + (in.byte() % 8 == 7 ? size_t{256} * (in.byte() % 64 + 216) : 0);
        message = std::string(length, static_cast<char>(std::max(in.byte(), 1U)));
    }
    // Mostly short; sometimes of thousands of bytes.
    static std::string long_text(Input &in, char c) {
        const unsigned length = in.byte();
        return std::string(length < 250 ? length % 40 : (length - 249) * 11000, c);
    }
    std::string site() const { return file + "|" + std::to_string(line) + "|" + function + "|"; }
};

// A prefix and a message within the limit: one that is cut ends with the formatter's zero byte.
std::string laid_out(std::string prefix, const std::string &message, size_t limit) {
    prefix.resize(std::min(prefix.size(), limit));
    const size_t room = limit - prefix.size();
    if (message.size() < room) {
        return prefix + message;
    }
    return room == 0 ? prefix : prefix + message.substr(0, room - 1) + '\0';
}

std::string severity(int level) {
    return level == VXLB_LEVEL_1   ? "Critical"
           : level == VXLB_LEVEL_2 ? "Major"
           : level == VXLB_LEVEL_3 ? "Minor"
           : level == VXLB_LEVEL_4 ? "Warning"
                                   : "Unknown Log Level";
}

// The date of a record, or what stands for one that can't be broken down.
std::string date(const char *error) {
    struct tm utc = {};
    if (gmtime_r(&g_now, &utc) == nullptr) {
        return error;
    }
    char text[100];
    snprintf(text, sizeof text, "%02d/%02d/%02d %02d:%02d:%02d|", utc.tm_mon + 1, utc.tm_mday,
             static_cast<int>((utc.tm_year + 1900L) % 2000), utc.tm_hour, utc.tm_min, utc.tm_sec);
    return text;
}

struct Logs {
    CapturedStderr printed;
    Log debug{"-debug"}, error{"-error"};
    size_t limit = 0;

    void begin(Input &in) {
        static const time_t days[] = {0,  951782400, 946684799,  2147483647,
                                      -1, 1LL << 60, 4102444800, 1700000000};
        g_now = days[in.byte() % 8];
        vxlb_util_set_debug_log_level(
            static_cast<int>(in.byte() * 0x1010101U & (in.byte() * 0x8080808U | 0xFF)));
        vxlb_util_set_modulemask(in.byte() * 0x0101010101010101U);
        limit = in.byte() * size_t{600};
        vxlb_util_set_debug_log_size(static_cast<unsigned>(limit));
        vxlb_util_set_log_filename(debug.path.c_str(),
                                   in.byte() % 2 == 0 ? "" : error.path.c_str());
    }
    void end() {
        debug.check_files();
        error.check_files();
        check(printed.take().empty());
        vxlb_close_log_fd();
        if (lib_error_fd > 0) {
            close(lib_error_fd);
        }
        lib_error_fd = -1;
        debug.forget();
        error.forget();
    }
    void trace(const Record &r) {
        errno = 4242;
        (vxlb_debug_log_ex)(r.level, r.mask, r.file.c_str(), r.line, r.function.c_str(), "%s",
                            r.message.c_str());
        check(errno == 4242);
        if ((static_cast<uint32_t>(r.level) & vxlb_log_level) != 0 &&
            (r.mask & lib_module_mask) != 0) {
            debug.append(laid_out("\n" + date("Error|") + r.site(), r.message, RECORD_LIMIT),
                         limit);
        }
    }
    void report(const Record &r) {
        errno = 4242;
        vxlb_error_log_ex(r.level, r.file.c_str(), r.line, r.function.c_str(), "id", "attribute",
                          "%s", r.message.c_str());
        check(errno == 4242);
        const std::string text = r.level == 0
                                     ? ""
                                     : laid_out("\n" + date("Error|") + "id|" + severity(r.level) +
                                                    "|attribute|" + r.site() + "Error|",
                                                r.message, RECORD_LIMIT);
        if (error_log_file[0] == '\0') {
            check(printed.take() == text.c_str());
        } else if (r.level != 0) {
            error.append(text, 0);
        }
    }
    void print(const Record &r) {
        std::string text;
        FILE *out = fopencookie(&text, "w", {nullptr, CapturedStderr::write, nullptr, nullptr});
        check(lib_debug_log(r.level, 0x10000, out, r.file.c_str(), r.line, r.function.c_str(), "%s",
                            r.message.c_str()) == 0);
        fclose(out);
        const std::string record =
            laid_out(date("Error|Error|") + r.site(), r.message, STREAM_LIMIT);
        check(text == (r.level > 0x10000 ? "" : std::string("\n") + record.c_str() + "\n"));
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static Logs logs;
    Input in = {data, std::min<size_t>(size, 200)};
    logs.begin(in);
    while (!in.is_empty()) {
        const Record record(in);
        record.kind < 5   ? logs.trace(record)
        : record.kind < 7 ? logs.report(record)
                          : logs.print(record);
    }
    logs.end();
    return 0;
}
