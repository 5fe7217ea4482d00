// Records for tests from JSON text, through the loader's own conversions.
#pragma once
#include <sstream>
#include <string>

#include "json_reader.h"
#include "json_record.h"

// Fills out (desc->size bytes) from the JSON object in text, strings and
// arrays owned by arena; on error, err says which field below where.
inline bool record_from_text(const std::string &text, const BagDesc *desc, void *out,
                             evpn::RecordArena &arena, const std::string &where, std::string &err) {
    std::istringstream in(text);
    evpn::JsonReader r(in, text.size() + 1);  // not the default MiB per record
    evpn::TokenRecordBuilder b;
    return b.build(r, r.next(), desc, out, arena, where, err);
}
