#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tmxsdk.h"

namespace {

class ProgramsPath : public ::testing::Test {
 protected:
  void TearDown() override { unsetenv("TesmoraProgramsDir"); }
};

TEST_F(ProgramsPath, AppendsASeparatorWhenMissingAndThereIsRoom) {
  wchar_t buf[16];
  EXPECT_EQ(TesmoraGetTMFilesPath(buf, 16), 0);  // not set
  const struct {
    const char* value;
    std::uint32_t room;
    std::int32_t rc;
    const wchar_t* path;
  } cases[] = {
      {"/media/books", 16, 1, L"/media/books/"},
      {"/media/books/", 16, 1, L"/media/books/"},
      {"", 16, 0, nullptr},
      {"/abc", 0, 0, nullptr},
      {"/abc", 5, 0, nullptr},  // "/abc" fits, "/abc/" does not
      {"/abc", 6, 1, L"/abc/"},
  };
  for (const auto& c : cases) {
    setenv("TesmoraProgramsDir", c.value, 1);
    EXPECT_EQ(TesmoraGetTMFilesPath(buf, c.room), c.rc) << c.value << " in " << c.room;
    if (c.path) {
      EXPECT_EQ(std::wstring(buf), c.path);
    }
  }
  EXPECT_EQ(TesmoraGetTMFilesPath(nullptr, 16), 0);
}

}  // namespace
