// The codec table of the AAC decoder.
#include <algorithm>
#include <cstring>

#include "codec/aac/decoder.h"
#include "codec/codec.h"
#include "tmxsdk.h"
#include "util/alloc.h"

namespace tmx {
namespace {

constexpr std::uint32_t kSamplesPerChannel = 1024;
// The AudioSpecificConfig starts 23 bytes into the decoder configuration
// block that the MP4 sample description records.
constexpr std::uint32_t kConfigOffset = 23;

// The decoder and a frame of output, so that the mono path can hand over
// part of a frame.
struct AacInstance {
  aac::Decoder* decoder;
  std::int16_t frame[2 * kSamplesPerChannel];
};

std::int32_t Create(void** instance, const std::uint8_t* config, std::uint32_t length,
                    const Codec*) noexcept {
  *instance = nullptr;
  if (!config || length < kConfigOffset + 2) return TMX_ERR_DECODER;
  // Only the sampling-frequency index is taken from the configuration: the
  // four bits after the 5-bit object type. The channel count comes from
  // each frame.
  const std::uint32_t word = (std::uint32_t(config[kConfigOffset]) << 8) | config[kConfigOffset + 1];
  const std::uint32_t rateIndex = (word >> 7) & 0x0F;
  if (rateIndex > 12) return TMX_ERR_DECODER;
  auto* aac = AllocObject<AacInstance>();
  if (!aac) return TMX_ERR_DECODER;
  if (aac::CreateDecoder(&aac->decoder, rateIndex, 0) != TMX_OK) {
    Free(aac);
    return TMX_ERR_DECODER;
  }
  *instance = aac;
  return TMX_OK;
}

std::int32_t Destroy(void** instance) noexcept {
  if (!instance || !*instance) return TMX_ERR_ARGUMENT;
  auto* aac = static_cast<AacInstance*>(*instance);
  aac::DestroyDecoder(&aac->decoder);
  Free(aac);
  *instance = nullptr;
  return TMX_OK;
}

// A seek does not reset the AAC decoder: the next frame's overlap is taken
// as it comes.
std::int32_t Reset(void* instance, const std::uint8_t*, std::uint32_t, const Codec*) noexcept {
  return instance ? TMX_OK : TMX_ERR_ARGUMENT;
}

// Decodes a frame. A frame the decoder refuses, or a buffer under 2048 bytes
// a channel, is passed over with result 0 and the length left as it was.
// With one channel only as many samples as the frame had bytes are handed
// over, while the length reports the whole frame; the library never copies
// more than the frame or the buffer holds.
std::int32_t Decode(void* instance, const std::uint8_t* data, std::uint32_t length,
                    std::int16_t* pcm, std::uint32_t capacity, std::uint32_t* produced) noexcept {
  if (!instance) return TMX_ERR_ARGUMENT;
  auto* aac = static_cast<AacInstance*>(instance);
  aac::FrameInfo info{};
  if (aac::DecodeFrame(aac->decoder, data, length, aac->frame, capacity, &info) != aac::kOk)
    return TMX_OK;
  const std::uint32_t samples = info.channels * info.samplesPerChannel;
  std::uint32_t copied = samples;
  if (info.channels == 1) copied = std::min({length, samples, capacity / 2});
  std::memcpy(pcm, aac->frame, std::size_t(copied) * 2);
  *produced = samples * 2;
  return TMX_OK;
}

}  // namespace

const Codec kAacCodec = {Create, Destroy, Reset, Decode};

}  // namespace tmx
