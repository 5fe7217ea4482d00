// Process infrastructure: logging, event manager, named allocators, bounded
// strings, option parsing and the fatal start-up report.
#pragma once
#include <cstddef>
#include <cstdint>

// Bounded-string library logger: violations are reported through it.
typedef void (*safe_logger_fn)(const char *message);
void l2vpn_safe_logger_stderr(const char *message);
void safe_init_logger(int enable, safe_logger_fn logger);

// System log: opens syslog with the given identity, options and facility.
void vel_openlog(const char *ident, uint32_t options, int facility);

// Event manager: one per process; signals attached to it run their action.
struct event_manager_s;
typedef event_manager_s *event_manager_handle_t;
typedef void (*event_signal_fn)(int signo, void *arg);
event_manager_handle_t event_manager_create(int a, int b, int c, int d);
int event_signal_attach(event_manager_handle_t em, int signo, event_signal_fn fn, void *arg);
// Tests: make the next event_manager_create / event_signal_attach fail
// (also set by EVPN_FAIL=event_manager_create / event_signal_attach).
void event_manager_fail_next(bool create, bool attach);

// Named allocators; release with free().
void *malloc_named(size_t size, const char *label);
void *calloc_named(size_t count, size_t size, const char *label);
// Tests: the next allocations with this label fail (EVPN_FAIL=alloc:<label>).
void malloc_named_fail_label(const char *label);

// Bounded strings. Each returns 0 on success, non-zero (an errno value) on a
// constraint violation, which is also reported through the logger.
int strcmp_s(const char *s1, size_t s1max, const char *s2, int *result);
int strcpy_s(char *dest, size_t dmax, const char *src);
int memcpy_s(void *dest, size_t dmax, const void *src, size_t n);
int smemzero_s(void *dest, size_t dmax);

// POSIX getopt over the argument vector; optarg is the platform's.
extern char *l2vpn_optarg;
extern int l2vpn_optind;
int _getopt(int argc, char *const argv[], const char *optstring);

// Fatal start-up report.
struct tarn_msg_rec_s;
const tarn_msg_rec_s *tarn_msg_rec_l2vpn_init_err_getfn(void);
void tarn_errmsg(const tarn_msg_rec_s *rec, int severity, const char *component,
                 const char *step, const char *text);
