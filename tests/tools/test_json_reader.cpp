// The streaming JSON tokenizer: tokens that do not depend on where the buffer
// refills, escapes and surrogate pairs, numbers at the 64-bit edges, and
// refusals that say where the text went wrong.
#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "json_reader.h"

namespace {

using evpn::JsonReader;
using evpn::JsonSyntaxError;
using evpn::JsonTok;
using evpn::JsonToken;

std::string show(const JsonToken &t) {
    bool has_text = t.kind == JsonTok::Key || t.kind == JsonTok::String || t.kind == JsonTok::Uint ||
                    t.kind == JsonTok::Int || t.kind == JsonTok::Float;
    if (!has_text && !t.text.empty()) return "text left on a token without one";
    switch (t.kind) {
    case JsonTok::ObjectStart: return "{";
    case JsonTok::ObjectEnd: return "}";
    case JsonTok::ArrayStart: return "[";
    case JsonTok::ArrayEnd: return "]";
    case JsonTok::Key: return "k:" + std::string(t.text);
    case JsonTok::String: return "s:" + std::string(t.text);
    case JsonTok::Uint: return "u:" + std::to_string(t.u);
    case JsonTok::Int: return "i:" + std::to_string(t.i);
    case JsonTok::Float: return "f:" + std::string(t.text);
    case JsonTok::True: return "true";
    case JsonTok::False: return "false";
    case JsonTok::Null: return "null";
    case JsonTok::End: return "end";
    }
    return "?";
}

// Every token of text, the last one "error: ..." when the text is refused.
std::vector<std::string> tokens(const std::string &text, size_t buffer = JsonReader::kDefaultBufferSize,
                                unsigned depth = JsonReader::kDefaultMaxDepth) {
    std::istringstream in(text);
    std::vector<std::string> out;
    try {
        JsonReader r(in, buffer, depth);
        for (;;) {
            const JsonToken &t = r.next();
            if (t.kind == JsonTok::End) break;
            out.push_back(show(t));
        }
    } catch (const JsonSyntaxError &e) {
        out.push_back(std::string("error: ") + e.what());
    }
    return out;
}

// The error a text is refused with, "" when it is not.
std::string error(const std::string &text, size_t buffer = JsonReader::kDefaultBufferSize) {
    std::vector<std::string> t = tokens(text, buffer);
    return !t.empty() && t.back().rfind("error: ", 0) == 0 ? t.back().substr(7) : "";
}

// The one value text holds, as show() gives it.
std::string value(const std::string &text) {
    std::vector<std::string> t = tokens(text);
    return t.size() == 1 ? t[0] : "(" + std::to_string(t.size()) + " tokens)";
}

TEST(JsonReader, TokensDoNotDependOnWhereTheBufferRefills) {
    const std::string doc =
        "\xef\xbb\xbf{\"name\": \"bond1\\teth2.100\\u00e9\xe2\x82\xac\\ud83d\\ude00 and then some more text\",\n"
        "  \"list\": [0, -1, 18446744073709551615, -9223372036854775808, 1.5e-3, true, false, null],\n"
        "  \"nested\": {\"a\": [[], {}], \"\": \"\"}, \"tail\": {\"x\": [\"end\"]}\r\n}  \n";
    const std::vector<std::string> expected = {
        "{", "k:name", "s:bond1\teth2.100\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80 and then some more text",
        "k:list", "[", "u:0", "i:-1", "u:18446744073709551615", "i:-9223372036854775808", "f:1.5e-3",
        "true", "false", "null", "]", "k:nested", "{", "k:a", "[", "[", "]", "{", "}", "]", "k:", "s:",
        "}", "k:tail", "{", "k:x", "[", "s:end", "]", "}", "}"};
    EXPECT_EQ(tokens(doc), expected);
    for (size_t size = 1; size <= 40; size++) EXPECT_EQ(tokens(doc, size), expected) << "buffer " << size;

    // Errors are placed the same way too.
    const std::string bad = "{\"a\": [1, 2],\n \"b\": \"x\\u00e9y\", \"c\": 12345 6}";
    const std::string where = error(bad);
    EXPECT_EQ(where, "line 2, column 30: expected ',' or '}' after an object member, found '6'");
    for (size_t size = 1; size <= 40; size++) EXPECT_EQ(error(bad, size), where) << "buffer " << size;
}

// Compact text, as snapshots are written: a member name right after the
// comma is taken at once, wherever the buffer refills.
TEST(JsonReader, CompactMembersReadAlikeThroughEveryRefill) {
    const std::string doc = R"({"a":1,"b":"x","c":{"d":[1,"2"],"e":"\u00e9"},"":"","f":true,"g" :null})";
    const std::vector<std::string> expected = {
        "{", "k:a", "u:1", "k:b", "s:x", "k:c", "{", "k:d", "[", "u:1", "s:2", "]", "k:e", "s:\xc3\xa9",
        "}", "k:", "s:", "k:f", "true", "k:g", "null", "}"};
    EXPECT_EQ(tokens(doc), expected);
    for (size_t size = 1; size <= 40; size++) EXPECT_EQ(tokens(doc, size), expected) << "buffer " << size;

    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"({"a":1,"b"2})", "line 1, column 11: expected ':' after a member name, found '2'"},
        {R"({"a":1,"b)", "line 1, column 10: unexpected end of input in a string"},
        {"{\"a\":1,\"b\x01\":2}", "line 1, column 10: control character U+0001 in a string (write it as an escape)"},
        {R"({"a":1,"b":})", "line 1, column 12: unexpected '}'; expected a value"},
        {R"({"a":1,"b":2,})", "line 1, column 14: expected a member name in double quotes, found '}'"},
    };
    for (const auto &[text, says] : cases)
        for (size_t size : {JsonReader::kDefaultBufferSize, size_t(1), size_t(7), size_t(8)})
            EXPECT_EQ(error(text, size), says) << text << " buffer " << size;
}

TEST(JsonReader, StringEscapesAndSurrogatePairs) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"("\"\\\/\b\f\n\r\t")", "\"\\/\b\f\n\r\t"},
        {R"("\u0041\u20AC")", "A\xe2\x82\xac"},
        {R"("\u0000")", std::string(1, '\0')},
        {R"("\uD800\uDC00")", "\xf0\x90\x80\x80"},   // lowest pair
        {R"("\uDBFF\uDFFF")", "\xf4\x8f\xbf\xbf"},   // highest
        {"\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\"", "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"},
        {"\"\x7f\"", "\x7f"},
    };
    for (const auto &[text, bytes] : cases)
        for (size_t size : {size_t(1), size_t(2), size_t(3), size_t(5), JsonReader::kDefaultBufferSize})
            EXPECT_EQ(tokens(text, size), std::vector<std::string>{"s:" + bytes}) << text << " buffer " << size;
}

TEST(JsonReader, RefusedStringsSayWhereAndWhy) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"(["\ud800"])", "line 1, column 3: lone high surrogate"},
        {R"(["\ud800x"])", "line 1, column 3: lone high surrogate"},
        {R"(["\ud800\u0041"])", "line 1, column 3: lone high surrogate"},
        {R"(["\ud800\ud800"])", "line 1, column 3: lone high surrogate"},
        {R"(["ab\udc00"])", "line 1, column 5: lone low surrogate"},
        {R"(["\u12g4"])", "line 1, column 7: expected four hex digits"},
        {R"(["\x"])", "line 1, column 3: invalid escape \\x"},
        {"[\"a\tb\"]", "line 1, column 4: control character U+0009"},
        {"[\n\"a\nb\"]", "line 2, column 3: control character U+000A"},
        {"[\"\xc0\x80\"]", "line 1, column 3: invalid UTF-8"},          // overlong
        {"[\"\xed\xa0\x80\"]", "line 1, column 3: invalid UTF-8"},      // a surrogate
        {"[\"\xf4\x90\x80\x80\"]", "line 1, column 3: invalid UTF-8"},  // above U+10FFFF
        {"[\"\xf5\x80\x80\x80\"]", "line 1, column 3: invalid UTF-8"},
        {"[\"\xe2\x82\"]", "line 1, column 3: invalid UTF-8"},          // cut short
        {"[\"\x80\"]", "line 1, column 3: invalid UTF-8"},
        {R"(["abc)", "line 1, column 6: unexpected end of input in a string"},
        {R"(["abc\)", "line 1, column 7: unexpected end of input in a string"},
    };
    for (const auto &[text, says] : cases)
        for (size_t size : {size_t(1), size_t(4), JsonReader::kDefaultBufferSize})
            EXPECT_EQ(error(text, size).rfind(says, 0), 0u) << text << " buffer " << size << ": " << error(text, size);
}

TEST(JsonReader, NumbersAtThe64BitEdges) {
    // The largest of each kind and the refills inside them are the first test's.
    EXPECT_EQ(value("1234567890123456789"), "u:1234567890123456789");
    EXPECT_EQ(value("18446744073709551616"), "f:18446744073709551616");
    EXPECT_EQ(value("99999999999999999999"), "f:99999999999999999999");
    EXPECT_EQ(value("-9223372036854775809"), "f:-9223372036854775809");
    EXPECT_EQ(value("-0"), "i:0");
    for (const char *f : {"1.5", "0.0", "1e5", "1E+2", "-1e-2", "10.25E3"})
        EXPECT_EQ(value(f), std::string("f:") + f);

    const std::vector<std::pair<std::string, std::string>> refused = {
        {"[01]", "line 1, column 2: invalid number \"01\""},
        {"[-]", "line 1, column 2: invalid number \"-\""},
        {"[1.]", "invalid number \"1.\""},
        {"[1e]", "invalid number \"1e\""},
        {"[1e+]", "invalid number \"1e+\""},
        {"[--1]", "invalid number \"--1\""},
        {"[1.2.3]", "invalid number \"1.2.3\""},
        {"[-01]", "invalid number \"-01\""},
        {"[.5]", "line 1, column 2: unexpected '.'; expected a value"},
        {"[+1]", "line 1, column 2: unexpected '+'; expected a value"},
        {"0x10", "line 1, column 2: text after the end of the document"},
    };
    for (const auto &[text, says] : refused)
        EXPECT_NE(error(text).find(says), std::string::npos) << text << ": " << error(text);
}

TEST(JsonReader, GrammarErrorsGiveLineAndColumn) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "line 1, column 1: unexpected end of input; expected a value"},
        {"  \n  ", "line 2, column 3: unexpected end of input; expected a value"},
        {"{\n  \"a\": 1,\n}", "line 3, column 1: expected a member name in double quotes, found '}'"},
        {"[1,]", "line 1, column 4: unexpected ']'; expected a value"},
        {"[1 2]", "line 1, column 4: expected ',' or ']' after a list element, found '2'"},
        {"{\"a\" 1}", "line 1, column 6: expected ':' after a member name, found '1'"},
        {"{\"a\":1", "line 1, column 7: unexpected end of input; expected ',' or '}'"},
        {"{1:2}", "line 1, column 2: expected a member name in double quotes, found '1'"},
        {"[1}", "line 1, column 3: expected ',' or ']' after a list element, found '}'"},
        {"{} {}", "line 1, column 4: text after the end of the document"},
        {"[nul]", "line 1, column 2: invalid literal; expected null"},
        {"[tru", "line 1, column 2: invalid literal; expected true"},
        {"[true false]", "line 1, column 7: expected ',' or ']' after a list element, found 'f'"},
        {"\x01", "line 1, column 1: unexpected byte 0x01; expected a value"},
        {"\xef\xbb{}", "line 1, column 3: invalid byte order mark"},
    };
    for (const auto &[text, says] : cases) {
        EXPECT_EQ(error(text), says) << text;
        EXPECT_EQ(error(text, 1), says) << text << " buffer 1";
    }
    // The error carries its position apart from the text.
    std::istringstream in("[\n\n   x]");
    JsonReader r(in);
    r.next();
    try {
        r.next();
        FAIL() << "accepted";
    } catch (const JsonSyntaxError &e) {
        EXPECT_EQ(e.line, 3u);
        EXPECT_EQ(e.column, 4u);
    }
}

TEST(JsonReader, NestingIsCappedAtTheMaximumDepth) {
    auto nested = [](int n) { return std::string(n, '[') + std::string(n, ']'); };
    EXPECT_EQ(error(nested(64)), "");
    EXPECT_EQ(error(nested(65)), "line 1, column 65: nesting deeper than 64 levels");
    EXPECT_EQ(error(std::string(100000, '[')), "line 1, column 65: nesting deeper than 64 levels");
    EXPECT_EQ(tokens("[{\"a\": []}]", JsonReader::kDefaultBufferSize, 2).back(),
              "error: line 1, column 8: nesting deeper than 2 levels");
}

TEST(JsonReader, SkipReadsPastTheWholeValue) {
    std::istringstream in(R"([{"a": [1, {"b": [2]}], "c": {}}, "x", 3])");
    JsonReader r(in, 3);
    ASSERT_EQ(show(r.next()), "[");
    const JsonToken &obj = r.next();
    ASSERT_EQ(show(obj), "{");
    EXPECT_EQ(r.depth(), 2u);
    r.skip(obj);
    EXPECT_EQ(r.depth(), 1u);
    const JsonToken &s = r.next();
    r.skip(s);  // a scalar: nothing more to read
    EXPECT_EQ(show(r.next()), "u:3");
    EXPECT_EQ(show(r.next()), "]");
    EXPECT_EQ(show(r.next()), "end");
    EXPECT_EQ(show(r.next()), "end");
}

}  // namespace
