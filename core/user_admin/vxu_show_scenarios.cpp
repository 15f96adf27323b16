// SPDX-License-Identifier: Apache-2.0
// vxu_show_scenarios: list the test scenarios of a work directory.
#include "options.h"
#include "output.h"
#include "scenario_list.h"
#include "scenario_walk.h"
#include "selection.h"
#include "surroundings.h"
#include "user_access.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// Texts that were cut to fit would lead to another directory.
bool is_scenario_dir_whole() {
    return static_cast<size_t>(g_vx_ta_dir_length) < sizeof g_vx_ta_dir &&
           strlen(vx_wdir) < sizeof g_vxlb_wdir;
}

void change_into_scenario_dir() {
    vxlb_copy_text(scenario_dir, sizeof scenario_dir, g_vx_ta_dir);
    if (!is_scenario_dir_whole() || chdir(scenario_dir) != 0) {
        die(1, "Error: vxu_show_scenarios: Unable to chdir on %s\n", scenario_dir);
    }
}

} // namespace

int main(int argc, char **argv) {
    make_standard_descriptors_valid();
    keep_descriptors_from_children();
    reset_child_signal();

    vx_wdir = getenv("VX_WDIR");
    if (vx_wdir == nullptr) {
        die(255, "VX_WIDR is not set\n");
    }
    vxlb_init_wdir_wpdir();
    const option_counts counts = read_options(argc, argv);
    get_usr_uid_gid();

    vxlb_check_and_set_ta_dir(counts.Aflag, counts.wflag, counts.pflag, VXLB_GET_W_OPTION());
    change_into_scenario_dir();

    print_header();
    scan_scen_list();
    print_scenarios();
    finish(0);
}
