// The shell's grammar: the words an operator types, what each one means to the
// show client, and how a typed value becomes the client's argument. Everything
// else (parser, completion, "?" help, manual page) reads these tables.
#pragma once
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace evpn_shell {

// How a typed value is checked and turned into the client's argument:
// X(kind, placeholder shown in help, how it converts, for the manual page).
#define EVPN_SHELL_VALUE_KINDS(X)                                                              \
    X(None, "", "")                                                                            \
    X(Number, "<0-4294967295>", "typed in decimal, passed in hexadecimal")                     \
    X(Decimal, "<0-4294967295>", "typed and passed in decimal")                                \
    X(Node, "<0-4294967294>", "typed and passed in decimal")                                   \
    X(Mac, "H.H.H",                                                                            \
      "H.H.H or six octets; passed as its three 16\\-bit groups in hexadecimal")               \
    X(Esi, "H.H.H.H.H", "H.H.H.H.H or ten octets; passed in the dotted form")                  \
    X(Ip, "A.B.C.D|X:X::X", "IPv4 or IPv6 address")                                            \
    X(Name, "WORD", "passed as typed")                                                         \
    X(Lines, "<0-512>", "typed in decimal")

enum class ValueKind {
#define EVPN_SHELL_VALUE_KIND_ENUM(kind, placeholder, conversion) kind,
    EVPN_SHELL_VALUE_KINDS(EVPN_SHELL_VALUE_KIND_ENUM)
#undef EVPN_SHELL_VALUE_KIND_ENUM
};

// A filter: a keyword (with or without a value), or a value typed alone right
// after a command word (word == nullptr), that fills one or more options.
struct Filter {
    const char *id;          // name the command rows use
    const char *word;        // keyword typed, or nullptr for a value typed alone
    ValueKind kind;          // how its value converts
    const char *options;     // the option letters it fills ("M"; "OPQ" for a MAC)
    const char *fixed;       // argument of a flag whose option takes one ("1", "standby")
    const char *value_name;  // what the value is, for messages ("EVI")
    const char *help;
};

// A command: its words after the prompt, where "{id}" marks a value that may be
// typed after the word before it, the keyword filters it takes (in any order,
// after the command's words), the filters it requires, and the show
// command it runs (or a shell action).
enum : int { kActionExit = -1, kActionTerminalLength = -2 };
struct Command {
    const char *path;
    const char *filters;   // ids, space-separated
    const char *required;  // ids, space-separated
    int number;            // show command number, or a kAction
    const char *help;      // what the command shows
};

// A word of a command path with its help.
struct Keyword {
    const char *word;
    const char *help;
};

// An output stage after "|". Json changes what is listed, so it comes first.
enum class PipeKind { Include, Exclude, Begin, Section, Count, Json };
struct PipeStage {
    const char *word;
    PipeKind kind;
    bool takes_regex;
    const char *help;
};

std::span<const Keyword> keywords();
std::span<const Filter> filters();
std::span<const Command> commands();
std::span<const PipeStage> pipe_stages();

// The client's options in the order the shell writes them on its command line,
// as the client's option string gives them (a colon follows an option that
// takes an argument).
inline constexpr const char kClientOptions[] = "b:de:g:i:j:npctM:N:O:P:Q:U:0:1:5:6:7:8";
// Settings the shell keeps for itself, filled like options but never passed
// to the client: L, the lines of "terminal length".
inline constexpr const char kShellOptions[] = "L";

// The word that, typed last after a show command, asks for its JSON view.
inline constexpr const char kJsonWord[] = "json";
inline constexpr const char kJsonHelp[] = "The listed records as JSON Lines";

const Keyword *find_keyword(std::string_view word);
const Filter *find_filter(std::string_view id);
// The placeholder shown for a value of this kind ("<0-4294967295>").
const char *value_placeholder(ValueKind kind);
// How a value of this kind converts, in roff ("typed and passed in decimal").
const char *value_conversion_text(ValueKind kind);

}  // namespace evpn_shell
