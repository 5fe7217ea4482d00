// The client's own printf for the lines printed once per record: the common
// conversions formatted straight into a line buffer, anything else handed to
// the C library, with the same output for the same format and arguments.
//
// A format is taken apart into its pieces (the literal text before each
// conversion, and the conversion) once: a format in the program's read-only
// data keeps its pieces in a small cache under its address, since its text
// cannot change; any other format is taken apart on each call.
#include <link.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "evpn_show_format.h"
#include "evpn_show_print.h"

namespace {

constexpr int kMaxField = 4096;  // widths and precisions beyond go to the C library
constexpr size_t kBlock = 64;    // blank runs are stored in blocks of this size
constexpr char kBlanks[kBlock + 1] = "                                                                ";
constexpr char kZeros[kBlock + 1] = "0000000000000000000000000000000000000000000000000000000000000000";

// Text of one call, built in the caller's buffer; full when it would overflow.
struct FormatOut {
    char *buf;
    size_t cap, len = 0;
    bool full = false;

    size_t room() const { return cap - len; }
    void put(const char *s, size_t n) {
        if (n > room()) {
            full = true;
            return;
        }
        if (n <= 4) {  // a blank or two between conversions: no call
            for (size_t i = 0; i < n; i++) buf[len + i] = s[i];
        } else {
            memcpy(buf + len, s, n);
        }
        len += n;
    }
    // n copies of the run's byte; a short run is one store of a whole block.
    void pad(const char (&run)[kBlock + 1], int n) {
        if (n <= 0) return;
        const size_t k = static_cast<size_t>(n);
        if (k > room()) {
            full = true;
            return;
        }
        if (k <= kBlock && room() >= kBlock) {
            memcpy(buf + len, run, kBlock);  // constant size: a few stores
        } else {
            for (size_t done = 0; done < k; done += kBlock)
                memcpy(buf + len + done, run, k - done < kBlock ? k - done : kBlock);
        }
        len += k;
    }
};

enum : uint8_t { kLeft = 1, kPlus = 2, kSpace = 4, kAlt = 8, kZero = 16, kStarWidth = 32, kStarPrec = 64 };

// One conversion and the literal text before it (at text_at in the
// format); conv 0 is the text after the last conversion.
// No member initialisers: a call takes a format apart into pieces on its
// stack only when the format is not in the cache.
struct Piece {
    uint16_t text_at, text_len;
    char text[8];  // the literal text itself when it fits: one store puts it
    int16_t width, prec;  // prec -1: none
    char conv;
    int8_t size;  // -2 hh, -1 h, 0 int, 1 long, 2 long long, 3 size_t
    uint8_t flags;
};

constexpr int kMaxPieces = 14;  // conversions of one format this takes, and its end

struct Pieces {
    const char *format;
    int count;
    Piece piece[kMaxPieces];
};

// Takes the format apart; false for one this does not handle.
bool parse(const char *format, Pieces &out) {
    out.count = 0;
    const char *f = format;
    for (;;) {
        if (out.count == kMaxPieces) return false;
        Piece &p = out.piece[out.count++];
        const char *pct = strchr(f, '%');
        const size_t n = pct ? static_cast<size_t>(pct - f) : strlen(f);
        const size_t at = static_cast<size_t>(f - format);
        if (at + n > UINT16_MAX) return false;
        p = Piece{static_cast<uint16_t>(at), static_cast<uint16_t>(n), {}, 0, -1, 0, 0, 0};
        if (n <= sizeof p.text) memcpy(p.text, f, n);
        if (!pct) return true;
        f = pct + 1;
        for (;; f++) {
            if (*f == '-') p.flags |= kLeft;
            else if (*f == '+') p.flags |= kPlus;
            else if (*f == ' ') p.flags |= kSpace;
            else if (*f == '#') p.flags |= kAlt;
            else if (*f == '0') p.flags |= kZero;
            else break;
        }
        int width = 0, prec = -1;
        if (*f == '*') {
            p.flags |= kStarWidth;
            f++;
        } else {
            for (; *f >= '0' && *f <= '9' && width <= kMaxField; f++) width = width * 10 + (*f - '0');
        }
        if (*f == '.') {
            f++;
            if (*f == '*') {
                p.flags |= kStarPrec;
                f++;
            } else {
                prec = 0;
                for (; *f >= '0' && *f <= '9' && prec <= kMaxField; f++) prec = prec * 10 + (*f - '0');
            }
        }
        if (width > kMaxField || prec > kMaxField) return false;
        p.width = static_cast<int16_t>(width);
        p.prec = static_cast<int16_t>(prec);
        if (f[0] == 'h' && f[1] == 'h') p.size = -2, f += 2;
        else if (f[0] == 'h') p.size = -1, f++;
        else if (f[0] == 'l' && f[1] == 'l') p.size = 2, f += 2;
        else if (f[0] == 'l') p.size = 1, f++;
        else if (f[0] == 'z') p.size = 3, f++;
        p.conv = *f++;
        switch (p.conv) {
        case 'd': case 'i': case 'u': case 'x': case 'X': case 'o':
            break;
        case 's': case 'c':
            if (p.size != 0 || (p.flags & kZero)) return false;
            break;
        case '%':
            if (width || prec >= 0 || p.size || (p.flags & (kStarWidth | kStarPrec))) return false;
            break;
        default:
            return false;
        }
    }
}

// ---- The cache of formats in read-only data ----------------------------------

struct Span {
    uintptr_t from, to;
};
constexpr int kMaxSpans = 8;
struct ReadOnly {
    Span span[kMaxSpans];
    int count = 0;
};

// The main program's loaded segments that are not writable.
ReadOnly find_read_only() {
    ReadOnly ro;
    dl_iterate_phdr(
        [](dl_phdr_info *info, size_t, void *data) {
            auto &r = *static_cast<ReadOnly *>(data);
            for (int i = 0; i < info->dlpi_phnum && r.count < kMaxSpans; i++) {
                const ElfW(Phdr) &ph = info->dlpi_phdr[i];
                if (ph.p_type != PT_LOAD || (ph.p_flags & PF_W)) continue;
                const uintptr_t at = info->dlpi_addr + ph.p_vaddr;
                r.span[r.count++] = Span{at, at + ph.p_memsz};
            }
            return 1;  // the first object is the program
        },
        &ro);
    return ro;
}

bool is_read_only(const char *f) {
    static const ReadOnly ro = find_read_only();
    const auto at = reinterpret_cast<uintptr_t>(f);
    for (int i = 0; i < ro.count; i++)
        if (at >= ro.span[i].from && at < ro.span[i].to) return true;
    return false;
}

// The cache: slots found by the format's address, each naming an entry of a
// pool filled from its start, so that a run that uses a few formats touches
// the pool's first page only, wherever its formats hash. Zeros in the
// program's image: no work and no page touched at start-up.
constexpr unsigned kCacheBits = 7;  // a detail report uses some dozens of formats
constexpr unsigned kCacheSlots = 1u << kCacheBits;
constinit uint8_t g_slot[kCacheSlots] = {};  // 1 + the pool entry; 0: empty
static_assert(kCacheSlots <= 255);
// Large: after the program's other zeroed data, so that the small variables
// share their pages with one another rather than with this.
[[gnu::section(".lbss.evpn_format_cache")]] constinit Pieces g_pool[kCacheSlots] = {};
constinit unsigned g_pool_used;

// The pieces of f, from the cache or taken apart into scratch; null for a
// format this does not handle.
// A format may sit in either of two neighbouring slots, so that two formats
// a report alternates between do not evict each other when they hash alike.
const Pieces *pieces_of(const char *f, Pieces &scratch) {
    constexpr uint64_t kGolden = 0x9e3779b97f4a7c15ull;  // spreads neighbouring literals
    const size_t at = (reinterpret_cast<uintptr_t>(f) * kGolden) >> (64 - kCacheBits);
    uint8_t &first = g_slot[at], &second = g_slot[at ^ 1];
    if (first && g_pool[first - 1].format == f) return &g_pool[first - 1];
    if (second && g_pool[second - 1].format == f) return &g_pool[second - 1];
    if (!parse(f, scratch)) return nullptr;
    scratch.format = f;
    if (is_read_only(f)) {
        uint8_t &slot = first && !second ? second : first;
        // An evicted format's entry is reused; every slot owns at most one
        // entry, so an empty slot always finds one free.
        if (!slot) slot = static_cast<uint8_t>(++g_pool_used);
        g_pool[slot - 1] = scratch;
        return &g_pool[slot - 1];
    }
    return &scratch;
}

// ---- Conversions ---------------------------------------------------------------

// The n bytes the output holds beyond its length, as a field of the width:
// blanks before them (moving them up) or after them.
inline __attribute__((always_inline)) void finish_field(FormatOut &o, int width, bool left, size_t n) {
    const int fill = width - static_cast<int>(n);
    if (fill > 0 && !left) {
        if (static_cast<size_t>(fill) + n > o.room()) {
            o.full = true;
            return;
        }
        memmove(o.buf + o.len + fill, o.buf + o.len, n);
        memset(o.buf + o.len, ' ', static_cast<size_t>(fill));
        o.len += static_cast<size_t>(fill) + n;
        return;
    }
    o.len += n;
    o.pad(kBlanks, fill);
}

void put_text(FormatOut &o, int width, int prec, bool left, const char *s) {
    const size_t n = prec < 0 ? strlen(s) : strnlen(s, static_cast<size_t>(prec));
    if (n > o.room()) {
        o.full = true;
        return;
    }
    memcpy(o.buf + o.len, s, n);
    finish_field(o, width, left, n);
}

// Digits of v in the conversion's base, written backwards to end; returns
// the first digit.
char *digits_of(unsigned long long v, char conv, char *end) {
    char *p = end;
    if (conv == 'x' || conv == 'X') {
        const char *set = conv == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
        for (; v; v >>= 4) *--p = set[v & 15];
    } else if (conv == 'o') {
        for (; v; v >>= 3) *--p = static_cast<char>('0' + (v & 7));
    } else {
        p = show_format::decimal_digits(v, end);
    }
    return p;
}

void put_integer(FormatOut &o, uint8_t flags, int width, int prec, unsigned long long v, bool negative,
                 char conv) {
    constexpr size_t kDigits = 24;
    char text[2 * kDigits];  // digits end at kDigits; the rest lets them be copied as a block
    char *const end = text + kDigits;
    // Decimal with no precision, sign, prefix or zeros, and room to spare:
    // the digits and one block of blanks, each put with constant-size stores
    // (what they put past the field is overwritten by what follows).
    if ((conv == 'u' || conv == 'd' || conv == 'i') && prec < 0 && !negative &&
        !(flags & (kPlus | kSpace | kZero)) && width <= static_cast<int>(kBlock) &&
        o.room() >= kBlock + kDigits) {
        const char *first = digits_of(v, 'u', end);
        if (!v) *(const_cast<char *>(first = end - 1)) = '0';
        const int nd = static_cast<int>(end - first);
        const int fill = width > nd ? width - nd : 0;
        char *at = o.buf + o.len;
        if (!(flags & kLeft)) {
            memcpy(at, kBlanks, kBlock);
            at += fill;
        }
        memcpy(at, first, kDigits);
        if (flags & kLeft) memcpy(at + nd, kBlanks, kBlock);
        o.len += static_cast<size_t>(nd + fill);
        return;
    }
    const char *first = digits_of(v, conv, end);
    const int nd = static_cast<int>(end - first);
    int zeros = prec > nd ? prec - nd : 0;
    if (v == 0 && prec != 0) zeros = zeros > 0 ? zeros : 1;  // "0", unless precision 0
    if (conv == 'o' && (flags & kAlt) && zeros == 0 && (nd == 0 || *first != '0')) zeros = 1;
    char prefix[2];
    int np = 0;
    if (conv == 'd' || conv == 'i') {
        if (negative) prefix[np++] = '-';
        else if (flags & kPlus) prefix[np++] = '+';
        else if (flags & kSpace) prefix[np++] = ' ';
    } else if ((flags & kAlt) && v != 0 && (conv == 'x' || conv == 'X')) {
        prefix[np++] = '0';
        prefix[np++] = conv;
    }
    const bool left = flags & kLeft;
    int fill = width - (np + zeros + nd);
    if ((flags & kZero) && !left && prec < 0) {
        zeros += fill > 0 ? fill : 0;
        fill = 0;
    }
    if (!left) o.pad(kBlanks, fill);
    o.put(prefix, static_cast<size_t>(np));
    o.pad(kZeros, zeros);
    o.put(first, static_cast<size_t>(nd));
    if (left) o.pad(kBlanks, fill);
}

// Formats into o; false for a format this does not handle (nothing is then
// usable in o, and ap may have been read).
bool format_into(FormatOut &o, const char *format, va_list ap) {
    Pieces scratch;
    const Pieces *pieces = pieces_of(format, scratch);
    if (!pieces) return false;
    for (int i = 0;; i++) {
        const Piece &p = pieces->piece[i];
        if (p.text_len <= sizeof p.text && o.room() >= sizeof p.text) {
            memcpy(o.buf + o.len, p.text, sizeof p.text);  // constant size: one store
            o.len += p.text_len;
        } else {
            o.put(pieces->format + p.text_at, p.text_len);
        }
        if (p.conv == 0) return !o.full;
        int width = p.width, prec = p.prec;
        bool left = p.flags & kLeft;
        if (p.flags & kStarWidth) {
            width = va_arg(ap, int);
            if (width < 0) {
                left = true;
                width = width == INT32_MIN ? 0 : -width;
            }
            if (width > kMaxField) return false;
        }
        if (p.flags & kStarPrec) {
            prec = va_arg(ap, int);
            if (prec < 0) prec = -1;
            if (prec > kMaxField) return false;
        }
        switch (p.conv) {
        case 's': {
            const char *s = va_arg(ap, const char *);
            if (!s) s = prec < 0 || prec >= 6 ? "(null)" : "";
            put_text(o, width, prec, left, s);
            break;
        }
        case 'd': case 'i': {
            long long v = p.size == 2 ? va_arg(ap, long long)
                        : p.size == 1 || p.size == 3 ? va_arg(ap, long)
                        : va_arg(ap, int);
            if (p.size == -2) v = static_cast<signed char>(v);
            if (p.size == -1) v = static_cast<short>(v);
            const bool neg = v < 0;
            put_integer(o, p.flags | (left ? kLeft : 0), width, prec,
                        neg ? 0ull - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v),
                        neg, p.conv);
            break;
        }
        case 'u': case 'x': case 'X': case 'o': {
            unsigned long long v = p.size == 2 ? va_arg(ap, unsigned long long)
                                 : p.size == 1 || p.size == 3 ? va_arg(ap, unsigned long)
                                 : va_arg(ap, unsigned int);
            if (p.size == -2) v = static_cast<unsigned char>(v);
            if (p.size == -1) v = static_cast<unsigned short>(v);
            put_integer(o, p.flags | (left ? kLeft : 0), width, prec, v, false, p.conv);
            break;
        }
        case 'c': {
            const char c = static_cast<char>(va_arg(ap, int));
            if (o.room() == 0) return false;
            o.buf[o.len] = c;  // a NUL too
            finish_field(o, width, left, 1);
            break;
        }
        default:  // '%'
            o.put("%", 1);
            break;
        }
        if (o.full) return false;
    }
}

}  // namespace

int show_vsnprintf(char *buf, size_t size, const char *format, va_list ap) {
    va_list again;
    va_copy(again, ap);
    FormatOut o{buf, size ? size - 1 : 0};
    int n;
    if (size && format_into(o, format, ap)) {
        buf[o.len] = '\0';
        n = static_cast<int>(o.len);
    } else {
        n = vsnprintf(buf, size, format, again);  // truncated, or a format not handled here
    }
    va_end(again);
    return n;
}

int show_snprintf(char *buf, size_t size, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    int n = show_vsnprintf(buf, size, format, ap);
    va_end(ap);
    return n;
}

int show_vprintf(const char *format, va_list ap) {
    constexpr size_t kLine = 1024;  // a longer text goes through the C library
    char line[kLine];
    FormatOut o{line, sizeof line};
#ifdef __GLIBC__
    // With room for a whole line in the stream's buffer, the text is made
    // there, as putc_unlocked puts its byte: no copy and no call per line.
    FILE *out = stdout;
    const bool direct =
        out->_IO_write_ptr && out->_IO_write_end - out->_IO_write_ptr >= static_cast<ptrdiff_t>(kLine);
    if (direct) o.buf = out->_IO_write_ptr;
#else
    const bool direct = false;
#endif
    va_list copy;
    va_copy(copy, ap);
    const bool done = format_into(o, format, copy);
    va_end(copy);
    if (!done) return vprintf(format, ap);  // too long, or a format not handled here
#ifdef __GLIBC__
    if (direct) {
        out->_IO_write_ptr += o.len;
        return static_cast<int>(o.len);
    }
#endif
    return static_cast<int>(fwrite_unlocked(line, 1, o.len, stdout));
}

void show_write(const char *text, size_t n) {
#ifdef __GLIBC__
    FILE *out = stdout;
    if (out->_IO_write_ptr && static_cast<size_t>(out->_IO_write_end - out->_IO_write_ptr) >= n) {
        memcpy(out->_IO_write_ptr, text, n);
        out->_IO_write_ptr += n;
        return;
    }
#endif
    fwrite_unlocked(text, 1, n, stdout);
}

int show_printf(const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    const int n = show_vprintf(format, ap);
    va_end(ap);
    return n;
}
