// Builds BMP messages from the values parse_message gives back: the stream
// generator's output and the tests' inputs. What an encoder writes parses to
// the same values (the round trip is tested).
#pragma once
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "evpn_bmp/bmp.h"

namespace evpn::bmp {

// Appends whole messages to one byte buffer that the caller drains.
class Encoder {
  public:
    std::vector<uint8_t> &bytes() { return out_; }

    void initiation(std::string_view sys_name, std::string_view sys_descr);
    void termination(uint16_t reason);
    // The OPENs inside carry the 4-octet AS capability with the ASes given.
    void peer_up(const PeerHeader &peer, const PeerUp &up);
    void peer_down(const PeerHeader &peer, uint8_t reason);
    void statistics(const PeerHeader &peer, std::span<const StatEntry> stats);
    // One Route Monitoring message holding one UPDATE: reach in MP_REACH_NLRI
    // with attrs (ORIGIN where has_origin, an empty AS_PATH), unreach in
    // MP_UNREACH_NLRI. Either may be empty.
    void route_monitoring(const PeerHeader &peer, std::span<const EvpnNlri> reach,
                          const RouteAttrs &attrs, std::span<const EvpnNlri> unreach);

  private:
    std::vector<uint8_t> out_;
};

}  // namespace evpn::bmp
