// Platform printers of records that many displays share. Both write to
// standard output with printf; docs/platform.md shows their exact layout.
#pragma once
#include <cstddef>

#include "platform/bag_types.h"

// Prints an event history under a title: a block that begins with a line end
// (so it starts on a fresh line wherever the caller left off) and whose every
// line ends with one. The title line names info's class, when it has one; the
// history's entries follow one to a row. Null records print as empty ones; no
// line is longer than 99 columns.
void infra_db_print_evt_hist_bag(const evt_hist_bag *history, const evt_hist_bag *info,
                                 const char *title);

// Prints one diagnostic counter on the current line, without a line end, in
// the columns of the header "%4s %-18s %8s": count, last time (UTC,
// "MM/DD HH:MM:SS.mmm", or "never") and last argument. Null prints nothing.
void l2vpn_diag_stats_print_bag(const l2vpn_diag_stats_bag *stats);

// Writes a time of day into buf (size bytes, 20 is enough): "MM/DD
// HH:MM:SS.mmm" in UTC, nanoseconds of a second or more carrying into the
// seconds; "never" for a zero time or null. Cut to size - 1 characters.
void l2vpn_timespec_string(const l2vpn_timespec_bag *time, char *buf, size_t size);

// Prints a high-availability synchronization object: a line with its ID and
// state word ("Unknown" past the table); with level 1 or more a second line
// with its flags and sequence numbers. Null prints nothing.
void l2vpn_sync_print_hasi_object(const l2vpn_sync_hasi_object *object, int level);
