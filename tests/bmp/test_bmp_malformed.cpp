// Bad input: each attribute row's RFC 7606 handling, framing faults named
// with their offsets, the limits, and every truncation of a valid message.
#include <gtest/gtest.h>

#include <optional>

#include "bmp_test_util.h"

using namespace bmp_test;

namespace {

constexpr size_t kUpdateStart = 6 + 42;           // the BGP message inside a Route Monitoring message
constexpr size_t kFirstAttr = kUpdateStart + 19 + 2 + 2;

Bytes type2() { return route_bytes(route(2)); }
Bytes good_reach() { return mp_reach(type2()); }

// Route bytes with one octet changed (the route's own type and length octets
// come first).
Bytes patched(Bytes b, size_t at, uint8_t v) {
    b.at(at) = v;
    return b;
}

constexpr BmpErrc kOk = BmpErrc::Ok;
constexpr auto kWithdraw = FaultAction::TreatAsWithdraw;
constexpr auto kDiscard = FaultAction::AttributeDiscard;

struct AttrCase {
    const char *name;
    Bytes attrs;
    BmpErrc error = kOk;                   // a framing fault (session reset)
    std::optional<FaultAction> action{};   // the first fault's handling, if any
    uint8_t attr = 0;                      // the faulty attribute
    uint8_t peer_flags = 0;
};

TEST(BmpRfc7606, EachAttributeRowHandlesItsFaultAsTheRfcSays) {
    const Bytes o = kOrigin, p = kAsPath, r = good_reach();
    const AttrCase cases[] = {
        {"valid", cat({o, p, r})},
        {"ORIGIN length 2", cat({attr(0x40, 1, {0, 0}), p, r}), kOk, kWithdraw, 1},
        {"ORIGIN value undefined", cat({attr(0x40, 1, {3}), p, r}), kOk, kWithdraw, 1},
        {"ORIGIN flagged optional", cat({attr(0xc0, 1, {0}), p, r}), kOk, kWithdraw, 1},
        {"AS_PATH segment past the attribute", cat({o, attr(0x40, 2, {2, 2, 0, 0, 0xfd, 0xe8}), r}), kOk, kWithdraw, 2},
        {"AS_PATH segment type undefined", cat({o, attr(0x40, 2, {5, 1, 0, 0, 0xfd, 0xe8}), r}), kOk, kWithdraw, 2},
        {"AS_PATH empty segment", cat({o, attr(0x40, 2, {2, 0}), r}), kOk, kWithdraw, 2},
        {"2-octet AS_PATH on a 4-octet session", cat({o, attr(0x40, 2, {2, 2, 0xfd, 0xe8, 0xfd, 0xe9}), r}), kOk,
         kWithdraw, 2},
        {"2-octet AS_PATH under the A flag", cat({o, attr(0x40, 2, {2, 2, 0xfd, 0xe8, 0xfd, 0xe9}), r}), kOk, {}, 0,
         0x20},
        {"NEXT_HOP length 5", cat({o, p, attr(0x40, 3, {1, 2, 3, 4, 5}), r}), kOk, kWithdraw, 3},
        {"MULTI_EXIT_DISC length 3", cat({o, p, attr(0x80, 4, {0, 0, 1}), r}), kOk, kWithdraw, 4},
        {"LOCAL_PREF length 2", cat({o, p, attr(0x40, 5, {0, 100}), r}), kOk, kWithdraw, 5},
        {"ATOMIC_AGGREGATE length 1", cat({o, p, attr(0x40, 6, {0}), r}), kOk, kDiscard, 6},
        {"AGGREGATOR of 2-octet form on a 4-octet session", cat({o, p, attr(0xc0, 7, {0xfd, 0xe8, 1, 2, 3, 4}), r}),
         kOk, kDiscard, 7},
        {"COMMUNITIES length 5", cat({o, p, attr(0xc0, 8, {0, 0, 0, 1, 2}), r}), kOk, kWithdraw, 8},
        {"ORIGINATOR_ID length 3", cat({o, p, attr(0x80, 9, {1, 2, 3}), r}), kOk, kWithdraw, 9},
        {"CLUSTER_LIST length 5", cat({o, p, attr(0x80, 10, {1, 2, 3, 4, 5}), r}), kOk, kWithdraw, 10},
        {"EXTENDED_COMMUNITIES length 9", cat({o, p, attr(0xc0, 16, Bytes(9, 0)), r}), kOk, kWithdraw, 16},
        {"AS4_PATH segment undefined", cat({o, p, attr(0xc0, 17, {9, 1, 0, 0, 0, 1}), r}), kOk, kDiscard, 17},
        {"AS4_PATH flagged well-known", cat({o, p, attr(0x40, 17, {2, 1, 0, 0, 0, 1}), r}), kOk, kDiscard, 17},
        {"AS4_AGGREGATOR length 6", cat({o, p, attr(0xc0, 18, {0, 1, 2, 3, 4, 5}), r}), kOk, kDiscard, 18},
        {"PMSI_TUNNEL cut short", cat({o, p, attr(0xc0, 22, {0, 6, 0, 0}), r}), kOk, kWithdraw, 22},
        {"PMSI_TUNNEL endpoint of 5 octets", cat({o, p, attr(0xc0, 22, {0, 6, 0, 0, 1, 1, 2, 3, 4, 5}), r}), kOk,
         kWithdraw, 22},
        {"PMSI_TUNNEL of another tunnel type", cat({o, p, attr(0xc0, 22, {0, 3, 0, 0, 1, 1, 2, 3, 4, 5, 6, 7, 8}), r})},
        {"LARGE_COMMUNITY length 13", cat({o, p, attr(0xc0, 32, Bytes(13, 0)), r}), kOk, kWithdraw, 32},
        {"Prefix-SID TLV past the attribute", cat({o, p, attr(0xc0, 40, {1, 0, 9, 0}), r}), kOk, kDiscard, 40},
        {"Prefix-SID label index of 6 octets", cat({o, p, attr(0xc0, 40, {1, 0, 6, 0, 0, 0, 0, 0, 0}), r}), kOk,
         kDiscard, 40},
        {"Prefix-SID unknown TLV skipped", cat({o, p, attr(0xc0, 40, {99, 0, 2, 7, 7}), r})},
        {"Prefix-SID flagged well-known", cat({o, p, attr(0x40, 40, {99, 0, 0}), r}), kOk, kDiscard, 40},
        {"SRv6 SID information cut short", cat({o, p, attr(0xc0, 40, {6, 0, 5, 0, 1, 0, 1, 0}), r}), kOk, kWithdraw,
         40},
        {"SRv6 service sub-TLV past its TLV", cat({o, p, attr(0xc0, 40, {5, 0, 4, 0, 1, 0, 30}), r}), kOk, kWithdraw,
         40},
        {"repeated ORIGIN", cat({o, p, attr(0x40, 1, {2}), r}), kOk, kDiscard, 1},
        {"unknown optional attribute", cat({o, p, attr(0xc0, 99, {1, 2, 3}), r})},
        {"unknown well-known attribute", cat({o, p, attr(0x40, 99, {1, 2, 3}), r}), kOk, kDiscard, 99},
        {"MP_REACH_NLRI flagged transitive", cat({o, p, mp_reach(type2(), 0xd0)}), kOk, kWithdraw, 14},
        {"MP_REACH_NLRI twice", cat({o, p, r, r}), BmpErrc::BadUpdate},
        {"MP_UNREACH_NLRI twice", cat({attr(0x80, 15, {0, 25, 70}), attr(0x80, 15, {0, 25, 70})}), BmpErrc::BadUpdate},
        {"MP_REACH_NLRI next hop of 8 octets", cat({o, p, attr(0x80, 14, {0, 25, 70, 8, 1, 2, 3, 4, 5, 6, 7, 8, 0})}),
         BmpErrc::BadUpdate},
        {"MP_REACH_NLRI cut short", cat({o, p, attr(0x80, 14, {0, 25})}), BmpErrc::BadUpdate},
        {"MP_UNREACH_NLRI cut short", attr(0x80, 15, {0, 25}), BmpErrc::BadUpdate},
        {"EVPN route past its attribute", cat({o, p, mp_reach(patched(type2(), 1, 200))}), BmpErrc::BadNlri},
        {"type 2 MAC length 47", cat({o, p, mp_reach(patched(type2(), 2 + 22, 47))}), BmpErrc::BadNlri},
        {"type 2 IP length 24", cat({o, p, mp_reach(patched(type2(), 2 + 29, 24))}), BmpErrc::BadNlri},
        {"type 2 with a third label", cat({o, p, mp_reach(cat({patched(type2(), 1, 43), {0, 0, 1, 0, 0, 2}}))}),
         BmpErrc::BadNlri},
        {"type 1 of 24 octets", cat({o, p, mp_reach(Bytes{1, 24})}), BmpErrc::BadNlri},
        {"type 3 IP length against its size",
         cat({o, p, mp_reach(patched(route_bytes(route(3)), 2 + 12, 128))}), BmpErrc::BadNlri},
        {"type 4 IP length against its size",
         cat({o, p, mp_reach(patched(route_bytes(route(4)), 2 + 18, 32))}), BmpErrc::BadNlri},
        {"type 5 of 40 octets", cat({o, p, mp_reach(cat({{5, 40}, Bytes(40, 0)}))}), BmpErrc::BadNlri},
        {"type 5 prefix length 33", cat({o, p, mp_reach(patched(route_bytes(route(5)), 2 + 22, 33))}),
         BmpErrc::BadNlri},
        {"attribute list breaks before MP_REACH_NLRI", cat({o, Bytes{0x40, 2, 10, 2}}), BmpErrc::BadUpdate},
        {"attribute list ends inside a header", cat({o, Bytes{0x40}}), BmpErrc::BadUpdate},
        {"attribute list breaks after MP_REACH_NLRI", cat({o, p, r, Bytes{0xc0, 16, 10, 0}}), kOk, kWithdraw, 16},
    };
    Message m;
    for (const AttrCase &c : cases) {
        SCOPED_TRACE(c.name);
        const Bytes msg = rm_message(c.attrs, c.peer_flags);
        const BmpError e = parse_exact(msg, m);
        ASSERT_EQ(e.code, c.error) << bmp_strerror(e.code) << " at " << e.offset;
        if (c.error != kOk) {
            EXPECT_EQ(e.type, MsgType::RouteMonitoring);
            EXPECT_GE(e.offset, kFirstAttr);
            EXPECT_LT(e.offset, msg.size());
            continue;
        }
        if (!c.action) {
            EXPECT_TRUE(m.update.attr_faults.empty()) << m.update.attr_faults[0].reason;
            EXPECT_FALSE(m.update.treat_as_withdraw);
        } else {
            ASSERT_FALSE(m.update.attr_faults.empty());
            EXPECT_EQ(m.update.attr_faults[0].attr_type, c.attr);
            EXPECT_EQ(m.update.attr_faults[0].action, *c.action);
            EXPECT_EQ(m.update.treat_as_withdraw, *c.action == kWithdraw);
        }
        // Whatever happened to the attributes, the routes were found.
        ASSERT_EQ(m.update.reach.size(), 1u);
        EXPECT_EQ(m.update.reach[0], route(2));
    }
}

TEST(BmpRfc7606, FaultsNameTheAttributeOffsetAndKeepTheFirstOfARepeat) {
    Message m;
    ASSERT_FALSE(parse_exact(rm_message(cat({attr(0x40, 1, {0, 0}), kAsPath, good_reach()})), m));
    ASSERT_EQ(m.update.attr_faults.size(), 1u);
    EXPECT_EQ(m.update.attr_faults[0].offset, kFirstAttr);
    EXPECT_STRNE(m.update.attr_faults[0].reason, "");

    ASSERT_FALSE(parse_exact(rm_message(cat({attr(0x40, 1, {1}), attr(0x40, 1, {2}), kAsPath, good_reach()})), m));
    EXPECT_EQ(m.update.attrs.origin, 1);
    EXPECT_EQ(m.update.attr_faults[0].offset, kFirstAttr + 4);

    // A malformed EXTENDED_COMMUNITIES keeps none of its communities.
    ASSERT_FALSE(parse_exact(rm_message(cat({kOrigin, attr(0xc0, 16, Bytes{0, 2, 0, 1, 0, 0, 0, 1, 9}), good_reach()})), m));
    EXPECT_TRUE(m.update.attrs.route_targets.empty());
    // A faulty SRv6 service TLV drops the SIDs of the attribute read before it.
    const Bytes good_sid = {6, 0, 25, 0, 1, 0, 21, 0, 0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0x15, 0};
    ASSERT_FALSE(parse_exact(rm_message(cat({kOrigin, attr(0xc0, 40, cat({good_sid, {6, 0, 4, 0, 1, 0, 9}})), good_reach()})), m));
    EXPECT_TRUE(m.update.attrs.srv6_sids.empty());
    EXPECT_TRUE(m.update.treat_as_withdraw);
    ASSERT_FALSE(parse_exact(rm_message(cat({kOrigin, attr(0xc0, 40, good_sid), good_reach()})), m));
    ASSERT_EQ(m.update.attrs.srv6_sids.size(), 1u);
    EXPECT_EQ(m.update.attrs.srv6_sids[0].endpoint_behavior, 0x15);
}

TEST(BmpRfc7606, OnlyEvpnRoutesAreKeptAndTheRestCounted) {
    const Bytes v4_prefixes = {24, 10, 0, 1, 32, 10, 0, 0, 9};  // 10.0.1.0/24, 10.0.0.9/32
    const Bytes mp_v4 = attr(0x80, 14, cat({{0, 1, 1, 4, 192, 0, 2, 1, 0}, v4_prefixes}));
    const Bytes unreach_v6 = attr(0x80, 15, {0, 2, 1, 64, 0x20, 1, 0xd, 0xb8, 0, 0, 0, 1});
    Message m;
    ASSERT_FALSE(parse_exact(rm_message(cat({kOrigin, kAsPath, mp_v4, unreach_v6})), m));
    EXPECT_TRUE(m.update.reach.empty());
    EXPECT_TRUE(m.update.unreach.empty());
    EXPECT_EQ(m.update.other_family_routes, 3u);
    EXPECT_EQ(m.update.attrs.next_hop.len, 0) << "another family's next hop is not the EVPN routes'";

    ASSERT_FALSE(parse_exact(rm_message(cat({kOrigin, kAsPath, attr(0x40, 3, {192, 0, 2, 1})}), 0, v4_prefixes,
                                        Bytes{8, 10}),
                             m));
    EXPECT_EQ(m.update.other_family_routes, 3u);

    // An unknown EVPN route type is skipped by its length; the next route is read.
    ASSERT_FALSE(parse_exact(rm_message(cat({kOrigin, kAsPath, mp_reach(cat({{9, 3, 1, 2, 3}, type2()}))})), m));
    EXPECT_EQ(m.update.unknown_route_types, 1u);
    ASSERT_EQ(m.update.reach.size(), 1u);
    EXPECT_EQ(m.update.reach[0], route(2));

    // A 32-octet next hop: the global address, not the link-local one.
    const Bytes global = {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    const Bytes link = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    ASSERT_FALSE(parse_exact(rm_message(cat({kOrigin, kAsPath, attr(0x90, 14, cat({{0, 25, 70, 32}, global, link, {0}, type2()}))})), m));
    EXPECT_EQ(m.update.attrs.next_hop, ip6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}));
}

TEST(BmpLimits, AttributeCountRouteTargetsAndSidsAreCapped) {
    Bytes many;
    for (int i = 0; i < 255; i++) many = cat({many, attr(0xc0, uint8_t(100 + i % 100), {})});
    Message m;
    // Repeats count too: 255 + MP_REACH_NLRI is at the limit, one more is over it.
    EXPECT_FALSE(parse_exact(rm_message(cat({many, good_reach()})), m));
    const BmpError e = parse_exact(rm_message(cat({many, kOrigin, good_reach()})), m);
    EXPECT_EQ(e.code, BmpErrc::TooManyAttributes);
    EXPECT_EQ(e.offset, kFirstAttr + 255 * 3 + kOrigin.size());

    RouteAttrs a = plain_attrs();
    a.route_targets.clear();
    for (uint32_t i = 0; i < kMaxRouteTargets + 10; i++) a.route_targets.push_back(0x0002fde800000000ull + i);
    for (uint8_t i = 0; i < kMaxSrv6Sids + 2; i++) {
        Srv6ServiceSid s;
        s.service = 6, s.sid[15] = i;
        a.srv6_sids.push_back(s);
    }
    Encoder enc;
    const EvpnNlri r[] = {route(2)};
    enc.route_monitoring(global_peer(), r, a, {});
    ASSERT_FALSE(parse_exact(enc.bytes(), m));
    EXPECT_EQ(m.update.attrs.route_targets.size(), kMaxRouteTargets);
    EXPECT_EQ(m.update.attrs.route_targets.back(), a.route_targets[kMaxRouteTargets - 1]);
    EXPECT_EQ(m.update.attrs.srv6_sids.size(), kMaxSrv6Sids);
    EXPECT_FALSE(m.update.treat_as_withdraw);
    EXPECT_EQ(m.update.attr_faults.size(), 3u);  // the route targets once, each SID over
}

Bytes with_length(Bytes b, uint32_t len) {
    b[1] = uint8_t(len >> 24), b[2] = uint8_t(len >> 16), b[3] = uint8_t(len >> 8), b[4] = uint8_t(len);
    return b;
}

// Valid messages of every type, to be cut and bent.
std::vector<Bytes> sample_messages() {
    Encoder e;
    e.initiation("pe1", "router");
    e.termination(2);
    PeerUp up;
    up.local_address = ip4(192, 0, 2, 254);
    up.sent_open_as = up.received_open_as = 65000;
    e.peer_up(global_peer(), up);
    up.table_name = "default";
    e.peer_up(loc_rib_peer(), up);
    for (uint8_t reason = 1; reason <= 6; reason++) e.peer_down(global_peer(), reason);
    const StatEntry stats[] = {{0, 1}, {7, 2}, {9, 3}};
    e.statistics(global_peer(), stats);
    RouteAttrs a = plain_attrs();
    a.has_mac_mobility = a.has_router_mac = a.has_encap = a.has_pmsi = true;
    a.pmsi_tunnel_type = 6, a.pmsi_endpoint = ip4(1, 2, 3, 4);
    Srv6ServiceSid s;
    s.service = 6, s.has_structure = true;
    a.srv6_sids = {s};
    std::vector<EvpnNlri> routes;
    for (uint8_t t = 1; t <= 5; t++) routes.push_back(route(t));
    e.route_monitoring(global_peer(), routes, a, routes);
    std::vector<Bytes> out = split(e.bytes());
    out.push_back(rm_message(cat({kOrigin, kAsPath, attr(0xc0, 8, {0, 0, 0, 1}), good_reach()}), 0,
                             Bytes{24, 10, 0, 1}, Bytes{8, 10}));
    return out;
}

TEST(BmpTruncation, EveryTruncationFailsWithoutReadingPastTheEnd) {
    Message m;
    size_t named = 0;
    for (const Bytes &msg : sample_messages()) {
        SCOPED_TRACE(msg_type_name(MsgType(msg[5])));
        ASSERT_FALSE(parse_exact(msg, m));
        for (size_t k = 0; k < msg.size(); k++) {
            // Cut: the header promises more, so the message is still arriving.
            ASSERT_EQ(parse_exact(msg.data(), k, m).code, BmpErrc::Short) << k;
            // Cut and its length made to agree: the body is what is short, and
            // that is a named fault inside the message, never a read past it.
            if (k < 6) continue;
            const Bytes cut = with_length(Bytes(msg.begin(), msg.begin() + ptrdiff_t(k)), uint32_t(k));
            const BmpError e = parse_exact(cut, m);
            EXPECT_NE(e.code, BmpErrc::Short) << k;
            if (e) {
                named++;
                EXPECT_LE(e.offset, k);
                EXPECT_EQ(e.type, MsgType(msg[5]));
            }
        }
    }
    EXPECT_GT(named, 1000u);
}

TEST(BmpFraming, BadHeadersAndBodiesAreNamedWithTheirOffset) {
    const Bytes rm = rm_message(cat({kOrigin, kAsPath, good_reach()}));
    auto bent = [](Bytes b, size_t at, uint8_t v) { return patched(std::move(b), at, v); };
    auto one = [](auto write) {  // one message from the encoder
        Encoder e;
        write(e);
        return e.bytes();
    };
    const PeerHeader h = global_peer();
    const StatEntry st[] = {{0, 1}};
    const Bytes init = one([](Encoder &e) { e.initiation("pe1", "x"); });
    const Bytes term = one([](Encoder &e) { e.termination(1); });
    const Bytes pu = one([&](Encoder &e) { e.peer_up(h, PeerUp{}); });
    const Bytes pd2 = one([&](Encoder &e) { e.peer_down(h, 2); });
    const Bytes pd1 = one([&](Encoder &e) { e.peer_down(h, 1); });
    const Bytes stats = one([&](Encoder &e) { e.statistics(h, st); });
    auto shorter = [](Bytes b, size_t by) {  // the body cut, the length made to agree
        const uint32_t len = uint32_t(b.size() - by);
        b.resize(len);
        return with_length(std::move(b), len);
    };

    const struct {
        const char *name;
        Bytes msg;
        BmpErrc error;
        size_t offset;
    } cases[] = {
        {"version 2", bent(rm, 0, 2), BmpErrc::BadVersion, 0},
        {"length below the header", with_length(rm, 5), BmpErrc::TooLong, 0},
        {"type 7", bent(rm, 5, 7), BmpErrc::BadType, 0},
        {"peer type 4", bent(rm, 6, 4), BmpErrc::BadPeerHeader, 6},
        {"BGP marker", bent(rm, kUpdateStart + 3, 0), BmpErrc::BadBgpHeader, kUpdateStart},
        {"BGP length past the message", bent(rm, kUpdateStart + 16, 0x7f), BmpErrc::BadBgpHeader, kUpdateStart},
        {"BGP length below its header", bent(bent(rm, kUpdateStart + 16, 0), kUpdateStart + 17, 18),
         BmpErrc::BadBgpHeader, kUpdateStart},
        {"an OPEN where an UPDATE goes", bent(rm, kUpdateStart + 18, 1), BmpErrc::BadBgpHeader, kUpdateStart},
        {"withdrawn routes past the UPDATE", bent(rm, kUpdateStart + 19, 0x7f), BmpErrc::BadUpdate, kUpdateStart + 19},
        {"attributes past the UPDATE", bent(rm, kUpdateStart + 21, 0x7f), BmpErrc::BadUpdate, kUpdateStart + 21},
        {"Initiation TLV past the message", bent(init, 9, 200), BmpErrc::BadTlv, 6},
        {"Termination reason of 1 octet", shorter(bent(term, 9, 1), 1), BmpErrc::BadTlv, 6},
        {"Peer Up without its ports", shorter(pu, pu.size() - 6 - 42 - 18), BmpErrc::BadBody, 48},
        {"Peer Up whose OPEN is an UPDATE", bent(pu, 48 + 20 + 18, 2), BmpErrc::BadBgpHeader, 68},
        {"Peer Up whose OPEN's parameters run past it", bent(pu, 48 + 20 + 19 + 9, 40), BmpErrc::BadBgpHeader, 68 + 19},
        {"Peer Down without its FSM event", shorter(pd2, 1), BmpErrc::BadBody, 49},
        {"Peer Down without its NOTIFICATION", shorter(pd1, 21), BmpErrc::BadBgpHeader, 49},
        {"Statistics count beyond the message", bent(stats, 48, 1), BmpErrc::BadBody, 48},
        {"Statistics TLV past the message", bent(stats, 55, 9), BmpErrc::BadTlv, 52},
    };
    Message m;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const BmpError err = parse_exact(c.msg, m);
        EXPECT_EQ(err.code, c.error) << bmp_strerror(err.code);
        EXPECT_EQ(err.offset, c.offset);
    }

    uint32_t len = 0;
    Bytes huge = rm;
    huge[1] = 0, huge[2] = 0x10, huge[3] = 0, huge[4] = 1;  // 1 MiB + 1
    EXPECT_EQ(message_length(huge, len).code, BmpErrc::TooLong);
    huge[4] = 0;
    EXPECT_EQ(message_length(huge, len).code, BmpErrc::Ok);
    EXPECT_EQ(len, kMaxMessageLength);
    EXPECT_EQ(message_length(Bytes{3, 0, 0}, len).code, BmpErrc::Short);
    EXPECT_EQ(message_length(Bytes{4}, len).code, BmpErrc::BadVersion);
}

}  // namespace
