// SPDX-License-Identifier: Apache-2.0
// The command as a process, in small work directories.
#include "work_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

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
const std::string ONLY_ONE = ": Only one option can specify at a time.\n";
const std::string REPEATED = " option cannot be specified more than once.\n";

using words = std::vector<std::string>;

long count_of(const std::string &text, char c) {
    return std::count(text.begin(), text.end(), c);
}

// A row of a file that the test's own user made, for root or for that user alike.
std::string row(const std::string &places, const std::string &type,
                const std::string &permission = "RWD") {
    return places + "|" + owner_of_tests() + "|" + group_of_tests() + "|" + permission +
           "|03/07/2024 14:05:09|" + type + "\n";
}

class Command : public testing::Test {
protected:
    work_tree tree;

    void expect_refused(const words &arguments, const std::string &out, const std::string &err,
                        int status) {
        const outcome result = tree.run(arguments);
        const std::string all = testing::PrintToString(arguments);
        EXPECT_EQ(result.out, out) << all;
        EXPECT_EQ(result.err, err) << all;
        EXPECT_EQ(result.status, status) << all;
    }
};

TEST_F(Command, RefusesOptionsThatDoNotCombine) {
    const std::string self = "vxu_show_scenarios";
    const std::string by_name = VX_COMMAND + ONLY_ONE;
    const struct {
        words arguments;
        std::string first_line;
    } cases[] = {
        {{"-A", "-A"}, self + ": -A" + REPEATED},
        {{"-w", "a", "-w", "b"}, self + ": -w" + REPEATED},
        {{"-Wa", "-Wb"}, self + ": -W" + REPEATED},
        {{"-p", "a", "-p", "b"}, self + ": -p" + REPEATED},
        {{"-u", "a", "-u", "b"}, self + ": -u" + REPEATED},
        {{"-s1", "-s2"}, self + ": -s" + REPEATED},
        {{"-k", "a", "-k", "b"}, self + ": -k" + REPEATED},
        {{"-gg"}, self + ": -g" + REPEATED},
        {{"-A", "-u", "x"}, self + ONLY_ONE},
        {{"-A", "-p", "x"}, self + ONLY_ONE},
        {{"-A", "-w", "x"}, self + ONLY_ONE},
        {{"-A", "-W", "x"}, self + ONLY_ONE},
        {{"-u", "x", "-A"}, self + ONLY_ONE},
        {{"-u", "x", "-p", "x"}, self + ONLY_ONE},
        {{"-u", "x", "-w", "x"}, self + ONLY_ONE},
        {{"-u", "x", "-W", "x"}, self + ONLY_ONE},
        {{"-p", "x", "-A"}, self + ONLY_ONE},
        {{"-p", "x", "-u", "x"}, self + ONLY_ONE},
        {{"-p", "x", "-W", "x"}, self + ONLY_ONE},
        {{"-w", "x", "-A"}, by_name},
        {{"-w", "x", "-u", "x"}, by_name},
        {{"-p", "/"}, ""},
    };
    for (const auto &c : cases) {
        expect_refused(c.arguments, c.first_line + USAGE, "", 255);
    }
}

TEST_F(Command, ExplainsWhatIsMissingOrWrong) {
    const std::string alone = "Error: -s or -k option should not be given independently.\n ";
    const std::string not_days = "Error: No of days can have only integer value\n";
    const std::string no_dir = "Error: vxu_show_scenarios: Unable to chdir on ";
    const std::string work = tree.work.string();
    expect_refused({}, USAGE,
                   " Error: provide at least one argument according to following condition\n", 255);
    expect_refused({"-x"}, USAGE, VX_COMMAND ": invalid option -- 'x'\n", 255);
    expect_refused({"-A", "-T"}, USAGE, VX_COMMAND ": option requires an argument -- 'T'\n", 255);
    expect_refused({"-s", "7"}, "", alone, 1);
    expect_refused({"-W", "w", "-k", "x"}, "", alone, 1);
    expect_refused({"-A", "-s", "7x"}, "", not_days, 255);
    expect_refused({"-w", "no/ne"}, "", no_dir + work + "/workspace/no/ne/maranth\n", 1);
    expect_refused({"operand"}, "", no_dir + "\n", 1);
    tree.environment.push_back("VX_WDIR=" + std::string(1024, 'w'));
    expect_refused({"-A"}, "", no_dir + std::string(1023, 'w') + "\n", 1);
    tree.environment.back() = "VX_WDIR=/" + std::string(1010, 'w');
    EXPECT_EQ(tree.run({"-A"}).status, 1);
    tree.environment.back() = "VX_WDIR="; // chdir to the file system's own "workspace"
    EXPECT_EQ(tree.run({"-A"}).status, 1);
}

TEST_F(Command, WantsItsWorkDirectory) {
    EXPECT_EQ(system(("unset VX_WDIR; " VX_COMMAND " 2>" + (tree.top / "e").string()).c_str()),
              255 << 8);
    EXPECT_EQ(read_file(tree.top / "e"), "VX_WIDR is not set\n");
}

TEST_F(Command, RefusesArgumentsThatDoNotFit) {
    const std::string refused = "Error: vxu_show_scenarios: argument of -";
    const std::string fits(1023, 'n'), longer(1024, 'n');
    for (const char letter : {'p', 'w', 'W', 'k'}) {
        const std::string option = std::string("-") + letter;
        const std::string message = refused + letter + " option is longer than 1023 characters\n";
        expect_refused({option, longer}, "", message, 255);
        EXPECT_EQ(tree.run({option, fits}).err.find(refused), std::string::npos) << option;
    }
    expect_refused({"-u", std::string(256, 'u')}, "",
                   refused + "u option is longer than 255 characters\n", 255);
    EXPECT_EQ(tree.rows_of({"-p", fits}), "");
}

TEST_F(Command, ListsEveryKindOfScenario) {
    tree.add("admin/default/P/S/flat.conf");
    tree.add("admin/default/P/S/dotted.name.conf"); // never shown
    tree.add("admin/default/P/S/twice.conf.conf");
    tree.add("admin/default/P/S/.conf");
    tree.add("admin/default/P/S/.hidden.conf");
    tree.add("admin/default/P/S/other.txt");
    EXPECT_EQ(tree.rows_of({"-p", "P", "-k", "flat"}), row("default|P|S|flat", "CONF"));
    EXPECT_EQ(tree.rows_of({"-p", "P", "-k", "twice"}), row("default|P|S|twice.conf", "CONF"));
    EXPECT_EQ(tree.rows_of({"-p", "P", "-k", "dotted hidden other"}), "");

    const std::pair<const char *, const char *> kinds[] = {
        {"json", "JSON"}, {"yaml", "YAML"}, {"jmx", "JMX"}, {"wzrd", "WZRD"}};
    for (const auto &[suffix, type] : kinds) {
        const std::string name = std::string("d_") + suffix;
        tree.add("admin/default/Q/S/" + name + "/scenario." + suffix);
        tree.add("admin/default/Q/S/" + name + "/notes.txt");
        EXPECT_EQ(tree.rows_of({"-p", "Q", "-k", name}), row("default|Q|S|" + name, type));
    }
    // The entry's own name has the last word, "conf" inside a directory is none, and nearly is not.
    tree.add("admin/default/Q/S/e.jmx/scenario.json");
    tree.add("admin/default/Q/S/f.yaml/scenario.json");
    tree.add("admin/default/Q/S/g.wzrd/scenario.json");
    tree.add("admin/default/Q/S/not_h/scenario.conf");
    tree.add("admin/default/Q/S/not_i/x.scenario.json");
    tree.add("admin/default/Q/S/not_j/xscenario.json");
    tree.add("admin/default/Q/S/.not_k/scenario.json");
    EXPECT_EQ(tree.rows_of({"-p", "Q", "-k", "e."}), row("default|Q|S|e.jmx", "JMX"));
    EXPECT_EQ(tree.rows_of({"-p", "Q", "-k", "f."}), row("default|Q|S|f.yaml", "YAML"));
    EXPECT_EQ(tree.rows_of({"-p", "Q", "-k", "g."}), row("default|Q|S|g.wzrd", "WZRD"));
    EXPECT_EQ(tree.rows_of({"-p", "Q", "-k", "not_"}), "");
}

TEST_F(Command, ADirectoryStandsForTheFileBesideIt) {
    tree.add("admin/default/P/S/demo.conf");
    tree.add("admin/default/P/S/demo/scenario.json");
    tree.add("admin/default/P/S/file.conf");
    tree.add("admin/default/P/S/file"); // no directory
    EXPECT_EQ(tree.rows_of({"-p", "P", "-k", "demo"}), row("default|P|S|demo", "JSON"));
    EXPECT_EQ(tree.rows_of({"-p", "P", "-k", "file"}), row("default|P|S|file", "CONF"));
}

TEST_F(Command, TheFirstScenarioFileDecides) {
    tree.add("admin/default/P/S/d/scenario.json");
    tree.add("admin/default/P/S/d/scenario.yaml");
    tree.add("admin/default/P/S/d/scenario.jmx");
    const std::string rows = tree.rows_of({"-p", "P"});
    EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), 1) << rows;
}

TEST_F(Command, FunctionalScenariosAreListedOnlyWhenAskedFor) {
    tree.add("admin/default/P/S/fun/scenario.json");
    tree.add("admin/default/P/S/fun/.functional");
    tree.add("admin/default/P/S/dull/scenario.json");
    tree.add("admin/default/P/S/flat.conf");
    EXPECT_EQ(tree.rows_of({"-A", "-t", "FunctionaL"}), row("default|P|S|fun", "JSON"));
    EXPECT_EQ(tree.rows_of({"-A", "-t", "other", "-k", "fun dull"}),
              row("default|P|S|dull", "JSON"));
}

TEST_F(Command, EveryDepthHasItsRule) {
    tree.add("admin/default/P/S/a.conf");
    tree.add("admin/system/P/S/b.conf");
    tree.add("admin/repo/Q/S/c.conf");
    tree.add("ws/system/R/S/d.conf");
    tree.add("ws/default/T/S/e.conf");
    write_file(tree.work / "workspace/ws/default/other/X/S/scenarios/f.conf", "x");
    write_file(tree.work / "workspace/ws/default/maranth/X/S/elsewhere/g.conf", "x");
    write_file(tree.work / "workspace/ws/default/maranth/X/S/scenarios/d/deep/h.conf", "x");
    const std::string a = row("default|P|S|a", "CONF"), c = row("default|Q|S|c", "CONF"),
                      d = row("default|R|S|d", "CONF"), e = row("default|T|S|e", "CONF");
    const std::string rows = tree.rows_of({"-A"});
    EXPECT_EQ(rows.size(), (a + c + d + e).size()) << rows;
    for (const auto &each : {a, c, d, e}) {
        EXPECT_NE(rows.find(each), std::string::npos) << each;
    }
    // A workspace, all its profiles but "default"; -A afterwards widens nothing but the start.
    EXPECT_EQ(tree.rows_of({"-W", "ws"}), d);
    EXPECT_EQ(tree.rows_of({"-w", "ws/default"}), e);
    EXPECT_EQ(tree.rows_of({"-w", "ws/default/x"}), e);
    EXPECT_EQ(tree.rows_of({"-w", "ws"}), ""); // a workspace is not named "maranth"
    EXPECT_EQ(tree.rows_of({"-w", "/"}), a);
    EXPECT_EQ(tree.rows_of({"-w", "ws", "-p", "P"}), a);
    EXPECT_EQ(tree.rows_of({"-W", "ws", "-p", "P"}), ""); // begins in admin/default, as a workspace
    EXPECT_EQ(tree.rows_of({"-W", "admin"}), c + row("default|P|S|b", "CONF"))
        << "or in the other order";
}

TEST_F(Command, ProjectsAreMatchedAtTheEndOfThePath) {
    tree.add("admin/default/P/S/a.conf");
    tree.add("admin/default/P/ST/b.conf");
    tree.add("admin/default/myP/S/c.conf");
    const std::string a = row("default|P|S|a", "CONF"), b = row("default|P|ST|b", "CONF");
    const std::string both = tree.rows_of({"-p", "P"});
    EXPECT_TRUE(both == a + b || both == b + a) << both;
    EXPECT_EQ(tree.rows_of({"-p", "P/S"}), a);
    EXPECT_EQ(tree.rows_of({"-p", "/P//ST/x"}), b);
    EXPECT_EQ(tree.rows_of({"-p", "P/T"}), "");
    EXPECT_EQ(tree.rows_of({"-p", "p"}), "");
}

TEST_F(Command, KeywordsMatchAnyWordIgnoringCase) {
    tree.add("admin/default/P/S/Login_Storm.conf");
    tree.add("admin/default/P/S/dir_Soak/scenario.json");
    const std::string login = row("default|P|S|Login_Storm", "CONF");
    const std::string soak = row("default|P|S|dir_Soak", "JSON");
    EXPECT_EQ(tree.rows_of({"-A", "-k", "storm"}), login);
    EXPECT_EQ(tree.rows_of({"-A", "-k", " x  y SOAK "}), soak);
    EXPECT_EQ(tree.rows_of({"-A", "-k", "x y z soak"}), ""); // three words count
    EXPECT_EQ(tree.rows_of({"-A", "-k", "scenario"}), "");   // the file's name does not
    EXPECT_EQ(tree.rows_of({"-A", "-k", "conf"}), login);    // but a flat file's suffix does
    EXPECT_EQ(tree.rows_of({"-A", "-k", ""}).size(), (login + soak).size());
    const std::string word(32, 'w');
    tree.add("admin/default/P/S/" + word + ".conf");
    EXPECT_EQ(tree.rows_of({"-A", "-k", word + "cut"}), row("default|P|S|" + word, "CONF"));
    EXPECT_EQ(tree.rows_of({"-A", "-k", word.substr(1) + "x"}), "");
}

TEST_F(Command, AgeIsCountedInDays) {
    const time_t now = time(nullptr);
    tree.add("admin/default/P/S/day.conf", "x", 0644, now - 86400 + 600);
    tree.add("admin/default/P/S/more/scenario.json", "x", 0644, now - 86400 - 600);
    tree.add("admin/default/P/S/ahead.conf", "x", 0644, now + 600);
    const auto names = [&](const char *days) {
        const std::string rows = tree.rows_of({"-A", "-s", days});
        return (rows.find("|day|") != std::string::npos ? "day " : "") +
               std::string(rows.find("|more|") != std::string::npos ? "more " : "") +
               (rows.find("|ahead|") != std::string::npos ? "ahead" : "");
    };
    EXPECT_EQ(names("0"), "ahead");
    EXPECT_EQ(names(""), "ahead");
    EXPECT_EQ(names("1"), "day ahead");
    EXPECT_EQ(names("2"), "day more ahead");
    EXPECT_EQ(names("99999999999999999999"), "day more ahead");
    EXPECT_EQ(names("2147483648"), "day more ahead");
}

TEST_F(Command, RepeatedKeysCollapse) {
    tree.add(
        "admin/my.config/x/S/a.conf"); // a key that is cut in the profile's name? no: not in it
    tree.add("admin/default/my.config/S/a.conf");
    tree.add("admin/default/my.config/S/b.conf");
    tree.add("admin/default/Q/b.yaml/a/scenario.json");
    tree.add("admin/default/Q/b.yaml/b/scenario.json");
    const auto count = [&](const char *project) {
        const std::string rows = tree.rows_of({"-p", project});
        return std::count(rows.begin(), rows.end(), '\n');
    };
    EXPECT_EQ(count("my.config"), 1);
    EXPECT_EQ(count("Q"), 1);
    // The same scenario in two profiles, one after the other, is one row.
    tree.add("one/a/R/S/x.conf");
    tree.add("one/b/R/S/x.conf");
    EXPECT_EQ(tree.rows_of({"-W", "one"}).find("a|R|S|x") == std::string::npos,
              tree.rows_of({"-W", "one"}).find("b|R|S|x") != std::string::npos);
}

TEST_F(Command, AnEmptyKeyRepeatsNothing) {
    tree.add("admin/default/.confp/S/a.conf");
    EXPECT_EQ(tree.rows_of({"-A"}), row("default|.confp|S|a", "CONF"));
}

TEST_F(Command, TotalsCountTheRows) {
    EXPECT_EQ(tree.rows_of({"-A", "-g"}), "Total Filtered Records = 0, Total Records = 0\n");
    tree.add("admin/default/P/S/a.conf");
    tree.add("admin/default/P/S/b.c.conf");
    EXPECT_EQ(tree.rows_of({"-gA"}),
              row("default|P|S|a", "CONF") + "Total Filtered Records = 1, Total Records = 0\n");
    // A file that can't be examined leaves a short row that does not count.
    fs::remove(tree.scenario("admin/default/P/S/a.conf"));
    const fs::path gone = tree.scenario("admin/default/P/S/d/scenario.json");
    fs::create_directories(gone.parent_path());
    fs::create_symlink("nowhere", gone);
    const outcome result = tree.run({"-A", "-g"});
    EXPECT_EQ(result.out, HEADER + std::string("default|P|S|d||JSON\n") +
                              "Total Filtered Records = 0, Total Records = 0\n");
    EXPECT_EQ(result.err, "Error in getting stat of dir " + gone.string() + ".conf\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(Command, LinksAreFollowedAndDirectoriesEnteredOnce) {
    tree.add("admin/default/P/S/d/scenario.json");
    tree.add("admin/default/P/S/flat.conf");
    const fs::path dir = tree.scenario("admin/default/P/S/");
    fs::create_directory_symlink(dir / "d", dir / "linked");
    fs::create_symlink("flat.conf", dir / "again.conf");
    fs::create_symlink("nowhere", dir / "dangling.conf");
    fs::create_symlink("loop", dir / "loop");
    fs::create_directory_symlink(tree.work / "workspace", dir / "up");
    const outcome result = tree.run({"-A"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_NE(result.out.find(row("default|P|S|again", "CONF")), std::string::npos);
    EXPECT_NE(result.out.find(row("default|P|S|flat", "CONF")), std::string::npos);
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 4) << result.out;
}

TEST_F(Command, NamesThatNoLineCanCarryAreLeftOut) {
    tree.add("admin/default/P/S/a\nb.conf");
    tree.add("admin/default/P/S/tab\tpipe|esc\x1b\xff.conf");
    std::string deep;
    for (int i = 0; i < 2; i++) {
        deep += "/" + std::string(250, static_cast<char>('a' + i));
    }
    tree.add("admin/default" + deep + "/x.conf");
    const std::string rows = tree.rows_of({"-A", "-k", "pipe a"});
    EXPECT_EQ(rows, row("default|P|S|tab\tpipe|esc\x1b\xff", "CONF"));
    EXPECT_NE(tree.rows_of({"-A"}).find("|x|"), std::string::npos);
}

TEST_F(Command, AWorkDirectoryOfAnotherDepthListsNothing) {
    write_file(tree.work / "deeper/workspace/admin/default/maranth/P/S/scenarios/a.conf", "x");
    tree.environment.push_back("VX_WDIR=" + (tree.work / "deeper").string());
    EXPECT_EQ(tree.rows_of({"-A"}), "");
    tree.environment.back() = "VX_WDIR=" + tree.work.string() + "//";
    tree.add("admin/default/P/S/a.conf");
    EXPECT_EQ(tree.rows_of({"-A"}), row("default|P|S|a", "CONF"));
}

TEST_F(Command, TracesTheWalk) {
    tree.add("admin/default/P/S/d/scenario.json");
    const fs::path file = tree.scenario("admin/default/P/S/d/scenario.json");
    fs::create_symlink("nowhere", tree.work / "workspace/admin/default/maranth/dead");
    std::string expected;
    int level = 0;
    for (fs::path at = tree.work / "workspace/admin/default/maranth"; level <= 5; level++) {
        const std::string line = "LOG: fpath: " + at.string() + ", level - " +
                                 std::to_string(level) + ", typeflag - " +
                                 (level < 5 ? "1\n" : "0\n");
        EXPECT_NE(tree.run({"-p", "P", "-d"}).err.find(line), std::string::npos) << line;
        const fs::path rest = file.lexically_relative(at);
        at /= *rest.begin();
    }
    EXPECT_NE(tree.run({"-p", "P", "-d"}).err.find("dead, level - 1, typeflag - 6\n"),
              std::string::npos);
    EXPECT_EQ(tree.rows_of({"-p", "P", "-d"}), row("default|P|S|d", "JSON"));
}

TEST_F(Command, AMissingStartEndsTheWalk) {
    fs::remove_all(tree.work / "workspace");
    write_file(tree.work / "workspace", "x"); // so that chdir fails first
    EXPECT_EQ(tree.run({"-A"}).status, 1);
    fs::remove(tree.work / "workspace");
    tree.environment.push_back("VX_WDIR=" + tree.work.filename().string());
    fs::create_directories(tree.work / "workspace/admin/default/maranth");
    tree.start = tree.top;
    const outcome result = tree.run({"-A"}); // relative: gone once the command has changed into it
    EXPECT_EQ(result.out, HEADER);
    EXPECT_EQ(result.err, "Error: Internal error, msg - nftw failed for workspace directory, No "
                          "such file or directory\n");
    EXPECT_EQ(result.status, 1);
}

// --- users ---------------------------------------------------------------------------------------

TEST_F(Command, AUserSeesTheProjectsOfTheRows) {
    tree.add("admin/default/P/S/a.conf");
    tree.add("admin/default/P/T/b.conf");
    tree.add("admin/default/Q/T/c.conf");
    tree.add("ws/prof/P/S/d.conf");
    const std::string a = row("default|P|S|a", "CONF"), d = row("prof|P|S|d", "CONF");
    const struct {
        const char *rows;
        std::string listed;
    } cases[] = {
        {"User Name|x|y|z\nws|prof|Z|All\nmaranth|default|P|S\n", a}, // the last row decides
        {"ws|prof|P|All", d},
        {"ws|prof|P|All|more|fields|are|nothing\n", d},
        {"|ws||prof|P|S|\n", d},
        {"ws|prof|P|S\nadmin|default|Q\n", d},      // a short row is skipped
        {"ws|prof|P|All\nadmin|default|P|*\n", ""}, // b too: below
    };
    for (const auto &c : cases) {
        tree.rows(c.rows);
        if (!c.listed.empty()) {
            EXPECT_EQ(tree.rows_of({"-u", "alice"}), c.listed) << c.rows;
        }
    }
    EXPECT_EQ(count_of(tree.rows_of({"-u", "alice"}), '\n'), 2);
    EXPECT_EQ(read_file(tree.top / "vxu_check_user.args"), "alice\nvxu_show_scenarios\n");
    EXPECT_EQ(read_file(tree.top / "vxu_show_projects.args"), "-u\nalice\n");
}

TEST_F(Command, RowsThatDoNotFitAreBounded) {
    tree.add("ws/prof/P/S/d.conf");
    const std::string d = row("prof|P|S|d", "CONF"), good = "ws|prof|P|All\n";
    tree.rows(good + std::string(256, 'w') + "|prof|P|S\n" + "a|b|c|d|" + std::string(256, 'e'));
    EXPECT_EQ(tree.rows_of({"-u", "alice"}), d);
    // Of a long line the first 511 bytes are used, and the rest is no line of its own.
    const std::string filler = std::string(200, 'x') + "|";
    tree.rows("ws|prof|P|S|" + filler + filler + filler + "a|All\nws|prof|Z|Z\n");
    EXPECT_EQ(tree.rows_of({"-u", "alice"}), d);
    std::string many;
    for (int i = 0; i < 1000; i++) {
        many += i == 999 ? good : "ws|prof|x" + std::to_string(i) + "|S\n";
    }
    tree.rows(many);
    EXPECT_EQ(tree.run({"-u", "alice"}).err, "");
    EXPECT_EQ(tree.rows_of({"-u", "alice"}), d);
    tree.rows(many + "admin|All|P|S\n");
    EXPECT_EQ(tree.run({"-u", "alice"}).err,
              "Warning: vxu_show_scenarios: project rows beyond 1000 are ignored\n");
    EXPECT_EQ(tree.rows_of({"-u", "alice"}), d);
}

TEST_F(Command, PrivilegeLiftsTheRestrictions) {
    tree.add("admin/default/P/S/a.conf");
    tree.add("ws/prof/P/S/d.conf");
    const size_t both = (row("default|P|S|a", "CONF") + row("prof|P|S|d", "CONF")).size();
    tree.rows("admin|default|Z|Z\nws|All\nadmin|default|Z|Z\n");
    EXPECT_EQ(tree.rows_of({"-W", "ws", "-u", "alice"}), row("prof|P|S|d", "CONF"));
    EXPECT_EQ(tree.rows_of({"-u", "alice", "-g"}).substr(0, both).size(), both);
    for (const char *user : {"admin", "maranth"}) {
        tree.rows("ws|prof|P|S\n");
        EXPECT_EQ(tree.rows_of({"-u", user}).size(), both) << user;
        tree.rows("ws|prof|Z|S\n");
        EXPECT_EQ(tree.rows_of({"-u", user}), "") << "their rows still filter";
    }
    EXPECT_EQ(tree.rows_of({"-u", "adminx"}), "");
}

TEST_F(Command, ARefusedUserEndsTheRunWithoutAWord) {
    tree.helper("vxu_check_user", "echo no >&2; exit 3");
    expect_refused({"-u", "bob", "-x"}, "", "no\n", 255);
    tree.helper("vxu_check_user", "exit 0");
    tree.rows("");
    expect_refused({"-u", "bob"}, "", "Error: vxu_show_scenarios: Unable to chdir on \n", 1);
}

TEST_F(Command, NamesReachTheHelpersWhole) {
    const std::string canary = (tree.top / "canary").string();
    tree.rows("");
    for (const std::string &name :
         {";touch " + canary, "$(touch " + canary + ")", "`touch " + canary + "`",
          "a'b;touch " + canary, std::string("new\nline"), std::string("* ~"),
          std::string(255, 'u'), std::string("-x")}) {
        tree.run({"-u", name});
        EXPECT_EQ(read_file(tree.top / "vxu_check_user.args"), name + "\nvxu_show_scenarios\n");
        EXPECT_EQ(read_file(tree.top / "vxu_show_projects.args"), "-u\n" + name + "\n");
        EXPECT_FALSE(fs::exists(canary)) << name;
    }
}

TEST_F(Command, NothingWaitsForAHelperThatLivesOn) {
    tree.add("ws/prof/P/S/d.conf");
    tree.rows("ws|prof|P|S\n");
    tree.helper("id", "echo 7001; exec >&- 2>&-; sleep 60");
    const time_t start = time(nullptr);
    EXPECT_EQ(tree.rows_of({"-u", "alice"}), row("prof|P|S|d", "CONF"));
    EXPECT_LT(time(nullptr) - start, 30);
}

TEST_F(Command, PermissionFollowsTheCaller) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to run as somebody else";
    }
    constexpr uid_t caller = 65534; // by number: any entry of the user database will do
    if (getpwuid(caller) == nullptr) {
        GTEST_SKIP() << "no user database entry";
    }
    tree.helper("id", "echo 7001 7002 7003");
    chmod(tree.top.c_str(), 0777);
    const struct {
        uid_t owner;
        gid_t group;
        mode_t mode;
        const char *permission;
    } cases[] = {
        {caller, 9, 0600, "RWD"}, {caller, 9, 0400, "R--"}, {caller, 9, 0200, "-WD"},
        {caller, 9, 0077, "---"}, {8, 7001, 0640, "RWD"},   {8, 7001, 0440, "R--"},
        {8, 7002, 0220, "-WD"},   {8, 7002, 0020, "---"},   {8, 7003, 0770, "---"},
        {8, 9, 0004, "R--"},      {8, 9, 0002, "-WD"},      {8, 9, 0006, "RWD"},
        {8, 9, 0770, "---"},      {8, 0, 0040, "---"},
    };
    tree.run_as = caller;
    for (const auto &c : cases) {
        tree.add("admin/default/P/S/a.conf", "x", c.mode);
        const fs::path file = tree.scenario("admin/default/P/S/a.conf");
        ASSERT_EQ(chown(file.c_str(), c.owner, c.group), 0);
        chmod(file.c_str(), c.mode);
        const std::string rows = tree.rows_of({"-A"});
        EXPECT_NE(rows.find(std::string("|") + c.permission + "|03/07"), std::string::npos)
            << c.owner << ":" << c.group << " " << std::oct << c.mode << " " << rows;
    }
    // With one group the second stays 0, and files of group 0 are judged by the group rule.
    tree.helper("id", "echo 7001");
    ASSERT_EQ(chown(tree.scenario("admin/default/P/S/a.conf").c_str(), 8, 0), 0);
    EXPECT_NE(tree.rows_of({"-A"}).find("|R--|"), std::string::npos);
    EXPECT_EQ(read_file(tree.top / "id.args"), std::string(getpwuid(caller)->pw_name) + "\n-G\n");
}

TEST_F(Command, SurvivesACallerAndOwnersWithoutNames) {
    constexpr uid_t nobody_at_all = 3999999997;
    if (geteuid() != 0 || getpwuid(nobody_at_all) != nullptr) {
        GTEST_SKIP() << "needs root, and an id without a name";
    }
    tree.add("admin/default/P/S/a.conf", "x", 0606);
    ASSERT_EQ(chown(tree.scenario("admin/default/P/S/a.conf").c_str(), nobody_at_all, 4294967294),
              0);
    tree.run_as = nobody_at_all;
    const outcome result = tree.run({"-A"});
    EXPECT_EQ(result.err, "Error: Can not get groups id.\n");
    EXPECT_EQ(result.out, HEADER + std::string("default|P|S|a|UNKNOWN|UNKNOWN|RWD|"
                                               "03/07/2024 14:05:09|CONF\n"));
}

TEST_F(Command, UnreadableDirectoriesArePassedOver) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to run as somebody else";
    }
    tree.run_as = 65534;
    tree.add("admin/default/P/S/a.conf");
    tree.add("admin/default/Q/S/b.conf");
    tree.add("admin/default/R/S/c.conf");
    chmod(tree.scenario("admin/default/Q/S/").c_str(), 0);
    chmod(tree.scenario("admin/default/R/S/").c_str(), 0444); // names, but nothing behind them
    const outcome result = tree.run({"-A"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err.substr(0, 6) == "Error:", false) << result.err;
    EXPECT_EQ(count_of(result.out, '\n'), 2) << result.out;
    chmod((tree.work / "workspace").c_str(), 0111);
    EXPECT_EQ(tree.run({"-A"}).out, HEADER);
    EXPECT_EQ(tree.run({"-A"}).status, 0);
    EXPECT_NE(tree.run({"-A", "-d"}).err.find("workspace, level - 0, typeflag - 2\n"),
              std::string::npos);
}

// --- tags ----------------------------------------------------------------------------------------

std::string tagged(const std::string &tags) {
    return R"({"scenario": {"name": "x", "TAGS": {"_G": [[)" + tags + "]]}}}";
}

TEST_F(Command, TagsAreMatchedInAnyPartIgnoringCase) {
    const struct {
        const char *name;
        std::string text;
        const char *word;
        bool matches;
    } cases[] = {
        {"part", tagged(R"("a", "NightlySmoke")"), "smoke", true},
        {"other", tagged(R"("a", "b")"), "smoke", false},
        {"one_backslash", tagged(R"("Smoke\u0054est")"), "smoketest", true},
        {"two_backslashes", tagged(R"("Smoke\\u0054est")"), "smoketest", true},
        {"dropped", tagged(R"("caf\u00e9")"), "caf", true},
        {"not_dropped", tagged(R"("caf\u00e9x")"), "cafx", true},
        {"zero", tagged(R"("ab\u0000cd")"), "abcd", true},
        {"last_code", tagged(R"("ab\u007fcd")"),
         "ab\x7f"
         "cd",
         true},
        {"no_digits", tagged(R"("ab\\u00g1")"), "ab\\u00g1", true},
        {"cut_short", tagged(R"("ab\\u004")"), "ab\\u004", true},
        {"slash", tagged(R"("ab\/cd")"), "abcd", true},
        {"number", tagged("1, 2"), "1", false},
        {"long", tagged("\"" + std::string(100000, 'l') + "smoke\""), "lsmoke", true},
        {"wide", "{\"x\": \"" + std::string(9000, ' ') + "\", " + tagged("\"smoke\"").substr(1),
         "smoke", true},
        {"cut_off", tagged("\"smoke\"").substr(0, 40), "smoke", false},
        {"no_tags", R"({"scenario": {"smoke": 1}})", "smoke", false},
        {"zero_byte", tagged(std::string("\"smoke\0\"", 8)), "smoke", false},
        {"array", "[" + tagged("\"smoke\"") + "]", "smoke", false},
    };
    for (const auto &c : cases) {
        tree.add("admin/default/P/S/" + std::string(c.name) + "/scenario.json", c.text);
        EXPECT_EQ(tree.rows_of({"-A", "-k", c.name, "-T", c.word}) != "", c.matches) << c.name;
    }
    tree.add("admin/default/Q/S/flat.conf", tagged("\"smoke\""));
    EXPECT_EQ(tree.rows_of({"-p", "Q", "-T", "none", "-T", "SMOKE"}),
              row("default|Q|S|flat", "CONF"));
}

TEST_F(Command, SixteenTagWordsCount) {
    tree.add("admin/default/P/S/flat.conf", tagged("\"smoke\""));
    words arguments = {"-A"};
    for (int i = 1; i < 16; i++) {
        arguments.insert(arguments.end(), {"-T", "none"});
    }
    words last_counts = arguments, ignored = arguments;
    last_counts.insert(last_counts.end(), {"-T", "smoke"});
    ignored.insert(ignored.end(), {"-T", "none", "-T", "smoke"});
    EXPECT_EQ(tree.rows_of(last_counts), row("default|P|S|flat", "CONF"));
    EXPECT_EQ(tree.rows_of(ignored), "");
}

TEST_F(Command, FilesThatAreNoFilesAreRefused) {
    fs::create_directories(tree.scenario("admin/default/P/S/d/scenario.json"));
    const std::string fifo = tree.scenario("admin/default/P/S/x.conf");
    mkfifo(fifo.c_str(), 0600);
    const outcome result = tree.run({"-A", "-T", "smoke"});
    EXPECT_EQ(result.out, HEADER);
    EXPECT_EQ(result.status, 0);
    const std::string start = "Failed to parse JSON: ",
                      reason = ", error - Failed to open input file '";
    EXPECT_NE(result.err.find(start + fifo + reason + fifo + "', error: Invalid argument\n"),
              std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("/d/scenario.json', error: Is a directory\n"), std::string::npos);
}

TEST_F(Command, WithoutTagWordsNothingIsOpened) {
    mkfifo((fs::create_directories(tree.scenario("admin/default/P/S/")),
            tree.scenario("admin/default/P/S/x.conf").c_str()),
           0600);
    const outcome result = tree.run({"-A"});
    EXPECT_EQ(result.err, "");
    EXPECT_NE(result.out.find("|x|"), std::string::npos);
}

// --- surroundings --------------------------------------------------------------------------------

TEST_F(Command, LostOutputIsNoticed) {
    tree.add("admin/default/P/S/a.conf");
    for (const char *sink : {">/dev/full", ">&-", "<&- >&-"}) {
        const outcome result = tree.run({"-A"}, sink);
        EXPECT_EQ(result.status, 1) << sink;
    }
    EXPECT_EQ(tree.run({"-A"}, ">/dev/full").err,
              "Error: vxu_show_scenarios: write error: No space left on device\n");
    EXPECT_EQ(tree.run({"-A"}, ">&-").err,
              "Error: vxu_show_scenarios: write error: Bad file descriptor\n");
    EXPECT_EQ(tree.run({"-x"}, ">/dev/full").status, 255);
    EXPECT_EQ(tree.run({"-A"}, "<&- 2>&-").out, HEADER + row("default|P|S|a", "CONF"));
}

TEST_F(Command, ManyRowsArriveWhole) {
    std::string expected;
    for (int i = 0; i < 2500; i++) {
        tree.add("admin/default/P/S/scenario_number_" + std::to_string(i) + ".conf");
    }
    const std::string rows = tree.rows_of({"-A"});
    EXPECT_EQ(count_of(rows, '\n'), 2500);
    for (int i = 0; i < 2500; i++) {
        EXPECT_NE(rows.find(row("default|P|S|scenario_number_" + std::to_string(i), "CONF")),
                  std::string::npos)
            << i;
    }
}

TEST_F(Command, SurroundingsChangeNothing) {
    tree.add("ws/prof/P/S/d.conf");
    tree.rows("ws|prof|P|S\n");
    const std::string d = row("prof|P|S|d", "CONF");
    tree.environment.push_back("POSIXLY_CORRECT=1");
    tree.environment.push_back("IFS=o");
    tree.helper("id", "[ -z \"$POSIXLY_CORRECT\" ] && ls /proc/self/fd >" +
                          (tree.top / "fds").string() + "; echo 1 2");
    EXPECT_EQ(tree.rows_of({"-u", "alice"}), d);
    EXPECT_EQ(read_file(tree.top / "fds"), "0\n1\n2\n3\n") << "the last one is its own";
    signal(SIGCHLD, SIG_IGN);
    const outcome result = tree.run({"-u", "alice"}); // waitpid can't tell the status here
    signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(result.out, HEADER + d);
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
    fs::create_directories(tree.scenario("admin/default/P/S/"));
    fs::create_symlink(file, tree.scenario("admin/default/P/S/a.conf"));
    EXPECT_NE(tree.rows_of({"-A"}).find("|00/00/0000 00:00:00|CONF\n"), std::string::npos);
    unlink(file);
    close(fd);
}

} // namespace
