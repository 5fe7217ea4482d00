#include "manpage.h"

#include <algorithm>
#include <sstream>
#include <string_view>
#include <vector>

#include "grammar.h"

namespace evpn_shell {

namespace {

// Text for roff: backslashes and hyphens escaped, a leading dot or quote guarded.
std::string roff(std::string_view text) {
    std::string out;
    if (!text.empty() && (text[0] == '.' || text[0] == '\'')) out += "\\&";
    for (char c : text) {
        if (c == '\\') out += "\\e";
        else if (c == '-') out += "\\-";
        else out += c;
    }
    return out;
}

std::vector<std::string> words_of(const char *list) {
    std::istringstream in(list ? list : "");
    std::vector<std::string> out;
    for (std::string s; in >> s;) out.push_back(s);
    return out;
}

// The options a filter fills, as the client's command line shows them.
std::string options_text(const Filter &f) {
    std::string out;
    for (const char *o = f.options; *o; o++) {
        if (!out.empty()) out += " ";
        out += "\\fB\\-";
        out += *o;
        out += "\\fR";
        if (f.fixed) out += std::string(" ") + roff(f.fixed);
    }
    return out;
}

// A filter as typed: "\fBword\fR \fIvalue\fR" or "\fIvalue\fR".
std::string filter_form(const Filter &f) {
    std::string out;
    if (f.word) out += "\\fB" + roff(f.word) + "\\fR";
    if (f.kind != ValueKind::None) {
        if (!out.empty()) out += " ";
        out += "\\fI" + roff(value_placeholder(f.kind)) + "\\fR";
    }
    return out;
}

}  // namespace

std::string command_synopsis(const char *path, const char *required) {
    std::string out;
    const std::vector<std::string> needed = words_of(required);
    for (const std::string &t : words_of(path)) {
        if (!out.empty()) out += " ";
        if (t.size() > 2 && t.front() == '{') {
            const std::string id = t.substr(1, t.size() - 2);
            const Filter *f = find_filter(id);
            const char *placeholder = f ? value_placeholder(f->kind) : "?";
            const bool optional = std::find(needed.begin(), needed.end(), id) == needed.end();
            out += optional ? std::string("[") + placeholder + "]" : std::string(placeholder);
        } else {
            out += t;
        }
    }
    return out;
}

std::string manual_page() {
    std::ostringstream m;
    m << ".TH EVPN_SHELL 1 \"\" \"evpn_show\" \"User Commands\"\n"
      << ".nh\n"
      << ".SH NAME\n"
      << "evpn_shell \\- command shell for the EVPN show reports\n"
      << ".SH SYNOPSIS\n"
      << ".B evpn_shell\n"
      << "[\\fB\\-n\\fR] [\\fB\\-c\\fR \\fIcommand\\fR]\n"
      << ".SH DESCRIPTION\n"
      << "\\fBevpn_shell\\fR turns the words an operator types, such as\n"
      << "\\fBshow evpn evi 100 detail\\fR, into the options and the command number of\n"
      << "\\fBevpn_show_client\\fR and runs it once per command, passing its output and\n"
      << "exit status through unchanged.\n"
      << "Numbers (EVIs, tags, group and endpoint IDs) are typed in decimal; MAC\n"
      << "addresses, Ethernet segment identifiers and IP addresses in the forms the\n"
      << "reports print.\n"
      << "Keywords may be shortened to any prefix that no other word at that point shares.\n"
      << "Filters follow the command's words in any order; each may be given once.\n"
      << ".PP\n"
      << "On a terminal the shell edits lines with history; \\fBTab\\fR completes the\n"
      << "next word and \\fB?\\fR lists the words that may follow with their help.\n"
      << "Output longer than the terminal (or than \\fBterminal length\\fR) goes through\n"
      << "the pager; \\fBCtrl\\-C\\fR stops a command, drops what it has not shown and\n"
      << "prints \\fB% interrupted\\fR.\n"
      << "Otherwise it reads one command per line from standard input (blank lines and\n"
      << "lines starting with \\fB#\\fR are skipped).\n"
      << "A word that does not fit is shown with a \\fB^\\fR marker under it and the\n"
      << "words that would; the client is not run.\n"
      << "Control characters in a line shown back are escaped (\\fB^[\\fR for ESC).\n"
      << "A name that would not fit the client's 255\\-character database path is refused\n"
      << "the same way.\n"
      << ".PP\n"
      << "Before the client runs, the shell checks the database it would read and says\n"
      << "when it is missing, unreadable, not an EVPN operational database, or holds\n"
      << "nothing for the view asked for, and what to do about it.\n"
      << ".PP\n"
      << "A show command followed by \\fBjson\\fR (or \\fB| json\\fR) prints the records it\n"
      << "lists as JSON Lines, one record a line, written by \\fBevpn_sysdb dump\\fR with the\n"
      << "same options.\n"
      << ".SH OPTIONS\n"
      << ".TP\n.BI \\-c \" command\"\n"
      << "Run the command and exit with its status; several run in order.\n"
      << ".TP\n.B \\-n\n"
      << "Print the client's command line for each command instead of running it.\n"
      << ".SH COMMANDS\n";
    for (const Command &c : commands()) {
        m << ".TP\n.B " << roff(command_synopsis(c.path, c.required)) << "\n" << roff(c.help);
        if (c.number >= 0) m << " (show command " << c.number << ")";
        m << ".\n";
        std::vector<std::string> filters = words_of(c.filters), required = words_of(c.required);
        std::string list;
        for (const std::string &id : filters) {
            const Filter *f = find_filter(id);
            if (!f) continue;
            bool needed = false;
            for (const std::string &r : required) needed |= r == id;
            if (!list.empty()) list += ", ";
            list += needed ? filter_form(*f) + " (required)" : filter_form(*f);
        }
        if (!list.empty()) m << "Filters: " << list << ".\n";
    }
    m << ".TP\n.BI \"show evpn \" ... \" json\"\n" << roff(kJsonHelp) << ".\n";
    m << ".SH FILTERS\n"
      << "Each filter, the client option it fills and how its value is passed.\n";
    for (const Filter &f : filters()) {
        m << ".TP\n" << filter_form(f) << "\n" << roff(f.help) << "; " << options_text(f);
        if (f.kind != ValueKind::None) m << " (" << value_conversion_text(f.kind) << ")";
        m << ".\n";
    }
    m << ".SH OUTPUT FILTERS\n"
      << "A command may be followed by stages, each after a \\fB|\\fR; a regular\n"
      << "expression (RE2 syntax, at most 256 bytes; matched in time linear in the line)\n"
      << "runs to the next \\fB|\\fR that has a blank on each side.\n"
      << "The stages take the output line by line as the client prints it.\n";
    for (const PipeStage &p : pipe_stages()) {
        m << ".TP\n.B | " << roff(p.word);
        if (p.takes_regex) m << " \\fIregex\\fR";
        m << "\n" << roff(p.help) << ".\n";
    }
    m << ".SH ENVIRONMENT\n"
      << ".TP\n.B EVPN_SHOW_CLIENT\n"
      << "The client program; by default \\fBevpn_show_client\\fR in the shell's own directory.\n"
      << ".TP\n.B EVPN_SHELL_PAGER\n"
      << "The pager for long output on a terminal, a shell command; set and empty: none.\n"
      << ".TP\n.B PAGER\n"
      << "The pager when \\fBEVPN_SHELL_PAGER\\fR is not set (set and empty: none). By\n"
      << "default \\fBless \\-F \\-X \\-K\\fR. The pager runs with \\fBLESSSECURE=1\\fR, which\n"
      << "turns off less's shell escapes, editor and log files.\n"
      << ".TP\n.B EVPN_SYSDB\n"
      << "The database the client reads (and the shell checks first).\n"
      << ".TP\n.B EVPN_SYSDB_TOOL\n"
      << "The program that writes the JSON view; by default \\fBevpn_sysdb\\fR beside the shell.\n"
      << ".SH EXIT STATUS\n"
      << "The status of the last command that failed, else 0: a command's status is the\n"
      << "client's, 1 when the command was not understood or the database cannot be used,\n"
      << "130 when it was interrupted (which also ends a script). A failed write of the\n"
      << "output ends the shell with status 1.\n"
      << ".SH EXAMPLES\n"
      << ".nf\n"
      << "evpn_shell \\-c \"show evpn evi 100 detail\"        # evpn_show_client \\-d \\-M 64 5\n"
      << "evpn_shell \\-c \"show evpn evi mac 0011.2233.4401\" # \\-O 11 \\-P 2233 \\-Q 4401 0\n"
      << "echo \"show evpn summary | include Label\" | evpn_shell\n"
      << "evpn_shell \\-c \"show evpn evi detail | section ^100\"\n"
      << "evpn_shell \\-c \"show evpn evi mac json\" | jq \\-r .name\n"
      << ".fi\n"
      << ".SH SEE ALSO\n"
      << ".BR evpn_show_client ,\n"
      << ".BR evpn_sysdb\n";
    return m.str();
}

}  // namespace evpn_shell
