// The built-in file streams on real files.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "io/file_stream.h"
#include "support/temp_dir.h"
#include "util/alloc.h"

namespace tmx {
namespace {

class FileStreamTest : public ::testing::Test {
 protected:
  TMXStream* Make(const std::filesystem::path& p, bool writable) {
    TMXStream* s = MakeFileStream(p.wstring().c_str(), writable);
    EXPECT_NE(s, nullptr);
    return s;
  }
  static std::string Contents(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  test::TempDir dir_;
};

TEST_F(FileStreamTest, ReadsWithShortReadsAndEndOfFile) {
  auto p = dir_.Write("a.bin", "0123456789");
  TMXStream* s = Make(p, false);
  ASSERT_EQ(s->ops->Open(s, TMX_STREAM_READ), TMX_OK);
  EXPECT_EQ(s->ops->GetSize(s), 10u);
  char buf[8] = {};
  std::int32_t done = -1;
  EXPECT_EQ(s->ops->Read(s, buf, 4, &done), TMX_OK);
  EXPECT_EQ(done, 4);
  EXPECT_EQ(std::string(buf, 4), "0123");
  EXPECT_EQ(s->ops->Tell(s), 4u);
  // A short read that returns at least one byte succeeds.
  EXPECT_EQ(s->ops->Seek(s, 8), TMX_OK);
  EXPECT_EQ(s->ops->Read(s, buf, 8, &done), TMX_OK);
  EXPECT_EQ(done, 2);
  // At the end: -3 with a zero count.
  EXPECT_EQ(s->ops->Read(s, buf, 8, &done), TMX_ERR_READ);
  EXPECT_EQ(done, 0);
  // Seeking past the end succeeds; the next read fails.
  EXPECT_EQ(s->ops->Seek(s, 1000), TMX_OK);
  EXPECT_EQ(s->ops->Read(s, buf, 1, nullptr), TMX_ERR_READ);
  EXPECT_EQ(s->ops->Close(s), TMX_OK);
}

TEST_F(FileStreamTest, InputStreamsNeverWriteOrCreate) {
  auto p = dir_.Write("a.bin", "abc");
  TMXStream* s = Make(p, false);
  std::int32_t done = 0;
  EXPECT_EQ(s->ops->Create(s), TMX_ERR_FILE);
  EXPECT_EQ(s->ops->Create(nullptr), TMX_ERR_ARGUMENT);
  ASSERT_EQ(s->ops->Open(s, TMX_STREAM_READ_WRITE), TMX_OK);
  EXPECT_EQ(s->ops->Write(s, "x", 1, &done), TMX_ERR_WRITE);
  EXPECT_EQ(s->ops->Write(s, "x", -1, &done), TMX_ERR_ARGUMENT);
  EXPECT_EQ(s->ops->Write(s, nullptr, 1, &done), TMX_ERR_ARGUMENT);
  EXPECT_EQ(s->ops->Write(s, "x", 1, nullptr), TMX_ERR_ARGUMENT);
  EXPECT_EQ(s->ops->Close(s), TMX_OK);
  EXPECT_EQ(Contents(p), "abc");
}

TEST_F(FileStreamTest, CreateMakesTheFileAndKeepsExistingBytes) {
  auto p = dir_.path() / "new.pos";
  TMXStream* s = Make(p, true);
  ASSERT_EQ(s->ops->Create(s), TMX_OK);
  std::int32_t done = 0;
  EXPECT_EQ(s->ops->Write(s, "hello", 5, &done), TMX_OK);
  EXPECT_EQ(done, 5);
  EXPECT_EQ(s->ops->Close(s), TMX_OK);
  EXPECT_EQ(Contents(p), "hello");

  // OPEN_ALWAYS: an existing file is opened, not truncated.
  s = Make(p, true);
  ASSERT_EQ(s->ops->Create(s), TMX_OK);
  EXPECT_EQ(s->ops->Seek(s, 1), TMX_OK);
  EXPECT_EQ(s->ops->Write(s, "EL", 2, nullptr), TMX_OK);
  EXPECT_EQ(s->ops->Close(s), TMX_OK);
  EXPECT_EQ(Contents(p), "hELlo");
}

TEST_F(FileStreamTest, OpenNeedsAnExistingFileAndAKnownMode) {
  TMXStream* s = Make(dir_.path() / "absent", true);
  EXPECT_EQ(s->ops->Open(s, 2), TMX_ERR_ARGUMENT);
  EXPECT_EQ(s->ops->Open(s, -1), TMX_ERR_ARGUMENT);
  EXPECT_EQ(s->ops->Open(s, TMX_STREAM_READ), TMX_ERR_FILE);
  EXPECT_FALSE(std::filesystem::exists(dir_.path() / "absent"));
  // Close after a failed open: -2, and the object is not freed ...
  EXPECT_EQ(s->ops->Close(s), TMX_ERR_HANDLE);
  // ... so the owner still has to release it.
  DisposeFileStream(s);
}

TEST_F(FileStreamTest, UnopenedStreamsReportNoHandle) {
  TMXStream* s = Make(dir_.path() / "x", true);
  char c;
  EXPECT_EQ(s->ops->GetSize(s), TMX_STREAM_UNKNOWN);
  EXPECT_EQ(s->ops->Tell(s), TMX_STREAM_UNKNOWN);
  EXPECT_EQ(s->ops->Seek(s, 0), TMX_ERR_HANDLE);
  EXPECT_EQ(s->ops->Read(s, &c, 1, nullptr), TMX_ERR_HANDLE);
  EXPECT_EQ(s->ops->Write(s, &c, 1, nullptr), TMX_ERR_HANDLE);
  DisposeFileStream(s);
}

TEST_F(FileStreamTest, ReadersShareAWriterDoesNot) {
  auto p = dir_.Write("shared.bin", "data");
  TMXStream* r1 = Make(p, false);
  TMXStream* r2 = Make(p, false);
  TMXStream* w = Make(p, true);
  ASSERT_EQ(r1->ops->Open(r1, TMX_STREAM_READ), TMX_OK);
  EXPECT_EQ(r2->ops->Open(r2, TMX_STREAM_READ), TMX_OK);
  EXPECT_EQ(w->ops->Open(w, TMX_STREAM_READ_WRITE), TMX_ERR_FILE);
  EXPECT_EQ(r1->ops->Close(r1), TMX_OK);
  EXPECT_EQ(r2->ops->Close(r2), TMX_OK);
  EXPECT_EQ(w->ops->Open(w, TMX_STREAM_READ_WRITE), TMX_OK);
  EXPECT_EQ(w->ops->Close(w), TMX_OK);
}

TEST_F(FileStreamTest, CallerAllocatedStreamsAreFreedByClose) {
  auto p = dir_.Write("mine.bin", "xyz");
  auto* fs = static_cast<TMXFileStream*>(std::calloc(1, sizeof(TMXFileStream)));
  ASSERT_EQ(TMXInitIOStream(reinterpret_cast<TMXStream*>(fs), nullptr),
            reinterpret_cast<TMXStream*>(fs));
  EXPECT_EQ(fs->ops, &kReadWriteFileOps);
  auto wide = p.wstring();
  std::copy(wide.begin(), wide.end(), fs->path);
  auto* s = reinterpret_cast<TMXStream*>(fs);
  ASSERT_EQ(s->ops->Open(s, TMX_STREAM_READ), TMX_OK);
  EXPECT_EQ(s->ops->GetSize(s), 3u);
  EXPECT_EQ(s->ops->Close(s), TMX_OK);  // frees fs; LeakSanitizer checks
}

TEST_F(FileStreamTest, InitialisersChooseTheirTables) {
  TMXStream s{};
  const TMXStreamOps custom{};
  EXPECT_EQ(TMXInitIOStream(nullptr, nullptr), nullptr);
  EXPECT_EQ(TMXInitInputStream(nullptr), nullptr);
  EXPECT_EQ(TMXInitIOStream(&s, &custom), &s);
  EXPECT_EQ(s.ops, &custom);
  TMXInitIOStream(&s, nullptr);
  EXPECT_EQ(s.ops, &kReadWriteFileOps);
  TMXInitInputStream(&s);
  EXPECT_EQ(s.ops, &kInputFileOps);
}

TEST_F(FileStreamTest, PathLimitAndAllocationFailure) {
  std::wstring p(259, L'a');
  TMXStream* s = MakeFileStream(p.c_str(), false);
  ASSERT_NE(s, nullptr);
  DisposeFileStream(s);
  p += L'a';
  EXPECT_EQ(MakeFileStream(p.c_str(), false), nullptr);
  EXPECT_EQ(MakeFileStream(nullptr, false), nullptr);
  testing::FailAllocation(1);
  EXPECT_EQ(MakeFileStream(L"x", true), nullptr);
  testing::FailAllocation(0);
}

TEST_F(FileStreamTest, NonAsciiPathsAreConvertedForTheSystem) {
  // Named in UTF-8 on disk, handed to the library as wide characters.
  std::ofstream(dir_.path().string() + "/H\xC3\xB6rbuch \xE6\x95\x85.tmx", std::ios::binary)
      << "12345";
  std::wstring wide = dir_.path().wstring() + L"/H\u00f6rbuch \u6545.tmx";
  TMXStream* s = MakeFileStream(wide.c_str(), false);
  ASSERT_NE(s, nullptr);
  ASSERT_EQ(s->ops->Open(s, TMX_STREAM_READ), TMX_OK);
  EXPECT_EQ(s->ops->GetSize(s), 5u);
  EXPECT_EQ(s->ops->Close(s), TMX_OK);
}

}  // namespace
}  // namespace tmx
