// SPDX-License-Identifier: Apache-2.0
#include "trace_log.h"

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_get_norm_obj_id.h>

#include <algorithm>
#include <climits>
#include <map>
#include <random>

namespace {

struct Table : NormObjKey {
    explicit Table(int heads) { vxlb_init_norm_id_table_ex(this, heads); }
    ~Table() {
        vxlb_obj_hash_destroy(this);
        free(id_name);
    }
};

int g_given;

unsigned int gen_ex(NormObjKey *key, const char *name, int len, int *flag) {
    return vxlb_get_or_gen_norm_id_ex(key, name, len, flag, nullptr);
}
unsigned int set_or_gen(NormObjKey *key, const char *name, int len, int *flag) {
    return vxlb_get_set_or_gen_norm_id(key, name, len, flag, -1);
}
unsigned int set_or_gen_given(NormObjKey *key, const char *name, int len, int *flag) {
    return vxlb_get_set_or_gen_norm_id(key, name, len, flag, g_given);
}
unsigned int set_given(NormObjKey *key, const char *name, int len, int *) {
    return vxlb_set_norm_id(key, name, len, g_given);
}

// Every adding operation, and its ids and flags for the calls of the test below.
const struct Adder {
    unsigned int (*add)(NormObjKey *key, const char *name, int len, int *flag);
    const char *story;
} ADDERS[] = {
    {vxlb_get_or_set_norm_id, "-1/0 -1/0 -1/0 0/0 0/1 1/1 2/2 1/0 -1/0 "},
    {vxlb_get_or_gen_norm_id, "-1/0 -1/0 -1/0 0/0 0/1 1/1 2/2 1/0 3/3 "},
    {gen_ex, "-1/0 -1/0 -1/0 -1/0 0/1 1/1 2/2 1/0 -1/0 "},
    {set_or_gen, "-1/0 -1/0 -1/0 0/0 0/1 1/1 2/2 1/0 3/3 "},
    {set_or_gen_given, "-1/0 -1/0 -1/0 0/0 500/1 500/1 500/1 500/0 500/1 "},
    {vxlb_get_set_or_gen_norm_id_ex, "-1/0 -1/0 -1/0 0/0 0/1 1/1 2/2 1/0 3/3 "},
    {set_given, "0/77 0/77 0/77 0/77 500/77 500/77 500/77 500/77 500/77 "},
};

} // namespace

TEST(VxlbNormId, AddersAgreeExceptWhereTheyDiffer) {
    const std::pair<const char *, int> names[] = {{nullptr, 0}, {"", 3},   {"", 0},
                                                  {"neg", -1},  {"a", 1},  {"bb", 2},
                                                  {"cc", 2},    {"bb", 2}, {"ddd", 0}};
    g_given = 500;
    for (const Adder &adder : ADDERS) {
        TraceLog log(VXLB_MOD_MISC, VXLB_LEVEL_2);
        Table table(1); // one bucket for all
        std::string story;
        const std::string complaint = said([&] {
            for (const auto &[name, len] : names) {
                int flag = 77;
                const unsigned int id = adder.add(&table, name, len, &flag);
                story += text("%d/%d ", static_cast<int>(id), flag);
                EXPECT_EQ(id, adder.add(&table, name, len, nullptr));
            }
        });
        EXPECT_EQ(adder.story, story);
        const std::string neg =
            "Error: Obtained hash index '-1' for string 'neg' is not correct. Hence returning.";
        EXPECT_EQ(adder.add == set_given ? neg + neg : "", complaint);
        EXPECT_NE(std::string::npos, log.take().find("key = @, in_str = ddd in_strlen = 0_\n"));
        EXPECT_STREQ("a", table.bigbuf.buffer + table.nt[0].str);
    }
}

// Lengths that are not the text's are hashed over the whole text, and stored and compared over what
// was said, up to a NUL.
TEST(VxlbNormId, ComparesWhatTheLengthsSay) {
    struct Stored {
        std::string text; // with what stands behind the NUL
        int id;
    };
    std::mt19937 random(3);
    for (int round = 0; round < 300; round++) {
        Table table(1 << round % 6);
        std::map<int, std::vector<Stored>> buckets;
        int last = -1;
        for (int i = 0; i < 40; i++) {
            char name[24] = "";
            for (size_t c = 0, len = 1 + random() % 20; c < len; c++) {
                name[c] = random() % 12 == 0 ? '\xff' : static_cast<char>('a' + random() % 2);
            }
            const int len = random() % 3 != 0 ? static_cast<int>(strlen(name))
                                              : static_cast<int>(1 + random() % 22);
            uint64_t hash = 2166136261;
            for (const char *c = name; *c != '\0'; c++) {
                hash = (hash ^ static_cast<unsigned char>(*c)) * 16777619;
            }
            const int bucket = static_cast<int>(hash % static_cast<uint64_t>(table.prime));
            ASSERT_EQ(bucket, vxlb_get_hash_index_ex(name, len, table.size, table.prime));
            std::vector<Stored> &chain = buckets[bucket];
            const std::string text(name, static_cast<size_t>(len));
            const auto at = std::find_if(chain.begin(), chain.end(), [&](const Stored &stored) {
                return stored.text.size() == text.size() &&
                       strncmp(stored.text.data(), text.data(), text.size()) == 0;
            });
            const bool is_known = at != chain.end();
            ASSERT_EQ(is_known ? at->id : -2, vxlb_get_norm_id(&table, name, len));
            const int id = is_known ? at->id : ++last;
            ASSERT_EQ(static_cast<unsigned>(id),
                      vxlb_get_or_gen_norm_id(&table, name, len, nullptr));
            if (!is_known) {
                chain.push_back({text, id});
            }
        }
    }
}

TEST(VxlbNormId, RoundsSizesAndHashesNames) {
    std::string rounded;
    for (const int n : {-3, 0, 1, 2, 3, 4, 5, 9, 1000, 1024, 1 << 30}) {
        rounded += text("%d/%d ", vxlb_change_to_2_power_n(n), get_prime(n));
    }
    EXPECT_EQ("1/1 1/1 1/1 2/2 4/3 4/3 8/5 16/7 1024/997 1024/1021 1073741824/1073741789 ",
              rounded);
    EXPECT_EQ(-1, vxlb_change_to_2_power_n((1 << 30) + 1));
    // FNV-1a in 64 bits, with the constants of 32 bits.
    EXPECT_EQ((0x811C9DC5 ^ uint64_t{0xff}) * 0x01000193 % 16381,
              vxlb_get_hash_index_ex("\xff", 1, 1, 16381));
    EXPECT_EQ(419, vxlb_get_hash_index_ex("0x7f00aa", 1, 1, 16381));
    EXPECT_EQ(-1, vxlb_get_hash_index_ex(nullptr, 1, 1, 1));
    EXPECT_EQ(-1, vxlb_get_hash_index_ex("x", 0, 1, 1));
    EXPECT_EQ(-1, vxlb_get_hash_index_ex("x", 1, 0, 1));
    EXPECT_EQ(-1, vxlb_get_hash_index_ex("x", 1, 1, 0));
}

TEST(VxlbNormId, RefusesSizesThatNoTableHas) {
    NormObjKey key;
    for (const int size : {0, -1, (1 << 30) + 1}) {
        EXPECT_EQ(-1, vxlb_init_norm_id_table(&key, size));
        EXPECT_EQ(-1, vxlb_init_norm_id_table_v2(&key, size, 100));
        EXPECT_EQ(0, vxlb_init_norm_id_table_ex(&key, size)) << "whatever the plain init says";
        EXPECT_TRUE(!key.nt && !key.id_name && key.size == 0);
    }
    EXPECT_EQ(-1, vxlb_init_norm_id_table(nullptr, 1));
    EXPECT_EQ(-1, vxlb_init_norm_id_table_ex(nullptr, 1));
    EXPECT_EQ(-1, vxlb_init_norm_id_table_v2(&key, 1, 0));
}

TEST(VxlbNormId, EntriesCarryADatum) {
    Table table(1);
    NormTableData data;
    const auto get = [&](const char *name, int len) {
        int hs = 77, value = data.val_int = 5;
        const int id = vxlb_get_norm_id_hash_data_ex(&table, name, len, &hs, &data);
        EXPECT_EQ(id, vxlb_get_norm_id(&table, name, len));
        EXPECT_EQ(id, vxlb_get_norm_id_hash_data(&table, name, len, nullptr, &value));
        EXPECT_EQ(id, vxlb_get_norm_id_hash_data(&table, name, len, nullptr, nullptr));
        EXPECT_EQ(value, data.val_int);
        return text("%d %d %ld", id, hs, data.val_long);
    };
    data.val_long = -1LL << 40;
    EXPECT_EQ(9u, vxlb_set_norm_id_and_data_ex(&table, "long", 0, 9, data));
    EXPECT_EQ(9u, vxlb_set_norm_id_and_data(&table, "long", 4, 8, 'x')) << "not changed";
    EXPECT_EQ(1u, vxlb_set_norm_id_and_data(&table, "char", 0, 1, -3));
    EXPECT_EQ(10u, vxlb_get_or_gen_norm_id(&table, "none", 0, nullptr)) << "behind the highest";
    EXPECT_EQ(text("9 0 %ld", -1L << 40), get("long", 4));
    EXPECT_EQ("1 0 4294967293", get("char", 4));
    EXPECT_EQ("10 0 0", get("none", 4));
    data.val_long = 0;
    EXPECT_EQ("-2 0 5", get("absent", 6));
    EXPECT_EQ("-1 77 5", get("", 1));
    EXPECT_EQ("-1 77 5", get("long", 0));
    EXPECT_EQ("-2 77 5", get("long", -1));
    EXPECT_EQ(0, vxlb_delete_norm_id(&table, 0));
    for (const int hash : {-1, 0, 1, INT_MAX}) {
        EXPECT_EQ(-1, vxlb_delete_norm_id(&table, hash)) << "nothing there";
    }
    const NormTable &head = table.nt[0];
    EXPECT_EQ("-1 -1 -1 -1", text("%ld %d %d %ld", head.str, head.len, head.idx, head.data));
    EXPECT_EQ("-2 0 0", get("char", 4)) << "the chain is out of reach, and the datum zeroed";
    int hs = 77;
    vxlb_get_or_gen_norm_id_ex(&table, "new", 3, nullptr, &hs);
    EXPECT_EQ("1 0 4294967293", get("char", 4)) << "back behind a new head";
    EXPECT_EQ(0, hs);
    vxlb_get_or_gen_norm_id_ex(&table, "newer", 5, nullptr, &(hs = 77));
    EXPECT_EQ(77, hs) << "went behind another name";
    vxlb_set_start_norm_id(&table, INT_MAX);
    vxlb_set_start_norm_id(&table, 5);
    EXPECT_EQ(0x80000000u, vxlb_get_or_gen_norm_id(&table, "abcdef", 3, nullptr)) << "wrapped";
    EXPECT_EQ("-2 0 5", get("abcdef", 6)) << "stored as abc";
}

TEST(VxlbNormId, TheReverseIndexGrowsBySixteen) {
    Table table(64);
    for (int i = 0; i < 40; i++) {
        const std::string name = text("%d", i + 10);
        vxlb_get_or_set_norm_id(&table, name.c_str(), 2, nullptr);
        EXPECT_EQ((i / 16 + 1) * 16, table.max_norm_id_size);
        EXPECT_EQ(name, vxlb_get_norm_table_data(&table, i));
    }
    add_pnt_to_idname(&table, 64, table.nt); // grows once, and is not recorded
    add_pnt_to_idname(&table, -1, table.nt);
    add_pnt_to_idname(&table, 63, table.id_name[7]);
    EXPECT_STREQ("17", vxlb_get_norm_table_data(&table, 63));
    table.id_name[63]->str = -1; // a head that was emptied
    for (const int id : {40, 62, 63, 64, INT_MAX}) {
        EXPECT_STREQ("NormIdNameNotFound", vxlb_get_norm_table_data(&table, id)) << id;
    }
    EXPECT_STREQ("InvalidInput", vxlb_get_norm_table_data(&table, -1));
    EXPECT_STREQ("InvalidInput", vxlb_get_norm_table_data(nullptr, 0));
}

// A whole life, as the traces of the table and of its allocations tell it.
TEST(VxlbNormId, AResetKeepsMemoryAndDestroyAllButTheIndex) {
    TraceLog log(VXLB_MOD_MISC | VXLB_MOD_MEMORY, VXLB_LEVEL_2);
    NormObjKey key;
    vxlb_init_norm_id_table_ex(&key, 3);
    const std::string init = log.take();
    EXPECT_TRUE(key.nt[3].str == -1 && key.nt[3].data == 0 && !key.nt[3].nt_next);
    EXPECT_EQ(UINTPTR_MAX, reinterpret_cast<uintptr_t>(key.id_name[3]));
    const auto fields = [&] {
        return text("%d %d %d %d %ld %d", key.size, key.prime, key.max_norm_id_size, key.prev_id,
                    key.bigbuf.offset, key.nt_mpool->busy_head != nullptr);
    };
    EXPECT_EQ("4 3 0 -1 0 0", fields());
    for (const char *name : {"a", "b", "c", "d"}) {
        vxlb_get_or_set_norm_id(&key, name, 1, nullptr);
    }
    vxlb_add_id_in_free_list(&key, 9);
    EXPECT_EQ("4 3 16 3 8 1", fields());
    EXPECT_EQ(0, vxlb_obj_hash_reset(&key));
    EXPECT_EQ("4 3 16 -1 0 0", fields());
    EXPECT_TRUE(!key.free_norm_id_list_head && !key.id_name[0] && !key.id_name[15]);
    EXPECT_EQ(-2, vxlb_get_norm_id(&key, "a", 1));
    EXPECT_STREQ("NormIdNameNotFound", vxlb_get_norm_table_data(&key, 0));
    log.take();
    vxlb_get_or_set_norm_id(&key, "z", 1, nullptr);
    vxlb_get_norm_table_data(&key, 0);
    vxlb_add_id_in_free_list(&key, 9);
    vxlb_obj_hash_reset(&key);
    vxlb_add_id_in_free_list(&key, 9);
    vxlb_obj_hash_destroy(&key);
    free(key.id_name);
    EXPECT_EQ(R"(Method called
size = 1048576
VXLB_MALLOC'ed (bigbuf) done. ptr = @, size = 1048576, allocated size = 1048576
size = 224
VXLB_MALLOC'ed (NormalTableInit) done. ptr = @, size = 224, allocated size = 224
size = 96
VXLB_MALLOC'ed (Normal Table Memory Pool) done. ptr = @, size = 96, allocated size = 96
size = 32
VXLB_MALLOC'ed (NormalTableInit.id_name) done. ptr = @, size = 32, allocated size = 32
Method called key = key, in_str = z in_strlen = 1_
Method called, key = key, norm_id = 0, p_nt = @, max_norm_id_size = 16
Method called key = key, norm_id = 0
index = 0, norm_id = 0, key->prev_id = 0, nt->str = 0, )"
              R"(key->id_name[norm_id - key->prev_id] = @, name = z

Method called, key = key
VXLB_FREE'ed (free_norm_id_list) Freed. ptr = $@$ for index -1, allocated_size = 1
Method called
VXLB_FREE'ed (malloced_slotes[i]) Freed. ptr = $@$ for index -1, allocated_size = 1
VXLB_FREE'ed (Memory pool) Freed. ptr = $@$ for index -1, allocated_size = 1
VXLB_FREE'ed (bigbuf) Freed. ptr = $@$ for index -1, allocated_size = 1
VXLB_FREE'ed (Normalization table creation) Freed. ptr = $@$ for index -1, allocated_size = 1
VXLB_FREE'ed (free_tmp) Freed. ptr = $@$ for index -1, allocated_size = 1
Method exiting
)",
              init + log.take({{&key, "key"}}));
    vxlb_obj_hash_destroy(&key); // nothing is left
}
