#include "runner.h"

#include <fcntl.h>
#include <poll.h>
#include <re2/re2.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "display.h"

extern char **environ;

namespace evpn_shell {

namespace {

constexpr size_t kChunk = 64 * 1024;  // one read from the program, one write out
// A line longer than this (the client prints none) is passed through the
// stages in pieces of this size, which bounds the time a match may take.
constexpr size_t kMaxLine = 16 * 1024;

std::string own_dir() {
    char self[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return ".";
    std::string path(self, static_cast<size_t>(n));
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

bool executable(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0;
}

bool on_path(const char *program) {
    const char *path = getenv("PATH");
    std::string dirs = path ? path : "/usr/bin:/bin";
    for (size_t start = 0; start <= dirs.size();) {
        size_t end = dirs.find(':', start);
        if (end == std::string::npos) end = dirs.size();
        const std::string dir = end > start ? dirs.substr(start, end - start) : ".";
        if (executable(dir + "/" + program)) return true;
        start = end + 1;
    }
    return false;
}

volatile sig_atomic_t g_interrupted = 0;
void on_sigint(int) { g_interrupted = 1; }

// The signal mask of a run: SIGINT blocked except while the shell waits, so
// that an interrupt is seen at a wait and never lost between two.
struct SignalGuard {
    struct sigaction old_action {};
    sigset_t old_mask{}, waiting{};
    SignalGuard() {
        g_interrupted = 0;
        struct sigaction sa {};
        sa.sa_handler = on_sigint;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = 0;  // no SA_RESTART: a wait ends with EINTR
        sigaction(SIGINT, &sa, &old_action);
        sigset_t block;
        sigemptyset(&block);
        sigaddset(&block, SIGINT);
        sigprocmask(SIG_BLOCK, &block, &old_mask);
        waiting = old_mask;
        sigdelset(&waiting, SIGINT);
    }
    ~SignalGuard() {
        sigprocmask(SIG_SETMASK, &old_mask, nullptr);
        sigaction(SIGINT, &old_action, nullptr);
    }
};

// Writes all of text to fd; 0, EINTR when interrupted, or the write's errno.
int write_all(int fd, const char *p, size_t n, const sigset_t &waiting) {
    while (n > 0) {
        sigset_t saved;
        sigprocmask(SIG_SETMASK, &waiting, &saved);
        ssize_t w = g_interrupted ? -1 : write(fd, p, n);
        const int e = g_interrupted ? EINTR : errno;
        sigprocmask(SIG_SETMASK, &saved, nullptr);
        if (w > 0) {
            p += w;
            n -= static_cast<size_t>(w);
        } else if (w < 0 && e == EINTR) {
            if (g_interrupted) return EINTR;
        } else {
            return w < 0 ? e : EIO;
        }
    }
    return 0;
}

pid_t spawn(const std::vector<std::string> &argv_text, const std::vector<std::string> &extra_env, int in_fd,
            int out_fd, const sigset_t &mask, int &error) {
    std::vector<char *> argv;
    for (const std::string &s : argv_text) argv.push_back(const_cast<char *>(s.c_str()));
    argv.push_back(nullptr);
    std::vector<char *> envp;
    for (const std::string &e : extra_env) envp.push_back(const_cast<char *>(e.c_str()));
    for (char **v = environ; *v; v++) {
        bool replaced = false;
        for (const std::string &e : extra_env)
            replaced |= strncmp(*v, e.c_str(), e.find('=') + 1) == 0;
        if (!replaced) envp.push_back(*v);
    }
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (in_fd >= 0) posix_spawn_file_actions_adddup2(&actions, in_fd, STDIN_FILENO);
    if (out_fd >= 0) posix_spawn_file_actions_adddup2(&actions, out_fd, STDOUT_FILENO);
    // The shell ignores SIGPIPE and catches SIGINT; the child gets the defaults
    // and the mask the shell had before the run.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGINT);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setsigmask(&attr, &mask);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    pid_t pid = -1;
    error = posix_spawn(&pid, argv[0], &actions, &attr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    return error == 0 ? pid : -1;
}

int wait_status(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return 127;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Where shown text goes: standard output, or the pager once the output has
// more lines than target.page_after. Until then the lines are held, so that a
// short answer never starts the pager.
class Output : public LineSink {
public:
    Output(const OutputTarget &target, const sigset_t &waiting, const sigset_t &child_mask)
        : target_(target), waiting_(waiting), child_mask_(child_mask),
          holding_(target.page_after > 0 && !target.pager.empty()) {
        buf_.reserve(2 * kChunk);
    }

    bool put(std::string_view text) override {
        if (quit_) return false;
        if (holding_) {
            held_.append(text);
            lines_ += static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
            if (lines_ > target_.page_after) start_pager();
            return true;
        }
        buf_.append(text);
        return buf_.size() < kChunk || flush();
    }

    // Writes what is buffered; false once output cannot go on.
    bool flush() {
        if (quit_) return false;
        if (buf_.empty()) return true;
        const int e = write_all(fd_, buf_.data(), buf_.size(), waiting_);
        buf_.clear();
        if (e == 0) return true;
        if (e == EINTR) end_ = RunResult::Interrupted;
        else if (e == EPIPE) end_ = pager_ > 0 ? RunResult::Done : RunResult::ReaderGone;
        else end_ = RunResult::WriteFailed, errno_ = e;
        quit_ = true;
        return false;
    }

    // The output is complete: what is held goes out, the pager is waited for.
    void finish() {
        if (holding_) {
            holding_ = false;
            buf_.swap(held_);
        }
        flush();
        close_pager();
    }

    // Drops what has not been written yet.
    void abandon() {
        buf_.clear();
        held_.clear();
        close_pager();
    }

    // The pager was quit, or the output failed: the program's output is not wanted.
    bool quit() const { return quit_; }
    RunResult::End end() const { return end_; }
    int write_errno() const { return errno_; }
    void interrupted() { end_ = RunResult::Interrupted; }

private:
    void start_pager() {
        holding_ = false;
        buf_.swap(held_);
        held_.clear();
        held_.shrink_to_fit();
        int pipe_fds[2];
        if (pipe2(pipe_fds, O_CLOEXEC) != 0) return;
        fflush(stdout);
        int error = 0;
        // LESSSECURE turns off less's shell escapes, editor and log files.
        pager_ = spawn({"/bin/sh", "-c", target_.pager}, {"LESSSECURE=1"}, pipe_fds[0], -1, child_mask_, error);
        close(pipe_fds[0]);
        if (pager_ < 0) {
            close(pipe_fds[1]);
            return;
        }
        fd_ = pipe_fds[1];
    }

    void close_pager() {
        if (pager_ < 0) return;
        close(fd_);
        fd_ = STDOUT_FILENO;
        wait_status(pager_);
        pager_ = -1;
    }

    const OutputTarget &target_;
    const sigset_t &waiting_, &child_mask_;
    bool holding_;
    bool quit_ = false;
    std::string held_, buf_;
    size_t lines_ = 0;
    int fd_ = STDOUT_FILENO;
    pid_t pager_ = -1;
    RunResult::End end_ = RunResult::Done;
    int errno_ = 0;
};

class StringSink : public LineSink {
public:
    bool put(std::string_view text) override {
        out.append(text);
        return true;
    }
    std::string out;
};

}  // namespace

bool StageChain::matches(size_t stage, std::string_view line) const {
    if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
    return RE2::PartialMatch(re2::StringPiece(line.data(), line.size()), *pipes_[stage].regex);
}

bool StageChain::push(size_t stage, std::string_view line) {
    for (; stage < pipes_.size(); stage++) {
        State &st = state_[stage];
        switch (pipes_[stage].kind) {
        case PipeKind::Include:
            if (!matches(stage, line)) return true;
            break;
        case PipeKind::Exclude:
            if (matches(stage, line)) return true;
            break;
        case PipeKind::Begin:
            if (!st.on && !matches(stage, line)) return true;
            st.on = true;
            break;
        case PipeKind::Section: {
            // A matching line opens a section; lines indented deeper than it
            // (blank lines inside included) belong to it.
            const size_t indent = line.find_first_not_of(" \t");
            const bool blank = indent == std::string_view::npos || line[indent] == '\n';
            if (st.on && blank) {
                st.blank_lines++;
                return true;
            }
            if (!(st.on && indent > st.indent)) {
                st.on = matches(stage, line);
                st.indent = indent;
                st.blank_lines = 0;
                if (!st.on) return true;
            }
            for (; st.blank_lines > 0; st.blank_lines--)
                if (!push(stage + 1, "\n")) return false;
            break;
        }
        case PipeKind::Count:
            st.count++;
            return true;
        case PipeKind::Json: break;
        }
    }
    return sink_.put(line);
}

bool StageChain::finish() {
    for (size_t stage = 0; stage < pipes_.size(); stage++)
        if (pipes_[stage].kind == PipeKind::Count &&
            !push(stage + 1, "Count: " + std::to_string(state_[stage].count) + "\n"))
            return false;
    return true;
}

std::string client_path() {
    if (const char *env = getenv("EVPN_SHOW_CLIENT"); env && *env) return env;
    return own_dir() + "/evpn_show_client";
}

std::string sysdb_tool_path() {
    if (const char *env = getenv("EVPN_SYSDB_TOOL"); env && *env) return env;
    const std::string dir = own_dir();
    const std::string beside = dir + "/evpn_sysdb";
    if (executable(beside)) return beside;
    // A build tree: the shell in <build>/l2vpn/show, the tool in <build>/tools.
    const std::string built = dir + "/../../tools/evpn_sysdb";
    return executable(built) ? built : beside;
}

std::string pager_command() {
    for (const char *name : {"EVPN_SHELL_PAGER", "PAGER"})
        if (const char *env = getenv(name)) return env;
    // -F: one screen is printed, not paged; -X: the screen is left as it is;
    // -K: Ctrl-C quits.
    return on_path("less") ? "less -F -X -K" : "";
}

RunResult run_streamed(const std::string &program, const std::vector<std::string> &args,
                       const std::vector<Pipe> &pipes, const OutputTarget &target) {
    RunResult result;
    SignalGuard signals;
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) {
        result.end = RunResult::NotStarted;
        result.status = 127;
        fprintf(stderr, "%% Cannot run %s: %s\n", terminal_text(program).c_str(), strerror(errno));
        return result;
    }
    std::vector<std::string> argv{program};
    argv.insert(argv.end(), args.begin(), args.end());
    fflush(stdout);
    int error = 0;
    const pid_t pid = spawn(argv, {}, -1, out[1], signals.old_mask, error);
    close(out[1]);
    if (pid < 0) {
        close(out[0]);
        fprintf(stderr, "%% Cannot run %s: %s\n", terminal_text(program).c_str(), strerror(error));
        result.end = RunResult::NotStarted;
        result.status = 127;
        return result;
    }

    Output output(target, signals.waiting, signals.old_mask);
    StageChain chain(pipes, output);
    std::string carry;  // the start of a line whose end has not come yet
    static char buf[kChunk];
    bool ok = true;
    for (;;) {
        struct pollfd p = {out[0], POLLIN, 0};
        if (ppoll(&p, 1, nullptr, &signals.waiting) < 0) {
            if (errno == EINTR && !g_interrupted) continue;
            if (errno != EINTR) ok = false;
            break;
        }
        const ssize_t n = read(out[0], buf, sizeof buf);
        if (n == 0) break;
        if (n < 0) {
            if (errno == EINTR) continue;
            break;
        }
        std::string_view chunk(buf, static_cast<size_t>(n));
        if (pipes.empty()) {
            ok = output.put(chunk);
        } else {
            while (ok && !chunk.empty()) {
                const size_t nl = chunk.find('\n');
                if (nl == std::string_view::npos) {
                    carry.append(chunk);
                    chunk = {};
                    if (carry.size() >= kMaxLine) {
                        ok = chain.line(carry);
                        carry.clear();
                    }
                } else if (!carry.empty()) {
                    carry.append(chunk.substr(0, nl + 1));
                    ok = chain.line(carry);
                    carry.clear();
                    chunk.remove_prefix(nl + 1);
                } else {
                    ok = chain.line(chunk.substr(0, nl + 1));
                    chunk.remove_prefix(nl + 1);
                }
            }
        }
        if (!ok || !output.flush() || g_interrupted) break;
    }
    if (g_interrupted) output.interrupted();
    const bool complete = !g_interrupted && !output.quit() && ok;
    // Closing the pipe ends a program that still writes (SIGPIPE); SIGTERM one
    // that is busy reading.
    close(out[0]);
    if (!complete) kill(pid, SIGTERM);
    result.status = wait_status(pid);
    if (complete) {
        if (!carry.empty()) chain.line(carry);
        if (!pipes.empty()) chain.finish();
        output.finish();
    } else {
        output.abandon();
    }
    if (g_interrupted) output.interrupted();
    // A pager quit before the end stopped the program on the operator's word.
    if (output.quit() && output.end() == RunResult::Done) result.status = 0;
    result.end = output.end();
    result.write_errno = output.write_errno();
    return result;
}

std::string apply_pipes(std::string_view output, const std::vector<Pipe> &pipes) {
    StringSink sink;
    StageChain chain(pipes, sink);
    for (size_t start = 0; start < output.size();) {
        const size_t nl = output.find('\n', start);
        const size_t next = nl == std::string_view::npos ? output.size() : nl + 1;
        chain.line(output.substr(start, next - start));
        start = next;
    }
    chain.finish();
    return sink.out;
}

std::string command_line(const std::string &program, const std::vector<std::string> &args) {
    std::string line = program;
    for (const std::string &a : args) line += " " + a;
    return line;
}

}  // namespace evpn_shell
