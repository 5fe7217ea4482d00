// Snapshots: the JSON form of an operational database (docs/snapshot-format.md).
#pragma once
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

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

// What a dump does with an item that does not decode (damaged by other
// means: random bytes, flipped bits, a row too large).
struct DumpOptions {
    // Leave it out, so that the snapshot loads; else it is written as
    // {"__undecodable_item": NAME}, which the loader refuses.
    bool skip_undecodable = false;
    // Told of each such item: its root, listing, name and why.
    std::function<void(std::string_view root, std::string_view listing, std::string_view name,
                       const char *why)>
        undecodable;
};

// Writes the whole database at db_path as a snapshot that loads back to the
// same database. progress (when not null) counts the records. Items that do
// not decode are handled as options says and counted in *undecodable; the
// dump goes on past them and still succeeds.
bool dump_snapshot(const std::string &db_path, std::ostream &out, std::string &err,
                   Progress *progress = nullptr, const DumpOptions &options = {},
                   uint64_t *undecodable = nullptr);

}  // namespace evpn
