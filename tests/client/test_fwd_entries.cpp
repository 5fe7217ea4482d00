// Shared path formatting (SID column, Ethernet tags, SR-TE, path issues) and
// the MAC route printer, on records built by hand.
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

Srv6Sid sid(const char *text, uint8_t flags = 0, uint16_t behavior = 0) {
    Srv6Sid s{};
    s.SRv6_SID = ip(text);
    s.SRv6_SIDFlags = flags;
    s.SRv6EndpointBehavior = behavior;
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
    static void srv6(bool on) {
        setenv("EVPN_SRV6", on ? "1" : "0", 1);
        platform_caps_reset();
    }
    ShowFilter saved_;
};

// ---- SID column ----------------------------------------------------------------

TEST_F(FwdEntries, EmptySidListPrintsOnlyWhatItsSwitchesAsk) {
    bag_array<Srv6Sid> none{0, nullptr};
    show_filter.private_view = 1;
    const struct { bool end_line, mark_empty; const char *out; } cases[] = {
        {false, false, ""}, {false, true, " <no SIDs>"}, {true, false, "\n"},
        {true, true, " <no SIDs>\n"}};
    for (const auto &c : cases) {
        auto print = [&] { print_srv6_sid_list(&none, "  ", c.end_line, c.mark_empty, true); };
        EXPECT_EQ(stdout_of(print), c.out);
    }
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

TEST_F(FwdEntries, SidDetailsNeedPrivateViewAndWithDetails) {
    Srv6Sid s[] = {sid("fc00:0:1:e000::", 0, 65), sid("fc00:0:2::", 1, 66)};
    s[0].SIDStructurePresent = 1;
    s[0].sid_struct = SidStructure{32, 16, 16, 0, 16, 48};
    auto list = arr(s);
    const std::string bare = " fc00:0:1:e000::" + blanks(24) + "\n  " + " fc00:0:2::" + blanks(29);

    show_filter.private_view = 1;
    EXPECT_EQ(stdout_of([&] { print_srv6_sid_list(&list, "  ", true, true, false); }),
              bare + "\n");
    EXPECT_EQ(stdout_of([&] { print_srv6_sid_list(&list, "  ", true, true, true); }),
              " fc00:0:1:e000::" + blanks(24) +
                  "\n     SID flags: 0, Endpt behavior: 65"
                  "\n     SID struct: Block  Node  Func  Arg"
                  "\n                 32     16    16    0"
                  "\n     Transposition (len, offset): 16, 48"
                  "\n   fc00:0:2::" + blanks(29) +
                  "\n     SID flags: 1, Endpt behavior: 66\n");
}

// ---- Ethernet tag, SR-TE, path issues ------------------------------------------

TEST_F(FwdEntries, EthernetTagForms) {
    const struct { uint32_t type, tag; const char *text; } cases[] = {
        {0, 0xFFFFFFFF, "MAX-ET"}, {4, 0xFFFFFFFF, "MAX-ET"}, {4, 0x00123456, "<291,1110>"},
        {4, 0x5FFF, "<5,*>"},      {4, 0x64, "<100>"},        {4, 0xFFF, "<*>"},
        {4, 0x01000064, "<100>"},  {0, 100, "100"},           {5, 100, "100"},
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

TEST_F(FwdEntries, SrTeLineByTypeAndWhetherShown) {
    SrTeInfo te{0, 0x2001f, 24005, ip("fc00:0:9::1")};
    const std::string ifh = std::string("SR-TE IFH 0x2001f (") + l2vpn_if_name(0x2001f, 0) + ")\n";
    const struct { uint8_t type; std::string out; int shown; } cases[] = {
        {0, "", 0}, {1, ifh, 1}, {2, "SR-TE BSID 24005\n", 1},
        {3, "SR-TE BSIDv6 fc00:0:9::1\n", 1}, {4, "", 1}, {255, "", 1}};
    for (const auto &c : cases) {
        te.SR_TEType = c.type;
        int shown = -1;
        EXPECT_EQ(stdout_of([&] { shown = print_sr_te_info("SR-TE ", &te); }), c.out);
        EXPECT_EQ(shown, c.shown) << int(c.type);
    }
}

TEST_F(FwdEntries, PathIssueWordsInArrayOrder) {
    auto issues = [](std::initializer_list<uint32_t> codes, uint32_t encap) {
        uint32_t c[8];
        std::copy(codes.begin(), codes.end(), c);
        bag_array<uint32_t> a{static_cast<uint32_t>(codes.size()), codes.size() ? c : nullptr};
        return stdout_of([&] { print_path_issues(&a, encap, "      "); });
    };
    EXPECT_EQ(issues({}, 10), "");
    EXPECT_EQ(issues({3, 4}, 10), "      Path Issues: CW mismatch, MTU mismatch\n");
    EXPECT_EQ(issues({1}, 255), "      Path Issues: Missing SRv6 SID(s)\n");
    EXPECT_EQ(issues({1}, 10), "      Path Issues: Missing MPLS label\n");
    EXPECT_EQ(issues({2, 5, 9, 0}, 255),
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

    m = route(1, 0);
    m.local_nexthop_name = text("PW:10.0.0.1,100");
    EXPECT_EQ(print(m), kLocalCols + " PW 10.0.0.1 / 100" + blanks(22) + " 24001   \n");
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

TEST_F(FwdEntries, MacProxyMarkerIsCutToTheNexthopColumn) {
    auto m = route(1, 0);
    m.proxy = 1;
    m.proxy_nexthop = ip("10.0.0.1");
    EXPECT_EQ(print(m), kLocalCols + " 10.0.0.1 (local proxy)" + blanks(17) + " 24001   \n");
    m.proxy_nexthop = ip("2001:db8:1111:2222:3333:44:5:6");
    EXPECT_EQ(print(m), kLocalCols + " 2001:db8:1111:2222:3333:44:5:6 (local p 24001   \n");
    m.proxy_nexthop = ip("fd00:1111:2222:3333:4444:5555:6666:7777");
    EXPECT_EQ(print(m), kLocalCols + " fd00:1111:2222:3333:4444:5555:6666:7777 24001   \n");
}

TEST_F(FwdEntries, MacRemoteWithoutPathsAndRouteWithoutLines) {
    elan(true);  // no SID column on the "No remote pathlist" line
    EXPECT_EQ(print(route(0, 1)), kRemoteCols + " No remote pathlist" + blanks(21) + " " +
                                      blanks(8) + "\n");
    EXPECT_EQ(print(route(0, 0)), "");
    show_filter.detail = 1;
    EXPECT_EQ(print(route(0, 0)).rfind("   Ethernet Tag" + blanks(28) + ": 0\n", 0), 0u);
}

TEST_F(FwdEntries, MacSidColumnOnlyWithSrv6Elan) {
    Srv6Sid local_sids[] = {sid("fc00:0:1:e000::"), sid("fc00:0:1:e001::"), sid("fc00::9")};
    Srv6Sid path_sids[] = {sid("fc00:0:2:e000::")};
    EvpnPath p[] = {path("192.0.2.2", 24002), path("192.0.2.3", 24003)};
    p[0].SRv6_SIDInfo = arr(path_sids);
    auto m = route(1, 1);
    m.local_sids = arr(local_sids);
    m.path_buffer = arr(p);
    const std::string path0 = kRemoteCols + " 192.0.2.2" + blanks(30) + " 24002   ";
    const std::string path1 = kRemoteCols + " 192.0.2.3" + blanks(30) + " 24003   ";

    EXPECT_EQ(print(m), kLocalLine + path0 + "\n" + path1 + "\n");
    elan(true);
    EXPECT_EQ(print(m), kLocalCols + " eth1" + blanks(35) + " 24001   " +
                            " fc00:0:1:e000::" + blanks(24) + "\n" + blanks(103) +
                            "fc00:0:1:e001::" + blanks(24) + "\n" + blanks(103) + "fc00::9" +
                            blanks(32) + "\n" +
                            path0 + " fc00:0:2:e000::" + blanks(24) + "\n" + path1 + "\n");
}

// A remote-only route with every detail field set.
l2vpn_evpn_mac_bag detailed_remote_route(EvpnPath (&p)[1]) {
    auto m = route(0, 1);
    m.path_buffer = arr(p);
    m.resolved = 1;
    m.internal_label = 24100;
    m.remote_static = 1;
    m.local_seq_num = 3;
    m.remote_seq_num = 7;
    m.remote_etree_leaf = 1;
    m.remote_matching_etree_rt = 1;
    m.local_ac_id = 0x10;
    m.remote_ac_id = 0x20;
    m.esi_port_key = 0xab12;
    m.flush_requested = 2;
    m.flush_received = 1;
    m.soo_nexthop = ip("192.0.2.9");
    m.ext_flags = 0x2;
    m.bp_xcid = 0xa0000001;
    m.stamped_xcid = 0xa0000002;
    m.bp_ifh = 0x1234;
    m.mac_producers = 0x4;
    m.best_producer = 0x4;
    m.l3_label = -1;
    return m;
}

TEST_F(FwdEntries, MacDetailShowsNaForTheAbsentSideAndEndsAtAcId) {
    EvpnPath p[] = {path("192.0.2.2", 24002)};
    auto m = detailed_remote_route(p);
    show_filter.detail = 1;
    const std::string out = print(m);
    for (const char *line : {"   Local Ethernet Segment                  : N/A\n",
                             "   Local Sequence Number                   : N/A\n",
                             "   Local Encapsulation                     : N/A\n",
                             "   Remote Sequence Number                  : 7\n"})
        EXPECT_NE(out.find(line), std::string::npos) << line;
    const std::string last = "   Remote AC-ID                            : 0x20\n";
    EXPECT_EQ(out.rfind(last), out.size() - last.size()) << out;
}

TEST_F(FwdEntries, MacPrivateShowsEverySideAndTheHistory) {
    EvpnPath p[] = {path("192.0.2.2", 24002)};
    auto m = detailed_remote_route(p);
    uint32_t words[] = {0x1};
    evt_hist_entry_bag entry{text("Jan  1 00:00:01.000"), 1000, text("Create"), 0, 1, 0,
                             arr(words)};
    evt_hist_entry_bag entries[] = {entry};
    m.event_history = evt_hist_bag{text("evpn-mac"), arr(entries)};
    m.event_history_info = evt_hist_bag{text("mac-info"), {0, nullptr}};
    show_filter.private_view = 1;
    EXPECT_EQ(print(m), kRemoteCols + " 192.0.2.2" + blanks(30) + " 24002   \n"
              "   Ethernet Tag                            : 0\n"
              "   Multi-paths Resolved                    : True\n"
              "   Multi-paths Internal label              : 24100\n"
              "   Local Static                            : No\n"
              "   Remote Static                           : Yes\n"
              "   Local Ethernet Segment                  : 0011.2233.4455.6677.8899\n"
              "   Remote Ethernet Segment                 : 0099.8877.6655.4433.2211\n"
              "   Local Sequence Number                   : 3\n"
              "   Remote Sequence Number                  : 7\n"
              "   Local Encapsulation                     : MPLS\n"
              "   Remote Encapsulation                    : MPLSoUDP\n"
              "   Local E-Tree                            : Root\n"
              "   Remote E-Tree                           : Leaf\n"
              "   Remote matching E-Tree RT               : Yes\n"
              "   Local AC-ID                             : 0x10\n"
              "   Remote AC-ID                            : 0x20\n"
              "   ESI Port Key                            : ab12\n"
              "   Source                                  : Remote\n"
              "   Flush Requested                         : 2\n"
              "   Flush Received                          : 1\n"
              "   SOO Nexthop                             : 192.0.2.9\n"
              "   Ext Flags                               : 0x00000002 (Rmt ETree Leaf,)\n"
              "   BP XCID                                 : 0xa0000001\n"
              "   Stamped XCID                            : 0xa0000002\n"
              "   BP IFH                                  : 0x1234\n"
              "   MAC State                               : Remote\n"
              "   MAC Producers                           : 0x4 (Best: 0x4)\n"
              "   Local Router MAC                        : 0000.0000.0000\n"
              "   L3 Label                                : -1\n"
              "\nEVPN MAC event history (mac-info)\n"
              "    Class: evpn-mac, 1 event\n"
              "    Jan  1 00:00:01.000  Create                       M- 0x1\n");
}

TEST_F(FwdEntries, MacExtFlagWordsAndStampedXcidOnlyWhenRemote) {
    auto m = route(1, 0);
    m.proxy = 1;
    m.proxy_nexthop = ip("10.0.0.1");
    show_filter.private_view = 1;
    const struct { uint32_t flags; const char *line; } cases[] = {
        {0, "   Ext Flags                               : 0x00000000 \n"},
        {5, "   Ext Flags                               : 0x00000005 (Lcl ETree Leaf,RPF,)\n"},
        {0xffff8000, "   Ext Flags                               : 0xffff8000 ()\n"},
        {0xffffffff, "   Ext Flags                               : 0xffffffff (Lcl ETree Leaf,"
                     "Rmt ETree Leaf,RPF,Pref-Adj,Lcl Spec,Postponed-delete,Postponed-unrslv,"
                     "L3Subif-GoingDn,Pref-Rib,Rmt ETree RT Leaf,LP-80,Dflt GW,E-Tree mismatch,"
                     "FHRP,CFM,)\n"},
    };
    for (const auto &c : cases) {
        m.ext_flags = c.flags;
        const std::string out = print(m);
        EXPECT_NE(out.find(c.line), std::string::npos) << out;
        EXPECT_NE(out.find("   Source                                  : Local proxy\n"),
                  std::string::npos);
        EXPECT_EQ(out.find("Stamped XCID"), std::string::npos);
        EXPECT_NE(out.find("\nEVPN MAC event history\n    No events\n"), std::string::npos);
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

TEST_F(FwdEntries, ImcastEncapsulationChoosesLabelVniOrSidLine) {
    show_filter.detail = 1;
    const struct { uint32_t encap, label; const char *line; } cases[] = {
        {10, 3, "    Label  : IMP-NULL\n"},
        {8, 3, "    VNI    : 3\n"},
        {255, 3, "    SID    : <no SIDs>\n"},
        {13, 3, nullptr},  // MPLS over UDP: none of the three
        {0, 3, nullptr},
    };
    for (const auto &c : cases) {
        const std::string out = print(imcast(c.encap, c.label));
        int shown = 0;
        for (const char *label : {"    Label  :", "    VNI    :", "    SID    :"})
            shown += out.find(label) != std::string::npos;
        EXPECT_EQ(shown, c.line ? 1 : 0) << c.encap << "\n" << out;
        if (!c.line)
            continue;
        EXPECT_NE(out.find(c.line), std::string::npos) << out;
        // the label line stands before SR-TE, the VNI and SID lines after it
        EXPECT_EQ(out.find(c.line) < out.find("    SR-TE Info: "), c.encap == 10) << c.encap;
    }
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

// ---- Listings with a record that does not decode ----------------------------------

class FwdEntriesListing : public spine_test::BoundClient {};

TEST_F(FwdEntriesListing, RecordThatDoesNotDecodeIsTracedAndTheWalkGoesOn) {
    const std::string root = "/oper/evpn/gl/", garbage("\0\0\0\1", 4);
    const std::string decode_trace = std::string("evpn_show_datalist_display: bag decode ") +
                                     cerr_strerror(BAG_ERR_TRUNCATED) + "\n";
    bind(spine_test::build_db("imcast_neighbor_corrupt.db", [&](evpn::SysdbWriter &w) {
        std::string err, bd = "bd";
        for (uint32_t evi : {1u, 3u}) {
            l2vpn_evpn_imcast_bag r{};
            r.evi = evi, r.encap = 10, r.originating_ip = ip("10.0.0.1"), r.bd_name = bd.data();
            EXPECT_TRUE(w.add(root, EVPN_PATH_IMCAST, &r, err)) << err;
            l2vpn_evpn_neighbor_bag n{};
            n.evi = evi, n.encap = 8, n.neighbor = ip("10.0.0.2"), n.bd_name = bd.data();
            EXPECT_TRUE(w.add(root, EVPN_PATH_NEIGHBOR, &n, err)) << err;
        }
        EXPECT_TRUE(w.add_raw(root, EVPN_PATH_IMCAST, "0x2,0,00000000000000000000ffff0a000001",
                              garbage, err)) << err;
        EXPECT_TRUE(w.add_raw(root, EVPN_PATH_NEIGHBOR, "0x2,00000000000000000000ffff0a000002",
                              garbage, err)) << err;
    }));
    spine_test::Capture c = spine_test::capture([] { evpn_show_dispatch(1); });
    EXPECT_NE(c.traces.find(decode_trace), std::string::npos) << c.traces;
    EXPECT_NE(c.out.find("1          MPLS   0          10.0.0.1"), std::string::npos) << c.out;
    EXPECT_NE(c.out.find("3          MPLS   0          10.0.0.1"), std::string::npos) << c.out;

    show_filter.leaf_evis = 1;
    c = spine_test::capture([] { evpn_show_dispatch(8); });
    EXPECT_NE(c.traces.find(decode_trace), std::string::npos) << c.traces;
    EXPECT_NE(c.out.find("1          VXLAN  10.0.0.2" + blanks(32) + " \n"), std::string::npos);
    EXPECT_NE(c.out.find("3          VXLAN  10.0.0.2" + blanks(32) + " \n"), std::string::npos);
}

// ---- Label entries, internal IDs and pathlists -----------------------------------

EvpnPath role_path(const char *nexthop, uint32_t label, uint32_t role) {
    EvpnPath p = path(nexthop, label);
    p.Layer2Attributes.DesignatedForwarderRole = role;
    return p;
}

TEST_F(FwdEntries, LabelPathEntries) {
    EvpnPath steered = role_path("10.0.0.2", 24012, 1);
    steered.SR_TEInfo.SR_TEType = 2;
    steered.SR_TEInfo.SR_TE_BSID = 24005;
    steered.PathVerion = 7;
    steered.OriginatingPE = ip("10.0.0.2");
    EvpnPath plain = role_path("10.0.0.3", 3, 9);  // a role past the table: three blanks
    uint32_t issues[] = {1};
    plain.Issues = arr(issues);
    plain.GES_MACAddress[5] = 1;
    Srv6Sid s[] = {sid("fc00:0:2:e001::"), sid("fc00:0:2:e002::")};
    EvpnPath with_sids = role_path("2001:db8::2", 0, 3);
    with_sids.SRv6_SIDInfo = arr(s);
    EvpnPath ps[] = {steered, plain};
    EvpnPath srv6[] = {with_sids, role_path("2001:db8::3", 0, 2)};
    const std::string nh2 = "10.0.0.2" + blanks(32) + " ", nh3 = "10.0.0.3" + blanks(32) + " ";
    const std::string v6 = "2001:db8::2" + blanks(29) + " ", v6b = "2001:db8::3" + blanks(29) + " ";
    const std::string issue_and_mac = "                 Grouping MAC: 0000.0000.0001\n" + blanks(18) +
                                      "Path Issues: Missing MPLS label\n";
    const struct {
        EvpnPath *paths;
        uint32_t count;
        bool private_view, label_mode, with_sr_te, mark_empty;
        std::string out;
    } cases[] = {
        // Steered: the SR-TE line stands for the next hop, unless -p adds it under the name.
        {ps, 2, false, true, true, true,
         "    EAD/EVI (P) SR-TE BSID 24005\n" + blanks(12) + "    " + nh3 + "  IMP-NULL       \n" +
             issue_and_mac},
        {ps, 1, true, true, true, true,
         "    EAD/EVI (P) SR-TE BSID 24005\n" + blanks(12) + "(P) " + nh2 + "  24012          \n" +
             blanks(18) + "Path Version:7, Originating PE:10.0.0.2\n"},
        // Without the SR-TE switch steering is not looked at.
        {ps, 1, false, true, false, false, "    EAD/EVI (P) " + nh2 + "  24012          \n"},
        // Internal IDs: SIDs under each other, an empty list marked only when asked.
        {srv6, 2, false, false, false, true,
         "    EAD/EVI (N) " + v6 + " fc00:0:2:e001::" + blanks(24) + "\n" + blanks(57) +
             " fc00:0:2:e002::" + blanks(24) + "\n" + blanks(12) + "(B) " + v6b + " <no SIDs>\n"},
        {srv6 + 1, 1, false, false, false, false, "    EAD/EVI (B) " + v6b + "\n"},
        {srv6, 0, true, true, true, true, ""},
    };
    for (const auto &c : cases) {
        show_filter.private_view = c.private_view;
        bag_array<EvpnPath> list{c.count, c.paths};
        EXPECT_EQ(stdout_of([&] {
                      print_label_path_entries(&list, "EAD/EVI", EVPN_ENCAP_MPLS, c.label_mode,
                                               c.with_sr_te, c.mark_empty);
                  }),
                  c.out);
    }
}

TEST_F(FwdEntries, LabelPathlists) {
    EvpnPath steered = role_path("10.0.0.2", 24012, 1);
    steered.TunnelEndpointID = 0x1001;
    steered.SR_TEInfo.SR_TEType = 3;
    steered.SR_TEInfo.SRv6_TE_BSID = ip("fc00:0:9::1");
    EvpnPath other = role_path("10.0.0.3", 24013, 2);
    other.TunnelEndpointID = 0xabcdef12;
    EvpnPath ps[] = {steered, other};
    bag_array<EvpnPath> list = arr(ps), none{0, nullptr};
    const std::string tail = " 0xabcdef12 (B) 10.0.0.3" + blanks(33);
    EXPECT_EQ(stdout_of([&] { print_label_pathlist("Alternate", &list, EVPN_ENCAP_MPLS, true); }),
              "   Alternate pathlist:\n 0x00001001 (P) SR-TE BSIDv6 fc00:0:9::1\n" + tail +
                  "  24013          \n");
    // Internal IDs: a path without SIDs is always marked.
    EXPECT_EQ(stdout_of([&] { print_label_pathlist("Summary", &list, EVPN_ENCAP_SRV6, false); }),
              "   Summary pathlist:\n 0x00001001 (P) SR-TE BSIDv6 fc00:0:9::1\n" + tail +
                  " <no SIDs>\n");
    EXPECT_EQ(stdout_of([&] { print_label_pathlist("Summary", &none, EVPN_ENCAP_MPLS, true); }), "");
}

l2vpn_evpn_label_bag label_entry() {
    l2vpn_evpn_label_bag e{};
    e.evi = 100, e.encap = EVPN_ENCAP_MPLS, e.label = 24100, e.internal_id = 0x1001;
    e.esi = text("0011.2233.4455.6677.8899");
    return e;
}

TEST_F(FwdEntries, LabelEntryWordsAndTheirFallbacks) {
    const std::string line = "100        MPLS   0011.2233.4455.6677.8899    0            ";
    show_filter.detail = 1;
    const struct {
        uint32_t resolved, reason, mode, single_active, single_flow;
        std::string resolution;
    } cases[] = {
        {0, 0, 0, 0, 0, "   Multi-paths resolved: FALSE (Remote all-active) "},
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
    // A single-path entry: its next hop in the segment column, "Path" words for internal IDs.
    auto e = label_entry();
    e.id_type = 2, e.nexthop = ip("2001:db8::9"), e.resolved = 1, e.alternate_label = 0x100000;
    EXPECT_EQ(stdout_of([&] { print_evpn_label_bag(&e, false); }),
              "100        MPLS   2001:db8::9                 0            0x1001  \n"
              "   Path resolved: TRUE\n   Path Internal ID: 0x1001\n\n");
    EXPECT_EQ(stdout_of([&] { print_evpn_label_bag(&e, true); }),
              "100        MPLS   2001:db8::9                 0            24100   \n"
              "   Multi-paths resolved: TRUE (Remote all-active) \n"
              "   Multi-paths Internal label: 24100, alternate: Invalid\n\n");
    // An id_type past the known ones keys by segment and is no multi-path entry.
    e.id_type = 3;
    EXPECT_EQ(stdout_of([&] { print_evpn_label_bag(&e, false); }),
              line + "0x1001  \n   Path resolved: TRUE\n   Path Internal ID: 0x1001\n\n");
    EXPECT_EQ(stdout_of([] { print_evpn_label_bag(nullptr, true); }), "");
}

TEST_F(FwdEntries, LabelEntryPrivateBlock) {
    show_filter.private_view = 1;
    const struct {
        int32_t cw;
        uint32_t cw_set, mtu_set, ignore, ignore_set, format;
        bool label_mode;
        std::string lines;
    } cases[] = {
        {2, 1, 1, 1, 1, 2, true,
         "   Local CW: Set\n   Local MTU: 1500\n   Local ignore MTU mismatch: Enabled\n"},
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

TEST_F(FwdEntries, PathlistRecord) {
    EvpnPath ps[] = {path("10.0.0.2", 24012), path("2001:db8:100:200:300:400:500:600", 3)};
    l2vpn_evpn_pl_linked_object objects[] = {{{0, 0x11, 0x22, 0x33, 0x44, 0x02}, ip("2001:db8:100::1:0:3")}};
    l2vpn_evpn_pl_bag pl{};
    pl.encap = EVPN_ENCAP_VXLAN, pl.paths = arr(ps), pl.esi = text("0011.2233.4455.6677.8899");
    pl.num_objects_linked = 10, pl.linked_objects = arr(objects);
    const std::string brief = "10.0.0.2" + blanks(32) + " 24012          \n" +
                              "2001:db8:100:200:300:400:500:600" + blanks(8) + " 3              \n" +
                              std::string(40, '-') + " " + std::string(15, '-') + "\n";
    auto print = [&] { print_evpn_pl_bag(&pl, "x", nullptr); };
    EXPECT_EQ(stdout_of(print), brief);
    show_filter.detail = 1;  // changes nothing
    EXPECT_EQ(stdout_of(print), brief);
    show_filter.private_view = 1;
    EXPECT_EQ(stdout_of(print), brief +
                                    "   Ethernet Segment Id: 0011.2233.4455.6677.8899\n"
                                    "   Num objects linked: 10 (printing 1)\n"
                                    "   0011.2233.4402 2001:db8:100::1\n"
                                    "\nEVPN PL event history\n    No events\n\n");
    EXPECT_EQ(stdout_of([] { print_evpn_pl_bag(nullptr, "x", nullptr); }), "");
}

// A label entry that does not decode is refused with its trace; the walk
// prints the entries on either side of it.
class LabelListing : public spine_test::BoundClient {};

TEST_F(LabelListing, CorruptEntryIsSkippedAndTheWalkGoesOn) {
    const std::string root = "/oper/evpn/gl/";
    const std::string db = spine_test::build_db("labels.db", [&](evpn::SysdbWriter &w) {
        std::string err;
        for (uint32_t evi : {1u, 3u}) {
            auto e = label_entry();
            e.evi = evi;
            EXPECT_TRUE(w.add(root, EVPN_PATH_LABEL, &e, err)) << err;
        }
        EXPECT_TRUE(w.add_raw(root, EVPN_PATH_LABEL, "0x2,0011.2233.4455.6677.8899,0,"
                              "00000000000000000000000000000000", std::string("\0\0\0\1", 4), err))
            << err;
    });
    bind(db);
    auto c = spine_test::capture([] { evpn_show_dispatch(2); });
    EXPECT_NE(c.out.find("\n1          MPLS "), std::string::npos) << c.out;
    EXPECT_NE(c.out.find("\n\n3          MPLS "), std::string::npos) << c.out;
    EXPECT_EQ(c.out.find("\n2 "), std::string::npos) << c.out;
    EXPECT_NE(c.traces.find("evpn_show_datalist_display: bag decode "), std::string::npos) << c.traces;
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

// The route's columns: "%-10u %-6s %-24.24s 0x%-8x " (54 characters).
const std::string kEadCols = "100        MPLS   0011.2233.4455.6677.8899 0x64       ";
const std::string kUnderCols = blanks(54);
std::string nh(const char *nexthop, const char *label) {
    return std::string(nexthop) + blanks(39 - strlen(nexthop)) + " " + label +
           blanks(8 - strlen(label));
}

// The SID column follows the general SRv6 capability, not the E-LAN one.
TEST_F(FwdEntries, EadSidColumnFollowsSrv6Support) {
    Srv6Sid local_sids[] = {sid("fc00:0:1:e000::"), sid("fc00:0:1:e001::")};
    EvpnPath p[] = {path("2001:db8::2", 24002)};
    auto r = ead_route(true);
    r.local_sids = arr(local_sids);
    r.path_buffer = arr(p);
    const std::string bare = kEadCols + nh("192.0.2.1", "24001") + "\n" + kUnderCols +
                             nh("2001:db8::2", "24002") + "\n";
    srv6(false);
    elan(true);
    EXPECT_EQ(print(r), bare);
    srv6(true);
    elan(false);
    EXPECT_EQ(print(r), kEadCols + nh("192.0.2.1", "24001") + " fc00:0:1:e000::" + blanks(24) +
                            "\n" + blanks(103) + "fc00:0:1:e001::" + blanks(24) + "\n" +
                            kUnderCols + nh("2001:db8::2", "24002") + "\n");
}

// The path blocks after "   Path Attributes:".
std::string path_attributes(const std::string &out) {
    const std::string mark = "   Path Attributes:\n";
    const size_t at = out.find(mark);
    return at == std::string::npos ? "<none>" : out.substr(at + mark.size());
}

const std::string kL2Block = "      Layer 2 Attributes:\n       DF Role : Primary\n"
                             "       CW      : Enabled\n       MTU     : 1500\n";

TEST_F(FwdEntries, EadPathAttributesPerEviAndPerSegment) {
    EvpnPath p[] = {path("192.0.2.2", 24002)};
    p[0].RerouteLabel = 24003;
    p[0].Layer2Attributes = L2Attributes{1, 1500, 1, 2};
    const uint8_t ges[6] = {0x02, 0, 0, 0, 0, 0x11};
    memcpy(p[0].GES_MACAddress, ges, sizeof ges);

    auto per_evi = ead_route(false);
    per_evi.path_buffer = arr(p);
    show_filter.detail = 1;
    const std::string nexthop = "     192.0.2.2" + blanks(30) + " SR-TE N/A\n";
    EXPECT_EQ(path_attributes(print(per_evi)),
              nexthop + "      FRR Label: 24003   \n" + kL2Block);

    // Per segment: the grouping MAC instead of the FRR label, and the
    // layer-2 block only for a single-active segment or in the private view.
    auto per_es = ead_route(false, kPerSegment);
    per_es.path_buffer = arr(p);
    const std::string grouping = nexthop + "      Grouping MAC: 0200.0000.0011\n";
    EXPECT_EQ(path_attributes(print(per_es)), grouping);
    per_es.remote_single_active = 1;
    EXPECT_EQ(path_attributes(print(per_es)), grouping + kL2Block);
    per_es.remote_single_active = 0;
    per_es.remote_single_flow_active = 1;
    EXPECT_EQ(path_attributes(print(per_es)), grouping);
    memset(p[0].GES_MACAddress, 0, 6);  // no usable grouping MAC: no line
    EXPECT_EQ(path_attributes(print(per_es)), nexthop);
    show_filter.detail = 0;
    show_filter.private_view = 1;
    EXPECT_EQ(path_attributes(print(per_es)).rfind(nexthop + kL2Block + "   EVI: 100\n", 0), 0u);
}

// A record that does not decode is refused with its trace; the walk goes on.
TEST(EadWalk, RecordThatDoesNotDecodeIsSkipped) {
    const std::string root = "/oper/evpn/gl/";
    const std::string db = spine_test::build_db("ead_corrupt.db", [&](evpn::SysdbWriter &w) {
        std::string err;
        for (uint32_t evi : {1u, 3u}) {
            auto r = ead_route(true);
            r.evi = evi;
            EXPECT_TRUE(w.add(root, EVPN_PATH_EAD, &r, err)) << err;
        }
        EXPECT_TRUE(w.add_raw(root, EVPN_PATH_EAD, "0x2,0011.2233.4455.6677.8899,0x64",
                              std::string("\0\0\0\2", 4), err)) << err;
    });
    setenv("EVPN_SYSDB", db.c_str(), 1);
    platform_caps_reset();
    ASSERT_EQ(_sysdb_bind(&sysdb_handle, root.c_str(), SYSDB_BIND_READ), 0u);
    const ShowFilter saved = show_filter;
    show_filter = ShowFilter{.node_id = L2FIB_ALL_NODES};
    spine_test::Capture c = spine_test::capture([] { evpn_show_dispatch(9); });
    _sysdb_unbind(sysdb_handle);
    sysdb_handle = nullptr;
    show_filter = saved;
    unsetenv("EVPN_SYSDB");
    platform_caps_reset();

    EXPECT_NE(c.out.find("\n1          MPLS "), std::string::npos) << c.out;
    EXPECT_NE(c.out.find("\n3          MPLS "), std::string::npos) << c.out;
    EXPECT_EQ(c.out.find("\n2   "), std::string::npos) << c.out;
    EXPECT_NE(c.traces.find("evpn_show_datalist_display: bag decode " +
                            std::string(cerr_strerror(BAG_ERR_TRUNCATED)) + "\n"),
              std::string::npos) << c.traces;
}

}  // namespace
