// The client program from start-up to exit: options and their quirks, the
// database root, start-up failures and exit statuses.
#include "test_util.h"

namespace {

using spine_test::run_client;

const std::string kMissing = "EVPN_SYSDB=/nonexistent/evpn.db";
const std::string kMac = "show_evpn_mac: ", kMacs = "evpn_evi_detail/evi_child_container/evpn_mac";
const std::string kZeroHex(32, '0');

std::string bind_failure(const std::string &root) {
    return "main: sysdb_bind failed for '" + root + "': System database not available\n";
}

struct Case {
    std::vector<std::string> args, env;  // env: debug on and the empty database unless given
    int status;
    std::string out;  // the start of standard output; empty: nothing at all
    std::string traces;
};

TEST(SpineStartup, OptionsRootsAndExitStatuses) {
    const std::vector<Case> cases = {
        // The database file: missing, or not a database of ours.
        {{"0"}, {kMissing}, 1, "", bind_failure("/oper/evpn/gl/")},
        {{"0"}, {"EVPN_SYSDB=" EVPN_SOURCE_DIR "/CMakeLists.txt"}, 1, "",
         "main: sysdb_bind failed for '/oper/evpn/gl/': System database not bound, or not an EVPN "
         "operational database\n"},
        {{"0"}, {kMissing, "EVPN_DEBUG=0"}, 1, "", ""},
        // Roots: standby wins over a node id in either order; node ids are decimal.
        {{"-U", "standby", "-U", "3", "0"}, {kMissing}, 1, "", bind_failure("/oper/evpn/gl/stdby/")},
        {{"-U", "3", "-U", "standby", "0"}, {kMissing}, 1, "", bind_failure("/oper/evpn/gl/stdby/")},
        {{"-U", "standbyx", "0"}, {kMissing}, 1, "", bind_failure("/oper/evpn/node/0/")},
        {{"-U", "4294967294", "0"}, {kMissing}, 1, "", bind_failure("/oper/evpn/node/fffffffe/")},
        {{"-U", "-1", "0"}, {}, 1, "", "main: Invalid node id\n"},
        {{"-U", "4294967295", "0"}, {}, 1, "", "main: Invalid node id\n"},
        {{"-z", "0"}, {}, 1, "", "main: Invalid command option ?\n"},
        {{"-M"}, {}, 1, "", "main: Invalid command option ?\n"},
        {{"-0", "00.11", "9"}, {}, 1, "", "main: Failed to extract ESI\n"},
        // A value that does not scan: complaint, flag set, value as it was.
        {{"-M", "xyz", "0"}, {}, 0, ": sscanf(value) error. \n\nVPN-ID",
         kMac + "value filter path: " + kMacs + "-evi/0x0\n"},
        {{"-M", "5", "-M", "xyz", "0"}, {}, 0, ": sscanf(value) error. \n",
         kMac + "value filter path: " + kMacs + "-evi/0x5\n"},
        {{"-e", "zz", "1"}, {}, 0, ": sscanf(eth_tag) error. \n\nVPN-ID",
         "show_evpn_imcast: eth_tag filter path: "
         "evpn_evi_detail/evi_child_container/evpn_imcast-eth_tag/0\n"},
        {{"-M", "5", "-0", "0011.2233.4455.6677.8899", "-j", "zz", "b"}, {}, 0,
         ": sscanf(i_sid) error. \n\nNexthop",
         "show_evpn_pl: PL value + label esi + tag filter path: evpn_label_detail/"
         "label_child_container/evpn_pl-evi_esi_tag/0x5,0011.2233.4455.6677.8899,0\n"},
        {{"-N", "10.0.0.300", "0"}, {}, 0, ": inet_pton failed.\nVPN-ID",
         kMac + "ip filter path: " + kMacs + "-mac_ip/________,________,________," + kZeroHex +
             "\n"},
        {{"-5", "nope", "3"}, {}, 0, ": inet_pton failed.\nEthernet",
         "show_evpn_es: PW filter path: ethernet_segment-pw/" + kZeroHex + ",0x0\n"},
        // Values reach the paths: MAC parts share one flag, interface names
        // take their internal form, pseudowire ids are decimal.
        {{"-O", "1234", "0"}, {}, 0, "\nVPN-ID",
         kMac + "mac + ip filter path: " + kMacs + "-mac_ip/1234,0,0,________\n"},
        {{"-Q", "zz", "-P", "0x55", "0"}, {}, 0, "\nVPN-ID",
         kMac + "mac + ip filter path: " + kMacs + "-mac_ip/0,55,0,________\n"},
        {{"-i", "ports/1/eth1", "3"}, {}, 0, "\nEthernet",
         "show_evpn_es: intf filter path: ethernet_segment-ifname/ports_1_eth1\n"},
        {{"-5", "10.0.0.1", "-6", "100", "3"}, {}, 0, "\nEthernet",
         "show_evpn_es: PW filter path: ethernet_segment-pw/00000000000000000000ffff0a000001,0x64\n"},
        // The command is the last element in hexadecimal, low 32 bits,
        // whatever the element is ("-d" reads as minus 0xd).
        {{"-p", "0x13"}, {}, 0, "GES Association Map\n-------------------\n", ""},
        {{"-p", "100000013"}, {}, 0, "GES Association Map\n", ""},
        {{"-M", "5", "-n"}, {}, 0, "\nVPN-ID", kMac + "value filter path: " + kMacs + "-evi/0x5\n"},
        {{"-M", "5", "-d"}, {}, 1, "", "main: Invalid show command type 4294967283\n"},
        {{"14"}, {}, 1, "", "main: Invalid show command type 20\n"},
        {{"7"}, {}, 0, "", ""},
        // Start-up steps that fail.
        {{"7"}, {"EVPN_FAIL=l2fib_stats_client_init"}, 1, "",
         "main: l2fib_stats_client_init failed: Forwarding statistics service unreachable\n"},
    };
    for (const Case &k : cases) {
        std::vector<std::string> env = k.env;
        env.insert(env.end(), {"EVPN_DEBUG=ffffffff", "EVPN_SYSDB=" + spine_test::empty_db()});
        spine_test::ClientRun r = run_client(k.args, env);
        std::string what = testing::PrintToString(k.args);
        EXPECT_EQ(r.status, k.status) << what;
        EXPECT_EQ(k.out.empty() ? r.out : r.out.substr(0, k.out.size()), k.out) << what;
        EXPECT_EQ(spine_test::traces(r.err), k.traces) << what;
    }
}

TEST(SpineStartup, FailuresBeforeTheOptions) {
    spine_test::ClientRun r = run_client({}, {"EVPN_DEBUG=ffffffff"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Insufficient args (0)\n");
    for (const char *step : {"event_manager_create", "event_signal_attach"}) {
        r = run_client({"7"}, {std::string("EVPN_FAIL=") + step, "EVPN_SYSDB=" + spine_test::empty_db()});
        EXPECT_EQ(r.status, 1) << step;
        EXPECT_EQ(r.out, "") << step;
        EXPECT_NE(r.err.find(std::string("evpn_show_client: ") + step), std::string::npos) << r.err;
    }
}

}  // namespace
