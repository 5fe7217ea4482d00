// The store's record splitter against arbitrary bytes, held in a buffer of
// exactly their length: whatever it takes must lie within them, and a record
// it takes must give the same columns when asked for fewer.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/store_tables.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::unique_ptr<uint8_t[]> rec(new uint8_t[size ? size : 1]);
    if (size) memcpy(rec.get(), data, size);
    const uint8_t *end = rec.get() + size;
    store_tables::Value all[8];
    if (!store_tables::split_record(rec.get(), size, all, 8)) return 0;
    for (const store_tables::Value &v : all) {
        if (v.p && (v.p < rec.get() || v.p + v.n > end)) abort();
        if (!v.p && v.n) abort();
    }
    for (int want = 0; want < 8; want++) {
        store_tables::Value some[8];
        if (!store_tables::split_record(rec.get(), size, some, want)) abort();
        for (int i = 0; i < want; i++)
            if (some[i].type != all[i].type || some[i].i != all[i].i || some[i].p != all[i].p ||
                some[i].n != all[i].n)
                abort();
    }
    return 0;
}
