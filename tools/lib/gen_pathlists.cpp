// Pathlists of the label entries, spread over the EVIs in key order: those
// of the single-path entries (zero ESI, one path each), then those of the
// multi-homed segments (two paths), numbered within their EVI, segment and
// tag; each carries a few of the MAC routes linked to it.
#include <cstring>

#include "gen_kinds.h"

namespace evpn {
namespace {

constexpr uint32_t kPerEsi = 8;  // pathlists of one EVI, segment and tag
constexpr uint32_t kObjects = 4;

}  // namespace

bool gen_pathlists(GenSink &sink, uint64_t n) {
    const uint32_t evis = sink.opt->evis;
    l2vpn_evpn_pl_bag r;
    EvpnPath paths[2];
    l2vpn_evpn_pl_linked_object objects[kObjects];
    char esi[32];
    uint64_t done = 0;
    for (uint32_t evi = 1; evi <= evis; evi++) {
        const uint64_t quota = gen_evi_share(n, evis, evi);
        const uint8_t encap = gen_evi_encap(evi, sink.opt->seed);
        const bool srv6 = encap == EVPN_ENCAP_SRV6;
        for (uint64_t k = 0; k < quota; k++, done++) {
            // ESI 0 (k / kPerEsi == 0) first, then segment 0, 1, ...; tags beyond.
            const uint64_t group = k / kPerEsi;
            const uint32_t esi_slot = static_cast<uint32_t>(group % (kGenSegments + 1));
            memset(&r, 0, sizeof r);
            r.evi = evi;
            r.encap = encap;
            r.ethernet_tag = static_cast<uint32_t>(group / (kGenSegments + 1));
            r.pathlist_id = 1 + static_cast<uint32_t>(k % kPerEsi);
            const uint32_t npaths = esi_slot == 0 ? 1 : 2;
            if (esi_slot == 0) {
                r.esi = const_cast<char *>(kGenZeroEsi);
            } else {
                gen_segment_esi(esi, sizeof esi, esi_slot - 1);
                r.esi = esi;
            }
            for (uint32_t i = 0; i < npaths; i++) {
                const uint32_t pe = 1 + (r.pathlist_id * 2 + esi_slot + i) % kGenPeers;
                memset(&paths[i], 0, sizeof paths[i]);
                gen_pe_address(paths[i].NextHop, pe, srv6);
                paths[i].OutputLabel = gen_evi_label(encap, evi, pe);
            }
            r.paths = {npaths, paths};
            const uint32_t carried = sink.rng.below(kObjects + 1);
            r.num_objects_linked = carried + (sink.rng.chance(10) ? 100 : 0);
            for (uint32_t i = 0; i < carried; i++) {
                l2vpn_evpn_pl_linked_object &o = objects[i];
                memset(&o, 0, sizeof o);
                const uint32_t host = static_cast<uint32_t>(k * kObjects + i);
                const uint8_t mac[6] = {0x00, 0x11, uint8_t(evi >> 8), uint8_t(evi), uint8_t(host >> 8),
                                        uint8_t(host)};
                memcpy(o.mac, mac, sizeof mac);
                gen_ipv4(o.ip, 0x0a000000u + ((evi & 0xff) << 16) + (host & 0xffff));
            }
            r.linked_objects = {carried, objects};
            r.event_history.evt_class_name = const_cast<char *>("evpn-pl");
            r.event_history_info.evt_class_name = const_cast<char *>("pl-info");
            if (!sink.put(&r, &bag_desc_l2vpn_evpn_pl_bag)) return false;
        }
    }
    return done == n;
}

}  // namespace evpn
