// SQLite set up for a process that runs one show command and exits: the
// settings that make a short run's start cheap, each measured against the
// start of a static do-nothing program (docs/decisions.md, start-up).
#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "db_internal.h"
#include "platform/sysdb.h"

namespace {

// SQLite's heap, counted here rather than by SQLite's own statistics: those
// take a mutex and update several counters on every allocation (a tenth of
// a short run's instructions). Each block carries its size in front.
constexpr size_t kHeader = 8;  // SQLite needs 8-byte alignment, no more
sqlite3_int64 g_heap_used;

// Small blocks (most of what a schema parse and a statement compile ask
// for) come from per-size free lists carved from chunks of malloc's heap:
// a push or a pop instead of a general allocator's search. A freed block
// goes back to its size's list, so a long walk reuses blocks and grows
// nothing. Under AddressSanitizer every block is malloc's own, so that a use
// after free inside SQLite is still reported.
#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kSmallMax = 0;
#else
constexpr size_t kSmallMax = 512;  // bytes a block holds, multiple of 8
#endif
constexpr size_t kChunk = 32 * 1024;
struct FreeBlock {
    FreeBlock *next;
};
FreeBlock *g_free[kSmallMax / 8 + 1];
char *g_chunk_next;
char *g_chunk_end;

// A block's capacity: n rounded up to 8, the size its list holds.
size_t capacity(sqlite3_int64 n) { return (static_cast<size_t>(n) + 7) & ~size_t{7}; }

// A block of cap bytes (cap <= kSmallMax) after its header, or nullptr.
sqlite3_int64 *small_block(size_t cap) {
    if (FreeBlock *&head = g_free[cap / 8]; head) {
        FreeBlock *b = head;
        head = b->next;
        return reinterpret_cast<sqlite3_int64 *>(b);
    }
    const size_t whole = kHeader + cap;
    if (static_cast<size_t>(g_chunk_end - g_chunk_next) < whole) {
        // The rest of the old chunk stays unused: at most kSmallMax bytes.
        auto *c = static_cast<char *>(malloc(kChunk));
        if (!c) return nullptr;
        g_chunk_next = c;
        g_chunk_end = c + kChunk;
    }
    auto *p = reinterpret_cast<sqlite3_int64 *>(g_chunk_next);
    g_chunk_next += whole;
    return p;
}

void *heap_malloc(int n) {
    if (n <= 0 || g_heap_used + n > platform_db::kReadHeapLimit) return nullptr;
    const size_t cap = capacity(n);
    auto *p = cap <= kSmallMax ? small_block(cap) : static_cast<sqlite3_int64 *>(malloc(kHeader + cap));
    if (!p) return nullptr;
    *p = n;
    g_heap_used += n;
    return p + 1;
}

void heap_free(void *block) {
    if (!block) return;
    sqlite3_int64 *p = static_cast<sqlite3_int64 *>(block) - 1;
    g_heap_used -= *p;
    if (const size_t cap = capacity(*p); cap <= kSmallMax) {
        auto *b = reinterpret_cast<FreeBlock *>(p);
        b->next = g_free[cap / 8];
        g_free[cap / 8] = b;
        return;
    }
    free(p);
}

int heap_size(void *block) {
    return block ? static_cast<int>(static_cast<sqlite3_int64 *>(block)[-1]) : 0;
}

void *heap_realloc(void *block, int n) {
    const sqlite3_int64 old = heap_size(block);
    if (n <= 0 || g_heap_used - old + n > platform_db::kReadHeapLimit) return nullptr;
    sqlite3_int64 *p = static_cast<sqlite3_int64 *>(block) - 1;
    const size_t old_cap = capacity(old), cap = capacity(n);
    if (old_cap > kSmallMax && cap > kSmallMax) {
        p = static_cast<sqlite3_int64 *>(realloc(p, kHeader + cap));
        if (!p) return nullptr;
    } else if (old_cap != cap) {
        // To or from a list: a new block, the old one's bytes, the old freed.
        void *q = heap_malloc(n);
        if (!q) return nullptr;
        memcpy(q, block, std::min(old_cap, cap));
        heap_free(block);
        return q;
    }
    *p = n;
    g_heap_used += n - old;
    return p + 1;
}

int heap_roundup(int n) { return (n + 7) & ~7; }
int heap_init(void *) { return SQLITE_OK; }
void heap_shutdown(void *) {}

const sqlite3_mem_methods kHeap = {heap_malloc, heap_free,   heap_realloc, heap_size,
                                   heap_roundup, heap_init, heap_shutdown, nullptr};

}  // namespace

bool sysdb_reader_process_setup(void) {
    // Each setting applies only before SQLite starts; the allocator's
    // refusal means it has, and the rest would be refused too.
    if (sqlite3_config(SQLITE_CONFIG_MALLOC, &kHeap) != SQLITE_OK) return false;
    // A library built without mutexes (the client's) takes no threading mode.
    if (sqlite3_threadsafe()) sqlite3_config(SQLITE_CONFIG_SINGLETHREAD);
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    // No page cache block allocated up front (20 pages of 16 KiB): pages come
    // one by one as a run needs them.
    sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0);
    // The client's library starts only when told to (no check on every call).
    return sqlite3_initialize() == SQLITE_OK;
}
