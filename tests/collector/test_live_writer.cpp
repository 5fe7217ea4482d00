// The writer's live mode on its own: items replaced and removed in place
// with their index rows, including the rows a non-key field decides.
#include <functional>

#include "collector_test.h"
#include "platform/bag_types.h"
#include "platform/sysdb_paths.h"
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

TEST_F(LiveWriter, ALoadStillReplacesTheFileAfterALiveRun) {
    change([&] { return put(Mac(4, "", 16)); });
    ASSERT_TRUE(w->close(err)) << err;
    w.reset();
    const std::string json = dir.path + "/s.json";
    subprocess::Run dump =
        subprocess::run({"/bin/sh", "-c", std::string(EVPN_SYSDB_BIN) + " dump --db " + db + " > " + json});
    ASSERT_EQ(dump.status, 0) << dump.err;
    subprocess::Run load = subprocess::run({EVPN_SYSDB_BIN, "load", json, "--db", db});
    ASSERT_EQ(load.status, 0) << load.err;
    EXPECT_EQ(macs().size(), 1u);
    // And the live writer opens the loaded file again.
    w = evpn::SysdbWriter::open_live(db, err);
    ASSERT_TRUE(w) << err;
}

}  // namespace
