// bench_floor: the least a listing display can cost. Reads the items of one
// listing straight from the database, in key order, through the cursors the
// store reads with (one walk, where the store's datalist seeks again for
// each batch of 200), unpacks each record, and writes a fixed number of
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
#include "platform/store_tables.h"
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
    // Opened and read as the store reads it: no connection mutex, one read
    // transaction, the rows through b-tree cursors.
    store_tables::Tables tables;
    if (sqlite3_open_v2(argv[1], &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK ||
        btr_begin_read(db) != SQLITE_OK || tables.open(db) != 0) {
        fprintf(stderr, "bench_floor: cannot open %s as a store\n", argv[1]);
        return 1;
    }
    int64_t list = -1;
    if (tables.listing_id(root, path, &list) != SQLITE_ROW) list = -1;

    // One line per item: its name, padded to the width, then a line end.
    std::vector<char> line(static_cast<size_t>(width), ' ');
    line.back() = '\n';
    std::string record;
    unsigned long long items = 0, data_bytes = 0;
    bool at_end = true;
    int rc = list < 0 ? SQLITE_OK : tables.scan_start(false, list, {}, &at_end);
    std::string_view skey;
    while (rc == SQLITE_OK && !at_end && tables.scan_key(&skey, &rc)) {
        store_tables::Value name, data;
        if ((rc = tables.scan_item(SIZE_MAX, &name, &data)) != SQLITE_ROW) break;
        record.clear();
        sysdb_schema::unpack_record(data.p, data.n, BAG_MAX_RECORD, record);
        data_bytes += record.size();
        if (width > 1) {
            memcpy(line.data(), name.p, name.n < line.size() - 1 ? name.n : line.size() - 1);
            fwrite(line.data(), 1, line.size(), stdout);
            memset(line.data(), ' ', line.size() - 1);
        } else {
            fputc('\n', stdout);
        }
        items++;
        rc = tables.scan_next(&at_end);
    }
    if (rc != SQLITE_OK && rc != SQLITE_DONE) {
        fprintf(stderr, "bench_floor: reading the listing: %s\n", sqlite3_errstr(rc));
        return 1;
    }
    fflush(stdout);
    if (getenv("BENCH_FLOOR_VERBOSE"))
        fprintf(stderr, "bench_floor: %llu items, %llu bytes of records\n", items, data_bytes);
    tables.close();
    sqlite3_close(db);
    return 0;
}
