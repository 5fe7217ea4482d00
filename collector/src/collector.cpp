#include "collector.h"

#include <arpa/inet.h>
#include <sqlite3.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <iterator>
#include <unordered_map>

#include "platform/sysdb.h"

namespace evpn::collector {

namespace {

using bmp::BmpErrc;
using bmp::BmpError;
using bmp::Message;
using bmp::MsgType;

constexpr size_t kReadChunk = size_t{1} << 16;
constexpr int kReadsPerWake = 16;     // a busy router yields to the others after this many reads
constexpr int kMinFlushGapMs = 5;     // input running dry commits at most this often
constexpr int kCommitShare = 4;       // a commit waits this many times the last one's duration
constexpr int kFaultLinesPerSession = 20;

int64_t now_ms() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t{ts.tv_sec} * 1000 + ts.tv_nsec / 1000000;
}

double now_seconds() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

// When to commit. A change waits at most flush_ms, sooner when the input
// runs dry. A commit also writes every derived record its batch changed (an
// EVI's counters, its RDs, ...), which takes long under a full-speed stream
// over many EVIs (75 ms measured for 10,000 EVIs): then the next one waits
// kCommitShare times as long as the last took, so that commits take at most
// a fifth of the time and the batches grow instead.
class CommitClock {
  public:
    explicit CommitClock(int flush_ms) : flush_ms_(flush_ms) {}
    // A change is waiting since now, unless an earlier one already is.
    void changed(int64_t now) {
        if (since_ < 0) since_ = now;
    }
    int64_t due() const { return since_ + std::max<int64_t>(flush_ms_, kCommitShare * last_ms_); }
    // The earliest time an idle input may commit.
    int64_t dry_due() const { return last_end_ + std::max<int64_t>(kMinFlushGapMs, kCommitShare * last_ms_); }
    void committed(int64_t start, int64_t end) {
        since_ = -1;
        last_ms_ = end - start;
        last_end_ = end;
    }

  private:
    int flush_ms_;
    int64_t since_ = -1, last_ms_ = 0, last_end_ = 0;
};

// ---- Log ---------------------------------------------------------------------

// One line per event: "[TIME ]WHO: TEXT". The journal stamps lines itself, so
// the time is left out when stderr goes there.
class Log {
  public:
    explicit Log(FILE *f) : f_(f), stamp_(getenv("JOURNAL_STREAM") == nullptr) {}

    __attribute__((format(printf, 3, 4))) void line(const std::string &who, const char *fmt, ...) {
        char text[1024];
        va_list ap;
        va_start(ap, fmt);
        vsnprintf(text, sizeof text, fmt, ap);
        va_end(ap);
        char stamp[40] = "";
        if (stamp_) {
            timespec ts;
            clock_gettime(CLOCK_REALTIME, &ts);
            tm t;
            gmtime_r(&ts.tv_sec, &t);
            size_t n = strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &t);
            snprintf(stamp + n, sizeof stamp - n, ".%03ldZ ", ts.tv_nsec / 1000000);
        }
        // One write per line, so that lines of a log shared with others stay whole.
        char whole[1600];
        int n = snprintf(whole, sizeof whole, "%s%s: %s\n", stamp, who.c_str(), text);
        size_t len = std::min(size_t(n), sizeof whole - 1);
        whole[len - 1] = '\n';
        if (fwrite(whole, 1, len, f_) != len || fflush(f_) != 0) failed_ = true;
    }
    bool failed() const { return failed_; }

  private:
    FILE *f_;
    bool stamp_;
    bool failed_ = false;
};

// Text a router sent, fit for a terminal: printable ASCII kept, every other
// byte (and the quote and backslash) as \xNN, cut at max bytes of input.
std::string printable(std::string_view s, size_t max = 200) {
    std::string out;
    for (size_t i = 0; i < s.size() && i < max; i++) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c >= 0x20 && c < 0x7f && c != '"' && c != '\\') {
            out += static_cast<char>(c);
        } else {
            char hex[5];
            snprintf(hex, sizeof hex, "\\x%02x", c);
            out += hex;
        }
    }
    if (s.size() > max) out += "...";
    return out;
}

// ---- Words for the log -----------------------------------------------------------

struct Word {
    unsigned code;
    const char *text;
};

// nullptr for a code the table lacks.
const char *find_word(const Word *table, size_t n, unsigned code) {
    for (size_t i = 0; i < n; i++)
        if (table[i].code == code) return table[i].text;
    return nullptr;
}

const char *word(const Word *table, size_t n, unsigned code) {
    const char *w = find_word(table, n, code);
    return w ? w : "unknown";
}

// RFC 7854 section 4.8 (and RFC 9069's Loc-RIB counters).
constexpr Word kStatNames[] = {
    {0, "rejected"},           {1, "duplicate-prefixes"}, {2, "duplicate-withdraws"},
    {3, "cluster-list-loops"}, {4, "as-path-loops"},      {5, "originator-id-loops"},
    {6, "confed-loops"},       {7, "adj-rib-in"},         {8, "loc-rib"},
    {9, "adj-rib-in-afi"},     {10, "loc-rib-afi"},       {11, "updates-withdrawn"},
    {12, "prefixes-withdrawn"}, {13, "duplicate-updates"},
};

// RFC 7854 section 4.9.
constexpr Word kPeerDownReasons[] = {
    {1, "local close with notification"},  {2, "local close"},
    {3, "remote close with notification"}, {4, "remote close without notification"},
    {5, "no longer monitored"},
};

// RFC 7854 section 4.5.
constexpr Word kTerminationReasons[] = {
    {0, "administratively closed"}, {1, "unspecified"},           {2, "out of resources"},
    {3, "redundant connection"},    {4, "permanently administratively closed"},
};

constexpr Word kFaultActions[] = {
    {unsigned(bmp::FaultAction::AttributeDiscard), "attribute discarded"},
    {unsigned(bmp::FaultAction::TreatAsWithdraw), "routes treated as withdrawn"},
    {unsigned(bmp::FaultAction::SessionReset), "session reset"},
};

#define WORD(table, code) word(table, sizeof table / sizeof table[0], unsigned(code))

// "192.0.2.1:179", "[2001:db8::1]:179"; an IPv4-mapped IPv6 address as IPv4.
std::string sockaddr_text(const sockaddr_storage &ss) {
    char ip[INET6_ADDRSTRLEN] = "?", text[INET6_ADDRSTRLEN + 10];
    if (ss.ss_family == AF_INET) {
        auto &a = reinterpret_cast<const sockaddr_in &>(ss);
        inet_ntop(AF_INET, &a.sin_addr, ip, sizeof ip);
        snprintf(text, sizeof text, "%s:%u", ip, ntohs(a.sin_port));
        return text;
    }
    auto &a = reinterpret_cast<const sockaddr_in6 &>(ss);
    if (IN6_IS_ADDR_V4MAPPED(&a.sin6_addr)) {
        inet_ntop(AF_INET, a.sin6_addr.s6_addr + 12, ip, sizeof ip);
        snprintf(text, sizeof text, "%s:%u", ip, ntohs(a.sin6_port));
    } else {
        inet_ntop(AF_INET6, &a.sin6_addr, ip, sizeof ip);
        snprintf(text, sizeof text, "[%s]:%u", ip, ntohs(a.sin6_port));
    }
    return text;
}

// The monitored peer a message is about: "peer 192.0.2.2 AS 65000" or "loc-rib".
std::string peer_text(const bmp::PeerHeader &p) {
    if (p.type == bmp::PeerType::LocRib) return "loc-rib";
    char ip[64];
    std::string s = std::string("peer ") + bmp::ip_text(p.address, ip, sizeof ip) + " AS " +
                    std::to_string(p.as);
    if (p.type != bmp::PeerType::Global) s += std::string(" (") + bmp::peer_type_name(p.type) + ")";
    return s;
}

// ---- Sessions ------------------------------------------------------------------

struct Session {
    int fd = -1;
    std::string router;   // the router's address, every log line's subject
    uint32_t id = 0;      // the store's session
    bmp::Framer framer;
    uint64_t messages = 0, bytes = 0;
    int fault_lines = 0;
};

enum class Step { Continue, End, StoreFailed };

// What both the daemon and the replay do with a session's bytes.
class Engine {
  public:
    Engine(LiveStore &store, Log &log, bool replay) : store_(store), log_(log), replay_(replay) {}

    // Takes every whole message out of the session's framer and applies it.
    // End: the session is over (Termination or a framing fault, logged).
    Step drain(Session &s) {
        for (;;) {
            std::span<const uint8_t> bytes;
            uint64_t at = s.framer.offset();
            BmpError e = s.framer.next(bytes);
            if (e.code == BmpErrc::Short) return Step::Continue;
            if (!e) e = bmp::parse_message(bytes, msg_);
            if (e) {
                terminated_ = false;
                log_.line(s.router, "%s at byte %llu: %s; session ended",
                          e.code == BmpErrc::BadType || e.code == BmpErrc::BadVersion
                              ? "message"
                              : bmp::msg_type_name(e.type),
                          static_cast<unsigned long long>(at + e.offset), bmp::bmp_strerror(e.code));
                return Step::End;
            }
            s.messages++;
            Step step = handle(s, at);
            if (step != Step::Continue) return step;
        }
    }

    // Whether the last End was the router's Termination rather than a fault.
    bool terminated() const { return terminated_; }
    // Whether messages were applied since the last flush. The store's own
    // pending() counts record writes only, not the derived records (segments,
    // counters) a route changes and the flush writes.
    bool unflushed() const { return touched_ || store_.pending(); }
    void flushed() { touched_ = false; }

  private:
    Step apply(Session &s) {
        touched_ = true;
        if (store_.apply(s.id, msg_, err_)) return Step::Continue;
        log_.line(s.router, "store: %s", err_.c_str());
        return Step::StoreFailed;
    }

    Step handle(Session &s, uint64_t at) {
        const Message &m = msg_;
        switch (m.type) {
            case MsgType::RouteMonitoring:
                for (const bmp::AttrFault &f : m.update.attr_faults) {
                    if (s.fault_lines > kFaultLinesPerSession) break;
                    if (s.fault_lines++ == kFaultLinesPerSession) {
                        log_.line(s.router, "more attribute faults: counted, not logged");
                        break;
                    }
                    log_.line(s.router, "Route Monitoring at byte %llu: %s, attribute %u (%s) at byte %llu: %s; %s",
                              static_cast<unsigned long long>(at), peer_text(m.peer).c_str(),
                              unsigned(f.attr_type), bmp::attr_name(f.attr_type),
                              static_cast<unsigned long long>(at + f.offset), f.reason,
                              WORD(kFaultActions, f.action));
                }
                return apply(s);
            case MsgType::Initiation:
                log_.line(s.router, "Initiation: sysName \"%s\", sysDescr \"%s\"",
                          printable(m.info.sys_name).c_str(), printable(m.info.sys_descr).c_str());
                return Step::Continue;
            case MsgType::PeerUp: {
                char local[64];
                std::string table = m.peer_up.table_name.empty()
                                        ? ""
                                        : ", table \"" + printable(m.peer_up.table_name) + "\"";
                log_.line(s.router, "Peer Up: %s, local %s%s", peer_text(m.peer).c_str(),
                          bmp::ip_text(m.peer_up.local_address, local, sizeof local), table.c_str());
                return apply(s);
            }
            case MsgType::PeerDown:
                log_.line(s.router, "Peer Down: %s, %s (%u); its routes removed", peer_text(m.peer).c_str(),
                          WORD(kPeerDownReasons, m.peer_down.reason), unsigned(m.peer_down.reason));
                return apply(s);
            case MsgType::StatisticsReport: {
                std::string counts;
                for (const bmp::StatEntry &e : m.stats) {
                    if (counts.size() > 600) {
                        counts += " ...";
                        break;
                    }
                    const char *name = find_word(kStatNames, std::size(kStatNames), e.type);
                    char one[64];
                    if (name)
                        snprintf(one, sizeof one, " %s=%llu", name, static_cast<unsigned long long>(e.value));
                    else
                        snprintf(one, sizeof one, " type-%u=%llu", unsigned(e.type),
                                 static_cast<unsigned long long>(e.value));
                    counts += one;
                }
                log_.line(s.router, "Statistics Report: %s:%s", peer_text(m.peer).c_str(),
                          counts.empty() ? " no counters" : counts.c_str());
                return apply(s);
            }
            case MsgType::Termination:
                log_.line(s.router, "Termination: %s (%u)%s%s%s",
                          m.info.has_reason ? WORD(kTerminationReasons, m.info.reason) : "no reason",
                          unsigned(m.info.reason), m.info.free_text.empty() ? "" : ", \"",
                          printable(m.info.free_text).c_str(), m.info.free_text.empty() ? "" : "\"");
                terminated_ = true;
                // A replay keeps what it applied, for the store to be looked at.
                if (replay_) return Step::End;
                if (apply(s) == Step::StoreFailed) return Step::StoreFailed;
                return Step::End;
            case MsgType::RouteMirroring:
                return Step::Continue;  // mirrored PDUs carry nothing for the store
        }
        return Step::Continue;
    }

    LiveStore &store_;
    Log &log_;
    bool replay_;
    bool terminated_ = false;
    bool touched_ = false;
    Message msg_;  // reused: its vectors keep their capacity
    std::string err_;
};

// routers names each store session's router for the store's own log lines.
std::unique_ptr<LiveStore> open_store(const CollectorOptions &opts, Log &log,
                                      const std::unordered_map<uint32_t, std::string> &routers) {
    LiveStoreOptions so = opts.store;
    so.log = [&log, &routers](uint32_t session, std::string_view line) {
        auto it = routers.find(session);
        log.line(it != routers.end() ? it->second : "store", "%.*s", static_cast<int>(line.size()),
                 line.data());
    };
    std::string err;
    std::unique_ptr<LiveStore> store = LiveStore::open(so, err);
    if (!store) log.line("evpn_sysdb collect", "%s: %s", opts.store.db.c_str(), err.c_str());
    return store;
}

// ---- The daemon ------------------------------------------------------------------

class Daemon {
  public:
    explicit Daemon(const CollectorOptions &opts) : opts_(opts), log_(opts.log) {}

    int run() {
        if (!start()) return 1;
        Engine engine(*store_, log_, false);
        engine_ = &engine;
        int status = loop();
        if (!stop()) status = 1;
        return status;
    }

  private:
    static constexpr const char *kSelf = "evpn_sysdb collect";

    bool start() {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGTERM);
        sigaddset(&set, SIGINT);
        signal(SIGPIPE, SIG_IGN);
        if (sigprocmask(SIG_BLOCK, &set, nullptr) != 0 ||
            (sig_fd_ = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC)) < 0 ||
            (ep_ = epoll_create1(EPOLL_CLOEXEC)) < 0) {
            log_.line(kSelf, "start: %s", strerror(errno));
            return false;
        }
        watch(sig_fd_);
        spare_fd_ = open("/dev/null", O_RDONLY | O_CLOEXEC);
        store_ = open_store(opts_, log_, routers_);
        if (!store_) return false;
        for (const ListenAddr &l : opts_.listen)
            if (!listen_on(l)) return false;
        if (listeners_.empty()) {
            log_.line(kSelf, "nothing to listen on");
            return false;
        }
        return true;
    }

    void watch(int fd) {
        epoll_event ev{};
        ev.events = EPOLLIN;
        ev.data.fd = fd;
        epoll_ctl(ep_, EPOLL_CTL_ADD, fd, &ev);
    }

    bool listen_on(const ListenAddr &l) {
        const sockaddr *sa = reinterpret_cast<const sockaddr *>(&l.addr);
        std::string where = sockaddr_text(l.addr);
        int fd = socket(sa->sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        int one = 1, zero = 0;
        if (fd >= 0) {
            setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
            // "[::]:PORT" takes IPv4 routers too.
            if (sa->sa_family == AF_INET6) setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &zero, sizeof zero);
        }
        if (fd < 0 || bind(fd, sa, l.len) != 0 || listen(fd, 16) != 0) {
            int e = errno;
            if (fd >= 0) close(fd);
            // Both loopbacks are the default; a host without IPv6 still has the other.
            if (opts_.listen.size() > 1 && sa->sa_family == AF_INET6 &&
                (e == EADDRNOTAVAIL || e == EAFNOSUPPORT)) {
                log_.line(kSelf, "not listening on %s: %s", where.c_str(), strerror(e));
                return true;
            }
            log_.line(kSelf, "cannot listen on %s: %s%s", where.c_str(), strerror(e),
                      e == EACCES ? " (ports below 1024 need privileges; use a higher one)" : "");
            return false;
        }
        sockaddr_storage bound{};
        socklen_t len = sizeof bound;
        getsockname(fd, reinterpret_cast<sockaddr *>(&bound), &len);
        log_.line(kSelf, "listening on %s", sockaddr_text(bound).c_str());
        listeners_.push_back(fd);
        watch(fd);
        return true;
    }

    int loop() {
        epoll_event evs[64];
        for (;;) {
            int timeout = -1;
            if (engine_->unflushed()) {
                int64_t now = now_ms();
                clock_.changed(now);
                if (now >= clock_.due()) {
                    if (!flush()) return 1;
                    continue;
                }
                // A zero wait asks whether the input has run dry.
                int64_t dry = clock_.dry_due();
                timeout = now >= dry ? 0 : int(std::min(clock_.due(), dry) - now);
            }
            int n = epoll_wait(ep_, evs, 64, timeout);
            if (n < 0) {
                if (errno == EINTR) continue;
                log_.line(kSelf, "epoll: %s", strerror(errno));
                return 1;
            }
            if (n == 0 && engine_->unflushed()) {
                if (!flush()) return 1;
                continue;
            }
            for (int i = 0; i < n; i++) {
                int fd = evs[i].data.fd;
                if (fd == sig_fd_) {
                    signalfd_siginfo si;
                    if (read(sig_fd_, &si, sizeof si) == ssize_t(sizeof si)) {
                        log_.line(kSelf, "%s: stopping", strsignal(int(si.ssi_signo)));
                        return 0;
                    }
                } else if (is_listener(fd)) {
                    accept_all(fd);
                } else if (auto it = sessions_.find(fd); it != sessions_.end()) {
                    if (!read_session(*it->second)) return 1;
                }
            }
        }
    }

    bool is_listener(int fd) const {
        for (int l : listeners_)
            if (l == fd) return true;
        return false;
    }

    bool flush() {
        std::string err;
        if (engine_) engine_->flushed();
        int64_t start = now_ms();
        bool ok = store_->flush(err);
        clock_.committed(start, now_ms());
        if (ok) return true;
        log_.line(kSelf, "store: %s", err.c_str());
        return false;
    }

    void accept_all(int lfd) {
        for (;;) {
            sockaddr_storage peer{};
            socklen_t len = sizeof peer;
            int fd = accept4(lfd, reinterpret_cast<sockaddr *>(&peer), &len, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (fd < 0) {
                if (errno == EINTR || errno == ECONNABORTED) continue;
                if (errno == EMFILE || errno == ENFILE) {
                    // Out of descriptors: take the connection on the spare one
                    // and close it, or the listener stays ready and the loop spins.
                    if (spare_fd_ >= 0) close(spare_fd_);
                    fd = accept(lfd, reinterpret_cast<sockaddr *>(&peer), &len);
                    if (fd >= 0) {
                        log_.line(sockaddr_text(peer), "refused: out of file descriptors");
                        close(fd);
                    }
                    spare_fd_ = open("/dev/null", O_RDONLY | O_CLOEXEC);
                    if (fd < 0 || spare_fd_ < 0) return;
                    continue;
                }
                if (errno != EAGAIN && errno != EWOULDBLOCK) log_.line(kSelf, "accept: %s", strerror(errno));
                return;
            }
            std::string router = sockaddr_text(peer);
            if (!allowed(opts_.allow, peer)) {
                log_.line(router, "refused: not in --allow");
                close(fd);
                continue;
            }
            if (sessions_.size() >= opts_.max_sessions) {
                log_.line(router, "refused: %zu sessions open, the most allowed", sessions_.size());
                close(fd);
                continue;
            }
            auto s = std::make_unique<Session>();
            s->fd = fd;
            s->router = router;
            s->id = store_->session_open(router);
            routers_[s->id] = router;
            log_.line(router, "connected (session %u)", s->id);
            watch(fd);
            sessions_[fd] = std::move(s);
        }
    }

    // false: the store failed and the daemon must stop.
    bool read_session(Session &s) {
        static uint8_t buf[kReadChunk];
        for (int r = 0; r < kReadsPerWake; r++) {
            ssize_t n = read(s.fd, buf, sizeof buf);
            if (n < 0) {
                if (errno == EINTR) continue;
                if (errno == EAGAIN || errno == EWOULDBLOCK) return true;
                log_.line(s.router, "read: %s", strerror(errno));
                return end_session(s);
            }
            if (n == 0) {
                if (s.framer.buffered())
                    log_.line(s.router, "connection closed inside a message at byte %llu",
                              static_cast<unsigned long long>(s.framer.offset()));
                return end_session(s);
            }
            s.bytes += uint64_t(n);
            s.framer.feed({buf, size_t(n)});
            Step step = engine_->drain(s);
            if (step == Step::StoreFailed) return false;
            if (step == Step::End) return end_session(s);
            if (s.framer.buffered() > opts_.max_session_buffer) {
                log_.line(s.router, "refused: %zu bytes buffered at byte %llu, over the limit of %zu",
                          s.framer.buffered(), static_cast<unsigned long long>(s.framer.offset()),
                          opts_.max_session_buffer);
                return end_session(s);
            }
            if (size_t(n) < sizeof buf) return true;  // drained for now
        }
        return true;
    }

    // Removes the session's routes and closes its connection.
    bool end_session(Session &s) {
        std::string err;
        bool ok = store_->session_close(s.id, err);
        epoll_ctl(ep_, EPOLL_CTL_DEL, s.fd, nullptr);
        if (close(s.fd) != 0) log_.line(s.router, "close: %s", strerror(errno));
        log_.line(s.router, "closed (session %u): %llu messages, %llu bytes; its routes removed", s.id,
                  static_cast<unsigned long long>(s.messages), static_cast<unsigned long long>(s.bytes));
        if (!ok) log_.line(s.router, "store: %s", err.c_str());
        routers_.erase(s.id);
        int fd = s.fd;
        sessions_.erase(fd);  // s is gone from here
        return ok;
    }

    // Every session ends as if its router had gone: the store keeps no
    // routes nobody is watching.
    bool stop() {
        bool ok = true;
        if (store_) {
            while (!sessions_.empty()) ok = end_session(*sessions_.begin()->second) && ok;
            ok = flush() && ok;
            store_.reset();
        }
        for (int fd : listeners_) close(fd);
        if (ep_ >= 0) close(ep_);
        if (sig_fd_ >= 0) close(sig_fd_);
        if (spare_fd_ >= 0) close(spare_fd_);
        log_.line(kSelf, ok ? "stopped" : "stopped with the store failing");
        return ok && !log_.failed();
    }

    const CollectorOptions &opts_;
    Log log_;
    std::unique_ptr<LiveStore> store_;
    Engine *engine_ = nullptr;
    CommitClock clock_{opts_.flush_ms};
    int ep_ = -1, sig_fd_ = -1;
    int spare_fd_ = -1;  // given up to refuse a router when descriptors run out
    std::vector<int> listeners_;
    std::unordered_map<int, std::unique_ptr<Session>> sessions_;
    std::unordered_map<uint32_t, std::string> routers_;  // store session to router, for its log lines
};

}  // namespace

// ---- Command line values -------------------------------------------------------------

namespace {

bool parse_port(const std::string &s, uint16_t &port) {
    if (s.empty() || s.size() > 5 || s.find_first_not_of("0123456789") != std::string::npos) return false;
    unsigned long v = strtoul(s.c_str(), nullptr, 10);
    if (v > 65535) return false;
    port = uint16_t(v);
    return true;
}

ListenAddr make_addr(int family, const void *ip, uint16_t port) {
    ListenAddr l;
    if (family == AF_INET) {
        auto &a = reinterpret_cast<sockaddr_in &>(l.addr);
        a.sin_family = AF_INET;
        a.sin_port = htons(port);
        memcpy(&a.sin_addr, ip, 4);
        l.len = sizeof a;
    } else {
        auto &a = reinterpret_cast<sockaddr_in6 &>(l.addr);
        a.sin6_family = AF_INET6;
        a.sin6_port = htons(port);
        memcpy(&a.sin6_addr, ip, 16);
        l.len = sizeof a;
    }
    return l;
}

}  // namespace

bool parse_listen(const std::string &text, std::vector<ListenAddr> &out, std::string &err) {
    std::string host, port_text = text;
    if (!text.empty() && text[0] == '[') {
        size_t close_at = text.find(']');
        if (close_at == std::string::npos || text.compare(close_at + 1, 1, ":") != 0) {
            err = "'" + text + "' is not [ADDRESS]:PORT";
            return false;
        }
        host = text.substr(1, close_at - 1);
        port_text = text.substr(close_at + 2);
    } else if (size_t colon = text.rfind(':'); colon != std::string::npos) {
        host = text.substr(0, colon);
        port_text = text.substr(colon + 1);
        if (host.find(':') != std::string::npos) {
            err = "'" + text + "': write an IPv6 address in brackets, [ADDRESS]:PORT";
            return false;
        }
    }
    uint16_t port = 0;
    if (!parse_port(port_text, port)) {
        err = "'" + port_text + "' is not a port (0 to 65535)";
        return false;
    }
    out.clear();
    uint8_t ip[16];
    if (host.empty()) {
        inet_pton(AF_INET, "127.0.0.1", ip);
        out.push_back(make_addr(AF_INET, ip, port));
        out.push_back(make_addr(AF_INET6, &in6addr_loopback, port));
    } else if (inet_pton(AF_INET, host.c_str(), ip) == 1) {
        out.push_back(make_addr(AF_INET, ip, port));
    } else if (inet_pton(AF_INET6, host.c_str(), ip) == 1) {
        out.push_back(make_addr(AF_INET6, ip, port));
    } else {
        err = "'" + host + "' is not an IPv4 or IPv6 address";
        return false;
    }
    return true;
}

bool parse_allow(const std::string &text, AllowRule &out, std::string &err) {
    std::string host = text;
    long len = -1;
    if (size_t slash = text.find('/'); slash != std::string::npos) {
        host = text.substr(0, slash);
        std::string l = text.substr(slash + 1);
        if (l.empty() || l.size() > 3 || l.find_first_not_of("0123456789") != std::string::npos) {
            err = "'" + text + "': the prefix length is not a number";
            return false;
        }
        len = strtol(l.c_str(), nullptr, 10);
    }
    out = AllowRule{};
    if (inet_pton(AF_INET, host.c_str(), out.addr) == 1) {
        out.family = AF_INET;
    } else if (inet_pton(AF_INET6, host.c_str(), out.addr) == 1) {
        out.family = AF_INET6;
    } else {
        err = "'" + host + "' is not an IPv4 or IPv6 address";
        return false;
    }
    long max = out.family == AF_INET ? 32 : 128;
    if (len > max) {
        err = "'" + text + "': the prefix length is over " + std::to_string(max);
        return false;
    }
    out.prefix_len = unsigned(len < 0 ? max : len);
    return true;
}

bool allowed(const std::vector<AllowRule> &rules, const sockaddr_storage &peer) {
    if (rules.empty()) return true;
    int family = peer.ss_family;
    const uint8_t *addr;
    if (family == AF_INET) {
        addr = reinterpret_cast<const uint8_t *>(&reinterpret_cast<const sockaddr_in &>(peer).sin_addr);
    } else {
        const in6_addr &a6 = reinterpret_cast<const sockaddr_in6 &>(peer).sin6_addr;
        addr = a6.s6_addr;
        if (IN6_IS_ADDR_V4MAPPED(&a6)) family = AF_INET, addr += 12;
    }
    for (const AllowRule &r : rules) {
        if (r.family != family) continue;
        unsigned whole = r.prefix_len / 8, rest = r.prefix_len % 8;
        if (memcmp(r.addr, addr, whole) != 0) continue;
        uint8_t mask = uint8_t(0xff00 >> rest);
        if (rest && ((r.addr[whole] ^ addr[whole]) & mask)) continue;
        return true;
    }
    return false;
}

int run_collector(const CollectorOptions &opts) {
    Daemon d(opts);
    return d.run();
}

namespace {

// A replay's bytes in pieces: a regular file mapped and handed out in place
// (no copy into a buffer), anything else (a pipe, standard input) read.
class ReplaySource {
  public:
    static constexpr size_t kPiece = size_t{1} << 20;

    explicit ReplaySource(int fd) : fd_(fd) {
        struct stat st;
        if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size <= 0) return;
        void *p = mmap(nullptr, size_t(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
        if (p == MAP_FAILED) return;
        map_ = static_cast<const uint8_t *>(p);
        size_ = size_t(st.st_size);
        madvise(p, size_, MADV_SEQUENTIAL);
    }
    ~ReplaySource() {
        if (map_) munmap(const_cast<uint8_t *>(map_), size_);
    }
    ReplaySource(const ReplaySource &) = delete;
    ReplaySource &operator=(const ReplaySource &) = delete;

    bool mapped() const { return map_ != nullptr; }
    const uint8_t *begin() const { return map_; }
    const uint8_t *end() const { return map_ + size_; }

    // The next piece (empty at the end); -1 with errno on a read error. The
    // piece stays valid until the next call.
    ssize_t next(std::span<const uint8_t> &piece) {
        if (!map_) {
            if (buf_.empty()) buf_.resize(size_t{1} << 20);
            ssize_t n;
            do n = read(fd_, buf_.data(), buf_.size());
            while (n < 0 && errno == EINTR);
            piece = {buf_.data(), n > 0 ? size_t(n) : 0};
            return n;
        }
        // The pieces handed out before are done with: their pages leave the
        // process (they stay in the page cache), so memory stays flat.
        const size_t page = size_t(sysconf(_SC_PAGESIZE)), done = at_ / page * page;
        if (done > released_) {
            madvise(const_cast<uint8_t *>(map_) + released_, done - released_, MADV_DONTNEED);
            released_ = done;
        }
        const size_t n = std::min(kPiece, size_ - at_);
        piece = {map_ + at_, n};
        at_ += n;
        return ssize_t(n);
    }

  private:
    int fd_;
    const uint8_t *map_ = nullptr;
    size_t size_ = 0, at_ = 0, released_ = 0;
    std::vector<uint8_t> buf_;
};

// A mapped file that shrinks under the replay faults on its missing pages:
// the replay ends with a line that says so instead of a crash. What was
// committed stays; the open transaction is rolled back at the next open.
// A fault elsewhere is left to the default action.
char g_shrank_line[512];
size_t g_shrank_len;
const uint8_t *g_map_begin, *g_map_end;
void on_sigbus(int sig, siginfo_t *info, void *) {
    const auto *at = static_cast<const uint8_t *>(info->si_addr);
    if (at < g_map_begin || at >= g_map_end) {
        signal(sig, SIG_DFL);
        raise(sig);
        return;
    }
    ssize_t ignored = write(2, g_shrank_line, g_shrank_len);
    (void)ignored;
    _exit(1);
}

}  // namespace

int replay_file(const CollectorOptions &opts) {
    Log log(opts.log);
    const std::string &path = opts.bmp_file;
    std::string self = "evpn_sysdb collect";
    int fd = path == "-" ? dup(0) : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat st;
    if (fd >= 0 && fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        close(fd);
        fd = -1;
        errno = EISDIR;
    }
    if (fd < 0) {
        log.line(self, "%s: %s", path.c_str(), strerror(errno));
        return 1;
    }
    std::unordered_map<uint32_t, std::string> routers;
    std::unique_ptr<LiveStore> store = open_store(opts, log, routers);
    if (!store) {
        close(fd);
        return 1;
    }
    double t0 = now_seconds();
    Engine engine(*store, log, true);
    Session s;
    s.router = path == "-" ? "standard input" : path;
    s.id = store->session_open(s.router);
    routers[s.id] = s.router;
    ReplaySource source(fd);
    if (source.mapped()) {
        const int len = snprintf(g_shrank_line, sizeof g_shrank_line,
                                 "%s: %s: the file shrank while it was replayed\n", self.c_str(), path.c_str());
        g_shrank_len = len < 0 ? 0 : std::min(size_t(len), sizeof g_shrank_line - 1);
        g_map_begin = source.begin();
        g_map_end = source.end();
        struct sigaction sa = {};
        sa.sa_sigaction = on_sigbus;
        sa.sa_flags = SA_SIGINFO;
        sigemptyset(&sa.sa_mask);
        sigaction(SIGBUS, &sa, nullptr);
    }
    int status = 0;
    CommitClock clock(opts.flush_ms);
    std::string err;
    for (;;) {
        std::span<const uint8_t> piece;
        ssize_t n = source.next(piece);
        if (n < 0) {
            log.line(s.router, "read: %s", strerror(errno));
            status = 1;
            break;
        }
        if (n == 0) {
            if (s.framer.buffered()) {
                log.line(s.router, "the file ends inside a message at byte %llu",
                         static_cast<unsigned long long>(s.framer.offset()));
                status = 1;
            }
            break;
        }
        s.bytes += uint64_t(n);
        s.framer.feed(piece);
        Step step = engine.drain(s);
        if (step != Step::Continue) {
            if (step == Step::StoreFailed || !engine.terminated()) status = 1;
            break;
        }
        // Readers of the store see a long replay progress.
        if (engine.unflushed()) clock.changed(now_ms());
        if (engine.unflushed() && now_ms() >= clock.due()) {
            engine.flushed();
            int64_t start = now_ms();
            bool ok = store->flush(err, false);
            clock.committed(start, now_ms());
            if (!ok) {
                log.line(self, "store: %s", err.c_str());
                status = 1;
                break;
            }
        }
    }
    close(fd);
    if (source.mapped()) signal(SIGBUS, SIG_DFL);  // the file's bytes are read no more
    if (!store->flush(err)) {
        log.line(self, "store: %s", err.c_str());
        status = 1;
    }
    double secs = now_seconds() - t0;
    const IngestCounters &c = store->counters();
    uint64_t routes = c.routes_announced + c.routes_withdrawn;
    printf("replayed %s: %llu messages, %llu routes (%llu announced, %llu withdrawn) in %.3f s, %.0f routes/s\n",
           s.router.c_str(), static_cast<unsigned long long>(s.messages), static_cast<unsigned long long>(routes),
           static_cast<unsigned long long>(c.routes_announced), static_cast<unsigned long long>(c.routes_withdrawn),
           secs, secs > 0 ? double(routes) / secs : 0.0);
    if (fflush(stdout) != 0 || ferror(stdout)) status = 1;
    store.reset();
    return status;
}

}  // namespace evpn::collector

// ---- evpn_sysdb collect ----------------------------------------------------------------

namespace evpn::collector {

namespace {

void collect_help(FILE *out) {
    fprintf(out,
            "usage: evpn_sysdb collect --bmp [ADDRESS:]PORT [--db FILE] [--allow ADDRESS[/LEN]]...\n"
            "                          [--evi-map FILE] [--max-sessions N]\n"
            "       evpn_sysdb collect --bmp-file FILE [--db FILE] [--evi-map FILE]\n"
            "\n"
            "Listens for routers' BMP sessions and keeps FILE current with the EVPN routes\n"
            "they monitor, until SIGTERM or SIGINT. A bare PORT listens on 127.0.0.1 and\n"
            "::1; write an IPv6 address as [ADDRESS]:PORT ([::]:PORT takes every address).\n"
            "--allow admits only routers in the given prefixes (repeat it for more); the\n"
            "others are logged and closed. --evi-map names a file of \"RT EVI\" lines for\n"
            "route targets whose EVI is not their local administrator. At most N routers\n"
            "(default 64) at once. When a router's session ends, its routes are removed.\n"
            "--bmp-file applies a captured BMP stream (\"-\": standard input) as one\n"
            "session, keeps its routes, prints a summary and exits.\n"
            "\n"
            "Log: one line per session event on standard error, with the router's address.\n"
            "FILE: $EVPN_SYSDB; else as for the other commands (see evpn_sysdb --help).\n"
            "Exit status: 0 stopped by a signal or replayed, 1 failed, 2 bad command line.\n");
}

int collect_usage(const std::string &what) {
    fprintf(stderr, "evpn_sysdb: collect: %s\nTry 'evpn_sysdb collect --help'.\n", what.c_str());
    return 2;
}

}  // namespace

// The collector's work is bulk: its threads (all made after this call) take
// the batch policy, under which a show command started while they fill both
// cores gets one at once instead of after a scheduler slice (a one-EVI
// listing ran 2-3x its idle time beside a flood at nice 10 alone). Their
// share of the processor stays their nice value's. A policy someone else set
// (idle, real time) is kept; a refusal changes nothing.
static void take_batch_policy() {
    if (sched_getscheduler(0) != SCHED_OTHER) return;
    const sched_param none{};
    sched_setscheduler(0, SCHED_BATCH, &none);
}

int collect_main(int argc, char **argv) {
    // No memory statistics: SQLite would count every allocation under a
    // lock, for heap limits that only the readers set.
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    CollectorOptions o;
    std::string bmp, err;
    for (int i = 2; i < argc; i++) {
        std::string s = argv[i];
        if (s == "--help" || s == "-h") {
            collect_help(stdout);
            return fflush(stdout) == 0 && !ferror(stdout) ? 0 : 1;
        }
        if (s != "--bmp" && s != "--db" && s != "--allow" && s != "--evi-map" && s != "--bmp-file" &&
            s != "--max-sessions")
            return collect_usage(s.rfind("-", 0) == 0 ? "unknown option '" + s + "'"
                                                      : "unexpected argument '" + s + "'");
        if (i + 1 >= argc) return collect_usage(s + " wants a value");
        std::string v = argv[++i];
        if (s == "--bmp") {
            if (!parse_listen(v, o.listen, err)) return collect_usage("--bmp: " + err);
            bmp = v;
        } else if (s == "--db") {
            o.store.db = v;
        } else if (s == "--allow") {
            AllowRule r;
            if (!parse_allow(v, r, err)) return collect_usage("--allow: " + err);
            o.allow.push_back(r);
        } else if (s == "--evi-map") {
            o.store.evi_map = v;
        } else if (s == "--bmp-file") {
            o.bmp_file = v;
        } else {
            char *end = nullptr;
            unsigned long n = strtoul(v.c_str(), &end, 10);
            if (v.empty() || *end || v[0] == '-' || n == 0 || n > 4096)
                return collect_usage("--max-sessions wants 1 to 4096, got '" + v + "'");
            o.max_sessions = n;
        }
    }
    if (bmp.empty() == o.bmp_file.empty())
        return collect_usage(bmp.empty() ? "where from? give --bmp [ADDRESS:]PORT or --bmp-file FILE"
                                         : "--bmp and --bmp-file do not go together");
    if (!o.bmp_file.empty() && !o.allow.empty()) return collect_usage("--allow is for --bmp");
    if (o.store.db.empty()) o.store.db = sysdb_library_path();
    take_batch_policy();
    return o.bmp_file.empty() ? run_collector(o) : replay_file(o);
}

}  // namespace evpn::collector
