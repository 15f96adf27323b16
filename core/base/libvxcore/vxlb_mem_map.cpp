// SPDX-License-Identifier: Apache-2.0
// The map stands on the very wrappers that report to it. Two things keep it from recording itself
// for ever: its capacity is 0, which refuses every report, while it is inside the table of
// addresses; and the wrappers store a resized array in zyl_mem_map before they report it.
//
// The array is the one block of the map's own that is reported: when it grows, the report of the new
// array comes back here in the middle of vxlb_mem_map_add and takes the next entry. That entry lies
// in the range that is zeroed right afterwards, so it does not show.
#include <libvxcore/vxlb_mem_map.h>
#include <libvxcore/vxlb_util.h>

#include <cstdio>
#include <cstring>

enum { ADDRESS_TEXT_SIZE = 128 };

__thread ZylMemoryMap *zyl_mem_map;
__thread int32_t mem_map_max_norm_id;
__thread NormObjKey mem_map_norm_tbl;

#define TRACE(level, ...) \
    vxlb_debug_log_ex(level, VXLB_MOD_MEMORY, __FILE__, __LINE__, __func__, __VA_ARGS__)

static size_t map_bytes(int32_t entries) {
    return static_cast<size_t>(entries) * sizeof(ZylMemoryMap);
}

// The text under which an address is known; returns its length.
static int write_address(char (&text)[ADDRESS_TEXT_SIZE], const void *address) {
    return snprintf(text, sizeof(text), "%p", address);
}

int vxlb_mem_map_init(void) {
    TRACE(VXLB_LEVEL_1, "Method Called, mem_map_entry_max = %d, sizeof(ZylMemoryMap) = %d",
          mem_map_entry_max, static_cast<int>(sizeof(ZylMemoryMap)));
    if (mem_map_entry_max != 0) {
        TRACE(VXLB_LEVEL_3, "Memory Map already intialized");
        return -1;
    }
    vxlb_init_norm_id_table(&mem_map_norm_tbl, VXLB_MEM_MAP_ENTRIES);
    VXLB_MALLOC(zyl_mem_map, map_bytes(VXLB_MEM_MAP_ENTRIES), "ZylMemoryMap");
    mem_map_entry_max = VXLB_MEM_MAP_ENTRIES;
    TRACE(VXLB_LEVEL_3, "mem_map_entry_max = %d", mem_map_entry_max);
    return 0;
}

// The table's id for an address, with the map refusing what the table allocates meanwhile.
static int id_for(const void *address, int *is_new) {
    char text[ADDRESS_TEXT_SIZE];
    const int len = write_address(text, address);
    const int32_t saved = mem_map_entry_max;
    mem_map_entry_max = 0;
    const unsigned int id = vxlb_get_or_set_norm_id(&mem_map_norm_tbl, text, len, is_new);
    mem_map_entry_max = saved;
    return static_cast<int>(id);
}

void vxlb_mem_map_create_entry(int norm_id) {
    TRACE(VXLB_LEVEL_3, "Method called");
    if (mem_map_entry_max == 0) {
        return;
    }
    if (norm_id >= mem_map_entry_max) {
        const int32_t old_max = mem_map_entry_max;
        mem_map_entry_max += VXLB_MEM_MAP_STEP;
        const int32_t new_max = mem_map_entry_max;
        VXLB_REALLOC(zyl_mem_map, map_bytes(new_max), "vxlb_mem_map_create_entry",
                     map_bytes(old_max), -1);
        memset(zyl_mem_map + old_max, 0, map_bytes(new_max - old_max));
    }
    if (norm_id > mem_map_max_norm_id) {
        mem_map_max_norm_id = norm_id;
    }
    TRACE(VXLB_LEVEL_3, "mem_map_max_norm_id = %d", mem_map_max_norm_id);
}

static void fill_entry(ZylMemoryMap *entry, void *address, size_t size, const char *message) {
    char date[VXLB_DATE_TIME_SIZE];
    entry->address = address;
    entry->size = size;
    snprintf(entry->message, sizeof(entry->message), "%s", message);
    snprintf(entry->timestamp, sizeof(entry->timestamp), "%s", vxlb_get_cur_date_time(date, 1));
}

int vxlb_mem_map_add(void *address, size_t size, const char *msg, const char *file, int line,
                     const char *func) {
    TRACE(VXLB_LEVEL_3, "Method called, address = %p, size = %ld, message = %s", address,
          static_cast<long>(size), msg);
    if (mem_map_entry_max == 0) {
        TRACE(VXLB_LEVEL_3, "Memory map is not initialized");
        return -1;
    }
    if (address == nullptr || msg == nullptr || msg[0] == '\0') {
        TRACE(VXLB_LEVEL_3, "Memory map - address or msg is NULL");
        return -1;
    }
    int is_new = 0;
    const int id = id_for(address, &is_new);
    if (is_new == 0) {
        const ZylMemoryMap *const old = &zyl_mem_map[id];
        TRACE(VXLB_LEVEL_3,
              "Error: Timestamp = %s, Address = %p, size = %ld, message = %s, already exists in "
              "map so overwriting.",
              old->timestamp, old->address, static_cast<long>(old->size), old->message);
    } else {
        vxlb_mem_map_create_entry(id);
    }
    ZylMemoryMap *const entry = &zyl_mem_map[id]; // only now: the array may have moved
    char message[VXLB_MEM_MAP_MESSAGE_SIZE];
    snprintf(message, sizeof(message), "%s|%d|%s|%s", file, line, func, msg);
    fill_entry(entry, address, size, message);
    TRACE(VXLB_LEVEL_3, "Entry added timestamp = %s, address = %p, size = %ld, message = %s",
          entry->timestamp, entry->address, static_cast<long>(entry->size), entry->message);
    return 0;
}

int vxlb_mem_map_remove(void *address) {
    TRACE(VXLB_LEVEL_3, "Method called, address = %p", address);
    if (mem_map_entry_max == 0) {
        TRACE(VXLB_LEVEL_3, "Memory map is not initialized");
        return -1;
    }
    if (address == nullptr) {
        TRACE(VXLB_LEVEL_3, "Memory map - address is NULL");
        return -1;
    }
    char text[ADDRESS_TEXT_SIZE];
    const int len = write_address(text, address);
    int id = vxlb_get_norm_id(&mem_map_norm_tbl, text, len);
    if (id < 0) {
        TRACE(VXLB_LEVEL_3, "Memory %p is not found in map", address);
        return -1;
    }
    ZylMemoryMap *const entry = &zyl_mem_map[id];
    entry->size = 0;
    entry->address = nullptr;
    entry->message[0] = '\0';
    entry->timestamp[0] = '\0';
    const int32_t saved = mem_map_entry_max;
    mem_map_entry_max = 0;
    vxlb_delete_norm_id_ex(&mem_map_norm_tbl, text, len, &id);
    mem_map_entry_max = saved;
    TRACE(VXLB_LEVEL_3, "Deleted normid = %d", id);
    return 0;
}

int vxlb_mem_map_dump(const char *fname) {
    static const char header[] =
        "AbsoluteTimeStamp|Address|Size|FileName|LineNo|FunctionName|Message!!\n";
    TRACE(VXLB_LEVEL_3, "Method Called, fname = %s, header_buf = %s", fname, header);
    if (fname == nullptr || fname[0] == '\0') {
        TRACE(VXLB_LEVEL_1, "Memory dump file is NULL");
        return -1;
    }
    if (mem_map_entry_max == 0) {
        TRACE(VXLB_LEVEL_3, "Memory map is not initialized");
        return -1;
    }
    FILE *const file = fopen(fname, "we");
    if (file == nullptr) {
        TRACE(VXLB_LEVEL_3, "Error in opening the file '%s'", fname);
        return -1;
    }
    fputs(header, file);
    for (int id = 0; id < mem_map_max_norm_id; id++) {
        const ZylMemoryMap *const entry = &zyl_mem_map[id];
        if (entry->size != 0) {
            fprintf(file, "%s|%p|%ld|%s\n", entry->timestamp, entry->address,
                    static_cast<long>(entry->size), entry->message);
        }
    }
    fclose(file);
    return 0;
}

int vxlb_mem_map_free(void) {
    TRACE(VXLB_LEVEL_1, "Method Called");
    if (mem_map_entry_max == 0) {
        TRACE(VXLB_LEVEL_3, "Memory Map not intialized");
        return -1;
    }
    // First of all, so that the releases below do not come back to the map.
    mem_map_entry_max = 0;
    mem_map_max_norm_id = 0;
    vxlb_obj_hash_destroy(&mem_map_norm_tbl);
    VXLB_FREE(zyl_mem_map, "ZylMemoryMap", -1);
    return 0;
}
