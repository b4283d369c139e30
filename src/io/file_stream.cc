#include "io/file_stream.h"

#include <algorithm>

#include "util/alloc.h"
#include "util/wide_string.h"

namespace tmx {
namespace {

// The input-only table has no file to create.
std::int32_t InputCreate(TMXStream* s) noexcept { return s ? TMX_ERR_FILE : TMX_ERR_ARGUMENT; }

// The input-only table refuses to write, after checking its arguments.
std::int32_t InputWrite(TMXStream* s, const void* buffer, std::int32_t count,
                        std::int32_t* done) noexcept {
  if (!s || !buffer || !done || count < 0) return TMX_ERR_ARGUMENT;
  return TMX_ERR_WRITE;
}

}  // namespace

const TMXStreamOps kReadWriteFileOps = {platform::Create,  platform::Open, platform::Close,
                                        platform::GetSize, platform::Tell, platform::Seek,
                                        platform::Read,    platform::Write};

const TMXStreamOps kInputFileOps = {InputCreate,       platform::Open, platform::Close,
                                    platform::GetSize, platform::Tell, platform::Seek,
                                    platform::Read,    InputWrite};

TMXStream* MakeFileStream(const wchar_t* path, bool writable) noexcept {
  if (!path) return nullptr;
  const std::size_t length = WideLength(path, TMX_PATH_CAPACITY);
  if (length >= TMX_PATH_CAPACITY) return nullptr;
  auto* fs = AllocObject<TMXFileStream>();
  if (!fs) return nullptr;
  auto* s = reinterpret_cast<TMXStream*>(fs);
  if (writable) {
    TMXInitIOStream(s, nullptr);
  } else {
    TMXInitInputStream(s);
  }
  std::copy_n(path, length, fs->path);
  return s;
}

void DisposeFileStream(TMXStream* stream) noexcept {
  if (stream && stream->ops->Close(stream) != 0) Free(stream);
}

}  // namespace tmx
