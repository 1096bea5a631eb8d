#!/usr/bin/env bash
# Compares what the two shared libraries export with the stored lists, so that no call is lost or added unnoticed;
# --update stores what they export now. CONTRIBUTING.md says what a change means for their users.
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
    say "The exported symbols have changed. If that is meant: scripts/check_symbols.sh --update"
    exit 1
fi
