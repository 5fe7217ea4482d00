// Codec descriptions of the record types: one per field list in bag_types.h.
#include "platform/bag_types.h"

#include "bag_decoder.h"

#include <cstddef>
#include <cstring>
#include <iterator>

#define BAG_D_F(K, n) {#n, BagKind::K, BagKind::K, 0, static_cast<uint32_t>(offsetof(CurT, n)), nullptr},
#define BAG_D_S(T, n) {#n, BagKind::STRUCT, BagKind::STRUCT, 0, static_cast<uint32_t>(offsetof(CurT, n)), &bag_desc_##T},
#define BAG_D_A(K, n) {#n, BagKind::ARRAY, BagKind::K, 0, static_cast<uint32_t>(offsetof(CurT, n)), nullptr},
#define BAG_D_AS(T, n) {#n, BagKind::ARRAY, BagKind::STRUCT, 0, static_cast<uint32_t>(offsetof(CurT, n)), &bag_desc_##T},
#define BAG_D_FS(T, n, N) {#n, BagKind::FIXED, BagKind::STRUCT, N, static_cast<uint32_t>(offsetof(CurT, n)), &bag_desc_##T},

// The generated decoder of a type: one step per field, in field order, the
// same steps the walk of the description takes.
#define BAG_G_AT(n) reinterpret_cast<uint8_t *>(&r.n)
#define BAG_G_F(K, n) if ((rc = d.field<BagKind::K>(BAG_G_AT(n)))) return rc;
#define BAG_G_S(T, n) if ((rc = d.record(&bag_desc_##T, BAG_G_AT(n), depth + 1))) return rc;
#define BAG_G_A(K, n) if ((rc = d.array(BagKind::K, nullptr, BAG_G_AT(n), depth))) return rc;
#define BAG_G_AS(T, n) if ((rc = d.array(BagKind::STRUCT, &bag_desc_##T, BAG_G_AT(n), depth))) return rc;
#define BAG_G_FS(T, n, N)                                                                \
    for (auto &e : r.n)                                                                  \
        if ((rc = d.record(&bag_desc_##T, reinterpret_cast<uint8_t *>(&e), depth + 1))) return rc;

#define BAG_DESCRIBE(T)                                                                  \
    namespace bag_fields_##T {                                                           \
    using CurT = T;                                                                      \
    constexpr BagField fields[] = {                                                      \
        BAG_FIELDS_##T(BAG_D_F, BAG_D_S, BAG_D_A, BAG_D_AS, BAG_D_FS)};                   \
    constexpr uint32_t nfields = static_cast<uint32_t>(std::size(fields));               \
    uint32_t decode(BagDecodeState &d, uint8_t *out, int depth) {                        \
        T &r = *reinterpret_cast<T *>(out);                                              \
        uint32_t rc = 0;                                                                 \
        (void)depth;                                                                     \
        BAG_FIELDS_##T(BAG_G_F, BAG_G_S, BAG_G_A, BAG_G_AS, BAG_G_FS)                     \
        return rc;                                                                       \
    }                                                                                    \
    }                                                                                    \
    constexpr BagDesc bag_desc_##T = {#T, sizeof(T), alignof(T), bag_fields_##T::fields, \
                                      bag_fields_##T::nfields,                           \
                                      bag_min_encoded(bag_fields_##T::fields, bag_fields_##T::nfields), \
                                      bag_fields_##T::decode};                           \
    const BagDesc *l2vpn_bag_dll__##T(void) { return &bag_desc_##T; }

#define BAG_DESCRIBE_RECORD(T, N) BAG_DESCRIBE(T)
#define BAG_RECORD_ENTRY(T, N) &bag_desc_##T,

BAG_SUBRECORDS(BAG_DESCRIBE)
BAG_RECORDS(BAG_DESCRIBE_RECORD)

const BagDesc *const bag_record_types[] = {BAG_RECORDS(BAG_RECORD_ENTRY) nullptr};

const BagDesc *bag_desc_by_name(const char *name) {
    for (const BagDesc *const *d = bag_record_types; *d; d++)
        if (strcmp((*d)->name, name) == 0) return *d;
    return nullptr;
}
