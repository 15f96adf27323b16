// SPDX-License-Identifier: Apache-2.0
// The rules depend on the order of the options: each option looks at what has been counted before
// it and is counted last. Callers rely on the order: -w before -p is fine, -p before -W is not.
#include "options.h"

#include "output.h"
#include "selection.h"
#include "user_access.h"

#include <strings.h>
#include <unistd.h>

#include <climits>
#include <cstring>

namespace {

constexpr int USAGE_STATUS = 255;
constexpr size_t MAX_USER_NAME_LENGTH = 255;
constexpr const char *OPTION_LETTERS = "Agu:p:w:W:s:k:t:T:d";

option_counts g_counts;
const char *g_program; // argv[0]

void refuse_if_repeated(int count, char letter) {
    if (count != 0) {
        out_text("vxu_show_scenarios: -");
        out_text({&letter, 1});
        out_text(" option cannot be specified more than once.\n");
        display_help_and_exit();
    }
}

void check_if_more_option(int a, int b, int c) {
    if (a == 1 || b == 1 || c == 1) {
        out_text("vxu_show_scenarios: Only one option can specify at a time.\n");
        display_help_and_exit();
    }
}

// -A and -u behind a -w are refused in words of their own, by the name the command was called by.
void refuse_behind_w() {
    if (g_counts.wflag == 1) {
        out_text(g_program);
        out_text(": Only one option can specify at a time.\n");
        display_help_and_exit();
    }
}

// A cut argument would name another place than the one asked for.
void refuse_if_too_long(const char *argument, size_t limit, char letter) {
    if (strlen(argument) > limit) {
        die(USAGE_STATUS,
            "Error: vxu_show_scenarios: argument of -%c option is longer than %zu characters\n",
            letter, limit);
    }
}

const char *copy_of(const char *text) {
    const char *copy = strdup(text);
    if (copy == nullptr) {
        die_of_memory();
    }
    return copy;
}

void take_all() {
    refuse_if_repeated(g_counts.Aflag, 'A');
    check_if_more_option(g_counts.uflag, g_counts.Aflag, g_counts.pflag);
    refuse_behind_w();
    g_counts.Aflag++;
    all = 1;
}

void take_user(const char *user) {
    refuse_if_repeated(g_counts.uflag, 'u');
    check_if_more_option(g_counts.uflag, g_counts.Aflag, g_counts.pflag);
    refuse_behind_w();
    refuse_if_too_long(user, MAX_USER_NAME_LENGTH, 'u');
    g_counts.uflag++;
    all = 0;
    validate_user(user);
    get_users_proj_sub_proj(user);
}

void take_project(const char *argument) {
    refuse_if_repeated(g_counts.pflag, 'p');
    check_if_more_option(g_counts.uflag, g_counts.Aflag, g_counts.pflag);
    refuse_if_too_long(argument, ARGUMENT_SIZE - 1, 'p');
    static char arg_buf[ARGUMENT_SIZE]; // the row points into it
    char *fields[4];
    vxlb_copy_text(arg_buf, sizeof arg_buf, argument);
    const int count = get_tokens(arg_buf, fields, "/", 4);
    if (count == 0) {
        display_help_and_exit();
    }
    usr_project[0] = fields[0];
    usr_sub_project[0] = count > 1 ? fields[1] : "*";
    num_projs = 1;
    all = 0;
    p_set++;
    g_counts.pflag++;
}

void take_workspace_profile(const char *argument) {
    refuse_if_repeated(g_counts.wflag, 'w');
    check_if_more_option(g_counts.uflag, g_counts.Aflag, g_counts.wflag);
    refuse_if_too_long(argument, ARGUMENT_SIZE - 1, 'w');
    VXLB_SET_W_OPTION(argument);
    g_counts.wflag++;
}

void take_workspace(const char *argument) {
    refuse_if_repeated(g_counts.Wflag, 'W');
    w_set++;
    check_if_more_option(g_counts.uflag, g_counts.Aflag, g_counts.pflag);
    refuse_if_too_long(argument, ARGUMENT_SIZE - 1, 'W');
    VXLB_SET_W_OPTION(argument);
    g_counts.Wflag++;
}

// The number that a text of decimal digits stands for; a larger one is the largest int.
int days_of(const char *digits) {
    int days = 0;
    for (const char *c = digits; *c != '\0'; c++) {
        const int digit = *c - '0';
        if (days > (INT_MAX - digit) / 10) {
            return INT_MAX;
        }
        days = days * 10 + digit;
    }
    return days;
}

void take_days(const char *argument) {
    refuse_if_repeated(sflag, 's');
    if (!vx_is_numeric(argument)) {
        die(USAGE_STATUS, "Error: No of days can have only integer value\n");
    }
    last_n_days = days_of(argument);
    sflag++;
}

void take_search_words(const char *argument) {
    refuse_if_repeated(g_counts.kflag, 'k');
    refuse_if_too_long(argument, ARGUMENT_SIZE - 1, 'k');
    vxlb_copy_text(scenario_search_key, sizeof scenario_search_key, argument);
    num_search_key = get_tokens(scenario_search_key, search_keys, " ", MAX_SEARCH_WORDS);
    if (num_search_key > MAX_USED_SEARCH_WORDS) {
        num_search_key = MAX_USED_SEARCH_WORDS;
    }
    for (int i = 0; i < num_search_key; i++) {
        search_keys[i][strnlen(search_keys[i], MAX_SEARCH_WORD_LENGTH)] = '\0';
    }
    g_counts.kflag++;
}

void take_test_type(const char *argument) {
    if (strcasecmp(argument, "functional") == 0) {
        g_test_type = FUNCTIONAL_SCENARIOS;
    }
}

void take_tag(const char *argument) {
    if (g_num_tags < MAX_TAGS) {
        g_tags[g_num_tags++] = copy_of(argument);
    }
}

void take_totals() {
    refuse_if_repeated(gflag, 'g');
    gflag++;
}

void take_option(int letter) {
    switch (letter) {
    case 'A':
        return take_all();
    case 'u':
        return take_user(optarg);
    case 'p':
        return take_project(optarg);
    case 'w':
        return take_workspace_profile(optarg);
    case 'W':
        return take_workspace(optarg);
    case 's':
        return take_days(optarg);
    case 'k':
        return take_search_words(optarg);
    case 't':
        return take_test_type(optarg);
    case 'T':
        return take_tag(optarg);
    case 'd':
        g_is_debug = 1;
        return;
    case 'g':
        return take_totals();
    default:
        display_help_and_exit();
    }
}

} // namespace

void display_help_and_exit() {
    out_text(
        "Usage: vxu_show_scenarios [-A | -u <User Name>] [-p <project/subproject>] "
        "[-w <workspace_name>/<profile>] [-s <days>][-k <search keyword>]\n"
        "Where: \n"
        "  -A is used to show all scenario, project/sub-project details that present in default "
        "profile\n"
        "  -u is used to show scenario, project/sub-project details of specified User Name\n"
        "  -p is used to show scenarios of given <project>/<sub-project> of specified "
        "workspace/profile with -w  option\n"
        "  -w is used to show scenarios of given <workspace>/<profile>\n"
        "  -W is used to show scenarios of given <workspace>\n"
        "  -s is used to show scenarios of last s days modified\n"
        "  -k is used to show scenarios which match with given keyword\n"
        "   At a perticular time one of the option from -A,-u, -p, -w or -w AND -p should be used "
        "\n"
        "  -s and -k options should be used with one of the option -A,-u or -p\n");
    finish(USAGE_STATUS);
}

option_counts read_options(int argc, char **argv) {
    if (argc < 2) {
        report_error(" Error: provide at least one argument according to following condition\n");
        display_help_and_exit();
    }
    g_program = argv[0];
    for (int letter; (letter = getopt(argc, argv, OPTION_LETTERS)) != -1;) {
        take_option(letter);
    }
    const bool narrowed = sflag != 0 || g_counts.kflag != 0;
    const bool placed = g_counts.uflag + g_counts.pflag + g_counts.Aflag + g_counts.wflag != 0;
    if (narrowed && !placed) {
        // The blank behind the newline is part of the message.
        die(1, "Error: -s or -k option should not be given independently.\n ");
    }
    return g_counts;
}
