// The progress line: when it shows, what it says, how it leaves the terminal,
// and that load, gen and dump each keep one.
#include "progress.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <string>

#include "subprocess.h"

namespace {

uint64_t g_now;
uint64_t fake_clock() { return g_now; }
constexpr uint64_t kMs = 1000000;

// Whatever is waiting on fd, without blocking.
std::string drain(int fd) {
    std::string got;
    char buf[512];
    int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;) got.append(buf, static_cast<size_t>(n));
    fcntl(fd, F_SETFL, flags);
    return got;
}

struct Pty {
    int master = -1, slave = -1;
    Pty() {
        termios raw{};
        cfmakeraw(&raw);  // no newline translation: the bytes as written
        EXPECT_EQ(openpty(&master, &slave, nullptr, &raw, nullptr), 0);
    }
    ~Pty() {
        close(master);
        close(slave);
    }
};

TEST(Progress, OnATerminalItWaitsASecondRedrawsInPlaceAndClearsItself) {
    Pty t;
    g_now = 0;
    {
        evpn::Progress p("loading", evpn::ProgressMode::Auto, t.slave, fake_clock);
        ASSERT_TRUE(p.on());
        p.set_total(40960);
        g_now = 900 * kMs;
        p.update(8192, 8192);  // under a second: nothing yet
        EXPECT_EQ(drain(t.master), "");
        g_now = 1200 * kMs;
        p.update(8192 + 4096, 8192);
        EXPECT_EQ(drain(t.master), "\rloading: 12288 records, 10240 records/s, 0:05 left\033[K");
        g_now = 1300 * kMs;
        p.update(20000, 20000);  // a tenth of a second later: not redrawn
        EXPECT_EQ(drain(t.master), "");
        g_now = 3700 * kMs * 1000;  // time left past an hour
        p.update(30000, 20480);
        EXPECT_EQ(drain(t.master), "\rloading: 30000 records, 8 records/s, 1:01:40 left\033[K");
    }
    EXPECT_EQ(drain(t.master), "\r\033[K");  // the line goes when the job ends
}

TEST(Progress, OffAPipeOnlyWhenAskedForAndThenALineASecond) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    g_now = 0;
    {
        evpn::Progress quiet("dumping", evpn::ProgressMode::Auto, fds[1], fake_clock);
        EXPECT_FALSE(quiet.on());
        g_now = 5000 * kMs;
        quiet.update(1 << 20, 0);
        evpn::Progress never("dumping", evpn::ProgressMode::Never, fds[1], fake_clock);
        EXPECT_FALSE(never.on());
    }
    EXPECT_EQ(drain(fds[0]), "");
    g_now = 0;
    {
        evpn::Progress p("generating", evpn::ProgressMode::Always, fds[1], fake_clock);
        g_now = 100 * kMs;
        p.update(4095, 0);  // the clock is not read for every record
        EXPECT_EQ(drain(fds[0]), "");
        p.update(4096, 0);  // no total: no time left
        EXPECT_EQ(drain(fds[0]), "generating: 4096 records, 40960 records/s\n");
        g_now = 600 * kMs;
        p.update(9000, 0);
        EXPECT_EQ(drain(fds[0]), "");
    }
    EXPECT_EQ(drain(fds[0]), "");
    close(fds[0]);
    close(fds[1]);
}

TEST(Progress, AFailedWriteEndsTheDisplayNotTheJob) {
    int full = open("/dev/full", O_WRONLY);
    ASSERT_GE(full, 0);
    g_now = 0;
    evpn::Progress p("loading", evpn::ProgressMode::Always, full, fake_clock);
    p.update(4096, 0);
    EXPECT_FALSE(p.on());
    close(full);
}

// Each long job of evpn_sysdb shows its line when asked, and none by default
// when standard error is not a terminal.
TEST(Progress, LoadGenAndDumpEachShowIt) {
    const std::string dir = testing::TempDir() + "progress-" + std::to_string(getpid());
    const std::string db = dir + ".db", json = dir + ".json", db2 = dir + "-2.db";
    const std::vector<std::string> always = {"EVPN_SYSDB_PROGRESS=always"};
    const struct {
        const char *line;
        std::vector<std::string> args;
    } jobs[] = {
        {"generating: ", {EVPN_SYSDB_BIN, "gen", "--routes", "9000", "--db", db, "--json", json}},
        {"loading: ", {EVPN_SYSDB_BIN, "load", json, "--db", db2}},
        {"dumping: ", {EVPN_SYSDB_BIN, "dump", "--db", db}},
    };
    for (const auto &job : jobs) {
        SCOPED_TRACE(job.line);
        subprocess::Run shown = subprocess::run(job.args, always);
        ASSERT_EQ(shown.status, 0) << shown.err;
        EXPECT_EQ(shown.err.find(job.line), 0u) << shown.err;
        EXPECT_NE(shown.err.find(" left\n"), std::string::npos) << shown.err;
        subprocess::Run plain = subprocess::run(job.args);
        ASSERT_EQ(plain.status, 0) << plain.err;
        EXPECT_EQ(plain.err.find(job.line), std::string::npos) << plain.err;
        EXPECT_EQ(plain.out, shown.out);
    }
    for (const std::string &f : {db, json, db2}) unlink(f.c_str());
}

}  // namespace
