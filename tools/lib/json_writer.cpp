// JSON text: escaping and number formatting.
#include "json_writer.h"

#include <charconv>
#include <ostream>

namespace evpn {

namespace {

// Bytes a string can copy as they are: printable ASCII but the quote and the
// backslash, and DEL.
constexpr bool plain(unsigned char c) { return c >= 0x20 && c < 0x80 && c != '"' && c != '\\'; }

// Length of the UTF-8 sequence that starts at p (e - p bytes left), 0 for one
// that is not UTF-8 (overlong, a surrogate, past U+10FFFF, cut short); then
// *bad is how many of its bytes go as one replacement: the longest start of a
// sequence there, at least 1.
size_t utf8_len(const unsigned char *p, const unsigned char *e, size_t *bad) {
    const unsigned char c = p[0];
    size_t n;
    unsigned char lo = 0x80, hi = 0xbf;  // range of the second byte
    if (c >= 0xc2 && c <= 0xdf) n = 2;
    else if (c >= 0xe0 && c <= 0xef) n = 3, lo = c == 0xe0 ? 0xa0 : 0x80, hi = c == 0xed ? 0x9f : 0xbf;
    else if (c >= 0xf0 && c <= 0xf4) n = 4, lo = c == 0xf0 ? 0x90 : 0x80, hi = c == 0xf4 ? 0x8f : 0xbf;
    else return *bad = 1, 0;
    for (size_t k = 1; k < n; k++) {
        if (p + k == e || p[k] < (k == 1 ? lo : 0x80) || p[k] > (k == 1 ? hi : 0xbf))
            return *bad = k, 0;
    }
    return n;
}

}  // namespace

void JsonText::grow(size_t n) {
    const size_t used = size();
    size_t cap = static_cast<size_t>(cap_ - buf_.get());
    cap = cap ? cap * 2 : 4096;
    while (cap - used < n) cap *= 2;
    std::unique_ptr<char[]> b(new char[cap]);
    if (used) memcpy(b.get(), buf_.get(), used);
    buf_ = std::move(b);
    end_ = buf_.get() + used;
    cap_ = buf_.get() + cap;
}

void JsonText::string(std::string_view s) {
    const auto *p = reinterpret_cast<const unsigned char *>(s.data());
    const auto *e = p + s.size();
    const unsigned char *q = p;
    // Eight bytes at a time while none is below 0x20, a quote, a backslash
    // or from 0x80 on.
    constexpr uint64_t kOnes = 0x0101010101010101ull, kHigh = 0x8080808080808080ull;
    for (uint64_t w; e - q >= 8; q += 8) {
        memcpy(&w, q, 8);
        const uint64_t quote = w ^ ('"' * kOnes), backslash = w ^ ('\\' * kOnes);
        if ((((w - 0x20 * kOnes) & ~w) | ((quote - kOnes) & ~quote) |
             ((backslash - kOnes) & ~backslash) | w) & kHigh)
            break;
    }
    while (q != e && plain(*q)) q++;
    room(s.size() + 2);
    *end_++ = '"';
    memcpy(end_, p, static_cast<size_t>(q - p));
    end_ += q - p;
    if (q != e) string_slow(q, e);
    raw('"');
}

// From the first byte that is not plain ASCII: escapes, UTF-8 copied, bytes
// that are not UTF-8 replaced.
void JsonText::string_slow(const unsigned char *p, const unsigned char *e) {
    static const char kHex[] = "0123456789abcdef";
    while (p != e) {
        const unsigned char c = *p;
        if (plain(c)) {
            raw(static_cast<char>(c));
            p++;
            continue;
        }
        if (c >= 0x80) {
            size_t bad = 0;
            const size_t n = utf8_len(p, e, &bad);
            if (n) {
                raw(std::string_view(reinterpret_cast<const char *>(p), n));
                p += n;
            } else {
                raw("\xef\xbf\xbd");
                p += bad;
            }
            continue;
        }
        p++;
        switch (c) {
        case '"': raw("\\\""); break;
        case '\\': raw("\\\\"); break;
        case '\b': raw("\\b"); break;
        case '\f': raw("\\f"); break;
        case '\n': raw("\\n"); break;
        case '\r': raw("\\r"); break;
        case '\t': raw("\\t"); break;
        default: {
            const char u[6] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15]};
            raw(std::string_view(u, 6));
        }
        }
    }
}

void JsonText::u64(uint64_t v) {
    room(20);
    end_ = std::to_chars(end_, end_ + 20, v).ptr;
}

void JsonText::i64(int64_t v) {
    room(20);
    end_ = std::to_chars(end_, end_ + 20, v).ptr;
}

bool JsonText::write_to(std::ostream &out) {
    out.write(data(), static_cast<std::streamsize>(size()));
    clear();
    return static_cast<bool>(out);
}

}  // namespace evpn
