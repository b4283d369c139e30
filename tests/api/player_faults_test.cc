// A player's whole session run again and again with its k-th allocation, or
// the k-th read of one of its streams, failing: the first journaled call that
// differs from the undisturbed run must report the failure, nothing may leak
// and the programme's bytes stay as they were.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "codec/speech/layout.h"
#include "legacy/legacy_files.h"
#include "metadata/key_table.h"
#include "support/memory_stream.h"
#include "support/test_data.h"
#include "util/alloc.h"
#include "util/status.h"
#include "writer/programme_view.h"

namespace tmx {
namespace {

using Bytes = std::vector<std::uint8_t>;

// A journaled call: its text (one literal per call site), code and output digest.
struct Entry {
  const char* name;
  std::int32_t rc;
  std::uint64_t digest;
  bool operator==(const Entry&) const = default;
};

// The calls of one session and what each returned.
class Journal {
 public:
  std::int32_t Call(const char* what, std::int32_t rc, const void* out = nullptr,
                    std::size_t size = 0) {
    std::uint64_t h = 14695981039346656037ull;  // FNV-1a
    for (std::size_t i = 0; i < size; ++i)
      h = (h ^ static_cast<const std::uint8_t*>(out)[i]) * 1099511628211ull;
    entries_.push_back({what, rc, h});
    return rc;
  }
  const std::vector<Entry>& entries() const { return entries_; }

 private:
  std::vector<Entry> entries_;
};

// Journals a call under its own text.
#define JOURNAL(call, ...) j.Call(#call, call __VA_OPT__(, ) __VA_ARGS__)

Bytes AacProgramme() {
  const Bytes adts = test::ReadTestData("speech_mono_16000.aac");
  const auto frames = test::SplitAdts(adts);
  writer::ProgrammeSpec plan;
  for (std::size_t i = 0; i < 24; ++i)
    plan.frames.emplace_back(frames[i].begin() + 7, frames[i].end());
  plan.audioSpecificConfig = {0x14, 0x08};  // AAC-LC, 16 kHz, mono
  plan.options.framesPerChunk = 10;
  const Bytes jpeg = {0xFF, 0xD8, 0xFF, 0xE0, 1, 2, 3, 4, 0xFF, 0xD9};
  plan.side.chapters = {{0, "Opening"}, {800, "Zweiter Teil"}};
  plan.side.links = {{0, "Home", "http://example.org/"}, {800, "", "http://example.org/2"}};
  plan.side.pictures = {{0, 3, jpeg}, {0, 0, Bytes(jpeg.begin(), jpeg.begin() + 6)}};
  plan.side.metadata = {writer::TextItem(writer::kItemTitle, "Ein Titel"),
                        writer::TextItem(writer::kItemAuthor, "Autorin"),
                        writer::TextItem(writer::kItemProductId, "urn:book:7")};
  plan.side.metadata[0].variants.push_back({writer::kDataUtf8, 0x656E0000, {'T', 'i', 't'}});
  plan.side.metadata.push_back({writer::kItemCover, {{writer::kDataJpeg, 0, jpeg}}});
  return writer::test::Write(plan);
}

Bytes SpeechProgramme() {
  writer::LegacyProgramme programme;
  programme.codecId = writer::kLegacyCodecSpeech8;
  const std::size_t size = speech::LayoutForMode(3)->packetBytes;
  for (std::size_t i = 0; i < 30; ++i) programme.frames.emplace_back(size, std::uint8_t(i * 37));
  programme.dictionary = {{"title", {'T', 'i', 't', 'e', 'l'}}, {"product_id", {'u', 'r', 'n'}}};
  programme.chapters = {{12, 0}, {18, 0}};
  programme.cover = {0xFF, 0xD8, 0xFF, 0xD9};
  return legacy::test::Write(programme);
}

// The streams of one session: the programme and its position file.
struct Streams {
  test::MemoryStream programme, position;
  Streams(const Bytes& p, const Bytes& pos) : programme(p), position(pos) {}
};

void QueryMetadata(TMXFile* f, Journal& j, std::uint32_t chapters) {
  std::uint8_t buffer[256] = {};
  std::uint32_t size = 0, locales[4] = {}, count = 4;
  JOURNAL(TMXGetMetadataLocaleList(f, locales, &count), locales, sizeof locales);
  for (std::uint32_t format : {0u, 1u, 3u}) {
    TMXSetUnicodeFormat(f, format);
    for (const MetadataKey& key : MetadataKeys()) {
      JOURNAL(TMXGetMetadataInfo(f, key.key, 0, &size), &size, 4);
      JOURNAL(TMXGetMetadata(f, key.key, buffer, sizeof buffer), buffer, sizeof buffer);
      for (std::uint32_t c = 0; c < chapters; ++c)
        JOURNAL(TMXGetChapterMetadata(f, c, key.key, buffer, sizeof buffer), buffer, sizeof buffer);
    }
    size = sizeof buffer;
    JOURNAL(TMXGetUseralias(f, buffer, &size), buffer, size);
  }
}

void ReadSideSamples(TMXFile* f, Journal& j, std::uint32_t chapters) {
  std::uint8_t buffer[512] = {};
  std::uint32_t links = 0, images = 0, n = 0;
  TMXFrameInfo info{};
  for (std::uint32_t c = 0; c < chapters; ++c) {
    JOURNAL(TMXGetChapterInfo(f, c, &info), &info, sizeof info);
    JOURNAL(TMXGetChapterText(f, &info, buffer, sizeof buffer), buffer, sizeof buffer);
  }
  JOURNAL(TMXGetLinkCount(f, &links), &links, 4);
  for (std::uint32_t l = 0; l < links; ++l) {
    JOURNAL(TMXGetLinkInfo(f, l, &info), &info, sizeof info);
    JOURNAL(TMXGetLink(f, &info, buffer, sizeof buffer), buffer, sizeof buffer);
  }
  JOURNAL(TMXGetImageCount(f, &images), &images, 4);
  for (std::uint32_t quality : {3u, 0u}) {
    TMXSetImageQuality(f, quality);
    JOURNAL(TMXGetImageInfo(f, 0, &info), &info, sizeof info);
    JOURNAL(TMXGetEncodedImage(f, &info, 2, buffer, sizeof buffer, &n), buffer, n);
  }
}

// Plays from the current place to the end, decoding every frame, with the
// side samples interleaved.
void Play(TMXFile* f, Journal& j) {
  std::uint8_t frame[2048] = {}, text[128] = {};
  std::int16_t pcm[4096] = {};
  TMXFrameInfo info{};
  for (int i = 0; i < 200; ++i) {
    if (JOURNAL(TMXGetNextFrameInfo(f, &info), &info, sizeof info) != TMX_OK) return;
    if (info.type == FourCC("text") || info.type == FourCC("tx3g") ||
        info.type == FourCC("jpeg")) {  // a side sample comes first
      JOURNAL(TMXGetChapterText(f, &info, text, sizeof text), text, sizeof text);
      JOURNAL(TMXSkipNextFrame(f));
      continue;
    }
    std::uint32_t n = 0, length = 0;
    if (JOURNAL(TMXGetEncodedAudio(f, frame, sizeof frame, &n), frame, n) != TMX_OK) return;
    JOURNAL(TMXDecodePCMFrame(f, frame, n, pcm, sizeof pcm, &length), pcm, length);
  }
}

void Bookmarks(TMXFile* f, Journal& j, TMXStream* position) {
  std::uint32_t index = 0, count = 0, ms = 0;
  std::uint8_t note[64] = {};
  JOURNAL(TMXOpenBookmarkList(f, position));
  JOURNAL(TMXGetBookmarkCount(f, &count), &count, 4);
  for (std::uint32_t b = 0; b < count; ++b) {
    JOURNAL(TMXGetBookmarkTimeStamp(f, b, &ms), &ms, 4);
    JOURNAL(TMXGetBookmarkMetadata(f, b, FourCC("@sde"), note, sizeof note), note, sizeof note);
  }
  if (count) JOURNAL(TMXSeekToBookmark(f, count - 1));
  JOURNAL(TMXAddBookmark(f, 500, &index), &index, 4);
  JOURNAL(TMXAddBookmarkMetadata(f, index, FourCC("@sde"), "later", 5));
  JOURNAL(TMXDeleteBookmark(f, 0));
}

// A player's whole session; returns its journal.
Journal RunSession(Streams& s) {
  Journal j;
  TMXFile* f = nullptr;
  JOURNAL(TMXOpenFile(&f, s.programme.stream(), s.position.stream()));
  std::uint32_t v = 0, chapters = 0;
  JOURNAL(TMXGetPlaybackPosition(f, &v), &v, 4);
  for (auto get : {TMXGetDuration, TMXGetSampleRate, TMXGetAudioChannelCount, TMXGetAvgBitrate})
    JOURNAL(get(f, &v), &v, 4);
  JOURNAL(TMXGetChapterCount(f, &chapters), &chapters, 4);
  TMXEnableChapterText(f);
  TMXEnableChapterLinks(f);
  TMXEnableChapterImages(f);
  QueryMetadata(f, j, chapters);
  ReadSideSamples(f, j, chapters);
  Play(f, j);
  JOURNAL(TMXSeek(f, 1000));
  Play(f, j);
  JOURNAL(TMXSeekToChapter(f, 1));
  JOURNAL(TMXGetCurrentChapter(f, &v), &v, 4);
  Bookmarks(f, j, s.position.stream());
  JOURNAL(TMXGetPlaybackPosition(f, &v), &v, 4);
  JOURNAL(TMXCloseFile(f));
  return j;
}

// A position file from an earlier session: a saved place and a bookmark
// list of two bookmarks, one with a note.
Bytes EarlierPositionFile(const Bytes& programme) {
  test::MemoryStream p(programme), position;
  TMXFile* f = nullptr;
  EXPECT_EQ(TMXOpenFile(&f, p.stream(), position.stream()), TMX_OK);
  std::uint32_t index = 0;
  TMXInitBookmarkList(f, position.stream());
  TMXAddBookmark(f, 300, &index);
  TMXAddBookmark(f, 1200, &index);
  TMXAddBookmarkMetadata(f, index, FourCC("@sde"), "a note", 6);
  std::uint8_t frame[2048];
  for (int i = 0; i < 5; ++i) TMXGetEncodedAudio(f, frame, sizeof frame, &index);
  TMXCloseFile(f);
  return position.data();
}

// The digests of every audio frame of the programme, as a session journals them.
std::set<std::uint64_t> AudioFrames(const Bytes& programme) {
  test::MemoryStream stream(programme);
  TMXFile* f = nullptr;
  EXPECT_EQ(TMXOpenFile(&f, stream.stream(), nullptr), TMX_OK);
  Journal j;
  std::uint8_t frame[2048] = {};
  std::uint32_t n = 0;
  while (JOURNAL(TMXGetEncodedAudio(f, frame, sizeof frame, &n), frame, n) == TMX_OK) {
  }
  TMXCloseFile(f);
  std::set<std::uint64_t> digests;
  for (const Entry& e : j.entries()) digests.insert(e.digest);
  return digests;
}

// Where a failed read or allocation is answered with a code of its own, or
// with less output (kOtherOutput): each is documented behaviour.
struct Deliberate {
  std::string_view call;
  std::int32_t rc;
};
constexpr std::int32_t kOtherOutput = 1;
constexpr Deliberate kDeliberate[] = {
    // A failed sample-table or chapter step drops the track; a bad movie is inconsistent.
    {"TMXOpenFile", TMX_ERR_UNSUPPORTED},
    {"TMXOpenFile", TMX_ERR_INCONSISTENT},
    // An item list that could not be read at open is taken as absent.
    {"TMXGetMetadataLocaleList", TMX_ERR_INCONSISTENT},
    // An unreadable position file plays from the start; a failed seek is out of reach.
    {"TMXGetPlaybackPosition", kOtherOutput},
    {"TMXGetPlaybackPosition", TMX_ERR_SEEK_RANGE},
    {"TMXSeek", TMX_ERR_SEEK_RANGE},
    {"TMXSeekToChapter", TMX_ERR_SEEK_RANGE},
    // A chapter-title, link or picture track that cannot be read is dropped.
    {"TMXGetChapterCount", kOtherOutput},
    {"TMXGetLinkCount", kOtherOutput},
    {"TMXGetImageCount", kOtherOutput},
    {"TMXGetImageInfo", kOtherOutput},
    {"TMXGetImageInfo", TMX_ERR_NOT_FOUND},
    // An unreadable chunk header leaves the sample tables to place the reader.
    {"TMXGetNextFrameInfo", kOtherOutput},
    // Any failure to make the decoder is the decoder's refusal.
    {"TMXDecodePCMFrame", TMX_ERR_DECODER},
    // A programme whose "@pid" cannot be read has no bookmark list.
    {"TMXOpenBookmarkList", TMX_ERR_UNSUPPORTED},
};

bool IsDeliberate(std::string_view call, std::int32_t rc) {
  for (const Deliberate& d : kDeliberate)
    if (call.starts_with(d.call) && call[d.call.size()] == '(' && d.rc == rc) return true;
  return false;
}

// The first call that differs from the undisturbed session reports the
// failure or answers as documented; every frame handed out is the programme's.
void ExpectFailureReported(const Journal& clean, const Journal& got, std::int32_t injected,
                           const std::set<std::uint64_t>& frames, const std::string& where) {
  const auto& a = clean.entries();
  const auto& b = got.entries();
  std::size_t i = 0;
  while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
  if (i == a.size() && i == b.size()) return;  // retried, or not on the session's path
  ASSERT_LT(i, b.size()) << where;
  const std::int32_t answer = i < a.size() && b[i].rc == a[i].rc ? kOtherOutput : b[i].rc;
  EXPECT_TRUE(answer == injected || IsDeliberate(b[i].name, answer))
      << where << ": call " << i << ", " << b[i].name << " answered " << answer;
  for (std::size_t k = i; k < b.size(); ++k) {
    if (b[k].rc == TMX_OK && std::string_view(b[k].name).starts_with("TMXGetEncodedAudio")) {
      EXPECT_EQ(frames.count(b[k].digest), 1u)
          << where << ": call " << k << " handed out a frame the programme does not hold";
    }
  }
}

struct Case {
  const char* name;
  Bytes (*make)();
};

class PlayerFaults : public ::testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    programme_ = GetParam().make();
    position_ = EarlierPositionFile(programme_);
    Streams s(programme_, position_);
    clean_ = RunSession(s);
    frames_ = AudioFrames(programme_);
    ASSERT_EQ(clean_.entries().front().rc, TMX_OK);
    ASSERT_EQ(clean_.entries().back().rc, TMX_OK);
  }

  Bytes programme_, position_;
  Journal clean_;
  std::set<std::uint64_t> frames_;
};

TEST_P(PlayerFaults, EveryAllocationFailureIsReportedAndLeavesNothing) {
  for (std::uint64_t k = 1;; ++k) {
    Streams s(programme_, position_);
    const std::int64_t live = testing::LiveAllocations();
    const std::uint64_t before = testing::AllocationCount();
    testing::FailAllocation(k);
    const Journal got = RunSession(s);
    testing::FailAllocation(0);
    const std::string where = "allocation " + std::to_string(k);
    EXPECT_EQ(testing::LiveAllocations(), live) << where;
    EXPECT_EQ(s.programme.data(), programme_) << where;
    if (testing::AllocationCount() - before < k) {
      EXPECT_EQ(got.entries(), clean_.entries());
      break;
    }
    ExpectFailureReported(clean_, got, TMX_ERR_MEMORY, frames_, where);
  }
}

TEST_P(PlayerFaults, EveryReadFailureIsReportedAndLeavesNothing) {
  for (bool onPosition : {false, true}) {
    for (int k = 1;; ++k) {
      Streams s(programme_, position_);
      test::MemoryStream& target = onPosition ? s.position : s.programme;
      const std::int64_t live = testing::LiveAllocations();
      target.fail_read(k);
      const Journal got = RunSession(s);
      const bool reached = target.reads() >= k;
      const std::string where = (onPosition ? "position read " : "read ") + std::to_string(k);
      EXPECT_EQ(testing::LiveAllocations(), live) << where;
      EXPECT_EQ(s.programme.data(), programme_) << where;
      if (!reached) break;
      ExpectFailureReported(clean_, got, TMX_ERR_READ, frames_, where);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Programmes, PlayerFaults,
                         ::testing::Values(Case{"Aac", AacProgramme},
                                           Case{"Speech", SpeechProgramme}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tmx
