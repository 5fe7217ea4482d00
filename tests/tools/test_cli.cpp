// The evpn_sysdb command line as a user meets it: help and version on
// standard output with status 0, every mistake named on standard error with
// status 2 and nothing written, the kinds and listings it offers.
#include <gtest/gtest.h>
#include <unistd.h>

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
        {{"dump", "--depth", "3"}, "unknown option '--depth'"},
        {{"load", "--db"}, "--db wants a value"},
        {{"load", "--db", db}, "which snapshot?"},
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

TEST(SysdbCli, ListingsNameEveryRegisteredListing) {
    subprocess::Run r = sysdb({"listings"});
    EXPECT_EQ(r.status, 0);
    for (const char *base : {"evpn_evi\n", "summary\n", "igmp\n", "tep\n", "tep/<item>/notification\n"})
        EXPECT_NE(r.out.find(base), std::string::npos) << base;
}

}  // namespace
