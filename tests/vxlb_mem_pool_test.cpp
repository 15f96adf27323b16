// SPDX-License-Identifier: Apache-2.0
// Lists, links and contents are compared with a model in fuzz_pool; here is what that leaves out.
#include "trace_log.h"

#include <libvxcore/vxlb_mem_pool.h>

#include <climits>
#include <cstring>
#include <thread>

TEST(VxlbMemPool, InitFillsTheHandleAndNullsAreRefused) {
    vxlb_mp_handler pool;
    const auto init = [&](int bytes, int first, int increment, int flag) {
        memset(&pool, 0x55, sizeof(pool));
        const int result = vxlb_mp_init(&pool, bytes, first, increment, flag);
        return text("%d: %d %d %d %d %d", result, pool.slot_size, pool.num_slots_init,
                    pool.num_slots_increment, pool.num_slots_max, pool.handler_flag);
    };
    EXPECT_EQ("0: 40 3 4 0 1", init(40, 3, 4, 1));
    EXPECT_EQ("0: 40 10 10 0 0", init(40, 0, -5, 2));
    EXPECT_EQ("1: 0 0 0 0 0", init(0, 1, 1, 1));
    EXPECT_EQ(1, vxlb_mp_create(&pool));
    EXPECT_EQ(1, vxlb_mp_create(nullptr));
    EXPECT_TRUE(!vxlb_mp_get_slot(nullptr) && !vxlb_mp_get_busy_head(nullptr) &&
                !vxlb_mp_check_busy_head(nullptr));
    vxlb_mp_free_busy_head(nullptr, &pool);
    vxlb_mp_set_max(nullptr, 5);
    EXPECT_STREQ("Error: Memory allocation failure", mpool_errstr(2));
    EXPECT_STREQ("Error: Invalid Memory Alignment", mpool_errstr(4));
    EXPECT_STREQ(mpool_errstr(1), mpool_errstr(5));
}

TEST(VxlbMemPool, TracesItsSteps) {
    TraceLog log(VXLB_MOD_API, -1);
    vxlb_mp_handler pool;
    vxlb_mp_init(&pool, 32, 2, 1, 0);
    node *const a = vxlb_mp_get_slot(&pool);
    vxlb_mp_free_slot(&pool, a);
    vxlb_mp_free_slot(&pool, nullptr);
    EXPECT_EQ(R"(Method Called,mpool = pool, slot_size = 32, num_slot_init = 2, )"
              R"(num_slots_increment = 1, handle_flag = 0
memory pool handler dump :  mpool->slot_size = 32, mpool->num_slots_init = 2,)"
              R"(mpool->num_slots_increment = 1, mpool->handler_flag =0
Method called, mpool = pool, mpool->free_head = (nil)
Method called,  mpool = pool, slot_size = 32, num_slots = 2_
Allocating memory pool of size = 64, size of slot_size = 32, size of node = 24, num_slots = 2
After pool allcation, head = a
Add Dump: i = 0, cur_slot = a, prev_slot = (nil), next_slot = b
Add Dump: i = 1, cur_slot = b, prev_slot = a, next_slot = (nil)
Dump (vxlb_mp_handler):  head = a, free_[head|tail] = [a|b], busy_[head|tail] = [(nil)|(nil)], )"
              R"(slot_size = 32, num_slots = 2, ret_val = 0
free = a, mpool->free_[head|tail] = [b|b], mpool->busy_[head|tail] = [a|a]
Method called, mpool = pool, slot =a
current slot = a, next slot = (nil), previous slot = (nil)
busy_[head|tail] = [(nil)|(nil)], free_[head|tail] = [b|a]
Method called, mpool = pool, slot =(nil)
)",
              log.take({{&pool, "pool"}, {a, "a"}, {reinterpret_cast<char *>(a) + 32, "b"}}));
    vxlb_mp_destroy(&pool);
}

TEST(VxlbMemPool, ThreadsShareALockedPool) {
    vxlb_mp_handler pool;
    vxlb_mp_init(&pool, 32, 4, 4, 1);
    const auto work = [&] {
        for (int step = 0; step < 50000; step++) {
            node *const first = vxlb_mp_get_slot(&pool);
            vxlb_mp_free_slot_ex(&pool, vxlb_mp_get_slot(&pool));
            vxlb_mp_check_busy_head(&pool);
            vxlb_mp_free_slot(&pool, first);
        }
    };
    std::thread threads[] = {std::thread(work), std::thread(work), std::thread(work)};
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(nullptr, pool.busy_head);
    int slots = 0;
    for (const node *slot = pool.free_head; slot != nullptr; slot = slot->next) {
        slots++;
    }
    EXPECT_EQ(4 * pool.num_malloced_slot, slots);
    vxlb_mp_destroy(&pool);
}

TEST(VxlbMemPoolDeathTest, AChunkThatCanNotBeHadEndsTheProcess) {
    vxlb_mp_handler pool;
    for (const auto &[slot_size, shown] : {std::pair{1 << 30, INT_MIN}, {INT_MAX, -2}}) {
        vxlb_mp_init(&pool, slot_size, 2, 1, 0);
        EXPECT_EXIT(vxlb_mp_get_slot(&pool), testing::ExitedWithCode(1),
                    text("^Out of Memory .size = %d.: Allocating memory pool \n$", shown));
    }
    vxlb_mp_init(&pool, -32, 2, 1, 0);
    EXPECT_EQ("Trying to malloc a negative size memory size = -64 \n",
              said([&] { EXPECT_EQ(nullptr, vxlb_mp_get_slot(&pool)); }));
}
