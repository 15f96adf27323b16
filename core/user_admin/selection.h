// SPDX-License-Identifier: Apache-2.0
// What the caller asked for and who the caller is: the command's globals.
//
// The options and the user's project rows write them before the walk begins; from the walk on they
// are only read. The totals are the one exception: the table counts them.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <libvxcore/vxlb_util.h>

constexpr int MAX_PROJECTS = 1000;
constexpr int MAX_TAGS = 16;
constexpr int MAX_SEARCH_WORDS = 100;    // words that -k is split into
constexpr int MAX_USED_SEARCH_WORDS = 3; // of which these many are looked for
constexpr size_t MAX_SEARCH_WORD_LENGTH = 32;
constexpr size_t ARGUMENT_SIZE = 1024; // bytes of a -p, -w, -W or -k argument, its NUL included

enum test_type { ORDINARY_SCENARIOS = 1, FUNCTIONAL_SCENARIOS = 2 };

// Where to look. Written by the options and by the user's project rows.
extern int all;                           // 1: every workspace and profile is listed
extern int w_set;                         // count of -W: the walk begins at a workspace directory
extern int p_set;                         // count of -p
extern const char *vx_wdir;               // VX_WDIR as found at start
extern char scenario_dir[VXLB_PATH_SIZE]; // test-assets directory of this run; main changes into it

// Allowed projects; no rows: no restriction. Row i allows sub-project usr_sub_project[i] of project
// usr_project[i], any sub-project when that begins with "*". The texts are never freed.
extern int num_projs;
extern const char *usr_project[MAX_PROJECTS];
extern const char *usr_sub_project[MAX_PROJECTS];

// Which scenarios. Written by the options.
extern int g_test_type;              // a test_type
extern const char *g_tags[MAX_TAGS]; // -T words, never freed
extern int g_num_tags;
extern int last_n_days;                         // greatest age in days; -1: any
extern char scenario_search_key[ARGUMENT_SIZE]; // -k argument, cut into its words
extern char *search_keys[MAX_SEARCH_WORDS];     // the words, each at most 32 characters long
extern int num_search_key;                      // words in use, at most 3

// How to show them. Written by the options.
extern int g_is_debug; // 1: every entry of the walk is traced to standard error
extern int gflag;      // count of -g: a totals line ends the table
extern int sflag;      // count of -s

// Who asks. Written by get_usr_uid_gid.
extern uid_t usr_id;
extern gid_t usr_primary_grp_id;
extern gid_t usr_secondry_grp_id; // 0 when the caller has one group

// Totals of the table. Nothing ever counts total_records: the line has always shown 0 there, and
// programs that read it expect that.
extern int total_records;
extern int total_filtered_records; // rows printed with their attributes
