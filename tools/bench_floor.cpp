// bench_floor: the least a listing display can cost. Reads the items of one
// listing straight from the database, in key order and in batches of 200
// (keyset paging, as the store's datalist does), and writes a fixed number of
// bytes per item to standard output through a 64 KiB buffer. Nothing is
// decoded or formatted; a display's time over this one's is its own cost.
//
//   bench_floor DB BYTES_PER_ITEM [LISTING] [ROOT]
//
// LISTING defaults to the MAC routes, ROOT to /oper/evpn/gl/.
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/bag.h"
#include "platform/sysdb.h"
#include "platform/sysdb_schema.h"

int main(int argc, char **argv) {
    if (argc < 3 || argc > 5) {
        fprintf(stderr, "usage: bench_floor DB BYTES_PER_ITEM [LISTING] [ROOT]\n");
        return 2;
    }
    const char *path = argc > 3 ? argv[3] : "evpn_evi_detail/evi_child_container/evpn_mac";
    const char *root = argc > 4 ? argv[4] : "/oper/evpn/gl/";
    long width = strtol(argv[2], nullptr, 10);
    if (width < 1 || width > 1 << 20) {
        fprintf(stderr, "bench_floor: BYTES_PER_ITEM must be 1..1048576\n");
        return 2;
    }
    sysdb_reader_process_setup();  // SQLite set up as the client sets it up
    static char outbuf[64 * 1024];
    setvbuf(stdout, outbuf, _IOFBF, sizeof outbuf);

    sqlite3 *db = nullptr;
    // Opened as the store opens it: no connection mutex, one read transaction.
    if (sqlite3_open_v2(argv[1], &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) !=
            SQLITE_OK ||
        sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK) {
        fprintf(stderr, "bench_floor: cannot open %s\n", argv[1]);
        return 1;
    }
    sqlite3_stmt *find = nullptr, *first = nullptr, *next = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT id FROM " SYSDB_LISTINGS " WHERE root = ?1 AND path = ?2", -1, &find,
                           nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(db, "SELECT name, data, skey FROM item WHERE list = ?1 ORDER BY skey LIMIT 200",
                           -1, &first, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(db,
                           "SELECT name, data, skey FROM item WHERE list = ?1 AND skey > ?2 "
                           "ORDER BY skey LIMIT 200",
                           -1, &next, nullptr) != SQLITE_OK) {
        fprintf(stderr, "bench_floor: %s\n", sqlite3_errmsg(db));
        return 1;
    }
    sqlite3_bind_text(find, 1, root, -1, SQLITE_STATIC);
    sqlite3_bind_text(find, 2, path, -1, SQLITE_STATIC);
    int64_t list = sqlite3_step(find) == SQLITE_ROW ? sqlite3_column_int64(find, 0) : -1;

    // One line per item: its name, padded to the width, then a line end.
    std::vector<char> line(static_cast<size_t>(width), ' ');
    line.back() = '\n';
    std::string resume, record;
    unsigned long long items = 0, data_bytes = 0;
    sqlite3_stmt *s = first;
    while (list >= 0) {
        sqlite3_reset(s);
        sqlite3_bind_int64(s, 1, list);
        if (s == next)
            sqlite3_bind_blob(s, 2, resume.data(), static_cast<int>(resume.size()), SQLITE_STATIC);
        int rows = 0, rc;
        while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
            const char *name = reinterpret_cast<const char *>(sqlite3_column_text(s, 0));
            size_t n = static_cast<size_t>(sqlite3_column_bytes(s, 0));
            record.clear();
            sysdb_schema::unpack_record(sqlite3_column_blob(s, 1),
                                        static_cast<size_t>(sqlite3_column_bytes(s, 1)),
                                        BAG_MAX_RECORD, record);
            data_bytes += record.size();
            if (width > 1) {
                memcpy(line.data(), name, n < line.size() - 1 ? n : line.size() - 1);
                fwrite(line.data(), 1, line.size(), stdout);
                memset(line.data(), ' ', line.size() - 1);
            } else {
                fputc('\n', stdout);
            }
            rows++;
            if (rows == 200)
                resume.assign(static_cast<const char *>(sqlite3_column_blob(s, 2)),
                              static_cast<size_t>(sqlite3_column_bytes(s, 2)));
        }
        if (rc != SQLITE_DONE) {
            fprintf(stderr, "bench_floor: %s\n", sqlite3_errmsg(db));
            return 1;
        }
        items += static_cast<unsigned>(rows);
        if (rows < 200) break;
        s = next;
    }
    fflush(stdout);
    if (getenv("BENCH_FLOOR_VERBOSE"))
        fprintf(stderr, "bench_floor: %llu items, %llu bytes of records\n", items, data_bytes);
    sqlite3_finalize(find);
    sqlite3_finalize(first);
    sqlite3_finalize(next);
    sqlite3_close(db);
    return 0;
}
