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

// A run of one command is short, and on a virtual machine a page fault costs
// as much as thousands of instructions: the heap such a run needs (the
// store's page cache, its statements, the stdout buffer) is mapped in one
// call up front instead of one fault a page: 192 KiB, about what a single
// item's run touches (52 pages); a listing's further pages (about 90 in all
// for 100 routes) fault in as it reads. A page mapped and not used costs as
// much as one used, so more would slow the shortest runs. Nothing depends
// on it: when a call fails the pages fault in as before.
void premap_heap() {
#if defined(__GLIBC__) && defined(MADV_POPULATE_WRITE) && !defined(__SANITIZE_ADDRESS__)
    constexpr size_t kHeap = 192 * 1024;
    mallopt(M_MMAP_THRESHOLD, 1 << 20);  // a walk's batches from the heap too
    mallopt(M_TRIM_THRESHOLD, 8 << 20);  // and the heap kept between batches
    const uintptr_t start = reinterpret_cast<uintptr_t>(sbrk(0)) & ~uintptr_t(4095);
    void *volatile block = malloc(kHeap);  // volatile: the pair is not optimised away
    free(block);
    const uintptr_t end = reinterpret_cast<uintptr_t>(sbrk(0));
    if (end > start) madvise(reinterpret_cast<void *>(start), end - start, MADV_POPULATE_WRITE);
#endif
}

}  // namespace

int main(int argc, char **argv) {
    sysdb_reader_process_setup();  // first: SQLite takes its settings before it starts
    premap_heap();
    evpn_show_store_left_open = true;
    // Reports run to many lines: write them in large blocks, from the heap
    // mapped above (lives until exit; without it the C library's own buffer).
    constexpr size_t kStdoutBuffer = 64 * 1024;
    setvbuf(stdout, static_cast<char *>(malloc(kStdoutBuffer)), _IOFBF, kStdoutBuffer);
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
