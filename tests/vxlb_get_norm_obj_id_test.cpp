// SPDX-License-Identifier: Apache-2.0
// What the model of fuzz_norm_ids leaves out: null arguments, sizes, the largest ids, and memory.
#include "trace_log.h"

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_get_norm_obj_id.h>

#include <climits>

namespace {

struct Table : NormObjKey {
    explicit Table(int heads) { vxlb_init_norm_id_table_ex(this, heads); }
    ~Table() {
        vxlb_obj_hash_destroy(this);
        free(id_name);
    }
};

} // namespace

TEST(VxlbNormId, NullNamesAreBadInputAndNullResultsAreNotStored) {
    Table table(1);
    NormTableData data = {};
    const auto call_all = [&](const char *name, int len, int *out) {
        return std::vector<int>{
            static_cast<int>(vxlb_get_or_set_norm_id(&table, name, len, out)),
            static_cast<int>(vxlb_get_or_gen_norm_id(&table, name, len, out)),
            static_cast<int>(vxlb_get_or_gen_norm_id_ex(&table, name, len, out, out)),
            static_cast<int>(vxlb_get_set_or_gen_norm_id(&table, name, len, out, 5)),
            static_cast<int>(vxlb_get_set_or_gen_norm_id_ex(&table, name, len, out)),
            static_cast<int>(vxlb_set_norm_id_and_data_ex(&table, name, len, 5, data)),
            vxlb_get_norm_id(&table, name, len),
            vxlb_get_norm_id_hash_data_ex(&table, name, len, nullptr, nullptr),
            vxlb_get_norm_id_hash_data(&table, name, len, nullptr, nullptr),
            vxlb_delete_norm_id_ex(&table, name, len, nullptr)};
    };
    int flag = 7;
    for (const int len : {0, 1}) {
        EXPECT_EQ((std::vector<int>{-1, -1, -1, -1, -1, 0, -1, -1, -1, -1}),
                  call_all(nullptr, len, &flag));
    }
    EXPECT_EQ(0, flag);
    EXPECT_EQ(std::vector<int>(10, 0), call_all("name", 4, nullptr));
    EXPECT_EQ("Error: Obtained hash index '-1' for string 'neg' is not correct. Hence returning.",
              said([&] {
                  const std::vector<int> no_bucket = {0, 0, -1, 0, 0, 0, -2, -2, -2, -1};
                  EXPECT_EQ(no_bucket, call_all("neg", -1, nullptr));
              }));
    for (const int hash : {-1, 1, INT_MAX}) {
        EXPECT_EQ(-1, vxlb_delete_norm_id(&table, hash)) << "no bucket";
    }
    EXPECT_EQ(1u, vxlb_get_set_or_gen_norm_id(&table, "a", 1, nullptr, -1)) << "0 is freed";
    EXPECT_EQ(2u, vxlb_get_set_or_gen_norm_id(&table, "b", 1, nullptr, -1));
    EXPECT_EQ(0u, vxlb_get_set_or_gen_norm_id_ex(&table, "c", 1, &flag)) << "the freed id";
    EXPECT_EQ(2, flag) << "entries passed";
}

TEST(VxlbNormId, RoundsSizesUpAndPrimesDownOrRefusesThem) {
    std::string rounded;
    for (const int n : {-3, 0, 1, 2, 3, 4, 5, 9, 1000, 1024, 1 << 30}) {
        rounded += text("%d/%d ", vxlb_change_to_2_power_n(n), get_prime(n));
    }
    EXPECT_EQ("1/1 1/1 1/1 2/2 4/3 4/3 8/5 16/7 1024/997 1024/1021 1073741824/1073741789 ",
              rounded);
    EXPECT_EQ(-1, vxlb_change_to_2_power_n((1 << 30) + 1));
    EXPECT_EQ(-1, vxlb_get_hash_index_ex(nullptr, 1, 1, 1));
    for (const auto &[len, size, prime] : {std::tuple{0, 1, 1}, {1, 0, 1}, {1, 1, 0}}) {
        EXPECT_EQ(-1, vxlb_get_hash_index_ex("x", len, size, prime));
    }
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

TEST(VxlbNormId, TheReverseIndexGrowsBySixteen) {
    Table table(64);
    for (int i = 0; i < 17; i++) {
        vxlb_get_or_set_norm_id(&table, text("%d", i + 10).c_str(), 2, nullptr);
    }
    EXPECT_EQ(32, table.max_norm_id_size);
    EXPECT_STREQ("26", vxlb_get_norm_table_data(&table, 16));
    add_pnt_to_idname(&table, 64, table.nt); // grows once, and is not recorded
    add_pnt_to_idname(&table, -1, table.nt);
    for (const int id : {17, 47, 48, 64, INT_MAX}) {
        EXPECT_STREQ("NormIdNameNotFound", vxlb_get_norm_table_data(&table, id)) << id;
    }
    EXPECT_STREQ("InvalidInput", vxlb_get_norm_table_data(nullptr, 0));
    vxlb_set_start_norm_id(&table, INT_MAX);
    EXPECT_EQ(0x80000000u, vxlb_get_or_gen_norm_id(&table, "a", 1, nullptr)) << "ids wrap";
    free(std::exchange(table.id_name, nullptr));
    add_pnt_to_idname(&table, 64, table.nt); // allocates what there is not
}

// A whole life, as the traces of the table and of its allocations tell it.
TEST(VxlbNormId, AResetKeepsMemoryAndDestroyAllButTheIndex) {
    TraceLog log(VXLB_MOD_MISC | VXLB_MOD_MEMORY, VXLB_LEVEL_2);
    NormObjKey key;
    vxlb_init_norm_id_table_ex(&key, 3);
    EXPECT_EQ("4 3 0 -1",
              text("%d %d %d %d", key.size, key.prime, key.max_norm_id_size, key.prev_id));
    EXPECT_EQ(UINTPTR_MAX, reinterpret_cast<uintptr_t>(key.id_name[3]));
    vxlb_util_set_debug_log_level(0);
    for (const char *name : {"a", "b", "c", "d"}) {
        vxlb_get_or_set_norm_id(&key, name, 1, nullptr);
    }
    vxlb_util_set_debug_log_level(VXLB_LEVEL_2);
    vxlb_add_id_in_free_list(&key, 9);
    EXPECT_EQ(0, vxlb_obj_hash_reset(&key));
    EXPECT_TRUE(!key.nt_mpool->busy_head && !key.free_norm_id_list_head && !key.id_name[0] &&
                !key.id_name[15]);
    vxlb_util_set_debug_log_level(VXLB_LEVEL_2 | VXLB_LEVEL_3);
    vxlb_get_or_set_norm_id(&key, "z", 1, nullptr);
    vxlb_util_set_debug_log_level(VXLB_LEVEL_2);
    vxlb_get_norm_table_data(&key, 0);
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
Method called, key = key
VXLB_FREE'ed (free_norm_id_list) Freed. ptr = $@$ for index -1, allocated_size = 1
Method called key = key, in_str = z in_strlen = 1_
Method called. bufsize = 1048576, bigbuf buffer = @, needed space = 1, offset = 0
Copy data 'z' of len '1' into big buf
Method called, key = key, norm_id = 0, p_nt = @, max_norm_id_size = 16
Method called key = key, norm_id = 0
index = 0, norm_id = 0, key->prev_id = 0, nt->str = 0, )"
              R"(key->id_name[norm_id - key->prev_id] = @, name = z

Method called
VXLB_FREE'ed (malloced_slotes[i]) Freed. ptr = $@$ for index -1, allocated_size = 1
VXLB_FREE'ed (Memory pool) Freed. ptr = $@$ for index -1, allocated_size = 1
VXLB_FREE'ed (bigbuf) Freed. ptr = $@$ for index -1, allocated_size = 1
VXLB_FREE'ed (Normalization table creation) Freed. ptr = $@$ for index -1, allocated_size = 1
VXLB_FREE'ed (free_tmp) Freed. ptr = $@$ for index -1, allocated_size = 1
Method exiting
)",
              log.take({{&key, "key"}}));
    vxlb_obj_hash_destroy(&key); // nothing is left
}
