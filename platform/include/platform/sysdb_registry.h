// The registry of listings: for each listing base path, its record type, the
// key fields that name its items, and its key indices. The store, the loader
// and the dump tool all read this one table.
#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bag.h"

// How a key field is written in an item name or an index path component.
enum class KeyText : uint8_t {
    HEX0X,  // u32 as "0x%x"
    HEX,    // u32 as "%x"
    MAC3,   // MAC as three "%x" parts of 16 bits each (three components)
    IPHEX,  // IP address as 32 hex digits
    STR,    // text as is (no ',' or '/')
    ESI,    // ESI as esistring text
    RDHEX,  // RD / RT value as 24 hex digits
};

struct KeyField {
    const char *field;  // field of the record (top level)
    KeyText text;
};

struct IndexDef {
    const char *name;
    std::vector<uint8_t> parts;                  // positions in ListingDef::keys
    std::vector<std::vector<uint8_t>> orderings; // each a permutation of parts
};

struct ListingDef {
    const char *base;              // path below the root, e.g. "evpn_evi"
    const BagDesc *desc;
    bool singleton;                // one item whose path is the base itself
    std::vector<KeyField> keys;    // every key field of the listing
    std::vector<uint8_t> item_key; // positions in keys that name an item
    std::vector<IndexDef> indices;
    // Items whose path is "<base>/<name>/<item_leaf>"; the listing is still "<base>".
    const char *item_leaf = nullptr;
    // A listing held per item of the listing at base: "<base>/<item name>/<child>".
    const char *child = nullptr;
};

const std::vector<ListingDef> &sysdb_registry(void);
// The listing at path: a base, or "<base>/<item name>/<child>" for a
// per-item listing, whose item name must name an item of base.
const ListingDef *sysdb_registry_find(std::string_view path);

// Number of path components a key field takes (3 for MAC3, else 1).
int key_text_components(KeyText text);
