// Ingest speed of the live store and the MAC listing beside it:
//   bench_live_store [--nice N] [--per-update N] DB ROUTES [CLIENT]
// applies ROUTES type-2 routes (100 to an UPDATE or as given, ten EVIs, four
// peers) to a
// new store DB and reports routes/s and peak RSS; with CLIENT (the show
// client), times its MAC listing idle, then while the same routes are
// announced again with new labels, and reports both. --nice: the ingest runs
// at that niceness, the client at 0 (lowering it back needs root).
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "live_store.h"

extern char **environ;

namespace {

using namespace evpn;
using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point t) {
    return std::chrono::duration<double>(Clock::now() - t).count();
}

uint64_t per_update = 100;

// UPDATE number u of the stream: per_update routes, MACs numbered from
// u * per_update.
void fill(bmp::Message &m, uint64_t u, uint64_t routes, uint32_t label) {
    m.version = 3;
    m.type = bmp::MsgType::RouteMonitoring;
    const uint8_t pe = static_cast<uint8_t>(1 + u % 4);
    m.peer = {};
    m.peer.address.len = 4;
    m.peer.address.b = {192, 0, 2, pe};
    m.peer.as = 65000 + pe;
    bmp::Update &up = m.update;
    up.reach.clear();
    up.attrs.next_hop = m.peer.address;
    const uint32_t evi = 100 + static_cast<uint32_t>(u % 10);
    up.attrs.route_targets.assign(1, uint64_t(0x0002) << 48 | uint64_t(65000) << 32 | evi);
    for (uint64_t i = u * per_update; i < std::min(routes, (u + 1) * per_update); i++) {
        bmp::EvpnNlri n;
        n.route_type = 2;
        n.rd = {0, 1, 192, 0, 2, pe, 0, static_cast<uint8_t>(evi)};
        n.mac = {0x02, 0, static_cast<uint8_t>(i >> 24), static_cast<uint8_t>(i >> 16),
                 static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
        if (i % 2) {
            n.ip.len = 4;
            n.ip.b = {10, static_cast<uint8_t>(i >> 16), static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
        }
        n.label_count = 1;
        n.label[0] = label << 4 | 1;
        up.reach.push_back(n);
    }
}

// CPU seconds of each of this process's threads, busiest first: on a machine
// shared with other work, what the ingest would take with a core per thread.
std::vector<double> thread_cpu() {
    std::vector<double> out;
    DIR *d = opendir("/proc/self/task");
    if (!d) return out;
    const double tick = static_cast<double>(sysconf(_SC_CLK_TCK));
    while (const dirent *e = readdir(d)) {
        if (e->d_name[0] == '.') continue;
        FILE *f = fopen((std::string("/proc/self/task/") + e->d_name + "/stat").c_str(), "r");
        if (!f) continue;
        char buf[1024];
        const size_t n = fread(buf, 1, sizeof buf - 1, f);
        fclose(f);
        buf[n] = '\0';
        const char *p = strrchr(buf, ')');  // fields after the command name
        unsigned long utime = 0, stime = 0;
        if (p && sscanf(p + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &utime, &stime) == 2)
            out.push_back(static_cast<double>(utime + stime) / tick);
    }
    closedir(d);
    std::sort(out.rbegin(), out.rend());
    return out;
}

bool ingest(collector::LiveStore &store, uint32_t session, uint64_t routes, uint32_t label) {
    bmp::Message m;
    std::string err;
    for (uint64_t u = 0; u * per_update < routes; u++) {
        fill(m, u, routes, label);
        if (!store.apply(session, m, err)) {
            fprintf(stderr, "bench_live_store: %s\n", err.c_str());
            return false;
        }
    }
    if (!store.flush(err)) {
        fprintf(stderr, "bench_live_store: %s\n", err.c_str());
        return false;
    }
    return true;
}

// Seconds the client takes to list the MAC routes (output thrown away).
double listing(const std::string &client, const std::string &db) {
    std::string env_db = "EVPN_SYSDB=" + db;
    std::vector<char *> env{env_db.data()};
    for (char **e = environ; *e; e++)
        if (strncmp(*e, "EVPN_", 5) != 0) env.push_back(*e);
    env.push_back(nullptr);
    std::string arg0 = client, arg1 = "0";
    char *argv[] = {arg0.data(), arg1.data(), nullptr};
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
    const auto t = Clock::now();
    pid_t pid = fork();
    if (pid == 0) {
        setpriority(PRIO_PROCESS, 0, 0);
        const int fd = open("/dev/null", O_WRONLY);
        dup2(fd, 1);
        execve(client.c_str(), argv, env.data());
        _exit(127);
    }
    posix_spawn_file_actions_destroy(&fa);
    if (pid < 0) return -1;
    int ws = 0;
    waitpid(pid, &ws, 0);
    return WIFEXITED(ws) && WEXITSTATUS(ws) == 0 ? seconds_since(t) : -1;
}

}  // namespace

int main(int argc, char **argv) {
    while (argc > 2 && argv[1][0] == '-') {
        if (strcmp(argv[1], "--nice") == 0) setpriority(PRIO_PROCESS, 0, atoi(argv[2]));
        else if (strcmp(argv[1], "--per-update") == 0) per_update = std::max(1ull, strtoull(argv[2], nullptr, 10));
        else break;
        argv += 2;
        argc -= 2;
    }
    if (argc < 3) {
        fprintf(stderr, "usage: bench_live_store [--nice N] [--per-update N] DB ROUTES [CLIENT]\n");
        return 2;
    }
    const std::string db = argv[1];
    const uint64_t routes = strtoull(argv[2], nullptr, 10);
    for (const char *suffix : {"", "-wal", "-shm"}) unlink((db + suffix).c_str());
    collector::LiveStoreOptions o;
    o.db = db;
    std::string err;
    auto store = collector::LiveStore::open(o, err);
    if (!store) {
        fprintf(stderr, "bench_live_store: %s\n", err.c_str());
        return 1;
    }
    const uint32_t session = store->session_open("bench");
    auto t = Clock::now();
    if (!ingest(*store, session, routes, 16)) return 1;
    const double s = seconds_since(t);
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    printf("ingest: %llu routes in %.2f s: %.0f routes/s, peak RSS %.1f MiB, %llu commits\n",
           static_cast<unsigned long long>(routes), s, static_cast<double>(routes) / s,
           static_cast<double>(ru.ru_maxrss) / 1024, static_cast<unsigned long long>(store->counters().commits));
    const std::vector<double> cpu = thread_cpu();
    if (!cpu.empty()) {
        printf("CPU by thread:");
        for (double c : cpu) printf(" %.2f s", c);
        printf(" (busiest alone: %.0f routes/s)\n", static_cast<double>(routes) / cpu[0]);
    }
    if (argc < 4) return 0;
    const std::string client = argv[3];
    std::vector<double> idle;
    for (int i = 0; i < 3; i++) idle.push_back(listing(client, db));
    std::sort(idle.begin(), idle.end());
    std::atomic<bool> done{false};
    double again = 0;
    std::thread writer([&] {
        const auto w = Clock::now();
        ingest(*store, session, routes, 17);
        again = seconds_since(w);
        done = true;
    });
    std::vector<double> busy;
    while (!done) {
        const double l = listing(client, db);
        if (!done) busy.push_back(l);
    }
    writer.join();
    std::sort(busy.begin(), busy.end());
    printf("MAC listing idle: %.3f s (median of 3)\n", idle[1]);
    if (!busy.empty())
        printf("MAC listing during ingest: %zu runs, median %.3f s, worst %.3f s (%.2fx idle)\n", busy.size(),
               busy[busy.size() / 2], busy.back(), busy.back() / idle[1]);
    printf("re-announce during listings: %.0f routes/s\n", static_cast<double>(routes) / again);
    return 0;
}
