// Turns typed words into the client's command line, and tells which words may
// come next (for completion, "?" and error messages).
#pragma once
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "grammar.h"

namespace re2 {
class RE2;
}

namespace evpn_shell {

struct Word {
    std::string text;
    size_t column = 0;  // where it starts in the line
};

// Splits at blanks (spaces and tabs), keeping each word's column.
std::vector<Word> split_words(std::string_view text, size_t first_column = 0);

// A word that may come next, with its help: a keyword, a value placeholder
// such as "<0-4294967295>", "<cr>" when the words so far make a command, or
// "|" when its output may be filtered.
struct Choice {
    std::string word;
    std::string help;
};

struct ParseError {
    enum Kind { Invalid, Incomplete, Ambiguous, BadValue } kind = Invalid;
    size_t column = 0;            // where the marker goes
    std::string message;          // the line after the marker, without "% "
    std::vector<Choice> expected; // words that would fit there
};

// What a command line means: the command and the client's options.
struct Invocation {
    const Command *command = nullptr;
    std::vector<std::pair<char, std::string>> options;  // in the order typed; "" for a flag
    std::vector<size_t> columns;                        // where each option's word was typed

    // The client's arguments: options, then the command number in hexadecimal.
    std::vector<std::string> client_args() const;
    // A shell setting's value (kShellOptions), or null when not given.
    const std::string *setting(char option) const;
};

// The longest regular expression a stage takes, in bytes.
inline constexpr size_t kMaxRegex = 256;

struct Pipe {
    PipeKind kind;
    std::shared_ptr<const re2::RE2> regex;  // stages that take one
};

// Compiles a stage's regular expression: null, with why and the byte offset
// in the text where the fault is, when it is refused.
std::shared_ptr<const re2::RE2> compile_regex(std::string_view text, std::string &why, size_t &offset);

struct ParsedLine {
    std::optional<Invocation> invocation;  // none on error, and for an empty line
    bool json = false;                     // the records as JSON Lines instead of the report
    std::vector<Pipe> pipes;
    std::optional<ParseError> error;
};

// Parses a command's words (no pipe).
std::optional<Invocation> parse_words(const std::vector<Word> &words, ParseError &error);

// Parses a whole line: the command (ending in "json" for its JSON view), then
// "| stage [regex]" stages. A regular expression runs to the next "|" that has
// a blank on each side.
ParsedLine parse_line(std::string_view line);

// The words that may follow `words` (which must themselves fit), for "?" and
// completion. After "|" these are the output stages.
std::vector<Choice> next_choices(std::string_view text_before_word);

// The keywords (not placeholders) that complete `partial` at the end of
// `text_before_word`.
std::vector<std::string> completions(std::string_view text_before_word, std::string_view partial);

}  // namespace evpn_shell
