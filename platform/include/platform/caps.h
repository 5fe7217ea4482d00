// Platform capabilities and the interface table, read from the operational
// database's capability and interface tables.
#pragma once
#include <cstddef>
#include <cstdint>

// Non-zero when the platform supports SRv6 / SRv6 for E-LAN services.
// $EVPN_SRV6 and $EVPN_SRV6_ELAN ("0" or "1") override the database.
int l2vpn_platform_srv6_supported(void);
int l2vpn_platform_srv6_elan_supported(void);

// Interface name of a handle; "0x%x" of the handle when the table has none.
const char *l2vpn_if_name(uint32_t ifhandle, uint32_t flags);
// Display name of an interface (the name as the table stores it).
const char *im_display_namestring(uint32_t ifhandle);
// Display form of an interface name into buf (size bytes, cut to size - 1):
// the name when the interface table holds an interface of that name, else
// the empty text. Names of this platform have one form, so short_form
// changes nothing.
void im_display_namestring(const char *name, char *buf, size_t size, int short_form);
// State word of an interface ("Up", "Down", ...); "Unknown" when not known.
const char *im_state_reverse_lookup(uint32_t ifhandle);
// Name of an interface state code of the interface manager; "Unknown" for a
// code outside its table. No flags are defined: pass 0.
const char *im_state_reverse_lookup(uint32_t state, uint32_t flags);

// Forget cached capabilities and interfaces (tests switch databases).
void platform_caps_reset(void);
