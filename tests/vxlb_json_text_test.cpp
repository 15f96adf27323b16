// SPDX-License-Identifier: Apache-2.0
#include "json_document.h"
#include "texts.h"

namespace {

const char *const NESTED = R"({"a":1,"b":"x","c":[{"d":[]},"y"]})";

std::string shown(vxlb_jsont *node, char indented, int16_t level_blanks = 0) {
    return jsont_to_string(node, nullptr, 0, indented, level_blanks, 1);
}

TEST(VxlbJsonText, CompactTextIsTheDocument) {
    const Tree tree = tree_of(NESTED);
    EXPECT_EQ(shown(tree.get(), 0, 3), NESTED);
    vxlb_jsont *b = tree->children->next_sib;
    EXPECT_EQ(shown(b, 0) + shown(b->next_sib, 0), R"("x"[{"d":[]},"y"])") << "no names";
    char out[100];
    int offset = 2;
    __jsont_to_string(b, out, 100, &offset, 1, 2, 3, 0, 0);
    EXPECT_EQ("17       \"b\" : \"x\"", text("%d %s", offset, out + 2));
    for (const int16_t no_type : {int16_t{-1}, int16_t{9}}) {
        b->type = no_type;
        EXPECT_EQ("", shown(b, 0) + shown(b, 1, 1));
    }
    EXPECT_EQ(shown(tree_of(R"({"q":"a\"b\\"},""})").get(), 0), R"({"q":"a"b\"},"})")
        << "not escaped again";
}

TEST(VxlbJsonText, IndentedTextSaturates) {
    const Tree tree = tree_of(NESTED);
    const std::string whole =
        R"({$  "a" : 1,$  "b" : "x",$  "c" : [$    {$      "d" : [$$      ]$    },$    "y"$  ]$})";
    EXPECT_EQ(replaced(shown(tree.get(), 1, 2), "\n", "$$"), whole);
    EXPECT_EQ(shown(tree->children, 1, -5), "1");
    EXPECT_EQ(shown(tree.get(), 1, -1).find(" \"a\""), std::string::npos);
    EXPECT_TRUE(
        shown(tree.get(), 1, 2048).starts_with("{\n" + std::string(2048, ' ') + "\"a\" : 1,\n "));
    // The cap on a line's blanks.
    EXPECT_EQ(shown(tree.get(), 1, 2048).find(std::string(2049, ' ')), std::string::npos);
    for (size_t max = 0; max <= whole.size() + 2; max++) {
        std::string out(whole.size() + 10, '#');
        EXPECT_EQ(jsont_to_string(tree.get(), out.data(), static_cast<int>(max) - 1, 1, 2, 0),
                  out.data());
        EXPECT_EQ(replaced(out.c_str(), "\n", "$$"), whole.substr(0, max < 2 ? 0 : max - 2));
        EXPECT_EQ(out[max < 2 ? 1 : max - 1], '#');
    }
    EXPECT_EQ(shown(tree_of("[\"" + std::string(70000, 'x') + "\"]").get(), 0),
              "[\"" + std::string(65533, 'x'));
}

// The first call with a buffer: nothing has been written to the static text's first byte yet.
TEST(VxlbJsonEdit, OpeningBraceGoesToTheCallersBuffer) {
    const auto work = [] {
        char out[8] = "#######";
        const char *edited =
            vxlb_modify_json_obj_depth1(R"({"a":1})", 0, "k", nullptr, 0, nullptr, out, 4095);
        std::string story = text("[%s|%s|%s]", edited, edited + 1, out);
        story += vxlb_modify_json_obj_depth1("{}", 0, "k", nullptr, 0, nullptr, nullptr, 0);
        out[0] = '#';
        vxlb_modify_json_obj_depth1("{}", 1, "k", "v", 1, nullptr, out, 0);
        fputs((story + out).c_str(), stderr);
        _exit(0);
    };
    EXPECT_EXIT(work(), testing::ExitedWithCode(0), R"(^\[\|"a": 1}\|\{######\]\{}#######$)");
}

// Operation, key, value and document, with "null" for none; S: a value that is a text.
std::string edit(const std::string &line, char *out = nullptr, int limit = 0) {
    std::istringstream in(line);
    int operation = 0;
    std::string words[3];
    in >> operation >> words[0] >> words[1] >> words[2];
    const auto given = [&](size_t word, size_t from = 0) {
        return words[word] == "null" ? nullptr : words[word].c_str() + from;
    };
    const bool is_text = words[1][0] == 'S';
    char error[200] = "no message";
    const char *edited =
        vxlb_modify_json_obj_depth1(given(2), static_cast<int8_t>(operation), given(0),
                                    given(1, is_text ? 1 : 0), is_text, error, out, limit);
    return edited == nullptr ? replaced(error, "Failed to parse json, error - ", "!") : edited;
}

TEST(VxlbJsonEdit, Operations) {
    const std::string cases =
        R"(1 k Sv {} -> {"k": "v"};1 k v {} -> {"k": v};2 k S9 {"a":1} -> {"a": 1}
1 b v {"a":1,"b":"x"} -> {"a": 1, "b": "v", "b": v};3 a 9 {"a":1} -> {"a": 1}
2 a S9 {"a":1,"b":"x","a":"y"} -> {"a": 9, "b": "x", "a": "9"};4 a v {"a":"x"} -> {}
4 a v {"a":1,"b":"x","a":"y"} -> {"b": "x", "a": "y"};4 k v {"a":1} -> {"a": 1}
1 k v {"a" -> !unexpected end of file;1 k v {"a"1} -> !invalid format of file
1 k v [1] -> !Invalid operation;4 b v {"a":1,"b":{}} -> !Invalid operation
1 k v {"a":{"b":{"c":{}}}} -> !maximum depth reached;0 b v {"b":[]} -> !Invalid operation
1 null v {} -> !Invalid Arguments;1 k null {} -> !Invalid Arguments
2 k null {} -> !Invalid Arguments;0 k v null -> !Invalid Arguments
)";
    EXPECT_EQ(cases, retold(cases, [](const std::string &line) { return edit(line); }));
    EXPECT_EQ(vxlb_modify_json_obj_depth1("{", 0, "k", nullptr, 0, nullptr, nullptr, 0), nullptr);
}

TEST(VxlbJsonEdit, MembersThatDoNotFitAreDropped) {
    // Limit and operation; one byte more is needed to append. The brace is the last call's.
    const std::string cases =
        R"(14 2 -> {};-5 2 -> {};15 2 -> {"aa": 11};22 2 -> {"aa": 11};23 2 -> {"aa": 11, "bb": "22"}
35 1 -> {"aa": 11, "bb": "22"};36 1 -> {"aa": 11, "bb": "22", "cc": 33};15 1 -> {"aa": 11}
)";
    char out[8];
    edit("0 k v {}");
    EXPECT_EQ(cases, retold(cases, [&](const std::string &limit_and_operation) {
                  const size_t blank = limit_and_operation.find(' ');
                  return edit(limit_and_operation.substr(blank) + R"( cc 33 {"aa":11,"bb":"22"})",
                              out, atoi(limit_and_operation.c_str()));
              }));
    for (const size_t length : {4080, 4082, 4083, 4084, 4085}) {
        const std::string line = "0 k v {\"a\":\"" + std::string(length, 'v') + "\"}";
        const size_t expected = length <= 4083 ? length + 9 : 2;
        EXPECT_EQ(edit(line).size(), expected) << length;
        EXPECT_EQ(edit(line, out, 1 << 30).size(), expected) << length;
    }
}

} // namespace
