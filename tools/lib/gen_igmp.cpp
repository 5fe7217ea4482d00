// IGMP/MLD routes, spread over the EVIs: joins of groups 239.x.y.z, a third
// of them source-specific (IGMPv3), from local bundle subinterfaces of the
// multi-homed segments or from remote PEs; some leaves and proxies.
#include <cstdio>
#include <cstring>

#include "gen_kinds.h"

namespace evpn {

bool gen_igmp(GenSink &sink, uint64_t n) {
    const uint32_t evis = sink.opt->evis;
    l2vpn_evpn_igmp_bag r;
    char esi[32], ifname[32];
    uint64_t done = 0;
    for (uint32_t evi = 1; evi <= evis; evi++) {
        uint64_t quota = gen_evi_share(n, evis, evi);
        uint32_t segment = evi % kGenSegments;
        gen_segment_esi(esi, sizeof esi, segment);
        for (uint64_t g = 0; g < quota; g++, done++) {
            memset(&r, 0, sizeof r);
            r.evi = evi;
            r.esi_text = esi;
            uint32_t p = sink.rng.below(100);
            r.route_type = p < 80 ? 0 : p < 90 ? 1 : 2;  // JOIN, LEAVE, PROXY
            r.igmp_version = sink.rng.chance(33) ? 2 : 1;
            if (r.igmp_version == 2) {
                r.filter_mode = sink.rng.below(2);
                gen_ipv4(r.source, 0x0a640000u + sink.rng.below(65536));  // 10.100/16
            }
            gen_ipv4(r.group, 0xef000000u + static_cast<uint32_t>(g + 1));  // 239/8
            r.source_is_remote = sink.rng.chance(60);
            if (r.source_is_remote) {
                uint32_t pe = 1 + sink.rng.below(kGenPeers);
                gen_ipv4(r.originating_ip, 0xc0000200u + pe);
                r.route_source.address = r.originating_ip;
            } else {
                gen_ipv4(r.originating_ip, 0x0a000001u);
                snprintf(ifname, sizeof ifname, "bond%u.%u", segment + 1, evi);
                r.route_source.interface_name = ifname;
            }
            r.resolved = !sink.rng.chance(3);
            r.max_response_time = r.route_type == 1 ? 10 : 0;
            r.tep_id = r.route_type == 2 ? 1 + sink.rng.below(kGenPeers) : 0;
            r.bd_or_vrf_id = evi;
            r.bp_xcid_or_subif_ifh = 0xa0000000u + evi % 4096;
            r.event_history.evt_class_name = const_cast<char *>("igmp");
            r.event_history_info.evt_class_name = const_cast<char *>("igmp-info");
            if (!sink.put(&r, &bag_desc_l2vpn_evpn_igmp_bag)) return false;
        }
    }
    return done == n;
}

}  // namespace evpn
