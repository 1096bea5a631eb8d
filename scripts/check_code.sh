#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs clang-tidy with the checks of .clang-tidy over all code except the tests; any finding is an error.
#
#     scripts/check_code.sh [FILE...]
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

install_packages "${build_packages[@]}" clang-tidy-14 clang-tools-14
build_programs
cd "$root"
if [ $# -eq 0 ]; then
    mapfile -t files < <(git ls-files 'bank/*.cpp' 'base/*.cpp' 'engine/*.cpp' 'builder/*.cpp' 'src/*.cpp' 'tools/*.cpp')
else
    files=("$@")
fi
say "Checking ${#files[@]} files"
printf '%s\0' "${files[@]}" \
    | xargs -0 -n 1 -P "$(nproc)" clang-tidy-14 -p "$(build_folder release)" --quiet --warnings-as-errors='*' 2>/dev/null
