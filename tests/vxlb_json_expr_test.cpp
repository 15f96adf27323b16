// SPDX-License-Identifier: Apache-2.0
// Examples and limits; fuzz_json_expr compares walk, collection and compiler with plain ones.
#include "json_document.h"
#include "texts.h"

#include <libvxcore/vxlb_alloc.h>

namespace {

struct VxlbJsonExpr : testing::Test {
    const Tree tree = tree_of(R"({"scenario":{"TAGS":{"_G":["t0","t1"],"E":[]},"n":5,"n":6},
 "list":[{"kind":"x","id":"1"},{"kind":"y","id":"2"},{"id":"3"},{"kind":{},"id":"4"},{"kind":5,"id":"5"}]})");

    // What the walk reaches ("(1)": an array), and what the collection gives.
    std::string found(const std::string &expr, int max_value = 50) const {
        const vxlb_jsont *node = vxlb_jsont_eval_expr(tree.get(), expr.c_str());
        std::string out = node == nullptr          ? "none"
                          : node->value != nullptr ? node->value
                                                   : text("(%d)", node->type);
        char *values[50];
        const int n = vxlb_jsont_eval_expr_str(tree.get(), expr.c_str(), values, max_value);
        out += n < 0 ? " -1" : "";
        for (int i = 0; i < n; i++) {
            out += std::string(" ") + values[i];
        }
        return out;
    }
};

TEST_F(VxlbJsonExpr, WalksToOneNodeAndCollectsValues) {
    const std::string cases = R"($.scenario.TAGS._G[0] -> t0 t0;$.scenario.TAGS._G[2] -> none
$.scenario.TAGS._G -> (1) t0 t1;$.scenario.TAGS.E[0] -> none;$ -> (0);... -> none;x..scenario.n. -> 5 5
$.Scenario -> none;$.list[-2].id -> 1 1 2 3 4 5;$.list[-1] -> (1);$.list[].id -> 1 1;$.list[ +1x].id -> 2 1 2 3 4 5
$.list.id -> none 1 2 3 4 5;$.list[kind=x].id -> 1 1;$.list[kind=5].id -> 1 5;$.list[99999999999].id -> none
)";
    EXPECT_EQ(cases, retold(cases, [&](const std::string &expr) { return found(expr); }));
    EXPECT_EQ(found("$.list.id", 2) + found("$.list.id", 0) + found("", -1), "none 1 2nonenone");
    const uint32_t allocated = g_c_alloc_count, freed = g_c_free_count;
    EXPECT_EQ(found("$.scenario.n"), "5 5");
    EXPECT_TRUE(g_c_alloc_count - allocated == 1 && g_c_free_count == freed);
    tree->children->numChild = 1;
    EXPECT_EQ(found("$.scenario.n"), "none 5"); // the walk looks at counted children only
    char *values[1];
    json_expr_cond cond = {{}, 1, -1, {}, {}};
    vxlb_jsont *root = tree.get();
    EXPECT_EQ(-6, vxlb_jsont_eval_expr_str(nullptr, "$", values, 1) +
                      vxlb_jsont_eval_expr_str(root, nullptr, values, 1) +
                      vxlb_jsont_eval_expr_str(root, "$", nullptr, 1) +
                      vxlb_jsont_eval_json_expr(nullptr, &cond, 1, values, 1) +
                      vxlb_jsont_eval_json_expr(root, nullptr, 1, values, 1) +
                      vxlb_jsont_eval_json_expr(root, &cond, 1, nullptr, 1));
    EXPECT_EQ(0, vxlb_jsont_eval_json_expr(root, &cond, 0, values, 1) +
                     vxlb_jsont_eval_json_expr(root->children->next_sib, &cond, 1, values, 1));
}

TEST_F(VxlbJsonExpr, LongPathsAreCutOrRefused) {
    const std::string dots(4083, '.'), name(300, 'n'), cut = name.substr(0, 255);
    EXPECT_EQ(found("$" + dots.substr(2039) + "list.x"), "none"); // 2050 bytes, of which 2047 count
    EXPECT_EQ(found("$" + dots.substr(2041) + "list..x"), "(1)");
    EXPECT_EQ(found("$.scenario.n" + dots), "5 5"); // 4095 bytes
    EXPECT_EQ(found("$.scenario.n." + dots), "5 -1");
    std::string doc, path = "$";
    for (int i = 0; i < 300; i++) {
        doc += i < 70 ? "{\"a\":" : "";
        path += ".a";
    }
    const Tree deep = tree_of(doc + "1" + std::string(70, '}'));
    const vxlb_jsont *node = vxlb_jsont_eval_expr(deep.get(), path.c_str());
    for (int level = 0; level < 63; level++) { // 64 segments count
        node = node->parent;
    }
    EXPECT_EQ(node, deep.get());
    json_expr_cond *list = nullptr;
    EXPECT_EQ(vxlb_str_to_expr_cond(path.data(), &list), 256);
    free(list);
    path = name + "[" + name + "=" + std::string(1100, 'v') + "]";
    EXPECT_EQ(vxlb_str_to_expr_cond(path.data(), &list), 1);
    EXPECT_EQ(text("%s %s %s", list->nodename, list->cname, list->cvalue),
              cut + " " + cut + " " + std::string(1023, 'v'));
    free(list);
    EXPECT_EQ(sizeof(json_expr_cond), 1544U);
}

} // namespace
