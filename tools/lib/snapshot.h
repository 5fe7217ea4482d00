// Snapshots: the JSON form of an operational database (docs/snapshot-format.md).
#pragma once
#include <cstdint>
#include <iosfwd>
#include <string>

namespace evpn {

struct LoadStats {
    uint64_t records = 0;
    uint64_t interfaces = 0;
    uint64_t bd_stats = 0;
};

// Builds the database db_path from a snapshot read as a stream (records are
// converted and written one at a time, so memory does not grow with the
// snapshot). On any error nothing changes at db_path and err says which
// record and field.
bool load_snapshot(std::istream &in, const std::string &db_path, LoadStats &stats,
                   std::string &err);

// Writes the whole database at db_path as a snapshot that loads back to the
// same database.
bool dump_snapshot(const std::string &db_path, std::ostream &out, std::string &err);

}  // namespace evpn
