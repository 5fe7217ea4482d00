// evpn_sysdb: builds, inspects and fills operational databases.
//
//   evpn_sysdb load SNAPSHOT.json [--db FILE]
//   evpn_sysdb dump [PATH] [--db FILE] [--root ROOT]
//   evpn_sysdb gen [--routes N] [--evis E] [--<kind> N ...] [--seed S] [--db FILE] [--json FILE]
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "generator.h"
#include "json_record.h"
#include "platform/bag.h"
#include "platform/cerr.h"
#include "platform/sysdb.h"
#include "platform/sysdb_registry.h"
#include "snapshot.h"
#include "sysdb_writer.h"

namespace {

// "--teps" for the kind "teps": the option that asks for a kind's records.
std::string kind_option(const evpn::GenKindInfo &k) {
    std::string o = std::string("--") + k.name;
    for (char &c : o)
        if (c == '_') c = '-';
    return o;
}

int usage() {
    fprintf(stderr,
            "usage: evpn_sysdb load SNAPSHOT.json [--db FILE]\n"
            "       evpn_sysdb dump [PATH] [--db FILE] [--root ROOT]\n"
            "       evpn_sysdb gen [--routes N] [--evis E] [--KIND N ...] [--seed S] [--db FILE]\n"
            "                      [--json FILE]\n"
            "FILE defaults to $EVPN_SYSDB, else %s.\n"
            "ROOT defaults to /oper/evpn/gl/. Without PATH, dump prints the whole database\n"
            "as a snapshot; with PATH, the items of that listing or the one item.\n"
            "gen fills FILE (and, with --json, a snapshot of the same data) with N\n"
            "synthetic MAC routes over E EVIs (default 0 routes, 1 EVI) and N records of\n"
            "each KIND asked for; the same seed gives the same data. Kinds:\n",
            sysdb_library_path());
    for (const evpn::GenKindInfo &k : evpn::kGenKinds)
        fprintf(stderr, "  %-16s %s\n", kind_option(k).c_str(), k.what);
    return 2;
}

struct Args {
    std::string command, arg, db, root = "/oper/evpn/gl/";
};

bool parse_args(int argc, char **argv, Args &a) {
    if (argc < 2) return false;
    a.command = argv[1];
    for (int i = 2; i < argc; i++) {
        std::string s = argv[i];
        if ((s == "--db" || s == "--root") && i + 1 < argc) {
            (s == "--db" ? a.db : a.root) = argv[++i];
        } else if ((s.rfind("--", 0) == 0) || !a.arg.empty()) {
            return false;
        } else {
            a.arg = s;
        }
    }
    if (a.db.empty()) a.db = sysdb_library_path();
    return true;
}

// Standard output written whole: every byte reached the file, or the
// command fails with why.
bool output_ok() {
    std::cout.flush();
    if (std::cout && fflush(stdout) == 0 && !ferror(stdout)) return true;
    fprintf(stderr, "evpn_sysdb: writing standard output: %s\n", strerror(errno ? errno : EIO));
    return false;
}

int cmd_load(const Args &a) {
    if (a.arg.empty()) return usage();
    // "-": the snapshot on standard input.
    std::ifstream file;
    if (a.arg != "-") {
        struct stat st;
        errno = 0;
        if (stat(a.arg.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) errno = EISDIR;
        else if (access(a.arg.c_str(), R_OK) == 0) file.open(a.arg, std::ios::binary);
        if (!file.is_open()) {
            fprintf(stderr, "evpn_sysdb: cannot read %s: %s\n", a.arg.c_str(),
                    strerror(errno ? errno : EIO));
            return 1;
        }
    }
    std::istream &in = a.arg == "-" ? std::cin : file;
    evpn::LoadStats stats;
    std::string err;
    if (!evpn::load_snapshot(in, a.db, stats, err)) {
        fprintf(stderr, "evpn_sysdb: %s: %s\nevpn_sysdb: %s left unchanged\n", a.arg.c_str(),
                err.c_str(), a.db.c_str());
        return 1;
    }
    fprintf(stderr, "evpn_sysdb: loaded %llu records, %llu interfaces, %llu bd counters into %s\n",
            static_cast<unsigned long long>(stats.records),
            static_cast<unsigned long long>(stats.interfaces),
            static_cast<unsigned long long>(stats.bd_stats), a.db.c_str());
    return 0;
}

// Items of one path through the system database client, as the show client sees them.
int dump_path(const Args &a) {
    setenv("EVPN_SYSDB", a.db.c_str(), 1);
    sysdb_handle_td h = nullptr;
    if (uint32_t rc = _sysdb_bind(&h, a.root.c_str(), SYSDB_BIND_READ)) {
        fprintf(stderr, "evpn_sysdb: %s: %s\n", a.db.c_str(), cerr_strerror(rc));
        return 1;
    }
    std::string path = a.arg;
    // The record type: the listing at the path (a per-item listing's own
    // path among them), else the listing whose base starts the path.
    const ListingDef *def = sysdb_registry_find(path);
    if (!def)
        for (const ListingDef &l : sysdb_registry())
            if (path.compare(0, strlen(l.base), l.base) == 0 &&
                (!def || strlen(l.base) > strlen(def->base)))
                def = &l;
    if (!def) {
        fprintf(stderr, "evpn_sysdb: no listing holds %s\n", path.c_str());
        _sysdb_unbind(h);
        return 1;
    }
    std::vector<uint64_t> buf(def->desc->size / 8 + 1);
    auto print = [&](const char *name, const void *data, uint32_t len) {
        nlohmann::ordered_json o;
        o["name"] = name;
        if (bag_decode(data, len, buf.data(), static_cast<uint32_t>(buf.size() * 8), def->desc)) {
            o["error"] = "record does not decode";
        } else {
            o["record"] = evpn::record_to_json(buf.data(), def->desc);
            bag_free_indirections(buf.data(), def->desc);
        }
        std::cout << o.dump(2) << "\n";
    };
    void *data = nullptr;
    uint32_t len = 0, type = 0;
    int status = 0;
    if (sysdb_item_get(h, path.c_str(), &type, &data, &len, 0) == 0) {
        print(l2vpn_edm_sysdb_path_to_item_name(path.c_str()), data, len);
        free(data);
    } else {
        std::string resume;
        uint32_t flags = 0, found = 0;
        while (true) {
            uint32_t count = 200;
            sysdb_datalist_h_td dl = nullptr;
            uint32_t rc = sysdb_datalist(h, path.c_str(), resume.c_str(), &count, &dl, flags);
            if (rc || !count) {
                if (rc != SYSDB_ERR_NOT_FOUND || (!found && !flags)) {
                    fprintf(stderr, "evpn_sysdb: %s: %s\n", path.c_str(), cerr_strerror(rc));
                    status = 1;
                }
                break;
            }
            const char *name;
            while (sysdb_datalist_next(dl, &name, &type, &data, &len, nullptr) == 0) {
                print(name, data, len);
                resume = name;
                found++;
            }
            uint32_t more = 0;
            sysdb_datalist_get_more_flag(dl, &more);
            sysdb_datalist_free(dl);
            if (count < 200 && !more) break;
            flags = SYSDB_DATALIST_RESUME;
        }
    }
    _sysdb_unbind(h);
    return output_ok() ? status : 1;
}

int cmd_dump(const Args &a) {
    if (!a.arg.empty()) return dump_path(a);
    std::string err;
    if (!evpn::dump_snapshot(a.db, std::cout, err)) {
        fprintf(stderr, "evpn_sysdb: %s\n", err.c_str());
        return 1;
    }
    return output_ok() ? 0 : 1;
}

// Synthetic data at scale: into the database, and as a snapshot with --json.
int cmd_gen(int argc, char **argv) {
    evpn::GenOptions opt;
    std::string db, json_path;
    bool asked = false;  // gen without anything to make is a slip, not an empty database
    for (int i = 2; i < argc; i++) {
        std::string s = argv[i];
        if (i + 1 >= argc) return usage();
        const char *v = argv[++i];
        char *end = nullptr;
        errno = 0;
        unsigned long long n = strtoull(v, &end, 0);
        bool number = *v && *end == 0 && errno == 0 && *v != '-';
        bool kind = false;
        for (unsigned k = 0; k < evpn::GEN_KIND_COUNT && number; k++)
            if (s == kind_option(evpn::kGenKinds[k])) opt.count[k] = n, kind = true;
        asked |= kind || s == "--routes";
        if (kind) continue;
        if (s == "--db") db = v;
        else if (s == "--json") json_path = v;
        else if (s == "--routes" && number) opt.routes = n;
        else if (s == "--evis" && number && n > 0 && n <= 0xffffffffull)
            opt.evis = static_cast<uint32_t>(n);
        else if (s == "--seed" && number) opt.seed = n;
        else return usage();
    }
    if (!asked) return usage();
    if (db.empty()) db = sysdb_library_path();

    std::string err;
    auto w = evpn::SysdbWriter::open(db, err);
    if (!w) {
        fprintf(stderr, "evpn_sysdb: %s\n", err.c_str());
        return 1;
    }
    std::ofstream json;
    std::vector<char> json_buf(1 << 20);
    if (!json_path.empty()) {
        json.rdbuf()->pubsetbuf(json_buf.data(), static_cast<std::streamsize>(json_buf.size()));
        json.open(json_path, std::ios::binary | std::ios::trunc);
        if (!json) {
            fprintf(stderr, "evpn_sysdb: cannot write %s\n", json_path.c_str());
            return 1;
        }
    }
    evpn::GenCounts c;
    char when[32];
    time_t now = time(nullptr);
    strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%SZ", gmtime(&now));
    bool ok = evpn::generate(opt, w.get(), json_path.empty() ? nullptr : &json, err, &c);
    if (ok && !json_path.empty()) {
        // The snapshot is checked whole before the database takes its place.
        errno = 0;
        json.close();
        if (json.fail()) {
            ok = false;
            err = json_path + ": " + strerror(errno ? errno : EIO);
        }
    } else if (!ok && !json_path.empty() && json.is_open() && json.fail()) {
        err = json_path + ": " + strerror(errno ? errno : EIO);
    }
    if (!ok || !w->set_meta("loaded_at", when, err) || !w->commit(err)) {
        fprintf(stderr, "evpn_sysdb: gen: %s\nevpn_sysdb: %s left unchanged\n", err.c_str(),
                db.c_str());
        // The half-written snapshot goes, when it is a file of its own (never
        // a device or a pipe it was written to).
        struct stat st;
        if (!json_path.empty() && lstat(json_path.c_str(), &st) == 0 && S_ISREG(st.st_mode))
            unlink(json_path.c_str());
        return 1;
    }
    fprintf(stderr,
            "evpn_sysdb: generated %llu routes (%llu local, %llu remote, %llu MAC+IPv4, "
            "%llu MAC+IPv6, %llu remote paths) over %u EVIs into %s%s%s\n",
            static_cast<unsigned long long>(c.routes), static_cast<unsigned long long>(c.local),
            static_cast<unsigned long long>(c.remote), static_cast<unsigned long long>(c.ipv4),
            static_cast<unsigned long long>(c.ipv6), static_cast<unsigned long long>(c.paths),
            opt.evis, db.c_str(), json_path.empty() ? "" : " and ", json_path.c_str());
    for (unsigned k = 0; k < evpn::GEN_KIND_COUNT; k++)
        if (opt.count[k])
            fprintf(stderr, "evpn_sysdb: generated %llu %s\n",
                    static_cast<unsigned long long>(opt.count[k]), evpn::kGenKinds[k].what);
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc >= 2 && strcmp(argv[1], "gen") == 0) return cmd_gen(argc, argv);
    Args a;
    if (!parse_args(argc, argv, a)) return usage();
    if (a.command == "load") return cmd_load(a);
    if (a.command == "dump") return cmd_dump(a);
    return usage();
}
