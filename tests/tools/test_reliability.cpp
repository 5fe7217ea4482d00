// Loads that are killed part-way, readers racing a loader, and files that are
// not ours: the database a reader opens is always a whole snapshot, old or new.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/sysdb_schema.h"
#include "subprocess.h"

namespace {

namespace fs = std::filesystem;

const std::string &scratch() {
    struct Dir {
        std::string path;
        Dir() {
            std::string pattern = (fs::temp_directory_path() / "reliability.XXXXXX").string();
            path = mkdtemp(pattern.data()) ? pattern : std::string();
        }
        ~Dir() {
            std::error_code ec;
            if (!path.empty()) fs::remove_all(path, ec);
        }
    };
    static Dir dir;
    return dir.path;
}
std::string scratch_file(const std::string &name) { return scratch() + "/" + name; }

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

using Outcome = subprocess::Run;

Outcome load(const std::string &json, const std::string &db) {
    return subprocess::run({EVPN_SYSDB_BIN, "load", json, "--db", db});
}
Outcome dump(const std::string &db) { return subprocess::run({EVPN_SYSDB_BIN, "dump", "--db", db}); }
Outcome client(const std::vector<std::string> &args, const std::string &db, const std::string &debug = "") {
    std::vector<std::string> argv{EVPN_CLIENT_BIN}, env{"EVPN_SYSDB=" + db};
    argv.insert(argv.end(), args.begin(), args.end());
    if (!debug.empty()) env.push_back("EVPN_DEBUG=" + debug);
    return subprocess::run(argv, env);
}

// A snapshot of `routes` MAC routes spread over 16 EVIs; `variant` changes
// every record's label and sequence number, so two variants differ throughout.
std::string write_snapshot(const std::string &name, int routes, int variant) {
    const std::string path = scratch_file(name);
    std::ofstream out(path);
    out << "{\"roots\":{\"/oper/evpn/gl/\":{\"evpn_evi_detail/evi_child_container/evpn_mac\":[\n";
    for (int i = 0; i < routes; i++) {
        char mac[16], ip[24];
        snprintf(mac, sizeof mac, "02%02x.%04x.%04x", variant & 0xff, (i >> 16) & 0xffff, i & 0xffff);
        snprintf(ip, sizeof ip, "10.%d.%d.%d", (i >> 16) & 0xff, (i >> 8) & 0xff, i & 0xff);
        out << (i ? ",\n" : "") << "{\"evi\":" << (1 + i % 16) << ",\"encap\":10,\"mac_address\":\""
            << mac << "\",\"ip_address\":\"" << ip << "\",\"bd_name\":\"bd-" << (1 + i % 16)
            << "\",\"local_label\":" << (24000 + variant * 1000 + i % 1000)
            << ",\"local_seq_num\":" << variant << ",\"local\":" << (i % 2 ? "true" : "false")
            << "}";
    }
    out << "]},\"/oper/evpn/gl/stdby/\":{},\"/oper/evpn/node/0/\":{}}}\n";
    return path;
}

struct FileState {
    std::string bytes;
    struct timespec mtime {};
    bool operator==(const FileState &o) const {
        return bytes == o.bytes && mtime.tv_sec == o.mtime.tv_sec && mtime.tv_nsec == o.mtime.tv_nsec;
    }
};
FileState file_state(const std::string &path) {
    FileState s;
    s.bytes = read_file(path);
    struct stat st {};
    if (stat(path.c_str(), &st) == 0) s.mtime = st.st_mtim;
    return s;
}

size_t temp_files_of(const std::string &db) {
    size_t n = 0;
    const std::string prefix = fs::path(db).filename().string() + ".load-";
    for (auto &e : fs::directory_iterator(fs::path(db).parent_path()))
        if (e.path().filename().string().rfind(prefix, 0) == 0) n++;
    return n;
}

}  // namespace

// (a) A loader killed at any moment leaves the old database or the new one,
// never a mix; its temp file is ignored by readers. This is about the file
// system's rename, not memory safety: the sanitizer build leaves it out.
TEST(Reliability, KilledLoadsLeaveOldOrNewDatabase) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "timing-bound; runs in the normal build";
#endif
    // Snapshots large enough that a load takes over a second here: sized from
    // a first measured load.
    int routes = 20000;
    auto timed_load = [&](const std::string &json, const std::string &db) {
        auto t0 = std::chrono::steady_clock::now();
        EXPECT_EQ(load(json, db).status, 0);
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    };
    double probe_ms = timed_load(write_snapshot("kill-probe.json", routes, 1), scratch_file("kill-probe.db"));
    if (probe_ms < 1000) routes = static_cast<int>(routes * 1000 / std::max(probe_ms, 1.0));
    const std::string snaps[2] = {write_snapshot("kill-old.json", routes, 1),
                                  write_snapshot("kill-new.json", routes, 2)};
    std::string dumps[2];
    double load_ms = 1e9;  // the fastest load: the suite keeps the machine busy meanwhile
    for (int v = 0; v < 2; v++) {
        const std::string ref = scratch_file("kill-ref" + std::to_string(v) + ".db");
        load_ms = std::min(load_ms, timed_load(snaps[v], ref));
        Outcome d = dump(ref);
        ASSERT_EQ(d.status, 0) << d.err;
        dumps[v] = d.out;
    }
    ASSERT_NE(dumps[0], dumps[1]);

    const std::string db = scratch_file("kill.db");
    ASSERT_EQ(load(snaps[0], db).status, 0);
    // Fifty kills at random moments of a load; every sixth load runs to its end.
    std::mt19937 rng(12345);
    // Kills land within the first three quarters of a load's measured time.
    std::uniform_int_distribution<int> moment(0, static_cast<int>(load_ms * 0.75));
    int current = 0, kills = 0, killed_part_way = 0, finished = 0;
    for (int round = 0; round < 60; round++) {
        const int next = 1 - current;
        pid_t pid = subprocess::start({EVPN_SYSDB_BIN, "load", snaps[next], "--db", db});
        ASSERT_GT(pid, 0);
        if (round % 6 != 5) {
            std::this_thread::sleep_for(std::chrono::milliseconds(moment(rng)));
            kill(pid, SIGKILL);
            kills++;
        }
        const int status = subprocess::wait_for(pid);
        if (status == 0) finished++; else killed_part_way++;

        Outcome d = dump(db);
        ASSERT_EQ(d.status, 0) << "round " << round << ": " << d.err;
        if (d.out == dumps[next]) {
            current = next;
        } else {
            ASSERT_EQ(d.out, dumps[current]) << "round " << round << ": neither snapshot";
        }
        if (status == 0) {
            ASSERT_EQ(current, next) << "a finished load must show";
        } else if (round % 6 != 5) {
            // A killed load's temp file stays until the next load clears it:
            // there is never more than one.
            EXPECT_LE(temp_files_of(db), 1u) << "round " << round;
        }
    }
    EXPECT_GE(kills, 50);
    EXPECT_GE(killed_part_way, 10);  // load times vary; most kills land part-way
    EXPECT_GT(finished, 0);
    EXPECT_EQ(temp_files_of(db), 0u);  // the last load, which finished, cleared them
    Outcome c = client({"7"}, db);
    EXPECT_EQ(c.status, 0) << c.err;
    printf("[ figures  ] %d routes, load %.0f ms: %d kills, %d killed part-way, %d finished\n",
           routes, load_ms, kills, killed_part_way, finished);
}

// (b) A reader running while the loader replaces the database prints the
// report of one snapshot or the other, whole.
TEST(Reliability, ReadersSeeOneSnapshotWhileLoaderReplaces) {
    const std::string snaps[2] = {write_snapshot("race-a.json", 1500, 3),
                                  write_snapshot("race-b.json", 1200, 4)};
    std::string reports[2];
    for (int v = 0; v < 2; v++) {
        const std::string ref = scratch_file("race-ref" + std::to_string(v) + ".db");
        ASSERT_EQ(load(snaps[v], ref).status, 0);
        Outcome c = client({"0"}, ref);
        ASSERT_EQ(c.status, 0) << c.err;
        reports[v] = c.out;
    }
    ASSERT_NE(reports[0], reports[1]);

    const std::string db = scratch_file("race.db");
    ASSERT_EQ(load(snaps[0], db).status, 0);
    std::atomic<bool> stop{false};
    std::atomic<int> loads{0}, load_failures{0};
    std::thread writer([&] {
        for (int v = 1; !stop; v ^= 1) {
            if (load(snaps[v], db).status == 0)
                loads++;
            else
                load_failures++;
        }
    });
    int seen[2] = {0, 0}, bad = 0;
    const int kReads = 200;
    for (int i = 0; i < kReads; i++) {
        Outcome c = client({"0"}, db);
        if (c.status == 0 && c.out == reports[0])
            seen[0]++;
        else if (c.status == 0 && c.out == reports[1])
            seen[1]++;
        else if (bad++ == 0)
            ADD_FAILURE() << "read " << i << ": status " << c.status << ", " << c.out.size()
                          << " bytes out, stderr: " << c.err;
    }
    stop = true;
    writer.join();
    EXPECT_EQ(bad, 0);
    EXPECT_EQ(load_failures, 0);
    EXPECT_GT(loads, 2) << "the loader did not race the readers";
    printf("[ figures  ] %d reads during %d loads: %d old, %d new, %d bad\n", kReads, loads.load(),
           seen[0], seen[1], bad);
}

// (c) Show commands never write the database.
TEST(ClientReadOnly, ShowCommandsLeaveTheFileUntouched) {
    const std::string db = scratch_file("ro.db");
    ASSERT_EQ(load(EVPN_SOURCE_DIR "/data/demo.json", db).status, 0);
    const FileState before = file_state(db);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // an mtime change would show
    for (auto args : std::vector<std::vector<std::string>>{
             {"0"}, {"-p", "0"}, {"-d", "5"}, {"-p", "4"}, {"7"}, {"-p", "7"}, {"-M", "64", "0"}, {"3"}}) {
        Outcome c = client(args, db);
        EXPECT_EQ(c.status, 0) << args.back() << ": " << c.err;
    }
    EXPECT_TRUE(file_state(db) == before);
    EXPECT_FALSE(fs::exists(db + "-journal"));
    EXPECT_FALSE(fs::exists(db + "-wal"));
}

// (d) Files that are not ours: the client refuses to bind, the loader to
// overwrite (leaving no file of its own behind), the dump to read.
TEST(ForeignDatabase, ClientRefusesAndLoaderKeepsTheFile) {
    const std::string small = write_snapshot("foreign-src.json", 10, 5);
    auto make_sqlite = [](const std::string &path, const char *sql) {
        sqlite3 *db = nullptr;
        ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
        sqlite3_close(db);
    };
    const std::string other = scratch_file("other.sqlite");
    for (const char *name : {"other.sqlite", "newer.db"}) fs::remove(scratch_file(name));
    make_sqlite(other, "CREATE TABLE t(a, b); INSERT INTO t VALUES (1, 'x');");
    const std::string text = scratch_file("text.db");
    std::ofstream(text) << "not a database\n";
    const std::string empty = scratch_file("empty.db");
    std::ofstream(empty).close();
    const std::string newer = scratch_file("newer.db");
    ASSERT_EQ(load(small, newer).status, 0);
    make_sqlite(newer, ("PRAGMA user_version = " + std::to_string(sysdb_schema::kVersion + 1)).c_str());

    for (const std::string &path : {other, text, empty, newer}) {
        SCOPED_TRACE(path);
        const FileState before = file_state(path);
        Outcome c = client({"7"}, path, "400001");
        EXPECT_EQ(c.status, 1);
        EXPECT_NE(c.err.find("sysdb_bind failed for"), std::string::npos) << c.err;
        Outcome l = load(small, path);
        EXPECT_EQ(l.status, 1);
        EXPECT_NE(l.err.find("is not an EVPN operational database"), std::string::npos) << l.err;
        EXPECT_TRUE(file_state(path) == before);
        EXPECT_EQ(temp_files_of(path), 0u);
        EXPECT_EQ(dump(path).status, 1);
    }
    // A database of ours in an older layout is not read, but a load replaces it.
    const std::string older = scratch_file("older.db");
    fs::remove(older);
    ASSERT_EQ(load(small, older).status, 0);
    make_sqlite(older, ("PRAGMA user_version = " + std::to_string(sysdb_schema::kVersion - 1)).c_str());
    EXPECT_EQ(client({"7"}, older, "400001").status, 1);
    ASSERT_EQ(load(small, older).status, 0);
    EXPECT_EQ(client({"7"}, older, "400001").status, 0);

    EXPECT_EQ(dump(scratch_file("missing.db")).status, 1);
    EXPECT_FALSE(fs::exists(scratch_file("missing.db")));
}
