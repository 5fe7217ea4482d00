// Records to and from JSON, by walking the record's description: a snapshot
// names fields exactly as the record types do.
#pragma once
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "json_reader.h"
#include "json_writer.h"
#include "platform/bag.h"

namespace evpn {

// Owns the strings and arrays of records built from JSON. clear() keeps the
// memory, so a loader that clears per record stops allocating once it has
// seen its largest record.
class RecordArena {
  public:
    RecordArena() = default;
    RecordArena(const RecordArena &) = delete;
    RecordArena &operator=(const RecordArena &) = delete;

    char *text(std::string_view s);  // NUL-terminated copy
    void *block(size_t bytes);       // zeroed, 8-byte aligned
    void clear();
    // Bytes the decoder will take for the strings and blocks handed out since
    // the last clear() (each text its length + 1): what BAG_MAX_INNER bounds.
    size_t inner() const { return inner_; }

  private:
    uint64_t *take(size_t words);

    struct Chunk {
        std::unique_ptr<uint64_t[]> mem;
        size_t words;
    };
    std::vector<Chunk> chunks_;
    size_t current_ = 0;  // chunk being filled
    size_t used_ = 0;     // words of it taken
    size_t inner_ = 0;
};

// Fills a record (desc->size bytes, zeroed first) from a JSON object read as
// tokens, one record at a time, without building a JSON value. Fields left
// out stay zero or empty. On error, err names the field path below where
// ("evpn_mac[3].path_buffer[0].NextHop: ..."). Keeps its scratch space from
// record to record.
class TokenRecordBuilder {
  public:
    // first: the token that starts the record's value, just read from r. On
    // success r has read the whole value; after an error it is left inside
    // it. Text that is not JSON throws JsonSyntaxError.
    bool build(JsonReader &r, const JsonToken &first, const BagDesc *desc, void *out,
               RecordArena &arena, const std::string &where, std::string &err);
    // The same for element index of a list named list: where is
    // "list[index]", rendered only for an error.
    bool build(JsonReader &r, const JsonToken &first, const BagDesc *desc, void *out,
               RecordArena &arena, std::string_view list, uint64_t index, std::string &err);

    struct Path;

  private:
    bool start(JsonReader &r, const JsonToken &first, const BagDesc *desc, void *out,
               RecordArena &arena, const Path &at, std::string &err);
    bool record(JsonReader &r, const BagDesc *desc, uint8_t *rec, const Path &at, unsigned level);
    bool element(JsonReader &r, const JsonToken &t, const BagField &f, uint8_t *dst, const Path &at,
                 unsigned level);
    bool fail(const Path &at, const std::string &what);
    // Per description, made once: the length of each field name (nfields
    // entries), then for each field + 1 (0: the start) the field that
    // followed it last (nfields + 1 entries; nfields: none yet).
    uint32_t *names(const BagDesc *desc);

    // Over the codec's limit of strings and lists, counting the elements of
    // the lists still being read (pending_ bytes).
    bool over_limit() const { return arena_->inner() + pending_ > BAG_MAX_INNER; }

    RecordArena *arena_ = nullptr;
    size_t pending_ = 0;
    std::string *err_ = nullptr;
    std::string what_;
    // Elements of the lists being read, one per list nesting level (a deque:
    // growing it keeps the levels in use where they are).
    std::deque<std::vector<uint64_t>> lists_;
    std::unordered_map<const BagDesc *, std::vector<uint32_t>> names_;
    struct Recent {
        const BagDesc *desc = nullptr;
        uint32_t *names = nullptr;
    } recent_[16];  // of names_, by a hash of the description's address
};

enum class JsonForm : uint8_t {
    Compact,  // one line, every field: snapshots, JSON Lines
    Pretty,   // a line per value, indented by two spaces a level
    Sparse,   // Compact without the fields that read as in a zeroed record (and
              // sub-records left empty so), which a load fills in again
};

// Every field of a decoded record, in record order, as a JSON object.
// indent: Pretty's indentation of the line the object starts on. words: the
// scalar fields whose codes stand for words (the JSON view); each such field
// is written as its word, null for a code without one, then its code under
// the field's name + "_code", whatever the form. Snapshots take none.
void record_json(JsonText &out, const void *record, const BagDesc *desc,
                 JsonForm form = JsonForm::Compact, unsigned indent = 0,
                 std::span<const BagFieldWords> words = {});

}  // namespace evpn
