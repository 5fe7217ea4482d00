// EVI, route-target, route-distinguisher and tunnel endpoint printers on
// hand-built records.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "evpn_show_print.h"
#include "stdout_capture.h"
#include "platform/caps.h"
#include "platform/printers.h"

// Supplied only by a stand-in walk, in builds without the retrieval layer.
const ShowContext *walk_stub_last_context() __attribute__((weak));

namespace {


char *txt(const char *s) { return const_cast<char *>(s); }

l2vpn_bag_rd_t value(const char *text) {
    l2vpn_bag_rd_t v{};
    EXPECT_EQ(0, l2vpn_bag_rd_pton(text, &v)) << text;
    return v;
}
// Format word IPv4 over an AS2 type: does not convert.
const l2vpn_bag_rd_t kBad = {L2VPN_RD_FORMAT_IPV4, {0, 0, 0, 100, 0, 0, 0, 1}};

const std::string kStatsZero =
    "\n   Statistics:\n"
    "     Packets            Sent                 Received\n"
    "       Total          : 0                    0                   \n"
    "       Unicast        : 0                    0                   \n"
    "       BUM            : 0                    0                   \n"
    "     Bytes              Sent                 Received\n"
    "       Total          : 0                    0                   \n"
    "       Unicast        : 0                    0                   \n"
    "       BUM            : 0                    0                   \n";

const std::string kRtHeading =
    "   Route Targets in Use           Type                 \n"
    "   ------------------------------ ---------------------\n";

// Text between the end of `from` and the start of `to`.
std::string between(const std::string &s, const std::string &from, const std::string &to) {
    size_t a = s.find(from);
    if (a == std::string::npos) return "<no " + from + ">";
    a += from.size();
    size_t b = s.find(to, a);
    return b == std::string::npos ? "<no " + to + ">" : s.substr(a, b - a);
}

class Instances : public testing::Test {
  protected:
    l2vpn_bag_rd_t rts_[10];
    evt_hist_entry_bag event_{txt("01/02 03:04:05.006"), 0, txt("Create"), 1, 0, 0, {0, nullptr}};

    void SetUp() override {
        memcpy(saved_bulk_, evi_fwd_stats_bulk, sizeof saved_bulk_);
        memset(evi_fwd_stats_bulk, 0, sizeof saved_bulk_);
        saved_filter_ = show_filter;
        show_filter = ShowFilter{};
        saved_debug_ = l2vpn_debug_get_enabled_bitset();
        for (int i = 0; i < 10; i++) rts_[i] = value(("1:" + std::to_string(i + 1)).c_str());
        sysdb_set_request_observer(
            [](const sysdb_request_s *r, void *self) {
                static_cast<Instances *>(self)->requests_.push_back({r->path, r->count_in});
            },
            this);
    }
    void TearDown() override {
        sysdb_set_request_observer(nullptr, nullptr);
        memcpy(evi_fwd_stats_bulk, saved_bulk_, sizeof saved_bulk_);
        show_filter = saved_filter_;
        l2vpn_debug_set_enabled_bitset(saved_debug_);
        unsetenv("EVPN_SRV6_ELAN");
        platform_caps_reset();
    }

    evt_hist_bag history(const char *cls) { return {txt(cls), {1, &event_}}; }

    l2vpn_evpn_evi_detail_bag evi(uint32_t vpn_id, uint32_t encap) {
        l2vpn_evpn_evi_detail_bag e{};
        e.evi = 7, e.vpn_id = vpn_id, e.encap = encap, e.bd_name = txt("bd1"), e.evi_type = 1;
        e.description = e.table_policy = e.route_policy_export = e.route_policy_import = txt("");
        e.vrf_name = e.vrf_table_eod_why = txt("");
        e.rd_config = value("100:1"), e.rd_auto = value("1.1.1.1:100");
        e.rt_auto = value("100:100");
        return e;
    }

    struct Request {
        std::string path;
        uint32_t count;
    };
    std::vector<Request> requests_;

  private:
    l2fib_bd_stats_entry saved_bulk_[EVI_FWD_STATS_BULK_SIZE];
    ShowFilter saved_filter_;
    uint64_t saved_debug_ = 0;
};

TEST_F(Instances, SummaryLineWidestValues) {
    l2vpn_evpn_evi_summary_bag wide{4294967295u, 12, txt("abcdefghijklmnopqrstuvwxyz0123456789"),
                                    5};
    EXPECT_EQ("4294967295 VXLAN-GPE  abcdefghijklmnopqrstuvwxyz01 EVPN VXLAN         \n",
              stdout_of([&] { print_evpn_evi_summary_bag(&wide, "x", nullptr); }));
    EXPECT_EQ("", stdout_of([&] { print_evpn_evi_summary_bag(nullptr, "x", nullptr); }));
}

// The internal counters, each with its own value; a record carrying fewer
// than nine RT counters reads 0 for the rest.
TEST_F(Instances, PrivateTailCounters) {
    show_filter.private_view = 1;
    auto e = evi(100, 10);
    e.access = 1, e.bd_ptr = 0xdeadbeef00, e.bd_id = 12;
    uint32_t counters[9] = {1, 2, 3, 4, 99, 99, 99, 99, 99};
    e.rt_counters = {4, counters};
    e.upd_macs = 1, e.del_macs = 2, e.upd_imets = 3, e.del_imets = 4;
    e.upd_mac_errors = 5, e.del_mac_errors = 6, e.upd_imet_errors = 7, e.del_imet_errors = 8;
    e.event_history = history("hist"), e.event_history_info = history("info");
    std::string hist = stdout_of([&] {
        infra_db_print_evt_hist_bag(&e.event_history, &e.event_history_info,
                                    "EVPN VPN-ID event history");
    });
    std::string out = stdout_of([&] { print_evpn_evi_detail_bag(&e, "x", nullptr); });
    ASSERT_NE(out.find(kRtHeading), std::string::npos) << out;
    EXPECT_EQ("    Access: TRUE\n"
              "    BD PTR: 0xdeadbeef00\n"
              "    BD ID:  12\n"
              "    RT Counters:\n"
              "       DEF - B:         1 I:         2 E:         3\n"
              "       ADD - B:         4 I:         0 E:         0\n"
              "       DEL - B:         0 I:         0 E:         0\n"
              "    Counters:\n"
              "      Num Upd MACs to L2RIB  : 1\n"
              "      Num Upd Error to L2RIB : 5\n"
              "      Num Del MACs to L2RIB  : 2\n"
              "      Num Del Error to L2RIB : 6\n"
              "      Num Upd IMETs to L2RIB    : 3\n"
              "      Num Upd IMET Err to L2RIB : 7\n"
              "      Num Del IMETs to L2RIB    : 4\n"
              "      Num Del IMET Err to L2RIB : 8\n" +
                  hist + "\n",
              out.substr(out.find(kRtHeading) + kRtHeading.size()));
}

TEST_F(Instances, VniPastTheSignedRangePrintsNegative) {
    auto vxlan = evi(200, 8);
    vxlan.unicast_label = 0xFFFFFFFF;
    vxlan.control_word_disabled = 1;
    EXPECT_EQ("   VNI: -1\n   Flow Label: N\n   Control-Word: Disabled\n",
              between(stdout_of([&] { print_evpn_evi_detail_bag(&vxlan, "x", nullptr); }),
                      "   Stitching: Regular\n", "   E-Tree: "));
}

// Words and kinds past what the snapshot holds.
TEST_F(Instances, DetailWordsPastTheirTables) {
    auto e = evi(100, 10);
    auto out = [&] { return stdout_of([&] { print_evpn_evi_detail_bag(&e, "x", nullptr); }); };
    const std::pair<uint32_t, const char *> modes[] = {
        {4, "ECMP Disable"}, {5, "Off"}, {0xFFFFFFFF, "Off"}};
    for (auto [mode, word] : modes) {
        e.preferred_nexthop_mode = mode;
        EXPECT_NE(out().find(std::string("   Preferred Nexthop Mode: ") + word + "\n"),
                  std::string::npos) << mode;
    }
    for (uint32_t kind : {2u, 3u, 4u, 5u}) {
        e.evi_kind = kind;
        bool mtu = kind == 3 || kind == 4;
        EXPECT_EQ(mtu, out().find("   Ignore MTU Mismatch: Disabled\n"
                                  "   Transmit MTU Zero: Disabled\n") != std::string::npos);
    }
}

TEST_F(Instances, UnconvertibleRdRt) {
    auto e = evi(100, 10);
    e.rd_auto = kBad;
    EXPECT_EQ("\n Error! unable to parse RD format",
              stdout_of([&] { print_evpn_evi_detail_bag(&e, "x", nullptr); }));
    // In the section: the block ends at the first bad value, RDs checked first.
    EXPECT_EQ("   RD Config: 100:1\n\n Error! unable to parse RD format",
              stdout_of([&] { print_evpn_evi_rd_rt_section(&e); }));
    e = evi(100, 10);
    e.rt_auto = kBad;
    EXPECT_EQ("   RD Config: 100:1\n   RD Auto  : 1.1.1.1:100\n\n Error! unable to parse RT format",
              stdout_of([&] { print_evpn_evi_rd_rt_section(&e); }));
    e.rd_config = kBad;
    e.rd_config.format = L2VPN_RD_FORMAT_NONE;
    EXPECT_EQ("\n Error! unable to parse RD format",
              stdout_of([&] { print_evpn_evi_rd_rt_section(&e); }));
    EXPECT_TRUE(requests_.empty());
}

TEST_F(Instances, RouteTargetWalk) {
    auto e = evi(100, 10);
    stdout_of([&] { print_evpn_evi_rd_rt_section(&e); });
    e = evi(0xABCDEF, 255);
    stdout_of([&] { print_evpn_evi_rd_rt_section(&e); });
    ASSERT_EQ(2u, requests_.size());
    EXPECT_EQ("evpn_evi_detail/evi_child_container/evi_route_targets-evi_encap/0x64,0xa",
              requests_[0].path);
    EXPECT_EQ("evpn_evi_detail/evi_child_container/evi_route_targets-evi_encap/0xabcdef,0xff",
              requests_[1].path);
    EXPECT_EQ(200u, requests_[0].count);
    if (walk_stub_last_context) {
        const ShowContext *ctx = walk_stub_last_context();
        EXPECT_EQ(&print_evpn_evi_bgp_rt_bag, ctx->printer);
        EXPECT_EQ(l2vpn_bag_dll__l2vpn_evpn_evi_bgp_rt_bag(), ctx->bag);
        EXPECT_EQ(96u, ctx->record_size);
        EXPECT_EQ(200u, ctx->batch_count);
        EXPECT_EQ(uint32_t{EVPN_DATALIST_OPT_NONE}, ctx->options);
    }
}

TEST_F(Instances, StatisticsForms) {
    bd_forwarding_stats detailed{};
    detailed.rx_total_packets = 1000, detailed.tx_total_packets = 900;
    detailed.rx_unicast_packets = 800, detailed.tx_unicast_packets = 700;
    detailed.tx_multicast_packets = 5;
    detailed.rx_total_bytes = 64000, detailed.tx_total_bytes = 57600;
    detailed.rx_unicast_bytes = 51200, detailed.tx_unicast_bytes = 44800;
    detailed.tx_multicast_bytes = 320, detailed.rx_unknown_unicast_bytes = 128;
    bd_forwarding_stats bum{};  // unicast and byte counters take no part in the choice
    bum.rx_total_packets = 10, bum.tx_total_packets = 20, bum.rx_unicast_packets = 3;
    bum.tx_bum_packets = 4, bum.rx_bum_packets = 5;
    bum.rx_total_bytes = 1000, bum.tx_total_bytes = 2000;
    bum.rx_unicast_bytes = 300, bum.tx_unicast_bytes = 400;
    bum.tx_bum_bytes = 500, bum.rx_bum_bytes = 600;
    bum.rx_unknown_unicast_bytes = 77, bum.rx_broadcast_bytes = 99;
    evi_fwd_stats_bulk[0].stats = &detailed;
    evi_fwd_stats_bulk[199].stats = &bum;
    auto e = evi(100, 10);
    auto at = [&](uint64_t index) {
        PrintContext ctx{index, EVPN_DATALIST_OPT_EVI_STATS};
        return stdout_of([&] { print_evpn_evi_detail_stats(&e, &ctx); });
    };
    const std::string detailed_text =
        "\n   Statistics:\n"
        "     Packets            Sent                 Received\n"
        "       Total          : 900                  1000                \n"
        "       Unicast        : 700                  800                 \n"
        "       Broadcast      : 0                    0                   \n"
        "       Multicast      : 5                    0                   \n"
        "       Unknown Unicast: N/A                  0                   \n"
        "     Bytes              Sent                 Received\n"
        "       Total          : 57600                64000               \n"
        "       Unicast        : 44800                51200               \n"
        "       Broadcast      : 0                    0                   \n"
        "       Multicast      : 320                  0                   \n"
        "       Unknown Unicast: N/A                  128                 \n"
        "\n";
    EXPECT_EQ(detailed_text, at(0));
    EXPECT_EQ(detailed_text, at(200));
    EXPECT_EQ(detailed_text, at(400));
    EXPECT_EQ("\n   Statistics:\n"
              "     Packets            Sent                 Received\n"
              "       Total          : 20                   10                  \n"
              "       Unicast        : 0                    3                   \n"
              "       BUM            : 4                    5                   \n"
              "     Bytes              Sent                 Received\n"
              "       Total          : 2000                 1000                \n"
              "       Unicast        : 400                  300                 \n"
              "       BUM            : 500                  600                 \n",
              at(199));
}

TEST_F(Instances, StatisticsLookupFailures) {
    l2vpn_debug_set_enabled_bitset(EVPN_DBG_ERR);
    auto e = evi(100, 10);
    e.bd_id = 0xFFFF0001;  // no counters anywhere
    l2fib_stats_client_init(nullptr);
    const uint64_t single = l2fib_get_request_counts().single;
    auto run = [&](const PrintContext *ctx, std::string &err) {
        testing::internal::CaptureStderr();
        std::string out = stdout_of([&] { print_evpn_evi_detail_stats(&e, ctx); });
        err = testing::internal::GetCapturedStderr();
        return out;
    };
    std::string err;
    PrintContext ctx{5, EVPN_DATALIST_OPT_EVI_STATS};
    EXPECT_EQ(kStatsZero, run(&ctx, err));
    EXPECT_NE(err.find("Failed to find stats for EVI 7"), std::string::npos) << err;
    EXPECT_EQ(single, l2fib_get_request_counts().single);

    EXPECT_EQ(kStatsZero, run(nullptr, err));
    EXPECT_NE(err.find("Failed to get stats for EVI 7 - 0x"), std::string::npos) << err;
    EXPECT_EQ(single + 1, l2fib_get_request_counts().single);

    show_filter.no_stats = 1;  // looked up, not printed
    EXPECT_EQ("", run(&ctx, err));
    EXPECT_NE(err.find("Failed to find stats for EVI 7"), std::string::npos) << err;
    l2fib_stats_client_deinit();
}

TEST_F(Instances, RouteTargetLine) {
    l2vpn_evpn_evi_bgp_rt_bag rt{};
    rt.rt = value("100:100");
    struct Case {
        uint32_t rt_type, vpn_id, stitching;
        const char *line;
    } cases[] = {
        // The segment's import VPN ID names import RTs only.
        {0, 65535, 0, "   100:100                        Both                 \n"},
        {3, 65535, 0, "   100:100                        ES:Import            \n"},
        // Any type but 0 and 2 is an import RT.
        {255, 100, 1, "   100:100                        Import   (stitching) \n"},
    };
    for (const Case &c : cases) {
        rt.rt_type = c.rt_type, rt.vpn_id = c.vpn_id, rt.stitching = c.stitching;
        EXPECT_EQ(c.line, stdout_of([&] { print_evpn_evi_bgp_rt_bag(&rt, "x", nullptr); }));
    }
    rt.rt = kBad;
    EXPECT_EQ("\n Error! unable to parse RT format",
              stdout_of([&] { print_evpn_evi_bgp_rt_bag(&rt, "x", nullptr); }));
}

// Lists that fill their last line exactly: no indent follows it.
TEST_F(Instances, RdRtListWrapping) {
    const std::string head = "\n     RD: 100:1, Num RTs: ";
    const std::string line1 = "         1:1, 1:2, 1:3, 1:4, 1:5, \n";
    const std::pair<uint32_t, std::string> cases[] = {
        {5, head + "5      RT List:\n" + line1},
        {10, head + "10      RT List:\n" + line1 + "         1:6, 1:7, 1:8, 1:9, 1:10, \n"},
    };
    for (const auto &[count, text] : cases) {
        l2vpn_evpn_rd_rt_entry entry{value("100:1"), {count, rts_}, 0};
        EXPECT_EQ(text, stdout_of([&] { print_evpn_rd_rt_list(&entry, 1); })) << count;
        EXPECT_EQ("", stdout_of([&] { print_evpn_rd_rt_list(&entry, 0); }));
    }
    EXPECT_EQ("", stdout_of([&] { print_evpn_rd_rt_list(nullptr, 3); }));
}

TEST_F(Instances, RdRtListEntriesAndFailures) {
    l2vpn_evpn_rd_rt_entry two[2] = {{value("100:1"), {1, rts_}, 0},
                                     {value("1.1.1.1:5"), {1, rts_ + 1}, 1}};
    auto list = [&] { return stdout_of([&] { print_evpn_rd_rt_list(two, 2); }); };
    two[0].rts.data = nullptr;  // absent array: header and indent only
    EXPECT_EQ("\n     RD: 100:1, Num RTs: 1      RT List:\n         "
              "\n     RD: 1.1.1.1:5, Num RTs: 1 (Stitching)     RT List:\n         1:2, \n",
              list());
    l2vpn_bag_rt_t mixed[3] = {rts_[0], kBad, rts_[2]};
    two[0].rts = {3, mixed};  // a bad RT ends the whole list
    EXPECT_EQ("\n     RD: 100:1, Num RTs: 3      RT List:\n         1:1, "
              "\n Error! unable to parse RT format",
              list());
    two[0].rts = {1, rts_};
    two[1].rd = kBad;
    EXPECT_EQ("\n     RD: 100:1, Num RTs: 1      RT List:\n         1:1, \n"
              "\n Error! unable to parse RD format",
              list());
}

TEST_F(Instances, RdDatabaseEntry) {
    l2vpn_evpn_rd_private_bag rd{value("100:1"), history("hist"), history("info")};
    auto show = [&](const void *r) {
        return stdout_of([&] { print_evpn_rd_private_bag(r, "x", nullptr); });
    };
    EXPECT_EQ("", show(&rd));
    EXPECT_EQ("", show(nullptr));
    show_filter.private_view = 1;
    std::string hist = stdout_of([&] {
        infra_db_print_evt_hist_bag(&rd.event_history, &rd.event_history_info,
                                    "EVPN RD DB event history");
    });
    rd.rd = kBad;
    EXPECT_EQ("\n Error! unable to parse RD format" + hist + "\n", show(&rd));
    EXPECT_EQ("\n Error! a pointer is null\n", show(nullptr));
}

// The last type of the table and the first past it, and the one state pair
// the snapshot lacks; the registrations are walked at the tag's listing (the
// database is not bound here, so none print).
TEST_F(Instances, TunnelEndpointForms) {
    auto pad = [](std::string s, size_t w) { return s.append(w > s.size() ? w - s.size() : 0, ' '); };
    auto line = [&](const char *word) {
        return "0x0000002a " + pad(word, 12) + " " + pad("::", 40) + " " + pad("::", 40) + "\n";
    };
    const std::string vrf = "  In-use count: 7\n  VRF: Name 'red', Table-Id 0x00000011\n";
    const std::string regs = "  Notification registrations:\n";
    const struct {
        const char *claim;
        uint8_t detail, private_view, tep_type;
        uint32_t local_vpn_id, local_encap, remote_vpn_id, remote_encap;
        uint16_t udp_port;
        uint32_t registered, reachable;
        std::string expected;
    } cases[] = {
        {"brief: the line and an empty one", 0, 0, 8, 100, 10, 0, 0, 0, 0, 0,
         line("Overlay-LTEP") + "\n"},
        {"a type past the table", 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, line("Invalid") + "\n"},
        {"private: layer-3 FIB state and event history", 0, 1, 3, 0, 0, 200, 8, 0, 0, 1,
         line("VXLAN") + vrf + "  UDP port: 0\n  Remote VPN-ID: 200      Encap:VXLAN \n" + regs +
             "  L3FIB Status: Not Registered, Reachable\n\nL2VPN TEP event history\n"
             "    No events\n\n"},
    };
    for (const auto &c : cases) {
        l2vpn_evpn_tep_bag t{};
        t.tep_id = 0x2a, t.tep_type = c.tep_type, t.in_use_count = 7;
        t.vrf_name = txt("red"), t.vrf_table_id = 0x11;
        t.local_vpn_id = c.local_vpn_id, t.local_encap = static_cast<uint8_t>(c.local_encap);
        t.remote_vpn_id = c.remote_vpn_id, t.remote_encap = static_cast<uint8_t>(c.remote_encap);
        t.udp_port = c.udp_port, t.l3fib_registered = c.registered, t.l3fib_reachable = c.reachable;
        show_filter.detail = c.detail, show_filter.private_view = c.private_view;
        requests_.clear();
        EXPECT_EQ(stdout_of([&] { print_evpn_tep_bag(&t, "info", "2a"); }), c.expected) << c.claim;
        if (c.detail || c.private_view) {
            ASSERT_EQ(requests_.size(), 1u) << c.claim;
            EXPECT_EQ(requests_[0].path, "tep/2a/notification");
            EXPECT_EQ(requests_[0].count, 200u);
        } else {
            EXPECT_TRUE(requests_.empty()) << c.claim;
        }
    }
}

}  // namespace
