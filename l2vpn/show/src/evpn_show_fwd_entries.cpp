// Forwarding entries: the commands of MAC/IP routes, inclusive-multicast
// routes, labels and internal IDs, neighbors, EAD routes and pathlists, with
// their headers, paths and printers, and the formatting of the parts of a
// remote path that several displays share: SRv6 SID columns, Ethernet tags,
// SR-TE steering and path issues.
#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "evpn_show_format.h"
#include "evpn_show_print.h"
#include "platform/caps.h"
#include "platform/printers.h"

namespace {

// The record types the commands read.
constexpr RecordTypeDef kMacRoute = record_type<l2vpn_evpn_mac_bag>(print_evpn_mac_bag, 200);
constexpr RecordTypeDef kImcastRoute =
    record_type<l2vpn_evpn_imcast_bag>(print_evpn_imcast_bag, 200);
constexpr RecordTypeDef kNeighbor =
    record_type<l2vpn_evpn_neighbor_bag>(print_evpn_neighbor_bag, 200);
constexpr RecordTypeDef kNeighborLeaf =
    record_type<l2vpn_evpn_neighbor_bag>(print_evpn_neighbor_leaf_evis, 200);
constexpr RecordTypeDef kEadRoute = record_type<l2vpn_evpn_ead_bag>(print_evpn_ead_bag, 200);
constexpr RecordTypeDef kPathlist = record_type<l2vpn_evpn_pl_bag>(print_evpn_pl_bag, 200);

constexpr uint32_t kEthernetTagMax = 0xFFFFFFFF;
constexpr uint32_t kEthernetTagTypeVlanPair = 4;
constexpr uint32_t kVlanNone = 0;        // first VLAN of a pair: absent
constexpr uint32_t kVlanWildcard = 0xFFF;  // second VLAN of a pair: any

enum : uint8_t {
    kSrTeNone = 0,
    kSrTeInterface = 1,
    kSrTeMplsBsid = 2,
    kSrTeSrv6Bsid = 3,
};

constexpr size_t kAttachNameSize = 80;
constexpr size_t kSidIndentSize = 200;
constexpr int kNexthopWidth = 39;

constexpr char kMacHistoryTitle[] = "EVPN MAC event history";
constexpr char kEadHistoryTitle[] = "EVPN EAD event history";

constexpr size_t kEthernetTagTextSize = 80;
constexpr size_t kInterfaceNameSize = 64;

// ---- Words -------------------------------------------------------------------

// Words of the path issue codes; a code not listed reads "unknown issue <code>".
struct IssueWord {
    uint32_t code;
    const char *word;
};
constexpr uint32_t kIssueMissingLabel = 1;
constexpr IssueWord kIssueWords[] = {
    {kIssueMissingLabel, "Missing MPLS label"},
    {2, "Remote SID format does not match local format"},
    {3, "CW mismatch"},
    {4, "MTU mismatch"},
    {5, "NH AFI not supported"},
};
// Code 1 on a route that carries SIDs rather than labels.
constexpr char kIssueMissingSids[] = "Missing SRv6 SID(s)";

// Word of each ext_flags bit, bit 0 first; higher bits have none.
constexpr const char *kExtFlagWords[] = {
    "Lcl ETree Leaf,", "Rmt ETree Leaf,", "RPF,", "Pref-Adj,",                      // 0-3
    "Lcl Spec,", "Postponed-delete,", "Postponed-unrslv,", "L3Subif-GoingDn,",      // 4-7
    "Pref-Rib,", "Rmt ETree RT Leaf,", "LP-80,", "Dflt GW,",                        // 8-11
    "E-Tree mismatch,", "FHRP,", "CFM,",                                            // 12-14
};

// Words of the control-word codes of layer-2 attributes; any other code
// reads "Not Specified".
constexpr uint32_t kControlWordDisabled = 1;
constexpr uint32_t kControlWordEnabled = 2;
const char *control_word_word(uint32_t cw) {
    switch (cw) {
    case kControlWordEnabled: return "Enabled";
    case kControlWordDisabled: return "Disabled";
    default: return "Not Specified";
    }
}

const char *yes_no(uint32_t flag) { return flag ? "Yes" : "No"; }
const char *leaf_root(uint32_t leaf) { return leaf ? "Leaf" : "Root"; }


// ---- MAC route lines ---------------------------------------------------------

// "   <label, 40 columns>: " - the start of every detail line.
void print_detail_label(const char *label) { show_print<"   %-40.40s: ">(label); }

// One whole detail line: the label, the value and the line end.
__attribute__((format(printf, 2, 3))) void print_detail_line(const char *label,
                                                             const char *format, ...) {
    print_detail_label(label);
    va_list ap;
    va_start(ap, format);
    show_vprintf(format, ap);
    va_end(ap);
    putchar('\n');
}

// A line of a route, made in one buffer and written whole: its four route
// columns, made once for the local line and once for the remote ones (whose
// encapsulation may differ), then each line's next hop and label columns.
// Each text is written where its column starts, over a block of blanks
// stored first, so that a short text needs no padding of its own. Room: the
// columns' widest texts (an encapsulation word is at most 9 characters),
// and the blank blocks reaching past each text.
constexpr size_t kRouteLineSize = 256;
constexpr char kBlankBlock[L2VPN_IP_STR_SIZE + 1] = "                                              ";
static_assert(sizeof kBlankBlock - 1 == L2VPN_IP_STR_SIZE);
struct RouteLine {
    char text[kRouteLineSize];
    size_t columns = 0;  // the route columns' length
};

// Blanks over a text's block: a constant length, a few stores.
template <size_t N>
inline void blanks(char *at) {
    memset(at, ' ', N);
}

// An address in a column of width characters at o ("%-W.Ws"); returns the
// column's end. The text may use the whole of its L2VPN_IP_STR_SIZE bytes,
// past its NUL too: blanks go over the bytes after it once it is made.
char *put_address_column(char *o, const l2vpn_ip_addr_t &addr, size_t width) {
    const size_t n = l2vpn_ip_to_text(&addr, o);
    if (n < width) memcpy(o + n, kBlankBlock, L2VPN_IP_STR_SIZE);
    return o + width;
}

// "%-10u %-10s %-14.14s %-40.40s": EVI, encapsulation word, MAC, address.
void format_route_columns(const l2vpn_evpn_mac_bag *mac, uint8_t bgp_encap, RouteLine &line) {
    char *o = line.text;
    blanks<16>(o);
    char digits[10];
    const char *first = show_format::digits<false, false>(mac->evi, digits + sizeof digits);
    const size_t nd = static_cast<size_t>(digits + sizeof digits - first);
    show_format::copy_text(o, first, nd);
    o += std::max<size_t>(nd, 10);
    *o++ = ' ';
    size_t nw;
    const char *word = evpn_bgp_encap_word(bgp_encap, &nw);
    blanks<16>(o);
    show_format::copy_text(o, word, nw);
    o += std::max<size_t>(nw, 10);
    *o++ = ' ';
    l2vpn_mac_to_text(mac->mac_address, o);
    o += L2VPN_MAC_STR_LEN;
    *o++ = ' ';
    o = put_address_column(o, mac->ip_address, 40);
    line.columns = static_cast<size_t>(o - line.text);
}

// " %-8s": a label text after the next hop column; returns the line's end.
char *put_label_column(char *o, uint32_t label, uint32_t encap) {
    *o++ = ' ';
    blanks<L2VPN_LABEL_STR_SIZE + 5>(o);
    const size_t n = l2vpn_mpls_label_text(label, encap, o);
    o[n] = ' ';
    return o + std::max<size_t>(n, 8);
}

// " %-39.39s %-8s" after the route columns: a path's next hop and label.
char *put_nexthop_label(RouteLine &line, const l2vpn_ip_addr_t &nexthop, uint32_t label, uint32_t encap) {
    char *o = line.text + line.columns;
    *o++ = ' ';
    return put_label_column(put_address_column(o, nexthop, kNexthopWidth), label, encap);
}

// The same with the name of the local attachment as the next hop.
char *put_name_label(RouteLine &line, const char *name, uint32_t label, uint32_t encap) {
    char *o = line.text + line.columns;
    *o++ = ' ';
    memcpy(o, kBlankBlock, kNexthopWidth);
    show_format::copy_text(o, name, strnlen(name, kNexthopWidth));
    return put_label_column(o + kNexthopWidth, label, encap);
}
// The furthest a line's stores reach: the route columns (at most 10 + 1 +
// 16 + 1 + 14 + 1 + 40 characters), a blank, and the next hop's text with
// the blanks after it.
static_assert(83 + 1 + kNexthopWidth + 2 * L2VPN_IP_STR_SIZE <= kRouteLineSize,
              "a route's line fits its buffer");

// The SID column of a MAC or EAD route line, where the platform capability
// the command asks for is present: the first SID behind the label column,
// each further one on a line of its own under it.
void print_route_sid_column(const bag_array<Srv6Sid> *sids, int supported) {
    static char indent[kSidIndentSize];  // made once: this runs per route line
    if (!supported || sids->count == 0)
        return;
    if (!indent[0])
        show_sprint<"%102s">(indent, "");
    print_srv6_sid_list(sids, indent, false, false, true);
}

// The line made up to end, then its SIDs and its end, written.
void write_route_line(RouteLine &line, char *end, const bag_array<Srv6Sid> &sids, int sid_column) {
    if (sids.count && sid_column) {
        show_write(line.text, static_cast<size_t>(end - line.text));
        print_route_sid_column(&sids, sid_column);
        putchar('\n');
        return;
    }
    *end++ = '\n';
    show_write(line.text, static_cast<size_t>(end - line.text));
}

// Next hop and label of a local attachment by proxy, or named by a
// pseudowire, VFI or access EVI (other local lines are made as the remote
// ones are).
void print_local_nexthop(const l2vpn_evpn_mac_bag *mac, const char *label_text) {
    if (mac->proxy) {
        // The address and the marker share the Nexthop column; the marker is cut.
        const char *nexthop = l2vpn_inet_ntop(&mac->proxy_nexthop);
        int room = kNexthopWidth - static_cast<int>(strlen(nexthop));
        if (room < 0)
            room = 0;
        show_printf(" %s%-*.*s %-8s", nexthop, room, room, " (local proxy)", label_text);
        return;
    }
    const char *name = text_of(mac->local_nexthop_name);
    if (is_pw_ves(name) || is_vfi_ves(name) || is_access_evi(name)) {
        char converted[kAttachNameSize] = {};
        convert_pw_or_vfi_ves_namestring(name, converted);
        show_print<" %-39.39s %-8s">(converted, label_text);
        return;
    }
    show_print<" %-39.39s %-8s">(name, label_text);
}

// "0x%08x " and, when any bit is set, the words of the set bits in parentheses.
void print_ext_flags_line(uint32_t ext_flags) {
    print_detail_label("Ext Flags");
    show_print<"0x%08x ">(ext_flags);
    if (ext_flags != 0) {
        putchar('(');
        for (size_t bit = 0; bit < std::size(kExtFlagWords); bit++)
            if (ext_flags & (1u << bit))
                fputs(kExtFlagWords[bit], stdout);
        putchar(')');
    }
    putchar('\n');
}

void print_mac_detail(const l2vpn_evpn_mac_bag *mac, char (&label_text)[EVPN_LABEL_TEXT_SIZE]) {
    const bool priv = show_filter.private_view != 0;
    const bool show_local = mac->local || priv;
    const bool show_remote = mac->remote || priv;

    print_detail_line("Ethernet Tag", "%u", mac->ethernet_tag);
    print_detail_line("Multi-paths Resolved", "%s", true_false(mac->resolved));
    l2vpn_mpls_label_to_str(mac->internal_label, label_text, EVPN_LABEL_TEXT_SIZE, mac->encap);
    print_detail_line("Multi-paths Internal label", "%s", label_text);
    print_detail_line("Local Static", "%s", yes_no(mac->local_static));
    print_detail_line("Remote Static", "%s", yes_no(mac->remote_static));
    print_detail_line("Local Ethernet Segment", "%s",
                      show_local ? text_of(mac->local_esi) : "N/A");
    print_detail_line("Remote Ethernet Segment", "%s",
                      show_remote ? text_of(mac->remote_esi) : "N/A");
    if (show_local)
        print_detail_line("Local Sequence Number", "%u", mac->local_seq_num);
    else
        print_detail_line("Local Sequence Number", "%s", "N/A");
    if (show_remote)
        print_detail_line("Remote Sequence Number", "%u", mac->remote_seq_num);
    else
        print_detail_line("Remote Sequence Number", "%s", "N/A");
    print_detail_line("Local Encapsulation", "%s",
                      show_local ? evpn_bgp_encap_type_to_str(mac->local_encap) : "N/A");
    print_detail_line("Remote Encapsulation", "%s",
                      show_remote ? evpn_bgp_encap_type_to_str(mac->remote_encap) : "N/A");
    print_detail_line("Local E-Tree", "%s", leaf_root(mac->local_etree_leaf));
    print_detail_line("Remote E-Tree", "%s", leaf_root(mac->remote_etree_leaf));
    print_detail_line("Remote matching E-Tree RT", "%s", yes_no(mac->remote_matching_etree_rt));
    print_detail_line("Local AC-ID", "0x%x", mac->local_ac_id);
    print_detail_line("Remote AC-ID", "0x%x", mac->remote_ac_id);
}

void print_mac_private(const l2vpn_evpn_mac_bag *mac) {
    print_detail_line("ESI Port Key", "%x", mac->esi_port_key);
    print_detail_line("Source", "%s%s", mac->local ? "Local" : "Remote",
                      mac->proxy ? " proxy" : "");
    print_detail_line("Flush Requested", "%d", mac->flush_requested);
    print_detail_line("Flush Received", "%d", mac->flush_received);
    print_detail_line("SOO Nexthop", "%s", l2vpn_inet_ntop(&mac->soo_nexthop));
    print_ext_flags_line(mac->ext_flags);
    print_detail_line("BP XCID", "0x%x", mac->bp_xcid);
    if (mac->remote)
        print_detail_line("Stamped XCID", "0x%x", mac->stamped_xcid);
    print_detail_line("BP IFH", "0x%x", mac->bp_ifh);
    print_detail_line("MAC State", "%s", text_of(mac->mac_state));
    print_detail_line("MAC Producers", "0x%x (Best: 0x%x)", mac->mac_producers,
                      mac->best_producer);
    print_detail_line("Local Router MAC", "%s", macstring(mac->local_router_mac, 6));
    print_detail_line("L3 Label", "%d", mac->l3_label);
    infra_db_print_evt_hist_bag(&mac->event_history, &mac->event_history_info,
                                kMacHistoryTitle);
}

// ---- EAD route lines ---------------------------------------------------------

// The layer-2 attributes of a local route or a path; nothing when not received.
void print_l2_attributes(const L2Attributes &attrs) {
    static constexpr char kIndent[] = "      ";
    if (!attrs.Valid)
        return;
    show_print<"%sLayer 2 Attributes:\n%s DF Role : %s\n%s CW      : %s\n%s MTU     : %u\n">(
            kIndent, kIndent, evpn_bag_df_role_to_str(attrs.DesignatedForwarderRole), kIndent,
                control_word_word(attrs.ControlWord), kIndent, attrs.MTU);
}

// Next hop, label and SIDs of one line of an EAD route, after its route
// columns (or the blanks standing under them).
void print_ead_nexthop(const l2vpn_ip_addr_t &nexthop, uint32_t label, uint32_t encap,
                       const bag_array<Srv6Sid> *sids) {
    char label_text[EVPN_LABEL_TEXT_SIZE];
    l2vpn_mpls_label_to_str(label, label_text, sizeof label_text, encap);
    show_print<"%-39.39s %-8.8s">(l2vpn_inet_ntop(&nexthop), label_text);
    print_route_sid_column(sids, l2vpn_platform_srv6_supported());
    putchar('\n');
}

void print_ead_path_attributes(const l2vpn_evpn_ead_bag *ead, const EvpnPath &path) {
    const bool per_segment = ead->ethernet_tag == kEthernetTagMax;
    show_print<"     %-39.39s ">(l2vpn_inet_ntop(&path.NextHop));
    if (!print_sr_te_info("SR-TE ", &path.SR_TEInfo))
        fputs("SR-TE N/A\n", stdout);
    static constexpr l2vpn_ip_addr_t kNoAddress{};
    if (memcmp(&path.OriginatingPE, &kNoAddress, sizeof kNoAddress) != 0)
        show_print<"       Originating IP: %-39.39s\n">(l2vpn_inet_ntop(&path.OriginatingPE));
    if (!per_segment) {
        char label_text[EVPN_LABEL_TEXT_SIZE];
        l2vpn_mpls_label_to_str(path.RerouteLabel, label_text, sizeof label_text, ead->encap);
        show_print<"      FRR Label: %-8.8s\n">(label_text);
    } else if (is_valid_mac(path.GES_MACAddress)) {
        show_print<"      Grouping MAC: %s\n">(macstring(path.GES_MACAddress, 6));
    }
    // A per-segment route of an all-active segment shows its paths' layer-2
    // attributes only in the private view.
    if (show_filter.private_view || !per_segment || ead->remote_single_active)
        print_l2_attributes(path.Layer2Attributes);
    print_path_issues(&path.Issues, ead->encap, "      ");
}

void print_ead_detail(const l2vpn_evpn_ead_bag *ead) {
    const uint32_t paths = count_of(ead->path_buffer);
    char tag[kEthernetTagTextSize];
    format_ethernet_tag(tag, sizeof tag, ead->etag_type, ead->ethernet_tag);
    show_print<"   EtherTag: %s\n">(tag);
    show_print<"   Source: %s%s%s\n">(ead->local ? "Local, " : "", paths ? "Remote, " : "",
                evpn_bgp_encap_type_to_str(ead->encap));
    if (ead->local) {
        char label_text[EVPN_LABEL_TEXT_SIZE];
        l2vpn_mpls_label_to_str(ead->local_frr_label, label_text, sizeof label_text, ead->encap);
        show_print<"   Local:\n      FRR Label: %-8.8s\n">(label_text);
        print_l2_attributes(ead->local_l2_attributes);
    }
    show_print<"   Num Nexthops: %u\n   Path Attributes:\n">(paths);
    for (uint32_t i = 0; i < paths; i++)
        print_ead_path_attributes(ead, ead->path_buffer.data[i]);
}

void print_ead_private(const l2vpn_evpn_ead_bag *ead) {
    show_print<"   EVI: %u\n">(ead->evi);
    if (ead->ethernet_tag == kEthernetTagMax) {
        if (ead->remote_single_active)
            fputs("   Remote redundancy: single-active\n", stdout);
        if (ead->remote_single_flow_active)
            fputs("   Remote redundancy: single-flow-active\n", stdout);
        if (!ead->remote_single_active && !ead->remote_single_flow_active)
            fputs("   Remote redundancy: all-active\n", stdout);
    }
    char name[kInterfaceNameSize];
    im_display_namestring(ead->vlan_aware_local_ac, name, sizeof name, 0);
    show_print<"   VLAN-Aware Local AC: %s\n">(name);
    const uint32_t conflicts = count_of(ead->vlan_aware_conflict_acs);
    show_print<"   VLAN-Aware Conflict ACs: %d\n">(static_cast<int>(conflicts));
    for (uint32_t i = 0; i < conflicts; i++) {
        im_display_namestring(ead->vlan_aware_conflict_acs.data[i], name, sizeof name, 0);
        show_print<"    Conflict AC: %s\n">(name);
    }
    show_print<"   Registered with TEP: %s\n">(ead->registered_with_tep ? "yes" : "no");
    infra_db_print_evt_hist_bag(&ead->event_history, &ead->event_history_info,
                                kEadHistoryTitle);
    putchar('\n');
}

}  // namespace

// ---- Shared path formatting ----------------------------------------------------

void print_srv6_sid_list(const bag_array<Srv6Sid> *sids, const char *indent, bool end_line,
                         bool mark_empty, bool with_details) {
    const bool details = with_details && show_filter.private_view;
    for (uint32_t i = 0; i < sids->count; i++) {
        const Srv6Sid &sid = sids->data[i];
        if (i > 0)
            show_print<"\n%s">(indent);
        show_print<" %-39.39s">(l2vpn_inet_ntop(&sid.SRv6_SID));
        if (!details)
            continue;
        show_print<"\n%s   SID flags: %u, Endpt behavior: %u">(indent, sid.SRv6_SIDFlags,
                    sid.SRv6EndpointBehavior);
        if (!sid.SIDStructurePresent)
            continue;
        const SidStructure &st = sid.sid_struct;
        show_print<"\n%s   SID struct: Block  Node  Func  Arg">(indent);
        show_print<"\n%s               %u     %u    %u    %u">(indent, st.LocatorBlockLen,
                    st.LocatorNodeLen, st.FunctionLen, st.ArgumentLen);
        show_print<"\n%s   Transposition (len, offset): %u, %u">(indent, st.TranspositionLen,
                    st.TranspositionOffset);
    }
    if (sids->count == 0 && mark_empty)
        fputs(" <no SIDs>", stdout);
    if (end_line)
        putchar('\n');
}

void format_ethernet_tag(char *buf, size_t size, uint32_t tag_type, uint32_t tag) {
    if (tag == kEthernetTagMax) {
        show_snprintf(buf, size, "MAX-ET");
        return;
    }
    if (tag_type != kEthernetTagTypeVlanPair) {
        show_snprintf(buf, size, "%u", tag);
        return;
    }
    // A VLAN pair: first VLAN in bits 12-23, second in bits 0-11.
    const int first = static_cast<int>((tag >> 12) & 0xFFF);
    const int second = static_cast<int>(tag & 0xFFF);
    if (first != kVlanNone && second != kVlanWildcard)
        show_snprintf(buf, size, "<%d,%d>", first, second);
    else if (first != kVlanNone)
        show_snprintf(buf, size, "<%d,*>", first);
    else if (second != kVlanWildcard)
        show_snprintf(buf, size, "<%d>", second);
    else
        show_snprintf(buf, size, "<*>");
}

int print_sr_te_info(const char *prefix, const SrTeInfo *info) {
    switch (info->SR_TEType) {
    case kSrTeNone:
        return 0;
    case kSrTeInterface:
        show_print<"%sIFH 0x%x (%s)\n">(prefix, info->SR_TEInterfaceName,
                    l2vpn_if_name(info->SR_TEInterfaceName, 0));
        break;
    case kSrTeMplsBsid:
        show_print<"%sBSID %u\n">(prefix, info->SR_TE_BSID);
        break;
    case kSrTeSrv6Bsid:
        show_print<"%sBSIDv6 %s\n">(prefix, l2vpn_inet_ntop(&info->SRv6_TE_BSID));
        break;
    default:  // steered, by a kind this display does not render
        break;
    }
    return 1;
}

void print_path_issues(const bag_array<uint32_t> *issues, uint32_t encap, const char *indent) {
    if (issues->count == 0)
        return;
    show_print<"%sPath Issues: ">(indent);
    for (uint32_t i = 0; i < issues->count; i++) {
        const uint32_t code = issues->data[i];
        if (i > 0)
            fputs(", ", stdout);
        if (code == kIssueMissingLabel && encap == EVPN_ENCAP_SRV6) {
            fputs(kIssueMissingSids, stdout);
            continue;
        }
        const char *word = nullptr;
        for (const IssueWord &w : kIssueWords)
            if (w.code == code)
                word = w.word;
        if (word)
            fputs(word, stdout);
        else
            show_print<"unknown issue %u">(code);
    }
    putchar('\n');
}

// ---- MAC routes ----------------------------------------------------------------

void print_evpn_mac_bag_debug(const l2vpn_evpn_mac_bag *mac) {
    if (!(l2vpn_debug_get_enabled_bitset() & EVPN_DBG_ERR))
        return;  // nothing to format: this runs for every route
    EVPN_TRACE(EVPN_DBG_ERR, "print_evpn_mac_bag_debug",
               "MAC: %s IP: %s Local: %d, Proxy=%d, Remote %d Paths: %d, PathBuffer: %p",
               macstring(mac->mac_address, 6), l2vpn_inet_ntop(&mac->ip_address),
               static_cast<int>(mac->local), static_cast<int>(mac->proxy),
               static_cast<int>(mac->remote), static_cast<int>(mac->path_buffer.count),
               static_cast<const void *>(mac->path_buffer.data));
    for (uint32_t i = 0; i < mac->path_buffer.count; i++) {
        const EvpnPath &path = mac->path_buffer.data[i];
        uint64_t words[2];
        memcpy(words, path.NextHop.bytes, sizeof words);
        EVPN_TRACE(EVPN_DBG_ERR, "print_evpn_mac_bag_debug",
                   "Path Entry %d - OutputLabel: %d IP: %lx %lx", static_cast<int>(i),
                   static_cast<int>(path.OutputLabel), static_cast<unsigned long>(words[0]),
                   static_cast<unsigned long>(words[1]));
    }
}

void print_evpn_mac_bag(const void *record, const char *, PrintContext *) {
    const auto *mac = static_cast<const l2vpn_evpn_mac_bag *>(record);
    char label_text[EVPN_LABEL_TEXT_SIZE];  // each use makes its text first

    print_evpn_mac_bag_debug(mac);

    if (show_filter.local_only && mac->local != 1)
        return;

    RouteLine line;
    const int sid_column = l2vpn_platform_srv6_elan_supported();
    if (mac->local) {
        format_route_columns(mac, mac->local_encap, line);
        const char *name = text_of(mac->local_nexthop_name);
        if (!mac->proxy && !is_pw_ves(name) && !is_vfi_ves(name) && !is_access_evi(name)) {
            write_route_line(line, put_name_label(line, name, mac->local_label, mac->encap), mac->local_sids,
                             sid_column);
        } else {
            show_write(line.text, line.columns);
            l2vpn_mpls_label_to_str(mac->local_label, label_text, EVPN_LABEL_TEXT_SIZE, mac->encap);
            print_local_nexthop(mac, label_text);
            print_route_sid_column(&mac->local_sids, sid_column);
            putchar('\n');
        }
    }

    if (mac->path_buffer.count || mac->remote)
        format_route_columns(mac, mac->remote_encap, line);
    if (mac->path_buffer.count == 0 && mac->remote) {
        show_write(line.text, line.columns);
        show_print<" %-39.39s %-8s\n">("No remote pathlist", "");
    }
    for (uint32_t i = 0; i < mac->path_buffer.count; i++) {
        const EvpnPath &path = mac->path_buffer.data[i];
        write_route_line(line, put_nexthop_label(line, path.NextHop, path.OutputLabel, mac->encap),
                         path.SRv6_SIDInfo, sid_column);
    }

    if (!show_filter.detail && !show_filter.private_view)
        return;
    print_mac_detail(mac, label_text);
    if (show_filter.private_view)
        print_mac_private(mac);
}

// ---- Inclusive-multicast routes and neighbors ------------------------------------

namespace {

constexpr char kImcastHistoryTitle[] = "EVPN Inclusive-Multicast event history";
constexpr char kNeighborHistoryTitle[] = "EVPN neighbor event history";
// The SIDs after a route's first start on a line of these blanks.
constexpr char kImcastSidIndent[] = "                   ";
static_assert(sizeof kImcastSidIndent == 19 + 1);
// The Leaf EVIs column: its width, and the bytes one EVI's text is made in.
constexpr int kLeafEvisWidth = 20;
constexpr size_t kLeafEviTextSize = 200;

// -N names one neighbor: the whole 16-byte address must match.
bool neighbor_filtered_out(const l2vpn_evpn_neighbor_bag &n) {
    return show_filter.ip_set &&
           memcmp(show_filter.ip_addr.bytes, n.neighbor.bytes, sizeof n.neighbor.bytes) != 0;
}

void print_neighbor_history(const l2vpn_evpn_neighbor_bag &n) {
    if (!show_filter.private_view)
        return;
    infra_db_print_evt_hist_bag(&n.event_history, &n.event_history_info, kNeighborHistoryTitle);
    putchar('\n');
}

}  // namespace

// ---- Label entries, internal IDs and pathlists ---------------------------------

namespace {

constexpr uint32_t kLabelBatch = 200;
constexpr uint32_t kIdTypeMultiPath = 0;  // the entry stands for a segment and tag

// Words of a label entry's codes; a code past a table reads the word beside
// its use.
constexpr const char *kUnresolvedReasons[] = {
    nullptr,  // resolved, or no reason given: no line
    "No valid EAD/EVI paths",
    "No EAD/ES",
    "Local service not ready, or multiple matching remote EADs",
    "No valid MAC paths",
};
constexpr const char *kAllActiveModes[] = {
    "", "(Preferred NH, Lowest IP)", "(Preferred NH, Highest IP)", "(Preferred NH, Modulo)",
    "(ECMP Disable)",
};
constexpr const char *kControlWords[] = {"Unknown", "Clear", "Set", "Mandatory"};
// A path's designated-forwarder role in three columns.
constexpr const char *kRoleWords[] = {"   ", "(P)", "(B)", "(N)"};

const char *role_word(const EvpnPath &path) {
    return code_word(kRoleWords, path.Layer2Attributes.DesignatedForwarderRole, "   ");
}
const char *upper_true_false(uint32_t flag) { return flag ? "TRUE" : "FALSE"; }

// The SID column of a label path: its first SID behind the next hop, each
// further one on a line of its own under it.
void print_label_sids(const bag_array<Srv6Sid> *sids, bool mark_empty) {
    static char indent[kSidIndentSize];
    if (!indent[0])
        show_sprint<"     %-10s %41s">(indent, "", "");  // 57 blanks
    print_srv6_sid_list(sids, indent, true, mark_empty, false);
}

bool is_single_path(const l2vpn_evpn_label_bag *entry) {
    return entry->id_type == 1 || entry->id_type == 2;
}

void print_label_resolution(const l2vpn_evpn_label_bag *entry, bool label_mode) {
    if (label_mode || entry->id_type == kIdTypeMultiPath) {
        show_print<"   Multi-paths resolved: %s">(upper_true_false(entry->resolved));
        if (entry->remote_single_active)
            fputs(" (Remote single-active)", stdout);
        if (entry->remote_single_flow_active)
            fputs(" (Remote single-flow-active)", stdout);
        if (!entry->remote_single_active && !entry->remote_single_flow_active)
            show_print<" (Remote all-active) %s">(
                    code_word(kAllActiveModes, entry->all_active_mode, ""));
    } else {
        show_print<"   Path resolved: %s">(upper_true_false(entry->resolved));
    }
    if (!entry->resolved && entry->unresolved_reason != 0)
        show_print<"\n    Reason: %s">(
                code_word(kUnresolvedReasons, entry->unresolved_reason, "Unknown"));
}

void print_label_private(const l2vpn_evpn_label_bag *entry, bool label_mode) {
    show_print<"   Num EAD objects linked: %d\n">(static_cast<int>(entry->num_ead_objects));
    show_print<"   Source: %s\n">(evpn_bgp_encap_type_to_str(entry->encap));
    if (!label_mode) {
        char format[SRV6_SID_FORMAT_STR_SIZE] = {};
        srv6_mgmt_util_edm_fmt_print(&entry->locator_format, format, 0, 1);
        show_print<"   Locator format type: %s\n">(format);
    }
    show_print<"   Local CW: %s\n">(
            entry->local_cw_set ? code_word(kControlWords, entry->local_cw, "Unsupported value")
                               : "Not set");
    if (entry->local_mtu_set)
        show_print<"   Local MTU: %d\n">(entry->local_mtu);
    else
        show_print<"   Local MTU: Not set\n">();
    if (entry->local_ignore_mtu_mismatch_set)
        show_print<"   Local ignore MTU mismatch: %s\n">(
                entry->local_ignore_mtu_mismatch ? "Enabled" : "Disabled");
    else
        show_print<"   Local ignore MTU mismatch: Not set\n">();
    show_print<"   Next path version: %u\n">(entry->next_path_version);
    char title[EVPN_LABEL_TEXT_SIZE];
    show_sprint<"EVPN Internal-%s event history">(title, label_mode ? "Label" : "ID");
    infra_db_print_evt_hist_bag(&entry->event_history, &entry->event_history_info, title);
}

}  // namespace

// Columns: 10 6 10 40, under the header of show_evpn_imcast. With -d or -p a
// block follows whose lines depend on the encapsulation: a Label line for
// MPLS, a VNI line for VXLAN, a SID line for SRv6; -p adds the SIDs' flags
// and structure and the route's event history.
void print_evpn_imcast_bag(const void *record, const char *, PrintContext *) {
    const auto &r = *static_cast<const l2vpn_evpn_imcast_bag *>(record);
    const ShowFilter &f = show_filter;

    if (f.local_only && !r.local)
        return;
    show_print<"%-10u %-6s %-10u %-40.40s\n">(r.evi, evpn_bgp_encap_type_to_str(r.encap),
                r.ethernet_tag, l2vpn_inet_ntop(&r.originating_ip));
    if (!f.detail && !f.private_view)
        return;

    show_print<"    TEPid  : 0x%08x\n">(r.tep_id);
    show_print<"    PMSI Type: %u\n">(r.pmsi_type);
    show_print<"    Nexthop: %s\n">(l2vpn_inet_ntop(&r.nexthop));
    if (r.encap == EVPN_ENCAP_MPLS) {
        char label_text[EVPN_LABEL_TEXT_SIZE] = {};
        l2vpn_mpls_label_to_str(r.label, label_text, sizeof label_text, EVPN_ENCAP_MPLS);
        show_print<"    Label  : %s\n">(label_text);
    }
    fputs("    SR-TE Info: ", stdout);
    if (!print_sr_te_info("", &r.sr_te_info))
        fputs("N/A\n", stdout);
    if (r.encap == EVPN_ENCAP_VXLAN) {
        show_print<"    VNI    : %d\n">(static_cast<int>(r.label));
    } else if (r.encap == EVPN_ENCAP_SRV6) {
        fputs("    SID    :", stdout);
        print_srv6_sid_list(&r.sids, kImcastSidIndent, true, true, f.private_view != 0);
    }
    show_print<"    Source : %s%s\n">(r.local ? "Local" : "Remote", r.proxy ? " Proxy" : "");
    if (r.igmp_snooping_proxy || r.mld_snooping_proxy) {
        show_print<"    Proxy  : %s%s%s\n">(r.igmp_snooping_proxy ? "IGMPsn" : "",
                    r.igmp_snooping_proxy && r.mld_snooping_proxy ? ", " : "",
                    r.mld_snooping_proxy ? "MLDsn" : "");
        show_print<"      Resolved : %u\n">(r.proxy_resolved);
    }
    show_print<"    E-Tree : %s\n">(leaf_root(r.etree_leaf));
    if (f.private_view) {
        infra_db_print_evt_hist_bag(&r.event_history, &r.event_history_info,
                                    kImcastHistoryTitle);
        putchar('\n');
    }
}

// Columns: 10 6 40, under the header of show_evpn_neighbor without -t.
void print_evpn_neighbor_bag(const void *record, const char *, PrintContext *) {
    const auto &n = *static_cast<const l2vpn_evpn_neighbor_bag *>(record);
    if (neighbor_filtered_out(n))
        return;
    show_print<"%-10u %-6s %-40.40s\n">(n.evi, evpn_bgp_encap_type_to_str(n.encap),
                l2vpn_inet_ntop(&n.neighbor));
    print_neighbor_history(n);
}

// Columns: 10 6 40 20, under the header of show_evpn_neighbor with -t. The
// leaf EVIs fill the last column, each followed by a blank; one that does
// not fit in what is left of the 20 characters starts a new line under the
// column.
void print_evpn_neighbor_leaf_evis(const void *record, const char *, PrintContext *) {
    const auto &n = *static_cast<const l2vpn_evpn_neighbor_bag *>(record);
    if (neighbor_filtered_out(n))
        return;
    show_print<"%-10u %-6s %-40.40s ">(n.evi, evpn_bgp_encap_type_to_str(n.encap),
                l2vpn_inet_ntop(&n.neighbor));
    int room = kLeafEvisWidth;
    for (uint32_t i = 0; i < count_of(n.leaf_evi_list); i++) {
        char text[kLeafEviTextSize];
        const int len = show_sprint<"%u">(text, n.leaf_evi_list.data[i]);
        if (len > room) {
            show_print<"\n%-10.10s %-6.6s %-40.40s ">("", "", "");
            room = kLeafEvisWidth;
        }
        show_print<"%s ">(text);
        room -= len + 1;
    }
    putchar('\n');
    print_neighbor_history(n);
}

void show_evpn_label_db_common(const char *prefix, RecordPrinter printer) {
    static constexpr ShowCommandDef kCommon = {"show_evpn_label_db_common", nullptr};
    const ShowFilter &f = show_filter;
    const BagDesc *bag = l2vpn_bag_dll__l2vpn_evpn_label_bag();
    char path[EVPN_PATH_SIZE];
    compose_path(path, "%s", prefix);

    // Without -M the segment and tag filters play no part.
    if (f.value_set && f.esi_set) {
        const char *esi = esi_key(kCommon, kEsiExtractFailed);
        if (!esi)
            return;
        if (f.i_sid_set)
            filter_path(kCommon, path, "value + label esi + tag filter path: %s", "%s-%s/0x%x,%s,%x",
                        prefix, "evi_esi_tag", f.value, esi, f.i_sid);
        else
            filter_path(kCommon, path, "value + label esi filter path: %s", "%s-%s/0x%x,%s", prefix,
                        "evi_esi", f.value, esi);
    } else if (f.value_set && f.eth_tag_set) {
        filter_path(kCommon, path, "value + label tag filter path: %s", "%s-%s/0x%x,0x%x", prefix,
                    "evi_eth_tag", f.value, f.eth_tag);
    } else if (f.value_set) {
        filter_path(kCommon, path, "value filter path: %s", "%s-%s/0x%x", prefix, "evi", f.value);
    }

    const ShowContext ctx{path, printer, bag, bag_record_info<l2vpn_evpn_label_bag>::buffer_size,
                          kLabelBatch, EVPN_DATALIST_OPT_NONE};
    evpn_show_datalist_display(&ctx);
}

void print_evpn_label_bag_as_label(const void *record, const char *, PrintContext *) {
    print_evpn_label_bag(static_cast<const l2vpn_evpn_label_bag *>(record), true);
}

void print_evpn_label_bag_as_internal_id(const void *record, const char *, PrintContext *) {
    print_evpn_label_bag(static_cast<const l2vpn_evpn_label_bag *>(record), false);
}

// Columns under the label and internal-ID headers: 10 6 27 10, three blanks,
// then the label or internal ID.
void print_evpn_label_bag(const l2vpn_evpn_label_bag *entry, bool label_mode) {
    if (!entry)
        return;
    const ShowFilter &f = show_filter;
    char value[EVPN_LABEL_TEXT_SIZE] = {};
    if (label_mode)
        l2vpn_mpls_label_to_str(entry->label, value, sizeof value, entry->encap);
    else
        l2vpn_l3rib_internal_id_to_str(entry->internal_id, value, sizeof value);
    show_print<"%-10u %-6s %-27.27s %-10u   %-8s\n">(
            entry->evi, evpn_bgp_encap_type_to_str(entry->encap),
                is_single_path(entry) ? l2vpn_inet_ntop(&entry->nexthop) : text_of(entry->esi),
                entry->ethernet_tag, value);

    if (f.detail || f.private_view) {
        print_label_resolution(entry, label_mode);
        if (label_mode) {
            show_print<"\n   Multi-paths Internal label: %s">(value);
            if (entry->alternate_label != 0) {
                char alternate[EVPN_LABEL_TEXT_SIZE] = {};
                l2vpn_mpls_label_to_str(entry->alternate_label, alternate, sizeof alternate,
                                        entry->encap);
                show_print<", alternate: %s">(alternate);
            }
            putchar('\n');
        } else {
            show_print<"\n   %s Internal ID: %s\n">(
                    entry->id_type == kIdTypeMultiPath ? "Multi-paths" : "Path", value);
        }
        print_label_path_entries(&entry->mac_paths, "MAC", entry->encap, label_mode, false, false);
        print_label_path_entries(&entry->ead_es_paths, "EAD/ES", entry->encap, label_mode, false,
                                 false);
        print_label_path_entries(&entry->ead_evi_paths, "EAD/EVI", entry->encap, label_mode, true,
                                 true);
        print_label_path_entries(&entry->union_paths, "Union", entry->encap, label_mode, false,
                                 false);
    }
    print_label_pathlist("Summary", &entry->summary_pathlist, entry->encap, label_mode);
    print_label_pathlist("Alternate", &entry->alternate_pathlist, entry->encap, label_mode);
    if (f.private_view)
        print_label_private(entry, label_mode);
    putchar('\n');
}

// One entry per path: the set's name on the first, then the role, the next
// hop and its label (or SIDs), and below it the path's version, grouping MAC
// and issues.
void print_label_path_entries(const bag_array<EvpnPath> *paths, const char *name, uint32_t encap,
                              bool label_mode, bool with_sr_te, bool mark_empty) {
    static constexpr char kNexthopUnderName[] = "            ";  // 12 blanks
    static constexpr char kDetailIndent[] = "                  ";  // 18 blanks
    char label[EVPN_LABEL_TEXT_SIZE];
    for (uint32_t i = 0; i < count_of(*paths); i++) {
        const EvpnPath &path = paths->data[i];
        const char *role = role_word(path);
        show_print<"    %-7s ">(i == 0 ? name : "");
        bool sr_te_line = false;
        if (with_sr_te && path.SR_TEInfo.SR_TEType != kSrTeNone) {  // else no SR-TE line
            char prefix[16];
            show_sprint<"%s SR-TE ">(prefix, role);
            sr_te_line = print_sr_te_info(prefix, &path.SR_TEInfo) != 0;
        }
        // A steered path shows its next hop only in the private view.
        if (!sr_te_line || show_filter.private_view) {
            show_print<"%s%-3.3s %-40.40s ">(sr_te_line ? kNexthopUnderName : "", role,
                        l2vpn_inet_ntop(&path.NextHop));
            if (label_mode) {
                l2vpn_mpls_label_to_str(path.OutputLabel, label, sizeof label, encap);
                show_print<"  %-15.15s\n">(label);
            } else {
                print_label_sids(&path.SRv6_SIDInfo, mark_empty);
            }
            if (show_filter.private_view)
                show_print<"%sPath Version:%u, Originating PE:%s\n">(kDetailIndent, path.PathVerion,
                            l2vpn_inet_ntop(&path.OriginatingPE));
        }
        if (is_valid_mac(path.GES_MACAddress))
            show_print<"%30s %s\n">("Grouping MAC:", macstring(path.GES_MACAddress, 6));
        print_path_issues(&path.Issues, encap, kDetailIndent);
    }
}

// A pathlist under its title: per path its tunnel endpoint, role and either
// its SR-TE steering or its next hop with the label (or SIDs).
void print_label_pathlist(const char *title, const bag_array<EvpnPath> *paths, uint32_t encap,
                          bool label_mode) {
    if (count_of(*paths) == 0)
        return;
    show_print<"   %7s pathlist:\n">(title);
    char label[EVPN_LABEL_TEXT_SIZE];
    for (uint32_t i = 0; i < count_of(*paths); i++) {
        const EvpnPath &path = paths->data[i];
        show_print<" 0x%08x ">(path.TunnelEndpointID);
        show_print<"%s ">(role_word(path));
        if (print_sr_te_info("SR-TE ", &path.SR_TEInfo))
            continue;
        show_print<"%-40.40s ">(l2vpn_inet_ntop(&path.NextHop));
        if (label_mode) {
            l2vpn_mpls_label_to_str(path.OutputLabel, label, sizeof label, encap);
            show_print<"  %-15.15s\n">(label);
        } else {
            print_label_sids(&path.SRv6_SIDInfo, true);
        }
    }
}

// Columns under the pathlist header: 40 15.
void print_evpn_pl_bag(const void *record, const char *, PrintContext *) {
    static constexpr char kHistoryTitle[] = "EVPN PL event history";
    const auto *pl = static_cast<const l2vpn_evpn_pl_bag *>(record);
    if (!pl)
        return;
    char label[EVPN_LABEL_TEXT_SIZE];
    for (uint32_t i = 0; i < count_of(pl->paths); i++) {
        const EvpnPath &path = pl->paths.data[i];
        memset(label, 0, sizeof label);
        l2vpn_mpls_label_to_str(path.OutputLabel, label, sizeof label, pl->encap);
        show_print<"%-40.40s %-15.15s\n">(l2vpn_inet_ntop(&path.NextHop), label);
    }
    show_print<"%-40.40s %-15.15s\n">(kColumnRule, kColumnRule);
    if (!show_filter.private_view)
        return;
    show_print<"   Ethernet Segment Id: %s\n">(text_of(pl->esi));
    show_print<"   Num objects linked: %d (printing %d)\n">(
            static_cast<int>(pl->num_objects_linked),
                static_cast<int>(count_of(pl->linked_objects)));
    for (uint32_t i = 0; i < count_of(pl->linked_objects); i++) {
        const l2vpn_evpn_pl_linked_object &object = pl->linked_objects.data[i];
        show_print<"   %-14.14s %-15.15s\n">(macstring(object.mac, 6), l2vpn_inet_ntop(&object.ip));
    }
    infra_db_print_evt_hist_bag(&pl->event_history, &pl->event_history_info, kHistoryTitle);
    putchar('\n');
}

// ---- EAD routes ----------------------------------------------------------------

// One line for the local route and one per remote next hop; the first next
// hop of a route without a local part continues the route's columns, every
// other line stands under them.
void print_evpn_ead_bag(const void *record, const char *, PrintContext *) {
    const auto *ead = static_cast<const l2vpn_evpn_ead_bag *>(record);
    if (show_filter.local_only && !ead->local)
        return;

    show_print<"%-10u %-6s %-24.24s 0x%-8x ">(ead->evi, evpn_bgp_encap_type_to_str(ead->encap),
                text_of(ead->esi), ead->ethernet_tag);
    if (ead->local)
        print_ead_nexthop(ead->local_nexthop, ead->local_label, ead->encap, &ead->local_sids);
    const uint32_t paths = count_of(ead->path_buffer);
    for (uint32_t i = 0; i < paths; i++) {
        const EvpnPath &path = ead->path_buffer.data[i];
        if (i > 0 || ead->local)
            show_print<"%54s">("");  // under the route's columns
        print_ead_nexthop(path.NextHop, path.OutputLabel, ead->encap, &path.SRv6_SIDInfo);
    }
    if (!ead->local && paths == 0)
        putchar('\n');  // a route with neither part still ends its line

    if (!show_filter.detail && !show_filter.private_view)
        return;
    print_ead_detail(ead);
    if (show_filter.private_view)
        print_ead_private(ead);
}

// ============================================================================
// Commands: headers and paths
// ============================================================================
// Columns: 10 10 14 40 39 8, and 39 for the SID where the platform has SRv6 E-LAN.
void show_evpn_mac(const ShowCommandDef &cmd) {
    static constexpr char kColumns[] = "\n%-10.10s %-10.10s %-14.14s %-40.40s %-39.39s %-8.8s";
    static constexpr char kSidColumn[] = " %-39.39s";
    const ShowFilter &f = show_filter;
    char path[EVPN_PATH_SIZE] = EVPN_PATH_MAC, ip[EVPN_IP_KEY_SIZE];

    const bool sid = l2vpn_platform_srv6_elan_supported() != 0;
    show_printf(kColumns, "VPN-ID", "Encap", "MAC address", "IP address", "Nexthop", "Label");
    if (sid) show_printf(kSidColumn, "SID");
    show_printf(kColumns, kColumnRule, kColumnRule, kColumnRule, kColumnRule, kColumnRule, kColumnRule);
    if (sid) show_printf(kSidColumn, kColumnRule);
    show_print<"\n">();

    const uint32_t *m = f.mac;
    if (f.value_set && f.mac_set)
        filter_path(cmd, path, "value + mac + ip filter path: %s",
                    EVPN_PATH_MAC "-evi_mac_ip/0x%x,%x,%x,%x,%s", f.value, m[0], m[1], m[2],
                    ip_key(ip));
    else if (f.value_set && !f.ip_set)
        filter_path(cmd, path, "value filter path: %s", EVPN_PATH_MAC "-evi/0x%x", f.value);
    else if (f.value_set)
        filter_path(cmd, path, "value + ip filter path: %s",
                    EVPN_PATH_MAC "-evi_mac_ip/0x%x,%s,%s,%s,%s", f.value, kAnyKey, kAnyKey,
                    kAnyKey, ip_key(ip));
    else if (f.mac_set && !f.bd_name_set)
        filter_path(cmd, path, "mac + ip filter path: %s", EVPN_PATH_MAC "-mac_ip/%x,%x,%x,%s",
                    m[0], m[1], m[2], ip_key(ip));
    else if (f.ip_set && !f.bd_name_set)
        filter_path(cmd, path, "ip filter path: %s", EVPN_PATH_MAC "-mac_ip/%s,%s,%s,%s", kAnyKey,
                    kAnyKey, kAnyKey, ip_key(ip));
    else if (f.mac_set)
        filter_path(cmd, path, "bd + mac + ip filter path: %s",
                    EVPN_PATH_MAC "-bd_mac_ip/%s,%x,%x,%x,%s", f.bd_name, m[0], m[1], m[2],
                    ip_key(ip));
    else if (f.ip_set)
        filter_path(cmd, path, "bd + ip filter path: %s", EVPN_PATH_MAC "-bd_mac_ip/%s,%s,%s,%s,%s",
                    f.bd_name, kAnyKey, kAnyKey, kAnyKey, ip_key(ip));
    else if (f.bd_name_set)
        filter_path(cmd, path, "bd filter path: %s", EVPN_PATH_MAC "-bd/%s", f.bd_name);

    evpn_show_walk(kMacRoute, path);
}

// Columns: 10 6 10 40.
void show_evpn_imcast(const ShowCommandDef &cmd) {
    static constexpr char kColumns[] = "\n%-10.10s %-6.6s %-10.10s %-40.40s\n";
    const ShowFilter &f = show_filter;
    char path[EVPN_PATH_SIZE] = EVPN_PATH_IMCAST, ip[EVPN_IP_KEY_SIZE];

    show_printf(kColumns, "VPN-ID", "Encap", "EtherTag", "Originating IP");
    show_printf(kColumns + 1, kColumnRule, kColumnRule, kColumnRule, kColumnRule);

    if (f.value_set) {
        if (!f.eth_tag_set)
            filter_path(cmd, path, "value filter path: %s", EVPN_PATH_IMCAST "-evi/0x%x", f.value);
        else if (f.ip_set)
            filter_path(cmd, path, "value + s_eth_tag + ip addr get path: %s",
                        EVPN_PATH_IMCAST "-evi_eth_tag_orig_ip/0x%x,%x,%s", f.value, f.eth_tag,
                        ip_key(ip));
        else
            filter_path(cmd, path, "value + eth_tag filter path: %s",
                        EVPN_PATH_IMCAST "-evi_eth_tag/0x%x,%x", f.value, f.eth_tag);
    }
    if (f.bd_name_set) {
        if (!f.eth_tag_set)
            filter_path(cmd, path, "bd filter path: %s", EVPN_PATH_IMCAST "-bd/%s", f.bd_name);
        else if (f.ip_set)
            filter_path(cmd, path, "bd + eth_tag + ip addr filter path: %s",
                        EVPN_PATH_IMCAST "-bd_eth_tag_orig_ip/%s,%x,%s", f.bd_name, f.eth_tag,
                        ip_key(ip));
        else
            filter_path(cmd, path, "bd + eth_tag filter path: %s",
                        EVPN_PATH_IMCAST "-bd_eth_tag/%s,%x", f.bd_name, f.eth_tag);
    }
    if (!f.value_set && f.eth_tag_set && !f.bd_name_set) {
        if (f.ip_set)
            filter_path(cmd, path, "eth_tag + ip addr filter path: %s",
                        EVPN_PATH_IMCAST "-eth_tag_orig_ip/%x,%s", f.eth_tag, ip_key(ip));
        else
            filter_path(cmd, path, "eth_tag filter path: %s", EVPN_PATH_IMCAST "-eth_tag/%x",
                        f.eth_tag);
    }

    evpn_show_walk(kImcastRoute, path);
}

// Columns of labels and internal IDs: 10 6 27 10, three blanks, then 8 or 11.
void show_evpn_label(const ShowCommandDef &) {
    static constexpr char kColumns[] = "\n%-10.10s %-6.6s %-27.27s %-10.10s   %-8.8s\n";
    show_printf(kColumns, "VPN-ID", "Encap", "Ethernet Segment Id", "EtherTag", "Label");
    show_printf(kColumns + 1, kColumnRule, kColumnRule, kColumnRule, kColumnRule, kColumnRule);
    const bool detailed = show_filter.detail || show_filter.private_view;
    show_evpn_label_db_common(detailed ? EVPN_PATH_LABEL_DETAIL : EVPN_PATH_LABEL,
                              print_evpn_label_bag_as_label);
}

void show_evpn_internal_id(const ShowCommandDef &) {
    static constexpr char kColumns[] = "\n%-10.10s %-6.6s %-27.27s %-10.10s   %-11.11s\n";
    show_printf(kColumns, "VPN-ID", "Encap", "Ethernet Segment Id", "EtherTag", "Internal ID");
    show_printf(kColumns + 1, kColumnRule, kColumnRule, kColumnRule, kColumnRule, kColumnRule);
    const bool detailed = show_filter.detail || show_filter.private_view;
    show_evpn_label_db_common(detailed ? EVPN_PATH_INTERNAL_ID_DETAIL : EVPN_PATH_INTERNAL_ID,
                              print_evpn_label_bag_as_internal_id);
}

// Columns: 10 6 40, and 20 for the leaf EVIs with -t.
void show_evpn_neighbor(const ShowCommandDef &cmd) {
    static constexpr char kLeafColumns[] = "\n%-10.10s %-6.6s %-40.40s %-20.20s\n";
    static constexpr char kColumns[] = "\n%-10.10s %-6.6s %-40.40s\n";
    const ShowFilter &f = show_filter;
    char path[EVPN_PATH_SIZE] = EVPN_PATH_NEIGHBOR, ip[EVPN_IP_KEY_SIZE];

    if (f.leaf_evis) {
        show_printf(kLeafColumns, "VPN-ID", "Encap", "Neighbor IP", "Leaf EVIs");
        show_printf(kLeafColumns + 1, kColumnRule, kColumnRule, kColumnRule, kColumnRule);
    } else {
        show_printf(kColumns, "VPN-ID", "Encap", "Neighbor IP");
        show_printf(kColumns + 1, kColumnRule, kColumnRule, kColumnRule);
    }

    // With -N alone the whole listing is walked: the printers filter by address.
    if (f.value_set) {
        if (f.ip_set)
            filter_path(cmd, path, "value + ip addr filter path: %s",
                        EVPN_PATH_NEIGHBOR "-evi_nbr_ip/0x%x,%s", f.value, ip_key(ip));
        else
            filter_path(cmd, path, "value filter path: %s", EVPN_PATH_NEIGHBOR "-evi/0x%x",
                        f.value);
    }
    if (f.bd_name_set) {
        if (f.ip_set)
            filter_path(cmd, path, "bd + ip addr filter path: %s",
                        EVPN_PATH_NEIGHBOR "-bd_nbr_ip/%s,%s", f.bd_name, ip_key(ip));
        else
            filter_path(cmd, path, "bd filter path: %s", EVPN_PATH_NEIGHBOR "-bd/%s", f.bd_name);
    }

    evpn_show_walk(f.leaf_evis ? kNeighborLeaf : kNeighbor, path);
}

// Columns: 10 6 24 10 39 8, and 39 for the SID where the platform has SRv6.
void show_evpn_ead(const ShowCommandDef &cmd) {
    static constexpr char kColumns[] = "%-10.10s %-6.6s %-24.24s %-10.10s %-39.39s %-8.8s";
    static constexpr char kSidColumn[] = " %-39.39s";
    const ShowFilter &f = show_filter;
    char path[EVPN_PATH_SIZE] = EVPN_PATH_EAD;

    const bool sid = l2vpn_platform_srv6_supported() != 0;
    show_print<"\n">();
    show_printf(kColumns, "VPN-ID", "Encap", "Ethernet Segment Id", "EtherTag", "Nexthop", "Label");
    if (sid) show_printf(kSidColumn, "SID");
    show_print<"\n">();
    show_printf(kColumns, kColumnRule, kColumnRule, kColumnRule, kColumnRule, kColumnRule, kColumnRule);
    if (sid) show_printf(kSidColumn, kColumnRule);
    show_print<"\n">();

    const char *esi = nullptr;
    if (f.esi_set && !(esi = esi_key(cmd, kEsiExtractFailed))) return;
    if (f.value_set) {
        if (f.esi_set)
            filter_path(cmd, path, "value + esi filter path: %s", EVPN_PATH_EAD "-evi_esi/0x%x,%s",
                        f.value, esi);
        else
            filter_path(cmd, path, "value filter path: %s", EVPN_PATH_EAD "-evi/0x%x", f.value);
    }
    if (f.bd_name_set) {
        if (f.esi_set)
            filter_path(cmd, path, "bd + esi filter path: %s", EVPN_PATH_EAD "-bd_esi/%s,%s",
                        f.bd_name, esi);
        else
            filter_path(cmd, path, "bd filter path: %s", EVPN_PATH_EAD "-bd/%s", f.bd_name);
    }
    if (!f.value_set && f.esi_set && !f.bd_name_set)
        filter_path(cmd, path, "esi filter path: %s", EVPN_PATH_EAD "-esi/%s", esi);

    evpn_show_walk(kEadRoute, path);
}

// Columns: 40 15.
void show_evpn_pl(const ShowCommandDef &cmd) {
    static constexpr char kColumns[] = "\n%-40.40s %-15.15s\n";
    const ShowFilter &f = show_filter;
    char path[EVPN_PATH_SIZE] = EVPN_PATH_PATHLIST;

    show_printf(kColumns, "Nexthop", "Label");
    show_printf(kColumns + 1, kColumnRule, kColumnRule);

    // Without -M the whole listing is walked; -0 and -j play no part.
    if (f.value_set) {
        const char *esi = nullptr;
        if (f.esi_set && !(esi = esi_key(cmd, kEsiExtractFailed))) return;
        if (f.esi_set && f.i_sid_set)
            filter_path(cmd, path, "PL value + label esi + tag filter path: %s",
                        EVPN_PATH_PATHLIST "-evi_esi_tag/0x%x,%s,%x", f.value, esi, f.i_sid);
        else if (f.esi_set)
            filter_path(cmd, path, "PL value + label esi filter path: %s",
                        EVPN_PATH_PATHLIST "-evi_esi/0x%x,%s", f.value, esi);
        else
            filter_path(cmd, path, "PL value filter path: %s", EVPN_PATH_PATHLIST "-evi/0x%x",
                        f.value);
    }

    evpn_show_walk(kPathlist, path);
}
