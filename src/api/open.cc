// Opening and closing programmes.
#include <algorithm>
#include <iterator>

#include "api/file.h"
#include "bookmarks/list.h"
#include "codec/codec.h"
#include "container/format_handler.h"
#include "io/file_stream.h"
#include "playback/position.h"
#include "util/alloc.h"
#include "util/status.h"
#include "util/wide_string.h"

namespace tmx {
namespace {

bool HasRequiredOps(const TMXStream* s) noexcept {
  const TMXStreamOps* ops = s->ops;
  return ops && ops->Open && ops->Close && ops->Read && ops->Seek && ops->Tell && ops->GetSize;
}

// Copies what the handler found into the properties the exports report.
void TakeInfo(TMXFile* file) noexcept {
  const ProgrammeInfo& info = file->reader.info;
  file->audioTrackType = info.audioTrackType;
  file->duration = info.duration;
  file->avgBitrate = info.avgBitrate;
  file->maxBitrate = info.maxBitrate;
  file->channelCount = info.channelCount;
  file->sampleRate = info.sampleRate;
  file->samplesPerFrame = info.samplesPerFrame;
  file->frameCount = info.frameCount;
  file->chapterStartFrames = info.chapterStartFrames;
  file->chapterCount = info.chapterCount;
  file->imageCount = info.imageCount;
  file->linkCount = info.linkCount;
  file->positionSaveInterval = info.positionSaveInterval;
  file->framesUntilSave = info.positionSaveInterval;
  std::copy(std::begin(info.originalTitle), std::end(info.originalTitle), file->originalTitle);
}

// Detects the type, picks the handler and lets it parse the container.
std::int32_t OpenContainer(TMXFile* file, TMXStream* stream) noexcept {
  TMX_RETURN_IF_ERROR(stream->ops->Open(stream, TMX_STREAM_READ));
  TMX_RETURN_IF_ERROR(DetectFileType(file, stream));
  file->reader.stream = stream;
  file->reader.fileType = file->fileType;
  file->formatHandler = HandlerForFileType(file->fileType);
  TMX_RETURN_IF_ERROR(file->formatHandler->OpenContainer(&file->reader, stream));
  TakeInfo(file);
  return TMX_OK;
}

// How the streams given to OpenFile are released when the open fails.
enum class StreamOwner { kCaller, kLibrary };

std::int32_t OpenFile(TMXFile** out, TMXStream* stream, TMXStream* positionStream,
                      StreamOwner owner) noexcept {
  if (!out) return TMX_ERR_HANDLE;
  // A failed open leaves a null handle, never one that was freed.
  *out = nullptr;
  if (!stream || !HasRequiredOps(stream)) return TMX_ERR_STREAM_OPS;
  auto* file = AllocObject<TMXFile>();
  if (!file) {
    if (owner == StreamOwner::kLibrary) DisposeFileStream(stream);
    return TMX_ERR_MEMORY;
  }

  if (std::int32_t rc = OpenContainer(file, stream); rc != 0) {
    // A stream the library made itself is freed even when it never opened.
    if (owner == StreamOwner::kLibrary) {
      DisposeFileStream(stream);
    } else {
      stream->ops->Close(stream);
    }
    Free(file);
    return rc;
  }
  file->codec = CodecForFileType(file->fileType);
  file->reader.imageQuality = kDefaultImageQuality;
  file->bookmarkBufferSize = kDefaultBookmarkBufferSize;
  file->positionStream = positionStream;
  file->ownsPositionStream = owner == StreamOwner::kLibrary;
  file->positionLoaded = 0;
  *out = file;
  return TMX_OK;
}

TMXStream* MakePositionStream(const wchar_t* path) noexcept {
  wchar_t positionPath[TMX_PATH_CAPACITY];
  if (!PositionPathFor(path, positionPath)) return nullptr;
  return MakeFileStream(positionPath, /*writable=*/true);
}

}  // namespace

std::int32_t OpenWithOwnedStreams(TMXFile** out, TMXStream* stream,
                                  TMXStream* positionStream) noexcept {
  return OpenFile(out, stream, positionStream, StreamOwner::kLibrary);
}

bool PositionPathFor(const wchar_t* path, std::span<wchar_t> out) noexcept {
  constexpr wchar_t kExtension[] = L".pos";
  constexpr std::size_t kExtensionLength = 4;
  const std::size_t length = WideLength(path, out.size());
  std::size_t stem = length;
  for (std::size_t i = length; i > 0; --i) {
    if (path[i - 1] == L'.') {
      stem = i - 1;
      break;
    }
  }
  if (stem + kExtensionLength >= out.size()) return false;
  std::copy_n(path, stem, out.begin());
  std::copy_n(kExtension, kExtensionLength + 1, out.begin() + std::ptrdiff_t(stem));
  return true;
}

}  // namespace tmx

using namespace tmx;

extern "C" {

TMX_API std::int32_t TMXOpenFile(TMXFile** file, TMXStream* stream,
                                 TMXStream* positionStream) noexcept {
  return OpenFile(file, stream, positionStream, StreamOwner::kCaller);
}

TMX_API std::int32_t TMXOpenFileWinW(TMXFile** file, const wchar_t* path) noexcept {
  if (!file) return TMX_ERR_HANDLE;
  *file = nullptr;
  if (!path) return TMX_ERR_ARGUMENT;
  TMXStream* input = MakeFileStream(path, /*writable=*/false);
  if (!input) return TMX_ERR_FILE;
  // Without memory for the position stream the programme still opens, with
  // no position saving.
  TMXStream* position = MakePositionStream(path);
  std::int32_t rc = OpenWithOwnedStreams(file, input, position);
  if (rc != 0 && position) DisposeFileStream(position);
  return rc;
}

TMX_API std::int32_t TMXCloseFile(TMXFile* file) noexcept {
  if (!file) return TMX_ERR_HANDLE;
  CloseBookmarkList(file);
  if (file->positionStreamOpen) SavePosition(file, std::uint32_t(SaveReason::kClose));
  if (file->codecInstance) file->codec->DestroyDecoder(&file->codecInstance);
  if (file->formatHandler) file->formatHandler->CloseContainer(&file->reader);
  if (file->positionStream) {
    if (file->positionStreamOpen) {
      file->positionStream->ops->Close(file->positionStream);
      file->positionStreamOpen = 0;
    } else if (file->ownsPositionStream) {
      DisposeFileStream(file->positionStream);
    }
  }
  if (file->stream) file->stream->ops->Close(file->stream);
  Free(file);
  return TMX_OK;
}

}  // extern "C"
