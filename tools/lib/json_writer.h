// JSON text written straight into one growing buffer: strings escaped and
// numbers formatted by hand, no value tree. The text is what nlohmann::json's
// dump() makes of the same values (UTF-8 kept as it is, invalid UTF-8 replaced
// by U+FFFD), so snapshots and views keep their bytes.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <memory>
#include <string_view>

namespace evpn {

class JsonText {
  public:
    JsonText() = default;
    JsonText(const JsonText &) = delete;
    JsonText &operator=(const JsonText &) = delete;

    void raw(char c) {
        room(1);
        *end_++ = c;
    }
    void raw(std::string_view s) {
        room(s.size());
        memcpy(end_, s.data(), s.size());
        end_ += s.size();
    }
    void string(std::string_view s);  // quoted and escaped
    void u64(uint64_t v);
    void i64(int64_t v);
    void boolean(bool v) { raw(v ? std::string_view("true") : std::string_view("false")); }
    void null() { raw(std::string_view("null")); }
    // A line break and n spaces (pretty form).
    void newline(unsigned n) {
        room(n + 1);
        *end_++ = '\n';
        memset(end_, ' ', n);
        end_ += n;
    }

    const char *data() const { return buf_.get(); }
    size_t size() const { return static_cast<size_t>(end_ - buf_.get()); }
    // Drops the text after n bytes (n <= size()); clear() drops all of it.
    // The memory stays, so a writer that clears per record stops allocating.
    void truncate(size_t n) { end_ = buf_.get() + n; }
    void clear() { end_ = buf_.get(); }

    // Writes the text to out and clears it; false when out failed.
    bool write_to(std::ostream &out);

  private:
    void room(size_t n) {
        if (static_cast<size_t>(cap_ - end_) < n) grow(n);
    }
    void grow(size_t n);
    void string_slow(const unsigned char *p, const unsigned char *e);

    std::unique_ptr<char[]> buf_;
    char *end_ = nullptr;  // end of the text
    char *cap_ = nullptr;  // end of the buffer
};

}  // namespace evpn
