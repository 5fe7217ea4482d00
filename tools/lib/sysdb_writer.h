// Writes an operational database, in one of two ways:
// - a load: a new file built beside the target and renamed over it on
//   commit, so readers see the old database or the new one (open, add...,
//   commit);
// - live: the target itself changed in place, item by item, in transactions
//   that readers see whole or not at all (open_live, then begin, upsert or
//   remove..., commit, as often as needed; close).
#pragma once
#include <memory>
#include <string>
#include <string_view>

#include "platform/l2fib_stats.h"

struct sqlite3;
struct ListingDef;

namespace evpn {

class SysdbWriter {
  public:
    // Starts a database that will replace target. Refuses a target that
    // exists and is not a database of ours. page_size: the new file's pages
    // (kReadPageSize for stores mostly read, kLivePageSize for a live store).
    static constexpr int kReadPageSize = 8192, kLivePageSize = 32768;
    static std::unique_ptr<SysdbWriter> open(const std::string &target, std::string &err,
                                             int page_size = kReadPageSize);
    ~SysdbWriter();  // without commit(): the target is left as it was

    // One record of the listing base below root ("/oper/evpn/gl/"); its item
    // name and index keys come from the registry.
    bool add(const std::string &root, std::string_view base, const void *record, std::string &err);
    // The same from its encoding (decoded once to find the keys).
    bool add_encoded(const std::string &root, std::string_view base, std::string_view data,
                     std::string &err);
    // An item with a given name and bytes, not decoded (tests of corrupt records).
    bool add_raw(const std::string &root, std::string_view base, const std::string &name,
                 std::string_view data, std::string &err);

    // A load holds index rows back to store them in key order, at most this
    // many bytes of them at a time (128 MiB); call before the first record.
    void hold_index_bytes(size_t limit);
    // A load: records and their rows are stored on the caller's thread as
    // they are added (a caller that is a thread of its own beside a parser),
    // the index rows' merge at commit beside a thread of the writer's own.
    void store_on_caller();

    bool set_capability(const std::string &name, int64_t value, std::string &err);
    bool add_interface(uint32_t handle, const std::string &name, const std::string &state,
                       std::string &err);
    bool add_bd_stats(uint32_t node, uint32_t bd_id, const bd_forwarding_stats &stats,
                      std::string &err);
    bool set_meta(const std::string &key, const std::string &value, std::string &err);

    // A load: makes the new database the target, atomically. Live: commits
    // the transaction begun; without wait, the commit is queued behind the
    // transaction's last changes and done by the worker thread while the
    // caller begins the next transaction. Its failure is then reported by
    // the next commit, drain-like call (a change that must read the store)
    // or close(); nothing after it is stored.
    bool commit(std::string &err, bool wait = true);

    // Opens target for changes in place, making an empty database there when
    // it is missing; refuses a file that is not a database of ours. Readers
    // keep reading while it writes (write-ahead log; see docs/collector.md).
    // A thread of the writer's own copies the log into the file once a
    // commit leaves checkpoint_bytes of pages in it.
    static constexpr size_t kCheckpointBytes = size_t(128) << 20;
    static std::unique_ptr<SysdbWriter> open_live(const std::string &target, std::string &err,
                                                  size_t checkpoint_bytes = kCheckpointBytes);
    bool begin(std::string &err);
    // What the caller knows of the stored item a record names. Without
    // knowledge, the stored item is read to find its index rows; with it,
    // the change goes to the worker thread and the caller goes on.
    enum class Known : uint8_t {
        Nothing,
        Absent,    // no such item is stored
        SameKeys,  // it is stored, with the record's values in every key field
        // Stored or not; if stored, with the values of this record in every
        // key field an index row holds (its non-key fields may differ).
        SameRows,
    };
    // Stores a record as the item its keys name, replacing the item and its
    // index rows when it is there.
    bool upsert(const std::string &root, std::string_view base, const void *record,
                std::string &err, Known known = Known::Nothing);
    // Removes the item named by the record's item-key fields (the other
    // fields are not read unless known is SameKeys) with its index rows;
    // absent already is no error.
    bool remove(const std::string &root, std::string_view base, const void *record,
                std::string &err, Known known = Known::Nothing);
    // Removes every item of a listing below root, with its index rows.
    bool clear(const std::string &root, std::string_view base, std::string &err);
    // Live: rolls back what is not committed and leaves the file in the
    // rollback-journal mode, which a reader without write permission on the
    // directory can read. The destructor does it too, without reporting.
    bool close(std::string &err);

    struct Impl;

  private:
    explicit SysdbWriter(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace evpn
