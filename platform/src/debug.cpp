// Debug facility: a process-wide enabled mask (from EVPN_DEBUG) and one-line
// messages on standard error.
#include "platform/debug.h"

#include "platform/formatters.h"

#include <cstdio>
#include <cstdlib>

namespace {
uint64_t g_enabled;
int g_ctx;  // the context is opaque; its address is what callers hand back
}  // namespace

uint32_t l2vpn_debug_init(event_manager_s *) {
    const char *env = getenv("EVPN_DEBUG");
    g_enabled = 0;
    if (env && *env) {
        char *end = nullptr;
        unsigned long long v = strtoull(env, &end, 16);
        if (end && *end == '\0') g_enabled = v;
    }
    return 0;
}

uint64_t l2vpn_debug_get_enabled_bitset(void) { return g_enabled; }
void l2vpn_debug_set_enabled_bitset(uint64_t mask) { g_enabled = mask; }
void *l2vpn_debug_get_ctx(void) { return &g_ctx; }

void l2vpn_vdbgf_v(void *, uint64_t mask, const char *function, int line, const char *format,
                   va_list ap) {
    if (!(g_enabled & mask)) return;
    // Traces carry item names and command-line values: shown as the reports
    // show database text, so none can steer the terminal.
    char msg[1024], shown[1024];
    const int n = vsnprintf(msg, sizeof msg, format, ap);
    const size_t len = n < 0 ? 0 : static_cast<size_t>(n) < sizeof msg ? static_cast<size_t>(n) : sizeof msg - 1;
    display_safe_text(msg, len, shown, sizeof shown);
    fprintf(stderr, "%s:%d: %s\n", function ? function : "?", line, shown);
}

void l2vpn_vdbgf(void *ctx, uint64_t mask, const char *function, int line, const char *format,
                 ...) {
    va_list ap;
    va_start(ap, format);
    l2vpn_vdbgf_v(ctx, mask, function, line, format, ap);
    va_end(ap);
}
