#include "metadata/text_convert.h"

#include <cstddef>
#include <cstring>

namespace tmx {
namespace {

constexpr char32_t kByteOrderMark = 0xFEFF;
constexpr std::uint16_t kSwappedMark = 0xFFFE;

bool IsHighSurrogate(char32_t c) noexcept { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(char32_t c) noexcept { return c >= 0xDC00 && c <= 0xDFFF; }
bool IsContinuation(std::uint8_t b) noexcept { return (b & 0xC0) == 0x80; }
bool IsDigit(std::uint8_t b) noexcept { return b >= '0' && b <= '9'; }

// Characters that no output receives.
bool IsDropped(char32_t c) noexcept { return c == kByteOrderMark || (c >= 0xFDD0 && c <= 0xFDEF); }

// Output sinks. Each keeps the last position of the buffer for its terminator;
// Put returns false when a character does not fit, which ends the conversion.

class Utf8Sink {
 public:
  // `capacity` is at least 1.
  Utf8Sink(std::uint8_t* out, std::uint32_t capacity) noexcept : out_(out), limit_(capacity - 1) {}

  bool Put(char32_t c) noexcept {
    const std::uint32_t len = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    if (limit_ - n_ < len) return false;
    std::uint8_t* p = out_ + n_;
    switch (len) {
      case 1: p[0] = std::uint8_t(c); break;
      case 2:
        p[0] = std::uint8_t(0xC0 | (c >> 6));
        p[1] = std::uint8_t(0x80 | (c & 0x3F));
        break;
      case 3:
        p[0] = std::uint8_t(0xE0 | (c >> 12));
        p[1] = std::uint8_t(0x80 | ((c >> 6) & 0x3F));
        p[2] = std::uint8_t(0x80 | (c & 0x3F));
        break;
      default:
        p[0] = std::uint8_t(0xF0 | (c >> 18));
        p[1] = std::uint8_t(0x80 | ((c >> 12) & 0x3F));
        p[2] = std::uint8_t(0x80 | ((c >> 6) & 0x3F));
        p[3] = std::uint8_t(0x80 | (c & 0x3F));
        break;
    }
    n_ += len;
    return true;
  }

  void Finish() noexcept { out_[n_] = 0; }

 private:
  std::uint8_t* out_;
  std::uint32_t limit_;
  std::uint32_t n_ = 0;
};

// Writes host-order 16-bit units byte-wise, so the buffer needs no alignment.
class Utf16Sink {
 public:
  // `units` is at least 1.
  Utf16Sink(std::uint8_t* out, std::uint32_t units) noexcept : out_(out), limit_(units - 1) {}

  bool Put(char32_t c) noexcept {
    if (c < 0x10000) {
      if (limit_ - n_ < 1) return false;
      Unit(std::uint16_t(c));
      return true;
    }
    if (limit_ - n_ < 2) return false;
    c -= 0x10000;
    Unit(std::uint16_t(0xD800 + (c >> 10)));
    Unit(std::uint16_t(0xDC00 + (c & 0x3FF)));
    return true;
  }

  void Finish() noexcept {
    const std::uint16_t zero = 0;
    std::memcpy(out_ + 2 * std::size_t(n_), &zero, 2);
  }

 private:
  void Unit(std::uint16_t u) noexcept {
    std::memcpy(out_ + 2 * std::size_t(n_), &u, 2);
    ++n_;
  }

  std::uint8_t* out_;
  std::uint32_t limit_;
  std::uint32_t n_ = 0;
};

// ISO 8859-1 printable characters only; anything else is dropped, not cut.
class SingleByteSink {
 public:
  // `capacity` is at least 1.
  SingleByteSink(std::uint8_t* out, std::uint32_t capacity) noexcept
      : out_(out), limit_(capacity - 1) {}

  bool Put(char32_t c) noexcept {
    if (!((c >= 32 && c <= 126) || (c >= 160 && c <= 255))) return true;
    if (n_ == limit_) return false;
    out_[n_++] = std::uint8_t(c);
    return true;
  }

  void Finish() noexcept { out_[n_] = 0; }

 private:
  std::uint8_t* out_;
  std::uint32_t limit_;
  std::uint32_t n_ = 0;
};

template <class Sink>
bool Emit(Sink& sink, char32_t c) noexcept {
  return IsDropped(c) || sink.Put(c);
}

template <class Sink>
void FromUtf8(std::span<const std::uint8_t> in, Sink& sink) noexcept {
  std::size_t i = 0;
  while (i < in.size()) {
    const std::uint8_t b0 = in[i++];
    if (b0 == 0) return;
    if (b0 < 0x80) {
      if (!Emit(sink, b0)) return;
      continue;
    }
    std::size_t extra;
    char32_t c;
    char32_t minimum;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
      extra = 1, c = b0 & 0x1F, minimum = 0x80;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
      extra = 2, c = b0 & 0x0F, minimum = 0x800;
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
      extra = 3, c = b0 & 0x07, minimum = 0x10000;
    } else {
      // A stray continuation byte, or a lead byte that only starts overlong
      // forms (C0, C1) or values above U+10FFFF (F5..FF).
      continue;
    }
    std::size_t got = 0;
    while (got < extra && i < in.size() && IsContinuation(in[i])) {
      c = (c << 6) | (in[i++] & 0x3F);
      ++got;
    }
    // The bytes taken so far go with the bad sequence; a byte that is not a
    // continuation (a zero byte included) starts the next round.
    if (got < extra) continue;
    if (c < minimum || c > 0x10FFFF || IsHighSurrogate(c) || IsLowSurrogate(c)) continue;
    if (!Emit(sink, c)) return;
  }
}

template <class Sink>
void FromUtf16(std::span<const std::uint8_t> in, Sink& sink) noexcept {
  const std::size_t units = in.size() / 2;
  auto raw = [&](std::size_t k) noexcept {
    std::uint16_t u;
    std::memcpy(&u, in.data() + 2 * k, 2);
    return u;
  };
  bool swapped = false;
  std::size_t k = 0;
  if (units > 0 && raw(0) == kSwappedMark) {
    swapped = true;
    k = 1;
  }
  auto unit = [&](std::size_t at) noexcept -> char32_t {
    const std::uint16_t u = raw(at);
    return swapped ? std::uint16_t((u >> 8) | (u << 8)) : u;
  };
  while (k < units) {
    const char32_t u = unit(k++);
    if (u == 0) return;
    if (IsHighSurrogate(u)) {
      if (k < units && IsLowSurrogate(unit(k))) {
        const char32_t c = 0x10000 + ((u - 0xD800) << 10) + (unit(k++) - 0xDC00);
        if (!Emit(sink, c)) return;
      }
      continue;
    }
    if (IsLowSurrogate(u)) continue;
    if (!Emit(sink, u)) return;
  }
}

template <class Sink>
void FromSingleByte(std::span<const std::uint8_t> in, Sink& sink) noexcept {
  std::size_t i = 0;
  while (i < in.size()) {
    const std::uint8_t b = in[i];
    if (b == 0) return;
    if (b == '&' && i + 2 < in.size() && in[i + 1] == '#' && IsDigit(in[i + 2])) {
      std::size_t j = i + 2;
      std::uint32_t value = 0;
      // The reference is "&#" and its digits alone: a ";" after them stays
      // in the text.
      while (j < in.size() && IsDigit(in[j])) value = (value * 10 + (in[j++] - '0')) & 0xFF;
      i = j;
      if (value == 0) return;
      if (!Emit(sink, value)) return;
      continue;
    }
    ++i;
    if (!Emit(sink, b)) return;
  }
}

template <class Sink>
void Convert(std::span<const std::uint8_t> source, std::uint32_t kind, Sink sink) noexcept {
  switch (kind) {
    case kTextUtf8: FromUtf8(source, sink); break;
    case kTextUtf16: FromUtf16(source, sink); break;
    default: FromSingleByte(source, sink); break;
  }
  sink.Finish();
}

}  // namespace

std::int32_t ConvertText(std::span<const std::uint8_t> source, std::uint32_t kind,
                         std::uint32_t format, std::uint8_t* out, std::uint32_t capacity) noexcept {
  if (out == nullptr) return 0;
  switch (format) {
    case kFormatUtf8:
      if (capacity >= 1) Convert(source, kind, Utf8Sink(out, capacity));
      break;
    case kFormatUtf16:
      if (capacity >= 2) Convert(source, kind, Utf16Sink(out, capacity / 2));
      break;
    default:
      if (capacity >= 1) Convert(source, kind, SingleByteSink(out, capacity));
      break;
  }
  return 0;
}

}  // namespace tmx
