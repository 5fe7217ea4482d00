// Value formatters and their parsers. Each formatter writes a bounded text
// into the caller's buffer or into one slot of a per-thread ring; each parser
// validates the whole text before it writes its result, so a failed parse
// leaves the destination as it was. Nothing here allocates.
#include "platform/formatters.h"

#include "platform/bag.h"
#include "platform/bag_types.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <initializer_list>

namespace {

// ---- Shared helpers --------------------------------------------------------

constexpr size_t kRingSlots = 8;
constexpr size_t kRingSlotSize = 64;   // longest text: an IPv6 address, 45 chars
constexpr size_t kVesNameSize = 80;    // buffer of convert_pw_or_vfi_ves_namestring

// Next slot of this thread's ring. A text stays valid for kRingSlots - 1 more
// calls, so several formatters may feed one printf.
char *ring_next() {
    thread_local char ring[kRingSlots][kRingSlotSize];
    thread_local unsigned next;
    char *slot = ring[next];
    next = (next + 1) % kRingSlots;
    return slot;
}

// snprintf that tolerates a null or zero-sized buffer (it then writes nothing).
__attribute__((format(printf, 3, 4)))
void bounded_printf(char *buf, size_t size, const char *fmt, ...) {
    if (buf == nullptr || size == 0)
        return;
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, size, fmt, ap);
    va_end(ap);
}

// The formatters below run once or more per route of a listing: their
// common texts are built digit by digit rather than through vsnprintf.
constexpr char kHexDigits[] = "0123456789abcdef";

// "00" to "99": decimal digits are written two at a time.
constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Decimal digits of v at out, no terminator; returns the end (at most 10 chars).
// Their count first (from v's bit length), so that they are written in
// place, two at a time from the last.
char *put_decimal(char *out, uint32_t v) {
    static constexpr uint32_t kPowers[10] = {1,      10,      100,      1000,      10000,
                                             100000, 1000000, 10000000, 100000000, 1000000000};
    const unsigned bits = 32 - static_cast<unsigned>(__builtin_clz(v | 1));
    const unsigned below = (bits * 1233) >> 12;  // digits of 2^bits - 1, less one at most
    char *const end = out + below + ((v | 1) >= kPowers[below]);
    char *p = end;
    for (; v >= 100; v /= 100) {
        p -= 2;
        memcpy(p, kDigitPairs + 2 * (v % 100), 2);
    }
    if (v >= 10)
        memcpy(p - 2, kDigitPairs + 2 * v, 2);
    else
        p[-1] = static_cast<char>('0' + v);
    return end;
}

// Two lowercase hex digits of each byte value.
constexpr auto kHexPairs = [] {
    struct {
        char c[256][2];
    } table{};
    for (unsigned v = 0; v < 256; v++) {
        table.c[v][0] = kHexDigits[v >> 4];
        table.c[v][1] = kHexDigits[v & 0xf];
    }
    return table;
}();

// Two lowercase hex digits of each of n bytes (n even), a dot after every
// second byte but the last: the dotted form of MACs and ESIs.
char *put_dotted_hex(char *out, const uint8_t *b, size_t n) {
    for (size_t i = 0; i < n; i += 2, out += 5) {
        memcpy(out, kHexPairs.c[b[i]], 2);
        memcpy(out + 2, kHexPairs.c[b[i + 1]], 2);
        out[4] = '.';
    }
    *--out = '\0';
    return out;
}

// Text of each byte value with the dot after it, for dotted quads ("0." to
// "255."), and its length: one word a byte value.
struct OctetText {
    char c[4];
    uint32_t n;
};
constexpr auto kOctetTexts = [] {
    struct {
        OctetText t[256];
    } table{};
    for (unsigned v = 0; v < 256; v++) {
        OctetText &o = table.t[v];
        if (v >= 100) o.c[o.n++] = static_cast<char>('0' + v / 100);
        if (v >= 10) o.c[o.n++] = static_cast<char>('0' + v / 10 % 10);
        o.c[o.n++] = static_cast<char>('0' + v % 10);
        o.c[o.n++] = '.';
    }
    return table;
}();

// Dotted quad of 4 bytes at out, terminated; returns the end. Each octet's
// four bytes are stored whole: up to two bytes past the NUL are written.
char *put_dotted_quad(char *out, const uint8_t *b) {
    for (int i = 0; i < 4; i++) {
        const OctetText &t = kOctetTexts.t[b[i]];
        memcpy(out, t.c, 4);
        out += t.n;
    }
    *--out = '\0';
    return out;
}

// The RFC 5952 text of an IPv6 address, exactly as the C library's inet_ntop
// writes it: lowercase groups without leading zeros, the first longest run
// of two or more zero groups as "::", and the last 32 bits as a dotted quad
// for IPv4-compatible and IPv4-mapped addresses. out holds at least 46
// chars (a group's store may reach three past the NUL); returns the end
// (the NUL).
char *put_ipv6(char *out, const uint8_t *b) {
    unsigned words[8];
    unsigned zero = 0;  // bit i: group i is zero
    for (int i = 0; i < 8; i++) {
        words[i] = (unsigned(b[2 * i]) << 8) | b[2 * i + 1];
        zero |= unsigned(words[i] == 0) << i;
    }
    // The first longest run of zero groups: where a run of n + 1 starts is
    // where one of n starts and the next group is zero too.
    int best = -1, best_len = 0;
    for (unsigned starts = zero, n = 1; starts; starts &= zero >> n, n++) {
        best = __builtin_ctz(starts);
        best_len = static_cast<int>(n);
    }
    if (best_len < 2) best = -1;
    char *o = out;
    for (int i = 0; i < 8; i++) {
        if (best >= 0 && i >= best && i < best + best_len) {
            if (i == best) *o++ = ':';
            continue;
        }
        if (i) *o++ = ':';
        if (i == 6 && best == 0 && (best_len == 6 || (best_len == 5 && words[5] == 0xffff))) {
            return put_dotted_quad(o, b + 12);
        }
        // The group's digits without leading zeros, one to four: its four
        // digits from the pairs' table, stored as a word with the leading
        // zeros shifted out.
        const unsigned w = words[i];
        const unsigned n = 1 + (w > 0xf) + (w > 0xff) + (w > 0xfff);
        uint32_t four;
        memcpy(&four, kHexPairs.c[w >> 8], 2);
        memcpy(reinterpret_cast<char *>(&four) + 2, kHexPairs.c[w & 0xff], 2);
        four = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? four >> 8 * (4 - n) : four << 8 * (4 - n);
        memcpy(o, &four, 4);
        o += n;
    }
    if (best >= 0 && best + best_len == 8) *o++ = ':';
    *o = '\0';
    return o;
}

// text into buf as snprintf("%s") would put it: cut to size - 1 chars.
void bounded_copy(char *buf, size_t size, const char *text, size_t len) {
    if (buf == nullptr || size == 0)
        return;
    if (len > size - 1) len = size - 1;
    memcpy(buf, text, len);
    buf[len] = '\0';
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Reads 2 * n hex digits at s into n bytes; false when one is not a hex digit.
bool parse_hex_bytes(const char *s, size_t n, uint8_t *out) {
    for (size_t i = 0; i < n; i++) {
        int hi = hex_digit(s[2 * i]);
        int lo = hi < 0 ? -1 : hex_digit(s[2 * i + 1]);
        if (lo < 0)
            return false;
        out[i] = static_cast<uint8_t>(hi << 4 | lo);
    }
    return true;
}

// n octets (n even) written as dotted groups of four digits ("0011.2233.4455"),
// or as two-digit octets with one separator from seps throughout ("00:11:22").
bool parse_octets(const char *text, uint8_t *out, size_t n, const char *seps) {
    size_t len = strnlen(text, 3 * n + 1);
    if (len == n * 5 / 2 - 1) {
        for (size_t g = 0; g < n / 2; g++) {
            if (g > 0 && text[g * 5 - 1] != '.')
                return false;
            if (!parse_hex_bytes(text + g * 5, 2, out + g * 2))
                return false;
        }
        return true;
    }
    if (len != 3 * n - 1 || strchr(seps, text[2]) == nullptr)
        return false;
    for (size_t i = 0; i < n; i++) {
        if (i > 0 && text[i * 3 - 1] != text[2])
            return false;
        if (!parse_hex_bytes(text + i * 3, 1, out + i))
            return false;
    }
    return true;
}

// Reads the decimal number in [s, end): digits only, 1 to 10 of them, at most max.
bool parse_dec(const char *s, const char *end, uint64_t max, uint64_t *out) {
    if (s >= end || end - s > 10)
        return false;
    uint64_t v = 0;
    for (; s < end; s++) {
        if (*s < '0' || *s > '9')
            return false;
        v = v * 10 + static_cast<uint64_t>(*s - '0');
    }
    if (v > max)
        return false;
    *out = v;
    return true;
}

uint16_t get_be16(const uint8_t *p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
uint32_t get_be32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}
void put_be16(uint8_t *p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}
void put_be32(uint8_t *p, uint32_t v) {
    put_be16(p, v >> 16);
    put_be16(p + 2, v);
}

bool all_zero(const uint8_t *p, size_t n) {
    for (size_t i = 0; i < n; i++)
        if (p[i] != 0)
            return false;
    return true;
}

// True when name starts with prefix and has at least one character after it.
bool has_prefix_and_rest(const char *name, const char *prefix) {
    if (name == nullptr)
        return false;
    // One pass over the prefix: a name that ends inside it differs at its NUL.
    size_t n = 0;
    for (; prefix[n] != '\0'; n++)
        if (name[n] != prefix[n])
            return false;
    return name[n] != '\0';
}

// ---- RD / RT ---------------------------------------------------------------

// Type word (value bytes 0-1) that each record format must carry.
constexpr uint16_t kRdTypeAs2 = 0, kRdTypeIpv4 = 1, kRdTypeAs4 = 2;

int rdrt_convert(const l2vpn_bag_rd_t *value, uint8_t out[8]) {
    if (value == nullptr || out == nullptr)
        return 0;
    if (value->format < L2VPN_RD_FORMAT_AS2 || value->format > L2VPN_RD_FORMAT_AS4)
        return 0;
    if (get_be16(value->value) != value->format - 1)
        return 0;
    memcpy(out, value->value, 8);
    return 1;
}

// Text of a converted 8-byte RD or RT. The longest, "255.255.255.255:65535",
// is 21 characters, so it fits both the RD and the RT buffer.
void rdrt_text(const uint8_t *b, char *buf, size_t size) {
    if (buf == nullptr)
        return;
    if (b == nullptr) {
        bounded_printf(buf, size, "%s", "");
        return;
    }
    switch (get_be16(b)) {
    case kRdTypeAs2:
        bounded_printf(buf, size, "%u:%u", get_be16(b + 2), get_be32(b + 4));
        break;
    case kRdTypeIpv4:
        bounded_printf(buf, size, "%u.%u.%u.%u:%u", b[2], b[3], b[4], b[5], get_be16(b + 6));
        break;
    case kRdTypeAs4:
        bounded_printf(buf, size, "%u:%u", get_be32(b + 2), get_be16(b + 6));
        break;
    default:
        bounded_printf(buf, size, "%s", "Invalid");
        break;
    }
}

// "a.b.c.d:n", "asn:n" after the checks of l2vpn_bag_rd_pton.
bool parse_rd_admin_text(const char *text, l2vpn_bag_rd_t *out) {
    const char *colon = strchr(text, ':');
    if (colon == nullptr)
        return false;
    const char *num = colon + 1;
    const char *end = num + strlen(num);
    uint64_t assigned = 0;
    if (memchr(text, '.', static_cast<size_t>(colon - text)) != nullptr) {
        char ip[INET_ADDRSTRLEN];
        size_t len = static_cast<size_t>(colon - text);
        in_addr v4;
        if (len >= sizeof ip)
            return false;
        memcpy(ip, text, len);
        ip[len] = '\0';
        if (inet_pton(AF_INET, ip, &v4) != 1 || !parse_dec(num, end, 0xFFFF, &assigned))
            return false;
        out->format = L2VPN_RD_FORMAT_IPV4;
        put_be16(out->value, kRdTypeIpv4);
        memcpy(out->value + 2, &v4, 4);
        put_be16(out->value + 6, static_cast<uint32_t>(assigned));
        return true;
    }
    uint64_t asn = 0;
    if (!parse_dec(text, colon, 0xFFFFFFFF, &asn))
        return false;
    if (asn <= 0xFFFF) {
        if (!parse_dec(num, end, 0xFFFFFFFF, &assigned))
            return false;
        out->format = L2VPN_RD_FORMAT_AS2;
        put_be16(out->value, kRdTypeAs2);
        put_be16(out->value + 2, static_cast<uint32_t>(asn));
        put_be32(out->value + 4, static_cast<uint32_t>(assigned));
        return true;
    }
    if (!parse_dec(num, end, 0xFFFF, &assigned))
        return false;
    out->format = L2VPN_RD_FORMAT_AS4;
    put_be16(out->value, kRdTypeAs4);
    put_be32(out->value + 2, static_cast<uint32_t>(asn));
    put_be16(out->value + 6, static_cast<uint32_t>(assigned));
    return true;
}

constexpr char kRawPrefix[] = "raw:";
constexpr size_t kRawPrefixLen = sizeof kRawPrefix - 1;
constexpr size_t kRawHexLen = 24;   // the 12 record bytes

// ---- Words -----------------------------------------------------------------

struct CodeWord {
    uint32_t code;
    const char *word;
};

#define EVPN_CODE_WORD(name, code, word) {name, word},
constexpr CodeWord kEncapWords[] = {EVPN_ENCAP_WORDS(EVPN_CODE_WORD)};
#undef EVPN_CODE_WORD

// The encapsulation words by code, with their lengths: every code a record
// can carry in a byte (the route's sides) is one look-up; "Unknown" for a
// code without a word.
struct EncapWord {
    const char *word;
    size_t len;
};
constexpr auto kEncapByCode = [] {
    auto length = [](const char *w) {
        size_t n = 0;
        while (w[n]) n++;
        return n;
    };
    struct {
        EncapWord of[256];
    } table{};
    for (EncapWord &e : table.of) e = {"Unknown", length("Unknown")};
    for (const CodeWord &cw : kEncapWords)
        if (cw.code < 256) table.of[cw.code] = {cw.word, length(cw.word)};
    return table;
}();
// Every word is shorter than 16 characters: the show client's route lines
// take each whole in a block of 16.
static_assert([] {
    for (const EncapWord &e : kEncapByCode.of)
        if (e.len >= 16) return false;
    return true;
}());

// Indexed by the code: the lists' codes run from 0.
#define EVPN_INDEXED_WORD(code, word) word,
constexpr const char *kEviTypeWords[] = {EVPN_EVI_TYPE_WORDS(EVPN_INDEXED_WORD)};
constexpr const char *kDfRoleWords[] = {EVPN_DF_ROLE_WORDS(EVPN_INDEXED_WORD)};
#undef EVPN_INDEXED_WORD
constexpr bool codes_run_from_zero(std::initializer_list<uint32_t> codes) {
    uint32_t next = 0;
    for (uint32_t c : codes)
        if (c != next++) return false;
    return true;
}
#define EVPN_CODE(code, word) code,
static_assert(codes_run_from_zero({EVPN_EVI_TYPE_WORDS(EVPN_CODE)}));
static_assert(codes_run_from_zero({EVPN_DF_ROLE_WORDS(EVPN_CODE)}));
#undef EVPN_CODE

template <size_t N>
const char *indexed_word(const char *const (&words)[N], uint32_t code) {
    return code < N ? words[code] : "Unknown";
}

}  // namespace

// ---- Addresses -------------------------------------------------------------

namespace {
// The address's first and second eight bytes, as stored.
struct AddressHalves {
    uint64_t hi, lo;
    explicit AddressHalves(const l2vpn_ip_addr_t &a) {
        memcpy(&hi, a.bytes, 8);
        memcpy(&lo, a.bytes + 8, 8);
    }
    // ::ffff:a.b.c.d: ten zero bytes, then two 0xff.
    bool v4_mapped() const {
        static constexpr uint8_t kPrefix[4] = {0, 0, 0xff, 0xff};
        uint32_t mid, want;
        memcpy(&mid, &lo, 4);
        memcpy(&want, kPrefix, 4);
        return hi == 0 && mid == want;
    }
};
}  // namespace

bool l2vpn_ip_is_v4(const l2vpn_ip_addr_t *addr) {
    return addr != nullptr && AddressHalves(*addr).v4_mapped();
}

size_t l2vpn_ip_to_text(const l2vpn_ip_addr_t *addr, char *out) {
    if (addr == nullptr) {
        memcpy(out, "(null)", 7);
        return 6;
    }
    const AddressHalves halves(*addr);
    if (halves.v4_mapped())
        return static_cast<size_t>(put_dotted_quad(out, addr->bytes + 12) - out);
    if ((halves.hi | halves.lo) == 0) {
        memcpy(out, "::", 3);  // no address: a route with a MAC alone
        return 2;
    }
    return static_cast<size_t>(put_ipv6(out, addr->bytes) - out);
}

const char *l2vpn_inet_ntop(const l2vpn_ip_addr_t *addr) {
    static_assert(kRingSlotSize >= L2VPN_IP_STR_SIZE);
    char *out = ring_next();
    l2vpn_ip_to_text(addr, out);
    return out;
}

namespace {

// A dotted quad as inet_pton reads one: four decimal octets of one to three
// digits, none above 255, none with a leading zero. False for anything else,
// which inet_pton then judges.
bool quad_pton(const char *text, uint8_t out[4]) {
    const char *p = text;
    for (int k = 0; k < 4; k++) {
        if (k && *p++ != '.') return false;
        unsigned v = 0;
        int digits = 0;
        for (; *p >= '0' && *p <= '9' && digits < 3; digits++) v = v * 10 + unsigned(*p++ - '0');
        if (!digits || v > 255 || (digits > 1 && p[-digits] == '0')) return false;
        out[k] = static_cast<uint8_t>(v);
    }
    return *p == '\0';
}

}  // namespace

int l2vpn_inet_pton(const char *text, l2vpn_ip_addr_t *addr) {
    if (text == nullptr || addr == nullptr)
        return 0;
    l2vpn_ip_addr_t parsed{};
    in_addr v4;
    if (quad_pton(text, parsed.bytes + 12)) {
        parsed.bytes[10] = 0xff;
        parsed.bytes[11] = 0xff;
    } else if (inet_pton(AF_INET, text, &v4) == 1) {
        parsed.bytes[10] = 0xff;
        parsed.bytes[11] = 0xff;
        memcpy(parsed.bytes + 12, &v4, 4);
    } else if (inet_pton(AF_INET6, text, parsed.bytes) != 1) {
        return 0;
    }
    *addr = parsed;
    return 1;
}

void l2vpn_ip_addr2hex_string2(const l2vpn_ip_addr_t *addr, char *buf, size_t size) {
    if (buf == nullptr || size == 0)
        return;
    static constexpr char kHex[] = "0123456789abcdef";
    size_t n = 0;
    if (addr != nullptr) {
        for (size_t i = 0; i < L2VPN_IP_HEX_LEN && n + 1 < size; i++, n++) {
            uint8_t byte = addr->bytes[i / 2];
            buf[n] = kHex[i % 2 == 0 ? byte >> 4 : byte & 0xf];
        }
    }
    buf[n] = '\0';
}

// ---- MAC -------------------------------------------------------------------

const char *macstring(const uint8_t *mac, int len) {
    char *out = ring_next();
    if (mac == nullptr || len != 6)
        snprintf(out, kRingSlotSize, "%s", "Invalid");
    else
        put_dotted_hex(out, mac, 6);
    return out;
}

void l2vpn_mac_to_text(const uint8_t *mac, char *out) { put_dotted_hex(out, mac, 6); }

int l2vpn_mac_pton(const char *text, uint8_t mac[6]) {
    if (text == nullptr || mac == nullptr)
        return EINVAL;
    uint8_t parsed[6];
    if (!parse_octets(text, parsed, sizeof parsed, ":-"))
        return EINVAL;
    memcpy(mac, parsed, sizeof parsed);
    return 0;
}

int is_valid_mac(const uint8_t *mac) { return mac != nullptr && !all_zero(mac, 6); }

// ---- ESI -------------------------------------------------------------------

namespace {
constexpr uint8_t kEsiMaxType = 5;
constexpr size_t kEsiLen = 10;
}  // namespace

const char *esistring(const uint8_t *esi) {
    if (esi == nullptr || esi[0] > kEsiMaxType)
        return nullptr;
    char *out = ring_next();
    put_dotted_hex(out, esi, kEsiLen);
    return out;
}

// Any type octet parses: refusing types above 5 is esistring's job, so that
// a filter naming such a segment is reported where it is used.
int evpn_esi_pton(const char *text, uint8_t esi[10]) {
    if (text == nullptr || esi == nullptr)
        return EINVAL;
    uint8_t parsed[kEsiLen];
    if (!parse_octets(text, parsed, sizeof parsed, ":.-"))
        return EINVAL;
    memcpy(esi, parsed, sizeof parsed);
    return 0;
}

int is_nonzero_esi(const uint8_t *esi) { return esi != nullptr && !all_zero(esi, kEsiLen); }

// A text that is no ESI at all still names something: it counts as non-zero.
int is_nonzero_show_esi_string(const char *esi_text) {
    if (esi_text == nullptr || esi_text[0] == '\0')
        return 0;
    // Any character but a zero digit or a separator is a nonzero digit or no
    // ESI at all: non-zero either way, without parsing the rest.
    for (const char *p = esi_text; *p; p++)
        if (*p != '0' && *p != '.' && *p != ':' && *p != '-')
            return 1;
    uint8_t esi[kEsiLen];
    return evpn_esi_pton(esi_text, esi) != 0 || !all_zero(esi, kEsiLen);
}

// ---- RD / RT ---------------------------------------------------------------

int l2vpn_bag_rd_convert(const l2vpn_bag_rd_t *value, l2vpn_rd_t *rd) {
    return rdrt_convert(value, rd ? rd->bytes : nullptr);
}

int l2vpn_bag_rt_convert(const l2vpn_bag_rt_t *value, l2vpn_rt_t *rt) {
    return rdrt_convert(value, rt ? rt->bytes : nullptr);
}

void rd_get_string(const l2vpn_rd_t *rd, char *buf) {
    rdrt_text(rd ? rd->bytes : nullptr, buf, L2VPN_RD_STR_SIZE);
}

void rt_get_string(const l2vpn_rt_t *rt, char *buf) {
    rdrt_text(rt ? rt->bytes : nullptr, buf, L2VPN_RT_STR_SIZE);
}

int l2vpn_bag_rd_pton(const char *text, l2vpn_bag_rd_t *value) {
    if (text == nullptr || value == nullptr)
        return EINVAL;
    l2vpn_bag_rd_t parsed{};
    if (strncmp(text, kRawPrefix, kRawPrefixLen) == 0) {
        const char *hex = text + kRawPrefixLen;
        uint8_t raw[kRawHexLen / 2];
        if (strnlen(hex, kRawHexLen + 1) != kRawHexLen || !parse_hex_bytes(hex, sizeof raw, raw))
            return EINVAL;
        parsed.format = get_be32(raw);
        memcpy(parsed.value, raw + 4, sizeof parsed.value);
    } else if (!parse_rd_admin_text(text, &parsed)) {
        return EINVAL;
    }
    *value = parsed;
    return 0;
}

namespace {
// The display text names the value only when it parses back to it: a 4-byte
// AS number of 16 bits or less reads "0:0" like a 2-byte one, so such a
// value keeps the raw form.
bool rd_text_round_trips(const l2vpn_bag_rd_t *value, const l2vpn_rd_t &rd) {
    char text[L2VPN_RD_STR_SIZE];
    rd_get_string(&rd, text);
    l2vpn_bag_rd_t back{};
    return parse_rd_admin_text(text, &back) && back.format == value->format &&
           memcmp(back.value, value->value, sizeof back.value) == 0;
}
}  // namespace

void l2vpn_bag_rd_to_text(const l2vpn_bag_rd_t *value, char *buf, size_t size) {
    if (buf == nullptr || size == 0)
        return;
    l2vpn_rd_t rd;
    if (value == nullptr) {
        buf[0] = '\0';
    } else if (l2vpn_bag_rd_convert(value, &rd) && rd_text_round_trips(value, rd)) {
        char text[L2VPN_RD_STR_SIZE];
        rd_get_string(&rd, text);
        bounded_printf(buf, size, "%s", text);
    } else {
        const uint8_t *v = value->value;
        bounded_printf(buf, size, "%s%08x%02x%02x%02x%02x%02x%02x%02x%02x", kRawPrefix,
                       value->format, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]);
    }
}

// ---- Labels and identifiers ------------------------------------------------

namespace {
constexpr uint32_t kLabelImplicitNull = 3;
constexpr uint32_t kLabelMax = 0xFFFFF;   // 20-bit MPLS label
}  // namespace

size_t l2vpn_mpls_label_text(uint32_t label, uint32_t encap, char *out) {
    const char *word = nullptr;
    size_t len = 0;
    if (encap == EVPN_ENCAP_VXLAN)
        ;  // a VNI, not a label
    else if (label == kLabelImplicitNull)
        word = "IMP-NULL", len = 8;
    else if (encap == EVPN_ENCAP_MPLS && label > kLabelMax)
        word = "Invalid", len = 7;
    if (word) {
        memcpy(out, word, len + 1);
        return len;
    }
    char *end = put_decimal(out, label);
    *end = '\0';
    return static_cast<size_t>(end - out);
}

void l2vpn_mpls_label_to_str(uint32_t label, char *buf, size_t size, uint32_t encap) {
    if (buf != nullptr && size >= L2VPN_LABEL_STR_SIZE) {  // room for any text: straight into buf
        l2vpn_mpls_label_text(label, encap, buf);
        return;
    }
    char text[L2VPN_LABEL_STR_SIZE];
    bounded_copy(buf, size, text, l2vpn_mpls_label_text(label, encap, text));
}

void l2vpn_l3rib_internal_id_to_str(uint32_t id, char *buf, size_t size) {
    if (id == 0)
        bounded_printf(buf, size, "%s", "None");
    else
        bounded_printf(buf, size, "0x%x", id);
}

// ---- Words -----------------------------------------------------------------

const char *evpn_bgp_encap_word(uint32_t encap, size_t *len) {
    if (encap < 256) {
        *len = kEncapByCode.of[encap].len;
        return kEncapByCode.of[encap].word;
    }
    for (const CodeWord &cw : kEncapWords)
        if (cw.code == encap)
            return *len = strlen(cw.word), cw.word;
    return *len = 7, "Unknown";
}

const char *evpn_bgp_encap_type_to_str(uint32_t encap) {
    size_t len;
    return evpn_bgp_encap_word(encap, &len);
}

const char *evpn_type_2_string(uint32_t evi_type) { return indexed_word(kEviTypeWords, evi_type); }

const char *evpn_bag_df_role_to_str(uint32_t role) { return indexed_word(kDfRoleWords, role); }

const char *Yes_or_No_str(uint32_t flag) { return flag ? "Yes" : "No"; }

int srv6_util_locator_flags_print(uint16_t flags, char *buf, size_t size) {
#define SRV6_FLAG_WORD(name, bit, word) {bit, word},
    static constexpr CodeWord kFlagWords[] = {SRV6_LOCATOR_FLAG_WORDS(SRV6_FLAG_WORD)};
#undef SRV6_FLAG_WORD
    if (buf == nullptr || flags == 0)
        return 0;
    char text[64] = "";
    size_t len = 0;
    uint32_t known = 0;
    for (const CodeWord &w : kFlagWords) {
        known |= w.code;
        if (flags & w.code)
            len += static_cast<size_t>(
                snprintf(text + len, sizeof text - len, "%s%s", len ? "," : "", w.word));
    }
    if ((flags & ~known) != 0 || len >= size)
        return 0;
    memcpy(buf, text, len + 1);
    return 1;
}

void srv6_mgmt_util_edm_fmt_print(const srv6_sid_format_bag *fmt, char *buf, int with_lengths,
                                  int display) {
    struct FormatWords {
        uint32_t type;
        const char *name, *keyword;
    };
#define SRV6_FORMAT_WORD(name, type, display_name, keyword) {type, display_name, keyword},
    static constexpr FormatWords kFormats[] = {SRV6_SID_FORMAT_WORDS(SRV6_FORMAT_WORD)};
#undef SRV6_FORMAT_WORD
    if (buf == nullptr)
        return;
    const srv6_sid_format_bag unspecified{};
    if (fmt == nullptr)
        fmt = &unspecified;
    const FormatWords *words = nullptr;
    for (const FormatWords &w : kFormats)
        if (w.type == fmt->type)
            words = &w;
    int len;
    if (words)
        len = snprintf(buf, SRV6_SID_FORMAT_STR_SIZE, "%s", display ? words->name : words->keyword);
    else
        len = snprintf(buf, SRV6_SID_FORMAT_STR_SIZE, display ? "Unknown (%u)" : "unknown-%u",
                       fmt->type);
    if (with_lengths)
        snprintf(buf + len, SRV6_SID_FORMAT_STR_SIZE - static_cast<size_t>(len), " [%u/%u/%u/%u]",
                 fmt->block_len, fmt->node_len, fmt->function_len, fmt->argument_len);
}

// ---- Attachment names --------------------------------------------------------

int is_pw_ves(const char *name) { return has_prefix_and_rest(name, "PW:"); }
int is_vfi_ves(const char *name) { return has_prefix_and_rest(name, "VFI:"); }
int is_access_evi(const char *name) { return has_prefix_and_rest(name, "EVI:"); }
int is_name_etree_es(const char *name) { return has_prefix_and_rest(name, "ETREE:"); }

void convert_pw_or_vfi_ves_namestring(const char *name, char *buf) {
    if (buf == nullptr)
        return;
    if (name == nullptr) {
        buf[0] = '\0';
    } else if (is_pw_ves(name)) {
        // "PW:<neighbor>,<pw-id>" -> "PW <neighbor> / <pw-id>"
        const char *rest = name + 3;
        const char *comma = strchr(rest, ',');
        if (comma == nullptr) {
            bounded_printf(buf, kVesNameSize, "PW %s", rest);
        } else {
            size_t nlen = static_cast<size_t>(comma - rest);
            if (nlen >= kVesNameSize)
                nlen = kVesNameSize - 1;   // the text is cut at the buffer anyway
            bounded_printf(buf, kVesNameSize, "PW %.*s / %s", static_cast<int>(nlen), rest,
                           comma + 1);
        }
    } else if (is_vfi_ves(name)) {
        bounded_printf(buf, kVesNameSize, "VFI %s", name + 4);
    } else if (is_access_evi(name)) {
        bounded_printf(buf, kVesNameSize, "Access EVI %s", name + 4);
    } else {
        bounded_printf(buf, kVesNameSize, "%s", name);
    }
}

int imc_internal_namestring(const char *name, char *buf, size_t size, uint32_t /*flags*/) {
    if (buf == nullptr || size == 0)
        return EINVAL;
    buf[0] = '\0';
    if (name == nullptr || name[0] == '\0')
        return EINVAL;
    size_t len = strnlen(name, size);
    if (len >= size)
        return ENOSPC;
    for (size_t i = 0; i < len; i++)
        buf[i] = name[i] == '/' ? '_' : name[i];
    buf[len] = '\0';
    return 0;
}

size_t l2vpn_month_day_time(time_t secs, unsigned fraction, int digits, char (&out)[32]) {
    struct tm tm;
    out[0] = '\0';
    constexpr time_t kNear = 1000000000000000;  // some 31 million years: the arithmetic below holds
    if (secs > -kNear && secs < kNear) {
        // The proleptic Gregorian calendar's day from the days since the
        // epoch, counted in 400-year eras from 0000-03-01; what gmtime does
        // for the month, day and time, without its other fields.
        time_t days = secs / 86400, rest = secs % 86400;
        if (rest < 0) rest += 86400, days--;
        const int64_t z = static_cast<int64_t>(days) + 719468;
        const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
        const unsigned doe = static_cast<unsigned>(z - era * 146097);                   // [0, 146096]
        const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;  // [0, 399]
        const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);                // [0, 365]
        const unsigned mp = (5 * doy + 2) / 153;                                     // March = 0
        tm.tm_mday = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
        tm.tm_mon = static_cast<int>(mp < 10 ? mp + 2 : mp - 10);
        tm.tm_hour = static_cast<int>(rest / 3600);
        tm.tm_min = static_cast<int>(rest / 60 % 60);
        tm.tm_sec = static_cast<int>(rest % 60);
    } else if (!gmtime_r(&secs, &tm)) {
        return 0;
    }
    // Every field of a converted time has two digits (the year is not shown):
    // its last two, one pair of the table.
    const auto two = [](char *p, int v) {
        memcpy(p, kDigitPairs + 2 * (static_cast<unsigned>(v) % 100), 2);
    };
    two(out, tm.tm_mon + 1);
    out[2] = '/';
    two(out + 3, tm.tm_mday);
    out[5] = ' ';
    two(out + 6, tm.tm_hour);
    out[8] = ':';
    two(out + 9, tm.tm_min);
    out[11] = ':';
    two(out + 12, tm.tm_sec);
    size_t n = 14;
    if (digits > 0) {
        out[n++] = '.';
        for (int i = digits - 1; i >= 0; i--, fraction /= 10) out[n + i] = static_cast<char>('0' + fraction % 10);
        n += static_cast<size_t>(digits);
    }
    out[n] = '\0';
    return n;
}

const char *l2vpn_timeval_to_str(const timeval *tv) {
    char *out = ring_next();
    if (tv == nullptr) {
        bounded_printf(out, kRingSlotSize, "%s", "(null)");
        return out;
    }
    // Microseconds of a second or more carry into the seconds.
    const time_t secs = static_cast<time_t>(tv->tv_sec) + static_cast<time_t>(tv->tv_usec / 1000000);
    const unsigned usec = static_cast<unsigned>(tv->tv_usec % 1000000);
    char text[32];
    if (l2vpn_month_day_time(secs, usec, 6, text) == 0)
        bounded_printf(out, kRingSlotSize, "%s", "?");
    else
        memcpy(out, text, sizeof text);
    return out;
}

size_t display_safe_text(const char *s, size_t len, char *buf, size_t size, bool *whole) {
    if (whole) *whole = false;
    if (buf == nullptr || size == 0) return 0;
    size_t out = 0, i = 0;
    while (i < len) {
        uint32_t cp;
        size_t good = bag_text_bad_at(s + i, len - i, &cp);
        size_t take = good < size - 1 - out ? good : size - 1 - out;
        // Never half a character: back off to the start of the one cut.
        if (take < good)
            while (take > 0 && (static_cast<unsigned char>(s[i + take]) & 0xc0) == 0x80) take--;
        memcpy(buf + out, s + i, take);
        out += take;
        if (take < good || out == size - 1) {
            i += take;
            break;
        }
        i += good;
        if (i == len) break;
        buf[out++] = '?';
        i += cp >= 0x80 && cp <= 0x9f ? 2 : 1;  // a C1 character is two bytes
    }
    buf[out] = '\0';
    if (whole) *whole = i >= len;
    return out;
}

int im_display_form(const char *name, char *buf, size_t size) {
    if (buf == nullptr || size == 0)
        return EINVAL;
    buf[0] = '\0';
    if (name == nullptr || name[0] == '\0')
        return EINVAL;
    bool whole = false;
    const size_t len = display_safe_text(name, strlen(name), buf, size, &whole);
    for (size_t i = 0; i < len; i++)
        if (buf[i] == '_') buf[i] = '/';
    return whole ? 0 : ENOSPC;
}
