// The parser follows every command of the grammar at once: each word moves the
// commands it fits one step on and drops the others. A word fits a command as
// its next path word, as the value typed after a path word, or, once all its
// path words are there, as one of its keyword filters (whose value, if it
// takes one, is the word after it).
#include "parser.h"

#include <re2/re2.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "values.h"

namespace evpn_shell {

namespace {

struct Token {
    std::string word;              // a path word, or empty for a value slot
    const Filter *slot = nullptr;  // the filter a value typed here fills
};

struct CommandDef {
    const Command *command;
    std::vector<Token> path;
    std::vector<const Filter *> filters, required;
};

std::vector<std::string> split_list(const char *text) {
    std::istringstream in(text ? text : "");
    std::vector<std::string> out;
    for (std::string s; in >> s;) out.push_back(s);
    return out;
}

std::vector<CommandDef> build_defs() {
    std::vector<CommandDef> defs;
    for (const Command &c : commands()) {
        CommandDef d{&c, {}, {}, {}};
        for (const std::string &t : split_list(c.path)) {
            if (t.size() > 2 && t.front() == '{' && t.back() == '}')
                d.path.push_back({"", find_filter(t.substr(1, t.size() - 2))});
            else
                d.path.push_back({t, nullptr});
        }
        for (const std::string &id : split_list(c.filters))
            if (const Filter *f = find_filter(id)) d.filters.push_back(f);
        for (const std::string &id : split_list(c.required))
            if (const Filter *f = find_filter(id)) d.required.push_back(f);
        defs.push_back(std::move(d));
    }
    return defs;
}

const std::vector<CommandDef> &defs() {
    static const std::vector<CommandDef> d = build_defs();
    return d;
}

// One command being followed: how far along its path, and the options filled.
struct State {
    const CommandDef *def;
    size_t pos = 0;
    std::vector<std::pair<char, std::string>> options;
    std::vector<size_t> columns;

    bool filled(char option) const {
        return std::any_of(options.begin(), options.end(), [&](auto &o) { return o.first == option; });
    }
    bool usable(const Filter *f) const {
        for (const char *o = f->options; *o; o++)
            if (filled(*o)) return false;
        return true;
    }
    void fill(const Filter *f, const std::vector<std::string> &args, size_t column) {
        size_t i = 0;
        for (const char *o = f->options; *o; o++, i++) {
            options.emplace_back(*o, f->kind == ValueKind::None ? (f->fixed ? f->fixed : "") : args.at(i));
            columns.push_back(column);
        }
    }
    // The path position past the value slots that may be left out.
    size_t after_slots() const {
        size_t i = pos;
        while (i < def->path.size() && def->path[i].slot) i++;
        return i;
    }
    bool complete() const {
        if (after_slots() != def->path.size()) return false;
        for (const Filter *f : def->required)
            if (usable(f)) return false;
        return true;
    }
    bool operator==(const State &o) const { return def == o.def && pos == o.pos && options == o.options; }
};

// A way a word may fit one state.
struct Alt {
    enum Type { PathWord, Slot, FilterWord } type;
    size_t state;
    const Filter *filter;  // Slot, FilterWord
    std::string word;      // PathWord, FilterWord
    size_t next_pos;
};

std::vector<Alt> alternatives(const std::vector<State> &states) {
    std::vector<Alt> alts;
    for (size_t s = 0; s < states.size(); s++) {
        const State &st = states[s];
        const auto &path = st.def->path;
        size_t i = st.pos;
        for (; i < path.size() && path[i].slot; i++)
            if (st.usable(path[i].slot)) alts.push_back({Alt::Slot, s, path[i].slot, "", i + 1});
        if (i < path.size()) alts.push_back({Alt::PathWord, s, nullptr, path[i].word, i + 1});
        if (i == path.size())  // filters follow the command's words
            for (const Filter *f : st.def->filters)
                if (st.usable(f)) alts.push_back({Alt::FilterWord, s, f, f->word, i});
    }
    return alts;
}

bool any_show_complete(const std::vector<State> &states) {
    return std::any_of(states.begin(), states.end(),
                       [](const State &s) { return s.complete() && s.def->command->number >= 0; });
}

bool any_complete(const std::vector<State> &states) {
    return std::any_of(states.begin(), states.end(), [](const State &s) { return s.complete(); });
}

const char kPipeHelp[] = "Filter the output";

std::vector<Choice> choices_of(const std::vector<Alt> &alts, const std::vector<State> &states) {
    std::vector<Choice> values, words;
    auto add = [](std::vector<Choice> &list, std::string word, std::string help) {
        for (const Choice &c : list)
            if (c.word == word) return;
        list.push_back({std::move(word), std::move(help)});
    };
    for (const Alt &a : alts) {
        if (a.type == Alt::Slot) add(values, value_placeholder(a.filter->kind), a.filter->help);
        else if (a.type == Alt::FilterWord) add(words, a.word, a.filter->help);
        else {
            const Keyword *k = find_keyword(a.word);
            add(words, a.word, k ? k->help : "");
        }
    }
    if (any_show_complete(states)) add(words, kJsonWord, kJsonHelp);
    std::sort(words.begin(), words.end(), [](const Choice &x, const Choice &y) { return x.word < y.word; });
    values.insert(values.end(), words.begin(), words.end());
    if (any_complete(states)) values.push_back({"<cr>", ""});
    if (any_show_complete(states)) values.push_back({"|", kPipeHelp});
    return values;
}

std::string quoted(const std::string &s) { return "\"" + s + "\""; }

// Follows the words through the grammar. On success `states` holds the
// commands the words fit so far.
bool walk(const std::vector<Word> &words, std::vector<State> &states, ParseError &error) {
    states.clear();
    for (const CommandDef &d : defs()) states.push_back({&d, 0, {}});

    for (size_t i = 0; i < words.size();) {
        const std::string &w = words[i].text;
        const std::vector<Alt> alts = alternatives(states);
        auto fail = [&](ParseError::Kind kind, size_t column, std::string message,
                        std::vector<Choice> expected) {
            error.kind = kind;
            error.column = column;
            error.message = std::move(message);
            error.expected = std::move(expected);
            return false;
        };

        // An exact keyword first, then a value, then an unambiguous abbreviation.
        std::vector<Alt> chosen;
        for (const Alt &a : alts)
            if (a.type != Alt::Slot && a.word == w) chosen.push_back(a);
        if (chosen.empty())
            for (const Alt &a : alts)
                if (a.type == Alt::Slot && convert_value(a.filter->kind, w).fit == Conversion::Yes)
                    chosen.push_back(a);
        if (chosen.empty()) {
            std::vector<std::string> expansions;
            for (const Alt &a : alts)
                if (a.type != Alt::Slot && a.word.compare(0, w.size(), w) == 0 &&
                    std::find(expansions.begin(), expansions.end(), a.word) == expansions.end())
                    expansions.push_back(a.word);
            if (expansions.size() > 1) {
                std::sort(expansions.begin(), expansions.end());
                std::vector<Choice> expected;
                std::string list;
                for (const std::string &e : expansions) {
                    list += (list.empty() ? "" : ", ") + e;
                    expected.push_back({e, ""});
                }
                return fail(ParseError::Ambiguous, words[i].column,
                            "Ambiguous command: " + quoted(w) + " may be " + list, expected);
            }
            if (expansions.size() == 1)
                for (const Alt &a : alts)
                    if (a.type != Alt::Slot && a.word == expansions[0]) chosen.push_back(a);
        }
        if (chosen.empty()) {
            for (const Alt &a : alts) {
                if (a.type != Alt::Slot) continue;
                Conversion c = convert_value(a.filter->kind, w);
                if (c.fit == Conversion::Bad)
                    return fail(ParseError::BadValue, words[i].column,
                                std::string("Invalid ") + a.filter->value_name + " " + quoted(w) + ": " + c.reason,
                                {{value_placeholder(a.filter->kind), a.filter->help}});
            }
            return fail(ParseError::Invalid, words[i].column, "Invalid input detected at '^' marker.",
                        choices_of(alts, states));
        }

        size_t consumed = 1;
        std::vector<State> next;
        for (const Alt &a : chosen) {
            State s = states[a.state];
            s.pos = a.next_pos;
            if (a.type == Alt::Slot) {
                s.fill(a.filter, convert_value(a.filter->kind, w).args, words[i].column);
            } else if (a.type == Alt::FilterWord) {
                const Filter *f = a.filter;
                if (f->kind == ValueKind::None) {
                    s.fill(f, {}, words[i].column);
                } else {
                    const Choice placeholder{value_placeholder(f->kind), f->help};
                    if (i + 1 >= words.size())
                        return fail(ParseError::Incomplete, words[i].column + w.size() + 1,
                                    "Incomplete command.", {placeholder});
                    Conversion c = convert_value(f->kind, words[i + 1].text);
                    if (c.fit != Conversion::Yes)
                        return fail(ParseError::BadValue, words[i + 1].column,
                                    std::string("Invalid ") + f->value_name + " " + quoted(words[i + 1].text) +
                                        ": " + c.reason,
                                    {placeholder});
                    s.fill(f, c.args, words[i + 1].column);
                    consumed = 2;
                }
            }
            if (std::find(next.begin(), next.end(), s) == next.end()) next.push_back(std::move(s));
        }
        states = std::move(next);
        i += consumed;
    }
    return true;
}

size_t end_column(const std::vector<Word> &words) {
    return words.empty() ? 0 : words.back().column + words.back().text.size() + 1;
}

bool is_blank(char c) { return c == ' ' || c == '\t'; }

std::string trim(std::string_view s) {
    size_t b = 0, e = s.size();
    while (b < e && is_blank(s[b])) b++;
    while (e > b && is_blank(s[e - 1])) e--;
    return std::string(s.substr(b, e - b));
}

// The next stage separator: a "|" with a blank on each side (or at the end).
size_t next_separator(std::string_view line, size_t from) {
    for (size_t k = from; k < line.size(); k++)
        if (line[k] == '|' && k > 0 && is_blank(line[k - 1]) && (k + 1 == line.size() || is_blank(line[k + 1])))
            return k;
    return std::string_view::npos;
}

std::vector<Choice> stage_choices() {
    std::vector<Choice> out;
    for (const PipeStage &p : pipe_stages()) out.push_back({p.word, p.help});
    return out;
}

const char kRegexPlaceholder[] = "LINE";
const char kRegexHelp[] = "Regular expression (RE2 syntax, up to 256 bytes)";

// The longest database path the client builds around a typed name, per show
// command and option: the name stands at %s, every other key component at its
// widest (a wildcard "________", a tag's 8 hexadecimal digits, an address's
// 32, an ESI's dotted 24 characters). The client cuts a path at 255
// characters and would then name another item, so a name that would make a
// longer path is refused before the client runs.
struct NameRoom {
    int command;
    char option;
    const char *widest_path;
};
constexpr size_t kMaxClientPath = 255;
const NameRoom kNameRooms[] = {
    {0, 'b', "evpn_evi_detail/evi_child_container/evpn_mac-bd_mac_ip/%s,________,________,________,"
             "ffffffffffffffffffffffffffffffff"},
    {1, 'b', "evpn_evi_detail/evi_child_container/evpn_imcast-bd_eth_tag_orig_ip/%s,ffffffff,"
             "ffffffffffffffffffffffffffffffff"},
    {5, 'b', "evpn_evi_detail/detailed_elements-bd/%s"},
    {8, 'b', "evpn_evi_detail/evi_child_container/evpn_neighbor-bd_nbr_ip/%s,ffffffffffffffffffffffffffffffff"},
    {9, 'b', "evpn_evi_detail/evi_child_container/evpn_ead-bd_esi/%s,0011.2233.4455.6677.8899"},
    {3, '7', "ethernet_segment-vfi/%s"},
};
// The client keeps an interface name in 64 bytes and drops a longer one whole
// (the segment listing would then be filtered by an empty name).
constexpr size_t kMaxInterfaceName = 63;

// A typed name the client could not carry whole: an error at its word.
bool check_name_room(const Invocation &inv, ParseError &error) {
    for (size_t k = 0; k < inv.options.size(); k++) {
        const auto &[option, value] = inv.options[k];
        size_t room = SIZE_MAX;
        if (option == 'i') room = kMaxInterfaceName;
        for (const NameRoom &r : kNameRooms)
            if (r.command == inv.command->number && r.option == option)
                room = kMaxClientPath - (strlen(r.widest_path) - 2);
        if (value.size() <= room) continue;
        const char *what = "name";
        for (const Filter &f : filters())
            if (f.kind == ValueKind::Name && strchr(f.options, option)) what = f.value_name;
        error = ParseError{ParseError::BadValue, inv.columns[k],
                           std::string("Invalid ") + what + ": " + std::to_string(value.size()) +
                               " characters, more than the " + std::to_string(room) + " the client can look up",
                           {}};
        return false;
    }
    return true;
}

}  // namespace

std::vector<Word> split_words(std::string_view text, size_t first_column) {
    std::vector<Word> words;
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && is_blank(text[i])) i++;
        size_t start = i;
        while (i < text.size() && !is_blank(text[i])) i++;
        if (i > start) words.push_back({std::string(text.substr(start, i - start)), first_column + start});
    }
    return words;
}

const std::string *Invocation::setting(char option) const {
    for (const auto &[o, value] : options)
        if (o == option) return &value;
    return nullptr;
}

std::shared_ptr<const re2::RE2> compile_regex(std::string_view text, std::string &why, size_t &offset) {
    offset = 0;
    if (text.size() > kMaxRegex) {
        why = "longer than " + std::to_string(kMaxRegex) + " bytes";
        offset = kMaxRegex;
        return nullptr;
    }
    RE2::Options options;
    options.set_log_errors(false);
    options.set_max_mem(4 << 20);  // bounds the automata's memory; past it RE2 still matches, slower
    auto re = std::make_shared<const RE2>(re2::StringPiece(text.data(), text.size()), options);
    if (re->ok()) return re;
    why = re->error();
    // RE2 names the piece of the expression at fault; the marker goes under it.
    const std::string &arg = re->error_arg();
    const size_t at = arg.empty() ? std::string_view::npos : text.find(arg);
    if (at != std::string_view::npos) offset = at;
    return nullptr;
}

std::vector<std::string> Invocation::client_args() const {
    std::vector<std::string> args;
    for (const char *o = kClientOptions; *o; o++) {
        if (*o == ':') continue;
        for (const auto &[option, value] : options) {
            if (option != *o) continue;
            args.push_back(std::string("-") + option);
            if (o[1] == ':') args.push_back(value);
        }
    }
    char number[16];
    snprintf(number, sizeof number, "%x", static_cast<unsigned>(command->number));
    args.push_back(number);
    return args;
}

std::optional<Invocation> parse_words(const std::vector<Word> &words, ParseError &error) {
    std::vector<State> states;
    if (!walk(words, states, error)) return std::nullopt;
    std::vector<const State *> complete;
    for (const State &s : states)
        if (s.complete()) complete.push_back(&s);
    if (complete.empty()) {
        error.kind = ParseError::Incomplete;
        error.column = end_column(words);
        error.message = "Incomplete command.";
        error.expected = choices_of(alternatives(states), states);
        return std::nullopt;
    }
    for (const State *s : complete)
        if (s->def != complete[0]->def) {
            error.kind = ParseError::Ambiguous;
            error.column = end_column(words);
            error.message = "Ambiguous command.";
            error.expected = {};
            return std::nullopt;
        }
    Invocation inv;
    inv.command = complete[0]->def->command;
    inv.options = complete[0]->options;
    inv.columns = complete[0]->columns;
    if (!check_name_room(inv, error)) return std::nullopt;
    return inv;
}

ParsedLine parse_line(std::string_view line) {
    ParsedLine out;
    const size_t bar = line.find('|');
    const std::vector<Word> words = split_words(line.substr(0, bar));
    ParseError error;
    if (words.empty()) {
        if (bar != std::string_view::npos)
            out.error = ParseError{ParseError::Invalid, bar, "Invalid input detected at '^' marker.", {}};
        return out;
    }
    out.invocation = parse_words(words, error);
    if (!out.invocation && error.kind != ParseError::BadValue && words.size() > 1 && words.back().text == kJsonWord) {
        // "json" last: the JSON view of the show command before it.
        ParseError shorter_error;
        const std::vector<Word> shorter(words.begin(), words.end() - 1);
        std::optional<Invocation> inv = parse_words(shorter, shorter_error);
        if (inv && inv->command->number >= 0) {
            out.invocation = std::move(inv);
            out.json = true;
        } else if (!inv && shorter_error.kind == ParseError::BadValue) {
            error = shorter_error;
        }
    }
    if (!out.invocation) {
        out.error = error;
        return out;
    }
    if (bar == std::string_view::npos) return out;
    if (out.invocation->command->number < 0) {
        out.error = ParseError{ParseError::Invalid, bar, "Invalid input detected at '^' marker.", {{"<cr>", ""}}};
        out.invocation.reset();
        return out;
    }
    for (size_t start = bar + 1; start <= line.size();) {
        const size_t sep = next_separator(line, start);
        const std::string_view segment = line.substr(start, sep == std::string_view::npos ? line.npos : sep - start);
        const std::vector<Word> stage_words = split_words(segment, start);
        auto fail = [&](ParseError::Kind kind, size_t column, std::string message, std::vector<Choice> expected) {
            out.error = ParseError{kind, column, std::move(message), std::move(expected)};
            out.invocation.reset();
            out.pipes.clear();
            return out;
        };
        if (stage_words.empty())
            return fail(ParseError::Incomplete, start + 1, "Incomplete command.", stage_choices());
        const Word &sw = stage_words[0];
        const PipeStage *stage = nullptr;
        int matches = 0;
        for (const PipeStage &p : pipe_stages()) {
            if (sw.text == p.word) {
                stage = &p;
                matches = 1;
                break;
            }
            if (std::string_view(p.word).starts_with(sw.text)) {
                stage = &p;
                matches++;
            }
        }
        if (matches != 1)
            return fail(matches ? ParseError::Ambiguous : ParseError::Invalid, sw.column,
                        matches ? "Ambiguous command: " + quoted(sw.text) : "Invalid input detected at '^' marker.",
                        stage_choices());
        Pipe pipe{stage->kind, nullptr};
        const std::string rest = trim(segment.substr(sw.column - start + sw.text.size()));
        if (stage->takes_regex) {
            if (rest.empty())
                return fail(ParseError::Incomplete, sw.column + sw.text.size() + 1, "Incomplete command.",
                            {{kRegexPlaceholder, kRegexHelp}});
            std::string why;
            size_t offset = 0;
            pipe.regex = compile_regex(rest, why, offset);
            if (!pipe.regex) {
                const size_t column = line.find(rest, sw.column + sw.text.size()) + offset;
                return fail(ParseError::BadValue, column,
                            rest.size() > kMaxRegex ? "Invalid regular expression: " + why
                                                    : "Invalid regular expression " + quoted(rest) + ": " + why,
                            {{kRegexPlaceholder, kRegexHelp}});
            }
        } else if (!rest.empty()) {
            return fail(ParseError::Invalid, stage_words[1].column, "Invalid input detected at '^' marker.",
                        {{"<cr>", ""}, {"|", kPipeHelp}});
        }
        if (stage->kind == PipeKind::Json) {
            // The JSON view replaces the report, so it is asked for once and first.
            if (out.json || !out.pipes.empty())
                return fail(ParseError::Invalid, sw.column, "Invalid input detected at '^' marker.",
                            stage_choices());
            out.json = true;
        } else {
            out.pipes.push_back(std::move(pipe));
        }
        if (sep == std::string_view::npos) break;
        start = sep + 1;
    }
    return out;
}

std::vector<Choice> next_choices(std::string_view text) {
    const size_t bar = text.find('|');
    if (bar != std::string_view::npos) {
        // After "|": the stages, or a stage's regular expression.
        size_t last = bar;
        for (size_t k; (k = next_separator(text, last + 1)) != std::string_view::npos;) last = k;
        const std::vector<Word> stage_words = split_words(text.substr(last + 1));
        if (stage_words.empty()) return stage_choices();
        std::vector<Choice> out;
        for (const PipeStage &p : pipe_stages()) {
            if (stage_words[0].text != p.word) continue;
            if (p.takes_regex) {
                out.push_back({kRegexPlaceholder, kRegexHelp});
            } else {
                out.push_back({"<cr>", ""});
                out.push_back({"|", kPipeHelp});
            }
        }
        return out;
    }
    const std::vector<Word> words = split_words(text);
    std::vector<State> states;
    ParseError error;
    if (!walk(words, states, error)) {
        if (words.size() > 1 && words.back().text == kJsonWord) {
            // After a show command's "json": the end, or output stages.
            const std::vector<Word> shorter(words.begin(), words.end() - 1);
            if (walk(shorter, states, error) && any_show_complete(states))
                return {{"<cr>", ""}, {"|", kPipeHelp}};
        }
        return error.kind == ParseError::Incomplete ? error.expected : std::vector<Choice>{};
    }
    return choices_of(alternatives(states), states);
}

std::vector<std::string> completions(std::string_view text, std::string_view partial) {
    std::vector<std::string> out;
    for (const Choice &c : next_choices(text)) {
        if (c.word.empty() || c.word[0] == '<' || c.word == "|" || c.word == kRegexPlaceholder) continue;
        if (c.word.compare(0, partial.size(), partial) == 0) out.push_back(c.word);
    }
    // Value placeholders are not words to complete ("H.H.H", "WORD", ...).
    out.erase(std::remove_if(out.begin(), out.end(),
                             [](const std::string &w) {
                                 return !find_keyword(w) && w != kJsonWord &&
                                        std::none_of(filters().begin(), filters().end(),
                                                     [&](const Filter &f) { return f.word && w == f.word; }) &&
                                        std::none_of(pipe_stages().begin(), pipe_stages().end(),
                                                     [&](const PipeStage &p) { return w == p.word; });
                             }),
              out.end());
    return out;
}

}  // namespace evpn_shell
