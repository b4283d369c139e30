// Opening and closing: checks, ownership of the streams, handler, codec and defaults.
#include <gtest/gtest.h>

#include <filesystem>

#include "api/file.h"
#include "codec/codec.h"
#include "container/format_handler.h"
#include "support/memory_stream.h"
#include "support/mp4_builder.h"
#include "support/temp_dir.h"
#include "util/alloc.h"

namespace tmx {
namespace {

using test::Be32, test::ByteVec, test::Concat, test::MemoryStream, test::V;

// What a handle holds before an open: a failed open must overwrite it with
// null, so that a caller who closes it does not free it a second time.
TMXFile* const kStale = reinterpret_cast<TMXFile*>(alignof(TMXFile));

std::vector<std::uint8_t> TmxHeader() {
  return Concat({Be32(16), V("ftyp"), V("tmx "), Be32(0), ByteVec(16, 0)});
}

// A handler that opens every container with `openResult` and counts its closes.
struct FakeHandler {
  static inline int closes = 0;
  static inline std::int32_t openResult = 0;
  static std::int32_t Open(Container*, TMXStream*) noexcept { return openResult; }
  static std::int32_t Close(Container*) noexcept {
    ++closes;
    return 0;
  }
  static FormatHandler Table() {
    FormatHandler h = kNullHandler;
    h.OpenContainer = Open;
    h.CloseContainer = Close;
    return h;
  }
};

class OpenTest : public ::testing::Test {
 protected:
  void SetUp() override {
    FakeHandler::closes = 0;
    FakeHandler::openResult = 0;
    liveBefore_ = testing::LiveAllocations();
  }
  void TearDown() override {
    testing::OverrideHandler(nullptr);
    testing::FailAllocation(0);
    EXPECT_EQ(testing::LiveAllocations(), liveBefore_) << "memory leaked";
  }
  void UseFakeHandler() {
    table_ = FakeHandler::Table();
    testing::OverrideHandler(&table_);
  }
  FormatHandler table_{};
  std::int64_t liveBefore_ = 0;
};

TEST_F(OpenTest, ArgumentsAndEachRequiredOperationAreCheckedBeforeAnyWork) {
  EXPECT_EQ(TMXOpenFile(nullptr, nullptr, nullptr), TMX_ERR_HANDLE);
  TMXFile* stale = kStale;
  EXPECT_EQ(TMXOpenFile(&stale, nullptr, nullptr), TMX_ERR_STREAM_OPS);
  EXPECT_EQ(stale, nullptr);
  auto clear = std::vector<void (*)(TMXStreamOps&)>{
      [](TMXStreamOps& o) { o.Open = nullptr; }, [](TMXStreamOps& o) { o.Close = nullptr; },
      [](TMXStreamOps& o) { o.Read = nullptr; }, [](TMXStreamOps& o) { o.Seek = nullptr; },
      [](TMXStreamOps& o) { o.Tell = nullptr; }, [](TMXStreamOps& o) { o.GetSize = nullptr; },
  };
  for (auto& c : clear) {
    MemoryStream m(TmxHeader());
    c(m.ops());
    std::uint64_t allocations = testing::AllocationCount();
    TMXFile* file = kStale;
    EXPECT_EQ(TMXOpenFile(&file, m.stream(), nullptr), TMX_ERR_STREAM_OPS);
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(testing::AllocationCount(), allocations) << "allocated before the check";
    EXPECT_EQ(m.closes(), 0);
  }
  // Create and Write are optional.
  UseFakeHandler();
  MemoryStream m(TmxHeader());
  m.ops().Create = nullptr;
  m.ops().Write = nullptr;
  TMXFile* file = nullptr;
  ASSERT_EQ(TMXOpenFile(&file, m.stream(), nullptr), TMX_OK);
  EXPECT_EQ(TMXCloseFile(file), TMX_OK);
  // A failure before the record exists leaves the stream alone.
  MemoryStream noMemory(TmxHeader());
  file = kStale;
  testing::FailAllocation(1);
  EXPECT_EQ(TMXOpenFile(&file, noMemory.stream(), nullptr), TMX_ERR_MEMORY);
  EXPECT_EQ(file, nullptr);
  EXPECT_EQ(noMemory.closes(), 0);
}

TEST_F(OpenTest, FailedOpenPassesTheErrorOnAndClosesTheStreamOnce) {
  // Detection fails, the MP4 handler finds no movie, the null handler refuses
  // an ID3 stream: each time the stream is closed exactly once.
  const std::vector<std::pair<std::vector<std::uint8_t>, std::int32_t>> cases = {
      {std::vector<std::uint8_t>(64, 1), TMX_ERR_UNSUPPORTED},
      {std::vector<std::uint8_t>(8, 0), TMX_ERR_UNSUPPORTED},
      {TmxHeader(), TMX_ERR_INCONSISTENT},
      {Concat({V("ID3"), {3}, ByteVec(28, 0)}), TMX_ERR_UNSUPPORTED},
  };
  for (const auto& [bytes, expected] : cases) {
    MemoryStream m(bytes);
    TMXFile* file = kStale;
    EXPECT_EQ(TMXOpenFile(&file, m.stream(), nullptr), expected);
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(m.opens(), 1);
    EXPECT_EQ(m.last_open_mode(), TMX_STREAM_READ);
    EXPECT_EQ(m.closes(), 1);
  }
  // The stream's and the handler's open errors pass through.
  MemoryStream m(TmxHeader());
  m.ops().Open = [](TMXStream*, std::int32_t) -> std::int32_t { return TMX_ERR_FILE; };
  TMXFile* file = nullptr;
  EXPECT_EQ(TMXOpenFile(&file, m.stream(), nullptr), TMX_ERR_FILE);
  EXPECT_EQ(m.closes(), 1);

  UseFakeHandler();
  FakeHandler::openResult = TMX_ERR_INCONSISTENT;
  MemoryStream m2(TmxHeader());
  EXPECT_EQ(TMXOpenFile(&file, m2.stream(), nullptr), TMX_ERR_INCONSISTENT);
  EXPECT_EQ(m2.closes(), 1);
  EXPECT_EQ(FakeHandler::closes, 0) << "CloseContainer after a failed OpenContainer";
}

TEST_F(OpenTest, SuccessfulOpenSetsDefaultsAndCloseReleasesEverything) {
  UseFakeHandler();
  MemoryStream m(TmxHeader());
  MemoryStream position;
  TMXFile* file = nullptr;
  ASSERT_EQ(TMXOpenFile(&file, m.stream(), position.stream()), TMX_OK);
  EXPECT_EQ(file->fileType, std::uint32_t(TMX_FILETYPE_TMX));
  EXPECT_EQ(file->stream, m.stream());
  EXPECT_EQ(file->positionStream, position.stream());
  EXPECT_EQ(file->codec, CodecForFileType(TMX_FILETYPE_TMX));
  EXPECT_EQ(file->codecInstance, nullptr);

  std::uint32_t v = 99;
  EXPECT_EQ(TMXGetImageQuality(file, &v), TMX_OK);
  EXPECT_EQ(v, 3u);
  EXPECT_EQ(TMXGetUnicodeFormat(file, &v), TMX_OK);
  EXPECT_EQ(v, 0u);
  EXPECT_EQ(file->bookmarkBufferSize, 1024u);
  EXPECT_EQ(file->chapterTextEnabled | file->chapterLinksEnabled | file->chapterImagesEnabled |
                file->reader.adtsHeadersEnabled,
            0u);

  EXPECT_EQ(TMXCloseFile(file), TMX_OK);
  EXPECT_EQ(FakeHandler::closes, 1);
  EXPECT_EQ(m.closes(), 1);
  // The position stream was never opened, so it is not closed.
  EXPECT_EQ(position.closes(), 0);
  EXPECT_EQ(TMXCloseFile(nullptr), TMX_ERR_HANDLE);
  // An opened one is.
  ASSERT_EQ(TMXOpenFile(&file, m.stream(), position.stream()), TMX_OK);
  file->positionStreamOpen = 1;
  EXPECT_EQ(TMXCloseFile(file), TMX_OK);
  EXPECT_EQ(position.closes(), 1);
}

// Opening by path, with real files in a temporary directory.
class OpenPathTest : public OpenTest {
 protected:
  test::TempDir dir_;
};

TEST_F(OpenPathTest, ArgumentsAndUnopenableFiles) {
  TMXFile* file = kStale;
  EXPECT_EQ(TMXOpenFileWinW(nullptr, L"x"), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXOpenFileWinW(&file, nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(file, nullptr);
  auto missing = (dir_.path() / "missing.tmx").wstring();
  file = kStale;
  EXPECT_EQ(TMXOpenFileWinW(&file, missing.c_str()), TMX_ERR_FILE);
  EXPECT_EQ(file, nullptr);
  EXPECT_FALSE(std::filesystem::exists(dir_.path() / "missing.pos"));
  // Refused files free both streams.
  auto path = dir_.Write("noise.tmx", std::string(64, 'x')).wstring();
  file = kStale;
  EXPECT_EQ(TMXOpenFileWinW(&file, path.c_str()), TMX_ERR_UNSUPPORTED);
  EXPECT_EQ(file, nullptr);
  // Without memory for the input stream the file cannot be opened.
  testing::FailAllocation(1);
  EXPECT_EQ(TMXOpenFileWinW(&file, path.c_str()), TMX_ERR_FILE);
  testing::FailAllocation(0);
  // An opened file frees its position stream at close, opened or not (the
  // fixture checks for leaks).
  UseFakeHandler();
  const auto header = TmxHeader();
  path = dir_.Write("book.tmx", std::string(header.begin(), header.end())).wstring();
  ASSERT_EQ(TMXOpenFileWinW(&file, path.c_str()), TMX_OK);
  EXPECT_EQ(TMXCloseFile(file), TMX_OK);
}

// The handle is checked before the out pointer: null for both gives -2, not -18.
TEST(Getters, CheckTheHandleBeforeThePointer) {
  using Getter = std::int32_t (*)(TMXFile*, std::uint32_t*);
  TMXFile file{};
  for (Getter get :
       {TMXGetFileType, TMXGetSampleRate, TMXGetAvgBitrate, TMXGetMaxBitrate, TMXGetDuration,
        TMXGetAudioChannelCount, TMXGetChapterCount, TMXGetImageCount, TMXGetImageQuality,
        TMXGetUnicodeFormat, TMXGetLinkCount, TMXGetPlaybackPosition, TMXGetCurrentChapter}) {
    EXPECT_EQ(get(nullptr, nullptr), TMX_ERR_HANDLE);
    EXPECT_EQ(get(&file, nullptr), TMX_ERR_ARGUMENT);
  }
  for (auto set : {TMXEnableChapterText, TMXDisableChapterText, TMXEnableChapterLinks,
                   TMXDisableChapterLinks, TMXEnableChapterImages, TMXDisableChapterImages})
    EXPECT_EQ(set(nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXSetImageQuality(nullptr, 1), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXSetUnicodeFormat(nullptr, 1), TMX_ERR_HANDLE);
}

TEST(PositionPath, ReplacesTheLastDotInTheWholePath) {
  wchar_t out[TMX_PATH_CAPACITY];
  const std::pair<const wchar_t*, std::wstring> cases[] = {
      {L"/books/story.tmx", L"/books/story.pos"},
      {L"/books/story", L"/books/story.pos"},
      {L"/my.books/story", L"/my.pos"},  // a dot in a directory, none in the file name
      {L"a.b.c", L"a.b.pos"},
  };
  for (const auto& [path, expected] : cases) {
    ASSERT_TRUE(PositionPathFor(path, out));
    EXPECT_EQ(std::wstring(out), expected);
  }
  // The result must fit with its terminator.
  std::wstring longName(255, L'x');
  EXPECT_TRUE(PositionPathFor(longName.c_str(), out));
  longName += L'x';
  EXPECT_FALSE(PositionPathFor(longName.c_str(), out));
}

}  // namespace
}  // namespace tmx
