// The BGP UPDATE inside a Route Monitoring message: withdrawn routes, path
// attributes through one table, NLRI. Only EVPN routes (AFI 25, SAFI 70) are
// kept; every other route is counted. Nothing is allocated per route: the
// Update's vectors keep their capacity from one message to the next.
#include <array>
#include <bitset>

#include "internal.h"

namespace evpn::bmp::detail {
namespace {

constexpr uint16_t kAfiL2vpn = 25;
constexpr uint8_t kSafiEvpn = 70;

constexpr uint8_t kFlagOptional = 0x80, kFlagTransitive = 0x40, kFlagExtLength = 0x10;
constexpr uint8_t kFlagsWellKnown = kFlagTransitive;
constexpr uint8_t kFlagsOptTrans = kFlagOptional | kFlagTransitive;
constexpr uint8_t kFlagsOptNonTrans = kFlagOptional;

constexpr uint8_t kAttrMpReach = 14, kAttrMpUnreach = 15;

// What one attribute's parse function sees.
struct Ctx {
    Update &u;
    bool two_octet_as;
    BmpErrc err = BmpErrc::Ok;   // a session-reset fault's code, where the function knows it
    uint32_t err_offset = 0;
};

// A parse function reads the attribute's value (the whole of r) into ctx.u
// and returns nullptr, or returns why it is malformed; it may make the row's
// action stronger through action.
using ParseFn = const char *(*)(Ctx &, Reader &, FaultAction &);

struct AttrRow {
    uint8_t code;
    const char *name;
    uint8_t flags;         // the optional and transitive bits expected
    ParseFn parse;
    FaultAction on_error;  // RFC 7606 handling of a malformed value
};

// ---- Routes --------------------------------------------------------------------

void read_ip(Reader &r, uint8_t len, IpAddr &ip) {
    ip.len = len;
    r.bytes(ip.b.data(), len);  // the caller checked the length
}

bool too_many_routes(const Update &u) {
    return u.reach.size() + u.unreach.size() + u.other_family_routes + u.unknown_route_types >
           kMaxRoutesPerUpdate;
}

// Checks one EVPN route's fields against its route type's layout (RFC 7432
// section 7, RFC 9136 section 3) and reads them. r holds the route's bytes.
bool evpn_route(uint8_t type, Reader &r, EvpnNlri &n) {
    n = EvpnNlri{};
    n.route_type = type;
    const size_t len = r.left();
    switch (type) {
    case 1:  // RD, ESI, Ethernet tag, label
        if (len != 25) return false;
        r.bytes(n.rd.data(), 8), r.bytes(n.esi.data(), 10), r.u32(n.ethernet_tag);
        n.label_count = 1;
        r.u24(n.label[0]);
        return true;
    case 2: {  // RD, ESI, Ethernet tag, MAC length, MAC, IP length, IP, one or two labels
        uint8_t mac_bits = 0, ip_bits = 0;
        if (len < 33) return false;
        r.bytes(n.rd.data(), 8), r.bytes(n.esi.data(), 10), r.u32(n.ethernet_tag);
        r.u8(mac_bits);
        if (mac_bits != 48) return false;
        r.bytes(n.mac.data(), 6);
        r.u8(ip_bits);
        if (ip_bits != 0 && ip_bits != 32 && ip_bits != 128) return false;
        const size_t labels = len - 33 - ip_bits / 8;
        if (len < 33u + ip_bits / 8 || (labels != 0 && labels != 3)) return false;
        read_ip(r, ip_bits / 8, n.ip);
        n.label_count = labels ? 2 : 1;
        r.u24(n.label[0]);
        if (labels) r.u24(n.label[1]);
        return true;
    }
    case 3:  // RD, Ethernet tag, IP length, originating router's IP
    case 4: {  // RD, ESI, IP length, originating router's IP
        const size_t fixed = type == 3 ? 13 : 19;
        uint8_t ip_bits = 0;
        if (len != fixed + 4 && len != fixed + 16) return false;
        r.bytes(n.rd.data(), 8);
        if (type == 3) r.u32(n.ethernet_tag);
        else r.bytes(n.esi.data(), 10);
        r.u8(ip_bits);
        if (ip_bits / 8u != len - fixed || ip_bits % 8) return false;
        read_ip(r, ip_bits / 8, n.ip);
        return true;
    }
    case 5: {  // RD, ESI, Ethernet tag, prefix length, prefix, gateway, label
        if (len != 34 && len != 58) return false;
        const uint8_t alen = len == 34 ? 4 : 16;
        r.bytes(n.rd.data(), 8), r.bytes(n.esi.data(), 10), r.u32(n.ethernet_tag);
        r.u8(n.ip_prefix_len);
        if (n.ip_prefix_len > alen * 8) return false;
        read_ip(r, alen, n.ip);
        read_ip(r, alen, n.gateway);
        n.label_count = 1;
        r.u24(n.label[0]);
        return true;
    }
    }
    return false;
}

// The EVPN routes of an MP_REACH_NLRI or MP_UNREACH_NLRI. A route that runs
// past the attribute or does not fit its type's layout cannot be framed
// (RFC 7606 section 5.3: session reset); an unknown route type is skipped by
// its length and counted (section 5.4).
const char *evpn_routes(Ctx &ctx, Reader &r, std::vector<EvpnNlri> &out) {
    while (!r.empty()) {
        const uint32_t at = uint32_t(r.pos());
        uint8_t type = 0, len = 0;
        Reader route(nullptr, 0, 0);
        if (!r.u8(type) || !r.u8(len) || !r.sub(len, route)) {
            ctx.err = BmpErrc::BadNlri, ctx.err_offset = at;
            return "EVPN route runs past its attribute";
        }
        if (type < 1 || type > 5) {
            ctx.u.unknown_route_types++;
        } else if (!evpn_route(type, route, out.emplace_back())) {
            out.pop_back();
            ctx.err = BmpErrc::BadNlri, ctx.err_offset = at;
            return "EVPN route does not fit its route type";
        }
        if (too_many_routes(ctx.u)) {
            ctx.err = BmpErrc::TooManyRoutes, ctx.err_offset = at;
            return "too many routes";
        }
    }
    return nullptr;
}

// Routes of families we do not keep are counted where their form is the
// common one, a bit length and that many bits (RFC 4271 prefixes, and the
// labelled and VPN forms built on them). Counting stops quietly at anything
// else: these routes are not ours to judge.
void count_prefixes(Reader r, uint32_t &count) {
    while (!r.empty()) {
        uint8_t bits = 0;
        if (!r.u8(bits) || !r.skip((bits + 7u) / 8)) return;
        count++;
    }
}

bool prefix_form_safi(uint8_t safi) {
    return safi == 1 || safi == 2 || safi == 4 || safi == 128 || safi == 129;
}

// ---- Attribute parse functions ----------------------------------------------------

const char *parse_origin(Ctx &ctx, Reader &r, FaultAction &) {
    uint8_t v = 0;
    if (r.left() != 1) return "ORIGIN length is not 1";
    r.u8(v);
    if (v > 2) return "ORIGIN value undefined";
    ctx.u.attrs.origin = v;
    ctx.u.attrs.has_origin = true;
    return nullptr;
}

// Only the framing is checked: segment types, counts, AS number size.
const char *as_path_segments(Reader &r, size_t as_size) {
    while (!r.empty()) {
        uint8_t type = 0, count = 0;
        if (!r.u8(type) || !r.u8(count)) return "AS_PATH segment header cut short";
        if (type < 1 || type > 4) return "AS_PATH segment type undefined";
        if (count == 0) return "AS_PATH segment empty";
        if (!r.skip(count * as_size)) return "AS_PATH segment runs past the attribute";
    }
    return nullptr;
}

const char *parse_as_path(Ctx &ctx, Reader &r, FaultAction &) {
    return as_path_segments(r, ctx.two_octet_as ? 2 : 4);
}

const char *parse_as4_path(Ctx &, Reader &r, FaultAction &) { return as_path_segments(r, 4); }

template <size_t N>
const char *parse_fixed(Ctx &, Reader &r, FaultAction &) {
    return r.left() == N ? nullptr : "length wrong for the attribute";
}

template <size_t N>
const char *parse_multiple(Ctx &, Reader &r, FaultAction &) {
    return r.left() % N == 0 ? nullptr : "length not a multiple of the attribute's unit";
}

const char *parse_aggregator(Ctx &ctx, Reader &r, FaultAction &) {
    return r.left() == (ctx.two_octet_as ? 6u : 8u) ? nullptr : "AGGREGATOR length wrong";
}

// MP_REACH_NLRI (RFC 4760): AFI, SAFI, next hop, a reserved octet, NLRI. A
// next hop whose length does not suit EVPN leaves the routes unlocatable
// (RFC 7606 section 7.11: session reset).
const char *parse_mp_reach(Ctx &ctx, Reader &r, FaultAction &) {
    uint16_t afi = 0;
    uint8_t safi = 0, nh_len = 0, reserved = 0;
    const uint32_t at = uint32_t(r.pos());
    if (!r.u16(afi) || !r.u8(safi) || !r.u8(nh_len) || r.left() < nh_len + 1u) {
        ctx.err = BmpErrc::BadUpdate, ctx.err_offset = at;
        return "MP_REACH_NLRI cut short";
    }
    if (afi != kAfiL2vpn || safi != kSafiEvpn) {
        r.skip(nh_len + 1u);
        if (prefix_form_safi(safi)) count_prefixes(r, ctx.u.other_family_routes);
        return nullptr;
    }
    if (nh_len != 4 && nh_len != 16 && nh_len != 32) {
        ctx.err = BmpErrc::BadUpdate, ctx.err_offset = at + 3;
        return "MP_REACH_NLRI next hop length wrong for EVPN";
    }
    // Of a global and a link-local IPv6 address, the global one.
    read_ip(r, nh_len == 4 ? 4 : 16, ctx.u.attrs.next_hop);
    r.skip(nh_len == 32 ? 16 : 0);
    r.u8(reserved);
    return evpn_routes(ctx, r, ctx.u.reach);
}

const char *parse_mp_unreach(Ctx &ctx, Reader &r, FaultAction &) {
    uint16_t afi = 0;
    uint8_t safi = 0;
    const uint32_t at = uint32_t(r.pos());
    if (!r.u16(afi) || !r.u8(safi)) {
        ctx.err = BmpErrc::BadUpdate, ctx.err_offset = at;
        return "MP_UNREACH_NLRI cut short";
    }
    if (afi != kAfiL2vpn || safi != kSafiEvpn) {
        if (prefix_form_safi(safi)) count_prefixes(r, ctx.u.other_family_routes);
        return nullptr;
    }
    return evpn_routes(ctx, r, ctx.u.unreach);
}

// EXTENDED_COMMUNITIES (RFC 4360): the route targets and the EVPN, encapsulation
// and default-gateway communities; the rest are not needed.
const char *parse_ext_communities(Ctx &ctx, Reader &r, FaultAction &) {
    if (r.left() % 8) return "length not a multiple of 8";
    RouteAttrs &a = ctx.u.attrs;
    bool rt_over = false;
    while (!r.empty()) {
        const uint8_t *c = r.here();
        const uint8_t *v = c + 2;  // the six value octets
        r.skip(8);
        const uint8_t type = c[0], sub = c[1];
        if (type <= 0x02 && sub == 0x02) {  // route target: 2-octet AS, IPv4, 4-octet AS
            if (a.route_targets.size() < kMaxRouteTargets)
                a.route_targets.push_back(uint64_t(Reader::load32(c)) << 32 | Reader::load32(c + 4));
            else rt_over = true;
        } else if (type == 0x06) {  // EVPN (RFC 7432 section 7.5 on)
            switch (sub) {
            case 0x00:  // MAC mobility: flags, reserved, sequence
                if (a.has_mac_mobility) break;
                a.has_mac_mobility = true;
                a.mac_mobility_sticky = v[0] & 0x01;
                a.mac_mobility_seq = Reader::load32(v + 2);
                break;
            case 0x01:  // ESI label: flags, two reserved, label
                a.has_esi_label = true;
                a.esi_label_flags = v[0];
                a.esi_label = uint32_t(v[3]) << 16 | uint32_t(v[4]) << 8 | v[5];
                break;
            case 0x02:  // ES-import route target
                a.has_es_import = true;
                std::copy(v, v + 6, a.es_import.begin());
                break;
            case 0x03:  // router's MAC
                a.has_router_mac = true;
                std::copy(v, v + 6, a.router_mac.begin());
                break;
            case 0x04:  // layer-2 attributes (RFC 8214): control flags, MTU, reserved
                a.has_l2_attrs = true;
                a.l2_flags = uint16_t(v[0] << 8 | v[1]);
                a.l2_mtu = uint16_t(v[2] << 8 | v[3]);
                break;
            }
        } else if (type == 0x03 && sub == 0x0c) {  // encapsulation (RFC 9012): reserved, tunnel type
            a.has_encap = true;
            a.encap = uint16_t(v[4] << 8 | v[5]);
        } else if (type == 0x03 && sub == 0x0d) {
            a.default_gateway = true;
        }
    }
    if (rt_over)
        ctx.u.attr_faults.push_back({16, FaultAction::AttributeDiscard, uint32_t(r.pos()),
                                     "route targets beyond the limit not kept"});
    return nullptr;
}

// PMSI_TUNNEL (RFC 6514 section 5): flags, tunnel type, label, tunnel
// identifier; for ingress replication the identifier is the endpoint.
const char *parse_pmsi(Ctx &ctx, Reader &r, FaultAction &) {
    RouteAttrs &a = ctx.u.attrs;
    uint8_t flags = 0, type = 0;
    uint32_t label = 0;
    if (!r.u8(flags) || !r.u8(type) || !r.u24(label)) return "PMSI_TUNNEL cut short";
    const size_t id_len = r.left();
    if (type == 6 && id_len != 4 && id_len != 16) return "ingress replication endpoint length wrong";
    a.has_pmsi = true;
    a.pmsi_flags = flags, a.pmsi_tunnel_type = type, a.pmsi_label = label;
    if (type == 6) read_ip(r, uint8_t(id_len), a.pmsi_endpoint);
    return nullptr;
}

// One SRv6 service TLV's body (RFC 9252 section 2): a reserved octet, then
// sub-TLVs; the SID information sub-TLV holds the SID and may hold the SID
// structure sub-sub-TLV.
const char *srv6_service(Ctx &ctx, uint8_t service, Reader &r) {
    uint8_t reserved = 0;
    if (!r.u8(reserved)) return "SRv6 service TLV empty";
    while (!r.empty()) {
        uint8_t type = 0;
        uint16_t len = 0;
        Reader sub(nullptr, 0, 0);
        if (!r.u8(type) || !r.u16(len) || !r.sub(len, sub)) return "SRv6 service sub-TLV runs past its TLV";
        if (type != 1) continue;
        Srv6ServiceSid s;
        s.service = service;
        uint8_t res1 = 0, res2 = 0;
        if (!sub.u8(res1) || !sub.bytes(s.sid.data(), 16) || !sub.u8(s.flags) ||
            !sub.u16(s.endpoint_behavior) || !sub.u8(res2))
            return "SRv6 SID information sub-TLV cut short";
        while (!sub.empty()) {
            uint8_t stype = 0;
            uint16_t slen = 0;
            Reader ss(nullptr, 0, 0);
            if (!sub.u8(stype) || !sub.u16(slen) || !sub.sub(slen, ss))
                return "SRv6 sub-sub-TLV runs past its sub-TLV";
            if (stype != 1) continue;
            if (slen != 6) return "SRv6 SID structure length is not 6";
            s.has_structure = true;
            ss.u8(s.locator_block_len), ss.u8(s.locator_node_len), ss.u8(s.function_len);
            ss.u8(s.argument_len), ss.u8(s.transposition_len), ss.u8(s.transposition_offset);
        }
        if (ctx.u.attrs.srv6_sids.size() < kMaxSrv6Sids) {
            ctx.u.attrs.srv6_sids.push_back(s);
        } else {
            ctx.u.attr_faults.push_back({40, FaultAction::AttributeDiscard, uint32_t(sub.pos()),
                                         "SRv6 SIDs beyond the limit not kept"});
        }
    }
    return nullptr;
}

// BGP Prefix-SID (RFC 8669): TLVs. A fault in the attribute's framing or in a
// label-index TLV discards the attribute (RFC 8669); a fault in an
// SRv6 service TLV withdraws the routes, whose service SID is unknown then
// (RFC 9252).
const char *parse_prefix_sid(Ctx &ctx, Reader &r, FaultAction &action) {
    const size_t kept = ctx.u.attrs.srv6_sids.size();
    while (!r.empty()) {
        uint8_t type = 0;
        uint16_t len = 0;
        Reader tlv(nullptr, 0, 0);
        if (!r.u8(type) || !r.u16(len) || !r.sub(len, tlv)) {
            ctx.u.attrs.srv6_sids.resize(kept);
            return "Prefix-SID TLV runs past the attribute";
        }
        if (type == 1 && len != 7) {
            ctx.u.attrs.srv6_sids.resize(kept);
            return "label index TLV length is not 7";
        }
        if (type == 5 || type == 6) {
            if (const char *why = srv6_service(ctx, type, tlv)) {
                ctx.u.attrs.srv6_sids.resize(kept);
                action = FaultAction::TreatAsWithdraw;
                return why;
            }
        }
    }
    return nullptr;
}

// ---- The table ------------------------------------------------------------------

constexpr FaultAction kDiscard = FaultAction::AttributeDiscard;
constexpr FaultAction kWithdraw = FaultAction::TreatAsWithdraw;
constexpr FaultAction kReset = FaultAction::SessionReset;

// Every attribute this parser knows, with how RFC 7606 (section 7 and the
// attributes' own RFCs) handles a malformed one. An optional attribute not
// listed is skipped unread; a well-known one not listed is discarded.
constexpr AttrRow kAttrTable[] = {
    {1, "ORIGIN", kFlagsWellKnown, parse_origin, kWithdraw},
    {2, "AS_PATH", kFlagsWellKnown, parse_as_path, kWithdraw},
    {3, "NEXT_HOP", kFlagsWellKnown, parse_fixed<4>, kWithdraw},
    {4, "MULTI_EXIT_DISC", kFlagsOptNonTrans, parse_fixed<4>, kWithdraw},
    {5, "LOCAL_PREF", kFlagsWellKnown, parse_fixed<4>, kWithdraw},
    {6, "ATOMIC_AGGREGATE", kFlagsWellKnown, parse_fixed<0>, kDiscard},
    {7, "AGGREGATOR", kFlagsOptTrans, parse_aggregator, kDiscard},
    {8, "COMMUNITIES", kFlagsOptTrans, parse_multiple<4>, kWithdraw},
    {9, "ORIGINATOR_ID", kFlagsOptNonTrans, parse_fixed<4>, kWithdraw},
    {10, "CLUSTER_LIST", kFlagsOptNonTrans, parse_multiple<4>, kWithdraw},
    {14, "MP_REACH_NLRI", kFlagsOptNonTrans, parse_mp_reach, kReset},
    {15, "MP_UNREACH_NLRI", kFlagsOptNonTrans, parse_mp_unreach, kReset},
    {16, "EXTENDED_COMMUNITIES", kFlagsOptTrans, parse_ext_communities, kWithdraw},
    {17, "AS4_PATH", kFlagsOptTrans, parse_as4_path, kDiscard},
    {18, "AS4_AGGREGATOR", kFlagsOptTrans, parse_fixed<8>, kDiscard},
    {22, "PMSI_TUNNEL", kFlagsOptTrans, parse_pmsi, kWithdraw},
    {32, "LARGE_COMMUNITY", kFlagsOptTrans, parse_multiple<12>, kWithdraw},
    {40, "BGP_PREFIX_SID", kFlagsOptTrans, parse_prefix_sid, kDiscard},
};

constexpr std::array<int8_t, 256> make_attr_index() {
    std::array<int8_t, 256> idx{};
    for (auto &i : idx) i = -1;
    for (size_t i = 0; i < std::size(kAttrTable); i++) idx[kAttrTable[i].code] = int8_t(i);
    return idx;
}
constexpr std::array<int8_t, 256> kAttrIndex = make_attr_index();

bool is_mp(uint8_t code) { return code == kAttrMpReach || code == kAttrMpUnreach; }

void note(Update &u, uint8_t type, FaultAction action, uint32_t offset, const char *reason) {
    u.attr_faults.push_back({type, action, offset, reason});
    if (action == FaultAction::TreatAsWithdraw) u.treat_as_withdraw = true;
}

}  // namespace

BmpErrc bgp_message(Reader &r, uint8_t want_type, Reader &body, uint32_t &err_offset) {
    const size_t start = r.pos();
    err_offset = uint32_t(start);
    if (r.left() < kBgpHeaderLength) return BmpErrc::BadBgpHeader;
    for (size_t i = 0; i < 16; i++)
        if (r.here()[i] != 0xff) return BmpErrc::BadBgpHeader;
    r.skip(16);
    uint16_t len = 0;
    uint8_t type = 0;
    r.u16(len), r.u8(type);
    if (len < kBgpHeaderLength || type != want_type) return BmpErrc::BadBgpHeader;
    if (!r.sub(len - kBgpHeaderLength, body)) return BmpErrc::BadBgpHeader;
    return BmpErrc::Ok;
}

BmpErrc parse_update(Reader &r, bool two_octet_as, Update &u, uint32_t &err_offset) {
    uint16_t wlen = 0, alen = 0;
    Reader withdrawn(nullptr, 0, 0), attrs(nullptr, 0, 0);
    err_offset = uint32_t(r.pos());
    if (!r.u16(wlen) || !r.sub(wlen, withdrawn)) return BmpErrc::BadUpdate;
    err_offset = uint32_t(r.pos());
    if (!r.u16(alen) || !r.sub(alen, attrs)) return BmpErrc::BadUpdate;
    count_prefixes(withdrawn, u.other_family_routes);

    Ctx ctx{u, two_octet_as};
    std::bitset<256> seen;
    uint32_t count = 0;
    while (!attrs.empty()) {
        const uint32_t at = uint32_t(attrs.pos());
        err_offset = at;
        if (++count > kMaxAttributes) return BmpErrc::TooManyAttributes;
        uint8_t flags = 0, code = 0;
        uint16_t len = 0;
        Reader value(nullptr, 0, 0);
        bool framed = attrs.u8(flags) && attrs.u8(code);
        if (framed) {
            uint8_t len8 = 0;
            framed = (flags & kFlagExtLength) ? attrs.u16(len) : (attrs.u8(len8) && ((len = len8), true));
        }
        if (!framed || !attrs.sub(len, value)) {
            // The attribute list no longer frames (RFC 7606 section 4). With
            // the EVPN routes already found they are withdrawn; otherwise
            // they cannot be located and the session resets.
            if (!seen[kAttrMpReach]) return BmpErrc::BadUpdate;
            note(u, code, kWithdraw, at, "attribute runs past the attribute list");
            break;
        }
        if (seen[code]) {
            if (is_mp(code)) return BmpErrc::BadUpdate;  // RFC 7606 section 3
            note(u, code, kDiscard, at, "attribute repeated");
            continue;
        }
        seen[code] = true;
        const int idx = kAttrIndex[code];
        if (idx < 0) {
            if (!(flags & kFlagOptional)) note(u, code, kDiscard, at, "unrecognised well-known attribute");
            continue;
        }
        const AttrRow &row = kAttrTable[idx];
        const bool flags_ok = (flags & kFlagsOptTrans) == row.flags;
        if (!flags_ok && !is_mp(code)) {
            // RFC 7606 section 3: treated as malformed, and withdrawn unless
            // the attribute's own handling is to discard it.
            note(u, code, row.on_error == kDiscard ? kDiscard : kWithdraw, at, "attribute flags wrong");
            continue;
        }
        FaultAction action = row.on_error;
        if (const char *why = row.parse(ctx, value, action)) {
            if (action == kReset) {
                err_offset = ctx.err != BmpErrc::Ok ? ctx.err_offset : at;
                return ctx.err != BmpErrc::Ok ? ctx.err : BmpErrc::BadUpdate;
            }
            note(u, code, action, at, why);
        } else if (!flags_ok) {
            // An MP attribute with wrong flags is still read so that its
            // routes can be withdrawn.
            note(u, code, kWithdraw, at, "attribute flags wrong");
        }
    }

    // A missing well-known attribute withdraws nothing here: the router
    // already took the routes in (gobgpd's Loc-RIB export has no AS_PATH for
    // its own routes).
    count_prefixes(r, u.other_family_routes);
    if (too_many_routes(u)) {
        err_offset = uint32_t(r.pos());
        return BmpErrc::TooManyRoutes;
    }
    return BmpErrc::Ok;
}

}  // namespace evpn::bmp::detail

namespace evpn::bmp {

const char *attr_name(uint8_t code) {
    const int idx = detail::kAttrIndex[code];
    return idx < 0 ? "unknown" : detail::kAttrTable[idx].name;
}

}  // namespace evpn::bmp
