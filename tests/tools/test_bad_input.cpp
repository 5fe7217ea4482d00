// Bad input from every side: snapshots with hostile text or records too big
// to decode, stores that are corrupt or not quite ours, outputs that fail.
// Each class gets a refusal that says what and where, never a hang, a crash
// or a silently different report.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "client/test_util.h"
#include "platform/bag_types.h"
#include "platform/l2fib_stats.h"
#include "platform/sysdb.h"
#include "platform/sysdb_schema.h"
#include "snapshot.h"

namespace {

namespace fs = std::filesystem;
using spine_test::scratch;

const std::string kRoot = "/oper/evpn/gl/";
const std::string kMac = "evpn_evi_detail/evi_child_container/evpn_mac";

std::string roots(const std::string &listing, const std::string &records) {
    return R"({"roots": {"/oper/evpn/gl/": {")" + listing + R"(": )" + records + "}}}";
}

// Loads a snapshot text in process; the error, empty on success.
std::string load_text(const std::string &text, const std::string &db) {
    std::istringstream in(text);
    evpn::LoadStats stats;
    std::string err;
    bool ok = evpn::load_snapshot(in, db, stats, err);
    return ok ? std::string() : err.empty() ? "(no message)" : err;
}

std::string write_text(const std::string &name, const std::string &text) {
    std::string path = scratch(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

subprocess::Run sysdb(const std::vector<std::string> &args) { return spine_test::run_sysdb(args); }

subprocess::Run client(const std::vector<std::string> &args, const std::string &db,
                       const std::string &debug = "") {
    std::vector<std::string> env{"EVPN_SYSDB=" + db};
    if (!debug.empty()) env.push_back("EVPN_DEBUG=" + debug);
    return spine_test::run_client(args, env);
}

// ---- Hostile snapshots -------------------------------------------------------

// Names in other scripts are text like any other, and print as they stand.
// (Control text and oversized records in a snapshot are refused by the
// loader's, the record builder's and the codec's tests.)
TEST(HostileSnapshot, NamesInOtherScriptsPrintAsTheyStand) {
    const std::string db = scratch("scripts.db"), bd = "caf\xc3\xa9-\xe7\xbd\x91";
    ASSERT_EQ(load_text(roots("evpn_evi", R"([{"vpn_id": 1, "encap": 8, "bd_name": ")" + bd + "\"}]"), db), "");
    auto r = client({"5"}, db);
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find(bd), std::string::npos) << r.out;
}

// A store written by other means: the decoder refuses the hostile text and the
// walk goes on to the next record.
TEST(HostileSnapshot, StoredControlTextIsAMalformedRecordSkippedAndTraced) {
    const std::string db = spine_test::evi_store("hostile-store.db", 3, [](uint32_t id, std::string &enc) {
        if (id == 2) enc.replace(enc.find("QQQQ"), 4, "\x1b[2J");
        return true;
    });
    auto r = client({"5"}, db, "400001");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.find('\x1b'), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("QQQQ1"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("QQQQ3"), std::string::npos) << r.out;
    EXPECT_NE(r.err.find(std::string("bag decode ") + cerr_strerror(BAG_ERR_TEXT)), std::string::npos)
        << r.err;
}

// Traces carry item names and command-line values: what could steer a
// terminal there shows as '?', as in the reports.
TEST(HostileSnapshot, TracesShowControlCharactersAndBytesThatAreNotUtf8AsQuestionMarks) {
    const std::string db = spine_test::build_db("hostile-names.db", [](evpn::SysdbWriter &w) {
        std::string err;
        l2vpn_evpn_tep_bag tep{};
        tep.tep_id = 1;
        ASSERT_TRUE(w.add(kRoot, "tep", &tep, err)) << err;
        l2vpn_evpn_tep_notification_entry_bag n{};
        std::string enc;
        ASSERT_EQ(bag_encode(&n, &bag_desc_l2vpn_evpn_tep_notification_entry_bag, enc), 0u);
        ASSERT_TRUE(w.add_raw(kRoot, "tep/1/notification", "a\x1b]0;owned\x07\xc2\x9b" "b", enc, err)) << err;
    });
    auto r = client({"-b", "x\x1b[2J\xff\xc3", "-d", "-M", "1", "10"}, db, "480001");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.err.find("Now displaying a?]0;owned??b\n"), std::string::npos) << r.err;
    for (char c : r.err) EXPECT_TRUE(c == '\n' || (c >= 0x20 && c < 0x7f)) << r.err;
    auto b = client({"-b", "x\x1b[2J\xff\xc3", "0"}, db, "80001");
    EXPECT_NE(b.err.find("-bd/x?[2J??\n"), std::string::npos) << b.err;
}

TEST(HostileSnapshot, AHugeListIsRefusedInBoundedMemoryLeavingNothing) {
    // 1.5 million list elements in a 4.5 MB snapshot.
    std::string text = R"({"roots": {"/oper/evpn/gl/": {")" + kMac + R"(": [{"evi": 1, "path_buffer": [{})";
    text.reserve(text.size() + 3 * 1500000 + 16);
    for (int i = 1; i < 1500000; i++) text += ",{}";
    text += "]}]}}}";
    const std::string json = write_text("huge-list.json", text);
    const std::string db = scratch("huge-list.db");
    // The loader runs with 400 MB of address space (it used to take 838 MB
    // and die of it); the sanitizers' runtimes reserve far more than that.
#if defined(__SANITIZE_ADDRESS__)
    const std::string limit = "";
#else
    const std::string limit = "ulimit -v 400000 && ";
#endif
    auto r = subprocess::run({"/bin/sh", "-c", limit + "exec " EVPN_SYSDB_BIN " load " + json + " --db " + db});
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_NE(r.err.find("path_buffer[" + std::to_string(BAG_MAX_INNER / sizeof(EvpnPath)) + "]: record over"),
              std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(db));
    for (const auto &e : fs::directory_iterator(fs::path(db).parent_path()))
        EXPECT_EQ(e.path().filename().string().find("huge-list.db.load-"), std::string::npos);
}

// ---- Corrupt or foreign stores -----------------------------------------------

// Binds root of db for the test's scope.
struct Bound {
    sysdb_handle_td h = nullptr;
    uint32_t rc;
    explicit Bound(const std::string &db, const char *root = "/oper/evpn/gl/") {
        setenv("EVPN_SYSDB", db.c_str(), 1);
        rc = _sysdb_bind(&h, root, SYSDB_BIND_READ);
    }
    ~Bound() {
        if (h) _sysdb_unbind(h);
        unsetenv("EVPN_SYSDB");
    }
};

// Not copied out of the store nor handed to the decoder: served empty, which
// no record type decodes from.
TEST(CorruptStore, AnItemOverTheRecordLimitIsServedEmpty) {
    const std::string db = spine_test::build_db("oversized.db", [](evpn::SysdbWriter &w) {
        std::string err;
        for (uint32_t id = 1; id <= 3; id++) {
            std::string bd = "bd" + std::to_string(id);
            l2vpn_evpn_evi_summary_bag evi{id, 8, bd.data(), 0};
            std::string enc;
            ASSERT_EQ(bag_encode(&evi, &bag_desc_l2vpn_evpn_evi_summary_bag, enc), 0u);
            if (id == 2) enc.resize(size_t(BAG_MAX_RECORD) + 4, 'x');
            ASSERT_TRUE(w.add_raw(kRoot, "evpn_evi", "0x" + std::to_string(id) + ",0x8", enc, err)) << err;
        }
    });
    Bound b(db);
    ASSERT_EQ(b.rc, 0u);
    void *data = nullptr;
    uint32_t len = 99, type = 0;
    ASSERT_EQ(sysdb_item_get(b.h, "evpn_evi/0x2,0x8", &type, &data, &len, 0), 0u);
    EXPECT_EQ(len, 0u);
    free(data);
    ASSERT_EQ(sysdb_item_get(b.h, "evpn_evi/0x3,0x8", &type, &data, &len, 0), 0u);
    EXPECT_GT(len, 0u);
    free(data);
    uint32_t count = 10;
    sysdb_datalist_h_td dl = nullptr;
    ASSERT_EQ(sysdb_datalist(b.h, "evpn_evi", "", &count, &dl, 0), 0u);
    ASSERT_EQ(count, 3u);
    std::vector<uint32_t> lens;
    const char *name;
    while (sysdb_datalist_next(dl, &name, nullptr, &data, &len, nullptr) == 0) lens.push_back(len);
    sysdb_datalist_free(dl);
    EXPECT_EQ(lens[1], 0u);
    EXPECT_GT(lens[2], 0u);

    // The client skips it as a record that does not decode.
    auto r = client({"5"}, db, "400001");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("bd3"), std::string::npos) << r.out;
    EXPECT_NE(r.err.find(std::string("bag decode ") + cerr_strerror(BAG_ERR_TRUNCATED)),
              std::string::npos) << r.err;
}

// A database of n EVIs (brief listing and summary) and its file.
std::string evi_db(const std::string &name, uint32_t n) {
    return spine_test::build_db(name, [n](evpn::SysdbWriter &w) {
        std::string err, bd = "bd";
        for (uint32_t id = 1; id <= n; id++) {
            l2vpn_evpn_evi_summary_bag evi{id, 8, bd.data(), 0};
            ASSERT_TRUE(w.add(kRoot, "evpn_evi", &evi, err)) << err;
        }
        l2vpn_evpn_summary_bag sum{};
        sum.evi_count = n;
        ASSERT_TRUE(w.add(kRoot, "summary", &sum, err)) << err;
        ASSERT_TRUE(w.set_capability("srv6", 1, err)) << err;
    });
}

using spine_test::sql;
using spine_test::zero_root;

TEST(CorruptStore, DamageComesBackAsAnErrorAndDumpsFail) {
    struct Case {
        const char *what;
        std::function<void(const std::string &)> damage;
    };
    const Case cases[] = {
        {"items", [](const std::string &db) { zero_root(db, "item"); }},
        {"listings", [](const std::string &db) {
             zero_root(db, "attribute");  // a listing's id is a row of it
         }},
    };
    const std::string corrupt = cerr_strerror(SYSDB_ERR_CORRUPT);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        const std::string db = evi_db(std::string("damaged-") + c.what + ".db", 20);
        c.damage(db);
        auto r = client({"5"}, db, "400001");
        EXPECT_EQ(r.status, 0);  // a dispatched command exits 0 whatever the database said
        EXPECT_NE(r.err.find("sysdb_datalist " + corrupt), std::string::npos) << r.err;
        Bound b(db);
        ASSERT_EQ(b.rc, 0u);
        void *data = nullptr;
        uint32_t len = 0, type = 0;
        EXPECT_EQ(sysdb_item_get(b.h, "summary", &type, &data, &len, 0), SYSDB_ERR_CORRUPT);
        free(data);

        auto d = sysdb({"dump", "--db", db});
        EXPECT_EQ(d.status, 1);
        EXPECT_NE(d.err.find("malformed"), std::string::npos) << d.err;
        auto p = sysdb({"dump", "evpn_evi", "--db", db});
        EXPECT_EQ(p.status, 1);
        EXPECT_NE(p.err.find("corrupt"), std::string::npos) << p.err;
    }
}

TEST(CorruptStore, ForeignOrIncompleteStoresAreRefusedAtBind) {
    struct Case {
        const char *what;
        std::function<void(const std::string &)> make;
        uint32_t rc;
    };
    const Case cases[] = {
        {"no attribute table", [](const std::string &db) { sql(db, "DROP TABLE attribute"); },
         SYSDB_ERR_NOT_BOUND},
        {"no item_index table", [](const std::string &db) { sql(db, "DROP TABLE item_index"); },
         SYSDB_ERR_NOT_BOUND},
        {"attribute values dropped", [](const std::string &db) {
             sql(db, "ALTER TABLE attribute DROP COLUMN v2"); }, SYSDB_ERR_NOT_BOUND},
        {"item names dropped", [](const std::string &db) {
             sql(db, "ALTER TABLE item DROP COLUMN name"); }, SYSDB_ERR_NOT_BOUND},
        {"a FIFO", [](const std::string &db) {
             fs::remove(db);
             ASSERT_EQ(mkfifo(db.c_str(), 0644), 0); }, SYSDB_ERR_NO_LIBRARY},
        {"a directory", [](const std::string &db) {
             fs::remove(db);
             fs::create_directory(db); }, SYSDB_ERR_NO_LIBRARY},
        {"a hot journal", [](const std::string &db) {
             // A writer stopped part-way: its rollback journal beside the file,
             // the file already half changed.
             const std::string live = db + ".live";
             fs::copy_file(db, live);
             sqlite3 *h = nullptr;
             ASSERT_EQ(sqlite3_open(live.c_str(), &h), SQLITE_OK);
             ASSERT_EQ(sqlite3_exec(h, "PRAGMA journal_mode = DELETE; PRAGMA cache_size = 1; BEGIN; "
                                       "UPDATE item SET data = zeroblob(20000);",
                                    nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(h);
             fs::copy_file(live, db, fs::copy_options::overwrite_existing);
             fs::copy_file(live + "-journal", db + "-journal");
             sqlite3_close(h);  // rolls the live copy back; the copies keep the hot journal
         }, SYSDB_ERR_HOT_JOURNAL},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        const std::string db = evi_db(std::string("foreign-") + std::to_string(&c - cases) + ".db", 3);
        c.make(db);
        {
            Bound b(db);
            EXPECT_EQ(b.rc, c.rc) << cerr_strerror(b.rc);
        }
        auto r = client({"5"}, db, "400001");
        EXPECT_EQ(r.status, 1);
        EXPECT_NE(r.err.find(std::string("sysdb_bind failed for '/oper/evpn/gl/': ") + cerr_strerror(c.rc)),
                  std::string::npos) << r.err;
        auto d = sysdb({"dump", "--db", db});
        EXPECT_EQ(d.status, 1);
        EXPECT_EQ(d.out, "");
        auto l = sysdb({"load", "/dev/null", "--db", db});
        EXPECT_EQ(l.status, 1);
        if (c.rc == SYSDB_ERR_HOT_JOURNAL) {
            EXPECT_NE(d.err.find("hot journal"), std::string::npos) << d.err;
            EXPECT_NE(l.err.find("hot journal"), std::string::npos) << l.err;
        }
    }
}

// A row past the read heap limit is never read: the single get serves it
// empty as any item over the record limit, the walk that reaches it fails
// by name, the dump names it; the store's memory stays under the limit.
TEST(CorruptStore, ARowPastTheReadLimitIsRefusedUnread) {
    const std::string db = evi_db("huge-row.db", 3);
    sql(db, "UPDATE item SET data = zeroblob(80 * 1024 * 1024) WHERE name = '0x2,0x8'");
    const std::string too_big = cerr_strerror(SYSDB_ERR_TOO_BIG);
    {
        Bound b(db);
        ASSERT_EQ(b.rc, 0u);
        sqlite3_memory_highwater(1);
        void *data = nullptr;
        uint32_t len = 0, type = 0;
        EXPECT_EQ(sysdb_item_get(b.h, "evpn_evi/0x2,0x8", &type, &data, &len, 0), 0u);
        EXPECT_EQ(len, 0u);
        free(data);
        EXPECT_LT(sqlite3_memory_highwater(0), 4 * sqlite3_int64(BAG_MAX_RECORD));
    }
    auto r = client({"5"}, db, "400001");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.err.find("sysdb_datalist " + too_big), std::string::npos) << r.err;
    auto d = sysdb({"dump", "--db", db});
    EXPECT_EQ(d.status, 1);
    EXPECT_NE(d.err.find("too large"), std::string::npos) << d.err;
}

TEST(CorruptStore, AResumeNameTheWalkCannotCopyEndsTheWalk) {
    // The 200th of 201 EVIs has a name of 300 characters (leading zeros):
    // the walk cannot keep it as its resume name.
    const std::string db = evi_db("long-name.db", 201);
    sql(db, "UPDATE item SET name = '0x" + std::string(300, '0') + "c8,0x8' WHERE name = '0xc8,0x8'");
    auto r = client({"5"}, db, "400001");
    EXPECT_EQ(r.status, 0);
    size_t lines = 0;
    for (char ch : r.out) lines += ch == '\n';
    EXPECT_LT(lines, 220u) << "a batch served twice";
    EXPECT_NE(r.err.find("copying context name"), std::string::npos);
    // Without a debug mask, the bounded-string library's own report is the
    // one sign that the listing was cut.
    auto quiet = client({"5"}, db);
    EXPECT_EQ(quiet.out, r.out);
    EXPECT_EQ(quiet.err, "safe string error: strcpy_s: source does not fit\n");
    // The store itself: a resume after the same name twice.
    Bound b(db);
    ASSERT_EQ(b.rc, 0u);
    auto ask = [&](const char *resume, uint32_t flags) {
        uint32_t count = 5;
        sysdb_datalist_h_td dl = nullptr;
        uint32_t rc = sysdb_datalist(b.h, "evpn_evi", resume, &count, &dl, flags);
        if (dl) sysdb_datalist_free(dl);
        return rc;
    };
    EXPECT_EQ(ask("", 0), 0u);
    EXPECT_EQ(ask("0x5,0x8", SYSDB_DATALIST_RESUME), 0u);
    EXPECT_EQ(ask("0x5,0x8", SYSDB_DATALIST_RESUME), SYSDB_ERR_NO_INDEX_MATCH);
    EXPECT_EQ(ask("0xa,0x8", SYSDB_DATALIST_RESUME), 0u);
    EXPECT_EQ(ask("", 0), 0u);  // a new walk starts over
    EXPECT_EQ(ask("0x5,0x8", SYSDB_DATALIST_RESUME), 0u);
}

// ---- Writes and files -----------------------------------------------------------

subprocess::Run shell(const std::string &command) { return subprocess::run({"/bin/sh", "-c", command}); }

TEST(WriteErrors, EveryOutputIsCheckedToItsEnd) {
    const std::string db = evi_db("full.db", 300);
    const std::string bin = EVPN_SYSDB_BIN;
    struct Case {
        std::string command;
        std::string says;
    };
    const Case cases[] = {
        {bin + " dump --db " + db + " > /dev/full", "writing standard output: No space left on device"},
        {bin + " dump evpn_evi --db " + db + " > /dev/full", "No space left on device"},
        {bin + " gen --routes 2000 --db " + scratch("gen-full.db") + " --json /dev/full",
         "/dev/full: No space left on device"},
        {"EVPN_SYSDB=" + db + " " EVPN_CLIENT_BIN " 5 > /dev/full",
         "evpn_show_client: writing standard output: No space left on device"},
        {"EVPN_SYSDB=" + db + " " EVPN_CLIENT_BIN " 5 >&-", "evpn_show_client: writing standard output: Bad file descriptor"},
        {bin + " dump --db " + db + " 5 > /dev/full", "No space left on device"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.command);
        auto r = shell(c.command);
        EXPECT_EQ(r.status, 1);
        EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
    }
    EXPECT_FALSE(fs::exists(scratch("gen-full.db"))) << "a failed gen leaves no database";
    // A reader that goes away only stopped reading.
    auto gone = subprocess::run({"/bin/bash", "-c", "trap '' PIPE; EVPN_SYSDB=" + db + " " EVPN_CLIENT_BIN
                                                    " 5 | head -c 0; echo ${PIPESTATUS[0]}"});
    EXPECT_EQ(gone.out, "0\n");
    EXPECT_EQ(gone.err, "");
    EXPECT_TRUE(fs::is_character_file("/dev/full")) << "a failed gen removes only a file of its own";
}

TEST(WriteErrors, SnapshotInputsAndTargetsSayWhy) {
    const std::string good = write_text("good.json", roots("evpn_evi", R"([{"vpn_id": 1, "encap": 8}])"));
    const std::string db = scratch("files.db");
    const std::string bin = EVPN_SYSDB_BIN;
    EXPECT_NE(sysdb({"load", scratch(""), "--db", db}).err.find("Is a directory"), std::string::npos);
    EXPECT_NE(sysdb({"load", scratch("missing.json"), "--db", db}).err.find("No such file or directory"),
              std::string::npos);

    // "-" reads standard input.
    auto in = shell(bin + " load - --db " + db + " < " + good);
    ASSERT_EQ(in.status, 0) << in.err;
    EXPECT_NE(sysdb({"dump", "--db", db}).out.find("\"vpn_id\":1"), std::string::npos);

    // A reload keeps the file's mode and group.
    ASSERT_EQ(chmod(db.c_str(), 0600), 0);
    if (geteuid() == 0) {  // a group of its own, which only root may give
        ASSERT_EQ(chown(db.c_str(), static_cast<uid_t>(-1), 4242), 0);
    }
    struct stat before {};
    ASSERT_EQ(stat(db.c_str(), &before), 0);
    ASSERT_EQ(sysdb({"load", good, "--db", db}).status, 0);
    struct stat after {};
    ASSERT_EQ(stat(db.c_str(), &after), 0);
    EXPECT_NE(after.st_ino, before.st_ino) << "a new file took its place";
    EXPECT_EQ(after.st_mode & 07777, 0600u);
    EXPECT_EQ(after.st_gid, before.st_gid);

    // --db LINK replaces the link's target in the target's directory; the link stays.
    fs::create_directories(scratch("real"));
    const std::string real = scratch("real/target.db"), link = scratch("link.db");
    ASSERT_EQ(sysdb({"load", good, "--db", real}).status, 0);
    fs::create_symlink("real/target.db", link);
    const std::string two = write_text("two.json", roots("evpn_evi", R"([{"vpn_id": 2, "encap": 8}])"));
    ASSERT_EQ(sysdb({"load", two, "--db", link}).status, 0);
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_NE(sysdb({"dump", "--db", real}).out.find("\"vpn_id\":2"), std::string::npos);
    // A link to nothing yet: its target is made.
    fs::create_symlink("real/new.db", scratch("dangling.db"));
    ASSERT_EQ(sysdb({"load", good, "--db", scratch("dangling.db")}).status, 0);
    EXPECT_TRUE(fs::is_regular_file(scratch("real/new.db")));
}

// A store we may not read is named as such, with its path, by the loader and
// both dumps: it could be anything, not "no database of ours".
TEST(WriteErrors, AStoreWeMayNotReadIsCalledThat) {
    const std::string dir = "/tmp/evpn-unreadable." + std::to_string(getpid());
    fs::create_directories(dir);
    fs::permissions(dir, fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
    const std::string db = dir + "/sysdb.db";
    fs::copy_file(evi_db("readable.db", 2), db);
    ASSERT_EQ(chmod(db.c_str(), 0), 0);
    const std::string json = dir + "/one.json";
    std::ofstream(json) << roots("evpn_evi", R"([{"vpn_id": 1, "encap": 8}])");
    chmod(json.c_str(), 0644);
    // Root reads any file: the commands then run as nobody.
    const std::string as = geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
    const std::string bin = EVPN_SYSDB_BIN;
    for (const std::string &command : {bin + " load " + json + " --db " + db, bin + " dump --db " + db,
                                       bin + " dump evpn_evi --db " + db}) {
        SCOPED_TRACE(command);
        auto r = shell(as + command);
        EXPECT_EQ(r.status, 1);
        EXPECT_NE(r.err.find("cannot read " + db + ": Permission denied"), std::string::npos) << r.err;
        EXPECT_EQ(r.err.find("not an EVPN"), std::string::npos) << r.err;
    }
    fs::remove_all(dir);
}

// The JSON view cannot show a path the client cuts: the cut path names
// another item. The client itself keeps the cut.
TEST(CommandLine, TheJsonViewRefusesFilterValuesThatMakeAPathPast255Characters) {
    const std::string db = evi_db("long-filter.db", 2);
    const std::string vfi(234, 'v');
    auto r = sysdb({"dump", "--db", db, "-7", vfi + "-suffix-past-the-buffer", "3"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("dump: the filter values make a path of " + std::to_string(21 + 234 + 23) + " characters"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("at most 255 fit"), std::string::npos) << r.err;
    // An interface name past its 64-byte buffer would list every segment.
    auto ifname = sysdb({"dump", "--db", db, "-i", std::string(64, 'e'), "3"});
    EXPECT_EQ(ifname.status, 2);
    EXPECT_NE(ifname.err.find("make an interface name of 64 characters"), std::string::npos) << ifname.err;
    EXPECT_NE(ifname.err.find("at most 63 fit"), std::string::npos) << ifname.err;
    EXPECT_EQ(sysdb({"dump", "--db", db, "-i", std::string(63, 'e'), "3"}).status, 0);
    auto fits = sysdb({"dump", "--db", db, "-b", std::string(200, 'b'), "5"});
    EXPECT_EQ(fits.status, 0) << fits.err;
    auto c = client({"-7", vfi + "-suffix-past-the-buffer", "3"}, db);
    EXPECT_EQ(c.status, 0);
}

// ---- Boundaries the rest of the suite leaves open ---------------------------------

// A batch is cut once its bytes pass the budget, not when they reach it.
TEST(Boundaries, ABatchThatLandsExactlyOnTheByteBudgetTakesOneMore) {
    const std::string db = evi_db("budget.db", 6);
    Bound b(db);
    ASSERT_EQ(b.rc, 0u);
    auto batch = [&](uint32_t *more) {
        uint32_t count = 100;
        sysdb_datalist_h_td dl = nullptr;
        EXPECT_EQ(sysdb_datalist(b.h, "evpn_evi", "", &count, &dl, 0), 0u);
        std::vector<uint32_t> bytes;  // what each entry takes of the batch
        const char *name;
        void *data;
        uint32_t len;
        while (sysdb_datalist_next(dl, &name, nullptr, &data, &len, nullptr) == 0)
            bytes.push_back(static_cast<uint32_t>((strlen(name) + 1 + 3) / 4 * 4 + len));
        sysdb_datalist_get_more_flag(dl, more);
        sysdb_datalist_free(dl);
        return bytes;
    };
    uint32_t more = 0;
    const std::vector<uint32_t> all = batch(&more);
    ASSERT_EQ(all.size(), 6u);
    sysdb_set_batch_byte_budget(all[0] + all[1]);  // the first two fill it exactly
    EXPECT_EQ(batch(&more).size(), 3u);
    EXPECT_EQ(more, 1u);
    sysdb_set_batch_byte_budget(all[0] + all[1] - 1);
    EXPECT_EQ(batch(&more).size(), 2u);
    sysdb_set_batch_byte_budget(0);
}

class RefusedWalk : public spine_test::BoundClient {};

void print_nothing(const void *, const char *, PrintContext *) {}

// A key the index does not take ends the walk untraced (the client's walk
// test); a path the store cannot take at all is traced.
TEST_F(RefusedWalk, APathTheStoreCannotTakeIsTraced) {
    bind(evi_db("refused.db", 3));
    const std::string long_path(300, 'x');
    const ShowContext ctx{long_path.c_str(), print_nothing,
                          l2vpn_bag_dll__l2vpn_evpn_evi_summary_bag(), 24, 200, 0};
    spine_test::Capture c = spine_test::capture([&] { evpn_show_datalist_display(&ctx); });
    EXPECT_EQ(c.traces, std::string("evpn_show_datalist_display: sysdb_datalist ") +
                            cerr_strerror(SYSDB_ERR_BAD_PATH) + "\n");
}

TEST(CommandLine, AnEmptyHexadecimalValueIsComplainedAbout) {
    struct Case {
        const char *option, *command, *complaint;
    };
    const Case cases[] = {
        {"-M", "0", ": sscanf(value) error. \n"},
        {"-e", "1", ": sscanf(eth_tag) error. \n"},
        {"-j", "0", ": sscanf(i_sid) error. \n"},
        {"-g", "f", ": sscanf(grp_id) error.\n"},
    };
    for (const Case &c : cases) {
        auto r = client({c.option, "", c.command}, spine_test::empty_db());
        EXPECT_EQ(r.status, 0) << c.option;
        EXPECT_EQ(r.out.rfind(c.complaint, 0), 0u) << c.option << ": " << r.out;
    }
}

// ---- Counters -----------------------------------------------------------------

TEST(Counters, UnsignedSixtyFourBitsThatWrapWhenSummedOverNodes) {
    const std::string db = scratch("counters.db");
    const std::string top = "18446744073709551615", half = "9223372036854775808";
    ASSERT_EQ(load_text(R"({"bd_stats": [{"node": 0, "bd_id": 7, "rx_total_packets": )" + half +
                            R"(, "tx_total_bytes": )" + top + R"(},
                                           {"node": 1, "bd_id": 7, "rx_total_packets": )" + half +
                            R"(, "tx_total_bytes": 3}]})", db), "");
    EXPECT_NE(load_text(R"({"bd_stats": [{"bd_id": 1, "rx_total_packets": 18446744073709551616}]})",
                        scratch("c2.db")).find("bd_stats[0].rx_total_packets"), std::string::npos);
    EXPECT_NE(load_text(R"({"bd_stats": [{"bd_id": 1, "rx_total_packets": 1.5}]})", scratch("c2.db"))
                  .find("not an integer"), std::string::npos);
    std::ostringstream out;
    std::string err;
    ASSERT_TRUE(evpn::dump_snapshot(db, out, err)) << err;
    EXPECT_NE(out.str().find("\"tx_total_bytes\":" + top), std::string::npos) << out.str();

    Bound b(db);
    ASSERT_EQ(b.rc, 0u);
    ASSERT_EQ(l2fib_stats_client_init(nullptr), 0u);
    bd_forwarding_stats s{};
    ASSERT_EQ(l2fib_get_stats_bag_bd_forwarding(L2FIB_ALL_NODES, 7, &s, "latest"), 0u);
    EXPECT_EQ(s.rx_total_packets, 0u);  // 2^63 + 2^63 wraps
    EXPECT_EQ(s.tx_total_bytes, 2u);
    ASSERT_EQ(l2fib_get_stats_bag_bd_forwarding(0, 7, &s, "latest"), 0u);
    EXPECT_EQ(s.tx_total_bytes, UINT64_MAX);
    l2fib_stats_client_deinit();
}

}  // namespace
