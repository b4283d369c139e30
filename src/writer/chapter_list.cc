#include "writer/chapter_list.h"

#include <algorithm>

namespace tmx::writer {
namespace {

constexpr std::uint64_t kMaxMs = 0xFFFFFFFFu;

// Digits of a field; false when there are none or the value gets too big.
bool ParseDigits(std::string_view text, std::uint64_t* value) {
  if (text.empty() || text.size() > 10) return false;
  std::uint64_t v = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    v = v * 10 + std::uint64_t(c - '0');
  }
  *value = v;
  return true;
}

std::string_view Trim(std::string_view s) {
  const auto space = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
  while (!s.empty() && space(s.front())) s.remove_prefix(1);
  while (!s.empty() && space(s.back())) s.remove_suffix(1);
  return s;
}

}  // namespace

bool ParseChapterTime(std::string_view text, std::uint32_t* ms) {
  // Fractions of a second: up to three digits, "5" is 500 ms.
  std::uint64_t fraction = 0;
  if (const std::size_t dot = text.find('.'); dot != std::string_view::npos) {
    std::string_view digits = text.substr(dot + 1);
    if (digits.size() > 3 || !ParseDigits(digits, &fraction)) return false;
    for (std::size_t i = digits.size(); i < 3; ++i) fraction *= 10;
    text = text.substr(0, dot);
  }
  std::uint64_t fields[3] = {};
  std::size_t count = 0;
  for (;;) {
    const std::size_t colon = text.find(':');
    if (count == 3 || !ParseDigits(text.substr(0, colon), &fields[count])) return false;
    ++count;
    if (colon == std::string_view::npos) break;
    text = text.substr(colon + 1);
  }
  // Minutes and seconds after a colon stay below 60.
  for (std::size_t i = 1; i < count; ++i) {
    if (fields[i] >= 60) return false;
  }
  std::uint64_t seconds = 0;
  for (std::size_t i = 0; i < count; ++i) seconds = seconds * 60 + fields[i];
  const std::uint64_t total = seconds * 1000 + fraction;
  if (total > kMaxMs) return false;
  *ms = std::uint32_t(total);
  return true;
}

bool ParseChapterList(std::string_view text, std::vector<Chapter>* chapters, std::string* error) {
  std::vector<Chapter> out;
  std::size_t lineNumber = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = Trim(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    ++lineNumber;
    if (line.empty() || line.front() == '#') continue;
    const std::size_t gap = line.find_first_of(" \t");
    const std::string_view start = line.substr(0, gap);
    const std::string_view title =
        gap == std::string_view::npos ? std::string_view() : Trim(line.substr(gap));
    auto fail = [&](const char* what) {
      *error = "line " + std::to_string(lineNumber) + ": " + what;
      return false;
    };
    Chapter chapter;
    if (!ParseChapterTime(start, &chapter.startMs)) return fail("bad start time");
    if (title.empty()) return fail("missing title");
    if (title.size() > 0xFFFF) return fail("title too long");
    if (!out.empty() && chapter.startMs < out.back().startMs) {
      return fail("chapters out of order");
    }
    chapter.title = std::string(title);
    out.push_back(std::move(chapter));
  }
  *chapters = std::move(out);
  return true;
}

}  // namespace tmx::writer
