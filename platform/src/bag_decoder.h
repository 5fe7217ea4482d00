// The decoder's state and its per-field steps, shared by the generic walk of
// a description (bag.cpp) and the decoders generated from each record type's
// field list (bag_types.cpp). Every step checks the bytes left before it
// reads and names what went wrong.
#pragma once
#include <cstdint>
#include <cstring>

#include "platform/bag.h"
#include "platform/cerr.h"

struct BagArena;  // strings and arrays of the record being decoded (bag.cpp)

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "units are swapped from big-endian");

// Kinds that take one unit and decode to an integer: most fields of a record.
constexpr uint32_t kBagUnitKinds = 1u << int(BagKind::U8) | 1u << int(BagKind::U16) |
                                   1u << int(BagKind::U32) | 1u << int(BagKind::S32) |
                                   1u << int(BagKind::BOOL);
constexpr bool bag_is_unit(BagKind k) { return (kBagUnitKinds >> int(k)) & 1; }

struct BagDecodeState {
    const uint8_t *p;
    const uint8_t *end;
    BagArena &arena;

    size_t left() const { return static_cast<size_t>(end - p); }
    bool need(size_t n) const { return left() >= n; }
    uint32_t u32() {
        uint32_t v;
        memcpy(&v, p, 4);
        p += 4;
        return __builtin_bswap32(v);
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

    // Any scalar kind; the common ones inline.
    template <BagKind K>
    __attribute__((always_inline)) uint32_t field(uint8_t *out) {
        if constexpr (bag_is_unit(K)) return unit(K, out);
        else if constexpr (K == BagKind::IP) return opaque<16>(out);
        else if constexpr (K == BagKind::MAC) return opaque<6>(out);
        else return scalar(K, out);
    }

    uint32_t scalar(BagKind k, uint8_t *out);
    // A count, then that many elements of kind elem (records of sub).
    uint32_t array(BagKind elem, const BagDesc *sub, uint8_t *out, int depth);
    // A sub-record at nesting depth: by its generated decoder when it has one.
    uint32_t record(const BagDesc *d, uint8_t *out, int depth);
    // The same by walking the description.
    uint32_t walk(const BagDesc *d, uint8_t *out, int depth);
};
