// Shared path formatting (SID column, Ethernet tags, SR-TE, path issues) and
// the MAC route printer, on records built by hand.
#include <gtest/gtest.h>

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
