// Record retrieval against test databases: listing walks in batches, single
// items, bridge-domain statistics of EVI batches, the generic show routines.
#include "platform/infra.h"
#include "platform/show.h"
#include "test_util.h"

namespace {

using spine_test::Capture;
using Lines = std::vector<std::string>;

const std::string kRoot = "/oper/evpn/gl/", kDetails = "evpn_evi_detail/detailed_elements";
const std::string kGarbage("\0\0\0\1", 4);  // too short for any record
const std::string kTruncated = cerr_strerror(BAG_ERR_TRUNCATED);

std::string evi_name(uint32_t id) {
    char name[24];
    snprintf(name, sizeof name, "0x%x,0x0", id);
    return name;
}
bool in(const std::vector<uint32_t> &ids, uint32_t id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// EVIs 1..n in the brief listing; the ids in corrupt do not decode.
auto evis(uint32_t n, std::vector<uint32_t> corrupt = {}) {
    return [=](evpn::SysdbWriter &w) {
        std::string err, bd = "bd";
        for (uint32_t id = 1; id <= n; id++) {
            l2vpn_evpn_evi_summary_bag evi{id, 0, bd.data(), 0};
            EXPECT_TRUE(in(corrupt, id) ? w.add_raw(kRoot, "evpn_evi", evi_name(id), kGarbage, err)
                                        : w.add(kRoot, "evpn_evi", &evi, err)) << err;
        }
    };
}

// Detailed EVIs 1..n, EVI i in bridge domain 100 + i, whose counters on
// nodes 0 and 5 have rx_total_packets 10 * bd + node (none for no_counters).
auto evi_details(uint32_t n, std::vector<uint32_t> corrupt = {}, uint32_t no_counters = 0) {
    return [=](evpn::SysdbWriter &w) {
        std::string err;
        for (uint32_t id = 1; id <= n; id++) {
            l2vpn_evpn_evi_detail_bag evi{};
            evi.vpn_id = id, evi.bd_id = 100 + id;
            EXPECT_TRUE(in(corrupt, id) ? w.add_raw(kRoot, kDetails, evi_name(id), kGarbage, err)
                                        : w.add(kRoot, kDetails, &evi, err)) << err;
            for (uint32_t node : {0u, 5u}) {
                bd_forwarding_stats s{};
                s.rx_total_packets = 10 * evi.bd_id + node;
                EXPECT_TRUE(id == no_counters || w.add_bd_stats(node, evi.bd_id, s, err)) << err;
            }
        }
    };
}

struct Printed {
    uint32_t vpn_id;
    std::string name;
    uint64_t index;  // UINT64_MAX: no print context
    const void *record;
};
std::vector<Printed> g_printed;

void print_evi(const void *record, const char *name, PrintContext *ctx) {
    g_printed.push_back({static_cast<const l2vpn_evpn_evi_summary_bag *>(record)->vpn_id, name,
                         ctx ? ctx->index : UINT64_MAX, record});
}

std::string displaying(std::initializer_list<uint32_t> ids) {
    std::string s;
    for (uint32_t id : ids) s += "evpn_show_datalist_display: Now displaying " + evi_name(id) + "\n";
    return s;
}

class SpineWalk : public spine_test::BoundClient {
  protected:
    void SetUp() override {
        BoundClient::SetUp();
        g_printed.clear();
    }
    void TearDown() override {
        sysdb_set_batch_byte_budget(0);
        malloc_named_fail_label("");
        BoundClient::TearDown();
    }
    void use(const std::string &db, const std::function<void(evpn::SysdbWriter &)> &fill) {
        bind(spine_test::build_db(db, fill));
    }
    static Capture walk(ShowContext ctx) {
        return spine_test::capture([&] { evpn_show_datalist_display(&ctx); });
    }
    static ShowContext evi_listing(uint32_t batch = 200, const char *path = "evpn_evi") {
        return {path, print_evi, l2vpn_bag_dll__l2vpn_evpn_evi_summary_bag(), 24, batch, 0};
    }
};

TEST_F(SpineWalk, BatchesResumeAfterTheLastNameOfAFullBatch) {
    for (uint32_t n : {0u, 1u, 199u, 200u, 201u, 401u}) {
        use("evis" + std::to_string(n) + ".db", evis(n));
        g_printed.clear();
        Capture c = walk(evi_listing());
        ASSERT_EQ(g_printed.size(), n);
        for (uint32_t i = 0; i < n; i++) {
            EXPECT_EQ(g_printed[i].name, evi_name(i + 1));
            EXPECT_EQ(g_printed[i].index, i);
            EXPECT_EQ(g_printed[i].record, g_printed[0].record) << "one decode buffer per walk";
        }
        Lines resumes{""};
        for (uint32_t k = 1; k <= n / 200; k++) resumes.push_back(evi_name(200 * k));
        EXPECT_EQ(c.resume_names, resumes) << n;
        for (size_t k = 0; k < c.requests.size(); k++) {
            EXPECT_EQ(c.requests[k].count_in, 200u);
            EXPECT_EQ(c.requests[k].flags, k ? SYSDB_DATALIST_RESUME : 0u);
        }
        EXPECT_EQ(std::count(c.traces.begin(), c.traces.end(), '\n'), n) << "Now displaying only";
        EXPECT_EQ(bag_inner_bytes_held(), 0u);
    }
}

TEST_F(SpineWalk, RecordThatDoesNotDecodeIsSkipped) {
    use("corrupt.db", evis(5, {3}));
    Capture c = walk(evi_listing(3));
    EXPECT_EQ(c.traces, displaying({1, 2}) + "evpn_show_datalist_display: bag decode " +
                            kTruncated + "\n" + displaying({4, 5}));
    ASSERT_EQ(g_printed.size(), 4u);
    EXPECT_EQ(g_printed[2].vpn_id, 4u);
    EXPECT_EQ(g_printed[2].index, 2u) << "the skipped record takes no index";
    EXPECT_EQ(c.resume_names, (Lines{"", evi_name(3)})) << "still the batch's last name";
}

TEST_F(SpineWalk, ShortBatchWithTheMoreFlagIsFollowedByAnotherRequest) {
    use("evis5.db", evis(5));
    sysdb_set_batch_byte_budget(1);  // every batch is cut after its first item
    Capture c = walk(evi_listing());
    EXPECT_EQ(g_printed.size(), 5u);
    EXPECT_EQ(c.resume_names, (Lines{"", evi_name(1), evi_name(2), evi_name(3), evi_name(4)}));
}

TEST_F(SpineWalk, NothingToWalk) {
    use("evis1.db", evis(1));
    for (const char *path : {"rd_private", "evpn_evi-nosuch/1", "evpn_evi-evi/0x99", "nosuch"}) {
        Capture c = walk(evi_listing(200, path));
        EXPECT_EQ(c.traces, "") << path;
        EXPECT_EQ(c.requests.size(), 1u) << path;
    }
    ShowContext bad[5];
    std::fill(bad, bad + 5, evi_listing());
    bad[0].path = nullptr, bad[1].printer = nullptr, bad[2].bag = nullptr;
    bad[3].record_size = 0, bad[4].batch_count = 0;
    for (const ShowContext &ctx : bad) {
        Capture c = walk(ctx);
        EXPECT_EQ(c.traces, "evpn_show_datalist_check: Invalid datalist context\n");
        EXPECT_TRUE(c.requests.empty());
    }
    malloc_named_fail_label("L2VPN show decoded bag");
    Capture c = walk(evi_listing());
    EXPECT_EQ(c.traces, "evpn_show_datalist_display: Failed to allocate memory for decoded bag of "
                        "size 24\n");
    EXPECT_TRUE(c.requests.empty());
    EXPECT_TRUE(g_printed.empty());
}

// A printer that walks another listing (batch 2) for every outer record.
std::vector<std::pair<uint64_t, uint64_t>> g_nested;  // outer index, inner index
void print_evi_then_rds(const void *record, const char *name, PrintContext *ctx) {
    print_evi(record, name, ctx);
    static uint64_t outer;
    outer = ctx->index;
    const ShowContext rds{"rd_private",
                          [](const void *, const char *, PrintContext *inner) {
                              g_nested.push_back({outer, inner->index});
                          },
                          l2vpn_bag_dll__l2vpn_evpn_rd_private_bag(), 64, 2, 0};
    evpn_show_datalist_display(&rds);
}

TEST_F(SpineWalk, NestedWalkLeavesTheOuterWalkIntact) {
    use("nested.db", [](evpn::SysdbWriter &w) {
        evis(5)(w);
        std::string err;
        for (const char *text : {"100:1", "100:2", "100:3"}) {
            l2vpn_evpn_rd_private_bag rd{};
            l2vpn_bag_rd_pton(text, &rd.rd);
            EXPECT_TRUE(w.add(kRoot, "rd_private", &rd, err)) << err;
        }
    });
    g_nested.clear();
    ShowContext outer = evi_listing(2);
    outer.printer = print_evi_then_rds;
    Capture c = walk(outer);
    ASSERT_EQ(g_printed.size(), 5u);
    EXPECT_EQ(g_printed[4].index, 4u);
    ASSERT_EQ(g_nested.size(), 15u);
    for (size_t k = 0; k < 15; k++) EXPECT_EQ(g_nested[k], std::make_pair(k / 3, k % 3));
    Lines outer_resumes;
    for (size_t k = 0; k < c.paths.size(); k++)
        if (c.paths[k] == "evpn_evi") outer_resumes.push_back(c.resume_names[k]);
    EXPECT_EQ(outer_resumes, (Lines{"", evi_name(2), evi_name(4)}));
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
}

TEST_F(SpineWalk, SingleItems) {
    use("single.db", [](evpn::SysdbWriter &w) {
        evis(2)(w);
        std::string err;
        EXPECT_TRUE(w.add_raw(kRoot, "summary", "summary", kGarbage, err)) << err;
    });
    const BagDesc *bag = l2vpn_bag_dll__l2vpn_evpn_evi_summary_bag();
    alignas(8) unsigned char buf[24] = {};
    auto get = [&](const char *path, void *decoded, const BagDesc *desc, RecordPrinter printer) {
        return spine_test::capture([&] { evpn_show_get_display(path, decoded, desc, printer); }).traces;
    };
    // Printed once with the last path component as name and no print context.
    EXPECT_EQ(get("evpn_evi/0x2,0x0", buf, bag, print_evi), "");
    ASSERT_EQ(g_printed.size(), 1u);
    EXPECT_EQ(g_printed[0].vpn_id, 2u);
    EXPECT_EQ(g_printed[0].name, "0x2,0x0");
    EXPECT_EQ(g_printed[0].index, UINT64_MAX);
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
    // Missing items are neither printed nor traced.
    EXPECT_EQ(get("evpn_evi/0x9,0x0", buf, bag, print_evi), "");
    EXPECT_EQ(get("rd_private/nosuch", buf, bag, print_evi), "");
    const std::string null_args = "evpn_show_get_display: Get data called with NULL argument ";
    EXPECT_EQ(get("summary", buf, bag, nullptr), null_args + "   print function\n");
    EXPECT_EQ(get(nullptr, nullptr, nullptr, print_evi), null_args + "item path decoded bag bag definition \n");
    EXPECT_EQ(get("evpn_evi/0x1,0x0", buf, bag,
                  [](const void *record, const char *, PrintContext *) {  // releases it first
                      bag_free_indirections(const_cast<void *>(record),
                                            l2vpn_bag_dll__l2vpn_evpn_evi_summary_bag());
                  }),
              std::string("evpn_show_get_display: evpn_show_get_display: bag_free_indirections "
                          "failed: ") + cerr_strerror(BAG_ERR_NOT_DECODED) + "\n");
    EXPECT_EQ(g_printed.size(), 1u);
    // Show command 7 fetches "summary"; this one does not decode.
    Capture c = spine_test::capture([] { evpn_show_dispatch(7); });
    EXPECT_EQ(c.out, "");
    EXPECT_EQ(c.traces, "evpn_show_get_display: evpn_show_get_display: bag_decode failed: " +
                            kTruncated + "\n");
}

// What the EVI detail printer found in the statistics table for its record.
struct StatsSeen {
    uint32_t node_id, bd_id;
    int64_t rx;  // -1: no statistics record
    size_t held;  // entries holding a record
};
std::vector<StatsSeen> g_seen;

void print_evi_stats(const void *, const char *, PrintContext *ctx) {
    const l2fib_bd_stats_entry &e = evi_fwd_stats_bulk[ctx->index % EVI_FWD_STATS_BULK_SIZE];
    size_t held = 0;
    for (const l2fib_bd_stats_entry &x : evi_fwd_stats_bulk) held += x.stats != nullptr;
    g_seen.push_back({e.node_id, e.bd_id, e.stats ? int64_t(e.stats->rx_total_packets) : -1, held});
}

class SpineStats : public SpineWalk {
  protected:
    void SetUp() override {
        SpineWalk::SetUp();
        g_seen.clear();
        ASSERT_EQ(l2fib_stats_client_init(nullptr), 0u);
        before_ = l2fib_get_request_counts();
    }
    void TearDown() override {
        l2fib_stats_client_deinit();
        SpineWalk::TearDown();
    }
    Capture walk_details() {
        return walk({kDetails.c_str(), print_evi_stats, l2vpn_bag_dll__l2vpn_evpn_evi_detail_bag(),
                     432, 200, EVPN_DATALIST_OPT_EVI_STATS});
    }
    std::pair<uint64_t, uint64_t> bulk() {  // requests and entries since SetUp
        l2fib_request_counts now = l2fib_get_request_counts();
        EXPECT_EQ(now.single, before_.single);
        return {now.bulk - before_.bulk, now.bulk_entries - before_.bulk_entries};
    }
    l2fib_request_counts before_{};
};

TEST_F(SpineStats, OneBulkRequestPerBatch) {
    use("details3.db", evi_details(3));
    show_filter.node_id = 5;
    Capture c = walk_details();
    ASSERT_EQ(g_seen.size(), 3u);
    for (uint32_t i = 0; i < 3; i++) {
        EXPECT_EQ(g_seen[i].node_id, 5u);
        EXPECT_EQ(g_seen[i].bd_id, 101 + i);
        EXPECT_EQ(g_seen[i].rx, 10 * (101 + i) + 5);
        EXPECT_EQ(g_seen[i].held, 3u) << "entries 3 to 199 stay cleared";
    }
    EXPECT_EQ(bulk(), std::make_pair(uint64_t(1), uint64_t(3)));
    EXPECT_EQ(c.requests.size(), 1u);
    EXPECT_EQ(c.traces, displaying({1, 2, 3}));
    // Without a node the entries ask for all nodes.
    show_filter.node_id = L2FIB_ALL_NODES;
    g_seen.clear();
    walk_details();
    EXPECT_EQ(g_seen[0].node_id, L2FIB_ALL_NODES);
    EXPECT_EQ(g_seen[0].rx, 1010 + 1015);
    // Without statistics the table is left as it is and nothing is asked.
    show_filter.no_stats = 1;
    evi_fwd_stats_bulk[0].bd_id = 777;
    g_seen.clear();
    walk_details();
    EXPECT_EQ(evi_fwd_stats_bulk[0].bd_id, 777u);
    EXPECT_EQ(bulk().first, 2u);
    EXPECT_EQ(g_seen.size(), 3u);
    evi_fwd_stats_bulk[0].bd_id = 0;
}

TEST_F(SpineStats, SecondBatchReleasesAndReplacesTheFirst) {
    use("details201.db", evi_details(201));
    walk_details();
    ASSERT_EQ(g_seen.size(), 201u);
    EXPECT_EQ(g_seen[199].bd_id, 300u);
    EXPECT_EQ(g_seen[199].held, 200u);
    EXPECT_EQ(g_seen[200].bd_id, 301u);
    EXPECT_EQ(g_seen[200].held, 1u);
    EXPECT_EQ(bulk(), std::make_pair(uint64_t(2), uint64_t(201)));
}

TEST_F(SpineStats, FailuresOfTheCollectionLeaveTheWalkGoing) {
    // The second EVI does not decode: no bulk request; entries 0 and 1 hold
    // zero-filled records, the rest none.
    use("details_bad.db", evi_details(3, {2}));
    Capture c = walk_details();
    EXPECT_EQ(c.traces, "evpn_bulk_statistics_collect: l2vpn_evpn_evi_detail bag_decode failed " +
                            kTruncated + "\n" + displaying({1}) +
                            "evpn_show_datalist_display: bag decode " + kTruncated + "\n" +
                            displaying({3}));
    EXPECT_EQ(bulk().first, 0u);
    EXPECT_EQ(evi_fwd_stats_bulk[0].bd_id, 101u);
    ASSERT_TRUE(evi_fwd_stats_bulk[0].stats && evi_fwd_stats_bulk[1].stats);
    EXPECT_EQ(evi_fwd_stats_bulk[0].stats->rx_total_packets + evi_fwd_stats_bulk[1].stats->rx_total_packets, 0u);
    EXPECT_EQ(evi_fwd_stats_bulk[2].stats, nullptr);

    // A bridge domain without counters: the request fails, the others keep theirs.
    use("details_nobd.db", evi_details(3, {}, 2));
    g_seen.clear();
    c = walk_details();
    EXPECT_EQ(c.traces, "evpn_bulk_statistics_collect: Get EVI stats data failed\n" + displaying({1, 2, 3}));
    ASSERT_EQ(g_seen.size(), 3u);
    EXPECT_EQ(g_seen[1].rx, 0);
    EXPECT_EQ(g_seen[2].rx, 1030 + 1035);

    // No statistics record: no request; the records print without.
    malloc_named_fail_label("EVI BD Stats Bag");
    g_seen.clear();
    c = walk_details();
    EXPECT_EQ(c.traces, "evpn_bulk_statistics_collect: Failed to calloc BD stats bag\n" + displaying({1, 2, 3}));
    EXPECT_EQ(g_seen[0].rx, -1);
    EXPECT_EQ(bulk().first, 1u);
}

// ---- The platform's generic show routines ----------------------------------

Lines g_calls;

TEST_F(SpineWalk, GenericShowRoutines) {
    use("evis5.db", evis(5));
    l2vpn_show_context_t list{"evpn_evi", [](const void *, const char *name, const char *tag) {
                                  g_calls.push_back(std::string(name) + " " + tag);
                              }, nullptr, 0, 2, 0, sysdb_handle, "t"};
    g_calls.clear();
    Capture c = spine_test::capture([&] { EXPECT_EQ(l2vpn_show_list_display(&list), 0u); });
    EXPECT_EQ(g_calls, (Lines{evi_name(1) + " t", evi_name(2) + " t", evi_name(3) + " t",
                              evi_name(4) + " t", evi_name(5) + " t"}));
    EXPECT_EQ(c.resume_names, (Lines{"", evi_name(2), evi_name(4)}));
    list.path = "rd_private";
    EXPECT_EQ(l2vpn_show_list_display(&list), SYSDB_ERR_NOT_FOUND);

    l2vpn_show_context_t one{"evpn_evi/0x3,0x0", [](const void *record, const char *name, const char *tag) {
                                 auto *evi = static_cast<const l2vpn_evpn_evi_summary_bag *>(record);
                                 g_calls.push_back(std::to_string(evi->vpn_id) + " " + name + " " + tag);
                             }, l2vpn_bag_dll__l2vpn_evpn_evi_summary_bag(), 24, 0, 0, sysdb_handle, "key"};
    g_calls.clear();
    EXPECT_EQ(l2vpn_show_get_display(&one), 0u);
    EXPECT_EQ(g_calls, Lines{"3 0x3,0x0 key"});
    one.record_size = 8;  // smaller than the record
    EXPECT_EQ(l2vpn_show_get_display(&one), BAG_ERR_BUFFER);
    one.path = "evpn_evi/0x9,0x0";
    EXPECT_EQ(l2vpn_show_get_display(&one), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(g_calls.size(), 1u);
    EXPECT_EQ(bag_inner_bytes_held(), 0u);
}

}  // namespace
