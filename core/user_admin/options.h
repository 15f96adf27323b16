// SPDX-License-Identifier: Apache-2.0
// The command line: options, the rules by which they combine, usage text.
#pragma once

// How often each option was given (0 or 1). -g and -s are counted in the selection.
struct option_counts {
    int Aflag;
    int uflag;
    int pflag;
    int wflag;
    int Wflag;
    int kflag;
};

// Read the options into the selection, in command-line order. A rule that is broken ends the
// process, and so does a -u user who may not run the command: -u acts as soon as it is met.
option_counts read_options(int argc, char **argv);

// Print the usage text and end the process (255).
[[noreturn]] void display_help_and_exit();
