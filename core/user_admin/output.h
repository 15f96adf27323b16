// SPDX-License-Identifier: Apache-2.0
// Standard output and standard error of the command.
//
// Standard output is collected in one large buffer and written in large pieces; a write that fails
// is remembered, so that the end of the run can say so. On a terminal control bytes show as "?",
// whatever names the tree holds; into files and pipes every byte goes as it is.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

// What is collected of standard output; only out_text and output.cpp touch it.
struct output_buffer {
    char bytes[size_t{64} * 1024];
    size_t used;
};
extern output_buffer g_output;

void out_overflowing_text(std::string_view text); // what does not fit the buffer

// Our own words: newlines and all. Inline, for a row of the table takes twenty of them.
inline void out_text(std::string_view text) {
    if (text.size() > sizeof g_output.bytes - g_output.used) {
        out_overflowing_text(text);
        return;
    }
    // Not memcpy, whose check of the room would be a call for a single separator.
    std::copy(text.begin(), text.end(), g_output.bytes + g_output.used);
    g_output.used += text.size();
}

void out_name(std::string_view name); // text from the tree or the user database
void out_number(long long number);

// Write what is collected now when somebody watches, so that a long walk starts below the header.
void out_show_on_terminal();

// One message on standard error.
[[gnu::format(printf, 1, 2)]] void report_error(const char *format, ...);

// Say what could not be read, for a reason that lies outside the tree (a failing disk, say). The run
// goes on, but it ends with status 1: its table may lack rows.
void report_loss(const char *path, int error);

// Whether a descriptor is a terminal. Keeps errno.
bool is_terminal(int fd);

// One line on standard error that counts entries; the next message, or erase_progress, takes its
// place.
void show_progress(unsigned long entries_seen);
void erase_progress();

// End the run after writing what is collected. Output that can't be written is reported; that and a
// loss turn status 0 into 1.
[[noreturn]] void finish(int status);

// report_error, then finish.
[[noreturn, gnu::format(printf, 2, 3)]] void die(int status, const char *format, ...);
