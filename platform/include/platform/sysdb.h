// System database client: items and listings below a bound root.
#pragma once
#include <cstdint>

struct sysdb_handle_s;
typedef sysdb_handle_s *sysdb_handle_td;
struct sysdb_datalist_s;
typedef sysdb_datalist_s *sysdb_datalist_h_td;

enum : uint32_t {
    SYSDB_BIND_READ = 4,          // mode: read-only
    SYSDB_DATALIST_RESUME = 0x20, // flags: the resume name is set
    SYSDB_TYPE_BAG = 7,           // type word of an encoded record
    // Longest item name a store of ours holds: a walk resumes after the last
    // name of a batch, which it keeps in a 256-byte buffer.
    SYSDB_MAX_ITEM_NAME = 255,
};

// The database file that the client reads: $EVPN_SYSDB; else, for a program
// run from a build tree (a CMakeCache.txt in its folder or up to two above),
// that tree's demo.db; else, for an installed program in <prefix>/bin, the
// system location <prefix>/var/lib/evpn-show/sysdb.db, with "/usr" dropped
// from the prefix (/usr/bin/x reads /var/lib/evpn-show/sysdb.db). The
// start-up check tests it for read access.
const char *sysdb_library_path(void);
// Which of the three rules chose sysdb_library_path(): "EVPN_SYSDB", "build
// tree" or "installed".
const char *sysdb_library_path_origin(void);

// Sets the store's SQLite up for a single-threaded process that reads one
// command's items and exits (the show client): no locking, SQLite's heap
// counted and capped here rather than by its statistics, no page cache
// allocated ahead; then starts SQLite. Call before anything touches the
// store; false, and nothing changed, once it has.
bool sysdb_reader_process_setup(void);
// The allocator that setup gives SQLite (tests take its blocks directly).
struct sqlite3_mem_methods;
const sqlite3_mem_methods *sysdb_reader_heap(void);

// Opens the database read-only and binds root ("/oper/evpn/gl/", ...).
uint32_t _sysdb_bind(sysdb_handle_td *handle, const char *root, uint32_t mode);
uint32_t _sysdb_unbind(sysdb_handle_td handle);

// One item. *data is malloc'ed; the caller frees it.
uint32_t sysdb_item_get(sysdb_handle_td handle, const char *path, uint32_t *type, void **data,
                        uint32_t *len, uint32_t flags);

// Up to *count items of the listing at path, after resume_name when flags has
// SYSDB_DATALIST_RESUME (or resume_name is non-empty). *count becomes the
// number returned; 0 with code SYSDB_ERR_NOT_FOUND when the listing is empty
// or unknown. Any other error (SYSDB_ERR_NO_INDEX_MATCH for an index or key
// not understood among them) leaves *count as it was and *list null. A
// request that resumes must name where: without a name, or after the same
// name as the previous request of that path, it fails with
// SYSDB_ERR_NO_INDEX_MATCH (it would serve a batch again).
uint32_t sysdb_datalist(sysdb_handle_td handle, const char *path, const char *resume_name,
                        uint32_t *count, sysdb_datalist_h_td *list, uint32_t flags);
// Next item of the batch, both owned by the listing: name until the listing is
// freed, data until the next call on it (next, start or free).
uint32_t sysdb_datalist_next(sysdb_datalist_h_td list, const char **name, uint32_t *type,
                             void **data, uint32_t *len, uint32_t *extra);
uint32_t sysdb_datalist_start(sysdb_datalist_h_td list);
// *more: non-zero when the listing holds items after this batch.
uint32_t sysdb_datalist_get_more_flag(sysdb_datalist_h_td list, uint32_t *more);
uint32_t sysdb_datalist_free(sysdb_datalist_h_td list);

// Last component of a path (a pointer into path).
const char *l2vpn_edm_sysdb_path_to_item_name(const char *path);

// Tests and benchmarks: every sysdb_datalist and sysdb_item_get request is
// reported here.
struct sysdb_request_s {
    bool item;  // sysdb_item_get; the counts and flags are then 0
    const char *path;
    const char *resume_name;
    uint32_t count_in;
    uint32_t count_out;
    uint32_t flags;
    uint32_t result;
};
typedef void (*sysdb_request_observer_fn)(const sysdb_request_s *request, void *arg);
void sysdb_set_request_observer(sysdb_request_observer_fn fn, void *arg);
// Tests: the largest number of bytes of encoded data one batch carries before
// it is cut short with the more flag set (default 4 MiB).
void sysdb_set_batch_byte_budget(uint32_t bytes);
