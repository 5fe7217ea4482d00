// Builds an operational database in a temporary file beside the target and
// renames it over the target on commit: a load is all or nothing, and a
// reader keeps the file it opened.
#include "sysdb_writer.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_set>
#include <vector>

#include "platform/bag.h"
#include "platform/cerr.h"
#include "platform/sysdb.h"
#include "platform/sysdb_keys.h"
#include "platform/sysdb_registry.h"
#include "platform/sysdb_schema.h"

namespace evpn {

namespace {

bool exec(sqlite3 *db, const char *sql, std::string &err) {
    char *msg = nullptr;
    if (sqlite3_exec(db, sql, nullptr, nullptr, &msg) != SQLITE_OK) {
        err = msg ? msg : "sqlite error";
        sqlite3_free(msg);
        return false;
    }
    return true;
}

// The value a PRAGMA that reads a setting returns, as text ("" when none).
std::string pragma(sqlite3 *db, const char *sql) {
    sqlite3_stmt *s = nullptr;
    std::string v;
    if (sqlite3_prepare_v2(db, sql, -1, &s, nullptr) == SQLITE_OK && sqlite3_step(s) == SQLITE_ROW)
        if (const unsigned char *t = sqlite3_column_text(s, 0)) v = reinterpret_cast<const char *>(t);
    sqlite3_finalize(s);
    return v;
}

// Copies a live store's write-ahead log into the file on a thread and a
// connection of its own, so that the thread storing changes never stops for
// it. A commit that leaves kFrames pages or more in the log asks for a
// checkpoint (PASSIVE: the writer and readers go on meanwhile). While one
// runs, the next transaction cannot start the log over and appends to it, so
// a commit that leaves four times kFrames waits for the running checkpoint:
// the log stays bounded and the transaction after it starts it over.
class LogCheckpointer {
  public:
    ~LogCheckpointer() { stop(); }

    bool start(const std::string &path, int frames, std::string &err) {
        frames_ = frames;
        if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
            err = "cannot open " + path + " to checkpoint it: " + sqlite3_errmsg(db_);
            return false;
        }
        // A read opens the connection's log.
        if (!exec(db_, "PRAGMA cache_size = 8; SELECT 1 FROM sqlite_schema LIMIT 1", err)) {
            err = path + ": " + err;
            return false;
        }
        thread_ = std::thread([this] { run(); });
        return true;
    }

    // The writer connection's commit hook (sqlite3_wal_hook): frames is the
    // log's length in pages. Called with the write lock released.
    static int on_commit(void *self, sqlite3 *, const char *, int frames) {
        auto &c = *static_cast<LogCheckpointer *>(self);
        if (frames < c.frames_) return SQLITE_OK;
        std::unique_lock<std::mutex> lk(c.mu_);
        c.due_ = true;
        c.cv_.notify_all();
        if (frames >= 4 * c.frames_) c.cv_.wait(lk, [&] { return c.stop_ || (!c.due_ && !c.running_); });
        return SQLITE_OK;
    }

    // Ends a running checkpoint where it is (what it copied is copied
    // again) and closes the connection: what is left in the log is the
    // closing writer's to copy, with its own syncs (a checkpoint let finish
    // first took a 1M-route replay's close 0.23 s more, two syncs of its own).
    void stop() {
        if (thread_.joinable()) {
            {
                std::lock_guard<std::mutex> lk(mu_);
                stop_ = true;
                if (running_) sqlite3_interrupt(db_);
            }
            cv_.notify_all();
            thread_.join();
        }
        if (db_) sqlite3_close(db_);
        db_ = nullptr;
    }

  private:
    // A checkpoint that fails (a full disk) leaves the pages in the log,
    // where readers find them; the next one tries again, as SQLite's own
    // automatic checkpoint does. The thread runs at a lower priority than
    // the writer's others: on a machine of two cores, the three otherwise
    // share them evenly and the storing thread, the slowest, waits for the
    // copying (a 1M-route replay: 280,000 routes/s, 292,000 with this).
    void run() {
        const id_t self = static_cast<id_t>(gettid());
        errno = 0;
        const int nice = getpriority(PRIO_PROCESS, self);
        if (errno == 0) setpriority(PRIO_PROCESS, self, std::min(nice + kLowerPriority, 19));
        std::unique_lock<std::mutex> lk(mu_);
        for (;;) {
            cv_.wait(lk, [&] { return stop_ || due_; });
            if (stop_) return;
            due_ = false;
            running_ = true;
            lk.unlock();
            sqlite3_wal_checkpoint_v2(db_, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
            lk.lock();
            running_ = false;
            cv_.notify_all();
        }
    }

    static constexpr int kLowerPriority = 10;  // added to the process's nice value
    sqlite3 *db_ = nullptr;
    int frames_ = 0;
    std::thread thread_;
    std::mutex mu_;
    std::condition_variable cv_;
    bool due_ = false, running_ = false, stop_ = false;
};

// A target that exists must be a database of ours (or be absent).
bool target_replaceable(const std::string &target, std::string &err) {
    struct stat st;
    if (stat(target.c_str(), &st) != 0) {
        if (errno == ENOENT && lstat(target.c_str(), &st) != 0) return true;
        err = target + ": " + strerror(errno);
        return false;
    }
    // A FIFO would block the open below until a writer came.
    if (!S_ISREG(st.st_mode)) {
        err = target + " exists and is not a regular file; not overwriting it";
        return false;
    }
    // A file we may not read could be anything: say so, not that it is no
    // database of ours.
    if (access(target.c_str(), R_OK) != 0) {
        err = "cannot read " + target + ": " + strerror(errno) + "; not overwriting it";
        return false;
    }
    sqlite3 *db = nullptr;
    bool ours = false;
    if (sqlite3_open_v2(target.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt *s = nullptr;
        if (sqlite3_prepare_v2(db, "PRAGMA application_id", -1, &s, nullptr) == SQLITE_OK &&
            sqlite3_step(s) == SQLITE_ROW)
            ours = sqlite3_column_int(s, 0) == sysdb_schema::kApplicationId;
        if (sqlite3_extended_errcode(db) == SQLITE_READONLY_ROLLBACK) {
            sqlite3_finalize(s);
            sqlite3_close(db);
            err = target + ": " + cerr_strerror(SYSDB_ERR_HOT_JOURNAL) + "; not overwriting it";
            return false;
        }
        sqlite3_finalize(s);
        // An older layout of ours is rebuilt from the snapshot; a newer one
        // belongs to a newer program and is left alone.
        s = nullptr;
        if (ours && sqlite3_prepare_v2(db, "PRAGMA user_version", -1, &s, nullptr) == SQLITE_OK &&
            sqlite3_step(s) == SQLITE_ROW) {
            const int version = sqlite3_column_int(s, 0);
            ours = version >= 1 && version <= sysdb_schema::kVersion;
        } else {
            ours = false;
        }
        sqlite3_finalize(s);
    }
    sqlite3_close(db);
    if (!ours)
        err = target + " exists and is not an EVPN operational database; not overwriting it";
    return ours;
}

// Removes the temp files that loaders killed part-way left beside target:
// "<target>.load-<pid>" of a process that no longer exists.
void remove_stale_temps(const std::string &target) {
    const size_t slash = target.find_last_of('/');
    const std::string dir = slash == std::string::npos ? "." : target.substr(0, slash + 1);
    const std::string prefix =
        (slash == std::string::npos ? target : target.substr(slash + 1)) + ".load-";
    DIR *d = opendir(dir.c_str());
    if (!d) return;
    while (const dirent *e = readdir(d)) {
        const char *name = e->d_name;
        if (strncmp(name, prefix.c_str(), prefix.size()) != 0) continue;
        char *end = nullptr;
        const long pid = strtol(name + prefix.size(), &end, 10);
        if (pid <= 0 || *end) continue;
        if (kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH)
            continue;  // its loader still runs, or may (no permission to tell)
        unlink((slash == std::string::npos ? std::string(name) : dir + name).c_str());
    }
    closedir(d);
}

// The file a path names once its symbolic links are followed (the path
// itself when it is none, or when the links go round). A link's target
// need not exist yet.
std::string follow_links(const std::string &path) {
    std::string at = path;
    for (int hops = 0; hops < 40; hops++) {
        struct stat st;
        if (lstat(at.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return at;
        std::vector<char> buf(static_cast<size_t>(st.st_size > 0 ? st.st_size : 255) + 1);
        ssize_t n = readlink(at.c_str(), buf.data(), buf.size() - 1);
        if (n < 0) return at;
        std::string to(buf.data(), static_cast<size_t>(n));
        const size_t slash = at.find_last_of('/');
        at = to[0] == '/' || slash == std::string::npos ? to : at.substr(0, slash + 1) + to;
    }
    return path;
}

}  // namespace

struct SysdbWriter::Impl {
    std::string target, temp;
    sqlite3 *db = nullptr;
    sqlite3_stmt *ins_list = nullptr, *ins_item = nullptr, *ins_index = nullptr,
                 *ins_cap = nullptr, *ins_if = nullptr, *ins_stats = nullptr, *ins_meta = nullptr;
    std::unordered_set<std::string> interface_names;
    // The worker's inserts of kRowsPerInsert rows in one statement.
    static constexpr size_t kRowsPerInsert = 32;
    sqlite3_stmt *ins_items = nullptr, *ins_indexes = nullptr;
    // ins_items and ins_indexes, each row of them added by `verb`.
    bool prepare_multirow(const char *verb) {
        std::string items_sql = std::string(verb) + " INTO item(list, skey, name, data) VALUES (?, ?, ?, ?)",
                    index_sql = std::string(verb) + " INTO item_index(list, ikey) VALUES (?, ?)";
        for (size_t i = 1; i < kRowsPerInsert; i++) {
            items_sql += ", (?, ?, ?, ?)";
            index_sql += ", (?, ?)";
        }
        return sqlite3_prepare_v2(db, items_sql.c_str(), -1, &ins_items, nullptr) == SQLITE_OK &&
               sqlite3_prepare_v2(db, index_sql.c_str(), -1, &ins_indexes, nullptr) == SQLITE_OK;
    }
    std::map<std::pair<std::string, std::string>, int64_t> lists;
    int64_t next_list = 1;
    bool committed = false;
    std::string encoded, packed, skey, name;
    std::vector<std::string> sort, text, ikeys;

    // Per listing and root, what add() would otherwise work out for every
    // record: the registry entry, the listing ids and the kept orderings.
    struct Target {
        const ListingDef *def;
        std::string base, root;  // as the caller named them
        int64_t list = -1;
        std::vector<std::vector<uint8_t>> orderings;
        std::vector<std::vector<uint8_t>> layouts;  // of each ordering's rows
        std::vector<const BagField *> key_fields;   // of def->keys
        std::vector<int64_t> ordering_lists;  // -1 until the first entry
        // Orderings holding a key field that is not an item-key field: an
        // item replaced may have had other rows there.
        std::vector<bool> volatile_rows;
        bool any_volatile = false;
        bool any = false;
        std::string last_skey;  // greatest sort key stored so far
    };
    std::vector<std::unique_ptr<Target>> targets;
    Target *last = nullptr;

    Target *target_of(const std::string &root, std::string_view base, std::string &err) {
        if (last && last->base == base && last->root == root) return last;
        for (auto &t : targets)
            if (t->base == base && t->root == root) return last = t.get();
        const ListingDef *l = sysdb_registry_find(base);
        if (!l) {
            err = "unknown listing " + std::string(base);
            return nullptr;
        }
        if (!sysdb_schema::valid_root(root.c_str())) {
            err = "unknown root " + root;
            return nullptr;
        }
        auto t = std::make_unique<Target>();
        if (!sysdb_keys::key_fields(*l, t->key_fields, err)) return nullptr;
        t->def = l;
        t->base = base;
        t->root = root;
        if (!l->singleton) t->orderings = sysdb_keys::stored_orderings(*l);
        for (const auto &o : t->orderings) t->layouts.push_back(sysdb_keys::row_layout(*l, o));
        t->ordering_lists.assign(t->orderings.size(), -1);
        for (const auto &layout : t->layouts) {
            bool v = false;
            for (uint8_t pos : layout)
                v = v || std::find(l->item_key.begin(), l->item_key.end(), pos) == l->item_key.end();
            t->volatile_rows.push_back(v);
            t->any_volatile = t->any_volatile || v;
        }
        targets.push_back(std::move(t));
        return last = targets.back().get();
    }

    // Items that come in key order (a snapshot's, the generator's) are
    // stored by a thread of their own while the caller parses and encodes
    // the next ones: the caller packs each record and builds its keys into a
    // batch, the worker inserts whole batches. An item in key order cannot
    // be a duplicate, so only a store failure can stop the worker; add() or
    // commit() reports it. Everything else (an item out of order, listing
    // rows, capabilities, ...) waits for the worker to finish first and runs
    // on the caller's thread: the connection is used by one thread at a time.
    struct Row {
        int64_t list;
        uint32_t key, key_len, name, name_len, data, data_len;
    };
    // Live mode's changes of stored items, done in their order, one row a
    // statement (a statement of one row needs no statement journal). A batch
    // holds new rows or these, never both: runs of each keep their order.
    enum class OpKind : uint8_t { ReplaceItem, DeleteItem, PutIndex, DeleteIndex };
    struct Op {
        OpKind kind;
        Row row;
    };
    struct Batch {
        std::string bytes;
        std::vector<Row> items, index;
        std::vector<Op> ops;
        bool in_key_order = false;  // index rows a load merged: stored, not held
        bool sort_rows = false;     // live new rows: stored in key order (sort_new_rows)
        bool descending = false;    // sorted: from the highest key down
        const char *then = nullptr;  // live: COMMIT or BEGIN, run after the rows
        // New rows, a load's or a live run (counted in queued_runs while queued).
        bool has_rows() const { return !items.empty() || !index.empty(); }
    };
    static constexpr size_t kBatchBytes = 512 * 1024, kQueued = 2;
    // Live mode hands changes of stored items over in small batches: a
    // commit waits for the queue.
    static constexpr size_t kLiveBatchBytes = 64 * 1024;
    // Live mode's new rows go over in runs of up to this many bytes, each
    // sorted by key before it is stored (sort_new_rows). Routes arrive in
    // no key order: unsorted, every insert lands on another leaf of each key
    // index, which at a million routes spans 110 MB, and the worker spends
    // its time fetching pages. Sorted, a run's inserts walk each index from
    // left to right, several to a leaf. One run is queued at most, so that
    // three are held at a time (filled, queued, stored): 24 MiB.
    static constexpr size_t kLiveRunBytes = 8 << 20, kLiveQueued = 1;
    // Batches without rows (changes of stored items, a BEGIN or COMMIT) do
    // not count against max_queued, so that the caller goes on filling the
    // next run while the worker commits; at most this many wait at a time.
    static constexpr size_t kSmallQueued = 64;
    size_t batch_bytes = kBatchBytes, run_bytes = kBatchBytes, max_queued = kQueued;
    // Live: the size the run being filled is handed over at. The first runs
    // are smaller (from kLiveFirstRun, doubling), so that the worker starts
    // storing soon after the changes start instead of a whole run later.
    static constexpr size_t kLiveFirstRun = 512 * 1024;
    size_t run_fill = kBatchBytes;
    std::thread worker;
    std::mutex mu;
    std::condition_variable cv;
    std::deque<std::unique_ptr<Batch>> queued;
    size_t queued_runs = 0;
    // Emptied batches kept for reuse: those that held rows keep a run's room,
    // the others a small batch's, so that small ones queued together do not
    // each hold a run's memory.
    std::vector<std::unique_ptr<Batch>> spare_runs, spare_small;
    std::unique_ptr<Batch> filling;
    bool busy = false, stop = false;
    // Live commits queued to the worker and not yet done; whether one was
    // queued since the caller last saw the worker's state.
    size_t commits_queued = 0;
    bool committed_behind = false;
    std::atomic<bool> worker_failed{false};
    std::string worker_err;

    // A key's first 16 bytes as two big-endian numbers, zero-padded: most
    // comparisons in the store's order end there (an address ordering's rows
    // share their first ten bytes).
    struct KeyHead {
        uint64_t w[2];
        static KeyHead of(const uint8_t *key, uint32_t len) {
            KeyHead h{{0, 0}};
            for (uint32_t i = 0; i < 16; i++) h.w[i / 8] = h.w[i / 8] << 8 | (i < len ? key[i] : 0);
            return h;
        }
    };
    // The store's order of two keys (memcmp, then length), each given by its
    // head, the bytes past the head and its length: <0, 0 or >0.
    static int key_cmp(const KeyHead &a, const char *a_tail, uint32_t a_len, const KeyHead &b, const char *b_tail,
                       uint32_t b_len) {
        if (a.w[0] != b.w[0]) return a.w[0] < b.w[0] ? -1 : 1;
        if (a.w[1] != b.w[1]) return a.w[1] < b.w[1] ? -1 : 1;
        const uint32_t n = std::min(a_len, b_len);
        const int c = n > 16 ? memcmp(a_tail, b_tail, n - 16) : 0;
        if (c != 0) return c;
        return a_len == b_len ? 0 : a_len < b_len ? -1 : 1;
    }

    // The store's order of (list, key) rows: list, then the key.
    struct SortKey {
        int64_t list;
        KeyHead head;
        uint32_t at;  // the row's position in its batch: equal keys keep their order
    };
    std::vector<SortKey> sort_keys;
    std::vector<Row> sorted_rows;

    void sort_rows_of(const std::string &bytes, std::vector<Row> &rows, bool descending) {
        if (rows.size() < 2) return;
        const char *base = bytes.data();
        sort_keys.resize(rows.size());
        for (uint32_t i = 0; i < rows.size(); i++) {
            const Row &r = rows[i];
            sort_keys[i] = {r.list, KeyHead::of(reinterpret_cast<const uint8_t *>(base) + r.key, r.key_len), i};
        }
        std::sort(sort_keys.begin(), sort_keys.end(), [&](const SortKey &a, const SortKey &b) {
            if (a.list != b.list) return (a.list < b.list) != descending;
            const Row &x = rows[a.at], &y = rows[b.at];
            const int c = key_cmp(a.head, base + x.key + 16, x.key_len, b.head, base + y.key + 16, y.key_len);
            return c != 0 ? (c < 0) != descending : a.at < b.at;
        });
        sorted_rows.clear();
        for (const SortKey &k : sort_keys) sorted_rows.push_back(rows[k.at]);
        rows.swap(sorted_rows);
    }

    // A live batch's new items and index rows, each in the store's order,
    // every other run from the highest key down: a run walks each key index
    // end to end, and the indexes of a large store outgrow the page cache,
    // which then keeps only the pages a walk met last. The next walk starts
    // among them instead of where they have all been dropped (a million
    // routes: a sixth fewer pages written to the log and read back). Equal
    // keys keep their order, so the first of two stays (the inserts skip
    // conflicts), as it would unsorted.
    bool next_descending = false;
    void sort_new_rows(Batch &b) {
        b.descending = next_descending;
        next_descending = !next_descending;
        sort_rows_of(b.bytes, b.items, b.descending);
        sort_rows_of(b.bytes, b.index, b.descending);
    }

    // Copies a sorted run's bytes into room (big enough: no allocation) in
    // the order of its rows, which then point into the copy, and swaps the
    // two buffers: the run holds the copy, room the old buffer, emptied. The
    // worker then reads the run front to back instead of all over it: a
    // 1M-route replay's storing thread took about 11% less CPU, its cache
    // misses gone.
    static void lay_out_in_order(Batch &b, std::string &room) {
        room.clear();
        auto move = [&](uint32_t &off, uint32_t len) {
            const auto at = static_cast<uint32_t>(room.size());
            room.append(b.bytes, off, len);
            off = at;
        };
        for (Row &r : b.items) {
            move(r.key, r.key_len);
            move(r.name, r.name_len);
            move(r.data, r.data_len);
        }
        for (Row &r : b.index) move(r.key, r.key_len);
        b.bytes.swap(room);
        room.clear();
    }

    // Rows of a batch, kRowsPerInsert to a statement while that many are left.
    bool store(Batch &b, std::string &err) {
        if (b.sort_rows) sort_new_rows(b);
        auto view = [&](uint32_t off) { return b.bytes.data() + off; };
        auto bind_item = [&](sqlite3_stmt *s, int at, const Row &r) {
            sqlite3_bind_int64(s, at + 1, r.list);
            sqlite3_bind_blob(s, at + 2, view(r.key), static_cast<int>(r.key_len), SQLITE_STATIC);
            sqlite3_bind_text(s, at + 3, view(r.name), static_cast<int>(r.name_len), SQLITE_STATIC);
            sqlite3_bind_blob(s, at + 4, view(r.data), static_cast<int>(r.data_len), SQLITE_STATIC);
        };
        auto bind_index = [&](sqlite3_stmt *s, int at, const Row &r) {
            sqlite3_bind_int64(s, at + 1, r.list);
            sqlite3_bind_blob(s, at + 2, view(r.key), static_cast<int>(r.key_len), SQLITE_STATIC);
        };
        auto insert = [&](const std::vector<Row> &rows, sqlite3_stmt *many, sqlite3_stmt *one,
                          int columns, auto bind) {
            size_t i = 0;
            for (; i + kRowsPerInsert <= rows.size(); i += kRowsPerInsert) {
                sqlite3_reset(many);
                for (size_t k = 0; k < kRowsPerInsert; k++)
                    bind(many, static_cast<int>(k) * columns, rows[i + k]);
                if (sqlite3_step(many) != SQLITE_DONE) return false;
            }
            for (; i < rows.size(); i++) {
                sqlite3_reset(one);
                bind(one, 0, rows[i]);
                if (sqlite3_step(one) != SQLITE_DONE) return false;
            }
            return true;
        };
        auto store_index = [&] {
            if (defer_index && !b.in_key_order) {
                hold_index(b);
                return held_bytes < held_limit || store_held(err);
            }
            return insert(b.index, ins_indexes, ins_index, 2, bind_index) || fail(err, "index rows");
        };
        // Descending, the index rows go first: the run ends where the next
        // (ascending) one begins, with the items.
        if (b.descending && !store_index()) return false;
        if (!insert(b.items, ins_items, ins_item, 4, bind_item)) return fail(err, "items");
        if (!b.descending && !store_index()) return false;
        for (const Op &op : b.ops) {
            sqlite3_stmt *st = op.kind == OpKind::ReplaceItem  ? put_item
                               : op.kind == OpKind::DeleteItem ? del_item
                               : op.kind == OpKind::PutIndex   ? put_index
                                                               : del_index;
            sqlite3_reset(st);
            if (op.kind == OpKind::ReplaceItem) bind_item(st, 0, op.row);
            else bind_index(st, 0, op.row);
            if (sqlite3_step(st) != SQLITE_DONE) return fail(err, "changing an item");
        }
        return !b.then || exec(db, b.then, err);
    }

    // A load's index rows are held back and stored in key order. Items come
    // in their own key order, so each ordering's rows come in none, and a
    // b-tree filled at random is slow: at 200k routes they took the worker
    // 0.31 s of CPU, where storing every row of the load in key order (items
    // and index) takes 0.26 s. The worker, mostly idle while
    // the caller parses, sorts them in runs as they come; commit() merges the
    // runs into the store. Up to kHeldBytes are held (a million MAC routes
    // take about 110 MiB), then stored the same way, so a snapshot of any
    // size loads in bounded memory.
    struct Held {
        KeyHead head;
        uint32_t off, len;  // of the bytes past the head, in held_tails; the key's length
    };
    struct HeldList {
        int64_t list;
        std::vector<Held> rows;
        std::vector<size_t> runs;  // where each sorted run of rows ends
    };
    static constexpr size_t kHeldBytes = size_t(128) << 20, kRunRows = 1 << 16;
    size_t held_limit = kHeldBytes;  // set before the first record only
    bool defer_index = false;
    // Sorting all but the first listing's held rows waits for commit, where
    // a thread of its own does it beside the first one's merge; set with
    // store_on_caller, whose thread has the parse's heavier share.
    bool sort_beside = false;
    std::string held_tails;
    std::vector<HeldList> held;  // one per index listing
    size_t held_bytes = 0;

    static bool held_less(const char *tails, const Held &a, const Held &b) {
        return key_cmp(a.head, tails + a.off, a.len, b.head, tails + b.off, b.len) < 0;
    }

    // Sorts the rows not yet in a run, in runs of at most kRunRows: a run
    // sorts within the processor's cache (one sort of a million rows took
    // twice as long as sixteen runs and their merge).
    void sort_run(HeldList &h) {
        const char *tails = held_tails.data();
        for (size_t from = h.runs.empty() ? 0 : h.runs.back(); from < h.rows.size();) {
            const size_t to = std::min(h.rows.size(), from + kRunRows);
            std::sort(h.rows.begin() + static_cast<ptrdiff_t>(from), h.rows.begin() + static_cast<ptrdiff_t>(to),
                      [tails](const Held &a, const Held &b) { return held_less(tails, a, b); });
            h.runs.push_back(to);
            from = to;
        }
    }

    void hold_index(const Batch &b) {
        if (held_tails.capacity() < held_limit) held_tails.reserve(held_limit / 2 + kBatchBytes);
        HeldList *to = nullptr;
        for (const Row &r : b.index) {
            if (!to || to->list != r.list) {
                to = nullptr;
                for (HeldList &h : held)
                    if (h.list == r.list) to = &h;
                if (!to) {
                    // Room for a quarter of the bound's rows up front: a
                    // vector grown by doubling copies its rows and faults in
                    // fresh pages each time; pages never touched take no memory.
                    to = &held.emplace_back(HeldList{r.list, {}, {}});
                    to->rows.reserve(held_limit / sizeof(Held) / 4);
                }
            }
            const uint8_t *key = reinterpret_cast<const uint8_t *>(b.bytes.data()) + r.key;
            const Held h{KeyHead::of(key, r.key_len), static_cast<uint32_t>(held_tails.size()), r.key_len};
            if (r.key_len > 16) held_tails.append(reinterpret_cast<const char *>(key) + 16, r.key_len - 16);
            to->rows.push_back(h);
            held_bytes += sizeof(Held) + (r.key_len > 16 ? r.key_len - 16 : 0);
        }
        // Only the listing merged first is sorted in runs as its rows come;
        // the others are sorted at commit beside its merge (merge_held).
        int64_t first = INT64_MAX;
        for (const HeldList &h : held) first = std::min(first, h.list);
        for (HeldList &h : held)
            if ((h.list == first || !sort_beside) &&
                h.rows.size() - (h.runs.empty() ? 0 : h.runs.back()) >= kRunRows)
                sort_run(h);
    }

    // Calls emit(list, key) for every held row, each listing's runs merged
    // into key order, then lets the rows go.
    template <class Emit>
    void merge_held(Emit emit, bool beside = false) {
        const char *tails = held_tails.data();
        std::string key;
        std::sort(held.begin(), held.end(), [](const HeldList &a, const HeldList &b) { return a.list < b.list; });
        // Every listing but the first sorted on a thread of its own while the
        // first is merged and stored.
        std::thread sorter;
        if (beside && held.size() > 1)
            sorter = std::thread([this] {
                for (size_t i = 1; i < held.size(); i++) sort_run(held[i]);
            });
        for (HeldList &h : held) {
            if (&h != &held[0] && sorter.joinable()) sorter.join();
            sort_run(h);
            // Each run's next row; the heap's top is the least of them.
            std::vector<std::pair<size_t, size_t>> next;  // (at, end) per run
            for (size_t i = 0, from = 0; i < h.runs.size(); from = h.runs[i++]) next.emplace_back(from, h.runs[i]);
            auto later = [&](const std::pair<size_t, size_t> &a, const std::pair<size_t, size_t> &b) {
                return held_less(tails, h.rows[b.first], h.rows[a.first]);
            };
            std::make_heap(next.begin(), next.end(), later);
            while (!next.empty()) {
                std::pop_heap(next.begin(), next.end(), later);
                const Held &r = h.rows[next.back().first];
                key.clear();
                for (uint32_t i = 0; i < 16 && i < r.len; i++)
                    key.push_back(static_cast<char>(r.head.w[i / 8] >> (56 - 8 * (i % 8))));
                if (r.len > 16) key.append(tails + r.off, r.len - 16);
                if (++next.back().first == next.back().second) next.pop_back();
                else std::push_heap(next.begin(), next.end(), later);
                emit(h.list, key);
            }
            h.rows.clear();
            h.runs.clear();
        }
        held_tails.clear();
        held_bytes = 0;
    }

    // Stores the held rows in key order on this thread (the worker's, when
    // they pass held_limit).
    bool store_held(std::string &err) {
        std::string keys[kRowsPerInsert];
        size_t filled = 0;
        int64_t at = -1;
        bool ok = true;
        auto bind = [&](sqlite3_stmt *s, int param, const std::string &key) {
            sqlite3_bind_int64(s, param, at);
            sqlite3_bind_blob(s, param + 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
        };
        auto flush = [&]() {
            if (ok && filled == kRowsPerInsert) {
                sqlite3_reset(ins_indexes);
                for (size_t j = 0; j < filled; j++) bind(ins_indexes, static_cast<int>(2 * j + 1), keys[j]);
                ok = sqlite3_step(ins_indexes) == SQLITE_DONE;
            }
            for (size_t j = 0; ok && filled < kRowsPerInsert && j < filled; j++) {
                sqlite3_reset(ins_index);
                bind(ins_index, 1, keys[j]);
                ok = sqlite3_step(ins_index) == SQLITE_DONE;
            }
            filled = 0;
        };
        merge_held([&](int64_t list, const std::string &key) {
            if (list != at || filled == kRowsPerInsert) flush();
            at = list;
            keys[filled++] = key;
        });
        flush();
        return ok || fail(err, "index rows");
    }

    // The same at commit, with the worker idle: this thread merges, the
    // worker stores what it is handed meanwhile.
    bool hand_over_held(std::string &err) {
        merge_held([&](int64_t list, const std::string &key) {
            Batch &b = batch();
            b.in_key_order = true;
            b.index.push_back({list, static_cast<uint32_t>(b.bytes.size()), static_cast<uint32_t>(key.size()),
                               0, 0, 0, 0});
            b.bytes += key;
            if (b.bytes.size() >= kBatchBytes) submit();
        }, sort_beside);
        return drain(err);
    }

    void work() {
        std::unique_lock<std::mutex> lk(mu);
        for (;;) {
            cv.wait(lk, [&] { return stop || !queued.empty(); });
            if (queued.empty()) return;
            std::unique_ptr<Batch> b = std::move(queued.front());
            queued.pop_front();
            if (b->has_rows()) queued_runs--;
            busy = true;
            const bool skip = worker_failed.load();
            lk.unlock();
            std::string e;
            const bool ok = skip || store(*b, e);
            lk.lock();
            busy = false;
            if (b->then == kCommit) commits_queued--;
            if (!ok) {
                worker_err = e;
                worker_failed = true;
            }
            const bool held_rows = b->has_rows();
            empty(*b);
            (held_rows ? spare_runs : spare_small).push_back(std::move(b));
            cv.notify_all();
        }
    }

    static void empty(Batch &b) {
        b.bytes.clear();
        b.items.clear();
        b.index.clear();
        b.ops.clear();
        b.in_key_order = false;
        b.sort_rows = false;
        b.descending = false;
        b.then = nullptr;
    }

    // The batch being filled; rows: taken from the spare batches that held
    // rows before (a load's batches all do).
    Batch &batch(bool rows = true) {
        if (!filling) {
            std::lock_guard<std::mutex> lk(mu);
            auto &pool = rows ? spare_runs : spare_small;
            if (pool.empty()) {
                filling = std::make_unique<Batch>();
            } else {
                filling = std::move(pool.back());
                pool.pop_back();
            }
        }
        return *filling;
    }

    // The batch to add live changes to: changes of stored items (ops) or new
    // rows, a batch holding the other kind handed over first.
    Batch &batch_for(bool ops) {
        if (filling && (ops ? filling->has_rows() : !filling->ops.empty()))
            submit();
        return batch(!ops);
    }
    static uint32_t put(Batch &b, std::string_view v) {
        b.bytes.append(v);
        return static_cast<uint32_t>(b.bytes.size() - v.size());
    }

    // A load's caller that runs beside a parser of its own stores its
    // batches itself until commit, whose merge hands them to the worker.
    bool store_on_caller = false;

    // Hands the batch being filled to the worker (started with the first).
    void submit() {
        if (!filling || (!filling->has_rows() && filling->ops.empty() && !filling->then)) return;
        if (store_on_caller) {
            std::string e;
            if (!worker_failed && !store(*filling, e)) {
                worker_err = e;
                worker_failed = true;
            }
            empty(*filling);
            return;
        }
        if (!worker.joinable()) worker = std::thread([this] { work(); });
        // Live: the worker does the commits, so the caller sorts the run.
        const bool sorted = filling->sort_rows;
        if (sorted) {
            sort_new_rows(*filling);
            filling->sort_rows = false;
        }
        std::unique_lock<std::mutex> lk(mu);
        if (filling->has_rows()) {
            cv.wait(lk, [&] { return queued_runs < max_queued; });
            // The run the worker stored last is back among the spares by now:
            // its room takes the copy, so that no fourth run's worth of
            // memory is held (nor any freed and taken again, which moves
            // the C library's threshold for mapping large blocks). The first
            // runs, before there is such a spare, go as they are.
            if (sorted && !spare_runs.empty() &&
                spare_runs.back()->bytes.capacity() >= filling->bytes.size()) {
                std::unique_ptr<Batch> room = std::move(spare_runs.back());
                spare_runs.pop_back();
                lk.unlock();
                lay_out_in_order(*filling, room->bytes);
                lk.lock();
                spare_runs.push_back(std::move(room));
            }
            queued_runs++;
        } else {
            cv.wait(lk, [&] { return queued.size() - queued_runs < kSmallQueued; });
        }
        queued.push_back(std::move(filling));
        cv.notify_all();
    }

    // A load's file goes to the disk as it grows rather than all at its
    // sync: every 64 batches, the pages up to 32 MiB short of its end are
    // queued for writing once 64 MiB of them wait. They seldom change again;
    // one that does is written twice. Queuing 64 MiB blocks for some 35 ms,
    // so a thread of its own does it, off the storing thread.
    int sync_fd = -1;
    off_t synced = 0, sync_to = 0;  // written back so far; asked for
    size_t batches = 0;
    std::thread syncer;
    std::mutex sync_mu;
    std::condition_variable sync_cv;
    bool sync_stop = false;
    void write_back() {
        if (++batches % 64) return;
        if (sync_fd < 0) sync_fd = ::open(temp.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat st;
        if (sync_fd < 0 || fstat(sync_fd, &st) != 0) return;
        const off_t upto = st.st_size - (off_t(32) << 20);
        {
            std::lock_guard<std::mutex> lk(sync_mu);
            if (upto - sync_to < (off_t(64) << 20)) return;
            sync_to = upto;
        }
        if (!syncer.joinable()) syncer = std::thread([this] { sync_ahead(); });
        sync_cv.notify_one();
    }
    void sync_ahead() {
        std::unique_lock<std::mutex> lk(sync_mu);
        for (;;) {
            sync_cv.wait(lk, [&] { return sync_stop || sync_to > synced; });
            if (sync_to <= synced) return;
            const off_t from = synced, to = sync_to;
            lk.unlock();
            sync_file_range(sync_fd, from, to - from, SYNC_FILE_RANGE_WRITE);
            lk.lock();
            synced = to;
        }
    }
    void stop_syncer() {
        if (!syncer.joinable()) return;
        {
            std::lock_guard<std::mutex> lk(sync_mu);
            sync_stop = true;
            sync_to = synced;  // what is not queued yet is left to the sync
        }
        sync_cv.notify_one();
        syncer.join();
    }

    // Waits until the worker has stored all it was given; false with its error.
    bool drain(std::string &err) {
        submit();
        std::unique_lock<std::mutex> lk(mu);
        cv.wait(lk, [&] { return queued.empty() && !busy; });
        committed_behind = false;
        if (worker_failed) {
            err = worker_err;
            return false;
        }
        return true;
    }

    static constexpr const char *kCommit = "COMMIT", *kBegin = "BEGIN IMMEDIATE";

    // Live: the transaction's COMMIT queued behind its last rows, so that the
    // caller goes on while the worker stores and commits. A commit queued
    // before must be done first, and its failure is reported here.
    bool commit_behind(std::string &err) {
        {
            std::unique_lock<std::mutex> lk(mu);
            cv.wait(lk, [&] { return commits_queued == 0; });
            if (worker_failed) {
                lk.unlock();
                return drain(err);
            }
            commits_queued++;
        }
        batch(false).then = kCommit;
        submit();
        committed_behind = true;
        in_txn = false;
        return true;
    }

    // Live: BEGIN on this thread when the worker is idle, else queued behind
    // the commit it is doing (the connection serves one thread at a time).
    bool begin_live(std::string &err) {
        bool idle;
        {
            std::lock_guard<std::mutex> lk(mu);
            idle = queued.empty() && !busy && (!filling || !filling->then);
            if (worker_failed) idle = true;  // drain reports it
        }
        if (idle) {
            if (!drain(err) || !exec(db, kBegin, err)) return false;
        } else {
            batch(false).then = kBegin;
            submit();
        }
        in_txn = true;
        return true;
    }

    void stop_worker() {
        if (!worker.joinable()) return;
        {
            std::lock_guard<std::mutex> lk(mu);
            stop = true;
        }
        cv.notify_all();
        worker.join();
    }

    // Live mode's statements and state.
    LogCheckpointer checkpointer;
    bool live = false, in_txn = false;
    sqlite3_stmt *put_item = nullptr, *get_item = nullptr, *del_item = nullptr,
                 *put_index = nullptr, *del_index = nullptr;
    std::string old_data;
    std::vector<uint64_t> old_record;
    std::vector<std::string> new_ikeys;

    void finalize_all() {
        for (sqlite3_stmt **s : {&ins_list, &ins_item, &ins_index, &ins_cap, &ins_if, &ins_stats,
                                 &ins_meta, &ins_items, &ins_indexes, &put_item, &get_item,
                                 &del_item, &put_index, &del_index}) {
            sqlite3_finalize(*s);
            *s = nullptr;
        }
    }

    // Live: what is not committed is dropped; the file goes back to the
    // rollback journal, so that it stays readable without its -wal and -shm.
    bool close_live(std::string &err) {
        if (!db) return true;
        std::string lost;
        // What is not committed is rolled back below in any case; a commit
        // queued and failed is an error to report.
        const bool behind = committed_behind;
        const bool drained = drain(lost);
        stop_worker();
        checkpointer.stop();  // its connection closed: the log is this one's to end
        finalize_all();
        if (!sqlite3_get_autocommit(db)) sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
        in_txn = false;
        bool ok = exec(db, "PRAGMA wal_checkpoint(TRUNCATE); PRAGMA journal_mode = DELETE", err);
        if (!drained && behind) {
            err = lost;
            ok = false;
        }
        if (sqlite3_close(db) != SQLITE_OK && ok) {
            err = "closing " + target + " failed";
            ok = false;
        }
        db = nullptr;
        return ok;
    }

    ~Impl() {
        stop_worker();
        stop_syncer();
        if (sync_fd >= 0) ::close(sync_fd);
        if (live) {
            std::string ignored;
            close_live(ignored);
        }
        finalize_all();
        if (db) sqlite3_close(db);
        if (!committed && !temp.empty()) unlink(temp.c_str());
    }

    bool fail(std::string &err, const std::string &what) {
        err = what + ": " + sqlite3_errmsg(db);
        return false;
    }

    int64_t list_id(const std::string &root, const std::string &path, const char *type,
                    std::string &err) {
        auto key = std::make_pair(root, path);
        auto it = lists.find(key);
        if (it != lists.end()) return it->second;
        if (!drain(err)) return -1;
        int64_t id = next_list++;
        sqlite3_reset(ins_list);
        sqlite3_bind_int64(ins_list, 1, id);
        sqlite3_bind_text(ins_list, 2, root.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(ins_list, 3, path.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(ins_list, 4, type, -1, SQLITE_STATIC);
        if (sqlite3_step(ins_list) != SQLITE_DONE) {
            fail(err, "listing " + path);
            return -1;
        }
        lists.emplace(key, id);
        return id;
    }

    // Item name and sort key of the record whose key fields are in sort and
    // text (as sysdb_keys::item_name / item_skey make them), built in buffers
    // kept across records. Every writer path names its items here, so none
    // stores a name a walk could not resume after.
    bool item_key(const ListingDef &l, std::string &err) {
        skey.clear();
        name.clear();
        for (size_t i = 0; i < l.item_key.size(); i++) {
            if (i) name.push_back(',');
            name += text[l.item_key[i]];
            skey += sort[l.item_key[i]];
        }
        if (name.size() <= SYSDB_MAX_ITEM_NAME) return true;
        // The longest key text is the one to shorten.
        uint8_t longest = l.item_key[0];
        for (uint8_t pos : l.item_key)
            if (text[pos].size() > text[longest].size()) longest = pos;
        err = std::string(l.keys[longest].field) + ": makes an item name of " +
              std::to_string(name.size()) + " bytes (this field " +
              std::to_string(text[longest].size()) + "); item names hold at most " +
              std::to_string(SYSDB_MAX_ITEM_NAME);
        return false;
    }

    bool insert_item(int64_t list, const std::string &skey, const std::string &name,
                     std::string_view data, const std::string &base, std::string &err) {
        packed.clear();
        sysdb_schema::pack_record(data.data(), data.size(), packed);
        sqlite3_reset(ins_item);
        sqlite3_bind_int64(ins_item, 1, list);
        sqlite3_bind_blob(ins_item, 2, skey.data(), static_cast<int>(skey.size()), SQLITE_STATIC);
        sqlite3_bind_text(ins_item, 3, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
        sqlite3_bind_blob(ins_item, 4, packed.data(), static_cast<int>(packed.size()), SQLITE_STATIC);
        int rc = sqlite3_step(ins_item);
        if (rc == SQLITE_CONSTRAINT) {
            err = "duplicate item " + (name.empty() ? base : base + "/" + name);
            return false;
        }
        return rc == SQLITE_DONE || fail(err, "item " + base + "/" + name);
    }

    // Item name, sort key and index rows of a record (as sysdb_keys::item_name
    // and item_skey make them) into skey, name and ikeys, one per stored
    // ordering (empty: the record has no row there), in buffers kept across
    // records.
    bool keys_of(Target &t, const void *record, std::string &err) {
        const ListingDef *l = t.def;
        if (!sysdb_keys::from_record(*l, t.key_fields.data(), record, sort, text, err)) return false;
        for (uint8_t pos : l->item_key)
            if (sort[pos].empty()) {
                err = std::string("key field ") + l->keys[pos].field + " is empty";
                return false;
            }
        if (!item_key(*l, err)) return false;
        ikeys.resize(t.orderings.size());
        for (size_t o = 0; o < t.orderings.size(); o++) {
            std::string &ikey = ikeys[o];
            ikey.clear();
            for (uint8_t pos : t.layouts[o]) {
                if (sort[pos].empty()) {
                    ikey.clear();
                    break;
                }
                ikey += sort[pos];
            }
        }
        return true;
    }

    // The record encoded into `encoded`; its target, with the listing row made
    // on first use, or null with err set.
    Target *encode_into(const std::string &root, std::string_view base, const void *record,
                        std::string &err) {
        Target *t = target_of(root, base, err);
        if (!t) return nullptr;
        const ListingDef *l = t->def;
        encoded.clear();
        if (uint32_t rc = bag_encode(record, l->desc, encoded)) {
            err = std::string("cannot encode ") + l->desc->name + ": " + cerr_strerror(rc);
            return nullptr;
        }
        if (t->list < 0 && (t->list = list_id(root, t->base, l->desc->name, err)) < 0) return nullptr;
        return t;
    }

    // The listing row of a stored ordering, made with its first entry.
    int64_t ordering_list(Target &t, size_t o, std::string &err) {
        int64_t &ix = t.ordering_lists[o];
        if (ix < 0)
            ix = list_id(t.root, sysdb_keys::ordering_path(*t.def, t.orderings[o]), t.def->desc->name,
                         err);
        return ix;
    }

    bool insert_index(int64_t list, const std::string &ikey, std::string &err) {
        sqlite3_reset(ins_index);
        sqlite3_bind_int64(ins_index, 1, list);
        sqlite3_bind_blob(ins_index, 2, ikey.data(), static_cast<int>(ikey.size()), SQLITE_STATIC);
        return sqlite3_step(ins_index) == SQLITE_DONE || fail(err, "index of " + name);
    }
};

SysdbWriter::SysdbWriter(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

void SysdbWriter::hold_index_bytes(size_t limit) { impl_->held_limit = limit; }
void SysdbWriter::store_on_caller() { impl_->store_on_caller = impl_->sort_beside = !impl_->live; }
SysdbWriter::~SysdbWriter() = default;

std::unique_ptr<SysdbWriter> SysdbWriter::open(const std::string &named, std::string &err, int page_size) {
    // A link is followed: its target is replaced (built and renamed in the
    // target's directory), the link stays.
    const std::string target = follow_links(named);
    if (!target_replaceable(target, err)) return nullptr;
    auto impl = std::make_unique<Impl>();
    impl->target = target;
    impl->defer_index = true;
    remove_stale_temps(target);
    impl->temp = target + ".load-" + std::to_string(getpid());
    unlink(impl->temp.c_str());
    // No connection mutex: the writer's two threads take turns (see Impl).
    if (sqlite3_open_v2(impl->temp.c_str(), &impl->db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
        err = "cannot create " + impl->temp + ": " + sqlite3_errmsg(impl->db);
        return nullptr;
    }
    // No journal: the file is new and renamed into place only when whole.
    // 8 KiB pages for a load: a short read (one route, a filtered listing)
    // reads and holds half the bytes per page it visits than with 16 KiB
    // ones, which loaded and walked no faster. A live store takes 32 KiB
    // (kLivePageSize): its random inserts write half the log frames of 16 KiB.
    // A 64 MiB cache keeps a load's memory flat.
    char pragmas[256];
    snprintf(pragmas, sizeof pragmas,
             "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; PRAGMA page_size = %d;"
             "PRAGMA cache_size = -65536; PRAGMA application_id = %d; PRAGMA user_version = %d;",
             page_size, sysdb_schema::kApplicationId, sysdb_schema::kVersion);
    if (!exec(impl->db, pragmas, err) || !exec(impl->db, sysdb_schema::kCreate, err) ||
        !exec(impl->db, "BEGIN", err))
        return nullptr;
    struct {
        sqlite3_stmt **s;
        const char *sql;
    } stmts[] = {
        {&impl->ins_list, SYSDB_INSERT_LISTING},
        {&impl->ins_item, "INSERT INTO item(list, skey, name, data) VALUES (?1, ?2, ?3, ?4)"},
        {&impl->ins_index, "INSERT INTO item_index(list, ikey) VALUES (?1, ?2)"},
        {&impl->ins_cap,
         "INSERT OR REPLACE INTO attribute(kind, key, key2, v1) VALUES (" SYSDB_KIND_CAPABILITY ", ?1, 0, ?2)"},
        {&impl->ins_if,
         "INSERT INTO attribute(kind, key, key2, v1, v2) VALUES (" SYSDB_KIND_INTERFACE ", ?1, 0, ?2, ?3)"},
        {&impl->ins_meta, "INSERT OR REPLACE INTO attribute(kind, key, key2, v1) VALUES (" SYSDB_KIND_FACT ", ?1, 0, ?2)"},
    };
    for (auto &st : stmts)
        if (sqlite3_prepare_v2(impl->db, st.sql, -1, st.s, nullptr) != SQLITE_OK) {
            err = sqlite3_errmsg(impl->db);
            return nullptr;
        }
    // The worker's rows are new by construction (items in key order, their
    // index rows holding every item-key field), so a conflict cannot occur;
    // a statement that cannot abort keeps no statement journal.
    if (!impl->prepare_multirow("INSERT OR IGNORE")) {
        err = sqlite3_errmsg(impl->db);
        return nullptr;
    }
    if (sqlite3_prepare_v2(impl->db,
                           "INSERT INTO attribute(kind, key, key2, v1) VALUES (" SYSDB_KIND_BD_STATS ", ?2, ?1, ?3)",
                           -1, &impl->ins_stats, nullptr) != SQLITE_OK) {
        err = sqlite3_errmsg(impl->db);
        return nullptr;
    }
    return std::unique_ptr<SysdbWriter>(new SysdbWriter(std::move(impl)));
}

bool SysdbWriter::add(const std::string &root, std::string_view base, const void *record,
                      std::string &err) {
    Impl &m = *impl_;
    Impl::Target *t = m.encode_into(root, base, record, err);
    if (!t) return false;
    const ListingDef *l = t->def;
    if (l->singleton) return m.drain(err) && m.insert_item(t->list, std::string(), l->base, m.encoded, l->base, err);

    if (!m.keys_of(*t, record, err)) return false;
    std::string &skey = m.skey, &name = m.name;
    if (m.worker_failed) return m.drain(err);
    const bool in_order = !t->any || skey > t->last_skey;
    if (in_order) {
        t->any = true;
        t->last_skey = skey;
        Impl::Batch &b = m.batch();
        auto put = [&](std::string_view v) {
            b.bytes.append(v);
            return static_cast<uint32_t>(b.bytes.size() - v.size());
        };
        Impl::Row r{t->list, put(skey), static_cast<uint32_t>(skey.size()), put(name),
                    static_cast<uint32_t>(name.size()), static_cast<uint32_t>(b.bytes.size()), 0};
        sysdb_schema::pack_record(m.encoded.data(), m.encoded.size(), b.bytes);
        r.data_len = static_cast<uint32_t>(b.bytes.size() - r.data);
        b.items.push_back(r);
    } else {
        if (!m.drain(err) || !m.insert_item(t->list, skey, name, m.encoded, l->base, err)) return false;
    }

    for (size_t o = 0; o < t->orderings.size(); o++) {
        const std::string &ikey = m.ikeys[o];
        if (ikey.empty()) continue;  // an empty key text has no index entry
        int64_t ix = m.ordering_list(*t, o, err);
        if (ix < 0) return false;
        if (in_order) {
            Impl::Batch &b = m.batch();
            b.index.push_back({ix, static_cast<uint32_t>(b.bytes.size()),
                               static_cast<uint32_t>(ikey.size()), 0, 0, 0, 0});
            b.bytes += ikey;
            continue;
        }
        if (!m.insert_index(ix, ikey, err)) return false;
    }
    if (in_order && m.filling && m.filling->bytes.size() >= m.batch_bytes) {
        m.submit();
        m.write_back();
    }
    return true;
}

bool SysdbWriter::add_encoded(const std::string &root, std::string_view base,
                              std::string_view data, std::string &err) {
    const ListingDef *l = sysdb_registry_find(base);
    if (!l) {
        err = "unknown listing " + std::string(base);
        return false;
    }
    std::vector<uint64_t> buf((l->desc->size + 7) / 8 + 1);
    uint32_t rc = bag_decode(data.data(), static_cast<uint32_t>(data.size()), buf.data(),
                             static_cast<uint32_t>(buf.size() * 8), l->desc);
    if (rc) {
        err = std::string("record does not decode as ") + l->desc->name;
        return false;
    }
    bool ok = add(root, base, buf.data(), err);
    bag_free_indirections(buf.data(), l->desc);
    return ok;
}

bool SysdbWriter::add_raw(const std::string &root, std::string_view base, const std::string &name,
                          std::string_view data, std::string &err) {
    Impl &m = *impl_;
    if (!m.drain(err)) return false;
    const ListingDef *l = sysdb_registry_find(base);
    if (!l) {
        err = "unknown listing " + std::string(base);
        return false;
    }
    std::string skey;
    if (name.size() > SYSDB_MAX_ITEM_NAME) {
        err = "item name of " + std::to_string(name.size()) + " bytes; item names hold at most " +
              std::to_string(SYSDB_MAX_ITEM_NAME);
        return false;
    }
    if (!l->singleton && !sysdb_keys::skey_from_name(*l, name, skey)) {
        err = "item name " + name + " does not fit the keys of " + l->base;
        return false;
    }
    int64_t list = m.list_id(root, std::string(base), l->desc->name, err);
    return list >= 0 && m.insert_item(list, skey, l->singleton ? l->base : name, data, l->base, err);
}

bool SysdbWriter::set_capability(const std::string &name, int64_t value, std::string &err) {
    Impl &m = *impl_;
    if (!m.drain(err)) return false;
    sqlite3_reset(m.ins_cap);
    sqlite3_bind_text(m.ins_cap, 1, name.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_int64(m.ins_cap, 2, value);
    return sqlite3_step(m.ins_cap) == SQLITE_DONE || m.fail(err, "capability " + name);
}

bool SysdbWriter::add_interface(uint32_t handle, const std::string &name, const std::string &state,
                                std::string &err) {
    Impl &m = *impl_;
    if (!m.drain(err)) return false;
    // Interface names and states reach the reports as they stand.
    uint32_t cp;
    for (const std::string *t : {&name, &state})
        if (bag_text_bad_at(t->data(), t->size(), &cp) != t->size()) {
            err = (t == &name ? "name" : "state") +
                  std::string(": text holds a control character or is not UTF-8");
            return false;
        }
    // One interface a name: the reports find interfaces by name too.
    if (!m.interface_names.insert(name).second) {
        err = "interface " + name + ": a second interface of that name";
        return false;
    }
    sqlite3_reset(m.ins_if);
    sqlite3_bind_int64(m.ins_if, 1, handle);
    sqlite3_bind_text(m.ins_if, 2, name.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(m.ins_if, 3, state.c_str(), -1, SQLITE_TRANSIENT);
    return sqlite3_step(m.ins_if) == SQLITE_DONE || m.fail(err, "interface " + name);
}

bool SysdbWriter::add_bd_stats(uint32_t node, uint32_t bd_id, const bd_forwarding_stats &stats,
                               std::string &err) {
    Impl &m = *impl_;
    if (!m.drain(err)) return false;
    unsigned char counters[sysdb_schema::kBdStatsBytes];
    sysdb_schema::pack_counters(stats, counters);
    sqlite3_reset(m.ins_stats);
    sqlite3_bind_int64(m.ins_stats, 1, node);
    sqlite3_bind_int64(m.ins_stats, 2, bd_id);
    sqlite3_bind_blob(m.ins_stats, 3, counters, sizeof counters, SQLITE_STATIC);
    return sqlite3_step(m.ins_stats) == SQLITE_DONE ||
           m.fail(err, "bd_stats node " + std::to_string(node) + " bd " + std::to_string(bd_id));
}

bool SysdbWriter::set_meta(const std::string &key, const std::string &value, std::string &err) {
    Impl &m = *impl_;
    if (!m.drain(err)) return false;
    sqlite3_reset(m.ins_meta);
    sqlite3_bind_text(m.ins_meta, 1, key.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(m.ins_meta, 2, value.c_str(), -1, SQLITE_TRANSIENT);
    return sqlite3_step(m.ins_meta) == SQLITE_DONE || m.fail(err, "meta " + key);
}

bool SysdbWriter::commit(std::string &err, bool wait) {
    Impl &m = *impl_;
    if (m.live) {
        if (!wait && m.in_txn) return m.commit_behind(err);
        if (!m.drain(err)) return false;
        if (!m.in_txn) return true;
        if (!exec(m.db, "COMMIT", err)) return false;
        m.in_txn = false;
        return true;
    }
    if (!m.drain(err)) return false;
    m.store_on_caller = false;
    if (!m.hand_over_held(err)) return false;
    m.stop_worker();
    if (!exec(m.db,
              "INSERT OR REPLACE INTO attribute(kind, key, key2, v1) VALUES (" SYSDB_KIND_FACT
              ", 'format', 0, 'evpn-sysdb')",
              err) ||
        !exec(m.db, "COMMIT", err))
        return false;
    m.finalize_all();
    if (sqlite3_close(m.db) != SQLITE_OK) {
        err = "closing " + m.temp + " failed";
        return false;
    }
    m.db = nullptr;
    m.stop_syncer();
    // The new file reaches the disk before it takes the target's name.
    int fd = ::open(m.temp.c_str(), O_RDONLY);
    if (fd < 0 || fsync(fd) != 0) {
        err = "syncing " + m.temp + ": " + strerror(errno);
        if (fd >= 0) ::close(fd);
        return false;
    }
    ::close(fd);
    if (!target_replaceable(m.target, err)) return false;
    // A database replaced keeps its mode, group (and owner, when we may set
    // it): a reload must not make a private database readable by all.
    struct stat old;
    if (stat(m.target.c_str(), &old) == 0) {
        if (chown(m.temp.c_str(), old.st_uid, old.st_gid) != 0)
            (void)!chown(m.temp.c_str(), static_cast<uid_t>(-1), old.st_gid);
        if (chmod(m.temp.c_str(), old.st_mode & 07777) != 0) {
            err = "setting the mode of " + m.temp + ": " + strerror(errno);
            return false;
        }
    }
    if (rename(m.temp.c_str(), m.target.c_str()) != 0) {
        err = "renaming " + m.temp + " to " + m.target + ": " + strerror(errno);
        return false;
    }
    m.committed = true;
    std::string dir = m.target.substr(0, m.target.find_last_of('/') + 1);
    int dfd = ::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY);
    if (dfd >= 0) {
        fsync(dfd);
        ::close(dfd);
    }
    return true;
}

// ---- Live mode ---------------------------------------------------------------

std::unique_ptr<SysdbWriter> SysdbWriter::open_live(const std::string &named, std::string &err,
                                                   size_t checkpoint_bytes) {
    const std::string target = follow_links(named);
    struct stat st;
    if (stat(target.c_str(), &st) != 0 && errno == ENOENT) {
        // An empty database of ours, made as a load makes one.
        auto fresh = open(target, err, kLivePageSize);
        if (!fresh || !fresh->commit(err)) return nullptr;
    }
    if (!target_replaceable(target, err)) return nullptr;
    auto impl = std::make_unique<Impl>();
    Impl &m = *impl;
    m.target = target;
    m.live = true;
    if (sqlite3_open_v2(target.c_str(), &m.db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
        err = "cannot open " + target + ": " + sqlite3_errmsg(m.db);
        return nullptr;
    }
    sqlite3_busy_timeout(m.db, 5000);
    // A file in rollback mode has no log of its own: a -wal beside it was
    // left by an earlier file of that name (a crash, then a load renamed a
    // new file in), and replaying it into this one would corrupt it.
    if (pragma(m.db, "PRAGMA journal_mode") != "wal") {
        unlink((target + "-wal").c_str());
        unlink((target + "-shm").c_str());
    }
    if (pragma(m.db, "PRAGMA user_version") != std::to_string(sysdb_schema::kVersion)) {
        err = target + " has an older layout; rebuild it with evpn_sysdb load";
        return nullptr;
    }
    // Write-ahead log: a reader's transaction reads the state of its start
    // while commits go on, and never blocks them. The -wal and -shm take the
    // database file's mode and owner, so whoever may read the file may read
    // them. synchronous = NORMAL: a commit is durable at the next
    // checkpoint; a crash loses the last commits, never the file.
    // Routes arrive in no key order, so a transaction's inserts land all over
    // the key indexes (110 MB for 1M routes). A cache smaller than the pages
    // a transaction dirties spills them to the log and reads them back, again
    // and again: with 16 MiB, a 1M-route replay wrote 5 GB of log for a
    // 300 MB file. 64 MiB, with the new rows stored in sorted runs (each
    // page met once a run, not once a route), keeps that to a page written
    // about once a commit; the log is checkpointed into the file once it
    // holds 128 MiB of pages (whatever the store's page size) rather than
    // 1000 pages, so a page changed by several commits in a row is copied
    // once, by a thread of its own (LogCheckpointer).
    int page_size = atoi(pragma(m.db, "PRAGMA page_size").c_str());
    if (page_size < 512) page_size = 8192;
    char pragmas[192];
    snprintf(pragmas, sizeof pragmas,
             "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL; PRAGMA cache_size = -%d;",
             64 * 1024);
    if (!exec(m.db, pragmas, err)) return nullptr;
    if (pragma(m.db, "PRAGMA journal_mode") != "wal") {
        err = target + ": cannot switch to the write-ahead log";
        return nullptr;
    }
    const int frames = static_cast<int>(std::clamp<size_t>(checkpoint_bytes / size_t(page_size), 1, INT32_MAX / 4));
    if (!m.checkpointer.start(target, frames, err)) return nullptr;
    sqlite3_wal_hook(m.db, LogCheckpointer::on_commit, &m.checkpointer);
    // The log grows past its interval while a checkpoint runs (up to four
    // intervals and a transaction); the commit after it starts over cuts
    // the file back to one interval.
    char limit[64];
    snprintf(limit, sizeof limit, "PRAGMA journal_size_limit = %zu", checkpoint_bytes);
    if (!exec(m.db, limit, err)) return nullptr;
    struct {
        sqlite3_stmt **s;
        const char *sql;
    } stmts[] = {
        {&m.ins_list, SYSDB_INSERT_LISTING},
        {&m.ins_item, "INSERT OR IGNORE INTO item(list, skey, name, data) VALUES (?1, ?2, ?3, ?4)"},
        {&m.ins_index, "INSERT OR IGNORE INTO item_index(list, ikey) VALUES (?1, ?2)"},
        {&m.put_item, "INSERT OR REPLACE INTO item(list, skey, name, data) VALUES (?1, ?2, ?3, ?4)"},
        {&m.get_item, "SELECT data FROM item WHERE list = ?1 AND skey = ?2"},
        {&m.del_item, "DELETE FROM item WHERE list = ?1 AND skey = ?2"},
        {&m.put_index, "INSERT OR IGNORE INTO item_index(list, ikey) VALUES (?1, ?2)"},
        {&m.del_index, "DELETE FROM item_index WHERE list = ?1 AND ikey = ?2"},
    };
    for (auto &st : stmts)
        if (sqlite3_prepare_v2(m.db, st.sql, -1, st.s, nullptr) != SQLITE_OK) {
            err = target + ": " + sqlite3_errmsg(m.db);
            return nullptr;
        }
    // New items go to the worker thread as a load's do (Impl::store). A
    // statement of many rows that may abort half done keeps a statement
    // journal (every page it changes copied to a temporary file); one whose
    // conflicts replace or skip never aborts, so it keeps none. The rows are
    // new: neither happens.
    if (!m.prepare_multirow("INSERT OR IGNORE")) {
        err = target + ": " + sqlite3_errmsg(m.db);
        return nullptr;
    }
    m.batch_bytes = Impl::kLiveBatchBytes;
    m.run_bytes = Impl::kLiveRunBytes;
    m.run_fill = Impl::kLiveFirstRun;
    m.max_queued = Impl::kLiveQueued;
    // The listings the file has already.
    sqlite3_stmt *s = nullptr;
    if (sqlite3_prepare_v2(m.db, "SELECT id, root, path FROM " SYSDB_LISTINGS, -1, &s, nullptr) != SQLITE_OK) {
        err = target + ": " + sqlite3_errmsg(m.db);
        return nullptr;
    }
    int rc;
    while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
        const int64_t id = sqlite3_column_int64(s, 0);
        auto text = [&](int c) {
            const char *t = reinterpret_cast<const char *>(sqlite3_column_text(s, c));
            return std::string(t ? t : "");
        };
        m.lists.emplace(std::make_pair(text(1), text(2)), id);
        m.next_list = std::max(m.next_list, id + 1);
    }
    sqlite3_finalize(s);
    if (rc != SQLITE_DONE) {
        err = target + ": " + sqlite3_errmsg(m.db);
        return nullptr;
    }
    return std::unique_ptr<SysdbWriter>(new SysdbWriter(std::move(impl)));
}

bool SysdbWriter::begin(std::string &err) {
    Impl &m = *impl_;
    if (!m.live) {
        err = "begin: not a live writer";
        return false;
    }
    if (m.in_txn) return true;
    // IMMEDIATE: a second writer of the file waits here, not at its first change.
    return m.begin_live(err);
}

namespace {

// Reads the stored item (list, skey) into m.old_record, decoded: found false
// when there is none or it does not decode (a corrupt item is replaced; its
// index rows cannot be known).
struct LiveOps {
    static bool stored(SysdbWriter::Impl &m, const ListingDef &l, int64_t list,
                       const std::string &skey, std::string &err, bool &found) {
        found = false;
        sqlite3_reset(m.get_item);
        sqlite3_bind_int64(m.get_item, 1, list);
        sqlite3_bind_blob(m.get_item, 2, skey.data(), static_cast<int>(skey.size()), SQLITE_STATIC);
        const int rc = sqlite3_step(m.get_item);
        if (rc == SQLITE_DONE) return true;
        if (rc != SQLITE_ROW) return m.fail(err, "reading " + std::string(l.base) + "/" + m.name);
        m.old_data.clear();
        const void *data = sqlite3_column_blob(m.get_item, 0);
        const size_t len = static_cast<size_t>(sqlite3_column_bytes(m.get_item, 0));
        const bool unpacked = sysdb_schema::unpack_record(data, len, BAG_MAX_RECORD, m.old_data);
        sqlite3_reset(m.get_item);
        if (!unpacked) return true;  // a corrupt item: replaced, its rows unknown
        m.old_record.assign((l.desc->size + 7) / 8 + 1, 0);
        if (bag_decode(m.old_data.data(), static_cast<uint32_t>(m.old_data.size()),
                       m.old_record.data(), static_cast<uint32_t>(m.old_record.size() * 8), l.desc))
            return true;
        found = true;
        return true;
    }

    // The listing id of a stored ordering's rows; -1 when it has none yet.
    static int64_t rows_list(SysdbWriter::Impl &m, SysdbWriter::Impl::Target &t, size_t o) {
        if (t.ordering_lists[o] >= 0) return t.ordering_lists[o];
        auto it = m.lists.find(std::make_pair(t.root, sysdb_keys::ordering_path(*t.def, t.orderings[o])));
        return it == m.lists.end() ? -1 : (t.ordering_lists[o] = it->second);
    }

    static bool delete_row(SysdbWriter::Impl &m, int64_t list, const std::string &ikey,
                           std::string &err) {
        sqlite3_reset(m.del_index);
        sqlite3_bind_int64(m.del_index, 1, list);
        sqlite3_bind_blob(m.del_index, 2, ikey.data(), static_cast<int>(ikey.size()), SQLITE_STATIC);
        return sqlite3_step(m.del_index) == SQLITE_DONE || m.fail(err, "index of " + m.name);
    }
};

}  // namespace

bool SysdbWriter::upsert(const std::string &root, std::string_view base, const void *record,
                         std::string &err, Known known) {
    const bool fresh = known == Known::Absent;
    Impl &m = *impl_;
    if (!m.in_txn) {
        err = "upsert outside a transaction";
        return false;
    }
    Impl::Target *t = m.encode_into(root, base, record, err);
    if (!t) return false;
    const ListingDef *l = t->def;
    if (!l->singleton && !m.keys_of(*t, record, err)) return false;
    // Where every index row is made of item-key fields, a stored item has
    // the rows this record makes: the change needs no look at it and goes to
    // the worker like the known ones.
    const bool rows_known = known == Known::SameKeys || known == Known::SameRows ||
                            (known == Known::Nothing && !t->any_volatile);
    if (rows_known && !l->singleton) {
        if (m.worker_failed) return m.drain(err);
        if (known != Known::SameKeys)
            for (size_t o = 0; o < t->orderings.size(); o++)
                if (!m.ikeys[o].empty() && m.ordering_list(*t, o, err) < 0) return false;
        Impl::Batch &b = m.batch_for(true);
        Impl::Row r{t->list, m.put(b, m.skey), static_cast<uint32_t>(m.skey.size()), m.put(b, m.name),
                    static_cast<uint32_t>(m.name.size()), static_cast<uint32_t>(b.bytes.size()), 0};
        sysdb_schema::pack_record(m.encoded.data(), m.encoded.size(), b.bytes);
        r.data_len = static_cast<uint32_t>(b.bytes.size() - r.data);
        b.ops.push_back({Impl::OpKind::ReplaceItem, r});
        // SameKeys: the item's index rows stay as they are. Otherwise the
        // item may be new: its rows are added where missing.
        if (known != Known::SameKeys)
            for (size_t o = 0; o < t->orderings.size(); o++)
                if (!m.ikeys[o].empty())
                    b.ops.push_back({Impl::OpKind::PutIndex,
                                     {t->ordering_lists[o], m.put(b, m.ikeys[o]),
                                      static_cast<uint32_t>(m.ikeys[o].size()), 0, 0, 0, 0}});
        if (b.bytes.size() >= m.batch_bytes) m.submit();
        return true;
    }
    if (fresh && !l->singleton) {
        // A new item: its row and index rows are stored by the worker
        // thread while the caller maps and encodes the next ones.
        if (m.worker_failed) return m.drain(err);
        for (size_t o = 0; o < t->orderings.size(); o++)
            if (!m.ikeys[o].empty() && m.ordering_list(*t, o, err) < 0) return false;
        Impl::Batch &b = m.batch_for(false);
        b.sort_rows = true;
        // Whole from the start: a string that doubles as it fills would
        // hold up to twice the run.
        if (b.bytes.capacity() < m.run_bytes + Impl::kLiveBatchBytes)
            b.bytes.reserve(m.run_bytes + Impl::kLiveBatchBytes);
        Impl::Row r{t->list, m.put(b, m.skey), static_cast<uint32_t>(m.skey.size()), m.put(b, m.name),
                    static_cast<uint32_t>(m.name.size()), static_cast<uint32_t>(b.bytes.size()), 0};
        sysdb_schema::pack_record(m.encoded.data(), m.encoded.size(), b.bytes);
        r.data_len = static_cast<uint32_t>(b.bytes.size() - r.data);
        b.items.push_back(r);
        for (size_t o = 0; o < t->orderings.size(); o++) {
            if (m.ikeys[o].empty()) continue;
            b.index.push_back({t->ordering_lists[o], m.put(b, m.ikeys[o]),
                               static_cast<uint32_t>(m.ikeys[o].size()), 0, 0, 0, 0});
        }
        if (b.bytes.size() >= m.run_fill) {
            m.submit();
            m.run_fill = std::min(2 * m.run_fill, m.run_bytes);
        }
        return true;
    }
    if (!m.drain(err)) return false;
    if (l->singleton) {
        m.skey.clear();
        m.name = l->base;
    }
    // Rows of the stored item that the new one does not have.
    if (t->any_volatile && !fresh) {
        bool found = false;
        if (!LiveOps::stored(m, *l, t->list, m.skey, err, found)) return false;
        if (found) {
            std::swap(m.new_ikeys, m.ikeys);
            const std::string skey = m.skey, name = m.name;
            const bool ok = m.keys_of(*t, m.old_record.data(), err);
            bag_free_indirections(m.old_record.data(), l->desc);
            m.skey = skey;
            m.name = name;
            if (ok)
                for (size_t o = 0; o < t->orderings.size(); o++) {
                    if (!t->volatile_rows[o] || m.ikeys[o].empty() || m.ikeys[o] == m.new_ikeys[o])
                        continue;
                    const int64_t ix = LiveOps::rows_list(m, *t, o);
                    if (ix >= 0 && !LiveOps::delete_row(m, ix, m.ikeys[o], err)) return false;
                }
            std::swap(m.new_ikeys, m.ikeys);
        }
    }
    m.packed.clear();
    sysdb_schema::pack_record(m.encoded.data(), m.encoded.size(), m.packed);
    sqlite3_reset(m.put_item);
    sqlite3_bind_int64(m.put_item, 1, t->list);
    sqlite3_bind_blob(m.put_item, 2, m.skey.data(), static_cast<int>(m.skey.size()), SQLITE_STATIC);
    sqlite3_bind_text(m.put_item, 3, m.name.data(), static_cast<int>(m.name.size()), SQLITE_STATIC);
    sqlite3_bind_blob(m.put_item, 4, m.packed.data(), static_cast<int>(m.packed.size()), SQLITE_STATIC);
    if (sqlite3_step(m.put_item) != SQLITE_DONE) return m.fail(err, "item " + std::string(base) + "/" + m.name);
    if (l->singleton) return true;
    for (size_t o = 0; o < t->orderings.size(); o++) {
        if (m.ikeys[o].empty()) continue;
        const int64_t ix = m.ordering_list(*t, o, err);
        if (ix < 0) return false;
        sqlite3_reset(m.put_index);
        sqlite3_bind_int64(m.put_index, 1, ix);
        sqlite3_bind_blob(m.put_index, 2, m.ikeys[o].data(), static_cast<int>(m.ikeys[o].size()),
                          SQLITE_STATIC);
        if (sqlite3_step(m.put_index) != SQLITE_DONE) return m.fail(err, "index of " + m.name);
    }
    return true;
}

bool SysdbWriter::remove(const std::string &root, std::string_view base, const void *record,
                         std::string &err, Known known) {
    Impl &m = *impl_;
    if (!m.in_txn) {
        err = "remove outside a transaction";
        return false;
    }
    if (known != Known::Absent) {
        Impl::Target *t = m.target_of(root, base, err);
        if (!t) return false;
        const ListingDef *l = t->def;
        // As in upsert: the record's own index rows are the stored item's.
        if (!l->singleton && t->list >= 0 && (known != Known::Nothing || !t->any_volatile)) {
            if (m.worker_failed) return m.drain(err);
            if (!m.keys_of(*t, record, err)) return false;
            for (size_t o = 0; o < t->orderings.size(); o++)
                if (!m.ikeys[o].empty()) LiveOps::rows_list(m, *t, o);
            Impl::Batch &b = m.batch_for(true);
            b.ops.push_back({Impl::OpKind::DeleteItem,
                             {t->list, m.put(b, m.skey), static_cast<uint32_t>(m.skey.size()), 0, 0, 0, 0}});
            for (size_t o = 0; o < t->orderings.size(); o++)
                if (!m.ikeys[o].empty() && t->ordering_lists[o] >= 0)
                    b.ops.push_back({Impl::OpKind::DeleteIndex,
                                     {t->ordering_lists[o], m.put(b, m.ikeys[o]),
                                      static_cast<uint32_t>(m.ikeys[o].size()), 0, 0, 0, 0}});
            if (b.bytes.size() >= m.batch_bytes) m.submit();
            return true;
        }
    }
    if (!m.drain(err)) return false;
    Impl::Target *t = m.target_of(root, base, err);
    if (!t) return false;
    const ListingDef *l = t->def;
    if (t->list < 0) {
        auto it = m.lists.find(std::make_pair(root, t->base));
        if (it == m.lists.end()) return true;  // the listing has no item at all
        t->list = it->second;
    }
    if (l->singleton) {
        m.skey.clear();
        m.name = l->base;
    } else if (!m.keys_of(*t, record, err)) {
        return false;
    }
    // The stored item's own index rows: its non-key fields may differ from
    // the caller's record.
    if (t->any_volatile) {
        bool found = false;
        if (!LiveOps::stored(m, *l, t->list, m.skey, err, found)) return false;
        if (found) {
            const std::string skey = m.skey, name = m.name;
            const bool ok = m.keys_of(*t, m.old_record.data(), err);
            bag_free_indirections(m.old_record.data(), l->desc);
            m.skey = skey;
            m.name = name;
            if (!ok) return false;
        }
    }
    sqlite3_reset(m.del_item);
    sqlite3_bind_int64(m.del_item, 1, t->list);
    sqlite3_bind_blob(m.del_item, 2, m.skey.data(), static_cast<int>(m.skey.size()), SQLITE_STATIC);
    if (sqlite3_step(m.del_item) != SQLITE_DONE) return m.fail(err, "item " + std::string(base) + "/" + m.name);
    if (l->singleton) return true;
    for (size_t o = 0; o < t->orderings.size(); o++) {
        if (m.ikeys[o].empty()) continue;
        const int64_t ix = LiveOps::rows_list(m, *t, o);
        if (ix >= 0 && !LiveOps::delete_row(m, ix, m.ikeys[o], err)) return false;
    }
    return true;
}

bool SysdbWriter::clear(const std::string &root, std::string_view base, std::string &err) {
    Impl &m = *impl_;
    if (!m.in_txn) {
        err = "clear outside a transaction";
        return false;
    }
    if (!m.drain(err)) return false;
    const std::string prefix = std::string(base) + "#";
    for (const auto &[key, id] : m.lists) {
        if (key.first != root || (key.second != base && key.second.rfind(prefix, 0) != 0)) continue;
        const std::string sql = "DELETE FROM item WHERE list = " + std::to_string(id) +
                                "; DELETE FROM item_index WHERE list = " + std::to_string(id);
        if (!exec(m.db, sql.c_str(), err)) return false;
    }
    return true;
}

bool SysdbWriter::close(std::string &err) {
    Impl &m = *impl_;
    if (!m.live) return true;
    return m.close_live(err);
}

}  // namespace evpn
