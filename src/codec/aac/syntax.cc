#include "codec/aac/syntax.h"

#include <cstring>

#include "codec/aac/tables.h"

namespace tmx::aac {
namespace {

// Fill element extension types.
constexpr std::uint32_t kExtFillData = 1;
constexpr std::uint32_t kExtDataElement = 2;
constexpr std::uint32_t kExtDynamicRange = 11;
constexpr std::uint32_t kAncillaryData = 0;

// Index of the next scalefactor codeword; the code is complete, so any bits
// (zeros past the end of the frame included) lead to a word.
int DecodeScalefactorIndex(BitReader& br) noexcept {
  const std::uint32_t e = LookUp(kScalefactorBook, br.Peek32());
  br.Consume(e & 31);
  return static_cast<int>(e >> 8);
}

Status Check(const BitReader& br) noexcept { return br.overrun() ? kTruncated : kOk; }

Status ParseSectionData(BitReader& br, ChannelStream* cs) noexcept {
  const IcsInfo& ics = cs->ics;
  const bool isShort = ics.windowSequence == kEightShort;
  const int lenBits = isShort ? 3 : 5;
  const std::uint32_t escape = (1u << lenBits) - 1;
  for (int g = 0; g < ics.numGroups; ++g) {
    int k = 0;
    while (k < ics.maxSfb) {
      const std::uint32_t book = br.Read(4);
      if (book == 12) return kBadSyntax;
      int length = 0;
      for (;;) {
        const std::uint32_t incr = br.Read(lenBits);
        if (br.overrun()) return kTruncated;
        length += static_cast<int>(incr);
        if (incr != escape) break;
      }
      if (length == 0 || k + length > ics.maxSfb) return kBadSyntax;
      std::memset(&cs->bandType[g][k], static_cast<int>(book), static_cast<std::size_t>(length));
      k += length;
    }
    std::memset(&cs->bandType[g][ics.maxSfb], 0, static_cast<std::size_t>(kMaxBands - ics.maxSfb));
  }
  return Check(br);
}

Status ParseScalefactors(BitReader& br, ChannelStream* cs) noexcept {
  const IcsInfo& ics = cs->ics;
  int scalefactor = cs->globalGain;
  int position = 0;
  int noise = cs->globalGain - 90;
  bool firstNoise = true;
  for (int g = 0; g < ics.numGroups; ++g) {
    for (int b = 0; b < ics.maxSfb; ++b) {
      switch (cs->bandType[g][b]) {
        case kZeroBand: cs->scale[g][b] = 0; break;
        case kIntensityOutOfPhase:
        case kIntensityInPhase:
          position += DecodeScalefactorIndex(br) - 60;
          cs->scale[g][b] = static_cast<std::int16_t>(position);
          break;
        case kNoiseBand:
          if (firstNoise) {
            noise += static_cast<int>(br.Read(9)) - 256;
            firstNoise = false;
          } else {
            noise += DecodeScalefactorIndex(br) - 60;
          }
          cs->scale[g][b] = static_cast<std::int16_t>(noise);
          break;
        default:
          scalefactor += DecodeScalefactorIndex(br) - 60;
          if (scalefactor < 0 || scalefactor > 255) return kBadSyntax;
          cs->scale[g][b] = static_cast<std::int16_t>(scalefactor);
          break;
      }
      // Keeps the running values bounded whatever the bits say.
      if (position < -2000 || position > 2000 || noise < -2000 || noise > 2000) return kBadSyntax;
    }
  }
  return Check(br);
}

Status ParseTnsData(BitReader& br, ChannelStream* cs) noexcept {
  const bool isShort = cs->ics.windowSequence == kEightShort;
  const int filtBits = isShort ? 1 : 2;
  const int lengthBits = isShort ? 4 : 6;
  const int orderBits = isShort ? 3 : 5;
  const int maxOrder = isShort ? 7 : 12;
  TnsData& tns = cs->tns;
  for (int w = 0; w < cs->ics.numWindows; ++w) {
    tns.numFilters[w] = static_cast<std::uint8_t>(br.Read(filtBits));
    if (tns.numFilters[w] == 0) continue;
    const std::uint32_t coefRes = br.ReadBit();  // 0: 3 bits, 1: 4 bits
    for (int f = 0; f < tns.numFilters[w]; ++f) {
      TnsFilter& filt = tns.filter[w][f];
      filt.length = static_cast<std::uint8_t>(br.Read(lengthBits));
      filt.order = static_cast<std::uint8_t>(br.Read(orderBits));
      if (filt.order > maxOrder) return kBadSyntax;
      if (filt.order == 0) continue;
      filt.direction = static_cast<std::uint8_t>(br.ReadBit());
      const std::uint32_t compress = br.ReadBit();
      const int bits = static_cast<int>(coefRes + 3 - compress);
      for (int i = 0; i < filt.order; ++i) {
        // Sign-extend the transmitted value.
        int c = static_cast<int>(br.Read(bits));
        if (c >= (1 << (bits - 1))) c -= 1 << bits;
        filt.refl[i] = coefRes ? kTnsCoef4[c + 8] : kTnsCoef3[c + 4];
      }
    }
  }
  return Check(br);
}

// Value i of a lookup payload (6-bit two's complement fields from the top).
inline std::int32_t Field(std::uint32_t e, int i) noexcept {
  return static_cast<std::int32_t>(e << (6 * i)) >> 26;
}

// The escape sequence of book 11 that replaces a value of +-16: n ones, a
// zero, then n + 4 bits; the magnitude is 2^(n + 4) plus those bits.
Status ReadEscape(BitReader& br, std::int32_t* value) noexcept {
  const std::uint32_t w = br.Peek32();
  if ((w >> 23) == 0x1FF) return kBadSyntax;  // more than 8 ones
  const int n = __builtin_clz(~w);            // ~w has a 1 among its top 9 bits
  br.Consume(static_cast<std::uint32_t>(n + 1));
  const std::int32_t magnitude = (1 << (n + 4)) + static_cast<std::int32_t>(br.Read(n + 4));
  *value = *value < 0 ? -magnitude : magnitude;
  return kOk;
}

// The tuples of one band of one window, lines [start, end) of `line`. The
// next bits are kept in `cache` (from the reader's position, at least 57
// valid, zeros past the frame); `used` of them are taken. A word with its sign
// bits has at most 20 bits, so the cache is refilled once more than 32 are
// taken.
Status DecodeBandLines(BitReader& br, const HuffmanBook& book, std::int32_t* line, int start,
                       int end) noexcept {
  std::uint64_t cache = br.Peek64();
  std::uint32_t used = 0;
  const auto next = [&]() {
    if (used > 32) {
      br.Consume(used);
      cache = br.Peek64();
      used = 0;
    }
    const std::uint32_t e = LookUp(book, static_cast<std::uint32_t>((cache << used) >> 32));
    used += e & 31;
    return e;
  };
  if (book.dimension == 4) {
    for (int k = start; k < end; k += 4) {
      const std::uint32_t e = next();
      line[k] = Field(e, 0);
      line[k + 1] = Field(e, 1);
      line[k + 2] = Field(e, 2);
      line[k + 3] = Field(e, 3);
    }
  } else if (!book.escape) {
    for (int k = start; k < end; k += 2) {
      const std::uint32_t e = next();
      line[k] = Field(e, 0);
      line[k + 1] = Field(e, 1);
    }
  } else {
    for (int k = start; k < end; k += 2) {
      const std::uint32_t e = next();
      line[k] = Field(e, 0);
      line[k + 1] = Field(e, 1);
      for (int i = 0; i < 2; ++i) {
        if (line[k + i] != 16 && line[k + i] != -16) continue;
        br.Consume(used);
        if (Status s = ReadEscape(br, &line[k + i]); s != kOk) return s;
        cache = br.Peek64();
        used = 0;
      }
    }
  }
  br.Consume(used);
  return kOk;
}

Status ParseSpectralData(BitReader& reader, const ChannelStream& cs, std::int32_t* coef) noexcept {
  const IcsInfo& ics = cs.ics;
  std::memset(coef, 0, 1024 * sizeof(std::int32_t));
  // A local copy, so that the reader's state can live in registers.
  BitReader br = reader;
  int window = 0;
  for (int g = 0; g < ics.numGroups; ++g) {
    for (int b = 0; b < ics.maxSfb; ++b) {
      const int type = cs.bandType[g][b];
      if (type == kZeroBand || type > 11) continue;
      const HuffmanBook& book = kSpectralBooks[type];
      const int start = ics.swbOffset[b];
      const int end = ics.swbOffset[b + 1];
      for (int w = 0; w < ics.groupLength[g]; ++w) {
        std::int32_t* line = coef + (window + w) * ics.windowLength;
        Status s = DecodeBandLines(br, book, line, start, end);
        if (s == kOk && br.overrun()) s = kTruncated;
        if (s != kOk) {
          reader = br;
          return s;
        }
      }
    }
    window += ics.groupLength[g];
  }
  reader = br;
  return Check(br);
}

// pulse_data(): amplitudes added to single lines of a long window.
struct Pulses {
  int count;
  int startBand;
  std::uint8_t offset[4];
  std::uint8_t amp[4];
};

Status ParsePulseData(BitReader& br, const IcsInfo& ics, Pulses* p) noexcept {
  if (ics.windowSequence == kEightShort) return kBadSyntax;
  p->count = static_cast<int>(br.Read(2)) + 1;
  p->startBand = static_cast<int>(br.Read(6));
  if (p->startBand >= ics.numSwb) return kBadSyntax;
  for (int i = 0; i < p->count; ++i) {
    p->offset[i] = static_cast<std::uint8_t>(br.Read(5));
    p->amp[i] = static_cast<std::uint8_t>(br.Read(4));
  }
  return Check(br);
}

Status ApplyPulses(const IcsInfo& ics, const Pulses& p, std::int32_t* coef) noexcept {
  int k = ics.swbOffset[p.startBand];
  for (int i = 0; i < p.count; ++i) {
    k += p.offset[i];
    if (k >= 1024) return kBadSyntax;
    coef[k] += coef[k] > 0 ? p.amp[i] : -p.amp[i];
  }
  return kOk;
}

int ExcludedChannels(BitReader& br) noexcept {
  int n = 0;
  do {
    br.Skip(7);
    ++n;
  } while (br.ReadBit() && !br.overrun());
  return n;
}

// dynamic_range_info(); returns its length in bytes. The gains are not used.
int DynamicRangeInfo(BitReader& br) noexcept {
  int n = 1;
  int bands = 1;
  if (br.ReadBit()) {  // pce_tag_present
    br.Skip(8);
    ++n;
  }
  if (br.ReadBit()) n += ExcludedChannels(br);
  if (br.ReadBit()) {  // drc_bands_present
    bands += static_cast<int>(br.Read(4));
    br.Skip(4);
    ++n;
    br.Skip(8 * static_cast<std::uint32_t>(bands));
    n += bands;
  }
  if (br.ReadBit()) {  // prog_ref_level_present
    br.Skip(8);
    ++n;
  }
  br.Skip(8 * static_cast<std::uint32_t>(bands));
  return n + bands;
}

// extension_payload(); returns its length in bytes (at most `count`).
int ExtensionPayload(BitReader& br, int count) noexcept {
  const std::uint32_t type = br.Read(4);
  switch (type) {
    case kExtDynamicRange: return DynamicRangeInfo(br);
    case kExtDataElement:
      if (br.Read(4) == kAncillaryData) {
        int length = 0;
        int loops = 0;
        std::uint32_t part;
        do {
          part = br.Read(8);
          length += static_cast<int>(part);
          ++loops;
        } while (part == 255 && !br.overrun());
        br.Skip(8 * static_cast<std::uint32_t>(length));
        return length + loops + 1;
      }
      // Other versions: the version nibble stands where the fill nibble would.
      br.Skip(8 * static_cast<std::uint32_t>(count - 1));
      return count;
    case kExtFillData:
    default: break;
  }
  // Fill nibble and fill bytes, SBR data and anything unknown: skipped whole.
  br.Skip(4 + 8 * static_cast<std::uint32_t>(count - 1));
  return count;
}

}  // namespace

Status ParseIcsInfo(BitReader& br, std::uint32_t rateIndex, IcsInfo* ics) noexcept {
  br.ReadBit();  // ics_reserved_bit
  ics->windowSequence = static_cast<std::uint8_t>(br.Read(2));
  ics->windowShape = static_cast<std::uint8_t>(br.ReadBit());
  if (ics->windowSequence == kEightShort) {
    ics->maxSfb = static_cast<std::uint8_t>(br.Read(4));
    const std::uint32_t grouping = br.Read(7);
    ics->numWindows = 8;
    ics->numGroups = 1;
    ics->groupLength[0] = 1;
    for (int i = 0; i < 7; ++i) {
      if (grouping & (1u << (6 - i))) {
        ++ics->groupLength[ics->numGroups - 1];
      } else {
        ics->groupLength[ics->numGroups++] = 1;
      }
    }
    ics->numSwb = kNumSwbShort[rateIndex];
    ics->tnsMaxBands = kTnsMaxBandsShort[rateIndex];
    ics->swbOffset = kSwbOffsetShort[rateIndex];
    ics->windowLength = 128;
  } else {
    ics->maxSfb = static_cast<std::uint8_t>(br.Read(6));
    ics->numWindows = 1;
    ics->numGroups = 1;
    ics->groupLength[0] = 1;
    ics->numSwb = kNumSwbLong[rateIndex];
    ics->tnsMaxBands = kTnsMaxBandsLong[rateIndex];
    ics->swbOffset = kSwbOffsetLong[rateIndex];
    ics->windowLength = 1024;
    if (br.ReadBit()) return kPrediction;
  }
  if (ics->maxSfb > ics->numSwb) return kBadSyntax;
  return Check(br);
}

Status ParseChannelStream(BitReader& br, std::uint32_t rateIndex, bool commonWindow,
                          ChannelStream* cs, std::int32_t* coef) noexcept {
  cs->globalGain = static_cast<std::uint8_t>(br.Read(8));
  if (!commonWindow) {
    if (Status s = ParseIcsInfo(br, rateIndex, &cs->ics); s != kOk) return s;
  }
  if (Status s = ParseSectionData(br, cs); s != kOk) return s;
  if (Status s = ParseScalefactors(br, cs); s != kOk) return s;
  Pulses pulses{};
  const bool pulsePresent = br.ReadBit() != 0;
  cs->pulsePresent = pulsePresent;
  if (pulsePresent) {
    if (Status s = ParsePulseData(br, cs->ics, &pulses); s != kOk) return s;
  }
  cs->tnsPresent = br.ReadBit() != 0;
  if (cs->tnsPresent) {
    if (Status s = ParseTnsData(br, cs); s != kOk) return s;
  }
  if (br.ReadBit()) return kGainControl;
  if (Status s = ParseSpectralData(br, *cs, coef); s != kOk) return s;
  if (pulsePresent) return ApplyPulses(cs->ics, pulses, coef);
  return kOk;
}

Status ParseMsMask(BitReader& br, const IcsInfo& ics, PairInfo* pair) noexcept {
  pair->msMaskPresent = static_cast<std::uint8_t>(br.Read(2));
  if (pair->msMaskPresent == 3) return kBadSyntax;
  for (int g = 0; g < ics.numGroups; ++g) {
    for (int b = 0; b < ics.maxSfb; ++b) {
      pair->msUsed[g][b] = pair->msMaskPresent == 1
                               ? static_cast<std::uint8_t>(br.ReadBit())
                               : static_cast<std::uint8_t>(pair->msMaskPresent == 2);
    }
  }
  return Check(br);
}

Status SkipDataStreamElement(BitReader& br) noexcept {
  br.Skip(4);  // element_instance_tag
  const bool align = br.ReadBit() != 0;
  std::uint32_t count = br.Read(8);
  if (count == 255) count += br.Read(8);
  if (align) br.ByteAlign();
  br.Skip(8 * count);
  return Check(br);
}

Status ParseFillElement(BitReader& br) noexcept {
  int count = static_cast<int>(br.Read(4));
  if (count == 15) count += static_cast<int>(br.Read(8)) - 1;
  while (count > 0) {
    const std::uint32_t start = br.position();
    const int used = ExtensionPayload(br, count);
    if (br.overrun()) return kTruncated;
    if (used < 1 || used > count) return kBadSyntax;
    // A payload shorter than its bits (or a reader that stopped short) is
    // resynchronised at the byte count the payload gives.
    const std::uint32_t end = start + 8 * static_cast<std::uint32_t>(used);
    if (br.position() > end) return kBadSyntax;
    br.Skip(end - br.position());
    count -= used;
  }
  return Check(br);
}

}  // namespace tmx::aac
