/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Normalized-id table: turns names into small dense integers, and back.
 *
 *     nt      [head][head][head] ...           buckets; a head is the first entry, stored in place
 *                     |
 *                     entry -> entry           the others hang on nt_next and live in pool slots
 *     bigbuf  name\0 name\0 datum\0 ...        entries keep offsets into it
 *     id_name [0][1][2] ...                    optional: the entry of each id
 *
 * The first time a name is seen it gets the next id (0, 1, 2 ...), later the same one. A name may
 * instead be given an id of the caller's choice, and may carry a datum of 8 bytes. Ids of deleted
 * names wait in a queue from which vxlb_get_set_or_gen_norm_id_ex alone takes them.
 *
 * Calling order: one init, any mix of the operations, then reset to start over with the same memory,
 * or destroy. A table is used by one thread at a time; it does not lock. When memory runs out the
 * process ends, as for every tracked allocation.
 *
 * Common arguments: in_str is a NUL-terminated name and in_strlen its exact length. Where a length
 * of 0 "measures", it is taken with strlen; elsewhere 0 is bad input. The hash covers the text up
 * to its NUL whatever the length says, so a length that is too short stores a name that the exact
 * length does not find. flag_new, hs, norm_id and value may be null.
 */
#ifndef LIBVXCORE_VXLB_GET_NORM_OBJ_ID_H
#define LIBVXCORE_VXLB_GET_NORM_OBJ_ID_H

#include <libvxcore/vxlb_big_buf.h>
#include <libvxcore/vxlb_mem_pool.h>

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default) /* what the shared library exports */

#define VXLB_NORM_ID_BAD_INPUT (-1)    /* a null or empty argument */
#define VXLB_NORM_ID_ABSENT (-2)       /* no such name */
#define VXLB_NORM_ID_STEP 16           /* elements by which the reverse index grows */
#define VXLB_NORM_ID_POOL_INIT 64      /* entries of the pool's first chunk */
#define VXLB_NORM_ID_POOL_INCREMENT 16 /* entries of each later one */

/* One entry. The first three fields are a pool slot's header; a bucket head's are the table's. */
typedef struct NormTable {
    struct NormTable *prev;
    struct NormTable *next;
    char slot_status;
    uint32_t mark;             /* the table's own: saves it from comparing most other names */
    int64_t str;               /* offset of the name in bigbuf; -1: empty bucket head */
    int32_t len;               /* bytes of the name, without its NUL */
    int32_t idx;               /* the normalized id */
    int64_t data;              /* offset of the datum in bigbuf; 0 or less: none */
    struct NormTable *nt_next; /* next entry of the bucket */
} NormTable;

/* The datum that an entry may carry. */
typedef union NormTableData {
    char val_char;
    int32_t val_int;
    int64_t val_long;
    double val_double;
    void *val_addr;
} NormTableData;

/* A freed id that waits for use; a queue, oldest first. */
typedef struct FreeNormIdList {
    int32_t free_id;
    struct FreeNormIdList *next_free_id;
} FreeNormIdList;

/* A point of a tree of names. Programs may hang one on a table; no operation here builds it. */
typedef struct TreeNode {
    struct TreeNode *left;
    int64_t offset;
    int32_t str_len;
    struct TreeNode *right;
} TreeNode;

/* A table. */
typedef struct NormObjKey {
    bigbuf_t bigbuf;          /* names and data */
    int32_t size;             /* bucket heads, a power of two */
    int32_t prime;            /* largest prime not above size; buckets from prime on are not used */
    NormTable *nt;            /* owned: the bucket heads */
    NormTable **id_name;      /* owned: reverse index, or null; destroy leaves it to the caller */
    int32_t max_norm_id_size; /* elements of id_name that are managed */
    int32_t prev_id;          /* last id handed out; -1 in a new table */
    TreeNode *head;           /* null */
    FreeNormIdList *free_norm_id_list_head; /* owned: oldest freed id */
    FreeNormIdList *free_norm_id_list_tail; /* newest freed id */
    vxlb_mp_handler *nt_mpool;              /* owned: chained entries */
} NormObjKey;

/* The smallest power of two not below value; 1 for anything below 1, -1 above 2^30. */
int vxlb_change_to_2_power_n(int value);

/* The largest prime not above n; 1 when there is none. */
int get_prime(int n);

/*
 * Bucket of a name: FNV-1a over its bytes up to its NUL, in 64 bits with the 32-bit constants,
 * modulo prime. -1 when str is null or one of len, size and prime is below 1; the length and the
 * size count for nothing else.
 */
int vxlb_get_hash_index_ex(const char *str, int len, int size, int prime);

/*
 * Set a table up with `size` bucket heads, rounded up to a power of two, and 1 MB for names.
 * Returns 0, or -1 for a null key or a size below 1 or above 2^30.
 */
int vxlb_init_norm_id_table(NormObjKey *key, int size);

/* The same with big_buf_size bytes for names; -1 also when that is below 1. */
int vxlb_init_norm_id_table_v2(NormObjKey *key, int size, int big_buf_size);

/*
 * vxlb_init_norm_id_table with a reverse index, which vxlb_get_or_set_norm_id fills. One would
 * expect it to have `size` elements; it is managed in steps of 16 from the first id on.
 *
 * Returns 0 also when the plain init refuses the size; -1 for a null key.
 */
int vxlb_init_norm_id_table_ex(NormObjKey *key, int size);

/*
 * The adding operations return the id of the name, added if it is absent. A name that is present
 * keeps its id and its datum, whatever is passed. *flag_new becomes 0 for a name that was present,
 * else the number of entries its bucket had before, at least 1.
 *
 *                            length 0   bad input   absent name gets
 *     get_or_set             bad input  all ones    the next id; the reverse index is kept
 *     get_or_gen             measures   all ones    the next id
 *     get_or_gen_ex          bad input  all ones    the next id
 *     get_set_or_gen         measures   all ones    normid, or the next id when that is -1
 *     get_set_or_gen_ex      measures   all ones    the oldest freed id, or the next one
 *     set, set_and_data...   measures   0           normid
 *
 * A table that is not set up, or a negative length, gives 0, but all ones from get_or_gen_ex; the
 * set operations say so on standard error.
 */
unsigned int vxlb_get_or_set_norm_id(NormObjKey *key, const char *in_str, int in_strlen,
                                     int *flag_new);
unsigned int vxlb_get_or_gen_norm_id(NormObjKey *key, const char *in_str, int in_strlen,
                                     int *flag_new);

/* hs: receives the bucket, but only when the name went into an empty one. */
unsigned int vxlb_get_or_gen_norm_id_ex(NormObjKey *key, const char *in_str, int in_strlen,
                                        int *flag_new, int *hs);

/* flag_new: 1 for every name that was added with normid. */
unsigned int vxlb_get_set_or_gen_norm_id(NormObjKey *key, const char *in_str, int in_strlen,
                                         int *flag_new, int normid);
unsigned int vxlb_get_set_or_gen_norm_id_ex(NormObjKey *key, const char *in_str, int in_strlen,
                                            int *flag_new);

/* Explicit ids raise the last id handed out to at least normid. The datum is 0. */
unsigned int vxlb_set_norm_id(NormObjKey *key, const char *in_str, int in_strlen, int normid);

/* The datum's val_int is the character, widened with its sign. */
unsigned int vxlb_set_norm_id_and_data(NormObjKey *key, const char *in_str, int in_strlen,
                                       int normid, char data);
unsigned int vxlb_set_norm_id_and_data_ex(NormObjKey *key, const char *in_str, int in_strlen,
                                          int normid, NormTableData data);

/* Make start_normid the last id handed out, if that raises it. */
void vxlb_set_start_norm_id(NormObjKey *key, int start_normid);

/* The id of a name; VXLB_NORM_ID_BAD_INPUT, or VXLB_NORM_ID_ABSENT. A length of 0 is bad input. */
int vxlb_get_norm_id(NormObjKey *key, const char *in_str, int in_strlen);

/*
 * vxlb_get_norm_id that also tells the bucket and the datum. *data (may be null) is zeroed for an
 * entry without a datum and for an empty bucket; it is left alone after bad input and when the
 * bucket has other names only. An entry that is used again shows the datum of its last name until
 * it gets one of its own.
 */
int vxlb_get_norm_id_hash_data_ex(NormObjKey *key, const char *in_str, int in_strlen, int *hs,
                                  NormTableData *data);

/* The same for the datum's val_int. */
int vxlb_get_norm_id_hash_data(NormObjKey *key, const char *in_str, int in_strlen, int *hs,
                               int *value);

/*
 * The name of an id, by the reverse index; good until the next insertion. "InvalidInput" for a null
 * key or a negative id, "NormIdNameNotFound" for an id that was never recorded. Deleting does not
 * touch the index: ask for ids of names that are present only.
 */
char *vxlb_get_norm_table_data(NormObjKey *key, int norm_id);

/*
 * Delete a name; a length of 0 measures. Its id, which *norm_id receives, joins the freed ids.
 * Returns 0, or -1 when there is no such name.
 */
int vxlb_delete_norm_id_ex(NormObjKey *key, const char *in_str, int in_strlen, int *norm_id);

/*
 * Empty the bucket head `hash`. One would expect the whole bucket to go: the chained names only
 * can't be reached until the head is used again, and no id is freed. Programs that own one name a
 * bucket call it.
 *
 * Returns 0, or -1 for an empty head or a number that is no bucket.
 */
int vxlb_delete_norm_id(NormObjKey *key, int hash);

/* Append an id to the freed ids. When memory runs out the id is lost. */
void vxlb_add_id_in_free_list(NormObjKey *key, int data);

/* Empty the table and keep its memory; ids begin at 0 again. Returns 0. */
int vxlb_obj_hash_reset(NormObjKey *key);

/* Release everything except the reverse index. Returns 0. */
int vxlb_obj_hash_destroy(NormObjKey *key);

/*
 * Record the entry of an id in the reverse index, which grows by 16 elements if the id is beyond
 * it; an id beyond that, or a negative one, is not recorded.
 */
void add_pnt_to_idname(NormObjKey *key, int norm_id, NormTable *p_nt);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
