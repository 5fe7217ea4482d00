// Declarations shared by the show client's dispatch, retrieval layer and
// record printers.
#pragma once
#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "platform/bag_types.h"
#include "platform/debug.h"
#include "platform/formatters.h"
#include "platform/l2fib_stats.h"
#include "platform/sysdb.h"

typedef uint32_t evpn_grp_id_t;

enum evpn_datalist_options_et : uint32_t {
    EVPN_DATALIST_OPT_NONE = 0,
    EVPN_DATALIST_OPT_EVI_STATS = 1,
};

// Debug masks.
enum : uint64_t {
    EVPN_DBG_ERR = 0x400001,   // errors
    EVPN_DBG_PATH = 0x80001,   // database paths built by show commands
};

// Traces through the debug facility when a bit of mask is enabled; function
// is the name the trace carries.
#define EVPN_TRACE(mask, function, ...)                                              \
    do {                                                                             \
        if (l2vpn_debug_get_enabled_bitset() & (mask))                               \
            l2vpn_vdbgf(l2vpn_debug_get_ctx(), (mask), (function), __LINE__, __VA_ARGS__); \
    } while (0)

// The user's filters: written while the options are parsed, read-only after.
struct ShowFilter {
    uint8_t bd_name_set;
    const char *bd_name;
    uint8_t detail;
    uint8_t eth_tag_set;
    uint32_t eth_tag;
    uint8_t grp_id_set;
    evpn_grp_id_t grp_id;
    uint8_t ifname_set;
    char ifname[64];
    uint8_t i_sid_set;
    uint32_t i_sid;
    uint8_t no_stats;
    uint8_t private_view;
    uint8_t carving_detail;
    uint8_t leaf_evis;
    uint8_t value_set;
    uint32_t value;  // VPN ID (EVI)
    uint8_t ip_set;
    l2vpn_ip_addr_t ip_addr;
    uint8_t mac_set;
    uint32_t mac[3];
    uint8_t standby;
    uint8_t node_set;
    uint32_t node_id;  // 0xFFFFFFFF: no node
    uint8_t esi_set;
    uint8_t esi[10];
    uint8_t local_only;
    uint8_t pw_neighbor_set;
    l2vpn_ip_addr_t pw_neighbor;
    uint32_t pw_id;
    uint8_t vfi_name_set;
    const char *vfi_name;
    uint8_t access_evi;
};
extern ShowFilter show_filter;
extern sysdb_handle_td sysdb_handle;

// What a walk hands each printer call.
struct PrintContext {
    uint64_t index;    // records already printed by this walk
    uint32_t options;  // copy of ShowContext::options
};

// Prints one decoded record. item_name is absent for the one-group item;
// ctx is absent for single items.
typedef void (*RecordPrinter)(const void *record, const char *item_name, PrintContext *ctx);

struct ShowContext {
    const char *path;
    RecordPrinter printer;
    const BagDesc *bag;
    uint32_t record_size;
    uint32_t batch_count;
    uint32_t options;  // evpn_datalist_options_et
};

enum : size_t { EVI_FWD_STATS_BULK_SIZE = 200 };
// Bridge-domain counters of the current EVI batch; entry i for item i.
extern l2fib_bd_stats_entry evi_fwd_stats_bulk[EVI_FWD_STATS_BULK_SIZE];

// ---- Retrieval (evpn_show_client) -------------------------------------------
bool evpn_show_datalist_check(const ShowContext *ctx);
void evpn_show_datalist_display(const ShowContext *ctx);
void evpn_show_get_display(const char *path, void *decoded, const BagDesc *bag,
                           RecordPrinter printer);
void evpn_bulk_statistics_collect(sysdb_datalist_h_td list, size_t count,
                                  evpn_datalist_options_et options);
// Runs the show command; returns the exit status (0, or 1 for an unknown number).
int evpn_show_dispatch(uint32_t command);
// The process's main routine.
int evpn_show_main(int argc, char **argv);

// printf and vsnprintf with the same format strings and the same output, for
// the lines printed once per route: the flags, width, precision and length of
// the d, i, u, x, X, o, c, s and % conversions are formatted here, at a
// fraction of the C library's cost; any other format goes to the C library.
__attribute__((format(printf, 1, 2))) int show_printf(const char *format, ...);
int show_vsnprintf(char *buf, size_t size, const char *format, va_list ap);
__attribute__((format(printf, 3, 4))) int show_snprintf(char *buf, size_t size, const char *format, ...);

// ---- Forwarding entries (evpn_show_fwd_entries) ------------------------------
void print_srv6_sid_list(const bag_array<Srv6Sid> *sids, const char *indent, bool end_line,
                         bool mark_empty, bool with_details);
void format_ethernet_tag(char *buf, size_t size, uint32_t tag_type, uint32_t tag);
int print_sr_te_info(const char *prefix, const SrTeInfo *info);
void print_path_issues(const bag_array<uint32_t> *issues, uint32_t encap, const char *indent);
void print_evpn_mac_bag_debug(const l2vpn_evpn_mac_bag *mac);
void print_evpn_mac_bag(const void *record, const char *item_name, PrintContext *ctx);
void show_evpn_label_db_common(const char *prefix, RecordPrinter printer);

// ---- Instances (evpn_show_instances) -----------------------------------------
void print_evpn_evi_summary_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_evi_detail_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_evi_detail_stats(const l2vpn_evpn_evi_detail_bag *evi, const PrintContext *ctx);
void print_evpn_evi_rd_rt_section(const l2vpn_evpn_evi_detail_bag *evi);
void print_evpn_evi_bgp_rt_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_rd_rt_list(const l2vpn_evpn_rd_rt_entry *entries, uint32_t count);
void print_evpn_rd_private_bag(const void *record, const char *item_name, PrintContext *ctx);

// ---- Segments and system (evpn_show_segments) --------------------------------
void print_evpn_summary_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evt_trace_history(const evt_hist_bag *history);
