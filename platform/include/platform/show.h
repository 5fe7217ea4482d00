// Generic show routines: list the item names of a listing, or fetch, decode
// and print one item, for displays that hand the platform a show context.
#pragma once
#include <cstdint>

#include "platform/bag.h"
#include "platform/sysdb.h"

// The operation of a show context. For a list display: called once per item
// with the context, the item's name and the context's tag. For a get display:
// called with the decoded record, the item's name and the context's tag.
// Names and records are valid only during the call.
typedef void (*l2vpn_show_fn)(const void *arg, const char *item_name, const char *tag);

struct l2vpn_show_context_t {
    const char *path;         // listing or item path below the bound root
    l2vpn_show_fn operation;
    const BagDesc *bag;       // get display: description of the item's record
    uint64_t record_size;     // get display: bytes of the decode buffer
    uint32_t count;           // list display: most items asked per batch
    uint32_t options;
    sysdb_handle_td handle;
    const char *tag;          // handed to every operation call
};

// Walks the listing at path in batches of count, resuming after the last
// name of each batch, and calls operation with each item name. Returns 0, or
// the error of the first request (SYSDB_ERR_NOT_FOUND for an empty listing);
// a later failing request ends the walk with its code.
uint32_t l2vpn_show_list_display(const l2vpn_show_context_t *ctx);

// Fetches the item at path, decodes it into a zeroed buffer of record_size
// bytes, calls operation with it and releases it. Returns 0 or the error of
// the step that failed; nothing is printed on failure.
uint32_t l2vpn_show_get_display(const l2vpn_show_context_t *ctx);
