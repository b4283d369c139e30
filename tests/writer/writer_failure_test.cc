// Invalid input, stream and allocation failures, and bounded memory use.
#include <gtest/gtest.h>

#include "util/alloc.h"
#include "writer/programme_view.h"

namespace tmx::writer::test {
namespace {

using tmx::test::MemoryStream;

std::int32_t WriteResult(const ProgrammeSpec& plan) {
  MemoryStream out;
  return WriteProgramme(plan, out.stream());
}

TEST(WriterErrors, RejectsInvalidInput) {
  const ProgrammeSpec good = SpecWithFrames(10);
  ProgrammeSpec s = good;
  s.side.chapters = {{500, "b"}, {100, "a"}};
  EXPECT_EQ(WriteResult(s), TMX_ERR_ARGUMENT) << "chapters out of order";
  s = good;
  s.side.chapters = {{0, std::string(65536, 'x')}};
  EXPECT_EQ(WriteResult(s), TMX_ERR_ARGUMENT) << "title too long";
  s = good;
  s.side.links = {{0, "c", std::string(256, 'u')}};
  EXPECT_EQ(WriteResult(s), TMX_ERR_ARGUMENT) << "address too long";
  s = good;
  s.side.pictures = {{0, 4, {0xFF, 0xD8}}};
  EXPECT_EQ(WriteResult(s), TMX_ERR_ARGUMENT) << "quality out of range";
  s = good;
  s.side.pictures = {{0, 3, {}}};
  EXPECT_EQ(WriteResult(s), TMX_ERR_ARGUMENT) << "empty picture";
  s = good;
  s.side.pictures = {{9, 2, {1}}, {0, 3, {1}}, {5, 2, {1}}};
  EXPECT_EQ(WriteResult(s), TMX_ERR_ARGUMENT) << "pictures of one quality out of order";
  for (std::uint32_t perChunk : {0u, 4097u}) {
    s = good;
    s.options.framesPerChunk = perChunk;
    EXPECT_EQ(WriteResult(s), TMX_ERR_ARGUMENT) << perChunk << " frames per chunk";
  }
  s = good;
  s.frames[3].clear();
  EXPECT_EQ(WriteResult(s), TMX_ERR_ARGUMENT) << "empty frame";
  s = good;
  s.audioSpecificConfig = {0x13};
  EXPECT_EQ(WriteResult(s), TMX_ERR_ARGUMENT) << "short config";
  s = good;
  s.frames.clear();
  EXPECT_EQ(WriteResult(s), TMX_ERR_INCONSISTENT) << "no audio";
}

TEST(WriterErrors, NeedsAWritableSeekableOutput) {
  ProgrammeSpec plan = SpecWithFrames(10);
  for (bool noSeek : {false, true}) {
    MemoryStream out;
    if (noSeek) {
      out.ops().Seek = nullptr;
    } else {
      out.ops().Write = nullptr;
    }
    EXPECT_EQ(WriteProgramme(plan, out.stream()), TMX_ERR_STREAM_OPS);
  }
  EXPECT_EQ(WriteProgramme(plan, nullptr), TMX_ERR_ARGUMENT);
}

TEST(WriterErrors, CallsOutOfOrderAndAfterFailureAreRefused) {
  ProgrammeWriter writer;
  const std::uint8_t frame[] = {1, 2, 3};
  EXPECT_EQ(writer.AddFrame(frame), TMX_ERR_ARGUMENT);
  EXPECT_EQ(writer.Finish(), TMX_ERR_ARGUMENT);
  MemoryStream out;
  out.fail_write(1);
  AudioConfig config;
  ASSERT_EQ(ParseAudioSpecificConfig(kAsc22050Stereo, &config), 0);
  SideTracks side;
  WriterOptions options;
  options.framesPerChunk = 1;
  ASSERT_EQ(writer.Begin(out.stream(), config, side, options), 0);  // still buffered
  for (int i = 0; i < 3; ++i) EXPECT_EQ(writer.AddFrame(frame), 0);
  EXPECT_EQ(writer.Finish(), TMX_ERR_WRITE);
  EXPECT_EQ(writer.AddFrame(frame), TMX_ERR_WRITE);
  EXPECT_EQ(writer.Finish(), TMX_ERR_WRITE);
}

// A programme large enough that its output buffer is written several times
// and its tables outgrow the spool's buffer.
ProgrammeSpec LargeSpec() {
  ProgrammeSpec plan = SpecWithFrames(9000);
  plan.options.framesPerChunk = 4;
  plan.side.chapters = {{0, "one"}, {60000, "two"}};
  plan.side.pictures = {{0, 3, {0xFF, 0xD8, 0xFF, 0xD9}}};
  plan.side.metadata = {TextItem(kItemTitle, "t")};
  return plan;
}

TEST(WriterErrors, EveryWriteFailureIsReported) {
  const ProgrammeSpec plan = LargeSpec();
  for (int k = 1;; ++k) {
    MemoryStream scratch;
    ProgrammeSpec s = plan;
    s.options.scratch = scratch.stream();
    MemoryStream out;
    out.fail_write(k);
    const std::int32_t rc = WriteProgramme(s, out.stream());
    if (rc == 0) {
      EXPECT_GT(k, 5) << "the output should take several writes";
      break;
    }
    ASSERT_EQ(rc, TMX_ERR_WRITE) << "write " << k;
  }
  // Failures of the scratch stream are reported as well.
  for (int k : {1, 2}) {
    MemoryStream scratch;
    scratch.fail_write(k);
    ProgrammeSpec s = plan;
    s.options.scratch = scratch.stream();
    MemoryStream out;
    EXPECT_EQ(WriteProgramme(s, out.stream()), TMX_ERR_WRITE);
  }
  MemoryStream scratch;
  scratch.fail_read(1);
  ProgrammeSpec s = plan;
  s.options.scratch = scratch.stream();
  MemoryStream out;
  EXPECT_EQ(WriteProgramme(s, out.stream()), TMX_ERR_READ);
}

TEST(WriterErrors, EveryAllocationFailureGivesMemoryErrorAndLeaksNothing) {
  const ProgrammeSpec plan = LargeSpec();
  const std::int64_t live = tmx::testing::LiveAllocations();
  for (std::uint64_t k = 1;; ++k) {
    MemoryStream out;
    tmx::testing::FailAllocation(k);
    const std::int32_t rc = WriteProgramme(plan, out.stream());
    tmx::testing::FailAllocation(0);
    EXPECT_EQ(tmx::testing::LiveAllocations(), live) << "allocation " << k;
    if (rc == 0) {
      EXPECT_GT(k, 4u);
      break;
    }
    ASSERT_EQ(rc, TMX_ERR_MEMORY) << "allocation " << k;
  }
}

TEST(WriterStreaming, ScratchStreamAndTemporaryFileGiveTheSameFile) {
  ProgrammeSpec plan = LargeSpec();
  const std::vector<std::uint8_t> viaTemporaryFile = Write(plan);
  MemoryStream scratch;
  plan.options.scratch = scratch.stream();
  EXPECT_EQ(Write(plan), viaTemporaryFile);
  EXPECT_GT(scratch.data().size(), 9000u * 4) << "the tables went to the scratch stream";
}

// Writes `frames` generated frames through the streaming interface and
// returns how many allocations the writer made.
std::uint64_t AllocationsFor(std::uint32_t frames) {
  AudioConfig config;
  EXPECT_EQ(ParseAudioSpecificConfig(kAsc22050Stereo, &config), 0);
  SideTracks side;
  side.chapters = {{0, "a"}, {1000, "b"}};
  WriterOptions options;
  MemoryStream scratch;
  options.scratch = scratch.stream();
  MemoryStream out;
  const std::uint64_t before = tmx::testing::AllocationCount();
  {
    ProgrammeWriter writer;
    EXPECT_EQ(writer.Begin(out.stream(), config, side, options), 0);
    std::vector<std::uint8_t> frame(300, 0x55);
    for (std::uint32_t i = 0; i < frames; ++i) EXPECT_EQ(writer.AddFrame(frame), 0);
    EXPECT_EQ(writer.Finish(), 0);
  }
  return tmx::testing::AllocationCount() - before;
}

TEST(WriterStreaming, AllocationsDoNotGrowWithTheProgramme) {
  // The writer's own memory is a fixed set of blocks: ten times the frames
  // take the same allocations.
  EXPECT_EQ(AllocationsFor(2000), AllocationsFor(20000));
}

}  // namespace
}  // namespace tmx::writer::test
