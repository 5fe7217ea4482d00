// The show client program: one show command per run.
#include <cstdio>

#include "evpn_show_print.h"

int main(int argc, char **argv) {
    // Reports run to many lines: write them in large blocks.
    static char stdout_buffer[64 * 1024];
    setvbuf(stdout, stdout_buffer, _IOFBF, sizeof stdout_buffer);
    return evpn_show_main(argc, argv);
}
