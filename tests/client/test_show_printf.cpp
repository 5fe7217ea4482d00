// The client's own printf must print exactly what the C library prints for
// every format it takes, and hand every other format to the C library.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "evpn_show_print.h"
#include "stdout_capture.h"

namespace {

using VFormat = int (*)(char *, size_t, const char *, va_list);

// The text one formatter makes of a format and its arguments.
std::string with(VFormat f, const char *format, ...) __attribute__((format(printf, 2, 3)));
std::string with(VFormat f, const char *format, ...) {
    char buf[8192];
    va_list ap;
    va_start(ap, format);
    f(buf, sizeof buf, format, ap);
    va_end(ap);
    return buf;
}
#define libc(...) with(vsnprintf, __VA_ARGS__)
#define ours(...) with(show_vsnprintf, __VA_ARGS__)

// A random conversion: flags, width, precision and length, then the letter.
std::string random_conversion(std::mt19937 &rng, const char *length, char conv) {
    std::string f = "%";
    for (char flag : {'-', '+', ' ', '#', '0'})
        if (rng() % 4 == 0) f += flag;
    if (rng() % 2) f += std::to_string(rng() % 25);
    if (rng() % 2) f += "." + (rng() % 5 ? std::to_string(rng() % 12) : std::string());
    return f + length + conv;
}

}  // namespace

TEST(ShowPrintf, IntegersMatchTheCLibrary) {
    std::mt19937 rng(11);
    const long long values[] = {0, 1, -1, 7, 42, -42, 255, 4096, INT_MAX, INT_MIN, UINT_MAX,
                                LLONG_MAX, LLONG_MIN, 0x7fff, -0x8000, 0xdeadbeef};
    for (int n = 0; n < 60000; n++) {
        const long long v = n % 3 ? values[rng() % std::size(values)]
                                  : static_cast<long long>(rng()) * (rng() % 2 ? 1 : -1);
        const char conv = "diuxXo"[rng() % 6];
        const char *length = (const char *[]){"", "", "hh", "h", "l", "ll", "z"}[rng() % 7];
        const std::string conv_text = random_conversion(rng, length, conv);
        const char *f = conv_text.c_str();
        std::string want, got;
        if (!strcmp(length, "l") || !strcmp(length, "ll") || !strcmp(length, "z")) {
            want = libc(f, v);
            got = ours(f, v);
        } else {
            want = libc(f, static_cast<int>(v));
            got = ours(f, static_cast<int>(v));
        }
        ASSERT_EQ(got, want) << "format " << conv_text << " value " << v;
    }
}

// Decimal fields are put as whole blocks when the output has room to spare:
// at every buffer size around the field's end, and at widths beside the
// block size, the text and the length are the C library's, and nothing is
// written past the buffer (within it, past the text's NUL, is scratch).
TEST(ShowPrintf, DecimalFieldsAtTheBufferEndAndBesideTheBlockSizeMatchTheCLibrary) {
    const unsigned long long values[] = {0, 7, 4294967295ull, 18446744073709551615ull};
    for (const char *flags : {"", "-"})
        for (int width : {0, 1, 10, 20, 63, 64, 65, 90})
            for (unsigned long long v : values) {
                const std::string f = "ab%" + std::string(flags) + std::to_string(width) + "llu|%-3d|";
                for (size_t size = 1; size < 200; size++) {
                    char want[200], got[200];
                    memset(want, '#', sizeof want);
                    memset(got, '#', sizeof got);
                    const int nw = snprintf(want, size, f.c_str(), v, 5);
                    const int ng = show_snprintf(got, size, f.c_str(), v, 5);
                    ASSERT_EQ(ng, nw) << f << " " << v << " size " << size;
                    ASSERT_STREQ(got, want) << f << " " << v << " size " << size;
                    ASSERT_EQ(std::string(got + size, sizeof got - size), std::string(sizeof got - size, '#'))
                        << f << " " << v << " size " << size;
                }
            }
}

TEST(ShowPrintf, TextCharactersAndStarsMatchTheCLibrary) {
    std::mt19937 rng(12);
    const char *texts[] = {"", "a", "MPLS", "eth2.43", "No remote pathlist", "Remote Ethernet Segment",
                           "2001:db8:0:64::17b1", nullptr};
    for (int n = 0; n < 20000; n++) {
        std::string conv_text = random_conversion(rng, "", rng() % 4 ? 's' : 'c');
        // The zero flag is undefined for text; the client never uses it.
        conv_text.erase(std::remove(conv_text.begin(), conv_text.end(), '0'), conv_text.end());
        const char *t = texts[rng() % std::size(texts)];
        const std::string f = "<" + conv_text + "|" + "%-*.*s>";
        const int w = static_cast<int>(rng() % 30) - 10, p = static_cast<int>(rng() % 20) - 4;
        if (conv_text.back() == 'c') {
            ASSERT_EQ(ours(f.c_str(), 'q', w, p, "star"), libc(f.c_str(), 'q', w, p, "star")) << f;
        } else {
            ASSERT_EQ(ours(f.c_str(), t, w, p, "star"), libc(f.c_str(), t, w, p, "star")) << f;
        }
    }
}

TEST(ShowPrintf, OtherFormatsAndOverflowGoToTheCLibrary) {
    EXPECT_EQ(ours("%5.2f|%p|%%|%ls", 3.14159, static_cast<void *>(nullptr), L"w"),
              libc("%5.2f|%p|%%|%ls", 3.14159, static_cast<void *>(nullptr), L"w"));
    char small[8];
    EXPECT_EQ(show_snprintf(small, sizeof small, "%-10u|", 5u), 11);
    EXPECT_STREQ(small, "5      ");
    EXPECT_EQ(show_snprintf(small, 0, "%d", 12345), 5);
    const std::string long_text(3000, 'x');
    EXPECT_EQ(stdout_of([&] { show_printf("[%s]%d\n", long_text.c_str(), 7); }),
              "[" + long_text + "]7\n");
}

// Formats in the program's read-only data are taken apart once and kept
// under their address; a format in writable memory may change under the same
// address and must be read anew on every call.
TEST(ShowPrintf, AFormatInWritableMemoryIsReadAnewEachCall) {
    char format[32];
    strcpy(format, "<%-6s|%3u>");
    EXPECT_EQ(ours(format, "ab", 7u), "<ab    |  7>");
    strcpy(format, "[%4s:%-3x]");
    EXPECT_EQ(ours(format, "ab", 10u), "[  ab:a  ]");
    for (int round = 0; round < 2; round++)  // the second round from the kept pieces
        EXPECT_EQ(ours("%-10u %-10s %-14.14s|%c|", 100u, "MPLS", "0011.2233.4455.6677", 'x'),
                  "100        MPLS       0011.2233.4455|x|");
    char with_nul[8];
    EXPECT_EQ(show_snprintf(with_nul, sizeof with_nul, "a%3cb", '\0'), 5);
    EXPECT_EQ(std::string(with_nul, 5), std::string("a  \0b", 5));
}

// More read-only formats than the cache holds, used in turn several times:
// formats that evict one another and come back are each printed by their own
// pieces, never by another format's.
TEST(ShowPrintf, FormatsPastTheCacheSizeEvictOneAnotherAndStayTheirOwn) {
    static constexpr int kFormats = 300;
    static constexpr auto kTable = [] {
        std::array<std::array<char, 12>, kFormats> t{};
        for (int i = 0; i < kFormats; i++) {
            const int width = i % 40, kind = i / 40;  // every (width, conversion) once
            char *f = t[static_cast<size_t>(i)].data();
            int n = 0;
            f[n++] = '<';
            f[n++] = '%';
            if (width >= 10) f[n++] = static_cast<char>('0' + width / 10);
            f[n++] = static_cast<char>('0' + width % 10);
            f[n++] = "dxXuoi c"[kind];
            f[n++] = '>';
        }
        return t;
    }();
    for (int round = 0; round < 3; round++)
        for (int i = 0; i < kFormats; i++) {
            const char *f = kTable[static_cast<size_t>(i)].data();
            if (f[std::strlen(f) - 2] == ' ') continue;
            ASSERT_EQ(ours(f, i + 65), libc(f, i + 65)) << "format " << f << " round " << round;
        }
}

// Lines are made in the stream's own buffer while a whole line fits there,
// and through a copy when it does not: across many buffer fills, printf and
// show_printf interleaved must come out in order and whole.
TEST(ShowPrintf, LinesAcrossBufferFillsComeOutWholeAndInOrder) {
    static char buffer[4096];
    std::string want;
    const std::string got = stdout_of([&] {
        setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
        for (int i = 0; i < 3000; i++) {
            char line[64];
            snprintf(line, sizeof line, "%-6d %-12s|\n", i, i % 3 ? "route" : "");
            want += line;
            if (i % 7 == 0) {
                printf("%-6d %-12s|\n", i, i % 3 ? "route" : "");
            } else {
                show_printf("%-6d %-12s|\n", i, i % 3 ? "route" : "");
            }
        }
        fflush(stdout);
        setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    });
    EXPECT_EQ(got, want);
}
