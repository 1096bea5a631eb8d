#!/usr/bin/env bash
# Runs all tests in the preset coverage and prints one line per file: its lines, how many of them ran, and which did not.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

install_packages "${build_packages[@]}" "${test_packages[@]}" gcovr
build_preset coverage
folder="$(build_folder coverage)"
find "$folder" -name '*.gcda' -delete

say "Running the tests"
cd "$root"
ctest --preset coverage -j "$(nproc)" --quiet || say "Some tests failed; the lines that they ran count all the same"

filters=()
for code in base bank engine builder src tools; do
    filters+=(--filter "$code/")
done
gcovr --root "$root" --object-directory "$folder" "${filters[@]}" --exclude-unreachable-branches --txt
