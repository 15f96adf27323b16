// SPDX-License-Identifier: Apache-2.0
// Families of documents that make careless parsers slow: twice the size may cost 2.3 times the time at most.
// Measured over two doublings. The time is that of the processor, the least of several runs; a family that
// seems to grow faster is measured again: a busy machine disturbs, but a quadratic step does not go away.
//
//     growth BYTES    the smallest size

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <functional>

#include "json_model.h"

namespace {

constexpr double MOST = 2.3;
constexpr double MOST_OF_SMALL = 3; // below a megabyte the processor's caches play a part
constexpr size_t LARGE = 1000000;
constexpr double MOST_SECONDS = 4; // for the largest size, four megabytes
constexpr int TRIES = 40;

struct Family {
    const char *name, *begin, *unit, *end;
};

const Family families[] = {
    {"literals in an array", "{\"a\":[1", ",1", "]}"},
    {"strings in an array", "{\"a\":[\"s\"", ",\"s\"", "]}"},
    {"objects in an array", "{\"a\":[{}", ",{}", "]}"},
    {"arrays in an array", "{\"a\":[[]", ",[]", "]}"},
    {"kinds that change", "{\"a\":[1", ",\"s\",[1],{\"k\":1},1", "]}"},
    {"members of one name", "{\"a\":1", ",\"a\":1", "}"},
    {"members with strings", "{\"a\":1", ",\"b\":\"text\"", "}"},
    {"a long string", "{\"a\":\"", "text ", "\"}"},
    {"a string of escapes", "{\"a\":\"", "\\n\\\"", "\"}"},
    {"a string of codes", "{\"a\":\"", "\\u0041", "\"}"},
    {"a string of backslashes", "{\"a\":\"", "\\\\", "\"}"},
    {"a long name", "{\"", "name", "\":1,\"b\":2}"},
    {"a long literal", "{\"a\":", "1234", "}"},
    {"blanks", "{\"a\":", " \n\t", "1}"},
    {"commas", "{\"a\":[", ",", "]}"},
    {"quotes", "{\"a\":[", "\"\"", "]}"},
    {"opening brackets", "{\"b\":1,\"a\":", "[", "}"},
    {"opening braces", "{\"b\":1,\"a\":", "{", "}"},
    {"objects in objects", "{\"b\":1,\"a\":", "{\"a\":", "}"},
    {"closing braces", "{}", "}", ""},
    {"a string without an end", "{\"a\":\"", "text\\\" ", ""},
    {"bracketed strings", "{\"a\":[[\"]\"]", ",[\"[\",\"}\"]", "]}"},
};

std::string document(const Family &family, size_t size) {
    std::string doc = family.begin;
    while (doc.size() < size) {
        doc += family.unit;
    }
    return doc + family.end;
}

void search(vxlb_json_t *json) {
    if (vxlb_json_open_obj(json) == 0) {
        vxlb_json_goto_element(json, "absent");
        if (vxlb_json_goto_element(json, "a") == 0 && vxlb_json_open_array(json) == 0) {
            vxlb_json_goto_array_item(json, 1 << 30);
        }
    }
}

void use_tree(vxlb_jsont *tree, size_t size) {
    if (tree != nullptr) {
        std::string text(2 * size + 3, '\0');
        std::vector<char *> values(size);
        jsont_to_string(tree, text.data(), static_cast<int>(text.size()) - 1, 0, 0, 0);
        vxlb_jsont_eval_expr(tree, "$.a[1000000000]");
        vxlb_jsont_eval_expr_str(tree, "$.a[k=1].k", values.data(), static_cast<int>(size));
        vxlb_jsont_free(tree);
    }
}

double seconds(const std::string &doc, const MemoryFile &file) {
    const clock_t begin = clock();
    for (const int window : {0, 8192}) {
        const std::function<vxlb_json_t *()> open = [&] {
            return window == 0 ? vxlb_json_init_buffer(doc.data(), 32767,
                                                       static_cast<int>(doc.size()), nullptr)
                               : vxlb_json_init(file.path.c_str(), 32767, window, nullptr);
        };
        vxlb_json_t *json = open();
        use_tree(vxlb_json_to_jsont(json), doc.size());
        vxlb_json_free(json);
        json = open();
        search(json);
        vxlb_json_free(json);
    }
    return static_cast<double>(clock() - begin) / CLOCKS_PER_SEC;
}

double most_for(size_t size) {
    return size < LARGE ? MOST_OF_SMALL : MOST;
}

// The least growth of one doubling in several tries; *slow receives the least time of the larger document.
double growth(const Family &family, size_t size, double *slow) {
    const std::string docs[] = {document(family, size), document(family, 4 * size)};
    const MemoryFile files[] = {MemoryFile(docs[0]), MemoryFile(docs[1])};
    double least[2] = {1e9, 1e9};
    for (int i = 0; i < TRIES && (i < 3 || sqrt(least[1] / least[0]) > most_for(size)); i++) {
        for (const int which : {0, 1}) {
            least[which] = std::min(least[which], seconds(docs[which], files[which]));
        }
    }
    *slow = least[1];
    return sqrt(least[1] / least[0]);
}

} // namespace

int main(int, char **argv) {
    double worst = 0, slowest = 0;
    for (const Family &family : families) {
        double slow = 0;
        const double ratio = growth(family, std::stoul(argv[1]), &slow);
        fprintf(stderr, "%-26s %.2f times, %.1f ms\n", family.name, ratio, slow * 1000);
        worst = std::max(worst, ratio);
        slowest = std::max(slowest, slow);
    }
    printf(
        "11 growth: %zu families, twice the size costs at most %.2f times the time; %lu bytes at most %.0f ms\n",
        std::size(families), worst, 4 * std::stoul(argv[1]), slowest * 1000);
    return worst <= most_for(std::stoul(argv[1])) && slowest <= MOST_SECONDS ? 0 : 1;
}
