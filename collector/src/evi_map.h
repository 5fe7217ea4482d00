// Which EVI a route belongs to, from its route targets: a map file's line for
// the route target when there is one, else the EVI the route target carries
// in its local administrator (auto-derived route targets).
#pragma once
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

namespace evpn::collector {

class EviMap {
  public:
    // Reads "RT EVI" lines: a route target as the reports print one
    // ("65000:100", "192.0.2.1:7", "4200000000:7"), blanks, an EVI from 1 to
    // 4294967295; '#' starts a comment; blank lines are skipped. err names
    // the file, line and column of the first fault.
    bool load(const std::string &path, std::string &err);
    bool parse(std::string_view text, const std::string &name, std::string &err);

    // The EVI of a route with these route targets (raw 8 bytes, as received):
    // the first one the file maps, else the first one that carries an EVI.
    // 0: none.
    uint32_t evi_of(std::span<const uint64_t> route_targets) const;
    size_t size() const { return map_.size(); }

  private:
    std::unordered_map<uint64_t, uint32_t> map_;
};

// The EVI an auto-derived route target carries: for a 2-octet AS, the low 24
// bits of the 4-octet local administrator (the service ID); for an IPv4 or a
// 4-octet AS one, its 2-octet local administrator. 0 when it is none.
uint32_t auto_evi(uint64_t route_target);

// Route target text ("65000:100") to its raw form; false when it does not parse.
bool route_target_from_text(std::string_view text, uint64_t &raw);

}  // namespace evpn::collector
