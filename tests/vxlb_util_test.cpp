// SPDX-License-Identifier: Apache-2.0
// What the models of fuzz_tokens and fuzz_work_dir leave out.
#include "trace_log.h"

#include <libvxcore/vxlb_util.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

namespace {

TEST(Util, NullTextsHaveNoFieldsAndNoDigits) {
    EXPECT_EQ(0, get_tokens(nullptr, nullptr, "/", 3));
    EXPECT_EQ(0, vxlb_get_tokens(nullptr, nullptr, "/", 3));
    EXPECT_EQ(0, vx_is_numeric(nullptr));
}

TEST(Util, ErrorTextsBelongToTheThread) {
    EXPECT_STREQ(vxlb_strerror(ENOENT), "No such file or directory");
    EXPECT_STREQ(vxlb_strerror(99999), "Unknown error 99999");
    vxlb_set_error("mine");
    std::thread([] {
        EXPECT_STREQ(vxlb_get_error(), "");
        vxlb_set_error("theirs");
    }).join();
    vxlb_set_error(nullptr);
    EXPECT_STREQ(vxlb_get_error(), "mine");
    const std::string longest(256, 'x');
    vxlb_set_error((longest + "y").c_str());
    vxlb_set_error(vxlb_get_error());
    EXPECT_EQ(vxlb_get_error(), longest);
}

// --- work directory, workspace and profile -------------------------------------------------------

TEST(WorkDir, ControllerIsTheLastComponentOfTheWorkDirectory) {
    char err[128] = "";
    unsetenv("VX_WDIR");
    EXPECT_EQ(set_vx_wdir_ex(err), -1);
    const std::string failed = "ZylErr[1000027]: Failed to get value of environment variable '";
    EXPECT_EQ(failed + "VX_WDIR'.", err);
    EXPECT_EXIT(set_vx_wdir(), testing::ExitedWithCode(255),
                "^ZylErr.1000027.: Failed.*'VX_WDIR'\\.\n$");
    setenv("VX_WDIR", "", 1); // `basename` has nothing to print
    EXPECT_EQ(set_vx_wdir_ex(err), -1);
    EXPECT_EQ(failed + "CONTROLLER'.", err);
    signal(SIGCHLD, SIG_IGN); // as a parent may have left it
    const std::string longest = "/" + std::string(100, 'c');
    for (const auto &[wdir, name] : {std::pair<std::string, std::string>{"/home/work", "work"},
                                     {"/tmp/$(touch /tmp/vx_hostile);x y", "vx_hostile);x y"},
                                     {"/d/it's", "it's"},
                                     {longest, longest.substr(1, 63)}}) {
        setenv("VX_WDIR", wdir.c_str(), 1);
        set_vx_wdir();
        EXPECT_EQ(wdir, g_vx_wdir);
        EXPECT_EQ(name, g_controller_name);
    }
    EXPECT_NE(access("/tmp/vx_hostile", F_OK), 0);
    EXPECT_EQ(signal(SIGCHLD, SIG_DFL), SIG_IGN) << "the caller's handler is back";
}

} // namespace
