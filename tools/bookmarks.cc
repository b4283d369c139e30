// tmxtool bookmarks: lists and edits the bookmarks of a programme, kept in
// its position file (PROGRAMME with the extension ".pos") behind the
// playback position.
//
// An existing list is read and edited through a stream of its own on that
// file, so that the playback position is neither loaded nor written back;
// only a new list is written through the position stream, which keeps the
// position record in front of it.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "common.h"

namespace tmxtool {
namespace {

constexpr std::uint32_t kNoteKey = 0x40736465;  // "@sde": the bookmark's note
constexpr std::uint32_t kUtf8 = 1;

// The position file's path: the programme's up to its last "." and ".pos".
std::string PositionPath(const std::string& programme) {
  const std::size_t dot = programme.rfind('.');
  return (dot == std::string::npos ? programme : programme.substr(0, dot)) + ".pos";
}

const char* BookmarkMeaning(std::int32_t rc) {
  switch (rc) {
    case TMX_ERR_NO_BOOKMARK_LIST: return "no bookmark list is open";
    case TMX_ERR_FOREIGN_LIST: return "the bookmarks belong to another programme";
    case TMX_ERR_READ_ONLY_LIST: return "the bookmark list is read-only";
    case TMX_ERR_DUPLICATE_BOOKMARK: return "a bookmark lies less than a second before";
    default: return ResultMeaning(rc);
  }
}

int FailWith(const std::string& what, std::int32_t rc) {
  return Fail(what, std::string(BookmarkMeaning(rc)) + " (" + std::to_string(rc) + ")");
}

// A bookmark number as `list` prints it (from 1), as the library's index.
bool ParseNumber(const char* text, std::uint32_t* value) {
  char* end = nullptr;
  errno = 0;
  const unsigned long n = std::strtoul(text, &end, 10);
  if (*text < '0' || *text > '9' || *end != '\0' || errno != 0 || n > 0xFFFFFFFFul) return false;
  *value = std::uint32_t(n);
  return true;
}

std::string Note(TMXFile* f, std::uint32_t index) {
  std::uint32_t size = 0;
  if (TMXGetBookmarkInfo(f, index, kNoteKey, 0, &size) != TMX_OK) return "";
  std::vector<std::uint8_t> text(std::size_t(size) + 1);
  if (TMXGetBookmarkMetadata(f, index, kNoteKey, text.data(), size + 1) != TMX_OK) return "";
  return reinterpret_cast<const char*>(text.data());
}

int List(TMXFile* f) {
  std::uint32_t count = 0;
  TMXGetBookmarkCount(f, &count);
  if (count == 0) std::printf("no bookmarks\n");
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint32_t ms = 0;
    TMXGetBookmarkTimeStamp(f, i, &ms);
    const std::string note = Note(f, i);
    std::printf("%3u  %s%s%s\n", i + 1, FormatTime(ms).c_str(), note.empty() ? "" : "  ",
                note.c_str());
  }
  return 0;
}

// An open programme whose position file holds the bookmarks.
class ProgrammeBookmarks {
 public:
  ProgrammeBookmarks(const char* path, bool edit)
      : programme_{{&kCliFileOps}, nullptr, path, false},
        position_{{&kCliFileOps}, nullptr, PositionPath(path), true},
        list_{{&kCliFileOps}, nullptr, PositionPath(path), edit} {}
  ~ProgrammeBookmarks() {
    if (file_) TMXCloseFile(file_);
    for (CliFile* s : {&programme_, &position_, &list_})
      if (s->file) std::fclose(s->file);
  }
  ProgrammeBookmarks(const ProgrammeBookmarks&) = delete;
  ProgrammeBookmarks& operator=(const ProgrammeBookmarks&) = delete;

  // Opens the programme, or prints why it cannot and returns false.
  bool Open() {
    if (!CheckInput(programme_.path.c_str())) return false;
    // The handle is taken only from a successful open.
    TMXFile* file = nullptr;
    if (std::int32_t rc = TMXOpenFile(&file, &programme_.base, &position_.base); rc != TMX_OK) {
      FailWith(programme_.path, rc);
      return false;
    }
    file_ = file;
    TMXSetUnicodeFormat(file_, kUtf8);
    return true;
  }
  // Opens the list; `create` makes one when the file holds none yet.
  std::int32_t OpenList(bool create) {
    const std::int32_t rc = TMXOpenBookmarkList(file_, &list_.base);
    if (!create || (rc != TMX_ERR_NOT_FOUND && rc != TMX_ERR_FILE)) return rc;
    // The saved position is loaded first, so that closing writes it back.
    std::uint32_t ms = 0;
    TMXGetPlaybackPosition(file_, &ms);
    return TMXInitBookmarkList(file_, &position_.base);
  }
  TMXFile* get() const { return file_; }

 private:
  TMXFile* file_ = nullptr;
  CliFile programme_;
  CliFile position_;
  CliFile list_;
};

}  // namespace

int Bookmarks(int argc, char** argv) {
  if (argc < 2) return Usage();
  const std::string action = argv[1];
  std::uint32_t number = 0;
  const char* note = nullptr;
  if (action == "list") {
    if (argc != 2) return Usage();
  } else if (action == "add") {
    if (argc == 5 && std::strcmp(argv[3], "--note") == 0) {
      note = argv[4];
    } else if (argc != 3) {
      return Usage();
    }
    if (!ParseNumber(argv[2], &number)) return Usage();
  } else if (action == "delete" || action == "seek") {
    if (argc != 3 || !ParseNumber(argv[2], &number) || number == 0) return Usage();
  } else {
    return Usage();
  }

  ProgrammeBookmarks b(argv[0], action != "list");
  if (!b.Open()) return 1;
  TMXFile* f = b.get();
  const std::int32_t opened = b.OpenList(action == "add");
  if (action == "list" && (opened == TMX_ERR_NOT_FOUND || opened == TMX_ERR_FILE)) {
    std::printf("no bookmarks\n");
    return 0;
  }
  if (opened == TMX_ERR_UNSUPPORTED)
    return Fail(argv[0], "no product id (\"@pid\") to keep bookmarks for");
  if (opened != TMX_OK) return FailWith(std::string(argv[0]) + ": " + "bookmark list", opened);

  if (action == "list") return List(f);
  if (action == "add") {
    std::uint32_t index = 0;
    if (std::int32_t rc = TMXAddBookmark(f, number, &index); rc != TMX_OK)
      return FailWith(std::string(argv[0]) + ": " + "add", rc);
    if (note) {
      if (std::int32_t rc =
              TMXAddBookmarkMetadata(f, index, kNoteKey, note, std::uint32_t(std::strlen(note)));
          rc != TMX_OK)
        return FailWith(std::string(argv[0]) + ": " + "note", rc);
    }
    std::uint32_t ms = 0;
    TMXGetBookmarkTimeStamp(f, index, &ms);
    std::printf("bookmark %u at %s\n", index + 1, FormatTime(ms).c_str());
    return 0;
  }
  if (action == "delete") {
    if (std::int32_t rc = TMXDeleteBookmark(f, number - 1); rc != TMX_OK)
      return FailWith(std::string(argv[0]) + ": " + "delete", rc);
    std::printf("bookmark %u deleted\n", number);
    return 0;
  }
  if (std::int32_t rc = TMXSeekToBookmark(f, number - 1); rc != TMX_OK)
    return FailWith(std::string(argv[0]) + ": " + "seek", rc);
  std::uint32_t ms = 0;
  TMXGetPlaybackPosition(f, &ms);
  std::printf("position: %s (%u ms)\n", FormatTime(ms).c_str(), ms);
  return 0;
}

}  // namespace tmxtool
