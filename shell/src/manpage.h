// The manual page evpn_shell(1), written from the grammar tables.
#pragma once
#include <string>

namespace evpn_shell {

std::string manual_page();

// A command's words as the manual and the help show them: path words bold,
// values as placeholders, in brackets unless required
// ("show evpn evi [<0-4294967295>] mac", "terminal length <0-512>").
std::string command_synopsis(const char *path, const char *required = "");

}  // namespace evpn_shell
