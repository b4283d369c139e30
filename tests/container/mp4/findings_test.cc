// Files that once made the library misbehave, replayed as a player would use
// them: each must be refused or served, and no allocation may be larger than
// the file plus a fixed 64 KiB, whether the stream tells its size or not.
#include <gtest/gtest.h>

#include <filesystem>

#include "exercise.h"
#include "support/memory_stream.h"
#include "support/test_data.h"
#include "util/alloc.h"

namespace tmx {
namespace {

constexpr std::size_t kAllocationSlack = 64 * 1024;

struct Finding {
  const char* file;
  std::int32_t open;  // whether the stream tells its size or not
};

// A "chap" list claiming 940 million track IDs inside a 14 KB file, and a
// chapter title whose record claims 4 GB: both hold boxes that run past
// their parents.
const Finding kFindings[] = {
    {"chapter-list-3gb.tmx", TMX_ERR_INCONSISTENT},
    {"chapter-title-4gb.tmx", TMX_ERR_INCONSISTENT},
};

TEST(Findings, RefusedOrServedWithinTheirSize) {
  for (const Finding& finding : kFindings) {
    const auto bytes =
        test::ReadFileBytes(std::filesystem::path(TMX_TEST_DATA_DIR) / "crashes" / finding.file);
    ASSERT_FALSE(bytes.empty()) << finding.file;
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
