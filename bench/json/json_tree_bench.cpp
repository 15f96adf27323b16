// SPDX-License-Identifier: Apache-2.0
//
// A tree built from a text in memory and released again, beside other libraries and beside a floor.
//
// JSON_BENCH_DATA may name a directory of further *.json files.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <libvxcore/vxlb_json_parser.h>

#include "compare.h"
#include "documents.h"

#ifdef VX_HAVE_SIMDJSON
#    include "floor.h"
#endif
#ifdef VX_HAVE_RAPIDJSON
#    include <rapidjson/document.h>
#endif
#ifdef VX_HAVE_CJSON
#    include <cjson/cJSON.h>
#endif
#ifdef VX_HAVE_JANSSON
#    include <jansson.h>
#endif
#ifdef VX_HAVE_JSON_C
// Its header and jansson's give the same names to different things.
extern "C" struct json_object *json_tokener_parse(const char *text);
extern "C" int json_object_put(struct json_object *tree);
#endif
#ifdef VX_HAVE_YAJL
#    include <yajl/yajl_tree.h>
#endif
#ifdef VX_HAVE_NLOHMANN
#    include <nlohmann/json.hpp>
#endif

namespace {

struct Document {
    std::string name, text;
    bool must_win; // a document on which the other libraries are to be beaten
};

using Work = bool (*)(const std::string &text); // build and release; whether there was a tree

bool ours(const std::string &text) {
    vxlb_json_t *json =
        vxlb_json_init_buffer(text.data(), 0, static_cast<int>(text.size()), nullptr);
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    const bool built = tree != nullptr;
    if (built) {
        vxlb_jsont_free(tree);
    }
    vxlb_json_free(json);
    return built;
}

#ifdef VX_HAVE_SIMDJSON
Floor *floor_arm; // for the document being measured: its scanner is kept

bool floor_work(const std::string &) {
    const bool built = floor_arm->build() != nullptr;
    floor_arm->release();
    return built;
}
#endif
#ifdef VX_HAVE_RAPIDJSON
bool rapidjson_work(const std::string &text) {
    rapidjson::Document doc;
    doc.Parse(text.data(), text.size());
    return !doc.HasParseError();
}
#endif
#ifdef VX_HAVE_CJSON
bool cjson_work(const std::string &text) {
    cJSON *tree = cJSON_ParseWithLength(text.data(), text.size());
    cJSON_Delete(tree);
    return tree != nullptr;
}
#endif
#ifdef VX_HAVE_JANSSON
bool jansson_work(const std::string &text) {
    json_t *tree = json_loadb(text.data(), text.size(), 0, nullptr);
    json_decref(tree);
    return tree != nullptr;
}
#endif
#ifdef VX_HAVE_JSON_C
bool jsonc_work(const std::string &text) {
    struct json_object *tree = json_tokener_parse(text.c_str());
    json_object_put(tree);
    return tree != nullptr;
}
#endif
#ifdef VX_HAVE_YAJL
bool yajl_work(const std::string &text) {
    yajl_val tree = yajl_tree_parse(text.c_str(), nullptr, 0);
    yajl_tree_free(tree);
    return tree != nullptr;
}
#endif
#ifdef VX_HAVE_NLOHMANN
bool nlohmann_work(const std::string &text) {
    return !nlohmann::json::parse(text, nullptr, false).is_discarded();
}
#endif

struct Contender {
    const char *name;
    Work work; // null if it is not installed
    bool is_floor;
};

constexpr Contender contenders[] = {
#ifdef VX_HAVE_SIMDJSON
    {"floor (simdjson scan, same nodes)", floor_work, true},
#else
    {"floor (simdjson scan, same nodes)", nullptr, true},
#endif
#ifdef VX_HAVE_RAPIDJSON
    {"RapidJSON", rapidjson_work, false},
#else
    {"RapidJSON", nullptr, false},
#endif
#ifdef VX_HAVE_CJSON
    {"cJSON", cjson_work, false},
#else
    {"cJSON", nullptr, false},
#endif
#ifdef VX_HAVE_JANSSON
    {"jansson", jansson_work, false},
#else
    {"jansson", nullptr, false},
#endif
#ifdef VX_HAVE_JSON_C
    {"json-c", jsonc_work, false},
#else
    {"json-c", nullptr, false},
#endif
#ifdef VX_HAVE_YAJL
    {"yajl", yajl_work, false},
#else
    {"yajl", nullptr, false},
#endif
#ifdef VX_HAVE_NLOHMANN
    {"nlohmann", nlohmann_work, false},
#else
    {"nlohmann", nullptr, false},
#endif
};

// Seconds of CPU time for one text, after two rounds that don't count.
double timed(Work work, const Document &doc, int rounds) {
    for (int i = 0; i < 2; i++) {
        if (!work(doc.text)) {
            fprintf(stderr, "%s: no tree was built\n", doc.name.c_str());
            exit(1);
        }
    }
    const double start = rounds::cpu_seconds();
    for (int i = 0; i < rounds; i++) {
        work(doc.text);
    }
    return (rounds::cpu_seconds() - start) / rounds;
}

// The same in a child, so that no allocator inherits the heap that another one has left behind.
double sample(Work work, const Document &doc, int rounds) {
    int ends[2];
    if (pipe(ends) != 0) {
        abort();
    }
    const pid_t child = fork();
    if (child == 0) {
        const double took = timed(work, doc, rounds);
        _exit(write(ends[1], &took, sizeof took) == sizeof took ? 0 : 1);
    }
    double took = 0;
    close(ends[1]);
    const bool got = read(ends[0], &took, sizeof took) == sizeof took;
    close(ends[0]);
    waitpid(child, nullptr, 0);
    if (!got) {
        exit(1);
    }
    return took;
}

void measure(const Document &doc) {
    const rounds::Work work = {"json", "tree of " + doc.name};
    const int rounds = static_cast<int>(std::max<size_t>(2, 1000000 / doc.text.size()));
    std::vector<rounds::Arm> arms = {{"ours", "", [&doc] { ours(doc.text); }}};
    std::vector<Work> works = {ours};
    for (const Contender &c : contenders) {
        if (c.work == nullptr) {
            rounds::missing(work, c.name);
            continue;
        }
        const char *want = c.is_floor ? "<=1.6" : doc.must_win ? "<1" : "";
        arms.push_back({c.name, want, [&doc, &c] { c.work(doc.text); }});
        works.push_back(c.work);
    }
    if (!rounds::once_work().empty()) {
        rounds::arms(work, arms);
        return;
    }
    std::vector<std::vector<double>> times(works.size());
    for (int i = rounds::is_quick() ? 5 : 21; i > 0; i--) {
        for (size_t arm = 0; arm < works.size(); arm++) {
            times[arm].push_back(sample(works[arm], doc, rounds));
        }
    }
    for (size_t arm = 1; arm < works.size(); arm++) {
        rounds::report(work, work.name, arms[arm], rounds::median(times[0]),
                       rounds::median(times[arm]), rounds::noise_of(times[0], times[arm]), "s CPU");
    }
    if (!rounds::is_quick()) {
        rounds::compare_instructions(work, arms);
    }
}

#ifdef VX_HAVE_SIMDJSON
bool same_trees(const vxlb_jsont *a, const vxlb_jsont *b) {
    for (; a != nullptr && b != nullptr; a = a->next_sib, b = b->next_sib) {
        if (memcmp(a->name, b->name, sizeof a->name) != 0 || a->type != b->type ||
            a->numChild != b->numChild || a->value_len != b->value_len ||
            (a->value != nullptr &&
             memcmp(a->value, b->value, static_cast<size_t>(a->value_len) + 1) != 0) ||
            !same_trees(a->children, b->children)) {
            return false;
        }
    }
    return a == b;
}

// The floor is one only if it writes the same tree.
void check_floor(const Document &doc) {
    if (!rounds::once_work().empty()) {
        return;
    }
    vxlb_json_t *json =
        vxlb_json_init_buffer(doc.text.data(), 0, static_cast<int>(doc.text.size()), nullptr);
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    Floor arm(doc.text);
    if (tree == nullptr || !same_trees(tree, arm.build()) || tree->bbm->offset != arm.bbm.offset) {
        fprintf(stderr, "%s: the trees differ\n", doc.name.c_str());
        exit(1);
    }
    fprintf(stderr, "%s: %zu bytes, block of %llu\n", doc.name.c_str(), doc.text.size(),
            static_cast<unsigned long long>(tree->bbm->offset));
    arm.release();
    vxlb_jsont_free(tree);
    vxlb_json_free(json);
}
#else
void check_floor(const Document &) {}
#endif

void add_files(std::vector<Document> *docs, const char *directory) {
    DIR *dir = opendir(directory);
    for (const dirent *entry; dir != nullptr && (entry = readdir(dir)) != nullptr;) {
        const std::string name = entry->d_name;
        if (name.size() < 5 || name.substr(name.size() - 5) != ".json") {
            continue;
        }
        std::ifstream file(std::string(directory) + "/" + name, std::ios::binary);
        std::string text((std::istreambuf_iterator<char>(file)), {});
        // Numbers take nearly all bytes of a list of coordinates.
        const auto digits =
            std::count_if(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
        const bool is_list = static_cast<size_t>(digits) > text.size() / 2;
        docs->push_back({name, std::move(text), !is_list});
    }
    if (dir != nullptr) {
        closedir(dir);
    }
}

} // namespace

int main(int argc, char **argv) {
    rounds::init(argc, argv);
    const bool quick = rounds::is_quick();
    std::vector<Document> docs = {
        {"a scenario of 7 KB", scenario_document(7000, 1), true},
        {"a scenario of 100 KB", scenario_document(100000, 2), true},
        {"a feed", feed_document(quick ? 50 : 700, 3), true},
        {"a catalogue", catalogue_document(quick ? 100 : 1500, 4), true},
        {"coordinates", coordinates_document(quick ? 3000 : 56000, 5), false},
    };
    if (const char *directory = getenv("JSON_BENCH_DATA")) {
        add_files(&docs, directory);
    }
    for (const Document &doc : docs) {
#ifdef VX_HAVE_SIMDJSON
        Floor arm(doc.text);
        floor_arm = &arm;
#endif
        check_floor(doc);
        measure(doc);
    }
    return 0;
}
