// Writes a deterministic BMP byte stream of EVPN routes, as a router
// monitoring its peers would send it: the replay input of tests and
// benchmarks (`evpn_sysdb gen-bmp`).
#pragma once
#include <cstdint>
#include <functional>
#include <span>

namespace evpn::bmp {

struct GenBmpOptions {
    uint64_t routes = 1000;           // of each route type, 1 to 5
    uint32_t evis = 100;              // EVIs 1..evis; a route target's local administrator is the EVI
    uint32_t peers = 1;               // monitored peers, each a PE of its own
    uint64_t seed = 1;
    bool withdraw = false;            // then withdraw every route again
    uint32_t routes_per_update = 8;   // for types 1, 2 and 5; types 3 and 4 go one per UPDATE
};

struct GenBmpCounts {
    uint64_t messages = 0, bytes = 0;
    uint64_t announced = 0, withdrawn = 0;
};

// The stream: Initiation, a Peer Up per peer, `routes` routes of each type in
// Route Monitoring messages, their withdraws if asked, a Statistics Report
// per peer. sink gets it in pieces of about 64 KiB; a false from sink stops
// the stream and returns false.
using GenBmpSink = std::function<bool(std::span<const uint8_t>)>;
bool gen_bmp_stream(const GenBmpOptions &opt, const GenBmpSink &sink, GenBmpCounts *counts = nullptr);

}  // namespace evpn::bmp
