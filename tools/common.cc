#include "common.h"

#include <cstdio>
#include <cwchar>

namespace tmxtool {

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

int Fail(const std::string& what, std::int32_t rc) {
  std::fprintf(stderr, "tmxtool: %s: %d (%s)\n", what.c_str(), rc, ResultMeaning(rc));
  return 1;
}

bool ToWide(const char* path, std::vector<wchar_t>& out) {
  std::mbstate_t state{};
  const char* src = path;
  const std::size_t n = std::mbsrtowcs(nullptr, &src, 0, &state);
  if (n == static_cast<std::size_t>(-1)) return false;
  out.assign(n + 1, L'\0');
  src = path;
  state = {};
  std::mbsrtowcs(out.data(), &src, n + 1, &state);
  return true;
}

std::int32_t Programme::OpenWithPosition(const char* path) {
  std::vector<wchar_t> wide;
  if (!ToWide(path, wide)) return TMX_ERR_ARGUMENT;
  return TMXOpenFileWinW(&file_, wide.data());
}

namespace {

CliFile* Self(TMXStream* s) { return reinterpret_cast<CliFile*>(s); }

std::int32_t OpenAs(TMXStream* s, const char* mode) {
  if (Self(s)->file) std::fclose(Self(s)->file);
  Self(s)->file = std::fopen(Self(s)->path.c_str(), mode);
  return Self(s)->file ? TMX_OK : TMX_ERR_FILE;
}

}  // namespace

const TMXStreamOps kCliFileOps = {
    [](TMXStream* s) -> std::int32_t {
      // Opens the file for reading and writing, creating it when missing.
      if (OpenAs(s, "r+b") == TMX_OK) return TMX_OK;
      return OpenAs(s, "w+b");
    },
    [](TMXStream* s, std::int32_t mode) -> std::int32_t {
      if (mode != TMX_STREAM_READ && mode != TMX_STREAM_READ_WRITE) return TMX_ERR_ARGUMENT;
      return OpenAs(s, mode == TMX_STREAM_READ && !Self(s)->writable ? "rb" : "r+b");
    },
    [](TMXStream* s) -> std::int32_t {
      if (!Self(s)->file) return TMX_ERR_HANDLE;
      std::fclose(Self(s)->file);
      Self(s)->file = nullptr;
      return TMX_OK;
    },
    [](TMXStream* s) -> std::uint32_t {
      std::FILE* f = Self(s)->file;
      if (!f) return TMX_STREAM_UNKNOWN;
      const long here = std::ftell(f);
      std::fseek(f, 0, SEEK_END);
      const long size = std::ftell(f);
      std::fseek(f, here, SEEK_SET);
      return size < 0 ? TMX_STREAM_UNKNOWN : std::uint32_t(size);
    },
    [](TMXStream* s) -> std::uint32_t {
      if (!Self(s)->file) return TMX_STREAM_UNKNOWN;
      const long here = std::ftell(Self(s)->file);
      return here < 0 ? TMX_STREAM_UNKNOWN : std::uint32_t(here);
    },
    [](TMXStream* s, std::uint32_t position) -> std::int32_t {
      if (!Self(s)->file) return TMX_ERR_HANDLE;
      return std::fseek(Self(s)->file, long(position), SEEK_SET) == 0 ? TMX_OK : TMX_ERR_SEEK;
    },
    [](TMXStream* s, void* buffer, std::int32_t count, std::int32_t* done) -> std::int32_t {
      if (!Self(s)->file || !buffer || count < 0) return TMX_ERR_READ;
      const std::size_t n = std::fread(buffer, 1, std::size_t(count), Self(s)->file);
      if (done) *done = std::int32_t(n);
      return n == 0 ? TMX_ERR_READ : TMX_OK;
    },
    [](TMXStream* s, const void* buffer, std::int32_t count, std::int32_t* done) -> std::int32_t {
      if (!Self(s)->file || !buffer || count <= 0) return TMX_ERR_WRITE;
      const std::size_t n = std::fwrite(buffer, 1, std::size_t(count), Self(s)->file);
      std::fflush(Self(s)->file);
      if (done) *done = std::int32_t(n);
      return n == 0 ? TMX_ERR_WRITE : TMX_OK;
    },
};

Programme::Programme() : input_{{&kCliFileOps}, nullptr, {}, false} {}

std::int32_t Programme::OpenReadOnly(const char* path) {
  input_.path = path;
  return TMXOpenFile(&file_, &input_.base, nullptr);
}

std::string FormatTime(std::uint32_t ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%u:%02u:%02u.%03u", ms / 3600000, ms / 60000 % 60,
                ms / 1000 % 60, ms % 1000);
  return text;
}

namespace {

// Bytes of the valid UTF-8 sequence at text[i] (a lead byte at or above
// 0x80), 0 when there is none: no overlong forms, no surrogates, nothing
// above U+10FFFF.
std::size_t Utf8Length(std::string_view text, std::size_t i) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  std::size_t n = 0;
  unsigned char low = 0x80, high = 0xBF;  // range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    n = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    n = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    n = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (i + n > text.size() || byte(i + 1) < low || byte(i + 1) > high) return 0;
  for (std::size_t k = 2; k < n; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
  }
  return n;
}

}  // namespace

std::string JsonString(std::string_view text) {
  std::string out = "\"";
  for (std::size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x80) {
      if (const std::size_t n = Utf8Length(text, i); n != 0) {
        out.append(text.substr(i, n));
        i += n;
        continue;
      }
    }
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20 || c >= 0x80) {
          char escape[8];
          std::snprintf(escape, sizeof escape, "\\u%04x", c);
          out += escape;
        } else {
          out += char(c);
        }
    }
    ++i;
  }
  return out + "\"";
}

}  // namespace tmxtool
