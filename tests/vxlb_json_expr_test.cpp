// SPDX-License-Identifier: Apache-2.0
#include "json_document.h"
#include "texts.h"

#include <libvxcore/vxlb_alloc.h>

namespace {

struct VxlbJsonExpr : testing::Test {
    const Tree tree = tree_of(R"({"scenario":{"TAGS":{"_G":["t0","t1"],"E":[]},"n":5,"n":6,"N":7},
 "list":[{"kind":"x","id":"1"},{"kind":"y","id":"2"},{"id":"3"},{"kind":{},"id":"4"},
 {"kind":"x","id":"5"},{"kind":5,"id":"6"}],"deep":[[["a"],["b","c"]],[["d"]]],"mixed":[1,2],
 "o":{"x":{"y":"z"}},"e":[{"kind":"5","id":"7"},{"kind":"x"}],"long name":{"long namf":8,"long name":9}})");

    // Value of the node reached, its type in brackets for a container, or "none".
    std::string walk(const std::string &expr) const {
        const vxlb_jsont *node = vxlb_jsont_eval_expr(tree.get(), expr.c_str());
        return node == nullptr          ? "none"
               : node->value != nullptr ? node->value
                                        : text("(%d)", node->type);
    }
    std::string collect(const std::string &expr, int max_value = 50) const {
        char *values[50];
        std::string out;
        const int n = vxlb_jsont_eval_expr_str(tree.get(), expr.c_str(), values, max_value);
        for (int i = 0; i < n; i++) {
            out += std::string(i > 0 ? "," : "") + values[i];
        }
        return n < 0 ? "-1" : out;
    }
};

TEST_F(VxlbJsonExpr, NodeWalk) {
    const std::string cases = R"($.scenario.TAGS._G[0] -> t0;$.scenario.TAGS._G[1 -> t1
$.scenario.TAGS._G[2] -> none;$.scenario.TAGS._G -> (1);$.scenario.TAGS.E[0] -> none
$.scenario.TAGS.E[-2] -> none;$ -> (0);... -> none;x..scenario.n. -> 5;$.scenario.N -> 7
$.Scenario -> none;$.list[5].id -> 6;$.list[6] -> none;$.list[-2].id -> 1;$.list[-1].id -> none
$.list[-1] -> (1);$.list[].id -> 1;$.list[abc].id -> 1;$.list[ +1x].id -> 2;$.list.id -> none
$.list[99999999999999999999] -> none;$.list[4294967296] -> none;$.list[-4294967297].id -> 1
$.o[7].x[1].y[2] -> z;$.scenario.n.x -> none;$.deep[0] -> (1);$.deep[0].x -> none;$[0].o.x.y -> z
$.long name.long name -> 9;$.long nam -> none;$.long namez -> none
)";
    EXPECT_EQ(cases, retold(cases, [&](const std::string &expr) { return walk(expr); }));
    EXPECT_EQ(walk(""), "none");
    const std::string dots(2043, '.');
    EXPECT_EQ(walk("$.o" + dots.substr(1) + "x"), "(0)"); // 2046 bytes: the last one counts
    EXPECT_EQ(walk("$.o" + dots.substr(1) + ".x") + walk("$.o" + dots + "x.y"), "(0)(0)");
    tree->children->numChild = 1;
    EXPECT_EQ(walk("$.scenario.n"), "none"); // only counted children are looked at
    std::string doc, path = "$";
    for (int i = 0; i < 70; i++) {
        doc += "{\"a\":";
        path += ".a";
    }
    const Tree deep = tree_of(doc + "1" + std::string(70, '}'));
    const vxlb_jsont *node = vxlb_jsont_eval_expr(deep.get(), path.c_str());
    for (int level = 0; level < 63; level++) { // 64 segments count
        node = node->parent;
    }
    EXPECT_EQ(node, deep.get());
    char *values[2];
    EXPECT_EQ(vxlb_jsont_eval_expr_str(deep.get(), path.c_str(), values, 2), 1);
}

TEST_F(VxlbJsonExpr, Collection) {
    const std::string cases = R"($ -> ;.. -> ;$.scenario.n -> 5;$.scenario.TAGS._G -> t0,t1
$.scenario.TAGS._G[1] -> t1;$.scenario.TAGS._G[2] -> ;$.scenario.TAGS._G[] -> t0
$.scenario.TAGS._G[-1] -> t0,t1;$.scenario.TAGS._G[1 -> t0,t1;$.scenario.TAGS._G[x] -> t0,t1
$.list.id -> 1,2,3,4,5,6;$.list[kind=x].id -> 1,5;$.list[kind=5].id -> 6;$.e[kind=5].id -> 7
$.e[kind=x].id -> ;$.list[kind=].id -> ;$.list[3].id -> 4;$.list[03]x.id -> 4;$.list[kind=x] -> ;
$.list.kind -> x,y,x,5;$.deep -> a,b,c,d;$.deep[0] -> a;$.deep[1] -> ;$.mixed -> 1,2
$.mixed[kind=x] -> ;$.o.x.y -> z;$.o.x -> ;$.o.x.y.z -> ;$.none -> ;$.list[99999999999].id -> ;
)";
    EXPECT_EQ(cases, retold(cases, [&](const std::string &expr) { return collect(expr); }));
    EXPECT_EQ(collect("") + collect("$.list.id", 0) + collect("$.list.id", -1), "");
    EXPECT_EQ(collect("$.list.id", 2), "1,2");
    EXPECT_EQ(collect("$.list" + std::string(4085, '.') + "mixed"), "-1"); // 4096 bytes
    EXPECT_EQ(collect("$.mixed" + std::string(4088, '.')), "1,2");         // 4095
    const uint32_t allocated = g_c_alloc_count, freed = g_c_free_count;
    EXPECT_EQ(collect("$.mixed"), "1,2");
    EXPECT_TRUE(g_c_alloc_count - allocated == 1 && g_c_free_count == freed);
}

TEST_F(VxlbJsonExpr, ArgumentsAreChecked) {
    char *values[1];
    json_expr_cond cond = {{}, 1, -1, {}, {}};
    vxlb_jsont *list = tree->children->next_sib;
    EXPECT_EQ(std::string("-1 -1 -1 -1 -1 -1 0 0"),
              text("%d %d %d %d %d %d %d %d", vxlb_jsont_eval_expr_str(nullptr, "$", values, 1),
                   vxlb_jsont_eval_expr_str(list, nullptr, values, 1),
                   vxlb_jsont_eval_expr_str(list, "$", nullptr, 1),
                   vxlb_jsont_eval_json_expr(nullptr, &cond, 1, values, 1),
                   vxlb_jsont_eval_json_expr(list, nullptr, 1, values, 1),
                   vxlb_jsont_eval_json_expr(list, &cond, 1, nullptr, 1),
                   vxlb_jsont_eval_json_expr(list, &cond, 0, values, 1),
                   vxlb_jsont_eval_json_expr(list, &cond, 1, values, 1)));
}

// The records of a path, a word each: node name, kind of condition, index, its name and value.
std::string compile(std::string expr) {
    json_expr_cond *list = nullptr;
    std::string records;
    const int count = vxlb_str_to_expr_cond(expr.data(), &list);
    for (int i = 0; i < count; i++) {
        const json_expr_cond &c = list[i];
        records += text(" %s/%d/%d/%s/%s", c.nodename, c.con_type, c.cidx, c.cname, c.cvalue);
    }
    EXPECT_EQ(list == nullptr, count == 0);
    free(list);
    return records;
}

TEST_F(VxlbJsonExpr, Compiling) {
    EXPECT_EQ(sizeof(json_expr_cond), 1544U);
    const std::string cases =
        R"(.. -> ;$.a ->  $/0/0// a/0/0//;a[12] ->  a/1/12//;a[] ->  a/1/0//;a[12 ->  a/0/0//
a[-1] ->  a/0/0//;a[b=c=d]x ->  a/2/0/b/c=d;a[=] ->  a/2/0//;[3][4] ->  /1/3//
a[99999999999] ->  a/1/2147483647//;a[2147483647] ->  a/1/2147483647//;a]b[1] ->  a]b/1/1//
)";
    EXPECT_EQ(cases, retold(cases, compile));
    const std::string name(300, 'n'), value(1100, 'v'), cut = name.substr(0, 255);
    EXPECT_EQ(compile(name + "[" + name + "=" + value + "]"),
              " " + cut + "/2/0/" + cut + "/" + value.substr(0, 1023));
    EXPECT_EQ(compile(replaced(name, "n", "a.")).size(), 256U * 8);
}

} // namespace
