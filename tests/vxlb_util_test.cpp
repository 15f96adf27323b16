// SPDX-License-Identifier: Apache-2.0
#include <libvxcore/vxlb_util.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

namespace {

using fields = std::vector<std::string>;
using tokenizer = int(char *, char **, const char *, int);

// Cut a copy of a text: the tokenizers write.
fields cut(tokenizer *cutter, std::string text, const char *token, int max_fields) {
    char *found[8] = {};
    const int count = cutter(text.data(), found, token, max_fields);
    fields result;
    for (int i = 0; i < count; i++) {
        result.emplace_back(found[i]);
    }
    EXPECT_EQ(found[count], nullptr) << "a field behind the counted ones was stored";
    return result;
}

TEST(GetTokens, SplitsAtAnyDelimiterAndSkipsEmptyFields) {
    const struct {
        const char *text;
        const char *token;
        int max_fields;
        fields expected;
    } cases[] = {
        {"/a//b/", "/", 7, {"a", "b"}},
        {"one two three four", " ", 3, {"one", "two", "three"}},
        {"one two", " ", 2, {"one", "two"}},
        {"a|b/c", "/|", 7, {"a", "b", "c"}},
        {"///", "/", 7, {}},
        {"", "/", 7, {}},
        {"a b", " ", 0, {}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(cut(get_tokens, c.text, c.token, c.max_fields), c.expected) << c.text;
    }
    EXPECT_EQ(get_tokens(nullptr, nullptr, "/", 3), 0);
}

TEST(VxlbGetTokens, SplitsAtTheDelimiterString) {
    const struct {
        const char *text;
        const char *token;
        int max_fields;
        fields expected;
    } cases[] = {
        {"/a//b/", "/", 7, {"", "a", "b", ""}}, // empty at both ends, none in between
        {"a//b", "/", 7, {"a", "b"}},
        {"/a", "/", 7, {"", "a"}},
        {"", "/", 7, {""}},
        {"a/b/c/d", "/", 3, {"a", "b", "c"}},
        {"a/b", "/", 2, {"a", "b"}},
        {"a--b-c", "--", 7, {"a", "b-c"}}, // the delimiter is one string, not a set
        {"a----b", "--", 7, {"a", "b"}},
        {"a", "", 7, {"a"}},
        {"a/b", "/", 0, {}},
        {"\"x/y\"/z/w", "/", 7, {"x/y\"", "w"}}, // what follows a quoted field is dropped
        {"\"a\"", "/", 7, {"a\""}},              // nothing is read behind the end
        {"\"a\"/", "/", 7, {"a\""}},
        {"\"a/b", "/", 7, {"a", "b"}}, // never closed
        {"\"", "/", 7, {""}},
        {"\"\"x\"/b", "/", 7, {"\"x\""}}, // a field may begin with a quote of its own
    };
    for (const auto &c : cases) {
        EXPECT_EQ(cut(vxlb_get_tokens, c.text, c.token, c.max_fields), c.expected) << c.text;
    }
    EXPECT_EQ(vxlb_get_tokens(nullptr, nullptr, "/", 3), 0);
}

TEST(VxIsNumeric, WantsDigitsOnly) {
    for (const char *text : {"", "0", "1234567890123456789012"}) {
        EXPECT_EQ(vx_is_numeric(text), 1) << text;
    }
    for (const char *text : {"12a", "-1", "+1", " 1", "1.5", "\xB2"}) {
        EXPECT_EQ(vx_is_numeric(text), 0) << text;
    }
    EXPECT_EQ(vx_is_numeric(nullptr), 0);
}

sigset_t blocked_signals() {
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    return now;
}

TEST(DateTime, IsTheLocalTimeWithATwoDigitYear) {
    setenv("TZ", "UTC", 1);
    tzset();
    char text[VXLB_DATE_TIME_SIZE];
    char expected[2][96];
    const time_t before = time(nullptr);
    EXPECT_EQ(vxlb_get_cur_date_time(text, 0), text);
    const time_t moments[] = {before, time(nullptr)}; // a second may have passed
    for (int i = 0; i < 2; i++) {
        struct tm tm;
        gmtime_r(&moments[i], &tm);
        snprintf(expected[i], sizeof expected[i], "%02d/%02d/%02d %02d:%02d:%02d", tm.tm_mon + 1,
                 tm.tm_mday, tm.tm_year - 100, tm.tm_hour, tm.tm_min, tm.tm_sec);
    }
    EXPECT_TRUE(std::string(text) == expected[0] || std::string(text) == expected[1]) << text;

    struct tm tm;
    EXPECT_EQ(vxlb_localtime(&before, &tm, 0), &tm);
    EXPECT_EQ(timegm(&tm), before);
}

TEST(DateTime, UnblocksEverySignalAfterBlocking) {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, SIGUSR1);
    struct tm tm;
    const time_t now = 0;

    sigprocmask(SIG_BLOCK, &one, nullptr);
    vxlb_localtime(&now, &tm, 2); // any flag but 1 leaves signals alone
    sigset_t mask = blocked_signals();
    EXPECT_EQ(sigismember(&mask, SIGUSR1), 1);

    EXPECT_EQ(vxlb_localtime(&now, &tm, 1), &tm);
    mask = blocked_signals();
    EXPECT_EQ(sigismember(&mask, SIGUSR1), 0);
}

TEST(DateTime, RefusesATimeThatHasNoDate) {
    const time_t beyond = INT64_MAX;
    struct tm tm;
    EXPECT_EQ(vxlb_localtime(&beyond, &tm, 1), nullptr);
}

TEST(ErrorTexts, BelongToTheThread) {
    EXPECT_STREQ(vxlb_strerror(ENOENT), strerror(ENOENT));
    EXPECT_STREQ(vxlb_strerror(99999), "Unknown error 99999");
    vxlb_set_error("mine");
    std::thread([] {
        EXPECT_STREQ(vxlb_get_error(), "");
        vxlb_set_error("theirs");
    }).join();
    EXPECT_STREQ(vxlb_get_error(), "mine");
    vxlb_set_error(nullptr);
    EXPECT_STREQ(vxlb_get_error(), "mine");

    const std::string longest(256, 'x');
    vxlb_set_error((longest + "y").c_str());
    EXPECT_EQ(vxlb_get_error(), longest);
    vxlb_set_error(vxlb_get_error());
    EXPECT_EQ(vxlb_get_error(), longest);
}

std::string shell_word(const char *text, const char *also_plain) {
    char word[64];
    const size_t length = vxlb_shell_word(text, also_plain, word, sizeof word);
    EXPECT_EQ(length, strlen(word));
    return word;
}

TEST(ShellWord, QuotesWhatTheShellWouldRead) {
    for (const char *plain : {"", "azAZ09", "j.doe_x@y+z-1"}) {
        EXPECT_EQ(shell_word(plain, ""), plain);
    }
    EXPECT_EQ(shell_word("/a/b", "/"), "/a/b");
    EXPECT_EQ(shell_word("/a/b", ""), "'/a/b'");
    EXPECT_EQ(shell_word("a b", "/"), "'a b'");
    EXPECT_EQ(shell_word("it's", ""), "'it'\\''s'");
    for (const char *hostile : {";", "`", "$", "\n", "*", "~", "\"", "\\", "\xC3", "=", "("}) {
        EXPECT_EQ(shell_word(hostile, ""), "'" + std::string(hostile) + "'");
    }
}

TEST(ShellWord, TellsTheLengthItNeeds) {
    char word[4] = "...";
    EXPECT_EQ(vxlb_shell_word("abcd", "", word, sizeof word), 4u);
    EXPECT_STREQ(word, "abc");
    EXPECT_EQ(vxlb_shell_word("abc", "", word, sizeof word), 3u);
    EXPECT_STREQ(word, "abc");
    EXPECT_EQ(vxlb_shell_word("'", "", nullptr, 0), 6u);
}

} // namespace
