// SPDX-License-Identifier: Apache-2.0
#include <libvxcore/vxlb_util.h>

#include <gtest/gtest.h>

#include <csignal>
#include <string>

namespace {

const std::string WDIR = "/home/maranth/work";

// Every test starts with nothing selected, as a process does.
class WorkDir : public testing::Test {
protected:
    void SetUp() override {
        for (char *text : {g_vxlb_wdir, g_vx_workspace, g_vx_profile, g_vx_rta_dir, g_vx_ta_dir,
                           g_vxlb_w_option, g_vx_wdir, g_controller_name}) {
            text[0] = '\0';
        }
        unsetenv("VX_WDIR");
        unsetenv("VX_RTA_DIR");
    }
};

TEST_F(WorkDir, ComesFromTheEnvironmentOrTheDefault) {
    EXPECT_EQ(vxlb_init_wdir_wpdir(), 0);
    EXPECT_EQ(g_vxlb_wdir, WDIR);
    EXPECT_STREQ(g_vx_workspace, "admin");
    EXPECT_STREQ(g_vx_profile, "default");
    setenv("VX_WDIR", "/w", 1);
    vxlb_init_wdir_wpdir();
    EXPECT_STREQ(g_vxlb_wdir, "/w");
}

TEST_F(WorkDir, WorkspaceAndProfileAreCutTo255Characters) {
    const std::string name(300, 'n');
    EXPECT_EQ(vxlb_set_workspace_profile("ws", name.c_str()), 300);
    EXPECT_EQ(g_vx_profile, std::string(255, 'n'));
    EXPECT_EQ(vxlb_set_workspace_profile(nullptr, "p"), -1);
    EXPECT_EQ(vxlb_set_workspace_profile("other", nullptr), -1);
    EXPECT_STREQ(g_vx_workspace, "ws");
}

TEST_F(WorkDir, SettersRefuseNullAndEmptyArguments) {
    for (const char *bad : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(vxlb_set_ta_dir_ex1(bad, "w", "p"), -1);
        EXPECT_EQ(vxlb_set_ta_dir_ex1("/d", bad, "p"), -1);
        EXPECT_EQ(vxlb_set_ta_dir_ex1("/d", "w", bad), -1);
        EXPECT_EQ(vxlb_set_ta_dir_ex2(bad, "w"), -1);
        EXPECT_EQ(vxlb_set_ta_dir_ex2("/d", bad), -1);
        EXPECT_EQ(vxlb_set_ta_dir_ex(bad, "w"), -1);
        EXPECT_EQ(vxlb_set_ta_dir_ex("/d", bad), -1);
        EXPECT_EQ(vxlb_set_ta_dir(bad), -1);
    }
    EXPECT_STREQ(g_vx_workspace, "");
    EXPECT_STREQ(g_vx_rta_dir, "");
    EXPECT_STREQ(g_vx_ta_dir, "");
}

TEST_F(WorkDir, SettersDeriveTheTestAssetsDirectory) {
    EXPECT_EQ(vxlb_set_ta_dir_ex1("/d", "w", "p"), 24);
    EXPECT_STREQ(g_vx_rta_dir, "workspace/w/p/maranth");
    EXPECT_STREQ(g_vx_ta_dir, "/d/workspace/w/p/maranth");
    EXPECT_STREQ(g_vx_workspace, "w");
    EXPECT_STREQ(g_vx_profile, "p");

    EXPECT_EQ(vxlb_set_ta_dir_ex2("/d", "v"), 14);
    EXPECT_STREQ(g_vx_ta_dir, "/d/workspace/v");
    EXPECT_STREQ(g_vx_workspace, "v");
    EXPECT_STREQ(g_vx_profile, "p");
    EXPECT_STREQ(g_vx_rta_dir, "workspace/w/p/maranth");

    EXPECT_EQ(vxlb_set_ta_dir_ex("/d", "some/where"), 13);
    EXPECT_STREQ(g_vx_rta_dir, "some/where");
    EXPECT_STREQ(g_vx_ta_dir, "/d/some/where");

    // The selection may be set to itself.
    vxlb_set_ta_dir_ex1("/d", g_vx_workspace, g_vx_profile);
    EXPECT_STREQ(g_vx_ta_dir, "/d/workspace/v/p/maranth");
}

TEST_F(WorkDir, ACutDirectoryIsKnownByItsLength) {
    const std::string wdir(1100, 'd');
    const int length = vxlb_set_ta_dir_ex2(wdir.c_str(), "w");
    EXPECT_EQ(length, 1112);
    EXPECT_EQ(g_vx_ta_dir_length, length);
    EXPECT_EQ(strlen(g_vx_ta_dir), sizeof g_vx_ta_dir - 1);
}

TEST_F(WorkDir, RelativeDirectoryOfTheEnvironmentNamesWorkspaceAndProfile) {
    const struct {
        const char *rta_dir;
        int result;
        const char *ta_dir;
    } cases[] = {
        {nullptr, 34, "/d/workspace/admin/default/maranth"},
        {"x/w/p/y", 24, "/d/workspace/w/p/maranth"},
        {"x/w/p/y/z/more", 24, "/d/workspace/w/p/maranth"},
        {"x/w/p", -1, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.rta_dir == nullptr ? "unset" : c.rta_dir);
        g_vx_ta_dir[0] = '\0';
        if (c.rta_dir != nullptr) {
            setenv("VX_RTA_DIR", c.rta_dir, 1);
        }
        EXPECT_EQ(vxlb_set_ta_dir("/d"), c.result);
        EXPECT_STREQ(g_vx_ta_dir, c.ta_dir);
        EXPECT_STREQ(getenv("VX_RTA_DIR"), c.rta_dir) << "the environment was cut";
    }
}

TEST_F(WorkDir, TextSelectsWorkspaceAndProfile) {
    const struct {
        const char *text;
        const char *workspace;
        const char *profile;
    } cases[] = {
        {"w/p", "w", "p"},    {"w", "admin", "default"}, {"w/p/x", "admin", "default"},
        {"", "kept", "kept"}, {nullptr, "kept", "kept"},
    };
    for (const auto &c : cases) {
        vxlb_set_workspace_profile("kept", "kept");
        vxlb_check_and_set_workspace_profile(c.text);
        EXPECT_STREQ(g_vx_workspace, c.workspace);
        EXPECT_STREQ(g_vx_profile, c.profile);
    }
}

TEST_F(WorkDir, OptionsChooseTheTestAssetsDirectory) {
    const std::string too_long(VXLB_RTA_DIR_SIZE, '/');
    const struct {
        int A, w, p;
        const char *field;
        const char *below; // "" where the directory is left alone
    } cases[] = {
        {1, 1, 1, "w/p", "/workspace/cw/cp/maranth"}, // the current selection
        {0, 0, 1, "w/p", "/workspace/admin/default/maranth"},
        {0, 1, 0, nullptr, ""},
        {0, 1, 0, "w/p", "/workspace/w/p/maranth"},
        {0, 1, 0, "w/p/extra", "/workspace/w/p/maranth"},
        {0, 1, 1, "w/p", "/workspace/w/p/maranth"},
        {0, 1, 0, "w", "/workspace/w"},
        {0, 0, 0, "w", "/workspace/w"},
        {0, 1, 1, "w", "/workspace/admin/default/maranth"},
        {0, 1, 0, "/", "/workspace/admin/default/maranth"},
        {0, 1, 0, "///", "/workspace/admin/default/maranth"},
        {0, 0, 0, "", ""},
        {0, 1, 1, "", "/workspace/admin/default/maranth"},
        {0, 1, 0, "/w", ""},
        {0, 1, 0, "w/", ""},
        {0, 1, 0, too_long.c_str(), ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.A << c.w << c.p << (c.field ? c.field : "null"));
        vxlb_init_wdir_wpdir();
        vxlb_set_workspace_profile("cw", "cp");
        g_vx_ta_dir[0] = '\0';
        vxlb_check_and_set_ta_dir(c.A, c.w, c.p, c.field);
        EXPECT_EQ(g_vx_ta_dir, *c.below == '\0' ? "" : WDIR + c.below);
    }
}

TEST_F(WorkDir, WorkspaceOptionIsKept) {
    EXPECT_STREQ(VXLB_GET_W_OPTION(), "");
    VXLB_SET_W_OPTION("a/b");
    EXPECT_STREQ(VXLB_GET_W_OPTION(), "a/b");
    VXLB_SET_W_OPTION(std::string(2000, 'x').c_str());
    EXPECT_EQ(strlen(VXLB_GET_W_OPTION()), 1023u);
}

TEST_F(WorkDir, SystemProfilesAreShownAsDefault) {
    char out[16];
    for (const auto &[input, shown] : {std::pair{"system", "default"},
                                       {"repo", "default"},
                                       {"System", "System"},
                                       {"qa", "qa"},
                                       {"", ""}}) {
        vxlb_get_profile_name(input, out);
        EXPECT_STREQ(out, shown);
    }
    vxlb_get_profile_name(nullptr, out);
    EXPECT_STREQ(out, "");
    vxlb_get_profile_name("x", nullptr);
}

TEST_F(WorkDir, ControllerIsTheLastComponentOfTheWorkDirectory) {
    char err[128] = "";
    signal(SIGCHLD, SIG_IGN); // as a parent may have left it
    const std::pair<const char *, const char *> cases[] = {
        {"/home/maranth/work", "work"},
        {"/tmp/$(touch /tmp/vx_hostile);x y", "vx_hostile);x y"},
        {"/d/it's", "it's"},
    };
    for (const auto &[wdir, name] : cases) {
        setenv("VX_WDIR", wdir, 1);
        EXPECT_EQ(set_vx_wdir_ex(err), 0);
        EXPECT_STREQ(g_vx_wdir, wdir);
        EXPECT_STREQ(g_controller_name, name);
    }
    EXPECT_NE(access("/tmp/vx_hostile", F_OK), 0);
    setenv("VX_WDIR", ("/" + std::string(100, 'c')).c_str(), 1);
    EXPECT_EQ(set_vx_wdir_ex(err), 0);
    EXPECT_EQ(g_controller_name, std::string(63, 'c'));
    EXPECT_STREQ(err, "");
    EXPECT_EQ(signal(SIGCHLD, SIG_DFL), SIG_IGN) << "the caller's handler is back";
}

TEST_F(WorkDir, AMissingWorkDirectoryIsExplained) {
    char err[128];
    EXPECT_EQ(set_vx_wdir_ex(err), -1);
    EXPECT_STREQ(err, "ZylErr[1000027]: Failed to get value of environment variable 'VX_WDIR'.");
    EXPECT_EXIT(set_vx_wdir(), testing::ExitedWithCode(255),
                "ZylErr.1000027.: Failed to get "
                "value of environment variable 'VX_WDIR'\\.\n$");
    setenv("VX_WDIR", "", 1); // `basename` has nothing to print
    EXPECT_EQ(set_vx_wdir_ex(err), -1);
    EXPECT_STREQ(err, "ZylErr[1000027]: Failed to get value of environment variable 'CONTROLLER'.");
}

TEST_F(WorkDir, SetVxWdirReturnsWhenAllIsWell) {
    setenv("VX_WDIR", "/x/y", 1);
    set_vx_wdir();
    EXPECT_STREQ(g_controller_name, "y");
}

} // namespace
