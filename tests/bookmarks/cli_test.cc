// tmxtool bookmarks, run as a user would: the list lives in the position
// file beside the programme, behind the playback position.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "bookmarks/bookmark_support.h"
#include "support/run_tool.h"
#include "support/temp_dir.h"
#include "support/test_data.h"

namespace tmx::test {
namespace {

TEST(BookmarksCommand, AddsListsSeeksAndDeletes) {
  TempDir dir;
  const auto write = [&](const ByteVec& b) {
    return dir.Write("book.tmx", std::string(b.begin(), b.end())).string();
  };
  const std::string book = write(ProgrammeBytes("cli-book"));
  // What the last command printed: standard output on success, the error
  // output on failure.
  std::string out;
  const auto tool = [&](const std::string& arguments) {
    const ToolRun r = RunTool(TMXTOOL_PATH, "bookmarks " + book + " " + arguments);
    out = r.status == 0 ? r.out : r.err;
    return r.status;
  };
  const auto failure = [&](const std::string& cause) {
    return "tmxtool: " + book + ": " + cause + "\n";
  };

  for (const char* usage : {"", "frob", "add", "add 5s", "add 5 --note", "delete 0", "seek -1"}) {
    EXPECT_EQ(tool(usage), 2) << usage;
    EXPECT_EQ(out.rfind("usage: tmxtool info", 0), 0u) << out;
  }
  ASSERT_EQ(tool("list"), 0) << out;
  EXPECT_EQ(out, "no bookmarks\n");
  EXPECT_FALSE(std::ifstream(dir.path() / "book.pos").good()) << "listing wrote a file";
  EXPECT_EQ(tool("delete 1"), 1);
  EXPECT_EQ(out, failure("bookmark list: the file could not be opened or created (-1)"));

  ASSERT_EQ(tool("add 30000 --note 'Chapter two'"), 0) << out;
  EXPECT_EQ(out, "bookmark 1 at 0:00:30.000\n");
  ASSERT_EQ(tool("add 10000"), 0) << out;
  EXPECT_EQ(out, "bookmark 1 at 0:00:10.000\n");
  EXPECT_EQ(tool("add 10500"), 1);
  EXPECT_EQ(out, failure("add: a bookmark lies less than a second before (-38)"));
  ASSERT_EQ(tool("list"), 0) << out;
  EXPECT_EQ(out, "  1  0:00:10.000\n  2  0:00:30.000  Chapter two\n");
  ASSERT_EQ(tool("seek 2"), 0) << out;
  EXPECT_NE(out.find("position: 0:00:29."), std::string::npos) << out;
  ASSERT_EQ(tool("delete 1"), 0) << out;
  EXPECT_EQ(tool("delete 2"), 1);
  EXPECT_EQ(out, failure("delete: index out of range (-17)"));
  ASSERT_EQ(tool("list"), 0) << out;
  EXPECT_EQ(out, "  1  0:00:30.000  Chapter two\n");
  // The position record written by the seek stays in front of the list.
  const ByteVec pos = ReadFileBytes(dir.path() / "book.pos");
  EXPECT_EQ(Be32At(pos, 0), 2u);
  EXPECT_EQ(ParseList(pos).bookmarks.size(), 1u);

  // Another programme under the same name: the list is not its own.
  write(ProgrammeBytes("another-book"));
  EXPECT_EQ(tool("list"), 1);
  EXPECT_EQ(out, failure("bookmark list: the bookmarks belong to another programme (-36)"));
  write(ProgrammeBytes(""));
  EXPECT_EQ(tool("list"), 1);
  EXPECT_EQ(out, failure("no product id (\"@pid\") to keep bookmarks for"));
}

}  // namespace
}  // namespace tmx::test
