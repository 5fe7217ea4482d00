// evpn_sysdb: builds, inspects and fills operational databases.
//
//   evpn_sysdb load SNAPSHOT.json [--db FILE]
//   evpn_sysdb dump [PATH] [--db FILE] [--root ROOT]
//   evpn_sysdb dump [SHOW OPTIONS] COMMAND [--db FILE]
//   evpn_sysdb gen [--routes N] [--evis E] [--<kind> N ...] [--seed S] [--db FILE] [--json FILE]
//   evpn_sysdb collect --bmp [ADDR:]PORT | --bmp-file FILE [--db FILE] [...]
//   evpn_sysdb gen-bmp --routes N [--evis E] [--peers P] [--seed S] [--withdraw] --out FILE
//   evpn_sysdb listings
//   evpn_sysdb --help | --version
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "collector.h"
#include "evpn_bmp/bmp_gen.h"
#include "evpn_show_print.h"
#include "evpn_show_words.h"
#include "generator.h"
#include "json_record.h"
#include "json_writer.h"
#include "platform/bag.h"
#include "platform/cerr.h"
#include "platform/formatters.h"
#include "platform/sysdb.h"
#include "platform/sysdb_registry.h"
#include "platform/sysdb_schema.h"
#include "progress.h"
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

void help(FILE *out) {
    fprintf(out,
            "usage: evpn_sysdb load SNAPSHOT.json [--db FILE]\n"
            "       evpn_sysdb dump [PATH] [--db FILE] [--root ROOT] [--skip-undecodable]\n"
            "       evpn_sysdb dump [SHOW OPTIONS] COMMAND [--db FILE]\n"
            "       evpn_sysdb gen [--routes N] [--evis E] [--KIND N ...] [--seed S] [--db FILE]\n"
            "                      [--json FILE]\n"
            "       evpn_sysdb collect --bmp [ADDRESS:]PORT | --bmp-file FILE [--db FILE] ...\n"
            "       evpn_sysdb gen-bmp --routes N [--evis E] [--peers P] [--seed S] [--withdraw]\n"
            "                          --out FILE\n"
            "       evpn_sysdb listings\n"
            "       evpn_sysdb --help | --version\n"
            "\n"
            "load builds FILE from a snapshot (\"-\" reads standard input); FILE is left as\n"
            "it was when the snapshot has an error. Without PATH, dump prints the whole\n"
            "database as a snapshot; with PATH, the items of that listing or the one item;\n"
            "with a show command (evpn_show_client's options and number: dump -M 64 0,\n"
            "or dump 7), exactly the records that command lists, in its order. Both write\n"
            "JSON Lines, a record a line, each code with a word as \"state\":\"Up\",\n"
            "\"state_code\":2. --db and --root may stand anywhere on the line. An item\n"
            "that does not decode is named on standard error and fails the dump (status 1)\n"
            "after the rest is written; --skip-undecodable leaves such items out, so that\n"
            "the snapshot loads.\n"
            "gen fills FILE (and, with --json, a snapshot of the same data) with N\n"
            "synthetic MAC routes over E EVIs (default 0 routes, 1 EVI) and N records of\n"
            "each KIND asked for; the same seed gives the same data. gen-bmp writes a\n"
            "BMP stream (\"-\": standard output) of N routes of each EVPN route type, 1 to 5,\n"
            "over E EVIs (default 100) from P peers (default 1), then with --withdraw\n"
            "their withdraws, for a collector to replay. collect keeps FILE current from\n"
            "routers' BMP sessions (evpn_sysdb collect --help). listings names the\n"
            "listings a database can hold. Kinds:\n");
    for (const evpn::GenKindInfo &k : evpn::kGenKinds)
        fprintf(out, "  %-16s %s\n", kind_option(k).c_str(), k.what);
    fprintf(out,
            "\n"
            "FILE: $EVPN_SYSDB; else, run from a build tree, its demo.db; else, installed\n"
            "in PREFIX/bin, PREFIX/var/lib/evpn-show/sysdb.db (/var/lib/... for /usr).\n"
            "Here: %s (%s).\n"
            "ROOT: /oper/evpn/gl/ (default), /oper/evpn/gl/stdby/ or /oper/evpn/node/<hex id>/.\n"
            "Exit status: 0 done, 1 failed (nothing changed), 2 bad command line.\n",
            sysdb_library_path(), sysdb_library_path_origin());
}

// A command line that does not parse: what is wrong, on standard error.
int bad_usage(const char *command, const std::string &what) {
    fprintf(stderr, "evpn_sysdb: %s%s%s\nTry 'evpn_sysdb --help'.\n", command, *command ? ": " : "",
            what.c_str());
    return 2;
}

// The default database of an installed program lives in a folder of its own
// (PREFIX/var/lib/evpn-show) that nothing else makes: a writing command makes
// it on first use. A database named on the command line is left to its owner.
bool make_default_folder(const std::string &db) {
    if (strcmp(sysdb_library_path_origin(), "installed") != 0) return true;
    for (size_t slash = db.find('/', 1); slash != std::string::npos; slash = db.find('/', slash + 1)) {
        std::string dir = db.substr(0, slash);
        if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
            fprintf(stderr, "evpn_sysdb: cannot make %s: %s\n", dir.c_str(), strerror(errno));
            return false;
        }
    }
    return true;
}

struct Args {
    std::string command, arg, db, root = "/oper/evpn/gl/";
    bool skip_undecodable = false;  // dump: leave out items that do not decode
};

// 0 when the arguments parse, else the exit status with the complaint printed.
int parse_args(int argc, char **argv, Args &a) {
    a.command = argv[1];
    const char *c = a.command.c_str();
    for (int i = 2; i < argc; i++) {
        std::string s = argv[i];
        if (s == "--db" || s == "--root") {
            if (i + 1 >= argc) return bad_usage(c, s + " wants a value");
            (s == "--db" ? a.db : a.root) = argv[++i];
        } else if (s == "--skip-undecodable" && a.command == "dump") {
            a.skip_undecodable = true;
        } else if (s.size() > 1 && s[0] == '-' && s != "-") {
            return bad_usage(c, "unknown option '" + s + "'");
        } else if (!a.arg.empty()) {
            return bad_usage(c, "one argument only, got '" + a.arg + "' and '" + s + "'");
        } else {
            a.arg = s;
        }
    }
    if (!sysdb_schema::valid_root(a.root.c_str()))
        return bad_usage(c, "unknown root '" + a.root +
                                "' (roots: /oper/evpn/gl/, /oper/evpn/gl/stdby/, "
                                "/oper/evpn/node/<hex id>/)");
    if (a.db.empty()) {
        a.db = sysdb_library_path();
        if (a.command == "load" && !make_default_folder(a.db)) return 1;
    }
    return 0;
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
    if (a.arg.empty()) return bad_usage("load", "which snapshot? (a file, or - for standard input)");
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
    evpn::Progress progress("loading");
    struct stat st;
    if (a.arg != "-" && stat(a.arg.c_str(), &st) == 0 && S_ISREG(st.st_mode))
        progress.set_total(static_cast<uint64_t>(st.st_size));
    const bool loaded = evpn::load_snapshot(in, a.db, stats, err, &progress);
    progress.finish();
    if (!loaded) {
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

// An item a dump cannot decode, named on standard error (its name as a
// terminal may show it: the store was damaged by other means).
void report_undecodable(std::string_view root, std::string_view listing, std::string_view name,
                        const char *why) {
    char shown[SYSDB_MAX_ITEM_NAME * 2 + 2];
    display_safe_text(name.data(), name.size(), shown, sizeof shown);
    fprintf(stderr, "evpn_sysdb: %.*s %.*s: item %s does not decode: %s\n",
            static_cast<int>(root.size()), root.data(), static_cast<int>(listing.size()),
            listing.data(), shown, why);
}

// The count of a dump's undecodable items on standard error; true when they
// fail the dump (they were written as markers, not left out).
bool undecodable_status(uint64_t n, bool skipped) {
    if (!n) return false;
    if (skipped) {
        fprintf(stderr, "evpn_sysdb: left out %llu item%s that do%s not decode\n",
                static_cast<unsigned long long>(n), n == 1 ? "" : "s", n == 1 ? "es" : "");
        return false;
    }
    fprintf(stderr,
            "evpn_sysdb: %llu item%s do%s not decode; the output names %s but cannot load back "
            "(--skip-undecodable leaves %s out)\n",
            static_cast<unsigned long long>(n), n == 1 ? "" : "s", n == 1 ? "es" : "",
            n == 1 ? "it" : "them", n == 1 ? "it" : "them");
    return true;
}

// Items of one path through the system database client, as the show client sees them.
int dump_path(const Args &a) {
    if (access(a.db.c_str(), R_OK) != 0) {
        fprintf(stderr, "evpn_sysdb: cannot read %s: %s\n", a.db.c_str(), strerror(errno));
        return 1;
    }
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
    evpn::JsonText text;
    bool written = true;
    uint64_t undecodable = 0;
    // One JSON line a record, as the show form writes them: {"path", "name",
    // "record"}, path the listing the record is an item of.
    std::string listing = path;
    auto print = [&](const char *name, const void *data, uint32_t len) {
        if (uint32_t rc = bag_decode(data, len, buf.data(), static_cast<uint32_t>(buf.size() * 8),
                                     def->desc)) {
            undecodable++;
            report_undecodable(a.root, path, name ? name : "", cerr_strerror(rc));
            if (a.skip_undecodable) return;
            text.raw("{\"path\":");
            text.string(listing);
            text.raw(",\"name\":");
            text.string(name ? name : "");
            text.raw(",\"error\":\"record does not decode\"");
        } else {
            text.raw("{\"path\":");
            text.string(listing);
            text.raw(",\"name\":");
            text.string(name ? name : "");
            text.raw(",\"record\":");
            evpn::record_json(text, buf.data(), def->desc, evpn::JsonForm::Compact, 0,
                              evpn_show_field_words());
            bag_free_indirections(buf.data(), def->desc);
        }
        text.raw("}\n");
        if (text.size() >= (1 << 16)) written = written && text.write_to(std::cout);
    };
    void *data = nullptr;
    uint32_t len = 0, type = 0;
    int status = 0;
    if (sysdb_item_get(h, path.c_str(), &type, &data, &len, 0) == 0) {
        // One item: its listing is the path up to its name ("summary" is both).
        const size_t slash = path.rfind('/');
        if (slash != std::string::npos) listing = path.substr(0, slash);
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
    written = written && text.write_to(std::cout);
    if (!output_ok() || !written) return 1;
    return undecodable_status(undecodable, a.skip_undecodable) ? 1 : status;
}

// ---- JSON view of a show command ---------------------------------------------
// `dump [client options] COMMAND`: the show client's own command runs, with
// the same filters, paths and order, but its report goes to a scratch memory
// stream and each record it lists (a printer that printed something for it)
// comes out as one JSON line: {"path", "name", "record"}. The scratch stream
// is rewound between records, so memory stays flat.
struct JsonView {
    FILE *text = nullptr, *json = nullptr;
    char *text_buf = nullptr;
    size_t text_len = 0;
    long mark = 0;
    bool failed = false;
    std::string cut;  // why the filters cannot be shown, when they cannot
    evpn::JsonText line;  // one record's line, its memory kept from record to record
};
JsonView g_view;

void view_before() {
    fflush(g_view.text);
    if (ftell(g_view.text) > (1 << 20)) fseek(g_view.text, 0, SEEK_SET);
    g_view.mark = ftell(g_view.text);
}

void view_after(const BagDesc *desc, const char *path, const char *name, const void *record) {
    fflush(g_view.text);
    if (ftell(g_view.text) == g_view.mark) return;  // the printer passed it over
    if (!g_view.cut.empty()) return;  // records of a cut path are another item's
    evpn::JsonText &line = g_view.line;
    line.clear();
    line.raw("{\"path\":");
    line.string(path);
    line.raw(",\"name\":");
    line.string(name ? name : "");
    line.raw(",\"record\":");
    evpn::record_json(line, record, desc, evpn::JsonForm::Compact, 0, evpn_show_field_words());
    line.raw("}\n");
    if (fwrite(line.data(), 1, line.size(), g_view.json) != line.size()) g_view.failed = true;
}

// The client cuts a filter text at its buffer and shows what the cut text
// names; the view refuses the command instead (options are read and paths
// made before a command's first request, so no record of a cut text gets
// out).
void view_value_cut(const char *what, const char *text, size_t length, size_t room) {
    if (!g_view.cut.empty()) return;
    char shown[48];
    display_safe_text(text, strlen(text), shown, sizeof shown);
    g_view.cut = std::string("the filter values make ") + what + " of " + std::to_string(length) +
                 " characters (" + shown + "...); at most " + std::to_string(room) + " fit";
}

const RecordListener kViewListener{view_before, view_after, view_value_cut};

// True for a dump whose words, --db and --root with their values left out,
// are client options (the first starts with '-') and a show command number
// last, or that number alone (hexadecimal, as the client takes it): listing
// names are words, never one or two hex digits. --db may stand anywhere:
// "dump -M 64 0 --db my.db", "dump --db my.db -M 64 0", "dump 7 --db my.db".
bool is_show_form(int argc, char **argv) {
    const char *first = nullptr, *last = nullptr;
    for (int i = 2; i < argc; i++) {
        if ((strcmp(argv[i], "--db") == 0 || strcmp(argv[i], "--root") == 0) && i + 1 < argc) {
            i++;
            continue;
        }
        if (!first) first = argv[i];
        last = argv[i];
    }
    if (!last || (first != last && first[0] != '-')) return false;
    size_t n = strlen(last);
    return n >= 1 && n <= 2 && strspn(last, "0123456789abcdefABCDEF") == n;
}

int cmd_dump_show(int argc, char **argv) {
    std::vector<char *> client_argv{const_cast<char *>("evpn_show_client")};
    for (int i = 2; i < argc; i++) {
        std::string s = argv[i];
        if (s == "--db") {
            if (i + 1 >= argc) return bad_usage("dump", "--db wants a value");
            setenv("EVPN_SYSDB", argv[++i], 1);
        } else if (s.rfind("--", 0) == 0) {
            return bad_usage("dump", "'" + s + "' does not go with a show command (use -U for a view)");
        } else {
            client_argv.push_back(argv[i]);
        }
    }
    client_argv.push_back(nullptr);

    fflush(stdout);
    int out = dup(STDOUT_FILENO);
    g_view.json = out >= 0 ? fdopen(out, "w") : nullptr;
    g_view.text = open_memstream(&g_view.text_buf, &g_view.text_len);
    if (!g_view.json || !g_view.text) {
        fprintf(stderr, "evpn_sysdb: dump: %s\n", strerror(errno));
        return 1;
    }
    static char json_buf[1 << 16];
    setvbuf(g_view.json, json_buf, _IOFBF, sizeof json_buf);
    FILE *saved = stdout;
    stdout = g_view.text;
    evpn_show_set_listener(&kViewListener);
    int status = evpn_show_main(static_cast<int>(client_argv.size() - 1), client_argv.data());
    evpn_show_set_listener(nullptr);
    stdout = saved;
    fclose(g_view.text);
    free(g_view.text_buf);
    if (fclose(g_view.json) != 0 || g_view.failed) {
        fprintf(stderr, "evpn_sysdb: dump: writing the records: %s\n", strerror(errno));
        return 1;
    }
    if (!g_view.cut.empty()) return bad_usage("dump", g_view.cut);
    return status;
}

int cmd_dump(const Args &a) {
    if (!a.arg.empty()) return dump_path(a);
    std::string err;
    evpn::Progress progress("dumping");
    evpn::DumpOptions options;
    options.skip_undecodable = a.skip_undecodable;
    options.undecodable = [&](std::string_view root, std::string_view listing,
                              std::string_view name, const char *why) {
        progress.finish();  // the message on a line of its own
        report_undecodable(root, listing, name, why);
    };
    uint64_t undecodable = 0;
    const bool dumped = evpn::dump_snapshot(a.db, std::cout, err, &progress, options, &undecodable);
    const int why = errno;
    progress.finish();
    if (!dumped) {
        if (!std::cout) {
            fprintf(stderr, "evpn_sysdb: writing standard output: %s\n", strerror(why ? why : EIO));
            return 1;
        }
        fprintf(stderr, "evpn_sysdb: %s\n", err.c_str());
        return 1;
    }
    if (!output_ok()) return 1;
    return undecodable_status(undecodable, a.skip_undecodable) ? 1 : 0;
}

// Synthetic data at scale: into the database, and as a snapshot with --json.
int cmd_gen(int argc, char **argv) {
    evpn::GenOptions opt;
    std::string db, json_path;
    bool asked = false;  // gen without anything to make is a slip, not an empty database
    for (int i = 2; i < argc; i++) {
        std::string s = argv[i];
        if (s.rfind("--", 0) != 0) return bad_usage("gen", "unexpected argument '" + s + "'");
        if (i + 1 >= argc) return bad_usage("gen", s + " wants a value");
        const char *v = argv[++i];
        if (s == "--db") {
            db = v;
            continue;
        }
        if (s == "--json") {
            json_path = v;
            continue;
        }
        char *end = nullptr;
        errno = 0;
        unsigned long long n = strtoull(v, &end, 0);
        bool number = *v && *end == 0 && errno == 0 && *v != '-';
        uint64_t *target = nullptr;
        for (unsigned k = 0; k < evpn::GEN_KIND_COUNT; k++)
            if (s == kind_option(evpn::kGenKinds[k])) target = &opt.count[k];
        if (s == "--routes") target = &opt.routes;
        if (s == "--seed") target = &opt.seed;
        if (!target && s != "--evis") return bad_usage("gen", "unknown option '" + s + "'");
        if (!number)
            return bad_usage("gen", s + " wants a whole number, got '" + std::string(v) + "'");
        if (s == "--evis") {
            if (n == 0 || n > 0xffffffffull)
                return bad_usage("gen", "--evis wants 1 to 4294967295, got '" + std::string(v) + "'");
            opt.evis = static_cast<uint32_t>(n);
            continue;
        }
        *target = n;
        asked |= s != "--seed";
    }
    if (!asked) return bad_usage("gen", "nothing to make: give --routes or a kind (see --help)");
    if (db.empty()) {
        db = sysdb_library_path();
        if (!make_default_folder(db)) return 1;
    }

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
    evpn::Progress progress("generating");
    bool ok = evpn::generate(opt, w.get(), json_path.empty() ? nullptr : &json, err, &c, &progress);
    progress.finish();
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
            fprintf(stderr, "evpn_sysdb: generated %llu %s (%llu list entries)\n",
                    static_cast<unsigned long long>(opt.count[k]), evpn::kGenKinds[k].what,
                    static_cast<unsigned long long>(c.list_entries[k]));
    return 0;
}

// ---- gen-bmp: a BMP stream for a collector to replay ---------------------------

int cmd_gen_bmp(int argc, char **argv) {
    evpn::bmp::GenBmpOptions opt;
    std::string out;
    bool routes_given = false;
    for (int i = 2; i < argc; i++) {
        const std::string s = argv[i];
        if (s == "--withdraw") {
            opt.withdraw = true;
            continue;
        }
        if (s != "--routes" && s != "--evis" && s != "--peers" && s != "--seed" && s != "--out")
            return bad_usage("gen-bmp", "unknown option '" + s + "'");
        if (i + 1 >= argc) return bad_usage("gen-bmp", s + " wants a value");
        const char *v = argv[++i];
        if (s == "--out") {
            out = v;
            continue;
        }
        char *end = nullptr;
        errno = 0;
        const unsigned long long n = strtoull(v, &end, 0);
        if (!*v || *end || errno || *v == '-')
            return bad_usage("gen-bmp", s + " wants a whole number, got '" + std::string(v) + "'");
        if ((s == "--evis" || s == "--peers") && (n == 0 || n > 0xffffffffull))
            return bad_usage("gen-bmp", s + " wants 1 to 4294967295, got '" + std::string(v) + "'");
        if (s == "--routes") opt.routes = n, routes_given = true;
        if (s == "--evis") opt.evis = uint32_t(n);
        if (s == "--peers") opt.peers = uint32_t(n);
        if (s == "--seed") opt.seed = n;
    }
    if (!routes_given) return bad_usage("gen-bmp", "how many routes? give --routes N");
    if (out.empty()) return bad_usage("gen-bmp", "where to? give --out FILE");

    FILE *f = out == "-" ? stdout : fopen(out.c_str(), "wb");
    if (!f) {
        fprintf(stderr, "evpn_sysdb: gen-bmp: %s: %s\n", out.c_str(), strerror(errno));
        return 1;
    }
    evpn::bmp::GenBmpCounts c;
    bool ok = evpn::bmp::gen_bmp_stream(opt, [&](std::span<const uint8_t> b) {
        return fwrite(b.data(), 1, b.size(), f) == b.size();
    }, &c);
    int saved = ok ? 0 : errno;
    if (f == stdout ? fflush(f) != 0 : fclose(f) != 0) {
        saved = errno;
        ok = false;
    }
    if (!ok) {
        fprintf(stderr, "evpn_sysdb: gen-bmp: %s: %s\n", out.c_str(), strerror(saved ? saved : EIO));
        struct stat st;  // a half-written file goes, when it is a file of its own
        if (out != "-" && lstat(out.c_str(), &st) == 0 && S_ISREG(st.st_mode)) unlink(out.c_str());
        return 1;
    }
    fprintf(stderr, "evpn_sysdb: wrote %llu BMP messages (%llu routes announced, %llu withdrawn, %llu bytes) to %s\n",
            static_cast<unsigned long long>(c.messages), static_cast<unsigned long long>(c.announced),
            static_cast<unsigned long long>(c.withdrawn), static_cast<unsigned long long>(c.bytes), out.c_str());
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) return bad_usage("", "which command? load, dump or gen");
    std::string command = argv[1];
    if (command == "--help" || command == "-h" || command == "help") {
        help(stdout);
        return fflush(stdout) == 0 && !ferror(stdout) ? 0 : 1;
    }
    if (command == "--version") {
        printf("evpn_sysdb %s\n", EVPN_VERSION);
        return fflush(stdout) == 0 && !ferror(stdout) ? 0 : 1;
    }
    if (command == "gen") return cmd_gen(argc, argv);
    if (command == "collect") return evpn::collector::collect_main(argc, argv);
    if (command == "gen-bmp") return cmd_gen_bmp(argc, argv);
    if (command == "dump" && is_show_form(argc, argv)) return cmd_dump_show(argc, argv);
    if (command == "listings" && argc == 2) {
        for (const ListingDef &l : sysdb_registry())
            printf("%s\n", l.child ? (std::string(l.base) + "/<item>/" + l.child).c_str() : l.base);
        return fflush(stdout) == 0 && !ferror(stdout) ? 0 : 1;
    }
    if (command != "load" && command != "dump")
        return bad_usage("", "unknown command '" + command + "' (load, dump or gen)");
    Args a;
    if (int status = parse_args(argc, argv, a)) return status;
    if (a.command == "load") return cmd_load(a);
    return cmd_dump(a);
}
