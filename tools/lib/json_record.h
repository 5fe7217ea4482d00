// Records to and from JSON, by walking the record's description: a snapshot
// names fields exactly as the record types do.
#pragma once
#include <deque>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/bag.h"

namespace evpn {

// Owns the strings and arrays of records built from JSON.
class RecordArena {
  public:
    char *text(const std::string &s);
    void *block(size_t bytes);
    void clear();

  private:
    std::deque<std::string> texts_;
    std::vector<std::unique_ptr<uint64_t[]>> blocks_;
};

// Fills out (desc->size bytes, zeroed first) from a JSON object. Fields left
// out stay zero or empty. On error, err names the field path below where
// ("evpn_mac[3].path_buffer[0].NextHop: ...").
bool json_to_record(const nlohmann::json &j, const BagDesc *desc, void *out, RecordArena &arena,
                    const std::string &where, std::string &err);

// Every field of a decoded record, in record order.
nlohmann::ordered_json record_to_json(const void *record, const BagDesc *desc);

}  // namespace evpn
