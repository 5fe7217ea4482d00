// Streams: the framer however the bytes arrive, the generator's stream, and
// what gobgpd and FRR really sent (tests/data/bmp/README.md lists the routes).
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>

#include "bmp_test_util.h"
#include "evpn_bmp/bmp_gen.h"

using namespace bmp_test;

namespace {

Bytes generated(const GenBmpOptions &opt, GenBmpCounts *counts = nullptr) {
    Bytes out;
    EXPECT_TRUE(gen_bmp_stream(opt, [&](std::span<const uint8_t> b) {
        out.insert(out.end(), b.begin(), b.end());
        return true;
    }, counts));
    return out;
}

Bytes small_stream() {
    GenBmpOptions opt;
    opt.routes = 300, opt.evis = 7, opt.peers = 3, opt.withdraw = true;
    return generated(opt);
}

// Feeds the stream in the given piece sizes and takes messages as they come.
// Each piece is fed from one buffer, overwritten once the framer says Short,
// as a reader's buffer is by its next read: what the framer keeps of a piece
// must be its own copy.
std::vector<Bytes> frame(const Bytes &stream, const std::vector<size_t> &pieces, std::vector<uint64_t> *offsets = nullptr) {
    std::vector<Bytes> out;
    Framer f;
    size_t at = 0;
    Bytes piece;
    for (size_t n : pieces) {
        std::fill(piece.begin(), piece.end(), uint8_t{0xa5});
        piece.assign(stream.begin() + ptrdiff_t(at), stream.begin() + ptrdiff_t(at + n));
        f.feed(piece);
        at += n;
        std::span<const uint8_t> m;
        for (;;) {
            if (offsets) offsets->push_back(f.offset());
            const BmpError e = f.next(m);
            if (e) {
                EXPECT_EQ(e.code, BmpErrc::Short);
                if (offsets) offsets->pop_back();
                break;
            }
            out.emplace_back(m.begin(), m.end());
        }
    }
    EXPECT_EQ(f.buffered(), 0u);
    return out;
}

TEST(BmpFramer, ByteByByteAndRandomSplitsGiveTheSameMessages) {
    const Bytes stream = small_stream();
    std::vector<uint64_t> offsets;
    const std::vector<Bytes> whole = frame(stream, {stream.size()}, &offsets);
    ASSERT_GT(whole.size(), 100u);
    uint64_t sum = 0;
    for (size_t i = 0; i < whole.size(); i++) {
        EXPECT_EQ(offsets[i], sum);
        sum += whole[i].size();
    }
    EXPECT_EQ(sum, stream.size());

    EXPECT_EQ(frame(stream, std::vector<size_t>(stream.size(), 1)), whole);
    std::mt19937 rng(7);
    for (int round = 0; round < 20; round++) {
        std::vector<size_t> pieces;
        for (size_t left = stream.size(); left;) {
            const size_t n = std::min<size_t>(left, rng() % (round < 10 ? 64 : 5000));
            pieces.push_back(n);
            left -= n;
        }
        EXPECT_EQ(frame(stream, pieces), whole) << "round " << round;
    }
}

TEST(BmpFramer, AFramingErrorIsFinal) {
    Encoder e;
    e.initiation("pe1", "x");
    Bytes stream = e.bytes();
    const size_t first = stream.size();
    stream.push_back(4);  // version 4
    stream.insert(stream.end(), e.bytes().begin(), e.bytes().end());
    Framer f;
    f.feed(std::span(stream).first(3));
    std::span<const uint8_t> m;
    EXPECT_EQ(f.next(m).code, BmpErrc::Short);
    f.feed(std::span(stream).subspan(3));
    ASSERT_FALSE(f.next(m));
    EXPECT_EQ(m.size(), first);
    EXPECT_EQ(f.next(m).code, BmpErrc::BadVersion);
    EXPECT_EQ(f.offset(), first) << "the stream offset names the bad message";
    f.feed(e.bytes());
    EXPECT_EQ(f.next(m).code, BmpErrc::BadVersion);
}

// ---- The generator ------------------------------------------------------------

struct StreamSummary {
    std::map<MsgType, int> messages;
    uint64_t announced[6] = {}, withdrawn[6] = {};
    std::set<std::string> keys[6];  // each announced route's bytes, by type
};

std::string key_of(const EvpnNlri &n) {
    std::string k;
    auto add = [&](const void *p, size_t len) { k.append(static_cast<const char *>(p), len); };
    add(n.rd.data(), 8), add(n.esi.data(), 10), add(&n.ethernet_tag, 4), add(n.mac.data(), 6);
    add(n.ip.b.data(), n.ip.len), add(&n.ip_prefix_len, 1);
    return k;
}

StreamSummary summarise(const Bytes &stream, uint32_t evis) {
    StreamSummary s;
    Framer f;
    f.feed(stream);
    std::span<const uint8_t> bytes;
    Message m;
    while (!f.next(bytes)) {
        const BmpError e = parse_message(bytes, m);
        EXPECT_FALSE(e) << bmp_strerror(e.code);
        s.messages[m.type]++;
        const Update &u = m.update;
        EXPECT_TRUE(u.attr_faults.empty());
        for (const EvpnNlri &n : u.reach) {
            s.announced[n.route_type]++;
            s.keys[n.route_type].insert(key_of(n));
            if (n.route_type == 4) {
                EXPECT_TRUE(u.attrs.has_es_import);
                continue;
            }
            // The route target's local administrator is the EVI in the RD,
            // and the encapsulation follows the EVI's parity.
            const uint32_t evi = uint32_t(n.rd[6] << 8 | n.rd[7]);
            EXPECT_GE(evi, 1u);
            EXPECT_LE(evi, evis);
            EXPECT_EQ(u.attrs.route_targets.size(), 1u);
            if (!u.attrs.route_targets.empty()) {
                EXPECT_EQ(uint32_t(u.attrs.route_targets[0]), evi);
            }
            EXPECT_EQ(u.attrs.encap, evi % 2 ? 8 : 10);
            EXPECT_EQ(u.attrs.next_hop, m.peer.address);
            if (n.route_type == 3) {
                EXPECT_EQ(u.attrs.pmsi_endpoint, m.peer.address);
            }
        }
        for (const EvpnNlri &n : u.unreach) s.withdrawn[n.route_type]++;
        if (!u.unreach.empty()) {
            EXPECT_TRUE(u.attrs.route_targets.empty());
        }
    }
    EXPECT_EQ(f.buffered(), 0u);
    return s;
}

TEST(BmpGenerator, StreamHoldsEveryRouteOfEveryTypeOnceThenTheirWithdraws) {
    GenBmpOptions opt;
    opt.routes = 1000, opt.evis = 30, opt.peers = 4, opt.withdraw = true;
    GenBmpCounts counts;
    const Bytes stream = generated(opt, &counts);
    const StreamSummary s = summarise(stream, opt.evis);
    EXPECT_EQ(s.messages.at(MsgType::Initiation), 1);
    EXPECT_EQ(s.messages.at(MsgType::PeerUp), 4);
    EXPECT_EQ(s.messages.at(MsgType::StatisticsReport), 4);
    for (int t = 1; t <= 5; t++) {
        EXPECT_EQ(s.announced[t], 1000u) << t;
        EXPECT_EQ(s.keys[t].size(), 1000u) << "type " << t << " routes are distinct";
        EXPECT_EQ(s.withdrawn[t], 1000u) << t;
    }
    EXPECT_EQ(counts.announced, 5000u);
    EXPECT_EQ(counts.withdrawn, 5000u);
    EXPECT_EQ(counts.bytes, stream.size());
    EXPECT_EQ(counts.messages, uint64_t(s.messages.at(MsgType::RouteMonitoring) + 9));
}

TEST(BmpGenerator, SameSeedSameStreamAndAnotherSeedAnother) {
    GenBmpOptions opt;
    opt.routes = 50;
    const Bytes a = generated(opt);
    EXPECT_EQ(generated(opt), a);
    opt.seed = 2;
    EXPECT_NE(generated(opt), a);
    opt.withdraw = true;
    const StreamSummary s = summarise(generated(opt), opt.evis);
    EXPECT_EQ(s.withdrawn[2], 50u);
}

// ---- Captured streams ---------------------------------------------------------

Bytes read_file(const std::string &name) {
    const std::string path = std::string(EVPN_SOURCE_DIR) + "/tests/data/bmp/" + name;
    std::ifstream f(path, std::ios::binary);
    EXPECT_TRUE(f) << path;
    return Bytes(std::istreambuf_iterator<char>(f), {});
}

struct Captured {
    std::vector<MsgType> types;
    std::vector<Message> updates;  // Route Monitoring messages, in order (no views in them)
    Message peer_up;               // its views are not used
    std::vector<Message> others;   // Statistics Report and Peer Down
};

Captured parse_capture(const std::string &name) {
    Captured c;
    const Bytes stream = read_file(name);
    Framer f;
    f.feed(stream);
    std::span<const uint8_t> bytes;
    while (!f.next(bytes)) {
        Message m;
        const BmpError e = parse_message(bytes, m);
        EXPECT_FALSE(e) << bmp_strerror(e.code) << " at " << e.offset;
        c.types.push_back(m.type);
        EXPECT_TRUE(m.update.attr_faults.empty());
        if (m.type == MsgType::RouteMonitoring) c.updates.push_back(m);
        if (m.type == MsgType::PeerUp) c.peer_up = m;
        if (m.type == MsgType::StatisticsReport || m.type == MsgType::PeerDown) c.others.push_back(m);
    }
    EXPECT_EQ(f.buffered(), 0u) << "the capture ends on a message boundary";
    return c;
}

Rd rd_ip(uint16_t n) { return {0, 1, 192, 0, 2, 1, uint8_t(n >> 8), uint8_t(n)}; }
constexpr uint64_t rt(uint32_t evi) { return 0x0002fde800000000ull | evi; }

// The routes both captures hold, in order; labels: whether the stream
// carries the labels (FRR's pre-policy export writes them as zero).
void expect_the_captured_routes(const Captured &c, bool labels) {
    ASSERT_EQ(c.updates.size(), 15u);
    const uint8_t reach_types[] = {2, 2, 2, 2, 3, 3, 1, 1, 4, 5};
    const uint8_t unreach_types[] = {2, 3, 1, 4, 5};
    for (size_t i = 0; i < 15; i++) {
        const Update &u = c.updates[i].update;
        SCOPED_TRACE(i);
        ASSERT_EQ(u.reach.size() + u.unreach.size(), 1u);
        if (i < 10) {
            EXPECT_EQ(u.reach.at(0).route_type, reach_types[i]);
            EXPECT_EQ(u.attrs.next_hop, ip4(192, 0, 2, 1));
        } else {
            EXPECT_EQ(u.unreach.at(0).route_type, unreach_types[i - 10]);
        }
    }
    auto reach = [&](size_t i) -> const EvpnNlri & { return c.updates[i].update.reach.at(0); };
    auto attrs = [&](size_t i) -> const RouteAttrs & { return c.updates[i].update.attrs; };

    EXPECT_EQ(reach(0).mac, (Mac{0x02, 0x00, 0x5e, 0x10, 0x20, 0x30}));
    EXPECT_EQ(reach(0).ip, ip4(10, 1, 1, 7));
    EXPECT_EQ(reach(0).rd, rd_ip(100));
    EXPECT_EQ(reach(0).label[0], labels ? 10100u : 0u);
    EXPECT_EQ(attrs(0).route_targets, std::vector<uint64_t>{rt(100)});
    EXPECT_TRUE(attrs(0).has_encap);
    EXPECT_EQ(attrs(0).encap, 8);

    EXPECT_EQ(reach(1).ip.len, 0);
    EXPECT_EQ(reach(1).esi, (Esi{1, 0x02, 0x00, 0x5e, 0x00, 0x00, 0xaa, 0x00, 0x64, 0x00}));
    EXPECT_TRUE(attrs(1).has_router_mac);
    EXPECT_EQ(attrs(1).router_mac, (Mac{0x02, 0x00, 0x5e, 0x00, 0x00, 0x01}));

    EXPECT_EQ(reach(2).ip, ip6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 7}));
    EXPECT_EQ(reach(2).rd, rd_ip(200));
    EXPECT_EQ(attrs(2).route_targets, std::vector<uint64_t>{rt(200)});

    EXPECT_TRUE(attrs(3).default_gateway);
    EXPECT_FALSE(attrs(3).has_encap);

    EXPECT_EQ(reach(4).ip, ip4(192, 0, 2, 1));
    EXPECT_TRUE(attrs(4).has_pmsi);
    EXPECT_EQ(attrs(4).pmsi_tunnel_type, 6);
    EXPECT_EQ(attrs(4).pmsi_label, 10100u);
    EXPECT_EQ(attrs(4).pmsi_endpoint, ip4(192, 0, 2, 1));
    EXPECT_FALSE(attrs(5).has_pmsi);
    EXPECT_EQ(reach(5).rd, rd_ip(200));

    const Esi esi = {0, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99};
    EXPECT_EQ(reach(6).esi, esi);
    EXPECT_EQ(reach(6).ethernet_tag, 0u);
    EXPECT_EQ(reach(7).esi, esi);
    EXPECT_EQ(reach(7).ethernet_tag, 0xffffffffu);
    EXPECT_EQ(reach(7).rd, rd_ip(1));
    EXPECT_TRUE(attrs(7).has_esi_label);
    EXPECT_EQ(attrs(7).esi_label, 100u);
    EXPECT_EQ(attrs(7).esi_label_flags & 1, 0) << "all-active";

    EXPECT_EQ(reach(8).esi, esi);
    EXPECT_EQ(reach(8).ip, ip4(192, 0, 2, 1));

    EXPECT_EQ(reach(9).ip, ip4(10, 20, 0, 0));
    EXPECT_EQ(reach(9).ip_prefix_len, 24);
    EXPECT_EQ(reach(9).rd, rd_ip(300));
    EXPECT_TRUE(attrs(9).has_router_mac);

    EXPECT_EQ(c.updates[10].update.unreach[0].mac, reach(0).mac);
}

TEST(BmpCaptured, GobgpdLocRibStreamParsesWhole) {
    const Captured c = parse_capture("gobgpd_locrib.bmp");
    ASSERT_FALSE(c.types.empty());
    EXPECT_EQ(c.types[0], MsgType::Initiation);
    for (const Message &m : c.updates) {
        EXPECT_EQ(m.peer.type, PeerType::LocRib);
        EXPECT_EQ(m.peer.as, 65000u);
    }
    expect_the_captured_routes(c, true);
}

TEST(BmpCaptured, FrrPrePolicyStreamParsesWhole) {
    const Captured c = parse_capture("frr_prepolicy.bmp");
    const std::vector<MsgType> head = {MsgType::Initiation, MsgType::PeerDown, MsgType::PeerDown, MsgType::PeerUp};
    ASSERT_GE(c.types.size(), head.size());
    EXPECT_EQ(std::vector<MsgType>(c.types.begin(), c.types.begin() + 4), head);
    EXPECT_EQ(c.peer_up.peer.address, ip4(127, 0, 0, 2));
    EXPECT_EQ(c.peer_up.peer_up.local_address, ip4(127, 0, 0, 1));
    EXPECT_TRUE(c.peer_up.peer_up.four_octet_as);
    EXPECT_EQ(c.peer_up.peer_up.received_open_as, 65000u);
    for (const Message &m : c.updates) EXPECT_EQ(peer_key(m.peer), peer_key(c.peer_up.peer));
    expect_the_captured_routes(c, false);
}

// gobgpd learning from another gobgpd, pre-policy (capture_gobgpd_prepolicy.sh
// says what it holds): an MPLS label, two labels, IPv6 prefixes, gobgpd's
// statistics and the peer's end.
TEST(BmpCaptured, GobgpdPrePolicyStreamParsesWholeWithStatisticsAndPeerDown) {
    const Captured c = parse_capture("gobgpd_prepolicy.bmp");
    using T = MsgType;
    EXPECT_EQ(c.types, (std::vector<T>{T::Initiation, T::PeerUp, T::RouteMonitoring, T::RouteMonitoring,
                                       T::RouteMonitoring, T::RouteMonitoring, T::StatisticsReport,
                                       T::RouteMonitoring, T::PeerDown}));
    ASSERT_EQ(c.updates.size(), 5u);
    for (const Message &m : c.updates) {
        EXPECT_EQ(m.peer.type, PeerType::Global);
        EXPECT_EQ(m.peer.address, ip4(127, 0, 0, 2));
    }
    auto reach = [&](size_t i) -> const EvpnNlri & { return c.updates[i].update.reach.at(0); };
    auto attrs = [&](size_t i) -> const RouteAttrs & { return c.updates[i].update.attrs; };
    EXPECT_EQ(reach(0).label[0], 16001u);  // gobgpd writes an MPLS label unshifted
    EXPECT_EQ(attrs(0).encap, 10);
    EXPECT_EQ(attrs(0).next_hop, ip4(127, 0, 0, 2));
    EXPECT_EQ(reach(1).ip, ip6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 0x41}));
    EXPECT_EQ(reach(1).label_count, 2);
    EXPECT_EQ(reach(1).label[1], 50011u);
    EXPECT_EQ(attrs(1).router_mac, (Mac{0x02, 0x00, 0x5e, 0x00, 0x00, 0x02}));
    EXPECT_EQ(attrs(2).pmsi_label, 10011u);
    EXPECT_EQ(reach(3).route_type, 5);
    EXPECT_EQ(reach(3).ip, ip6({0x2001, 0xdb8, 5, 0, 0, 0, 0, 0}));
    EXPECT_EQ(reach(3).ip_prefix_len, 64);
    EXPECT_EQ(reach(3).gateway, ip6({0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(attrs(3).route_targets, std::vector<uint64_t>{rt(12)});
    EXPECT_EQ(c.updates[4].update.unreach.at(0).mac, reach(0).mac);

    ASSERT_EQ(c.others.size(), 2u);
    std::map<uint16_t, uint64_t> stats;
    for (const StatEntry &s : c.others[0].stats) stats[s.type] = s.value;
    EXPECT_EQ(stats, (std::map<uint16_t, uint64_t>{{7, 4}, {8, 4}, {11, 0}, {12, 0}}));  // 4 routes in, 64-bit gauges
    EXPECT_EQ(c.others[1].peer_down.reason, 3);
    EXPECT_EQ(peer_key(c.others[1].peer), peer_key(c.peer_up.peer));
}

}  // namespace
