// SPDX-License-Identifier: Apache-2.0
// The module's sources once more: with limits that a test can reach, blocks that always move, and the
// portable road of skipping, which fuzz targets do not take where there is a faster one.
#include "json_document.h"
#include "trace_log.h"

#include <sys/resource.h>

#include <libvxcore/vxlb_alloc.h>

namespace {

uint64_t g_most_bytes = UINT64_C(1) << 32; // that a tree's block may use
int64_t g_longest_value = INT32_MAX - 1;
size_t g_largest_block = SIZE_MAX; // sizes beyond it can't be had
size_t g_block_size;               // of the last block made

void *moving_realloc(void *old, size_t size) {
    if (size > g_largest_block) {
        return nullptr;
    }
    void *block = malloc(size);
    if (old != nullptr) {
        memcpy(block, old, std::min(size, g_block_size));
        memset(old, 0xA5, g_block_size);
        free(old);
    }
    g_block_size = size;
    return block;
}

} // namespace

#define VXLB_JSON_PORTABLE
#define VXLB_JSONT_BLOCK_LIMIT g_most_bytes
#define VXLB_JSON_VALUE_MAX g_longest_value
#define realloc moving_realloc
#include "vxlb_json_tree.cpp"
#undef realloc
#include "vxlb_json_parser.cpp"
#include "vxlb_json_value.cpp"

namespace {

// Of the whole document, or of its first member: then the block grows in small steps.
TEST(VxlbJsonTree, DocumentsBecomeWhatTheModelSays) {
    JsonMaker random(1);
    const uint32_t freed = g_c_free_count;
    const std::string nested = R"({"a":[{"a":["x\\ny",""],"b":{"c":1}}],"d":[]})";
    std::vector<std::string> docs = {R"({"a":1 "b":2,")" + std::string(300, 'n') + R"(":"a\"b"})",
                                     items(500, nested),
                                     items(32766),
                                     items(32767),
                                     items(32768),
                                     items(65537)};
    while (docs.size() < 3000) {
        docs.push_back(random.document());
    }
    for (std::string doc : docs) {
        for (const bool is_part : {false, true}) {
            doc = is_part ? "{\"z\":" + doc + ",\"y\":1}" : doc;
            const Parser json = parser_of(doc);
            JsonModel model(doc, 128, 0);
            for (const json_operation op : {OPEN_OBJ, NEXT_ELEMENT}) {
                EXPECT_TRUE(!is_part || __parse_json(json.get(), op) == model.move(op));
            }
            uint64_t used = 1;
            const auto expected = model.tree(-1, used);
            const uint32_t count = g_c_alloc_count;
            const Tree tree = tree_of(json);
            EXPECT_EQ(g_c_alloc_count, count + 1) << "the control record";
            EXPECT_EQ(model.difference(json.get()), "") << doc.substr(0, 200);
            ASSERT_EQ(tree != nullptr, expected.has_value()) << doc.substr(0, 200);
            const BBM block = tree == nullptr ? BBM{} : *tree->bbm;
            const char *place = tree == nullptr ? nullptr : block.mem + 1;
            EXPECT_TRUE(tree == nullptr || (block.offset == used && block.max > used));
            EXPECT_TRUE(!is_part || used > 1 << 20 || block.max <= used + 33076) << block.max;
            EXPECT_EQ(tree == nullptr ? "" : tree_difference(tree.get(), nullptr, *expected, place),
                      "");
        }
    }
    EXPECT_EQ(g_c_free_count, freed) << "all are released plainly";
}

TEST(VxlbJsonTree, PointerPassTracesEveryNode) {
    const TraceLog log(VXLB_MOD_MISC, VXLB_LEVEL_4);
    const Tree tree = tree_of(R"({"a":1,"b":[2]})");
    const vxlb_jsont *a = tree->children, *b = a->next_sib, *two = b->children;
    EXPECT_EQ(
        "json name - root, type - 0, parent - (nil), children - a, numChild - 2, nextSib - (nil)\n"
        "json name - a, type - 3, parent - root, children - (nil), numChild - 0, nextSib - b\n"
        "json name - b, type - 1, parent - root, children - 2, numChild - 1, nextSib - (nil)\n"
        "json name - b, type - 3, parent - b, children - (nil), numChild - 0, nextSib - (nil)\n",
        log.take({{tree.get(), "root"}, {a, "a"}, {b, "b"}, {two, "2"}}));
    vxlb_jsont lone = {};
    vxlb_jsont_free(&lone); // in no block: nothing to release
    EXPECT_EQ(vxlb_json_to_jsont(nullptr), nullptr);
}

TEST(VxlbJsonTree, DeepNestingNeedsNoStack) {
    const auto work = [] {
        const rlimit small = {64 << 10, 64 << 10};
        setrlimit(RLIMIT_STACK, &small); // pages of the stack beyond it can't be had
        const std::string doc = std::string(32766, '[') + "7" + std::string(32766, ']');
        const Tree tree = tree_of(parser_of(doc, 0, 32767));
        std::string text(doc.size() + 2, ' ');
        char *values[2] = {};
        const int found = vxlb_jsont_eval_expr_str(tree.get(), "$", values, 2);
        jsont_to_string(tree.get(), text.data(), static_cast<int>(text.size()) - 1, 0, 0, 0);
        _exit(found != 1 || *values[0] != '7' || text.c_str() != doc);
    };
    EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}

TEST(VxlbJsonTree, BlockAndValuesNeverPassTheirLimits) {
    // Bytes of the block for a text of a given length, or 0 if no tree is built.
    const auto bytes_with = [](size_t length) -> uint64_t {
        const Tree tree = tree_of("[\"" + std::string(length, 'x') + "\"]");
        return tree == nullptr ? 0 : tree->bbm->offset;
    };
    const uint64_t used = 1 + 308 + 308 + 1;
    for (const uint64_t limit : {618U, 700U}) {
        g_most_bytes = limit;
        EXPECT_EQ(bytes_with(limit - used), limit);
        EXPECT_EQ(bytes_with(limit + 1 - used), 0U);
    }
    g_most_bytes = 616;
    EXPECT_EQ(bytes_with(0), 0U);
    g_most_bytes = UINT32_MAX;
    g_largest_block = 40000;
    EXPECT_EXIT(bytes_with(100000), testing::ExitedWithCode(255), "^Memory allocation failed.\n$");
    g_largest_block = SIZE_MAX;
    g_longest_value = 5000;
    for (const size_t length : {5000U, 5001U}) {
        const Parser json = parser_of("{\"a\":\"" + std::string(length, 'x') + "\"}");
        EXPECT_EQ(vxlb_json_open_obj(json.get()) + vxlb_json_next_element(json.get()), 0);
        int size = -1;
        const char *value = vxlb_json_element_value(json.get(), &size, 0, 0);
        EXPECT_EQ(text("%d %d %d", value != nullptr, size, json->error),
                  length == 5000 ? "1 5000 0" : "0 0 7");
    }
    g_longest_value = INT32_MAX - 1;
}

} // namespace
