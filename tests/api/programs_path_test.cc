#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tmxsdk.h"

namespace {

class ProgramsPath : public ::testing::Test {
 protected:
  void TearDown() override { unsetenv("TesmoraProgramsDir"); }
};

TEST_F(ProgramsPath, AppendsASeparatorWhenMissing) {
  setenv("TesmoraProgramsDir", "/media/books", 1);
  wchar_t buf[64];
  ASSERT_EQ(TesmoraGetTMFilesPath(buf, 64), 1);
  EXPECT_EQ(std::wstring(buf), L"/media/books/");
  setenv("TesmoraProgramsDir", "/media/books/", 1);
  ASSERT_EQ(TesmoraGetTMFilesPath(buf, 64), 1);
  EXPECT_EQ(std::wstring(buf), L"/media/books/");
}

TEST_F(ProgramsPath, FailsWithoutAValueOrRoom) {
  wchar_t buf[16];
  EXPECT_EQ(TesmoraGetTMFilesPath(buf, 16), 0);
  setenv("TesmoraProgramsDir", "", 1);
  EXPECT_EQ(TesmoraGetTMFilesPath(buf, 16), 0);
  setenv("TesmoraProgramsDir", "/abc", 1);
  EXPECT_EQ(TesmoraGetTMFilesPath(nullptr, 16), 0);
  EXPECT_EQ(TesmoraGetTMFilesPath(buf, 0), 0);
  EXPECT_EQ(TesmoraGetTMFilesPath(buf, 5), 0);  // "/abc" fits, "/abc/" does not
  EXPECT_EQ(TesmoraGetTMFilesPath(buf, 6), 1);
  EXPECT_EQ(std::wstring(buf), L"/abc/");
}

}  // namespace
