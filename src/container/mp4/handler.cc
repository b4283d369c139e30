#include "container/mp4/handler.h"

#include "codec/codec.h"
#include "container/mp4/atom.h"
#include "container/mp4/item_list.h"
#include "container/mp4/mp4_state.h"
#include "container/mp4/sample_description.h"
#include "container/mp4/sample_table.h"
#include "container/mp4/tracks.h"
#include "util/alloc.h"

namespace tmx::mp4 {
namespace {

// "mvhd" after version and flags: creation, modification, timescale and
// duration (64-bit times in version 1), rate, volume, reserved, matrix,
// pre-defined words and next track ID. Read through, nothing kept.
constexpr std::uint32_t kMovieHeaderV0 = 4 + 4 + 4 + 4 + 80;
constexpr std::uint32_t kMovieHeaderV1 = 8 + 8 + 4 + 8 + 80;

std::int32_t ReadMovieHeader(TMXStream* s, AtomRange movie) noexcept {
  Box mvhd{};
  TMX_RETURN_IF_ERROR(FindBoxOr(s, movie, FourCC("mvhd"), &mvhd, TMX_ERR_INCONSISTENT));
  std::uint8_t version = 0;
  std::uint32_t flags = 0;
  TMX_RETURN_IF_ERROR(AtomReadU24(s, &version, &flags));
  std::uint8_t fields[kMovieHeaderV1];
  return AtomReadBytes(s, {fields, version == 1 ? kMovieHeaderV1 : kMovieHeaderV0});
}

// The file-level item list: "udta" / "meta" (a full atom) / "ilst". Its
// absence is no error (the position stays 0); a failed read is.
std::int32_t FindMetadataList(TMXStream* s, AtomRange movie, std::uint32_t* listPos) noexcept {
  Box box{};
  std::int32_t rc = FindBox(s, movie, FourCC("udta"), &box);
  if (rc == 0) rc = FindBox(s, box.payload(), FourCC("meta"), &box);
  if (rc == 0 && box.size - kAtomHeaderSize < 4) rc = kAbsent;
  if (rc == 0)
    rc = FindBox(s, {box.pos + kAtomHeaderSize + 4, box.pos + box.size}, FourCC("ilst"), &box);
  if (rc == kAbsent) return TMX_OK;
  TMX_RETURN_IF_ERROR(rc);
  *listPos = box.pos;
  return TMX_OK;
}

// The top level: "ftyp" (its minor version is kept) and "moov".
struct TopLevel {
  Container* file;
  AtomRange movie;
};
constexpr std::int32_t kMovieFound = 2;

std::int32_t ReadFileType(TopLevel& top, const Box&) noexcept {
  TMXStream* s = top.file->stream;
  std::uint32_t brand = 0, minor = 0;
  if (AtomReadU32(s, &brand) == 0 && AtomReadU32(s, &minor) == 0)
    State(top.file).brandMinorVersion = minor;
  return TMX_OK;
}

std::int32_t ReadMovie(TopLevel& top, const Box& box) noexcept {
  top.movie = box.payload();
  return kMovieFound;
}

constexpr BoxReader<TopLevel> kTopLevel[] = {{FourCC("ftyp"), ReadFileType},
                                             {FourCC("moov"), ReadMovie}};

// False when the walk ends without a movie.
bool WalkTopLevel(Container* file, TMXStream* s, AtomRange* movie) noexcept {
  TopLevel top{file, {}};
  if (Walk(s, FileRange(s), kTopLevel, top) != kMovieFound) return false;
  *movie = top.movie;
  return true;
}

void Release(Container* file) noexcept {
  Free(file->info.chapterStartFrames);
  file->info.chapterStartFrames = nullptr;
  file->info.chapterCount = 0;
  if (file->state) {
    Mp4State& st = State(file);
    ReleaseChunk(file);
    Free(st.imageTracks);
    Free(st.chapterListPos);
    Free(file->state);
    file->state = nullptr;
  }
}

std::int32_t ParseMovie(Container* file, TMXStream* s) noexcept {
  file->stream = s;
  State(file).streamSize = s->ops->GetSize(s);
  AtomRange movie{};
  if (WalkTopLevel(file, s, &movie)) {
    TMX_RETURN_IF_ERROR(ReadMovieHeader(s, movie));
    TMX_RETURN_IF_ERROR(FindMetadataList(s, movie, &State(file).metadataListPos));
  }
  TMX_RETURN_IF_ERROR(FindAudioTrack(file));
  // Without usable tables or chapter tracks the programme cannot be played.
  if (SetUpAudioTables(file) != 0 || LoadChapterTracks(file) != 0) return TMX_ERR_UNSUPPORTED;
  return TMX_OK;
}

std::int32_t OpenContainer(Container* file, TMXStream* s) noexcept {
  auto* state = AllocObject<Mp4State>();
  if (!state) return TMX_ERR_MEMORY;
  file->state = state;
  std::int32_t rc = ParseMovie(file, s);
  if (rc != 0) Release(file);
  return rc;
}

std::int32_t CloseContainer(Container* file) noexcept {
  Release(file);
  return TMX_OK;
}

}  // namespace

const FormatHandler kMp4Handler = {OpenContainer,    CloseContainer, GetMetadataLocaleList,
                                   GetMetadataItem,  SeekToFrame,    AdvanceFrame,
                                   ReadEncodedFrame, DecodeFrame,    GetSampleInfo};

}  // namespace tmx::mp4
