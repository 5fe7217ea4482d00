// The writer's live mode on its own: items replaced and removed in place
// with their index rows, including the rows a non-key field decides.
#include <dirent.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

#include "collector_test.h"
#include "platform/bag_types.h"
#include "platform/sysdb_paths.h"
#include "platform/sysdb_schema.h"
#include "sysdb_writer.h"

namespace {

using namespace ctest;
using Known = evpn::SysdbWriter::Known;
using Rows = std::vector<std::string>;
const std::string kRoot = "/oper/evpn/gl/";

struct Mac {
    l2vpn_evpn_mac_bag r{};
    EvpnPath path{};
    char bd[16] = {};
    Mac(uint8_t last, const char *bd_name, uint32_t label) {
        r.evi = 100;
        r.encap = 10;
        const uint8_t mac[6] = {0, 0x11, 0x22, 0x33, 0x44, last};
        memcpy(r.mac_address, mac, 6);
        snprintf(bd, sizeof bd, "%s", bd_name);
        r.bd_name = bd;
        r.remote = 1;
        path.NextHop.bytes[10] = path.NextHop.bytes[11] = 0xff;
        path.NextHop.bytes[12] = 192, path.NextHop.bytes[13] = 0, path.NextHop.bytes[14] = 2;
        path.NextHop.bytes[15] = 1;
        path.OutputLabel = label;
        r.path_buffer = {1, &path};
    }
};

// A remote MAC route without an address, host of EVI evi.
void remote_mac(l2vpn_evpn_mac_bag &r, uint32_t evi, uint32_t host) {
    r = {};
    r.evi = evi;
    r.encap = 8;
    const uint8_t mac[6] = {0x02, 0, uint8_t(evi >> 8), uint8_t(evi), uint8_t(host >> 8), uint8_t(host)};
    memcpy(r.mac_address, mac, 6);
    r.remote = 1;
    r.bd_name = const_cast<char *>("");
}

struct LiveWriter : ::testing::Test {
    TempDir dir;
    std::string db = dir.path + "/live.db";
    std::unique_ptr<evpn::SysdbWriter> w;
    std::string err;
    void SetUp() override {
        w = evpn::SysdbWriter::open_live(db, err);
        ASSERT_TRUE(w) << err;
    }
    void change(const std::function<bool()> &f) {
        ASSERT_TRUE(w->begin(err)) << err;
        ASSERT_TRUE(f()) << err;
        ASSERT_TRUE(w->commit(err)) << err;
    }
    Rows macs(std::vector<std::string> args = {}) {
        args.push_back("0");
        return rows(show(db, args), "100 ");
    }
    bool put(const Mac &m, Known known = Known::Nothing) {
        return w->upsert(kRoot, EVPN_PATH_MAC, &m.r, err, known);
    }
    bool drop(const Mac &m, Known known = Known::Nothing) {
        return w->remove(kRoot, EVPN_PATH_MAC, &m.r, err, known);
    }
};

TEST_F(LiveWriter, AReplacedItemLeavesNoIndexRowOfItsOldValues) {
    change([&] { return put(Mac(1, "bd-a", 16)); });
    EXPECT_EQ(macs({"-b", "bd-a"}).size(), 1u);
    change([&] { return put(Mac(1, "bd-b", 17)); });
    EXPECT_EQ(macs({"-b", "bd-a"}).size(), 0u);
    ASSERT_EQ(macs({"-b", "bd-b"}).size(), 1u);
    EXPECT_NE(macs()[0].find(" 17"), std::string::npos) << macs()[0];
    // Removed by its item keys alone: the stored record's bridge-domain row goes too.
    change([&] { return drop(Mac(1, "", 0)); });
    EXPECT_EQ(macs(), Rows{});
    EXPECT_EQ(macs({"-b", "bd-b"}), Rows{});
    // Removing what is not there is no error.
    change([&] { return drop(Mac(1, "", 0)); });
}

TEST_F(LiveWriter, ChangesTheCallerVouchesForKeepTheirOrder) {
    // New, replaced, removed and new again, all queued in one transaction.
    change([&] {
        return put(Mac(2, "", 16), Known::Absent) &&
               put(Mac(3, "", 16), Known::Absent) &&
               put(Mac(2, "", 18), Known::SameKeys) &&
               drop(Mac(3, "", 0), Known::SameKeys) &&
               put(Mac(3, "", 19), Known::Absent);
    });
    const Rows got = macs();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_NE(got[0].find("0011.2233.4402") , std::string::npos);
    EXPECT_NE(got[0].find(" 18"), std::string::npos) << got[0];
    EXPECT_NE(got[1].find(" 19"), std::string::npos) << got[1];
    // The address ordering's rows follow: a filter by MAC finds each once.
    EXPECT_EQ(macs({"-O", "11", "-P", "2233", "-Q", "4403"}).size(), 1u);
}

TEST_F(LiveWriter, ChangesWhoseIndexRowsTheCallerVouchesForAddAndDropTheRows) {
    // New, then replaced in the same transaction, without a look at the store.
    change([&] { return put(Mac(5, "bd-a", 16), Known::SameRows) && put(Mac(5, "bd-a", 17), Known::SameRows); });
    ASSERT_EQ(macs().size(), 1u);
    EXPECT_NE(macs()[0].find(" 17"), std::string::npos) << macs()[0];
    EXPECT_EQ(macs({"-b", "bd-a"}).size(), 1u);
    EXPECT_EQ(macs({"-O", "11", "-P", "2233", "-Q", "4405"}).size(), 1u);
    change([&] { return drop(Mac(5, "bd-a", 0), Known::SameRows) && drop(Mac(6, "bd-a", 0), Known::SameRows); });
    EXPECT_EQ(macs(), Rows{});
    EXPECT_EQ(macs({"-b", "bd-a"}), Rows{});
    EXPECT_EQ(macs({"-O", "11", "-P", "2233", "-Q", "4405"}), Rows{});
}

TEST_F(LiveWriter, OfTwoNewItemsOfOneKeyInARunTheFirstStaysWhicheverWayTheRunIsSorted) {
    // Runs are sorted up and down by turns: one commit's run each way.
    for (uint8_t t = 7; t <= 8; t++)
        change([&] { return put(Mac(t, "", 16 + t), Known::Absent) && put(Mac(t, "", 30), Known::Absent); });
    const Rows got = macs();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_NE(got[0].find(" 23"), std::string::npos) << got[0];
    EXPECT_NE(got[1].find(" 24"), std::string::npos) << got[1];
}

int page_size(const std::string &path) {
    sqlite3 *db = nullptr;
    sqlite3_stmt *s = nullptr;
    int size = 0;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
        sqlite3_prepare_v2(db, "PRAGMA page_size", -1, &s, nullptr) == SQLITE_OK && sqlite3_step(s) == SQLITE_ROW)
        size = sqlite3_column_int(s, 0);
    sqlite3_finalize(s);
    sqlite3_close(db);
    return size;
}

// A store the collector starts takes the live page size; a load's the
// readers' smaller one, and the live writer takes over either.
TEST_F(LiveWriter, ALoadStillReplacesTheFileAfterALiveRun) {
    change([&] { return put(Mac(4, "", 16)); });
    EXPECT_EQ(page_size(db), evpn::SysdbWriter::kLivePageSize);
    ASSERT_TRUE(w->close(err)) << err;
    w.reset();
    const std::string json = dir.path + "/s.json";
    subprocess::Run dump =
        subprocess::run({"/bin/sh", "-c", std::string(EVPN_SYSDB_BIN) + " dump --db " + db + " > " + json});
    ASSERT_EQ(dump.status, 0) << dump.err;
    subprocess::Run load = subprocess::run({EVPN_SYSDB_BIN, "load", json, "--db", db});
    ASSERT_EQ(load.status, 0) << load.err;
    EXPECT_EQ(macs().size(), 1u);
    EXPECT_EQ(page_size(db), evpn::SysdbWriter::kReadPageSize);
    // And the live writer opens the loaded file again.
    w = evpn::SysdbWriter::open_live(db, err);
    ASSERT_TRUE(w) << err;
    change([&] { return put(Mac(5, "", 17)); });
    EXPECT_EQ(macs().size(), 2u);
}

// Every item and every index row of a store, by listing path, sorted: two
// stores holding the same records compare equal whatever their listing ids.
Rows stored_rows(const std::string &path) {
    Rows out;
    sqlite3 *db = nullptr;
    EXPECT_EQ(sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    sqlite3_stmt *s = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db,
                                 "SELECT l.path || ' ' || hex(i.skey) || ' ' || i.name || ' ' || hex(i.data) "
                                 "FROM item i JOIN " SYSDB_LISTINGS " l ON l.id = i.list "
                                 "UNION ALL SELECT l.path || ' ' || hex(x.ikey) "
                                 "FROM item_index x JOIN " SYSDB_LISTINGS " l ON l.id = x.list ORDER BY 1",
                                 -1, &s, nullptr),
              SQLITE_OK)
        << sqlite3_errmsg(db);
    while (sqlite3_step(s) == SQLITE_ROW) out.emplace_back(reinterpret_cast<const char *>(sqlite3_column_text(s, 0)));
    sqlite3_finalize(s);
    sqlite3_close(db);
    return out;
}

TEST_F(LiveWriter, NewItemsInNoKeyOrderStoreTheItemsAndIndexRowsALoadStores) {
    // More routes than one sorted run holds, over many EVIs, in the order a
    // router interleaves them: every run is sorted and stored on its own.
    constexpr uint32_t kRoutes = 60000, kEvis = 1000;
    auto route = [](uint32_t i, l2vpn_evpn_mac_bag &r) {
        const uint32_t evi = 1 + i % kEvis, host = i / kEvis;
        r = {};
        r.evi = evi;
        r.encap = 8;
        const uint8_t mac[6] = {0x02, 0, uint8_t(evi >> 8), uint8_t(evi), uint8_t(host >> 8), uint8_t(host)};
        memcpy(r.mac_address, mac, 6);
        // Every other route without an address: its row keys are shorter.
        if (i % 2) {
            r.ip_address.bytes[10] = r.ip_address.bytes[11] = 0xff;
            r.ip_address.bytes[12] = 10, r.ip_address.bytes[13] = uint8_t(evi >> 8);
            r.ip_address.bytes[14] = uint8_t(evi), r.ip_address.bytes[15] = uint8_t(host);
        }
        r.remote = 1;
        r.local_label = i;
        r.bd_name = const_cast<char *>("");
    };
    l2vpn_evpn_mac_bag r{};
    ASSERT_TRUE(w->begin(err)) << err;
    for (uint32_t i = 0; i < kRoutes; i++) {
        route(i, r);
        ASSERT_TRUE(w->upsert(kRoot, EVPN_PATH_MAC, &r, err, Known::Absent)) << err;
    }
    ASSERT_TRUE(w->commit(err)) << err;
    ASSERT_TRUE(w->close(err)) << err;
    w.reset();

    // The same records loaded, in key order (EVI by EVI).
    const std::string loaded = dir.path + "/loaded.db";
    auto load = evpn::SysdbWriter::open(loaded, err);
    ASSERT_TRUE(load) << err;
    for (uint32_t e = 0; e < kEvis; e++)
        for (uint32_t i = e; i < kRoutes; i += kEvis) {
            route(i, r);
            ASSERT_TRUE(load->add(kRoot, EVPN_PATH_MAC, &r, err)) << err;
        }
    ASSERT_TRUE(load->commit(err)) << err;
    load.reset();

    const Rows live = stored_rows(db), want = stored_rows(loaded);
    // An item row and two address orderings' rows a route.
    EXPECT_EQ(live.size(), 3u * kRoutes);
    EXPECT_TRUE(live == want) << live.size() << " rows stored live, " << want.size() << " loaded";
}

TEST_F(LiveWriter, CommitsQueuedBehindTheirRowsAreSeenWholeInOrderAndNoneIsLost) {
    // Transactions of new routes, each also removing routes the one before
    // it added, committed without waiting: a reader must only ever see the
    // item counts of whole transactions, in their order, and at the end the
    // last transaction's.
    constexpr uint32_t kTxns = 6, kAdded = 12000, kDropped = 3000;
    auto route = [](uint32_t i, l2vpn_evpn_mac_bag &r) { remote_mac(r, 1 + i % 500, i / 500); };
    std::vector<int64_t> after{0};  // the item count each commit leaves
    for (uint32_t t = 1; t <= kTxns; t++) after.push_back(after.back() + kAdded - (t > 1 ? kDropped : 0));

    std::atomic<bool> done{false};
    std::vector<int64_t> seen;  // counts that differ from the one before
    std::thread reader([&] {
        sqlite3 *rdb = nullptr;
        if (sqlite3_open_v2(db.c_str(), &rdb, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) return;
        sqlite3_busy_timeout(rdb, 5000);
        sqlite3_stmt *s = nullptr;
        sqlite3_prepare_v2(rdb, "SELECT count(*) FROM item", -1, &s, nullptr);
        while (!done.load()) {
            sqlite3_reset(s);
            if (s && sqlite3_step(s) == SQLITE_ROW) {
                const int64_t n = sqlite3_column_int64(s, 0);
                if (seen.empty() || seen.back() != n) seen.push_back(n);
            }
        }
        sqlite3_finalize(s);
        sqlite3_close(rdb);
    });
    // The reader stops however the writing ends.
    struct Stop {
        std::atomic<bool> &done;
        std::thread &reader;
        ~Stop() {
            done = true;
            if (reader.joinable()) reader.join();
        }
    } stop{done, reader};
    l2vpn_evpn_mac_bag r{};
    for (uint32_t t = 0; t < kTxns; t++) {
        ASSERT_TRUE(w->begin(err)) << err;
        for (uint32_t i = 0; i < kAdded; i++) {
            route(t * kAdded + i, r);
            ASSERT_TRUE(w->upsert(kRoot, EVPN_PATH_MAC, &r, err, Known::Absent)) << err;
        }
        for (uint32_t i = 0; t > 0 && i < kDropped; i++) {
            route((t - 1) * kAdded + i, r);
            ASSERT_TRUE(w->remove(kRoot, EVPN_PATH_MAC, &r, err, Known::SameKeys)) << err;
        }
        ASSERT_TRUE(w->commit(err, false)) << err;
    }
    ASSERT_TRUE(w->commit(err)) << err;
    done = true;
    reader.join();
    ASSERT_TRUE(w->close(err)) << err;
    w.reset();

    ASSERT_FALSE(seen.empty());
    size_t at = 0;  // the latest commit seen so far
    for (int64_t n : seen) {
        while (at < after.size() && after[at] != n) at++;
        ASSERT_LT(at, after.size()) << n << " items seen: not what a whole commit leaves, or out of order";
    }
    // An item row and two address orderings' rows a route, of the last commit.
    EXPECT_EQ(stored_rows(db).size(), 3u * size_t(after.back()));
}

TEST(LiveLog, IsCopiedIntoTheFileAsCommitsGoOnAndStaysBounded) {
    // Commits of an EVI's new routes each, a few pages each: a checkpoint
    // after every few of them lets the log start over, so its file stays
    // near the bound instead of growing by every commit.
    TempDir dir;
    const std::string db = dir.path + "/live.db";
    std::string err;
    constexpr size_t kEvery = 256 * 1024;
    auto w = evpn::SysdbWriter::open_live(db, err, kEvery);
    ASSERT_TRUE(w) << err;
    constexpr uint32_t kTxns = 120, kPer = 400;
    l2vpn_evpn_mac_bag r{};
    for (uint32_t t = 0; t < kTxns; t++) {
        ASSERT_TRUE(w->begin(err)) << err;
        for (uint32_t i = 0; i < kPer; i++) {
            remote_mac(r, 1 + t, i);
            ASSERT_TRUE(w->upsert(kRoot, EVPN_PATH_MAC, &r, err, Known::Absent)) << err;
        }
        ASSERT_TRUE(w->commit(err)) << err;
    }
    struct stat st {};
    ASSERT_EQ(stat((db + "-wal").c_str(), &st), 0);
    // Uncopied, the log would hold every commit's pages.
    EXPECT_LT(st.st_size, off_t(8 * kEvery)) << "log of " << st.st_size << " bytes";
    ASSERT_TRUE(w->close(err)) << err;
    w.reset();
    EXPECT_EQ(stored_rows(db).size(), 3u * kTxns * kPer);
}

TEST(LiveLog, IsCopiedByAThreadThatYieldsToTheWritersOthers) {
    // The nice value of each of this process's threads (stat field 19).
    auto nices = [] {
        std::vector<int> v;
        DIR *d = opendir("/proc/self/task");
        while (dirent *e = d ? readdir(d) : nullptr) {
            if (e->d_name[0] == '.') continue;
            FILE *f = fopen(("/proc/self/task/" + std::string(e->d_name) + "/stat").c_str(), "r");
            char buf[1024] = {};
            if (f && fgets(buf, sizeof buf, f)) {
                const char *p = strrchr(buf, ')');  // the name may hold blanks
                int field = 2, nice = 0;
                for (; p && *p && field < 19; p++)
                    if (*p == ' ') field++;
                if (p && sscanf(p, "%d", &nice) == 1) v.push_back(nice);
            }
            if (f) fclose(f);
        }
        if (d) closedir(d);
        return v;
    };
    const std::vector<int> before = nices();
    TempDir dir;
    std::string err;
    auto w = evpn::SysdbWriter::open_live(dir.path + "/live.db", err);
    ASSERT_TRUE(w) << err;
    // The thread lowers its own priority as it starts.
    const int want = std::min(before[0] + 10, 19);
    std::vector<int> after = nices();
    for (int i = 0; i < 200 && std::count(after.begin(), after.end(), want) == 0; i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        after = nices();
    }
    ASSERT_EQ(after.size(), before.size() + 1) << "one thread more: the log's copier";
    EXPECT_EQ(std::count(after.begin(), after.end(), want), 1);
    ASSERT_TRUE(w->close(err)) << err;
}

}  // namespace
