// Layer-2 forwarding statistics client: bridge-domain forwarding counters,
// served from the operational database's statistics table.
#pragma once
#include <cstddef>
#include <cstdint>

struct event_manager_s;

// One bridge domain's forwarding counters (176 bytes).
struct bd_forwarding_stats {
    uint64_t rx_total_packets, rx_total_bytes;
    uint64_t rx_bum_packets, rx_bum_bytes;
    uint64_t rx_multicast_packets, rx_multicast_bytes;
    uint64_t rx_broadcast_packets, rx_broadcast_bytes;
    uint64_t rx_unicast_packets, rx_unicast_bytes;
    uint64_t rx_unknown_unicast_packets, rx_unknown_unicast_bytes;
    uint64_t tx_total_packets, tx_total_bytes;
    uint64_t tx_bum_packets, tx_bum_bytes;
    uint64_t tx_multicast_packets, tx_multicast_bytes;
    uint64_t tx_broadcast_packets, tx_broadcast_bytes;
    uint64_t tx_unicast_packets, tx_unicast_bytes;
};
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
