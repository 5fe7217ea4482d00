// The replay stream's routes. Every route is a function of (seed, route
// type, UPDATE number, place in the UPDATE), so the withdraws rebuild the
// very routes that were announced without keeping them.
//
// Shape: peer p is the PE 10.255.x.y with router ID equal to its address, in
// AS 65000. An UPDATE carries routes of one peer and one EVI; its RD is the
// peer's router ID and the EVI, its route target 65000:EVI. Odd EVIs are
// VXLAN (the label field is the VNI, 10000 + EVI), even ones MPLS (label
// 16000 + EVI).
#include "evpn_bmp/bmp_gen.h"

#include <vector>

#include "evpn_bmp/bmp_encode.h"

namespace evpn::bmp {
namespace {

constexpr uint32_t kAs = 65000;
constexpr size_t kChunk = 64 * 1024;

uint64_t mix(uint64_t x) {  // splitmix64's finaliser
    x += 0x9e3779b97f4a7c15ull;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ull;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebull;
    return x ^ (x >> 31);
}

struct Rng {
    uint64_t s;
    uint64_t next() { return s = mix(s); }
    uint32_t below(uint32_t n) { return uint32_t(next() % n); }
};

IpAddr v4(uint32_t a) {
    IpAddr ip;
    ip.len = 4;
    ip.b[0] = uint8_t(a >> 24), ip.b[1] = uint8_t(a >> 16), ip.b[2] = uint8_t(a >> 8), ip.b[3] = uint8_t(a);
    return ip;
}

uint32_t peer_address(uint32_t p) { return 0x0aff0000u + p + 1; }  // 10.255.0.1 on

PeerHeader peer_header(uint32_t p) {
    PeerHeader h;
    h.address = v4(peer_address(p));
    h.as = kAs;
    h.bgp_id = peer_address(p);
    h.ts_sec = 1767225600;  // 2026-01-01
    return h;
}

Rd make_rd(uint32_t router_id, uint32_t evi) {  // type 1: IPv4 address, 2-octet number
    return {0, 1, uint8_t(router_id >> 24), uint8_t(router_id >> 16), uint8_t(router_id >> 8),
            uint8_t(router_id), uint8_t(evi >> 8), uint8_t(evi)};
}

Esi make_esi(uint64_t n) {  // type 0, an operator's arbitrary value
    Esi e{};
    e[1] = 0x11, e[2] = 0x22;
    for (int i = 0; i < 7; i++) e[9 - i] = uint8_t(n >> (8 * i));
    return e;
}

bool vxlan(uint32_t evi) { return evi & 1; }
uint32_t evi_label(uint32_t evi) { return vxlan(evi) ? 10000 + evi : (16000 + evi) << 4 | 1; }
uint32_t l3_label(uint32_t evi) { return vxlan(evi) ? 50000 + evi : (48000 + evi) << 4 | 1; }

class Generator {
  public:
    Generator(const GenBmpOptions &opt, const GenBmpSink &sink, GenBmpCounts &counts)
        : opt_(opt), sink_(sink), counts_(counts) {
        if (opt_.peers == 0) opt_.peers = 1;
        if (opt_.evis == 0) opt_.evis = 1;
        if (opt_.routes_per_update == 0) opt_.routes_per_update = 1;
        evi_shift_ = mix(opt_.seed) % opt_.evis;
        host_mask_ = uint32_t(mix(opt_.seed + 1)) & 0x00ffffffu;
    }

    bool run() {
        enc_.initiation("pe-monitor", "replayed EVPN routes");
        counts_.messages++;
        for (uint32_t p = 0; p < opt_.peers; p++) {
            PeerUp up;
            up.local_address = v4(0x0afffffe);  // the monitored router, 10.255.255.254
            up.local_port = 179;
            up.remote_port = uint16_t(30000 + p % 30000);
            up.sent_open_as = up.received_open_as = kAs;
            up.four_octet_as = true;
            enc_.peer_up(peer_header(p), up);
            counts_.messages++;
        }
        for (int pass = 0; pass < (opt_.withdraw ? 2 : 1); pass++)
            for (uint8_t type = 1; type <= 5; type++)
                if (!routes(type, pass == 1)) return false;
        for (uint32_t p = 0; p < opt_.peers; p++) {
            const StatEntry stats[] = {{0, 0}, {7, per_peer_routes()}, {8, per_peer_routes()}};
            enc_.statistics(peer_header(p), stats);
            counts_.messages++;
        }
        return flush(true);
    }

  private:
    uint64_t per_peer_routes() const { return opt_.routes * 5 / opt_.peers; }

    bool routes(uint8_t type, bool withdraw) {
        const uint32_t per = (type == 3 || type == 4) ? 1 : opt_.routes_per_update;
        for (uint64_t i = 0, c = 0; i < opt_.routes; c++) {
            const uint32_t n = uint32_t(std::min<uint64_t>(per, opt_.routes - i));
            const uint32_t p = uint32_t(c % opt_.peers);
            build(type, c, i, n, p);
            if (withdraw) {
                enc_.route_monitoring(peer_header(p), {}, no_attrs_, batch_);
                counts_.withdrawn += n;
            } else {
                enc_.route_monitoring(peer_header(p), batch_, attrs_, {});
                counts_.announced += n;
            }
            counts_.messages++;
            i += n;
            if (!flush(false)) return false;
        }
        return true;
    }

    // UPDATE c of a type: routes first..first+n-1 of peer p. Keys are unique
    // per type: what varies within an UPDATE is its routes' slot, and UPDATEs
    // of the same peer and EVI differ in `round`.
    void build(uint8_t type, uint64_t c, uint64_t first, uint32_t n, uint32_t p) {
        Rng rng{mix(opt_.seed ^ mix(type * 0x100000001ull + c))};
        const uint64_t pe = uint64_t(opt_.peers) * opt_.evis;
        const uint32_t evi = 1 + uint32_t((c / opt_.peers + evi_shift_) % opt_.evis);
        const uint64_t round = c / pe;
        const uint32_t id = peer_address(p);

        attrs_.clear();
        attrs_.has_origin = true;
        attrs_.next_hop = v4(id);
        attrs_.has_encap = true;
        attrs_.encap = vxlan(evi) ? 8 : 10;
        attrs_.route_targets.push_back(uint64_t(0x0002) << 48 | uint64_t(kAs) << 32 | evi);
        batch_.clear();
        for (uint32_t j = 0; j < n; j++) {
            EvpnNlri &r = batch_.emplace_back();
            r.route_type = type;
            r.rd = make_rd(id, evi);
            const uint64_t slot = round * opt_.routes_per_update + j;
            const uint64_t i = first + j;
            const uint32_t host = uint32_t(i) ^ host_mask_;  // the seed's hosts, still one per route
            switch (type) {
            case 1:  // every fourth UPDATE per-ES (its ESI label), the others per-EVI
                r.esi = make_esi(slot * 64 + p % 64);
                r.label_count = 1;
                if (c % 4 == 0) {
                    r.ethernet_tag = 0xffffffff;
                    attrs_.has_esi_label = true;
                    attrs_.esi_label_flags = rng.below(2);  // single-active or all-active
                    attrs_.esi_label = vxlan(evi) ? 0 : (17000 + p % 1000) << 4 | 1;  // split horizon
                } else {
                    r.label[0] = evi_label(evi);
                }
                break;
            case 2: {  // MAC only, MAC + IPv4, MAC + IPv6; a fifth multihomed
                r.mac = {0x02, uint8_t(p), uint8_t(host >> 24), uint8_t(host >> 16), uint8_t(host >> 8), uint8_t(host)};
                if (c % 5 == 0) r.esi = make_esi(p / 2 * 64 + evi % 64);
                r.label_count = 1;
                r.label[0] = evi_label(evi);
                const uint32_t kind = uint32_t(c % 3);
                if (kind == 1) r.ip = v4(0x0a000000u | (host & 0xffffff));
                if (kind == 2) {
                    r.ip.len = 16;
                    const uint8_t pre[8] = {0x20, 0x01, 0x0d, 0xb8, uint8_t(evi >> 8), uint8_t(evi), 0, 0};
                    std::copy(pre, pre + 8, r.ip.b.begin());
                    for (int k = 0; k < 4; k++) r.ip.b[15 - k] = uint8_t(host >> (8 * k));
                }
                if (kind != 0 && vxlan(evi)) {  // symmetric routing: the L3 VNI and router's MAC
                    r.label_count = 2;
                    r.label[1] = l3_label(evi);
                    attrs_.has_router_mac = true;
                    attrs_.router_mac = {0x0c, 0x42, 0xa1, 0, uint8_t(p >> 8), uint8_t(p)};
                }
                if (c % 10 == 7) {  // a MAC that moved here
                    attrs_.has_mac_mobility = true;
                    attrs_.mac_mobility_seq = 1 + rng.below(5);
                    attrs_.mac_mobility_sticky = rng.below(10) == 0;
                }
                attrs_.default_gateway = c % 97 == 1;
                break;
            }
            case 3:  // inclusive multicast, ingress replication to the PE
                r.ethernet_tag = uint32_t(slot);
                r.ip = v4(id);
                attrs_.has_pmsi = true;
                attrs_.pmsi_tunnel_type = 6;
                attrs_.pmsi_label = evi_label(evi);
                attrs_.pmsi_endpoint = v4(id);
                break;
            case 4: {  // Ethernet segment: RD of the PE, ES-import from the ESI's value
                r.rd = make_rd(id, 0);
                r.esi = make_esi(i);
                r.ip = v4(id);
                attrs_.route_targets.clear();
                attrs_.has_encap = false;
                attrs_.has_es_import = true;
                std::copy(r.esi.begin() + 1, r.esi.begin() + 7, attrs_.es_import.begin());
                break;
            }
            case 5:  // IP prefixes of the EVI's VRF: IPv4 /24s and IPv6 /64s
                r.label_count = 1;
                r.label[0] = l3_label(evi);
                if (c % 2 == 0) {
                    r.ip = v4(0x64000000u + uint32_t(i << 8));
                    r.ip_prefix_len = 24;
                    r.gateway = v4(0);
                } else {
                    r.ip.len = r.gateway.len = 16;
                    r.ip.b[0] = 0x20, r.ip.b[1] = 0x01, r.ip.b[2] = 0x0d, r.ip.b[3] = 0xb9;
                    for (int k = 0; k < 4; k++) r.ip.b[7 - k] = uint8_t(i >> (8 * k));
                    r.ip_prefix_len = 64;
                }
                attrs_.has_router_mac = true;
                attrs_.router_mac = {0x0c, 0x42, 0xa1, 0, uint8_t(p >> 8), uint8_t(p)};
                break;
            }
        }
    }

    bool flush(bool all) {
        std::vector<uint8_t> &b = enc_.bytes();
        if (b.empty() || (!all && b.size() < kChunk)) return true;
        counts_.bytes += b.size();
        const bool ok = sink_(b);
        b.clear();
        return ok;
    }

    GenBmpOptions opt_;
    uint64_t evi_shift_ = 0;   // which EVI the first UPDATE has
    uint32_t host_mask_ = 0;   // MAC and host addresses' low bits
    const GenBmpSink &sink_;
    GenBmpCounts &counts_;
    Encoder enc_;
    RouteAttrs attrs_, no_attrs_;
    std::vector<EvpnNlri> batch_;
};

}  // namespace

bool gen_bmp_stream(const GenBmpOptions &opt, const GenBmpSink &sink, GenBmpCounts *counts) {
    GenBmpCounts local;
    Generator g(opt, sink, counts ? *counts : local);
    return g.run();
}

}  // namespace evpn::bmp
