// SPDX-License-Identifier: Apache-2.0
// The command as a process, in small work directories.
#include "work_tree.h"

namespace {

const std::string USAGE =
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
    "   At a perticular time one of the option from -A,-u, -p, -w or -w AND -p should be used \n"
    "  -s and -k options should be used with one of the option -A,-u or -p\n";

using words = std::vector<std::string>;

struct Command : testing::Test {
    const passwd *me = getpwuid(geteuid());
    const group *my_group = getgrgid(getegid());
    const std::string mine =
        text("|%s|%s|", me ? me->pw_name : "UNKNOWN", my_group ? my_group->gr_name : "UNKNOWN");
    work_tree tree;

    // The arguments of a line: "^" stands for a blank in one of them.
    static words arguments_of(const std::string &line) {
        std::istringstream in(line);
        words arguments;
        for (std::string word; in >> word;) {
            arguments.push_back(replaced(word, "\\^", " "));
        }
        return arguments;
    }
    // Everything a run gave, in one line. "$" stands for a newline.
    std::string all_of(const outcome &result) const {
        const size_t usage = result.out.find(USAGE);
        std::string out = result.out;
        usage != std::string::npos ? out.replace(usage, USAGE.size(), "USAGE") : out;
        out = text("%d ", result.status) + replaced(out + result.err, "\n", "$");
        return replaced(replaced(out, tree.work, "WORK"), VX_COMMAND, "COMMAND");
    }
    std::string run(const std::string &line, const char *redirections = "") const {
        return all_of(tree.run(arguments_of(line), redirections));
    }
    // The rows of a table in alphabetical order, "P|S|x CONF" for one in profile "default". What
    // else a row shows of files that the tests' own user made stands where it differs.
    std::string list(const words &arguments) const {
        const outcome result = tree.run(arguments);
        const std::string usual = replaced(mine, "[|]", "[|]") + "RWD[|]03/07/2024 14:05:09[|]";
        const std::string out = replaced(result.out, usual, " ");
        if (!out.starts_with(HEADER)) {
            return all_of(result);
        }
        std::istringstream in(out.substr(strlen(HEADER)) + result.err);
        words rows;
        for (std::string row; std::getline(in, row);) {
            rows.push_back(replaced(row, "^default\\|", ""));
        }
        std::sort(rows.begin(), rows.end());
        std::string all;
        for (const std::string &row : rows) {
            all += (all.empty() ? "" : ", ") + row;
        }
        return all;
    }
    void expect_lists(const std::string &cases) const {
        EXPECT_EQ(cases, retold(cases, [this](const std::string &line) {
                      return list(arguments_of(line));
                  }));
    }
    void expect_runs(const std::string &cases) const {
        EXPECT_EQ(cases, retold(cases, [this](const std::string &line) { return run(line); }));
    }
};

TEST_F(Command, RefusesOptionsThatDoNotCombine) {
    for (const std::string args : {"-A -A", "-w a -w b", "-Wa -Wb", "-p a -p b", "-u a -u b",
                                   "-s1 -s2", "-k a -k b", "-gg"}) {
        EXPECT_EQ("255 vxu_show_scenarios: " + args.substr(0, 2) +
                      " option cannot be specified more than once.$USAGE",
                  run(args));
    }
    const std::string only_one = ": Only one option can specify at a time.$USAGE";
    for (const char *args : {"-A -u x", "-A -p x", "-A -w x", "-A -W x", "-u x -A", "-u x -p x",
                             "-u x -w x", "-u x -W x", "-p x -A", "-p x -u x", "-p x -W x"}) {
        EXPECT_EQ("255 vxu_show_scenarios" + only_one, run(args)) << args;
    }
    EXPECT_EQ("255 COMMAND" + only_one, run("-w x -A"));
    EXPECT_EQ("255 COMMAND" + only_one, run("-w x -u x"));
}

TEST_F(Command, ExplainsWhatIsMissingOrWrong) {
    expect_runs(
        " -> 255 USAGE Error: provide at least one argument according to following condition$\n"
        "-x -> 255 USAGECOMMAND: invalid option -- 'x'$\n-p / -> 255 USAGE\n"
        "-A -T -> 255 USAGECOMMAND: option requires an argument -- 'T'$\n"
        "-s 7 -> 1 Error: -s or -k option should not be given independently.$ \n"
        "-W w -k x -> 1 Error: -s or -k option should not be given independently.$ \n"
        "-A -s 7x -> 255 Error: No of days can have only integer value$\n"
        "-w no/ne -> 1 Error: vxu_show_scenarios: Unable to chdir on "
        "WORK/workspace/no/ne/maranth$\n"
        "operand -> 1 Error: vxu_show_scenarios: Unable to chdir on $\n");
    for (const char letter : {'p', 'w', 'W', 'k', 'u'}) {
        const int limit = letter == 'u' ? 255 : 1023;
        const std::string fits(static_cast<size_t>(limit), 'n');
        const std::string said = text(
            "255 Error: vxu_show_scenarios: argument of -%c option is longer than %d characters$",
            letter, limit);
        EXPECT_EQ(said, run(text("-%c %sn", letter, fits.c_str())));
        EXPECT_NE(said, run(text("-%c %s", letter, fits.c_str())));
    }
    tree.wdir() = "VX_WDIR=" + std::string(1024, 'w');
    EXPECT_EQ("1 Error: vxu_show_scenarios: Unable to chdir on " + std::string(1023, 'w') + "$",
              run("-A"));
    tree.wdir() = "VX_WDIR="; // chdir to the file system's own "workspace"
    EXPECT_EQ(tree.run({"-A"}).status, 1);
    tree.wdir() = "NO_WDIR=";
    EXPECT_EQ("255 VX_WIDR is not set$", run("-A"));
}

TEST_F(Command, ListsEveryKindOfScenario) {
    // Names with a dot of their own are never shown; a directory stands for the file beside it; the
    // first scenario file of a directory decides; its own name has the last word on the type.
    tree.add_all(
        "P/S/flat.conf P/S/own.dot.conf P/S/twice.conf.conf P/S/.conf P/S/.hidden.conf "
        "P/S/other.txt P/S/demo.conf P/S/demo/scenario.json P/S/file.conf P/S/file "
        "PQ/S/json/scenario.json PQ/S/json/notes PQ/S/yaml/scenario.yaml PQ/S/jmx/scenario.jmx "
        "PQ/S/wzrd/scenario.wzrd PQ/S/a.jmx/scenario.json PQ/T/b.yaml/scenario.json "
        "PQ/S/c.wzrd/scenario.json PQ/S/no1/scenario.conf PQ/S/no2/x.scenario.json "
        "PQ/S/no3/xscenario.json PQ/S/.no4/scenario.json PR/S/d/scenario.json "
        "PR/S/d/scenario.yaml PR/S/d/scenario.jmx");
    expect_lists("-p P -> P|S|demo JSON, P|S|file CONF, P|S|flat CONF, P|S|twice.conf CONF\n"
                 "-p PQ -> PQ|S|a.jmx JMX, PQ|S|c.wzrd WZRD, PQ|S|jmx JMX, PQ|S|json JSON, "
                 "PQ|S|wzrd WZRD, PQ|S|yaml YAML, PQ|T|b.yaml YAML\n");
    EXPECT_EQ(6u, list({"-p", "PR"}).find("|d ") + 2);
    EXPECT_EQ("0 " + replaced(HEADER, "\n", "$") + "default|P|S|flat" + mine +
                  "RWD|03/07/2024 14:05:09|CONF$"
                  "Total Filtered Records = 1, Total Records = 0$",
              run("-A -g -k flat"));
    tree.add_all(
        "PF/S/fun/scenario.json PF/S/fun/.functional PF/S/dull/scenario.json PF/S/flat.conf");
    expect_lists("-A -t FunctionaL -> PF|S|fun JSON;-A -t other -k fun^dull -> PF|S|dull JSON;");
}

TEST_F(Command, EveryDepthHasItsRule) {
    tree.add_all("P/S/a.conf admin/system/P/S/b.conf admin/repo/Q/S/c.conf ws/system/R/S/d.conf "
                 "ws/default/T/S/e.conf");
    const fs::path profile = tree.work / "workspace/ws/default";
    write_file(profile / "other/X/S/scenarios/f.conf", "x");
    write_file(profile / "maranth/X/S/elsewhere/g.conf", "x");
    write_file(profile / "maranth/X/S/scenarios/d/deep/h.conf", "x");
    // -W: all profiles of a workspace but "default". With -p it begins in admin/default anyway.
    expect_lists(
        "-A -> P|S|a CONF, Q|S|c CONF, R|S|d CONF, T|S|e CONF;-W ws -> R|S|d CONF;-w ws -> \n"
        "-w ws/default -> T|S|e CONF;-w ws/default/x -> T|S|e CONF;-w / -> P|S|a CONF\n"
        "-w ws -p P -> P|S|a CONF;-W ws -p P -> ;-W admin -> P|S|b CONF, Q|S|c CONF\n");
}

TEST_F(Command, ProjectsKeywordsAndAgesNarrowTheTable) {
    tree.add_all("P/S/a.conf P/ST/b.conf admin/default/myP/S/c.conf P/S/Login_Storm.conf "
                 "P/S/dir_Soak/scenario.json");
    const std::string word(32, 'w');
    tree.add("P/S/" + word + ".conf");
    expect_lists("-p P/T -> ;-p p -> ;-p P/ST -> P|ST|b CONF;-p /P//ST/x -> P|ST|b CONF;"
                 "-p myP -> myP|S|c CONF\n"
                 "-A -k storm -> P|S|Login_Storm CONF;-A -k x^y^SOAK -> P|S|dir_Soak JSON\n"
                 "-A -k x^y^z^soak -> ;-A -k scenario -> ;-p P/ST -k conf -> P|ST|b CONF\n"
                 "-A -k " +
                 word + "cut -> P|S|" + word + " CONF;-A -k " + word.substr(1) +
                 "x -> ;"); // 32 letters count
    EXPECT_EQ(list({"-A", "-k", ""}), list({"-A"}));
    const time_t now = time(nullptr);
    tree.add("PA/S/day.conf", "x", 0644, now - 86400 + 600);
    tree.add("PA/S/more/scenario.json", "x", 0644, now - 86400 - 600);
    tree.add("PA/S/ahead.conf", "x", 0644, now + 600);
    const std::string ages =
        "0 -> ahead ; -> ahead ;1 -> ahead day ;2 -> ahead day more ;"
        "99999999999999999999 -> ahead day more ;2147483648 -> ahead day more ;";
    EXPECT_EQ(ages, retold(ages, [&](const std::string &days) {
                  return replaced(list({"-p", "PA", "-s", days}) + ",",
                                  "[^,]*S\\|([a-z]*)\\|[^,]*,", "$1 ");
              }));
}

TEST_F(Command, RepeatedKeysCollapse) {
    // A key is the row's text up to the first suffix, without workspace and profile. An empty one
    // repeats nothing.
    tree.add_all(
        "P.config/S/a.conf P.config/S/b.conf PQ/b.yaml/a/scenario.json PQ/b.yaml/b/scenario.json "
        "one/a/R/S/x.conf one/b/R/S/x.conf admin/default/.confp/S/a.conf");
    const auto rows = [this](const words &arguments) {
        const std::string all = list(arguments);
        return std::count(all.begin(), all.end(), ',') + 1;
    };
    EXPECT_EQ(1, rows({"-p", "P.config"}));
    EXPECT_EQ(1, rows({"-p", "PQ"}));
    EXPECT_EQ(1, rows({"-W", "one"}));
    expect_lists("-p .confp -> .confp|S|a CONF;");
}

TEST_F(Command, LinksAreFollowedAndDirectoriesEnteredOnce) {
    tree.add_all("P/S/d/scenario.json P/S/flat.conf PQ/S/e/x");
    const fs::path dir = tree.scenario("P/S/");
    fs::create_directory_symlink(dir / "d", dir / "d" / "again");
    fs::create_symlink("flat.conf", dir / "again.conf");
    fs::create_symlink("nowhere", dir / "dangling.conf");
    fs::create_symlink("loop", dir / "loop");
    fs::create_directory_symlink(tree.work / "workspace", dir / "up");
    fs::create_symlink("nowhere",
                       tree.scenario("PQ/S/e/scenario.json")); // a short row, not counted
    const std::string gone = tree.scenario("PQ/S/e/scenario.json.conf");
    expect_lists("-p P -> P|S|again CONF, P|S|d JSON, P|S|flat CONF\n"
                 "-p PQ -g -> Error in getting stat of dir " +
                 gone +
                 ", PQ|S|e||JSON, "
                 "Total Filtered Records = 0, Total Records = 0\n");
}

TEST_F(Command, NamesAndPlacesThatNoLineCanCarryAreLeftOut) {
    tree.add("P/S/a\nb.conf");
    tree.add("P/S/tab\tpipe|esc\x1b\xff.conf");
    tree.add("P" + std::string(250, 'a') + "/" + std::string(250, 'b') + "/x.conf");
    expect_lists("-p P -> P|S|tab\tpipe|esc\x1b\xff CONF;");
    EXPECT_NE(list({"-A"}).find("bbb|x CONF"), std::string::npos);
    const std::string terminal =
        "script -qec 'env " + tree.wdir() + " TZ=UTC " VX_COMMAND " -p P' /dev/null </dev/null >";
    EXPECT_EQ(0, system((terminal + (tree.top / "typescript").string()).c_str()));
    EXPECT_NE(file_text(tree.top / "typescript").find("|tab?pipe|esc?\xff|"), std::string::npos);
    tree.wdir() += "//";
    expect_lists("-A -k esc -> P|S|tab\tpipe|esc\x1b\xff CONF;");
    write_file(tree.work / "deeper/workspace/admin/default/maranth/P/S/scenarios/a.conf", "x");
    tree.wdir() = "VX_WDIR=" + (tree.work / "deeper").string(); // of another depth
    EXPECT_EQ(list({"-A"}), "");
}

TEST_F(Command, TracesTheWalk) {
    tree.add("P/S/d/scenario.json");
    fs::create_symlink("nowhere", tree.work / "workspace/admin/default/maranth/dead");
    const std::string err = tree.run({"-p", "P", "-d"}).err;
    const std::string maranth = (tree.work / "workspace/admin/default/maranth").string();
    for (const char *entry :
         {", level - 0, typeflag - 1", "/P, level - 1, typeflag - 1",
          "/P/S, level - 2, typeflag - 1", "/P/S/scenarios/d, level - 4, typeflag - 1",
          "/P/S/scenarios/d/scenario.json, level - 5, typeflag - 0",
          "/dead, level - 1, typeflag - 6"}) {
        EXPECT_NE(err.find("LOG: fpath: " + maranth + entry + "\n"), std::string::npos)
            << entry << err;
    }
}

TEST_F(Command, AMissingStartEndsTheWalk) {
    tree.wdir() = "VX_WDIR=" + tree.work.filename().string();
    tree.start = tree.top; // relative: gone once the command has changed into it
    EXPECT_EQ("1 " + replaced(HEADER, "\n", "$") +
                  "Error: Internal error, msg - nftw failed for workspace "
                  "directory, No such file or directory$",
              run("-A"));
}

// --- users ---------------------------------------------------------------------------------------

TEST_F(Command, AUserSeesTheProjectsOfTheRows) {
    tree.add_all("P/S/a.conf P/T/b.conf PQ/T/c.conf ws/prof/P/S/d.conf");
    const std::string wide(256, 'w'),
        filler = std::string(200, 'x') + "|"; // 511 bytes of a line count
    const std::string both = "P|S|a CONF, prof|P|S|d CONF";
    const std::pair<std::string, std::string> cases[] = {
        {"User Name|x|y|z\nws|prof|Z|All\nmaranth|default|P|S\n",
         "P|S|a CONF"}, // the last row decides
        {"ws|prof|P|All", "prof|P|S|d CONF"},
        {"|ws||prof|P|S|more|fields\nadmin|default|PQ\n",
         "prof|P|S|d CONF"}, // a short row is skipped
        {"ws|prof|P|All\nadmin|default|P|*\n", "P|S|a CONF, P|T|b CONF"},
        {"ws|prof|P|All\n" + wide + "|prof|P|S\na|b|c|d|" + wide, "prof|P|S|d CONF"},
        {"ws|prof|P|S|" + filler + filler + filler + "a|All\nws|prof|Z|Z\n", "prof|P|S|d CONF"},
        {"admin|default|Z|Z\nws|All\nadmin|default|Z|Z\n",
         "PQ|T|c CONF, P|S|a CONF, P|T|b CONF, prof|P|S|d CONF"},
    };
    for (const auto &[rows, listed] : cases) {
        tree.rows(rows);
        EXPECT_EQ(listed, list({"-u", "alice"})) << rows;
    }
    expect_lists("-W ws -u alice -> prof|P|S|d CONF;");
    EXPECT_EQ(tree.arguments_of("vxu_check_user"), "alice\nvxu_show_scenarios\n");
    EXPECT_EQ(tree.arguments_of("vxu_show_projects"), "-u\nalice\n");
    tree.rows("ws|prof|P|S\n"); // the privileged see every place, through the filter of their rows
    expect_lists("-u admin -> " + both + ";-u maranth -> " + both +
                 ";-u adminx -> prof|P|S|d CONF;");
    std::string many;
    for (int i = 1; i < 1000; i++) {
        many += text("ws|prof|x%d|S\n", i);
    }
    tree.rows(many + "ws|prof|P|All\n");
    expect_lists("-u alice -> prof|P|S|d CONF;");
    tree.rows(many + "ws|prof|P|All\nadmin|All|P|S\n");
    expect_lists("-u alice -> Warning: vxu_show_scenarios: project rows beyond 1000 are ignored, "
                 "prof|P|S|d CONF;");
}

TEST_F(Command, ARefusedUserEndsTheRunWithoutAWord) {
    EXPECT_EQ(run("-u bob"), "1 Error: vxu_show_scenarios: Unable to chdir on $") << "no rows";
    tree.helper("vxu_check_user", "echo no >&2; exit 3");
    EXPECT_EQ(run("-u bob -x"), "255 no$");
}

TEST_F(Command, NamesReachTheHelpersWhole) {
    const std::string canary = tree.top / "canary";
    for (const std::string &name :
         {";touch " + canary, "$(touch " + canary + ")", "a'b;touch " + canary,
          std::string("new\nline"), std::string("* ~"), std::string(255, 'u'), std::string("-x")}) {
        tree.run({"-u", name});
        EXPECT_EQ(tree.arguments_of("vxu_check_user"), name + "\nvxu_show_scenarios\n");
        EXPECT_EQ(tree.arguments_of("vxu_show_projects"), "-u\n" + name + "\n");
        EXPECT_FALSE(fs::exists(canary)) << name;
    }
}

// Needs root, to run as somebody else, whose name is that of any entry of the user database.
TEST_F(Command, PermissionFollowsTheCaller) {
    constexpr uid_t caller = 65534, nobody_at_all = 3999999997;
    if (geteuid() != 0 || getpwuid(caller) == nullptr || getpwuid(nobody_at_all) != nullptr) {
        GTEST_SKIP();
    }
    tree.run_as = caller;
    const auto permission_of = [&](const std::string &owner_group_mode) {
        uid_t owner;
        gid_t group;
        mode_t mode;
        sscanf(owner_group_mode.c_str(), "%u %u %o", &owner, &group, &mode);
        tree.add("P/S/a.conf");
        const std::string file = tree.scenario("P/S/a.conf");
        EXPECT_EQ(chown(file.c_str(), owner, group) + chmod(file.c_str(), mode), 0);
        return replaced(list({"-A"}), "P.S.a.[^|]*.[^|]*.([^|]*).*", "$1");
    };
    const std::string cases =
        "65534 9 0600 -> RWD;65534 9 0400 -> R--;65534 9 0200 -> -WD;65534 9 0077 -> ---;"
        "8 7001 0640 -> RWD;8 7001 0440 -> R--;8 7002 0220 -> -WD;8 7002 0020 -> ---;"
        "8 7003 0770 -> ---;"
        "8 9 0004 -> R--;8 9 0002 -> -WD;8 9 0006 -> RWD;8 9 0770 -> ---;8 0 0040 -> ---;";
    EXPECT_EQ(cases, retold(cases, permission_of));
    EXPECT_EQ(tree.arguments_of("id"), std::string(getpwuid(caller)->pw_name) + "\n-G\n");
    tree.helper("id", "echo 7001"); // with one group the second is 0
    EXPECT_EQ("R--", permission_of("8 0 0040"));
    tree.run_as = nobody_at_all; // a caller and owners without names
    permission_of("3999999997 4294967294 0606");
    expect_lists(
        "-A -> Error: Can not get groups id., P|S|a|UNKNOWN|UNKNOWN|RWD|03/07/2024 14:05:09|CONF;");
}

TEST_F(Command, UnreadableDirectoriesArePassedOver) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to run as somebody else";
    }
    tree.run_as = 65534;
    tree.add_all("P/S/a.conf PQ/S/b.conf PR/S/c.conf");
    chmod(tree.scenario("PQ/S/").c_str(), 0);
    chmod(tree.scenario("PR/S/").c_str(), 0444); // names, but nothing behind them
    EXPECT_EQ(list({"-A"}), "P|S|a" + mine + "R--|03/07/2024 14:05:09|CONF");
    chmod((tree.work / "workspace").c_str(), 0111);
    EXPECT_EQ(run("-A"), "0 " + replaced(HEADER, "\n", "$"));
    EXPECT_NE(run("-A -d").find("workspace, level - 0, typeflag - 2$"), std::string::npos);
}

// --- tags ----------------------------------------------------------------------------------------

std::string tagged(const std::string &tags) {
    return R"({"scenario": {"name": "x", "TAGS": {"_G": [[)" + tags + "]]}}}";
}

TEST_F(Command, TagsAreMatchedInAnyPartIgnoringCase) {
    const struct {
        std::string text;
        const char *word;
        bool matches;
    } cases[] = {
        {tagged(R"("a", "NightlySmoke")"), "smoke", true},
        {tagged(R"("a", "b")"), "smoke", false},
        {tagged(R"("Smoke\u0054est")"), "smoketest", true},
        {tagged(R"("Smoke\\u0054est")"), "smoketest", true},
        {tagged(R"("caf\u00e9x")"), "cafx", true},
        {tagged(R"("ab\u0000cd")"), "abcd", true},
        {tagged(R"("ab\u007fcd")"), "ab\177cd", true},
        {tagged(R"("ab\\u00g1")"), "ab\\u00g1", true},
        {tagged(R"("ab\\u004")"), "ab\\u004", true},
        {tagged(R"("ab\/cd")"), "abcd", true},
        {tagged("1, 2"), "1", false},
        {tagged("\"" + std::string(100000, 'l') + "smoke\""), "lsmoke", true},
        {"{\"x\": \"" + std::string(9000, ' ') + "\", " + tagged("\"smoke\"").substr(1), "smoke",
         true},
        {tagged("\"smoke\"").substr(0, 40), "smoke", false},
        {R"({"scenario": {"smoke": 1}})", "smoke", false},
        {tagged(std::string("\"smoke\0\"", 8)), "smoke", false},
        {"[" + tagged("\"smoke\"") + "]", "smoke", false},
    };
    for (const auto &[file, word, matches] : cases) {
        tree.add("P/S/d/scenario.json", file);
        EXPECT_EQ(matches ? "P|S|d JSON" : "", list({"-A", "-T", word})) << file.substr(0, 100);
    }
    tree.add("PQ/S/flat.conf", tagged("\"smoke\""));
    std::string arguments = "-p PQ ";
    for (int i = 1; i < 16; i++) {
        arguments += "-T none ";
    }
    expect_lists(arguments + "-T SMOKE -> PQ|S|flat CONF;" + arguments +
                 "-T none -T SMOKE -> ;"); // 16 count
}

TEST_F(Command, OnlyRegularFilesAreOpenedAndOnlyForTags) {
    fs::create_directories(tree.scenario("P/S/d/scenario.json"));
    const std::string fifo = tree.scenario("P/S/x.conf"),
                      dir = tree.scenario("P/S/d/scenario.json");
    mkfifo(fifo.c_str(), 0600);
    const auto refusal = [](const std::string &path, const char *reason) {
        return "Failed to parse JSON: " + path + ", error - Failed to open input file '" + path +
               "', error: " + reason;
    };
    EXPECT_EQ(refusal(dir, "Is a directory") + ", " + refusal(fifo, "Invalid argument"),
              list({"-A", "-T", "smoke"}));
    EXPECT_NE(list({"-A"}).find("|x|"), std::string::npos);
}

// --- surroundings --------------------------------------------------------------------------------

TEST_F(Command, LostOutputIsNoticed) {
    tree.add("P/S/a.conf");
    const std::string lost = "1 Error: vxu_show_scenarios: write error: ";
    EXPECT_EQ(lost + "No space left on device$", run("-A", ">/dev/full"));
    EXPECT_EQ(lost + "Bad file descriptor$", run("-A", ">&-"));
    EXPECT_EQ(lost + "Bad file descriptor$", run("-A", "<&- >&-"));
    EXPECT_EQ(tree.run({"-x"}, ">/dev/full").status, 255);
    EXPECT_EQ(run("-A"), run("-A", "<&- 2>&-"));
}

TEST_F(Command, ManyRowsArriveWhole) {
    const fs::path dir = tree.scenario("P/S/");
    for (int i = 1000; i < 2200; i++) {
        write_file(dir / text("scenario_%d.conf", i), "");
    }
    const std::string out = tree.run({"-A"}).out;
    for (int i = 1000; i < 2200; i++) {
        EXPECT_NE(out.find(text("\ndefault|P|S|scenario_%d|", i)), std::string::npos);
    }
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1201);
    EXPECT_LT(65536u, out.size());
}

TEST_F(Command, SurroundingsChangeNothing) {
    tree.add("ws/prof/P/S/d.conf");
    tree.rows("ws|prof|P|S\n");
    tree.environment.insert(tree.environment.end(), {"POSIXLY_CORRECT=1", "IFS=o"});
    tree.helper("id", "[ -z \"$POSIXLY_CORRECT\" ] && ls /proc/self/fd >" +
                          (tree.top / "fds").string() +
                          "; echo 7001; exec >&- 2>&-; sleep 60"); // nobody waits for it
    const time_t begin = time(nullptr);
    // A shell sets it back; inherited as it is, it would hide how a helper ended.
    tree.helper("ignoring", "exec env --ignore-signal=CHLD " VX_COMMAND " -u alice");
    setenv("PATH", tree.environment[3].c_str() + strlen("PATH="), 1);
    setenv("VX_WDIR", tree.work.c_str(), 1);
    EXPECT_EQ(0, system(("ignoring >" + (tree.top / "out").string() + " 2>&1").c_str()));
    EXPECT_TRUE(file_text(tree.top / "out").starts_with(HEADER + std::string("prof|P|S|d|")));
    expect_lists("-u alice -> prof|P|S|d CONF;");
    EXPECT_EQ(file_text(tree.top / "fds"), "0\n1\n2\n3\n") << "the last one is its own";
    EXPECT_LT(time(nullptr) - begin, 30);
}

TEST_F(Command, TimesBeyondTheCalendarAreShownAsZero) {
    // Only some file systems keep such times; this one is in memory as a rule.
    char file[] = "/dev/shm/vxtXXXXXX";
    const int fd = mkstemp(file);
    const struct timespec times[] = {{INT64_MAX, 0}, {INT64_MAX, 0}};
    struct stat sb = {};
    if (fd < 0 || futimens(fd, times) != 0 || fstat(fd, &sb) != 0 || sb.st_mtime != INT64_MAX) {
        unlink(file);
        GTEST_SKIP() << "no file system that keeps such a time";
    }
    fs::create_directories(tree.scenario("P/S/"));
    fs::create_symlink(file, tree.scenario("P/S/a.conf"));
    EXPECT_NE(list({"-A"}).find("|00/00/0000 00:00:00|CONF"), std::string::npos);
    unlink(file);
    close(fd);
}

} // namespace
