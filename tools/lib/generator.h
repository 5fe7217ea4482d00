// Synthetic operational data at scale: MAC routes over many EVIs and any of
// the other listings, for load and display measurements. The same options
// always give the same data.
#pragma once
#include <cstdint>
#include <iosfwd>
#include <string>

#include "platform/sysdb_paths.h"

// The listings generated besides the MAC routes: X(kind, listing base, what
// one record is). Each kind is a function gen_<kind> in gen_<kind>.cpp (see
// gen_kinds.h); its command-line option is --<kind> with '-' for '_'.
#define EVPN_GEN_KINDS(X)                                                       \
    X(teps, EVPN_PATH_TEP, "tunnel endpoints")                                 \
    X(ac_ids, EVPN_PATH_ACID, "AC IDs")                                        \
    X(igmp, EVPN_PATH_IGMP, "IGMP/MLD routes")                                 \
    X(es, EVPN_PATH_ES, "Ethernet segments")                                    \
    X(imcast, EVPN_PATH_IMCAST, "inclusive-multicast routes")                 \
    X(neighbors, EVPN_PATH_NEIGHBOR, "neighbors")                               \
    X(labels, EVPN_PATH_LABEL_DETAIL, "label entries (detailed listing)")       \
    X(pathlists, EVPN_PATH_PATHLIST, "pathlists of the label entries")          \
    X(ead, EVPN_PATH_EAD, "EAD routes")

namespace evpn {

class SysdbWriter;
class Progress;

enum GenKind : unsigned {
#define EVPN_GEN_KIND_ENUM(kind, base, what) GEN_##kind,
    EVPN_GEN_KINDS(EVPN_GEN_KIND_ENUM)
#undef EVPN_GEN_KIND_ENUM
        GEN_KIND_COUNT
};

struct GenKindInfo {
    const char *name, *base, *what;
};
extern const GenKindInfo kGenKinds[GEN_KIND_COUNT];

struct GenOptions {
    uint64_t routes = 0;  // MAC and MAC/IP routes in all
    uint32_t evis = 1;    // EVIs (VPN IDs 1..evis); routes are spread evenly over them
    uint64_t seed = 1;
    uint64_t count[GEN_KIND_COUNT] = {};  // records of each other listing
};

// What generate() produced (also in the summary record).
struct GenCounts {
    uint64_t routes = 0, local = 0, remote = 0, ipv4 = 0, ipv6 = 0, paths = 0;
    // Entries of the lists a kind's records carry, where its listing's cost
    // grows with them (an Ethernet segment's carving lists); 0 elsewhere.
    uint64_t list_entries[GEN_KIND_COUNT] = {};
};

// Writes the routes, the records of each other kind asked for, one EVI
// summary record per EVI and the global summary item below "/oper/evpn/gl/" through writer (when not null), and the same
// data as a snapshot to json_out (when not null). The caller commits the
// writer. False with err when the writer refuses a record or the stream fails.
// progress (when not null) counts the records against all that opt asks for.
bool generate(const GenOptions &opt, SysdbWriter *writer, std::ostream *json_out,
              std::string &err, GenCounts *counts = nullptr, Progress *progress = nullptr);

}  // namespace evpn
