// Synthetic data: the same seed gives the same database, the snapshot form
// loads back to that database, and what lands in the store decodes and
// carries the promised counts and keys.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "generator.h"
#include "platform/bag_types.h"
#include "platform/sysdb_registry.h"
#include "platform/sysdb_schema.h"
#include "snapshot.h"
#include "sysdb_writer.h"

namespace {

std::string temp_db(const char *tag) {
    return "/tmp/evpn_gen_test_" + std::to_string(getpid()) + "_" + tag + ".db";
}

struct Generated {
    std::string db, snapshot;
    evpn::GenCounts counts;
};

Generated make(const evpn::GenOptions &opt, const char *tag) {
    Generated g;
    g.db = temp_db(tag);
    unlink(g.db.c_str());
    std::string err;
    auto w = evpn::SysdbWriter::open(g.db, err);
    EXPECT_TRUE(w) << err;
    std::ostringstream json;
    EXPECT_TRUE(evpn::generate(opt, w.get(), &json, err, &g.counts)) << err;
    EXPECT_TRUE(w->commit(err)) << err;
    g.snapshot = json.str();
    return g;
}

std::string dump(const std::string &db) {
    std::ostringstream out;
    std::string err;
    EXPECT_TRUE(evpn::dump_snapshot(db, out, err)) << err;
    return out.str();
}

// (name, data) of every item of a listing below the global root, in key order.
std::vector<std::pair<std::string, std::string>> items(const std::string &db, const char *path) {
    std::vector<std::pair<std::string, std::string>> out;
    sqlite3 *h = nullptr;
    sqlite3_open_v2(db.c_str(), &h, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt *s = nullptr;
    sqlite3_prepare_v2(h,
                       "SELECT i.name, i.data FROM item i JOIN " SYSDB_LISTINGS " l ON l.id = i.list "
                       "WHERE l.root = '/oper/evpn/gl/' AND l.path = ?1 ORDER BY i.skey",
                       -1, &s, nullptr);
    sqlite3_bind_text(s, 1, path, -1, SQLITE_STATIC);
    while (sqlite3_step(s) == SQLITE_ROW) {
        std::string data;
        EXPECT_TRUE(sysdb_schema::unpack_record(sqlite3_column_blob(s, 1),
                                                static_cast<size_t>(sqlite3_column_bytes(s, 1)),
                                                BAG_MAX_RECORD, data));
        out.emplace_back(reinterpret_cast<const char *>(sqlite3_column_text(s, 0)), data);
    }
    sqlite3_finalize(s);
    sqlite3_close(h);
    return out;
}

// "root path hex(ikey)" of every index row, in that order.
std::vector<std::string> index_rows(const std::string &db) {
    std::vector<std::string> out;
    sqlite3 *h = nullptr;
    sqlite3_open_v2(db.c_str(), &h, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt *s = nullptr;
    sqlite3_prepare_v2(h,
                       "SELECT l.root || ' ' || l.path || ' ' || hex(i.ikey) FROM item_index i "
                       "JOIN " SYSDB_LISTINGS " l ON l.id = i.list ORDER BY l.root, l.path, i.ikey",
                       -1, &s, nullptr);
    while (sqlite3_step(s) == SQLITE_ROW) out.emplace_back(reinterpret_cast<const char *>(sqlite3_column_text(s, 0)));
    sqlite3_finalize(s);
    sqlite3_close(h);
    return out;
}

// (The snapshot loading back is the test of every kind below.)
TEST(Generator, SameSeedSameData) {
    evpn::GenOptions opt{1500, 12, 7};
    Generated a = make(opt, "a"), b = make(opt, "b");
    std::string dump_a = dump(a.db);
    EXPECT_EQ(dump_a, dump(b.db));
    EXPECT_EQ(a.snapshot, b.snapshot);
    opt.seed = 8;
    Generated c = make(opt, "c");
    EXPECT_NE(dump(c.db), dump_a);
    for (const std::string &f : {a.db, b.db, c.db}) unlink(f.c_str());
}

TEST(Generator, RoutesDecodeAndSpreadEvenlyOverTheEvis) {
    // 1001 routes over 7 EVIs: 143 each.
    Generated g = make({1001, 7, 3}, "counts");
    auto macs = items(g.db, "evpn_evi_detail/evi_child_container/evpn_mac");
    ASSERT_EQ(macs.size(), 1001u);
    EXPECT_EQ(g.counts.routes, 1001u);
    EXPECT_EQ(g.counts.local + g.counts.remote, 1001u);

    std::map<uint32_t, int> per_evi;
    uint64_t local = 0, paths = 0, with_ip = 0, multihomed = 0;
    std::vector<uint64_t> buf(bag_desc_l2vpn_evpn_mac_bag.size / 8 + 1);
    for (const auto &[name, data] : macs) {
        ASSERT_EQ(bag_decode(data.data(), static_cast<uint32_t>(data.size()), buf.data(),
                             static_cast<uint32_t>(buf.size() * 8), &bag_desc_l2vpn_evpn_mac_bag),
                  0u)
            << name;
        const auto &r = *reinterpret_cast<const l2vpn_evpn_mac_bag *>(buf.data());
        per_evi[r.evi]++;
        EXPECT_EQ(std::string(r.bd_name), "bd-" + std::to_string(r.evi)) << name;
        EXPECT_TRUE(r.local || r.remote) << name;
        if (r.remote) {
            EXPECT_GE(r.path_buffer.count, 1u) << name;
            EXPECT_LE(r.path_buffer.count, 4u) << name;
        } else {
            EXPECT_EQ(r.path_buffer.count, 0u) << name;
        }
        for (uint32_t i = 0; i < r.path_buffer.count; i++) {
            const EvpnPath &p = r.path_buffer.data[i];
            EXPECT_NE(p.OutputLabel, 0u) << name;
            EXPECT_EQ(p.SRv6_SIDInfo.count != 0, r.encap == 255) << name;
        }
        local += r.local != 0;
        paths += r.path_buffer.count;
        static const uint8_t zero[16] = {};
        with_ip += memcmp(r.ip_address.bytes, zero, 16) != 0;
        multihomed += strcmp(r.local_esi, "0000.0000.0000.0000.0000") != 0 ||
                      strcmp(r.remote_esi, "0000.0000.0000.0000.0000") != 0;
        bag_free_indirections(buf.data(), &bag_desc_l2vpn_evpn_mac_bag);
    }
    ASSERT_EQ(per_evi.size(), 7u);
    for (const auto &[evi, n] : per_evi) EXPECT_EQ(n, 143) << "EVI " << evi;
    EXPECT_EQ(local, g.counts.local);
    EXPECT_EQ(paths, g.counts.paths);
    EXPECT_EQ(with_ip, g.counts.ipv4 + g.counts.ipv6);
    // The mix is there: roughly 30% local, some MAC/IP, SRv6 and multi-homing.
    EXPECT_GT(local, 200u);
    EXPECT_LT(local, 450u);
    EXPECT_GT(with_ip, 100u);
    EXPECT_GT(multihomed, 20u);

    EXPECT_EQ(items(g.db, "evpn_evi").size(), 7u);
    auto summary = items(g.db, "summary");
    ASSERT_EQ(summary.size(), 1u);
    std::vector<uint64_t> sbuf(bag_desc_l2vpn_evpn_summary_bag.size / 8 + 1);
    ASSERT_EQ(bag_decode(summary[0].second.data(), static_cast<uint32_t>(summary[0].second.size()),
                         sbuf.data(), static_cast<uint32_t>(sbuf.size() * 8),
                         &bag_desc_l2vpn_evpn_summary_bag),
              0u);
    const auto &s = *reinterpret_cast<const l2vpn_evpn_summary_bag *>(sbuf.data());
    EXPECT_EQ(s.evi_count, 7u);
    EXPECT_EQ(s.local_mac_count + s.remote_mac_count, 1001u);
    bag_free_indirections(sbuf.data(), &bag_desc_l2vpn_evpn_summary_bag);
    unlink(g.db.c_str());
}

// Every kind fills its own listing with as many records as asked, each one
// decoding, and the snapshot of the whole loads back to the same database.
// Asking for other kinds leaves the MAC routes as they were.
TEST(Generator, EveryKindFillsItsListingWithDecodableRecordsAndLeavesTheRoutesAlone) {
    evpn::GenOptions opt{400, 7, 5};
    Generated routes_only = make(opt, "routes");
    for (unsigned k = 0; k < evpn::GEN_KIND_COUNT; k++) opt.count[k] = 300 + k;
    Generated g = make(opt, "kinds");
    EXPECT_EQ(items(g.db, "evpn_evi_detail/evi_child_container/evpn_mac"),
              items(routes_only.db, "evpn_evi_detail/evi_child_container/evpn_mac"));

    for (unsigned k = 0; k < evpn::GEN_KIND_COUNT; k++) {
        const evpn::GenKindInfo &kind = evpn::kGenKinds[k];
        const ListingDef *def = sysdb_registry_find(kind.base);
        ASSERT_NE(def, nullptr) << kind.name;
        auto listed = items(g.db, kind.base);
        EXPECT_EQ(listed.size(), 300u + k) << kind.name;
        // Segments carry carving lists of at least one EVI each; the
        // benchmark divides by these entries.
        if (std::string(kind.name) == "es") {
            EXPECT_GT(g.counts.list_entries[k], 300u + k);
        }
        std::vector<uint64_t> buf(def->desc->size / 8 + 1);
        for (const auto &[name, data] : listed) {
            ASSERT_EQ(bag_decode(data.data(), static_cast<uint32_t>(data.size()), buf.data(),
                                 static_cast<uint32_t>(buf.size() * 8), def->desc),
                      0u)
                << kind.name << " " << name;
            bag_free_indirections(buf.data(), def->desc);
        }
    }

    std::string loaded = temp_db("kinds_loaded"), err;
    std::istringstream in(g.snapshot);
    evpn::LoadStats stats;
    ASSERT_TRUE(evpn::load_snapshot(in, loaded, stats, err)) << err;
    EXPECT_TRUE(dump(loaded) == dump(g.db));  // (a difference would print megabytes)
    for (const std::string &f : {routes_only.db, g.db, loaded}) unlink(f.c_str());
}

// A load holds its index rows back and stores them in key order at commit,
// each ordering's rows sorted in runs of 65,536 and merged; the live writer
// stores each row as its item comes. 70,000 routes make two runs for each
// ordering of the routes: the merge must lose, repeat and change no row.
// Every item of the store at from, decoded and handed to put(root, path, record).
template <class Put>
void copy_items(const std::string &from, Put put) {
    sqlite3 *h = nullptr;
    ASSERT_EQ(sqlite3_open_v2(from.c_str(), &h, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    sqlite3_stmt *s = nullptr;
    sqlite3_prepare_v2(h,
                       "SELECT l.root, l.path, i.data FROM item i JOIN " SYSDB_LISTINGS " l ON l.id = i.list "
                       "WHERE instr(l.path, '#') = 0 ORDER BY l.id, i.rowid",
                       -1, &s, nullptr);
    std::vector<uint64_t> buf;
    std::string data;
    while (sqlite3_step(s) == SQLITE_ROW) {
        const std::string root = reinterpret_cast<const char *>(sqlite3_column_text(s, 0));
        const std::string path = reinterpret_cast<const char *>(sqlite3_column_text(s, 1));
        const ListingDef *def = sysdb_registry_find(path);
        ASSERT_TRUE(def) << path;
        data.clear();
        ASSERT_TRUE(sysdb_schema::unpack_record(sqlite3_column_blob(s, 2),
                                                static_cast<size_t>(sqlite3_column_bytes(s, 2)),
                                                BAG_MAX_RECORD, data));
        buf.assign(def->desc->size / 8 + 1, 0);
        ASSERT_EQ(bag_decode(data.data(), static_cast<uint32_t>(data.size()), buf.data(),
                             static_cast<uint32_t>(buf.size() * 8), def->desc),
                  0u);
        put(root, path, buf.data());
        bag_free_indirections(buf.data(), def->desc);
    }
    sqlite3_finalize(s);
    sqlite3_close(h);
}

// A load holds its index rows back and stores them in key order: merged from
// sorted runs at commit, or stored by the worker whenever the held rows pass
// their limit. Either way it must leave the rows the live writer leaves,
// storing each as it comes.
TEST(Generator, ALoadLeavesTheIndexRowsTheLiveWriterLeaves) {
    Generated g = make({70000, 700, 1}, "held");  // two sorted runs an ordering
    const std::string live = temp_db("live"), capped = temp_db("capped");
    unlink(live.c_str());
    std::string err;
    {
        auto w = evpn::SysdbWriter::open_live(live, err);
        ASSERT_TRUE(w) << err;
        ASSERT_TRUE(w->begin(err)) << err;
        copy_items(g.db, [&](const std::string &root, const std::string &path, const void *record) {
            ASSERT_TRUE(w->upsert(root, path, record, err, evpn::SysdbWriter::Known::Absent)) << err;
        });
        ASSERT_TRUE(w->commit(err)) << err;
        ASSERT_TRUE(w->close(err)) << err;
    }
    {
        auto w = evpn::SysdbWriter::open(capped, err);
        ASSERT_TRUE(w) << err;
        w->hold_index_bytes(256 << 10);  // stored in key order some thirty times over
        w->store_on_caller();            // as the loader runs it: sorted at each store
        copy_items(g.db, [&](const std::string &root, const std::string &path, const void *record) {
            ASSERT_TRUE(w->add(root, path, record, err)) << err;
        });
        ASSERT_TRUE(w->commit(err)) << err;
    }
    // The loader hands its records to the writer from a thread of its own,
    // a few hundred at a time: none may be lost, repeated or moved.
    const std::string from_snapshot = temp_db("from_snapshot");
    {
        std::istringstream in(g.snapshot);
        evpn::LoadStats stats;
        ASSERT_TRUE(evpn::load_snapshot(in, from_snapshot, stats, err)) << err;
    }
    const std::vector<std::string> loaded = index_rows(g.db), reference = index_rows(live),
                                   in_pieces = index_rows(capped), parsed = index_rows(from_snapshot);
    EXPECT_GT(loaded.size(), 3u * 65536);
    EXPECT_EQ(loaded.size(), reference.size());
    EXPECT_TRUE(loaded == reference);  // (a difference would print megabytes)
    EXPECT_EQ(in_pieces.size(), reference.size());
    EXPECT_TRUE(in_pieces == reference);
    EXPECT_EQ(parsed.size(), reference.size());
    EXPECT_TRUE(parsed == reference);
    EXPECT_TRUE(dump(from_snapshot) == dump(g.db));
    for (const std::string &f : {g.db, live, capped, from_snapshot}) unlink(f.c_str());
}

TEST(Generator, NoRoutesStillGivesEvisAndSummary) {
    Generated g = make({0, 3, 1}, "empty");
    EXPECT_TRUE(items(g.db, "evpn_evi_detail/evi_child_container/evpn_mac").empty());
    EXPECT_EQ(items(g.db, "evpn_evi").size(), 3u);
    EXPECT_EQ(items(g.db, "summary").size(), 1u);
    unlink(g.db.c_str());

    std::string err;
    EXPECT_FALSE(evpn::generate({10, 0, 1}, nullptr, nullptr, err));
    EXPECT_FALSE(err.empty());
}

}  // namespace
