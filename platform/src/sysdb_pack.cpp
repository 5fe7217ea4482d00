// Stored form of encoded records (see sysdb_schema.h).
#include <cstring>

#include "platform/sysdb_schema.h"

namespace sysdb_schema {

namespace {
// Up to 8 bitmap bytes from p as one word, byte i in bits 8i..8i+7.
uint64_t load_bits(const uint8_t *p, size_t n) {
    uint64_t w = 0;
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    if (n >= 8) {
        memcpy(&w, p, 8);
        return w;
    }
#endif
    for (size_t i = n < 8 ? n : 8; i-- > 0;) w = (w << 8) | p[i];
    return w;
}
}  // namespace

void pack_record(const void *data, size_t len, std::string &out) {
    const uint8_t *p = static_cast<const uint8_t *>(data);
    for (size_t n = len;; n >>= 7) {
        out.push_back(static_cast<char>((n & 0x7f) | (n >= 0x80 ? 0x80 : 0)));
        if (n < 0x80) break;
    }
    const size_t units = len / 4, map = out.size();
    out.append((units + 7) / 8, '\0');
    for (size_t i = 0; i < units; i++) {
        uint32_t u;
        memcpy(&u, p + 4 * i, 4);
        if (!u) continue;
        out[map + i / 8] = static_cast<char>(out[map + i / 8] | (1 << (i % 8)));
        out.append(reinterpret_cast<const char *>(p + 4 * i), 4);
    }
    out.append(reinterpret_cast<const char *>(p + 4 * units), len % 4);
}

bool unpack_record(const void *data, size_t len, size_t max_len, std::string &out) {
    const uint8_t *p = static_cast<const uint8_t *>(data), *end = p + len;
    size_t n = 0;
    for (int shift = 0;; shift += 7) {
        if (p == end || shift > 28) return false;
        n |= static_cast<size_t>(*p & 0x7f) << shift;
        if (!(*p++ & 0x80)) break;
    }
    if (n > max_len) return false;
    const size_t units = n / 4, map_len = (units + 7) / 8;
    if (static_cast<size_t>(end - p) < map_len) return false;
    const uint8_t *map = p, *unit = p + map_len;
    // Each set bit is one stored unit; no bit past the last unit.
    size_t stored = 0;
    for (size_t i = 0; i < map_len; i += 8)
        stored += static_cast<size_t>(__builtin_popcountll(load_bits(map + i, map_len - i)));
    if ((units % 8 && map[map_len - 1] >> (units % 8)) ||
        static_cast<size_t>(end - unit) != 4 * stored + n % 4)
        return false;
    const size_t start = out.size();
    out.resize(start + n);  // zero-filled: only the stored units are written
    char *o = out.data() + start;
    for (size_t i = 0; i < map_len; i += 8) {
        for (uint64_t bits = load_bits(map + i, map_len - i); bits; bits &= bits - 1) {
            memcpy(o + 4 * (8 * i + static_cast<size_t>(__builtin_ctzll(bits))), unit, 4);
            unit += 4;
        }
    }
    memcpy(o + 4 * units, unit, n % 4);
    return true;
}

}  // namespace sysdb_schema
