#!/usr/bin/env bash
# Regenerates the AAC test material in this directory: short speech
# (espeak-ng) and music (sox) encoded to ADTS with ffmpeg's native AAC
# encoder, without perceptual noise substitution. Needs espeak-ng, sox and
# ffmpeg on the PATH.
set -euo pipefail
cd "$(dirname "$0")"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

speech="The quick brown fox jumps over the lazy dog. \
A spoken programme is made of chapters, and every chapter has a title."

espeak-ng -v en -s 160 -w "$work/speech.wav" "$speech"
# A plucked major chord over a low drone, three seconds.
sox -n -r 48000 -c 2 "$work/music.wav" \
  synth 3 pluck C4 pluck E4 pluck G4 sine 110 remix 1,2,3,4 1,2,3,4 \
  tremolo 3 40 fade 0.05 3 0.3 norm -3

# encode SOURCE RATE CHANNELS BITRATE SECONDS OUTPUT
encode() {
  ffmpeg -nostdin -hide_banner -loglevel error -y -i "$1" -t "$5" \
    -ar "$2" -ac "$3" -c:a aac -aac_pns 0 -b:a "$4" -f adts "$6"
}

encode "$work/speech.wav" 16000 1 24k 3 speech_mono_16000.aac
encode "$work/speech.wav" 22050 1 32k 4 speech_mono_22050.aac
encode "$work/speech.wav" 44100 2 64k 2 speech_stereo_44100.aac
encode "$work/music.wav" 22050 2 48k 3 music_stereo_22050.aac
encode "$work/music.wav" 44100 2 96k 3 music_stereo_44100.aac
encode "$work/music.wav" 48000 1 64k 3 music_mono_48000.aac
