// AAC stream descriptions for the writer: the AudioSpecificConfig that goes
// into "esds", and the ADTS framing that AAC encoders commonly emit.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "tmxsdk.h"
#include "writer/block.h"

namespace tmx::writer {

// The decoder configuration of an AAC track and what the container needs
// from it.
struct AudioConfig {
  std::uint32_t objectType = 0;      // 2 for AAC-LC
  std::uint32_t frequencyIndex = 0;  // 0..12, or 15 when the rate is explicit
  std::uint32_t sampleRate = 0;      // Hz
  std::uint32_t channelConfig = 0;   // 1..7
  std::array<std::uint8_t, 64> asc{};
  std::uint32_t ascSize = 0;
  std::span<const std::uint8_t> audioSpecificConfig() const { return {asc.data(), ascSize}; }
};

// Sampling rates by frequency index; 0 for the reserved indices 13 and 14.
std::uint32_t SampleRateOfIndex(std::uint32_t index) noexcept;

// Reads object type, rate and channel configuration from an
// AudioSpecificConfig and keeps a copy of it. -18 when it is shorter than two
// bytes or longer than the copy can hold; -8 for a reserved frequency index
// or a channel configuration of 0 (channels given by a program config
// element, which the container cannot describe).
std::int32_t ParseAudioSpecificConfig(std::span<const std::uint8_t> asc, AudioConfig* out) noexcept;

// The fields of one ADTS header.
struct AdtsHeader {
  std::uint32_t objectType = 0;  // profile + 1
  std::uint32_t frequencyIndex = 0;
  std::uint32_t channelConfig = 0;
  bool hasCrc = false;
  std::uint32_t headerSize = 0;   // 7, or 9 with the CRC
  std::uint32_t frameLength = 0;  // header and payload
  std::uint32_t rawBlocks = 0;    // raw data blocks in the frame, less one
};

inline constexpr std::uint32_t kAdtsMinHeaderSize = 7;
inline constexpr std::uint32_t kAdtsMaxFrameLength = 8191;

// Decodes the first seven bytes of `bytes`. -18 when fewer are given, -8 when
// the sync word is missing, -7 when the frame length cannot hold the header.
std::int32_t ParseAdtsHeader(std::span<const std::uint8_t> bytes, AdtsHeader* out) noexcept;

// The two-byte AudioSpecificConfig an ADTS header stands for. -8 for a
// reserved frequency index or a channel configuration of 0.
std::int32_t ConfigFromAdts(const AdtsHeader& header, AudioConfig* out) noexcept;

// Pulls raw AAC frames out of an ADTS stream, one at a time, through a
// buffer of one maximal frame. Every frame must describe the same stream as
// the first one.
class AdtsReader {
 public:
  // `in` is opened for reading and positioned at the first header.
  explicit AdtsReader(TMXStream* in) noexcept : in_(in) {}

  // Hands out the next frame's payload (without header and CRC), valid until
  // the next call. -24 at the end of the stream; -8 when the stream does not
  // begin with an ADTS header or packs several raw blocks in a frame; -7 for
  // a lost sync word, a truncated frame or a change of format; -10 when the
  // buffer cannot be allocated; a read error of the stream otherwise.
  std::int32_t Next(std::span<const std::uint8_t>* frame) noexcept;

  // The configuration of the first frame (valid after the first success).
  const AudioConfig& config() const noexcept { return config_; }
  std::uint64_t frames() const noexcept { return frames_; }

 private:
  std::int32_t AtEndOrError(std::int32_t rc) noexcept;

  TMXStream* in_;
  Block<std::uint8_t> buffer_;
  AudioConfig config_;
  std::uint64_t frames_ = 0;
};

// A read-only TMXStream over bytes in memory, so that ADTS data held by the
// caller can be read like a file.
class SpanStream {
 public:
  explicit SpanStream(std::span<const std::uint8_t> data) noexcept;
  SpanStream(const SpanStream&) = delete;
  SpanStream& operator=(const SpanStream&) = delete;
  TMXStream* stream() noexcept { return &raw_.base; }

 private:
  struct Raw {
    TMXStream base;
    SpanStream* owner;
  };
  static SpanStream* Self(TMXStream* s) noexcept { return reinterpret_cast<Raw*>(s)->owner; }
  static std::int32_t Create(TMXStream* s) noexcept;
  static std::int32_t Open(TMXStream* s, std::int32_t mode) noexcept;
  static std::int32_t Close(TMXStream* s) noexcept;
  static std::uint32_t GetSize(TMXStream* s) noexcept;
  static std::uint32_t Tell(TMXStream* s) noexcept;
  static std::int32_t Seek(TMXStream* s, std::uint32_t position) noexcept;
  static std::int32_t Read(TMXStream* s, void* buffer, std::int32_t count,
                           std::int32_t* done) noexcept;
  static std::int32_t Write(TMXStream* s, const void* buffer, std::int32_t count,
                            std::int32_t* done) noexcept;
  static const TMXStreamOps kOps;

  Raw raw_;
  std::span<const std::uint8_t> data_;
  std::size_t position_ = 0;
};

}  // namespace tmx::writer
