// Record codec: round trips of every record type, the wire layout, and the
// refusal of malformed encodings without over-reads or leaks.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "json_record.h"
#include "platform/bag.h"
#include "platform/bag_types.h"
#include "platform/cerr.h"
#include "record_text.h"

namespace {

using nlohmann::json;

// Aligned storage for one decoded record.
struct Buf {
    std::vector<uint64_t> words;
    explicit Buf(size_t bytes) : words(bytes / 8 + 1) {}
    void *p() { return words.data(); }
    uint32_t size() const { return static_cast<uint32_t>(words.size() * 8); }
    bool all_zero(size_t n) const {
        const auto *b = reinterpret_cast<const uint8_t *>(words.data());
        for (size_t i = 0; i < n; i++)
            if (b[i]) return false;
        return true;
    }
};

std::string as_json(const void *rec, const BagDesc *d) {
    evpn::JsonText t;
    evpn::record_json(t, rec, d);
    return std::string(t.data(), t.size());
}

std::string hex(const std::string &s) {
    static const char d[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : s) {
        out.push_back(d[c >> 4]);
        out.push_back(d[c & 15]);
    }
    return out;
}

std::string unhex(const char *h) {
    std::string out;
    for (const char *p = h; p[0] && p[1]; p += 2) {
        while (*p == ' ') p++;
        out.push_back(static_cast<char>(std::stoi(std::string(p, 2), nullptr, 16)));
    }
    return out;
}

std::string be32(uint32_t v) {
    return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
}

// Decodes from an exact-size heap copy, so that a read past the end is seen
// by the address sanitizer.
uint32_t decode_exact(const std::string &enc, size_t len, Buf &buf, const BagDesc *d) {
    std::vector<uint8_t> copy(enc.begin(), enc.begin() + static_cast<std::ptrdiff_t>(len));
    copy.shrink_to_fit();
    return bag_decode(len ? copy.data() : nullptr, static_cast<uint32_t>(len), buf.p(), buf.size(), d);
}

uint32_t decode_into(const std::string &enc, Buf &buf, const BagDesc *d) {
    return bag_decode(enc.data(), static_cast<uint32_t>(enc.size()), buf.p(), buf.size(), d);
}

// A JSON object that sets every field of a description to a non-trivial
// value: strings of every padding length, both IP families, every RD form,
// absent and present optional strings, arrays of several elements.
json sample_scalar(BagKind k, unsigned &seed) {
    unsigned s = seed++;
    static const char *const rds[] = {"100:1", "1.1.1.1:5", "4200000000:7",
                                      "raw:00000001000102030405ffff"};
    char b[64];
    switch (k) {
    case BagKind::U8: return s * 37 % 256;
    case BagKind::U16: return 65535 - s;
    case BagKind::U32: return 0x80000000u + s * 7919;
    case BagKind::S32: return -static_cast<int>(s) - 1;
    case BagKind::U64: return 0xF000000000000000ull + s;
    case BagKind::BOOL: return s % 3 == 0 ? json(2) : json(s % 2 == 1);
    case BagKind::IP:
        snprintf(b, sizeof b, s % 2 ? "10.1.2.%u" : "2001:db8::%x", s % 250 + 1);
        return b;
    case BagKind::MAC: snprintf(b, sizeof b, "0011.2233.44%02x", s % 256); return b;
    case BagKind::ESI: snprintf(b, sizeof b, "0011.2233.4455.6677.88%02x", s % 256); return b;
    case BagKind::RD: case BagKind::RT: return rds[s % 4];
    case BagKind::STR: return std::string(s % 9, static_cast<char>('a' + s % 26));
    case BagKind::OPTSTR:
        return s % 3 == 0 ? json(nullptr) : json(std::string(s % 6 + 1, 'z'));
    default: return nullptr;
    }
}

// by_name: each field's values start from a seed made of its name, not of
// its place, so that two fields that trade places trade values too.
json sample(const BagDesc *d, unsigned &seed, int depth = 0, bool by_name = false) {
    json o = json::object();
    for (uint32_t i = 0; i < d->nfields; i++) {
        const BagField &f = d->fields[i];
        if (by_name) {
            seed = 0;
            for (const char *c = f.name; *c; c++) seed = seed * 31 + static_cast<unsigned char>(*c);
            seed %= 60000;  // keeps 65535 - seed a U16
        }
        auto elem = [&] { return f.elem == BagKind::STRUCT ? sample(f.sub, seed, depth + 1, by_name)
                                                           : sample_scalar(f.elem, seed); };
        if (f.kind == BagKind::STRUCT) {
            o[f.name] = sample(f.sub, seed, depth + 1, by_name);
        } else if (f.kind == BagKind::ARRAY || f.kind == BagKind::FIXED) {
            json a = json::array();
            uint32_t n = f.kind == BagKind::FIXED ? f.count : (depth < 2 ? 2 + seed % 2 : 1);
            for (uint32_t e = 0; e < n; e++) a.push_back(elem());
            o[f.name] = a;
        } else {
            o[f.name] = sample_scalar(f.kind, seed);
        }
    }
    return o;
}

// A filled record of type d, its strings and arrays owned by arena.
void build(const BagDesc *d, unsigned seed, Buf &rec, evpn::RecordArena &arena) {
    std::string err;
    json j = sample(d, seed);
    ASSERT_TRUE(record_from_text(j.dump(), d, rec.p(), arena, d->name, err)) << err;
}

std::string encode_sample(const BagDesc *d, unsigned seed = 1) {
    Buf rec(d->size);
    evpn::RecordArena arena;
    build(d, seed, rec, arena);
    std::string enc;
    EXPECT_EQ(bag_encode(rec.p(), d, enc), 0u) << d->name;
    return enc;
}

// The record of type d whose values follow its field names, encoded.
std::string encode_named_sample(const BagDesc *d) {
    Buf rec(d->size);
    evpn::RecordArena arena;
    unsigned seed = 0;
    std::string err, enc;
    EXPECT_TRUE(record_from_text(sample(d, seed, 0, true).dump(), d, rec.p(), arena, d->name, err)) << err;
    EXPECT_EQ(bag_encode(rec.p(), d, enc), 0u) << d->name;
    return enc;
}

// ---- Custom descriptions for layouts no record type has ------------------

struct Mix {
    uint8_t a;
    uint16_t b;
    int32_t c;
    uint64_t d;
    l2vpn_ip_addr_t ip;
    uint8_t mac[6];
    char *o1, *o2;
    bag_array<uint32_t> arr;
};
const BagField kMixFields[] = {
    {"a", BagKind::U8, BagKind::U8, 0, offsetof(Mix, a), nullptr},
    {"b", BagKind::U16, BagKind::U16, 0, offsetof(Mix, b), nullptr},
    {"c", BagKind::S32, BagKind::S32, 0, offsetof(Mix, c), nullptr},
    {"d", BagKind::U64, BagKind::U64, 0, offsetof(Mix, d), nullptr},
    {"ip", BagKind::IP, BagKind::IP, 0, offsetof(Mix, ip), nullptr},
    {"mac", BagKind::MAC, BagKind::MAC, 0, offsetof(Mix, mac), nullptr},
    {"o1", BagKind::OPTSTR, BagKind::OPTSTR, 0, offsetof(Mix, o1), nullptr},
    {"o2", BagKind::OPTSTR, BagKind::OPTSTR, 0, offsetof(Mix, o2), nullptr},
    {"arr", BagKind::ARRAY, BagKind::U32, 0, offsetof(Mix, arr), nullptr},
};
const BagDesc kMix = {"mix", sizeof(Mix), alignof(Mix), kMixFields, 9, bag_min_encoded(kMixFields, 9)};

struct Pads {
    uint8_t mac[6];
    uint8_t esi[10];
    char *str;
    char *opt;
};
const BagField kPadsFields[] = {
    {"mac", BagKind::MAC, BagKind::MAC, 0, offsetof(Pads, mac), nullptr},
    {"esi", BagKind::ESI, BagKind::ESI, 0, offsetof(Pads, esi), nullptr},
    {"str", BagKind::STR, BagKind::STR, 0, offsetof(Pads, str), nullptr},
    {"opt", BagKind::OPTSTR, BagKind::OPTSTR, 0, offsetof(Pads, opt), nullptr},
};
const BagDesc kPads = {"pads", sizeof(Pads), alignof(Pads), kPadsFields, 4,
                       bag_min_encoded(kPadsFields, 4)};

// mac 0011.2233.4455, esi 0011.2233.4455.6677.8899, str "abcde", opt "q".
const char *kPadsHex =
    "001122334455 0000"
    "00112233445566778899 0000"
    "00000005 6162636465 000000"
    "00000001 00000001 71 000000";

// ---- Round trips ---------------------------------------------------------

TEST(Codec, EveryRecordTypeRoundTripsByteForByte) {
    int types = 0;
    for (const BagDesc *const *dp = bag_record_types; *dp; dp++, types++) {
        const BagDesc *d = *dp;
        SCOPED_TRACE(d->name);
        for (unsigned seed : {1u, 5u}) {
            Buf rec(d->size);
            evpn::RecordArena arena;
            build(d, seed, rec, arena);
            std::string first;
            ASSERT_EQ(bag_encode(rec.p(), d, first), 0u);

            Buf dec(d->size);
            ASSERT_EQ(decode_into(first, dec, d), 0u);
            EXPECT_GT(bag_inner_bytes_held(), 0u);
            // The decoded record says what the built one said, field by field.
            EXPECT_EQ(as_json(dec.p(), d), as_json(rec.p(), d));
            std::string second;
            ASSERT_EQ(bag_encode(dec.p(), d, second), 0u);
            EXPECT_EQ(hex(second), hex(first));
            EXPECT_EQ(bag_free_indirections(dec.p(), d), 0u);
        }
        // The all-zero record: empty arrays, absent strings (encoded as empty).
        Buf zero(d->size), dec(d->size);
        std::string first, second;
        ASSERT_EQ(bag_encode(zero.p(), d, first), 0u);
        ASSERT_EQ(decode_into(first, dec, d), 0u);
        ASSERT_EQ(bag_encode(dec.p(), d, second), 0u);
        EXPECT_EQ(hex(second), hex(first));
        bag_free_indirections(dec.p(), d);
    }
#define COUNT_RECORD_TYPE(T, N) +1
    EXPECT_EQ(types, 0 BAG_RECORDS(COUNT_RECORD_TYPE));  // every line of BAG_RECORDS
#undef COUNT_RECORD_TYPE
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
}

// The encoding of one sample record of every type, pinned: a field list
// changed (two fields swapped, one retyped) changes it, so that a layout
// change is made on purpose. A new type adds its line, which the failure
// message gives.
TEST(Codec, EveryRecordTypeKeepsItsPinnedLayout) {
    std::map<std::string, std::string> pinned;
    std::ifstream in(EVPN_SOURCE_DIR "/tests/platform/codec_layouts.txt");
    ASSERT_TRUE(in) << "tests/platform/codec_layouts.txt";
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        const size_t space = line.find(' ');
        pinned[line.substr(0, space)] = line.substr(space + 1);
    }
    for (const BagDesc *const *d = bag_record_types; *d; d++) {
        const std::string now = hex(encode_named_sample(*d));
        auto it = pinned.find((*d)->name);
        if (it == pinned.end()) {
            ADD_FAILURE() << "no pinned layout; add the line:\n" << (*d)->name << " " << now;
            continue;
        }
        EXPECT_EQ(now, it->second) << (*d)->name << ": its encoding changed";
    }
}

// Every scalar kind in one record, against the wire form written out by hand
// (the record types' forms are pinned above; decoding is the round trip's).
TEST(Codec, WireLayoutIsBigEndianXdr) {
    uint32_t words[2] = {7, 8};
    Mix m{};
    m.a = 0xff;
    m.b = 0x1234;
    m.c = -2;
    m.d = 0x0102030405060708ull;
    ASSERT_NE(l2vpn_inet_pton("10.0.0.1", &m.ip), 0);
    ASSERT_EQ(l2vpn_mac_pton("0011.2233.4455", m.mac), 0);
    m.o2 = const_cast<char *>("xyz");
    m.arr = {2, words};
    std::string enc;
    ASSERT_EQ(bag_encode(&m, &kMix, enc), 0u);
    EXPECT_EQ(hex(enc), "000000ff" "00001234" "fffffffe" "0102030405060708"
                        "00000000000000000000ffff0a000001" "0011223344550000"
                        "00000000" "00000001" "00000003" "78797a00"
                        "00000002" "00000007" "00000008");
}

// ---- Malformed encodings -------------------------------------------------

TEST(Codec, EveryTruncationFailsWithoutReadingPastTheEnd) {
    for (const BagDesc *const *dp = bag_record_types; *dp; dp++) {
        const BagDesc *d = *dp;
        SCOPED_TRACE(d->name);
        std::string enc = encode_sample(d);
        ASSERT_FALSE(enc.empty());
        Buf dec(d->size);
        for (size_t len = 0; len < enc.size(); len++) {
            uint32_t rc = decode_exact(enc, len, dec, d);
            ASSERT_TRUE(rc == BAG_ERR_TRUNCATED || rc == BAG_ERR_COUNT)
                << "prefix " << len << " of " << enc.size() << ": " << std::hex << rc;
            ASSERT_EQ(bag_inner_bytes_held(), 0u) << "prefix " << len;
            ASSERT_TRUE(dec.all_zero(d->size)) << "prefix " << len;
        }
        EXPECT_EQ(decode_exact(enc, enc.size(), dec, d), 0u);
        bag_free_indirections(dec.p(), d);
    }
}

// Each record type's generated decoder must do what walking its description
// does, on good encodings and on every cut and damaged one: the same answer,
// and the same record when it decodes.
TEST(Codec, GeneratedDecodersAgreeWithTheWalk) {
    struct Restore {
        ~Restore() { bag_use_generated_decoders(true); }
    } restore;
    auto outcome = [](const std::string &enc, const BagDesc *d, bool generated) {
        bag_use_generated_decoders(generated);
        Buf dec(d->size);
        uint32_t rc = decode_exact(enc, enc.size(), dec, d);
        std::string text = std::to_string(rc);
        if (rc == 0) {  // the record, as its encoding (text fields may not be UTF-8)
            std::string again;
            bag_encode(dec.p(), d, again);
            text += hex(again);
            bag_free_indirections(dec.p(), d);
        }
        return text;
    };
    int compared = 0;
    for (const BagDesc *const *dp = bag_record_types; *dp; dp++) {
        const BagDesc *d = *dp;
        SCOPED_TRACE(d->name);
        ASSERT_NE(d->decode, nullptr);
        for (unsigned seed : {1u, 2u, 3u}) {
            const std::string enc = encode_sample(d, seed);
            std::vector<std::string> variants{enc};
            for (size_t i = 0; i < enc.size(); i++) {
                variants.push_back(enc.substr(0, i));
                for (char damage : {'\xff', '\x01'}) {
                    std::string v = enc;
                    v[i] = static_cast<char>(v[i] ^ damage);
                    variants.push_back(v);
                }
            }
            for (const std::string &v : variants) {
                ASSERT_EQ(outcome(v, d, true), outcome(v, d, false)) << hex(v);
                compared++;
            }
        }
    }
    EXPECT_GT(compared, 10000);
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
}

// Each record type's generated encoder must write what walking its
// description writes, and fail a bad record as the walk fails it: a string
// that is not text or is too long, an array without its elements or past the
// record's limits, wherever they sit in the record.
TEST(Codec, GeneratedEncodersAgreeWithTheWalk) {
    struct Restore {
        ~Restore() { bag_use_generated_encoders(true); }
    } restore;
    auto outcome = [](const void *rec, const BagDesc *d, bool generated) {
        bag_use_generated_encoders(generated);
        std::string enc = "kept";  // what the caller had stays in front
        const uint32_t rc = bag_encode(rec, d, enc);
        return rc ? std::to_string(rc) : hex(enc);
    };
    // Places of the strings and arrays a record holds directly or in its
    // sub-records (not inside arrays).
    struct Place {
        size_t at;
        BagKind kind;
    };
    std::function<void(const BagDesc *, size_t, std::vector<Place> &)> places =
        [&](const BagDesc *d, size_t base, std::vector<Place> &out) {
            for (uint32_t i = 0; i < d->nfields; i++) {
                const BagField &f = d->fields[i];
                if (f.kind == BagKind::STRUCT) places(f.sub, base + f.offset, out);
                else if (f.kind == BagKind::FIXED && f.elem == BagKind::STRUCT)
                    for (uint32_t e = 0; e < f.count; e++) places(f.sub, base + f.offset + e * f.sub->size, out);
                else if (f.kind == BagKind::STR || f.kind == BagKind::OPTSTR || f.kind == BagKind::ARRAY)
                    out.push_back({base + f.offset, f.kind});
            }
        };
    static const char kNotText[] = "ab\x01" "c";
    static const std::string kLong(BAG_MAX_STRING + 1, 'x');
    static const uint64_t kFew[4] = {};
    int compared = 0;
    for (const BagDesc *const *dp = bag_record_types; *dp; dp++) {
        const BagDesc *d = *dp;
        SCOPED_TRACE(d->name);
        ASSERT_NE(d->encode, nullptr);
        std::vector<Place> at;
        places(d, 0, at);
        for (unsigned seed : {1u, 2u, 3u}) {
            Buf rec(d->size);
            evpn::RecordArena arena;
            build(d, seed, rec, arena);
            const std::string good = outcome(rec.p(), d, false);
            ASSERT_EQ(good.size() % 2, 0u) << "the walk refused the sample: " << good;
            ASSERT_EQ(outcome(rec.p(), d, true), good);
            compared++;
            for (const Place &p : at) {
                auto *field = static_cast<uint8_t *>(rec.p()) + p.at;
                uint8_t kept[sizeof(bag_array<uint8_t>)];
                memcpy(kept, field, sizeof kept);
                std::vector<std::function<void()>> faults;
                if (p.kind == BagKind::ARRAY) {
                    faults.push_back([&] { bag_array<uint8_t> a{3, nullptr}; memcpy(field, &a, sizeof a); });
                    faults.push_back([&] {  // more elements than any record holds; only 32 bytes there
                        bag_array<uint8_t> a{0x7fffffff, reinterpret_cast<uint8_t *>(const_cast<uint64_t *>(kFew))};
                        memcpy(field, &a, sizeof a);
                    });
                } else {
                    for (const char *t : {kNotText, kLong.c_str()})
                        faults.push_back([&, t] { memcpy(field, &t, sizeof t); });
                }
                for (auto &fault : faults) {
                    fault();
                    const std::string walked = outcome(rec.p(), d, false);
                    EXPECT_NE(walked, good) << "at " << p.at;
                    EXPECT_EQ(outcome(rec.p(), d, true), walked) << "at " << p.at;
                    memcpy(field, kept, sizeof kept);
                    compared++;
                }
            }
        }
    }
    EXPECT_GT(compared, 500);
}

// A generated decoder checks a run of fixed-size fields once; a run cut
// short must still fail where the field-by-field checks failed: on a bad
// value before the cut, else as truncated.
TEST(Codec, ARunOfFixedFieldsCutShortFailsAsEachFieldWould) {
    struct Case {
        const BagDesc *d;
        std::string enc;
        size_t bad_end;  // the faulty field's last byte + 1
    };
    std::string sid;  // six u8 fields, one run; the second out of range
    for (uint32_t v : {1u, 256u, 3u, 4u, 5u, 6u}) sid += be32(v);
    std::string mac = encode_sample(&bag_desc_l2vpn_evpn_mac_bag);
    mac[18] = 1;  // the padding of mac_address, fourth field of the first run
    const Case cases[] = {{&bag_desc_SidStructure, sid, 8}, {&bag_desc_l2vpn_evpn_mac_bag, mac, 20}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.d->name);
        Buf dec(c.d->size);
        for (size_t len = 0; len <= c.enc.size(); len++) {
            const uint32_t want = len < c.bad_end ? BAG_ERR_TRUNCATED : BAG_ERR_VALUE;
            ASSERT_EQ(decode_exact(c.enc, len, dec, c.d), want) << "prefix " << len;
            ASSERT_TRUE(dec.all_zero(c.d->size));
        }
    }
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
}

// Generated decoders fill the record without clearing it first: every byte
// of it, the gaps between fields and an array's padding too, whatever the
// buffer held before.
TEST(Codec, GeneratedDecodersWriteEveryByteOfTheRecord) {
    for (const BagDesc *d : {&bag_desc_SrTeInfo, &bag_desc_l2vpn_evpn_es_nexthop,
                             &bag_desc_l2vpn_evpn_es_ckpt_nexthop, &bag_desc_Srv6Sid}) {
        SCOPED_TRACE(d->name);
        const std::string enc = encode_sample(d, 4);
        Buf a(d->size), b(d->size), walked(d->size);
        memset(a.p(), 0xaa, d->size);
        memset(b.p(), 0x55, d->size);
        ASSERT_EQ(decode_into(enc, a, d), 0u);
        ASSERT_EQ(decode_into(enc, b, d), 0u);
        bag_use_generated_decoders(false);
        memset(walked.p(), 0x55, d->size);
        const uint32_t rc = decode_into(enc, walked, d);  // cleared, then filled
        bag_use_generated_decoders(true);
        ASSERT_EQ(rc, 0u);
        EXPECT_EQ(memcmp(a.p(), b.p(), d->size), 0);
        EXPECT_EQ(memcmp(a.p(), walked.p(), d->size), 0);
        for (Buf *x : {&a, &b, &walked}) bag_free_indirections(x->p(), d);
    }
    // An empty array: a zero count with its padding, and no elements.
    const BagDesc *h = &bag_desc_evt_hist_bag;
    Buf dec(h->size);
    memset(dec.p(), 0xaa, h->size);
    ASSERT_EQ(decode_into(be32(1) + "x" + std::string(3, '\0') + be32(0), dec, h), 0u);
    const auto *rec = static_cast<const uint8_t *>(dec.p());
    const size_t at = offsetof(evt_hist_bag, evt_entry);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(rec) + at, 16), std::string(16, '\0'));
    bag_free_indirections(dec.p(), h);
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
}

// Strings are checked and copied a word at a time: every length, a fault at
// every place of the string or its padding, by a generated decoder.
TEST(Codec, StringsOfEveryLengthDecodeWholeAndAreCheckedEverywhere) {
    const BagDesc *d = &bag_desc_l2vpn_evpn_evi_summary_bag;  // vpn_id, encap, bd_name, evi_type
    Buf dec(d->size);
    auto enc_with = [](const std::string &t, size_t pad_at = 0, char pad = 0) {
        std::string pad_bytes((4 - t.size() % 4) % 4, '\0');
        if (pad_at < pad_bytes.size()) pad_bytes[pad_at] = pad;
        return be32(7) + be32(10) + be32(static_cast<uint32_t>(t.size())) + t + pad_bytes + be32(1);
    };
    for (size_t len = 0; len <= 41; len++) {
        std::string text;
        for (size_t i = 0; i < len; i++) text.push_back(static_cast<char>(0x20 + (i * 7 + len) % 95));
        SCOPED_TRACE(text);
        ASSERT_EQ(decode_exact(enc_with(text), enc_with(text).size(), dec, d), 0u);
        const auto *rec = static_cast<const l2vpn_evpn_evi_summary_bag *>(dec.p());
        EXPECT_EQ(std::string(rec->bd_name), text);
        EXPECT_EQ(rec->evi_type, 1u);
        bag_free_indirections(dec.p(), d);
        for (size_t i = 0; i < len; i++) {
            for (char c : {'\0', '\x1b', '\x1f', '\x7f', '\x80', '\xff'}) {
                std::string bad = text;
                bad[i] = c;
                const std::string e = enc_with(bad);
                ASSERT_EQ(decode_exact(e, e.size(), dec, d), BAG_ERR_TEXT) << "at " << i << " " << int(c);
            }
            if (i + 2 <= len) {  // two bytes of UTF-8 anywhere
                std::string ok = text;
                ok.replace(i, 2, "\xc3\xa9");
                const std::string e = enc_with(ok);
                ASSERT_EQ(decode_exact(e, e.size(), dec, d), 0u) << "at " << i;
                bag_free_indirections(dec.p(), d);
            }
        }
        for (size_t at = 0; at < (4 - len % 4) % 4; at++) {
            const std::string e = enc_with(text, at, '\x01');
            EXPECT_EQ(decode_exact(e, e.size(), dec, d), BAG_ERR_VALUE) << "padding " << at;
        }
    }
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
}

TEST(Codec, ArrayCountBeyondTheDataIsRefusedBeforeAllocating) {
    const BagDesc *d = &bag_desc_l2vpn_evpn_rd_rt_entry;  // rd, rts[], stitching
    const std::string rd = unhex("00000001 0000006400000001");
    const std::string rt = rd;
    Buf dec(d->size);
    auto decode = [&](const std::string &e) { return decode_into(e, dec, d); };
    // One RT and the flag remain: a count of 1 fits, 2 does not.
    EXPECT_EQ(decode(rd + be32(1) + rt + be32(1)), 0u);
    bag_free_indirections(dec.p(), d);
    EXPECT_EQ(decode(rd + be32(2) + rt + be32(1)), BAG_ERR_COUNT);
    // Counts that would ask for gigabytes.
    for (uint32_t count : {0xffffffffu, 0x80000000u, 0x15555556u}) {
        EXPECT_EQ(decode(rd + be32(count) + rt + be32(1)), BAG_ERR_COUNT) << count;
        EXPECT_EQ(bag_inner_bytes_held(), 0u);
    }
    // The same inside a sub-record array: evt_data of an event entry.
    const BagDesc *h = &bag_desc_evt_hist_bag;
    std::string entry = be32(0) + be32(0) + be32(0) + be32(0) + be32(0) + be32(0) + be32(0);
    std::string hist = be32(0) + be32(1) + entry + be32(0x40000000u) + be32(5);
    Buf hdec(h->size);
    EXPECT_EQ(decode_into(hist, hdec, h), BAG_ERR_COUNT);
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
}

TEST(Codec, StringsAndPaddingAreChecked) {
    const std::string good = unhex(kPadsHex);
    Buf dec(sizeof(Pads));
    auto decode = [&](const std::string &e) { return decode_into(e, dec, &kPads); };
    ASSERT_EQ(decode(good), 0u);
    const Pads &p = *static_cast<const Pads *>(dec.p());
    EXPECT_STREQ(p.str, "abcde");
    EXPECT_STREQ(p.opt, "q");
    EXPECT_EQ(p.esi[9], 0x99);
    bag_free_indirections(dec.p(), &kPads);

    // Non-zero padding after a MAC, an ESI, a string and an optional string.
    for (size_t at : {6u, 7u, 18u, 19u, 29u, 31u, 41u, 43u}) {
        std::string bad = good;
        bad[at] = 1;
        EXPECT_EQ(decode(bad), BAG_ERR_VALUE) << "byte " << at;
        EXPECT_EQ(bag_inner_bytes_held(), 0u);
    }
    // An optional string's present word is 0 or 1.
    {
        std::string bad = good;
        bad[35] = 2;
        EXPECT_EQ(decode(bad), BAG_ERR_VALUE);
    }
    const std::string head = good.substr(0, 20);  // mac and esi
    // A length without its bytes, or without its padding.
    EXPECT_EQ(decode(head + be32(5)), BAG_ERR_TRUNCATED);
    EXPECT_EQ(decode(head + be32(5) + "abcde"), BAG_ERR_TRUNCATED);
    EXPECT_EQ(decode(head + be32(5) + "abcde" + std::string(3, '\0')), BAG_ERR_TRUNCATED);  // opt missing
    // Over-long strings: refused by length, not by what follows.
    EXPECT_EQ(decode(head + be32(0xffffffffu) + "abcd"), BAG_ERR_VALUE);
    std::string big(BAG_MAX_STRING + 4, 'x');
    EXPECT_EQ(decode(head + be32(BAG_MAX_STRING + 1) + big + be32(0)), BAG_ERR_VALUE);
    // The longest string there may be.
    ASSERT_EQ(decode(head + be32(BAG_MAX_STRING) + big.substr(0, BAG_MAX_STRING) + be32(0)), 0u);
    EXPECT_EQ(strlen(static_cast<const Pads *>(dec.p())->str), size_t(BAG_MAX_STRING));
    bag_free_indirections(dec.p(), &kPads);
    // The encoder holds the same line: what it makes, the decoder takes.
    Pads rec{};
    std::string text(BAG_MAX_STRING, 'x'), enc;
    rec.str = text.data();
    EXPECT_EQ(bag_encode(&rec, &kPads, enc), 0u);
    text.push_back('x');
    rec.str = text.data();
    enc.clear();
    EXPECT_EQ(bag_encode(&rec, &kPads, enc), BAG_ERR_VALUE);
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
}

TEST(Codec, TextThatCouldDriveATerminalIsAMalformedRecord) {
    Buf dec(sizeof(Pads));
    const std::string head = unhex(kPadsHex).substr(0, 20);
    auto with_str = [&](const std::string &t) {
        return head + be32(static_cast<uint32_t>(t.size())) + t +
               std::string((4 - t.size() % 4) % 4, '\0') + be32(0);
    };
    struct Case {
        std::string text;
        uint32_t rc;
    };
    const Case cases[] = {
        {"bd-10 blue", 0},
        {"caf\xc3\xa9 \xe2\x80\x93 \xf0\x9f\x98\x80", 0},  // two, three and four bytes
        {"\xc2\xa0", 0},                                      // U+00A0, just past C1
        {"a\x1b[2Jb", BAG_ERR_TEXT},                           // escape sequence
        {"0123456789abcdef~ !", 0},                             // whole words and a tail
        {"01234567\x1f" "9abcdef", BAG_ERR_TEXT},               // in the second word
        {"0123456789abcde\x7f", BAG_ERR_TEXT},
        {"0123456789abcdef\x01", BAG_ERR_TEXT},                 // in the tail
        {"01234567\xc3\xa9", 0},
        {std::string("a\0b", 3), BAG_ERR_TEXT},                // NUL inside the length
        {"line\r\nFAKE", BAG_ERR_TEXT},
        {"\x7f", BAG_ERR_TEXT},                                 // DEL
        {"tab\there", BAG_ERR_TEXT},
        {"\xc2\x9b" "2J", BAG_ERR_TEXT},                         // C1 CSI as UTF-8
        {"\xc2\x80", BAG_ERR_TEXT},                             // first C1
        {"\xc2\x9f", BAG_ERR_TEXT},                             // last C1
        {"\xe0\x80\x9b", BAG_ERR_TEXT},                         // overlong ESC in three bytes
        {"\xf0\x80\x80\x9b", BAG_ERR_TEXT},                     // and in four
        {"\xe0\x9f\xbf", BAG_ERR_TEXT},                         // U+07FF in three bytes
        {"\xe0\xa0\x80 \xf0\x90\x80\x80", 0},                 // the least of three and four
        {"\x9b", BAG_ERR_TEXT},                                 // C1 as a raw byte
        {"\xc0\x9b", BAG_ERR_TEXT},                             // overlong form of ESC
        {"\xed\xa0\x80", BAG_ERR_TEXT},                         // surrogate
        {"\xe2\x80", BAG_ERR_TEXT},                             // sequence cut short
        {"\xf4\x90\x80\x80", BAG_ERR_TEXT},                     // past U+10FFFF
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(hex(c.text));
        std::string e = with_str(c.text);
        EXPECT_EQ(decode_into(e, dec, &kPads), c.rc);
        if (c.rc == 0) bag_free_indirections(dec.p(), &kPads);
        EXPECT_EQ(bag_inner_bytes_held(), 0u);
        // The encoder refuses to make what the decoder refuses (a NUL cuts a C text short).
        Pads rec{};
        std::string text = c.text;
        rec.str = text.data();
        std::string enc;
        if (text.find('\0') == std::string::npos) {
            EXPECT_EQ(bag_encode(&rec, &kPads, enc), c.rc);
        }
    }
    // The same text in an optional string.
    std::string opt = head + be32(0) + be32(1) + be32(1) + std::string("\x07\0\0\0", 4);
    EXPECT_EQ(decode_into(opt, dec, &kPads), BAG_ERR_TEXT);
}

TEST(Codec, RecordsOverTheSizeLimitsAreRefusedBothWays) {
    // Encoded bytes: refused by length before anything is read.
    Buf dec(sizeof(Pads));
    std::string big(size_t(BAG_MAX_RECORD) + 4, '\0');
    EXPECT_EQ(decode_into(big, dec, &kPads), BAG_ERR_TOO_BIG);
    // The encoder counts the decoder's inner bytes as the decoder does: each
    // entry its size and its two empty strings (one byte each), plus the
    // class name. n entries fit exactly; one more does not encode.
    const BagDesc *h = &bag_desc_evt_hist_bag;
    const size_t n = (BAG_MAX_INNER - 1) / (sizeof(evt_hist_entry_bag) + 2);
    evt_hist_bag rec{};
    std::vector<evt_hist_entry_bag> entries(n + 1);
    rec.evt_entry = {static_cast<uint32_t>(n + 1), entries.data()};
    std::string enc;
    EXPECT_EQ(bag_encode(&rec, h, enc), BAG_ERR_TOO_BIG);
    rec.evt_entry.count = static_cast<uint32_t>(n);
    enc.clear();
    ASSERT_EQ(bag_encode(&rec, h, enc), 0u);
    Buf hd(h->size);
    EXPECT_EQ(decode_into(enc, hd, h), 0u);
    bag_free_indirections(hd.p(), h);
}

TEST(Codec, NarrowFieldsRefuseValuesOutOfRange) {
    // SidStructure: six u8 fields; L2Attributes: flag, u16 MTU, two u32.
    const BagDesc *sid = &bag_desc_SidStructure, *l2 = &bag_desc_L2Attributes;
    Buf dec(64);
    auto decode = [&](const std::string &e, const BagDesc *d) { return decode_into(e, dec, d); };
    std::string s;
    for (int i = 0; i < 6; i++) s += be32(255);
    ASSERT_EQ(decode(s, sid), 0u);
    EXPECT_EQ(static_cast<const SidStructure *>(dec.p())->TranspositionOffset, 255);
    bag_free_indirections(dec.p(), sid);
    for (uint32_t v : {256u, 0x100000ffu, 0xffffffffu}) {
        std::string bad = s;
        bad.replace(20, 4, be32(v));
        EXPECT_EQ(decode(bad, sid), BAG_ERR_VALUE) << v;
    }
    std::string a = be32(1) + be32(0xffff) + be32(1) + be32(2);
    ASSERT_EQ(decode(a, l2), 0u);
    EXPECT_EQ(static_cast<const L2Attributes *>(dec.p())->MTU, 0xffff);
    bag_free_indirections(dec.p(), l2);
    EXPECT_EQ(decode(be32(1) + be32(70000) + be32(1) + be32(2), l2), BAG_ERR_VALUE);
    // A flag is a whole word: any value stands.
    ASSERT_EQ(decode(be32(7) + be32(1) + be32(1) + be32(2), l2), 0u);
    EXPECT_EQ(static_cast<const L2Attributes *>(dec.p())->Valid, 7u);
    bag_free_indirections(dec.p(), l2);
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
}

TEST(Codec, TrailingBytesSmallBuffersAndAbsentArgumentsAreRefused) {
    for (const BagDesc *const *dp = bag_record_types; *dp; dp++) {
        const BagDesc *d = *dp;
        SCOPED_TRACE(d->name);
        std::string enc = encode_sample(d);
        Buf dec(d->size);
        EXPECT_EQ(decode_exact(enc + std::string(4, '\0'), enc.size() + 4, dec, d), BAG_ERR_TRAILING);
        EXPECT_EQ(decode_exact(enc + "x", enc.size() + 1, dec, d), BAG_ERR_TRAILING);
        EXPECT_EQ(bag_inner_bytes_held(), 0u);
        EXPECT_EQ(bag_decode(enc.data(), static_cast<uint32_t>(enc.size()), dec.p(), d->size - 1, d),
                  BAG_ERR_BUFFER);
        EXPECT_EQ(bag_decode(enc.data(), static_cast<uint32_t>(enc.size()), dec.p(), d->size, d), 0u);
        bag_free_indirections(dec.p(), d);
    }
    std::string enc = encode_sample(&bag_desc_l2vpn_evpn_evi_summary_bag);
    const BagDesc *d = &bag_desc_l2vpn_evpn_evi_summary_bag;
    Buf dec(d->size);
    uint32_t n = static_cast<uint32_t>(enc.size());
    EXPECT_EQ(bag_decode(nullptr, n, dec.p(), dec.size(), d), BAG_ERR_ARG);
    EXPECT_EQ(bag_decode(enc.data(), n, nullptr, dec.size(), d), BAG_ERR_ARG);
    EXPECT_EQ(bag_decode(enc.data(), n, dec.p(), dec.size(), nullptr), BAG_ERR_ARG);
    EXPECT_EQ(bag_decode(nullptr, 0, dec.p(), dec.size(), d), BAG_ERR_TRUNCATED);
    EXPECT_EQ(bag_free_indirections(nullptr, d), BAG_ERR_ARG);
    EXPECT_EQ(bag_free_indirections(dec.p(), nullptr), BAG_ERR_ARG);
    EXPECT_EQ(bag_free_indirections(dec.p(), d), BAG_ERR_NOT_DECODED);
    std::string out;
    EXPECT_EQ(bag_encode(nullptr, d, out), BAG_ERR_ARG);
    EXPECT_EQ(bag_encode(dec.p(), nullptr, out), BAG_ERR_ARG);
    // An array that claims elements it does not have.
    l2vpn_evpn_rd_rt_entry e{};
    e.rts.count = 3;
    EXPECT_EQ(bag_encode(&e, &bag_desc_l2vpn_evpn_rd_rt_entry, out), BAG_ERR_ARG);
}

// Descriptions nested n deep: each level a word and the next level.
struct Chain {
    std::vector<BagDesc> descs;
    std::vector<BagField> fields;
    explicit Chain(int n) : descs(n), fields(2 * n) {
        for (int i = n - 1; i >= 0; i--) {
            fields[2 * i] = {"v", BagKind::U32, BagKind::U32, 0, 0, nullptr};
            fields[2 * i + 1] = {"in", BagKind::STRUCT, BagKind::STRUCT, 0, 4, descs.data() + i + 1};
            uint32_t size = 4 * static_cast<uint32_t>(n - i);
            descs[i] = {"level", size, 4, &fields[2 * i], i == n - 1 ? 1u : 2u};
        }
    }
};

TEST(Codec, NestingBeyondTheDepthLimitIsRefused) {
    // No record type nests that deep; a description built here does.
    for (int n : {int(BAG_MAX_DEPTH) + 1, int(BAG_MAX_DEPTH) + 2}) {
        Chain c(n);
        std::vector<uint32_t> rec(n, 0);
        std::string enc;
        uint32_t rc = bag_encode(rec.data(), &c.descs[0], enc);
        Buf dec(4 * n);
        std::string words(4 * n, '\0');
        uint32_t drc = decode_into(words, dec, &c.descs[0]);
        if (n == int(BAG_MAX_DEPTH) + 1) {
            EXPECT_EQ(rc, 0u);
            EXPECT_EQ(enc.size(), words.size());
            EXPECT_EQ(drc, 0u);
            bag_free_indirections(dec.p(), &c.descs[0]);
        } else {
            EXPECT_EQ(rc, BAG_ERR_DEPTH);
            EXPECT_EQ(drc, BAG_ERR_DEPTH);
        }
    }
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
}

TEST(Codec, InnerAllocationsOfOneRecordAreCapped) {
    // An event history whose entries decode to more than BAG_MAX_INNER bytes.
    const BagDesc *h = &bag_desc_evt_hist_bag;
    const std::string entry = std::string(4, '\0') + std::string(8, '\1') + std::string(5 * 4, '\0');
    auto history = [&](uint32_t n) {
        std::string s = be32(0) + be32(n);
        s.reserve(s.size() + size_t(n) * entry.size());
        for (uint32_t i = 0; i < n; i++) s += entry;
        return s;
    };
    Buf dec(h->size);
    std::string ok = history(100000);
    ASSERT_EQ(decode_into(ok, dec, h), 0u);
    EXPECT_EQ(static_cast<const evt_hist_bag *>(dec.p())->evt_entry.count, 100000u);
    EXPECT_LE(bag_inner_bytes_held(), size_t(BAG_MAX_INNER));
    bag_free_indirections(dec.p(), h);
    std::string over = history(BAG_MAX_INNER / sizeof(evt_hist_entry_bag) + 1000);
    EXPECT_EQ(decode_into(over, dec, h), BAG_ERR_TOO_BIG);
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
    // At the line: each entry its size and its two empty strings (a byte
    // each), plus the empty class name; n entries fit, one more does not.
    const uint32_t n = (BAG_MAX_INNER - 1) / (sizeof(evt_hist_entry_bag) + 2);
    ASSERT_EQ(decode_into(history(n), dec, h), 0u);
    bag_free_indirections(dec.p(), h);
    EXPECT_EQ(decode_into(history(n + 1), dec, h), BAG_ERR_TOO_BIG);
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
}

// ---- Release of inner allocations ----------------------------------------

TEST(Codec, ReleaseReturnsEveryInnerAllocation) {
    const BagDesc *d = &bag_desc_l2vpn_evpn_mac_bag;
    std::string a = encode_sample(d, 1), b = encode_sample(d, 7);
    ASSERT_EQ(bag_inner_bytes_held(), 0u);
    Buf dec(d->size);
    ASSERT_EQ(decode_into(a, dec, d), 0u);
    EXPECT_EQ(bag_free_indirections(dec.p(), d), 0u);
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
    EXPECT_EQ(bag_free_indirections(dec.p(), d), BAG_ERR_NOT_DECODED);  // released once only

    // A second decode into the same buffer replaces the first record's parts.
    ASSERT_EQ(decode_into(a, dec, d), 0u);
    ASSERT_EQ(decode_into(b, dec, d), 0u);
    size_t held_b = bag_inner_bytes_held();
    ASSERT_EQ(decode_into(b, dec, d), 0u);
    EXPECT_EQ(bag_inner_bytes_held(), held_b);
    std::string again;
    ASSERT_EQ(bag_encode(dec.p(), d, again), 0u);
    EXPECT_EQ(hex(again), hex(b));
    // A failed decode into a buffer that held a record releases that record too.
    ASSERT_EQ(decode_exact(b, b.size() - 4, dec, d), BAG_ERR_TRUNCATED);
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
    EXPECT_EQ(bag_free_indirections(dec.p(), d), BAG_ERR_NOT_DECODED);
}

TEST(Codec, LiveBuffersKeepTheirOwnStrings) {
    // A walk nested in a printer decodes into a second buffer while the
    // outer record is still in use.
    const BagDesc *d = &bag_desc_l2vpn_evpn_evi_detail_bag;
    const BagDesc *rt = &bag_desc_l2vpn_evpn_evi_bgp_rt_bag;
    std::string outer_enc = encode_sample(d, 3), inner_enc = encode_sample(rt, 11);
    Buf outer(d->size), inner(rt->size);
    ASSERT_EQ(decode_into(outer_enc, outer, d), 0u);
    const std::string before = as_json(outer.p(), d);
    size_t held_outer = bag_inner_bytes_held();
    for (int i = 0; i < 3; i++) {
        ASSERT_EQ(decode_into(inner_enc, inner, rt), 0u);
        EXPECT_GT(bag_inner_bytes_held(), held_outer);
        EXPECT_EQ(as_json(outer.p(), d), before);
        ASSERT_EQ(bag_free_indirections(inner.p(), rt), 0u);
        EXPECT_EQ(bag_inner_bytes_held(), held_outer);
        // A failed decode of the inner buffer leaves the outer alone.
        EXPECT_EQ(decode_exact(inner_enc, 8, inner, rt), BAG_ERR_TRUNCATED);
        EXPECT_EQ(as_json(outer.p(), d), before);
    }
    std::string again;
    ASSERT_EQ(bag_encode(outer.p(), d, again), 0u);
    EXPECT_EQ(hex(again), hex(outer_enc));
    ASSERT_EQ(bag_free_indirections(outer.p(), d), 0u);
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
}

}  // namespace
