// Programs under test run as child processes. The environment is the test's
// own less every EVPN_* variable, plus the given "NAME=value" entries; it is
// built before the spawn, so threads may run programs side by side.
#pragma once
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

extern char **environ;

namespace subprocess {

struct Run {
    int status = -1;  // exit status, or 128 + signal
    std::string out, err;
};

struct Argv {
    std::vector<std::string> args, env;
    std::vector<char *> argv, envp;
    Argv(std::vector<std::string> a, std::vector<std::string> e) : args(std::move(a)), env(std::move(e)) {
        for (char **v = environ; *v; v++)
            if (strncmp(*v, "EVPN_", 5) != 0) env.emplace_back(*v);
        for (std::string &s : args) argv.push_back(s.data());
        for (std::string &s : env) envp.push_back(s.data());
        argv.push_back(nullptr);
        envp.push_back(nullptr);
    }
};

inline int wait_for(pid_t pid) {
    int ws = 0;
    if (pid <= 0 || waitpid(pid, &ws, 0) != pid) return -1;
    return WIFEXITED(ws) ? WEXITSTATUS(ws) : 128 + WTERMSIG(ws);
}

// Starts a program with its output thrown away; for tests that kill it.
inline pid_t start(const std::vector<std::string> &args, const std::vector<std::string> &env = {}) {
    Argv a(args, env);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&fa, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    if (posix_spawn(&pid, a.argv[0], &fa, nullptr, a.argv.data(), a.envp.data()) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&fa);
    return pid;
}

// Runs a program to its end and returns what it printed on each stream.
inline Run run(const std::vector<std::string> &args, const std::vector<std::string> &env = {}) {
    Argv a(args, env);
    Run r;
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0) return r;
    if (pipe2(err, O_CLOEXEC) != 0) {
        close(out[0]);
        close(out[1]);
        return r;
    }
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, out[1], 1);
    posix_spawn_file_actions_adddup2(&fa, err[1], 2);
    pid_t pid = -1;
    if (posix_spawn(&pid, a.argv[0], &fa, nullptr, a.argv.data(), a.envp.data()) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&fa);
    close(out[1]);
    close(err[1]);
    struct pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    std::string *sink[2] = {&r.out, &r.err};
    char buf[65536];
    for (int open_fds = 2; open_fds > 0;) {
        if (poll(fds, 2, -1) < 0) break;
        for (int i = 0; i < 2; i++) {
            if (fds[i].fd < 0 || !fds[i].revents) continue;
            ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n > 0) {
                sink[i]->append(buf, static_cast<size_t>(n));
            } else if (n < 0 && errno == EINTR) {
                continue;
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                open_fds--;
            }
        }
    }
    for (auto &f : fds)
        if (f.fd >= 0) close(f.fd);
    r.status = wait_for(pid);
    return r;
}

}  // namespace subprocess
