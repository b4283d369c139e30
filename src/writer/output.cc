#include "writer/output.h"

#include <algorithm>
#include <cstring>

#include "io/stream_io.h"

namespace tmx::writer {

std::int32_t Output::Start(TMXStream* stream) noexcept {
  if (!stream || !stream->ops || !stream->ops->Write || !stream->ops->Seek) {
    return status_ = TMX_ERR_STREAM_OPS;
  }
  if (!buffer_.Allocate(kBufferSize)) return status_ = TMX_ERR_MEMORY;
  if (std::int32_t rc = stream->ops->Seek(stream, 0); rc != 0) return status_ = rc;
  stream_ = stream;
  used_ = 0;
  position_ = 0;
  return status_ = TMX_OK;
}

std::int32_t Output::WriteAll(const std::uint8_t* data, std::size_t size) noexcept {
  while (size > 0) {
    const std::int32_t chunk = std::int32_t(std::min<std::size_t>(size, 1u << 30));
    std::int32_t done = 0;
    std::int32_t rc = stream_->ops->Write(stream_, data, chunk, &done);
    if (rc != 0) return rc;
    if (done <= 0 || done > chunk) return TMX_ERR_WRITE;
    data += done;
    size -= std::size_t(done);
  }
  return TMX_OK;
}

std::int32_t Output::Flush() noexcept {
  if (status_ == 0 && used_ > 0) {
    if (std::int32_t rc = WriteAll(buffer_.get(), used_); rc != 0) Fail(rc);
  }
  used_ = 0;
  return status_;
}

void Output::Bytes(std::span<const std::uint8_t> bytes) noexcept {
  if (status_ != 0) return;
  if (position_ + bytes.size() > 0xFFFFFFFFu) return Fail(TMX_ERR_WRITE);
  if (used_ + bytes.size() > kBufferSize) {
    if (Flush() != 0) return;
    if (bytes.size() >= kBufferSize) {
      if (std::int32_t rc = WriteAll(bytes.data(), bytes.size()); rc != 0) return Fail(rc);
      position_ += bytes.size();
      return;
    }
  }
  if (!bytes.empty()) std::memcpy(buffer_.get() + used_, bytes.data(), bytes.size());
  used_ += bytes.size();
  position_ += bytes.size();
}

void Output::U8(std::uint32_t v) noexcept {
  const std::uint8_t b[1] = {std::uint8_t(v)};
  Bytes(b);
}
void Output::U16(std::uint32_t v) noexcept {
  const std::uint8_t b[2] = {std::uint8_t(v >> 8), std::uint8_t(v)};
  Bytes(b);
}
void Output::U24(std::uint32_t v) noexcept {
  const std::uint8_t b[3] = {std::uint8_t(v >> 16), std::uint8_t(v >> 8), std::uint8_t(v)};
  Bytes(b);
}
void Output::U32(std::uint32_t v) noexcept {
  std::uint8_t b[4];
  StoreBE32(b, v);
  Bytes(b);
}
void Output::U64(std::uint64_t v) noexcept {
  U32(std::uint32_t(v >> 32));
  U32(std::uint32_t(v));
}
void Output::Zeros(std::uint32_t count) noexcept {
  static constexpr std::uint8_t kZeros[64] = {};
  while (count > 0) {
    const std::uint32_t n = std::min<std::uint32_t>(count, sizeof kZeros);
    Bytes({kZeros, n});
    count -= n;
  }
}
void Output::CString(const char* text) noexcept {
  Bytes({reinterpret_cast<const std::uint8_t*>(text), std::strlen(text) + 1});
}

std::uint32_t Output::Atom(std::uint32_t type) noexcept {
  const std::uint32_t start = position();
  U32(0);
  U32(type);
  return start;
}

std::uint32_t Output::FullAtom(std::uint32_t type, std::uint32_t version,
                               std::uint32_t flags) noexcept {
  const std::uint32_t start = Atom(type);
  U8(version);
  U24(flags);
  return start;
}

void Output::EndAtom(std::uint32_t start) noexcept { PatchU32(start, position() - start); }

void Output::PatchU32(std::uint32_t at, std::uint32_t v) noexcept {
  if (status_ != 0) return;
  const std::uint64_t bufferStart = position_ - used_;
  if (at >= bufferStart) {
    StoreBE32(buffer_.get() + (at - bufferStart), v);
    return;
  }
  if (Flush() != 0) return;
  std::uint8_t b[4];
  StoreBE32(b, v);
  if (std::int32_t rc = WriteExactAt(stream_, at, b); rc != 0) return Fail(rc);
  if (stream_->ops->Seek(stream_, std::uint32_t(position_)) != 0) Fail(TMX_ERR_SEEK);
}

Spool::~Spool() {
  if (file_) std::fclose(file_);
}

std::int32_t Spool::Start(TMXStream* scratch) noexcept {
  if (scratch &&
      (!scratch->ops || !scratch->ops->Write || !scratch->ops->Seek || !scratch->ops->Read)) {
    return TMX_ERR_STREAM_OPS;
  }
  if (!buffer_.Allocate(kValues)) return TMX_ERR_MEMORY;
  scratch_ = scratch;
  return TMX_OK;
}

std::int32_t Spool::StoreAt(std::uint64_t at, const std::uint8_t* data, std::size_t size) noexcept {
  if (scratch_) {
    if (at + size > 0xFFFFFFFFu) return TMX_ERR_WRITE;
    return WriteExactAt(scratch_, std::uint32_t(at), {data, size});
  }
  if (!file_) {
    file_ = std::tmpfile();
    if (!file_) return TMX_ERR_FILE;
  }
  if (std::fseek(file_, long(at), SEEK_SET) != 0) return TMX_ERR_SEEK;
  return std::fwrite(data, 1, size, file_) == size ? TMX_OK : TMX_ERR_WRITE;
}

std::int32_t Spool::LoadAt(std::uint64_t at, std::uint8_t* data, std::size_t size) noexcept {
  if (scratch_) return ReadExactAt(scratch_, std::uint32_t(at), {data, size});
  if (std::fseek(file_, long(at), SEEK_SET) != 0) return TMX_ERR_SEEK;
  return std::fread(data, 1, size, file_) == size ? TMX_OK : TMX_ERR_READ;
}

std::int32_t Spool::Spill() noexcept {
  const std::size_t bytes = used_ * sizeof(std::uint32_t);
  TMX_RETURN_IF_ERROR(StoreAt(spilled_ * sizeof(std::uint32_t),
                              reinterpret_cast<std::uint8_t*>(buffer_.get()), bytes));
  spilled_ += used_;
  used_ = 0;
  return TMX_OK;
}

std::int32_t Spool::Append(std::uint32_t value) noexcept {
  if (!buffer_ || reading_) return TMX_ERR_ARGUMENT;
  if (used_ == kValues) TMX_RETURN_IF_ERROR(Spill());
  buffer_.get()[used_++] = value;
  return TMX_OK;
}

std::int32_t Spool::Rewind() noexcept {
  if (!buffer_) return TMX_ERR_ARGUMENT;
  if (!reading_) {
    // Once anything went out, everything goes out, so that reading back is
    // one sequential pass over the backing store.
    if (spilled_ > 0 && used_ > 0) TMX_RETURN_IF_ERROR(Spill());
    total_ = spilled_ + used_;
    reading_ = true;
  }
  readBase_ = 0;
  readIndex_ = 0;
  loaded_ = spilled_ > 0 ? 0 : used_;
  return TMX_OK;
}

std::int32_t Spool::Refill() noexcept {
  readBase_ += loaded_;
  readIndex_ = 0;
  loaded_ = std::size_t(std::min<std::uint64_t>(kValues, total_ - readBase_));
  return LoadAt(readBase_ * sizeof(std::uint32_t), reinterpret_cast<std::uint8_t*>(buffer_.get()),
                loaded_ * sizeof(std::uint32_t));
}

std::int32_t Spool::Next(std::uint32_t* value) noexcept {
  if (!reading_ || readBase_ + readIndex_ >= total_) return TMX_ERR_READ;
  if (readIndex_ == loaded_) TMX_RETURN_IF_ERROR(Refill());
  *value = buffer_.get()[readIndex_++];
  return TMX_OK;
}

}  // namespace tmx::writer
