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
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
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

class Golden : public testing::TestWithParam<std::string> {};

TEST_P(Golden, ReportMatches) {
    Case c;
    ASSERT_TRUE(read_case(GetParam(), c)) << "malformed case " << GetParam();
    fs::path dir = fs::path(EVPN_SOURCE_DIR) / "tests" / "golden";
    // One database per snapshot, built once per test run.
    static std::map<std::string, std::string> built;
    std::string &db = built[c.snapshot];
    if (db.empty()) {
        db = (fs::temp_directory_path() /
              ("evpn-golden-" + std::to_string(getpid()) + "-" + fs::path(c.snapshot).stem().string() + ".db"))
                 .string();
        std::ifstream in(dir / c.snapshot, std::ios::binary);
        ASSERT_TRUE(in) << c.snapshot;
        evpn::LoadStats stats;
        std::string err;
        fs::remove(db);
        ASSERT_TRUE(evpn::load_snapshot(in, db, stats, err)) << err;
    }
    subprocess::Run r = run_client(db, c);
    const std::string &got = r.out;
    EXPECT_EQ(r.status, c.status) << r.err;
    EXPECT_EQ(got, c.expected) << "case " << c.name << ": " << c.args;
    if (got != c.expected && getenv("EVPN_GOLDEN_ACTUAL")) {
        std::ofstream(std::string(getenv("EVPN_GOLDEN_ACTUAL")) + "/" + c.name + ".out", std::ios::binary)
            << got;
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
