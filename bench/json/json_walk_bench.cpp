// SPDX-License-Identifier: Apache-2.0
//
// A node walk of four segments, "$.scenario.TAGS._G[0]" as the tag filter has it, beside a bare walk over
// the same nodes: names compared one by one, links followed, nothing split or parsed.

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

#include <libvxcore/vxlb_json_parser.h>

#include "compare.h"
#include "documents.h"

namespace {

long allocations;

vxlb_jsont *child_named(vxlb_jsont *node, const char *name) {
    vxlb_jsont *child = node->children;
    while (child != nullptr && strcmp(child->name, name) != 0) {
        child = child->next_sib;
    }
    return child;
}

vxlb_jsont *bare_walk(vxlb_jsont *top) {
    vxlb_jsont *node = child_named(top, "scenario");
    node = node == nullptr ? nullptr : child_named(node, "TAGS");
    node = node == nullptr ? nullptr : child_named(node, "_G");
    return node == nullptr ? nullptr : node->children;
}

vxlb_jsont *tree_of(const std::string &text) {
    vxlb_json_t *json =
        vxlb_json_init_buffer(text.data(), 0, static_cast<int>(text.size()), nullptr);
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    vxlb_json_free(json);
    return tree;
}

} // namespace

// Every allocation of this program comes through here.
extern "C" void *__libc_malloc(size_t size);
extern "C" void *malloc(size_t size) {
    allocations++;
    return __libc_malloc(size);
}

int main(int argc, char **argv) {
    rounds::init(argc, argv);
    constexpr int walks = 20000;
    const char *path = "$.scenario.TAGS._G[0]";
    for (const size_t size : {size_t{7000}, size_t{100000}}) {
        vxlb_jsont *tree = tree_of(scenario_document(size, 1));
        const long before = allocations;
        vxlb_jsont *found = vxlb_jsont_eval_expr(tree, path);
        if (found == nullptr || found != bare_walk(tree) || allocations != before) {
            fprintf(stderr, "the walks differ, or one allocates\n");
            return 1;
        }
        const rounds::Work work = {
            "json", "node walk of 4 segments, " + std::to_string(size / 1000) + " KB", walks};
        const auto repeat = [tree](auto walk) {
            for (int i = 0; i < walks; i++) {
                benchmark::DoNotOptimize(reinterpret_cast<uintptr_t>(walk(tree)));
            }
        };
        rounds::arms(
            work,
            {{"ours", "",
              [=] { repeat([path](vxlb_jsont *top) { return vxlb_jsont_eval_expr(top, path); }); }},
             {"bare walk over the same nodes", "<=1.3", [=] { repeat(bare_walk); }}});
        vxlb_jsont_free(tree);
    }
    return 0;
}
