// What gobgpd and FRR really sent, parsed and applied: the routes show up in
// the reports, and the stream's own withdraws and Peer Down take them away.
#include <fstream>
#include <iterator>

#include "collector_test.h"

namespace {

using namespace ctest;
using Rows = std::vector<std::string>;

// Applies a captured stream's messages to the store; stop_after: the number
// of Route Monitoring messages after which to stop (0: all). Flushed.
void replay(Store &s, const std::string &name, size_t stop_after = 0) {
    std::ifstream in(std::string(EVPN_SOURCE_DIR) + "/tests/data/bmp/" + name, std::ios::binary);
    ASSERT_TRUE(in) << name;
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    bmp::Framer framer;
    framer.feed(bytes);
    bmp::Message m;
    size_t updates = 0;
    std::string err;
    for (;;) {
        std::span<const uint8_t> one;
        const bmp::BmpError e = framer.next(one);
        if (e.code == bmp::BmpErrc::Short) break;
        ASSERT_FALSE(e) << bmp::bmp_strerror(e.code);
        ASSERT_FALSE(bmp::parse_message(one, m));
        ASSERT_TRUE(s.store->apply(s.session, m, err)) << err;
        if (m.type == bmp::MsgType::RouteMonitoring && ++updates == stop_after) break;
    }
    ASSERT_TRUE(s.store->flush(err)) << err;
}

std::string mac_row(const char *evi, const char *encap, const char *mac, const char *ip,
                    const char *nexthop, const char *label) {
    char buf[256];
    snprintf(buf, sizeof buf, "%-10s %-10s %-14s %-40s %-39s %s", evi, encap, mac, ip, nexthop, label);
    return buf;
}

TEST(CapturedStreams, GobgpdLocRibRoutesShowAndTheirWithdrawsTakeThemAway) {
    Store s;
    replay(s, "gobgpd_locrib.bmp", 10);  // the announcements
    EXPECT_EQ(rows(show(s.db, {"0"}), "1"),
              (Rows{mac_row("100", "VXLAN", "0200.5e10.2030", "10.1.1.7", "192.0.2.1", "10100"),
                    mac_row("100", "VXLAN", "0200.5e10.2031", "::", "192.0.2.1", "10100"),
                    // No encapsulation community: MPLS, the label read as one.
                    mac_row("100", "MPLS", "0200.5e10.2034", "10.1.1.10", "192.0.2.1", "631")}));
    EXPECT_EQ(rows(show(s.db, {"0"}), "2"),
              (Rows{mac_row("200", "VXLAN", "0200.5e10.2032", "2001:db8::7", "192.0.2.1", "10200")}));
    EXPECT_EQ(rows(show(s.db, {"1"}), "1").size(), 1u);
    EXPECT_EQ(rows(show(s.db, {"1"}), "2").size(), 1u);
    EXPECT_EQ(rows(show(s.db, {"3"}), "0011"), (Rows{"0011.2233.4455.6677.8899 N/A                                192.0.2.1"}));
    EXPECT_EQ(rows(show(s.db, {"9"}), "100").size(), 2u);
    const std::string summary = show(s.db, {"7"});
    EXPECT_NE(summary.find("BGP ASN                            : 65000\n"), std::string::npos) << summary;
    EXPECT_NE(summary.find("Number of Remote MAC Routes        : 4\n"), std::string::npos) << summary;

    replay(s, "gobgpd_locrib.bmp");  // then one withdraw of each type
    const Rows macs = rows(show(s.db, {"0"}), "1");
    EXPECT_EQ(macs.size(), 2u);
    for (const std::string &row : macs) EXPECT_EQ(row.find("0200.5e10.2030"), std::string::npos);
    EXPECT_EQ(rows(show(s.db, {"1"}), "2"), Rows{});
    EXPECT_EQ(rows(show(s.db, {"9"}), "100").size(), 1u);
    // The type-4 route is gone; the per-ES EAD route still names the segment's peer.
    EXPECT_EQ(rows(show(s.db, {"3"}), "0011").size(), 1u);
    EXPECT_EQ(s.store->counters().routes_by_type[5], 2u) << "the type-5 route, counted at each replay";
}

TEST(CapturedStreams, GobgpdPeerDownAtTheEndOfItsStreamEmptiesTheStore) {
    Store s;
    replay(s, "gobgpd_prepolicy.bmp", 4);
    // gobgpd writes an MPLS label unshifted: "label 16001" arrives as 16001
    // and reads as label 1000; a VNI is the whole field.
    EXPECT_EQ(rows(show(s.db, {"0"}), "11 "),
              (Rows{mac_row("11", "MPLS", "0200.5e10.2040", "10.1.1.20", "127.0.0.2", "1000"),
                    mac_row("11", "VXLAN", "0200.5e10.2041", "2001:db8::41", "127.0.0.2", "10011")}));
    replay(s, "gobgpd_prepolicy.bmp");
    for (const char *cmd : {"0", "1", "3", "5", "8", "9"}) EXPECT_EQ(rows(show(s.db, {cmd}), "1"), Rows{}) << cmd;
    EXPECT_NE(show(s.db, {"7"}).find("Number of EVIs                     : 0\n"), std::string::npos);
    EXPECT_EQ(s.store->counters().statistics_reports, 1u);
}

TEST(CapturedStreams, FrrPrePolicyRoutesShowWithTheLabelsItSent) {
    Store s;
    replay(s, "frr_prepolicy.bmp", 10);
    const Rows macs = rows(show(s.db, {"0"}), "1");
    ASSERT_EQ(macs.size(), 3u);
    EXPECT_EQ(macs[0], mac_row("100", "VXLAN", "0200.5e10.2030", "10.1.1.7", "192.0.2.1", "0"));
}

}  // namespace
