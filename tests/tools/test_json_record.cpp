// Records built from a token stream, through buffers of every size, against
// the same records built alone from the text the reference parser makes of
// them (names in order, a name given twice once, escapes resolved): the same
// encoding for every record of the golden snapshots and the demo router, the
// same refusals for faulty records; and the arena the builder fills.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "json_reader.h"
#include "json_record.h"
#include "platform/bag.h"
#include "platform/bag_types.h"
#include "platform/sysdb_registry.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// "ok " and the encoding, or "error " and the message.
std::string encoded(bool ok, const void *rec, const BagDesc *d, const std::string &err) {
    if (!ok) return "error " + err;
    std::string out;
    EXPECT_EQ(bag_encode(rec, d, out), 0u);
    return "ok " + out;
}

std::string from_tokens(const std::string &text, const BagDesc *d, size_t buffer) {
    std::istringstream in(text);
    evpn::JsonReader r(in, buffer);
    evpn::TokenRecordBuilder b;
    std::vector<uint64_t> rec(d->size / 8 + 1, 0xa5a5a5a5a5a5a5a5u);
    evpn::RecordArena arena;
    std::string err;
    bool ok = b.build(r, r.next(), d, rec.data(), arena, "r", err);
    return encoded(ok, rec.data(), d, err);
}

// The record alone, from the text the reference parser makes of it.
std::string from_value(const json &j, const BagDesc *d) {
    const std::string text = j.dump();
    return from_tokens(text, d, text.size() + 1);
}

using Encodings = std::map<std::string, std::vector<std::string>>;  // root + listing: records

Encodings by_value(const std::string &text) {
    Encodings out;
    json doc = json::parse(text);
    for (auto &[root, listings] : doc["roots"].items())
        for (auto &[base, records] : listings.items())
            for (const json &j : records)
                out[root + " " + base].push_back(from_value(j, sysdb_registry_find(base)->desc));
    return out;
}

// Streams the whole snapshot, one builder and one arena for all its records.
Encodings by_tokens(const std::string &text, size_t buffer) {
    using evpn::JsonTok;
    Encodings out;
    std::istringstream in(text);
    evpn::JsonReader r(in, buffer);
    evpn::TokenRecordBuilder b;
    evpn::RecordArena arena;
    std::vector<uint64_t> rec;
    std::string err;
    EXPECT_EQ(r.next().kind, JsonTok::ObjectStart);
    while (true) {
        const evpn::JsonToken &section = r.next();
        if (section.kind == JsonTok::ObjectEnd) break;
        const bool roots = section.text == "roots";
        const evpn::JsonToken &v = r.next();
        if (!roots) {
            r.skip(v);
            continue;
        }
        while (true) {
            const evpn::JsonToken &rk = r.next();
            if (rk.kind == JsonTok::ObjectEnd) break;
            const std::string root(rk.text);
            EXPECT_EQ(r.next().kind, JsonTok::ObjectStart);
            while (true) {
                const evpn::JsonToken &lk = r.next();
                if (lk.kind == JsonTok::ObjectEnd) break;
                const std::string base(lk.text);
                const BagDesc *d = sysdb_registry_find(base)->desc;
                EXPECT_EQ(r.next().kind, JsonTok::ArrayStart);
                while (true) {
                    const evpn::JsonToken &t = r.next();
                    if (t.kind == JsonTok::ArrayEnd) break;
                    rec.assign(d->size / 8 + 1, 0xa5a5a5a5a5a5a5a5u);  // garbage to overwrite
                    arena.clear();
                    bool ok = b.build(r, t, d, rec.data(), arena, "r", err);
                    out[root + " " + base].push_back(encoded(ok, rec.data(), d, err));
                }
            }
        }
    }
    EXPECT_EQ(r.next().kind, JsonTok::End);
    return out;
}

std::string file_text(const fs::path &p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(TokenRecords, SameBytesAsParsedRecordsForEverySnapshotRecord) {
    const fs::path src(EVPN_SOURCE_DIR);
    std::vector<fs::path> files = {src / "data" / "demo.json"};
    for (const auto &e : fs::directory_iterator(src / "tests" / "golden"))
        if (e.path().extension() == ".json") files.push_back(e.path());
    ASSERT_GE(files.size(), 4u);
    size_t records = 0;
    for (const fs::path &f : files) {
        SCOPED_TRACE(f.string());
        const std::string text = file_text(f);
        const Encodings expected = by_value(text);
        for (const auto &[listing, encs] : expected) {
            records += encs.size();
            for (const std::string &e : encs) ASSERT_EQ(e.rfind("ok ", 0), 0u) << listing << ": " << e;
        }
        EXPECT_EQ(by_tokens(text, evpn::JsonReader::kDefaultBufferSize), expected);
        EXPECT_EQ(by_tokens(text, 7), expected);
    }
    EXPECT_GT(records, 50u);
}

// Builds text both ways as a record of type d; both must say the same.
std::string both(const BagDesc *d, const std::string &text) {
    std::string by_value;
    try {
        by_value = from_value(json::parse(text), d);
    } catch (const json::exception &e) {
        return std::string("not JSON: ") + e.what();
    }
    EXPECT_EQ(from_tokens(text, d, evpn::JsonReader::kDefaultBufferSize), by_value) << text;
    EXPECT_EQ(from_tokens(text, d, 3), by_value) << text;
    return by_value;
}

const BagDesc *const kMac = l2vpn_bag_dll__l2vpn_evpn_mac_bag();
const BagDesc *const kDetail = l2vpn_bag_dll__l2vpn_evpn_evi_detail_bag();
const BagDesc *const kSummary = l2vpn_bag_dll__l2vpn_evpn_summary_bag();

TEST(TokenRecords, AcceptTheSameValueForms) {
    const std::vector<std::pair<const BagDesc *, std::string>> cases = {
        {kMac, R"({"evi": "0x1f", "encap": "31", "l3_label": -5, "esi_port_key": 65535, "local_encap": 255})"},
        {kMac, R"({"local": 1, "proxy": 7, "remote": true, "resolved": false, "evi": -0})"},
        {kMac, R"({"l3_label": "-2147483648", "ethernet_tag": "4294967295"})"},
        {kMac, R"({"mac_state": "tab-free", "bd_name": "\u00e9\ud83d\ude00\u00a0"})"},
        {kMac, R"({"mac_address": "00:11:22:33:44:55", "ip_address": "2001:db8::1", "local_router_mac": "00-11-22-33-44-66"})"},
        {kMac, R"({"path_buffer": [], "local_sids": [{"SRv6_SID": "fc00::1", "sid_struct": {"FunctionLen": 16}}]})"},
        {kMac, R"({"path_buffer": [{"NextHop": "1.1.1.1", "Issues": [1, 2, 4294967295],
                   "SRv6_SIDInfo": [{"SRv6_SID": "fc00::2"}, {}]}, {"SR_TEInfo": {"SR_TEType": 2}}]})"},
        {kMac, R"({"event_history": {"evt_class_name": "x", "evt_entry": [{"evt_data": [1]}, {"evt_name": "n"}]}})"},
        {kDetail, R"({"srv6_locator_name": null, "bd_ptr": 18446744073709551615, "rd_auto": "raw:000000090000000000000000",
                      "rd_config": "1.1.1.1:5", "rt_auto": "4200000000:7", "rt_counters": []})"},
        {kSummary, R"({"es_diag": [{}, {"count": 3, "last_time": {"tv_sec": 5}}], "es_ead_pulses_pending": "0xffffffffffffffff"})"},
        // A field given twice keeps its last value, whatever came before.
        {kMac, R"({"evi": 1, "evi": 2})"},
        {kMac, R"({"path_buffer": [{"Issues": [1, 2]}, {}], "path_buffer": [{}]})"},
        {kMac, R"({"event_history": {"evt_class_name": "a", "evt_entry": [{}]}, "event_history": {}})"},
        {kSummary, R"({"es_diag": [{"count": 1}, {"count": 2}], "es_diag": [{"count": 3}]})"},
        {kDetail, R"({"srv6_locator_name": "x", "srv6_locator_name": null})"},
    };
    for (const auto &[d, text] : cases) EXPECT_EQ(both(d, text).rfind("ok ", 0), 0u) << text;
}

TEST(TokenRecords, RefuseWithTheSameMessages) {
    const std::string long_text(BAG_MAX_STRING + 1, 'x');
    std::string diag21 = "{}";
    for (int i = 0; i < 20; i++) diag21 += ", {}";
    const std::vector<std::tuple<const BagDesc *, std::string, std::string>> cases = {
        {kMac, "[]", "r: expected an object of l2vpn_evpn_mac_bag, got array"},
        {kMac, "5", "r: expected an object of l2vpn_evpn_mac_bag, got number"},
        {kMac, "null", "r: expected an object of l2vpn_evpn_mac_bag, got null"},
        {kMac, R"({"colour": 1})", "r.colour: unknown field of l2vpn_evpn_mac_bag"},
        {kMac, R"({"": 1})", "r.: unknown field of l2vpn_evpn_mac_bag"},
        {kMac, R"({"evi": "one"})", "r.evi: \"one\" is not a number"},
        {kMac, R"({"evi": ""})", "r.evi: empty number"},
        {kMac, R"({"evi": true})", "r.evi: expected a number, got true/false"},
        {kMac, R"({"evi": null})", "r.evi: expected a number, got null"},
        // Text holding control characters, NUL included, is no name and no number.
        {kMac, R"({"evi": "5\u0000x"})", "r.evi: text holds control character U+0000 at byte 1"},
        {kMac, R"({"mac_state": "a\u0000b"})", "r.mac_state: text holds control character U+0000 at byte 1"},
        {kMac, R"({"ip_address": "10.0.0.1\u0000junk"})", "r.ip_address: text holds control character U+0000"},
        {kMac, R"({"bd_name": "\u001b[31mred"})", "r.bd_name: text holds control character U+001B at byte 0"},
        {kMac, R"({"path_buffer": [{"SRv6_SIDInfo": [{}, {"SRv6_SID": "fc00::1\u0000"}]}]})",
         "r.path_buffer[0].SRv6_SIDInfo[1].SRv6_SID: text holds control character U+0000 at byte 7"},
        {kMac, R"({"evi": [1]})", "r.evi: expected a number, got array"},
        {kMac, R"({"evi": {}})", "r.evi: expected a number, got object"},
        {kMac, R"({"evi": -1})", "r.evi: value -1 out of range"},
        {kMac, R"({"evi": "-1"})", "r.evi: \"-1\" is not a number in range"},
        {kMac, R"({"evi": 4294967296})", "r.evi: value 4294967296 out of range"},
        {kMac, R"({"evi": "0x100000000"})", "r.evi: value 4294967296 out of range"},
        {kMac, R"({"l3_label": 2147483648})", "r.l3_label: value 2147483648 out of range"},
        {kMac, R"({"l3_label": -2147483649})", "r.l3_label: value -2147483649 out of range"},
        {kMac, R"({"local_encap": 256})", "r.local_encap: value 256 out of range"},
        {kMac, R"({"esi_port_key": 65536})", "r.esi_port_key: value 65536 out of range"},
        {kMac, R"({"mac_state": 5})", "r.mac_state: expected text, got number"},
        {kMac, R"({"mac_state": null})", "r.mac_state: expected text, got null"},
        {kMac, "{\"bd_name\": \"" + long_text + "\"}", "r.bd_name: text longer than 65536 bytes"},
        {kMac, R"({"mac_address": "0011.2233"})", "r.mac_address: \"0011.2233\" is not a MAC address"},
        {kMac, R"({"ip_address": "10.0.0.300"})", "r.ip_address: \"10.0.0.300\" is not an IP address"},
        {kMac, R"({"path_buffer": {}})", "r.path_buffer: expected a list"},
        {kMac, R"({"path_buffer": [5]})", "r.path_buffer[0]: expected an object of EvpnPath, got number"},
        {kMac, R"({"path_buffer": [{}, {"NextHop": "1.2.3"}]})", "r.path_buffer[1].NextHop: \"1.2.3\""},
        {kMac, R"({"path_buffer": [{"SR_TEInfo": {"SR_TEType": 256}}]})", "r.path_buffer[0].SR_TEInfo.SR_TEType: value 256"},
        {kMac, R"({"path_buffer": [{"SRv6_SIDInfo": [{}, {"sid_struct": {"Bogus": 1}}]}]})",
         "r.path_buffer[0].SRv6_SIDInfo[1].sid_struct.Bogus: unknown field of SidStructure"},
        {kMac, R"({"path_buffer": [{"Issues": [1, "x"]}]})", "r.path_buffer[0].Issues[1]: \"x\" is not a number"},
        {kMac, R"({"event_history": []})", "r.event_history: expected an object of evt_hist_bag, got array"},
        {kDetail, R"({"rd_auto": "100:x"})", "r.rd_auto: \"100:x\" is not an RD/RT"},
        {kDetail, R"({"rt_auto": "raw:0001"})", "r.rt_auto: \"raw:0001\" is not an RD/RT"},
        {kDetail, R"({"rt_counters": [1, -1]})", "r.rt_counters[1]: value -1 out of range"},
        {kDetail, R"({"srv6_locator_name": 5})", "r.srv6_locator_name: expected text, got number"},
        {kSummary, "{\"es_diag\": [" + diag21 + "]}", "r.es_diag: at most 20 elements"},
        {kSummary, R"({"es_diag": [{}, {"count": "x"}]})", "r.es_diag[1].count: \"x\" is not a number"},
        {kSummary, R"({"es_diag": 5})", "r.es_diag: expected a list"},
    };
    for (const auto &[d, text, says] : cases) {
        const std::string got = both(d, text);
        EXPECT_EQ(got.rfind("error " + says, 0), 0u) << text << ": " << got;
    }
}

// Names are matched by length and bytes, starting after the last field
// found; text and numbers that look fine up to a late byte take the full
// check. Read straight from tokens, as the loader does (the reference parser
// would sort and merge the names).
TEST(TokenRecords, NamesInAnyOrderAndLateFaultsAreFoundWhereTheyAre) {
    const std::string plain = "abcdefghijklmnopqrstuvw";  // three words and more
    const std::vector<std::pair<std::string, std::string>> cases = {
        // Fields backwards, and one named twice around others: the last wins.
        {R"({"bd_name": "b", "mac_state": "s", "encap": 2, "evi": 1, "bd_name": "c"})", "ok"},
        {R"({"evi": 1, "bp_ifh": 3, "evi": "x"})", "error r.evi: \"x\" is not a number"},
        {R"({"bp_ifh": 3, "evi": 2, "bp_ifh": -1})", "error r.bp_ifh: value -1 out of range"},
        // Prefixes, extensions and other cases of a field's name are no field.
        {R"({"evi": 1, "ev": 1})", "error r.ev: unknown field of l2vpn_evpn_mac_bag"},
        {R"({"evi": 1, "evix": 1})", "error r.evix: unknown field of l2vpn_evpn_mac_bag"},
        {R"({"bd_name": "b", "EVI": 1})", "error r.EVI: unknown field of l2vpn_evpn_mac_bag"},
        {R"({"path_buffer": [{"NextHop": "1.1.1.1", "NextHo": "1.1.1.1"}]})",
         "error r.path_buffer[0].NextHo: unknown field of EvpnPath"},
        // A bad byte after a long printable run, at every place in a word.
        {"{\"mac_state\": \"" + plain + "\\u0001x\"}",
         "error r.mac_state: text holds control character U+0001 at byte 23"},
        {"{\"mac_state\": \"" + plain.substr(0, 16) + "\\u007f\"}",
         "error r.mac_state: text holds control character U+007F at byte 16"},
        {"{\"mac_state\": \"" + plain.substr(0, 9) + "\\u0085" + plain + "\"}",
         "error r.mac_state: text holds control character U+0085 at byte 9"},
        {"{\"bd_name\": \"" + plain + "\\\"" + plain + "\"}", "ok"},
        // Numbers at the edges of each width.
        {R"({"local_encap": 255, "esi_port_key": 65535, "evi": 4294967295, "l3_label": 2147483647})", "ok"},
        {R"({"local": 4294967295, "proxy": true, "remote": false})", "ok"},
        {R"({"local": 4294967296})", "error r.local: value 4294967296 out of range"},
        {R"({"ext_flags": 18446744073709551615})", "error r.ext_flags: value 18446744073709551615 out of range"},
    };
    for (const auto &[text, says] : cases) {
        for (size_t buffer : {evpn::JsonReader::kDefaultBufferSize, size_t(5)}) {
            const std::string got = from_tokens(text, kMac, buffer);
            EXPECT_EQ(got.substr(0, says.size()), says) << text << " through " << buffer << " bytes";
        }
    }
    // The values land where they belong, whatever the order.
    std::istringstream in(R"({"bd_name": "b", "encap": 2, "local": true, "evi": 7, "bd_name": "c"})");
    evpn::JsonReader r(in);
    evpn::TokenRecordBuilder b;
    std::vector<uint64_t> rec(kMac->size / 8 + 1);
    evpn::RecordArena arena;
    std::string err;
    ASSERT_TRUE(b.build(r, r.next(), kMac, rec.data(), arena, "listing", 5, err)) << err;
    const auto *m = reinterpret_cast<const l2vpn_evpn_mac_bag *>(rec.data());
    EXPECT_EQ(m->evi, 7u);
    EXPECT_EQ(m->encap, 2u);
    EXPECT_EQ(m->local, 1u);
    EXPECT_STREQ(m->bd_name, "c");
}

// A record of a list is named by the list and its index, made only when it
// is wrong.
TEST(TokenRecords, AListedRecordIsNamedByItsIndex) {
    std::istringstream in(R"({"evi": 1, "path_buffer": [{}, {"Issues": [1, "x"]}]})");
    evpn::JsonReader r(in);
    evpn::TokenRecordBuilder b;
    std::vector<uint64_t> rec(kMac->size / 8 + 1);
    evpn::RecordArena arena;
    std::string err;
    EXPECT_FALSE(b.build(r, r.next(), kMac, rec.data(), arena, "/oper/ evpn_mac", 12345678901, err));
    EXPECT_EQ(err, "/oper/ evpn_mac[12345678901].path_buffer[1].Issues[1]: \"x\" is not a number");
}

// The loader reads tokens, which keep a number as it was written.
TEST(TokenRecords, NumbersThatAreNoIntegersSayWhy) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"({"evi": 1.5})", "r.evi: 1.5 is not an integer"},
        {R"({"evi": 1e30})", "r.evi: 1e30 is not an integer"},
        {R"({"evi": 1.0})", "r.evi: 1.0 is not an integer"},
        {R"({"evi": 18446744073709551616})", "r.evi: value 18446744073709551616 out of range"},
        {"{\"evi\": " + std::string(100000, '9') + "}", "r.evi: value 99999999999999999999... out of range"},
        {R"({"l3_label": -9223372036854775809})", "r.l3_label: value -9223372036854775809 out of range"},
    };
    for (const auto &[text, says] : cases)
        EXPECT_EQ(from_tokens(text, kMac, evpn::JsonReader::kDefaultBufferSize), "error " + says);
}

TEST(RecordArena, ReusedMemoryComesBackZeroedAndEarlierAllocationsStayPut) {
    evpn::RecordArena arena;
    std::vector<std::pair<char *, std::string>> texts;
    for (int round = 0; round < 3; round++) {
        texts.clear();
        // Enough to need several chunks, and one block bigger than any chunk.
        for (int i = 0; i < 3000; i++) {
            std::string s = std::to_string(round) + ":" + std::string(static_cast<size_t>(i % 97), 'a');
            texts.emplace_back(arena.text(s), s);
            auto *b = static_cast<uint8_t *>(arena.block(static_cast<size_t>(i % 50) + 1));
            ASSERT_EQ(reinterpret_cast<uintptr_t>(b) % 8, 0u);
            for (int k = 0; k < i % 50 + 1; k++) ASSERT_EQ(b[k], 0) << "round " << round << " block " << i;
            memset(b, 0xff, static_cast<size_t>(i % 50) + 1);
        }
        auto *big = static_cast<uint8_t *>(arena.block(1 << 20));
        for (size_t k = 0; k < (1 << 20); k += 4097) ASSERT_EQ(big[k], 0);
        memset(big, 0xee, 1 << 20);
        for (const auto &[p, s] : texts) ASSERT_STREQ(p, s.c_str());
        arena.clear();
    }
    EXPECT_STREQ(arena.text(""), "");
}

}  // namespace
