// tmxtool extract: the audio of a programme as an ADTS stream.
// tmxtool position: the saved listening position.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "common.h"

namespace tmxtool {

int Extract(int argc, char** argv) {
  if (argc != 3 || std::strcmp(argv[1], "-o") != 0) return Usage();
  const char* output = argv[2];
  if (SameFile(output, argv[0])) return FailSameFile(output, argv[0]);
  Programme p;
  // No position file: extracting is not listening.
  if (!p.OpenReadOnly(argv[0])) return 1;
  TMXEnableADTSHeaders(p.get());
  OutputFile out;
  if (!out.Create(output)) return 1;
  std::vector<std::uint8_t> frame(1 << 16);
  std::uint32_t frames = 0, length = 0;
  std::int32_t rc;
  while ((rc = TMXGetEncodedAudio(p.get(), frame.data(), std::int32_t(frame.size()), &length)) ==
         TMX_OK) {
    if (std::fwrite(frame.data(), 1, length, out.file()) != length) {
      rc = TMX_ERR_WRITE;
      break;
    }
    ++frames;
  }
  if (rc != TMX_ERR_END) return Fail(rc == TMX_ERR_WRITE ? output : argv[0], rc);
  if (!out.Commit()) return 1;
  std::printf("%u frames written to %s\n", frames, output);
  return 0;
}

int Position(int argc, char** argv) {
  const bool set = argc == 3 && std::strcmp(argv[1], "--set") == 0;
  if (argc != 1 && !set) return Usage();
  Programme p;
  if (!p.OpenWithPosition(argv[0])) return 1;
  if (set) {
    char* end = nullptr;
    const unsigned long ms = std::strtoul(argv[2], &end, 10);
    if (*argv[2] == '\0' || *end != '\0' || ms > 0xFFFFFFFFul) return Usage();
    // Load first, so that the seek is not undone by the lazy load.
    std::uint32_t before = 0;
    TMXGetPlaybackPosition(p.get(), &before);
    if (std::int32_t rc = TMXSeek(p.get(), std::uint32_t(ms)); rc != TMX_OK)
      return Fail(std::string(argv[0]) + ": seek", rc);
  }
  std::uint32_t ms = 0, chapter = 0;
  if (std::int32_t rc = TMXGetPlaybackPosition(p.get(), &ms); rc != TMX_OK)
    return Fail(std::string(argv[0]) + ": position", rc);
  std::printf("position: %s (%u ms)\n", FormatTime(ms).c_str(), ms);
  if (TMXGetCurrentChapter(p.get(), &chapter) == TMX_OK) std::printf("chapter: %u\n", chapter + 1);
  if (set) TMXSavePlaybackPosition(p.get(), 0);
  return 0;
}

}  // namespace tmxtool
