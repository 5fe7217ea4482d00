// Golden report tests: each tests/golden/cases/*.test names a snapshot, an
// environment and a command line, and holds the exact standard output the
// client must print for them.
//
//   snapshot: mac_routes.json
//   env: EVPN_SRV6_ELAN=1
//   args: -d 0
//   status: 0
//   ---
//   <expected standard output, byte for byte>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <signal.h>
#include <sqlite3.h>

#include "client/test_util.h"
#include "platform/infra.h"
#include "platform/sysdb.h"
#include "platform/sysdb_schema.h"
#include "snapshot.h"
#include "subprocess.h"

namespace fs = std::filesystem;

namespace {

struct Case {
    std::string name, snapshot, env, args, expected;
    int status = 0;
};

bool read_case(const fs::path &p, Case &c) {
    std::ifstream in(p, std::ios::binary);
    std::string line;
    c.name = p.stem().string();
    while (std::getline(in, line)) {
        if (line == "---") {
            std::stringstream rest;
            rest << in.rdbuf();
            c.expected = rest.str();
            return !c.snapshot.empty();
        }
        auto colon = line.find(": ");
        if (colon == std::string::npos) continue;
        std::string key = line.substr(0, colon), value = line.substr(colon + 2);
        if (key == "snapshot") c.snapshot = value;
        else if (key == "env") c.env = value;
        else if (key == "args") c.args = value;
        else if (key == "status") c.status = std::stoi(value);
    }
    return false;
}

std::vector<std::string> split_words(const std::string &s) {
    std::istringstream in(s);
    std::vector<std::string> words;
    for (std::string w; in >> w;) words.push_back(w);
    return words;
}

// Runs the client with the database and the case's environment.
subprocess::Run run_client(const std::string &db, const Case &c) {
    std::vector<std::string> args = split_words(c.args), env = split_words(c.env);
    args.insert(args.begin(), EVPN_CLIENT_BIN);
    env.push_back("EVPN_SYSDB=" + db);
    return subprocess::run(args, env);
}

// The database of a case's snapshot, built once per test run; empty on failure.
std::string database_of(const Case &c) {
    fs::path dir = fs::path(EVPN_SOURCE_DIR) / "tests" / "golden";
    // Each test runs in a process of its own: the databases it built go at exit.
    static struct Built : std::map<std::string, std::string> {
        ~Built() {
            std::error_code ec;
            for (auto &[snapshot, path] : *this)
                if (!path.empty()) fs::remove(path, ec);
        }
    } built;
    std::string &db = built[c.snapshot];
    if (db.empty()) {
        std::string path = (fs::temp_directory_path() /
                            ("evpn-golden-" + std::to_string(getpid()) + "-" +
                             fs::path(c.snapshot).stem().string() + ".db"))
                               .string();
        std::ifstream in(dir / c.snapshot, std::ios::binary);
        evpn::LoadStats stats;
        std::string err;
        fs::remove(path);
        if (!in || !evpn::load_snapshot(in, path, stats, err)) {
            ADD_FAILURE() << c.snapshot << ": " << err;
            return "";
        }
        db = path;
    }
    return db;
}

class Golden : public testing::TestWithParam<std::string> {};

TEST_P(Golden, ReportMatches) {
    Case c;
    ASSERT_TRUE(read_case(GetParam(), c)) << "malformed case " << GetParam();
    std::string db = database_of(c);
    ASSERT_FALSE(db.empty());
    subprocess::Run r = run_client(db, c);
    const std::string &got = r.out;
    EXPECT_EQ(r.status, c.status) << r.err;
    EXPECT_EQ(got, c.expected) << "case " << c.name << ": " << c.args;
    if (got != c.expected && getenv("EVPN_GOLDEN_ACTUAL")) {
        std::ofstream(std::string(getenv("EVPN_GOLDEN_ACTUAL")) + "/" + c.name + ".out", std::ios::binary)
            << got;
    }
}

// The JSON view of the same command line (`evpn_sysdb dump ARGS`) makes the
// same requests with the same traces and lists records of the report only, in
// its order: each line's item name is one the report's walk displayed.
TEST_P(Golden, JsonViewListsTheReportsRecords) {
    Case c;
    ASSERT_TRUE(read_case(GetParam(), c)) << "malformed case " << GetParam();
    std::string db = database_of(c);
    ASSERT_FALSE(db.empty());
    std::vector<std::string> env = split_words(c.env);
    env.push_back("EVPN_SYSDB=" + db);
    env.push_back("EVPN_DEBUG=480001");  // errors (each record walked) and database paths
    std::vector<std::string> text_args = split_words(c.args), json_args = text_args;
    text_args.insert(text_args.begin(), EVPN_CLIENT_BIN);
    json_args.insert(json_args.begin(), {EVPN_SYSDB_BIN, "dump"});
    subprocess::Run text = subprocess::run(text_args, env), json = subprocess::run(json_args, env);
    EXPECT_EQ(json.status, text.status) << c.args << "\n" << json.err;
    // The MAC trace prints its path buffer's heap address, which differs from
    // run to run.
    const std::regex address("PathBuffer: 0x[0-9a-f]+");
    EXPECT_EQ(std::regex_replace(json.err, address, "PathBuffer: ADDR"),
              std::regex_replace(text.err, address, "PathBuffer: ADDR"))
        << c.args;

    std::vector<std::string> walked;
    std::istringstream traces(text.err);
    for (std::string line; std::getline(traces, line);) {
        auto at = line.find(": Now displaying ");
        if (at != std::string::npos) walked.push_back(line.substr(at + 17));
    }
    size_t next = 0;
    std::istringstream records(json.out);
    for (std::string line; std::getline(records, line);) {
        nlohmann::json j = nlohmann::json::parse(line, nullptr, false);
        ASSERT_FALSE(j.is_discarded()) << c.args << ": not JSON: " << line;
        ASSERT_TRUE(j.contains("record") && j.contains("path")) << line;
        std::string name = j.value("name", "");
        if (walked.empty()) {
            continue;  // a single item: no walk to follow
        }
        while (next < walked.size() && walked[next] != name) next++;
        ASSERT_LT(next, walked.size()) << c.args << ": " << name << " out of the report's order";
        next++;
    }
}

// The view's records are the report's rows, in the report's order: the MAC
// and IP columns of the MAC listing read from the text against the records.
TEST(JsonView, MacRecordsComeInTheReportsRowOrder) {
    Case c;
    c.snapshot = "mac_routes.json";
    std::string db = database_of(c);
    ASSERT_FALSE(db.empty());
    std::vector<std::string> env{"EVPN_SYSDB=" + db};
    subprocess::Run text = subprocess::run({EVPN_CLIENT_BIN, "-M", "64", "0"}, env);
    subprocess::Run json = subprocess::run({EVPN_SYSDB_BIN, "dump", "-M", "64", "0"}, env);
    ASSERT_EQ(text.status, 0);
    ASSERT_EQ(json.status, 0) << json.err;
    std::vector<std::string> rows, records;
    std::istringstream t(text.out), j(json.out);
    for (std::string line; std::getline(t, line);) {
        std::vector<std::string> w = split_words(line);
        if (w.size() >= 4 && w[0] == "100") rows.push_back(w[2] + " " + w[3]);
    }
    for (std::string line; std::getline(j, line);) {
        nlohmann::json r = nlohmann::json::parse(line)["record"];
        std::string ip = r["ip_address"];
        records.push_back(r["mac_address"].get<std::string>() + " " + (ip.empty() ? "::" : ip));
    }
    // A route with several paths prints a row per path: the report's rows
    // with repeats folded are the records.
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    EXPECT_EQ(records, rows);
    EXPECT_GE(records.size(), 5u);
}

// ---- The walk's failure paths, for every record type ---------------------

const fs::path kCases = fs::path(EVPN_SOURCE_DIR) / "tests" / "golden" / "cases";

Case case_named(const std::string &name) {
    Case c;
    EXPECT_TRUE(read_case(kCases / (name + ".test"), c)) << name;
    return c;
}

// A copy of the case's database with sql run on it.
std::string altered(const Case &c, const std::string &name, const std::string &sql) {
    const std::string db = spine_test::scratch(name);
    fs::copy_file(database_of(c), db, fs::copy_options::overwrite_existing);
    spine_test::sql(db, sql);
    return db;
}

subprocess::Run run_with_errors(const std::string &db, const Case &c) {
    Case traced = c;
    traced.env += " EVPN_DEBUG=400001";
    return run_client(db, traced);
}

// Every listing and single item a command reads, by the golden case that
// shows it: its items, or the first of them by key, do not decode.
struct Listing {
    const char *golden, *path;
    bool first_only;  // else every item of the listing
    const char *trace;  // what the client traces for an item that does not decode
};
constexpr const char *kWalkDecode = "evpn_show_datalist_display: bag decode ";
constexpr const char *kGetDecode = "evpn_show_get_display: evpn_show_get_display: bag_decode failed";
const Listing kListings[] = {
    {"mac_detail", "evpn_evi_detail/evi_child_container/evpn_mac", true, kWalkDecode},
    {"mac_filter_bd", "evpn_evi_detail/evi_child_container/evpn_mac", true, kWalkDecode},
    {"imcast_detail", "evpn_evi_detail/evi_child_container/evpn_imcast", true, kWalkDecode},
    {"label_brief", "evpn_label", true, kWalkDecode},
    {"label_detail", "evpn_label_detail", true, kWalkDecode},
    {"iid_brief", "evpn_internal_id", true, kWalkDecode},
    {"iid_detail", "evpn_internal_id_detail", true, kWalkDecode},
    {"es_detail", "ethernet_segment", true, kWalkDecode},
    {"rd_database", "rd_private", true, kWalkDecode},
    {"evi_brief", "evpn_evi", true, kWalkDecode},
    // Without statistics: a skipped EVI moves the later EVIs of its batch to
    // other entries of the statistics table (the entry is the printed index).
    {"evi_detail_no_stats", "evpn_evi_detail/detailed_elements", true, kWalkDecode},
    {"evi_detail", "evpn_evi_detail/evi_child_container/evi_route_targets", true, kWalkDecode},
    {"neighbor_brief", "evpn_evi_detail/evi_child_container/evpn_neighbor", true, kWalkDecode},
    {"ead_detail", "evpn_evi_detail/evi_child_container/evpn_ead", true, kWalkDecode},
    {"acid_brief", "evpn_atom_acid", true, kWalkDecode},
    {"acid_one", "evpn_atom_acid", false, kGetDecode},
    {"pl_detail", "evpn_label_detail/label_child_container/evpn_pl", true, kWalkDecode},
    {"remote_shg_detail", "remote_shg", true, kWalkDecode},
    {"igmp_detail", "igmp", true, kWalkDecode},
    {"clients", "client", true, kWalkDecode},
    {"grp_all", "evpn_grp", true, kWalkDecode},
    {"grp_one", "evpn_grp", false, "show_evpn_grp: show_evpn_grp: bag decode failed"},
    {"tep_detail", "tep", true, ""},  // the platform's list display traces nothing
    {"tep_detail", "tep/1/notification", true, kWalkDecode},
    {"srv6_detail", "srv6", false, kGetDecode},
    {"ges_map_private", "ges-map", true, kWalkDecode},
    {"summary_private", "summary", false, kGetDecode},
};

std::string items_of(const char *path, bool first_only) {
    const std::string list = std::string("list = (SELECT id FROM " SYSDB_LISTINGS " WHERE root = '/oper/evpn/gl/' AND path = '") +
                             path + "')";
    if (!first_only) return "SELECT rowid FROM item WHERE " + list;
    return "SELECT rowid FROM item WHERE " + list + " ORDER BY skey LIMIT 1";
}

// The report without the damaged items is the report of the database
// without them: the walk skips each with its trace and goes on.
TEST(GoldenWalk, AnItemThatDoesNotDecodeIsLeftOutOfEveryReportAndTraced) {
    for (const Listing &l : kListings) {
        SCOPED_TRACE(std::string(l.golden) + " " + l.path);
        const Case c = case_named(l.golden);
        const std::string which = items_of(l.path, l.first_only);
        const std::string bad = altered(c, "undecodable.db", "UPDATE item SET data = x'ff0102' WHERE rowid IN (" + which + ")");
        const std::string without = altered(c, "without.db", "DELETE FROM item WHERE rowid IN (" + which + ")");
        auto reference = run_client(without, c), got = run_with_errors(bad, c);
        ASSERT_NE(reference.out, c.expected) << "the damaged items are part of the report";
        EXPECT_EQ(got.status, c.status);
        EXPECT_EQ(got.out, reference.out);
        EXPECT_NE(spine_test::traces(got.err).find(l.trace), std::string::npos) << got.err;
    }
}

// A store that fails every read of an item: each command prints what it
// prints for no items at all, and says why where its trace is defined: a
// walk's "sysdb_datalist", the EVPN group fetch's "sysdb item get failed".
TEST(GoldenWalk, AStoreThatFailsEveryItemReadLeavesTheHeaderAndTracesTheWalk) {
    const std::string corrupt = cerr_strerror(SYSDB_ERR_CORRUPT);
    std::set<std::string> seen;
    for (const Listing &l : kListings) {
        if (!seen.insert(l.golden).second) continue;
        SCOPED_TRACE(l.golden);
        const Case c = case_named(l.golden);
        const std::string none = altered(c, "none.db", "DELETE FROM item; DELETE FROM item_index");
        const std::string db = altered(c, "failing.db", "");
        spine_test::zero_root(db, "item");
        auto reference = run_client(none, c), got = run_with_errors(db, c);
        EXPECT_EQ(got.status, c.status);
        EXPECT_EQ(got.out, reference.out);
        const std::string traces = spine_test::traces(got.err);
        if (l.trace == kWalkDecode) {
            EXPECT_NE(traces.find("evpn_show_datalist_display: sysdb_datalist " + corrupt), std::string::npos) << traces;
        } else if (std::string(l.golden) == "grp_one") {
            EXPECT_EQ(traces, "show_evpn_grp: show_evpn_grp: sysdb item get failed: path:evpn_grp/1f rc:" + corrupt + "\n");
        } else if (l.trace == kGetDecode) {
            EXPECT_EQ(traces, "") << "a failed single get is not traced";
        }
    }
}

// Every batch cut after its first item, as a batch past the byte budget is:
// each listing resumes after each of its names, filtered or not, and every
// report comes out whole.
TEST_P(Golden, ReportIsWholeWhenEveryBatchIsCutAfterItsFirstItem) {
    Case c;
    ASSERT_TRUE(read_case(GetParam(), c)) << "malformed case " << GetParam();
    const std::string db = database_of(c);
    ASSERT_FALSE(db.empty());
    std::vector<std::string> words = split_words(c.args), env = split_words(c.env);
    // A detailed EVI takes the statistics entry at its printed index modulo
    // 200: a batch cut short moves the later EVIs to entries of no record.
    auto has = [&](const char *w) { return std::find(words.begin(), words.end(), w) != words.end(); };
    if (!words.empty() && words.back() == "5" && (has("-d") || has("-p")) && !has("-n") && !has("-M"))
        GTEST_SKIP() << "statistics entries follow full batches";
    words.insert(words.begin(), "evpn_show_client");
    std::vector<char *> argv;
    for (std::string &w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    for (const std::string &e : env) putenv(const_cast<char *>(e.c_str()));
    setenv("EVPN_SYSDB", db.c_str(), 1);
    platform_caps_reset();
    show_filter = ShowFilter{.node_id = L2FIB_ALL_NODES};
    optind = 0;
    l2vpn_optind = 1;
    l2vpn_optarg = nullptr;
    std::vector<uint32_t> counts;
    sysdb_set_batch_byte_budget(1);
    int status = -1;
    spine_test::Capture got = spine_test::capture(
        [&] { status = evpn_show_main(static_cast<int>(argv.size() - 1), argv.data()); });
    sysdb_set_batch_byte_budget(0);
    for (const std::string &e : env) unsetenv(e.substr(0, e.find('=')).c_str());
    unsetenv("EVPN_SYSDB");
    platform_caps_reset();
    EXPECT_EQ(status, c.status);
    EXPECT_EQ(got.out, c.expected) << c.args;
    for (const sysdb_request_s &r : got.requests) EXPECT_LE(r.count_out, 1u) << r.path;
}

// SIGTERM while a listing is being written: status 1 and what was written
// so far, a part of the report cut nowhere else than where the kill found it.
TEST(GoldenWalk, SigtermMidListingEndsWithStatusOneAndAPrefixOfTheReport) {
    const std::string db = spine_test::scratch("sigterm.db");
    auto gen = subprocess::run({EVPN_SYSDB_BIN, "gen", "--routes", "3000", "--evis", "30", "--teps", "3000",
                                "--ac-ids", "6000", "--igmp", "3000", "--es", "1500", "--imcast", "6000",
                                "--neighbors", "3000", "--labels", "3000", "--pathlists", "3000", "--ead",
                                "3000", "--db", db});
    ASSERT_EQ(gen.status, 0) << gen.err;
    const std::vector<std::vector<std::string>> commands = {
        {"0"}, {"1"}, {"-d", "2"}, {"-d", "3"}, {"-t", "8"}, {"9"}, {"a"}, {"b"}, {"d"}, {"10"}};
    for (const auto &args : commands) {
        SCOPED_TRACE(args.back());
        const auto whole = spine_test::run_client(args, {"EVPN_SYSDB=" + db});
        ASSERT_EQ(whole.status, 0);
        // Past the pipe's 64 KiB and the client's 64 KiB buffer, with room.
        ASSERT_GT(whole.out.size(), 200000u) << "long enough to be cut mid-listing";
        std::vector<std::string> argv{EVPN_CLIENT_BIN};
        argv.insert(argv.end(), args.begin(), args.end());
        subprocess::Argv a(argv, {"EVPN_SYSDB=" + db});
        int out[2];
        ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
        posix_spawn_file_actions_t fa;
        posix_spawn_file_actions_init(&fa);
        posix_spawn_file_actions_adddup2(&fa, out[1], 1);
        pid_t pid = -1;
        ASSERT_EQ(posix_spawn(&pid, a.argv[0], &fa, nullptr, a.argv.data(), a.envp.data()), 0);
        posix_spawn_file_actions_destroy(&fa);
        close(out[1]);
        // The first block, then the client blocks on the full pipe: mid-listing.
        std::string got;
        char buf[65536];
        ssize_t n = read(out[0], buf, sizeof buf);
        ASSERT_GT(n, 0);
        got.append(buf, static_cast<size_t>(n));
        usleep(50 * 1000);
        kill(pid, SIGTERM);
        while ((n = read(out[0], buf, sizeof buf)) > 0) got.append(buf, static_cast<size_t>(n));
        close(out[0]);
        EXPECT_EQ(subprocess::wait_for(pid), 1);
        EXPECT_LT(got.size(), whole.out.size());
        EXPECT_EQ(whole.out.compare(0, got.size(), got), 0) << "not a prefix of the report";
    }
}

std::vector<std::string> cases() {
    std::vector<std::string> v;
    fs::path dir = fs::path(EVPN_SOURCE_DIR) / "tests" / "golden" / "cases";
    if (fs::exists(dir))
        for (const auto &e : fs::directory_iterator(dir))
            if (e.path().extension() == ".test") v.push_back(e.path().string());
    std::sort(v.begin(), v.end());
    return v;
}

INSTANTIATE_TEST_SUITE_P(Cases, Golden, testing::ValuesIn(cases()),
                         [](const testing::TestParamInfo<std::string> &i) {
                             std::string n = fs::path(i.param).stem().string();
                             for (char &ch : n)
                                 if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
                             return n;
                         });
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Golden);

}  // namespace
