// SPDX-License-Identifier: Apache-2.0
// The module's sources once more, with limits that a test can reach and blocks that always move.
#include "json_document.h"

#include <gtest/gtest.h>

namespace {

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

#define VXLB_JSONT_BLOCK_LIMIT UINT64_C(1000000)
#define VXLB_JSON_VALUE_MAX 5000
#define realloc moving_realloc
#include "vxlb_json_tree.cpp"
#undef realloc
#include "vxlb_json_value.cpp"

namespace {

// Bytes of the block for an empty text and a last one of a given length, or 0 if no tree is built.
uint64_t bytes_of_tree(int texts, int last) {
    const Tree tree("[" + items(texts, "\"\"").substr(1, static_cast<size_t>(texts) * 3 - 1) +
                    ",\"" + std::string(static_cast<size_t>(last), 'x') + "\"]");
    return tree.root == nullptr ? 0 : tree.root->bbm->offset;
}

TEST(VxlbJsonLimit, BlockNeverPassesItsLimit) {
    const uint64_t used = 1 + 308 + 3234 * 309 + 308 + 1;
    EXPECT_EQ(bytes_of_tree(3234, 0), used);
    EXPECT_EQ(bytes_of_tree(3234, static_cast<int>(1000000 - used)), 1000000U);
    EXPECT_EQ(bytes_of_tree(3234, static_cast<int>(1000001 - used)), 0U);
    EXPECT_EQ(bytes_of_tree(3235, 0), 0U);
    const auto work = [] {
        g_largest_block = 33076 + 308;
        bytes_of_tree(3000, 0);
    };
    EXPECT_EXIT(work(), testing::ExitedWithCode(255), "^Memory allocation failed.\n$");
}

TEST(VxlbJsonLimit, ValuesBeyondTheLimitFail) {
    for (const size_t length : {4999U, 5000U, 5001U, 9000U}) {
        const Handle h("{\"a\":\"" + std::string(length, 'x') + "\"}", 0);
        vxlb_json_open_obj(h.json);
        vxlb_json_next_element(h.json);
        int size = -1;
        const bool fits = length <= 5000;
        EXPECT_EQ(vxlb_json_element_value(h.json, &size, 0, 0) != nullptr, fits);
        EXPECT_EQ(size, fits ? static_cast<int>(length) : 0);
        EXPECT_EQ(h.json->error, fits ? 0 : 7);
    }
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
    g_largest_block = 1900000;
    EXPECT_EQ(grown_to(1600000), 1632768U);
    g_largest_block = SIZE_MAX;
    free(bbm.mem);
}

TEST(VxlbJsonLimit, PointersMoveWithTheBlock) {
    const std::string list = items(300, R"({"a":[{"a":["x\\ny",""],"b":{"c":1}}],"d":[]})");
    BBM offsets = {}, pointers = {};
    for (BBM *bbm : {&offsets, &pointers}) { // a part of a document: the block grows in small steps
        const Handle h("[" + list + "]", 0);
        vxlb_json_open_array(h.json);
        vxlb_json_next_array_item(h.json);
        EXPECT_EQ(build(h.json, 0, bbm, false, bbm == &pointers), 1U);
    }
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
