// Printers of segment and system records: the global summary report and its
// event trace table, AC IDs, remote split-horizon groups and IGMP routes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "evpn_show_print.h"
#include "stdout_capture.h"
#include "platform/printers.h"

namespace {


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
        return stdout_of([&] { print_evpn_summary_bag(&s_, "summary", nullptr); });
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

// The whole report, both forms, is checked byte for byte by the golden cases
// summary_public and summary_private, whose snapshot holds this record.

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
    EXPECT_EQ(stdout_of([] { print_evt_trace_history(nullptr); }), "");
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
        stdout_of([&] { print_evt_trace_history(&h); }),
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

// ---- AC IDs ----------------------------------------------------------------------

// Every test starts with no option set.
class SegmentPrinters : public ::testing::Test {
  protected:
    void SetUp() override {
        saved_filter_ = show_filter;
        show_filter = ShowFilter{};
    }
    void TearDown() override { show_filter = saved_filter_; }
    ShowFilter saved_filter_;
};

TEST_F(SegmentPrinters, AcIdRowPrintsEachIdInItsColumnAndHistoryOnlyInPrivate) {
    const std::string row = "5          42              43             \n";
    const struct {
        uint32_t vpn_id, source, target;
        uint8_t detail, private_view;
        std::string out;
    } cases[] = {
        {5, 42, 43, 0, 0, row},
        {5, 42, 43, 1, 0, row},
        {5, 42, 43, 0, 1, row + "\nAC-ID event history\n    No events\n"},
        {4294967295u, 4294967295u, 0, 0, 0, "4294967295 4294967295      0              \n"},
    };
    for (const auto &c : cases) {
        l2vpn_atom_acid_bag ac{};
        ac.vpn_id = c.vpn_id, ac.source_ac_id = c.source, ac.target_ac_id = c.target;
        show_filter.detail = c.detail, show_filter.private_view = c.private_view;
        EXPECT_EQ(stdout_of([&] { print_atom_acid_bag(&ac, "0x5,2a", nullptr); }), c.out)
            << c.vpn_id << " " << int(c.detail) << int(c.private_view);
    }
}

// ---- Remote split-horizon groups ---------------------------------------------------

l2vpn_ip_addr_t ip(const char *text) {
    l2vpn_ip_addr_t a{};
    EXPECT_NE(l2vpn_inet_pton(text, &a), 0) << text;
    return a;
}

TEST_F(SegmentPrinters, RemoteShgLabelsReadAsMplsLabelsWhateverTheEncapsulation) {
    const struct {
        uint8_t encap;
        uint32_t label;
        const char *nexthop, *line;
    } cases[] = {
        {EVPN_ENCAP_MPLS, 0xFFFFF, "10.0.0.2", "            1048575 : nexthop 10.0.0.2\n"},
        {EVPN_ENCAP_VXLAN, 0x100000, "10.0.0.2", "            Invalid : nexthop 10.0.0.2\n"},
        {EVPN_ENCAP_VXLAN, 3, "10.0.0.2", "           IMP-NULL : nexthop 10.0.0.2\n"},
    };
    for (const auto &c : cases) {
        l2vpn_evpn_remote_shg_label_entry entry{ip(c.nexthop), c.label};
        l2vpn_evpn_remote_shg_bag shg{};
        shg.esi_text = const_cast<char *>("0011.2233.4455.6677.8899");
        shg.vpn_id = 5, shg.encap = c.encap;
        shg.remote_shg_labels = {1, &entry};
        const std::string first = std::string("5          ") +
                                  (c.encap == EVPN_ENCAP_MPLS ? "MPLS  " : "VXLAN ") +
                                  " 0011.2233.4455.6677.8899\n  Remote SHG labels : 1\n";
        EXPECT_EQ(stdout_of([&] { print_evpn_remote_shg_bag(&shg, "x", nullptr); }),
                  first + c.line + "\n")
            << c.label;
    }
}

// ---- IGMP routes --------------------------------------------------------------------

// A text padded and cut to a column's width.
std::string cell(const std::string &text, size_t width) {
    return (text + std::string(width, ' ')).substr(0, width);
}

// A remote, resolved JOIN of EVI 100 for (*,239.1.1.1) on a bridge port.
l2vpn_evpn_igmp_bag igmp_route() {
    l2vpn_evpn_igmp_bag r{};
    r.evi = 100;
    r.esi_text = const_cast<char *>("0011.2233.4455.6677.8899");
    r.group = ip("239.1.1.1");
    r.originating_ip = ip("10.0.0.2");
    r.source_is_remote = 1;
    r.route_source.address = ip("10.0.0.2");
    r.resolved = 1;
    return r;
}

TEST_F(SegmentPrinters, IgmpRowShowsAnySourceUnresolvedOriginMissingSegmentAndOtherTypes) {
    const std::string esi = "0011.2233.4455.6677.8899";
    const struct {
        const char *esi_text, *source;
        uint32_t remote, resolved;
        int32_t route_type;
        std::string esi_col, sg, from, type;
    } cases[] = {
        {esi.c_str(), "::", 1, 1, 0, esi, "(*,239.1.1.1)", "10.0.0.2", "JOIN"},
        // A source zero in all bytes but the last is a source.
        {esi.c_str(), "::1", 1, 0, 1, esi, "(::1,239.1.1.1)", "10.0.0.2[UR]", "LEAVE"},
        {esi.c_str(), "192.0.2.10", 0, 0, 2, esi, "(192.0.2.10,239.1.1.1)", "bond1.100[UR]", "PROXY"},
        {esi.c_str(), "::", 0, 1, 3, esi, "(*,239.1.1.1)", "bond1.100", "ERROR"},
        {"0000.0000.0000.0000.0000", "::", 1, 1, -1, "N/A", "(*,239.1.1.1)", "10.0.0.2", "ERROR"},
        {"", "::", 1, 1, 7, "N/A", "(*,239.1.1.1)", "10.0.0.2", "ERROR"},
        {nullptr, "::", 1, 1, INT32_MIN, "N/A", "(*,239.1.1.1)", "10.0.0.2", "ERROR"},
    };
    for (const auto &c : cases) {
        l2vpn_evpn_igmp_bag r = igmp_route();
        r.esi_text = const_cast<char *>(c.esi_text);
        r.source = ip(c.source);
        r.source_is_remote = c.remote, r.resolved = c.resolved, r.route_type = c.route_type;
        r.route_source.interface_name = const_cast<char *>("bond1.100");
        EXPECT_EQ(stdout_of([&] { print_evpn_igmp_bag(&r, "x", nullptr); }),
                  "100   " + cell(c.esi_col, 24) + " " + cell(c.sg, 43) + " " + cell(c.from, 30) +
                      " " + cell(c.type, 6) + "\n")
            << c.source << " " << c.route_type;
    }
}

TEST_F(SegmentPrinters, IgmpDetailNamesVersionFilterModeOnlyForV3AndResponseTimeOnlyForLeave) {
    const struct {
        int32_t route_type;
        uint32_t version, filter_mode;
        std::string lines;
    } cases[] = {
        {0, 0, 1, "\n  IGMP Version      : V1"},
        {0, 1, 1, "\n  IGMP Version      : V2"},
        {0, 2, 0, "\n  IGMP Version      : V3 [IS_IN]"},
        {2, 2, 1, "\n  IGMP Version      : V3 [IS_EX]"},
        {0, 2, 2, "\n  IGMP Version      : V3 [Unknown]"},
        {0, 3, 0, "\n  IGMP Version      : Unknown"},
        {1, 1, 0, "\n  IGMP Version      : V2\n  Max Response Time : 255 secs"},
    };
    show_filter.detail = 1;
    for (const auto &c : cases) {
        l2vpn_evpn_igmp_bag r = igmp_route();
        r.route_type = c.route_type, r.igmp_version = c.version, r.filter_mode = c.filter_mode;
        r.max_response_time = 255;
        r.ethernet_tag = -2;
        const std::string out = stdout_of([&] { print_evpn_igmp_bag(&r, "x", nullptr); });
        // The detail lines start with the row's first line end.
        EXPECT_EQ(out.substr(out.find('\n')), "\n  Ethernet Tag      : -2" + c.lines + "\n")
            << c.version;
    }
}

}  // namespace
