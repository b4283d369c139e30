#include "container/format_handler.h"

#include <array>

#include "container/legacy/handler.h"
#include "container/mp4/handler.h"

namespace tmx {
namespace {

std::int32_t NullOpen(Container*, TMXStream*) noexcept { return TMX_ERR_UNSUPPORTED; }
std::int32_t NullClose(Container*) noexcept { return TMX_ERR_UNSUPPORTED; }
std::int32_t NullLocales(Container*, std::uint32_t*, std::uint32_t*) noexcept {
  return TMX_ERR_UNSUPPORTED;
}
std::int32_t NullItem(Container*, std::uint32_t, std::uint32_t, std::uint32_t*, std::uint32_t*,
                      std::uint32_t*, std::uint32_t*) noexcept {
  return TMX_ERR_UNSUPPORTED;
}
std::int32_t NullSeek(Container*, std::uint32_t) noexcept { return TMX_ERR_UNSUPPORTED; }
std::int32_t NullAdvance(Container*) noexcept { return TMX_ERR_UNSUPPORTED; }
std::int32_t NullRead(Container*, std::uint8_t*, std::uint32_t, std::uint32_t*) noexcept {
  return TMX_ERR_UNSUPPORTED;
}
std::int32_t NullDecode(Container*, const Codec*, void*, const std::uint8_t*, std::uint32_t,
                        std::int16_t*, std::uint32_t, std::uint32_t*) noexcept {
  return TMX_ERR_UNSUPPORTED;
}
std::int32_t NullSampleInfo(Container*, std::uint32_t, std::uint32_t, TMXFrameInfo*) noexcept {
  return TMX_ERR_UNSUPPORTED;
}

#ifdef TMX_TEST_HOOKS
const FormatHandler* g_override = nullptr;
#endif

}  // namespace

const FormatHandler kNullHandler = {NullOpen,    NullClose, NullLocales, NullItem,      NullSeek,
                                    NullAdvance, NullRead,  NullDecode,  NullSampleInfo};

const FormatHandler* HandlerForFileType(std::uint32_t fileType) noexcept {
  // Indexed by file type; types 7 and 8 are recognised but not served.
  static constexpr std::array<const FormatHandler*, 9> kByType = {
      &kNullHandler,      // 0: not detected
      &mp4::kMp4Handler,  // 1: MP4, other brand
      &mp4::kMp4Handler,  // 2: MP4, "m4b "
      &mp4::kMp4Handler,  // 3: MP4, "tmx "
      &legacy::kHandler,  // 4: older container, codec 0xC00D
      &legacy::kHandler,  // 5: older container, codec 0xC00C
      &legacy::kHandler,  // 6: older container, codec 0xC010
      &kNullHandler,      // 7: older container, unknown codec
      &kNullHandler,      // 8: ID3-tagged stream
  };
#ifdef TMX_TEST_HOOKS
  if (g_override) return g_override;
#endif
  return fileType < kByType.size() ? kByType[fileType] : &kNullHandler;
}

#ifdef TMX_TEST_HOOKS
void testing::OverrideHandler(const FormatHandler* handler) noexcept { g_override = handler; }
#endif

}  // namespace tmx
