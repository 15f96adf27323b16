/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Allocation map: a list of the calling thread's live tracked blocks, to find leaks with.
 *
 * The map is off in every thread until the thread calls vxlb_mem_map_init. From then on the
 * wrappers of vxlb_alloc.h report each block they make, move or release; programs may report other
 * blocks by the same two calls (declared there):
 *
 *   vxlb_mem_map_add     0 when recorded, an address that is known already overwritten; -1 when the
 *                        map is off or address or msg is null or msg empty.
 *   vxlb_mem_map_remove  0; -1 when the map is off or the address is null or not known, as it is in
 *                        every other thread than the one that allocated the block.
 *
 * Each thread has a map of its own, which it switches off itself before it ends; nothing locks. The
 * map's own memory is never recorded, apart from its array once it has grown.
 */
#ifndef LIBVXCORE_VXLB_MEM_MAP_H
#define LIBVXCORE_VXLB_MEM_MAP_H

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_get_norm_obj_id.h>

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default) /* what the shared library exports */

#define VXLB_MEM_MAP_ENTRIES 10240 /* entries at first, and heads asked of the table of addresses */
#define VXLB_MEM_MAP_STEP 10       /* entries by which the map grows */
#define VXLB_MEM_MAP_MESSAGE_SIZE 256 /* bytes of an entry's message */
#define VXLB_MEM_MAP_TIME_SIZE 32     /* bytes of its date and time */

/* One entry: a live block. */
typedef struct ZylMemoryMap {
    void *address; /* the block; null in a free entry */
    uint64_t size; /* bytes asked for and extra bytes; 0 in a free entry */
    char message[VXLB_MEM_MAP_MESSAGE_SIZE]; /* file|line|function|label */
    char timestamp[VXLB_MEM_MAP_TIME_SIZE];  /* local date and time of the record */
} ZylMemoryMap;

/* The calling thread's map; written by the functions below and by the reports only. */
extern __thread ZylMemoryMap *zyl_mem_map;   /* entry i is that of normalized id i */
extern __thread int32_t mem_map_max_norm_id; /* highest entry handed out */
extern __thread NormObjKey mem_map_norm_tbl; /* address text to entry */

/* Switch the calling thread's map on. Returns 0, or -1 when it is on. */
int vxlb_mem_map_init(void);

/* Switch it off and forget everything. Returns 0, or -1 when it is off. */
int vxlb_mem_map_free(void);

/*
 * Write the map to a file, truncated first: a header and a line of seven fields for each live block,
 * AbsoluteTimeStamp|Address|Size|FileName|LineNo|FunctionName|Message. The entry of the highest id
 * is left out: it is the newest block, most likely the caller's own for this dump, and tools that
 * compare two dumps count on its absence.
 *
 * Returns 0; -1 for a null or empty name, a map that is off, or a file that can't be opened.
 */
int vxlb_mem_map_dump(const char *fname);

/*
 * Make room for entry norm_id, which may be one beyond the map's capacity at most. Called by
 * vxlb_mem_map_add; it does nothing while the map is off.
 */
void vxlb_mem_map_create_entry(int norm_id);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
