// The EVI of a route from its route targets, and the map file's faults.
#include <gtest/gtest.h>

#include "collector_test.h"
#include "evi_map.h"

namespace {

using evpn::collector::auto_evi;
using evpn::collector::EviMap;
using ctest::rt2;

uint64_t rt_ip(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint16_t n) {
    return uint64_t(0x0102) << 48 | uint64_t(a) << 40 | uint64_t(b) << 32 | uint64_t(c) << 24 |
           uint64_t(d) << 16 | n;
}
uint64_t rt_as4(uint32_t as, uint16_t n) { return uint64_t(0x0202) << 48 | uint64_t(as) << 16 | n; }

TEST(EviMap, AutoDerivedRouteTargetsCarryTheirEvi) {
    // A 2-octet AS: the service ID is the low 24 bits of the local
    // administrator (the A, type and D-ID bits above it are not part of it).
    EXPECT_EQ(auto_evi(rt2(65000, 100)), 100u);
    EXPECT_EQ(auto_evi(rt2(65000, 0x85000064)), 100u);
    EXPECT_EQ(auto_evi(rt2(65000, 0x00ffffff)), 0xffffffu);
    EXPECT_EQ(auto_evi(rt_ip(192, 0, 2, 1, 300)), 300u);
    EXPECT_EQ(auto_evi(rt_as4(4200000000u, 7)), 7u);
    // Not a route target (another subtype), or no EVI in it.
    EXPECT_EQ(auto_evi(uint64_t(0x0003) << 48 | 100), 0u);
    EXPECT_EQ(auto_evi(rt2(65000, 0x01000000)), 0u);
}

TEST(EviMap, FileLinesWinOverAutoDerivationInRouteTargetOrder) {
    EviMap m;
    std::string err;
    ASSERT_TRUE(m.parse("# route target, EVI\n"
                        "65000:100   1000\n"
                        "\t192.0.2.1:5 2000  # a comment\n"
                        "4200000000:7 3000\r\n"
                        "\n",
                        "map", err))
        << err;
    EXPECT_EQ(m.size(), 3u);
    const uint64_t mapped[] = {rt2(65000, 999), rt_ip(192, 0, 2, 1, 5)};
    EXPECT_EQ(m.evi_of(mapped), 2000u);  // the mapped one, though second
    const uint64_t as4[] = {rt_as4(4200000000u, 7)};
    EXPECT_EQ(m.evi_of(as4), 3000u);
    const uint64_t unmapped[] = {rt2(65000, 999)};
    EXPECT_EQ(m.evi_of(unmapped), 999u);
    // A non-transitive copy of a mapped route target maps the same.
    const uint64_t nontransitive[] = {rt2(65000, 100) | uint64_t(0x40) << 56};
    EXPECT_EQ(m.evi_of(nontransitive), 1000u);
    EXPECT_EQ(m.evi_of({}), 0u);
}

TEST(EviMap, FaultsNameTheLineAndColumn) {
    const struct {
        const char *text, *error;
    } cases[] = {
        {"65000:100\n", "m:1:10: an EVI is missing after the route target"},
        {"\n  65000 100\n", "m:2:3: \"65000\" is not a route target (ASN:number or IPv4:number)"},
        {"65000:100 abc\n", "m:1:11: the EVI is not a decimal number"},
        {"65000:100 12x\n", "m:1:11: the EVI is not a decimal number"},
        {"65000:100 0\n", "m:1:11: the EVI must be 1 or more"},
        {"65000:100 4294967296\n", "m:1:11: the EVI is above 4294967295"},
        {"65000:100 1 2\n", "m:1:13: unexpected text after the EVI"},
        {"65000:100 1\n65000:100 2\n", "m:2:1: route target 65000:100 is mapped twice"},
        {"raw:000000010000000000000000 5\n",
         "m:1:1: \"raw:000000010000000000000000\" is not a route target (ASN:number or IPv4:number)"},
        {"300.0.0.1:5 5\n", "m:1:1: \"300.0.0.1:5\" is not a route target (ASN:number or IPv4:number)"},
    };
    for (const auto &c : cases) {
        EviMap m;
        std::string err;
        EXPECT_FALSE(m.parse(c.text, "m", err)) << c.text;
        EXPECT_EQ(err, c.error) << c.text;
    }
    EviMap m;
    std::string err;
    EXPECT_TRUE(m.parse("65000:100 1\n65000:100 1\n", "m", err)) << "the same line twice is no conflict";
    EXPECT_FALSE(m.load("/nonexistent/evi.map", err));
    EXPECT_EQ(err, "/nonexistent/evi.map: No such file or directory");
}

}  // namespace
