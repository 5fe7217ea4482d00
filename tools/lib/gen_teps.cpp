// Tunnel endpoints: one per remote next hop, numbered from 1. Most are VXLAN
// endpoints (UDP port 4789), the rest MPLS or IP-reach endpoints; a few are
// registered with the layer-3 FIB but not reachable.
#include <cstring>

#include "gen_kinds.h"

namespace evpn {

bool gen_teps(GenSink &sink, uint64_t n) {
    const uint32_t evis = sink.opt->evis;
    l2vpn_evpn_tep_bag t;
    for (uint64_t i = 0; i < n; i++) {
        memset(&t, 0, sizeof t);
        t.tep_id = static_cast<uint32_t>(i + 1);
        uint32_t evi = 1 + static_cast<uint32_t>(i % evis);
        uint32_t p = sink.rng.below(100);
        t.tep_type = p < 60 ? 3 : p < 85 ? 2 : 6;  // VXLAN, MPLS, IP-Reach
        gen_ipv4(t.local_nexthop, 0x0a000001u);    // 10.0.0.1
        // Remote next hops beyond the 64 peers of the MAC routes: 198.18/15.
        gen_ipv4(t.remote_nexthop, 0xc6120000u + static_cast<uint32_t>(i + 1));
        if (sink.rng.chance(50)) {
            t.local_vpn_id = evi;
            t.local_encap = gen_evi_encap(evi, sink.opt->seed);
        } else {
            t.remote_vpn_id = evi;
            t.remote_encap = gen_evi_encap(evi, sink.opt->seed);
        }
        t.in_use_count = 1 + sink.rng.below(8);
        t.vrf_name = const_cast<char *>("default");
        t.vrf_table_id = 0xe0000000u;
        t.udp_port = t.tep_type == 3 ? 4789 : 0;
        t.l3fib_registered = 1;
        t.l3fib_reachable = !sink.rng.chance(5);
        t.event_history.evt_class_name = const_cast<char *>("tep");
        t.event_history_info.evt_class_name = const_cast<char *>("tep-info");
        if (!sink.put(&t, &bag_desc_l2vpn_evpn_tep_bag)) return false;
    }
    return true;
}

}  // namespace evpn
