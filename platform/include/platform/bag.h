// Record codec. A record type is described once (bag_types.h) and every
// consumer - decoder, encoder, loader, dump - walks that one description.
//
// Encoding (XDR, RFC 4506): big-endian 4-byte units. u8, u16, u32, s32 and
// flags take one unit; u64 two; an IP address 16 opaque bytes; a MAC 6 and an
// ESI 10 opaque bytes, each padded with zeros to a unit; an RD or RT value its
// format word and 8 opaque bytes; a string a length and its bytes padded; an
// optional string a present word (0 or 1) then the string; a sub-record its
// fields in order; an array a count then the elements; a fixed array its
// elements.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

enum class BagKind : uint8_t {
    U8, U16, U32, S32, U64, BOOL, IP, MAC, ESI, RD, RT, STR, OPTSTR, STRUCT, ARRAY, FIXED
};

struct BagDesc;
struct BagField {
    const char *name;
    BagKind kind;
    BagKind elem;       // ARRAY, FIXED: kind of each element
    uint16_t count;     // FIXED: number of elements
    uint32_t offset;    // in the decoded record
    const BagDesc *sub; // STRUCT, or ARRAY / FIXED of STRUCT
};

// A field of a record type whose code stands for a word: the record type
// (BagDesc::name), the field, and the word of a code (null for a code without
// one). The JSON view writes the word beside the code.
struct BagFieldWords {
    const char *record;
    const char *field;
    const char *(*word)(int64_t code);
};

struct BagDecodeState;
// A decoder generated from a record type's field list; decodes what walking
// the description would, faster. Absent for descriptions built by hand.
typedef uint32_t (*BagDecodeFn)(BagDecodeState &state, uint8_t *out, int depth);

struct BagEncodeState;
// An encoder generated from a record type's field list: writes what walking
// the description would, faster. Absent for descriptions built by hand.
typedef uint32_t (*BagEncodeFn)(BagEncodeState &state, const uint8_t *record, int depth);

struct BagDesc {
    const char *name;
    uint32_t size;      // bytes of the decoded record
    uint32_t align;
    const BagField *fields;
    uint32_t nfields;
    uint32_t min_encoded;  // fewest bytes an encoding takes: bag_min_encoded(fields, nfields)
    BagDecodeFn decode;
    BagEncodeFn encode;
};

// Fewest encoded bytes one value of kind k takes (sub: its description when
// k is STRUCT); never 0, so that it can bound an array's count by the bytes left.
constexpr uint32_t bag_min_encoded(BagKind k, const BagDesc *sub) {
    switch (k) {
    case BagKind::U64: return 8;
    case BagKind::IP: return 16;
    case BagKind::MAC: return 8;
    case BagKind::ESI: case BagKind::RD: case BagKind::RT: return 12;
    case BagKind::STRUCT: return sub->min_encoded;
    default: return 4;  // one unit: a scalar, a string's length, an array's count
    }
}
constexpr uint32_t bag_min_encoded(const BagField *fields, uint32_t nfields) {
    uint32_t n = 0;
    for (uint32_t i = 0; i < nfields; i++) {
        const BagField &f = fields[i];
        n += f.kind == BagKind::FIXED ? bag_min_encoded(f.elem, f.sub) * f.count
                                      : bag_min_encoded(f.kind, f.sub);
    }
    return n ? n : 4;
}

// Decoded array: element count and elements (null when the count is 0).
template <class T>
struct bag_array {
    uint32_t count;
    T *data;
};

// Limits of one record. The decoder refuses a record past any of them, the
// encoder refuses to make one, and the snapshot loader, the generator and the
// store check against these same values, so that what is stored decodes.
enum : uint32_t {
    BAG_MAX_DEPTH = 8,                  // sub-record nesting
    BAG_MAX_STRING = 65536,             // bytes of one string
    BAG_MAX_INNER = 16u * 1024 * 1024,  // strings and arrays of one decoded record: each
                                        // string its length + 1, each array count * element size
    BAG_MAX_RECORD = 16u * 1024 * 1024, // encoded bytes of one record
};

// Text fields are names and words from configuration, printed as they stand:
// UTF-8 without control characters (C0, DEL, C1) and without NUL. Returns
// len when s[0..len) is such a text; else the offset of the first byte that
// is not, with *cp the character there (0xFFFFFFFF for bytes that are not
// UTF-8).
size_t bag_text_bad_at(const char *s, size_t len, uint32_t *cp);

// Decodes len bytes of data into buf (buf_size bytes, at least desc->size).
// Strings and arrays are allocated by the codec and stay valid until
// bag_free_indirections(buf) or the next bag_decode into buf. On failure
// nothing stays allocated and buf holds no usable record.
uint32_t bag_decode(const void *data, uint32_t len, void *buf, uint32_t buf_size,
                    const BagDesc *desc);
uint32_t bag_free_indirections(void *buf, const BagDesc *desc);

// Encodes a decoded (or hand-built) record; appends to out.
uint32_t bag_encode(const void *record, const BagDesc *desc, std::string &out);

// Bytes the codec holds for records not yet released (tests).
size_t bag_inner_bytes_held(void);
// Off: every record is decoded by walking its description (tests that hold
// the generated decoders to the walk).
void bag_use_generated_decoders(bool on);
// Off: every record is encoded by walking its description (tests).
void bag_use_generated_encoders(bool on);

// Size in bytes of one decoded element of an ARRAY or FIXED field.
uint32_t bag_elem_size(const BagField &field);
const BagField *bag_find_field(const BagDesc *desc, const char *name);
const char *bag_kind_name(BagKind kind);
