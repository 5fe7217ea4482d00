// The shell's grammar: the tables hold together, every command's words make
// the client command line they mean, and bad words are caught where they are.
#include <gtest/gtest.h>

#include <re2/re2.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <string>
#include <vector>

#include "grammar.h"
#include "parser.h"
#include "runner.h"
#include "values.h"

using namespace evpn_shell;

namespace {

std::string args_of(const std::string &line) {
    ParsedLine p = parse_line(line);
    if (p.error) return "error: " + p.error->message;
    if (!p.invocation) return "(nothing)";
    std::string out;
    for (const std::string &a : p.invocation->client_args()) out += (out.empty() ? "" : " ") + a;
    return out;
}

bool takes_argument(char option) {
    const char *p = strchr(kClientOptions, option);
    return p && p[1] == ':';
}

std::vector<std::string> words(const char *list) {
    std::vector<std::string> out;
    for (const Word &w : split_words(list ? list : "")) out.push_back(w.text);
    return out;
}

}  // namespace

TEST(ShellGrammar, TablesAreConsistent) {
    // Each command's number is pinned by the command-line test below.
    std::set<std::string> path_words;
    for (const Command &c : commands()) {
        for (const std::string &t : words(c.path)) {
            if (t.front() == '{') {
                const Filter *f = find_filter(t.substr(1, t.size() - 2));
                ASSERT_NE(f, nullptr) << c.path;
                EXPECT_EQ(f->word, nullptr) << t << " is a keyword filter, not a value";
            } else {
                EXPECT_NE(find_keyword(t), nullptr) << "no help for " << t;
                path_words.insert(t);
            }
        }
        for (const std::string &id : words(c.filters)) {
            const Filter *f = find_filter(id);
            ASSERT_NE(f, nullptr) << id << " in " << c.path;
            EXPECT_NE(f->word, nullptr) << id << " is a value, not a keyword filter";
        }
        // A required filter is one the command takes, or a value in its path.
        for (const std::string &id : words(c.required)) {
            const std::vector<std::string> taken = words(c.filters);
            EXPECT_TRUE(std::find(taken.begin(), taken.end(), id) != taken.end() ||
                        std::string(c.path).find("{" + id + "}") != std::string::npos)
                << id << " required but not taken by " << c.path;
        }
    }

    std::set<std::string> filter_words;
    for (const Filter &f : filters()) {
        for (const char *o = f.options; *o; o++) {
            if (strchr(kShellOptions, *o)) continue;  // kept by the shell, never passed on
            ASSERT_NE(strchr(kClientOptions, *o), nullptr) << f.id;
            // A value or a fixed argument exactly where the client takes one.
            EXPECT_EQ(takes_argument(*o), f.kind != ValueKind::None || f.fixed != nullptr) << f.id;
        }
        if (f.kind != ValueKind::None) { EXPECT_NE(f.value_name, nullptr) << f.id; }
        if (!f.word) continue;
        EXPECT_TRUE(filter_words.insert(f.word).second) << f.word << " names two filters";
        // A word must read the same everywhere: either it takes the next word or not.
        if (f.kind != ValueKind::None) { EXPECT_EQ(path_words.count(f.word), 0u) << f.word; }
    }
}

// Every command row, with the filters it takes, against the command line the
// client needs; EVIs and tags in decimal become hexadecimal.
TEST(ShellGrammar, EveryCommandMakesItsClientCommandLine) {
    const struct {
        const char *line;
        const char *args;
    } cases[] = {
        {"show evpn evi mac", "0"},
        {"show evpn evi 100 mac 0011.2233.4401 ip 10.0.0.1 detail", "-d -M 64 -N 10.0.0.1 -O 11 -P 2233 -Q 4401 0"},
        {"show evpn evi mac aa:bb:cc:dd:ee:0f bridge-domain bd1 local private", "-b bd1 -p -O aabb -P ccdd -Q ee0f -1 1 0"},
        {"show evpn evi 4294967295 inclusive-multicast ethernet-tag 16 originating-ip 2001:DB8::1",
         "-e 10 -M ffffffff -N 2001:db8::1 1"},
        {"show evpn label vpn-id 100 ethernet-tag 5 esi 0011.2233.4455.6677.8899 isid 10 private",
         "-e 5 -j a -p -M 64 -0 0011.2233.4455.6677.8899 2"},
        {"show evpn ethernet-segment interface eth1 pw-neighbor 192.0.2.1 pw-id 100 vfi v1 access-evi carving detail",
         "-d -i eth1 -c -5 192.0.2.1 -6 100 -7 v1 -8 3"},
        {"show evpn route-distinguisher private", "-p 4"},
        {"show evpn evi 256 detail no-stats bridge-domain core", "-b core -d -n -M 100 5"},
        {"show evpn summary private standby", "-p -U standby 7"},
        {"show evpn evi 7 neighbor 10.1.1.1 leaf-evis location 10", "-t -M 7 -N 10.1.1.1 -U 10 8"},
        {"show evpn evi ead esi 1.2.3.4.5 vpn-id 1 local", "-M 1 -0 0001.0002.0003.0004.0005 -1 1 9"},
        {"show evpn evi 5 ac-id 42 private", "-j 2a -p -M 5 a"},
        {"show evpn evi 100 pathlist esi 00-11-22-33-44-55-66-77-88-99 isid 4", "-j 4 -M 64 -0 0011.2233.4455.6677.8899 b"},
        {"show evpn remote-shg detail", "-d c"},
        {"show evpn evi 100 igmp esi 0011.2233.4455.6677.8899 detail", "-d -M 64 -0 0011.2233.4455.6677.8899 d"},
        {"show evpn client", "e"},
        {"show evpn group 31", "-g 1f f"},
        {"show evpn tunnel-endpoint 1 private", "-p -M 1 10"},
        {"show evpn internal-id vpn-id 10 detail", "-d -M a 11"},
        {"show evpn srv6 detail", "-d 12"},
        {"show evpn grouping-es-map private", "-p 13"},
        {"terminal length 24", "terminal"},
        {"exit", "exit"},
        {"quit", "quit"},
    };
    std::set<const Command *> covered;
    for (const auto &c : cases) {
        ParsedLine p = parse_line(c.line);
        ASSERT_TRUE(p.invocation) << c.line << ": " << (p.error ? p.error->message : "");
        covered.insert(p.invocation->command);
        if (p.invocation->command->number < 0) continue;
        EXPECT_EQ(args_of(c.line), c.args) << c.line;
    }
    for (const Command &c : commands()) EXPECT_TRUE(covered.count(&c)) << "no case for " << c.path;
    for (const Filter &f : filters()) {
        if (!f.word) continue;  // values typed after a command word come with their command's case
        bool used = false;
        for (const auto &c : cases)
            for (const Word &w : split_words(c.line)) used |= w.text == f.word;
        EXPECT_TRUE(used) << "no case for " << f.word;
    }
}

TEST(ShellGrammar, OneCommandWrittenTwoWaysMakesOneCommandLine) {
    const char *forms[][3] = {
        {"show evpn evi 100 detail", "show evpn evi vpn-id 100 detail", "show evpn evi detail vpn-id 100"},
        {"show evpn evi 100 mac 0011.2233.4401", "show evpn evi mac 0011.2233.4401 vpn-id 100",
         "sh ev ev 100 m 11.2233.4401"},
        {"show evpn evi 1 neighbor 10.0.0.1 private", "show evpn evi neighbor 10.0.0.1 private vpn-id 1",
         "show evpn evi neighbor 10.0.0.1 vpn-id 1 pri"},
        {"show evpn ethernet-segment private carving", "show evpn ethernet-segment carving private",
         "show evpn eth car pri"},
    };
    for (const auto &f : forms) {
        EXPECT_EQ(args_of(f[0]), args_of(f[1]));
        EXPECT_EQ(args_of(f[0]), args_of(f[2]));
        EXPECT_EQ(args_of(f[0]).rfind("error", 0), std::string::npos) << f[0];
    }
}

TEST(ShellGrammar, BadInputIsCaughtAtTheFirstWordThatDoesNotFit) {
    const struct {
        const char *line;
        ParseError::Kind kind;
        size_t column;
        const char *message;   // the start of it
        const char *expected;  // one word that would fit, or ""
    } cases[] = {
        {"show evpn evi mc", ParseError::Invalid, 14, "Invalid input detected", "mac"},
        {"show evpn evi detail 100", ParseError::Invalid, 21, "Invalid input", "private"},
        {"shwo evpn", ParseError::Invalid, 0, "Invalid input", "show"},
        {"show evpn", ParseError::Incomplete, 10, "Incomplete command.", "summary"},
        {"show evpn e", ParseError::Ambiguous, 10, "Ambiguous command: \"e\" may be ethernet-segment, evi", "evi"},
        {"show evpn evi 70000000000", ParseError::BadValue, 14, "Invalid EVI \"70000000000\": out of range", ""},
        {"show evpn evi vpn-id 4294967296", ParseError::BadValue, 21, "Invalid EVI \"4294967296\": out of range", ""},
        {"show evpn evi vpn-id 0x10", ParseError::BadValue, 21, "Invalid EVI \"0x10\": not a decimal number", ""},
        {"show evpn evi vpn-id", ParseError::Incomplete, 21, "Incomplete command.", "<0-4294967295>"},
        {"show evpn evi mac 0011.2233.44g1", ParseError::BadValue, 18, "Invalid MAC address", ""},
        {"show evpn evi mac 0011.2233", ParseError::BadValue, 18, "Invalid MAC address \"0011.2233\": not of the form H.H.H", ""},
        {"show evpn evi mac 00-11-22-33-44", ParseError::BadValue, 18, "Invalid MAC address \"00-11-22-33-44\": not of the form H.H.H", ""},
        {"show evpn label esi 0011.2233.4455.6677", ParseError::BadValue, 20, "Invalid ESI", ""},
        {"show evpn evi mac ip 10.0.0.256", ParseError::BadValue, 21, "Invalid IP address", ""},
        {"show evpn summary location 4294967295", ParseError::BadValue, 27, "Invalid node ID", ""},
        // One option, one value: the second form of the EVI does not fit.
        {"show evpn evi 100 vpn-id 5", ParseError::Invalid, 18, "Invalid input", "detail"},
        {"show evpn summary standby location 1", ParseError::Invalid, 26, "Invalid input", "private"},
        {"show evpn summary private private", ParseError::Invalid, 26, "Invalid input", "<cr>"},
        {"show evpn grouping-es-map", ParseError::Incomplete, 26, "Incomplete command.", "private"},
        {"show evpn evi | bogus", ParseError::Invalid, 16, "Invalid input", "include"},
        {"show evpn evi |", ParseError::Incomplete, 16, "Incomplete command.", "count"},
        {"show evpn evi | include", ParseError::Incomplete, 24, "Incomplete command.", "LINE"},
        {"show evpn evi | include (", ParseError::BadValue, 24, "Invalid regular expression", ""},
        // RE2 names the piece it refuses; the marker stands under it.
        {"show evpn evi | include x(a)\\1", ParseError::BadValue, 28, "Invalid regular expression", "LINE"},
        {"show evpn evi | include a{1,32767}", ParseError::BadValue, 25, "Invalid regular expression", ""},
        {"show evpn evi | include x | begin", ParseError::Incomplete, 34, "Incomplete command.", "LINE"},
        {"show evpn evi | include x |", ParseError::Incomplete, 28, "Incomplete command.", "section"},
        {"show evpn evi | count | json", ParseError::Invalid, 24, "Invalid input", ""},
        {"show evpn evi json | json", ParseError::Invalid, 21, "Invalid input", ""},
        {"exit json", ParseError::Invalid, 5, "Invalid input", "<cr>"},
        {"terminal length", ParseError::Incomplete, 16, "Incomplete command.", "<0-512>"},
        {"terminal length 513", ParseError::BadValue, 16, "Invalid number of lines", ""},
        {"terminal length 20 | count", ParseError::Invalid, 19, "Invalid input", "<cr>"},
        {"show evpn evi | count x", ParseError::Invalid, 22, "Invalid input", "<cr>"},
        {"exit | count", ParseError::Invalid, 5, "Invalid input", "<cr>"},
        {"| count", ParseError::Invalid, 0, "Invalid input", ""},
    };
    for (const auto &c : cases) {
        ParsedLine p = parse_line(c.line);
        ASSERT_TRUE(p.error) << c.line << " parsed as " << args_of(c.line);
        EXPECT_FALSE(p.invocation) << c.line;
        EXPECT_EQ(p.error->kind, c.kind) << c.line;
        EXPECT_EQ(p.error->column, c.column) << c.line;
        EXPECT_EQ(p.error->message.rfind(c.message, 0), 0u) << c.line << ": " << p.error->message;
        if (*c.expected) {
            const auto &e = p.error->expected;
            EXPECT_TRUE(std::any_of(e.begin(), e.end(), [&](const Choice &x) { return x.word == c.expected; }))
                << c.line << " should offer " << c.expected;
        }
    }
}

TEST(ShellGrammar, HelpAndCompletionOfferWhatMayFollow) {
    auto has = [](const std::vector<Choice> &list, const std::string &w) {
        return std::any_of(list.begin(), list.end(), [&](const Choice &c) { return c.word == w; });
    };
    // After "evi": its value, its subcommands, its own filters, and the end.
    std::vector<Choice> after_evi = next_choices("show evpn evi ");
    for (const char *w : {"<0-4294967295>", "mac", "ead", "detail", "vpn-id", "<cr>", "|"})
        EXPECT_TRUE(has(after_evi, w)) << w;
    EXPECT_FALSE(has(after_evi, "esi")) << "a filter of a subcommand is offered before the subcommand";
    // A keyword filter's value; a filter given once is not offered again.
    EXPECT_EQ(next_choices("show evpn evi vpn-id ").at(0).word, "<0-4294967295>");
    EXPECT_FALSE(has(next_choices("show evpn summary private "), "private"));
    EXPECT_TRUE(next_choices("show evpn bogus ").empty());
    // "exit" takes no output stage.
    EXPECT_FALSE(has(next_choices("exit "), "|"));
    EXPECT_TRUE(has(next_choices("show evpn client | "), "exclude"));
    EXPECT_EQ(next_choices("show evpn client | include ").at(0).word, "LINE");

    EXPECT_EQ(completions("show evpn ", "e"), (std::vector<std::string>{"ethernet-segment", "evi"}));
    EXPECT_EQ(completions("show evpn evi ", "in"), (std::vector<std::string>{"inclusive-multicast"}));
    EXPECT_EQ(completions("show evpn evi mac ", ""),
              (std::vector<std::string>{"bridge-domain", "detail", "ip", "json", "local", "location", "private",
                                        "standby", "vpn-id"}));
    EXPECT_EQ(completions("show evpn client | ", "c"), (std::vector<std::string>{"count"}));
    EXPECT_TRUE(completions("show evpn evi vpn-id ", "").empty());
}

// Forms and limits the command-line and bad-input tables above leave out.
TEST(ShellValues, TypedFormsBecomeTheClientsForms) {
    const struct {
        ValueKind kind;
        const char *text;
        Conversion::Fit fit;
        std::vector<std::string> args;
    } cases[] = {
        {ValueKind::Number, "0", Conversion::Yes, {"0"}},
        {ValueKind::Number, "00000000000000000100", Conversion::Yes, {"64"}},
        {ValueKind::Number, "99999999999999999999999", Conversion::Bad, {}},
        {ValueKind::Number, "-1", Conversion::NotThisKind, {}},
        {ValueKind::Number, "", Conversion::NotThisKind, {}},
        {ValueKind::Node, "4294967294", Conversion::Yes, {"4294967294"}},
        {ValueKind::Mac, "0:1:22:33:44:1", Conversion::Yes, {"1", "2233", "4401"}},
        {ValueKind::Mac, "00-11-22-33-44-01", Conversion::Yes, {"11", "2233", "4401"}},
        {ValueKind::Mac, "0011.2233.44011", Conversion::Bad, {}},
        {ValueKind::Mac, "00:11:22:33:44", Conversion::Bad, {}},
        {ValueKind::Mac, "00:11-22:33:44:55", Conversion::Bad, {}},
        {ValueKind::Mac, "detail", Conversion::NotThisKind, {}},
        {ValueKind::Esi, "FF.1.2.3.4", Conversion::Yes, {"00ff.0001.0002.0003.0004"}},
        {ValueKind::Esi, "0011.2233.4455.6677.8899.0000", Conversion::Bad, {}},
        {ValueKind::Ip, "2001:DB8:0:0::1", Conversion::Yes, {"2001:db8::1"}},
        {ValueKind::Ip, "10.0.0", Conversion::Bad, {}},
        {ValueKind::Ip, "leaf-evis", Conversion::NotThisKind, {}},
    };
    for (const auto &c : cases) {
        Conversion got = convert_value(c.kind, c.text);
        EXPECT_EQ(got.fit, c.fit) << c.text;
        if (c.fit == Conversion::Yes) EXPECT_EQ(got.args, c.args) << c.text;
        else EXPECT_FALSE(got.reason.empty()) << c.text;
    }
}

namespace {

// The stages of "show evpn evi | STAGES" over text.
std::string staged(const std::string &stages, const std::string &text) {
    ParsedLine p = parse_line("show evpn evi | " + stages);
    if (p.error) return "error: " + p.error->message;
    return apply_pipes(text, p.pipes);
}

}  // namespace

TEST(ShellPipes, StagesFilterAndCountLinesInOrder) {
    const std::string out = "VPN-ID Encap\n100 MPLS\n200 VXLAN\n\n1000 MPLS";  // last line unterminated
    EXPECT_EQ(staged("include MPLS", out), "100 MPLS\n1000 MPLS");
    EXPECT_EQ(staged("exclude ^$|MPLS", out), "VPN-ID Encap\n200 VXLAN\n");
    EXPECT_EQ(staged("count", out), "Count: 5\n");
    EXPECT_EQ(staged("include ^1 | count", out), "Count: 2\n");
    EXPECT_EQ(staged("count | include 5", out), "Count: 5\n");
    EXPECT_EQ(staged("count", ""), "Count: 0\n");
    EXPECT_EQ(staged("begin ^200", out), "200 VXLAN\n\n1000 MPLS");
    EXPECT_EQ(staged("begin 200 | exclude 2", out), "\n1000 MPLS");
    EXPECT_EQ(staged("begin nothing", out), "");
    // A "|" without blanks around it belongs to the regular expression.
    ParsedLine p = parse_line("show evpn evi | include MPLS|VXLAN | count");
    ASSERT_FALSE(p.error);
    ASSERT_EQ(p.pipes.size(), 2u);
    EXPECT_EQ(p.pipes[0].regex->pattern(), "MPLS|VXLAN");
    EXPECT_EQ(p.pipes[1].kind, PipeKind::Count);
    // Tabs separate words and stages as blanks do.
    p = parse_line("show\tevpn\tevi\t|\tinclude\tMPLS\t|\tcount");
    ASSERT_FALSE(p.error) << p.error->message;
    ASSERT_EQ(p.pipes.size(), 2u);
    EXPECT_EQ(p.pipes[0].regex->pattern(), "MPLS");
}

// A section is a matching line and the lines indented deeper than it; blank
// lines inside it stay, blank lines after it go.
TEST(ShellPipes, SectionKeepsEachMatchingBlockWhole) {
    const std::string detail =
        "VPN-ID     Encap\n"
        "100        MPLS\n"
        "   Label: 24001\n"
        "\n"
        "   Statistics:\n"
        "     Total: 5\n"
        "\n"
        "200        VXLAN\n"
        "   Label: 24002\n"
        "   Statistics:\n"
        "     Total: 7\n";
    EXPECT_EQ(staged("section ^100", detail),
              "100        MPLS\n   Label: 24001\n\n   Statistics:\n     Total: 5\n");
    EXPECT_EQ(staged("section Statistics", detail),
              "   Statistics:\n     Total: 5\n   Statistics:\n     Total: 7\n");
    EXPECT_EQ(staged("section VXLAN | count", detail), "Count: 4\n");
    EXPECT_EQ(staged("section Label", detail), "   Label: 24001\n   Label: 24002\n");
}

// RE2 matches in time linear in the line, so no expression can stall the
// shell; what it cannot promise that for, it refuses.
TEST(ShellPipes, RegularExpressionsAreBoundedInLengthAndTime) {
    std::string why;
    size_t offset = 0;
    EXPECT_NE(compile_regex(std::string(kMaxRegex, 'a'), why, offset), nullptr);
    EXPECT_EQ(compile_regex(std::string(kMaxRegex + 1, 'a'), why, offset), nullptr);
    EXPECT_EQ(offset, kMaxRegex);
    ParsedLine p = parse_line("show evpn evi | include " + std::string(300, 'x'));
    ASSERT_TRUE(p.error);
    EXPECT_EQ(p.error->column, 24 + kMaxRegex);
    EXPECT_EQ(p.error->message, "Invalid regular expression: longer than 256 bytes");

    // The classic exponential cases take no time over a long listing.
    std::string listing;
    for (int i = 0; i < 10000; i++) listing += std::string(200, 'a') + "!\n";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(staged("include ^(a+)+$", listing), "");
    EXPECT_EQ(staged("include (a|aa)*b", listing), "");
    EXPECT_EQ(staged("include a{1,1000}! | count", listing), "Count: 10000\n");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST(ShellJson, JsonLastOrAsTheFirstStageAsksForTheJsonView) {
    const struct {
        const char *line;
        bool json;
        const char *args;
    } cases[] = {
        {"show evpn evi mac json", true, "0"},
        {"show evpn evi 100 mac json | count", true, "-M 64 0"},
        {"show evpn evi mac | json | include 4404", true, "0"},
        // A bridge domain may be called "json"; only a last word that fits
        // nothing else asks for the view.
        {"show evpn evi bridge-domain json", false, "-b json 5"},
        {"show evpn evi bridge-domain json json", true, "-b json 5"},
    };
    for (const auto &c : cases) {
        ParsedLine p = parse_line(c.line);
        ASSERT_FALSE(p.error) << c.line << ": " << p.error->message;
        EXPECT_EQ(p.json, c.json) << c.line;
        EXPECT_EQ(args_of(c.line), c.args) << c.line;
    }
    auto has = [](const std::vector<Choice> &list, const std::string &w) {
        return std::any_of(list.begin(), list.end(), [&](const Choice &c) { return c.word == w; });
    };
    EXPECT_TRUE(has(next_choices("show evpn evi mac "), "json"));
    EXPECT_FALSE(has(next_choices("show evpn "), "json")) << "offered before the command is complete";
    EXPECT_TRUE(has(next_choices("show evpn evi mac json "), "|"));
    EXPECT_EQ(completions("show evpn summary ", "j"), (std::vector<std::string>{"json"}));
}

// A name the client would have to cut to fit its database path is refused at
// its word; one that just fits passes.
TEST(ShellGrammar, NamesTheClientCouldNotLookUpWholeAreRefused) {
    // (That these fill the client's path exactly is the program test's.)
    const struct {
        const char *words;  // the name follows
        size_t longest;     // the longest name that passes
    } cases[] = {
        {"show evpn ethernet-segment interface ", 63},
        {"show evpn evi bridge-domain ", 255 - 37},
        {"show evpn evi neighbor bridge-domain ", 255 - 93},
    };
    for (const auto &c : cases) {
        const std::string prefix = c.words;
        EXPECT_FALSE(parse_line(prefix + std::string(c.longest, 'v')).error) << c.words;
        ParsedLine p = parse_line(prefix + std::string(c.longest + 1, 'v') + " private");
        ASSERT_TRUE(p.error) << c.words;
        EXPECT_EQ(p.error->kind, ParseError::BadValue);
        EXPECT_EQ(p.error->column, prefix.size()) << c.words;
        EXPECT_NE(p.error->message.find(std::to_string(c.longest + 1) + " characters"), std::string::npos)
            << p.error->message;
    }
}
