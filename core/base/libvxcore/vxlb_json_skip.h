// SPDX-License-Identifier: Apache-2.0
#ifndef VXLB_JSON_SKIP_H
#define VXLB_JSON_SKIP_H

// Finding the next byte that matters, many bytes at a time.
//
// Each function returns a pointer to the first byte in [p, end) that may matter, or `end`. "May":
// a block test that also stops at a few bytes without meaning is cheaper, and callers look at every
// byte they are given anyway. No byte at or behind `end` is read. Two roads with the same answers up
// to such false stops: SSE2, which every x86-64 has, and plain 64-bit words for the others
// (VXLB_JSON_PORTABLE chooses the words everywhere).

#include <bit>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#    include <emmintrin.h>
#endif

// A quote, a backslash or a zero byte: what ends the plain part of a string.
static inline bool stops_string(char c) {
    return c == '"' || c == '\\' || c == '\0';
}

// What a scan outside strings looks at: these three, the four brackets, and the comma.
static inline bool stops_structure(char c) {
    return stops_string(c) || c == ',' || c == '{' || c == '}' || c == '[' || c == ']';
}

// What ends the plain part of a literal: all of the above, white space and control bytes.
static inline bool stops_literal(char c) {
    return stops_structure(c) || (c >= 0 && c <= ' ');
}

constexpr uint64_t SWAR_ONES = 0x0101010101010101;
constexpr uint64_t SWAR_HIGHS = 0x8080808080808080;

// The high bit of each byte that equals c. Bytes above the lowest such byte may be marked in error.
static inline uint64_t swar_equal(uint64_t word, unsigned char c) {
    const uint64_t x = word ^ (SWAR_ONES * c);
    return (x - SWAR_ONES) & ~x & SWAR_HIGHS;
}

// The high bit of each byte below n (at most 128), with the same errors.
static inline uint64_t swar_below(uint64_t word, unsigned char n) {
    return (word - (SWAR_ONES * n)) & ~word & SWAR_HIGHS;
}

static inline int first_marked_byte(uint64_t marks) {
    if constexpr (std::endian::native == std::endian::little) {
        return std::countr_zero(marks) / 8;
    } else {
        return 0; // the lowest byte is not the first: let the caller look from the word's start
    }
}

static inline const char *skip_string_words(const char *p, const char *end) {
    while (end - p >= 8) {
        uint64_t word = 0;
        memcpy(&word, p, sizeof word);
        const uint64_t marks = swar_equal(word, '"') | swar_equal(word, '\\') | swar_equal(word, 0);
        if (marks != 0) {
            p += first_marked_byte(marks);
            break;
        }
        p += 8;
    }
    while (p < end && !stops_string(*p)) {
        p++;
    }
    return p;
}

static inline uint64_t mark_structure(uint64_t word) {
    const uint64_t folded = word | (SWAR_ONES * 0x20); // [ and {, \ and |, ] and } become one
    return swar_equal(word, '"') | swar_equal(word, ',') | swar_equal(word, 0) |
           swar_equal(folded, '{') | swar_equal(folded, '|') | swar_equal(folded, '}');
}

static inline const char *skip_structure_words(const char *p, const char *end) {
    while (end - p >= 8) {
        uint64_t word = 0;
        memcpy(&word, p, sizeof word);
        const uint64_t marks = mark_structure(word);
        if (marks != 0) {
            p += first_marked_byte(marks);
            break;
        }
        p += 8;
    }
    while (p < end && !stops_structure(*p)) {
        p++;
    }
    return p;
}

static inline const char *skip_literal_words(const char *p, const char *end) {
    while (end - p >= 8) {
        uint64_t word = 0;
        memcpy(&word, p, sizeof word);
        const uint64_t marks = mark_structure(word) | swar_below(word, ' ' + 1);
        if (marks != 0) {
            p += first_marked_byte(marks);
            break;
        }
        p += 8;
    }
    while (p < end && !stops_literal(*p)) {
        p++;
    }
    return p;
}

// White space of the C locale: tab, newline, vertical tab, form feed, carriage return and space.
static inline bool is_json_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Byte by byte, since white space is mostly short; the roads without SSE2 need no more.
static inline const char *skip_blanks_words(const char *p, const char *end) {
    while (p < end && is_json_space(*p)) {
        p++;
    }
    return p;
}

#if defined(__SSE2__)

static inline const char *skip_string_sse2(const char *p, const char *end) {
    const __m128i quote = _mm_set1_epi8('"');
    const __m128i backslash = _mm_set1_epi8('\\');
    for (; end - p >= 16; p += 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const __m128i marks = _mm_or_si128(
            _mm_or_si128(_mm_cmpeq_epi8(block, quote), _mm_cmpeq_epi8(block, backslash)),
            _mm_cmpeq_epi8(block, _mm_setzero_si128()));
        const auto mask = static_cast<unsigned>(_mm_movemask_epi8(marks));
        if (mask != 0) {
            return p + std::countr_zero(mask);
        }
    }
    while (p < end && !stops_string(*p)) {
        p++;
    }
    return p;
}

// Zero and the bytes of stops_structure, "|" with them.
static inline __m128i mark_structure(__m128i block) {
    // Folded, the brackets and the backslash are the three codes from '{' on.
    const __m128i folded = _mm_or_si128(block, _mm_set1_epi8(0x20));
    const __m128i code = _mm_sub_epi8(folded, _mm_set1_epi8('{'));
    const __m128i brackets = _mm_cmpeq_epi8(_mm_min_epu8(code, _mm_set1_epi8(2)), code);
    const __m128i quotes = _mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8('"')),
                                        _mm_cmpeq_epi8(block, _mm_set1_epi8(',')));
    return _mm_or_si128(_mm_or_si128(brackets, quotes), _mm_cmpeq_epi8(block, _mm_setzero_si128()));
}

static inline const char *skip_structure_sse2(const char *p, const char *end) {
    for (; end - p >= 16; p += 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const auto mask = static_cast<unsigned>(_mm_movemask_epi8(mark_structure(block)));
        if (mask != 0) {
            return p + std::countr_zero(mask);
        }
    }
    while (p < end && !stops_structure(*p)) {
        p++;
    }
    return p;
}

static inline const char *skip_literal_sse2(const char *p, const char *end) {
    for (; end - p >= 16; p += 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const __m128i blanks = _mm_cmpeq_epi8(_mm_min_epu8(block, _mm_set1_epi8(' ')), block);
        const auto mask =
            static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(mark_structure(block), blanks)));
        if (mask != 0) {
            return p + std::countr_zero(mask);
        }
    }
    while (p < end && !stops_literal(*p)) {
        p++;
    }
    return p;
}

// Past white space: exact, and meant for the long runs of an indented text.
static inline const char *skip_blanks_sse2(const char *p, const char *end) {
    const __m128i space = _mm_set1_epi8(' ');
    const __m128i tab = _mm_set1_epi8('\t');
    const __m128i four = _mm_set1_epi8(4);
    for (; end - p >= 16; p += 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const __m128i code = _mm_sub_epi8(block, tab);
        const __m128i marks = _mm_or_si128(_mm_cmpeq_epi8(block, space),
                                           _mm_cmpeq_epi8(_mm_min_epu8(code, four), code));
        const auto others = static_cast<unsigned>(_mm_movemask_epi8(marks)) ^ 0xFFFFU;
        if (others != 0) {
            return p + std::countr_zero(others);
        }
    }
    while (p < end && is_json_space(*p)) {
        p++;
    }
    return p;
}

#endif

#if defined(__SSE2__) && !defined(VXLB_JSON_PORTABLE)
#    define FASTEST(skip) skip##_sse2
#else
#    define FASTEST(skip) skip##_words
#endif

static inline const char *skip_blanks(const char *p, const char *end) {
    return FASTEST(skip_blanks)(p, end);
}
static inline const char *skip_string(const char *p, const char *end) {
    return FASTEST(skip_string)(p, end);
}
static inline const char *skip_structure(const char *p, const char *end) {
    return FASTEST(skip_structure)(p, end);
}
static inline const char *skip_literal(const char *p, const char *end) {
    return FASTEST(skip_literal)(p, end);
}

#undef FASTEST

#endif
