// The reader's SQLite allocator, taken directly: small blocks cut from
// chunks and kept on free lists, larger ones the C library's.
#include <sqlite3.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "platform/sysdb.h"

namespace {

struct Live {
    unsigned char *p;
    int size;
    unsigned char fill;
};

void fill(Live &b) { memset(b.p, b.fill, static_cast<size_t>(b.size)); }

// A block of size bytes from heap, filled with the next fill byte and kept in live.
void take(const sqlite3_mem_methods *heap, int size, unsigned char &next_fill, std::vector<Live> &live) {
    Live b{static_cast<unsigned char *>(heap->xMalloc(size)), size, next_fill++};
    ASSERT_NE(b.p, nullptr);
    ASSERT_EQ(reinterpret_cast<uintptr_t>(b.p) % 8, 0u);
    ASSERT_EQ(heap->xSize(b.p), size);
    fill(b);
    live.push_back(b);
}

// Every byte of every live block still holds its block's own fill.
void expect_intact(const std::vector<Live> &live) {
    for (const Live &b : live)
        for (int i = 0; i < b.size; i++)
            ASSERT_EQ(b.p[i], b.fill) << "block of " << b.size << " bytes, byte " << i;
}

}  // namespace

// Blocks of every size, freed in a pattern and taken again (a freed block
// serves a smaller request too), never share a byte with another.
TEST(ReaderHeap, LiveBlocksNeverOverlapWhateverTheSizesAndReuse) {
    const sqlite3_mem_methods *heap = sysdb_reader_heap();
    std::vector<Live> live;
    unsigned char next_fill = 1;
    for (int size = 1; size <= 1100; size += 7) take(heap, size, next_fill, live);
    for (size_t i = 0; i < live.size(); i += 2) heap->xFree(live[i].p);
    std::vector<Live> kept;
    for (size_t i = 1; i < live.size(); i += 2) kept.push_back(live[i]);
    live = kept;
    for (int size = 1100; size >= 1; size -= 5) take(heap, size, next_fill, live);
    expect_intact(live);
    for (const Live &b : live) heap->xFree(b.p);
}

// A block resized within its slot, to another small slot, to the C
// library's and back keeps the bytes both sizes share, and writing all of
// its new size touches no block beside it.
TEST(ReaderHeap, ResizedBlocksKeepTheirBytesAcrossEverySizeClass) {
    const sqlite3_mem_methods *heap = sysdb_reader_heap();
    std::vector<Live> beside;
    unsigned char next_fill = 1;
    auto guard = [&](int size) { take(heap, size, next_fill, beside); };
    const int steps[] = {1, 8, 9, 24, 40, 200, 1000, 1016, 1017, 5000, 100000, 700, 3, 64, 17, 30};
    for (int n : steps) guard(n);
    auto *p = static_cast<unsigned char *>(heap->xMalloc(steps[0]));
    ASSERT_NE(p, nullptr);
    for (int n : steps) guard(n);
    int size = steps[0];
    p[0] = 0;
    for (int n : steps) {
        auto *q = static_cast<unsigned char *>(heap->xRealloc(p, n));
        ASSERT_NE(q, nullptr) << n;
        const int shared = size < n ? size : n;
        for (int i = 0; i < shared; i++) ASSERT_EQ(q[i], static_cast<unsigned char>(i * 7)) << n << " " << i;
        EXPECT_EQ(heap->xSize(q), n);
        for (int i = 0; i < n; i++) q[i] = static_cast<unsigned char>(i * 7);
        p = q;
        size = n;
        guard(n);  // in what a block left behind
    }
    expect_intact(beside);
    heap->xFree(p);
    for (const Live &b : beside) heap->xFree(b.p);
}
