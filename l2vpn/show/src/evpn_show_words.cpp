#include "evpn_show_words.h"

#include <cstdint>

#include "platform/formatters.h"

namespace {

// The word of code in an indexed table; null past its ends.
template <const auto &Words>
const char *indexed(int64_t code) {
    return code >= 0 && code < static_cast<int64_t>(std::size(Words)) ? Words[code] : nullptr;
}

#define EVPN_INDEXED_WORD(code, word) word,
constexpr const char *kEviTypes[] = {EVPN_EVI_TYPE_WORDS(EVPN_INDEXED_WORD)};
constexpr const char *kDfRoles[] = {EVPN_DF_ROLE_WORDS(EVPN_INDEXED_WORD)};
#undef EVPN_INDEXED_WORD

const char *encap_word(int64_t code) {
#define EVPN_ENCAP_CASE(name, value, word) \
    if (code == (value)) return word;
    EVPN_ENCAP_WORDS(EVPN_ENCAP_CASE)
#undef EVPN_ENCAP_CASE
    return nullptr;
}

constexpr BagFieldWords kFieldWords[] = {
    {"l2vpn_evpn_mac_bag", "encap", encap_word},
    {"l2vpn_evpn_mac_bag", "local_encap", encap_word},
    {"l2vpn_evpn_mac_bag", "remote_encap", encap_word},
    {"L2Attributes", "DesignatedForwarderRole", indexed<kDfRoles>},
    {"l2vpn_evpn_imcast_bag", "encap", encap_word},
    {"l2vpn_evpn_neighbor_bag", "encap", encap_word},
    {"l2vpn_evpn_ead_bag", "encap", encap_word},
    {"l2vpn_evpn_evi_summary_bag", "encap", encap_word},
    {"l2vpn_evpn_evi_summary_bag", "evi_type", indexed<kEviTypes>},
    {"l2vpn_evpn_evi_detail_bag", "encap", encap_word},
    {"l2vpn_evpn_evi_detail_bag", "evi_type", indexed<kEviTypes>},
    {"l2vpn_evpn_evi_detail_bag", "preferred_nexthop_mode", indexed<kNexthopModeWords>},
    {"l2vpn_evpn_evi_bgp_rt_bag", "encap", encap_word},
    {"l2vpn_evpn_tep_bag", "tep_type", indexed<kTepTypeWords>},
    {"l2vpn_evpn_tep_bag", "local_encap", encap_word},
    {"l2vpn_evpn_tep_bag", "remote_encap", encap_word},
    {"l2vpn_evpn_remote_shg_bag", "encap", encap_word},
    {"l2vpn_evpn_igmp_bag", "route_type", indexed<kIgmpRouteTypeWords>},
    {"l2vpn_evpn_igmp_bag", "igmp_version", indexed<kIgmpVersionWords>},
    {"l2vpn_evpn_igmp_bag", "filter_mode", indexed<kIgmpFilterModeWords>},
    {"l2vpn_evpn_es_nexthop", "df_type", indexed<kEsDfTypeWords>},
    {"l2vpn_evpn_es_ckpt_nexthop", "df_type", indexed<kEsDfTypeWords>},
    {"l2vpn_evpn_es_bag", "state", indexed<kEsStateWords>},
    {"l2vpn_evpn_es_bag", "forced_state", indexed<kEsForcedStateWords>},
    {"l2vpn_evpn_es_bag", "redundancy", indexed<kEsRedundancyWords>},
    {"l2vpn_evpn_es_bag", "operational_topology", indexed<kEsOperTopologyWords>},
    {"l2vpn_evpn_es_bag", "configured_topology", indexed<kEsConfTopologyWords>},
    {"l2vpn_evpn_es_bag", "carving_sync_mode", indexed<kEsCarvingSyncWords>},
    {"l2vpn_evpn_es_bag", "mac_flush_mode", indexed<kEsMacFlushWords>},
    {"l2vpn_evpn_es_bag", "access_signal_mode", indexed<kEsAccessSignalWords>},
    {"l2vpn_evpn_es_bag", "ves_fsm_state", indexed<kEsVesFsmWords>},
    {"l2vpn_evpn_label_bag", "encap", encap_word},
    {"l2vpn_evpn_pl_bag", "encap", encap_word},
};

}  // namespace

std::span<const BagFieldWords> evpn_show_field_words() { return kFieldWords; }
