#!/usr/bin/env bash
# Checks the layout of every C and C++ file against .clang-format; --fix corrects it.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

install_packages clang-format-14
cd "$root"
case "${1-}" in
"") mode=(--dry-run -Werror) ;;
--fix) mode=(-i) ;;
*)
    say "Usage: scripts/check_format.sh [--fix]"
    exit 2
    ;;
esac
say "Checking the format"
git ls-files -z '*.c' '*.h' '*.cpp' '*.hpp' | xargs -0 clang-format-14 "${mode[@]}"
