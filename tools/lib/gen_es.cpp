// Ethernet segments: bundles bond1, bond2, ... each multi-homed with this
// router and one remote PE, all-active or single-active. Half use manual
// service carving with a configured primary list of EVIs in runs; the others
// carve automatically and list the EVIs they won and lost. One segment in a
// hundred carries 4,000 EVIs, the others 1 to 16.
#include <cstdio>
#include <cstring>
#include <vector>

#include "gen_kinds.h"

namespace evpn {

namespace {

constexpr uint32_t kLargeList = 4000;
constexpr uint32_t kSmallListMax = 16;

// Ascending EVIs from 1, mostly consecutive so that the lists fall into runs.
void fill_evis(std::vector<uint32_t> &out, uint32_t count, SplitMix64 &rng) {
    out.resize(count);
    uint32_t evi = 0;
    for (uint32_t i = 0; i < count; i++) {
        evi += rng.chance(75) ? 1 : 2 + rng.below(2);
        out[i] = evi;
    }
}

}  // namespace

bool gen_es(GenSink &sink, uint64_t n) {
    l2vpn_evpn_es_bag es;
    l2vpn_evpn_es_nexthop peers[2];
    std::vector<uint32_t> evis, secondary;
    std::vector<l2vpn_evpn_es_id_entry> won, lost;
    evis.reserve(kLargeList), secondary.reserve(kLargeList);
    won.reserve(kLargeList), lost.reserve(kLargeList);
    char esi[32], name[32], gates[4] = "", sysid[16] = "0000.0000.0000";
    for (uint64_t i = 0; i < n; i++) {
        memset(&es, 0, sizeof es);
        memset(peers, 0, sizeof peers);
        const uint32_t id = static_cast<uint32_t>(i);
        if (id < kGenSegments)
            gen_segment_esi(esi, sizeof esi, id);
        else
            snprintf(esi, sizeof esi, "0011.2234.%04x.%04x.0001", (id >> 16) & 0xffff, id & 0xffff);
        snprintf(name, sizeof name, "bond%u", id + 1);
        es.esi_text = esi, es.esi_id = id + 1, es.esi_type = 0, es.system_id = sysid;
        es.name = name, es.key_ifname = name, es.ifhandle = 0x20000u + id;
        es.bgp_gates = gates, es.l2fib_gates = gates;
        const bool single = sink.rng.chance(30);
        es.state = single && sink.rng.chance(50) ? 4 : 2;
        es.redundancy = es.state == 4 ? 2 : 1;
        es.configured_topology = es.operational_topology = single ? 3 : 2;
        es.import_rt_origin = 1, es.source_mac_origin = 4;
        memcpy(es.import_rt, "\x00\x11\x22\x33\x44\x55", 6);
        es.interface_mac[0] = 0x00, es.interface_mac[1] = 0x8a, es.interface_mac[5] = id & 0xff;
        memcpy(es.source_mac, es.interface_mac, 6);
        es.mac_flush_mode = 1, es.carving_sync_mode = 1, es.mcast_carving_mode = 0;
        es.peering_timer = 3, es.recovery_timer = 30, es.carving_timer = 3;
        es.ac_debounce_timer = 3000, es.hrw_reset_timer = 60;
        es.conv_mac_mobility = 1;
        es.mobility_flush_debounce = 1;

        gen_ipv4(peers[0].address, 0x0a000001u);  // this router
        const uint32_t pe = 1 + sink.rng.below(kGenPeers);
        gen_pe_address(peers[1].address, pe, false);
        for (auto &p : peers) p.nh_up = 1, p.time_sync = 1;
        peers[0].sct_usec = 1700730004500000ull;
        es.nexthops = {2, peers};

        const uint32_t size = sink.rng.chance(1) ? kLargeList : 1 + sink.rng.below(kSmallListMax);
        fill_evis(evis, size, sink.rng);
        if (sink.rng.chance(50)) {
            es.carving_mode = 2;  // manual
            secondary.assign(evis.begin(), evis.begin() + (size + 3) / 4);
            es.manual_primary = {size, evis.data()};
            es.manual_secondary = {static_cast<uint32_t>(secondary.size()), secondary.data()};
            es.elected_count = size, es.not_elected_count = static_cast<uint32_t>(secondary.size());
        } else {
            es.carving_mode = sink.rng.chance(50) ? 1 : 4;  // auto-selection or HRW
            won.clear(), lost.clear();
            for (uint32_t e : evis) (e % 2 ? won : lost).push_back({e, 0});
            es.elected_evis = {static_cast<uint32_t>(won.size()), won.data()};
            es.not_elected_evis = {static_cast<uint32_t>(lost.size()), lost.data()};
            es.elected_count = static_cast<uint32_t>(won.size());
            es.not_elected_count = static_cast<uint32_t>(lost.size());
        }
        sink.list_entries += size + es.manual_secondary.count;
        es.forwarder_count = size;
        es.local_label_valid = 1, es.local_label = 24000 + id % 1000000;
        es.access_signal_mode = 1;
        es.num_evis = size;
        es.event_history.evt_class_name = const_cast<char *>("evpn-es");
        es.event_history_info.evt_class_name = const_cast<char *>("es-info");
        if (!sink.put(&es, &bag_desc_l2vpn_evpn_es_bag)) return false;
    }
    return true;
}

}  // namespace evpn
