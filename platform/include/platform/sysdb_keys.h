// Keys of listed items: their names, their sort keys (bytes that order items
// naturally, numbers numerically), and the column orders of key indices.
#pragma once
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/sysdb_registry.h"

namespace sysdb_keys {

// Sort bytes and text of each key field of a decoded record. False (with err)
// when a field cannot be a key (a text with ',' or '/', an empty text).
bool from_record(const ListingDef &l, const void *record, std::vector<std::string> &sort,
                 std::vector<std::string> &text, std::string &err);
// The record fields of l's keys, in key order; false (with err) when the
// registry names a field the record lacks.
bool key_fields(const ListingDef &l, std::vector<const BagField *> &fields, std::string &err);
// from_record with the fields key_fields() found, for callers that add many
// records of one listing.
bool from_record(const ListingDef &l, const BagField *const *fields, const void *record,
                 std::vector<std::string> &sort, std::vector<std::string> &text, std::string &err);

// Item name and sort key from the per-field values.
std::string item_name(const ListingDef &l, const std::vector<std::string> &text);
std::string item_skey(const ListingDef &l, const std::vector<std::string> &sort);

// Sort key of an item name; false when the name does not parse.
bool skey_from_name(const ListingDef &l, std::string_view name, std::string &skey,
                    std::vector<std::string> *field_sort = nullptr);

// Sort bytes of one field from its path text (components already split).
bool parse_field(KeyText text, std::span<const std::string_view> comps, std::string &sort);

// The orderings whose rows the store keeps for a listing: every index
// ordering that is neither a prefix of the item key nor a prefix of another
// kept ordering. Each is a list of positions in ListingDef::keys.
const std::vector<std::vector<uint8_t>> &stored_orderings(const ListingDef &l);
// Where an index ordering is served from: -1 for the item table, else the
// position in stored_orderings().
int ordering_home(const ListingDef &l, std::span<const uint8_t> ordering);
// Listing path of a stored ordering, e.g. "evpn_evi#021".
std::string ordering_path(const ListingDef &l, std::span<const uint8_t> ordering);

// Key positions of a stored ordering's index rows: the ordering, then the
// item-key fields it lacks, in item-key order. The rows sort as the
// ordering followed by the item key, and hold every item-key field once.
std::vector<uint8_t> row_layout(const ListingDef &l, std::span<const uint8_t> ordering);
// Item sort key of an index row laid out as layout; false when malformed.
bool skey_of_row(const ListingDef &l, const std::vector<uint8_t> &layout, std::string_view row,
                 std::string &skey);

// Lengths of the leading key components of a sort key laid out in ordering
// order; false when the bytes are malformed.
bool split(const ListingDef &l, const std::vector<uint8_t> &ordering, std::string_view bytes,
           std::vector<std::string_view> &parts);

constexpr std::string_view kWildcard = "________";

}  // namespace sysdb_keys
