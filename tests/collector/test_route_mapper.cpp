// Each route type through the live store to the client's own report.
#include "collector_test.h"

namespace {

using namespace ctest;
using Rows = std::vector<std::string>;

constexpr uint32_t mpls(uint32_t label) { return label << 4 | 1; }
const bmp::Esi kEsi = {0, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99};

bmp::RouteAttrs vxlan(bmp::RouteAttrs a) {
    a.has_encap = true;
    a.encap = 8;
    return a;
}

bmp::EvpnNlri imcast(bmp::Rd rd, bmp::IpAddr originator, uint32_t tag = 0) {
    bmp::EvpnNlri n;
    n.route_type = 3;
    n.rd = rd;
    n.ethernet_tag = tag;
    n.ip = originator;
    return n;
}

bmp::EvpnNlri ead(bmp::Rd rd, uint32_t tag, uint32_t label) {
    bmp::EvpnNlri n;
    n.route_type = 1;
    n.rd = rd;
    n.esi = kEsi;
    n.ethernet_tag = tag;
    n.label_count = 1;
    n.label[0] = label;
    return n;
}

bmp::EvpnNlri segment(bmp::Rd rd, bmp::IpAddr originator) {
    bmp::EvpnNlri n;
    n.route_type = 4;
    n.rd = rd;
    n.esi = kEsi;
    n.ip = originator;
    return n;
}

TEST(RouteMapping, MacRoutesOnePathPerAdvertisingNextHop) {
    Store s;
    bmp::RouteAttrs a = attrs(v4(192, 0, 2, 1), {rt2(65000, 100)});
    a.has_mac_mobility = true;
    a.mac_mobility_seq = 7;
    a.mac_mobility_sticky = true;
    bmp::EvpnNlri ipv6 = mac_route(rd_ip(1, 100), 3, v6({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3}), mpls(3));
    ipv6.esi = kEsi;
    s.apply(update(peer(1),
                   {mac_route(rd_ip(1, 100), 1, {}, mpls(24001)),
                    mac_route(rd_ip(1, 100), 2, v4(10, 0, 0, 2), mpls(24001)), ipv6},
                   a));
    // The same MAC/IP from a second PE, and a VXLAN EVI's route (its label a VNI).
    s.apply(update(peer(2), {mac_route(rd_ip(2, 100), 2, v4(10, 0, 0, 2), mpls(24002))},
                   attrs(v4(192, 0, 2, 2), {rt2(65000, 100)})));
    s.apply(update(peer(2), {mac_route(rd_ip(2, 200), 4, {}, 10200)},
                   vxlan(attrs(v4(192, 0, 2, 2), {rt2(65000, 200)}))));
    EXPECT_EQ(rows(show(s.db, {"0"}), "1"),
              (Rows{"100        MPLS       0011.2233.4401 ::                                       192.0.2.1                               24001",
                    "100        MPLS       0011.2233.4402 10.0.0.2                                 192.0.2.1                               24001",
                    "100        MPLS       0011.2233.4402 10.0.0.2                                 192.0.2.2                               24002",
                    "100        MPLS       0011.2233.4403 2001:db8::3                              192.0.2.1                               IMP-NULL"}));
    EXPECT_EQ(rows(show(s.db, {"0"}), "2"),
              (Rows{"200        VXLAN      0011.2233.4404 ::                                       192.0.2.2                               10200"}));
    const std::string detail = show(s.db, {"-d", "0"});
    const size_t at = detail.find("0011.2233.4403");
    ASSERT_NE(at, std::string::npos);
    const std::string route = detail.substr(at, detail.find("Remote AC-ID", at) - at);
    for (const char *line : {"Remote Static                           : Yes",
                             "Remote Ethernet Segment                 : 0011.2233.4455.6677.8899",
                             "Remote Sequence Number                  : 7",
                             "Remote Encapsulation                    : MPLS"})
        EXPECT_NE(route.find(line), std::string::npos) << line << "\n" << route;
}

TEST(RouteMapping, InclusiveMulticastCarriesItsPmsiTunnel) {
    Store s;
    bmp::RouteAttrs a = vxlan(attrs(v4(192, 0, 2, 2), {rt2(65000, 200)}));
    a.has_pmsi = true;
    a.pmsi_tunnel_type = 6;
    a.pmsi_label = 10200;
    s.apply(update(peer(2), {imcast(rd_ip(2, 200), v4(192, 0, 2, 2)), imcast(rd_ip(2, 200), v4(192, 0, 2, 2), 5)}, a));
    EXPECT_EQ(rows(show(s.db, {"1"}), "200"),
              (Rows{"200        VXLAN  0          192.0.2.2", "200        VXLAN  5          192.0.2.2"}));
    const std::string detail = show(s.db, {"-d", "1"});
    for (const char *line : {"    PMSI Type: 6\n", "    Nexthop: 192.0.2.2\n", "    VNI    : 10200\n",
                             "    Source : Remote\n"})
        EXPECT_NE(detail.find(line), std::string::npos) << line << detail;
}

TEST(RouteMapping, EadRoutesPerSegmentAndPerEviAndTheSegmentTheyName) {
    Store s;
    bmp::RouteAttrs a = attrs(v4(192, 0, 2, 2), {rt2(65000, 100)});
    a.has_esi_label = true;
    a.esi_label_flags = 1;  // single-active
    s.apply(update(peer(2), {ead(rd_ip(2, 100), 0xffffffff, 0), ead(rd_ip(2, 100), 0, mpls(24100))}, a));
    bmp::RouteAttrs es = attrs(v4(192, 0, 2, 3), {});
    es.has_es_import = true;
    es.es_import = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    s.apply(update(peer(3), {segment(rd_ip(3, 1), v4(192, 0, 2, 3))}, es));
    EXPECT_EQ(rows(show(s.db, {"9"}), "100"),
              (Rows{"100        MPLS   0011.2233.4455.6677.8899 0x0        192.0.2.2                               24100",
                    "100        MPLS   0011.2233.4455.6677.8899 0xffffffff 192.0.2.2                               0"}));
    EXPECT_NE(show(s.db, {"-p", "9"}).find("   Remote redundancy: single-active\n"), std::string::npos);
    // The segment: its peers from the ES route (originator) and the per-ES EAD route (next hop).
    const std::string es_brief = show(s.db, {"3"});
    EXPECT_NE(es_brief.find("0011.2233.4455.6677.8899 N/A                                192.0.2.2\n"
                            "                                                            192.0.2.3\n"),
              std::string::npos)
        << es_brief;
    EXPECT_NE(show(s.db, {"-d", "3"}).find("  ES Import RT      : 0011.2233.4455"), std::string::npos);
    // A segment route alone makes no EVI.
    EXPECT_EQ(rows(show(s.db, {"5"}), "1"), (Rows{"100        MPLS       Not set                      Not set"}));
}

TEST(RouteMapping, EvisWithTheirRdsRouteTargetsNeighborsAndEndpoints) {
    Store s;
    s.apply(update(peer(1), {mac_route(rd_ip(1, 100), 1, {}, mpls(24001))},
                   attrs(v4(192, 0, 2, 1), {rt2(65000, 100), rt2(65000, 101)})));
    s.apply(update(peer(2), {mac_route(rd_ip(2, 200), 2, {}, 10200)},
                   vxlan(attrs(v4(192, 0, 2, 2), {rt2(65000, 200)}))));
    EXPECT_EQ(rows(show(s.db, {"5"}), "2"), (Rows{"200        VXLAN      Not set                      Not set"}));
    const std::string detail = show(s.db, {"-d", "5"});
    EXPECT_NE(detail.find("   RD Config: 0:0\n   RD Auto  : 192.0.2.1:100\n   RT Auto  : 65000:100\n"
                          "   Route Targets in Use           Type                 \n"
                          "   ------------------------------ ---------------------\n"
                          "   65000:100                      Import               \n"
                          "   65000:101                      Import               \n"),
              std::string::npos)
        << detail;
    EXPECT_EQ(rows(show(s.db, {"-p", "4"}), " Route Distinguisher:"),
              (Rows{" Route Distinguisher:  192.0.2.1:100", " Route Distinguisher:  192.0.2.2:200"}));
    EXPECT_EQ(rows(show(s.db, {"8"}), "1"), (Rows{"100        MPLS   192.0.2.1"}));
    // Only the VXLAN route's next hop is a tunnel endpoint.
    EXPECT_EQ(rows(show(s.db, {"10"}), "0x"),
              (Rows{"0x00000001 None         ::                                       192.0.2.2"}));
}

TEST(RouteMapping, SummaryCountsWhatTheRoutesMade) {
    Store s;
    bmp::PeerHeader loc = peer(9, 65009);
    loc.type = bmp::PeerType::LocRib;
    loc.address = {};
    std::string err;
    ASSERT_TRUE(s.store->apply(s.session, peer_message(bmp::MsgType::PeerUp, loc), err)) << err;
    EXPECT_TRUE(s.store->pending()) << "the summary names the router: a flush has work";
    s.apply(peer_message(bmp::MsgType::StatisticsReport, loc));
    EXPECT_FALSE(s.store->pending());
    bmp::RouteAttrs a = attrs(v4(192, 0, 2, 1), {rt2(65000, 100)});
    s.apply(update(peer(1),
                   {mac_route(rd_ip(1, 100), 1, {}, mpls(1)), mac_route(rd_ip(1, 100), 1, v4(10, 0, 0, 1), mpls(1)),
                    mac_route(rd_ip(1, 100), 1, v6({0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}), mpls(1)),
                    imcast(rd_ip(1, 100), v4(192, 0, 2, 1)), ead(rd_ip(1, 100), 0, mpls(5))},
                   a));
    const std::string summary = show(s.db, {"7"});
    for (const char *line : {"Number of EVIs                     : 1\n", "Number of Remote EAD Entries       : 1\n",
                             "Number of Remote MAC Routes        : 3\n          MAC                      : 1\n"
                             "          MAC-IPv4                 : 1\n          MAC-IPv6                 : 1\n",
                             "Number of Remote IMCAST Routes     : 1\n", "Number of ES Entries               : 0\n",
                             "Number of Neighbor Entries         : 1\n", "BGP ASN                            : 65009\n"})
        EXPECT_NE(summary.find(line), std::string::npos) << line << summary;
}

TEST(RouteMapping, Srv6ServiceSidsWithTheLabelTransposedIn) {
    Store s;
    bmp::RouteAttrs a = attrs(v6({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}), {rt2(65000, 300)});
    bmp::Srv6ServiceSid sid;
    sid.service = 6;
    sid.sid = {0xfc, 0x00, 0x00, 0x00, 0x00, 0x01};  // fc00:0:1::, function bits from the label
    sid.endpoint_behavior = 0x15;
    sid.has_structure = true;
    sid.locator_block_len = 32;
    sid.locator_node_len = 16;
    sid.function_len = 16;
    sid.transposition_len = 16;
    sid.transposition_offset = 48;
    a.srv6_sids = {sid};
    s.apply(update(peer(1), {mac_route(rd_ip(1, 300), 1, {}, 0xe00400)}, a));
    EXPECT_EQ(rows(show(s.db, {"0"}, {"EVPN_SRV6_ELAN=1"}), "300"),
              (Rows{"300        SRv6       0011.2233.4401 ::                                       2001:db8::1                             57348    fc00:0:1:e004::"}));
}

}  // namespace
