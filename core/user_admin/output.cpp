// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

output_buffer g_output;

namespace {

constexpr size_t MESSAGE_SIZE =
    size_t{8} * 1024; // fits any message that is not about a trap of a tree

int g_write_error;    // errno of the first write that failed; 0: none
bool g_is_incomplete; // something could not be read
bool g_progress_is_shown;

// Wait until a descriptor that somebody made non-blocking takes more.
void wait_until_writable(int fd) {
    struct pollfd writable = {fd, POLLOUT, 0};
    poll(&writable, 1, -1);
}

// Write all of a text. Returns 0 or the error that stopped it.
int write_all(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno == EAGAIN) {
            wait_until_writable(fd);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

void flush() {
    if (g_write_error == 0 && g_output.used > 0) {
        g_write_error = write_all(STDOUT_FILENO, {g_output.bytes, g_output.used});
    }
    g_output.used = 0;
}

bool is_control(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

void mask_control_bytes(char *text, size_t length) {
    for (size_t i = 0; i < length; i++) {
        if (is_control(text[i])) {
            text[i] = '?';
        }
    }
}

bool stdout_is_terminal() {
    static const bool terminal = is_terminal(STDOUT_FILENO);
    return terminal;
}

// The end of a message is its own newline; one message has a blank behind it.
size_t length_of_line_end(std::string_view message) {
    return message.ends_with("\n ") ? 2 : 1;
}

[[gnu::format(printf, 1, 0)]] void report(const char *format, va_list args) {
    char usual[MESSAGE_SIZE];
    char *message = usual;
    char *longer = nullptr;
    va_list again;
    va_copy(again, args);
    int length = vsnprintf(usual, sizeof usual, format, args);
    if (length >= static_cast<int>(sizeof usual)) {
        // Without memory for a message of that length its beginning has to do.
        length = vasprintf(&longer, format, again);
        message = length < 0 ? usual : longer;
        length = length < 0 ? static_cast<int>(sizeof usual) - 1 : length;
    }
    va_end(again);
    if (length > 0) {
        erase_progress();
        const size_t size = static_cast<size_t>(length);
        if (is_terminal(STDERR_FILENO)) {
            mask_control_bytes(message, size - length_of_line_end({message, size}));
        }
        write_all(STDERR_FILENO, {message, size});
    }
    free(longer);
}

} // namespace

bool is_terminal(int fd) {
    const int before = errno;
    const bool terminal = isatty(fd) == 1;
    errno = before;
    return terminal;
}

void show_progress(unsigned long entries_seen) {
    char line[64];
    const int length = snprintf(line, sizeof line, "\r%lu entries seen", entries_seen);
    write_all(STDERR_FILENO, {line, static_cast<size_t>(length)});
    g_progress_is_shown = true;
}

void erase_progress() {
    if (g_progress_is_shown) {
        g_progress_is_shown = false;
        write_all(STDERR_FILENO, "\r\033[K");
    }
}

void out_overflowing_text(std::string_view text) {
    do {
        const size_t room = sizeof g_output.bytes - g_output.used;
        const size_t size = text.size() < room ? text.size() : room;
        memcpy(g_output.bytes + g_output.used, text.data(), size);
        g_output.used += size;
        text.remove_prefix(size);
        if (!text.empty()) {
            flush();
        }
    } while (!text.empty());
}

void out_name(std::string_view name) {
    if (!stdout_is_terminal()) {
        out_text(name);
        return;
    }
    for (char c : name) {
        out_text(is_control(c) ? "?" : std::string_view(&c, 1));
    }
}

void out_number(long long number) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, number);
    out_text({digits, static_cast<size_t>(end.ptr - digits)});
}

void out_show_on_terminal() {
    if (stdout_is_terminal()) {
        flush();
    }
}

void report_error(const char *format, ...) {
    va_list args;
    va_start(args, format);
    report(format, args);
    va_end(args);
}

void report_loss(const char *path, int error) {
    g_is_incomplete = true;
    report_error("Error: vxu_show_scenarios: cannot read %s: %s\n", path, strerror(error));
}

void finish(int status) {
    flush();
    // Some file systems tell only at the close that what they took could not be stored.
    if (close(STDOUT_FILENO) != 0 && g_write_error == 0 && errno != EINTR) {
        g_write_error = errno;
    }
    if (g_write_error != 0) {
        report_error("Error: vxu_show_scenarios: write error: %s\n", strerror(g_write_error));
    }
    const bool is_short = g_write_error != 0 || g_is_incomplete;
    exit(status == 0 && is_short ? 1 : status);
}

void die(int status, const char *format, ...) {
    va_list args;
    va_start(args, format);
    report(format, args);
    va_end(args);
    finish(status);
}
