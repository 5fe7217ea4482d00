// The database a show command would read, checked before the client runs, so
// that the shell can say why a command would print nothing.
#pragma once
#include <string>

#include "parser.h"

namespace evpn_shell {

// The database root of the view a command asks for, as the client binds it,
// and how an operator names that view.
struct View {
    std::string root;  // "/oper/evpn/gl/", "/oper/evpn/gl/stdby/", "/oper/evpn/node/<hex>/"
    std::string name;  // "the active view", "the standby view", "node 5's view"
};
View view_of(const Invocation &inv);

struct DatabaseCheck {
    enum Verdict {
        Usable,
        Empty,     // readable and ours, but nothing under the view's root
        Unusable,  // missing, unreadable, or not an EVPN operational database
    } verdict = Usable;
    std::string message;  // why, and what to do, for Empty and Unusable
};

// Checks the database at path (origin: how it was chosen, as
// sysdb_library_path_origin() says) for the view. Errors SQLite reports past
// the file's header (a corrupt or busy file) are left to the client.
DatabaseCheck check_database(const std::string &path, const std::string &origin, const View &view);

// The database the client reads: $EVPN_SYSDB, else the default for a program
// in the shell's own folder (where the client is).
std::string database_path();
std::string database_origin();

}  // namespace evpn_shell
