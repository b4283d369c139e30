// tmxtool: inspects programmes from the command line.
//
//   tmxtool info PATH   prints the file type and what the container reports
//   tmxtool mux ...     makes a programme from ADTS audio (see mux.cc)
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "mux.h"
#include "tmxsdk.h"

namespace {

const char* ResultMeaning(std::int32_t rc) {
  switch (rc) {
    case TMX_OK: return "success";
    case TMX_ERR_FILE: return "the file could not be opened or created";
    case TMX_ERR_HANDLE: return "no open file";
    case TMX_ERR_READ: return "a read failed or came up short";
    case TMX_ERR_WRITE: return "a write failed or came up short";
    case TMX_ERR_SEEK: return "a seek failed";
    case TMX_ERR_INCONSISTENT: return "the container is inconsistent or information is missing";
    case TMX_ERR_UNSUPPORTED: return "not a file this library can open";
    case TMX_ERR_MEMORY: return "out of memory";
    case TMX_ERR_INDEX: return "index out of range";
    case TMX_ERR_ARGUMENT: return "invalid argument";
    case TMX_ERR_BUFFER: return "buffer too small";
    case TMX_ERR_SEEK_RANGE: return "seek target out of range";
    case TMX_ERR_NO_DECODER: return "no decoder for this file type";
    case TMX_ERR_DECODER: return "the decoder refused the data";
    case TMX_ERR_END: return "end of the audio";
    case TMX_ERR_NOT_FOUND: return "no such item";
    case TMX_ERR_STREAM_OPS: return "the stream lacks a required operation";
    default: return "unknown result";
  }
}

const char* FileTypeName(std::uint32_t type) {
  switch (type) {
    case TMX_FILETYPE_MP4: return "MP4 audiobook";
    case TMX_FILETYPE_M4B: return "MP4 audiobook (m4b)";
    case TMX_FILETYPE_TMX: return "TMX programme";
    case TMX_FILETYPE_LEGACY_C00D: return "older container (codec 0xC00D)";
    case TMX_FILETYPE_LEGACY_C00C: return "older container (speech, 0xC00C)";
    case TMX_FILETYPE_LEGACY_C010: return "older container (speech, 0xC010)";
    default: return "unknown";
  }
}

// Converts a command-line path (in the locale's multibyte encoding) to wide.
bool ToWide(const char* path, std::vector<wchar_t>& out) {
  std::mbstate_t state{};
  const char* src = path;
  std::size_t n = std::mbsrtowcs(nullptr, &src, 0, &state);
  if (n == static_cast<std::size_t>(-1)) return false;
  out.assign(n + 1, L'\0');
  src = path;
  state = {};
  std::mbsrtowcs(out.data(), &src, n + 1, &state);
  return true;
}

int Fail(const char* what, std::int32_t rc) {
  std::fprintf(stderr, "tmxtool: %s: %d (%s)\n", what, rc, ResultMeaning(rc));
  return 1;
}

int Info(const char* path) {
  std::vector<wchar_t> wide;
  if (!ToWide(path, wide)) {
    std::fprintf(stderr, "tmxtool: %s: the path is not valid text\n", path);
    return 1;
  }
  TMXFile* file = nullptr;
  if (std::int32_t rc = TMXOpenFileWinW(&file, wide.data()); rc != TMX_OK) return Fail(path, rc);

  struct Getter {
    const char* label;
    std::int32_t (*get)(TMXFile*, std::uint32_t*);
  };
  static const Getter kGetters[] = {
      {"sample rate", TMXGetSampleRate},     {"channels", TMXGetAudioChannelCount},
      {"duration ms", TMXGetDuration},       {"average bitrate", TMXGetAvgBitrate},
      {"maximum bitrate", TMXGetMaxBitrate}, {"chapters", TMXGetChapterCount},
      {"images", TMXGetImageCount},
  };
  std::uint32_t type = 0;
  TMXGetFileType(file, &type);
  std::printf("file type: %u (%s)\n", type, FileTypeName(type));
  for (const Getter& g : kGetters) {
    std::uint32_t value = 0;
    std::int32_t rc = g.get(file, &value);
    if (rc == TMX_OK) {
      std::printf("%s: %u\n", g.label, value);
    } else {
      std::printf("%s: error %d (%s)\n", g.label, rc, ResultMeaning(rc));
    }
  }
  TMXCloseFile(file);
  return 0;
}

int Usage() {
  std::fprintf(stderr,
               "usage: tmxtool info PATH\n"
               "       tmxtool mux INPUT.aac -o OUT.tmx [options]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  if (argc < 2) return Usage();
  const std::string command = argv[1];
  if (command == "info" && argc == 3) return Info(argv[2]);
  if (command == "mux") return Mux(argc - 2, argv + 2);
  return Usage();
}
