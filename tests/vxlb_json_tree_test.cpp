// SPDX-License-Identifier: Apache-2.0
#include "json_document.h"
#include "trace_log.h"

#include <sys/resource.h>

#include <libvxcore/vxlb_alloc.h>

namespace {

TEST(VxlbJsonTree, RecordsArePackedFromByteOne) {
    const uint32_t count = g_c_alloc_count, freed = g_c_free_count;
    {
        const Tree tree("{}");
        EXPECT_EQ(g_c_alloc_count - count, 6U); // the handle's five, and the control record
        const BBM *bbm = tree.root->bbm;
        EXPECT_EQ(reinterpret_cast<char *>(tree.root), bbm->mem + 1);
        EXPECT_EQ("308 33076 root",
                  text("%zu %lu %s", sizeof(vxlb_jsont), bbm->max, tree.root->name));
    }
    EXPECT_EQ(g_c_free_count, freed); // plain releases only
    // An item keeps the last name that was read; behind a literal, an object counts as a literal.
    const Tree tree(R"({"a":[{"x":2},3,{"y":4},5],")" + std::string(300, 'n') + R"(":"a\"b"})");
    const vxlb_jsont *array = tree.root->children;
    const vxlb_jsont *item = array->children->next_sib;
    EXPECT_EQ("a x 6 a\"b 3",
              text("%s %s %d %s %d", array->children->name, item->name, item->next_sib->value_len,
                   array->next_sib->value, array->next_sib->value_len));
    EXPECT_EQ(strlen(array->next_sib->name), 255U);
    EXPECT_EQ(vxlb_json_to_jsont(nullptr), nullptr);
    vxlb_jsont lone = {};
    vxlb_jsont_free(&lone); // in no block: nothing to release
}

// A part of a document takes the smallest steps; a whole document may be given more at once.
TEST(VxlbJsonTree, BlockGrowsAsDocumented) {
    uint64_t used = 309, max = 308 + 32768;
    for (int n = 1; n <= 3000; n++) { // 310 bytes an item
        for (const uint64_t size : {308, 2}) {
            max = used + size >= max ? used + size + 32768 : max;
            used += size;
        }
        if ((n > 104 && n < 109) || n == 1 || n == 3000) {
            const Tree whole(items(n));
            EXPECT_GT(whole.root->bbm->max, used);
            const Handle h("[" + items(n) + "]", 0);
            vxlb_json_open_array(h.json);
            vxlb_json_next_array_item(h.json);
            vxlb_jsont *part = vxlb_json_to_jsont(h.json);
            EXPECT_EQ(part->bbm->offset, used);
            EXPECT_EQ(part->bbm->max, max) << n;
            vxlb_jsont_free(part);
        }
    }
}

TEST(VxlbJsonTree, ChildrenBeyond32767AreChainedOnly) {
    for (const int count : {32766, 32767, 32768, 32769, 65535, 65536, 65537}) {
        const Tree tree(items(count));
        int chained = 0;
        for (const vxlb_jsont *item = tree.root->children; item != nullptr; item = item->next_sib) {
            chained++;
        }
        EXPECT_EQ(chained, count);
        EXPECT_EQ(tree.root->numChild, std::min(count, 32767));
    }
}

TEST(VxlbJsonTree, SubtreesAreBuiltFromTheCurrentElement) {
    const Handle h(R"({"a":{"b":[5,6]},"c":7})", 0);
    EXPECT_EQ(vxlb_json_open_obj(h.json), 0);
    EXPECT_EQ(vxlb_json_to_jsont(h.json), nullptr); // no current element
    EXPECT_EQ(vxlb_json_next_element(h.json), 0);
    vxlb_jsont *tree = vxlb_json_to_jsont(h.json);
    EXPECT_STREQ(tree->name, "a");
    EXPECT_EQ(tree->parent, nullptr);
    EXPECT_STREQ(tree->children->children->next_sib->value, "6");
    vxlb_jsont_free(tree);
    EXPECT_EQ(vxlb_json_next_element(h.json), 0); // the object has been consumed
    const int cursor = h.json->cursor;
    tree = vxlb_json_to_jsont(h.json);
    EXPECT_STREQ(tree->value, "7");
    EXPECT_EQ(h.json->cursor, cursor);
    vxlb_jsont_free(tree);
}

TEST(VxlbJsonTree, PointerPassTracesEveryNode) {
    const TraceLog log(VXLB_MOD_MISC, VXLB_LEVEL_4);
    const Tree tree(R"({"a":1,"b":[2]})");
    const vxlb_jsont *a = tree.root->children, *b = a->next_sib;
    EXPECT_EQ(
        "json name - root, type - 0, parent - (nil), children - a, numChild - 2, nextSib - (nil)\n"
        "json name - a, type - 3, parent - root, children - (nil), numChild - 0, nextSib - b\n"
        "json name - b, type - 1, parent - root, children - 2, numChild - 1, nextSib - (nil)\n"
        "json name - b, type - 3, parent - b, children - (nil), numChild - 0, nextSib - (nil)\n",
        log.take({{tree.root, "root"}, {a, "a"}, {b, "b"}, {b->children, "2"}}));
}

TEST(VxlbJsonTree, DeepNestingNeedsNoStack) {
    const auto work = [] {
        const rlimit small = {64 << 10, 64 << 10};
        setrlimit(RLIMIT_STACK, &small); // pages of the stack beyond it can't be had
        const size_t levels = 32766;
        std::string objects = "{", arrays(levels, '[');
        for (size_t i = 1; i < levels; i++) {
            objects += "\"a\":{";
        }
        for (const std::string &doc : {objects + "\"a\":7" + std::string(levels, '}'),
                                       arrays + "7" + std::string(levels, ']')}) {
            const Tree tree(doc, 32767);
            std::string text(2 * doc.size(), ' ');
            char *values[2] = {};
            char path[] = "$";
            const bool good = doc == jsont_to_string(tree.root, text.data(),
                                                     static_cast<int>(text.size()) - 1, 0, 0, 0);
            const int found = vxlb_jsont_eval_expr_str(tree.root, path, values, 2);
            if (!good || (doc[0] == '[' && (found != 1 || *values[0] != '7'))) {
                _exit(1);
            }
        }
        _exit(0);
    };
    EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}

} // namespace
