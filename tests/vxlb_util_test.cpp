// SPDX-License-Identifier: Apache-2.0
#include "trace_log.h"

#include <libvxcore/vxlb_util.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>
#include <thread>

namespace {

// Both tokenizers on "text delimiter limit": the fields in brackets. They write, so on a copy.
std::string cut(int cutter(char *, char **, const char *, int), const std::string &input) {
    const size_t limit = input.rfind(' '), token = input.rfind(' ', limit - 1);
    std::string text = input.substr(0, token);
    char *found[9] = {};
    const int count = cutter(text.data(), found, input.substr(token + 1, limit - token - 1).c_str(),
                             std::stoi(input.substr(limit)));
    std::string fields;
    for (int i = 0; i < count; i++) {
        fields += "[" + std::string(found[i]) + "]";
    }
    EXPECT_EQ(found[count], nullptr) << "a field behind the counted ones was stored";
    return fields;
}

TEST(Tokens, AreSplitAtAnyDelimiterAndEmptyFieldsSkipped) {
    const std::string cases = "/a//b/ / 7 -> [a][b];a,b,c,d , 3 -> [a][b][c];a,b , 2 -> [a][b];"
                              "a|b/c /| 7 -> [a][b][c];/// / 7 -> ;' / 7 -> ['];a,b , 0 -> ;";
    EXPECT_EQ(cases,
              retold(cases, [](const std::string &input) { return cut(get_tokens, input); }));
    EXPECT_EQ(cut(get_tokens, " / 7"), "");
    EXPECT_EQ(get_tokens(nullptr, nullptr, "/", 3), 0);
}

TEST(Tokens, AreSplitAtTheDelimiterString) {
    // Empty fields stay at both ends only. What follows a quoted field is dropped; a field may
    // begin with a quote of its own.
    const std::string cases =
        "/a//b/ / 7 -> [][a][b][];a//b / 7 -> [a][b];/a / 7 -> [][a];a/b/c/d / 3 -> [a][b][c];"
        "a/b / 2 -> [a][b];a--b-c -- 7 -> [a][b-c];a----b -- 7 -> [a][b];a  7 -> [a];a/b / 0 -> ;"
        "\"x/y\"/z/w / 7 -> [x/y\"][w];\"a\" / 7 -> [a\"];\"a\"/ / 7 -> [a\"];\"a/b / 7 -> [a][b];"
        "\" / 7 -> [];\"\"x\"/b / 7 -> [\"x\"];";
    EXPECT_EQ(cases,
              retold(cases, [](const std::string &input) { return cut(vxlb_get_tokens, input); }));
    EXPECT_EQ(cut(vxlb_get_tokens, " / 7"), "[]");
    EXPECT_EQ(vxlb_get_tokens(nullptr, nullptr, "/", 3), 0);
}

TEST(Util, NumbersAreDigitsOnly) {
    const std::string cases =
        "0 -> 1;1234567890123456789012 -> 1;12a -> 0;-1 -> 0;+1 -> 0;1.5 -> 0;1 1 -> 0;\xB2 -> 0;";
    EXPECT_EQ(cases, retold(cases, [](const std::string &c) {
                  return text("%d", vx_is_numeric(c.c_str()));
              }));
    EXPECT_EQ(1, vx_is_numeric(""));
    EXPECT_EQ(0, vx_is_numeric(nullptr));
}

TEST(Util, TimeIsLocalAndSignalsAreUnblockedAfterwards) {
    setenv("TZ", "UTC", 1);
    tzset();
    char date[VXLB_DATE_TIME_SIZE];
    struct tm tm;
    const auto date_now = [&] {
        const time_t now = time(nullptr);
        gmtime_r(&now, &tm);
        return text("%02d/%02d/%02d %02d:%02d:%02d", tm.tm_mon + 1, tm.tm_mday, tm.tm_year - 100,
                    tm.tm_hour, tm.tm_min, tm.tm_sec);
    };
    const std::string before = date_now();
    EXPECT_EQ(vxlb_get_cur_date_time(date, 0), date);
    EXPECT_TRUE(before == date || date_now() == date) << date; // a second may have passed
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    sigprocmask(SIG_BLOCK, &mask, nullptr);
    const time_t leap = 951782400, beyond = INT64_MAX;
    for (const int flag : {2, 1}) { // any flag but 1 leaves signals alone
        EXPECT_EQ(vxlb_localtime(&leap, &tm, flag), &tm);
        EXPECT_EQ("29/1/100", text("%d/%d/%d", tm.tm_mday, tm.tm_mon, tm.tm_year));
        sigprocmask(SIG_BLOCK, nullptr, &mask);
        EXPECT_EQ(sigismember(&mask, SIGUSR1), flag == 2);
    }
    EXPECT_EQ(vxlb_localtime(&beyond, &tm, 1), nullptr);
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

TEST(Util, ShellWordsAreQuotedWhereTheShellWouldReadThem) {
    std::string plain = "_.@+-", word(200, '\0');
    for (int c = 0; c < 26; c++) {
        plain += text("%c%c%d", 'a' + c, 'A' + c, c % 10);
    }
    for (const std::string &name : {plain, std::string(), std::string("/a,b")}) {
        EXPECT_EQ(name.size(), vxlb_shell_word(name.c_str(), "/,", word.data(), word.size()));
        EXPECT_EQ(name, word.c_str());
    }
    for (const char *hostile :
         {";", "`", "$", "\n", "*", "~", "\"", "\\", "\xC3", "=", "(", "/a b"}) {
        vxlb_shell_word(hostile, "", word.data(), word.size());
        EXPECT_EQ(text("'%s'", hostile), word.c_str());
    }
    EXPECT_EQ(9u, vxlb_shell_word("it's", "", word.data(), word.size()));
    EXPECT_STREQ("'it'\\''s'", word.c_str());
    EXPECT_EQ(4u, vxlb_shell_word("abcd", "", word.data(), 4));
    EXPECT_STREQ("abc", word.c_str());
    EXPECT_EQ(6u, vxlb_shell_word("'", "", nullptr, 0));
}

// --- work directory, workspace and profile -------------------------------------------------------

// Every test starts with nothing selected, as a process does.
struct WorkDir : testing::Test {
    WorkDir() {
        for (char *global : {g_vxlb_wdir, g_vx_workspace, g_vx_profile, g_vx_rta_dir, g_vx_ta_dir,
                             g_vxlb_w_option, g_vx_wdir, g_controller_name}) {
            global[0] = '\0';
        }
        unsetenv("VX_WDIR");
        unsetenv("VX_RTA_DIR");
    }
    // What is selected now, or behind a call.
    static std::string selected(int result = 0) {
        return text("%d %s/%s rta %s ta %s", result, g_vx_workspace, g_vx_profile, g_vx_rta_dir,
                    g_vx_ta_dir);
    }
};

TEST_F(WorkDir, ComesFromTheEnvironmentOrTheDefault) {
    for (const auto &[set, wdir] : {std::pair{"", "/home/maranth/work"}, {"/w", "/w"}}) {
        *set != 0 ? setenv("VX_WDIR", set, 1) : 0;
        EXPECT_EQ("0 admin/default rta  ta ", selected(vxlb_init_wdir_wpdir()));
        EXPECT_STREQ(g_vxlb_wdir, wdir);
    }
}

TEST_F(WorkDir, SettersRefuseNullAndEmptyArguments) {
    for (const char *bad : {static_cast<const char *>(nullptr), ""}) {
        for (const int refused :
             {vxlb_set_ta_dir_ex1(bad, "w", "p"), vxlb_set_ta_dir_ex1("/d", bad, "p"),
              vxlb_set_ta_dir_ex1("/d", "w", bad), vxlb_set_ta_dir_ex2(bad, "w"),
              vxlb_set_ta_dir_ex2("/d", bad), vxlb_set_ta_dir_ex(bad, "w"),
              vxlb_set_ta_dir_ex("/d", bad), vxlb_set_ta_dir(bad),
              vxlb_set_workspace_profile(nullptr, "p"), vxlb_set_workspace_profile("w", nullptr)}) {
            EXPECT_EQ("-1 / rta  ta ", selected(refused));
        }
    }
}

TEST_F(WorkDir, SettersDeriveTheTestAssetsDirectory) {
    const std::string rta = "rta workspace/w/p/maranth ta /d/";
    EXPECT_EQ("24 w/p " + rta + "workspace/w/p/maranth",
              selected(vxlb_set_ta_dir_ex1("/d", "w", "p")));
    EXPECT_EQ("14 v/p " + rta + "workspace/v", selected(vxlb_set_ta_dir_ex2("/d", "v")));
    EXPECT_EQ("13 v/p rta some/where ta /d/some/where",
              selected(vxlb_set_ta_dir_ex("/d", "some/where")));
    EXPECT_EQ("24 v/p rta workspace/v/p/maranth ta /d/workspace/v/p/maranth", // set to itself
              selected(vxlb_set_ta_dir_ex1("/d", g_vx_workspace, g_vx_profile)));
    const std::string name(300, 'n'), wdir(1100, 'd');
    EXPECT_EQ(vxlb_set_workspace_profile("ws", name.c_str()), 300);
    EXPECT_EQ(g_vx_profile, name.substr(0, 255));
    EXPECT_EQ(vxlb_set_ta_dir_ex2(wdir.c_str(), "w"), 1112);
    EXPECT_EQ(g_vx_ta_dir_length, 1112) << "tells that it was cut";
    EXPECT_EQ(strlen(g_vx_ta_dir), sizeof g_vx_ta_dir - 1);
}

TEST_F(WorkDir, EnvironmentAndTextsNameWorkspaceAndProfile) {
    EXPECT_EQ(vxlb_set_ta_dir("/d"), 34);
    EXPECT_STREQ(g_vx_ta_dir, "/d/workspace/admin/default/maranth");
    const std::string dirs = "x/w/p/y -> 24 w/p;x/v/q/y/z/more -> 24 v/q;x/w/p -> -1 v/q;";
    EXPECT_EQ(dirs, retold(dirs, [](const std::string &dir) {
                  setenv("VX_RTA_DIR", dir.c_str(), 1);
                  const std::string all = selected(vxlb_set_ta_dir("/d"));
                  EXPECT_EQ(dir, getenv("VX_RTA_DIR")) << "the environment was cut";
                  return all.substr(0, all.find(" rta"));
              }));
    vxlb_check_and_set_workspace_profile(nullptr);
    vxlb_check_and_set_workspace_profile("");
    EXPECT_STREQ(g_vx_workspace, "v");
    const std::string texts = "w/p -> w/p;w -> admin/default;w/p -> w/p;w/p/x -> admin/default;";
    EXPECT_EQ(texts, retold(texts, [](const std::string &name) {
                  vxlb_check_and_set_workspace_profile(name.c_str());
                  return text("%s/%s", g_vx_workspace, g_vx_profile);
              }));
}

TEST_F(WorkDir, OptionsChooseTheTestAssetsDirectory) {
    // Counts of -A, -w and -p and the argument of -w; nothing where the directory is left alone.
    const std::string cases =
        "111 w/p -> cw/cp/maranth;001 w/p -> admin/default/maranth;010 w/p -> w/p/maranth;"
        "010 w/p/extra -> w/p/maranth;011 w/p -> w/p/maranth;010 w -> w;000 w -> w;"
        "011 w -> admin/default/maranth;010 / -> admin/default/maranth;000 null -> ;010 null -> ;"
        "010 /// -> admin/default/maranth;011  -> admin/default/maranth;010 /w -> ;"
        "010 w/ -> ;000  -> ;"
        "010 " +
        std::string(VXLB_RTA_DIR_SIZE, '/') + " -> ;";
    EXPECT_EQ(cases, retold(cases, [](const std::string &input) {
                  const std::string field = input.substr(4);
                  vxlb_init_wdir_wpdir();
                  vxlb_set_workspace_profile("cw", "cp");
                  g_vx_ta_dir[0] = '\0';
                  vxlb_check_and_set_ta_dir(input[0] - '0', input[1] - '0', input[2] - '0',
                                            field == "null" ? nullptr : field.c_str());
                  return replaced(g_vx_ta_dir, "^/home/maranth/work/workspace/", "");
              }));
}

TEST_F(WorkDir, TheOptionIsKeptAndSystemProfilesShownAsDefault) {
    VXLB_SET_W_OPTION("a/b");
    EXPECT_STREQ(VXLB_GET_W_OPTION(), "a/b");
    VXLB_SET_W_OPTION(std::string(2000, 'x').c_str());
    EXPECT_EQ(strlen(VXLB_GET_W_OPTION()), 1023u);
    char out[16];
    const std::string names = "system -> default;repo -> default;System -> System;qa -> qa;";
    EXPECT_EQ(names, retold(names, [&](const std::string &name) {
                  vxlb_get_profile_name(name.c_str(), out);
                  vxlb_get_profile_name(nullptr, out);
                  vxlb_get_profile_name("x", nullptr);
                  return std::string(out);
              }));
}

TEST_F(WorkDir, ControllerIsTheLastComponentOfTheWorkDirectory) {
    char err[128] = "";
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
    for (const auto &[wdir, name] : std::map<std::string, std::string>{
             {"/home/maranth/work", "work"},
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
