// Address and identifier parsers against arbitrary text. The first byte picks
// the parser; the rest is the text. Whatever parses must format to a text that
// parses back to the same bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/formatters.h"

namespace {

void ip_round_trip(const char *text) {
    l2vpn_ip_addr_t a, b;
    memset(&a, 0xa5, sizeof a);
    if (!l2vpn_inet_pton(text, &a)) return;
    const std::string shown = l2vpn_inet_ntop(&a);
    memset(&b, 0x5a, sizeof b);
    if (!l2vpn_inet_pton(shown.c_str(), &b) || memcmp(&a, &b, sizeof a) != 0) abort();
}

void mac_round_trip(const char *text) {
    uint8_t a[6], b[6];
    memset(a, 0xa5, sizeof a);
    if (l2vpn_mac_pton(text, a) != 0) return;
    const std::string shown = macstring(a, 6);
    if (shown.size() != L2VPN_MAC_STR_LEN) abort();
    memset(b, 0x5a, sizeof b);
    if (l2vpn_mac_pton(shown.c_str(), b) != 0 || memcmp(a, b, sizeof a) != 0) abort();
}

void esi_round_trip(const char *text) {
    uint8_t a[10], b[10];
    memset(a, 0xa5, sizeof a);
    if (evpn_esi_pton(text, a) != 0) return;
    const char *shown = esistring(a);
    if (!shown) {
        if (a[0] <= 5) abort();  // only an impossible segment type has no text
        return;
    }
    if (strlen(shown) != L2VPN_ESI_STR_LEN) abort();
    memset(b, 0x5a, sizeof b);
    if (evpn_esi_pton(shown, b) != 0 || memcmp(a, b, sizeof a) != 0) abort();
}

void rd_round_trip(const char *text) {
    l2vpn_bag_rd_t a, b;
    memset(&a, 0xa5, sizeof a);
    if (l2vpn_bag_rd_pton(text, &a) != 0) return;
    char shown[64];
    l2vpn_bag_rd_to_text(&a, shown, sizeof shown);
    memset(&b, 0x5a, sizeof b);
    if (l2vpn_bag_rd_pton(shown, &b) != 0 || a.format != b.format ||
        memcmp(a.value, b.value, sizeof a.value) != 0)
        abort();
    // A value that converts gives the same text through the display path.
    l2vpn_rd_t rd;
    if (l2vpn_bag_rd_convert(&a, &rd)) {
        char via[L2VPN_RD_STR_SIZE];  // exactly the documented bound
        memset(via, 0, sizeof via);
        rd_get_string(&rd, via);
        if (strnlen(via, sizeof via) >= L2VPN_RD_STR_SIZE) abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    // The parsers take C strings: the text ends at the first NUL.
    const std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    switch (data[0] % 4) {
    case 0: ip_round_trip(text.c_str()); break;
    case 1: mac_round_trip(text.c_str()); break;
    case 2: esi_round_trip(text.c_str()); break;
    case 3: rd_round_trip(text.c_str()); break;
    }
    return 0;
}
