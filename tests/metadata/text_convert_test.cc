#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "metadata/text_convert.h"

namespace tmx {
namespace {

using Bytes = std::vector<std::uint8_t>;
using namespace std::literals;

constexpr std::uint32_t kSingle = 0;  // any format other than 1 and 3
constexpr std::uint8_t kGuard = 0xA5;
constexpr std::size_t kPad = 8;

Bytes B(std::string_view s) { return Bytes(s.begin(), s.end()); }

// UTF-16 source bytes in host order, or byte-swapped behind a swapped mark.
Bytes U16(std::u16string_view s, bool swapped = false) {
  std::u16string units = swapped ? u"\uFEFF" : u"";
  units += s;
  Bytes out(2 * units.size());
  if (!out.empty()) std::memcpy(out.data(), units.data(), out.size());
  if (swapped) {
    for (std::size_t i = 0; i < out.size(); i += 2) std::swap(out[i], out[i + 1]);
  }
  return out;
}

// Converts into `capacity` bytes `misalign` bytes past an even address, with
// guard bytes around them that must stay; returns the output area.
Bytes Raw(const Bytes& src, std::uint32_t kind, std::uint32_t format, std::uint32_t capacity,
          std::size_t misalign = 0) {
  alignas(8) static std::uint8_t buf[2 * kPad + 1024];
  const std::size_t start = kPad + misalign, end = start + capacity;
  std::memset(buf, kGuard, sizeof buf);
  // An exact-size copy, so that a read past the source is caught by the sanitizer.
  const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[src.size()]);
  std::copy(src.begin(), src.end(), exact.get());
  EXPECT_EQ(ConvertText({exact.get(), src.size()}, kind, format, buf + start, capacity), 0);
  for (std::size_t i = 0; i < end + kPad; ++i) {
    if (i < start || i >= end) {
      EXPECT_EQ(buf[i], kGuard) << "byte " << i << " outside the output";
    }
  }
  return Bytes(buf + start, buf + end);
}

// Checks that nothing follows the terminator that ends at `end`.
void ExpectUntouchedFrom(const Bytes& raw, std::size_t end) {
  for (std::size_t i = end; i < raw.size(); ++i) {
    EXPECT_EQ(raw[i], kGuard) << "byte " << i << " written after the terminator";
  }
}

// The text written in a byte format, up to its terminator.
std::string Text8(const Bytes& src, std::uint32_t kind, std::uint32_t format,
                  std::uint32_t capacity = 256) {
  const Bytes raw = Raw(src, kind, format, capacity);
  const auto end = std::find(raw.begin(), raw.end(), 0);
  if (end == raw.end()) ADD_FAILURE() << "no terminator";
  ExpectUntouchedFrom(raw, std::size_t(end - raw.begin()) + 1);
  return std::string(raw.begin(), end);
}

// The text written as UTF-16, up to its terminating unit.
std::u16string Text16(const Bytes& src, std::uint32_t kind, std::uint32_t capacity = 256,
                      std::size_t misalign = 0) {
  const Bytes raw = Raw(src, kind, kFormatUtf16, capacity, misalign);
  std::u16string units(raw.size() / 2, u'\0');
  if (!units.empty()) std::memcpy(units.data(), raw.data(), 2 * units.size());
  const std::size_t end = units.find(u'\0');
  if (end == std::u16string::npos) ADD_FAILURE() << "no terminator";
  ExpectUntouchedFrom(raw, 2 * end + 2);
  return units.substr(0, end);
}

// Reference encoders, written out independently of the converters.
std::string RefUtf8(char32_t c) {
  if (c < 0x80) return std::string(1, char(c));
  if (c < 0x800) return {char(0xC0 | (c >> 6)), char(0x80 | (c & 63))};
  if (c < 0x10000)
    return {char(0xE0 | (c >> 12)), char(0x80 | ((c >> 6) & 63)), char(0x80 | (c & 63))};
  return {char(0xF0 | (c >> 18)), char(0x80 | ((c >> 12) & 63)), char(0x80 | ((c >> 6) & 63)),
          char(0x80 | (c & 63))};
}
std::u16string RefUtf16(char32_t c) {
  if (c < 0x10000) return std::u16string(1, char16_t(c));
  return {char16_t(0xD800 + ((c - 0x10000) >> 10)), char16_t(0xDC00 + (c & 0x3FF))};
}

// Valid UTF-8 and UTF-16 text of every class, in every format and at every
// capacity, is covered by the random test at the end.
TEST(TextConvertClasses, EveryCodePointClassInEveryFormat) {
  // Single-byte source bytes are ISO 8859-1 code points; kind 2, the picture
  // kind and unknown kinds are single-byte text too.
  EXPECT_EQ(Text8(B("A\xE9\x80"), kTextSingleByte, kFormatUtf8), "A\xC3\xA9\xC2\x80");
  EXPECT_EQ(Text16(B("A\xE9\xFF"), 2), u"A\u00E9\u00FF");
  EXPECT_EQ(Text8(B("x&#233"), kTextJpeg, kFormatUtf8), "x\xC3\xA9");
  EXPECT_EQ(Text8(B("x&#233"), 99, kFormatUtf8), "x\xC3\xA9");
  // Only single-byte output filters: it keeps 32..126 and 160..255.
  const std::u16string src = {31, 32, 126, 127, 128, 159, 160, 255, 256, 0x6545, 0xD83D, 0xDE00, 9};
  EXPECT_EQ(Text8(U16(src), kTextUtf16, kSingle), "\x20\x7E\xA0\xFF");
  EXPECT_EQ(Text8(B("a\tb\x85\xA0"), kTextSingleByte, kSingle), "ab\xA0");
  EXPECT_EQ(Text8(B("a\tb"), kTextSingleByte, kFormatUtf8), "a\tb");
  // A dropped character takes no room; no byte is written without room for a terminator.
  EXPECT_EQ(Text8(B("a\x01\xE6\x95\x85z"), kTextUtf8, kSingle, 3), "az");
  EXPECT_TRUE(Raw(B("abc"), kTextUtf8, kSingle, 0).empty());
  EXPECT_EQ(Raw(B("abc"), kTextUtf8, kFormatUtf16, 1), Bytes{kGuard});  // no room for a unit
}

TEST(TextConvertClasses, ByteOrderMarksNonCharactersAndZeroCharacters) {
  const std::u16string src = u"\uFEFFa\uFDCF\uFDD0\uFDE5\uFDEF\uFDF0\uFEFFz";
  EXPECT_EQ(Text16(U16(src), kTextUtf16), u"a\uFDCF\uFDF0z");
  EXPECT_EQ(Text8(U16(src, true), kTextUtf16, kFormatUtf8), "a\xEF\xB7\x8F\xEF\xB7\xB0z");
  EXPECT_EQ(Text16(B("\xEF\xBB\xBFz\xEF\xB7\x90\xEF\xB7\xAF\xEF\xBB\xBFy"), kTextUtf8), u"zy");
  // The first zero character ends the text in every kind.
  EXPECT_EQ(Text8(B("ab\0cd"sv), kTextUtf8, kFormatUtf8), "ab");
  EXPECT_EQ(Text8(B("ab\0cd"sv), kTextSingleByte, kSingle), "ab");
  EXPECT_EQ(Text16(U16(u"ab\0cd"sv), kTextUtf16), u"ab");
  EXPECT_EQ(Text16(U16(u"a\xD800\0c"sv), kTextUtf16), u"a");  // not taken as the low half
  EXPECT_EQ(Text16(U16(u"\u0100\u2000"), kTextUtf16), u"\u0100\u2000");  // zero bytes, not units
}

TEST(TextConvertUtf8, DropsEachKindOfMalformedSequence) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"a\x80\xBFz", "az"},                      // stray continuation bytes
      {"a\xC1\xBFz", "az"},                      // overlong U+007F
      {"a\xE0\x9F\xBFz", "az"},                  // overlong U+07FF
      {"a\xF0\x8F\xBF\xBFz", "az"},              // overlong U+FFFF
      {"a\xED\xA0\x80z", "az"},                  // encoded surrogate U+D800
      {"a\xED\xBF\xBFz", "az"},                  // encoded surrogate U+DFFF
      {"a\xF4\x90\x80\x80z", "az"},              // U+110000
      {"a\xF5\x80\x80\x80z", "az"},              // lead byte beyond U+10FFFF
      {"a\xF8\x88\x80\x80\x80z", "az"},          // five-byte form
      {"a\xFE\xFFz", "az"},                      // never valid
      {"a\xE6\x95z", "az"},                      // cut short: 'z' survives
      {"a\xF0\x9F\x98", "a"},                    // cut by the end of the span
      {"a\xE6\0z"sv, "a"},                       // cut by a zero byte, which ends the text
      {"\xC2\x80\xDF\xBF", "\xC2\x80\xDF\xBF"},  // U+0080, U+07FF
      {"\xE0\xA0\x80\xED\x9F\xBF", "\xE0\xA0\x80\xED\x9F\xBF"},  // U+0800, U+D7FF
      {"\xEE\x80\x80\xEF\xBF\xBF", "\xEE\x80\x80\xEF\xBF\xBF"},  // U+E000, U+FFFF
      {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
       "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},  // U+10000, U+10FFFF
  };
  for (const auto& [in, out] : cases) {
    EXPECT_EQ(Text8(B(in), kTextUtf8, kFormatUtf8), out) << ::testing::PrintToString(in);
    // The same characters survive into UTF-16.
    EXPECT_EQ(Text8(U16(Text16(B(in), kTextUtf8)), kTextUtf16, kFormatUtf8), out);
  }
}

TEST(TextConvertUtf16, ReadsSwappedOddAndUnpairedSources) {
  EXPECT_EQ(Text16(U16(u"\uFEFFab"), kTextUtf16), u"ab");
  EXPECT_EQ(Text16(U16(u"ab\U00010437", true), kTextUtf16), u"ab\U00010437");
  EXPECT_EQ(Text16(U16(u"", true), kTextUtf16), u"");
  for (bool swapped : {false, true}) {
    Bytes odd = U16(u"ab", swapped);
    odd.push_back('c');  // a lone last byte is ignored
    EXPECT_EQ(Text16(odd, kTextUtf16), u"ab");
    // Unpaired surrogates go; the unit after a lone high surrogate is read on its own.
    const std::u16string unpaired = {'a', 0xD800, 'b', 0xDC00, 'c', 0xDC00, 0xD800, 'd', 0xD800};
    EXPECT_EQ(Text8(U16(unpaired, swapped), kTextUtf16, kFormatUtf8), "abcd");
  }
  EXPECT_EQ(Text8(B("a"), kTextUtf16, kFormatUtf8), "");
  EXPECT_EQ(Text16(U16(u"\xD83D\xD83D\xDE00"), kTextUtf16), u"\U0001F600");
  // U+FFFE only marks a swapped source as its first unit; later it is a character.
  EXPECT_EQ(Text16(U16(u"a\uFFFE"), kTextUtf16), u"a\uFFFE");
}

TEST(TextConvertSingleByte, DecodesDecimalReferences) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"&#65", "A"},
      {"&#65B", "AB"},
      {"&#65;", "A;"},  // a ';' after the digits is ordinary text
      {"Ana &#38; Bo", "Ana &; Bo"},
      {"x&#65", "xA"},        // at the end of the span
      {"&#233", "\xC3\xA9"},  // ISO 8859-1, UTF-8 encoded on output
      {"&#255", "\xC3\xBF"},
      {"&#321", "A"},  // 321 modulo 256
      {"&#0000000065", "A"},
      {"&#99999999999999999999", "\xC3\xBF"},  // 10^20 - 1 modulo 256 is 255
      {"a&#0;b", "a"},                         // character 0 ends the text
      {"a&#256;b", "a"},
      {"&#", "&#"},  // no digits: literal
      {"&#;", "&#;"},
      {"&#x41;", "&#x41;"},  // hexadecimal references are not decoded
      {"&&#65;", "&A;"},
      {"&#&#65;", "&#A;"},
      {"& #65;", "& #65;"},
  };
  for (const auto& [in, out] : cases) {
    EXPECT_EQ(Text8(B(in), kTextSingleByte, kFormatUtf8), out) << in;
  }
  EXPECT_EQ(Text16(B("&#233&#9;"), kTextSingleByte), u"\u00E9\t;");
  EXPECT_EQ(Text8(B("&#233;&#9;&#160;"), kTextSingleByte, kSingle), "\xE9;;\xA0;");
}

// Random valid text of every class, and every capacity for it: each output is
// the longest prefix of whole characters that fits in front of the terminator.
TEST(TextConvertCross, RandomTextAgreesAcrossKindsFormatsAndCapacities) {
  std::mt19937 rng(20240611);
  auto draw = [&]() -> char32_t {
    for (;;) {
      const std::uint32_t ranges[4][2] = {
          {32, 126}, {160, 255}, {256, 0xFFFD}, {0x10000, 0x10FFFF}};
      const auto& r = ranges[rng() % 4];
      const char32_t c = r[0] + rng() % (r[1] - r[0] + 1);
      if ((c < 0xD800 || c > 0xDFFF) && (c < 0xFDD0 || c > 0xFDEF) && c != 0xFEFF) return c;
    }
  };
  for (int round = 0; round < 50; ++round) {
    std::vector<char32_t> text(rng() % 12);
    for (char32_t& c : text) c = draw();
    std::string utf8, latin1;
    std::u16string utf16;
    for (char32_t c : text) utf8 += RefUtf8(c), utf16 += RefUtf16(c);
    for (char32_t c : text) latin1 += c <= 255 ? std::string(1, char(c)) : "";
    const std::pair<Bytes, std::uint32_t> sources[] = {
        {B(utf8), kTextUtf8}, {U16(utf16), kTextUtf16}, {U16(utf16, true), kTextUtf16}};
    for (const auto& [src, kind] : sources) {
      std::string want8;
      std::u16string want16;
      std::size_t i8 = 0, i16 = 0;
      for (std::uint32_t cap = 1; cap <= utf8.size() + 2; ++cap) {
        while (i8 < text.size() && want8.size() + RefUtf8(text[i8]).size() < cap)
          want8 += RefUtf8(text[i8++]);
        ASSERT_EQ(Text8(src, kind, kFormatUtf8, cap), want8) << round << " " << cap;
      }
      for (std::uint32_t cap = 2; cap <= 2 * utf16.size() + 3; ++cap) {
        while (i16 < text.size() && want16.size() + RefUtf16(text[i16]).size() < cap / 2)
          want16 += RefUtf16(text[i16++]);
        ASSERT_EQ(Text16(src, kind, cap, cap % 2), want16) << round << " " << cap;
      }
      EXPECT_EQ(Text8(src, kind, kSingle), latin1);
    }
  }
}

}  // namespace
}  // namespace tmx
