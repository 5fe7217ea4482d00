// Platform printers of shared records: event histories and diagnostic
// counters. Every field is bounded at its column so that the layout holds for
// any record the codec can produce.
#include "platform/printers.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>

#include "platform/formatters.h"

namespace {

// ---- Event history -----------------------------------------------------------

constexpr int kTitleMax = 60;      // title text kept on the title line
constexpr int kInfoClassMax = 36;  // info class kept on the title line: 60 + 2 + 36 + 1 = 99
constexpr int kClassMax = 60;
constexpr int kTimeWidth = 20;
constexpr int kNameWidth = 28;
// Column where the data words start: indent, time, name and the two flags.
constexpr int kDataColumn = 4 + kTimeWidth + 1 + kNameWidth + 1 + 2;
constexpr int kMaxColumns = 99;    // lines stay under 100 columns

const char *text_or_empty(const char *s) { return s ? s : ""; }

const char *events_word(uint32_t n) { return n == 1 ? "event" : "events"; }

// One row: time, name, M/S flags, then every data word, wrapped under the
// first word when the next one would pass kMaxColumns.
void print_evt_entry(const evt_hist_entry_bag &e) {
    printf("    %-*.*s %-*.*s %c%c", kTimeWidth, kTimeWidth, text_or_empty(e.evt_timestamp),
           kNameWidth, kNameWidth, text_or_empty(e.evt_name), e.evt_many ? 'M' : '-',
           e.evt_sticky ? 'S' : '-');
    uint32_t words = e.evt_data.data ? e.evt_data.count : 0;
    int column = kDataColumn;
    for (uint32_t i = 0; i < words; i++) {
        char word[16];
        int len = snprintf(word, sizeof word, " 0x%x", e.evt_data.data[i]);
        if (column + len > kMaxColumns) {
            printf("\n%*s", kDataColumn, "");
            column = kDataColumn;
        }
        fputs(word, stdout);
        column += len;
    }
    putchar('\n');
}

// ---- Diagnostic counters -----------------------------------------------------

// Count in exactly 4 columns or fewer: exact up to 9999, then whole thousands,
// millions or billions with a k, M or G suffix (rounded down).
void format_count(uint32_t v, char (&out)[8]) {
    if (v <= 9999)
        snprintf(out, sizeof out, "%" PRIu32, v);
    else if (v < 1000000)
        snprintf(out, sizeof out, "%" PRIu32 "k", v / 1000);
    else if (v < 1000000000)
        snprintf(out, sizeof out, "%" PRIu32 "M", v / 1000000);
    else
        snprintf(out, sizeof out, "%" PRIu32 "G", v / 1000000000);
}

// The last time through the platform's time text.
void format_last_time(const l2vpn_timespec_bag &t, char (&out)[32]) {
    l2vpn_timespec_string(&t, out, sizeof out);
}

// Last argument in exactly 8 columns or fewer: "0x%x" up to 0xffffff, the
// eight bare hex digits above it (with the prefix they would take 10).
void format_last_arg(uint32_t v, char (&out)[16]) {
    if (v <= 0xFFFFFF)
        snprintf(out, sizeof out, "0x%" PRIx32, v);
    else
        snprintf(out, sizeof out, "%08" PRIx32, v);
}

// Words of l2vpn_sync_hasi_object::state.
constexpr const char *kHasiStates[] = {"Init", "Syncing", "Synced", "Stale"};

}  // namespace

void l2vpn_timespec_string(const l2vpn_timespec_bag *time, char *buf, size_t size) {
    if (buf == nullptr || size == 0)
        return;
    if (time == nullptr || (time->tv_sec == 0 && time->tv_nsec == 0)) {
        const size_t n = size - 1 < 5 ? size - 1 : 5;
        memcpy(buf, "never", n);
        buf[n] = '\0';
        return;
    }
    // Nanoseconds of a second or more carry into the seconds. The whole text
    // is made first, so that a short buffer gets its start.
    time_t secs =
        static_cast<time_t>(time->tv_sec) + static_cast<time_t>(time->tv_nsec / 1000000000u);
    unsigned ms = (time->tv_nsec % 1000000000u) / 1000000u;
    char text[32];
    size_t n = l2vpn_month_day_time(secs, ms, 3, text);
    if (n == 0) text[n++] = '?';
    n = n < size - 1 ? n : size - 1;
    memcpy(buf, text, n);
    buf[n] = '\0';
}

void l2vpn_sync_print_hasi_object(const l2vpn_sync_hasi_object *object, int level) {
    if (object == nullptr)
        return;
    const char *state =
        object->state < std::size(kHasiStates) ? kHasiStates[object->state] : "Unknown";
    printf("HA sync object 0x%" PRIx32 ": %s\n", object->object_id, state);
    if (level >= 1)
        printf("    Flags 0x%" PRIx32 ", local sequence %" PRIu64 ", peer sequence %" PRIu64 "\n",
               object->flags, object->local_seq, object->peer_seq);
}

void infra_db_print_evt_hist_bag(const evt_hist_bag *history, const evt_hist_bag *info,
                                 const char *title) {
    printf("\n%.*s", kTitleMax, title ? title : "Event history");
    const char *info_class = info ? text_or_empty(info->evt_class_name) : "";
    if (info_class[0] != '\0')
        printf(" (%.*s)", kInfoClassMax, info_class);
    putchar('\n');

    uint32_t n = history && history->evt_entry.data ? history->evt_entry.count : 0;
    if (n == 0) {
        printf("    No events\n");
        return;
    }
    const char *cls = text_or_empty(history->evt_class_name);
    if (cls[0] != '\0')
        printf("    Class: %.*s, %" PRIu32 " %s\n", kClassMax, cls, n, events_word(n));
    else
        printf("    %" PRIu32 " %s\n", n, events_word(n));
    for (uint32_t i = 0; i < n; i++)
        print_evt_entry(history->evt_entry.data[i]);
}

void l2vpn_diag_stats_print_bag(const l2vpn_diag_stats_bag *stats) {
    if (stats == nullptr)
        return;
    char count[8];
    char when[32];
    char arg[16];
    format_count(stats->count, count);
    format_last_time(stats->last_time, when);
    format_last_arg(stats->last_arg, arg);
    printf("%4s %-18s %8s", count, when, arg);
}
