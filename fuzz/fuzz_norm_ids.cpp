// SPDX-License-Identifier: Apache-2.0
// The normalized-id table and its big buffer beside a model without pointers: the same buckets, slots
// and offsets as numbers. Few buckets, so that names collide.
//
//     buckets | bytes for names | operations: code, name, length, argument

#include <libvxcore/vxlb_get_norm_obj_id.h>

#include <cstring>
#include <deque>
#include <iterator>
#include <map>
#include <vector>

#include "captured_stderr.h"
#include "fuzz.h"

namespace {

constexpr unsigned NO_ID = 0xFFFFFFFF;
constexpr int BUCKETS_MAX = 32;

struct Entry {
    int64_t str = 0;
    int len = 0, idx = 0;
    int64_t data = 0;
};

struct Model {
    std::vector<Entry> places; // the heads, then the slots
    std::vector<std::deque<int>> chains;
    std::deque<int> free, busy, free_ids;
    std::map<int, int> index; // id to place
    std::string bytes;
    int64_t used = 0;
    int prime, prev_id = -1;
    int64_t capacity;

    Model(int size, int divisor, int room) : prime(divisor), capacity(room) {
        places.resize(static_cast<size_t>(size));
        chains.resize(static_cast<size_t>(size));
        empty_heads();
        add_slots(64);
    }
    void empty_heads() {
        for (size_t i = 0; i < chains.size(); i++) {
            places[i] = {-1};
            chains[i].clear();
        }
    }
    void add_slots(int count) {
        for (; count > 0; count--) {
            free.push_back(static_cast<int>(places.size()));
            places.emplace_back();
        }
    }
    Entry &at(int place) { return places[static_cast<size_t>(place)]; }
    std::deque<int> &chain(int bucket) { return chains[static_cast<size_t>(bucket)]; }
    int64_t store(const std::string &text) {
        const int64_t begin = used;
        const auto length = static_cast<int64_t>(text.size());
        while (used + length + 1 >= capacity) {
            capacity += BIGBUF_STEP;
        }
        used += length + 1;
        bytes.resize(static_cast<size_t>(std::max(used, static_cast<int64_t>(bytes.size()))));
        bytes.replace(static_cast<size_t>(begin), text.size() + 1, text.c_str(), text.size() + 1);
        return begin;
    }
    std::string text(int64_t offset) const { return bytes.c_str() + offset; }
    int bucket(const std::string &name) const {
        uint64_t hash = 0x811C9DC5;
        for (const char *c = name.c_str(); *c != '\0'; c++) {
            hash = (hash ^ static_cast<unsigned char>(*c)) * 0x01000193;
        }
        return static_cast<int>(hash % static_cast<uint64_t>(prime));
    }
    // Places that a walk through a bucket passes; none while its head is empty.
    int places_in(int bucket) {
        return at(bucket).str == -1 ? 0 : 1 + static_cast<int>(chain(bucket).size());
    }
    bool has_name(int place, const std::string &name, int len) {
        const Entry &e = at(place);
        const auto text = bytes.begin() + static_cast<ptrdiff_t>(e.str);
        return e.len == len && text[len - 1] == name[static_cast<size_t>(len) - 1] &&
               std::equal(name.begin(), name.begin() + len, text);
    }
    int find(const std::string &name, int len) {
        const int home = bucket(name);
        if (places_in(home) == 0) {
            return -1;
        }
        if (has_name(home, name, len)) {
            return home;
        }
        for (const int place : chain(home)) {
            if (has_name(place, name, len)) {
                return place;
            }
        }
        return -1;
    }
    int insert(const std::string &name, int len, int id, int *flag) {
        const int home = bucket(name);
        const auto passed = places_in(home);
        int place = home;
        if (passed > 0) {
            if (free.empty()) {
                add_slots(16);
            }
            place = free.front();
            free.pop_front();
            busy.push_back(place);
            chain(home).push_back(place);
        }
        at(place).str = store(name.substr(0, static_cast<size_t>(len)));
        at(place).len = len;
        at(place).idx = id;
        *flag = std::max(passed, 1);
        return place;
    }
    void put_datum(int place, int64_t datum) {
        at(place).data = store(std::string(reinterpret_cast<char *>(&datum), 8));
        prev_id = std::max(prev_id, at(place).idx);
    }
    int64_t datum(int place) const {
        int64_t datum = 0;
        const int64_t offset = places[static_cast<size_t>(place)].data;
        if (offset > 0) {
            memcpy(&datum, bytes.data() + offset, 8);
        }
        return datum;
    }
    void release(int slot) {
        busy.erase(std::find(busy.begin(), busy.end(), slot));
        free.push_back(slot);
    }
    void remove(const std::string &name, int place) {
        const int home = bucket(name);
        free_ids.push_back(at(place).idx);
        std::deque<int> &others = chain(home);
        if (place != home) {
            others.erase(std::find(others.begin(), others.end(), place));
            release(place);
        } else if (!others.empty()) {
            at(home) = at(others.front());
            release(others.front());
            others.pop_front();
        } else {
            at(home).str = at(home).len = at(home).idx = -1;
        }
    }
    void reset() {
        free.insert(free.end(), busy.begin(), busy.end());
        busy.clear();
        free_ids.clear();
        index.clear();
        empty_heads();
        prev_id = -1;
        used = 0;
    }
};

struct Table {
    NormObjKey key = {};
    Model model;

    static NormObjKey set_up(int size, int room) {
        NormObjKey fresh;
        check(vxlb_init_norm_id_table_v2(&fresh, size, room) == 0);
        fresh.id_name = static_cast<NormTable **>(malloc(8)); // so that ids are recorded
        return fresh;
    }
    Table(int size, int room) : key(set_up(size, room)), model(key.size, key.prime, room) {}
    ~Table() {
        vxlb_obj_hash_destroy(&key);
        ::free(key.id_name);
    }
    // An operation that adds: which one, and the id that it is given.
    void add(unsigned kind, const std::string &name, int given, int id) {
        const bool measures = kind != 0 && kind != 2;
        const int len = given == 0 && measures ? static_cast<int>(strlen(name.c_str())) : given;
        const int64_t datum = kind == 5   ? 0
                              : kind == 6 ? static_cast<uint32_t>(static_cast<signed char>(id))
                                          : int64_t{id} * 0x1234567;
        int flag = 7, expected_flag = 0, hash = 7, expected_hash = 7;
        unsigned expected = kind >= 5 ? 0 : NO_ID;
        if (name[0] != '\0' && len != 0) {
            expected = kind == 2 ? NO_ID : 0;
            expected = len < 0
                           ? expected
                           : expect_add(kind, name, len, id, datum, &expected_flag, &expected_hash);
        }
        check(run_add(kind, name, given, id, datum, &flag, &hash) == expected);
        check(kind >= 5 || flag == expected_flag);
        check(hash == expected_hash);
    }
    unsigned expect_add(unsigned kind, const std::string &name, int len, int id, int64_t datum,
                        int *flag, int *hash) {
        int place = model.find(name, len);
        if (place >= 0) {
            return static_cast<unsigned>(model.at(place).idx);
        }
        const int home = model.bucket(name);
        const bool is_given =
            kind >= 5 || (kind == 3 && id != -1) || (kind == 4 && !model.free_ids.empty());
        if (kind == 2 && model.at(home).str == -1) {
            *hash = home;
        }
        if (kind == 4 && is_given) {
            id = model.free_ids.front();
            model.free_ids.pop_front();
        }
        place = model.insert(name, len, is_given ? id : ++model.prev_id, flag);
        if (is_given) {
            model.put_datum(place, kind >= 5 ? datum : 0);
            *flag = kind == 3 ? 1 : *flag;
        }
        if (kind == 0) {
            record(model.prev_id, place);
        }
        return static_cast<unsigned>(model.at(place).idx);
    }
    // Elements grow by 16 a call, and an id beyond that is not recorded.
    void record(int id, int place) {
        managed += id >= managed ? 16 : 0;
        if (id >= 0 && id < managed) {
            model.index[id] = place;
        }
    }
    int managed = 0;
    unsigned run_add(unsigned kind, const std::string &name, int len, int id, int64_t datum,
                     int *flag, int *hash) {
        NormTableData data;
        data.val_long = datum;
        switch (kind) {
        case 0:
            return vxlb_get_or_set_norm_id(&key, Pieces::copy(name), len, flag);
        case 1:
            return vxlb_get_or_gen_norm_id(&key, Pieces::copy(name), len, flag);
        case 2:
            return vxlb_get_or_gen_norm_id_ex(&key, Pieces::copy(name), len, flag, hash);
        case 3:
            return vxlb_get_set_or_gen_norm_id(&key, Pieces::copy(name), len, flag, id);
        case 4:
            return vxlb_get_set_or_gen_norm_id_ex(&key, Pieces::copy(name), len, flag);
        case 5:
            return vxlb_set_norm_id(&key, Pieces::copy(name), len, id);
        case 6:
            return vxlb_set_norm_id_and_data(&key, Pieces::copy(name), len, id,
                                             static_cast<char>(id));
        default:
            return vxlb_set_norm_id_and_data_ex(&key, Pieces::copy(name), len, id, data);
        }
    }
    void look_up(const std::string &name, int len) {
        const bool is_bad = name[0] == '\0' || len == 0;
        const int place = is_bad || len < 0 ? -1 : model.find(name, len);
        const int expected = place >= 0 ? model.at(place).idx : is_bad ? -1 : -2;
        check(vxlb_get_norm_id(&key, Pieces::copy(name), len) == expected);
        check(vxlb_get_hash_index_ex(Pieces::copy(name), 1, 1, key.prime) == model.bucket(name));
        int hash = 7;
        NormTableData data;
        data.val_long = 99;
        check(vxlb_get_norm_id_hash_data_ex(&key, Pieces::copy(name), len, &hash, &data) ==
              expected);
        check(hash == (is_bad || len < 0 ? 7 : model.bucket(name)));
        const bool is_told =
            place >= 0 || (!is_bad && len > 0 && model.places_in(model.bucket(name)) == 0);
        check(data.val_long == (place >= 0 ? model.datum(place) : is_told ? 0 : 99));
        int value = 99;
        check(vxlb_get_norm_id_hash_data(&key, Pieces::copy(name), len, nullptr, &value) ==
              expected);
        check(value == data.val_int);
    }
    void remove(const std::string &name, int given) {
        const int len = given == 0 ? static_cast<int>(strlen(name.c_str())) : given;
        const int place = name[0] == '\0' || len < 1 ? -1 : model.find(name, len);
        const int expected = place >= 0 ? model.at(place).idx : 7;
        int id = 7;
        check(vxlb_delete_norm_id_ex(&key, Pieces::copy(name), given, &id) ==
              (place >= 0 ? 0 : -1));
        check(id == expected);
        if (place >= 0) {
            model.remove(name, place);
        }
    }
    void remove_bucket(int bucket) {
        const bool is_there = bucket >= 0 && bucket < key.size && model.at(bucket).str != -1;
        check(vxlb_delete_norm_id(&key, bucket) == (is_there ? 0 : -1));
        if (is_there) {
            model.at(bucket) = {-1, -1, -1, -1};
            const NormTable &head = key.nt[bucket];
            check(head.str == -1 && head.len == -1 && head.idx == -1 && head.data == -1);
        }
    }
    void name_of(int id) {
        const auto found = model.index.find(id);
        const bool is_there = found != model.index.end() && model.at(found->second).str != -1;
        const std::string expected = id < 0     ? "InvalidInput"
                                     : is_there ? model.text(model.at(found->second).str)
                                                : "NormIdNameNotFound";
        check(expected == vxlb_get_norm_table_data(&key, id));
    }
    // More names than there are slots at first; once, for it takes its time.
    void fill() {
        for (int i = 0; i < 100 && !is_full; i++) {
            add(1, std::to_string(i), 0, 0);
        }
        is_full = true;
    }
    bool is_full = false;
    void step(Input &in) {
        const unsigned code = in.byte();
        std::string name = in.name(6);
        const unsigned shape = in.byte();
        const int id = static_cast<signed char>(in.byte());
        const int exact = static_cast<int>(name.size());
        const int len = shape < 200   ? exact
                        : shape < 230 ? 0
                        : shape < 240 ? std::max(exact - 1, 0)
                        : shape < 250 ? exact + 1 + static_cast<int>(shape % 3)
                                      : -static_cast<int>(shape);
        name += std::string("\0xy", 3); // what a length beyond the text covers
        switch (code % 16) {
        case 8:
        case 9:
            look_up(name, len);
            break;
        case 10:
        case 11:
            remove(name, len);
            break;
        case 12:
            remove_bucket(id);
            break;
        case 13:
            name_of(id);
            break;
        case 14:
            vxlb_set_start_norm_id(&key, id);
            model.prev_id = std::max(model.prev_id, id);
            break;
        case 15:
            if (code < 64) {
                check(vxlb_obj_hash_reset(&key) == 0);
                model.reset();
            } else if (code == 255 && shape == 255) {
                fill();
            } else {
                vxlb_add_id_in_free_list(&key, id);
                model.free_ids.push_back(id);
            }
            break;
        default:
            add(code % 16, name, len, id);
            break;
        }
    }
    void check_unused() const {
        const char *const end = key.bigbuf.buffer + key.bigbuf.bufsize;
        check(std::all_of<const char *>(key.bigbuf.buffer + model.bytes.size(), end,
                                        [](char c) { return c == '\0'; }));
    }
    void check_all() {
        check(key.prev_id == model.prev_id);
        check(key.bigbuf.offset == model.used && key.bigbuf.bufsize == model.capacity);
        check(memcmp(key.bigbuf.buffer, model.bytes.data(), model.bytes.size()) == 0);
        check(vxlb_bigbuf_chk_avail_space(&key.bigbuf, 100) ==
              (model.used + 100 < model.capacity ? 1 : 0));
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static CapturedStderr printed;
    Pieces::forget();
    Input in = {data, std::min<size_t>(size, 600)};
    const int buckets = 1 + static_cast<int>(in.byte() % BUCKETS_MAX);
    Table table(buckets, 1 + static_cast<int>(in.byte()) * 4);
    while (!in.is_empty()) {
        table.step(in);
        table.check_all();
    }
    table.check_unused();
    printed.text.clear();
    return 0;
}
