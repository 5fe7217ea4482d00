// Where the operational database is when nobody says: found from the running
// program's own location, so that neither a build tree nor an installed tree
// depends on the folder it was built in.
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <sys/stat.h>

#include "platform/sysdb.h"

namespace {

struct DefaultLocation {
    std::string path;
    const char *origin;
};

std::string parent(const std::string &p) {
    size_t slash = p.find_last_of('/');
    return slash == std::string::npos || slash == 0 ? "/" : p.substr(0, slash);
}

bool is_file(const std::string &p) {
    struct stat st;
    return stat(p.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

DefaultLocation find_default() {
    char exe[4096];
    ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    std::string dir = n > 0 ? parent(std::string(exe, static_cast<size_t>(n))) : ".";
    // A build tree: programs sit at most two folders below its top.
    std::string up = dir;
    for (int depth = 0; depth < 3; depth++, up = parent(up))
        if (is_file(up + "/CMakeCache.txt")) return {up + "/demo.db", "build tree"};
    std::string prefix = parent(dir);  // <prefix>/bin
    if (prefix == "/usr") prefix = "";
    else if (prefix.size() > 4 && prefix.compare(prefix.size() - 4, 4, "/usr") == 0)
        prefix.resize(prefix.size() - 4);
    else if (prefix == "/") prefix = "";
    return {prefix + "/var/lib/evpn-show/sysdb.db", "installed"};
}

const DefaultLocation &default_location() {
    static const DefaultLocation d = find_default();
    return d;
}

}  // namespace

const char *sysdb_library_path(void) {
    const char *env = getenv("EVPN_SYSDB");
    return env && *env ? env : default_location().path.c_str();
}

const char *sysdb_library_path_origin(void) {
    const char *env = getenv("EVPN_SYSDB");
    return env && *env ? "EVPN_SYSDB" : default_location().origin;
}
