#include "values.h"

#include <arpa/inet.h>

#include <cctype>
#include <cstdint>
#include <cstdio>

namespace evpn_shell {

namespace {

bool is_hex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

unsigned hex_digit(char c) {
    return is_digit(c) ? unsigned(c - '0') : unsigned((c | 0x20) - 'a' + 10);
}

std::string format(const char *fmt, unsigned long long v) {
    char buf[32];
    snprintf(buf, sizeof buf, fmt, v);
    return buf;
}

// Letters and digits joined by dots or colons (or hexadecimal digits joined by
// hyphens) are taken as meant for a MAC, an ESI or an address, so that a malformed value is
// reported as such rather than as an unknown word.
bool looks_like_address(std::string_view text) {
    bool dot_or_colon = false, hyphen = false, hex_only = true;
    for (char c : text) {
        if (c == '.' || c == ':') dot_or_colon = true;
        else if (c == '-') hyphen = true;
        else if (!isalnum(static_cast<unsigned char>(c))) return false;
        else if (!is_hex(c)) hex_only = false;
    }
    return dot_or_colon || (hyphen && hex_only);
}

Conversion fail(Conversion::Fit fit, std::string reason) {
    Conversion c;
    c.fit = fit;
    c.reason = std::move(reason);
    return c;
}

Conversion number(std::string_view text, uint64_t max, const char *out_format) {
    if (text.empty())
        return fail(Conversion::NotThisKind, "not a decimal number");
    for (char c : text)
        if (!is_digit(c)) return fail(Conversion::NotThisKind, "not a decimal number");
    uint64_t v = 0;
    for (char c : text) {
        v = v * 10 + uint64_t(c - '0');
        if (v > max) break;
    }
    if (v > max)
        return fail(Conversion::Bad, "out of range (0 to " + std::to_string(max) + ")");
    Conversion c;
    c.fit = Conversion::Yes;
    c.args.push_back(format(out_format, v));
    return c;
}

// Splits text at sep into groups of 1 to max_digits hexadecimal digits.
bool split_hex(std::string_view text, char sep, size_t max_digits, std::vector<unsigned> &out) {
    for (size_t start = 0;;) {
        const size_t end = text.find(sep, start);
        const std::string_view g = text.substr(start, end == text.npos ? text.npos : end - start);
        if (g.empty() || g.size() > max_digits) return false;
        unsigned v = 0;
        for (char c : g) {
            if (!is_hex(c)) return false;
            v = v * 16 + hex_digit(c);
        }
        out.push_back(v);
        if (end == text.npos) return true;
        start = end + 1;
    }
}

// Reads groups of hexadecimal digits: either `dotted_groups` groups of 1 to 4
// digits joined by '.', or twice as many octets of 1 or 2 digits joined by one
// of ':' or '-'. The result holds 16-bit groups.
bool read_groups(std::string_view text, size_t dotted_groups, std::vector<unsigned> &groups) {
    groups.clear();
    if (text.find('.') != text.npos)
        return split_hex(text, '.', 4, groups) && groups.size() == dotted_groups;
    std::vector<unsigned> bytes;
    const char sep = text.find(':') != text.npos ? ':' : '-';
    if (!split_hex(text, sep, 2, bytes) || bytes.size() != dotted_groups * 2) return false;
    for (size_t i = 0; i < bytes.size(); i += 2) groups.push_back(bytes[i] << 8 | bytes[i + 1]);
    return true;
}

Conversion grouped(std::string_view text, size_t groups_wanted, const char *form) {
    std::vector<unsigned> groups;
    if (!read_groups(text, groups_wanted, groups))
        return fail(looks_like_address(text) ? Conversion::Bad : Conversion::NotThisKind,
                    std::string("not of the form ") + form);
    Conversion c;
    c.fit = Conversion::Yes;
    if (groups_wanted == 3) {  // a MAC: one argument per 16-bit group
        for (unsigned g : groups) c.args.push_back(format("%llx", g));
    } else {  // an ESI: one argument, the dotted form
        std::string s;
        for (unsigned g : groups) s += (s.empty() ? "" : ".") + format("%04llx", g);
        c.args.push_back(s);
    }
    return c;
}

Conversion ip_address(std::string_view text) {
    std::string s(text);
    unsigned char bytes[16];
    char out[INET6_ADDRSTRLEN];
    int family = s.find(':') != std::string::npos ? AF_INET6 : AF_INET;
    if (inet_pton(family, s.c_str(), bytes) != 1 || !inet_ntop(family, bytes, out, sizeof out))
        return fail(looks_like_address(text) ? Conversion::Bad : Conversion::NotThisKind,
                    "not an IPv4 or IPv6 address");
    Conversion c;
    c.fit = Conversion::Yes;
    c.args.push_back(out);
    return c;
}

}  // namespace

Conversion convert_value(ValueKind kind, std::string_view text) {
    switch (kind) {
    case ValueKind::None: return fail(Conversion::NotThisKind, "takes no value");
    case ValueKind::Number: return number(text, 0xFFFFFFFFu, "%llx");
    case ValueKind::Decimal: return number(text, 0xFFFFFFFFu, "%llu");
    case ValueKind::Node: return number(text, 0xFFFFFFFEu, "%llu");
    case ValueKind::Mac: return grouped(text, 3, "H.H.H");
    case ValueKind::Esi: return grouped(text, 5, "H.H.H.H.H");
    case ValueKind::Ip: return ip_address(text);
    case ValueKind::Lines: return number(text, 512, "%llu");
    case ValueKind::Name: {
        if (text.empty()) return fail(Conversion::NotThisKind, "empty");
        Conversion c;
        c.fit = Conversion::Yes;
        c.args.emplace_back(text);
        return c;
    }
    }
    return fail(Conversion::NotThisKind, "unknown kind");
}

}  // namespace evpn_shell
