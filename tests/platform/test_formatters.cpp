// Value formatters, their parsers and the shared-record printers.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "platform/bag_types.h"
#include "platform/formatters.h"
#include "platform/printers.h"

namespace {

constexpr char kFill = '#';   // marks bytes a bounded writer must not touch

std::string bytes_hex(const uint8_t *b, size_t n) {
    std::string s;
    char h[3];
    for (size_t i = 0; i < n; i++)
        s += (snprintf(h, sizeof h, "%02x", b[i]), h);
    return s;
}

TEST(Formatters, IpRoundTripsInCanonicalFormAndRingKeepsEightTexts) {
    const struct { const char *in, *out; } cases[8] = {
        {"10.0.0.1", "10.0.0.1"}, {"255.255.255.255", "255.255.255.255"}, {"::", "::"},
        {"::ffff:0.0.0.0", "0.0.0.0"}, {"2001:DB8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},
        {"fe80:0:0:0:0:0:0:1", "fe80::1"}, {"1:0:0:2:0:0:0:3", "1:0:0:2::3"},
        {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"}};
    l2vpn_ip_addr_t a[8];
    const char *text[8];
    for (int i = 0; i < 8; i++) {
        ASSERT_NE(l2vpn_inet_pton(cases[i].in, &a[i]), 0) << cases[i].in;
        text[i] = l2vpn_inet_ntop(&a[i]);
    }
    for (int i = 0; i < 8; i++)   // all eight texts still intact
        EXPECT_STREQ(text[i], cases[i].out) << cases[i].in;
    EXPECT_EQ(bytes_hex(a[0].bytes, 16), "00000000000000000000ffff0a000001");
    EXPECT_TRUE(l2vpn_ip_is_v4(&a[0]));
    EXPECT_FALSE(l2vpn_ip_is_v4(&a[2]));

    for (const char *bad : {"", "1.2.3", "1.2.3.256", "10.0.0.1 ", "::g", "1::2::3"}) {
        l2vpn_ip_addr_t x;
        memset(&x, 0xab, sizeof x);
        EXPECT_EQ(l2vpn_inet_pton(bad, &x), 0) << bad;
        EXPECT_EQ(x.bytes[0], 0xab) << bad;
    }
    EXPECT_EQ(l2vpn_inet_pton(nullptr, &a[0]), 0);
}

// Dotted quads are read without the C library when they are plainly well
// formed; every text must still read as inet_pton reads it.
TEST(Formatters, Ipv4TextReadsAsTheCLibraryReadsIt) {
    for (const char *t : {"0.0.0.0", "1.2.3.4", "255.255.255.255", "192.0.2.46", "01.2.3.4", "1.2.3.00",
                          "1.2.3.0", "256.1.1.1", "1.2.3.999", "1.2.3.1000", "1.2.3.", ".1.2.3", "1..2.3",
                          "1.2.3.4.5", "1.2.3.4.", "1.2.3", "1", "1.2.3.-4", "1.2.3.4x", " 1.2.3.4",
                          "::ffff:1.2.3.4", "::1.2.3.4", "1.2.3.4/8"}) {
        l2vpn_ip_addr_t want{}, got;
        in_addr v4;
        bool ok = true;
        if (inet_pton(AF_INET, t, &v4) == 1) {
            want.bytes[10] = want.bytes[11] = 0xff;
            memcpy(want.bytes + 12, &v4, 4);
        } else {
            ok = inet_pton(AF_INET6, t, want.bytes) == 1;
        }
        memset(&got, 0xab, sizeof got);
        ASSERT_EQ(l2vpn_inet_pton(t, &got) != 0, ok) << t;
        if (ok) EXPECT_EQ(bytes_hex(got.bytes, 16), bytes_hex(want.bytes, 16)) << t;
        else EXPECT_EQ(got.bytes[12], 0xab) << t;
    }
}

// The address's text, from the ring and into an array with its length.
void expect_address_text(const l2vpn_ip_addr_t &a, const char *want) {
    ASSERT_STREQ(l2vpn_inet_ntop(&a), want) << bytes_hex(a.bytes, 16);
    char text[L2VPN_IP_STR_SIZE];
    ASSERT_EQ(l2vpn_ip_to_text(&a, text), strlen(want)) << bytes_hex(a.bytes, 16);
    ASSERT_STREQ(text, want) << bytes_hex(a.bytes, 16);
}

// The address formatter is our own; the C library's inet_ntop is the
// reference for every IPv6 text, compressed runs and embedded IPv4 included.
TEST(Formatters, Ipv6TextMatchesTheCLibrary) {
    std::mt19937 rng(7);
    const uint16_t picks[] = {0, 0, 0, 1, 0xffff, 0x10, 0xabc, 0xf00d};
    for (int n = 0; n < 200000; n++) {
        l2vpn_ip_addr_t a;
        for (int w = 0; w < 8; w++) {
            uint16_t v = n % 3 ? picks[rng() % 8] : static_cast<uint16_t>(rng());
            a.bytes[2 * w] = static_cast<uint8_t>(v >> 8);
            a.bytes[2 * w + 1] = static_cast<uint8_t>(v);
        }
        if (l2vpn_ip_is_v4(&a)) continue;  // printed as a plain dotted quad
        char want[INET6_ADDRSTRLEN];
        ASSERT_NE(inet_ntop(AF_INET6, a.bytes, want, sizeof want), nullptr);
        expect_address_text(a, want);
        if (HasFatalFailure()) return;
    }
}

// Dotted quads come from a table of octet texts: every octet value, at every
// position, against the C library.
TEST(Formatters, Ipv4TextMatchesTheCLibrary) {
    std::mt19937 rng(8);
    for (int pos = 0; pos < 4; pos++) {
        for (unsigned v = 0; v < 256; v++) {
            l2vpn_ip_addr_t a{};
            a.bytes[10] = a.bytes[11] = 0xff;
            for (int i = 0; i < 4; i++) a.bytes[12 + i] = static_cast<uint8_t>(i == pos ? v : rng());
            char want[INET_ADDRSTRLEN];
            ASSERT_NE(inet_ntop(AF_INET, a.bytes + 12, want, sizeof want), nullptr);
            expect_address_text(a, want);
            if (HasFatalFailure()) return;
        }
    }
}

TEST(Formatters, IpHexIsCutToBufferAndAlwaysTerminated) {
    l2vpn_ip_addr_t a;
    l2vpn_inet_pton("2001:db8::ff", &a);
    const struct { size_t size; const char *out; } cases[] = {
        {40, "20010db80000000000000000000000ff"}, {33, "20010db80000000000000000000000ff"},
        {32, "20010db80000000000000000000000f"}, {5, "2001"}, {1, ""}, {0, nullptr}};
    for (const auto &c : cases) {
        char buf[48];
        memset(buf, kFill, sizeof buf);
        l2vpn_ip_addr2hex_string2(&a, buf, c.size);
        if (c.out) {
            EXPECT_STREQ(buf, c.out) << c.size;
        }
        EXPECT_EQ(buf[c.size], kFill) << c.size;
    }
}

TEST(Formatters, MacTextAndParser) {
    const uint8_t mac[6] = {0x00, 0x11, 0xaa, 0xBB, 0x44, 0xff}, zero[6] = {};
    EXPECT_STREQ(macstring(mac, 6), "0011.aabb.44ff");
    EXPECT_STREQ(macstring(mac, 5), "Invalid");
    EXPECT_TRUE(is_valid_mac(mac));
    EXPECT_FALSE(is_valid_mac(zero));
    for (const char *good : {"0011.aabb.44ff", "00:11:AA:bb:44:FF", "00-11-aa-bb-44-ff"}) {
        uint8_t out[6] = {};
        ASSERT_EQ(l2vpn_mac_pton(good, out), 0) << good;
        EXPECT_STREQ(macstring(out, 6), "0011.aabb.44ff") << good;
    }
    for (const char *bad : {"", "0011.2233.445", "0011.2233.44556", "0011:2233:4455",
                            "00:11:22:33:44-55", "00:11:22:33:44:5g", "00.11.22.33.44.55",
                            " 0011.2233.4455"}) {
        uint8_t out[6] = {1, 2, 3, 4, 5, 6};
        EXPECT_NE(l2vpn_mac_pton(bad, out), 0) << bad;
        EXPECT_EQ(out[0], 1) << bad;
    }
}

TEST(Formatters, EsiTextAndParser) {
    for (const char *good : {"0011.2233.4455.6677.88ff", "00:11:22:33:44:55:66:77:88:FF",
                             "00.11.22.33.44.55.66.77.88.ff", "00-11-22-33-44-55-66-77-88-ff"}) {
        uint8_t esi[10] = {};
        ASSERT_EQ(evpn_esi_pton(good, esi), 0) << good;
        EXPECT_STREQ(esistring(esi), "0011.2233.4455.6677.88ff") << good;
    }
    for (const char *bad : {"", "0011.2233.4455.6677.889", "00:11:22:33:44:55:66:77:88",
                            "00:11:22:33:44.55:66:77:88:99", "0011:2233:4455:6677:8899",
                            "0011.2233.4455.6677.889g"}) {
        uint8_t esi[10] = {9};
        EXPECT_NE(evpn_esi_pton(bad, esi), 0) << bad;
        EXPECT_EQ(esi[0], 9) << bad;
    }
    uint8_t esi[10] = {5, 1}, zero[10] = {};
    EXPECT_STREQ(esistring(esi), "0501.0000.0000.0000.0000");
    EXPECT_TRUE(is_nonzero_esi(esi));
    EXPECT_FALSE(is_nonzero_esi(zero));
    ASSERT_EQ(evpn_esi_pton("0600.0000.0000.0000.0001", esi), 0);   // parses, does not print
    EXPECT_EQ(esistring(esi), nullptr);
}

TEST(Formatters, EsiTextIsZeroOnlyForTheZeroEsiOrNoText) {
    const struct { const char *text; int nonzero; } cases[] = {
        {"0000.0000.0000.0000.0000", 0}, {"00:00:00:00:00:00:00:00:00:00", 0}, {"", 0},
        {nullptr, 0}, {"0000.0000.0000.0000.0001", 1}, {"0100.0000.0000.0000.0000", 1},
        {"0000.0000.0000.0000", 1}, {"N/A", 1},
        // Zeros and separators alone, yet no ESI: non-zero.
        {"0000-0000-0000-0000-0000", 1}, {"00:00:00:00:00:00:00:00:00-00", 1},
        {"0000.0000.0000.0000.00000", 1}, {"00.00", 1}, {"0000.0000.0000.0000.000x", 1}};
    for (const auto &c : cases)
        EXPECT_EQ(is_nonzero_show_esi_string(c.text) != 0, c.nonzero != 0)
            << (c.text ? c.text : "(null)");
}

TEST(Formatters, RdAndRtRoundTripInRecordLayout) {
    const struct { const char *text; uint32_t format; const char *value; } cases[] = {
        {"100:1", 1, "0000006400000001"}, {"65535:4294967295", 1, "0000ffffffffffff"},
        {"65536:7", 3, "0002000100000007"}, {"4294967295:65535", 3, "0002ffffffffffff"},
        {"1.1.1.1:5", 2, "0001010101010005"}, {"255.255.255.255:65535", 2, "0001ffffffffffff"}};
    for (const auto &c : cases) {
        l2vpn_bag_rd_t v;
        ASSERT_EQ(l2vpn_bag_rd_pton(c.text, &v), 0) << c.text;
        EXPECT_EQ(v.format, c.format) << c.text;
        EXPECT_EQ(bytes_hex(v.value, 8), c.value) << c.text;
        // Oversized buffers: the text must stop inside 29 / 22 bytes.
        l2vpn_rd_t rd;
        l2vpn_rt_t rt;
        char rd_buf[40], rt_buf[40], text[L2VPN_RD_STR_SIZE];
        memset(rd_buf, kFill, sizeof rd_buf);
        memset(rt_buf, kFill, sizeof rt_buf);
        ASSERT_TRUE(l2vpn_bag_rd_convert(&v, &rd) && l2vpn_bag_rt_convert(&v, &rt)) << c.text;
        rd_get_string(&rd, rd_buf);
        rt_get_string(&rt, rt_buf);
        l2vpn_bag_rd_to_text(&v, text, sizeof text);
        EXPECT_STREQ(rd_buf, c.text);
        EXPECT_STREQ(rt_buf, c.text);
        EXPECT_STREQ(text, c.text);
        EXPECT_EQ(rd_buf[L2VPN_RD_STR_SIZE], kFill);
        EXPECT_EQ(rt_buf[L2VPN_RT_STR_SIZE], kFill);
    }
    for (const char *bad : {"", "100", ":1", "100:", "100:4294967296", "4200000000:65536",
                            "4294967296:1", "1.1.1.1:65536", "1.1.1:5", "-1:5", "+1:5", "100:1:2",
                            "raw:00000001000000640000000", "raw:00000001000000640000000a0",
                            "raw:00000001000000640000000g", "RAW:00000001000000640000000a"}) {
        l2vpn_bag_rd_t v{77, {1}};
        EXPECT_NE(l2vpn_bag_rd_pton(bad, &v), 0) << bad;
        EXPECT_EQ(v.format, 77u) << bad;
        EXPECT_EQ(v.value[0], 1) << bad;
    }
}

TEST(Formatters, RdConvertNeedsFormatAndTypeToAgreeElseRawForm) {
    const struct { uint32_t format; uint8_t type_hi, type_lo; bool ok; } cases[] = {
        {1, 0, 0, true}, {2, 0, 1, true}, {3, 0, 2, true}, {0, 0, 0, false}, {4, 0, 3, false},
        {1, 0, 1, false}, {3, 0, 1, false}, {1, 1, 0, false}};
    for (const auto &c : cases) {
        l2vpn_bag_rd_t v{c.format, {c.type_hi, c.type_lo, 0, 1, 0, 0, 0, 2}};
        l2vpn_rd_t rd{};
        EXPECT_EQ(l2vpn_bag_rd_convert(&v, &rd) != 0, c.ok) << c.format << "/" << +c.type_lo;
        EXPECT_EQ(memcmp(rd.bytes, v.value, 8) == 0, c.ok);
    }
    // An unknown format word does not convert: raw text, and back.
    l2vpn_bag_rd_t v, back;
    char text[L2VPN_RD_STR_SIZE];
    ASSERT_EQ(l2vpn_bag_rd_pton("raw:01020304000102030405FFFF", &v), 0);
    EXPECT_EQ(v.format, 0x01020304u);
    l2vpn_bag_rd_to_text(&v, text, sizeof text);
    EXPECT_STREQ(text, "raw:01020304000102030405ffff");
    ASSERT_EQ(l2vpn_bag_rd_pton(text, &back), 0);
    EXPECT_EQ(memcmp(&back, &v, sizeof v), 0);
    // A 4-byte AS number that fits 16 bits would read back as a 2-byte one.
    ASSERT_EQ(l2vpn_bag_rd_pton("raw:000000030002000000000000", &v), 0);
    l2vpn_bag_rd_to_text(&v, text, sizeof text);
    EXPECT_STREQ(text, "raw:000000030002000000000000");
    char small[2] = {kFill, kFill};
    l2vpn_bag_rd_to_text(&v, small, 0);
    EXPECT_EQ(small[0], kFill);
    l2vpn_bag_rd_to_text(&v, small, 1);
    EXPECT_EQ(small[0], '\0');
    EXPECT_EQ(small[1], kFill);
}

// The texts made in place hold what printf makes of the same values (a
// decimal at each side of every power of ten and of two, a MAC of every
// byte value), and an address's text the length given for it.
TEST(Formatters, TextsMadeInPlaceMatchPrintfAtEveryDigitCount) {
    std::vector<uint32_t> values = {0, 0xFFFFFFFF};
    for (uint64_t p = 1; p <= 0xFFFFFFFFull; p *= 10)
        for (int d : {-1, 0, 1}) values.push_back(static_cast<uint32_t>(p + d));
    for (int b = 0; b < 32; b++)
        for (int d : {-1, 0, 1}) values.push_back((1u << b) + static_cast<uint32_t>(d));
    for (uint32_t v : values) {
        char want[16], got[L2VPN_LABEL_STR_SIZE + 4];
        memset(got, kFill, sizeof got);
        snprintf(want, sizeof want, "%u", v);
        EXPECT_EQ(l2vpn_mpls_label_text(v, EVPN_ENCAP_VXLAN, got), strlen(want)) << v;
        EXPECT_STREQ(got, want) << v;
    }
    for (unsigned v = 0; v < 256; v++) {
        const uint8_t mac[6] = {uint8_t(v), uint8_t(v ^ 0xff), uint8_t(v * 7), uint8_t(v + 1), 0, uint8_t(v)};
        char want[20], got[L2VPN_MAC_STR_LEN + 1];
        snprintf(want, sizeof want, "%02x%02x.%02x%02x.%02x%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
        l2vpn_mac_to_text(mac, got);
        EXPECT_STREQ(got, want);
        EXPECT_STREQ(macstring(mac, 6), want);
        l2vpn_ip_addr_t a{};
        for (int i = 0; i < 16; i++) a.bytes[i] = uint8_t(i * v);
        for (int form = 0; form < 3; form++) {
            if (form == 1) memcpy(a.bytes, "\0\0\0\0\0\0\0\0\0\0\xff\xff", 12);  // IPv4-mapped
            if (form == 2) memset(a.bytes + 2, 0, 10);                      // a run of zero groups
            char text[L2VPN_IP_STR_SIZE];
            const size_t n = l2vpn_ip_to_text(&a, text);
            EXPECT_EQ(n, strlen(text)) << v << " " << form;
        }
    }
}

TEST(Formatters, LabelsAndIdsAreBounded) {
    const struct { uint32_t label, encap; size_t size; const char *out; } cases[] = {
        {3, 10, 100, "IMP-NULL"}, {3, 0, 100, "IMP-NULL"}, {3, 8, 100, "3"},
        {0xFFFFF, 10, 100, "1048575"}, {0x100000, 10, 100, "Invalid"},
        {0x100000, 8, 100, "1048576"}, {0x100000, 255, 100, "1048576"},
        {0, 10, 100, "0"}, {0xFFFFFFFF, 8, 100, "4294967295"}, {24005, 10, 3, "24"},
        {3, 10, 4, "IMP"}, {24005, 10, 1, ""}, {24005, 10, 0, nullptr}};
    for (const auto &c : cases) {
        char buf[101];
        memset(buf, kFill, sizeof buf);
        l2vpn_mpls_label_to_str(c.label, buf, c.size, c.encap);
        if (c.out) {
            EXPECT_STREQ(buf, c.out) << c.label << "/" << c.encap;
        }
        EXPECT_EQ(buf[c.size], kFill);
    }
    char buf[12];
    l2vpn_l3rib_internal_id_to_str(0xffffffff, buf, sizeof buf);
    EXPECT_STREQ(buf, "0xffffffff");
}

TEST(Formatters, Words) {
    const struct { uint32_t code; const char *encap, *evi_type, *df_role; } cases[] = {
        {0, "N/A", "Invalid", "Not Set"}, {1, "L2TPv3", "EVPN", "Primary"},
        {3, "Unknown", "EVPN VPWS", "Not Designated Forwarder"}, {4, "Unknown", "EVPN FXC", "Unknown"},
        {7, "IPinIP", "EVPN IRB", "Unknown"}, {8, "VXLAN", "Unknown", "Unknown"},
        {13, "MPLSoUDP", "Unknown", "Unknown"}, {14, "Unknown", "Unknown", "Unknown"},
        {255, "SRv6", "Unknown", "Unknown"}, {0xffffffff, "Unknown", "Unknown", "Unknown"}};
    for (const auto &c : cases) {
        EXPECT_STREQ(evpn_bgp_encap_type_to_str(c.code), c.encap) << c.code;
        EXPECT_STREQ(evpn_type_2_string(c.code), c.evi_type) << c.code;
        EXPECT_STREQ(evpn_bag_df_role_to_str(c.code), c.df_role) << c.code;
    }
    EXPECT_STREQ(Yes_or_No_str(0), "No");
    EXPECT_STREQ(Yes_or_No_str(2), "Yes");
}

TEST(Formatters, LocatorFlagsPrintOnlyWholeKnownTexts) {
    const struct { uint16_t flags; size_t size; const char *out; } cases[] = {
        {0x1, 20, "Anycast"}, {0x6, 20, "uSID,Algo"}, {0x7, 20, "Anycast,uSID,Algo"},
        {0x7, 18, "Anycast,uSID,Algo"}, {0x7, 17, nullptr}, {0x0, 20, nullptr},
        {0x8, 20, nullptr}, {0x9, 20, nullptr}, {0x8000, 20, nullptr}, {0x2, 0, nullptr}};
    for (const auto &c : cases) {
        char buf[21];
        memset(buf, kFill, sizeof buf);
        int wrote = srv6_util_locator_flags_print(c.flags, buf, c.size);
        EXPECT_EQ(wrote != 0, c.out != nullptr) << c.flags << "/" << c.size;
        if (c.out)
            EXPECT_STREQ(buf, c.out) << c.flags;
        else
            EXPECT_EQ(buf[0], kFill) << c.flags << "/" << c.size;  // untouched
    }
}

TEST(Formatters, SidFormatNamesKeywordsAndLengths) {
    const struct { uint32_t type; int lengths, display; const char *out; } cases[] = {
        {1, 0, 1, "Base"}, {2, 0, 0, "usid-f3216"}, {1, 1, 0, "base [32/16/16/0]"},
        {0xffffffff, 1, 0, "unknown-4294967295 [32/16/16/0]"}};
    for (const auto &c : cases) {
        srv6_sid_format_bag fmt{c.type, 32, 16, 16, 0};
        char buf[SRV6_SID_FORMAT_STR_SIZE + 1];
        memset(buf, kFill, sizeof buf);
        srv6_mgmt_util_edm_fmt_print(&fmt, buf, c.lengths, c.display);
        EXPECT_STREQ(buf, c.out) << c.type;
        EXPECT_EQ(buf[SRV6_SID_FORMAT_STR_SIZE], kFill);
    }
    char buf[SRV6_SID_FORMAT_STR_SIZE];
    srv6_mgmt_util_edm_fmt_print(nullptr, buf, 1, 1);  // no format: unspecified, zero lengths
    EXPECT_STREQ(buf, "Unspecified [0/0/0/0]");
    srv6_mgmt_util_edm_fmt_print(nullptr, nullptr, 1, 1);  // nothing to write into
}

TEST(Formatters, AttachmentNames) {
    const std::string long_name(100, 'x');
    const struct { const char *name; int kind; const char *out; } cases[] = {   // kind: 1 PW, 2 VFI, 3 EVI
        {"PW:2001:db8::1,7", 1, "PW 2001:db8::1 / 7"}, {"PW:", 0, "PW:"},
        {"pw:1.1.1.1,1", 0, "pw:1.1.1.1,1"}, {long_name.c_str(), 0, nullptr}};
    for (const auto &c : cases) {
        EXPECT_EQ(is_pw_ves(c.name) != 0, c.kind == 1) << c.name;
        EXPECT_EQ(is_vfi_ves(c.name) != 0, c.kind == 2) << c.name;
        EXPECT_EQ(is_access_evi(c.name) != 0, c.kind == 3) << c.name;
        char buf[81];
        buf[80] = kFill;
        convert_pw_or_vfi_ves_namestring(c.name, buf);
        EXPECT_EQ(std::string(buf), c.out ? c.out : long_name.substr(0, 79));
        EXPECT_EQ(buf[80], kFill);
    }
    EXPECT_EQ(is_name_etree_es(nullptr), 0);
    // A name is E-Tree with something after the whole prefix only.
    EXPECT_EQ(is_name_etree_es("ETREE:bond1"), 1);
    EXPECT_EQ(is_name_etree_es("ETREE:"), 0);
    EXPECT_EQ(is_name_etree_es("ETRE"), 0);
    EXPECT_EQ(is_name_etree_es("ETREE-bond1"), 0);
    char key[13];   // exactly fits the first name
    EXPECT_EQ(imc_internal_namestring("ports/1/eth1", key, sizeof key, 0), 0);
    EXPECT_STREQ(key, "ports_1_eth1");
    EXPECT_NE(imc_internal_namestring("ports/1/eth10", key, sizeof key, 0), 0);
    EXPECT_NE(imc_internal_namestring("", key, sizeof key, 0), 0);
    EXPECT_NE(imc_internal_namestring(nullptr, key, sizeof key, 0), 0);

    // The display form reverses the key form; it never carries a control byte.
    char shown[13];
    EXPECT_EQ(im_display_form("ports_1_eth1", shown, sizeof shown), 0);
    EXPECT_STREQ(shown, "ports/1/eth1");
    EXPECT_EQ(im_display_form("a\x1b[2J\x7f", shown, sizeof shown), 0);
    EXPECT_STREQ(shown, "a?[2J?");
    EXPECT_NE(im_display_form("ports_1_eth10", shown, sizeof shown), 0);
    EXPECT_STREQ(shown, "ports/1/eth1");  // cut at the buffer
    EXPECT_NE(im_display_form(nullptr, shown, sizeof shown), 0);
    EXPECT_STREQ(shown, "");
    EXPECT_NE(im_display_form("", shown, sizeof shown), 0);
    EXPECT_NE(im_display_form("eth1", nullptr, 8), 0);
    // A C1 character is one '?', a byte that is not UTF-8 another; a cut
    // never leaves half a character.
    EXPECT_EQ(im_display_form("\xc2\x9b" "1\xff\xc3\xa9", shown, sizeof shown), 0);
    EXPECT_STREQ(shown, "?1?\xc3\xa9");
    bool whole = true;
    EXPECT_EQ(display_safe_text("caf\xc3\xa9", 5, shown, 5, &whole), 3u);
    EXPECT_STREQ(shown, "caf");
    EXPECT_FALSE(whole);
    EXPECT_EQ(display_safe_text("a\x1b", 2, shown, 3, &whole), 2u);
    EXPECT_STREQ(shown, "a?");
    EXPECT_TRUE(whole);
}

// ---- Printers ----------------------------------------------------------------

template <class Fn> std::string capture(Fn fn) {
    testing::internal::CaptureStdout();
    fn();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

char *ch(const char *text) { return const_cast<char *>(text); }

TEST(PlatformPrinters, EventHistory) {
    evt_hist_bag empty{ch("evpn-mac"), {0, nullptr}}, info{ch("mac-info"), {0, nullptr}};
    evt_hist_bag no_data{nullptr, {3, nullptr}};   // a count without elements reads nothing
    EXPECT_EQ(capture([&] { infra_db_print_evt_hist_bag(&empty, &info, "EVPN MAC event history"); }),
              "\nEVPN MAC event history (mac-info)\n    No events\n");
    EXPECT_EQ(capture([&] { infra_db_print_evt_hist_bag(&no_data, nullptr, nullptr); }),
              "\nEvent history\n    No events\n");

    // Words sit in exact-size heap arrays: a read past a count is also caught by
    // the address sanitizer. The second row has a count but no words; the third
    // row's first line ends exactly at column 99.
    std::vector<uint32_t> one{0x1}, many{0xffffffff, 0xffffffff, 0xffffffff, 0x1234567, 0x2};
    evt_hist_entry_bag e[3] = {{ch("Jan  1 00:00:01.000"), 0, ch("Create"), 0, 1, 0, {1, one.data()}},
                               {ch("Jan  1 00:00:02.000"), 0, ch("Bind"), 0, 0, 1, {2, nullptr}},
                               {nullptr, 0, nullptr, 0, 1, 1, {5, many.data()}}};
    evt_hist_bag h{ch("evpn-evi"), {3, e}};
    const std::string w = " 0xffffffff";
    EXPECT_EQ(capture([&] { infra_db_print_evt_hist_bag(&h, nullptr, "EVPN VPN-ID event history"); }),
              "\nEVPN VPN-ID event history\n    Class: evpn-evi, 3 events\n"
              "    Jan  1 00:00:01.000  Create                       M- 0x1\n"
              "    Jan  1 00:00:02.000  Bind                         -S\n" +
                  std::string(4 + 20 + 1 + 28, ' ') + " MS" + w + w + w + " 0x1234567\n" +
                  std::string(56, ' ') + " 0x2\n");
}

TEST(PlatformPrinters, EventHistoryLinesStayUnder100Columns) {
    const std::string long_text(150, 'z');
    std::vector<uint32_t> words(40, 0x80000000);
    evt_hist_entry_bag e{ch(long_text.c_str()), 0, ch(long_text.c_str()), 0, 0, 0, {40, words.data()}};
    evt_hist_bag h{ch(long_text.c_str()), {1, &e}};
    std::string out = capture([&] { infra_db_print_evt_hist_bag(&h, &h, long_text.c_str()); });
    size_t start = 0, lines = 0;
    for (size_t nl; (nl = out.find('\n', start)) != std::string::npos; start = nl + 1, lines++)
        EXPECT_LT(nl - start, 100u) << out.substr(start, nl - start);
    EXPECT_EQ(start, out.size());
    EXPECT_EQ(lines, 3u + (40u + 2) / 3);   // blank, title, class, then 3 words a line
}

TEST(PlatformPrinters, DiagStatsKeepTheirColumns) {
    const struct { uint32_t count, sec, nsec, arg; const char *out; } cases[] = {
        {7, 1700000000, 123456789, 0xabc, "   7 11/14 22:13:20.123    0xabc"},
        {9999, 0, 1, 0xffffff, "9999 01/01 00:00:00.000 0xffffff"},
        {10000, 0, 1500000000, 0x1000000, " 10k 01/01 00:00:01.500 01000000"},
        {999999999, 59, 999999999, 0xffffffff, "999M 01/01 00:00:59.999 ffffffff"},
        {4294967295u, 4294967295u, 4294967295u, 1, "  4G 02/07 06:28:19.294      0x1"}};
    for (const auto &c : cases) {
        l2vpn_diag_stats_bag st{c.count, {c.sec, c.nsec}, c.arg};
        EXPECT_EQ(capture([&] { l2vpn_diag_stats_print_bag(&st); }), c.out);
    }
    EXPECT_EQ(capture([] { l2vpn_diag_stats_print_bag(nullptr); }), "");
}

TEST(Formatters, TimeTextsCarryFractionsAndKeepToTheirBuffers) {
    l2vpn_timespec_bag t{1700730123, 456000000};
    char buf[24];
    memset(buf, 'x', sizeof buf);
    l2vpn_timespec_string(&t, buf, 6);
    EXPECT_STREQ(buf, "11/23");
    EXPECT_EQ(buf[6], 'x') << "nothing past the buffer";
    l2vpn_timespec_string(nullptr, buf, sizeof buf);
    EXPECT_STREQ(buf, "never");
    l2vpn_timespec_string(nullptr, buf, 3);
    EXPECT_STREQ(buf, "ne");

    const timeval carry{0, 2000001}, zero{0, 0};
    EXPECT_STREQ(l2vpn_timeval_to_str(&carry), "01/01 00:00:02.000001");
    EXPECT_STREQ(l2vpn_timeval_to_str(&zero), "01/01 00:00:00.000000");
    EXPECT_STREQ(l2vpn_timeval_to_str(nullptr), "(null)");
}

// Times are written digit by digit; across centuries, leap days, the epoch's
// two sides and each fraction width the text is strftime's and snprintf's,
// and a time gmtime cannot convert leaves an empty text.
TEST(Formatters, MonthDayTimeIsWhatStrftimeWrites) {
    std::mt19937_64 rng(5);
    std::vector<time_t> times = {0,          -1,           59,          86399, 951782400 /* 2000-02-29 */,
                                 4102444799, -2208988800, -62135596800 /* 0001-01-01 */,
                                 253402300799 /* 9999-12-31 */, 999999999999999, -999999999999999,
                                 1000000000000000, -1000000000000000};
    for (int i = 0; i < 2000; i++) times.push_back(static_cast<time_t>(rng() % 2000000000000000ull) - 1000000000000000);
    for (int i = 0; i < 20000; i++) times.push_back(static_cast<time_t>(rng() % 20000000000ull) - 5000000000);
    for (time_t secs : times)
        for (int digits : {0, 3, 6}) {
            const unsigned fraction = static_cast<unsigned>(rng() % (digits == 6 ? 1000000 : 1000));
            struct tm tm;
            ASSERT_TRUE(gmtime_r(&secs, &tm));
            char want[48];
            size_t n = strftime(want, sizeof want, "%m/%d %H:%M:%S", &tm);
            if (digits) n += static_cast<size_t>(snprintf(want + n, sizeof want - n, ".%0*u", digits, fraction));
            char got[32];
            ASSERT_EQ(l2vpn_month_day_time(secs, fraction, digits, got), n) << secs;
            ASSERT_STREQ(got, want) << secs;
        }
    char got[32] = "x";
    EXPECT_EQ(l2vpn_month_day_time(std::numeric_limits<time_t>::max(), 0, 3, got), 0u);
    EXPECT_STREQ(got, "");
}

// (Level one, with the counters, is in the private segment report.)
TEST(PlatformPrinters, HaSyncObjectNamesItsStateAndAtLevelZeroNothingMore) {
    l2vpn_sync_hasi_object o{0x101, 2, 0x3, 42, 41};
    EXPECT_EQ(capture([&] { l2vpn_sync_print_hasi_object(&o, 0); }),
              "HA sync object 0x101: Synced\n");
    o.state = 4;
    EXPECT_EQ(capture([&] { l2vpn_sync_print_hasi_object(&o, 0); }),
              "HA sync object 0x101: Unknown\n");
    EXPECT_EQ(capture([] { l2vpn_sync_print_hasi_object(nullptr, 1); }), "");
}

}  // namespace
