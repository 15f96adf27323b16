// SPDX-License-Identifier: Apache-2.0
// Every operation on a name is one hash and one walk. find() does both and tells where the name is
// or where it would go; what follows differs only in the id that an absent name gets and in what is
// done besides.
//
// An empty bucket is a head whose str is -1. Its chain link may be set all the same: deleting by
// bucket leaves the chained entries behind, and they are found again behind the head's next name.
#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_get_norm_obj_id.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vxlb_big_buf_append.h"
#include "vxlb_large_pages.h"

static_assert(offsetof(NormTable, next) == offsetof(node, next) &&
                  offsetof(NormTable, slot_status) == offsetof(node, slot_status) &&
                  offsetof(NormTable, str) == sizeof(node),
              "an entry begins with a slot's header");
static_assert(sizeof(NormTableData) == 8, "a datum is 8 bytes");

enum : int64_t { EMPTY = -1 };
enum { SIZE_LIMIT = 1 << 30 };

#define TRACE(...) \
    vxlb_debug_log_ex(VXLB_LEVEL_2, VXLB_MOD_MISC, __FILE__, __LINE__, __func__, __VA_ARGS__)

// A name with what the walk wants to know of it.
typedef struct Name {
    const char *text;
    int len;
    int hash;      // bucket; negative when the table or the length is not valid
    uint32_t mark; // of the hash, never 0; 0: none, because the text is not as long as said
} Name;

// Where a name is, or where it would go.
typedef struct Place {
    NormTable *found; // the name's entry, or null
    NormTable *last;  // the entry passed last, or null
    int depth;        // entries of the bucket that were passed
} Place;

int vxlb_change_to_2_power_n(int value) {
    if (value > SIZE_LIMIT) {
        return -1;
    }
    int power = 1;
    while (power < value) {
        power *= 2;
    }
    return power;
}

static bool is_prime(int n) {
    for (int divisor = 2; divisor <= n / divisor; divisor++) {
        if (n % divisor == 0) {
            return false;
        }
    }
    return true;
}

int get_prime(int n) {
    while (n > 1 && !is_prime(n)) {
        n--;
    }
    return n > 1 ? n : 1;
}

// The compilers load a byte before they xor it. One instruction for both leaves the processor room to
// have more names under way: lookups in a large table take up to a tenth less.
static inline uint64_t hash_byte(uint64_t hash, const char *byte) {
#ifdef __x86_64__
    asm("xorb %1, %b0" : "+q"(hash) : "m"(*byte));
#else
    hash ^= static_cast<unsigned char>(*byte);
#endif
    return hash * 16777619;
}

// FNV-1a. Eight bytes a turn leave the processor room to begin with the next name while this one's
// entry is on its way from memory.
static inline uint64_t hash_text(const char *text, size_t len) {
    enum { TURN = 8 };
    uint64_t hash = 2166136261;
    const char *const end = text + len;
    for (; end - text >= TURN; text += TURN) {
        for (int i = 0; i < TURN; i++) {
            hash = hash_byte(hash, text + i);
        }
    }
    for (; text != end; text++) {
        hash = hash_byte(hash, text);
    }
    return hash;
}

int vxlb_get_hash_index_ex(const char *str, int len, int size, int prime) {
    if (str == nullptr || len < 1 || size < 1 || prime < 1) {
        return -1;
    }
    return static_cast<int>(hash_text(str, strlen(str)) % static_cast<uint64_t>(prime));
}

__extension__ typedef unsigned __int128 uint128;

// What takes the place of a division by a prime. A thread mostly works with one table at a time.
typedef struct Divisor {
    uint64_t prime;
    uint64_t reciprocal;
} Divisor;

static __thread Divisor last_divisor;

// hash % prime by multiplication; the quotient may be one too small.
static inline uint64_t remainder_of(uint64_t hash, uint64_t prime) {
    Divisor *const divisor = &last_divisor;
    if (divisor->prime != prime) {
        *divisor = {prime, UINT64_MAX / prime};
    }
    // cppcheck-suppress shiftTooManyBits // 128 bits wide
    const uint64_t quotient = static_cast<uint64_t>((uint128{hash} * divisor->reciprocal) >> 64);
    const uint64_t rest = hash - quotient * prime;
    return rest >= prime ? rest - prime : rest;
}

static inline Name name_of(const NormObjKey *key, const char *text, int len) {
    if (len < 1 || key->size < 1 || key->prime < 1) {
        return {text, len, -1, 0};
    }
    const size_t text_len = strlen(text);
    const uint64_t hash = hash_text(text, text_len);
    const int bucket = static_cast<int>(remainder_of(hash, static_cast<uint64_t>(key->prime)));
    return {text, len, bucket,
            text_len == static_cast<size_t>(len) ? static_cast<uint32_t>(hash) | 1 : 0};
}

// Names of different marks differ; that is asked first, since it is mostly so, while the lengths of
// names are a toss-up for the processor. Where one has no mark, the shorter of text and length
// decides.
static inline bool is_named(const NormObjKey *key, const NormTable *entry, const Name *name) {
    const bool are_marked = entry->mark != 0 && name->mark != 0;
    if ((entry->mark != name->mark && are_marked) || entry->len != name->len) {
        return false;
    }
    const char *const stored = key->bigbuf.buffer + entry->str;
    const size_t len = static_cast<size_t>(name->len);
    return are_marked ? memcmp(stored, name->text, len) == 0
                      : strncmp(stored, name->text, len) == 0;
}

// The pool's links mean nothing in a head. They keep the third and the fourth entry of the bucket, to
// be fetched while the second is still on its way: a long walk waits for memory about half as often.
// It is a hint and no more. Deletes leave other slots of the pool there.
static inline void note_for_fetching(NormTable *head, NormTable *entry, int depth) {
    if (depth == 2) {
        head->prev = entry;
    }
    if (depth == 2 || depth == 3) {
        head->next = entry;
    }
}

static inline void fetch_noted(const NormTable *head) {
    if (head->prev != nullptr && head->next != nullptr) {
        __builtin_prefetch(&head->prev->len);
        __builtin_prefetch(&head->next->len);
    }
}

// Walk the bucket of a name, whose hash is valid.
static inline Place find(const NormObjKey *key, const Name *name) {
    Place place = {nullptr, nullptr, 0};
    NormTable *entry = &key->nt[name->hash];
    if (entry->str == EMPTY) {
        return place;
    }
    fetch_noted(entry);
    for (; entry != nullptr; entry = entry->nt_next) {
        if (is_named(key, entry, name)) {
            place.found = entry;
            return place;
        }
        place.last = entry;
        place.depth++;
    }
    return place;
}

static bool is_bad_name(const char *name, int len) {
    return name == nullptr || name[0] == '\0' || len == 0;
}

// The length of a name whose caller may leave it to be measured.
static int measured(const char *name, int len) {
    return len == 0 && name != nullptr ? static_cast<int>(strlen(name)) : len;
}

static void set_flag(int *flag_new, int value) {
    if (flag_new != nullptr) {
        *flag_new = value;
    }
}

// Store a name where find() did not find it, and say in *flag_new how many entries were before it.
// In line, like generate(): else the name's parts, just written to memory, are read from there as
// one, and the processor waits for them.
[[gnu::always_inline]] static inline NormTable *insert(NormObjKey *key, const Name *name,
                                                       const Place *place, int id, int *flag_new) {
    NormTable *entry = &key->nt[name->hash];
    if (place->last != nullptr) {
        entry = reinterpret_cast<NormTable *>(vxlb_mp_get_slot(key->nt_mpool));
        entry->nt_next = nullptr;
        place->last->nt_next = entry;
        note_for_fetching(&key->nt[name->hash], entry, place->depth);
    }
    entry->str = bigbuf_append(&key->bigbuf, name->text, name->len);
    entry->mark = name->mark;
    entry->len = name->len;
    entry->idx = id;
    set_flag(flag_new, place->last == nullptr ? 1 : place->depth);
    return entry;
}

// Store a name under the next id.
[[gnu::always_inline]] static inline NormTable *generate(NormObjKey *key, const Name *name,
                                                         const Place *place, int *flag_new) {
    key->prev_id = static_cast<int32_t>(static_cast<uint32_t>(key->prev_id) + 1);
    return insert(key, name, place, key->prev_id, flag_new);
}

// Create the pool of chained entries; -1 when it can't have its first chunk.
static int create_pool(NormObjKey *key, const char *function) {
    VXLB_MALLOC(key->nt_mpool, sizeof(vxlb_mp_handler), "Normal Table Memory Pool");
    *key->nt_mpool = {};
    vxlb_mp_init(key->nt_mpool, sizeof(NormTable), VXLB_NORM_ID_POOL_INIT,
                 VXLB_NORM_ID_POOL_INCREMENT, 0);
    if (vxlb_mp_create(key->nt_mpool) == 0) {
        return 0;
    }
    vxlb_debug_log_ex(VXLB_LEVEL_2, VXLB_MOD_MISC, __FILE__, __LINE__, function,
                      "Error: Unable to create NT_MPOOL");
    VXLB_FREE(key->nt_mpool, "Freeing NT_MPOOL", -1);
    key->nt_mpool = nullptr;
    return -1;
}

static void empty_all_heads(NormObjKey *key) {
    for (int i = 0; i < key->size; i++) {
        key->nt[i] = {};
        key->nt[i].str = EMPTY;
    }
}

static int set_up(NormObjKey *key, int size, int big_buf_size, const char *function) {
    vxlb_debug_log_ex(VXLB_LEVEL_2, VXLB_MOD_MISC, __FILE__, __LINE__, function, "Method called");
    if (key == nullptr) {
        return -1;
    }
    *key = {};
    if (size < 1 || size > SIZE_LIMIT) {
        return -1;
    }
    key->size = vxlb_change_to_2_power_n(size);
    key->prime = get_prime(key->size);
    key->prev_id = -1;
    if (vxlb_bigbuf_init_ex(&key->bigbuf, big_buf_size) != 0) {
        return -1;
    }
    const size_t bytes = static_cast<size_t>(key->size) * sizeof(NormTable);
    VXLB_MALLOC(key->nt, bytes, "NormalTableInit");
    vxlb_use_large_pages(key->nt, bytes);
    empty_all_heads(key);
    return create_pool(key, function);
}

int vxlb_init_norm_id_table(NormObjKey *key, int size) {
    return set_up(key, size, BIGBUF_INIT_SIZE, __func__);
}

int vxlb_init_norm_id_table_v2(NormObjKey *key, int size, int big_buf_size) {
    return set_up(key, size, big_buf_size, __func__);
}

static size_t index_bytes(int elements) {
    return static_cast<size_t>(elements) * sizeof(NormTable *);
}

// Bytes of all ones: an element that no id was recorded in.
static void mark_unrecorded(NormTable **elements, int from, int to) {
    if (elements != nullptr) {
        memset(elements + from, 0xff, index_bytes(to - from));
    }
}

int vxlb_init_norm_id_table_ex(NormObjKey *key, int size) {
    if (key == nullptr) {
        return -1;
    }
    vxlb_init_norm_id_table(key, size);
    VXLB_MALLOC(key->id_name, index_bytes(key->size), "NormalTableInit.id_name");
    mark_unrecorded(key->id_name, 0, key->size);
    return 0;
}

void add_pnt_to_idname(NormObjKey *key, int norm_id, NormTable *p_nt) {
    TRACE("Method called, key = %p, norm_id = %d, p_nt = %p, max_norm_id_size = %d",
          static_cast<void *>(key), norm_id, static_cast<void *>(p_nt), key->max_norm_id_size);
    if (norm_id >= key->max_norm_id_size) {
        const int old_size = key->max_norm_id_size;
        key->max_norm_id_size += VXLB_NORM_ID_STEP;
        const size_t bytes = index_bytes(key->max_norm_id_size);
        if (key->id_name == nullptr) {
            VXLB_MALLOC(key->id_name, bytes, "key->id_name");
        } else {
            VXLB_REALLOC(key->id_name, bytes, "key->id_name", index_bytes(old_size), -1);
        }
        mark_unrecorded(key->id_name, old_size, key->max_norm_id_size);
    }
    if (norm_id >= 0 && norm_id < key->max_norm_id_size) {
        key->id_name[norm_id] = p_nt;
    }
}

// Bad input as an unsigned id.
static const unsigned int NO_ID = static_cast<unsigned int>(VXLB_NORM_ID_BAD_INPUT);

static unsigned int id_of(const NormTable *entry) {
    return static_cast<unsigned int>(entry->idx);
}

#define TRACE_NAME()                                                                               \
    TRACE("Method called key = %p, in_str = %s in_strlen = %d ", static_cast<void *>(key), in_str, \
          in_strlen)

// What the adding operations begin with. True when the name is absent and can be added; otherwise
// *id is the answer: bad input, no_table for a table or length that is not valid, or the name's id.
static inline bool is_absent(NormObjKey *key, const char *in_str, int in_strlen,
                             unsigned int no_table, Name *name, Place *place, unsigned int *id) {
    if (is_bad_name(in_str, in_strlen)) {
        *id = NO_ID;
        return false;
    }
    *name = name_of(key, in_str, in_strlen);
    if (name->hash < 0) {
        *id = no_table;
        return false;
    }
    *place = find(key, name);
    if (place->found == nullptr) {
        return true;
    }
    *id = id_of(place->found);
    return false;
}

unsigned int vxlb_get_or_set_norm_id(NormObjKey *key, const char *in_str, int in_strlen,
                                     int *flag_new) {
    TRACE_NAME();
    set_flag(flag_new, 0);
    Name name;
    Place place;
    unsigned int id = 0;
    if (is_absent(key, in_str, in_strlen, 0, &name, &place, &id)) {
        NormTable *const entry = generate(key, &name, &place, flag_new);
        id = id_of(entry);
        if (key->id_name != nullptr) {
            add_pnt_to_idname(key, entry->idx, entry);
        }
    }
    return id;
}

unsigned int vxlb_get_or_gen_norm_id(NormObjKey *key, const char *in_str, int in_strlen,
                                     int *flag_new) {
    TRACE_NAME();
    set_flag(flag_new, 0);
    Name name;
    Place place;
    unsigned int id = 0;
    if (is_absent(key, in_str, measured(in_str, in_strlen), 0, &name, &place, &id)) {
        id = id_of(generate(key, &name, &place, flag_new));
    }
    return id;
}

unsigned int vxlb_get_or_gen_norm_id_ex(NormObjKey *key, const char *in_str, int in_strlen,
                                        int *flag_new, int *hs) {
    TRACE_NAME();
    set_flag(flag_new, 0);
    Name name;
    Place place;
    unsigned int id = 0;
    if (is_absent(key, in_str, in_strlen, NO_ID, &name, &place, &id)) {
        id = id_of(generate(key, &name, &place, flag_new));
        if (hs != nullptr && place.last == nullptr) {
            *hs = name.hash;
        }
    }
    return id;
}

unsigned int vxlb_get_set_or_gen_norm_id(NormObjKey *key, const char *in_str, int in_strlen,
                                         int *flag_new, int normid) {
    TRACE_NAME();
    set_flag(flag_new, 0);
    in_strlen = measured(in_str, in_strlen);
    Name name;
    Place place;
    unsigned int id = 0;
    if (!is_absent(key, in_str, in_strlen, 0, &name, &place, &id)) {
        return id;
    }
    if (normid == -1) {
        return id_of(generate(key, &name, &place, flag_new));
    }
    set_flag(flag_new, 1);
    return vxlb_set_norm_id(key, in_str, in_strlen, normid);
}

// Take the oldest freed id off the queue, which is not empty.
static int pop_free_id(NormObjKey *key) {
    FreeNormIdList *const oldest = key->free_norm_id_list_head;
    const int id = oldest->free_id;
    key->free_norm_id_list_head = oldest->next_free_id;
    if (key->free_norm_id_list_head == nullptr) {
        key->free_norm_id_list_tail = nullptr;
    }
    free(oldest);
    return id;
}

unsigned int vxlb_get_set_or_gen_norm_id_ex(NormObjKey *key, const char *in_str, int in_strlen,
                                            int *flag_new) {
    TRACE_NAME();
    set_flag(flag_new, 0);
    in_strlen = measured(in_str, in_strlen);
    Name name;
    Place place;
    unsigned int id = 0;
    if (!is_absent(key, in_str, in_strlen, 0, &name, &place, &id)) {
        return id;
    }
    if (key->free_norm_id_list_head == nullptr) {
        return id_of(generate(key, &name, &place, flag_new));
    }
    set_flag(flag_new, place.last == nullptr ? 1 : place.depth);
    return vxlb_set_norm_id(key, in_str, in_strlen, pop_free_id(key));
}

unsigned int vxlb_set_norm_id(NormObjKey *key, const char *in_str, int in_strlen, int normid) {
    return vxlb_set_norm_id_and_data(key, in_str, in_strlen, normid, 0);
}

unsigned int vxlb_set_norm_id_and_data(NormObjKey *key, const char *in_str, int in_strlen,
                                       int normid, char data) {
    NormTableData datum;
    datum.val_long = 0;
    datum.val_int = static_cast<int>(data); // NOLINT(bugprone-signed-char-misuse): sign and all
    return vxlb_set_norm_id_and_data_ex(key, in_str, in_strlen, normid, datum);
}

unsigned int vxlb_set_norm_id_and_data_ex(NormObjKey *key, const char *in_str, int in_strlen,
                                          int normid, NormTableData data) {
    TRACE_NAME();
    in_strlen = measured(in_str, in_strlen);
    if (is_bad_name(in_str, in_strlen)) {
        return 0;
    }
    const Name name = name_of(key, in_str, in_strlen);
    if (name.hash < 0) {
        fprintf(stderr,
                "Error: Obtained hash index '%d' for string '%s' is not correct. Hence returning.",
                name.hash, in_str);
        return 0;
    }
    const Place place = find(key, &name);
    if (place.found != nullptr) {
        return id_of(place.found);
    }
    NormTable *const entry = insert(key, &name, &place, normid, nullptr);
    entry->data =
        vxlb_bigbuf_copy_into_bigbuf(&key->bigbuf, reinterpret_cast<char *>(&data), sizeof(data));
    vxlb_set_start_norm_id(key, normid);
    return id_of(entry);
}

void vxlb_set_start_norm_id(NormObjKey *key, int start_normid) {
    if (start_normid > key->prev_id) {
        key->prev_id = start_normid;
    }
}

int vxlb_get_norm_id(NormObjKey *key, const char *in_str, int in_strlen) {
    if (is_bad_name(in_str, in_strlen)) {
        return VXLB_NORM_ID_BAD_INPUT;
    }
    const Name name = name_of(key, in_str, in_strlen);
    const NormTable *const entry = name.hash < 0 ? nullptr : find(key, &name).found;
    return entry != nullptr ? entry->idx : VXLB_NORM_ID_ABSENT;
}

// The datum of an entry (may be null), all zero when there is none.
static NormTableData datum_of(const NormObjKey *key, const NormTable *entry) {
    NormTableData data;
    data.val_long = 0;
    if (entry != nullptr && entry->data > 0) {
        memcpy(&data, key->bigbuf.buffer + entry->data, sizeof(data));
    }
    return data;
}

int vxlb_get_norm_id_hash_data_ex(NormObjKey *key, const char *in_str, int in_strlen, int *hs,
                                  NormTableData *data) {
    if (is_bad_name(in_str, in_strlen)) {
        return VXLB_NORM_ID_BAD_INPUT;
    }
    const Name name = name_of(key, in_str, in_strlen);
    if (name.hash < 0) {
        return VXLB_NORM_ID_ABSENT;
    }
    if (hs != nullptr) {
        *hs = name.hash;
    }
    const Place place = find(key, &name);
    const bool is_other = place.found == nullptr && place.last != nullptr;
    if (data != nullptr && !is_other) {
        *data = datum_of(key, place.found);
    }
    return place.found != nullptr ? place.found->idx : VXLB_NORM_ID_ABSENT;
}

int vxlb_get_norm_id_hash_data(NormObjKey *key, const char *in_str, int in_strlen, int *hs,
                               int *value) {
    NormTableData data;
    data.val_long = 0;
    data.val_int = value != nullptr ? *value : 0;
    const int id = vxlb_get_norm_id_hash_data_ex(key, in_str, in_strlen, hs, &data);
    if (value != nullptr) {
        *value = data.val_int;
    }
    return id;
}

// The recorded entry of an id; null when there is none, or when it has become an empty head.
static const NormTable *recorded(const NormObjKey *key, int norm_id) {
    if (norm_id >= key->max_norm_id_size) {
        return nullptr;
    }
    const NormTable *const entry = key->id_name[norm_id];
    const bool is_marked = reinterpret_cast<uintptr_t>(entry) == UINTPTR_MAX;
    return entry == nullptr || is_marked || entry->str == EMPTY ? nullptr : entry;
}

char *vxlb_get_norm_table_data(NormObjKey *key, int norm_id) {
    TRACE("Method called key = %p, norm_id = %d", static_cast<void *>(key), norm_id);
    if (key == nullptr || norm_id < 0) {
        return const_cast<char *>("InvalidInput"); // not to be written to
    }
    const NormTable *const entry = recorded(key, norm_id);
    if (entry == nullptr) {
        return const_cast<char *>("NormIdNameNotFound");
    }
    char *const name = key->bigbuf.buffer + entry->str;
    TRACE("index = %d, norm_id = %d, key->prev_id = %d, nt->str = %ld, "
          "key->id_name[norm_id - key->prev_id] = %p, name = %s\n",
          norm_id, norm_id, key->prev_id, static_cast<long>(entry->str),
          static_cast<const void *>(entry), name);
    return name;
}

// Plain malloc, not VXLB_MALLOC: the allocation map deletes names, and a tracked allocation here
// would come back to it.
void vxlb_add_id_in_free_list(NormObjKey *key, int data) {
    FreeNormIdList *const newest = static_cast<FreeNormIdList *>(malloc(sizeof(FreeNormIdList)));
    if (newest == nullptr) {
        return;
    }
    *newest = {data, nullptr};
    if (key->free_norm_id_list_head == nullptr) {
        key->free_norm_id_list_head = newest;
    } else {
        key->free_norm_id_list_tail->next_free_id = newest;
    }
    key->free_norm_id_list_tail = newest;
}

// Take an entry out of its bucket. `last` is the one before it, null for the head. A head that has a
// successor takes the successor's place in everything, the slot header included.
static void remove_entry(NormObjKey *key, NormTable *entry, NormTable *last) {
    NormTable *slot = entry;
    if (last != nullptr) {
        last->nt_next = entry->nt_next;
    } else if (entry->nt_next != nullptr) {
        slot = entry->nt_next;
        *entry = *slot;
    } else {
        entry->str = EMPTY;
        entry->len = -1;
        entry->idx = -1;
        return;
    }
    vxlb_mp_free_slot(key->nt_mpool, slot);
}

int vxlb_delete_norm_id_ex(NormObjKey *key, const char *in_str, int in_strlen, int *norm_id) {
    in_strlen = measured(in_str, in_strlen);
    if (is_bad_name(in_str, in_strlen)) {
        return -1;
    }
    const Name name = name_of(key, in_str, in_strlen);
    const Place place = name.hash < 0 ? Place{} : find(key, &name);
    if (place.found == nullptr) {
        return -1;
    }
    vxlb_add_id_in_free_list(key, place.found->idx);
    if (norm_id != nullptr) {
        *norm_id = place.found->idx;
    }
    remove_entry(key, place.found, place.last);
    return 0;
}

int vxlb_delete_norm_id(NormObjKey *key, int hash) {
    if (hash < 0 || hash >= key->size || key->nt[hash].str == EMPTY) {
        return -1;
    }
    NormTable *const head = &key->nt[hash];
    head->str = EMPTY;
    head->idx = -1;
    head->len = -1;
    head->data = -1;
    return 0;
}

// Release the queue of freed ids node by node.
static void release_free_ids(NormObjKey *key, const char *label) {
    FreeNormIdList *id = key->free_norm_id_list_head;
    while (id != nullptr) {
        FreeNormIdList *const next = id->next_free_id;
        VXLB_FREE(id, label, -1);
        id = next;
    }
    key->free_norm_id_list_head = nullptr;
    key->free_norm_id_list_tail = nullptr;
}

int vxlb_obj_hash_reset(NormObjKey *key) {
    TRACE("Method called, key = %p", static_cast<void *>(key));
    if (key->nt_mpool != nullptr) {
        vxlb_mp_free_all_slots(key->nt_mpool);
    }
    empty_all_heads(key);
    for (int id = 0; id < key->max_norm_id_size; id++) {
        key->id_name[id] = nullptr;
    }
    key->prev_id = -1;
    key->bigbuf.offset = 0;
    release_free_ids(key, "free_norm_id_list");
    return 0;
}

int vxlb_obj_hash_destroy(NormObjKey *key) {
    TRACE("Method called");
    if (key->nt_mpool != nullptr) {
        vxlb_mp_destroy(key->nt_mpool);
        VXLB_FREE(key->nt_mpool, "Memory pool", -1);
        key->nt_mpool = nullptr;
    }
    vxlb_bigbuf_free(&key->bigbuf);
    VXLB_FREE(key->nt, "Normalization table creation", -1);
    key->nt = nullptr;
    release_free_ids(key, "free_tmp");
    TRACE("Method exiting");
    return 0;
}
