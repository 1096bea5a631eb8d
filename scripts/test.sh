#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds a preset (default: release) and runs all its tests, or those whose names match a regular expression.
#
#     scripts/test.sh [release|debug|asan|tsan [REGEX]]
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

preset="${1:-release}"
case "$preset" in
release | debug | asan | tsan) ;;
*)
    say "Usage: scripts/test.sh [release|debug|asan|tsan [REGEX]]"
    exit 2
    ;;
esac

install_packages "${build_packages[@]}" "${test_packages[@]}"
configure_preset "$preset" ON
cd "$root"
# A test program is a target of its own name. Where one of the tests drives the programs, everything is needed.
mapfile -t targets < <(ctest --preset "$preset" -N --tests-regex "${2:-.}" | sed -n 's/^ *Test *#[0-9]*: //p')
for target in "${targets[@]}"; do
    if ! grep -q "^build $target: phony " "$(build_folder "$preset")/build.ninja"; then
        targets=()
        break
    fi
done
build_preset "$preset" "${targets[@]}"
say "Testing the preset $preset"
ctest --preset "$preset" -j "$(nproc)" --tests-regex "${2:-.}"
