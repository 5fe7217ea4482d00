// Stored form of encoded records (see sysdb_schema.h).
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
// glibc's processor record; its header is C and C++ only as GCC reads it.
#if __has_include(<sys/platform/x86.h>) && !defined(__clang__)
#define EVPN_HAVE_LIBC_CPU_FEATURES 1
#include <sys/platform/x86.h>
#endif
#endif

#include "platform/sysdb_schema.h"

namespace sysdb_schema {

namespace {
// Up to 8 bitmap bytes from p as one word, byte i in bits 8i..8i+7; end
// bounds what may be read (a word at once when it lies before end).
uint64_t load_bits(const uint8_t *p, size_t n, const uint8_t *end) {
    uint64_t w = 0;
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    if (end - p >= 8) {
        memcpy(&w, p, 8);
        return n >= 8 ? w : w & ((uint64_t(1) << 8 * n) - 1);
    }
#endif
    for (size_t i = n < 8 ? n : 8; i-- > 0;) w = (w << 8) | p[i];
    return w;
}
#if defined(__x86_64__)
// Four units at a time: the shuffle of group mask m moves the units whose
// bit is set to the front, in order; kept[m] of them.
struct Gathers {
    alignas(16) uint8_t mask[16][16];
    uint8_t kept[16];
    constexpr Gathers() : mask(), kept() {
        for (int m = 0; m < 16; m++) {
            int next = 0;
            for (int k = 0; k < 4; k++)
                if (m >> k & 1) {
                    for (int b = 0; b < 4; b++) mask[m][4 * next + b] = static_cast<uint8_t>(4 * k + b);
                    next++;
                }
            for (int i = 4 * next; i < 16; i++) mask[m][i] = 0x80;
            kept[m] = static_cast<uint8_t>(next);
        }
    }
};
constexpr Gathers kGathers;

// Packs whole groups of eight units: sets each group's bitmap byte and
// writes its nonzero units at w. Writes up to 16 bytes past the last unit it
// keeps, so w needs that much room beyond the packed size. Returns the units
// done (a multiple of 8).
__attribute__((target("ssse3"))) size_t gather_bytes(const uint8_t *in, size_t units, uint8_t *map,
                                                      uint8_t *&w) {
    const size_t whole = units / 8;
    const __m128i zero = _mm_setzero_si128();
    uint8_t *o = w;
    for (size_t b = 0; b < whole; b++, in += 32) {
        const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in));
        const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + 16));
        const unsigned keep_lo =
            ~static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(lo, zero)))) & 15;
        const unsigned keep_hi =
            ~static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(hi, zero)))) & 15;
        map[b] = static_cast<uint8_t>(keep_lo | keep_hi << 4);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(o),
                         _mm_shuffle_epi8(lo, _mm_load_si128(reinterpret_cast<const __m128i *>(
                                                  kGathers.mask[keep_lo]))));
        o += 4 * kGathers.kept[keep_lo];
        _mm_storeu_si128(reinterpret_cast<__m128i *>(o),
                         _mm_shuffle_epi8(hi, _mm_load_si128(reinterpret_cast<const __m128i *>(
                                                  kGathers.mask[keep_hi]))));
        o += 4 * kGathers.kept[keep_hi];
    }
    w = o;
    return 8 * whole;
}

// From the C library's own record of the processor where it has one: the
// compiler's probe runs cpuid a dozen times at start-up, each a trap to the
// hypervisor on a virtual machine (6 us here).
#ifdef EVPN_HAVE_LIBC_CPU_FEATURES
const bool kHaveSsse3 = CPU_FEATURE_ACTIVE(SSSE3);
#else
const bool kHaveSsse3 = __builtin_cpu_supports("ssse3");
#endif
#endif
bool g_unpack_vectors = true;  // off only in tests that hold the vector path to the plain one

}  // namespace

void pack_record(const void *data, size_t len, std::string &out) {
    const uint8_t *p = static_cast<const uint8_t *>(data);
    for (size_t n = len;; n >>= 7) {
        out.push_back(static_cast<char>((n & 0x7f) | (n >= 0x80 ? 0x80 : 0)));
        if (n < 0x80) break;
    }
    const size_t units = len / 4, map_len = (units + 7) / 8, at = out.size();
    // At most this, and room for the last 16-byte store; cut to what is written.
    out.resize(at + map_len + len + 16);
    uint8_t *map = reinterpret_cast<uint8_t *>(out.data() + at), *w = map + map_len;
    size_t done = 0;
#if defined(__x86_64__)
    if (kHaveSsse3) done = gather_bytes(p, units, map, w);
#endif
    for (size_t i = done; i < units; i++) {
        uint32_t u;
        memcpy(&u, p + 4 * i, 4);
        if (!u) continue;
        map[i / 8] = static_cast<uint8_t>(map[i / 8] | (1u << (i % 8)));
        memcpy(w, &u, 4);
        w += 4;
    }
    memcpy(w, p + 4 * units, len % 4);
    w += len % 4;
    out.resize(static_cast<size_t>(w - reinterpret_cast<uint8_t *>(out.data())));
}

namespace {
// The record's length at the head of its packed form, p moved past it; false
// when there is none. Records of 128 bytes to 16 KiB (two bytes) first.
bool read_length(const uint8_t *&p, const uint8_t *end, size_t &n) {
    if (end - p >= 2 && (p[0] & 0x80) && !(p[1] & 0x80)) {
        n = static_cast<size_t>(p[0] & 0x7f) | static_cast<size_t>(p[1]) << 7;
        p += 2;
        return true;
    }
    n = 0;
    for (int shift = 0;; shift += 7) {
        if (p == end || shift > 28) return false;
        n |= static_cast<size_t>(*p & 0x7f) << shift;
        if (!(*p++ & 0x80)) return true;
    }
}
}  // namespace

size_t unpacked_size(const void *data, size_t len, size_t max_len) {
    const uint8_t *p = static_cast<const uint8_t *>(data);
    size_t n;
    return read_length(p, p + len, n) && n <= max_len ? n : 0;
}

namespace {

#if defined(__x86_64__)
// For each half of a bitmap byte, the shuffle that moves the next stored
// units into the slots of its set bits and zeroes the others, and the bytes
// of the units it takes.
struct Nibbles {
    alignas(16) uint8_t mask[16][16];
    uint8_t bytes[16];
    constexpr Nibbles() : mask(), bytes() {
        for (int m = 0; m < 16; m++) {
            int next = 0;
            for (int k = 0; k < 4; k++) {
                for (int b = 0; b < 4; b++)
                    mask[m][4 * k + b] = (m >> k & 1) ? static_cast<uint8_t>(4 * next + b) : 0x80;
                next += m >> k & 1;
            }
            bytes[m] = static_cast<uint8_t>(4 * next);
        }
    }
};
constexpr Nibbles kNibbles;

// Whole groups of eight units from the first, while 32 bytes are left to
// read (at least 32 are at the call; whatever the bitmap claims, nothing past
// end is read): two shuffles of the next stored bytes put a bitmap byte's
// units in their slots, and every slot of the group is written (zero bytes
// too: no branch). Returns the groups done; unit moves past their units.
// SSSE3, not AVX2: with 256-bit permutations a short listing ran up to
// 100 us slower in some timed runs, more than their instructions save.
__attribute__((target("ssse3"))) size_t expand_groups(const uint8_t *map, size_t units, const uint8_t *&unit,
                                                      const uint8_t *end, char *o) {
    const uint8_t *in = unit, *group = map;
    for (const uint8_t *const last = end - 32, *const stop = map + units / 8; group < stop && in <= last;
         group++, o += 32) {
        const unsigned lo = *group & 15u, hi = *group >> 4;
        _mm_storeu_si128(reinterpret_cast<__m128i *>(o),
                         _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(in)),
                                          _mm_load_si128(reinterpret_cast<const __m128i *>(kNibbles.mask[lo]))));
        in += kNibbles.bytes[lo];
        _mm_storeu_si128(reinterpret_cast<__m128i *>(o + 16),
                         _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(in)),
                                          _mm_load_si128(reinterpret_cast<const __m128i *>(kNibbles.mask[hi]))));
        in += kNibbles.bytes[hi];
    }
    unit = in;
    return static_cast<size_t>(group - map);
}
#endif

// The record's n bytes from the bitmap map and the stored units at unit
// into o (zeroed): by vectors where they are taken, the rest one set bit at
// a time. False when what is left after the bitmap is not one stored unit
// per set bit and the bytes past the last whole unit, no more and no fewer.
template <bool Vectors>
__attribute__((always_inline)) inline bool expand(const uint8_t *map, size_t n, const uint8_t *unit,
                                                  const uint8_t *end, char *o) {
    const size_t units = n / 4, map_len = (units + 7) / 8;
    size_t b = 0;
#if defined(__x86_64__)
    if constexpr (Vectors) {
        if (end - unit >= 32) b = expand_groups(map, units, unit, end, o);  // not for a short record
    }
#else
    static_assert(!Vectors, "no vector expansion on this processor");
#endif
    for (size_t i = b; i < map_len; i += 8) {
        for (uint64_t bits = load_bits(map + i, map_len - i, end); bits; bits &= bits - 1) {
            if (end - unit < 4) return false;
            memcpy(o + 4 * (8 * i + static_cast<size_t>(__builtin_ctzll(bits))), unit, 4);
            unit += 4;
        }
    }
    if (static_cast<size_t>(end - unit) != n % 4) return false;
    for (size_t k = 0; k < n % 4; k++) o[4 * units + k] = static_cast<char>(unit[k]);
    return true;
}

template <bool Vectors>
__attribute__((always_inline)) inline bool unpack(const uint8_t *p, const uint8_t *end, size_t max_len,
                                                  std::string &out) {
    size_t n;
    if (!read_length(p, end, n) || n > max_len) return false;
    const size_t units = n / 4, map_len = (units + 7) / 8;
    if (static_cast<size_t>(end - p) < map_len) return false;
    const uint8_t *map = p;
    if (units % 8 && map[map_len - 1] >> (units % 8)) return false;  // a bit past the last unit
    const size_t start = out.size();
    out.resize(start + n);  // zero-filled: the units not stored stay zero
    if (!expand<Vectors>(map, n, p + map_len, end, out.data() + start)) {
        out.resize(start);
        return false;
    }
    return true;
}

#if defined(__x86_64__)
__attribute__((target("ssse3"))) bool unpack_vectors(const uint8_t *p, const uint8_t *end, size_t max_len,
                                                            std::string &out) {
    return unpack<true>(p, end, max_len, out);
}
#endif

}  // namespace

bool unpack_record(const void *data, size_t len, size_t max_len, std::string &out) {
    const uint8_t *p = static_cast<const uint8_t *>(data);
#if defined(__x86_64__)
    if (kHaveSsse3 && g_unpack_vectors) return unpack_vectors(p, p + len, max_len, out);
#endif
    return unpack<false>(p, p + len, max_len, out);
}

void unpack_use_vectors(bool on) { g_unpack_vectors = on; }

}  // namespace sysdb_schema
