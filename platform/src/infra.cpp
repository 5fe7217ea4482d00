// Process infrastructure of the platform: logger, system log, event manager,
// named allocators, bounded strings, option parsing, fatal start-up report.
#include "platform/infra.h"

#include <getopt.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {
safe_logger_fn g_logger;
bool g_fail_create, g_fail_attach;
char g_fail_label[64];

void safe_violation(const char *what) {
    if (g_logger) g_logger(what);
}

bool env_fails(const char *step) {
    // Read once: the show client allocates a record per item it gets.
    static const char *const env = getenv("EVPN_FAIL");
    return env && strcmp(env, step) == 0;
}

struct SignalSlot {
    event_signal_fn fn;
    void *arg;
};
SignalSlot g_slots[65];

void on_signal(int signo) {
    if (signo > 0 && signo < 65 && g_slots[signo].fn) g_slots[signo].fn(signo, g_slots[signo].arg);
}
}  // namespace

struct event_manager_s {
    int id;
};

void l2vpn_safe_logger_stderr(const char *message) {
    fprintf(stderr, "safe string error: %s\n", message);
}
void safe_init_logger(int enable, safe_logger_fn logger) { g_logger = enable ? logger : nullptr; }

void vel_openlog(const char *ident, uint32_t options, int facility) {
    // The option word carries the platform's flags in its high bits; syslog
    // takes the low ones (LOG_PID | LOG_NDELAY). The log's socket is opened
    // when the first message is written, not here: most runs write none,
    // and a short command would pay three system calls for it.
    openlog(ident, static_cast<int>(options & 0xff & ~LOG_NDELAY), facility << 3);
}

event_manager_handle_t event_manager_create(int, int, int, int) {
    if (g_fail_create || env_fails("event_manager_create")) {
        g_fail_create = false;
        errno = ENOMEM;
        return nullptr;
    }
    static event_manager_s em{1};
    return &em;
}

int event_signal_attach(event_manager_handle_t em, int signo, event_signal_fn fn, void *arg) {
    if (g_fail_attach || env_fails("event_signal_attach") || !em || signo <= 0 || signo > 64) {
        g_fail_attach = false;
        return -1;
    }
    g_slots[signo] = {fn, arg};
    struct sigaction sa {};
    sa.sa_handler = on_signal;
    sigemptyset(&sa.sa_mask);
    return sigaction(signo, &sa, nullptr);
}

void event_manager_fail_next(bool create, bool attach) {
    g_fail_create = create;
    g_fail_attach = attach;
}

static bool label_fails(const char *label) {
    if (g_fail_label[0] && label && strcmp(label, g_fail_label) == 0) return true;
    // Read once: the show client allocates a record per item it gets.
    static const char *const env = getenv("EVPN_FAIL");
    return env && label && strncmp(env, "alloc:", 6) == 0 && strcmp(env + 6, label) == 0;
}

void *malloc_named(size_t size, const char *label) {
    if (label_fails(label)) return nullptr;
    return malloc(size ? size : 1);
}
void *calloc_named(size_t count, size_t size, const char *label) {
    if (label_fails(label)) return nullptr;
    return calloc(count ? count : 1, size ? size : 1);
}
void malloc_named_fail_label(const char *label) {
    snprintf(g_fail_label, sizeof g_fail_label, "%s", label ? label : "");
}

int strcmp_s(const char *s1, size_t s1max, const char *s2, int *result) {
    if (!s1 || !s2 || !result || s1max == 0) {
        safe_violation("strcmp_s: null argument or zero bound");
        return EINVAL;
    }
    *result = 0;
    for (size_t i = 0; i < s1max; i++) {
        unsigned char a = static_cast<unsigned char>(s1[i]);
        unsigned char b = static_cast<unsigned char>(s2[i]);
        if (a != b) {
            *result = a - b;
            return 0;
        }
        if (a == 0) return 0;
    }
    return 0;
}

int strcpy_s(char *dest, size_t dmax, const char *src) {
    if (!dest || !src || dmax == 0) {
        safe_violation("strcpy_s: null argument or zero bound");
        return EINVAL;
    }
    size_t n = strnlen(src, dmax);
    if (n == dmax) {
        dest[0] = '\0';
        safe_violation("strcpy_s: source does not fit");
        return ESPIPE;
    }
    memcpy(dest, src, n + 1);
    return 0;
}

int memcpy_s(void *dest, size_t dmax, const void *src, size_t n) {
    if (!dest || !src) {
        safe_violation("memcpy_s: null argument");
        return EINVAL;
    }
    if (n > dmax) {
        safe_violation("memcpy_s: source larger than destination");
        return ESPIPE;
    }
    memmove(dest, src, n);
    return 0;
}

int smemzero_s(void *dest, size_t dmax) {
    if (!dest) {
        safe_violation("smemzero_s: null argument");
        return EINVAL;
    }
    memset(dest, 0, dmax);
    return 0;
}

char *l2vpn_optarg;
int l2vpn_optind = 1;

int _getopt(int argc, char *const argv[], const char *optstring) {
    // The platform does not reorder the argument vector (POSIXLY_CORRECT
    // behaviour) and reports errors only through the returned '?'.
    opterr = 0;
    std::string posix_optstring = std::string("+") + optstring;
    int c = getopt(argc, argv, posix_optstring.c_str());
    l2vpn_optarg = optarg;
    l2vpn_optind = optind;
    return c;
}

struct tarn_msg_rec_s {
    const char *text;
};

const tarn_msg_rec_s *tarn_msg_rec_l2vpn_init_err_getfn(void) {
    static const tarn_msg_rec_s rec{"L2VPN-INIT-ERR: %s: %s failed: %s"};
    return &rec;
}

void tarn_errmsg(const tarn_msg_rec_s *rec, int severity, const char *component, const char *step,
                 const char *text) {
    char line[512];
    snprintf(line, sizeof line, rec ? rec->text : "%s: %s: %s", component ? component : "",
             step ? step : "", text ? text : "");
    fprintf(stderr, "%%%d %s\n", severity, line);
    syslog(LOG_ERR, "%s", line);
}
