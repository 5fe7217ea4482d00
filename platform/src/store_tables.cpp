// The store's tables through b-tree cursors: see platform/store_tables.h.
#include "platform/store_tables.h"

#include <cstring>

#include "platform/cerr.h"
#include "platform/sysdb_schema.h"

namespace store_tables {
namespace {

// An SQLite varint at p[0..end) of more than one byte: its length, 0 when
// it runs past end.
int get_long_varint(const unsigned char *p, const unsigned char *end, uint64_t *v) {
    uint64_t x = 0;
    for (int i = 0; i < 8; i++) {
        if (p + i >= end) return 0;
        x = (x << 7) | (p[i] & 0x7f);
        if (!(p[i] & 0x80)) {
            *v = x;
            return i + 1;
        }
    }
    if (p + 8 >= end) return 0;
    *v = (x << 8) | p[8];
    return 9;
}

// An SQLite varint at p[0..end): its length, 0 when it runs past end. Most
// of a record's header is one-byte varints.
inline int get_varint(const unsigned char *p, const unsigned char *end, uint64_t *v) {
    if (p < end && p[0] < 0x80) {
        *v = p[0];
        return 1;
    }
    return get_long_varint(p, end, v);
}

// Bytes of a column's body by its serial type; -1 for a reserved type.
int64_t body_size(uint64_t t) {
    static constexpr unsigned char kFixed[] = {0, 1, 2, 3, 4, 6, 8, 8, 0, 0};
    if (t < 10) return kFixed[t];
    if (t < 12) return -1;
    return static_cast<int64_t>((t - 12) / 2);
}

struct Span {
    uint64_t type;  // serial type; 0 (NULL) for a column the record lacks
    uint64_t off, size;
};

// Spans of the first want columns of a record of total bytes whose first
// avail bytes are at p; false when the header runs past avail or a body
// past total.
inline bool spans(const unsigned char *p, size_t avail, size_t total, Span *s, int want) {
    const unsigned char *end = p + avail;
    uint64_t header = 0;
    int n = get_varint(p, end, &header);
    if (n == 0 || header < static_cast<uint64_t>(n) || header > avail) return false;
    const unsigned char *h = p + n, *hend = p + header;
    uint64_t body = header;
    for (int i = 0; i < want; i++) {
        if (h >= hend) {
            s[i] = Span{0, 0, 0};  // a column the record lacks reads as NULL
            continue;
        }
        uint64_t t = 0;
        int k = get_varint(h, hend, &t);
        if (k == 0) return false;
        h += k;
        const int64_t size = body_size(t);
        if (size < 0 || body + static_cast<uint64_t>(size) > total) return false;
        s[i] = Span{t, body, static_cast<uint64_t>(size)};
        body += static_cast<uint64_t>(size);
    }
    return true;
}

// A column's value from its span within the record at p.
inline Value value_of(const unsigned char *p, const Span &s) {
    Value v;
    if (s.type == 0) return v;
    if (s.type == 8 || s.type == 9) {
        v.type = SQLITE_INTEGER;
        v.i = static_cast<int64_t>(s.type - 8);
    } else if (s.type <= 6) {
        v.type = SQLITE_INTEGER;
        const unsigned char *b = p + s.off;
        uint64_t x = b[0] & 0x80 ? ~uint64_t{0} : 0;  // sign-extended, big-endian
        for (uint64_t i = 0; i < s.size; i++) x = (x << 8) | b[i];
        v.i = static_cast<int64_t>(x);
    } else if (s.type == 7) {
        v.type = SQLITE_FLOAT;
    } else {
        v.type = s.type & 1 ? SQLITE_TEXT : SQLITE_BLOB;
        v.p = p + s.off;
        v.n = static_cast<uint32_t>(s.size);
    }
    return v;
}

struct Known {
    Table table;
    const char *type, *name, *sql;
    int key_fields;  // compared by a cursor; 0 for a rowid table
};
constexpr Known kKnown[] = {
    {kAttribute, "table", "attribute", SYSDB_CREATE_ATTRIBUTE, 3},
    {kItem, "table", "item", SYSDB_CREATE_ITEM, 0},
    {kItemKey, "index", "item_key", SYSDB_CREATE_ITEM_KEY, 2},
    {kItemIndex, "table", "item_index", SYSDB_CREATE_ITEM_INDEX, 2},
};
static_assert(std::size(kKnown) == kTableCount);

}  // namespace

uint32_t store_error(int sqlite_rc) {
    switch (sqlite_rc & 0xff) {
    case SQLITE_CORRUPT: case SQLITE_NOTADB: return SYSDB_ERR_CORRUPT;
    case SQLITE_NOMEM: case SQLITE_TOOBIG: return SYSDB_ERR_TOO_BIG;
    default: return SYSDB_ERR_STORE;
    }
}

bool split_record(const void *rec, size_t len, Value *cols, int want) {
    Span s[8];
    if (want < 0 || want > 8) return false;
    const auto *p = static_cast<const unsigned char *>(rec);
    if (!p || !spans(p, len, len, s, want)) return false;
    for (int i = 0; i < want; i++) cols[i] = value_of(p, s[i]);
    return true;
}

uint32_t Tables::open(sqlite3 *db) {
    close();
    db_ = db;
    for (uint32_t &r : root_) r = 0;
    btr_cursor *c = nullptr;
    int rc = btr_open(db, 1, 0, &c);
    int at_end = 1;
    if (rc == SQLITE_OK) rc = btr_first(c, &at_end);
    bool matches[kTableCount] = {};
    std::string spill;
    while (rc == SQLITE_OK && !at_end) {
        Value v[5];  // type, name, tbl_name, rootpage, sql
        if ((rc = read(c, spill, v, 5)) != SQLITE_OK) break;
        for (const Known &k : kKnown) {
            if (v[1].type != SQLITE_TEXT || v[1].bytes() != k.name) continue;
            matches[k.table] = v[0].type == SQLITE_TEXT && v[0].bytes() == k.type &&
                               v[4].type == SQLITE_TEXT && v[4].bytes() == k.sql &&
                               v[3].type == SQLITE_INTEGER && v[3].i > 1 && v[3].i <= INT32_MAX;
            if (matches[k.table]) root_[k.table] = static_cast<uint32_t>(v[3].i);
        }
        rc = btr_next(c, &at_end);
    }
    btr_close(c);
    if (rc != SQLITE_OK) return store_error(rc);
    for (bool m : matches)
        if (!m) return SYSDB_ERR_NOT_BOUND;
    return 0;
}

void Tables::close() {
    for (btr_cursor *&c : cur_) {
        btr_close(c);
        c = nullptr;
    }
}

int Tables::cursor(Table t, btr_cursor **c) {
    if (!cur_[t]) {
        if (!root_[t]) return SQLITE_MISUSE;
        if (int rc = btr_open(db_, root_[t], kKnown[t].key_fields, &cur_[t])) return rc;
    }
    *c = cur_[t];
    return SQLITE_OK;
}

int Tables::read(btr_cursor *c, std::string &spill, Value *cols, int want) {
    const uint32_t size = btr_record_size(c);
    uint32_t local = 0;
    const void *p = btr_record_local(c, &local);
    if (local < size) {
        if (size > kRowLimit) return SQLITE_TOOBIG;
        spill.resize(size);
        if (int rc = btr_record_read(c, 0, size, spill.data())) return rc;
        p = spill.data();
    }
    return split_record(p, size, cols, want) ? SQLITE_OK : SQLITE_CORRUPT;
}

int Tables::attribute_v1(const btr_value (&key)[3], int64_t *v1) {
    int found = SQLITE_DONE;
    const int rc = attributes(key, 3, [&](const Value *cols) {
        if (cols[3].type == SQLITE_INTEGER) {
            *v1 = cols[3].i;
            found = SQLITE_ROW;
        }
        return false;
    });
    return rc == SQLITE_DONE ? found : rc;
}

int Tables::listing_id(std::string_view root, std::string_view path, int64_t *id) {
    const btr_value key[3] = {int_key(sysdb_schema::kKindListing), text_key(root), text_key(path)};
    return attribute_v1(key, id);
}

int Tables::item_by_rowid(int64_t rowid, size_t max_data, Value *name, Value *data) {
    btr_cursor *c;
    if (int rc = cursor(kItem, &c)) return rc;
    int found = 0;
    if (int rc = btr_seek_rowid(c, rowid, &found)) return rc;
    if (!found) return SQLITE_DONE;
    const uint32_t size = btr_record_size(c);
    uint32_t local = 0;
    const auto *p = static_cast<const unsigned char *>(btr_record_local(c, &local));
    std::string &spill = spill_[kItem];
    Span s[4];  // list, skey, name, data
    if (local >= size) {
        if (!spans(p, size, size, s, 4)) return SQLITE_CORRUPT;
    } else {
        // The row spans pages: its header first (within its first 64
        // bytes, as four columns' is), then what is to be read of it.
        const uint32_t head = size < 64 ? size : 64;
        spill.resize(head);
        if (int rc = btr_record_read(c, 0, head, spill.data())) return rc;
        if (!spans(reinterpret_cast<const unsigned char *>(spill.data()), head, size, s, 4))
            return SQLITE_CORRUPT;
        const uint64_t upto = s[3].size > max_data ? s[3].off : size;
        if (upto > kRowLimit) return SQLITE_TOOBIG;
        spill.resize(upto);
        if (int rc = btr_record_read(c, 0, static_cast<uint32_t>(upto), spill.data())) return rc;
        p = reinterpret_cast<const unsigned char *>(spill.data());
    }
    *name = value_of(p, s[2]);
    if (s[3].size > max_data) *data = Value{SQLITE_BLOB, 0, p, 0};
    else *data = value_of(p, s[3]);
    return SQLITE_ROW;
}

int Tables::item(int64_t list, std::string_view skey, size_t max_data, Value *name, Value *data) {
    btr_cursor *c;
    if (int rc = cursor(kItemKey, &c)) return rc;
    const btr_value k[2] = {int_key(list), blob_key(skey)};
    int at_end = 1;
    if (int rc = btr_seek_ge(c, k, 2, &at_end)) return rc;
    if (at_end) return SQLITE_DONE;
    Value v[3];
    if (int rc = read(c, spill_[kItemKey], v, 3)) return rc;
    if (v[0].type != SQLITE_INTEGER || v[0].i != list || v[1].type != SQLITE_BLOB || v[1].bytes() != skey)
        return SQLITE_DONE;
    if (v[2].type != SQLITE_INTEGER) return SQLITE_CORRUPT;
    return item_by_rowid(v[2].i, max_data, name, data);
}

int Tables::scan_start(bool on_index, int64_t list, std::string_view lo, bool *at_end) {
    scan_on_index_ = on_index;
    scan_list_ = list;
    *at_end = true;
    btr_cursor *c;
    if (int rc = cursor(on_index ? kItemIndex : kItemKey, &c)) return rc;
    const btr_value k[2] = {int_key(list), blob_key(lo)};
    int end = 1;
    const int rc = btr_seek_ge(c, k, 2, &end);
    *at_end = end;
    return rc;
}

bool Tables::scan_key(std::string_view *key, int *rc) {
    const Table t = scan_on_index_ ? kItemIndex : kItemKey;
    Value v[3];
    *rc = read(cur_[t], spill_[t], v, 3);
    if (*rc != SQLITE_OK) return false;
    if (v[0].type != SQLITE_INTEGER || v[0].i != scan_list_) {
        *rc = SQLITE_DONE;  // past the listing's rows
        return false;
    }
    if (v[1].type != SQLITE_BLOB || (!scan_on_index_ && v[2].type != SQLITE_INTEGER)) {
        *rc = SQLITE_CORRUPT;
        return false;
    }
    scan_rowid_ = v[2].i;
    *key = v[1].bytes();
    return true;
}

int Tables::scan_next(bool *at_end) {
    int end = 1;
    const int rc = btr_next(cur_[scan_on_index_ ? kItemIndex : kItemKey], &end);
    *at_end = end;
    return rc;
}

int Tables::scan_item(size_t max_data, Value *name, Value *data) {
    return item_by_rowid(scan_rowid_, max_data, name, data);
}

}  // namespace store_tables
