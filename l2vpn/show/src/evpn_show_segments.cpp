// Segments and system records: the commands of Ethernet segments, the
// summary, AC IDs, remote split-horizon groups, IGMP routes, clients, EVPN
// groups, SRv6 and the grouping-ES map, with their headers, paths and
// printers.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <type_traits>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "evpn_show_format.h"
#include "evpn_show_print.h"
#include "evpn_show_words.h"
#include "platform/caps.h"
#include "platform/formatters.h"
#include "platform/cerr.h"
#include "platform/infra.h"
#include "platform/printers.h"

namespace {

// The record types the commands read.
constexpr RecordTypeDef kSummary = record_type<l2vpn_evpn_summary_bag>(print_evpn_summary_bag, 0);
constexpr RecordTypeDef kEthernetSegment = record_type<l2vpn_evpn_es_bag>(print_evpn_es_bag, 200);
constexpr RecordTypeDef kAcId = record_type<l2vpn_atom_acid_bag>(print_atom_acid_bag, 200);
constexpr RecordTypeDef kRemoteShg =
    record_type<l2vpn_evpn_remote_shg_bag>(print_evpn_remote_shg_bag, 200);
constexpr RecordTypeDef kIgmpRoute = record_type<l2vpn_evpn_igmp_bag>(print_evpn_igmp_bag, 200);
constexpr RecordTypeDef kClient = record_type<l2vpn_evpn_client_bag>(print_evpn_client_bag, 5);
constexpr RecordTypeDef kGroup = record_type<evpn_grp_info_bag>(print_evpn_grp_info_bag, 200);
constexpr RecordTypeDef kSrv6 = record_type<l2vpn_evpn_srv6_bag>(print_evpn_srv6_bag, 0);
constexpr RecordTypeDef kGesMapEntry =
    record_type<l2vpn_ges_map_entry_bag>(print_ges_map_entry_bag, 200);

constexpr char kDashLine[] = "-----------------------------\n";
constexpr char kTraceRule[] =
    "-----------------------------------------------------------------------------------\n";

// Words of an IGMP route's codes: kIgmp*Words (evpn_show_words.h). A route
// type past its table, a negative one included, reads "ERROR"; a version or
// filter mode past its table reads "Unknown", as the platform's words do.
constexpr int32_t kIgmpRouteLeave = 1;
constexpr int32_t kIgmpRouteProxy = 2;
constexpr uint32_t kIgmpVersion3 = 2;       // the one version with a filter mode
// Bytes of an IGMP route's texts.
constexpr size_t kIgmpSourceSize = 46;      // an address text (INET6_ADDRSTRLEN)
constexpr size_t kIgmpColumnTextSize = 96;  // the (S,G) and Source columns' texts

// Labels of the summary's es_diag counters, in record order; each bar lines
// up with the bar of the section header.
constexpr const char *kEsDiagLabels[] = {
    "Error Internal|",   "Error API|",         "Error Collaborator|", "Warnings|",
    "Empty NH Count|",   "Replay MP Callback|", "Replay MP Done|",    "Advertise RT|",
    "Withdraw RT|",      "Advertise ESI|",     "Withdraw ESI|",       "Advertise EAD/ES|",
    "Withdraw EAD/ES|",  "Advertise EAD/EVI|", "Withdraw EAD/EVI|",   "Advertise SMAC|",
    "Withdraw SMAC|",    "DF Election BP|",    "MAC Flush PEs|",      "MAC Flush CE|",
};
static_assert(std::size(kEsDiagLabels) ==
              std::extent_v<decltype(l2vpn_evpn_summary_bag::es_diag)>);

// A route total split into plain MACs and MAC-IP routes; the plain count is
// taken in 32-bit arithmetic, so a total lagging its parts wraps.
void print_mac_split(uint32_t total, uint32_t ipv4, uint32_t ipv6) {
    show_print<"          MAC                      : %u\n">(total - ipv4 - ipv6);
    show_print<"          MAC-IPv4                 : %u\n">(ipv4);
    show_print<"          MAC-IPv6                 : %u\n">(ipv6);
}

// Ends a timer line with its running state; the time left is cut to tenths.
void print_running_suffix(uint32_t left_ms) {
    if (left_ms == 0)
        show_print<"[not running]\n">();
    else
        show_print<"[running, %d.%d sec left]\n">(static_cast<int>(left_ms / 1000),
                    static_cast<int>(left_ms % 1000 / 100));
}

// Group states of evpn_grp_info_bag::group_state.
constexpr const char *kGroupStates[] = {"Deisolating", "Isolated", "Ready", "Incomplete"};

// Client protocols of l2vpn_evpn_client_bag::client_type.
constexpr const char *kClientTypes[] = {"IGMPSN", "IGMP", "MRIB", "MLD", "MLDSN"};

// One line per interface of a group with the name of its state; false when
// the group has none.
bool print_grp_interfaces(const bag_array<evpn_grp_intf_entry> &list) {
    const uint32_t n = count_of(list);
    for (uint32_t i = 0; i < n; i++)
        show_print<"     %s: %s\n">(text_of(list.data[i].name),
                    im_state_reverse_lookup(list.data[i].if_state, 0));
    return n != 0;
}

// Data word i of a trace entry; a word the entry does not hold shows as 0.
uint32_t trace_word(const evt_hist_entry_bag &e, uint32_t i) {
    return e.evt_data.data != nullptr && i < e.evt_data.count ? e.evt_data.data[i] : 0;
}

void print_es_diag_section(const l2vpn_evpn_summary_bag &s) {
    show_print<"Ethernet Segment Section\n">();
    show_print<"%-18.18s|%4s %-18s %8s\n">("", "Cnt", "Last Time", "Last Arg");
    for (size_t i = 0; i < std::size(kEsDiagLabels); i++) {
        show_printf(i == 0 ? "%19.19s" : "\n%19.19s", kEsDiagLabels[i]);
        l2vpn_diag_stats_print_bag(&s.es_diag[i]);
    }
    show_print<"\n">();
}

// ---- SRv6 ------------------------------------------------------------------

// What an SRv6 item list holds: EVIs, EVI:AC-ID pairs, or SRv6 E-LAN EVIs.
enum Srv6ItemMode : int { kSrv6ItemEvis = 0, kSrv6ItemVpws = 1, kSrv6ItemElanEvis = 2 };

constexpr size_t kSrv6ItemSize = 23;     // one item's text, NUL included
constexpr int kSrv6ItemLineEnd = 78;     // an item that would pass it starts a new line
constexpr size_t kSrv6PrefixSize = 46;
constexpr size_t kSrv6NumberSize = 20;
constexpr size_t kSrv6FlagsSize = 20;

// "   title: " then the items, comma-separated; continuation lines are indented
// under the first item. Column and indent are kept in 8 bits.
void print_srv6_item_list(const void *items, uint32_t count, const char *title,
                          Srv6ItemMode mode) {
    const uint8_t indent = static_cast<uint8_t>(show_printf("   %s: ", title));
    uint8_t column = indent;
    if (items == nullptr || count == 0) {
        show_print<"\n">();
        return;
    }
    for (uint32_t i = 0; i < count; i++) {
        const bool last = i + 1 == count;
        char item[kSrv6ItemSize];
        if (mode == kSrv6ItemVpws) {
            const auto &pair = static_cast<const l2vpn_evpn_srv6_vpws_item *>(items)[i];
            show_snprintf(item, sizeof item, last ? "%u:%u" : "%u:%u, ", pair.evi, pair.ac_id);
        } else {
            show_snprintf(item, sizeof item, last ? "%u" : "%u, ",
                          static_cast<const uint32_t *>(items)[i]);
        }
        const uint8_t len = static_cast<uint8_t>(strlen(item));
        if (column + len > kSrv6ItemLineEnd) {
            show_printf("\n%*s", indent, " ");
            show_print<"%s">(item);
            column = static_cast<uint8_t>(indent + len);
        } else {
            show_print<"%s">(item);
            column = static_cast<uint8_t>(column + len);
        }
    }
    show_print<"\n">();
}

// Headings and rows share one format per view; the first column is as wide
// as the longest name shown.
constexpr char kLocatorColumnsPrivate[] =
    "%-*s    %-24s    %-10s    %-5s    %-5s    %-20s    %-13s    %-13s\n";
constexpr char kLocatorColumns[] = "%-*s    %-24s    %-5s    %-20s    %-13s    %-13s\n";
constexpr char kLocatorNameTitle[] = "Locator name";

void print_srv6_locator(const l2vpn_evpn_srv6_locator_entry &loc, int width, bool priv,
                        bool detail) {
    char prefix[kSrv6PrefixSize], services[kSrv6NumberSize], sids[kSrv6NumberSize];
    char locator_id[kSrv6NumberSize], flags[kSrv6FlagsSize] = "";
    show_sprint<"%s/%d">(prefix, l2vpn_inet_ntop(&loc.prefix), loc.prefix_len);
    show_sprint<"%u">(services, loc.service_count);
    show_sprint<"%u">(sids, loc.sid_count);
    if (priv)
        show_sprint<"%u">(locator_id, loc.locator_id);
    char flags_text[kSrv6FlagsSize];
    if (srv6_util_locator_flags_print(loc.flags, flags_text, sizeof flags_text))
        show_sprint<"%s">(flags, flags_text);
    if (priv)
        show_printf(kLocatorColumnsPrivate, width, text_of(loc.name), prefix, locator_id,
                    true_false(loc.oor), true_false(loc.in_use), flags, services, sids);
    else
        show_printf(kLocatorColumns, width, text_of(loc.name), prefix, true_false(loc.oor), flags,
                    services, sids);
    if (!detail)
        return;
    if (loc.is_default)
        show_print<"   Default locator\n">();
    if (count_of(loc.evis))
        print_srv6_item_list(loc.evis.data, loc.evis.count, "Configured on EVIs <evi>",
                             kSrv6ItemEvis);
    if (count_of(loc.vpws))
        print_srv6_item_list(loc.vpws.data, loc.vpws.count, "Configured on VPWS <evi:ac-id>",
                             kSrv6ItemVpws);
    if (count_of(loc.elan_evis))
        print_srv6_item_list(loc.elan_evis.data, loc.elan_evis.count,
                             "Configured on SRv6 ELAN <evi>", kSrv6ItemElanEvis);
    if (priv)
        infra_db_print_evt_hist_bag(&loc.event_history, &loc.event_history_info,
                                    "EVPN SRV6 Locator event history");
}

// Attachment types 0 and 4 are bridge ports of a bridge domain; any other is
// a subinterface in a VRF.
bool igmp_on_bridge_port(uint32_t attachment_type) {
    return attachment_type == 0 || attachment_type == 4;
}

bool is_zero_address(const l2vpn_ip_addr_t &addr) {
    for (uint8_t b : addr.bytes)
        if (b != 0) return false;
    return true;
}


// ---- Ethernet segments -------------------------------------------------------

// Words of the segment's codes, indexed by the code (kEs*Words of
// evpn_show_words.h and the origins' texts here). Codes past a table
// print as the Parts of the display say: a number, "Invalid" or "INVALID".
constexpr const char *kEsImportRtOriginWords[] = {"(Incomplete Configuration)", "(from ESI)",
                                                  "(Local)"};
constexpr const char *kEsSourceMacOriginWords[] = {
    "(Incomplete Configuration)", "(N/A)", "(Local)", "(PBB BSA)", "(from ESI)",
    "(from ESI, Error)", "(PBB BSA, no ESI)"};
// Indexed by carving_mode; 3 has no mode of its own.
constexpr const char *kEsCarvingModeTexts[] = {"Invalid\n", "Auto-selection\n", "Manual\n",
                                               "Invalid\n", "HRW\n",            "Preferential\n"};
constexpr const char *kEsMcastCarvingTexts[] = {"Disabled\n", "HRW (S,G)\n", "HRW (*,G)\n"};
// The tables above and the segment's word tables with their lengths.
constexpr auto kEsImportRtOrigins = show_words(kEsImportRtOriginWords);
constexpr auto kEsSourceMacOrigins = show_words(kEsSourceMacOriginWords);
constexpr auto kEsCarvingModes = show_words(kEsCarvingModeTexts);
constexpr auto kEsMcastCarvings = show_words(kEsMcastCarvingTexts);
constexpr auto kEsStates = show_words(kEsStateWords);
constexpr auto kEsRedundancies = show_words(kEsRedundancyWords);
constexpr auto kEsOperTopologies = show_words(kEsOperTopologyWords);
constexpr auto kEsConfTopologies = show_words(kEsConfTopologyWords);
constexpr auto kEsCarvingSyncs = show_words(kEsCarvingSyncWords);
constexpr auto kEsMacFlushes = show_words(kEsMacFlushWords);
constexpr auto kEsAccessSignals = show_words(kEsAccessSignalWords);
constexpr auto kEsDfTypes = show_words(kEsDfTypeWords);

constexpr uint32_t kEsCarvingManual = 2;
constexpr uint32_t kEsCarvingPreferential = 5;
constexpr uint32_t kEsWarningVesConflict = 0;
constexpr uint32_t kNoLabel = 0x100001;      // outside the 20-bit label range
constexpr size_t kEsNameSize = 80;           // the name conversions' buffer
constexpr size_t kEsIfNameSize = 64;         // what the interface display form may fill
constexpr size_t kEsTimeSize = 20;
constexpr size_t kCarvingItemSize = 91;      // one EVI:ETag item's text
constexpr size_t kCarvingHeaderSize = 80;    // a carving row's start, NUL included
constexpr uint32_t kCarvingItemsPerRow = 6;

// Virtual accesses named by a pseudowire or VFI; kind 7 (access EVI) is named
// the same way in the brief entry only.
bool es_named_by_ves(uint32_t kind) { return kind == 3 || kind == 4 || kind == 7; }
bool es_is_pw_or_vfi(uint32_t kind) { return kind == 3 || kind == 4; }
constexpr uint32_t kEsKindVirtualAccessIf = 5;

// Codes past a word table print their number in the line's number format; a
// negative code reads as unsigned.

// A MAC's text: always L2VPN_MAC_STR_LEN characters for six bytes.
ShowText mac_text(const uint8_t *mac) { return {macstring(mac, 6), L2VPN_MAC_STR_LEN}; }

// "ES Import RT" and "Source MAC": the MAC, then the origin's word or number.
// The line's label stands padded in both formats (no text conversion for it).
template <show_format::Format WordLine, show_format::Format NumberLine, size_t N>
void print_es_origin(const uint8_t *mac, const ShowWords<N> &words, int32_t origin) {
    if (origin >= 0 && origin < static_cast<int32_t>(N))
        show_print<WordLine>(mac_text(mac), words.at[origin]);
    else
        show_print<NumberLine>(mac_text(mac), static_cast<uint32_t>(origin));
}

template <show_format::Format WordLine, show_format::Format NumberLine, size_t N>
void print_es_topology(const ShowWords<N> &words, int32_t topology, ShowText suffix) {
    if (topology >= 0 && topology < static_cast<int32_t>(N))
        show_print<WordLine>(words.at[topology], suffix);
    else
        show_print<NumberLine>(static_cast<uint32_t>(topology), suffix);
}

const char *local_or_global(uint32_t local) { return local ? "(local)" : "(global)"; }

// The label text of an MPLS label, kNoLabel reading "Invalid".
void es_label_text(uint32_t label, char (&buf)[EVPN_LABEL_TEXT_SIZE]) {
    memset(buf, 0, sizeof buf);
    l2vpn_mpls_label_to_str(label, buf, sizeof buf, EVPN_ENCAP_MPLS);
}

// The interface name line: the name's display form, or "N/A" when it has none.
void print_es_display_name(const char *name) {
    char buf[kEsNameSize] = {};
    im_display_namestring(name, buf, kEsIfNameSize, 0);
    if (buf[0]) show_print<"     Interface name : %s\n">(buf);
    else show_print<"     Interface name : N/A\n">();
}

// The texts of a segment's peers' addresses: each is printed in the brief
// row, the peering details and the carving updates, and is made once, in
// the brief row, for the first few.
class EsPeerTexts {
public:
    // Peer i's address text, made.
    ShowText make(uint32_t i, const l2vpn_ip_addr_t &address) {
        if (i >= kKept) return other(address);
        len_[i] = static_cast<uint8_t>(l2vpn_ip_to_text(&address, text_[i]));
        return {text_[i], len_[i]};
    }
    // Peer i's address text, as made before for the first few.
    ShowText kept(uint32_t i, const l2vpn_ip_addr_t &address) const {
        if (i >= kKept) return other(address);
        return {text_[i], len_[i]};
    }

private:
    static constexpr uint32_t kKept = 8;
    static ShowText other(const l2vpn_ip_addr_t &address) {
        const char *text = l2vpn_inet_ntop(&address);
        return {text, strlen(text)};
    }
    char text_[kKept][L2VPN_IP_STR_SIZE];
    uint8_t len_[kKept];
};

void print_es_brief(const l2vpn_evpn_es_bag &es, bool etree, bool priv, EsPeerTexts &peers) {
    const char *esi = text_of(es.esi_text);
    show_print<"%-24.24s ">(etree || is_nonzero_show_esi_string(esi) ? esi : "N/A");

    char name[kEsNameSize] = {};
    if (es_named_by_ves(es.es_kind)) {
        // A name with no display form leaves the column out.
        convert_pw_or_vfi_ves_namestring(es.name, name);
        if (name[0]) show_print<"%-34.34s">(name);
    } else {
        im_display_namestring(es.name, name, kEsIfNameSize, 1);
        if (name[0]) show_print<"%-34.34s">(name);
        else show_print<"%-34.34s">(show_text("N/A"));
    }

    const uint32_t n = count_of(es.nexthops);
    if (n == 0) {
        show_print<" %-30.30s\n">(show_text("N/A"));
        return;
    }
    for (uint32_t i = 0; i < n; i++) {
        const l2vpn_evpn_es_nexthop &nh = es.nexthops.data[i];
        if (i > 0) show_print<"                                                           ">();  // 59 columns: under the first address
        const ShowText address = peers.make(i, nh.address);
        if (priv) show_print<" %s %s%s\n">(address, nh.nh_standby ? "S" : " ", nh.nh_up ? "U" : " ");
        else show_print<" %s\n">(address);
    }
}

void print_es_interface(const l2vpn_evpn_es_bag &es, bool priv) {
    const ShowText state = code_text(kEsStates, es.state, show_text("Invalid"));
    if (es_is_pw_or_vfi(es.es_kind)) {
        show_print<"  Virtual Access    :\n">();
        show_print<"     Name           : %s\n">(text_of(es.name));
        show_print<"     State          : %s\n">(state);
        show_print<"     Num PW Up      : %u\n">(es.num_pw_up);
    } else {
        const bool vai = es.es_kind == kEsKindVirtualAccessIf;
        if (vai)
            show_print<"  Virtual Access    :\n">();
        else
            show_print<"  Main port         :\n">();
        print_es_display_name(es.name);
        if (!vai) show_print<"     Interface MAC  : %s\n">(mac_text(es.interface_mac));
        show_print<"     IfHandle       : 0x%08x\n">(es.ifhandle);
        if (es.staggered_bringup)
            show_print<"     State          : %s (in staggered bring-up)\n">(state);
        else
            show_print<"     State          : %s\n">(state);
        if (!vai) {
            if (es.redundancy < std::size(kEsRedundancies.at))
                show_print<"     Redundancy     : %s\n">(kEsRedundancies.at[es.redundancy]);
            else
                show_print<"     Redundancy     : 0x%08x\n">(es.redundancy);
            if (es.ves_main_port) {
                show_print<"  VES Main port     :\n">();
                show_print<"     Grouping MAC   : %s\n">(mac_text(es.grouping_mac));
                show_print<"     %-15.15s: %u\n">("vES subinterfaces linked", es.ves_subif_count);
                if (priv) show_print<"     Peering count  : %u\n">(es.ves_peering_count);
            }
        }
    }
    if (priv) show_print<"  ESI ID            : 0x%x\n">(es.esi_id);
}

void print_es_esi_type(const l2vpn_evpn_es_bag &es) {
    switch (es.esi_type) {
    case 0:
        show_print<"  ESI type          : %d\n">(0);
        show_print<"     Value          : %s\n">(text_of(es.esi_text));
        break;
    case 1:
        show_print<"  ESI type          : %d\n">(1);
        show_print<"     System-id      : %s\n">(text_of(es.system_id));
        show_print<"     Port key       : %04x\n">(es.port_key);
        break;
    case 2: case 3: case 4: case 5:
        show_print<"  ESI type          : %d\n">(static_cast<int>(es.esi_type));
        break;
    default:
        show_print<"  ESI type          : %s\n">("Invalid");
    }
}

// A manually configured service list: its size, the list in runs, and with
// -p the text it was configured with.
// Line: the size's line, its label padded in it.
template <show_format::Format Line>
void print_es_manual_list(const bag_array<uint32_t> &list, const char *tag, const char *input,
                          bool priv) {
    show_print<Line>(count_of(list));
    if (count_of(list)) print_carving_values(list.data, list.count, tag, true, "");
    if (priv) show_print<"     Input String   : %s\n">(input && input[0] ? input : "None");
}

void print_es_carving(const l2vpn_evpn_es_bag &es, bool priv) {
    show_print<"  Service Carving   : %s">(code_text(kEsCarvingModes, es.carving_mode, show_text("Invalid\n")));
    if (es.carving_mode == kEsCarvingManual) {
        print_es_manual_list<"     Primary        : %u\n">(es.manual_primary, "Pri",
                                                             es.manual_primary_input, priv);
        print_es_manual_list<"     Secondary      : %u\n">(es.manual_secondary, "Sec",
                                                             es.manual_secondary_input, priv);
    } else if (es.carving_mode == kEsCarvingPreferential && priv) {
        show_print<"     Config Weight  : ">();
        show_print<"%d\n">(es.pref_config_weight);
        show_print<"     Oper Weight    : ">();
        show_print<"%d\n">(es.pref_oper_weight);
        show_print<"     Access Driven  : ">();
        show_print<"%s\n">(es.pref_access_driven ? "Enabled" : "Disabled");
    }
    show_print<"     Multicast      : %s">(
            code_text(kEsMcastCarvings, es.mcast_carving_mode, show_text("Invalid\n")));
}

// The convergence modes' names, comma-separated, by the modes set: MAC
// mobility (1), reroute (2) and nexthop tracking (4).
constexpr const char *kEsConvergenceTexts[] = {
    "",            "MAC-Mobility",              "Reroute",              "MAC-Mobility, Reroute",
    "NH-Tracking", "MAC-Mobility, NH-Tracking", "Reroute, NH-Tracking", "MAC-Mobility, Reroute, NH-Tracking"};
constexpr auto kEsConvergences = show_words(kEsConvergenceTexts);

void print_es_convergence(const l2vpn_evpn_es_bag &es) {
    const bool mobility = es.conv_mac_mobility, reroute = es.conv_reroute;
    const bool tracking = es.conv_nh_tracking;
    show_print<"  Convergence       : %s\n">(kEsConvergences.at[mobility | reroute << 1 | tracking << 2]);
    if (mobility) {
        show_print<"     Mobility-Flush : Debounce %u sec, Count %u, Skip %u\n">(
                es.mobility_flush_debounce, es.mobility_flush_count, es.mobility_flush_skip);
        if (es.mobility_flush_count) {
            char last[kEsTimeSize] = {};
            l2vpn_timespec_string(&es.mobility_flush_last, last, sizeof last);
            show_print<"                    : Last %s\n">(last);
        } else {
            show_print<"                    : Last n/a\n">();
        }
    }
    if (es.conv_nh_tracking)
        show_print<"     Tracked Nexthop: %s\n">(l2vpn_inet_ntop(&es.tracked_nexthop));
}

// The peers' address texts are those the brief row made.
void print_es_peers(const l2vpn_evpn_es_bag &es, bool priv, const EsPeerTexts &peers) {
    const uint32_t n = count_of(es.nexthops);
    show_print<"  Peering Details   : %u Nexthops\n">(n);
    for (uint32_t i = 0; i < n; i++) {
        const l2vpn_evpn_es_nexthop &nh = es.nexthops.data[i];
        const ShowText address = peers.kept(i, nh.address);
        // The preemption and time-sync marks stand in the formats.
        const ShowText df = code_text(kEsDfTypes, nh.df_type, show_text("Invalid"));
        if (nh.dont_preempt) {
            if (nh.time_sync) show_print<"     %s [%s:DP:%02x:T]">(address, df, nh.df_preference);
            else show_print<"     %s [%s:DP:%02x]">(address, df, nh.df_preference);
        } else {
            if (nh.time_sync) show_print<"     %s [%s:P:%02x:T]">(address, df, nh.df_preference);
            else show_print<"     %s [%s:P:%02x]">(address, df, nh.df_preference);
        }
        if (is_valid_mac(nh.mac)) show_print<"[%s]">(mac_text(nh.mac));
        if (priv) show_print<"[%u]">(nh.df_info);
        show_print<"\n">();
    }
    show_print<"  Service Carving Synchronization:\n">();
    show_print<"     Mode           : %s\n">(
            code_text(kEsCarvingSyncs, es.carving_sync_mode, show_text("INVALID")));
    show_print<"     Peer Updates   :\n">();
    for (uint32_t i = 0; i < n; i++) {
        const l2vpn_evpn_es_nexthop &nh = es.nexthops.data[i];
        const ShowText address = peers.kept(i, nh.address);
        if (nh.sct_usec == 0) {
            show_print<"        %16s [SCT: N/A]\n">(address);
            continue;
        }
        // The carving time in microseconds, as its seconds' time and their
        // fraction: "MM/DD HH:MM:SS.uuuuuu", "?" past the calendar.
        char sct[32];
        const size_t len = l2vpn_month_day_time(static_cast<time_t>(nh.sct_usec / 1000000),
                                                static_cast<unsigned>(nh.sct_usec % 1000000), 6, sct);
        show_print<"        %16s [SCT: %s]\n">(address, len ? ShowText{sct, len} : show_text("?"));
    }
}

// The not-empty per-service lists of one side of the carving results.
void print_es_carving_lists(const bag_array<uint32_t> &isids,
                            const bag_array<l2vpn_evpn_es_id_entry> &evis,
                            const bag_array<l2vpn_evpn_es_id_entry> &vnis,
                            const bag_array<l2vpn_evpn_es_id_entry> &srv6, const char *tag) {
    if (count_of(isids)) print_carving_values(isids.data, isids.count, tag, false, "I-Sid");
    if (count_of(evis)) print_carving_ids(evis.data, evis.count, tag, "EVI");
    if (count_of(vnis)) print_carving_ids(vnis.data, vnis.count, tag, "VNI");
    if (count_of(srv6)) print_carving_ids(srv6.data, srv6.count, tag, "SRv6");
}

// Line: the size's line, its label padded in it.
template <show_format::Format Line>
void print_es_vpws_list(const bag_array<l2vpn_evpn_es_evi_etag> &list, const char *tag,
                        bool carving) {
    show_print<Line>(static_cast<int>(count_of(list)));
    if (carving && count_of(list)) print_carving_evi_etags(list.data, list.count, tag);
}

void print_es_results(const l2vpn_evpn_es_bag &es, bool carving) {
    show_print<"  Service Carving Results:\n">();
    show_print<"     Forwarders     : %d\n">(static_cast<int>(es.forwarder_count));
    show_print<"     Elected        : %d\n">(static_cast<int>(es.elected_count));
    if (carving)
        print_es_carving_lists(es.elected_isids, es.elected_evis, es.elected_vnis,
                               es.elected_srv6, "E");
    show_print<"     Not Elected    : %d">(static_cast<int>(es.not_elected_count));
    if (es.carving_mode == kEsCarvingManual)
        show_print<" (incl. %d Not Configured)">(static_cast<int>(es.not_configured_count));
    show_print<"\n">();
    if (carving)
        print_es_carving_lists(es.not_elected_isids, es.not_elected_evis, es.not_elected_vnis,
                               es.not_elected_srv6, "NE");

    show_print<"  EVPN-VPWS Service Carving Results:\n">();
    print_es_vpws_list<"     Primary        : %d\n">(es.vpws_primary, "P", carving);
    print_es_vpws_list<"     Backup         : %d\n">(es.vpws_backup, "B", carving);
    print_es_vpws_list<"     Non-DF         : %d\n">(es.vpws_non_df, "NDF", carving);
}

// A timer line: its configured value, then whether it runs and for how
// long, the time left cut to tenths (as print_running_suffix writes it).
// The label stands padded in both formats ("  %-18.18s: " of each).
template <show_format::Format Stopped, show_format::Format Running>
void print_es_timer(uint32_t timer, uint32_t left_ms) {
    if (left_ms == 0)
        show_print<Stopped>(static_cast<int>(timer));
    else
        show_print<Running>(static_cast<int>(timer), static_cast<int>(left_ms / 1000),
                            static_cast<int>(left_ms % 1000 / 100));
}

void print_es_timers(const l2vpn_evpn_es_bag &es, bool priv) {
    print_es_timer<"  Peering timer     : %d sec [not running]\n",
                   "  Peering timer     : %d sec [running, %d.%d sec left]\n">(es.peering_timer,
                                                                             es.peering_left);
    print_es_timer<"  Recovery timer    : %d sec [not running]\n",
                   "  Recovery timer    : %d sec [running, %d.%d sec left]\n">(es.recovery_timer,
                                                                             es.recovery_left);
    print_es_timer<"  Carving timer     : %d sec [not running]\n",
                   "  Carving timer     : %d sec [running, %d.%d sec left]\n">(es.carving_timer,
                                                                             es.carving_left);
    print_es_timer<"  HRW Reset timer   : %d sec [not running]\n",
                   "  HRW Reset timer   : %d sec [running, %d.%d sec left]\n">(es.hrw_reset_timer,
                                                                             es.hrw_reset_left);
    if (priv)
        print_es_timer<"  AC Debounce timer : %d msec [not running]\n",
                       "  AC Debounce timer : %d msec [running, %d.%d sec left]\n">(
                es.ac_debounce_timer, es.ac_debounce_left);
}

// An E-Tree segment has its E-Tree label and no split-horizon labels.
void print_es_labels(const l2vpn_evpn_es_bag &es, bool etree) {
    char label[EVPN_LABEL_TEXT_SIZE];
    es_label_text(es.local_label_valid ? es.local_label : kNoLabel, label);
    if (etree) {
        show_print<"  Local ETree label : %s\n">(label);
        return;
    }
    show_print<"  Local SHG label   : %s\n">(label);
    const uint32_t n = count_of(es.remote_shg_labels);
    show_print<"  Remote SHG labels : %zu\n">(static_cast<size_t>(n));
    for (uint32_t i = 0; i < n; i++) {
        const l2vpn_evpn_remote_shg_label_entry &r = es.remote_shg_labels.data[i];
        es_label_text(r.label, label);
        show_print<"  %17.17s : nexthop %s\n">(label, l2vpn_inet_ntop(&r.address));
    }
}

// ---- Ethernet segment diagnostics ----------------------------------------------

// One row of the statistics table: advertised and, where the row has them,
// withdrawn counters. The rows keep this order, not the record's.
struct EsStatsRow {
    const char *label;
    l2vpn_diag_stats_bag l2vpn_evpn_es_bag::*adv;
    l2vpn_diag_stats_bag l2vpn_evpn_es_bag::*wdw;  // null: one column only
};
constexpr EsStatsRow kEsStatsRows[] = {
    {"RT", &l2vpn_evpn_es_bag::rt_adv_stats, &l2vpn_evpn_es_bag::rt_wdw_stats},
    {"LocalBMAC", &l2vpn_evpn_es_bag::local_bmac_adv_stats,
     &l2vpn_evpn_es_bag::local_bmac_wdw_stats},
    {"ESI", &l2vpn_evpn_es_bag::esi_adv_stats, &l2vpn_evpn_es_bag::esi_wdw_stats},
    {"EAD/ES", &l2vpn_evpn_es_bag::ead_es_adv_stats, &l2vpn_evpn_es_bag::ead_es_wdw_stats},
    {"EAD/EVI", &l2vpn_evpn_es_bag::ead_evi_adv_stats, &l2vpn_evpn_es_bag::ead_evi_wdw_stats},
    {"MST-AG VPWS", &l2vpn_evpn_es_bag::mst_ag_vpws_adv_stats,
     &l2vpn_evpn_es_bag::mst_ag_vpws_wdw_stats},
    {"DF ElectFWD", &l2vpn_evpn_es_bag::df_elect_fwd_stats, nullptr},
    {"UpdateMAC", &l2vpn_evpn_es_bag::update_mac_stats, nullptr},
    {"MacFlushPE", &l2vpn_evpn_es_bag::mac_flush_pe_stats, nullptr},
    {"MacFlushCE", &l2vpn_evpn_es_bag::mac_flush_ce_stats, nullptr},
    {"Instance", &l2vpn_evpn_es_bag::instance_adv_stats, &l2vpn_evpn_es_bag::instance_wdw_stats},
    {"MP Info", &l2vpn_evpn_es_bag::mp_info_adv_stats, &l2vpn_evpn_es_bag::mp_info_wdw_stats},
    {"MipConvert", &l2vpn_evpn_es_bag::mip_convert_stats, nullptr},
    {"FibReachblt", &l2vpn_evpn_es_bag::fib_reachability_stats, nullptr},
};

void print_es_stats(const l2vpn_evpn_es_bag &es) {
    show_print<"   EVPN ES Statistics\n">();
    show_print<"   %-10.10s|%-32.32s|%-32.32s\n">("", "Adv", "Wdw");
    show_print<"   %-10.10s|%4s %-18s %8s|%4s %-18s %8s\n">(
            "", "Cnt", "Last Time", "Last Arg", "Cnt",
                "Last Time", "Last Arg");
    for (const EsStatsRow &row : kEsStatsRows) {
        show_print<"   %10.10s">(row.label);
        show_print<"|">();
        l2vpn_diag_stats_print_bag(&(es.*row.adv));
        show_print<"|">();
        if (row.wdw) l2vpn_diag_stats_print_bag(&(es.*row.wdw));
        show_print<"\n">();
    }
    show_print<"   ----------------------------------------------------------------------------\n">(
            );
}

void print_es_two(const char *left, uint32_t a, const char *right, uint32_t b) {
    show_print<"   %16.16s %d                       %16.16s %d\n">(
            left, static_cast<int>(a), right, static_cast<int>(b));
}

void print_es_masks(const char *left, uint32_t a, const char *right, uint32_t b) {
    show_print<"   %16.16s 0x%04x                  %16.16s 0x%x\n">(left, a, right, b);
}

void print_es_counters(const l2vpn_evpn_es_bag &es) {
    const char *esi = is_nonzero_esi(es.diag_esi) ? esistring(es.diag_esi) : nullptr;
    show_print<"   %16.16s %-24.24s">("Diagnostic ESI :", esi ? esi : "N/A");
    char ifname[kEsNameSize] = {};
    im_display_namestring(es.diag_ifname, ifname, kEsIfNameSize, 0);
    show_print<"%16.16s %s\n">("Interface Name :", ifname[0] ? ifname : "N/A");

    show_print<"   %16.16s 0x%08x\n">("Diagnostic Ifh :", es.diag_ifh);
    show_print<"   %16.16s 0x%08x              %16.16s %s\n">(
            "Diagnostic Flag:", es.diag_flags, "DiagnosticES-RT:", macstring(es.diag_es_rt, 6));
    show_print<"   %16.16s 0x%08x              %16.16s %d\n">(
            "Port Key       :", es.diag_port_key, "MAC winner     :", es.mac_winner);
    show_print<"   %16.16s %d\n">("Number of EVIs :", static_cast<int>(es.num_evis));
    show_print<"   %16.16s %-4d %-10.10s         %16.16s %-4d %-10.10s\n">(
            "Recovery Timer :",
            static_cast<int>(es.recovery_timer),
            local_or_global(es.recovery_timer_local),
            "Peering Timer  :",
            static_cast<int>(es.peering_timer),
            local_or_global(es.peering_timer_local));
    show_print<"   %16.16s %-4d %-10.10s\n">(
            "Carving Timer  :",
            static_cast<int>(es.carving_timer),
            local_or_global(es.carving_timer_local));
    show_print<"   %16.16s %-4d %-10.10s\n">(
            "AC Dbnc Timer  :",
            static_cast<int>(es.ac_debounce_timer),
            local_or_global(es.ac_debounce_local));
    print_es_two("RT Advertised  :", es.rt_advertised, "ESI Advertised :", es.esi_advertised);
    print_es_masks("MSTi state mask:", es.msti_state_mask, "HRW MSTi Set   :", es.hrw_msti_set);
    if (es.es_kind == kEsKindVirtualAccessIf)
        print_es_masks("MP MSTi mask   :", es.msti_state_mask, "vES MSTi Set   :", es.ves_msti_set);
    print_es_two("ES EAD Pulse   :", es.es_ead_pulse, "MP Advertised  :", es.mp_advertised);
    print_es_two("NVE AnycastVTEP:", es.nve_anycast_vtep, "NVE Ingr-Replic:",
                 es.nve_ingress_replication);
    print_es_two("Peering Done   :", es.peering_done, "Carving Done   :", es.carving_done);
    print_es_two("Peering Chkpt  :", es.peering_chkpt, "Peering Block  :", es.peering_block);
    if (es_is_pw_or_vfi(es.es_kind))
        show_print<"   VES FSM State  : %s\n">(
                code_word(kEsVesFsmWords, es.ves_fsm_state, "Invalid"));
    print_es_two("RedundFWD      :", es.redund_fwd, "Inval NH       :", es.inval_nh);
    print_es_two("CarvReadvertise:", es.carv_readvertise, "SubIfIMRegistrd:",
                 es.subif_im_registered);
    print_es_two("IfIMCRegistrd  :", es.if_imc_registered, "IfPFIRegistrd  :",
                 es.if_pfi_registered);
    print_es_two("CheckpointStale:", es.checkpoint_stale, "CheckpointRcvrd:",
                 es.checkpoint_rcvrd);
    print_es_two("MSTIFlushFlood :", es.msti_flush_flood, "MIPConvertPend :",
                 es.mip_convert_pending);
    print_es_two("MSTI0 Adv      :", es.msti0_adv, "MP Adv Blk'd   :", es.mp_adv_blocked);
}

// Checkpointed peers show the MAC of the peering nexthop of the same rank;
// a rank the peering list does not reach shows "N/A".
void print_es_checkpoint(const l2vpn_evpn_es_bag &es) {
    show_print<"   Checkpoint Info:\n">();
    show_print<"     IF Type      : %d                       MSTi Mask      : 0x%0x\n">(
            es.ckpt_if_type, es.ckpt_msti_mask);
    show_print<"     Peering Done : %d\n">(static_cast<int>(es.ckpt_peering_done));
    const uint32_t n = count_of(es.ckpt_nexthops), peers = count_of(es.nexthops);
    if (n == 0) return;
    show_print<"     Nexthop Info :\n">();
    for (uint32_t i = 0; i < n; i++) {
        const l2vpn_evpn_es_ckpt_nexthop &c = es.ckpt_nexthops.data[i];
        show_print<"       %s [%s:%s:%02x][%u][%s]\n">(l2vpn_inet_ntop(&c.address),
                    code_word(kEsDfTypeWords, c.df_type, "Invalid"), c.dont_preempt ? "DP" : "P",
                    c.df_preference, c.df_info,
                    i < peers ? macstring(es.nexthops.data[i].mac, 6) : "N/A");
    }
}

void print_es_ead_update(const char *label, const bag_array<l2vpn_evpn_rd_rt_entry> &rds) {
    show_print<"   %-15.15s:\n">(label);
    show_print<"     Num RDs:     : %d\n">(static_cast<int>(count_of(rds)));
    print_evpn_rd_rt_list(rds.data, count_of(rds));
}

void print_es_diagnostics(const l2vpn_evpn_es_bag &es) {
    infra_db_print_evt_hist_bag(&es.event_history, &es.event_history_info,
                                "EVPN ES event history");
    print_es_stats(es);
    print_es_counters(es);

    const uint32_t ves = count_of(es.ves_nexthops);
    if (ves) {
        show_print<"   Subif vES Info :\n">();
        show_print<"     MP vES MSTI FWD BDF Mask: 0x%x\n">(es.mp_ves_bdf_mask);
        show_print<"     vES Nexthop Info on MP  :\n">();
        show_print<"       Number of vES NH: %u\n">(ves);
        for (uint32_t i = 0; i < ves; i++) {
            const l2vpn_evpn_es_nexthop &nh = es.ves_nexthops.data[i];
            show_print<"       %s : %s [%u][%u]\n">(l2vpn_inet_ntop(&nh.address),
                        macstring(nh.mac, 6), nh.df_info, nh.ves_value);
        }
    }
    print_es_checkpoint(es);
    show_print<"   Forced State   : %s\n">(
            code_word(kEsForcedStateWords, es.forced_state, "Invalid"));
    show_print<"   VI member info :">();
    if (es.vi_present) {
        show_print<"\n">();
        show_print<"     Active       : %u/%u\n">(es.vi_active, es.vi_total);
        show_print<"     Standby      : %u/%u\n">(es.vi_standby, es.vi_total);
        show_print<"     Down         : %u/%u\n">(es.vi_down, es.vi_total);
    } else {
        show_print<" not present\n">();
    }
    print_es_ead_update("ES EAD Update", es.es_ead_rds);
    if (es.ves_main_port) print_es_ead_update("GES EAD Update", es.ges_ead_rds);
}

// ---- Service carving lists -------------------------------------------------------

// Rows of six items under "title tag: ": a row starts before every sixth item;
// every item but the last and the list's sixth is followed by a comma.
void print_carving_row_header(const char *title, const char *tag, bool first) {
    if (first)
        show_print<"%15s %-4.4s: ">(title, tag);
    else
        show_print<"\n%15s %-4.4s: ">(title, tag);
}

void print_carving_wrap(uint32_t k, const char *title, const char *tag) {
    if (k != 0 && k % kCarvingItemsPerRow == 0) print_carving_row_header(title, tag, false);
}

// Whether item k, which ends at value end of count, takes a comma.
bool carving_comma(uint32_t k, uint32_t end, uint32_t count) {
    return end + 1 != count && k != kCarvingItemsPerRow - 1;
}

}  // namespace

void print_evt_trace_history(const evt_hist_bag *history) {
    if (history == nullptr)
        return;
    const uint32_t n = count_of(history->evt_entry);
    if (n == 0) {
        show_print<"\nNo event in the Event Trace History\n">();
        return;
    }
    show_print<"\n   Event Trace History [Total events: %d]\n">(static_cast<int>(n));
    show_print<"%s">(kTraceRule);
    show_print<"     %-19s %-20s %-12s %-12s %-12s %-12s\n">("Time", "Event", "Info1", "Info2",
                "Info3", "Info4");
    show_print<"     %-19s %-20s %-12s %-12s %-12s %-12s\n">("====", "=====", "=====", "=====",
                "=====", "=====");
    for (uint32_t i = 0; i < n; i++) {
        const evt_hist_entry_bag &e = history->evt_entry.data[i];
        show_print<"     %-19s %-20s 0x%-10x 0x%-10x 0x%-10x 0x%-10x %-2s %-2s\n">(
                text_of(e.evt_timestamp), text_of(e.evt_name), trace_word(e, 0),
                    trace_word(e, 1), trace_word(e, 2), trace_word(e, 3), e.evt_many ? "M" : "-",
                    e.evt_sticky ? "S" : "-");
    }
    show_print<"%s\n">(kTraceRule);
}

void print_evpn_summary_bag(const void *record, const char *, PrintContext *) {
    const auto &s = *static_cast<const l2vpn_evpn_summary_bag *>(record);
    const bool priv = show_filter.private_view != 0;

    show_print<"%s">(kDashLine);
    show_print<"Global Information\n">();
    show_print<"%s">(kDashLine);

    show_print<"Number of EVIs                     : %u\n">(s.evi_count);
    show_print<"Number of TEPs                     : %u\n">(s.tep_count);
    show_print<"Number of Local EAD Entries        : %u\n">(s.local_ead_count);
    show_print<"Number of Remote EAD Entries       : %u\n">(s.remote_ead_count);
    show_print<"Number of Local MAC Routes         : %u\n">(s.local_mac_count);
    print_mac_split(s.local_mac_count, s.local_mac_ipv4_count, s.local_mac_ipv6_count);
    show_print<"Number of Local ES:Global MAC      : %u\n">(s.local_es_global_mac_count);
    show_print<"Number of Remote MAC Routes        : %u\n">(s.remote_mac_count);
    print_mac_split(s.remote_mac_count, s.remote_mac_ipv4_count, s.remote_mac_ipv6_count);
    show_print<"Number of Remote SYNC MAC Routes   : %u\n">(s.remote_sync_mac_count);
    show_print<"Number of Local IMCAST Routes      : %u\n">(s.local_imcast_count);
    show_print<"Number of Remote IMCAST Routes     : %u\n">(s.remote_imcast_count);
    show_print<"Number of Internal Labels          : %u\n">(s.internal_label_count);
    show_print<"Number of single-home Internal IDs : %u\n">(s.sh_internal_id_count);
    show_print<"Number of multi-home Internal IDs  : %u\n">(s.mh_internal_id_count);
    show_print<"Number of ES Entries               : %u\n">(s.es_count);
    show_print<"Number of Neighbor Entries         : %u\n">(s.neighbor_count);

    show_print<"EVPN Router ID                     : %s\n">(l2vpn_inet_ntop(&s.evpn_router_id));
    if (priv)
        show_print<"BGP Router ID                      : %s\n">(l2vpn_inet_ntop(&s.bgp_router_id));
    if (s.bgp_asn != 0)
        show_print<"BGP ASN                            : %u\n">(s.bgp_asn);
    else
        show_print<"BGP ASN                            : Invalid\n">();
    show_print<"PBB BSA MAC address                : %s\n">(macstring(s.pbb_bsa_mac, 6));

    show_print<"Global peering timer               : %6u seconds\n">(s.peering_timer);
    show_print<"Global recovery timer              : %6u seconds\n">(s.recovery_timer);
    show_print<"Global carving timer               : %6u seconds\n">(s.carving_timer);
    show_print<"Global MAC postpone timer          : %6u seconds ">(s.mac_postpone_timer);
    print_running_suffix(s.mac_postpone_left);
    show_print<"Global core de-isolation timer     : %6u seconds ">(s.core_deisolation_timer);
    print_running_suffix(s.core_deisolation_left);
    show_print<"EVPN services costed out on node   : %s\n">(Yes_or_No_str(s.costed_out));
    if (s.startup_cost_in_timer != 0) {
        show_print<"          Startup-cost-in timer    : %6u seconds ">(s.startup_cost_in_timer);
        print_running_suffix(s.startup_cost_in_left);
    } else {
        show_print<"          Startup-cost-in timer    : Not configured\n">();
    }
    show_print<"          EVPN manual cost-out     : %s\n">(Yes_or_No_str(s.manual_cost_out));
    show_print<"          EVPN Bundle Convergence  : %s\n">(Yes_or_No_str(s.bundle_convergence));
    if (!priv)
        return;

    show_print<"Staggered bring-up timer           : %6u milliseconds ">(s.bringup_timer);
    print_running_suffix(s.bringup_left);
    show_print<"          Items in bring-up queue  : %u, In-Progress %u\n">(s.bringup_queue_items,
                s.bringup_in_progress);
    show_print<"Global AC debounce timer           : %6u milliseconds\n">(s.ac_debounce_timer);
    show_print<"Backup replacement timer           : %6u milliseconds ">(
            s.backup_replacement_timer);
    print_running_suffix(s.backup_replacement_left);
    show_print<"DF Election logging                : %s\n">(
            s.df_election_logging ? "enabled" : "disabled");
    show_print<"BGP Nexthop Resolution Pfx Len IPv6: %u\n">(s.bgp_nh_pfx_len_ipv6);

    show_print<"%s">(kDashLine);
    show_print<"High Availability Information\n">();
    show_print<"%s">(kDashLine);
    show_print<"BGP EOD                            : %s\n">(s.bgp_eod == 1 ? "Y" : "N");
    show_print<"Number of Marked Remote MAC Routes : %u\n">(s.marked_remote_mac_count);
    show_print<"Number of Swept Remote MAC Routes  : %u\n">(s.swept_remote_mac_count);
    show_print<"Number of Marked Local MAC Routes  : %u\n">(s.marked_local_mac_count);
    show_print<"Number of Swept Local MAC Routes   : %u\n">(s.swept_local_mac_count);
    show_print<"Number of Marked IMCAST Routes     : %u\n">(s.marked_imcast_count);
    show_print<"Number of Swept IMCAST Routes      : %u\n">(s.swept_imcast_count);
    show_print<"Throttle send to L2RIB             : %s\n">(s.throttle_to_l2rib ? "TRUE" : "FALSE");
    show_print<"Number of ES/EAD pulses pending    : %lu\n">(
            static_cast<unsigned long>(s.es_ead_pulses_pending));
    show_print<"NTP Configured and in sync         : %s\n">(s.ntp_in_sync ? "TRUE" : "FALSE");

    print_evt_trace_history(&s.event_history);
    print_es_diag_section(s);
}

void print_evpn_srv6_bag(const void *record, const char *, PrintContext *) {
    const auto &r = *static_cast<const l2vpn_evpn_srv6_bag *>(record);
    const bool priv = show_filter.private_view != 0;
    const bool detail = priv || show_filter.detail != 0;

    if (r.enabled) {
        show_print<"\n">();
        show_print<"Configured default locator: %s\n">(text_of(r.default_locator));
        if (priv) {
            show_print<"Configured default locator ID: %u\n">(r.default_locator_id);
            show_print<"SRv6 registered: %s\n">(true_false(r.registered));
        }
    } else {
        show_print<"EVPN SRv6 disabled\n">();
    }
    const uint32_t evis = count_of(r.unknown_locator_evis);
    show_print<"EVIs with unknown locator config: %u\n">(evis);
    if (detail && evis)
        print_srv6_item_list(r.unknown_locator_evis.data, evis, "Items <evi>", kSrv6ItemEvis);
    const uint32_t vpws = count_of(r.unknown_locator_vpws);
    show_print<"VPWS with unknown locator config: %u\n">(vpws);
    if (detail && vpws)
        print_srv6_item_list(r.unknown_locator_vpws.data, vpws, "Items <evi:ac-id>",
                             kSrv6ItemVpws);

    const uint32_t n = count_of(r.locators);
    if (n == 0) {
        if (r.enabled)
            show_print<"No known SRv6 locators\n">();
        return;
    }
    // The width is a byte: name lengths count modulo 256.
    uint8_t width = sizeof kLocatorNameTitle - 1;
    bool any_in_use = false;
    for (uint32_t i = 0; i < n; i++) {
        const l2vpn_evpn_srv6_locator_entry &loc = r.locators.data[i];
        any_in_use = any_in_use || loc.in_use;
        if (!loc.in_use && !priv)
            continue;
        const uint8_t len = static_cast<uint8_t>(strlen(text_of(loc.name)));
        if (len > width)
            width = len;
    }
    if (!r.enabled)
        return;
    if (!priv && !any_in_use) {
        show_print<"No SRv6 locators in use\n">();
        return;
    }
    show_print<"\n">();
    if (priv) {
        show_printf(kLocatorColumnsPrivate, width, kLocatorNameTitle, "Prefix", "Locator ID", "OOR",
                    "InUse", "Flags", "Service count", "SID count");
        show_printf(kLocatorColumnsPrivate, width, "------------", "------", "----------", "---",
                    "-----", "-----", "-------------", "---------");
    } else {
        show_printf(kLocatorColumns, width, kLocatorNameTitle, "Prefix", "OOR", "Flags",
                    "Service count", "SID count");
        show_printf(kLocatorColumns, width, "------------", "------", "---", "-----", "-------------",
                    "---------");
    }
    for (uint32_t i = 0; i < n; i++)
        if (r.locators.data[i].in_use || priv)
            print_srv6_locator(r.locators.data[i], width, priv, detail);
}

// ---- Groups, clients and the grouping-ES map ------------------------------------

void print_evpn_grp_info_bag(const void *record, const char *, PrintContext *) {
    const auto &g = *static_cast<const evpn_grp_info_bag *>(record);
    show_print<"\nEVPN Group: %u\n">(g.group_id);
    show_print<"\n  state: %s\n">(code_word(kGroupStates, g.group_state, "Invalid"));
    show_print<"\n  Core Interfaces:\n">();
    if (!print_grp_interfaces(g.core_interfaces)) show_print<"     No core interfaces.\n">();
    show_print<"\n  Access Interfaces:\n">();
    if (!print_grp_interfaces(g.access_interfaces)) show_print<"     No access interfaces.\n">();
    show_print<"\n">();
}

// The primary registration's trace, then the backup's when there is one.
void print_evpn_client_bag(const void *record, const char *, PrintContext *) {
    const auto &c = *static_cast<const l2vpn_evpn_client_bag *>(record);
    const char *type = code_word(kClientTypes, c.client_type, "Invalid");
    show_print<"Client %s, Primary\n">(type);
    print_evt_trace_history(&c.primary_history);
    if (!c.has_backup) return;
    show_print<"Client %s, Backup\n">(type);
    print_evt_trace_history(&c.backup_history);
}

// Private view only. ves_count is the record's own count, printed as it
// stands even where it differs from the entries listed.
void print_ges_map_entry_bag(const void *record, const char *, PrintContext *) {
    if (!show_filter.private_view) return;
    const auto &m = *static_cast<const l2vpn_ges_map_entry_bag *>(record);
    show_print<"\nGES Mac %s\n">(macstring(m.ges_mac, 6));
    show_print<"EVI refcount: %u\n">(m.evi_refcount);
    show_print<"VES count: %u\n">(m.ves_count);
    const uint32_t n = count_of(m.ves_entries);
    for (uint32_t i = 0; i < n; i++) {
        const l2vpn_ges_ves_entry &v = m.ves_entries.data[i];
        show_print<"  %u VES name %s\n">(i + 1, text_of(v.ves_name));
        show_print<"     MP MSTI mask: 0x%x\n">(v.mp_msti_mask);
        show_print<"     MSTI instance ID: %u\n">(v.msti_instance_id);
        show_print<"     Peer stale: %u\n">(v.peer_stale);
    }
    if (n == 0) show_print<"No VES\n">();
}

// ---- AC IDs -------------------------------------------------------------------

// Columns: 10 15 15, under the header of show_evpn_acid.
void print_atom_acid_bag(const void *record, const char *, PrintContext *) {
    const auto &ac = *static_cast<const l2vpn_atom_acid_bag *>(record);
    show_print<"%-10u %-15u %-15u\n">(ac.vpn_id, ac.source_ac_id, ac.target_ac_id);
    if (show_filter.private_view)
        infra_db_print_evt_hist_bag(&ac.event_history, &ac.event_history_info,
                                    "AC-ID event history");
}

// ---- Remote split-horizon groups ----------------------------------------------

// Columns: 10 6 24, under the header of show_evpn_remote_shg; then the label
// count and one line per label, the label right-aligned in 17 columns. The
// labels are MPLS labels whatever the EVI's encapsulation.
void print_evpn_remote_shg_bag(const void *record, const char *, PrintContext *) {
    const auto &shg = *static_cast<const l2vpn_evpn_remote_shg_bag *>(record);
    const bag_array<l2vpn_evpn_remote_shg_label_entry> &labels = shg.remote_shg_labels;
    const uint32_t n = count_of(labels);

    show_print<"%-10u %-6.6s %-24.24s\n">(shg.vpn_id, evpn_bgp_encap_type_to_str(shg.encap),
                text_of(shg.esi_text));
    show_print<"  Remote SHG labels : %zu\n">(static_cast<size_t>(n));
    for (uint32_t i = 0; i < n; i++) {
        char label[EVPN_LABEL_TEXT_SIZE] = {};
        l2vpn_mpls_label_to_str(labels.data[i].label, label, sizeof label, EVPN_ENCAP_MPLS);
        show_print<"  %17.17s : nexthop %s\n">(label, l2vpn_inet_ntop(&labels.data[i].address));
    }
    if (show_filter.private_view)
        infra_db_print_evt_hist_bag(&shg.event_history, &shg.event_history_info,
                                    "EVPN Remote SHG event history");
    show_print<"\n">();
}

// ---- IGMP routes -----------------------------------------------------------------

// Columns: 5 24 43 30 6, under the header of show_evpn_igmp. With -d or -p
// detail lines follow, each opening with its line end; -p adds the route's
// origin and attachment and its event history.
void print_evpn_igmp_bag(const void *record, const char *, PrintContext *) {
    const auto &r = *static_cast<const l2vpn_evpn_igmp_bag *>(record);
    const ShowFilter &f = show_filter;

    show_print<"%-5u ">(r.evi);
    show_print<"%-24.24s ">(is_nonzero_show_esi_string(r.esi_text) ? r.esi_text : "N/A");

    // An address text lasts until the next conversion: the source's is copied
    // before the group's is made.
    char sg[kIgmpColumnTextSize];
    if (is_zero_address(r.source)) {
        show_sprint<"(*,%s)">(sg, l2vpn_inet_ntop(&r.group));
    } else {
        char source[kIgmpSourceSize] = {};
        strcpy_s(source, sizeof source, l2vpn_inet_ntop(&r.source));
        show_sprint<"(%s,%s)">(sg, source, l2vpn_inet_ntop(&r.group));
    }
    show_print<"%-43.43s ">(sg);

    char from[kIgmpColumnTextSize];
    show_sprint<"%s%s">(from,
                  r.source_is_remote ? l2vpn_inet_ntop(&r.route_source.address)
                                : text_of(r.route_source.interface_name),
             r.resolved ? "" : "[UR]");
    show_print<"%-30.30s ">(from);
    show_print<"%-6.6s">(code_word(kIgmpRouteTypeWords, r.route_type, "ERROR"));

    if (!f.detail && !f.private_view) {
        show_print<"\n">();
        return;
    }
    show_print<"\n  Ethernet Tag      : %d">(r.ethernet_tag);
    show_print<"\n  IGMP Version      : %s">(
            code_word(kIgmpVersionWords, r.igmp_version, "Unknown"));
    if (r.igmp_version == kIgmpVersion3)
        show_print<" [%s]">(code_word(kIgmpFilterModeWords, r.filter_mode, "Unknown"));
    if (r.route_type == kIgmpRouteLeave)
        show_print<"\n  Max Response Time : %u secs">(static_cast<unsigned>(r.max_response_time));
    if (f.private_view) {
        show_print<"\n  Originating IP    : %s">(l2vpn_inet_ntop(&r.originating_ip));
        if (r.route_type == kIgmpRouteProxy)
            show_print<"\n  TEP-ID (cached)   : 0x%08x">(r.tep_id);
        if (igmp_on_bridge_port(r.attachment_type)) {
            show_print<"\n  BP XCID           : 0x%x">(r.bp_xcid_or_subif_ifh);
            show_print<"\n  BD ID             : 0x%x">(r.bd_or_vrf_id);
        } else {
            show_print<"\n  SUBIF IFH         : 0x%x">(r.bp_xcid_or_subif_ifh);
            show_print<"\n  VRF ID            : 0x%x">(r.bd_or_vrf_id);
        }
        show_print<"\n">();
        infra_db_print_evt_hist_bag(&r.event_history, &r.event_history_info,
                                    "EVPN IGMP event history");
    }
    show_print<"\n">();
}

// ---- Service carving lists -------------------------------------------------------

namespace {

// A carving list's rows gathered in a block of their own and written out
// whole: an item is a few bytes after a row header, where a report line's
// room check and conversions cost more than its text (a list of thousands
// of EVIs is a line per run). The block is filled through a local cursor.
class CarvingRows {
public:
    // header: every further row's start ("\n" and the first row's start),
    // or null when it did not fit its buffer (a long title); rows then start
    // through the report line.
    CarvingRows(const char *header, size_t header_len, const char *title, const char *tag)
        : header_(header), header_len_(header_len), title_(title), tag_(tag) {}
    CarvingRows(const CarvingRows &) = delete;
    CarvingRows &operator=(const CarvingRows &) = delete;

    // The block with the first row's start in it (the header's, past its
    // line end); without a header the caller has printed it.
    char *begin() {
        if (header_ == nullptr) return block_;
        memcpy(block_, header_ + 1, kCarvingHeaderSize - 1);
        return block_ + header_len_ - 1;
    }
    // Room for one item and the two row starts that may stand around it.
    char *reserve(char *q) { return q <= block_ + sizeof block_ - kItemRoom ? q : flush(q); }
    char *row(char *q) {
        if (header_ == nullptr) {
            flush(q);
            print_carving_row_header(title_, tag_, false);
            return block_;
        }
        // A copy of known size, 32 bytes for the usual title; what passes the
        // header's end is overwritten by what follows.
        if (header_len_ <= 32) memcpy(q, header_, 32);
        else memcpy(q, header_, kCarvingHeaderSize);
        return q + header_len_;
    }
    char *flush(char *q) {
        if (q != block_) show_write(block_, static_cast<size_t>(q - block_));
        return block_;
    }

private:
    // Two row starts, two ten-digit values, '-', ',' and a line end.
    static constexpr size_t kItemRoom = 2 * kCarvingHeaderSize + 2 * 10 + 3;
    const char *header_;
    size_t header_len_;
    const char *title_, *tag_;
    char block_[4096];
};

// Decimal digits of v: its bit width's digits, one more from the width's
// first power of ten on (added through the carry out of the low word).
inline uint32_t decimal_width(uint32_t v) {
    static constexpr auto kTable = [] {
        struct { uint64_t at[32]; } t{};
        for (int i = 0; i < 32; i++) {
            uint64_t d = 1, ten = 10;
            for (; ten <= (uint64_t(1) << i); ten *= 10) d++;
            t.at[i] = (d << 32) + (ten <= 0xffffffffu ? (uint64_t(1) << 32) - ten : 0);
        }
        return t;
    }();
    return static_cast<uint32_t>((v + kTable.at[31 - __builtin_clz(v | 1)]) >> 32);
}

// v as %u at q, or as %8u (right-aligned in blanks); returns past it.
// Numbers under ten thousand, most of a list, take one or two digit pairs:
// a one-digit pair is the digit and the next pair's first character, which
// what follows overwrites.
template <bool Pad>
inline char *carving_number(char *q, uint32_t v) {
    using show_format::kPairs;
    if (v < 100) {
        const uint32_t one = v < 10;
        if constexpr (Pad) {
            memcpy(q, show_format::kBlanks, 8);
            q += 6 + one;
        }
        memcpy(q, kPairs + 2 * v + one, 2);
        return q + 2 - one;
    }
    if (v < 10000) {
        const uint32_t hi = v / 100, lo = v - hi * 100, one = hi < 10;
        if constexpr (Pad) {
            memcpy(q, show_format::kBlanks, 8);
            q += 4 + one;
        }
        memcpy(q, kPairs + 2 * hi + one, 2);
        q += 2 - one;
        memcpy(q, kPairs + 2 * lo, 2);
        return q + 2;
    }
    const uint32_t n = decimal_width(v);
    if constexpr (Pad) {
        memcpy(q, show_format::kBlanks, 8);
        if (n < 8) q += 8 - n;
    }
    char *const end = q + n;
    show_format::decimal_digits(v, end);
    return end;
}

// The last index of the run of consecutive values that starts at i.
inline uint32_t carving_run_end(const uint32_t *values, uint32_t i, uint32_t count) {
    uint32_t end = i;
#if defined(__SSE2__)
    // Four steps at a time: each value less the one before it is one.
    const __m128i one = _mm_set1_epi32(1);
    for (; end + 4 < count; end += 4) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(values + end));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(values + end + 1));
        const unsigned ones =
                static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(_mm_sub_epi32(b, a), one))));
        if (ones != 0xf) return end + static_cast<uint32_t>(__builtin_ctz(~ones));
    }
#endif
    while (end + 1 < count && values[end + 1] == values[end] + 1) end++;
    return end;
}

// The items of a carving list after its first row's start.
template <bool Compress>
void put_carving_items(CarvingRows &rows, const uint32_t *values, uint32_t count) {
    char *q = rows.begin();
    // k counts items, in_row the items of the current row.
    for (uint32_t i = 0, k = 0, in_row = 0; i < count; i++, k++, in_row++) {
        q = rows.reserve(q);
        if (in_row == kCarvingItemsPerRow) {
            q = rows.row(q);
            in_row = 0;
        }
        const uint32_t end = Compress ? carving_run_end(values, i, count) : i;
        if (end != i) {
            q = carving_number<false>(q, values[i]);
            *q++ = '-';
            q = carving_number<false>(q, values[end]);
        } else {
            q = carving_number<true>(q, values[i]);
        }
        const bool more = end + 1 != count;
        if (more && k != kCarvingItemsPerRow - 1) *q++ = ',';
        if (Compress && more) q = rows.row(q);
        i = end;  // the next item starts after the run
    }
    *q++ = '\n';
    rows.flush(q);
}

}  // namespace

void print_carving_values(const uint32_t *values, uint32_t count, const char *tag,
                          bool compress, const char *title) {
    if (values == nullptr) return;
    // Every row starts with the same header: made once per list.
    char header[kCarvingHeaderSize];
    const int header_len = show_sprint<"\n%15s %-4.4s: ">(header, title, tag);
    const bool header_made = header_len > 0 && header_len < static_cast<int>(sizeof header);
    if (count == 0 || !header_made) print_carving_row_header(title, tag, true);
    if (count == 0) {
        show_print<"\n">();
        return;
    }
    CarvingRows rows(header_made ? header : nullptr, header_made ? static_cast<size_t>(header_len) : 0,
                     title, tag);
    // With compress, a run of consecutive values is one item, and every item
    // but the last stands on a row of its own.
    if (compress) put_carving_items<true>(rows, values, count);
    else put_carving_items<false>(rows, values, count);
}

void print_carving_ids(const l2vpn_evpn_es_id_entry *entries, uint32_t count, const char *tag,
                       const char *title) {
    if (entries == nullptr) return;
    print_carving_row_header(title, tag, true);
    for (uint32_t k = 0; k < count; k++) {
        print_carving_wrap(k, title, tag);
        show_print<"%8u">(entries[k].id);
        if (show_filter.private_view) show_print<"[%u]">(entries[k].extra);
        if (carving_comma(k, k, count)) show_print<",">();
    }
    show_print<"\n">();
}

void print_carving_evi_etags(const l2vpn_evpn_es_evi_etag *entries, uint32_t count,
                             const char *tag) {
    static constexpr char kTitle[] = "EVI:ETag";
    if (entries == nullptr) return;
    print_carving_row_header(kTitle, tag, true);
    for (uint32_t k = 0; k < count; k++) {
        print_carving_wrap(k, kTitle, tag);
        char item[kCarvingItemSize] = {};
        const int n = show_sprint<"%u:">(item, entries[k].evi);
        format_ethernet_tag(item + n, sizeof item - n, entries[k].etag_type, entries[k].etag);
        show_print<"%8s">(item);
        if (carving_comma(k, k, count)) show_print<",">();
    }
    show_print<"\n">();
}

// ---- Ethernet segments -------------------------------------------------------------

// Columns: 24 34 31, under the header of show_evpn_es: one line per peer.
// With -d or -p the detail block follows, -p adding internal state and the
// diagnostics, -c the per-service carving lists.
void print_evpn_es_bag(const void *record, const char *, PrintContext *) {
    const auto &es = *static_cast<const l2vpn_evpn_es_bag *>(record);
    const ShowFilter &f = show_filter;
    const bool priv = f.private_view != 0, detail = f.detail != 0;
    const bool etree = is_name_etree_es(es.name) != 0;

    EsPeerTexts peers;
    print_es_brief(es, etree, priv, peers);
    if (!detail && !priv) return;

    show_print<"  ES to BGP Gates   : %s\n">(text_of(es.bgp_gates));
    show_print<"  ES to L2FIB Gates : %s\n">(text_of(es.l2fib_gates));
    const uint32_t warnings = count_of(es.warnings);
    if (warnings) {
        show_print<"  ES Warning(s)     : ">();
        for (uint32_t i = 0; i < warnings; i++)
            show_print<"%s\n">(es.warnings.data[i] == kEsWarningVesConflict
                               ? "VES Conflict on this interface"
                               : "Unknown");
    }
    print_es_interface(es, priv);
    print_es_esi_type(es);
    print_es_origin<"  ES Import RT      : %s %s\n", "  ES Import RT      : %s %u\n">(
            es.import_rt, kEsImportRtOrigins, es.import_rt_origin);
    print_es_origin<"  Source MAC        : %s %s\n", "  Source MAC        : %s %u\n">(
            es.source_mac, kEsSourceMacOrigins, es.source_mac_origin);
    show_print<"  Topology          :\n">();
    print_es_topology<"     Operational    : %s%s\n", "     Operational    : %u%s\n">(
            kEsOperTopologies, es.operational_topology,
            es.forced_single_homed ? show_text(" (forced SH)") : show_text(""));
    print_es_topology<"     Configured     : %s%s\n", "     Configured     : %u%s\n">(
            kEsConfTopologies, es.configured_topology,
            es.topology_is_default ? show_text(" (default)") : show_text(""));
    print_es_carving(es, priv);
    print_es_convergence(es);
    print_es_peers(es, priv, peers);
    print_es_results(es, f.carving_detail != 0);
    if (es.mac_flush_mode >= 0 && es.mac_flush_mode < static_cast<int32_t>(std::size(kEsMacFlushes.at)))
        show_print<"  MAC Flushing mode : %s\n">(kEsMacFlushes.at[es.mac_flush_mode]);
    else
        show_print<"  MAC Flushing mode : %u\n">(static_cast<uint32_t>(es.mac_flush_mode));
    print_es_timers(es, priv);
    print_es_labels(es, etree);
    show_print<"  Access signal mode: %s\n">(
            code_text(kEsAccessSignals, es.access_signal_mode, show_text("Invalid")));
    if (priv) print_es_diagnostics(es);
    show_print<"\n">();
    if (detail && priv && es.hasi_present) l2vpn_sync_print_hasi_object(&es.hasi_object, 1);
}

// ============================================================================
// Commands: headers and paths
// ============================================================================

// Columns: 24 34 20; the legend comes first in the detail and private forms.
void show_evpn_es(const ShowCommandDef &cmd) {
    static constexpr char kColumns[] = "\n%-24.24s %-34.34s %-20.20s";
    static constexpr char kLegend[] =
        "Legend:\n"
        "  B   - No Forwarders EVPN-enabled,\n"
        "  C   - MAC missing (Backbone S-MAC PBB-EVPN / Grouping ES-MAC vES),\n"
        "  RT  - ES-Import Route Target missing,\n"
        "  E   - ESI missing,\n"
        "  H   - Interface handle missing,\n"
        "  I   - Name (Interface or Virtual Access) missing,\n"
        "  M   - Interface in Down state,\n"
        "  O   - BGP End of Download missing,\n"
        "  P   - Interface already Access Protected,\n"
        "  Pf  - Interface forced single-homed,\n"
        "  R   - BGP RID not received,\n"
        "  S   - Interface in redundancy standby state,\n"
        "  X   - ESI-extracted MAC Conflict\n"
        "  SHG - No local split-horizon-group label allocated\n"
        "  Hp  - Interface blocked on peering complete during HA event\n"
        "  Rc  - Recovery timer running during peering sequence\n";
    const ShowFilter &f = show_filter;
    char path[EVPN_PATH_SIZE];

    if (f.detail || f.private_view) show_print<"%s">(kLegend);
    show_printf(kColumns, "Ethernet Segment Id", "Interface", "Nexthops");
    show_printf(kColumns, kColumnRule, kColumnRule, kColumnRule);
    show_print<"\n">();

    // Each filter that is present replaces the path of the one before it.
    compose_path(path, "%s", EVPN_PATH_ES);
    if (f.ifname_set)
        filter_path(cmd, path, "intf filter path: %s", EVPN_PATH_ES "-ifname/%s", f.ifname);
    if (f.esi_set) {
        const char *esi = esi_key(cmd, kEsiConvertFailed);
        if (!esi) return;
        filter_path(cmd, path, "esi filter path: %s", EVPN_PATH_ES "-esi/%s", esi);
    }
    if (f.pw_neighbor_set) {
        char neighbor[L2VPN_IP_HEX_LEN + 1];
        l2vpn_ip_addr2hex_string2(&f.pw_neighbor, neighbor, sizeof neighbor);
        filter_path(cmd, path, "PW filter path: %s", EVPN_PATH_ES "-pw/%s,0x%x", neighbor,
                    f.pw_id);
    }
    if (f.vfi_name_set)
        filter_path(cmd, path, "VFI filter path: %s", EVPN_PATH_ES "-vfi/%s", f.vfi_name);
    if (f.access_evi)
        filter_path(cmd, path, "Access EVI filter path: %s", EVPN_PATH_ES "-accessevi/");

    evpn_show_walk(kEthernetSegment, path);
}

void show_evpn_summary(const ShowCommandDef &) { evpn_show_item<kSummary>(EVPN_PATH_SUMMARY); }

// Columns: 10 15 15. With -M and -j one item, else the listing.
void show_evpn_acid(const ShowCommandDef &) {
    static constexpr char kColumns[] = "\n%-10.10s %-15.15s %-15.15s\n";
    const ShowFilter &f = show_filter;
    char path[EVPN_PATH_SIZE];

    show_printf(kColumns, "VPN-ID", "Source AC ID", "Target AC ID");
    show_printf(kColumns + 1, kColumnRule, kColumnRule, kColumnRule);

    if (f.value_set && f.i_sid_set) {
        compose_path(path, EVPN_PATH_ACID "/0x%x,%x", f.value, f.i_sid);
        evpn_show_item<kAcId>(path);
        return;
    }
    if (f.value_set)
        compose_path(path, EVPN_PATH_ACID "-evi/0x%x", f.value);
    else
        compose_path(path, "%s", EVPN_PATH_ACID);
    evpn_show_walk(kAcId, path);
}

// Columns: 10 6 24.
void show_evpn_remote_shg(const ShowCommandDef &) {
    static constexpr char kColumns[] = "\n%-10.10s %-6.6s %-24.24s";
    show_printf(kColumns, "VPN-ID", "Encap", "Ethernet Segment Id");
    show_printf(kColumns, kColumnRule, kColumnRule, kColumnRule);
    show_print<"\n">();
    evpn_show_walk(kRemoteShg, EVPN_PATH_REMOTE_SHG);
}

// Columns: 5 24 43 30 6. The header comes after the path: an identifier
// without text prints nothing.
void show_evpn_igmp(const ShowCommandDef &cmd) {
    static constexpr char kColumns[] = "\n%-5.5s %-24.24s %-43.43s %-30.30s %-6.6s";
    const ShowFilter &f = show_filter;
    char path[EVPN_PATH_SIZE] = EVPN_PATH_IGMP;

    const char *esi = nullptr;
    if (f.esi_set && !(esi = esi_key(cmd, kEsiExtractFailed))) return;
    if (f.value_set && f.esi_set)
        filter_path(cmd, path, "value + esi filter path: %s", EVPN_PATH_IGMP "-evi_esi/0x%x,%s",
                    f.value, esi);
    else if (f.value_set)
        filter_path(cmd, path, "value filter path: %s", EVPN_PATH_IGMP "-evi/0x%x", f.value);
    else if (f.esi_set)
        filter_path(cmd, path, "esi filter path: %s", EVPN_PATH_IGMP "-esi/%s", esi);

    show_printf(kColumns, "EVI", "Ethernet Segment", "(S,G)", "Source", "Type");
    show_printf(kColumns, kColumnRule, kColumnRule, kColumnRule, kColumnRule, kColumnRule);
    show_print<"\n">();

    evpn_show_walk(kIgmpRoute, path);
}

void show_evpn_client(const ShowCommandDef &) { evpn_show_walk(kClient, EVPN_PATH_CLIENT); }

// One group is fetched in place: a missing group is no error worth a trace,
// and a record whose inner parts cannot be released is a broken invariant.
void show_evpn_grp(const ShowCommandDef &cmd) {
    const ShowFilter &f = show_filter;
    if (!f.grp_id_set) {
        evpn_show_walk(kGroup, EVPN_PATH_GROUP);
        return;
    }
    char path[80];
    show_snprintf(path, sizeof path, EVPN_PATH_GROUP "/%x", f.grp_id);
    uint32_t type = SYSDB_TYPE_BAG, len = 0;
    void *data = nullptr;
    uint32_t rc = sysdb_item_get(sysdb_handle, path, &type, &data, &len, 0);
    if (rc) {
        if (rc != SYSDB_ERR_NOT_FOUND && rc != SYSDB_ERR_BAD_PATH)
            EVPN_TRACE(EVPN_DBG_ERR, cmd.name, "%s: sysdb item get failed: path:%s rc:%s",
                       cmd.name, path, cerr_strerror(rc));
        free(data);
        return;
    }
    const BagDesc *bag = kGroup.desc();
    alignas(std::max_align_t) unsigned char decoded[EVPN_SINGLE_ITEM_SIZE] = {};
    static_assert(kGroup.record_size <= sizeof decoded);
    rc = bag_decode(data, len, decoded, sizeof decoded, bag);
    free(data);
    if (rc) {
        EVPN_TRACE(EVPN_DBG_ERR, cmd.name, "%s: bag decode failed: path:%s rc:%s", cmd.name, path,
                   cerr_strerror(rc));
        return;
    }
    kGroup.printer(decoded, nullptr, nullptr);
    rc = bag_free_indirections(decoded, bag);
    if (rc)
        EVPN_TRACE(EVPN_DBG_ERR, cmd.name, "%s: bag free failed: path:%s rc:%s", cmd.name, path,
                   cerr_strerror(rc));
    EVPN_ASSERT(rc == 0);
}

void show_evpn_srv6(const ShowCommandDef &) {
    if (l2vpn_platform_srv6_supported())
        evpn_show_item<kSrv6>(EVPN_PATH_SRV6);
    else
        show_print<"EVPN SRv6 not supported on this platform.\n">();
}

void show_evpn_ges_map(const ShowCommandDef &) {
    if (!show_filter.private_view) return;
    show_print<"GES Association Map\n">();
    show_print<"-------------------\n">();
    evpn_show_walk(kGesMapEntry, EVPN_PATH_GES_MAP);
}

