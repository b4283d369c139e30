#!/usr/bin/env bash
# Makes the speech the codebooks are trained on, and the held-out speech of
# the quality benchmark, from the texts beside this script with Debian's
# synthesisers: espeak-ng (several voices and languages), festival (the
# kallpc16k diphone voice and the us-slt-hts voice) and flite's built-in
# voices. Every clip is normalised, alternately to -3 dB and -14 dB peak,
# and resampled to 16000 Hz and 8000 Hz signed 16-bit mono.
#
#   make_speech.sh OUTDIR [train|test]
#
# writes OUTDIR/<set>16k.s16 and OUTDIR/<set>8k.s16 (all clips of the set,
# back to back). Needs: espeak-ng festival festvox-kallpc16k
# festvox-us-slt-hts flite sox.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
out="$1"
set_name="${2:-train}"
mkdir -p "$out"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# synthesiser:voice:text. The test set's voices are none of the training ones.
if [ "$set_name" = train ]; then
  clips=(
    "espeak:en:en_a" "espeak:en+m3:en_b" "espeak:en+f2:en_c" "espeak:en-us+m5:en_d"
    "espeak:de:de" "espeak:fr+f1:fr" "espeak:es:es" "espeak:it+m2:it" "espeak:nl:nl"
    "festival:voice_kal_diphone:en_c" "festival:voice_kal_diphone:en_b"
    "festival:voice_cmu_us_slt_arctic_hts:en_a" "festival:voice_cmu_us_slt_arctic_hts:en_d"
    "flite:kal16:en_b" "flite:awb:en_d" "flite:rms:en_c" "flite:rms:en_a"
  )
else
  clips=(
    "flite:slt:test_a" "flite:slt:test_b"
    "espeak:en-us+f3:test_a" "espeak:en-gb-x-rp+m7:test_b"
  )
fi

i=0
: > "$out/${set_name}16k.s16"
: > "$out/${set_name}8k.s16"
for clip in "${clips[@]}"; do
  IFS=: read -r synth voice text <<<"$clip"
  wav="$work/clip$i.wav"
  case "$synth" in
    espeak) espeak-ng -v "$voice" -s 160 -w "$wav" -f "$here/texts/$text.txt" ;;
    festival) text2wave -eval "($voice)" -o "$wav" "$here/texts/$text.txt" ;;
    flite) flite -voice "$voice" -f "$here/texts/$text.txt" -o "$wav" ;;
  esac
  level=$([ $((i % 2)) -eq 0 ] && echo -3 || echo -14)
  for rate in 16000 8000; do
    sox -D "$wav" -t raw -r "$rate" -c 1 -b 16 -e signed-integer "$work/clip.raw" \
      gain -n "$level" 2>/dev/null
    cat "$work/clip.raw" >> "$out/${set_name}$((rate / 1000))k.s16"
  done
  i=$((i + 1))
done
for rate in 16 8; do
  bytes=$(stat -c %s "$out/${set_name}${rate}k.s16")
  echo "$set_name ${rate}k: $((bytes / 2 / (rate * 1000))) s"
done
