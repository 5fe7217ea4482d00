// The client's command line: the input is a NUL-separated argument vector
// run through the client's main routine against the demo router's database.
// Reports go to /dev/null; only crashes, sanitizer findings and leaks count.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "evpn_show_print.h"
#include "platform/infra.h"
#include "snapshot.h"

namespace {

std::string g_db;

void remove_db() { unlink(g_db.c_str()); }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // A private copy of the demo database, so no other build can replace it
    // under the run.
    g_db = "/tmp/evpn_fuzz_cmdline." + std::to_string(getpid()) + ".db";
    unlink(g_db.c_str());
    std::ifstream in(EVPN_DEMO_JSON);
    evpn::LoadStats stats;
    std::string err;
    if (!in || !evpn::load_snapshot(in, g_db, stats, err)) {
        fprintf(stderr, "cannot load %s: %s\n", EVPN_DEMO_JSON, err.c_str());
        abort();
    }
    atexit(remove_db);
    setenv("EVPN_SYSDB", g_db.c_str(), 1);
    // Traces on: their formatting is part of what runs.
    setenv("EVPN_DEBUG", "4c0001", 1);
    const int null_fd = open("/dev/null", O_WRONLY);
    if (null_fd < 0 || dup2(null_fd, STDOUT_FILENO) < 0) abort();
    close(null_fd);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 4096) return 0;
    std::vector<std::string> words{"evpn_show_client"};
    std::string word;
    for (size_t i = 0; i < size; i++) {
        if (data[i] == 0) {
            words.push_back(word);
            word.clear();
        } else {
            word += static_cast<char>(data[i]);
        }
    }
    if (size > 0) words.push_back(word);
    if (words.size() > 64) return 0;
    std::vector<char *> argv;
    for (auto &w : words) argv.push_back(w.data());
    argv.push_back(nullptr);

    // Process-wide state of one run: the filter and the option scanner.
    // optind = 0 makes glibc's getopt start over completely (1 would keep a
    // half-scanned option cluster of the previous run).
    show_filter = ShowFilter{.node_id = L2FIB_ALL_NODES};
    optind = 0;
    l2vpn_optind = 1;
    l2vpn_optarg = nullptr;

    evpn_show_main(static_cast<int>(words.size()), argv.data());
    fflush(stdout);
    return 0;
}
