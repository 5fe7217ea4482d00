// Synthetic operational data at scale: MAC routes over many EVIs, for load
// and display measurements. The same options always give the same data.
#pragma once
#include <cstdint>
#include <iosfwd>
#include <string>

namespace evpn {

class SysdbWriter;

struct GenOptions {
    uint64_t routes = 0;  // MAC and MAC/IP routes in all
    uint32_t evis = 1;    // EVIs (VPN IDs 1..evis); routes are spread evenly over them
    uint64_t seed = 1;
};

// What generate() produced (also in the summary record).
struct GenCounts {
    uint64_t routes = 0, local = 0, remote = 0, ipv4 = 0, ipv6 = 0, paths = 0;
};

// Writes the routes, one EVI summary record per EVI and the global summary
// item below "/oper/evpn/gl/" through writer (when not null), and the same
// data as a snapshot to json_out (when not null). The caller commits the
// writer. False with err when the writer refuses a record or the stream fails.
bool generate(const GenOptions &opt, SysdbWriter *writer, std::ostream *json_out,
              std::string &err, GenCounts *counts = nullptr);

}  // namespace evpn
