// The show client: start-up and command line, the show-command dispatch with
// its headers and database paths, and the retrieval layer (listing walks,
// single items, bridge-domain statistics of EVI batches).
#include <libgen.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "evpn_show_print.h"
#include "platform/caps.h"
#include "platform/cerr.h"
#include "platform/infra.h"
#include "platform/show.h"

ShowFilter show_filter = {.node_id = L2FIB_ALL_NODES};
sysdb_handle_td sysdb_handle;
l2fib_bd_stats_entry evi_fwd_stats_bulk[EVI_FWD_STATS_BULK_SIZE];
// PENDING: tests see here the paths of fetches that wait for their record type.
void (*evpn_show_pending_fetch_observer)(const char *type, const char *path);

namespace {

constexpr size_t kPathSize = 256;
constexpr size_t kRootSize = 64;
constexpr size_t kIpTextSize = 40;
constexpr size_t kPwTextSize = 33;
constexpr uint32_t kEviDetailSize = 432;  // decode area of one detailed EVI record
constexpr uint32_t kNoNode = L2FIB_ALL_NODES;
constexpr const char kDecodedBagLabel[] = "L2VPN show decoded bag";
constexpr const char kStatsBagLabel[] = "EVI BD Stats Bag";
constexpr const char kRule[] = "---------------------------------------------";  // 45
constexpr const char kAnyKey[] = "________";  // a key component the user did not give

[[noreturn]] void evpn_assert_fail(const char *expr, const char *function, int line) {
    fprintf(stderr, "l2vpn/show/src/evpn_show_client:%d: %s: Assertion `%s' failed.\n", line,
            function, expr);
    abort();
}

}  // namespace

// Internal invariants hold in every build type; a broken one stops the process.
#define EVPN_ASSERT(cond) ((cond) ? (void)0 : evpn_assert_fail(#cond, __func__, __LINE__))

// ============================================================================
// Retrieval
// ============================================================================

bool evpn_show_datalist_check(const ShowContext *ctx) {
    if (!ctx || !ctx->path || !ctx->printer || !ctx->bag || ctx->record_size == 0 ||
        ctx->batch_count == 0) {
        EVPN_TRACE(EVPN_DBG_ERR, "evpn_show_datalist_check", "Invalid datalist context");
        return false;
    }
    return true;
}

// Walks the listing in batches of batch_count: one request per batch, each
// later one resuming after the previous batch's last item. All state is local,
// so a printer may run a walk of its own.
void evpn_show_datalist_display(const ShowContext *ctx) {
    static constexpr const char *kFn = "evpn_show_datalist_display";
    if (!evpn_show_datalist_check(ctx)) return;
    PrintContext print_ctx{};
    print_ctx.options = ctx->options;
    void *decoded = malloc_named(ctx->record_size, kDecodedBagLabel);
    if (!decoded) {
        EVPN_TRACE(EVPN_DBG_ERR, kFn, "Failed to allocate memory for decoded bag of size %u",
                   ctx->record_size);
        return;
    }
    const bool collect_stats =
        !show_filter.no_stats && (ctx->options & EVPN_DATALIST_OPT_EVI_STATS);
    char resume_name[kPathSize] = "";
    uint32_t flags = 0;
    uint32_t count = ctx->batch_count;
    sysdb_datalist_h_td list = nullptr;
    uint32_t rc = sysdb_datalist(sysdb_handle, ctx->path, resume_name, &count, &list, flags);

    while (count != 0) {
        if (rc) {
            if (rc != SYSDB_ERR_NOT_FOUND && rc != SYSDB_ERR_NO_INDEX_MATCH)
                EVPN_TRACE(EVPN_DBG_ERR, kFn, "sysdb_datalist %s", cerr_strerror(rc));
            break;
        }
        if (collect_stats) {
            evpn_bulk_statistics_collect(list, count,
                                         static_cast<evpn_datalist_options_et>(ctx->options));
            if (uint32_t err = sysdb_datalist_start(list)) {
                EVPN_TRACE(EVPN_DBG_ERR, kFn,
                           "Failed to rollback datalist after looking up stats for %s under path %s",
                           cerr_strerror(err), ctx->path);
                break;
            }
        }

        // Display pass. The last name stays owned by the listing, so it is
        // copied out before the listing goes, on every way out of the batch.
        const char *last_name = nullptr;
        bool resume_saved = false;
        auto save_resume_name = [&] {
            resume_saved = true;
            if (last_name && strcpy_s(resume_name, sizeof resume_name, last_name) != 0)
                EVPN_TRACE(EVPN_DBG_ERR, kFn, "copying context name %s", last_name);
        };
        for (uint32_t i = 0; i < count; i++) {
            const char *name = nullptr;
            uint32_t type = SYSDB_TYPE_BAG, len = 0, extra = 0;
            void *data = nullptr;
            uint32_t err = sysdb_datalist_next(list, &name, &type, &data, &len, &extra);
            if (err || !name || !data) {
                EVPN_TRACE(EVPN_DBG_ERR, kFn, "sysdb_datalist_next %s",
                           err ? cerr_strerror(err) : "returned null data");
                save_resume_name();
                sysdb_datalist_free(list);
                list = nullptr;
                break;
            }
            last_name = name;
            if ((err = bag_decode(data, len, decoded, ctx->record_size, ctx->bag))) {
                EVPN_TRACE(EVPN_DBG_ERR, kFn, "bag decode %s", cerr_strerror(err));
                continue;
            }
            EVPN_TRACE(EVPN_DBG_ERR, kFn, "Now displaying %s", name);
            ctx->printer(decoded, name, &print_ctx);
            bag_free_indirections(decoded, ctx->bag);
            print_ctx.index++;
        }

        // End of batch: a full batch goes on; a short one only when the
        // listing says more items follow.
        if (count < ctx->batch_count) {
            uint32_t more = 0;
            if (list) sysdb_datalist_get_more_flag(list, &more);
            if (!more) break;
        }
        if (!last_name) break;
        if (!resume_saved) save_resume_name();
        if (list) {
            if (uint32_t err = sysdb_datalist_free(list))
                EVPN_TRACE(EVPN_DBG_ERR, kFn, "sysdb_datalist_free %s", cerr_strerror(err));
            list = nullptr;
        }
        flags |= SYSDB_DATALIST_RESUME;
        count = ctx->batch_count;
        rc = sysdb_datalist(sysdb_handle, ctx->path, resume_name, &count, &list, flags);
    }
    free(decoded);
    if (list) sysdb_datalist_free(list);
}

void evpn_show_get_display(const char *path, void *decoded, const BagDesc *bag,
                           RecordPrinter printer) {
    static constexpr const char *kFn = "evpn_show_get_display";
    if (!path || !decoded || !bag || !printer) {
        EVPN_TRACE(EVPN_DBG_ERR, kFn, "Get data called with NULL argument %s %s %s %s",
                   path ? "" : "item path", decoded ? "" : "decoded bag",
                   bag ? "" : "bag definition", printer ? "" : "print function");
        return;
    }
    uint32_t type = SYSDB_TYPE_BAG, len = 0;
    void *data = nullptr;
    uint32_t rc = sysdb_item_get(sysdb_handle, path, &type, &data, &len, 0);
    if (rc) {  // a missing item is no error worth a trace
        free(data);
        return;
    }
    rc = bag_decode(data, len, decoded, bag->size, bag);
    free(data);
    if (rc) {
        EVPN_TRACE(EVPN_DBG_ERR, kFn, "%s: bag_decode failed: %s", kFn, cerr_strerror(rc));
        return;
    }
    printer(decoded, l2vpn_edm_sysdb_path_to_item_name(path), nullptr);
    if ((rc = bag_free_indirections(decoded, bag)))
        EVPN_TRACE(EVPN_DBG_ERR, kFn, "%s: bag_free_indirections failed: %s", kFn,
                   cerr_strerror(rc));
}

// Fills evi_fwd_stats_bulk for the batch (entry i for item i) with one bulk
// request. Leaves the listing at an arbitrary position.
void evpn_bulk_statistics_collect(sysdb_datalist_h_td list, size_t count,
                                  evpn_datalist_options_et /*options*/) {
    static constexpr const char *kFn = "evpn_bulk_statistics_collect";
    for (l2fib_bd_stats_entry &entry : evi_fwd_stats_bulk) {
        free(entry.stats);
        entry.stats = nullptr;
    }
    smemzero_s(evi_fwd_stats_bulk, sizeof evi_fwd_stats_bulk);
    if (count == 0) return;
    if (uint32_t rc = sysdb_datalist_start(list)) {
        EVPN_TRACE(EVPN_DBG_ERR, kFn, "sysdb_datalist_start %s", cerr_strerror(rc));
        return;
    }
    const BagDesc *bag = l2vpn_bag_dll__l2vpn_evpn_evi_detail_bag();
    uint32_t type = SYSDB_TYPE_BAG, extra = 0;
    for (size_t i = 0; i < count; i++) {
        const char *name = nullptr;
        void *data = nullptr;
        uint32_t len = 0;
        uint32_t rc = sysdb_datalist_next(list, &name, &type, &data, &len, &extra);
        if (rc || !name || !data) {
            EVPN_TRACE(EVPN_DBG_ERR, kFn, "sysdb_datalist_next %s", cerr_strerror(rc));
            return;
        }
        if (i >= EVI_FWD_STATS_BULK_SIZE) continue;
        l2fib_bd_stats_entry &entry = evi_fwd_stats_bulk[i];
        entry.node_id = show_filter.node_id;
        EVPN_ASSERT(evi_fwd_stats_bulk[i].stats == NULL);
        entry.stats = static_cast<bd_forwarding_stats *>(
            calloc_named(1, sizeof(bd_forwarding_stats), kStatsBagLabel));
        if (!entry.stats) {
            EVPN_TRACE(EVPN_DBG_ERR, kFn, "Failed to calloc BD stats bag");
            return;
        }
        alignas(std::max_align_t) unsigned char evi[kEviDetailSize];
        smemzero_s(evi, sizeof evi);
        if ((rc = bag_decode(data, len, evi, sizeof evi, bag))) {
            EVPN_TRACE(EVPN_DBG_ERR, kFn, "l2vpn_evpn_evi_detail bag_decode failed %s",
                       cerr_strerror(rc));
            return;
        }
        entry.bd_id = reinterpret_cast<const l2vpn_evpn_evi_detail_bag *>(evi)->bd_id;
        bag_free_indirections(evi, bag);
    }
    // The table holds 200 entries; a statistics walk never asks for more.
    size_t entries = count < EVI_FWD_STATS_BULK_SIZE ? count : EVI_FWD_STATS_BULK_SIZE;
    if (l2fib_get_stats_bag_bd_forwarding_array(entries, evi_fwd_stats_bulk, "latest"))
        EVPN_TRACE(EVPN_DBG_ERR, kFn, "Get EVI stats data failed");
}

// ============================================================================
// Show commands
// ============================================================================

namespace {

// The record types the commands read. A null getter or printer marks a type
// whose record description or printer is not defined yet (PENDING): its
// command prints its header and builds and traces its path, and hands the
// path to pending_fetch instead of fetching. Defining the type is a change to
// its one line here.
struct RecordTypeDef {
    const char *type;  // the record type's name
    const BagDesc *(*desc)(void);
    RecordPrinter printer;
    uint32_t record_size;  // decode buffer bytes
    uint32_t batch_count;  // listings: most items per request
    uint32_t options;      // listings: evpn_datalist_options_et
};

constexpr uint32_t kNone = EVPN_DATALIST_OPT_NONE;
constexpr uint32_t kEviStats = EVPN_DATALIST_OPT_EVI_STATS;

// clang-format off
constexpr RecordTypeDef kMacRoute       {"l2vpn_evpn_mac_bag", l2vpn_bag_dll__l2vpn_evpn_mac_bag, print_evpn_mac_bag, 320, 200, kNone};
constexpr RecordTypeDef kImcastRoute    {"l2vpn_evpn_imcast_bag", nullptr, nullptr /* print_evpn_imcast_bag */, 200, 200, kNone};
constexpr RecordTypeDef kLabel          {"l2vpn_evpn_label_bag", nullptr, nullptr /* print_evpn_label_bag_as_label */, 0, 0, kNone};
constexpr RecordTypeDef kInternalId     {"l2vpn_evpn_label_bag", nullptr, nullptr /* print_evpn_label_bag_as_internal_id */, 0, 0, kNone};
constexpr RecordTypeDef kEthernetSegment{"l2vpn_evpn_es_bag", nullptr, nullptr /* print_evpn_es_bag */, 1776, 200, kNone};
constexpr RecordTypeDef kRdPrivate      {"l2vpn_evpn_rd_private_bag", l2vpn_bag_dll__l2vpn_evpn_rd_private_bag, print_evpn_rd_private_bag, 64, 200, kNone};
constexpr RecordTypeDef kEviSummary     {"l2vpn_evpn_evi_summary_bag", l2vpn_bag_dll__l2vpn_evpn_evi_summary_bag, print_evpn_evi_summary_bag, 24, 200, kNone};
constexpr RecordTypeDef kEviDetail      {"l2vpn_evpn_evi_detail_bag", l2vpn_bag_dll__l2vpn_evpn_evi_detail_bag, print_evpn_evi_detail_bag, kEviDetailSize, 200, kEviStats};
constexpr RecordTypeDef kSummary        {"l2vpn_evpn_summary_bag", l2vpn_bag_dll__l2vpn_evpn_summary_bag, print_evpn_summary_bag, 616, 0, kNone};
constexpr RecordTypeDef kNeighbor       {"l2vpn_evpn_neighbor_bag", nullptr, nullptr /* print_evpn_neighbor_bag */, 104, 200, kNone};
constexpr RecordTypeDef kNeighborLeaf   {"l2vpn_evpn_neighbor_bag", nullptr, nullptr /* print_evpn_neighbor_leaf_evis */, 104, 200, kNone};
constexpr RecordTypeDef kEadRoute       {"l2vpn_evpn_ead_bag", nullptr, nullptr /* print_evpn_ead_bag */, 216, 200, kNone};
constexpr RecordTypeDef kAcId           {"l2vpn_atom_acid_bag", nullptr, nullptr /* print_atom_acid_bag */, 96, 200, kNone};
constexpr RecordTypeDef kPathlist       {"l2vpn_evpn_pl_bag", nullptr, nullptr /* print_evpn_pl_bag */, 120, 200, kNone};
constexpr RecordTypeDef kRemoteShg      {"l2vpn_evpn_remote_shg_bag", nullptr, nullptr /* print_evpn_remote_shg_bag */, 1776, 200, kNone};
constexpr RecordTypeDef kIgmpRoute      {"l2vpn_evpn_igmp_bag", nullptr, nullptr /* print_evpn_igmp_bag */, 192, 200, kNone};
constexpr RecordTypeDef kClient         {"l2vpn_evpn_client_bag", nullptr, nullptr /* print_evpn_client_bag */, 56, 5, kNone};
constexpr RecordTypeDef kGroup          {"evpn_grp_info_bag", nullptr, nullptr /* print_evpn_grp_info_bag */, 40, 200, kNone};
constexpr RecordTypeDef kTep            {"l2vpn_evpn_tep_bag", nullptr, nullptr /* kTepPrinter below */, 136, 200, kNone};
constexpr RecordTypeDef kSrv6           {"l2vpn_evpn_srv6_bag", nullptr, nullptr /* print_evpn_srv6_bag */, 72, 0, kNone};
constexpr RecordTypeDef kGesMapEntry    {"l2vpn_ges_map_entry_bag", nullptr, nullptr /* print_ges_map_entry_bag */, 32, 200, kNone};
// Tunnel endpoints go through the platform's generic show routines.
constexpr l2vpn_show_fn kTepListOperation = nullptr;  // PENDING show_evpn_tep_info
constexpr l2vpn_show_fn kTepPrinter = nullptr;        // PENDING print_evpn_tep_bag
// clang-format on

bool defined(const RecordTypeDef &type) { return type.desc && type.printer; }

// PENDING: the fetch a command would make for a type not defined yet. It
// fetches nothing; tests observe the path. Goes with the last such type.
void pending_fetch(const RecordTypeDef &type, const char *path) {
    if (evpn_show_pending_fetch_observer) evpn_show_pending_fetch_observer(type.type, path);
}

// Single items decode into a zeroed stack buffer of this many bytes.
constexpr size_t kSingleItemMax = 616;
static_assert(kSummary.record_size <= kSingleItemMax && kAcId.record_size <= kSingleItemMax &&
              kSrv6.record_size <= kSingleItemMax);

void walk(const RecordTypeDef &type, const char *path) {
    if (!defined(type)) return pending_fetch(type, path);
    const ShowContext ctx{path, type.printer, type.desc(), type.record_size, type.batch_count,
                          type.options};
    evpn_show_datalist_display(&ctx);
}

void show_item(const RecordTypeDef &type, const char *path) {
    if (!defined(type)) return pending_fetch(type, path);
    alignas(std::max_align_t) unsigned char decoded[kSingleItemMax] = {};
    evpn_show_get_display(path, decoded, type.desc(), type.printer);
}

struct ShowCommandDef {
    const char *name;  // the handler's name, carried by its traces
    void (*run)(const ShowCommandDef &cmd);
};

// Composes a path into a kPathSize buffer; a longer path is cut at 255 characters.
[[gnu::format(printf, 2, 3)]] void compose_path(char *path, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    vsnprintf(path, kPathSize, format, ap);
    va_end(ap);
}

// Composes a filtered path and traces it with trace, a text with one %s, in
// the command's name.
[[gnu::format(printf, 4, 5)]] void filter_path(const ShowCommandDef &cmd, char *path,
                                               const char *trace, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    vsnprintf(path, kPathSize, format, ap);
    va_end(ap);
    EVPN_TRACE(EVPN_DBG_PATH, cmd.name, trace, path);
}

// The -N address as a key component: its hex text, or the wildcard without -N.
const char *ip_key(char (&buf)[kIpTextSize]) {
    if (!show_filter.ip_set) return kAnyKey;
    l2vpn_ip_addr2hex_string2(&show_filter.ip_addr, buf, sizeof buf);
    return buf;
}

// The -0 identifier as a key component; null, traced as failure, when it has no text.
const char *esi_key(const ShowCommandDef &cmd, const char *failure) {
    const char *text = esistring(show_filter.esi);
    if (!text) EVPN_TRACE(EVPN_DBG_PATH, cmd.name, "%s", failure);
    return text;
}

constexpr const char kEsiExtractFailed[] = "Failed to extract ESI string from array";
constexpr const char kEsiConvertFailed[] = "Failed to convert ESI array into string";

// ---- Forwarding entries ----------------------------------------------------

void show_evpn_mac(const ShowCommandDef &cmd) {
    static constexpr char kColumns[] = "\n%-10.10s %-10.10s %-14.14s %-40.40s %-39.39s %-8.8s";
    static constexpr char kSidColumn[] = " %-39.39s";
    const ShowFilter &f = show_filter;
    char base[kPathSize], path[kPathSize], ip[kIpTextSize];
    snprintf(base, sizeof base, "%s/%s/%s", "evpn_evi_detail", "evi_child_container", "evpn_mac");
    snprintf(path, sizeof path, "%s", base);

    const bool sid = l2vpn_platform_srv6_elan_supported() != 0;
    printf(kColumns, "VPN-ID", "Encap", "MAC address", "IP address", "Nexthop", "Label");
    if (sid) printf(kSidColumn, "SID");
    printf(kColumns, kRule, kRule, kRule, kRule, kRule, kRule);
    if (sid) printf(kSidColumn, kRule);
    printf("\n");

    const uint32_t *m = f.mac;
    if (f.value_set && f.mac_set)
        filter_path(cmd, path, "value + mac + ip filter path: %s", "%s-%s/0x%x,%x,%x,%x,%s",
                    base, "evi_mac_ip", f.value, m[0], m[1], m[2], ip_key(ip));
    else if (f.value_set && !f.ip_set)
        filter_path(cmd, path, "value filter path: %s", "%s-%s/0x%x", base, "evi", f.value);
    else if (f.value_set)
        filter_path(cmd, path, "value + ip filter path: %s", "%s-%s/0x%x,%s,%s,%s,%s", base,
                    "evi_mac_ip", f.value, kAnyKey, kAnyKey, kAnyKey, ip_key(ip));
    else if (f.mac_set && !f.bd_name_set)
        filter_path(cmd, path, "mac + ip filter path: %s", "%s-%s/%x,%x,%x,%s", base, "mac_ip",
                    m[0], m[1], m[2], ip_key(ip));
    else if (f.ip_set && !f.bd_name_set)
        filter_path(cmd, path, "ip filter path: %s", "%s-%s/%s,%s,%s,%s", base, "mac_ip", kAnyKey,
                    kAnyKey, kAnyKey, ip_key(ip));
    else if (f.mac_set)
        filter_path(cmd, path, "bd + mac + ip filter path: %s", "%s-%s/%s,%x,%x,%x,%s", base,
                    "bd_mac_ip", f.bd_name, m[0], m[1], m[2], ip_key(ip));
    else if (f.ip_set)
        filter_path(cmd, path, "bd + ip filter path: %s", "%s-%s/%s,%s,%s,%s,%s", base,
                    "bd_mac_ip", f.bd_name, kAnyKey, kAnyKey, kAnyKey, ip_key(ip));
    else if (f.bd_name_set)
        filter_path(cmd, path, "bd filter path: %s", "%s-%s/%s", base, "bd", f.bd_name);

    walk(kMacRoute, path);
}

void show_evpn_imcast(const ShowCommandDef &cmd) {
    static constexpr char kColumns[] = "\n%-10.10s %-6.6s %-10.10s %-40.40s\n";
    const ShowFilter &f = show_filter;
    char base[kPathSize], path[kPathSize], ip[kIpTextSize];
    snprintf(base, sizeof base, "%s/%s/%s", "evpn_evi_detail", "evi_child_container",
             "evpn_imcast");
    snprintf(path, sizeof path, "%s", base);

    printf(kColumns, "VPN-ID", "Encap", "EtherTag", "Originating IP");
    printf(kColumns + 1, kRule, kRule, kRule, kRule);

    if (f.value_set) {
        if (!f.eth_tag_set)
            filter_path(cmd, path, "value filter path: %s", "%s-%s/0x%x", base, "evi", f.value);
        else if (f.ip_set)
            filter_path(cmd, path, "value + s_eth_tag + ip addr get path: %s", "%s-%s/0x%x,%x,%s",
                        base, "evi_eth_tag_orig_ip", f.value, f.eth_tag, ip_key(ip));
        else
            filter_path(cmd, path, "value + eth_tag filter path: %s", "%s-%s/0x%x,%x", base,
                        "evi_eth_tag", f.value, f.eth_tag);
    }
    if (f.bd_name_set) {
        if (!f.eth_tag_set)
            filter_path(cmd, path, "bd filter path: %s", "%s-%s/%s", base, "bd", f.bd_name);
        else if (f.ip_set)
            filter_path(cmd, path, "bd + eth_tag + ip addr filter path: %s", "%s-%s/%s,%x,%s",
                        base, "bd_eth_tag_orig_ip", f.bd_name, f.eth_tag, ip_key(ip));
        else
            filter_path(cmd, path, "bd + eth_tag filter path: %s", "%s-%s/%s,%x", base,
                        "bd_eth_tag", f.bd_name, f.eth_tag);
    }
    if (!f.value_set && f.eth_tag_set && !f.bd_name_set) {
        if (f.ip_set)
            filter_path(cmd, path, "eth_tag + ip addr filter path: %s", "%s-%s/%x,%s", base,
                        "eth_tag_orig_ip", f.eth_tag, ip_key(ip));
        else
            filter_path(cmd, path, "eth_tag filter path: %s", "%s-%s/%x", base, "eth_tag",
                        f.eth_tag);
    }

    walk(kImcastRoute, path);
}

void show_evpn_label(const ShowCommandDef &) {
    static constexpr char kColumns[] = "\n%-10.10s %-6.6s %-27.27s %-10.10s   %-8.8s\n";
    printf(kColumns, "VPN-ID", "Encap", "Ethernet Segment Id", "EtherTag", "Label");
    printf(kColumns + 1, kRule, kRule, kRule, kRule, kRule);
    const bool detailed = show_filter.detail || show_filter.private_view;
    show_evpn_label_db_common(detailed ? "evpn_label_detail" : "evpn_label", kLabel.printer);
}

void show_evpn_internal_id(const ShowCommandDef &) {
    static constexpr char kColumns[] = "\n%-10.10s %-6.6s %-27.27s %-10.10s   %-11.11s\n";
    printf(kColumns, "VPN-ID", "Encap", "Ethernet Segment Id", "EtherTag", "Internal ID");
    printf(kColumns + 1, kRule, kRule, kRule, kRule, kRule);
    const bool detailed = show_filter.detail || show_filter.private_view;
    show_evpn_label_db_common(detailed ? "evpn_internal_id_detail" : "evpn_internal_id",
                              kInternalId.printer);
}

void show_evpn_neighbor(const ShowCommandDef &cmd) {
    static constexpr char kLeafColumns[] = "\n%-10.10s %-6.6s %-40.40s %-20.20s\n";
    static constexpr char kColumns[] = "\n%-10.10s %-6.6s %-40.40s\n";
    const ShowFilter &f = show_filter;
    char base[kPathSize], path[kPathSize], ip[kIpTextSize];
    snprintf(base, sizeof base, "%s/%s/%s", "evpn_evi_detail", "evi_child_container",
             "evpn_neighbor");
    snprintf(path, sizeof path, "%s", base);

    if (f.leaf_evis) {
        printf(kLeafColumns, "VPN-ID", "Encap", "Neighbor IP", "Leaf EVIs");
        printf(kLeafColumns + 1, kRule, kRule, kRule, kRule);
    } else {
        printf(kColumns, "VPN-ID", "Encap", "Neighbor IP");
        printf(kColumns + 1, kRule, kRule, kRule);
    }

    // With -N alone the whole listing is walked: the printers filter by address.
    if (f.value_set) {
        if (f.ip_set)
            filter_path(cmd, path, "value + ip addr filter path: %s", "%s-%s/0x%x,%s", base,
                        "evi_nbr_ip", f.value, ip_key(ip));
        else
            filter_path(cmd, path, "value filter path: %s", "%s-%s/0x%x", base, "evi", f.value);
    }
    if (f.bd_name_set) {
        if (f.ip_set)
            filter_path(cmd, path, "bd + ip addr filter path: %s", "%s-%s/%s,%s", base,
                        "bd_nbr_ip", f.bd_name, ip_key(ip));
        else
            filter_path(cmd, path, "bd filter path: %s", "%s-%s/%s", base, "bd", f.bd_name);
    }

    walk(f.leaf_evis ? kNeighborLeaf : kNeighbor, path);
}

void show_evpn_ead(const ShowCommandDef &cmd) {
    static constexpr char kColumns[] = "%-10.10s %-6.6s %-24.24s %-10.10s %-39.39s %-8.8s";
    static constexpr char kSidColumn[] = " %-39.39s";
    const ShowFilter &f = show_filter;
    char base[kPathSize], path[kPathSize];
    snprintf(base, sizeof base, "%s/%s/%s", "evpn_evi_detail", "evi_child_container", "evpn_ead");
    snprintf(path, sizeof path, "%s", base);

    const bool sid = l2vpn_platform_srv6_supported() != 0;
    printf("\n");
    printf(kColumns, "VPN-ID", "Encap", "Ethernet Segment Id", "EtherTag", "Nexthop", "Label");
    if (sid) printf(kSidColumn, "SID");
    printf("\n");
    printf(kColumns, kRule, kRule, kRule, kRule, kRule, kRule);
    if (sid) printf(kSidColumn, kRule);
    printf("\n");

    const char *esi = nullptr;
    if (f.esi_set && !(esi = esi_key(cmd, kEsiExtractFailed))) return;
    if (f.value_set) {
        if (f.esi_set)
            filter_path(cmd, path, "value + esi filter path: %s", "%s-%s/0x%x,%s", base,
                        "evi_esi", f.value, esi);
        else
            filter_path(cmd, path, "value filter path: %s", "%s-%s/0x%x", base, "evi", f.value);
    }
    if (f.bd_name_set) {
        if (f.esi_set)
            filter_path(cmd, path, "bd + esi filter path: %s", "%s-%s/%s,%s", base, "bd_esi",
                        f.bd_name, esi);
        else
            filter_path(cmd, path, "bd filter path: %s", "%s-%s/%s", base, "bd", f.bd_name);
    }
    if (!f.value_set && f.esi_set && !f.bd_name_set)
        filter_path(cmd, path, "esi filter path: %s", "%s-%s/%s", base, "esi", esi);

    walk(kEadRoute, path);
}

void show_evpn_pl(const ShowCommandDef &cmd) {
    static constexpr char kColumns[] = "\n%-40.40s %-15.15s\n";
    const ShowFilter &f = show_filter;
    char base[kPathSize], path[kPathSize];
    snprintf(base, sizeof base, "%s/%s/%s", "evpn_label_detail", "label_child_container",
             "evpn_pl");
    snprintf(path, sizeof path, "%s", base);

    printf(kColumns, "Nexthop", "Label");
    printf(kColumns + 1, kRule, kRule);

    // Without -M the whole listing is walked; -0 and -j play no part.
    if (f.value_set) {
        const char *esi = nullptr;
        if (f.esi_set && !(esi = esi_key(cmd, kEsiExtractFailed))) return;
        if (f.esi_set && f.i_sid_set)
            filter_path(cmd, path, "PL value + label esi + tag filter path: %s",
                        "%s-%s/0x%x,%s,%x", base, "evi_esi_tag", f.value, esi, f.i_sid);
        else if (f.esi_set)
            filter_path(cmd, path, "PL value + label esi filter path: %s", "%s-%s/0x%x,%s", base,
                        "evi_esi", f.value, esi);
        else
            filter_path(cmd, path, "PL value filter path: %s", "%s-%s/0x%x", base, "evi",
                        f.value);
    }

    walk(kPathlist, path);
}

// ---- Segments, instances and system records --------------------------------

void show_evpn_es(const ShowCommandDef &cmd) {
    static constexpr char kColumns[] = "\n%-24.24s %-34.34s %-20.20s";
    static constexpr char kLegend[] =
        "Legend:\n"
        "  B   - No Forwarders EVPN-enabled,\n"
        "  C   - MAC missing (Backbone S-MAC PBB-EVPN / Grouping ES-MAC vES),\n"
        "  RT  - ES-Import Route Target missing,\n"
        "  E   - ESI missing,\n"
        "  H   - Interface handle missing,\n"
        "  I   - Name (Interface or Virtual Access) missing,\n"
        "  M   - Interface in Down state,\n"
        "  O   - BGP End of Download missing,\n"
        "  P   - Interface already Access Protected,\n"
        "  Pf  - Interface forced single-homed,\n"
        "  R   - BGP RID not received,\n"
        "  S   - Interface in redundancy standby state,\n"
        "  X   - ESI-extracted MAC Conflict\n"
        "  SHG - No local split-horizon-group label allocated\n"
        "  Hp  - Interface blocked on peering complete during HA event\n"
        "  Rc  - Recovery timer running during peering sequence\n";
    const ShowFilter &f = show_filter;
    char path[kPathSize];

    if (f.detail || f.private_view) printf("%s", kLegend);
    printf(kColumns, "Ethernet Segment Id", "Interface", "Nexthops");
    printf(kColumns, kRule, kRule, kRule);
    printf("\n");

    // Each filter that is present replaces the path of the one before it.
    snprintf(path, sizeof path, "%s", "ethernet_segment");
    if (f.ifname_set)
        filter_path(cmd, path, "intf filter path: %s", "%s-%s/%s", "ethernet_segment", "ifname",
                    f.ifname);
    if (f.esi_set) {
        const char *esi = esi_key(cmd, kEsiConvertFailed);
        if (!esi) return;
        filter_path(cmd, path, "esi filter path: %s", "%s-%s/%s", "ethernet_segment", "esi", esi);
    }
    if (f.pw_neighbor_set) {
        char neighbor[kPwTextSize];
        l2vpn_ip_addr2hex_string2(&f.pw_neighbor, neighbor, sizeof neighbor);
        filter_path(cmd, path, "PW filter path: %s", "%s-%s/%s,0x%x", "ethernet_segment", "pw",
                    neighbor, f.pw_id);
    }
    if (f.vfi_name_set)
        filter_path(cmd, path, "VFI filter path: %s", "%s-%s/%s", "ethernet_segment", "vfi",
                    f.vfi_name);
    if (f.access_evi)
        filter_path(cmd, path, "Access EVI filter path: %s", "%s-%s/", "ethernet_segment",
                    "accessevi");

    walk(kEthernetSegment, path);
}

void show_evpn_rd(const ShowCommandDef &) {
    if (!show_filter.private_view) return;
    printf("Route Distinguisher (RD) database\n");
    printf("---------------------------------\n");
    walk(kRdPrivate, "rd_private");
}

void show_evpn_evi(const ShowCommandDef &) {
    static constexpr char kColumns[] = "\n%-10.10s %-10.10s %-28.28s %-19.19s";
    const ShowFilter &f = show_filter;
    char base[kPathSize], path[kPathSize];

    printf(kColumns, "VPN-ID", "Encap", "Bridge Domain", "Type");
    printf(kColumns, kRule, kRule, kRule, kRule);
    printf("\n");

    const bool detailed = f.detail || f.private_view;
    if (detailed)
        snprintf(base, sizeof base, "%s/%s", "evpn_evi_detail", "detailed_elements");
    else
        snprintf(base, sizeof base, "%s", "evpn_evi");
    snprintf(path, sizeof path, "%s", base);
    if (f.value_set) compose_path(path, "%s-%s/0x%x", base, "evi", f.value);
    if (f.bd_name_set) compose_path(path, "%s-%s/%s", base, "bd", f.bd_name);

    walk(detailed ? kEviDetail : kEviSummary, path);
}

void show_evpn_summary(const ShowCommandDef &) { show_item(kSummary, "summary"); }

void show_evpn_acid(const ShowCommandDef &) {
    static constexpr char kColumns[] = "\n%-10.10s %-15.15s %-15.15s\n";
    const ShowFilter &f = show_filter;
    char path[kPathSize];

    printf(kColumns, "VPN-ID", "Source AC ID", "Target AC ID");
    printf(kColumns + 1, kRule, kRule, kRule);

    if (f.value_set && f.i_sid_set) {
        snprintf(path, sizeof path, "%s/0x%x,%x", "evpn_atom_acid", f.value, f.i_sid);
        show_item(kAcId, path);
        return;
    }
    if (f.value_set)
        snprintf(path, sizeof path, "%s-%s/0x%x", "evpn_atom_acid", "evi", f.value);
    else
        snprintf(path, sizeof path, "%s", "evpn_atom_acid");
    walk(kAcId, path);
}

void show_evpn_remote_shg(const ShowCommandDef &) {
    static constexpr char kColumns[] = "\n%-10.10s %-6.6s %-24.24s";
    printf(kColumns, "VPN-ID", "Encap", "Ethernet Segment Id");
    printf(kColumns, kRule, kRule, kRule);
    printf("\n");
    walk(kRemoteShg, "remote_shg");
}

// The header comes after the path: an identifier without text prints nothing.
void show_evpn_igmp(const ShowCommandDef &cmd) {
    static constexpr char kColumns[] = "\n%-5.5s %-24.24s %-43.43s %-30.30s %-6.6s";
    const ShowFilter &f = show_filter;
    const char *base = "igmp";
    char path[kPathSize];
    snprintf(path, sizeof path, "%s", base);

    const char *esi = nullptr;
    if (f.esi_set && !(esi = esi_key(cmd, kEsiExtractFailed))) return;
    if (f.value_set && f.esi_set)
        filter_path(cmd, path, "value + esi filter path: %s", "%s-%s/0x%x,%s", base, "evi_esi",
                    f.value, esi);
    else if (f.value_set)
        filter_path(cmd, path, "value filter path: %s", "%s-%s/0x%x", base, "evi", f.value);
    else if (f.esi_set)
        filter_path(cmd, path, "esi filter path: %s", "%s-%s/%s", base, "esi", esi);

    printf(kColumns, "EVI", "Ethernet Segment", "(S,G)", "Source", "Type");
    printf(kColumns, kRule, kRule, kRule, kRule, kRule);
    printf("\n");

    walk(kIgmpRoute, path);
}

void show_evpn_client(const ShowCommandDef &) { walk(kClient, "client"); }

// One group is fetched in place: a missing group is no error worth a trace,
// and a record whose inner parts cannot be released is a broken invariant.
void show_evpn_grp(const ShowCommandDef &cmd) {
    const ShowFilter &f = show_filter;
    if (!f.grp_id_set) {
        walk(kGroup, "evpn_grp");
        return;
    }
    char path[80];
    snprintf(path, sizeof path, "%s/%x", "evpn_grp", f.grp_id);
    if (!defined(kGroup)) pending_fetch(kGroup, path);
    uint32_t type = SYSDB_TYPE_BAG, len = 0;
    void *data = nullptr;
    uint32_t rc = sysdb_item_get(sysdb_handle, path, &type, &data, &len, 0);
    if (rc) {
        if (rc != SYSDB_ERR_NOT_FOUND && rc != SYSDB_ERR_BAD_PATH)
            EVPN_TRACE(EVPN_DBG_ERR, cmd.name, "%s: sysdb item get failed: path:%s rc:%s",
                       cmd.name, path, cerr_strerror(rc));
        free(data);
        return;
    }
    if (!defined(kGroup)) {  // PENDING: nothing to decode with yet
        free(data);
        return;
    }
    const BagDesc *bag = kGroup.desc();
    alignas(std::max_align_t) unsigned char decoded[kGroup.record_size] = {};
    rc = bag_decode(data, len, decoded, sizeof decoded, bag);
    free(data);
    if (rc) {
        EVPN_TRACE(EVPN_DBG_ERR, cmd.name, "%s: bag decode failed: path:%s rc:%s", cmd.name, path,
                   cerr_strerror(rc));
        return;
    }
    kGroup.printer(decoded, nullptr, nullptr);
    rc = bag_free_indirections(decoded, bag);
    if (rc)
        EVPN_TRACE(EVPN_DBG_ERR, cmd.name, "%s: bag free failed: path:%s rc:%s", cmd.name, path,
                   cerr_strerror(rc));
    EVPN_ASSERT(rc == 0);
}

void show_evpn_tep(const ShowCommandDef &) {
    static constexpr char kColumns[] = "\n%-10.10s %-12.12s %-40.40s %-40.40s\n";
    printf(kColumns, "TEP-ID", "Type", "Local Nexthop", "Remote Nexthop");
    printf(kColumns + 1, kRule, kRule, kRule, kRule);

    if (!show_filter.value_set) {
        const l2vpn_show_context_t all{"tep", kTepListOperation, nullptr, 0, kTep.batch_count,
                                       kNone, sysdb_handle,      nullptr};
        if (!all.operation) return pending_fetch(kTep, all.path);
        l2vpn_show_list_display(&all);
        return;
    }
    // The VPN ID serves as the endpoint identifier.
    char key[kPathSize], path[kPathSize];
    snprintf(key, sizeof key, "%x", show_filter.value);
    compose_path(path, "tep/%s/info", key);
    if (!kTep.desc || !kTepPrinter) return pending_fetch(kTep, path);
    const l2vpn_show_context_t one{path,  kTepPrinter,  kTep.desc(), kTep.record_size, 0,
                                   kNone, sysdb_handle, key};
    l2vpn_show_get_display(&one);
}

void show_evpn_srv6(const ShowCommandDef &) {
    if (l2vpn_platform_srv6_supported())
        show_item(kSrv6, "srv6");
    else
        printf("EVPN SRv6 not supported on this platform.\n");
}

void show_evpn_ges_map(const ShowCommandDef &) {
    if (!show_filter.private_view) return;
    printf("GES Association Map\n");
    printf("-------------------\n");
    walk(kGesMapEntry, "ges-map");
}

// Indexed by show-command number; number 6 selects no command.
constexpr ShowCommandDef kShowCommands[] = {
    {"show_evpn_mac", show_evpn_mac},
    {"show_evpn_imcast", show_evpn_imcast},
    {"show_evpn_label", show_evpn_label},
    {"show_evpn_es", show_evpn_es},
    {"show_evpn_rd", show_evpn_rd},
    {"show_evpn_evi", show_evpn_evi},
    {nullptr, nullptr},
    {"show_evpn_summary", show_evpn_summary},
    {"show_evpn_neighbor", show_evpn_neighbor},
    {"show_evpn_ead", show_evpn_ead},
    {"show_evpn_acid", show_evpn_acid},
    {"show_evpn_pl", show_evpn_pl},
    {"show_evpn_remote_shg", show_evpn_remote_shg},
    {"show_evpn_igmp", show_evpn_igmp},
    {"show_evpn_client", show_evpn_client},
    {"show_evpn_grp", show_evpn_grp},
    {"show_evpn_tep", show_evpn_tep},
    {"show_evpn_internal_id", show_evpn_internal_id},
    {"show_evpn_srv6", show_evpn_srv6},
    {"show_evpn_ges_map", show_evpn_ges_map},
};
static_assert(std::size(kShowCommands) == 20);

}  // namespace

int evpn_show_dispatch(uint32_t command) {
    if (command >= std::size(kShowCommands) || !kShowCommands[command].run) {
        EVPN_TRACE(EVPN_DBG_ERR, "main", "Invalid show command type %u", command);
        return 1;
    }
    const ShowCommandDef &cmd = kShowCommands[command];
    cmd.run(cmd);
    return 0;
}

// ============================================================================
// Start-up and command line
// ============================================================================

namespace {

constexpr const char kOptions[] = "b:de:g:i:j:npctM:N:O:P:Q:U:0:1:5:6:7:8";

event_manager_handle_t event_manager;
bool sysdb_library_present;

void on_sigterm(int, void *) { _exit(1); }

void fatal_startup_report(const char *step, const char *text) {
    tarn_errmsg(tarn_msg_rec_l2vpn_init_err_getfn(), 3, "evpn_show_client", step, text);
}

// True once the database client library has been found readable.
bool check_sysdb_library(void) {
    if (!sysdb_library_present && access(sysdb_library_path(), R_OK) == 0)
        sysdb_library_present = true;
    return sysdb_library_present;
}

// Reads a hexadecimal option value; a failed scan leaves value as it was.
void scan_hex(const char *arg, uint32_t *value, const char *complaint) {
    if (sscanf(arg, "%x", value) != 1) printf("%s", complaint);
}

// Parses one option into show_filter; false ends the process with status 1.
// Each flag is set before its value is read, so a bad value leaves it set.
bool parse_option(int option, const char *arg) {
    ShowFilter &f = show_filter;
    switch (option) {
    case 'b': f.bd_name_set = 1; f.bd_name = arg; break;
    case 'c': f.carving_detail = 1; break;
    case 'd': f.detail = 1; break;
    case 'e': f.eth_tag_set = 1; scan_hex(arg, &f.eth_tag, ": sscanf(eth_tag) error. \n"); break;
    case 'g':
        scan_hex(arg, &f.grp_id, ": sscanf(grp_id) error.\n");
        f.grp_id_set = 1;
        break;
    case 'i':
        f.ifname_set = 1;
        imc_internal_namestring(arg, f.ifname, sizeof f.ifname, 0);
        break;
    case 'j': f.i_sid_set = 1; scan_hex(arg, &f.i_sid, ": sscanf(i_sid) error. \n"); break;
    case 'n': f.no_stats = 1; break;
    case 'p': f.private_view = 1; break;
    case 't': f.leaf_evis = 1; break;
    case 'M': f.value_set = 1; scan_hex(arg, &f.value, ": sscanf(value) error. \n"); break;
    case 'N':
        f.ip_set = 1;
        if (!l2vpn_inet_pton(arg, &f.ip_addr)) printf(": inet_pton failed.");
        break;
    case 'O': f.mac_set = 1; f.mac[0] = static_cast<uint32_t>(strtoul(arg, nullptr, 16)); break;
    case 'P': f.mac_set = 1; f.mac[1] = static_cast<uint32_t>(strtoul(arg, nullptr, 16)); break;
    case 'Q': f.mac_set = 1; f.mac[2] = static_cast<uint32_t>(strtoul(arg, nullptr, 16)); break;
    case 'U': {
        int differs = 1;
        if (strcmp_s("standby", 8, arg, &differs) != 0) {
            EVPN_TRACE(EVPN_DBG_ERR, "main", "Unable to compare standby to %s", arg);
            return false;
        }
        if (differs == 0) {
            f.standby = 1;
            break;
        }
        f.node_set = 1;
        f.node_id = static_cast<uint32_t>(strtol(arg, nullptr, 10));
        if (f.node_id == kNoNode) {
            EVPN_TRACE(EVPN_DBG_ERR, "main", "Invalid node id");
            return false;
        }
        break;
    }
    case '0':
        f.esi_set = 1;
        if (evpn_esi_pton(arg, f.esi) != 0) {
            EVPN_TRACE(EVPN_DBG_ERR, "main", "Failed to extract ESI");
            return false;
        }
        break;
    case '1': f.local_only = 1; break;
    case '5':
        f.pw_neighbor_set = 1;
        if (!l2vpn_inet_pton(arg, &f.pw_neighbor)) printf(": inet_pton failed.");
        break;
    case '6': f.pw_id = static_cast<uint32_t>(strtoul(arg, nullptr, 10)); break;
    case '7': f.vfi_name_set = 1; f.vfi_name = arg; break;
    case '8': f.access_evi = 1; break;
    default:
        EVPN_TRACE(EVPN_DBG_ERR, "main", "Invalid command option %c", option);
        return false;
    }
    return true;
}

}  // namespace

int evpn_show_main(int argc, char **argv) {
    safe_init_logger(1, l2vpn_safe_logger_stderr);
    if (argc < 2) {
        fprintf(stderr, "Insufficient args (%d)\n", argc - 1);
        return 1;
    }
    vel_openlog(__xpg_basename(argv[0]), 0x80000009, 24);

    event_manager = event_manager_create(0, 0, 4, 0);
    if (!event_manager) {
        fatal_startup_report("event_manager_create", cerr_strerror(errno));
        return 1;
    }
    if (event_signal_attach(event_manager, SIGTERM, on_sigterm, nullptr) < 0) {
        fatal_startup_report("event_signal_attach", cerr_strerror(errno));
        return 1;
    }
    if (uint32_t rc = l2vpn_debug_init(event_manager)) {
        fatal_startup_report("Debug initialisation", cerr_strerror(rc));
        return 1;
    }

    for (int option; (option = _getopt(argc, argv, kOptions)) != -1;)
        if (!parse_option(option, l2vpn_optarg)) return 1;

    // Standby wins over a node id; the node id is written in hexadecimal.
    char root[kRootSize];
    smemzero_s(root, sizeof root);
    if (show_filter.standby)
        snprintf(root, sizeof root, "/oper/evpn/gl/stdby/");
    else if (show_filter.node_set)
        snprintf(root, sizeof root, "/oper/evpn/node/%x/", show_filter.node_id);
    else
        snprintf(root, sizeof root, "/oper/evpn/gl/");

    uint32_t rc = check_sysdb_library() ? _sysdb_bind(&sysdb_handle, root, SYSDB_BIND_READ)
                                        : SYSDB_ERR_NO_LIBRARY;
    if (rc) {
        EVPN_TRACE(EVPN_DBG_ERR, "main", "sysdb_bind failed for '%s': %s", root,
                   cerr_strerror(rc));
        return 1;
    }
    if ((rc = l2fib_stats_client_init(event_manager))) {
        l2fib_stats_client_deinit();
        EVPN_TRACE(EVPN_DBG_ERR, "main", "l2fib_stats_client_init failed: %s", cerr_strerror(rc));
        return 1;
    }

    // The command is the last argument, whatever it is; only its low 32 bits count.
    const uint32_t command = static_cast<uint32_t>(strtoul(argv[argc - 1], nullptr, 16));
    const int status = evpn_show_dispatch(command);

    l2fib_stats_client_deinit();
    if (check_sysdb_library()) _sysdb_unbind(sysdb_handle);
    return status;
}

// ---- Formatted output -----------------------------------------------------------

namespace {

// Text of one call, built in the caller's buffer; full when it would overflow.
struct FormatOut {
    char *buf;
    size_t cap, len = 0;
    bool full = false;

    void put(const char *s, size_t n) {
        if (len + n > cap) {
            full = true;
            return;
        }
        memcpy(buf + len, s, n);
        len += n;
    }
    void pad(char c, int n) {
        if (n <= 0) return;
        if (len + static_cast<size_t>(n) > cap) {
            full = true;
            return;
        }
        memset(buf + len, c, static_cast<size_t>(n));
        len += static_cast<size_t>(n);
    }
};

struct Conversion {  // flags, width and precision of one conversion
    bool left = false, plus = false, space = false, alt = false, zero = false;
    int width = 0, prec = -1;
};

void put_padded(FormatOut &o, const Conversion &sp, const char *text, size_t n) {
    const int fill = sp.width - static_cast<int>(n);
    if (!sp.left) o.pad(' ', fill);
    o.put(text, n);
    if (sp.left) o.pad(' ', fill);
}

void put_integer(FormatOut &o, const Conversion &sp, unsigned long long v, bool negative, char conv) {
    char digits[24];
    int nd = 0;
    const unsigned base = conv == 'o' ? 8 : (conv == 'x' || conv == 'X') ? 16 : 10;
    const char *set = conv == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
    for (unsigned long long x = v; x; x /= base) digits[nd++] = set[x % base];
    int zeros = sp.prec > nd ? sp.prec - nd : 0;
    if (v == 0 && sp.prec != 0) zeros = zeros > 0 ? zeros : 1;  // "0", unless precision 0
    if (conv == 'o' && sp.alt && zeros == 0 && (nd == 0 || digits[nd - 1] != '0')) zeros = 1;
    char prefix[2];
    int np = 0;
    if (conv == 'd' || conv == 'i') {
        if (negative) prefix[np++] = '-';
        else if (sp.plus) prefix[np++] = '+';
        else if (sp.space) prefix[np++] = ' ';
    } else if (sp.alt && v != 0 && base == 16) {
        prefix[np++] = '0';
        prefix[np++] = conv;
    }
    int fill = sp.width - (np + zeros + nd);
    if (sp.zero && !sp.left && sp.prec < 0) {
        zeros += fill > 0 ? fill : 0;
        fill = 0;
    }
    if (!sp.left) o.pad(' ', fill);
    o.put(prefix, static_cast<size_t>(np));
    o.pad('0', zeros);
    char text[24];
    for (int i = 0; i < nd; i++) text[i] = digits[nd - 1 - i];
    o.put(text, static_cast<size_t>(nd));
    if (sp.left) o.pad(' ', fill);
}

// Formats into o; false for a format this does not handle (nothing is then
// usable in o, and ap may have been read).
bool format_into(FormatOut &o, const char *f, va_list ap) {
    for (;;) {
        const char *pct = strchr(f, '%');
        if (!pct) {
            o.put(f, strlen(f));
            return !o.full;
        }
        o.put(f, static_cast<size_t>(pct - f));
        f = pct + 1;
        Conversion sp;
        for (;; f++) {
            if (*f == '-') sp.left = true;
            else if (*f == '+') sp.plus = true;
            else if (*f == ' ') sp.space = true;
            else if (*f == '#') sp.alt = true;
            else if (*f == '0') sp.zero = true;
            else break;
        }
        if (*f == '*') {
            sp.width = va_arg(ap, int);
            if (sp.width < 0) {
                sp.left = true;
                sp.width = sp.width == INT32_MIN ? 0 : -sp.width;
            }
            f++;
        } else {
            for (; *f >= '0' && *f <= '9'; f++) sp.width = sp.width * 10 + (*f - '0');
        }
        if (*f == '.') {
            f++;
            if (*f == '*') {
                sp.prec = va_arg(ap, int);
                if (sp.prec < 0) sp.prec = -1;
                f++;
            } else {
                sp.prec = 0;
                for (; *f >= '0' && *f <= '9'; f++) sp.prec = sp.prec * 10 + (*f - '0');
            }
        }
        if (sp.width > 4096 || sp.prec > 4096) return false;
        int size = 0;  // -2 hh, -1 h, 0 int, 1 long, 2 long long, 3 size_t
        if (f[0] == 'h' && f[1] == 'h') size = -2, f += 2;
        else if (f[0] == 'h') size = -1, f++;
        else if (f[0] == 'l' && f[1] == 'l') size = 2, f += 2;
        else if (f[0] == 'l') size = 1, f++;
        else if (f[0] == 'z') size = 3, f++;
        const char conv = *f++;
        switch (conv) {
        case 'd': case 'i': {
            long long v = size == 2 ? va_arg(ap, long long)
                        : size == 1 || size == 3 ? va_arg(ap, long)
                        : va_arg(ap, int);
            if (size == -2) v = static_cast<signed char>(v);
            if (size == -1) v = static_cast<short>(v);
            const bool neg = v < 0;
            put_integer(o, sp, neg ? 0ull - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v),
                        neg, conv);
            break;
        }
        case 'u': case 'x': case 'X': case 'o': {
            unsigned long long v = size == 2 ? va_arg(ap, unsigned long long)
                                 : size == 1 || size == 3 ? va_arg(ap, unsigned long)
                                 : va_arg(ap, unsigned int);
            if (size == -2) v = static_cast<unsigned char>(v);
            if (size == -1) v = static_cast<unsigned short>(v);
            put_integer(o, sp, v, false, conv);
            break;
        }
        case 's': {
            if (size != 0 || sp.zero) return false;
            const char *s = va_arg(ap, const char *);
            if (!s) s = sp.prec < 0 || sp.prec >= 6 ? "(null)" : "";
            const size_t n = sp.prec < 0 ? strlen(s) : strnlen(s, static_cast<size_t>(sp.prec));
            put_padded(o, sp, s, n);
            break;
        }
        case 'c': {
            if (size != 0 || sp.zero) return false;
            const char c = static_cast<char>(va_arg(ap, int));
            put_padded(o, sp, &c, 1);
            break;
        }
        case '%':
            if (sp.width || sp.prec >= 0 || size) return false;
            o.put("%", 1);
            break;
        default:
            return false;
        }
        if (o.full) return false;
    }
}

}  // namespace

int show_vsnprintf(char *buf, size_t size, const char *format, va_list ap) {
    va_list again;
    va_copy(again, ap);
    FormatOut o{buf, size ? size - 1 : 0};
    int n;
    if (size && format_into(o, format, ap)) {
        buf[o.len] = '\0';
        n = static_cast<int>(o.len);
    } else {
        n = vsnprintf(buf, size, format, again);  // truncated, or a format not handled here
    }
    va_end(again);
    return n;
}

int show_snprintf(char *buf, size_t size, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    int n = show_vsnprintf(buf, size, format, ap);
    va_end(ap);
    return n;
}

int show_printf(const char *format, ...) {
    char line[1024];
    va_list ap, again;
    va_start(ap, format);
    va_copy(again, ap);
    FormatOut o{line, sizeof line};
    int n;
    if (format_into(o, format, ap)) {
        n = static_cast<int>(fwrite_unlocked(line, 1, o.len, stdout));
    } else {
        n = vprintf(format, again);
    }
    va_end(again);
    va_end(ap);
    return n;
}
