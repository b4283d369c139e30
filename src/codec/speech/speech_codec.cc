#include "codec/speech/speech_codec.h"

#include <cstring>

#include "codec/speech/decoder.h"
#include "codec/speech/layout.h"
#include "tmxsdk.h"

namespace tmx {
namespace speech {
namespace {

// One decoder per process: the state, its mode (0 until a speech codec is
// created) and the bytes of an unfinished packet carried to the next call.
struct SharedDecoder {
  std::int32_t mode;
  std::uint8_t carry[kMaxPacketBytes];
  std::int32_t carried;
  DecoderState state;
};
SharedDecoder g_decoder;

template <std::int32_t Mode>
std::int32_t Create(void** instance, const std::uint8_t*, std::uint32_t, const Codec*) noexcept {
  SelectMode(Mode);
  *instance = reinterpret_cast<void*>(std::intptr_t{Mode});
  return TMX_OK;
}

std::int32_t Destroy(void**) noexcept { return TMX_OK; }

template <std::int32_t Mode>
std::int32_t Reset(void*, const std::uint8_t*, std::uint32_t, const Codec*) noexcept {
  SelectMode(Mode);
  return TMX_OK;
}

// Cuts the input into packets, the first completed from the carried bytes,
// decodes every frame of each, and keeps what follows the last whole packet
// for the next call. Input that completes no packet is dropped.
std::int32_t Decode(void*, const std::uint8_t* data, std::uint32_t length, std::int16_t* pcm,
                    std::uint32_t capacity, std::uint32_t* produced) noexcept {
  *produced = capacity;
  SharedDecoder& d = g_decoder;
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

void SelectMode(std::int32_t mode) noexcept {
  g_decoder.mode = mode;
  g_decoder.carried = 0;
  if (ShapeForMode(mode)) InitDecoder(&g_decoder.state, mode);
}

std::int32_t CurrentMode() noexcept { return g_decoder.mode; }
std::int32_t CarriedBytes() noexcept { return g_decoder.carried; }

}  // namespace speech

const Codec kSpeechMode3Codec = {speech::Create<3>, speech::Destroy, speech::Reset<3>,
                                 speech::Decode};
const Codec kSpeechMode4Codec = {speech::Create<4>, speech::Destroy, speech::Reset<4>,
                                 speech::Decode};

}  // namespace tmx
