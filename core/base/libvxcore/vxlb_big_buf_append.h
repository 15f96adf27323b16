// SPDX-License-Identifier: Apache-2.0
// A copy into a big buffer that has room for it, in line: a table adds names faster than a call that
// looks at everything.
#pragma once

#include <libvxcore/vxlb_big_buf.h>
#include <libvxcore/vxlb_log.h>

#include <cstdint>
#include <cstring>

static inline bool bigbuf_has_room(const bigbuf_t *bigbuf, int64_t needed_space) {
    return bigbuf->offset + needed_space < bigbuf->bufsize;
}

// Take the bytes that were put at offset into use; returns where they begin.
static inline int64_t bigbuf_close_copy(bigbuf_t *bigbuf, int len) {
    const int64_t begin = bigbuf->offset;
    bigbuf->buffer[begin + len] = '\0';
    bigbuf->offset = begin + len + 1;
    return begin;
}

// vxlb_bigbuf_copy_into_bigbuf for a text whose length is known and above 0.
static inline int64_t bigbuf_append(bigbuf_t *bigbuf, const char *text, int len) {
    if (!bigbuf_has_room(bigbuf, int64_t{len} + 1) ||
        vxlb_debug_log_is_on(VXLB_LEVEL_3, VXLB_MOD_MISC) != 0) {
        return vxlb_bigbuf_copy_into_bigbuf(bigbuf, text, len);
    }
    memcpy(bigbuf->buffer + bigbuf->offset, text, static_cast<size_t>(len));
    return bigbuf_close_copy(bigbuf, len);
}
