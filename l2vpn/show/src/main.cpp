// The show client program: one show command per run.
#include <cstdio>

#include "evpn_show_print.h"

// The version, found in the program file as "@(#)evpn_show_client <version>"
// (the client's command line is the shell's and has no option for it).
[[gnu::used]] static const char kWhat[] = "@(#)evpn_show_client " EVPN_VERSION;

int main(int argc, char **argv) {
    // Reports run to many lines: write them in large blocks.
    static char stdout_buffer[64 * 1024];
    setvbuf(stdout, stdout_buffer, _IOFBF, sizeof stdout_buffer);
    return evpn_show_main(argc, argv);
}
