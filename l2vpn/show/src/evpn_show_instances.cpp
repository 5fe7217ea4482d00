// Instances: the commands of the RD database, EVIs and tunnel endpoints, with
// their headers, paths and printers: EVIs (table line and detail block with
// its statistics, RD/RT and internal sections), EVI route targets, RD lists
// and the RD database, tunnel endpoints with their notification registrations.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "evpn_show_format.h"
#include "evpn_show_print.h"
#include "evpn_show_words.h"
#include "platform/caps.h"
#include "platform/cerr.h"
#include "platform/printers.h"
#include "platform/show.h"

namespace {

// The record types the commands read.
constexpr RecordTypeDef kRdPrivate =
    record_type<l2vpn_evpn_rd_private_bag>(print_evpn_rd_private_bag, 200);
constexpr RecordTypeDef kEviSummary =
    record_type<l2vpn_evpn_evi_summary_bag>(print_evpn_evi_summary_bag, 200);
constexpr RecordTypeDef kEviDetail = record_type<l2vpn_evpn_evi_detail_bag>(
    print_evpn_evi_detail_bag, 200, EVPN_DATALIST_OPT_EVI_STATS);
constexpr RecordTypeDef kEviRouteTarget =
    record_type<l2vpn_evpn_evi_bgp_rt_bag>(print_evpn_evi_bgp_rt_bag, 200);
// Tunnel endpoints go through the platform's generic show routines, whose
// operations take the show context's tag where a printer takes its context:
// the endpoint record has no RecordPrinter of its own.
constexpr RecordTypeDef kTep = record_type<l2vpn_evpn_tep_bag>(nullptr, 200);
constexpr RecordTypeDef kTepNotification = record_type<l2vpn_evpn_tep_notification_entry_bag>(
    print_evpn_tep_notification_entry, 200);

constexpr uint32_t kVpnIdEsImport = 65535;   // EVI of the Ethernet-segment import RTs

constexpr size_t kSidIndentSize = 100;
constexpr uint32_t kRtsPerLine = 5;
constexpr uint32_t kRtCounterCols = 3;       // B, I, E

constexpr char kRdError[] = "\n Error! unable to parse RD format";
constexpr char kRtError[] = "\n Error! unable to parse RT format";
constexpr char kRtListIndent[] = "         ";
constexpr char kStatsIndent[] = "   ";

// ---- Words -------------------------------------------------------------------

const char *enabled_unless(uint32_t disabled) { return disabled ? "Disabled" : "Enabled"; }
const char *enabled_if(uint32_t enabled) { return enabled ? "Enabled" : "Disabled"; }

// kNexthopModeWords (evpn_show_words.h); codes past the table read "Off".
const char *nexthop_mode_word(uint32_t mode) {
    return mode < std::size(kNexthopModeWords) ? kNexthopModeWords[mode] : kNexthopModeWords[0];
}

// Indexed by etree_leaf * 2 + etree_rt_leaf.
constexpr const char *kEtreeWords[] = {"Root", "RT Leaf", "Leaf", "Ambiguous Leaf"};

const char *etree_word(uint32_t leaf, uint32_t rt_leaf) {
    return kEtreeWords[(leaf ? 2 : 0) + (rt_leaf ? 1 : 0)];
}

struct RtTypeWord {
    uint32_t rt_type;
    const char *word;
};
// Every other type is an import RT.
constexpr RtTypeWord kRtTypeWords[] = {{0, "Both"}, {2, "Export"}};

const char *rt_type_word(uint32_t rt_type, uint32_t vpn_id) {
    for (const RtTypeWord &w : kRtTypeWords)
        if (w.rt_type == rt_type)
            return w.word;
    return vpn_id == kVpnIdEsImport ? "ES:Import" : "Import";
}

// Only EVIs of kinds 3 and 4 carry MTU settings.
bool has_mtu_settings(uint32_t evi_kind) { return evi_kind == 3 || evi_kind == 4; }

// A text field the codec left absent reads as empty.
bool is_empty(const char *s) { return s == nullptr || s[0] == '\0'; }

// ---- RD / RT text --------------------------------------------------------------

// Text of an RD value; false when the value does not convert.
bool rd_text(const l2vpn_bag_rd_t *value, char (&buf)[L2VPN_RD_STR_SIZE]) {
    l2vpn_rd_t rd;
    memset(&rd, 0, sizeof rd);
    if (!l2vpn_bag_rd_convert(value, &rd))
        return false;
    memset(buf, 0, sizeof buf);
    rd_get_string(&rd, buf);
    return true;
}

// Text of an RT value; false when the value does not convert.
bool rt_text(const l2vpn_bag_rt_t *value, char (&buf)[L2VPN_RT_STR_SIZE]) {
    l2vpn_rt_t rt;
    memset(&rt, 0, sizeof rt);
    if (!l2vpn_bag_rt_convert(value, &rt))
        return false;
    memset(buf, 0, sizeof buf);
    rt_get_string(&rt, buf);
    return true;
}

// ---- EVI table line ------------------------------------------------------------

void print_evi_line(uint32_t vpn_id, uint32_t encap, const char *bd_name, uint32_t evi_type) {
    const char *encap_word = evpn_bgp_encap_type_to_str(encap);
    if (is_empty(bd_name))
        show_print<"%-10u %-10s %-28.28s %-19.19s\n">(vpn_id, encap_word, "Not set", "Not set");
    else
        show_print<"%-10u %-10s %-28.28s %-19.19s\n">(vpn_id, encap_word, bd_name,
                    evpn_type_2_string(evi_type));
}

// ---- Forwarding statistics -----------------------------------------------------

// One unit (packets or bytes) of a bridge domain's counters, sent and received.
struct TrafficCounters {
    uint64_t tx_total, rx_total;
    uint64_t tx_unicast, rx_unicast;
    uint64_t tx_broadcast, rx_broadcast;
    uint64_t tx_multicast, rx_multicast;
    uint64_t rx_unknown_unicast;
    uint64_t tx_bum, rx_bum;
};

TrafficCounters packets_of(const bd_forwarding_stats &s) {
    return {s.tx_total_packets,     s.rx_total_packets,     s.tx_unicast_packets,
            s.rx_unicast_packets,   s.tx_broadcast_packets, s.rx_broadcast_packets,
            s.tx_multicast_packets, s.rx_multicast_packets, s.rx_unknown_unicast_packets,
            s.tx_bum_packets,       s.rx_bum_packets};
}

TrafficCounters bytes_of(const bd_forwarding_stats &s) {
    return {s.tx_total_bytes,     s.rx_total_bytes,     s.tx_unicast_bytes,
            s.rx_unicast_bytes,   s.tx_broadcast_bytes, s.rx_broadcast_bytes,
            s.tx_multicast_bytes, s.rx_multicast_bytes, s.rx_unknown_unicast_bytes,
            s.tx_bum_bytes,       s.rx_bum_bytes};
}

unsigned long ul(uint64_t v) { return static_cast<unsigned long>(v); }

void print_packets_heading() {
    show_print<"%s  Packets            Sent                 Received\n">(kStatsIndent);
}

void print_bytes_heading() {
    show_print<"%s  Bytes              Sent                 Received\n">(kStatsIndent);
}

void print_total_unicast(const TrafficCounters &c) {
    show_print<"%s    Total          : %-20lu %-20lu\n">(
            kStatsIndent, ul(c.tx_total), ul(c.rx_total));
    show_print<"%s    Unicast        : %-20lu %-20lu\n">(kStatsIndent, ul(c.tx_unicast),
                ul(c.rx_unicast));
}

void print_broadcast_multicast(const TrafficCounters &c) {
    show_print<"%s    Broadcast      : %-20lu %-20lu\n">(kStatsIndent, ul(c.tx_broadcast),
                ul(c.rx_broadcast));
    show_print<"%s    Multicast      : %-20lu %-20lu\n">(kStatsIndent, ul(c.tx_multicast),
                ul(c.rx_multicast));
}

void print_bum(const TrafficCounters &c) {
    show_print<"%s    BUM            : %-20lu %-20lu\n">(kStatsIndent, ul(c.tx_bum), ul(c.rx_bum));
}

// The per-kind table is worth printing only when broadcast, multicast or
// unknown-unicast traffic was counted; otherwise BUM totals say it all.
bool wants_detailed_form(const bd_forwarding_stats &s) {
    return s.rx_broadcast_packets || s.rx_multicast_packets || s.rx_unknown_unicast_packets ||
           s.tx_broadcast_packets || s.tx_multicast_packets;
}

// ---- Tunnel endpoints ------------------------------------------------------------

// kTepTypeWords (evpn_show_words.h); codes past the table read "Invalid".
const char *tep_type_word(uint8_t type) {
    return type < std::size(kTepTypeWords) ? kTepTypeWords[type] : "Invalid";
}

// ---- EVI internal state --------------------------------------------------------

// rt_counters is DEF/ADD/DEL rows of B/I/E columns; a record carrying fewer
// than nine counters reads 0 for the missing ones.
uint32_t rt_counter(const l2vpn_evpn_evi_detail_bag *evi, uint32_t row, uint32_t col) {
    uint32_t i = row * kRtCounterCols + col;
    return evi->rt_counters.data != nullptr && i < evi->rt_counters.count
               ? evi->rt_counters.data[i]
               : 0;
}

void print_evi_private_tail(const l2vpn_evpn_evi_detail_bag *evi) {
    show_print<"    Access: %s\n">(evi->access ? "TRUE" : "FALSE");
    show_print<"    BD PTR: 0x%lx\n">(ul(evi->bd_ptr));
    show_print<"    BD ID:  %u\n">(evi->bd_id);
    show_print<"    RT Counters:\n">();
    show_print<"       DEF - B:%10u I:%10u E:%10u\n">(rt_counter(evi, 0, 0), rt_counter(evi, 0, 1),
                rt_counter(evi, 0, 2));
    show_print<"       ADD - B:%10u I:%10u E:%10u\n">(rt_counter(evi, 1, 0), rt_counter(evi, 1, 1),
                rt_counter(evi, 1, 2));
    show_print<"       DEL - B:%10u I:%10u E:%10u\n">(rt_counter(evi, 2, 0), rt_counter(evi, 2, 1),
                rt_counter(evi, 2, 2));
    show_print<"    Counters:\n">();
    show_print<"      Num Upd MACs to L2RIB  : %u\n">(evi->upd_macs);
    show_print<"      Num Upd Error to L2RIB : %u\n">(evi->upd_mac_errors);
    show_print<"      Num Del MACs to L2RIB  : %u\n">(evi->del_macs);
    show_print<"      Num Del Error to L2RIB : %u\n">(evi->del_mac_errors);
    show_print<"      Num Upd IMETs to L2RIB    : %u\n">(evi->upd_imets);
    show_print<"      Num Upd IMET Err to L2RIB : %u\n">(evi->upd_imet_errors);
    show_print<"      Num Del IMETs to L2RIB    : %u\n">(evi->del_imets);
    show_print<"      Num Del IMET Err to L2RIB : %u\n">(evi->del_imet_errors);
    infra_db_print_evt_hist_bag(&evi->event_history, &evi->event_history_info,
                                "EVPN VPN-ID event history");
}

}  // namespace

// ---- EVI ---------------------------------------------------------------------------

void print_evpn_evi_summary_bag(const void *record, const char *, PrintContext *) {
    const auto *evi = static_cast<const l2vpn_evpn_evi_summary_bag *>(record);
    if (evi == nullptr)
        return;
    print_evi_line(evi->vpn_id, evi->encap, evi->bd_name, evi->evi_type);
}

void print_evpn_evi_detail_bag(const void *record, const char *, PrintContext *ctx) {
    const auto *evi = static_cast<const l2vpn_evpn_evi_detail_bag *>(record);
    if (evi == nullptr)
        return;
    l2vpn_rd_t rd_auto;
    memset(&rd_auto, 0, sizeof rd_auto);
    if (!l2vpn_bag_rd_convert(&evi->rd_auto, &rd_auto)) {
        show_print<"%s">(kRdError);
        return;
    }
    const bool priv = show_filter.private_view != 0;
    char sid_indent[kSidIndentSize];
    show_sprint<"%19s">(sid_indent, "");

    print_evi_line(evi->vpn_id, evi->encap, evi->bd_name, evi->evi_type);
    if (!is_empty(evi->description))
        show_print<"   Description    : %s\n">(evi->description);
    show_print<"   Stitching: %s\n">(evi->stitching ? "Stitching" : "Regular");

    if (evi->encap == EVPN_ENCAP_SRV6) {
        if (l2vpn_platform_srv6_elan_supported()) {
            show_print<"   Unicast SID: ">();
            print_srv6_sid_list(&evi->unicast_sids, sid_indent, true, true, true);
            show_print<"   Multicast SID: ">();
            print_srv6_sid_list(&evi->multicast_sids, sid_indent, true, true, true);
        }
    } else if (evi->encap == EVPN_ENCAP_MPLS) {
        char label[EVPN_LABEL_TEXT_SIZE];
        memset(label, 0, sizeof label);
        l2vpn_mpls_label_to_str(evi->unicast_label, label, sizeof label, EVPN_ENCAP_MPLS);
        show_print<"   Unicast Label  : %s\n">(label);
        l2vpn_mpls_label_to_str(evi->multicast_label, label, sizeof label, evi->encap);
        show_print<"   Multicast Label: %s\n">(label);
        l2vpn_mpls_label_to_str(evi->reroute_label, label, sizeof label, evi->encap);
        if (priv)
            show_print<"   Reroute Label: %s (FRR AC count: %u)\n">(label, evi->frr_ac_count);
        else
            show_print<"   Reroute Label: %s\n">(label);
    }
    if (evi->encap == EVPN_ENCAP_VXLAN)
        show_print<"   VNI: %d\n">(static_cast<int>(evi->unicast_label));
    if (evi->encap != EVPN_ENCAP_SRV6) {
        show_print<"   Flow Label: %s%s\n">(
                evi->flow_label ? "Y" : "N", evi->flow_label_global ? " [Global]" : "");
        show_print<"   Control-Word: %s\n">(enabled_unless(evi->control_word_disabled));
    }

    show_print<"   E-Tree: %s\n">(etree_word(evi->etree_leaf, evi->etree_rt_leaf));
    if (!is_empty(evi->table_policy))
        show_print<"   Table-policy Name: %s\n">(evi->table_policy);
    if (!is_empty(evi->route_policy_import))
        show_print<"   Route-policy Import: %s\n">(evi->route_policy_import);
    if (!is_empty(evi->route_policy_export))
        show_print<"   Route-policy Export: %s\n">(evi->route_policy_export);
    show_print<"   Forward-class: %u\n">(evi->forward_class);
    show_print<"   Advertise MACs: %s\n">(Yes_or_No_str(evi->advertise_macs));
    show_print<"   Advertise BVI MACs: %s\n">(Yes_or_No_str(evi->advertise_bvi_macs));
    show_print<"   Aliasing: %s\n">(enabled_unless(evi->aliasing_disabled));
    show_print<"   UUF: %s\n">(enabled_unless(evi->uuf_disabled));
    show_print<"   Re-origination: %s\n">(enabled_unless(evi->reorigination_disabled));
    show_print<"   Multicast:\n">();
    show_print<"     Source connected   : %s\n">(Yes_or_No_str(evi->mcast_source_connected));
    show_print<"     IGMP-Snooping Proxy: %s\n">(Yes_or_No_str(evi->igmp_snooping_proxy));
    show_print<"     MLD-Snooping Proxy : %s\n">(Yes_or_No_str(evi->mld_snooping_proxy));
    show_print<"   BGP Implicit Import: %s\n">(enabled_unless(evi->implicit_import_disabled));
    show_print<"   VRF Name: %s\n">(text_of(evi->vrf_name));
    if (priv)
        show_print<"   VRF Table EOD: %s\n     Expected: %s\n     Why     : %s\n">(
                Yes_or_No_str(evi->vrf_table_eod), Yes_or_No_str(evi->vrf_table_eod_expected),
                    text_of(evi->vrf_table_eod_why));
    if (!is_empty(evi->srv6_locator_name)) {
        show_print<"   SRv6 Locator Name: %s\n">(evi->srv6_locator_name);
        if (priv)
            show_print<"   SRv6 Locator ID: %u\n">(evi->srv6_locator_id);
    }
    show_print<"   Preferred Nexthop Mode: %s\n">(nexthop_mode_word(evi->preferred_nexthop_mode));
    if (priv)
        show_print<"   ECMP Disable: %s\n">(enabled_if(evi->ecmp_disable));
    if (has_mtu_settings(evi->evi_kind)) {
        show_print<"   Ignore MTU Mismatch: %s\n">(enabled_if(evi->ignore_mtu_mismatch));
        show_print<"   Transmit MTU Zero: %s\n">(enabled_if(evi->transmit_mtu_zero));
    }
    show_print<"   BVI Coupled Mode: %s\n">(Yes_or_No_str(evi->bvi_coupled_mode));
    show_print<"   BVI Subnet Withheld: ipv4 %s, ipv6 %s\n">(
            Yes_or_No_str(evi->bvi_subnet_withheld_ipv4),
                Yes_or_No_str(evi->bvi_subnet_withheld_ipv6));

    if (evi->has_statistics)
        print_evpn_evi_detail_stats(evi, ctx);
    print_evpn_evi_rd_rt_section(evi);
}

// Counters come from the walk's bulk table when printed in a walk, else from
// one direct request; lookup failures go to the debug facility and leave zeros.
void print_evpn_evi_detail_stats(const l2vpn_evpn_evi_detail_bag *evi, const PrintContext *ctx) {
    if (evi == nullptr)
        return;
    bd_forwarding_stats stats;
    memset(&stats, 0, sizeof stats);
    if (ctx != nullptr) {
        const l2fib_bd_stats_entry &entry =
            evi_fwd_stats_bulk[ctx->index % EVI_FWD_STATS_BULK_SIZE];
        if (entry.stats != nullptr)
            stats = *entry.stats;
        else
            EVPN_TRACE(EVPN_DBG_ERR, __func__, "Failed to find stats for EVI %u", evi->evi);
    } else {
        uint32_t rc = l2fib_get_stats_bag_bd_forwarding(L2FIB_ALL_NODES, evi->bd_id, &stats,
                                                        "latest");
        if (rc != 0)
            EVPN_TRACE(EVPN_DBG_ERR, __func__, "Failed to get stats for EVI %u - %#x:%s", evi->evi,
                       rc, cerr_strerror(rc));
    }
    if (show_filter.no_stats)
        return;

    const TrafficCounters packets = packets_of(stats);
    const TrafficCounters bytes = bytes_of(stats);
    show_print<"\n%sStatistics:\n">(kStatsIndent);
    if (wants_detailed_form(stats)) {
        print_packets_heading();
        print_total_unicast(packets);
        print_broadcast_multicast(packets);
        show_print<"%s    Unknown Unicast: N/A                  %-20lu\n">(kStatsIndent,
                    ul(packets.rx_unknown_unicast));
        print_bytes_heading();
        print_total_unicast(bytes);
        print_broadcast_multicast(bytes);
        show_print<"%s    Unknown Unicast: N/A                  %-20lu\n\n">(kStatsIndent,
                    ul(bytes.rx_unknown_unicast));
    } else {
        print_packets_heading();
        print_total_unicast(packets);
        print_bum(packets);
        print_bytes_heading();
        print_total_unicast(bytes);
        print_bum(bytes);
    }
}

// An RD or RT that does not convert ends the block with its error text and
// without the block's final newline.
void print_evpn_evi_rd_rt_section(const l2vpn_evpn_evi_detail_bag *evi) {
    if (evi == nullptr)
        return;
    char rd[L2VPN_RD_STR_SIZE];
    if (!rd_text(&evi->rd_config, rd)) {
        show_print<"%s">(kRdError);
        return;
    }
    show_print<"   RD Config: %s\n">(rd);
    if (!rd_text(&evi->rd_auto, rd)) {
        show_print<"%s">(kRdError);
        return;
    }
    show_print<"   RD Auto  : %s\n">(rd);
    char rt[L2VPN_RT_STR_SIZE];
    if (!rt_text(&evi->rt_auto, rt)) {
        show_print<"%s">(kRtError);
        return;
    }
    show_print<"   RT Auto  : %s">(rt);
    show_print<"\n">();
    if (evi->rt_import_none)
        show_print<"    RT Import None Set\n">();
    if (evi->rt_export_none)
        show_print<"    RT Export None Set\n">();

    show_print<"   %-30.30s %-21.21s\n">("Route Targets in Use", "Type");
    show_print<"   %-30.30s %-21.21s\n">(kColumnRule, kColumnRule);
    char path[EVPN_PATH_SIZE];
    show_snprintf(path, sizeof path, EVPN_PATH_EVI_RT "-evi_encap/0x%x,0x%x", evi->vpn_id, evi->encap);
    // A nested walk: it collects no statistics, so the outer batch's table stays.
    evpn_show_walk(kEviRouteTarget, path);

    if (show_filter.private_view)
        print_evi_private_tail(evi);
    show_print<"\n">();
}

// ---- Route targets and route distinguishers ----------------------------------------

void print_evpn_evi_bgp_rt_bag(const void *record, const char *, PrintContext *) {
    const auto *rt = static_cast<const l2vpn_evpn_evi_bgp_rt_bag *>(record);
    if (rt == nullptr)
        return;
    char text[L2VPN_RT_STR_SIZE];
    if (!rt_text(&rt->rt, text)) {
        show_print<"%s">(kRtError);
        return;
    }
    show_print<"   %-30.30s ">(text);
    show_print<"%-9.9s%-12.12s">(rt_type_word(rt->rt_type, rt->vpn_id),
                rt->stitching ? "(stitching)" : "");
    if (show_filter.private_view)
        infra_db_print_evt_hist_bag(&rt->event_history, &rt->event_history_info,
                                    "EVPN RT event history");
    show_print<"\n">();
}

// Five RTs to a line; a value that does not convert ends the whole list.
void print_evpn_rd_rt_list(const l2vpn_evpn_rd_rt_entry *entries, uint32_t count) {
    if (entries == nullptr || count == 0)
        return;
    for (uint32_t i = 0; i < count; i++) {
        const l2vpn_evpn_rd_rt_entry &entry = entries[i];
        char rd[L2VPN_RD_STR_SIZE];
        if (!rd_text(&entry.rd, rd)) {
            show_print<"%s">(kRdError);
            return;
        }
        show_print<"\n     RD: %s, Num RTs: %d %s">(rd, static_cast<int>(entry.rts.count),
                    entry.stitching ? "(Stitching)" : "");
        show_print<"     RT List:\n">();
        show_print<"%s">(kRtListIndent);
        if (entry.rts.data == nullptr)
            continue;
        uint32_t on_line = 0;
        for (uint32_t j = 0; j < entry.rts.count; j++) {
            char rt[L2VPN_RT_STR_SIZE];
            if (!rt_text(&entry.rts.data[j], rt)) {
                show_print<"%s">(kRtError);
                return;
            }
            show_print<"%s, ">(rt);
            if (++on_line == kRtsPerLine) {
                show_print<"\n">();
                on_line = 0;
                if (j + 1 < entry.rts.count)
                    show_print<"%s">(kRtListIndent);
            }
        }
        if (on_line > 0)
            show_print<"\n">();
    }
}

void print_evpn_rd_private_bag(const void *record, const char *, PrintContext *) {
    if (!show_filter.private_view)
        return;
    const auto *entry = static_cast<const l2vpn_evpn_rd_private_bag *>(record);
    if (entry == nullptr) {
        show_print<"\n Error! a pointer is null">();
        show_print<"\n">();
        return;
    }
    char rd[L2VPN_RD_STR_SIZE];
    if (rd_text(&entry->rd, rd))
        show_print<" Route Distinguisher:  %s">(rd);
    else
        show_print<"%s">(kRdError);
    infra_db_print_evt_hist_bag(&entry->event_history, &entry->event_history_info,
                                "EVPN RD DB event history");
    show_print<"\n">();
}

// ---- Tunnel endpoints ----------------------------------------------------------------

// tag: the endpoint's item name, which names its notification listing.
void print_evpn_tep_bag(const void *record, const char *, const char *tag) {
    const auto *tep = static_cast<const l2vpn_evpn_tep_bag *>(record);
    if (tep == nullptr)
        return;
    // The address text is overwritten by the next address formatted.
    show_print<"0x%08x %-12s %-40.40s ">(tep->tep_id, tep_type_word(tep->tep_type),
                l2vpn_inet_ntop(&tep->local_nexthop));
    show_print<"%-40.40s\n">(l2vpn_inet_ntop(&tep->remote_nexthop));
    if (!show_filter.detail && !show_filter.private_view) {
        show_print<"\n">();
        return;
    }
    show_print<"  In-use count: %u\n">(tep->in_use_count);
    show_print<"  VRF: Name '%s', Table-Id 0x%08x\n">(text_of(tep->vrf_name), tep->vrf_table_id);
    // No line end: the UDP port follows on the same line.
    if (tep->local_vpn_id != 0)
        show_print<"  Local VPN-ID: %-8u Encap:%-6s">(tep->local_vpn_id,
                    evpn_bgp_encap_type_to_str(tep->local_encap));
    show_print<"  UDP port: %d\n">(static_cast<int>(tep->udp_port));
    if (tep->remote_vpn_id != 0)
        show_print<"  Remote VPN-ID: %-8u Encap:%-6s\n">(tep->remote_vpn_id,
                    evpn_bgp_encap_type_to_str(tep->remote_encap));
    show_print<"  Notification registrations:\n">();
    char path[EVPN_PATH_SIZE];
    show_sprint<EVPN_PATH_TEP "/%s/notification">(path, text_of(tag));
    evpn_show_walk(kTepNotification, path);
    if (show_filter.private_view) {
        show_print<"  L3FIB Status: ">();
        show_print<"%s">(tep->l3fib_registered ? "Registered" : "Not Registered");
        show_print<", %s\n">(tep->l3fib_reachable ? "Reachable" : "Not Reachable");
        infra_db_print_evt_hist_bag(&tep->event_history, &tep->event_history_info,
                                    "L2VPN TEP event history");
    }
    show_print<"\n">();
}

void print_evpn_tep_notification_entry(const void *record, const char *, PrintContext *) {
    const auto *entry = static_cast<const l2vpn_evpn_tep_notification_entry_bag *>(record);
    if (entry != nullptr)
        show_print<"   %s\n">(text_of(entry->name));
}

// The list display's step for one endpoint name: fetch and print its record.
void show_evpn_tep_info(const void *, const char *item_name, const char *) {
    char path[EVPN_PATH_SIZE];
    show_sprint<EVPN_PATH_TEP "/%s/info">(path, item_name);
    const l2vpn_show_context_t one{path,         print_evpn_tep_bag,
                                   kTep.desc(),  kTep.record_size,
                                   0,            EVPN_DATALIST_OPT_NONE,
                                   sysdb_handle, item_name};
    l2vpn_show_get_display(&one);
}

// ============================================================================
// Commands: headers and paths
// ============================================================================

void show_evpn_rd(const ShowCommandDef &) {
    if (!show_filter.private_view) return;
    show_print<"Route Distinguisher (RD) database\n">();
    show_print<"---------------------------------\n">();
    evpn_show_walk(kRdPrivate, EVPN_PATH_RD);
}

// Columns: 10 10 28 19.
void show_evpn_evi(const ShowCommandDef &) {
    static constexpr char kColumns[] = "\n%-10.10s %-10.10s %-28.28s %-19.19s";
    const ShowFilter &f = show_filter;

    show_printf(kColumns, "VPN-ID", "Encap", "Bridge Domain", "Type");
    show_printf(kColumns, kColumnRule, kColumnRule, kColumnRule, kColumnRule);
    show_print<"\n">();

    const bool detailed = f.detail || f.private_view;
    const char *base = detailed ? EVPN_PATH_EVI_DETAIL : EVPN_PATH_EVI;
    char path[EVPN_PATH_SIZE];
    compose_path(path, "%s", base);
    if (f.value_set) compose_path(path, "%s-evi/0x%x", base, f.value);
    if (f.bd_name_set) compose_path(path, "%s-bd/%s", base, f.bd_name);

    evpn_show_walk(detailed ? kEviDetail : kEviSummary, path);
}

// Columns: 10 12 40 40.
void show_evpn_tep(const ShowCommandDef &) {
    static constexpr char kColumns[] = "\n%-10.10s %-12.12s %-40.40s %-40.40s\n";
    show_printf(kColumns, "TEP-ID", "Type", "Local Nexthop", "Remote Nexthop");
    show_printf(kColumns + 1, kColumnRule, kColumnRule, kColumnRule, kColumnRule);

    if (!show_filter.value_set) {
        const l2vpn_show_context_t all{EVPN_PATH_TEP, show_evpn_tep_info,    nullptr,
                                       0,             kTep.batch_count,      EVPN_DATALIST_OPT_NONE,
                                       sysdb_handle,  nullptr};
        l2vpn_show_list_display(&all);
        return;
    }
    // The VPN ID serves as the endpoint identifier.
    char key[EVPN_PATH_SIZE], path[EVPN_PATH_SIZE];
    show_sprint<"%x">(key, show_filter.value);
    compose_path(path, EVPN_PATH_TEP "/%s/info", key);
    const l2vpn_show_context_t one{path,  print_evpn_tep_bag,  kTep.desc(), kTep.record_size, 0,
                                   EVPN_DATALIST_OPT_NONE, sysdb_handle, key};
    l2vpn_show_get_display(&one);
}
