#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs all tests in the preset coverage. Prints one line per file: its number of lines, how many ran, and which didn't.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

install_packages "${build_packages[@]}" "${test_packages[@]}" gcovr
build_preset coverage
folder="$(build_folder coverage)"
find "$folder" -name '*.gcda' -delete

say "Running the tests"
cd "$root"
ctest --preset coverage -j "$(nproc)" --quiet || say "Some tests failed; the lines that they ran are still counted"

filters=()
for code in base bank engine builder src tools; do
    filters+=(--filter "$code/")
done
gcovr --root "$root" --object-directory "$folder" "${filters[@]}" --exclude-unreachable-branches --txt
