// Parsing of the raw data block: channel elements down to quantised spectra.
#pragma once

#include <cstdint>

#include "codec/aac/bitreader.h"
#include "codec/aac/status.h"

namespace tmx::aac {

enum WindowSequence : std::uint8_t {
  kOnlyLong = 0,
  kLongStart = 1,
  kEightShort = 2,
  kLongStop = 3
};

// Band types beyond the spectral books 1..11.
enum BandType : std::uint8_t {
  kZeroBand = 0,
  kNoiseBand = 13,
  kIntensityOutOfPhase = 14,
  kIntensityInPhase = 15
};

inline constexpr int kMaxGroups = 8;
inline constexpr int kMaxBands = 64;
inline constexpr int kMaxTnsFilters = 3;
inline constexpr int kMaxTnsOrder = 12;

struct IcsInfo {
  std::uint8_t windowSequence;
  std::uint8_t windowShape;  // 0 sine, 1 KBD
  std::uint8_t maxSfb;
  std::uint8_t numWindows;  // 1 or 8
  std::uint8_t numGroups;
  std::uint8_t groupLength[kMaxGroups];
  std::uint8_t numSwb;
  std::uint8_t tnsMaxBands;
  const std::uint16_t* swbOffset;  // per window: 1024 or 128 lines
  std::uint16_t windowLength;      // lines per window
};

struct TnsFilter {
  std::uint8_t length;
  std::uint8_t order;
  std::uint8_t direction;           // 1: filter from the top line downwards
  std::int32_t refl[kMaxTnsOrder];  // reflection coefficients, Q31
};

struct TnsData {
  std::uint8_t numFilters[8];
  TnsFilter filter[8][kMaxTnsFilters];
};

// One channel's side information of the current frame; the spectrum lives in
// a buffer of the decoder (quantised values first, Q3 coefficients later).
struct ChannelStream {
  IcsInfo ics;
  std::uint8_t globalGain;
  std::uint8_t bandType[kMaxGroups][kMaxBands];
  // Scalefactor (0..255), intensity position or noise energy, by band type.
  std::int16_t scale[kMaxGroups][kMaxBands];
  bool tnsPresent;
  bool pulsePresent;
  TnsData tns;
};

// Stereo side information of a channel pair.
struct PairInfo {
  bool commonWindow;
  std::uint8_t msMaskPresent;  // 0 none, 1 per band, 2 all bands
  std::uint8_t msUsed[kMaxGroups][kMaxBands];
};

// ics_info(): window sequence, shape, max_sfb, grouping, band layout.
Status ParseIcsInfo(BitReader& br, std::uint32_t rateIndex, IcsInfo* ics) noexcept;

// individual_channel_stream(): reads one channel into *cs and its quantised
// spectrum into coef[1024]. With a common window, cs->ics must be set already.
Status ParseChannelStream(BitReader& br, std::uint32_t rateIndex, bool commonWindow,
                          ChannelStream* cs, std::int32_t* coef) noexcept;

// The M/S mask that follows a common ics_info.
Status ParseMsMask(BitReader& br, const IcsInfo& ics, PairInfo* pair) noexcept;

// Skips a data stream element; parses a fill element and its extension payloads.
Status SkipDataStreamElement(BitReader& br) noexcept;
Status ParseFillElement(BitReader& br) noexcept;

}  // namespace tmx::aac
