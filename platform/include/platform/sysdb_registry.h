// The registry of listings: for each listing base path, its record type, the
// key fields that name its items, and its key indices. The store, the loader
// and the dump tool all read this one table.
#pragma once
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
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

// Up to N values held in place: the registry is a constant of the program,
// built by the compiler, with nothing to construct or allocate at start-up.
// More than N values in a list does not compile.
template <class T, size_t N>
struct FixedList {
    T items[N] = {};
    uint8_t n = 0;

    constexpr FixedList() = default;
    constexpr FixedList(std::initializer_list<T> values) {
        for (const T &v : values) items[n++] = v;
    }
    constexpr size_t size() const { return n; }
    constexpr bool empty() const { return n == 0; }
    constexpr const T *data() const { return items; }
    constexpr const T *begin() const { return items; }
    constexpr const T *end() const { return items + n; }
    constexpr const T &operator[](size_t i) const { return items[i]; }
};

struct KeyField {
    const char *field = nullptr;  // field of the record (top level)
    KeyText text = KeyText::HEX0X;
};

constexpr size_t kMaxKeys = 8;  // key fields of a listing
using KeyPositions = FixedList<uint8_t, kMaxKeys>;

struct IndexDef {
    const char *name = nullptr;
    KeyPositions parts;                   // positions in ListingDef::keys
    FixedList<KeyPositions, 2> orderings; // each a permutation of parts
};

struct ListingDef {
    const char *base;                      // path below the root, e.g. "evpn_evi"
    const BagDesc *desc;
    bool singleton;                        // one item whose path is the base itself
    FixedList<KeyField, kMaxKeys> keys;    // every key field of the listing
    KeyPositions item_key;                 // positions in keys that name an item
    FixedList<IndexDef, 8> indices;
    // Items whose path is "<base>/<name>/<item_leaf>"; the listing is still "<base>".
    const char *item_leaf = nullptr;
    // A listing held per item of the listing at base: "<base>/<item name>/<child>".
    const char *child = nullptr;
};

std::span<const ListingDef> sysdb_registry(void);
// The listing at path: a base, or "<base>/<item name>/<child>" for a
// per-item listing, whose item name must name an item of base.
const ListingDef *sysdb_registry_find(std::string_view path);

// Number of path components a key field takes (3 for MAC3, else 1).
int key_text_components(KeyText text);
