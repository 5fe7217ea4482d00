// Writes the collector benchmark's BMP stream: N MAC/IP routes (type 2) from
// one monitored peer, one route per Route Monitoring message as gobgpd and
// FRR send them, spread over E EVIs, the EVIs taken in turn. --pack K puts K
// routes of one EVI (one attribute set) in each UPDATE instead, an EVI's
// routes together, as a BGP speaker packs them. --bgp writes the UPDATEs
// alone, for a BGP speaker to feed a router the same routes.
//
//   bench_bmp_macs N E FIRST_EVI PEER OUT [--bgp] [--pack K]
//
// PEER (1-250) sets the peer's address 10.254.0.PEER, its RDs and next hop,
// so that two streams of distinct peers and EVI ranges do not overlap.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "evpn_bmp/bmp_encode.h"

namespace bmp = evpn::bmp;

int main(int argc, char **argv) {
    if (argc < 6) {
        fprintf(stderr, "usage: bench_bmp_macs N EVIS FIRST_EVI PEER OUT [--bgp] [--pack K]\n");
        return 2;
    }
    const uint64_t n = strtoull(argv[1], nullptr, 10);
    const uint32_t evis = uint32_t(strtoul(argv[2], nullptr, 10)), first = uint32_t(strtoul(argv[3], nullptr, 10));
    const uint8_t pe = uint8_t(strtoul(argv[4], nullptr, 10));
    bool bgp_only = false;
    uint64_t per_update = 0;  // 0: one route a message, EVIs in turn
    for (int i = 6; i < argc; i++) {
        if (strcmp(argv[i], "--bgp") == 0) {
            bgp_only = true;
        } else if (strcmp(argv[i], "--pack") == 0 && i + 1 < argc) {
            per_update = strtoull(argv[++i], nullptr, 10);
            if (per_update == 0) {
                fprintf(stderr, "bench_bmp_macs: --pack takes a count of at least 1\n");
                return 2;
            }
        } else {
            fprintf(stderr, "bench_bmp_macs: unknown or incomplete option %s\n", argv[i]);
            return 2;
        }
    }
    if (evis == 0) {
        fprintf(stderr, "bench_bmp_macs: EVIS must be at least 1\n");
        return 2;
    }
    FILE *out = fopen(argv[5], "wb");
    if (!out) {
        perror(argv[5]);
        return 1;
    }
    bmp::PeerHeader peer;
    peer.address.len = 4;
    peer.address.b = {10, 254, 0, pe};
    peer.as = 65000;
    peer.bgp_id = 0x0afe0000u | pe;
    bmp::Encoder e;
    e.initiation("bench", "collector benchmark stream");
    bmp::PeerUp up;
    up.local_address.len = 4;
    up.local_address.b = {10, 254, 1, pe};
    up.sent_open_as = up.received_open_as = 65000;
    e.peer_up(peer, up);
    if (bgp_only) e.bytes().clear();
    bmp::EvpnNlri r;
    r.route_type = 2;
    r.label_count = 1;
    r.ip.len = 4;
    bmp::RouteAttrs a;
    a.has_origin = true;
    a.next_hop.len = 4;
    a.next_hop.b = {10, 254, 2, pe};
    a.has_encap = true;
    a.encap = 8;  // VXLAN
    a.route_targets.resize(1);
    // Route i of the set: EVI first + i % evis, host i / evis.
    const auto route = [&](uint64_t i, bmp::EvpnNlri &nlri) {
        const uint32_t evi = first + uint32_t(i % evis);
        const uint64_t host = i / evis;
        nlri = r;
        nlri.rd = {0, 1, 10, 254, 2, pe, uint8_t(evi >> 8), uint8_t(evi)};
        nlri.mac = {0x02, pe, uint8_t(evi >> 8), uint8_t(evi), uint8_t(host >> 8), uint8_t(host)};
        nlri.ip.b = {10, uint8_t(evi >> 8), uint8_t(evi), uint8_t(host)};
        nlri.label[0] = 10000 + evi;
        a.route_targets[0] = 0x0002fde800000000ull | evi;  // 65000:EVI
    };
    const auto flush = [&](size_t at_least) {
        if (e.bytes().size() < at_least) return true;
        const bool ok = fwrite(e.bytes().data(), 1, e.bytes().size(), out) == e.bytes().size();
        e.bytes().clear();
        return ok;
    };
    // Appends one message of routes; in --bgp, drops the BMP common and
    // per-peer headers: the UPDATE is left. An UPDATE stays within BGP's 4096
    // bytes with room for the LOCAL_PREF (7 bytes) that scripts/bgp-feed adds.
    constexpr size_t bmp_headers = 6 + 42;
    const auto emit = [&](std::span<const bmp::EvpnNlri> routes) {
        auto &b = e.bytes();
        const size_t before = b.size();
        e.route_monitoring(peer, routes, a, {});
        if (b.size() - before - bmp_headers > 4096 - 7) {
            fprintf(stderr, "bench_bmp_macs: %zu routes do not fit in one UPDATE\n", routes.size());
            return false;
        }
        if (bgp_only) b.erase(b.begin() + long(before), b.begin() + long(before + bmp_headers));
        return flush(1u << 20);
    };
    if (per_update == 0) {
        bmp::EvpnNlri one;
        for (uint64_t i = 0; i < n; i++) {
            route(i, one);
            if (!emit({&one, 1})) return 1;
        }
    } else {
        std::vector<bmp::EvpnNlri> batch(per_update);
        for (uint64_t j = 0; j < evis && j < n; j++) {
            size_t k = 0;
            for (uint64_t i = j; i < n; i += evis) {
                route(i, batch[k++]);
                if (k == per_update) {
                    if (!emit({batch.data(), k})) return 1;
                    k = 0;
                }
            }
            if (k && !emit({batch.data(), k})) return 1;
        }
    }
    if (!flush(0) || fclose(out) != 0) {
        perror(argv[5]);
        return 1;
    }
    return 0;
}
