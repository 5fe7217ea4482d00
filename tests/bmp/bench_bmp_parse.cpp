// routes/s of parse_message over a generated stream of type-2 routes, framed
// as a collector frames them. Usage: bench_bmp_parse [ROUTES] [ROUTES_PER_UPDATE]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "evpn_bmp/bmp.h"
#include "evpn_bmp/bmp_gen.h"

using namespace evpn::bmp;

int main(int argc, char **argv) {
    GenBmpOptions opt;
    opt.routes = argc > 1 ? strtoull(argv[1], nullptr, 10) : 1000000;
    opt.routes_per_update = argc > 2 ? uint32_t(strtoul(argv[2], nullptr, 10)) : 8;
    opt.evis = 1000;
    opt.peers = 4;
    std::vector<uint8_t> stream;
    gen_bmp_stream(opt, [&](std::span<const uint8_t> b) {
        stream.insert(stream.end(), b.begin(), b.end());
        return true;
    });
    // The Route Monitoring messages that announce type-2 routes, timed alone.
    std::vector<std::span<const uint8_t>> type2;
    size_t at = 0;
    Message msg;
    while (at < stream.size()) {
        uint32_t len = 0;
        if (message_length(std::span(stream).subspan(at), len)) return 1;
        const std::span<const uint8_t> m(stream.data() + at, len);
        if (!parse_message(m, msg) && !msg.update.reach.empty() && msg.update.reach[0].route_type == 2)
            type2.push_back(m);
        at += len;
    }
    uint64_t routes = 0, bytes = 0;
    const auto t0 = std::chrono::steady_clock::now();
    for (const auto &m : type2) {
        if (parse_message(m, msg)) return 1;
        routes += msg.update.reach.size();
        bytes += m.size();
    }
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    printf("%llu type-2 routes in %zu messages (%.1f MB): %.3f s, %.0f routes/s, %.0f ns/route\n",
           (unsigned long long)routes, type2.size(), bytes / 1e6, s, routes / s, s * 1e9 / routes);
    return 0;
}
