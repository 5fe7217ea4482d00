// BMP (version 3) and the BGP UPDATE inside it, parsed for the EVPN routes
// they carry. This library knows nothing of the store: it turns bytes into
// the values below and values back into bytes (bmp_encode.h), nothing else.
//
// Every parse works on a caller's buffer through a bounds-checked reader and
// reports the first framing fault as a BmpError with the byte offset from the
// start of the message. A fault in one path attribute is not a framing fault:
// it is handled per RFC 7606 (attribute discard or treat-as-withdraw) and
// noted in Update::attr_faults, and the message goes on.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace evpn::bmp {

// ---- Limits ------------------------------------------------------------------

inline constexpr uint32_t kMaxMessageLength = 1u << 20;  // a BMP message, header included
inline constexpr uint32_t kMaxBgpMessageLength = 65535;  // RFC 8654 extended messages
inline constexpr uint32_t kMaxAttributes = 256;          // path attributes in one UPDATE
inline constexpr uint32_t kMaxRouteTargets = 512;        // kept per UPDATE
inline constexpr uint32_t kMaxSrv6Sids = 16;             // kept per UPDATE
inline constexpr uint32_t kMaxRoutesPerUpdate = 65535;

// ---- Values ------------------------------------------------------------------

enum class MsgType : uint8_t {
    RouteMonitoring = 0,
    StatisticsReport = 1,
    PeerDown = 2,
    PeerUp = 3,
    Initiation = 4,
    Termination = 5,
    RouteMirroring = 6,
};

enum class PeerType : uint8_t { Global = 0, RdInstance = 1, Local = 2, LocRib = 3 };

struct IpAddr {
    uint8_t len = 0;  // 0 (absent), 4 or 16
    std::array<uint8_t, 16> b{};
    bool operator==(const IpAddr &) const = default;
};

using Rd = std::array<uint8_t, 8>;    // as on the wire: type, then value
using Esi = std::array<uint8_t, 10>;  // as on the wire: type, then value
using Mac = std::array<uint8_t, 6>;

// The per-peer header that every message but Initiation and Termination has.
struct PeerHeader {
    PeerType type = PeerType::Global;
    uint8_t flags = 0;  // V (0x80): address is IPv6; L, A, O (RFC 9069: F)
    Rd distinguisher{};
    IpAddr address;     // zero for a Loc-RIB peer
    uint32_t as = 0;
    uint32_t bgp_id = 0;
    uint32_t ts_sec = 0, ts_usec = 0;
    bool operator==(const PeerHeader &) const = default;
};

// What names one monitored peer for its whole session: the routes a peer
// sent are all removed when that peer goes down.
struct PeerKey {
    PeerType type = PeerType::Global;
    Rd distinguisher{};
    IpAddr address;
    uint32_t bgp_id = 0;
    bool operator==(const PeerKey &) const = default;
};
PeerKey peer_key(const PeerHeader &h);

// One EVPN NLRI (RFC 7432 section 7, RFC 9136). Fields a type does not have
// stay zero.
struct EvpnNlri {
    uint8_t route_type = 0;   // 1 EAD, 2 MAC/IP, 3 inclusive multicast, 4 ES, 5 IP prefix
    Rd rd{};
    Esi esi{};                // types 1, 2, 4, 5
    uint32_t ethernet_tag = 0;  // types 1, 2, 3, 5
    Mac mac{};                // type 2
    IpAddr ip;                // type 2: MAC/IP's IP; 3 and 4: originating router; 5: prefix
    uint8_t ip_prefix_len = 0;  // type 5
    IpAddr gateway;           // type 5
    uint8_t label_count = 0;  // labels present: 1 for types 1, 5; 1 or 2 for type 2
    uint32_t label[2] = {};   // each the raw 24 bits of the field (label << 4 | bits, or a VNI)
    bool operator==(const EvpnNlri &) const = default;
};

// One SRv6 service SID from the Prefix-SID attribute (RFC 9252).
struct Srv6ServiceSid {
    uint8_t service = 0;          // 5: L3 service TLV, 6: L2 service TLV
    std::array<uint8_t, 16> sid{};
    uint8_t flags = 0;
    uint16_t endpoint_behavior = 0;
    bool has_structure = false;
    uint8_t locator_block_len = 0, locator_node_len = 0, function_len = 0,
            argument_len = 0, transposition_len = 0, transposition_offset = 0;
    bool operator==(const Srv6ServiceSid &) const = default;
};

// The attributes of an UPDATE that the EVPN displays use.
struct RouteAttrs {
    uint8_t origin = 0;
    bool has_origin = false;
    IpAddr next_hop;                 // from MP_REACH_NLRI (the global one for IPv6)
    std::vector<uint64_t> route_targets;  // extended communities of route-target subtype, raw 8 bytes big-endian
    bool has_mac_mobility = false;
    uint32_t mac_mobility_seq = 0;
    bool mac_mobility_sticky = false;
    bool has_esi_label = false;
    uint8_t esi_label_flags = 0;     // bit 0: single-active
    uint32_t esi_label = 0;          // raw 24 bits
    bool has_es_import = false;
    Mac es_import{};
    bool has_router_mac = false;
    Mac router_mac{};
    bool has_encap = false;
    uint16_t encap = 0;              // RFC 9012 tunnel type: 8 VXLAN, 10 MPLS, ...
    bool default_gateway = false;
    bool has_l2_attrs = false;
    uint16_t l2_flags = 0;           // RFC 8214: P, B, C bits
    uint16_t l2_mtu = 0;
    bool has_pmsi = false;
    uint8_t pmsi_flags = 0;
    uint8_t pmsi_tunnel_type = 0;    // 6: ingress replication
    uint32_t pmsi_label = 0;         // raw 24 bits
    IpAddr pmsi_endpoint;
    std::vector<Srv6ServiceSid> srv6_sids;
    void clear();                    // keeps the vectors' capacity
    bool operator==(const RouteAttrs &) const = default;
};

// How one path attribute fault was handled (RFC 7606).
enum class FaultAction : uint8_t { AttributeDiscard, TreatAsWithdraw, SessionReset };
struct AttrFault {
    uint8_t attr_type = 0;
    FaultAction action = FaultAction::AttributeDiscard;
    uint32_t offset = 0;             // from the start of the BMP message
    const char *reason = "";         // a static text
};

// A BGP UPDATE's EVPN content. Routes of other families are not kept but
// counted; a type-5 route is kept like the others (the mapper counts it).
struct Update {
    std::vector<EvpnNlri> reach;     // announced, from MP_REACH_NLRI (AFI 25, SAFI 70)
    std::vector<EvpnNlri> unreach;   // withdrawn, from MP_UNREACH_NLRI
    RouteAttrs attrs;
    bool treat_as_withdraw = false;  // the announced routes are to be taken as withdrawn
    uint32_t other_family_routes = 0;
    uint32_t unknown_route_types = 0;  // EVPN routes of a type other than 1-5, skipped by their length
    std::vector<AttrFault> attr_faults;
    void clear();                    // keeps the vectors' capacity
};

struct Initiation {                  // also Termination's information TLVs
    std::string_view sys_name, sys_descr, free_text;  // into the message buffer
    uint16_t reason = 0;             // Termination only
    bool has_reason = false;
};

struct PeerUp {
    IpAddr local_address;
    uint16_t local_port = 0, remote_port = 0;
    uint32_t sent_open_as = 0, received_open_as = 0;  // from the two OPENs (4-octet AS capability honoured)
    bool four_octet_as = false;      // both OPENs carry the capability
    std::string_view table_name;     // RFC 9069 Loc-RIB table name TLV, into the message buffer
};

struct PeerDown {
    uint8_t reason = 0;
    uint16_t fsm_event = 0;          // reason 2
};

struct StatEntry {
    uint16_t type = 0;
    uint64_t value = 0;              // 32-bit counters and 64-bit gauges both widened
};

// One BMP message, parsed. Views point into the caller's buffer.
struct Message {
    uint8_t version = 0;
    MsgType type = MsgType::Initiation;
    uint32_t length = 0;
    PeerHeader peer;                 // all but Initiation and Termination
    Initiation info;                 // Initiation, Termination
    PeerUp peer_up;
    PeerDown peer_down;
    Update update;                   // Route Monitoring
    std::vector<StatEntry> stats;    // Statistics Report
    void clear();                    // keeps the vectors' capacity
};

// ---- Errors ------------------------------------------------------------------

enum class BmpErrc : uint8_t {
    Ok = 0,
    Short,            // the bytes end inside the message (a stream: wait for more)
    BadVersion,       // not version 3
    TooLong,          // message length over kMaxMessageLength, or below the header
    BadType,          // unknown message type
    BadPeerHeader,
    BadTlv,           // an information TLV runs past its message
    BadBgpHeader,     // marker, length or type of the BGP message inside
    BadUpdate,        // withdrawn routes or attribute lengths do not add up (RFC 7606: session reset)
    TooManyAttributes,
    TooManyRoutes,
    BadNlri,          // an EVPN NLRI that cannot be framed
    BadBody,          // a message's fixed fields (Peer Up, Peer Down, Statistics) run past its end
};
const char *bmp_strerror(BmpErrc e);

struct BmpError {
    BmpErrc code = BmpErrc::Ok;
    uint32_t offset = 0;             // byte offset from the start of the message
    MsgType type = MsgType::Initiation;  // the message's type, where its header was read
    explicit operator bool() const { return code != BmpErrc::Ok; }
};

// ---- Parsing -----------------------------------------------------------------

// Length of the message that starts buf, from its common header: Short when
// fewer than 6 bytes are there, an error when the header is not one of ours.
// A stream reader reads this many bytes, then calls parse_message.
BmpError message_length(std::span<const uint8_t> buf, uint32_t &length);

// Parses exactly one whole message (buf holds it and nothing more) into out,
// which is cleared first. out's views point into buf.
BmpError parse_message(std::span<const uint8_t> buf, Message &out);

// Splits a byte stream into messages: feed it bytes as they arrive, then take
// whole messages until next() says Short. A framing error is final.
// Messages are framed in the fed bytes themselves when nothing is kept from
// before; only a message's incomplete tail is copied, when next() says Short.
// So fed bytes must stay as they are until next() says Short or fails, or
// the next feed().
class Framer {
  public:
    void feed(std::span<const uint8_t> bytes);
    // The next whole message's bytes, valid until the next feed().
    BmpError next(std::span<const uint8_t> &message);
    uint64_t offset() const { return consumed_; }  // stream offset of the next message
    size_t buffered() const { return view_.size() + buf_.size() - start_; }

  private:
    void keep_view();  // copies the fed bytes not yet framed into buf_

    std::span<const uint8_t> view_;  // fed bytes framed in place; buf_ then holds nothing
    std::vector<uint8_t> buf_;
    size_t start_ = 0;
    uint64_t consumed_ = 0;
    BmpError failed_;  // a framing error, returned from then on
};

// ---- Words for logs -------------------------------------------------------------

const char *msg_type_name(MsgType t);      // "Route Monitoring", ...
const char *peer_type_name(PeerType t);    // "global", "rd-instance", "local", "loc-rib"
const char *attr_name(uint8_t code);       // "ORIGIN", "MP_REACH_NLRI", ...; "unknown" for others
// "192.0.2.1", "2001:db8::1"; "-" for an absent address. buf of 46 bytes at least.
const char *ip_text(const IpAddr &a, char *buf, size_t size);

}  // namespace evpn::bmp
