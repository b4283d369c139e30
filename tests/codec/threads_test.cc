// Two programmes played and decoded on two threads at once give exactly the
// PCM each gives alone: no decoder, reader or stream state is shared between
// files. The ThreadSanitizer build runs this too.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "speech/speech_test_util.h"
#include "support/memory_stream.h"
#include "support/test_data.h"
#include "writer/programme_view.h"

namespace tmx {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Pcm = std::vector<std::int16_t>;

Bytes AacProgramme(const char* clip) {
  const Bytes adts = test::ReadTestData(clip);  // the plan only points at it
  writer::ProgrammeSpec plan;
  plan.adts = adts;
  return writer::test::Write(plan);
}

Bytes SpeechProgramme(int mode) {
  return speech::test::LegacyProgramme(mode,
                                       speech::test::Encode(mode, speech::test::Clip(mode, 24000)));
}

// Plays the programme to its end, decoding every frame, twice over (the
// second pass after the reader started again at the beginning).
Pcm PlayAndDecode(const Bytes& bytes) {
  test::MemoryStream stream(bytes);
  TMXFile* file = nullptr;
  if (TMXOpenFile(&file, stream.stream(), nullptr) != TMX_OK) return {};
  Pcm all;
  std::vector<std::uint8_t> frame(8192);
  std::int16_t pcm[4096];
  for (int pass = 0; pass < 2; ++pass) {
    std::uint32_t n = 0;
    while (TMXGetEncodedAudio(file, frame.data(), std::int32_t(frame.size()), &n) == TMX_OK) {
      std::uint32_t length = 0;
      if (TMXDecodePCMFrame(file, frame.data(), n, pcm, sizeof pcm, &length) != TMX_OK) break;
      all.insert(all.end(), pcm, pcm + length / 2);
    }
  }
  TMXCloseFile(file);
  return all;
}

TEST(Threads, TwoProgrammesOnTwoThreadsDecodeAsEachAlone) {
  const Bytes programmes[] = {AacProgramme("music_stereo_22050.aac"),
                              AacProgramme("speech_mono_16000.aac"), SpeechProgramme(3),
                              SpeechProgramme(4)};
  Pcm alone[std::size(programmes)];
  for (std::size_t i = 0; i < std::size(programmes); ++i) {
    alone[i] = PlayAndDecode(programmes[i]);
    ASSERT_FALSE(alone[i].empty()) << i;
  }
  // AAC with AAC, AAC with speech, the two speech modes, and one speech
  // mode with itself.
  const std::pair<std::size_t, std::size_t> pairs[] = {{0, 1}, {0, 2}, {1, 3}, {2, 3}, {2, 2}};
  for (const auto& [a, b] : pairs) {
    Pcm gotA, gotB;
    std::thread first([&, a = a] { gotA = PlayAndDecode(programmes[a]); });
    std::thread second([&, b = b] { gotB = PlayAndDecode(programmes[b]); });
    first.join();
    second.join();
    EXPECT_EQ(gotA, alone[a]) << a << " beside " << b;
    EXPECT_EQ(gotB, alone[b]) << b << " beside " << a;
  }
}

}  // namespace
}  // namespace tmx
