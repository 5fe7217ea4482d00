// Layout of the operational database file (SQLite). Readable with the stock
// sqlite3 tool; see docs/database.md.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "platform/l2fib_stats.h"

namespace sysdb_schema {

// The codec's record limit (BAG_MAX_RECORD) as SQL text, for the length
// tests of the store's statements; sysdb.cpp holds the two equal.
#define SYSDB_SCHEMA_RECORD_LIMIT "16777216"

constexpr int32_t kApplicationId = 0x45565044;  // "EVPD"
constexpr int32_t kVersion = 6;                 // PRAGMA user_version

// What the attribute table holds, by its kind column, as SQL text for the
// statements that name a kind (spliced into their literals).
#define SYSDB_KIND_FACT "0"        // key: the fact's name; v1: its text
#define SYSDB_KIND_CAPABILITY "1"  // key: the capability's name; v1: 0 or 1
#define SYSDB_KIND_INTERFACE "2"   // key: the handle; v1: the name; v2: the state
#define SYSDB_KIND_BD_STATS "3"    // key: the bridge domain; key2: the node; v1: the counters (pack_counters)
#define SYSDB_KIND_LISTING "4"     // key: the root; key2: the path; v1: the listing's id; v2: its record type
// The listings as a table (id, root, path), for statements that read or join them.
#define SYSDB_LISTINGS "(SELECT v1 AS id, key AS root, key2 AS path FROM attribute WHERE kind = " SYSDB_KIND_LISTING ")"
// A new listing: ?1 its id, ?2 its root, ?3 its path, ?4 its record type.
#define SYSDB_INSERT_LISTING "INSERT INTO attribute(kind, key, key2, v1, v2) VALUES (" SYSDB_KIND_LISTING ", ?2, ?3, ?1, ?4)"
// The kinds as numbers, for statements that bind a kind.
constexpr int kind_number(const char *sql) {
    int n = 0;
    for (; *sql; sql++) n = n * 10 + (*sql - '0');
    return n;
}
constexpr int kKindCapability = kind_number(SYSDB_KIND_CAPABILITY);
constexpr int kKindInterface = kind_number(SYSDB_KIND_INTERFACE);
constexpr int kKindBdStats = kind_number(SYSDB_KIND_BD_STATS);
constexpr int kKindListing = kind_number(SYSDB_KIND_LISTING);

// The statements that make the store's tables, each as SQLite keeps its text
// in the file's table of tables: a reader finds the tables there and takes a
// table whose text differs for one it cannot read. A change to any of them is
// a new layout (kVersion).
#define SYSDB_CREATE_ATTRIBUTE \
    "CREATE TABLE attribute (\n" \
    "  kind INTEGER,\n" \
    "  key,\n" \
    "  key2,\n" \
    "  v1,\n" \
    "  v2,\n" \
    "  PRIMARY KEY (kind, key, key2)\n" \
    ") WITHOUT ROWID"
#define SYSDB_CREATE_ITEM \
    "CREATE TABLE item (\n" \
    "  list INTEGER NOT NULL,\n" \
    "  skey BLOB NOT NULL,\n" \
    "  name TEXT NOT NULL,\n" \
    "  data BLOB NOT NULL\n" \
    ")"
#define SYSDB_CREATE_ITEM_KEY "CREATE UNIQUE INDEX item_key ON item (list, skey)"
#define SYSDB_CREATE_ITEM_INDEX \
    "CREATE TABLE item_index (\n" \
    "  list INTEGER,\n" \
    "  ikey BLOB,\n" \
    "  PRIMARY KEY (list, ikey)\n" \
    ") WITHOUT ROWID"

constexpr const char *kCreate =
    R"sql(
-- Everything beside the items, a row each: facts about the store,
-- capabilities, interfaces, bridge domains' counters, the listings (kind
-- and columns: SYSDB_KIND_* in sysdb_schema.h). One table, not five: fewer
-- b-trees to find at a reader's open. The key columns take no type (key2
-- holds a node or a path), and a primary key of a table without rowid is
-- NOT NULL without saying so.
)sql" SYSDB_CREATE_ATTRIBUTE R"sql(;
-- Items: skey is the item's sort key, data the encoded record packed
-- (pack_record). Searches go through item_key, which holds only the keys:
-- a row of the item table is read only by a request for that item, so one
-- oversized row cannot fail a search that passes it (a search in a table
-- keyed by the row itself reads each row it compares whole).
)sql" SYSDB_CREATE_ITEM R"sql(;
)sql" SYSDB_CREATE_ITEM_KEY R"sql(;
-- Index rows: ikey is the ordering's key fields, then the item-key fields
-- the ordering lacks (sysdb_keys::row_layout); the item's sort key is
-- rebuilt from it.
)sql" SYSDB_CREATE_ITEM_INDEX R"sql(;
)sql";

#define BD_STATS_COLUMN_NAME(name) #name,
// The counters of bd_stats, in bd_forwarding_stats order.
constexpr const char *kBdStatsColumns[] = {BD_FORWARDING_COUNTERS(BD_STATS_COLUMN_NAME)};
#undef BD_STATS_COLUMN_NAME
constexpr int kBdStatsCount = sizeof(kBdStatsColumns) / sizeof(kBdStatsColumns[0]);
static_assert(kBdStatsCount * sizeof(uint64_t) == sizeof(bd_forwarding_stats));

// Stored form of a bridge domain's counters (v1 of a bridge domain's attribute): each in
// record order as 8 bytes, least significant first.
constexpr size_t kBdStatsBytes = kBdStatsCount * 8;
inline void pack_counters(const bd_forwarding_stats &stats, unsigned char out[kBdStatsBytes]) {
    uint64_t v[kBdStatsCount];
    memcpy(v, &stats, sizeof v);
    for (int i = 0; i < kBdStatsCount; i++)
        for (int b = 0; b < 8; b++) out[i * 8 + b] = static_cast<unsigned char>(v[i] >> (8 * b));
}
// The counters stored as data[0..len) into v; false (v untouched) when len
// is not kBdStatsBytes (a store written by other means).
inline bool unpack_counters(const void *data, size_t len, uint64_t v[kBdStatsCount]) {
    if (len != kBdStatsBytes || !data) return false;
    const auto *p = static_cast<const unsigned char *>(data);
    for (int i = 0; i < kBdStatsCount; i++) {
        uint64_t x = 0;
        for (int b = 7; b >= 0; b--) x = (x << 8) | p[i * 8 + b];
        v[i] = x;
    }
    return true;
}

// Stored form of an encoded record: its length (LEB128), a bitmap of its
// 4-byte units that are not zero (bit i%8 of byte i/8 for unit i), those
// units, then the 0-3 bytes past the last whole unit. Records are mostly
// zero units (absent addresses, flags, counters), so this halves them.
// Appends to out.
void pack_record(const void *data, size_t len, std::string &out);
// Appends the record packed as data[0..len) to out; false (out as it was)
// when data is not a packed record of at most max_len bytes.
bool unpack_record(const void *data, size_t len, size_t max_len, std::string &out);
// Off: unpack_record takes the plain path even where the processor has the
// vector one (tests that hold the two to the same answers).
void unpack_use_vectors(bool on);
// The length the record packed as data[0..len) claims; 0 when it claims none
// or more than max_len.
size_t unpacked_size(const void *data, size_t len, size_t max_len);

// The three roots a database holds items under.
bool valid_root(const char *root);

}  // namespace sysdb_schema

struct sqlite3;
namespace sysdb_schema {

// Opens a database of ours read-only, as the client does, with the same
// checks (tools that read a database whole). 0 or a platform error code.
uint32_t open_ours(const char *path, sqlite3 **db);

}  // namespace sysdb_schema
