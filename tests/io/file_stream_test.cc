// The built-in file streams on real files.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "io/file_stream.h"
#include "support/temp_dir.h"
#include "support/test_data.h"
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
  test::TempDir dir_;
};

// Reads, short reads and the end of the file are checked by the model below.
TEST_F(FileStreamTest, OpenedAgainAStreamStartsOverAtTheBeginning) {
  auto p = dir_.Write("a.bin", "0123456789");
  TMXStream* s = Make(p, false);
  ASSERT_EQ(s->ops->Open(s, TMX_STREAM_READ), TMX_OK);
  char buf[8] = {};
  EXPECT_EQ(s->ops->Seek(s, 8), TMX_OK);
  EXPECT_EQ(s->ops->Read(s, buf, 8, nullptr), TMX_OK);
  EXPECT_EQ(s->ops->Read(s, nullptr, 1, nullptr), TMX_ERR_READ);
  ASSERT_EQ(s->ops->Open(s, TMX_STREAM_READ), TMX_OK);
  EXPECT_EQ(s->ops->Tell(s), 0u);
  EXPECT_EQ(s->ops->Read(s, buf, 3, nullptr), TMX_OK);
  EXPECT_EQ(std::string(buf, 3), "012");
  EXPECT_EQ(s->ops->Close(s), TMX_OK);
}

// Random Seek, Read, Write, Tell, GetSize and reopening checked call by call
// against a model of the file; seeks favour the read-ahead window's edges, so
// bytes served from the window are compared with what earlier writes left.
TEST_F(FileStreamTest, AgreesWithAModelOfTheFile) {
  constexpr std::uint32_t kWindow = kFileBufferSize;
  constexpr std::uint32_t kReadSizes[] = {0,    1,           3,       4,           16,
                                          1000, kWindow - 1, kWindow, kWindow + 1, 2 * kWindow + 7};
  constexpr std::uint32_t kWriteSizes[] = {0, 1, 4, 100, kWindow + 3};
  for (std::uint32_t seed = 1; seed <= 4; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 rng(seed);
    auto below = [&](std::uint64_t n) { return std::uint32_t(rng() % n); };
    std::string model(3 * kWindow + 1234, '\0');
    for (char& c : model) c = char(rng());
    const auto p = dir_.Write("model.bin", model);
    TMXStream* s = Make(p, true);
    ASSERT_EQ(s->ops->Open(s, TMX_STREAM_READ_WRITE), TMX_OK);
    std::uint64_t pos = 0;
    std::vector<char> out(2 * kWindow + 7);
    for (int step = 0; step < 1500; ++step) {
      const std::uint32_t op = below(10);
      if (op < 2) {
        const std::int64_t around[] = {std::int64_t(pos), std::int64_t(below(5)) * kWindow,
                                       std::int64_t(model.size()), below(model.size())};
        const std::int64_t target =
            std::max<std::int64_t>(0, around[below(4)] + std::int64_t(below(9)) - 4);
        ASSERT_EQ(s->ops->Seek(s, std::uint32_t(target)), TMX_OK);
        pos = std::uint64_t(target);
      } else if (op < 5) {
        const std::uint32_t count = kReadSizes[below(std::size(kReadSizes))];
        const std::uint64_t n =
            pos < model.size() ? std::min<std::uint64_t>(count, model.size() - pos) : 0;
        std::int32_t done = -1;
        ASSERT_EQ(s->ops->Read(s, out.data(), std::int32_t(count), &done),
                  n > 0 ? TMX_OK : TMX_ERR_READ)
            << "read " << count << " at " << pos;
        ASSERT_EQ(done, std::int32_t(n));
        ASSERT_EQ(std::string(out.data(), n),
                  model.substr(std::min<std::uint64_t>(pos, model.size()), n))
            << "at " << pos;
        pos += n;
      } else if (op < 7) {
        std::string data(kWriteSizes[below(std::size(kWriteSizes))], '\0');
        for (char& c : data) c = char(rng());
        std::int32_t done = -1;
        ASSERT_EQ(s->ops->Write(s, data.data(), std::int32_t(data.size()), &done),
                  data.empty() ? TMX_ERR_WRITE : TMX_OK);
        ASSERT_EQ(done, std::int32_t(data.size()));
        // Writing nothing changes nothing; writing past the end leaves zeros in between.
        if (data.empty()) continue;
        if (model.size() < pos + data.size()) model.resize(pos + data.size(), '\0');
        model.replace(pos, data.size(), data);
        pos += data.size();
      } else if (op == 7) {
        ASSERT_EQ(s->ops->Tell(s), std::uint32_t(pos));
      } else if (op == 8) {
        ASSERT_EQ(s->ops->GetSize(s), std::uint32_t(model.size()));
      } else if (below(10) == 0) {
        ASSERT_EQ(s->ops->Close(s), TMX_OK);
        s = Make(p, true);
        ASSERT_EQ(s->ops->Open(s, TMX_STREAM_READ_WRITE), TMX_OK);
        pos = 0;
      }
    }
    ASSERT_EQ(s->ops->Close(s), TMX_OK);
    EXPECT_EQ(test::ReadFileText(p), model);
  }
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
  EXPECT_EQ(test::ReadFileText(p), "abc");
}

TEST_F(FileStreamTest, CreateMakesTheFileAndKeepsExistingBytes) {
  auto p = dir_.path() / "new.pos";
  TMXStream* s = Make(p, true);
  ASSERT_EQ(s->ops->Create(s), TMX_OK);
  std::int32_t done = 0;
  EXPECT_EQ(s->ops->Write(s, "hello", 5, &done), TMX_OK);
  EXPECT_EQ(done, 5);
  EXPECT_EQ(s->ops->Close(s), TMX_OK);
  EXPECT_EQ(test::ReadFileText(p), "hello");

  // OPEN_ALWAYS: an existing file is opened, not truncated.
  s = Make(p, true);
  ASSERT_EQ(s->ops->Create(s), TMX_OK);
  EXPECT_EQ(s->ops->Seek(s, 1), TMX_OK);
  EXPECT_EQ(s->ops->Write(s, "EL", 2, nullptr), TMX_OK);
  EXPECT_EQ(s->ops->Close(s), TMX_OK);
  EXPECT_EQ(test::ReadFileText(p), "hELlo");
}

TEST_F(FileStreamTest, OpenNeedsAnExistingFileAndAKnownMode) {
  TMXStream* s = Make(dir_.path() / "absent", true);
  EXPECT_EQ(s->ops->Open(s, 2), TMX_ERR_ARGUMENT);
  EXPECT_EQ(s->ops->Open(s, -1), TMX_ERR_ARGUMENT);
  EXPECT_EQ(s->ops->Open(s, TMX_STREAM_READ), TMX_ERR_FILE);
  EXPECT_FALSE(std::filesystem::exists(dir_.path() / "absent"));
  // Close after a failed open: -2, and the object is not freed ...
  EXPECT_EQ(s->ops->Close(s), TMX_ERR_HANDLE);
  // ... so the owner still has to release it. Unopened, it reports no handle.
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

  // An open without memory for its read buffer leaves the file neither open nor locked.
  auto path = dir_.Write("a.bin", "abc");
  s = Make(path, true);
  testing::FailAllocation(1);
  EXPECT_EQ(s->ops->Open(s, TMX_STREAM_READ_WRITE), TMX_ERR_MEMORY);
  testing::FailAllocation(0);
  EXPECT_EQ(s->ops->Tell(s), TMX_STREAM_UNKNOWN);
  TMXStream* other = Make(path, true);
  EXPECT_EQ(other->ops->Open(other, TMX_STREAM_READ_WRITE), TMX_OK);
  EXPECT_EQ(other->ops->Close(other), TMX_OK);
  DisposeFileStream(s);
}

TEST_F(FileStreamTest, NonAsciiPathsAreConvertedForTheSystem) {
  std::wstring wide = dir_.path().wstring() + L"/H\u00f6rbuch \u6545.tmx";
#ifdef _WIN32
  // Named in UTF-16 on disk, as the wide path says.
  std::ofstream(std::filesystem::path(wide), std::ios::binary) << "12345";
#else
  // Named in UTF-8 on disk, handed to the library as wide characters.
  std::ofstream(dir_.path().string() + "/H\xC3\xB6rbuch \xE6\x95\x85.tmx", std::ios::binary)
      << "12345";
#endif
  TMXStream* s = MakeFileStream(wide.c_str(), false);
  ASSERT_NE(s, nullptr);
  ASSERT_EQ(s->ops->Open(s, TMX_STREAM_READ), TMX_OK);
  EXPECT_EQ(s->ops->GetSize(s), 5u);
  EXPECT_EQ(s->ops->Close(s), TMX_OK);
}

}  // namespace
}  // namespace tmx
