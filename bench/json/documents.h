// SPDX-License-Identifier: Apache-2.0
#ifndef BENCH_JSON_DOCUMENTS_H
#define BENCH_JSON_DOCUMENTS_H

// Documents to measure on, made from a seed: the same on every machine and in every run.

#include <cstdint>
#include <string>
#include <string_view>

// splitmix64: the standard library's distributions differ from one implementation to the next.
struct Random {
    uint64_t state;
    uint64_t next() {
        uint64_t z = state += 0x9E3779B97F4A7C15;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
        return z ^ (z >> 31);
    }
    int below(int n) { return static_cast<int>(next() % static_cast<uint64_t>(n)); }
    bool one_in(int n) { return below(n) == 0; }
};

// A JSON text in the making: members and items, with or without indentation.
struct Writer {
    std::string text;
    bool indented;
    int depth = 0;
    void line() {
        if (text.back() != '{' && text.back() != '[') {
            text += ',';
        }
        if (indented) {
            text += '\n';
            text.append(static_cast<size_t>(depth) * 2, ' ');
        }
    }
    void name(std::string_view n) {
        line();
        text.append("\"").append(n).append(indented ? "\": " : "\":");
    }
    void open(char bracket) {
        text += bracket;
        depth++;
    }
    void close(char bracket) {
        depth--;
        if (indented && text.back() != '{' && text.back() != '[') {
            text += '\n';
            text.append(static_cast<size_t>(depth) * 2, ' ');
        }
        text += bracket;
    }
    void string(std::string_view s) { text.append("\"").append(s).append("\""); }
    void member(std::string_view n, std::string_view s) {
        name(n);
        string(s);
    }
    void member(std::string_view n, int64_t number) {
        name(n);
        text += std::to_string(number);
    }
    void literal(std::string_view n, std::string_view value) {
        name(n);
        text += value;
    }
};

inline std::string words(Random &random, int count) {
    static const char *const list[] = {
        "checkout", "login",   "search",  "basket", "smoke",  "peak",   "steady", "ramp",
        "soak",     "the",     "of",      "with",   "a",      "mobile", "api",    "browse",
        "payment",  "nightly", "release", "spike",  "stress", "user",   "page",   "warm"};
    std::string text;
    for (int i = 0; i < count; i++) {
        text.append(i == 0 ? "" : " ").append(list[random.below(24)]);
    }
    return text;
}

inline void add_group(Writer &w, Random &random, int number) {
    w.line();
    w.open('{');
    w.member("_name", "Group" + std::to_string(number));
    w.member("_type", random.one_in(3) ? "fixed" : "ramp");
    w.member("users", random.below(5000));
    w.literal("enabled", random.one_in(5) ? "false" : "true");
    w.member("script", "scripts/" + words(random, 1) + "/main_" + std::to_string(number) + ".c");
    w.name("schedule");
    w.open('[');
    for (int i = 0; i < 3; i++) {
        w.line();
        w.open('{');
        w.member("phase", words(random, 1));
        w.member("seconds", random.below(7200));
        w.member("rate", random.below(900));
        w.close('}');
    }
    w.close(']');
    w.name("headers");
    w.open('{');
    w.member("User-Agent",
             "load/" + std::to_string(random.below(90)) + ".0 (" + words(random, 3) + ")");
    w.member("Accept", "text/html,application/json;q=0.9");
    w.member("X-Note", words(random, 2) + "\\t\\\"" + words(random, 2) + "\\\"");
    w.close('}');
    w.close('}');
}

// A load-test scenario, indented, with its tags: about `size` bytes.
inline std::string scenario_document(size_t size, uint64_t seed) {
    Random random = {seed};
    Writer w = {"", true};
    w.open('{');
    w.name("scenario");
    w.open('{');
    w.member("name", words(random, 3));
    w.member("description", words(random, 20));
    w.name("TAGS");
    w.open('{');
    w.name("_G");
    w.open('[');
    w.line();
    w.open('[');
    for (int i = 0; i < 4; i++) {
        w.line();
        w.string(words(random, 1));
    }
    w.close(']');
    w.close(']');
    w.close('}');
    w.name("groups");
    w.open('[');
    for (int i = 0; w.text.size() + 600 < size; i++) {
        add_group(w, random, i);
    }
    w.close(']');
    w.close('}');
    w.close('}');
    return w.text;
}

inline void add_author(Writer &w, Random &random) {
    w.name("user");
    w.open('{');
    w.member("id", static_cast<int64_t>(random.next() >> 24));
    w.member("screen_name", words(random, 1) + std::to_string(random.below(10000)));
    w.member("location", random.one_in(2) ? "" : words(random, 2));
    w.member("description", words(random, 9) + "\\n\xE6\x9D\xB1\xE4\xBA\xAC " + words(random, 4));
    w.literal("protected", "false");
    w.member("followers_count", random.below(90000));
    w.member("friends_count", random.below(9000));
    w.literal("url", "null");
    w.literal("verified", random.one_in(9) ? "true" : "false");
    w.member("profile_image_url", "http:\\/\\/pbs.example.com\\/images\\/" +
                                      std::to_string(random.next()) + "_normal.jpeg");
    w.close('}');
}

// Posts with authors, texts in several scripts, escapes and many short members, indented.
inline std::string feed_document(int posts, uint64_t seed) {
    Random random = {seed};
    Writer w = {"", true};
    w.open('{');
    w.name("statuses");
    w.open('[');
    for (int i = 0; i < posts; i++) {
        w.line();
        w.open('{');
        w.member("created_at", "Sun Aug 31 00:29:" + std::to_string(10 + random.below(50)));
        w.member("id", static_cast<int64_t>(random.next() >> 8));
        w.member("text", words(random, 6) + " \xE3\x81\x82\xE3\x81\x84\xE3\x81\x86 \\\"" +
                             words(random, 5) + "\\\" http:\\/\\/t.co\\/" + words(random, 1));
        w.literal("truncated", "false");
        w.literal("in_reply_to_status_id", "null");
        w.literal("geo", "null");
        add_author(w, random);
        w.name("entities");
        w.open('{');
        w.name("hashtags");
        w.open('[');
        w.close(']');
        w.name("indices");
        w.open('[');
        for (int j = 0; j < 2; j++) {
            w.line();
            w.text += std::to_string(random.below(140));
        }
        w.close(']');
        w.close('}');
        w.member("retweet_count", random.below(1000));
        w.literal("favorited", "false");
        w.member("lang", random.one_in(3) ? "en" : "ja");
        w.close('}');
    }
    w.close(']');
    w.close('}');
    return w.text;
}

inline void add_areas(Writer &w, Random &random) {
    w.name("areas");
    w.open('[');
    for (int i = random.below(5); i >= 0; i--) {
        w.line();
        w.open('{');
        w.member("areaId", 205705999 + random.below(100));
        w.name("blockIds");
        w.open('[');
        w.close(']');
        w.close('}');
    }
    w.close(']');
}

// Events, prices and areas by number: many objects of a few short members, deeply indented.
inline std::string catalogue_document(int events, uint64_t seed) {
    Random random = {seed};
    Writer w = {"", true};
    w.open('{');
    w.name("performances");
    w.open('[');
    for (int i = 0; i < events; i++) {
        w.line();
        w.open('{');
        w.member("eventId", 138586341 + random.below(1000));
        w.member("id", 339887544 + i);
        w.literal("logo", "null");
        w.literal("name", random.one_in(2) ? "null" : "\"" + words(random, 2) + "\"");
        w.name("prices");
        w.open('[');
        for (int j = random.below(6); j >= 0; j--) {
            w.line();
            w.open('{');
            w.member("amount", 100 * random.below(2000));
            w.member("audienceSubCategoryId", 337100890);
            w.member("seatCategoryId", 338937235 + random.below(60));
            w.close('}');
        }
        w.close(']');
        w.name("seatCategories");
        w.open('[');
        for (int j = random.below(6); j >= 0; j--) {
            w.line();
            w.open('{');
            add_areas(w, random);
            w.member("seatCategoryId", 338937235 + random.below(60));
            w.close('}');
        }
        w.close(']');
        w.literal("seatMapImage", "null");
        w.member("start", 1372701600000 + random.below(1000000));
        w.member("venueCode", "PLEYEL_PLEYEL");
        w.close('}');
    }
    w.close(']');
    w.close('}');
    return w.text;
}

inline std::string degrees(Random &random, int whole) {
    std::string digits = std::to_string(random.next() >> 12);
    return std::to_string(random.below(whole) - whole / 2) + "." + digits.substr(0, 15);
}

// Outlines as pairs of long numbers, compact: nearly every byte belongs to a number.
inline std::string coordinates_document(int points, uint64_t seed) {
    Random random = {seed};
    Writer w = {"", false};
    w.open('{');
    w.member("type", "FeatureCollection");
    w.name("coordinates");
    w.open('[');
    for (int left = points; left > 0;) {
        w.line();
        w.open('[');
        for (int i = 20 + random.below(400); i > 0 && left > 0; i--, left--) {
            w.line();
            w.open('[');
            for (const int whole : {360, 180}) {
                w.line();
                w.text += degrees(random, whole);
            }
            w.close(']');
        }
        w.close(']');
    }
    w.close(']');
    w.close('}');
    return w.text;
}

#endif
