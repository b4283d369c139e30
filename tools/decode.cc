// tmxtool decode: a programme decoded to a 16-bit PCM WAV file.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "codec/aac/decoder.h"
#include "commands.h"
#include "common.h"

namespace tmxtool {
namespace {

std::uint32_t RateIndex(std::uint32_t rate) {
  static const std::uint32_t kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                         22050, 16000, 12000, 11025, 8000,  7350};
  for (std::uint32_t i = 0; i < 13; ++i)
    if (kRates[i] == rate) return i;
  return 15;
}

void Put16(std::uint8_t* p, std::uint32_t v) {
  p[0] = std::uint8_t(v);
  p[1] = std::uint8_t(v >> 8);
}
void Put32(std::uint8_t* p, std::uint32_t v) {
  Put16(p, v & 0xFFFF);
  Put16(p + 2, v >> 16);
}

// The 44-byte header of a PCM WAV file.
void WavHeader(std::uint8_t* h, std::uint32_t rate, std::uint32_t channels, std::uint32_t bytes) {
  std::memcpy(h, "RIFF", 4);
  Put32(h + 4, 36 + bytes);
  std::memcpy(h + 8, "WAVEfmt ", 8);
  Put32(h + 16, 16);
  Put16(h + 20, 1);
  Put16(h + 22, channels);
  Put32(h + 24, rate);
  Put32(h + 28, rate * channels * 2);
  Put16(h + 32, channels * 2);
  Put16(h + 34, 16);
  std::memcpy(h + 36, "data", 4);
  Put32(h + 40, bytes);
}

// Writes `count` samples as WAV wants them, little-endian whatever the
// machine's own order.
void WriteSamples(std::FILE* out, const std::int16_t* pcm, std::uint32_t count) {
  std::uint8_t bytes[2 * 2048];
  for (std::uint32_t i = 0; i < count; ++i) Put16(bytes + 2 * i, std::uint16_t(pcm[i]));
  std::fwrite(bytes, 2, count, out);
}

// A progress bar on a terminal; nothing when the output goes elsewhere.
class Progress {
 public:
  explicit Progress(std::uint32_t total) : total_(total), shown_(isatty(STDERR_FILENO) != 0) {}
  void Update(std::uint32_t done) {
    if (!shown_ || total_ == 0) return;
    const std::uint32_t percent = std::uint32_t(std::uint64_t(done) * 100 / total_);
    if (percent == last_) return;
    last_ = percent;
    char bar[41];
    std::memset(bar, '.', 40);
    std::memset(bar, '#', percent * 40 / 100);
    bar[40] = 0;
    std::fprintf(stderr, "\r[%s] %3u%%", bar, percent);
  }
  ~Progress() {
    if (shown_) std::fprintf(stderr, "\n");
  }

 private:
  std::uint32_t total_;
  std::uint32_t last_ = 101;
  bool shown_;
};

// Speech programmes go through the library's own decoding export, one
// packet at a time.
int DecodeSpeech(TMXFile* file, const char* name, const char* output, std::uint32_t rate) {
  OutputFile wav;
  if (!wav.Create(output)) return 1;
  std::FILE* out = wav.file();
  std::uint8_t header[44] = {};
  std::fwrite(header, 1, sizeof header, out);
  std::uint32_t duration = 0;
  TMXGetDuration(file, &duration);
  Progress progress(duration);
  std::uint8_t packet[256];
  std::int16_t pcm[2048];
  std::uint32_t length = 0, dataBytes = 0, packets = 0;
  std::int32_t rc;
  while ((rc = TMXGetEncodedAudio(file, packet, sizeof packet, &length)) == TMX_OK) {
    std::uint32_t produced = 0;
    if (TMXDecodePCMFrame(file, packet, length, pcm, sizeof pcm, &produced) != TMX_OK) continue;
    WriteSamples(out, pcm, produced / 2);
    dataBytes += produced;
    ++packets;
    std::uint32_t ms = 0;
    TMXGetPlaybackPosition(file, &ms);
    progress.Update(ms);
  }
  progress.Update(duration);
  WavHeader(header, rate, 1, dataBytes);
  std::fseek(out, 0, SEEK_SET);
  const bool written = std::fwrite(header, 1, sizeof header, out) == sizeof header;
  if (rc != TMX_ERR_END) return Fail(name, rc);
  if (!written) return Fail(output, TMX_ERR_WRITE);
  if (!wav.Commit()) return 1;
  std::printf("%u packets decoded to %s\n", packets, output);
  return 0;
}

}  // namespace

int Decode(int argc, char** argv) {
  if (argc != 3 || std::strcmp(argv[1], "-o") != 0) return Usage();
  const char* output = argv[2];
  if (SameFile(output, argv[0])) return FailSameFile(output, argv[0]);
  Programme p;
  if (!p.OpenReadOnly(argv[0])) return 1;
  std::uint32_t type = 0, rate = 0, frames = 0;
  TMXGetFileType(p.get(), &type);
  TMXGetSampleRate(p.get(), &rate);
  if (type == TMX_FILETYPE_LEGACY_C00C || type == TMX_FILETYPE_LEGACY_C010)
    return DecodeSpeech(p.get(), argv[0], output, rate);
  if (type > TMX_FILETYPE_TMX) return Fail(argv[0], TMX_ERR_NO_DECODER);
  // The decoder is used directly, so that mono programmes come out whole.
  tmx::aac::Decoder* decoder = nullptr;
  if (std::int32_t rc = tmx::aac::CreateDecoder(&decoder, RateIndex(rate), 0); rc != TMX_OK)
    return Fail(argv[0], TMX_ERR_DECODER);
  OutputFile wav;
  if (!wav.Create(output)) {
    tmx::aac::DestroyDecoder(&decoder);
    return 1;
  }
  std::FILE* out = wav.file();
  std::uint8_t header[44] = {};
  std::fwrite(header, 1, sizeof header, out);

  std::uint32_t duration = 0;
  TMXGetDuration(p.get(), &duration);
  Progress progress(duration);
  std::vector<std::uint8_t> frame(1 << 16);
  std::int16_t pcm[2048];
  std::uint32_t length = 0, channels = 0, dataBytes = 0, skipped = 0;
  std::int32_t rc;
  while ((rc = TMXGetEncodedAudio(p.get(), frame.data(), std::int32_t(frame.size()), &length)) ==
         TMX_OK) {
    tmx::aac::FrameInfo info{};
    if (tmx::aac::DecodeFrame(decoder, frame.data(), length, pcm, sizeof pcm, &info) !=
        tmx::aac::kOk) {
      ++skipped;
      continue;
    }
    if (channels == 0) channels = info.channels;
    // A change of channel count mid-programme keeps the first layout.
    const std::uint32_t samples = info.samplesPerChannel * channels;
    if (info.channels != channels) {
      std::memset(pcm, 0, sizeof pcm);
      ++skipped;
    }
    dataBytes += samples * 2;
    WriteSamples(out, pcm, samples);
    ++frames;
    std::uint32_t ms = 0;
    TMXGetPlaybackPosition(p.get(), &ms);
    progress.Update(ms);
  }
  progress.Update(duration);
  tmx::aac::DestroyDecoder(&decoder);
  WavHeader(header, rate, channels ? channels : 1, dataBytes);
  std::fseek(out, 0, SEEK_SET);
  const bool written = std::fwrite(header, 1, sizeof header, out) == sizeof header;
  if (rc != TMX_ERR_END) return Fail(argv[0], rc);
  if (!written) return Fail(output, TMX_ERR_WRITE);
  if (!wav.Commit()) return 1;
  std::printf("%u frames decoded to %s", frames, output);
  if (skipped) std::printf(" (%u frames could not be decoded)", skipped);
  std::printf("\n");
  return 0;
}

}  // namespace tmxtool
