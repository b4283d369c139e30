#include "codec/speech/speech_codec.h"

#include <cstring>

#include "codec/speech/decoder.h"
#include "codec/speech/layout.h"
#include "tmxsdk.h"
#include "util/alloc.h"

namespace tmx {
namespace speech {
namespace {

// One decoder instance: the frame decoder's state, its mode and the bytes
// of an unfinished packet carried to the next call.
struct Instance {
  std::int32_t mode;
  std::uint8_t carry[kMaxPacketBytes];
  std::int32_t carried;
  DecoderState state;
};

template <std::int32_t Mode>
std::int32_t Create(void** instance, const std::uint8_t*, std::uint32_t, const Codec*) noexcept {
  *instance = nullptr;
  auto* d = AllocObject<Instance>();
  if (!d) return TMX_ERR_MEMORY;
  SelectMode(d, Mode);
  *instance = d;
  return TMX_OK;
}

std::int32_t Destroy(void** instance) noexcept {
  if (!instance || !*instance) return TMX_ERR_ARGUMENT;
  Free(*instance);
  *instance = nullptr;
  return TMX_OK;
}

template <std::int32_t Mode>
std::int32_t Reset(void* instance, const std::uint8_t*, std::uint32_t, const Codec*) noexcept {
  if (!instance) return TMX_ERR_ARGUMENT;
  SelectMode(instance, Mode);
  return TMX_OK;
}

// Cuts the input into packets, the first completed from the carried bytes,
// decodes every frame of each, and keeps what follows the last whole packet
// for the next call. Input that completes no packet is dropped.
std::int32_t Decode(void* instance, const std::uint8_t* data, std::uint32_t length,
                    std::int16_t* pcm, std::uint32_t capacity, std::uint32_t* produced) noexcept {
  if (!instance) return TMX_ERR_ARGUMENT;
  *produced = capacity;
  Instance& d = *static_cast<Instance*>(instance);
  const ModeLayout* layout = LayoutForMode(d.mode);
  if (!layout) return TMX_ERR_DECODER;
  const std::int32_t size = layout->packetBytes;
  const auto len = static_cast<std::int32_t>(length);
  std::int32_t n = len / size;
  std::int32_t rest = d.carried + len - n * size;
  if (rest >= size) {
    ++n;
    rest -= size;
  }
  if (n <= 0) {
    *produced = 0;
    return TMX_ERR_DECODER;
  }
  const std::int32_t pcmPerPacket = layout->framesPerPacket * layout->samplesPerFrame;
  // Output that would not fit is refused before anything is decoded or
  // carried (the container hands over one packet with room for it).
  if (std::uint64_t(n) * std::uint32_t(pcmPerPacket) * 2 > capacity) {
    *produced = 0;
    return TMX_ERR_DECODER;
  }
  const std::uint8_t* in = data;
  std::int16_t* out = pcm;
  for (std::int32_t k = 0; k < n; ++k) {
    std::uint8_t packet[kMaxPacketBytes];
    std::memcpy(packet, d.carry, static_cast<std::size_t>(d.carried));
    std::memcpy(packet + d.carried, in, static_cast<std::size_t>(size - d.carried));
    in += size - d.carried;
    d.carried = 0;
    for (int f = 0; f < layout->framesPerPacket; ++f) {
      Word16 params[kMaxFields + 1];
      ReadFrameParams(*layout, packet, f, params);
      DecodeFrame(&d.state, params, out);
      out += layout->samplesPerFrame;
    }
  }
  std::memcpy(d.carry, in, static_cast<std::size_t>(rest));
  d.carried = rest;
  *produced = static_cast<std::uint32_t>(n * pcmPerPacket * 2);
  return TMX_OK;
}

}  // namespace

void SelectMode(void* instance, std::int32_t mode) noexcept {
  Instance& d = *static_cast<Instance*>(instance);
  d.mode = mode;
  d.carried = 0;
  if (ShapeForMode(mode)) InitDecoder(&d.state, mode);
}

std::int32_t CurrentMode(const void* instance) noexcept {
  return static_cast<const Instance*>(instance)->mode;
}
std::int32_t CarriedBytes(const void* instance) noexcept {
  return static_cast<const Instance*>(instance)->carried;
}

}  // namespace speech

const Codec kSpeechMode3Codec = {speech::Create<3>, speech::Destroy, speech::Reset<3>,
                                 speech::Decode};
const Codec kSpeechMode4Codec = {speech::Create<4>, speech::Destroy, speech::Reset<4>,
                                 speech::Decode};

}  // namespace tmx
