// Layout of the operational database file (SQLite). Readable with the stock
// sqlite3 tool; see docs/database.md.
#pragma once
#include <cstdint>

namespace sysdb_schema {

constexpr int32_t kApplicationId = 0x45565044;  // "EVPD"
constexpr int32_t kVersion = 1;                 // PRAGMA user_version

constexpr const char *kCreate = R"sql(
CREATE TABLE meta (
  key   TEXT PRIMARY KEY,
  value TEXT NOT NULL
) WITHOUT ROWID;
-- One row per listing below a root: a base path, or a kept index ordering
-- ("<base>#<key positions>").
CREATE TABLE listing (
  id          INTEGER PRIMARY KEY,
  root        TEXT NOT NULL,
  path        TEXT NOT NULL,
  record_type TEXT NOT NULL,
  UNIQUE (root, path)
);
-- Items in natural key order: skey is the item's sort key.
CREATE TABLE item (
  list INTEGER NOT NULL,
  skey BLOB NOT NULL,
  name TEXT NOT NULL,
  data BLOB NOT NULL,
  PRIMARY KEY (list, skey)
) WITHOUT ROWID;
-- Index rows: ikey is the index key in the ordering's column order followed
-- by the item's sort key.
CREATE TABLE item_index (
  list INTEGER NOT NULL,
  ikey BLOB NOT NULL,
  skey BLOB NOT NULL,
  PRIMARY KEY (list, ikey)
) WITHOUT ROWID;
CREATE TABLE capability (
  name  TEXT PRIMARY KEY,
  value INTEGER NOT NULL
) WITHOUT ROWID;
CREATE TABLE interface (
  handle INTEGER PRIMARY KEY,
  name   TEXT NOT NULL UNIQUE,
  state  TEXT NOT NULL
);
CREATE TABLE bd_stats (
  node  INTEGER NOT NULL,
  bd_id INTEGER NOT NULL,
  rx_total_packets INTEGER NOT NULL DEFAULT 0, rx_total_bytes INTEGER NOT NULL DEFAULT 0,
  rx_bum_packets INTEGER NOT NULL DEFAULT 0, rx_bum_bytes INTEGER NOT NULL DEFAULT 0,
  rx_multicast_packets INTEGER NOT NULL DEFAULT 0, rx_multicast_bytes INTEGER NOT NULL DEFAULT 0,
  rx_broadcast_packets INTEGER NOT NULL DEFAULT 0, rx_broadcast_bytes INTEGER NOT NULL DEFAULT 0,
  rx_unicast_packets INTEGER NOT NULL DEFAULT 0, rx_unicast_bytes INTEGER NOT NULL DEFAULT 0,
  rx_unknown_unicast_packets INTEGER NOT NULL DEFAULT 0, rx_unknown_unicast_bytes INTEGER NOT NULL DEFAULT 0,
  tx_total_packets INTEGER NOT NULL DEFAULT 0, tx_total_bytes INTEGER NOT NULL DEFAULT 0,
  tx_bum_packets INTEGER NOT NULL DEFAULT 0, tx_bum_bytes INTEGER NOT NULL DEFAULT 0,
  tx_multicast_packets INTEGER NOT NULL DEFAULT 0, tx_multicast_bytes INTEGER NOT NULL DEFAULT 0,
  tx_broadcast_packets INTEGER NOT NULL DEFAULT 0, tx_broadcast_bytes INTEGER NOT NULL DEFAULT 0,
  tx_unicast_packets INTEGER NOT NULL DEFAULT 0, tx_unicast_bytes INTEGER NOT NULL DEFAULT 0,
  PRIMARY KEY (node, bd_id)
) WITHOUT ROWID;
)sql";

// The 22 counters of bd_stats, in bd_forwarding_stats order.
constexpr const char *kBdStatsColumns[22] = {
    "rx_total_packets", "rx_total_bytes", "rx_bum_packets", "rx_bum_bytes",
    "rx_multicast_packets", "rx_multicast_bytes", "rx_broadcast_packets", "rx_broadcast_bytes",
    "rx_unicast_packets", "rx_unicast_bytes", "rx_unknown_unicast_packets",
    "rx_unknown_unicast_bytes", "tx_total_packets", "tx_total_bytes", "tx_bum_packets",
    "tx_bum_bytes", "tx_multicast_packets", "tx_multicast_bytes", "tx_broadcast_packets",
    "tx_broadcast_bytes", "tx_unicast_packets", "tx_unicast_bytes"};

// The three roots a database holds items under.
bool valid_root(const char *root);

}  // namespace sysdb_schema
