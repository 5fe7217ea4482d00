// routes/s of parse_message on the type-2 messages of a generated stream,
// then of the whole stream through the framer.
// Usage: bench_bmp_parse [ROUTES] [ROUTES_PER_UPDATE]
#include <algorithm>
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

    // The whole stream, every route type, through the framer in 64 KiB reads
    // as a collector takes it from a socket.
    routes = 0;
    const auto t1 = std::chrono::steady_clock::now();
    Framer f;
    for (size_t off = 0; off < stream.size(); off += 65536) {
        f.feed(std::span(stream).subspan(off, std::min<size_t>(65536, stream.size() - off)));
        std::span<const uint8_t> m;
        while (!f.next(m)) {
            if (parse_message(m, msg)) return 1;
            routes += msg.update.reach.size();
        }
    }
    const double s1 = std::chrono::duration<double>(std::chrono::steady_clock::now() - t1).count();
    printf("whole stream, framed: %llu routes of types 1-5 (%.1f MB): %.3f s, %.0f routes/s\n",
           (unsigned long long)routes, stream.size() / 1e6, s1, routes / s1);
    return 0;
}
