// Building blocks of the BMP tests: sample peers and routes of every type,
// hand-built UPDATEs, and a parse that copies the message into a buffer of
// its exact size so that AddressSanitizer sees any read past its end.
#pragma once
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "evpn_bmp/bmp.h"
#include "evpn_bmp/bmp_encode.h"

namespace bmp_test {

using namespace evpn::bmp;
using Bytes = std::vector<uint8_t>;

inline IpAddr ip4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    IpAddr ip;
    ip.len = 4;
    ip.b[0] = a, ip.b[1] = b, ip.b[2] = c, ip.b[3] = d;
    return ip;
}

inline IpAddr ip6(std::initializer_list<uint16_t> groups) {
    IpAddr ip;
    ip.len = 16;
    int i = 0;
    for (uint16_t g : groups) ip.b[i++] = uint8_t(g >> 8), ip.b[i++] = uint8_t(g);
    return ip;
}

inline PeerHeader global_peer() {
    PeerHeader h;
    h.address = ip4(192, 0, 2, 7);
    h.as = 4200000001;
    h.bgp_id = 0xc0000207;
    h.ts_sec = 1700000000, h.ts_usec = 250000;
    return h;
}

inline PeerHeader loc_rib_peer() {
    PeerHeader h;
    h.type = PeerType::LocRib;
    h.as = 65000;
    h.bgp_id = 0xc0000201;
    return h;
}

inline Rd rd(uint16_t admin, uint32_t n) {  // type 0: 2-octet AS, 4-octet number
    return {0, 0, uint8_t(admin >> 8), uint8_t(admin), uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8),
            uint8_t(n)};
}

inline Esi esi(uint8_t last) { return {0, 1, 2, 3, 4, 5, 6, 7, 8, last}; }

inline EvpnNlri route(uint8_t type) {
    EvpnNlri n;
    n.route_type = type;
    n.rd = rd(65000, 100);
    switch (type) {
    case 1:
        n.esi = esi(9), n.ethernet_tag = 7, n.label_count = 1, n.label[0] = 10100;
        break;
    case 2:
        n.esi = esi(1), n.ethernet_tag = 0, n.mac = {0x02, 0, 0x5e, 0x10, 0x20, 0x30};
        n.ip = ip4(10, 1, 1, 7), n.label_count = 1, n.label[0] = 10100;
        break;
    case 3:
        n.ethernet_tag = 100, n.ip = ip4(192, 0, 2, 1);
        break;
    case 4:
        n.esi = esi(4), n.ip = ip6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1});
        break;
    case 5:
        n.ethernet_tag = 0, n.ip = ip4(10, 20, 0, 0), n.ip_prefix_len = 24, n.gateway = ip4(0, 0, 0, 0);
        n.label_count = 1, n.label[0] = 10300;
        break;
    }
    return n;
}

inline RouteAttrs plain_attrs() {
    RouteAttrs a;
    a.has_origin = true;
    a.next_hop = ip4(192, 0, 2, 1);
    a.route_targets = {0x0002fde800000064ull};
    return a;
}

// A parse of a copy exactly the message's size; m's text views die with it.
inline BmpError parse_exact(const uint8_t *p, size_t n, Message &m) {
    std::vector<uint8_t> copy(p, p + n);
    return parse_message(copy, m);
}
inline BmpError parse_exact(const Bytes &b, Message &m) { return parse_exact(b.data(), b.size(), m); }

// Splits an encoder's output into its messages.
inline std::vector<Bytes> split(const Bytes &stream) {
    std::vector<Bytes> out;
    Framer f;
    f.feed(stream);
    std::span<const uint8_t> m;
    while (!f.next(m)) out.emplace_back(m.begin(), m.end());
    return out;
}

// ---- Hand-built UPDATEs ---------------------------------------------------------

inline void put16(Bytes &b, size_t v) { b.push_back(uint8_t(v >> 8)), b.push_back(uint8_t(v)); }

inline Bytes attr(uint8_t flags, uint8_t code, const Bytes &value) {
    Bytes b{flags, code};
    if (flags & 0x10) put16(b, value.size());
    else b.push_back(uint8_t(value.size()));
    b.insert(b.end(), value.begin(), value.end());
    return b;
}

inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes b;
    for (const Bytes &p : parts) b.insert(b.end(), p.begin(), p.end());
    return b;
}

// One EVPN route's bytes as the encoder writes them.
inline Bytes route_bytes(const EvpnNlri &n) {
    Encoder e;
    const EvpnNlri one[] = {n};
    e.route_monitoring(global_peer(), {}, RouteAttrs{}, one);
    const Bytes &m = e.bytes();
    // The route is the MP_UNREACH_NLRI's tail: after the message's headers
    // (6 + 42 + 19 + 4), the attribute header (3) and AFI/SAFI (3).
    return Bytes(m.begin() + 6 + 42 + 19 + 4 + 3 + 3, m.end());
}

inline Bytes mp_reach(const Bytes &routes, uint8_t flags = 0x90) {
    Bytes v{0, 25, 70, 4, 192, 0, 2, 1, 0};
    v.insert(v.end(), routes.begin(), routes.end());
    return attr(flags, 14, v);
}

inline const Bytes kOrigin = attr(0x40, 1, {0});
inline const Bytes kAsPath = attr(0x40, 2, {2, 1, 0, 0, 0xfd, 0xe8});  // AS_SEQUENCE 65000

// A Route Monitoring message around an UPDATE of these attributes, IPv4
// NLRI and withdrawn routes.
inline Bytes rm_message(const Bytes &attrs, uint8_t peer_flags = 0, const Bytes &nlri = {},
                        const Bytes &withdrawn = {}) {
    Bytes bgp(16, 0xff);
    put16(bgp, 0), bgp.push_back(2);
    put16(bgp, withdrawn.size());
    bgp.insert(bgp.end(), withdrawn.begin(), withdrawn.end());
    put16(bgp, attrs.size());
    bgp.insert(bgp.end(), attrs.begin(), attrs.end());
    bgp.insert(bgp.end(), nlri.begin(), nlri.end());
    bgp[16] = uint8_t(bgp.size() >> 8), bgp[17] = uint8_t(bgp.size());

    Encoder e;
    PeerHeader h = global_peer();
    h.flags = peer_flags;
    e.peer_down(h, 4);  // borrowed for its headers: 6 + 42 + the reason octet
    Bytes m(e.bytes().begin(), e.bytes().end() - 1);
    m[5] = uint8_t(MsgType::RouteMonitoring);
    m.insert(m.end(), bgp.begin(), bgp.end());
    m[1] = uint8_t(m.size() >> 24), m[2] = uint8_t(m.size() >> 16), m[3] = uint8_t(m.size() >> 8),
    m[4] = uint8_t(m.size());
    return m;
}

}  // namespace bmp_test
