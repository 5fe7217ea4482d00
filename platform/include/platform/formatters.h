// Value formatters and their parsers. Each formatter writes a bounded text;
// the ones returning const char * use a ring of per-thread buffers, so a few
// calls may stand in one printf (the text stays valid for 8 later calls).
#pragma once
#include <cstddef>
#include <cstdint>
#include <sys/time.h>

// 16-byte IP address record: an IPv6 address, or an IPv4 address in the
// IPv4-mapped form ::ffff:a.b.c.d. All zero is the unspecified address.
struct l2vpn_ip_addr_t {
    uint8_t bytes[16];
};
// RD and RT values as records carry them: a format word and eight value bytes.
struct l2vpn_bag_rd_t {
    uint32_t format;
    uint8_t value[8];
};
typedef l2vpn_bag_rd_t l2vpn_bag_rt_t;
// Converted 8-byte route distinguisher / route target (RFC 4364 / RFC 4360 layout).
struct l2vpn_rd_t {
    uint8_t bytes[8];
};
struct l2vpn_rt_t {
    uint8_t bytes[8];
};
enum : uint32_t {
    L2VPN_RD_FORMAT_NONE = 0,   // unset: converts to nothing, fails
    L2VPN_RD_FORMAT_AS2 = 1,    // 2-byte ASN : 4-byte number
    L2VPN_RD_FORMAT_IPV4 = 2,   // IPv4 address : 2-byte number
    L2VPN_RD_FORMAT_AS4 = 3,    // 4-byte ASN : 2-byte number
};
enum : size_t {
    L2VPN_RD_STR_SIZE = 29,
    L2VPN_RT_STR_SIZE = 22,
    L2VPN_MAC_STR_LEN = 14,     // "0011.2233.4455"
    L2VPN_ESI_STR_LEN = 24,     // "0011.2233.4455.6677.8899"
    L2VPN_IP_HEX_LEN = 32,
    L2VPN_IP_STR_SIZE = 46,     // the longest address text and its NUL
    L2VPN_LABEL_STR_SIZE = 11,  // the longest label text (ten digits) and its NUL
};

// Addresses. ntop never returns null; pton returns non-zero on success.
const char *l2vpn_inet_ntop(const l2vpn_ip_addr_t *addr);
int l2vpn_inet_pton(const char *text, l2vpn_ip_addr_t *addr);
bool l2vpn_ip_is_v4(const l2vpn_ip_addr_t *addr);
// The text l2vpn_inet_ntop gives, into out (L2VPN_IP_STR_SIZE bytes, any of
// which it may write, past the NUL too), NUL-terminated; returns its
// length. For a text made where it is printed.
size_t l2vpn_ip_to_text(const l2vpn_ip_addr_t *addr, char *out);
// 32 lower-case hex digits of the 16 bytes; cut to size - 1.
void l2vpn_ip_addr2hex_string2(const l2vpn_ip_addr_t *addr, char *buf, size_t size);

// MAC: "0011.2233.4455". len must be 6 (else "Invalid").
const char *macstring(const uint8_t *mac, int len);
// The text macstring gives for a 6-byte MAC, into out (L2VPN_MAC_STR_LEN + 1
// bytes), NUL-terminated.
void l2vpn_mac_to_text(const uint8_t *mac, char *out);
// Parses "0011.2233.4455", "00:11:22:33:44:55" or "00-11-22-33-44-55"; 0 on success.
int l2vpn_mac_pton(const char *text, uint8_t mac[6]);
int is_valid_mac(const uint8_t *mac);   // non-zero unless all zero

// ESI: 10 octets, "0011.2233.4455.6677.8899". esistring gives null when the
// type octet (the first) is above 5, which no Ethernet segment can carry.
const char *esistring(const uint8_t *esi);
int evpn_esi_pton(const char *text, uint8_t esi[10]);  // 0 on success
int is_nonzero_esi(const uint8_t *esi);
// An ESI as records carry it in text: zero for a null or empty text and for
// the zero ESI in any form evpn_esi_pton reads; any other text is non-zero.
int is_nonzero_show_esi_string(const char *esi_text);

// RD / RT: convert returns non-zero on success; get_string writes at most
// L2VPN_RD_STR_SIZE / L2VPN_RT_STR_SIZE bytes (NUL included).
int l2vpn_bag_rd_convert(const l2vpn_bag_rd_t *value, l2vpn_rd_t *rd);
void rd_get_string(const l2vpn_rd_t *rd, char *buf);
int l2vpn_bag_rt_convert(const l2vpn_bag_rt_t *value, l2vpn_rt_t *rt);
void rt_get_string(const l2vpn_rt_t *rt, char *buf);
// Parses "100:1", "1.1.1.1:5", "4200000000:7" (a number above 65535 before
// the colon is a 4-byte ASN); 0 on success.
int l2vpn_bag_rd_pton(const char *text, l2vpn_bag_rd_t *value);
// Text of a record value: its RD text, or "raw:" and 24 hex digits when it
// does not convert. The raw form parses back with l2vpn_bag_rd_pton.
void l2vpn_bag_rd_to_text(const l2vpn_bag_rd_t *value, char *buf, size_t size);

// Encapsulation codes of EVPN records, each with its word
// (evpn_bgp_encap_type_to_str).
#define EVPN_ENCAP_WORDS(X)                                                     \
    X(EVPN_ENCAP_NONE, 0, "N/A") X(EVPN_ENCAP_L2TPV3, 1, "L2TPv3")              \
    X(EVPN_ENCAP_GRE, 2, "GRE") X(EVPN_ENCAP_IPINIP, 7, "IPinIP")               \
    X(EVPN_ENCAP_VXLAN, 8, "VXLAN") X(EVPN_ENCAP_NVGRE, 9, "NVGRE")             \
    X(EVPN_ENCAP_MPLS, 10, "MPLS") X(EVPN_ENCAP_MPLSOGRE, 11, "MPLSoGRE")       \
    X(EVPN_ENCAP_VXLAN_GPE, 12, "VXLAN-GPE") X(EVPN_ENCAP_MPLSOUDP, 13, "MPLSoUDP") \
    X(EVPN_ENCAP_SRV6, 255, "SRv6")
#define EVPN_ENCAP_ENUM(name, code, word) name = code,
enum evpn_encap_et : uint32_t { EVPN_ENCAP_WORDS(EVPN_ENCAP_ENUM) };
#undef EVPN_ENCAP_ENUM

// Time given as whole seconds and microseconds, as ring text
// "MM/DD HH:MM:SS.uuuuuu" in UTC; microseconds of a second or more carry into
// the seconds; "(null)" for null.
const char *l2vpn_timeval_to_str(const struct timeval *tv);
// Seconds since the epoch as "MM/DD HH:MM:SS" (UTC) followed by a fraction of
// `digits` digits (0 for none: no point either) into out, NUL-terminated, as
// strftime's "%m/%d %H:%M:%S" and a ".%0Nu" would write it; returns the
// length, or 0 (out empty) for a time gmtime cannot convert.
size_t l2vpn_month_day_time(time_t secs, unsigned fraction, int digits, char (&out)[32]);

// Labels and identifiers.
void l2vpn_mpls_label_to_str(uint32_t label, char *buf, size_t size, uint32_t encap);
// The text l2vpn_mpls_label_to_str gives, into out (L2VPN_LABEL_STR_SIZE
// bytes), NUL-terminated; returns its length.
size_t l2vpn_mpls_label_text(uint32_t label, uint32_t encap, char *out);
void l2vpn_l3rib_internal_id_to_str(uint32_t id, char *buf, size_t size);

// EVI type codes, each with its word (evpn_type_2_string); the codes run
// from 0 without a gap.
#define EVPN_EVI_TYPE_WORDS(X)                                                  \
    X(0, "Invalid") X(1, "EVPN") X(2, "PBB-EVPN") X(3, "EVPN VPWS")             \
    X(4, "EVPN FXC") X(5, "EVPN VXLAN") X(6, "EVPN SRv6") X(7, "EVPN IRB")
// Designated-forwarder roles, each with its word (evpn_bag_df_role_to_str);
// the codes run from 0 without a gap.
#define EVPN_DF_ROLE_WORDS(X)                                                   \
    X(0, "Not Set") X(1, "Primary") X(2, "Backup") X(3, "Not Designated Forwarder")

// Words.
const char *evpn_bgp_encap_type_to_str(uint32_t encap);
// The same word, with its length in *len.
const char *evpn_bgp_encap_word(uint32_t encap, size_t *len);
const char *evpn_type_2_string(uint32_t evi_type);
const char *evpn_bag_df_role_to_str(uint32_t role);
const char *Yes_or_No_str(uint32_t flag);

// SRv6 locator flag bits, each with its word.
#define SRV6_LOCATOR_FLAG_WORDS(X)                                              \
    X(SRV6_LOCATOR_FLAG_ANYCAST, 0x1, "Anycast") X(SRV6_LOCATOR_FLAG_USID, 0x2, "uSID") \
    X(SRV6_LOCATOR_FLAG_ALGO, 0x4, "Algo")
// Words of the set locator flags, joined by ',' in bit order, into buf
// (size bytes). Non-zero when it wrote them; 0, with buf untouched, for no
// flag, a bit without a word, or a text that does not fit.
int srv6_util_locator_flags_print(uint16_t flags, char *buf, size_t size);

// SRv6 SID formats of a locator (srv6_sid_format_bag, bag_types.h), each
// with its display name and its configuration keyword.
#define SRV6_SID_FORMAT_WORDS(X)                                                \
    X(SRV6_SID_FORMAT_UNSPECIFIED, 0, "Unspecified", "unspecified")             \
    X(SRV6_SID_FORMAT_BASE, 1, "Base", "base")                                  \
    X(SRV6_SID_FORMAT_USID_F3216, 2, "Micro-segment (uSID) F3216", "usid-f3216")
struct srv6_sid_format_bag;
enum : size_t { SRV6_SID_FORMAT_STR_SIZE = 80 };
// Text of a SID format into buf (SRV6_SID_FORMAT_STR_SIZE bytes): with
// display non-zero its display name, else its configuration keyword; a type
// without a name is "Unknown (<type>)" / "unknown-<type>". with_lengths
// non-zero adds the bit lengths, " [block/node/function/argument]". A null
// format reads as unspecified; a null buf is left alone.
void srv6_mgmt_util_edm_fmt_print(const srv6_sid_format_bag *fmt, char *buf, int with_lengths,
                                  int display);

// Attachment names as records carry them.
int is_pw_ves(const char *name);       // "PW:<neighbor>,<pw-id>"
int is_vfi_ves(const char *name);      // "VFI:<vfi-name>"
int is_access_evi(const char *name);   // "EVI:<number>"
int is_name_etree_es(const char *name);  // "ETREE:<name>": the E-Tree segment
// Display form into an 80-byte buffer: "PW:10.0.0.1,100" -> "PW 10.0.0.1 / 100",
// "VFI:core" -> "VFI core", "EVI:5" -> "Access EVI 5"; other names unchanged.
void convert_pw_or_vfi_ves_namestring(const char *name, char *buf);
// Interface name to the internal form used in database keys ("/" -> "_"); 0 on success.
int imc_internal_namestring(const char *name, char *buf, size_t size, uint32_t flags);
// Text from the database or the command line made safe for a terminal, into
// buf (NUL-terminated, cut at size - 1 on a character boundary): each control
// character (C0, DEL, C1) and each byte that is not UTF-8 shows as '?'.
// Returns the bytes written; *whole (when given) says whether all of s fit.
size_t display_safe_text(const char *s, size_t len, char *buf, size_t size, bool *whole = nullptr);
// Display form of an internal interface name ("_" -> "/", the reverse of
// imc_internal_namestring; shown as display_safe_text shows it) into buf,
// cut at size - 1. 0 on success; non-zero for a null or empty name (buf
// emptied) or a cut text. im_display_namestring (caps.h) gives it for the
// interfaces the platform knows.
int im_display_form(const char *name, char *buf, size_t size);
