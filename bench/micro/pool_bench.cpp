// SPDX-License-Identifier: Apache-2.0
// Slot pool: get and free, in the three patterns that programs show.
//
//     pair      one slot comes and goes, as for a request that is served at once
//     queue     a thousand slots live, the oldest goes when a new one comes
//     burst     a thousand slots are taken, then all are given back, oldest first
//
// The bare lists are the same two lists with the same header, and nothing else: no lock, no trace,
// no test of its arguments.
#include "compare.h"

#include <libvxcore/vxlb_mem_pool.h>

#include <memory_resource>

namespace {

constexpr int LIVE = 1000;
constexpr int PAIRS = 400000;

struct Bare {
    node *free_head, *free_tail, *busy_head, *busy_tail;
    char *slots;
};

void bare_append(node **head, node **tail, node *slot) {
    slot->prev = *tail;
    slot->next = nullptr;
    if (*tail != nullptr) {
        (*tail)->next = slot;
    } else {
        *head = slot;
    }
    *tail = slot;
}

void bare_unlink(node **head, node **tail, node *slot) {
    if (slot->prev != nullptr) {
        slot->prev->next = slot->next;
    } else {
        *head = slot->next;
    }
    if (slot->next != nullptr) {
        slot->next->prev = slot->prev;
    } else {
        *tail = slot->prev;
    }
}

__attribute__((noinline)) void *bare_get(Bare *bare) {
    node *const slot = bare->free_head;
    bare->free_head = slot->next;
    if (slot->next != nullptr) {
        slot->next->prev = nullptr;
    } else {
        bare->free_tail = nullptr;
    }
    bare_append(&bare->busy_head, &bare->busy_tail, slot);
    return slot;
}

__attribute__((noinline)) void bare_put(Bare *bare, void *slot) {
    bare_unlink(&bare->busy_head, &bare->busy_tail, static_cast<node *>(slot));
    bare_append(&bare->free_head, &bare->free_tail, static_cast<node *>(slot));
}

void bare_init(Bare *bare, size_t size) {
    *bare = {};
    bare->slots = static_cast<char *>(calloc(LIVE + 1, size));
    for (size_t i = 0; i <= LIVE; i++) {
        bare_append(&bare->free_head, &bare->free_tail,
                    reinterpret_cast<node *>(bare->slots + i * size));
    }
}

template <class Get, class Put> void do_pairs(Get get, Put put) {
    for (int i = 0; i < PAIRS; i++) {
        void *const slot = get();
        benchmark::DoNotOptimize(reinterpret_cast<uintptr_t>(slot));
        put(slot);
    }
}

template <class Get, class Put> void do_queue(Get get, Put put) {
    static void *live[LIVE];
    for (void *&slot : live) {
        slot = get();
    }
    for (int i = 0, at = 0; i < PAIRS - LIVE; i++, at = at + 1 < LIVE ? at + 1 : 0) {
        put(live[at]);
        live[at] = get();
    }
    for (void *slot : live) {
        put(slot);
    }
}

template <class Get, class Put> void do_burst(Get get, Put put) {
    static void *live[LIVE];
    for (int i = 0; i < PAIRS; i += LIVE) {
        for (void *&slot : live) {
            slot = get();
        }
        for (void *slot : live) {
            put(slot);
        }
    }
}

template <class Get, class Put> void do_work(const std::string &pattern, Get get, Put put) {
    if (pattern == "pair") {
        do_pairs(get, put);
    } else if (pattern == "queue") {
        do_queue(get, put);
    } else {
        do_burst(get, put);
    }
}

void measure(const std::string &pattern, size_t size) {
    static vxlb_mp_handler pool;
    static Bare bare;
    vxlb_mp_init(&pool, static_cast<int>(size), LIVE + 1, LIVE, 0);
    vxlb_mp_create(&pool);
    bare_init(&bare, size);
    std::pmr::unsynchronized_pool_resource resource;
    rounds::arms(
        {.group = "pool", .name = pattern + ", " + std::to_string(size) + " bytes", .items = PAIRS},
        {{"ours", "",
          [&] {
              do_work(
                  pattern, [] { return vxlb_mp_get_slot(&pool); },
                  [](void *slot) { vxlb_mp_free_slot(&pool, slot); });
          }},
         {"malloc and free", "<=0.60",
          [&] {
              do_work(
                  pattern, [=] { return malloc(size); }, [](void *slot) { free(slot); });
          }},
         {"std::pmr pool", "<=0.40",
          [&] {
              do_work(
                  pattern, [&] { return resource.allocate(size, 16); },
                  [&](void *slot) { resource.deallocate(slot, size, 16); });
          }},
         {"bare lists", "<=1.30", [&] {
              do_work(
                  pattern, [] { return bare_get(&bare); },
                  [](void *slot) { bare_put(&bare, slot); });
          }}});
    vxlb_mp_destroy(&pool);
    free(bare.slots);
}

} // namespace

int main(int argc, char **argv) {
    rounds::init(argc, argv);
    for (const char *pattern : {"pair", "queue", "burst"}) {
        for (const size_t size : {48, 256, 1024}) {
            measure(pattern, size);
        }
    }
    return 0;
}
