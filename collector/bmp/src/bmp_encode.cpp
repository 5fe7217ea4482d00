// Writes BMP messages in the forms the parser reads. Lengths are patched in
// once a part is written, so each part is built in place in the output.
#include "evpn_bmp/bmp_encode.h"

namespace evpn::bmp {
namespace {

class Out {
  public:
    explicit Out(std::vector<uint8_t> &v) : v_(v) {}
    size_t size() const { return v_.size(); }
    void u8(uint8_t x) { v_.push_back(x); }
    void u16(uint16_t x) { u8(uint8_t(x >> 8)), u8(uint8_t(x)); }
    void u24(uint32_t x) { u8(uint8_t(x >> 16)), u8(uint8_t(x >> 8)), u8(uint8_t(x)); }
    void u32(uint32_t x) { u16(uint16_t(x >> 16)), u16(uint16_t(x)); }
    void u64(uint64_t x) { u32(uint32_t(x >> 32)), u32(uint32_t(x)); }
    void bytes(const void *p, size_t n) {
        auto b = static_cast<const uint8_t *>(p);
        v_.insert(v_.end(), b, b + n);
    }
    void zeros(size_t n) { v_.insert(v_.end(), n, 0); }
    void put16(size_t at, size_t x) { v_[at] = uint8_t(x >> 8), v_[at + 1] = uint8_t(x); }
    void put32(size_t at, size_t x) { put16(at, x >> 16), put16(at + 2, x & 0xffff); }

  private:
    std::vector<uint8_t> &v_;
};


size_t begin_message(Out &o, MsgType t) {
    const size_t at = o.size();
    o.u8(3), o.u32(0), o.u8(uint8_t(t));
    return at;
}
void end_message(Out &o, size_t at) { o.put32(at + 1, o.size() - at); }

void address_field(Out &o, const IpAddr &a) {
    if (a.len == 16) return o.bytes(a.b.data(), 16);
    o.zeros(12);
    if (a.len == 4) o.bytes(a.b.data(), 4);
    else o.zeros(4);
}

void peer_header(Out &o, const PeerHeader &h) {
    o.u8(uint8_t(h.type));
    o.u8(h.flags);
    o.bytes(h.distinguisher.data(), 8);
    if (h.type == PeerType::LocRib) o.zeros(16);
    else address_field(o, h.address);
    o.u32(h.as), o.u32(h.bgp_id), o.u32(h.ts_sec), o.u32(h.ts_usec);
}

size_t begin_bgp(Out &o, uint8_t type) {
    const size_t at = o.size();
    for (int i = 0; i < 16; i++) o.u8(0xff);
    o.u16(0), o.u8(type);
    return at;
}
void end_bgp(Out &o, size_t at) { o.put16(at + 16, o.size() - at); }

// An OPEN with the 4-octet AS capability; the 2-octet field holds AS_TRANS
// when the AS does not fit (RFC 6793).
void open_message(Out &o, uint32_t as, uint32_t bgp_id) {
    const size_t at = begin_bgp(o, 1);
    o.u8(4);
    o.u16(as > 0xffff ? 23456 : uint16_t(as));
    o.u16(90), o.u32(bgp_id);
    o.u8(8);            // optional parameters
    o.u8(2), o.u8(6);   // capabilities
    o.u8(65), o.u8(4), o.u32(as);
    end_bgp(o, at);
}

void tlv(Out &o, uint16_t type, std::string_view v) {
    o.u16(type), o.u16(uint16_t(v.size()));
    o.bytes(v.data(), v.size());
}

// A path attribute's header; the length is patched by end_attr, which
// switches to the extended-length form when the value needs it.
struct AttrMark {
    size_t at;
};
AttrMark begin_attr(Out &o, uint8_t flags, uint8_t code) {
    const size_t at = o.size();
    o.u8(flags | 0x10), o.u8(code), o.u16(0);  // extended length, narrowed at the end when it fits
    return {at};
}
void end_attr(Out &o, std::vector<uint8_t> &v, AttrMark m) {
    const size_t len = o.size() - m.at - 4;
    if (len <= 255) {
        v[m.at] &= uint8_t(~0x10);
        v[m.at + 2] = uint8_t(len);
        v.erase(v.begin() + ptrdiff_t(m.at + 3));
    } else {
        o.put16(m.at + 2, len);
    }
}

void ip_field(Out &o, const IpAddr &a) { o.bytes(a.b.data(), a.len); }

void evpn_route(Out &o, const EvpnNlri &n) {
    o.u8(n.route_type);
    const size_t len_at = o.size();
    o.u8(0);
    o.bytes(n.rd.data(), 8);
    switch (n.route_type) {
    case 1:
        o.bytes(n.esi.data(), 10), o.u32(n.ethernet_tag), o.u24(n.label[0]);
        break;
    case 2:
        o.bytes(n.esi.data(), 10), o.u32(n.ethernet_tag);
        o.u8(48), o.bytes(n.mac.data(), 6);
        o.u8(uint8_t(n.ip.len * 8)), ip_field(o, n.ip);
        o.u24(n.label[0]);
        if (n.label_count > 1) o.u24(n.label[1]);
        break;
    case 3:
        o.u32(n.ethernet_tag), o.u8(uint8_t(n.ip.len * 8)), ip_field(o, n.ip);
        break;
    case 4:
        o.bytes(n.esi.data(), 10), o.u8(uint8_t(n.ip.len * 8)), ip_field(o, n.ip);
        break;
    case 5: {
        o.bytes(n.esi.data(), 10), o.u32(n.ethernet_tag), o.u8(n.ip_prefix_len);
        const uint8_t alen = n.ip.len == 16 ? 16 : 4;
        o.bytes(n.ip.b.data(), alen);
        o.bytes(n.gateway.b.data(), alen);
        o.u24(n.label[0]);
        break;
    }
    }
    o.put16(len_at - 1, size_t(n.route_type) << 8 | (o.size() - len_at - 1));
}

void ext_community(Out &o, uint8_t type, uint8_t sub, const uint8_t v[6]) {
    o.u8(type), o.u8(sub), o.bytes(v, 6);
}

void ext_communities(Out &o, std::vector<uint8_t> &v, const RouteAttrs &a) {
    const bool any = !a.route_targets.empty() || a.has_mac_mobility || a.has_esi_label || a.has_es_import ||
                     a.has_router_mac || a.has_encap || a.default_gateway || a.has_l2_attrs;
    if (!any) return;
    const AttrMark m = begin_attr(o, 0xc0, 16);
    for (uint64_t rt : a.route_targets) o.u64(rt);
    if (a.has_mac_mobility) {
        const uint8_t x[6] = {uint8_t(a.mac_mobility_sticky ? 1 : 0), 0,
                              uint8_t(a.mac_mobility_seq >> 24), uint8_t(a.mac_mobility_seq >> 16),
                              uint8_t(a.mac_mobility_seq >> 8), uint8_t(a.mac_mobility_seq)};
        ext_community(o, 0x06, 0x00, x);
    }
    if (a.has_esi_label) {
        const uint8_t x[6] = {a.esi_label_flags, 0, 0, uint8_t(a.esi_label >> 16), uint8_t(a.esi_label >> 8),
                              uint8_t(a.esi_label)};
        ext_community(o, 0x06, 0x01, x);
    }
    if (a.has_es_import) ext_community(o, 0x06, 0x02, a.es_import.data());
    if (a.has_router_mac) ext_community(o, 0x06, 0x03, a.router_mac.data());
    if (a.has_l2_attrs) {
        const uint8_t x[6] = {uint8_t(a.l2_flags >> 8), uint8_t(a.l2_flags), uint8_t(a.l2_mtu >> 8),
                              uint8_t(a.l2_mtu), 0, 0};
        ext_community(o, 0x06, 0x04, x);
    }
    if (a.has_encap) {
        const uint8_t x[6] = {0, 0, 0, 0, uint8_t(a.encap >> 8), uint8_t(a.encap)};
        ext_community(o, 0x03, 0x0c, x);
    }
    if (a.default_gateway) {
        const uint8_t x[6] = {};
        ext_community(o, 0x03, 0x0d, x);
    }
    end_attr(o, v, m);
}

// SIDs of one service in a row share one service TLV.
void prefix_sid(Out &o, std::vector<uint8_t> &v, const std::vector<Srv6ServiceSid> &sids) {
    if (sids.empty()) return;
    const AttrMark m = begin_attr(o, 0xc0, 40);
    size_t tlv_len_at = 0;
    uint8_t service = 0;
    auto close_tlv = [&] {
        if (service) o.put16(tlv_len_at, o.size() - tlv_len_at - 2);
    };
    for (const Srv6ServiceSid &s : sids) {
        if (s.service != service) {
            close_tlv();
            service = s.service;
            o.u8(service);
            tlv_len_at = o.size();
            o.u16(0), o.u8(0);
        }
        o.u8(1), o.u16(uint16_t(21 + (s.has_structure ? 9 : 0)));
        o.u8(0), o.bytes(s.sid.data(), 16), o.u8(s.flags), o.u16(s.endpoint_behavior), o.u8(0);
        if (s.has_structure) {
            o.u8(1), o.u16(6);
            o.u8(s.locator_block_len), o.u8(s.locator_node_len), o.u8(s.function_len);
            o.u8(s.argument_len), o.u8(s.transposition_len), o.u8(s.transposition_offset);
        }
    }
    close_tlv();
    end_attr(o, v, m);
}

}  // namespace

void Encoder::initiation(std::string_view sys_name, std::string_view sys_descr) {
    Out o(out_);
    const size_t at = begin_message(o, MsgType::Initiation);
    tlv(o, 2, sys_name);
    tlv(o, 1, sys_descr);
    end_message(o, at);
}

void Encoder::termination(uint16_t reason) {
    Out o(out_);
    const size_t at = begin_message(o, MsgType::Termination);
    o.u16(1), o.u16(2), o.u16(reason);
    end_message(o, at);
}

void Encoder::peer_up(const PeerHeader &peer, const PeerUp &up) {
    Out o(out_);
    const size_t at = begin_message(o, MsgType::PeerUp);
    peer_header(o, peer);
    if (peer.type == PeerType::LocRib) o.zeros(16);
    else address_field(o, up.local_address);
    o.u16(up.local_port), o.u16(up.remote_port);
    open_message(o, up.sent_open_as, peer.bgp_id);
    open_message(o, up.received_open_as, peer.bgp_id);
    if (!up.table_name.empty()) tlv(o, 3, up.table_name);
    end_message(o, at);
}

void Encoder::peer_down(const PeerHeader &peer, uint8_t reason) {
    Out o(out_);
    const size_t at = begin_message(o, MsgType::PeerDown);
    peer_header(o, peer);
    o.u8(reason);
    if (reason == 1 || reason == 3) {  // a NOTIFICATION: Cease, administrative shutdown
        const size_t bgp = begin_bgp(o, 3);
        o.u8(6), o.u8(2);
        end_bgp(o, bgp);
    } else if (reason == 2) {
        o.u16(0);
    }
    end_message(o, at);
}

void Encoder::statistics(const PeerHeader &peer, std::span<const StatEntry> stats) {
    Out o(out_);
    const size_t at = begin_message(o, MsgType::StatisticsReport);
    peer_header(o, peer);
    o.u32(uint32_t(stats.size()));
    for (const StatEntry &s : stats) {
        o.u16(s.type);
        switch (s.type) {
        case 7: case 8: case 14: case 15:  // 64-bit gauges
            o.u16(8), o.u64(s.value);
            break;
        case 9: case 10: case 16: case 17:  // per family: L2VPN EVPN's
            o.u16(11), o.u16(25), o.u8(70), o.u64(s.value);
            break;
        default:  // 32-bit counters
            o.u16(4), o.u32(uint32_t(s.value));
        }
    }
    end_message(o, at);
}

void Encoder::route_monitoring(const PeerHeader &peer, std::span<const EvpnNlri> reach, const RouteAttrs &attrs,
                               std::span<const EvpnNlri> unreach) {
    Out o(out_);
    const size_t at = begin_message(o, MsgType::RouteMonitoring);
    peer_header(o, peer);
    const size_t bgp = begin_bgp(o, 2);
    o.u16(0);  // no IPv4 withdrawn routes
    const size_t attrs_at = o.size();
    o.u16(0);
    if (!unreach.empty()) {
        const AttrMark m = begin_attr(o, 0x80, 15);
        o.u16(25), o.u8(70);
        for (const EvpnNlri &n : unreach) evpn_route(o, n);
        end_attr(o, out_, m);
    }
    if (!reach.empty()) {
        const AttrMark m = begin_attr(o, 0x80, 14);
        o.u16(25), o.u8(70);
        o.u8(attrs.next_hop.len), ip_field(o, attrs.next_hop);
        o.u8(0);
        for (const EvpnNlri &n : reach) evpn_route(o, n);
        end_attr(o, out_, m);
        if (attrs.has_origin) o.u8(0x40), o.u8(1), o.u8(1), o.u8(attrs.origin);
        o.u8(0x40), o.u8(2), o.u8(0);  // empty AS_PATH: a route of the router's own AS
    }
    ext_communities(o, out_, attrs);
    if (attrs.has_pmsi) {
        const AttrMark m = begin_attr(o, 0xc0, 22);
        o.u8(attrs.pmsi_flags), o.u8(attrs.pmsi_tunnel_type), o.u24(attrs.pmsi_label);
        ip_field(o, attrs.pmsi_endpoint);
        end_attr(o, out_, m);
    }
    prefix_sid(o, out_, attrs.srv6_sids);
    o.put16(attrs_at, o.size() - attrs_at - 2);
    end_bgp(o, bgp);
    end_message(o, at);
}

}  // namespace evpn::bmp
