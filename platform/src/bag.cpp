// Record codec: decodes XDR-encoded records into their structs by walking
// the record's description, and encodes them back.
//
// Strings and arrays of a decoded record live in an arena that belongs to the
// decode buffer: bag_free_indirections() resets it for the next record, so a
// walk that decodes a million records into one buffer allocates nothing per
// record once the arena has grown to the largest record's size.
#include "platform/bag.h"

#include "bag_decoder.h"

#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "platform/cerr.h"
#include "platform/formatters.h"

// ---- Arena ---------------------------------------------------------------

void *BagArena::grow(size_t n, size_t counted) {
    size_t size = cur_size ? cur_size * 2 : kFirstChunk;
    while (size < n) size *= 2;
    char *chunk = static_cast<char *>(malloc(size));
    if (!chunk) return nullptr;
    chunks.push_back(chunk);
    cur = chunk;
    cur_size = size;
    cur_used = n;
    used += counted;
    return chunk;
}

void BagArena::reset_chunks() {
    for (size_t i = 0; i + 1 < chunks.size(); i++) free(chunks[i]);
    if (!chunks.empty()) {
        char *last = chunks.back();
        chunks.clear();
        if (cur_size <= kKeepChunk) {
            chunks.push_back(last);
        } else {
            free(last);
            cur = nullptr;
            cur_size = 0;
        }
    }
    cur_used = 0;
    used = 0;
}

void BagArena::release() {
    for (char *c : chunks) free(c);
    chunks.clear();
    cur = nullptr;
    cur_size = cur_used = used = 0;
}

namespace {

bool g_generated_decoders = true;  // off only in tests that compare the two
bool g_generated_encoders = true;

struct Slot {
    const void *buf;  // decode buffer this arena serves; null when free
    BagArena arena;
};

struct Slots {
    std::vector<Slot> slots;
    ~Slots() {
        for (Slot &s : slots) s.arena.release();
    }
    Slot *find(const void *buf) {
        for (Slot &s : slots)
            if (s.buf == buf) return &s;
        return nullptr;
    }
    Slot *claim(const void *buf) {
        if (Slot *s = find(buf)) {
            s->arena.reset();
            return s;
        }
        if (Slot *s = find(nullptr)) {
            s->buf = buf;
            return s;
        }
        slots.push_back(Slot{buf, BagArena{}});
        return &slots.back();
    }
};
thread_local Slots g_slots;

uint32_t scalar_align(BagKind k) {
    switch (k) {
    case BagKind::U8: case BagKind::IP: case BagKind::MAC: case BagKind::ESI: return 1;
    case BagKind::U16: return 2;
    case BagKind::U64: case BagKind::STR: case BagKind::OPTSTR: return 8;
    default: return 4;
    }
}

}  // namespace

// ---- Decoder -------------------------------------------------------------

uint32_t BagDecodeState::scalar(BagKind k, uint8_t *out) {
    switch (k) {
    case BagKind::U8: case BagKind::U16: case BagKind::U32: case BagKind::S32:
    case BagKind::BOOL:
        return unit(k, out);
    case BagKind::U64: {
        if (!need(8)) return BAG_ERR_TRUNCATED;
        uint64_t hi = u32();
        uint64_t v = (hi << 32) | u32();
        memcpy(out, &v, 8);
        return 0;
    }
    case BagKind::IP: return opaque<16>(out);
    case BagKind::MAC: return opaque<6>(out);
    case BagKind::ESI: return opaque<10>(out);
    case BagKind::RD: case BagKind::RT: {
        if (!need(12)) return BAG_ERR_TRUNCATED;
        l2vpn_bag_rd_t v;
        v.format = u32();
        memcpy(v.value, p, 8);
        p += 8;
        memcpy(out, &v, sizeof v);
        return 0;
    }
    case BagKind::STR: return text<false>(out);
    case BagKind::OPTSTR: return text<true>(out);
    default:
        return BAG_ERR_VALUE;
    }
}

uint32_t BagDecodeState::array(BagKind elem, const BagDesc *sub, uint8_t *out, int depth) {
    if (!need(4)) return BAG_ERR_TRUNCATED;
    uint32_t count = u32();
    if (count > left() / bag_min_encoded(elem, sub)) return BAG_ERR_COUNT;
    const uint32_t es = elem == BagKind::STRUCT ? sub->size : bag_scalar_size(elem);
    uint8_t *elems = nullptr;
    uint32_t rc = 0;
    if (count) {
        size_t bytes = size_t(count) * es;
        if (arena.used + bytes > BAG_MAX_INNER) return BAG_ERR_TOO_BIG;
        size_t align = elem == BagKind::STRUCT ? sub->align : scalar_align(elem);
        elems = static_cast<uint8_t *>(arena.alloc(bytes, align));
        if (!elems) return BAG_ERR_NOMEM;
        memset(elems, 0, bytes);
        for (uint32_t e = 0; e < count && !rc; e++) {
            uint8_t *at = elems + size_t(e) * es;
            rc = elem == BagKind::STRUCT ? record(sub, at, depth + 1) : scalar(elem, at);
        }
    }
    bag_array<uint8_t> arr{count, elems};
    memcpy(out, &arr, sizeof arr);
    return rc;
}

uint32_t BagDecodeState::record(const BagDesc *d, uint8_t *out, int depth) {
    if (depth > static_cast<int>(BAG_MAX_DEPTH)) return BAG_ERR_DEPTH;
    if (d->decode && g_generated_decoders) return d->decode(*this, out, depth);
    return walk(d, out, depth);
}

bool BagDecodeState::text_ok(const uint8_t *s, size_t len) {
    uint32_t cp;
    return bag_text_bad_at(reinterpret_cast<const char *>(s), len, &cp) == len;
}

uint32_t BagDecodeState::walk_fields(const BagDesc *d, uint32_t first, uint32_t last, uint8_t *out,
                                     int depth) {
    for (uint32_t i = first; i < last; i++) {
        const BagField &f = d->fields[i];
        uint8_t *dst = out + f.offset;
        uint32_t rc = 0;
        if (bag_is_unit(f.kind)) {
            if ((rc = unit(f.kind, dst))) return rc;
            continue;
        }
        switch (f.kind) {
        case BagKind::IP:
            rc = opaque<16>(dst);
            break;
        case BagKind::MAC:
            rc = opaque<6>(dst);
            break;
        case BagKind::STRUCT:
            rc = record(f.sub, dst, depth + 1);
            break;
        case BagKind::FIXED: {
            const uint32_t es = bag_elem_size(f);
            for (uint32_t e = 0; e < f.count && !rc; e++) {
                uint8_t *at = dst + size_t(e) * es;
                rc = f.elem == BagKind::STRUCT ? record(f.sub, at, depth + 1) : scalar(f.elem, at);
            }
            break;
        }
        case BagKind::ARRAY:
            rc = array(f.elem, f.sub, dst, depth);
            break;
        default:
            rc = scalar(f.kind, dst);
        }
        if (rc) return rc;
    }
    return 0;
}

void bag_use_generated_decoders(bool on) { g_generated_decoders = on; }
void bag_use_generated_encoders(bool on) { g_generated_encoders = on; }

namespace {

// ---- Encoder -------------------------------------------------------------

uint32_t encode_record(const uint8_t *rec, const BagDesc *d, BagEncodeState &st, int depth);

uint32_t encode_element(BagKind k, const BagDesc *sub, const uint8_t *in, BagEncodeState &st,
                        int depth) {
    if (k == BagKind::STRUCT) return encode_record(in, sub, st, depth + 1);
    return bag_encode_scalar(k, in, st);
}

uint32_t encode_record(const uint8_t *rec, const BagDesc *d, BagEncodeState &st, int depth) {
    if (depth > static_cast<int>(BAG_MAX_DEPTH)) return BAG_ERR_DEPTH;
    BagEncodeOut &out = st.out;
    for (uint32_t i = 0; i < d->nfields; i++) {
        const BagField &f = d->fields[i];
        const uint8_t *src = rec + f.offset;
        uint32_t rc = 0;
        switch (f.kind) {
        case BagKind::STRUCT:
            rc = encode_record(src, f.sub, st, depth + 1);
            break;
        case BagKind::FIXED: {
            uint32_t es = bag_elem_size(f);
            for (uint32_t e = 0; e < f.count && !rc; e++)
                rc = encode_element(f.elem, f.sub, src + size_t(e) * es, st, depth);
            break;
        }
        case BagKind::ARRAY: {
            bag_array<uint8_t> arr;
            memcpy(&arr, src, sizeof arr);
            if (arr.count && !arr.data) return BAG_ERR_ARG;
            bag_put32(out, arr.count);
            uint32_t es = bag_elem_size(f);
            if (arr.count && !st.take(size_t(arr.count) * es)) return BAG_ERR_TOO_BIG;
            for (uint32_t e = 0; e < arr.count && !rc; e++) {
                rc = encode_element(f.elem, f.sub, arr.data + size_t(e) * es, st, depth);
                if (out.size() > BAG_MAX_RECORD) return BAG_ERR_TOO_BIG;
            }
            break;
        }
        default:
            rc = bag_encode_scalar(f.kind, src, st);
        }
        if (rc) return rc;
    }
    return 0;
}

}  // namespace

uint32_t bag_elem_size(const BagField &f) {
    return f.elem == BagKind::STRUCT ? f.sub->size : bag_scalar_size(f.elem);
}

const BagField *bag_find_field(const BagDesc *desc, const char *name) {
    for (uint32_t i = 0; i < desc->nfields; i++)
        if (strcmp(desc->fields[i].name, name) == 0) return &desc->fields[i];
    return nullptr;
}

const char *bag_kind_name(BagKind kind) {
    static const char *const names[] = {"u8",  "u16", "u32", "s32", "u64",    "bool",   "ip",    "mac",
                                        "esi", "rd",  "rt",  "string", "optional string", "record",
                                        "array", "fixed array"};
    return names[static_cast<int>(kind)];
}

uint32_t bag_decode(const void *data, uint32_t len, void *buf, uint32_t buf_size,
                    const BagDesc *desc) {
    if (!buf || !desc || (!data && len)) return BAG_ERR_ARG;
    if (buf_size < desc->size) return BAG_ERR_BUFFER;
    if (len > BAG_MAX_RECORD) return BAG_ERR_TOO_BIG;
    Slot *slot = g_slots.claim(buf);
    // A generated decoder writes every byte of the record; the walk leaves
    // the gaps between fields as they were.
    if (!desc->decode || !g_generated_decoders) memset(buf, 0, desc->size);
    const uint8_t *p = static_cast<const uint8_t *>(data);
    BagDecodeState dec{p, p + len, slot->arena};
    uint32_t rc = dec.record(desc, static_cast<uint8_t *>(buf), 0);
    if (!rc && dec.left()) rc = BAG_ERR_TRAILING;
    if (rc) {
        // Nothing of a failed decode stays allocated or reachable.
        slot->arena.reset();
        slot->buf = nullptr;
        memset(buf, 0, desc->size);
    }
    return rc;
}

uint32_t bag_free_indirections(void *buf, const BagDesc *desc) {
    if (!buf || !desc) return BAG_ERR_ARG;
    Slot *slot = g_slots.find(buf);
    if (!slot) return BAG_ERR_NOT_DECODED;
    slot->arena.reset();
    slot->buf = nullptr;
    return 0;
}

uint32_t bag_encode(const void *record, const BagDesc *desc, std::string &out) {
    if (!record || !desc) return BAG_ERR_ARG;
    const size_t start = out.size();
    out.resize(std::max(out.capacity(), start + 512));  // what the string holds already
    BagEncodeState st{{out, start}};
    const auto *rec = static_cast<const uint8_t *>(record);
    uint32_t rc = desc->encode && g_generated_encoders ? desc->encode(st, rec, 0) : encode_record(rec, desc, st, 0);
    out.resize(st.out.n);
    if (!rc && out.size() - start > BAG_MAX_RECORD) rc = BAG_ERR_TOO_BIG;
    return rc;
}

size_t bag_text_bad_at(const char *text, size_t len, uint32_t *cp) {
    const auto *s = reinterpret_cast<const uint8_t *>(text);
    size_t i = 0;
    // Printable ASCII eight bytes at a time (no byte below 0x20, none equal
    // to 0x7f, none from 0x80 on); the first other word byte by byte.
    constexpr uint64_t kOnes = 0x0101010101010101ull, kHigh = 0x8080808080808080ull;
    for (uint64_t w; i + 8 <= len; i += 8) {
        memcpy(&w, s + i, 8);
        const uint64_t del = w ^ (0x7f * kOnes);
        if ((((w - 0x20 * kOnes) & ~w) | ((del - kOnes) & ~del) | w) & kHigh) break;
    }
    while (i < len) {
        const uint8_t c = s[i];
        if (c >= 0x20 && c < 0x7f) {
            i++;
            continue;
        }
        *cp = c;
        if (c < 0x80) return i;  // C0, NUL or DEL
        // A UTF-8 sequence: its length, its code point and the least code
        // point of that length (shorter forms are not UTF-8).
        size_t n;
        uint32_t v, least;
        if (c >= 0xc2 && c <= 0xdf) n = 2, v = c & 0x1f, least = 0x80;
        else if (c >= 0xe0 && c <= 0xef) n = 3, v = c & 0x0f, least = 0x800;
        else if (c >= 0xf0 && c <= 0xf4) n = 4, v = c & 0x07, least = 0x10000;
        else return *cp = 0xffffffffu, i;
        if (len - i < n) return *cp = 0xffffffffu, i;
        for (size_t k = 1; k < n; k++) {
            if ((s[i + k] & 0xc0) != 0x80) return *cp = 0xffffffffu, i;
            v = v << 6 | (s[i + k] & 0x3f);
        }
        if (v < least || v > 0x10ffff || (v >= 0xd800 && v <= 0xdfff))
            return *cp = 0xffffffffu, i;
        *cp = v;
        if (v <= 0x9f) return i;  // C1
        i += n;
    }
    return len;
}

size_t bag_inner_bytes_held(void) {
    size_t n = 0;
    for (const Slot &s : g_slots.slots)
        if (s.buf) n += s.arena.used;
    return n;
}
