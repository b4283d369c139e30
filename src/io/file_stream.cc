#include "io/file_stream.h"

#include <algorithm>
#include <cstring>

#include "util/alloc.h"
#include "util/wide_string.h"

namespace tmx {
namespace {

// What an open stream keeps behind its handle field: the file, the position
// the stream reports (the file is read and written at explicit offsets, so
// the system's own file position plays no part), and a window of the file
// read ahead. TMXFileStream cannot grow, so this lives in a block of its own
// from Open or Create until Close.
struct OpenStream {
  platform::NativeFile file;
  std::uint64_t position;
  std::uint64_t bufferStart;  // file offset of buffer[0]
  std::uint32_t buffered;     // bytes of the window, 0 for none
  std::uint8_t buffer[kFileBufferSize];
};

TMXFileStream* AsFile(TMXStream* s) noexcept { return reinterpret_cast<TMXFileStream*>(s); }

// The open stream's record, or null for a null or unopened stream.
OpenStream* Opened(TMXStream* s) noexcept {
  return s ? static_cast<OpenStream*>(AsFile(s)->handle) : nullptr;
}

// Opens the stream's path. A stream opened again keeps its record with the
// new file, from position 0; the old file is closed only once the new one
// is open, so a refused open leaves the stream as it was.
std::int32_t OpenPath(TMXStream* s, platform::Access access) noexcept {
  if (!s) return TMX_ERR_FILE;
  TMXFileStream* fs = AsFile(s);
  const std::size_t length = WideLength(fs->path, TMX_PATH_CAPACITY);
  if (length == 0 || length >= TMX_PATH_CAPACITY) return TMX_ERR_FILE;
  OpenStream* open = Opened(s);
  Owned<OpenStream> fresh;
  if (!open) {
    fresh.reset(AllocObject<OpenStream>());
    if (!fresh) return TMX_ERR_MEMORY;
  }
  platform::NativeFile file = 0;
  if (!platform::OpenFile(fs->path, access, &file)) return TMX_ERR_FILE;
  if (open) {
    platform::CloseFile(open->file);
  } else {
    open = fresh.release();
  }
  open->file = file;
  open->position = 0;
  open->bufferStart = 0;
  open->buffered = 0;
  fs->handle = open;
  return TMX_OK;
}

// Copies what the window holds at the stream's position, up to `count`
// bytes, and moves the position past them.
std::uint32_t TakeBuffered(OpenStream* open, std::uint8_t* out, std::uint32_t count) noexcept {
  if (open->position < open->bufferStart || open->position >= open->bufferStart + open->buffered)
    return 0;
  const auto offset = std::uint32_t(open->position - open->bufferStart);
  const std::uint32_t n = std::min(count, open->buffered - offset);
  std::memcpy(out, open->buffer + offset, n);
  open->position += n;
  return n;
}

// Reads the window at the stream's position; the system's count, or -1.
std::int64_t Fill(OpenStream* open) noexcept {
  const std::int64_t n =
      platform::ReadAt(open->file, open->position, open->buffer, kFileBufferSize);
  open->bufferStart = open->position;
  open->buffered = n > 0 ? std::uint32_t(n) : 0;
  return n;
}

std::int32_t Create(TMXStream* s) noexcept { return OpenPath(s, platform::Access::kCreate); }

std::int32_t Open(TMXStream* s, std::int32_t mode) noexcept {
  if (mode != TMX_STREAM_READ && mode != TMX_STREAM_READ_WRITE) return TMX_ERR_ARGUMENT;
  return OpenPath(s,
                  mode == TMX_STREAM_READ ? platform::Access::kRead : platform::Access::kReadWrite);
}

std::int32_t Close(TMXStream* s) noexcept {
  OpenStream* open = Opened(s);
  if (!open) return TMX_ERR_HANDLE;
  platform::CloseFile(open->file);
  Free(open);
  AsFile(s)->handle = nullptr;
  Free(s);
  return TMX_OK;
}

// The size comes from the file, and so does whatever is read next: a caller
// asking because the file may have changed elsewhere is not served the
// bytes read before.
std::uint32_t GetSize(TMXStream* s) noexcept {
  OpenStream* open = Opened(s);
  if (!open) return TMX_STREAM_UNKNOWN;
  open->buffered = 0;
  const std::int64_t size = platform::FileSize(open->file);
  return size < 0 ? TMX_STREAM_UNKNOWN : std::uint32_t(size);  // low 32 bits, as Windows reports
}

std::uint32_t Tell(TMXStream* s) noexcept {
  OpenStream* open = Opened(s);
  return open ? std::uint32_t(open->position) : TMX_STREAM_UNKNOWN;
}

// Any position is accepted; one past the end makes the next read fail. The
// window is kept when the position lies inside it (the reader steps back
// and forth over nearby fields), and dropped otherwise.
std::int32_t Seek(TMXStream* s, std::uint32_t position) noexcept {
  OpenStream* open = Opened(s);
  if (!open) return TMX_ERR_HANDLE;
  if (position < open->bufferStart || position >= open->bufferStart + open->buffered)
    open->buffered = 0;
  open->position = position;
  return TMX_OK;
}

// Serves what it can from the window, then reads on once: requests of a
// window or more straight into the caller's buffer, smaller ones through a
// new window. Like a single system read it returns fewer bytes than asked
// only at the end of the file.
std::int32_t Read(TMXStream* s, void* buffer, std::int32_t count, std::int32_t* done) noexcept {
  OpenStream* open = Opened(s);
  if (!open) return TMX_ERR_HANDLE;
  if (!buffer || count < 0) return TMX_ERR_READ;
  auto* out = static_cast<std::uint8_t*>(buffer);
  const auto want = std::uint32_t(count);
  std::uint32_t got = TakeBuffered(open, out, want);
  if (got < want) {
    const std::uint32_t rest = want - got;
    std::int64_t n;
    if (rest >= kFileBufferSize) {
      n = platform::ReadAt(open->file, open->position, out + got, rest);
      if (n > 0) {
        open->position += std::uint64_t(n);
        got += std::uint32_t(n);
      }
    } else {
      n = Fill(open);
      got += TakeBuffered(open, out + got, rest);
    }
    if (n < 0 && got == 0) return TMX_ERR_READ;
  }
  if (done) *done = std::int32_t(got);
  return got == 0 ? TMX_ERR_READ : TMX_OK;
}

// Writes through to the file at the stream's position and drops the window,
// which may hold the bytes just replaced.
std::int32_t Write(TMXStream* s, const void* buffer, std::int32_t count,
                   std::int32_t* done) noexcept {
  OpenStream* open = Opened(s);
  if (!open) return TMX_ERR_HANDLE;
  if (!buffer || count < 0) return TMX_ERR_WRITE;
  open->buffered = 0;
  const std::int64_t n =
      platform::WriteAt(open->file, open->position, buffer, std::uint32_t(count));
  if (n < 0) return TMX_ERR_WRITE;
  open->position += std::uint64_t(n);
  if (done) *done = std::int32_t(n);
  return n == 0 ? TMX_ERR_WRITE : TMX_OK;
}

// The input-only table has no file to create.
std::int32_t InputCreate(TMXStream* s) noexcept { return s ? TMX_ERR_FILE : TMX_ERR_ARGUMENT; }

// The input-only table refuses to write, after checking its arguments.
std::int32_t InputWrite(TMXStream* s, const void* buffer, std::int32_t count,
                        std::int32_t* done) noexcept {
  if (!s || !buffer || !done || count < 0) return TMX_ERR_ARGUMENT;
  return TMX_ERR_WRITE;
}

}  // namespace

const TMXStreamOps kReadWriteFileOps = {Create, Open, Close, GetSize, Tell, Seek, Read, Write};

const TMXStreamOps kInputFileOps = {InputCreate, Open, Close, GetSize,
                                    Tell,        Seek, Read,  InputWrite};

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
