// The listings of the operational database and their keys.
//
// An item's name is its item-key fields joined by commas, each written as its
// KeyText says; an index path "B-index/k1,k2,..." gives the index's fields in
// the order of IndexDef::parts. Orderings list the column orders the store
// keeps for an index, so that every supported wildcard pattern is a prefix
// range of one ordering: a filtered listing costs what it returns.
#include "platform/sysdb_registry.h"

#include "platform/bag_types.h"
#include "platform/sysdb_keys.h"
#include "platform/sysdb_paths.h"

namespace {

constexpr ListingDef label_listing(const char *base) {
    return {base,
            &bag_desc_l2vpn_evpn_label_bag,
            false,
            {{"evi", KeyText::HEX0X},
             {"esi", KeyText::STR},
             {"ethernet_tag", KeyText::HEX},
             {"nexthop", KeyText::IPHEX}},
            {0, 1, 2, 3},
            {{"evi", {0}, {{0}}},
             {"evi_esi", {0, 1}, {{0, 1}}},
             {"evi_esi_tag", {0, 1, 2}, {{0, 1, 2}}},
             {"evi_eth_tag", {0, 2}, {{0, 2}}}}};
}

constexpr ListingDef kRegistry[] = {
    // MAC and MAC/IP routes: keys evi(0) mac(1) ip(2) bd_name(3).
    {EVPN_PATH_MAC,
     &bag_desc_l2vpn_evpn_mac_bag,
     false,
     {{"evi", KeyText::HEX0X}, {"mac_address", KeyText::MAC3}, {"ip_address", KeyText::IPHEX},
      {"bd_name", KeyText::STR}},
     {0, 1, 2},
     {
         {"evi", {0}, {{0}}},
         // An address within an EVI or a bridge domain is found by walking
         // the EVI's (the domain's) routes: no ordering of its own.
         {"evi_mac_ip", {0, 1, 2}, {{0, 1, 2}}},
         {"mac_ip", {1, 2}, {{1, 2}, {2, 1}}},
         {"bd_mac_ip", {3, 1, 2}, {{3, 1, 2}}},
         {"bd", {3}, {{3}}},
     }},
    // EVIs, brief and detailed: keys vpn_id(0) encap(1) bd_name(2).
    {EVPN_PATH_EVI,
     &bag_desc_l2vpn_evpn_evi_summary_bag,
     false,
     {{"vpn_id", KeyText::HEX0X}, {"encap", KeyText::HEX0X}, {"bd_name", KeyText::STR}},
     {0, 1},
     {{"evi", {0}, {{0}}}, {"bd", {2}, {{2}}}}},
    {EVPN_PATH_EVI_DETAIL,
     &bag_desc_l2vpn_evpn_evi_detail_bag,
     false,
     {{"vpn_id", KeyText::HEX0X}, {"encap", KeyText::HEX0X}, {"bd_name", KeyText::STR}},
     {0, 1},
     {{"evi", {0}, {{0}}}, {"bd", {2}, {{2}}}}},
    // Route targets of EVIs: keys vpn_id(0) encap(1) rt(2) rt_type(3).
    {EVPN_PATH_EVI_RT,
     &bag_desc_l2vpn_evpn_evi_bgp_rt_bag,
     false,
     {{"vpn_id", KeyText::HEX0X},
      {"encap", KeyText::HEX0X},
      {"rt", KeyText::RDHEX},
      {"rt_type", KeyText::HEX0X}},
     {0, 1, 2, 3},
     {{"evi_encap", {0, 1}, {{0, 1}}}}},
    // Route distinguisher database.
    {EVPN_PATH_RD, &bag_desc_l2vpn_evpn_rd_private_bag, false, {{"rd", KeyText::RDHEX}}, {0}, {}},
    // Global summary: one item.
    {EVPN_PATH_SUMMARY, &bag_desc_l2vpn_evpn_summary_bag, true, {}, {}, {}},
    // EVPN's use of SRv6: one item.
    {EVPN_PATH_SRV6, &bag_desc_l2vpn_evpn_srv6_bag, true, {}, {}, {}},
    // Tunnel endpoints, listed at "tep" by tep_id (%x); each one's record is
    // "tep/<id>/info", its notification registrations "tep/<id>/notification".
    {EVPN_PATH_TEP, &bag_desc_l2vpn_evpn_tep_bag, false, {{"tep_id", KeyText::HEX}}, {0}, {},
     "info"},
    {EVPN_PATH_TEP, &bag_desc_l2vpn_evpn_tep_notification_entry_bag, false,
     {{"name", KeyText::STR}}, {0}, {}, nullptr, "notification"},
    // EVPN groups: an item is named by its group ID in "%x".
    {EVPN_PATH_GROUP, &bag_desc_evpn_grp_info_bag, false, {{"group_id", KeyText::HEX}}, {0}, {}},
    // Grouping-ES MAC map: one entry per grouping ES MAC.
    {EVPN_PATH_GES_MAP, &bag_desc_l2vpn_ges_map_entry_bag, false,
     {{"ges_mac", KeyText::MAC3}}, {0}, {}},
    // Multicast clients: one per client protocol.
    {EVPN_PATH_CLIENT, &bag_desc_l2vpn_evpn_client_bag, false,
     {{"client_type", KeyText::HEX0X}}, {0}, {}},
    // AC IDs of VPWS EVIs: keys vpn_id(0) source_ac_id(1); an item is named
    // "0x<vpn_id>,<source_ac_id>", as -M and -j give them.
    {EVPN_PATH_ACID,
     &bag_desc_l2vpn_atom_acid_bag,
     false,
     {{"vpn_id", KeyText::HEX0X}, {"source_ac_id", KeyText::HEX}},
     {0, 1},
     {{"evi", {0}, {{0}}}}},
    // Remote split-horizon groups, one per EVI and Ethernet segment: keys
    // vpn_id(0) encap(1) esi_text(2); listed whole only.
    {EVPN_PATH_REMOTE_SHG,
     &bag_desc_l2vpn_evpn_remote_shg_bag,
     false,
     {{"vpn_id", KeyText::HEX0X}, {"encap", KeyText::HEX0X}, {"esi_text", KeyText::STR}},
     {0, 1, 2},
     {}},
    // IGMP/MLD routes: keys evi(0) esi_text(1) ethernet_tag(2) source(3)
    // group(4) originating_ip(5) route_type(6).
    {EVPN_PATH_IGMP,
     &bag_desc_l2vpn_evpn_igmp_bag,
     false,
     {{"evi", KeyText::HEX0X},
      {"esi_text", KeyText::STR},
      {"ethernet_tag", KeyText::HEX0X},
      {"source", KeyText::IPHEX},
      {"group", KeyText::IPHEX},
      {"originating_ip", KeyText::IPHEX},
      {"route_type", KeyText::HEX0X}},
     {0, 1, 2, 3, 4, 5, 6},
     {{"evi", {0}, {{0}}}, {"esi", {1}, {{1}}}, {"evi_esi", {0, 1}, {{0, 1}}}}},
    // Ethernet segments: keys esi_id(0) esi_text(1) key_ifname(2)
    // key_pw_neighbor(3) key_pw_id(4) key_vfi(5) key_access_evi(6); an item is
    // named by its internal ESI ID. "B-accessevi/" lists the access-EVI
    // segments: those with a key_access_evi.
    {EVPN_PATH_ES,
     &bag_desc_l2vpn_evpn_es_bag,
     false,
     {{"esi_id", KeyText::HEX0X},
      {"esi_text", KeyText::STR},
      {"key_ifname", KeyText::STR},
      {"key_pw_neighbor", KeyText::IPHEX},
      {"key_pw_id", KeyText::HEX0X},
      {"key_vfi", KeyText::STR},
      {"key_access_evi", KeyText::STR}},
     {0},
     {{"esi", {1}, {{1}}},
      {"ifname", {2}, {{2}}},
      {"pw", {3, 4}, {{3, 4}}},
      {"vfi", {5}, {{5}}},
      {"accessevi", {6}, {{6}}}}},
    // Inclusive-multicast routes: keys evi(0) ethernet_tag(1) originating_ip(2)
    // bd_name(3); the Ethernet tag is written "%x", as -e gives it.
    {EVPN_PATH_IMCAST,
     &bag_desc_l2vpn_evpn_imcast_bag,
     false,
     {{"evi", KeyText::HEX0X},
      {"ethernet_tag", KeyText::HEX},
      {"originating_ip", KeyText::IPHEX},
      {"bd_name", KeyText::STR}},
     {0, 1, 2},
     {
         {"evi", {0}, {{0}}},
         {"evi_eth_tag", {0, 1}, {{0, 1}}},
         {"evi_eth_tag_orig_ip", {0, 1, 2}, {{0, 1, 2}}},
         {"bd", {3}, {{3}}},
         {"bd_eth_tag", {3, 1}, {{3, 1}}},
         {"bd_eth_tag_orig_ip", {3, 1, 2}, {{3, 1, 2}}},
         {"eth_tag", {1}, {{1}}},
         {"eth_tag_orig_ip", {1, 2}, {{1, 2}}},
     }},
    // Neighbors of EVIs: keys evi(0) neighbor(1) bd_name(2).
    {EVPN_PATH_NEIGHBOR,
     &bag_desc_l2vpn_evpn_neighbor_bag,
     false,
     {{"evi", KeyText::HEX0X}, {"neighbor", KeyText::IPHEX}, {"bd_name", KeyText::STR}},
     {0, 1},
     {
         {"evi", {0}, {{0}}},
         {"evi_nbr_ip", {0, 1}, {{0, 1}}},
         {"bd", {2}, {{2}}},
         {"bd_nbr_ip", {2, 1}, {{2, 1}}},
     }},
    // Label entries, listed four ways (labels and internal IDs, brief and
    // detailed) from tables of the same record type: keys evi(0) esi(1)
    // ethernet_tag(2) nexthop(3). The -e tag comes as "0x%x", the -j tag as
    // "%x"; both read as the same hexadecimal number.
    label_listing(EVPN_PATH_LABEL),
    label_listing(EVPN_PATH_LABEL_DETAIL),
    label_listing(EVPN_PATH_INTERNAL_ID),
    label_listing(EVPN_PATH_INTERNAL_ID_DETAIL),
    // Pathlists of the label entries: keys evi(0) esi(1) ethernet_tag(2)
    // pathlist_id(3).
    {EVPN_PATH_PATHLIST,
     &bag_desc_l2vpn_evpn_pl_bag,
     false,
     {{"evi", KeyText::HEX0X},
      {"esi", KeyText::STR},
      {"ethernet_tag", KeyText::HEX},
      {"pathlist_id", KeyText::HEX}},
     {0, 1, 2, 3},
     {{"evi", {0}, {{0}}}, {"evi_esi", {0, 1}, {{0, 1}}}, {"evi_esi_tag", {0, 1, 2}, {{0, 1, 2}}}}},
    // EAD routes: keys evi(0) esi(1) ethernet_tag(2) bd_name(3); one route
    // per EVI, segment and tag, its local part and remote next hops in one
    // record.
    {EVPN_PATH_EAD,
     &bag_desc_l2vpn_evpn_ead_bag,
     false,
     {{"evi", KeyText::HEX0X},
      {"esi", KeyText::STR},
      {"ethernet_tag", KeyText::HEX0X},
      {"bd_name", KeyText::STR}},
     {0, 1, 2},
     {{"evi", {0}, {{0}}},
      {"evi_esi", {0, 1}, {{0, 1}}},
      {"esi", {1}, {{1}}},
      {"bd", {3}, {{3}}},
      {"bd_esi", {3, 1}, {{3, 1}}}}},
};

}  // namespace

std::span<const ListingDef> sysdb_registry(void) { return kRegistry; }

namespace {
// Whether path is base. Most bases differ from a path in their first byte,
// so a scan of the registry costs about as much as one hash lookup, and a
// short run builds no index (a hash index of the bases took 10,000
// instructions to build for the handful of lookups such a run makes).
bool is_base(const char *base, std::string_view path) {
    for (size_t i = 0; i < path.size(); i++)
        if (base[i] == '\0' || base[i] != path[i]) return false;
    return base[path.size()] == '\0';
}
}  // namespace

const ListingDef *sysdb_registry_find(std::string_view path) {
    for (const ListingDef &l : kRegistry)
        if (!l.child && is_base(l.base, path)) return &l;
    // "<base>/<item name>/<child>", where the name names an item of base.
    for (const ListingDef &c : kRegistry) {
        if (!c.child) continue;
        const std::string_view base = c.base, child = c.child;
        if (path.size() <= base.size() + child.size() + 2 || !path.starts_with(base) ||
            path[base.size()] != '/' || !path.ends_with(child) ||
            path[path.size() - child.size() - 1] != '/')
            continue;
        std::string_view name =
            path.substr(base.size() + 1, path.size() - base.size() - child.size() - 2);
        const ListingDef *parent = sysdb_registry_find(base);
        std::string skey;
        if (parent && name.find('/') == std::string_view::npos &&
            sysdb_keys::skey_from_name(*parent, name, skey))
            return &c;
    }
    return nullptr;
}

int key_text_components(KeyText text) { return text == KeyText::MAC3 ? 3 : 1; }
