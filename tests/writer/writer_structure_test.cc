// The layout of written programmes: top-level atoms, the audio track's
// tables and sample description, chunk headers in the media data, side
// tracks and metadata.
#include <gtest/gtest.h>

#include <algorithm>

#include "io/stream_io.h"
#include "support/mp4_builder.h"
#include "writer/programme_view.h"

namespace tmx::writer::test {
namespace {

using tmx::test::Be32;
using tmx::test::Concat;
using tmx::test::V;

// A chunk header in the media data, as the reader decodes it.
struct ChunkHeader {
  std::uint32_t pos, headerSize, type, startMs, firstSample, trackId, total, count;
  std::vector<std::uint32_t> sizes;
};

// Walks the chunk headers of "mdat" from its start to its end; each must
// follow the previous chunk's samples directly.
std::vector<ChunkHeader> ReadChunks(ProgrammeView& view) {
  const Atom mdat = view.Find("mdat");
  std::vector<ChunkHeader> chunks;
  std::uint32_t pos = mdat.payload();
  while (pos < mdat.end()) {
    ChunkHeader h{pos,
                  view.U32(pos),
                  view.U32(pos + 4),
                  view.U32(pos + 8),
                  view.U32(pos + 12),
                  view.U32(pos + 16),
                  view.U32(pos + 20),
                  view.U32(pos + 24),
                  {}};
    EXPECT_EQ(h.headerSize, (h.count + 7) * 4);
    std::uint32_t sum = 0;
    for (std::uint32_t i = 0; i < h.count; ++i) {
      h.sizes.push_back(view.U32(pos + 28 + 4 * i));
      sum += h.sizes.back();
    }
    EXPECT_EQ(sum, h.total);
    if (h.headerSize == 0) break;
    pos += h.headerSize + h.total;
    chunks.push_back(std::move(h));
  }
  EXPECT_EQ(pos, mdat.end());
  return chunks;
}

TEST(WriterLayout, TopLevelAtomsAndBrands) {
  for (auto [brand, code] :
       {std::pair{Brand::kTmx, FourCC("tmx ")}, std::pair{Brand::kM4b, FourCC("m4b ")},
        std::pair{Brand::kMp4, FourCC("mp42")}}) {
    ProgrammeSpec plan = SpecWithFrames(30);
    plan.options.brand = brand;
    plan.options.minorVersion = 0x200;
    ProgrammeView view(Write(plan));
    const std::vector<Atom> top = view.TopLevel();
    ASSERT_EQ(top.size(), 3u);
    EXPECT_EQ(top[0].type, FourCC("ftyp"));
    EXPECT_EQ(top[1].type, FourCC("mdat"));
    EXPECT_EQ(top[2].type, FourCC("moov"));
    EXPECT_EQ(top[2].end(), view.bytes().size());
    EXPECT_EQ(view.U32(8), code);
    EXPECT_EQ(view.U32(12), 0x200u);
    EXPECT_EQ(view.U32(16), code) << "the major brand is also compatible";
  }
}

TEST(WriterLayout, AudioTrackTablesDescribeTheFrames) {
  // 47 frames in chunks of 10: four full chunks and one of 7.
  ProgrammeSpec plan = SpecWithFrames(47);
  plan.options.framesPerChunk = 10;
  ProgrammeView view(Write(plan));
  const std::vector<Atom> tracks = view.Tracks();
  ASSERT_EQ(tracks.size(), 1u);
  const Atom& audio = tracks[0];
  const Atom tkhd = view.Find(audio, "tkhd");
  EXPECT_EQ(view.U32(tkhd.payload()) & 0x1000, 0x1000u) << "main track flag";
  EXPECT_EQ(view.TrackId(audio), 1u);
  EXPECT_EQ(view.U32(view.Find(audio, "mdia/mdhd").payload() + 12), 22050u);
  EXPECT_EQ(view.U32(view.Find(audio, "mdia/hdlr").payload() + 8), FourCC("soun"));
  EXPECT_EQ(view.SampleEntryType(audio), FourCC("mp4a"));
  EXPECT_EQ(view.Entries(audio, "stts", 2), (std::vector<std::uint32_t>{47, 1024}));
  // Four full chunks, the rest but one frame, then a chunk of the last frame.
  EXPECT_EQ(view.Entries(audio, "stsc", 3),
            (std::vector<std::uint32_t>{1, 10, 1, 5, 6, 1, 6, 1, 1}));

  const std::vector<std::uint32_t> sizes = view.SampleSizes(audio);
  ASSERT_EQ(sizes.size(), 47u);
  const std::vector<std::uint32_t> offsets = view.ChunkOffsets(audio);
  ASSERT_EQ(offsets.size(), 6u);
  // Every chunk offset points just behind a chunk header, and the samples
  // found through the tables are the frames given.
  std::uint32_t frame = 0;
  for (std::uint32_t c = 0; c < offsets.size(); ++c) {
    const std::uint32_t n = c < 4 ? 10 : c == 4 ? 6 : 1;
    const std::uint32_t header = offsets[c] - (n + 7) * 4;
    EXPECT_EQ(view.U32(header), (n + 7) * 4);
    EXPECT_EQ(view.U32(header + 4), FourCC("mp4a"));
    EXPECT_EQ(view.U32(header + 8), frame * 40960 / 882) << "start ms of frame " << frame;
    EXPECT_EQ(view.U32(header + 12), frame);
    EXPECT_EQ(view.U32(header + 16), 1u);
    EXPECT_EQ(view.U32(header + 24), n);
    std::uint32_t pos = offsets[c];
    for (std::uint32_t i = 0; i < n; ++i, ++frame) {
      EXPECT_EQ(view.U32(header + 28 + 4 * i), sizes[frame]);
      EXPECT_EQ(view.Slice(pos, sizes[frame]), plan.frames[frame]) << "frame " << frame;
      pos += sizes[frame];
    }
  }
  EXPECT_EQ(view.U32(view.Find("moov/mvhd").payload() + 16), 47 * 1024 * 1000 / 22050u);
}

ProgrammeSpec SpecWithSideTracks() {
  ProgrammeSpec plan = SpecWithFrames(100);  // 100 frames of 46 ms at 22050 Hz
  plan.options.framesPerChunk = 8;
  plan.side.chapters = {{0, "Start"}, {1000, "Zweites Kapitel"}, {3000, ""}};
  plan.side.links = {{0, "Home", "http://example.org/"}, {2000, "Más", "x"}};
  const std::vector<std::uint8_t> jpegA = {0xFF, 0xD8, 0xFF, 0xD9};
  const std::vector<std::uint8_t> jpegB = {0xFF, 0xD8, 1, 2, 3, 0xFF, 0xD9};
  plan.side.pictures = {{0, 1, jpegA}, {0, 3, jpegB}, {2500, 1, jpegB}, {2500, 3, jpegA}};
  return plan;
}

TEST(WriterLayout, SideTracksAreNamedByChapAndTimedInAudioSamples) {
  ProgrammeSpec plan = SpecWithSideTracks();
  ProgrammeView view(Write(plan));
  const std::vector<Atom> tracks = view.Tracks();
  ASSERT_EQ(tracks.size(), 5u);
  const Atom chap = view.Find(tracks[0], "tref/chap");
  EXPECT_EQ(view.Slice(chap.payload(), chap.size - 8),
            (std::vector<std::uint8_t>{0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0, 5}));
  EXPECT_EQ(view.SampleEntryType(tracks[1]), FourCC("text"));
  EXPECT_EQ(view.SampleEntryType(tracks[2]), FourCC("tx3g"));
  EXPECT_EQ(view.SampleEntryType(tracks[3]), FourCC("jpeg"));
  EXPECT_EQ(view.SampleEntryType(tracks[4]), FourCC("jpeg"));

  // 1000 ms is frame 22 (21.5 rounded), 3000 ms frame 65; the last chapter
  // lasts to the end of the audio.
  EXPECT_EQ(view.Entries(tracks[1], "stts", 2),
            (std::vector<std::uint32_t>{1, 22 * 1024, 1, 43 * 1024, 1, 35 * 1024}));
  EXPECT_EQ(view.Entries(tracks[1], "stsc", 3), (std::vector<std::uint32_t>{1, 1, 1}));
  EXPECT_EQ(view.SampleSizes(tracks[1]), (std::vector<std::uint32_t>{19, 29, 14}));
  EXPECT_EQ(view.U32(view.Find(tracks[1], "mdia/mdhd").payload() + 12), 22050u);

  // Picture renditions: quality in mdhd bits 0xC0, a shared alternate
  // group, the main flag on the first listed one only.
  for (int i : {3, 4}) {
    const std::uint32_t tkhd = view.Find(tracks[i], "tkhd").payload();
    EXPECT_EQ(view.U16(tkhd + 34), 1u) << "alternate group";
    EXPECT_EQ(view.U32(tkhd) & 0x1000, i == 3 ? 0x1000u : 0u);
    EXPECT_EQ(view.U16(view.Find(tracks[i], "mdia/mdhd").payload() + 22), i == 3 ? 0x40u : 0xC0u);
    EXPECT_EQ(view.Entries(tracks[i], "stts", 2),
              (std::vector<std::uint32_t>{1, 54 * 1024, 1, 46 * 1024}));
  }
  EXPECT_EQ(view.SampleSizes(tracks[3]), (std::vector<std::uint32_t>{4, 7}));
  EXPECT_EQ(view.SampleSizes(tracks[4]), (std::vector<std::uint32_t>{7, 4}));
}

TEST(WriterLayout, SideSamplesHaveTheirLayoutsAndChunkHeaders) {
  ProgrammeSpec plan = SpecWithSideTracks();
  ProgrammeView view(Write(plan));
  const std::vector<Atom> tracks = view.Tracks();

  const std::vector<std::uint32_t> titles = view.ChunkOffsets(tracks[1]);
  ASSERT_EQ(titles.size(), 3u);
  // [length]["Zweites Kapitel"][encd box]
  const std::uint32_t t = titles[1];
  EXPECT_EQ(view.U16(t), 15u);
  EXPECT_EQ(view.Slice(t + 2, 15), std::vector<std::uint8_t>(plan.side.chapters[1].title.begin(),
                                                             plan.side.chapters[1].title.end()));
  EXPECT_EQ(view.U32(t + 17), 12u);
  EXPECT_EQ(view.U32(t + 21), FourCC("encd"));
  // Its chunk header: one sample, index 1, the track's ID, time of frame 22.
  EXPECT_EQ(view.Slice(t - 32, 32), Concat({Be32(32), V("text"), Be32(22 * 40960 / 882), Be32(1), Be32(2), Be32(29), Be32(1), Be32(29)}));

  // [length]["Más"][href box: size, type, start, end, url length, url, 0]
  const std::uint32_t l = view.ChunkOffsets(tracks[2])[1];
  EXPECT_EQ(view.Slice(l, 2 + 4 + 15),
            (std::vector<std::uint8_t>{0,   4,   'M', 0xC3, 0xA1, 's', 0, 0, 0,   15, 'h',
                                       'r', 'e', 'f', 0,    0,    0,   3, 1, 'x', 0}));
  EXPECT_EQ(view.U32(l - 32 + 4), FourCC("tx3g"));

  const std::uint32_t p = view.ChunkOffsets(tracks[4])[1];
  EXPECT_EQ(view.Slice(p, 4), plan.side.pictures[3].jpeg);
  EXPECT_EQ(view.U32(p - 32 + 16), 5u);
}

TEST(WriterLayout, ChunksOfAllTracksRunInTimeOrder) {
  ProgrammeSpec plan = SpecWithSideTracks();
  ProgrammeView view(Write(plan));
  const std::vector<ChunkHeader> chunks = ReadChunks(view);
  std::uint32_t audioChunks = 0;
  std::uint32_t sideChunks = 0;
  std::uint32_t lastStart = 0;
  for (const ChunkHeader& c : chunks) {
    EXPECT_GE(c.startMs, lastStart) << "chunk at " << c.pos;
    lastStart = c.startMs;
    if (c.type == FourCC("mp4a")) {
      EXPECT_EQ(c.firstSample, audioChunks < 13 ? audioChunks * 8 : 99u);
      ++audioChunks;
    } else {
      ++sideChunks;
      EXPECT_EQ(c.count, 1u);
    }
  }
  EXPECT_EQ(audioChunks, 14u);
  EXPECT_EQ(sideChunks, 3u + 2 + 4);
  EXPECT_EQ(chunks.front().type, FourCC("text")) << "side samples at 0 precede the audio";
  EXPECT_EQ(chunks.back().type, FourCC("mp4a"));
}

TEST(WriterLayout, SideSamplesAfterTheLastChunkStartPrecedeIt) {
  ProgrammeSpec plan = SpecWithFrames(20);
  plan.options.framesPerChunk = 10;
  plan.side.chapters = {{0, "a"}, {800, "b"}};  // frame 17, after the last chunk's start
  ProgrammeView view(Write(plan));
  const std::vector<ChunkHeader> chunks = ReadChunks(view);
  ASSERT_EQ(chunks.size(), 5u);  // a, frames 0-9, frames 10-18, b, frame 19
  EXPECT_EQ(chunks[3].type, FourCC("text"));
  EXPECT_EQ(chunks[4].type, FourCC("mp4a"));
  EXPECT_EQ(chunks[4].firstSample, 19u);
}

TEST(WriterLayout, PlainFilesHaveNoChunkHeaders) {
  ProgrammeSpec plan = SpecWithFrames(25);
  plan.options.chunkHeaders = false;
  plan.options.framesPerChunk = 10;
  plan.side.chapters = {{0, "only"}};
  ProgrammeView view(Write(plan));
  const std::vector<Atom> tracks = view.Tracks();
  const Atom mdat = view.Find("mdat");
  // The title sample, then the frames back to back.
  EXPECT_EQ(view.ChunkOffsets(tracks[1]), (std::vector<std::uint32_t>{mdat.payload()}));
  std::uint32_t pos = mdat.payload() + 2 + 4 + 12;
  const std::vector<std::uint32_t> offsets = view.ChunkOffsets(tracks[0]);
  ASSERT_EQ(offsets.size(), 4u);  // frames 0-9, 10-19, 20-23, 24
  const std::uint32_t firsts[4] = {0, 10, 20, 24};
  for (std::uint32_t i = 0, c = 0; i < 25; ++i) {
    if (c < 4 && i == firsts[c]) {
      EXPECT_EQ(offsets[c++], pos);
    }
    EXPECT_EQ(view.Slice(pos, std::uint32_t(plan.frames[i].size())), plan.frames[i]);
    pos += std::uint32_t(plan.frames[i].size());
  }
  EXPECT_EQ(pos, mdat.end());
}

TEST(WriterLayout, MetadataItemsHoldOneDataAtomPerVariant) {
  ProgrammeSpec plan = SpecWithFrames(5);
  plan.side.metadata = {TextItem(kItemTitle, "Title"), TextItem(kItemNarrator, "N")};
  plan.side.metadata[0].variants.push_back({kDataUtf16, 0x656E0000, {0, 'T'}});
  ProgrammeView view(Write(plan));
  const Atom meta = view.Find("moov/udta/meta");
  EXPECT_EQ(view.U32(meta.payload()), 0u) << "version and flags";
  EXPECT_EQ(view.U32(view.Find(meta, "hdlr").payload() + 8), FourCC("mdir"));
  const std::vector<Atom> items = view.Children(view.Find(meta, "ilst"));
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[0].type, kItemTitle);
  EXPECT_EQ(items[1].type, kItemNarrator);
  const std::vector<Atom> data = view.Children(items[0]);
  ASSERT_EQ(data.size(), 2u);
  EXPECT_EQ(
      view.Slice(data[0].pos, data[0].size),
      Concat({Be32(21), V("data"), Be32(1), Be32(0), V("Title")}));
  EXPECT_EQ(
      view.Slice(data[1].pos, data[1].size),
      Concat({Be32(18), V("data"), Be32(2), Be32(0x656E0000), {0, 'T'}}));
}

TEST(WriterLayout, ShortProgrammesStillHaveAChunkBeforeTheLast) {
  ProgrammeView view(Write(SpecWithFrames(3)));
  const Atom audio = view.Tracks()[0];
  EXPECT_EQ(view.Entries(audio, "stsc", 3), (std::vector<std::uint32_t>{1, 2, 1, 2, 1, 1}));
  EXPECT_EQ(view.ChunkOffsets(audio).size(), 2u);
  ProgrammeView single(Write(SpecWithFrames(1)));
  EXPECT_EQ(single.Entries(single.Tracks()[0], "stsc", 3), (std::vector<std::uint32_t>{1, 1, 1}));
}

}  // namespace
}  // namespace tmx::writer::test
