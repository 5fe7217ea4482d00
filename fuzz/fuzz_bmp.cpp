// The BMP library against arbitrary bytes: the input as one message, then as
// a stream fed to the framer in uneven pieces, each message it gives parsed.
// A parsed UPDATE without faults must encode and parse back to the same
// routes and attributes.
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "evpn_bmp/bmp.h"
#include "evpn_bmp/bmp_encode.h"

using namespace evpn::bmp;

namespace {

Message g_msg, g_again;  // reused, as a collector reuses them

void check_round_trip(const Message &m) {
    const Update &u = m.update;
    if (m.type != MsgType::RouteMonitoring || !u.attr_faults.empty()) return;
    Encoder e;
    e.route_monitoring(m.peer, u.reach, u.attrs, u.unreach);
    if (parse_message(e.bytes(), g_again)) abort();
    const Update &v = g_again.update;
    if (v.reach != u.reach || v.unreach != u.unreach) abort();
    // Attributes travel with announced routes only (ORIGIN and the next hop
    // are written with MP_REACH_NLRI).
    if (!u.reach.empty() && !(v.attrs == u.attrs)) abort();
}

void parse_one(std::span<const uint8_t> bytes) {
    const BmpError e = parse_message(bytes, g_msg);
    if (e) {
        if (e.code != BmpErrc::Short && e.offset > bytes.size()) abort();
        return;
    }
    if (g_msg.length > bytes.size()) abort();  // bytes after the message are not read
    check_round_trip(g_msg);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    parse_one({data, size});

    static const size_t pieces[] = {1, 3, 17, 64, 500, 4096};
    Framer f;
    size_t at = 0;
    for (size_t i = 0; at < size; i++) {
        const size_t n = std::min(pieces[i % std::size(pieces)], size - at);
        f.feed({data + at, n});
        at += n;
        std::span<const uint8_t> m;
        BmpError e;
        while (!(e = f.next(m))) {
            uint32_t len = 0;
            if (message_length(m, len) || len != m.size()) abort();
            const BmpError pe = parse_message(m, g_msg);
            if (pe.code == BmpErrc::Short) abort();  // a framed message is whole
            if (!pe) check_round_trip(g_msg);
        }
        if (e.code != BmpErrc::Short) break;  // a framing error is final
    }
    return 0;
}
