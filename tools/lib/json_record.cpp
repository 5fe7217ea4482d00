// JSON <-> record conversion driven by the record descriptions.
#include "json_record.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <limits>
#include <unordered_map>

#include "platform/formatters.h"

namespace evpn {

namespace {
constexpr size_t kChunkWords = 8192;  // 64 KiB
}  // namespace

uint64_t *RecordArena::take(size_t words) {
    if (!chunks_.empty() && used_ + words <= chunks_[current_].words) {
        uint64_t *p = chunks_[current_].mem.get() + used_;
        used_ += words;
        return p;
    }
    // The next chunk, if it is big enough; else a new one in its place.
    size_t next = chunks_.empty() ? 0 : current_ + 1;
    if (next >= chunks_.size() || chunks_[next].words < words) {
        size_t n = words > kChunkWords ? words : kChunkWords;
        chunks_.insert(chunks_.begin() + static_cast<ptrdiff_t>(next),
                       Chunk{std::unique_ptr<uint64_t[]>(new uint64_t[n]), n});
    }
    current_ = next;
    used_ = words;
    return chunks_[current_].mem.get();
}

char *RecordArena::text(std::string_view s) {
    inner_ += s.size() + 1;
    char *p = reinterpret_cast<char *>(take(s.size() / 8 + 1));
    memcpy(p, s.data(), s.size());
    p[s.size()] = '\0';
    return p;
}

void *RecordArena::block(size_t bytes) {
    inner_ += bytes;
    size_t words = (bytes + 7) / 8;
    if (!words) words = 1;
    uint64_t *p = take(words);
    memset(p, 0, words * 8);
    return p;
}

void RecordArena::clear() {
    current_ = 0;
    used_ = 0;
    inner_ = 0;
}

namespace {

// One JSON value as the field conversions see it: a scalar, or only the kind
// of an object or list, as a token gives it.
struct Value {
    enum Type : uint8_t { Null, Bool, Uint, Int, Float, String, Object, Array } type = Null;
    bool b = false;
    uint64_t u = 0;
    int64_t i = 0;
    std::string_view s;

    const char *type_name() const {
        static const char *const names[] = {"null", "boolean", "number", "number",
                                            "number", "string", "object", "array"};
        return names[type];
    }
};

Value from_token(const JsonToken &t) {
    Value v;
    switch (t.kind) {
    case JsonTok::True: v.type = Value::Bool; v.b = true; break;
    case JsonTok::False: v.type = Value::Bool; break;
    case JsonTok::Uint: v.type = Value::Uint; v.u = t.u; break;
    case JsonTok::Int: v.type = Value::Int; v.i = t.i; break;
    case JsonTok::Float: v.type = Value::Float; v.s = t.text; break;
    case JsonTok::String: v.type = Value::String; v.s = t.text; break;
    case JsonTok::ObjectStart: v.type = Value::Object; break;
    case JsonTok::ArrayStart: v.type = Value::Array; break;
    default: break;
    }
    return v;
}

// A text as the C parsers take it: up to its first NUL, as c_str() gives it.
class CText {
  public:
    explicit CText(std::string_view s) {
        if (s.size() < sizeof small_) {
            memcpy(small_, s.data(), s.size());
            small_[s.size()] = '\0';
            p_ = small_;
        } else {
            big_.assign(s);
            p_ = big_.c_str();
        }
    }
    const char *c_str() const { return p_; }

  private:
    char small_[128];
    std::string big_;
    const char *p_;
};

std::string quoted(std::string_view s) {
    std::string q;
    q.reserve(s.size() + 2);
    q += '"';
    q += s;
    q += '"';
    return q;
}

// Integers are numbers or text ("0x1f", "31"); flags also true/false.
bool get_int(const Value &v, int64_t lo, uint64_t hi, bool allow_bool, uint64_t &out, std::string &what) {
    switch (v.type) {
    case Value::Bool:
        if (!allow_bool) {
            what = "expected a number, got true/false";
            return false;
        }
        out = v.b ? 1 : 0;
        return true;
    case Value::Uint:
        out = v.u;
        break;
    case Value::Int:
        if (v.i < lo) {
            what = "value " + std::to_string(v.i) + " out of range";
            return false;
        }
        out = static_cast<uint64_t>(v.i);
        if (v.i < 0) {
            // Negative values are kept as their two's complement in 32 bits.
            out = static_cast<uint32_t>(static_cast<int32_t>(v.i));
            return true;
        }
        break;
    case Value::Float: {
        // An integer too long for 64 bits reads as a float; say which it is.
        std::string_view t = v.s;
        bool integer = !t.empty();
        for (size_t i = t.size() && t[0] == '-' ? 1 : 0; i < t.size(); i++)
            integer = integer && t[i] >= '0' && t[i] <= '9';
        if (t.size() > 24) t = t.substr(0, 20);
        const std::string shown = std::string(t) + (t.size() < v.s.size() ? "..." : "");
        what = integer ? "value " + shown + " out of range" : shown + " is not an integer";
        return false;
    }
    case Value::String: {
        if (v.s.empty()) {
            what = "empty number";
            return false;
        }
        if (v.s.find('\0') != std::string_view::npos) {
            what = "text holds control character U+0000 at byte " + std::to_string(v.s.find('\0'));
            return false;
        }
        CText s(v.s);
        errno = 0;
        char *end = nullptr;
        if (v.s[0] == '-') {
            long long n = strtoll(s.c_str(), &end, 0);
            if (*end || errno || n < lo) {
                what = quoted(v.s) + " is not a number in range";
                return false;
            }
            out = static_cast<uint32_t>(static_cast<int32_t>(n));
            return true;
        }
        unsigned long long n = strtoull(s.c_str(), &end, 0);
        if (*end || errno) {
            what = quoted(v.s) + " is not a number";
            return false;
        }
        out = n;
        break;
    }
    default:
        what = std::string("expected a number, got ") + v.type_name();
        return false;
    }
    if (out > hi) {
        what = "value " + std::to_string(out) + " out of range";
        return false;
    }
    return true;
}

// Converts one value into a field of kind k at dst; on error, what says why.
bool scalar_from_value(const Value &v, BagKind k, uint8_t *dst, RecordArena &arena, std::string &what) {
    uint64_t n = 0;
    switch (k) {
    case BagKind::U8:
        if (!get_int(v, 0, 0xff, false, n, what)) return false;
        *dst = static_cast<uint8_t>(n);
        return true;
    case BagKind::U16: {
        if (!get_int(v, 0, 0xffff, false, n, what)) return false;
        uint16_t h = static_cast<uint16_t>(n);
        memcpy(dst, &h, 2);
        return true;
    }
    case BagKind::U32: case BagKind::BOOL: {
        if (!get_int(v, 0, 0xffffffffu, k == BagKind::BOOL, n, what)) return false;
        uint32_t w = static_cast<uint32_t>(n);
        memcpy(dst, &w, 4);
        return true;
    }
    case BagKind::S32: {
        if (!get_int(v, std::numeric_limits<int32_t>::min(), 0x7fffffff, false, n, what)) return false;
        uint32_t w = static_cast<uint32_t>(n);
        memcpy(dst, &w, 4);
        return true;
    }
    case BagKind::U64:
        if (!get_int(v, 0, std::numeric_limits<uint64_t>::max(), false, n, what)) return false;
        memcpy(dst, &n, 8);
        return true;
    default:
        break;
    }
    if (v.type == Value::Null && k == BagKind::OPTSTR) {
        char *none = nullptr;
        memcpy(dst, &none, sizeof none);
        return true;
    }
    if (v.type != Value::String) {
        what = std::string("expected text, got ") + v.type_name();
        return false;
    }
    if (k == BagKind::STR || k == BagKind::OPTSTR) {
        if (v.s.size() > BAG_MAX_STRING) {
            what = "text longer than 65536 bytes";
            return false;
        }
        uint32_t cp = 0;
        size_t at = bag_text_bad_at(v.s.data(), v.s.size(), &cp);
        if (at != v.s.size()) {
            char b[96];
            if (cp == 0xffffffffu)
                snprintf(b, sizeof b, "text is not UTF-8 (byte %zu)", at);
            else
                snprintf(b, sizeof b, "text holds control character U+%04X at byte %zu", cp, at);
            what = b;
            return false;
        }
        char *p = arena.text(v.s);
        memcpy(dst, &p, sizeof p);
        return true;
    }
    if (v.s.find('\0') != std::string_view::npos) {
        what = "text holds control character U+0000 at byte " + std::to_string(v.s.find('\0'));
        return false;
    }
    CText s(v.s);
    switch (k) {
    case BagKind::IP: {
        l2vpn_ip_addr_t a{};
        if (!l2vpn_inet_pton(s.c_str(), &a)) {
            what = quoted(v.s) + " is not an IP address";
            return false;
        }
        memcpy(dst, &a, sizeof a);
        return true;
    }
    case BagKind::MAC:
        if (l2vpn_mac_pton(s.c_str(), dst) != 0) {
            what = quoted(v.s) + " is not a MAC address (0011.2233.4455)";
            return false;
        }
        return true;
    case BagKind::ESI:
        if (evpn_esi_pton(s.c_str(), dst) != 0) {
            what = quoted(v.s) + " is not an ESI (0011.2233.4455.6677.8899)";
            return false;
        }
        return true;
    case BagKind::RD: case BagKind::RT: {
        l2vpn_bag_rd_t rd{};
        if (l2vpn_bag_rd_pton(s.c_str(), &rd) != 0) {
            what = quoted(v.s) + " is not an RD/RT (100:1, 1.1.1.1:5 or raw:<24 hex>)";
            return false;
        }
        memcpy(dst, &rd, sizeof rd);
        return true;
    }
    default:
        what = "unsupported field kind";
        return false;
    }
}

std::string expected_object(const BagDesc *desc, const Value &v) {
    return std::string("expected an object of ") + desc->name + ", got " + v.type_name();
}

std::string too_big() {
    return "record over " + std::to_string(BAG_MAX_INNER) +
           " bytes of text and lists, more than a record may hold";
}

std::string at_most(const BagField &f) { return "at most " + std::to_string(f.count) + " elements"; }

}  // namespace

// Where a value is, for messages: the record's own where, then a field, a
// member name that is no field, or an element index per level. Rendered only
// when there is an error.
struct TokenRecordBuilder::Path {
    enum Kind : uint8_t { Record, Listed, Field, Unknown, Element } kind;
    const Path *up;
    const std::string *where;  // Record
    const char *field;         // Field
    std::string_view unknown;  // Unknown; Listed: the list's name
    size_t index;              // Element, Listed

    static Path record(const std::string &where) { return {Record, nullptr, &where, nullptr, {}, 0}; }
    static Path listed(std::string_view list, size_t i) { return {Listed, nullptr, nullptr, nullptr, list, i}; }
    static Path of_field(const Path &up, const char *name) { return {Field, &up, nullptr, name, {}, 0}; }
    static Path of_unknown(const Path &up, std::string_view name) { return {Unknown, &up, nullptr, nullptr, name, 0}; }
    static Path of_element(const Path &up, size_t i) { return {Element, &up, nullptr, nullptr, {}, i}; }

    void render(std::string &out) const {
        switch (kind) {
        case Record: out += *where; return;
        case Listed: out += unknown; out += '['; out += std::to_string(index); out += ']'; return;
        case Field: up->render(out); out += '.'; out += field; return;
        case Unknown: up->render(out); out += '.'; out += unknown; return;
        case Element: up->render(out); out += '['; out += std::to_string(index); out += ']'; return;
        }
    }
};

namespace {

// Fields mostly come in description order, some left out, so the search
// starts after the last field found; before that it tries the field that
// followed the last one the previous time (records of a listing mostly name
// the same fields in the same order). names: the description's Names.
const BagField *find_field(const BagDesc *desc, uint32_t *names, std::string_view key, uint32_t hint) {
    const uint32_t n = desc->nfields;
    const uint32_t *len = names;
    uint32_t *follows = names + n;
    auto same = [&](uint32_t i) {
        return len[i] == key.size() && memcmp(desc->fields[i].name, key.data(), key.size()) == 0;
    };
    if (!key.empty()) {
        const uint32_t guess = follows[hint];
        if (guess < n && same(guess)) return &desc->fields[guess];
        auto found = [&](uint32_t i) {
            follows[hint] = i;
            return &desc->fields[i];
        };
        for (uint32_t i = hint; i < n; i++)
            if (same(i)) return found(i);
        for (uint32_t i = 0; i < hint && i < n; i++)
            if (same(i)) return found(i);
    }
    // A name with a NUL in it matches as its text up to the NUL, as with C strings.
    if (key.find('\0') != std::string_view::npos) return bag_find_field(desc, std::string(key).c_str());
    return nullptr;
}

// The common scalars without the general conversion: an unsigned number in
// range of an integer field, true/false for a flag, good text for a text
// field. False leaves dst alone for scalar_from_value, which also names what
// is wrong.
inline bool scalar_fast(const JsonToken &v, BagKind k, uint8_t *dst, RecordArena &arena) {
    if (v.kind == JsonTok::Uint) {
        const uint64_t u = v.u;
        switch (k) {
        case BagKind::U8:
            if (u > 0xff) return false;
            *dst = static_cast<uint8_t>(u);
            return true;
        case BagKind::U16: {
            if (u > 0xffff) return false;
            const uint16_t h = static_cast<uint16_t>(u);
            memcpy(dst, &h, 2);
            return true;
        }
        case BagKind::U32: case BagKind::BOOL: case BagKind::S32: {
            if (u > (k == BagKind::S32 ? 0x7fffffffu : 0xffffffffu)) return false;
            const uint32_t w = static_cast<uint32_t>(u);
            memcpy(dst, &w, 4);
            return true;
        }
        case BagKind::U64:
            memcpy(dst, &u, 8);
            return true;
        default:
            return false;
        }
    }
    if (k == BagKind::BOOL && (v.kind == JsonTok::True || v.kind == JsonTok::False)) {
        const uint32_t w = v.kind == JsonTok::True;
        memcpy(dst, &w, 4);
        return true;
    }
    if (v.kind == JsonTok::String && (k == BagKind::STR || k == BagKind::OPTSTR)) {
        uint32_t cp;
        if (v.text.size() > BAG_MAX_STRING || bag_text_bad_at(v.text.data(), v.text.size(), &cp) != v.text.size())
            return false;
        char *p = arena.text(v.text);
        memcpy(dst, &p, sizeof p);
        return true;
    }
    return false;
}

}  // namespace

uint32_t *TokenRecordBuilder::names(const BagDesc *desc) {
    // A few types take turns in each record: most lookups end in the cache.
    const size_t slot = (reinterpret_cast<uintptr_t>(desc) >> 3) * 0x9e3779b97f4a7c15u >> 60;
    if (recent_[slot].desc == desc) return recent_[slot].names;
    std::vector<uint32_t> &v = names_[desc];
    const uint32_t n = desc->nfields;
    if (v.size() != 2 * size_t(n) + 1) {
        v.assign(2 * size_t(n) + 1, n);  // no field follows any yet
        for (uint32_t i = 0; i < n; i++) v[i] = static_cast<uint32_t>(strlen(desc->fields[i].name));
    }
    recent_[slot] = {desc, v.data()};
    return v.data();
}

bool TokenRecordBuilder::fail(const Path &at, const std::string &what) {
    err_->clear();
    at.render(*err_);
    *err_ += ": ";
    *err_ += what;
    return false;
}

bool TokenRecordBuilder::build(JsonReader &r, const JsonToken &first, const BagDesc *desc, void *out,
                               RecordArena &arena, const std::string &where, std::string &err) {
    return start(r, first, desc, out, arena, Path::record(where), err);
}

bool TokenRecordBuilder::build(JsonReader &r, const JsonToken &first, const BagDesc *desc, void *out,
                               RecordArena &arena, std::string_view list, uint64_t index,
                               std::string &err) {
    return start(r, first, desc, out, arena, Path::listed(list, index), err);
}

bool TokenRecordBuilder::start(JsonReader &r, const JsonToken &first, const BagDesc *desc, void *out,
                               RecordArena &arena, const Path &at, std::string &err) {
    arena_ = &arena;
    err_ = &err;
    pending_ = 0;
    if (first.kind != JsonTok::ObjectStart) return fail(at, expected_object(desc, from_token(first)));
    if (!record(r, desc, static_cast<uint8_t *>(out), at, 0)) return false;
    return !over_limit() || fail(at, too_big());
}

// The object's opening brace has been read.
bool TokenRecordBuilder::record(JsonReader &r, const BagDesc *desc, uint8_t *rec, const Path &at,
                                unsigned level) {
    memset(rec, 0, desc->size);
    uint32_t *const by_name = names(desc);
    uint32_t hint = 0;
    for (;;) {
        const JsonToken &key = r.next();
        if (key.kind == JsonTok::ObjectEnd) return true;
        const BagField *f = find_field(desc, by_name, key.text, hint);
        if (!f) return fail(Path::of_unknown(at, key.text), std::string("unknown field of ") + desc->name);
        hint = static_cast<uint32_t>(f - desc->fields) + 1;
        const Path here = Path::of_field(at, f->name);
        const JsonToken &v = r.next();
        uint8_t *dst = rec + f->offset;
        switch (f->kind) {
        case BagKind::STRUCT:
            if (v.kind != JsonTok::ObjectStart) return fail(here, expected_object(f->sub, from_token(v)));
            if (!record(r, f->sub, dst, here, level)) return false;
            break;
        case BagKind::FIXED: {
            if (v.kind != JsonTok::ArrayStart) return fail(here, "expected a list");
            const uint32_t es = bag_elem_size(*f);
            // A field given twice keeps only its last list.
            memset(dst, 0, size_t(f->count) * es);
            for (size_t e = 0;; e++) {
                const JsonToken &t = r.next();
                if (t.kind == JsonTok::ArrayEnd) break;
                if (e >= f->count) return fail(here, at_most(*f));
                if (!element(r, t, *f, dst + e * es, Path::of_element(here, e), level)) return false;
            }
            break;
        }
        case BagKind::ARRAY: {
            if (v.kind != JsonTok::ArrayStart) return fail(here, "expected a list");
            const size_t es = bag_elem_size(*f);
            if (lists_.size() <= level) lists_.resize(level + 1);
            std::vector<uint64_t> &list = lists_[level];
            size_t count = 0;
            for (;; count++) {
                const JsonToken &t = r.next();
                if (t.kind == JsonTok::ArrayEnd) break;
                // Refused as soon as it is too big, before it takes more memory.
                pending_ += es;
                if (over_limit()) return fail(Path::of_element(here, count), too_big());
                size_t words = ((count + 1) * es + 7) / 8;
                if (words > list.size()) list.resize(std::max(words, 2 * list.size()));
                uint8_t *slot = reinterpret_cast<uint8_t *>(list.data()) + count * es;
                memset(slot, 0, es);
                if (!element(r, t, *f, slot, Path::of_element(here, count), level + 1)) return false;
            }
            bag_array<uint8_t> arr{static_cast<uint32_t>(count), nullptr};
            pending_ -= count * es;
            if (count) {
                arr.data = static_cast<uint8_t *>(arena_->block(count * es));
                memcpy(arr.data, list.data(), count * es);
            }
            memcpy(dst, &arr, sizeof arr);
            break;
        }
        default:
            if (!scalar_fast(v, f->kind, dst, *arena_) &&
                !scalar_from_value(from_token(v), f->kind, dst, *arena_, what_))
                return fail(here, what_);
        }
    }
}

bool TokenRecordBuilder::element(JsonReader &r, const JsonToken &t, const BagField &f, uint8_t *dst,
                                 const Path &at, unsigned level) {
    if (f.elem == BagKind::STRUCT) {
        if (t.kind != JsonTok::ObjectStart) return fail(at, expected_object(f.sub, from_token(t)));
        return record(r, f.sub, dst, at, level);
    }
    return scalar_fast(t, f.elem, dst, *arena_) ||
           scalar_from_value(from_token(t), f.elem, dst, *arena_, what_) || fail(at, what_);
}

namespace {

// Writes records in one of the forms; Sparse leaves out what a zeroed record
// of the same type holds, so it writes each value and takes it back when it
// reads the same as the zero value written after it.
class RecordWriter {
  public:
    RecordWriter(JsonText &out, JsonForm form, std::span<const BagFieldWords> words)
        : o_(out), form_(form), words_(words) {}

    void record(const uint8_t *rec, const BagDesc *desc, unsigned indent, bool sparse) {
        o_.raw('{');
        bool first = true;
        const std::string *names = quoted_names(desc);
        const WordFn *words = words_.empty() ? nullptr : field_words(desc);
        for (uint32_t i = 0; i < desc->nfields; i++) {
            const BagField &f = desc->fields[i];
            const uint8_t *p = rec + f.offset;
            if (words && words[i]) {
                coded(f, names[i], p, words[i], first, indent);
                continue;
            }
            if (!sparse) {
                key(names[i], first, indent);
                value(f, p, indent + 2, false);
                continue;
            }
            const size_t mark = o_.size();
            const bool was_first = first;
            if (!sparse_field(f, names[i], p, first, indent)) {
                o_.truncate(mark);
                first = was_first;
            }
        }
        close('}', first, indent);
    }

  private:
    using WordFn = const char *(*)(int64_t);

    // A code with a word: "name": its word (null without one), then
    // "name_code": the code.
    void coded(const BagField &f, const std::string &name, const uint8_t *p, WordFn word,
               bool &first, unsigned indent) {
        key(name, first, indent);
        const char *w = word(code_at(f.kind, p));
        if (w) o_.string(w);
        else o_.null();
        // The name in its quotes, with "_code" before the closing one.
        separate(false, indent);
        o_.raw(std::string_view(name).substr(0, name.size() - 1));
        o_.raw(pretty() ? std::string_view("_code\": ") : std::string_view("_code\":"));
        scalar(f.kind, p);
    }
    static bool is_code(BagKind k) {
        return k == BagKind::U8 || k == BagKind::U16 || k == BagKind::U32 || k == BagKind::S32;
    }
    static int64_t code_at(BagKind k, const uint8_t *p) {
        switch (k) {
        case BagKind::U8: return *p;
        case BagKind::U16: { uint16_t v; memcpy(&v, p, 2); return v; }
        case BagKind::S32: { int32_t v; memcpy(&v, p, 4); return v; }
        default: { uint32_t v; memcpy(&v, p, 4); return v; }
        }
    }
    // Per description, made once: each field's word function, null for a
    // field without words (and for a row that names no scalar code field).
    const WordFn *field_words(const BagDesc *desc) {
        static thread_local std::unordered_map<const BagDesc *, std::vector<WordFn>> made;
        static thread_local const BagFieldWords *made_for = nullptr;
        if (made_for != words_.data()) {
            made.clear();
            made_for = words_.data();
        }
        auto it = made.find(desc);
        if (it == made.end()) {
            std::vector<WordFn> v(desc->nfields);
            for (const BagFieldWords &w : words_) {
                if (strcmp(w.record, desc->name) != 0) continue;
                const BagField *f = bag_find_field(desc, w.field);
                if (f && is_code(f->kind)) v[static_cast<size_t>(f - desc->fields)] = w.word;
            }
            it = made.emplace(desc, std::move(v)).first;
        }
        return it->second.data();
    }

    // Writes the field unless it holds the zero value; false when what it
    // wrote is to be taken back.
    bool sparse_field(const BagField &f, const std::string &name, const uint8_t *p, bool &first,
                      unsigned indent) {
        switch (f.kind) {
        case BagKind::STRUCT: {
            key(name, first, indent);
            const size_t at = o_.size();
            record(p, f.sub, indent + 2, true);
            return o_.size() - at > 2;  // more than "{}"
        }
        case BagKind::ARRAY: {
            bag_array<uint8_t> arr;
            memcpy(&arr, p, sizeof arr);
            if (!arr.count) return false;
            key(name, first, indent);
            value(f, p, indent + 2, f.elem == BagKind::STRUCT);
            return true;
        }
        case BagKind::STR: case BagKind::OPTSTR: {
            const char *s;
            memcpy(&s, p, sizeof s);
            if (!s || (f.kind == BagKind::STR && !*s)) return false;
            key(name, first, indent);
            o_.string(s);
            return true;
        }
        default: {
            const size_t bytes = f.kind == BagKind::FIXED ? size_t(f.count) * bag_elem_size(f)
                                                          : scalar_size(f.kind);
            if (all_zero(p, bytes)) return false;
            key(name, first, indent);
            const size_t at = o_.size();
            value(f, p, indent + 2, false);
            const size_t zero_at = o_.size();
            value(f, zeros(bytes), indent + 2, false);
            const size_t n = zero_at - at;
            const bool same = o_.size() - zero_at == n && memcmp(o_.data() + at, o_.data() + zero_at, n) == 0;
            o_.truncate(zero_at);
            return !same;
        }
        }
    }

    void value(const BagField &f, const uint8_t *p, unsigned indent, bool sparse) {
        switch (f.kind) {
        case BagKind::STRUCT: record(p, f.sub, indent, sparse); return;
        case BagKind::FIXED: elements(f, p, f.count, indent, sparse); return;
        case BagKind::ARRAY: {
            bag_array<uint8_t> arr;
            memcpy(&arr, p, sizeof arr);
            elements(f, arr.data, arr.count, indent, sparse);
            return;
        }
        default: scalar(f.kind, p);
        }
    }

    void elements(const BagField &f, const uint8_t *p, uint32_t n, unsigned indent, bool sparse) {
        const size_t es = bag_elem_size(f);
        o_.raw('[');
        for (uint32_t e = 0; e < n; e++) {
            separate(e == 0, indent);
            if (f.elem == BagKind::STRUCT) record(p + e * es, f.sub, indent + 2, sparse);
            else scalar(f.elem, p + e * es);
        }
        close(']', n == 0, indent);
    }

    void scalar(BagKind k, const uint8_t *p) {
        switch (k) {
        case BagKind::U8: o_.u64(*p); return;
        case BagKind::U16: { uint16_t v; memcpy(&v, p, 2); o_.u64(v); return; }
        case BagKind::U32: { uint32_t v; memcpy(&v, p, 4); o_.u64(v); return; }
        case BagKind::BOOL: {
            uint32_t v;
            memcpy(&v, p, 4);
            if (v <= 1) o_.boolean(v == 1);
            else o_.u64(v);
            return;
        }
        case BagKind::S32: { int32_t v; memcpy(&v, p, 4); o_.i64(v); return; }
        case BagKind::U64: { uint64_t v; memcpy(&v, p, 8); o_.u64(v); return; }
        case BagKind::IP: {
            l2vpn_ip_addr_t a;
            memcpy(&a, p, sizeof a);
            o_.string(l2vpn_inet_ntop(&a));
            return;
        }
        case BagKind::MAC: o_.string(macstring(p, 6)); return;
        case BagKind::ESI: {
            static const char kHex[] = "0123456789abcdef";
            char buf[24];
            char *b = buf;
            for (int i = 0; i < 10; i++) {
                if (i && i % 2 == 0) *b++ = '.';
                *b++ = kHex[p[i] >> 4];
                *b++ = kHex[p[i] & 15];
            }
            o_.string(std::string_view(buf, static_cast<size_t>(b - buf)));
            return;
        }
        case BagKind::RD: case BagKind::RT: {
            l2vpn_bag_rd_t v;
            memcpy(&v, p, sizeof v);
            char buf[64];
            l2vpn_bag_rd_to_text(&v, buf, sizeof buf);
            o_.string(buf);
            return;
        }
        case BagKind::STR: case BagKind::OPTSTR: {
            const char *s;
            memcpy(&s, p, sizeof s);
            if (s) o_.string(s);
            else if (k == BagKind::OPTSTR) o_.null();
            else o_.string("");
            return;
        }
        default: o_.null();
        }
    }

    void key(const std::string &name, bool &first, unsigned indent) {
        separate(first, indent);
        first = false;
        o_.raw(name);
        o_.raw(pretty() ? std::string_view(": ") : std::string_view(":"));
    }
    // The names of a description's fields as JSON strings, made once.
    static const std::string *quoted_names(const BagDesc *desc) {
        static thread_local std::unordered_map<const BagDesc *, std::vector<std::string>> names;
        auto it = names.find(desc);
        if (it == names.end()) {
            std::vector<std::string> v;
            JsonText t;
            for (uint32_t i = 0; i < desc->nfields; i++) {
                t.clear();
                t.string(desc->fields[i].name);
                v.emplace_back(t.data(), t.size());
            }
            it = names.emplace(desc, std::move(v)).first;
        }
        return it->second.data();
    }
    void separate(bool first, unsigned indent) {
        if (!first) o_.raw(',');
        if (pretty()) o_.newline(indent + 2);
    }
    void close(char c, bool empty, unsigned indent) {
        if (pretty() && !empty) o_.newline(indent);
        o_.raw(c);
    }
    bool pretty() const { return form_ == JsonForm::Pretty; }

    static size_t scalar_size(BagKind k) {
        switch (k) {
        case BagKind::U8: return 1;
        case BagKind::U16: return 2;
        case BagKind::U64: return 8;
        case BagKind::IP: return sizeof(l2vpn_ip_addr_t);
        case BagKind::MAC: return 6;
        case BagKind::ESI: return 10;
        case BagKind::RD: case BagKind::RT: return sizeof(l2vpn_bag_rd_t);
        default: return 4;
        }
    }
    static bool all_zero(const uint8_t *p, size_t n) {
        for (size_t i = 0; i < n; i++)
            if (p[i]) return false;
        return true;
    }
    static const uint8_t *zeros(size_t n) {
        static thread_local std::vector<uint8_t> z;
        if (z.size() < n) z.assign(n, 0);
        return z.data();
    }

    JsonText &o_;
    JsonForm form_;
    std::span<const BagFieldWords> words_;
};

}  // namespace

void record_json(JsonText &out, const void *record, const BagDesc *desc, JsonForm form,
                 unsigned indent, std::span<const BagFieldWords> words) {
    RecordWriter(out, form, words).record(static_cast<const uint8_t *>(record), desc, indent,
                                   form == JsonForm::Sparse);
}

}  // namespace evpn
