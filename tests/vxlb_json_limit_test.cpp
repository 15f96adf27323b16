// SPDX-License-Identifier: Apache-2.0
// The module's sources once more, with limits that a test can reach and blocks that always move.
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

size_t largest_block = SIZE_MAX; // sizes beyond it can't be had
size_t block_size = 0;           // of the last block made

void *moving_realloc(void *old, size_t size) {
    if (size > largest_block) {
        return nullptr;
    }
    void *block = malloc(size);
    if (old != nullptr) {
        memcpy(block, old, std::min(size, block_size));
        memset(old, 0xA5, block_size);
        free(old);
    }
    block_size = size;
    return block;
}

} // namespace

#define VXLB_JSONT_BLOCK_LIMIT UINT64_C(1000000)
#define VXLB_JSON_VALUE_MAX 5000
#define realloc moving_realloc
#include "vxlb_json_tree.cpp"
#undef realloc
#include "vxlb_json_value.cpp"

namespace {

// Bytes of the block for these items, or 0 if no tree is built.
uint64_t bytes_of_tree(const std::string &doc) {
    vxlb_json_t *json = vxlb_json_init_buffer(doc.c_str(), 0, 0, nullptr);
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    vxlb_json_free(json);
    const uint64_t bytes = tree == nullptr ? 0 : tree->bbm->offset;
    if (tree != nullptr) {
        vxlb_jsont_free(tree);
    }
    return bytes;
}

std::string items(int count) {
    std::string doc = "[\"\"";
    for (int i = 1; i < count; i++) {
        doc += ",\"\"";
    }
    return doc;
}

TEST(VxlbJsonLimit, BlockNeverPassesItsLimit) {
    EXPECT_EQ(bytes_of_tree(items(3234) + "]"), 1U + 308 + 3234 * 309);
    const int left = 1000000 - (1 + 308 + 3234 * 309 + 308 + 1);
    EXPECT_EQ(left, 76);
    EXPECT_EQ(bytes_of_tree(items(3234) + ",\"" + std::string(76, 'x') + "\"]"), 1000000U);
    EXPECT_EQ(bytes_of_tree(items(3234) + ",\"" + std::string(77, 'x') + "\"]"), 0U);
    EXPECT_EQ(bytes_of_tree(items(3236) + "]"), 0U);
    EXPECT_EQ(bytes_of_tree(items(400000) + "]"), 0U);
}

TEST(VxlbJsonLimit, ValuesBeyondTheLimitFail) {
    for (const size_t length : {4999U, 5000U, 5001U, 9000U}) {
        const std::string doc = "{\"a\":\"" + std::string(length, 'x') + "\"}";
        vxlb_json_t *json = vxlb_json_init_buffer(doc.c_str(), 0, 0, nullptr);
        vxlb_json_open_obj(json);
        vxlb_json_next_element(json);
        int size = -1;
        const bool fits = length <= 5000;
        EXPECT_EQ(vxlb_json_element_value(json, &size, 0, 0) != nullptr, fits);
        EXPECT_EQ(size, fits ? static_cast<int>(length) : 0);
        EXPECT_EQ(json->error, fits ? 0 : 7);
        vxlb_json_free(json);
    }
}

TEST(VxlbJsonLimit, ExhaustionEndsTheProcess) {
    const auto work = [] {
        largest_block = 33076 + 308;
        bytes_of_tree(items(3000) + "]");
    };
    EXPECT_EXIT(work(), testing::ExitedWithCode(255), "^Memory allocation failed.\n$");
}

TEST(VxlbJsonLimit, LargeStepsAreTakenOnlyWhereThereIsRoom) {
    vxlb_json_t json = {};
    json.f_size = 1000000;
    json.cursor = 250000 - 1; // a quarter has been read
    BBM bbm = {};
    builder b = {&json, &bbm, false, false, 0, 0, false, nullptr, {}};
    const auto grown_to = [&](uint64_t used) {
        grow_block(&b, used);
        return bbm.max;
    };
    EXPECT_EQ(grown_to((1 << 20) - 32768), 1U << 20);
    EXPECT_EQ(grown_to((1 << 20) - 32767), 1572865U); // by half, for a part of a document
    b.takes_whole = true;
    EXPECT_EQ(grown_to((1 << 20) - 32767), 4250000U); // to four times, and a bit
    largest_block = 1900000;
    EXPECT_EQ(grown_to(1600000), 1632768U);
    largest_block = SIZE_MAX;
    free(bbm.mem);
}

// Build the tree of the first item of a list: a part of a document, whose block grows in small steps.
BBM tree_of_item(const std::string &doc, bool links_are_pointers) {
    BBM bbm = {};
    vxlb_json_t *json = vxlb_json_init_buffer(doc.c_str(), 0, 0, nullptr);
    vxlb_json_open_array(json);
    vxlb_json_next_array_item(json);
    EXPECT_EQ(build(json, 0, &bbm, false, links_are_pointers), 1U);
    vxlb_json_free(json);
    return bbm;
}

TEST(VxlbJsonLimit, PointersMoveWithTheBlock) {
    std::string doc = "[{\"first\":0";
    for (int i = 0; i < 300; i++) {
        doc += R"(,"list":[{"a":["x\\ny",""],"b":{"c":1}}],"d":[])";
    }
    const BBM offsets = tree_of_item(doc + "}]", false);
    const BBM pointers = tree_of_item(doc + "}]", true);
    ASSERT_EQ(offsets.offset, pointers.offset);
    const auto expect_link = [&](const void *link, uintptr_t offset) {
        EXPECT_EQ(link, offset == 0 ? nullptr : pointers.mem + offset);
    };
    for (uint64_t at = 1; at < offsets.offset; at += sizeof(vxlb_jsont)) {
        const growing_node *a = node_at(&offsets, at);
        const auto *b = reinterpret_cast<const vxlb_jsont *>(pointers.mem + at);
        expect_link(b->parent, a->parent);
        expect_link(b->children, a->children);
        expect_link(b->next_sib, a->next_sib);
        expect_link(b->value, a->value);
        ASSERT_STREQ(a->name, b->name);
        at += a->value == 0 ? 0 : static_cast<uint64_t>(a->value_len) + 1;
    }
    free(offsets.mem);
    free(pointers.mem);
}

} // namespace
