// Layer-2 forwarding statistics client: bridge-domain forwarding counters,
// served from the operational database's statistics table.
#pragma once
#include <cstddef>
#include <cstdint>

struct event_manager_s;

// One bridge domain's forwarding counters, in record order (176 bytes). The
// one list makes the record, the database columns and the snapshot names.
#define BD_FORWARDING_COUNTERS(X) \
    X(rx_total_packets) X(rx_total_bytes) \
    X(rx_bum_packets) X(rx_bum_bytes) \
    X(rx_multicast_packets) X(rx_multicast_bytes) \
    X(rx_broadcast_packets) X(rx_broadcast_bytes) \
    X(rx_unicast_packets) X(rx_unicast_bytes) \
    X(rx_unknown_unicast_packets) X(rx_unknown_unicast_bytes) \
    X(tx_total_packets) X(tx_total_bytes) \
    X(tx_bum_packets) X(tx_bum_bytes) \
    X(tx_multicast_packets) X(tx_multicast_bytes) \
    X(tx_broadcast_packets) X(tx_broadcast_bytes) \
    X(tx_unicast_packets) X(tx_unicast_bytes)

#define BD_FORWARDING_MEMBER(name) uint64_t name;
struct bd_forwarding_stats {
    BD_FORWARDING_COUNTERS(BD_FORWARDING_MEMBER)
};
#undef BD_FORWARDING_MEMBER
static_assert(sizeof(bd_forwarding_stats) == 176);

// One entry of a bulk request.
struct l2fib_bd_stats_entry {
    uint32_t node_id;   // 0xFFFFFFFF: the sum over all nodes
    uint32_t bd_id;
    bd_forwarding_stats *stats;
};

enum : uint32_t { L2FIB_ALL_NODES = 0xFFFFFFFFu };

// Starts the client. Fails when EVPN_FAIL=l2fib_stats_client_init (tests).
uint32_t l2fib_stats_client_init(event_manager_s *em);
void l2fib_stats_client_deinit(void);
// Fills stats from node/bd with the given generation ("latest"). A bridge
// domain without counters leaves the record untouched and answers L2FIB_ERR_NO_BD.
uint32_t l2fib_get_stats_bag_bd_forwarding(uint32_t node_id, uint32_t bd_id,
                                           bd_forwarding_stats *stats, const char *generation);
// Fills the stats of the first count entries (entries without a record are
// skipped); one request to the service. Non-zero when any entry failed.
uint32_t l2fib_get_stats_bag_bd_forwarding_array(size_t count, l2fib_bd_stats_entry *entries,
                                                 const char *generation);

// Tests and benchmarks: requests made to the service so far.
struct l2fib_request_counts {
    uint64_t single;
    uint64_t bulk;
    uint64_t bulk_entries;
};
l2fib_request_counts l2fib_get_request_counts(void);
