// SPDX-License-Identifier: Apache-2.0
// The map is compared with a model in fuzz_alloc; here are its traces, its growth and its guard.
#include "trace_log.h"

#include <libvxcore/vxlb_mem_map.h>

#include <functional>
#include <thread>

namespace {

// Each test has a map of its own, in a thread of its own.
void with_map(const std::function<void()> &body) {
    std::thread([&] {
        EXPECT_EQ(0, vxlb_mem_map_init());
        body();
        EXPECT_EQ(0, vxlb_mem_map_free());
    }).join();
}

void *address(size_t n) {
    return reinterpret_cast<void *>(0x1000 + 16 * n);
}

int add(size_t n, size_t size, const char *label = "label") {
    return vxlb_mem_map_add(address(n), size, label, "f.c", 7, "fn");
}

// Calls that are refused whether the map is on or off.
void call_for_nothing() {
    EXPECT_EQ(-1, vxlb_mem_map_add(nullptr, 5, "m", nullptr, 1, nullptr));
    EXPECT_EQ(-1, add(3, 5, nullptr));
    EXPECT_EQ(-1, add(3, 5, ""));
    EXPECT_EQ(-1, vxlb_mem_map_remove(nullptr));
    EXPECT_EQ(-1, vxlb_mem_map_remove(address(3)));
    EXPECT_EQ(-1, vxlb_mem_map_dump("/nowhere/dump"));
}

} // namespace

TEST(VxlbMemMap, RefusesEverythingWhileOff) {
    TraceLog log(VXLB_MOD_MEMORY, VXLB_LEVEL_1 | VXLB_LEVEL_3);
    EXPECT_EQ(-1, vxlb_mem_map_dump(nullptr));
    EXPECT_EQ(-1, vxlb_mem_map_dump(""));
    call_for_nothing();
    vxlb_mem_map_create_entry(3);
    EXPECT_EQ(-1, vxlb_mem_map_free());
    const std::string off = "Memory map is not initialized\n";
    EXPECT_EQ("Memory dump file is NULL\nMemory dump file is NULL\n" + off + off + off + off + off +
                  off + "Memory Map not intialized\n",
              replaced(log.take(), "(Method|Absolute)[^\n]*\n+", ""));
}

TEST(VxlbMemMap, FillsAndClearsEntries) {
    TraceLog log(VXLB_MOD_MEMORY, VXLB_LEVEL_1 | VXLB_LEVEL_3);
    with_map([&] {
        EXPECT_TRUE(log.take().ends_with("\nmem_map_entry_max = 10240\n"));
        EXPECT_EQ(-1, vxlb_mem_map_init());
        std::thread([] { EXPECT_EQ(0, mem_map_entry_max); }).join();
        call_for_nothing();
        add(0, 100);
        add(0, 9);
        EXPECT_EQ(0, vxlb_mem_map_remove(address(0)));
        const ZylMemoryMap &entry = zyl_mem_map[0];
        EXPECT_EQ("(nil) 0  ",
                  text("%p %zu %s %s", entry.address, entry.size, entry.message, entry.timestamp));
        EXPECT_EQ(R"(Method Called, mem_map_entry_max = 10240, sizeof(ZylMemoryMap) = 304
Memory Map already intialized
Method called, address = (nil), size = 5, message = m
Memory map - address or msg is NULL
Method called, address = @, size = 5, message = (null)
Memory map - address or msg is NULL
Method called, address = @, size = 5, message =_
Memory map - address or msg is NULL
Method called, address = (nil)
Memory map - address is NULL
Method called, address = @
Memory @ is not found in map
Method Called, fname = /nowhere/dump, header_buf = AbsoluteTimeStamp|Address|Size|)"
                  R"(FileName|LineNo|FunctionName|Message!!

Error in opening the file '/nowhere/dump'
Method called, address = A, size = 100, message = label
Method called
mem_map_max_norm_id = 0
Entry added timestamp = DATE, address = A, size = 100, message = f.c|7|fn|label
Method called, address = A, size = 9, message = label
Error: Timestamp = DATE, Address = A, size = 100, message = f.c|7|fn|label, )"
                  R"(already exists in map so overwriting.
Entry added timestamp = DATE, address = A, size = 9, message = f.c|7|fn|label
Method called, address = A
Deleted normid = 0
)",
                  log.take({{address(0), "A"}}));
    });
    EXPECT_TRUE(log.take().starts_with("Method Called\n"));
}

TEST(VxlbMemMap, GrowsByTenEntriesAndRecordsItsOwnArray) {
    TraceLog log(VXLB_MOD_MEMORY, 0);
    with_map([&] {
        for (size_t i = 0; i < 10240; i++) {
            add(i, i + 1);
        }
        vxlb_util_set_debug_log_level(VXLB_LEVEL_2);
        add(10240, 7);
        EXPECT_EQ(0u, log.take().find("buf = @, size = 3116000, old_size = 3112960, exit = 1\n"));
        // The grown array took the next entry, and its report was wiped.
        EXPECT_EQ("10250 10241 10240 7 0 0",
                  text("%d %d %zu %zu %zu %zu", mem_map_entry_max, mem_map_max_norm_id,
                       zyl_mem_map[10239].size, zyl_mem_map[10240].size, zyl_mem_map[10241].size,
                       zyl_mem_map[10249].size));
        mem_map_norm_tbl.bigbuf.offset = mem_map_norm_tbl.bigbuf.bufsize; // so that it grows, too
        add(10241, 5);
        EXPECT_EQ("10242 5", text("%d %zu", mem_map_max_norm_id, zyl_mem_map[10242].size));
    });
}

// With the map on and everything traced, from allocations that come back to the map.
TEST(VxlbMemMap, RecordsWhatTheLibraryAllocates) {
    TraceLog log;
    with_map([] {
        NormObjKey table;
        vxlb_init_norm_id_table_v2(&table, 16, 10);
        EXPECT_EQ(table.nt, zyl_mem_map[1].address);
        vxlb_bigbuf_realloc(&table.bigbuf);
        EXPECT_EQ(10250u, zyl_mem_map[3].size + zyl_mem_map[0].size);
        vxlb_obj_hash_destroy(&table);
        EXPECT_EQ(0u, zyl_mem_map[1].size + zyl_mem_map[3].size);
    });
}
