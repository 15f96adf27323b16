// SPDX-License-Identifier: Apache-2.0
#include "selection.h"

int all;
int w_set;
int p_set;
const char *vx_wdir;
char scenario_dir[VXLB_PATH_SIZE];

int num_projs;
const char *usr_project[MAX_PROJECTS];
const char *usr_sub_project[MAX_PROJECTS];

int g_test_type = ORDINARY_SCENARIOS;
const char *g_tags[MAX_TAGS];
int g_num_tags;
int last_n_days = -1;
char scenario_search_key[ARGUMENT_SIZE];
char *search_keys[MAX_SEARCH_WORDS];
int num_search_key;

int g_is_debug;
int gflag;
int sflag;

uid_t usr_id;
gid_t usr_primary_grp_id;
gid_t usr_secondry_grp_id;

int total_records;
int total_filtered_records;
