// The shell as a program: its -c form prints what the client prints for the
// same options, it runs the client only for commands it understood, its
// manual page renders cleanly, and it works interactively on a terminal.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

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
        EXPECT_NE(r.out.find(evpn_shell::command_synopsis(c.path)), std::string::npos) << c.path;
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

}  // namespace
