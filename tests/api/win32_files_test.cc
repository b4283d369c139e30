// Files on Windows: wide paths with characters outside ASCII, the 260
// character limit on real files, and the position file's attributes.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "io/file_stream.h"
#include "support/temp_dir.h"
#include "tmxsdk.h"

namespace tmx {
namespace {

class Win32Files : public ::testing::Test {
 protected:
  // The sample programme copied to `name` in the temporary directory.
  std::wstring CopySample(const std::wstring& name) {
    const std::filesystem::path to = dir_.path() / name;
    std::filesystem::copy_file(TMX_SAMPLE_PROGRAMME, to);
    return to.wstring();
  }
  test::TempDir dir_;
};

TEST_F(Win32Files, NonAsciiPathOpensAndItsPositionFileIsHiddenAndSystem) {
  const std::wstring book = CopySample(L"H\u00f6rbuch \u6545\u4e8b.tmx");
  const std::wstring pos = (dir_.path() / L"H\u00f6rbuch \u6545\u4e8b.pos").wstring();
  TMXFile* file = nullptr;
  ASSERT_EQ(TMXOpenFileWinW(&file, book.c_str()), TMX_OK);
  std::uint32_t type = 0;
  EXPECT_EQ(TMXGetFileType(file, &type), TMX_OK);
  EXPECT_EQ(type, std::uint32_t(TMX_FILETYPE_TMX));
  EXPECT_EQ(GetFileAttributesW(pos.c_str()), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(TMXSeek(file, 1000), TMX_OK);
  EXPECT_EQ(TMXSavePlaybackPosition(file, 1), TMX_OK);
  EXPECT_EQ(TMXCloseFile(file), TMX_OK);
  const DWORD attributes = GetFileAttributesW(pos.c_str());
  ASSERT_NE(attributes, INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(attributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM),
            DWORD(FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM));
  // Opened again, the programme takes up the saved position.
  ASSERT_EQ(TMXOpenFileWinW(&file, book.c_str()), TMX_OK);
  std::uint32_t ms = 0;
  EXPECT_EQ(TMXGetPlaybackPosition(file, &ms), TMX_OK);
  EXPECT_GT(ms, 0u);
  EXPECT_LE(ms, 1000u);
  EXPECT_EQ(TMXCloseFile(file), TMX_OK);
}

TEST_F(Win32Files, ExistingFilesWithPathsOf260CharactersAreRefused) {
  // A directory deep enough that its files' paths pass 260 characters,
  // made through the \\?\ form that lifts the system's own limit.
  std::wstring deep = dir_.path().wstring();
  ASSERT_LT(deep.size(), 240u);
  while (deep.size() < 250) {
    deep += L"\\" + std::wstring(std::min<std::size_t>(40, 249 - deep.size()), L'd');
    ASSERT_TRUE(CreateDirectoryW((L"\\\\?\\" + deep).c_str(), nullptr)) << GetLastError();
  }
  // Fill to exactly 259 and 260 characters.
  const std::wstring base = deep + L"\\";
  const std::wstring fits = base + std::wstring(259 - base.size(), L'a');
  const std::wstring over = base + std::wstring(260 - base.size(), L'b');
  for (const std::wstring& p : {fits, over}) {
    HANDLE h = CreateFileW((L"\\\\?\\" + p).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    CloseHandle(h);
  }
  TMXStream* s = MakeFileStream(fits.c_str(), false);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->ops->Open(s, TMX_STREAM_READ), TMX_OK);
  EXPECT_EQ(s->ops->Close(s), TMX_OK);
  EXPECT_EQ(MakeFileStream(over.c_str(), false), nullptr);
  TMXFile* file = nullptr;
  EXPECT_EQ(TMXOpenFileWinW(&file, over.c_str()), TMX_ERR_FILE);
  EXPECT_EQ(file, nullptr);
  // The temporary directory's own removal goes through the long form too.
  std::filesystem::remove_all(L"\\\\?\\" + dir_.path().wstring());
}

}  // namespace
}  // namespace tmx
