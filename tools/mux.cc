// tmxtool mux INPUT.aac -o OUT.tmx [--chapters FILE] [--cover FILE.jpg]
//   [--title T] [--author A] [--narrator N] [--product-id ID] [--brand tmx|m4b]
//   [--frames-per-chunk N] [--plain]
#include "mux.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "common.h"
#include "tmxsdk.h"
#include "writer/chapter_list.h"
#include "writer/writer.h"

namespace {

using tmx::writer::MetadataItem;
using tmx::writer::TextItem;
using tmxtool::Fail;

// A TMXStream over a C FILE, for the input and the output of the command.
struct StdioStream {
  TMXStream base;
  std::FILE* file;

  static StdioStream* Self(TMXStream* s) { return reinterpret_cast<StdioStream*>(s); }
  static std::int32_t Create(TMXStream*) { return TMX_ERR_FILE; }
  static std::int32_t Open(TMXStream*, std::int32_t) { return TMX_OK; }
  static std::int32_t Close(TMXStream*) { return TMX_OK; }
  static std::uint32_t GetSize(TMXStream* s) {
    std::FILE* f = Self(s)->file;
    const long here = std::ftell(f);
    if (here < 0 || std::fseek(f, 0, SEEK_END) != 0) return TMX_STREAM_UNKNOWN;
    const long size = std::ftell(f);
    std::fseek(f, here, SEEK_SET);
    return size < 0 || size >= long(TMX_STREAM_UNKNOWN) ? TMX_STREAM_UNKNOWN : std::uint32_t(size);
  }
  static std::uint32_t Tell(TMXStream* s) {
    const long here = std::ftell(Self(s)->file);
    return here < 0 ? TMX_STREAM_UNKNOWN : std::uint32_t(here);
  }
  static std::int32_t Seek(TMXStream* s, std::uint32_t position) {
    return std::fseek(Self(s)->file, long(position), SEEK_SET) == 0 ? TMX_OK : TMX_ERR_SEEK;
  }
  static std::int32_t Read(TMXStream* s, void* buffer, std::int32_t count, std::int32_t* done) {
    const std::size_t n = count > 0 ? std::fread(buffer, 1, std::size_t(count), Self(s)->file) : 0;
    if (done) *done = std::int32_t(n);
    return n > 0 ? TMX_OK : TMX_ERR_READ;
  }
  static std::int32_t Write(TMXStream* s, const void* buffer, std::int32_t count,
                            std::int32_t* done) {
    const std::size_t n = count > 0 ? std::fwrite(buffer, 1, std::size_t(count), Self(s)->file) : 0;
    if (done) *done = std::int32_t(n);
    return n > 0 ? TMX_OK : TMX_ERR_WRITE;
  }
  static constexpr TMXStreamOps kOps = {Create, Open, Close, GetSize, Tell, Seek, Read, Write};

  explicit StdioStream(std::FILE* f) : base{&kOps}, file(f) {}
};

struct Arguments {
  std::string input;
  std::string output;
  std::string chapters;
  std::string cover;
  std::optional<std::string> title, author, narrator, productId;
  tmx::writer::WriterOptions options;
};

int Usage() {
  std::fprintf(stderr,
               "usage: tmxtool mux INPUT.aac -o OUT.tmx [--chapters FILE] [--cover FILE.jpg]\n"
               "                   [--title T] [--author A] [--narrator N] [--product-id ID]\n"
               "                   [--brand tmx|m4b]\n"
               "                   [--frames-per-chunk N] [--plain]\n");
  return 2;
}

// Fills `args`; false (after a message) on bad usage.
bool ParseArguments(int argc, char** argv, Arguments* args) {
  for (int i = 0; i < argc; ++i) {
    std::string arg = argv[i];
    std::optional<std::string> inlineValue;
    if (arg.rfind("--", 0) == 0) {
      if (const std::size_t eq = arg.find('='); eq != std::string::npos) {
        inlineValue = arg.substr(eq + 1);
        arg.resize(eq);
      }
    }
    auto value = [&]() -> std::optional<std::string> {
      if (inlineValue) return inlineValue;
      if (i + 1 < argc) return std::string(argv[++i]);
      std::fprintf(stderr, "tmxtool mux: %s needs a value\n", arg.c_str());
      return std::nullopt;
    };
    std::optional<std::string> v;
    if (arg == "--plain") {
      args->options.chunkHeaders = false;
      continue;
    }
    if (arg == "-o" || arg == "--output" || arg == "--chapters" || arg == "--cover" ||
        arg == "--title" || arg == "--author" || arg == "--narrator" || arg == "--brand" ||
        arg == "--product-id" || arg == "--frames-per-chunk") {
      if (!(v = value())) return false;
    } else if (!arg.empty() && arg[0] == '-') {
      std::fprintf(stderr, "tmxtool mux: unknown option %s\n", arg.c_str());
      return false;
    } else if (args->input.empty()) {
      args->input = arg;
      continue;
    } else {
      std::fprintf(stderr, "tmxtool mux: more than one input file\n");
      return false;
    }
    if (arg == "-o" || arg == "--output") args->output = *v;
    if (arg == "--chapters") args->chapters = *v;
    if (arg == "--cover") args->cover = *v;
    if (arg == "--title") args->title = *v;
    if (arg == "--author") args->author = *v;
    if (arg == "--narrator") args->narrator = *v;
    if (arg == "--product-id") args->productId = *v;
    if (arg == "--brand") {
      if (*v == "tmx") {
        args->options.brand = tmx::writer::Brand::kTmx;
      } else if (*v == "m4b") {
        args->options.brand = tmx::writer::Brand::kM4b;
      } else {
        std::fprintf(stderr, "tmxtool mux: --brand takes tmx or m4b\n");
        return false;
      }
    }
    if (arg == "--frames-per-chunk") {
      char* end = nullptr;
      errno = 0;
      const unsigned long n = std::strtoul(v->c_str(), &end, 10);
      if (errno != 0 || v->empty() || *end != '\0' || n < 1 || n > 4096) {
        std::fprintf(stderr, "tmxtool mux: --frames-per-chunk takes a number from 1 to 4096\n");
        return false;
      }
      args->options.framesPerChunk = std::uint32_t(n);
    }
  }
  if (args->input.empty() || args->output.empty()) {
    std::fprintf(stderr, "tmxtool mux: an input file and -o OUTPUT are required\n");
    return false;
  }
  return true;
}

bool ReadFile(const std::string& path, std::string* out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream s;
  s << in.rdbuf();
  *out = std::move(s).str();
  return !in.bad();
}

std::string Describe(std::int32_t rc) {
  switch (rc) {
    case TMX_ERR_INCONSISTENT: return "the input is not a complete ADTS stream";
    case TMX_ERR_UNSUPPORTED: return "the input is not an ADTS stream this tool can take";
    case TMX_ERR_MEMORY: return "out of memory";
    case TMX_ERR_ARGUMENT: return "invalid input";
    case TMX_ERR_READ: return "reading failed";
    case TMX_ERR_WRITE: return "writing failed";
    case TMX_ERR_SEEK: return "seeking failed";
    case TMX_ERR_FILE: return "no temporary file could be made";
    default: return "error " + std::to_string(rc);
  }
}

}  // namespace

int Mux(int argc, char** argv) {
  for (int i = 0; i < argc; ++i)
    if (std::strncmp(argv[i], "--legacy", 8) == 0) return MuxLegacy(argc, argv);
  Arguments args;
  if (!ParseArguments(argc, argv, &args)) return Usage();
  for (const std::string* input : {&args.input, &args.chapters, &args.cover}) {
    if (!input->empty() && tmxtool::SameFile(args.output, *input))
      return tmxtool::FailSameFile(args.output, *input);
  }

  tmx::writer::SideTracks side;
  if (!args.chapters.empty()) {
    std::string text, error;
    if (!ReadFile(args.chapters, &text)) return Fail(args.chapters, "cannot be read");
    if (!tmx::writer::ParseChapterList(text, &side.chapters, &error))
      return Fail(args.chapters, error);
  }
  if (args.title) side.metadata.push_back(TextItem(tmx::writer::kItemTitle, *args.title));
  if (args.author) side.metadata.push_back(TextItem(tmx::writer::kItemAuthor, *args.author));
  if (args.narrator) {
    side.metadata.push_back(TextItem(tmx::writer::kItemNarrator, *args.narrator));
    // The product id ties bookmark lists to this programme.
    if (args.productId)
      side.metadata.push_back(TextItem(tmx::writer::kItemProductId, *args.productId));
  }
  if (!args.cover.empty()) {
    std::string jpeg;
    if (!ReadFile(args.cover, &jpeg)) return Fail(args.cover, "cannot be read");
    if (jpeg.size() < 4 || std::uint8_t(jpeg[0]) != 0xFF || std::uint8_t(jpeg[1]) != 0xD8)
      return Fail(args.cover, "not a JPEG file");
    std::vector<std::uint8_t> bytes(jpeg.begin(), jpeg.end());
    // The cover is both the programme's picture and its cover item.
    side.pictures.push_back({0, 3, bytes});
    MetadataItem cover;
    cover.type = tmx::writer::kItemCover;
    cover.variants.push_back({tmx::writer::kDataJpeg, 0, std::move(bytes)});
    side.metadata.push_back(std::move(cover));
  }

  if (!tmxtool::CheckInput(args.input.c_str())) return 1;
  std::FILE* in = std::fopen(args.input.c_str(), "rb");
  if (!in) return Fail(args.input, tmxtool::SystemError(errno));
  tmxtool::OutputFile out;
  if (!out.Create(args.output)) {
    std::fclose(in);
    return 1;
  }
  StdioStream input(in);
  StdioStream output(out.file());
  const std::int32_t rc =
      tmx::writer::WriteProgrammeFromAdts(&input.base, side, args.options, &output.base);
  std::fclose(in);
  if (rc != TMX_OK) return Fail(rc == TMX_ERR_WRITE ? args.output : args.input, Describe(rc));
  return out.Commit() ? 0 : 1;
}
