/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Debug and error log: trace records filtered by level and module, error records, and a trace call
 * for a stream of the caller's own.
 *
 *     trace   \n DATE | file | line | function | message
 *     error   \n DATE | id | severity | attribute | file | line | function | Error | message
 *
 * A record begins with a newline and has none at its end. It is one write to a descriptor opened for
 * appending, so several processes and threads may share a log without tearing records. The debug
 * log is rolled over to its path with ".prev" added once it has grown past a limit.
 *
 * Tracing is off until both a level and a module mask are set. Configure before threads start; from
 * then on any thread may log, and so may forked children: there is no lock. A thread that writes
 * records needs 128 KiB of stack; a disabled trace uses none. Logging never fails its caller, never
 * ends the process and leaves errno alone.
 */
#ifndef LIBVXCORE_VXLB_LOG_H
#define LIBVXCORE_VXLB_LOG_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default) /* what the shared library exports */

/* Levels: the mask of one byte each. The same four values are the severities of error records. */
#define VXLB_LEVEL_1 0x000000FF
#define VXLB_LEVEL_2 0x0000FF00
#define VXLB_LEVEL_3 0x00FF0000
#define VXLB_LEVEL_4 ((int)0xFF000000)

/* Module bits. */
#define VXLB_MOD_SEARCH 0x1
#define VXLB_MOD_HESSIAN 0x2
#define VXLB_MOD_HASH 0x4
#define VXLB_MOD_AUTH 0x8
#define VXLB_MOD_API 0x10
#define VXLB_MOD_MISC 0x20
#define VXLB_MOD_MEMORY 0x40
#define VXLB_MOD_TOPO 0x100

#define VXLB_LOG_PATH_SIZE 1024 /* bytes of a log's path, its NUL included */
#define VXLB_MODULE_COUNT 10    /* rows of the module tables */

extern uint32_t vxlb_log_level;                 /* levels that are written; 0 at start */
extern uint64_t lib_module_mask;                /* modules that are written; 0 at start */
extern char log_file[VXLB_LOG_PATH_SIZE];       /* path of the debug log; empty at start */
extern char error_log_file[VXLB_LOG_PATH_SIZE]; /* path of the error log; empty: standard error */
extern int32_t lib_debug_fd;                    /* open debug log, or -1 */
extern int32_t lib_error_fd;                    /* open error log, or -1 */
extern uint32_t max_debug_log_file_size;        /* bytes above which the debug log is rolled over */
extern FILE *vxlb_log_fp; /* stream of the debug log, kept for programs; or null */

/* Names and bits of a module-mask line, row by row; row 8 has a bit and an empty name. */
extern const char *const lib_module_mask_name[VXLB_MODULE_COUNT];
extern const uint64_t lib_module_mask_bit[VXLB_MODULE_COUNT];

/* Whether a trace record of this level and module would be written. */
static inline int vxlb_debug_log_is_on(int level, uint64_t mask) {
    return ((uint32_t)level & __atomic_load_n(&vxlb_log_level, __ATOMIC_RELAXED)) != 0 &&
           (mask & __atomic_load_n(&lib_module_mask, __ATOMIC_RELAXED)) != 0;
}

/*
 * Write one trace record if its level and its module are switched on. A record is at most 64000
 * bytes; one that is cut ends with a zero byte. When the log cannot be opened, that is said on
 * standard error once per record and the record is lost.
 *
 * A call goes through the macro of the same name below: while the record is switched off it costs
 * two loads and two tests, and neither file, line, function, format nor its arguments are evaluated.
 */
void vxlb_debug_log_ex(int level, uint64_t mask, const char *file, int line, const char *function,
                       const char *format, ...) __attribute__((format(printf, 6, 7)));

/* The macro through which the function of its name is called. */
#define vxlb_debug_log_ex(level, mask, ...)                                                       \
    __extension__({                                                                               \
        const int vxlb_log_level_arg_ = (int)(level);                                             \
        const uint64_t vxlb_log_mask_arg_ = (uint64_t)(mask);                                     \
        if (__builtin_expect(vxlb_debug_log_is_on(vxlb_log_level_arg_, vxlb_log_mask_arg_), 0)) { \
            (vxlb_debug_log_ex)(vxlb_log_level_arg_, vxlb_log_mask_arg_, __VA_ARGS__);            \
        }                                                                                         \
    })

/*
 * Write one error record to the error log, or to standard error when no error log is set. Level 0
 * writes nothing; any other level is named by log_level_to_str. The error log is never rolled over.
 */
void vxlb_error_log_ex(int level, const char *file, int line, const char *function,
                       const char *error_id, const char *error_attr, const char *format, ...)
    __attribute__((format(printf, 7, 8)));

/*
 * Print one trace record, a newline before and after it, on log_fp and flush it; on standard output
 * when log_fp is null. Nothing is printed when log_level is above max_log_level (signed). A record
 * is cut at 19999 bytes. Blocks and then unblocks all signals, as vxlb_get_cur_date_time does.
 *
 * Returns 0 always; a failed print is said on standard error.
 */
int lib_debug_log(int log_level, int max_log_level, FILE *log_fp, const char *file_name, int line,
                  const char *function, const char *format, ...)
    __attribute__((format(printf, 7, 8)));

/* Severity name of a level mask: "Critical", "Major", "Minor", "Warning", "Unknown Log Level". */
char *log_level_to_str(int level);

/*
 * The current local time as month/day/year hour:minute:second, two digits each, the year modulo
 * 2000; or "Error". The text is the thread's own and lives until the thread's next call.
 */
char *get_cur_date_time(void);

/*
 * Roll a log file over when the file behind *fd is larger than max_file_size: the path is renamed to
 * PATH.prev, or to PATH.HH.MM (local time) when prev_or_mmdd is 0, unless another process or thread
 * has just done so or is doing so. In each of these cases *fd is closed and set to -1, so that the
 * next open finds the new file. Nothing happens when *fd or max_file_size is below 1.
 *
 * Returns 0 always.
 */
int vxlb_check_rollover_file(int *fd, const char *path, int max_file_size, int prev_or_mmdd);

/*
 * Open a log for appending, creating it if need be, unless *fd is open (above 0) already. A header
 * (may be null) is written to a file that did not exist.
 *
 * Returns 0, 1 when the header was written, or -1 with errno set and *fd -1.
 */
int vxlb_open_file_with_header(int *fd, const char *path, const char *header);

/*
 * Make *fd an open log that is not beyond its limit: the rollover check to PATH.prev, then the open.
 * A log that is rolled over keeps its descriptor number: the new file takes the old one's place at
 * once, so that no other thread's record can miss both; without a descriptor to spare, *fd stays the
 * old file. max_file_size below 1: never rolled over.
 *
 * Returns what vxlb_open_file_with_header returns.
 */
int vxlb_open_log(int *fd, const char *path, int max_file_size, const char *header);

/*
 * vxlb_open_log without a header; a failure is said on standard error. A max_size above 2147483647
 * becomes negative as a signed size, and so switches rollover off.
 */
int open_log_ex(const char *path, int *fd, unsigned int max_size);

/* Close the debug log. The error log stays open. */
void vxlb_close_log_fd(void);

/* The descriptors of the open logs, or -1. */
int vxlb_get_debug_fd(void);
int vxlb_get_error_fd(void);

/* Each pair of setters stores to the same setting. */
void vxlb_util_set_debug_log_level(int level);
void hessian_set_debug_log_level(int level);
void vxlb_util_set_debug_log_fp(FILE *stream);
void hessian_set_debug_log_fp(FILE *stream);

/* Set the modules that are written, and the bytes above which the debug log is rolled over. */
void vxlb_util_set_modulemask(uint64_t mask);
void vxlb_util_set_debug_log_size(unsigned int size);

/*
 * Copy the paths that are not null, the first 1023 bytes of each. A log that is open stays open, on
 * its old path.
 */
void vxlb_util_set_log_filename(const char *log_file_name, const char *error_log_file_name);

/*
 * Read a line "LIB_DEBUG <level>". Levels 1 to 4 are cumulative (2 switches levels 1 and 2 on), any
 * other number is a raw mask. A line without a value is complained about on standard error and then
 * taken as level 0.
 *
 * Returns 0, or -1 with a message on standard error when the value is not a number.
 */
int set_vxlb_debug(const char *buf);

/*
 * Read a module-mask line: a keyword, which is not looked at, then up to 99 words separated by
 * blanks. A word is a module name (in either case), a number "0x..." or a decimal number. Their
 * values are added up, not or-ed: a module named twice counts twice, and ALL with any other module
 * wraps around. After a word "~" the values are cleared from the mask instead, to the line's end.
 *
 * Returns 0 with the mask stored, or -1 with a message in err_msg, which needs 70 bytes more than
 * the line has; the mask is unchanged then.
 */
int set_vxlb_modulemask(const char *buf, char *err_msg);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
