#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tmxsdk.h"

namespace tmx {
namespace {

using namespace std::literals;

constexpr char kGuard = '~';

// Encodes into a guarded buffer; the result is the characters up to the first
// guard byte, which must be the count returned.
std::string Encode(std::string_view bytes, std::optional<std::int32_t> given = {}) {
  const std::int32_t length = given.value_or(std::int32_t(bytes.size()));
  std::string out(4 * bytes.size() / 3 + 16, kGuard);
  const std::int32_t n =
      TW_Base64Encode(reinterpret_cast<const unsigned char*>(bytes.data()), length, out.data());
  const std::size_t written = out.find(kGuard);
  EXPECT_EQ(std::size_t(n), written);
  return out.substr(0, written);
}

struct Decoded {
  std::int32_t count;
  std::string bytes;  // every byte written, counted or not
};

// Decodes into buffers of 0x00 and of 0xFF: the bytes written are the leading
// ones on which both agree, and nothing may differ after them.
Decoded Decode(std::string_view text, std::optional<std::int32_t> given = {}) {
  const std::int32_t length = given.value_or(std::int32_t(text.size()));
  std::string out[2] = {std::string(text.size() + 16, '\x00'),
                        std::string(text.size() + 16, '\xFF')};
  std::int32_t n[2];
  for (int i = 0; i < 2; ++i) {
    n[i] = TW_Base64Decode(text.data(), length, reinterpret_cast<unsigned char*>(out[i].data()));
  }
  EXPECT_EQ(n[0], n[1]);
  std::size_t written = 0;
  while (out[0][written] == out[1][written]) ++written;
  EXPECT_EQ(out[0].find_first_not_of('\x00', written), std::string::npos);
  EXPECT_EQ(out[1].find_first_not_of('\xFF', written), std::string::npos);
  return {n[0], out[0].substr(0, written)};
}

TEST(Base64, EncodesWithPadding) {
  const std::pair<std::string_view, std::string_view> vectors[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
  };
  for (const auto& [plain, text] : vectors) EXPECT_EQ(Encode(plain), text) << plain;
  EXPECT_EQ(Encode("\xFB\xFF\xBF"), "+/+/");
  EXPECT_EQ(Encode("\x00\x10\x83\x10\x51\x87"sv), "ABCDEFGH");
  EXPECT_EQ(Encode("Man", 0), "");
  EXPECT_EQ(Encode("Man", -5), "");
}

TEST(Base64, DecodesQuartetsAndKeepsTheTailRules) {
  const struct {
    std::string_view text;
    std::int32_t count;
    std::string_view written;
  } cases[] = {
      {"TWFuTWFu", 6, "ManMan"},
      {"TWFuTW", 1, "M\x60"},    // only the first two characters are decoded
      {"TWFuT", 0, "\x4C"},      // one tail character: one byte, counted 0
      {"TWFuTWF", 2, "Ma@"},     // three: three bytes, counted 2
      {"TWFuTWFuT", 3, "ManL"},  // the tail starts at the last complete quartet
      {"TWF", 2, "Ma@"},         // shorter than a quartet: all of it is the tail
      {"TW", 1, "M\x60"},
      {"T", 0, "L"},
      {"TQ=A", 1, "M\0"sv},  // the tail ends at its first "="
      {"T===", 0, "L"},
      {"====", 0, ""},
      {"TWE=", 2, "Ma\0"sv},
      {"TWFu====", 3, "Man"},
      {"TWFu=WFu", 3, "Man"},
      // Characters outside the alphabet are zero values, and so is "=" in a
      // quartet decoded in full.
      {"*WFu", 3,
       "\x01"
       "an"},
      {"T\nF-", 3,
       "L\x01"
       "@"},
      {"TQ==TWFu", 6, "M\0\0Man"sv},
      {"\xFF\x80\x00\x7F"sv, 3, "\0\0\0"sv},
  };
  for (const auto& c : cases) {
    const Decoded d = Decode(c.text);
    EXPECT_EQ(d.count, c.count) << c.text;
    EXPECT_EQ(d.bytes, c.written) << c.text;
  }
  // Nothing is read or written for empty or negative lengths.
  for (std::int32_t length : {0, -1, -4, INT32_MIN}) {
    const Decoded d = Decode("TWFu", length);
    EXPECT_EQ(d.count, 0);
    EXPECT_EQ(d.bytes, "");
  }
  // Only `length` characters are looked at.
  EXPECT_EQ(Decode("TWFuTWFu", 4).bytes, "Man");
}

}  // namespace
}  // namespace tmx
