// Completion of a whole command line for the bash completion of `evpn_shell -c`.
#pragma once
#include <cstdio>
#include <string_view>

namespace evpn_shell {

// Writes the keywords that complete the last word of line, one a line, each
// as the whole line would read with it. False when out failed.
bool write_line_completions(std::string_view line, FILE *out);

}  // namespace evpn_shell
