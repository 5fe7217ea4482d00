// Writes an operational database: a new file built beside the target and
// renamed over it on commit, so readers see the old database or the new one.
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
    // exists and is not a database of ours.
    static std::unique_ptr<SysdbWriter> open(const std::string &target, std::string &err);
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

    bool set_capability(const std::string &name, int64_t value, std::string &err);
    bool add_interface(uint32_t handle, const std::string &name, const std::string &state,
                       std::string &err);
    bool add_bd_stats(uint32_t node, uint32_t bd_id, const bd_forwarding_stats &stats,
                      std::string &err);
    bool set_meta(const std::string &key, const std::string &value, std::string &err);

    // Makes the new database the target, atomically.
    bool commit(std::string &err);

    struct Impl;

  private:
    explicit SysdbWriter(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace evpn
