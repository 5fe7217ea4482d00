// The show client: start-up and command line, the show-command dispatch and
// the helpers its commands build paths with, and the retrieval layer (listing
// walks, single items, bridge-domain statistics of EVI batches). The commands
// themselves stand with their printers in the family files.
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

#include "evpn_show_format.h"
#include "evpn_show_print.h"
#include "platform/caps.h"
#include "platform/cerr.h"
#include "platform/infra.h"
#include "platform/show.h"

ShowFilter show_filter = {.node_id = L2FIB_ALL_NODES};
sysdb_handle_td sysdb_handle;
l2fib_bd_stats_entry evi_fwd_stats_bulk[EVI_FWD_STATS_BULK_SIZE];

namespace {

constexpr uint32_t kNoNode = L2FIB_ALL_NODES;
constexpr const char kDecodedBagLabel[] = "L2VPN show decoded bag";
constexpr const char kStatsBagLabel[] = "EVI BD Stats Bag";

}  // namespace

void evpn_assert_fail(const char *expr, const char *function, int line) {
    fprintf(stderr, "l2vpn/show/src/evpn_show_client:%d: %s: Assertion `%s' failed.\n", line,
            function, expr);
    abort();
}

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

namespace {
// Whoever listens to the records (none for the show client itself), and how
// deep in printers' own walks the current record is.
const RecordListener *g_listener = nullptr;
int g_print_depth = 0;

void print_record(RecordPrinter printer, const BagDesc *bag, const char *path, const void *decoded,
                  const char *name, PrintContext *ctx) {
    const RecordListener *listener = g_print_depth == 0 ? g_listener : nullptr;
    if (listener) listener->before();
    g_print_depth++;
    printer(decoded, name, ctx);
    g_print_depth--;
    if (listener) listener->after(bag, path, name, decoded);
}
}  // namespace

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
    char resume_name[EVPN_PATH_SIZE] = "";
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
            print_record(ctx->printer, ctx->bag, ctx->path, decoded, name, &print_ctx);
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

void evpn_show_set_listener(const RecordListener *listener) { g_listener = listener; }

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
    print_record(printer, bag, path, decoded, l2vpn_edm_sysdb_path_to_item_name(path), nullptr);
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
    const BagDesc *bag = bag_record_info<l2vpn_evpn_evi_detail_bag>::get();
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
        alignas(std::max_align_t)
            unsigned char evi[bag_record_info<l2vpn_evpn_evi_detail_bag>::buffer_size];
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

// PENDING: the request a walk of a type still pending makes first, so that
// its paths reach the store as they will; nothing is decoded or printed.
// Goes with the last such type.
void pending_walk(const RecordTypeDef &type, const char *path) {
    uint32_t count = type.batch_count;
    sysdb_datalist_h_td list = nullptr;
    sysdb_datalist(sysdb_handle, path, "", &count, &list, 0);
    if (list) sysdb_datalist_free(list);
}

void pending_get(const char *path) {
    uint32_t type = SYSDB_TYPE_BAG, len = 0;
    void *data = nullptr;
    sysdb_item_get(sysdb_handle, path, &type, &data, &len, 0);
    free(data);
}

}  // namespace

void evpn_show_walk(const RecordTypeDef &type, const char *path) {
    if (!type.desc) return pending_walk(type, path);
    const ShowContext ctx{path, type.printer, type.desc(), type.record_size, type.batch_count,
                          type.options};
    evpn_show_datalist_display(&ctx);
}

void evpn_show_item_into(const RecordTypeDef &type, const char *path) {
    if (!type.desc) return pending_get(path);
    alignas(std::max_align_t) unsigned char decoded[EVPN_SINGLE_ITEM_SIZE] = {};
    evpn_show_get_display(path, decoded, type.desc(), type.printer);
}

namespace {
// A filter text cut at its buffer names another item (or none, or all);
// whoever listens is told.
void note_cut(const char *what, const char *text, size_t length, size_t room) {
    if (g_listener && g_listener->value_cut) g_listener->value_cut(what, text, length, room);
}
void note_path_length(const char *path, int length) {
    if (length >= static_cast<int>(EVPN_PATH_SIZE))
        note_cut("a path", path, static_cast<size_t>(length), EVPN_PATH_SIZE - 1);
}
}  // namespace

void compose_path(char *path, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    const int length = vsnprintf(path, EVPN_PATH_SIZE, format, ap);
    va_end(ap);
    note_path_length(path, length);
}

void filter_path(const ShowCommandDef &cmd, char *path, const char *trace, const char *format,
                 ...) {
    va_list ap;
    va_start(ap, format);
    const int length = vsnprintf(path, EVPN_PATH_SIZE, format, ap);
    va_end(ap);
    note_path_length(path, length);
    EVPN_TRACE(EVPN_DBG_PATH, cmd.name, trace, path);
}

const char *ip_key(char (&buf)[EVPN_IP_KEY_SIZE]) {
    if (!show_filter.ip_set) return kAnyKey;
    l2vpn_ip_addr2hex_string2(&show_filter.ip_addr, buf, sizeof buf);
    return buf;
}

const char *esi_key(const ShowCommandDef &cmd, const char *failure) {
    const char *text = esistring(show_filter.esi);
    if (!text) EVPN_TRACE(EVPN_DBG_PATH, cmd.name, "%s", failure);
    return text;
}

namespace {

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

void on_sigterm(int, void *) { _exit(1); }

void fatal_startup_report(const char *step, const char *text) {
    tarn_errmsg(tarn_msg_rec_l2vpn_init_err_getfn(), 3, "evpn_show_client", step, text);
}

// Reads a hexadecimal option value; a failed scan leaves value as it was.
void scan_hex(const char *arg, uint32_t *value, const char *complaint) {
    if (sscanf(arg, "%x", value) != 1) show_print<"%s">(complaint);
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
        if (imc_internal_namestring(arg, f.ifname, sizeof f.ifname, 0) == ENOSPC)
            note_cut("an interface name", arg, strlen(arg), sizeof f.ifname - 1);
        break;
    case 'j': f.i_sid_set = 1; scan_hex(arg, &f.i_sid, ": sscanf(i_sid) error. \n"); break;
    case 'n': f.no_stats = 1; break;
    case 'p': f.private_view = 1; break;
    case 't': f.leaf_evis = 1; break;
    case 'M': f.value_set = 1; scan_hex(arg, &f.value, ": sscanf(value) error. \n"); break;
    case 'N':
        f.ip_set = 1;
        if (!l2vpn_inet_pton(arg, &f.ip_addr)) show_print<": inet_pton failed.">();
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
        if (!l2vpn_inet_pton(arg, &f.pw_neighbor)) show_print<": inet_pton failed.">();
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

bool evpn_show_store_left_open;
void (*evpn_show_before_store)(void);

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
    char root[EVPN_ROOT_SIZE];
    smemzero_s(root, sizeof root);
    if (show_filter.standby)
        snprintf(root, sizeof root, "/oper/evpn/gl/stdby/");
    else if (show_filter.node_set)
        snprintf(root, sizeof root, "/oper/evpn/node/%x/", show_filter.node_id);
    else
        snprintf(root, sizeof root, "/oper/evpn/gl/");

    if (evpn_show_before_store) evpn_show_before_store();
    // A missing or unreadable store fails the binding (SYSDB_ERR_NO_LIBRARY).
    uint32_t rc = _sysdb_bind(&sysdb_handle, root, SYSDB_BIND_READ);
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
    if (sysdb_handle && !evpn_show_store_left_open) {
        _sysdb_unbind(sysdb_handle);
        sysdb_handle = nullptr;
    }
    return status;
}
