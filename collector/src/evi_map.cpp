#include "evi_map.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/formatters.h"

namespace evpn::collector {

namespace {

constexpr uint64_t kRtSubtype = 0x02;  // route target, any of the three types

uint8_t rt_type(uint64_t raw) { return static_cast<uint8_t>(raw >> 56) & 0x3f; }
bool is_route_target(uint64_t raw) {
    return ((raw >> 48) & 0xff) == kRtSubtype && rt_type(raw) <= 2;
}

}  // namespace

uint32_t auto_evi(uint64_t raw) {
    if (!is_route_target(raw)) return 0;
    if (rt_type(raw) == 0) return static_cast<uint32_t>(raw & 0xffffff);
    return static_cast<uint32_t>(raw & 0xffff);
}

bool route_target_from_text(std::string_view text, uint64_t &raw) {
    char buf[40];
    if (text.empty() || text.size() >= sizeof buf) return false;
    memcpy(buf, text.data(), text.size());
    buf[text.size()] = '\0';
    l2vpn_bag_rt_t v{};
    // Only the readable forms: the raw form names no route target type.
    if (strncmp(buf, "raw:", 4) == 0 || l2vpn_bag_rd_pton(buf, &v) != 0) return false;
    raw = uint64_t(v.value[1]) << 56 | kRtSubtype << 48;
    for (int i = 2; i < 8; i++) raw |= uint64_t(v.value[i]) << (8 * (7 - i));
    return true;
}

bool EviMap::parse(std::string_view text, const std::string &name, std::string &err) {
    size_t line_no = 0;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(at, end - at);
        at = end + 1;
        line_no++;
        if (size_t hash = line.find('#'); hash != std::string_view::npos) line = line.substr(0, hash);
        auto fault = [&](size_t col, const std::string &what) {
            err = name + ":" + std::to_string(line_no) + ":" + std::to_string(col + 1) + ": " + what;
            return false;
        };
        auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
        size_t i = 0;
        while (i < line.size() && blank(line[i])) i++;
        if (i == line.size()) continue;
        const size_t rt_at = i;
        while (i < line.size() && !blank(line[i])) i++;
        const std::string_view rt_text = line.substr(rt_at, i - rt_at);
        uint64_t rt = 0;
        if (!route_target_from_text(rt_text, rt))
            return fault(rt_at, "\"" + std::string(rt_text) +
                                    "\" is not a route target (ASN:number or IPv4:number)");
        while (i < line.size() && blank(line[i])) i++;
        if (i == line.size()) return fault(i, "an EVI is missing after the route target");
        const size_t evi_at = i;
        uint64_t evi = 0;
        while (i < line.size() && line[i] >= '0' && line[i] <= '9') {
            evi = evi * 10 + static_cast<uint64_t>(line[i] - '0');
            if (evi > 0xffffffffull) return fault(evi_at, "the EVI is above 4294967295");
            i++;
        }
        if (i == evi_at || (i < line.size() && !blank(line[i])))
            return fault(evi_at, "the EVI is not a decimal number");
        if (evi == 0) return fault(evi_at, "the EVI must be 1 or more");
        while (i < line.size() && blank(line[i])) i++;
        if (i < line.size()) return fault(i, "unexpected text after the EVI");
        auto [it, fresh] = map_.emplace(rt, static_cast<uint32_t>(evi));
        if (!fresh && it->second != evi)
            return fault(rt_at, "route target " + std::string(rt_text) + " is mapped twice");
    }
    return true;
}

bool EviMap::load(const std::string &path, std::string &err) {
    FILE *f = fopen(path.c_str(), "rb");
    if (!f) {
        err = path + ": " + strerror(errno);
        return false;
    }
    std::string text;
    char buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) {
        text.append(buf, n);
        if (text.size() > (64u << 20)) {
            fclose(f);
            err = path + ": larger than 64 MiB";
            return false;
        }
    }
    const bool bad = ferror(f);
    fclose(f);
    if (bad) {
        err = path + ": read error";
        return false;
    }
    return parse(text, path, err);
}

uint32_t EviMap::evi_of(std::span<const uint64_t> rts) const {
    if (!map_.empty())
        for (uint64_t rt : rts)
            if (auto it = map_.find(rt & ~(uint64_t(0x40) << 56)); it != map_.end()) return it->second;
    for (uint64_t rt : rts)
        if (uint32_t evi = auto_evi(rt)) return evi;
    return 0;
}

}  // namespace evpn::collector
