// Synthetic MAC routes. Every route is built in one record struct whose
// strings and arrays point into buffers owned here and reused, so the
// per-route cost is the encoding and the insert, not allocation.
//
// Layout of the data: EVIs 1..E, each with its bridge domain "bd-<evi>" and
// an encapsulation (about 60% MPLS, 25% VXLAN, 15% SRv6). Routes are spread
// evenly over the EVIs and come in hosts: a MAC-only route, often a MAC+IPv4
// route and sometimes a MAC+IPv6 route for the same MAC. About 30% of hosts
// are local (some on a multi-homed bond, some of those also learned from
// the peer), the rest remote with 1 to 4 paths (more than one path means an
// aliased multi-homed segment). MACs and IPv4 addresses grow with the host
// number, so routes come out in key order and inserts append.
#include "generator.h"

#include <cstdio>
#include <cstring>
#include <optional>
#include <ostream>
#include <vector>

#include "gen_kinds.h"
#include "json_record.h"
#include "json_writer.h"
#include "platform/bag_types.h"
#include "platform/sysdb_registry.h"
#include "progress.h"
#include "sysdb_writer.h"

namespace evpn {

namespace {

const std::string kRoot = "/oper/evpn/gl/";
constexpr const char *kMacBase = "evpn_evi_detail/evi_child_container/evpn_mac";
constexpr const char *kEviBase = "evpn_evi";
constexpr const char *kSummaryBase = "summary";

constexpr int kMaxPaths = 4;

}  // namespace

void gen_ipv4(l2vpn_ip_addr_t &a, uint32_t v) {
    memset(a.bytes, 0, 16);
    a.bytes[10] = a.bytes[11] = 0xff;
    a.bytes[12] = uint8_t(v >> 24);
    a.bytes[13] = uint8_t(v >> 16);
    a.bytes[14] = uint8_t(v >> 8);
    a.bytes[15] = uint8_t(v);
}

void gen_ipv6(l2vpn_ip_addr_t &a, uint16_t g0, uint16_t g1, uint16_t g2, uint16_t g3,
              uint32_t host) {
    memset(a.bytes, 0, 16);
    uint16_t g[4] = {g0, g1, g2, g3};
    for (int i = 0; i < 4; i++) {
        a.bytes[2 * i] = uint8_t(g[i] >> 8);
        a.bytes[2 * i + 1] = uint8_t(g[i]);
    }
    a.bytes[12] = uint8_t(host >> 24);
    a.bytes[13] = uint8_t(host >> 16);
    a.bytes[14] = uint8_t(host >> 8);
    a.bytes[15] = uint8_t(host);
}

void gen_pe_address(l2vpn_ip_addr_t &a, uint32_t pe, bool srv6) {
    if (srv6) gen_ipv6(a, 0x2001, 0xdb8, 0, 0, pe);
    else gen_ipv4(a, 0xc0000200u + pe);
}

void gen_srv6_sid(Srv6Sid &s, uint16_t node, uint16_t function, uint16_t behavior) {
    memset(&s, 0, sizeof s);
    s.SRv6EndpointBehavior = behavior;
    gen_ipv6(s.SRv6_SID, 0xfc00, 0, node, function, 0);
    s.SIDStructurePresent = 1;
    s.sid_struct = {32, 16, 16, 0, 16, 48};
}

void gen_bd_name(char *buf, size_t size, uint32_t evi) { snprintf(buf, size, "bd-%u", evi); }

void gen_segment_esi(char *buf, size_t size, uint32_t segment) {
    snprintf(buf, size, "0011.2233.4455.6677.%04x", (segment + 1) & 0xffff);
}

uint8_t gen_evi_encap(uint32_t evi, uint64_t seed) {
    SplitMix64 r{seed ^ (uint64_t(evi) * 0x2545f4914f6cdd1dull)};
    uint32_t p = r.below(100);
    return p < 60 ? EVPN_ENCAP_MPLS : p < 85 ? EVPN_ENCAP_VXLAN : EVPN_ENCAP_SRV6;
}

uint32_t gen_evi_type(uint8_t encap) {
    return encap == EVPN_ENCAP_VXLAN ? 5 : encap == EVPN_ENCAP_SRV6 ? 6 : 1;
}

uint32_t gen_evi_label(uint8_t encap, uint32_t evi, uint32_t pe) {
    if (encap == EVPN_ENCAP_VXLAN) return 10000 + evi;
    if (encap == EVPN_ENCAP_SRV6) return 0xe000 + (evi & 0xfff);
    return 24000 + ((evi + pe * 7919) % 1000000);
}

const GenKindInfo kGenKinds[GEN_KIND_COUNT] = {
#define EVPN_GEN_KIND_INFO(kind, base, what) {#kind, base, what},
    EVPN_GEN_KINDS(EVPN_GEN_KIND_INFO)
#undef EVPN_GEN_KIND_INFO
};

namespace {

// Snapshot text: records without the fields that equal a zeroed record's,
// which the loader fills in again (a snapshot of a million routes stays a
// few hundred bytes a route).
class JsonOut {
  public:
    explicit JsonOut(std::ostream &out) : out_(out) {}

    void begin(const GenOptions &opt, bool srv6) {
        out_ << "{\n  \"comment\": \"generated: " << opt.routes << " MAC routes over " << opt.evis
             << " EVIs";
        for (unsigned k = 0; k < GEN_KIND_COUNT; k++)
            if (opt.count[k]) out_ << ", " << opt.count[k] << " " << kGenKinds[k].what;
        out_ << ", seed " << opt.seed << "\",\n  \"capabilities\": {\"srv6\": "
             << (srv6 ? "true" : "false") << ", \"srv6_elan\": " << (srv6 ? "true" : "false")
             << "},\n  \"roots\": {\n    \"" << kRoot << "\": {";
    }
    void listing(const char *base) {
        text_.write_to(out_);
        out_ << (listings_++ ? "\n      ],\n" : "\n") << "      \"" << base << "\": [";
        first_ = true;
    }
    void record(const void *rec, const BagDesc *desc) {
        text_.raw(first_ ? "\n        " : ",\n        ");
        record_json(text_, rec, desc, JsonForm::Sparse);
        if (text_.size() >= (1 << 16)) text_.write_to(out_);
        first_ = false;
    }
    bool end() {
        text_.write_to(out_);
        out_ << (listings_ ? "\n      ]" : "") << "\n    }\n  }\n}\n";
        out_.flush();
        return static_cast<bool>(out_);
    }

  private:
    std::ostream &out_;
    JsonText text_;  // records not yet written to out_
    int listings_ = 0;
    bool first_ = true;
};

// The route being built, with the buffers its pointers refer to.
struct RouteBuf {
    l2vpn_evpn_mac_bag r;
    EvpnPath paths[kMaxPaths];
    Srv6Sid path_sids[kMaxPaths];
    Srv6Sid local_sid;
    evt_hist_entry_bag events[2];
    uint32_t event_data[2][2];
    char bd_name[24], local_esi[32], remote_esi[32], nexthop_name[48], ts[2][24];
};

class Generator : public GenSink {
  public:
    Generator(const GenOptions &opt, SysdbWriter *w, std::ostream *json, std::string &err,
              Progress *progress)
        : opt_(opt), w_(w), err_(err), progress_(progress), rng_{opt.seed} {
        if (json) json_.emplace(*json);
        if (progress) {
            uint64_t total = opt.routes + opt.evis + 1;  // the routes, EVI summaries, summary
            for (uint64_t n : opt.count) total += n;
            progress->set_total(total);
        }
        this->opt = &opt;
    }

    bool put(const void *record, const BagDesc *desc) override { return put(base_, record, desc); }

    bool run(GenCounts &counts) {
        bool srv6 = false;
        for (uint32_t e = 1; e <= opt_.evis && !srv6; e++) srv6 = gen_evi_encap(e, opt_.seed) == EVPN_ENCAP_SRV6;
        // Stated either way, as the snapshot states them.
        if (w_ && (!w_->set_capability("srv6", srv6, err_) ||
                   !w_->set_capability("srv6_elan", srv6, err_)))
            return false;
        if (json_) {
            json_->begin(opt_, srv6);
            json_->listing(kMacBase);
        }
        for (uint32_t evi = 1; evi <= opt_.evis; evi++) {
            uint64_t quota = gen_evi_share(opt_.routes, opt_.evis, evi);
            if (!evi_routes(evi, quota)) return false;
        }
        // Each other kind from its own random stream, so that adding one
        // changes neither the routes nor the other kinds.
        static bool (*const kinds[GEN_KIND_COUNT])(GenSink &, uint64_t) = {
#define EVPN_GEN_KIND_FN(kind, base, what) gen_##kind,
            EVPN_GEN_KINDS(EVPN_GEN_KIND_FN)
#undef EVPN_GEN_KIND_FN
        };
        for (unsigned k = 0; k < GEN_KIND_COUNT; k++) {
            if (!opt_.count[k]) continue;
            base_ = kGenKinds[k].base;
            if (json_) json_->listing(base_);
            rng = SplitMix64{opt_.seed ^ (0x6a09e667f3bcc909ull * (k + 1))};
            list_entries = 0;
            if (!kinds[k](*this, opt_.count[k])) return false;
            c_.list_entries[k] = list_entries;
        }
        if (json_) json_->listing(kEviBase);
        for (uint32_t evi = 1; evi <= opt_.evis; evi++) {
            char bd[24];
            gen_bd_name(bd, sizeof bd, evi);
            l2vpn_evpn_evi_summary_bag s{};
            s.vpn_id = evi;
            s.encap = gen_evi_encap(evi, opt_.seed);
            s.bd_name = bd;
            s.evi_type = gen_evi_type(static_cast<uint8_t>(s.encap));
            if (!put(kEviBase, &s, &bag_desc_l2vpn_evpn_evi_summary_bag)) return false;
        }
        if (json_) json_->listing(kSummaryBase);
        l2vpn_evpn_summary_bag s{};
        gen_ipv4(s.evpn_router_id, 0xc0000201);  // 192.0.2.1
        gen_ipv4(s.bgp_router_id, 0xc0000201);
        s.bgp_asn = 65000;
        s.bgp_eod = 1;
        s.evi_count = opt_.evis;
        s.tep_count = opt_.count[GEN_teps] ? static_cast<uint32_t>(opt_.count[GEN_teps]) : kGenPeers;
        s.local_mac_count = static_cast<uint32_t>(c_.local);
        s.local_mac_ipv4_count = static_cast<uint32_t>(local_v4_);
        s.local_mac_ipv6_count = static_cast<uint32_t>(local_v6_);
        s.remote_mac_count = static_cast<uint32_t>(c_.remote);
        s.remote_mac_ipv4_count = static_cast<uint32_t>(c_.ipv4 - local_v4_);
        s.remote_mac_ipv6_count = static_cast<uint32_t>(c_.ipv6 - local_v6_);
        s.es_count = opt_.count[GEN_es] ? static_cast<uint32_t>(opt_.count[GEN_es]) : kGenSegments;
        s.neighbor_count = kGenPeers;
        if (!put(kSummaryBase, &s, &bag_desc_l2vpn_evpn_summary_bag)) return false;
        if (json_ && !json_->end()) {
            err_ = "writing the snapshot failed";
            return false;
        }
        counts = c_;
        return true;
    }

  private:
    bool put(const char *base, const void *rec, const BagDesc *desc) {
        if (w_ && !w_->add(kRoot, base, rec, err_)) return false;
        if (json_) json_->record(rec, desc);
        if (progress_) {
            records_++;
            progress_->update(records_, records_);
        }
        return true;
    }

    bool evi_routes(uint32_t evi, uint64_t quota) {
        RouteBuf &b = buf_;
        uint8_t encap = gen_evi_encap(evi, opt_.seed);
        gen_bd_name(b.bd_name, sizeof b.bd_name, evi);
        while (quota) {
            host_++;
            mac_ += 1 + rng_.below(4);
            bool local = rng_.chance(30);
            // Which of the host's routes exist: MAC-only, MAC+IPv4, MAC+IPv6.
            bool v4 = rng_.chance(45), v6 = rng_.chance(20);
            host_shape(evi, encap, local);
            for (int kind = 0; kind < 3 && quota; kind++) {
                if ((kind == 1 && !v4) || (kind == 2 && !v6)) continue;
                if (kind == 0) memset(b.r.ip_address.bytes, 0, 16);
                if (kind == 1) gen_ipv4(b.r.ip_address, 0x0a000000u + static_cast<uint32_t>(host_));
                if (kind == 2)
                    gen_ipv6(b.r.ip_address, 0x2001, 0xdb8, uint16_t(evi >> 16), uint16_t(evi),
                         static_cast<uint32_t>(host_));
                // Symmetric IRB routes carry a layer-3 label.
                b.r.l3_label = kind && encap == EVPN_ENCAP_MPLS && (host_ % 3 == 0) ? 25000 + evi % 1000 : 0;
                if (!put(kMacBase, &b.r, &bag_desc_l2vpn_evpn_mac_bag)) return false;
                quota--;
                c_.routes++;
                c_.paths += b.r.path_buffer.count;
                if (b.r.local) c_.local++;
                else c_.remote++;
                if (kind == 1) {
                    c_.ipv4++;
                    if (b.r.local) local_v4_++;
                }
                if (kind == 2) {
                    c_.ipv6++;
                    if (b.r.local) local_v6_++;
                }
            }
        }
        return true;
    }

    // Everything of a host's routes but the IP address.
    void host_shape(uint32_t evi, uint8_t encap, bool local) {
        RouteBuf &b = buf_;
        l2vpn_evpn_mac_bag &r = b.r;
        memset(&r, 0, sizeof r);
        r.evi = evi;
        r.encap = encap;
        for (int i = 0; i < 6; i++) r.mac_address[i] = uint8_t(mac_ >> (40 - 8 * i));
        r.bd_name = b.bd_name;
        r.local_esi = r.remote_esi = const_cast<char *>(kGenZeroEsi);
        uint32_t ac = 1 + rng_.below(48);
        uint32_t segment = rng_.below(kGenSegments);
        bool multihomed = rng_.chance(local ? 15 : 25);
        if (multihomed)
            snprintf(local ? b.local_esi : b.remote_esi, sizeof b.local_esi,
                     "0011.2233.4455.6677.%04x", segment + 1);
        if (local) {
            r.local = 1;
            r.local_encap = encap;
            r.local_label = gen_evi_label(encap, evi, 0);
            if (multihomed) {
                r.local_esi = b.local_esi;
                snprintf(b.nexthop_name, sizeof b.nexthop_name, "bond%u.%u", segment + 1, evi);
            } else if (encap == EVPN_ENCAP_SRV6 || rng_.chance(10)) {
                snprintf(b.nexthop_name, sizeof b.nexthop_name, "PW:192.0.2.%u,%u", 20 + ac, evi);
            } else {
                snprintf(b.nexthop_name, sizeof b.nexthop_name, "eth%u", ac);
            }
            r.local_nexthop_name = b.nexthop_name;
            r.mac_state = const_cast<char *>("Local");
            r.local_seq_num = rng_.below(3);
            r.local_router_mac[0] = 0x00;
            r.local_router_mac[1] = 0x8a;
            r.local_router_mac[2] = 0x96;
            r.local_router_mac[5] = 0x01;
            r.bp_xcid = 0xa0000000u + ac;
            r.mac_producers = r.best_producer = 1;
            r.local_ac_id = ac;
            r.bp_ifh = 4096 + ac * 32;
            if (encap == EVPN_ENCAP_SRV6) {
                gen_srv6_sid(b.local_sid, 1, uint16_t(r.local_label), 63);
                r.local_sids = {1, &b.local_sid};
            }
            // A multi-homed local MAC is usually also synced from the peer.
            if (multihomed && rng_.chance(50)) remote_paths(evi, encap, 1);
        } else {
            int n = rng_.below(100);
            remote_paths(evi, encap, n < 60 ? 1 : n < 85 ? 2 : n < 95 ? 3 : 4);
            if (r.path_buffer.count > 1 && !multihomed) {
                snprintf(b.remote_esi, sizeof b.remote_esi, "0011.2233.4455.6677.%04x", segment + 1);
                r.remote_esi = b.remote_esi;
            } else if (multihomed) {
                r.remote_esi = b.remote_esi;
            }
        }
        // Some routes keep a short event history.
        r.event_history_info.evt_class_name = const_cast<char *>("mac-info");
        r.event_history.evt_class_name = const_cast<char *>("evpn-mac");
        if (rng_.chance(25)) {
            uint64_t ms = 1700725212000ull + host_ * 7;
            for (int i = 0; i < 2; i++) {
                evt_hist_entry_bag &e = b.events[i];
                memset(&e, 0, sizeof e);
                snprintf(b.ts[i], sizeof b.ts[i], "11/23 07:40:%02u.%03u",
                         static_cast<unsigned>((ms / 1000) % 60), static_cast<unsigned>(ms % 1000));
                e.evt_timestamp = b.ts[i];
                e.evt_timestamp_ms = ms + i;
                e.evt_name = const_cast<char *>(local ? (i ? "Advertise to BGP" : "Local learn")
                                                      : (i ? "Program L2FIB" : "Remote update"));
                e.evt_type = uint8_t(i + 1);
                e.evt_many = i;
                b.event_data[i][0] = r.local ? r.bp_ifh : r.remote_seq_num;
                b.event_data[i][1] = static_cast<uint32_t>(host_);
                e.evt_data = {2, b.event_data[i]};
            }
            r.event_history.evt_entry = {2, b.events};
        }
    }

    void remote_paths(uint32_t evi, uint8_t encap, uint32_t n) {
        RouteBuf &b = buf_;
        l2vpn_evpn_mac_bag &r = b.r;
        r.remote = 1;
        r.remote_encap = encap;
        if (!r.local) r.mac_state = const_cast<char *>("Remote");
        r.remote_seq_num = rng_.below(4);
        r.stamped_xcid = 0xa0000100u + evi % 4096;
        r.mac_producers |= 4;
        if (!r.local) r.best_producer = 4;
        r.remote_ac_id = 16 + rng_.below(16);
        uint32_t first = rng_.below(kGenPeers);
        for (uint32_t i = 0; i < n; i++) {
            EvpnPath &p = b.paths[i];
            memset(&p, 0, sizeof p);
            uint32_t pe = 1 + (first + i) % kGenPeers;
            if (encap == EVPN_ENCAP_SRV6) {
                gen_ipv6(p.NextHop, 0x2001, 0xdb8, 0, 0, pe);
                gen_srv6_sid(b.path_sids[i], uint16_t(pe + 1), uint16_t(gen_evi_label(encap, evi, pe)), 63);
                p.SRv6_SIDInfo = {1, &b.path_sids[i]};
            } else {
                gen_ipv4(p.NextHop, 0xc0000200u + pe);  // 192.0.2.<pe>
            }
            p.TunnelEndpointID = pe;
            p.OutputLabel = gen_evi_label(encap, evi, pe);
            p.OriginatingPE = p.NextHop;
            p.PathVerion = 1;
        }
        r.path_buffer = {n, b.paths};
    }

    const GenOptions &opt_;
    const char *base_ = nullptr;
    SysdbWriter *w_;
    std::string &err_;
    Progress *progress_;
    uint64_t records_ = 0;
    std::optional<JsonOut> json_;
    SplitMix64 rng_;
    RouteBuf buf_{};
    GenCounts c_;
    uint64_t local_v4_ = 0, local_v6_ = 0, host_ = 0;
    uint64_t mac_ = 0x001122000000ull;
};

}  // namespace

bool generate(const GenOptions &opt, SysdbWriter *writer, std::ostream *json_out,
              std::string &err, GenCounts *counts, Progress *progress) {
    if (opt.evis == 0) {
        err = "at least one EVI is needed";
        return false;
    }
    GenCounts c;
    Generator g(opt, writer, json_out, err, progress);
    if (!g.run(c)) return false;
    if (counts) *counts = c;
    return true;
}

}  // namespace evpn
