// AC IDs of VPWS EVIs: the EVIs above the MAC routes' (VPN IDs from
// evis + 1), each with up to 8 attachment circuits; about a tenth use a
// different AC ID at the remote end.
#include <cstring>

#include "gen_kinds.h"

namespace evpn {

bool gen_ac_ids(GenSink &sink, uint64_t n) {
    constexpr uint32_t kPerEvi = 8;
    l2vpn_atom_acid_bag a;
    for (uint64_t i = 0; i < n; i++) {
        memset(&a, 0, sizeof a);
        a.vpn_id = sink.opt->evis + 1 + static_cast<uint32_t>(i / kPerEvi);
        a.source_ac_id = 1 + static_cast<uint32_t>(i % kPerEvi);
        a.target_ac_id = sink.rng.chance(10) ? 100 + a.source_ac_id : a.source_ac_id;
        a.event_history.evt_class_name = const_cast<char *>("acid");
        a.event_history_info.evt_class_name = const_cast<char *>("acid-info");
        if (!sink.put(&a, &bag_desc_l2vpn_atom_acid_bag)) return false;
    }
    return true;
}

}  // namespace evpn
