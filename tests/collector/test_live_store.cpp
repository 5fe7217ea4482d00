// The live store: advertisers of a route, withdraws, peers and sessions
// going away, transactions readers see whole, and the file it leaves.
#include <sqlite3.h>
#include <unistd.h>

#include <sys/stat.h>

#include <atomic>
#include <set>
#include <fstream>
#include <thread>

#include "collector_test.h"
#include "sysdb_writer.h"

namespace {

using namespace ctest;
using Rows = std::vector<std::string>;

constexpr uint32_t mpls(uint32_t label) { return label << 4 | 1; }

const bmp::RouteAttrs kPe1 = attrs(v4(192, 0, 2, 1), {rt2(65000, 100)});
const bmp::RouteAttrs kPe2 = attrs(v4(192, 0, 2, 2), {rt2(65000, 100)});

Rows mac_rows(const Store &s) { return rows(show(s.db, {"0"}), "100 "); }

std::string row(const char *mac, const char *nexthop, const char *label) {
    char buf[256];
    snprintf(buf, sizeof buf, "100        MPLS       %-14s %-40s %-39s %s", mac, "::", nexthop, label);
    return buf;
}

TEST(LiveStore, EachAdvertiserOfARouteIsAPathAndLeavesOnlyItsOwn) {
    Store s;
    const bmp::EvpnNlri from1 = mac_route(rd_ip(1, 100), 1, {}, mpls(16001));
    const bmp::EvpnNlri from2 = mac_route(rd_ip(2, 100), 1, {}, mpls(16002));
    s.apply(update(peer(1), {from1}, kPe1));
    s.apply(update(peer(2), {from2}, kPe2));
    // The same route again from a second BMP session's view of PE1: no second path.
    const uint32_t other = s.store->session_open("192.0.2.200");
    s.apply(update(peer(1), {from1}, kPe1), other);
    EXPECT_EQ(mac_rows(s), (Rows{row("0011.2233.4401", "192.0.2.1", "16001"),
                                 row("0011.2233.4401", "192.0.2.2", "16002")}));
    // Peer 1 goes down in the first session; the other session still has its route.
    s.apply(peer_message(bmp::MsgType::PeerDown, peer(1)));
    EXPECT_EQ(mac_rows(s).size(), 2u);
    std::string err;
    ASSERT_TRUE(s.store->session_close(other, err)) << err;
    EXPECT_EQ(mac_rows(s), (Rows{row("0011.2233.4401", "192.0.2.2", "16002")}));
    // A re-announcement replaces the advertiser's path; its withdraw takes the record.
    s.apply(update(peer(2), {mac_route(rd_ip(2, 100), 1, {}, mpls(16003))}, kPe2));
    EXPECT_EQ(mac_rows(s), (Rows{row("0011.2233.4401", "192.0.2.2", "16003")}));
    s.apply(update(peer(2), {}, {}, {from2}));
    EXPECT_EQ(mac_rows(s), Rows{});
    EXPECT_NE(show(s.db, {"7"}).find("Number of Remote MAC Routes        : 0\n"), std::string::npos);
    EXPECT_NE(show(s.db, {"7"}).find("Number of EVIs                     : 0\n"), std::string::npos);
    EXPECT_EQ(rows(show(s.db, {"-p", "4"}), " Route"), Rows{});
}

TEST(LiveStore, TreatAsWithdrawTakesTheUpdatesAnnouncedRoutes) {
    Store s;
    s.apply(update(peer(1), {mac_route(rd_ip(1, 100), 1, {}, mpls(1)), mac_route(rd_ip(1, 100), 2, {}, mpls(1))},
                   kPe1));
    bmp::Message bad = update(peer(1), {mac_route(rd_ip(1, 100), 1, {}, mpls(1))}, kPe1);
    bad.update.treat_as_withdraw = true;
    bad.update.attr_faults.push_back({16, bmp::FaultAction::TreatAsWithdraw, 57, "bad length"});
    s.apply(bad);
    EXPECT_EQ(mac_rows(s), (Rows{row("0011.2233.4402", "192.0.2.1", "1")}));
    EXPECT_EQ(s.store->counters().treat_as_withdraw, 1u);
    ASSERT_EQ(s.log.size(), 1u);
    EXPECT_EQ(s.log[0], "peer 192.0.2.1 AS 65001: path attribute 16 at byte 57: bad length; "
                        "routes treated as withdrawn");
}

TEST(LiveStore, SessionCloseEmptiesTheStoreAndAReconnectFillsItAgain) {
    Store s;
    bmp::Message up = peer_message(bmp::MsgType::PeerUp, peer(1));
    const bmp::Message routes =
        update(peer(1), {mac_route(rd_ip(1, 100), 1, {}, mpls(5)), mac_route(rd_ip(1, 100), 2, {}, mpls(5))}, kPe1);
    s.apply(up);
    s.apply(routes);
    std::string err;
    ASSERT_TRUE(s.store->session_close(s.session, err)) << err;
    EXPECT_EQ(mac_rows(s), Rows{});
    EXPECT_EQ(rows(show(s.db, {"8"}), "100"), Rows{});
    EXPECT_FALSE(s.store->apply(s.session, routes, err)) << "a closed session takes no message";
    s.session = s.store->session_open("192.0.2.100");
    s.apply(up);
    s.apply(routes);
    EXPECT_EQ(mac_rows(s).size(), 2u);
}

TEST(LiveStore, RoutesWithoutAnEviAreCountedLoggedOnceAndNotStored) {
    Store s;
    const bmp::RouteAttrs none = attrs(v4(192, 0, 2, 1), {});
    s.apply(update(peer(1), {mac_route(rd_ip(1, 100), 1, {}, mpls(1)), mac_route(rd_ip(1, 100), 2, {}, mpls(1))},
                   none));
    s.apply(update(peer(1), {mac_route(rd_ip(1, 100), 3, {}, mpls(1))}, none));
    EXPECT_EQ(s.store->counters().routes_unmapped, 3u);
    EXPECT_EQ(s.log, (std::vector<std::string>{
                         "peer 192.0.2.1 AS 65001: 2 route(s) with no EVI (route targets: none); not "
                         "stored; map them with --evi-map"}));
    // A route that loses its route target leaves the EVI it had.
    s.apply(update(peer(1), {mac_route(rd_ip(1, 100), 4, {}, mpls(1))}, kPe1));
    EXPECT_EQ(mac_rows(s).size(), 1u);
    s.apply(update(peer(1), {mac_route(rd_ip(1, 100), 4, {}, mpls(1))}, none));
    EXPECT_EQ(mac_rows(s), Rows{});
}

TEST(LiveStore, AMapFileGivesRouteTargetsTheirEvi) {
    TempDir dir;
    const std::string map = dir.path + "/evi.map";
    std::ofstream(map) << "65000:7 4242\n";
    collector::LiveStoreOptions o;
    o.evi_map = map;
    Store s(o);
    s.apply(update(peer(1), {mac_route(rd_ip(1, 100), 1, {}, mpls(9))},
                   attrs(v4(192, 0, 2, 1), {rt2(65000, 7)})));
    EXPECT_EQ(rows(show(s.db, {"0"}), "4242 ").size(), 1u);
    std::ofstream(map) << "65000:7\n";
    std::string err;
    o.db = dir.path + "/other.db";
    EXPECT_FALSE(collector::LiveStore::open(o, err));
    EXPECT_EQ(err, map + ":1:8: an EVI is missing after the route target");
}

TEST(LiveStore, OpeningAStoreDropsWhatAnEarlierRunLeftAndKeepsTheRest) {
    TempDir dir;
    collector::LiveStoreOptions o;
    o.db = dir.path + "/live.db";
    std::string err;
    {
        auto store = collector::LiveStore::open(o, err);
        ASSERT_TRUE(store) << err;
        const uint32_t session = store->session_open("r");
        ASSERT_TRUE(store->apply(session, update(peer(1), {mac_route(rd_ip(1, 100), 1, {}, mpls(9))}, kPe1), err));
        // Destroyed without a flush: what is pending is committed.
    }
    EXPECT_EQ(rows(show(o.db, {"0"}), "100 ").size(), 1u);
    {
        auto store = collector::LiveStore::open(o, err);
        ASSERT_TRUE(store) << err;
        EXPECT_EQ(rows(show(o.db, {"0"}), "100 "), Rows{});
    }
    // Not a store of ours: refused, left as it was.
    const std::string other = dir.path + "/notes.txt";
    std::ofstream(other) << "hello\n";
    o.db = other;
    EXPECT_FALSE(collector::LiveStore::open(o, err));
    EXPECT_NE(err.find("is not an EVPN operational database"), std::string::npos) << err;
}

TEST(LiveStore, ALiveStoreDumpsToASnapshotThatLoadsBack) {
    Store s;
    s.apply(update(peer(1), {mac_route(rd_ip(1, 100), 1, v4(10, 0, 0, 1), mpls(9))}, kPe1));
    s.apply(update(peer(2), {mac_route(rd_ip(2, 100), 1, v4(10, 0, 0, 1), mpls(8))}, kPe2));
    const std::string json = s.dir.path + "/s.json", copy = s.dir.path + "/copy.db";
    subprocess::Run dump = subprocess::run({"/bin/sh", "-c", std::string(EVPN_SYSDB_BIN) + " dump --db " + s.db + " > " + json});
    ASSERT_EQ(dump.status, 0) << dump.err;
    subprocess::Run load = subprocess::run({EVPN_SYSDB_BIN, "load", json, "--db", copy});
    ASSERT_EQ(load.status, 0) << load.err;
    for (const char *cmd : {"0", "5", "7", "8"}) EXPECT_EQ(show(copy, {cmd}), show(s.db, {cmd})) << cmd;
    EXPECT_EQ(show(copy, {"-p", "4"}), show(s.db, {"-p", "4"}));
}

// The same messages through a commit after every message and through one
// transaction for all of them: the stores dump the same, and that dump
// loads back into a store that dumps the same again.
TEST(LiveStore, TheStoreIsTheSameWhateverTheTransactionSizeAndLoadsBackFromItsDump) {
    auto stream = [](Store &s) {
        std::string err;
        auto routes = [](uint8_t pe, uint32_t label, int first, int count) {
            std::vector<bmp::EvpnNlri> out;
            for (int i = first; i < first + count; i++) {
                bmp::EvpnNlri n = mac_route(rd_ip(pe, 100), 0, v4(10, 0, uint8_t(i >> 8), uint8_t(i)), mpls(label));
                n.mac[4] = static_cast<uint8_t>(i >> 8);
                n.mac[5] = static_cast<uint8_t>(i);
                out.push_back(n);
            }
            return out;
        };
        std::vector<bmp::Message> msgs;
        // 40 routes over 8 EVIs from two routers, one route a message.
        for (int i = 0; i < 40; i++)
            for (uint8_t pe : {uint8_t(1), uint8_t(2)})
                msgs.push_back(update(peer(pe), routes(pe, 100 + pe, i, 1),
                                      attrs(v4(192, 0, 2, pe), {rt2(65000, 100 + uint32_t(i % 8))})));
        // Router 1 relabels a third, withdraws another third; router 2 goes down.
        for (int i = 0; i < 40; i += 3) {
            const bmp::RouteAttrs a = attrs(v4(192, 0, 2, 1), {rt2(65000, 100 + uint32_t(i % 8))});
            msgs.push_back(update(peer(1), routes(1, 500, i, 1), a));
            msgs.push_back(update(peer(1), {}, a, routes(1, 0, i + 1, 1)));
        }
        msgs.push_back(peer_message(bmp::MsgType::PeerDown, peer(2)));
        for (const bmp::Message &m : msgs) ASSERT_TRUE(s.store->apply(s.session, m, err)) << err;
        ASSERT_TRUE(s.store->flush(err)) << err;
    };
    auto dump = [](const std::string &db) {
        subprocess::Run r = subprocess::run({EVPN_SYSDB_BIN, "dump", "--db", db});
        EXPECT_EQ(r.status, 0) << r.err;
        return r.out;
    };
    EachAndAll stores(stream);
    Store &small = stores.small, &large = stores.large;
    const std::string got = dump(small.db);
    EXPECT_NE(got.find("evpn_mac"), std::string::npos);
    EXPECT_EQ(dump(large.db), got);
    const std::string json = small.dir.path + "/s.json", copy = small.dir.path + "/copy.db";
    std::ofstream(json) << got;
    subprocess::Run load = subprocess::run({EVPN_SYSDB_BIN, "load", json, "--db", copy});
    ASSERT_EQ(load.status, 0) << load.err;
    EXPECT_EQ(dump(copy), got);
    EXPECT_EQ(show(copy, {"7"}), show(small.db, {"7"}));
}

// Routes taken EVI after EVI in turn, each EVI with attributes of its own
// (its route target), as a router walking its table by EVI does not send
// them: the derived records (EVIs, RDs, route targets, neighbors, tunnel
// endpoints with their ids) come out the same whether every message is
// committed or all of them are, with endpoints that go and come back, and
// appear, inside the one transaction.
TEST(LiveStore, DerivedRecordsAreTheSameWhenRoutesOfManyEvisInterleave) {
    auto stream = [](Store &s) {
        std::string err;
        auto vxlan = [](uint32_t evi, uint8_t nh) {
            bmp::RouteAttrs a = attrs(v4(192, 0, 2, nh), {rt2(65000, evi)});
            a.has_encap = true;
            a.encap = 8;
            return a;
        };
        auto route = [](uint8_t pe, uint32_t evi, int i) {
            bmp::EvpnNlri n = mac_route(rd_ip(pe, uint16_t(evi)), 0, v4(10, uint8_t(evi), 0, uint8_t(i)), 10000 + evi);
            n.mac[3] = static_cast<uint8_t>(evi);
            n.mac[4] = pe;
            n.mac[5] = static_cast<uint8_t>(i);
            return n;
        };
        std::vector<bmp::Message> msgs;
        // 48 routes from three routers over 8 EVIs, the EVIs in turn.
        for (int i = 0; i < 48; i++) {
            const uint8_t pe = uint8_t(1 + i % 3);
            const uint32_t evi = 100 + uint32_t(i % 8);
            msgs.push_back(update(peer(pe), {route(pe, evi, i)}, vxlan(evi, pe)));
        }
        // Router 2 withdraws all of its routes (its endpoint goes), then
        // announces two again (the endpoint comes back, with a new id);
        // router 3 moves to a next hop never seen (a new endpoint).
        for (int i = 1; i < 48; i += 3) {
            const uint32_t evi = 100 + uint32_t(i % 8);
            msgs.push_back(update(peer(2), {}, vxlan(evi, 2), {route(2, evi, i)}));
        }
        msgs.push_back(update(peer(2), {route(2, 101, 100)}, vxlan(101, 2)));
        msgs.push_back(update(peer(2), {route(2, 102, 101)}, vxlan(102, 2)));
        for (int i = 2; i < 48; i += 6) {
            const uint32_t evi = 100 + uint32_t(i % 8);
            msgs.push_back(update(peer(3), {route(3, evi, i)}, vxlan(evi, 9)));
        }
        for (const bmp::Message &m : msgs) ASSERT_TRUE(s.store->apply(s.session, m, err)) << err;
        ASSERT_TRUE(s.store->flush(err)) << err;
    };
    EachAndAll stores(stream);
    Store &small = stores.small, &large = stores.large;
    for (const char *command : {"5", "8", "10", "7"}) {
        const std::string want = show(small.db, {"-d", command});
        EXPECT_EQ(show(large.db, {"-d", command}), want) << "command " << command;
    }
    subprocess::Run a = subprocess::run({EVPN_SYSDB_BIN, "dump", "--db", small.db}),
                    b = subprocess::run({EVPN_SYSDB_BIN, "dump", "--db", large.db});
    ASSERT_EQ(a.status, 0) << a.err;
    EXPECT_NE(a.out.find("192.0.2.9"), std::string::npos) << "the new endpoint is stored";
    EXPECT_EQ(b.out, a.out);
}

// A reader with no write permission anywhere near the store lists MAC routes
// while each UPDATE replaces all of them with one new label: every listing
// shows the routes of one UPDATE, all of them.
TEST(LiveStore, AReaderWithoutWritePermissionSeesWholeUpdatesOnly) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to run the reader as another user";
    ASSERT_EQ(access("/usr/bin/setpriv", X_OK), 0) << "setpriv is missing: apt-get install util-linux";
    collector::LiveStoreOptions o;
    o.batch_max_changes = 1;  // a commit after every message
    Store s(o);
    constexpr int kRoutes = 300;
    auto generation = [&](uint32_t label) {
        std::vector<bmp::EvpnNlri> routes;
        for (int i = 0; i < kRoutes; i++) {
            bmp::EvpnNlri n = mac_route(rd_ip(1, 100), 0, {}, mpls(label));
            n.mac[4] = static_cast<uint8_t>(i >> 8);
            n.mac[5] = static_cast<uint8_t>(i);
            routes.push_back(n);
        }
        return update(peer(1), routes, kPe1);
    };
    s.apply(generation(1000));
    std::atomic<bool> done{false};
    std::thread writer([&] {
        std::string err;
        for (uint32_t label = 1001; label < 1400 && !done; label++)
            if (!s.store->apply(s.session, generation(label), err)) ADD_FAILURE() << err;
        done = true;
    });
    int listings = 0;
    std::set<std::string> labels_seen;
    while (!done || listings < 3) {
        subprocess::Run r = subprocess::run(
            {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", EVPN_CLIENT_BIN, "0"},
            {"EVPN_SYSDB=" + s.db});
        ASSERT_EQ(r.status, 0) << r.err;
        const Rows got = rows(r.out, "100 ");
        ASSERT_EQ(got.size(), static_cast<size_t>(kRoutes));
        const std::string label = got[0].substr(got[0].rfind(' ') + 1);
        for (const std::string &line : got) ASSERT_EQ(line.substr(line.rfind(' ') + 1), label) << line;
        labels_seen.insert(label);
        listings++;
    }
    done = true;
    writer.join();
    EXPECT_GE(labels_seen.size(), 2u) << "the reader never ran while the writer wrote";
    // The file stays read-only for the reader: it has not written a byte.
    struct stat st;
    ASSERT_EQ(stat((s.db + "-shm").c_str(), &st), 0) << "the collector keeps the -shm while it runs";
    EXPECT_EQ(st.st_uid, 0u);
}

TEST(LiveStore, TheStoreLeftBehindIsReadableWithoutItsLogFiles) {
    TempDir dir;
    collector::LiveStoreOptions o;
    o.db = dir.path + "/live.db";
    std::string err;
    {
        auto store = collector::LiveStore::open(o, err);
        ASSERT_TRUE(store) << err;
        const uint32_t session = store->session_open("r");
        ASSERT_TRUE(store->apply(session, update(peer(1), {mac_route(rd_ip(1, 100), 1, {}, mpls(9))}, kPe1), err));
    }
    EXPECT_NE(access((o.db + "-wal").c_str(), F_OK), 0);
    EXPECT_NE(access((o.db + "-shm").c_str(), F_OK), 0);
    if (geteuid() == 0) {
        subprocess::Run r = subprocess::run(
            {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", EVPN_CLIENT_BIN, "0"},
            {"EVPN_SYSDB=" + o.db});
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(rows(r.out, "100 ").size(), 1u);
    }
}

}  // namespace
