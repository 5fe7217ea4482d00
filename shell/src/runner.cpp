#include "runner.h"

#include <fcntl.h>
#include <regex.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern char **environ;

namespace evpn_shell {

std::string client_path() {
    if (const char *env = getenv("EVPN_SHOW_CLIENT"); env && *env) return env;
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    std::string dir = ".";
    if (n > 0) {
        std::string path(self, static_cast<size_t>(n));
        size_t slash = path.rfind('/');
        if (slash != std::string::npos) dir = path.substr(0, slash);
    }
    return dir + "/evpn_show_client";
}

int run_client(const std::string &program, const std::vector<std::string> &args, std::string *captured) {
    std::vector<std::string> argv_text{program};
    argv_text.insert(argv_text.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (std::string &s : argv_text) argv.push_back(s.data());
    argv.push_back(nullptr);

    int out[2] = {-1, -1};
    if (captured && pipe2(out, O_CLOEXEC) != 0) return 127;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (captured) posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    // The shell ignores SIGPIPE (a pager may quit early); the client gets the default.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGINT);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF);

    fflush(stdout);
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, argv[0], &actions, &attr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    if (captured) close(out[1]);
    if (rc != 0) {
        if (captured) close(out[0]);
        fprintf(stderr, "%% Cannot run %s: %s\n", program.c_str(), strerror(rc));
        return 127;
    }
    if (captured) {
        char buf[65536];
        for (;;) {
            ssize_t n = read(out[0], buf, sizeof buf);
            if (n > 0) captured->append(buf, static_cast<size_t>(n));
            else if (n == 0 || errno != EINTR) break;
        }
        close(out[0]);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return 127;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string apply_pipes(const std::string &output, const std::vector<Pipe> &pipes) {
    std::string text = output;
    for (const Pipe &p : pipes) {
        std::string kept;
        size_t lines = 0;
        regex_t re;
        const bool has_regex = p.kind != PipeKind::Count;
        if (has_regex && regcomp(&re, p.regex.c_str(), REG_EXTENDED | REG_NOSUB) != 0) return "";
        for (size_t start = 0; start < text.size();) {
            size_t end = text.find('\n', start);
            const size_t next = end == std::string::npos ? text.size() : end + 1;
            if (end == std::string::npos) end = text.size();
            if (p.kind == PipeKind::Count) {
                lines++;
            } else {
                const std::string line = text.substr(start, end - start);
                const bool match = regexec(&re, line.c_str(), 0, nullptr, 0) == 0;
                if (match == (p.kind == PipeKind::Include)) kept.append(text, start, next - start);
            }
            start = next;
        }
        if (has_regex) regfree(&re);
        text = p.kind == PipeKind::Count ? "Count: " + std::to_string(lines) + "\n" : kept;
    }
    return text;
}

void write_paged(const std::string &text) {
    struct winsize ws {};
    const size_t lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    const char *pager = getenv("PAGER");
    if (!pager) pager = "more";
    if (*pager && isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_row > 0 &&
        lines >= ws.ws_row) {
        fflush(stdout);
        if (FILE *p = popen(pager, "w")) {
            fwrite(text.data(), 1, text.size(), p);
            pclose(p);
            return;
        }
    }
    fwrite(text.data(), 1, text.size(), stdout);
    fflush(stdout);
}

std::string command_line(const std::string &program, const std::vector<std::string> &args) {
    std::string line = program;
    for (const std::string &a : args) line += " " + a;
    return line;
}

}  // namespace evpn_shell
