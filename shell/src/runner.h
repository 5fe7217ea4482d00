// Runs the show client (or the JSON view) for a parsed command and passes its
// output on as it comes: line by line through the output stages, then to
// standard output or, past a screenful on a terminal, to the pager. Nothing
// holds more than a line, a write buffer and the lines of one screen.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "parser.h"

namespace evpn_shell {

// The client program: $EVPN_SHOW_CLIENT, else evpn_show_client beside this
// program.
std::string client_path();
// The database tool that writes the JSON view: $EVPN_SYSDB_TOOL, else
// evpn_sysdb beside this program (an installed tree) or in the build tree's
// tools/ folder.
std::string sysdb_tool_path();

// The pager's command: $EVPN_SHELL_PAGER, else $PAGER, else less; empty when
// the chosen variable is set but empty (no pager). The default "less" is kept
// only when it is on PATH.
std::string pager_command();

// Takes output text; false once no more is wanted.
class LineSink {
public:
    virtual ~LineSink() = default;
    virtual bool put(std::string_view text) = 0;
};

// The output stages, one line at a time: each line goes through the stages in
// order and what passes them all goes to the sink.
class StageChain : public LineSink {
public:
    StageChain(const std::vector<Pipe> &pipes, LineSink &sink)
        : pipes_(pipes), sink_(sink), state_(pipes.size()) {}
    // One line with its newline (the last line of the output may lack it).
    bool line(std::string_view text) { return push(0, text); }
    bool put(std::string_view text) override { return line(text); }
    // The end of the output: each count stage passes its count on.
    bool finish();

private:
    struct State {
        bool on = false;         // begin: past the first match; section: inside one
        size_t indent = 0;       // section: the indentation of the line that opened it
        size_t blank_lines = 0;  // section: blank lines held until the section goes on
        uint64_t count = 0;
    };
    bool push(size_t stage, std::string_view line);
    bool matches(size_t stage, std::string_view line) const;

    const std::vector<Pipe> &pipes_;
    LineSink &sink_;
    std::vector<State> state_;
};

// Where the output ends up and when it is paged.
struct OutputTarget {
    // Output with more lines than this goes through the pager; 0: never.
    size_t page_after = 0;
    std::string pager;  // the pager's shell command; empty: none
};

// How a run ended.
struct RunResult {
    enum End {
        Done,         // the program's output was all shown (or filtered)
        Interrupted,  // SIGINT: the program stopped, the rest dropped
        ReaderGone,   // standard output's reader went away (EPIPE)
        WriteFailed,  // writing standard output failed otherwise (write_errno)
        NotStarted,   // the program could not be started
    } end = Done;
    int status = 0;  // the program's exit status, or 128 + the signal that ended it
    int write_errno = 0;
};

// Runs program with args (its standard output into a pipe, standard error
// passed through) and streams what it prints through the stages to target.
// SIGINT, while it runs, stops the program and drops what was not shown.
RunResult run_streamed(const std::string &program, const std::vector<std::string> &args,
                       const std::vector<Pipe> &pipes, const OutputTarget &target);

// The stages over a whole text, for tests: what they would let through.
std::string apply_pipes(std::string_view output, const std::vector<Pipe> &pipes);

// The command line a user would type to run the client: program and
// arguments, blank-separated.
std::string command_line(const std::string &program, const std::vector<std::string> &args);

}  // namespace evpn_shell
