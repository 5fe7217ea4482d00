// The grammar tables. A row here is all it takes to add a word: the parser,
// completion, "?" help and the manual page read them.
#include "grammar.h"

#include <cstring>
#include <iterator>

namespace evpn_shell {

namespace {

const Keyword kKeywords[] = {
    {"show", "Show the router's state"},
    {"evpn", "EVPN information"},
    {"evi", "EVPN instances (EVIs)"},
    {"mac", "MAC and MAC/IP routes"},
    {"inclusive-multicast", "Inclusive-multicast routes"},
    {"neighbor", "EVPN neighbors"},
    {"ead", "Ethernet auto-discovery (EAD) routes"},
    {"ac-id", "Attachment circuit IDs"},
    {"pathlist", "Pathlists"},
    {"igmp", "IGMP/MLD routes"},
    {"label", "Labels"},
    {"internal-id", "Internal IDs"},
    {"ethernet-segment", "Ethernet segments"},
    {"route-distinguisher", "Route distinguisher database"},
    {"summary", "Global summary"},
    {"remote-shg", "Remote split-horizon groups"},
    {"client", "Clients"},
    {"group", "EVPN groups"},
    {"tunnel-endpoint", "Tunnel endpoints"},
    {"srv6", "SRv6"},
    {"grouping-es-map", "Grouping-ES association map"},
    {"terminal", "Settings of this terminal session"},
    {"length", "Lines a screen holds: longer output goes through the pager"},
    {"exit", "Leave the shell"},
    {"quit", "Leave the shell"},
};

const Filter kFilters[] = {
    // id               word              kind                 options fixed      value name          help
    {"evi-value",       nullptr,          ValueKind::Number,   "M",  nullptr,   "EVI",               "EVPN instance (VPN ID), decimal"},
    {"vpn-id",          "vpn-id",         ValueKind::Number,   "M",  nullptr,   "EVI",               "EVPN instance (VPN ID), decimal"},
    {"bridge-domain",   "bridge-domain",  ValueKind::Name,     "b",  nullptr,   "bridge domain",     "Bridge domain by name"},
    {"mac-value",       nullptr,          ValueKind::Mac,      "OPQ", nullptr,  "MAC address",       "MAC address"},
    {"ip",              "ip",             ValueKind::Ip,       "N",  nullptr,   "IP address",        "IP address of the route"},
    {"originating-ip",  "originating-ip", ValueKind::Ip,       "N",  nullptr,   "IP address",        "Originating router's IP address"},
    {"neighbor-value",  nullptr,          ValueKind::Ip,       "N",  nullptr,   "IP address",        "Neighbor's IP address"},
    {"ethernet-tag",    "ethernet-tag",   ValueKind::Number,   "e",  nullptr,   "Ethernet tag",      "Ethernet tag, decimal"},
    {"esi",             "esi",            ValueKind::Esi,      "0",  nullptr,   "ESI",               "Ethernet segment identifier"},
    {"isid",            "isid",           ValueKind::Number,   "j",  nullptr,   "I-SID",             "Service instance tag paired with the segment, decimal"},
    {"ac-id-value",     nullptr,          ValueKind::Number,   "j",  nullptr,   "AC ID",             "Source AC ID, decimal"},
    {"group-value",     nullptr,          ValueKind::Number,   "g",  nullptr,   "group ID",          "EVPN group ID, decimal"},
    {"tep-value",       nullptr,          ValueKind::Number,   "M",  nullptr,   "tunnel endpoint ID", "Tunnel endpoint ID, decimal"},
    {"interface",       "interface",      ValueKind::Name,     "i",  nullptr,   "interface",         "Segment of an interface"},
    {"pw-neighbor",     "pw-neighbor",    ValueKind::Ip,       "5",  nullptr,   "IP address",        "Segment of a pseudowire: its neighbor's address"},
    {"pw-id",           "pw-id",          ValueKind::Decimal,  "6",  nullptr,   "pseudowire ID",     "Pseudowire ID, decimal"},
    {"vfi",             "vfi",            ValueKind::Name,     "7",  nullptr,   "VFI",               "Segment of a VFI by name"},
    {"access-evi",      "access-evi",     ValueKind::None,     "8",  nullptr,   nullptr,             "Segments of access EVIs"},
    {"carving",         "carving",        ValueKind::None,     "c",  nullptr,   nullptr,             "With the service carving results"},
    {"local",           "local",          ValueKind::None,     "1",  "1",       nullptr,             "Local routes only"},
    {"leaf-evis",       "leaf-evis",      ValueKind::None,     "t",  nullptr,   nullptr,             "With each neighbor's leaf EVIs"},
    {"detail",          "detail",         ValueKind::None,     "d",  nullptr,   nullptr,             "Detailed information"},
    {"private",         "private",        ValueKind::None,     "p",  nullptr,   nullptr,             "Detailed and internal information"},
    {"no-stats",        "no-stats",       ValueKind::None,     "n",  nullptr,   nullptr,             "Without forwarding statistics"},
    {"standby",         "standby",        ValueKind::None,     "U",  "standby", nullptr,             "The standby view"},
    {"location",        "location",       ValueKind::Node,     "U",  nullptr,   "node ID",           "One node's view: its node ID, decimal"},
    {"lines-value",     nullptr,          ValueKind::Lines,    "L",  nullptr,   "number of lines",   "Lines a screen holds; 0: never page"},
};

const Command kCommands[] = {
    {"show evpn evi {evi-value} mac {mac-value}",
     "vpn-id bridge-domain ip local detail private standby location", "", 0,
     "MAC and MAC/IP routes, of one EVI, bridge domain, MAC or IP address"},
    {"show evpn evi {evi-value} inclusive-multicast",
     "vpn-id bridge-domain ethernet-tag originating-ip local detail private standby location", "", 1,
     "Inclusive-multicast routes"},
    {"show evpn label", "vpn-id ethernet-tag esi isid detail private standby location", "", 2,
     "Labels; the tag, segment and I-SID filters apply with an EVI"},
    {"show evpn ethernet-segment",
     "esi interface pw-neighbor pw-id vfi access-evi carving detail private standby location", "", 3,
     "Ethernet segments"},
    {"show evpn route-distinguisher", "private standby location", "private", 4,
     "Route distinguisher database"},
    {"show evpn evi {evi-value}", "vpn-id bridge-domain detail private no-stats standby location", "", 5,
     "EVPN instances"},
    {"show evpn summary", "private standby location", "", 7, "Global summary"},
    {"show evpn evi {evi-value} neighbor {neighbor-value}",
     "vpn-id bridge-domain leaf-evis private standby location", "", 8, "EVPN neighbors"},
    {"show evpn evi {evi-value} ead", "vpn-id bridge-domain esi local detail private standby location", "", 9,
     "Ethernet auto-discovery routes"},
    {"show evpn evi {evi-value} ac-id {ac-id-value}", "vpn-id detail private standby location", "", 10,
     "AC IDs; with an EVI and a source AC ID, that one"},
    {"show evpn evi {evi-value} pathlist", "vpn-id esi isid private standby location", "", 11,
     "Pathlists; the segment and I-SID filters apply with an EVI"},
    {"show evpn remote-shg", "detail private standby location", "", 12, "Remote split-horizon groups"},
    {"show evpn evi {evi-value} igmp", "vpn-id esi detail private standby location", "", 13, "IGMP/MLD routes"},
    {"show evpn client", "standby location", "", 14, "Clients"},
    {"show evpn group {group-value}", "standby location", "", 15, "EVPN groups"},
    {"show evpn tunnel-endpoint {tep-value}", "detail private standby location", "", 16, "Tunnel endpoints"},
    {"show evpn internal-id", "vpn-id ethernet-tag esi isid detail private standby location", "", 17,
     "Internal IDs; the tag, segment and I-SID filters apply with an EVI"},
    {"show evpn srv6", "detail private standby location", "", 18, "SRv6 locators and SIDs"},
    {"show evpn grouping-es-map", "private standby location", "private", 19, "Grouping-ES association map"},
    {"terminal length {lines-value}", "", "lines-value", kActionTerminalLength,
     "Page output longer than this many lines (0: never), for the rest of the session"},
    {"exit", "", "", kActionExit, "Leave the shell"},
    {"quit", "", "", kActionExit, "Leave the shell"},
};

const PipeStage kPipeStages[] = {
    {"include", PipeKind::Include, true, "Lines that match a regular expression"},
    {"exclude", PipeKind::Exclude, true, "Lines that do not match a regular expression"},
    {"begin", PipeKind::Begin, true, "Lines from the first that matches a regular expression on"},
    {"section", PipeKind::Section, true,
     "Lines that match a regular expression, each with the lines indented under it"},
    {"count", PipeKind::Count, false, "Count the lines"},
    {kJsonWord, PipeKind::Json, false, "The listed records as JSON Lines (first stage only)"},
};

}  // namespace

std::span<const Keyword> keywords() { return kKeywords; }
std::span<const Filter> filters() { return kFilters; }
std::span<const Command> commands() { return kCommands; }
std::span<const PipeStage> pipe_stages() { return kPipeStages; }

const Keyword *find_keyword(std::string_view word) {
    for (const Keyword &k : kKeywords)
        if (word == k.word) return &k;
    return nullptr;
}

const Filter *find_filter(std::string_view id) {
    for (const Filter &f : kFilters)
        if (id == f.id) return &f;
    return nullptr;
}

namespace {
struct ValueKindText {
    const char *placeholder, *conversion;
};
constexpr ValueKindText kValueKindTexts[] = {
#define EVPN_SHELL_VALUE_KIND_TEXT(kind, placeholder, conversion) {placeholder, conversion},
    EVPN_SHELL_VALUE_KINDS(EVPN_SHELL_VALUE_KIND_TEXT)
#undef EVPN_SHELL_VALUE_KIND_TEXT
};
}  // namespace

const char *value_placeholder(ValueKind kind) {
    return kValueKindTexts[static_cast<size_t>(kind)].placeholder;
}

const char *value_conversion_text(ValueKind kind) {
    return kValueKindTexts[static_cast<size_t>(kind)].conversion;
}

}  // namespace evpn_shell
