// The JSON writer against nlohmann::json's serialiser, whose bytes the
// snapshots, the item view and the JSON Lines view have always had: escapes,
// numbers, invalid UTF-8, the snapshot's layout and every record of the demo
// router and the golden snapshots in each form.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "json_record.h"
#include "json_writer.h"
#include "platform/bag.h"
#include "platform/bag_types.h"
#include "platform/sysdb_registry.h"
#include "record_text.h"
#include "snapshot.h"

namespace {

namespace fs = std::filesystem;
using ojson = nlohmann::ordered_json;

std::string text_of(const evpn::JsonText &t) { return std::string(t.data(), t.size()); }

std::string written(const std::string &s) {
    evpn::JsonText t;
    t.string(s);
    return text_of(t);
}

TEST(JsonText, StringsAndNumbersAsTheReferenceSerialiserWritesThem) {
    const std::vector<std::string> strings = {
        "", "plain", std::string("nul\0x", 5), "\"q\" \\b/", "\b\f\n\r\t\x01\x1f\x7f",
        "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "0123456789abcdef\"0123456789abcdef\x1b",
    };
    for (const std::string &s : strings) EXPECT_EQ(written(s), ojson(s).dump()) << s;

    // Bytes that are not UTF-8: each longest start of a sequence becomes one U+FFFD.
    const std::vector<std::string> invalid = {
        "\x80", "a\xc0\xafz", "\xc2", "\xe2\x82", "\xe2\x82z", "\xe2\xe2\x82\xac", "\xe0\x80\x80",
        "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xf0\x9f\x98", "\xf5\xff", "x\xf0\x9f\x98\x80\x80y",
    };
    for (const std::string &s : invalid)
        EXPECT_EQ(written(s), ojson(s).dump(-1, ' ', false, ojson::error_handler_t::replace)) << s;

    evpn::JsonText t;
    for (uint64_t v : {uint64_t(0), uint64_t(9), uint64_t(10), std::numeric_limits<uint64_t>::max()}) {
        t.clear();
        t.u64(v);
        EXPECT_EQ(text_of(t), ojson(v).dump());
    }
    for (int64_t v : {int64_t(-1), int64_t(0), std::numeric_limits<int64_t>::min(),
                      std::numeric_limits<int64_t>::max()}) {
        t.clear();
        t.i64(v);
        EXPECT_EQ(text_of(t), ojson(v).dump());
    }
}

// The snapshot layout: sections and listings one to a line, each row and
// record on a line of its own as the reference serialiser writes it.
std::string layout(const ojson &doc) {
    std::string out = "{\n  \"capabilities\": {";
    const char *sep = "";
    for (const auto &[name, on] : doc["capabilities"].items()) {
        out += std::string(sep) + "\n    " + ojson(name).dump() + ": " + on.dump();
        sep = ",";
    }
    for (const char *section : {"interfaces", "bd_stats"}) {
        out += std::string(section[0] == 'i' ? "\n  },\n  \"" : "\n  ],\n  \"") + section + "\": [";
        sep = "";
        for (const ojson &row : doc[section]) {
            out += std::string(sep) + "\n    " + row.dump();
            sep = ",";
        }
    }
    out += "\n  ],\n  \"roots\": {";
    const char *root_sep = "";
    for (const auto &[root, listings] : doc["roots"].items()) {
        out += std::string(root_sep) + "\n    " + ojson(root).dump() + ": {\n";
        root_sep = "\n    },";
        const char *list_sep = "";
        for (const auto &[base, records] : listings.items()) {
            out += std::string(list_sep) + "      " + ojson(base).dump() + ": [";
            list_sep = ",\n";
            sep = "";
            for (const ojson &r : records) {
                out += std::string(sep) + "\n        " + r.dump();
                sep = ",";
            }
            out += "\n      ]";
        }
    }
    if (*root_sep) out += "\n    }";
    return out + "\n  }\n}\n";
}

// Builds the record that text holds.
void build(const std::string &text, const BagDesc *d, std::vector<uint64_t> &rec,
           evpn::RecordArena &arena) {
    std::string err;
    rec.assign(d->size / 8 + 1, 0);
    arena.clear();
    ASSERT_TRUE(record_from_text(text, d, rec.data(), arena, "r", err)) << err;
}

std::string encoded(const void *rec, const BagDesc *d) {
    std::string out;
    EXPECT_EQ(bag_encode(rec, d, out), 0u);
    return out;
}

TEST(JsonText, SnapshotsAndRecordsInEveryFormAsBefore) {
    const fs::path src(EVPN_SOURCE_DIR);
    std::vector<fs::path> files = {src / "data" / "demo.json"};
    for (const auto &e : fs::directory_iterator(src / "tests" / "golden"))
        if (e.path().extension() == ".json") files.push_back(e.path());
    char dir[] = "/tmp/evpn_writer_XXXXXX";
    ASSERT_TRUE(mkdtemp(dir));
    size_t records = 0;
    for (const fs::path &f : files) {
        SCOPED_TRACE(f.string());
        const std::string db = std::string(dir) + "/" + f.stem().string() + ".db";
        std::ifstream in(f, std::ios::binary);
        evpn::LoadStats stats;
        std::string err;
        ASSERT_TRUE(evpn::load_snapshot(in, db, stats, err)) << err;
        std::ostringstream out;
        ASSERT_TRUE(evpn::dump_snapshot(db, out, err)) << err;
        const ojson doc = ojson::parse(out.str());
        EXPECT_EQ(out.str(), layout(doc));

        std::vector<uint64_t> rec;
        evpn::RecordArena arena;
        evpn::JsonText t;
        for (const auto &[root, listings] : doc["roots"].items())
            for (const auto &[base, list] : listings.items())
                for (const ojson &j : list) {
                    const BagDesc *d = sysdb_registry_find(base)->desc;
                    build(j.dump(), d, rec, arena);
                    t.clear();
                    evpn::record_json(t, rec.data(), d, evpn::JsonForm::Pretty, 0);
                    ASSERT_EQ(text_of(t), j.dump(2)) << base;
                    // Sparse leaves out only what loads back as it was.
                    t.clear();
                    evpn::record_json(t, rec.data(), d, evpn::JsonForm::Sparse);
                    const std::string full = encoded(rec.data(), d), sparse = text_of(t);
                    EXPECT_LE(sparse.size(), j.dump().size());
                    build(sparse, d, rec, arena);
                    ASSERT_EQ(encoded(rec.data(), d), full) << sparse;
                    records++;
                }
    }
    fs::remove_all(dir);
    EXPECT_GT(records, 50u);
}

TEST(JsonText, SparseLeavesOutZeroValuesAndEmptySubRecordsOnly) {
    const BagDesc *d = l2vpn_bag_dll__l2vpn_evpn_evi_detail_bag();
    std::vector<uint64_t> rec;
    evpn::RecordArena arena;
    evpn::JsonText t;
    build(R"({"evi": 0, "vpn_id": 7, "bd_name": "", "srv6_locator_name": "", "rt_counters": [0],
              "event_history": {"evt_class_name": "", "evt_entry": []}})", d, rec, arena);
    evpn::record_json(t, rec.data(), d, evpn::JsonForm::Sparse);
    EXPECT_EQ(text_of(t), R"({"vpn_id":7,"srv6_locator_name":"","rt_counters":[0]})");
    t.clear();
    std::vector<uint64_t> zero(d->size / 8 + 1, 0);
    evpn::record_json(t, zero.data(), d, evpn::JsonForm::Sparse);
    EXPECT_EQ(text_of(t), "{}");
}

}  // namespace
