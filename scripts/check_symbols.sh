#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Compares the exported symbols of the two shared libraries with the stored lists, so that no function is added or lost
# unnoticed; --update stores the current symbols. CONTRIBUTING.md explains what a change means for users.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

case "${1-}" in
"" | --update) ;;
*)
    say "Usage: scripts/check_symbols.sh [--update]"
    exit 2
    ;;
esac

lib="$(build_folder release)/bin/lib"
changed=0
for stored in builder/libtarnokL.so.14 engine/libkessL.so.14; do
    exported="$(nm --dynamic --defined-only --demangle "$lib/${stored#*/}" | sed -E 's/^[0-9a-f]+ . //' | LC_ALL=C sort -u)"
    if [ "${1-}" = --update ]; then
        printf '%s\n' "$exported" >"$root/$stored.symbols"
    else
        say "Checking the symbols of ${stored#*/}"
        diff -u "$root/$stored.symbols" <(printf '%s\n' "$exported") || changed=1
    fi
done
if [ "$changed" -ne 0 ]; then
    say "The exported symbols have changed. If this is intended, run scripts/check_symbols.sh --update"
    exit 1
fi
