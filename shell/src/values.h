// Typed values: checks what the operator typed and writes it as the client
// reads it.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "grammar.h"

namespace evpn_shell {

struct Conversion {
    enum Fit {
        Yes,          // the text is a value of this kind
        NotThisKind,  // the text is no such value, nor meant as one (a word)
        Bad,          // the text is meant as such a value but is not a valid one
    } fit = NotThisKind;
    std::string reason;              // why not, for Bad and NotThisKind
    std::vector<std::string> args;   // one client argument per option the value fills
};

Conversion convert_value(ValueKind kind, std::string_view text);

}  // namespace evpn_shell
