// The shell as a program: its -c form prints what the client prints for the
// same options, it runs the client only for commands it understood, its
// manual page renders cleanly, and it works interactively on a terminal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "grammar.h"
#include "manpage.h"
#include "subprocess.h"

namespace {

std::vector<std::string> split(const std::string &s) {
    std::istringstream in(s);
    std::vector<std::string> out;
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

class ShellProgram : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        char dir_template[] = "/tmp/evpn_shell_test.XXXXXX";
        ASSERT_NE(mkdtemp(dir_template), nullptr);
        dir_ = dir_template;
        db_ = dir_ + "/demo.db";
        subprocess::Run r =
            subprocess::run({EVPN_SYSDB_BIN, "load", EVPN_SOURCE_DIR "/data/demo.json", "--db", db_});
        ASSERT_EQ(r.status, 0) << r.err;
    }
    static void TearDownTestSuite() { std::system(("rm -rf '" + dir_ + "'").c_str()); }

    static subprocess::Run shell(const std::vector<std::string> &args, std::vector<std::string> env = {}) {
        std::vector<std::string> argv{EVPN_SHELL_BIN};
        argv.insert(argv.end(), args.begin(), args.end());
        env.push_back("EVPN_SYSDB=" + db_);
        return subprocess::run(argv, env);
    }
    // The shell reading the given lines from standard input.
    static subprocess::Run shell_stdin(const std::string &lines, std::vector<std::string> env = {}) {
        const std::string input = dir_ + "/input";
        std::ofstream(input) << lines;
        env.push_back("EVPN_SYSDB=" + db_);
        return subprocess::run({"/bin/sh", "-c", "exec \"$0\" < \"$1\"", EVPN_SHELL_BIN, input}, env);
    }
    // A stand-in client that logs its arguments, one run per line, and exits with 3.
    static std::string stub_client() {
        const std::string path = dir_ + "/stub_client";
        std::ofstream(path) << "#!/bin/sh\nprintf '[%s]' \"$@\" >> \"$0.log\"\necho >> \"$0.log\"\nexit 3\n";
        chmod(path.c_str(), 0755);
        unlink((path + ".log").c_str());
        return path;
    }

    static std::string dir_, db_;
};

std::string ShellProgram::dir_, ShellProgram::db_;

// The shell's -c output and status are the client's own for the same options
// (which words make which options is the grammar's test), and -n prints them.
TEST_F(ShellProgram, ShowCommandsPrintWhatTheClientPrints) {
    const struct {
        const char *words;
        const char *client_args;
    } cases[] = {
        {"show evpn evi 100 mac detail", "-d -M 64 0"},
        {"show evpn summary private", "-p 7"},
        {"show evpn grouping-es-map private", "-p 13"},
    };
    for (const auto &c : cases) {
        std::vector<std::string> client{EVPN_CLIENT_BIN};
        for (const std::string &a : split(c.client_args)) client.push_back(a);
        const subprocess::Run want = subprocess::run(client, {"EVPN_SYSDB=" + db_});
        const subprocess::Run got = shell({"-c", c.words});
        EXPECT_EQ(got.out, want.out) << c.words;
        EXPECT_EQ(got.status, want.status) << c.words;
        EXPECT_EQ(got.err, "") << c.words;
        EXPECT_NE(shell({"-n", "-c", c.words}).out.find(std::string(" ") + c.client_args + "\n"), std::string::npos)
            << c.words;
    }
}

TEST_F(ShellProgram, RunsTheClientOnlyForCommandsItUnderstood) {
    const std::string stub = stub_client();
    const std::vector<std::string> env{"EVPN_SHOW_CLIENT=" + stub};

    // Exit status passes through; a command not understood runs nothing.
    subprocess::Run r = shell({"-c", "show evpn evi 100 detail"}, env);
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(read_file(stub + ".log"), "[-d][-M][64][5]\n");
    r = shell({"-c", "show evpn evi 70000000000"}, env);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err,
              "show evpn evi 70000000000\n"
              "              ^\n"
              "% Invalid EVI \"70000000000\": out of range (0 to 4294967295)\n");
    EXPECT_EQ(read_file(stub + ".log"), "[-d][-M][64][5]\n");

    // Lines from standard input: comments and blank lines skipped, a bad line
    // reported and skipped, "exit" ends the input.
    unlink((stub + ".log").c_str());
    r = shell_stdin("# a script\n\nshow evpn group 31\nshow evpn evi mc\n  show evpn client standby\nexit\nshow evpn client\n",
                    env);
    EXPECT_EQ(read_file(stub + ".log"), "[-g][1f][f]\n[-U][standby][e]\n");
    EXPECT_NE(r.err.find("show evpn evi mc\n              ^\n% Invalid input detected at '^' marker.\n"),
              std::string::npos)
        << r.err;
    EXPECT_EQ(r.status, 3);
}

// Stages on the -c path, whose output is not paged (the stages' own logic is
// the grammar test's).
TEST_F(ShellProgram, StagesFilterTheClientsOutput) {
    EXPECT_EQ(shell({"-c", "show evpn evi | include VXLAN|SRv6"}).out,
              "200        VXLAN      bd-vxlan-200                 EVPN VXLAN         \n"
              "300        SRv6       bd-srv6-300                  EVPN SRv6          \n");
}

TEST(ShellManualPage, RendersWithoutWarningsAndNamesEveryCommand) {
    subprocess::Run r = subprocess::run({"/usr/bin/man", "--warnings", "-l", EVPN_SHELL_MAN},
                                        {"MANWIDTH=200", "LC_ALL=C"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    for (const evpn_shell::Command &c : evpn_shell::commands())
        EXPECT_NE(r.out.find(evpn_shell::command_synopsis(c.path, c.required)), std::string::npos) << c.path;
    for (const evpn_shell::PipeStage &p : evpn_shell::pipe_stages())
        EXPECT_NE(r.out.find(std::string("| ") + p.word), std::string::npos) << p.word;
    for (const evpn_shell::Filter &f : evpn_shell::filters())
        if (f.word) { EXPECT_NE(r.out.find(f.word), std::string::npos) << f.word; }
    // The file the build wrote is the one the table makes now.
    EXPECT_EQ(read_file(EVPN_SHELL_MAN), evpn_shell::manual_page());
}

// A terminal session: the shell under a pseudo-terminal, driven by keystrokes.
class Terminal {
public:
    Terminal(const std::vector<std::string> &args, const std::vector<std::string> &env, unsigned short rows) {
        subprocess::Argv a(args, env);
        struct winsize ws {};
        ws.ws_row = rows;
        ws.ws_col = 200;
        pid_ = forkpty(&fd_, nullptr, nullptr, &ws);
        if (pid_ == 0) {
            execve(a.argv[0], a.argv.data(), a.envp.data());
            _exit(127);
        }
    }
    ~Terminal() {
        if (fd_ >= 0) close(fd_);
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    bool started() const { return pid_ > 0; }
    void type(const std::string &keys) { ASSERT_EQ(write(fd_, keys.data(), keys.size()), ssize_t(keys.size())); }

    // Reads until `needle` appears; returns what came before and including it
    // since the last call, or "" on a time-out.
    std::string expect(const std::string &needle) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        for (;;) {
            const size_t at = seen_.find(needle);
            if (at != std::string::npos) {
                std::string before = seen_.substr(0, at + needle.size());
                seen_.erase(0, at + needle.size());
                return before;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            struct pollfd p = {fd_, POLLIN, 0};
            if (left.count() <= 0 || poll(&p, 1, static_cast<int>(left.count())) <= 0) return "";
            char buf[4096];
            ssize_t n = read(fd_, buf, sizeof buf);
            if (n <= 0) return "";
            seen_.append(buf, static_cast<size_t>(n));
        }
    }
    int wait() {
        int status = 0;
        if (waitpid(pid_, &status, 0) != pid_) return -1;
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t pid_ = -1;
    int fd_ = -1;
    std::string seen_;
};

TEST_F(ShellProgram, TerminalSessionCompletesHelpsFiltersPagesAndMarksErrors) {
    // Six rows: the EVI listing (eight lines) is paged, a one-line answer is not.
    Terminal t({EVPN_SHELL_BIN},
               {"EVPN_SYSDB=" + db_, "TERM=dumb", "INPUTRC=/dev/null", "HOME=" + dir_,
                "PAGER=sed s/^/paged:/"},
               6);
    ASSERT_TRUE(t.started());
    ASSERT_NE(t.expect("evpn# "), "");

    // Tab completes the next word; Enter runs it.
    t.type("show evpn summ\t");
    EXPECT_NE(t.expect("summary "), "");
    t.type("\r");
    EXPECT_NE(t.expect("Global Information"), "");
    ASSERT_NE(t.expect("evpn# "), "");

    // "?" lists what may follow with its help and gives the line back.
    t.type("show evpn evi ?");
    const std::string help = t.expect("evpn# show evpn evi ");
    EXPECT_NE(help.find("mac"), std::string::npos) << help;
    EXPECT_NE(help.find("MAC and MAC/IP routes"), std::string::npos) << help;
    EXPECT_NE(help.find("<0-4294967295>"), std::string::npos) << help;
    t.type("| include 100\r");
    const std::string filtered = t.expect("evpn# ");
    EXPECT_NE(filtered.find("100        MPLS"), std::string::npos) << filtered;
    EXPECT_EQ(filtered.find("200        VXLAN"), std::string::npos) << filtered;
    EXPECT_EQ(filtered.find("paged:"), std::string::npos) << filtered;

    // The marker stands under the word that does not fit, past the prompt.
    t.type("show evpn evi mc\r");
    const std::string error = t.expect("% Invalid input detected at '^' marker.");
    EXPECT_NE(error.find("\n" + std::string(6 + 14, ' ') + "^"), std::string::npos) << error;
    ASSERT_NE(t.expect("evpn# "), "");

    // Longer than the terminal: through the pager.
    t.type("show evpn evi\r");
    EXPECT_NE(t.expect("paged:200        VXLAN"), "");
    ASSERT_NE(t.expect("evpn# "), "");

    t.type("exit\r");
    EXPECT_EQ(t.wait(), 0);
}

// ---- Output streams ------------------------------------------------------

// The peak resident size of a program run to its end, in KiB, measured by
// bench_run (a small parent, so the figure is the program's own and not
// inherited from this test's memory).
long peak_rss_kib(const std::vector<std::string> &args, const std::vector<std::string> &env) {
    std::vector<std::string> argv{EVPN_BENCH_RUN_BIN};
    argv.insert(argv.end(), args.begin(), args.end());
    const subprocess::Run r = subprocess::run(argv, env);
    double wall, user, sys;
    long rss = -1;
    if (sscanf(r.out.c_str(), "%lf %lf %lf %ld", &wall, &user, &sys, &rss) != 4) ADD_FAILURE() << r.out << r.err;
    return rss;
}

// The stages work on each line as the client prints it: the shell's size
// does not follow the listing's.
TEST_F(ShellProgram, CountingABigListingKeepsTheShellSmall) {
    long rss[2] = {0, 0};
    const int routes[2] = {10000, 100000};
    for (int k = 0; k < 2; k++) {
        const std::string db = dir_ + "/gen.db";
        subprocess::Run gen = subprocess::run(
            {EVPN_SYSDB_BIN, "gen", "--routes", std::to_string(routes[k]), "--evis", "100", "--db", db});
        ASSERT_EQ(gen.status, 0) << gen.err;
        const std::string want = subprocess::run({EVPN_CLIENT_BIN, "0"}, {"EVPN_SYSDB=" + db}).out;
        const size_t lines = static_cast<size_t>(std::count(want.begin(), want.end(), '\n'));
        const std::vector<std::string> count{EVPN_SHELL_BIN, "-c", "show evpn evi mac | count"};
        EXPECT_EQ(subprocess::run(count, {"EVPN_SYSDB=" + db}).out, "Count: " + std::to_string(lines) + "\n");
        rss[k] = peak_rss_kib(count, {"EVPN_SYSDB=" + db});
    }
    // Ten times the output (15 MB more) leaves the peak where it was. The
    // figure is the larger of the shell's and the client's; under the
    // sanitizers both carry the allocator's own growth.
#if defined(__SANITIZE_ADDRESS__)
    const long slack = 8192;
#else
    const long slack = 2048;
    EXPECT_LT(rss[1], 16 * 1024) << "KiB";
#endif
    EXPECT_LT(rss[1], rss[0] + slack) << rss[0] << " KiB, then " << rss[1] << " KiB";
}

// A stand-in client that prints lines until it is stopped.
std::string endless_client(const std::string &dir) {
    const std::string path = dir + "/endless_client";
    std::ofstream(path) << "#!/bin/sh\nexec yes '100        MPLS       bd-core'\n";
    chmod(path.c_str(), 0755);
    return path;
}

// Starts the shell with standard output on out_fd and standard error into
// err_file, in a process group of its own.
pid_t start_shell(const std::vector<std::string> &args, const std::vector<std::string> &env, int out_fd,
                  const std::string &err_file) {
    std::vector<std::string> argv{EVPN_SHELL_BIN};
    argv.insert(argv.end(), args.begin(), args.end());
    subprocess::Argv a(argv, env);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, out_fd, 1);
    posix_spawn_file_actions_addopen(&fa, 2, err_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    posix_spawnattr_setpgroup(&attr, 0);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
    pid_t pid = -1;
    if (posix_spawn(&pid, a.argv[0], &fa, &attr, a.argv.data(), a.envp.data()) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&fa);
    posix_spawnattr_destroy(&attr);
    return pid;
}

// Ctrl-C reaches the shell alone (kill) or its whole process group (a
// terminal): either way the client stops, the rest is dropped, and no count
// is printed.
TEST_F(ShellProgram, InterruptStopsTheClientAndPrintsNoCount) {
    const std::vector<std::string> env{"EVPN_SYSDB=" + db_, "EVPN_SHOW_CLIENT=" + endless_client(dir_)};
    for (const bool group : {false, true}) {
        const std::string out_file = dir_ + "/interrupt.out", err_file = dir_ + "/interrupt.err";
        const int out = open(out_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        const pid_t pid = start_shell({"-c", "show evpn evi mac | count"}, env, out, err_file);
        close(out);
        ASSERT_GT(pid, 0);
        sleep(1);
        kill(group ? -pid : pid, SIGINT);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(subprocess::wait_for(pid), 130) << (group ? "group" : "shell alone");
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
        EXPECT_EQ(read_file(out_file), "") << "a partial count";
        EXPECT_EQ(read_file(err_file), "% interrupted\n");
        EXPECT_EQ(kill(-pid, 0), -1) << "the client outlived the shell";
    }
}

// At the prompt, Ctrl-C from the terminal ends the command, not the session.
TEST_F(ShellProgram, CtrlCAtTheTerminalReturnsToThePrompt) {
    Terminal t({EVPN_SHELL_BIN},
               {"EVPN_SYSDB=" + db_, "EVPN_SHOW_CLIENT=" + endless_client(dir_), "TERM=dumb",
                "INPUTRC=/dev/null", "HOME=" + dir_},
               24);
    ASSERT_TRUE(t.started());
    ASSERT_NE(t.expect("evpn# "), "");
    t.type("show evpn evi mac | count\r");
    usleep(500 * 1000);
    t.type("\x03");
    const std::string shown = t.expect("% interrupted");
    EXPECT_NE(shown, "");
    EXPECT_EQ(shown.find("Count"), std::string::npos) << shown;
    ASSERT_NE(t.expect("evpn# "), "");
    t.type("exit\r");
    EXPECT_EQ(t.wait(), 130) << "the status of the interrupted command";
}

// Write errors end the shell with a message; a reader that went away ends
// it quietly.
TEST_F(ShellProgram, WriteErrorsEndTheShellWithAMessage) {
    const std::string stub = stub_client();
    for (const char *flag : {"", "-n"}) {
        std::vector<std::string> argv{"/bin/sh", "-c",
                                      "exec \"$0\" $1 -c 'show evpn client' -c 'show evpn evi' > /dev/full",
                                      EVPN_SHELL_BIN, flag};
        subprocess::Run r = subprocess::run(argv, {"EVPN_SYSDB=" + db_});
        EXPECT_EQ(r.status, 1) << flag;
        EXPECT_EQ(r.err, "% cannot write the output: No space left on device\n") << flag;
    }
    // Into a pipe whose reader has gone: no message, and the commands after
    // it are not run (the second's JSON view would run the stand-in, which logs).
    unlink((stub + ".log").c_str());
    int gone[2];
    ASSERT_EQ(pipe2(gone, O_CLOEXEC), 0);
    close(gone[0]);
    const pid_t pid = start_shell({"-c", "show evpn evi", "-c", "show evpn client json"},
                                  {"EVPN_SYSDB=" + db_, "EVPN_SYSDB_TOOL=" + stub}, gone[1], dir_ + "/epipe.err");
    close(gone[1]);
    EXPECT_EQ(subprocess::wait_for(pid), 0);
    EXPECT_EQ(read_file(dir_ + "/epipe.err"), "");
    EXPECT_EQ(read_file(stub + ".log"), "");
}

// Before the client runs, the shell says why the database will not do, and
// how to put it right; the client is not run for a database it cannot use.
TEST_F(ShellProgram, SaysWhyTheDatabaseCannotBeUsed) {
    const std::string stub = stub_client();
    const std::string text = dir_ + "/text.db", empty = dir_ + "/empty.db", foreign = dir_ + "/foreign.db";
    std::ofstream(text) << "not a database, but long enough to have a header of one if it were\n";
    std::ofstream(empty).flush();
    unlink(foreign.c_str());
    ASSERT_EQ(subprocess::run({"/usr/bin/sqlite3", foreign, "CREATE TABLE t(x);"}).status, 0)
        << "sqlite3 is missing: scripts/install-deps installs it";
    const struct {
        std::string db;
        std::string message;
    } cases[] = {
        {dir_ + "/none.db", "% no database at " + dir_ + "/none.db (EVPN_SYSDB): load one with evpn_sysdb load\n"},
        {dir_, "is a directory, not a database"},
        {empty, "is an empty file, not a database"},
        {text, "is not an EVPN operational database (not an SQLite file)"},
        {foreign, "is not an EVPN operational database (another SQLite file)"},
    };
    for (const auto &c : cases) {
        unlink((stub + ".log").c_str());
        subprocess::Run r = subprocess::run({EVPN_SHELL_BIN, "-c", "show evpn evi"},
                                            {"EVPN_SYSDB=" + c.db, "EVPN_SHOW_CLIENT=" + stub});
        EXPECT_EQ(r.status, 1) << c.db;
        EXPECT_EQ(r.out, "");
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_EQ(r.err.rfind("% ", 0), 0u) << r.err;
        EXPECT_EQ(read_file(stub + ".log"), "") << "the client ran for " << c.db;
    }
    if (geteuid() != 0) {  // root reads whatever the mode says
        chmod(text.c_str(), 0);
        subprocess::Run r = subprocess::run({EVPN_SHELL_BIN, "-c", "show evpn evi"}, {"EVPN_SYSDB=" + text});
        EXPECT_NE(r.err.find("cannot read the database at " + text + " (EVPN_SYSDB): Permission denied"),
                  std::string::npos)
            << r.err;
    }

    // A view with nothing in it: said, and the client's own output and status
    // follow unchanged.
    const subprocess::Run want = subprocess::run({EVPN_CLIENT_BIN, "-U", "standby", "7"}, {"EVPN_SYSDB=" + db_});
    subprocess::Run r = shell({"-c", "show evpn summary standby"});
    EXPECT_EQ(r.out, want.out);
    EXPECT_EQ(r.status, want.status);
    EXPECT_EQ(r.err, "% " + db_ + " (EVPN_SYSDB) holds nothing for the standby view (/oper/evpn/gl/stdby/): "
                     "load a snapshot with evpn_sysdb load that has it\n");
}

// The JSON view is the database tool's listing of the same show command,
// whichever way it is asked for, and jq reads it.
TEST_F(ShellProgram, JsonViewListsWhatTheDumpListsAndJqReadsIt) {
    const subprocess::Run dump = subprocess::run({EVPN_SYSDB_BIN, "dump", "--db", db_, "-M", "64", "0"});
    ASSERT_EQ(dump.status, 0) << dump.err;
    ASSERT_NE(dump.out, "");
    const std::vector<std::string> env{"EVPN_SYSDB_TOOL=" EVPN_SYSDB_BIN};
    EXPECT_EQ(shell({"-c", "show evpn evi 100 mac json"}, env).out, dump.out);
    EXPECT_EQ(shell({"-c", "show evpn evi 100 mac | json"}, env).out, dump.out);
    // Found beside the shell in the build tree without the variable.
    EXPECT_EQ(shell({"-c", "show evpn evi 100 mac json"}).out, dump.out);
    EXPECT_EQ(shell({"-c", "show evpn evi 100 mac json | count"}).out,
              "Count: " + std::to_string(std::count(dump.out.begin(), dump.out.end(), '\n')) + "\n");

    ASSERT_EQ(access("/usr/bin/jq", X_OK), 0) << "jq is missing: scripts/install-deps --tests installs it";
    subprocess::Run jq = subprocess::run(
        {"/bin/sh", "-c", "\"$0\" -c 'show evpn evi mac | json' | /usr/bin/jq -e -s 'length > 0 and all(.record)'",
         EVPN_SHELL_BIN},
        {"EVPN_SYSDB=" + db_});
    EXPECT_EQ(jq.status, 0) << jq.err;
    EXPECT_EQ(jq.out, "true\n");
}

// Lines of a script: CRLF endings run, control bytes of a bad line are shown
// escaped with the marker under the word as shown, and several -c run in order.
TEST_F(ShellProgram, ScriptLinesRunWithCrlfAndShowControlBytesEscaped) {
    const std::string stub = stub_client();
    const std::vector<std::string> env{"EVPN_SHOW_CLIENT=" + stub};
    subprocess::Run r =
        shell_stdin("show evpn group 31\r\nshow evpn \x1b]0;owned\x07\x1b[2J\x9b\r\nshow evpn client\r\n", env);
    EXPECT_EQ(read_file(stub + ".log"), "[-g][1f][f]\n[e]\n");
    EXPECT_EQ(r.err,
              "show evpn ^[]0;owned^G^[[2J\\x9b\n"
              "          ^\n"
              "% Invalid input detected at '^' marker.\n"
              "% Expected one of: client ethernet-segment evi group grouping-es-map internal-id label "
              "remote-shg route-distinguisher srv6 summary tunnel-endpoint\n");
    // The marker stands under the shown word, past the escapes before it.
    r = shell({"-c", "show evpn evi bridge-domain a\x1b[1m mc"}, env);
    EXPECT_NE(r.err.find("show evpn evi bridge-domain a^[[1m mc\n" + std::string(35, ' ') + "^\n"), std::string::npos)
        << r.err;

    unlink((stub + ".log").c_str());
    r = shell({"-c", "show evpn client", "-c", "show evpn evi 7", "-c", "exit", "-c", "show evpn srv6"}, env);
    EXPECT_EQ(read_file(stub + ".log"), "[e]\n[-M][7][5]\n");
    EXPECT_EQ(r.status, 3);
}

// The longest names the shell lets through reach the client whole: its path
// has exactly the 255 characters it keeps.
TEST_F(ShellProgram, LongestAcceptedNamesFitTheClientsPath) {
    const struct {
        std::string words;
        std::string name;
    } cases[] = {
        {"show evpn ethernet-segment vfi ", std::string(234, 'v')},
        {"show evpn evi mac ip 2001:db8::1 bridge-domain ", std::string(140, 'b')},
        {"show evpn evi inclusive-multicast ethernet-tag 4294967295 originating-ip 2001:db8::1 bridge-domain ",
         std::string(146, 'b')},
        {"show evpn evi ead esi 1.2.3.4.5 bridge-domain ", std::string(178, 'b')},
    };
    for (const auto &c : cases) {
        subprocess::Run line = shell({"-n", "-c", c.words + c.name});
        ASSERT_EQ(line.status, 0) << line.err;
        std::vector<std::string> client = split(line.out);
        client[0] = EVPN_CLIENT_BIN;
        subprocess::Run r = subprocess::run(client, {"EVPN_SYSDB=" + db_, "EVPN_DEBUG=80001"});
        const size_t at = r.err.find(c.name);
        ASSERT_NE(at, std::string::npos) << r.err;
        const size_t start = r.err.rfind(' ', at) + 1, end = r.err.find('\n', at);
        EXPECT_EQ(end - start, 255u) << r.err.substr(start, end - start);
        EXPECT_EQ(shell({"-n", "-c", c.words + c.name + "x"}).status, 1);
    }
}

// The pager is less with its shell escapes off; output that fits the screen
// is printed, not paged; "terminal length" sets where paging starts.
TEST_F(ShellProgram, PagerIsLessWithoutShellEscapesAndOnlyForLongOutput) {
    ASSERT_EQ(system("command -v less >/dev/null"), 0) << "less is missing: scripts/install-deps installs it";
    unsetenv("PAGER");
    const std::vector<std::string> env{"EVPN_SYSDB=" + db_, "TERM=vt100", "INPUTRC=/dev/null", "HOME=" + dir_,
                                       "LESS=", "LESSHISTFILE=-"};
    Terminal t({EVPN_SHELL_BIN}, env, 10);
    ASSERT_TRUE(t.started());
    ASSERT_NE(t.expect("evpn# "), "");

    // One screen: printed, the prompt back without a key.
    t.type("show evpn evi\r");
    EXPECT_NE(t.expect("300        SRv6"), "");
    ASSERT_NE(t.expect("evpn# "), "");

    // Longer: less, whose "!" does nothing.
    t.type("show evpn evi detail\r");
    ASSERT_NE(t.expect("Description"), "");
    t.type("!");
    EXPECT_NE(t.expect("Command not available"), "") << "the pager offers shell escapes";
    t.type("\r");
    t.type("q");
    ASSERT_NE(t.expect("evpn# "), "");

    // terminal length 0: never paged; a length above the output: not paged.
    for (const char *length : {"0", "500"}) {
        t.type(std::string("terminal length ") + length + "\r");
        ASSERT_NE(t.expect("evpn# "), "");
        t.type("show evpn evi detail | count\r");
        ASSERT_NE(t.expect("Count: "), "");
        t.type("show evpn evi detail\r");
        EXPECT_NE(t.expect("RT Auto  : 65000:100"), "") << length;
        const std::string rest = t.expect("evpn# ");
        EXPECT_NE(rest, "") << "waited for a key with terminal length " << length;
    }
    t.type("exit\r");
    EXPECT_EQ(t.wait(), 0);
}

// EVPN_SHELL_PAGER goes before PAGER; set and empty, it means no pager.
TEST_F(ShellProgram, ShellPagerVariableOverridesPager) {
    for (const char *shell_pager : {"EVPN_SHELL_PAGER=sed s/^/own:/", "EVPN_SHELL_PAGER="}) {
        Terminal t({EVPN_SHELL_BIN},
                   {"EVPN_SYSDB=" + db_, "TERM=dumb", "INPUTRC=/dev/null", "HOME=" + dir_, "PAGER=sed s/^/paged:/",
                    shell_pager},
                   4);
        ASSERT_TRUE(t.started());
        ASSERT_NE(t.expect("evpn# "), "");
        t.type("show evpn evi\r");
        const std::string shown = t.expect("400        MPLSoUDP");
        EXPECT_EQ(shown.find("paged:"), std::string::npos) << shown;
        EXPECT_EQ(shown.find("own:") != std::string::npos, shell_pager[17] != '\0') << shown;
        ASSERT_NE(t.expect("evpn# "), "");
        t.type("exit\r");
        EXPECT_EQ(t.wait(), 0);
    }
}

}  // namespace
