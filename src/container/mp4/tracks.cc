#include "container/mp4/tracks.h"

#include <algorithm>

#include "io/stream_io.h"
#include "util/alloc.h"

namespace tmx::mp4 {
namespace {

bool IsSampleEntry(std::uint32_t type, std::uint32_t* canonical) noexcept {
  for (std::uint32_t known :
       {FourCC("mp4a"), FourCC("tmvd"), FourCC("jpeg"), FourCC("text"), FourCC("tx3g")}) {
    if (AtomTypeMatches(type, known)) {
      *canonical = known;
      return true;
    }
  }
  return false;
}

// Payload range of the box of `type` whose header is at `position`, which
// must lie inside the movie; another type gives `wrongType`.
std::int32_t OpenAtom(const Container* file, std::uint32_t position, std::uint32_t type,
                      AtomRange* payload, std::int32_t wrongType) noexcept {
  Box box{};
  const std::int32_t rc = OpenBoxAt(file->stream, position, type, State(file).movie, &box);
  if (rc == kAbsent) return wrongType;
  TMX_RETURN_IF_ERROR(rc);
  *payload = box.payload();
  return TMX_OK;
}

// Finds a child and returns its payload range; kAbsent when there is none.
std::int32_t FindPayload(TMXStream* s, AtomRange range, std::uint32_t type,
                         AtomRange* payload) noexcept {
  Box box{};
  TMX_RETURN_IF_ERROR(FindBox(s, range, type, &box));
  *payload = box.payload();
  return TMX_OK;
}

// As FindPayload, with the absence reported as `absentCode`.
std::int32_t FindPayloadOr(TMXStream* s, AtomRange range, std::uint32_t type, AtomRange* payload,
                           std::int32_t absentCode) noexcept {
  const std::int32_t rc = FindPayload(s, range, type, payload);
  return rc == kAbsent ? absentCode : rc;
}

// The "mdhd" of a track: the audio timescale (when wanted) and the quality
// bits of the 16-bit field after the language code.
std::int32_t ReadMediaHeader(Container* file, TMXStream* s, TrackRecord* track,
                             bool audio) noexcept {
  std::uint8_t version = 0;
  TMX_RETURN_IF_ERROR(AtomReadU8(s, &version));
  // Flags and the creation and modification times.
  TMX_RETURN_IF_ERROR(AtomSkip(s, version == 1 ? 19 : 11));
  std::uint32_t timescale = 0;
  if (AtomReadU32(s, &timescale) != 0) return TMX_ERR_NOT_FOUND;
  if (audio) {
    file->info.sampleRate = timescale;
    file->info.positionSaveInterval = std::int32_t((timescale * 30) >> 10);
  }
  // Duration and language.
  if (AtomSkip(s, (version == 1 ? 8 : 4) + 2) != 0) return TMX_ERR_NOT_FOUND;
  std::uint16_t quality = 0;
  if (AtomReadU16(s, &quality) != 0) return TMX_ERR_NOT_FOUND;
  track->flags |= quality & kQualityMask;
  return TMX_OK;
}

// Walks the sample entries of "stsd" (bounded by the end of the track) for
// the first recognised one; "png " entries before it set flag 0x10.
std::int32_t ReadEntryType(TMXStream* s, std::uint32_t stsdPos, AtomRange trak,
                           TrackRecord* track) noexcept {
  constexpr std::int32_t kFound = 2;
  const std::int32_t rc =
      ForEachBox(s, {stsdPos + 16, trak.end}, [&](const Box& entry) -> std::int32_t {
        if (AtomTypeMatches(entry.type, FourCC("png "))) {
          track->flags |= kLeadingExtraSample;
        } else if (std::uint32_t canonical = 0; IsSampleEntry(entry.type, &canonical)) {
          track->entryType = canonical;
          return kFound;
        }
        return TMX_OK;
      });
  return rc == kFound ? TMX_OK : rc;
}

// Reads the sample count of a track's "stsz"; when the table holds per-sample
// sizes, the count must fit the atom.
std::int32_t ReadSampleCount(TMXStream* s, AtomRange stbl, std::uint32_t* count) noexcept {
  Box stsz{};
  TMX_RETURN_IF_ERROR(FindBoxOr(s, stbl, FourCC("stsz"), &stsz, TMX_ERR_NOT_FOUND));
  std::uint32_t versionFlags = 0, sampleSize = 0;
  TMX_RETURN_IF_ERROR(AtomReadU32(s, &versionFlags));
  TMX_RETURN_IF_ERROR(AtomReadU32(s, &sampleSize));
  return AtomReadU32(s, count);
}

std::int32_t StblOf(const Container* file, const TrackRecord& track, AtomRange* stbl) noexcept {
  if (track.stblPos == 0) return TMX_ERR_NOT_FOUND;
  return OpenAtom(file, track.stblPos, FourCC("stbl"), stbl, TMX_ERR_NOT_FOUND);
}

// Chapter start frames from the chapter-title track.
std::int32_t LoadChapters(Container* file, const TrackRecord& track) noexcept {
  TMXStream* s = file->stream;
  AtomRange stbl{}, stts{};
  TMX_RETURN_IF_ERROR(StblOf(file, track, &stbl));
  std::uint32_t count = 0;
  TMX_RETURN_IF_ERROR(ReadSampleCount(s, stbl, &count));
  if (count == 0) return TMX_OK;
  // Each chapter has a title sample of at least its 2-byte length.
  if (!BytesExist(s, 2ull * count)) return TMX_ERR_INCONSISTENT;
  TMX_RETURN_IF_ERROR(FindPayloadOr(s, stbl, FourCC("stts"), &stts, TMX_ERR_NOT_FOUND));
  Owned<std::uint32_t> starts(AllocArray<std::uint32_t>(count));
  if (!starts) return TMX_ERR_MEMORY;
  TMX_RETURN_IF_ERROR(SumSampleDeltas(s, stts, file->info.samplesPerFrame, starts.get(), count));
  Free(file->info.chapterStartFrames);
  file->info.chapterStartFrames = starts.release();
  file->info.chapterCount = count;
  return TMX_OK;
}

// The tracks sharing an image track's alternate group, the main one first
// and the others in file order.
std::int32_t LoadImageGroup(Container* file, const TrackRecord& first) noexcept {
  TMXStream* s = file->stream;
  Mp4State& st = State(file);
  const AtomRange movie = st.movie;
  std::uint32_t count = 0;
  TMX_RETURN_IF_ERROR(ForEachTrack(s, movie, [&](std::uint32_t pos, std::uint32_t size) {
    TrackRecord t{};
    if (ParseTrackHeader(s, PayloadOf(pos, size), &t) == 0 &&
        t.alternateGroup == first.alternateGroup)
      ++count;
    return TMX_OK;
  }));
  if (count == 0) return TMX_OK;
  auto* group = AllocArray<TrackRecord>(count);
  if (!group) return TMX_OK;  // keep the single track
  std::uint32_t next = count > 1 ? 1 : 0;
  std::int32_t rc = ForEachTrack(s, movie, [&](std::uint32_t pos, std::uint32_t size) {
    TrackRecord t{};
    if (ParseTrackHeader(s, PayloadOf(pos, size), &t) != 0 ||
        t.alternateGroup != first.alternateGroup)
      return TMX_OK;
    WalkTrack(file, pos, &t, false);
    if (t.flags & kMainTrackFlag) {
      group[0] = t;
    } else {
      group[next] = t;
      if (++next >= count) next = 0;
    }
    return TMX_OK;
  });
  if (rc != 0) {
    Free(group);
    return rc;
  }
  Free(st.imageTracks);
  st.imageTracks = group;
  st.imageTrackCount = count;
  return TMX_OK;
}

// Makes `track` the image track: the image count and the group's renditions.
std::int32_t LoadImages(Container* file, const TrackRecord& track) noexcept {
  TMXStream* s = file->stream;
  Mp4State& st = State(file);
  AtomRange stbl{}, stsd{};
  TMX_RETURN_IF_ERROR(StblOf(file, track, &stbl));
  TMX_RETURN_IF_ERROR(FindPayloadOr(s, stbl, FourCC("stsd"), &stsd, TMX_ERR_NOT_FOUND));
  std::uint32_t versionFlags = 0, entries = 0, entrySize = 0, entryType = 0;
  TMX_RETURN_IF_ERROR(AtomReadU32(s, &versionFlags));
  TMX_RETURN_IF_ERROR(AtomReadU32(s, &entries));
  TMX_RETURN_IF_ERROR(AtomReadHeader(s, &entrySize, &entryType));
  std::uint32_t count = 0;
  TMX_RETURN_IF_ERROR(ReadSampleCount(s, stbl, &count));
  if (!AtomTypeMatches(entryType, FourCC("jpeg")) && count > 0) --count;

  auto* single = AllocObject<TrackRecord>();
  if (!single) return TMX_ERR_MEMORY;
  *single = track;
  Free(st.imageTracks);
  st.imageTracks = single;
  st.imageTrackCount = 1;
  file->info.imageCount = count;
  if (track.alternateGroup == 0) return TMX_OK;
  return LoadImageGroup(file, track);
}

void DropImages(Container* file) noexcept {
  Mp4State& st = State(file);
  Free(st.imageTracks);
  st.imageTracks = nullptr;
  st.imageTrackCount = 0;
  file->info.imageCount = 0;
}

void DropChapters(Container* file) noexcept {
  Free(file->info.chapterStartFrames);
  file->info.chapterStartFrames = nullptr;
  file->info.chapterCount = 0;
}

// Reads the "chap" list of track IDs from the audio track's "tref"; an empty
// list when there is none or "tref" begins with another child.
std::int32_t ReadChapterTrackIds(Container* file, Owned<std::uint32_t>& ids,
                                 std::uint32_t* count) noexcept {
  TMXStream* s = file->stream;
  const Mp4State& st = State(file);
  *count = 0;
  AtomRange trak{}, tref{};
  TMX_RETURN_IF_ERROR(
      OpenAtom(file, st.audioTrack.trakPos, FourCC("trak"), &trak, TMX_ERR_NOT_FOUND));
  if (const std::int32_t rc = FindPayload(s, trak, FourCC("tref"), &tref); rc != 0)
    return rc == kAbsent ? TMX_OK : rc;
  if (tref.end - tref.begin < kAtomHeaderSize) return TMX_OK;
  // Only a "chap" list at the head of "tref" counts; it lies inside "tref",
  // which bounds the number of IDs.
  Box chap{};
  TMX_RETURN_IF_ERROR(ReadBoxAt(s, tref.begin, tref, &chap));
  if (!AtomTypeMatches(chap.type, FourCC("chap"))) return TMX_OK;
  const std::uint32_t n = (chap.size - kAtomHeaderSize) / 4;
  if (n == 0) return TMX_OK;
  ids.reset(AllocArray<std::uint32_t>(n));
  if (!ids) return TMX_ERR_MEMORY;
  for (std::uint32_t i = 0; i < n; ++i) TMX_RETURN_IF_ERROR(AtomReadU32(s, &ids.get()[i]));
  *count = n;
  return TMX_OK;
}

// The walk of a track's "mdia": "mdhd" is read, "minf" ends the walk.
struct MediaWalk {
  Container* file;
  TrackRecord* track;
  bool audio;
  AtomRange minf;
};
constexpr std::int32_t kMinfFound = 2;

std::int32_t ReadMdhd(MediaWalk& walk, const Box&) noexcept {
  return ReadMediaHeader(walk.file, walk.file->stream, walk.track, walk.audio);
}

std::int32_t ReadMinf(MediaWalk& walk, const Box& box) noexcept {
  walk.minf = box.payload();
  return kMinfFound;
}

constexpr BoxReader<MediaWalk> kMediaReaders[] = {{FourCC("mdhd"), ReadMdhd},
                                                  {FourCC("minf"), ReadMinf}};

}  // namespace

std::int32_t ParseTrackHeader(TMXStream* s, AtomRange trak, TrackRecord* track) noexcept {
  TMX_RETURN_IF_ERROR(FindPayloadOr(s, trak, FourCC("tkhd"), &trak, TMX_ERR_NOT_FOUND));
  std::uint8_t version = 0;
  std::uint32_t flags = 0;
  TMX_RETURN_IF_ERROR(AtomReadU24(s, &version, &flags));
  // Times and duration are 8 bytes in version 1, 4 in version 0.
  const std::uint32_t wide = version == 1 ? 8 : 4;
  std::uint8_t fields[8 + 8 + 4 + 4 + 8 + 8 + 2 + 2 + 2 + 2 + 36 + 4 + 4];
  const std::uint32_t length = wide * 3 + 8 + 8 + 8 + 36 + 8;
  TMX_RETURN_IF_ERROR(AtomReadBytes(s, {fields, length}));
  track->trackId = LoadBE32(fields + 2 * wide);
  track->flags = flags & ~0xF0u;
  track->alternateGroup = LoadBE16(fields + 3 * wide + 8 + 8 + 2);
  return TMX_OK;
}

std::int32_t WalkTrack(Container* file, std::uint32_t trakPos, TrackRecord* track,
                       bool audio) noexcept {
  TMXStream* s = file->stream;
  track->entryType = 0;
  AtomRange trak{}, mdia{}, stbl{};
  TMX_RETURN_IF_ERROR(OpenAtom(file, trakPos, FourCC("trak"), &trak, TMX_ERR_NOT_FOUND));
  track->trakPos = trakPos;
  if (const std::int32_t rc = FindPayload(s, trak, FourCC("mdia"), &mdia); rc != 0)
    return rc == kAbsent ? TMX_OK : rc;

  // The children of "mdia" up to "minf"; "mdhd" is read on the way.
  MediaWalk walk{file, track, audio, {}};
  const std::int32_t rc = Walk(s, mdia, kMediaReaders, walk);
  if (rc != kMinfFound) return rc;
  Box box{};
  if (const std::int32_t found = FindBox(s, walk.minf, FourCC("stbl"), &box); found != 0)
    return found == kAbsent ? TMX_OK : found;
  track->stblPos = box.pos;
  stbl = box.payload();
  if (const std::int32_t found = FindBox(s, stbl, FourCC("stsd"), &box); found != 0)
    return found == kAbsent ? TMX_OK : found;
  return ReadEntryType(s, box.pos, trak, track);
}

std::int32_t FindAudioTrack(Container* file) noexcept {
  TMXStream* s = file->stream;
  Mp4State& st = State(file);
  TMX_RETURN_IF_ERROR(AtomLocateMovie(s, &st.movie));
  const AtomRange movie = st.movie;
  bool found = false;
  std::int32_t rc = ForEachTrack(s, movie, [&](std::uint32_t pos, std::uint32_t size) {
    TrackRecord t{};
    if (ParseTrackHeader(s, PayloadOf(pos, size), &t) != 0 || !(t.flags & kMainTrackFlag))
      return TMX_OK;
    if (WalkTrack(file, pos, &t, true) != 0) return TMX_OK;
    if (t.entryType != FourCC("mp4a") && t.entryType != FourCC("tmvd")) return TMX_OK;
    st.audioTrack = t;
    found = true;
    return 1;  // stop the walk
  });
  if (found) return TMX_OK;
  return rc < 0 ? rc : TMX_ERR_UNSUPPORTED;
}

std::int32_t LoadChapterTracks(Container* file) noexcept {
  TMXStream* s = file->stream;
  Mp4State& st = State(file);
  DropChapters(file);
  DropImages(file);
  st.hasChapterTextTrack = st.hasLinkTrack = 0;
  file->info.linkCount = 0;

  Owned<std::uint32_t> ids;
  std::uint32_t idCount = 0;
  TMX_RETURN_IF_ERROR(ReadChapterTrackIds(file, ids, &idCount));
  if (idCount == 0) return TMX_OK;
  const std::uint32_t* idsBegin = ids.get();
  return ForEachTrack(s, st.movie, [&](std::uint32_t pos, std::uint32_t size) {
    TrackRecord t{};
    if (ParseTrackHeader(s, PayloadOf(pos, size), &t) != 0 ||
        std::find(idsBegin, idsBegin + idCount, t.trackId) == idsBegin + idCount)
      return TMX_OK;
    if (WalkTrack(file, pos, &t, false) != 0) return TMX_OK;
    switch (t.entryType) {
      case FourCC("jpeg"):
        if (LoadImages(file, t) != 0) DropImages(file);
        break;
      case FourCC("text"):
        st.hasChapterTextTrack = 1;
        st.chapterTextTrack = t;
        if (LoadChapters(file, t) != 0) {
          st.hasChapterTextTrack = 0;
          DropChapters(file);
        }
        break;
      case FourCC("tx3g"): {
        AtomRange stbl{};
        std::uint32_t count = 0;
        if (StblOf(file, t, &stbl) == 0 && ReadSampleCount(s, stbl, &count) == 0) {
          st.hasLinkTrack = 1;
          st.linkTrack = t;
          file->info.linkCount = count;
        } else {
          st.hasLinkTrack = 0;
          file->info.linkCount = 0;
        }
        break;
      }
      default: break;
    }
    return TMX_OK;
  });
}

std::int32_t SumSampleDeltas(TMXStream* s, AtomRange stts, std::uint32_t samplesPerFrame,
                             std::uint32_t* starts, std::uint32_t count) noexcept {
  TMX_RETURN_IF_ERROR(s->ops->Seek(s, stts.begin));
  std::uint32_t versionFlags = 0, entries = 0;
  TMX_RETURN_IF_ERROR(AtomReadU32(s, &versionFlags));
  TMX_RETURN_IF_ERROR(AtomReadU32(s, &entries));
  std::uint32_t index = 0, running = 0;
  for (std::uint32_t e = 0; e < entries && index < count; ++e) {
    std::uint32_t samples = 0, delta = 0;
    TMX_RETURN_IF_ERROR(AtomReadU32(s, &samples));
    TMX_RETURN_IF_ERROR(AtomReadU32(s, &delta));
    const std::uint32_t frames = samplesPerFrame ? delta / samplesPerFrame : 0;
    for (std::uint32_t k = 0; k < samples && index < count; ++k) {
      starts[index++] = running;
      running += frames;
    }
  }
  // Samples the table does not cover start where the last one ended.
  while (index < count) starts[index++] = running;
  return TMX_OK;
}

}  // namespace tmx::mp4
