#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tmxsdk.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

#ifdef _WIN32
// The directory is the value TesmoraProgramsDir of HKLM\SOFTWARE\Tesmora.
constexpr wchar_t kKey[] = L"SOFTWARE\\Tesmora";
constexpr wchar_t kBooks[] = L"D:\\Media\\Books";
constexpr wchar_t kBooksSlash[] = L"D:\\Media\\Books\\";
constexpr wchar_t kFour[] = L"D:\\a";
constexpr wchar_t kFourSlash[] = L"D:\\a\\";

LONG SetDirectory(const std::wstring& value, DWORD type = REG_SZ) {
  HKEY key = nullptr;
  LONG rc = RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key,
                            nullptr);
  if (rc != ERROR_SUCCESS) return rc;
  rc = RegSetValueExW(key, L"TesmoraProgramsDir", 0, type,
                      reinterpret_cast<const BYTE*>(value.c_str()),
                      DWORD((value.size() + 1) * sizeof(wchar_t)));
  RegCloseKey(key);
  return rc;
}
void ClearDirectory() { RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKey); }
#else
// The directory is the environment variable TesmoraProgramsDir, in UTF-8.
constexpr wchar_t kBooks[] = L"/media/books";
constexpr wchar_t kBooksSlash[] = L"/media/books/";
constexpr wchar_t kFour[] = L"/abc";
constexpr wchar_t kFourSlash[] = L"/abc/";

int SetDirectory(const std::wstring& value) {
  return setenv("TesmoraProgramsDir", std::string(value.begin(), value.end()).c_str(), 1);
}
void ClearDirectory() { unsetenv("TesmoraProgramsDir"); }
#endif

class ProgramsPath : public ::testing::Test {
 protected:
  void SetUp() override { ClearDirectory(); }
  void TearDown() override { ClearDirectory(); }
};

TEST_F(ProgramsPath, AppendsASeparatorWhenMissingAndThereIsRoom) {
  wchar_t buf[64];
  EXPECT_EQ(TesmoraGetTMFilesPath(buf, 64), 0);  // not set
  const struct {
    const wchar_t* value;
    std::uint32_t room;
    std::int32_t rc;
    const wchar_t* path;
  } cases[] = {
      {kBooks, 64, 1, kBooksSlash},
      {kBooksSlash, 64, 1, kBooksSlash},
      {L"", 64, 0, nullptr},
      {kFour, 0, 0, nullptr},
      {kFour, 5, 0, nullptr},  // four characters fit, five do not
      {kFour, 6, 1, kFourSlash},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(SetDirectory(c.value), 0);
    EXPECT_EQ(TesmoraGetTMFilesPath(buf, c.room), c.rc) << c.room;
    if (c.path) {
      EXPECT_EQ(std::wstring(buf), c.path);
    }
  }
  EXPECT_EQ(TesmoraGetTMFilesPath(nullptr, 16), 0);
}

#ifdef _WIN32
TEST_F(ProgramsPath, OnlyAStringValueCounts) {
  ASSERT_EQ(SetDirectory(kBooks, REG_EXPAND_SZ), ERROR_SUCCESS);
  wchar_t buf[64];
  EXPECT_EQ(TesmoraGetTMFilesPath(buf, 64), 0);
}
#endif

}  // namespace
