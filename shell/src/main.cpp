// evpn_shell: the command shell of the show client. Interactive on a
// terminal, one command per line from standard input otherwise, or one
// command with -c.
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "dbcheck.h"
#include "display.h"
#include "line_completion.h"
#include "parser.h"
#include "runner.h"

#ifdef EVPN_SHELL_READLINE
#include <readline/history.h>
#include <readline/readline.h>
#endif

namespace {

using namespace evpn_shell;

const char kPrompt[] = "evpn# ";

struct Session {
    bool interactive = false;  // lines come from a terminal, shown after the prompt
    bool dry_run = false;      // print the client's command line instead of running it
    std::string client;
    std::optional<size_t> page_lines;  // "terminal length"; unset: the terminal's height
};

// Continue with the next command; Exit on "exit"; Stop when the output is
// gone or the operator interrupted a script.
enum class Outcome { Continue, Exit, Stop };

void report_error(const Session &s, const std::string &line, const ParseError &e) {
    // On a terminal the line stands after the prompt; otherwise it is shown
    // first. Either way control bytes show escaped, and the marker counts them
    // as they show.
    std::vector<size_t> columns;
    const std::string shown = terminal_text(line, &columns);
    size_t indent = e.column < columns.size() ? columns[e.column] : columns.back() + (e.column - line.size());
    if (s.interactive) indent += strlen(kPrompt);
    else fprintf(stderr, "%s\n", shown.c_str());
    fprintf(stderr, "%*s^\n%% %s\n", static_cast<int>(indent), "", terminal_text(e.message).c_str());
    if (e.kind == ParseError::BadValue || e.expected.empty()) return;
    std::string words;
    for (const Choice &c : e.expected) words += " " + c.word;
    fprintf(stderr, "%% Expected one of:%s\n", words.c_str());
}

// Rows of the terminal on standard output, or 0.
size_t terminal_rows() {
    struct winsize ws {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &ws) == 0 ? ws.ws_row : 0;
}

bool g_output_failed = false;  // said once; the shell then ends

// After a failed write: a message unless the reader went away.
void report_write_error(int error) {
    g_output_failed = true;
    if (error != EPIPE) fprintf(stderr, "%% cannot write the output: %s\n", strerror(error));
}

Outcome execute(Session &s, std::string line, int &status) {
    if (!line.empty() && line.back() == '\r') line.pop_back();  // a line of a file with CRLF endings
    ParsedLine parsed = parse_line(line);
    if (parsed.error) {
        report_error(s, line, *parsed.error);
        status = 1;
        return Outcome::Continue;
    }
    if (!parsed.invocation) return Outcome::Continue;  // an empty line
    const Invocation &inv = *parsed.invocation;
    if (inv.command->number == kActionExit) return Outcome::Exit;
    status = 0;
    if (inv.command->number == kActionTerminalLength) {
        s.page_lines = std::stoul(*inv.setting('L'));
        return Outcome::Continue;
    }

    const std::string db = database_path();
    std::string program = s.client;
    std::vector<std::string> args = inv.client_args();
    if (parsed.json) {
        // The JSON view: the database tool runs the same show command.
        program = sysdb_tool_path();
        args.insert(args.begin(), {"dump", "--db", db});
    }
    if (s.dry_run) {
        printf("%s\n", command_line(program, args).c_str());
        if (fflush(stdout) != 0) {
            report_write_error(errno);
            status = errno == EPIPE ? 0 : 1;
            return Outcome::Stop;
        }
        return Outcome::Continue;
    }

    const DatabaseCheck check = check_database(db, database_origin(), view_of(inv));
    if (check.verdict != DatabaseCheck::Usable) fprintf(stderr, "%% %s\n", terminal_text(check.message).c_str());
    if (check.verdict == DatabaseCheck::Unusable) {
        status = 1;  // what the client would end with, silently
        return Outcome::Continue;
    }

    OutputTarget target;
    if (s.interactive && isatty(STDOUT_FILENO)) {
        const size_t rows = terminal_rows();
        target.page_after = s.page_lines ? *s.page_lines : rows > 1 ? rows - 1 : 0;
        target.pager = pager_command();
    }
    const RunResult r = run_streamed(program, args, parsed.pipes, target);
    status = r.status;
    switch (r.end) {
    case RunResult::Done:
    case RunResult::NotStarted: return Outcome::Continue;
    case RunResult::Interrupted:
        fprintf(stderr, "%% interrupted\n");
        status = 128 + SIGINT;
        return s.interactive ? Outcome::Continue : Outcome::Stop;
    case RunResult::ReaderGone: status = 0; return Outcome::Stop;
    case RunResult::WriteFailed:
        report_write_error(r.write_errno);
        status = 1;
        return Outcome::Stop;
    }
    return Outcome::Continue;
}

// Commands from a stream, one per line; blank lines and "#" comments skipped.
// Commands in order; the status is that of the last one that failed, or 0.
template <typename NextLine>
int run_commands(Session &s, NextLine next) {
    int worst = 0;
    for (std::string line; next(line);) {
        size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') continue;
        int status = 0;
        const Outcome o = execute(s, line, status);
        if (status != 0) worst = status;
        if (o != Outcome::Continue) break;
    }
    return worst;
}

// Commands from a stream, one per line; blank lines and "#" comments skipped.
int run_stream(Session &s, std::istream &in) {
    return run_commands(s, [&](std::string &line) { return static_cast<bool>(std::getline(in, line)); });
}

#ifdef EVPN_SHELL_READLINE

std::vector<std::string> completion_list;

char *completion_generator(const char *, int state) {
    static size_t next;
    if (state == 0) next = 0;
    return next < completion_list.size() ? strdup(completion_list[next++].c_str()) : nullptr;
}

char **complete(const char *text, int start, int) {
    rl_attempted_completion_over = 1;  // never file names
    completion_list = completions(std::string_view(rl_line_buffer, static_cast<size_t>(start)), text);
    return rl_completion_matches(text, completion_generator);
}

// "?": the words that may follow, with their help; after a partial word, the
// words it may start. Inside a regular expression it is an ordinary character.
int show_help(int, int) {
    const std::string before(rl_line_buffer, static_cast<size_t>(rl_point));
    const size_t word_start = before.find_last_of(" \t|") == std::string::npos ? 0 : before.find_last_of(" \t|") + 1;
    const std::string partial = before.substr(word_start);
    std::vector<Choice> choices = next_choices(std::string_view(before).substr(0, word_start));
    const bool in_regex = !choices.empty() && choices[0].word == "LINE" && !partial.empty();
    if (in_regex || (before.find('|') != std::string::npos && !partial.empty() && choices.empty())) {
        rl_insert_text("?");
        return 0;
    }
    std::vector<Choice> shown;
    for (const Choice &c : choices)
        if (partial.empty() || c.word.compare(0, partial.size(), partial) == 0) shown.push_back(c);
    size_t width = 0;
    for (const Choice &c : shown) width = std::max(width, c.word.size());
    printf("?\n");
    if (shown.empty()) printf("%% Unrecognized command\n");
    for (const Choice &c : shown) {
        if (c.help.empty()) printf("  %s\n", c.word.c_str());
        else printf("  %-*s  %s\n", static_cast<int>(width), c.word.c_str(), c.help.c_str());
    }
    fflush(stdout);
    rl_on_new_line();
    rl_redisplay();
    return 0;
}

void on_interrupt(int) {
    // Ctrl-C at the prompt drops the line being typed.
    write(STDOUT_FILENO, "\n", 1);
    rl_on_new_line();
    rl_replace_line("", 0);
    rl_redisplay();
}

std::string history_file() {
    const char *home = getenv("HOME");
    return home && *home ? std::string(home) + "/.evpn_shell_history" : std::string();
}

int run_interactive(Session &s) {
    rl_readline_name = "evpn_shell";
    rl_attempted_completion_function = complete;
    rl_completer_word_break_characters = const_cast<char *>(" \t|");
    rl_bind_key('?', show_help);
    signal(SIGINT, on_interrupt);
    const std::string history = history_file();
    if (!history.empty()) read_history(history.c_str());
    int last = 0;
    for (;;) {
        char *raw = readline(kPrompt);
        if (!raw) {
            putchar('\n');  // end of input leaves the cursor after the prompt
            break;
        }
        std::string line(raw);
        free(raw);
        if (line.find_first_not_of(" \t") != std::string::npos) add_history(line.c_str());
        if (execute(s, line, last) != Outcome::Continue) break;
    }
    if (!history.empty()) write_history(history.c_str());
    return last;
}

#else

int run_interactive(Session &s) {
    int last = 0;
    for (std::string line;;) {
        fputs(kPrompt, stdout);
        fflush(stdout);
        if (!std::getline(std::cin, line) || execute(s, line, last) != Outcome::Continue) break;
    }
    return last;
}

#endif

void usage(const char *program) {
    fprintf(stderr, "usage: %s [-n] [-c COMMAND]...\n", program);
}

// The shell's own writes (help, -n lines) are checked once, at the end.
int finish_output(int status) {
    if (g_output_failed) return status;
    if (fflush(stdout) != 0 || ferror(stdout)) {
        if (errno == EPIPE) return status;
        report_write_error(errno);
        return 1;
    }
    return status;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 3 && strcmp(argv[1], "--complete") == 0)  // asked by the bash completion
        return evpn_shell::write_line_completions(argv[2], stdout) ? 0 : 1;
    signal(SIGPIPE, SIG_IGN);  // a pager that quits early must not end the shell
    Session s;
    std::vector<std::string> commands;
    for (int opt; (opt = getopt(argc, argv, "c:nh")) != -1;) {
        switch (opt) {
        case 'c': commands.push_back(optarg); break;
        case 'n': s.dry_run = true; break;
        default: usage(argv[0]); return opt == 'h' ? 0 : 2;
        }
    }
    if (optind != argc) {
        usage(argv[0]);
        return 2;
    }
    s.client = client_path();
    if (!commands.empty()) {
        size_t next = 0;
        return finish_output(run_commands(s, [&](std::string &line) {
            if (next == commands.size()) return false;
            line = commands[next++];
            return true;
        }));
    }
    if (isatty(STDIN_FILENO)) {
        s.interactive = true;
        return finish_output(run_interactive(s));
    }
    return finish_output(run_stream(s, std::cin));
}
