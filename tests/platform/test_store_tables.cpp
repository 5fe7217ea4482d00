// The store's tables read through b-tree cursors: records split as SQLite
// wrote them and never read past their end, tables made otherwise refused,
// damaged roots reported, rows that span pages read whole.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "client/test_util.h"
#include "platform/bag_types.h"
#include "platform/cerr.h"
#include "platform/store_tables.h"
#include "platform/sysdb.h"
#include "platform/sysdb_schema.h"

namespace {

using spine_test::sql;
using store_tables::Value;

const std::string kRoot = "/oper/evpn/gl/";

// One column as SQL writes it and as the record must give it back.
struct Col {
    const char *sql;  // literal
    int type;
    int64_t i;
    std::string bytes;
};

// Rows whose values take every serial type but the float's body: integers
// of each width (and the constants 0 and 1), texts and blobs of lengths
// around the one-byte varint's end, NULL.
const std::vector<std::vector<Col>> &rows() {
    static const std::vector<std::vector<Col>> all = {
        {{"0", SQLITE_INTEGER, 0, ""}, {"1", SQLITE_INTEGER, 1, ""}, {"-1", SQLITE_INTEGER, -1, ""},
         {"127", SQLITE_INTEGER, 127, ""}},
        {{"-129", SQLITE_INTEGER, -129, ""}, {"32768", SQLITE_INTEGER, 32768, ""},
         {"-8388609", SQLITE_INTEGER, -8388609, ""}, {"2147483648", SQLITE_INTEGER, 2147483648, ""}},
        {{"-140737488355329", SQLITE_INTEGER, -140737488355329, ""},
         {"9223372036854775807", SQLITE_INTEGER, INT64_MAX, ""},
         {"-9223372036854775808", SQLITE_INTEGER, INT64_MIN, ""}, {"NULL", SQLITE_NULL, 0, ""}},
        {{"''", SQLITE_TEXT, 0, ""}, {"x''", SQLITE_BLOB, 0, ""}, {"'abc'", SQLITE_TEXT, 0, "abc"},
         {"x'00ff10'", SQLITE_BLOB, 0, std::string("\0\xff\x10", 3)}},
        {{"zeroblob(57)", SQLITE_BLOB, 0, std::string(57, '\0')},
         {"printf('%.58c', 'q')", SQLITE_TEXT, 0, std::string(58, 'q')},
         {"zeroblob(300)", SQLITE_BLOB, 0, std::string(300, '\0')}, {"2.5", SQLITE_FLOAT, 0, ""}},
    };
    return all;
}

// The records of rows() as SQLite wrote them into a table of a file.
std::vector<std::string> records_as_written() {
    const std::string db = spine_test::scratch("records.db");
    std::remove(db.c_str());
    std::string text = "CREATE TABLE t (a, b, c, d);";
    for (const auto &r : rows())
        text += std::string("INSERT INTO t VALUES (") + r[0].sql + "," + r[1].sql + "," + r[2].sql + "," +
                r[3].sql + ");";
    sql(db, text);
    sqlite3 *h = nullptr;
    EXPECT_EQ(sqlite3_open_v2(db.c_str(), &h, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    EXPECT_EQ(btr_begin_read(h), SQLITE_OK);
    btr_cursor *c = nullptr;
    EXPECT_EQ(btr_open(h, 2, 0, &c), SQLITE_OK);  // the first table's root follows the schema's page
    std::vector<std::string> out;
    int at_end = 1;
    EXPECT_EQ(btr_first(c, &at_end), SQLITE_OK);
    for (; c && !at_end; btr_next(c, &at_end)) {
        std::string rec(btr_record_size(c), '\0');
        EXPECT_EQ(btr_record_read(c, 0, static_cast<uint32_t>(rec.size()), rec.data()), SQLITE_OK);
        out.push_back(rec);
    }
    btr_close(c);
    btr_end_read(h);
    sqlite3_close(h);
    return out;
}

TEST(StoreRecord, ColumnsReadBackAsSqliteWroteThem) {
    const auto recs = records_as_written();
    ASSERT_EQ(recs.size(), rows().size());
    for (size_t r = 0; r < recs.size(); r++) {
        Value v[6];
        ASSERT_TRUE(store_tables::split_record(recs[r].data(), recs[r].size(), v, 6)) << "row " << r;
        for (size_t i = 0; i < 4; i++) {
            const Col &want = rows()[r][i];
            SCOPED_TRACE(want.sql);
            EXPECT_EQ(v[i].type, want.type);
            if (want.type == SQLITE_INTEGER) {
                EXPECT_EQ(v[i].i, want.i);
            } else if (want.type == SQLITE_TEXT || want.type == SQLITE_BLOB) {
                EXPECT_EQ(v[i].bytes(), want.bytes);
            }
        }
        // Columns the record lacks read as NULL.
        EXPECT_EQ(v[4].type, SQLITE_NULL);
        EXPECT_EQ(v[5].type, SQLITE_NULL);
    }
}

// Every record cut at every length, in a buffer of exactly that length (the
// sanitizers see a read past it): refused, or every column within it.
TEST(StoreRecord, EveryTruncationIsRefusedOrReadWithinWhatIsThere) {
    size_t refused = 0, cuts = 0;
    for (const std::string &rec : records_as_written()) {
        for (size_t n = 0; n < rec.size(); n++, cuts++) {
            std::unique_ptr<unsigned char[]> cut(new unsigned char[n ? n : 1]);
            memcpy(cut.get(), rec.data(), n);
            Value v[4];
            if (!store_tables::split_record(cut.get(), n, v, 4)) {
                refused++;
                continue;
            }
            for (const Value &c : v) {
                if (c.p) {
                    EXPECT_LE(c.p + c.n, cut.get() + n) << "cut at " << n;
                }
            }
        }
    }
    // A cut inside the header or a body is refused; only cuts that leave the
    // last columns out of a short header read.
    EXPECT_GT(refused, cuts * 9 / 10);
}

TEST(StoreRecord, HeadersThatClaimMoreThanTheRecordHoldsAreRefused) {
    const struct {
        const char *what;
        std::string rec;
    } cases[] = {
        {"empty", ""},
        {"header size past the end", std::string("\x05\x01", 2)},
        {"header size below its own varint", std::string("\x00\x01", 2)},
        {"header size varint runs past the end", std::string("\x81", 1)},
        {"serial type varint runs past the header", std::string("\x02\x81\x01", 3)},
        {"reserved serial type 10", std::string("\x02\x0a", 2)},
        {"reserved serial type 11", std::string("\x02\x0b", 2)},
        {"an 8-byte integer with 3 bytes", std::string("\x02\x06\x01\x02\x03", 5)},
        {"a blob longer than the record", std::string("\x02\x20\x01", 3)},
        {"a nine-byte serial type", std::string("\x0a\xff\xff\xff\xff\xff\xff\xff\xff\xff", 10)},
    };
    for (const auto &c : cases) {
        Value v[2];
        EXPECT_FALSE(store_tables::split_record(c.rec.data(), c.rec.size(), v, 2)) << c.what;
    }
}

// EVIs 1 to 3; EVI 2's record is data when given.
std::string evis(const std::string &name, const std::string &data = "") {
    return spine_test::evi_store(name, 3, [&](uint32_t id, std::string &enc) {
        if (id == 2 && !data.empty()) enc = data;
        return true;
    });
}

struct Bound {
    sysdb_handle_td h = nullptr;
    uint32_t rc;
    explicit Bound(const std::string &db) {
        setenv("EVPN_SYSDB", db.c_str(), 1);
        rc = _sysdb_bind(&h, kRoot.c_str(), SYSDB_BIND_READ);
    }
    ~Bound() {
        if (h) _sysdb_unbind(h);
        unsetenv("EVPN_SYSDB");
    }
    // The listing's items, name and data, or the request's error code.
    uint32_t list(std::vector<std::pair<std::string, std::string>> &out) {
        uint32_t count = 10;
        sysdb_datalist_h_td dl = nullptr;
        if (uint32_t rc = sysdb_datalist(h, "evpn_evi", "", &count, &dl, 0)) return rc;
        const char *name;
        void *data;
        uint32_t len;
        while (sysdb_datalist_next(dl, &name, nullptr, &data, &len, nullptr) == 0)
            out.emplace_back(name, std::string(static_cast<char *>(data), len));
        sysdb_datalist_free(dl);
        return 0;
    }
};

// The reader compares each table's text with the one it reads by: a table
// whose columns were renamed, added or changed is not the table it knows.
TEST(StoreTables, ATableMadeOtherwiseIsNotBound) {
    const char *const changes[] = {
        "ALTER TABLE item RENAME COLUMN name TO label",
        "ALTER TABLE item ADD COLUMN extra",
        "ALTER TABLE attribute RENAME TO attribute_old; "
        "CREATE TABLE attribute (kind INTEGER, key, key2, v1, v2, PRIMARY KEY (kind, key, key2)) WITHOUT ROWID; "
        "INSERT INTO attribute SELECT * FROM attribute_old",
        "DROP INDEX item_key; CREATE UNIQUE INDEX item_key ON item (list, skey, name)",
    };
    for (const char *change : changes) {
        SCOPED_TRACE(change);
        const std::string db = evis("otherwise-" + std::to_string(&change - changes) + ".db");
        sql(db, change);
        Bound b(db);
        EXPECT_EQ(b.rc, SYSDB_ERR_NOT_BOUND) << cerr_strerror(b.rc);
    }
}

// A table's root that names a page of the other kind (an index's for a
// table's) fails each request that reads it as damage, and nothing crashes.
TEST(StoreTables, ARootOfTheOtherKindReadsAsDamage) {
    const std::string db = evis("swapped.db");
    sql(db,
        "PRAGMA writable_schema = ON; "
        "UPDATE sqlite_master SET rootpage = CASE name WHEN 'item' THEN (SELECT rootpage FROM sqlite_master "
        "WHERE name = 'item_key') ELSE (SELECT rootpage FROM sqlite_master WHERE name = 'item') END "
        "WHERE name IN ('item', 'item_key')");
    Bound b(db);
    ASSERT_EQ(b.rc, 0u);
    std::vector<std::pair<std::string, std::string>> items;
    EXPECT_EQ(b.list(items), SYSDB_ERR_CORRUPT);
    void *data = nullptr;
    uint32_t len = 0;
    EXPECT_EQ(sysdb_item_get(b.h, "evpn_evi/0x1,0x8", nullptr, &data, &len, 0), SYSDB_ERR_CORRUPT);
    free(data);
}

// A record larger than a page is stored over overflow pages: a listing and
// an item get read it whole, byte for byte.
TEST(StoreTables, RowsThatSpanPagesAreReadWhole) {
    std::string big(70000, '\0');
    for (size_t i = 0; i < big.size(); i++)
        big[i] = static_cast<char>(i % 7 == 0 ? 0 : (i * 131) >> 3);  // zero units and data mixed
    const std::string db = evis("spanning.db", big);
    Bound b(db);
    ASSERT_EQ(b.rc, 0u);
    std::vector<std::pair<std::string, std::string>> items;
    ASSERT_EQ(b.list(items), 0u);
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[1].first, "0x2,0x8");
    EXPECT_TRUE(items[1].second == big) << items[1].second.size() << " bytes";
    void *data = nullptr;
    uint32_t len = 0;
    ASSERT_EQ(sysdb_item_get(b.h, "evpn_evi/0x2,0x8", nullptr, &data, &len, 0), 0u);
    EXPECT_TRUE(std::string(static_cast<char *>(data), len) == big) << len << " bytes";
    free(data);
    // The item after it is read from its own page again.
    ASSERT_EQ(sysdb_item_get(b.h, "evpn_evi/0x3,0x8", nullptr, &data, &len, 0), 0u);
    EXPECT_EQ(std::string(static_cast<char *>(data), len), items[2].second);
    free(data);
}

}  // namespace
