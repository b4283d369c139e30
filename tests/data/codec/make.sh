#!/usr/bin/env bash
# Regenerates the AAC test clips and their reference decodes.
#
# Sources are synthesised here (espeak-ng speech, sox tones, plucks and noise),
# encoded to ADTS with ffmpeg's native AAC encoder and decoded back to raw
# s16le by a float decoder: ffmpeg's own for most clips, faad for the clips
# listed in FAAD_REFERENCE (see README.md for why).
#
# Needs ffmpeg, sox, espeak-ng and faad (Debian packages of the same names).
set -euo pipefail
cd "$(dirname "$0")"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT

ff() { ffmpeg -hide_banner -loglevel error -y "$@"; }

# --- sources --------------------------------------------------------------
espeak-ng -v en -s 165 -w "$tmp/speech.wav" \
  "Chapter one. The lighthouse keeper counted the ships that passed, and wrote each name in a book."
espeak-ng -v de -s 150 -p 70 -w "$tmp/speech2.wav" \
  "Kapitel zwei. Der Wind drehte nach Norden, und die Wellen wurden hoeher."
# A chord with slow tremolo, left and right different.
sox -D -R -n -r 48000 -b 16 -c 2 "$tmp/chord.wav" synth 1.6 sine 220 sine 330 tremolo 3 40 gain -6
# Plucked notes with sharp attacks (forces short windows).
i=0
for notes in "C4 E4" "G4 C5" "E5 G3" "C3 C6" "A4 A3" "D4 F5" "B3 G4"; do
  set -- $notes
  sox -D -R -n -r 48000 -b 16 -c 2 "$tmp/note$i.wav" synth 0.22 pluck "$1" pluck "$2"
  i=$((i + 1))
done
sox -D -R "$tmp"/note?.wav "$tmp/pluck.wav"
# Clicks over a quiet tone: hard transients.
sox -D -R -n -r 48000 -b 16 -c 2 "$tmp/tone.wav" synth 1.2 sine 600 sine 750 gain -18
sox -D -R -n -r 48000 -b 16 -c 2 "$tmp/burst.wav" synth 0.004 whitenoise whitenoise gain -2 pad 0.2 0.1 repeat 3
sox -D -R -m "$tmp/tone.wav" "$tmp/burst.wav" "$tmp/clicks.wav"
# Wide stereo material for intensity stereo: two sweeps and a noise bed.
sox -D -R -n -r 48000 -b 16 -c 2 "$tmp/sweep.wav" synth 1.5 sine 300-3000 sine 310-3200 gain -8
sox -D -R -n -r 48000 -b 16 -c 2 "$tmp/bed.wav" synth 1.5 pinknoise pinknoise gain -26
sox -D -R -m "$tmp/sweep.wav" "$tmp/bed.wav" "$tmp/wide.wav"
# Noise-like material for perceptual noise substitution.
sox -D -R -n -r 44100 -b 16 -c 1 "$tmp/pink.wav" synth 1.2 pinknoise gain -14
sox -D -R -n -r 44100 -b 16 -c 1 "$tmp/hum.wav" synth 1.2 sine 500 gain -12
sox -D -R -m "$tmp/pink.wav" "$tmp/hum.wav" "$tmp/noise.wav"
# A square wave and a sine near full scale: the decoded output clips.
sox -D -R -n -r 44100 -b 16 -c 2 "$tmp/loud.wav" synth 1.0 square 220 sine 330 gain -0.5 2>/dev/null
# Speech (two voices, one per side) over the chord.
sox -D -R "$tmp/speech.wav" -r 48000 "$tmp/sp1.wav"
sox -D -R "$tmp/speech2.wav" -r 48000 "$tmp/sp2.wav"
sox -D -R -M "$tmp/sp1.wav" "$tmp/sp2.wav" "$tmp/speech_st.wav"
sox -D -R -m -v 0.6 "$tmp/speech_st.wav" -v 0.5 "$tmp/chord.wav" "$tmp/mix.wav" trim 0 1.6

# --- clips: name, source, rate, channels, bitrate, extra encoder options --
enc() {
  local name=$1 src=$2 rate=$3 ch=$4 br=$5
  shift 5
  ff -i "$tmp/$src" -t 1.6 -ar "$rate" -ac "$ch" -c:a aac -b:a "$br" "$@" -f adts "$name.aac"
}
enc mono8k_16k     speech.wav   8000  1 16k  -aac_pns 0
enc mono16k_24k    speech.wav   16000 1 24k  -aac_pns 0
enc mono11k_20k    speech2.wav  11025 1 20k  -aac_pns 0
enc stereo22k_48k  mix.wav      22050 2 48k  -aac_pns 0
enc stereo32k_64k_ms chord.wav  32000 2 64k  -aac_pns 0 -aac_is 0 -aac_ms 1
enc stereo44k_128k_tr pluck.wav 44100 2 128k -aac_pns 0
enc stereo48k_96k_click clicks.wav 48000 2 96k -aac_pns 0
enc stereo44k_128k_loud loud.wav 44100 2 128k -aac_pns 0
enc stereo48k_256k mix.wav      48000 2 256k -aac_pns 0
enc stereo24k_32k wide.wav      24000 2 32k  -aac_pns 0
enc stereo44k_48k_is wide.wav   44100 2 48k  -aac_pns 0 -aac_is 1
enc stereo32k_48k_ms_is wide.wav 32000 2 48k -aac_pns 0 -aac_is 1 -aac_ms 1
enc mono44k_64k_pns noise.wav   44100 1 64k  -aac_pns 1

# --- reference decodes ----------------------------------------------------
# Clips whose channel pairs send intensity bands with ms_mask_present = 2.
FAAD_REFERENCE=" stereo32k_48k_ms_is "

# faad does not output the first frame it decodes, so it is given a silent
# frame first (every band zero, sine window: the same state as a fresh
# decoder) and its output lines up with the clip from sample 0.
silent_adts() {  # rate index, channels
  python3 - "$1" "$2" <<'PY'
import sys
rate, ch = int(sys.argv[1]), int(sys.argv[2])
bits = ""
ics_info = "0" + "00" + "0" + "000000" + "0"  # reserved, only long, sine, max_sfb 0, no prediction
ics = "00000000" + "000"                      # global_gain, no pulse, tns, gain control
if ch == 1:
    bits = "000" + "0000" + "00000000" + ics_info + "000"
else:
    bits = "001" + "0000" + "1" + ics_info + "00" + ics + ics
bits += "111"
bits += "0" * (-len(bits) % 8)
raw = bytes(int(bits[i:i + 8], 2) for i in range(0, len(bits), 8))
n = 7 + len(raw)
hdr = [0xFF, 0xF1, (1 << 6) | (rate << 2) | (ch >> 2), ((ch & 3) << 6) | (n >> 11),
       (n >> 3) & 0xFF, ((n & 7) << 5) | 0x1F, 0xFC]
sys.stdout.buffer.write(bytes(hdr) + raw)
PY
}

for f in *.aac; do
  name=${f%.aac}
  if [[ "$FAAD_REFERENCE" == *" $name "* ]]; then
    hdr=$(head -c 4 "$f" | od -An -tu1)
    set -- $hdr
    rate=$((($3 >> 2) & 15))
    ch=$(((($3 & 1) << 2) | ($4 >> 6)))
    { silent_adts "$rate" "$ch"; cat "$f"; } > "$tmp/faad_in.aac"
    faad -q -b 1 -f 2 -o "$name.s16" "$tmp/faad_in.aac"
  else
    ff -c:a aac -i "$f" -f s16le "$name.s16"
  fi
done
ls -l *.aac *.s16
