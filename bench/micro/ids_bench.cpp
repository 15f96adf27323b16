// SPDX-License-Identifier: Apache-2.0
// Id table: 100,000 names are added, found in another order than they came, and looked for in vain.
//
// Names are of the kind that the table gets: paths of a project and the text of addresses. The load
// is names over buckets. The hash maps can't be given fewer buckets than they want, so they are the
// same at every load; they reserve their room, as the table does. The bare table is the same design
// and nothing else: FNV-1a over the name, a prime number of heads, chains in order of arrival, the
// table's own entries taken from one array, the names from one block. A second one has entries of 24
// bytes, which leave out what the table's users find in its entries: it shows what those cost.
// Abseil's map keeps an address within its slot, where no table with a block of names can follow: that
// comparison is for information.
#include "compare.h"

#include <libvxcore/vxlb_get_norm_obj_id.h>

#include <random>
#include <string>
#include <unordered_map>
#ifdef VX_HAVE_ABSL
#    include <absl/container/flat_hash_map.h>
#endif

namespace {

size_t name_count = 100000;
std::vector<std::string> names;   // in order of arrival
std::vector<std::string> sought;  // the same, shuffled
std::vector<std::string> unknown; // none of them

std::string path_of(std::mt19937 &random) {
    static const char *const words[] = {"login", "search", "checkout", "cart", "report", "upload"};
    return "project_" + std::to_string(random() % 500) + "/sub_" + std::to_string(random() % 40) +
           "/" + words[random() % 6] + "_" + std::to_string(random());
}

std::string address_of(std::mt19937 &random) {
    char text[32];
    snprintf(text, sizeof(text), "0x55%010lx",
             (static_cast<unsigned long>(random()) << 4) & 0xffffffffffUL);
    return text;
}

void make_names(std::string (*make)(std::mt19937 &)) {
    std::mt19937 random(7);
    std::unordered_map<std::string, int> seen;
    names.clear();
    unknown.clear();
    while (unknown.size() < name_count) {
        const std::string name = make(random);
        if (seen.emplace(name, 0).second) {
            (names.size() < name_count ? names : unknown).push_back(name);
        }
    }
    sought = names;
    std::shuffle(sought.begin(), sought.end(), random);
}

struct SmallEntry {
    int64_t str;
    int len;
    int idx;
    SmallEntry *nt_next;
};

template <class Entry> struct Bare {
    Entry *heads;
    Entry *entries;
    char *text;
    size_t used;
    int64_t text_used;
    size_t prime;
    int last;
};

template <class Entry> void bare_init(Bare<Entry> *bare, int prime) {
    size_t bytes = 1;
    for (const std::string &name : names) {
        bytes += name.size() + 1;
    }
    *bare = {};
    bare->prime = static_cast<size_t>(prime);
    bare->heads = static_cast<Entry *>(malloc(bare->prime * sizeof(Entry)));
    for (size_t i = 0; i < bare->prime; i++) {
        bare->heads[i] = {};
        bare->heads[i].len = -1;
    }
    bare->entries = static_cast<Entry *>(malloc(names.size() * sizeof(Entry)));
    bare->text = static_cast<char *>(malloc(bytes));
    bare->last = -1;
}

template <class Entry> void bare_free(Bare<Entry> *bare) {
    free(bare->heads);
    free(bare->entries);
    free(bare->text);
}

template <class Entry>
Entry *bare_walk(const Bare<Entry> *bare, const char *name, int len, Entry **last) {
    uint64_t hash = 2166136261;
    for (const char *c = name; *c != '\0'; c++) {
        hash = (hash ^ static_cast<unsigned char>(*c)) * 16777619;
    }
    Entry *entry = &bare->heads[hash % bare->prime];
    *last = nullptr;
    if (entry->len < 0) {
        *last = entry;
        return nullptr;
    }
    for (; entry != nullptr; entry = entry->nt_next) {
        if (entry->len == len &&
            memcmp(bare->text + entry->str, name, static_cast<size_t>(len)) == 0) {
            return entry;
        }
        *last = entry;
    }
    return nullptr;
}

template <class Entry>
__attribute__((noinline)) int bare_find(const Bare<Entry> *bare, const char *name, int len) {
    Entry *last = nullptr;
    const Entry *const entry = bare_walk(bare, name, len, &last);
    return entry != nullptr ? entry->idx : -2;
}

template <class Entry>
__attribute__((noinline)) int bare_add(Bare<Entry> *bare, const char *name, int len) {
    Entry *last = nullptr;
    Entry *entry = bare_walk(bare, name, len, &last);
    if (entry != nullptr) {
        return entry->idx;
    }
    if (last->len < 0) {
        entry = last;
    } else {
        entry = &bare->entries[bare->used++];
        last->nt_next = entry;
    }
    entry->str = bare->text_used;
    entry->len = len;
    entry->idx = ++bare->last;
    entry->nt_next = nullptr;
    memcpy(bare->text + bare->text_used, name, static_cast<size_t>(len) + 1);
    bare->text_used += len + 1;
    return entry->idx;
}

NormObjKey table;
Bare<NormTable> same;
Bare<SmallEntry> small;

size_t text_bytes() {
    size_t bytes = 65536;
    for (const std::string &name : names) {
        bytes += name.size() + 1;
    }
    return bytes;
}

void table_init(int size) {
    vxlb_init_norm_id_table_v2(&table, size, static_cast<int>(text_bytes()));
}

void table_add() {
    for (const std::string &name : names) {
        vxlb_get_or_gen_norm_id(&table, name.c_str(), static_cast<int>(name.size()), nullptr);
    }
}

template <class Entry> void bare_add_all(Bare<Entry> *bare) {
    for (const std::string &name : names) {
        bare_add(bare, name.c_str(), static_cast<int>(name.size()));
    }
}

template <class Entry>
rounds::Arm arm_of_adding(const char *name, const char *want, Bare<Entry> *bare, int size) {
    return {name, want, [=] { bare_add_all(bare); },
            [=] { bare_init(bare, get_prime(vxlb_change_to_2_power_n(size))); },
            [=] { bare_free(bare); }};
}

template <class Map> void map_add(Map &map) {
    int id = 0;
    for (const std::string &name : names) {
        id += map.try_emplace(name, id).second ? 1 : 0;
    }
}

template <class Find> void find_all(const std::vector<std::string> &list, int missing, Find find) {
    int found = 0;
    for (const std::string &name : list) {
        found += find(name) >= 0 ? 1 : 0;
    }
    if (found != static_cast<int>(list.size()) - missing) {
        abort(); // the arms must agree
    }
}

std::string conditions(double load, const std::string &kind) {
    char text[16];
    snprintf(text, sizeof(text), ", load %.1f", load);
    return ", " + kind + text;
}

// Instructions are counted at one load: the set-up of each count takes seconds.
rounds::Work work(const std::string &what, double load, const std::string &kind) {
    return {.group = "ids",
            .name = what + conditions(load, kind),
            .items = static_cast<double>(name_count),
            .rounds = 11,
            .instructions = load == 1.0};
}

void measure_add(double load, const std::string &kind, int size) {
    using Standard = std::unordered_map<std::string, int>;
    static Standard *standard;
    std::vector<rounds::Arm> arms = {
        {"ours", "", table_add, [=] { table_init(size); }, [] { vxlb_obj_hash_destroy(&table); }},
        {"std::unordered_map", "<=0.77", [] { map_add(*standard); },
         [] {
             standard = new Standard;
             standard->reserve(name_count);
         },
         [] { delete standard; }},
        arm_of_adding("bare table", "<=1.15", &same, size),
        arm_of_adding("bare table, small entries", "", &small, size)};
#ifdef VX_HAVE_ABSL
    static absl::flat_hash_map<std::string, int> *flat;
    arms.push_back({"absl::flat_hash_map", "", [] { map_add(*flat); },
                    [] {
                        flat = new absl::flat_hash_map<std::string, int>;
                        flat->reserve(name_count);
                    },
                    [] { delete flat; }});
#endif
    rounds::arms(work("add", load, kind), arms);
}

template <class Entry>
rounds::Arm arm_of_finding(const char *name, const char *want, const Bare<Entry> *bare,
                           const std::vector<std::string> &list, int missing) {
    return {name, want, [=, &list] {
                find_all(list, missing, [=](const std::string &sought_name) {
                    return bare_find(bare, sought_name.c_str(),
                                     static_cast<int>(sought_name.size()));
                });
            }};
}

void measure_find(double load, const std::string &kind, const std::string &what,
                  const std::vector<std::string> &list, int missing) {
    static std::unordered_map<std::string, int> standard;
    standard.clear();
    map_add(standard);
    std::vector<rounds::Arm> arms = {
        {"ours", "",
         [&, missing] {
             find_all(list, missing, [](const std::string &name) {
                 return vxlb_get_norm_id(&table, name.c_str(), static_cast<int>(name.size()));
             });
         }},
        {"std::unordered_map", "",
         [&, missing] {
             find_all(list, missing, [](const std::string &name) {
                 const auto at = standard.find(name);
                 return at == standard.end() ? -2 : at->second;
             });
         }},
        arm_of_finding("bare table", "<=1.15", &same, list, missing),
        arm_of_finding("bare table, small entries", "", &small, list, missing)};
#ifdef VX_HAVE_ABSL
    static absl::flat_hash_map<std::string, int> flat;
    flat.clear();
    map_add(flat);
    const bool is_asked = missing == 0 && kind == "paths";
    arms.push_back({"absl::flat_hash_map", is_asked ? "<=1.30" : "", [&, missing] {
                        find_all(list, missing, [](const std::string &name) {
                            const auto at = flat.find(name);
                            return at == flat.end() ? -2 : at->second;
                        });
                    }});
#else
    rounds::missing(work(what, load, kind), "absl::flat_hash_map");
#endif
    rounds::arms(work(what, load, kind), arms);
}

void measure(double load, const std::string &kind) {
    if (!rounds::is_wanted(conditions(load, kind))) {
        return;
    }
    // The table rounds up to a power of two: the load is what it then has, about.
    const int size = static_cast<int>(static_cast<double>(name_count) / load);
    measure_add(load, kind, size);
    table_init(size);
    table_add();
    bare_init(&same, table.prime);
    bare_add_all(&same);
    bare_init(&small, table.prime);
    bare_add_all(&small);
    measure_find(load, kind, "find", sought, 0);
    measure_find(load, kind, "find in vain", unknown, static_cast<int>(unknown.size()));
    vxlb_obj_hash_destroy(&table);
    bare_free(&same);
    bare_free(&small);
}

} // namespace

int main(int argc, char **argv) {
    rounds::init(argc, argv);
    if (rounds::is_quick()) {
        name_count = 20000;
    }
    make_names(path_of);
    for (const double load : {0.5, 1.0, 2.0, 4.0}) {
        measure(load, "paths");
    }
    make_names(address_of);
    for (const double load : {0.5, 4.0}) {
        measure(load, "addresses");
    }
    return 0;
}
