// The older container's header, its table of contents and the records read
// from it: the header record, the audio record, the chapter list, the
// metadata dictionary and the cover picture.
#pragma once

#include <cstdint>
#include <string_view>

#include "container/legacy/legacy_state.h"

namespace tmx::legacy {

// Reads the header and the table of contents into the state.
std::int32_t ReadTableOfContents(Container* file, TMXStream* s) noexcept;

// The record of `type`, with the stream left at its offset; -24 for a type
// the table does not hold.
std::int32_t LookUpRecord(Container* file, std::uint32_t type, Record* record) noexcept;

// Record 1: its seven fields become the original-title words.
std::int32_t ReadHeaderRecord(Container* file) noexcept;
// Record 3: the audio size.
std::int32_t ReadAudioRecord(Container* file) noexcept;
// Record 6: the codec id of the first chapter (kept in the state when there
// is one) and each chapter's start in audio bytes, in chapterStartFrames.
std::int32_t ReadChapterList(Container* file) noexcept;

// The value stored under `name` in the dictionary (record 2). Size 0 when
// the dictionary ends without it.
std::int32_t FindDictionaryValue(Container* file, std::string_view name, std::uint32_t* offset,
                                 std::uint32_t* size) noexcept;
// The picture of record 11.
std::int32_t FindCover(Container* file, std::uint32_t* offset, std::uint32_t* size) noexcept;

}  // namespace tmx::legacy
