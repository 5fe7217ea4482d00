// Runs the show client for a parsed command and passes its output on: as it
// comes, or through the output stages and the pager.
#pragma once
#include <string>
#include <vector>

#include "parser.h"

namespace evpn_shell {

// The client program: $EVPN_SHOW_CLIENT, else evpn_show_client beside this
// program.
std::string client_path();

// Runs the client with `args`. With `captured` its standard output is
// collected there; without, it goes straight to ours. Returns its exit status
// (128 + the signal that ended it; 127 when it could not be started).
int run_client(const std::string &program, const std::vector<std::string> &args, std::string *captured);

// The output after the stages, in order.
std::string apply_pipes(const std::string &output, const std::vector<Pipe> &pipes);

// Writes text to standard output, through $PAGER (default "more") when it has
// more lines than the terminal and the terminal is standard output.
void write_paged(const std::string &text);

// The command line a user would type to run the client: program and
// arguments, blank-separated.
std::string command_line(const std::string &program, const std::vector<std::string> &args);

}  // namespace evpn_shell
