// SPDX-License-Identifier: Apache-2.0
// The command as a process in small work directories; its table and its progress also within this
// process.
#include "work_tree.h"

#include "id_names.h"
#include "output.h"
#include "scenario_list.h"
#include "scenario_walk.h"
#include "selection.h"

#include <cstring>
#include <grp.h>
#include <pwd.h>
#include <set>
#include <sys/syscall.h>

namespace {

const std::string HEADER =
    "WorkProfile|Project|Subproject|Scenario|Owner|Group|Permission|Modification Date|Type\n";
const std::string USAGE =
    R"(Usage: vxu_show_scenarios [-A | -u <User Name>] [-p <project/subproject>] [-w <workspace_name>/<profile>] [-s <days>][-k <search keyword>]
Where: 
  -A is used to show all scenario, project/sub-project details that present in default profile
  -u is used to show scenario, project/sub-project details of specified User Name
  -p is used to show scenarios of given <project>/<sub-project> of specified workspace/profile with -w  option
  -w is used to show scenarios of given <workspace>/<profile>
  -W is used to show scenarios of given <workspace>
  -s is used to show scenarios of last s days modified
  -k is used to show scenarios which match with given keyword
   At a perticular time one of the option from -A,-u, -p, -w or -w AND -p should be used 
  -s and -k options should be used with one of the option -A,-u or -p
)";

std::string put(std::string in, const std::string &what, const std::string &by) {
    for (size_t at = 0; (at = in.find(what, at)) != std::string::npos; at += by.size()) {
        in.replace(at, what.size(), by);
    }
    return in;
}

// Standard streams are terminals, and each look at the clock takes a second.
bool g_is_watched;

} // namespace

// In place of libc's.
extern "C" int isatty(int) {
    return g_is_watched ? 1 : 0;
}
extern "C" int clock_gettime(clockid_t clock, struct timespec *now) {
    static time_t ticks;
    *now = {ticks++, 0};
    return g_is_watched ? 0 : static_cast<int>(syscall(SYS_clock_gettime, clock, now));
}

namespace {

struct Command : testing::Test {
    work_tree tree;
    const std::string mine = "|" + std::string(get_scenario_owner(geteuid())) + "|" +
                             std::string(get_scenario_group(getegid())) + "|";

    // Texts in one line: "$" stands for a newline, and "default|P|S|x CONF" is the row of a file that
    // the tests' own user made.
    std::string brief(std::string given) const {
        const std::string usual = mine + "RWD|03/07/2024 14:05:09|";
        given = put(put(put(given, USAGE, "USAGE"), HEADER, "HEADER"), tree.work, "WORK");
        return put(put(put(given, VX_COMMAND, "COMMAND"), usual, " "), "\n", "$");
    }
    // What a run gave: its rows and messages in alphabetical order, without profile "default"; or,
    // when it ended with a status other than 0, that and everything.
    std::string told(const std::string &line) const {
        const outcome result = tree.run(line);
        const std::string given = brief(result.out + result.err);
        if (result.status != 0) {
            return std::to_string(result.status) + " " + given;
        }
        EXPECT_TRUE(given.starts_with("HEADER")) << given;
        std::istringstream in(given.substr(6));
        std::multiset<std::string> rows;
        for (std::string row; std::getline(in, row, '$');) {
            rows.insert(", " + replaced(row, "^default\\|", ""));
        }
        std::string joined;
        for (const std::string &row : rows) {
            joined += row;
        }
        return joined.empty() ? "" : joined.substr(2);
    }
    void tells(const std::string &cases) const {
        EXPECT_EQ(cases, retold(cases, [this](const std::string &line) { return told(line); }));
    }
    // The table when the walk has found these files, in this order.
    std::string tabled(const std::string &paths, file_attributes file) const {
        std::istringstream in(paths);
        for (std::string path; in >> path;) {
            path = tree.scenario(path);
            EXPECT_TRUE(path_list_add(&scen_list, path, path.find("scenarios/") + 10, file));
        }
        g_output.used = 0;
        print_scenarios();
        return brief({g_output.bytes, g_output.used});
    }
};

TEST_F(Command, ExplainsWhatIsMissingOrWrong) {
    std::string cases =
        " -> 255 USAGE Error: provide at least one argument according to following condition$\n"
        "-A -A -> 255 vxu_show_scenarios: -A option cannot be specified more than once.$USAGE\n"
        "-p x -A -> 255 vxu_show_scenarios: Only one option can specify at a time.$USAGE\n"
        "-u x -p x -> 255 vxu_show_scenarios: Only one option can specify at a time.$USAGE\n"
        "-A -p x -> 255 vxu_show_scenarios: Only one option can specify at a time.$USAGE\n"
        "-w x -A -> 255 COMMAND: Only one option can specify at a time.$USAGE\n"
        "-x -> 255 USAGECOMMAND: invalid option -- 'x'$\n-p / -> 255 USAGE\n"
        "-A -T -> 255 USAGECOMMAND: option requires an argument -- 'T'$\n"
        "-s 7 -> 1 Error: -s or -k option should not be given independently.$ \n"
        "-W w -k x -> 1 Error: -s or -k option should not be given independently.$ \n"
        "-A -s 7x -> 255 Error: No of days can have only integer value$\n"
        "-w no/ne -> 1 Error: vxu_show_scenarios: Unable to chdir on WORK/workspace/no/ne/maranth$\n"
        "operand -> 1 Error: vxu_show_scenarios: Unable to chdir on $\n";
    const std::string wide(1024, 'w');
    for (const char letter : {'p', 'w', 'W', 'k', 'u'}) {
        const int limit = letter == 'u' ? 255 : 1023;
        cases +=
            text("-%cx -%cx -> 255 vxu_show_scenarios: -%c option cannot be specified more than "
                 "once.$USAGE\n",
                 letter, letter, letter);
        cases +=
            text("-%c%.*s -> 255 Error: vxu_show_scenarios: argument of -%c option is longer than "
                 "%d characters$\n",
                 letter, limit + 1, wide.c_str(), letter, limit);
        EXPECT_EQ(told(text("-%c%.*s", letter, limit, wide.c_str())).find("longer"),
                  std::string::npos);
    }
    tells(cases);
    tree.starter = "env VX_WDIR=" + wide;
    tells("-A -> 1 Error: vxu_show_scenarios: Unable to chdir on " + wide.substr(1) + "$\n");
    tree.starter = "env -u VX_WDIR";
    tells("-A -> 255 VX_WIDR is not set$\n");
    // Relative: gone once the command has changed into it.
    tree.starter = "env -C " + tree.top.string() + " VX_WDIR=work";
    tells("-A -> 1 HEADERError: Internal error, msg - nftw failed for workspace directory, "
          "No such file or directory$\n");
}

TEST_F(Command, ListsEveryKindOfScenario) {
    // Names with a dot of their own are never shown; a directory stands for the file beside it; the
    // first scenario file of a directory decides.
    tree.add(
        "P/S/flat.conf P/S/own.dot.conf P/S/twice.conf.conf P/S/.conf P/S/.hidden.conf "
        "P/S/other.txt P/S/demo.conf P/S/demo/scenario.json P/S/file.conf P/S/file "
        "PQ/S/json/scenario.json PQ/S/json/notes PQ/S/yaml/scenario.yaml PQ/S/jmx/scenario.jmx "
        "PQ/S/wzrd/scenario.wzrd PQ/S/no1/scenario.conf PQ/S/no2/x.scenario.json "
        "PQ/S/no3/xscenario.json PQ/S/.no4/scenario.json PR/S/d/scenario.json "
        "PR/S/d/scenario.yaml PR/S/d/scenario.jmx PF/S/fun/scenario.json PF/S/fun/.functional "
        "PF/S/dull/scenario.json PF/S/flat2.conf");
    tells("-p P -> P|S|demo JSON, P|S|file CONF, P|S|flat CONF, P|S|twice.conf CONF\n"
          "-p PQ -> PQ|S|jmx JMX, PQ|S|json JSON, PQ|S|wzrd WZRD, PQ|S|yaml YAML\n"
          "-A -t FunctionaL -> PF|S|fun JSON;-A -t other -k 'fun dull' -> PF|S|dull JSON;");
    EXPECT_EQ("PR|S|d ANY", replaced(told("-p PR"), "JSON|YAML|JMX", "ANY"));
    EXPECT_EQ(HEADER + "default|P|S|flat" + mine + "RWD|03/07/2024 14:05:09|CONF\n" +
                  "Total Filtered Records = 1, Total Records = 0\n",
              tree.run("-p P -g -k flat").out);
}

TEST_F(Command, EveryDepthHasItsRule) {
    // -W: all profiles of a workspace but "default". With -p it begins in admin/default anyway.
    tree.add("P/S/a.conf admin/system/P/S/b.conf admin/repo/Q/S/c.conf ws/system/R/S/d.conf "
             "ws/default/T/S/e.conf ws/default/T/S/f/deep/g.conf");
    const fs::path profile = tree.work / "workspace/ws/default";
    write_file(profile / "other/X/S/scenarios/h.conf", "x");
    write_file(profile / "maranth/X/S/elsewhere/i.conf", "x");
    tells("-A -> P|S|a CONF, Q|S|c CONF, R|S|d CONF, T|S|e CONF;-W ws -> R|S|d CONF;-w ws -> \n"
          "-w ws/default -> T|S|e CONF;-w ws/default/x -> T|S|e CONF;-w / -> P|S|a CONF\n"
          "-w ws -p P -> P|S|a CONF;-W ws -p P -> ;-W admin -> P|S|b CONF, Q|S|c CONF\n");
}

TEST_F(Command, ProjectsKeywordsAndAgesNarrowTheTable) {
    const std::string word(32, 'w'); // so many letters of a word count
    tree.add("P/S/a.conf P/ST/b.conf admin/default/myP/S/c.conf P/S/Login_Storm.conf "
             "P/S/dir_Soak/scenario.json P/S/" +
             word + ".conf");
    const time_t now = time(nullptr);
    tree.add("PA/S/new.conf", "x", now - 86400 + 600);
    tree.add("PA/S/old/scenario.json", "x", now - 86400 - 600);
    tree.add("PA/S/ahead.conf", "x", now + 600);
    tells(put(
        R"(-p P/T -> ;-p p -> ;-p P/ST -> P|ST|b CONF;-p /P//ST/x -> P|ST|b CONF;-p myP -> myP|S|c CONF
-A -k storm -> P|S|Login_Storm CONF;-A -k 'x y SOAK' -> P|S|dir_Soak JSON
-A -k 'x y z soak' -> ;-A -k scenario -> ;-p P/ST -k conf -> P|ST|b CONF;-p P/ST -k '' -> P|ST|b CONF
-A -k 32wcut -> P|S|32w CONF;-A -k 32cut -> ;)",
        "32w", word));
    const std::string ages = "0 -> ahead ;'' -> ahead ;1 -> ahead new ;2 -> ahead new old ;"
                             "99999999999999999999 -> ahead new old ;2147483648 -> ahead new old ;";
    EXPECT_EQ(ages, retold(ages, [&](const std::string &days) {
                  return replaced(told("-p PA -s " + days), "[^,]*S\\|([a-z]*)\\|[^,]*,?", "$1 ");
              }));
}

TEST_F(Command, LinksAreFollowedAndLostFilesShown) {
    tree.add("P/S/d/scenario.json P/S/flat.conf PQ/S/e/x");
    fs::create_symlink("../../S/scenarios/flat.conf", tree.scenario("P/S/again.conf"));
    fs::create_symlink("nowhere", tree.scenario("P/S/dangling.conf"));
    fs::create_symlink("../../../../../..", tree.scenario("P/S/up"));
    fs::create_symlink("nowhere",
                       tree.scenario("PQ/S/e/scenario.json")); // a short row, not counted
    tells(
        "-p P -> P|S|again CONF, P|S|d JSON, P|S|flat CONF\n-p PQ -g -> Error in getting stat of dir " +
        brief(tree.scenario("PQ/S/e/scenario.json")) +
        ".conf, PQ|S|e||JSON, Total Filtered Records = 0, Total Records = 0\n");
}

TEST_F(Command, NamesAndPlacesThatNoLineCanCarryAreLeftOut) {
    const std::string work = tree.work, start = "cd " + tree.top.string() + "; VX_WDIR=" + work;
    tree.add("P/S/a\nb.conf");
    tree.add("P/S/tab\tpipe|esc\x1b\xff.conf");
    tells("-p P -> P|S|tab\tpipe|esc\x1b\xff CONF;");
    EXPECT_EQ(0,
              system((start + " script -qec '" VX_COMMAND " -p P' seen </dev/null >out").c_str()));
    EXPECT_NE(file_text(tree.top / "seen").find("|tab?pipe|esc?\xff|"), std::string::npos);
    tree.starter = "env VX_WDIR=" + work + "//";
    tells("-A -k esc -> P|S|tab\tpipe|esc\x1b\xff CONF;");
    write_file(work + "/deeper/workspace/admin/default/maranth/P/S/scenarios/a.conf", "x");
    tree.starter = "env VX_WDIR=" + work + "/deeper"; // of another depth
    tells("-A -> ;");
}

TEST_F(Command, TracesTheWalk) {
    tree.add("P/S/d/scenario.json P/S/e/deep/x");
    fs::create_symlink("nowhere", tree.work / "workspace/admin/default/maranth/dead");
    const std::string root = "LOG: fpath: WORK/workspace/admin/default/maranth",
                      d = ", typeflag - 1, ";
    tells(put(
        put(put("-p P -d -> @, # 0^@/P, # 1^@/P/S, # 2^@/P/S/scenarios, # 3^@/P/S/scenarios/d, # 4^"
                "@/P/S/scenarios/d/scenario.json, # 5, typeflag - 0, @/P/S/scenarios/e, # 4^"
                "@/P/S/scenarios/e/deep, # 5^@/P/S/scenarios/e/deep/x, # 6, typeflag - 0, "
                "@/dead, # 1, typeflag - 6, P|S|d JSON\n",
                "@", root),
            "#", "level -"),
        "^", d));
    for (const size_t size : {size_t{8192}, size_t{99999}}) { // however long a path is
        const std::string wide(size, 'w');
        EXPECT_EQ(wide, said([&] { report_error("%s", wide.c_str()); }));
    }
    g_is_watched = true; // a terminal gets no control bytes but the end of the line
    EXPECT_EQ("a?[1m?\n", said([] { report_error("%s\n", "a\x1b[1m\x7f"); }));
    EXPECT_EQ("a?\n ", said([] { report_error("a\a\n "); }));
    g_is_watched = false;
}

// --- within this process -------------------------------------------------------------------------

TEST_F(Command, ARowIsMadeOfItsPath) {
    // The entry's name has the last word on the type. A key is the row's text up to the first
    // suffix, without workspace and profile; an empty one repeats nothing but another.
    const std::string cases =
        "w/f/P/S/a.conf w/f/P/S/b.conf w/f/P/S/a.conf -> f|P|S|a CONF$f|P|S|b CONF$f|P|S|a CONF$\n"
        "w/f/P/S/c.conf w/f/P/S/c.conf v/g/P/S/c.conf -> f|P|S|c CONF$\n"
        "w/f/P/S/e.conf w/f/P/S/e/scenario.jmx -> f|P|S|e CONF$\n"
        "w/f/P.conf/S/a.conf w/f/P.conf/T/b.conf -> f|P.conf|S|a CONF$\n"
        "w/f/Q/S/a.b.conf w/f/Q/S/a.b.conf.conf w/f/Q/T/a.conf -> f|Q|T|a CONF$\n"
        "w/f/.conf/S/a.conf w/f/.conf/T/a.conf -> f|.conf|S|a CONF$\n"
        "w/f/P/b.yaml/c/scenario.json w/f/P/b.yaml/d/scenario.json -> f|P|b.yaml|c JSON$\n"
        "w/f/P/S/a.jmx.yaml/scenario.json w/f/P/S/a.jmxx/scenario.json -> f|P|S|a.jmx.yaml JMX$\n"
        "w/f/P/S/x.yaml/scenario.json w/f/P/S/y.wzrd.b/scenario.yaml -> f|P|S|x.yaml YAML$"
        "f|P|S|y.wzrd.b WZRD$\n"
        "w/f/P/S/k/scenario.conf w/f/P/S/l/xscenario.json w/f/P/S/.m/scenario.json -> f|P|S|k CONF$\n"
        "w/f/P/S/o/p/scenario.json w/f/P/S w/f/P/S/.q.conf -> \n"
        "w/system/P/S/r.conf w/repo/P/S/s.conf -> default|P|S|r CONF$default|P|S|s CONF$\n";
    const file_attributes usual = {FILE_TIME, geteuid(), getegid(), 0600};
    const auto of_paths = [&](const std::string &paths) { return tabled(paths, usual); };
    usr_id = geteuid();
    EXPECT_EQ(cases, retold(cases, of_paths));
    all = w_set = 1;
    EXPECT_EQ(
        "default|P|S|t CONF$f|P|S|u CONF$",
        of_paths(
            "w/default/P/S/a.conf admin/system/P/S/b.conf w/system/P/S/t.conf w/f/P/S/u.conf"));
    all = w_set = 0;
    // A file that was gone when it was found, and is back, or has become a flat one.
    tree.add("P/S/back.conf P/S/flat.conf");
    EXPECT_EQ("default|P|S|back CONF$default|P|S|flat CONF$",
              tabled("P/S/back.conf P/S/flat/scenario.conf", {}));
}

TEST_F(Command, ARowShowsOwnerGroupPermissionAndTime) {
    usr_id = 5;
    usr_primary_grp_id = 6;
    usr_secondry_grp_id = 7;
    int number = 0; // of the file, so that none repeats another
    const std::string cases =
        "5 9 0600 -> RWD;5 9 0400 -> R--;5 9 0200 -> -WD;5 9 0077 -> ---;"
        "8 6 0640 -> RWD;8 6 0440 -> R--;8 7 0220 -> -WD;8 7 0020 -> ---;8 0 0770 -> ---;"
        "8 9 0004 -> R--;8 9 0002 -> -WD;8 9 0006 -> RWD;8 9 0770 -> ---;3999999997 9 0004 -> R--;";
    EXPECT_EQ(cases, retold(cases, [&](const std::string &owner_group_mode) {
                  file_attributes file = {INT64_MAX, 0, 0, 0}; // a time that no calendar has
                  sscanf(owner_group_mode.c_str(), "%u %u %ho", &file.uid, &file.gid, &file.mode);
                  const passwd *user = getpwuid(file.uid);
                  const group *users = getgrgid(file.gid);
                  return replaced(tabled(text("P/S/p%d.conf", number++), file),
                                  text(".*[|]%s[|]%s[|](...)[|]00/00/0000 00:00:00[|]CONF.",
                                       user ? user->pw_name : "UNKNOWN",
                                       users ? users->gr_name : "UNKNOWN"),
                                  "$1");
              }));
    usr_id = 0;
}

// In one piece, in a list that shares the beginnings of paths; and somebody who waits at a terminal
// sees how far the walk is.
TEST_F(Command, ManyRowsArriveWhole) {
    std::string expected;
    for (int i = 1000; i < 3500; i++) {
        tree.add(text("P/%0200d/scenario_%d.conf", i / 50, i), "");
        expected += text("%sP|%0200d|scenario_%d CONF", i == 1000 ? "" : ", ", i / 50, i);
    }
    EXPECT_EQ(expected, told("-A"));
    const std::string work = tree.work;
    vx_wdir = work.c_str();
    all = 1;
    const size_t used = scen_list.used;
    for (const bool is_watched : {true, false}) {
        g_is_watched = is_watched;
        EXPECT_EQ(
            replaced(said(scan_scen_list), "(\r[0-9]*[02468] entries seen){5}\r\x1b\\[K", "SEEN"),
            is_watched ? "SEEN" : "");
    }
    all = 0;
    EXPECT_LT(scen_list.used - used, 2 * (2500 * 50 + 50 * 300));
}

// --- users ---------------------------------------------------------------------------------------

TEST_F(Command, AUserSeesTheProjectsOfTheRows) {
    tree.add("P/S/a.conf P/T/b.conf PQ/T/c.conf ws/prof/P/S/d.conf");
    std::string many;
    const std::string x(243, 'x'), y(255, 'y');
    for (int i = 1; i < 1000; i++) {
        many += text("ws|prof|x%d|S&", i);
    }
    // The last row decides where to look; one with fewer fields, or too long a one, is skipped; 511
    // bytes of a line count.
    std::string cases = R"(User Name|x|y|z&ws|prof|Z|All&maranth|default|P|S& -> P|S|a CONF
ws|prof|P|All -> IN_WS;|ws||prof|P|S|more&admin|default|PQ& -> IN_WS
ws|prof|P|All&admin|default|P|*& -> P|S|a CONF, P|T|b CONF
ws|prof|P|All&yY|prof|P|S&a|b|c|d|yY -> IN_WS;ws|prof|P|S|X|YyAll|All|c|d&ws|prof|Z|Z -> IN_WS
admin|default|Z|Z&ws|All&admin|default|Z|Z& -> PQ|T|c CONF, P|S|a CONF, P|T|b CONF, IN_WS
MANYws|prof|P|All& -> IN_WS;MANYws|prof|P|All&admin|All|P|S& -> WARNING, IN_WS
)";
    cases = put(put(cases, "X|Yy", x + "|" + y + "y|"), "yY", "y" + y);
    cases = put(put(put(cases, "IN_WS", "prof|P|S|d CONF"), "MANY", many), "WARNING",
                "Warning: vxu_show_scenarios: project rows beyond 1000 are ignored");
    EXPECT_EQ(cases, retold(cases, [&](const std::string &rows) {
                  tree.rows(put(rows, "&", "\n"));
                  return told("-u alice");
              }));
    tree.rows("ws|prof|P|S\n"); // the privileged see every place, through the filter of their rows
    tells("-W ws -u alice -> prof|P|S|d CONF;-u admin -> P|S|a CONF, prof|P|S|d CONF\n"
          "-u maranth -> P|S|a CONF, prof|P|S|d CONF;-u adminx -> prof|P|S|d CONF\n");
    tree.rows("");
    tells("-u bob -> 1 Error: vxu_show_scenarios: Unable to chdir on $\n");
    tree.helper("vxu_check_user", "echo no >&2; exit 3");
    tells("-u bob -x -> 255 no$\n"); // refused without a word of its own
}

// Of the groups that id prints two count; with one, the second is 0. Needs root, to run as somebody else.
TEST_F(Command, TheCallersGroupsCount) {
    if (geteuid() != 0 || getpwuid(65534) == nullptr || getpwuid(3999999997) != nullptr) {
        GTEST_SKIP();
    }
    tree.add("P/S/a.conf");
    tree.starter = "setpriv --reuid=65534 --regid=65534 --clear-groups env";
    std::string seen;
    for (const gid_t group : {7001u, 7002u, 7003u, 0u, 0u}) {
        const std::string file = tree.scenario("P/S/a.conf");
        EXPECT_EQ(chown(file.c_str(), 8, group) + chmod(file.c_str(), 0640), 0);
        seen += replaced(told("-p P"), "P.S.a.[^|]*.[^|]*.([^|]*).*", "$1");
        tree.helper("id", group == 0 ? "echo 7001" : "echo 7001 7002 7003");
    }
    EXPECT_EQ(seen, "RWDRWD------RWD");
    EXPECT_EQ(tree.arguments_of("id"), getpwuid(65534)->pw_name + std::string("\n-G\n"));
    tree.starter = "setpriv --reuid=3999999997 --regid=65534 --clear-groups env";
    tells("-p P -k none -> Error: Can not get groups id.;");
}

// --- tags ----------------------------------------------------------------------------------------

TEST_F(Command, TagsAreMatchedInAnyPartIgnoringCase) {
    const std::string frame = R"({"scenario": {"name": "x", "TAGS": {"_G": [[#]]}}})";
    const std::string smoke = put(frame, "#", "\"smoke\""), wide(100000, 's');
    std::istringstream tags(R"("a", "NightlySmoke1"
"smo\u006bE"
"smo\\u004be"
"smo\u00e9\u0000\/ke"
"a", "smo", "ke"
"smo\\u00g1ke"
"smo\\u00"
smoke, 1)");
    std::vector<std::string> files = {smoke, put(smoke, "x", wide.substr(91000)),
                                      put(frame, "#", "\"" + wide + "smoke\"")};
    for (std::string each; std::getline(tags, each);) {
        files.push_back(put(frame, "#", each));
    }
    files.insert(files.end(), {"[" + smoke + "]", R"({"scenario": {"smoke": 1}})",
                               smoke.substr(0, smoke.size() - 2), smoke.substr(0, 50) + '\0'});
    for (size_t i = 0; i < files.size(); i++) {
        tree.add(text("P/S/%c.conf", static_cast<char>('a' + i)), files[i]);
    }
    EXPECT_EQ(replaced(told("-p P -T Smoke"), "P.S.(.) CONF,? ?", "$1"), "abcdefg");
    const std::string fifteen = put("###############", "#", " -T none"); // one more counts
    tells("-p P -k a" + fifteen + " -T SMOKE -> P|S|a CONF;-p P" + fifteen +
          " -T none -T smoke -> ;");
    const std::string fifo = tree.scenario("PQ/S/x.conf"); // never opened
    fs::create_directories(tree.scenario("PQ/S/"));
    mkfifo(fifo.c_str(), 0600);
    tells(put("-p PQ -T smoke -> Failed to parse JSON: #, error - Failed to open input file '#', "
              "error: Invalid argument;",
              "#", brief(fifo)));
}

// --- surroundings --------------------------------------------------------------------------------

TEST_F(Command, LostOutputIsNoticed) {
    tree.add("P/S/a.conf");
    const std::string lost = " -> 1 Error: vxu_show_scenarios: write error: ";
    tells("-A >/dev/full" + lost + "No space left on device$\n-A >&-" + lost +
          "Bad file descriptor$\n-A <&- >&-" + lost + "Bad file descriptor$\n" +
          "-A <&- 2>&- -> P|S|a CONF\n");
    EXPECT_EQ(tree.run("-x >/dev/full").status, 255);
    if (geteuid() == 0 && system("unshare -m true") == 0) {
        tree.starter = "unshare -m sh -c 'mount -t tmpfs none /dev && exec \"$@\"' sh";
        tells("-A <&- -> 1 Error: vxu_show_scenarios: /dev/null: No such file or directory$;");
    }
    g_output.used = 0; // nothing is left to write: only the close can tell
    EXPECT_EXIT((close(STDOUT_FILENO), finish(0)), testing::ExitedWithCode(1), "error: Bad file");
}

TEST_F(Command, SurroundingsChangeNothing) {
    tree.add("ws/prof/P/S/d.conf");
    tree.rows("ws|prof|\xe9|S\nws|prof|P|S\n");
    // Nobody waits for it. Inherited as it is, the signal's setting would hide how a helper ended.
    tree.helper("id", "[ -z \"$POSIXLY_CORRECT\" ] && echo 7001 && exec >&- 2>&- && sleep 125 &");
    tree.starter = "env --ignore-signal=CHLD POSIXLY_CORRECT=1 IFS=o LC_ALL=C.UTF-8";
    tells("-u alice -> prof|P|S|d CONF;");
}

} // namespace
