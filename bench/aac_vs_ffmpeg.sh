#!/usr/bin/env bash
# Decodes a 10-minute stereo 44.1 kHz 128 kbit/s programme with tmxtool and
# the same stream with ffmpeg's float and fixed-point AAC decoders (one
# thread each, output discarded), and prints the real-time factors and their
# ratios from one run. Needs a built tmxtool (scripts/run builds it), sox and
# ffmpeg.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
tool="${TMXTOOL:-$root/build/tools/tmxtool}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
seconds=600

# Music-like material: a chord with vibrato, a moving sweep and a little noise.
sox -n -r 44100 -c 2 -b 16 "$work/in.wav" synth $seconds \
  sine 220-880 sine 330 sine 440 pinknoise vol 0.3 tremolo 5 40 remix 1,3 2,4 2>/dev/null
ffmpeg -v error -y -i "$work/in.wav" -c:a aac -b:a 128k -aac_pns 0 -f adts "$work/in.aac"
"$tool" mux "$work/in.aac" -o "$work/in.tmx" >/dev/null

time_of() {  # prints the wall-clock seconds a command takes
  local start end
  start=$(date +%s.%N)
  "$@" >/dev/null 2>&1
  end=$(date +%s.%N)
  echo "$end - $start" | bc -l
}

ours=$(time_of "$tool" decode "$work/in.tmx" -o /dev/null)
float=$(time_of ffmpeg -v error -threads 1 -c:a aac -i "$work/in.aac" -f null -)
fixed=$(time_of ffmpeg -v error -threads 1 -c:a aac_fixed -i "$work/in.aac" -f null -)

printf "%-28s %10s %14s\n" decoder seconds real-time
for row in "tmxtool decode:$ours" "ffmpeg aac (float):$float" "ffmpeg aac_fixed:$fixed"; do
  name="${row%%:*}"; t="${row##*:}"
  printf "%-28s %10.3f %13.1fx\n" "$name" "$t" "$(echo "$seconds / $t" | bc -l)"
done
printf "speed vs ffmpeg aac_fixed: %.2fx\n" "$(echo "$fixed / $ours" | bc -l)"
printf "speed vs ffmpeg aac (float): %.2fx\n" "$(echo "$float / $ours" | bc -l)"
