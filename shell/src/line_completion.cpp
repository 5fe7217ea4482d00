#include "line_completion.h"

#include "parser.h"

namespace evpn_shell {

bool write_line_completions(std::string_view line, FILE *out) {
    const size_t cut = line.find_last_of(" \t");
    const size_t start = cut == std::string_view::npos ? 0 : cut + 1;
    const std::string_view before = line.substr(0, start);
    for (const std::string &w : completions(before, line.substr(start)))
        fprintf(out, "%.*s%s\n", static_cast<int>(before.size()), before.data(), w.c_str());
    return fflush(out) == 0 && !ferror(out);
}

}  // namespace evpn_shell
