// What the collector's tests share: a store in a directory of its own, BMP
// messages built by hand, and the client run on the store.
#pragma once
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "evpn_bmp/bmp.h"
#include "live_store.h"
#include "subprocess.h"

namespace ctest {

using namespace evpn;

// A directory readable by everyone (a reader may run as another user),
// removed with what it holds.
struct TempDir {
    std::string path;
    TempDir() {
        std::string pattern = ::testing::TempDir() + "collector-XXXXXX";
        if (mkdtemp(pattern.data())) path = pattern;
        chmod(path.c_str(), 0755);
    }
    ~TempDir() {
        if (!path.empty()) (void)!system(("rm -rf '" + path + "'").c_str());
    }
};

inline bmp::IpAddr v4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    bmp::IpAddr r;
    r.len = 4;
    r.b[0] = a, r.b[1] = b, r.b[2] = c, r.b[3] = d;
    return r;
}

inline bmp::IpAddr v6(std::initializer_list<uint8_t> bytes) {
    bmp::IpAddr r;
    r.len = 16;
    size_t i = 0;
    for (uint8_t b : bytes) r.b[i++] = b;
    return r;
}

// A route target of a 2-octet AS, raw, as an UPDATE carries it.
inline uint64_t rt2(uint16_t as, uint32_t local) {
    return uint64_t(0x0002) << 48 | uint64_t(as) << 32 | local;
}

// RD "a.b.c.d:n".
inline bmp::Rd rd_ip(uint8_t last, uint16_t n) {
    return {0, 1, 192, 0, 2, last, static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)};
}

inline bmp::PeerHeader peer(uint8_t last, uint32_t as = 65001) {
    bmp::PeerHeader h;
    h.address = v4(192, 0, 2, last);
    h.as = as;
    h.bgp_id = 0xc0000200u | last;
    return h;
}

inline bmp::EvpnNlri mac_route(bmp::Rd rd, uint8_t mac_last, bmp::IpAddr ip, uint32_t label) {
    bmp::EvpnNlri n;
    n.route_type = 2;
    n.rd = rd;
    n.mac = {0x00, 0x11, 0x22, 0x33, 0x44, mac_last};
    n.ip = ip;
    n.label_count = 1;
    n.label[0] = label;
    return n;
}

inline bmp::RouteAttrs attrs(bmp::IpAddr next_hop, std::vector<uint64_t> rts) {
    bmp::RouteAttrs a;
    a.next_hop = next_hop;
    a.route_targets = std::move(rts);
    return a;
}

inline bmp::Message update(const bmp::PeerHeader &p, std::vector<bmp::EvpnNlri> reach,
                           const bmp::RouteAttrs &a, std::vector<bmp::EvpnNlri> unreach = {}) {
    bmp::Message m;
    m.version = 3;
    m.type = bmp::MsgType::RouteMonitoring;
    m.peer = p;
    m.update.reach = std::move(reach);
    m.update.unreach = std::move(unreach);
    m.update.attrs = a;
    return m;
}

inline bmp::Message peer_message(bmp::MsgType type, const bmp::PeerHeader &p) {
    bmp::Message m;
    m.version = 3;
    m.type = type;
    m.peer = p;
    return m;
}

// The client's report of a command on the store ("0", "-p 4", ...).
inline std::string show(const std::string &db, std::vector<std::string> args,
                        std::vector<std::string> env = {}) {
    std::vector<std::string> argv{EVPN_CLIENT_BIN};
    argv.insert(argv.end(), args.begin(), args.end());
    env.push_back("EVPN_SYSDB=" + db);
    subprocess::Run r = subprocess::run(argv, env);
    EXPECT_EQ(r.status, 0) << r.err;
    return r.out;
}

// Lines of a report that start with text (the rows of a listing).
inline std::vector<std::string> rows(const std::string &report, const std::string &start) {
    std::vector<std::string> out;
    size_t at = 0;
    while (at < report.size()) {
        size_t end = report.find('\n', at);
        if (end == std::string::npos) end = report.size();
        std::string line = report.substr(at, end - at);
        if (line.rfind(start, 0) == 0) {
            while (!line.empty() && line.back() == ' ') line.pop_back();
            out.push_back(line);
        }
        at = end + 1;
    }
    return out;
}

// A live store in its own directory, logging into lines.
struct Store {
    TempDir dir;
    std::string db = dir.path + "/live.db";
    std::vector<std::string> log;
    std::unique_ptr<collector::LiveStore> store;
    uint32_t session = 0;

    explicit Store(collector::LiveStoreOptions opts = {}) {
        opts.db = db;
        opts.log = [this](uint32_t, std::string_view line) { log.emplace_back(line); };
        std::string err;
        store = collector::LiveStore::open(opts, err);
        EXPECT_TRUE(store) << err;
        if (store) session = store->session_open("192.0.2.100");
    }
    void apply(const bmp::Message &m, uint32_t in_session = 0) {
        std::string err;
        ASSERT_TRUE(store->apply(in_session ? in_session : session, m, err)) << err;
        ASSERT_TRUE(store->flush(err)) << err;
    }
};

// The same stream applied to a store that commits every change (small) and
// to one that commits them all at once (large).
struct EachAndAll {
    static collector::LiveStoreOptions most(uint32_t changes) {
        collector::LiveStoreOptions o;
        o.batch_max_changes = changes;
        return o;
    }
    Store small{most(1)}, large{most(1000000)};
    template <class Stream>
    explicit EachAndAll(Stream stream) {
        stream(small);
        stream(large);
    }
};

}  // namespace ctest
