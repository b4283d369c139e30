// Fixed-point AAC-LC decoder: one raw data block in, interleaved 16-bit PCM
// out. Mono and stereo, 1024 samples per channel and frame, rates 7350 to
// 96000 Hz. An instance allocates all its state at creation and nothing
// afterwards.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codec/aac/status.h"

namespace tmx::aac {

struct Decoder;

// Coding tools a frame used (FrameInfo::tools).
enum Tool : std::uint32_t {
  kToolShortWindows = 1u << 0,
  kToolMidSide = 1u << 1,     // M/S in some bands (ms_mask_present 1)
  kToolMidSideAll = 1u << 2,  // M/S in every band (ms_mask_present 2)
  kToolIntensity = 1u << 3,
  kToolNoise = 1u << 4,  // perceptual noise substitution
  kToolTns = 1u << 5,
  kToolPulse = 1u << 6,
  kToolKbdWindow = 1u << 7,
};

struct FrameInfo {
  std::uint32_t channels;           // 1 or 2
  std::uint32_t samplesPerChannel;  // 1024
  std::uint32_t sampleRate;         // Hz
  std::uint32_t tools;              // Tool bits
};

// Creates a decoder for a sampling-frequency index (0 = 96000 Hz ... 12 =
// 7350 Hz) and a channel configuration (0, 1 or 2; the channel count itself
// comes from each frame). Returns TMX_OK, TMX_ERR_ARGUMENT for a null out
// pointer, TMX_ERR_DECODER for an index above 12 or a configuration above 2,
// TMX_ERR_MEMORY when the instance cannot be allocated. *out is null on failure.
std::int32_t CreateDecoder(Decoder** out, std::uint32_t sampleRateIndex,
                           std::uint32_t channelConfig) noexcept;

// Same from an AudioSpecificConfig (at least 2 bytes): object type 2 (AAC-LC),
// a sampling-frequency index of 0 to 12, channel configuration 0 to 2 and
// 1024-sample frames; anything else is TMX_ERR_DECODER.
std::int32_t CreateDecoderFromConfig(Decoder** out, const std::uint8_t* config,
                                     std::uint32_t length) noexcept;

// Frees the decoder and sets *instance to null. TMX_ERR_ARGUMENT when
// instance or *instance is null.
std::int32_t DestroyDecoder(Decoder** instance) noexcept;

// Forgets the previous frames (overlap, window shapes, noise generator), as
// after a seek; the channel setting stays. TMX_ERR_ARGUMENT for null.
std::int32_t ResetDecoder(Decoder* decoder) noexcept;

// Decodes one raw data block, which must be the whole of data[0..length), into
// pcm: interleaved left, right for two channels. capacity is in bytes and must
// be at least 2048 per channel of the current channel setting (ChannelSetting)
// and of the frame itself. On success fills *info (if not null) and returns
// kOk; otherwise returns the reason, writes no samples and keeps the state of
// the previous frames, so the next good frame decodes normally.
Status DecodeFrame(Decoder* decoder, const std::uint8_t* data, std::uint32_t length,
                   std::int16_t* pcm, std::uint32_t capacity, FrameInfo* info) noexcept;

// Channels of the last decoded frame; 1 until a frame has set more.
std::uint32_t ChannelSetting(const Decoder* decoder) noexcept;

// Bytes of one instance (its only allocation).
std::size_t InstanceSize() noexcept;

}  // namespace tmx::aac
