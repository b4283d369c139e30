#include <gtest/gtest.h>

#include <string>

#include "util/wide_string.h"

namespace tmx {
namespace {

std::string ToUtf8(const std::wstring& w, std::size_t capacity = 64) {
  std::string out(capacity, '\0');
  if (!WideToUtf8({w.data(), w.size()}, {out.data(), out.size()})) return "<too small>";
  return out.c_str();
}

TEST(WideString, RoundTripsEveryPlaneReplacesBadInputAndNeedsRoomForTheEnd) {
  const std::wstring w = L"a\u00e9\u6545\U0001F600";
  const std::string u = "a\xC3\xA9\xE6\x95\x85\xF0\x9F\x98\x80";
  EXPECT_EQ(ToUtf8(w), u);
  wchar_t back[16];
  ASSERT_TRUE(Utf8ToWide({u.data(), u.size()}, back));
  EXPECT_EQ(std::wstring(back), w);
  EXPECT_EQ(ToUtf8(std::wstring(1, wchar_t(0xD800))), "\xEF\xBF\xBD");
  const std::string bad =
      "\xC0\xAF"
      "x\xE6\x95";  // overlong, then a cut sequence
  ASSERT_TRUE(Utf8ToWide({bad.data(), bad.size()}, back));
  EXPECT_EQ(std::wstring(back), L"\uFFFDx\uFFFD");
  // Nothing is converted when the terminator does not fit.
  EXPECT_EQ(ToUtf8(L"abc", 4), "abc");
  EXPECT_EQ(ToUtf8(L"abc", 3), "<too small>");
  EXPECT_EQ(ToUtf8(L"\u00e9", 2), "<too small>");
  wchar_t out[3];
  EXPECT_FALSE(Utf8ToWide({"abc", 3}, out));
  EXPECT_EQ(WideLength(L"abcdef", 4), 4u);
}

}  // namespace
}  // namespace tmx
