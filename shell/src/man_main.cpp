// Writes the manual page evpn_shell(1) to the file named by its argument.
#include <cstdio>

#include "manpage.h"

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s OUTPUT\n", argv[0]);
        return 2;
    }
    FILE *out = fopen(argv[1], "w");
    if (!out) {
        perror(argv[1]);
        return 1;
    }
    const std::string page = evpn_shell::manual_page();
    const bool ok = fwrite(page.data(), 1, page.size(), out) == page.size();
    return fclose(out) == 0 && ok ? 0 : 1;
}
