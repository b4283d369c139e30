// Where the player keeps its programmes: a registry value on Windows, an
// environment variable elsewhere. Also the Windows library entry point.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "tmxsdk.h"
#include "util/wide_string.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

#ifdef _WIN32
constexpr wchar_t kSeparator = L'\\';

// Reads the directory into out (terminated); false when absent or too long.
bool ReadDirectory(wchar_t* out, std::size_t capacity) noexcept {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Tesmora", 0, KEY_READ, &key) != ERROR_SUCCESS)
    return false;
  DWORD type = 0;
  DWORD bytes = DWORD(capacity * sizeof(wchar_t));
  LONG rc = RegQueryValueExW(key, L"TesmoraProgramsDir", nullptr, &type,
                             reinterpret_cast<BYTE*>(out), &bytes);
  RegCloseKey(key);
  if (rc != ERROR_SUCCESS || type != REG_SZ) return false;
  std::size_t chars = bytes / sizeof(wchar_t);
  if (chars >= capacity) return false;
  out[chars] = 0;
  return true;
}
#else
constexpr wchar_t kSeparator = L'/';

bool ReadDirectory(wchar_t* out, std::size_t capacity) noexcept {
  const char* value = std::getenv("TesmoraProgramsDir");
  if (!value) return false;
  return tmx::Utf8ToWide({value, std::strlen(value)}, {out, capacity});
}
#endif

}  // namespace

extern "C" {

TMX_API std::int32_t TesmoraGetTMFilesPath(wchar_t* buffer, std::uint32_t capacity) noexcept {
  if (!buffer || capacity == 0) return 0;
  if (!ReadDirectory(buffer, capacity)) return 0;
  std::size_t length = tmx::WideLength(buffer, capacity);
  if (length == 0) return 0;
  if (buffer[length - 1] != kSeparator) {
    if (length + 2 > capacity) {
      buffer[0] = 0;
      return 0;
    }
    buffer[length] = kSeparator;
    buffer[length + 1] = 0;
  }
  return 1;
}

}  // extern "C"

#ifdef _WIN32
BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(instance);
  return TRUE;
}
#endif
