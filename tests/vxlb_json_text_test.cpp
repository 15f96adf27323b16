// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "../fuzz/json_model.h"

namespace {

vxlb_jsont *tree_of(const std::string &doc) {
    vxlb_json_t *json = vxlb_json_init_buffer(doc.c_str(), 0, 0, nullptr);
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    vxlb_json_free(json);
    return tree;
}

const char *const nested = R"({"a":1,"b":"x","c":[{"d":[]},{}],"e":{"f":["y","z"]}})";

TEST(VxlbJsonText, CompactTextIsTheDocument) {
    vxlb_jsont *tree = tree_of(nested);
    EXPECT_STREQ(jsont_to_string(tree, nullptr, 0, 0, 3, 1), nested);
    vxlb_jsont *member = tree->children->next_sib; // a start node is written without its name
    EXPECT_STREQ(jsont_to_string(member, nullptr, 0, 0, 0, 0), "\"x\"");
    EXPECT_STREQ(jsont_to_string(member->next_sib, nullptr, 0, 0, 0, 0), R"([{"d":[]},{}])");
    char text[100];
    int offset = 2;
    __jsont_to_string(member, text, 100, &offset, 1, 2, 3, 0, 0);
    EXPECT_STREQ(text + 2, "      \"b\" : \"x\"");
    EXPECT_EQ(offset, 17);
    tree->children->type = 9; // nothing is written for a type that is none
    EXPECT_STREQ(jsont_to_string(tree->children, nullptr, 0, 0, 0, 0), "");
    tree->children->type = -1;
    EXPECT_STREQ(jsont_to_string(tree->children, nullptr, 0, 1, 1, 0), "");
    vxlb_jsont_free(tree);
    tree = tree_of(R"({"q":"a\"b\\"})"
                   ",\"\"}");
    EXPECT_STREQ(jsont_to_string(tree, nullptr, 0, 0, 0, 0),
                 "{\"q\":\"a\"b\\\"},\"}"); // not escaped again
    vxlb_jsont_free(tree);
}

TEST(VxlbJsonText, IndentedText) {
    vxlb_jsont *tree = tree_of(nested);
    EXPECT_STREQ(
        jsont_to_string(tree, nullptr, 0, 1, 2, 0),
        "{\n  \"a\" : 1,\n  \"b\" : \"x\",\n  \"c\" : [\n    {\n      \"d\" : [\n\n      ]\n    },\n"
        "    {\n\n    }\n  ],\n  \"e\" : {\n    \"f\" : [\n      \"y\",\n      \"z\"\n    ]\n  }\n}");
    EXPECT_STREQ(jsont_to_string(tree->children, nullptr, 0, 1, -5, 0), "1");
    std::string text = jsont_to_string(tree, nullptr, 0, 1, 2048, 0);
    EXPECT_EQ(text.substr(0, 2060), "{\n" + std::string(2048, ' ') + "\"a\" : 1,\n ");
    EXPECT_EQ(text.find(std::string(2049, ' ')), std::string::npos); // the cap on a line's blanks
    text = jsont_to_string(tree, nullptr, 0, 1, -1, 0);
    EXPECT_EQ(text.find(" \"a\""), std::string::npos);
    vxlb_jsont_free(tree);
}

TEST(VxlbJsonText, OutputSaturates) {
    vxlb_jsont *tree = tree_of(nested);
    const std::string whole = jsont_to_string(tree, nullptr, 0, 1, 2, 0);
    const int length = static_cast<int>(whole.size());
    for (int max = -1; max <= length + 2; max++) {
        std::vector<char> buffer(static_cast<size_t>(length) + 10, '#');
        EXPECT_EQ(jsont_to_string(tree, buffer.data(), max, 1, 2, 0), buffer.data());
        EXPECT_EQ(std::string(buffer.data()),
                  whole.substr(0, static_cast<size_t>(std::max(max - 1, 0))));
        EXPECT_EQ(buffer[static_cast<size_t>(std::max(max, 1))], '#');
    }
    vxlb_jsont_free(tree);
    tree = tree_of("[\"" + std::string(70000, 'x') + "\"]");
    EXPECT_EQ(jsont_to_string(tree, nullptr, 0, 0, 0, 0), "[\"" + std::string(65533, 'x'));
    vxlb_jsont_free(tree);
}

// The first call with a buffer: nothing has been written to the static text's first byte yet.
TEST(VxlbJsonEdit, OpeningBraceGoesToTheCallersBuffer) {
    const auto work = [] {
        char out[8] = "#######";
        const char *text =
            vxlb_modify_json_obj_depth1(R"({"a":1})", 0, "k", nullptr, 0, nullptr, out, 4095);
        bool good = text[0] == '\0' && std::string(text + 1) == "\"a\": 1}" &&
                    std::string(out) == "{######";
        text = vxlb_modify_json_obj_depth1("{}", 0, "k", nullptr, 0, nullptr, nullptr, 0);
        good = good && std::string(text) == "{}";
        text = vxlb_modify_json_obj_depth1("{}", 1, "k", "v", 1, nullptr, out, 17);
        good = good && std::string(text) == "{\"k\": \"v\"}"; // left over from the call before
        out[0] = '#';
        vxlb_modify_json_obj_depth1("{}", 1, "k", "v", 1, nullptr, out, 0);
        _exit(good && out[0] == '#' ? 0 : 1);
    };
    EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}

std::string edit(const char *input, int op, const char *key, const char *value, int is_str) {
    char error[200] = "no message";
    const char *text = vxlb_modify_json_obj_depth1(input, static_cast<int8_t>(op), key, value,
                                                   static_cast<int8_t>(is_str), error, nullptr, 0);
    return text == nullptr ? error : text;
}

TEST(VxlbJsonEdit, Operations) {
    const char *const abc = R"({"a":1,"b":"x","a":"y"})";
    const struct {
        const char *input;
        int op;
        const char *key, *value;
        int is_str;
        const char *text;
    } cases[] = {
        {abc, 1, "k", "v", 1, R"({"a": 1, "b": "x", "a": "y", "k": "v"})"},
        {abc, 1, "k", "v", 0, R"({"a": 1, "b": "x", "a": "y", "k": v})"},
        {abc, 1, "b", "v", 0, R"({"a": 1, "b": "v", "a": "y", "b": v})"},
        {abc, 2, "a", "9", 1, R"({"a": 9, "b": "x", "a": "9"})"},
        {abc, 2, "k", "9", 1, R"({"a": 1, "b": "x", "a": "y"})"},
        {abc, 4, "a", nullptr, 0, R"({"b": "x", "a": "y"})"},
        {abc, 4, "k", nullptr, 0, R"({"a": 1, "b": "x", "a": "y"})"},
        {abc, 3, "a", "9", 0, R"({"a": 1, "b": "x", "a": "y"})"},
        {"{}", 1, "k", "1", 0, R"({"k": 1})"},
        {"{}", 1, "k", "1", 1, R"({"k": "1"})"},
        {R"({"a":"x"})", 4, "a", nullptr, 0, "{}"},
        {"{\"a\"", 1, "k", "v", 0, "Failed to parse json, error - unexpected end of file"},
        {"{\"a\" 1}", 1, "k", "v", 0, "Failed to parse json, error - invalid format of file"},
        {R"({"a":{"b":{"c":{}}}})", 1, "k", "v", 0,
         "Failed to parse json, error - maximum depth reached"},
        {"[1]", 1, "k", "v", 0, "Failed to parse json, error - Invalid operation"},
        {R"({"a":1,"b":{}})", 4, "b", nullptr, 0,
         "Failed to parse json, error - Invalid operation"},
        {R"({"b":[]})", 0, "b", nullptr, 0, "Failed to parse json, error - Invalid operation"},
        {abc, 1, nullptr, "v", 0, "Failed to parse json, error - Invalid Arguments"},
        {abc, 1, "k", nullptr, 0, "Failed to parse json, error - Invalid Arguments"},
        {abc, 2, "k", nullptr, 0, "Failed to parse json, error - Invalid Arguments"},
        {nullptr, 0, "k", nullptr, 0, "Failed to parse json, error - Invalid Arguments"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(edit(c.input, c.op, c.key, c.value, c.is_str), c.text) << c.text;
    }
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
    EXPECT_EQ(limited(14, 2), "{}");
    EXPECT_EQ(limited(-5, 2), "{}");
    EXPECT_EQ(limited(15, 2), a + "}"); // 1 + 2 + 2 + 10
    EXPECT_EQ(limited(22, 2), a + "}");
    EXPECT_EQ(limited(23, 2), b + "}");
    EXPECT_EQ(limited(35, 1), b + "}");
    EXPECT_EQ(limited(36, 1), c + "}"); // an appended member needs one byte more
    EXPECT_EQ(limited(15, 1), a + "}");
    std::string full(5000, 'v');
    for (const int length : {4080, 4081, 4082, 4083, 4084, 4085}) {
        const std::string doc = "{\"a\":\"" + full.substr(0, static_cast<size_t>(length)) + "\"}";
        const size_t expected = length <= 4083 ? static_cast<size_t>(length) + 9 : 2;
        EXPECT_EQ(edit(doc.c_str(), 0, "", nullptr, 0).size(), expected) << length;
        EXPECT_EQ(strlen(vxlb_modify_json_obj_depth1(doc.c_str(), 0, "", nullptr, 0, nullptr, out,
                                                     1 << 30)),
                  expected);
    }
}

} // namespace
