// SQLite set up for a process that runs one show command and exits: the
// settings that make a short run's start cheap, each measured against the
// start of a static do-nothing program (docs/decisions.md, start-up).
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "db_internal.h"
#include "platform/sysdb.h"

namespace {

// SQLite's heap, counted here rather than by SQLite's own statistics: those
// take a mutex and update several counters on every allocation (a tenth of
// a short run's instructions). Each block carries its size in front.
constexpr size_t kHeader = 8;  // SQLite needs 8-byte alignment, no more
struct Header {
    int32_t size;    // what SQLite asked for
    uint32_t slots;  // of a small block: its bytes / kSlot; 0: the C library's
};
static_assert(sizeof(Header) == kHeader);
sqlite3_int64 g_heap_used;

// Small blocks (most of SQLite's: schema objects, parse trees, statements)
// are cut in order from chunks taken from the C library and, once freed,
// kept on a list per size for the next block of that size or a little
// smaller. A short run asks for about 300 blocks of a few dozen sizes, and
// the C library's first block of each size searches its bins and splits its
// top (a seventh of a single route's instructions); cut in order, the blocks
// share pages as the C library's did. Larger blocks (the page cache's) are
// the C library's. Under AddressSanitizer every block is the C library's, so
// that it sees each one.
#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kSmallMax = 0;
#else
constexpr size_t kSmallMax = 1024;  // block bytes, header included
#endif
constexpr size_t kSlot = 16;
constexpr size_t kChunk = 8 * 1024;
constexpr uint32_t kLargerTaken = 2;  // a free block up to this many slots larger serves
struct FreeBlock {
    Header header;
    FreeBlock *next;
};
FreeBlock *g_free[kSmallMax / kSlot + 1];  // by slots
char *g_chunk_at, *g_chunk_end;

// A block of n bytes (0 < n) with its header filled; null when memory ran out.
Header *block_alloc(int n) {
    const size_t bytes = kHeader + static_cast<size_t>(n);
    Header *h;
    if (bytes > kSmallMax) {
        h = static_cast<Header *>(malloc(bytes));
        if (!h) return nullptr;
        h->slots = 0;
    } else {
        const uint32_t slots = static_cast<uint32_t>((bytes + kSlot - 1) / kSlot);
        h = nullptr;
        for (uint32_t c = slots; c <= slots + kLargerTaken && c < std::size(g_free) && !h; c++) {
            if (FreeBlock *b = g_free[c]) {
                g_free[c] = b->next;
                h = &b->header;
            }
        }
        if (!h) {
            const size_t take = slots * kSlot;
            if (static_cast<size_t>(g_chunk_end - g_chunk_at) < take) {
                // The rest of the chunk, less than a block, stays unused.
                auto *chunk = static_cast<char *>(malloc(kChunk));
                if (!chunk) return nullptr;
                g_chunk_at = chunk;
                g_chunk_end = chunk + kChunk;
            }
            h = reinterpret_cast<Header *>(g_chunk_at);
            g_chunk_at += take;
            h->slots = slots;
        }
    }
    h->size = n;
    return h;
}

void block_free(Header *h) {
    if (!h->slots) {
        free(h);
        return;
    }
    auto *b = reinterpret_cast<FreeBlock *>(h);
    b->next = g_free[h->slots];
    g_free[h->slots] = b;
}

void *heap_malloc(int n) {
    if (n <= 0 || g_heap_used + n > platform_db::kReadHeapLimit) return nullptr;
    Header *h = block_alloc(n);
    if (!h) return nullptr;
    g_heap_used += n;
    return h + 1;
}

void heap_free(void *block) {
    if (!block) return;
    Header *h = static_cast<Header *>(block) - 1;
    g_heap_used -= h->size;
    block_free(h);
}

int heap_size(void *block) { return block ? (static_cast<Header *>(block) - 1)->size : 0; }

void *heap_realloc(void *block, int n) {
    Header *h = static_cast<Header *>(block) - 1;
    const int old = h->size;
    if (n <= 0 || g_heap_used - old + n > platform_db::kReadHeapLimit) return nullptr;
    const size_t bytes = kHeader + static_cast<size_t>(n);
    if (h->slots ? bytes <= h->slots * kSlot : bytes > kSmallMax) {
        // The block holds it, or the C library resizes its own.
        if (!h->slots && !(h = static_cast<Header *>(realloc(h, bytes)))) return nullptr;
    } else {
        Header *moved = block_alloc(n);
        if (!moved) return nullptr;
        memcpy(moved + 1, h + 1, static_cast<size_t>(std::min(old, n)));
        block_free(h);
        h = moved;
    }
    h->size = n;
    g_heap_used += n - old;
    return h + 1;
}

int heap_roundup(int n) { return (n + 7) & ~7; }
int heap_init(void *) { return SQLITE_OK; }
void heap_shutdown(void *) {}

const sqlite3_mem_methods kHeap = {heap_malloc, heap_free,   heap_realloc, heap_size,
                                   heap_roundup, heap_init, heap_shutdown, nullptr};

// The system's file layer, with the store's full name made without resolving
// every folder of it: SQLite's own lstat()s each part of the path (six
// system calls for /work/a/b/c/store.db) so that a link is followed to the
// file it names. What the name is used for is the journal and the log beside
// the store ("<name>-journal", "-wal", "-shm"), and their folder is the
// store's whichever way the kernel reaches it; only a link as the last part
// would put them elsewhere, so that part alone is checked, and a link is
// left to SQLite's walk. The file itself is opened, locked and shared by
// its device and inode as before.
sqlite3_vfs g_vfs;
sqlite3_vfs *g_system_vfs;

int full_pathname(sqlite3_vfs *, const char *name, int room, char *out) {
    const size_t n = strlen(name), size = static_cast<size_t>(room);
    size_t at = 0;
    if (name[0] != '/') {
        if (!getcwd(out, size)) return g_system_vfs->xFullPathname(g_system_vfs, name, room, out);
        at = strlen(out);
        out[at++] = '/';
    }
    struct stat st;
    if (at + n + 1 > size) return g_system_vfs->xFullPathname(g_system_vfs, name, room, out);
    memcpy(out + at, name, n + 1);
    if (lstat(out, &st) != 0 || S_ISLNK(st.st_mode))
        return g_system_vfs->xFullPathname(g_system_vfs, name, room, out);
    return SQLITE_OK;
}

}  // namespace

const sqlite3_mem_methods *sysdb_reader_heap(void) { return &kHeap; }

bool sysdb_reader_process_setup(void) {
    // Each setting applies only before SQLite starts; the allocator's
    // refusal means it has, and the rest would be refused too.
    if (sqlite3_config(SQLITE_CONFIG_MALLOC, &kHeap) != SQLITE_OK) return false;
    // A library built without mutexes (the client's) takes no threading mode.
    if (sqlite3_threadsafe()) sqlite3_config(SQLITE_CONFIG_SINGLETHREAD);
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    // No page cache block allocated up front (20 pages): pages come
    // one by one as a run needs them.
    sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0);
    // The client's library starts only when told to (no check on every call).
    if (sqlite3_initialize() != SQLITE_OK) return false;
    if ((g_system_vfs = sqlite3_vfs_find(nullptr)) && g_system_vfs != &g_vfs) {
        g_vfs = *g_system_vfs;
        g_vfs.zName = "evpn-reader";
        g_vfs.xFullPathname = full_pathname;
        sqlite3_vfs_register(&g_vfs, 1);
    }
    return true;
}
