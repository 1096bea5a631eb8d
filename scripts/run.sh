#!/usr/bin/env bash
# Builds the project and does its main job. Without arguments it compiles the samples into a bank and lists what is in
# it; with arguments it hands them to the console tool.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

install_packages "${build_packages[@]}"
build_preset release
bin="$(build_folder release)/bin"

if [ $# -gt 0 ]; then
    exec "$bin/tarnokexcl" "$@"
fi

# The cache directory is relative to the root: behind the source, an absolute path would be read as a switch.
cd "$root"
mkdir -p build/demo/cache
say "Compiling samples/ into build/demo/samples.tnb"
"$bin/tarnokexcl" "$root/samples" -format vorbis -write_peak_volume -generate_c_header \
    -cache_dir build/demo/cache -o build/demo/samples.tnb
say "What is in it"
"$bin/tnb" info build/demo/samples.tnb
