// Stream set-up exports.
#include "io/file_stream.h"

extern "C" {

TMX_API TMXStream* TMXInitIOStream(TMXStream* stream, const TMXStreamOps* ops) noexcept {
  if (!stream) return nullptr;
  stream->ops = ops ? ops : &tmx::kReadWriteFileOps;
  return stream;
}

TMX_API TMXStream* TMXInitInputStream(TMXStream* stream) noexcept {
  if (!stream) return nullptr;
  stream->ops = &tmx::kInputFileOps;
  return stream;
}

}  // extern "C"
