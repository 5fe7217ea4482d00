// JSON tokenizer. Tokens that lie whole in the buffer are handed out in place;
// a token that crosses a refill, or a string with escapes, is assembled in
// scratch_. The buffer is refilled only once everything in it is consumed.
#include "json_reader.h"

#include <cstring>
#include <istream>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace evpn {

namespace {

constexpr size_t kPad = 64;  // after the data: a NUL, then room for 16-byte loads

// First byte at or after p that ends a run of plain string bytes: a quote, a
// backslash, a control character or a non-ASCII byte. The NUL after the data
// stops it.
inline const char *scan_plain(const char *p) {
#if defined(__SSE2__)
    const __m128i quote = _mm_set1_epi8('"'), backslash = _mm_set1_epi8('\\'),
                  space = _mm_set1_epi8(0x20);
    for (;;) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        // Signed compare: bytes 0x80..0xff are negative, so below 0x20 too.
        __m128i stop = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, quote), _mm_cmpeq_epi8(v, backslash)),
                                    _mm_cmplt_epi8(v, space));
        if (int mask = _mm_movemask_epi8(stop)) return p + __builtin_ctz(static_cast<unsigned>(mask));
        p += 16;
    }
#else
    for (;; p++) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (c == '"' || c == '\\' || c < 0x20 || c >= 0x80) return p;
    }
#endif
}

inline bool is_digit(char c) { return c >= '0' && c <= '9'; }
inline bool is_number_byte(char c) {
    return is_digit(c) || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E';
}

// Length of the UTF-8 sequence at p if it is well formed (no overlong forms,
// no surrogates, nothing above U+10FFFF); 0 if it is not; -1 if it runs past
// end and cannot be judged yet.
int utf8_length(const unsigned char *p, const unsigned char *end) {
    unsigned char c = p[0];
    int n;
    unsigned char lo = 0x80, hi = 0xbf;  // range of the second byte
    if (c >= 0xc2 && c <= 0xdf) {
        n = 2;
    } else if (c >= 0xe0 && c <= 0xef) {
        n = 3;
        if (c == 0xe0) lo = 0xa0;
        if (c == 0xed) hi = 0x9f;
    } else if (c >= 0xf0 && c <= 0xf4) {
        n = 4;
        if (c == 0xf0) lo = 0x90;
        if (c == 0xf4) hi = 0x8f;
    } else {
        return 0;
    }
    if (end - p < n) return -1;
    if (p[1] < lo || p[1] > hi) return 0;
    for (int k = 2; k < n; k++)
        if (p[k] < 0x80 || p[k] > 0xbf) return 0;
    return n;
}

std::string describe(unsigned char c) {
    char buf[16];
    if (c > 0x20 && c < 0x7f) {
        snprintf(buf, sizeof buf, "'%c'", c);
    } else {
        snprintf(buf, sizeof buf, "byte 0x%02x", c);
    }
    return buf;
}

}  // namespace

JsonSyntaxError::JsonSyntaxError(uint64_t l, uint64_t c, const std::string &what)
    : std::runtime_error("line " + std::to_string(l) + ", column " + std::to_string(c) + ": " + what),
      line(l), column(c) {}

JsonReader::JsonReader(std::istream &in, size_t buffer_size, unsigned max_depth)
    : in_(in), size_(buffer_size ? buffer_size : 1), buf_(new char[size_ + kPad]()),
      pos_(buf_.get()), end_(buf_.get()), max_depth_(max_depth) {
    stack_.resize(max_depth);
    // A byte order mark may open the text.
    if (more() && static_cast<unsigned char>(*pos_) == 0xef) {
        for (unsigned char c : {0xefu, 0xbbu, 0xbfu}) {
            if (!more()) fail_eof("unexpected end of input");
            if (static_cast<unsigned char>(*pos_) != c) fail_at(pos_, "invalid byte order mark");
            pos_++;
        }
        line_start_ = base_ + static_cast<uint64_t>(pos_ - buf_.get());
    }
}

bool JsonReader::refill() {
    if (eof_) return false;
    base_ += static_cast<uint64_t>(end_ - buf_.get());
    char *b = buf_.get();
    in_.read(b, static_cast<std::streamsize>(size_));
    size_t got = static_cast<size_t>(in_.gcount());
    if (in_.bad()) throw JsonSyntaxError(line_, column_at(end_), "cannot read the input");
    pos_ = b;
    end_ = b + got;
    b[got] = '\0';
    if (got == 0) eof_ = true;
    return got != 0;
}

void JsonReader::fail_at(const char *p, const std::string &what) const {
    throw JsonSyntaxError(line_, column_at(p), what);
}

void JsonReader::fail_eof(const char *what) const { throw JsonSyntaxError(line_, column_at(end_), what); }

void JsonReader::fail_found(const char *p, const char *what, const char *after) const {
    throw JsonSyntaxError(line_, column_at(p), what + describe(static_cast<unsigned char>(*p)) + after);
}

void JsonReader::skip_space() {
    if (static_cast<unsigned char>(*pos_) > ' ') return;  // mostly: no space at all
    for (;;) {
        const char *p = pos_;
        for (;; p++) {
            char c = *p;
            if (c == ' ' || c == '\t' || c == '\r') continue;
            if (c != '\n') break;
            line_++;
            line_start_ = base_ + static_cast<uint64_t>(p - buf_.get()) + 1;
        }
        pos_ = p;
        if (p != end_ || !refill()) return;
    }
}

const JsonToken &JsonReader::close(bool object) {
    pos_++;
    depth_--;
    expect_ = Expect::Next;
    tok_.kind = object ? JsonTok::ObjectEnd : JsonTok::ArrayEnd;
    tok_.text = {};
    return tok_;
}

const JsonToken &JsonReader::next() {
    for (;;) {
        skip_space();
        bool at_end = pos_ == end_;
        switch (expect_) {
        case Expect::Next: {
            if (depth_ == 0) {
                if (!at_end) fail_at(pos_, "text after the end of the document");
                tok_.kind = JsonTok::End;
                tok_.text = {};
                return tok_;
            }
            bool object = stack_[depth_ - 1];
            if (at_end)
                fail_eof(object ? "unexpected end of input; expected ',' or '}'"
                                : "unexpected end of input; expected ',' or ']'");
            char c = *pos_;
            if (c == ',') {
                // Mostly the next member's name follows at once (the byte
                // after the data is a NUL, so pos_[1] is always there).
                if (object && pos_[1] == '"') {
                    pos_ += 2;
                    return key();
                }
                pos_++;
                expect_ = object ? Expect::Key : Expect::Value;
                continue;
            }
            if (c != (object ? '}' : ']'))
                fail_found(pos_, object ? "expected ',' or '}' after an object member, found "
                                        : "expected ',' or ']' after a list element, found ");
            return close(object);
        }
        case Expect::FirstKey:
            if (!at_end && *pos_ == '}') return close(true);
            [[fallthrough]];
        case Expect::Key:
            if (at_end) fail_eof("unexpected end of input; expected a member name");
            if (*pos_ != '"')
                fail_found(pos_, "expected a member name in double quotes, found ");
            pos_++;
            return key();
        case Expect::Colon:
            if (at_end) fail_eof("unexpected end of input; expected ':'");
            if (*pos_ != ':') fail_found(pos_, "expected ':' after a member name, found ");
            pos_++;
            expect_ = Expect::Value;
            continue;
        case Expect::FirstValue:
            if (!at_end && *pos_ == ']') return close(false);
            [[fallthrough]];
        case Expect::Value:
            value();
            return tok_;
        }
    }
}

// pos_ is past the quote that opens a member name.
const JsonToken &JsonReader::key() {
    string(JsonTok::Key);
    // The colon mostly follows at once; taking it here saves a round.
    if (pos_ != end_ && *pos_ == ':') {
        pos_++;
        expect_ = Expect::Value;
    } else {
        expect_ = Expect::Colon;
    }
    return tok_;
}

void JsonReader::skip(const JsonToken &t) {
    if (t.kind != JsonTok::ObjectStart && t.kind != JsonTok::ArrayStart) return;
    const unsigned d = depth();
    while (depth() >= d) next();
}

void JsonReader::push(bool object) {
    if (depth_ >= max_depth_)
        fail_at(pos_, "nesting deeper than " + std::to_string(max_depth_) + " levels");
    stack_[depth_++] = object;
    pos_++;
}

void JsonReader::value() {
    if (pos_ == end_) fail_eof("unexpected end of input; expected a value");
    tok_.text = {};
    switch (*pos_) {
    case '{':
        push(true);
        expect_ = Expect::FirstKey;
        tok_.kind = JsonTok::ObjectStart;
        return;
    case '[':
        push(false);
        expect_ = Expect::FirstValue;
        tok_.kind = JsonTok::ArrayStart;
        return;
    case '"':
        pos_++;
        string(JsonTok::String);
        break;
    case '-': case '0': case '1': case '2': case '3': case '4': case '5': case '6': case '7': case '8':
    case '9':
        number();
        break;
    case 't':
        literal("true", 4, JsonTok::True);
        break;
    case 'f':
        literal("false", 5, JsonTok::False);
        break;
    case 'n':
        literal("null", 4, JsonTok::Null);
        break;
    default:
        fail_found(pos_, "unexpected ", "; expected a value");
    }
    expect_ = Expect::Next;
}

void JsonReader::literal(const char *word, size_t n, JsonTok kind) {
    const uint64_t column = column_at(pos_);
    if (static_cast<size_t>(end_ - pos_) >= n && memcmp(pos_, word, n) == 0) {
        pos_ += n;
    } else {
        for (size_t k = 0; k < n; k++, pos_++)
            if (!more() || *pos_ != word[k])
                throw JsonSyntaxError(line_, column, std::string("invalid literal; expected ") + word);
    }
    tok_.kind = kind;
}

// pos_ is past the opening quote.
void JsonReader::string(JsonTok kind) {
    tok_.kind = kind;
    const char *p = pos_;
    for (;;) {
        p = scan_plain(p);
        unsigned char c = static_cast<unsigned char>(*p);
        if (c == '"') {
            tok_.text = std::string_view(pos_, static_cast<size_t>(p - pos_));
            pos_ = p + 1;
            return;
        }
        if (c < 0x80) break;  // an escape, a control character or the end of the buffer
        int n = utf8_length(reinterpret_cast<const unsigned char *>(p),
                            reinterpret_cast<const unsigned char *>(end_));
        if (n < 0) break;
        if (n == 0) fail_at(p, "invalid UTF-8 in a string");
        p += n;
    }
    string_slow(pos_, p);
}

void JsonReader::scratch_grow(size_t more_bytes) {
    if (scratch_.size() + more_bytes > kMaxTokenBytes)
        fail_at(pos_, "string or number longer than " + std::to_string(kMaxTokenBytes >> 20) + " MiB");
}

void JsonReader::string_slow(const char *start, const char *p) {
    scratch_.assign(start, p);
    pos_ = p;
    for (;;) {
        if (pos_ == end_ && !refill()) fail_eof("unexpected end of input in a string");
        const char *q = scan_plain(pos_);
        if (q != pos_) {
            scratch_grow(static_cast<size_t>(q - pos_));
            scratch_.append(pos_, q);
            pos_ = q;
            continue;
        }
        if (pos_ == end_) continue;
        unsigned char c = static_cast<unsigned char>(*pos_);
        if (c == '"') {
            pos_++;
            tok_.text = scratch_;
            return;
        }
        if (c == '\\') {
            escape();
        } else if (c < 0x20) {
            char what[80];
            snprintf(what, sizeof what, "control character U+%04X in a string (write it as an escape)", c);
            fail_at(pos_, what);
        } else {
            utf8_slow(c);
        }
    }
}

// A UTF-8 sequence that may cross a refill; pos_ is at its first byte.
void JsonReader::utf8_slow(unsigned char lead) {
    const uint64_t column = column_at(pos_);
    if (lead < 0xc2 || lead > 0xf4) throw JsonSyntaxError(line_, column, "invalid UTF-8 in a string");
    unsigned char seq[4] = {lead, 0, 0, 0};
    int n = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    pos_++;
    for (int k = 1; k < n; k++, pos_++) {
        if (!more()) fail_eof("unexpected end of input in a string");
        seq[k] = static_cast<unsigned char>(*pos_);
    }
    if (utf8_length(seq, seq + n) != n) throw JsonSyntaxError(line_, column, "invalid UTF-8 in a string");
    scratch_grow(static_cast<size_t>(n));
    scratch_.append(reinterpret_cast<const char *>(seq), static_cast<size_t>(n));
}

uint32_t JsonReader::hex4() {
    uint32_t v = 0;
    for (int k = 0; k < 4; k++, pos_++) {
        if (!more()) fail_eof("unexpected end of input in a string");
        char c = *pos_;
        int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10
              : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
        if (d < 0) fail_at(pos_, "expected four hex digits after \\u");
        v = v << 4 | static_cast<uint32_t>(d);
    }
    return v;
}

// pos_ is at the backslash.
void JsonReader::escape() {
    const uint64_t column = column_at(pos_);
    pos_++;
    if (!more()) fail_eof("unexpected end of input in a string");
    char c = *pos_++;
    char out;
    switch (c) {
    case '"': case '\\': case '/': out = c; break;
    case 'b': out = '\b'; break;
    case 'f': out = '\f'; break;
    case 'n': out = '\n'; break;
    case 'r': out = '\r'; break;
    case 't': out = '\t'; break;
    case 'u': {
        uint32_t cp = hex4();
        if (cp >= 0xdc00 && cp <= 0xdfff)
            throw JsonSyntaxError(line_, column, "lone low surrogate in a \\u escape");
        if (cp >= 0xd800 && cp <= 0xdbff) {
            // A high surrogate needs its low half right after it.
            if (!more() || *pos_ != '\\') throw JsonSyntaxError(line_, column, "lone high surrogate in a \\u escape");
            pos_++;
            if (!more() || *pos_ != 'u') throw JsonSyntaxError(line_, column, "lone high surrogate in a \\u escape");
            pos_++;
            uint32_t low = hex4();
            if (low < 0xdc00 || low > 0xdfff)
                throw JsonSyntaxError(line_, column, "lone high surrogate in a \\u escape");
            cp = 0x10000 + ((cp - 0xd800) << 10) + (low - 0xdc00);
        }
        append_utf8(cp);
        return;
    }
    default: {
        unsigned char b = static_cast<unsigned char>(c);
        throw JsonSyntaxError(line_, column, b > 0x20 && b < 0x7f
                                                 ? std::string("invalid escape \\") + c + " in a string"
                                                 : "invalid escape: backslash before " + describe(b));
    }
    }
    scratch_grow(1);
    scratch_.push_back(out);
}

void JsonReader::append_utf8(uint32_t cp) {
    char b[4];
    size_t n;
    if (cp < 0x80) {
        b[0] = static_cast<char>(cp);
        n = 1;
    } else if (cp < 0x800) {
        b[0] = static_cast<char>(0xc0 | cp >> 6);
        b[1] = static_cast<char>(0x80 | (cp & 0x3f));
        n = 2;
    } else if (cp < 0x10000) {
        b[0] = static_cast<char>(0xe0 | cp >> 12);
        b[1] = static_cast<char>(0x80 | (cp >> 6 & 0x3f));
        b[2] = static_cast<char>(0x80 | (cp & 0x3f));
        n = 3;
    } else {
        b[0] = static_cast<char>(0xf0 | cp >> 18);
        b[1] = static_cast<char>(0x80 | (cp >> 12 & 0x3f));
        b[2] = static_cast<char>(0x80 | (cp >> 6 & 0x3f));
        b[3] = static_cast<char>(0x80 | (cp & 0x3f));
        n = 4;
    }
    scratch_grow(n);
    scratch_.append(b, n);
}

// pos_ is at '-' or a digit. Takes the longest run of bytes that can occur in
// a number, then checks it against the grammar.
void JsonReader::number() {
    const uint64_t column = column_at(pos_);
    const char *p = pos_;
    // Mostly a short unsigned integer, whole in the buffer.
    uint64_t v = 0;
    while (is_digit(*p) && p - pos_ < 19) v = v * 10 + static_cast<unsigned>(*p++ - '0');
    if (p != pos_ && p != end_ && !is_number_byte(*p) && (*pos_ != '0' || p - pos_ == 1)) {
        tok_.kind = JsonTok::Uint;
        tok_.u = v;
        tok_.text = std::string_view(pos_, static_cast<size_t>(p - pos_));
        pos_ = p;
        return;
    }
    while (is_number_byte(*p)) p++;
    std::string_view text;
    if (p == end_) {
        scratch_.assign(pos_, p);
        pos_ = p;
        while (more() && is_number_byte(*pos_)) {
            scratch_grow(1);
            scratch_.push_back(*pos_++);
        }
        text = scratch_;
    } else {
        text = std::string_view(pos_, static_cast<size_t>(p - pos_));
        pos_ = p;
    }
    tok_.text = text;

    const size_t n = text.size();
    size_t i = 0;
    const bool neg = text[0] == '-';
    if (neg) i++;
    bool ok = i < n && is_digit(text[i]);
    if (ok && text[i] == '0') {
        i++;
        ok = i == n || !is_digit(text[i]);  // no leading zeros
    } else {
        while (i < n && is_digit(text[i])) i++;
    }
    const size_t int_end = i;
    bool integer = true;
    if (ok && i < n && text[i] == '.') {
        integer = false;
        i++;
        ok = i < n && is_digit(text[i]);
        while (i < n && is_digit(text[i])) i++;
    }
    if (ok && i < n && (text[i] == 'e' || text[i] == 'E')) {
        integer = false;
        i++;
        if (i < n && (text[i] == '+' || text[i] == '-')) i++;
        ok = i < n && is_digit(text[i]);
        while (i < n && is_digit(text[i])) i++;
    }
    if (!ok || i != n) {
        std::string shown(text.substr(0, 40));
        throw JsonSyntaxError(line_, column, "invalid number \"" + shown + (n > 40 ? "..." : "") + "\"");
    }
    tok_.kind = JsonTok::Float;
    if (!integer) return;
    v = 0;
    for (size_t k = neg ? 1 : 0; k < int_end; k++) {
        unsigned d = static_cast<unsigned>(text[k] - '0');
        if (v > (UINT64_MAX - d) / 10) return;  // beyond 64 bits: a float
        v = v * 10 + d;
    }
    if (!neg) {
        tok_.kind = JsonTok::Uint;
        tok_.u = v;
    } else if (v <= uint64_t(1) << 63) {
        tok_.kind = JsonTok::Int;
        tok_.i = static_cast<int64_t>(0 - v);
    }
}

}  // namespace evpn
