// Encode, parse, compare: every route type and attribute the parser keeps
// comes back as it was written, and every message type round-trips.
#include <gtest/gtest.h>

#include <string>

#include "bmp_test_util.h"

using namespace bmp_test;

namespace {

struct Parsed {
    std::vector<Bytes> msgs;
    Message m;
};

// Encodes one Route Monitoring message and parses it back.
void round_trip_update(const PeerHeader &peer, const std::vector<EvpnNlri> &reach, const RouteAttrs &attrs,
                       const std::vector<EvpnNlri> &unreach, Message &m) {
    Encoder e;
    e.route_monitoring(peer, reach, attrs, unreach);
    const BmpError err = parse_exact(e.bytes(), m);
    ASSERT_FALSE(err) << bmp_strerror(err.code) << " at " << err.offset;
    ASSERT_EQ(m.type, MsgType::RouteMonitoring);
    EXPECT_TRUE(m.update.attr_faults.empty()) << m.update.attr_faults[0].reason;
    EXPECT_FALSE(m.update.treat_as_withdraw);
}

EvpnNlri with(EvpnNlri n, void (*f)(EvpnNlri &)) {
    f(n);
    return n;
}

TEST(BmpRoundTrip, EveryRouteTypeAndLayoutComesBackAnnouncedAndWithdrawn) {
    const struct {
        const char *name;
        EvpnNlri route;
    } cases[] = {
        {"EAD per EVI", route(1)},
        {"EAD per ES", with(route(1), [](EvpnNlri &n) { n.ethernet_tag = 0xffffffff, n.label[0] = 0; })},
        {"MAC only", with(route(2), [](EvpnNlri &n) { n.ip = IpAddr{}; })},
        {"MAC and IPv4", route(2)},
        {"MAC and IPv6, two labels", with(route(2), [](EvpnNlri &n) {
             n.ip = ip6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 7}), n.label_count = 2, n.label[1] = 50001;
         })},
        {"MAC and IPv4, two labels", with(route(2), [](EvpnNlri &n) { n.label_count = 2, n.label[1] = 0xfffff1; })},
        {"inclusive multicast IPv4", route(3)},
        {"inclusive multicast IPv6", with(route(3), [](EvpnNlri &n) { n.ip = ip6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 2}); })},
        {"Ethernet segment IPv6", route(4)},
        {"Ethernet segment IPv4", with(route(4), [](EvpnNlri &n) { n.ip = ip4(192, 0, 2, 9); })},
        {"IP prefix IPv4", route(5)},
        {"IP prefix IPv6 with gateway", with(route(5), [](EvpnNlri &n) {
             n.ip = ip6({0x2001, 0xdb8, 0xa, 0, 0, 0, 0, 0}), n.ip_prefix_len = 64;
             n.gateway = ip6({0x2001, 0xdb8, 0xa, 0, 0, 0, 0, 1});
         })},
    };
    Message m;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<EvpnNlri> one{c.route};
        round_trip_update(global_peer(), one, plain_attrs(), {}, m);
        ASSERT_EQ(m.update.reach.size(), 1u);
        EXPECT_EQ(m.update.reach[0], c.route);
        EXPECT_EQ(m.update.attrs, plain_attrs());
        EXPECT_TRUE(m.update.unreach.empty());

        round_trip_update(global_peer(), {}, RouteAttrs{}, one, m);
        ASSERT_EQ(m.update.unreach.size(), 1u);
        EXPECT_EQ(m.update.unreach[0], c.route);
        EXPECT_TRUE(m.update.reach.empty());
    }
}

RouteAttrs attrs_with(void (*f)(RouteAttrs &)) {
    RouteAttrs a = plain_attrs();
    f(a);
    return a;
}

Srv6ServiceSid sid(uint8_t service, uint8_t last, bool structure) {
    Srv6ServiceSid s;
    s.service = service;
    s.sid = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, last};
    s.flags = 0;
    s.endpoint_behavior = service == 6 ? 0x0015 : 0x0013;  // End.DT2U, End.DT46
    if (structure) {
        s.has_structure = true;
        s.locator_block_len = 32, s.locator_node_len = 16, s.function_len = 16;
        s.argument_len = 0, s.transposition_len = 16, s.transposition_offset = 48;
    }
    return s;
}

TEST(BmpRoundTrip, EveryKeptAttributeAndCommunityComesBack) {
    const struct {
        const char *name;
        RouteAttrs attrs;
    } cases[] = {
        {"origin incomplete", attrs_with([](RouteAttrs &a) { a.origin = 2; })},
        {"IPv6 next hop", attrs_with([](RouteAttrs &a) { a.next_hop = ip6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}); })},
        {"route targets of each type", attrs_with([](RouteAttrs &a) {
             a.route_targets = {0x0002fde800000064ull, 0x0102c0000201000aull, 0x020200010001000bull};
         })},
        {"MAC mobility, sticky", attrs_with([](RouteAttrs &a) {
             a.has_mac_mobility = true, a.mac_mobility_seq = 0x01020304, a.mac_mobility_sticky = true;
         })},
        {"MAC mobility", attrs_with([](RouteAttrs &a) { a.has_mac_mobility = true, a.mac_mobility_seq = 3; })},
        {"ESI label single-active", attrs_with([](RouteAttrs &a) {
             a.has_esi_label = true, a.esi_label_flags = 1, a.esi_label = 0x0abcde;
         })},
        {"ES-import", attrs_with([](RouteAttrs &a) { a.has_es_import = true, a.es_import = {1, 2, 3, 4, 5, 6}; })},
        {"router's MAC", attrs_with([](RouteAttrs &a) { a.has_router_mac = true, a.router_mac = {0xc, 0x42, 0, 0, 0, 1}; })},
        {"VXLAN", attrs_with([](RouteAttrs &a) { a.has_encap = true, a.encap = 8; })},
        {"MPLS", attrs_with([](RouteAttrs &a) { a.has_encap = true, a.encap = 10; })},
        {"default gateway", attrs_with([](RouteAttrs &a) { a.default_gateway = true; })},
        {"layer-2 attributes", attrs_with([](RouteAttrs &a) { a.has_l2_attrs = true, a.l2_flags = 0x0007, a.l2_mtu = 9000; })},
        {"PMSI ingress replication IPv4", attrs_with([](RouteAttrs &a) {
             a.has_pmsi = true, a.pmsi_tunnel_type = 6, a.pmsi_label = 10100, a.pmsi_endpoint = ip4(192, 0, 2, 1);
         })},
        {"PMSI ingress replication IPv6, leaf flag", attrs_with([](RouteAttrs &a) {
             a.has_pmsi = true, a.pmsi_flags = 1, a.pmsi_tunnel_type = 6, a.pmsi_label = 0xfffff0;
             a.pmsi_endpoint = ip6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1});
         })},
        {"SRv6 L2 service SID with structure", attrs_with([](RouteAttrs &a) { a.srv6_sids = {sid(6, 1, true)}; })},
        {"SRv6 L3 then L2 then L3 SIDs", attrs_with([](RouteAttrs &a) {
             a.srv6_sids = {sid(5, 1, false), sid(5, 2, true), sid(6, 3, true), sid(5, 4, false)};
         })},
        {"many route targets (extended length)", attrs_with([](RouteAttrs &a) {
             for (uint32_t i = 0; i < 300; i++) a.route_targets.push_back(0x0002fde800000000ull + i);
         })},
        {"everything at once", attrs_with([](RouteAttrs &a) {
             a.has_mac_mobility = true, a.mac_mobility_seq = 9, a.has_esi_label = true, a.esi_label = 5;
             a.has_es_import = true, a.has_router_mac = true, a.has_encap = true, a.encap = 8;
             a.default_gateway = true, a.has_l2_attrs = true, a.l2_mtu = 1500;
             a.has_pmsi = true, a.pmsi_tunnel_type = 6, a.pmsi_endpoint = ip4(10, 0, 0, 1);
             a.srv6_sids = {sid(6, 9, true)};
         })},
    };
    Message m;
    const std::vector<EvpnNlri> routes{route(2), route(3)};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        round_trip_update(global_peer(), routes, c.attrs, {}, m);
        EXPECT_EQ(m.update.attrs, c.attrs);
        EXPECT_EQ(m.update.reach, routes);
    }
}

TEST(BmpRoundTrip, OneUpdateCarriesAnnouncementsAndWithdrawsOfManyRoutes) {
    std::vector<EvpnNlri> reach, unreach;
    for (uint32_t i = 0; i < 400; i++) {
        EvpnNlri n = route(uint8_t(1 + i % 5));
        if (n.route_type == 4) n.esi[9] = uint8_t(i);
        else n.ethernet_tag = i;
        (i % 2 ? reach : unreach).push_back(n);
    }
    Message m;
    round_trip_update(global_peer(), reach, plain_attrs(), unreach, m);
    EXPECT_EQ(m.update.reach, reach);
    EXPECT_EQ(m.update.unreach, unreach);
}

TEST(BmpRoundTrip, PeerHeadersOfEveryKindComeBack) {
    PeerHeader v6 = global_peer();
    v6.flags = 0x80;
    v6.address = ip6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 0x77});
    PeerHeader rd = global_peer();
    rd.type = PeerType::RdInstance;
    rd.distinguisher = bmp_test::rd(65000, 7);
    rd.flags = 0x20 | 0x40;  // 2-octet AS_PATH, post-policy
    for (const PeerHeader &h : {global_peer(), v6, rd, loc_rib_peer()}) {
        Encoder e;
        e.peer_down(h, 4);
        Message m;
        ASSERT_FALSE(parse_exact(e.bytes(), m));
        EXPECT_EQ(m.peer, h);
    }
}

TEST(BmpRoundTrip, SessionMessagesComeBack) {
    Encoder e;
    e.initiation("pe1", "test router");
    e.termination(1);
    PeerUp up;
    up.local_address = ip4(192, 0, 2, 254);
    up.local_port = 179, up.remote_port = 40000;
    up.sent_open_as = 4200000001, up.received_open_as = 65000;
    e.peer_up(global_peer(), up);
    PeerUp loc;
    loc.sent_open_as = loc.received_open_as = 65000;
    loc.table_name = "default";
    e.peer_up(loc_rib_peer(), loc);
    for (uint8_t reason = 1; reason <= 6; reason++) e.peer_down(global_peer(), reason);
    const StatEntry stats[] = {{0, 5}, {7, 0x100000000ull}, {8, 12}, {9, 0x123456789ull}, {11, 0xffffffff}};
    e.statistics(global_peer(), stats);

    const std::vector<Bytes> msgs = split(e.bytes());
    ASSERT_EQ(msgs.size(), 11u);
    Message m;
    ASSERT_FALSE(parse_message(msgs[0], m));  // in place: the texts are views into it
    EXPECT_EQ(m.type, MsgType::Initiation);
    EXPECT_EQ(m.info.sys_name, "pe1");
    EXPECT_EQ(m.info.sys_descr, "test router");

    ASSERT_FALSE(parse_exact(msgs[1], m));
    EXPECT_EQ(m.type, MsgType::Termination);
    EXPECT_TRUE(m.info.has_reason);
    EXPECT_EQ(m.info.reason, 1);

    ASSERT_FALSE(parse_exact(msgs[2], m));
    EXPECT_EQ(m.type, MsgType::PeerUp);
    EXPECT_EQ(m.peer_up.local_address, up.local_address);
    EXPECT_EQ(m.peer_up.local_port, 179);
    EXPECT_EQ(m.peer_up.remote_port, 40000);
    EXPECT_EQ(m.peer_up.sent_open_as, 4200000001u);
    EXPECT_EQ(m.peer_up.received_open_as, 65000u);
    EXPECT_TRUE(m.peer_up.four_octet_as);

    ASSERT_FALSE(parse_message(msgs[3], m));
    EXPECT_EQ(m.peer.type, PeerType::LocRib);
    EXPECT_EQ(m.peer_up.table_name, "default");
    EXPECT_EQ(m.peer_up.local_address.len, 0);

    for (uint8_t reason = 1; reason <= 6; reason++) {
        ASSERT_FALSE(parse_exact(msgs[3 + reason], m)) << int(reason);
        EXPECT_EQ(m.type, MsgType::PeerDown);
        EXPECT_EQ(m.peer_down.reason, reason);
    }

    ASSERT_FALSE(parse_exact(msgs[10], m));
    ASSERT_EQ(m.stats.size(), std::size(stats));
    for (size_t i = 0; i < std::size(stats); i++) {
        EXPECT_EQ(m.stats[i].type, stats[i].type);
        EXPECT_EQ(m.stats[i].value, stats[i].value);
    }
}

TEST(BmpRoundTrip, RouteMirroringIsRecognisedAndItsContentSkipped) {
    Encoder e;
    e.peer_down(global_peer(), 2);
    Bytes b = e.bytes();
    b[5] = uint8_t(MsgType::RouteMirroring);
    Message m;
    ASSERT_FALSE(parse_exact(b, m));
    EXPECT_EQ(m.type, MsgType::RouteMirroring);
    EXPECT_EQ(m.peer.address, global_peer().address);
}

TEST(BmpWords, AddressesReadAsOperatorsWriteThem) {
    const struct {
        IpAddr ip;
        const char *text;
    } cases[] = {
        {IpAddr{}, "-"},
        {ip4(192, 0, 2, 1), "192.0.2.1"},
        {ip4(0, 0, 0, 0), "0.0.0.0"},
        {ip6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}), "2001:db8::1"},
        {ip6({0, 0, 0, 0, 0, 0, 0, 0}), "::"},
        {ip6({0, 0, 0, 0, 0, 0, 0, 1}), "::1"},
        {ip6({0xfe80, 0, 0, 0, 0, 0, 0, 0}), "fe80::"},
        {ip6({0x2001, 0xdb8, 0, 1, 0, 0, 0, 1}), "2001:db8:0:1::1"},      // the longer run
        {ip6({0x2001, 0, 0, 1, 0, 0, 1, 1}), "2001::1:0:0:1:1"},          // the first of equal runs
        {ip6({0x2001, 0xdb8, 1, 0, 1, 1, 1, 1}), "2001:db8:1:0:1:1:1:1"},  // one zero group stays
        {ip6({0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff}),
         "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
    };
    for (const auto &c : cases) {
        char buf[46];
        EXPECT_STREQ(ip_text(c.ip, buf, sizeof buf), c.text);
    }
    char small[5];
    EXPECT_STREQ(ip_text(ip4(192, 0, 2, 1), small, sizeof small), "192.");
}

}  // namespace
