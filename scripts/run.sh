#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the project and runs it. Without arguments it compiles samples/ into a bank and lists the bank; arguments are
# passed to the console tool.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

install_packages "${build_packages[@]}"
build_preset release
bin="$(build_folder release)/bin"

if [ $# -gt 0 ]; then
    exec "$bin/tarnokexcl" "$@"
fi

# The cache folder is given relative to the root: after the source, an absolute path would be read as a switch.
cd "$root"
mkdir -p build/demo/cache
say "Compiling samples/ into build/demo/samples.tnb"
"$bin/tarnokexcl" "$root/samples" -format vorbis -write_peak_volume -generate_c_header \
    -cache_dir build/demo/cache -o build/demo/samples.tnb
say "Contents of the bank"
"$bin/tnb" info build/demo/samples.tnb
