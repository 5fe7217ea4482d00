// JSON <-> record conversion driven by the record descriptions.
#include "json_record.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <limits>

#include "platform/formatters.h"

namespace evpn {

char *RecordArena::text(const std::string &s) {
    texts_.push_back(s);
    return texts_.back().data();
}

void *RecordArena::block(size_t bytes) {
    size_t words = (bytes + 7) / 8;
    blocks_.emplace_back(new uint64_t[words ? words : 1]());
    return blocks_.back().get();
}

void RecordArena::clear() {
    texts_.clear();
    blocks_.clear();
}

namespace {

using json = nlohmann::json;

bool bad(std::string &err, const std::string &where, const std::string &what) {
    err = where + ": " + what;
    return false;
}

// Integers are numbers or text ("0x1f", "31"); flags also true/false.
bool get_int(const json &v, int64_t lo, uint64_t hi, bool allow_bool, uint64_t &out,
             const std::string &where, std::string &err) {
    if (v.is_boolean()) {
        if (!allow_bool) return bad(err, where, "expected a number, got true/false");
        out = v.get<bool>() ? 1 : 0;
        return true;
    }
    if (v.is_number_unsigned()) {
        out = v.get<uint64_t>();
    } else if (v.is_number_integer()) {
        int64_t s = v.get<int64_t>();
        if (s < lo) return bad(err, where, "value " + std::to_string(s) + " out of range");
        out = static_cast<uint64_t>(s);
        if (s < 0) {
            // Negative values are kept as their two's complement in 32 bits.
            out = static_cast<uint32_t>(static_cast<int32_t>(s));
            return true;
        }
    } else if (v.is_string()) {
        const std::string &s = v.get_ref<const std::string &>();
        if (s.empty()) return bad(err, where, "empty number");
        errno = 0;
        char *end = nullptr;
        bool neg = s[0] == '-';
        if (neg) {
            long long n = strtoll(s.c_str(), &end, 0);
            if (*end || errno || n < lo) return bad(err, where, "\"" + s + "\" is not a number in range");
            out = static_cast<uint32_t>(static_cast<int32_t>(n));
            return true;
        }
        unsigned long long n = strtoull(s.c_str(), &end, 0);
        if (*end || errno) return bad(err, where, "\"" + s + "\" is not a number");
        out = n;
    } else {
        return bad(err, where, std::string("expected a number, got ") + v.type_name());
    }
    if (out > hi) return bad(err, where, "value " + std::to_string(out) + " out of range");
    return true;
}

bool scalar_from_json(const json &v, BagKind k, uint8_t *dst, RecordArena &arena,
                      const std::string &where, std::string &err) {
    uint64_t n = 0;
    switch (k) {
    case BagKind::U8:
        if (!get_int(v, 0, 0xff, false, n, where, err)) return false;
        *dst = static_cast<uint8_t>(n);
        return true;
    case BagKind::U16: {
        if (!get_int(v, 0, 0xffff, false, n, where, err)) return false;
        uint16_t h = static_cast<uint16_t>(n);
        memcpy(dst, &h, 2);
        return true;
    }
    case BagKind::U32: case BagKind::BOOL: {
        if (!get_int(v, 0, 0xffffffffu, k == BagKind::BOOL, n, where, err)) return false;
        uint32_t w = static_cast<uint32_t>(n);
        memcpy(dst, &w, 4);
        return true;
    }
    case BagKind::S32: {
        if (!get_int(v, std::numeric_limits<int32_t>::min(), 0x7fffffff, false, n, where, err))
            return false;
        uint32_t w = static_cast<uint32_t>(n);
        memcpy(dst, &w, 4);
        return true;
    }
    case BagKind::U64:
        if (!get_int(v, 0, std::numeric_limits<uint64_t>::max(), false, n, where, err)) return false;
        memcpy(dst, &n, 8);
        return true;
    default:
        break;
    }
    if (k == BagKind::STR || k == BagKind::OPTSTR) {
        if (v.is_null() && k == BagKind::OPTSTR) return true;
        if (!v.is_string()) return bad(err, where, std::string("expected text, got ") + v.type_name());
        const std::string &s = v.get_ref<const std::string &>();
        if (s.size() > BAG_MAX_STRING) return bad(err, where, "text longer than 65536 bytes");
        char *p = arena.text(s);
        memcpy(dst, &p, sizeof p);
        return true;
    }
    if (!v.is_string()) return bad(err, where, std::string("expected text, got ") + v.type_name());
    const std::string &s = v.get_ref<const std::string &>();
    switch (k) {
    case BagKind::IP: {
        l2vpn_ip_addr_t a{};
        if (!l2vpn_inet_pton(s.c_str(), &a)) return bad(err, where, "\"" + s + "\" is not an IP address");
        memcpy(dst, &a, sizeof a);
        return true;
    }
    case BagKind::MAC:
        if (l2vpn_mac_pton(s.c_str(), dst) != 0)
            return bad(err, where, "\"" + s + "\" is not a MAC address (0011.2233.4455)");
        return true;
    case BagKind::ESI:
        if (evpn_esi_pton(s.c_str(), dst) != 0)
            return bad(err, where, "\"" + s + "\" is not an ESI (0011.2233.4455.6677.8899)");
        return true;
    case BagKind::RD: case BagKind::RT: {
        l2vpn_bag_rd_t rd{};
        if (l2vpn_bag_rd_pton(s.c_str(), &rd) != 0)
            return bad(err, where, "\"" + s + "\" is not an RD/RT (100:1, 1.1.1.1:5 or raw:<24 hex>)");
        memcpy(dst, &rd, sizeof rd);
        return true;
    }
    default:
        return bad(err, where, "unsupported field kind");
    }
}

bool element_from_json(const json &v, const BagField &f, uint8_t *dst, RecordArena &arena,
                       const std::string &where, std::string &err) {
    if (f.elem == BagKind::STRUCT) return json_to_record(v, f.sub, dst, arena, where, err);
    return scalar_from_json(v, f.elem, dst, arena, where, err);
}

nlohmann::ordered_json scalar_to_json(BagKind k, const uint8_t *p) {
    using json = nlohmann::ordered_json;
    switch (k) {
    case BagKind::U8: return *p;
    case BagKind::U16: { uint16_t v; memcpy(&v, p, 2); return v; }
    case BagKind::U32: { uint32_t v; memcpy(&v, p, 4); return v; }
    case BagKind::BOOL: {
        uint32_t v;
        memcpy(&v, p, 4);
        return v <= 1 ? json(v == 1) : json(v);
    }
    case BagKind::S32: { int32_t v; memcpy(&v, p, 4); return v; }
    case BagKind::U64: { uint64_t v; memcpy(&v, p, 8); return v; }
    case BagKind::IP: {
        l2vpn_ip_addr_t a;
        memcpy(&a, p, sizeof a);
        return l2vpn_inet_ntop(&a);
    }
    case BagKind::MAC: return macstring(p, 6);
    case BagKind::ESI: {
        char buf[32];
        snprintf(buf, sizeof buf, "%02x%02x.%02x%02x.%02x%02x.%02x%02x.%02x%02x", p[0], p[1], p[2],
                 p[3], p[4], p[5], p[6], p[7], p[8], p[9]);
        return buf;
    }
    case BagKind::RD: case BagKind::RT: {
        l2vpn_bag_rd_t v;
        memcpy(&v, p, sizeof v);
        char buf[64];
        l2vpn_bag_rd_to_text(&v, buf, sizeof buf);
        return buf;
    }
    case BagKind::STR: case BagKind::OPTSTR: {
        const char *s;
        memcpy(&s, p, sizeof s);
        if (!s) return k == BagKind::OPTSTR ? json(nullptr) : json("");
        return s;
    }
    default:
        return nullptr;
    }
}

nlohmann::ordered_json element_to_json(const BagField &f, const uint8_t *p) {
    if (f.elem == BagKind::STRUCT) return record_to_json(p, f.sub);
    return scalar_to_json(f.elem, p);
}

}  // namespace

bool json_to_record(const json &j, const BagDesc *desc, void *out, RecordArena &arena,
                    const std::string &where, std::string &err) {
    if (!j.is_object())
        return bad(err, where, std::string("expected an object of ") + desc->name + ", got " +
                                   j.type_name());
    uint8_t *rec = static_cast<uint8_t *>(out);
    memset(rec, 0, desc->size);
    for (auto it = j.begin(); it != j.end(); ++it) {
        const BagField *f = bag_find_field(desc, it.key().c_str());
        std::string at = where + "." + it.key();
        if (!f) return bad(err, at, std::string("unknown field of ") + desc->name);
        const json &v = it.value();
        uint8_t *dst = rec + f->offset;
        switch (f->kind) {
        case BagKind::STRUCT:
            if (!json_to_record(v, f->sub, dst, arena, at, err)) return false;
            break;
        case BagKind::FIXED: {
            if (!v.is_array()) return bad(err, at, "expected a list");
            if (v.size() > f->count)
                return bad(err, at, "at most " + std::to_string(f->count) + " elements");
            uint32_t es = bag_elem_size(*f);
            for (size_t e = 0; e < v.size(); e++)
                if (!element_from_json(v[e], *f, dst + e * es, arena,
                                       at + "[" + std::to_string(e) + "]", err))
                    return false;
            break;
        }
        case BagKind::ARRAY: {
            if (!v.is_array()) return bad(err, at, "expected a list");
            uint32_t es = bag_elem_size(*f);
            bag_array<uint8_t> arr{static_cast<uint32_t>(v.size()), nullptr};
            if (arr.count) arr.data = static_cast<uint8_t *>(arena.block(size_t(arr.count) * es));
            for (size_t e = 0; e < v.size(); e++)
                if (!element_from_json(v[e], *f, arr.data + e * es, arena,
                                       at + "[" + std::to_string(e) + "]", err))
                    return false;
            memcpy(dst, &arr, sizeof arr);
            break;
        }
        default:
            if (!scalar_from_json(v, f->kind, dst, arena, at, err)) return false;
        }
    }
    return true;
}

nlohmann::ordered_json record_to_json(const void *record, const BagDesc *desc) {
    const uint8_t *rec = static_cast<const uint8_t *>(record);
    nlohmann::ordered_json o = nlohmann::ordered_json::object();
    for (uint32_t i = 0; i < desc->nfields; i++) {
        const BagField &f = desc->fields[i];
        const uint8_t *p = rec + f.offset;
        switch (f.kind) {
        case BagKind::STRUCT:
            o[f.name] = record_to_json(p, f.sub);
            break;
        case BagKind::FIXED: {
            nlohmann::ordered_json a = nlohmann::ordered_json::array();
            for (uint32_t e = 0; e < f.count; e++) a.push_back(element_to_json(f, p + size_t(e) * bag_elem_size(f)));
            o[f.name] = std::move(a);
            break;
        }
        case BagKind::ARRAY: {
            bag_array<uint8_t> arr;
            memcpy(&arr, p, sizeof arr);
            nlohmann::ordered_json a = nlohmann::ordered_json::array();
            for (uint32_t e = 0; e < arr.count; e++)
                a.push_back(element_to_json(f, arr.data + size_t(e) * bag_elem_size(f)));
            o[f.name] = std::move(a);
            break;
        }
        default:
            o[f.name] = scalar_to_json(f.kind, p);
        }
    }
    return o;
}

}  // namespace evpn
