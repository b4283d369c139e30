#include "support/mp4_builder.h"

#include <algorithm>

namespace tmx::test {
namespace {

void Put32(ByteVec& b, std::uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) b.push_back(std::uint8_t(v >> shift));
}
void Append(ByteVec& b, const ByteVec& more) { b.insert(b.end(), more.begin(), more.end()); }
// A 32-bit field, or a 64-bit one in version 1 (the high half zero).
ByteVec Wide(std::uint8_t version, std::uint32_t v) {
  return version == 1 ? Concat({Be32(0), Be32(v)}) : Be32(v);
}

ByteVec Tkhd(const TrackSpec& t) {
  const std::uint8_t v = t.version;
  ByteVec p = Concat({Wide(v, 1), Wide(v, 2), Be32(t.id), Be32(0), Wide(v, 1000), ByteVec(10),
                      Be16(t.alternateGroup), Be16(0x0100), Be16(0)});
  for (std::uint32_t m : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u, 0u, 0u})
    Put32(p, m);
  return FullAtom("tkhd", v, t.tkhdFlags, p);
}

ByteVec Mdhd(const TrackSpec& t) {
  const std::uint8_t v = t.version;
  return FullAtom("mdhd", v, 0,
                  Concat({Wide(v, 1), Wide(v, 2), Be32(t.timescale), Wide(v, 5),
                          Be16(0x55C4) /* "und" */, Be16(t.qualityField)}));
}

// ES, decoder config (AAC audio) and decoder-specific descriptors.
ByteVec Esds(const ProgrammeSpec& plan) {
  return FullAtom("esds", 0, 0,
                  Concat({{0x03},
                          Be32(0x80808022),
                          {0, 0, 0, 0x04},
                          Be32(0x80808014),
                          {0x40, 0x15, 0, 0, 0},
                          Be32(plan.maxBitrate),
                          Be32(plan.avgBitrate),
                          {0x05},
                          Be32(0x80808002),
                          Be16(plan.audioSpecificConfig),
                          {0x06},
                          Be32(0x80808001),
                          {0x02}}));
}

ByteVec SampleEntry(const ProgrammeSpec& plan, const std::string& type) {
  ByteVec p = Concat({ByteVec(6), Be16(1)});  // data reference index
  if (type == "mp4a" || type == "tmvd") {
    Append(p, Concat({ByteVec(8), Be16(2), Be16(16), Be32(0), Be32(22050u << 16), Esds(plan)}));
  } else {
    p.insert(p.end(), 16, 0);
  }
  return Atom(type, p);
}

Runs SttsOf(const TrackSpec& t) {
  return t.stts.empty() ? Runs{{std::uint32_t(t.samples.size()), 1024}} : t.stts;
}
Runs StscOf(const TrackSpec& t) { return t.stsc.empty() ? Runs{{1, t.samplesPerChunk}} : t.stsc; }

// Splits a track's samples into chunks following its "stsc" runs.
Runs ChunksOf(const TrackSpec& t) {
  const Runs runs = StscOf(t);
  Runs chunks;  // first sample, count
  std::uint32_t sample = 0;
  const auto total = std::uint32_t(t.samples.size());
  for (std::size_t r = 0; r < runs.size() && sample < total; ++r) {
    const std::uint32_t perChunk = std::max<std::uint32_t>(runs[r].second, 1);
    const std::uint32_t end = r + 1 == runs.size() ? UINT32_MAX : runs[r + 1].first;
    for (std::uint32_t chunk = runs[r].first; chunk < end && sample < total; ++chunk) {
      const std::uint32_t n = std::min(perChunk, total - sample);
      chunks.push_back({sample, n});
      sample += n;
    }
  }
  return chunks;
}

ByteVec Stbl(const ProgrammeSpec& plan, const TrackSpec& t,
             const std::vector<std::uint32_t>& offsets) {
  const ByteVec stsd =
      Concat({Be32(t.pngFirst ? 2 : 1), t.pngFirst ? SampleEntry(plan, "png ") : ByteVec(),
              SampleEntry(plan, t.entry)});
  const auto stts = SttsOf(t), stsc = StscOf(t);
  ByteVec sttsTable = Be32(std::uint32_t(stts.size()));
  for (auto [count, delta] : stts) Append(sttsTable, Concat({Be32(count), Be32(delta)}));
  ByteVec stscTable = Be32(std::uint32_t(stsc.size()));
  for (auto [first, n] : stsc) Append(stscTable, Concat({Be32(first), Be32(n), Be32(1)}));
  ByteVec stsz = Concat({Be32(0), Be32(std::uint32_t(t.samples.size()))});
  for (const auto& s : t.samples) Put32(stsz, std::uint32_t(s.size()));
  ByteVec stco = Be32(std::uint32_t(offsets.size()));
  for (std::uint32_t o : offsets) Put32(stco, o);
  return Box("stbl", {FullAtom("stsd", 0, 0, stsd), FullAtom("stts", 0, 0, sttsTable),
                      FullAtom("stsc", 0, 0, stscTable), FullAtom("stsz", 0, 0, stsz),
                      FullAtom("stco", 0, 0, stco)});
}

ByteVec Trak(const ProgrammeSpec& plan, const TrackSpec& t,
             const std::vector<std::uint32_t>& offsets) {
  ByteVec trak = Tkhd(t);
  if (!t.chap.empty()) {
    ByteVec ids;
    for (std::uint32_t id : t.chap) Put32(ids, id);
    Append(trak, Box("tref", {Atom("chap", ids)}));
  }
  const ByteVec hdlr = Concat({ByteVec(8), V("soun"), ByteVec(13)});
  Append(trak, Box("mdia",
                   {Mdhd(t), FullAtom("hdlr", 0, 0, hdlr), Box("minf", {Stbl(plan, t, offsets)})}));
  return Atom("trak", trak);
}

ByteVec Moov(const ProgrammeSpec& plan, const std::vector<std::vector<std::uint32_t>>& offsets) {
  const std::uint8_t v = plan.mvhdVersion;
  ByteVec moov = FullAtom("mvhd", v, 0,
                          Concat({Wide(v, 1), Wide(v, 2), Be32(1000), Wide(v, 1000), ByteVec(80)}));
  for (std::size_t i = 0; i < plan.tracks.size(); ++i)
    Append(moov, Trak(plan, plan.tracks[i], offsets[i]));
  if (!plan.ilst.empty()) {
    Append(moov, Box("udta", {Atom("meta", Concat({Be32(0), Atom("ilst", plan.ilst)}))}));
  }
  return Atom("moov", moov);
}

std::uint32_t StartTime(const TrackSpec& t, std::uint32_t sample) {
  std::uint64_t time = 0;
  std::uint32_t left = sample;
  for (auto [count, delta] : SttsOf(t)) {
    const std::uint32_t n = std::min(count, left);
    time += std::uint64_t(n) * delta;
    left -= n;
  }
  return std::uint32_t(time);
}

}  // namespace

ByteVec Be16(std::uint16_t v) { return {std::uint8_t(v >> 8), std::uint8_t(v)}; }

ByteVec Be32(std::uint32_t v) {
  return {std::uint8_t(v >> 24), std::uint8_t(v >> 16), std::uint8_t(v >> 8), std::uint8_t(v)};
}

std::uint32_t Be32At(const ByteVec& b, std::size_t at) {
  if (at + 4 > b.size()) return 0;
  return (std::uint32_t(b.at(at)) << 24) | (std::uint32_t(b.at(at + 1)) << 16) |
         (std::uint32_t(b.at(at + 2)) << 8) | b.at(at + 3);
}

void Put32(ByteVec& b, std::size_t at, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) b.at(at + i) = std::uint8_t(v >> (24 - 8 * i));
}

ByteVec Atom(const std::string& type, const ByteVec& payload) {
  ByteVec b;
  // Sized up front, here and below: growing a few bytes at a time and then
  // inserting a range draws false overflow warnings from GCC 12 at -O3.
  b.reserve(payload.size() + 8);
  Put32(b, std::uint32_t(payload.size() + 8));
  b.insert(b.end(), type.begin(), type.end());
  Append(b, payload);
  return b;
}

ByteVec Concat(std::initializer_list<ByteVec> parts) {
  ByteVec b;
  for (const auto& p : parts) Append(b, p);
  return b;
}

ByteVec Box(const std::string& type, std::initializer_list<ByteVec> children) {
  return Atom(type, Concat(children));
}

ByteVec FullAtom(const std::string& type, std::uint8_t version, std::uint32_t flags,
                 const ByteVec& payload) {
  return Atom(type, Concat({Be32((std::uint32_t(version) << 24) | (flags & 0xFFFFFF)), payload}));
}

Programme BuildProgramme(const ProgrammeSpec& plan) {
  Programme out;
  ByteVec ftypAtom = Atom("ftyp", Concat({V(plan.brand), Be32(0x200), V("isom")}));
  std::copy(plan.ftypType.begin(), plan.ftypType.end(), ftypAtom.begin() + 4);

  // Chunks of every track, ordered by start time in the audio timescale.
  struct Pending {
    std::uint32_t track, first, count, start;
  };
  std::vector<Pending> order;
  for (std::uint32_t t = 0; t < plan.tracks.size(); ++t) {
    for (auto [first, count] : ChunksOf(plan.tracks[t]))
      order.push_back({t, first, count, StartTime(plan.tracks[t], first)});
  }
  std::stable_sort(order.begin(), order.end(), [](const Pending& a, const Pending& b) {
    return a.start != b.start ? a.start < b.start : a.track > b.track;
  });

  std::vector<std::vector<std::uint32_t>> offsets(plan.tracks.size());
  for (std::uint32_t t = 0; t < plan.tracks.size(); ++t)
    offsets[t].assign(ChunksOf(plan.tracks[t]).size(), 0);
  const auto moovSize = std::uint32_t(Moov(plan, offsets).size());
  const auto mdatStart = std::uint32_t(ftypAtom.size()) + moovSize;

  ByteVec mdat;
  std::vector<std::uint32_t> nextChunk(plan.tracks.size(), 0);
  const std::uint32_t rate = plan.tracks.empty() ? 0 : plan.tracks[0].timescale;
  for (const Pending& p : order) {
    const TrackSpec& t = plan.tracks[p.track];
    out.chunks.push_back({p.track, mdatStart + 8 + std::uint32_t(mdat.size())});
    std::uint32_t total = 0;
    for (std::uint32_t i = 0; i < p.count; ++i)
      total += std::uint32_t(t.samples[p.first + i].size());
    Append(mdat, Concat({Be32((p.count + 7) * 4), V(t.entry),
                         Be32(rate ? std::uint32_t(std::uint64_t(p.start) * 1000 / rate) : 0),
                         Be32(p.first), Be32(t.id), Be32(total), Be32(p.count)}));
    for (std::uint32_t i = 0; i < p.count; ++i)
      Put32(mdat, std::uint32_t(t.samples[p.first + i].size()));
    offsets[p.track][nextChunk[p.track]++] = mdatStart + 8 + std::uint32_t(mdat.size());
    for (std::uint32_t i = 0; i < p.count; ++i) Append(mdat, t.samples[p.first + i]);
  }
  out.bytes = ftypAtom;
  Append(out.bytes, Moov(plan, offsets));
  Append(out.bytes, Atom("mdat", mdat));
  return out;
}

std::vector<ByteVec> MakeFrames(std::uint32_t n, std::uint32_t baseSize) {
  std::vector<ByteVec> frames;
  for (std::uint32_t i = 0; i < n; ++i) {
    ByteVec f(baseSize + (i * 37) % 50);
    for (std::size_t k = 0; k < f.size(); ++k) f[k] = std::uint8_t(i * 7 + k);
    frames.push_back(std::move(f));
  }
  return frames;
}

ByteVec TextSample(const std::string& text) {
  return Concat({Be16(std::uint16_t(text.size())), V(text)});
}

}  // namespace tmx::test
