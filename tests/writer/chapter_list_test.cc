// Chapter list files: start times and the line format.
#include "writer/chapter_list.h"

#include <gtest/gtest.h>

namespace tmx::writer {
namespace {

TEST(ChapterTime, AcceptsSecondsAndClockTimes) {
  const std::pair<const char*, std::uint32_t> good[] = {
      {"0", 0},
      {"95", 95000},
      {"95.5", 95500},
      {"1.25", 1250},
      {"0.007", 7},
      {"2:05", 125000},
      {"1:02:03.250", 3723250},
      {"10:00:00", 36000000},
      {"4294967.295", 4294967295u},
  };
  for (auto [text, ms] : good) {
    std::uint32_t value = 1;
    EXPECT_TRUE(ParseChapterTime(text, &value)) << text;
    EXPECT_EQ(value, ms) << text;
  }
  for (const char* bad : {"", "abc", "1:60", "1:2:3:4", "1.2345", "-1", "1:", ":5", "1.",
                          "4294967.296", "99999999999"}) {
    std::uint32_t value = 0;
    EXPECT_FALSE(ParseChapterTime(bad, &value)) << bad;
  }
}

TEST(ChapterList, ParsesLinesSkippingCommentsAndBlanks) {
  std::vector<Chapter> chapters;
  std::string error;
  ASSERT_TRUE(ParseChapterList("# book\r\n0 Opening words\r\n\n  1:30\tThe  middle \n3:00 End",
                               &chapters, &error))
      << error;
  ASSERT_EQ(chapters.size(), 3u);
  EXPECT_EQ(chapters[0].title, "Opening words");
  EXPECT_EQ(chapters[1].startMs, 90000u);
  EXPECT_EQ(chapters[1].title, "The  middle");
  EXPECT_EQ(chapters[2].startMs, 180000u);
}

TEST(ChapterList, NamesTheFirstBadLine) {
  const std::pair<const char*, const char*> bad[] = {
      {"0 a\n1 b\nx c\n", "line 3: bad start time"},
      {"0 a\n5\n", "line 2: missing title"},
      {"10 a\n5 b\n", "line 2: chapters out of order"},
  };
  for (auto [text, message] : bad) {
    std::vector<Chapter> chapters = {{1, "kept"}};
    std::string error;
    EXPECT_FALSE(ParseChapterList(text, &chapters, &error));
    EXPECT_EQ(error, message);
    EXPECT_EQ(chapters.size(), 1u) << "the list is left alone on failure";
  }
}

}  // namespace
}  // namespace tmx::writer
