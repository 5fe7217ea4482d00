// Record types. Each type is one field list, written once, and one line in
// BAG_SUBRECORDS or BAG_RECORDS at the end of this file: the list makes the
// C++ struct here and the codec description in bag_types.cpp, and the line
// states the bytes a show command decodes one record into.
//
// A field list takes five macros: F(kind, name) a scalar, S(type, name) a
// sub-record, A(kind, name) an array of scalars, AS(type, name) an array of
// sub-records, FS(type, name, n) n sub-records in a row.
#pragma once
#include <cstdint>

#include "platform/bag.h"
#include "platform/formatters.h"

template <BagKind K> struct bag_ctype;
template <> struct bag_ctype<BagKind::U8> { using type = uint8_t; };
template <> struct bag_ctype<BagKind::U16> { using type = uint16_t; };
template <> struct bag_ctype<BagKind::U32> { using type = uint32_t; };
template <> struct bag_ctype<BagKind::S32> { using type = int32_t; };
template <> struct bag_ctype<BagKind::U64> { using type = uint64_t; };
template <> struct bag_ctype<BagKind::BOOL> { using type = uint32_t; };
template <> struct bag_ctype<BagKind::IP> { using type = l2vpn_ip_addr_t; };
template <> struct bag_ctype<BagKind::MAC> { using type = uint8_t[6]; };
template <> struct bag_ctype<BagKind::ESI> { using type = uint8_t[10]; };
template <> struct bag_ctype<BagKind::RD> { using type = l2vpn_bag_rd_t; };
template <> struct bag_ctype<BagKind::RT> { using type = l2vpn_bag_rt_t; };
template <> struct bag_ctype<BagKind::STR> { using type = char *; };
template <> struct bag_ctype<BagKind::OPTSTR> { using type = char *; };

#define BAG_M_F(K, n) bag_ctype<BagKind::K>::type n;
#define BAG_M_S(T, n) T n;
#define BAG_M_A(K, n) bag_array<bag_ctype<BagKind::K>::type> n;
#define BAG_M_AS(T, n) bag_array<T> n;
#define BAG_M_FS(T, n, N) T n[N];

// Declares the struct T, its description and its getter l2vpn_bag_dll__T().
#define BAG_DECLARE(T)                                                          \
    struct T {                                                                  \
        BAG_FIELDS_##T(BAG_M_F, BAG_M_S, BAG_M_A, BAG_M_AS, BAG_M_FS)           \
    };                                                                          \
    extern const BagDesc bag_desc_##T;                                          \
    const BagDesc *l2vpn_bag_dll__##T(void);

// What a consumer needs of a top-level record type T: its description and
// the bytes of the buffer it is decoded into.
template <class T> struct bag_record_info;

// A top-level record type: declared as above, with its decode buffer of N
// bytes, which the decoded record must fit.
#define BAG_DECLARE_RECORD(T, N)                                                \
    BAG_DECLARE(T)                                                              \
    template <> struct bag_record_info<T> {                                     \
        static constexpr const BagDesc *(*get)(void) = l2vpn_bag_dll__##T;     \
        static constexpr uint32_t buffer_size = N;                              \
    };                                                                          \
    static_assert(sizeof(T) <= (N), #T " does not fit its decode buffer");

// ---- Shared sub-records -------------------------------------------------

#define BAG_FIELDS_SidStructure(F, S, A, AS, FS)                                \
    F(U8, LocatorBlockLen) F(U8, LocatorNodeLen) F(U8, FunctionLen)             \
    F(U8, ArgumentLen) F(U8, TranspositionLen) F(U8, TranspositionOffset)

#define BAG_FIELDS_Srv6Sid(F, S, A, AS, FS)                                     \
    F(U16, SRv6EndpointBehavior) F(U8, SRv6_SIDFlags) F(IP, SRv6_SID)           \
    F(BOOL, SIDStructurePresent) S(SidStructure, sid_struct)

#define BAG_FIELDS_SrTeInfo(F, S, A, AS, FS)                                    \
    F(U8, SR_TEType) F(U32, SR_TEInterfaceName) F(U32, SR_TE_BSID)              \
    F(IP, SRv6_TE_BSID)

#define BAG_FIELDS_L2Attributes(F, S, A, AS, FS)                                \
    F(BOOL, Valid) F(U16, MTU) F(U32, DesignatedForwarderRole) F(U32, ControlWord)

#define BAG_FIELDS_EvpnPath(F, S, A, AS, FS)                                    \
    F(IP, NextHop) F(U32, TunnelEndpointID) F(U32, OutputLabel)                 \
    F(U32, RerouteLabel) S(SrTeInfo, SR_TEInfo) AS(Srv6Sid, SRv6_SIDInfo)       \
    S(L2Attributes, Layer2Attributes) A(U32, Issues) F(MAC, GES_MACAddress)     \
    F(IP, OriginatingPE) F(U16, PathVerion)

#define BAG_FIELDS_evt_hist_entry_bag(F, S, A, AS, FS)                          \
    F(STR, evt_timestamp) F(U64, evt_timestamp_ms) F(STR, evt_name)             \
    F(U8, evt_type) F(BOOL, evt_many) F(BOOL, evt_sticky) A(U32, evt_data)

#define BAG_FIELDS_evt_hist_bag(F, S, A, AS, FS)                                \
    F(STR, evt_class_name) AS(evt_hist_entry_bag, evt_entry)

#define BAG_FIELDS_l2vpn_timespec_bag(F, S, A, AS, FS) F(U32, tv_sec) F(U32, tv_nsec)

#define BAG_FIELDS_l2vpn_diag_stats_bag(F, S, A, AS, FS)                        \
    F(U32, count) S(l2vpn_timespec_bag, last_time) F(U32, last_arg)

// ---- Forwarding entries --------------------------------------------------

// bd_name: the bridge domain of the route; key of the bd indices, not printed.
#define BAG_FIELDS_l2vpn_evpn_mac_bag(F, S, A, AS, FS)                          \
    F(U32, evi) F(U32, encap) F(U32, ethernet_tag) F(MAC, mac_address)          \
    F(IP, ip_address) F(U32, local_label) AS(Srv6Sid, local_sids)               \
    AS(EvpnPath, path_buffer) F(BOOL, local) F(BOOL, proxy) F(BOOL, remote)     \
    F(IP, soo_nexthop) F(IP, proxy_nexthop) F(STR, local_esi)                   \
    F(STR, remote_esi) F(U16, esi_port_key) F(U8, local_encap)                  \
    F(U8, remote_encap) F(STR, local_nexthop_name) F(STR, mac_state)            \
    F(U32, local_seq_num) F(U32, remote_seq_num) F(S32, l3_label)               \
    F(MAC, local_router_mac) F(U16, flush_requested) F(U16, flush_received)     \
    F(U32, bp_xcid) F(U32, stamped_xcid) F(U32, mac_producers)                  \
    F(U32, best_producer) F(U32, internal_label) F(BOOL, resolved)              \
    F(BOOL, local_static) F(BOOL, remote_static) F(BOOL, local_etree_leaf)      \
    F(BOOL, remote_etree_leaf) F(BOOL, remote_matching_etree_rt)                \
    F(U32, ext_flags) S(evt_hist_bag, event_history_info)                       \
    S(evt_hist_bag, event_history) F(U32, local_ac_id) F(U32, remote_ac_id)     \
    F(U32, bp_ifh) F(STR, bd_name)

// ---- Instances -------------------------------------------------------------

#define BAG_FIELDS_l2vpn_evpn_evi_summary_bag(F, S, A, AS, FS)                  \
    F(U32, vpn_id) F(U32, encap) F(STR, bd_name) F(U32, evi_type)

#define BAG_FIELDS_l2vpn_evpn_evi_detail_bag(F, S, A, AS, FS)                   \
    F(U32, evi) F(U32, evi_kind) F(U32, vpn_id) F(U32, encap) F(STR, bd_name)   \
    F(U32, evi_type) F(STR, description) F(U32, unicast_label)                  \
    F(U32, multicast_label) F(U32, reroute_label) AS(Srv6Sid, unicast_sids)     \
    AS(Srv6Sid, multicast_sids) F(U32, frr_ac_count) F(BOOL, flow_label)        \
    F(BOOL, flow_label_global) F(BOOL, control_word_disabled)                   \
    F(BOOL, ignore_mtu_mismatch) F(BOOL, transmit_mtu_zero) F(STR, table_policy) \
    F(STR, route_policy_export) F(STR, route_policy_import) F(U8, forward_class) \
    F(RD, rd_auto) F(RD, rd_config) F(RT, rt_auto) F(BOOL, rt_import_none)      \
    F(BOOL, rt_export_none) F(BOOL, advertise_macs) F(BOOL, etree_leaf)         \
    F(BOOL, etree_rt_leaf) F(BOOL, advertise_bvi_macs) F(BOOL, aliasing_disabled) \
    F(BOOL, uuf_disabled) F(BOOL, reorigination_disabled) F(BOOL, stitching)    \
    F(BOOL, mcast_source_connected) F(BOOL, igmp_snooping_proxy)                \
    F(BOOL, mld_snooping_proxy) F(BOOL, implicit_import_disabled)               \
    F(BOOL, bvi_coupled_mode) F(BOOL, bvi_subnet_withheld_ipv4)                 \
    F(BOOL, bvi_subnet_withheld_ipv6) F(STR, vrf_name) F(BOOL, ecmp_disable)    \
    F(U32, preferred_nexthop_mode) F(OPTSTR, srv6_locator_name)                 \
    F(U32, srv6_locator_id) F(BOOL, access) F(U64, bd_ptr) F(U32, bd_id)        \
    A(U32, rt_counters) F(U32, upd_macs) F(U32, del_macs) F(U32, upd_imets)     \
    F(U32, del_imets) F(U32, upd_mac_errors) F(U32, del_mac_errors)             \
    F(U32, upd_imet_errors) F(U32, del_imet_errors)                             \
    S(evt_hist_bag, event_history) S(evt_hist_bag, event_history_info)          \
    F(BOOL, has_statistics) F(BOOL, vrf_table_eod) F(BOOL, vrf_table_eod_expected) \
    F(STR, vrf_table_eod_why)

#define BAG_FIELDS_l2vpn_evpn_evi_bgp_rt_bag(F, S, A, AS, FS)                   \
    F(U32, vpn_id) F(U32, encap) F(RT, rt) F(U32, rt_type) F(BOOL, stitching)   \
    S(evt_hist_bag, event_history) S(evt_hist_bag, event_history_info)

#define BAG_FIELDS_l2vpn_evpn_rd_private_bag(F, S, A, AS, FS)                   \
    F(RD, rd) S(evt_hist_bag, event_history) S(evt_hist_bag, event_history_info)

// One RD with its route targets, as the Ethernet segment records list them.
#define BAG_FIELDS_l2vpn_evpn_rd_rt_entry(F, S, A, AS, FS)                      \
    F(RD, rd) A(RT, rts) F(BOOL, stitching)

// tep_type: the endpoint's type code; vrf_name is always present.
#define BAG_FIELDS_l2vpn_evpn_tep_bag(F, S, A, AS, FS)                          \
    F(U32, tep_id) F(U8, tep_type) F(U32, local_vpn_id) F(U8, local_encap)      \
    F(IP, local_nexthop) F(U32, remote_vpn_id) F(U8, remote_encap)              \
    F(IP, remote_nexthop) F(U32, in_use_count) F(STR, vrf_name)                 \
    F(U32, vrf_table_id) F(U16, udp_port) F(BOOL, l3fib_registered)             \
    F(BOOL, l3fib_reachable) S(evt_hist_bag, event_history)                     \
    S(evt_hist_bag, event_history_info)

#define BAG_FIELDS_l2vpn_evpn_tep_notification_entry_bag(F, S, A, AS, FS) F(STR, name)

// ---- System ----------------------------------------------------------------

#define BAG_FIELDS_l2vpn_evpn_summary_bag(F, S, A, AS, FS)                      \
    F(IP, evpn_router_id) F(IP, bgp_router_id) F(U32, bgp_asn) F(U32, bgp_eod)  \
    F(U32, evi_count) F(U32, tep_count) F(U32, local_mac_count)                 \
    F(U32, local_mac_ipv4_count) F(U32, local_mac_ipv6_count)                   \
    F(U32, local_es_global_mac_count) F(U32, remote_mac_count)                  \
    F(U32, remote_sync_mac_count) F(U32, remote_mac_ipv4_count)                 \
    F(U32, remote_mac_ipv6_count) F(U32, local_imcast_count)                    \
    F(U32, remote_imcast_count) F(U32, internal_label_count)                    \
    F(U32, sh_internal_id_count) F(U32, mh_internal_id_count) F(U32, es_count)  \
    F(U32, neighbor_count) F(U32, local_ead_count) F(U32, remote_ead_count)     \
    F(MAC, pbb_bsa_mac) F(U32, peering_timer) F(U32, recovery_timer)            \
    F(U32, carving_timer) F(U32, ac_debounce_timer) F(BOOL, manual_cost_out)    \
    F(BOOL, bundle_convergence) F(BOOL, costed_out) F(U32, startup_cost_in_timer) \
    F(U32, startup_cost_in_left) F(U32, mac_postpone_timer)                     \
    F(U32, mac_postpone_left) F(U32, bringup_timer) F(U32, bringup_left)        \
    F(U32, bringup_queue_items) F(U32, bringup_in_progress)                     \
    F(U32, backup_replacement_timer) F(U32, backup_replacement_left)            \
    F(U32, core_deisolation_timer) F(U32, core_deisolation_left)                \
    F(U32, bgp_nh_pfx_len_ipv6) F(U32, marked_remote_mac_count)                 \
    F(U32, swept_remote_mac_count) F(U32, marked_local_mac_count)               \
    F(U32, swept_local_mac_count) F(U32, marked_imcast_count)                   \
    F(U32, swept_imcast_count) F(BOOL, throttle_to_l2rib)                       \
    F(BOOL, df_election_logging) S(evt_hist_bag, event_history)                 \
    FS(l2vpn_diag_stats_bag, es_diag, 20) F(U64, es_ead_pulses_pending)         \
    F(BOOL, ntp_in_sync)

// One VPWS service of an SRv6 list: its EVI and AC ID.
#define BAG_FIELDS_l2vpn_evpn_srv6_vpws_item(F, S, A, AS, FS) F(U32, evi) F(U32, ac_id)

#define BAG_FIELDS_l2vpn_evpn_srv6_locator_entry(F, S, A, AS, FS)               \
    F(STR, name) F(IP, prefix) F(U8, prefix_len) F(U32, locator_id) F(BOOL, oor) \
    F(BOOL, in_use) F(U16, flags) F(U32, service_count) F(U32, sid_count)       \
    F(BOOL, is_default) A(U32, evis) AS(l2vpn_evpn_srv6_vpws_item, vpws)        \
    S(evt_hist_bag, event_history) S(evt_hist_bag, event_history_info)          \
    A(U32, elan_evis)

#define BAG_FIELDS_l2vpn_evpn_srv6_bag(F, S, A, AS, FS)                         \
    F(BOOL, enabled) F(BOOL, registered) F(STR, default_locator)                \
    F(U32, default_locator_id) A(U32, unknown_locator_evis)                     \
    AS(l2vpn_evpn_srv6_vpws_item, unknown_locator_vpws)                         \
    AS(l2vpn_evpn_srv6_locator_entry, locators)

// if_state: an interface state code, named by im_state_reverse_lookup(code, 0).
#define BAG_FIELDS_evpn_grp_intf_entry(F, S, A, AS, FS) F(STR, name) F(U32, if_state)

#define BAG_FIELDS_evpn_grp_info_bag(F, S, A, AS, FS)                           \
    F(U32, group_id) F(S32, group_state)                                        \
    AS(evpn_grp_intf_entry, core_interfaces)                                    \
    AS(evpn_grp_intf_entry, access_interfaces)

#define BAG_FIELDS_l2vpn_ges_ves_entry(F, S, A, AS, FS)                         \
    F(STR, ves_name) F(U8, msti_instance_id) F(U16, mp_msti_mask) F(U32, peer_stale)

#define BAG_FIELDS_l2vpn_ges_map_entry_bag(F, S, A, AS, FS)                     \
    F(MAC, ges_mac) F(U32, evi_refcount) F(U32, ves_count)                      \
    AS(l2vpn_ges_ves_entry, ves_entries)

#define BAG_FIELDS_l2vpn_evpn_client_bag(F, S, A, AS, FS)                       \
    F(S32, client_type) F(BOOL, has_backup) S(evt_hist_bag, primary_history)    \
    S(evt_hist_bag, backup_history)

// One VPWS attachment circuit of an EVI: the AC ID it is known by here
// (source) and the one the remote end uses (target).
#define BAG_FIELDS_l2vpn_atom_acid_bag(F, S, A, AS, FS)                         \
    F(U32, source_ac_id) F(U32, target_ac_id) F(U32, vpn_id)                    \
    S(evt_hist_bag, event_history) S(evt_hist_bag, event_history_info)

// The split-horizon label one remote peer advertised for an Ethernet segment.
#define BAG_FIELDS_l2vpn_evpn_remote_shg_label_entry(F, S, A, AS, FS)           \
    F(IP, address) F(U32, label)

// The split-horizon labels of the remote peers of one EVI and Ethernet
// segment. encap is a BGP encapsulation code and, with vpn_id, names the EVI.
#define BAG_FIELDS_l2vpn_evpn_remote_shg_bag(F, S, A, AS, FS)                   \
    F(STR, esi_text) F(U32, vpn_id) F(U8, encap)                                \
    AS(l2vpn_evpn_remote_shg_label_entry, remote_shg_labels)                    \
    S(evt_hist_bag, event_history) S(evt_hist_bag, event_history_info)

// Where an IGMP route came from: a remote router's address or a local
// interface's name, in one place of the record; the route's
// source_is_remote says which of the two it holds.
#define BAG_FIELDS_l2vpn_evpn_igmp_route_source(F, S, A, AS, FS)                \
    F(IP, address) F(STR, interface_name)

// One IGMP/MLD route. attachment_type 0 and 4 put it on a bridge port of a
// bridge domain (bp_xcid_or_subif_ifh, bd_or_vrf_id), any other on a
// subinterface in a VRF.
#define BAG_FIELDS_l2vpn_evpn_igmp_bag(F, S, A, AS, FS)                         \
    F(U32, attachment_type) F(STR, esi_text) F(U32, evi) F(S32, route_type)     \
    F(IP, source) F(IP, group) F(IP, originating_ip) F(BOOL, source_is_remote)  \
    S(l2vpn_evpn_igmp_route_source, route_source) F(S32, ethernet_tag)          \
    F(U32, igmp_version) F(U32, filter_mode) F(U8, max_response_time)           \
    F(BOOL, resolved) F(U32, tep_id) F(U32, bd_or_vrf_id)                       \
    F(U32, bp_xcid_or_subif_ifh) S(evt_hist_bag, event_history)                 \
    S(evt_hist_bag, event_history_info)

// ---- Ethernet segments -----------------------------------------------------

// One peer of an Ethernet segment. df_type: 0 MOD, 1 HRW, 2 PREF, 3 Invalid;
// sct_usec: the peer's service carving time in microseconds (0: none);
// ves_value: read for the virtual ES nexthops of a main port only.
#define BAG_FIELDS_l2vpn_evpn_es_nexthop(F, S, A, AS, FS)                       \
    F(IP, address) F(MAC, mac) F(BOOL, nh_standby) F(BOOL, dont_preempt)        \
    F(U8, df_type) F(U16, df_preference) F(BOOL, time_sync) F(U64, sct_usec)    \
    F(U8, df_info) F(BOOL, nh_up) F(U32, ves_value)

// A checkpointed peer of an Ethernet segment.
#define BAG_FIELDS_l2vpn_evpn_es_ckpt_nexthop(F, S, A, AS, FS)                  \
    F(IP, address) F(BOOL, dont_preempt) F(U8, df_type) F(U16, df_preference)   \
    F(U8, df_info)

// A service of a carving result (EVI, VNI or SRv6 service) with an extra
// internal word.
#define BAG_FIELDS_l2vpn_evpn_es_id_entry(F, S, A, AS, FS) F(U32, id) F(U32, extra)

// An EVPN-VPWS service of a carving result: its EVI and Ethernet tag.
#define BAG_FIELDS_l2vpn_evpn_es_evi_etag(F, S, A, AS, FS)                      \
    F(U32, evi) F(U32, etag_type) F(U32, etag)

// The platform's high-availability synchronization object of a record.
// state: 0 Init, 1 Syncing, 2 Synced, 3 Stale.
#define BAG_FIELDS_l2vpn_sync_hasi_object(F, S, A, AS, FS)                      \
    F(U32, object_id) F(U32, state) F(U32, flags) F(U64, local_seq)             \
    F(U64, peer_seq)

// One Ethernet segment. The last five fields are keys of the listing's
// indices and are not printed: key_ifname, the interface's name in its
// internal form (as -i gives it); key_pw_neighbor and key_pw_id, the
// pseudowire of a pseudowire segment (:: and 0 for any other); key_vfi, the
// VFI of a VFI segment; key_access_evi, the access EVI's name of an
// access-EVI segment. An empty key text keeps the segment out of its index.
#define BAG_FIELDS_l2vpn_evpn_es_bag(F, S, A, AS, FS)                           \
    F(STR, esi_text) F(U32, esi_id) F(U32, esi_type) F(STR, system_id)          \
    F(U32, port_key) F(STR, name) F(U32, state) F(BOOL, staggered_bringup)      \
    F(U32, forced_state) F(U32, es_kind) F(U32, ifhandle) F(U32, redundancy)    \
    F(U16, msti_state_mask) F(MAC, interface_mac) F(U32, num_pw_up)             \
    F(MAC, import_rt) F(S32, import_rt_origin) F(STR, bgp_gates)                \
    F(STR, l2fib_gates) A(U32, warnings) F(S32, mac_flush_mode)                 \
    F(S32, configured_topology) F(BOOL, topology_is_default)                    \
    F(S32, operational_topology) F(BOOL, forced_single_homed)                   \
    F(BOOL, conv_mac_mobility) F(BOOL, conv_reroute) F(BOOL, conv_nh_tracking)  \
    F(BOOL, ves_main_port) F(MAC, grouping_mac) F(MAC, source_mac)              \
    F(S32, source_mac_origin) F(U32, ves_peering_count) F(U32, ves_subif_count) \
    F(U32, peering_timer) F(BOOL, peering_timer_local) F(U32, peering_left)     \
    F(U32, recovery_timer) F(BOOL, recovery_timer_local) F(U32, recovery_left)  \
    F(U32, carving_timer) F(BOOL, carving_timer_local) F(U32, carving_left)     \
    F(U32, ac_debounce_timer) F(BOOL, ac_debounce_local)                        \
    F(U32, ac_debounce_left) F(U32, hrw_reset_timer) F(U32, hrw_reset_left)     \
    F(U32, carving_mode) F(S32, carving_sync_mode) F(S32, mcast_carving_mode)   \
    A(U32, manual_primary) F(STR, manual_primary_input)                         \
    A(U32, manual_secondary) F(STR, manual_secondary_input)                     \
    F(U16, pref_config_weight) F(U16, pref_oper_weight)                         \
    F(BOOL, pref_access_driven) AS(l2vpn_evpn_es_nexthop, nexthops)             \
    AS(l2vpn_evpn_es_nexthop, ves_nexthops) F(U32, forwarder_count)             \
    F(U32, elected_count) F(U32, not_elected_count)                             \
    F(U32, not_configured_count) F(U32, nve_anycast_vtep)                       \
    F(U32, nve_ingress_replication) F(U32, mobility_flush_count)                \
    S(l2vpn_timespec_bag, mobility_flush_last) F(U32, mobility_flush_skip)      \
    F(U32, mobility_flush_debounce) F(IP, tracked_nexthop)                      \
    AS(l2vpn_evpn_es_evi_etag, vpws_primary)                                    \
    AS(l2vpn_evpn_es_evi_etag, vpws_backup)                                     \
    AS(l2vpn_evpn_es_evi_etag, vpws_non_df) A(U32, elected_isids)               \
    A(U32, not_elected_isids) AS(l2vpn_evpn_es_id_entry, elected_evis)          \
    AS(l2vpn_evpn_es_id_entry, not_elected_evis)                                \
    AS(l2vpn_evpn_es_id_entry, elected_vnis)                                    \
    AS(l2vpn_evpn_es_id_entry, not_elected_vnis) F(BOOL, local_label_valid)     \
    F(U32, local_label) AS(l2vpn_evpn_remote_shg_label_entry, remote_shg_labels) \
    F(U32, access_signal_mode) AS(l2vpn_evpn_rd_rt_entry, es_ead_rds)           \
    AS(l2vpn_evpn_rd_rt_entry, ges_ead_rds) F(U32, ckpt_msti_mask)              \
    F(U8, ckpt_if_type) F(U32, ckpt_peering_done)                               \
    AS(l2vpn_evpn_es_ckpt_nexthop, ckpt_nexthops)                               \
    S(l2vpn_diag_stats_bag, rt_adv_stats) S(l2vpn_diag_stats_bag, rt_wdw_stats) \
    S(l2vpn_diag_stats_bag, esi_adv_stats) S(l2vpn_diag_stats_bag, esi_wdw_stats) \
    S(l2vpn_diag_stats_bag, ead_es_adv_stats)                                   \
    S(l2vpn_diag_stats_bag, ead_es_wdw_stats)                                   \
    S(l2vpn_diag_stats_bag, ead_evi_adv_stats)                                  \
    S(l2vpn_diag_stats_bag, ead_evi_wdw_stats)                                  \
    S(l2vpn_diag_stats_bag, mst_ag_vpws_adv_stats)                              \
    S(l2vpn_diag_stats_bag, mst_ag_vpws_wdw_stats)                              \
    S(l2vpn_diag_stats_bag, local_bmac_adv_stats)                               \
    S(l2vpn_diag_stats_bag, local_bmac_wdw_stats)                               \
    S(l2vpn_diag_stats_bag, df_elect_fwd_stats)                                 \
    S(l2vpn_diag_stats_bag, update_mac_stats)                                   \
    S(l2vpn_diag_stats_bag, mac_flush_pe_stats)                                 \
    S(l2vpn_diag_stats_bag, mac_flush_ce_stats)                                 \
    S(l2vpn_diag_stats_bag, instance_adv_stats)                                 \
    S(l2vpn_diag_stats_bag, instance_wdw_stats)                                 \
    S(l2vpn_diag_stats_bag, mp_info_adv_stats)                                  \
    S(l2vpn_diag_stats_bag, mp_info_wdw_stats)                                  \
    S(l2vpn_diag_stats_bag, mip_convert_stats)                                  \
    S(l2vpn_diag_stats_bag, fib_reachability_stats) F(ESI, diag_esi)            \
    F(STR, diag_ifname) F(U32, diag_ifh) F(U32, diag_flags) F(MAC, diag_es_rt)  \
    F(U16, diag_port_key) F(S32, mac_winner) F(U32, es_ead_pulse)               \
    F(U32, rt_advertised) F(U32, esi_advertised) F(U32, mp_advertised)          \
    F(U32, peering_done) F(U32, peering_chkpt) F(U32, num_evis)                 \
    F(U32, carving_done) F(U32, redund_fwd) F(U32, inval_nh)                    \
    F(U8, ves_fsm_state) F(U8, hrw_msti_set) F(U16, ves_msti_set)               \
    F(BOOL, vi_present) F(U16, vi_total) F(U16, vi_active) F(U16, vi_standby)   \
    F(U16, vi_down) S(evt_hist_bag, event_history)                              \
    S(evt_hist_bag, event_history_info) S(l2vpn_sync_hasi_object, hasi_object)  \
    F(BOOL, hasi_present) F(U32, peering_block) F(U16, mp_ves_bdf_mask)         \
    AS(l2vpn_evpn_es_id_entry, elected_srv6)                                    \
    AS(l2vpn_evpn_es_id_entry, not_elected_srv6) F(U32, carv_readvertise)       \
    F(U32, subif_im_registered) F(U32, if_imc_registered)                       \
    F(U32, if_pfi_registered) F(U32, checkpoint_stale) F(U32, checkpoint_rcvrd) \
    F(U32, msti_flush_flood) F(U32, mip_convert_pending) F(U32, msti0_adv)      \
    F(U32, mp_adv_blocked) F(STR, key_ifname) F(IP, key_pw_neighbor)            \
    F(U32, key_pw_id) F(STR, key_vfi) F(STR, key_access_evi)

// ---- The types -------------------------------------------------------------

// Sub-records, each before the types that hold it.
#define BAG_SUBRECORDS(X)                                                       \
    X(SidStructure) X(Srv6Sid) X(SrTeInfo) X(L2Attributes) X(EvpnPath)          \
    X(evt_hist_entry_bag) X(evt_hist_bag) X(l2vpn_timespec_bag)                 \
    X(l2vpn_diag_stats_bag) X(l2vpn_evpn_rd_rt_entry)                          \
    X(l2vpn_evpn_srv6_vpws_item) X(l2vpn_evpn_srv6_locator_entry)               \
    X(evpn_grp_intf_entry) X(l2vpn_ges_ves_entry)                               \
    X(l2vpn_evpn_remote_shg_label_entry) X(l2vpn_evpn_igmp_route_source)        \
    X(l2vpn_evpn_es_nexthop) X(l2vpn_evpn_es_ckpt_nexthop)                      \
    X(l2vpn_evpn_es_id_entry) X(l2vpn_evpn_es_evi_etag) X(l2vpn_sync_hasi_object)

// Top-level record types with the bytes of their decode buffers. A new type
// goes at the end: its position is its number in bag_record_types, which the
// decoder's fuzz inputs carry.
#define BAG_RECORDS(X)                                                          \
    X(l2vpn_evpn_mac_bag, 320)                                                  \
    X(l2vpn_evpn_evi_summary_bag, 24)                                           \
    X(l2vpn_evpn_evi_detail_bag, 432)                                           \
    X(l2vpn_evpn_evi_bgp_rt_bag, 96)                                            \
    X(l2vpn_evpn_rd_private_bag, 64)                                            \
    X(l2vpn_evpn_summary_bag, 616)                                              \
    X(l2vpn_evpn_srv6_bag, 72)                                                  \
    X(l2vpn_evpn_tep_bag, 136)                                                  \
    X(l2vpn_evpn_tep_notification_entry_bag, 8)                                 \
    X(evpn_grp_info_bag, 40)                                                    \
    X(l2vpn_ges_map_entry_bag, 32)                                              \
    X(l2vpn_evpn_client_bag, 56)                                              \
    X(l2vpn_atom_acid_bag, 96)                                                  \
    X(l2vpn_evpn_remote_shg_bag, 1776)                                          \
    X(l2vpn_evpn_igmp_bag, 192)                                                 \
    X(l2vpn_evpn_es_bag, 1776)

BAG_SUBRECORDS(BAG_DECLARE)
BAG_RECORDS(BAG_DECLARE_RECORD)

// Every top-level record type, for tools that choose a type by name.
const BagDesc *bag_desc_by_name(const char *name);
// Null-terminated list of the top-level record types, in BAG_RECORDS order.
extern const BagDesc *const bag_record_types[];
