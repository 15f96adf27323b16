// SPDX-License-Identifier: Apache-2.0
// The process's work directory, workspace, profile and test-assets directory.
//
// The globals below are the one place where a run keeps its selection. Every setter checks its
// arguments before it writes, builds the directory texts from its arguments (not from the cut
// copies in the globals, so that an overlong name never turns into another, shorter one) and
// records in g_vx_ta_dir_length whether the result was cut.
#include <libvxcore/vxlb_util.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

char g_vxlb_wdir[VXLB_PATH_SIZE];
char g_vx_workspace[VXLB_NAME_SIZE];
char g_vx_profile[VXLB_NAME_SIZE];
char g_vx_rta_dir[VXLB_RTA_DIR_SIZE];
char g_vx_ta_dir[VXLB_PATH_SIZE];
char g_vxlb_w_option[VXLB_PATH_SIZE];
char g_vx_wdir[VXLB_PATH_SIZE];
char g_controller_name[VXLB_CONTROLLER_NAME_SIZE];
int g_vx_ta_dir_length;

namespace {

constexpr size_t WDIR_ERROR_SIZE = 128;
constexpr const char *DIR_SEPARATOR = "/";

bool is_given(const char *text) {
    return text != nullptr && text[0] != '\0';
}

int set_ta_dir_text(const char *wdir, const char *below, const char *name) {
    g_vx_ta_dir_length = snprintf(g_vx_ta_dir, sizeof g_vx_ta_dir, "%s/%s%s", wdir, below, name);
    return g_vx_ta_dir_length;
}

} // namespace

int vxlb_set_ta_dir_ex1(const char *wdir, const char *workspace, const char *profile) {
    if (!is_given(wdir) || !is_given(workspace) || !is_given(profile)) {
        return -1;
    }
    snprintf(g_vx_rta_dir, sizeof g_vx_rta_dir, "%s/%s/%s/%s", "workspace", workspace, profile,
             "maranth");
    vxlb_set_workspace_profile(workspace, profile);
    return set_ta_dir_text(wdir, g_vx_rta_dir, "");
}

int vxlb_set_ta_dir_ex2(const char *wdir, const char *workspace) {
    if (!is_given(wdir) || !is_given(workspace)) {
        return -1;
    }
    const int length = set_ta_dir_text(wdir, "workspace/", workspace);
    vxlb_copy_text(g_vx_workspace, sizeof g_vx_workspace, workspace);
    return length;
}

int vxlb_set_ta_dir_ex(const char *wdir, const char *path) {
    if (!is_given(wdir) || !is_given(path)) {
        return -1;
    }
    vxlb_copy_text(g_vx_rta_dir, sizeof g_vx_rta_dir, path);
    return set_ta_dir_text(wdir, g_vx_rta_dir, "");
}

int vxlb_set_ta_dir(const char *wdir) {
    const char *path = getenv("VX_RTA_DIR");
    char copy[VXLB_RTA_DIR_SIZE];
    char *fields[5];
    vxlb_copy_text(copy, sizeof copy, path != nullptr ? path : VXLB_DEFAULT_RTA_DIR);
    if (vxlb_get_tokens(copy, fields, DIR_SEPARATOR, 5) < 4) {
        return -1;
    }
    return vxlb_set_ta_dir_ex1(wdir, fields[1], fields[2]);
}

void vxlb_check_and_set_workspace_profile(const char *workspace_profile) {
    if (!is_given(workspace_profile)) {
        return;
    }
    char copy[VXLB_RTA_DIR_SIZE];
    char *fields[3];
    vxlb_copy_text(copy, sizeof copy, workspace_profile);
    if (vxlb_get_tokens(copy, fields, DIR_SEPARATOR, 3) == 2) {
        vxlb_set_workspace_profile(fields[0], fields[1]);
    } else {
        vxlb_set_workspace_profile(VXLB_DEFAULT_WORKSPACE, VXLB_DEFAULT_PROFILE);
    }
}

namespace {

void ignore_signal(int) {}

// The first line of a command's output, without its newline and cut to fit. False when the
// command can't be started or prints nothing.
bool read_first_line(const char *command, char *line, size_t size) {
    FILE *out = popen(command, "re");
    if (out == nullptr) {
        return false;
    }
    const bool read = fgets(line, static_cast<int>(size), out) != nullptr;
    pclose(out);
    if (read) {
        line[strcspn(line, "\n")] = '\0';
    }
    return read;
}

bool find_controller_name() {
    static const char basename_of[] = "basename ";
    // Every byte of the directory may need the four of an escaped quote.
    char command[sizeof basename_of + 4 * sizeof g_vx_wdir];
    const size_t used = sizeof basename_of - 1;
    memcpy(command, basename_of, used);
    vxlb_shell_word(g_vx_wdir, "/:,%", command + used, sizeof command - used);

    // With SIGCHLD ignored, as a parent may have left it, the child could not be waited for.
    struct sigaction count_child = {};
    struct sigaction before;
    count_child.sa_handler = ignore_signal;
    count_child.sa_flags = SA_RESTART;
    sigaction(SIGCHLD, &count_child, &before);
    const bool found = read_first_line(command, g_controller_name, sizeof g_controller_name);
    sigaction(SIGCHLD, &before, nullptr);
    return found;
}

int fail_for_variable(char *err, const char *variable) {
    snprintf(err, WDIR_ERROR_SIZE,
             "ZylErr[1000027]: Failed to get value of environment variable '%s'.", variable);
    return -1;
}

} // namespace

int set_vx_wdir_ex(char *err) {
    const char *wdir = getenv("VX_WDIR");
    if (wdir == nullptr) {
        return fail_for_variable(err, "VX_WDIR");
    }
    vxlb_copy_text(g_vx_wdir, sizeof g_vx_wdir, wdir);
    return find_controller_name() ? 0 : fail_for_variable(err, "CONTROLLER");
}

void set_vx_wdir(void) {
    char err[WDIR_ERROR_SIZE];
    if (set_vx_wdir_ex(err) == -1) {
        fprintf(stderr, "%s\n", err);
        exit(-1);
    }
}
