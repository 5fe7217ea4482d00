// Neighbors, spread over the EVIs: the remote PEs of each EVI, numbered from
// 1 (192.0.2.<n> and on, or 2001:db8::<n> in an SRv6 EVI), so the records
// come out in key order. One in five serves leaf EVIs, one to eight of them,
// enough for the Leaf EVIs column to wrap.
#include <cstdio>
#include <cstring>

#include "gen_kinds.h"

namespace evpn {

bool gen_neighbors(GenSink &sink, uint64_t n) {
    const uint32_t evis = sink.opt->evis;
    constexpr uint32_t kMaxLeafEvis = 8;
    l2vpn_evpn_neighbor_bag r;
    uint32_t leaf_evis[kMaxLeafEvis];
    char bd_name[24];
    uint64_t done = 0;
    for (uint32_t evi = 1; evi <= evis; evi++) {
        const uint64_t quota = gen_evi_share(n, evis, evi);
        const uint8_t encap = gen_evi_encap(evi, sink.opt->seed);
        gen_bd_name(bd_name, sizeof bd_name, evi);
        for (uint64_t i = 0; i < quota; i++, done++) {
            const uint32_t pe = static_cast<uint32_t>(i + 1);
            memset(&r, 0, sizeof r);
            r.evi = evi;
            r.encap = encap;
            if (encap == EVPN_ENCAP_SRV6) gen_ipv6(r.neighbor, 0x2001, 0xdb8, 0, 0, pe);
            else gen_ipv4(r.neighbor, 0xc0000200u + pe);  // past 192.0.2.255 into 192.0.3/24
            if (sink.rng.chance(20)) {
                const uint32_t count = 1 + sink.rng.below(kMaxLeafEvis);
                for (uint32_t k = 0; k < count; k++) leaf_evis[k] = 1 + sink.rng.below(100000);
                r.leaf_evi_list = {count, leaf_evis};
            }
            r.event_history.evt_class_name = const_cast<char *>("evpn-neighbor");
            r.event_history_info.evt_class_name = const_cast<char *>("neighbor");
            r.bd_name = bd_name;
            if (!sink.put(&r, &bag_desc_l2vpn_evpn_neighbor_bag)) return false;
        }
    }
    return done == n;
}

}  // namespace evpn
