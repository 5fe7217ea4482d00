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
#include <utility>

#include "db_internal.h"

namespace {

struct Interface {
    std::string name, state;
};

// Each capability and the interfaces are read on their first query: a route
// listing asks for one capability, through the statement that also finds
// its listing's id, and compiles nothing for it (a twentieth of a short
// run's instructions).
struct Caps {
    bool interfaces_loaded = false;
    int srv6 = -1, srv6_elan = -1;  // -1: not read yet
    std::unordered_map<uint32_t, Interface> interfaces;
    std::unordered_set<std::string> names;
};
Caps g_caps;

// A capability as its environment variable sets it, or else as the
// database stores it (0 when it does not).
int capability(int &slot, const char *name, const char *variable) {
    if (slot >= 0) return slot;
    if (const char *v = getenv(variable); v && *v) return slot = strcmp(v, "0") != 0;
    platform_db::SharedRead read;
    int64_t value = 0;
    using store_tables::int_key;
    const btr_value key[3] = {int_key(sysdb_schema::kKindCapability), store_tables::text_key(name), int_key(0)};
    return slot = read.tables() && read.tables()->attribute_v1(key, &value) == SQLITE_ROW && value != 0;
}

// Text of an interface's column: its bytes up to a NUL, as a C string reads them.
std::string text_of(const store_tables::Value &v) {
    if (v.type != SQLITE_TEXT && v.type != SQLITE_BLOB) return {};
    const std::string_view b = v.bytes();
    return std::string(b.substr(0, b.find('\0')));
}

void load_interface_table() {
    if (g_caps.interfaces_loaded) return;
    g_caps.interfaces_loaded = true;
    platform_db::SharedRead read;
    if (!read.tables()) return;
    const btr_value kind = store_tables::int_key(sysdb_schema::kKindInterface);
    // kind, key: the handle, key2, v1: the name, v2: the state
    read.tables()->attributes(&kind, 1, [](const store_tables::Value *cols) {
        if (cols[1].type != SQLITE_INTEGER) return true;
        Interface i{text_of(cols[3]), text_of(cols[4])};
        if (!i.name.empty()) g_caps.names.insert(i.name);
        g_caps.interfaces[static_cast<uint32_t>(cols[1].i)] = std::move(i);
        return true;
    });
}

const Interface *find(uint32_t handle) {
    load_interface_table();
    auto it = g_caps.interfaces.find(handle);
    return it == g_caps.interfaces.end() ? nullptr : &it->second;
}

}  // namespace

int l2vpn_platform_srv6_supported(void) { return capability(g_caps.srv6, "srv6", "EVPN_SRV6"); }

int l2vpn_platform_srv6_elan_supported(void) {
    return capability(g_caps.srv6_elan, "srv6_elan", "EVPN_SRV6_ELAN");
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
