// The client's own printf for the lines printed once per record: the common
// conversions formatted straight into a line buffer, anything else handed to
// the C library, with the same output for the same format and arguments.
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "evpn_show_print.h"

namespace {

// Text of one call, built in the caller's buffer; full when it would overflow.
struct FormatOut {
    char *buf;
    size_t cap, len = 0;
    bool full = false;

    void put(const char *s, size_t n) {
        if (len + n > cap) {
            full = true;
            return;
        }
        memcpy(buf + len, s, n);
        len += n;
    }
    void pad(char c, int n) {
        if (n <= 0) return;
        if (len + static_cast<size_t>(n) > cap) {
            full = true;
            return;
        }
        memset(buf + len, c, static_cast<size_t>(n));
        len += static_cast<size_t>(n);
    }
};

struct Conversion {  // flags, width and precision of one conversion
    bool left = false, plus = false, space = false, alt = false, zero = false;
    int width = 0, prec = -1;
};

void put_padded(FormatOut &o, const Conversion &sp, const char *text, size_t n) {
    const int fill = sp.width - static_cast<int>(n);
    if (!sp.left) o.pad(' ', fill);
    o.put(text, n);
    if (sp.left) o.pad(' ', fill);
}

void put_integer(FormatOut &o, const Conversion &sp, unsigned long long v, bool negative, char conv) {
    char digits[24];
    int nd = 0;
    const unsigned base = conv == 'o' ? 8 : (conv == 'x' || conv == 'X') ? 16 : 10;
    const char *set = conv == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
    for (unsigned long long x = v; x; x /= base) digits[nd++] = set[x % base];
    int zeros = sp.prec > nd ? sp.prec - nd : 0;
    if (v == 0 && sp.prec != 0) zeros = zeros > 0 ? zeros : 1;  // "0", unless precision 0
    if (conv == 'o' && sp.alt && zeros == 0 && (nd == 0 || digits[nd - 1] != '0')) zeros = 1;
    char prefix[2];
    int np = 0;
    if (conv == 'd' || conv == 'i') {
        if (negative) prefix[np++] = '-';
        else if (sp.plus) prefix[np++] = '+';
        else if (sp.space) prefix[np++] = ' ';
    } else if (sp.alt && v != 0 && base == 16) {
        prefix[np++] = '0';
        prefix[np++] = conv;
    }
    int fill = sp.width - (np + zeros + nd);
    if (sp.zero && !sp.left && sp.prec < 0) {
        zeros += fill > 0 ? fill : 0;
        fill = 0;
    }
    if (!sp.left) o.pad(' ', fill);
    o.put(prefix, static_cast<size_t>(np));
    o.pad('0', zeros);
    char text[24];
    for (int i = 0; i < nd; i++) text[i] = digits[nd - 1 - i];
    o.put(text, static_cast<size_t>(nd));
    if (sp.left) o.pad(' ', fill);
}

// Formats into o; false for a format this does not handle (nothing is then
// usable in o, and ap may have been read).
bool format_into(FormatOut &o, const char *f, va_list ap) {
    for (;;) {
        const char *pct = strchr(f, '%');
        if (!pct) {
            o.put(f, strlen(f));
            return !o.full;
        }
        o.put(f, static_cast<size_t>(pct - f));
        f = pct + 1;
        Conversion sp;
        for (;; f++) {
            if (*f == '-') sp.left = true;
            else if (*f == '+') sp.plus = true;
            else if (*f == ' ') sp.space = true;
            else if (*f == '#') sp.alt = true;
            else if (*f == '0') sp.zero = true;
            else break;
        }
        if (*f == '*') {
            sp.width = va_arg(ap, int);
            if (sp.width < 0) {
                sp.left = true;
                sp.width = sp.width == INT32_MIN ? 0 : -sp.width;
            }
            f++;
        } else {
            for (; *f >= '0' && *f <= '9'; f++) sp.width = sp.width * 10 + (*f - '0');
        }
        if (*f == '.') {
            f++;
            if (*f == '*') {
                sp.prec = va_arg(ap, int);
                if (sp.prec < 0) sp.prec = -1;
                f++;
            } else {
                sp.prec = 0;
                for (; *f >= '0' && *f <= '9'; f++) sp.prec = sp.prec * 10 + (*f - '0');
            }
        }
        if (sp.width > 4096 || sp.prec > 4096) return false;
        int size = 0;  // -2 hh, -1 h, 0 int, 1 long, 2 long long, 3 size_t
        if (f[0] == 'h' && f[1] == 'h') size = -2, f += 2;
        else if (f[0] == 'h') size = -1, f++;
        else if (f[0] == 'l' && f[1] == 'l') size = 2, f += 2;
        else if (f[0] == 'l') size = 1, f++;
        else if (f[0] == 'z') size = 3, f++;
        const char conv = *f++;
        switch (conv) {
        case 'd': case 'i': {
            long long v = size == 2 ? va_arg(ap, long long)
                        : size == 1 || size == 3 ? va_arg(ap, long)
                        : va_arg(ap, int);
            if (size == -2) v = static_cast<signed char>(v);
            if (size == -1) v = static_cast<short>(v);
            const bool neg = v < 0;
            put_integer(o, sp, neg ? 0ull - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v),
                        neg, conv);
            break;
        }
        case 'u': case 'x': case 'X': case 'o': {
            unsigned long long v = size == 2 ? va_arg(ap, unsigned long long)
                                 : size == 1 || size == 3 ? va_arg(ap, unsigned long)
                                 : va_arg(ap, unsigned int);
            if (size == -2) v = static_cast<unsigned char>(v);
            if (size == -1) v = static_cast<unsigned short>(v);
            put_integer(o, sp, v, false, conv);
            break;
        }
        case 's': {
            if (size != 0 || sp.zero) return false;
            const char *s = va_arg(ap, const char *);
            if (!s) s = sp.prec < 0 || sp.prec >= 6 ? "(null)" : "";
            const size_t n = sp.prec < 0 ? strlen(s) : strnlen(s, static_cast<size_t>(sp.prec));
            put_padded(o, sp, s, n);
            break;
        }
        case 'c': {
            if (size != 0 || sp.zero) return false;
            const char c = static_cast<char>(va_arg(ap, int));
            put_padded(o, sp, &c, 1);
            break;
        }
        case '%':
            if (sp.width || sp.prec >= 0 || size) return false;
            o.put("%", 1);
            break;
        default:
            return false;
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

int show_printf(const char *format, ...) {
    char line[1024];
    va_list ap, again;
    va_start(ap, format);
    va_copy(again, ap);
    FormatOut o{line, sizeof line};
    int n;
    if (format_into(o, format, ap)) {
        n = static_cast<int>(fwrite_unlocked(line, 1, o.len, stdout));
    } else {
        n = vprintf(format, again);
    }
    va_end(again);
    va_end(ap);
    return n;
}
