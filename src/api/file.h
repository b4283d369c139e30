// The context of one open programme. Allocated zero-filled by TMXOpenFile and
// freed by TMXCloseFile; callers see it only as an opaque pointer.
#pragma once

#include <cstdint>
#include <span>

#include "codec/codec.h"
#include "container/format_handler.h"
#include "tmxsdk.h"

struct TMXFile {
  TMXStream* stream;             // container stream, owned from a successful open
  TMXStream* positionStream;     // position file stream, may be null
  std::uint32_t fileType;        // 1..8
  std::uint32_t audioTrackType;  // sample type of the audio track
  std::uint32_t duration;        // milliseconds
  std::uint32_t avgBitrate;      // as the container states it
  std::uint32_t maxBitrate;      // as the container states it
  std::uint32_t channelCount;
  std::uint32_t sampleRate;       // also the time scale of samplesPerFrame
  std::uint32_t samplesPerFrame;  // 0 when unknown
  std::uint32_t frameCount;
  std::uint32_t positionLoaded;       // bool
  std::uint32_t positionStreamOpen;   // bool
  std::uint32_t* chapterStartFrames;  // owned by the format handler
  std::uint32_t chapterCount;
  std::uint32_t imageCount;
  std::int32_t positionSaveInterval;  // frames between periodic saves
  std::int32_t framesUntilSave;
  std::uint32_t chapterTextEnabled;    // bool
  std::uint32_t chapterLinksEnabled;   // bool
  std::uint32_t chapterImagesEnabled;  // bool
  std::uint32_t metadataLocale;
  const tmx::FormatHandler* formatHandler;
  void* codecInstance;  // null until the first decode; owned
  const tmx::Codec* codec;
  std::uint32_t originalTitle[7];
  std::uint32_t bookmarkBufferSize;
  std::uint32_t linkCount;  // samples of the link track

  // What the format handler works on: the reader's place (currentFrame,
  // currentFrameInfo), the handler's state, what it found at open, and the
  // options that change what it delivers (ADTS headers, image quality,
  // unicode format). The properties above are copied from it at open.
  tmx::Container reader;
  // The position stream was made by TMXOpenFileWinW and must be released at
  // close even when it was never opened.
  std::uint32_t ownsPositionStream;  // bool

  // The open bookmark list (all zero while none is open).
  TMXStream* bookmarkStream;         // stream holding the list
  std::uint32_t bookmarkRangeBegin;  // "bmet" payload after its flags word
  std::uint32_t bookmarkRangeEnd;
  std::uint32_t bookmarkListLocale;  // locale word at the head of "blst"
  std::uint32_t bookmarkListFlags;   // 0: read-only
  std::uint32_t bookmarkCount;
  std::uint32_t* bookmarkTimes;  // stored times, ascending; owned
  // Subtracted from a bookmark's time when it is stored and added back when
  // it is reported, and kept clear of the end of the programme; set by the
  // format handler (0 when it sets neither).
  std::uint32_t bookmarkTimeOffset;
  std::uint32_t bookmarkEndMargin;
};

namespace tmx {

// Default option values applied at every open.
inline constexpr std::uint32_t kDefaultImageQuality = 3;
inline constexpr std::uint32_t kDefaultBookmarkBufferSize = 1024;

// Decides the file type from the first bytes of the stream and stores the
// stream in the file. 0, -8 for anything unrecognised, or a stream error.
std::int32_t DetectFileType(TMXFile* file, TMXStream* stream) noexcept;

// TMXOpenFile for streams the library made itself: they are released on
// every failure, even one that happens before they were opened.
std::int32_t OpenWithOwnedStreams(TMXFile** out, TMXStream* stream,
                                  TMXStream* positionStream) noexcept;

// The position file's path: the programme's path up to its last "." (looked
// for in the whole path, so a dot in a directory counts) followed by ".pos".
// False when the result does not fit in `out` with its terminator.
bool PositionPathFor(const wchar_t* path, std::span<wchar_t> out) noexcept;

}  // namespace tmx
