// SPDX-License-Identifier: Apache-2.0
#include "json_document.h"
#include "trace_log.h"

namespace {

const char *const NESTED = R"({"a":1,"b":"x","c":[{"d":[]},{}],"e":{"f":["y","z"]}})";

std::string shown(vxlb_jsont *node, char indented, int16_t level_blanks = 0) {
    return jsont_to_string(node, nullptr, 0, indented, level_blanks, 1);
}

TEST(VxlbJsonText, CompactTextIsTheDocument) {
    const Tree tree(NESTED);
    EXPECT_EQ(shown(tree.root, 0, 3), NESTED);
    vxlb_jsont *member = tree.root->children->next_sib;
    EXPECT_EQ(shown(member, 0) + shown(member->next_sib, 0), R"("x"[{"d":[]},{}])") << "no names";
    char out[100];
    int offset = 2;
    __jsont_to_string(member, out, 100, &offset, 1, 2, 3, 0, 0);
    EXPECT_EQ("17       \"b\" : \"x\"", text("%d %s", offset, out + 2));
    for (const int16_t no_type : {int16_t{-1}, int16_t{9}}) {
        tree.root->children->type = no_type;
        EXPECT_EQ("", shown(tree.root->children, 0) + shown(tree.root->children, 1, 1));
    }
    EXPECT_EQ(shown(Tree("{\"q\":\"a\\\"b\\\\\"},\"\"}").root, 0), "{\"q\":\"a\"b\\\"},\"}")
        << "not escaped again";
}

TEST(VxlbJsonText, IndentedText) {
    const Tree tree(NESTED);
    EXPECT_EQ(shown(tree.root, 1, 2), R"({
  "a" : 1,
  "b" : "x",
  "c" : [
    {
      "d" : [

      ]
    },
    {

    }
  ],
  "e" : {
    "f" : [
      "y",
      "z"
    ]
  }
})");
    EXPECT_EQ(shown(tree.root->children, 1, -5), "1");
    EXPECT_EQ(shown(tree.root, 1, -1).find(" \"a\""), std::string::npos);
    const std::string wide = shown(tree.root, 1, 2048);
    EXPECT_EQ(wide.substr(0, 2060), "{\n" + std::string(2048, ' ') + "\"a\" : 1,\n ");
    EXPECT_EQ(wide.find(std::string(2049, ' ')), std::string::npos); // the cap on a line's blanks
}

TEST(VxlbJsonText, OutputSaturates) {
    const Tree tree(NESTED);
    const std::string whole = shown(tree.root, 1, 2);
    const int length = static_cast<int>(whole.size());
    for (int max = -1; max <= length + 2; max++) {
        std::string buffer(whole.size() + 10, '#');
        EXPECT_EQ(jsont_to_string(tree.root, buffer.data(), max, 1, 2, 0), buffer.data());
        EXPECT_EQ(buffer.c_str(), whole.substr(0, static_cast<size_t>(std::max(max - 1, 0))));
        EXPECT_EQ(buffer[static_cast<size_t>(std::max(max, 1))], '#');
    }
    EXPECT_EQ(shown(Tree("[\"" + std::string(70000, 'x') + "\"]").root, 0),
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
        story += vxlb_modify_json_obj_depth1("{}", 1, "k", "v", 1, nullptr, out, 17);
        out[0] = '#';
        vxlb_modify_json_obj_depth1("{}", 1, "k", "v", 1, nullptr, out, 0);
        fputs((story + out).c_str(), stderr);
        _exit(0);
    };
    EXPECT_EXIT(work(), testing::ExitedWithCode(0),
                R"(^\[\|"a": 1}\|\{######\]\{}\{"k": "v"}#######$)");
}

std::string edit(const char *input, int op, const char *key, const char *value, int is_str) {
    char error[200] = "no message";
    const char *edited = vxlb_modify_json_obj_depth1(
        input, static_cast<int8_t>(op), key, value, static_cast<int8_t>(is_str), error, nullptr, 0);
    return edited == nullptr ? replaced(error, "Failed to parse json, error - ", "!") : edited;
}

TEST(VxlbJsonEdit, Operations) {
    const std::string cases = // operation, key, value and document; S: a value that is a text
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
    EXPECT_EQ(cases, retold(cases, [](const std::string &input) {
                  std::istringstream words(input);
                  int op;
                  std::string key, value, doc;
                  words >> op >> key >> value >> doc;
                  const auto given = [](const std::string &word) {
                      return word == "null" ? nullptr : word.c_str();
                  };
                  const bool is_text = value[0] == 'S';
                  return edit(given(doc), op, given(key), given(is_text ? value.substr(1) : value),
                              is_text);
              }));
    EXPECT_EQ(vxlb_modify_json_obj_depth1("{", 0, "k", nullptr, 0, nullptr, nullptr, 0), nullptr);
}

TEST(VxlbJsonEdit, MembersThatDoNotFitAreDropped) {
    char out[8];
    const auto limited = [&out](int limit, int op) {
        edit("{}", 0, "k", nullptr, 0); // leaves a brace in the static text
        return std::string(vxlb_modify_json_obj_depth1(
            R"({"aa":11,"bb":"22"})", static_cast<int8_t>(op), "cc", "33", 0, nullptr, out, limit));
    };
    const std::string a = "{\"aa\": 11", b = a + ", \"bb\": \"22\"", c = b + ", \"cc\": 33";
    EXPECT_EQ(limited(14, 2) + limited(-5, 2), "{}{}");
    EXPECT_EQ(limited(15, 2) + limited(22, 2), a + "}" + a + "}"); // 1 + 2 + 2 + 10
    EXPECT_EQ(limited(23, 2) + limited(35, 1), b + "}" + b + "}");
    EXPECT_EQ(limited(36, 1) + limited(15, 1), c + "}" + a + "}"); // appended: one byte more
    for (const size_t length : {4080, 4082, 4083, 4084, 4085}) {
        const std::string doc = "{\"a\":\"" + std::string(length, 'v') + "\"}";
        const size_t expected = length <= 4083 ? length + 9 : 2;
        EXPECT_EQ(edit(doc.c_str(), 0, "", nullptr, 0).size(), expected) << length;
        EXPECT_EQ(strlen(vxlb_modify_json_obj_depth1(doc.c_str(), 0, "", nullptr, 0, nullptr, out,
                                                     1 << 30)),
                  expected);
    }
}

} // namespace
