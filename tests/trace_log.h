// SPDX-License-Identifier: Apache-2.0
// What tests of traced modules share: a debug log with everything switched on.
#pragma once

#include "texts.h"

#include <libvxcore/vxlb_log.h>

// The debug log of one test; everything about the log is put back at its end.
struct TraceLog {
    TempDir dir;
    std::string path = dir / "trace.log";

    explicit TraceLog(uint64_t mask = UINT64_MAX, int level = -1) {
        vxlb_util_set_log_filename(path.c_str(), "");
        vxlb_util_set_debug_log_level(level);
        vxlb_util_set_modulemask(mask);
    }
    ~TraceLog() {
        vxlb_close_log_fd();
        vxlb_util_set_log_filename("", "");
        vxlb_util_set_debug_log_level(0);
        vxlb_util_set_modulemask(0);
        vxlb_util_set_debug_log_size(100000000);
    }
    std::string content() const { return file_text(path); }

    // The messages since the last call, one a line, without their prefixes. Addresses show as the
    // names that are given for them, or as "@"; a blank at a line's end shows as "_".
    std::string take(const std::vector<std::pair<const void *, const char *>> &names = {}) const {
        std::string all = undated(content() + "\n");
        (void)!truncate(path.c_str(), 0); // there is none before the first
        all = replaced(all, "\nDATE\\|[^|]*\\|[^|]*\\|[^|]*\\|", "\n").substr(1);
        for (const auto &[address, name] : names) {
            all = replaced(all, text("%p\\b", address), name);
        }
        return replaced(replaced(all, "0x[0-9a-f]+", "@"), " \n", "_\n");
    }
};
