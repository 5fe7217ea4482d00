// What the message parser and the UPDATE parser share.
#pragma once
#include "evpn_bmp/bmp.h"
#include "reader.h"

namespace evpn::bmp::detail {

inline constexpr size_t kBgpHeaderLength = 19;  // marker, length, type
inline constexpr uint8_t kBgpOpen = 1, kBgpUpdate = 2, kBgpNotification = 3;

// Reads one BGP message header of the wanted type from r and gives its body.
// The message must fit in r; a wrong marker, length or type is BadBgpHeader.
BmpErrc bgp_message(Reader &r, uint8_t want_type, Reader &body, uint32_t &err_offset);

// Parses an UPDATE's body into u (cleared by the caller). two_octet_as: the
// session's AS_PATH carries 2-octet AS numbers (the peer header's A flag).
// A framing fault, or an attribute fault whose RFC 7606 handling is a session
// reset, is returned with its offset; other faults land in u.attr_faults.
BmpErrc parse_update(Reader &r, bool two_octet_as, Update &u, uint32_t &err_offset);

}  // namespace evpn::bmp::detail
