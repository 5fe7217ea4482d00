// Streaming pull tokenizer for JSON (RFC 8259). Reads the stream through one
// fixed buffer, so memory does not grow with the document; checks the whole
// grammar (one top-level value, nothing after it) and reports errors with the
// line and column where they are.
#pragma once
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace evpn {

// Text that is not JSON. what(): "line L, column C: ...". Columns count bytes
// from 1.
class JsonSyntaxError : public std::runtime_error {
  public:
    JsonSyntaxError(uint64_t line, uint64_t column, const std::string &what);
    uint64_t line, column;
};

enum class JsonTok : uint8_t {
    ObjectStart, ObjectEnd, ArrayStart, ArrayEnd,
    Key,     // a member name
    String,
    Uint,    // an integer in 0 .. 2^64-1
    Int,     // a negative integer down to -2^63
    Float,   // any other number: a fraction, an exponent, or an integer out of range
    True, False, Null,
    End,     // after the top-level value
};

struct JsonToken {
    JsonTok kind = JsonTok::End;
    // Key, String: the text, unescaped. Numbers: as written. Valid until the
    // next call of next().
    std::string_view text;
    uint64_t u = 0;  // Uint
    int64_t i = 0;   // Int
};

class JsonReader {
  public:
    static constexpr size_t kDefaultBufferSize = size_t(1) << 20;
    static constexpr unsigned kDefaultMaxDepth = 64;
    // Longest string or number; longer ones are refused rather than held.
    static constexpr size_t kMaxTokenBytes = size_t(16) << 20;

    explicit JsonReader(std::istream &in, size_t buffer_size = kDefaultBufferSize,
                        unsigned max_depth = kDefaultMaxDepth);

    // The next token; throws JsonSyntaxError. After End, End again.
    const JsonToken &next();
    // Reads past the rest of the value that t (the token just returned) starts.
    void skip(const JsonToken &t);
    // Objects and lists open around the current position.
    unsigned depth() const { return depth_; }
    // Bytes of the stream read past so far.
    uint64_t offset() const { return base_ + static_cast<uint64_t>(pos_ - buf_.get()); }

  private:
    enum class Expect : uint8_t { Value, FirstValue, Key, FirstKey, Colon, Next };

    bool refill();
    bool more() { return pos_ != end_ || refill(); }
    void skip_space();
    uint64_t column_at(const char *p) const {
        return base_ + static_cast<uint64_t>(p - buf_.get()) - line_start_ + 1;
    }
    // Errors at p, at the end of the input, and at p naming the byte there.
    [[noreturn, gnu::cold, gnu::noinline]] void fail_at(const char *p, const std::string &what) const;
    [[noreturn, gnu::cold, gnu::noinline]] void fail_eof(const char *what) const;
    [[noreturn, gnu::cold, gnu::noinline]] void fail_found(const char *p, const char *what,
                                                          const char *after = "") const;
    void value();
    const JsonToken &key();
    // Consumes the '}' or ']' that closes the innermost container.
    const JsonToken &close(bool object);
    void push(bool object);
    void string(JsonTok kind);
    void string_slow(const char *start, const char *p);
    void escape();
    void append_utf8(uint32_t cp);
    uint32_t hex4();
    void utf8_slow(unsigned char lead);
    void number();
    void literal(const char *word, size_t n, JsonTok kind);
    void scratch_grow(size_t more);

    std::istream &in_;
    size_t size_;
    std::unique_ptr<char[]> buf_;  // size_ bytes, then a NUL and padding for 16-byte loads
    const char *pos_, *end_;
    uint64_t base_ = 0;        // offset in the stream of buf_[0]
    uint64_t line_ = 1;
    uint64_t line_start_ = 0;  // offset in the stream where line_ begins
    bool eof_ = false;
    unsigned max_depth_;
    std::vector<uint8_t> stack_;  // per open level, 1: an object, 0: a list
    unsigned depth_ = 0;
    Expect expect_ = Expect::Value;
    std::string scratch_;      // tokens that cross a refill or hold escapes
    JsonToken tok_;
};

}  // namespace evpn
