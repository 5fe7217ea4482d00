// EAD routes, spread over the EVIs and in each EVI over the multi-homed
// segments: per segment a few per-EVI routes (tags 0, 1, ...) and last its
// per-segment route (the maximum tag), in key order. Four in ten are this
// router's own (with the peers that share the segment as next hops), the
// others come from one to three remote PEs; some paths are steered by SR-TE,
// carry layer-2 attributes, a grouping MAC or an MTU mismatch.
#include <cstdio>
#include <cstring>

#include "gen_kinds.h"

namespace evpn {

namespace {

constexpr uint32_t kPerSegmentTag = 0xFFFFFFFF;
constexpr uint32_t kMaxPaths = 3;
constexpr uint32_t kRouterPe = 1;  // 192.0.2.1 (2001:db8::1 with SRv6), the router ID

struct EadBuf {
    l2vpn_evpn_ead_bag r;
    EvpnPath paths[kMaxPaths];
    Srv6Sid path_sids[kMaxPaths];
    Srv6Sid local_sid;
    char esi[32], bd_name[32];
};

uint32_t mtu_mismatch[] = {4};

void remote_path(EadBuf &b, uint32_t i, uint32_t pe, uint8_t encap, uint32_t evi, bool per_evi,
                 SplitMix64 &rng) {
    EvpnPath &p = b.paths[i];
    memset(&p, 0, sizeof p);
    const bool srv6 = encap == EVPN_ENCAP_SRV6;
    gen_pe_address(p.NextHop, pe, srv6);
    p.TunnelEndpointID = pe;
    p.OutputLabel = gen_evi_label(encap, evi, pe);
    if (per_evi) p.RerouteLabel = p.OutputLabel + 1;
    if (srv6) {
        gen_srv6_sid(b.path_sids[i], uint16_t(pe + 1), uint16_t(p.OutputLabel), 63);
        p.SRv6_SIDInfo = {1, &b.path_sids[i]};
    } else if (rng.chance(5)) {
        p.SR_TEInfo.SR_TEType = 2;  // steered into an MPLS binding SID
        p.SR_TEInfo.SR_TE_BSID = 24005 + pe;
    }
    if (rng.chance(70)) {
        p.Layer2Attributes.Valid = 1;
        p.Layer2Attributes.MTU = 1500;
        p.Layer2Attributes.DesignatedForwarderRole = 1 + rng.below(2);  // primary, backup
        p.Layer2Attributes.ControlWord = 2;
    }
    if (!per_evi && rng.chance(20)) {
        p.GES_MACAddress[0] = 0x02;
        p.GES_MACAddress[4] = uint8_t(pe);
        p.GES_MACAddress[5] = uint8_t(evi);
    }
    if (rng.chance(2)) p.Issues = {1, mtu_mismatch};
    p.OriginatingPE = p.NextHop;
    p.PathVerion = 1;
}

}  // namespace

bool gen_ead(GenSink &sink, uint64_t n) {
    const uint32_t evis = sink.opt->evis;
    EadBuf b{};
    uint64_t done = 0;
    for (uint32_t evi = 1; evi <= evis; evi++) {
        const uint64_t quota = gen_evi_share(n, evis, evi);
        const uint8_t encap = gen_evi_encap(evi, sink.opt->seed);
        const bool srv6 = encap == EVPN_ENCAP_SRV6;
        gen_bd_name(b.bd_name, sizeof b.bd_name, evi);
        for (uint32_t segment = 0; segment < kGenSegments; segment++) {
            const uint64_t routes = quota / kGenSegments + (segment < quota % kGenSegments ? 1 : 0);
            gen_segment_esi(b.esi, sizeof b.esi, segment);
            for (uint64_t t = 0; t < routes; t++, done++) {
                l2vpn_evpn_ead_bag &r = b.r;
                memset(&r, 0, sizeof r);
                const bool per_evi = t + 1 < routes;
                r.evi = evi;
                r.encap = encap;
                r.esi = b.esi;
                r.ethernet_tag = per_evi ? static_cast<uint32_t>(t) : kPerSegmentTag;
                r.bd_name = b.bd_name;
                r.local = sink.rng.chance(40);
                // Next hops: the peers on the segment, or the remote PEs of a remote one.
                const uint32_t roll = sink.rng.below(100);
                uint32_t paths = roll < 55 ? 1 : roll < 90 ? 2 : 3;
                if (r.local && sink.rng.chance(30)) paths = 0;
                const uint32_t first = sink.rng.below(kGenPeers - 1);
                for (uint32_t i = 0; i < paths; i++)
                    remote_path(b, i, 2 + (first + i) % (kGenPeers - 1), encap, evi, per_evi,
                                sink.rng);
                r.path_buffer = {paths, paths ? b.paths : nullptr};
                if (r.local) {
                    gen_pe_address(r.local_nexthop, kRouterPe, srv6);
                    r.local_label = gen_evi_label(encap, evi, 0);
                    if (per_evi) r.local_frr_label = r.local_label + 1;
                    if (srv6) {
                        gen_srv6_sid(b.local_sid, 1, uint16_t(r.local_label), 63);
                        r.local_sids = {1, &b.local_sid};
                    }
                    r.local_l2_attributes = {1, 1500, 1, 2};
                }
                if (!per_evi) {
                    r.remote_single_active = sink.rng.chance(15);
                    r.remote_single_flow_active = !r.remote_single_active && sink.rng.chance(5);
                }
                r.registered_with_tep = paths != 0;
                r.event_history.evt_class_name = const_cast<char *>("evpn-ead");
                r.event_history_info.evt_class_name = const_cast<char *>("ead-info");
                if (!sink.put(&r, &bag_desc_l2vpn_evpn_ead_bag)) return false;
            }
        }
    }
    return done == n;
}

}  // namespace evpn
