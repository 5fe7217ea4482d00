// Stores damaged by other means: a dump is a backup, so it names each item
// it cannot decode, writes the rest and fails at the end; with
// --skip-undecodable it leaves them out and loads back to the same
// database. A row too large to read fails only the requests that read it.
#include <gtest/gtest.h>

#include <sqlite3.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "client/test_util.h"
#include "platform/bag_types.h"
#include "platform/sysdb.h"
#include "platform/sysdb_schema.h"

namespace {

namespace fs = std::filesystem;
using spine_test::scratch;

const std::string kRoot = "/oper/evpn/gl/";

using spine_test::sql;
subprocess::Run sysdb(const std::vector<std::string> &args) { return spine_test::run_sysdb(args); }

std::string write_file(const std::string &name, const std::string &text) {
    const std::string path = scratch(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

// EVIs 1 to 5 named "QQQQ<id>"; EVI 3 stored as damage makes its encoding,
// or left out when damage is null.
std::string evis(const std::string &name, const std::function<std::string(std::string)> &damage) {
    return spine_test::evi_store(name, 5, [&](uint32_t id, std::string &enc) {
        if (id != 3) return true;
        if (!damage) return false;
        enc = damage(enc);
        return true;
    });
}

const char kItem3[] = "list = (SELECT id FROM " SYSDB_LISTINGS " WHERE path = 'evpn_evi') AND name = '0x3,0x8'";

struct Damage {
    const char *what;
    std::function<std::string(std::string)> encoding;  // of EVI 3
    std::string sql;                                   // then run on the store
    std::string reason;                                // the dump's words for it
};

const std::vector<Damage> &damages() {
    static const std::vector<Damage> all = {
        {"random bytes", [](std::string) { return std::string("\x9e\x11\x04\xff\x37\x80\x00\x5a\xc3\x21\x7f\x08", 12); },
         "", cerr_strerror(BAG_ERR_VALUE)},
        {"a flipped bit", [](std::string e) {  // 'Q' (0x51) less bit 6 is a control character
             e[e.find("QQQQ3")] ^= 0x40;
             return e; }, "", cerr_strerror(BAG_ERR_TEXT)},
        {"cut short", [](std::string e) { return e.substr(0, e.size() - 6); }, "",
         cerr_strerror(BAG_ERR_TRUNCATED)},
        {"stored data that does not unpack", [](std::string e) { return e; },
         std::string("UPDATE item SET data = x'ff0102' WHERE ") + kItem3, "stored data damaged"},
        {"a row too large to read", [](std::string e) { return e; },
         std::string("UPDATE item SET data = zeroblob(65 * 1024 * 1024) WHERE ") + kItem3,
         "too large to read"},
    };
    return all;
}

TEST(DamagedStore, TheDumpNamesAnItemItCannotDecodeWritesTheRestAndFails) {
    for (const Damage &d : damages()) {
        SCOPED_TRACE(d.what);
        const std::string db = evis("named-" + std::to_string(&d - damages().data()) + ".db", d.encoding);
        if (!d.sql.empty()) sql(db, d.sql);
        auto r = sysdb({"dump", "--db", db});
        EXPECT_EQ(r.status, 1);
        EXPECT_NE(r.err.find("evpn_sysdb: /oper/evpn/gl/ evpn_evi: item 0x3,0x8 does not decode: " + d.reason),
                  std::string::npos) << r.err;
        EXPECT_NE(r.out.find("\"QQQQ5\""), std::string::npos) << "the items after it are written";
        // The marker keeps the snapshot from loading as if it were whole.
        EXPECT_NE(r.out.find("{\"__undecodable_item\": \"0x3,0x8\"}"), std::string::npos);
        EXPECT_EQ(sysdb({"load", write_file("marked.json", r.out), "--db", scratch("marked.db")}).status, 1);

        // One listing: the same, item by item.
        auto p = sysdb({"dump", "evpn_evi", "--db", db});
        EXPECT_EQ(p.status, 1);
        if (d.reason == "too large to read") {  // the batch that reads it fails whole
            EXPECT_NE(p.err.find(cerr_strerror(SYSDB_ERR_TOO_BIG)), std::string::npos) << p.err;
            continue;
        }
        EXPECT_NE(p.err.find("evpn_evi: item 0x3,0x8 does not decode"), std::string::npos) << p.err;
        EXPECT_NE(p.out.find("QQQQ5"), std::string::npos);
        auto skipped = sysdb({"dump", "evpn_evi", "--skip-undecodable", "--db", db});
        EXPECT_EQ(skipped.status, 0) << skipped.err;
        EXPECT_EQ(skipped.out.find("0x3,0x8"), std::string::npos);
    }
}

TEST(DamagedStore, ADumpThatLeavesOutWhatItCannotDecodeLoadsBackToTheSameDatabase) {
    const std::string whole = sysdb({"dump", "--db", evis("without-3.db", nullptr)}).out;
    ASSERT_NE(whole.find("QQQQ4"), std::string::npos);
    for (const Damage &d : damages()) {
        SCOPED_TRACE(d.what);
        const std::string db = evis("skipped-" + std::to_string(&d - damages().data()) + ".db", d.encoding);
        if (!d.sql.empty()) sql(db, d.sql);
        auto r = sysdb({"dump", "--skip-undecodable", "--db", db});
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.err.find("left out 1 item that does not decode"), std::string::npos) << r.err;
        EXPECT_EQ(r.out, whole);
        const std::string again = scratch("reloaded.db");
        auto l = sysdb({"load", write_file("skipped.json", r.out), "--db", again});
        ASSERT_EQ(l.status, 0) << l.err;
        EXPECT_EQ(sysdb({"dump", "--db", again}).out, r.out);
    }
}

TEST(DamagedStore, TheDumpNamesCountersItCannotReadAndWritesTheRest) {
    const std::string db = spine_test::build_db("counters.db", [](evpn::SysdbWriter &w) {
        std::string err;
        bd_forwarding_stats s{};
        s.tx_total_bytes = 9007199254740993ull;
        ASSERT_TRUE(w.add_bd_stats(0, 5, s, err)) << err;
        ASSERT_TRUE(w.add_bd_stats(1, 5, s, err)) << err;
    });
    sql(db, "UPDATE attribute SET v1 = x'0102' WHERE kind = 3 AND key2 = 1");
    auto r = sysdb({"dump", "--db", db});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("bd_stats: item node 1 bd_id 5 does not decode: stored counters damaged"),
              std::string::npos) << r.err;
    EXPECT_NE(r.out.find("\"tx_total_bytes\":9007199254740993"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("{\"__undecodable_item\": \"node 1 bd_id 5\"}"), std::string::npos) << r.out;
    EXPECT_EQ(sysdb({"load", write_file("counters.json", r.out), "--db", scratch("counters-back.db")}).status, 1);
    auto skipped = sysdb({"dump", "--skip-undecodable", "--db", db});
    EXPECT_EQ(skipped.status, 0) << skipped.err;
    EXPECT_EQ(skipped.out.find("\"node\":1"), std::string::npos);
    EXPECT_EQ(sysdb({"load", write_file("counters-skipped.json", skipped.out), "--db", scratch("counters-skipped.db")})
                  .status, 0);
}

// The show client counts SQLite's heap itself (its statistics are off for a
// faster start): a walk whose batch reaches a row past the read limit still
// fails that request (one batch: every EVI) and never reads the row.
TEST(DamagedStore, TheClientsWalkStopsAtARowPastTheReadLimit) {
    const std::string db = evis("client-huge.db", [](std::string e) { return e; });
    sql(db, std::string("UPDATE item SET data = zeroblob(65 * 1024 * 1024) WHERE ") + kItem3);
    auto r = spine_test::run_client({"5"}, {"EVPN_SYSDB=" + db, "EVPN_DEBUG=400001"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.err.find(cerr_strerror(SYSDB_ERR_TOO_BIG)), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("QQQQ"), std::string::npos) << r.out;
}

// The last tunnel endpoint's row set past the read limit: the other
// endpoints and their registration listings read as before, without taking
// more memory than their own rows; only requests that read the row fail.
TEST(DamagedStore, ARowPastTheReadLimitFailsOnlyTheRequestsThatReadIt) {
    const std::string db = scratch("tep-huge.db");
    auto l = sysdb({"load", std::string(EVPN_SOURCE_DIR) + "/tests/golden/tep.json", "--db", db});
    ASSERT_EQ(l.status, 0) << l.err;
    const std::vector<std::vector<std::string>> untouched = {{"-M", "1", "-d", "10"}, {"-M", "1f", "-p", "10"}};
    std::vector<std::string> before;
    for (const auto &args : untouched) before.push_back(spine_test::run_client(args, {"EVPN_SYSDB=" + db}).out);
    ASSERT_NE(before[0].find("Notification"), std::string::npos) << before[0];
    const std::string tep = "list = (SELECT id FROM " SYSDB_LISTINGS " WHERE root = '/oper/evpn/gl/' AND path = 'tep')";
    sql(db, "UPDATE item SET data = zeroblob(65 * 1024 * 1024) WHERE " + tep +
                " AND skey = (SELECT max(skey) FROM item WHERE " + tep + ")");

    for (size_t i = 0; i < untouched.size(); i++) {
        auto r = spine_test::run_client(untouched[i], {"EVPN_SYSDB=" + db, "EVPN_DEBUG=400001"});
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, before[i]);
        EXPECT_EQ(r.err.find(cerr_strerror(SYSDB_ERR_TOO_BIG)), std::string::npos) << r.err;
    }
    {
        setenv("EVPN_SYSDB", db.c_str(), 1);
        sysdb_handle_td h = nullptr;
        ASSERT_EQ(_sysdb_bind(&h, "/oper/evpn/gl/", SYSDB_BIND_READ), 0u);
        sqlite3_memory_highwater(1);
        uint32_t count = 200, type = 0, len = 0;
        sysdb_datalist_h_td dl = nullptr;
        EXPECT_EQ(sysdb_datalist(h, "tep/1/notification", "", &count, &dl, 0), 0u);
        EXPECT_EQ(count, 3u);
        if (dl) sysdb_datalist_free(dl);
        void *data = nullptr;
        EXPECT_EQ(sysdb_item_get(h, "tep/1/info", &type, &data, &len, 0), 0u);
        free(data);
        EXPECT_LT(sqlite3_memory_highwater(0), 8 << 20) << "a search read more than keys";
        // The walk of all endpoints reads it, and that request fails.
        count = 200;
        EXPECT_EQ(sysdb_datalist(h, "tep", "", &count, &dl, 0), SYSDB_ERR_TOO_BIG);
        _sysdb_unbind(h);
        unsetenv("EVPN_SYSDB");
    }
}

// The client reads the store's tables through b-tree cursors and never
// parses the schema: what someone adds beside them with the sqlite3 tool
// (a view, a trigger, a table, even a virtual table or a generated column,
// which the client's SQLite is built without) changes nothing it reads.
TEST(StoreByOtherMeans, WhatIsAddedBesideTheTablesLeavesTheReportsAsTheyWere) {
    const char *const additions[] = {
        "CREATE VIEW item_names AS SELECT name FROM item WHERE length(name) > 0; "
        "CREATE TABLE audit (at INTEGER); "
        "CREATE TRIGGER item_audit AFTER UPDATE ON item BEGIN INSERT INTO audit VALUES (1); END;",
        "CREATE VIRTUAL TABLE notes USING fts5(body); INSERT INTO notes VALUES ('x')",
        "CREATE TABLE sized (name TEXT, len INTEGER AS (length(name)))",
    };
    for (const char *sql_text : additions) {
        SCOPED_TRACE(sql_text);
        const std::string db = evis("added-" + std::to_string(&sql_text - additions) + ".db",
                                    [](std::string e) { return e; });
        const auto before = spine_test::run_client({"5"}, {"EVPN_SYSDB=" + db});
        ASSERT_EQ(before.status, 0) << before.err;
        ASSERT_NE(before.out.find("QQQQ5"), std::string::npos) << before.out;
        sql(db, sql_text);
        const auto after = spine_test::run_client({"5"}, {"EVPN_SYSDB=" + db});
        EXPECT_EQ(after.status, 0) << after.err;
        EXPECT_EQ(after.out, before.out);
        EXPECT_EQ(after.err, "");
    }
}

// A writer's lock held for a moment delays a reader by about that moment:
// the busy wait sleeps in milliseconds, not in whole seconds.
TEST(StoreByOtherMeans, AReaderWaitsOutAShortWriteLockInMilliseconds) {
    const std::string db = evis("locked.db", [](std::string e) { return e; });
    const auto expected = spine_test::run_client({"5"}, {"EVPN_SYSDB=" + db});
    ASSERT_EQ(expected.status, 0) << expected.err;
    sqlite3 *writer = nullptr;
    ASSERT_EQ(sqlite3_open(db.c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(writer, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(writer);
    std::thread release([writer] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        sqlite3_exec(writer, "COMMIT", nullptr, nullptr, nullptr);
    });
    const auto start = std::chrono::steady_clock::now();
    const auto r = spine_test::run_client({"5"}, {"EVPN_SYSDB=" + db, "EVPN_DEBUG=400001"});
    const auto waited = std::chrono::steady_clock::now() - start;
    release.join();
    sqlite3_close(writer);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, expected.out);
    EXPECT_GE(waited, std::chrono::milliseconds(290)) << "the lock was not in the way";
    EXPECT_LT(waited, std::chrono::milliseconds(900)) << "slept in whole seconds";
}

// A store named through a link or relative to the working folder is the
// store its writer keeps: rows still in its log, beside the file the link
// names, are read.
TEST(StoreByOtherMeans, ALinkOrARelativeNameReadsTheRowsStillInTheLog) {
    const std::string db = evis("logged.db", [](std::string e) { return e; });
    sqlite3 *writer = nullptr;
    ASSERT_EQ(sqlite3_open(db.c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(writer, "PRAGMA journal_mode = WAL; PRAGMA wal_autocheckpoint = 0; "
                                   "DELETE FROM item WHERE name = '0x5,0x8'",
                           nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(writer);
    ASSERT_GT(fs::file_size(db + "-wal"), 0u);
    const fs::path folder = fs::path(db).parent_path();
    fs::create_directories(folder / "elsewhere");
    const fs::path link = folder / "elsewhere" / "link.db";
    fs::remove(link);
    fs::create_symlink(db, link);
    const fs::path was = fs::current_path();
    fs::current_path(folder);
    const std::vector<std::string> names = {db, link.string(), "logged.db", "elsewhere/link.db",
                                            "elsewhere/../logged.db"};
    for (const std::string &name : names) {
        SCOPED_TRACE(name);
        const auto r = spine_test::run_client({"5"}, {"EVPN_SYSDB=" + name, "EVPN_DEBUG=400001"});
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.out.find("QQQQ4"), std::string::npos) << r.out;
        EXPECT_EQ(r.out.find("QQQQ5"), std::string::npos) << "the log was not read";
    }
    fs::current_path(was);
    sqlite3_close(writer);
}

// A store whose writer set its application id after it took a log: the
// file's own header still says 0 until a checkpoint, and the store binds.
TEST(StoreByOtherMeans, AnApplicationIdStillInTheLogIsRead) {
    const std::string db = evis("id-in-log.db", [](std::string e) { return e; });
    sqlite3 *writer = nullptr;
    ASSERT_EQ(sqlite3_open(db.c_str(), &writer), SQLITE_OK);
    const std::string ours = std::to_string(sysdb_schema::kApplicationId);
    ASSERT_EQ(sqlite3_exec(writer, ("PRAGMA application_id = 0; PRAGMA journal_mode = WAL; "
                                    "PRAGMA wal_autocheckpoint = 0; PRAGMA application_id = " + ours).c_str(),
                           nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(writer);
    unsigned char header[72] = {};
    std::ifstream(db, std::ios::binary).read(reinterpret_cast<char *>(header), sizeof header);
    ASSERT_EQ(header[68] | header[69] | header[70] | header[71], 0) << "the id reached the file";
    const auto r = spine_test::run_client({"5"}, {"EVPN_SYSDB=" + db, "EVPN_DEBUG=400001"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("QQQQ4"), std::string::npos) << r.out << r.err;
    sqlite3_close(writer);
}

}  // namespace
