// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_log.h>

#include "../fuzz/json_model.h"

namespace {

vxlb_json_t *open_document(const std::string &doc, const MemoryFile &file, int window,
                           int16_t levels) {
    if (window == 0) {
        return vxlb_json_init_buffer(doc.c_str(), levels, static_cast<int>(doc.size()), nullptr);
    }
    file.write(doc);
    return vxlb_json_init(file.path.c_str(), levels, window, nullptr);
}

vxlb_jsont *tree_of(const std::string &doc, int16_t levels = 0) {
    vxlb_json_t *json = open_document(doc, MemoryFile(), 0, levels);
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    vxlb_json_free(json);
    return tree;
}

// Build the tree, compare it with the model's, and the handle with the handle that made the moves one by one.
std::string compare_tree(const std::string &doc, const MemoryFile &file, int window,
                         int16_t levels) {
    vxlb_json_t *json = open_document(doc, file, window, levels);
    JsonModel model(doc, levels, window);
    uint64_t used = 1;
    const auto expected = model.tree(-1, used);
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    std::string difference = model.difference(json);
    if ((tree == nullptr) != !expected.has_value()) {
        difference += " tree or no tree";
    } else if (tree != nullptr) {
        const char *place = tree->bbm->mem + 1;
        difference += tree_difference(tree, nullptr, *expected, place);
        difference +=
            tree->bbm->offset == used && place == tree->bbm->mem + used ? "" : " bytes used";
    }
    if (tree != nullptr) {
        vxlb_jsont_free(tree);
    }
    vxlb_json_free(json);
    return difference;
}

TEST(VxlbJsonTree, IsWhatTheMovesSayAtEveryWindow) {
    const int windows[] = {0, 0, 8192, 8192, 1, 2, 3, 7, 16, 31, 64};
    const MemoryFile file;
    for (unsigned seed = 1; seed <= 8000; seed++) {
        JsonMaker random(seed);
        const std::string doc = random.document();
        const int window = windows[random.below(std::size(windows))];
        const auto levels = static_cast<int16_t>(random.below(5) == 0 ? 3 : 32);
        if (window != 0 || !doc.empty()) {
            ASSERT_EQ(compare_tree(doc, file, window, levels), "")
                << seed << " window " << window << "\n"
                << doc;
        }
    }
}

TEST(VxlbJsonTree, EveryCutAndEveryZeroByteIsSurvived) {
    const MemoryFile file;
    const std::string doc =
        R"( {"a" : [1, 2.5 ,true], "b":["x\"y", "z"],"c":{"d":[[],[{}],[]], "e":"\u0041\\" }, "f":-1 } )";
    for (size_t i = 1; i <= doc.size(); i++) {
        for (const int window : {0, 1, 9, 8192}) {
            std::string zero = doc;
            zero[i - 1] = '\0';
            EXPECT_EQ(compare_tree(doc.substr(0, i), file, window, 32), "") << i << " " << window;
            EXPECT_EQ(compare_tree(zero, file, window, 32), "") << i << " " << window;
        }
    }
}

// Where no string stands in an array, every window gives the same tree.
TEST(VxlbJsonTree, WindowsDoNotMatter) {
    const MemoryFile file;
    for (unsigned seed = 1; seed <= 200; seed++) {
        JsonMaker random(seed);
        random.strings_in_arrays = false;
        const std::string doc = "{\"a\":" + random.value(3) +
                                ",\"b\":[1,22 , 333],\"c\":[{},{\"d\":" + random.text() + "}]}";
        std::string first;
        for (int window = 0; window <= 70; window++) {
            vxlb_json_t *json = open_document(doc, file, window, 0);
            vxlb_jsont *tree = vxlb_json_to_jsont(json);
            std::string text = "none " + std::to_string(json->error);
            if (tree != nullptr) {
                text.resize(4096);
                text = jsont_to_string(tree, text.data(), 4095, 1, 1, 0);
                vxlb_jsont_free(tree);
            }
            vxlb_json_free(json);
            first = window == 0 ? text : first;
            EXPECT_EQ(text, first) << window << "\n" << doc;
        }
    }
}

TEST(VxlbJsonTree, RecordsArePackedFromByteOne) {
    EXPECT_EQ(sizeof(vxlb_jsont), 308U);
    const uint32_t count = g_c_alloc_count, freed = g_c_free_count;
    vxlb_jsont *tree = tree_of("{}");
    EXPECT_EQ(g_c_alloc_count - count, 6U); // the handle's five, and the control record
    EXPECT_EQ(reinterpret_cast<char *>(tree), tree->bbm->mem + 1);
    EXPECT_EQ(tree->bbm->max, 308U + 32768);
    EXPECT_STREQ(tree->name, "root");
    vxlb_jsont_free(tree);
    EXPECT_EQ(g_c_free_count, freed); // plain releases only
    tree = tree_of(R"({"a":[1,{"x":2},3],")" + std::string(300, 'n') + R"(":"a\"b"})");
    const vxlb_jsont *array = tree->children;
    EXPECT_STREQ(array->children->name, "a");
    EXPECT_EQ(array->children->next_sib->value_len,
              6); // behind a literal, an object counts as a literal
    EXPECT_EQ(strlen(array->next_sib->name), 255U);
    EXPECT_STREQ(array->next_sib->value, "a\"b");
    EXPECT_EQ(array->next_sib->value_len, 3);
    vxlb_jsont_free(tree->children->children);
    tree = tree_of(R"({"a":[{"x":2},3]})");
    EXPECT_STREQ(tree->children->children->next_sib->name, "x");
    vxlb_jsont_free(tree);
    EXPECT_EQ(vxlb_json_to_jsont(nullptr), nullptr);
    tree = tree_of("[1]");
    EXPECT_STREQ(tree->name, "root");
    EXPECT_STREQ(tree->children->name, "");
    vxlb_jsont_free(tree);
    vxlb_jsont lone = {};
    vxlb_jsont_free(&lone); // in no block: nothing to release
}

// A part of a document takes the smallest steps; a whole document may be given more at once.
TEST(VxlbJsonTree, BlockGrowsAsDocumented) {
    for (const size_t items : {1U, 105U, 106U, 107U, 108U, 3000U}) { // 310 bytes an item
        std::string doc = "[1";
        for (size_t i = 1; i < items; i++) {
            doc += ",1";
        }
        uint64_t used = 309, max = 308 + 32768;
        for (size_t i = 0; i < items; i++) {
            for (const uint64_t size : {UINT64_C(308), UINT64_C(2)}) {
                max = used + size >= max ? used + size + 32768 : max;
                used += size;
            }
        }
        vxlb_jsont *whole = tree_of(doc + "]");
        EXPECT_GT(whole->bbm->max, used);
        vxlb_json_t *json = vxlb_json_init_buffer(("[" + doc + "]]").c_str(), 0, 0, nullptr);
        vxlb_json_open_array(json);
        vxlb_json_next_array_item(json);
        vxlb_jsont *part = vxlb_json_to_jsont(json);
        EXPECT_EQ(part->bbm->offset, used);
        EXPECT_EQ(part->bbm->max, max) << items;
        vxlb_json_free(json);
        vxlb_jsont_free(part);
        vxlb_jsont_free(whole);
    }
}

TEST(VxlbJsonTree, ChildrenBeyond32767AreChainedOnly) {
    for (const int items : {32766, 32767, 32768, 65537}) {
        std::string doc = "[1";
        for (int i = 1; i < items; i++) {
            doc += ",1";
        }
        vxlb_jsont *tree = tree_of(doc + "]");
        int chained = 0;
        for (const vxlb_jsont *item = tree->children; item != nullptr; item = item->next_sib) {
            chained++;
        }
        EXPECT_EQ(chained, items);
        EXPECT_EQ(tree->numChild, std::min(items, 32767));
        vxlb_jsont_free(tree);
    }
}

TEST(VxlbJsonTree, SubtreesAreBuiltFromTheCurrentElement) {
    const std::string doc = R"({"a":{"b":[5,6]},"c":7})";
    vxlb_json_t *json = vxlb_json_init_buffer(doc.c_str(), 0, 0, nullptr);
    EXPECT_EQ(vxlb_json_open_obj(json), 0);
    EXPECT_EQ(vxlb_json_to_jsont(json), nullptr); // no current element
    EXPECT_EQ(vxlb_json_next_element(json), 0);
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    EXPECT_STREQ(tree->name, "a");
    EXPECT_EQ(tree->parent, nullptr);
    EXPECT_STREQ(tree->children->children->next_sib->value, "6");
    vxlb_jsont_free(tree);
    EXPECT_EQ(vxlb_json_next_element(json), 0); // the object has been consumed
    const int cursor = json->cursor;
    tree = vxlb_json_to_jsont(json);
    EXPECT_STREQ(tree->value, "7");
    EXPECT_EQ(json->cursor, cursor);
    vxlb_jsont_free(tree);
    vxlb_json_free(json);
}

TEST(VxlbJsonTree, PointerPassTracesEveryNode) {
    const std::string path = testing::TempDir() + "vxlb_json_trace_" + std::to_string(getpid());
    vxlb_util_set_log_filename(path.c_str(), nullptr);
    vxlb_log_level = static_cast<uint32_t>(VXLB_LEVEL_4);
    lib_module_mask = VXLB_MOD_MISC;
    vxlb_jsont *tree = tree_of(R"({"a":1,"b":[2]})");
    vxlb_log_level = 0;
    lib_module_mask = 0;
    vxlb_close_log_fd();
    std::string expected;
    const auto line = [&expected](const vxlb_jsont *node) {
        char text[400];
        snprintf(
            text, sizeof text,
            "json name - %s, type - %d, parent - %p, children - %p, numChild - %d, nextSib - %p|",
            node->name, node->type, static_cast<void *>(node->parent),
            static_cast<void *>(node->children), node->numChild,
            static_cast<void *>(node->next_sib));
        expected += text;
    };
    for (const vxlb_jsont *node :
         {tree, tree->children, tree->children->next_sib, tree->children->next_sib->children}) {
        line(node);
    }
    FILE *log = fopen(path.c_str(), "r");
    ASSERT_NE(log, nullptr);
    std::string found;
    for (char text[1000]; fgets(text, sizeof text, log) != nullptr;) {
        const char *record = strstr(text, "json name");
        found += record == nullptr ? "" : std::string(record, strcspn(record, "\n")) + "|";
    }
    fclose(log);
    unlink(path.c_str());
    EXPECT_EQ(found, expected);
    vxlb_jsont_free(tree);
}

TEST(VxlbJsonTree, DeepNestingNeedsNoStack) {
    const auto work = [] {
        const rlimit small = {64 << 10, 64 << 10};
        setrlimit(RLIMIT_STACK, &small); // pages of the stack beyond it can't be had
        const size_t levels = 32766;
        for (const char *const bracket : {"[]", "{}"}) {
            std::string doc;
            for (size_t i = 0; i < levels; i++) {
                doc += bracket[0] == '{' && i > 0 ? "\"a\":{" : std::string(1, bracket[0]);
            }
            doc += bracket[0] == '[' ? "7" : "\"a\":7";
            vxlb_json_t *json = vxlb_json_init_buffer(
                (doc + std::string(levels, bracket[1])).c_str(), 32767, 0, nullptr);
            vxlb_jsont *tree = vxlb_json_to_jsont(json);
            char *values[2] = {};
            char path[] = "$";
            std::string text(doc.size() + 2 * levels, ' ');
            if (tree == nullptr ||
                strlen(jsont_to_string(tree, text.data(), static_cast<int>(text.size()) - 1, 0, 0,
                                       0)) != doc.size() + levels) {
                _exit(1);
            }
            if (bracket[0] == '[' &&
                (vxlb_jsont_eval_expr_str(tree, path, values, 2) != 1 || *values[0] != '7')) {
                _exit(2);
            }
            vxlb_jsont_free(tree);
            vxlb_json_free(json);
        }
        _exit(0);
    };
    EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}

} // namespace
