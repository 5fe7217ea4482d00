// bench_load_floor: the least a snapshot load can cost. One thread parses the
// snapshot with a library JSON parser, touching every value; beside it,
// another inserts into a new database the rows a load of that snapshot made
// (read from MADE.db before the clock starts), in one transaction, with the
// loader's pragmas and many rows a statement, then syncs the file. Nothing
// is converted, encoded, packed or keyed: a load's time over this one's is
// its own cost.
//
//   bench_load_floor rapidjson|simdjson|preload SNAPSHOT.json MADE.db OUT.db
//
// Prints, on standard output, the seconds from reading the snapshot to the
// file synced, then the user and system CPU seconds of that span (both
// threads), then each thread's own CPU seconds (parse, insert); the rows'
// preloading is counted in none of them. preload stops once the rows are
// read and OUT.db is open: what a run costs before its clock starts, to take
// from its instruction count.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <simdjson.h>

#include "platform/sysdb_schema.h"

namespace {

// One table's rows, columns in a flat list: each value an integer, a text or
// a blob, as SQLite gave it.
struct Table {
    std::string name;
    int columns = 0;
    struct Value {
        int type;
        int64_t i;
        std::string bytes;
    };
    std::vector<Value> values;
};

[[noreturn]] void die(const char *what, sqlite3 *db) {
    fprintf(stderr, "bench_load_floor: %s: %s\n", what, db ? sqlite3_errmsg(db) : "");
    exit(1);
}

Table read_table(sqlite3 *db, const char *name) {
    Table t;
    t.name = name;
    std::string sql = std::string("SELECT * FROM ") + name;
    sqlite3_stmt *s = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &s, nullptr) != SQLITE_OK) die(name, db);
    t.columns = sqlite3_column_count(s);
    while (sqlite3_step(s) == SQLITE_ROW)
        for (int c = 0; c < t.columns; c++) {
            Table::Value v{sqlite3_column_type(s, c), 0, {}};
            if (v.type == SQLITE_INTEGER) v.i = sqlite3_column_int64(s, c);
            else if (v.type != SQLITE_NULL)
                v.bytes.assign(static_cast<const char *>(sqlite3_column_blob(s, c)),
                               static_cast<size_t>(sqlite3_column_bytes(s, c)));
            t.values.push_back(std::move(v));
        }
    sqlite3_finalize(s);
    return t;
}

void insert_table(sqlite3 *db, const Table &t) {
    constexpr size_t kRows = 32;  // rows a statement, as the loader batches them
    const size_t rows = t.values.size() / static_cast<size_t>(t.columns);
    auto prepare = [&](size_t n) {
        std::string one = "(?";
        for (int c = 1; c < t.columns; c++) one += ", ?";
        one += ")";
        std::string sql = "INSERT INTO " + t.name + " VALUES " + one;
        for (size_t r = 1; r < n; r++) sql += ", " + one;
        sqlite3_stmt *s = nullptr;
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &s, nullptr) != SQLITE_OK) die("prepare", db);
        return s;
    };
    sqlite3_stmt *many = prepare(kRows), *one = prepare(1);
    size_t v = 0;
    for (size_t r = 0; r < rows;) {
        sqlite3_stmt *s = rows - r >= kRows ? many : one;
        const size_t n = s == many ? kRows : 1;
        int param = 1;
        for (size_t k = 0; k < n * static_cast<size_t>(t.columns); k++, v++, param++) {
            const Table::Value &x = t.values[v];
            if (x.type == SQLITE_INTEGER) sqlite3_bind_int64(s, param, x.i);
            else if (x.type == SQLITE_TEXT)
                sqlite3_bind_text(s, param, x.bytes.data(), static_cast<int>(x.bytes.size()), SQLITE_STATIC);
            else if (x.type == SQLITE_NULL) sqlite3_bind_null(s, param);
            else
                sqlite3_bind_blob(s, param, x.bytes.data(), static_cast<int>(x.bytes.size()), SQLITE_STATIC);
        }
        if (sqlite3_step(s) != SQLITE_DONE) die("insert", db);
        sqlite3_reset(s);
        r += n;
    }
    sqlite3_finalize(many);
    sqlite3_finalize(one);
}

double seconds(const timeval &t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; }

// CPU seconds (user + system) of the calling thread.
double thread_cpu() {
    rusage u;
    getrusage(RUSAGE_THREAD, &u);
    return seconds(u.ru_utime) + seconds(u.ru_stime);
}

std::string read_file(const char *path) {
    int fd = open(path, O_RDONLY);
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0) {
        fprintf(stderr, "bench_load_floor: cannot read %s\n", path);
        exit(1);
    }
    std::string s(static_cast<size_t>(st.st_size) + simdjson::SIMDJSON_PADDING, '\0');
    size_t got = 0;
    while (got < static_cast<size_t>(st.st_size)) {
        ssize_t n = read(fd, s.data() + got, static_cast<size_t>(st.st_size) - got);
        if (n <= 0) exit(1);
        got += static_cast<size_t>(n);
    }
    close(fd);
    s.resize(got);
    return s;
}

// Counts what the parse saw, so that no value goes unread.
struct Sink : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Sink> {
    uint64_t sum = 0;
    bool Default() { return ++sum; }
    bool String(const char *, rapidjson::SizeType n, bool) { return sum += n + 1; }
    bool Key(const char *, rapidjson::SizeType n, bool) { return sum += n + 1; }
    bool Uint(unsigned u) { return sum += u | 1; }
    bool Int(int i) { return sum += static_cast<uint64_t>(i) | 1; }
    bool Uint64(uint64_t u) { return sum += u | 1; }
    bool Int64(int64_t i) { return sum += static_cast<uint64_t>(i) | 1; }
};

uint64_t parse_rapidjson(const std::string &text) {
    rapidjson::Reader reader;
    rapidjson::MemoryStream ms(text.data(), text.size());
    Sink sink;
    rapidjson::ParseResult ok = reader.Parse<rapidjson::kParseValidateEncodingFlag>(ms, sink);
    if (!ok) {
        fprintf(stderr, "bench_load_floor: %s at %zu\n", rapidjson::GetParseError_En(ok.Code()), ok.Offset());
        exit(1);
    }
    return sink.sum;
}

uint64_t walk(simdjson::ondemand::value v);

uint64_t walk_value(simdjson::ondemand::value v) {
    switch (v.type()) {
    case simdjson::ondemand::json_type::object: {
        uint64_t sum = 1;
        for (auto field : v.get_object()) {
            sum += field.unescaped_key().value().size();
            sum += walk(field.value());
        }
        return sum;
    }
    case simdjson::ondemand::json_type::array: {
        uint64_t sum = 1;
        for (auto e : v.get_array()) sum += walk(e.value());
        return sum;
    }
    case simdjson::ondemand::json_type::string: return v.get_string().value().size() + 1;
    case simdjson::ondemand::json_type::number: {
        uint64_t u;
        if (v.get_uint64().get(u) == simdjson::SUCCESS) return u | 1;
        double d = v.get_double();
        return static_cast<uint64_t>(d) | 1;
    }
    case simdjson::ondemand::json_type::boolean: return v.get_bool().value() ? 2 : 1;
    default: return 1;
    }
}
uint64_t walk(simdjson::ondemand::value v) { return walk_value(v); }

uint64_t parse_simdjson(const std::string &text) {
    simdjson::ondemand::parser parser(text.size() + 64);
    simdjson::padded_string_view view(text.data(), text.size(), text.size() + simdjson::SIMDJSON_PADDING);
    auto doc = parser.iterate(view);
    simdjson::ondemand::value root;
    if (doc.get_value().get(root) != simdjson::SUCCESS) {
        fprintf(stderr, "bench_load_floor: simdjson cannot parse the snapshot\n");
        exit(1);
    }
    return walk(root);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 5 || (strcmp(argv[1], "rapidjson") && strcmp(argv[1], "simdjson") && strcmp(argv[1], "preload"))) {
        fprintf(stderr, "usage: bench_load_floor rapidjson|simdjson|preload SNAPSHOT.json MADE.db OUT.db\n");
        return 2;
    }
    const bool simd = !strcmp(argv[1], "simdjson");
    sqlite3 *made = nullptr;
    if (sqlite3_open_v2(argv[3], &made, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) die(argv[3], made);
    std::vector<Table> tables;
    for (const char *t : {"attribute", "item", "item_index"})
        tables.push_back(read_table(made, t));
    sqlite3_close(made);

    unlink(argv[4]);
    sqlite3 *out = nullptr;
    if (sqlite3_open_v2(argv[4], &out, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK)
        die(argv[4], out);
    if (!strcmp(argv[1], "preload")) {
        sqlite3_close(out);
        return 0;
    }

    rusage before;
    getrusage(RUSAGE_SELF, &before);
    const double insert_before = thread_cpu();
    const auto start = std::chrono::steady_clock::now();
    uint64_t seen = 0;
    double parse_cpu = 0;
    std::thread parse([&] {
        std::string text = read_file(argv[2]);
        seen = simd ? parse_simdjson(text) : parse_rapidjson(text);
        parse_cpu = thread_cpu();
    });
    char pragmas[256];
    snprintf(pragmas, sizeof pragmas,
             "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; PRAGMA page_size = 8192;"
             "PRAGMA cache_size = -65536; PRAGMA application_id = %d; PRAGMA user_version = %d;",
             sysdb_schema::kApplicationId, sysdb_schema::kVersion);
    if (sqlite3_exec(out, pragmas, nullptr, nullptr, nullptr) != SQLITE_OK ||
        sqlite3_exec(out, sysdb_schema::kCreate, nullptr, nullptr, nullptr) != SQLITE_OK ||
        sqlite3_exec(out, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK)
        die("schema", out);
    for (const Table &t : tables) insert_table(out, t);
    if (sqlite3_exec(out, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) die("commit", out);
    // The file reaches the disk before the clock stops, as a load's must
    // before it takes the target's name; a floor that left its pages dirty
    // would also hand their writing to whatever runs next.
    if (sqlite3_close(out) != SQLITE_OK) die("close", out);
    const int fd = open(argv[4], O_RDONLY);
    if (fd < 0 || fsync(fd) != 0) {
        fprintf(stderr, "bench_load_floor: cannot sync %s\n", argv[4]);
        return 1;
    }
    close(fd);
    const double insert_cpu = thread_cpu() - insert_before;
    parse.join();
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    rusage after;
    getrusage(RUSAGE_SELF, &after);
    printf("%.3f %.3f %.3f %.3f %.3f\n", wall, seconds(after.ru_utime) - seconds(before.ru_utime),
           seconds(after.ru_stime) - seconds(before.ru_stime), parse_cpu, insert_cpu);
    fprintf(stderr, "bench_load_floor: %s, %llu values' worth parsed\n", argv[1],
            static_cast<unsigned long long>(seen));
    return 0;
}
