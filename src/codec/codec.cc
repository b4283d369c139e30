#include "codec/codec.h"

#include <array>

#include "codec/speech/speech_codec.h"
#include "tmxsdk.h"

namespace tmx {
namespace {

std::int32_t NullCreate(void**, const std::uint8_t*, std::uint32_t, const Codec*) noexcept {
  return TMX_ERR_NO_DECODER;
}
std::int32_t NullDestroy(void**) noexcept { return TMX_ERR_NO_DECODER; }
std::int32_t NullReset(void*, const std::uint8_t*, std::uint32_t, const Codec*) noexcept {
  return TMX_ERR_NO_DECODER;
}
std::int32_t NullDecode(void*, const std::uint8_t*, std::uint32_t, std::int16_t*, std::uint32_t,
                        std::uint32_t*) noexcept {
  return TMX_ERR_NO_DECODER;
}

}  // namespace

const Codec kNullCodec = {NullCreate, NullDestroy, NullReset, NullDecode};

const Codec* CodecForFileType(std::uint32_t fileType) noexcept {
  // Indexed by file type. Only "tmx " programmes get the AAC decoder; the
  // other MP4 brands deliver encoded frames only.
  static constexpr std::array<const Codec*, 9> kByType = {
      &kNullCodec,         // 0
      &kNullCodec,         // 1: MP4, other brand
      &kNullCodec,         // 2: MP4, "m4b "
      &kAacCodec,          // 3: MP4, "tmx " (AAC)
      &kNullCodec,         // 4: older container, codec 0xC00D
      &kSpeechMode4Codec,  // 5: older container, speech codec mode 4
      &kSpeechMode3Codec,  // 6: older container, speech codec mode 3
      &kNullCodec,         // 7
      &kNullCodec,         // 8
  };
  return fileType < kByType.size() ? kByType[fileType] : &kNullCodec;
}

}  // namespace tmx
