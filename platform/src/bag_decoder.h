// The decoder's and the encoder's state and their per-field steps, shared by
// the generic walk of a description (bag.cpp) and the decoders and encoders
// generated from each record type's field list (bag_types.cpp). Every
// decoding step checks the bytes left before it reads (a generated decoder
// once for a run of fixed-size fields) and names what went wrong.
#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/bag.h"
#include "platform/cerr.h"
#include "platform/formatters.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "units are swapped from big-endian");

// Strings and arrays of the record being decoded. bag_free_indirections()
// resets it for the next record, so a walk that decodes a million records
// into one buffer allocates nothing per record once it has grown to the
// largest record's size.
struct BagArena {
    static constexpr size_t kFirstChunk = 8 * 1024;
    static constexpr size_t kKeepChunk = 256 * 1024;  // larger chunks are freed on reset

    std::vector<char *> chunks;
    char *cur = nullptr;  // chunks.back(), null when there is none
    size_t cur_size = 0;  // size of chunks.back()
    size_t cur_used = 0;
    size_t used = 0;      // bytes counted towards BAG_MAX_INNER since the last reset

    // n (> 0) bytes at align, counted as counted bytes towards the record's limit.
    __attribute__((always_inline)) void *alloc(size_t n, size_t align, size_t counted) {
        size_t at = (cur_used + align - 1) & ~(align - 1);
        if (__builtin_expect(at + n > cur_size, 0)) return grow(n, counted);
        cur_used = at + n;
        used += counted;
        return cur + at;
    }
    void *alloc(size_t n, size_t align) { return alloc(n, align, n); }
    void *grow(size_t n, size_t counted);
    // Keeps one chunk (the last, largest) unless it is over the keep size.
    void reset() {
        if (chunks.size() == 1 && cur_size <= kKeepChunk) cur_used = used = 0;
        else reset_chunks();
    }
    void reset_chunks();
    void release();
};

// Kinds that take one unit and decode to an integer: most fields of a record.
constexpr uint32_t kBagUnitKinds = 1u << int(BagKind::U8) | 1u << int(BagKind::U16) |
                                   1u << int(BagKind::U32) | 1u << int(BagKind::S32) |
                                   1u << int(BagKind::BOOL);
constexpr bool bag_is_unit(BagKind k) { return (kBagUnitKinds >> int(k)) & 1; }

// Encoded bytes of a scalar kind whose encoding has one size; 0 for strings.
constexpr uint32_t bag_wire_size(BagKind k) {
    switch (k) {
    case BagKind::U8: case BagKind::U16: case BagKind::U32: case BagKind::S32:
    case BagKind::BOOL: return 4;
    case BagKind::U64: return 8;
    case BagKind::IP: return 16;
    case BagKind::MAC: return 8;
    case BagKind::ESI: case BagKind::RD: case BagKind::RT: return 12;
    default: return 0;
    }
}

inline uint32_t bag_load_be32(const uint8_t *p) {
    uint32_t v;
    memcpy(&v, p, 4);
    return __builtin_bswap32(v);
}

// Decodes one scalar of fixed-size kind K from src, whose bytes the caller
// has checked are there: only the value checks of the kind are left.
template <BagKind K>
__attribute__((always_inline)) inline uint32_t bag_fixed_at(const uint8_t *src, uint8_t *out) {
    if constexpr (bag_is_unit(K)) {
        const uint32_t v = bag_load_be32(src);
        if constexpr (K == BagKind::U8) {
            if (v > 0xff) return BAG_ERR_VALUE;
            *out = static_cast<uint8_t>(v);
        } else if constexpr (K == BagKind::U16) {
            if (v > 0xffff) return BAG_ERR_VALUE;
            const uint16_t h = static_cast<uint16_t>(v);
            memcpy(out, &h, 2);
        } else {
            memcpy(out, &v, 4);
        }
    } else if constexpr (K == BagKind::U64) {
        const uint64_t v = uint64_t(bag_load_be32(src)) << 32 | bag_load_be32(src + 4);
        memcpy(out, &v, 8);
    } else if constexpr (K == BagKind::IP) {
        memcpy(out, src, 16);
    } else if constexpr (K == BagKind::MAC) {
        // Six bytes and two of padding, which must be zero.
        uint64_t w;
        memcpy(&w, src, 8);
        if (w >> 48) return BAG_ERR_VALUE;
        memcpy(out, src, 6);
    } else if constexpr (K == BagKind::ESI) {
        uint16_t pad;
        memcpy(&pad, src + 10, 2);
        if (pad) return BAG_ERR_VALUE;
        memcpy(out, src, 10);
    } else if constexpr (K == BagKind::RD || K == BagKind::RT) {
        l2vpn_bag_rd_t v;
        v.format = bag_load_be32(src);
        memcpy(v.value, src + 4, 8);
        memcpy(out, &v, sizeof v);
    } else {
        static_assert(bag_wire_size(K) != 0, "not a fixed-size kind");
    }
    return 0;
}

struct BagDecodeState {
    const uint8_t *p;
    const uint8_t *end;
    BagArena &arena;

    size_t left() const { return static_cast<size_t>(end - p); }
    bool need(size_t n) const { return left() >= n; }
    uint32_t u32() {
        uint32_t v = bag_load_be32(p);
        p += 4;
        return v;
    }

    __attribute__((always_inline)) uint32_t unit(BagKind k, uint8_t *out) {
        if (!need(4)) return BAG_ERR_TRUNCATED;
        uint32_t v = u32();
        if (k == BagKind::U8) {
            if (v > 0xff) return BAG_ERR_VALUE;
            *out = static_cast<uint8_t>(v);
        } else if (k == BagKind::U16) {
            if (v > 0xffff) return BAG_ERR_VALUE;
            uint16_t h = static_cast<uint16_t>(v);
            memcpy(out, &h, 2);
        } else {
            memcpy(out, &v, 4);
        }
        return 0;
    }

    // Opaque bytes (IP, MAC): N bytes, then zero padding to a unit.
    template <size_t N>
    __attribute__((always_inline)) uint32_t opaque(uint8_t *out) {
        constexpr size_t kPadded = (N + 3) & ~size_t(3);
        if (!need(kPadded)) return BAG_ERR_TRUNCATED;
        memcpy(out, p, N);
        for (size_t i = N; i < kPadded; i++)
            if (p[i]) return BAG_ERR_VALUE;
        p += kPadded;
        return 0;
    }

    // A string (an optional one when Opt: a present word first) into the
    // arena: its length, its bytes, zero padding to a unit; text only.
    template <bool Opt>
    __attribute__((always_inline)) uint32_t text(uint8_t *out) {
        if constexpr (Opt) {
            if (!need(4)) return BAG_ERR_TRUNCATED;
            const uint32_t present = u32();
            if (present > 1) return BAG_ERR_VALUE;
            if (!present) {
                memset(out, 0, sizeof(char *));
                return 0;
            }
        }
        if (!need(4)) return BAG_ERR_TRUNCATED;
        const uint32_t len = bag_load_be32(p);
        if (len > BAG_MAX_STRING) return BAG_ERR_VALUE;
        const size_t padded = (size_t(len) + 3) & ~size_t(3);
        if (!need(4 + padded)) return BAG_ERR_TRUNCATED;
        const uint8_t *src = p + 4;
        // The padding is zeros, as for opaque data: the high bytes of the last unit.
        if (len & 3) {
            uint32_t last;
            memcpy(&last, src + padded - 4, 4);
            if (last >> 8 * (len & 3)) return BAG_ERR_VALUE;
        }
        if (arena.used + len + 1 > BAG_MAX_INNER) {
            // A text fault comes first, as the full check finds it first.
            return text_ok(src, len) ? BAG_ERR_TOO_BIG : BAG_ERR_TEXT;
        }
        // Copied in words, the last of which reaches into the padding (zeros),
        // never past it: the arena holds the string to its last word's end
        // (no more than its encoded size), or its NUL when that is further.
        const size_t room = len & 7 ? (size_t(len) + 7) & ~size_t(7) : size_t(len) + 1;
        char *s = static_cast<char *>(arena.alloc(room, 1, size_t(len) + 1));
        if (!s) return text_ok(src, len) ? BAG_ERR_NOMEM : BAG_ERR_TEXT;
        constexpr uint64_t kOnes = 0x0101010101010101ull, kHigh = 0x8080808080808080ull;
        // The high bit of each byte that is not printable ASCII: set from
        // 0x80 on, and else (no carry between bytes then) below 0x20 by the
        // sum with 0x60, DEL by the sum with 1. Anything flagged goes to the
        // full check, which takes UTF-8.
        auto odd = [](uint64_t w) { return (w | (w + kOnes) | ~(w + 0x60 * kOnes)) & kHigh; };
        uint64_t bad = 0;
        size_t at = 0;
        for (uint64_t w; at + 8 <= len; at += 8) {
            memcpy(&w, src + at, 8);
            bad |= odd(w);
            memcpy(s + at, &w, 8);
        }
        if (const size_t tail = len - at) {
            // The rest with its padding, one unit or two; only the string's
            // bytes count (a carry runs up, into the padding, not down).
            uint64_t w = 0;
            if (tail > 4) memcpy(&w, src + at, 8);
            else memcpy(&w, src + at, 4);
            memcpy(s + at, &w, 8);
            bad |= odd(w) & ((uint64_t(1) << 8 * tail) - 1);
        }
        s[len] = '\0';
        if (__builtin_expect(bad != 0, 0) && !text_ok(src, len)) return BAG_ERR_TEXT;
        p = src + padded;
        memcpy(out, &s, sizeof s);
        return 0;
    }
    // The full text check (UTF-8, no control characters).
    static bool text_ok(const uint8_t *s, size_t len);

    uint32_t scalar(BagKind k, uint8_t *out);
    // A count, then that many elements of kind elem (records of sub).
    uint32_t array(BagKind elem, const BagDesc *sub, uint8_t *out, int depth);
    // A sub-record at nesting depth: by its generated decoder when it has one.
    uint32_t record(const BagDesc *d, uint8_t *out, int depth);
    // The same by walking the description.
    uint32_t walk(const BagDesc *d, uint8_t *out, int depth) {
        return walk_fields(d, 0, d->nfields, out, depth);
    }
    // Fields [first, last) of d by walking the description.
    uint32_t walk_fields(const BagDesc *d, uint32_t first, uint32_t last, uint8_t *out, int depth);
};

constexpr size_t bag_pad4(size_t n) { return (n + 3) & ~size_t(3); }

// Bytes of one decoded scalar of kind k in a record; 0 for other kinds.
constexpr uint32_t bag_scalar_size(BagKind k) {
    switch (k) {
    case BagKind::U8: return 1;
    case BagKind::U16: return 2;
    case BagKind::U32: case BagKind::S32: case BagKind::BOOL: return 4;
    case BagKind::U64: return 8;
    case BagKind::IP: return 16;
    case BagKind::MAC: return 6;
    case BagKind::ESI: return 10;
    case BagKind::RD: case BagKind::RT: return sizeof(l2vpn_bag_rd_t);
    case BagKind::STR: case BagKind::OPTSTR: return sizeof(char *);
    default: return 0;
    }
}

// ---- Encoder ----------------------------------------------------------------

// The encoding written through a pointer into the caller's string, which
// grows by doubling and is cut to what was written at the end: a string
// append per unit cost more than the rest of the encoder.
struct BagEncodeOut {
    std::string &s;
    size_t n;  // bytes of s written
    char *room(size_t k) {
        if (s.size() - n < k) grow(k);
        char *p = s.data() + n;
        n += k;
        return p;
    }
    __attribute__((noinline)) void grow(size_t k) { s.resize(std::max(2 * s.size(), n + k + 256)); }
    void append(const void *p, size_t k) { memcpy(room(k), p, k); }
    void zeros(size_t k) { memset(room(k), 0, k); }
    size_t size() const { return n; }
};

inline void bag_put32(BagEncodeOut &out, uint32_t v) {
    char *b = out.room(4);
    b[0] = char(v >> 24);
    b[1] = char(v >> 16);
    b[2] = char(v >> 8);
    b[3] = char(v);
}

// What the encoder has made so far of one record: the decoder's inner bytes
// it will take, checked against the same limit.
struct BagEncodeState {
    BagEncodeOut out;
    size_t inner = 0;
    bool take(size_t n) { return (inner += n) <= BAG_MAX_INNER; }
};

// The encoding of one scalar of fixed-size kind K: its bag_wire_size bytes at
// dst (the walk and the generated encoders both write them here).
template <BagKind K>
__attribute__((always_inline)) inline void bag_fixed_put(uint8_t *dst, const uint8_t *in) {
    auto be32 = [](uint8_t *d, uint32_t v) {
        v = __builtin_bswap32(v);
        memcpy(d, &v, 4);
    };
    if constexpr (K == BagKind::U8) {
        be32(dst, *in);
    } else if constexpr (K == BagKind::U16) {
        uint16_t v;
        memcpy(&v, in, 2);
        be32(dst, v);
    } else if constexpr (K == BagKind::U32 || K == BagKind::S32 || K == BagKind::BOOL) {
        uint32_t v;
        memcpy(&v, in, 4);
        be32(dst, v);
    } else if constexpr (K == BagKind::U64) {
        uint64_t v;
        memcpy(&v, in, 8);
        be32(dst, uint32_t(v >> 32));
        be32(dst + 4, uint32_t(v));
    } else if constexpr (K == BagKind::IP || K == BagKind::MAC || K == BagKind::ESI) {
        constexpr size_t n = bag_scalar_size(K);
        memcpy(dst, in, n);
        if constexpr (bag_pad4(n) > n) memset(dst + n, 0, bag_pad4(n) - n);
    } else {
        static_assert(K == BagKind::RD || K == BagKind::RT);
        l2vpn_bag_rd_t v;
        memcpy(&v, in, sizeof v);
        be32(dst, v.format);
        memcpy(dst + 4, v.value, 8);
    }
}

// One scalar of fixed-size kind K appended to out.
template <BagKind K>
__attribute__((always_inline)) inline uint32_t bag_put_fixed(BagEncodeOut &out, const uint8_t *in) {
    bag_fixed_put<K>(reinterpret_cast<uint8_t *>(out.room(bag_wire_size(K))), in);
    return 0;
}

// Inlined: it runs once per scalar of every record a loader stores.
__attribute__((always_inline)) inline uint32_t bag_encode_scalar(BagKind k, const uint8_t *in, BagEncodeState &st) {
    BagEncodeOut &out = st.out;
    switch (k) {
    case BagKind::U8: return bag_put_fixed<BagKind::U8>(out, in);
    case BagKind::U16: return bag_put_fixed<BagKind::U16>(out, in);
    case BagKind::U32: return bag_put_fixed<BagKind::U32>(out, in);
    case BagKind::S32: return bag_put_fixed<BagKind::S32>(out, in);
    case BagKind::BOOL: return bag_put_fixed<BagKind::BOOL>(out, in);
    case BagKind::U64: return bag_put_fixed<BagKind::U64>(out, in);
    case BagKind::IP: return bag_put_fixed<BagKind::IP>(out, in);
    case BagKind::MAC: return bag_put_fixed<BagKind::MAC>(out, in);
    case BagKind::ESI: return bag_put_fixed<BagKind::ESI>(out, in);
    case BagKind::RD: return bag_put_fixed<BagKind::RD>(out, in);
    case BagKind::RT: return bag_put_fixed<BagKind::RT>(out, in);
    case BagKind::STR: case BagKind::OPTSTR: {
        const char *s;
        memcpy(&s, in, sizeof s);
        if (k == BagKind::OPTSTR) {
            bag_put32(out, s ? 1 : 0);
            if (!s) return 0;
        }
        size_t len = s ? strlen(s) : 0;
        if (len > BAG_MAX_STRING) return BAG_ERR_VALUE;
        uint32_t cp;
        if (bag_text_bad_at(s, len, &cp) != len) return BAG_ERR_TEXT;
        if (!st.take(len + 1)) return BAG_ERR_TOO_BIG;
        bag_put32(out, static_cast<uint32_t>(len));
        out.append(s ? s : "", len);
        out.zeros(bag_pad4(len) - len);
        return 0;
    }
    default:
        return BAG_ERR_VALUE;
    }
}

// ---- Generated decoders ---------------------------------------------------
//
// A record type's field list becomes a list of steps, one per field, that
// know at compile time their field's place in the struct and, for a field
// of one encoded size (a scalar other than a string, or a sub-record made of
// such), that size. A run of such fields is read after one check that its
// bytes are all there; a run that is cut short is decoded again by walking
// its fields one at a time, which finds the same fault the per-field checks
// always found. Sub-records are decoded inline by their own steps, and every
// byte of a decoded struct is written (the gaps between fields with zeros),
// so that a record needs no clearing first.
namespace bag_gen {

template <class T> struct Steps;  // specialised per record type in bag_types.cpp

template <BagKind K, size_t Off> struct F;
template <class T, size_t Off> struct S;
template <BagKind K, size_t Off> struct A;
template <class T, size_t Off> struct AS;
template <class T, size_t Off, size_t N> struct FS;

template <class... St>
struct List {
    static constexpr size_t n = sizeof...(St);
    // Bounds written out: a compiler may not index an array of deduced bound
    // in a constant expression of a template.
    static constexpr uint32_t wire[n + 1] = {St::wire..., 0};  // 0: size read from the data
    static constexpr uint32_t off[n + 1] = {uint32_t(St::off)..., 0};
    static constexpr uint32_t size[n + 1] = {uint32_t(St::size)..., 0};
    static constexpr uint32_t min_encoded_sum = (0 + ... + St::min_encoded);
    template <size_t I> using At = std::tuple_element_t<I, std::tuple<St...>>;
    static constexpr size_t run_end(size_t i) {
        while (i < n && wire[i]) i++;
        return i;
    }
    static constexpr uint32_t run_bytes(size_t i, size_t e) {
        uint32_t b = 0;
        for (; i < e; i++) b += wire[i];
        return b;
    }
    static constexpr bool all_fixed = run_end(0) == n;
};

template <class T> using StepsOf = typename Steps<T>::list;

// Fewest encoded bytes of a T (as bag_min_encoded of its description).
template <class T>
constexpr uint32_t min_encoded() {
    return StepsOf<T>::min_encoded_sum ? StepsOf<T>::min_encoded_sum : 4;
}
// Encoded bytes of a T when every field has one size, else 0.
template <class T>
constexpr uint32_t wire_of() {
    using L = StepsOf<T>;
    return L::all_fixed ? L::run_bytes(0, L::n) : 0;
}

// Zeros the bytes of T between field I-1 and field I (I == n: after the last).
template <class T, size_t I>
__attribute__((always_inline)) inline void zero_gap(uint8_t *rec) {
    using L = StepsOf<T>;
    constexpr uint32_t from = I ? L::off[I - 1] + L::size[I - 1] : 0u;
    constexpr uint32_t to = I < L::n ? L::off[I] : uint32_t(sizeof(T));
    if constexpr (to > from) memset(rec + from, 0, to - from);
}
template <class T, size_t... I>
__attribute__((always_inline)) inline void zero_gaps(uint8_t *rec, std::index_sequence<I...>) {
    (zero_gap<T, I>(rec), ...);
}
template <class T>
__attribute__((always_inline)) inline void zero_gaps(uint8_t *rec) {
    zero_gaps<T>(rec, std::make_index_sequence<StepsOf<T>::n + 1>());
}

// Steps [I, E) of L, all of one size, from src.
template <class L, size_t I, size_t E>
__attribute__((always_inline)) inline uint32_t run_at(const uint8_t *src, uint8_t *rec, int depth) {
    if constexpr (I == E) {
        return 0;
    } else {
        if (uint32_t rc = L::template At<I>::at(src, rec, depth)) return rc;
        return run_at<L, I + 1, E>(src + L::wire[I], rec, depth);
    }
}

// A whole T, every field of one size, from src (its bytes checked).
template <class T>
__attribute__((always_inline)) inline uint32_t record_at(const uint8_t *src, uint8_t *out, int depth) {
    if (depth > static_cast<int>(BAG_MAX_DEPTH)) return BAG_ERR_DEPTH;
    zero_gaps<T>(out);
    return run_at<StepsOf<T>, 0, StepsOf<T>::n>(src, out, depth);
}

// Steps [I, n) of T's list.
template <class T, size_t I>
__attribute__((always_inline)) inline uint32_t decode_from(BagDecodeState &d, uint8_t *rec, int depth) {
    using L = StepsOf<T>;
    if constexpr (I == L::n) {
        return 0;
    } else if constexpr (L::wire[I] == 0) {
        if (uint32_t rc = L::template At<I>::decode(d, rec, depth)) return rc;
        return decode_from<T, I + 1>(d, rec, depth);
    } else {
        constexpr size_t E = L::run_end(I);
        constexpr uint32_t bytes = L::run_bytes(I, E);
        if (__builtin_expect(d.need(bytes), 1)) {
            if (uint32_t rc = run_at<L, I, E>(d.p, rec, depth)) return rc;
            d.p += bytes;
        } else if (uint32_t rc = d.walk_fields(Steps<T>::desc(), I, E, rec, depth)) {
            return rc;
        }
        return decode_from<T, E>(d, rec, depth);
    }
}

// A whole T at nesting depth.
template <class T>
__attribute__((always_inline)) inline uint32_t decode_record(BagDecodeState &d, uint8_t *out, int depth) {
    if (depth > static_cast<int>(BAG_MAX_DEPTH)) return BAG_ERR_DEPTH;
    zero_gaps<T>(out);
    return decode_from<T, 0>(d, out, depth);
}

// The decoder a description points at.
template <class T>
uint32_t decode_entry(BagDecodeState &d, uint8_t *out, int depth) {
    return decode_record<T>(d, out, depth);
}

// ---- Generated encoders ---------------------------------------------------
//
// The same steps write a record's encoding: a run of fixed-size fields takes
// its room in the output once, and each of its fields writes its bytes at a
// place known at compile time. Strings and arrays are encoded one at a time
// with the walk's checks, in its order, so that a record fails as the walk
// fails it.

// Steps [I, E) of L, all of one size, written from dst on.
template <class L, size_t I, size_t E>
__attribute__((always_inline)) inline uint32_t put_run(uint8_t *dst, const uint8_t *rec, int depth) {
    if constexpr (I == E) {
        return 0;
    } else {
        if (uint32_t rc = L::template At<I>::put(dst, rec, depth)) return rc;
        return put_run<L, I + 1, E>(dst + L::wire[I], rec, depth);
    }
}

// A whole T, every field of one size, written at dst (its room taken).
template <class T>
__attribute__((always_inline)) inline uint32_t record_put(uint8_t *dst, const uint8_t *rec, int depth) {
    if (depth > static_cast<int>(BAG_MAX_DEPTH)) return BAG_ERR_DEPTH;
    return put_run<StepsOf<T>, 0, StepsOf<T>::n>(dst, rec, depth);
}

// Steps [I, n) of T's list.
template <class T, size_t I>
__attribute__((always_inline)) inline uint32_t encode_from(BagEncodeState &st, const uint8_t *rec, int depth) {
    using L = StepsOf<T>;
    if constexpr (I == L::n) {
        return 0;
    } else if constexpr (L::wire[I] == 0) {
        if (uint32_t rc = L::template At<I>::encode(st, rec, depth)) return rc;
        return encode_from<T, I + 1>(st, rec, depth);
    } else {
        constexpr size_t E = L::run_end(I);
        auto *dst = reinterpret_cast<uint8_t *>(st.out.room(L::run_bytes(I, E)));
        if (uint32_t rc = put_run<L, I, E>(dst, rec, depth)) return rc;
        return encode_from<T, E>(st, rec, depth);
    }
}

// A whole T at nesting depth.
template <class T>
__attribute__((always_inline)) inline uint32_t encode_rec(BagEncodeState &st, const uint8_t *rec, int depth) {
    if (depth > static_cast<int>(BAG_MAX_DEPTH)) return BAG_ERR_DEPTH;
    return encode_from<T, 0>(st, rec, depth);
}

// The encoder a description points at.
template <class T>
uint32_t encode_entry(BagEncodeState &st, const uint8_t *rec, int depth) {
    return encode_rec<T>(st, rec, depth);
}

// Stores an array with its padding zeroed, so that the struct is whole.
inline void put_array(uint8_t *out, uint32_t count, void *data) {
    const uint64_t c = count;
    memcpy(out, &c, 8);
    memcpy(out + 8, &data, sizeof data);
    static_assert(sizeof(bag_array<uint8_t>) == 16 && offsetof(bag_array<uint8_t>, data) == 8);
}

// The count of an array and its elements' space: what array() checks, in its order.
template <size_t Es, size_t Align>
__attribute__((always_inline)) inline uint32_t array_head(BagDecodeState &d, uint32_t min_enc,
                                                          uint32_t &count, uint8_t *&elems) {
    if (!d.need(4)) return BAG_ERR_TRUNCATED;
    count = d.u32();
    elems = nullptr;
    if (count > d.left() / min_enc) return BAG_ERR_COUNT;
    if (!count) return 0;
    const size_t bytes = size_t(count) * Es;
    if (d.arena.used + bytes > BAG_MAX_INNER) return BAG_ERR_TOO_BIG;
    elems = static_cast<uint8_t *>(d.arena.alloc(bytes, Align));
    if (!elems) return BAG_ERR_NOMEM;
    return 0;
}

// An empty array (a zero count, the most common one) taken inline: true
// when it was; else the array's own step reads the count again.
__attribute__((always_inline)) inline bool empty_array(BagDecodeState &d, uint8_t *out) {
    uint32_t count;
    if (!d.need(4)) return false;
    memcpy(&count, d.p, 4);
    if (count) return false;
    d.p += 4;
    put_array(out, 0, nullptr);
    return true;
}

template <BagKind K, size_t Off>
struct F {
    static constexpr uint32_t wire = bag_wire_size(K);
    static constexpr size_t off = Off;
    static constexpr size_t size = bag_scalar_size(K);
    static constexpr uint32_t min_encoded = bag_min_encoded(K, nullptr);
    __attribute__((always_inline)) static uint32_t at(const uint8_t *src, uint8_t *rec, int) {
        return bag_fixed_at<K>(src, rec + Off);
    }
    __attribute__((always_inline)) static uint32_t decode(BagDecodeState &d, uint8_t *rec, int) {
        static_assert(K == BagKind::STR || K == BagKind::OPTSTR);
        return d.text<K == BagKind::OPTSTR>(rec + Off);
    }
    __attribute__((always_inline)) static uint32_t put(uint8_t *dst, const uint8_t *rec, int) {
        bag_fixed_put<K>(dst, rec + Off);
        return 0;
    }
    __attribute__((always_inline)) static uint32_t encode(BagEncodeState &st, const uint8_t *rec, int) {
        return bag_encode_scalar(K, rec + Off, st);
    }
};

template <class T, size_t Off>
struct S {
    static constexpr uint32_t wire = wire_of<T>();
    static constexpr size_t off = Off, size = sizeof(T);
    static constexpr uint32_t min_encoded = bag_gen::min_encoded<T>();
    __attribute__((always_inline)) static uint32_t at(const uint8_t *src, uint8_t *rec, int depth) {
        return record_at<T>(src, rec + Off, depth + 1);
    }
    __attribute__((always_inline)) static uint32_t decode(BagDecodeState &d, uint8_t *rec, int depth) {
        return decode_record<T>(d, rec + Off, depth + 1);
    }
    __attribute__((always_inline)) static uint32_t put(uint8_t *dst, const uint8_t *rec, int depth) {
        return record_put<T>(dst, rec + Off, depth + 1);
    }
    __attribute__((always_inline)) static uint32_t encode(BagEncodeState &st, const uint8_t *rec, int depth) {
        return encode_rec<T>(st, rec + Off, depth + 1);
    }
};

template <class T, size_t Off, size_t N>
struct FS {
    static constexpr uint32_t wire = wire_of<T>() * N;
    static constexpr size_t off = Off, size = sizeof(T) * N;
    static constexpr uint32_t min_encoded = bag_gen::min_encoded<T>() * N;
    __attribute__((always_inline)) static uint32_t at(const uint8_t *src, uint8_t *rec, int depth) {
        for (size_t e = 0; e < N; e++)
            if (uint32_t rc = record_at<T>(src + e * wire_of<T>(), rec + Off + e * sizeof(T), depth + 1))
                return rc;
        return 0;
    }
    __attribute__((always_inline)) static uint32_t decode(BagDecodeState &d, uint8_t *rec, int depth) {
        for (size_t e = 0; e < N; e++)
            if (uint32_t rc = decode_record<T>(d, rec + Off + e * sizeof(T), depth + 1)) return rc;
        return 0;
    }
    __attribute__((always_inline)) static uint32_t put(uint8_t *dst, const uint8_t *rec, int depth) {
        for (size_t e = 0; e < N; e++)
            if (uint32_t rc = record_put<T>(dst + e * wire_of<T>(), rec + Off + e * sizeof(T), depth + 1))
                return rc;
        return 0;
    }
    __attribute__((always_inline)) static uint32_t encode(BagEncodeState &st, const uint8_t *rec, int depth) {
        for (size_t e = 0; e < N; e++)
            if (uint32_t rc = encode_rec<T>(st, rec + Off + e * sizeof(T), depth + 1)) return rc;
        return 0;
    }
};

// What both array steps are: a count on the wire (its size read from the
// data), an array header in the record, an empty array taken inline and the
// elements by the step's own elements().
template <class Step, size_t Off>
struct ArrayStep {
    static constexpr uint32_t wire = 0;
    static constexpr size_t off = Off, size = sizeof(bag_array<uint8_t>);
    static constexpr uint32_t min_encoded = 4;
    __attribute__((always_inline)) static uint32_t decode(BagDecodeState &d, uint8_t *rec, int depth) {
        return empty_array(d, rec + Off) ? 0 : Step::elements(d, rec, depth);
    }
    // The count, then the elements by the step's own put_elements().
    static uint32_t encode(BagEncodeState &st, const uint8_t *rec, int depth) {
        bag_array<uint8_t> arr;
        memcpy(&arr, rec + Off, sizeof arr);
        if (arr.count && !arr.data) return BAG_ERR_ARG;
        bag_put32(st.out, arr.count);
        if (!arr.count) return 0;
        if (!st.take(size_t(arr.count) * Step::kElemSize)) return BAG_ERR_TOO_BIG;
        return Step::put_elements(st, arr.count, arr.data, depth);
    }
};

// count elements of one encoded size (wire bytes each) at once: their room
// taken in one step, unless it would pass the record's limit, which is where
// the walk, element by element, stops too.
template <class PutOne>
__attribute__((always_inline)) inline uint32_t put_fixed_elements(BagEncodeState &st, uint32_t count,
                                                                  uint32_t wire, PutOne put_one) {
    const size_t bytes = size_t(count) * wire;
    if (bytes > BAG_MAX_RECORD || st.out.size() + bytes > BAG_MAX_RECORD) return BAG_ERR_TOO_BIG;
    auto *dst = reinterpret_cast<uint8_t *>(st.out.room(bytes));
    for (uint32_t e = 0; e < count; e++, dst += wire)
        if (uint32_t rc = put_one(dst, e)) return rc;
    return 0;
}

template <BagKind K, size_t Off>
struct A : ArrayStep<A<K, Off>, Off> {
    static constexpr size_t kElemSize = F<K, 0>::size;
    static uint32_t put_elements(BagEncodeState &st, uint32_t count, const uint8_t *data, int) {
        if constexpr (bag_wire_size(K) != 0) {
            return put_fixed_elements(st, count, bag_wire_size(K), [&](uint8_t *dst, uint32_t e) {
                bag_fixed_put<K>(dst, data + size_t(e) * kElemSize);
                return 0u;
            });
        } else {
            for (uint32_t e = 0; e < count; e++) {
                if (uint32_t rc = bag_encode_scalar(K, data + size_t(e) * kElemSize, st)) return rc;
                if (st.out.size() > BAG_MAX_RECORD) return BAG_ERR_TOO_BIG;
            }
            return 0;
        }
    }
    static uint32_t elements(BagDecodeState &d, uint8_t *rec, int) {
        constexpr size_t es = F<K, 0>::size;
        constexpr size_t align = K == BagKind::U8 || K == BagKind::IP || K == BagKind::MAC ||
                                 K == BagKind::ESI ? 1 : K == BagKind::U16 ? 2
                                 : K == BagKind::U64 || K == BagKind::STR || K == BagKind::OPTSTR ? 8 : 4;
        uint32_t count;
        uint8_t *elems;
        if (uint32_t rc = array_head<es, align>(d, bag_min_encoded(K, nullptr), count, elems))
            return rc;
        put_array(rec + Off, count, elems);
        if constexpr (bag_wire_size(K) != 0) {
            // The count check leaves room for every element.
            const uint8_t *src = d.p;
            for (uint32_t e = 0; e < count; e++, src += bag_wire_size(K))
                if (uint32_t rc = bag_fixed_at<K>(src, elems + e * es)) return rc;
            d.p = src;
        } else {
            for (uint32_t e = 0; e < count; e++)
                if (uint32_t rc = d.text<K == BagKind::OPTSTR>(elems + e * es)) return rc;
        }
        return 0;
    }
};

template <class T, size_t Off>
struct AS : ArrayStep<AS<T, Off>, Off> {
    static constexpr size_t kElemSize = sizeof(T);
    static uint32_t put_elements(BagEncodeState &st, uint32_t count, const uint8_t *data, int depth) {
        if constexpr (wire_of<T>() != 0) {
            return put_fixed_elements(st, count, wire_of<T>(), [&](uint8_t *dst, uint32_t e) {
                return record_put<T>(dst, data + size_t(e) * sizeof(T), depth + 1);
            });
        } else {
            for (uint32_t e = 0; e < count; e++) {
                if (uint32_t rc = encode_rec<T>(st, data + size_t(e) * sizeof(T), depth + 1)) return rc;
                if (st.out.size() > BAG_MAX_RECORD) return BAG_ERR_TOO_BIG;
            }
            return 0;
        }
    }
    static uint32_t elements(BagDecodeState &d, uint8_t *rec, int depth) {
        uint32_t count;
        uint8_t *elems;
        if (uint32_t rc = array_head<sizeof(T), alignof(T)>(d, bag_gen::min_encoded<T>(), count, elems))
            return rc;
        put_array(rec + Off, count, elems);
        if constexpr (wire_of<T>() != 0) {
            // The count check leaves room for every element.
            const uint8_t *src = d.p;
            for (uint32_t e = 0; e < count; e++, src += wire_of<T>())
                if (uint32_t rc = record_at<T>(src, elems + e * sizeof(T), depth + 1)) return rc;
            d.p = src;
        } else {
            for (uint32_t e = 0; e < count; e++)
                if (uint32_t rc = decode_record<T>(d, elems + e * sizeof(T), depth + 1)) return rc;
        }
        return 0;
    }
};

}  // namespace bag_gen
