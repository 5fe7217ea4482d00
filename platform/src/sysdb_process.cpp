// SQLite set up for a process that runs one show command and exits: the
// settings that make a short run's start cheap, each measured against the
// start of a static do-nothing program (docs/decisions.md, start-up).
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

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

void *heap_malloc(int n) {
    if (n <= 0 || g_heap_used + n > platform_db::kReadHeapLimit) return nullptr;
    auto *p = static_cast<sqlite3_int64 *>(malloc(kHeader + static_cast<size_t>(n)));
    if (!p) return nullptr;
    *p = n;
    g_heap_used += n;
    return p + 1;
}

void heap_free(void *block) {
    if (!block) return;
    sqlite3_int64 *p = static_cast<sqlite3_int64 *>(block) - 1;
    g_heap_used -= *p;
    free(p);
}

int heap_size(void *block) {
    return block ? static_cast<int>(static_cast<sqlite3_int64 *>(block)[-1]) : 0;
}

void *heap_realloc(void *block, int n) {
    const sqlite3_int64 old = heap_size(block);
    if (n <= 0 || g_heap_used - old + n > platform_db::kReadHeapLimit) return nullptr;
    auto *p = static_cast<sqlite3_int64 *>(
        realloc(static_cast<sqlite3_int64 *>(block) - 1, kHeader + static_cast<size_t>(n)));
    if (!p) return nullptr;
    *p = n;
    g_heap_used += n - old;
    return p + 1;
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
