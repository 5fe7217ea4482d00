// Lines with a literal format are formatted by the compiler's reading of it;
// each must print exactly what the C library prints, whether the line is
// made in standard output's buffer or, short of room, through show_printf.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "evpn_show_format.h"
#include "stdout_capture.h"

namespace {

enum Colour { kRed = 0, kBlue = 7 };

// What show_sprint made in an array of one size, and whether the bytes
// after the array stayed as they were.
struct Made {
    size_t size;
    int result;
    std::string text;
    bool guard_kept;
};

// show_sprint into an array of N bytes followed by watched bytes.
template <size_t N, class Make>
Made made_in(Make make) {
    struct {
        char buf[N];
        char guard[64];
    } at;
    memset(&at, '#', sizeof at);
    const int n = make(at.buf);
    return {N, n, at.buf, std::string(at.guard, sizeof at.guard) == std::string(64, '#')};
}

struct Case {
    const char *what;
    void (*ours)();
    int (*libc)(char *buf, size_t size);
    std::vector<Made> (*into_arrays)();
};

// snprintf with a text of known length passed as its C string.
template <class... A>
int libc_snprintf(char *buf, size_t size, const char *format, A... a) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    return snprintf(buf, size, format, show_format::vararg(a)...);
#pragma GCC diagnostic pop
}

#define SPRINT_IN(N, format, ...) \
    made_in<N>([](char(&b)[N]) { return show_sprint<format>(b __VA_OPT__(, ) __VA_ARGS__); })
#define CASE(format, ...)                                                                          \
    Case {                                                                                         \
        format " <- " #__VA_ARGS__, [] { show_print<format>(__VA_ARGS__); },                       \
            [](char *buf, size_t size) { return libc_snprintf(buf, size, format, __VA_ARGS__); },  \
            [] {                                                                                   \
                return std::vector<Made>{SPRINT_IN(8, format, __VA_ARGS__), SPRINT_IN(100, format, __VA_ARGS__), \
                                         SPRINT_IN(200, format, __VA_ARGS__), SPRINT_IN(700, format, __VA_ARGS__)}; \
            }                                                                                      \
    }

// A null text the compiler cannot see is null (it would warn of the calls).
[[gnu::noinline]] const char *null_text() {
    static const char *volatile none = nullptr;
    return none;
}
const std::string kLong(300, 'L');
ShowText long_text() { return {kLong.c_str(), kLong.size()}; }

// Every conversion the reports' formats use, with the values at their edges:
// empty and over-long texts, widths under and over the text and over the
// 64-byte block the fields are padded with, zero and extreme integers of
// each length, negative numbers in every alignment.
const Case kCases[] = {
    CASE("%s|%s|%s", "", "a", "Remote Ethernet Segment"),
    CASE("[%-15.15s][%-15.15s][%-15.15s]", "", "exactly15chars!", "longer than fifteen characters"),
    CASE("[%16.16s][%17.17s][%10.10s]", "x", "seventeen chars!!", "0123456789abcdef"),
    CASE("[%-18s][%8s][%4s][%-2s]", "ES Import RT", "MPLS", "toolong", "abc"),
    CASE("[%54s][%-59.59s][%70s][%-80s]", "r", "left", "wide", "wider than the block"),
    CASE("[%.3s][%-8.2s][%.0s]", "abcdef", "xyz", "gone"),
    CASE("[%s][%.3s][%-10.7s][%8s]", null_text(), null_text(), null_text(), null_text()),
    CASE("%s", kLong.c_str()),
    CASE("[%-40.40s]%s", kLong.c_str(), kLong.c_str()),
    CASE("%u|%u|%u|%8u|%-10u|%10u|%6u|%-5u", 0u, 7u, UINT_MAX, 42u, 100u, 4294967295u, 1234567u, 99999u),
    CASE("%d|%d|%d|%d|%-4d|%4d|%04d|%-6i", 0, -1, INT_MIN, INT_MAX, -7, -7, -7, 12),
    CASE("%x|%X|%08x|%04x|%02x|%0x|%-10x|%-8x|%10x", 0u, 0xabcdefu, 0xbeefu, 0x12345u, 0xau, 0u, 0xffu,
         UINT_MAX, 1u),
    CASE("%lu|%-20lu|%20lu|%zu|%lx|%ld|%lld|%llu", 0ul, ULONG_MAX, 5ul, SIZE_MAX, 0x1234abcdul, LONG_MIN,
         LLONG_MIN, ULLONG_MAX),
    CASE("%hhu|%hhd|%hu|%hd|%hx", 300, 200, 70000, 40000, 65536 + 15),
    CASE("%d|%u|%x", -5, -5, -5),
    CASE("%u|%d|%-3u|", static_cast<uint8_t>(255), static_cast<int8_t>(-3), kBlue),
    CASE("[%c][%3c][%-3c][%c]", 'a', 'b', 'c', 0x141),
    CASE("[%-80u][%70d][%066x]", 1u, -1, 0xfu),
    CASE("  %-18.18s: %s\n", "ES to BGP Gates", "gate"),
    // Texts of known length: the same fields without measuring them.
    CASE("%s|%s|%s", show_text(""), show_text("a"), show_text("Remote Ethernet Segment")),
    CASE("[%-15.15s][%16.16s][%.3s][%8s][%.0s]", show_text("exactly15chars!"), show_text("x"),
         show_text("abcdef"), show_text("MPLS"), show_text("gone")),
    CASE("[%-40.40s]%s|%s", long_text(), long_text(), "plain"),
    CASE("%-10u %-6s %-27.27s %-10u   %-8s\n", 100u, "MPLS", "0011.2233.4455.6677.8899", 24000u, "Up"),
};

// Standard output fully buffered in buffer, its first size bytes, with
// the stream's pointers set as a flush leaves them (before one, the C library
// shows no room); then leaves room bytes of it free.
void buffer_stdout(char *buffer, size_t size, size_t room) {
    setvbuf(stdout, buffer, _IOFBF, size);
    fputc('>', stdout);
    fflush(stdout);
    const std::string filler(size - room, '.');
    fwrite(filler.data(), 1, filler.size(), stdout);
#ifdef __GLIBC__
    ASSERT_EQ(stdout->_IO_write_end - stdout->_IO_write_ptr, static_cast<ptrdiff_t>(room));
#endif
}

}  // namespace

// In a buffer with room for any line, each line is made in place.
TEST(ShowPrint, EveryConversionTheReportsUseMatchesTheCLibrary) {
    static char buffer[1 << 16];
    for (const Case &c : kCases) {
        char want[4096];
        const int n = c.libc(want, sizeof want);
        ASSERT_LT(n, static_cast<int>(sizeof want)) << c.what;
        const std::string got = stdout_of([&] {
            buffer_stdout(buffer, sizeof buffer, sizeof buffer);
            c.ours();
            fflush(stdout);
            setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
        });
        EXPECT_EQ(got, ">" + std::string(want, static_cast<size_t>(n))) << c.what;
    }
}

// At every room left in the buffer around a line's length, a line is made
// whole, in order, and nothing is written past the buffer's end (the
// bytes after it are watched).
TEST(ShowPrint, LinesAtEveryRoomLeftInTheBufferComeOutWholeWithoutWritingPastIt) {
    constexpr size_t kSize = 1024, kGuard = 256;
    static char buffer[kSize + kGuard];
    for (const Case &c : kCases) {
        char want[4096];
        const int n = c.libc(want, sizeof want);
        for (size_t room = 0; room <= 700; room += room < 200 ? 1 : 37) {
            memset(buffer + kSize, '#', kGuard);
            const std::string got = stdout_of([&] {
                buffer_stdout(buffer, kSize, room);
                c.ours();
                fputs("|end", stdout);
                fflush(stdout);
                setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
            });
            ASSERT_EQ(got, ">" + std::string(kSize - room, '.') + std::string(want, static_cast<size_t>(n)) + "|end")
                << c.what << " room " << room;
            ASSERT_EQ(std::string(buffer + kSize, kGuard), std::string(kGuard, '#'))
                << c.what << " room " << room;
        }
    }
}

// Made into arrays too small, about right and large for each line, a text
// and result are snprintf's and nothing is written past the array.
TEST(ShowPrint, TextsMadeIntoArraysAreSnprintfsAndStayInThem) {
    for (const Case &c : kCases)
        for (const Made &m : c.into_arrays()) {
            std::vector<char> want(m.size);
            const int n = c.libc(want.data(), want.size());
            EXPECT_EQ(m.result, n) << c.what << " in " << m.size;
            EXPECT_EQ(m.text, std::string(want.data())) << c.what << " in " << m.size;
            EXPECT_TRUE(m.guard_kept) << c.what << " in " << m.size;
        }
}
