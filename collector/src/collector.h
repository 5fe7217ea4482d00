// The BMP collector daemon: listens for routers' BMP sessions (or replays a
// captured stream) and applies every message to a LiveStore. One thread, one
// epoll loop, non-blocking sockets; a framing fault ends that router's
// session only. Logs one line per session event on the given stream.
#pragma once
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "live_store.h"

namespace evpn::collector {

// An address to listen on; an empty list means both loopbacks.
struct ListenAddr {
    sockaddr_storage addr{};
    socklen_t len = 0;
};

// One --allow rule: a router whose address falls in it may connect.
struct AllowRule {
    int family = 0;          // AF_INET or AF_INET6
    uint8_t addr[16] = {};
    unsigned prefix_len = 0;
};

struct CollectorOptions {
    std::vector<ListenAddr> listen;   // from "[ADDR:]PORT"
    std::vector<AllowRule> allow;     // empty: every router may connect
    std::string bmp_file;             // replay this stream instead of listening
    LiveStoreOptions store;
    size_t max_sessions = 64;
    // Bytes buffered for one session beyond the whole messages taken out of
    // it: one message of the longest kind and one read.
    size_t max_session_buffer = (size_t{1} << 20) + (size_t{1} << 16);
    int flush_ms = 50;                // longest time a change waits for its commit
    FILE *log = stderr;
};

// "PORT", "ADDR:PORT" or "[V6ADDR]:PORT" into listen addresses; a bare port
// listens on 127.0.0.1 and ::1. false with err set when it does not parse.
bool parse_listen(const std::string &text, std::vector<ListenAddr> &out, std::string &err);
// "ADDR" or "ADDR/LEN", IPv4 or IPv6.
bool parse_allow(const std::string &text, AllowRule &out, std::string &err);
// Whether the rules admit this peer (an IPv4-mapped IPv6 address counts as IPv4).
bool allowed(const std::vector<AllowRule> &rules, const sockaddr_storage &peer);

// Runs until SIGTERM or SIGINT (status 0), or until the store fails (1).
int run_collector(const CollectorOptions &opts);
// Applies the stream in opts.bmp_file as one session, prints a summary line
// on standard output and returns 0; 1 when the file cannot be read, a
// message cannot be framed or the store fails.
int replay_file(const CollectorOptions &opts);

// evpn_sysdb collect ARGS...: argv[1] is "collect". Returns the exit status.
int collect_main(int argc, char **argv);

}  // namespace evpn::collector
