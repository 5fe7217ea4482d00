// Forwarding statistics client: bridge-domain counters from the database's
// bd_stats table. Node 0xFFFFFFFF sums the counters over all nodes.
#include "platform/l2fib_stats.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "db_internal.h"
#include "platform/cerr.h"
#include "platform/sysdb_schema.h"

namespace {

bool g_started;
l2fib_request_counts g_counts;

// Counters are unsigned 64-bit and wrap as the hardware's do: the sum over
// nodes is taken here, row by row (SQLite's SUM() of integers fails on an
// overflow instead).
uint32_t fetch(sqlite3_stmt *s, uint32_t node, uint32_t bd, bd_forwarding_stats *out) {
    sqlite3_reset(s);
    sqlite3_bind_int64(s, 1, bd);
    sqlite3_bind_int64(s, 2, node);
    sqlite3_bind_int(s, 3, node == L2FIB_ALL_NODES);
    uint64_t v[sysdb_schema::kBdStatsCount] = {};
    bool any = false;
    int rc;
    while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
        uint64_t row[sysdb_schema::kBdStatsCount];
        // Counters in another form (a store written by other means) are a
        // damaged record: left out, never read past their end.
        if (!sysdb_schema::unpack_counters(sqlite3_column_blob(s, 0),
                                           static_cast<size_t>(sqlite3_column_bytes(s, 0)), row))
            continue;
        any = true;
        for (int i = 0; i < sysdb_schema::kBdStatsCount; i++) v[i] += row[i];
    }
    sqlite3_reset(s);
    if (rc != SQLITE_DONE || !any) return L2FIB_ERR_NO_BD;
    memcpy(out, v, sizeof v);
    return 0;
}

sqlite3_stmt *prepare(sqlite3 *db) {
    sqlite3_stmt *s = nullptr;
    if (sqlite3_prepare_v2(db,
                           "SELECT v1 FROM attribute WHERE kind = " SYSDB_KIND_BD_STATS
                           " AND key = ?1 AND (?3 OR key2 = ?2)",
                           -1, &s, nullptr) != SQLITE_OK) {
        sqlite3_finalize(s);
        return nullptr;
    }
    return s;
}

}  // namespace

uint32_t l2fib_stats_client_init(event_manager_s *) {
    const char *fail = getenv("EVPN_FAIL");
    if (fail && strcmp(fail, "l2fib_stats_client_init") == 0) return L2FIB_ERR_START;
    g_started = true;
    return 0;
}

void l2fib_stats_client_deinit(void) { g_started = false; }

uint32_t l2fib_get_stats_bag_bd_forwarding(uint32_t node_id, uint32_t bd_id,
                                           bd_forwarding_stats *stats, const char *) {
    if (!stats) return L2FIB_ERR_ARG;
    if (!g_started) return L2FIB_ERR_NOT_STARTED;
    g_counts.single++;
    sqlite3 *db = platform_db::shared();
    if (!db) return L2FIB_ERR_START;
    sqlite3_stmt *s = prepare(db);
    if (!s) return L2FIB_ERR_START;
    uint32_t rc = fetch(s, node_id, bd_id, stats);
    sqlite3_finalize(s);
    return rc;
}

uint32_t l2fib_get_stats_bag_bd_forwarding_array(size_t count, l2fib_bd_stats_entry *entries,
                                                 const char *) {
    if (!entries && count) return L2FIB_ERR_ARG;
    if (!g_started) return L2FIB_ERR_NOT_STARTED;
    g_counts.bulk++;
    g_counts.bulk_entries += count;
    sqlite3 *db = platform_db::shared();
    if (!db) return L2FIB_ERR_START;
    sqlite3_stmt *s = prepare(db);
    if (!s) return L2FIB_ERR_START;
    uint32_t result = 0;
    for (size_t i = 0; i < count; i++) {
        if (!entries[i].stats) continue;
        if (uint32_t rc = fetch(s, entries[i].node_id, entries[i].bd_id, entries[i].stats))
            result = rc;
    }
    sqlite3_finalize(s);
    return result;
}

l2fib_request_counts l2fib_get_request_counts(void) { return g_counts; }
