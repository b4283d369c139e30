#include "common.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <cwchar>

#ifdef _WIN32
#include <windows.h>

// Windows has no close-on-exec flag, and opens files in text mode unless told.
constexpr int kOpenFlags = O_BINARY;
constexpr char kSeparators[] = "/\\";
// Unlike POSIX rename, the Windows one refuses an existing target.
static int MoveOver(const char* from, const char* to) {
  return MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING) ? 0 : (errno = EACCES, -1);
}
#else
constexpr char kSeparators[] = "/";
static int MoveOver(const char* from, const char* to) { return std::rename(from, to); }
constexpr int kOpenFlags = O_CLOEXEC;
#endif

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
  return Fail(what, std::string(ResultMeaning(rc)) + " (" + std::to_string(rc) + ")");
}

int Fail(const std::string& what, const std::string& cause) {
  std::fprintf(stderr, "tmxtool: %s: %s\n", what.c_str(), cause.c_str());
  return 1;
}

std::string SystemError(int error) {
  std::string text = std::strerror(error);
  if (!text.empty()) text[0] = char(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

bool CheckInput(const char* path) {
  struct stat st {};
  if (::stat(path, &st) != 0) {
    Fail(path, SystemError(errno));
    return false;
  }
  // A directory opens for reading on some systems and then fails to read;
  // it is refused here with a clearer message.
  if (S_ISDIR(st.st_mode)) {
    Fail(path, "is a directory");
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    Fail(path, "not a regular file");
    return false;
  }
  return true;
}

#ifdef _WIN32
// Windows's stat has no inode numbers: a file is known by its volume and index.
static bool FileIdentity(const std::string& path, BY_HANDLE_FILE_INFORMATION& info) {
  const HANDLE h = CreateFileA(path.c_str(), FILE_READ_ATTRIBUTES,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                               OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (h == INVALID_HANDLE_VALUE) return false;
  const bool ok = GetFileInformationByHandle(h, &info) != 0;
  CloseHandle(h);
  return ok;
}

bool SameFile(const std::string& a, const std::string& b) {
  BY_HANDLE_FILE_INFORMATION x{};
  BY_HANDLE_FILE_INFORMATION y{};
  return FileIdentity(a, x) && FileIdentity(b, y) &&
         x.dwVolumeSerialNumber == y.dwVolumeSerialNumber &&
         x.nFileIndexHigh == y.nFileIndexHigh && x.nFileIndexLow == y.nFileIndexLow;
}
#else
bool SameFile(const std::string& a, const std::string& b) {
  struct stat x {};
  struct stat y {};
  return ::stat(a.c_str(), &x) == 0 && ::stat(b.c_str(), &y) == 0 && x.st_dev == y.st_dev &&
         x.st_ino == y.st_ino;
}
#endif

int FailSameFile(const std::string& output, const std::string& input) {
  return Fail(output,
              "the output is the same file as the input" + (output == input ? "" : " " + input));
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

bool Programme::OpenWithPosition(const char* path) {
  if (!CheckInput(path)) return false;
  std::vector<wchar_t> wide;
  if (!ToWide(path, wide)) {
    Fail(path, "the path is not valid text in this locale");
    return false;
  }
  // The handle is taken only from a successful open.
  TMXFile* file = nullptr;
  if (std::int32_t rc = TMXOpenFileWinW(&file, wide.data()); rc != TMX_OK) {
    Fail(path, rc);
    return false;
  }
  file_ = file;
  return true;
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

Programme::~Programme() {
  // Closing the programme closes its stream, and so does a failed open.
  if (file_) TMXCloseFile(file_);
  if (input_.file) std::fclose(input_.file);
}

bool Programme::OpenReadOnly(const char* path) {
  if (!CheckInput(path)) return false;
  input_.path = path;
  // The handle is taken only from a successful open.
  TMXFile* file = nullptr;
  if (std::int32_t rc = TMXOpenFile(&file, &input_.base, nullptr); rc != TMX_OK) {
    Fail(path, rc);
    return false;
  }
  file_ = file;
  return true;
}

OutputFile::~OutputFile() {
  if (file_) std::fclose(file_);
  if (!committed_ && !temporary_.empty()) std::remove(temporary_.c_str());
}

bool OutputFile::Create(const std::string& target) {
  target_ = target;
  struct stat st {};
  if (::stat(target.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    Fail(target, "is a directory");
    return false;
  }
  // A hidden name beside the target, so that the rename stays within one
  // file system; O_EXCL never takes over a file that is already there.
  const std::size_t slash = target.find_last_of(kSeparators);
  const std::string folder = slash == std::string::npos ? "" : target.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? target : target.substr(slash + 1);
  int error = 0;
  for (int attempt = 0; attempt < 100; ++attempt) {
    temporary_ = folder + "." + name + ".tmxtool-" + std::to_string(::getpid()) + "-" +
                 std::to_string(attempt);
    const int fd = ::open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | kOpenFlags, 0666);
    if (fd >= 0) {
      file_ = ::fdopen(fd, "w+b");
      if (file_) return true;
      error = errno;
      ::close(fd);
      std::remove(temporary_.c_str());
      break;
    }
    error = errno;
    if (error != EEXIST) break;
  }
  temporary_.clear();
  Fail(target, "cannot be created: " + SystemError(error));
  return false;
}

const std::string& OutputFile::HandOver() {
  if (file_) std::fclose(file_);
  file_ = nullptr;
  return temporary_;
}

bool OutputFile::Commit() {
  if (file_) {
    // A write that failed on the way shows in the error flag.
    const bool written = !std::ferror(file_);
    const bool closed = std::fclose(file_) == 0 && written;
    const int error = written ? errno : EIO;
    file_ = nullptr;
    if (!closed) {
      Fail(target_, "writing failed: " + SystemError(error));
      return false;
    }
  }
  if (MoveOver(temporary_.c_str(), target_.c_str()) != 0) {
    Fail(target_, "cannot be replaced: " + SystemError(errno));
    return false;
  }
  committed_ = true;
  return true;
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
