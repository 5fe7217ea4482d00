// Snapshot loading and dumping: round trips, refusals that name the record and
// field and change nothing, and readers that keep their file while a load
// replaces it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "platform/cerr.h"
#include "platform/sysdb.h"
#include "snapshot.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const std::string kMac = "evpn_evi_detail/evi_child_container/evpn_mac";

// A snapshot with every section, all three kinds of root and every listing.
const char *const kGood = R"({
  "comment": "two EVIs and their routes",
  "capabilities": {"srv6": true, "srv6_elan": 0},
  "interfaces": [
    {"name": "eth1", "handle": 256, "state": "Up"},
    {"name": "bond1", "handle": 4096}
  ],
  "bd_stats": [
    {"node": 0, "bd_id": 5, "rx_total_packets": 10, "tx_total_bytes": 9007199254740993},
    {"node": 1, "bd_id": 5, "rx_total_packets": 1}
  ],
  "roots": {
    "/oper/evpn/gl/": {
      "evpn_evi": [
        {"vpn_id": 10, "encap": 8, "bd_name": "bd10", "evi_type": 1},
        {"vpn_id": "0x2", "encap": "8", "bd_name": "bd2", "evi_type": 5}
      ],
      "evpn_evi_detail/detailed_elements": [
        {"evi": 2, "vpn_id": 2, "encap": 8, "bd_name": "bd2", "description": "blue",
         "forward_class": 255, "rd_auto": "1.1.1.1:5", "rd_config": "raw:00000001000000640000000a",
         "rt_auto": "4200000000:7", "srv6_locator_name": null, "bd_ptr": 18446744073709551615,
         "rt_counters": [1, 2, 3],
         "event_history": {"evt_class_name": "evpn-evi", "evt_entry": [
           {"evt_timestamp": "Jan  1 00:00:01.000", "evt_timestamp_ms": 1000, "evt_name": "Create",
            "evt_type": 1, "evt_many": true, "evt_data": [1, 4294967295]}]}}
      ],
      "evpn_evi_detail/evi_child_container/evpn_mac": [
        {"evi": 2, "mac_address": "0011.2233.4455", "ip_address": "10.0.0.1", "bd_name": "bd2",
         "esi_port_key": 65535, "l3_label": -1, "local_router_mac": "00:11:22:33:44:66",
         "path_buffer": [{"NextHop": "2001:db8::1", "OutputLabel": 24005,
                          "SRv6_SIDInfo": [{"SRv6_SID": "fc00::1", "sid_struct": {"FunctionLen": 16}}],
                          "Layer2Attributes": {"MTU": 1500}, "Issues": [3]}]},
        {"evi": 2, "mac_address": "0011.2233.4455", "bd_name": "bd2"}
      ],
      "evpn_evi_detail/evi_child_container/evi_route_targets": [
        {"vpn_id": 2, "encap": 8, "rt": "100:1", "rt_type": 1}
      ],
      "rd_private": [{"rd": "raw:00000001000102030405ffff"}, {"rd": "100:1"}],
      "summary": [{"evi_count": 2, "evpn_router_id": "1.1.1.1", "pbb_bsa_mac": "0000.0000.0001",
                   "es_diag": [{"count": 3, "last_time": {"tv_sec": 5}}]}]
    },
    "/oper/evpn/gl/stdby/": {"evpn_evi": [{"vpn_id": 3, "encap": 8}]},
    "/oper/evpn/node/1a/": {"summary": [{"evi_count": 7}]}
  }
})";

std::string file_bytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class Loader : public ::testing::Test {
  protected:
    void SetUp() override {
        char tmpl[] = "/tmp/evpn_loader_XXXXXX";
        ASSERT_TRUE(mkdtemp(tmpl));
        dir_ = tmpl;
        if (const char *v = getenv("EVPN_SYSDB")) old_env_ = v;
    }
    void TearDown() override {
        for (sysdb_handle_td h : handles_) _sysdb_unbind(h);
        if (old_env_) {
            setenv("EVPN_SYSDB", old_env_->c_str(), 1);
        } else {
            unsetenv("EVPN_SYSDB");
        }
        fs::remove_all(dir_);
    }
    std::string path(const std::string &name) const { return dir_ + "/" + name; }

    // Loads a snapshot text; the error text, empty on success.
    std::string load(const std::string &text, const std::string &db,
                     evpn::LoadStats *stats = nullptr) {
        std::istringstream in(text);
        evpn::LoadStats s;
        std::string err;
        bool ok = evpn::load_snapshot(in, db, stats ? *stats : s, err);
        EXPECT_EQ(ok, err.empty()) << err;
        return ok ? std::string() : err.empty() ? "(no message)" : err;
    }
    std::string dump(const std::string &db) {
        std::ostringstream out;
        std::string err;
        EXPECT_TRUE(evpn::dump_snapshot(db, out, err)) << err;
        return out.str();
    }
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto &e : fs::directory_iterator(dir_)) names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    sysdb_handle_td bind(const std::string &db, const char *root = "/oper/evpn/gl/") {
        setenv("EVPN_SYSDB", db.c_str(), 1);
        sysdb_handle_td h = nullptr;
        EXPECT_EQ(_sysdb_bind(&h, root, SYSDB_BIND_READ), 0u);
        if (h) handles_.push_back(h);
        return h;
    }

    std::string dir_;
    std::optional<std::string> old_env_;
    std::vector<sysdb_handle_td> handles_;
};

// Names of a listing's items, in batches of batch, resuming after the last.
struct Reader {
    sysdb_handle_td h;
    std::string path, resume;
    uint32_t flags = 0;
    bool done = false;

    std::vector<std::string> next(uint32_t batch) {
        std::vector<std::string> names;
        uint32_t count = batch;
        sysdb_datalist_h_td dl = nullptr;
        sysdb_datalist(h, path.c_str(), resume.c_str(), &count, &dl, flags);
        if (!dl) {
            done = true;
            return names;
        }
        const char *name;
        while (sysdb_datalist_next(dl, &name, nullptr, nullptr, nullptr, nullptr) == 0)
            names.push_back(name);
        uint32_t more = 0;
        sysdb_datalist_get_more_flag(dl, &more);
        sysdb_datalist_free(dl);
        done = count < batch && !more;
        if (!names.empty()) resume = names.back();
        flags = SYSDB_DATALIST_RESUME;
        return names;
    }
    std::vector<std::string> rest(uint32_t batch) {
        std::vector<std::string> all;
        while (!done) {
            auto n = next(batch);
            all.insert(all.end(), n.begin(), n.end());
        }
        return all;
    }
};

TEST_F(Loader, GoodSnapshotLoadsAndItsDumpLoadsBackToTheSameDump) {
    evpn::LoadStats stats;
    ASSERT_EQ(load(kGood, path("a.db"), &stats), "");
    EXPECT_EQ(stats.records, 11u);
    EXPECT_EQ(stats.interfaces, 2u);
    EXPECT_EQ(stats.bd_stats, 2u);

    const std::string first = dump(path("a.db"));
    json j = json::parse(first);
    EXPECT_EQ(j["capabilities"], json::parse(R"({"srv6": true, "srv6_elan": false})"));
    EXPECT_EQ(j["interfaces"][1]["state"], "Up");
    EXPECT_EQ(j["bd_stats"][0]["tx_total_bytes"], 9007199254740993ull);
    const json &gl = j["roots"]["/oper/evpn/gl/"];
    EXPECT_EQ(gl["evpn_evi"][0]["vpn_id"], 2);  // natural order, not snapshot order
    const json &detail = gl["evpn_evi_detail/detailed_elements"][0];
    EXPECT_EQ(detail["rd_config"], "100:10");    // a raw form that converts
    EXPECT_EQ(detail["srv6_locator_name"], nullptr);
    EXPECT_EQ(detail["bd_ptr"], 18446744073709551615ull);
    EXPECT_EQ(gl[kMac][1]["l3_label"], -1);     // the route with an address sorts after
    EXPECT_EQ(gl[kMac][1]["path_buffer"][0]["SRv6_SIDInfo"][0]["sid_struct"]["FunctionLen"], 16);
    EXPECT_EQ(gl["rd_private"][1]["rd"], "raw:00000001000102030405ffff");
    EXPECT_EQ(j["roots"]["/oper/evpn/node/1a/"]["summary"][0]["evi_count"], 7);

    ASSERT_EQ(load(first, path("b.db")), "");
    EXPECT_EQ(dump(path("b.db")), first);
    // Loading over an existing database replaces it.
    ASSERT_EQ(load(first, path("a.db")), "");
    EXPECT_EQ(dump(path("a.db")), first);
    EXPECT_EQ(files(), (std::vector<std::string>{"a.db", "b.db"}));

    // The client sees what was loaded, under each root.
    sysdb_handle_td h = bind(path("b.db"));
    Reader rd{h, "rd_private"};
    EXPECT_EQ(rd.rest(10), (std::vector<std::string>{"000000010000006400000001", "00000001000102030405ffff"}));
    Reader evis{bind(path("b.db"), "/oper/evpn/gl/stdby/"), "evpn_evi"};
    EXPECT_EQ(evis.rest(10), std::vector<std::string>{"0x3,0x8"});
}

TEST_F(Loader, RefusalsNameTheRecordAndFieldAndChangeNothing) {
    ASSERT_EQ(load(kGood, path("t.db")), "");
    const std::string before = file_bytes(path("t.db"));
    ASSERT_FALSE(before.empty());

    auto roots = [](const std::string &listing, const std::string &records) {
        return R"({"roots": {"/oper/evpn/gl/": {")" + listing + R"(": )" + records + "}}}";
    };
    struct Case {
        std::string snapshot;
        std::vector<std::string> says;
    };
    const std::vector<Case> cases = {
        // Structure.
        {R"({"rootz": {}})", {"unknown section", "rootz"}},
        {R"({"roots": {"/oper/evpn/gl/x/": {}}})", {"unknown root", "/oper/evpn/gl/x/"}},
        {R"({"roots": {"/oper/evpn/node/": {}}})", {"unknown root"}},
        {roots("evpn_nope", "[]"), {"unknown listing", "evpn_nope"}},
        {roots("evpn_evi", "{}"), {"evpn_evi", "unexpected object"}},
        {roots("evpn_evi", "[5]"), {"unexpected value"}},
        {roots("evpn_evi", "[[{}]]"), {"evpn_evi"}},
        {R"({"roots": []})", {"roots"}},
        {R"({"roots": {}, "roots": {}})", {"duplicate key \"roots\""}},
        {R"({"roots": {"/oper/evpn/gl/": {}, "/oper/evpn/gl/": {}}})", {"duplicate key"}},
        {"[]", {"snapshot"}},
        {"5", {"snapshot"}},
        {R"({"capabilities": 5})", {"capabilities"}},
        {R"({"interfaces": 5})", {"interfaces"}},
        {R"({"interfaces": [[{"name": "x"}]]})", {"interfaces"}},
        {R"({"bd_stats": true})", {"bd_stats"}},
        // Fields of records: named under their root, listing and place (what
        // each field refuses is the record builder's test).
        {roots("evpn_evi", R"([{"vpn_id": 1, "encap": 8}, {"vpn_id": 2, "colour": 1}])"),
         {"/oper/evpn/gl/ evpn_evi[1].colour", "unknown field"}},
        {roots(kMac, R"([{"evi": 1, "path_buffer": [{}, {"NextHop": "1.2.3"}]}])"),
         {kMac + "[0].path_buffer[1].NextHop"}},
        // Keys.
        {roots("evpn_evi", R"([{"vpn_id": 1, "encap": 8}, {"vpn_id": "0x1", "encap": 8}])"),
         {"evpn_evi[1]", "duplicate", "0x1,0x8"}},
        {roots("summary", "[{}, {}]"), {"summary[1]", "duplicate"}},
        // Items in key order are stored by the writer's worker: a duplicate
        // of one of them, after the order broke, is still named where it is.
        {roots("evpn_evi", R"([{"vpn_id": 2, "encap": 8}, {"vpn_id": 1, "encap": 8},
                               {"vpn_id": 3, "encap": 8}, {"vpn_id": 2, "encap": 8}])"),
         {"evpn_evi[3]", "duplicate", "0x2,0x8"}},
        {roots("evpn_evi", R"([{"vpn_id": 1, "bd_name": "a,b"}])"), {"evpn_evi[0]", "bd_name"}},
        {roots("evpn_evi", R"([{"vpn_id": 1, "bd_name": "a/b"}])"), {"evpn_evi[0]", "bd_name", "'/'"}},
        // A key text that is the item's whole name may not be empty.
        {roots("tep", R"([{"tep_id": 1}], "tep/1/notification": [{"name": "bgp"}, {"name": ""}])"),
         {"tep/1/notification[1]", "name", "empty"}},
        // Item names a walk can resume after: 255 bytes at most.
        {roots("igmp", R"([{"evi": 1, "esi_text": ")" + std::string(250, 'e') + R"("}])"),
         {"igmp[0]: esi_text: makes an item name of", "(this field 250)", "at most 255"}},
        // Other sections.
        {R"({"capabilities": {"srv7": true}})", {"capabilities.srv7"}},
        {R"({"capabilities": {"srv6": 2}})", {"capabilities.srv6"}},
        {R"({"interfaces": [{"handle": 1}]})", {"interfaces[0].name"}},
        {R"({"interfaces": [{"name": "a", "handle": 1}, {"name": "b", "handle": 1}]})", {"interfaces[1]"}},
        {R"({"interfaces": [{"name": "a", "handle": 1}, {"name": "a", "handle": 2}]})",
         {"interfaces[1]", "a second interface of that name"}},
        {R"({"interfaces": [{"name": "a", "speed": 1}]})", {"interfaces[0].speed"}},
        {R"({"interfaces": [{"name": "eth1\u001b[0m", "handle": 1}]})", {"interfaces[0]", "name"}},
        {R"({"interfaces": [{"name": "eth1", "handle": 1, "state": "Up\u0085"}]})", {"interfaces[0]", "state"}},
        {R"({"bd_stats": [{"node": 0, "bd_id": 1, "rx_pkts": 1}]})", {"bd_stats[0].rx_pkts"}},
        {R"({"bd_stats": [{"node": 4294967295, "bd_id": 1}]})", {"bd_stats[0].node", "out of range"}},
        {R"({"bd_stats": [{"bd_id": 1}, {"bd_id": -1}]})", {"bd_stats[1].bd_id"}},
        {R"({"bd_stats": [{"bd_id": 1}, {"bd_id": 1}]})", {"bd_stats[1]"}},
        // Not JSON (the reader's own test has the kinds of error): after a
        // record that was accepted, after the whole document, of
        // nothing at all, past the depth.
        {"{\n  \"roots\": {\n    \"/oper/evpn/gl/\": {\"evpn_evi\": [{\"vpn_id\": 1} {}]}}}",
         {"malformed JSON: line 3, column 51: expected ',' or ']'"}},
        {R"({"roots": {}} x)", {"malformed JSON"}},
        {"", {"malformed JSON"}},
        {R"({"comment": )" + std::string(64, '[') + std::string(64, ']') + "}",
         {"malformed JSON: line 1, column 76: nesting deeper than 64 levels"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.snapshot);
        std::string err = load(c.snapshot, path("t.db"));
        ASSERT_NE(err, "") << "loaded";
        for (const std::string &s : c.says) EXPECT_NE(err.find(s), std::string::npos) << err;
        ASSERT_EQ(file_bytes(path("t.db")), before);
        ASSERT_EQ(files(), std::vector<std::string>{"t.db"});
        // Into a new file: no file at all.
        EXPECT_NE(load(c.snapshot, path("new.db")), "");
        EXPECT_FALSE(fs::exists(path("new.db")));
    }
}

// A snapshot of n EVIs from first on, encap 8, and a summary saying n.
std::string evis(uint32_t first, uint32_t n) {
    json list = json::array();
    for (uint32_t i = 0; i < n; i++)
        list.push_back({{"vpn_id", first + i}, {"encap", 8}, {"bd_name", "bd" + std::to_string(first + i)}});
    json s = {{"roots", {{"/oper/evpn/gl/", {{"evpn_evi", list}, {"summary", {{{"evi_count", n}}}}}}}}};
    return s.dump();
}

// Records go to the writer on a thread of their own, a few hundred at a
// time. A refusal there, deep in a long listing, is named at its own place,
// before anything wrong the parser read since: broken text after it, a
// listing or section that follows. Nothing reaches the target.
TEST_F(Loader, ARefusalDeepInAListingIsNamedAtItsPlaceBeforeLaterErrors) {
    const std::string db = path("t.db");
    ASSERT_EQ(load(evis(1, 3), db), "");
    const std::string before = file_bytes(db);
    // 1,500 EVIs in key order but for the one at `at`, a copy of the first,
    // which the writer refuses as a duplicate.
    auto with_copy = [](size_t at) {
        json s = json::parse(evis(1, 1500));
        s["roots"]["/oper/evpn/gl/"]["evpn_evi"][at]["vpn_id"] = 1;
        return s.dump();
    };
    const std::string tail = "\"summary\":[{\"evi_count\":1500}]}}}";
    const std::string broken = "\"summary\":[{\"evi_count\":1500} {}]}}}";
    ASSERT_NE(with_copy(1100).find(tail), std::string::npos);
    const struct {
        size_t at;
        std::string from, to;  // with_copy(at), this text replaced by that
    } cases[] = {
        {1100, "", ""},
        {1100, tail, broken},                                   // the parser fails after it
        {1499, tail, broken},                                   // in the last hand-over
        {1499, tail, tail.substr(0, tail.size() - 1) + ", \"interfaces\": [{\"handle\": 1}]}"},
        {256, "", ""},                                          // first of its hand-over
        {255, "", ""},                                          // last of its hand-over
    };
    for (const auto &c : cases) {
        std::string text = with_copy(c.at);
        if (!c.from.empty()) text.replace(text.find(c.from), c.from.size(), c.to);
        SCOPED_TRACE(std::to_string(c.at) + " " + c.to);
        const std::string err = load(text, db);
        EXPECT_NE(err.find("/oper/evpn/gl/ evpn_evi[" + std::to_string(c.at) + "]: duplicate item"),
                  std::string::npos)
            << err;
        EXPECT_EQ(file_bytes(db), before);
        EXPECT_EQ(files(), std::vector<std::string>{"t.db"});
    }
    // The parser's own error stands when the writer took every record.
    std::string text = evis(1, 1500);
    text.replace(text.find(tail), tail.size(), broken);
    EXPECT_NE(load(text, db).find("malformed JSON"), std::string::npos);
    EXPECT_EQ(file_bytes(db), before);
}

TEST_F(Loader, ABoundReaderKeepsItsDataWhileALoadReplacesTheFile) {
    const std::string db = path("live.db");
    ASSERT_EQ(load(evis(1, 500), db), "");
    sysdb_handle_td old_h = bind(db);
    Reader by_name{old_h, "evpn_evi"}, by_bd{old_h, "evpn_evi-bd/"};
    std::vector<std::string> seen = by_name.next(200), seen_bd = by_bd.next(200);
    ASSERT_EQ(seen.size(), 200u);

    ASSERT_EQ(load(evis(1001, 300), db), "");
    std::vector<std::string> rest = by_name.rest(200), rest_bd = by_bd.rest(200);
    seen.insert(seen.end(), rest.begin(), rest.end());
    seen_bd.insert(seen_bd.end(), rest_bd.begin(), rest_bd.end());
    EXPECT_EQ(seen.size(), 500u);
    EXPECT_EQ(seen.front(), "0x1,0x8");
    EXPECT_EQ(seen.back(), "0x1f4,0x8");
    EXPECT_EQ(seen_bd.size(), 500u);
    void *data = nullptr;
    uint32_t len = 0;
    EXPECT_EQ(sysdb_item_get(old_h, "evpn_evi/0x1f4,0x8", nullptr, &data, &len, 0), 0u);
    free(data);

    sysdb_handle_td new_h = bind(db);
    Reader fresh{new_h, "evpn_evi"};
    std::vector<std::string> now = fresh.rest(200);
    EXPECT_EQ(now.size(), 300u);
    EXPECT_EQ(now.front(), "0x3e9,0x8");
    EXPECT_EQ(sysdb_item_get(new_h, "evpn_evi/0x1,0x8", nullptr, &data, &len, 0), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(files(), std::vector<std::string>{"live.db"});
}

}  // namespace
