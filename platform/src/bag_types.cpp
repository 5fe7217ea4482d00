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

// The steps of a type's generated decoder (bag_decoder.h): one per field, in
// field order. The list opens with a comma that the first entry drops.
#define BAG_G_F(K, n) , bag_gen::F<BagKind::K, offsetof(CurT, n)>
#define BAG_G_S(T, n) , bag_gen::S<T, offsetof(CurT, n)>
#define BAG_G_A(K, n) , bag_gen::A<BagKind::K, offsetof(CurT, n)>
#define BAG_G_AS(T, n) , bag_gen::AS<T, offsetof(CurT, n)>
#define BAG_G_FS(T, n, N) , bag_gen::FS<T, offsetof(CurT, n), N>

template <class First, class... Rest>
struct BagStepList {
    using type = bag_gen::List<Rest...>;
};

#define BAG_DESCRIBE(T)                                                                  \
    namespace bag_fields_##T {                                                           \
    using CurT = T;                                                                      \
    constexpr BagField fields[] = {                                                      \
        BAG_FIELDS_##T(BAG_D_F, BAG_D_S, BAG_D_A, BAG_D_AS, BAG_D_FS)};                   \
    constexpr uint32_t nfields = static_cast<uint32_t>(std::size(fields));               \
    }                                                                                    \
    template <> struct bag_gen::Steps<T> {                                               \
        using CurT = T;                                                                  \
        using list = BagStepList<void BAG_FIELDS_##T(BAG_G_F, BAG_G_S, BAG_G_A, BAG_G_AS,  \
                                                     BAG_G_FS)>::type;                   \
        static const BagDesc *desc() { return &bag_desc_##T; }                          \
    };                                                                                   \
    static_assert(bag_gen::StepsOf<T>::n == bag_fields_##T::nfields);                  \
    static_assert(bag_gen::min_encoded<T>() ==                                           \
                  bag_min_encoded(bag_fields_##T::fields, bag_fields_##T::nfields));    \
    constexpr BagDesc bag_desc_##T = {#T, sizeof(T), alignof(T), bag_fields_##T::fields, \
                                      bag_fields_##T::nfields,                           \
                                      bag_min_encoded(bag_fields_##T::fields, bag_fields_##T::nfields), \
                                      bag_gen::decode_entry<T>, bag_gen::encode_entry<T>}; \
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
