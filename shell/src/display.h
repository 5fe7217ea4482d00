// Typed text shown back to the operator: nothing in it may act on the
// terminal.
#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace evpn_shell {

// The text with every byte that could act on a terminal made visible: C0
// controls as ^X (ESC ^[, CR ^M), DEL as ^?, C1 controls as \u0080..\u009f,
// bytes that are not UTF-8 as \xNN; a tab becomes one blank. With columns,
// also the column each byte of text starts at (one entry per byte, and one
// for the end), so that a marker can stand under it.
std::string terminal_text(std::string_view text, std::vector<size_t> *columns = nullptr);

}  // namespace evpn_shell
