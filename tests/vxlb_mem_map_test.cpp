// SPDX-License-Identifier: Apache-2.0
#include "trace_log.h"

#include <libvxcore/vxlb_mem_map.h>
#include <libvxcore/vxlb_util.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <thread>

namespace {

using Lines = std::vector<std::string>;

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
    return vxlb_mem_map_add(address(n), size, label, "file.c", 7, "func");
}

Lines dumped() {
    TempDir dir;
    const std::string path = dir / "dump";
    std::ofstream(path) << "older and longer than anything that follows";
    EXPECT_EQ(0, vxlb_mem_map_dump(path.c_str()));
    std::istringstream in(file_text(path));
    Lines lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    EXPECT_EQ("AbsoluteTimeStamp|Address|Size|FileName|LineNo|FunctionName|Message!!", lines.at(0));
    lines.erase(lines.begin());
    return lines;
}

// Without the date, which is 17 characters long.
Lines undated(Lines lines) {
    for (std::string &line : lines) {
        EXPECT_EQ(17u, line.find('|'));
        line.erase(0, 18);
    }
    return lines;
}

} // namespace

TEST(VxlbMemMap, RefusesEverythingWhileOff) {
    TraceLog log(VXLB_MOD_MEMORY, VXLB_LEVEL_1 | VXLB_LEVEL_3);
    EXPECT_EQ(-1, vxlb_mem_map_add(address(0), 5, "m", "f", 1, "g"));
    EXPECT_EQ(-1, vxlb_mem_map_add(nullptr, 5, nullptr, nullptr, 1, nullptr));
    EXPECT_EQ(-1, vxlb_mem_map_remove(address(0)));
    EXPECT_EQ(-1, vxlb_mem_map_free());
    EXPECT_EQ(-1, vxlb_mem_map_dump((log.dir / "d").c_str()));
    vxlb_mem_map_create_entry(3);
    const std::string off = "Memory map is not initialized";
    EXPECT_EQ(
        (Lines{
            "Method called, address = 0x1000, size = 5, message = m", off,
            "Method called, address = (nil), size = 5, message = (null)", off,
            "Method called, address = 0x1000", off, "Method Called", "Memory Map not intialized",
            text(
                "Method Called, fname = %s/d, header_buf = AbsoluteTimeStamp|Address|Size|FileName|LineNo|"
                "FunctionName|Message!!\n",
                log.dir.path.c_str()),
            off, "Method called"}),
        log.take());
    EXPECT_FALSE(std::filesystem::exists(log.dir / "d"));
    EXPECT_EQ(nullptr, zyl_mem_map);
}

TEST(VxlbMemMap, IsSwitchedOnOncePerThread) {
    TraceLog log(VXLB_MOD_MEMORY, VXLB_LEVEL_1 | VXLB_LEVEL_3);
    with_map([&] {
        const Lines first = log.take();
        EXPECT_EQ("Method Called, mem_map_entry_max = 0, sizeof(ZylMemoryMap) = 304",
                  first.front());
        EXPECT_EQ("mem_map_entry_max = 10240", first.back());
        EXPECT_EQ(-1, vxlb_mem_map_init());
        EXPECT_EQ((Lines{"Method Called, mem_map_entry_max = 10240, sizeof(ZylMemoryMap) = 304",
                         "Memory Map already intialized"}),
                  log.take());
        EXPECT_EQ(10240, mem_map_entry_max);
        EXPECT_EQ(0, mem_map_max_norm_id);
        EXPECT_EQ(16384, mem_map_norm_tbl.size);
        std::thread([] {
            EXPECT_EQ(-1, vxlb_mem_map_remove(address(0))) << "off in every other thread";
        }).join();
    });
}

TEST(VxlbMemMap, FillsAndClearsEntries) {
    TraceLog log(VXLB_MOD_MEMORY, VXLB_LEVEL_3);
    with_map([&] {
        log.take();
        EXPECT_EQ(0, add(0, 100));
        const ZylMemoryMap *const entry = &zyl_mem_map[0];
        EXPECT_EQ(address(0), entry->address);
        EXPECT_EQ(100u, entry->size);
        EXPECT_STREQ("file.c|7|func|label", entry->message);
        EXPECT_EQ(17u, strlen(entry->timestamp));
        const std::string date = entry->timestamp;
        const std::string shown =
            "imestamp = " + date + ", address = 0x1000, size = 100, message = file.c|7|func|label";
        EXPECT_EQ((Lines{"Method called, address = 0x1000, size = 100, message = label",
                         "Method called", "mem_map_max_norm_id = 0", "Entry added t" + shown}),
                  log.take());
        EXPECT_EQ(0, add(0, 9, "again"));
        EXPECT_EQ("Error: Timestamp = " + date +
                      ", Address = 0x1000, size = 100, message = file.c|7|func|label, already "
                      "exists in map so overwriting.",
                  log.take().at(1));
        EXPECT_STREQ("file.c|7|func|again", entry->message);
        EXPECT_EQ(0, add(1, 5));
        EXPECT_EQ(1, mem_map_max_norm_id);
        log.take();
        EXPECT_EQ(0, vxlb_mem_map_remove(address(0)));
        EXPECT_EQ((Lines{"Method called, address = 0x1000", "Deleted normid = 0"}), log.take());
        EXPECT_TRUE(entry->address == nullptr && entry->size == 0 && entry->message[0] == 0 &&
                    entry->timestamp[0] == 0);
        EXPECT_EQ(-1, vxlb_mem_map_remove(address(0)));
        EXPECT_EQ((Lines{"Method called, address = 0x1000", "Memory 0x1000 is not found in map"}),
                  log.take());
        EXPECT_EQ(-1, vxlb_mem_map_remove(nullptr));
        EXPECT_EQ("Memory map - address is NULL", log.take().at(1));
        for (const char *label : {static_cast<const char *>(nullptr), ""}) {
            EXPECT_EQ(-1, add(3, 5, label));
            EXPECT_EQ("Memory map - address or msg is NULL", log.take().at(1));
        }
        EXPECT_EQ(-1, vxlb_mem_map_add(nullptr, 5, "m", "f", 1, "g"));
        EXPECT_EQ(0, add(0, 5)) << "an id is not used again";
        EXPECT_EQ(2, mem_map_max_norm_id);
        EXPECT_EQ(10240, mem_map_entry_max);
    });
}

TEST(VxlbMemMap, CutsLongMessages) {
    with_map([] {
        add(0, 1, std::string(400, 'm').c_str());
        EXPECT_EQ("file.c|7|func|" + std::string(255 - 14, 'm'), zyl_mem_map[0].message);
    });
}

TEST(VxlbMemMap, DumpsAllButTheNewestEntry) {
    TraceLog log(VXLB_MOD_MEMORY, VXLB_LEVEL_1 | VXLB_LEVEL_3);
    with_map([&] {
        add(0, 10);
        EXPECT_EQ(Lines{}, dumped());
        add(1, 11, "b");
        add(2, 12, "c");
        add(3, 13, "d");
        vxlb_mem_map_remove(address(1));
        EXPECT_EQ((Lines{"0x1000|10|file.c|7|func|label", "0x1020|12|file.c|7|func|c"}),
                  undated(dumped()));
        log.take();
        EXPECT_EQ(-1, vxlb_mem_map_dump(nullptr));
        EXPECT_EQ(
            (Lines{
                "Method Called, fname = (null), header_buf = AbsoluteTimeStamp|Address|Size|FileName|LineNo|"
                "FunctionName|Message!!\n",
                "Memory dump file is NULL"}),
            log.take());
        EXPECT_EQ(-1, vxlb_mem_map_dump(""));
        EXPECT_EQ("Memory dump file is NULL", log.take().at(1));
        EXPECT_EQ(-1, vxlb_mem_map_dump("/nowhere/dump"));
        EXPECT_EQ("Error in opening the file '/nowhere/dump'", log.take().at(1));
    });
}

TEST(VxlbMemMap, GrowsByTenEntries) {
    TraceLog log(VXLB_MOD_MEMORY, 0);
    with_map([&] {
        for (size_t i = 0; i < 10240; i++) {
            add(i, i + 1);
        }
        EXPECT_EQ(10240, mem_map_entry_max);
        vxlb_util_set_debug_log_level(VXLB_LEVEL_2);
        ZylMemoryMap *const old = zyl_mem_map;
        add(10240, 7);
        EXPECT_EQ(10250, mem_map_entry_max);
        EXPECT_EQ(text("buf = %p, size = %d, old_size = %d, exit = 1", static_cast<void *>(old),
                       10250 * 304, 10240 * 304),
                  log.take().at(0));
        // The grown array took the next entry, and its report was wiped.
        EXPECT_EQ(10241, mem_map_max_norm_id);
        EXPECT_EQ(7u, zyl_mem_map[10240].size);
        for (int i = 10241; i < 10250; i++) {
            EXPECT_EQ(0u, zyl_mem_map[i].size);
        }
        EXPECT_EQ(10240u, zyl_mem_map[10239].size);
        for (size_t i = 10241; i < 10300; i++) {
            EXPECT_EQ(0, add(i, 7));
        }
        EXPECT_EQ(10310, mem_map_entry_max);
        EXPECT_EQ(10299u, dumped().size()) << "all but the last block and the map's arrays";
    });
}

TEST(VxlbMemMap, ASecondMapStartsClean) {
    std::thread([] {
        for (int round = 0; round < 2; round++) {
            EXPECT_EQ(0, vxlb_mem_map_init());
            EXPECT_EQ(0, mem_map_max_norm_id);
            EXPECT_EQ(0, add(5, 1));
            EXPECT_EQ(0, add(6, 1));
            EXPECT_EQ(1u, dumped().size());
            const ZylMemoryMap *const array = zyl_mem_map;
            EXPECT_EQ(0, vxlb_mem_map_free());
            EXPECT_EQ(0, mem_map_entry_max);
            EXPECT_EQ(array, zyl_mem_map) << "the pointer is left as it was";
        }
    }).join();
}

// Everything that allocates through the wrappers, with the map on and everything traced.
TEST(VxlbMemMap, RecordsWhatTheLibraryAllocates) {
    TraceLog log;
    with_map([] {
        NormObjKey table;
        bigbuf_t buf;
        vxlb_init_norm_id_table_v2(&table, 16, 10);
        vxlb_bigbuf_init_ex(&buf, 10);
        for (int i = 0; i < 500; i++) {
            const std::string name = text("some name %d", i);
            vxlb_get_or_set_norm_id(&table, name.c_str(), static_cast<int>(name.size()), nullptr);
            vxlb_bigbuf_copy_into_bigbuf(&buf, std::string(100, 'x').c_str(), 0);
        }
        char *last = nullptr;
        VXLB_MALLOC(last, 1, "last");
        std::map<std::string, std::string> sizes;
        for (const std::string &line : undated(dumped())) {
            EXPECT_EQ(5, std::count(line.begin(), line.end(), '|')) << line;
            const size_t bar = line.find('|');
            sizes[line.substr(0, bar)] += line.substr(bar + 1, line.find('|', bar + 1) - bar - 1);
        }
        const auto size_of = [&](const void *block) { return sizes[text("%p", block)]; };
        EXPECT_EQ(text("%ld", table.bigbuf.bufsize), size_of(table.bigbuf.buffer));
        EXPECT_EQ(text("%ld", buf.bufsize), size_of(buf.buffer));
        EXPECT_EQ(text("%zu", 16 * sizeof(NormTable)), size_of(table.nt));
        EXPECT_EQ(text("%zu", sizeof(vxlb_mp_handler)), size_of(table.nt_mpool));
        EXPECT_EQ(4u, sizes.size());
        vxlb_bigbuf_free(&buf);
        vxlb_obj_hash_destroy(&table);
        EXPECT_EQ(Lines{}, dumped());
        VXLB_FREE(last, "last", -1);
    });
}

TEST(VxlbMemMap, BehavesAsAMap) {
    with_map([] {
        std::mt19937 random(5);
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
        Lines expected;
        for (const auto &[n, size] : live) {
            expected.push_back(text("%p|%zu|file.c|7|func|label", address(n), size));
        }
        Lines lines = undated(dumped());
        std::sort(lines.begin(), lines.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(expected, lines);
    });
}
