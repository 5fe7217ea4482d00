// Printers of segments and system records.
#include <cstdio>
#include <iterator>
#include <type_traits>

#include "evpn_show_print.h"
#include "platform/printers.h"

namespace {

constexpr char kDashLine[] = "-----------------------------\n";
constexpr char kTraceRule[] =
    "-----------------------------------------------------------------------------------\n";

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

const char *text_or_empty(const char *s) { return s ? s : ""; }

// A route total split into plain MACs and MAC-IP routes; the plain count is
// taken in 32-bit arithmetic, so a total lagging its parts wraps.
void print_mac_split(uint32_t total, uint32_t ipv4, uint32_t ipv6) {
    printf("          MAC                      : %u\n", total - ipv4 - ipv6);
    printf("          MAC-IPv4                 : %u\n", ipv4);
    printf("          MAC-IPv6                 : %u\n", ipv6);
}

// Ends a timer line with its running state; the time left is cut to tenths.
void print_running_suffix(uint32_t left_ms) {
    if (left_ms == 0)
        printf("[not running]\n");
    else
        printf("[running, %d.%d sec left]\n", static_cast<int>(left_ms / 1000),
               static_cast<int>(left_ms % 1000 / 100));
}

// Data word i of a trace entry; a word the entry does not hold shows as 0.
uint32_t trace_word(const evt_hist_entry_bag &e, uint32_t i) {
    return e.evt_data.data != nullptr && i < e.evt_data.count ? e.evt_data.data[i] : 0;
}

void print_es_diag_section(const l2vpn_evpn_summary_bag &s) {
    printf("Ethernet Segment Section\n");
    printf("%-18.18s|%4s %-18s %8s\n", "", "Cnt", "Last Time", "Last Arg");
    for (size_t i = 0; i < std::size(kEsDiagLabels); i++) {
        printf(i == 0 ? "%19.19s" : "\n%19.19s", kEsDiagLabels[i]);
        l2vpn_diag_stats_print_bag(&s.es_diag[i]);
    }
    printf("\n");
}

}  // namespace

void print_evt_trace_history(const evt_hist_bag *history) {
    if (history == nullptr)
        return;
    uint32_t n = history->evt_entry.data != nullptr ? history->evt_entry.count : 0;
    if (n == 0) {
        printf("\nNo event in the Event Trace History\n");
        return;
    }
    printf("\n   Event Trace History [Total events: %d]\n", static_cast<int>(n));
    printf("%s", kTraceRule);
    printf("     %-19s %-20s %-12s %-12s %-12s %-12s\n", "Time", "Event", "Info1", "Info2",
           "Info3", "Info4");
    printf("     %-19s %-20s %-12s %-12s %-12s %-12s\n", "====", "=====", "=====", "=====",
           "=====", "=====");
    for (uint32_t i = 0; i < n; i++) {
        const evt_hist_entry_bag &e = history->evt_entry.data[i];
        printf("     %-19s %-20s 0x%-10x 0x%-10x 0x%-10x 0x%-10x %-2s %-2s\n",
               text_or_empty(e.evt_timestamp), text_or_empty(e.evt_name), trace_word(e, 0),
               trace_word(e, 1), trace_word(e, 2), trace_word(e, 3), e.evt_many ? "M" : "-",
               e.evt_sticky ? "S" : "-");
    }
    printf("%s\n", kTraceRule);
}

void print_evpn_summary_bag(const void *record, const char *, PrintContext *) {
    const auto &s = *static_cast<const l2vpn_evpn_summary_bag *>(record);
    const bool priv = show_filter.private_view != 0;

    printf("%s", kDashLine);
    printf("Global Information\n");
    printf("%s", kDashLine);

    printf("Number of EVIs                     : %u\n", s.evi_count);
    printf("Number of TEPs                     : %u\n", s.tep_count);
    printf("Number of Local EAD Entries        : %u\n", s.local_ead_count);
    printf("Number of Remote EAD Entries       : %u\n", s.remote_ead_count);
    printf("Number of Local MAC Routes         : %u\n", s.local_mac_count);
    print_mac_split(s.local_mac_count, s.local_mac_ipv4_count, s.local_mac_ipv6_count);
    printf("Number of Local ES:Global MAC      : %u\n", s.local_es_global_mac_count);
    printf("Number of Remote MAC Routes        : %u\n", s.remote_mac_count);
    print_mac_split(s.remote_mac_count, s.remote_mac_ipv4_count, s.remote_mac_ipv6_count);
    printf("Number of Remote SYNC MAC Routes   : %u\n", s.remote_sync_mac_count);
    printf("Number of Local IMCAST Routes      : %u\n", s.local_imcast_count);
    printf("Number of Remote IMCAST Routes     : %u\n", s.remote_imcast_count);
    printf("Number of Internal Labels          : %u\n", s.internal_label_count);
    printf("Number of single-home Internal IDs : %u\n", s.sh_internal_id_count);
    printf("Number of multi-home Internal IDs  : %u\n", s.mh_internal_id_count);
    printf("Number of ES Entries               : %u\n", s.es_count);
    printf("Number of Neighbor Entries         : %u\n", s.neighbor_count);

    printf("EVPN Router ID                     : %s\n", l2vpn_inet_ntop(&s.evpn_router_id));
    if (priv)
        printf("BGP Router ID                      : %s\n", l2vpn_inet_ntop(&s.bgp_router_id));
    if (s.bgp_asn != 0)
        printf("BGP ASN                            : %u\n", s.bgp_asn);
    else
        printf("BGP ASN                            : Invalid\n");
    printf("PBB BSA MAC address                : %s\n", macstring(s.pbb_bsa_mac, 6));

    printf("Global peering timer               : %6u seconds\n", s.peering_timer);
    printf("Global recovery timer              : %6u seconds\n", s.recovery_timer);
    printf("Global carving timer               : %6u seconds\n", s.carving_timer);
    printf("Global MAC postpone timer          : %6u seconds ", s.mac_postpone_timer);
    print_running_suffix(s.mac_postpone_left);
    printf("Global core de-isolation timer     : %6u seconds ", s.core_deisolation_timer);
    print_running_suffix(s.core_deisolation_left);
    printf("EVPN services costed out on node   : %s\n", Yes_or_No_str(s.costed_out));
    if (s.startup_cost_in_timer != 0) {
        printf("          Startup-cost-in timer    : %6u seconds ", s.startup_cost_in_timer);
        print_running_suffix(s.startup_cost_in_left);
    } else {
        printf("          Startup-cost-in timer    : Not configured\n");
    }
    printf("          EVPN manual cost-out     : %s\n", Yes_or_No_str(s.manual_cost_out));
    printf("          EVPN Bundle Convergence  : %s\n", Yes_or_No_str(s.bundle_convergence));
    if (!priv)
        return;

    printf("Staggered bring-up timer           : %6u milliseconds ", s.bringup_timer);
    print_running_suffix(s.bringup_left);
    printf("          Items in bring-up queue  : %u, In-Progress %u\n", s.bringup_queue_items,
           s.bringup_in_progress);
    printf("Global AC debounce timer           : %6u milliseconds\n", s.ac_debounce_timer);
    printf("Backup replacement timer           : %6u milliseconds ", s.backup_replacement_timer);
    print_running_suffix(s.backup_replacement_left);
    printf("DF Election logging                : %s\n",
           s.df_election_logging ? "enabled" : "disabled");
    printf("BGP Nexthop Resolution Pfx Len IPv6: %u\n", s.bgp_nh_pfx_len_ipv6);

    printf("%s", kDashLine);
    printf("High Availability Information\n");
    printf("%s", kDashLine);
    printf("BGP EOD                            : %s\n", s.bgp_eod == 1 ? "Y" : "N");
    printf("Number of Marked Remote MAC Routes : %u\n", s.marked_remote_mac_count);
    printf("Number of Swept Remote MAC Routes  : %u\n", s.swept_remote_mac_count);
    printf("Number of Marked Local MAC Routes  : %u\n", s.marked_local_mac_count);
    printf("Number of Swept Local MAC Routes   : %u\n", s.swept_local_mac_count);
    printf("Number of Marked IMCAST Routes     : %u\n", s.marked_imcast_count);
    printf("Number of Swept IMCAST Routes      : %u\n", s.swept_imcast_count);
    printf("Throttle send to L2RIB             : %s\n", s.throttle_to_l2rib ? "TRUE" : "FALSE");
    printf("Number of ES/EAD pulses pending    : %lu\n",
           static_cast<unsigned long>(s.es_ead_pulses_pending));
    printf("NTP Configured and in sync         : %s\n", s.ntp_in_sync ? "TRUE" : "FALSE");

    print_evt_trace_history(&s.event_history);
    print_es_diag_section(s);
}
