#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the programs, without tests, and runs them. Without arguments it compiles samples/ into a bank and lists the
# bank; arguments are passed to the console tool.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

say "Step 1 of 3: the packages that the build needs"
install_packages "${build_packages[@]}"
say "Step 2 of 3: the programs"
build_programs
bin="$(build_folder release)/bin"

if [ $# -gt 0 ]; then
    say "Step 3 of 3: tarnokexcl $*"
    exec "$bin/tarnokexcl" "$@"
fi

# The cache folder is given relative to the root: after the source, an absolute path would be read as a switch.
cd "$root"
mkdir -p build/demo/cache
say "Step 3 of 3: compiling samples/ into build/demo/samples.tnb"
"$bin/tarnokexcl" "$root/samples" -format vorbis -write_peak_volume -generate_c_header \
    -cache_dir build/demo/cache -o build/demo/samples.tnb
say "Contents of the bank"
"$bin/tnb" info build/demo/samples.tnb
say "The programs are in build/bin: tarnokex (desktop), tarnokexcl (console), tnb (inspect banks). Next: README.md"
