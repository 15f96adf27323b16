// SPDX-License-Identifier: Apache-2.0
// The selection of work directory, workspace and profile beside a model of plain texts, everything
// compared after each call. Texts are short, or long enough to be cut, or missing.
//
//     calls: code, texts, flags

#include <libvxcore/vxlb_util.h>

#include <cstring>
#include <optional>
#include <vector>

#include "fuzz.h"

namespace {

using Text = std::optional<std::string>;

const char *pointer(const Text &text) {
    return text ? Pieces::copy(*text) : nullptr;
}

bool is_given(const Text &text) {
    return text && !text->empty();
}

std::string cut(const std::string &text, size_t size) {
    return text.substr(0, size - 1);
}

// Components: runs of slashes count once, but leave empty ones at both ends.
std::vector<std::string> components(const std::string &path) {
    std::vector<std::string> all = {""};
    for (size_t i = 0; i < path.size(); i++) {
        if (path[i] != '/') {
            all.back() += path[i];
        } else if (i == 0 || path[i - 1] != '/') {
            all.emplace_back();
        }
    }
    return all;
}

// Quotes are left to the target of the tokenizers.
Text read_text(Input &in) {
    const unsigned code = in.byte();
    if (code < 10) {
        return {};
    }
    if (code >= 200) {
        return std::string((code - 199) * size_t{80}, static_cast<char>('a' + in.byte() % 26));
    }
    std::string text = in.name(8);
    for (char &c : text) {
        c = "/ab/cd-."[static_cast<unsigned char>(c) % 8];
    }
    return text;
}

struct Selection {
    std::string wdir, workspace, profile, rta, ta, option;
    int ta_length = 0;

    int derive(const std::string &from, const std::string &below) {
        ta = cut(from + "/" + below, VXLB_PATH_SIZE);
        return ta_length = static_cast<int>(from.size() + 1 + below.size());
    }
    int select(const Text &name, const Text &other) {
        if (!name || !other) {
            return -1;
        }
        workspace = cut(*name, VXLB_NAME_SIZE);
        profile = cut(*other, VXLB_NAME_SIZE);
        return static_cast<int>(other->size());
    }
    int set_both(const Text &from, const Text &name, const Text &other) {
        if (!is_given(from) || !is_given(name) || !is_given(other)) {
            return -1;
        }
        rta = cut("workspace/" + *name + "/" + *other + "/maranth", VXLB_RTA_DIR_SIZE);
        select(name, other);
        return derive(*from, rta);
    }
    int set_workspace(const Text &from, const Text &name) {
        if (!is_given(from) || !is_given(name)) {
            return -1;
        }
        workspace = cut(*name, VXLB_NAME_SIZE);
        return derive(*from, "workspace/" + *name);
    }
    int set_path(const Text &from, const Text &path) {
        if (!is_given(from) || !is_given(path)) {
            return -1;
        }
        rta = cut(*path, VXLB_RTA_DIR_SIZE);
        return derive(*from, rta);
    }
    int set_by_environment(const Text &from, const Text &path) {
        const auto names = components(cut(path.value_or(VXLB_DEFAULT_RTA_DIR), VXLB_RTA_DIR_SIZE));
        return names.size() < 4 ? -1 : set_both(from, names[1], names[2]);
    }
    void select_by_name(const Text &name) {
        const auto names = components(cut(name.value_or(""), VXLB_RTA_DIR_SIZE));
        if (is_given(name)) {
            names.size() == 2 ? select(names[0], names[1]) : select("admin", "default");
        }
    }
    void choose(bool is_all, bool has_workspace, bool has_project, const Text &field) {
        const std::string given = field.value_or("");
        const auto names = components(given);
        const bool is_slashes = !given.empty() && given.find_first_not_of('/') == std::string::npos;
        if (is_all) {
            set_both(wdir, workspace, profile);
        } else if (has_project && !has_workspace) {
            set_both(wdir, "admin", "default");
        } else if (!field || given.size() >= VXLB_RTA_DIR_SIZE) {
            return;
        } else if (is_slashes || (names.size() < 2 && has_project)) {
            set_both(wdir, "admin", "default");
        } else if (names.size() < 2) {
            set_workspace(wdir, names[0]);
        } else {
            set_both(wdir, names[0], names[1]);
        }
    }
    void check_all() const {
        check(wdir == g_vxlb_wdir && workspace == g_vx_workspace && profile == g_vx_profile);
        check(rta == g_vx_rta_dir && ta == g_vx_ta_dir && option == VXLB_GET_W_OPTION());
        check(ta_length == g_vx_ta_dir_length);
    }
};

void set_variable(const char *name, const Text &value) {
    value ? setenv(name, value->c_str(), 1) : unsetenv(name);
}

void check_profile_name(const Text &name) {
    char shown[VXLB_RTA_DIR_SIZE * 2] = "as before";
    vxlb_get_profile_name(pointer(name), shown);
    const bool is_system = name == "system" || name == "repo";
    check(shown == (is_system ? "default" : name.value_or("as before")));
    vxlb_get_profile_name("x", nullptr);
}

void step(Selection *model, Input &in) {
    const unsigned code = in.byte();
    const Text first = read_text(in), second = read_text(in), third = read_text(in);
    const std::string workspace = model->workspace, profile = model->profile;
    switch (code % 11) {
    case 0:
        check(vxlb_set_ta_dir_ex1(pointer(first), pointer(second), pointer(third)) ==
              model->set_both(first, second, third));
        break;
    case 1: // what is selected, set to itself
        check(vxlb_set_ta_dir_ex1(pointer(first), g_vx_workspace, g_vx_profile) ==
              model->set_both(first, workspace, profile));
        break;
    case 2:
        check(vxlb_set_ta_dir_ex2(pointer(first), pointer(second)) ==
              model->set_workspace(first, second));
        break;
    case 3:
        check(vxlb_set_ta_dir_ex(pointer(first), pointer(second)) ==
              model->set_path(first, second));
        break;
    case 4:
        set_variable("VX_RTA_DIR", second);
        check(vxlb_set_ta_dir(pointer(first)) == model->set_by_environment(first, second));
        check(!second || *second == getenv("VX_RTA_DIR"));
        break;
    case 5:
        vxlb_check_and_set_workspace_profile(pointer(first));
        model->select_by_name(first);
        break;
    case 6:
        check(vxlb_set_workspace_profile(pointer(first), pointer(second)) ==
              model->select(first, second));
        break;
    case 7:
        set_variable("VX_WDIR", first);
        check(vxlb_init_wdir_wpdir() == 0);
        model->wdir = cut(first.value_or(VXLB_DEFAULT_WDIR), VXLB_PATH_SIZE);
        model->select("admin", "default");
        break;
    case 8:
        VXLB_SET_W_OPTION(Pieces::copy(first.value_or("")));
        model->option = cut(first.value_or(""), VXLB_PATH_SIZE);
        break;
    case 9:
        check_profile_name(code < 50 ? "system" : code < 90 ? "repo" : first);
        break;
    default: {
        const unsigned flags = in.byte();
        vxlb_check_and_set_ta_dir(flags & 1, flags & 2, flags & 4, pointer(first));
        model->choose((flags & 1) != 0, (flags & 2) != 0, (flags & 4) != 0, first);
        break;
    }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces::forget();
    Input in = {data, std::min<size_t>(size, 300)};
    Selection model;
    for (char *global :
         {g_vxlb_wdir, g_vx_workspace, g_vx_profile, g_vx_rta_dir, g_vx_ta_dir, g_vxlb_w_option}) {
        global[0] = '\0';
    }
    g_vx_ta_dir_length = 0;
    while (!in.is_empty()) {
        step(&model, in);
        model.check_all();
    }
    return 0;
}
