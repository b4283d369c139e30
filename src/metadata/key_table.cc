#include "metadata/key_table.h"

#include <array>

#include "util/status.h"

namespace tmx {
namespace {

// Searched in order; the first match wins. Five keys are stored under their
// own code.
constexpr std::array<MetadataKey, 16> kKeys = {{
    {FourCC("@aut"), "author", 0xA9415254},  // (c)ART
    {FourCC("@cat"), "category", FourCC("@cat")},
    {FourCC("@cop"), "copyright", FourCC("cprt")},
    {FourCC("@car"), "", FourCC("covr")},              // a picture
    {FourCC("@lde"), "long_description", 0xA9646573},  // (c)des
    {FourCC("@nar"), "narrator", 0xA96E7274},          // (c)nrt
    {FourCC("@ppi"), "parent_id", FourCC("@ppi")},
    {FourCC("@pti"), "parent_title", FourCC("@pti")},
    {FourCC("@pid"), "product_id", FourCC("prID")},
    {FourCC("@pro"), "provider", 0xA9707562},     // (c)pub
    {FourCC("@pda"), "pubdate", 0xA9646179},      // (c)day
    {FourCC("@sde"), "description", 0xA9636D74},  // (c)cmt
    {FourCC("@sti"), "short_title", FourCC("@sti")},
    {FourCC("@sub"), "genre", FourCC("@sub")},
    {FourCC("@tit"), "title", 0xA96E616D},  // (c)nam
    {FourCC("@ual"), "user_alias", FourCC("ausr")},
}};

const MetadataKey* Find(std::uint32_t key) noexcept {
  for (const MetadataKey& k : kKeys)
    if (k.key == key) return &k;
  return nullptr;
}

}  // namespace

std::span<const MetadataKey> MetadataKeys() noexcept { return kKeys; }

std::uint32_t ItemTypeForKey(std::uint32_t key) noexcept {
  const MetadataKey* k = Find(key);
  return k ? k->itemType : key;
}

std::string_view DictionaryNameForKey(std::uint32_t key) noexcept {
  const MetadataKey* k = Find(key);
  return k ? k->dictionaryName : std::string_view();
}

}  // namespace tmx
