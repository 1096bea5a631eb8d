#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks the layout of every C and C++ file against .clang-format, and that every source file names its licence; --fix
# corrects both.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

licence="SPDX-License-Identifier: MIT"

# has_licence FILE: on its first line, or on the second where the first names the interpreter.
has_licence() {
    [[ "$(head -n 2 "$1")" == *"$licence"* ]]
}

# C files and C headers get a comment that every C compiler takes.
add_licence() {
    local line=1 comment="# $licence"
    [[ ! "$1" =~ \.[ch]pp$ ]] || comment="// $licence"
    [[ ! "$1" =~ \.[ch]$ ]] || comment="/* $licence */"
    [ "$(head -c 2 "$1")" != '#!' ] || line=2
    sed -i "${line}i $comment" "$1"
}

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

say "Checking the licences"
mapfile -t files < <(git ls-files '*.c' '*.h' '*.cpp' '*.hpp' '*.cmake' '*CMakeLists.txt' '*.sh' '*.py' .ci/run \
    platforms/linux/completions)
unlicensed=0
for file in "${files[@]}"; do
    if has_licence "$file"; then
        continue
    elif [ "${1-}" = --fix ]; then
        add_licence "$file"
    else
        say "$file: '$licence' is missing on its first line"
        unlicensed=1
    fi
done

say "Checking the format"
git ls-files -z '*.c' '*.h' '*.cpp' '*.hpp' | xargs -0 clang-format-14 "${mode[@]}"
exit "$unlicensed"
