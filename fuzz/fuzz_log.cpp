// SPDX-License-Identifier: Apache-2.0
// Records of all three kinds beside a model of their text, length and place; a rollover now and then.
//
//     date | level mask (2) | module mask | limit of the log | error log's name | then for each record:
//     kind, level, module, line, lengths of file name, function and message (2), its byte

#include <libvxcore/vxlb_log.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <unistd.h>

#include "captured_stderr.h"
#include "fuzz.h"
#include "memory_files.h"

// The library's clock. Local time is that of UTC.
static time_t g_now;
extern "C" time_t time(time_t *out) noexcept {
    return out == nullptr ? g_now : (*out = g_now);
}
static const int g_zone = setenv("TZ", "UTC0", 1);

namespace {

constexpr size_t RECORD_LIMIT = 64000;
constexpr size_t STREAM_LIMIT = 20000;

// One log file; the model holds what it and its older file have.
struct Log {
    std::string path, text, older;
    bool is_rolled = false;
    explicit Log(const char *name) : path(name) {}
    bool roll(size_t limit) {
        const bool is_due = limit > 0 && text.size() > limit;
        if (is_due) {
            older = std::exchange(text, "");
            is_rolled = true;
        }
        return is_due;
    }
    void check_files() const {
        const std::string *newer = memory_files::at(path.c_str());
        check(text.empty() ? newer == nullptr : newer != nullptr && *newer == text);
        const std::string *rolled = memory_files::at((path + ".prev").c_str());
        check(is_rolled ? rolled != nullptr && *rolled == older : rolled == nullptr);
    }
    void forget() {
        text.clear();
        older.clear();
        is_rolled = false;
    }
};

struct Record {
    unsigned kind;
    int level, line;
    uint64_t mask;
    std::string_view file, function, message; // each with a zero byte behind it
    explicit Record(Input &in) {
        static const int levels[] = {VXLB_LEVEL_1, VXLB_LEVEL_2, VXLB_LEVEL_3, VXLB_LEVEL_4, 0, 1,
                                     -1,           0x10101};
        kind = in.byte() % 10;
        level = levels[in.byte() % 8];
        mask = uint64_t{1} << in.byte() % 64;
        line = static_cast<int>(in.byte() * 16777619U);
        file = name(in, 'f');
        function = name(in, 'g');
        const unsigned length = in.byte();
        const unsigned more = in.byte();
        const auto letter = static_cast<char>(std::max(in.byte(), 1U));
        // More by 55296 bytes and up: a record's limit is among these lengths.
        message = Pieces::repeat(
            letter, length + (is_long(more) ? size_t{256} * (more % 2 * 48 + 216) : 0));
    }
    // Two bytes of all: what is long takes its time.
    static bool is_long(unsigned byte) { return byte == 200 || byte == 201; }
    static std::string_view name(Input &in, char c) {
        const unsigned length = in.byte();
        return Pieces::repeat(c, is_long(length) ? (length - 199) * size_t{33000} : length % 40);
    }
    std::string site() const {
        std::string text(file);
        text.append("|").append(std::to_string(line)).append("|").append(function);
        return text += '|';
    }
};

// A prefix and a message within the limit: one that is cut ends with the formatter's zero byte.
std::string laid_out(std::string prefix, std::string_view message, size_t limit) {
    prefix.resize(std::min(prefix.size(), limit));
    const size_t room = limit - prefix.size();
    prefix += message.substr(0, message.size() < room ? room : std::max<size_t>(room, 1) - 1);
    prefix.append(message.size() >= room && room > 0 ? 1 : 0, '\0');
    return prefix;
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
    Log debug{"/memory/debug"}, error{"/memory/error"};
    size_t limit = 0;

    void begin(Input &in) {
        static const time_t days[] = {0,  951782400, 946684799,  2147483647,
                                      -1, 1LL << 60, 4102444800, 1700000000};
        g_now = days[in.byte() % 8];
        vxlb_util_set_debug_log_level(
            static_cast<int>(in.byte() * 0x1010101U & (in.byte() * 0x8080808U | 0xFF)));
        vxlb_util_set_modulemask(in.byte() * 0x0101010101010101U);
        limit = in.byte() * size_t{200};
        vxlb_util_set_debug_log_size(static_cast<unsigned>(limit));
        const unsigned writing = in.byte();
        vxlb_util_set_log_filename(debug.path.c_str(), writing % 2 == 0 ? "" : error.path.c_str());
        memory_files::most_at_once = (writing & 2) != 0 ? writing * size_t{40} : 0;
    }
    void end() {
        debug.check_files();
        error.check_files();
        check(printed.take().empty());
        vxlb_close_log_fd();
        if (lib_error_fd > 0) {
            __wrap_close(lib_error_fd);
        }
        lib_error_fd = -1;
        check(memory_files::count_open() == 0);
        memory_files::forget();
        debug.forget();
        error.forget();
    }
    void trace(const Record &r) {
        const bool was_open = lib_debug_fd > 0;
        errno = 4242;
        (vxlb_debug_log_ex)(r.level, r.mask, r.file.data(), r.line, r.function.data(), "%s",
                            r.message.data());
        check(errno == 4242);
        if ((static_cast<uint32_t>(r.level) & vxlb_log_level) != 0 &&
            (r.mask & lib_module_mask) != 0) {
            debug.roll(was_open ? limit : 0);
            debug.text += laid_out("\n" + date("Error|") + r.site(), r.message, RECORD_LIMIT);
        }
    }
    // Only the check: the next record opens the new file.
    void roll(const Record &r) {
        const bool was_open = lib_debug_fd > 0;
        const int most = r.line % 3000;
        check(vxlb_check_rollover_file(&lib_debug_fd, debug.path.c_str(), most, 1) == 0);
        const bool is_due = debug.roll(was_open ? static_cast<size_t>(std::max(most, 0)) : 0);
        check((lib_debug_fd > 0) == (was_open && !is_due));
    }
    // An open log keeps its descriptor's number; a new file begins with the header.
    void open(const Record &r) {
        if (r.level == 0) {
            vxlb_close_log_fd();
        }
        const int before = lib_debug_fd;
        const int most = r.line % 3000;
        const int result = vxlb_open_log(&lib_debug_fd, debug.path.c_str(), most, r.site().c_str());
        const bool is_due = debug.roll(before > 0 ? static_cast<size_t>(std::max(most, 0)) : 0);
        const bool is_new = (before < 1 || is_due) && debug.text.empty();
        check(result == (is_new ? 1 : 0));
        check(before > 0 ? lib_debug_fd == before : lib_debug_fd > 0);
        debug.text += is_new ? r.site() : "";
    }
    void report(const Record &r) {
        errno = 4242;
        vxlb_error_log_ex(r.level, r.file.data(), r.line, r.function.data(), "id", "attribute",
                          "%s", r.message.data());
        check(errno == 4242);
        const std::string text = r.level == 0
                                     ? ""
                                     : laid_out("\n" + date("Error|") + "id|" + severity(r.level) +
                                                    "|attribute|" + r.site() + "Error|",
                                                r.message, RECORD_LIMIT);
        if (error_log_file[0] == '\0') {
            check(printed.take() == text.c_str());
        } else if (r.level != 0) {
            error.text += text;
        }
    }
    void print(const Record &r) {
        static std::string text;
        static FILE *out =
            fopencookie(&text, "w", {nullptr, CapturedStderr::write, nullptr, nullptr});
        text.clear();
        errno = 4242;
        check(lib_debug_log(r.level, 0x10000, out, r.file.data(), r.line, r.function.data(), "%s",
                            r.message.data()) == 0);
        check(errno == 4242);
        const std::string record =
            laid_out(date("Error|Error|") + r.site(), r.message, STREAM_LIMIT);
        check(text == (r.level > 0x10000 ? "" : std::string("\n") + record.c_str() + "\n"));
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static Logs logs;
    Pieces::forget();
    Input in = {data, std::min<size_t>(size, 200)};
    logs.begin(in);
    while (!in.is_empty()) {
        const Record record(in);
        record.kind < 5   ? logs.trace(record)
        : record.kind < 7 ? logs.report(record)
        : record.kind < 8 ? logs.print(record)
        : record.kind < 9 ? logs.roll(record)
                          : logs.open(record);
    }
    logs.end();
    return 0;
}
