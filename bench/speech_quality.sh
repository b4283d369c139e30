#!/usr/bin/env bash
# Quality of the speech codec beside Speex and Opus at the same bit rates,
# from one run: held-out synthesised speech (voices and texts the codebooks
# were not trained on, from flite and espeak-ng) is coded in mode 3 (8 kHz,
# 8444 bit/s) and mode 4 (16 kHz, 16000 bit/s), and by speexenc/speexdec
# (narrow band at 8 kbit/s, wide band at 16 kbit/s) and opusenc/opusdec at
# the same rates. Every decode is aligned to the input by cross-correlation
# and measured by segmental SNR and log-spectral distance; the speech
# codec's encoding and decoding real-time factors are printed too. Speex is
# measured as it comes and once more without its high-pass filter and
# perceptual enhancer.
#
# Needs the benchmark build (cmake -DTMX_BUILD_BENCH=ON; BENCH_DIR names it,
# default build-bench), and flite espeak-ng sox speex opus-tools.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BENCH_DIR:-$root/build-bench}"
tool="$build/bench/tmx_speech_quality"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

"$root/tools/speech_training/make_speech.sh" "$work" test
echo

row() {  # name, rate, decoded file
  printf "%-34s " "$1"
  "$tool" compare "$work/test$(($2 / 1000))k.s16" "$3" "$2"
}

for band in 8000:3:8000:8.444 16000:4:16000:16; do
  IFS=: read -r rate mode speexrate opusrate <<<"$band"
  in="$work/test$((rate / 1000))k.s16"
  "$tool" code "$mode" "$in" "$work/ours$mode.s16"
  flag=$([ "$rate" = 8000 ] && printf %s -n || printf %s -w)
  speexenc "$flag" --rate "$rate" --bitrate "$speexrate" "$in" "$work/sp.spx" 2>/dev/null
  speexdec "$work/sp.spx" "$work/speex$rate.s16" 2>/dev/null
  # Speex again without its input high-pass and its decoder enhancer, which
  # cost it waveform fidelity.
  speexenc "$flag" --rate "$rate" --bitrate "$speexrate" --no-highpass "$in" "$work/sp2.spx" \
    2>/dev/null
  speexdec --no-enh "$work/sp2.spx" "$work/speexplain$rate.s16" 2>/dev/null
  opusenc --quiet --raw --raw-rate "$rate" --raw-chan 1 --bitrate "$opusrate" --hard-cbr \
    "$in" "$work/op.opus"
  opusdec --quiet --rate "$rate" --no-dither "$work/op.opus" "$work/opus$rate.s16"
  row "speech codec mode $mode" "$rate" "$work/ours$mode.s16"
  row "speex $( [ "$rate" = 8000 ] && echo narrow || echo wide) band ${speexrate} bit/s" \
    "$rate" "$work/speex$rate.s16"
  row "  no high-pass, no enhancer" "$rate" "$work/speexplain$rate.s16"
  row "opus ${opusrate} kbit/s" "$rate" "$work/opus$rate.s16"
  echo
done
