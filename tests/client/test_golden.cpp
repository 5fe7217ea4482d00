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
#include <sstream>
#include <string>
#include <vector>

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
    static std::map<std::string, std::string> built;
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
    // Traces may print heap addresses, which differ from run to run.
    const std::regex address("0x[0-9a-f]{7,}");
    EXPECT_EQ(std::regex_replace(json.err, address, "0xADDR"),
              std::regex_replace(text.err, address, "0xADDR"))
        << c.args;

    std::vector<std::string> walked;
    std::istringstream traces(text.err);
    for (std::string line; std::getline(traces, line);) {
        auto at = line.find(": Now displaying ");
        if (at != std::string::npos) walked.push_back(line.substr(at + 17));
    }
    size_t next = 0, lines = 0;
    std::istringstream records(json.out);
    for (std::string line; std::getline(records, line); lines++) {
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
    if (!walked.empty()) EXPECT_GT(lines, 0u) << c.args << ": the report walked records, the view has none";
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
