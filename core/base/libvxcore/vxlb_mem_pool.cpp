// SPDX-License-Identifier: Apache-2.0
// Getting and freeing move a slot from one list to the other; everything else happens once a chunk.
//
// The chunks themselves are on no list. A chunk is known by the mark in its first slot, so destroy
// first frees every slot, walks the free list once, and strings the marked slots together through
// the links it does not need for walking.
#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_mem_pool.h>
#include <libvxcore/vxlb_util.h>

#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

// A slot's header as the pool reads it: a slot may lie at any address, and holds a record of the
// user's own type.
typedef struct __attribute__((packed, may_alias)) Header {
    node *prev;
    node *next;
    char slot_status;
} Header;
static_assert(sizeof(node) == 24 && offsetof(Header, next) == offsetof(node, next) &&
                  offsetof(Header, slot_status) == offsetof(node, slot_status),
              "records of the pool's users begin with this header");

static Header *header(node *slot) {
    return reinterpret_cast<Header *>(slot);
}

// Records bear the name of the operation that was called, not of what it is made of.
#define TRACE_IN(function, level, ...) \
    vxlb_debug_log_ex(level, VXLB_MOD_API, __FILE__, __LINE__, function, __VA_ARGS__)
#define TRACE(level, ...) TRACE_IN(__func__, level, __VA_ARGS__)

enum { ERRSTR_FIRST = 2, ERRSTR_LAST = 4 };

static const char *const err[] = {
    "Success",
    "Error: Invalid value of the argument passed",
    "Error: Memory allocation failure",
    "Error: Invalid Pointer Passed",
    "Error: Invalid Memory Alignment",
};
static_assert(sizeof(err) / sizeof(err[0]) == ERRSTR_LAST + 1, "one text a number");

char *mpool_errstr(int num) {
    const bool is_served = num >= ERRSTR_FIRST && num <= ERRSTR_LAST;
    return const_cast<char *>(is_served ? err[num] : "Unknown Error Type"); // not to be written to
}

// Traces print slots by address only.
static void *shown(node *slot) {
    return slot;
}

// Asked once an operation, so that an untraced one tests no more than that.
static bool is_traced() {
    return __builtin_expect(vxlb_debug_log_is_on(VXLB_LEVEL_2 | VXLB_LEVEL_3, VXLB_MOD_API), 0) !=
           0;
}

static void lock(vxlb_mp_handler *mpool) {
    if (mpool->handler_flag == 1) {
        pthread_mutex_lock(&mpool->mem_pool_lock);
    }
}

static void unlock(vxlb_mp_handler *mpool) {
    if (mpool->handler_flag == 1) {
        pthread_mutex_unlock(&mpool->mem_pool_lock);
    }
}

int vxlb_mp_init(vxlb_mp_handler *mpool, int slot_size, int num_slot_init, int num_slots_increment,
                 int handle_flag) {
    *mpool = {};
    if (slot_size == 0) {
        return 1;
    }
    TRACE(VXLB_LEVEL_2,
          "Method Called,mpool = %p, slot_size = %d, num_slot_init = %d, num_slots_increment = %d, "
          "handle_flag = %d",
          static_cast<void *>(mpool), slot_size, num_slot_init, num_slots_increment, handle_flag);
    mpool->slot_size = slot_size;
    mpool->num_slots_init = num_slot_init > 0 ? num_slot_init : VXLB_MP_DEFAULT_SLOTS;
    mpool->num_slots_increment =
        num_slots_increment > 0 ? num_slots_increment : VXLB_MP_DEFAULT_SLOTS;
    mpool->handler_flag = handle_flag == 1 ? 1 : 0;
    TRACE(VXLB_LEVEL_3,
          "memory pool handler dump :  mpool->slot_size = %d, mpool->num_slots_init = %d,"
          "mpool->num_slots_increment = %d, mpool->handler_flag =%d",
          mpool->slot_size, mpool->num_slots_init, mpool->num_slots_increment, mpool->handler_flag);
    return 0;
}

// Slots that the next chunk may have; below 1 when the cap is reached. The cap is compared with the
// slots there would be if every chunk had its full size.
static int64_t next_chunk_slots(const vxlb_mp_handler *mpool) {
    const int64_t count =
        mpool->num_malloced_slot == 0 ? mpool->num_slots_init : mpool->num_slots_increment;
    const int64_t total =
        mpool->num_slots_init + int64_t{mpool->num_slots_increment} * mpool->num_malloced_slot;
    const bool is_over = mpool->num_slots_max != 0 && total > mpool->num_slots_max;
    return is_over ? count - (total - mpool->num_slots_max) : count;
}

// Plain memory, not VXLB_MALLOC: the allocation map keeps its records in slots of a pool, so a
// tracked allocation here would re-enter the pool that is growing.
static node *allocate_chunk(int64_t size) {
    if (size <= 0) {
        fprintf(stderr, "Trying to malloc a negative size memory size = %d \n",
                static_cast<int>(size));
        return nullptr;
    }
    void *const chunk = size > INT_MAX ? nullptr : calloc(1, static_cast<size_t>(size));
    if (chunk == nullptr) {
        fprintf(stderr, "Out of Memory (size = %d): %s \n", static_cast<int>(size),
                "Allocating memory pool");
        exit(1);
    }
    return static_cast<node *>(chunk);
}

static node *slot_behind(node *slot, int32_t slot_size) {
    return reinterpret_cast<node *>(reinterpret_cast<char *>(slot) + slot_size);
}

// String a chunk's slots together in the order of their addresses; returns the last one.
static node *link_slots(node *first, int count, int32_t slot_size) {
    node *prev = nullptr;
    node *slot = first;
    for (int i = 0; i < count; i++) {
        header(slot)->prev = prev;
        header(slot)->next = i + 1 < count ? slot_behind(slot, slot_size) : nullptr;
        TRACE_IN("vxlb_mp_create", VXLB_LEVEL_3,
                 "Add Dump: i = %d, cur_slot = %p, prev_slot = %p, next_slot = %p", i, shown(slot),
                 shown(header(slot)->prev), shown(header(slot)->next));
        prev = slot;
        slot = header(slot)->next;
    }
    return prev;
}

int vxlb_mp_create(vxlb_mp_handler *mpool) {
    if (mpool == nullptr) {
        return 1;
    }
    TRACE(VXLB_LEVEL_2, "Method called,  mpool = %p, slot_size = %d, num_slots = %d ",
          static_cast<void *>(mpool), mpool->slot_size, mpool->num_slots_init);
    if (mpool->slot_size == 0) {
        return 1;
    }
    const int64_t count = next_chunk_slots(mpool);
    if (count < 1) {
        vxlb_set_error("Memory pool max limit reached");
        return -1;
    }
    const int64_t size = mpool->slot_size * count;
    TRACE(VXLB_LEVEL_2,
          "Allocating memory pool of size = %d, size of slot_size = %d, size of node = %zu, "
          "num_slots = %d",
          static_cast<int>(size), mpool->slot_size, sizeof(node), static_cast<int>(count));
    node *const head = allocate_chunk(size);
    if (head == nullptr) {
        return -1;
    }
    TRACE(VXLB_LEVEL_2, "After pool allcation, head = %p", shown(head));
    header(head)->slot_status |= VXLB_MP_CHUNK_START;
    mpool->num_malloced_slot++;
    mpool->free_tail = link_slots(head, static_cast<int>(count), mpool->slot_size);
    mpool->free_head = head;
    TRACE(VXLB_LEVEL_3,
          "Dump (vxlb_mp_handler):  head = %p, free_[head|tail] = [%p|%p], "
          "busy_[head|tail] = [%p|%p], slot_size = %d, num_slots = %d, ret_val = %d",
          shown(head), shown(mpool->free_head), shown(mpool->free_tail), shown(mpool->busy_head),
          shown(mpool->busy_tail), mpool->slot_size, mpool->num_slots_init, 0);
    return 0;
}

static node *pop_free(vxlb_mp_handler *mpool) {
    node *const slot = mpool->free_head;
    node *const next = header(slot)->next;
    mpool->free_head = next;
    if (next != nullptr) {
        header(next)->prev = nullptr;
    } else {
        mpool->free_tail = nullptr;
    }
    return slot;
}

static void append_busy(vxlb_mp_handler *mpool, node *slot) {
    node *const last = mpool->busy_tail;
    mpool->busy_tail = slot;
    header(slot)->prev = last;
    header(slot)->next = nullptr;
    if (last != nullptr) {
        header(last)->next = slot;
    } else {
        mpool->busy_head = slot;
    }
}

// Whether an operation has only its slot to move: nothing to lock, nothing to trace. The functions
// below test it first and leave the rest to a function of its own, so that they need no frame.
static bool is_plain(const vxlb_mp_handler *mpool) {
    return __builtin_expect(mpool->handler_flag != 1 && !is_traced(), 1) != 0;
}

static node *take_slot(vxlb_mp_handler *mpool) {
    node *const slot = pop_free(mpool);
    append_busy(mpool, slot);
    return slot;
}

__attribute__((noinline)) static node *get_slot_with_care(vxlb_mp_handler *mpool) {
    const bool traced = is_traced();
    lock(mpool);
    if (traced) {
        TRACE_IN("vxlb_mp_get_slot", VXLB_LEVEL_2,
                 "Method called, mpool = %p, mpool->free_head = %p", static_cast<void *>(mpool),
                 shown(mpool->free_head));
    }
    if (mpool->free_head == nullptr) {
        mpool->free_tail = nullptr;
        if (vxlb_mp_create(mpool) != 0) {
            unlock(mpool);
            return nullptr;
        }
    }
    node *const slot = take_slot(mpool);
    if (traced) {
        TRACE_IN("vxlb_mp_get_slot", VXLB_LEVEL_3,
                 "free = %p, mpool->free_[head|tail] = [%p|%p], mpool->busy_[head|tail] = [%p|%p]",
                 shown(slot), shown(mpool->free_head), shown(mpool->free_tail),
                 shown(mpool->busy_head), shown(mpool->busy_tail));
    }
    unlock(mpool);
    return slot;
}

node *vxlb_mp_get_slot(vxlb_mp_handler *mpool) {
    if (mpool == nullptr) {
        return nullptr;
    }
    if (is_plain(mpool) && mpool->free_head != nullptr) {
        return take_slot(mpool);
    }
    return get_slot_with_care(mpool);
}

static void unlink_busy(vxlb_mp_handler *mpool, node *slot) {
    node *const prev = header(slot)->prev;
    node *const next = header(slot)->next;
    if (slot == mpool->busy_head) {
        mpool->busy_head = next;
        if (next != nullptr) {
            header(next)->prev = nullptr;
        } else {
            mpool->busy_tail = nullptr;
        }
    } else if (slot != mpool->busy_tail) {
        header(prev)->next = next;
        header(next)->prev = prev;
    } else {
        mpool->busy_tail = prev;
        header(prev)->next = nullptr;
    }
}

static void append_free(vxlb_mp_handler *mpool, node *slot) {
    node *const last = mpool->free_tail;
    mpool->free_tail = slot;
    header(slot)->prev = last;
    header(slot)->next = nullptr;
    if (last != nullptr) {
        header(last)->next = slot;
    } else {
        mpool->free_head = slot;
    }
}

static void push_free(vxlb_mp_handler *mpool, node *slot) {
    node *const first = mpool->free_head;
    mpool->free_head = slot;
    header(slot)->prev = nullptr;
    header(slot)->next = first;
    if (first != nullptr) {
        header(first)->prev = slot;
    } else {
        mpool->free_tail = slot;
    }
}

static void trace_before_free(node *slot, const char *function) {
    TRACE_IN(function, VXLB_LEVEL_3, "current slot = %p, next slot = %p, previous slot = %p",
             shown(slot), shown(header(slot)->next), shown(header(slot)->prev));
}

static void trace_after_free(const vxlb_mp_handler *mpool, const char *function) {
    TRACE_IN(function, VXLB_LEVEL_3, "busy_[head|tail] = [%p|%p], free_[head|tail] = [%p|%p]",
             shown(mpool->busy_head), shown(mpool->busy_tail), shown(mpool->free_head),
             shown(mpool->free_tail));
}

typedef void (*PutBack)(vxlb_mp_handler *, node *);

template <PutBack put_back>
__attribute__((noinline)) static void free_with_care(vxlb_mp_handler *mpool, node *slot,
                                                     const char *function) {
    const bool traced = is_traced();
    if (traced) {
        TRACE_IN(function, VXLB_LEVEL_2, "Method called, mpool = %p, slot =%p",
                 static_cast<void *>(mpool), shown(slot));
    }
    if (slot == nullptr) {
        return;
    }
    lock(mpool);
    if (traced) {
        trace_before_free(slot, function);
    }
    unlink_busy(mpool, slot);
    put_back(mpool, slot);
    if (traced) {
        trace_after_free(mpool, function);
    }
    unlock(mpool);
}

// Free a slot; put_back adds it to the free list at the end of the caller's choice.
template <PutBack put_back>
static inline void free_busy_slot(vxlb_mp_handler *mpool, node *slot, const char *function) {
    if (slot != nullptr && is_plain(mpool)) {
        unlink_busy(mpool, slot);
        put_back(mpool, slot);
        return;
    }
    free_with_care<put_back>(mpool, slot, function);
}

void vxlb_mp_free_slot(vxlb_mp_handler *mpool, void *slot) {
    free_busy_slot<append_free>(mpool, static_cast<node *>(slot), __func__);
}

void vxlb_mp_free_slot_ex(vxlb_mp_handler *mpool, void *slot) {
    free_busy_slot<push_free>(mpool, static_cast<node *>(slot), __func__);
}

node *vxlb_mp_get_busy_head(vxlb_mp_handler *mpool) {
    if (mpool == nullptr) {
        return nullptr;
    }
    lock(mpool);
    node *const slot = mpool->busy_head;
    if (slot != nullptr) {
        unlink_busy(mpool, slot);
    }
    unlock(mpool);
    return slot;
}

node *vxlb_mp_check_busy_head(vxlb_mp_handler *mpool) {
    if (mpool == nullptr) {
        return nullptr;
    }
    lock(mpool);
    node *const slot = mpool->busy_head;
    unlock(mpool);
    return slot;
}

void vxlb_mp_free_busy_head(vxlb_mp_handler *mpool, void *slot) {
    if (mpool == nullptr || slot == nullptr) {
        return;
    }
    lock(mpool);
    push_free(mpool, static_cast<node *>(slot));
    unlock(mpool);
}

void vxlb_mp_free_all_slots(vxlb_mp_handler *mpool) {
    while (mpool->busy_head != nullptr) {
        vxlb_mp_free_slot(mpool, mpool->busy_head);
    }
}

// Chain the marked slots of the free list through prev, in the list's order; returns the first.
static node *collect_chunks(node *slot) {
    node *first = nullptr;
    node *last = nullptr;
    for (; slot != nullptr; slot = header(slot)->next) {
        if ((header(slot)->slot_status & VXLB_MP_CHUNK_START) == 0) {
            continue;
        }
        header(slot)->prev = nullptr;
        if (last != nullptr) {
            header(last)->prev = slot;
        } else {
            first = slot;
        }
        last = slot;
    }
    return first;
}

void vxlb_mp_destroy(vxlb_mp_handler *mpool) {
    vxlb_mp_free_all_slots(mpool);
    node *chunk = collect_chunks(mpool->free_head);
    while (chunk != nullptr) {
        node *const next = header(chunk)->prev;
        VXLB_FREE(chunk, "malloced_slotes[i]", -1);
        chunk = next;
    }
    *mpool = {};
}

void vxlb_mp_set_max(vxlb_mp_handler *mpool, int max) {
    if (mpool != nullptr) {
        mpool->num_slots_max = max;
    }
}
