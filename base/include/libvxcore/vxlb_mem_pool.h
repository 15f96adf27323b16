/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Slot pool: records of one size, cut from large chunks and reused without going back to the system.
 *
 *     chunk   [slot*][slot][slot] ...      * bit 0 of slot_status: a chunk begins here
 *     slot    prev | next | slot_status | the caller's bytes ...
 *
 * Every slot is on one of two doubly linked lists that run through the slots' headers: the free list
 * or the busy list. The busy list is in order of acquisition, so it can serve as a queue of work.
 *
 * Calling order: vxlb_mp_init, optionally vxlb_mp_set_max and vxlb_mp_create, any mix of getting and
 * freeing, vxlb_mp_destroy. A slot belongs to the caller from get to free; its contents are not
 * cleared in between, links apart, and its memory is given back only by destroy. The record kept in
 * a slot begins with the header's three fields and leaves bit 0 of slot_status alone: without it
 * destroy can't find the chunk.
 *
 * With locking on, getting, freeing and the busy-head operations may be called by any thread at any
 * time; all else, and everything with locking off, by one thread at a time.
 */
#ifndef LIBVXCORE_VXLB_MEM_POOL_H
#define LIBVXCORE_VXLB_MEM_POOL_H

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default) /* what the shared library exports */

#define VXLB_MP_DEFAULT_SLOTS 10 /* slots of a chunk when the caller gives none */
#define VXLB_MP_CHUNK_START 1    /* bit of slot_status in a chunk's first slot */

/* What a pool locks its lists with. */
typedef pthread_mutex_t LOCK;

/*
 * A slot's header. When the slot size is no multiple of 8, slots lie at odd addresses: read their
 * headers by memcpy then, as the pool itself does in effect.
 */
typedef struct node {
    struct node *prev; /* null at a list's head */
    struct node *next; /* null at a list's tail */
    char slot_status;  /* bit 0 is the pool's, the others are the caller's */
} node;

/* A pool. */
typedef struct vxlb_mp_handler {
    char handler_flag;           /* 1: every list operation takes mem_pool_lock */
    int32_t num_slots_init;      /* slots in the first chunk */
    int32_t num_slots_increment; /* slots in every later chunk */
    int32_t num_slots_max;       /* most slots over all chunks; 0: no cap */
    node *free_head;             /* oldest free slot */
    node *free_tail;             /* newest free slot */
    node *busy_head;             /* oldest busy slot */
    node *busy_tail;             /* newest busy slot */
    int32_t slot_size;           /* bytes of a slot, header included */
    int32_t num_malloced_slot;   /* chunks so far, not slots */
    LOCK mem_pool_lock;          /* all zero is an unlocked mutex */
} vxlb_mp_handler;

/*
 * The text of error numbers 2 to 4. Any other number is "Unknown Error Type", 0 and 1 too, although
 * they have texts: programs tell by it that there is nothing to report.
 */
char *mpool_errstr(int num);

/*
 * Set a handle up; nothing is allocated. Counts below 1 become 10; handle_flag 1 switches locking
 * on, any other value off. The slot size is not compared with the header's 24 bytes.
 *
 * Returns 0, or 1 for a slot size of 0, with the handle all zero.
 */
int vxlb_mp_init(vxlb_mp_handler *mpool, int slot_size, int num_slot_init, int num_slots_increment,
                 int handle_flag);

/*
 * Allocate one more chunk and make it the free list. Slots that were still free are lost to the pool
 * then, so call it at the start or not at all: get does it when needed. Takes no lock.
 *
 * Returns 0; 1 for a null handle or one that is not set up; -1 when the cap is reached (also the
 * thread's error text says so) or the slot size is negative. Ends the process with exit status 1
 * when memory runs out.
 */
int vxlb_mp_create(vxlb_mp_handler *mpool);

/* The oldest free slot, from a new chunk if there is none; null when there can't be one. */
node *vxlb_mp_get_slot(vxlb_mp_handler *mpool);

/*
 * Give a busy slot back to the free list's tail (it is reused last), or with _ex to its head (it is
 * reused next). A null slot is ignored; a slot that is not busy corrupts the lists.
 */
void vxlb_mp_free_slot(vxlb_mp_handler *mpool, void *slot);
void vxlb_mp_free_slot_ex(vxlb_mp_handler *mpool, void *slot);

/* Take the oldest busy slot off the busy list; it is on no list then. Null when none is busy. */
node *vxlb_mp_get_busy_head(vxlb_mp_handler *mpool);

/* The oldest busy slot, left where it is. */
node *vxlb_mp_check_busy_head(vxlb_mp_handler *mpool);

/* Give a slot that vxlb_mp_get_busy_head took back to the free list's head. Null is ignored. */
void vxlb_mp_free_busy_head(vxlb_mp_handler *mpool, void *slot);

/* Give all busy slots back, oldest first, as vxlb_mp_free_slot does. */
void vxlb_mp_free_all_slots(vxlb_mp_handler *mpool);

/* Release all chunks, busy slots included, and zero the handle, which may then be set up again. */
void vxlb_mp_destroy(vxlb_mp_handler *mpool);

/* Cap the number of slots over all chunks; 0: no cap. */
void vxlb_mp_set_max(vxlb_mp_handler *mpool, int max);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
