// SPDX-License-Identifier: Apache-2.0
#include <climits>
#include <gtest/gtest.h>

#include <libvxcore/vxlb_alloc.h>

#include "../fuzz/json_model.h"

namespace {

const char *const document = R"({"scenario":{"TAGS":{"_G":["t0","t1"],"E":[]},"n":5,"n":6,"N":7},
 "list":[{"kind":"x","id":"1"},{"kind":"y","id":"2"},{"id":"3"},{"kind":{},"id":"4"},{"kind":"x","id":"5"},{"kind":5,"id":"6"}],
 "deep":[[["a"],["b","c"]],[["d"]]],"mixed":[1,2],"o":{"x":{"y":"z"}},"e":[{"kind":"5","id":"7"},{"kind":"x"}]})";

struct VxlbJsonExpr : testing::Test {
    vxlb_jsont *tree = nullptr;
    void SetUp() override {
        vxlb_json_t *json = vxlb_json_init_buffer(document, 0, 0, nullptr);
        tree = vxlb_json_to_jsont(json);
        vxlb_json_free(json);
    }
    void TearDown() override { vxlb_jsont_free(tree); }
    // Value of the node reached, its type in brackets for a container, or "none".
    std::string walk(const std::string &expr) const {
        const vxlb_jsont *node = vxlb_jsont_eval_expr(tree, expr.c_str());
        return node == nullptr          ? "none"
               : node->value != nullptr ? node->value
                                        : "(" + std::to_string(node->type) + ")";
    }
    std::string collect(const std::string &expr, int max_value = 50) const {
        char *values[50];
        std::string out;
        const int n = vxlb_jsont_eval_expr_str(tree, expr.c_str(), values, max_value);
        for (int i = 0; i < n; i++) {
            out += std::string(i > 0 ? "," : "") + values[i];
        }
        return n < 0 ? "-1" : out;
    }
};

TEST_F(VxlbJsonExpr, NodeWalk) {
    const struct {
        const char *expr, *node;
    } cases[] = {
        {"$.scenario.TAGS._G[0]", "t0"},
        {"$.scenario.TAGS._G[1", "t1"},
        {"$.scenario.TAGS._G[2]", "none"},
        {"$.scenario.TAGS._G", "(1)"},
        {"$.scenario.TAGS.E[0]", "none"},
        {"$.scenario.TAGS.E[-2]", "none"},
        {"$", "(0)"},
        {"", "none"},
        {"...", "none"},
        {"x..scenario.n.", "5"},
        {"$.scenario.N", "7"},
        {"$.Scenario", "none"},
        {"$.list[5].id", "6"},
        {"$.list[6]", "none"},
        {"$.list[-2].id", "1"},
        {"$.list[-1].id", "none"},
        {"$.list[-1]", "(1)"},
        {"$.list[].id", "1"},
        {"$.list[abc].id", "1"},
        {"$.list[ +1x].id", "2"},
        {"$.list.id", "none"},
        {"$.list[99999999999999999999]", "none"},
        {"$.list[4294967296]", "none"},
        {"$.list[-4294967297].id", "1"},
        {"$.o[7].x[1].y[2]", "z"},
        {"$.scenario.n.x", "none"},
        {"$.deep[0]", "(1)"},
        {"$.deep[0].x", "none"},
        {"$[0].o.x.y", "z"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(walk(c.expr), c.node) << c.expr;
    }
    std::string dots(2048, '.');
    EXPECT_EQ(walk("$.o" + dots.substr(0, 2042) + ".x"),
              "(0)");                                           // 2047 bytes: the last byte is lost
    EXPECT_EQ(walk("$.o" + dots.substr(0, 2042) + "x"), "(0)"); // 2046: it is not
    EXPECT_EQ(walk("$.o" + dots.substr(0, 2043) + "x.y"), "(0)");
    tree->children->numChild = 1;
    EXPECT_EQ(walk("$.scenario.n"), "none"); // only counted children are looked at
}

TEST_F(VxlbJsonExpr, NodeWalkTakes64Segments) {
    std::string doc, path = "$";
    for (int i = 0; i < 70; i++) {
        doc += "{\"a\":";
        path += ".a";
    }
    vxlb_json_t *json =
        vxlb_json_init_buffer((doc + "1" + std::string(70, '}')).c_str(), 0, 0, nullptr);
    vxlb_jsont *deep = vxlb_json_to_jsont(json);
    const vxlb_jsont *node = vxlb_jsont_eval_expr(deep, path.c_str());
    int level = 0;
    for (; node->parent != nullptr; node = node->parent) {
        level++;
    }
    EXPECT_EQ(level, 63);
    char *values[2];
    EXPECT_EQ(vxlb_jsont_eval_expr_str(deep, path.c_str(), values, 2), 1);
    vxlb_jsont_free(deep);
    vxlb_json_free(json);
}

TEST_F(VxlbJsonExpr, Collection) {
    const struct {
        const char *expr, *values;
    } cases[] = {
        {"$", ""},
        {"", ""},
        {"..", ""},
        {"$.scenario.n", "5"},
        {"$.scenario.TAGS._G", "t0,t1"},
        {"$.scenario.TAGS._G[1]", "t1"},
        {"$.scenario.TAGS._G[2]", ""},
        {"$.scenario.TAGS._G[]", "t0"},
        {"$.scenario.TAGS._G[-1]", "t0,t1"},
        {"$.scenario.TAGS._G[1", "t0,t1"},
        {"$.scenario.TAGS._G[x]", "t0,t1"},
        {"$.list.id", "1,2,3,4,5,6"},
        {"$.list[kind=x].id", "1,5"},
        {"$.list[kind=5].id", "6"},
        {"$.e[kind=5].id", "7"},
        {"$.e[kind=x].id", ""},
        {"$.list[kind=].id", ""},
        {"$.list[3].id", "4"},
        {"$.list[03]x.id", "4"},
        {"$.list[kind=x]", ""},
        {"$.list.kind", "x,y,x,5"},
        {"$.deep", "a,b,c,d"},
        {"$.deep[0]", "a"},
        {"$.deep[1]", ""},
        {"$.mixed", "1,2"},
        {"$.mixed[kind=x]", ""},
        {"$.o.x.y", "z"},
        {"$.o.x", ""},
        {"$.o.x.y.z", ""},
        {"$.none", ""},
        {"$.list[99999999999].id", ""},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(collect(c.expr), c.values) << c.expr;
    }
    EXPECT_EQ(collect("$.list.id", 0), "");
    EXPECT_EQ(collect("$.list.id", -1), "");
    EXPECT_EQ(collect("$.list.id", 2), "1,2");
    EXPECT_EQ(collect("$.list" + std::string(4085, '.') + "mixed"), "-1"); // 4096 bytes
    EXPECT_EQ(collect("$.mixed" + std::string(4088, '.')), "1,2");         // 4095
}

TEST_F(VxlbJsonExpr, ArgumentsAreChecked) {
    char *values[1];
    json_expr_cond cond = {};
    EXPECT_EQ(vxlb_jsont_eval_expr_str(nullptr, "$", values, 1), -1);
    EXPECT_EQ(vxlb_jsont_eval_expr_str(tree, nullptr, values, 1), -1);
    EXPECT_EQ(vxlb_jsont_eval_expr_str(tree, "$", nullptr, 1), -1);
    EXPECT_EQ(vxlb_jsont_eval_json_expr(nullptr, &cond, 1, values, 1), -1);
    EXPECT_EQ(vxlb_jsont_eval_json_expr(tree, nullptr, 1, values, 1), -1);
    EXPECT_EQ(vxlb_jsont_eval_json_expr(tree, &cond, 1, nullptr, 1), -1);
    EXPECT_EQ(vxlb_jsont_eval_json_expr(tree, &cond, 0, values, 1), 0);
    int total = 0; // with no record left, nothing is taken
    __jsont_eval(tree->children->next_sib->next_sib->next_sib, &cond, 0, values, 1, &total);
    EXPECT_EQ(total, 0);
    cond.con_type = 1;
    cond.cidx = -1;
    EXPECT_EQ(vxlb_jsont_eval_json_expr(tree->children->next_sib, &cond, 1, values, 1), 0);
}

std::vector<json_expr_cond> compile(std::string expr) {
    json_expr_cond *list = nullptr;
    const int n = vxlb_str_to_expr_cond(expr.data(), &list);
    std::vector<json_expr_cond> out(list, list + n);
    free(list);
    return out;
}

TEST_F(VxlbJsonExpr, Compiling) {
    EXPECT_EQ(sizeof(json_expr_cond), 1544U);
    const struct {
        const char *segment, *nodename;
        int con_type, cidx;
        const char *cname, *cvalue;
    } cases[] = {
        {"a", "a", 0, 0, "", ""},
        {"a[12]", "a", 1, 12, "", ""},
        {"a[]", "a", 1, 0, "", ""},
        {"a[12", "a", 0, 0, "", ""},
        {"a[-1]", "a", 0, 0, "", ""},
        {"a[b=c=d]x", "a", 2, 0, "b", "c=d"},
        {"a[=]", "a", 2, 0, "", ""},
        {"[3][4]", "", 1, 3, "", ""},
        {"a[99999999999]", "a", 1, INT_MAX, "", ""},
        {"a[2147483647]", "a", 1, INT_MAX, "", ""},
        {"a]b[1]", "a]b", 1, 1, "", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.segment);
        const auto list = compile(std::string("$.") + c.segment);
        ASSERT_EQ(list.size(), 2U);
        EXPECT_STREQ(list[1].nodename, c.nodename);
        EXPECT_EQ(list[1].con_type, c.con_type);
        EXPECT_EQ(list[1].cidx, c.cidx);
        EXPECT_STREQ(list[1].cname, c.cname);
        EXPECT_STREQ(list[1].cvalue, c.cvalue);
    }
    const std::string name(300, 'n'), value(1100, 'v');
    const auto cut = compile(name + "[" + name + "=" + value + "]");
    EXPECT_EQ(cut[0].nodename, name.substr(0, 255));
    EXPECT_EQ(cut[0].cname, name.substr(0, 255));
    EXPECT_EQ(cut[0].cvalue, value.substr(0, 1023));
    std::string many;
    for (int i = 0; i < 300; i++) {
        many += "a.";
    }
    EXPECT_EQ(compile(many).size(), 256U);
    json_expr_cond *list = reinterpret_cast<json_expr_cond *>(&many);
    char empty[] = "..";
    EXPECT_EQ(vxlb_str_to_expr_cond(empty, &list), 0);
    EXPECT_EQ(list, nullptr);
    const uint32_t allocated = g_c_alloc_count, freed = g_c_free_count;
    EXPECT_EQ(collect("$.mixed"), "1,2");
    EXPECT_EQ(g_c_alloc_count - allocated, 1U);
    EXPECT_EQ(g_c_free_count, freed);
}

} // namespace
