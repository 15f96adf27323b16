// SPDX-License-Identifier: Apache-2.0
#include "trace_log.h"

#include <libvxcore/vxlb_mem_pool.h>
#include <libvxcore/vxlb_util.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <deque>
#include <random>
#include <thread>

namespace {

using Slots = std::deque<node *>;

struct Pool : vxlb_mp_handler {
    explicit Pool(int bytes, int init, int increment, int flag = 0) {
        EXPECT_EQ(0, vxlb_mp_init(this, bytes, init, increment, flag));
    }
    ~Pool() { vxlb_mp_destroy(this); }
};

// Both directions of a list have to tell the same story. Slots may lie at odd addresses.
Slots slots_of(node *head, const node *tail) {
    Slots slots;
    node header = {};
    const node *prev = nullptr;
    for (node *slot = head; slot != nullptr; slot = header.next) {
        memcpy(&header, static_cast<void *>(slot), sizeof(header));
        EXPECT_EQ(prev, header.prev);
        slots.push_back(slot);
        prev = slot;
    }
    EXPECT_EQ(prev, tail);
    return slots;
}

} // namespace

TEST(VxlbMemPool, ServesTheTextsOfThreeErrors) {
    const std::string unknown = "Unknown Error Type";
    for (const int number : {-1, 0, 1, 5}) {
        EXPECT_EQ(unknown, mpool_errstr(number));
    }
    EXPECT_STREQ("Error: Memory allocation failure", mpool_errstr(2));
    EXPECT_STREQ("Error: Invalid Pointer Passed", mpool_errstr(3));
    EXPECT_STREQ("Error: Invalid Memory Alignment", mpool_errstr(4));
}

TEST(VxlbMemPool, InitFillsTheHandleAndNullsAreRefused) {
    vxlb_mp_handler pool;
    const auto init = [&](int bytes, int first, int increment, int flag) {
        memset(&pool, 0x55, sizeof(pool));
        const int result = vxlb_mp_init(&pool, bytes, first, increment, flag);
        return text("%d: %d %d %d %d %d", result, pool.slot_size, pool.num_slots_init,
                    pool.num_slots_increment, pool.num_slots_max, pool.handler_flag);
    };
    EXPECT_EQ("0: 40 3 4 0 1", init(40, 3, 4, 1));
    EXPECT_EQ("0: 40 10 10 0 0", init(40, 0, 0, 0));
    EXPECT_EQ("0: 40 1 10 0 0", init(40, 1, -5, 2));
    EXPECT_EQ("1: 0 0 0 0 0", init(0, 1, 1, 1));
    EXPECT_EQ(1, vxlb_mp_create(&pool));
    EXPECT_EQ(1, vxlb_mp_create(nullptr));
    EXPECT_EQ(nullptr, vxlb_mp_get_slot(nullptr));
    EXPECT_EQ(nullptr, vxlb_mp_get_busy_head(nullptr));
    EXPECT_EQ(nullptr, vxlb_mp_check_busy_head(nullptr));
    vxlb_mp_free_busy_head(nullptr, &pool);
    vxlb_mp_free_busy_head(&pool, nullptr);
    vxlb_mp_free_slot_ex(&pool, nullptr);
    vxlb_mp_set_max(nullptr, 5);
    EXPECT_EQ(nullptr, pool.free_head);
}

TEST(VxlbMemPool, ChunksFollowInitIncrementAndCap) {
    for (int max = 1; max < 12; max++) {
        const int init = max % 4 + 1, increment = max % 3 + 1;
        Pool pool(32, init, increment);
        vxlb_mp_set_max(&pool, max);
        for (int got = 0; got < max; got++) {
            ASSERT_NE(nullptr, vxlb_mp_get_slot(&pool));
            EXPECT_EQ(got < init ? 1 : 2 + (got - init) / increment, pool.num_malloced_slot);
        }
        EXPECT_EQ(nullptr, vxlb_mp_get_slot(&pool));
        EXPECT_EQ(-1, vxlb_mp_create(&pool));
        EXPECT_STREQ("Memory pool max limit reached", vxlb_get_error());
    }
}

// The same random steps for the pool and for two plain lists; 25 to 40 bytes put headers anywhere.
TEST(VxlbMemPool, BehavesAsTwoLists) {
    std::mt19937 random(7);
    for (const int slot_size : {24, 25, 31, 33, 40, 56}) {
        Pool pool(slot_size, 5, 3, slot_size % 2);
        Slots free, busy, detached;
        for (int step = 0; step < 2000; step++) {
            const size_t pick = busy.empty() ? 0 : random() % busy.size();
            const size_t choice = random() % 100;
            if (choice < 40) {
                node *const slot = vxlb_mp_get_slot(&pool);
                if (free.empty()) { // a new chunk, whose first slot is marked
                    free = slots_of(pool.free_head, pool.free_tail);
                    free.push_front(slot);
                    for (size_t i = 0; i < free.size(); i++) {
                        const char *const bytes = reinterpret_cast<char *>(slot) + 16;
                        ASSERT_EQ(i == 0 ? 1 : 0, bytes[i * static_cast<size_t>(slot_size)]);
                    }
                }
                ASSERT_EQ(free.front(), slot);
                free.pop_front();
                busy.push_back(slot);
            } else if (choice < 65 && !busy.empty()) {
                const bool is_last = choice % 2 == 0;
                (is_last ? vxlb_mp_free_slot : vxlb_mp_free_slot_ex)(&pool, busy[pick]);
                free.insert(is_last ? free.end() : free.begin(), busy[pick]);
                busy.erase(busy.begin() + static_cast<ptrdiff_t>(pick));
            } else if (choice < 80) {
                node *const first = busy.empty() ? nullptr : busy.front();
                ASSERT_EQ(first, vxlb_mp_check_busy_head(&pool));
                ASSERT_EQ(first, vxlb_mp_get_busy_head(&pool));
                if (first != nullptr) {
                    detached.push_back(first);
                    busy.pop_front();
                }
            } else if (choice < 99 && !detached.empty()) {
                vxlb_mp_free_busy_head(&pool, detached.back());
                free.push_front(detached.back());
                detached.pop_back();
            } else if (choice == 99) {
                vxlb_mp_free_all_slots(&pool);
                free.insert(free.end(), busy.begin(), busy.end());
                busy.clear();
            }
            ASSERT_EQ(free, slots_of(pool.free_head, pool.free_tail));
            ASSERT_EQ(busy, slots_of(pool.busy_head, pool.busy_tail));
        }
        for (node *slot : detached) {
            vxlb_mp_free_busy_head(&pool, slot);
        }
    }
}

TEST(VxlbMemPool, TracesItsSteps) {
    TraceLog log(VXLB_MOD_API, -1);
    Pool pool(32, 2, 1);
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
    vxlb_util_set_debug_log_level(VXLB_LEVEL_2);
    vxlb_util_set_modulemask(VXLB_MOD_MEMORY);
    vxlb_mp_get_slot(&pool);
    vxlb_mp_get_slot(&pool);
    node *const second = vxlb_mp_get_slot(&pool);
    a->slot_status = 7; // the user's bits beside the pool's
    vxlb_mp_destroy(&pool);
    const std::string freed = "VXLB_FREE'ed (malloced_slotes[i]) Freed. ptr = $";
    const std::string rest = "$ for index -1, allocated_size = 1\n";
    EXPECT_EQ(freed + "a" + rest + freed + "second" + rest,
              log.take({{a, "a"}, {second, "second"}}));
    EXPECT_EQ(0, pool.slot_size + pool.num_malloced_slot);
}

TEST(VxlbMemPool, ThreadsShareALockedPool) {
    Pool pool(32, 4, 4, 1);
    const auto work = [&] {
        for (int step = 0; step < 5000; step++) {
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
    EXPECT_GE(8u, slots_of(pool.free_head, pool.free_tail).size());
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
    EXPECT_EQ(0, pool.num_malloced_slot);
}
