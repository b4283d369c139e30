// The layout of written programmes: top-level atoms, the audio track's
// tables and sample description, chunk headers in the media data and side
// tracks. Metadata written is read back by the tool's tests.
#include <gtest/gtest.h>

#include "writer/programme_view.h"

namespace tmx::writer::test {
namespace {

using tmx::test::Be16, tmx::test::Be32, tmx::test::Concat, tmx::test::V;

// A chunk header in the media data, as the reader decodes it.
struct ChunkHeader {
  std::uint32_t pos, type, startMs, firstSample, count;
};

// Walks the chunk headers of "mdat" from its start to its end; each must
// follow the previous chunk's samples directly.
std::vector<ChunkHeader> ReadChunks(const ProgrammeView& view) {
  const Atom mdat = view.Find("mdat");
  std::vector<ChunkHeader> chunks;
  std::uint32_t pos = mdat.payload();
  while (pos < mdat.end()) {
    const ChunkHeader h{pos, view.U32(pos + 4), view.U32(pos + 8), view.U32(pos + 12),
                        view.U32(pos + 24)};
    EXPECT_EQ(view.U32(pos), (h.count + 7) * 4);
    std::uint32_t sum = 0;
    for (std::uint32_t i = 0; i < h.count; ++i) sum += view.U32(pos + 28 + 4 * i);
    EXPECT_EQ(sum, view.U32(pos + 20));
    if (view.U32(pos) == 0) break;
    pos += view.U32(pos) + sum;
    chunks.push_back(h);
  }
  EXPECT_EQ(pos, mdat.end());
  return chunks;
}

TEST(WriterLayout, AudioTrackTablesDescribeTheFrames) {
  // 47 frames in chunks of 10: four full chunks and one of 7.
  ProgrammeSpec plan = SpecWithFrames(47);
  plan.options.framesPerChunk = 10;
  const ProgrammeView view(Write(plan));
  ASSERT_EQ(view.Tracks().size(), 1u);
  const Atom audio = view.Tracks()[0];
  const Atom tkhd = view.Find(audio, "tkhd");
  EXPECT_EQ(view.U32(tkhd.payload()) & 0x1000, 0x1000u) << "main track flag";
  EXPECT_EQ(view.U32(tkhd.payload() + 12), 1u) << "track ID";
  EXPECT_EQ(view.U32(view.Find(audio, "mdia/mdhd").payload() + 12), 22050u);
  EXPECT_EQ(view.U32(view.Find(audio, "mdia/hdlr").payload() + 8), FourCC("soun"));
  EXPECT_EQ(view.SampleEntryType(audio), FourCC("mp4a"));
  EXPECT_EQ(view.Entries(audio, "stts", 2), (std::vector<std::uint32_t>{47, 1024}));
  // Four full chunks, the rest but one frame, then a chunk of the last frame.
  EXPECT_EQ(view.Entries(audio, "stsc", 3),
            (std::vector<std::uint32_t>{1, 10, 1, 5, 6, 1, 6, 1, 1}));

  const std::vector<std::uint32_t> sizes = view.Entries(audio, "stsz");
  ASSERT_EQ(sizes.size(), 47u);
  const std::vector<std::uint32_t> offsets = view.Entries(audio, "stco");
  ASSERT_EQ(offsets.size(), 6u);
  // Every chunk offset points just behind a chunk header (size, type, start
  // ms, first sample, track, bytes, samples, their sizes), and the samples
  // found through the tables are the frames given.
  for (std::uint32_t c = 0, frame = 0; c < offsets.size(); ++c) {
    const std::uint32_t n = c < 4 ? 10 : c == 4 ? 6 : 1;
    ByteVec sizesBe, samples;
    for (std::uint32_t i = 0; i < n; ++i) {
      sizesBe = Concat({sizesBe, Be32(sizes[frame + i])});
      samples = Concat({samples, plan.frames[frame + i]});
    }
    const ByteVec header =
        Concat({Be32((n + 7) * 4), V("mp4a"), Be32(frame * 40960 / 882), Be32(frame), Be32(1),
                Be32(std::uint32_t(samples.size())), Be32(n), sizesBe});
    EXPECT_EQ(view.Slice(offsets[c] - (n + 7) * 4, std::uint32_t(header.size() + samples.size())),
              Concat({header, samples}))
        << "chunk " << c;
    frame += n;
  }
  EXPECT_EQ(view.U32(view.Find("moov/mvhd").payload() + 16), 47 * 1024 * 1000 / 22050u);

  // Short programmes still have a chunk before the one of the last frame.
  for (auto [frames, stsc] : {std::pair{3u, std::vector<std::uint32_t>{1, 2, 1, 2, 1, 1}},
                              std::pair{1u, std::vector<std::uint32_t>{1, 1, 1}}}) {
    const ProgrammeView small(Write(SpecWithFrames(frames)));
    EXPECT_EQ(small.Entries(small.Tracks().at(0), "stsc", 3), stsc) << frames;
  }
}

TEST(WriterLayout, SideTracksTheirSamplesAndChunksInTimeOrder) {
  ProgrammeSpec plan = SpecWithFrames(100);  // 100 frames of 46 ms at 22050 Hz
  plan.options.framesPerChunk = 8;
  plan.side.chapters = {{0, "Start"}, {1000, "Zweites Kapitel"}, {3000, ""}};
  plan.side.links = {{0, "Home", "http://example.org/"}, {2000, "Más", "x"}};
  const ByteVec jpegA = {0xFF, 0xD8, 0xFF, 0xD9}, jpegB = {0xFF, 0xD8, 1, 2, 3, 0xFF, 0xD9};
  plan.side.pictures = {{0, 1, jpegA}, {0, 3, jpegB}, {2500, 1, jpegB}, {2500, 3, jpegA}};
  const ProgrammeView view(Write(plan));
  const std::vector<Atom> tracks = view.Tracks();
  ASSERT_EQ(tracks.size(), 5u);
  const Atom chap = view.Find(tracks[0], "tref/chap");
  EXPECT_EQ(view.Slice(chap.payload(), chap.size - 8),
            Concat({Be32(2), Be32(3), Be32(4), Be32(5)}));
  const std::uint32_t entries[] = {FourCC("text"), FourCC("tx3g"), FourCC("jpeg"), FourCC("jpeg")};
  for (int i = 1; i < 5; ++i) EXPECT_EQ(view.SampleEntryType(tracks[i]), entries[i - 1]) << i;

  // 1000 ms is frame 22 (21.5 rounded), 3000 ms frame 65; the last chapter
  // lasts to the end of the audio.
  EXPECT_EQ(view.Entries(tracks[1], "stts", 2),
            (std::vector<std::uint32_t>{1, 22 * 1024, 1, 43 * 1024, 1, 35 * 1024}));
  EXPECT_EQ(view.Entries(tracks[1], "stsc", 3), (std::vector<std::uint32_t>{1, 1, 1}));
  EXPECT_EQ(view.Entries(tracks[1], "stsz"), (std::vector<std::uint32_t>{19, 29, 14}));
  EXPECT_EQ(view.U32(view.Find(tracks[1], "mdia/mdhd").payload() + 12), 22050u);

  // Picture renditions: quality in mdhd bits 0xC0, a shared alternate
  // group, the main flag on the first listed one only.
  for (int i : {3, 4}) {
    const std::uint32_t tkhd = view.Find(tracks[i], "tkhd").payload();
    EXPECT_EQ(view.U32(tkhd + 34) >> 16, 1u) << "alternate group";
    EXPECT_EQ(view.U32(tkhd) & 0x1000, i == 3 ? 0x1000u : 0u);
    EXPECT_EQ(view.U32(view.Find(tracks[i], "mdia/mdhd").payload() + 22) >> 16,
              i == 3 ? 0x40u : 0xC0u);
    EXPECT_EQ(view.Entries(tracks[i], "stts", 2),
              (std::vector<std::uint32_t>{1, 54 * 1024, 1, 46 * 1024}));
  }
  EXPECT_EQ(view.Entries(tracks[3], "stsz"), (std::vector<std::uint32_t>{4, 7}));
  EXPECT_EQ(view.Entries(tracks[4], "stsz"), (std::vector<std::uint32_t>{7, 4}));

  // [length]["Zweites Kapitel"][encd box], behind its chunk header: one
  // sample, index 1, the track's ID, the time of frame 22.
  const std::uint32_t t = view.Entries(tracks[1], "stco").at(1);
  EXPECT_EQ(view.Slice(t - 32, 32 + 2 + 15 + 8),
            Concat({Be32(32), V("text"), Be32(22 * 40960 / 882), Be32(1), Be32(2), Be32(29),
                    Be32(1), Be32(29), Be16(15), V("Zweites Kapitel"), Be32(12), V("encd")}));
  // [length]["Más"][href box: size, type, start, end, url length, url, 0]
  const std::uint32_t l = view.Entries(tracks[2], "stco").at(1);
  EXPECT_EQ(view.Slice(l, 2 + 4 + 15),
            Concat({{0, 4}, V("Más"), Be32(15), V("href"), {0, 0, 0, 3, 1, 'x', 0}}));
  EXPECT_EQ(view.U32(l - 32 + 4), FourCC("tx3g"));
  const std::uint32_t p = view.Entries(tracks[4], "stco").at(1);
  EXPECT_EQ(view.Slice(p, 4), plan.side.pictures[3].jpeg);
  EXPECT_EQ(view.U32(p - 32 + 16), 5u);

  // Chunks of all tracks run in time order; side samples at 0 precede the
  // audio.
  const std::vector<ChunkHeader> chunks = ReadChunks(view);
  std::uint32_t audioChunks = 0, sideChunks = 0, lastStart = 0;
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
  EXPECT_EQ(chunks.front().type, FourCC("text"));
  EXPECT_EQ(chunks.back().type, FourCC("mp4a"));
}

}  // namespace
}  // namespace tmx::writer::test
