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

#define VXLB_JSONT_BLOCK_LIMIT 1000000
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
    BBM bbm = {};
    grow_block(&bbm, (1 << 20) - 32768);
    EXPECT_EQ(bbm.max, 1U << 20);
    grow_block(&bbm, (1 << 20) - 32767);
    EXPECT_EQ(bbm.max, 1572865U);
    largest_block = 1900000;
    grow_block(&bbm, 1600000);
    EXPECT_EQ(bbm.max, 1632768U);
    largest_block = SIZE_MAX;
    free(bbm.mem);
}

} // namespace
