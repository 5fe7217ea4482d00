#include "live_store.h"

#include <arpa/inet.h>

#include <cstring>
#include <unordered_set>
#include <vector>

#include "evi_map.h"
#include "platform/sysdb_paths.h"
#include "route_mapper.h"
#include "sysdb_writer.h"

namespace evpn::collector {

namespace {

// The listings the collector keeps: emptied when it opens a store, since
// what an earlier run wrote is stale until the routers send it again.
constexpr const char *kOwnListings[] = {
    EVPN_PATH_MAC, EVPN_PATH_IMCAST, EVPN_PATH_EAD,      EVPN_PATH_ES,       EVPN_PATH_EVI,
    EVPN_PATH_EVI_DETAIL, EVPN_PATH_EVI_RT, EVPN_PATH_RD, EVPN_PATH_NEIGHBOR, EVPN_PATH_TEP,
    EVPN_PATH_SUMMARY,
};

const char *fault_action_word(bmp::FaultAction a) {
    switch (a) {
    case bmp::FaultAction::AttributeDiscard: return "attribute discarded";
    case bmp::FaultAction::TreatAsWithdraw: return "routes treated as withdrawn";
    default: return "session reset";
    }
}

// "192.0.2.1", "2001:db8::1"; "-" for none.
std::string address_text(const bmp::IpAddr &a) {
    char buf[INET6_ADDRSTRLEN] = "-";
    if (a.len == 4) inet_ntop(AF_INET, a.b.data(), buf, sizeof buf);
    else if (a.len == 16) inet_ntop(AF_INET6, a.b.data(), buf, sizeof buf);
    return buf;
}

std::string rt_text(uint64_t rt) {
    const uint8_t type = static_cast<uint8_t>(rt >> 56) & 0x3f;
    char buf[32];
    if (type == 0)
        snprintf(buf, sizeof buf, "%u:%u", static_cast<unsigned>(rt >> 32 & 0xffff),
                 static_cast<unsigned>(rt & 0xffffffff));
    else if (type == 1)
        snprintf(buf, sizeof buf, "%u.%u.%u.%u:%u", static_cast<unsigned>(rt >> 40 & 0xff),
                 static_cast<unsigned>(rt >> 32 & 0xff), static_cast<unsigned>(rt >> 24 & 0xff),
                 static_cast<unsigned>(rt >> 16 & 0xff), static_cast<unsigned>(rt & 0xffff));
    else
        snprintf(buf, sizeof buf, "%u:%u", static_cast<unsigned>(rt >> 16 & 0xffffffff),
                 static_cast<unsigned>(rt & 0xffff));
    return buf;
}

// A monitored peer of one session.
struct Advertiser {
    uint32_t session = 0;
    bmp::PeerType type = bmp::PeerType::Global;
    bmp::Rd distinguisher{};
    bmp::IpAddr address;
    uint32_t bgp_id = 0;
    bool live = false;
};

struct Session {
    std::string router;
    bool open = false;
};

}  // namespace

struct LiveStore::Impl : RecordSink {
    LiveStoreOptions opts;
    EviMap evi_map;
    std::unique_ptr<SysdbWriter> writer;
    std::unique_ptr<RouteMapper> mapper;
    IngestCounters counters;
    std::vector<Session> sessions;       // by session number - 1
    std::vector<Advertiser> advertisers;  // by advertiser number - 1
    std::vector<uint32_t> free_advertisers;
    uint32_t changes = 0;  // record changes since the last commit
    std::unordered_set<uint64_t> unmapped_logged;

    Impl() = default;

    // The mapper's records never change what an item's index rows hold: a
    // derived record (not known to be stored or not) keeps the key fields of
    // what it replaces, since the listings were emptied when the store opened.
    static SysdbWriter::Known known(Stored stored) {
        return stored == Stored::No    ? SysdbWriter::Known::Absent
               : stored == Stored::Yes ? SysdbWriter::Known::SameKeys
                                       : SysdbWriter::Known::SameRows;
    }
    bool upsert(std::string_view base, const void *record, Stored stored, std::string &err) override {
        changes++;
        return writer->upsert(opts.root, base, record, err, known(stored));
    }
    bool remove(std::string_view base, const void *record, Stored stored, std::string &err) override {
        changes++;
        if (stored == Stored::No) return true;  // nothing to remove
        return writer->remove(opts.root, base, record, err, known(stored));
    }

    void log(uint32_t session, const std::string &line) {
        if (opts.log) opts.log(session, line);
    }

    bool begin(std::string &err) { return writer->begin(err); }

    // Derived records, then the commit: what a reader sees next.
    bool commit(std::string &err, bool wait = true) {
        if (!begin(err) || !mapper->flush(*this, err) || !writer->commit(err, wait)) return false;
        counters.commits++;
        changes = 0;
        return true;
    }

    uint32_t advertiser(uint32_t session, const bmp::PeerHeader &h) {
        for (size_t i = 0; i < advertisers.size(); i++) {
            const Advertiser &a = advertisers[i];
            if (a.live && a.session == session && a.type == h.type &&
                a.distinguisher == h.distinguisher && a.address == h.address && a.bgp_id == h.bgp_id)
                return static_cast<uint32_t>(i + 1);
        }
        uint32_t n;
        if (!free_advertisers.empty()) {
            n = free_advertisers.back();
            free_advertisers.pop_back();
        } else {
            advertisers.emplace_back();
            n = static_cast<uint32_t>(advertisers.size());
        }
        advertisers[n - 1] = {session, h.type, h.distinguisher, h.address, h.bgp_id, true};
        return n;
    }

    bool drop(std::span<const uint32_t> advs, std::string &err) {
        if (!mapper->drop_advertisers(advs, *this, err)) return false;
        for (uint32_t adv : advs) {
            advertisers[adv - 1].live = false;
            free_advertisers.push_back(adv);
        }
        return true;
    }

    std::string peer_text(const bmp::PeerHeader &h) {
        return std::string("peer ") +
               (h.type == bmp::PeerType::LocRib ? "loc-rib" : address_text(h.address)) + " AS " +
               std::to_string(h.as);
    }

    bool route_monitoring(uint32_t session, const bmp::Message &msg, std::string &err) {
        const bmp::Update &u = msg.update;
        const uint32_t adv = advertiser(session, msg.peer);
        if (msg.peer.type == bmp::PeerType::LocRib) mapper->set_router(msg.peer.bgp_id, msg.peer.as);
        counters.routes_withdrawn += u.unreach.size();
        for (const bmp::AttrFault &f : u.attr_faults) {
            if (f.action == bmp::FaultAction::AttributeDiscard) counters.attributes_discarded++;
            log(session, peer_text(msg.peer) + ": path attribute " + std::to_string(f.attr_type) +
                             " at byte " + std::to_string(f.offset) + ": " + f.reason + "; " +
                             fault_action_word(f.action));
        }
        if (!mapper->withdraw(adv, u.unreach, *this, err)) return false;
        if (u.treat_as_withdraw) {
            counters.treat_as_withdraw++;
            counters.routes_withdrawn += u.reach.size();
            return mapper->withdraw(adv, u.reach, *this, err);
        }
        counters.routes_announced += u.reach.size();
        for (const bmp::EvpnNlri &n : u.reach) counters.routes_by_type[n.route_type <= 5 ? n.route_type : 0]++;
        counters.routes_by_type[0] += u.unknown_route_types;
        uint32_t unmapped = 0;
        if (!mapper->announce(adv, u.reach, u.attrs, *this, unmapped, err)) return false;
        if (unmapped) {
            counters.routes_unmapped += unmapped;
            // Once per first route target (or for none at all).
            const uint64_t first = u.attrs.route_targets.empty() ? ~uint64_t(0) : u.attrs.route_targets[0];
            if (unmapped_logged.size() < 4096 && unmapped_logged.insert(first).second) {
                std::string rts;
                for (uint64_t rt : u.attrs.route_targets) rts += (rts.empty() ? "" : ", ") + rt_text(rt);
                log(session, peer_text(msg.peer) + ": " + std::to_string(unmapped) +
                                 " route(s) with no EVI (route targets: " +
                                 (rts.empty() ? std::string("none") : rts) +
                                 "); not stored; map them with --evi-map");
            }
        }
        return true;
    }
};

LiveStore::LiveStore(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

LiveStore::~LiveStore() {
    if (!impl_ || !impl_->writer) return;
    std::string err;
    if (pending()) impl_->commit(err);
    impl_->writer->close(err);
}

std::unique_ptr<LiveStore> LiveStore::open(const LiveStoreOptions &opts, std::string &err) {
    auto impl = std::make_unique<Impl>();
    impl->opts = opts;
    if (!opts.evi_map.empty() && !impl->evi_map.load(opts.evi_map, err)) return nullptr;
    impl->writer = SysdbWriter::open_live(opts.db, err);
    if (!impl->writer) return nullptr;
    impl->mapper = std::make_unique<RouteMapper>(impl->evi_map);
    if (!impl->writer->begin(err)) return nullptr;
    for (const char *base : kOwnListings)
        if (!impl->writer->clear(impl->opts.root, base, err)) return nullptr;
    if (!impl->commit(err)) return nullptr;
    return std::unique_ptr<LiveStore>(new LiveStore(std::move(impl)));
}

uint32_t LiveStore::session_open(std::string_view router) {
    impl_->sessions.push_back({std::string(router), true});
    return static_cast<uint32_t>(impl_->sessions.size());
}

bool LiveStore::apply(uint32_t session, const bmp::Message &msg, std::string &err) {
    Impl &m = *impl_;
    if (session == 0 || session > m.sessions.size() || !m.sessions[session - 1].open) {
        err = "no such session";
        return false;
    }
    m.counters.messages++;
    if (!m.begin(err)) return false;
    switch (msg.type) {
    case bmp::MsgType::RouteMonitoring:
        if (!m.route_monitoring(session, msg, err)) return false;
        break;
    case bmp::MsgType::PeerUp:
        m.advertiser(session, msg.peer);
        // A Loc-RIB peer is the monitored router itself.
        if (msg.peer.type == bmp::PeerType::LocRib) m.mapper->set_router(msg.peer.bgp_id, msg.peer.as);
        break;
    case bmp::MsgType::PeerDown: {
        const uint32_t adv = m.advertiser(session, msg.peer);
        if (!m.drop({&adv, 1}, err)) return false;
        break;
    }
    case bmp::MsgType::StatisticsReport:
        m.counters.statistics_reports++;
        break;
    default:
        break;
    }
    // A whole message is applied: a commit here shows readers all of it.
    // The commit is queued behind the worker's last rows: the next messages
    // are mapped while it is stored.
    if (m.changes >= m.opts.batch_max_changes) return m.commit(err, false);
    return true;
}

bool LiveStore::session_close(uint32_t session, std::string &err) {
    Impl &m = *impl_;
    if (session == 0 || session > m.sessions.size() || !m.sessions[session - 1].open) {
        err = "no such session";
        return false;
    }
    if (!m.begin(err)) return false;
    std::vector<uint32_t> advs;
    for (size_t i = 0; i < m.advertisers.size(); i++)
        if (m.advertisers[i].live && m.advertisers[i].session == session)
            advs.push_back(static_cast<uint32_t>(i + 1));
    if (!m.drop(advs, err)) return false;
    m.sessions[session - 1].open = false;
    m.sessions[session - 1].router.clear();
    m.sessions[session - 1].router.shrink_to_fit();
    return m.commit(err);
}

bool LiveStore::flush(std::string &err, bool wait) { return impl_->commit(err, wait); }

bool LiveStore::pending() const { return impl_->changes != 0 || impl_->mapper->dirty(); }

const IngestCounters &LiveStore::counters() const { return impl_->counters; }

}  // namespace evpn::collector
