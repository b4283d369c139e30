#include "support/memory_stream.h"

#include <algorithm>
#include <cstring>

namespace tmx::test {

MemoryStream::MemoryStream(std::vector<std::uint8_t> data) : data_(std::move(data)) {
  ops_ = {Create, Open, Close, GetSize, Tell, Seek, Read, Write};
  raw_.base.ops = &ops_;
  raw_.owner = this;
}

std::int32_t MemoryStream::Create(TMXStream* s) {
  ++Self(s)->opens_;
  Self(s)->lastOpenMode_ = TMX_STREAM_READ_WRITE;
  Self(s)->Log("create");
  return TMX_OK;
}

std::int32_t MemoryStream::Open(TMXStream* s, std::int32_t mode) {
  if (mode != TMX_STREAM_READ && mode != TMX_STREAM_READ_WRITE) return TMX_ERR_ARGUMENT;
  ++Self(s)->opens_;
  Self(s)->lastOpenMode_ = mode;
  Self(s)->Log(mode == TMX_STREAM_READ ? "open0" : "open1");
  return TMX_OK;
}

std::int32_t MemoryStream::Close(TMXStream* s) {
  ++Self(s)->closes_;
  Self(s)->Log("close");
  return TMX_OK;
}

std::uint32_t MemoryStream::GetSize(TMXStream* s) {
  MemoryStream* m = Self(s);
  return m->unknownSize_ ? TMX_STREAM_UNKNOWN : std::uint32_t(m->data_.size());
}

std::uint32_t MemoryStream::Tell(TMXStream* s) { return Self(s)->position_; }

std::int32_t MemoryStream::Seek(TMXStream* s, std::uint32_t position) {
  Self(s)->position_ = position;
  return TMX_OK;
}

std::int32_t MemoryStream::Read(TMXStream* s, void* buffer, std::int32_t count,
                                std::int32_t* done) {
  MemoryStream* m = Self(s);
  if (++m->reads_ == m->failReadAt_) return TMX_ERR_READ;
  if (!buffer || count < 0) return TMX_ERR_READ;
  std::size_t left = m->position_ < m->data_.size() ? m->data_.size() - m->position_ : 0;
  std::size_t n = std::min<std::size_t>(left, std::size_t(count));
  if (n) std::memcpy(buffer, m->data_.data() + m->position_, n);
  m->position_ += std::uint32_t(n);
  if (done) *done = std::int32_t(n);
  return n == 0 ? TMX_ERR_READ : TMX_OK;
}

std::int32_t MemoryStream::Write(TMXStream* s, const void* buffer, std::int32_t count,
                                 std::int32_t* done) {
  MemoryStream* m = Self(s);
  if (++m->writes_ == m->failWriteAt_) return TMX_ERR_WRITE;
  if (!buffer || count <= 0) return TMX_ERR_WRITE;
  std::size_t end = std::size_t(m->position_) + std::size_t(count);
  if (end > m->capacity_) return TMX_ERR_WRITE;
  if (end > m->data_.size()) m->data_.resize(end);
  std::memcpy(m->data_.data() + m->position_, buffer, std::size_t(count));
  if (m->persistBudget_ >= 0) {
    m->writeSizes_.push_back(count);
    const auto kept = std::min<std::size_t>(std::size_t(count), std::size_t(m->persistBudget_));
    m->persistBudget_ -= long(kept);
    std::vector<std::uint8_t>& disk = m->persisted_;
    if (kept) {
      if (m->position_ + kept > disk.size()) disk.resize(m->position_ + kept);
      std::memcpy(disk.data() + m->position_, buffer, kept);
    }
  }
  m->position_ = std::uint32_t(end);
  if (done) *done = count;
  return TMX_OK;
}

void MemoryStream::cut_power_after(long k) {
  persistBudget_ = k < 0 ? -1 : k;
  persisted_ = data_;
  writeSizes_.clear();
}

}  // namespace tmx::test
