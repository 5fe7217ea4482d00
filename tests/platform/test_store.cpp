// The operational database as the show client sees it: listings in natural
// key order and in batches, resume and rewind, key indices with wildcards,
// single items, listings held per item, roots, binding, forwarding statistics, capabilities and the
// debug facility.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "json_record.h"
#include "platform/bag.h"
#include "platform/bag_types.h"
#include "platform/caps.h"
#include "platform/cerr.h"
#include "platform/debug.h"
#include "platform/formatters.h"
#include "platform/l2fib_stats.h"
#include "platform/sysdb.h"
#include "platform/sysdb_paths.h"
#include "platform/sysdb_keys.h"
#include "platform/sysdb_registry.h"
#include "platform/sysdb_schema.h"
#include "record_text.h"
#include "sysdb_writer.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const char *const kGl = "/oper/evpn/gl/";
const char *const kStdby = "/oper/evpn/gl/stdby/";
const std::string kMac = EVPN_PATH_MAC;
const std::string kEvi = EVPN_PATH_EVI;
const std::string kWild = "________";

// Keeps an environment variable as it was.
class EnvGuard {
  public:
    explicit EnvGuard(const char *name) : name_(name) {
        if (const char *v = getenv(name)) old_ = v;
    }
    ~EnvGuard() {
        if (old_) {
            setenv(name_, old_->c_str(), 1);
        } else {
            unsetenv(name_);
        }
    }

  private:
    const char *name_;
    std::optional<std::string> old_;
};

// One MAC route as the tests know it, and the item name the store gives it.
struct Route {
    uint32_t evi;
    std::string mac, ip, bd;

    std::array<uint8_t, 6> mac_bytes() const {
        std::array<uint8_t, 6> b{};
        EXPECT_EQ(l2vpn_mac_pton(mac.c_str(), b.data()), 0) << mac;
        return b;
    }
    std::string ip_hex() const {
        l2vpn_ip_addr_t a{};
        if (!ip.empty()) {
            EXPECT_NE(l2vpn_inet_pton(ip.c_str(), &a), 0) << ip;
        }
        char buf[40];
        l2vpn_ip_addr2hex_string2(&a, buf, sizeof buf);
        return buf;
    }
    std::string mac_text() const {  // the three 16-bit parts, "%x,%x,%x"
        auto b = mac_bytes();
        char buf[32];
        snprintf(buf, sizeof buf, "%x,%x,%x", (b[0] << 8) | b[1], (b[2] << 8) | b[3],
                 (b[4] << 8) | b[5]);
        return buf;
    }
    std::string name() const {
        char evi_text[16];
        snprintf(evi_text, sizeof evi_text, "0x%x", evi);
        return std::string(evi_text) + "," + mac_text() + "," + ip_hex();
    }
    // Natural order: EVI, then MAC bytes, then address bytes.
    auto order_key() const { return std::make_tuple(evi, mac_bytes(), ip_hex()); }
};

// Builds a database file through the writer, record by record.
class Db {
  public:
    explicit Db(const std::string &path) {
        std::string err;
        w_ = evpn::SysdbWriter::open(path, err);
        EXPECT_TRUE(w_) << err;
    }
    void add(const std::string &root, const std::string &base, const json &j) {
        const BagDesc *d = nullptr;
        if (base == kMac) d = &bag_desc_l2vpn_evpn_mac_bag;
        else if (base == kEvi) d = &bag_desc_l2vpn_evpn_evi_summary_bag;
        else if (base == "summary") d = &bag_desc_l2vpn_evpn_summary_bag;
        else if (base == "rd_private") d = &bag_desc_l2vpn_evpn_rd_private_bag;
        else if (const ListingDef *l = sysdb_registry_find(base)) d = l->desc;
        ASSERT_TRUE(d) << base;
        std::vector<uint64_t> rec(d->size / 8 + 1);
        evpn::RecordArena arena;
        std::string err;
        ASSERT_TRUE(record_from_text(j.dump(), d, rec.data(), arena, base, err)) << err;
        ASSERT_TRUE(w_->add(root, base, rec.data(), err)) << err;
    }
    void route(const Route &r, const std::string &root = kGl) {
        json j = {{"evi", r.evi}, {"mac_address", r.mac}, {"local_label", r.evi * 10},
                  {"bd_name", r.bd}, {"mac_state", "ok"}};
        if (!r.ip.empty()) j["ip_address"] = r.ip;
        add(root, kMac, j);
    }
    void evi(uint32_t vpn_id, uint32_t encap, const std::string &bd = "bd",
             const std::string &root = kGl) {
        add(root, kEvi, {{"vpn_id", vpn_id}, {"encap", encap}, {"bd_name", bd}, {"evi_type", 1}});
    }
    evpn::SysdbWriter &w() { return *w_; }
    void commit() {
        std::string err;
        ASSERT_TRUE(w_->commit(err)) << err;
    }

  private:
    std::unique_ptr<evpn::SysdbWriter> w_;
};

struct Batch {
    uint32_t rc = 0, count = 0, more = 0;
    std::vector<std::string> names, data;
};

Batch request(sysdb_handle_td h, const std::string &path, uint32_t count,
              const char *resume = "", uint32_t flags = 0) {
    Batch b;
    b.count = count;
    sysdb_datalist_h_td dl = reinterpret_cast<sysdb_datalist_h_td>(&b);  // must be overwritten
    b.rc = sysdb_datalist(h, path.c_str(), resume, &b.count, &dl, flags);
    if (!dl) {
        // Nothing found: 0 items; a failure leaves the count alone.
        const bool nothing = b.rc == SYSDB_ERR_NOT_FOUND;
        EXPECT_EQ(b.count, nothing ? 0u : count) << path;
        return b;
    }
    EXPECT_NE(static_cast<void *>(dl), static_cast<void *>(&b));
    const char *name;
    void *data;
    uint32_t len, type = 0, extra = 1;
    while (sysdb_datalist_next(dl, &name, &type, &data, &len, &extra) == 0) {
        b.names.push_back(name);
        b.data.emplace_back(static_cast<const char *>(data), len);
        EXPECT_EQ(type, uint32_t(SYSDB_TYPE_BAG));
        EXPECT_EQ(extra, 0u);
    }
    EXPECT_EQ(sysdb_datalist_get_more_flag(dl, &b.more), 0u);
    EXPECT_EQ(sysdb_datalist_free(dl), 0u);
    EXPECT_EQ(b.names.size(), b.count);
    return b;
}

// Every item of a listing, batch after batch, as the client's walk asks.
struct Walk {
    std::vector<std::string> names;
    uint32_t requests = 0, last_rc = 0;
};

Walk walk(sysdb_handle_td h, const std::string &path, uint32_t batch) {
    Walk w;
    std::string resume;
    uint32_t flags = 0;
    while (true) {
        Batch b = request(h, path, batch, resume.c_str(), flags);
        w.requests++;
        w.last_rc = b.rc;
        w.names.insert(w.names.end(), b.names.begin(), b.names.end());
        if (b.count == 0 || (b.count < batch && !b.more)) break;
        resume = b.names.back();
        flags = SYSDB_DATALIST_RESUME;
    }
    return w;
}

std::vector<std::string> sorted(std::vector<std::string> v) {
    std::sort(v.begin(), v.end());
    return v;
}

class Store : public ::testing::Test {
  protected:
    void SetUp() override {
        char tmpl[] = "/tmp/evpn_store_XXXXXX";
        ASSERT_TRUE(mkdtemp(tmpl));
        dir_ = tmpl;
        platform_caps_reset();
    }
    void TearDown() override {
        for (sysdb_handle_td h : handles_) _sysdb_unbind(h);
        sysdb_set_request_observer(nullptr, nullptr);
        sysdb_set_batch_byte_budget(0);
        platform_caps_reset();
        l2fib_stats_client_deinit();
        fs::remove_all(dir_);
    }
    std::string path(const std::string &name) const { return dir_ + "/" + name; }

    // Binds root of the database file; the handle is released at the end.
    sysdb_handle_td bind(const std::string &file, const char *root = kGl) {
        setenv("EVPN_SYSDB", file.c_str(), 1);
        sysdb_handle_td h = nullptr;
        uint32_t rc = _sysdb_bind(&h, root, SYSDB_BIND_READ);
        EXPECT_EQ(rc, 0u) << cerr_strerror(rc);
        if (h) handles_.push_back(h);
        return h;
    }
    void unbind(sysdb_handle_td h) {
        handles_.erase(std::remove(handles_.begin(), handles_.end(), h), handles_.end());
        EXPECT_EQ(_sysdb_unbind(h), 0u);
    }

    EnvGuard env_{"EVPN_SYSDB"};
    std::string dir_;
    std::vector<sysdb_handle_td> handles_;
};

// A database of seven EVIs, 0x1 to 0x7, encap 8.
std::string seven_evis(const std::string &file) {
    Db db(file);
    for (uint32_t v = 7; v >= 1; v--) db.evi(v, 8);
    db.commit();
    return file;
}

// ---- Order, batches, resume, rewind ----------------------------------------

TEST_F(Store, ItemsComeInNaturalKeyOrder) {
    Db db(path("order.db"));
    db.evi(10, 8);
    db.evi(0x100, 0);
    db.evi(2, 8);
    db.evi(2, 1);
    std::vector<Route> routes = {
        {10, "0000.0000.0001", "", "b"},         {2, "0000.0000.0002", "10.0.0.2", "b"},
        {2, "0000.0000.0002", "", "b"},          {2, "0000.0000.0002", "2001:db8::1", "b"},
        {2, "0000.0000.0002", "9.0.0.1", "b"},   {2, "0000.0000.0001", "10.0.0.9", "b"},
        {0x10, "ffff.0000.0000", "", "b"},       {2, "0100.0000.0000", "", "b"},
    };
    for (const Route &r : routes) db.route(r);
    db.commit();
    sysdb_handle_td h = bind(path("order.db"));

    EXPECT_EQ(request(h, kEvi, 200).names,
              (std::vector<std::string>{"0x2,0x1", "0x2,0x8", "0xa,0x8", "0x100,0x0"}));
    std::sort(routes.begin(), routes.end(),
              [](const Route &a, const Route &b) { return a.order_key() < b.order_key(); });
    std::vector<std::string> want;
    for (const Route &r : routes) want.push_back(r.name());
    EXPECT_EQ(request(h, kMac, 200).names, want);
    EXPECT_EQ(want.front(), "0x2,0,0,1,00000000000000000000ffff0a000009");
    // Batches of any size keep the order.
    EXPECT_EQ(walk(h, kMac, 3).names, want);
}

TEST_F(Store, BatchesHonourTheCountAndReportMore) {
    sysdb_handle_td h = bind(seven_evis(path("b.db")));
    Batch b1 = request(h, kEvi, 3);
    EXPECT_EQ(b1.rc, 0u);
    EXPECT_EQ(b1.count, 3u);
    EXPECT_EQ(b1.more, 1u);
    EXPECT_EQ(b1.names, (std::vector<std::string>{"0x1,0x8", "0x2,0x8", "0x3,0x8"}));
    Batch b3 = request(h, kEvi, 3, "0x6,0x8", SYSDB_DATALIST_RESUME);
    EXPECT_EQ(b3.count, 1u);
    EXPECT_EQ(b3.more, 0u);
    Batch end = request(h, kEvi, 3, "0x7,0x8", SYSDB_DATALIST_RESUME);
    EXPECT_EQ(end.rc, SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(end.count, 0u);

    // Exactly the count, and more than there is: no more flag.
    for (uint32_t n : {7u, 8u, 1000u}) {
        Batch b = request(h, kEvi, n);
        EXPECT_EQ(b.count, 7u) << n;
        EXPECT_EQ(b.more, 0u) << n;
    }
    // A resume name without the flag resumes too; the flag without a name is
    // refused (it would start the walk over).
    EXPECT_EQ(request(h, kEvi, 1, "0x5,0x8", 0).names, std::vector<std::string>{"0x6,0x8"});
    EXPECT_EQ(request(h, kEvi, 1, "", SYSDB_DATALIST_RESUME).rc, SYSDB_ERR_NO_INDEX_MATCH);
    // A resume name between two items.
    EXPECT_EQ(request(h, kEvi, 1, "0x4,0x9", SYSDB_DATALIST_RESUME).names,
              std::vector<std::string>{"0x5,0x8"});
    // Batches cut by the byte budget: the client's walk test and the exact
    // budget test in the bad-input suite.
}

TEST_F(Store, ResumeStartsAfterTheNamedItemEvenWhenItIsGone) {
    Db db(path("r.db"));
    for (uint32_t v = 1; v <= 6; v++) db.evi(v, 8);
    for (uint32_t i = 1; i <= 6; i++)
        db.route({i, "0000.0000.000" + std::to_string(i), "10.0.0.1", "b"});
    db.commit();
    sysdb_handle_td h = bind(path("r.db"));

    sqlite3 *rw = nullptr;
    ASSERT_EQ(sqlite3_open_v2(path("r.db").c_str(), &rw, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
    auto remove_item = [&](const std::string &name) {  // the item and its index entries
        std::string base, skey;
        std::vector<std::pair<int64_t, std::string>> rows;  // index rows that lead to it
        sqlite3_stmt *s = nullptr;
        ASSERT_EQ(sqlite3_prepare_v2(rw, "SELECT l.path, i.skey FROM item i JOIN " SYSDB_LISTINGS " l ON l.id = i.list "
                                         "WHERE i.name = ?1", -1, &s, nullptr), SQLITE_OK);
        sqlite3_bind_text(s, 1, name.c_str(), -1, SQLITE_TRANSIENT);
        ASSERT_EQ(sqlite3_step(s), SQLITE_ROW) << name;
        base = reinterpret_cast<const char *>(sqlite3_column_text(s, 0));
        skey.assign(static_cast<const char *>(sqlite3_column_blob(s, 1)), sqlite3_column_bytes(s, 1));
        sqlite3_finalize(s);
        ASSERT_EQ(sqlite3_prepare_v2(rw, "SELECT x.list, x.ikey, l.path FROM item_index x JOIN " SYSDB_LISTINGS " l "
                                         "ON l.id = x.list", -1, &s, nullptr), SQLITE_OK);
        while (sqlite3_step(s) == SQLITE_ROW) {
            const std::string path = reinterpret_cast<const char *>(sqlite3_column_text(s, 2));
            if (path.substr(0, path.find('#')) != base) continue;
            std::vector<uint8_t> ordering;
            for (char c : path.substr(path.find('#') + 1)) ordering.push_back(static_cast<uint8_t>(c - '0'));
            const ListingDef &l = *sysdb_registry_find(base);
            std::string row(static_cast<const char *>(sqlite3_column_blob(s, 1)), sqlite3_column_bytes(s, 1)), of;
            ASSERT_TRUE(sysdb_keys::skey_of_row(l, sysdb_keys::row_layout(l, ordering), row, of)) << path;
            if (of == skey) rows.emplace_back(sqlite3_column_int64(s, 0), row);
        }
        sqlite3_finalize(s);
        auto remove = [&](const char *sql, int64_t list, const std::string &key) {
            ASSERT_EQ(sqlite3_prepare_v2(rw, sql, -1, &s, nullptr), SQLITE_OK);
            sqlite3_bind_int64(s, 1, list);
            sqlite3_bind_blob(s, 2, key.data(), static_cast<int>(key.size()), SQLITE_TRANSIENT);
            EXPECT_EQ(sqlite3_step(s), SQLITE_DONE);
            EXPECT_EQ(sqlite3_changes(rw), 1);
            sqlite3_finalize(s);
        };
        EXPECT_FALSE(rows.empty()) << name;
        for (const auto &[list, key] : rows) remove("DELETE FROM item_index WHERE list = ?1 AND ikey = ?2", list, key);
        ASSERT_EQ(sqlite3_exec(rw, ("DELETE FROM item WHERE name = '" + name + "'").c_str(), nullptr, nullptr, nullptr),
                  SQLITE_OK);
    };

    // A binding reads one state of the database: the items go between two
    // bindings, and the second resumes after names that the first returned.
    Batch b1 = request(h, kEvi, 2);
    ASSERT_EQ(b1.names.back(), "0x2,0x8");
    // The same on a key index (addresses first, then MACs).
    const std::string by_ip = kMac + "-mac_ip/" + kWild + "," + kWild + "," + kWild + "," +
                              Route{0, "", "10.0.0.1", ""}.ip_hex();
    Batch i1 = request(h, by_ip, 2);
    ASSERT_EQ(i1.count, 2u);
    EXPECT_EQ(i1.more, 1u);
    unbind(h);
    remove_item("0x2,0x8");  // the resume item itself
    remove_item("0x3,0x8");  // and the one after it
    remove_item(i1.names[1]);
    sqlite3_close(rw);
    h = bind(path("r.db"));

    Batch b2 = request(h, kEvi, 2, "0x2,0x8", SYSDB_DATALIST_RESUME);
    EXPECT_EQ(b2.names, (std::vector<std::string>{"0x4,0x8", "0x5,0x8"}));
    Batch i2 = request(h, by_ip, 10, i1.names[1].c_str(), SYSDB_DATALIST_RESUME);
    EXPECT_EQ(i2.count, 4u);
    EXPECT_EQ(i2.names.front(), Route({3, "0000.0000.0003", "10.0.0.1", ""}).name());

    // A resume name that is no item name of the listing.
    EXPECT_EQ(request(h, kEvi, 2, "0x2", SYSDB_DATALIST_RESUME).rc, SYSDB_ERR_NO_INDEX_MATCH);
    EXPECT_EQ(request(h, kEvi, 2, "zz,0x8", SYSDB_DATALIST_RESUME).rc, SYSDB_ERR_NO_INDEX_MATCH);
}

TEST_F(Store, RewindReturnsTheBatchAgain) {
    sysdb_handle_td h = bind(seven_evis(path("w.db")));
    uint32_t count = 5;
    sysdb_datalist_h_td dl = nullptr;
    ASSERT_EQ(sysdb_datalist(h, kEvi.c_str(), "", &count, &dl, 0), 0u);
    auto pass = [&] {
        std::vector<std::string> seen;
        const char *name;
        void *data;
        uint32_t len;
        while (sysdb_datalist_next(dl, &name, nullptr, &data, &len, nullptr) == 0) {
            EXPECT_EQ(reinterpret_cast<uintptr_t>(data) % 4, 0u);
            seen.push_back(name + std::string("=") + std::string(static_cast<char *>(data), len));
        }
        return seen;
    };
    std::vector<std::string> first = pass();
    ASSERT_EQ(first.size(), 5u);
    const char *name = "x";
    EXPECT_EQ(sysdb_datalist_next(dl, &name, nullptr, nullptr, nullptr, nullptr), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(name, nullptr);
    ASSERT_EQ(sysdb_datalist_start(dl), 0u);
    EXPECT_EQ(pass(), first);
    EXPECT_EQ(sysdb_datalist_free(dl), 0u);
    uint32_t more = 0;

    EXPECT_EQ(sysdb_datalist_start(nullptr), SYSDB_ERR_BAD_ARG);
    EXPECT_EQ(sysdb_datalist_next(nullptr, &name, nullptr, nullptr, nullptr, nullptr), SYSDB_ERR_BAD_ARG);
    EXPECT_EQ(sysdb_datalist_get_more_flag(nullptr, &more), SYSDB_ERR_BAD_ARG);
    EXPECT_EQ(sysdb_datalist_free(nullptr), SYSDB_ERR_BAD_ARG);
}

// ---- Key indices -------------------------------------------------------------

class MacIndices : public Store {
  protected:
    void SetUp() override {
        Store::SetUp();
        const uint32_t evis[] = {1, 2, 0x10};
        Db db(path("mac.db"));
        for (uint32_t evi : evis)
            for (size_t m = 0; m < 3; m++)
                for (const std::string &ip : ips_) {
                    // EVI 1 is bridge domain bdA; EVI 2 shares bdA for one MAC;
                    // EVI 0x10 has no bridge-domain name (no bd index entries).
                    std::string bd = evi == 1 ? "bdA" : evi == 2 ? (m == 0 ? "bdA" : "bdB") : "";
                    routes_.push_back({evi, macs_[m], ip, bd});
                    db.route(routes_.back());
                }
        db.commit();
        h_ = bind(path("mac.db"));
    }

    template <class Pred>
    std::vector<std::string> model(Pred p) const {
        std::vector<std::string> out;
        for (const Route &r : routes_)
            if (p(r)) out.push_back(r.name());
        return sorted(out);
    }
    std::string ip(size_t i) const { return Route{0, "", ips_[i], ""}.ip_hex(); }
    std::string mac(size_t i) const { return Route{0, macs_[i], "", ""}.mac_text(); }

    const std::string macs_[3] = {"0011.2233.4455", "0011.2233.4456", "aabb.ccdd.eeff"};
    const std::vector<std::string> ips_ = {"", "10.0.0.1", "2001:db8::1"};
    std::vector<Route> routes_;
    sysdb_handle_td h_ = nullptr;
};

TEST_F(MacIndices, EveryIndexFormListsWhatMatches) {
    const std::string W3 = kWild + "," + kWild + "," + kWild;
    struct Case {
        std::string path;
        std::vector<std::string> want;
    };
    // The routes of EVI evi, MAC macs_[mac], address ips_[ip] and bridge domain
    // bd; -1 and "*": any; "+": any name.
    auto only = [&](int evi, int mac, int ip, std::string bd = "*") {
        return model([=, this](const Route &r) {
            return (evi < 0 || r.evi == uint32_t(evi)) && (mac < 0 || r.mac == macs_[mac]) &&
                   (ip < 0 || r.ip == ips_[ip]) && (bd == "*" || (bd == "+" ? !r.bd.empty() : r.bd == bd));
        });
    };
    const std::vector<Case> cases = {
        {"-evi/0x1", only(1, -1, -1)},
        {"-evi/0x10", only(0x10, -1, -1)},
        {"-evi_mac_ip/0x2," + mac(1) + "," + ip(1), only(2, 1, 1)},
        {"-evi_mac_ip/0x2," + W3 + "," + ip(1), only(2, -1, 1)},
        {"-evi_mac_ip/0x2," + mac(1) + "," + kWild, only(2, 1, -1)},
        {"-evi_mac_ip/" + kWild + "," + W3 + "," + kWild, only(-1, -1, -1)},
        {"-mac_ip/" + mac(1) + "," + ip(2), only(-1, 1, 2)},
        {"-mac_ip/" + W3 + "," + ip(0), only(-1, -1, 0)},
        {"-mac_ip/" + mac(2) + "," + kWild, only(-1, 2, -1)},
        {"-bd_mac_ip/bdA," + mac(0) + "," + ip(0), only(-1, 0, 0, "bdA")},
        {"-bd_mac_ip/bdA," + W3 + "," + ip(1), only(-1, -1, 1, "bdA")},
        {"-bd_mac_ip/bdB," + mac(2) + "," + kWild, only(-1, 2, -1, "bdB")},
        {"-bd/bdA", only(-1, -1, -1, "bdA")},
        {"-bd/bdB", only(-1, -1, -1, "bdB")},
        // A whole index.
        {"-evi/", only(-1, -1, -1)},
        {"-mac_ip/", only(-1, -1, -1)},
        {"-bd/", only(-1, -1, -1, "+")},
        {"-bd_mac_ip/", only(-1, -1, -1, "+")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.path);
        ASSERT_FALSE(c.want.empty());
        Walk one = walk(h_, kMac + c.path, 1000);
        EXPECT_EQ(one.requests, 1u);
        EXPECT_EQ(sorted(one.names), c.want);
        // In small batches: the same items in the same order, each once.
        Walk small = walk(h_, kMac + c.path, 2);
        EXPECT_EQ(small.names, one.names);
        EXPECT_TRUE(small.last_rc == 0 || small.last_rc == SYSDB_ERR_NOT_FOUND) << std::hex << small.last_rc;
    }
    // A whole index lists in the item table's natural order.
    EXPECT_EQ(request(h_, kMac + "-evi/", 100).names, request(h_, kMac, 100).names);
}

TEST_F(MacIndices, KeysThatDoNotFitTheIndexAreRefused) {
    const std::string W3 = kWild + "," + kWild + "," + kWild;
    EXPECT_EQ(request(h_, kMac + "-bd/bdC", 10).rc, SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(request(h_, kMac + "-evi/0x3", 10).rc, SYSDB_ERR_NOT_FOUND);
    for (const std::string &p : std::vector<std::string>{
             "-evi_mac_ip/0x2," + kWild + ",2233,4456," + ip(1),  // part of a MAC wildcarded
             "-evi_mac_ip/0x2," + mac(1),                         // too few components
             "-mac_ip/" + mac(1) + "," + ip(1) + ",1",            // too many
             "-evi/zz", "-evi/0x100000000",                       // not a number, too long
             "-mac_ip/" + W3 + "," + ip(1).substr(1),             // 31 hex digits
             "-mac_ip/1,2,10000," + ip(1),                        // MAC part above 16 bits
             "-nosuch/0x1", "-evi",                               // no such index, no slash
         }) {
        Batch b = request(h_, kMac + p, 10);
        EXPECT_EQ(b.rc, SYSDB_ERR_NO_INDEX_MATCH) << p << " " << cerr_strerror(b.rc);
        EXPECT_EQ(b.count, 10u) << p << ": a failure leaves the count";
    }
}

TEST_F(Store, IndexWalkResumesOverKeysOfGrowingLength) {
    // Bridge-domain names, and so index keys, grow from item to item.
    Db db(path("long.db"));
    std::vector<std::string> want;
    for (uint32_t i = 1; i <= 8; i++) {
        db.evi(i, 8, std::string(1 + 20 * i, static_cast<char>('a' + i)));
        want.push_back("0x" + std::to_string(i) + ",0x8");
    }
    db.commit();
    sysdb_handle_td h = bind(path("long.db"));
    for (uint32_t batch : {1u, 2u, 3u, 100u})
        EXPECT_EQ(walk(h, "evpn_evi-bd/", batch).names, want) << batch;
    EXPECT_EQ(request(h, "evpn_evi-bd/", 100, "0x2,0x8", SYSDB_DATALIST_RESUME).count, 6u);
}

TEST_F(Store, FilteredListingCostsWhatItReturns) {
    // 20000 routes over 200 EVIs: one EVI's 100 routes come from a key range,
    // not from a scan of all routes.
    Db db(path("big.db"));
    const uint32_t kRoutes = 20000, kEvis = 200;
    std::vector<Route> routes;
    for (uint32_t i = 0; i < kRoutes; i++) {
        char mac[16], ip[20];
        snprintf(mac, sizeof mac, "00aa.%04x.%04x", i >> 16, i & 0xffff);
        snprintf(ip, sizeof ip, "10.%u.%u.%u", i >> 16, (i >> 8) & 255, i & 255);
        routes.push_back({i % kEvis + 1, mac, ip, "bd" + std::to_string(i % kEvis + 1)});
        db.route(routes.back());
    }
    db.commit();
    sysdb_handle_td h = bind(path("big.db"));

    auto time_of = [&](const std::string &p, size_t want, int runs) {
        double best = 1e9;
        for (int r = 0; r < runs; r++) {
            auto t0 = std::chrono::steady_clock::now();
            Walk w = walk(h, p, 200);
            double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
            EXPECT_EQ(w.names.size(), want) << p;
            best = std::min(best, s);
        }
        return best;
    };
    double full = time_of(kMac, kRoutes, 2);
    const Route &r = routes[12345];  // EVI 146
    for (const std::string &p : {kMac + "-evi/0x92", kMac + "-bd/bd146",
                                 kMac + "-evi_mac_ip/0x92," + kWild + "," + kWild + "," + kWild + "," + r.ip_hex(),
                                 kMac + "-mac_ip/" + r.mac_text() + "," + kWild}) {
        size_t want = p.find("mac_ip") == std::string::npos ? kRoutes / kEvis : 1;
        double t = time_of(p, want, 3);
        EXPECT_LT(t * 10, full) << p << ": " << t << " s against " << full << " s for all routes";
    }
}

// Units go eight to a bitmap byte: every pattern of zero and non-zero units
// in a group gives its byte and keeps the non-zero ones in order, in the
// middle of a record and in its last whole group.
TEST(StoredRecord, EveryGroupPatternPacksToItsBitmapByte) {
    for (unsigned m = 0; m < 256; m++) {
        std::string rec(32 * 3 + 6, '\0');
        for (int k = 0; k < 8; k++)
            if (m >> k & 1)
                for (int g : {1, 2}) rec[32 * g + 4 * k + (k % 4)] = static_cast<char>(16 * g + k + 1);
        rec[32 * 3 + 5] = 'z';  // the bytes after the last whole unit
        std::string packed, back;
        sysdb_schema::pack_record(rec.data(), rec.size(), packed);
        const size_t units = 2 * static_cast<size_t>(__builtin_popcount(m));
        ASSERT_EQ(packed.size(), 1 + 4 + 4 * units + 2) << m;
        EXPECT_EQ(static_cast<uint8_t>(packed[1]), 0u) << m;
        EXPECT_EQ(static_cast<uint8_t>(packed[2]), m) << m;
        EXPECT_EQ(static_cast<uint8_t>(packed[3]), m) << m;
        ASSERT_TRUE(sysdb_schema::unpack_record(packed.data(), packed.size(), rec.size(), back)) << m;
        EXPECT_EQ(back, rec) << m;
    }
}

TEST(StoredRecord, PacksAndUnpacksEveryLengthAndRefusesWhatItDidNotMake) {
    std::string rec;
    for (size_t len = 0; len < 2100; len += len < 40 ? 1 : 97) {
        rec.assign(len, '\0');
        for (size_t i = 0; i < len; i++)
            if ((i * 7919) % 5 < 2) rec[i] = static_cast<char>(i % 251 + 1);  // zero and non-zero units
        std::string packed = "x", back = "y";
        sysdb_schema::pack_record(rec.data(), rec.size(), packed);
        ASSERT_TRUE(sysdb_schema::unpack_record(packed.data() + 1, packed.size() - 1, len, back)) << len;
        EXPECT_EQ(back, "y" + rec) << len;
        EXPECT_FALSE(sysdb_schema::unpack_record(packed.data() + 1, packed.size() - 1, len ? len - 1 : 0, back) &&
                     len)
            << "over the limit";
        back = "y";
        EXPECT_FALSE(sysdb_schema::unpack_record(packed.data() + 1, packed.size() - 2, len, back) && len) << len;
        std::string longer = packed.substr(1) + "z";
        EXPECT_FALSE(sysdb_schema::unpack_record(longer.data(), longer.size(), len, back)) << len;
        EXPECT_EQ(back, "y") << "a refused record leaves out as it was";
    }
    // One whole unit fewer or more than the bitmap names, wherever the record
    // ends against the bitmap's bytes (the last units are expanded from a copy).
    for (size_t len = 4; len < 300; len += 3) {
        rec.assign(len, '\x5a');
        std::string packed, back;
        sysdb_schema::pack_record(rec.data(), rec.size(), packed);
        ASSERT_TRUE(sysdb_schema::unpack_record(packed.data(), packed.size(), len, back)) << len;
        EXPECT_EQ(back, rec);
        const std::string tail = packed.substr(packed.size() - len % 4);
        const std::string fewer = packed.substr(0, packed.size() - len % 4 - 4) + tail;
        const std::string more = packed.substr(0, packed.size() - len % 4) + "\1\2\3\4" + tail;
        back.clear();
        EXPECT_FALSE(sysdb_schema::unpack_record(fewer.data(), fewer.size(), len, back)) << len;
        EXPECT_FALSE(sysdb_schema::unpack_record(more.data(), more.size(), len, back)) << len;
        EXPECT_EQ(back, "");
    }
    // A bitmap bit past the last unit, a length that does not end.
    std::string packed;
    sysdb_schema::pack_record("\0\0\0\1", 4, packed);
    packed[1] = 3;
    std::string out;
    EXPECT_FALSE(sysdb_schema::unpack_record(packed.data(), packed.size(), 64, out));
    EXPECT_FALSE(sysdb_schema::unpack_record("\x80\x80", 2, 64, out));
    EXPECT_FALSE(sysdb_schema::unpack_record("", 0, 64, out));
}

// The vector unpacking (where the processor has it) and the plain one give
// the same bytes for every record and refuse the same damaged ones: records
// of every length up to a few groups past 32 stored bytes and at each change
// of the length's own size, dense, sparse and mixed, packed and then cut,
// lengthened, or with a bitmap byte changed.
TEST(StoredRecord, VectorAndPlainUnpackingAgreeOnWholeAndDamagedRecords) {
    uint32_t seed = 12345;
    auto next = [&seed] { return seed = seed * 1103515245u + 12345u, seed >> 16; };
    auto both = [](const std::string &packed, size_t max_len, const std::string &what) {
        std::string vec = "v", plain = "v";
        sysdb_schema::unpack_use_vectors(true);
        const bool vec_ok = sysdb_schema::unpack_record(packed.data(), packed.size(), max_len, vec);
        sysdb_schema::unpack_use_vectors(false);
        const bool plain_ok = sysdb_schema::unpack_record(packed.data(), packed.size(), max_len, plain);
        sysdb_schema::unpack_use_vectors(true);
        EXPECT_EQ(vec_ok, plain_ok) << what;
        EXPECT_EQ(vec, plain) << what;
        return plain_ok;
    };
    std::vector<size_t> lengths;
    for (size_t len = 0; len < 700; len += len < 80 ? 1 : 13) lengths.push_back(len);
    for (size_t len : {127, 128, 16383, 16384, 16385}) lengths.push_back(len);  // a length of one, two, three bytes
    for (size_t len : lengths) {
        for (unsigned density : {0u, 1u, 4u, 7u, 8u}) {  // eighths of the units that are not zero
            std::string rec(len, '\0');
            for (size_t u = 0; u * 4 < len; u++)
                if (next() % 8 < density)
                    for (size_t i = 4 * u; i < std::min(len, 4 * u + 4); i++) rec[i] = static_cast<char>(next() | 1);
            std::string packed;
            sysdb_schema::pack_record(rec.data(), rec.size(), packed);
            const std::string what = "length " + std::to_string(len) + " density " + std::to_string(density);
            EXPECT_TRUE(both(packed, len, what)) << what;
            for (size_t cut = 1; cut <= std::min<size_t>(packed.size(), 9); cut++)
                EXPECT_FALSE(both(packed.substr(0, packed.size() - cut), len, what + " cut " + std::to_string(cut)));
            EXPECT_FALSE(both(packed + "\1\2\3\4", len, what + " longer"));
            const size_t header = len >= 16384 ? 3 : len >= 128 ? 2 : 1, map_len = (len / 4 + 7) / 8;
            for (size_t b = 0; b < map_len; b++) {
                std::string changed = packed;
                changed[header + b] = static_cast<char>(changed[header + b] ^ (1 << (next() % 8)));
                both(changed, len, what + " bitmap byte " + std::to_string(b));
            }
        }
    }
}

// ---- Paths, items, roots -------------------------------------------------------

TEST_F(Store, PathsThatNameNothingFailWithTheirCodes) {
    Db db(path("p.db"));
    db.evi(1, 8);
    db.add(kGl, "summary", {{"evi_count", 1}});
    db.commit();
    sysdb_handle_td h = bind(path("p.db"));

    struct Case {
        const char *path;
        uint32_t rc;
    };
    const std::string long_ok = "evpn_evi-bd/" + std::string(255 - 12, 'x');
    const std::string long_bad = "evpn_evi-bd/" + std::string(256 - 12, 'x');
    ASSERT_EQ(long_ok.size(), 255u);
    const Case cases[] = {
        {"no_such", SYSDB_ERR_NOT_FOUND},
        {"evpn_evi/0x1,0x8", SYSDB_ERR_NOT_FOUND},  // an item, not a listing
        {"summary", SYSDB_ERR_NOT_FOUND},           // a single item
        {"rd_private", SYSDB_ERR_NOT_FOUND},        // known, but empty in this database
        {"evpn_evi-evi/0x1,0x8", SYSDB_ERR_NO_INDEX_MATCH},  // (more in the key test)
        {"/evpn_evi", SYSDB_ERR_BAD_PATH},          // paths are relative to the root
        {"/oper/evpn/gl/evpn_evi", SYSDB_ERR_BAD_PATH},
        {"", SYSDB_ERR_BAD_PATH},
        {nullptr, SYSDB_ERR_BAD_PATH},
        {long_ok.c_str(), SYSDB_ERR_NOT_FOUND},
        {long_bad.c_str(), SYSDB_ERR_BAD_PATH},
    };
    for (const Case &c : cases) {
        uint32_t count = 10;
        sysdb_datalist_h_td dl = reinterpret_cast<sysdb_datalist_h_td>(&count);
        EXPECT_EQ(sysdb_datalist(h, c.path, "", &count, &dl, 0), c.rc) << (c.path ? c.path : "(null)");
        EXPECT_EQ(count, c.rc == SYSDB_ERR_NOT_FOUND ? 0u : 10u) << "a failure leaves the count";
        EXPECT_EQ(dl, nullptr);
    }
    EXPECT_EQ(request(h, "evpn_evi-evi/0x1", 10).count, 1u);

    uint32_t count = 10, zero = 0;
    sysdb_datalist_h_td dl = nullptr;
    EXPECT_EQ(sysdb_datalist(nullptr, "evpn_evi", "", &count, &dl, 0), SYSDB_ERR_NOT_BOUND);
    EXPECT_EQ(sysdb_datalist(h, "evpn_evi", "", &zero, &dl, 0), SYSDB_ERR_BAD_ARG);
    EXPECT_EQ(sysdb_datalist(h, "evpn_evi", "", nullptr, &dl, 0), SYSDB_ERR_BAD_ARG);
    count = 10;
    EXPECT_EQ(sysdb_datalist(h, "evpn_evi", "", &count, nullptr, 0), SYSDB_ERR_BAD_ARG);
    EXPECT_EQ(count, 10u);
}

TEST_F(Store, SingleItemsAreFetchedByPath) {
    Db db(path("i.db"));
    db.evi(2, 8, "bd-two");
    db.add(kGl, "summary", {{"evi_count", 3}});
    db.commit();
    sysdb_handle_td h = bind(path("i.db"));

    auto get = [&](const char *p, std::string *out = nullptr) {
        uint32_t type = 0, len = 99;
        void *data = reinterpret_cast<void *>(1);
        uint32_t rc = sysdb_item_get(h, p, &type, &data, &len, 0);
        if (rc) {
            EXPECT_EQ(data, nullptr) << p;
            EXPECT_EQ(len, 0u) << p;
        } else {
            EXPECT_EQ(type, uint32_t(SYSDB_TYPE_BAG));
            if (out) out->assign(static_cast<char *>(data), len);
        }
        free(data);
        return rc;
    };
    std::string enc;
    ASSERT_EQ(get("summary"), 0u);
    ASSERT_EQ(get("evpn_evi/0x2,0x8", &enc), 0u);
    EXPECT_EQ(enc, request(h, kEvi, 1).data[0]);
    EXPECT_EQ(get("evpn_evi/0x2,0x9"), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(get("evpn_evi/0x2"), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(get("evpn_evi"), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(get("summary/x"), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(get("no_such/0x1"), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(get("rd_private/000000010000006400000001"), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(get("/summary"), SYSDB_ERR_BAD_PATH);
    EXPECT_EQ(get(""), SYSDB_ERR_BAD_PATH);
    EXPECT_EQ(get(("evpn_evi/" + std::string(247, '1')).c_str()), SYSDB_ERR_BAD_PATH);

    void *data = nullptr;
    uint32_t len = 0;
    EXPECT_EQ(sysdb_item_get(nullptr, "summary", nullptr, &data, &len, 0), SYSDB_ERR_NOT_BOUND);
    EXPECT_EQ(sysdb_item_get(h, "summary", nullptr, nullptr, &len, 0), SYSDB_ERR_BAD_ARG);
    EXPECT_EQ(sysdb_item_get(h, "summary", nullptr, &data, nullptr, 0), SYSDB_ERR_BAD_ARG);

    EXPECT_STREQ(l2vpn_edm_sysdb_path_to_item_name("evpn_evi/0x2,0x8"), "0x2,0x8");
    EXPECT_STREQ(l2vpn_edm_sysdb_path_to_item_name("summary"), "summary");
}

// Tunnel endpoints: the listing names each endpoint by its ID, the record is
// the item "<id>/info" below it, and each endpoint holds its own listing of
// notification registrations at "<id>/notification".
TEST_F(Store, ItemLeavesAndListingsHeldPerItem) {
    const std::string tep = EVPN_PATH_TEP;
    Db db(path("t.db"));
    for (uint32_t id : {0x1fu, 2u, 0x100u})
        db.add(kGl, tep, {{"tep_id", id}, {"vrf_name", "v"}, {"udp_port", id}});
    for (const char *name : {"l2rib", "bgp", "mac-mobility"})
        db.add(kGl, tep + "/1f/notification", {{"name", name}});
    db.add(kGl, tep + "/100/notification", {{"name", "other"}});
    std::string err;
    std::vector<uint64_t> rec(2);
    EXPECT_FALSE(db.w().add(kGl, tep + "/x1/notification", rec.data(), err));  // no such ID text
    EXPECT_FALSE(db.w().add(kGl, tep + "/1f/info", rec.data(), err));          // an item, not a listing
    db.commit();
    sysdb_handle_td h = bind(path("t.db"));

    EXPECT_EQ(walk(h, tep, 2).names, (std::vector<std::string>{"2", "1f", "100"}));
    uint32_t type = 0, len = 0;
    void *data = nullptr;
    ASSERT_EQ(sysdb_item_get(h, "tep/1f/info", &type, &data, &len, 0), 0u);
    EXPECT_EQ(std::string(static_cast<char *>(data), len), request(h, tep, 2).data[1]);
    free(data);
    for (const char *missing : {"tep/1f", "tep/3/info", "tep/1f/notification", "tep/1f/other",
                                "tep/x1/info", "tep//info", "tep/info"}) {
        data = nullptr;
        EXPECT_EQ(sysdb_item_get(h, missing, &type, &data, &len, 0), SYSDB_ERR_NOT_FOUND) << missing;
        free(data);
    }
    // Each endpoint's registrations in name order, resumable; none for another's.
    Walk w = walk(h, tep + "/1f/notification", 2);
    EXPECT_EQ(w.names, (std::vector<std::string>{"bgp", "l2rib", "mac-mobility"}));
    EXPECT_EQ(w.requests, 2u);
    EXPECT_EQ(walk(h, tep + "/100/notification", 200).names, std::vector<std::string>{"other"});
    EXPECT_EQ(request(h, tep + "/2/notification", 200).rc, SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(request(h, tep + "/x1/notification", 200).rc, SYSDB_ERR_NOT_FOUND);
}

// A listing display gets each endpoint it lists while the batch that named it
// is held: that get is served from the batch. It must give what a seek gives,
// and only for the entry last handed out, of the same handle and listing.
TEST_F(Store, AGetOfTheItemAHeldBatchLastGaveServesTheSameBytes) {
    const std::string tep = EVPN_PATH_TEP;
    Db db(path("t.db"));
    for (uint32_t id : {1u, 2u, 3u}) db.add(kGl, tep, {{"tep_id", id}, {"udp_port", 100 + id}});
    db.add(kGl, tep + "/2/notification", {{"name", "bgp"}});
    db.commit();
    sysdb_handle_td h = bind(path("t.db")), other = bind(path("t.db"));
    const std::vector<std::string> seek = request(h, tep, 200).data;  // batch already freed
    auto get = [](sysdb_handle_td handle, const char *p) {
        uint32_t type = 0, len = 0;
        void *data = nullptr;
        uint32_t rc = sysdb_item_get(handle, p, &type, &data, &len, 0);
        std::string bytes = rc ? "rc " + std::to_string(rc) : std::string(static_cast<char *>(data), len);
        free(data);
        return bytes;
    };
    uint32_t count = 200;
    sysdb_datalist_h_td list = nullptr;
    ASSERT_EQ(sysdb_datalist(h, tep.c_str(), "", &count, &list, 0), 0u);
    const char *name = nullptr;
    uint32_t type = 0, len = 0, extra = 0;
    void *data = nullptr;
    ASSERT_EQ(sysdb_datalist_next(list, &name, &type, &data, &len, &extra), 0u);
    ASSERT_EQ(sysdb_datalist_next(list, &name, &type, &data, &len, &extra), 0u);
    ASSERT_STREQ(name, "2");
    // A nested walk between the listing and the get, as the detail form has.
    EXPECT_EQ(walk(h, tep + "/2/notification", 200).names, std::vector<std::string>{"bgp"});
    EXPECT_EQ(get(h, "tep/2/info"), seek[1]);
    EXPECT_EQ(get(h, "tep/1/info"), seek[0]);    // handed out earlier: a seek
    EXPECT_EQ(get(h, "tep/3/info"), seek[2]);    // not yet handed out: a seek
    EXPECT_EQ(get(other, "tep/2/info"), seek[1]);
    EXPECT_EQ(get(h, "tep/2/notification"), "rc " + std::to_string(SYSDB_ERR_NOT_FOUND));
    // Paths that only look like the held entry's answer as they would with
    // no batch held.
    const char *near[] = {"tep/2",      "tep/2/",      "tep/2/info/", "tep/2/infox", "tep/22/info",
                          "tep/02/info", "tep/2,3/info", "tep//info",  "tepx/2/info", "tep/2/inf"};
    std::vector<std::string> held;
    for (const char *p : near) held.push_back(get(h, p));
    sysdb_datalist_free(list);
    for (size_t i = 0; i < std::size(near); i++) EXPECT_EQ(held[i], get(h, near[i])) << near[i];
    EXPECT_EQ(get(h, "tep/2/info"), seek[1]);
}

TEST_F(Store, EachRootHoldsItsOwnItems) {
    Db db(path("roots.db"));
    db.evi(1, 8, "gl");
    db.evi(2, 8, "standby", kStdby);
    db.evi(3, 8, "node1", "/oper/evpn/node/1/");
    db.evi(4, 8, "node1", "/oper/evpn/node/1/");
    db.add("/oper/evpn/node/1/", "summary", {{"evi_count", 2}});
    db.commit();
    sysdb_handle_td gl = bind(path("roots.db"));
    sysdb_handle_td sb = bind(path("roots.db"), kStdby);
    sysdb_handle_td n1 = bind(path("roots.db"), "/oper/evpn/node/1/");
    sysdb_handle_td n2 = bind(path("roots.db"), "/oper/evpn/node/2/");
    EXPECT_EQ(request(gl, kEvi, 10).names, std::vector<std::string>{"0x1,0x8"});
    EXPECT_EQ(request(sb, kEvi, 10).names, std::vector<std::string>{"0x2,0x8"});
    EXPECT_EQ(request(n1, kEvi, 10).names, (std::vector<std::string>{"0x3,0x8", "0x4,0x8"}));
    EXPECT_EQ(request(n2, kEvi, 10).rc, SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(request(n1, "evpn_evi-bd/node1", 10).count, 2u);
    EXPECT_EQ(request(gl, "evpn_evi-bd/node1", 10).rc, SYSDB_ERR_NOT_FOUND);
    void *data = nullptr;
    uint32_t len = 0;
    EXPECT_EQ(sysdb_item_get(gl, "summary", nullptr, &data, &len, 0), SYSDB_ERR_NOT_FOUND);
    ASSERT_EQ(sysdb_item_get(n1, "summary", nullptr, &data, &len, 0), 0u);
    free(data);
    // Unbinding one handle leaves the others working.
    unbind(sb);
    EXPECT_EQ(request(gl, kEvi, 10).count, 1u);

    sysdb_handle_td h = reinterpret_cast<sysdb_handle_td>(&len);
    for (const char *bad : {"/oper/evpn/node/xyz/", "/oper/evpn/node/123456789/", "/oper/evpn/gl",
                            "/oper/evpn/", "/oper/evpn/node//"}) {
        EXPECT_EQ(_sysdb_bind(&h, bad, SYSDB_BIND_READ), SYSDB_ERR_BAD_PATH) << bad;
        EXPECT_EQ(h, nullptr);
    }
    EXPECT_EQ(_sysdb_bind(&h, kGl, 5), SYSDB_ERR_BAD_ARG);
    EXPECT_EQ(_sysdb_bind(nullptr, kGl, SYSDB_BIND_READ), SYSDB_ERR_BAD_ARG);
    EXPECT_EQ(_sysdb_unbind(nullptr), SYSDB_ERR_NOT_BOUND);
}

// ---- Forwarding statistics, capabilities, interfaces, debug ---------------------

TEST_F(Store, ForwardingStatisticsPerNodeAndSummed) {
    Db db(path("s.db"));
    auto stats = [](uint64_t base) {
        bd_forwarding_stats s{};
        s.rx_total_packets = base;
        s.rx_total_bytes = base * 100;
        s.tx_unicast_bytes = base + 7;
        return s;
    };
    std::string err;
    ASSERT_TRUE(db.w().add_bd_stats(0, 5, stats(10), err)) << err;
    ASSERT_TRUE(db.w().add_bd_stats(1, 5, stats(1), err)) << err;
    ASSERT_TRUE(db.w().add_bd_stats(0, 6, stats(7), err)) << err;
    ASSERT_TRUE(db.w().add_bd_stats(3, 8, bd_forwarding_stats{}, err)) << err;
    db.commit();
    bind(path("s.db"));

    EnvGuard fail("EVPN_FAIL");
    l2fib_stats_client_deinit();
    bd_forwarding_stats out{};
    EXPECT_EQ(l2fib_get_stats_bag_bd_forwarding(0, 5, &out, "latest"), L2FIB_ERR_NOT_STARTED);
    setenv("EVPN_FAIL", "l2fib_stats_client_init", 1);
    EXPECT_EQ(l2fib_stats_client_init(nullptr), L2FIB_ERR_START);
    unsetenv("EVPN_FAIL");
    ASSERT_EQ(l2fib_stats_client_init(nullptr), 0u);

    l2fib_request_counts before = l2fib_get_request_counts();
    ASSERT_EQ(l2fib_get_stats_bag_bd_forwarding(1, 5, &out, "latest"), 0u);
    EXPECT_EQ(out.rx_total_packets, 1u);
    EXPECT_EQ(out.tx_unicast_bytes, 8u);
    ASSERT_EQ(l2fib_get_stats_bag_bd_forwarding(L2FIB_ALL_NODES, 5, &out, "latest"), 0u);
    EXPECT_EQ(out.rx_total_packets, 11u);
    EXPECT_EQ(out.rx_total_bytes, 1100u);
    EXPECT_EQ(out.tx_unicast_bytes, 25u);
    EXPECT_EQ(out.tx_total_bytes, 0u);
    // A bridge domain whose counters are all zero still has counters.
    memset(&out, 0xab, sizeof out);
    ASSERT_EQ(l2fib_get_stats_bag_bd_forwarding(L2FIB_ALL_NODES, 8, &out, "latest"), 0u);
    EXPECT_EQ(out.rx_total_packets, 0u);
    // Missing: the record is left alone.
    using NodeBd = std::pair<uint32_t, uint32_t>;
    for (auto [node, bd] : {NodeBd{2, 5}, NodeBd{0, 9}, NodeBd{L2FIB_ALL_NODES, 9}}) {
        memset(&out, 0xab, sizeof out);
        EXPECT_EQ(l2fib_get_stats_bag_bd_forwarding(node, bd, &out, "latest"), L2FIB_ERR_NO_BD);
        EXPECT_EQ(out.rx_total_packets, 0xababababababababull);
    }
    EXPECT_EQ(l2fib_get_stats_bag_bd_forwarding(0, 5, nullptr, "latest"), L2FIB_ERR_ARG);
    l2fib_request_counts mid = l2fib_get_request_counts();
    EXPECT_EQ(mid.single - before.single, 6u);
    EXPECT_EQ(mid.bulk, before.bulk);

    // One bulk request for many entries; a missing one does not stop the rest.
    bd_forwarding_stats s[4];
    memset(s, 0xab, sizeof s);
    l2fib_bd_stats_entry e[5] = {{L2FIB_ALL_NODES, 5, &s[0]},
                                 {0, 9, &s[1]},
                                 {0, 6, &s[2]},
                                 {0, 6, nullptr},
                                 {1, 5, &s[3]}};
    EXPECT_EQ(l2fib_get_stats_bag_bd_forwarding_array(5, e, "latest"), L2FIB_ERR_NO_BD);
    EXPECT_EQ(s[0].rx_total_packets, 11u);
    EXPECT_EQ(s[1].rx_total_packets, 0xababababababababull);
    EXPECT_EQ(s[2].rx_total_packets, 7u);
    EXPECT_EQ(s[3].rx_total_packets, 1u);
    EXPECT_EQ(l2fib_get_stats_bag_bd_forwarding_array(1, e, "latest"), 0u);
    EXPECT_EQ(l2fib_get_stats_bag_bd_forwarding_array(0, nullptr, "latest"), 0u);
    EXPECT_EQ(l2fib_get_stats_bag_bd_forwarding_array(2, nullptr, "latest"), L2FIB_ERR_ARG);
    l2fib_request_counts after = l2fib_get_request_counts();
    EXPECT_EQ(after.single, mid.single);
    EXPECT_EQ(after.bulk - mid.bulk, 3u);
    EXPECT_EQ(after.bulk_entries - mid.bulk_entries, 6u);
    l2fib_stats_client_deinit();
}

// Counters written by other means: 8 bytes each, least significant first;
// a value of another length is a damaged record, left out of every answer.
TEST_F(Store, CountersStoredByOtherMeansReadByTheirByteOrderOrAreLeftOut) {
    Db db(path("c.db"));
    bd_forwarding_stats one{};
    one.rx_total_packets = 5;
    std::string err;
    for (uint32_t node : {0u, 1u, 2u}) ASSERT_TRUE(db.w().add_bd_stats(node, 5, one, err)) << err;
    ASSERT_TRUE(db.w().add_bd_stats(0, 6, one, err)) << err;
    db.commit();
    sqlite3 *rw = nullptr;
    ASSERT_EQ(sqlite3_open(path("c.db").c_str(), &rw), SQLITE_OK);
    const std::string made = "x'0102" + std::string(2 * (sysdb_schema::kBdStatsBytes - 2), '0') + "'";
    const std::string sql = "UPDATE attribute SET v1 = " + made + " WHERE kind = 3 AND key2 = 1;" +
                            "UPDATE attribute SET v1 = x'0102' WHERE kind = 3 AND key2 = 2;" +
                            "UPDATE attribute SET v1 = 'text' WHERE kind = 3 AND key = 6;";
    ASSERT_EQ(sqlite3_exec(rw, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(rw);
    sqlite3_close(rw);
    bind(path("c.db"));
    ASSERT_EQ(l2fib_stats_client_init(nullptr), 0u);

    bd_forwarding_stats out{};
    ASSERT_EQ(l2fib_get_stats_bag_bd_forwarding(1, 5, &out, "latest"), 0u);
    EXPECT_EQ(out.rx_total_packets, 0x0201u);
    EXPECT_EQ(out.tx_unicast_bytes, 0u);
    // Node 2's counters are two bytes: the sum is of nodes 0 and 1 alone.
    ASSERT_EQ(l2fib_get_stats_bag_bd_forwarding(L2FIB_ALL_NODES, 5, &out, "latest"), 0u);
    EXPECT_EQ(out.rx_total_packets, 0x0201u + 5);
    memset(&out, 0xab, sizeof out);
    EXPECT_EQ(l2fib_get_stats_bag_bd_forwarding(2, 5, &out, "latest"), L2FIB_ERR_NO_BD);
    EXPECT_EQ(l2fib_get_stats_bag_bd_forwarding(0, 6, &out, "latest"), L2FIB_ERR_NO_BD);
    EXPECT_EQ(out.rx_total_packets, 0xababababababababull);
    l2fib_stats_client_deinit();
}

TEST_F(Store, CapabilitiesAndInterfacesComeFromTheBoundDatabase) {
    EnvGuard srv6("EVPN_SRV6"), elan("EVPN_SRV6_ELAN");
    unsetenv("EVPN_SRV6");
    unsetenv("EVPN_SRV6_ELAN");
    std::string err;
    {
        Db db(path("c1.db"));
        ASSERT_TRUE(db.w().set_capability("srv6", 1, err)) << err;
        ASSERT_TRUE(db.w().set_capability("srv6_elan", 0, err)) << err;
        ASSERT_TRUE(db.w().add_interface(0x100, "eth1", "Up", err)) << err;
        ASSERT_TRUE(db.w().add_interface(0x200, "bond1", "Down", err)) << err;
        db.commit();
        Db empty(path("c2.db"));
        empty.commit();
    }
    sysdb_handle_td h = bind(path("c1.db"));
    platform_caps_reset();
    EXPECT_EQ(l2vpn_platform_srv6_supported(), 1);
    EXPECT_EQ(l2vpn_platform_srv6_elan_supported(), 0);
    EXPECT_STREQ(l2vpn_if_name(0x100, 0), "eth1");
    EXPECT_STREQ(im_display_namestring(0x200), "bond1");
    // A name's display form: the name of a known interface, else empty.
    char name[8];
    im_display_namestring("bond1", name, sizeof name, 1);
    EXPECT_STREQ(name, "bond1");
    im_display_namestring("eth9", name, sizeof name, 0);
    EXPECT_STREQ(name, "");
    im_display_namestring(nullptr, name, sizeof name, 0);
    EXPECT_STREQ(name, "");
    im_display_namestring("eth1", name, 3, 0);
    EXPECT_STREQ(name, "et");
    EXPECT_STREQ(im_state_reverse_lookup(0x200), "Down");
    EXPECT_STREQ(l2vpn_if_name(0x300, 0), "0x300");
    EXPECT_STREQ(im_state_reverse_lookup(0x300), "Unknown");
    setenv("EVPN_SRV6", "0", 1);
    setenv("EVPN_SRV6_ELAN", "1", 1);
    platform_caps_reset();
    EXPECT_EQ(l2vpn_platform_srv6_supported(), 0);
    EXPECT_EQ(l2vpn_platform_srv6_elan_supported(), 1);
    unsetenv("EVPN_SRV6");
    unsetenv("EVPN_SRV6_ELAN");

    unbind(h);
    bind(path("c2.db"));
    platform_caps_reset();
    EXPECT_EQ(l2vpn_platform_srv6_supported(), 0);
    EXPECT_STREQ(l2vpn_if_name(0x100, 0), "0x100");
    EXPECT_STREQ(im_state_reverse_lookup(0x100), "Unknown");
}

TEST(Debug, MaskedMessagesGoToStandardErrorAsFunctionLineMessage) {
    uint64_t old = l2vpn_debug_get_enabled_bitset();
    l2vpn_debug_set_enabled_bitset(0x400000);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    l2vpn_vdbgf(l2vpn_debug_get_ctx(), 0x400001, "evpn_show_get_display", 42, "bag %s: %u", "x", 5u);
    l2vpn_vdbgf(l2vpn_debug_get_ctx(), 0x80001, "hidden", 1, "not shown");
    l2vpn_debug_set_enabled_bitset(0);
    l2vpn_vdbgf(l2vpn_debug_get_ctx(), 0x400001, "hidden", 2, "not shown");
    std::string err = testing::internal::GetCapturedStderr();
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(err, "evpn_show_get_display:42: bag x: 5\n");
    EXPECT_EQ(out, "");

    EnvGuard env("EVPN_DEBUG");
    const struct {
        const char *text;
        uint64_t mask;
    } cases[] = {{"0x80001", 0x80001}, {"400001", 0x400001}, {"zz", 0}, {"", 0}, {nullptr, 0}};
    for (const auto &c : cases) {
        if (c.text) setenv("EVPN_DEBUG", c.text, 1);
        else unsetenv("EVPN_DEBUG");
        EXPECT_EQ(l2vpn_debug_init(nullptr), 0u);
        EXPECT_EQ(l2vpn_debug_get_enabled_bitset(), c.mask) << (c.text ? c.text : "(unset)");
    }
    l2vpn_debug_set_enabled_bitset(old);
}

}  // namespace
