// Snapshots: the JSON form of an operational database (docs/snapshot-format.md).
#pragma once
#include <cstdint>
#include <iosfwd>
#include <string>

namespace evpn {

class Progress;

struct LoadStats {
    uint64_t records = 0;
    uint64_t interfaces = 0;
    uint64_t bd_stats = 0;
};

// Builds the database db_path from a snapshot read as a stream (records are
// converted and written one at a time, so memory does not grow with the
// snapshot). On any error nothing changes at db_path and err says which
// record and field. progress (when not null) counts records and bytes read.
bool load_snapshot(std::istream &in, const std::string &db_path, LoadStats &stats,
                   std::string &err, Progress *progress = nullptr);

// Writes the whole database at db_path as a snapshot that loads back to the
// same database. progress (when not null) counts the records.
bool dump_snapshot(const std::string &db_path, std::ostream &out, std::string &err,
                   Progress *progress = nullptr);

}  // namespace evpn
