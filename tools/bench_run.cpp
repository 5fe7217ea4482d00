// bench_run: runs one command with its standard output into a pipe that it
// drains and counts, and prints what the run cost, on one line:
//
//   <wall s> <user s> <system s> <peak RSS KiB> <output bytes> <page faults> <exit status>
//
//   bench_run [--timeout SECONDS] COMMAND [ARGS...]
//
// Wall time runs from just before the fork to the child's end, so a figure
// holds the command's own start-up and nothing of a shell or a timer program.
// A command still running at the timeout is killed; its status reads "timeout".
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern char **environ;

namespace {

volatile sig_atomic_t g_child;

void on_alarm(int) {
    if (g_child > 0) kill(g_child, SIGKILL);
}

double seconds(const timeval &t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; }

}  // namespace

int main(int argc, char **argv) {
    int first = 1;
    unsigned timeout = 0;
    if (argc > 2 && strcmp(argv[1], "--timeout") == 0) {
        timeout = static_cast<unsigned>(strtoul(argv[2], nullptr, 10));
        first = 3;
    }
    if (first >= argc) {
        fprintf(stderr, "usage: bench_run [--timeout SECONDS] COMMAND [ARGS...]\n");
        return 2;
    }
    int out[2];
    if (pipe(out) != 0) {
        perror("bench_run: pipe");
        return 2;
    }
    // posix_spawn rather than fork: the parent's pages are not copied, so the
    // figure does not carry this program's own size.
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, out[1], 1);
    posix_spawn_file_actions_addclose(&fa, out[0]);
    posix_spawn_file_actions_addclose(&fa, out[1]);
    timespec t0{}, t1{};
    clock_gettime(CLOCK_MONOTONIC, &t0);
    pid_t pid = -1;
    int rc = posix_spawnp(&pid, argv[first], &fa, nullptr, argv + first, environ);
    posix_spawn_file_actions_destroy(&fa);
    if (rc != 0) {
        fprintf(stderr, "bench_run: %s: %s\n", argv[first], strerror(rc));
        return 2;
    }
    close(out[1]);
    g_child = pid;
    if (timeout) {
        struct sigaction sa {};
        sa.sa_handler = on_alarm;
        sigaction(SIGALRM, &sa, nullptr);
        alarm(timeout);
    }
    static char buf[1 << 16];
    unsigned long long bytes = 0;
    for (;;) {
        ssize_t n = read(out[0], buf, sizeof buf);
        if (n > 0) {
            bytes += static_cast<unsigned long long>(n);
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else {
            break;
        }
    }
    int ws = 0;
    rusage ru{};
    while (wait4(pid, &ws, 0, &ru) < 0 && errno == EINTR) {
    }
    clock_gettime(CLOCK_MONOTONIC, &t1);
    alarm(0);
    double wall = static_cast<double>(t1.tv_sec - t0.tv_sec) + (t1.tv_nsec - t0.tv_nsec) / 1e9;
    char status[16];
    if (WIFSIGNALED(ws) && WTERMSIG(ws) == SIGKILL && timeout)
        snprintf(status, sizeof status, "timeout");
    else
        snprintf(status, sizeof status, "%d", WIFEXITED(ws) ? WEXITSTATUS(ws) : 128 + WTERMSIG(ws));
    printf("%.6f %.6f %.6f %ld %llu %ld %s\n", wall, seconds(ru.ru_utime), seconds(ru.ru_stime),
           ru.ru_maxrss, bytes, ru.ru_minflt + ru.ru_majflt, status);
    return 0;
}
