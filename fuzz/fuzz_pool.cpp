// SPDX-License-Identifier: Apache-2.0
// The slot pool beside two plain lists, links and contents compared after every operation.
//
//     slot size | first chunk | later chunks | cap | locking | operations, a byte each

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_mem_pool.h>
#include <libvxcore/vxlb_util.h>

#include <cstring>
#include <deque>
#include <vector>

#include "fuzz.h"

namespace {

constexpr int HEADER = 17; // bytes of a slot that are the pool's: two links and the status

using Slots = std::deque<char *>;

struct Pool {
    vxlb_mp_handler handle = {};
    int slot_size, first, later, cap;
    bool locks;
    Slots free, busy, taken;                    // taken: off the busy list, on none
    std::vector<char *> chunks, lost;           // lost: chunks that destroy can't find
    std::vector<std::pair<char *, int>> stamps; // what each busy or taken slot was filled with
    int next_stamp = 0;

    explicit Pool(Input &in) {
        slot_size = 24 + static_cast<int>(in.byte() % 60);
        first = static_cast<int>(in.byte() % 8) - 1;
        later = static_cast<int>(in.byte() % 8) - 1;
        cap = static_cast<int>(in.byte() % 40) - 2;
        locks = in.byte() % 2 == 1;
        check(vxlb_mp_init(&handle, slot_size, first, later, locks ? 1 : 0) == 0);
        first = first < 1 ? 10 : first;
        later = later < 1 ? 10 : later;
        cap = std::max(cap, 0);
        vxlb_mp_set_max(&handle, cap);
    }
    // Slots that the cap leaves for the next chunk; below 1: none.
    int room() const {
        const int made = static_cast<int>(chunks.size());
        const int size = made == 0 ? first : later;
        const int total = first + later * made;
        return cap != 0 && total > cap ? size - (total - cap) : size;
    }
    void expect_chunk() {
        char *base = reinterpret_cast<char *>(handle.free_head != nullptr ? handle.free_head
                                                                          : handle.busy_tail);
        const int count = room();
        chunks.push_back(base);
        free.clear();
        for (int i = 0; i < count; i++) {
            free.push_back(base + static_cast<ptrdiff_t>(i) * slot_size);
        }
    }
    void create() {
        for (char *slot : free) {
            if (std::find(chunks.begin(), chunks.end(), slot) != chunks.end()) {
                lost.push_back(slot);
            }
        }
        const bool fits = room() >= 1;
        check(vxlb_mp_create(&handle) == (fits ? 0 : -1));
        if (fits) {
            expect_chunk();
        } else {
            check(strcmp(vxlb_get_error(), "Memory pool max limit reached") == 0);
            lost.erase(lost.end() - std::count_if(free.begin(), free.end(),
                                                  [&](char *slot) {
                                                      return std::find(chunks.begin(), chunks.end(),
                                                                       slot) != chunks.end();
                                                  }),
                       lost.end());
        }
    }
    void get() {
        const bool fits = !free.empty() || room() >= 1;
        // A new chunk is where the first slot of it lies.
        char *slot = reinterpret_cast<char *>(vxlb_mp_get_slot(&handle));
        check((slot != nullptr) == fits);
        if (!fits) {
            return;
        }
        if (free.empty()) {
            const int count = room();
            chunks.push_back(slot);
            for (int i = 0; i < count; i++) {
                free.push_back(slot + static_cast<ptrdiff_t>(i) * slot_size);
            }
        }
        check(slot == free.front());
        free.pop_front();
        busy.push_back(slot);
        stamps.emplace_back(slot, next_stamp);
        slot[HEADER - 1] |= 6; // the user's bits beside the pool's
        memset(slot + HEADER, next_stamp++ % 256, static_cast<size_t>(slot_size - HEADER));
    }
    // The caller's bytes are as they were left.
    void check_stamp(char *slot) {
        const auto stamp = std::find_if(stamps.begin(), stamps.end(),
                                        [slot](const auto &s) { return s.first == slot; });
        check(stamp != stamps.end());
        for (int i = HEADER; i < slot_size; i++) {
            check(slot[i] == static_cast<char>(stamp->second % 256));
        }
        stamps.erase(stamp);
    }
    void free_one(size_t which, bool to_head) {
        if (busy.empty()) {
            (to_head ? vxlb_mp_free_slot_ex : vxlb_mp_free_slot)(&handle, nullptr);
            return;
        }
        const auto place = busy.begin() + static_cast<ptrdiff_t>(which % busy.size());
        char *slot = *place;
        busy.erase(place);
        check_stamp(slot);
        (to_head ? vxlb_mp_free_slot_ex : vxlb_mp_free_slot)(&handle, slot);
        to_head ? free.push_front(slot) : free.push_back(slot);
    }
    void take_head() {
        check(reinterpret_cast<char *>(vxlb_mp_get_busy_head(&handle)) ==
              (busy.empty() ? nullptr : busy.front()));
        if (!busy.empty()) {
            taken.push_back(busy.front());
            busy.pop_front();
        }
    }
    void return_taken() {
        vxlb_mp_free_busy_head(&handle, taken.empty() ? nullptr : taken.front());
        if (!taken.empty()) {
            check_stamp(taken.front());
            free.push_front(taken.front());
            taken.pop_front();
        }
    }
    void free_all() {
        vxlb_mp_free_all_slots(&handle);
        for (char *slot : busy) {
            check_stamp(slot);
        }
        free.insert(free.end(), busy.begin(), busy.end());
        busy.clear();
    }
    static void check_list(const Slots &slots, const node *head, const node *tail) {
        const char *before = nullptr;
        const char *at = reinterpret_cast<const char *>(head);
        for (const char *slot : slots) {
            const char *links[2]; // slots may lie at odd addresses
            check(at == slot);
            memcpy(links, slot, sizeof links);
            check(links[0] == before);
            before = slot;
            at = links[1];
        }
        check(at == nullptr && reinterpret_cast<const char *>(tail) == before);
    }
    void check_all() const {
        check_list(free, handle.free_head, handle.free_tail);
        check_list(busy, handle.busy_head, handle.busy_tail);
        check(handle.num_malloced_slot == static_cast<int>(chunks.size()));
        check(reinterpret_cast<char *>(vxlb_mp_check_busy_head(const_cast<vxlb_mp_handler *>(
                  &handle))) == (busy.empty() ? nullptr : busy.front()));
    }
    void step(unsigned code) {
        const size_t which = code >> 4;
        switch (code & 15) {
        case 0:
            create();
            break;
        case 1:
            free_all();
            break;
        case 2:
            take_head();
            break;
        case 3:
            return_taken();
            break;
        case 4:
            vxlb_mp_set_max(&handle, cap = static_cast<int>(which * 3));
            break;
        case 5:
        case 6:
        case 7:
            free_one(which, false);
            break;
        case 8:
        case 9:
            free_one(which, true);
            break;
        default:
            get();
            break;
        }
    }
    void destroy() {
        while (!taken.empty()) {
            return_taken();
        }
        const size_t before = g_c_free_count;
        vxlb_mp_destroy(&handle);
        check(g_c_free_count - before == chunks.size() - lost.size());
        for (char *chunk : lost) {
            ::free(chunk);
        }
        const vxlb_mp_handler zero = {};
        check(memcmp(&handle, &zero, sizeof zero) == 0);
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input in = {data, std::min<size_t>(size, 200)};
    Pool pool(in);
    while (!in.is_empty()) {
        pool.step(in.byte());
        pool.check_all();
    }
    pool.destroy();
    return 0;
}
