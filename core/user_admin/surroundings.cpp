// SPDX-License-Identifier: Apache-2.0
#include "surroundings.h"

#include "output.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

void make_standard_descriptors_valid() {
    // One call tells of all three which are closed.
    struct pollfd standard[] = {{STDIN_FILENO, 0, 0}, {STDOUT_FILENO, 0, 0}, {STDERR_FILENO, 0, 0}};
    if (poll(standard, 3, 0) == 0) {
        return;
    }
    for (const struct pollfd &each : standard) {
        if ((each.revents & POLLNVAL) == 0) {
            continue;
        }
        // The lowest free descriptor is this one: those below it are valid by now.
        const int useless = each.fd == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        if (TEMP_FAILURE_RETRY(open("/dev/null", useless)) != each.fd) {
            die(1, "Error: vxu_show_scenarios: /dev/null: %s\n", strerror(errno));
        }
    }
}

void keep_descriptors_from_children() {
    close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC); // a kernel without it: as before
}

void reset_child_signal() {
    signal(SIGCHLD, SIG_DFL);
}
