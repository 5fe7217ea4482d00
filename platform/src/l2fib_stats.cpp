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
// nodes is taken here, row by row.
uint32_t fetch(store_tables::Tables &t, uint32_t node, uint32_t bd, bd_forwarding_stats *out) {
    using store_tables::int_key;
    const btr_value key[3] = {int_key(sysdb_schema::kKindBdStats), int_key(bd), int_key(node)};
    uint64_t v[sysdb_schema::kBdStatsCount] = {};
    bool any = false;
    const int rc = t.attributes(key, node == L2FIB_ALL_NODES ? 2 : 3, [&](const store_tables::Value *cols) {
        uint64_t row[sysdb_schema::kBdStatsCount];
        // Counters in another form (a store written by other means) are a
        // damaged record: left out, never read past their end.
        if (cols[3].type != SQLITE_BLOB || !sysdb_schema::unpack_counters(cols[3].p, cols[3].n, row))
            return true;
        any = true;
        for (int i = 0; i < sysdb_schema::kBdStatsCount; i++) v[i] += row[i];
        return true;
    });
    if (rc != SQLITE_DONE || !any) return L2FIB_ERR_NO_BD;
    memcpy(out, v, sizeof v);
    return 0;
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
    platform_db::SharedRead read;
    if (!read.tables()) return L2FIB_ERR_START;
    return fetch(*read.tables(), node_id, bd_id, stats);
}

uint32_t l2fib_get_stats_bag_bd_forwarding_array(size_t count, l2fib_bd_stats_entry *entries,
                                                 const char *) {
    if (!entries && count) return L2FIB_ERR_ARG;
    if (!g_started) return L2FIB_ERR_NOT_STARTED;
    g_counts.bulk++;
    g_counts.bulk_entries += count;
    platform_db::SharedRead read;
    if (!read.tables()) return L2FIB_ERR_START;
    uint32_t result = 0;
    for (size_t i = 0; i < count; i++) {
        if (!entries[i].stats) continue;
        if (uint32_t rc = fetch(*read.tables(), entries[i].node_id, entries[i].bd_id, entries[i].stats))
            result = rc;
    }
    return result;
}

l2fib_request_counts l2fib_get_request_counts(void) { return g_counts; }
