#include "display.h"

#include <cstdint>
#include <cstdio>

namespace evpn_shell {

namespace {

// The length of the UTF-8 sequence at text[i] and its code point; 0 when the
// bytes there are not one (a stray, overlong, surrogate or cut sequence).
size_t utf8_sequence(std::string_view text, size_t i, uint32_t &cp) {
    const auto b = static_cast<unsigned char>(text[i]);
    size_t len;
    uint32_t min;
    if (b < 0x80) {
        cp = b;
        return 1;
    } else if (b >= 0xc2 && b <= 0xdf) {
        len = 2, min = 0x80, cp = b & 0x1f;
    } else if (b >= 0xe0 && b <= 0xef) {
        len = 3, min = 0x800, cp = b & 0x0f;
    } else if (b >= 0xf0 && b <= 0xf4) {
        len = 4, min = 0x10000, cp = b & 0x07;
    } else {
        return 0;
    }
    if (i + len > text.size()) return 0;
    for (size_t k = 1; k < len; k++) {
        const auto c = static_cast<unsigned char>(text[i + k]);
        if ((c & 0xc0) != 0x80) return 0;
        cp = cp << 6 | (c & 0x3f);
    }
    if (cp < min || cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff)) return 0;
    return len;
}

}  // namespace

std::string terminal_text(std::string_view text, std::vector<size_t> *columns) {
    std::string out;
    out.reserve(text.size());
    size_t column = 0;
    if (columns) columns->clear();
    for (size_t i = 0; i < text.size();) {
        uint32_t cp = 0;
        size_t len = utf8_sequence(text, i, cp);
        std::string shown;
        if (len == 0) {
            char hex[8];
            snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(text[i]));
            shown = hex;
            len = 1;
        } else if (cp == '\t') {
            shown = " ";
        } else if (cp < 0x20) {
            shown = {'^', static_cast<char>(cp + 0x40)};
        } else if (cp == 0x7f) {
            shown = "^?";
        } else if (cp >= 0x80 && cp <= 0x9f) {
            char u[8];
            snprintf(u, sizeof u, "\\u%04x", static_cast<unsigned>(cp));
            shown = u;
        } else {
            shown.assign(text.substr(i, len));
        }
        const size_t width = len > 1 && shown.size() == len ? 1 : shown.size();
        for (size_t k = 0; k < len; k++)
            if (columns) columns->push_back(column);
        column += width;
        out += shown;
        i += len;
    }
    if (columns) columns->push_back(column);
    return out;
}

}  // namespace evpn_shell
