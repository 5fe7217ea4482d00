// Keeps an operational database current from parsed BMP messages: each EVPN
// route is mapped to the records it fills (route_mapper.h) and written in
// place through the store writer, in transactions a reader never sees half
// done. One LiveStore serves every BMP session of a collector.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "evpn_bmp/bmp.h"

namespace evpn::collector {

struct LiveStoreOptions {
    std::string db;                  // the store; made if missing, refused if not ours
    std::string evi_map;             // optional file of "RT EVI" lines (see docs/collector.md)
    std::string root = "/oper/evpn/gl/";
    // A transaction commits at this many record changes. A commit writes out
    // every index page its transaction touched, most of them under a
    // full-speed stream, so such a stream is committed in large transactions
    // (500,000: a 1M-route replay 10% faster than at 250,000); the commit
    // pacing still bounds how long a change waits.
    uint32_t batch_max_changes = 500000;
    // One line per event worth an operator's eye (an unmapped route target,
    // a route refused); the daemon prefixes the router's address.
    std::function<void(uint32_t session, std::string_view line)> log;
};

struct IngestCounters {
    uint64_t messages = 0;
    uint64_t routes_announced = 0, routes_withdrawn = 0;
    uint64_t routes_by_type[6] = {};  // announced EVPN routes by route type; [0]: unknown types
    uint64_t routes_unmapped = 0;     // no EVI found for the route
    uint64_t treat_as_withdraw = 0, attributes_discarded = 0;
    uint64_t statistics_reports = 0;
    uint64_t commits = 0;
};

class LiveStore {
  public:
    static std::unique_ptr<LiveStore> open(const LiveStoreOptions &opts, std::string &err);
    ~LiveStore();  // commits what is pending

    // A new BMP session (a router's TCP connection or a replayed file);
    // router is its address for the log.
    uint32_t session_open(std::string_view router);
    // One parsed message of a session: Peer Up, Route Monitoring, Peer Down,
    // Statistics Report, Termination. false: the store could not be written.
    bool apply(uint32_t session, const bmp::Message &msg, std::string &err);
    // The session ended (Termination, close, framing error): everything its
    // peers sent is removed. A router that reconnects starts a new session
    // and sends its routes again.
    bool session_close(uint32_t session, std::string &err);
    // Commits the changes made since the last commit. The daemon calls it
    // when its input runs dry or a batch timer fires, and before it exits.
    // Without wait, the commit is done behind the caller (SysdbWriter::commit)
    // once the one before it is done; readers see it whole a little later.
    bool flush(std::string &err, bool wait = true);
    bool pending() const;
    const IngestCounters &counters() const;

    struct Impl;

  private:
    explicit LiveStore(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace evpn::collector
