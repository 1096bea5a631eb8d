#!/usr/bin/env bash
# Measures the builder against other encoders and against plain copying, and prints the ratios with their targets.
#
#     scripts/bench.sh [--scale] [--runs N] [FOLDER]
#
# FOLDER holds the sounds, FLAC or WAV; the samples of Debian's package sonic-pi-samples if none is named, or samples/
# where that isn't installed. --scale measures memory with very long and very many sounds, and a bank above 4 GiB
# instead; it takes long and 12 GB below TMPDIR. Installs nothing, and leaves out what needs a program that isn't here.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

if ! command -v python3 >/dev/null; then
    say "python3 is needed; install the package python3"
    exit 1
fi
build_preset release tarnokexcl tnb kadpcm_quality
exec python3 "$root/scripts/bench.py" --build "$(build_folder release)" "$@"
