// SPDX-License-Identifier: Apache-2.0
// Allocation wrappers and tracking map beside a model of what they count, and of what the map holds.
//
//     traced or not | operations: code, argument

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_mem_map.h>

#include <cstring>
#include <ctime>
#include <map>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "fuzz.h"

// The library's clock. Local time is that of UTC.
extern "C" time_t time(time_t *out) noexcept {
    return out == nullptr ? 1700000000 : (*out = 1700000000);
}
static const int g_zone = setenv("TZ", "UTC0", 1);

namespace {

const std::string DATE = "11/14/23 22:13:20";
const std::string HEADER =
    "AbsoluteTimeStamp|Address|Size|FileName|LineNo|FunctionName|Message!!\n";

struct Entry {
    void *address = nullptr;
    size_t size = 0;
    std::string message;
};

struct Map {
    bool is_on = false;
    int highest = 0;
    std::map<void *, size_t> ids;
    std::vector<Entry> entries; // by id

    bool add(void *address, size_t size, const std::string &message) {
        if (is_on && ids.count(address) == 0) {
            ids[address] = entries.size();
            highest = static_cast<int>(entries.size());
            entries.emplace_back();
        }
        if (is_on) {
            entries[ids[address]] = {address, size, message.substr(0, 255)};
        }
        return is_on;
    }
    bool remove(void *address) {
        const auto found = ids.find(address);
        if (found == ids.end()) {
            return false;
        }
        entries[found->second] = {};
        ids.erase(found);
        return true;
    }
    void clear() { *this = {}; }
    // All but the entry of the highest id.
    std::string dump() const {
        std::string all = HEADER;
        for (int id = 0; id < highest; id++) {
            const Entry &entry = entries[static_cast<size_t>(id)];
            char shown[64];
            snprintf(shown, sizeof shown, "|%p|%zu|", entry.address, entry.size);
            all += entry.size == 0 ? "" : DATE + shown + entry.message + "\n";
        }
        return all;
    }
};

struct Counts {
    uint64_t allocated, freed;
    uint32_t allocations, frees;
    static Counts now() {
        check(static_cast<uint32_t>(g_c_mem_allocated) == g_mem_allocated);
        check(static_cast<uint32_t>(g_c_mem_freed) == g_mem_freed);
        check(g_c_alloc_count == g_alloc_count && g_c_free_count == g_free_count);
        return {g_c_mem_allocated, g_c_mem_freed, g_c_alloc_count, g_c_free_count};
    }
};

struct Block {
    char *bytes;
    size_t size;
    char fill;
};

struct Heap {
    std::vector<Block> blocks;
    Counts counts = Counts::now();
    Map map;
    const int dump = memfd_create("dump", MFD_CLOEXEC);
    const std::string dump_path = "/proc/self/fd/" + std::to_string(dump);

    static std::string site(int line, const char *function, const char *label) {
        return __FILE__ "|" + std::to_string(line) + "|" + function + "|" + label;
    }
    // What is behind a block, and what is reported of it.
    void check_made(const Block &block, int line, const char *function, const char *label) {
        const size_t reported = block.size + static_cast<size_t>(g_alloc_extra_size);
        check(strcmp(block.bytes + reported, "ZMemDbg") == 0);
        memset(block.bytes, block.fill, reported);
        map.add(block.bytes, reported, site(line, function, label));
    }
    // A wrapper evaluates each of its arguments once, also the variable that it assigns to.
    void allocate(size_t size, char fill) {
        int calls = 0;
        Block block = {nullptr, size, fill};
        const int line = __LINE__ + 1;
        VXLB_MALLOC((calls++, block).bytes, (calls++, size), (calls++, "block"));
        check(calls == 3);
        check((block.bytes == nullptr) == (size == 0));
        if (size > 0) {
            counts.allocated += size;
            counts.allocations++;
            check_made(block, line, __func__, "block");
            blocks.push_back(block);
        }
    }
    void reallocate(size_t which, size_t size, char fill) {
        Block block = {nullptr, 0, fill};
        if (!blocks.empty()) {
            block = blocks[which % blocks.size()];
            blocks.erase(blocks.begin() + static_cast<ptrdiff_t>(which % blocks.size()));
            map.remove(block.bytes);
        } else {
            counts.allocated += size; // a null variable is allocated
            counts.allocations++;
        }
        int calls = 0;
        const int line = __LINE__ + 1;
        VXLB_REALLOC((calls++, block).bytes, (calls++, size), (calls++, "again"), calls++, -1);
        check(calls == 4);
        for (size_t i = 0; i < std::min(block.size, size); i++) {
            check(block.bytes[i] == block.fill);
        }
        blocks.push_back({block.bytes, size, fill});
        check_made(blocks.back(), line, __func__, "again");
    }
    // Some are released behind the map's back, so that an address comes again.
    void release(size_t which, bool is_plain) {
        char *bytes = nullptr;
        if (!blocks.empty()) {
            bytes = blocks[which % blocks.size()].bytes;
            blocks.erase(blocks.begin() + static_cast<ptrdiff_t>(which % blocks.size()));
        }
        if (is_plain) {
            free(bytes);
            return;
        }
        VXLB_FREE(bytes, "block", -1);
        map.remove(bytes);
        counts.freed += bytes != nullptr ? 1 : 0; // a release charges 1, whatever the size
        counts.frees += bytes != nullptr ? 1 : 0;
    }
    static void *address(unsigned n) { return reinterpret_cast<void *>(uintptr_t{0x1000} + n); }
    void report(unsigned n) {
        const std::string label(n * 4, 'm');
        const bool is_good = n > 0 && map.add(address(n), n, "f|-7|g|" + label);
        check(vxlb_mem_map_add(address(n), n, Pieces::copy(label), "f", -7, "g") ==
              (is_good ? 0 : -1));
    }
    void forget(unsigned n) {
        check(vxlb_mem_map_remove(address(n)) == (map.remove(address(n)) ? 0 : -1));
    }
    void turn_on() {
        check(vxlb_mem_map_init() == (map.is_on ? -1 : 0));
        map.is_on = true;
        counts = Counts::now(); // with what the map itself has allocated
    }
    void turn_off() {
        check(vxlb_mem_map_free() == (map.is_on ? 0 : -1));
        map.clear();
        counts = Counts::now();
    }
    void check_dump() {
        check(vxlb_mem_map_dump(dump_path.c_str()) == (map.is_on ? 0 : -1));
        std::string all(static_cast<size_t>(lseek(dump, 0, SEEK_END)), '\0');
        check(pread(dump, all.data(), all.size(), 0) == static_cast<ssize_t>(all.size()));
        check(!map.is_on || all == map.dump());
    }
    void check_all() const {
        const Counts is = Counts::now();
        check(is.allocated == counts.allocated && is.freed == counts.freed);
        check(is.allocations == counts.allocations && is.frees == counts.frees);
        check(mem_map_entry_max == (map.is_on ? VXLB_MEM_MAP_ENTRIES : 0));
        check(mem_map_max_norm_id == map.highest);
    }
    void step(unsigned code, unsigned argument) {
        switch (code % 16) {
        case 0:
            turn_on();
            break;
        case 1:
            code < 64 ? turn_off() : check_dump();
            break;
        case 2:
            g_alloc_extra_size = static_cast<int>(argument % 20);
            break;
        case 3:
        case 4:
            report(argument % 100);
            break;
        case 5:
            forget(argument % 100);
            break;
        case 6:
        case 7:
            release(argument, code >= 192);
            break;
        case 8:
        case 9:
        case 10:
            reallocate(code / 16, argument + 1, static_cast<char>(argument));
            break;
        default:
            allocate(argument * size_t{argument}, static_cast<char>(code));
            break;
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static Heap heap;
    Pieces::forget();
    Input in = {data, std::min<size_t>(size, 300)};
    const bool is_traced = in.byte() % 2 == 1;
    vxlb_util_set_log_filename("/dev/null", "");
    vxlb_util_set_debug_log_level(is_traced ? -1 : 0);
    vxlb_util_set_modulemask(is_traced ? UINT64_MAX : 0);
    while (!in.is_empty()) {
        const unsigned code = in.byte();
        heap.step(code, in.byte());
        heap.check_all();
    }
    heap.check_dump();
    heap.turn_off();
    while (!heap.blocks.empty()) {
        heap.release(0, false);
    }
    g_alloc_extra_size = 0;
    return 0;
}
