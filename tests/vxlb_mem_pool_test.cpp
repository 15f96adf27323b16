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

using Lines = std::vector<std::string>;
using Slots = std::deque<node *>;

struct Pool : vxlb_mp_handler {
    explicit Pool(int bytes = 32, int init = 4, int increment = 2, int flag = 0) {
        EXPECT_EQ(0, vxlb_mp_init(this, bytes, init, increment, flag));
    }
    ~Pool() { vxlb_mp_destroy(this); }
};

// Headers by memcpy: slots may lie at odd addresses.
node header_of(const node *slot) {
    node header;
    memcpy(&header, static_cast<const void *>(slot), sizeof(header));
    return header;
}

// Both directions of a list have to tell the same story.
Slots slots_of(node *head, const node *tail) {
    Slots slots;
    const node *prev = nullptr;
    for (node *slot = head; slot != nullptr; slot = header_of(slot).next) {
        EXPECT_EQ(prev, header_of(slot).prev);
        slots.push_back(slot);
        prev = slot;
    }
    EXPECT_EQ(prev, tail);
    return slots;
}

Slots free_slots(const Pool &pool) {
    return slots_of(pool.free_head, pool.free_tail);
}

Slots busy_slots(const Pool &pool) {
    return slots_of(pool.busy_head, pool.busy_tail);
}

bool is_zero(const vxlb_mp_handler &pool) {
    static const vxlb_mp_handler zero = {};
    return memcmp(&pool, &zero, sizeof(zero)) == 0;
}

} // namespace

TEST(VxlbMemPool, ServesTheTextsOfThreeErrors) {
    const char *const texts[] = {"Unknown Error Type",
                                 "Unknown Error Type",
                                 "Unknown Error Type",
                                 "Error: Memory allocation failure",
                                 "Error: Invalid Pointer Passed",
                                 "Error: Invalid Memory Alignment",
                                 "Unknown Error Type"};
    for (int i = 0; i < 7; i++) {
        EXPECT_STREQ(texts[i], mpool_errstr(i - 1));
    }
}

TEST(VxlbMemPool, InitFillsTheHandle) {
    const struct {
        int init, increment, flag, got_init, got_increment, got_flag;
    } cases[] = {
        {3, 4, 1, 3, 4, 1}, {0, 0, 0, 10, 10, 0}, {-1, -5, 2, 10, 10, 0}, {1, 1, -1, 1, 1, 0}};
    for (const auto &c : cases) {
        vxlb_mp_handler pool;
        memset(&pool, 0x55, sizeof(pool));
        EXPECT_EQ(0, vxlb_mp_init(&pool, 40, c.init, c.increment, c.flag));
        EXPECT_EQ(text("40 %d %d %d", c.got_init, c.got_increment, c.got_flag),
                  text("%d %d %d %d", pool.slot_size, pool.num_slots_init, pool.num_slots_increment,
                       pool.handler_flag));
        EXPECT_EQ(0, pool.num_slots_max + pool.num_malloced_slot);
        EXPECT_EQ(nullptr, pool.free_head);
        EXPECT_EQ(1, vxlb_mp_init(&pool, 0, 1, 1, 1));
        EXPECT_TRUE(is_zero(pool));
        EXPECT_EQ(1, vxlb_mp_create(&pool));
    }
}

TEST(VxlbMemPool, NullHandlesAreRefused) {
    TraceLog log;
    int slot = 0;
    EXPECT_EQ(1, vxlb_mp_create(nullptr));
    EXPECT_EQ(nullptr, vxlb_mp_get_slot(nullptr));
    EXPECT_EQ(nullptr, vxlb_mp_get_busy_head(nullptr));
    EXPECT_EQ(nullptr, vxlb_mp_check_busy_head(nullptr));
    vxlb_mp_free_busy_head(nullptr, &slot);
    vxlb_mp_set_max(nullptr, 5);
    EXPECT_EQ(Lines{}, log.take());
}

TEST(VxlbMemPool, ChunksFollowInitIncrementAndCap) {
    const struct {
        int init, increment, max;
        std::vector<int> slots_at_chunk; // slots got when a chunk was allocated
        int total;                       // slots there are in all
    } cases[] = {
        {10, 10, 25, {1, 11, 21}, 25}, {10, 3, 5, {1}, 5},   {4, 2, 0, {1, 5, 7, 9, 11}, 1000},
        {2, 2, 4, {1, 3}, 4},          {1, 5, 2, {1, 2}, 2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(text("%d %d %d", c.init, c.increment, c.max));
        Pool pool(32, c.init, c.increment);
        vxlb_mp_set_max(&pool, c.max);
        vxlb_set_error("");
        std::vector<int> chunks;
        int got = 0;
        while (got < std::min(c.total, 12) || (c.max > 0 && got < c.total)) {
            const int before = pool.num_malloced_slot;
            ASSERT_NE(nullptr, vxlb_mp_get_slot(&pool));
            got++;
            if (pool.num_malloced_slot != before) {
                chunks.push_back(got);
            }
        }
        EXPECT_EQ(c.slots_at_chunk, chunks);
        EXPECT_STREQ("", vxlb_get_error());
        if (c.max > 0) {
            EXPECT_EQ(nullptr, vxlb_mp_get_slot(&pool));
            EXPECT_EQ(-1, vxlb_mp_create(&pool));
            EXPECT_STREQ("Memory pool max limit reached", vxlb_get_error());
            EXPECT_EQ(static_cast<size_t>(c.total), busy_slots(pool).size());
        }
    }
}

TEST(VxlbMemPool, ACreatedChunkIsZeroedMarkedAndLinkedInOrder) {
    Pool pool(40, 3, 1);
    EXPECT_EQ(0, vxlb_mp_create(&pool));
    const Slots slots = free_slots(pool);
    ASSERT_EQ(3u, slots.size());
    for (size_t i = 0; i < 3; i++) {
        EXPECT_EQ(reinterpret_cast<char *>(slots[0]) + 40 * i, reinterpret_cast<char *>(slots[i]));
        EXPECT_EQ(i == 0 ? 1 : 0, slots[i]->slot_status);
        EXPECT_EQ(std::string(16, '\0'), std::string(reinterpret_cast<char *>(slots[i]) + 24, 16));
    }
    EXPECT_EQ(1, pool.num_malloced_slot);
}

// The same random steps for the pool and for two plain lists; 25 to 40 bytes put headers anywhere.
TEST(VxlbMemPool, BehavesAsTwoLists) {
    std::mt19937 random(7);
    for (const int slot_size : {24, 25, 31, 33, 40, 56}) {
        SCOPED_TRACE(slot_size);
        Pool pool(slot_size, 5, 3, slot_size % 2);
        Slots free, busy, detached;
        for (int step = 0; step < 2000; step++) {
            const size_t pick = busy.empty() ? 0 : random() % busy.size();
            switch (random() % 8) {
            case 0:
            case 1:
            case 2: {
                node *const slot = vxlb_mp_get_slot(&pool);
                if (free.empty()) {
                    free = free_slots(pool);
                    free.push_front(slot);
                }
                ASSERT_EQ(free.front(), slot);
                free.pop_front();
                busy.push_back(slot);
                break;
            }
            case 3:
            case 4:
                if (!busy.empty()) {
                    const bool is_last = random() % 2 == 0;
                    (is_last ? vxlb_mp_free_slot : vxlb_mp_free_slot_ex)(&pool, busy[pick]);
                    is_last ? free.push_back(busy[pick]) : free.push_front(busy[pick]);
                    busy.erase(busy.begin() + static_cast<ptrdiff_t>(pick));
                }
                break;
            case 5:
                ASSERT_EQ(busy.empty() ? nullptr : busy.front(), vxlb_mp_check_busy_head(&pool));
                if (node *const slot = vxlb_mp_get_busy_head(&pool); slot != nullptr) {
                    ASSERT_EQ(busy.front(), slot);
                    detached.push_back(slot);
                    busy.pop_front();
                }
                break;
            case 6:
                if (!detached.empty()) {
                    vxlb_mp_free_busy_head(&pool, detached.back());
                    free.push_front(detached.back());
                    detached.pop_back();
                }
                break;
            default:
                if (random() % 40 == 0) {
                    vxlb_mp_free_all_slots(&pool);
                    free.insert(free.end(), busy.begin(), busy.end());
                    busy.clear();
                }
            }
            ASSERT_EQ(free, free_slots(pool));
            ASSERT_EQ(busy, busy_slots(pool));
        }
        for (node *slot : detached) {
            vxlb_mp_free_busy_head(&pool, slot);
        }
    }
}

TEST(VxlbMemPool, IgnoresNullSlots) {
    Pool pool;
    node *const slot = vxlb_mp_get_slot(&pool);
    vxlb_mp_free_slot(&pool, nullptr);
    vxlb_mp_free_slot_ex(&pool, nullptr);
    vxlb_mp_free_busy_head(&pool, nullptr);
    EXPECT_EQ(Slots{slot}, busy_slots(pool));
    EXPECT_EQ(3u, free_slots(pool).size());
}

TEST(VxlbMemPool, DestroyFreesEveryChunkOnceInListOrder) {
    TraceLog log(VXLB_MOD_MEMORY, VXLB_LEVEL_2);
    vxlb_mp_handler pool;
    vxlb_mp_init(&pool, 32, 2, 3, 1);
    Lines freed;
    for (int i = 0; i < 8; i++) {
        node *const slot = vxlb_mp_get_slot(&pool);
        slot->slot_status = static_cast<char>(slot->slot_status | 6); // the user's bits
        if (i == 0 || i == 2 || i == 5) {
            freed.push_back(text(
                "VXLB_FREE'ed (malloced_slotes[i]) Freed. ptr = $%p$ for index -1, allocated_size = 1",
                shown(slot)));
        }
    }
    vxlb_mp_destroy(&pool);
    EXPECT_EQ(freed, log.take());
    EXPECT_TRUE(is_zero(pool));
    vxlb_mp_destroy(&pool); // nothing to do
}

TEST(VxlbMemPool, TracesItsSteps) {
    TraceLog log(VXLB_MOD_API, -1);
    Pool pool(32, 2, 1);
    void *const p = static_cast<vxlb_mp_handler *>(&pool);
    node *const a = vxlb_mp_get_slot(&pool);
    char *const b = reinterpret_cast<char *>(a) + 32;
    EXPECT_EQ(
        (Lines{
            text(
                "Method Called,mpool = %p, slot_size = 32, num_slot_init = 2, num_slots_increment = 1, handle_flag = 0",
                p),
            "memory pool handler dump :  mpool->slot_size = 32, mpool->num_slots_init = 2,"
            "mpool->num_slots_increment = 1, mpool->handler_flag =0",
            text("Method called, mpool = %p, mpool->free_head = (nil)", p),
            text("Method called,  mpool = %p, slot_size = 32, num_slots = 2 ", p),
            "Allocating memory pool of size = 64, size of slot_size = 32, size of node = 24, num_slots = 2",
            text("After pool allcation, head = %p", shown(a)),
            text("Add Dump: i = 0, cur_slot = %p, prev_slot = (nil), next_slot = %p", shown(a),
                 shown(b)),
            text("Add Dump: i = 1, cur_slot = %p, prev_slot = %p, next_slot = (nil)", shown(b),
                 shown(a)),
            text(
                "Dump (vxlb_mp_handler):  head = %p, free_[head|tail] = [%p|%p], busy_[head|tail] = [(nil)|(nil)], "
                "slot_size = 32, num_slots = 2, ret_val = 0",
                shown(a), shown(a), shown(b)),
            text("free = %p, mpool->free_[head|tail] = [%p|%p], mpool->busy_[head|tail] = [%p|%p]",
                 shown(a), shown(b), shown(b), shown(a), shown(a))}),
        log.take());
    vxlb_mp_free_slot(&pool, a);
    vxlb_mp_free_slot(&pool, nullptr);
    EXPECT_EQ((Lines{text("Method called, mpool = %p, slot =%p", p, shown(a)),
                     text("current slot = %p, next slot = (nil), previous slot = (nil)", shown(a)),
                     text("busy_[head|tail] = [(nil)|(nil)], free_[head|tail] = [%p|%p]", shown(b),
                          shown(a)),
                     text("Method called, mpool = %p, slot =(nil)", p)}),
              log.take());
    vxlb_util_set_debug_log_level(VXLB_LEVEL_2);
    vxlb_mp_free_slot_ex(&pool, vxlb_mp_get_slot(&pool));
    EXPECT_EQ(2u, log.take().size());
}

TEST(VxlbMemPool, ThreadsShareALockedPool) {
    Pool pool(32, 4, 4, 1);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([&] {
            for (int step = 0; step < 5000; step++) {
                node *const first = vxlb_mp_get_slot(&pool);
                node *const second = vxlb_mp_get_slot(&pool);
                vxlb_mp_check_busy_head(&pool);
                vxlb_mp_free_slot(&pool, first);
                vxlb_mp_free_slot_ex(&pool, second);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(Slots{}, busy_slots(pool));
    EXPECT_GE(8u, free_slots(pool).size());
}

TEST(VxlbMemPoolDeathTest, AChunkThatCanNotBeHadEndsTheProcess) {
    for (const int slot_size : {1 << 30, INT_MAX}) {
        vxlb_mp_handler pool;
        vxlb_mp_init(&pool, slot_size, 2, 1, 0);
        EXPECT_EXIT(vxlb_mp_get_slot(&pool), testing::ExitedWithCode(1),
                    text("^Out of Memory \\(size = %d\\): Allocating memory pool \n$",
                         static_cast<int>(static_cast<unsigned int>(slot_size) * 2)));
    }
    vxlb_mp_handler pool;
    vxlb_mp_init(&pool, -32, 2, 1, 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(nullptr, vxlb_mp_get_slot(&pool));
    EXPECT_EQ("Trying to malloc a negative size memory size = -64 \n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ(0, pool.num_malloced_slot);
}
