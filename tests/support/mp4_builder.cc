#include "support/mp4_builder.h"

#include <algorithm>
#include <stdexcept>

namespace tmx::test {
namespace {

void Put32(ByteVec& b, std::uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) b.push_back(std::uint8_t(v >> shift));
}
void Put16(ByteVec& b, std::uint16_t v) {
  b.push_back(std::uint8_t(v >> 8));
  b.push_back(std::uint8_t(v));
}
void PutWide(ByteVec& b, std::uint8_t version, std::uint32_t v) {
  if (version == 1) Put32(b, 0);
  Put32(b, v);
}
void Append(ByteVec& b, const ByteVec& more) { b.insert(b.end(), more.begin(), more.end()); }

ByteVec Tkhd(const TrackSpec& t) {
  ByteVec p;
  PutWide(p, t.version, 1);  // creation
  PutWide(p, t.version, 2);  // modification
  Put32(p, t.id);
  Put32(p, 0);
  PutWide(p, t.version, 1000);  // duration
  p.insert(p.end(), 8, 0);
  Put16(p, 0);  // layer
  Put16(p, t.alternateGroup);
  Put16(p, 0x0100);  // volume
  Put16(p, 0);
  for (std::uint32_t m : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u}) Put32(p, m);
  Put32(p, 0);
  Put32(p, 0);
  return FullAtom("tkhd", t.version, t.tkhdFlags, p);
}

ByteVec Mdhd(const TrackSpec& t) {
  ByteVec p;
  PutWide(p, t.version, 1);
  PutWide(p, t.version, 2);
  Put32(p, t.timescale);
  PutWide(p, t.version, 5);
  Put16(p, 0x55C4);  // language "und"
  Put16(p, t.qualityField);
  return FullAtom("mdhd", t.version, 0, p);
}

ByteVec Esds(const ProgrammeSpec& plan) {
  ByteVec p;
  p.push_back(0x03);
  Put32(p, 0x80808022);
  Put16(p, 0);  // ES_ID
  p.push_back(0);
  p.push_back(0x04);
  Put32(p, 0x80808014);
  p.push_back(0x40);  // AAC
  p.push_back(0x15);  // audio stream
  p.insert(p.end(), 3, 0);
  Put32(p, plan.maxBitrate);
  Put32(p, plan.avgBitrate);
  p.push_back(0x05);
  Put32(p, 0x80808002);
  Put16(p, plan.audioSpecificConfig);
  p.push_back(0x06);
  Put32(p, 0x80808001);
  p.push_back(0x02);
  return FullAtom("esds", 0, 0, p);
}

ByteVec SampleEntry(const ProgrammeSpec& plan, const std::string& type) {
  ByteVec p(6, 0);
  Put16(p, 1);  // data reference index
  if (type == "mp4a" || type == "tmvd") {
    p.insert(p.end(), 8, 0);
    Put16(p, 2);
    Put16(p, 16);
    Put32(p, 0);
    Put32(p, 22050u << 16);
    if (plan.withEsds) Append(p, Esds(plan));
  } else {
    p.insert(p.end(), 16, 0);
  }
  return Atom(type, p);
}

std::vector<std::pair<std::uint32_t, std::uint32_t>> SttsOf(const TrackSpec& t) {
  if (!t.stts.empty()) return t.stts;
  return {{std::uint32_t(t.samples.size()), 1024}};
}

std::vector<std::pair<std::uint32_t, std::uint32_t>> StscOf(const TrackSpec& t) {
  if (!t.stsc.empty()) return t.stsc;
  return {{1, t.samplesPerChunk}};
}

// Splits a track's samples into chunks following its "stsc" runs.
std::vector<std::pair<std::uint32_t, std::uint32_t>> ChunksOf(const TrackSpec& t) {
  auto runs = StscOf(t);
  std::vector<std::pair<std::uint32_t, std::uint32_t>> chunks;  // first sample, count
  std::uint32_t sample = 0;
  const auto total = std::uint32_t(t.samples.size());
  for (std::size_t r = 0; r < runs.size() && sample < total; ++r) {
    const std::uint32_t perChunk = std::max<std::uint32_t>(runs[r].second, 1);
    std::uint32_t chunk = runs[r].first;
    const bool last = r + 1 == runs.size();
    const std::uint32_t end = last ? UINT32_MAX : runs[r + 1].first;
    for (; chunk < end && sample < total; ++chunk) {
      const std::uint32_t n = std::min(perChunk, total - sample);
      chunks.push_back({sample, n});
      sample += n;
    }
  }
  return chunks;
}

ByteVec Stbl(const ProgrammeSpec& plan, const TrackSpec& t,
             const std::vector<std::uint32_t>& offsets) {
  ByteVec stsd;
  const ByteVec entry = SampleEntry(plan, t.entry);
  const ByteVec png = t.pngFirst ? SampleEntry(plan, "png ") : ByteVec();
  stsd.reserve(4 + png.size() + entry.size());
  Put32(stsd, t.pngFirst ? 2 : 1);
  Append(stsd, png);
  Append(stsd, entry);
  ByteVec stts;
  auto sttsEntries = SttsOf(t);
  Put32(stts, std::uint32_t(sttsEntries.size()));
  for (auto [count, delta] : sttsEntries) {
    Put32(stts, count);
    Put32(stts, delta);
  }
  ByteVec stsc;
  auto runs = StscOf(t);
  Put32(stsc, std::uint32_t(runs.size()));
  for (auto [first, perChunk] : runs) {
    Put32(stsc, first);
    Put32(stsc, perChunk);
    Put32(stsc, 1);
  }
  ByteVec stsz;
  Put32(stsz, 0);
  Put32(stsz, std::uint32_t(t.samples.size()));
  for (const auto& s : t.samples) Put32(stsz, std::uint32_t(s.size()));
  ByteVec stco;
  Put32(stco, std::uint32_t(offsets.size()));
  for (std::uint32_t o : offsets) Put32(stco, o);
  return Box("stbl", {FullAtom("stsd", 0, 0, stsd), FullAtom("stts", 0, 0, stts),
                      FullAtom("stsc", 0, 0, stsc), FullAtom("stsz", 0, 0, stsz),
                      FullAtom("stco", 0, 0, stco)});
}

ByteVec Trak(const ProgrammeSpec& plan, const TrackSpec& t,
             const std::vector<std::uint32_t>& offsets) {
  ByteVec trak = Tkhd(t);
  if (!t.chap.empty()) {
    ByteVec ids;
    for (std::uint32_t id : t.chap) Put32(ids, id);
    ByteVec tref;
    if (t.trefOtherFirst) Append(tref, Atom("sync", Be32(9)));
    Append(tref, Atom("chap", ids));
    Append(trak, Atom("tref", tref));
  }
  ByteVec hdlr(8, 0);
  hdlr.insert(hdlr.end(), {'s', 'o', 'u', 'n'});
  hdlr.insert(hdlr.end(), 13, 0);
  Append(trak, Box("mdia",
                   {Mdhd(t), FullAtom("hdlr", 0, 0, hdlr), Box("minf", {Stbl(plan, t, offsets)})}));
  return Atom("trak", trak);
}

ByteVec Moov(const ProgrammeSpec& plan, const std::vector<std::vector<std::uint32_t>>& offsets) {
  ByteVec mvhd;
  PutWide(mvhd, plan.mvhdVersion, 1);
  PutWide(mvhd, plan.mvhdVersion, 2);
  Put32(mvhd, 1000);
  PutWide(mvhd, plan.mvhdVersion, 1000);
  mvhd.insert(mvhd.end(), 80, 0);
  ByteVec moov = FullAtom("mvhd", plan.mvhdVersion, 0, mvhd);
  for (std::size_t i = 0; i < plan.tracks.size(); ++i)
    Append(moov, Trak(plan, plan.tracks[i], offsets[i]));
  if (!plan.ilst.empty()) {
    ByteVec meta = {0, 0, 0, 0};
    Append(meta, Atom("ilst", plan.ilst));
    Append(moov, Box("udta", {Atom("meta", meta)}));
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

ByteVec Be16(std::uint16_t v) {
  ByteVec b;
  Put16(b, v);
  return b;
}

ByteVec Be32(std::uint32_t v) {
  ByteVec b;
  Put32(b, v);
  return b;
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
  if (type.size() != 4) throw std::invalid_argument("atom type must have four characters");
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
  ByteVec p;
  Put32(p, (std::uint32_t(version) << 24) | (flags & 0xFFFFFF));
  Append(p, payload);
  return Atom(type, p);
}

Programme BuildProgramme(const ProgrammeSpec& plan) {
  Programme out;
  ByteVec ftyp;
  ftyp.insert(ftyp.end(), plan.brand.begin(), plan.brand.end());
  Put32(ftyp, 0x200);
  ftyp.insert(ftyp.end(), {'i', 's', 'o', 'm'});
  ByteVec ftypAtom = Atom("ftyp", ftyp);
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
    ChunkInfo info{p.track, p.first, 0, 0};
    if (plan.chunkHeaders) {
      info.headerPos = mdatStart + 8 + std::uint32_t(mdat.size());
      std::uint32_t total = 0;
      for (std::uint32_t i = 0; i < p.count; ++i)
        total += std::uint32_t(t.samples[p.first + i].size());
      Put32(mdat, (p.count + 7) * 4);
      mdat.insert(mdat.end(), t.entry.begin(), t.entry.end());
      Put32(mdat, rate ? std::uint32_t(std::uint64_t(p.start) * 1000 / rate) : 0);
      Put32(mdat, p.first);
      Put32(mdat, t.id);
      Put32(mdat, total);
      Put32(mdat, p.count);
      for (std::uint32_t i = 0; i < p.count; ++i)
        Put32(mdat, std::uint32_t(t.samples[p.first + i].size()));
    }
    info.dataPos = mdatStart + 8 + std::uint32_t(mdat.size());
    offsets[p.track][nextChunk[p.track]++] = info.dataPos;
    for (std::uint32_t i = 0; i < p.count; ++i) Append(mdat, t.samples[p.first + i]);
    out.chunks.push_back(info);
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
  ByteVec b;
  b.reserve(text.size() + 2);
  Put16(b, std::uint16_t(text.size()));
  b.insert(b.end(), text.begin(), text.end());
  return b;
}

}  // namespace tmx::test
