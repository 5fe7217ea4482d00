// Record codec against arbitrary bytes: the first byte picks the record type,
// the rest is its encoding. A record that decodes must also re-encode, and a
// buffer one byte short of the record must be refused before anything is read.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/bag.h"
#include "platform/bag_types.h"
#include "platform/cerr.h"

namespace {

size_t record_type_count() {
    static const size_t n = [] {
        size_t k = 0;
        while (bag_record_types[k]) k++;
        return k;
    }();
    return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    const BagDesc *desc = bag_record_types[data[0] % record_type_count()];
    const uint8_t *enc = data + 1;
    const uint32_t len = static_cast<uint32_t>(size - 1);

    // Aligned scratch, poisoned so a field the decoder forgets shows up.
    std::vector<max_align_t> storage(desc->size / sizeof(max_align_t) + 1);
    void *buf = storage.data();
    memset(buf, 0xa5, desc->size);

    const size_t held_before = bag_inner_bytes_held();
    const uint32_t rc = bag_decode(enc, len, buf, desc->size, desc);
    if (rc == 0) {
        // What decoded encodes to bytes that decode again to the same encoding.
        std::string once;
        if (bag_encode(buf, desc, once) != 0) abort();
        std::vector<max_align_t> storage2(storage.size());
        void *buf2 = storage2.data();
        if (bag_decode(once.data(), static_cast<uint32_t>(once.size()), buf2, desc->size, desc) != 0)
            abort();
        std::string twice;
        if (bag_encode(buf2, desc, twice) != 0 || twice != once) abort();
        bag_free_indirections(buf2, desc);
        bag_free_indirections(buf, desc);
    }
    // Failure or release: the codec holds nothing more than before.
    if (bag_inner_bytes_held() != held_before) abort();

    if (desc->size > 0) {
        const uint32_t short_rc = bag_decode(enc, len, buf, desc->size - 1, desc);
        if (short_rc != BAG_ERR_BUFFER) abort();
        if (bag_inner_bytes_held() != held_before) abort();
    }
    return 0;
}
