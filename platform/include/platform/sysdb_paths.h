// Base paths of the EVPN operational data below a bound root, named once for
// the store's registry, the show client, the tools and the tests. A listing
// is read at "<base>", filtered through one of its indices at
// "<base>-<index>/<keys>"; an item is "<base>/<item name>", or "<base>" for a
// listing of one item. The registry (sysdb_registry.cpp) gives each base its
// record type, keys and index names.
#pragma once

#define EVPN_PATH_MAC "evpn_evi_detail/evi_child_container/evpn_mac"
#define EVPN_PATH_IMCAST "evpn_evi_detail/evi_child_container/evpn_imcast"
#define EVPN_PATH_NEIGHBOR "evpn_evi_detail/evi_child_container/evpn_neighbor"
#define EVPN_PATH_EAD "evpn_evi_detail/evi_child_container/evpn_ead"
#define EVPN_PATH_EVI_RT "evpn_evi_detail/evi_child_container/evi_route_targets"
#define EVPN_PATH_PATHLIST "evpn_label_detail/label_child_container/evpn_pl"
#define EVPN_PATH_LABEL "evpn_label"
#define EVPN_PATH_LABEL_DETAIL "evpn_label_detail"
#define EVPN_PATH_INTERNAL_ID "evpn_internal_id"
#define EVPN_PATH_INTERNAL_ID_DETAIL "evpn_internal_id_detail"
#define EVPN_PATH_ES "ethernet_segment"
#define EVPN_PATH_RD "rd_private"
#define EVPN_PATH_EVI "evpn_evi"
#define EVPN_PATH_EVI_DETAIL "evpn_evi_detail/detailed_elements"
#define EVPN_PATH_SUMMARY "summary"
#define EVPN_PATH_ACID "evpn_atom_acid"
#define EVPN_PATH_REMOTE_SHG "remote_shg"
#define EVPN_PATH_IGMP "igmp"
#define EVPN_PATH_CLIENT "client"
#define EVPN_PATH_GROUP "evpn_grp"
#define EVPN_PATH_TEP "tep"  // "tep/<id>/info", "tep/<id>/notification"
#define EVPN_PATH_SRV6 "srv6"
#define EVPN_PATH_GES_MAP "ges-map"

// Every base above, for tests that hold the paths the client builds to them.
#define EVPN_PATHS(X)                                                           \
    X(EVPN_PATH_MAC) X(EVPN_PATH_IMCAST) X(EVPN_PATH_NEIGHBOR) X(EVPN_PATH_EAD) \
    X(EVPN_PATH_EVI_RT) X(EVPN_PATH_PATHLIST) X(EVPN_PATH_LABEL)                \
    X(EVPN_PATH_LABEL_DETAIL) X(EVPN_PATH_INTERNAL_ID)                          \
    X(EVPN_PATH_INTERNAL_ID_DETAIL) X(EVPN_PATH_ES) X(EVPN_PATH_RD)             \
    X(EVPN_PATH_EVI) X(EVPN_PATH_EVI_DETAIL) X(EVPN_PATH_SUMMARY)               \
    X(EVPN_PATH_ACID) X(EVPN_PATH_REMOTE_SHG) X(EVPN_PATH_IGMP)                 \
    X(EVPN_PATH_CLIENT) X(EVPN_PATH_GROUP) X(EVPN_PATH_TEP) X(EVPN_PATH_SRV6)   \
    X(EVPN_PATH_GES_MAP)
