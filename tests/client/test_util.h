// Show client test helpers: test databases, the client program as a
// subprocess, and the in-process client with its output, traces and fetches captured.
#pragma once
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>

#include "evpn_show_print.h"
#include "platform/bag.h"
#include "platform/bag_types.h"
#include "platform/caps.h"
#include "platform/cerr.h"
#include "subprocess.h"
#include "sysdb_writer.h"

namespace spine_test {

inline std::string scratch(const std::string &name) {  // in a directory removed at exit
    static struct Dir {
        std::string path = (std::filesystem::temp_directory_path() / "spine.XXXXXX").string();
        Dir() { mkdtemp(path.data()); }
        ~Dir() { std::error_code ec; std::filesystem::remove_all(path, ec); }
    } dir;
    return dir.path + "/" + name;
}

inline std::string build_db(const std::string &name,
                            const std::function<void(evpn::SysdbWriter &)> &fill = {}) {
    std::string path = scratch(name), err;
    std::filesystem::remove(path);
    auto w = evpn::SysdbWriter::open(path, err);
    EXPECT_TRUE(w) << err;
    if (w && fill) fill(*w);
    EXPECT_TRUE(w && w->commit(err)) << err;
    return path;
}

// EVIs 1 to count below the global root, bridge domain "QQQQ<id>" each;
// edit(id, encoding) may change an EVI's encoding, or leave the EVI out by
// returning false.
inline std::string evi_store(const std::string &name, uint32_t count,
                             const std::function<bool(uint32_t, std::string &)> &edit = {}) {
    return build_db(name, [&](evpn::SysdbWriter &w) {
        std::string err;
        for (uint32_t id = 1; id <= count; id++) {
            std::string bd = "QQQQ" + std::to_string(id);
            l2vpn_evpn_evi_summary_bag evi{id, 8, bd.data(), 0};
            std::string enc;
            ASSERT_EQ(bag_encode(&evi, &bag_desc_l2vpn_evpn_evi_summary_bag, enc), 0u);
            if (edit && !edit(id, enc)) continue;
            char item[32];
            snprintf(item, sizeof item, "0x%x,0x8", id);
            ASSERT_TRUE(w.add_raw("/oper/evpn/gl/", "evpn_evi", item, enc, err)) << err;
        }
    });
}

// Runs SQL on a database file as a writer by other means would. The read
// heap limit an earlier binding of this process set is lifted first: it
// would refuse a large row.
inline void sql(const std::string &db, const std::string &text) {
    sqlite3_hard_heap_limit64(0);
    sqlite3 *h = nullptr;
    ASSERT_EQ(sqlite3_open(db.c_str(), &h), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(h, text.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(h) << "\n" << text;
    sqlite3_close(h);
}

// Zeroes the root page of a table or index, as a disk error would.
inline void zero_root(const std::string &db, const char *table) {
    sqlite3 *h = nullptr;
    ASSERT_EQ(sqlite3_open_v2(db.c_str(), &h, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    sqlite3_stmt *s = nullptr;
    std::string q = std::string("SELECT rootpage, (SELECT page_size FROM pragma_page_size) FROM "
                                "sqlite_master WHERE name = '") + table + "'";
    ASSERT_EQ(sqlite3_prepare_v2(h, q.c_str(), -1, &s, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_step(s), SQLITE_ROW);
    const long root = sqlite3_column_int64(s, 0), page = sqlite3_column_int64(s, 1);
    sqlite3_finalize(s);
    sqlite3_close(h);
    std::fstream f(db, std::ios::in | std::ios::out | std::ios::binary);
    f.seekp((root - 1) * page);
    f << std::string(static_cast<size_t>(page), '\0');
}

// Runs evpn_sysdb with args.
inline subprocess::Run run_sysdb(const std::vector<std::string> &args) {
    std::vector<std::string> argv{EVPN_SYSDB_BIN};
    argv.insert(argv.end(), args.begin(), args.end());
    return subprocess::run(argv);
}

inline const std::string &empty_db() {
    static const std::string path = build_db("empty.db");
    return path;
}

// Debug output with the source line numbers taken out: "function: message\n".
inline std::string traces(const std::string &err) {
    static const std::regex line_number("^([A-Za-z_0-9]+):[0-9]+: ", std::regex::multiline);
    return std::regex_replace(err, line_number, "$1: ");
}

using ClientRun = subprocess::Run;

// Runs the client program; env ("NAME=value") replaces the test's EVPN_* environment.
inline ClientRun run_client(std::vector<std::string> args, const std::vector<std::string> &env) {
    args.insert(args.begin(), EVPN_CLIENT_BIN);
    return subprocess::run(args, env);
}

// What ran in this process printed, traced and fetched. A fetch is a database
// request: "walk <path>" for a listing, "get <path>" for one item, with
// " rc=<code>" unless the database understood the path and found nothing.
struct Capture {
    std::string out, traces;
    std::vector<sysdb_request_s> requests;  // listings only; path and resume name not kept
    std::vector<std::string> paths, resume_names, fetches;
};

inline Capture *g_capture;

inline Capture capture(const std::function<void()> &body) {
    Capture c;
    g_capture = &c;
    sysdb_set_request_observer(
        [](const sysdb_request_s *r, void *) {
            char rc[24] = "";
            if (r->result != SYSDB_ERR_NOT_FOUND) snprintf(rc, sizeof rc, " rc=%x", r->result);
            g_capture->fetches.push_back(std::string(r->item ? "get " : "walk ") + r->path + rc);
            if (r->item) return;
            g_capture->requests.push_back(*r);
            g_capture->paths.push_back(r->path);
            g_capture->resume_names.push_back(r->resume_name);
        },
        nullptr);
    l2vpn_debug_set_enabled_bitset(~0ull);
    fflush(stdout);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    body();
    fflush(stdout);
    c.out = testing::internal::GetCapturedStdout();
    c.traces = traces(testing::internal::GetCapturedStderr());
    l2vpn_debug_set_enabled_bitset(0);
    sysdb_set_request_observer(nullptr, nullptr);
    g_capture = nullptr;
    return c;
}

// The client bound to a database at the global root, with fresh filters.
class BoundClient : public testing::Test {
  protected:
    void bind(const std::string &db) {
        unbind();
        setenv("EVPN_SYSDB", db.c_str(), 1);
        platform_caps_reset();
        ASSERT_EQ(_sysdb_bind(&sysdb_handle, "/oper/evpn/gl/", SYSDB_BIND_READ), 0u) << db;
    }
    void unbind() {
        if (sysdb_handle) _sysdb_unbind(sysdb_handle);
        sysdb_handle = nullptr;
    }
    void SetUp() override { show_filter = ShowFilter{.node_id = L2FIB_ALL_NODES}; }
    void TearDown() override {
        unbind();
        SetUp();
        unsetenv("EVPN_SRV6");
        unsetenv("EVPN_SRV6_ELAN");
        platform_caps_reset();
    }
};

}  // namespace spine_test
