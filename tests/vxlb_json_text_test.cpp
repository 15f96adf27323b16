// SPDX-License-Identifier: Apache-2.0
// Examples and limits; fuzz_json_edit compares printer and editor with plain ones.
#include "json_document.h"
#include "texts.h"

namespace {

std::string shown(vxlb_jsont *node, char indented, int16_t level_blanks = 0) {
    return jsont_to_string(node, nullptr, 0, indented, level_blanks, 1);
}

TEST(VxlbJsonText, IsTheDocumentOrAPartOfItPlainOrIndented) {
    const Tree tree = tree_of(R"({"a":1,"b":"x\"","c":[{"d":[]},"y"]})");
    vxlb_jsont *b = tree->children->next_sib;
    EXPECT_EQ(shown(tree.get(), 0, 3), R"({"a":1,"b":"x"","c":[{"d":[]},"y"]})")
        << "not escaped again";
    EXPECT_EQ(shown(b, 0) + shown(b->next_sib, 0), R"("x""[{"d":[]},"y"])") << "no names";
    const std::string whole =
        R"({$  "a" : 1,$  "b" : "x"",$  "c" : [$    {$      "d" : [$$      ]$    },$    "y"$  ]$})";
    EXPECT_EQ(replaced(shown(tree.get(), 1, 2), "\n", "$$"), whole);
    EXPECT_EQ(replaced(shown(tree.get(), 1, -1), "\n", "$$"), replaced(whole, "  +", ""));
    EXPECT_EQ(replaced(shown(tree.get(), 1, 2048), "\n", "$$"), // so many blanks at most
              replaced(whole, "  +", std::string(2048, ' ').c_str()));
    char out[100] = "##";
    int offset = 2;
    __jsont_to_string(b, out, 100, &offset, 1, 2, 3, 0, 0);
    EXPECT_EQ("18 ##      \"b\" : \"x\"\"", text("%d %s", offset, out));
    for (int max = -1; max < 3; max++) {
        EXPECT_EQ(jsont_to_string(tree.get(), strcpy(out, "#####"), max, 1, 2, 0), out);
        EXPECT_EQ(std::string(out, 5), std::string(max == 2 ? "{\0###" : "\0####", 5));
    }
    b->type = 9;
    EXPECT_EQ("", shown(b, 0) + shown(b, 1, 1));
    EXPECT_EQ(shown(tree_of("[\"" + std::string(70000, 'x') + "\"]").get(), 0),
              "[\"" + std::string(65533, 'x'));
}

// Operation, key, value and document, with "null" for none; S: a value that is a text.
std::string edit(const std::string &line) {
    std::istringstream in(line);
    int operation = 0;
    std::string words[3], error(200, '\0');
    in >> operation >> words[0] >> words[1] >> words[2];
    const auto given = [&](size_t word, size_t from = 0) {
        return words[word] == "null" ? nullptr : words[word].c_str() + from;
    };
    const bool is_text = words[1][0] == 'S';
    const char *edited =
        vxlb_modify_json_obj_depth1(given(2), static_cast<int8_t>(operation), given(0),
                                    given(1, is_text ? 1 : 0), is_text, error.data(), nullptr, 0);
    return edited != nullptr ? edited
                             : replaced(error.c_str(), "Failed to parse json, error - ", "!");
}

TEST(VxlbJsonText, ObjectsAreEdited) {
    const std::string cases =
        R"(1 k Sv {} -> {"k": "v"};1 k v {} -> {"k": v};2 k S9 {"a":1} -> {"a": 1}
1 b v {"a":1,"b":"x"} -> {"a": 1, "b": "v", "b": v};2 a 9 {"a":1,"b":"x","a":"y"} -> {"a": 9, "b": "x", "a": "9"}
4 a v {"a":1,"b":"x","a":"y"} -> {"b": "x", "a": "y"};3 a 9 {"a":1} -> {"a": 1};4 b v {"b":{}} -> !Invalid operation
1 null v {} -> !Invalid Arguments;1 k null {} -> !Invalid Arguments;1 k v {"a" -> !unexpected end of file
2 k null {} -> !Invalid Arguments;4 k null {} -> {};0 k v null -> !Invalid Arguments
)";
    EXPECT_EQ(cases, retold(cases, [](const std::string &line) { return edit(line); }));
    EXPECT_EQ(vxlb_modify_json_obj_depth1("{", 0, "k", nullptr, 0, nullptr, nullptr, 0), nullptr);
}

} // namespace
