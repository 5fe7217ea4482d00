// Shared path formatting (SID column, Ethernet tags, path issues) and the
// printers of MAC, inclusive-multicast, EAD routes, neighbors and label
// entries, on records built by hand: what the report cases' snapshots lack.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "evpn_show_print.h"
#include "stdout_capture.h"
#include "test_util.h"
#include "platform/caps.h"
#include "platform/debug.h"

namespace {

std::string blanks(size_t n) { return std::string(n, ' '); }


l2vpn_ip_addr_t ip(const char *text) {
    l2vpn_ip_addr_t a{};
    EXPECT_NE(l2vpn_inet_pton(text, &a), 0) << text;
    return a;
}

Srv6Sid sid(const char *text) {
    Srv6Sid s{};
    s.SRv6_SID = ip(text);
    return s;
}

EvpnPath path(const char *nexthop, uint32_t label) {
    EvpnPath p{};
    p.NextHop = ip(nexthop);
    p.OutputLabel = label;
    return p;
}

template <class T, size_t N>
bag_array<T> arr(T (&a)[N]) {
    return {N, a};
}

char *text(const char *s) { return const_cast<char *>(s); }

// Every test starts with no option, no debug mask and SRv6 E-LAN off.
class FwdEntries : public testing::Test {
  protected:
    void SetUp() override {
        saved_ = show_filter;
        show_filter = ShowFilter{};
        elan(false);
        l2vpn_debug_set_enabled_bitset(0);
    }
    void TearDown() override {
        show_filter = saved_;
        unsetenv("EVPN_SRV6_ELAN");
        unsetenv("EVPN_SRV6");
        platform_caps_reset();
        l2vpn_debug_set_enabled_bitset(0);
    }
    static void elan(bool on) {
        setenv("EVPN_SRV6_ELAN", on ? "1" : "0", 1);
        platform_caps_reset();
    }
    ShowFilter saved_;
};

// ---- SID column ----------------------------------------------------------------

// The listings pin the other three pairs of switches.
TEST_F(FwdEntries, EmptySidListMarkedWithoutLineEnd) {
    bag_array<Srv6Sid> none{0, nullptr};
    show_filter.private_view = 1;
    EXPECT_EQ(stdout_of([&] { print_srv6_sid_list(&none, "  ", false, true, true); }),
              " <no SIDs>");
}

TEST_F(FwdEntries, FollowingSidsContinueUnderTheColumn) {
    Srv6Sid s[] = {sid("fc00:0:1:e000::"), sid("fd00:1111:2222:3333:4444:5555:6666:7777"),
                   sid("fc00::9")};
    auto list = arr(s);
    const std::string indent = blanks(102);
    // with-details alone shows no detail line without -p
    EXPECT_EQ(stdout_of([&] { print_srv6_sid_list(&list, indent.c_str(), false, true, true); }),
              " fc00:0:1:e000::" + blanks(24) + "\n" + blanks(103) +
                  "fd00:1111:2222:3333:4444:5555:6666:7777\n" + blanks(103) + "fc00::9" +
                  blanks(32));
}

// ---- Ethernet tag, path issues -------------------------------------------------

// The forms the snapshots lack; a buffer too small cuts the text.
TEST_F(FwdEntries, EthernetTagForms) {
    const struct { uint32_t type, tag; const char *text; } cases[] = {
        {4, 0xFFFFFFFF, "MAX-ET"}, {4, 0x5FFF, "<5,*>"}, {4, 0x64, "<100>"},
        {4, 0x01000064, "<100>"},  {0, 100, "100"},      {5, 100, "100"},
        {4, 0, "<0>"},             {1, 0x5FFF, "24575"}};
    for (const auto &c : cases) {
        char buf[80];
        memset(buf, '#', sizeof buf);
        format_ethernet_tag(buf, sizeof buf, c.type, c.tag);
        EXPECT_STREQ(buf, c.text) << c.type << " " << c.tag;
    }
    char small[4];
    format_ethernet_tag(small, sizeof small, 4, 0x00123456);
    EXPECT_STREQ(small, "<29");
}

// The one word no snapshot holds, among others in array order.
TEST_F(FwdEntries, PathIssueWordsInArrayOrder) {
    uint32_t codes[] = {2, 5, 9, 0};
    auto list = arr(codes);
    EXPECT_EQ(stdout_of([&] { print_path_issues(&list, EVPN_ENCAP_SRV6, "      "); }),
              "      Path Issues: Remote SID format does not match local format, "
              "NH AFI not supported, unknown issue 9, unknown issue 0\n");
}

// ---- MAC routes ------------------------------------------------------------------

// Route 100 / 0011.2233.4455 / 10.1.1.1, local encapsulation MPLS, remote MPLSoUDP.
l2vpn_evpn_mac_bag route(uint32_t local, uint32_t remote) {
    l2vpn_evpn_mac_bag m{};
    m.evi = 100;
    m.encap = 10;
    const uint8_t mac[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    memcpy(m.mac_address, mac, sizeof mac);
    m.ip_address = ip("10.1.1.1");
    m.local = local;
    m.remote = remote;
    m.local_encap = 10;
    m.remote_encap = 13;
    m.local_label = 24001;
    m.local_nexthop_name = text("eth1");
    m.local_esi = text("0011.2233.4455.6677.8899");
    m.remote_esi = text("0099.8877.6655.4433.2211");
    m.mac_state = text("Remote");
    return m;
}

const std::string kLocalCols = "100        MPLS       0011.2233.4455 10.1.1.1" + blanks(32);
const std::string kRemoteCols = "100        MPLSoUDP   0011.2233.4455 10.1.1.1" + blanks(32);
const std::string kLocalLine = kLocalCols + " eth1" + blanks(35) + " 24001   \n";

std::string print(const l2vpn_evpn_mac_bag &m) {
    return stdout_of([&] { print_evpn_mac_bag(&m, "item", nullptr); });
}

TEST_F(FwdEntries, MacLocalLineThenOneLinePerPath) {
    EvpnPath p[] = {path("192.0.2.2", 24002), path("192.0.2.3", 3)};
    auto m = route(1, 1);
    m.path_buffer = arr(p);
    EXPECT_EQ(print(m), kLocalLine +
                            kRemoteCols + " 192.0.2.2" + blanks(30) + " 24002   \n" +
                            kRemoteCols + " 192.0.2.3" + blanks(30) + " IMP-NULL\n");

    m.remote = 0;  // paths are printed whatever remote says
    m.local = 0;
    EXPECT_EQ(print(m), kRemoteCols + " 192.0.2.2" + blanks(30) + " 24002   \n" +
                            kRemoteCols + " 192.0.2.3" + blanks(30) + " IMP-NULL\n");
}

TEST_F(FwdEntries, MacLocalOnlySkipsAllButLocalRoutesAfterTheDump) {
    EvpnPath p[] = {path("192.0.2.2", 24002)};
    auto remote_only = route(0, 1);
    remote_only.path_buffer = arr(p);
    show_filter.local_only = 1;
    show_filter.detail = 1;
    l2vpn_debug_set_enabled_bitset(EVPN_DBG_ERR);
    testing::internal::CaptureStderr();
    EXPECT_EQ(print(remote_only), "");
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("print_evpn_mac_bag_debug:"), std::string::npos);
    EXPECT_NE(log.find("MAC: 0011.2233.4455 IP: 10.1.1.1 Local: 0, Proxy=0, Remote 1 Paths: 1, "
                       "PathBuffer: 0x"),
              std::string::npos) << log;
    if constexpr (std::endian::native == std::endian::little) {
        EXPECT_NE(log.find("Path Entry 0 - OutputLabel: 24002 IP: 0 20200c0ffff0000\n"),
                  std::string::npos) << log;
    }
    l2vpn_debug_set_enabled_bitset(0);

    auto odd = route(2, 0);  // local, but not exactly 1
    EXPECT_EQ(print(odd).find("100"), std::string::npos);
    show_filter.local_only = 0;
    show_filter.detail = 0;
    EXPECT_EQ(print(odd), kLocalLine);

    show_filter.local_only = 1;
    auto both = route(1, 1);
    both.path_buffer = arr(p);
    EXPECT_EQ(print(both), kLocalLine + kRemoteCols + " 192.0.2.2" + blanks(30) + " 24002   \n");
}

// A route's lines are made column by column in one buffer that each line
// reuses; every line holds what the report's formats make of its values,
// over each column's narrowest and widest values, with a next hop shorter
// than the one before it on the same route, and with SIDs behind the label.
TEST_F(FwdEntries, MacLinesHoldWhatTheirFormatsMakeOfEveryColumnsWidestAndNarrowestValues) {
    auto columns = [](const l2vpn_evpn_mac_bag &m, uint32_t encap) {
        char text[200];
        snprintf(text, sizeof text, "%-10u %-10s %-14.14s %-40.40s", m.evi, evpn_bgp_encap_type_to_str(encap),
                 macstring(m.mac_address, 6), l2vpn_inet_ntop(&m.ip_address));
        return std::string(text);
    };
    auto nexthop_label = [](const char *nexthop, uint32_t value, uint32_t encap) {
        char label[100], text[200];
        l2vpn_mpls_label_to_str(value, label, sizeof label, encap);
        snprintf(text, sizeof text, " %-39.39s %-8s", nexthop, label);
        return std::string(text);
    };
    const char *const names[] = {"", "eth1", "GigabitEthernet0/0/0/1.100", "Bundle-Ether12345.4094-a-name-of-39-ch",
                                 "Bundle-Ether12345.4094-a-name-of-forty-five"};
    const char *const addresses[] = {"::", "0.0.0.0", "10.0.0.1", "255.255.255.255", "fe80::1", "::1.2.3.4",
                                     "2001:db8:0:64::17b1", "1:0:0:2:0:0:0:3",
                                     "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"};
    const uint32_t evis[] = {0, 7, 1234567890, 0xFFFFFFFF};
    const uint8_t encaps[] = {0, 8, 10, 12, 13, 255, 99};  // every word's width, and a code without one
    const uint32_t labels[] = {0, 3, 24001, 0xFFFFF, 0x100000, 0xFFFFFFFF};
    const uint8_t macs[][6] = {{0, 0, 0, 0, 0, 0}, {0xff, 0xfe, 0xab, 0xcd, 0x01, 0x10}};
    size_t made = 0;
    for (bool sid_column : {false, true}) {
        elan(sid_column);
        for (const char *address : addresses) {
            for (size_t k = 0; k < std::size(evis); k++) {
                auto m = route(k % 2 || made % 3 == 0, 1);
                m.evi = evis[k];
                m.ip_address = ip(address);
                memcpy(m.mac_address, macs[k % 2], 6);
                m.encap = encaps[k] == 8 ? 8 : 10;
                m.local_encap = encaps[(k + 2) % std::size(encaps)];
                m.remote_encap = encaps[k];
                Srv6Sid sids[] = {sid("fc00:0:1:e000::")};
                EvpnPath p[std::size(addresses) + 1];
                m.local_nexthop_name = text(names[made++ % std::size(names)]);
                m.local_label = labels[k];
                std::string want = m.local ? columns(m, m.local_encap) +
                                                 nexthop_label(m.local_nexthop_name, m.local_label, m.encap) + "\n"
                                           : "";
                for (size_t i = 0; i < std::size(p); i++) {
                    // Long and short next hops in turn, the widest last.
                    p[i] = path(addresses[(i * 5 + k) % std::size(addresses)], labels[(i + k) % std::size(labels)]);
                    if (i == std::size(addresses)) p[i] = path(addresses[std::size(addresses) - 1], 0xFFFFFFFF);
                    if (i == 2) p[i].SRv6_SIDInfo = arr(sids);
                    want += columns(m, m.remote_encap) + nexthop_label(l2vpn_inet_ntop(&p[i].NextHop),
                                                                       p[i].OutputLabel, m.encap);
                    if (i == 2 && sid_column) want += " fc00:0:1:e000::" + blanks(24);
                    want += "\n";
                }
                m.path_buffer = arr(p);
                ASSERT_EQ(print(m), want) << address << " " << evis[k];
            }
        }
    }
}

// A next hop filling the column leaves no room for the marker.
TEST_F(FwdEntries, MacProxyMarkerIsCutToTheNexthopColumn) {
    auto m = route(1, 0);
    m.proxy = 1;
    m.proxy_nexthop = ip("fd00:1111:2222:3333:4444:5555:6666:7777");
    EXPECT_EQ(print(m), kLocalCols + " fd00:1111:2222:3333:4444:5555:6666:7777 24001   \n");
}

TEST_F(FwdEntries, MacRouteWithoutLines) {
    EXPECT_EQ(print(route(0, 0)), "");
    show_filter.detail = 1;
    EXPECT_EQ(print(route(0, 0)).rfind("   Ethernet Tag" + blanks(28) + ": 0\n", 0), 0u);
}

// The absent side's encapsulation reads N/A whatever its code: in the MAC
// snapshot an absent side's code is 0, whose word is N/A as well.
TEST_F(FwdEntries, MacDetailEncapsulationOfTheAbsentSideIsNa) {
    EvpnPath p[] = {path("192.0.2.2", 24002)};
    auto remote_only = route(0, 1);
    remote_only.path_buffer = arr(p);
    show_filter.detail = 1;
    EXPECT_NE(print(remote_only).find("   Local Encapsulation                     : N/A\n"
                                      "   Remote Encapsulation                    : MPLSoUDP\n"),
              std::string::npos);
    EXPECT_NE(print(route(1, 0)).find("   Local Encapsulation                     : MPLS\n"
                                      "   Remote Encapsulation                    : N/A\n"),
              std::string::npos);
}

// Values the MAC snapshot lacks: the two E-Tree sides apart, a negative L3
// label, and the words of every ext flag bit.
TEST_F(FwdEntries, MacPrivateValuesTheSnapshotLacks) {
    auto m = route(0, 1);
    m.remote_etree_leaf = 1;
    m.l3_label = -1;
    show_filter.private_view = 1;
    const std::string out = print(m);
    EXPECT_NE(out.find("   Local E-Tree                            : Root\n"
                       "   Remote E-Tree                           : Leaf\n"),
              std::string::npos) << out;
    EXPECT_NE(out.find("   L3 Label                                : -1\n"), std::string::npos);
    const struct { uint32_t flags; const char *line; } cases[] = {
        {5, "   Ext Flags                               : 0x00000005 (Lcl ETree Leaf,RPF,)\n"},
        {0xffff8000, "   Ext Flags                               : 0xffff8000 ()\n"},
        {0xffffffff, "   Ext Flags                               : 0xffffffff (Lcl ETree Leaf,"
                     "Rmt ETree Leaf,RPF,Pref-Adj,Lcl Spec,Postponed-delete,Postponed-unrslv,"
                     "L3Subif-GoingDn,Pref-Rib,Rmt ETree RT Leaf,LP-80,Dflt GW,E-Tree mismatch,"
                     "FHRP,CFM,)\n"},
    };
    for (const auto &c : cases) {
        m.ext_flags = c.flags;
        EXPECT_NE(print(m).find(c.line), std::string::npos) << c.flags;
    }
}

// ---- Inclusive-multicast routes ------------------------------------------------

l2vpn_evpn_imcast_bag imcast(uint32_t encap, uint32_t label) {
    l2vpn_evpn_imcast_bag r{};
    r.evi = 100;
    r.encap = encap;
    r.originating_ip = ip("10.0.0.2");
    r.nexthop = ip("10.0.0.2");
    r.label = label;
    return r;
}

std::string print(const l2vpn_evpn_imcast_bag &r) {
    return stdout_of([&] { print_evpn_imcast_bag(&r, "item", nullptr); });
}

TEST_F(FwdEntries, ImcastLocalOnlySkipsRoutesThatAreNotLocal) {
    show_filter.local_only = 1;
    auto r = imcast(10, 24005);
    EXPECT_EQ(print(r), "");
    r.local = 2;  // any non-zero word is local
    EXPECT_EQ(print(r), "100        MPLS   0          10.0.0.2" + blanks(32) + "\n");
}

// ---- Neighbors -------------------------------------------------------------------

std::string leaf_line(std::initializer_list<uint32_t> evis, const char *neighbor = "10.0.0.2") {
    uint32_t v[32];
    std::copy(evis.begin(), evis.end(), v);
    l2vpn_evpn_neighbor_bag n{};
    n.evi = 7;
    n.encap = 10;
    n.neighbor = ip(neighbor);
    n.leaf_evi_list = {static_cast<uint32_t>(evis.size()), evis.size() ? v : nullptr};
    return stdout_of([&] { print_evpn_neighbor_leaf_evis(&n, "item", nullptr); });
}

TEST_F(FwdEntries, LeafEvisWrapWhenATextPassesWhatIsLeftOfTheColumn) {
    const std::string start = "7          MPLS   10.0.0.2" + blanks(32) + " ";
    const std::string next = "\n" + blanks(59);
    // A text exactly as long as the room left stays on the line, its blank
    // one past the column; the next text, however short, wraps.
    EXPECT_EQ(leaf_line({1234567890, 123456789, 5}),
              start + "1234567890 123456789 " + next + "5 \n");
    EXPECT_EQ(leaf_line({4294967295, 4294967295, 4294967295}),
              start + "4294967295 " + next + "4294967295 " + next + "4294967295 \n");
}

TEST_F(FwdEntries, NeighborAddressFilterComparesAllSixteenBytes) {
    show_filter.ip_set = 1;
    show_filter.ip_addr = ip("10.0.0.2");
    l2vpn_evpn_neighbor_bag n{};
    n.evi = 7;
    n.encap = 10;
    n.neighbor = ip("10.0.0.2");
    auto brief = [&] { return stdout_of([&] { print_evpn_neighbor_bag(&n, "item", nullptr); }); };
    EXPECT_EQ(brief(), "7          MPLS   10.0.0.2" + blanks(32) + "\n");
    EXPECT_EQ(leaf_line({5}), "7          MPLS   10.0.0.2" + blanks(32) + " 5 \n");
    n.neighbor = ip("::10.0.0.2");  // the same last four bytes, not IPv4-mapped
    EXPECT_EQ(brief(), "");
    EXPECT_EQ(leaf_line({5}, "::10.0.0.2"), "");
    n.neighbor = ip("10.0.0.2");
    show_filter.ip_set = 0;  // the address counts only with its flag
    show_filter.ip_addr = ip("10.9.9.9");
    EXPECT_EQ(brief(), "7          MPLS   10.0.0.2" + blanks(32) + "\n");
}

// ---- Label entries, internal IDs and pathlists -----------------------------------

l2vpn_evpn_label_bag label_entry() {
    l2vpn_evpn_label_bag e{};
    e.evi = 100, e.encap = EVPN_ENCAP_MPLS, e.label = 24100, e.internal_id = 0x1001;
    e.esi = text("0011.2233.4455.6677.8899");
    return e;
}

// Words and combinations the label snapshot lacks.
TEST_F(FwdEntries, LabelEntryWordsAndTheirFallbacks) {
    const std::string line = "100        MPLS   0011.2233.4455.6677.8899    0            ";
    show_filter.detail = 1;
    const struct {
        uint32_t resolved, reason, mode, single_active, single_flow;
        std::string resolution;
    } cases[] = {
        {0, 3, 3, 0, 0, "   Multi-paths resolved: FALSE (Remote all-active) (Preferred NH, Modulo)"
                        "\n    Reason: Local service not ready, or multiple matching remote EADs"},
        {1, 2, 2, 1, 1, "   Multi-paths resolved: TRUE (Remote single-active) (Remote single-flow-active)"},
        {0, 5, 5, 0, 1, "   Multi-paths resolved: FALSE (Remote single-flow-active)\n    Reason: Unknown"},
    };
    for (const auto &c : cases) {
        auto e = label_entry();
        e.resolved = c.resolved, e.unresolved_reason = c.reason, e.all_active_mode = c.mode;
        e.remote_single_active = c.single_active, e.remote_single_flow_active = c.single_flow;
        EXPECT_EQ(stdout_of([&] { print_evpn_label_bag(&e, true); }),
                  line + "24100   \n" + c.resolution + "\n   Multi-paths Internal label: 24100\n\n");
    }
    // A single-path entry in the label listing, its alternate label past 20 bits.
    auto e = label_entry();
    e.id_type = 2, e.nexthop = ip("2001:db8::9"), e.resolved = 1, e.alternate_label = 0x100000;
    EXPECT_EQ(stdout_of([&] { print_evpn_label_bag(&e, true); }),
              "100        MPLS   2001:db8::9                 0            24100   \n"
              "   Multi-paths resolved: TRUE (Remote all-active) \n"
              "   Multi-paths Internal label: 24100, alternate: Invalid\n\n");
    // An id_type past the known ones keys by segment and is no multi-path entry.
    e.id_type = 3;
    EXPECT_EQ(stdout_of([&] { print_evpn_label_bag(&e, false); }),
              line + "0x1001  \n   Path resolved: TRUE\n   Path Internal ID: 0x1001\n\n");
    EXPECT_EQ(stdout_of([] { print_evpn_label_bag(nullptr, true); }), "");
    EXPECT_EQ(stdout_of([] { print_evpn_pl_bag(nullptr, "x", nullptr); }), "");
}

// Locator formats and settings the label snapshot lacks.
TEST_F(FwdEntries, LabelEntryPrivateBlock) {
    show_filter.private_view = 1;
    const struct {
        int32_t cw;
        uint32_t cw_set, mtu_set, ignore, ignore_set, format;
        bool label_mode;
        std::string lines;
    } cases[] = {
        {-1, 1, 0, 0, 1, 1, false,
         "   Locator format type: Base\n   Local CW: Unsupported value\n   Local MTU: Not set\n"
         "   Local ignore MTU mismatch: Disabled\n"},
        {4, 0, 0, 1, 0, 3, false,
         "   Locator format type: Unknown (3)\n   Local CW: Not set\n   Local MTU: Not set\n"
         "   Local ignore MTU mismatch: Not set\n"},
    };
    for (const auto &c : cases) {
        auto e = label_entry();
        e.local_cw = c.cw, e.local_cw_set = c.cw_set, e.local_mtu = 1500, e.local_mtu_set = c.mtu_set;
        e.local_ignore_mtu_mismatch = c.ignore, e.local_ignore_mtu_mismatch_set = c.ignore_set;
        e.locator_format.type = c.format, e.num_ead_objects = 3, e.next_path_version = 65535;
        const std::string out = stdout_of([&] { print_evpn_label_bag(&e, c.label_mode); });
        const std::string expected =
            "   Num EAD objects linked: 3\n   Source: MPLS\n" + c.lines +
            "   Next path version: 65535\n\nEVPN Internal-" + (c.label_mode ? "Label" : "ID") +
            " event history\n    No events\n\n";
        ASSERT_GE(out.size(), expected.size());
        EXPECT_EQ(out.substr(out.size() - expected.size()), expected);
    }
}

// ---- EAD routes ------------------------------------------------------------------

constexpr uint32_t kPerSegment = 0xFFFFFFFF;

// EVI 100, MPLS, segment 0011.2233.4455.6677.8899, tag 0x64; local when asked.
l2vpn_evpn_ead_bag ead_route(bool local, uint32_t tag = 0x64) {
    l2vpn_evpn_ead_bag r{};
    r.evi = 100;
    r.encap = 10;
    r.esi = text("0011.2233.4455.6677.8899");
    r.ethernet_tag = tag;
    r.local = local;
    r.local_nexthop = ip("192.0.2.1");
    r.local_label = 24001;
    r.local_frr_label = 24009;
    return r;
}

std::string print(const l2vpn_evpn_ead_bag &r) {
    return stdout_of([&] { print_evpn_ead_bag(&r, "item", nullptr); });
}

// The path blocks after "   Path Attributes:".
std::string path_attributes(const std::string &out) {
    const std::string mark = "   Path Attributes:\n";
    const size_t at = out.find(mark);
    return at == std::string::npos ? "<none>" : out.substr(at + mark.size());
}

// A per-segment route of a single-flow-active segment shows its grouping MAC
// and, as for an all-active one, no layer-2 block outside the private view.
TEST_F(FwdEntries, EadPerSegmentPathOfASingleFlowActiveSegment) {
    EvpnPath p[] = {path("192.0.2.2", 24002)};
    p[0].Layer2Attributes = L2Attributes{1, 1500, 1, 2};
    const uint8_t ges[6] = {0x02, 0, 0, 0, 0, 0x11};
    memcpy(p[0].GES_MACAddress, ges, sizeof ges);
    auto per_es = ead_route(false, kPerSegment);
    per_es.path_buffer = arr(p);
    per_es.remote_single_flow_active = 1;
    show_filter.detail = 1;
    EXPECT_EQ(path_attributes(print(per_es)), "     192.0.2.2" + blanks(30) +
                                                  " SR-TE N/A\n      Grouping MAC: 0200.0000.0011\n");
}

// ---- Listings with a record that does not decode ----------------------------------

// A record that does not decode is refused with its trace; the walk prints
// the records on either side of it.
class FwdEntriesListing : public spine_test::BoundClient {};

TEST_F(FwdEntriesListing, RecordThatDoesNotDecodeIsTracedAndTheWalkGoesOn) {
    const std::string root = "/oper/evpn/gl/", garbage("\0\0\0\1", 4);
    const std::string decode_trace = std::string("evpn_show_datalist_display: bag decode ") +
                                     cerr_strerror(BAG_ERR_TRUNCATED) + "\n";
    bind(spine_test::build_db("fwd_entries_corrupt.db", [&](evpn::SysdbWriter &w) {
        std::string err, bd = "bd";
        for (uint32_t evi : {1u, 3u}) {
            l2vpn_evpn_imcast_bag r{};
            r.evi = evi, r.encap = 10, r.originating_ip = ip("10.0.0.1"), r.bd_name = bd.data();
            EXPECT_TRUE(w.add(root, EVPN_PATH_IMCAST, &r, err)) << err;
            l2vpn_evpn_neighbor_bag n{};
            n.evi = evi, n.encap = 8, n.neighbor = ip("10.0.0.2"), n.bd_name = bd.data();
            EXPECT_TRUE(w.add(root, EVPN_PATH_NEIGHBOR, &n, err)) << err;
            auto e = label_entry();
            e.evi = evi;
            EXPECT_TRUE(w.add(root, EVPN_PATH_LABEL, &e, err)) << err;
            auto d = ead_route(true);
            d.evi = evi;
            EXPECT_TRUE(w.add(root, EVPN_PATH_EAD, &d, err)) << err;
        }
        const std::pair<const char *, const char *> keys[] = {
            {EVPN_PATH_IMCAST, "0x2,0,00000000000000000000ffff0a000001"},
            {EVPN_PATH_NEIGHBOR, "0x2,00000000000000000000ffff0a000002"},
            {EVPN_PATH_LABEL, "0x2,0011.2233.4455.6677.8899,0,00000000000000000000000000000000"},
            {EVPN_PATH_EAD, "0x2,0011.2233.4455.6677.8899,0x64"}};
        for (const auto &[list, key] : keys)
            EXPECT_TRUE(w.add_raw(root, list, key, garbage, err)) << err;
    }));
    const std::string vxlan = "VXLAN  10.0.0.2" + blanks(32) + " \n";
    const struct {
        int command;
        bool leaf_evis;
        std::string first, third;
    } cases[] = {
        {1, false, "1          MPLS   0          10.0.0.1", "3          MPLS   0          10.0.0.1"},
        {8, true, "1          " + vxlan, "3          " + vxlan},
        {2, false, "\n1          MPLS ", "\n\n3          MPLS "},
        {9, false, "\n1          MPLS ", "\n3          MPLS "},
    };
    for (const auto &c : cases) {
        show_filter.leaf_evis = c.leaf_evis;
        const int command = c.command;
        spine_test::Capture r = spine_test::capture([command] { evpn_show_dispatch(command); });
        EXPECT_NE(r.traces.find(decode_trace), std::string::npos) << command << "\n" << r.traces;
        EXPECT_NE(r.out.find(c.first), std::string::npos) << command << "\n" << r.out;
        EXPECT_NE(r.out.find(c.third), std::string::npos) << command << "\n" << r.out;
        EXPECT_EQ(r.out.find("\n2 "), std::string::npos) << command << "\n" << r.out;
    }
}

}  // namespace
