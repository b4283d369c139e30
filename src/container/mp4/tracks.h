// The movie and its tracks: finding the audio track, the chapter-title,
// link and picture tracks, and the chapter start frames.
#pragma once

#include <cstdint>

#include "container/container.h"
#include "container/mp4/atom.h"
#include "container/mp4/mp4_state.h"

namespace tmx::mp4 {

// Parses "tkhd" inside a "trak" payload: track ID, flags (bits 0xF0
// cleared) and alternate group.
std::int32_t ParseTrackHeader(TMXStream* s, AtomRange trak, TrackRecord* track) noexcept;

// Walks the track whose "trak" header is at `trakPos`: records the "stbl"
// position, the quality bits of "mdhd" and the first recognised sample
// entry. With `audio` set, the audio timing fields of the file are set too.
std::int32_t WalkTrack(Container* file, std::uint32_t trakPos, TrackRecord* track,
                       bool audio) noexcept;

// Calls `visit(trakPos, trakSize)` for every "trak" of the movie; a non-zero
// result of `visit` stops the walk and is returned.
template <class Visit>
std::int32_t ForEachTrack(TMXStream* s, AtomRange movie, Visit&& visit) noexcept {
  return ForEachBox(s, movie, [&](const Box& box) -> std::int32_t {
    return AtomTypeMatches(box.type, FourCC("trak")) ? visit(box.pos, box.size) : TMX_OK;
  });
}

// Finds the audio track: the first track flagged main whose sample entry
// is "mp4a" or "tmvd". -7 without a movie, -8 without such a track.
std::int32_t FindAudioTrack(Container* file) noexcept;

// Loads the tracks that the audio track names in "tref"/"chap". Failures of
// single tracks only drop them.
std::int32_t LoadChapterTracks(Container* file) noexcept;

// Sums floor(delta / samplesPerFrame) over the first `count` samples of an
// "stts" table, one division per entry. Entry i of `starts` receives the sum
// over the first i samples.
std::int32_t SumSampleDeltas(TMXStream* s, AtomRange stts, std::uint32_t samplesPerFrame,
                             std::uint32_t* starts, std::uint32_t count) noexcept;

}  // namespace tmx::mp4
