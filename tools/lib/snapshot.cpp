// Snapshot loading (streamed) and dumping.
#include "snapshot.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <istream>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <set>
#include <thread>
#include <vector>

#include "json_reader.h"
#include "json_record.h"
#include "json_writer.h"
#include "platform/bag.h"
#include "platform/cerr.h"
#include "platform/sysdb_registry.h"
#include "platform/sysdb_schema.h"
#include "progress.h"
#include "sysdb_writer.h"

namespace evpn {

namespace {

struct LoadError {
    std::string what;
};

constexpr const char *kSections[] = {"roots", "capabilities", "interfaces", "bd_stats", "comment"};
constexpr const char *kCapabilities[] = {"srv6", "srv6_elan"};

// A member of a small section's object as read: a scalar, or only the kind
// of an object or list.
struct Member {
    JsonTok kind;
    uint64_t u;
    int64_t i;
    std::string text;
};
// Members by name, in name order; a name given twice keeps its last value.
using Members = std::map<std::string, Member>;

uint64_t get_u64(const Members &o, const char *key, uint64_t max, const std::string &where) {
    auto it = o.find(key);
    if (it == o.end()) return 0;
    const Member &m = it->second;
    if (m.kind == JsonTok::Float) throw LoadError{where + "." + key + ": not an integer, or out of range"};
    if (m.kind != JsonTok::Uint && !(m.kind == JsonTok::Int && m.i >= 0))
        throw LoadError{where + "." + key + ": expected a non-negative number"};
    uint64_t v = m.kind == JsonTok::Uint ? m.u : static_cast<uint64_t>(m.i);
    if (v > max) throw LoadError{where + "." + key + ": value out of range"};
    return v;
}

// A scalar token for messages: numbers as written, text quoted.
std::string shown(const JsonToken &t) {
    switch (t.kind) {
    case JsonTok::Uint: case JsonTok::Int: case JsonTok::Float: return std::string(t.text);
    case JsonTok::String: {
        JsonText q;
        q.string(t.text);
        return std::string(q.data(), q.size());
    }
    case JsonTok::True: return "true";
    case JsonTok::False: return "false";
    default: return "null";
    }
}

// Records built by the parsing thread go to the writer on a thread of their
// own, which encodes, keys, packs and stores them (SysdbWriter::add, the
// writer storing on its caller's thread) while the parser reads on: two
// threads for two cores, neither waking a third. They travel in parcels of
// one listing's consecutive records, each record with its own arena until
// the writer has it. The first refusal stops the thread: later parcels are
// dropped, and the parser reports it in place of any error of its own,
// which can only be about a later record.
class Handover {
  public:
    static constexpr size_t kRecords = 256, kParcels = 4;

    explicit Handover(SysdbWriter &w) : w_(w) {
        for (size_t i = 0; i < kParcels; i++) spare_.push_back(std::make_unique<Parcel>());
    }
    ~Handover() {
        {
            std::lock_guard<std::mutex> lk(mu_);
            stop_ = true;
        }
        cv_.notify_all();
        if (thread_.joinable()) thread_.join();
    }

    // The record buffer (words long, zeroed by the builder) and arena of
    // record n of root's listing base; list names it in messages.
    void *next(const std::string &root, const std::string &base, const std::string &list,
               uint64_t n, size_t words, RecordArena *&arena) {
        if (filling_ && (filling_->used == kRecords || filling_->base != base || filling_->root != root))
            send();
        if (!filling_) {
            std::unique_lock<std::mutex> lk(mu_);
            cv_.wait(lk, [&] { return !spare_.empty(); });
            filling_ = std::move(spare_.back());
            spare_.pop_back();
            lk.unlock();
            filling_->root = root;
            filling_->base = base;
            filling_->list = list;
            filling_->first = n;
        }
        Slot &s = filling_->slots[filling_->used];
        if (s.rec.size() < words) s.rec.resize(words);
        s.arena.clear();
        arena = &s.arena;
        return s.rec.data();
    }
    // The record last given by next() is built: it goes with its parcel.
    void built() { filling_->used++; }

    // True once a record was refused; what() says which and why.
    bool failed() const { return failed_.load(std::memory_order_acquire); }
    const std::string &what() const { return err_; }

    // Waits until the writer has every record built so far; false when one
    // was refused.
    bool finish() {
        send();
        std::unique_lock<std::mutex> lk(mu_);
        cv_.wait(lk, [&] { return queued_.empty() && !busy_; });
        return !failed_;
    }

  private:
    struct Slot {
        std::vector<uint64_t> rec;
        RecordArena arena;
    };
    struct Parcel {
        std::string root, base, list;
        uint64_t first = 0;  // listing position of slots[0]
        size_t used = 0;
        Slot slots[kRecords];
    };

    void send() {
        if (!filling_) return;
        if (!filling_->used) return;
        if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
        std::lock_guard<std::mutex> lk(mu_);
        queued_.push_back(std::move(filling_));
        cv_.notify_all();
    }

    void run() {
        std::unique_lock<std::mutex> lk(mu_);
        for (;;) {
            cv_.wait(lk, [&] { return stop_ || !queued_.empty(); });
            if (queued_.empty()) return;
            std::unique_ptr<Parcel> p = std::move(queued_.front());
            queued_.pop_front();
            busy_ = true;
            lk.unlock();
            for (size_t i = 0; i < p->used && !failed_; i++)
                if (!w_.add(p->root, p->base, p->slots[i].rec.data(), e_)) {
                    err_ = p->list + "[" + std::to_string(p->first + i) + "]: " + e_;
                    failed_ = true;
                }
            p->used = 0;
            lk.lock();
            busy_ = false;
            spare_.push_back(std::move(p));
            cv_.notify_all();
        }
    }

    SysdbWriter &w_;
    std::thread thread_;
    std::mutex mu_;
    std::condition_variable cv_;
    std::deque<std::unique_ptr<Parcel>> queued_;
    std::vector<std::unique_ptr<Parcel>> spare_;
    std::unique_ptr<Parcel> filling_;  // the parsing thread's
    bool busy_ = false, stop_ = false;
    std::atomic<bool> failed_{false};
    std::string e_, err_;  // written by the thread before failed_
};

struct Loader {
    JsonReader &r;
    SysdbWriter &w;
    Handover &handover;
    LoadStats &stats;
    Progress *progress;
    std::map<std::string, uint64_t> counts;  // records per root and listing, for messages
    TokenRecordBuilder builder;
    std::string err;
    std::set<std::string> seen;  // sections, roots and listings read so far

    // The writer, once it has every record built so far: the other sections
    // go in on this thread.
    SysdbWriter &writer() {
        if (!handover.finish()) throw LoadError{handover.what()};
        return w;
    }

    // The members of the object that t starts (the small sections); objects
    // and lists in it are read past.
    Members members() {
        Members o;
        for (;;) {
            const JsonToken &k = r.next();
            if (k.kind == JsonTok::ObjectEnd) return o;
            Member &m = o[std::string(k.text)];
            const JsonToken &v = r.next();
            m = {v.kind, v.u, v.i, std::string(v.kind == JsonTok::String ? v.text : std::string_view())};
            r.skip(v);
        }
    }

    static bool is_scalar(const JsonToken &t) {
        return t.kind != JsonTok::ObjectStart && t.kind != JsonTok::ArrayStart;
    }

    void records(const std::string &root, const std::string &base) {
        const ListingDef *l = sysdb_registry_find(base);
        uint64_t &count = counts[root + base];
        const size_t words = l->desc->size / 8 + 1;
        // Records are named "root base[n]" in messages only.
        const std::string list = root + " " + base;
        for (;;) {
            const JsonToken &t = r.next();
            if (t.kind == JsonTok::ArrayEnd) return;
            if (t.kind == JsonTok::ArrayStart)
                throw LoadError{"roots " + root + " " + base + ": unexpected list"};
            if (t.kind != JsonTok::ObjectStart)
                throw LoadError{"roots: unexpected value " + shown(t) + " at depth 4"};
            if (handover.failed()) throw LoadError{handover.what()};
            const uint64_t n = count++;
            RecordArena *arena = nullptr;
            void *rec = handover.next(root, base, list, n, words, arena);
            if (!builder.build(r, t, l->desc, rec, *arena, list, n, err)) throw LoadError{err};
            handover.built();
            stats.records++;
            if (progress) progress->update(stats.records, r.offset());
        }
    }

    void roots(const JsonToken &t) {
        if (t.kind == JsonTok::ArrayStart) throw LoadError{"roots: unexpected list"};
        if (is_scalar(t)) throw LoadError{"roots: unexpected value " + shown(t) + " at depth 1"};
        for (;;) {
            const JsonToken &k = r.next();
            if (k.kind == JsonTok::ObjectEnd) return;
            std::string root(k.text);
            if (!sysdb_schema::valid_root(root.c_str())) throw LoadError{"unknown root \"" + root + "\""};
            if (!seen.insert("roots " + root).second)
                throw LoadError{"roots: duplicate key \"" + root + "\""};
            const JsonToken &v = r.next();
            if (v.kind == JsonTok::ArrayStart) throw LoadError{"roots " + root + ": unexpected list"};
            if (is_scalar(v)) throw LoadError{"roots: unexpected value " + shown(v) + " at depth 2"};
            for (;;) {
                const JsonToken &lk = r.next();
                if (lk.kind == JsonTok::ObjectEnd) break;
                std::string base(lk.text);
                if (!sysdb_registry_find(base))
                    throw LoadError{"unknown listing \"" + base + "\" under " + root};
                if (!seen.insert("roots " + root + " " + base).second)
                    throw LoadError{"roots " + root + ": duplicate key \"" + base + "\""};
                const JsonToken &lv = r.next();
                if (lv.kind == JsonTok::ObjectStart)
                    throw LoadError{"roots " + root + " " + base + ": unexpected object"};
                if (is_scalar(lv))
                    throw LoadError{"roots: unexpected value " + shown(lv) + " at depth 3"};
                records(root, base);
            }
        }
    }

    // A list of objects, each read whole and handled by one().
    using Handler = void (Loader::*)(const Members &, const std::string &where);
    void objects(const std::string &section, const JsonToken &t, Handler one) {
        if (t.kind == JsonTok::ObjectStart) throw LoadError{section + ": unexpected object"};
        if (is_scalar(t)) throw LoadError{section + ": unexpected value " + shown(t)};
        uint64_t n = 0;
        for (;;) {
            const JsonToken &e = r.next();
            if (e.kind == JsonTok::ArrayEnd) return;
            if (e.kind == JsonTok::ArrayStart) throw LoadError{section + ": unexpected list"};
            if (is_scalar(e)) throw LoadError{section + ": expected objects"};
            (this->*one)(members(), section + "[" + std::to_string(n++) + "]");
        }
    }

    void interface(const Members &j, const std::string &where) {
        for (const auto &[key, v] : j)
            if (key != "name" && key != "handle" && key != "state")
                throw LoadError{where + "." + key + ": unknown field of an interface"};
        auto name = j.find("name");
        if (name == j.end() || name->second.kind != JsonTok::String || name->second.text.empty())
            throw LoadError{where + ".name: expected the interface name"};
        uint32_t handle = static_cast<uint32_t>(get_u64(j, "handle", 0xffffffffu, where));
        std::string state = "Up";
        if (auto s = j.find("state"); s != j.end()) {
            if (s->second.kind != JsonTok::String) throw LoadError{where + ".state: expected text"};
            state = s->second.text;
        }
        if (!writer().add_interface(handle, name->second.text, state, err)) throw LoadError{where + ": " + err};
        stats.interfaces++;
    }

    void bd_stats(const Members &j, const std::string &where) {
        for (const auto &[key, v] : j) {
            bool known = key == "node" || key == "bd_id";
            for (const char *c : sysdb_schema::kBdStatsColumns) known = known || key == c;
            if (!known) throw LoadError{where + "." + key + ": unknown counter"};
        }
        bd_forwarding_stats s{};
        uint64_t v[sysdb_schema::kBdStatsCount];
        for (int i = 0; i < sysdb_schema::kBdStatsCount; i++)
            v[i] = get_u64(j, sysdb_schema::kBdStatsColumns[i], UINT64_MAX, where);
        memcpy(&s, v, sizeof v);
        uint32_t node = static_cast<uint32_t>(get_u64(j, "node", 0xfffffffeu, where));
        uint32_t bd = static_cast<uint32_t>(get_u64(j, "bd_id", 0xffffffffu, where));
        if (!writer().add_bd_stats(node, bd, s, err)) throw LoadError{where + ": " + err};
        stats.bd_stats++;
    }

    void capabilities(const JsonToken &t) {
        if (t.kind == JsonTok::ArrayStart) throw LoadError{"capabilities: unexpected list"};
        if (is_scalar(t)) throw LoadError{"capabilities: unexpected value " + shown(t)};
        for (const auto &[key, v] : members()) {
            bool known = false;
            for (const char *c : kCapabilities) known = known || key == c;
            if (!known) throw LoadError{"capabilities." + key + ": unknown capability"};
            const bool flag = v.kind == JsonTok::True || v.kind == JsonTok::False;
            const bool bit = (v.kind == JsonTok::Uint && v.u <= 1) || (v.kind == JsonTok::Int && v.i == 0);
            if (!flag && !bit) throw LoadError{"capabilities." + key + ": expected true/false or 0/1"};
            if (!writer().set_capability(key, v.kind == JsonTok::True || (v.kind == JsonTok::Uint && v.u == 1), err))
                throw LoadError{err};
        }
    }

    // The document: one object of sections.
    void run() {
        const JsonToken &t = r.next();
        if (t.kind == JsonTok::ArrayStart) throw LoadError{"snapshot: unexpected list"};
        if (t.kind != JsonTok::ObjectStart) throw LoadError{"snapshot: expected an object"};
        for (;;) {
            const JsonToken &k = r.next();
            if (k.kind == JsonTok::ObjectEnd) break;
            std::string section(k.text);
            bool known = false;
            for (const char *s : kSections) known = known || section == s;
            if (!known) throw LoadError{"unknown section \"" + section + "\""};
            if (!seen.insert(section).second) throw LoadError{"duplicate key \"" + section + "\""};
            const JsonToken &v = r.next();
            if (section == "roots") {
                roots(v);
            } else if (section == "capabilities") {
                capabilities(v);
            } else if (section == "interfaces") {
                objects(section, v, &Loader::interface);
            } else if (section == "bd_stats") {
                objects(section, v, &Loader::bd_stats);
            } else {
                r.skip(v);  // comment
            }
        }
        r.next();  // End, or an error for anything after the object
    }
};

}  // namespace

bool load_snapshot(std::istream &in, const std::string &db_path, LoadStats &stats,
                   std::string &err, Progress *progress) {
    auto w = SysdbWriter::open(db_path, err);
    if (!w) return false;
    w->store_on_caller();
    Handover handover(*w);
    // A record refused by the writer comes before anything the parser found
    // wrong since.
    auto refused = [&] {
        if (handover.finish()) return false;
        err = handover.what();
        return true;
    };
    try {
        JsonReader reader(in);
        Loader loader{reader, *w, handover, stats, progress, {}, {}, {}, {}};
        loader.run();
    } catch (const LoadError &e) {
        if (!refused()) err = e.what;
        return false;
    } catch (const JsonSyntaxError &e) {
        if (!refused()) err = std::string("malformed JSON: ") + e.what();
        return false;
    }
    if (refused()) return false;
    char when[32];
    time_t now = time(nullptr);
    strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%SZ", gmtime(&now));
    if (!w->set_meta("loaded_at", when, err)) return false;
    return w->commit(err);
}

bool dump_snapshot(const std::string &db_path, std::ostream &out, std::string &err,
                   Progress *progress, const DumpOptions &options, uint64_t *undecodable) {
    if (undecodable) *undecodable = 0;
    sqlite3 *db = nullptr;
    struct stat st;
    if (stat(db_path.c_str(), &st) != 0) {
        err = db_path + ": " + strerror(errno);
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        err = db_path + ": not a regular file";
        return false;
    }
    if (access(db_path.c_str(), R_OK) != 0) {
        err = "cannot read " + db_path + ": " + strerror(errno);
        return false;
    }
    if (uint32_t rc = sysdb_schema::open_ours(db_path.c_str(), &db)) {
        err = db_path + ": " + (rc == SYSDB_ERR_NOT_BOUND ? "not an EVPN operational database"
                                                          : cerr_strerror(rc));
        return false;
    }
    sqlite3_stmt *s = nullptr;
    struct Closer {
        sqlite3 *db;
        sqlite3_stmt *&s;
        ~Closer() {
            sqlite3_finalize(s);
            sqlite3_close(db);
        }
    } closer{db, s};
    auto prep = [&](const char *sql) {
        sqlite3_finalize(s);
        s = nullptr;
        if (sqlite3_prepare_v2(db, sql, -1, &s, nullptr) != SQLITE_OK) {
            err = db_path + ": " + sqlite3_errmsg(db);
            return false;
        }
        return true;
    };
    // Every read of the dump either gives its rows to the end or fails the
    // dump with the store's message: a dump that is a backup loses nothing
    // silently.
    int rc = SQLITE_DONE;
    auto row = [&] { return (rc = sqlite3_step(s)) == SQLITE_ROW; };
    auto done = [&] {
        if (rc == SQLITE_DONE) return true;
        // Out of memory under the read heap limit: a row too large to read.
        const bool too_big = (rc & 0xff) == SQLITE_NOMEM || (rc & 0xff) == SQLITE_TOOBIG;
        err = db_path + ": " + (too_big ? cerr_strerror(SYSDB_ERR_TOO_BIG) : sqlite3_errmsg(db)) +
              " (the dump is incomplete)";
        sqlite3_finalize(s);
        s = nullptr;
        return false;
    };
    // One read transaction: the whole dump is of one state of the file.
    if (!prep("BEGIN") || (row(), !done())) return false;

    // The text goes out whenever a row or record takes it past kFlushAt, so
    // memory stays flat however large the database.
    constexpr size_t kFlushAt = size_t(1) << 16;
    JsonText t;
    auto flush = [&](size_t at_least) {
        if (t.size() < at_least || t.write_to(out)) return true;
        err = std::string("writing the snapshot: ") + strerror(errno ? errno : EIO);
        return false;
    };
    auto text = [&](int column) {
        const unsigned char *v = sqlite3_column_text(s, column);
        return std::string_view(v ? reinterpret_cast<const char *>(v) : "");
    };
    auto comma = [&](bool first, std::string_view then) {
        if (!first) t.raw(',');
        t.raw(then);
    };

    t.raw("{\n  \"capabilities\": {");
    if (!prep("SELECT key, v1 FROM attribute WHERE kind = " SYSDB_KIND_CAPABILITY " ORDER BY key")) return false;
    for (bool first = true; row(); first = false) {
        comma(first, "\n    ");
        t.string(text(0));
        t.raw(": ");
        t.boolean(sqlite3_column_int(s, 1) != 0);
    }
    if (!done()) return false;
    t.raw("\n  },\n  \"interfaces\": [");
    if (!prep("SELECT key, v1, v2 FROM attribute WHERE kind = " SYSDB_KIND_INTERFACE " ORDER BY key")) return false;
    for (bool first = true; row(); first = false) {
        comma(first, "\n    {\"name\":");
        t.string(text(1));
        t.raw(",\"handle\":");
        t.u64(static_cast<uint32_t>(sqlite3_column_int64(s, 0)));
        t.raw(",\"state\":");
        t.string(text(2));
        t.raw('}');
        if (!flush(kFlushAt)) return false;
    }
    if (!done()) return false;
    t.raw("\n  ],\n  \"bd_stats\": [");
    if (!prep("SELECT key2, key, v1 FROM attribute WHERE kind = " SYSDB_KIND_BD_STATS " ORDER BY key2, key"))
        return false;
    for (bool first = true; row();) {
        uint64_t v[sysdb_schema::kBdStatsCount];
        if (!sysdb_schema::unpack_counters(sqlite3_column_blob(s, 2),
                                           static_cast<size_t>(sqlite3_column_bytes(s, 2)), v)) {
            // Counters stored by other means in another form: named like an
            // item that does not decode, which the loader refuses.
            const std::string name = "node " + std::to_string(sqlite3_column_int64(s, 0)) + " bd_id " +
                                     std::to_string(sqlite3_column_int64(s, 1));
            if (undecodable) ++*undecodable;
            if (options.undecodable) options.undecodable("", "bd_stats", name, "stored counters damaged");
            if (options.skip_undecodable) continue;
            comma(first, "\n    {\"__undecodable_item\": ");
            t.string(name);
            t.raw('}');
            first = false;
            if (!flush(kFlushAt)) return false;
            continue;
        }
        comma(first, "\n    {\"node\":");
        t.i64(sqlite3_column_int64(s, 0));
        t.raw(",\"bd_id\":");
        t.i64(sqlite3_column_int64(s, 1));
        for (int i = 0; i < sysdb_schema::kBdStatsCount; i++) {
            t.raw(',');
            t.string(sysdb_schema::kBdStatsColumns[i]);
            t.raw(':');
            t.u64(v[i]);
        }
        t.raw('}');
        first = false;
        if (!flush(kFlushAt)) return false;
    }
    if (!done()) return false;
    t.raw("\n  ],\n  \"roots\": {");

    struct List {
        int64_t id;
        std::string root, path;
    };
    std::vector<List> lists;
    if (!prep("SELECT id, root, path FROM " SYSDB_LISTINGS " WHERE instr(path, '#') = 0 ORDER BY root, path"))
        return false;
    while (row())
        lists.push_back({sqlite3_column_int64(s, 0), reinterpret_cast<const char *>(sqlite3_column_text(s, 1)),
                         reinterpret_cast<const char *>(sqlite3_column_text(s, 2))});
    if (!done()) return false;
    uint64_t items = 0;
    if (progress && progress->on()) {
        // Only for the display: counting walks the whole item table.
        if (!prep("SELECT count(*) FROM item")) return false;
        if (row()) progress->set_total(static_cast<uint64_t>(sqlite3_column_int64(s, 0)));
        else if (!done()) return false;
    }
    // A row too large to read is taken for its length alone: it is named
    // like any item that does not decode, and the dump goes on.
    if (!prep("SELECT name, CASE WHEN length(data) > " SYSDB_SCHEMA_RECORD_LIMIT
              " THEN NULL ELSE data END FROM item WHERE list = ?1 ORDER BY skey"))
        return false;
    std::string root;
    std::vector<uint64_t> buf;
    std::string record;
    for (size_t i = 0; i < lists.size(); i++) {
        const List &l = lists[i];
        const ListingDef *def = sysdb_registry_find(l.path);
        if (!def) continue;
        if (l.root != root) {
            if (!root.empty()) t.raw("\n    },");
            t.raw("\n    ");
            t.string(l.root);
            t.raw(": {\n");
            root = l.root;
        } else {
            t.raw(",\n");
        }
        t.raw("      ");
        t.string(l.path);
        t.raw(": [");
        sqlite3_reset(s);
        sqlite3_bind_int64(s, 1, l.id);
        buf.assign(def->desc->size / 8 + 1, 0);
        bool first = true;
        while (row()) {
            if (progress) {
                items++;
                progress->update(items, items);
            }
            record.clear();
            const char *why = nullptr;
            if (sqlite3_column_type(s, 1) == SQLITE_NULL) {
                why = "too large to read";
            } else if (!sysdb_schema::unpack_record(sqlite3_column_blob(s, 1),
                                                    static_cast<size_t>(sqlite3_column_bytes(s, 1)),
                                                    BAG_MAX_RECORD, record)) {
                why = "stored data damaged";
            } else if (uint32_t rc = bag_decode(record.data(), static_cast<uint32_t>(record.size()),
                                                buf.data(), static_cast<uint32_t>(buf.size() * 8),
                                                def->desc)) {
                why = cerr_strerror(rc);
            }
            if (why) {
                if (undecodable) ++*undecodable;
                if (options.undecodable) options.undecodable(l.root, l.path, text(0), why);
                if (options.skip_undecodable) continue;
                comma(first, "\n        ");
                t.raw("{\"__undecodable_item\": ");
                t.string(text(0));
                t.raw('}');
            } else {
                comma(first, "\n        ");
                record_json(t, buf.data(), def->desc);
                bag_free_indirections(buf.data(), def->desc);
            }
            first = false;
            if (!flush(kFlushAt)) return false;
        }
        if (!done()) return false;
        t.raw("\n      ]");
    }
    if (!root.empty()) t.raw("\n    }");
    t.raw("\n  }\n}\n");
    return flush(0);
}

}  // namespace evpn
