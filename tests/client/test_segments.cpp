// Printers of segment and system records on hand-built records: the global
// summary report and its event trace table, SRv6, groups, clients, the
// grouping-ES map, remote split-horizon groups, IGMP routes, service carving
// lists and Ethernet segments.
#include <gtest/gtest.h>

#include <climits>
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

// A summary record with the timers of the summary snapshot; each test sets
// the values it checks. The snapshot's own values are pinned by the
// summary_public and summary_private report cases.
class SummaryReport : public ::testing::Test {
  protected:
    void SetUp() override {
        saved_filter_ = show_filter;
        s_ = {};
        s_.mac_postpone_timer = 300, s_.core_deisolation_timer = 60;
        s_.bringup_timer = 10000, s_.backup_replacement_timer = 1500;
    }
    void TearDown() override { show_filter = saved_filter_; }

    std::string report(bool private_view) {
        show_filter.private_view = private_view;
        return stdout_of([&] { print_evpn_summary_bag(&s_, "summary", nullptr); });
    }

    l2vpn_evpn_summary_bag s_;
    ShowFilter saved_filter_;
};

TEST_F(SummaryReport, RunningSuffixCutsTimeLeftToTenths) {
    const struct { uint32_t left_ms; const char *suffix; } cases[] = {
        {0, "[not running]\n"},
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
    EXPECT_EQ(stdout_of([] { print_evt_trace_history(nullptr); }), "");
}

// Hand-built SRv6 records: a disabled record with and without locators, the
// name column's width past a byte and an item list reaching its line's end.
TEST(Srv6Report, EachStateAndWidthPrintsItsLines) {
    struct Loc {
        std::string name;
        uint32_t in_use;
        uint16_t flags;
        std::vector<uint32_t> evis;
    };
    const std::string heading =
        "\n"
        "Locator name    Prefix                      OOR      Flags                   Service count    SID count    \n"
        "------------    ------                      ---      -----                   -------------    ---------    \n";
    const std::string row_tail =
        "    ::/0                        False                            0                0            \n";
    const std::string counts0 =
        "EVIs with unknown locator config: 0\nVPWS with unknown locator config: 0\n";
    const std::string long_name(260, 'n');
    const struct {
        const char *claim;
        uint32_t enabled;
        uint8_t detail;
        std::vector<uint32_t> unknown_evis;
        std::vector<Loc> locators;
        std::string expected;
    } cases[] = {
        {"disabled: the counts and lists, no table", 0, 1, {7}, {{"L1", 1, 0, {}}},
         "EVPN SRv6 disabled\nEVIs with unknown locator config: 1\n   Items <evi>: 7\n"
         "VPWS with unknown locator config: 0\n"},
        {"disabled without locators says no more", 0, 0, {}, {}, "EVPN SRv6 disabled\n" + counts0},
        {"a name's length counts modulo 256", 1, 0, {}, {{long_name, 1, 0, {}}},
         "\nConfigured default locator: D\n" + counts0 + heading + long_name + row_tail},
        {"an item reaching column 78 stays, the next one wraps", 1, 1, {},
         {{"A", 1, 0, {10000, 10001, 10002, 10003, 10004, 10005, 10006, 10007, 10008}}},
         "\nConfigured default locator: D\n" + counts0 + heading + "A           " + row_tail +
             "   Configured on EVIs <evi>: 10000, 10001, 10002, 10003, 10004, 10005, 10006, \n" +
             std::string(29, ' ') + "10007, 10008\n"},
    };
    const ShowFilter saved = show_filter;
    for (const auto &c : cases) {
        std::vector<l2vpn_evpn_srv6_locator_entry> locs(c.locators.size());
        std::vector<std::vector<uint32_t>> evis;
        for (const Loc &l : c.locators) evis.push_back(l.evis);
        for (size_t i = 0; i < locs.size(); i++) {
            locs[i] = {};
            locs[i].name = const_cast<char *>(c.locators[i].name.c_str());
            locs[i].in_use = c.locators[i].in_use;
            locs[i].flags = c.locators[i].flags;
            locs[i].evis = {static_cast<uint32_t>(evis[i].size()), evis[i].data()};
        }
        std::vector<uint32_t> unknown = c.unknown_evis;
        l2vpn_evpn_srv6_bag r{};
        r.enabled = c.enabled;
        r.default_locator = const_cast<char *>("D");
        r.unknown_locator_evis = {static_cast<uint32_t>(unknown.size()), unknown.data()};
        r.locators = {static_cast<uint32_t>(locs.size()), locs.data()};
        show_filter.detail = c.detail;
        show_filter.private_view = 0;
        EXPECT_EQ(stdout_of([&] { print_evpn_srv6_bag(&r, "srv6", nullptr); }), c.expected)
            << c.claim;
    }
    show_filter = saved;
}

TEST(GroupReport, StateWordBetweenEmptyLinesAndInvalidOutsideTheTable) {
    // The first state past the table and the lowest.
    const struct { int32_t state; const char *word; } cases[] = {
        {4, "Invalid"}, {INT_MIN, "Invalid"}};
    for (const auto &c : cases) {
        evpn_grp_info_bag g{};
        g.group_id = 5, g.group_state = c.state;
        EXPECT_TRUE(contains(stdout_of([&] { print_evpn_grp_info_bag(&g, nullptr, nullptr); }),
                             std::string("\nEVPN Group: 5\n\n  state: ") + c.word +
                                 "\n\n  Core Interfaces:\n"))
            << c.state;
    }
}

TEST(GroupReport, InterfaceListsOfHandBuiltRecords) {
    evpn_grp_intf_entry core[] = {{const_cast<char *>("eth1"), 1}, {nullptr, 99}};
    evpn_grp_intf_entry access[] = {{const_cast<char *>("bond1.100"), 2}};
    const struct {
        bag_array<evpn_grp_intf_entry> core, access;
        const char *body;
    } cases[] = {
        // An interface without a name.
        {{2, core}, {0, nullptr},
         "\n  Core Interfaces:\n     eth1: Up\n     : Unknown\n"
         "\n  Access Interfaces:\n     No access interfaces.\n\n"},
        // A count without elements (a hand-built record) lists nothing.
        {{3, nullptr}, {1, access},
         "\n  Core Interfaces:\n     No core interfaces.\n"
         "\n  Access Interfaces:\n     bond1.100: Down\n\n"},
    };
    for (const auto &c : cases) {
        evpn_grp_info_bag g{4294967295u, 2, c.core, c.access};
        EXPECT_EQ(stdout_of([&] { print_evpn_grp_info_bag(&g, nullptr, nullptr); }),
                  std::string("\nEVPN Group: 4294967295\n\n  state: Ready\n") + c.body);
    }
}

TEST(GesMapReport, PrivateViewOnlyAndNoEntriesWithoutElements) {
    l2vpn_ges_ves_entry ves[] = {{const_cast<char *>("bond1.100"), 3, 0x8, 0},
                                 {nullptr, 255, 0xffff, 4294967295u}};
    const std::string head = "\nGES Mac 0011.2233.4455\nEVI refcount: 7\n";
    const struct {
        bool private_view;
        bag_array<l2vpn_ges_ves_entry> entries;
        uint32_t ves_count;
        std::string out;
    } cases[] = {
        // The printer's own check: the command asks for -p before its walk.
        {false, {2, ves}, 2, ""},
        // A count without elements (a hand-built record) lists nothing.
        {true, {4, nullptr}, 4, head + "VES count: 4\nNo VES\n"},
    };
    const ShowFilter saved = show_filter;
    for (const auto &c : cases) {
        l2vpn_ges_map_entry_bag m{};
        l2vpn_mac_pton("0011.2233.4455", m.ges_mac);
        m.evi_refcount = 7, m.ves_count = c.ves_count, m.ves_entries = c.entries;
        show_filter.private_view = c.private_view;
        EXPECT_EQ(stdout_of([&] { print_ges_map_entry_bag(&m, "11,2233,4455", nullptr); }), c.out);
    }
    show_filter = saved;
}

// The one client type the clients snapshot lacks, and the lowest type.
TEST(ClientReport, TypeWordsTheSnapshotLacks) {
    const std::string none = "\nNo event in the Event Trace History\n";
    const struct {
        int32_t type;
        uint32_t has_backup;
        std::string out;
    } cases[] = {
        {1, 1, "Client IGMP, Primary\n" + none + "Client IGMP, Backup\n" + none},
        {INT_MIN, 0, "Client Invalid, Primary\n" + none},
    };
    for (const auto &c : cases) {
        l2vpn_evpn_client_bag r{};
        r.client_type = c.type, r.has_backup = c.has_backup;
        EXPECT_EQ(stdout_of([&] { print_evpn_client_bag(&r, "0x0", nullptr); }), c.out) << c.type;
    }
}

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
        // A source zero in all bytes but the last is a source.
        {esi.c_str(), "::1", 1, 0, 1, esi, "(::1,239.1.1.1)", "10.0.0.2[UR]", "LEAVE"},
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

TEST_F(SegmentPrinters, IgmpDetailVersionWordsTheSnapshotLacks) {
    const struct {
        int32_t route_type;
        uint32_t version, filter_mode;
        std::string lines;
    } cases[] = {
        {0, 0, 1, "\n  IGMP Version      : V1"},
        // The first codes past their tables.
        {0, 2, 2, "\n  IGMP Version      : V3 [Unknown]"},
        {0, 3, 0, "\n  IGMP Version      : Unknown"},
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

// ---- Service carving lists ----------------------------------------------------------

// Rows start with the title in 15 columns and the tag in 4.
std::string row(const char *title, const char *tag) {
    char buf[32];
    snprintf(buf, sizeof buf, "%15s %-4.4s: ", title, tag);
    return buf;
}

// A run ending at the top value, an empty list and no list.
TEST_F(SegmentPrinters, CarvingValuesAtTheirLimits) {
    const std::string r = row("EVI", "E");
    const uint32_t top[] = {4294967294u, 4294967295u};
    const struct {
        const uint32_t *values;
        uint32_t count;
        bool compress;
        std::string out;
    } cases[] = {
        {top, 2, true, r + "4294967294-4294967295\n"},
        {top, 0, true, r + "\n"},
        {nullptr, 5, true, ""},
    };
    for (const auto &c : cases)
        EXPECT_EQ(stdout_of([&] { print_carving_values(c.values, c.count, "E", c.compress, "EVI"); }),
                  c.out)
            << c.count << " compress " << c.compress;
}

// With compress every item but the last has a row of its own; the sixth
// item takes no comma, and the row after it stays empty.
TEST_F(SegmentPrinters, CarvingRunsEachOnARowAndTheSixthItemWithoutAComma) {
    const std::string r = row("", "Pri");
    const uint32_t values[] = {1, 3, 4, 5, 7, 9, 10, 12, 20, 22};
    EXPECT_EQ(stdout_of([&] { print_carving_values(values, 10, "Pri", true, ""); }),
              r + "       1,\n" + r + "3-5,\n" + r + "       7,\n" + r + "9-10,\n" + r +
                      "      12,\n" + r + "      20\n" + r + "\n" + r + "      22\n");
    // Without compress, six values to a row.
    EXPECT_EQ(stdout_of([&] { print_carving_values(values, 8, "E", false, "I-Sid"); }),
              row("I-Sid", "E") + "       1,       3,       4,       5,       7,       9\n" +
                      row("I-Sid", "E") + "      10,      12\n");
}

// A title too long for the rows' header buffer starts each row on its own.
TEST_F(SegmentPrinters, CarvingRowsUnderATitleLongerThanTheirHeader) {
    const std::string title(90, 't');
    const std::string r = title + " E   : ";
    const uint32_t values[] = {1, 2, 4};
    EXPECT_EQ(stdout_of([&] { print_carving_values(values, 3, "E", true, title.c_str()); }),
              r + "1-2,\n" + r + "       4\n");
}

// Thousands of items, many times the printer's block: read back, the rows
// give every value once, in order, each row under its header.
TEST_F(SegmentPrinters, CarvingListsLongerThanTheirBlockLoseNoItem) {
    std::vector<uint32_t> values;
    for (uint32_t v = 1; values.size() < 5000; v += values.size() % 3 ? 1 : 2 + values.size() % 5)
        values.push_back(v);
    values.push_back(4294967295u);
    for (const bool compress : {true, false}) {
        const std::string out = stdout_of([&] {
            print_carving_values(values.data(), static_cast<uint32_t>(values.size()), "NE",
                                 compress, "EVI");
        });
        const std::string r = row("EVI", "NE");
        std::vector<uint32_t> back;
        size_t rows = 0;
        for (size_t at = 0; at < out.size(); rows++) {
            const size_t end = out.find('\n', at);
            ASSERT_NE(end, std::string::npos);
            ASSERT_EQ(out.compare(at, r.size(), r), 0) << "row " << rows;
            std::string items = out.substr(at + r.size(), end - at - r.size());
            for (size_t i = 0; i < items.size();) {
                char *stop;
                const unsigned long first = strtoul(items.c_str() + i, &stop, 10);
                unsigned long last = first;
                if (*stop == '-') last = strtoul(stop + 1, &stop, 10);
                for (unsigned long v = first; v <= last; v++) back.push_back(static_cast<uint32_t>(v));
                i = static_cast<size_t>(stop - items.c_str());
                if (i < items.size() && items[i] == ',') i++;
            }
            at = end + 1;
        }
        EXPECT_EQ(back, values) << "compress " << compress;
        if (!compress) {
            EXPECT_EQ(rows, (values.size() + 5) / 6);
        }
    }
}

// A carving list as the C library formats it, item by item: "%u-%u" for a
// run, "%8u" for a single value, a row per run with compress.
std::string carving_by_printf(const std::vector<uint32_t> &v, const char *tag, bool compress,
                              const char *title) {
    std::string out = row(title, tag);
    char item[32];
    const size_t n = v.size();
    for (size_t i = 0, k = 0; i < n; i++, k++) {
        if (k != 0 && k % 6 == 0) out += "\n" + row(title, tag);
        size_t end = i;
        while (compress && end + 1 < n && v[end + 1] == uint32_t(v[end] + 1)) end++;
        if (end != i) snprintf(item, sizeof item, "%u-%u", v[i], v[end]);
        else snprintf(item, sizeof item, "%8u", v[i]);
        out += item;
        if (end + 1 != n && k != 5) out += ",";
        if (compress && end + 1 != n) out += "\n" + row(title, tag);
        i = end;
    }
    return out + "\n";
}

// Values at every digit count's edges, alone and in runs of one to nine
// (runs that cross a digit count, runs of the four-at-a-time check's length
// and around it, a run wrapping past the top value), with and without
// compress: each list reads as the C library formats it.
TEST_F(SegmentPrinters, CarvingItemsReadAsPrintfFormatsThemAtEveryDigitCountAndRunLength) {
    std::vector<uint32_t> edges = {0u, 4294967295u};
    for (uint64_t p = 10; p <= 1000000000u; p *= 10)
        for (uint64_t e : {p - 2, p - 1, p, p + 1}) edges.push_back(uint32_t(e));
    std::vector<std::vector<uint32_t>> lists;
    for (uint32_t len = 1; len <= 9; len++) {
        std::vector<uint32_t> runs, singles;
        for (uint32_t e : edges) {
            // A run of len ending at or after e, then a gap of two.
            const uint32_t first = e - len / 2;
            if (!runs.empty() && first - runs.back() < 3) continue;
            for (uint32_t j = 0; j < len; j++) runs.push_back(first + j);
            singles.push_back(e);
        }
        lists.push_back(runs);
        lists.push_back(singles);
        lists.push_back(std::vector<uint32_t>(runs.begin(), runs.begin() + len));  // one run, whole list
    }
    lists.push_back({4294967294u, 4294967295u, 0u, 1u, 5u});
    for (const auto &list : lists)
        for (const bool compress : {true, false})
            EXPECT_EQ(stdout_of([&] {
                          print_carving_values(list.data(), static_cast<uint32_t>(list.size()), "Pri",
                                               compress, "");
                      }),
                      carving_by_printf(list, "Pri", compress, ""))
                << list.size() << " values from " << list.front() << ", compress " << compress;
}

// The carving case runs with -p: without it the extra word is left out.
TEST_F(SegmentPrinters, CarvingIdsWithoutTheirExtraWordOutsidePrivate) {
    l2vpn_evpn_es_id_entry ids[2] = {{100, 0}, {101, 1}};
    const std::string r = row("VNI", "NE");
    EXPECT_EQ(stdout_of([&] { print_carving_ids(ids, 2, "NE", "VNI"); }),
              r + "     100,     101\n");
    EXPECT_EQ(stdout_of([&] { print_carving_ids(nullptr, 7, "NE", "VNI"); }), "");
}

TEST_F(SegmentPrinters, CarvingEviEtagsJoinTheEviAndTheTagTextUnderTheirOwnTitle) {
    const l2vpn_evpn_es_evi_etag tags[] = {
        {5, 0, 1}, {4294967295u, 0, 4294967295u}, {7, 0, 100}, {8, 0, 0}, {9, 0, 2}, {10, 0, 3},
        {11, 0, 4}};
    const std::string r = row("EVI:ETag", "NDF");
    EXPECT_EQ(stdout_of([&] { print_carving_evi_etags(tags, 7, "NDF"); }),
              r + "     5:1,4294967295:MAX-ET,   7:100,     8:0,     9:2,    10:3\n" + r +
                  "    11:4\n");
    EXPECT_EQ(stdout_of([&] { print_carving_evi_etags(tags, 0, "P"); }), row("EVI:ETag", "P") + "\n");
}

// ---- Ethernet segments ------------------------------------------------------------------

// The lines of out that start with prefix, each with its line end.
std::string lines_starting(const std::string &out, const std::string &prefix) {
    std::string kept;
    size_t at = 0;
    while (at < out.size()) {
        size_t end = out.find('\n', at);
        end = end == std::string::npos ? out.size() : end + 1;
        if (out.compare(at, prefix.size(), prefix) == 0) kept += out.substr(at, end - at);
        at = end;
    }
    return kept;
}

// The combinations the segment snapshot lacks.
TEST_F(SegmentPrinters, SegmentConvergenceJoinsOnlyTheSetMechanisms) {
    const struct {
        uint32_t mobility, reroute, tracking;
        const char *line;
    } cases[] = {
        {0, 1, 0, "  Convergence       : Reroute\n"},
        {0, 0, 1, "  Convergence       : NH-Tracking\n"},
        {1, 0, 1, "  Convergence       : MAC-Mobility, NH-Tracking\n"},
    };
    show_filter.detail = 1;
    for (const auto &c : cases) {
        l2vpn_evpn_es_bag es{};
        es.conv_mac_mobility = c.mobility, es.conv_reroute = c.reroute;
        es.conv_nh_tracking = c.tracking;
        EXPECT_EQ(lines_starting(stdout_of([&] { print_evpn_es_bag(&es, "0x0", nullptr); }),
                                 "  Convergence"),
                  c.line);
    }
}

// An address's text is made in the brief row and kept for the peering
// details and carving updates for the first eight peers; the ninth and
// tenth make their own. Each line shows its own peer.
TEST_F(SegmentPrinters, SegmentPeersPastTheKeptTextsShowTheirOwnAddresses) {
    std::vector<l2vpn_evpn_es_nexthop> peers(10);
    std::vector<std::string> texts;
    for (size_t i = 0; i < peers.size(); i++) {
        texts.push_back(i % 3 ? "10.0.0." + std::to_string(i + 1)
                              : "2001:db8:aaaa:bbbb:cccc:dddd:eeee:" + std::to_string(i + 1));
        peers[i].address = ip(texts.back().c_str());
        peers[i].sct_usec = i == 9 ? 1700000000123456ull : 0;
    }
    l2vpn_evpn_es_bag es{};
    es.nexthops = {static_cast<uint32_t>(peers.size()), peers.data()};
    show_filter.detail = 1;
    const std::string out = stdout_of([&] { print_evpn_es_bag(&es, "0x0", nullptr); });
    // The text between the line after the one starting with from and the
    // line starting with to.
    const auto between = [&](const std::string &from, const std::string &to) {
        const size_t at = out.find('\n', out.find(from)) + 1;
        return out.substr(at, out.find("\n" + to, at) + 1 - at);
    };
    std::string brief, details, updates;
    for (size_t i = 0; i < peers.size(); i++) {
        if (i) brief += std::string(60, ' ') + texts[i] + "\n";
        details += "     " + texts[i] + " [MOD:P:00]\n";
        char line[96];
        snprintf(line, sizeof line, "        %16s [SCT: %s]\n", texts[i].c_str(),
                 i == 9 ? "11/14 22:13:20.123456" : "N/A");
        updates += line;
    }
    EXPECT_EQ(between(" " + texts[0], "  ES to BGP"), brief);
    EXPECT_EQ(between("  Peering Details", "  Service Carving Sync"), details);
    EXPECT_EQ(between("     Peer Updates", "  Service Carving Results"), updates);
}

TEST_F(SegmentPrinters, SegmentCarvingModePastTheTable) {
    l2vpn_evpn_es_bag es{};
    es.carving_mode = 6, es.not_elected_count = 5, es.not_configured_count = 2;
    show_filter.detail = 1;
    const std::string out = stdout_of([&] { print_evpn_es_bag(&es, "0x0", nullptr); });
    EXPECT_EQ(lines_starting(out, "  Service Carving   :"), "  Service Carving   : Invalid\n");
    EXPECT_EQ(lines_starting(out, "     Not Elected"), "     Not Elected    : 5\n");
}

// The snapshot's one segment with an HA object prints it with -d -p, and not
// with either alone; a record without one prints none even with both.
TEST_F(SegmentPrinters, SegmentHaObjectNeedsItsPresence) {
    l2vpn_evpn_es_bag es{};
    es.hasi_object = {0x42, 1, 0, 7, 6};
    show_filter.detail = 1, show_filter.private_view = 1;
    EXPECT_EQ(stdout_of([&] { print_evpn_es_bag(&es, "0x0", nullptr); }).find("HA sync object"),
              std::string::npos);
}
