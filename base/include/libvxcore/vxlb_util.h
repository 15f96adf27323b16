/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Work directory, workspace and profile; tokenizers and small helpers.
 *
 * One process works in one work directory and has one workspace and profile selected:
 *
 *     <work dir>/workspace/<workspace>/<profile>/maranth/<project>/<sub-project>/scenarios/...
 *     `--------´ `---------------------------------------´
 *     g_vxlb_wdir        g_vx_rta_dir
 *     `--------------------------------------------------´
 *                        g_vx_ta_dir, the test-assets directory
 *
 * Calling order: vxlb_init_wdir_wpdir once, then any of the setters. The selection is process-wide
 * and not locked: it is made before threads start. The error texts at the end are per thread.
 */
#ifndef LIBVXCORE_VXLB_UTIL_H
#define LIBVXCORE_VXLB_UTIL_H

#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default) /* what the shared library exports */

#define VXLB_PATH_SIZE 1024          /* bytes of a directory text, its NUL included */
#define VXLB_NAME_SIZE 256           /* bytes of a workspace or profile name */
#define VXLB_RTA_DIR_SIZE 4096       /* bytes of a relative test-assets directory */
#define VXLB_CONTROLLER_NAME_SIZE 64 /* bytes of a controller name */
#define VXLB_DATE_TIME_SIZE 32       /* bytes that any date-time text of the library fits */

/* What is selected where nothing else is said. */
#define VXLB_DEFAULT_WDIR "/home/maranth/work"
#define VXLB_DEFAULT_WORKSPACE "admin"
#define VXLB_DEFAULT_PROFILE "default"
#define VXLB_DEFAULT_RTA_DIR "workspace/admin/default/maranth"

/* All empty at start. Written by the functions below, read by everybody. */
extern char g_vxlb_wdir[VXLB_PATH_SIZE];     /* work directory, by vxlb_init_wdir_wpdir */
extern char g_vx_workspace[VXLB_NAME_SIZE];  /* selected workspace */
extern char g_vx_profile[VXLB_NAME_SIZE];    /* selected profile */
extern char g_vx_rta_dir[VXLB_RTA_DIR_SIZE]; /* test-assets directory below the work directory */
extern char g_vx_ta_dir[VXLB_PATH_SIZE];     /* test-assets directory, absolute */
extern char g_vxlb_w_option[VXLB_PATH_SIZE]; /* raw workspace option of a command line */
extern char g_vx_wdir[VXLB_PATH_SIZE];       /* work directory, by set_vx_wdir_ex */
extern char g_controller_name[VXLB_CONTROLLER_NAME_SIZE]; /* last component of g_vx_wdir */

/*
 * Length that the text last written to g_vx_ta_dir needs. When it is not below
 * sizeof g_vx_ta_dir the text was cut and names another directory than the one asked for.
 */
extern int g_vx_ta_dir_length;

/*
 * Copy a text into an array of `size` bytes, cut to fit and terminated. `text` may be the array
 * itself. Returns the length of the whole text.
 */
static inline int vxlb_copy_text(char *array, size_t size, const char *text) {
    size_t len = strlen(text);
    size_t kept = len < size ? len : size - 1;
    memmove(array, text, kept);
    array[kept] = '\0';
    return (int)len;
}

/* --- tokenizers and small helpers ------------------------------------------------------------ */

/*
 * Split a text at any of the characters of `token`; empty fields vanish.
 *
 * The text is cut in place and the fields point into it. Returns the number of fields stored, at
 * most max_flds; text behind the last field that fits is not returned. A null text has none.
 */
int get_tokens(char *read_buf, char **fields, const char *token, int max_flds);

/*
 * Split a text at the delimiter string `token`.
 *
 * A run of delimiters counts once, but one at the very start leaves an empty first field, one at
 * the very end an empty last field, and an empty text is one empty field. A field in double quotes
 * may hold delimiters: it begins behind its opening quote and keeps its closing one. The character
 * behind the closing quote is taken for the delimiter, so that what follows up to the next
 * delimiter is dropped: "a"/b/c gives a" and c, which callers that quote their last field rely on.
 *
 * The text is cut in place and the fields point into it. Returns the number of fields stored, at
 * most max_flds; a null text has none.
 */
int vxlb_get_tokens(char *read_buf, char **fields, const char *token, int max_flds);

/* 1 when a text holds decimal digits only, and so for an empty one; else 0, also for null. */
int vx_is_numeric(const char *str);

/*
 * Write the current local time as month/day/year hour:minute:second, two digits each, the year
 * modulo 2000 (a year before 2000 is whole); "Error|Error" when it can't be broken down.
 *
 * time_string: caller's array of VXLB_DATE_TIME_SIZE bytes. need_to_block_signal: 1 keeps signal
 * handlers from running meanwhile; afterwards all signals are unblocked, also those that were
 * blocked before the call. Returns time_string.
 */
char *vxlb_get_cur_date_time(char *time_string, int need_to_block_signal);

/* localtime_r with the signal handling of vxlb_get_cur_date_time; returns localtime_r's result. */
struct tm *vxlb_localtime(const time_t *tloc, struct tm *lt, int need_to_block_signal);

/*
 * The system's text for an error number, at most 255 characters, in a buffer of this thread that
 * its next call overwrites.
 */
char *vxlb_strerror(int num);

/* Keep the first 256 characters of a text as this thread's last error. Null is ignored. */
void vxlb_set_error(const char *error);

/* This thread's last error, "" before the first; the buffer that vxlb_set_error overwrites. */
char *vxlb_get_error(void);

/*
 * Write a text as one word of a shell command line, at most `size` bytes with its NUL.
 *
 * A text that is empty or made only of letters, digits, "_.@+-" and the characters of
 * `also_plain` stands as it is; any other is put in single quotes, so that the shell hands it on
 * unchanged and nothing in it runs, expands or redirects. Returns the length of the whole word;
 * when that is not below `size` the word was cut and must not be used.
 */
size_t vxlb_shell_word(const char *text, const char *also_plain, char *word, size_t size);

/* --- work directory, workspace and profile --------------------------------------------------- */

/*
 * Select workspace and profile and derive g_vx_rta_dir and g_vx_ta_dir below wdir.
 *
 * Returns the length that g_vx_ta_dir needs, or -1 for a null or empty argument (nothing is
 * changed then). workspace and profile may be g_vx_workspace and g_vx_profile.
 */
int vxlb_set_ta_dir_ex1(const char *wdir, const char *workspace, const char *profile);

/*
 * Make the directory of a whole workspace the test-assets directory; the profile and g_vx_rta_dir
 * stay. Returns as vxlb_set_ta_dir_ex1.
 */
int vxlb_set_ta_dir_ex2(const char *wdir, const char *workspace);

/* Take the relative test-assets directory as given. Returns as vxlb_set_ta_dir_ex1. */
int vxlb_set_ta_dir_ex(const char *wdir, const char *path);

/*
 * Select the workspace and profile that VX_RTA_DIR names ("workspace/WORKSPACE/PROFILE/..."), or
 * admin/default where it is not set. Returns as vxlb_set_ta_dir_ex1, and -1 for a VX_RTA_DIR of
 * fewer than four components.
 */
int vxlb_set_ta_dir(const char *wdir);

/*
 * Select the workspace and profile of a text "workspace/profile"; a text of any other number of
 * components selects admin/default, a null or empty one changes nothing.
 */
void vxlb_check_and_set_workspace_profile(const char *workspace_profile);

/*
 * Load g_vx_wdir from VX_WDIR and g_controller_name from its last component.
 *
 * err: caller's array of at least 128 bytes for the message. Returns 0, or -1 with the message:
 * the variable is not set, or the component can't be found out (a `basename` command is run
 * through the shell for it).
 */
int set_vx_wdir_ex(char *err);

/* set_vx_wdir_ex, whose failure writes the message to standard error and ends the process (255). */
void set_vx_wdir(void);

/*
 * Select workspace and profile, each cut to 255 characters; the test-assets directory stays.
 * Returns the length of the whole profile, or -1 for a null argument.
 */
static inline int vxlb_set_workspace_profile(const char *workspace, const char *profile) {
    if (workspace == NULL || profile == NULL) {
        return -1;
    }
    vxlb_copy_text(g_vx_workspace, sizeof g_vx_workspace, workspace);
    return vxlb_copy_text(g_vx_profile, sizeof g_vx_profile, profile);
}

/* Keep the workspace option of a command line, cut to 1023 characters. */
static inline void VXLB_SET_W_OPTION(const char *w_option) {
    vxlb_copy_text(g_vxlb_w_option, sizeof g_vxlb_w_option, w_option);
}

/* The workspace option; "" when there was none, never null. */
static inline char *VXLB_GET_W_OPTION(void) {
    return g_vxlb_w_option;
}

/*
 * Take the work directory from VX_WDIR (else /home/maranth/work) and select admin/default.
 * Returns 0.
 */
static inline int vxlb_init_wdir_wpdir(void) {
    const char *wdir = getenv("VX_WDIR");
    vxlb_copy_text(g_vxlb_wdir, sizeof g_vxlb_wdir, wdir != NULL ? wdir : VXLB_DEFAULT_WDIR);
    vxlb_set_workspace_profile(VXLB_DEFAULT_WORKSPACE, VXLB_DEFAULT_PROFILE);
    return 0;
}

/*
 * Choose the test-assets directory for a command line that may hold -A, -w and -p.
 *
 * Aflag: the current workspace and profile. pflag without wflag: admin/default. Else w_field
 * decides: "workspace/profile" names both (further components are ignored), a bare "workspace"
 * the directory of the whole workspace, or admin/default beside pflag; slashes alone stand for
 * admin/default. A null w_field, or an empty one without pflag, leaves the directory as it is:
 * that is how the project rows of a user decide it.
 */
static inline void vxlb_check_and_set_ta_dir(int Aflag, int wflag, int pflag, const char *w_field) {
    char copy[VXLB_RTA_DIR_SIZE];
    char *fields[3];
    int count;

    if (Aflag) {
        vxlb_set_ta_dir_ex1(g_vxlb_wdir, g_vx_workspace, g_vx_profile);
        return;
    }
    if (pflag && !wflag) {
        vxlb_set_ta_dir_ex1(g_vxlb_wdir, VXLB_DEFAULT_WORKSPACE, VXLB_DEFAULT_PROFILE);
        return;
    }
    if (w_field == NULL || strlen(w_field) >= sizeof copy) {
        return; /* a text that long names no directory */
    }
    vxlb_copy_text(copy, sizeof copy, w_field);
    count = copy[0] != '\0' && copy[strspn(copy, "/")] == '\0'
                ? 0
                : vxlb_get_tokens(copy, fields, "/", 3);
    if (count >= 2) {
        vxlb_set_ta_dir_ex1(g_vxlb_wdir, fields[0], fields[1]);
    } else if (count == 0 || pflag) {
        vxlb_set_ta_dir_ex1(g_vxlb_wdir, VXLB_DEFAULT_WORKSPACE, VXLB_DEFAULT_PROFILE);
    } else {
        vxlb_set_ta_dir_ex2(g_vxlb_wdir, fields[0]);
    }
}

/*
 * The profile name to show: "default" for "system" and "repo", else the name itself.
 * out: caller's array of strlen(input) + 1 bytes and at least 8. Null arguments are ignored.
 */
static inline void vxlb_get_profile_name(const char *input, char *out) {
    if (input == NULL || out == NULL) {
        return;
    }
    if (strcmp(input, "system") == 0 || strcmp(input, "repo") == 0) {
        input = VXLB_DEFAULT_PROFILE;
    }
    memmove(out, input, strlen(input) + 1);
}

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
