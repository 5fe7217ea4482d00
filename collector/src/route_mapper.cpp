#include "route_mapper.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <unordered_map>
#include <vector>

#include "platform/bag_types.h"
#include "platform/formatters.h"
#include "platform/sysdb_paths.h"

namespace evpn::collector {

namespace {

using Stored = RecordSink::Stored;

constexpr uint32_t kEthernetTagMax = 0xFFFFFFFF;
constexpr uint32_t kRtTypeImport = 1;
constexpr uint32_t kExtFlagDefaultGateway = 1u << 11;
constexpr uint8_t kServiceL2 = 6;
// RFC 8214 layer-2 attributes' control flags.
constexpr uint16_t kL2FlagBackup = 0x1, kL2FlagPrimary = 0x2, kL2FlagControlWord = 0x4;
// Words of the records' codes.
constexpr uint32_t kDfRolePrimary = 1, kDfRoleBackup = 2;
constexpr uint32_t kControlWordDisabled = 1, kControlWordEnabled = 2;
// EVI types, by the EVI's encapsulation.
constexpr uint32_t kEviTypeEvpn = 1, kEviTypeVxlan = 5, kEviTypeSrv6 = 6;

uint64_t mix(uint64_t h) {
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdull;
    h ^= h >> 33;
    h *= 0xc4ceb9fe1a85ec53ull;
    return h ^ (h >> 33);
}

uint64_t hash_bytes(const void *p, size_t n, uint64_t h = 0x9e3779b97f4a7c15ull) {
    const auto *b = static_cast<const uint8_t *>(p);
    for (; n >= 8; n -= 8, b += 8) {
        uint64_t w;
        memcpy(&w, b, 8);
        h = mix(h ^ w) + 0x9e3779b97f4a7c15ull;
    }
    uint64_t w = 0;
    memcpy(&w, b, n);
    return mix(h ^ w ^ (uint64_t(n) << 56));
}

l2vpn_ip_addr_t ip_of(const bmp::IpAddr &a) {
    l2vpn_ip_addr_t r{};
    if (a.len == 4) {
        r.bytes[10] = r.bytes[11] = 0xff;
        memcpy(r.bytes + 12, a.b.data(), 4);
    } else if (a.len == 16) {
        memcpy(r.bytes, a.b.data(), 16);
    }
    return r;
}

// A label field as the records hold it: a VNI whole, an MPLS label (and
// the label an SRv6 SID's function is transposed from) without its low
// four bits.
uint32_t label_value(uint32_t raw, uint32_t encap) {
    return encap == EVPN_ENCAP_VXLAN ? raw & 0xffffff : (raw >> 4) & 0xfffff;
}

// An SRv6 route's label field holds the bits transposed into its SID (RFC
// 9252), at its top: those bits are its label.
uint32_t label_value(uint32_t raw, uint32_t encap, const std::vector<Srv6Sid> &sids) {
    if (encap == EVPN_ENCAP_SRV6 && !sids.empty() && sids[0].SIDStructurePresent) {
        const uint32_t len = sids[0].sid_struct.TranspositionLen;
        if (len > 0 && len <= 24) return (raw & 0xffffff) >> (24 - len);
    }
    return label_value(raw, encap);
}

// Route target or RD (8 raw bytes, type first) as a record's RD/RT value.
l2vpn_bag_rd_t rd_value(const uint8_t raw[8]) {
    l2vpn_bag_rd_t v{};
    const uint16_t type = static_cast<uint16_t>(raw[0] << 8 | raw[1]);
    v.format = type <= 2 ? type + 1u : L2VPN_RD_FORMAT_NONE;
    memcpy(v.value, raw, 8);
    return v;
}
l2vpn_bag_rt_t rt_value(uint64_t rt) {
    uint8_t raw[8];
    for (int i = 0; i < 8; i++) raw[i] = static_cast<uint8_t>(rt >> (8 * (7 - i)));
    // The record's value: the type as an RD's (two octets, without the
    // transitivity bits), then the six value octets; the subtype is implied.
    raw[1] = raw[0] & 0x3f;
    raw[0] = 0;
    return rd_value(raw);
}

uint64_t be64(const uint8_t *b) {
    uint64_t v = 0;
    for (int i = 0; i < 8; i++) v = v << 8 | b[i];
    return v;
}

uint32_t evi_type_of(uint32_t encap) {
    return encap == EVPN_ENCAP_VXLAN ? kEviTypeVxlan
           : encap == EVPN_ENCAP_SRV6 ? kEviTypeSrv6
                                      : kEviTypeEvpn;
}

// An UPDATE's attributes in the form the records take them, shared by every
// route announced with them.
struct AttrSet {
    l2vpn_ip_addr_t nh{};
    bool has_nh = false;
    uint32_t encap = EVPN_ENCAP_MPLS;
    uint32_t seq = 0;
    bool sticky = false, default_gw = false;
    bool single_active = false;
    bool has_es_import = false;
    uint8_t es_import[6] = {};
    L2Attributes l2{};
    bool has_pmsi = false;
    uint32_t pmsi_type = 0, pmsi_label = 0;
    std::vector<uint64_t> rts;
    std::vector<Srv6Sid> sids;  // the L2 service's
    uint32_t refs = 0;
    std::string key;  // its interning key
};

struct Pair {
    uint32_t adv, attrs, next;  // next: index + 1 in the pair pool, 0 at the end
};

// One route identity with its advertisers: the first inline, the others in
// the pair pool.
struct RouteEntry {
    uint8_t type = 0;  // 0: a free entry
    uint8_t ip_len = 0;
    bmp::Rd rd{};
    bmp::Esi esi{};
    bmp::Mac mac{};
    std::array<uint8_t, 16> ip{};
    uint32_t tag = 0, evi = 0;
    uint32_t label[2] = {};
    uint32_t adv = 0, attrs = 0, more = 0;
};

bool same_identity(const RouteEntry &e, const bmp::EvpnNlri &n) {
    if (e.type != n.route_type || e.rd != n.rd) return false;
    switch (n.route_type) {
    case 1: return e.esi == n.esi && e.tag == n.ethernet_tag;
    case 2:
        return e.tag == n.ethernet_tag && e.mac == n.mac && e.ip_len == n.ip.len &&
               memcmp(e.ip.data(), n.ip.b.data(), n.ip.len) == 0;
    case 3:
        return e.tag == n.ethernet_tag && e.ip_len == n.ip.len &&
               memcmp(e.ip.data(), n.ip.b.data(), n.ip.len) == 0;
    default:
        return e.esi == n.esi && e.ip_len == n.ip.len &&
               memcmp(e.ip.data(), n.ip.b.data(), n.ip.len) == 0;
    }
}

// Fields of a route's identity, and of the record it maps to, hashed.
struct IdentityKey {
    uint8_t type, ip_len;
    bmp::Rd rd;
    bmp::Esi esi;
    bmp::Mac mac;
    std::array<uint8_t, 16> ip;
    uint32_t tag;
};
uint64_t identity_hash(uint8_t type, const bmp::Rd &rd, const bmp::Esi &esi, const bmp::Mac &mac,
                       uint8_t ip_len, const uint8_t *ip, uint32_t tag) {
    IdentityKey k;
    memset(&k, 0, sizeof k);  // padding too: the bytes are hashed
    k.type = type;
    k.rd = rd;
    if (type == 1 || type == 4) k.esi = esi;
    if (type == 2) k.mac = mac;
    if (type != 1) {
        k.ip_len = ip_len;
        memcpy(k.ip.data(), ip, ip_len);
    }
    if (type != 4) k.tag = tag;
    return hash_bytes(&k, sizeof k);
}
uint64_t identity_hash(const RouteEntry &e) {
    return identity_hash(e.type, e.rd, e.esi, e.mac, e.ip_len, e.ip.data(), e.tag);
}
uint64_t identity_hash(const bmp::EvpnNlri &n) {
    return identity_hash(n.route_type, n.rd, n.esi, n.mac, n.ip.len, n.ip.b.data(), n.ethernet_tag);
}

// The record a route maps to: MAC (evi, mac, ip), inclusive multicast
// (evi, tag, originating router), EAD (evi, esi, tag).
struct RecordKey {
    uint8_t type, ip_len;
    bmp::Esi esi;
    bmp::Mac mac;
    std::array<uint8_t, 16> ip;
    uint32_t evi, tag;
    bool operator==(const RecordKey &) const = default;
};
RecordKey record_key(const RouteEntry &e) {
    RecordKey k;
    memset(&k, 0, sizeof k);  // padding too: the bytes are hashed
    k.type = e.type;
    k.evi = e.evi;
    if (e.type == 2) {
        k.mac = e.mac;
        k.ip_len = e.ip_len;
        k.ip = e.ip;
    } else if (e.type == 3) {
        k.tag = e.tag;
        k.ip_len = e.ip_len;
        k.ip = e.ip;
    } else {
        k.esi = e.esi;
        k.tag = e.tag;
    }
    return k;
}
uint64_t record_hash(const RecordKey &k) { return hash_bytes(&k, sizeof k); }

// Open addressing over entry numbers, linear probing, at most half full. A
// slot holds the low 32 bits of its entry's hash above the entry number + 1
// (0: empty): a probe compares entries only where the bits match, and a
// slot's home is known without the entry.
struct SlotIndex {
    std::vector<uint64_t> slots;
    size_t used = 0;

    static uint64_t slot(uint32_t id, uint64_t h) { return (h & 0xffffffffull) << 32 | (id + 1u); }
    size_t home(uint64_t s) const { return (s >> 32) & (slots.size() - 1); }

    void rehash(size_t size) {
        std::vector<uint64_t> old(size, 0);
        old.swap(slots);
        const size_t mask = slots.size() - 1;
        for (uint64_t s : old)
            if (s) {
                size_t i = home(s);
                while (slots[i]) i = (i + 1) & mask;
                slots[i] = s;
            }
    }
    void insert(uint32_t id, uint64_t h) {
        if (slots.empty()) slots.assign(1024, 0);
        if ((used + 1) * 2 > slots.size()) rehash(slots.size() * 2);
        const size_t mask = slots.size() - 1;
        size_t i = h & mask;
        while (slots[i]) i = (i + 1) & mask;
        slots[i] = slot(id, h);
        used++;
    }
    void erase(uint32_t id, uint64_t h) {
        const size_t mask = slots.size() - 1;
        const uint64_t want = slot(id, h);
        size_t i = h & mask;
        while (slots[i] != want) i = (i + 1) & mask;
        // Backward shift: a later slot of the run moves into the gap when its
        // home is not between the gap and it.
        for (size_t j = i;;) {
            j = (j + 1) & mask;
            if (!slots[j]) break;
            const size_t k = home(slots[j]);
            const bool stays = i <= j ? (i < k && k <= j) : (i < k || k <= j);
            if (stays) continue;
            slots[i] = slots[j];
            i = j;
        }
        slots[i] = 0;
        used--;
    }
    // visit(entry) for each entry whose hash bits match; it returns true to stop.
    template <class F> void probe(uint64_t h, F visit) const {
        if (slots.empty()) return;
        const size_t mask = slots.size() - 1;
        const uint64_t bits = h & 0xffffffffull;
        for (size_t i = h & mask; slots[i]; i = (i + 1) & mask)
            if ((slots[i] >> 32) == bits && visit(static_cast<uint32_t>(slots[i]) - 1)) return;
    }
};

// Keys of the derived records.
struct EviKey {
    uint32_t evi, encap;
    bool operator==(const EviKey &) const = default;
};
// (evi, encap, route target or RD as a big-endian number): ordered, so that
// an EVI's smallest one is found first.
struct EviRtKey {
    uint32_t evi, encap;
    uint64_t rt;
    auto operator<=>(const EviRtKey &) const = default;
};
struct AddrKey {  // a neighbor of an EVI (evi, address) or an endpoint (encap, address)
    uint32_t scope;
    l2vpn_ip_addr_t addr;
    bool operator==(const AddrKey &o) const {
        return scope == o.scope && memcmp(&addr, &o.addr, sizeof addr) == 0;
    }
};
struct EsiKey {
    bmp::Esi esi;
    bool operator==(const EsiKey &) const = default;
};
struct BytesHash {
    template <class K> size_t operator()(const K &k) const { return hash_bytes(&k, sizeof k); }
};

struct Counted {
    uint32_t count = 0, id = 0, encap = 0;
};
struct Segment {
    uint32_t id = 0, count = 0;
    std::map<std::array<uint8_t, 16>, uint32_t> nexthops;  // address -> routes naming it
    uint8_t import_rt[6] = {};
};

template <class K> struct Dirty {
    K key;
    uint32_t id;
};

}  // namespace

struct RouteMapper::Impl {
    const EviMap &evi_map;
    MapperStats stats;
    uint32_t router_id = 0, router_as = 0;

    // Attribute sets by number; free numbers reused.
    std::vector<AttrSet> attr_sets;
    std::vector<uint32_t> free_attrs;
    SlotIndex attrs_by_key;  // by the hash of their interning key
    std::string key_scratch;

    // Routes in chunks that never move; free entries reused.
    static constexpr uint32_t kChunk = 1u << 16;
    std::vector<std::unique_ptr<RouteEntry[]>> chunks;
    uint32_t entries_made = 0;
    std::vector<uint32_t> free_entries;
    std::vector<Pair> pairs;  // pool of the second and later advertisers
    std::vector<uint32_t> free_pairs;
    SlotIndex by_identity, by_record;

    // Derived records: how many route advertisements hold each up.
    std::unordered_map<EviKey, Counted, BytesHash> evis;
    std::map<EviRtKey, Counted> evi_rts, evi_rds;
    std::unordered_map<uint64_t, Counted> rds;
    std::unordered_map<AddrKey, Counted, BytesHash> neighbors, teps;
    std::unordered_map<EsiKey, Segment, BytesHash> segments;
    std::vector<EviKey> dirty_evis;
    std::vector<EviRtKey> dirty_evi_rts;
    std::vector<uint64_t> dirty_rds;
    std::vector<AddrKey> dirty_neighbors;
    std::vector<Dirty<AddrKey>> dirty_teps;
    std::vector<Dirty<EsiKey>> dirty_segments;
    bool summary_dirty = true;
    uint32_t next_tep_id = 1, next_esi_id = 1;
    uint64_t mac_v4 = 0, mac_v6 = 0;

    // Buffers of the record being built.
    std::vector<EvpnPath> paths;
    std::vector<uint32_t> path_sid_at;
    std::vector<Srv6Sid> sids;
    std::vector<uint32_t> order;
    std::vector<EvpnPath> sorted;
    std::vector<l2vpn_evpn_es_nexthop> es_nexthops;
    char esi_text[32] = {};

    explicit Impl(const EviMap &m) : evi_map(m) {}

    RouteEntry &entry(uint32_t i) { return chunks[i / kChunk][i % kChunk]; }

    uint32_t new_entry() {
        if (!free_entries.empty()) {
            uint32_t i = free_entries.back();
            free_entries.pop_back();
            return i;
        }
        if (entries_made % kChunk == 0) chunks.emplace_back(new RouteEntry[kChunk]);
        return entries_made++;
    }

    int64_t find(const bmp::EvpnNlri &n) {
        int64_t found = -1;
        by_identity.probe(identity_hash(n), [&](uint32_t i) {
            if (!same_identity(entry(i), n)) return false;
            found = i;
            return true;
        });
        return found;
    }

    bool record_exists(const RecordKey &k) {
        bool any = false;
        by_record.probe(record_hash(k), [&](uint32_t i) { return any = record_key(entry(i)) == k; });
        return any;
    }

    // ---- Attribute sets --------------------------------------------------------

    // The number of the attribute set an UPDATE's attributes make, found by
    // their bytes (built in a kept buffer: nothing allocated unless new).
    uint32_t intern(const bmp::RouteAttrs &a) {
        std::string &k = key_scratch;
        k.clear();
        auto put = [&](const void *p, size_t n) { k.append(static_cast<const char *>(p), n); };
        const uint32_t words[] = {a.next_hop.len, a.has_encap, a.encap, a.has_mac_mobility,
                                  a.mac_mobility_seq, a.mac_mobility_sticky, a.default_gateway,
                                  a.has_esi_label, a.esi_label_flags, a.has_es_import, a.has_l2_attrs,
                                  a.l2_flags, a.l2_mtu, a.has_pmsi, a.pmsi_tunnel_type, a.pmsi_label,
                                  static_cast<uint32_t>(a.route_targets.size())};
        put(words, sizeof words);
        put(a.next_hop.b.data(), 16);
        put(a.es_import.data(), 6);
        put(a.route_targets.data(), a.route_targets.size() * sizeof(uint64_t));
        for (const bmp::Srv6ServiceSid &sid : a.srv6_sids) {
            if (sid.service != kServiceL2) continue;
            const uint8_t bytes[] = {sid.flags, static_cast<uint8_t>(sid.endpoint_behavior >> 8),
                                     static_cast<uint8_t>(sid.endpoint_behavior), sid.has_structure,
                                     sid.locator_block_len, sid.locator_node_len, sid.function_len,
                                     sid.argument_len, sid.transposition_len, sid.transposition_offset};
            put(sid.sid.data(), 16);
            put(bytes, sizeof bytes);
        }
        const uint64_t h = hash_bytes(k.data(), k.size());
        int64_t found = -1;
        attrs_by_key.probe(h, [&](uint32_t i) {
            if (attr_sets[i].key != k) return false;
            found = i;
            return true;
        });
        if (found >= 0) return static_cast<uint32_t>(found);

        AttrSet s;
        s.has_nh = a.next_hop.len != 0;
        s.nh = ip_of(a.next_hop);
        for (const bmp::Srv6ServiceSid &sid : a.srv6_sids) {
            if (sid.service != kServiceL2) continue;
            Srv6Sid r{};
            r.SRv6EndpointBehavior = sid.endpoint_behavior;
            r.SRv6_SIDFlags = sid.flags;
            memcpy(r.SRv6_SID.bytes, sid.sid.data(), 16);
            r.SIDStructurePresent = sid.has_structure;
            r.sid_struct = {sid.locator_block_len, sid.locator_node_len, sid.function_len,
                            sid.argument_len, sid.transposition_len, sid.transposition_offset};
            s.sids.push_back(r);
        }
        // No encapsulation community: MPLS (RFC 7432), or SRv6 when SIDs come.
        s.encap = a.has_encap ? a.encap
                  : !s.sids.empty() ? uint32_t{EVPN_ENCAP_SRV6}
                                    : uint32_t{EVPN_ENCAP_MPLS};
        if (a.has_mac_mobility) {
            s.seq = a.mac_mobility_seq;
            s.sticky = a.mac_mobility_sticky;
        }
        s.default_gw = a.default_gateway;
        s.single_active = a.has_esi_label && (a.esi_label_flags & 1);
        s.has_es_import = a.has_es_import;
        memcpy(s.es_import, a.es_import.data(), 6);
        if (a.has_l2_attrs) {
            s.l2.Valid = 1;
            s.l2.MTU = a.l2_mtu;
            s.l2.ControlWord = a.l2_flags & kL2FlagControlWord ? kControlWordEnabled : kControlWordDisabled;
            s.l2.DesignatedForwarderRole = a.l2_flags & kL2FlagPrimary  ? kDfRolePrimary
                                           : a.l2_flags & kL2FlagBackup ? kDfRoleBackup
                                                                        : 0;
        }
        s.has_pmsi = a.has_pmsi;
        s.pmsi_type = a.pmsi_tunnel_type;
        s.pmsi_label = a.pmsi_label;
        s.rts = a.route_targets;
        uint32_t id;
        if (!free_attrs.empty()) {
            id = free_attrs.back();
            free_attrs.pop_back();
        } else {
            id = static_cast<uint32_t>(attr_sets.size());
            attr_sets.emplace_back();
        }
        s.key = k;
        attr_sets[id] = std::move(s);
        attrs_by_key.insert(id, h);
        return id;
    }

    void release_if_unused(uint32_t id) {
        AttrSet &s = attr_sets[id];
        if (s.refs || s.key.empty()) return;
        if (run.delta && run.aid == id) settle();
        if (id < run_of.size() && run_of[id]) settle_through(run_of[id] - 1);
        attrs_by_key.erase(id, hash_bytes(s.key.data(), s.key.size()));
        s = AttrSet{};
        free_attrs.push_back(id);
    }

    // ---- Derived counts --------------------------------------------------------

    void count_segment(const bmp::Esi &esi, const l2vpn_ip_addr_t &addr, const AttrSet *a, int delta) {
        static constexpr bmp::Esi kZero{};
        if (esi == kZero) return;
        EsiKey key{esi};
        std::array<uint8_t, 16> at;
        memcpy(at.data(), addr.bytes, 16);
        if (delta > 0) {
            auto [it, fresh] = segments.try_emplace(key);
            Segment &s = it->second;
            if (fresh) s.id = next_esi_id++;
            s.count++;
            const bool new_nh = s.nexthops[at]++ == 0;
            if (a && a->has_es_import && memcmp(s.import_rt, a->es_import, 6) != 0) {
                memcpy(s.import_rt, a->es_import, 6);
                dirty_segments.push_back({key, s.id});
            } else if (fresh || new_nh) {
                dirty_segments.push_back({key, s.id});
            }
            if (fresh) summary_dirty = true;
            return;
        }
        auto it = segments.find(key);
        if (it == segments.end()) return;
        Segment &s = it->second;
        auto nh = s.nexthops.find(at);
        const bool gone_nh = nh != s.nexthops.end() && --nh->second == 0;
        if (gone_nh) s.nexthops.erase(nh);
        const uint32_t id = s.id;
        if (--s.count == 0) {
            segments.erase(it);
            summary_dirty = true;
        }
        if (gone_nh) dirty_segments.push_back({key, id});
    }

    // What one advertisement of route e with attributes aid adds to (delta
    // 1) or takes from (-1) the derived records. Runs of advertisements with
    // the same EVI, attributes and RD (an UPDATE's routes) are added up and
    // applied once (settle).
    struct Run {
        uint32_t evi = 0, aid = 0;
        bmp::Rd rd{};
        int delta = 0;
    } run;  // withdrawals: the latest run
    // Announcements: a run per attribute set, applied in the order the runs
    // began, all of them before a withdrawal is counted and at the flush. A
    // router that takes its EVIs in turn sends each EVI's routes with
    // attributes of their own (its route target), one route an UPDATE:
    // every route would end the run before it. Applied in order, the counts
    // cross zero where they would route by route, so endpoints get the same
    // ids; only positive runs wait, so no count is taken below what the
    // routes before it gave.
    std::vector<Run> runs;
    size_t runs_done = 0;             // runs[0, runs_done) are applied
    std::vector<uint32_t> run_of;     // per attribute set: its run's index + 1, or 0

    void advertisement(const RouteEntry &e, uint32_t aid, int delta) {
        attr_sets[aid].refs += delta;
        if (e.type == 4 || (e.type == 1 && e.tag == kEthernetTagMax)) {
            if (delta < 0) settle();
            effects(&e, e.evi, e.rd, aid, delta);
            return;
        }
        if (delta > 0) {
            settle_withdrawals();
            if (run_of.size() <= aid) run_of.resize(attr_sets.size(), 0);
            if (const uint32_t r = run_of[aid]) {
                Run &open = runs[r - 1];
                if (open.evi == e.evi && open.rd == e.rd) {
                    open.delta += delta;
                    return;
                }
                settle_through(r - 1);
            }
            runs.push_back({e.evi, aid, e.rd, delta});
            run_of[aid] = static_cast<uint32_t>(runs.size());
            return;
        }
        if (run.delta && run.evi == e.evi && run.aid == aid && run.rd == e.rd) {
            run.delta += delta;
            return;
        }
        settle();
        run = {e.evi, aid, e.rd, delta};
    }

    // Applies the announcement runs up to and including runs[last].
    void settle_through(size_t last) {
        for (; runs_done <= last; runs_done++) {
            Run &r = runs[runs_done];
            run_of[r.aid] = 0;
            if (r.delta) effects(nullptr, r.evi, r.rd, r.aid, r.delta);
        }
        if (runs_done == runs.size()) {
            runs.clear();
            runs_done = 0;
        }
    }

    void settle_withdrawals() {
        if (!run.delta) return;
        const int delta = run.delta;
        run.delta = 0;
        effects(nullptr, run.evi, run.rd, run.aid, delta);
    }

    // Every run counted.
    void settle() {
        if (!runs.empty()) settle_through(runs.size() - 1);
        settle_withdrawals();
    }

    // Adds delta to key's count; the entry when delta adds, else null.
    template <class M, class K, class D> Counted *count(M &map, const K &key, int delta, D &dirty) {
        if (delta > 0) {
            Counted &c = map[key];
            if (c.count == 0) dirty.push_back(key);
            c.count += static_cast<uint32_t>(delta);
            return &c;
        }
        auto it = map.find(key);
        if (it == map.end()) return nullptr;
        const uint32_t down = static_cast<uint32_t>(-delta);
        if (it->second.count <= down) {
            map.erase(it);
            dirty.push_back(key);
        } else {
            it->second.count -= down;
        }
        return nullptr;
    }

    // e: the route, for a segment's routes (types 4 and per-ES 1); null for
    // a run of routes of types 1-3.
    void effects(const RouteEntry *e, uint32_t evi_number, const bmp::Rd &rd_bytes, uint32_t aid,
                 int delta) {
        AttrSet &a = attr_sets[aid];
        uint64_t rd;
        memcpy(&rd, rd_bytes.data(), 8);
        count(rds, rd, delta, dirty_rds);
        if (e && e->type == 4) {
            bmp::IpAddr ip;
            ip.len = e->ip_len;
            memcpy(ip.b.data(), e->ip.data(), 16);
            count_segment(e->esi, ip_of(ip), &a, delta);
            return;
        }
        const size_t evis_before = evis.size(), neighbors_before = neighbors.size(),
                     teps_before = teps.size();
        const EviKey evi{evi_number, a.encap};
        count(evis, evi, delta, dirty_evis);
        // The EVI's record names its smallest RD and route target.
        const size_t rts_before = evi_rts.size(), rds_before = evi_rds.size();
        for (uint64_t rt : a.rts) count(evi_rts, EviRtKey{evi_number, a.encap, rt}, delta, dirty_evi_rts);
        std::vector<EviRtKey> unused;
        count(evi_rds, EviRtKey{evi_number, a.encap, be64(rd_bytes.data())}, delta, unused);
        if (evi_rts.size() != rts_before || evi_rds.size() != rds_before) dirty_evis.push_back(evi);
        if (a.has_nh) {
            AddrKey n{evi_number, a.nh};
            if (Counted *c = count(neighbors, n, delta, dirty_neighbors)) c->encap = a.encap;
            // A VXLAN route's next hop is the far end of its tunnel.
            if (a.encap == EVPN_ENCAP_VXLAN) {
                AddrKey t{a.encap, a.nh};
                if (delta > 0) {
                    Counted &c = teps[t];
                    if (c.count == 0) {
                        c.id = next_tep_id++;
                        dirty_teps.push_back({t, c.id});
                    }
                    c.count += static_cast<uint32_t>(delta);
                } else if (auto it = teps.find(t); it != teps.end()) {
                    if (it->second.count <= static_cast<uint32_t>(-delta)) {
                        dirty_teps.push_back({t, it->second.id});
                        teps.erase(it);
                    } else {
                        it->second.count -= static_cast<uint32_t>(-delta);
                    }
                }
            }
            if (e && e->type == 1) count_segment(e->esi, a.nh, &a, delta);
        }
        if (evis.size() != evis_before || neighbors.size() != neighbors_before ||
            teps.size() != teps_before)
            summary_dirty = true;
    }

    // ---- Records of routes -----------------------------------------------------

    // Adds the paths of every route of record k to paths (one per route and
    // advertiser, its SIDs in sids), sorted by next hop and label, without
    // repeats. Returns the first route's entry, null when there is none.
    // Over all advertisements of the record: the highest sequence number,
    // sticky, default gateway, single-active.
    uint32_t max_seq = 0;
    bool any_sticky = false, any_default_gw = false, any_single_active = false;

    const RouteEntry *gather(const RecordKey &k, bool with_sids) {
        paths.clear();
        path_sid_at.clear();
        sids.clear();
        max_seq = 0;
        any_sticky = any_default_gw = any_single_active = false;
        const RouteEntry *first = nullptr;
        by_record.probe(record_hash(k), [&](uint32_t i) {
            const RouteEntry &e = entry(i);
            if (!(record_key(e) == k)) return false;
            if (!first) first = &e;
            for (Pair p{e.adv, e.attrs, e.more};;) {
                const AttrSet &a = attr_sets[p.attrs];
                max_seq = std::max(max_seq, a.seq);
                any_sticky |= a.sticky;
                any_default_gw |= a.default_gw;
                any_single_active |= a.single_active;
                EvpnPath path{};
                path.NextHop = a.nh;
                path.OutputLabel = label_value(e.label[0], a.encap, a.sids);
                path.Layer2Attributes = a.l2;
                path_sid_at.push_back(static_cast<uint32_t>(sids.size()));
                if (with_sids)
                    for (Srv6Sid sid : a.sids) {
                        transpose(sid, e.label[0]);
                        sids.push_back(sid);
                    }
                path.SRv6_SIDInfo.count = static_cast<uint32_t>(sids.size() - path_sid_at.back());
                paths.push_back(path);
                if (!p.next) break;
                p = pairs[p.next - 1];
            }
            return false;
        });
        for (size_t i = 0; i < paths.size(); i++)
            paths[i].SRv6_SIDInfo.data = paths[i].SRv6_SIDInfo.count ? &sids[path_sid_at[i]] : nullptr;
        order.resize(paths.size());
        for (size_t i = 0; i < order.size(); i++) order[i] = static_cast<uint32_t>(i);
        auto less = [&](uint32_t x, uint32_t y) {
            const int c = memcmp(&paths[x].NextHop, &paths[y].NextHop, 16);
            return c != 0 ? c < 0 : paths[x].OutputLabel < paths[y].OutputLabel;
        };
        std::sort(order.begin(), order.end(), less);
        sorted.clear();
        for (size_t i = 0; i < order.size(); i++)
            if (i == 0 || less(order[i - 1], order[i])) sorted.push_back(paths[order[i]]);
        return first;
    }

    // RFC 9252: the label field carries the SID's bits at the transposition
    // offset.
    static void transpose(Srv6Sid &sid, uint32_t raw_label) {
        if (!sid.SIDStructurePresent) return;
        const uint32_t len = sid.sid_struct.TranspositionLen, off = sid.sid_struct.TranspositionOffset;
        if (len == 0 || len > 24 || off + len > 128) return;
        for (uint32_t b = 0; b < len; b++) {
            const uint32_t bit = (raw_label >> (23 - b)) & 1;
            const uint32_t at = off + b;
            uint8_t &byte = sid.SRv6_SID.bytes[at / 8];
            const uint8_t mask = static_cast<uint8_t>(0x80 >> (at % 8));
            byte = bit ? (byte | mask) : (byte & ~mask);
        }
    }

    const char *esi_string(const bmp::Esi &esi) {
        const char *t = esistring(esi.data());
        const size_t n = t ? strnlen(t, sizeof esi_text - 1) : 0;
        memcpy(esi_text, t ? t : "", n);
        esi_text[n] = '\0';
        return esi_text;
    }

    bool write_mac(const RecordKey &k, bool had, RecordSink &sink, std::string &err) {
        l2vpn_evpn_mac_bag r{};
        r.evi = k.evi;
        memcpy(r.mac_address, k.mac.data(), 6);
        bmp::IpAddr ip;
        ip.len = k.ip_len;
        ip.b = k.ip;
        r.ip_address = ip_of(ip);
        const RouteEntry *first = gather(k, true);
        stats.record_writes++;
        counted(k, had, first != nullptr);
        if (!first) return sink.remove(EVPN_PATH_MAC, &r, had ? Stored::Yes : Stored::No, err);
        const AttrSet &a = attr_sets[first->attrs];
        r.encap = a.encap;
        r.ethernet_tag = first->tag;
        r.path_buffer = {static_cast<uint32_t>(sorted.size()), sorted.data()};
        r.remote = 1;
        r.remote_esi = const_cast<char *>(esi_string(first->esi));
        r.remote_encap = static_cast<uint8_t>(a.encap);
        r.remote_seq_num = max_seq;
        r.remote_static = any_sticky;
        if (any_default_gw) r.ext_flags |= kExtFlagDefaultGateway;
        if (first->label[1]) r.l3_label = static_cast<int32_t>(label_value(first->label[1], a.encap));
        return sink.upsert(EVPN_PATH_MAC, &r, had ? Stored::Yes : Stored::No, err);
    }

    bool write_imcast(const RecordKey &k, bool had, RecordSink &sink, std::string &err) {
        l2vpn_evpn_imcast_bag r{};
        r.evi = k.evi;
        r.ethernet_tag = k.tag;
        bmp::IpAddr ip;
        ip.len = k.ip_len;
        ip.b = k.ip;
        r.originating_ip = ip_of(ip);
        const RouteEntry *first = gather(k, true);
        stats.record_writes++;
        counted(k, had, first != nullptr);
        if (!first) return sink.remove(EVPN_PATH_IMCAST, &r, had ? Stored::Yes : Stored::No, err);
        const AttrSet &a = attr_sets[first->attrs];
        r.encap = a.encap;
        r.pmsi_type = a.pmsi_type;
        r.nexthop = a.nh;
        r.label = a.has_pmsi ? label_value(a.pmsi_label, a.encap) : 0;
        // The SIDs of the first path (the route's own, transposed).
        if (!sorted.empty()) r.sids = sorted[0].SRv6_SIDInfo;
        return sink.upsert(EVPN_PATH_IMCAST, &r, had ? Stored::Yes : Stored::No, err);
    }

    bool write_ead(const RecordKey &k, bool had, RecordSink &sink, std::string &err) {
        l2vpn_evpn_ead_bag r{};
        r.evi = k.evi;
        r.esi = const_cast<char *>(esi_string(k.esi));
        r.ethernet_tag = k.tag;
        const RouteEntry *first = gather(k, true);
        stats.record_writes++;
        counted(k, had, first != nullptr);
        if (!first) return sink.remove(EVPN_PATH_EAD, &r, had ? Stored::Yes : Stored::No, err);
        r.encap = attr_sets[first->attrs].encap;
        r.path_buffer = {static_cast<uint32_t>(sorted.size()), sorted.data()};
        if (k.tag == kEthernetTagMax) r.remote_single_active = any_single_active;
        return sink.upsert(EVPN_PATH_EAD, &r, had ? Stored::Yes : Stored::No, err);
    }

    // Keeps the summary's counts as a record of key k comes or goes.
    void counted(const RecordKey &k, bool had, bool has) {
        if (has == had) return;
        const uint64_t d = has ? 1 : ~uint64_t(0);  // +1 or -1
        summary_dirty = true;
        (k.type == 2 ? stats.mac_records : k.type == 3 ? stats.imcast_records : stats.ead_records) += d;
        if (k.type == 2 && k.ip_len == 4) mac_v4 += d;
        if (k.type == 2 && k.ip_len == 16) mac_v6 += d;
    }

    // Rewrites the record of key k; had: it existed before the change.
    bool rewrite(const RecordKey &k, bool had, RecordSink &sink, std::string &err) {
        switch (k.type) {
        case 2: return write_mac(k, had, sink, err);
        case 3: return write_imcast(k, had, sink, err);
        case 1: return write_ead(k, had, sink, err);
        default: return true;  // segments are derived (flush)
        }
    }

    // ---- Route changes ---------------------------------------------------------

    // Drops adv's advertisement of entry i; frees the entry when none is left.
    // true when adv had one.
    bool drop_pair(uint32_t i, uint32_t adv) {
        RouteEntry &e = entry(i);
        if (e.adv == adv) {
            advertisement(e, e.attrs, -1);
            release_if_unused(e.attrs);
            if (e.more) {
                const uint32_t n = e.more - 1;
                e.adv = pairs[n].adv;
                e.attrs = pairs[n].attrs;
                e.more = pairs[n].next;
                free_pairs.push_back(n);
            } else {
                by_identity.erase(i, identity_hash(e));
                if (e.type != 4) by_record.erase(i, record_hash(record_key(e)));
                e.type = 0;
                free_entries.push_back(i);
                stats.routes_held--;
            }
            return true;
        }
        for (uint32_t *link = &e.more; *link;) {
            Pair &p = pairs[*link - 1];
            if (p.adv != adv) {
                link = &p.next;
                continue;
            }
            advertisement(e, p.attrs, -1);
            release_if_unused(p.attrs);
            free_pairs.push_back(*link - 1);
            *link = p.next;
            return true;
        }
        return false;
    }

    bool withdraw_one(uint32_t adv, const bmp::EvpnNlri &n, RecordSink &sink, std::string &err) {
        const int64_t at = find(n);
        if (at < 0) return true;
        const RecordKey k = record_key(entry(static_cast<uint32_t>(at)));
        if (!drop_pair(static_cast<uint32_t>(at), adv)) return true;
        return rewrite(k, true, sink, err);
    }

    bool announce_one(uint32_t adv, const bmp::EvpnNlri &n, uint32_t evi, uint32_t aid,
                      RecordSink &sink, std::string &err) {
        int64_t at = find(n);
        if (at >= 0 && n.route_type != 4 && entry(static_cast<uint32_t>(at)).evi != evi) {
            // Its route targets moved it to another EVI.
            if (!withdraw_one(adv, n, sink, err)) return false;
            at = find(n);
            // Other advertisers still hold the route in its old EVI: one
            // route has one EVI, so adv's announcement waits (is dropped)
            // until they withdraw theirs or announce the new EVI too.
            if (at >= 0) return true;
        }
        if (at < 0) {
            const uint32_t i = new_entry();
            RouteEntry &e = entry(i);
            e = RouteEntry{};
            e.type = n.route_type;
            e.rd = n.rd;
            e.esi = n.esi;
            e.mac = n.mac;
            e.ip_len = n.ip.len;
            memcpy(e.ip.data(), n.ip.b.data(), 16);
            e.tag = n.route_type == 4 ? 0 : n.ethernet_tag;
            e.evi = n.route_type == 4 ? 0 : evi;
            e.label[0] = n.label_count > 0 ? n.label[0] : 0;
            e.label[1] = n.label_count > 1 ? n.label[1] : 0;
            e.adv = adv;
            e.attrs = aid;
            const RecordKey k = record_key(e);
            const bool had = e.type != 4 && record_exists(k);
            by_identity.insert(i, identity_hash(e));
            if (e.type != 4) by_record.insert(i, record_hash(k));
            stats.routes_held++;
            advertisement(e, aid, 1);
            return rewrite(k, had, sink, err);
        }
        const uint32_t i = static_cast<uint32_t>(at);
        RouteEntry &e = entry(i);
        e.esi = n.esi;
        e.label[0] = n.label_count > 0 ? n.label[0] : 0;
        e.label[1] = n.label_count > 1 ? n.label[1] : 0;
        // adv's advertisement replaced, or a new advertiser added.
        uint32_t *slot = nullptr;
        if (e.adv == adv) slot = &e.attrs;
        for (uint32_t l = e.more; !slot && l; l = pairs[l - 1].next)
            if (pairs[l - 1].adv == adv) slot = &pairs[l - 1].attrs;
        if (slot) {
            if (*slot != aid) {
                const uint32_t old = *slot;
                advertisement(e, old, -1);
                *slot = aid;
                advertisement(e, aid, 1);
                release_if_unused(old);
            }
        } else {
            uint32_t p;
            if (!free_pairs.empty()) {
                p = free_pairs.back();
                free_pairs.pop_back();
            } else {
                p = static_cast<uint32_t>(pairs.size());
                pairs.emplace_back();
            }
            // Appended, so that the first advertiser stays first.
            pairs[p] = {adv, aid, 0};
            uint32_t *link = &e.more;
            while (*link) link = &pairs[*link - 1].next;
            *link = p + 1;
            advertisement(e, aid, 1);
        }
        return rewrite(record_key(e), true, sink, err);
    }

    // ---- Derived records -------------------------------------------------------

    bool flush(RecordSink &sink, std::string &err) {
        settle();
        auto put = [&](bool exists, std::string_view base, const void *r) {
            stats.record_writes++;
            return exists ? sink.upsert(base, r, Stored::Unknown, err)
                          : sink.remove(base, r, Stored::Unknown, err);
        };
        for (const EviKey &k : dirty_evis) {
            const bool on = evis.count(k) != 0;
            l2vpn_evpn_evi_summary_bag s{};
            s.vpn_id = k.evi;
            s.encap = k.encap;
            s.evi_type = evi_type_of(k.encap);
            l2vpn_evpn_evi_detail_bag d{};
            d.evi = d.vpn_id = k.evi;
            d.encap = k.encap;
            d.evi_type = s.evi_type;
            // No configured RD is known here: it reads 0:0. The automatic
            // RD and RT are the smallest of the EVI's routes.
            d.rd_config.format = L2VPN_RD_FORMAT_AS2;
            const uint8_t none[8] = {};
            d.rd_auto = d.rt_auto = rd_value(none);
            if (auto it = evi_rds.lower_bound({k.evi, k.encap, 0});
                it != evi_rds.end() && it->first.evi == k.evi && it->first.encap == k.encap) {
                uint8_t raw[8];
                for (int i = 0; i < 8; i++) raw[i] = static_cast<uint8_t>(it->first.rt >> (56 - 8 * i));
                d.rd_auto = rd_value(raw);
            }
            if (auto it = evi_rts.lower_bound({k.evi, k.encap, 0});
                it != evi_rts.end() && it->first.evi == k.evi && it->first.encap == k.encap)
                d.rt_auto = rt_value(it->first.rt);
            if (!put(on, EVPN_PATH_EVI, &s) || !put(on, EVPN_PATH_EVI_DETAIL, &d)) return false;
        }
        dirty_evis.clear();
        for (const EviRtKey &k : dirty_evi_rts) {
            l2vpn_evpn_evi_bgp_rt_bag r{};
            r.vpn_id = k.evi;
            r.encap = k.encap;
            r.rt = rt_value(k.rt);
            r.rt_type = kRtTypeImport;
            if (!put(evi_rts.count(k) != 0, EVPN_PATH_EVI_RT, &r)) return false;
        }
        dirty_evi_rts.clear();
        for (uint64_t k : dirty_rds) {
            l2vpn_evpn_rd_private_bag r{};
            uint8_t raw[8];
            memcpy(raw, &k, 8);
            r.rd = rd_value(raw);
            if (!put(rds.count(k) != 0, EVPN_PATH_RD, &r)) return false;
        }
        dirty_rds.clear();
        for (const AddrKey &k : dirty_neighbors) {
            l2vpn_evpn_neighbor_bag r{};
            r.evi = k.scope;
            r.neighbor = k.addr;
            auto it = neighbors.find(k);
            if (it != neighbors.end()) r.encap = it->second.encap;
            if (!put(it != neighbors.end(), EVPN_PATH_NEIGHBOR, &r)) return false;
        }
        dirty_neighbors.clear();
        for (const Dirty<AddrKey> &k : dirty_teps) {
            l2vpn_evpn_tep_bag r{};
            r.tep_id = k.id;
            auto it = teps.find(k.key);
            const bool on = it != teps.end() && it->second.id == k.id;
            r.remote_encap = static_cast<uint8_t>(k.key.scope);
            r.remote_nexthop = k.key.addr;
            if (!put(on, EVPN_PATH_TEP, &r)) return false;
        }
        dirty_teps.clear();
        for (const Dirty<EsiKey> &k : dirty_segments) {
            auto it = segments.find(k.key);
            const bool on = it != segments.end() && it->second.id == k.id;
            l2vpn_evpn_es_bag r{};
            r.esi_id = k.id;
            r.esi_text = const_cast<char *>(esi_string(k.key.esi));
            r.esi_type = k.key.esi[0];
            es_nexthops.clear();
            if (on) {
                const Segment &s = it->second;
                for (const auto &[addr, n] : s.nexthops) {
                    l2vpn_evpn_es_nexthop nh{};
                    memcpy(nh.address.bytes, addr.data(), 16);
                    es_nexthops.push_back(nh);
                }
                r.nexthops = {static_cast<uint32_t>(es_nexthops.size()), es_nexthops.data()};
                memcpy(r.import_rt, s.import_rt, 6);
            }
            if (!put(on, EVPN_PATH_ES, &r)) return false;
        }
        dirty_segments.clear();
        if (summary_dirty) {
            l2vpn_evpn_summary_bag s{};
            s.bgp_router_id = ip_of([&] {
                bmp::IpAddr a;
                if (router_id) {
                    a.len = 4;
                    for (int i = 0; i < 4; i++) a.b[i] = static_cast<uint8_t>(router_id >> (24 - 8 * i));
                }
                return a;
            }());
            s.bgp_asn = router_as;
            s.evi_count = static_cast<uint32_t>(evis.size());
            s.tep_count = static_cast<uint32_t>(teps.size());
            s.remote_mac_count = static_cast<uint32_t>(stats.mac_records);
            s.remote_mac_ipv4_count = static_cast<uint32_t>(mac_v4);
            s.remote_mac_ipv6_count = static_cast<uint32_t>(mac_v6);
            s.remote_imcast_count = static_cast<uint32_t>(stats.imcast_records);
            s.es_count = static_cast<uint32_t>(segments.size());
            s.neighbor_count = static_cast<uint32_t>(neighbors.size());
            s.remote_ead_count = static_cast<uint32_t>(stats.ead_records);
            if (!put(true, EVPN_PATH_SUMMARY, &s)) return false;
            summary_dirty = false;
        }
        return true;
    }
};

RouteMapper::RouteMapper(const EviMap &evi_map) : impl_(std::make_unique<Impl>(evi_map)) {}
RouteMapper::~RouteMapper() = default;

bool RouteMapper::announce(uint32_t adv, std::span<const bmp::EvpnNlri> routes,
                           const bmp::RouteAttrs &attrs, RecordSink &sink, uint32_t &unmapped,
                           std::string &err) {
    Impl &m = *impl_;
    unmapped = 0;
    const uint32_t evi = m.evi_map.evi_of(attrs.route_targets);
    int64_t aid = -1;
    for (const bmp::EvpnNlri &n : routes) {
        if (n.route_type < 1 || n.route_type > 4) continue;
        if (n.route_type != 4 && evi == 0) {
            unmapped++;
            if (!m.withdraw_one(adv, n, sink, err)) return false;
            continue;
        }
        if (aid < 0) aid = m.intern(attrs);
        if (!m.announce_one(adv, n, evi, static_cast<uint32_t>(aid), sink, err)) return false;
    }
    if (aid >= 0) m.release_if_unused(static_cast<uint32_t>(aid));
    return true;
}

bool RouteMapper::withdraw(uint32_t adv, std::span<const bmp::EvpnNlri> routes, RecordSink &sink,
                           std::string &err) {
    for (const bmp::EvpnNlri &n : routes)
        if (n.route_type >= 1 && n.route_type <= 4 && !impl_->withdraw_one(adv, n, sink, err))
            return false;
    return true;
}

bool RouteMapper::drop_advertisers(std::span<const uint32_t> advs, RecordSink &sink,
                                   std::string &err) {
    Impl &m = *impl_;
    if (advs.empty()) return true;
    for (uint32_t i = 0; i < m.entries_made; i++) {
        RouteEntry &e = m.entry(i);
        if (!e.type) continue;
        const RecordKey k = record_key(e);
        bool dropped = false;
        // An entry freed by its last advertiser's drop has type 0.
        for (uint32_t adv : advs)
            if (e.type && m.drop_pair(i, adv)) dropped = true;
        if (dropped && !m.rewrite(k, true, sink, err)) return false;
    }
    return true;
}

bool RouteMapper::flush(RecordSink &sink, std::string &err) { return impl_->flush(sink, err); }

bool RouteMapper::dirty() const {
    const Impl &m = *impl_;
    return m.summary_dirty || m.run.delta || !m.runs.empty() || !m.dirty_evis.empty() ||
           !m.dirty_evi_rts.empty() || !m.dirty_rds.empty() || !m.dirty_neighbors.empty() ||
           !m.dirty_teps.empty() || !m.dirty_segments.empty();
}

void RouteMapper::set_router(uint32_t bgp_id, uint32_t as) {
    if (impl_->router_id == bgp_id && impl_->router_as == as) return;
    impl_->router_id = bgp_id;
    impl_->router_as = as;
    impl_->summary_dirty = true;
}

const MapperStats &RouteMapper::stats() const { return impl_->stats; }

}  // namespace evpn::collector
