// Capability queries and the interface table, read once per process from the
// operational database.
#include "platform/caps.h"
#include "platform/formatters.h"
#include "platform/sysdb_schema.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "db_internal.h"

namespace {

struct Interface {
    std::string name, state;
};

// Capabilities and interfaces are read each on its first query: a command
// that asks only for a capability (every route listing) compiles one
// statement, not two (a fiftieth of a short run's instructions).
struct Caps {
    bool loaded = false, interfaces_loaded = false;
    int srv6 = 0, srv6_elan = 0;
    std::unordered_map<uint32_t, Interface> interfaces;
    std::unordered_set<std::string> names;
};
Caps g_caps;

int env_override(const char *name, int fallback) {
    const char *v = getenv(name);
    if (!v || !*v) return fallback;
    return strcmp(v, "0") != 0;
}

void load_capabilities(sqlite3 *db) {
    if (!db) return;
    sqlite3_stmt *s = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT key, v1 FROM attribute WHERE kind = " SYSDB_KIND_CAPABILITY, -1, &s,
                           nullptr) == SQLITE_OK) {
        while (sqlite3_step(s) == SQLITE_ROW) {
            const char *name = reinterpret_cast<const char *>(sqlite3_column_text(s, 0));
            int value = sqlite3_column_int(s, 1) != 0;
            if (!name) continue;
            if (strcmp(name, "srv6") == 0) g_caps.srv6 = value;
            if (strcmp(name, "srv6_elan") == 0) g_caps.srv6_elan = value;
        }
    }
    sqlite3_finalize(s);
}

void load_interfaces(sqlite3 *db) {
    if (!db) return;
    sqlite3_stmt *s = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT key, v1, v2 FROM attribute WHERE kind = " SYSDB_KIND_INTERFACE, -1, &s, nullptr) ==
        SQLITE_OK) {
        while (sqlite3_step(s) == SQLITE_ROW) {
            const char *name = reinterpret_cast<const char *>(sqlite3_column_text(s, 1));
            const char *state = reinterpret_cast<const char *>(sqlite3_column_text(s, 2));
            g_caps.interfaces[static_cast<uint32_t>(sqlite3_column_int64(s, 0))] =
                Interface{name ? name : "", state ? state : ""};
            if (name && *name) g_caps.names.insert(name);
        }
    }
    sqlite3_finalize(s);
}

// The database's capabilities, each overridden by its environment variable
// when that is set; the variables are read here, not on every query.
void load() {
    if (g_caps.loaded) return;
    g_caps.loaded = true;
    load_capabilities(platform_db::shared());
    g_caps.srv6 = env_override("EVPN_SRV6", g_caps.srv6);
    g_caps.srv6_elan = env_override("EVPN_SRV6_ELAN", g_caps.srv6_elan);
}

void load_interface_table() {
    if (g_caps.interfaces_loaded) return;
    g_caps.interfaces_loaded = true;
    load_interfaces(platform_db::shared());
}

const Interface *find(uint32_t handle) {
    load_interface_table();
    auto it = g_caps.interfaces.find(handle);
    return it == g_caps.interfaces.end() ? nullptr : &it->second;
}

}  // namespace

int l2vpn_platform_srv6_supported(void) {
    load();
    return g_caps.srv6;
}

int l2vpn_platform_srv6_elan_supported(void) {
    load();
    return g_caps.srv6_elan;
}

const char *l2vpn_if_name(uint32_t ifhandle, uint32_t) {
    if (const Interface *i = find(ifhandle)) return i->name.c_str();
    static thread_local char buf[4][16];
    static thread_local int next;
    char *b = buf[next++ & 3];
    snprintf(b, sizeof buf[0], "0x%x", ifhandle);
    return b;
}

const char *im_display_namestring(uint32_t ifhandle) { return l2vpn_if_name(ifhandle, 0); }

int im_display_namestring(const char *name, char *buf, size_t size, uint32_t) {
    if (buf == nullptr || size == 0) return EINVAL;
    buf[0] = '\0';
    if (name == nullptr || *name == '\0') return EINVAL;
    load_interface_table();
    if (!g_caps.names.count(name)) return ENOENT;
    return im_display_form(name, buf, size);
}

const char *im_state_reverse_lookup(uint32_t ifhandle) {
    const Interface *i = find(ifhandle);
    return i ? i->state.c_str() : "Unknown";
}

const char *im_state_reverse_lookup(uint32_t state, uint32_t) {
    static constexpr const char *kNames[] = {"Not ready",      "Up",      "Down", "Admin down",
                                             "Error disabled", "Shutdown"};
    return state < std::size(kNames) ? kNames[state] : "Unknown";
}

void platform_caps_reset(void) { g_caps = Caps{}; }
