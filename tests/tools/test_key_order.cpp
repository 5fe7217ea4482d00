// The tools' SQLite compares keys made of an integer and a blob by a shorter
// path than SQLite's general one (platform/sqlite/writer-compare.patch). The
// store's order and every seek rest on it giving SQLite's order exactly.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <variant>
#include <vector>

namespace {

// A second column's value: an integer, a text or a blob (a NULL is no key of
// a table without rowid, and a unique index holds any number of them).
struct Value {
    int rank;  // SQLite's order of storage classes: 1 integer, 2 text, 3 blob
    int64_t i = 0;
    std::string bytes;
};
struct Key {
    int64_t list;
    Value v;
};

// SQLite's order: the integer, the class, then the value (texts and blobs
// bytewise, a prefix first).
bool before(const Key &a, const Key &b) {
    if (a.list != b.list) return a.list < b.list;
    if (a.v.rank != b.v.rank) return a.v.rank < b.v.rank;
    if (a.v.rank == 1) return a.v.i < b.v.i;
    return a.v.bytes < b.v.bytes;  // std::char_traits<char> orders as unsigned char
}
bool same(const Key &a, const Key &b) { return !before(a, b) && !before(b, a); }

void bind(sqlite3_stmt *s, int at, const Value &v) {
    switch (v.rank) {
        case 1: sqlite3_bind_int64(s, at, v.i); break;
        case 2: sqlite3_bind_text(s, at, v.bytes.data(), int(v.bytes.size()), SQLITE_TRANSIENT); break;
        default: sqlite3_bind_blob(s, at, v.bytes.data(), int(v.bytes.size()), SQLITE_TRANSIENT); break;
    }
}

Value column(sqlite3_stmt *s, int at) {
    Value v;
    switch (sqlite3_column_type(s, at)) {
        case SQLITE_INTEGER: v.rank = 1, v.i = sqlite3_column_int64(s, at); break;
        case SQLITE_TEXT:
            v.rank = 2;
            v.bytes.assign(reinterpret_cast<const char *>(sqlite3_column_text(s, at)), size_t(sqlite3_column_bytes(s, at)));
            break;
        default: {
            v.rank = 3;
            const auto *p = static_cast<const char *>(sqlite3_column_blob(s, at));
            v.bytes.assign(p ? p : "", size_t(sqlite3_column_bytes(s, at)));
        }
    }
    return v;
}

// Keys over few lists and few byte values, so that equal integers, shared
// prefixes, prefixes of each other, empty blobs and repeats are common;
// some second values are not blobs.
std::vector<Key> make_keys(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    const char alphabet[] = {'\x00', '\x01', '\x7f', '\x80', '\xff'};
    std::vector<Key> keys;
    for (size_t i = 0; i < n; i++) {
        Key k{int64_t(rng() % 3) - 1, {}};
        const uint32_t kind = rng() % 20;
        k.v.rank = kind == 0 ? 1 : kind == 1 ? 2 : 3;
        if (k.v.rank == 1) k.v.i = int64_t(rng() % 5) - 2;
        const size_t len = rng() % 4 == 0 ? rng() % 3 : rng() % 70;  // past 57 bytes, a two-byte type
        for (size_t b = 0; b < len; b++) k.v.bytes += alphabet[rng() % sizeof alphabet];
        if (k.v.rank == 1) k.v.bytes.clear();
        keys.push_back(k);
    }
    return keys;
}

struct Db {
    sqlite3 *db = nullptr;
    Db() { EXPECT_EQ(sqlite3_open(":memory:", &db), SQLITE_OK); }
    ~Db() { sqlite3_close(db); }
    void exec(const char *sql) { ASSERT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db); }
    sqlite3_stmt *prepare(const char *sql) {
        sqlite3_stmt *s = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(db, sql, -1, &s, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
        return s;
    }
};

// Both shapes of the store's keys: a table keyed by them (item_index) and a
// unique index beside a rowid table (item_key).
const char *const kShapes[] = {
    "CREATE TABLE t (list INTEGER, k, PRIMARY KEY (list, k)) WITHOUT ROWID",
    "CREATE TABLE t (list INTEGER NOT NULL, k, extra); CREATE UNIQUE INDEX t_key ON t (list, k)",
};

TEST(KeyOrder, IntegerThenBlobKeysAreOrderedFoundAndKeptUniqueAsSqliteDoes) {
    const std::vector<Key> keys = make_keys(4000, 7);
    std::vector<Key> want = keys;
    std::stable_sort(want.begin(), want.end(), before);
    want.erase(std::unique(want.begin(), want.end(), same), want.end());
    for (const char *shape : kShapes) {
        SCOPED_TRACE(shape);
        Db d;
        d.exec(shape);
        sqlite3_stmt *ins = d.prepare("INSERT OR IGNORE INTO t (list, k) VALUES (?1, ?2)");
        for (const Key &k : keys) {
            sqlite3_reset(ins);
            sqlite3_bind_int64(ins, 1, k.list);
            bind(ins, 2, k.v);
            ASSERT_EQ(sqlite3_step(ins), SQLITE_DONE) << sqlite3_errmsg(d.db);
        }
        sqlite3_finalize(ins);

        // The scan in key order: every distinct key once, in SQLite's order.
        std::vector<Key> got;
        sqlite3_stmt *scan = d.prepare("SELECT list, k FROM t ORDER BY list, k");
        while (sqlite3_step(scan) == SQLITE_ROW) got.push_back({sqlite3_column_int64(scan, 0), column(scan, 1)});
        sqlite3_finalize(scan);
        ASSERT_EQ(got.size(), want.size());
        for (size_t i = 0; i < got.size(); i++)
            ASSERT_TRUE(same(got[i], want[i])) << "row " << i << " is out of place";

        // Seeks: each key found, keys next to a stored one not, and ranges
        // between two keys hold what lies between them.
        sqlite3_stmt *one = d.prepare("SELECT count(*) FROM t WHERE list = ?1 AND k = ?2");
        sqlite3_stmt *range = d.prepare("SELECT count(*) FROM t WHERE list = ?1 AND k >= ?2 AND k < ?3");
        std::mt19937 rng(11);
        for (int probe = 0; probe < 2000; probe++) {
            Key k = keys[rng() % keys.size()];
            if (probe % 2 && k.v.rank == 3) k.v.bytes.push_back(probe % 4 ? '\x00' : '\xff');
            const bool present = std::binary_search(want.begin(), want.end(), k, before);
            sqlite3_reset(one);
            sqlite3_bind_int64(one, 1, k.list);
            bind(one, 2, k.v);
            ASSERT_EQ(sqlite3_step(one), SQLITE_ROW);
            ASSERT_EQ(sqlite3_column_int(one, 0), present ? 1 : 0) << "probe " << probe;

            Key hi = keys[rng() % keys.size()];
            hi.list = k.list;
            const Key &lo = before(hi, k) ? hi : k, &up = before(hi, k) ? k : hi;
            const auto n = std::lower_bound(want.begin(), want.end(), up, before) -
                           std::lower_bound(want.begin(), want.end(), lo, before);
            sqlite3_reset(range);
            sqlite3_bind_int64(range, 1, k.list);
            bind(range, 2, lo.v);
            bind(range, 3, up.v);
            ASSERT_EQ(sqlite3_step(range), SQLITE_ROW);
            ASSERT_EQ(sqlite3_column_int64(range, 0), n) << "probe " << probe;
        }
        sqlite3_finalize(one);
        sqlite3_finalize(range);
        sqlite3_stmt *check = d.prepare("PRAGMA integrity_check");
        ASSERT_EQ(sqlite3_step(check), SQLITE_ROW);
        EXPECT_STREQ(reinterpret_cast<const char *>(sqlite3_column_text(check, 0)), "ok");
        sqlite3_finalize(check);
    }
}

}  // namespace
