// Invalid input, stream and allocation failures, and bounded memory use.
#include <gtest/gtest.h>

#include "support/fault_loops.h"
#include "writer/programme_view.h"

namespace tmx::writer::test {
namespace {

using tmx::test::MemoryStream;

std::int32_t WriteResult(const ProgrammeSpec& plan) {
  MemoryStream out;
  return WriteProgramme(plan, out.stream());
}

TEST(WriterErrors, RejectsInvalidInput) {
  auto expect = [](const char* what, auto change, std::int32_t rc = TMX_ERR_ARGUMENT) {
    ProgrammeSpec s = SpecWithFrames(10);
    change(s);
    EXPECT_EQ(WriteResult(s), rc) << what;
  };
  expect("chapters out of order", [](auto& s) { s.side.chapters = {{500, "b"}, {100, "a"}}; });
  expect("title too long", [](auto& s) { s.side.chapters = {{0, std::string(65536, 'x')}}; });
  expect("address too long", [](auto& s) { s.side.links = {{0, "c", std::string(256, 'u')}}; });
  expect("quality out of range", [](auto& s) { s.side.pictures = {{0, 4, {0xFF, 0xD8}}}; });
  expect("empty picture", [](auto& s) { s.side.pictures = {{0, 3, {}}}; });
  expect("pictures of one quality out of order", [](auto& s) {
    s.side.pictures = {{9, 2, {1}}, {0, 3, {1}}, {5, 2, {1}}};
  });
  expect("no frames per chunk", [](auto& s) { s.options.framesPerChunk = 0; });
  expect("4097 frames per chunk", [](auto& s) { s.options.framesPerChunk = 4097; });
  expect("empty frame", [](auto& s) { s.frames[3].clear(); });
  expect("short config", [](auto& s) { s.audioSpecificConfig = {0x13}; });
  expect(
      "no audio", [](auto& s) { s.frames.clear(); }, TMX_ERR_INCONSISTENT);
}

TEST(WriterErrors, BadOutputsAndCallsOutOfOrderOrAfterFailureAreRefused) {
  const ProgrammeSpec plan = SpecWithFrames(10);
  MemoryStream noWrite, noSeek;
  noWrite.ops().Write = nullptr;
  noSeek.ops().Seek = nullptr;
  EXPECT_EQ(WriteProgramme(plan, noWrite.stream()), TMX_ERR_STREAM_OPS);
  EXPECT_EQ(WriteProgramme(plan, noSeek.stream()), TMX_ERR_STREAM_OPS);
  EXPECT_EQ(WriteProgramme(plan, nullptr), TMX_ERR_ARGUMENT);

  ProgrammeWriter writer;
  const std::uint8_t frame[] = {1, 2, 3};
  EXPECT_EQ(writer.AddFrame(frame), TMX_ERR_ARGUMENT);
  EXPECT_EQ(writer.Finish(), TMX_ERR_ARGUMENT);
  MemoryStream out;
  out.fail_write(1);
  AudioConfig config;
  ASSERT_EQ(ParseAudioSpecificConfig(kAsc22050Stereo, &config), 0);
  const SideTracks side;
  ASSERT_EQ(writer.Begin(out.stream(), config, side, {.framesPerChunk = 1}), 0);  // still buffered
  for (int i = 0; i < 3; ++i) EXPECT_EQ(writer.AddFrame(frame), 0);
  EXPECT_EQ(writer.Finish(), TMX_ERR_WRITE);
  EXPECT_EQ(writer.AddFrame(frame), TMX_ERR_WRITE);
  EXPECT_EQ(writer.Finish(), TMX_ERR_WRITE);
}

// A programme large enough that its output buffer is written several times
// and its tables outgrow the spool's buffer.
ProgrammeSpec LargeSpec(std::uint32_t frames = 9000) {
  ProgrammeSpec plan = SpecWithFrames(frames);
  plan.options.framesPerChunk = 4;
  plan.side.chapters = {{0, "one"}, {60000, "two"}};
  plan.side.pictures = {{0, 3, {0xFF, 0xD8, 0xFF, 0xD9}}};
  plan.side.metadata = {TextItem(kItemTitle, "t")};
  return plan;
}

TEST(WriterErrors, EveryWriteFailureIsReported) {
  const ProgrammeSpec plan = LargeSpec();
  // The k-th write of the output, or a write or read of the scratch stream,
  // fails.
  auto write = [&](int outWrite, int scratchWrite, int scratchRead) {
    MemoryStream scratch, out;
    scratch.fail_write(scratchWrite);
    scratch.fail_read(scratchRead);
    out.fail_write(outWrite);
    ProgrammeSpec s = plan;
    s.options.scratch = scratch.stream();
    return WriteProgramme(s, out.stream());
  };
  int k = 1;
  std::int32_t rc;
  while ((rc = write(k, 0, 0)) == TMX_ERR_WRITE) ++k;
  EXPECT_EQ(rc, TMX_OK) << "write " << k;
  EXPECT_GT(k, 5) << "the output should take several writes";
  EXPECT_EQ(write(0, 1, 0), TMX_ERR_WRITE);
  EXPECT_EQ(write(0, 2, 0), TMX_ERR_WRITE);
  EXPECT_EQ(write(0, 0, 1), TMX_ERR_READ);
}

// Every failed allocation gives -10 and leaks nothing. The writer's own
// memory is a fixed set of blocks: ten times the frames take the same
// allocations.
TEST(WriterErrors, EveryAllocationFailureIsReportedAndTheirNumberIsFixed) {
  int made[2];
  for (std::uint32_t frames : {2000u, 20000u}) {
    const ProgrammeSpec plan = LargeSpec(frames);
    made[frames > 2000] =
        tmx::test::FailEachAllocation({"write", [&] { return WriteResult(plan); }});
  }
  EXPECT_GT(made[0], 4);
  EXPECT_EQ(made[0], made[1]);
}

}  // namespace
}  // namespace tmx::writer::test
