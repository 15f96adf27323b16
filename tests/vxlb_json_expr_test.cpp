// SPDX-License-Identifier: Apache-2.0
// Examples; fuzz_json_expr compares walk, collection and compiler with plain ones, at their limits too.
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
    EXPECT_EQ(sizeof(json_expr_cond), 1544U);
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

} // namespace
