// What a generator kind (one listing made at scale) is given: the options, a
// seeded random source, the data shape shared with the MAC routes (EVIs,
// encapsulations, peers, segments) and a sink for its records.
#pragma once
#include <cstdint>
#include <string>

#include "generator.h"
#include "platform/bag_types.h"

namespace evpn {

struct SplitMix64 {
    uint64_t s;
    uint64_t next() {
        uint64_t z = (s += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return z ^ (z >> 31);
    }
    uint32_t below(uint32_t n) { return static_cast<uint32_t>(next() % n); }
    bool chance(uint32_t percent) { return below(100) < percent; }
};

constexpr int kGenPeers = 64;     // remote PEs, 192.0.2.<1..64> (2001:db8::<n> with SRv6)
constexpr int kGenSegments = 16;  // multi-homed Ethernet segments

// Records go to the database and the snapshot through put(), each into the
// listing of the kind being generated; false with the error set when the
// writer refuses one or the snapshot stream fails.
class GenSink {
  public:
    virtual ~GenSink() = default;
    virtual bool put(const void *record, const BagDesc *desc) = 0;

    const GenOptions *opt = nullptr;
    SplitMix64 rng{1};
    uint64_t list_entries = 0;  // see GenCounts::list_entries
};

// The zero ESI, as records without a segment carry it in text.
constexpr char kGenZeroEsi[] = "0000.0000.0000.0000.0000";

// Of n records spread evenly over EVIs 1..evis, how many fall to evi.
inline uint64_t gen_evi_share(uint64_t n, uint32_t evis, uint32_t evi) {
    return n / evis + (evi - 1 < n % evis ? 1 : 0);
}
// An EVI's bridge domain, "bd-<evi>", into buf.
void gen_bd_name(char *buf, size_t size, uint32_t evi);

// An EVI's encapsulation (the same for every kind and the MAC routes), its
// EVI type and the label or VNI of its routes on one PE (0 is this router).
uint8_t gen_evi_encap(uint32_t evi, uint64_t seed);
uint32_t gen_evi_type(uint8_t encap);
uint32_t gen_evi_label(uint8_t encap, uint32_t evi, uint32_t pe);

void gen_ipv4(l2vpn_ip_addr_t &a, uint32_t v);
// <g0>:<g1>:<g2>:<g3>::<host>, groups of 16 bits.
void gen_ipv6(l2vpn_ip_addr_t &a, uint16_t g0, uint16_t g1, uint16_t g2, uint16_t g3,
              uint32_t host);
// A PE's address: 192.0.2.<pe>, or 2001:db8::<pe> in an SRv6 EVI.
void gen_pe_address(l2vpn_ip_addr_t &a, uint32_t pe, bool srv6);
// A SID fc00:0:<node>:<function>:: with the usual uSID structure.
void gen_srv6_sid(Srv6Sid &s, uint16_t node, uint16_t function, uint16_t behavior);
// "0011.2233.4455.6677.<segment+1>" into buf (at least 25 bytes).
void gen_segment_esi(char *buf, size_t size, uint32_t segment);

// One function per kind: n records into the sink, in key order where the
// keys allow. Defined in gen_<kind>.cpp.
#define EVPN_GEN_KIND_DECL(kind, base, what) bool gen_##kind(GenSink &sink, uint64_t n);
EVPN_GEN_KINDS(EVPN_GEN_KIND_DECL)
#undef EVPN_GEN_KIND_DECL

}  // namespace evpn
