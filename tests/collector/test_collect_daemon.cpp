// evpn_sysdb collect as a program: replayed and live BMP streams made with the
// encoder, its refusals, its log, its exit, and the show client reading the
// store while it is written.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <thread>

#include "collector.h"
#include "evpn_bmp/bmp_encode.h"
#include "evpn_bmp/bmp_gen.h"
#include "subprocess.h"

namespace {

namespace bmp = evpn::bmp;
using namespace std::chrono_literals;

std::string slurp(const std::string &path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

class TempDir {
  public:
    TempDir() {
        char tmpl[] = "/tmp/collect_test.XXXXXX";
        path_ = mkdtemp(tmpl);
    }
    ~TempDir() { subprocess::run({"/bin/rm", "-rf", path_}); }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

// ---- Streams -------------------------------------------------------------------

bmp::PeerHeader peer(uint8_t last_octet) {
    bmp::PeerHeader p;
    p.address.len = 4;
    p.address.b = {192, 0, 2, last_octet};
    p.as = 65000;
    p.bgp_id = 0xc0000200u | last_octet;
    return p;
}

// A MAC route of EVI 100 (route target 65000:100) from 192.0.2.<pe>.
void mac_route(bmp::Encoder &e, uint8_t pe, uint8_t mac_last, bool withdraw = false) {
    bmp::EvpnNlri n;
    n.route_type = 2;
    n.rd = {0, 1, 192, 0, 2, pe, 0, 100};
    n.mac = {0x02, 0x00, 0x5e, 0x10, pe, mac_last};
    n.label_count = 1;
    n.label[0] = 10100;
    bmp::RouteAttrs a;
    a.has_origin = true;
    a.next_hop.len = 4;
    a.next_hop.b = {192, 0, 2, pe};
    a.route_targets = {0x0002fde800000064ull};  // 65000:100
    a.has_encap = true;
    a.encap = 8;
    if (withdraw)
        e.route_monitoring(peer(pe), {}, a, {&n, 1});
    else
        e.route_monitoring(peer(pe), {&n, 1}, a, {});
}

std::vector<uint8_t> router_start(uint8_t pe, std::string_view sys_name = "pe") {
    bmp::Encoder e;
    e.initiation(sys_name, "test router");
    bmp::PeerUp up;
    up.local_address.len = 4;
    up.local_address.b = {192, 0, 2, 250};
    up.sent_open_as = up.received_open_as = 65000;
    e.peer_up(peer(pe), up);
    return std::move(e.bytes());
}

std::string mac_text(uint8_t pe, uint8_t mac_last) {
    char s[32];
    snprintf(s, sizeof s, "0200.5e10.%02x%02x", pe, mac_last);
    return s;
}

// A router's session start, then MAC routes mac_first..mac_last of its EVI.
std::vector<uint8_t> router_with_macs(uint8_t pe, uint8_t mac_first, uint8_t mac_last) {
    std::vector<uint8_t> s = router_start(pe);
    bmp::Encoder e;
    for (int m = mac_first; m <= mac_last; m++) mac_route(e, pe, static_cast<uint8_t>(m));
    s.insert(s.end(), e.bytes().begin(), e.bytes().end());
    return s;
}

// ---- The program ----------------------------------------------------------------

// The show client's report from a store.
subprocess::Run show(const std::string &db, std::vector<std::string> args) {
    args.insert(args.begin(), EVPN_CLIENT_BIN);
    return subprocess::run(args, {"EVPN_SYSDB=" + db});
}

// A running collector, its log in a file, stopped by its PID.
class Collector {
  public:
    // prefix runs the collector (prlimit ...).
    Collector(const TempDir &dir, std::vector<std::string> extra = {}, std::vector<std::string> prefix = {})
        : log_(dir / "collector.log"), db_(dir / "live.db") {
        std::vector<std::string> args = prefix;
        args.insert(args.end(), {EVPN_SYSDB_BIN, "collect", "--bmp", "127.0.0.1:0", "--db", db_});
        args.insert(args.end(), extra.begin(), extra.end());
        subprocess::Argv a(args, {});
        posix_spawn_file_actions_t fa;
        posix_spawn_file_actions_init(&fa);
        posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&fa, 2, log_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (posix_spawn(&pid_, a.argv[0], &fa, nullptr, a.argv.data(), a.envp.data()) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&fa);
        std::string port;
        if (wait_log("listening on 127\\.0\\.0\\.1:([0-9]+)", &port)) port_ = std::stoi(port);
    }
    ~Collector() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            subprocess::wait_for(pid_);
        }
    }
    int port() const { return port_; }
    pid_t pid() const { return pid_; }
    const std::string &db() const { return db_; }
    std::string log() const { return slurp(log_); }

    // Whether the log gets a line matching re within the time; group gets its first group.
    bool wait_log(const std::string &re, std::string *group = nullptr, std::chrono::milliseconds within = 5s) const {
        std::regex r(re);
        auto end = std::chrono::steady_clock::now() + within;
        do {
            std::string text = log();
            std::istringstream lines(text);
            for (std::string line; std::getline(lines, line);) {
                std::smatch found;
                if (std::regex_search(line, found, r)) {
                    if (group) *group = found[1];
                    return true;
                }
            }
            std::this_thread::sleep_for(20ms);
        } while (std::chrono::steady_clock::now() < end);
        return false;
    }

    // Whether command's report comes to contain (or lose) text within the time.
    bool wait_show(const std::string &command, const std::string &text, bool present = true,
                   std::chrono::milliseconds within = 2s) const {
        auto end = std::chrono::steady_clock::now() + within;
        do {
            if ((show(db_, {command}).out.find(text) != std::string::npos) == present) return true;
            std::this_thread::sleep_for(20ms);
        } while (std::chrono::steady_clock::now() < end);
        return false;
    }

    // CPU seconds the collector has used.
    double cpu_seconds() const {
        std::ifstream f("/proc/" + std::to_string(pid_) + "/stat");
        std::string field;
        for (int i = 1; i <= 15 && f >> field; i++)
            if (i == 14) cpu_ticks_ = std::stod(field);
            else if (i == 15) cpu_ticks_ += std::stod(field);
        return cpu_ticks_ / double(sysconf(_SC_CLK_TCK));
    }

    int terminate() {
        kill(pid_, SIGTERM);
        int status = subprocess::wait_for(pid_);
        pid_ = -1;
        return status;
    }

  private:
    pid_t pid_ = -1;
    int port_ = 0;
    mutable double cpu_ticks_ = 0;
    std::string log_, db_;
};

// A router's connection from a loopback source address.
class Router {
  public:
    Router(int port, const char *source = "127.0.0.1") {
        fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        inet_pton(AF_INET, source, &a.sin_addr);
        bind(fd_, reinterpret_cast<sockaddr *>(&a), sizeof a);
        socklen_t len = sizeof a;
        getsockname(fd_, reinterpret_cast<sockaddr *>(&a), &len);
        local_port_ = ntohs(a.sin_port);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(uint16_t(port));
        inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
        connected_ = connect(fd_, reinterpret_cast<sockaddr *>(&to), sizeof to) == 0;
    }
    ~Router() { close(fd_); }
    bool connected() const { return connected_; }
    // "127.0.0.1:PORT", as the collector names this router.
    std::string name(const char *source = "127.0.0.1") const { return std::string(source) + ":" + std::to_string(local_port_); }

    bool send(const std::vector<uint8_t> &bytes) {
        size_t done = 0;
        while (done < bytes.size()) {
            ssize_t n = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (n <= 0) return false;
            done += size_t(n);
        }
        return true;
    }
    // Whether the collector closes the connection within the time.
    bool closed_by_peer(std::chrono::milliseconds within = 2s) {
        timeval tv{0, int(std::chrono::microseconds(within).count())};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
        char c;
        return recv(fd_, &c, 1, 0) == 0;
    }

  private:
    int fd_ = -1;
    uint16_t local_port_ = 0;
    bool connected_ = false;
};

// ---- Command-line values ----------------------------------------------------------

TEST(CollectAddresses, AllowRulesMatchByPrefixAndTakeMappedIpv4AsIpv4) {
    using evpn::collector::AllowRule;
    auto v4 = [](const char *ip) {
        sockaddr_storage ss{};
        auto &a = reinterpret_cast<sockaddr_in &>(ss);
        a.sin_family = AF_INET;
        inet_pton(AF_INET, ip, &a.sin_addr);
        return ss;
    };
    auto v6 = [](const char *ip) {
        sockaddr_storage ss{};
        auto &a = reinterpret_cast<sockaddr_in6 &>(ss);
        a.sin6_family = AF_INET6;
        inet_pton(AF_INET6, ip, &a.sin6_addr);
        return ss;
    };
    auto rules = [](std::initializer_list<const char *> texts) {
        std::vector<AllowRule> out;
        std::string err;
        for (const char *t : texts) {
            AllowRule r;
            EXPECT_TRUE(evpn::collector::parse_allow(t, r, err)) << t << ": " << err;
            out.push_back(r);
        }
        return out;
    };
    const struct {
        std::vector<AllowRule> rules;
        sockaddr_storage peer;
        bool admitted;
    } cases[] = {
        {{}, v4("203.0.113.9"), true},
        {rules({"10.0.0.0/9"}), v4("10.127.255.255"), true},
        {rules({"10.0.0.0/9"}), v4("10.128.0.0"), false},
        {rules({"192.0.2.1"}), v4("192.0.2.1"), true},
        {rules({"192.0.2.1"}), v4("192.0.2.2"), false},
        {rules({"0.0.0.0/0"}), v4("198.51.100.1"), true},
        {rules({"192.0.2.0/24"}), v6("::ffff:192.0.2.77"), true},
        {rules({"192.0.2.0/24"}), v6("2001:db8::1"), false},
        {rules({"2001:db8::/33"}), v6("2001:db8:7fff::1"), true},
        {rules({"2001:db8::/33"}), v6("2001:db8:8000::1"), false},
        {rules({"::1", "127.0.0.0/8"}), v6("::1"), true},
    };
    for (size_t i = 0; i < std::size(cases); i++)
        EXPECT_EQ(evpn::collector::allowed(cases[i].rules, cases[i].peer), cases[i].admitted) << "case " << i;
}

TEST(CollectAddresses, BadListenAndAllowTextsAreRefusedOnTheCommandLine) {
    const char *bad[][2] = {
        {"--bmp", "70000"},          {"--bmp", "::1:11019"},      {"--bmp", "[::1]11019"},
        {"--bmp", "host.example:1"}, {"--allow", "192.0.2.0/33"}, {"--allow", "2001:db8::/129"},
        {"--allow", "192.0.2.0/"},   {"--max-sessions", "0"},
    };
    for (auto &b : bad) {
        std::vector<std::string> args = {EVPN_SYSDB_BIN, "collect", "--db", "/nonexistent/x.db", b[0], b[1]};
        if (std::string(b[0]) != "--bmp") args.insert(args.end(), {"--bmp", "1"});
        subprocess::Run r = subprocess::run(args);
        EXPECT_EQ(r.status, 2) << b[0] << " " << b[1] << ": " << r.err;
        EXPECT_NE(r.err.find("Try 'evpn_sysdb collect --help'"), std::string::npos) << r.err;
    }
}

// ---- Replay ------------------------------------------------------------------------

TEST(CollectReplay, AGeneratedStreamFillsTheStoreAndPrintsItsSummary) {
    TempDir dir;
    std::string stream = dir / "gen.bmp";
    {
        std::ofstream f(stream, std::ios::binary);
        bmp::GenBmpOptions o;
        o.routes = 300;
        o.evis = 10;
        ASSERT_TRUE(bmp::gen_bmp_stream(o, [&](std::span<const uint8_t> b) {
            f.write(reinterpret_cast<const char *>(b.data()), std::streamsize(b.size()));
            return bool(f);
        }));
    }
    subprocess::Run r =
        subprocess::run({EVPN_SYSDB_BIN, "collect", "--bmp-file", stream, "--db", dir / "replay.db"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(std::regex_search(r.out, std::regex("^replayed .*: [0-9]+ messages, 1500 routes \\(1500 announced, "
                                                    "0 withdrawn\\) in [0-9.]+ s, [0-9]+ routes/s\n$")))
        << r.out;
    subprocess::Run macs = show(dir / "replay.db", {"0"});
    ASSERT_EQ(macs.status, 0) << macs.err;
    size_t rows = 0;
    for (size_t at = 0; (at = macs.out.find('\n', at)) != std::string::npos; at++)
        rows += std::regex_search(macs.out.substr(at + 1, 60), std::regex("^[0-9]+ +\\S+ +[0-9a-f]{4}\\.[0-9a-f]{4}\\.[0-9a-f]{4} "));
    EXPECT_EQ(rows, 300u) << macs.out.substr(0, 2000);
}

TEST(CollectReplay, AStreamCutInsideAMessageFailsAndKeepsTheRoutesBeforeIt) {
    TempDir dir;
    std::vector<uint8_t> bytes = router_start(1);
    bmp::Encoder e;
    mac_route(e, 1, 1);
    mac_route(e, 1, 2);
    size_t whole = bytes.size() + e.bytes().size();
    bytes.insert(bytes.end(), e.bytes().begin(), e.bytes().end() - 7);  // the second route cut short
    std::string stream = dir / "cut.bmp";
    std::ofstream(stream, std::ios::binary).write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
    subprocess::Run r = subprocess::run({EVPN_SYSDB_BIN, "collect", "--bmp-file", stream, "--db", dir / "r.db"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("ends inside a message at byte"), std::string::npos) << r.err;
    EXPECT_LT(bytes.size(), whole);
    std::string macs = show(dir / "r.db", {"0"}).out;
    EXPECT_NE(macs.find(mac_text(1, 1)), std::string::npos) << macs;
    EXPECT_EQ(macs.find(mac_text(1, 2)), std::string::npos) << macs;
}

// A replayed file is mapped, not read: one that shrinks under the replay
// ends it with a line that says so and status 1, never a crash by SIGBUS.
TEST(CollectReplay, AFileThatShrinksUnderTheReplayEndsItWithALine) {
    TempDir dir;
    const std::string stream = dir / "big.bmp", log = dir / "replay.log";
    {
        std::ofstream f(stream, std::ios::binary);
        bmp::GenBmpOptions o;
        o.routes = 100000;  // half a million routes: seconds of replay
        o.evis = 100;
        ASSERT_TRUE(bmp::gen_bmp_stream(o, [&](std::span<const uint8_t> b) {
            f.write(reinterpret_cast<const char *>(b.data()), std::streamsize(b.size()));
            return bool(f);
        }));
    }
    subprocess::Argv a({EVPN_SYSDB_BIN, "collect", "--bmp-file", stream, "--db", dir / "r.db"}, {});
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&fa, 2, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid;
    ASSERT_EQ(posix_spawn(&pid, a.argv[0], &fa, nullptr, a.argv.data(), a.envp.data()), 0);
    posix_spawn_file_actions_destroy(&fa);
    // Its first messages are applied: the file is mapped.
    for (int i = 0; i < 500 && slurp(log).find("Peer Up") == std::string::npos; i++)
        std::this_thread::sleep_for(10ms);
    ASSERT_EQ(truncate(stream.c_str(), 4096), 0);
    EXPECT_EQ(subprocess::wait_for(pid), 1);  // 128 + 7: killed by SIGBUS
    EXPECT_NE(slurp(log).find("big.bmp: the file shrank while it was replayed\n"), std::string::npos)
        << slurp(log);
    // What was committed before reads back.
    EXPECT_EQ(show(dir / "r.db", {"7"}).status, 0);
}

// ---- Live sessions -------------------------------------------------------------------

TEST(CollectDaemon, AFramingFaultEndsOnlyThatRoutersSession) {
    TempDir dir;
    Collector c(dir);
    ASSERT_GT(c.port(), 0) << c.log();
    Router a(c.port()), b(c.port());
    ASSERT_TRUE(a.connected() && b.connected());
    std::vector<uint8_t> sa = router_start(1, "pe-a"), sb = router_start(2, "pe-b");
    bmp::Encoder ea, eb;
    mac_route(ea, 1, 1);
    mac_route(eb, 2, 1);
    sa.insert(sa.end(), ea.bytes().begin(), ea.bytes().end());
    sb.insert(sb.end(), eb.bytes().begin(), eb.bytes().end());
    ASSERT_TRUE(a.send(sa) && b.send(sb));
    ASSERT_TRUE(c.wait_show("0", mac_text(1, 1)) && c.wait_show("0", mac_text(2, 1))) << c.log();

    // B's next message claims version 9: B's session ends, its route goes.
    size_t fault_at = sb.size();
    ASSERT_TRUE(b.send({9, 0, 0, 0, 6, 0}));
    EXPECT_TRUE(b.closed_by_peer());
    EXPECT_TRUE(c.wait_log(b.name() + ": message at byte " + std::to_string(fault_at) + ": .*; session ended"))
        << c.log();
    EXPECT_TRUE(c.wait_show("0", mac_text(2, 1), false)) << c.log();

    // A goes on: its route stays, and a new one arrives.
    bmp::Encoder more;
    mac_route(more, 1, 2);
    ASSERT_TRUE(a.send(more.bytes()));
    EXPECT_TRUE(c.wait_show("0", mac_text(1, 2))) << c.log();
    EXPECT_NE(show(c.db(), {"0"}).out.find(mac_text(1, 1)), std::string::npos);
}

TEST(CollectDaemon, LogLinesNameTheRouterAndCarryNoControlBytes) {
    TempDir dir;
    Collector c(dir);
    Router r(c.port());
    std::vector<uint8_t> s = router_start(3, "pe\x1b[2J\x07one");
    bmp::Encoder e;
    bmp::StatEntry stats[] = {{0, 5}, {7, 12}, {999, 1}};
    e.statistics(peer(3), stats);
    e.peer_down(peer(3), 4);
    e.termination(0);
    s.insert(s.end(), e.bytes().begin(), e.bytes().end());
    ASSERT_TRUE(r.send(s));
    ASSERT_TRUE(c.wait_log(r.name() + ": closed \\(session [0-9]+\\): 5 messages, " + std::to_string(s.size()) + " bytes"))
        << c.log();
    std::string log = c.log();
    for (const std::string &want : {
             r.name() + ": connected",
             r.name() + ": Initiation: sysName \"pe\\x1b[2J\\x07one\", sysDescr \"test router\"",
             r.name() + ": Peer Up: peer 192.0.2.3 AS 65000, local 192.0.2.250",
             r.name() + ": Statistics Report: peer 192.0.2.3 AS 65000: rejected=5 adj-rib-in=12 type-999=1",
             r.name() + ": Peer Down: peer 192.0.2.3 AS 65000, remote close without notification (4)",
             r.name() + ": Termination: administratively closed (0)",
         })
        EXPECT_NE(log.find(want), std::string::npos) << want << "\n" << log;
    for (char ch : log) EXPECT_FALSE((unsigned char)ch < 0x20 && ch != '\n') << int(ch);
}

TEST(CollectDaemon, RoutersOutsideTheAllowListAndOverTheSessionLimitAreRefused) {
    TempDir dir;
    Collector c(dir, {"--allow", "127.0.0.2", "--allow", "127.0.0.3/32", "--max-sessions", "2"});
    Router outside(c.port(), "127.0.0.1");
    EXPECT_TRUE(outside.closed_by_peer());
    EXPECT_TRUE(c.wait_log(outside.name() + ": refused: not in --allow")) << c.log();

    Router first(c.port(), "127.0.0.2"), second(c.port(), "127.0.0.3");
    EXPECT_TRUE(c.wait_log(first.name("127.0.0.2") + ": connected")) << c.log();
    EXPECT_TRUE(c.wait_log(second.name("127.0.0.3") + ": connected")) << c.log();
    Router third(c.port(), "127.0.0.2");
    EXPECT_TRUE(third.closed_by_peer());
    EXPECT_TRUE(c.wait_log(third.name("127.0.0.2") + ": refused: 2 sessions open, the most allowed")) << c.log();
    // The admitted ones still work.
    ASSERT_TRUE(first.send(router_with_macs(4, 9, 9)));
    EXPECT_TRUE(c.wait_show("0", mac_text(4, 9))) << c.log();
}

TEST(CollectDaemon, RoutersBeyondTheDescriptorLimitAreRefusedWithoutSpinning) {
    TempDir dir;
    Collector c(dir, {}, {"/usr/bin/prlimit", "--nofile=24", "--"});
    ASSERT_GT(c.port(), 0) << c.log();
    std::vector<std::unique_ptr<Router>> routers;
    for (int i = 0; i < 30; i++) routers.push_back(std::make_unique<Router>(c.port()));
    EXPECT_TRUE(c.wait_log(": refused: out of file descriptors")) << c.log();
    double before = c.cpu_seconds();
    std::this_thread::sleep_for(1s);
    EXPECT_LT(c.cpu_seconds() - before, 0.3) << "the collector spins while descriptors are out";
    // Once routers leave, the next one is served.
    routers.clear();
    Router r(c.port());
    ASSERT_TRUE(r.send(router_with_macs(6, 1, 1)));
    EXPECT_TRUE(c.wait_show("0", mac_text(6, 1))) << c.log();
}

// The scheduling policy of each of pid's threads (field 41 of their stat).
std::vector<int> thread_policies(pid_t pid) {
    std::vector<int> policies;
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    for (const auto &t : std::filesystem::directory_iterator(tasks)) {
        std::ifstream f(t.path() / "stat");
        std::string text((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
        std::istringstream rest(text.substr(text.rfind(')') + 2));  // fields from the third on
        std::string field;
        for (int i = 3; i <= 41 && rest >> field; i++)
            if (i == 41) policies.push_back(std::stoi(field));
    }
    return policies;
}

TEST(CollectDaemon, EveryThreadRunsAtTheBatchPolicyUnlessStartedAtAnother) {
    TempDir dir;
    Collector c(dir);
    Router r(c.port());
    ASSERT_TRUE(r.send(router_with_macs(5, 1, 1)));
    ASSERT_TRUE(c.wait_show("0", mac_text(5, 1))) << c.log();  // the store's threads are running
    const std::vector<int> batch = thread_policies(c.pid());
    ASSERT_GE(batch.size(), 2u);
    for (int p : batch) EXPECT_EQ(p, SCHED_BATCH);

    // Started at the idle policy (a unit's CPUSchedulingPolicy=idle), it stays there.
    TempDir other;
    Collector idle(other, {}, {"/usr/bin/chrt", "--idle", "0"});
    ASSERT_GT(idle.port(), 0) << idle.log();
    for (int p : thread_policies(idle.pid())) EXPECT_EQ(p, SCHED_IDLE);
}

TEST(CollectDaemon, SigtermEndsTheSessionsCommitsAndLeavesALoadableStore) {
    TempDir dir;
    Collector c(dir);
    Router r(c.port());
    ASSERT_TRUE(r.send(router_with_macs(5, 0, 49)));
    ASSERT_TRUE(c.wait_show("0", mac_text(5, 49))) << c.log();
    EXPECT_EQ(c.terminate(), 0) << c.log();
    std::string log = c.log();
    EXPECT_NE(log.find(": closed (session "), std::string::npos) << log;
    EXPECT_NE(log.find("evpn_sysdb collect: stopped"), std::string::npos) << log;

    subprocess::Run dump = subprocess::run({EVPN_SYSDB_BIN, "dump", "--db", c.db()});
    ASSERT_EQ(dump.status, 0) << dump.err;
    std::ofstream(dir / "dump.json") << dump.out;
    subprocess::Run load = subprocess::run({EVPN_SYSDB_BIN, "load", dir / "dump.json", "--db", dir / "again.db"});
    EXPECT_EQ(load.status, 0) << load.err;
    EXPECT_EQ(show(c.db(), {"0"}).out.find(mac_text(5, 1)), std::string::npos) << "no router watches it any more";
}

TEST(CollectDaemon, ListingsDuringAFloodOfUpdatesAreWholeEveryTime) {
    TempDir dir;
    Collector c(dir);
    std::string stream;
    bmp::GenBmpOptions o;
    o.routes = 20000;
    o.evis = 20;
    o.withdraw = true;
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(bmp::gen_bmp_stream(o, [&](std::span<const uint8_t> b) {
        bytes.insert(bytes.end(), b.begin(), b.end());
        return true;
    }));
    std::atomic<bool> stop{false};
    std::atomic<int> rounds{0};
    std::thread flood([&] {
        while (!stop) {
            Router r(c.port());
            if (!r.send(bytes)) break;
            rounds++;
        }
    });
    std::regex row("^[0-9]+ +\\S+ +[0-9a-f]{4}\\.[0-9a-f]{4}\\.[0-9a-f]{4} +\\S+ +\\S+.*$");
    std::regex header("^(VPN-ID +Encap +MAC address .*|[- ]+|)$");
    int listings = 0;
    size_t most = 0;
    auto end = std::chrono::steady_clock::now() + 4s;
    while (std::chrono::steady_clock::now() < end) {
        subprocess::Run r = show(c.db(), {"0"});
        ASSERT_EQ(r.status, 0) << r.err;
        std::istringstream lines(r.out);
        size_t rows = 0;
        for (std::string line; std::getline(lines, line);) {
            bool is_row = std::regex_match(line, row);
            ASSERT_TRUE(is_row || std::regex_match(line, header)) << "torn line: '" << line << "'";
            rows += is_row;
        }
        most = std::max(most, rows);
        listings++;
    }
    stop = true;
    flood.join();
    EXPECT_GE(listings, 5);
    EXPECT_GT(most, 0u) << "the listings saw no routes at all";
    EXPECT_GE(rounds.load(), 1);
    EXPECT_EQ(c.terminate(), 0) << c.log();
}

}  // namespace
