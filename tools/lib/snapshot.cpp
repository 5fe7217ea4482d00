// Snapshot loading (streamed) and dumping.
#include "snapshot.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <istream>
#include <map>
#include <set>
#include <nlohmann/json.hpp>
#include <ostream>
#include <vector>

#include "json_reader.h"
#include "json_record.h"
#include "platform/bag.h"
#include "platform/cerr.h"
#include "platform/sysdb_registry.h"
#include "platform/sysdb_schema.h"
#include "progress.h"
#include "sysdb_writer.h"

namespace evpn {

namespace {

using json = nlohmann::json;

struct LoadError {
    std::string what;
};

constexpr const char *kSections[] = {"roots", "capabilities", "interfaces", "bd_stats", "comment"};
constexpr const char *kCapabilities[] = {"srv6", "srv6_elan"};

uint64_t get_u64(const json &o, const char *key, uint64_t max, const std::string &where) {
    auto it = o.find(key);
    if (it == o.end()) return 0;
    if (it->is_number_float()) throw LoadError{where + "." + key + ": not an integer, or out of range"};
    if (!it->is_number_unsigned() && !(it->is_number_integer() && it->get<int64_t>() >= 0))
        throw LoadError{where + "." + key + ": expected a non-negative number"};
    uint64_t v = it->get<uint64_t>();
    if (v > max) throw LoadError{where + "." + key + ": value out of range"};
    return v;
}

// A scalar token as a JSON value, for the small sections.
json scalar(const JsonToken &t) {
    switch (t.kind) {
    case JsonTok::String: return std::string(t.text);
    case JsonTok::Uint: return t.u;
    case JsonTok::Int: return t.i;
    case JsonTok::Float: return strtod(std::string(t.text).c_str(), nullptr);
    case JsonTok::True: return true;
    case JsonTok::False: return false;
    default: return nullptr;
    }
}

// A scalar token for messages: numbers as written.
std::string shown(const JsonToken &t) {
    bool number = t.kind == JsonTok::Uint || t.kind == JsonTok::Int || t.kind == JsonTok::Float;
    return number ? std::string(t.text) : scalar(t).dump();
}

struct Loader {
    JsonReader &r;
    SysdbWriter &w;
    LoadStats &stats;
    Progress *progress;
    std::map<std::string, uint64_t> counts;  // records per root and listing, for messages
    TokenRecordBuilder builder;
    RecordArena arena;
    std::vector<uint64_t> rec;
    std::string err, where;
    std::set<std::string> seen;  // sections, roots and listings read so far

    // The value that t starts, read whole (the small sections).
    json collect(const JsonToken &t) {
        if (t.kind == JsonTok::ObjectStart) {
            json o = json::object();
            for (;;) {
                const JsonToken &k = r.next();
                if (k.kind == JsonTok::ObjectEnd) return o;
                std::string key(k.text);
                o[key] = collect(r.next());
            }
        }
        if (t.kind == JsonTok::ArrayStart) {
            json a = json::array();
            for (;;) {
                const JsonToken &e = r.next();
                if (e.kind == JsonTok::ArrayEnd) return a;
                a.push_back(collect(e));
            }
        }
        return scalar(t);
    }

    static bool is_scalar(const JsonToken &t) {
        return t.kind != JsonTok::ObjectStart && t.kind != JsonTok::ArrayStart;
    }

    void records(const std::string &root, const std::string &base) {
        const ListingDef *l = sysdb_registry_find(base);
        uint64_t &count = counts[root + base];
        if (rec.size() < l->desc->size / 8 + 1) rec.assign(l->desc->size / 8 + 1, 0);
        for (;;) {
            const JsonToken &t = r.next();
            if (t.kind == JsonTok::ArrayEnd) return;
            if (t.kind == JsonTok::ArrayStart)
                throw LoadError{"roots " + root + " " + base + ": unexpected list"};
            if (t.kind != JsonTok::ObjectStart)
                throw LoadError{"roots: unexpected value " + shown(t) + " at depth 4"};
            where.assign(root);
            where += ' ';
            where += base;
            where += '[';
            where += std::to_string(count++);
            where += ']';
            arena.clear();
            if (!builder.build(r, t, l->desc, rec.data(), arena, where, err)) throw LoadError{err};
            if (!w.add(root, base, rec.data(), err)) throw LoadError{where + ": " + err};
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
    using Handler = void (Loader::*)(const json &, const std::string &where);
    void objects(const std::string &section, const JsonToken &t, Handler one) {
        if (t.kind == JsonTok::ObjectStart) throw LoadError{section + ": unexpected object"};
        if (is_scalar(t)) throw LoadError{section + ": unexpected value " + shown(t)};
        uint64_t n = 0;
        for (;;) {
            const JsonToken &e = r.next();
            if (e.kind == JsonTok::ArrayEnd) return;
            if (e.kind == JsonTok::ArrayStart) throw LoadError{section + ": unexpected list"};
            if (is_scalar(e)) throw LoadError{section + ": expected objects"};
            (this->*one)(collect(e), section + "[" + std::to_string(n++) + "]");
        }
    }

    void interface(const json &j, const std::string &where) {
        for (auto it = j.begin(); it != j.end(); ++it)
            if (it.key() != "name" && it.key() != "handle" && it.key() != "state")
                throw LoadError{where + "." + it.key() + ": unknown field of an interface"};
        auto name = j.find("name");
        if (name == j.end() || !name->is_string() || name->get<std::string>().empty())
            throw LoadError{where + ".name: expected the interface name"};
        uint32_t handle = static_cast<uint32_t>(get_u64(j, "handle", 0xffffffffu, where));
        std::string state = "Up";
        if (auto s = j.find("state"); s != j.end()) {
            if (!s->is_string()) throw LoadError{where + ".state: expected text"};
            state = s->get<std::string>();
        }
        if (!w.add_interface(handle, name->get<std::string>(), state, err))
            throw LoadError{where + ": " + err};
        stats.interfaces++;
    }

    void bd_stats(const json &j, const std::string &where) {
        for (auto it = j.begin(); it != j.end(); ++it) {
            bool known = it.key() == "node" || it.key() == "bd_id";
            for (const char *c : sysdb_schema::kBdStatsColumns) known = known || it.key() == c;
            if (!known) throw LoadError{where + "." + it.key() + ": unknown counter"};
        }
        bd_forwarding_stats s{};
        uint64_t v[sysdb_schema::kBdStatsCount];
        for (int i = 0; i < sysdb_schema::kBdStatsCount; i++)
            v[i] = get_u64(j, sysdb_schema::kBdStatsColumns[i], UINT64_MAX, where);
        memcpy(&s, v, sizeof v);
        uint32_t node = static_cast<uint32_t>(get_u64(j, "node", 0xfffffffeu, where));
        uint32_t bd = static_cast<uint32_t>(get_u64(j, "bd_id", 0xffffffffu, where));
        if (!w.add_bd_stats(node, bd, s, err)) throw LoadError{where + ": " + err};
        stats.bd_stats++;
    }

    void capabilities(const JsonToken &t) {
        if (t.kind == JsonTok::ArrayStart) throw LoadError{"capabilities: unexpected list"};
        if (is_scalar(t)) throw LoadError{"capabilities: unexpected value " + shown(t)};
        json j = collect(t);
        for (auto it = j.begin(); it != j.end(); ++it) {
            bool known = false;
            for (const char *c : kCapabilities) known = known || it.key() == c;
            if (!known) throw LoadError{"capabilities." + it.key() + ": unknown capability"};
            const json &v = it.value();
            if (!v.is_boolean() && !(v.is_number_integer() && (v == 0 || v == 1)))
                throw LoadError{"capabilities." + it.key() + ": expected true/false or 0/1"};
            bool on = v.is_boolean() ? v.get<bool>() : v.get<int>() == 1;
            if (!w.set_capability(it.key(), on, err)) throw LoadError{err};
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
    try {
        JsonReader reader(in);
        Loader loader{reader, *w, stats, progress, {}, {}, {}, {}, {}, {}, {}};
        loader.run();
    } catch (const LoadError &e) {
        err = e.what;
        return false;
    } catch (const JsonSyntaxError &e) {
        err = std::string("malformed JSON: ") + e.what();
        return false;
    }
    char when[32];
    time_t now = time(nullptr);
    strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%SZ", gmtime(&now));
    if (!w->set_meta("loaded_at", when, err)) return false;
    return w->commit(err);
}

bool dump_snapshot(const std::string &db_path, std::ostream &out, std::string &err,
                   Progress *progress) {
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
    if (uint32_t rc = sysdb_schema::open_ours(db_path.c_str(), &db)) {
        err = db_path + ": " + (rc == SYSDB_ERR_NOT_BOUND ? "not an EVPN operational database"
                                                          : cerr_strerror(rc));
        return false;
    }
    struct Closer {
        sqlite3 *db;
        ~Closer() { sqlite3_close(db); }
    } closer{db};
    sqlite3_stmt *s = nullptr;
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

    out << "{\n  \"capabilities\": {";
    if (!prep("SELECT name, value FROM capability ORDER BY name")) return false;
    for (bool first = true; row(); first = false)
        out << (first ? "" : ",") << "\n    " << json(reinterpret_cast<const char *>(sqlite3_column_text(s, 0))).dump()
            << ": " << (sqlite3_column_int(s, 1) ? "true" : "false");
    if (!done()) return false;
    out << "\n  },\n  \"interfaces\": [";
    if (!prep("SELECT handle, name, state FROM interface ORDER BY handle")) return false;
    for (bool first = true; row(); first = false) {
        nlohmann::ordered_json o;
        o["name"] = reinterpret_cast<const char *>(sqlite3_column_text(s, 1));
        o["handle"] = static_cast<uint32_t>(sqlite3_column_int64(s, 0));
        o["state"] = reinterpret_cast<const char *>(sqlite3_column_text(s, 2));
        out << (first ? "" : ",") << "\n    " << o.dump();
    }
    if (!done()) return false;
    out << "\n  ],\n  \"bd_stats\": [";
    std::string sql = "SELECT node, bd_id";
    for (const char *c : sysdb_schema::kBdStatsColumns) sql += std::string(", ") + c;
    sql += " FROM bd_stats ORDER BY node, bd_id";
    if (!prep(sql.c_str())) return false;
    for (bool first = true; row(); first = false) {
        nlohmann::ordered_json o;
        o["node"] = sqlite3_column_int64(s, 0);
        o["bd_id"] = sqlite3_column_int64(s, 1);
        for (int i = 0; i < sysdb_schema::kBdStatsCount; i++)
            o[sysdb_schema::kBdStatsColumns[i]] = static_cast<uint64_t>(sqlite3_column_int64(s, i + 2));
        out << (first ? "" : ",") << "\n    " << o.dump();
    }
    if (!done()) return false;
    out << "\n  ],\n  \"roots\": {";

    struct List {
        int64_t id;
        std::string root, path;
    };
    std::vector<List> lists;
    if (!prep("SELECT id, root, path FROM listing WHERE instr(path, '#') = 0 ORDER BY root, path"))
        return false;
    while (row())
        lists.push_back({sqlite3_column_int64(s, 0), reinterpret_cast<const char *>(sqlite3_column_text(s, 1)),
                         reinterpret_cast<const char *>(sqlite3_column_text(s, 2))});
    if (!done()) return false;
    uint64_t items = 0;
    if (progress && progress->on()) {
        // Only for the display: counting walks the whole item table.
        if (!prep("SELECT count(*) FROM item")) return false;
        if (!row()) {
            if (rc == SQLITE_DONE) rc = SQLITE_CORRUPT;  // count(*) always has its row
            return done();
        }
        progress->set_total(static_cast<uint64_t>(sqlite3_column_int64(s, 0)));
    }
    if (!prep("SELECT name, data FROM item WHERE list = ?1 ORDER BY skey")) return false;
    std::string root;
    std::vector<uint64_t> buf;
    std::string record;
    for (size_t i = 0; i < lists.size(); i++) {
        const List &l = lists[i];
        const ListingDef *def = sysdb_registry_find(l.path);
        if (!def) continue;
        if (l.root != root) {
            out << (root.empty() ? "" : "\n    }") << (root.empty() ? "" : ",") << "\n    "
                << json(l.root).dump() << ": {";
            root = l.root;
            out << "\n";
        } else {
            out << ",\n";
        }
        out << "      " << json(l.path).dump() << ": [";
        sqlite3_reset(s);
        sqlite3_bind_int64(s, 1, l.id);
        buf.assign(def->desc->size / 8 + 1, 0);
        for (bool first = true; row(); first = false) {
            record.clear();
            if (!sysdb_schema::unpack_record(sqlite3_column_blob(s, 1),
                                             static_cast<size_t>(sqlite3_column_bytes(s, 1)),
                                             BAG_MAX_RECORD, record))
                record.clear();  // does not decode either
            const void *data = record.data();
            const size_t len = record.size();
            const char *name = reinterpret_cast<const char *>(sqlite3_column_text(s, 0));
            out << (first ? "" : ",") << "\n        ";
            if (progress) {
                items++;
                progress->update(items, items);
            }
            if (bag_decode(data, static_cast<uint32_t>(len), buf.data(),
                           static_cast<uint32_t>(buf.size() * 8), def->desc) != 0) {
                out << "{\"__undecodable_item\": " << json(name ? name : "").dump() << "}";
                continue;
            }
            out << record_to_json(buf.data(), def->desc).dump();
            bag_free_indirections(buf.data(), def->desc);
        }
        if (!done()) return false;
        out << "\n      ]";
    }
    if (!root.empty()) out << "\n    }";
    out << "\n  }\n}\n";
    sqlite3_finalize(s);
    return true;
}

}  // namespace evpn
