// Fuzz target: a bookmark list opened from fuzzed bytes, then edited. The
// input is a 16-bit length L, L bytes of the list's stream (a new list when
// they hold none), then operations of four bytes plus a metadata value.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "exercise.h"
#include "writer/writer.h"

namespace {

// A programme of a minute with the product id the seed lists carry.
const std::vector<std::uint8_t>& ProgrammeBytes() {
  static const std::vector<std::uint8_t> bytes = [] {
    tmx::writer::ProgrammeSpec plan;
    for (int i = 0; i < 1300; ++i) plan.frames.emplace_back(6, std::uint8_t(i));
    plan.audioSpecificConfig = {0x13, 0x90};
    plan.options.framesPerChunk = 50;
    plan.side.metadata = {tmx::writer::TextItem(tmx::writer::kItemProductId, "urn:book:0001")};
    tmx::fuzz::ByteStream out({});
    tmx::writer::WriteProgramme(plan, out.stream());
    return out.data();
  }();
  return bytes;
}

constexpr std::uint32_t kKeys[] = {0x40746974 /* @tit */, 0x40636172 /* @car */,
                                   0x4075616C /* @ual */, 0x40736465 /* @sde */};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::size_t listSize = std::min<std::size_t>((data[0] << 8) | data[1], size - 2);
  tmx::fuzz::ByteStream book(ProgrammeBytes());
  tmx::fuzz::ByteStream position({data + 2, data + 2 + listSize});
  TMXFile* file = nullptr;
  if (TMXOpenFile(&file, book.stream(), position.stream()) != TMX_OK) return 0;
  TMXSetBookmarkBufferSize(file, 64);
  // Bytes that hold no list for this programme get a new one.
  if (TMXOpenBookmarkList(file, position.stream()) == TMX_OK ||
      TMXInitBookmarkList(file, position.stream()) == TMX_OK) {
    const std::uint8_t* op = data + 2 + listSize;
    const std::uint8_t* end = data + size;
    std::uint8_t buffer[512];
    std::uint32_t value = 0;
    while (end - op >= 4) {
      const std::uint32_t index = op[1] % 8, key = kKeys[op[2] % 4];
      const std::uint32_t length = std::min<std::uint32_t>(op[3], std::uint32_t(end - op - 4));
      switch (op[0] % 8) {
        case 0: TMXAddBookmark(file, std::uint32_t(op[1]) * 700 + op[3], &value); break;
        case 1: TMXDeleteBookmark(file, index); break;
        case 2: TMXAddBookmarkMetadata(file, index, key, op + 4, length); break;
        case 3: TMXDeleteBookmarkMetadata(file, index, key); break;
        case 4: TMXAddBookmarkListMetadata(file, key, op + 4, length); break;
        case 5: TMXDeleteBookmarkListMetadata(file, key); break;
        case 6:
          TMXGetBookmarkMetadata(file, index, key, buffer, sizeof buffer);
          TMXGetBookmarkListMetadata(file, key, buffer, sizeof buffer);
          break;
        default: TMXOpenBookmarkList(file, position.stream()); break;
      }
      op += 4 + (op[0] % 8 == 2 || op[0] % 8 == 4 ? length : 0);
    }
  }
  TMXCloseFile(file);
  return 0;
}
