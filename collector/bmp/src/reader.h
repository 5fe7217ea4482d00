// A bounds-checked cursor over one message's bytes. Every read checks the
// bytes are there first; a read that would run past the end returns false
// and leaves the cursor where it was. pos() is the offset from the start of
// the message, for error reports.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace evpn::bmp::detail {

class Reader {
  public:
    Reader(const uint8_t *base, size_t begin, size_t end) : base_(base), pos_(begin), end_(end) {}

    size_t pos() const { return pos_; }
    size_t end() const { return end_; }
    size_t left() const { return end_ - pos_; }
    bool empty() const { return pos_ == end_; }
    const uint8_t *here() const { return base_ + pos_; }

    bool u8(uint8_t &v) {
        if (left() < 1) return false;
        v = base_[pos_++];
        return true;
    }
    bool u16(uint16_t &v) {
        if (left() < 2) return false;
        v = uint16_t(base_[pos_] << 8 | base_[pos_ + 1]);
        pos_ += 2;
        return true;
    }
    bool u24(uint32_t &v) {
        if (left() < 3) return false;
        v = uint32_t(base_[pos_]) << 16 | uint32_t(base_[pos_ + 1]) << 8 | base_[pos_ + 2];
        pos_ += 3;
        return true;
    }
    bool u32(uint32_t &v) {
        if (left() < 4) return false;
        v = load32(base_ + pos_);
        pos_ += 4;
        return true;
    }
    bool u64(uint64_t &v) {
        if (left() < 8) return false;
        v = uint64_t(load32(base_ + pos_)) << 32 | load32(base_ + pos_ + 4);
        pos_ += 8;
        return true;
    }
    bool bytes(void *dst, size_t n) {
        if (left() < n) return false;
        memcpy(dst, base_ + pos_, n);
        pos_ += n;
        return true;
    }
    bool skip(size_t n) {
        if (left() < n) return false;
        pos_ += n;
        return true;
    }
    // A reader over the next n bytes, which this one steps over.
    bool sub(size_t n, Reader &out) {
        if (left() < n) return false;
        out = Reader(base_, pos_, pos_ + n);
        pos_ += n;
        return true;
    }

    static uint32_t load32(const uint8_t *p) {
        return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
    }

  private:
    const uint8_t *base_;
    size_t pos_, end_;
};

}  // namespace evpn::bmp::detail
