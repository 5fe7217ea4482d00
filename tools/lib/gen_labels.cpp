// Label entries of the detailed listing, spread over the EVIs in key order:
// first the single-path entries of the remote PEs (zero ESI), then the
// multi-path entries of the multi-homed segments, each Ethernet tag in turn
// when an EVI holds more entries than PEs and segments. A multi-path entry
// has two paths in each path set, primary and backup; SRv6 EVIs carry SIDs.
#include <cstring>

#include "gen_kinds.h"

namespace evpn {
namespace {

constexpr uint32_t kPerTag = kGenPeers + kGenSegments;

struct LabelBuffers {
    l2vpn_evpn_label_bag r;
    EvpnPath paths[2];
    Srv6Sid sids[2];
    char esi[32];
};

void fill_path(EvpnPath &p, Srv6Sid &sid, uint32_t pe, uint8_t encap, uint32_t evi, uint32_t role) {
    memset(&p, 0, sizeof p);
    const bool srv6 = encap == EVPN_ENCAP_SRV6;
    gen_pe_address(p.NextHop, pe, srv6);
    p.OriginatingPE = p.NextHop;
    p.TunnelEndpointID = 0x10000u + pe;
    p.OutputLabel = gen_evi_label(encap, evi, pe);
    p.Layer2Attributes.Valid = 1;
    p.Layer2Attributes.MTU = 1500;
    p.Layer2Attributes.DesignatedForwarderRole = role;
    p.PathVerion = 1;
    if (srv6) {
        gen_srv6_sid(sid, uint16_t(pe), uint16_t(p.OutputLabel), 63);
        p.SRv6_SIDInfo = {1, &sid};
    }
}

}  // namespace

bool gen_labels(GenSink &sink, uint64_t n) {
    const uint32_t evis = sink.opt->evis;
    LabelBuffers b;
    uint64_t done = 0;
    for (uint32_t evi = 1; evi <= evis; evi++) {
        const uint64_t quota = gen_evi_share(n, evis, evi);
        const uint8_t encap = gen_evi_encap(evi, sink.opt->seed);
        const uint64_t tags = (quota + kPerTag - 1) / kPerTag;
        for (uint64_t k = 0; k < quota; k++, done++) {
            // Key order: the zero ESI's entries by tag and PE, then each segment's by tag.
            const uint64_t singles = tags * kGenPeers;
            const bool single = k < singles;
            const uint32_t tag = static_cast<uint32_t>(single ? k / kGenPeers : (k - singles) % tags);
            l2vpn_evpn_label_bag &r = b.r;
            memset(&r, 0, sizeof r);
            r.evi = evi;
            r.encap = encap;
            r.ethernet_tag = tag;
            r.label = gen_evi_label(encap, evi, 0) + static_cast<uint32_t>(k % 1000);
            r.internal_id = 0x100000u + static_cast<uint32_t>(done & 0xfffff);
            r.locator_format.type = encap == EVPN_ENCAP_SRV6 ? 2 : 0;
            r.local_cw = 2, r.local_cw_set = 1;
            r.local_mtu = 1500, r.local_mtu_set = 1;
            r.resolved = !sink.rng.chance(3);
            r.unresolved_reason = r.resolved ? 0 : 1 + sink.rng.below(4);
            r.event_history.evt_class_name = const_cast<char *>("evpn-label");
            r.event_history_info.evt_class_name = const_cast<char *>("label-info");
            r.next_path_version = 2;
            if (single) {
                const uint32_t pe = 1 + static_cast<uint32_t>(k % kGenPeers);
                r.id_type = 1;
                r.esi = const_cast<char *>(kGenZeroEsi);
                fill_path(b.paths[0], b.sids[0], pe, encap, evi, 0);
                r.nexthop = b.paths[0].NextHop;
                r.mac_paths = {1, b.paths};
                r.summary_pathlist = {1, b.paths};
            } else {
                const uint32_t segment = static_cast<uint32_t>((k - singles) / tags);
                gen_segment_esi(b.esi, sizeof b.esi, segment);
                r.esi = b.esi;
                const uint32_t pe = 1 + segment * 2 % kGenPeers;
                fill_path(b.paths[0], b.sids[0], pe, encap, evi, 1);
                fill_path(b.paths[1], b.sids[1], pe + 1, encap, evi, 2);
                r.alternate_label = sink.rng.chance(10) ? r.label + 1 : 0;
                r.num_ead_objects = 2;
                r.mac_paths = r.ead_es_paths = r.ead_evi_paths = r.union_paths = {2, b.paths};
                r.summary_pathlist = {2, b.paths};
                r.alternate_pathlist = {1, b.paths + 1};
                r.all_active_mode = sink.rng.below(5);
            }
            if (!sink.put(&r, &bag_desc_l2vpn_evpn_label_bag)) return false;
        }
    }
    return done == n;
}

}  // namespace evpn
