// SPDX-License-Identifier: Apache-2.0
#include <libvxcore/vxlb_alloc.h>

__thread int32_t mem_map_entry_max;

#define TRACE(level, ...) \
    vxlb_debug_log_ex(level, VXLB_MOD_MEMORY, __FILE__, __LINE__, __func__, __VA_ARGS__)

int vxlb_mem_map_add(void *address, size_t size, const char *msg, const char *, int, const char *) {
    TRACE(VXLB_LEVEL_3, "Method called, address = %p, size = %ld, message = %s", address,
          static_cast<long>(size), msg);
    TRACE(VXLB_LEVEL_3, "Memory map is not initialized");
    return -1;
}

int vxlb_mem_map_remove(void *address) {
    TRACE(VXLB_LEVEL_3, "Method called, address = %p", address);
    TRACE(VXLB_LEVEL_3, "Memory map is not initialized");
    return -1;
}
