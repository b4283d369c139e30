#!/usr/bin/env bash
# Regenerates src/codec/speech/speech_tables.cc: makes the training speech,
# builds the training tool and runs it (about ten minutes on two cores).
#
#   regenerate.sh [BUILD_DIR]      (default: build-speech-training)
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
build="${1:-$root/build-speech-training}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
"$root/tools/speech_training/make_speech.sh" "$work" train
cmake -S "$root" -B "$build" -G Ninja -DBUILD_TESTING=OFF >/dev/null
ninja -C "$build" -j2 train_speech_codebooks
"$build/tools/speech_training/train_speech_codebooks" "$work/train8k.s16" "$work/train16k.s16" \
  "$root/src/codec/speech/speech_tables.cc"
clang-format -i "$root/src/codec/speech/speech_tables.cc"
