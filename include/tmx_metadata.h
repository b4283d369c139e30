// CTesmoraMetadata: a programme's tags and properties in one call.
//
// OpenTMXFile opens the programme at a path, copies every tag and property
// it knows into the members below and closes the programme again. The
// object keeps plain values until CloseTMXFile or destruction releases the
// cover picture.
#ifndef TMX_METADATA_H
#define TMX_METADATA_H

#include <cstdint>
#include <string>

#include "tmxsdk.h"

class TMX_API CTesmoraMetadata {
 public:
  CTesmoraMetadata() noexcept;
  ~CTesmoraMetadata();
  CTesmoraMetadata(const CTesmoraMetadata&) = delete;
  CTesmoraMetadata& operator=(const CTesmoraMetadata&) = delete;

  // Fills the members from the programme at `path`: 1 on success, 0 when it
  // cannot be opened (the members then keep their values).
  std::int32_t OpenTMXFile(const wchar_t* path) noexcept;
  // Frees the cover picture and the second buffer; strings and numbers stay.
  // Returns 1.
  std::int32_t CloseTMXFile() noexcept;

  std::wstring shortTitle;  // "@sti", or the title when the programme has none
  std::wstring title;       // "@tit"
  std::wstring author;      // "@aut"
  std::string productId;    // "@pid", bytes as stored
  std::wstring reserved1;
  std::wstring publicationDate;   // "@pda"
  std::wstring longDescription;   // "@lde"
  std::wstring shortDescription;  // "@sde"
  std::wstring provider;          // "@pro"
  std::wstring narrator;          // "@nar"
  std::wstring copyright;         // "@cop"
  std::wstring reserved2;
  std::wstring reserved3;
  std::wstring userAlias;  // "@ual", filled only for programmes with "@tnu"
  std::wstring reserved4;
  std::wstring category;  // "@cat"
  std::wstring reserved5;
  std::wstring parentTitle;  // "@pti"
  std::wstring reserved6;
  std::wstring reserved7;
  std::wstring reserved8;
  std::uint8_t* cover = nullptr;  // JPEG bytes of "@car", null when absent
  std::uint32_t coverSize = 0;
  std::uint32_t reserved9 = 0;
  std::uint32_t duration = 0;  // milliseconds
  std::uint32_t secondBufferSize = 0;
  std::uint8_t* secondBuffer = nullptr;
  std::uint32_t originalTitle[7] = {};
  std::uint32_t trackNumberLow = 0;   // low 16 bits of "@tnu"
  std::uint32_t trackNumberHigh = 0;  // high 16 bits of "@tnu"
  std::uint32_t avgBitrate = 0;
  std::uint32_t sampleRate = 0;
  std::uint32_t channelCount = 0;
  std::uint32_t fileType = 0;
};

#endif  // TMX_METADATA_H
