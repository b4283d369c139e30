// Speech-coded programmes of the older container, written with the
// project's writer and decoded through TMXDecodePCMFrame.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "codec/speech/decoder.h"
#include "codec/speech/layout.h"
#include "speech_test_util.h"
#include "support/memory_stream.h"
#include "tmxsdk.h"
#include "writer/legacy_writer.h"

namespace tmx::speech {
namespace {

struct Programme {
  std::unique_ptr<::tmx::test::MemoryStream> stream;
  TMXFile* file = nullptr;
  std::vector<std::uint8_t> packets;
  ~Programme() {
    if (file) TMXCloseFile(file);
  }
};

// A programme of the clip's packets in `mode`, from sample `start` on.
void Open(int mode, Programme* p, std::ptrdiff_t start = 0) {
  const std::vector<std::int16_t> pcm = test::LoadClip(mode == 3 ? "speech8k" : "speech16k");
  p->packets = test::Encode(
      mode, std::vector<std::int16_t>(pcm.begin() + start, pcm.begin() + start + 32000));
  writer::LegacyProgramme programme;
  programme.codecId = mode == 3 ? writer::kLegacyCodecSpeech8 : writer::kLegacyCodecSpeech16;
  const std::size_t size = LayoutForMode(mode)->packetBytes;
  for (std::size_t i = 0; i < p->packets.size(); i += size)
    programme.frames.emplace_back(p->packets.begin() + i, p->packets.begin() + i + size);
  ::tmx::test::MemoryStream out;
  ASSERT_EQ(writer::WriteLegacyProgramme(programme, out.stream(), nullptr), TMX_OK);
  p->stream = std::make_unique<::tmx::test::MemoryStream>(out.data());
  ASSERT_EQ(TMXOpenFile(&p->file, p->stream->stream(), nullptr), TMX_OK);
}

std::vector<std::int16_t> DecodeDirectly(int mode, const std::uint8_t* packets, std::size_t n) {
  const ModeLayout& layout = *LayoutForMode(mode);
  DecoderState state;
  InitDecoder(&state, mode);
  std::vector<std::int16_t> out;
  for (std::size_t p = 0; p < n; ++p) {
    Word16 params[kMaxFields + 1], pcm[kMaxFrame];
    ReadFrameParams(layout, packets + p * layout.packetBytes, 0, params);
    DecodeFrame(&state, params, pcm);
    out.insert(out.end(), pcm, pcm + layout.samplesPerFrame);
  }
  return out;
}

TEST(SpeechProgramme, DecodesLikeTheDecoderItself) {
  for (int mode : {3, 4}) {
    Programme p;
    Open(mode, &p);
    ASSERT_NE(p.file, nullptr);
    std::uint32_t type = 0;
    TMXGetFileType(p.file, &type);
    EXPECT_EQ(type, mode == 3 ? 6u : 5u);
    const ModeLayout& layout = *LayoutForMode(mode);
    // Ten packets a call, as a player would hand them over.
    std::vector<std::int16_t> got, pcm(10 * layout.samplesPerFrame);
    const std::size_t count = p.packets.size() / layout.packetBytes;
    for (std::size_t i = 0; i + 10 <= count; i += 10) {
      std::uint32_t length = 0;
      ASSERT_EQ(TMXDecodePCMFrame(p.file, p.packets.data() + i * layout.packetBytes,
                                  10 * layout.packetBytes, pcm.data(),
                                  std::uint32_t(pcm.size() * 2), &length),
                TMX_OK);
      ASSERT_EQ(length, pcm.size() * 2);
      got.insert(got.end(), pcm.begin(), pcm.end());
    }
    EXPECT_EQ(got, DecodeDirectly(mode, p.packets.data(), count / 10 * 10)) << mode;
  }
}

// After a seek the next decode starts from a fresh decoder state.
TEST(SpeechProgramme, ASeekResetsTheDecoder) {
  Programme p;
  Open(3, &p);
  ASSERT_NE(p.file, nullptr);
  std::vector<std::int16_t> pcm(144 * 20);
  std::uint32_t length = 0;
  ASSERT_EQ(TMXDecodePCMFrame(p.file, p.packets.data(), 19 * 20, pcm.data(), 144 * 40, &length),
            TMX_OK);
  ASSERT_EQ(TMXSeek(p.file, 1000), TMX_OK);
  const std::uint8_t* later = p.packets.data() + 19 * 100;
  ASSERT_EQ(TMXDecodePCMFrame(p.file, later, 19 * 20, pcm.data(), 144 * 40, &length), TMX_OK);
  EXPECT_EQ(pcm, DecodeDirectly(3, later, 20));
}

// Every file has a decoder of its own: two programmes decoded in turn, a
// packet of one then a packet of the other, give the samples of each alone.
TEST(SpeechProgramme, ProgrammesDecodedInTurnKeepTheirOwnDecoder) {
  for (const auto& [modeA, modeB] : {std::pair{3, 4}, std::pair{3, 3}}) {
    Programme a, b;
    Open(modeA, &a);
    Open(modeB, &b, 20000);
    ASSERT_NE(a.file, nullptr);
    ASSERT_NE(b.file, nullptr);
    const ModeLayout& la = *LayoutForMode(modeA);
    const ModeLayout& lb = *LayoutForMode(modeB);
    const std::size_t count =
        std::min(a.packets.size() / la.packetBytes, b.packets.size() / lb.packetBytes);
    std::vector<std::int16_t> gotA, gotB;
    std::int16_t pcm[kMaxFrame];
    for (std::size_t i = 0; i < count; ++i) {
      std::uint32_t length = 0;
      ASSERT_EQ(TMXDecodePCMFrame(a.file, a.packets.data() + i * la.packetBytes, la.packetBytes,
                                  pcm, sizeof pcm, &length),
                TMX_OK);
      ASSERT_EQ(length, la.samplesPerFrame * 2u);
      gotA.insert(gotA.end(), pcm, pcm + la.samplesPerFrame);
      ASSERT_EQ(TMXDecodePCMFrame(b.file, b.packets.data() + i * lb.packetBytes, lb.packetBytes,
                                  pcm, sizeof pcm, &length),
                TMX_OK);
      ASSERT_EQ(length, lb.samplesPerFrame * 2u);
      gotB.insert(gotB.end(), pcm, pcm + lb.samplesPerFrame);
    }
    EXPECT_EQ(gotA, DecodeDirectly(modeA, a.packets.data(), count)) << modeA << " " << modeB;
    EXPECT_EQ(gotB, DecodeDirectly(modeB, b.packets.data(), count)) << modeA << " " << modeB;
  }
}

}  // namespace
}  // namespace tmx::speech
