// Chapter titles, links and pictures through the exports.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "container/mp4/mp4_fixture.h"
#include "util/frame_time.h"
#include "util/status.h"
#include "writer/programme_view.h"

namespace tmx {
namespace {

using namespace tmx::test;

constexpr std::uint32_t kRate = 22050;
constexpr std::uint32_t kFrames = 120;

writer::SideTracks Side() {
  writer::SideTracks side;
  side.chapters = {
      {0, "Erstes Kapitel"}, {1500, "Zweites: \u00DCber"}, {3000, "Drei \xE2\x82\xAC"}};
  side.links = {{0, "Home", "http://example.com/"},
                {2000, "Zweites Ziel \xC3\xA9", "https://ex.org/a"}};
  side.pictures = {{0, 3, ByteVec(300, 1)},
                   {0, 1, ByteVec(120, 3)},
                   {2500, 3, ByteVec(5000, 2)},
                   {2500, 1, ByteVec(900, 4)}};
  return side;
}

ByteVec Written(const writer::SideTracks& side) {
  writer::ProgrammeSpec layout;
  layout.frames = MakeFrames(kFrames, 30);
  layout.audioSpecificConfig = {0x13, 0x90};
  layout.side = side;
  layout.options.framesPerChunk = 5;
  return writer::test::Write(layout);
}

// The time the writer stores for a start: rounded to the nearest frame.
std::uint32_t Stored(std::uint32_t ms) {
  const std::uint32_t frame = std::uint32_t((std::uint64_t(ms) * kRate + 512000) / 1024000);
  return FramesToMs(frame, kRate, 1024);
}

Guarded TitleBytes(TMXFile* f, const TMXFrameInfo& record, std::uint32_t capacity) {
  return ReadGuarded(capacity, [&](std::uint8_t* b, std::uint32_t n) {
    return TMXGetChapterText(f, &record, b, n);
  });
}

std::string Title(TMXFile* f, const TMXFrameInfo& record, std::uint32_t capacity) {
  const Guarded o = TitleBytes(f, record, capacity);
  if (o.rc == TMX_OK) return UpToZero(o.bytes);
  // Appended, not "<" + ...: GCC 12 at -O3 warns falsely on that form.
  return std::string("<").append(std::to_string(o.rc)) + ">";
}

Guarded Link(TMXFile* f, const TMXFrameInfo& record, std::uint32_t capacity) {
  return ReadGuarded(
      capacity, [&](std::uint8_t* b, std::uint32_t n) { return TMXGetLink(f, &record, b, n); });
}

TEST(SideTracks, ArgumentChecksAndAFailedPictureRead) {
  TMXFrameInfo info{};
  std::uint8_t buf[8];
  std::uint32_t v = 0;
  EXPECT_EQ(TMXGetChapterText(nullptr, &info, buf, 8), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXGetLink(nullptr, &info, buf, 8), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXGetEncodedImage(nullptr, &info, 0, buf, 8, &v), TMX_ERR_HANDLE);

  OpenProgramme p(Written(Side()));
  ASSERT_EQ(p.rc(), TMX_OK);
  TMXFile* f = p.file();
  const FormatHandler* real = f->formatHandler;
  // Lookups check the handle, then the pointer, and pass the handler's answer on.
  for (auto lookup : {TMXGetChapterInfo, TMXGetLinkInfo, TMXGetImageInfo}) {
    EXPECT_EQ(lookup(nullptr, 0, &info), TMX_ERR_HANDLE);
    EXPECT_EQ(lookup(f, 9, nullptr), TMX_ERR_ARGUMENT);
    f->formatHandler = &kNullHandler;
    EXPECT_EQ(lookup(f, 0, &info), TMX_ERR_UNSUPPORTED);
    f->formatHandler = real;
  }
  for (auto start : {TMXGetLinkStartTime, TMXGetImageStartTime}) {
    EXPECT_EQ(start(nullptr, 0, &v), TMX_ERR_HANDLE);
    EXPECT_EQ(start(f, 9, nullptr), TMX_ERR_ARGUMENT);
    f->formatHandler = &kNullHandler;
    EXPECT_EQ(start(f, 0, &v), TMX_ERR_UNSUPPORTED);
    f->formatHandler = real;
  }

  ASSERT_EQ(TMXGetLinkCount(f, &v), TMX_OK);
  EXPECT_EQ(v, 2u);
  EXPECT_EQ(TMXGetChapterInfo(f, 3, &info), TMX_ERR_INDEX);
  EXPECT_EQ(TMXGetLinkInfo(f, 2, &info), TMX_ERR_INDEX);
  EXPECT_EQ(TMXGetLinkStartTime(f, 2, &v), TMX_ERR_INDEX);

  TMXFrameInfo title{}, link{}, image{};
  ASSERT_EQ(TMXGetChapterInfo(f, 0, &title), TMX_OK);
  ASSERT_EQ(TMXGetLinkInfo(f, 0, &link), TMX_OK);
  ASSERT_EQ(TMXGetImageInfo(f, 0, &image), TMX_OK);
  EXPECT_EQ(TMXGetChapterText(f, nullptr, buf, 8), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetChapterText(f, &title, nullptr, 8), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetChapterText(f, &title, buf, 0), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetLink(f, nullptr, buf, 8), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetLink(f, &link, nullptr, 8), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetEncodedImage(f, nullptr, 0, buf, 8, &v), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetEncodedImage(f, &image, 0, nullptr, 8, &v), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetEncodedImage(f, &image, 0, buf, 8, nullptr), TMX_ERR_ARGUMENT);
  // Index checks of the readers use the record's index.
  TMXFrameInfo beyond = title;
  beyond.index = 3;
  EXPECT_EQ(TMXGetChapterText(f, &beyond, buf, 8), TMX_ERR_INDEX);
  beyond = link;
  beyond.index = 2;
  EXPECT_EQ(TMXGetLink(f, &beyond, buf, 64), TMX_ERR_INDEX);
  // Pictures: the start is tested before the type.
  EXPECT_EQ(TMXGetEncodedImage(f, &title, 0, buf, 8, &v), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXGetEncodedImage(f, &title, title.size, buf, 8, &v), TMX_ERR_NOT_FOUND);
  // A picture read that fails reports nothing read.
  v = 77;
  p.stream().fail_read(1);
  EXPECT_EQ(TMXGetEncodedImage(f, &image, 0, buf, 8, &v), TMX_ERR_READ);
  EXPECT_EQ(v, 0u);
}

// A hand-built programme of 40 frames with one side track of `samples`.
ByteVec WithSideSamples(const std::string& entry, const std::vector<ByteVec>& samples) {
  ProgrammeSpec layout;
  layout.tracks.push_back(AudioTrack(40));
  layout.tracks[0].chap = {2};
  layout.tracks.push_back(SideTrack(2, entry, samples));
  return BuildProgramme(layout).bytes;
}

TEST(SideTracks, EmptyTitlesAndTheReadPastTheTitle) {
  OpenProgramme p(
      WithSideSamples("text", {TextSample(""), Concat({TextSample("Ab"), V("XY")}),
                               Concat({TextSample("Cd"), Be32(12), V("encd"), Be32(0x100)})}));
  ASSERT_EQ(p.rc(), TMX_OK);
  TMXFrameInfo r{};
  for (std::uint32_t format : {0u, 1u, 3u}) {
    SCOPED_TRACE(format);
    TMXSetUnicodeFormat(p.file(), format);
    ASSERT_EQ(TMXGetChapterInfo(p.file(), 0, &r), TMX_OK);
    EXPECT_EQ(r.size, format == 3 ? 2u : 1u);
    const Guarded o = TitleBytes(p.file(), r, r.size);
    EXPECT_EQ(o.rc, TMX_OK);
    EXPECT_EQ(o.bytes, ByteVec(r.size, 0));
  }
  // The size covers one character more than the title, so the read runs
  // into the bytes behind it until the first zero byte.
  TMXSetUnicodeFormat(p.file(), 0);
  ASSERT_EQ(TMXGetChapterInfo(p.file(), 1, &r), TMX_OK);
  EXPECT_EQ(Title(p.file(), r, 16), "AbX");
  ASSERT_EQ(TMXGetChapterInfo(p.file(), 2, &r), TMX_OK);
  EXPECT_EQ(Title(p.file(), r, 16), "Cd");
  TMXSetUnicodeFormat(p.file(), 3);
  ASSERT_EQ(TMXGetChapterInfo(p.file(), 1, &r), TMX_OK);
  const Guarded o = TitleBytes(p.file(), r, 16);
  ASSERT_EQ(o.rc, TMX_OK);
  EXPECT_EQ(Utf16At(o.bytes, 0), u"AbXY");

  // A title at the end of the stream: the bytes that can be read are enough,
  // size known or not; one that starts beyond the end is a failed read.
  const std::uint32_t end = r.offset + 2;
  for (bool unknownSize : {false, true}) {
    OpenProgramme q(p.stream().data());
    q.stream().data().resize(end);
    q.stream().set_unknown_size(unknownSize);
    for (std::uint32_t format : {0u, 3u}) {
      TMXSetUnicodeFormat(q.file(), format);
      ASSERT_EQ(TMXGetChapterInfo(q.file(), 1, &r), TMX_OK);
      const Guarded t = TitleBytes(q.file(), r, 16);
      ASSERT_EQ(t.rc, TMX_OK) << format << unknownSize;
      if (format == 3) {
        EXPECT_EQ(Utf16At(t.bytes, 0), u"Ab");
      } else {
        EXPECT_EQ(UpToZero(t.bytes), "Ab");
      }
    }
    r.offset = end;
    EXPECT_EQ(Title(q.file(), r, 16), "<-3>");
  }
}

TEST(SideTracks, LinksGiveTheAddressThenTheCaption) {
  auto side = Side();
  side.links.push_back({4000, "Third link", "x"});
  side.links.push_back({5000, "Fourth link", "y"});
  OpenProgramme p(Written(side));
  ASSERT_EQ(p.rc(), TMX_OK);
  const std::string address = "https://ex.org/a";  // 16 bytes: the caption starts at an odd offset
  const std::string caption = "Zweites Ziel \xC3\xA9";
  TMXFrameInfo r{};
  for (std::uint32_t format : {0u, 1u, 2u, 3u}) {
    SCOPED_TRACE(format);
    TMXSetUnicodeFormat(p.file(), format);
    ASSERT_EQ(TMXGetLinkInfo(p.file(), 1, &r), TMX_OK);
    EXPECT_EQ(r.type, FourCC("tx3g"));
    EXPECT_EQ(r.index, 1u);
    EXPECT_EQ(r.startTime, Stored(2000));
    // Caption length field, caption, "href" box with the address and an
    // empty alternate text.
    const std::uint32_t sample = 2 + std::uint32_t(caption.size()) + 14 + 16;
    EXPECT_EQ(r.size, format & 2 ? sample + std::uint32_t(caption.size()) : sample);
    const Guarded o = Link(p.file(), r, 64);
    ASSERT_EQ(o.rc, TMX_OK);
    EXPECT_EQ(UpToZero(o.bytes), address);
    if (format == 1) {
      EXPECT_EQ(UpToZero(o.bytes, 17), caption);
    } else if (format == 3) {
      EXPECT_EQ(Utf16At(o.bytes, 17), u"Zweites Ziel \u00E9");
    } else {
      EXPECT_EQ(UpToZero(o.bytes, 17), "Zweites Ziel \xE9");
    }
  }
  // Room for the address and its terminator only: the caption area stays untouched.
  TMXSetUnicodeFormat(p.file(), 1);
  const Guarded exact = Link(p.file(), r, 17);
  ASSERT_EQ(exact.rc, TMX_OK);
  EXPECT_EQ(exact.bytes, Concat({V(address), ByteVec{0}}));
  const Guarded cut = Link(p.file(), r, 21);
  ASSERT_EQ(cut.rc, TMX_OK);
  EXPECT_EQ(UpToZero(cut.bytes, 17), "Zwe");
  // A buffer without room for the address is refused.
  EXPECT_EQ(Link(p.file(), r, 16).rc, TMX_ERR_BUFFER);

  // Link start times come from the title track: link 3 exists, chapter 3 does not.
  const std::uint32_t linkStarts[] = {0, 2000, 4000};
  for (std::uint32_t i = 0; i < 3; ++i) {
    std::uint32_t ms = 1;
    TMXFrameInfo title{}, link{};
    ASSERT_EQ(TMXGetLinkStartTime(p.file(), i, &ms), TMX_OK);
    ASSERT_EQ(TMXGetChapterInfo(p.file(), i, &title), TMX_OK);
    ASSERT_EQ(TMXGetLinkInfo(p.file(), i, &link), TMX_OK);
    EXPECT_EQ(ms, title.startTime) << i;
    EXPECT_EQ(link.startTime, Stored(linkStarts[i])) << i;
  }
  std::uint32_t ms = 1;
  EXPECT_EQ(TMXGetLinkStartTime(p.file(), 3, &ms), TMX_ERR_NOT_FOUND);
  EXPECT_EQ(ms, 1u);
  EXPECT_EQ(TMXGetLinkStartTime(p.file(), 4, &ms), TMX_ERR_INDEX);
  // Without chapter titles no link has a start time.
  side.chapters.clear();
  OpenProgramme q(Written(side));
  EXPECT_EQ(TMXGetLinkStartTime(q.file(), 0, &ms), TMX_ERR_NOT_FOUND);
}

TEST(SideTracks, MalformedLinkSamples) {
  auto href = [](const std::string& type, std::uint8_t length, const std::string& address) {
    return Concat({Be32(std::uint32_t(13 + address.size())), V(type), ByteVec{0, 0, 0, 3, length},
                   V(address)});
  };
  auto sample = [](const std::string& caption, const ByteVec& boxes) {
    return Concat({TextSample(caption), boxes});
  };
  struct Case {
    const char* name;
    ByteVec sample;
    std::int32_t rc;
    std::string address, caption;
  };
  const Case cases[] = {
      {"well formed", sample("Cap", href("href", 4, "abcd")), TMX_OK, "abcd", "Cap"},
      {"no caption", sample("", href("href", 2, "ab")), TMX_OK, "ab", ""},
      {"empty address", sample("Cap", href("href", 0, "")), TMX_OK, "", "Cap"},
      {"capitals", sample("Cap", href("HREF", 4, "abcd")), TMX_ERR_NOT_FOUND, "", ""},
      {"href second", sample("Cap", Concat({Atom("styl", Be32(0)), href("href", 4, "abcd")})),
       TMX_ERR_NOT_FOUND, "", ""},
      {"address past the sample", sample("Cap", href("href", 5, "abcd")), TMX_ERR_NOT_FOUND, "",
       ""},
      {"no room for the box", sample("Cap", ByteVec{0, 0, 0, 0x10, 'h', 'r', 'e'}),
       TMX_ERR_NOT_FOUND, "", ""},
      {"caption past the sample", ByteVec{0xFF, 0xFF, 'a'}, TMX_ERR_NOT_FOUND, "", ""},
      {"one byte", ByteVec{0}, TMX_ERR_NOT_FOUND, "", ""},
  };
  std::vector<ByteVec> samples;
  for (const Case& c : cases) samples.push_back(c.sample);
  OpenProgramme p(WithSideSamples("tx3g", samples));
  ASSERT_EQ(p.rc(), TMX_OK);
  for (std::uint32_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(cases[i].name);
    TMXFrameInfo r{};
    ASSERT_EQ(TMXGetLinkInfo(p.file(), i, &r), TMX_OK);
    EXPECT_EQ(r.size, cases[i].sample.size());
    const Guarded o = Link(p.file(), r, 32);
    EXPECT_EQ(o.rc, cases[i].rc);
    if (o.rc == TMX_OK) {
      EXPECT_EQ(UpToZero(o.bytes), cases[i].address);
      EXPECT_EQ(UpToZero(o.bytes, cases[i].address.size() + 1), cases[i].caption);
    }
  }
}

// A side sample read through a record that differs in one byte leaves the
// reader and the stream where they are; through its own record it steps past.
TEST(SideTracks, ReadingTheReportedSampleStepsPastIt) {
  const auto side = Side();
  OpenProgramme p(Written(side));
  ASSERT_EQ(p.rc(), TMX_OK);
  TMXFile* f = p.file();
  TMXEnableChapterText(f);
  TMXEnableChapterLinks(f);
  TMXEnableChapterImages(f);
  const auto frames = MakeFrames(kFrames, 30);
  std::vector<std::pair<std::uint32_t, std::uint32_t>> seen;  // type, index of side samples
  std::uint32_t nextAudio = 0;
  std::uint8_t buffer[8192];
  TMXFrameInfo info{};
  for (int steps = 0; steps < 400 && TMXGetNextFrameInfo(f, &info) == TMX_OK; ++steps) {
    if (info.type == FourCC("mp4a")) {
      ASSERT_EQ(info.index, nextAudio);
      // Lookups of any side sample between frames leave the reader alone.
      TMXFrameInfo title{}, link{}, image{};
      std::uint32_t ms = 0, n = 0;
      const std::uint32_t before = p.stream().position();
      EXPECT_EQ(TMXGetChapterInfo(f, nextAudio % 3, &title), TMX_OK);
      EXPECT_EQ(TMXGetLinkInfo(f, nextAudio % 2, &link), TMX_OK);
      EXPECT_EQ(TMXGetImageInfo(f, nextAudio % 2, &image), TMX_OK);
      EXPECT_EQ(TMXGetLinkStartTime(f, nextAudio % 2, &ms), TMX_OK);
      EXPECT_EQ(TMXGetImageStartTime(f, nextAudio % 2, &ms), TMX_OK);
      EXPECT_EQ(TMXGetChapterText(f, &title, buffer, sizeof buffer), TMX_OK);
      EXPECT_EQ(TMXGetLink(f, &link, buffer, sizeof buffer), TMX_OK);
      EXPECT_EQ(TMXGetEncodedImage(f, &image, 1, buffer, sizeof buffer, &n), TMX_OK);
      EXPECT_EQ(p.stream().position(), before);
      ASSERT_EQ(TMXGetEncodedAudio(f, buffer, sizeof buffer, &n), TMX_OK);
      ASSERT_EQ(ByteVec(buffer, buffer + n), frames[nextAudio]);
      ++nextAudio;
      continue;
    }
    seen.push_back({info.type, info.index});
    if (info.type == FourCC("jpeg")) {  // another picture is not taken for the current one
      TMXFrameInfo first{};
      ASSERT_EQ(TMXGetImageInfo(f, 0, &first), TMX_OK);
      EXPECT_EQ(first.index, 0u);
    }
    auto read = [&](const TMXFrameInfo& r) {
      std::uint32_t n = 0;
      if (info.type == FourCC("text")) return TMXGetChapterText(f, &r, buffer, sizeof buffer);
      if (info.type == FourCC("tx3g")) return TMXGetLink(f, &r, buffer, sizeof buffer);
      return TMXGetEncodedImage(f, &r, 0, buffer, sizeof buffer, &n);
    };
    for (std::size_t byte = 0; byte < sizeof info; byte += 5) {
      TMXFrameInfo other = info;
      reinterpret_cast<std::uint8_t*>(&other)[byte] ^= 1;
      const std::uint32_t before = p.stream().position();
      read(other);
      EXPECT_EQ(p.stream().position(), before);
      TMXFrameInfo again{};
      ASSERT_EQ(TMXGetNextFrameInfo(f, &again), TMX_OK);
      ASSERT_EQ(std::memcmp(&again, &info, sizeof info), 0) << "moved by byte " << byte;
    }
    ASSERT_EQ(read(info), TMX_OK);
  }
  EXPECT_EQ(nextAudio, kFrames);
  // The samples at the start share frame 0 with the reader's first place
  // and are passed over; the later ones of every track are reported.
  const std::vector<std::pair<std::uint32_t, std::uint32_t>> expected = {
      {FourCC("text"), 1}, {FourCC("tx3g"), 1}, {FourCC("jpeg"), 1}, {FourCC("text"), 2}};
  EXPECT_EQ(seen, expected);
}

}  // namespace
}  // namespace tmx
