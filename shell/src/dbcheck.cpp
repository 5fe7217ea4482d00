#include "dbcheck.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/sysdb.h"
#include "platform/sysdb_schema.h"

namespace evpn_shell {

namespace {

const char kLoadHint[] = "load a snapshot with evpn_sysdb load";

DatabaseCheck unusable(std::string message) { return {DatabaseCheck::Unusable, std::move(message)}; }

// "PATH" or "PATH (EVPN_SYSDB)", so that a wrong variable is seen as such.
std::string where(const std::string &path, const std::string &origin) {
    return origin == "EVPN_SYSDB" ? path + " (EVPN_SYSDB)" : path;
}

bool pragma(sqlite3 *db, const char *name, int64_t &value, int &rc) {
    sqlite3_stmt *st = nullptr;
    rc = sqlite3_prepare_v2(db, (std::string("PRAGMA ") + name).c_str(), -1, &st, nullptr);
    if (rc == SQLITE_OK && (rc = sqlite3_step(st)) == SQLITE_ROW) {
        value = sqlite3_column_int64(st, 0);
        rc = SQLITE_OK;
    }
    sqlite3_finalize(st);
    return rc == SQLITE_OK;
}

}  // namespace

View view_of(const Invocation &inv) {
    const std::string *u = inv.setting('U');
    if (!u) return {"/oper/evpn/gl/", "the active view"};
    if (*u == "standby") return {"/oper/evpn/gl/stdby/", "the standby view"};
    char root[64];
    snprintf(root, sizeof root, "/oper/evpn/node/%lx/", strtoul(u->c_str(), nullptr, 10));
    return {root, "node " + *u + "'s view"};
}

std::string database_path() { return sysdb_library_path(); }
std::string database_origin() { return sysdb_library_path_origin(); }

DatabaseCheck check_database(const std::string &path, const std::string &origin, const View &view) {
    const std::string at = where(path, origin);
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return unusable("no database at " + at + ": load one with evpn_sysdb load");
        return unusable("cannot reach the database at " + at + ": " + strerror(errno));
    }
    if (S_ISDIR(st.st_mode))
        return unusable(at + " is a directory, not a database: set EVPN_SYSDB to the database file");
    if (st.st_size == 0) return unusable(at + " is an empty file, not a database: " + kLoadHint);
    if (access(path.c_str(), R_OK) != 0)
        return unusable("cannot read the database at " + at + ": " + strerror(errno) +
                        " (ask for read access, or set EVPN_SYSDB to a database you may read)");

    sqlite3 *db = nullptr;
    int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    int64_t app = 0, version = 0;
    DatabaseCheck result;
    if (rc == SQLITE_OK && pragma(db, "application_id", app, rc) && pragma(db, "user_version", version, rc)) {
        if (app != sysdb_schema::kApplicationId) {
            result = unusable(at + " is not an EVPN operational database (another SQLite file): " + kLoadHint +
                              " --db FILE, or set EVPN_SYSDB to one");
        } else if (version < sysdb_schema::kVersion) {
            result = unusable(at + " has an older layout (version " + std::to_string(version) +
                              "): load its snapshot again with evpn_sysdb load");
        } else if (version > sysdb_schema::kVersion) {
            result = unusable(at + " was written by a newer evpn_sysdb (layout version " + std::to_string(version) +
                              "): read it with the programs of that version");
        } else {
            sqlite3_stmt *q = nullptr;
            rc = sqlite3_prepare_v2(db,
                                    "SELECT 1 FROM " SYSDB_LISTINGS " l JOIN item ON item.list = l.id "
                                    "WHERE l.root = ?1 LIMIT 1",
                                    -1, &q, nullptr);
            if (rc == SQLITE_OK) {
                sqlite3_bind_text(q, 1, view.root.c_str(), -1, SQLITE_TRANSIENT);
                if (sqlite3_step(q) == SQLITE_DONE)
                    result = {DatabaseCheck::Empty, at + " holds nothing for " + view.name + " (" + view.root +
                                                        "): " + kLoadHint + " that has it"};
            }
            sqlite3_finalize(q);
        }
    } else if (rc == SQLITE_NOTADB) {
        result = unusable(at + " is not an EVPN operational database (not an SQLite file): " + kLoadHint +
                          " --db FILE, or set EVPN_SYSDB to one");
    }
    sqlite3_close(db);
    return result;
}

}  // namespace evpn_shell
