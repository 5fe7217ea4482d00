// Report lines whose format is a literal: show_print<"format">(args...)
// prints what show_printf(format, args...) prints (show_sprint<"format">
// makes it into an array, as show_snprintf), with the format taken
// apart by the compiler. Each argument is checked against its conversion
// when the program is built (a mismatch does not compile), and at run time
// the line is written straight into standard output's buffer: no format is
// read, no va_list walked, no conversion dispatched.
//
// Conversions taken: d, i, u, x, X, c and s, with the '-' and '0' flags, a
// width, a precision on s, and the hh, h, l, ll and z lengths; an s takes a
// ShowText (a text of known length) as well as a C string. A format
// with anything else does not compile: use show_printf for it. A line that
// may not fit the buffer's room goes through show_printf, whole.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>
#include <utility>

#include "evpn_show_print.h"

// A text whose length is known, for a %s: copied without being measured.
// s[n] is its NUL (a line short of room hands s to show_printf).
struct ShowText {
    const char *s;
    size_t n;
};

// A literal as a ShowText.
template <size_t N>
consteval ShowText show_text(const char (&s)[N]) {
    return {s, N - 1};
}

// A table of words as ShowTexts, made when the program is built.
template <size_t N>
struct ShowWords {
    ShowText at[N];
};
template <size_t N>
consteval ShowWords<N> show_words(const char *const (&words)[N]) {
    ShowWords<N> t{};
    for (size_t i = 0; i < N; i++) t.at[i] = {words[i], __builtin_strlen(words[i])};
    return t;
}

// The word of a code, other when the table has none for it.
template <size_t N>
inline ShowText code_text(const ShowWords<N> &words, int64_t code, ShowText other) {
    return code >= 0 && code < static_cast<int64_t>(N) ? words.at[code] : other;
}

namespace show_format {

// A format as a template argument.
template <size_t N>
struct Format {
    char text[N];
    consteval Format(const char (&t)[N]) {
        for (size_t i = 0; i < N; i++) text[i] = t[i];
    }
};

enum : uint8_t { kLeft = 1, kZero = 2 };

// Block stores may write up to this far past a field (and a format's
// slack_of past its line): they land in the room checked for and are
// overwritten by what follows.
constexpr size_t kSlack = 64;
constexpr size_t kDigitBlock = 24;  // integers' digits are copied as one block

// One conversion and the literal text before it; the last has conv 0 and
// holds the text after the last conversion.
struct Conv {
    size_t text_at = 0, text_len = 0;
    int width = 0, prec = -1;  // prec -1: none
    char conv = 0;
    int size = 0;  // -2 hh, -1 h, 0 int, 1 long, 2 long long, 3 size_t
    uint8_t flags = 0;
};

// Called only where a format is refused: the compiler names it in its error.
void format_not_taken_by_show_print(const char *why);

consteval size_t conversions_in(const char *f) {
    size_t n = 0;
    for (; *f; f++)
        if (*f == '%') n++;
    return n;
}

template <size_t K>
struct Parsed {
    Conv conv[K + 1];
};

template <size_t K>
consteval Parsed<K> parse(const char *format) {
    Parsed<K> out{};
    const char *f = format;
    for (size_t i = 0; i <= K; i++) {
        Conv &c = out.conv[i];
        c.text_at = static_cast<size_t>(f - format);
        while (*f && *f != '%') f++;
        c.text_len = static_cast<size_t>(f - format) - c.text_at;
        if (!*f) {
            if (i != K) format_not_taken_by_show_print("a conversion is missing");
            return out;
        }
        f++;
        for (;; f++) {
            if (*f == '-') c.flags |= kLeft;
            else if (*f == '0') c.flags |= kZero;
            else if (*f == '+' || *f == ' ' || *f == '#') format_not_taken_by_show_print("flag + , space or #");
            else break;
        }
        if (*f == '*') format_not_taken_by_show_print("width from an argument");
        for (; *f >= '0' && *f <= '9'; f++) c.width = c.width * 10 + (*f - '0');
        if (*f == '.') {
            f++;
            if (*f == '*') format_not_taken_by_show_print("precision from an argument");
            c.prec = 0;
            for (; *f >= '0' && *f <= '9'; f++) c.prec = c.prec * 10 + (*f - '0');
        }
        if (f[0] == 'h' && f[1] == 'h') c.size = -2, f += 2;
        else if (f[0] == 'h') c.size = -1, f++;
        else if (f[0] == 'l' && f[1] == 'l') c.size = 2, f += 2;
        else if (f[0] == 'l') c.size = 1, f++;
        else if (f[0] == 'z') c.size = 3, f++;
        c.conv = *f++;
        switch (c.conv) {
        case 'd': case 'i': case 'u': case 'x': case 'X':
            if (c.prec >= 0) format_not_taken_by_show_print("precision on an integer");
            break;
        case 's': case 'c':
            if (c.size || (c.flags & kZero)) format_not_taken_by_show_print("length or 0 flag on text");
            if (c.conv == 'c' && c.prec >= 0) format_not_taken_by_show_print("precision on a character");
            break;
        default:
            format_not_taken_by_show_print("conversion");
        }
        if (c.width > 4096 || c.prec > 4096) format_not_taken_by_show_print("width or precision over 4096");
    }
    return out;
}

// Bytes a conversion may write beyond its text, for those with a bound.
consteval size_t bound_of(const Conv &c) {
    const size_t w = static_cast<size_t>(c.width);
    switch (c.conv) {
    case 's': return c.prec < 0 ? w : (w > static_cast<size_t>(c.prec) ? w : static_cast<size_t>(c.prec));
    case 'c': return w > 1 ? w : 1;
    case 0: return 0;
    default: {
        const size_t digits = c.size >= 1 ? 21 : 11;  // a sign and up to 20 or 10 digits
        return w > digits ? w : digits;
    }
    }
}

// Blanks or zeros pad a field of width up to the block size with one store
// of the width rounded up to 8 bytes.
constexpr size_t pad_block(int width) { return static_cast<size_t>(width + 7) / 8 * 8; }

template <size_t K>
consteval size_t slack_of(const Parsed<K> &p) {
    size_t n = 0;
    for (const Conv &c : p.conv) {
        size_t s = c.width > 0 && c.width <= static_cast<int>(kSlack) ? pad_block(c.width) : 0;
        if (c.conv != 0 && c.conv != 's' && c.conv != 'c' && s < kDigitBlock) s = kDigitBlock;
        if (s > n) n = s;
    }
    return n;
}

template <size_t K>
consteval size_t bound_of(const Parsed<K> &p) {
    size_t n = 0;
    for (const Conv &c : p.conv) n += c.text_len + bound_of(c);
    return n;
}

// For each conversion, the most the line may still take after its text
// (its padding and whatever follows): an unbounded text fits when its
// length and this fit before the limit.
template <size_t K>
struct Rest {
    size_t after[K + 1];
};
template <size_t K>
consteval Rest<K> rest_of(const Parsed<K> &p) {
    Rest<K> r{};
    size_t n = 0;
    for (size_t i = K + 1; i-- > 0;) {
        r.after[i] = n + static_cast<size_t>(p.conv[i].width);
        n += p.conv[i].text_len + bound_of(p.conv[i]);
    }
    return r;
}

inline constexpr char kBlanks[kSlack + 1] = "                                                                ";
inline constexpr char kZeros[kSlack + 1] = "0000000000000000000000000000000000000000000000000000000000000000";

// n bytes from s, with no call for short texts (reads stay within s[0..n)).
// Inlined with a literal argument, the branches for longer texts than it
// are never taken, which the compiler's bounds warning cannot see.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Warray-bounds"
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wstringop-overread"
#endif
inline void copy_text(char *d, const char *s, size_t n) {
    if (n >= 8) {
        if (n <= 16) {
            memcpy(d, s, 8);
            memcpy(d + n - 8, s + n - 8, 8);
        } else if (n <= 32) {
            memcpy(d, s, 16);
            memcpy(d + n - 16, s + n - 16, 16);
        } else {
            memcpy(d, s, n);
        }
    } else if (n >= 4) {
        memcpy(d, s, 4);
        memcpy(d + n - 4, s + n - 4, 4);
    } else if (n) {
        d[0] = s[0];
        d[n / 2] = s[n / 2];
        d[n - 1] = s[n - 1];
    }
}
#pragma GCC diagnostic pop

// fill copies of run's byte at p (fill <= W).
template <int W>
inline void pad(char *p, const char (&run)[kSlack + 1], int fill) {
    if constexpr (W <= static_cast<int>(kSlack)) {
        memcpy(p, run, pad_block(W));
    } else if (fill > 0) {
        memset(p, run[0], static_cast<size_t>(fill));
    }
}

// The argument as the conversion reads it from a variadic call.
template <Conv C, class A>
consteval bool argument_fits() {
    if constexpr (C.conv == 's') {
        return std::is_same_v<A, ShowText> ||
               (std::is_pointer_v<A> && std::is_same_v<std::remove_cv_t<std::remove_pointer_t<A>>, char>);
    } else if constexpr (std::is_integral_v<A> || std::is_enum_v<A>) {
        constexpr size_t room = C.size == 1 || C.size == 3 ? sizeof(long)
                              : C.size == 2            ? sizeof(long long)
                                                       : sizeof(int);
        return sizeof(A) <= room;
    } else {
        return false;
    }
}

template <Conv C, class A>
inline auto read_as(A a) {
    constexpr bool is_signed = C.conv == 'd' || C.conv == 'i';
    if constexpr (C.size == -2) {
        return static_cast<std::conditional_t<is_signed, signed char, unsigned char>>(a);
    } else if constexpr (C.size == -1) {
        return static_cast<std::conditional_t<is_signed, short, unsigned short>>(a);
    } else if constexpr (C.size == 1 || C.size == 3) {
        return static_cast<std::conditional_t<is_signed, long, unsigned long>>(a);
    } else if constexpr (C.size == 2) {
        return static_cast<std::conditional_t<is_signed, long long, unsigned long long>>(a);
    } else {
        return static_cast<std::conditional_t<is_signed, int, unsigned>>(a);
    }
}

// "00" to "99": the two digits of each number under a hundred.
inline constexpr char kPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Decimal digits of v written backwards to end, two at a time; returns the
// first (none for 0: callers decide how zero prints).
inline char *decimal_digits(unsigned long long v, char *end) {
    char *p = end;
    for (; v >= 100; v /= 100) {
        p -= 2;
        memcpy(p, kPairs + 2 * (v % 100), 2);
    }
    if (v >= 10) {
        p -= 2;
        memcpy(p, kPairs + 2 * v, 2);
    } else if (v) {
        *--p = static_cast<char>('0' + v);
    }
    return p;
}

// "00" to "ff" (or "FF"): the two hex digits of each byte value.
template <bool Upper>
inline constexpr auto kHexPairs = [] {
    struct {
        char at[512];
    } t{};
    const char *set = Upper ? "0123456789ABCDEF" : "0123456789abcdef";
    for (unsigned b = 0; b < 256; b++) t.at[2 * b] = set[b >> 4], t.at[2 * b + 1] = set[b & 15];
    return t;
}();

// Digits of v written backwards to end; returns the first.
template <bool Hex, bool Upper>
inline char *digits(unsigned long long v, char *end) {
    char *p = end;
    if constexpr (Hex) {
        // A byte at a time; a leading zero of the top byte is dropped.
        do {
            p -= 2;
            memcpy(p, kHexPairs<Upper>.at + 2 * (v & 0xff), 2);
        } while (v >>= 8);
        if (*p == '0' && p + 1 != end) p++;
    } else {
        p = decimal_digits(v, end);
        if (p == end) *--p = '0';
    }
    return p;
}

template <Conv C, class T>
inline void put_integer(char *&p, T v) {
    unsigned long long u;
    bool negative = false;
    if constexpr (std::is_signed_v<T>) {
        negative = v < 0;
        u = negative ? 0ull - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
    } else {
        u = v;
    }
    char text[2 * kDigitBlock];  // digits end at the middle: they are copied as a block
    char *const end = text + kDigitBlock;
    const char *first = digits<C.conv == 'x' || C.conv == 'X', C.conv == 'X'>(u, end);
    const int nd = static_cast<int>(end - first);
    const int fill = C.width - nd - negative;
    if constexpr ((C.flags & kLeft) != 0) {
        if (negative) *p++ = '-';
        memcpy(p, first, kDigitBlock);
        p += nd;
        if (fill > 0) {
            pad<C.width>(p, kBlanks, fill);
            p += fill;
        }
    } else {
        if constexpr ((C.flags & kZero) != 0) {
            if (negative) *p++ = '-';
            if (fill > 0) {
                pad<C.width>(p, kZeros, fill);
                p += fill;
            }
        } else {
            if (fill > 0) {
                pad<C.width>(p, kBlanks, fill);
                p += fill;
            }
            if (negative) *p++ = '-';
        }
        memcpy(p, first, kDigitBlock);
        p += nd;
    }
}

// The n bytes of a text field at s, padded to its width.
template <Conv C>
inline void put_text_bytes(char *&p, const char *s, size_t n) {
    const int fill = C.width - static_cast<int>(n);
    if constexpr ((C.flags & kLeft) != 0) {
        copy_text(p, s, n);
        p += n;
        if (fill > 0) {
            pad<C.width>(p, kBlanks, fill);
            p += fill;
        }
    } else {
        if (fill > 0) {
            pad<C.width>(p, kBlanks, fill);
            p += fill;
        }
        copy_text(p, s, n);
        p += n;
    }
}

// Writes a text field; false when an unbounded text would pass limit
// (with rest, the room what follows it may take, still after it).
template <Conv C>
inline bool put_text(char *&p, const char *limit, size_t rest, const char *s) {
    // A null text prints as the C library prints it (the array's length
    // keeps the block copies below within it).
    static constexpr char kNull[48] = "(null)";
    if (!s) s = C.prec < 0 || C.prec >= 6 ? kNull : kNull + 6;
    size_t n;
    if constexpr (C.prec >= 0) {
        n = strnlen(s, static_cast<size_t>(C.prec));
    } else {
        n = strlen(s);
        if (n + rest > static_cast<size_t>(limit - p)) return false;
    }
    put_text_bytes<C>(p, s, n);
    return true;
}

// The same for a text of known length.
template <Conv C>
inline bool put_text(char *&p, const char *limit, size_t rest, ShowText t) {
    size_t n = t.n;
    if constexpr (C.prec >= 0) {
        if (n > static_cast<size_t>(C.prec)) n = static_cast<size_t>(C.prec);
    } else {
        if (n + rest > static_cast<size_t>(limit - p)) return false;
    }
    put_text_bytes<C>(p, t.s, n);
    return true;
}

// An argument as show_printf takes it: a ShowText by its pointer.
template <class A>
inline A vararg(A a) {
    return a;
}
inline const char *vararg(ShowText t) { return t.s; }

template <Format F, Conv C>
inline void put_literal(char *&p) {
    if constexpr (C.text_len > 0) {
        memcpy(p, F.text + C.text_at, C.text_len);
        p += C.text_len;
    }
}

template <Format F, Conv C, class A>
inline bool put(char *&p, const char *limit, size_t rest, A a) {
    static_assert(argument_fits<C, A>(), "an argument does not fit its conversion");
    put_literal<F, C>(p);
    if constexpr (C.conv == 's') {
        return put_text<C>(p, limit, rest, a);
    } else if constexpr (C.conv == 'c') {
        const char text[2] = {static_cast<char>(static_cast<int>(a)), 0};
        const int fill = C.width - 1;
        if constexpr ((C.flags & kLeft) != 0) {
            *p++ = text[0];
            if (fill > 0) pad<C.width>(p, kBlanks, fill), p += fill;
        } else {
            if (fill > 0) pad<C.width>(p, kBlanks, fill), p += fill;
            *p++ = text[0];
        }
        return true;
    } else {
        put_integer<C>(p, read_as<C>(a));
        return true;
    }
}

template <Format F, class... A, size_t... I>
inline void print(std::index_sequence<I...>, A... a) {
    static constexpr size_t K = conversions_in(F.text);
    static_assert(K == sizeof...(A), "the format's conversions and the arguments differ in number");
    static constexpr Parsed<K> P = parse<K>(F.text);
    static constexpr size_t kBound = bound_of(P), kOver = slack_of(P);
    [[maybe_unused]] static constexpr Rest<K> R = rest_of(P);
#ifdef __GLIBC__
    FILE *out = stdout;
    char *p = out->_IO_write_ptr;
    if (p && out->_IO_write_end - p >= static_cast<ptrdiff_t>(kBound + kOver)) {
        [[maybe_unused]] const char *const limit = out->_IO_write_end - kOver;
        if ((put<F, P.conv[I]>(p, limit, R.after[I], a) && ...)) {
            put_literal<F, P.conv[K]>(p);
            out->_IO_write_ptr = p;
            return;
        }
    }
#endif
    // Too long for the buffer's room: the whole line again. F.text is the
    // literal the compiler took apart above.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    show_printf(F.text, vararg(a)...);
#pragma GCC diagnostic pop
}

template <Format F, size_t N, class... A, size_t... I>
inline int sprint(std::index_sequence<I...>, char (&buf)[N], A... a) {
    static constexpr size_t K = conversions_in(F.text);
    static_assert(K == sizeof...(A), "the format's conversions and the arguments differ in number");
    static constexpr Parsed<K> P = parse<K>(F.text);
    static constexpr size_t kBound = bound_of(P), kOver = slack_of(P);
    [[maybe_unused]] static constexpr Rest<K> R = rest_of(P);
    if constexpr (N > kBound + kOver) {
        char *p = buf;
        [[maybe_unused]] const char *const limit = buf + N - 1 - kOver;
        if ((put<F, P.conv[I]>(p, limit, R.after[I], a) && ...)) {
            put_literal<F, P.conv[K]>(p);
            *p = '\0';
            return static_cast<int>(p - buf);
        }
    }
    return show_snprintf(buf, N, F.text, vararg(a)...);  // a buffer too small for the fast path
}

}  // namespace show_format

template <show_format::Format F, class... A>
inline void show_print(A... a) {
    show_format::print<F>(std::index_sequence_for<A...>{}, a...);
}

// snprintf(buf, sizeof buf, format, args...) for a text made into an array:
// the same text and result; like show_snprintf, it may use the whole array
// (past the text's NUL its bytes are unspecified).
template <show_format::Format F, size_t N, class... A>
inline int show_sprint(char (&buf)[N], A... a) {
    return show_format::sprint<F>(std::index_sequence_for<A...>{}, buf, a...);
}
