// BMP version 3 messages (RFC 7854, RFC 9069): the common header, the
// per-peer header and each message type's body; the stream framer; the
// words for logs.
#include <cstdio>
#include <cstring>

#include "internal.h"

namespace evpn::bmp {
namespace {

using detail::Reader;

constexpr uint8_t kVersion = 3;
constexpr size_t kCommonHeader = 6;
constexpr size_t kPeerHeader = 42;
constexpr uint8_t kPeerFlagV = 0x80, kPeerFlagA = 0x20;

// Information TLV types: Initiation, Termination, Peer Up.
constexpr uint16_t kInfoString = 0, kInfoSysDescr = 1, kInfoSysName = 2, kInfoTableName = 3;
constexpr uint16_t kTermReason = 1;

// The per-peer header's address field: IPv4 in its last four octets unless
// the V flag says IPv6; a Loc-RIB peer has none (RFC 9069 section 4.1).
void peer_address(const uint8_t *field, PeerType type, uint8_t flags, IpAddr &a) {
    a = IpAddr{};
    if (type == PeerType::LocRib) return;
    if (flags & kPeerFlagV) {
        a.len = 16;
        std::copy(field, field + 16, a.b.begin());
    } else {
        a.len = 4;
        std::copy(field + 12, field + 16, a.b.begin());
    }
}

BmpErrc peer_header(Reader &r, PeerHeader &h) {
    if (r.left() < kPeerHeader) return BmpErrc::BadPeerHeader;
    uint8_t type = 0;
    r.u8(type);
    if (type > uint8_t(PeerType::LocRib)) return BmpErrc::BadPeerHeader;
    h.type = PeerType(type);
    r.u8(h.flags);
    r.bytes(h.distinguisher.data(), 8);
    peer_address(r.here(), h.type, h.flags, h.address);
    r.skip(16);
    r.u32(h.as), r.u32(h.bgp_id), r.u32(h.ts_sec), r.u32(h.ts_usec);
    return BmpErrc::Ok;
}

// Information TLVs to the end of the message. Text values are kept as views;
// unknown types are skipped.
BmpErrc info_tlvs(Reader &r, Initiation *info, PeerUp *up, uint32_t &err_offset) {
    while (!r.empty()) {
        err_offset = uint32_t(r.pos());
        uint16_t type = 0, len = 0;
        if (!r.u16(type) || !r.u16(len) || r.left() < len) return BmpErrc::BadTlv;
        const std::string_view text(reinterpret_cast<const char *>(r.here()), len);
        if (info) {
            if (type == kInfoString && info->free_text.empty()) info->free_text = text;
            if (type == kInfoSysDescr) info->sys_descr = text;
            if (type == kInfoSysName) info->sys_name = text;
        }
        if (up && type == kInfoTableName) up->table_name = text;
        r.skip(len);
    }
    return BmpErrc::Ok;
}

BmpErrc termination(Reader &r, Initiation &info, uint32_t &err_offset) {
    while (!r.empty()) {
        err_offset = uint32_t(r.pos());
        uint16_t type = 0, len = 0;
        if (!r.u16(type) || !r.u16(len) || r.left() < len) return BmpErrc::BadTlv;
        if (type == kTermReason) {
            if (len != 2) return BmpErrc::BadTlv;
            r.u16(info.reason);
            info.has_reason = true;
            continue;
        }
        if (type == kInfoString && info.free_text.empty())
            info.free_text = std::string_view(reinterpret_cast<const char *>(r.here()), len);
        r.skip(len);
    }
    return BmpErrc::Ok;
}

// An OPEN's speaker AS: the 4-octet AS capability's when present (RFC 6793),
// the 2-octet field's otherwise. Optional parameters may use the extended
// length form (RFC 9072).
BmpErrc open_as(Reader &r, uint32_t &as, bool &four_octet, uint32_t &err_offset) {
    Reader body(nullptr, 0, 0);
    if (BmpErrc e = detail::bgp_message(r, detail::kBgpOpen, body, err_offset); e != BmpErrc::Ok) return e;
    uint8_t version = 0, params_len8 = 0;
    uint16_t as2 = 0, hold = 0, params_len = 0;
    uint32_t id = 0;
    err_offset = uint32_t(body.pos());
    if (!body.u8(version) || !body.u16(as2) || !body.u16(hold) || !body.u32(id) || !body.u8(params_len8))
        return BmpErrc::BadBgpHeader;
    params_len = params_len8;
    bool extended = false;
    if (params_len8 == 255 && body.left() >= 3 && body.here()[0] == 255) {
        extended = true;
        body.skip(1);
        body.u16(params_len);
    }
    Reader params(nullptr, 0, 0);
    if (!body.sub(params_len, params)) return BmpErrc::BadBgpHeader;
    as = as2;
    four_octet = false;
    while (!params.empty()) {
        err_offset = uint32_t(params.pos());
        uint8_t type = 0, len8 = 0;
        uint16_t len = 0;
        Reader param(nullptr, 0, 0);
        if (!params.u8(type)) return BmpErrc::BadBgpHeader;
        if (extended ? !params.u16(len) : !(params.u8(len8) && ((len = len8), true)))
            return BmpErrc::BadBgpHeader;
        if (!params.sub(len, param)) return BmpErrc::BadBgpHeader;
        if (type != 2) continue;  // capabilities
        while (!param.empty()) {
            err_offset = uint32_t(param.pos());
            uint8_t code = 0, clen = 0;
            Reader cap(nullptr, 0, 0);
            if (!param.u8(code) || !param.u8(clen) || !param.sub(clen, cap)) return BmpErrc::BadBgpHeader;
            if (code == 65 && clen == 4) {
                cap.u32(as);
                four_octet = true;
            }
        }
    }
    return BmpErrc::Ok;
}

BmpErrc peer_up(Reader &r, const PeerHeader &h, PeerUp &up, uint32_t &err_offset) {
    err_offset = uint32_t(r.pos());
    if (r.left() < 20) return BmpErrc::BadBody;
    peer_address(r.here(), h.type, h.flags, up.local_address);
    r.skip(16);
    r.u16(up.local_port), r.u16(up.remote_port);
    bool sent4 = false, recv4 = false;
    if (BmpErrc e = open_as(r, up.sent_open_as, sent4, err_offset); e != BmpErrc::Ok) return e;
    if (BmpErrc e = open_as(r, up.received_open_as, recv4, err_offset); e != BmpErrc::Ok) return e;
    up.four_octet_as = sent4 && recv4;
    return info_tlvs(r, nullptr, &up, err_offset);
}

// Peer Down reasons (RFC 7854 section 4.9, RFC 9069 section 5.4).
constexpr uint8_t kDownLocalNotification = 1, kDownLocalFsm = 2, kDownRemoteNotification = 3,
                  kDownLocRibClosed = 6;

BmpErrc peer_down(Reader &r, PeerDown &down, uint32_t &err_offset) {
    err_offset = uint32_t(r.pos());
    if (!r.u8(down.reason)) return BmpErrc::BadBody;
    switch (down.reason) {
    case kDownLocalNotification:
    case kDownRemoteNotification: {
        Reader body(nullptr, 0, 0);
        return detail::bgp_message(r, detail::kBgpNotification, body, err_offset);
    }
    case kDownLocalFsm:
        err_offset = uint32_t(r.pos());
        return r.u16(down.fsm_event) ? BmpErrc::Ok : BmpErrc::BadBody;
    case kDownLocRibClosed:
        return info_tlvs(r, nullptr, nullptr, err_offset);
    }
    return BmpErrc::Ok;  // other reasons carry no data we read
}

// Statistics: a count, then that many TLVs. 4 octets are a 32-bit counter,
// 8 a 64-bit gauge; 11 an AFI, a SAFI and a gauge (the per-family types).
BmpErrc statistics(Reader &r, std::vector<StatEntry> &out, uint32_t &err_offset) {
    err_offset = uint32_t(r.pos());
    uint32_t count = 0;
    if (!r.u32(count)) return BmpErrc::BadBody;
    // Each entry takes 4 octets at least: a count the message cannot hold is
    // refused before anything is kept.
    if (count > r.left() / 4) return BmpErrc::BadBody;
    for (uint32_t i = 0; i < count; i++) {
        err_offset = uint32_t(r.pos());
        StatEntry s;
        uint16_t len = 0;
        Reader v(nullptr, 0, 0);
        if (!r.u16(s.type) || !r.u16(len) || !r.sub(len, v)) return BmpErrc::BadTlv;
        uint32_t v32 = 0;
        if (len == 4) v.u32(v32), s.value = v32;
        else if (len == 8) v.u64(s.value);
        else if (len == 11) v.skip(3), v.u64(s.value);
        else continue;
        out.push_back(s);
    }
    return BmpErrc::Ok;
}

BmpErrc common_header(std::span<const uint8_t> buf, uint32_t &length, uint8_t &type) {
    if (buf.size() < 1) return BmpErrc::Short;
    if (buf[0] != kVersion) return BmpErrc::BadVersion;
    if (buf.size() < kCommonHeader) return BmpErrc::Short;
    length = Reader::load32(buf.data() + 1);
    type = buf[5];
    if (length < kCommonHeader || length > kMaxMessageLength) return BmpErrc::TooLong;
    if (type > uint8_t(MsgType::RouteMirroring)) return BmpErrc::BadType;
    return BmpErrc::Ok;
}

}  // namespace

BmpError message_length(std::span<const uint8_t> buf, uint32_t &length) {
    uint8_t type = 0;
    BmpError e;
    e.code = common_header(buf, length, type);
    if (e.code == BmpErrc::Ok || e.code == BmpErrc::TooLong) e.type = MsgType(type);
    return e;
}

BmpError parse_message(std::span<const uint8_t> buf, Message &out) {
    out.clear();
    BmpError e;
    uint32_t length = 0;
    uint8_t type = 0;
    e.code = common_header(buf, length, type);
    if (e.code != BmpErrc::Ok) return e;
    e.type = MsgType(type);
    if (buf.size() < length) return e.code = BmpErrc::Short, e;
    out.version = buf[0];
    out.type = e.type;
    out.length = length;
    Reader r(buf.data(), kCommonHeader, length);
    uint32_t at = uint32_t(kCommonHeader);
    BmpErrc c = BmpErrc::Ok;
    if (out.type != MsgType::Initiation && out.type != MsgType::Termination)
        c = peer_header(r, out.peer);
    if (c == BmpErrc::Ok) {
        switch (out.type) {
        case MsgType::RouteMonitoring: {
            Reader body(nullptr, 0, 0);
            c = detail::bgp_message(r, detail::kBgpUpdate, body, at);
            // Of the A flag's peer types only the three of RFC 7854 have it.
            const bool two_octet = (out.peer.flags & kPeerFlagA) && out.peer.type != PeerType::LocRib;
            if (c == BmpErrc::Ok) c = detail::parse_update(body, two_octet, out.update, at);
            break;
        }
        case MsgType::StatisticsReport: c = statistics(r, out.stats, at); break;
        case MsgType::PeerDown: c = peer_down(r, out.peer_down, at); break;
        case MsgType::PeerUp: c = peer_up(r, out.peer, out.peer_up, at); break;
        case MsgType::Initiation: c = info_tlvs(r, &out.info, nullptr, at); break;
        case MsgType::Termination: c = termination(r, out.info, at); break;
        case MsgType::RouteMirroring: break;  // recognised, its content not needed
        }
    }
    e.code = c;
    e.offset = c == BmpErrc::Ok ? 0 : at;
    return e;
}

// ---- Framer --------------------------------------------------------------------

void Framer::feed(std::span<const uint8_t> bytes) {
    keep_view();
    if (buf_.size() == start_) {
        buf_.clear();
        start_ = 0;
        view_ = bytes;
        return;
    }
    // What was handed out is no longer needed: drop it before growing.
    if (start_ > 0 && start_ >= buf_.size() / 2) {
        buf_.erase(buf_.begin(), buf_.begin() + ptrdiff_t(start_));
        start_ = 0;
    }
    buf_.insert(buf_.end(), bytes.begin(), bytes.end());
}

void Framer::keep_view() {
    if (view_.empty()) return;
    buf_.assign(view_.begin(), view_.end());
    start_ = 0;
    view_ = {};
}

BmpError Framer::next(std::span<const uint8_t> &message) {
    if (failed_) return failed_;
    const bool in_place = !view_.empty();
    const std::span<const uint8_t> rest = in_place ? view_ : std::span<const uint8_t>(buf_.data() + start_, buf_.size() - start_);
    uint32_t length = 0;
    BmpError e = message_length(rest, length);
    if (e.code == BmpErrc::Ok && rest.size() < length) e.code = BmpErrc::Short;
    if (e.code == BmpErrc::Short) {
        keep_view();
        return e;
    }
    if (e) return failed_ = e;
    message = rest.first(length);
    if (in_place) view_ = view_.subspan(length);
    else start_ += length;
    consumed_ += length;
    return e;
}

// ---- Values ----------------------------------------------------------------------

PeerKey peer_key(const PeerHeader &h) { return PeerKey{h.type, h.distinguisher, h.address, h.bgp_id}; }

void RouteAttrs::clear() {
    auto rts = std::move(route_targets);
    auto sids = std::move(srv6_sids);
    *this = RouteAttrs{};
    rts.clear(), sids.clear();
    route_targets = std::move(rts);
    srv6_sids = std::move(sids);
}

void Update::clear() {
    reach.clear(), unreach.clear(), attr_faults.clear();
    attrs.clear();
    treat_as_withdraw = false;
    other_family_routes = 0;
    unknown_route_types = 0;
}

void Message::clear() {
    version = 0;
    type = MsgType::Initiation;
    length = 0;
    peer = PeerHeader{};
    info = Initiation{};
    peer_up = PeerUp{};
    peer_down = PeerDown{};
    update.clear();
    stats.clear();
}

// ---- Words ----------------------------------------------------------------------

const char *bmp_strerror(BmpErrc e) {
    switch (e) {
    case BmpErrc::Ok: return "no error";
    case BmpErrc::Short: return "message cut short";
    case BmpErrc::BadVersion: return "not BMP version 3";
    case BmpErrc::TooLong: return "message length out of range";
    case BmpErrc::BadType: return "unknown message type";
    case BmpErrc::BadPeerHeader: return "bad per-peer header";
    case BmpErrc::BadTlv: return "information TLV runs past its message";
    case BmpErrc::BadBgpHeader: return "bad BGP message inside";
    case BmpErrc::BadUpdate: return "BGP UPDATE does not frame";
    case BmpErrc::TooManyAttributes: return "too many path attributes";
    case BmpErrc::TooManyRoutes: return "too many routes in one UPDATE";
    case BmpErrc::BadNlri: return "EVPN route does not frame";
    case BmpErrc::BadBody: return "message body cut short";
    }
    return "unknown error";
}

const char *msg_type_name(MsgType t) {
    switch (t) {
    case MsgType::RouteMonitoring: return "Route Monitoring";
    case MsgType::StatisticsReport: return "Statistics Report";
    case MsgType::PeerDown: return "Peer Down";
    case MsgType::PeerUp: return "Peer Up";
    case MsgType::Initiation: return "Initiation";
    case MsgType::Termination: return "Termination";
    case MsgType::RouteMirroring: return "Route Mirroring";
    }
    return "unknown";
}

const char *peer_type_name(PeerType t) {
    switch (t) {
    case PeerType::Global: return "global";
    case PeerType::RdInstance: return "rd-instance";
    case PeerType::Local: return "local";
    case PeerType::LocRib: return "loc-rib";
    }
    return "unknown";
}

// IPv6 text per RFC 5952: lower case, the longest run of two or more zero
// groups (the first of equal runs) as "::". Written whole into a local
// buffer, then copied, cut to size if need be.
const char *ip_text(const IpAddr &a, char *buf, size_t size) {
    char t[48];
    size_t n = 0;
    if (a.len == 4) {
        n = size_t(snprintf(t, sizeof t, "%u.%u.%u.%u", a.b[0], a.b[1], a.b[2], a.b[3]));
    } else if (a.len == 16) {
        uint16_t g[8];
        for (int i = 0; i < 8; i++) g[i] = uint16_t(a.b[2 * i] << 8 | a.b[2 * i + 1]);
        int best = -1, best_len = 1;
        for (int i = 0; i < 8;) {
            int j = i;
            while (j < 8 && g[j] == 0) j++;
            if (j - i > best_len) best = i, best_len = j - i;
            i = j > i ? j : i + 1;
        }
        for (int i = 0; i < 8; i++) {
            if (i == best) {
                t[n++] = ':', t[n++] = ':';
                i += best_len - 1;
                continue;
            }
            const bool after_gap = i == best + best_len && best >= 0;
            n += size_t(snprintf(t + n, sizeof t - n, i == 0 || after_gap ? "%x" : ":%x", g[i]));
        }
        t[n] = 0;
    } else {
        t[n++] = '-', t[n] = 0;
    }
    if (size == 0) return buf;
    const size_t k = n < size - 1 ? n : size - 1;
    memcpy(buf, t, k);
    buf[k] = 0;
    return buf;
}

}  // namespace evpn::bmp
