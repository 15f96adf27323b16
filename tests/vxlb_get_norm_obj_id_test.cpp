// SPDX-License-Identifier: Apache-2.0
#include "trace_log.h"

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_get_norm_obj_id.h>

#include <climits>
#include <cstring>
#include <deque>
#include <map>
#include <random>
#include <set>

namespace {

using Lines = std::vector<std::string>;
constexpr unsigned int ALL_ONES = 0xFFFFFFFF;

struct Table : NormObjKey {
    explicit Table(int heads, bool has_index = false) {
        EXPECT_EQ(0,
                  (has_index ? vxlb_init_norm_id_table_ex : vxlb_init_norm_id_table)(this, heads));
    }
    ~Table() {
        vxlb_obj_hash_destroy(this);
        free(id_name);
    }
};

std::string name_of(const Table &table, const NormTable *entry) {
    return {table.bigbuf.buffer + entry->str, static_cast<size_t>(entry->len)};
}

std::vector<int> free_ids(const NormObjKey &key) {
    std::vector<int> ids;
    const FreeNormIdList *last = nullptr;
    for (const FreeNormIdList *id = key.free_norm_id_list_head; id != nullptr;
         id = id->next_free_id) {
        ids.push_back(id->free_id);
        last = id;
    }
    EXPECT_EQ(last, key.free_norm_id_list_tail);
    return ids;
}

NormTableData datum(int64_t value) {
    NormTableData data;
    data.val_long = value;
    return data;
}

// Every adding operation behind one face.
struct Adder {
    const char *name;
    unsigned int (*add)(NormObjKey *key, const char *name, int len, int *flag);
    bool measures;
    unsigned int bad_input;
    unsigned int negative_hash;
    bool is_explicit; // gives id 500, and knows no flag
};

const Adder ADDERS[] = {
    {"get_or_set", vxlb_get_or_set_norm_id, false, ALL_ONES, 0, false},
    {"get_or_gen", vxlb_get_or_gen_norm_id, true, ALL_ONES, 0, false},
    {"get_or_gen_ex",
     [](NormObjKey *key, const char *name, int len, int *flag) {
         return vxlb_get_or_gen_norm_id_ex(key, name, len, flag, nullptr);
     },
     false, ALL_ONES, ALL_ONES, false},
    {"get_set_or_gen",
     [](NormObjKey *key, const char *name, int len, int *flag) {
         return vxlb_get_set_or_gen_norm_id(key, name, len, flag, -1);
     },
     true, ALL_ONES, 0, false},
    {"get_set_or_gen_ex", vxlb_get_set_or_gen_norm_id_ex, true, ALL_ONES, 0, false},
    {"set",
     [](NormObjKey *key, const char *name, int len, int *) {
         return vxlb_set_norm_id(key, name, len, 500);
     },
     true, 0, 0, true},
};

} // namespace

TEST(VxlbNormId, RoundsUpToPowersOfTwoAndDownToPrimes) {
    const int powers[][2] = {{-3, 1},
                             {0, 1},
                             {1, 1},
                             {2, 2},
                             {3, 4},
                             {1000, 1024},
                             {1024, 1024},
                             {(1 << 29) + 1, 1 << 30},
                             {1 << 30, 1 << 30},
                             {(1 << 30) + 1, -1},
                             {INT_MAX, -1}};
    for (const auto &[value, power] : powers) {
        EXPECT_EQ(power, vxlb_change_to_2_power_n(value)) << value;
    }
    const int primes[][2] = {{1, 1},         {0, 1},       {2, 2},
                             {3, 3},         {4, 3},       {9, 7},
                             {16384, 16381}, {1024, 1021}, {1 << 30, 1073741789}};
    for (const auto &[n, prime] : primes) {
        EXPECT_EQ(prime, get_prime(n)) << n;
    }
}

TEST(VxlbNormId, HashesWithFnv1aIn64Bits) {
    const auto expected = [](const std::string &name, int prime) {
        uint64_t hash = 0x811C9DC5;
        for (const char c : name) {
            hash = (hash ^ static_cast<uint8_t>(c)) * 0x01000193;
        }
        return static_cast<int>(hash % static_cast<uint64_t>(prime));
    };
    for (const char *name : {"a", "abc", "0x7f00aa", "\xff\x80z"}) {
        EXPECT_EQ(expected(name, 16381), vxlb_get_hash_index_ex(name, 1, 1, 16381));
    }
    EXPECT_EQ(0, vxlb_get_hash_index_ex("x", 1, 1, 1));
    EXPECT_EQ(-1, vxlb_get_hash_index_ex(nullptr, 1, 1, 1));
    EXPECT_EQ(-1, vxlb_get_hash_index_ex("x", 0, 1, 1));
    EXPECT_EQ(-1, vxlb_get_hash_index_ex("x", 1, 0, 1));
    EXPECT_EQ(-1, vxlb_get_hash_index_ex("x", 1, 1, 0));
}

TEST(VxlbNormId, InitMakesEmptyBucketsAndOneChunkOfEntries) {
    Table table(1000);
    EXPECT_EQ(text("1024 1021 0 -1"),
              text("%d %d %d %d", table.size, table.prime, table.max_norm_id_size, table.prev_id));
    EXPECT_EQ(1048576, table.bigbuf.bufsize);
    EXPECT_EQ(text("64 16 56 1 0"),
              text("%d %d %d %d %d", table.nt_mpool->num_slots_init,
                   table.nt_mpool->num_slots_increment, table.nt_mpool->slot_size,
                   table.nt_mpool->num_malloced_slot, table.nt_mpool->handler_flag));
    for (int i = 0; i < table.size; i++) {
        ASSERT_EQ(-1, table.nt[i].str);
        ASSERT_EQ(0, table.nt[i].data);
        ASSERT_EQ(nullptr, table.nt[i].nt_next);
    }
    EXPECT_TRUE(table.id_name == nullptr && table.head == nullptr);
    NormObjKey key;
    for (const int size : {0, -1, (1 << 30) + 1}) {
        memset(&key, 0x55, sizeof(key));
        EXPECT_EQ(-1, vxlb_init_norm_id_table(&key, size));
        EXPECT_EQ(-1, vxlb_init_norm_id_table_v2(&key, size, 100));
        EXPECT_EQ(nullptr, key.nt);
        EXPECT_EQ(0, key.size);
        EXPECT_EQ(0, vxlb_init_norm_id_table_ex(&key, size)) << "whatever the plain init says";
        EXPECT_EQ(nullptr, key.id_name);
    }
    EXPECT_EQ(-1, vxlb_init_norm_id_table(nullptr, 1));
    EXPECT_EQ(-1, vxlb_init_norm_id_table_v2(nullptr, 1, 1));
    EXPECT_EQ(-1, vxlb_init_norm_id_table_ex(nullptr, 1));
    EXPECT_EQ(-1, vxlb_init_norm_id_table_v2(&key, 1, 0));
    EXPECT_EQ(0, vxlb_init_norm_id_table_v2(&key, 1, 100));
    EXPECT_EQ(text("100 1 1"), text("%ld %d %d", key.bigbuf.bufsize, key.size, key.prime));
    vxlb_obj_hash_destroy(&key);
    Table indexed(3, true);
    EXPECT_EQ(0, indexed.max_norm_id_size);
    for (int i = 0; i < 4; i++) {
        EXPECT_EQ(UINTPTR_MAX, reinterpret_cast<uintptr_t>(indexed.id_name[i]));
    }
}

TEST(VxlbNormId, AddersAgreeExceptWhereTheyDiffer) {
    for (const Adder &adder : ADDERS) {
        SCOPED_TRACE(adder.name);
        Table table(1); // one bucket for all
        int flag = 77;
        const auto add = [&](const char *name, int len) {
            flag = 77;
            return adder.add(&table, name, len, adder.is_explicit ? nullptr : &flag);
        };
        const auto expect_flag = [&](int value) {
            EXPECT_EQ(adder.is_explicit ? 77 : value, flag);
        };
        EXPECT_EQ(adder.bad_input, add(nullptr, 3));
        EXPECT_EQ(adder.bad_input, add(nullptr, 0));
        expect_flag(0);
        EXPECT_EQ(adder.bad_input, add("", 3));
        EXPECT_EQ(adder.bad_input, add("", 0));
        testing::internal::CaptureStderr();
        EXPECT_EQ(adder.negative_hash, add("neg", -1));
        EXPECT_EQ(
            adder.is_explicit
                ? "Error: Obtained hash index '-1' for string 'neg' is not correct. Hence returning."
                : "",
            testing::internal::GetCapturedStderr());
        EXPECT_EQ(-1, table.prev_id);
        const unsigned int first = adder.is_explicit ? 500 : 0;
        const unsigned int step = adder.is_explicit ? 0 : 1;
        EXPECT_EQ(first, add("a", 1));
        expect_flag(1);
        EXPECT_EQ(first + step, add("bb", 2));
        expect_flag(1);
        EXPECT_EQ(first + 2 * step, add("cc", 2));
        expect_flag(2);
        EXPECT_EQ(first + step, add("bb", 2));
        expect_flag(0);
        EXPECT_EQ(adder.measures ? first + 3 * step : adder.bad_input, add("ddd", 0));
        expect_flag(adder.measures ? 3 : 0);
        EXPECT_EQ(static_cast<int>(first + (adder.measures ? 3 : 2) * step), table.prev_id);
        EXPECT_EQ("a", name_of(table, &table.nt[0]));
        EXPECT_EQ("bb", name_of(table, table.nt[0].nt_next)) << "new entries go to the chain's end";
        adder.add(&table, "null flag", 9, nullptr);
    }
}

TEST(VxlbNormId, TellsTheBucketOfAnEmptyBucketsFirstName) {
    Table table(64);
    const int bucket = vxlb_get_hash_index_ex("x", 1, 64, 61);
    int hs = 77;
    int flag = 0;
    EXPECT_EQ(0u, vxlb_get_or_gen_norm_id_ex(&table, "x", 1, &flag, &hs));
    EXPECT_EQ(bucket, hs);
    hs = 77;
    vxlb_get_or_gen_norm_id_ex(&table, "x", 1, &flag, &hs);
    EXPECT_EQ(77, hs);
    Table one(1);
    vxlb_get_or_gen_norm_id_ex(&one, "x", 1, &flag, &hs);
    hs = 77;
    vxlb_get_or_gen_norm_id_ex(&one, "y", 1, &flag, &hs);
    EXPECT_EQ(77, hs) << "went behind another name";
}

TEST(VxlbNormId, ExplicitIdsRaiseTheLastId) {
    Table table(16);
    int flag = 0;
    EXPECT_EQ(42u, vxlb_set_norm_id(&table, "x", 0, 42));
    EXPECT_EQ(43u, vxlb_get_or_gen_norm_id(&table, "y", 0, nullptr));
    EXPECT_EQ(42u, vxlb_set_norm_id(&table, "x", 0, 7)) << "a name keeps its id";
    EXPECT_EQ(7u, vxlb_set_norm_id(&table, "z", 1, 7));
    EXPECT_EQ(43, table.prev_id);
    vxlb_set_start_norm_id(&table, 100);
    vxlb_set_start_norm_id(&table, 5);
    EXPECT_EQ(101u, vxlb_get_set_or_gen_norm_id(&table, "a", 0, &flag, -1));
    EXPECT_EQ(300u, vxlb_get_set_or_gen_norm_id(&table, "b", 0, &flag, 300));
    EXPECT_EQ(1, flag);
    EXPECT_EQ(300u, vxlb_get_set_or_gen_norm_id(&table, "b", 0, &flag, 400));
    EXPECT_EQ(0, flag);
    EXPECT_EQ(300, table.prev_id);
    Table one(1);
    for (const char *name : {"a", "b", "c"}) {
        vxlb_get_set_or_gen_norm_id(&one, name, 1, &flag, 9);
        EXPECT_EQ(1, flag) << "whatever the chain's length";
    }
    vxlb_set_start_norm_id(&one, INT_MAX);
    EXPECT_EQ(0x80000000u, vxlb_get_or_gen_norm_id(&one, "wrapped", 0, nullptr));
}

TEST(VxlbNormId, EntriesCarryADatum) {
    Table table(1);
    int hs = 77;
    NormTableData data = datum(5);
    EXPECT_EQ(-2, vxlb_get_norm_id_hash_data_ex(&table, "a", 1, &hs, &data));
    EXPECT_EQ(0, hs);
    EXPECT_EQ(0, data.val_long) << "zeroed for an empty bucket";
    EXPECT_EQ(1u, vxlb_set_norm_id_and_data(&table, "char", 0, 1, -3));
    EXPECT_EQ(2u, vxlb_set_norm_id_and_data_ex(&table, "long", 0, 2, datum(-1LL << 40)));
    EXPECT_EQ(2u, vxlb_set_norm_id_and_data_ex(&table, "long", 0, 2, datum(9))) << "not changed";
    EXPECT_EQ(3u, vxlb_set_norm_id(&table, "zero", 0, 3));
    vxlb_get_or_gen_norm_id(&table, "none", 0, nullptr);
    EXPECT_EQ(5, table.nt[0].data) << "behind its name";
    const struct {
        const char *name;
        int len, id;
        int64_t data;
    } cases[] = {{"long", 4, 2, -1LL << 40}, {"zero", 4, 3, 0},  {"none", 4, 4, 0},
                 {"absent", 6, -2, 5},       {"", 1, -1, 5},     {"long", 0, -1, 5},
                 {nullptr, 1, -1, 5},        {"long", -1, -2, 5}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name == nullptr ? "null" : c.name);
        data = datum(5);
        hs = 77;
        EXPECT_EQ(c.id, vxlb_get_norm_id_hash_data_ex(&table, c.name, c.len, &hs, &data));
        EXPECT_EQ(c.data, data.val_long);
        EXPECT_EQ(c.id == -1 || c.len < 0 ? 77 : 0, hs);
        EXPECT_EQ(c.id, vxlb_get_norm_id(&table, c.name, c.len));
        EXPECT_EQ(c.id, vxlb_get_norm_id_hash_data_ex(&table, c.name, c.len, nullptr, nullptr));
        int value = 5;
        EXPECT_EQ(c.id, vxlb_get_norm_id_hash_data(&table, c.name, c.len, &hs, &value));
        EXPECT_EQ(static_cast<int>(c.data), value);
        EXPECT_EQ(c.id, vxlb_get_norm_id_hash_data(&table, c.name, c.len, nullptr, nullptr));
    }
    int value = 0;
    EXPECT_EQ(1, vxlb_get_norm_id_hash_data(&table, "char", 4, &hs, &value));
    EXPECT_EQ(-3, value);
}

TEST(VxlbNormId, AnEntryUsedAgainShowsItsOldDatum) {
    Table table(1);
    NormTableData data;
    vxlb_set_norm_id_and_data_ex(&table, "head", 0, 1, datum(11));
    EXPECT_EQ(0, vxlb_delete_norm_id_ex(&table, "head", 4, nullptr));
    EXPECT_EQ("-1 -1 -1 5", text("%ld %d %d %ld", table.nt[0].str, table.nt[0].len, table.nt[0].idx,
                                 table.nt[0].data));
    EXPECT_EQ(2u, vxlb_get_or_gen_norm_id(&table, "next", 0, nullptr));
    EXPECT_EQ(2, vxlb_get_norm_id_hash_data_ex(&table, "next", 4, nullptr, &data));
    EXPECT_EQ(11, data.val_long);
    EXPECT_EQ(0, vxlb_delete_norm_id(&table, 0));
    EXPECT_EQ("-1 -1 -1 -1", text("%ld %d %d %ld", table.nt[0].str, table.nt[0].len,
                                  table.nt[0].idx, table.nt[0].data));
}

TEST(VxlbNormId, NamesAreComparedOverTheirLength) {
    Table table(1);
    EXPECT_EQ(0u, vxlb_get_or_set_norm_id(&table, "abcdef", 3, nullptr)) << "stored as abc";
    EXPECT_EQ(0, vxlb_get_norm_id(&table, "abcxyz", 3));
    EXPECT_EQ(-2, vxlb_get_norm_id(&table, "abcdef", 6));
    EXPECT_EQ(-2, vxlb_get_norm_id(&table, "abd", 3));
}

TEST(VxlbNormId, TheReverseIndexGrowsBySixteen) {
    Table table(64, true);
    for (int i = 0; i < 40; i++) {
        const std::string name = text("name%d", i);
        EXPECT_EQ(
            static_cast<unsigned int>(i),
            vxlb_get_or_set_norm_id(&table, name.c_str(), static_cast<int>(name.size()), nullptr));
        EXPECT_EQ((i / 16 + 1) * 16, table.max_norm_id_size);
    }
    for (int i = 0; i < 40; i++) {
        EXPECT_EQ(text("name%d", i), vxlb_get_norm_table_data(&table, i));
    }
    for (const int id : {40, 47, 48, INT_MAX}) {
        EXPECT_STREQ("NormIdNameNotFound", vxlb_get_norm_table_data(&table, id)) << id;
    }
    EXPECT_STREQ("InvalidInput", vxlb_get_norm_table_data(&table, -1));
    EXPECT_STREQ("InvalidInput", vxlb_get_norm_table_data(nullptr, 0));
    add_pnt_to_idname(&table, 64, table.nt);
    EXPECT_EQ(64, table.max_norm_id_size) << "grown once, not recorded";
    EXPECT_EQ(UINTPTR_MAX, reinterpret_cast<uintptr_t>(table.id_name[63]));
    add_pnt_to_idname(&table, -1, table.nt);
    add_pnt_to_idname(&table, 63, table.id_name[7]);
    EXPECT_STREQ("name7", vxlb_get_norm_table_data(&table, 63));
    const int bucket = vxlb_get_hash_index_ex("name7", 5, 64, 61);
    vxlb_delete_norm_id(&table, bucket);
    EXPECT_STREQ("NormIdNameNotFound",
                 vxlb_get_norm_table_data(&table, table.nt[bucket].nt_next == nullptr ? 7 : 40));
    vxlb_get_or_gen_norm_id(&table, "not indexed", 0, nullptr);
    EXPECT_STREQ("NormIdNameNotFound", vxlb_get_norm_table_data(&table, 40));
    Table plain(4);
    vxlb_get_or_set_norm_id(&plain, "x", 1, nullptr);
    EXPECT_STREQ("NormIdNameNotFound", vxlb_get_norm_table_data(&plain, 0));
    EXPECT_EQ(nullptr, plain.id_name);
}

TEST(VxlbNormId, DeletingHeadsAndChainedNamesKeepsTheOthers) {
    const char *const names[] = {"a", "b", "c"};
    for (int victim = 0; victim < 3; victim++) {
        SCOPED_TRACE(victim);
        Table table(1);
        for (const char *name : names) {
            vxlb_get_or_gen_norm_id(&table, name, 0, nullptr);
        }
        node *const freed = reinterpret_cast<node *>(victim < 2 ? table.nt[0].nt_next
                                                                : table.nt[0].nt_next->nt_next);
        int id = 77;
        EXPECT_EQ(0, vxlb_delete_norm_id_ex(&table, names[victim], 0, &id));
        EXPECT_EQ(victim, id);
        EXPECT_EQ(freed, table.nt_mpool->free_tail) << "its slot is reused last";
        EXPECT_EQ(-1, vxlb_delete_norm_id_ex(&table, names[victim], 1, &id));
        for (int i = 0; i < 3; i++) {
            EXPECT_EQ(i == victim ? -2 : i, vxlb_get_norm_id(&table, names[i], 1));
        }
        EXPECT_EQ(std::vector<int>{victim}, free_ids(table));
    }
    Table table(1);
    int id = 77;
    EXPECT_EQ(-1, vxlb_delete_norm_id_ex(&table, nullptr, 0, &id));
    EXPECT_EQ(-1, vxlb_delete_norm_id_ex(&table, "", 1, &id));
    EXPECT_EQ(-1, vxlb_delete_norm_id_ex(&table, "x", -1, &id));
    EXPECT_EQ(-1, vxlb_delete_norm_id_ex(&table, "x", 1, &id));
    EXPECT_EQ(77, id);
}

TEST(VxlbNormId, AnEmptiedBucketHeadHidesItsChain) {
    Table table(1);
    for (const char *name : {"a", "b"}) {
        vxlb_get_or_gen_norm_id(&table, name, 0, nullptr);
    }
    for (const int hash : {-1, 1, INT_MAX}) {
        EXPECT_EQ(-1, vxlb_delete_norm_id(&table, hash));
    }
    EXPECT_EQ(0, vxlb_delete_norm_id(&table, 0));
    EXPECT_EQ(-1, vxlb_delete_norm_id(&table, 0)) << "empty already";
    EXPECT_EQ(-2, vxlb_get_norm_id(&table, "b", 1));
    EXPECT_EQ(std::vector<int>{}, free_ids(table));
    EXPECT_EQ(2u, vxlb_get_or_gen_norm_id(&table, "c", 0, nullptr));
    EXPECT_EQ(1, vxlb_get_norm_id(&table, "b", 1)) << "back behind the new head";
}

TEST(VxlbNormId, ResetKeepsMemoryAndForgetsTheRest) {
    Table table(1, true);
    for (const char *name : {"a", "b", "c"}) {
        vxlb_get_or_set_norm_id(&table, name, 1, nullptr);
    }
    vxlb_delete_norm_id_ex(&table, "a", 1, nullptr);
    vxlb_delete_norm_id_ex(&table, "b", 1, nullptr);
    const NormTable *const heads = table.nt;
    EXPECT_EQ(0, vxlb_obj_hash_reset(&table));
    EXPECT_EQ(std::vector<int>{}, free_ids(table));
    EXPECT_EQ(heads, table.nt);
    EXPECT_EQ(nullptr, table.nt[0].nt_next);
    EXPECT_EQ(nullptr, table.nt_mpool->busy_head);
    EXPECT_EQ(text("-1 0 16"),
              text("%d %ld %d", table.prev_id, table.bigbuf.offset, table.max_norm_id_size));
    EXPECT_EQ("a", std::string(table.bigbuf.buffer)) << "bytes are not cleared";
    EXPECT_EQ(nullptr, table.id_name[15]);
    EXPECT_STREQ("NormIdNameNotFound", vxlb_get_norm_table_data(&table, 0));
    EXPECT_EQ(-2, vxlb_get_norm_id(&table, "c", 1));
    EXPECT_EQ(0u, vxlb_get_or_set_norm_id(&table, "z", 1, nullptr));
}

TEST(VxlbNormId, DestroyReleasesAllButTheReverseIndex) {
    TraceLog log(VXLB_MOD_MEMORY, VXLB_LEVEL_2);
    NormObjKey key;
    vxlb_init_norm_id_table_ex(&key, 4);
    vxlb_add_id_in_free_list(&key, 8);
    vxlb_obj_hash_reset(&key);
    vxlb_get_or_set_norm_id(&key, "x", 1, nullptr);
    vxlb_add_id_in_free_list(&key, 9);
    vxlb_obj_hash_destroy(&key);
    Lines labels;
    for (const std::string &line : log.take()) {
        if (line.find("done") != std::string::npos || line.find("Freed") != std::string::npos) {
            labels.push_back(line.substr(0, line.find(')') + 1));
        }
    }
    EXPECT_EQ((Lines{"VXLB_MALLOC'ed (bigbuf)", "VXLB_MALLOC'ed (NormalTableInit)",
                     "VXLB_MALLOC'ed (Normal Table Memory Pool)",
                     "VXLB_MALLOC'ed (NormalTableInit.id_name)", "VXLB_FREE'ed (free_norm_id_list)",
                     "MY_FREE'ed (key->id_name)", "VXLB_MALLOC'ed (key->id_name)",
                     "VXLB_FREE'ed (malloced_slotes[i])", "VXLB_FREE'ed (Memory pool)",
                     "VXLB_FREE'ed (bigbuf)", "VXLB_FREE'ed (Normalization table creation)",
                     "VXLB_FREE'ed (free_tmp)"}),
              labels);
    EXPECT_NE(nullptr, key.id_name);
    free(key.id_name);
    EXPECT_EQ(std::vector<int>{}, free_ids(key));
    vxlb_obj_hash_destroy(&key); // nothing is left
}

TEST(VxlbNormId, TracesItsCalls) {
    TraceLog log(VXLB_MOD_MISC, VXLB_LEVEL_2);
    NormObjKey key;
    void *const k = &key;
    vxlb_init_norm_id_table_v2(&key, 4, 100);
    vxlb_get_or_set_norm_id(&key, "ab", 2, nullptr);
    const std::string called = text("Method called key = %p, in_str = ", k);
    EXPECT_EQ((Lines{"Method called", called + "ab in_strlen = 2 "}), log.take());
    EXPECT_NE(std::string::npos, (vxlb_init_norm_id_table(nullptr, 1),
                                  log.content().find("|vxlb_init_norm_id_table|")));
    log.take();
    for (const Adder &adder : ADDERS) {
        adder.add(&key, "ab", 2, nullptr);
        EXPECT_EQ(Lines{called + "ab in_strlen = 2 "}, log.take()) << adder.name;
    }
    add_pnt_to_idname(&key, 0, key.nt);
    EXPECT_EQ(Lines{text("Method called, key = %p, norm_id = 0, p_nt = %p, max_norm_id_size = 0", k,
                         static_cast<void *>(key.nt))},
              log.take());
    NormTable *const entry = &key.nt[vxlb_get_hash_index_ex("ab", 2, 4, 3)];
    add_pnt_to_idname(&key, 3, entry);
    log.take();
    vxlb_get_norm_table_data(&key, 3);
    EXPECT_EQ((Lines{text("Method called key = %p, norm_id = 3", k),
                     text("index = 3, norm_id = 3, key->prev_id = 0, nt->str = 0, "
                          "key->id_name[norm_id - key->prev_id] = %p, name = ab\n",
                          static_cast<void *>(entry))}),
              log.take());
    vxlb_obj_hash_reset(&key);
    vxlb_obj_hash_destroy(&key);
    EXPECT_EQ((Lines{text("Method called, key = %p", k), "Method called", "Method exiting"}),
              log.take());
    free(key.id_name);
}

// Random steps for the table and for a plain map, with few names, so that all of them meet.
TEST(VxlbNormId, BehavesAsAMap) {
    std::mt19937 random(11);
    for (const int heads : {1, 8, 256}) {
        Table table(heads);
        std::map<std::string, int> ids;
        std::deque<int> freed;
        int last = -1;
        for (int step = 0; step < 4000; step++) {
            const std::string name = text("n%d", static_cast<int>(random() % 120));
            const int len = static_cast<int>(name.size());
            const auto known = ids.find(name);
            int flag = 77;
            if (random() % 3 == 0) {
                int id = -7;
                ASSERT_EQ(known == ids.end() ? -1 : 0,
                          vxlb_delete_norm_id_ex(&table, name.c_str(), len, &id));
                if (known != ids.end()) {
                    ASSERT_EQ(known->second, id);
                    freed.push_back(id);
                    ids.erase(known);
                }
            } else if (random() % 2 == 0) {
                const int id = static_cast<int>(
                    vxlb_get_set_or_gen_norm_id_ex(&table, name.c_str(), len, &flag));
                ASSERT_EQ(known == ids.end(), flag != 0);
                if (known == ids.end()) {
                    ASSERT_EQ(freed.empty() ? ++last : freed.front(), id);
                    ids[name] = id;
                    freed.empty() ? void() : freed.pop_front();
                }
            } else {
                const int id =
                    static_cast<int>(vxlb_get_or_set_norm_id(&table, name.c_str(), len, &flag));
                ASSERT_EQ(known == ids.end() ? ++last : known->second, id);
                ids[name] = id;
            }
            ASSERT_EQ(ids.count(name) == 0 ? -2 : ids[name],
                      vxlb_get_norm_id(&table, name.c_str(), len));
            ASSERT_EQ(std::vector<int>(freed.begin(), freed.end()), free_ids(table));
        }
        for (const auto &[name, id] : ids) {
            EXPECT_EQ(id, vxlb_get_norm_id(&table, name.c_str(), static_cast<int>(name.size())));
        }
    }
}
