// The option switches and getters: null handling, values stored unchecked.
#include <gtest/gtest.h>

#include "api/file.h"

namespace tmx {
namespace {

using Getter = std::int32_t (*)(TMXFile*, std::uint32_t*);

struct GetterCase {
  Getter get;
  std::uint32_t TMXFile::*field;
};

const GetterCase kGetters[] = {
    {TMXGetFileType, &TMXFile::fileType},         {TMXGetSampleRate, &TMXFile::sampleRate},
    {TMXGetAvgBitrate, &TMXFile::avgBitrate},     {TMXGetMaxBitrate, &TMXFile::maxBitrate},
    {TMXGetDuration, &TMXFile::duration},         {TMXGetAudioChannelCount, &TMXFile::channelCount},
    {TMXGetChapterCount, &TMXFile::chapterCount}, {TMXGetImageCount, &TMXFile::imageCount},
};

TEST(Getters, CheckTheFileFirstThenThePointer) {
  TMXFile file{};
  std::uint32_t seed = 100;
  for (const auto& g : kGetters) file.*g.field = seed++;
  seed = 100;
  for (const auto& g : kGetters) {
    std::uint32_t out = 7;
    EXPECT_EQ(g.get(nullptr, nullptr), TMX_ERR_HANDLE);
    EXPECT_EQ(g.get(nullptr, &out), TMX_ERR_HANDLE);
    EXPECT_EQ(out, 7u);
    EXPECT_EQ(g.get(&file, nullptr), TMX_ERR_ARGUMENT);
    EXPECT_EQ(g.get(&file, &out), TMX_OK);
    EXPECT_EQ(out, seed++);
  }
}

TEST(Switches, SetAndClearTheirFlags) {
  struct Case {
    std::int32_t (*on)(TMXFile*);
    std::int32_t (*off)(TMXFile*);
    std::uint32_t TMXFile::*field;
  };
  const Case cases[] = {
      {TMXEnableChapterText, TMXDisableChapterText, &TMXFile::chapterTextEnabled},
      {TMXEnableChapterLinks, TMXDisableChapterLinks, &TMXFile::chapterLinksEnabled},
      {TMXEnableChapterImages, TMXDisableChapterImages, &TMXFile::chapterImagesEnabled},
  };
  TMXFile file{};
  EXPECT_EQ(TMXEnableADTSHeaders(&file), TMX_OK);
  EXPECT_EQ(file.reader.adtsHeadersEnabled, 1u);
  EXPECT_EQ(TMXDisableADTSHeaders(&file), TMX_OK);
  EXPECT_EQ(file.reader.adtsHeadersEnabled, 0u);
  for (const auto& c : cases) {
    EXPECT_EQ(c.on(nullptr), TMX_ERR_HANDLE);
    EXPECT_EQ(c.off(nullptr), TMX_ERR_HANDLE);
    EXPECT_EQ(c.on(&file), TMX_OK);
    EXPECT_EQ(file.*c.field, 1u);
    EXPECT_EQ(c.off(&file), TMX_OK);
    EXPECT_EQ(file.*c.field, 0u);
  }
}

TEST(Switches, ValuesAreStoredUnchecked) {
  TMXFile file{};
  std::uint32_t out = 0;
  for (std::uint32_t q : {0u, 1u, 3u, 77u, 0xFFFFFFFFu}) {
    EXPECT_EQ(TMXSetImageQuality(&file, q), TMX_OK);
    EXPECT_EQ(TMXGetImageQuality(&file, &out), TMX_OK);
    EXPECT_EQ(out, q);
    EXPECT_EQ(TMXSetUnicodeFormat(&file, q), TMX_OK);
    EXPECT_EQ(TMXGetUnicodeFormat(&file, &out), TMX_OK);
    EXPECT_EQ(out, q);
  }
  EXPECT_EQ(TMXSetImageQuality(nullptr, 1), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXSetUnicodeFormat(nullptr, 1), TMX_ERR_HANDLE);
}

}  // namespace
}  // namespace tmx
