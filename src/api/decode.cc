// The decoding export.
#include "api/file.h"
#include "codec/codec.h"
#include "container/format_handler.h"
#include "util/status.h"

extern "C" {

TMX_API std::int32_t TMXDecodePCMFrame(TMXFile* f, const std::uint8_t* encoded,
                                       std::uint32_t encodedLength, std::int16_t* pcm,
                                       std::uint32_t pcmCapacity,
                                       std::uint32_t* pcmLength) noexcept {
  if (!f) return TMX_ERR_HANDLE;
  if (!encoded || !pcm || !pcmLength) return TMX_ERR_ARGUMENT;
  // The first decode after a seek starts the decoder afresh.
  if (f->reader.decoderResetPending) {
    f->reader.decoderResetPending = 0;
    if (f->codecInstance) f->codec->ResetDecoder(f->codecInstance, encoded, 0, f->codec);
  }
  // The decoder is made on first use from the configuration the handler
  // found at open, and belongs to the file.
  if (!f->codecInstance) {
    const tmx::ProgrammeInfo& info = f->reader.info;
    TMX_RETURN_IF_ERROR(f->codec->CreateDecoder(&f->codecInstance, info.codecConfig,
                                                info.codecConfigLength, f->codec));
  }
  return f->formatHandler->DecodeFrame(&f->reader, f->codec, f->codecInstance, encoded,
                                       encodedLength, pcm, pcmCapacity, pcmLength);
}

}  // extern "C"
