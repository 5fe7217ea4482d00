// Turns the EVPN routes of monitored peers into the records the show
// commands read, and keeps them current as routes come and go.
//
// A route is held once per identity (route type, RD and the NLRI's key
// fields), with every advertiser that currently announces it: a peer of a
// BMP session, by number. A record reflects all the routes that map to it
// (a MAC record one path per route and advertiser); when the last advertiser
// of its last route leaves, the record goes. Records derived from many
// routes (EVIs, their route targets, RDs, neighbors, tunnel endpoints,
// Ethernet segments, the summary) are counted here and written by flush().
// docs/collector.md has the field-by-field table.
#pragma once
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "evi_map.h"
#include "evpn_bmp/bmp.h"

namespace evpn::collector {

// Where record changes go: the live store's writer, inside its transaction.
class RecordSink {
  public:
    virtual ~RecordSink() = default;
    // stored: whether the item is stored already, with the record's key
    // fields (the mapper's records never change an item's index keys);
    // unknown for the derived records.
    enum class Stored : uint8_t { Unknown, No, Yes };
    virtual bool upsert(std::string_view base, const void *record, Stored stored,
                        std::string &err) = 0;
    // The record's item-key fields name the item to remove.
    virtual bool remove(std::string_view base, const void *record, Stored stored,
                        std::string &err) = 0;
};

struct MapperStats {
    uint64_t routes_held = 0;      // route identities with an advertiser
    uint64_t record_writes = 0;    // upserts and removes handed to the sink
    uint64_t mac_records = 0, imcast_records = 0, ead_records = 0;
};

class RouteMapper {
  public:
    explicit RouteMapper(const EviMap &evi_map);
    ~RouteMapper();

    // Announced routes of one UPDATE from advertiser adv. unmapped counts the
    // routes left out for want of an EVI (an earlier announcement of such a
    // route by adv is withdrawn); ip_prefix counts type-5 routes (counted only).
    bool announce(uint32_t adv, std::span<const bmp::EvpnNlri> routes, const bmp::RouteAttrs &attrs,
                  RecordSink &sink, uint32_t &unmapped, std::string &err);
    bool withdraw(uint32_t adv, std::span<const bmp::EvpnNlri> routes, RecordSink &sink,
                  std::string &err);
    // Everything the advertisers announced is withdrawn (a peer down, a
    // session closed), in one pass over the routes.
    bool drop_advertisers(std::span<const uint32_t> advs, RecordSink &sink, std::string &err);
    // Writes the derived records changed since the last flush.
    bool flush(RecordSink &sink, std::string &err);
    // Whether flush() has anything to write.
    bool dirty() const;

    // The monitored router's own BGP identifier and AS (from a Loc-RIB
    // peer), shown by the summary; 0 when unknown.
    void set_router(uint32_t bgp_id, uint32_t as);

    const MapperStats &stats() const;

    struct Impl;

  private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace evpn::collector
