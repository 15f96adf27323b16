// SPDX-License-Identifier: Apache-2.0
// Random documents through random windows: the tree of the file is the tree of the buffer, unless a
// string in an array touched an edge of a window (the model knows) or the buffer ended in a value.
// Every process has a share of the documents and its own seed.

#include <cinttypes>
#include <cstdio>
#include <sys/wait.h>
#include <thread>

#include "json_model.h"

namespace {

struct Totals {
    uint64_t documents, trees, excused;
};

bool is_excused(const std::string &doc, int16_t levels, int window, const vxlb_json_t *buffer) {
    JsonModel model(doc, levels, window);
    uint64_t used = 1;
    model.tree(-1, used);
    return model.has_strayed || buffer->error == VXLB_JSON_READ_FAILED ||
           doc[doc.find_first_not_of(" \t\n") % doc.size()] == '[';
}

// Whether both ways agree, or may differ.
bool agree(const std::string &doc, int16_t levels, int window, const char *path, Totals *totals) {
    vxlb_json_t *buffer =
        vxlb_json_init_buffer(doc.data(), levels, static_cast<int>(doc.size()), nullptr);
    vxlb_json_t *file = vxlb_json_init(path, levels, window, nullptr);
    vxlb_jsont *one = vxlb_json_to_jsont(buffer);
    vxlb_jsont *other = vxlb_json_to_jsont(file);
    const bool same = one == nullptr || other == nullptr ? one == other : is_same_tree(one, other);
    const bool excused = !same && is_excused(doc, levels, window, buffer);
    totals->documents++;
    totals->trees += same && one != nullptr;
    totals->excused += excused;
    for (vxlb_jsont *tree : {one, other}) {
        if (tree != nullptr) {
            vxlb_jsont_free(tree);
        }
    }
    vxlb_json_free(buffer);
    vxlb_json_free(file);
    return same || excused;
}

int run(unsigned seed, uint64_t count, Totals *totals) {
    const MemoryFile file;
    JsonMaker maker(seed);
    for (uint64_t i = 0; i < count; i++) {
        maker.strings_in_arrays = maker.below(2) == 0;
        // A quarter may be anything, and damaged; the others are objects, so that there is a tree.
        const std::string doc =
            maker.below(4) == 0 ? maker.document() + " " : "{\"a\":" + maker.value(4) + "}";
        const auto size = static_cast<int>(doc.size());
        const int sizes[] = {1 + static_cast<int>(maker.below(64)), size, size + 1, 8192,
                             1 + static_cast<int>(maker.below(static_cast<unsigned>(size)))};
        const int window = sizes[maker.below(5)];
        const auto levels = static_cast<int16_t>(maker.below(8) == 0 ? 1 + maker.below(6) : 32);
        file.write(doc);
        if (!agree(doc, levels, window, file.path.c_str(), totals)) {
            fprintf(stderr, "levels %d, window %d: %s\n", levels, window, doc.c_str());
            return 1;
        }
    }
    return 0;
}

} // namespace

int main(int, char **argv) {
    const uint64_t count = std::stoull(argv[1]);
    const unsigned processes = std::max(1U, std::thread::hardware_concurrency());
    auto *totals =
        static_cast<Totals *>(mmap(nullptr, sizeof(Totals) * processes, PROT_READ | PROT_WRITE,
                                   MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    for (unsigned i = 0; i < processes; i++) {
        if (fork() == 0) {
            _exit(run(i + 1, count / processes + (i < count % processes), totals + i));
        }
    }
    bool failed = false;
    for (int status; wait(&status) > 0;) {
        failed = failed || status != 0;
    }
    Totals sum = {};
    for (unsigned i = 0; i < processes; i++) {
        sum.documents += totals[i].documents;
        sum.trees += totals[i].trees;
        sum.excused += totals[i].excused;
    }
    printf("08 windows: %" PRIu64 " documents, %" PRIu64 " equal trees, %" PRIu64
           " strings in arrays at an edge "
           "or values at the end, %s\n",
           sum.documents, sum.trees, sum.excused, failed ? "A DIFFERENCE" : "no difference");
    return failed ? 1 : 0;
}
