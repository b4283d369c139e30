#include "codec/aac/decoder.h"

#include <cstring>
#include <type_traits>

#include "codec/aac/bitreader.h"
#include "codec/aac/filterbank.h"
#include "codec/aac/spectrum.h"
#include "codec/aac/syntax.h"
#include "codec/aac/tables.h"
#include "tmxsdk.h"
#include "util/alloc.h"

namespace tmx::aac {

struct Decoder {
  std::uint32_t rateIndex;
  std::uint32_t channelConfig;
  std::uint32_t channelSetting;  // channels of the last decoded frame
  std::uint32_t noiseState;      // PNS generator
  BitBuffer bits;
  ChannelStream stream[2];
  PairInfo pair;
  NoiseSeeds seeds;
  ChannelHistory history[2];
  FilterbankWork work;
  std::int32_t coef[2][1024];  // quantised values, then Q3 coefficients
};

namespace {

static_assert(std::is_trivially_default_constructible_v<Decoder>);

enum ElementId : std::uint32_t {
  kSingleChannel = 0,
  kChannelPair = 1,
  kCouplingElement = 2,
  kLfeElement = 3,
  kDataStream = 4,
  kProgramConfigElement = 5,
  kFill = 6,
  kEnd = 7,
};

constexpr std::uint32_t kNoiseSeed = 625341585u;  // any fixed start; decoding must be repeatable
constexpr std::uint32_t kObjectTypeLc = 2;

bool HasBands(const ChannelStream& cs, int type, int otherType) noexcept {
  for (int g = 0; g < cs.ics.numGroups; ++g) {
    for (int b = 0; b < cs.ics.maxSfb; ++b) {
      if (cs.bandType[g][b] == type || cs.bandType[g][b] == otherType) return true;
    }
  }
  return false;
}
bool HasIntensityBands(const ChannelStream& cs) noexcept {
  return HasBands(cs, kIntensityOutOfPhase, kIntensityInPhase);
}

std::uint32_t ToolsOf(const ChannelStream& cs) noexcept {
  std::uint32_t tools = 0;
  if (cs.ics.windowSequence == kEightShort) tools |= kToolShortWindows;
  if (cs.ics.windowShape) tools |= kToolKbdWindow;
  if (cs.tnsPresent) tools |= kToolTns;
  if (cs.pulsePresent) tools |= kToolPulse;
  if (HasBands(cs, kNoiseBand, kNoiseBand)) tools |= kToolNoise;
  if (HasIntensityBands(cs)) tools |= kToolIntensity;
  return tools;
}

Status DecodeSingle(Decoder* d, BitReader& br, int ch) noexcept {
  br.Skip(4);  // element_instance_tag
  ChannelStream& cs = d->stream[ch];
  if (Status s = ParseChannelStream(br, d->rateIndex, false, &cs, d->coef[ch]); s != kOk) return s;
  if (HasIntensityBands(cs)) return kBadSyntax;
  Dequantize(cs, d->coef[ch]);
  ApplyNoise(cs, d->coef[ch], &d->noiseState, &d->seeds, nullptr, nullptr);
  ApplyTns(cs, d->coef[ch]);
  return kOk;
}

Status DecodePair(Decoder* d, BitReader& br) noexcept {
  br.Skip(4);  // element_instance_tag
  ChannelStream& left = d->stream[0];
  ChannelStream& right = d->stream[1];
  PairInfo& pair = d->pair;
  pair.commonWindow = br.ReadBit() != 0;
  if (pair.commonWindow) {
    if (Status s = ParseIcsInfo(br, d->rateIndex, &left.ics); s != kOk) return s;
    right.ics = left.ics;
    if (Status s = ParseMsMask(br, left.ics, &pair); s != kOk) return s;
  } else {
    pair.msMaskPresent = 0;
    std::memset(pair.msUsed, 0, sizeof(pair.msUsed));
  }
  if (Status s = ParseChannelStream(br, d->rateIndex, pair.commonWindow, &left, d->coef[0]);
      s != kOk)
    return s;
  if (Status s = ParseChannelStream(br, d->rateIndex, pair.commonWindow, &right, d->coef[1]);
      s != kOk)
    return s;
  if (HasIntensityBands(left)) return kBadSyntax;
  if (!pair.commonWindow && HasIntensityBands(right)) return kBadSyntax;

  Dequantize(left, d->coef[0]);
  Dequantize(right, d->coef[1]);
  ApplyNoise(left, d->coef[0], &d->noiseState, &d->seeds, nullptr, nullptr);
  ApplyNoise(right, d->coef[1], &d->noiseState, &d->seeds, &left,
             pair.commonWindow ? &pair : nullptr);
  if (pair.commonWindow) {
    if (pair.msMaskPresent) ApplyMidSide(left, right, pair, d->coef[0], d->coef[1]);
    ApplyIntensity(right, pair, d->coef[0], d->coef[1]);
  }
  ApplyTns(left, d->coef[0]);
  ApplyTns(right, d->coef[1]);
  return kOk;
}

// Parses and processes every element of the frame; returns the channel count
// in *channels. Leaves the filterbank history untouched.
Status DecodeElements(Decoder* d, BitReader& br, std::uint32_t* channels,
                      std::uint32_t* tools) noexcept {
  std::uint32_t ch = 0;
  *tools = 0;
  for (;;) {
    const std::uint32_t id = br.Read(3);
    if (br.overrun()) return kTruncated;
    Status s = kOk;
    switch (id) {
      case kSingleChannel:
        if (ch >= 2) return kTooManyChannels;
        s = DecodeSingle(d, br, static_cast<int>(ch));
        *tools |= ToolsOf(d->stream[ch]);
        ++ch;
        break;
      case kChannelPair:
        if (ch != 0) return kTooManyChannels;
        s = DecodePair(d, br);
        *tools |= ToolsOf(d->stream[0]) | ToolsOf(d->stream[1]);
        if (d->pair.commonWindow && d->pair.msMaskPresent == 1) *tools |= kToolMidSide;
        if (d->pair.commonWindow && d->pair.msMaskPresent == 2) *tools |= kToolMidSideAll;
        ch = 2;
        break;
      case kCouplingElement: return kCouplingChannel;
      case kLfeElement: return kLfeChannel;
      case kProgramConfigElement: return kProgramConfig;
      case kDataStream: s = SkipDataStreamElement(br); break;
      case kFill: s = ParseFillElement(br); break;
      case kEnd:
        if (ch == 0) return kNoChannels;
        *channels = ch;
        return kOk;
    }
    if (s != kOk) return s;
  }
}

std::int32_t Allocate(Decoder** out, std::uint32_t rateIndex,
                      std::uint32_t channelConfig) noexcept {
  Decoder* d = AllocObject<Decoder>();
  if (!d) return TMX_ERR_MEMORY;
  d->rateIndex = rateIndex;
  d->channelConfig = channelConfig;
  d->channelSetting = 1;
  d->noiseState = kNoiseSeed;
  d->bits.Reset();
  *out = d;
  return TMX_OK;
}

}  // namespace

std::int32_t CreateDecoder(Decoder** out, std::uint32_t sampleRateIndex,
                           std::uint32_t channelConfig) noexcept {
  if (!out) return TMX_ERR_ARGUMENT;
  *out = nullptr;
  if (sampleRateIndex >= static_cast<std::uint32_t>(kNumRates) || channelConfig > 2)
    return TMX_ERR_DECODER;
  return Allocate(out, sampleRateIndex, channelConfig);
}

std::int32_t CreateDecoderFromConfig(Decoder** out, const std::uint8_t* config,
                                     std::uint32_t length) noexcept {
  if (!out) return TMX_ERR_ARGUMENT;
  *out = nullptr;
  if (!config || length < 2) return TMX_ERR_DECODER;
  // audioObjectType(5) samplingFrequencyIndex(4) channelConfiguration(4)
  // frameLengthFlag(1) dependsOnCoreCoder(1) extensionFlag(1)
  const std::uint32_t word = (std::uint32_t{config[0]} << 8) | config[1];
  const std::uint32_t objectType = word >> 11;
  const std::uint32_t rateIndex = (word >> 7) & 15;
  const std::uint32_t channelConfig = (word >> 3) & 15;
  const bool shortFrames = (word >> 2) & 1;
  if (objectType != kObjectTypeLc || shortFrames) return TMX_ERR_DECODER;
  return CreateDecoder(out, rateIndex, channelConfig);
}

std::int32_t DestroyDecoder(Decoder** instance) noexcept {
  if (!instance || !*instance) return TMX_ERR_ARGUMENT;
  Free(*instance);
  *instance = nullptr;
  return TMX_OK;
}

std::int32_t ResetDecoder(Decoder* d) noexcept {
  if (!d) return TMX_ERR_ARGUMENT;
  std::memset(d->history, 0, sizeof(d->history));
  d->noiseState = kNoiseSeed;
  d->bits.Reset();
  return TMX_OK;
}

Status DecodeFrame(Decoder* d, const std::uint8_t* data, std::uint32_t length, std::int16_t* pcm,
                   std::uint32_t capacity, FrameInfo* info) noexcept {
  if (!d || !pcm || (!data && length)) return kBadArgument;
  if (capacity < 2048u * d->channelSetting) return kOutputTooSmall;
  if (!d->bits.Load(data, length)) return kFrameTooLarge;
  BitReader br(d->bits);
  std::uint32_t channels = 0;
  std::uint32_t tools = 0;
  if (Status s = DecodeElements(d, br, &channels, &tools); s != kOk) return s;
  d->channelSetting = channels;
  if (capacity < 2048u * channels) return kOutputTooSmall;
  for (std::uint32_t c = 0; c < channels; ++c) {
    SynthesizeChannel(d->stream[c].ics, d->coef[c], &d->history[c], &d->work, pcm + c,
                      static_cast<int>(channels));
  }
  if (info) {
    info->channels = channels;
    info->samplesPerChannel = 1024;
    info->sampleRate = kSampleRates[d->rateIndex];
    info->tools = tools;
  }
  return kOk;
}

std::uint32_t ChannelSetting(const Decoder* d) noexcept { return d ? d->channelSetting : 0; }

std::size_t InstanceSize() noexcept { return sizeof(Decoder); }

}  // namespace tmx::aac
