// Declarations shared by the show client's dispatch, retrieval layer, show
// commands and record printers.
#pragma once
#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "platform/bag_types.h"
#include "platform/debug.h"
#include "platform/formatters.h"
#include "platform/l2fib_stats.h"
#include "platform/sysdb.h"
#include "platform/sysdb_paths.h"

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

// Internal invariants hold in every build type; a broken one stops the
// process with an assertion naming the program's unit, evpn_show_client.
[[noreturn]] void evpn_assert_fail(const char *expr, const char *function, int line);
#define EVPN_ASSERT(cond) ((cond) ? (void)0 : evpn_assert_fail(#cond, __func__, __LINE__))

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

enum : size_t {
    EVI_FWD_STATS_BULK_SIZE = 200,
    EVPN_PATH_SIZE = 256,         // item and listing paths
    EVPN_ROOT_SIZE = 64,          // the database root
    EVPN_LABEL_TEXT_SIZE = 100,   // label and internal-ID texts
    EVPN_IP_KEY_SIZE = 40,        // an address as a key component (32 hex digits)
    EVPN_SINGLE_ITEM_SIZE = 616,  // decode buffer of a single item
};
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
// Set by a program that exits when evpn_show_main returns: the store is left
// open at the end, since closing it only frees what the exit frees (a
// twentieth of a filtered listing's instructions).
extern bool evpn_show_store_left_open;
// Set by the program: called once the options are read and before the store
// is opened, when a command will run (not for a usage error).
extern void (*evpn_show_before_store)(void);

// ---- Show commands ----------------------------------------------------------
// A command's header, paths and record types stand with its printer in the
// file of its family; the dispatch table (evpn_show_client) names them.

// How a command reads one record type: description, printer, decode buffer,
// batch and walk options. A null desc marks a type whose description and
// printer are still pending: its command fetches as it will, and prints no
// records.
struct RecordTypeDef {
    const BagDesc *(*desc)(void);
    RecordPrinter printer;
    uint32_t record_size;  // decode buffer bytes
    uint32_t batch_count;  // listings: most items per request
    uint32_t options;      // listings: evpn_datalist_options_et
};

template <class T>
constexpr RecordTypeDef record_type(RecordPrinter printer, uint32_t batch_count,
                                    uint32_t options = EVPN_DATALIST_OPT_NONE) {
    return {bag_record_info<T>::get, printer, bag_record_info<T>::buffer_size, batch_count,
            options};
}
// PENDING: a record type whose description and printer come later.
constexpr RecordTypeDef pending_type(uint32_t batch_count) {
    return {nullptr, nullptr, 0, batch_count, EVPN_DATALIST_OPT_NONE};
}

struct ShowCommandDef {
    const char *name;  // the handler's name, carried by its traces
    void (*run)(const ShowCommandDef &cmd);
};

// Walks the listing at path with the type's printer.
void evpn_show_walk(const RecordTypeDef &type, const char *path);

// Told of each record the outermost walk or single get hands to its printer
// (records of a printer's own walks are part of the outer record): before()
// just before the printer runs, after() once it is done, with the record, its
// description, the path it came from and its item name (absent for a
// one-group item). The JSON view of `evpn_sysdb dump` listens this way.
struct RecordListener {
    void (*before)(void);
    void (*after)(const BagDesc *desc, const char *path, const char *item_name, const void *record);
    // A text made from the filters that did not fit its buffer (what: "a
    // path", "an interface name"): length is what it would have taken, room
    // what the buffer holds. The command goes on with what the buffer holds.
    void (*value_cut)(const char *what, const char *text, size_t length, size_t room) = nullptr;
};
void evpn_show_set_listener(const RecordListener *listener);  // null: nobody listens
void evpn_show_item_into(const RecordTypeDef &type, const char *path);
// Fetches, decodes and prints the one item at path.
template <const RecordTypeDef &type>
void evpn_show_item(const char *path) {
    static_assert(type.record_size <= EVPN_SINGLE_ITEM_SIZE,
                  "a single item decodes into EVPN_SINGLE_ITEM_SIZE bytes");
    evpn_show_item_into(type, path);
}

// Composes a path into an EVPN_PATH_SIZE buffer; a longer path is cut at 255
// characters.
[[gnu::format(printf, 2, 3)]] void compose_path(char *path, const char *format, ...);
// Composes a filtered path and traces it with trace, a text with one %s, in
// the command's name.
[[gnu::format(printf, 4, 5)]] void filter_path(const ShowCommandDef &cmd, char *path,
                                               const char *trace, const char *format, ...);
// The -N address as a key component: its hex text, or the wildcard without -N.
const char *ip_key(char (&buf)[EVPN_IP_KEY_SIZE]);
// The -0 identifier as a key component; null, traced as failure, when it has no text.
const char *esi_key(const ShowCommandDef &cmd, const char *failure);

// Traces of an -0 identifier that has no text.
inline constexpr char kEsiExtractFailed[] = "Failed to extract ESI string from array";
inline constexpr char kEsiConvertFailed[] = "Failed to convert ESI array into string";
// A key component the user did not give.
inline constexpr char kAnyKey[] = "________";
// Printed under each column title at the column's width and precision.
inline constexpr char kColumnRule[] = "---------------------------------------------";  // 45
// A text field left absent (hand-built records) reads as empty.
inline const char *text_of(const char *s) { return s ? s : ""; }
// An array left without elements (hand-built records) counts as empty.
template <class T>
uint32_t count_of(const bag_array<T> &a) { return a.data != nullptr ? a.count : 0; }
inline const char *true_false(uint32_t flag) { return flag ? "True" : "False"; }
// The word of a code from its table, numbered from 0; any other code,
// negative ones included, reads other.
template <size_t N>
const char *code_word(const char *const (&words)[N], int64_t code, const char *other) {
    return code >= 0 && code < static_cast<int64_t>(N) ? words[code] : other;
}

// The commands, by family file.
void show_evpn_mac(const ShowCommandDef &cmd);          // 0   evpn_show_fwd_entries
void show_evpn_imcast(const ShowCommandDef &cmd);       // 1
void show_evpn_label(const ShowCommandDef &cmd);        // 2
void show_evpn_neighbor(const ShowCommandDef &cmd);     // 8
void show_evpn_ead(const ShowCommandDef &cmd);          // 9
void show_evpn_pl(const ShowCommandDef &cmd);           // 11
void show_evpn_internal_id(const ShowCommandDef &cmd);  // 17
void show_evpn_rd(const ShowCommandDef &cmd);           // 4   evpn_show_instances
void show_evpn_evi(const ShowCommandDef &cmd);          // 5
void show_evpn_tep(const ShowCommandDef &cmd);          // 16
void show_evpn_es(const ShowCommandDef &cmd);           // 3   evpn_show_segments
void show_evpn_summary(const ShowCommandDef &cmd);      // 7
void show_evpn_acid(const ShowCommandDef &cmd);         // 10
void show_evpn_remote_shg(const ShowCommandDef &cmd);   // 12
void show_evpn_igmp(const ShowCommandDef &cmd);         // 13
void show_evpn_client(const ShowCommandDef &cmd);       // 14
void show_evpn_grp(const ShowCommandDef &cmd);          // 15
void show_evpn_srv6(const ShowCommandDef &cmd);         // 18
void show_evpn_ges_map(const ShowCommandDef &cmd);      // 19

// printf, vprintf and vsnprintf with the same format strings and the same
// output, for every line of a report (evpn_show_printf): the flags, width,
// precision and length of the d, i, u, x, X, o, c, s and % conversions are
// formatted there, at a fraction of the C library's cost; any other format
// goes to the C library. show_vsnprintf and show_snprintf may use the whole
// buffer they are given: past the text's NUL its bytes are unspecified.
// A literal format is better served by show_print (evpn_show_format.h).
__attribute__((format(printf, 1, 2))) int show_printf(const char *format, ...);
int show_vprintf(const char *format, va_list ap);
int show_vsnprintf(char *buf, size_t size, const char *format, va_list ap);
__attribute__((format(printf, 3, 4))) int show_snprintf(char *buf, size_t size, const char *format, ...);
// n bytes of text to standard output, as fwrite would put them.
void show_write(const char *text, size_t n);

// ---- Record printers ------------------------------------------------------------
// One per record type the commands read, each defined with its command.
// Those of types still pending are declared here already, so that a type
// lands without a change to this file.
void print_evpn_mac_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_imcast_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_label_bag_as_label(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_label_bag_as_internal_id(const void *record, const char *item_name,
                                         PrintContext *ctx);
void print_evpn_neighbor_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_neighbor_leaf_evis(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_ead_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_pl_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_rd_private_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_evi_summary_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_evi_detail_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_evi_bgp_rt_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_es_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_summary_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_atom_acid_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_remote_shg_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_igmp_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_client_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_grp_info_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_srv6_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_ges_map_entry_bag(const void *record, const char *item_name, PrintContext *ctx);
void print_evpn_tep_notification_entry(const void *record, const char *item_name,
                                       PrintContext *ctx);
// The tunnel endpoint's printer is an operation of the platform's show
// context (platform/show.h): its third argument is the context's tag.
void print_evpn_tep_bag(const void *record, const char *item_name, const char *tag);

// ---- Shared by the printers -------------------------------------------------------
// Forwarding entries (evpn_show_fwd_entries): remote paths, SIDs, tags.
void print_srv6_sid_list(const bag_array<Srv6Sid> *sids, const char *indent, bool end_line,
                         bool mark_empty, bool with_details);
void format_ethernet_tag(char *buf, size_t size, uint32_t tag_type, uint32_t tag);
int print_sr_te_info(const char *prefix, const SrTeInfo *info);
void print_path_issues(const bag_array<uint32_t> *issues, uint32_t encap, const char *indent);
void print_evpn_mac_bag_debug(const l2vpn_evpn_mac_bag *mac);
void show_evpn_label_db_common(const char *prefix, RecordPrinter printer);
// Label entries: label_mode shows labels, else internal IDs and SIDs.
void print_evpn_label_bag(const l2vpn_evpn_label_bag *entry, bool label_mode);
void print_label_path_entries(const bag_array<EvpnPath> *paths, const char *name, uint32_t encap,
                              bool label_mode, bool with_sr_te, bool mark_empty);
void print_label_pathlist(const char *title, const bag_array<EvpnPath> *paths, uint32_t encap,
                          bool label_mode);

// Instances (evpn_show_instances): EVI sections, RD/RT lists.
void print_evpn_evi_detail_stats(const l2vpn_evpn_evi_detail_bag *evi, const PrintContext *ctx);
void print_evpn_evi_rd_rt_section(const l2vpn_evpn_evi_detail_bag *evi);
void print_evpn_rd_rt_list(const l2vpn_evpn_rd_rt_entry *entries, uint32_t count);

// Segments and system (evpn_show_segments): the event trace table.
void print_evt_trace_history(const evt_hist_bag *history);
// Service carving lists of an Ethernet segment, six items to a row under
// "title tag: "; a null list prints nothing, an empty one its header. With
// compress, runs of consecutive values print as "first-last".
void print_carving_values(const uint32_t *values, uint32_t count, const char *tag,
                          bool compress, const char *title);
void print_carving_ids(const l2vpn_evpn_es_id_entry *entries, uint32_t count, const char *tag,
                       const char *title);
void print_carving_evi_etags(const l2vpn_evpn_es_evi_etag *entries, uint32_t count,
                             const char *tag);
