// Words the reports print for record codes, indexed by the code: one table
// per vocabulary, read by the printers and, through evpn_show_field_words(),
// by the JSON view. What a code past a table reads is the printer's choice.
#pragma once
#include <iterator>
#include <span>

#include "platform/bag.h"

inline constexpr const char *kEsStateWords[] = {"Not Ready", "Peering", "Up", "Down", "Standby"};
inline constexpr const char *kEsForcedStateWords[] = {"Invalid", "Up", "Down", "OOS", "External"};
inline constexpr const char *kEsRedundancyWords[] = {"Not Defined", "Active", "Standby"};
inline constexpr const char *kEsOperTopologyWords[] = {
    "Invalid topology", "SH", "MH, All-active", "MH, Single-active", "MH, Single-flow-active",
    "MH", "MH, Anycast mode"};
inline constexpr const char *kEsConfTopologyWords[] = {
    "Invalid topology", "Invalid config", "All-active (AApF)", "Single-active (AApS)",
    "Single-flow-active", "Port-Active", "Anycast Single-active"};
static_assert(std::size(kEsOperTopologyWords) == std::size(kEsConfTopologyWords));
inline constexpr const char *kEsCarvingSyncWords[] = {"NONE", "NTP_SCT", "HANDSHAKE"};
inline constexpr const char *kEsMacFlushWords[] = {"Invalid", "STP-TCN", "MVRP"};
inline constexpr const char *kEsAccessSignalWords[] = {"Unsupported", "Bundle OOS (Default)",
                                                       "Bundle Down"};
inline constexpr const char *kEsDfTypeWords[] = {"MOD", "HRW", "PREF", "Invalid"};
inline constexpr const char *kEsVesFsmWords[] = {"Init",  "Peering", "Set-DF", "Set-NDF",
                                                 "Up-DF", "Up-NDF",  "Dn"};

inline constexpr const char *kIgmpRouteTypeWords[] = {"JOIN", "LEAVE", "PROXY"};
inline constexpr const char *kIgmpVersionWords[] = {"V1", "V2", "V3"};
inline constexpr const char *kIgmpFilterModeWords[] = {"IS_IN", "IS_EX"};

inline constexpr const char *kNexthopModeWords[] = {"Off", "Lowest IP", "Highest IP", "Modulo",
                                                    "ECMP Disable"};
inline constexpr const char *kTepTypeWords[] = {"None",     "VFI-Interop", "MPLS",
                                                "VXLAN",    "MPLS-Reach",  "SRv6",
                                                "IP-Reach", "Encap-Object", "Overlay-LTEP"};

// Every record field whose code stands for a word, with these tables and the
// platform's (encapsulations, EVI types, designated-forwarder roles).
std::span<const BagFieldWords> evpn_show_field_words();
