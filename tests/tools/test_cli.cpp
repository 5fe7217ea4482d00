// The evpn_sysdb command line as a user meets it: help and version on
// standard output with status 0, every mistake named on standard error with
// status 2 and nothing written, the kinds and listings it offers.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "subprocess.h"

namespace {

subprocess::Run sysdb(std::vector<std::string> args) {
    args.insert(args.begin(), EVPN_SYSDB_BIN);
    return subprocess::run(args);
}

TEST(SysdbCli, HelpAndVersionGoToStandardOutputWithStatusZero) {
    for (const char *flag : {"--help", "-h", "help"}) {
        subprocess::Run r = sysdb({flag});
        EXPECT_EQ(r.status, 0) << flag;
        EXPECT_NE(r.out.find("usage: evpn_sysdb load"), std::string::npos) << flag;
        EXPECT_NE(r.out.find("  --igmp "), std::string::npos) << flag;  // the kinds are listed
        EXPECT_NE(r.out.find("(build tree)"), std::string::npos) << flag;  // which default applies
        EXPECT_EQ(r.err, "") << flag;
    }
    subprocess::Run v = sysdb({"--version"});
    EXPECT_EQ(v.status, 0);
    EXPECT_EQ(v.out, "evpn_sysdb " EVPN_VERSION "\n");
}

TEST(SysdbCli, EveryMistakeNamesTheArgumentThatIsWrong) {
    std::string db = "/tmp/evpn_cli_test_" + std::to_string(getpid()) + ".db";
    const struct {
        std::vector<std::string> args;
        const char *message;
    } cases[] = {
        {{}, "which command?"},
        {{"frob"}, "unknown command 'frob'"},
        {{"gen", "--routes", "12x", "--db", db}, "--routes wants a whole number, got '12x'"},
        {{"gen", "--evis", "0", "--routes", "1", "--db", db}, "--evis wants 1 to 4294967295, got '0'"},
        {{"gen", "--tpes", "5", "--db", db}, "unknown option '--tpes'"},
        {{"gen", "--routes"}, "--routes wants a value"},
        {{"gen", "--db", db}, "nothing to make"},
        {{"dump", "--root", "/oper/evpn/x/", "--db", db}, "unknown root '/oper/evpn/x/'"},
        {{"dump", "a", "b", "--db", db}, "one argument only, got 'a' and 'b'"},
        {{"dump", "--depth", "evpn_evi"}, "unknown option '--depth'"},
        {{"load", "--db"}, "--db wants a value"},
        {{"load", "--db", db}, "which snapshot?"},
        {{"gen-bmp", "--out", db}, "how many routes? give --routes N"},
        {{"gen-bmp", "--routes", "5"}, "where to? give --out FILE"},
        {{"gen-bmp", "--routes", "5", "--peers", "0", "--out", db}, "--peers wants 1 to 4294967295, got '0'"},
        {{"gen-bmp", "--routes", "5", "--frob", "--out", db}, "unknown option '--frob'"},
    };
    for (const auto &c : cases) {
        subprocess::Run r = sysdb(c.args);
        std::string line;
        for (const std::string &a : c.args) line += " " + a;
        EXPECT_EQ(r.status, 2) << line;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << line << "\n" << r.err;
        EXPECT_NE(r.err.find("Try 'evpn_sysdb --help'."), std::string::npos) << line;
        EXPECT_EQ(r.out, "") << line;
        EXPECT_NE(access(db.c_str(), F_OK), 0) << line << ": wrote " << db;
    }
}

std::string file_text(const std::string &path) {
    std::string s;
    if (FILE *f = fopen(path.c_str(), "rb")) {
        char buf[65536];
        for (size_t n; (n = fread(buf, 1, sizeof buf, f)) > 0;) s.append(buf, n);
        fclose(f);
    }
    return s;
}

TEST(SysdbCli, GenBmpWritesTheSameStreamForTheSameSeedAndReportsAFullDisk) {
    const std::string a = "/tmp/evpn_cli_bmp_a_" + std::to_string(getpid());
    const std::string b = "/tmp/evpn_cli_bmp_b_" + std::to_string(getpid());
    for (const std::string &out : {a, b}) {
        subprocess::Run r = sysdb({"gen-bmp", "--routes", "300", "--peers", "3", "--withdraw", "--out", out});
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.err.find("1500 routes announced, 1500 withdrawn"), std::string::npos) << r.err;
    }
    const std::string text = file_text(a);
    ASSERT_GT(text.size(), 6u);
    EXPECT_EQ(text[0], 3) << "BMP version 3";
    EXPECT_EQ(text, file_text(b));
    unlink(a.c_str());
    unlink(b.c_str());

    subprocess::Run full = sysdb({"gen-bmp", "--routes", "100000", "--out", "/dev/full"});
    EXPECT_EQ(full.status, 1);
    EXPECT_NE(full.err.find("/dev/full: No space left on device"), std::string::npos) << full.err;
}

TEST(SysdbCli, ListingsNameEveryRegisteredListing) {
    subprocess::Run r = sysdb({"listings"});
    EXPECT_EQ(r.status, 0);
    for (const char *base : {"evpn_evi\n", "summary\n", "igmp\n", "tep\n", "tep/<item>/notification\n"})
        EXPECT_NE(r.out.find(base), std::string::npos) << base;
}

}  // namespace
