// Debug facility: masked traces on standard error, never on standard output.
#pragma once
#include <cstdarg>
#include <cstdint>

struct event_manager_s;

// Reads the enabled mask from EVPN_DEBUG (hexadecimal, "0x" optional). 0 on success.
uint32_t l2vpn_debug_init(event_manager_s *em);
uint64_t l2vpn_debug_get_enabled_bitset(void);
void *l2vpn_debug_get_ctx(void);
// Writes "function:line: message\n" on standard error when a bit of mask is enabled.
void l2vpn_vdbgf(void *ctx, uint64_t mask, const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 5, 6)));
void l2vpn_vdbgf_v(void *ctx, uint64_t mask, const char *function, int line, const char *format,
                   va_list ap);

// Tests: set the mask without the environment.
void l2vpn_debug_set_enabled_bitset(uint64_t mask);
