#!/usr/bin/env bash
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
build_preset "$preset"
say "Testing the preset $preset"
cd "$root"
ctest --preset "$preset" -j "$(nproc)" --tests-regex "${2:-.}"
