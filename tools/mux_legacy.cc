// tmxtool mux --legacy=8k|16k: a programme in the older container, its
// speech coded by the library's own encoder from a mono 16-bit WAV file.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "common.h"
#include "mux.h"
#include "writer/chapter_list.h"
#include "writer/legacy_writer.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using tmxtool::Fail;

struct Args {
  int mode = 0;  // 3 (8 kHz) or 4 (16 kHz)
  std::string input, output, chapters, cover;
  std::vector<std::pair<std::string, std::string>> tags;  // dictionary name, value
};

int Usage() {
  std::fprintf(stderr,
               "usage: tmxtool mux --legacy=8k|16k INPUT.wav -o OUT [--chapters FILE]\n"
               "                   [--cover FILE.jpg] [--title T] [--author A] [--narrator N]\n"
               "                   [--product-id ID]\n");
  return 2;
}

bool ReadFile(const std::string& path, Bytes* out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  out->assign(std::istreambuf_iterator<char>(in), {});
  return true;
}

std::uint32_t Le32(const std::uint8_t* p) {
  return p[0] | (std::uint32_t(p[1]) << 8) | (std::uint32_t(p[2]) << 16) |
         (std::uint32_t(p[3]) << 24);
}
std::uint16_t Le16(const std::uint8_t* p) { return std::uint16_t(p[0] | (p[1] << 8)); }

// The samples of a mono 16-bit PCM WAV file at `rate`; an empty message on
// success.
std::string ReadWav(const Bytes& wav, std::uint32_t rate, std::vector<std::int16_t>* samples) {
  if (wav.size() < 12 || std::memcmp(wav.data(), "RIFF", 4) != 0 ||
      std::memcmp(wav.data() + 8, "WAVE", 4) != 0)
    return "not a WAV file";
  bool haveFormat = false;
  for (std::size_t pos = 12; pos + 8 <= wav.size();) {
    const std::uint32_t size = Le32(wav.data() + pos + 4);
    const std::uint8_t* body = wav.data() + pos + 8;
    if (size > wav.size() - pos - 8) return "a WAV chunk runs past the end";
    if (std::memcmp(wav.data() + pos, "fmt ", 4) == 0 && size >= 16) {
      if (Le16(body) != 1 || Le16(body + 2) != 1 || Le16(body + 14) != 16)
        return "the WAV file must be mono 16-bit PCM";
      if (Le32(body + 4) != rate)
        return "the WAV file must be sampled at " + std::to_string(rate) +
               " Hz (for example: sox IN.wav -r " + std::to_string(rate) + " -c 1 OUT.wav)";
      haveFormat = true;
    } else if (std::memcmp(wav.data() + pos, "data", 4) == 0) {
      if (!haveFormat) return "the WAV data comes before its format";
      samples->resize(size / 2);
      for (std::size_t i = 0; i < samples->size(); ++i)
        (*samples)[i] = std::int16_t(Le16(body + 2 * i));
      return {};
    }
    pos += 8 + size + (size & 1);
  }
  return "the WAV file has no data";
}

bool ParseArgs(int argc, char** argv, Args* a) {
  static const char* const kTags[][2] = {{"--title", "title"},
                                         {"--author", "author"},
                                         {"--narrator", "narrator"},
                                         {"--product-id", "product_id"}};
  for (int i = 0; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--legacy=8k" || arg == "--legacy=16k") {
      a->mode = arg == "--legacy=8k" ? 3 : 4;
      continue;
    }
    if (!arg.empty() && arg[0] != '-') {
      if (!a->input.empty()) return false;
      a->input = arg;
      continue;
    }
    if (i + 1 >= argc) return false;
    const std::string value = argv[++i];
    bool known = true;
    if (arg == "-o" || arg == "--output") {
      a->output = value;
    } else if (arg == "--chapters") {
      a->chapters = value;
    } else if (arg == "--cover") {
      a->cover = value;
    } else {
      known = false;
      for (const auto& tag : kTags) {
        if (arg == tag[0]) {
          a->tags.push_back({tag[1], value});
          known = true;
        }
      }
    }
    if (!known) return false;
  }
  return a->mode != 0 && !a->input.empty() && !a->output.empty();
}

}  // namespace

int MuxLegacy(int argc, char** argv) {
  Args a;
  if (!ParseArgs(argc, argv, &a)) return Usage();
  for (const std::string* input : {&a.input, &a.chapters, &a.cover}) {
    if (!input->empty() && tmxtool::SameFile(a.output, *input))
      return tmxtool::FailSameFile(a.output, *input);
  }
  const std::uint32_t rate = a.mode == 3 ? 8000 : 16000;
  if (!tmxtool::CheckInput(a.input.c_str())) return 1;
  Bytes wav;
  if (!ReadFile(a.input, &wav)) return Fail(a.input, "cannot be read");
  std::vector<std::int16_t> pcm;
  if (std::string error = ReadWav(wav, rate, &pcm); !error.empty()) return Fail(a.input, error);

  tmx::writer::LegacyProgramme programme;
  const std::uint16_t codec =
      a.mode == 3 ? tmx::writer::kLegacyCodecSpeech8 : tmx::writer::kLegacyCodecSpeech16;
  if (std::int32_t rc = tmx::writer::EncodeSpeech(codec, pcm, &programme); rc != TMX_OK)
    return Fail(a.input, rc);
  const std::uint64_t samples = a.mode == 3 ? 144 : 160;  // a packet's samples
  if (programme.frames.empty()) return Fail(a.input, "no audio");

  if (!a.chapters.empty()) {
    Bytes text;
    std::vector<tmx::writer::Chapter> chapters;
    std::string error;
    if (!ReadFile(a.chapters, &text)) return Fail(a.chapters, "cannot be read");
    if (!tmx::writer::ParseChapterList({reinterpret_cast<const char*>(text.data()), text.size()},
                                       &chapters, &error))
      return Fail(a.chapters, error);
    // Chapters are stored as lengths in frames.
    const std::uint64_t total = programme.frames.size();
    std::vector<std::uint64_t> starts;
    for (const auto& c : chapters)
      starts.push_back(
          std::min<std::uint64_t>(total, std::uint64_t(c.startMs) * rate / samples / 1000));
    for (std::size_t i = 0; i < starts.size(); ++i) {
      const std::uint64_t end = i + 1 < starts.size() ? starts[i + 1] : total;
      if (end > starts[i]) programme.chapters.push_back({std::uint32_t(end - starts[i]), 0});
    }
  }
  if (!a.cover.empty() && !ReadFile(a.cover, &programme.cover))
    return Fail(a.cover, "cannot be read");
  for (const auto& [name, value] : a.tags)
    programme.dictionary.push_back({name, Bytes(value.begin(), value.end())});

  // The library's file stream writes the temporary file by its path.
  tmxtool::OutputFile out;
  if (!out.Create(a.output)) return 1;
  std::vector<wchar_t> wide;
  if (!tmxtool::ToWide(out.HandOver().c_str(), wide) || wide.size() > TMX_PATH_CAPACITY)
    return Fail(a.output, "the path is too long or not valid text in this locale");
  TMXFileStream* fs = static_cast<TMXFileStream*>(std::calloc(1, sizeof(TMXFileStream)));
  if (!fs) return Fail(a.output, TMX_ERR_MEMORY);
  std::wmemcpy(fs->path, wide.data(), wide.size());
  TMXStream* stream = TMXInitIOStream(reinterpret_cast<TMXStream*>(fs), nullptr);
  if (std::int32_t rc = stream->ops->Open(stream, TMX_STREAM_READ_WRITE); rc != TMX_OK) {
    std::free(fs);
    return Fail(a.output, rc);
  }
  const std::int32_t rc = tmx::writer::WriteLegacyProgramme(programme, stream);
  stream->ops->Close(stream);  // frees the stream too
  if (rc != TMX_OK) return Fail(a.output, rc);
  if (!out.Commit()) return 1;
  std::printf("%zu packets written to %s\n", programme.frames.size(), a.output.c_str());
  return 0;
}
