// System database client on an SQLite file: items and listings below a bound
// root, in natural key order, in batches.
#include "platform/sysdb.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "db_internal.h"
#include "platform/bag.h"
#include "platform/cerr.h"
#include "platform/sysdb_keys.h"
#include "platform/sysdb_registry.h"
#include "platform/sysdb_schema.h"

namespace {

constexpr size_t kMaxPath = 255;
static_assert(std::string_view(SYSDB_SCHEMA_RECORD_LIMIT) == "16777216" && BAG_MAX_RECORD == 16777216,
              "the store's SQL names the record limit");
constexpr uint32_t kDefaultBatchBytes = 4u * 1024 * 1024;
uint32_t g_batch_bytes = kDefaultBatchBytes;
sysdb_request_observer_fn g_observer;
void *g_observer_arg;
sqlite3 *g_lazy_db;  // opened by the first shared read with no binding, open until the process ends
store_tables::Tables *g_bound_tables;  // of the bound handle

// Smallest byte string greater than every string that starts with prefix;
// empty when there is none (all 0xff).
std::string prefix_end(std::string p) {
    while (!p.empty() && static_cast<uint8_t>(p.back()) == 0xff) p.pop_back();
    if (!p.empty()) p.back() = static_cast<char>(static_cast<uint8_t>(p.back()) + 1);
    return p;
}

}  // namespace

namespace sysdb_schema {
bool valid_root(const char *root) {
    if (!root) return false;
    if (strcmp(root, "/oper/evpn/gl/") == 0 || strcmp(root, "/oper/evpn/gl/stdby/") == 0)
        return true;
    const char *node = "/oper/evpn/node/";
    size_t n = strlen(node);
    if (strncmp(root, node, n) != 0) return false;
    const char *p = root + n;
    size_t digits = strspn(p, "0123456789abcdef");
    return digits > 0 && digits <= 8 && strcmp(p + digits, "/") == 0;
}
}  // namespace sysdb_schema

namespace platform_db {

uint32_t open_readonly(const char *path, sqlite3 **out, store_tables::Tables *tables) {
    *out = nullptr;
    // A request that reads a row past this heap limit (a store written by
    // other means) fails with SYSDB_ERR_TOO_BIG, before the row is read: a
    // damaged or hostile store cannot make a reader take more memory than
    // this. The tables check a row's size against the same figure before
    // reading one that spans pages; searches go through indices that hold
    // keys alone. A reader's page cache and one record at the codec's limit
    // fit well below it.
    static_assert(kReadHeapLimit == 4 * sqlite3_int64(BAG_MAX_RECORD) &&
                  store_tables::Tables::kRowLimit == kReadHeapLimit);
    const sqlite3_int64 limit = sqlite3_hard_heap_limit64(-1);
    if (limit == 0 || limit > kReadHeapLimit) sqlite3_hard_heap_limit64(kReadHeapLimit);
    // Anything but a regular file (a FIFO would block the open until a
    // writer came; a directory or a device is no database either).
    struct stat st;
    if (!path || stat(path, &st) != 0 || !S_ISREG(st.st_mode)) return SYSDB_ERR_NO_LIBRARY;
    sqlite3 *db = nullptr;
    if (sqlite3_open_v2(path, &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        // A file this process may not read is missing to it; the test costs
        // a system call only when the open failed.
        return access(path, R_OK) != 0 ? SYSDB_ERR_NO_LIBRARY : SYSDB_ERR_NOT_BOUND;
    }
    sqlite3_busy_timeout(db, 2000);
    // The first read of the file: a hot journal, which a read-only
    // connection cannot roll back, shows here.
    const int rc = btr_begin_read(db);
    if (rc != SQLITE_OK) {
        sqlite3_close(db);
        if (rc == SQLITE_READONLY_ROLLBACK || rc == SQLITE_READONLY_RECOVERY) return SYSDB_ERR_HOT_JOURNAL;
        return (rc & 0xff) == SQLITE_BUSY ? SYSDB_ERR_STORE : SYSDB_ERR_NOT_BOUND;
    }
    // The header as the transaction reads it, through the log: a store the
    // collector made may have its first pages there still.
    uint32_t app = 0, ver = 0, encoding = 0;
    btr_meta(db, BTR_META_APPLICATION_ID, &app);
    btr_meta(db, BTR_META_USER_VERSION, &ver);
    btr_meta(db, BTR_META_TEXT_ENCODING, &encoding);
    uint32_t code = 0;
    if (static_cast<int32_t>(app) != sysdb_schema::kApplicationId ||
        static_cast<int32_t>(ver) != sysdb_schema::kVersion || encoding != SQLITE_UTF8) {
        code = SYSDB_ERR_NOT_BOUND;
    } else {
        // Every table the platform reads, made as ours are: a store with one
        // dropped or altered would change reports silently (no capabilities,
        // no counters).
        store_tables::Tables checked;
        store_tables::Tables &t = tables ? *tables : checked;
        code = t.open(db);
        if (code) t.close();
    }
    if (code) {
        sqlite3_close(db);
        return code;
    }
    if (!tables) btr_end_read(db);
    *out = db;
    return 0;
}

SharedRead::SharedRead() {
    if (g_bound_tables) {
        tables_ = g_bound_tables;
        return;
    }
    static store_tables::Tables lazy;
    if (!g_lazy_db) open_readonly(sysdb_library_path(), &g_lazy_db);
    if (!g_lazy_db || btr_begin_read(g_lazy_db) != SQLITE_OK) return;
    own_ = true;
    // Found again in each transaction: another writer may have made the store anew.
    if (lazy.open(g_lazy_db) == 0) tables_ = &lazy;
}

SharedRead::~SharedRead() {
    if (!own_) return;
    if (tables_) tables_->close();
    btr_end_read(g_lazy_db);
}

}  // namespace platform_db

uint32_t sysdb_schema::open_ours(const char *path, sqlite3 **db) {
    return platform_db::open_readonly(path, db);
}

struct sysdb_handle_s {
    sqlite3 *db = nullptr;
    store_tables::Tables tables;  // in the read transaction the binding holds
    std::string root;
    std::unordered_map<std::string, int64_t> list_ids;

    // Id of a listing path below the root; -1 when the database has none,
    // -2 when the store failed to answer (not kept: the error is the store's).
    int64_t listing(const std::string &path) {
        auto it = list_ids.find(path);
        if (it != list_ids.end()) return it->second;
        int64_t id = -1;
        const int rc = tables.listing_id(root, path, &id);
        if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
            failed = store_tables::store_error(rc);
            return -2;
        }
        if (rc == SQLITE_DONE || id < 0) id = -1;
        list_ids.emplace(path, id);
        return id;
    }
    uint32_t failed = 0;  // code of the last store failure that listing() met

    // Code of a listing id that is not one.
    uint32_t no_listing(int64_t id) const { return id == -2 ? failed : SYSDB_ERR_NOT_FOUND; }

    // Resume names a walk of each path last gave: a walk that asks twice
    // after the same name (or after none) would be served the same batch
    // again, for ever.
    std::unordered_map<std::string, std::string> last_resume;
};

struct sysdb_datalist_s {
    struct Entry {
        uint32_t name_off, data_off, data_len;  // the data as stored (packed)
    };
    std::string bytes;
    std::vector<Entry> entries;
    // The data of the entry last handed out, unpacked when it is handed out:
    // a batch holds its records packed, half the pages a short listing
    // touches for them.
    std::string record;
    size_t next = 0;
    bool more = false;
    // Whose items these are: an item get of the handle names the same
    // listing and the entry last handed out is served from here.
    sysdb_handle_td owner = nullptr;
    int64_t list = -1;
    const ListingDef *def = nullptr;  // the listing whose items these are
};

namespace {
// A walk asks for batch after batch and frees each before the next: the
// freed datalist is kept, with its memory, for the next request.
thread_local std::unique_ptr<sysdb_datalist_s> t_spare_datalist;

// Batches handed to callers and not yet freed, newest last. A listing
// display gets each item it lists by path while the batch that named it is
// still held (tunnel endpoints: "tep/<id>/info"); such a get is served from
// the batch, read in the same transaction, instead of a second b-tree seek.
thread_local std::vector<sysdb_datalist_s *> t_held_batches;

sysdb_datalist_s *take_datalist() {
    if (!t_spare_datalist) return new sysdb_datalist_s;
    sysdb_datalist_s *dl = t_spare_datalist.release();
    dl->bytes.clear();
    dl->entries.clear();
    dl->record.clear();
    dl->next = 0;
    dl->more = false;
    dl->owner = nullptr;
    dl->list = -1;
    dl->def = nullptr;
    return dl;
}

void release_held(sysdb_datalist_s *dl) {
    for (size_t i = t_held_batches.size(); i-- > 0;)
        if (t_held_batches[i] == dl) {
            t_held_batches.erase(t_held_batches.begin() + static_cast<ptrdiff_t>(i));
            return;
        }
}

// The entry a held batch of handle h over listing list last handed out,
// when its item name is name.
const sysdb_datalist_s::Entry *held_entry(sysdb_handle_td h, int64_t list,
                                          std::string_view name, const sysdb_datalist_s *&dl) {
    for (size_t i = t_held_batches.size(); i-- > 0;) {
        const sysdb_datalist_s *b = t_held_batches[i];
        if (b->owner != h || b->list != list || b->next == 0) continue;
        const sysdb_datalist_s::Entry &e = b->entries[b->next - 1];
        if (name == std::string_view(b->bytes.data() + e.name_off)) {
            dl = b;
            return &e;
        }
    }
    return nullptr;
}

// Whether every path "<base>/<name>" (or "<base>/<name>/<item_leaf>"), with
// a name free of '/', resolves to an item of l named name: no other listing
// of the registry lies below l's base or ends in its leaf. Then such a path
// can be matched against a held batch's entry without resolving it.
bool items_named_below_base(const ListingDef *l) {
    struct Known {
        const ListingDef *l;
        bool yes;
    };
    thread_local Known known[8];
    thread_local size_t count;
    for (size_t i = 0; i < count; i++)
        if (known[i].l == l) return known[i].yes;
    const std::string_view base = l->base;
    bool yes = !l->singleton && !l->child && base.find('/') == std::string_view::npos &&
               sysdb_registry_find(base) == l;
    for (const ListingDef &e : sysdb_registry()) {
        if (!yes) break;
        const std::string_view other = e.base;
        if (other.size() > base.size() && other.starts_with(base) && other[base.size()] == '/') yes = false;
        if (e.child && other == base &&
            (!l->item_leaf || std::string_view(e.child) == l->item_leaf ||
             std::string_view(e.child).find('/') != std::string_view::npos))
            yes = false;
    }
    if (count < std::size(known)) known[count++] = Known{l, yes};
    return yes;
}

// The entry a held batch of handle h last handed out when path names it,
// as "<base>/<name>" or "<base>/<name>/<item_leaf>" of the batch's listing:
// the item a listing display gets for each name it lists, found without
// resolving its path against the registry or the store's listings.
const sysdb_datalist_s::Entry *held_entry_at(sysdb_handle_td h, std::string_view path,
                                             const sysdb_datalist_s *&dl) {
    for (size_t i = t_held_batches.size(); i-- > 0;) {
        const sysdb_datalist_s *b = t_held_batches[i];
        if (b->owner != h || b->next == 0 || !b->def) continue;
        const ListingDef *l = b->def;
        const std::string_view base = l->base;
        if (path.size() <= base.size() || !path.starts_with(base) || path[base.size()] != '/') continue;
        const sysdb_datalist_s::Entry &e = b->entries[b->next - 1];
        const std::string_view name(b->bytes.data() + e.name_off);
        std::string_view rest = path.substr(base.size() + 1);
        if (!rest.starts_with(name)) continue;
        rest.remove_prefix(name.size());
        if (l->item_leaf ? !(rest.size() == strlen(l->item_leaf) + 1 && rest[0] == '/' &&
                             rest.substr(1) == l->item_leaf)
                         : !rest.empty())
            continue;
        // A name the key fields cannot read names no item, as resolving says.
        thread_local std::string skey;
        if (name.empty() || name.find('/') != std::string_view::npos || !items_named_below_base(l) ||
            !sysdb_keys::skey_from_name(*l, name, skey))
            continue;
        dl = b;
        return &e;
    }
    return nullptr;
}

void give_back_datalist(sysdb_datalist_s *dl) {
    release_held(dl);
    constexpr size_t kKeepBytes = 2 * kDefaultBatchBytes;  // an oversized batch is not kept
    if (t_spare_datalist || dl->bytes.capacity() > kKeepBytes || dl->record.capacity() > kKeepBytes) {
        delete dl;
        return;
    }
    t_spare_datalist.reset(dl);
}
}  // namespace

uint32_t _sysdb_bind(sysdb_handle_td *handle, const char *root, uint32_t mode) {
    if (!handle) return SYSDB_ERR_BAD_ARG;
    *handle = nullptr;
    if (!sysdb_schema::valid_root(root)) return SYSDB_ERR_BAD_PATH;
    if (mode != SYSDB_BIND_READ) return SYSDB_ERR_BAD_ARG;
    auto *h = new sysdb_handle_s;
    // The open's read transaction stays for the binding's life: every
    // request reads the same state, and batches do not each take and drop
    // the file lock.
    if (uint32_t rc = platform_db::open_readonly(sysdb_library_path(), &h->db, &h->tables)) {
        delete h;
        return rc;
    }
    h->root = root;
    *handle = h;
    g_bound_tables = &h->tables;
    return 0;
}

uint32_t _sysdb_unbind(sysdb_handle_td handle) {
    if (!handle) return SYSDB_ERR_NOT_BOUND;
    sqlite3 *db = handle->db;
    if (g_bound_tables == &handle->tables) g_bound_tables = nullptr;
    for (sysdb_datalist_s *dl : t_held_batches)
        if (dl->owner == handle) dl->owner = nullptr;  // a later handle may reuse the address
    delete handle;  // closes the cursors first
    sqlite3_close(db);
    return 0;
}

const char *l2vpn_edm_sysdb_path_to_item_name(const char *path) {
    if (!path) return nullptr;
    const char *slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

namespace {

bool path_ok(const char *path) {
    if (!path || !*path || path[0] == '/') return false;
    return strnlen(path, kMaxPath + 1) <= kMaxPath;
}

// Resolves "base/name", "base/name/leaf" for a listing with an item leaf,
// or a singleton's path, to its listing and sort key.
uint32_t resolve_item(const char *path, const ListingDef *&l, std::string &skey,
                      std::string_view &name) {
    std::string_view p(path);
    name = {};
    if ((l = sysdb_registry_find(p)) && l->singleton) {
        skey.clear();
        return 0;
    }
    size_t slash = p.rfind('/');
    if (slash == std::string_view::npos) return SYSDB_ERR_NOT_FOUND;
    name = p.substr(slash + 1);
    l = sysdb_registry_find(p.substr(0, slash));
    if (!l) {
        size_t up = p.rfind('/', slash - 1);
        if (slash == 0 || up == std::string_view::npos) return SYSDB_ERR_NOT_FOUND;
        l = sysdb_registry_find(p.substr(0, up));
        if (!l || !l->item_leaf || name != l->item_leaf) return SYSDB_ERR_NOT_FOUND;
        name = p.substr(up + 1, slash - up - 1);
    } else if (l->item_leaf || l->child) {
        return SYSDB_ERR_NOT_FOUND;  // items of this listing end in their leaf
    }
    if (l->singleton) return SYSDB_ERR_NOT_FOUND;
    if (!sysdb_keys::skey_from_name(*l, name, skey)) return SYSDB_ERR_NOT_FOUND;
    return 0;
}

void split_commas(std::string_view s, std::vector<std::string_view> &out) {
    out.clear();
    size_t start = 0;
    while (true) {
        size_t comma = s.find(',', start);
        out.push_back(s.substr(start, comma == std::string_view::npos ? comma : comma - start));
        if (comma == std::string_view::npos) return;
        start = comma + 1;
    }
}

// A listing request resolved against the registry.
struct Query {
    const ListingDef *l = nullptr;
    std::vector<uint8_t> layout;            // key positions of the scanned rows
    std::vector<std::string> given;         // sort bytes per key position; empty: any
    std::vector<bool> is_given;
    std::string scan_path;                  // listing path of the scanned rows
    bool on_items = true;                   // scanning the item table
    size_t run = 0;                         // leading given parts of layout
    bool filter = false;                    // given parts beyond the run
};

uint32_t resolve_listing(const char *path, Query &q) {
    std::string_view p(path);
    if ((q.l = sysdb_registry_find(p))) {
        if (q.l->singleton) return SYSDB_ERR_NOT_FOUND;
        q.layout.assign(q.l->item_key.begin(), q.l->item_key.end());
        q.is_given.assign(q.l->keys.size(), false);
        q.given.assign(q.l->keys.size(), std::string());
        q.scan_path = p;  // the base, or a per-item listing's own path
        return 0;
    }
    // "B-index/keys": the longest registered base followed by '-'.
    const ListingDef *best = nullptr;
    for (const ListingDef &l : sysdb_registry()) {
        size_t n = strlen(l.base);
        if (p.size() > n && p.compare(0, n, l.base) == 0 && p[n] == '-' &&
            (!best || n > strlen(best->base)))
            best = &l;
    }
    if (!best) return SYSDB_ERR_NOT_FOUND;
    q.l = best;
    std::string_view rest = p.substr(strlen(best->base) + 1);
    size_t slash = rest.find('/');
    if (slash == std::string_view::npos) return SYSDB_ERR_NO_INDEX_MATCH;
    std::string_view index = rest.substr(0, slash), keys = rest.substr(slash + 1);
    const IndexDef *ix = nullptr;
    for (const IndexDef &d : best->indices)
        if (index == d.name) ix = &d;
    if (!ix) return SYSDB_ERR_NO_INDEX_MATCH;

    q.is_given.assign(best->keys.size(), false);
    q.given.assign(best->keys.size(), std::string());
    if (!keys.empty()) {
        std::vector<std::string_view> comps;
        split_commas(keys, comps);
        size_t at = 0;
        for (uint8_t pos : ix->parts) {
            KeyText t = best->keys[pos].text;
            size_t n = key_text_components(t);
            if (at + n > comps.size()) return SYSDB_ERR_NO_INDEX_MATCH;
            std::vector<std::string_view> part(comps.begin() + at, comps.begin() + at + n);
            at += n;
            size_t wild = 0;
            for (std::string_view c : part) wild += c == sysdb_keys::kWildcard;
            if (wild == n) continue;
            if (wild) return SYSDB_ERR_NO_INDEX_MATCH;
            if (!sysdb_keys::parse_field(t, part, q.given[pos])) return SYSDB_ERR_NO_INDEX_MATCH;
            q.is_given[pos] = true;
        }
        if (at != comps.size()) return SYSDB_ERR_NO_INDEX_MATCH;
    }

    // The ordering whose leading parts the query gives most of.
    const auto &kept = sysdb_keys::stored_orderings(*best);
    size_t best_run = 0;
    int best_home = -3;
    for (const auto &o : ix->orderings) {
        int home = sysdb_keys::ordering_home(*best, o);
        if (home < -1) continue;
        const std::vector<uint8_t> layout =
            home == -1 ? std::vector<uint8_t>(best->item_key.begin(), best->item_key.end())
                       : sysdb_keys::row_layout(*best, kept[home]);
        size_t run = 0;
        while (run < layout.size() && q.is_given[layout[run]]) run++;
        if (best_home == -3 || run > best_run) {
            best_run = run;
            best_home = home;
            q.layout = layout;
        }
    }
    if (best_home == -3) return SYSDB_ERR_NO_INDEX_MATCH;
    q.on_items = best_home == -1;
    q.scan_path = q.on_items ? best->base : sysdb_keys::ordering_path(*best, kept[best_home]);
    q.run = best_run;
    for (size_t i = best_run; i < q.layout.size(); i++)
        if (q.is_given[q.layout[i]]) q.filter = true;
    return 0;
}

// Sort bytes of every key field of the item with sort key skey, read from
// its record; false when the item is gone or does not decode.
bool item_key_fields(sysdb_handle_td h, const ListingDef &l, const std::string &skey,
                     std::vector<std::string> &sort) {
    int64_t list = h->listing(l.base);
    if (list < 0) return false;
    store_tables::Value name, data;
    if (h->tables.item(list, skey, BAG_MAX_RECORD, &name, &data) != SQLITE_ROW) return false;
    std::vector<uint64_t> buf(l.desc->size / 8 + 1);
    std::string record;
    bool ok = false;
    if (sysdb_schema::unpack_record(data.p, data.n, BAG_MAX_RECORD, record) &&
        bag_decode(record.data(), static_cast<uint32_t>(record.size()), buf.data(),
                   static_cast<uint32_t>(buf.size() * 8), l.desc) == 0) {
        std::vector<std::string> text;
        std::string err;
        ok = sysdb_keys::from_record(l, buf.data(), sort, text, err);
        bag_free_indirections(buf.data(), l.desc);
    }
    return ok;
}

// Rows of the scan after the resume name: the key laid out as the scan's rows.
bool resume_key(sysdb_handle_td h, const Query &q, std::string_view name, std::string &after) {
    std::string skey;
    std::vector<std::string> field_sort;
    if (!sysdb_keys::skey_from_name(*q.l, name, skey, &field_sort)) return false;
    if (q.on_items) {
        after = skey;
        return true;
    }
    after.clear();
    std::vector<std::string> record_sort;
    for (uint8_t pos : q.layout) {
        if (q.is_given[pos]) {
            after += q.given[pos];
        } else if (!field_sort[pos].empty()) {
            after += field_sort[pos];
        } else {
            // The name does not carry this key field (a bridge-domain name):
            // the item's record does.
            if (record_sort.empty() && !item_key_fields(h, *q.l, skey, record_sort)) return false;
            if (record_sort[pos].empty()) return false;
            after += record_sort[pos];
        }
    }
    return true;
}

bool row_matches(const Query &q, std::string_view key) {
    if (!q.filter) return true;
    std::vector<std::string_view> parts;
    if (!sysdb_keys::split(*q.l, q.layout, key, parts)) return false;
    for (size_t i = q.run; i < q.layout.size(); i++)
        if (q.is_given[q.layout[i]] && parts[i] != q.given[q.layout[i]]) return false;
    return true;
}

uint32_t run_listing(sysdb_handle_td h, const char *path, const char *resume, uint32_t want,
                     sysdb_datalist_s &out) {
    if (!path_ok(path)) return SYSDB_ERR_BAD_PATH;
    Query q;
    if (uint32_t rc = resolve_listing(path, q)) return rc;
    int64_t list = h->listing(q.scan_path);
    if (list < 0) return h->no_listing(list);
    int64_t base = q.on_items ? list : h->listing(q.l->base);
    if (base < 0) return h->no_listing(base);
    out.owner = h;
    out.list = q.on_items ? list : base;
    out.def = q.l;

    std::string prefix;
    for (size_t i = 0; i < q.run; i++) prefix += q.given[q.layout[i]];
    // Keys past the prefix's run start at hi; none do when it is empty.
    const std::string hi = prefix_end(prefix);
    std::string after;
    if (resume && *resume && !resume_key(h, q, resume, after)) return SYSDB_ERR_NO_INDEX_MATCH;

    // The first key past the resume key (itself followed by a 0 byte) when
    // it lies past the prefix.
    std::string lo = after;
    if (!lo.empty()) lo.push_back('\0');
    if (lo < prefix) lo = prefix;
    store_tables::Tables &t = h->tables;
    bool at_end = true;
    int rc = t.scan_start(!q.on_items, list, lo, &at_end);
    thread_local std::string skey;  // of an index row's item
    // The batch's bytes as the caller gets them (names to 4 bytes, records
    // unpacked), which the byte budget bounds; a record that does not unpack
    // counts the length it claims.
    size_t counted = 0;
    std::string_view key;
    // The scan ends at the listing's last row by itself.
    const bool bounded = !hi.empty();
    while (rc == SQLITE_OK && !at_end && t.scan_key(&key, &rc)) {
        if (bounded && key >= hi) break;
        if (row_matches(q, key)) {
            if (out.entries.size() == want || (!out.entries.empty() && counted > g_batch_bytes)) {
                out.more = true;
                break;
            }
            store_tables::Value name, data;
            int got;
            if (q.on_items) {
                // An index row whose item is missing is a damaged file.
                if ((got = t.scan_item(SIZE_MAX, &name, &data)) == SQLITE_DONE) got = SQLITE_CORRUPT;
            } else {
                // An index row that names no item (malformed, or its item
                // gone) is passed over.
                got = sysdb_keys::skey_of_row(*q.l, q.layout, key, skey)
                          ? t.item(base, skey, SIZE_MAX, &name, &data) : SQLITE_DONE;
            }
            if (got != SQLITE_ROW && got != SQLITE_DONE) {
                rc = got;
                break;
            }
            if (got == SQLITE_ROW) {
                const std::string_view n = name.type == SQLITE_TEXT || name.type == SQLITE_BLOB
                                               ? name.bytes() : std::string_view();
                const std::string_view d = data.type == SQLITE_TEXT || data.type == SQLITE_BLOB
                                               ? data.bytes() : std::string_view();
                sysdb_datalist_s::Entry e;
                e.name_off = static_cast<uint32_t>(out.bytes.size());
                out.bytes.append(n);
                out.bytes.push_back('\0');
                e.data_off = static_cast<uint32_t>(out.bytes.size());
                e.data_len = static_cast<uint32_t>(d.size());
                out.bytes.append(d);
                out.entries.push_back(e);
                counted += (n.size() + 4) / 4 * 4 + sysdb_schema::unpacked_size(d.data(), d.size(), BAG_MAX_RECORD);
                // Room for the whole batch at the first two entries' size, so
                // that the batch is not copied as it doubles (a tenth of a
                // short listing's instructions). Not at the first: a request
                // for one item would hold room for all it may ask for.
                if (out.entries.size() == 2)
                    out.bytes.reserve(std::min<size_t>(out.bytes.size() / 2 * (want + 1),
                                                       size_t{g_batch_bytes} + out.bytes.size()));
            }
        }
        rc = t.scan_next(&at_end);
    }
    if (rc != SQLITE_OK && rc != SQLITE_DONE) return store_tables::store_error(rc);
    return out.entries.empty() ? static_cast<uint32_t>(SYSDB_ERR_NOT_FOUND) : 0u;
}

uint32_t item_get(sysdb_handle_td h, const char *path, uint32_t *type, void **data,
                  uint32_t *len) {
    if (data) *data = nullptr;
    if (len) *len = 0;
    if (!h) return SYSDB_ERR_NOT_BOUND;
    if (!data || !len) return SYSDB_ERR_BAD_ARG;
    if (!path_ok(path)) return SYSDB_ERR_BAD_PATH;
    const sysdb_datalist_s *held = nullptr;
    const sysdb_datalist_s::Entry *e = held_entry_at(h, path, held);
    const ListingDef *l;
    std::string skey;
    std::string_view name;
    int64_t list = -1;
    if (!e) {
        if (uint32_t rc = resolve_item(path, l, skey, name)) return rc;
        list = h->listing(l->base);
        if (list < 0) return h->no_listing(list);
        if (!name.empty()) e = held_entry(h, list, name, held);
    }
    std::string read;
    const std::string *record = &read;
    if (e) {
        // The entry last handed out: its record is the one unpacked.
        record = &held->record;
    } else {
        // Data longer than the codec's record limit is served empty, which
        // no record type decodes from, and is not read.
        store_tables::Value item_name, stored;
        const int rc = h->tables.item(list, skey, BAG_MAX_RECORD, &item_name, &stored);
        if (rc == SQLITE_DONE) return SYSDB_ERR_NOT_FOUND;
        if (rc != SQLITE_ROW) return store_tables::store_error(rc);
        if (!sysdb_schema::unpack_record(stored.p, stored.n, BAG_MAX_RECORD, read)) read.clear();
    }
    const size_t n = record->size();
    void *copy = malloc(n ? n : 1);
    if (!copy) return SYSDB_ERR_STORE;
    if (n) memcpy(copy, record->data(), n);
    *data = copy;
    *len = static_cast<uint32_t>(n);
    if (type) *type = SYSDB_TYPE_BAG;
    return 0;
}

}  // namespace

uint32_t sysdb_item_get(sysdb_handle_td h, const char *path, uint32_t *type, void **data,
                        uint32_t *len, uint32_t) {
    uint32_t rc = item_get(h, path, type, data, len);
    if (g_observer) {
        sysdb_request_s r{true, path, "", 0, 0, 0, rc};
        g_observer(&r, g_observer_arg);
    }
    return rc;
}

namespace {
// A request that resumes must name where: a resume without a name, or after
// the same name as the previous request of that path, would start the
// listing over or serve the previous batch again.
bool resume_taken(sysdb_handle_td h, const char *path, const char *resume_name, uint32_t flags) {
    if (!path) return true;
    const bool resumes = (flags & SYSDB_DATALIST_RESUME) || (resume_name && *resume_name);
    if (!resumes) {
        h->last_resume.erase(path);
        return true;
    }
    if (!resume_name || !*resume_name) return false;
    auto [it, added] = h->last_resume.try_emplace(path, resume_name);
    if (added) return true;
    if (it->second == resume_name) return false;
    it->second = resume_name;
    return true;
}
}  // namespace

uint32_t sysdb_datalist(sysdb_handle_td h, const char *path, const char *resume_name,
                        uint32_t *count, sysdb_datalist_h_td *list, uint32_t flags) {
    uint32_t want = count ? *count : 0;
    uint32_t rc;
    if (list) *list = nullptr;
    sysdb_datalist_s *dl = take_datalist();
    if (!h) rc = SYSDB_ERR_NOT_BOUND;
    else if (!count || !list || want == 0) rc = SYSDB_ERR_BAD_ARG;
    else if (!resume_taken(h, path, resume_name, flags)) rc = SYSDB_ERR_NO_INDEX_MATCH;
    else rc = run_listing(h, path, (flags & SYSDB_DATALIST_RESUME) || (resume_name && *resume_name)
                                       ? resume_name : nullptr,
                          want, *dl);
    uint32_t got = rc ? 0 : static_cast<uint32_t>(dl->entries.size());
    // A listing that is empty or unknown has 0 items; a request that failed
    // (an index or key not understood, the store, the path, the handle) has
    // no count to give and leaves the caller's, so that the walk sees the
    // code and decides on it.
    if (count && (!rc || rc == SYSDB_ERR_NOT_FOUND)) *count = got;
    if (got) {
        *list = dl;
        t_held_batches.push_back(dl);
    } else {
        give_back_datalist(dl);
    }
    if (g_observer) {
        sysdb_request_s r{false, path, resume_name, want, got, flags, rc};
        g_observer(&r, g_observer_arg);
    }
    return rc;
}

uint32_t sysdb_datalist_next(sysdb_datalist_h_td dl, const char **name, uint32_t *type,
                             void **data, uint32_t *len, uint32_t *extra) {
    if (name) *name = nullptr;
    if (data) *data = nullptr;
    if (len) *len = 0;
    if (!dl) return SYSDB_ERR_BAD_ARG;
    if (dl->next >= dl->entries.size()) return SYSDB_ERR_NOT_FOUND;
    const sysdb_datalist_s::Entry &e = dl->entries[dl->next++];
    // Data that does not unpack is served empty, as no record decodes from.
    dl->record.clear();
    sysdb_schema::unpack_record(dl->bytes.data() + e.data_off, e.data_len, BAG_MAX_RECORD, dl->record);
    if (name) *name = dl->bytes.data() + e.name_off;
    if (data) *data = dl->record.data();
    if (len) *len = static_cast<uint32_t>(dl->record.size());
    if (type) *type = SYSDB_TYPE_BAG;
    if (extra) *extra = 0;
    return 0;
}

uint32_t sysdb_datalist_start(sysdb_datalist_h_td dl) {
    if (!dl) return SYSDB_ERR_BAD_ARG;
    dl->next = 0;
    return 0;
}

uint32_t sysdb_datalist_get_more_flag(sysdb_datalist_h_td dl, uint32_t *more) {
    if (!dl || !more) return SYSDB_ERR_BAD_ARG;
    *more = dl->more ? 1 : 0;
    return 0;
}

uint32_t sysdb_datalist_free(sysdb_datalist_h_td dl) {
    if (!dl) return SYSDB_ERR_BAD_ARG;
    give_back_datalist(dl);
    return 0;
}

void sysdb_set_request_observer(sysdb_request_observer_fn fn, void *arg) {
    g_observer = fn;
    g_observer_arg = arg;
}

void sysdb_set_batch_byte_budget(uint32_t bytes) {
    g_batch_bytes = bytes ? bytes : kDefaultBatchBytes;
}
