// tmxtool info: what the library reads from a programme, as text or JSON.
// tmxtool chapters: the chapter list, as "tmxtool mux --chapters" reads it.
// tmxtool cover: the cover picture as a file.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "common.h"

namespace tmxtool {
namespace {

constexpr std::uint32_t Key(const char (&s)[5]) {
  return (std::uint32_t(std::uint8_t(s[0])) << 24) | (std::uint32_t(std::uint8_t(s[1])) << 16) |
         (std::uint32_t(std::uint8_t(s[2])) << 8) | std::uint32_t(std::uint8_t(s[3]));
}

constexpr std::uint32_t kCoverKey = Key("@car");
constexpr std::uint32_t kUserAliasKey = Key("@ual");

struct Property {
  const char* label;
  const char* json;
  std::int32_t (*get)(TMXFile*, std::uint32_t*);
};

const Property kProperties[] = {
    {"sample rate", "sampleRate", TMXGetSampleRate},
    {"channels", "channels", TMXGetAudioChannelCount},
    {"duration ms", "durationMs", TMXGetDuration},
    {"average bitrate", "averageBitrate", TMXGetAvgBitrate},
    {"maximum bitrate", "maximumBitrate", TMXGetMaxBitrate},
    {"chapters", "chapterCount", TMXGetChapterCount},
    {"images", "pictureCount", TMXGetImageCount},
    {"links", "linkCount", TMXGetLinkCount},
};

struct TagKey {
  const char* label;
  const char* json;
  std::uint32_t key;
};

// The text tags, in the order they are shown; the user alias follows.
const TagKey kTags[] = {
    {"title", "title", Key("@tit")},
    {"short title", "shortTitle", Key("@sti")},
    {"author", "author", Key("@aut")},
    {"narrator", "narrator", Key("@nar")},
    {"provider", "provider", Key("@pro")},
    {"publication date", "publicationDate", Key("@pda")},
    {"category", "category", Key("@cat")},
    {"genre", "genre", Key("@sub")},
    {"copyright", "copyright", Key("@cop")},
    {"description", "description", Key("@sde")},
    {"long description", "longDescription", Key("@lde")},
    {"parent title", "parentTitle", Key("@pti")},
    {"parent id", "parentId", Key("@ppi")},
    {"product id", "productId", Key("@pid")},
};

struct Tag {
  const char* label;
  const char* json;
  std::string value;  // UTF-8
};

struct Chapter {
  std::uint32_t startMs;
  std::string title;
};

struct Link {
  std::uint32_t startMs;
  std::string address;  // as stored
  std::string caption;
};

struct Summary {
  std::uint32_t fileType = 0;
  std::vector<std::pair<const Property*, std::optional<std::uint32_t>>> properties;
  std::vector<Tag> tags;
  std::optional<std::uint32_t> coverSize;
  std::vector<Chapter> chapters;
  std::vector<Link> links;
};

std::string UpToZero(const std::vector<std::uint8_t>& bytes, std::size_t from = 0) {
  if (from >= bytes.size()) return {};
  const auto begin = bytes.begin() + std::ptrdiff_t(from);
  return std::string(begin, std::find(begin, bytes.end(), 0));
}

// Room for a value the library sizes as `needed` bytes: the size it reports
// for UTF-8 output undercounts values stored as single-byte or 16-bit text.
std::vector<std::uint8_t> TextBuffer(std::uint32_t needed) {
  return std::vector<std::uint8_t>(std::size_t(needed) * 3 + 16);
}

std::optional<std::string> ReadTag(TMXFile* file, std::uint32_t key) {
  std::uint32_t needed = 0;
  // A tag of no bytes (the older container's answer for a missing one) is
  // left out like a missing tag.
  if (TMXGetMetadataInfo(file, key, 0, &needed) != TMX_OK || needed == 0) return std::nullopt;
  std::vector<std::uint8_t> buffer = TextBuffer(needed);
  if (TMXGetMetadata(file, key, buffer.data(), std::uint32_t(buffer.size())) != TMX_OK)
    return std::nullopt;
  return UpToZero(buffer);
}

std::optional<std::string> ReadUserAlias(TMXFile* file) {
  std::uint32_t needed = 0;
  if (TMXGetMetadataInfo(file, kUserAliasKey, 0, &needed) != TMX_OK || needed == 0)
    return std::nullopt;
  std::vector<std::uint8_t> buffer = TextBuffer(needed);
  std::uint32_t size = std::uint32_t(buffer.size());
  if (TMXGetUseralias(file, buffer.data(), &size) != TMX_OK) return std::nullopt;
  return UpToZero(buffer);
}

// The chapter's title in UTF-8; empty when it has none.
std::string ChapterTitle(TMXFile* file, std::uint32_t chapter) {
  TMXFrameInfo record{};
  if (TMXGetChapterInfo(file, chapter, &record) != TMX_OK || record.size == 0) return {};
  std::vector<std::uint8_t> buffer(record.size);
  if (TMXGetChapterText(file, &record, buffer.data(), record.size) != TMX_OK) return {};
  return UpToZero(buffer);
}

std::optional<Link> ReadLink(TMXFile* file, std::uint32_t index) {
  TMXFrameInfo record{};
  if (TMXGetLinkInfo(file, index, &record) != TMX_OK) return std::nullopt;
  // The address (up to 255 bytes) and its terminator, then the caption,
  // which is no longer in UTF-8 than in the sample.
  std::vector<std::uint8_t> buffer(std::size_t(record.size) + 256 + 1);
  if (TMXGetLink(file, &record, buffer.data(), std::uint32_t(buffer.size())) != TMX_OK)
    return std::nullopt;
  Link link{record.startTime, UpToZero(buffer), {}};
  link.caption = UpToZero(buffer, link.address.size() + 1);
  return link;
}

// Reads everything `info` shows. Text is asked for in UTF-8.
Summary Summarise(TMXFile* file) {
  Summary s;
  TMXSetUnicodeFormat(file, 1);
  TMXGetFileType(file, &s.fileType);
  for (const Property& p : kProperties) {
    std::uint32_t value = 0;
    s.properties.push_back(
        {&p, p.get(file, &value) == TMX_OK ? std::optional(value) : std::nullopt});
  }
  for (const TagKey& t : kTags) {
    if (std::optional<std::string> value = ReadTag(file, t.key)) {
      s.tags.push_back({t.label, t.json, std::move(*value)});
    }
  }
  if (std::optional<std::string> alias = ReadUserAlias(file)) {
    s.tags.push_back({"user alias", "userAlias", std::move(*alias)});
  }
  std::uint32_t coverSize = 0;
  if (TMXGetMetadataInfo(file, kCoverKey, 0, &coverSize) == TMX_OK) s.coverSize = coverSize;
  std::uint32_t count = 0;
  TMXGetChapterCount(file, &count);
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint32_t ms = 0;
    TMXGetChapterStartTime(file, i, &ms);
    s.chapters.push_back({ms, ChapterTitle(file, i)});
  }
  count = 0;
  TMXGetLinkCount(file, &count);
  for (std::uint32_t i = 0; i < count; ++i) {
    if (std::optional<Link> link = ReadLink(file, i)) s.links.push_back(std::move(*link));
  }
  return s;
}

void PrintText(const Summary& s) {
  std::printf("file type: %u (%s)\n", s.fileType, FileTypeName(s.fileType));
  for (const auto& [p, value] : s.properties) {
    if (value) {
      std::printf("%s: %u\n", p->label, *value);
    } else {
      std::printf("%s: unavailable\n", p->label);
    }
  }
  for (const Tag& t : s.tags) std::printf("%s: %s\n", t.label, t.value.c_str());
  if (s.coverSize) std::printf("cover: %u bytes\n", *s.coverSize);
  for (std::size_t i = 0; i < s.chapters.size(); ++i) {
    std::printf("chapter %zu: %s %s\n", i + 1, FormatTime(s.chapters[i].startMs).c_str(),
                s.chapters[i].title.c_str());
  }
  for (std::size_t i = 0; i < s.links.size(); ++i) {
    const Link& l = s.links[i];
    std::printf("link %zu: %s %s (%s)\n", i + 1, FormatTime(l.startMs).c_str(), l.address.c_str(),
                l.caption.c_str());
  }
}

void PrintJson(const Summary& s) {
  std::string out = "{\n";
  out += "  \"fileType\": " + std::to_string(s.fileType) + ",\n";
  out += "  \"fileTypeName\": " + JsonString(FileTypeName(s.fileType)) + ",\n";
  for (const auto& [p, value] : s.properties) {
    out += "  " + JsonString(p->json) + ": " + (value ? std::to_string(*value) : "null") + ",\n";
  }
  out += "  \"tags\": {";
  for (std::size_t i = 0; i < s.tags.size(); ++i) {
    out += i ? ",\n    " : "\n    ";
    out += JsonString(s.tags[i].json) + ": " + JsonString(s.tags[i].value);
  }
  out += s.tags.empty() ? "},\n" : "\n  },\n";
  out += "  \"cover\": ";
  out += s.coverSize ? "{\"bytes\": " + std::to_string(*s.coverSize) + "}" : std::string("null");
  out += ",\n  \"chapters\": [";
  for (std::size_t i = 0; i < s.chapters.size(); ++i) {
    const Chapter& c = s.chapters[i];
    out += i ? ",\n    " : "\n    ";
    out += "{\"startMs\": " + std::to_string(c.startMs) +
           ", \"start\": " + JsonString(FormatTime(c.startMs)) +
           ", \"title\": " + JsonString(c.title) + "}";
  }
  out += s.chapters.empty() ? "],\n" : "\n  ],\n";
  out += "  \"links\": [";
  for (std::size_t i = 0; i < s.links.size(); ++i) {
    const Link& l = s.links[i];
    out += i ? ",\n    " : "\n    ";
    out += "{\"startMs\": " + std::to_string(l.startMs) +
           ", \"address\": " + JsonString(l.address) + ", \"caption\": " + JsonString(l.caption) +
           "}";
  }
  out += s.links.empty() ? "]\n" : "\n  ]\n";
  out += "}\n";
  std::fputs(out.c_str(), stdout);
}

}  // namespace

int Info(int argc, char** argv) {
  const char* path = nullptr;
  bool json = false;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--json") == 0) {
      json = true;
    } else if (!path && argv[i][0] != '-') {
      path = argv[i];
    } else {
      return Usage();
    }
  }
  if (!path) return Usage();
  Programme p;
  if (!p.OpenReadOnly(path)) return 1;
  const Summary s = Summarise(p.get());
  if (json) {
    PrintJson(s);
  } else {
    PrintText(s);
  }
  return 0;
}

int Chapters(int argc, char** argv) {
  if (argc != 1) return Usage();
  Programme p;
  if (!p.OpenReadOnly(argv[0])) return 1;
  TMXFile* file = p.get();
  TMXSetUnicodeFormat(file, 1);
  std::uint32_t count = 0;
  if (std::int32_t rc = TMXGetChapterCount(file, &count); rc != TMX_OK)
    return Fail(std::string(argv[0]) + ": chapters", rc);
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint32_t ms = 0;
    if (std::int32_t rc = TMXGetChapterStartTime(file, i, &ms); rc != TMX_OK)
      return Fail(std::string(argv[0]) + ": chapter " + std::to_string(i + 1), rc);
    // One line a chapter: line breaks inside a title become spaces, and a
    // chapter without a title gets one, since the list needs it.
    std::string title = ChapterTitle(file, i);
    for (char& c : title) {
      if (c == '\n' || c == '\r') c = ' ';
    }
    if (title.find_first_not_of(" \t") == std::string::npos)
      title = "Chapter " + std::to_string(i + 1);
    std::printf("%s %s\n", FormatTime(ms).c_str(), title.c_str());
  }
  return 0;
}

int Cover(int argc, char** argv) {
  if (argc != 3 || std::strcmp(argv[1], "-o") != 0) return Usage();
  const char* output = argv[2];
  if (SameFile(output, argv[0])) return FailSameFile(output, argv[0]);
  Programme p;
  if (!p.OpenReadOnly(argv[0])) return 1;
  std::uint32_t size = 0;
  std::int32_t rc = TMXGetMetadataInfo(p.get(), kCoverKey, 0, &size);
  if (rc == TMX_OK && size == 0) rc = TMX_ERR_NOT_FOUND;
  if (rc != TMX_OK) return Fail(std::string(argv[0]) + ": cover picture", rc);
  // The cover is handed over as raw bytes, whatever the text format.
  std::vector<std::uint8_t> jpeg(size);
  if (rc = TMXGetMetadata(p.get(), kCoverKey, jpeg.data(), size); rc != TMX_OK)
    return Fail(std::string(argv[0]) + ": cover picture", rc);
  OutputFile out;
  if (!out.Create(output)) return 1;
  if (std::fwrite(jpeg.data(), 1, jpeg.size(), out.file()) != jpeg.size())
    return Fail(output, TMX_ERR_WRITE);
  if (!out.Commit()) return 1;
  std::printf("%u bytes written to %s\n", size, output);
  return 0;
}

}  // namespace tmxtool
