// Item names, sort keys and index orderings.
#include "platform/sysdb_keys.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>

#include "platform/bag.h"
#include "platform/formatters.h"

namespace sysdb_keys {
namespace {

void put_be32(std::string &out, uint32_t v) {
    char b[4] = {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
    out.append(b, 4);
}

bool parse_hex32(std::string_view s, uint32_t max, uint32_t &v) {
    if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) s.remove_prefix(2);
    if (s.empty() || s.size() > 8) return false;
    uint64_t n = 0;
    for (char c : s) {
        int d;
        if (c >= '0' && c <= '9') d = c - '0';
        else if (c >= 'a' && c <= 'f') d = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F') d = c - 'A' + 10;
        else return false;
        n = n * 16 + d;
    }
    if (n > max) return false;
    v = static_cast<uint32_t>(n);
    return true;
}

bool parse_hex_bytes(std::string_view s, size_t n, std::string &out) {
    if (s.size() != 2 * n) return false;
    for (size_t i = 0; i < n; i++) {
        uint32_t b;
        if (!parse_hex32(s.substr(2 * i, 2), 0xff, b)) return false;
        out.push_back(static_cast<char>(b));
    }
    return true;
}

// n is at most 16. The digits are made in a buffer and appended at once.
void append_hex_bytes(std::string &s, const uint8_t *p, size_t n) {
    static const char digits[] = "0123456789abcdef";
    char b[32];
    for (size_t i = 0; i < n; i++) {
        b[2 * i] = digits[p[i] >> 4];
        b[2 * i + 1] = digits[p[i] & 15];
    }
    s.append(b, 2 * n);
}

// v as "%x".
void append_hex(std::string &s, uint32_t v) {
    char b[8];
    char *e = b + sizeof b, *q = e;
    do {
        *--q = "0123456789abcdef"[v & 15];
        v >>= 4;
    } while (v);
    s.append(q, static_cast<size_t>(e - q));
}

size_t fixed_len(KeyText t) {
    switch (t) {
    case KeyText::HEX0X: case KeyText::HEX: return 4;
    case KeyText::MAC3: return 6;
    case KeyText::IPHEX: return 16;
    case KeyText::ESI: return 10;
    case KeyText::RDHEX: return 12;
    case KeyText::STR: return 0;
    }
    return 0;
}

// Bytes of field pos's component of a sort key at bytes[at..]: fixed, or a
// string through its NUL; 0 when the bytes end first.
size_t part_len(const ListingDef &l, uint8_t pos, std::string_view bytes, size_t at) {
    const KeyText t = l.keys[pos].text;
    size_t n = fixed_len(t);
    if (t == KeyText::STR) {
        const size_t nul = bytes.find('\0', at);
        if (nul == std::string_view::npos) return 0;
        n = nul - at + 1;
    }
    return at + n > bytes.size() ? 0 : n;
}

bool is_prefix(std::span<const uint8_t> a, std::span<const uint8_t> b) {
    if (a.size() > b.size()) return false;
    for (size_t i = 0; i < a.size(); i++)
        if (a[i] != b[i]) return false;
    return true;
}

}  // namespace

bool parse_field(KeyText text, std::span<const std::string_view> comps, std::string &sort) {
    switch (text) {
    case KeyText::HEX0X: case KeyText::HEX: {
        uint32_t v;
        if (comps.size() != 1 || !parse_hex32(comps[0], 0xffffffffu, v)) return false;
        put_be32(sort, v);
        return true;
    }
    case KeyText::MAC3: {
        if (comps.size() != 3) return false;
        for (std::string_view c : comps) {
            uint32_t v;
            if (!parse_hex32(c, 0xffff, v)) return false;
            sort.push_back(char(v >> 8));
            sort.push_back(char(v));
        }
        return true;
    }
    case KeyText::IPHEX:
        return comps.size() == 1 && parse_hex_bytes(comps[0], 16, sort);
    case KeyText::RDHEX:
        return comps.size() == 1 && parse_hex_bytes(comps[0], 12, sort);
    case KeyText::ESI: {
        uint8_t esi[10];
        std::string s(comps.size() == 1 ? comps[0] : std::string_view());
        if (comps.size() != 1 || evpn_esi_pton(s.c_str(), esi) != 0) return false;
        sort.append(reinterpret_cast<const char *>(esi), 10);
        return true;
    }
    case KeyText::STR:
        if (comps.size() != 1 || comps[0].empty() ||
            comps[0].find('\0') != std::string_view::npos)
            return false;
        sort.append(comps[0]);
        sort.push_back('\0');
        return true;
    }
    return false;
}

bool key_fields(const ListingDef &l, std::vector<const BagField *> &fields, std::string &err) {
    fields.clear();
    for (const KeyField &k : l.keys) {
        const BagField *f = bag_find_field(l.desc, k.field);
        if (!f) {
            err = std::string("registry names unknown key field ") + k.field;
            return false;
        }
        fields.push_back(f);
    }
    return true;
}

bool from_record(const ListingDef &l, const void *record, std::vector<std::string> &sort,
                 std::vector<std::string> &text, std::string &err) {
    std::vector<const BagField *> fields;
    return key_fields(l, fields, err) && from_record(l, fields.data(), record, sort, text, err);
}

bool from_record(const ListingDef &l, const BagField *const *fields, const void *record,
                 std::vector<std::string> &sort, std::vector<std::string> &text, std::string &err) {
    const uint8_t *rec = static_cast<const uint8_t *>(record);
    // The strings are kept from the previous record with their memory.
    sort.resize(l.keys.size());
    text.resize(l.keys.size());
    for (size_t i = 0; i < l.keys.size(); i++) {
        const KeyField &k = l.keys[i];
        const BagField *f = fields[i];
        const uint8_t *p = rec + f->offset;
        std::string &s = sort[i], &t = text[i];
        s.clear();
        t.clear();
        switch (k.text) {
        case KeyText::HEX0X: case KeyText::HEX: {
            uint32_t v = 0;
            if (f->kind == BagKind::U8) v = *p;
            else if (f->kind == BagKind::U16) { uint16_t h; memcpy(&h, p, 2); v = h; }
            else memcpy(&v, p, 4);
            put_be32(s, v);
            if (k.text == KeyText::HEX0X) t = "0x";
            append_hex(t, v);
            break;
        }
        case KeyText::MAC3:
            s.assign(reinterpret_cast<const char *>(p), 6);
            for (int w = 0; w < 3; w++) {
                if (w) t.push_back(',');
                append_hex(t, static_cast<uint32_t>((p[2 * w] << 8) | p[2 * w + 1]));
            }
            break;
        case KeyText::IPHEX:
            s.assign(reinterpret_cast<const char *>(p), 16);
            append_hex_bytes(t, p, 16);
            break;
        case KeyText::ESI: {
            s.assign(reinterpret_cast<const char *>(p), 10);
            const char *e = esistring(p);
            if (!e) {
                err = std::string("field ") + k.field + ": the ESI has no text form";
                return false;
            }
            t = e;
            break;
        }
        case KeyText::RDHEX: {
            l2vpn_bag_rd_t v;
            memcpy(&v, p, sizeof v);
            uint8_t b[12] = {uint8_t(v.format >> 24), uint8_t(v.format >> 16),
                             uint8_t(v.format >> 8), uint8_t(v.format)};
            memcpy(b + 4, v.value, 8);
            s.assign(reinterpret_cast<const char *>(b), 12);
            append_hex_bytes(t, b, 12);
            break;
        }
        case KeyText::STR: {
            const char *str;
            memcpy(&str, p, sizeof str);
            if (!str || !*str) {
                // An empty text cannot stand in a path: the item simply has
                // no entry in this key's indices.
                t.clear();
                s.clear();
                break;
            }
            if (strpbrk(str, ",/")) {
                err = std::string("field ") + k.field + ": a key text may not hold ',' or '/'";
                return false;
            }
            t = str;
            s = t;
            s.push_back('\0');
            break;
        }
        }
    }
    return true;
}

std::string item_name(const ListingDef &l, const std::vector<std::string> &text) {
    std::string name;
    for (size_t i = 0; i < l.item_key.size(); i++) {
        if (i) name.push_back(',');
        name += text[l.item_key[i]];
    }
    return name;
}

std::string item_skey(const ListingDef &l, const std::vector<std::string> &sort) {
    std::string skey;
    for (uint8_t pos : l.item_key) skey += sort[pos];
    return skey;
}

bool skey_from_name(const ListingDef &l, std::string_view name, std::string &skey,
                    std::vector<std::string> *field_sort) {
    // Components on the stack: an item get of a listing display resolves
    // its name once per record. More than every key field can take names
    // no item.
    std::string_view comps[3 * kMaxKeys];
    size_t count = 0;
    for (size_t start = 0;;) {
        if (count == std::size(comps)) return false;
        size_t comma = name.find(',', start);
        comps[count++] = name.substr(start, comma == std::string_view::npos ? comma : comma - start);
        if (comma == std::string_view::npos) break;
        start = comma + 1;
    }
    size_t at = 0;
    skey.clear();
    if (field_sort) field_sort->assign(l.keys.size(), std::string());
    for (uint8_t pos : l.item_key) {
        KeyText t = l.keys[pos].text;
        size_t n = key_text_components(t);
        if (at + n > count) return false;
        const size_t from = skey.size();
        if (!parse_field(t, std::span<const std::string_view>(comps + at, n), skey)) return false;
        if (field_sort) (*field_sort)[pos] = skey.substr(from);
        at += n;
    }
    return at == count;
}

namespace {
std::vector<std::vector<uint8_t>> compute_stored_orderings(const ListingDef &l) {
    std::vector<std::vector<uint8_t>> all;
    for (const IndexDef &ix : l.indices)
        for (const auto &o : ix.orderings)
            if (!is_prefix(o, l.item_key)) all.emplace_back(o.begin(), o.end());
    std::vector<std::vector<uint8_t>> kept;
    for (size_t i = 0; i < all.size(); i++) {
        bool covered = false;
        for (size_t j = 0; j < all.size() && !covered; j++)
            if (i != j && is_prefix(all[i], all[j]) &&
                (all[i].size() < all[j].size() || j < i))
                covered = true;
        if (!covered) kept.push_back(all[i]);
    }
    return kept;
}
}  // namespace

const std::vector<std::vector<uint8_t>> &stored_orderings(const ListingDef &l) {
    // The registry is constant: each listing's orderings are worked out once.
    static std::map<const ListingDef *, std::vector<std::vector<uint8_t>>> cache;
    auto it = cache.find(&l);
    if (it == cache.end()) it = cache.emplace(&l, compute_stored_orderings(l)).first;
    return it->second;
}

int ordering_home(const ListingDef &l, std::span<const uint8_t> ordering) {
    if (is_prefix(ordering, l.item_key)) return -1;
    const auto &kept = stored_orderings(l);
    for (size_t i = 0; i < kept.size(); i++)
        if (is_prefix(ordering, kept[i])) return static_cast<int>(i);
    return -2;
}

std::string ordering_path(const ListingDef &l, std::span<const uint8_t> ordering) {
    std::string p = l.base;
    p.push_back('#');
    for (uint8_t pos : ordering) p.push_back(static_cast<char>('0' + pos));
    return p;
}

std::vector<uint8_t> row_layout(const ListingDef &l, std::span<const uint8_t> ordering) {
    std::vector<uint8_t> layout(ordering.begin(), ordering.end());
    for (uint8_t pos : l.item_key)
        if (std::find(ordering.begin(), ordering.end(), pos) == ordering.end()) layout.push_back(pos);
    return layout;
}

bool skey_of_row(const ListingDef &l, const std::vector<uint8_t> &layout, std::string_view row,
                 std::string &skey) {
    std::string_view parts[16];
    if (layout.size() > 16) return false;
    size_t at = 0;
    for (size_t i = 0; i < layout.size(); i++) {
        const size_t n = part_len(l, layout[i], row, at);
        if (!n) return false;
        parts[i] = row.substr(at, n);
        at += n;
    }
    if (at != row.size()) return false;
    skey.clear();
    for (uint8_t pos : l.item_key)
        for (size_t i = 0; i < layout.size(); i++)
            if (layout[i] == pos) skey.append(parts[i]);
    return true;
}

bool split(const ListingDef &l, const std::vector<uint8_t> &ordering, std::string_view bytes,
           std::vector<std::string_view> &parts) {
    parts.clear();
    size_t at = 0;
    for (uint8_t pos : ordering) {
        const size_t n = part_len(l, pos, bytes, at);
        if (!n) return false;
        parts.push_back(bytes.substr(at, n));
        at += n;
    }
    return true;
}

}  // namespace sysdb_keys
