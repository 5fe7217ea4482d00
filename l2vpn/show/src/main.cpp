// The show client program: one show command per run.
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "evpn_show_print.h"
#include "platform/sysdb.h"

// The version, found in the program file as "@(#)evpn_show_client <version>"
// (the client's command line is the shell's and has no option for it);
// retained through the link's removal of unused sections.
[[gnu::used, gnu::retain]] static const char kWhat[] = "@(#)evpn_show_client " EVPN_VERSION;

namespace {

// A walk's batches come from the heap too, and the heap is kept between
// batches: a listing reuses the pages it has touched.
void heap_settings() {
#if defined(__GLIBC__)
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    mallopt(M_TRIM_THRESHOLD, 8 << 20);
#endif
}

// On a virtual machine a page fault costs as much as thousands of
// instructions: the heap that opening the store and reading one item takes
// (SQLite's schema, statements and page cache) is mapped in one call,
// once the options are read, instead of one fault a page. Sized to what a
// single item's run touches: a page mapped and not used costs as much as one
// used, and a listing's further pages fault in as it reads. Nothing depends
// on it: when a call fails the pages fault in as before.
void premap_heap() {
#if defined(__GLIBC__) && defined(MADV_POPULATE_WRITE) && !defined(__SANITIZE_ADDRESS__)
    constexpr size_t kHeap = 112 * 1024;
    // The block comes from the top of the heap, where the next allocations
    // will come from once it is freed.
    void *block = malloc(kHeap);
    if (!block) return;
    const uintptr_t start = reinterpret_cast<uintptr_t>(block) & ~uintptr_t(4095);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(block) + kHeap + 4095) & ~uintptr_t(4095);
    madvise(reinterpret_cast<void *>(start), end - start, MADV_POPULATE_WRITE);
    free(block);
#endif
}

// Reports run to many lines: they are written in large blocks. Static, so
// that only the pages a report fills are ever touched; after the program's
// other zeroed data, so that the small variables share their pages.
[[gnu::section(".lbss.evpn_stdout")]] char g_stdout_buffer[64 * 1024];

}  // namespace

int main(int argc, char **argv) {
    sysdb_reader_process_setup();  // first: SQLite takes its settings before it starts
    heap_settings();
    evpn_show_before_store = premap_heap;
    evpn_show_store_left_open = true;
    setvbuf(stdout, g_stdout_buffer, _IOFBF, sizeof g_stdout_buffer);
    const int status = evpn_show_main(argc, argv);
    // A report that did not reach its reader is a failed run, whatever the
    // command's status; a reader that went away (EPIPE) only stopped reading.
    // A failed write drops its buffer and the next flush writes again, so the
    // last flush's errno is the error's own.
    errno = 0;
    if (fflush(stdout) != 0 || ferror(stdout)) {
        const int error = errno ? errno : EIO;
        if (error == EPIPE) return status;
        fprintf(stderr, "evpn_show_client: writing standard output: %s\n", strerror(error));
        return 1;
    }
    return status;
}
