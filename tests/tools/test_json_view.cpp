// The JSON view: one record a line in every dump of records, enumerations as
// their words beside their codes, the snapshot left with codes alone, and
// --db in any place on the command line.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "evpn_show_words.h"
#include "json_record.h"
#include "platform/bag_types.h"
#include "subprocess.h"

namespace {

using nlohmann::json;

subprocess::Run sysdb(std::vector<std::string> args) {
    args.insert(args.begin(), EVPN_SYSDB_BIN);
    return subprocess::run(args);
}

class DemoDb : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        db_ = "/tmp/evpn_json_view_" + std::to_string(getpid()) + ".db";
        ASSERT_EQ(sysdb({"load", EVPN_SOURCE_DIR "/data/demo.json", "--db", db_}).status, 0);
    }
    static void TearDownTestSuite() { unlink(db_.c_str()); }
    static std::vector<json> lines(const subprocess::Run &r) {
        std::vector<json> v;
        std::istringstream in(r.out);
        for (std::string line; std::getline(in, line);) {
            json j = json::parse(line, nullptr, false);
            EXPECT_FALSE(j.is_discarded()) << "not one JSON value a line: " << line;
            v.push_back(j);
        }
        return v;
    }
    static std::string db_;
};
std::string DemoDb::db_;

// Every (record type, field) of the tables in the descriptions, walked from
// the top-level types through their sub-records.
void code_fields(const BagDesc *d, std::set<std::string> &out, uint32_t depth = 0) {
    for (uint32_t i = 0; i < d->nfields && depth < BAG_MAX_DEPTH; i++) {
        const BagField &f = d->fields[i];
        if (f.sub) code_fields(f.sub, out, depth + 1);
        if (f.kind == BagKind::U8 || f.kind == BagKind::U16 || f.kind == BagKind::U32 ||
            f.kind == BagKind::S32)
            out.insert(std::string(d->name) + "." + f.name);
    }
}

TEST(JsonView, EveryWordRowNamesACodeFieldOfARecordType) {
    std::set<std::string> fields;
    for (const BagDesc *const *d = bag_record_types; *d; d++) code_fields(*d, fields);
    std::set<std::string> seen;
    for (const BagFieldWords &w : evpn_show_field_words()) {
        const std::string name = std::string(w.record) + "." + w.field;
        EXPECT_TRUE(fields.count(name)) << name << " is no code field of a record type";
        EXPECT_TRUE(seen.insert(name).second) << name << " has two rows";
    }
}

TEST(JsonView, CodeWithoutAWordIsNullAndTheSnapshotFormKeepsCodesOnly) {
    l2vpn_evpn_es_bag es{};  // null texts are written as ""
    es.state = 3;
    es.forced_state = 99;
    es.mac_flush_mode = -1;
    evpn::JsonText t;
    evpn::record_json(t, &es, l2vpn_bag_dll__l2vpn_evpn_es_bag(), evpn::JsonForm::Compact, 0,
                      evpn_show_field_words());
    json view = json::parse(std::string(t.data(), t.size()));
    EXPECT_EQ(view["state"], "Down");
    EXPECT_EQ(view["state_code"], 3);
    EXPECT_TRUE(view["forced_state"].is_null());
    EXPECT_EQ(view["forced_state_code"], 99);
    EXPECT_TRUE(view["mac_flush_mode"].is_null());
    EXPECT_EQ(view["mac_flush_mode_code"], -1);
    EXPECT_EQ(view["esi_id"], 0);  // a field without words is as in a snapshot

    t.clear();
    evpn::record_json(t, &es, l2vpn_bag_dll__l2vpn_evpn_es_bag());
    json snapshot = json::parse(std::string(t.data(), t.size()));
    EXPECT_EQ(snapshot["state"], 3);
    EXPECT_FALSE(snapshot.contains("state_code"));
}

// A listing's dump, an item's and a show command's: the same keys, one
// record a line, enumerations in words that agree with their codes.
TEST_F(DemoDb, EveryRecordDumpIsOneRecordALineWithWordsBesideCodes) {
    const struct {
        std::vector<std::string> args;
        size_t records;
    } cases[] = {
        {{"dump", "ethernet_segment", "--db", db_}, 2},
        {{"dump", "3", "--db", db_}, 2},
        {{"dump", "evpn_evi", "--db", db_}, 4},
        {{"dump", "summary", "--db", db_}, 1},
    };
    for (const auto &c : cases) {
        subprocess::Run r = sysdb(c.args);
        ASSERT_EQ(r.status, 0) << c.args[1] << r.err;
        std::vector<json> v = lines(r);
        EXPECT_EQ(v.size(), c.records) << c.args[1];
        for (const json &j : v) {
            EXPECT_TRUE(j["path"].is_string() && j["name"].is_string() && j["record"].is_object()) << j;
            const json &rec = j["record"];
            if (rec.contains("state_code")) {
                EXPECT_EQ(rec["state"], kEsStateWords[rec["state_code"].get<int>()]) << j;
            }
            if (rec.contains("encap_code")) {
                EXPECT_TRUE(rec["encap"].is_string()) << j;
            }
        }
    }
}

TEST_F(DemoDb, AnItemsDumpIsItsLineOfTheListingsDump) {
    subprocess::Run listing = sysdb({"dump", "evpn_evi", "--db", db_});
    ASSERT_EQ(listing.status, 0) << listing.err;
    const std::string first = listing.out.substr(0, listing.out.find('\n') + 1);
    const std::string name = json::parse(first)["name"];
    subprocess::Run item = sysdb({"dump", "evpn_evi/" + name, "--db", db_});
    EXPECT_EQ(item.status, 0) << item.err;
    EXPECT_EQ(item.out, first);
}

TEST_F(DemoDb, TheSnapshotDumpKeepsBareCodesForLoad) {
    subprocess::Run d = sysdb({"dump", "--db", db_});
    ASSERT_EQ(d.status, 0) << d.err;
    json snap = json::parse(d.out);
    const json &es = snap["roots"]["/oper/evpn/gl/"]["ethernet_segment"];
    ASSERT_FALSE(es.empty());
    EXPECT_TRUE(es[0]["state"].is_number());
}

TEST_F(DemoDb, DbAndShowOptionsTakeAnyOrder) {
    const std::vector<std::vector<std::string>> same[] = {
        {{"dump", "-M", "64", "0", "--db", db_}, {"dump", "--db", db_, "-M", "64", "0"},
         {"dump", "-M", "64", "--db", db_, "0"}},
        {{"dump", "7", "--db", db_}, {"dump", "--db", db_, "7"}},
        {{"dump", "evpn_evi", "--db", db_}, {"dump", "--db", db_, "evpn_evi"}},
    };
    for (const auto &group : same) {
        subprocess::Run first = sysdb(group[0]);
        EXPECT_EQ(first.status, 0) << group[0][1] << ": " << first.err;
        EXPECT_FALSE(first.out.empty()) << group[0][1];
        for (const auto &args : group) {
            subprocess::Run r = sysdb(args);
            EXPECT_EQ(r.status, 0) << r.err;
            EXPECT_EQ(r.out, first.out) << args[1] << " " << args[2];
        }
    }
    subprocess::Run r = sysdb({"dump", "7", "--db"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("--db wants a value"), std::string::npos) << r.err;
}

}  // namespace
