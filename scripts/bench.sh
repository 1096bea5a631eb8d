#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Compares the speed of the builder with other encoders and with copying, and prints the ratios with their targets.
#
#     scripts/bench.sh [--scale] [--runs N] [FOLDER]
#
# FOLDER holds the sounds, FLAC or WAV. Default: those of Debian's package sonic-pi-samples, or samples/ if it isn't
# installed. --scale measures memory instead, with very long and very many sounds and with a bank above 4 GiB. It takes
# long and needs 12 GB in TMPDIR. The script installs nothing. It skips comparisons with programs that aren't installed.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

if ! command -v python3 >/dev/null; then
    say "python3 is needed; install the package python3"
    exit 1
fi
build_preset release tarnokexcl tnb kadpcm_quality
exec python3 "$root/scripts/bench.py" --build "$(build_folder release)" "$@"
