// SPDX-License-Identifier: Apache-2.0
#include "trace_log.h"

#include <libvxcore/vxlb_mem_map.h>

#include <functional>
#include <map>
#include <random>
#include <set>
#include <thread>

namespace {

const std::string HEADER =
    "AbsoluteTimeStamp|Address|Size|FileName|LineNo|FunctionName|Message!!\n";

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

std::multiset<std::string> lines_of(const std::string &all) {
    std::istringstream in(all);
    std::multiset<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        lines.insert(line);
    }
    return lines;
}

// The lines of the dump behind its header.
std::multiset<std::string> dumped() {
    TempDir dir;
    const std::string path = dir / "dump";
    std::ofstream(path) << "older and longer than anything that follows";
    EXPECT_EQ(0, vxlb_mem_map_dump(path.c_str()));
    std::string all = undated(file_text(path));
    EXPECT_TRUE(all.starts_with(HEADER)) << all;
    return lines_of(all.erase(0, HEADER.size()));
}

// Calls that are refused whether the map is on or off.
void call_for_nothing() {
    EXPECT_EQ(-1, vxlb_mem_map_add(nullptr, 5, "m", nullptr, 1, nullptr));
    EXPECT_EQ(-1, vxlb_mem_map_remove(nullptr));
    EXPECT_EQ(-1, vxlb_mem_map_remove(address(3)));
    EXPECT_EQ(-1, vxlb_mem_map_dump(nullptr));
    EXPECT_EQ(-1, vxlb_mem_map_dump(""));
    EXPECT_EQ(-1, vxlb_mem_map_dump("/nowhere/dump"));
}

} // namespace

TEST(VxlbMemMap, RefusesEverythingWhileOff) {
    TraceLog log(VXLB_MOD_MEMORY, VXLB_LEVEL_1 | VXLB_LEVEL_3);
    call_for_nothing();
    vxlb_mem_map_create_entry(3);
    EXPECT_EQ(-1, vxlb_mem_map_free());
    const std::string all = log.take();
    EXPECT_EQ(4u, lines_of(all).count("Memory map is not initialized"));
    EXPECT_TRUE(all.ends_with("\nMethod called\nMethod Called\nMemory Map not intialized\n"));
}

TEST(VxlbMemMap, FillsAndClearsEntries) {
    TraceLog log(VXLB_MOD_MEMORY, VXLB_LEVEL_1 | VXLB_LEVEL_3);
    with_map([&] {
        const std::string init = log.take();
        EXPECT_TRUE(init.starts_with("Method Called, mem_map_entry_max = 0, sizeof(ZylMemoryMap)"));
        EXPECT_TRUE(init.ends_with("\nmem_map_entry_max = 10240\n"));
        EXPECT_EQ(-1, vxlb_mem_map_init());
        EXPECT_EQ("10240 0 16384",
                  text("%d %d %d", mem_map_entry_max, mem_map_max_norm_id, mem_map_norm_tbl.size));
        std::thread([] { EXPECT_EQ(0, mem_map_entry_max); }).join();
        call_for_nothing();
        EXPECT_EQ(-1, add(3, 5, nullptr));
        EXPECT_EQ(-1, add(3, 5, ""));
        EXPECT_EQ(0, add(0, 100));
        const ZylMemoryMap *const entry = &zyl_mem_map[0];
        const auto fields = [&] {
            return text("%p %zu %s %s", entry->address, entry->size, entry->message,
                        undated(entry->timestamp).c_str());
        };
        EXPECT_EQ("0x1000 100 f.c|7|fn|label DATE", fields());
        EXPECT_EQ(0, add(0, 9));
        EXPECT_EQ(0, add(1, 5));
        EXPECT_EQ(0, vxlb_mem_map_remove(address(0)));
        EXPECT_EQ("(nil) 0  ", fields());
        EXPECT_EQ(-1, vxlb_mem_map_remove(address(0)));
        EXPECT_EQ(R"(Method Called, mem_map_entry_max = 10240, sizeof(ZylMemoryMap) = 304
Memory Map already intialized
Method called, address = (nil), size = 5, message = m
Memory map - address or msg is NULL
Method called, address = (nil)
Memory map - address is NULL
Method called, address = @
Memory @ is not found in map
Method Called, fname = (null), header_buf = @
Memory dump file is NULL
Method Called, fname = , header_buf = @
Memory dump file is NULL
Method Called, fname = /nowhere/dump, header_buf = @
Error in opening the file '/nowhere/dump'
Method called, address = @, size = 5, message = (null)
Memory map - address or msg is NULL
Method called, address = @, size = 5, message =_
Memory map - address or msg is NULL
Method called, address = A, size = 100, message = label
Method called
mem_map_max_norm_id = 0
Entry added timestamp = DATE, address = A, size = 100, message = f.c|7|fn|label
Method called, address = A, size = 9, message = label
Error: Timestamp = DATE, Address = A, size = 100, message = f.c|7|fn|label, )"
                  R"(already exists in map so overwriting.
Entry added timestamp = DATE, address = A, size = 9, message = f.c|7|fn|label
Method called, address = B, size = 5, message = label
Method called
mem_map_max_norm_id = 1
Entry added timestamp = DATE, address = B, size = 5, message = f.c|7|fn|label
Method called, address = A
Deleted normid = 0
Method called, address = A
Memory A is not found in map
)",
                  replaced(log.take({{address(0), "A"}, {address(1), "B"}}),
                           replaced(HEADER, "[|]", "."), "@"));
        EXPECT_EQ(0, add(0, 5, std::string(400, 'm').c_str()));
        EXPECT_EQ("f.c|7|fn|" + std::string(255 - 9, 'm'), zyl_mem_map[2].message);
        EXPECT_EQ(2, mem_map_max_norm_id) << "an id is not used again";
        log.take();
    });
    EXPECT_TRUE(log.take().starts_with("Method Called\n"));
}

TEST(VxlbMemMap, GrowsByTenEntriesAndRecordsItsOwnArray) {
    TraceLog log(VXLB_MOD_MEMORY, 0);
    with_map([&] {
        for (size_t i = 0; i < 10240; i++) {
            add(i, i + 1);
        }
        EXPECT_EQ(10240, mem_map_entry_max);
        vxlb_util_set_debug_log_level(VXLB_LEVEL_2);
        add(10240, 7);
        EXPECT_EQ(0u, log.take().find("buf = @, size = 3116000, old_size = 3112960, exit = 1\n"));
        // The grown array took the next entry, and its report was wiped.
        EXPECT_EQ("10250 10241 10240 7 0 0",
                  text("%d %d %zu %zu %zu %zu", mem_map_entry_max, mem_map_max_norm_id,
                       zyl_mem_map[10239].size, zyl_mem_map[10240].size, zyl_mem_map[10241].size,
                       zyl_mem_map[10249].size));
        for (size_t i = 10241; i < 10300; i++) {
            EXPECT_EQ(0, add(i, 7));
        }
        EXPECT_EQ(10310, mem_map_entry_max);
        EXPECT_EQ(10299u, dumped().size()) << "all but the last block and the map's arrays";
    });
}

// Everything that allocates through the wrappers, with the map on and everything traced.
TEST(VxlbMemMap, RecordsWhatTheLibraryAllocates) {
    TraceLog log;
    with_map([] {
        NormObjKey table;
        vxlb_init_norm_id_table_v2(&table, 16, 10);
        for (int i = 0; i < 500; i++) {
            const std::string name = text("a name that is rather long %d", i);
            vxlb_get_or_set_norm_id(&table, name.c_str(), static_cast<int>(name.size()), nullptr);
        }
        char *last = nullptr;
        VXLB_MALLOC(last, 1, "last");
        std::multiset<std::string> expected, lines;
        for (const auto &[block, size] :
             {std::pair<void *, size_t>{table.bigbuf.buffer, table.bigbuf.bufsize},
              {table.nt, 16 * sizeof(NormTable)},
              {table.nt_mpool, sizeof(vxlb_mp_handler)}}) {
            expected.insert(text("DATE|%p|%zu|core", block, size));
        }
        for (const std::string &line : dumped()) {
            lines.insert(replaced(line, "[^|]*core/base.*", "core"));
        }
        EXPECT_EQ(expected, lines);
        vxlb_obj_hash_destroy(&table);
        EXPECT_EQ(0u, dumped().size());
        VXLB_FREE(last, "last", -1);
    });
}

TEST(VxlbMemMap, BehavesAsAMapTwice) {
    std::mt19937 random(5);
    for (int round = 0; round < 2; round++) {
        with_map([&] {
            EXPECT_EQ(0, mem_map_max_norm_id) << "a second map starts clean";
            std::map<size_t, size_t> live;
            for (size_t step = 1; step <= 3000; step++) {
                const size_t n = random() % 50;
                if (random() % 2 == 0) {
                    EXPECT_EQ(0, add(n, step));
                    live[n] = step;
                } else {
                    EXPECT_EQ(live.erase(n) == 1 ? 0 : -1, vxlb_mem_map_remove(address(n)));
                }
            }
            add(999, 1); // the newest, which the dump leaves out
            std::multiset<std::string> expected;
            for (const auto &[n, size] : live) {
                expected.insert(text("DATE|%p|%zu|f.c|7|fn|label", address(n), size));
            }
            EXPECT_EQ(expected, dumped());
        });
    }
}
