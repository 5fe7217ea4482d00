// Inclusive-multicast routes, spread over the EVIs: per Ethernet tag, this
// router's own route (10.0.0.1, as the IGMP routes have it) and one from each
// remote PE, with the EVI's label or VNI, or a SID of the PE in an SRv6 EVI.
// An EVI with more routes than one tag holds goes on to the next tag, so the
// routes come out in key order. A few are steered by SR-TE, carry snooping
// proxies or are E-Tree leaves.
#include <cstdio>
#include <cstring>

#include "gen_kinds.h"

namespace evpn {

bool gen_imcast(GenSink &sink, uint64_t n) {
    const uint32_t evis = sink.opt->evis;
    constexpr uint32_t kRoutesPerTag = 1 + kGenPeers;  // this router first
    l2vpn_evpn_imcast_bag r;
    Srv6Sid sid;
    char bd_name[24];
    uint64_t done = 0;
    for (uint32_t evi = 1; evi <= evis; evi++) {
        const uint64_t quota = gen_evi_share(n, evis, evi);
        const uint8_t encap = gen_evi_encap(evi, sink.opt->seed);
        const bool srv6 = encap == EVPN_ENCAP_SRV6;
        gen_bd_name(bd_name, sizeof bd_name, evi);
        for (uint64_t i = 0; i < quota; i++, done++) {
            const uint32_t pe = static_cast<uint32_t>(i % kRoutesPerTag);
            memset(&r, 0, sizeof r);
            r.evi = evi;
            r.encap = encap;
            r.ethernet_tag = static_cast<uint32_t>(i / kRoutesPerTag);
            if (pe == 0) {
                gen_ipv4(r.originating_ip, 0x0a000001u);  // 10.0.0.1
                r.local = 1;
            } else {
                gen_pe_address(r.originating_ip, pe, srv6);
                r.tep_id = encap == EVPN_ENCAP_VXLAN ? pe : 0;
            }
            r.nexthop = r.originating_ip;
            r.pmsi_type = 6;  // ingress replication
            if (srv6) {
                gen_srv6_sid(sid, static_cast<uint16_t>(pe + 1),
                             static_cast<uint16_t>(0xe000 + (evi & 0xfff)), 70);
                r.sids = {1, &sid};
            } else {
                r.label = gen_evi_label(encap, evi, pe);
            }
            if (pe != 0 && sink.rng.chance(5)) {
                r.sr_te_info.SR_TEType = 2;  // MPLS binding SID
                r.sr_te_info.SR_TE_BSID = 24005 + pe;
            }
            r.igmp_snooping_proxy = sink.rng.chance(10);
            r.mld_snooping_proxy = sink.rng.chance(5);
            r.proxy_resolved = r.igmp_snooping_proxy || r.mld_snooping_proxy;
            r.etree_leaf = sink.rng.chance(3);
            r.event_history.evt_class_name = const_cast<char *>("evpn-imcast");
            r.event_history_info.evt_class_name = const_cast<char *>("imcast");
            r.bd_name = bd_name;
            if (!sink.put(&r, &bag_desc_l2vpn_evpn_imcast_bag)) return false;
        }
    }
    return done == n;
}

}  // namespace evpn
