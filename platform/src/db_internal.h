// The platform's read-only connection to the operational database, shared by
// the system database client, the capability queries and the statistics
// service.
#pragma once
#include <sqlite3.h>

#include <cstdint>
#include <string_view>

#include "platform/store_tables.h"

namespace platform_db {

// SQLite's heap for a reader: a request that reads a row past it fails with
// SYSDB_ERR_TOO_BIG before the row is read (see open_readonly).
constexpr sqlite3_int64 kReadHeapLimit = 4 * sqlite3_int64(16777216);  // 4 records at the codec's limit

// Opens path read-only and checks that it is a database of ours with every
// table the platform reads, made as ours are (store_tables::Tables::open).
// Returns 0 and the connection, or an error code: SYSDB_ERR_NO_LIBRARY for a
// missing or unreadable file or one that is not a regular file,
// SYSDB_ERR_HOT_JOURNAL, SYSDB_ERR_CORRUPT, SYSDB_ERR_NOT_BOUND for a file
// that is not ours. The checks read in one transaction, compiling no SQL;
// with tables, that transaction is left open and tables reads in it, so that
// every later request reads the state the checks saw, with no lock taken and
// dropped again (the caller closes the tables, then the connection).
uint32_t open_readonly(const char *path, sqlite3 **db, store_tables::Tables *tables = nullptr);

// The store's tables for one read by the capability queries and the
// statistics service: the bound handle's, in the binding's transaction, or
// else those of a connection opened on sysdb_library_path(), in a read
// transaction of this read's own (so that a process that runs on sees what
// the store holds now). tables() is null when neither can be had.
class SharedRead {
public:
    SharedRead();
    ~SharedRead();
    SharedRead(const SharedRead &) = delete;
    SharedRead &operator=(const SharedRead &) = delete;
    store_tables::Tables *tables() const { return tables_; }

private:
    store_tables::Tables *tables_ = nullptr;
    bool own_ = false;  // the shared connection's transaction, ended here
};

}  // namespace platform_db
