// Inputs that once made the library misbehave, replayed as the fuzz targets
// run them: a programme must be refused or served, and no allocation may be
// larger than the input plus a fixed 64 KiB, whether the stream tells its
// size or not. The sanitizer build sees any access outside a buffer.
#include <gtest/gtest.h>

#include <filesystem>

#include "exercise.h"
#include "support/memory_stream.h"
#include "support/test_data.h"
#include "util/alloc.h"

namespace tmx {
namespace {

constexpr std::size_t kAllocationSlack = 64 * 1024;

// How a finding is replayed: opened and played as a programme, or handed
// to the decoders as raw frames.
enum class Replay { kProgramme, kDecoders };

struct Finding {
  const char* file;
  Replay replay;
  std::int32_t open;  // programmes: whether the stream tells its size or not
};

const Finding kFindings[] = {
    // A "chap" list claiming 940 million track IDs inside a 14 KB file, and
    // a chapter title whose record claims 4 GB: both hold boxes that run past
    // their parents.
    {"chapter-list-3gb.tmx", Replay::kProgramme, TMX_ERR_INCONSISTENT},
    {"chapter-title-4gb.tmx", Replay::kProgramme, TMX_ERR_INCONSISTENT},
    // Speech packets whose output would not fit the buffer offered.
    {"speech-output-past-capacity.bin", Replay::kDecoders, TMX_OK},
};

TEST(Findings, RefusedOrServedWithinTheirSize) {
  for (const Finding& finding : kFindings) {
    const auto bytes =
        test::ReadFileBytes(std::filesystem::path(TMX_TEST_DATA_DIR) / "crashes" / finding.file);
    ASSERT_FALSE(bytes.empty()) << finding.file;
    if (finding.replay == Replay::kDecoders) {
      testing::TakeLargestRequest();
      fuzz::DecodeRawInput(bytes.data(), bytes.size());
      EXPECT_LE(testing::TakeLargestRequest(), bytes.size() + kAllocationSlack);
      continue;
    }
    for (bool unknownSize : {false, true}) {
      SCOPED_TRACE(std::string(finding.file) + (unknownSize ? ", size unknown" : ""));
      const std::int64_t live = testing::LiveAllocations();
      testing::TakeLargestRequest();
      test::MemoryStream stream(bytes);
      stream.set_unknown_size(unknownSize);
      TMXFile* file = nullptr;
      const std::int32_t rc = TMXOpenFile(&file, stream.stream(), nullptr);
      EXPECT_EQ(rc, finding.open);
      if (rc == TMX_OK) {
        fuzz::ExerciseProgramme(file);
        TMXCloseFile(file);
      }
      EXPECT_LE(testing::TakeLargestRequest(), bytes.size() + kAllocationSlack);
      EXPECT_EQ(testing::LiveAllocations(), live);
    }
  }
}

}  // namespace
}  // namespace tmx
