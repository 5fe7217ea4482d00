// The store's tables read row by row through b-tree cursors (platform/btree_read.h),
// with no SQL: a reader's open finds the tables in the file's table of tables
// and compiles nothing. Records are split by a bounds-checked reader of
// SQLite's record format.
#pragma once
#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/btree_read.h"

namespace store_tables {

// A column of a record as the file holds it; text and blob bytes point into
// the record.
struct Value {
    int type = SQLITE_NULL;  // SQLITE_INTEGER, SQLITE_FLOAT, SQLITE_TEXT, SQLITE_BLOB or SQLITE_NULL
    int64_t i = 0;           // an integer's value
    const unsigned char *p = nullptr;
    uint32_t n = 0;  // bytes of a text or blob
    std::string_view bytes() const { return {reinterpret_cast<const char *>(p), n}; }
};

// The first `want` columns of the record rec[0..len) into cols (columns the
// record lacks are NULL, as SQLite reads them); false when its header or a
// column runs past its end, or a serial type is reserved.
bool split_record(const void *rec, size_t len, Value *cols, int want);

// Key fields to seek to.
inline btr_value int_key(int64_t v) { return {SQLITE_INTEGER, v, nullptr, 0}; }
inline btr_value text_key(std::string_view s) { return {SQLITE_TEXT, 0, s.data(), static_cast<int>(s.size())}; }
inline btr_value blob_key(std::string_view s) { return {SQLITE_BLOB, 0, s.data(), static_cast<int>(s.size())}; }

// The platform code of a failure the tables report: SYSDB_ERR_CORRUPT for a
// damaged file, SYSDB_ERR_TOO_BIG for a row past the read limits (or memory
// run out), else SYSDB_ERR_STORE.
uint32_t store_error(int sqlite_rc);

enum Table { kAttribute, kItem, kItemKey, kItemIndex, kTableCount };

// One connection's cursors on the store's tables, under the read transaction
// btr_begin_read holds. Each cursor is opened on its first use.
class Tables {
public:
    Tables() = default;
    Tables(const Tables &) = delete;
    Tables &operator=(const Tables &) = delete;
    ~Tables() { close(); }

    // Finds the tables of db (whose read transaction is open) and checks each
    // is made as ours is. 0, SYSDB_ERR_NOT_BOUND when one is missing or made
    // otherwise, SYSDB_ERR_CORRUPT when the table of tables is damaged.
    uint32_t open(sqlite3 *db);
    // Closes the cursors (before the transaction ends or the connection closes).
    void close();
    sqlite3 *db() const { return db_; }

    // The attribute rows whose first n (1 to 3) key columns (kind, key,
    // key2) equal key[0..n), in key order: f(cols) with the row's five
    // columns, until f returns false. SQLITE_DONE, or the error.
    template <class F>
    int attributes(const btr_value *key, int n, F f);
    // v1 of the attribute row (kind, key, key2): SQLITE_ROW with *v1 set,
    // SQLITE_DONE when there is none or its v1 is not an integer, else the error.
    int attribute_v1(const btr_value (&key)[3], int64_t *v1);
    // The id of the listing at path below root: attribute_v1 of its row.
    int listing_id(std::string_view root, std::string_view path, int64_t *id);

    // The item of listing list with sort key skey: SQLITE_ROW with its name
    // and data (valid until the next call on the items), SQLITE_DONE when
    // there is none, SQLITE_TOOBIG when its row is larger than the read
    // limit, else the error. Data longer than max_data is given as empty,
    // without reading it.
    int item(int64_t list, std::string_view skey, size_t max_data, Value *name, Value *data);

    // A scan of the key rows of one listing (item_key, or item_index when
    // on_index) from lo on, in key order.
    int scan_start(bool on_index, int64_t list, std::string_view lo, bool *at_end);
    // The scan's current key (an item's sort key, or an index row's key),
    // valid until the scan moves; false with *rc SQLITE_DONE past the
    // listing's rows, else the error.
    bool scan_key(std::string_view *key, int *rc);
    int scan_next(bool *at_end);
    // The item the current item_key row names (item(), by rowid).
    int scan_item(size_t max_data, Value *name, Value *data);

    // Every row of a cursor's record as read: checked against this limit
    // before it is read (a row is read whole only when it spans pages).
    static constexpr uint32_t kRowLimit = 4u * 16777216u;

private:
    int cursor(Table t, btr_cursor **c);
    // The current entry's record split into want columns.
    int read(btr_cursor *c, std::string &spill, Value *cols, int want);
    int item_by_rowid(int64_t rowid, size_t max_data, Value *name, Value *data);

    sqlite3 *db_ = nullptr;
    uint32_t root_[kTableCount] = {};
    btr_cursor *cur_[kTableCount] = {};
    bool scan_on_index_ = false;
    int64_t scan_list_ = 0;
    int64_t scan_rowid_ = 0;  // of the item_key row scan_key last read
    std::string spill_[kTableCount];  // records that span pages, read whole
};

// Whether a column holds the key field k (an integer, or text or a blob of the same bytes).
inline bool same(const Value &v, const btr_value &k) {
    if (v.type != k.type) return false;
    if (k.type == SQLITE_INTEGER) return v.i == k.i;
    return v.n == static_cast<uint32_t>(k.n) && (k.n == 0 || memcmp(v.p, k.p, v.n) == 0);
}

template <class F>
int Tables::attributes(const btr_value *key, int n, F f) {
    btr_cursor *c;
    if (int rc = cursor(kAttribute, &c)) return rc;
    int at_end = 1;
    int rc = btr_seek_ge(c, key, n, &at_end);
    while (rc == SQLITE_OK && !at_end) {
        Value cols[5];
        if ((rc = read(c, spill_[kAttribute], cols, 5)) != SQLITE_OK) break;
        for (int i = 0; i < n; i++)
            if (!same(cols[i], key[i])) return SQLITE_DONE;
        if (!f(cols)) return SQLITE_DONE;
        rc = btr_next(c, &at_end);
    }
    return rc == SQLITE_OK ? SQLITE_DONE : rc;
}

}  // namespace store_tables
