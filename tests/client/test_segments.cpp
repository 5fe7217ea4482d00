// Global summary report and the event trace table.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "evpn_show_print.h"
#include "platform/printers.h"

namespace {

template <class F>
std::string capture(F &&print) {
    fflush(stdout);
    testing::internal::CaptureStdout();
    print();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

// The demo router of tests/golden/summary.json: a small PE a minute after start-up.
class SummaryReport : public ::testing::Test {
  protected:
    void SetUp() override {
        saved_filter_ = show_filter;
        s_ = {};
        l2vpn_inet_pton("10.0.0.1", &s_.evpn_router_id);
        l2vpn_inet_pton("10.1.1.1", &s_.bgp_router_id);
        s_.bgp_asn = 65001;
        s_.bgp_eod = 1;
        s_.evi_count = 4;
        s_.local_mac_count = 37, s_.local_mac_ipv4_count = 12, s_.local_mac_ipv6_count = 3;
        s_.remote_mac_count = 58, s_.remote_mac_ipv4_count = 20, s_.remote_mac_ipv6_count = 6;
        s_.remote_sync_mac_count = 4;
        s_.local_imcast_count = 4, s_.remote_imcast_count = 8;
        s_.internal_label_count = 5, s_.mh_internal_id_count = 2;
        s_.es_count = 2, s_.neighbor_count = 3;
        s_.local_ead_count = 6, s_.remote_ead_count = 12;
        l2vpn_mac_pton("008a.9612.3401", s_.pbb_bsa_mac);
        s_.peering_timer = 3, s_.recovery_timer = 30, s_.carving_timer = 3;
        s_.ac_debounce_timer = 3000;
        s_.mac_postpone_timer = 300;
        s_.bringup_timer = 10000, s_.bringup_left = 2340;
        s_.bringup_queue_items = 3, s_.bringup_in_progress = 1;
        s_.backup_replacement_timer = 1500;
        s_.core_deisolation_timer = 60, s_.core_deisolation_left = 42500;
        s_.bgp_nh_pfx_len_ipv6 = 128;
        s_.df_election_logging = 1;
        s_.ntp_in_sync = 1;
        s_.event_history.evt_class_name = const_cast<char *>("evpn-global");
        s_.event_history.evt_entry = {5, events_};
        // Warnings, replay callback and done, advertise RT and ESI, EAD/ES, EAD/EVI, DF election.
        s_.es_diag[3] = {1, {1700725215, 20000000}, 0x2};
        s_.es_diag[5] = {1, {1700725212, 400000000}, 0x0};
        s_.es_diag[6] = {1, {1700725212, 410000000}, 0x0};
        s_.es_diag[7] = {4, {1700725212, 420000000}, 0x4};
        s_.es_diag[9] = {2, {1700725212, 430000000}, 0x2};
        s_.es_diag[11] = {2, {1700725262, 503000000}, 0x2};
        s_.es_diag[13] = {6, {1700725262, 504000000}, 0x64};
        s_.es_diag[17] = {2, {1700725262, 502000000}, 0x1};
    }
    void TearDown() override { show_filter = saved_filter_; }

    std::string report(bool private_view) {
        show_filter.private_view = private_view;
        return capture([&] { print_evpn_summary_bag(&s_, "summary", nullptr); });
    }

    static evt_hist_entry_bag entry(const char *ts, const char *name, bool many, bool sticky,
                                    std::vector<uint32_t> &words) {
        return {const_cast<char *>(ts), 0, const_cast<char *>(name), 1, many, sticky,
                {static_cast<uint32_t>(words.size()), words.data()}};
    }

    std::vector<uint32_t> w0_{1, 0, 0, 0}, w1_{0xfde9, 1, 0, 0}, w2_{2, 0, 0, 0}, w3_{1, 0},
        w4_{2, 4, 1, 0};
    evt_hist_entry_bag events_[5] = {
        entry("11/23 07:40:10.112", "Process start", false, true, w0_),
        entry("11/23 07:40:12.345", "BGP session up", false, false, w1_),
        entry("11/23 07:40:15.020", "Core isolation clear", false, false, w2_),
        entry("11/23 07:40:41.877", "BGP EOD received", false, true, w3_),
        entry("11/23 07:41:02.503", "ES DF election", true, false, w4_),
    };
    l2vpn_evpn_summary_bag s_;
    ShowFilter saved_filter_;
};

const std::string kCountsAndRouterId =
    "-----------------------------\n"
    "Global Information\n"
    "-----------------------------\n"
    "Number of EVIs                     : 4\n"
    "Number of TEPs                     : 0\n"
    "Number of Local EAD Entries        : 6\n"
    "Number of Remote EAD Entries       : 12\n"
    "Number of Local MAC Routes         : 37\n"
    "          MAC                      : 22\n"
    "          MAC-IPv4                 : 12\n"
    "          MAC-IPv6                 : 3\n"
    "Number of Local ES:Global MAC      : 0\n"
    "Number of Remote MAC Routes        : 58\n"
    "          MAC                      : 32\n"
    "          MAC-IPv4                 : 20\n"
    "          MAC-IPv6                 : 6\n"
    "Number of Remote SYNC MAC Routes   : 4\n"
    "Number of Local IMCAST Routes      : 4\n"
    "Number of Remote IMCAST Routes     : 8\n"
    "Number of Internal Labels          : 5\n"
    "Number of single-home Internal IDs : 0\n"
    "Number of multi-home Internal IDs  : 2\n"
    "Number of ES Entries               : 2\n"
    "Number of Neighbor Entries         : 3\n"
    "EVPN Router ID                     : 10.0.0.1\n";

const std::string kAsnAndTimers =
    "BGP ASN                            : 65001\n"
    "PBB BSA MAC address                : 008a.9612.3401\n"
    "Global peering timer               :      3 seconds\n"
    "Global recovery timer              :     30 seconds\n"
    "Global carving timer               :      3 seconds\n"
    "Global MAC postpone timer          :    300 seconds [not running]\n"
    "Global core de-isolation timer     :     60 seconds [running, 42.5 sec left]\n"
    "EVPN services costed out on node   : No\n"
    "          Startup-cost-in timer    : Not configured\n"
    "          EVPN manual cost-out     : No\n"
    "          EVPN Bundle Convergence  : No\n";

const std::string kPrivateLines =
    "Staggered bring-up timer           :  10000 milliseconds [running, 2.3 sec left]\n"
    "          Items in bring-up queue  : 3, In-Progress 1\n"
    "Global AC debounce timer           :   3000 milliseconds\n"
    "Backup replacement timer           :   1500 milliseconds [not running]\n"
    "DF Election logging                : enabled\n"
    "BGP Nexthop Resolution Pfx Len IPv6: 128\n"
    "-----------------------------\n"
    "High Availability Information\n"
    "-----------------------------\n"
    "BGP EOD                            : Y\n"
    "Number of Marked Remote MAC Routes : 0\n"
    "Number of Swept Remote MAC Routes  : 0\n"
    "Number of Marked Local MAC Routes  : 0\n"
    "Number of Swept Local MAC Routes   : 0\n"
    "Number of Marked IMCAST Routes     : 0\n"
    "Number of Swept IMCAST Routes      : 0\n"
    "Throttle send to L2RIB             : FALSE\n"
    "Number of ES/EAD pulses pending    : 0\n"
    "NTP Configured and in sync         : TRUE\n"
    "\n"
    "   Event Trace History [Total events: 5]\n"
    "-----------------------------------------------------------------------------------\n"
    "     Time                Event                Info1        Info2        Info3        Info4       \n"
    "     ====                =====                =====        =====        =====        =====       \n"
    "     11/23 07:40:10.112  Process start        0x1          0x0          0x0          0x0          -  S \n"
    "     11/23 07:40:12.345  BGP session up       0xfde9       0x1          0x0          0x0          -  - \n"
    "     11/23 07:40:15.020  Core isolation clear 0x2          0x0          0x0          0x0          -  - \n"
    "     11/23 07:40:41.877  BGP EOD received     0x1          0x0          0x0          0x0          -  S \n"
    "     11/23 07:41:02.503  ES DF election       0x2          0x4          0x1          0x0          M  - \n"
    "-----------------------------------------------------------------------------------\n"
    "\n"
    "Ethernet Segment Section\n"
    "                  | Cnt Last Time          Last Arg\n"
    "    Error Internal|   0 never                   0x0\n"
    "         Error API|   0 never                   0x0\n"
    "Error Collaborator|   0 never                   0x0\n"
    "          Warnings|   1 11/23 07:40:15.020      0x2\n"
    "    Empty NH Count|   0 never                   0x0\n"
    "Replay MP Callback|   1 11/23 07:40:12.400      0x0\n"
    "    Replay MP Done|   1 11/23 07:40:12.410      0x0\n"
    "      Advertise RT|   4 11/23 07:40:12.420      0x4\n"
    "       Withdraw RT|   0 never                   0x0\n"
    "     Advertise ESI|   2 11/23 07:40:12.430      0x2\n"
    "      Withdraw ESI|   0 never                   0x0\n"
    "  Advertise EAD/ES|   2 11/23 07:41:02.503      0x2\n"
    "   Withdraw EAD/ES|   0 never                   0x0\n"
    " Advertise EAD/EVI|   6 11/23 07:41:02.504     0x64\n"
    "  Withdraw EAD/EVI|   0 never                   0x0\n"
    "    Advertise SMAC|   0 never                   0x0\n"
    "     Withdraw SMAC|   0 never                   0x0\n"
    "    DF Election BP|   2 11/23 07:41:02.502      0x1\n"
    "     MAC Flush PEs|   0 never                   0x0\n"
    "      MAC Flush CE|   0 never                   0x0\n";

TEST_F(SummaryReport, PublicFormEndsWithBundleConvergenceLine) {
    EXPECT_EQ(report(false), kCountsAndRouterId + kAsnAndTimers);
}

TEST_F(SummaryReport, PrivateFormAddsBgpRouterIdAndEverythingAfterTheTimers) {
    EXPECT_EQ(report(true), kCountsAndRouterId +
                                "BGP Router ID                      : 10.1.1.1\n" +
                                kAsnAndTimers + kPrivateLines);
}

TEST_F(SummaryReport, RunningSuffixCutsTimeLeftToTenths) {
    const struct { uint32_t left_ms; const char *suffix; } cases[] = {
        {0, "[not running]\n"},
        {250, "[running, 0.2 sec left]\n"},
        {1000, "[running, 1.0 sec left]\n"},
        {99, "[running, 0.0 sec left]\n"},
        {1999, "[running, 1.9 sec left]\n"},
        {4294967295u, "[running, 4294967.2 sec left]\n"},
    };
    for (const auto &c : cases) {
        s_.mac_postpone_left = c.left_ms;
        EXPECT_TRUE(contains(report(false), std::string("Global MAC postpone timer          "
                                                        ":    300 seconds ") + c.suffix))
            << c.left_ms;
    }
}

TEST_F(SummaryReport, EachTimerShowsItsOwnTimeLeft) {
    s_.mac_postpone_left = 1100, s_.core_deisolation_left = 2200;
    s_.startup_cost_in_timer = 120, s_.startup_cost_in_left = 3300;
    s_.bringup_left = 4400, s_.backup_replacement_left = 5500;
    std::string out = report(true);
    EXPECT_TRUE(contains(out, ":    300 seconds [running, 1.1 sec left]\n"));
    EXPECT_TRUE(contains(out, ":     60 seconds [running, 2.2 sec left]\n"));
    EXPECT_TRUE(contains(out, "          Startup-cost-in timer    :    120 seconds "
                              "[running, 3.3 sec left]\n"));
    EXPECT_TRUE(contains(out, ":  10000 milliseconds [running, 4.4 sec left]\n"));
    EXPECT_TRUE(contains(out, ":   1500 milliseconds [running, 5.5 sec left]\n"));

    s_.startup_cost_in_left = 0;
    EXPECT_TRUE(contains(report(false), "          Startup-cost-in timer    :    120 seconds "
                                        "[not running]\n"));
}

TEST_F(SummaryReport, OddValuesPrintAsTheyAre) {
    s_.local_mac_count = 0, s_.local_mac_ipv4_count = 1, s_.local_mac_ipv6_count = 0;
    s_.remote_mac_count = 1, s_.remote_mac_ipv4_count = 0, s_.remote_mac_ipv6_count = 3;
    s_.bgp_asn = 0, s_.bgp_eod = 2;
    s_.costed_out = 1, s_.throttle_to_l2rib = 7, s_.df_election_logging = 0, s_.ntp_in_sync = 0;
    s_.es_ead_pulses_pending = 5000000000u;
    std::string out = report(true);
    EXPECT_TRUE(contains(out, "Number of Local MAC Routes         : 0\n"
                              "          MAC                      : 4294967295\n"));
    EXPECT_TRUE(contains(out, "Number of Remote MAC Routes        : 1\n"
                              "          MAC                      : 4294967294\n"));
    EXPECT_TRUE(contains(out, "BGP ASN                            : Invalid\n"));
    EXPECT_TRUE(contains(out, "BGP EOD                            : N\n"));
    EXPECT_TRUE(contains(out, "EVPN services costed out on node   : Yes\n"));
    EXPECT_TRUE(contains(out, "Throttle send to L2RIB             : TRUE\n"));
    EXPECT_TRUE(contains(out, "DF Election logging                : disabled\n"));
    EXPECT_TRUE(contains(out, "Number of ES/EAD pulses pending    : 5000000000\n"));
    EXPECT_TRUE(contains(out, "NTP Configured and in sync         : FALSE\n"));
}

TEST_F(SummaryReport, EmptyTraceIsOneLineFollowedByTheSection) {
    s_.event_history.evt_entry = {0, nullptr};
    EXPECT_TRUE(contains(report(true), "NTP Configured and in sync         : TRUE\n"
                                       "\nNo event in the Event Trace History\n"
                                       "Ethernet Segment Section\n"));
    EXPECT_EQ(capture([] { print_evt_trace_history(nullptr); }), "");
}

TEST(EventTrace, RowsShowZeroForWordsAnEntryDoesNotHold) {
    // Words past each entry's count are poison: reading them would show 0xbad.
    uint32_t words[] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0xbad, 0xbad};
    evt_hist_entry_bag e[4] = {
        {const_cast<char *>("01/01 00:00:00.000"), 0, const_cast<char *>("no data"), 0, 1, 1,
         {0, nullptr}},
        {const_cast<char *>("01/01 00:00:01.000"), 0, const_cast<char *>("one word"), 0, 0, 0,
         {1, &words[0]}},
        {const_cast<char *>("01/01 00:00:02.000"), 0, const_cast<char *>("three words"), 0, 0,
         1, {3, &words[3]}},
        {const_cast<char *>("01/01 00:00:03.000"), 0, const_cast<char *>("six words"), 0, 1, 0,
         {6, &words[0]}},
    };
    evt_hist_bag h{const_cast<char *>("evpn-client"), {4, e}};
    EXPECT_EQ(
        capture([&] { print_evt_trace_history(&h); }),
        "\n"
        "   Event Trace History [Total events: 4]\n"
        "-----------------------------------------------------------------------------------\n"
        "     Time                Event                Info1        Info2        Info3        Info4       \n"
        "     ====                =====                =====        =====        =====        =====       \n"
        "     01/01 00:00:00.000  no data              0x0          0x0          0x0          0x0          M  S \n"
        "     01/01 00:00:01.000  one word             0x11         0x0          0x0          0x0          -  - \n"
        "     01/01 00:00:02.000  three words          0x44         0x55         0x66         0x0          -  S \n"
        "     01/01 00:00:03.000  six words            0x11         0x22         0x33         0x44         M  - \n"
        "-----------------------------------------------------------------------------------\n"
        "\n");
}

}  // namespace
