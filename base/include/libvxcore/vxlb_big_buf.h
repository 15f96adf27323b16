/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Big buffer: an append-only store of texts in one growable block.
 *
 *     buffer -> a b c \0 d e \0 0 0 0 ... 0
 *               ^0       ^4     ^offset     ^bufsize
 *
 * Callers keep offsets, not pointers: the block moves when it grows. Nothing is ever taken out of
 * the middle. It grows in steps of 10 KB, one reallocation each: made for stores that start large.
 *
 * Calling order: one init, any number of copies and look-ups, one free. One owner at a time; the
 * buffer does not lock. When memory runs out the process ends, as for every tracked allocation.
 */
#ifndef LIBVXCORE_VXLB_BIG_BUF_H
#define LIBVXCORE_VXLB_BIG_BUF_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default) /* what the shared library exports */

#define BIGBUF_INIT_SIZE 1048576 /* bytes that vxlb_bigbuf_init allocates */
#define BIGBUF_STEP 10240        /* bytes of one growth step */

/* What the argument of vxlb_bigbuf_copy_into_bigbuf_ex is. */
#define BIGBUF_TYPE_BUFFER 0 /* the data */
#define BIGBUF_TYPE_FILE 1   /* the path of a file that holds the data */

/* After a copy 0 <= offset < bufsize holds. Every byte that was never copied to is zero. */
typedef struct bigbuf_t {
    char *buffer;    /* owned; null before init and after free */
    int64_t offset;  /* bytes in use; the next copy begins here */
    int64_t bufsize; /* bytes allocated for the caller's use */
} bigbuf_t;

/* Allocate a zeroed block of 1 MB. Returns 0, or -1 for a null argument. */
int vxlb_bigbuf_init(bigbuf_t *bigbuf);

/* The same with a block of init_size bytes; -1 also for a size below 1. */
int vxlb_bigbuf_init_ex(bigbuf_t *bigbuf, int init_size);

/* Grow the block by one step, whose bytes are zero. Returns 0, or -1 for a null argument. */
int vxlb_bigbuf_realloc(bigbuf_t *bigbuf);

/*
 * 1 when needed_space bytes fit and at least one byte stays unused behind them, else 0; -1 for a
 * null argument.
 */
int vxlb_bigbuf_chk_avail_space(bigbuf_t *bigbuf, int needed_space);

/*
 * Append a copy of a text, and a NUL, and say where it went. The text must not lie in the buffer.
 *
 * len: bytes to copy; 0 means "measure the text", so an empty text is stored as a single NUL.
 *
 * Returns the offset of the copy, good until vxlb_bigbuf_free, or -1 for a null argument or a
 * negative length (nothing is changed then). Pointers from vxlb_bigbuf_get_value do not survive
 * this call.
 */
int64_t vxlb_bigbuf_copy_into_bigbuf(bigbuf_t *bigbuf, const char *string, int len);

/*
 * The same for a buffer or for the contents of a regular file, as flag says (BIGBUF_TYPE_...). It
 * comments on its progress on standard error at every call, traced or not.
 *
 * err_msg: caller's buffer of at least 300 bytes more than the path has. Returns the offset, or -1
 * with a message there; after a null argument -1 alone. offset is unchanged after a failure, though
 * the block may have grown.
 */
int64_t vxlb_bigbuf_copy_into_bigbuf_ex(bigbuf_t *bigbuf, const char *string, int len, char flag,
                                        char *err_msg);

/* The address of an offset until the next copy; not checked. Null for a null argument. */
char *vxlb_bigbuf_get_value(bigbuf_t *bigbuf, int64_t offset);

/* Release the block. The buffer is all zero then and may be set up again. Null is ignored. */
void vxlb_bigbuf_free(bigbuf_t *bigbuf);

/*
 * Read exactly `size` bytes of a descriptor into buf. new_line_flag is 0.
 *
 * Returns 0, or -1 with errno set; ENODATA when the input ends before.
 */
int vxlb_read_file_and_fill_buf_ex(int fd, char *buf, int64_t size, int new_line_flag);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
