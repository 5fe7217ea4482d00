// Each route type through the live store to the client's own report.
#include "collector_test.h"

namespace {

using namespace ctest;

constexpr uint32_t mpls(uint32_t label) { return label << 4 | 1; }

TEST(RouteMapping, Scratch) {
    Store s;
    bmp::RouteAttrs a = attrs(v4(192, 0, 2, 1), {rt2(65000, 100)});
    s.apply(update(peer(1), {mac_route(rd_ip(1, 100), 1, {}, mpls(24001)),
                             mac_route(rd_ip(1, 100), 2, v4(10, 0, 0, 2), mpls(24001))},
                   a));
    bmp::RouteAttrs x = attrs(v4(192, 0, 2, 2), {rt2(65000, 200)});
    x.has_encap = true;
    x.encap = 8;
    x.has_pmsi = true;
    x.pmsi_tunnel_type = 6;
    x.pmsi_label = 10200;
    bmp::EvpnNlri im;
    im.route_type = 3;
    im.rd = rd_ip(2, 200);
    im.ip = v4(192, 0, 2, 2);
    bmp::EvpnNlri ead;
    ead.route_type = 1;
    ead.rd = rd_ip(2, 200);
    ead.esi = {0, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99};
    ead.ethernet_tag = 0xffffffff;
    bmp::EvpnNlri ead2 = ead;
    ead2.ethernet_tag = 0;
    ead2.label_count = 1;
    ead2.label[0] = 10200;
    bmp::EvpnNlri es;
    es.route_type = 4;
    es.rd = rd_ip(2, 200);
    es.esi = ead.esi;
    es.ip = v4(192, 0, 2, 2);
    x.has_esi_label = true;
    x.esi_label_flags = 1;
    s.apply(update(peer(2), {im, ead, ead2, es, mac_route(rd_ip(2, 200), 3, {}, 10200)}, x));
    for (auto c : {"0", "1", "3", "5", "7", "8", "9", "10"}) std::cout << show(s.db, {c});
    std::cout << show(s.db, {"-p", "4"});
    std::cout << show(s.db, {"-d", "5"});
    std::cout << show(s.db, {"-d", "9"});
    std::cout << show(s.db, {"-d", "3"});
    std::cout << show(s.db, {"-d", "1"});
}

}  // namespace
