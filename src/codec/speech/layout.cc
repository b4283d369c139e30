#include "codec/speech/layout.h"

namespace tmx::speech {
namespace {

constexpr ModeLayout kLayouts[4] = {
    {1, 37, 2, 148, 240, 8000, -1, 20, {6, 7, 7,  7, 5, 8,  10, 7, 5,  10,
                                        7, 8, 10, 7, 5, 10, 7,  5, 10, 7}},
    {2, 29, 2, 116, 144, 8000, 1, 20, {6, 7, 7, 7, 5, 8, 5, 5, 5, 7, 5, 5, 5, 5, 7, 5, 5, 5, 5, 7}},
    {3, 19, 1, 152, 144, 8000, 0, 20, {6, 7, 7, 7, 5, 8, 9, 9, 9, 7, 5, 9, 9, 9, 7, 5, 9, 9, 9, 7}},
    {4, 20, 1, 160, 160, 16000, -1, 22, {1, 7, 8, 7, 7, 7, 9, 4, 9, 9, 9,
                                         9, 9, 5, 6, 4, 9, 9, 9, 9, 9, 5}},
};

constexpr int SumOfWidths(const ModeLayout& l) {
  int sum = 0;
  for (int i = 0; i < l.fieldCount; ++i) sum += l.widths[i];
  return sum;
}
static_assert(SumOfWidths(kLayouts[0]) == 148 && SumOfWidths(kLayouts[1]) == 116 &&
              SumOfWidths(kLayouts[2]) == 152 && SumOfWidths(kLayouts[3]) == 160);

}  // namespace

const ModeLayout* LayoutForMode(int mode) noexcept {
  return mode >= 1 && mode <= 4 ? &kLayouts[mode - 1] : nullptr;
}

std::uint32_t ReadField(const std::uint8_t* bytes, int bit, int width) noexcept {
  std::uint32_t value = 0;
  for (int i = 0; i < width; ++i) {
    const int k = bit + i;
    value |= std::uint32_t((bytes[k >> 3] >> (k & 7)) & 1) << i;
  }
  return value;
}

void WriteField(std::uint8_t* bytes, int bit, int width, std::uint32_t value) noexcept {
  for (int i = 0; i < width; ++i) {
    const int k = bit + i;
    const auto mask = static_cast<std::uint8_t>(1u << (k & 7));
    if ((value >> i) & 1)
      bytes[k >> 3] = static_cast<std::uint8_t>(bytes[k >> 3] | mask);
    else
      bytes[k >> 3] = static_cast<std::uint8_t>(bytes[k >> 3] & ~mask);
  }
}

int ReadFrameParams(const ModeLayout& layout, const std::uint8_t* packet, int frame,
                    Word16* params) noexcept {
  int n = 0;
  if (layout.leadingWord >= 0) params[n++] = static_cast<Word16>(layout.leadingWord);
  int bit = frame * layout.frameBits;
  for (int i = 0; i < layout.fieldCount; ++i) {
    params[n++] = static_cast<Word16>(ReadField(packet, bit, layout.widths[i]));
    bit += layout.widths[i];
  }
  return n;
}

void WriteFrameParams(const ModeLayout& layout, const Word16* params, int frame,
                      std::uint8_t* packet) noexcept {
  const Word16* p = params + (layout.leadingWord >= 0 ? 1 : 0);
  int bit = frame * layout.frameBits;
  for (int i = 0; i < layout.fieldCount; ++i) {
    WriteField(packet, bit, layout.widths[i], static_cast<std::uint16_t>(p[i]));
    bit += layout.widths[i];
  }
}

}  // namespace tmx::speech
