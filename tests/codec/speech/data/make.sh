#!/usr/bin/env bash
# Makes the speech clips of the speech codec tests: one sentence by flite's
# slt voice and one by espeak-ng (voices the codebooks were not trained
# on), signed 16-bit mono at 8000 and 16000 Hz. Needs flite, espeak-ng, sox.
set -euo pipefail
cd "$(dirname "$0")"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
flite -voice slt -t "The quick brown fox jumps over the lazy dog, and then it runs home." \
  -o "$work/a.wav"
espeak-ng -v en-us+f3 -s 160 -w "$work/b.wav" "Seven bright lamps were shining in the window."
sox -D "$work/a.wav" -r 16000 "$work/a16.wav"
sox -D "$work/b.wav" -r 16000 "$work/b16.wav"
sox -D "$work/a16.wav" "$work/b16.wav" "$work/all.wav"
for rate in 8000 16000; do
  sox -D "$work/all.wav" -t raw -r "$rate" -c 1 -b 16 -e signed-integer \
    "speech$((rate / 1000))k.s16" gain -n -3
done
