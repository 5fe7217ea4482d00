// The platform's read-only connection to the operational database, shared by
// the system database client, the capability queries and the statistics
// service.
#pragma once
#include <sqlite3.h>

#include <cstdint>
#include <string_view>

namespace platform_db {

// SQLite's heap for a reader: a request that reads a row past it fails with
// SYSDB_ERR_TOO_BIG before the row is read (see open_readonly).
constexpr sqlite3_int64 kReadHeapLimit = 4 * sqlite3_int64(16777216);  // 4 records at the codec's limit

// Opens path read-only and checks that it is a database of ours with every
// table and column the platform reads. Returns 0 and the connection, or an
// error code: SYSDB_ERR_NO_LIBRARY for a missing or unreadable file or one
// that is not a regular file, SYSDB_ERR_HOT_JOURNAL, SYSDB_ERR_CORRUPT,
// SYSDB_ERR_NOT_BOUND for a file that is not ours. The checks read in one
// transaction; with keep_reading that transaction is left open, so that
// every later request reads the state the checks saw, with no lock taken
// and dropped again (the caller ends it, or closes the connection).
uint32_t open_readonly(const char *path, sqlite3 **db, bool keep_reading = false);

// The platform code of an SQLite failure: SYSDB_ERR_CORRUPT for a damaged
// file, else SYSDB_ERR_STORE.
uint32_t store_error(int sqlite_rc);

// The connection of the bound handle, or one opened on sysdb_library_path();
// null when neither can be had.
sqlite3 *shared(void);

// The v1 of db's attribute row (kind, key, key2) as an integer, read through
// one statement kept for the bound connection and one for the shared one
// (the listing ids and a capability cost a route listing one compile):
// SQLITE_ROW with *v1 set, SQLITE_DONE when there is no such row or its v1 is
// NULL, else SQLite's error code (SQLITE_MISUSE for a connection that
// is neither).
int attribute_v1(sqlite3 *db, int kind, std::string_view key, std::string_view key2, sqlite3_int64 *v1);
int attribute_v1(sqlite3 *db, int kind, std::string_view key, sqlite3_int64 key2, sqlite3_int64 *v1);

}  // namespace platform_db
