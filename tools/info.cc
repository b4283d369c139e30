// tmxtool info: what the library reads from a programme.
#include <cstdio>

#include "commands.h"
#include "common.h"

namespace tmxtool {

int Info(int argc, char** argv) {
  if (argc != 1) return Usage();
  Programme p;
  if (std::int32_t rc = p.OpenReadOnly(argv[0]); rc != TMX_OK) return Fail(argv[0], rc);
  TMXFile* file = p.get();

  struct Getter {
    const char* label;
    std::int32_t (*get)(TMXFile*, std::uint32_t*);
  };
  static const Getter kGetters[] = {
      {"sample rate", TMXGetSampleRate},     {"channels", TMXGetAudioChannelCount},
      {"duration ms", TMXGetDuration},       {"average bitrate", TMXGetAvgBitrate},
      {"maximum bitrate", TMXGetMaxBitrate}, {"chapters", TMXGetChapterCount},
      {"images", TMXGetImageCount},          {"links", TMXGetLinkCount},
  };
  std::uint32_t type = 0;
  TMXGetFileType(file, &type);
  std::printf("file type: %u (%s)\n", type, FileTypeName(type));
  for (const Getter& g : kGetters) {
    std::uint32_t value = 0;
    const std::int32_t rc = g.get(file, &value);
    if (rc == TMX_OK) {
      std::printf("%s: %u\n", g.label, value);
    } else {
      std::printf("%s: error %d (%s)\n", g.label, rc, ResultMeaning(rc));
    }
  }
  std::uint32_t chapters = 0;
  TMXGetChapterCount(file, &chapters);
  for (std::uint32_t i = 0; i < chapters; ++i) {
    std::uint32_t ms = 0;
    TMXGetChapterStartTime(file, i, &ms);
    std::printf("chapter %u: %s\n", i + 1, FormatTime(ms).c_str());
  }
  return 0;
}

}  // namespace tmxtool
