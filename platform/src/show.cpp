// Generic show routines on the system database client.
#include "platform/show.h"

#include <cstdio>
#include <cstdlib>

#include "platform/cerr.h"
#include "platform/infra.h"

namespace {
constexpr size_t kNameSize = 256;

// The decode buffer of l2vpn_show_get_display, kept until the thread ends.
struct KeptRecord {
    void *p = nullptr;
    size_t size = 0;
    bool busy = false;
    ~KeptRecord() { free(p); }
};
thread_local KeptRecord t_record;
}  // namespace

uint32_t l2vpn_show_list_display(const l2vpn_show_context_t *ctx) {
    if (!ctx || !ctx->path || !ctx->operation || ctx->count == 0) return SYSDB_ERR_BAD_ARG;
    char resume[kNameSize] = "";
    uint32_t flags = 0;
    for (bool first = true;; first = false) {
        uint32_t count = ctx->count;
        sysdb_datalist_h_td list = nullptr;
        uint32_t rc = sysdb_datalist(ctx->handle, ctx->path, resume, &count, &list, flags);
        if (rc || count == 0 || !list) {
            if (list) sysdb_datalist_free(list);
            // Past the first batch, an empty answer only means the listing ended.
            return first || rc != SYSDB_ERR_NOT_FOUND ? rc : 0;
        }
        const char *last = nullptr;
        for (uint32_t i = 0; i < count; i++) {
            const char *name = nullptr;
            uint32_t type = SYSDB_TYPE_BAG, len = 0, extra = 0;
            void *data = nullptr;
            if (sysdb_datalist_next(list, &name, &type, &data, &len, &extra) || !name) break;
            ctx->operation(ctx, name, ctx->tag);
            last = name;
        }
        uint32_t more = 1;
        if (count < ctx->count) sysdb_datalist_get_more_flag(list, &more);
        bool resumable = last && snprintf(resume, sizeof resume, "%s", last) < int(sizeof resume);
        sysdb_datalist_free(list);
        if (!more || !resumable) return 0;
        flags |= SYSDB_DATALIST_RESUME;
    }
}

uint32_t l2vpn_show_get_display(const l2vpn_show_context_t *ctx) {
    if (!ctx || !ctx->path || !ctx->operation || !ctx->bag || ctx->record_size == 0 ||
        ctx->record_size > UINT32_MAX)
        return SYSDB_ERR_BAD_ARG;
    uint32_t type = SYSDB_TYPE_BAG, len = 0;
    void *data = nullptr;
    uint32_t rc = sysdb_item_get(ctx->handle, ctx->path, &type, &data, &len, 0);
    if (rc) {
        free(data);
        return rc;
    }
    // A listing display gets a record per item it lists: the decode buffer
    // is kept from get to get (a decode needs no cleared buffer). A get made
    // while it is in use, from another's operation, takes one of its own.
    const bool kept = !t_record.busy;
    void *record = nullptr;
    if (kept && t_record.size >= ctx->record_size) {
        record = t_record.p;
    } else {
        record = calloc_named(1, ctx->record_size, "L2VPN generic show bag");
        if (!record) {
            free(data);
            return BAG_ERR_NOMEM;
        }
        if (kept) {
            free(t_record.p);
            t_record.p = record;
            t_record.size = ctx->record_size;
        }
    }
    if (kept) t_record.busy = true;
    rc = bag_decode(data, len, record, static_cast<uint32_t>(ctx->record_size), ctx->bag);
    free(data);
    if (!rc) {
        ctx->operation(record, l2vpn_edm_sysdb_path_to_item_name(ctx->path), ctx->tag);
        rc = bag_free_indirections(record, ctx->bag);
    }
    if (kept)
        t_record.busy = false;
    else
        free(record);
    return rc;
}
