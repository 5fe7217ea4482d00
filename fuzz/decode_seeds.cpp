// Seed inputs of fuzz_decode from a database: every stored record of the
// global root, each as its type's number in bag_record_types followed by its
// encoding, so the seeds follow the snapshots they were loaded from.
//
//   decode_seeds DB OUTDIR
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/bag_types.h"
#include "platform/sysdb.h"
#include "platform/sysdb_registry.h"

namespace {

int type_number(const BagDesc *desc) {
    for (int i = 0; bag_record_types[i]; i++)
        if (bag_record_types[i] == desc) return i;
    return -1;
}

bool write_seed(const std::string &dir, const ListingDef &l, int n, const void *data,
                uint32_t len) {
    const int type = type_number(l.desc);
    if (type < 0) return true;
    const std::string path = dir + "/" + l.desc->name + "-" + std::to_string(n);
    FILE *f = fopen(path.c_str(), "wb");
    if (!f) return false;
    const unsigned char byte = static_cast<unsigned char>(type);
    bool ok = fwrite(&byte, 1, 1, f) == 1 && fwrite(data, 1, len, f) == len;
    return fclose(f) == 0 && ok;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: decode_seeds DB OUTDIR\n");
        return 2;
    }
    const std::string dir = argv[2];
    setenv("EVPN_SYSDB", argv[1], 1);
    sysdb_handle_td h = nullptr;
    if (_sysdb_bind(&h, "/oper/evpn/gl/", SYSDB_BIND_READ)) {
        fprintf(stderr, "decode_seeds: cannot bind %s\n", argv[1]);
        return 1;
    }
    int written = 0;
    bool ok = true;
    for (const ListingDef &l : sysdb_registry()) {
        if (l.child) continue;  // per-item listings: no path of their own to walk
        uint32_t type = 0, len = 0;
        void *data = nullptr;
        if (l.singleton) {
            if (sysdb_item_get(h, l.base, &type, &data, &len, 0) == 0)
                ok = write_seed(dir, l, written++, data, len) && ok;
            free(data);
            continue;
        }
        uint32_t count = 1000;  // a seed set needs no more of one listing
        sysdb_datalist_h_td list = nullptr;
        if (sysdb_datalist(h, l.base, "", &count, &list, 0) == 0) {
            const char *name = nullptr;
            while (sysdb_datalist_next(list, &name, &type, &data, &len, nullptr) == 0)
                ok = write_seed(dir, l, written++, data, len) && ok;
        }
        if (list) sysdb_datalist_free(list);
    }
    _sysdb_unbind(h);
    if (!ok) fprintf(stderr, "decode_seeds: cannot write into %s\n", dir.c_str());
    return ok ? 0 : 1;
}
