#include "writer/adts.h"

#include <algorithm>
#include <cstring>

#include "util/status.h"

namespace tmx::writer {
namespace {

constexpr std::uint32_t kSampleRates[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                            16000, 12000, 11025, 8000,  7350,  0,     0,     0};

// Reads MSB-first bit fields from a byte span; reads past the end give 0
// and mark the reader as overrun.
class BitReader {
 public:
  explicit BitReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
  std::uint32_t Read(std::uint32_t bits) {
    std::uint32_t value = 0;
    for (std::uint32_t i = 0; i < bits; ++i, ++bit_) {
      std::size_t byte = bit_ / 8;
      std::uint32_t b = 0;
      if (byte < bytes_.size()) {
        b = (bytes_[byte] >> (7 - bit_ % 8)) & 1;
      } else {
        overrun_ = true;
      }
      value = (value << 1) | b;
    }
    return value;
  }
  bool overrun() const { return overrun_; }

 private:
  std::span<const std::uint8_t> bytes_;
  std::size_t bit_ = 0;
  bool overrun_ = false;
};

// Reads `count` bytes, carrying on after short reads; `got` counts what came.
std::int32_t ReadFully(TMXStream* s, std::uint8_t* out, std::uint32_t count,
                       std::uint32_t* got) noexcept {
  *got = 0;
  while (*got < count) {
    std::int32_t done = 0;
    std::int32_t rc = s->ops->Read(s, out + *got, std::int32_t(count - *got), &done);
    if (rc != 0) return rc;
    if (done <= 0) return TMX_ERR_READ;
    *got += std::uint32_t(done);
  }
  return TMX_OK;
}

}  // namespace

std::uint32_t SampleRateOfIndex(std::uint32_t index) noexcept {
  return index < 16 ? kSampleRates[index] : 0;
}

std::int32_t ParseAudioSpecificConfig(std::span<const std::uint8_t> asc,
                                      AudioConfig* out) noexcept {
  AudioConfig config;
  if (asc.size() < 2 || asc.size() > config.asc.size()) return TMX_ERR_ARGUMENT;
  BitReader bits(asc);
  config.objectType = bits.Read(5);
  if (config.objectType == 31) config.objectType = 32 + bits.Read(6);
  config.frequencyIndex = bits.Read(4);
  config.sampleRate =
      config.frequencyIndex == 15 ? bits.Read(24) : SampleRateOfIndex(config.frequencyIndex);
  config.channelConfig = bits.Read(4);
  if (bits.overrun()) return TMX_ERR_ARGUMENT;
  if (config.sampleRate == 0 || config.channelConfig == 0 || config.channelConfig > 7) {
    return TMX_ERR_UNSUPPORTED;
  }
  std::copy(asc.begin(), asc.end(), config.asc.begin());
  config.ascSize = std::uint32_t(asc.size());
  *out = config;
  return TMX_OK;
}

std::int32_t ParseAdtsHeader(std::span<const std::uint8_t> bytes, AdtsHeader* out) noexcept {
  if (bytes.size() < kAdtsMinHeaderSize) return TMX_ERR_ARGUMENT;
  BitReader bits(bytes.first(kAdtsMinHeaderSize));
  if (bits.Read(12) != 0xFFF) return TMX_ERR_UNSUPPORTED;
  AdtsHeader h;
  bits.Read(1);                                       // MPEG version
  if (bits.Read(2) != 0) return TMX_ERR_UNSUPPORTED;  // layer is always 0
  h.hasCrc = bits.Read(1) == 0;
  h.objectType = bits.Read(2) + 1;
  h.frequencyIndex = bits.Read(4);
  bits.Read(1);  // private bit
  h.channelConfig = bits.Read(3);
  bits.Read(4);  // original/copy, home, copyright bits
  h.frameLength = bits.Read(13);
  bits.Read(11);  // buffer fullness
  h.rawBlocks = bits.Read(2);
  h.headerSize = h.hasCrc ? 9 : 7;
  if (h.frameLength <= h.headerSize) return TMX_ERR_INCONSISTENT;
  *out = h;
  return TMX_OK;
}

std::int32_t ConfigFromAdts(const AdtsHeader& header, AudioConfig* out) noexcept {
  // object type (5 bits), frequency index (4), channels (4), then the three
  // zero bits of the general audio config: 1024-sample frames, no core
  // coder, no extension.
  const std::uint32_t word =
      (header.objectType << 11) | (header.frequencyIndex << 7) | (header.channelConfig << 3);
  const std::uint8_t asc[2] = {std::uint8_t(word >> 8), std::uint8_t(word)};
  return ParseAudioSpecificConfig(asc, out);
}

std::int32_t AdtsReader::AtEndOrError(std::int32_t rc) noexcept {
  const std::uint32_t size = in_->ops->GetSize(in_);
  const std::uint32_t here = in_->ops->Tell(in_);
  if (size != TMX_STREAM_UNKNOWN && here != TMX_STREAM_UNKNOWN && here < size) {
    return rc != 0 ? rc : TMX_ERR_READ;
  }
  return TMX_ERR_END;
}

std::int32_t AdtsReader::Next(std::span<const std::uint8_t>* frame) noexcept {
  if (!buffer_) {
    if (!buffer_.Allocate(kAdtsMaxFrameLength)) return TMX_ERR_MEMORY;
  }
  std::uint8_t* b = buffer_.get();
  std::uint32_t got = 0;
  std::int32_t rc = ReadFully(in_, b, kAdtsMinHeaderSize, &got);
  if (rc != 0) {
    // Nothing left at a frame boundary ends the stream; a partial header
    // means the stream was cut.
    std::int32_t end = AtEndOrError(rc);
    if (end != TMX_ERR_END) return end;
    return got == 0 ? TMX_ERR_END : TMX_ERR_INCONSISTENT;
  }
  AdtsHeader header;
  rc = ParseAdtsHeader({b, kAdtsMinHeaderSize}, &header);
  if (rc == TMX_ERR_UNSUPPORTED && frames_ > 0) return TMX_ERR_INCONSISTENT;
  if (rc != 0) return rc;
  if (header.rawBlocks != 0) return TMX_ERR_UNSUPPORTED;
  rc = ReadFully(in_, b + kAdtsMinHeaderSize, header.frameLength - kAdtsMinHeaderSize, &got);
  if (rc != 0) {
    std::int32_t end = AtEndOrError(rc);
    return end == TMX_ERR_END ? TMX_ERR_INCONSISTENT : end;
  }
  if (frames_ == 0) {
    TMX_RETURN_IF_ERROR(ConfigFromAdts(header, &config_));
  } else if (header.objectType != config_.objectType ||
             header.frequencyIndex != config_.frequencyIndex ||
             header.channelConfig != config_.channelConfig) {
    return TMX_ERR_INCONSISTENT;
  }
  ++frames_;
  *frame = {b + header.headerSize, header.frameLength - header.headerSize};
  return TMX_OK;
}

const TMXStreamOps SpanStream::kOps = {Create, Open, Close, GetSize, Tell, Seek, Read, Write};

SpanStream::SpanStream(std::span<const std::uint8_t> data) noexcept : data_(data) {
  raw_.base.ops = &kOps;
  raw_.owner = this;
}

std::int32_t SpanStream::Create(TMXStream*) noexcept { return TMX_ERR_FILE; }
std::int32_t SpanStream::Open(TMXStream*, std::int32_t mode) noexcept {
  return mode == TMX_STREAM_READ ? TMX_OK : TMX_ERR_ARGUMENT;
}
std::int32_t SpanStream::Close(TMXStream*) noexcept { return TMX_OK; }
std::uint32_t SpanStream::GetSize(TMXStream* s) noexcept {
  return std::uint32_t(Self(s)->data_.size());
}
std::uint32_t SpanStream::Tell(TMXStream* s) noexcept { return std::uint32_t(Self(s)->position_); }
std::int32_t SpanStream::Seek(TMXStream* s, std::uint32_t position) noexcept {
  Self(s)->position_ = position;
  return TMX_OK;
}
std::int32_t SpanStream::Read(TMXStream* s, void* buffer, std::int32_t count,
                              std::int32_t* done) noexcept {
  SpanStream* self = Self(s);
  const std::size_t size = self->data_.size();
  const std::size_t left = self->position_ < size ? size - self->position_ : 0;
  const std::size_t n = std::min<std::size_t>(left, count > 0 ? std::size_t(count) : 0);
  if (done) *done = std::int32_t(n);
  if (n == 0) return TMX_ERR_READ;
  std::memcpy(buffer, self->data_.data() + self->position_, n);
  self->position_ += n;
  return TMX_OK;
}
std::int32_t SpanStream::Write(TMXStream*, const void*, std::int32_t, std::int32_t*) noexcept {
  return TMX_ERR_WRITE;
}

}  // namespace tmx::writer
