#include "progress.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace evpn {

namespace {

constexpr uint64_t kSecond = 1000000000ull;

uint64_t monotonic_ns() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * kSecond + static_cast<uint64_t>(ts.tv_nsec);
}

// "0:07", "12:34", "3:02:05".
void clock_text(char *buf, size_t size, uint64_t seconds) {
    if (seconds >= 3600)
        snprintf(buf, size, "%llu:%02llu:%02llu", static_cast<unsigned long long>(seconds / 3600),
                 static_cast<unsigned long long>(seconds / 60 % 60),
                 static_cast<unsigned long long>(seconds % 60));
    else
        snprintf(buf, size, "%llu:%02llu", static_cast<unsigned long long>(seconds / 60),
                 static_cast<unsigned long long>(seconds % 60));
}

}  // namespace

ProgressMode progress_mode_from_env() {
    const char *v = getenv("EVPN_SYSDB_PROGRESS");
    if (v && strcmp(v, "always") == 0) return ProgressMode::Always;
    if (v && strcmp(v, "never") == 0) return ProgressMode::Never;
    return ProgressMode::Auto;
}

Progress::Progress(const char *verb, ProgressMode mode, int fd, Clock now)
    : verb_(verb), fd_(fd), now_(now ? now : monotonic_ns), next_(kCheckEvery) {
    tty_ = isatty(fd) == 1;
    on_ = mode == ProgressMode::Always || (mode == ProgressMode::Auto && tty_);
    start_ns_ = now_();
    show_from_ns_ = start_ns_ + (mode == ProgressMode::Always ? 0 : kSecond);
}

void Progress::tick(uint64_t done, uint64_t pos) {
    next_ = done + kCheckEvery;
    const uint64_t t = now_();
    // A terminal's line is redrawn five times a second; a log gets a line a second.
    if (t < show_from_ns_ || (drawn_ && t - last_draw_ns_ < (tty_ ? kSecond / 5 : kSecond))) return;
    last_draw_ns_ = t;
    const uint64_t elapsed = t - start_ns_;
    const double seconds = static_cast<double>(elapsed) / kSecond;
    char line[160];
    int n = snprintf(line, sizeof line, "%s%s: %llu records", tty_ ? "\r" : "", verb_,
                     static_cast<unsigned long long>(done));
    if (seconds > 0)
        n += snprintf(line + n, sizeof line - static_cast<size_t>(n), ", %.0f records/s",
                      static_cast<double>(done) / seconds);
    if (total_ && pos > 0 && pos <= total_) {
        const double left = seconds * static_cast<double>(total_ - pos) / static_cast<double>(pos);
        char when[32];
        clock_text(when, sizeof when, static_cast<uint64_t>(left + 0.5));
        n += snprintf(line + n, sizeof line - static_cast<size_t>(n), ", %s left", when);
    }
    n += snprintf(line + n, sizeof line - static_cast<size_t>(n), "%s", tty_ ? "\033[K" : "\n");
    drawn_ = true;
    if (!put(line, n)) on_ = false;
}

void Progress::finish() {
    if (on_ && drawn_ && tty_) put("\r\033[K", 4);
    on_ = false;
}

// A failed write ends the progress display; the job goes on.
bool Progress::put(const char *text, int len) {
    while (len > 0) {
        ssize_t w = write(fd_, text, static_cast<size_t>(len));
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        text += w;
        len -= static_cast<int>(w);
    }
    return true;
}

}  // namespace evpn
