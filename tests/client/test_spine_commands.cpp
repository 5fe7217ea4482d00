// Every show command in this process against an empty database: for each
// filter combination its traces and its fetch; the capability behind each
// SID column.
#include "test_util.h"

namespace {

using Set = std::function<void(ShowFilter &)>;
using Lines = std::vector<std::string>;

const std::string H = "00000000000000000000ffff0a000001", E = "0011.2233.4455.6677.8899";
const std::string A3 = "________,________,________";
const std::string M = EVPN_PATH_MAC, IM = EVPN_PATH_IMCAST, NB = EVPN_PATH_NEIGHBOR;
const std::string EA = EVPN_PATH_EAD, PL = EVPN_PATH_PATHLIST;
const std::string ES = EVPN_PATH_ES, D = EVPN_PATH_EVI_DETAIL;

Set V(uint32_t v) { return [v](ShowFilter &f) { f.value_set = 1, f.value = v; }; }
const Set V5 = V(5), BD = [](ShowFilter &f) { f.bd_name_set = 1, f.bd_name = "bd1"; };
const Set IP = [](ShowFilter &f) { f.ip_set = 1, l2vpn_inet_pton("10.0.0.1", &f.ip_addr); };
const Set MAC = [](ShowFilter &f) { f.mac_set = 1, f.mac[0] = 0x11, f.mac[1] = 0x22, f.mac[2] = 0x33; };
const Set TAG = [](ShowFilter &f) { f.eth_tag_set = 1, f.eth_tag = 0xab; };
const Set ISID = [](ShowFilter &f) { f.i_sid_set = 1, f.i_sid = 0x2a; };
const Set ESI = [](ShowFilter &f) { f.esi_set = 1, evpn_esi_pton(E.c_str(), f.esi); };
const Set BAD_ESI = [](ShowFilter &f) { f.esi_set = 1, f.esi[0] = 6; };  // type 6 has no text
const Set IFN = [](ShowFilter &f) { f.ifname_set = 1, strcpy(f.ifname, "bond1"); };
const Set PW = [](ShowFilter &f) {
    f.pw_neighbor_set = 1, f.pw_id = 100, l2vpn_inet_pton("10.0.0.1", &f.pw_neighbor);
};
const Set VFI = [](ShowFilter &f) { f.vfi_name_set = 1, f.vfi_name = "core"; };
const Set ACC = [](ShowFilter &f) { f.access_evi = 1; };
const Set DETAIL = [](ShowFilter &f) { f.detail = 1; }, PRIV = [](ShowFilter &f) { f.private_view = 1; };
const Set LEAF = [](ShowFilter &f) { f.leaf_evis = 1; };
const Set GRP = [](ShowFilter &f) { f.grp_id_set = 1, f.grp_id = 0x1f; };
Set env(const char *name, const char *value) {
    return [=](ShowFilter &) { setenv(name, value, 1); };
}
const Set SRV6_0 = env("EVPN_SRV6", "0"), SRV6_1 = env("EVPN_SRV6", "1");
const Set ELAN_0 = env("EVPN_SRV6_ELAN", "0"), ELAN_1 = env("EVPN_SRV6_ELAN", "1");

const char *const kHandlers[] = {
    "show_evpn_mac", "show_evpn_imcast", "show_evpn_label_db_common", "show_evpn_es", "", "", "", "",
    "show_evpn_neighbor", "show_evpn_ead", "", "show_evpn_pl", "", "show_evpn_igmp", "", "", "",
    "show_evpn_label_db_common"};

class SpineCommands : public spine_test::BoundClient {
  protected:
    spine_test::Capture run(uint32_t command, const std::vector<Set> &filters) {
        TearDown();
        SetUp();
        bind(spine_test::empty_db());
        for (const Set &set : filters) set(show_filter);
        int status = -1;
        auto c = spine_test::capture([&] { status = evpn_show_dispatch(command); });
        EXPECT_EQ(status, 0) << "show command " << command;
        return c;
    }
};

// Column titles over their rules, padded and cut to the widths.
std::string header(const Lines &titles, const std::vector<size_t> &widths) {
    std::string top = "\n", rule;
    for (size_t i = 0; i < titles.size(); i++) {
        const char *sep = i == 0 ? "" : " ";
        top += sep + (titles[i].substr(0, widths[i]) + std::string(widths[i], ' ')).substr(0, widths[i]);
        rule += sep + std::string(widths[i], '-');
    }
    return top + "\n" + rule + "\n";
}

// Which capability gives the SID column: E-LAN for MAC routes, SRv6 for EAD
// routes (the reports pin each header with the capabilities they have).
TEST_F(SpineCommands, SidColumnFollowsItsOwnCapability) {
    const Lines mac{"VPN-ID", "Encap", "MAC address", "IP address", "Nexthop", "Label"};
    const Lines ead{"VPN-ID", "Encap", "Ethernet Segment Id", "EtherTag", "Nexthop", "Label"};
    const struct {
        uint32_t command;
        std::vector<Set> filters;
        std::string out;
    } cases[] = {
        {0, {ELAN_0, SRV6_1}, header(mac, {10, 10, 14, 40, 39, 8})},
        {0, {ELAN_1, SRV6_0}, header({mac[0], mac[1], mac[2], mac[3], mac[4], mac[5], "SID"},
                                     {10, 10, 14, 40, 39, 8, 39})},
        {9, {SRV6_0, ELAN_1}, header(ead, {10, 6, 24, 10, 39, 8})},
        {9, {SRV6_1, ELAN_0}, header({ead[0], ead[1], ead[2], ead[3], ead[4], ead[5], "SID"},
                                     {10, 6, 24, 10, 39, 8, 39})},
        {18, {SRV6_1}, ""},  // SRv6 without its summary record
    };
    for (const auto &k : cases) EXPECT_EQ(run(k.command, k.filters).out, k.out) << k.command;
}

// Each trace ("@" stands for the fetched path) and the one fetch made. A
// fetch without " rc=" is one the store took: every index named is registered.
struct PathCase {
    uint32_t command;
    std::vector<Set> filters;
    Lines traces;
    std::string fetch;  // empty: nothing fetched
};

// Every filter combination of every command, less the few the start-up
// cases already show from the command line.
std::vector<PathCase> path_cases() {
    const std::string I = "walk ", N = I, EAD = I, P = I, S = I, IG = I;
    const std::string ifn = "intf filter path: " + ES + "-ifname/bond1", esi = "esi filter path: " + ES +
                          "-esi/" + E, pw = "PW filter path: " + ES + "-pw/" + H + ",0x64";
    return {
        {0, {V5, MAC, IP}, {"value + mac + ip filter path: @"}, "walk " + M + "-evi_mac_ip/0x5,11,22,33," + H},
        {0, {V5, MAC}, {"value + mac + ip filter path: @"}, "walk " + M + "-evi_mac_ip/0x5,11,22,33,________"},
        {0, {V5, IP}, {"value + ip filter path: @"}, "walk " + M + "-evi_mac_ip/0x5," + A3 + "," + H},
        {0, {V5, BD}, {"value filter path: @"}, "walk " + M + "-evi/0x5"},
        {0, {BD, MAC}, {"bd + mac + ip filter path: @"}, "walk " + M + "-bd_mac_ip/bd1,11,22,33,________"},
        {0, {BD, IP}, {"bd + ip filter path: @"}, "walk " + M + "-bd_mac_ip/bd1," + A3 + "," + H},
        {0, {BD}, {"bd filter path: @"}, "walk " + M + "-bd/bd1"},
        {0, {}, {}, "walk " + M},
        {1, {V5}, {"value filter path: @"}, I + IM + "-evi/0x5"},
        {1, {V5, TAG, IP}, {"value + s_eth_tag + ip addr get path: @"}, I + IM + "-evi_eth_tag_orig_ip/0x5,ab," + H},
        {1, {V5, TAG}, {"value + eth_tag filter path: @"}, I + IM + "-evi_eth_tag/0x5,ab"},
        {1, {BD}, {"bd filter path: @"}, I + IM + "-bd/bd1"},
        {1, {BD, TAG, IP}, {"bd + eth_tag + ip addr filter path: @"}, I + IM + "-bd_eth_tag_orig_ip/bd1,ab," + H},
        {1, {BD, TAG}, {"bd + eth_tag filter path: @"}, I + IM + "-bd_eth_tag/bd1,ab"},
        {1, {TAG, IP}, {"eth_tag + ip addr filter path: @"}, I + IM + "-eth_tag_orig_ip/ab," + H},
        {1, {IP}, {}, I + IM},
        {1, {V5, BD, TAG}, {"value + eth_tag filter path: " + IM + "-evi_eth_tag/0x5,ab",
                            "bd + eth_tag filter path: @"}, I + IM + "-bd_eth_tag/bd1,ab"},
        {3, {}, {}, S + ES},
        {3, {ESI}, {"esi filter path: @"}, S + ES + "-esi/" + E},
        {3, {VFI}, {"VFI filter path: @"}, S + ES + "-vfi/core"},
        {3, {ACC}, {"Access EVI filter path: @"}, S + ES + "-accessevi/"},
        {3, {IFN, ESI, PW, VFI}, {ifn, esi, pw, "VFI filter path: @"}, S + ES + "-vfi/core"},
        {3, {IFN, ESI, PW, VFI, ACC}, {ifn, esi, pw, "VFI filter path: " + ES + "-vfi/core",
                                      "Access EVI filter path: @"}, S + ES + "-accessevi/"},
        {3, {IFN, BAD_ESI}, {ifn, "Failed to convert ESI array into string"}, ""},
        {4, {}, {}, ""},
        {4, {PRIV}, {}, "walk rd_private"},
        {5, {}, {}, "walk evpn_evi"},
        {5, {V(0x64)}, {}, "walk evpn_evi-evi/0x64"},
        {5, {V5, BD}, {}, "walk evpn_evi-bd/bd1"},
        {5, {DETAIL}, {}, "walk " + D},
        {5, {DETAIL, V(0x64)}, {}, "walk " + D + "-evi/0x64"},
        {5, {PRIV, BD}, {}, "walk " + D + "-bd/bd1"},
        {7, {}, {}, "get summary"},
        {8, {V(0x1f), IP}, {"value + ip addr filter path: @"}, N + NB + "-evi_nbr_ip/0x1f," + H},
        {8, {V(0x1f)}, {"value filter path: @"}, N + NB + "-evi/0x1f"},
        {8, {BD, IP}, {"bd + ip addr filter path: @"}, N + NB + "-bd_nbr_ip/bd1," + H},
        {8, {BD}, {"bd filter path: @"}, N + NB + "-bd/bd1"},
        {8, {IP, LEAF}, {}, N + NB},  // the printers filter by address
        {8, {V5, BD}, {"value filter path: " + NB + "-evi/0x5", "bd filter path: @"}, N + NB + "-bd/bd1"},
        {9, {V5, ESI}, {"value + esi filter path: @"}, EAD + EA + "-evi_esi/0x5," + E},
        {9, {V5}, {"value filter path: @"}, EAD + EA + "-evi/0x5"},
        {9, {BD, ESI}, {"bd + esi filter path: @"}, EAD + EA + "-bd_esi/bd1," + E},
        {9, {BD}, {"bd filter path: @"}, EAD + EA + "-bd/bd1"},
        {9, {ESI}, {"esi filter path: @"}, EAD + EA + "-esi/" + E},
        {9, {}, {}, EAD + EA},
        {9, {BD, BAD_ESI}, {"Failed to extract ESI string from array"}, ""},
        {10, {V5, ISID}, {}, "get evpn_atom_acid/0x5,2a"},
        {10, {V5}, {}, "walk evpn_atom_acid-evi/0x5"},
        {10, {ISID}, {}, "walk evpn_atom_acid"},
        {11, {V5, ESI}, {"PL value + label esi filter path: @"}, P + PL + "-evi_esi/0x5," + E},
        {11, {V5, ISID}, {"PL value filter path: @"}, P + PL + "-evi/0x5"},
        {11, {BAD_ESI, ISID}, {}, P + PL},  // without -M neither plays a part
        {11, {V5, BAD_ESI}, {"Failed to extract ESI string from array"}, ""},
        {12, {}, {}, "walk remote_shg"},
        {13, {V5, ESI}, {"value + esi filter path: @"}, IG + "igmp-evi_esi/0x5," + E},
        {13, {V5}, {"value filter path: @"}, IG + "igmp-evi/0x5"},
        {13, {ESI}, {"esi filter path: @"}, IG + "igmp-esi/" + E},
        {13, {}, {}, IG + "igmp"},
        {13, {BAD_ESI}, {"Failed to extract ESI string from array"}, ""},
        {14, {}, {}, "walk client"},
        {15, {}, {}, "walk evpn_grp"},
        {15, {GRP}, {}, "get evpn_grp/1f"},  // missing: not traced
        {16, {}, {}, "walk tep"},
        {16, {V(0x1f)}, {}, "get tep/1f/info"},
        {19, {}, {}, ""},
        {19, {PRIV}, {}, "walk ges-map"},
        {2, {}, {}, "walk evpn_label"},
        {2, {DETAIL}, {}, "walk evpn_label_detail"},
        {2, {V(0x64)}, {"value filter path: @"}, "walk evpn_label-evi/0x64"},
        {2, {V(0x64), ESI, ISID}, {"value + label esi + tag filter path: @"}, "walk evpn_label-evi_esi_tag/0x64," + E + ",2a"},
        {2, {V(0x64), ESI, TAG}, {"value + label esi filter path: @"}, "walk evpn_label-evi_esi/0x64," + E},
        {2, {V(0x64), TAG, ISID}, {"value + label tag filter path: @"}, "walk evpn_label-evi_eth_tag/0x64,0xab"},
        {2, {V5, ISID}, {"value filter path: @"}, "walk evpn_label-evi/0x5"},  // -j needs -0
        {2, {BAD_ESI, TAG, ISID}, {}, "walk evpn_label"},  // without -M none plays a part
        {2, {V5, BAD_ESI}, {"Failed to extract ESI string from array"}, ""},
        {17, {}, {}, "walk evpn_internal_id"},
        {17, {PRIV, V5}, {"value filter path: @"}, "walk evpn_internal_id_detail-evi/0x5"},
        {17, {DETAIL, V5, ESI}, {"value + label esi filter path: @"}, "walk evpn_internal_id_detail-evi_esi/0x5," + E},
        {17, {V5, TAG}, {"value + label tag filter path: @"}, "walk evpn_internal_id-evi_eth_tag/0x5,0xab"},
    };
}

TEST_F(SpineCommands, PathsTracesAndFetches) {
    for (const PathCase &k : path_cases()) {
        spine_test::Capture c = run(k.command, k.filters);
        const std::string path = k.fetch.substr(k.fetch.find(' ') + 1);
        std::string traces;
        for (std::string t : k.traces) {
            if (t.back() == '@') t.replace(t.size() - 1, 1, path);
            traces += std::string(kHandlers[k.command]) + ": " + t + "\n";
        }
        EXPECT_EQ(c.traces, traces) << k.command << " " << k.fetch;
        EXPECT_EQ(c.fetches, k.fetch.empty() ? Lines{} : Lines{k.fetch}) << k.command;
        for (const sysdb_request_s &r : c.requests) {
            EXPECT_EQ(r.count_in, k.command == 14 ? 5u : 200u);  // clients come five at a time
            EXPECT_EQ(r.flags, 0u);
        }
    }
}

TEST_F(SpineCommands, GroupFetchFailureAndOverlongPath) {
    // The one group: a fetch failure other than a missing item is traced.
    spine_test::Capture c = spine_test::capture([] {
        show_filter.grp_id_set = 1, show_filter.grp_id = 0x1f;
        evpn_show_dispatch(15);
    });
    EXPECT_EQ(c.traces, "show_evpn_grp: show_evpn_grp: sysdb item get failed: path:evpn_grp/1f "
                        "rc:System database not bound, or not an EVPN operational database\n");
    // A path longer than 255 characters is cut.
    const std::string name(300, 'b');
    c = run(5, {[&](ShowFilter &f) { f.bd_name_set = 1, f.bd_name = name.c_str(); }});
    EXPECT_EQ(c.paths, Lines{("evpn_evi-bd/" + name).substr(0, 255)});
}

}  // namespace
