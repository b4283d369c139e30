#!/usr/bin/env bash
# Regenerates the ingredients of the sample programme from text/*.txt:
#   speech.aac    the chapters read by espeak-ng, AAC (ADTS), mono, 22050 Hz
#   chapters.txt  the start of each chapter ("h:mm:ss.mmm title")
#   cover.jpg     a small cover picture drawn with ImageMagick
# Needs espeak-ng, sox, ffmpeg and ImageMagick on the PATH.
set -euo pipefail
cd "$(dirname "$0")"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# ImageMagick 7 calls itself magick; Debian's 6 also installs a versioned name.
im="$(command -v magick || command -v convert-im6.q16 || command -v convert)"

: > chapters.txt
start_ms=0
parts=()
for text in text/chapter*.txt; do
  n="$(basename "$text" .txt)"
  espeak-ng -v en -s 155 -f "$text" -w "$work/$n-raw.wav"
  # Half a second of quiet after every chapter.
  sox "$work/$n-raw.wav" -r 22050 -c 1 "$work/$n.wav" pad 0 0.5
  title="$(head -n 1 "$text" | sed 's/^Chapter [a-z]*\. //; s/\.$//')"
  printf '%d:%02d:%02d.%03d %s\n' $((start_ms / 3600000)) $((start_ms / 60000 % 60)) \
    $((start_ms / 1000 % 60)) $((start_ms % 1000)) "$title" >> chapters.txt
  samples="$(soxi -s "$work/$n.wav")"
  start_ms=$((start_ms + samples * 1000 / 22050))
  parts+=("$work/$n.wav")
done
sox "${parts[@]}" "$work/book.wav"
ffmpeg -nostdin -hide_banner -loglevel error -y -i "$work/book.wav" \
  -ar 22050 -ac 1 -c:a aac -aac_pns 0 -b:a 32k -f adts speech.aac

# A lighthouse under a night sky.
"$im" -size 240x240 gradient:'#0b1d3a'-'#3a6ea5' \
  -fill '#f4d35e' -draw 'polygon 140,70 236,40 236,100' \
  -fill '#e8e8e8' -draw 'polygon 100,80 140,80 150,200 90,200' \
  -fill '#c0392b' -draw 'rectangle 96,120 144,140' -draw 'rectangle 92,165 148,185' \
  -fill '#2d3436' -draw 'rectangle 95,60 145,80' \
  -fill '#1e3d59' -draw 'rectangle 0,200 240,240' \
  -strip -quality 80 cover.jpg
