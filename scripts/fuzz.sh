#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs the fuzz targets, starting from the seeds that write_seeds makes, from the stored corpus and from the inputs that
# earlier runs found.
#
#     scripts/fuzz.sh [--seconds N] [--keep] [TARGET...]
#
# Without TARGET, all targets run. Each runs for N seconds, 60 by default. New inputs are collected in
# build-fuzz/corpus/; --keep adds those that reach new code to the stored corpus, the smallest first. An input that
# makes a target fail is stored in build-fuzz/findings/, and the script ends with status 1.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

seconds=60
keep=0
targets=()
while [ $# -gt 0 ]; do
    case "$1" in
    --seconds)
        seconds="${2:?--seconds needs a number}"
        shift
        ;;
    --keep) keep=1 ;;
    -*)
        say "Usage: scripts/fuzz.sh [--seconds N] [--keep] [TARGET...]"
        exit 2
        ;;
    *) targets+=("${1#fuzz_}") ;;
    esac
    shift
done
[ ${#targets[@]} -gt 0 ] || targets=(engine bank memory callbacks cache project profile list)

install_packages "${build_packages[@]}" "${test_packages[@]}" clang libclang-rt-14-dev
build_preset fuzz write_seeds "${targets[@]/#/fuzz_}"
folder="$(build_folder fuzz)"
mkdir -p "$folder/findings"
"$folder/fuzz/write_seeds" "$folder/seeds"

failed=0
for target in "${targets[@]}"; do
    stored="$root/tests/fuzz/corpus/$target"
    collected="$folder/corpus/$target"
    seeds="$folder/seeds/$target"
    mkdir -p "$stored" "$collected" "$seeds"
    options=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=0 -verbosity=0
        -artifact_prefix="$folder/findings/$target-")
    case "$target" in
    project | profile | list) options+=(-dict="$root/tests/fuzz/documents.dict") ;;
    esac
    say "Fuzzing $target for $seconds seconds"
    if ! "$folder/fuzz/fuzz_$target" "${options[@]}" "$collected" "$stored" "$seeds" >"$folder/$target.log" 2>&1; then
        tail -n 30 "$folder/$target.log"
        failed=1
    fi
    if [ "$keep" -eq 1 ]; then
        "$folder/fuzz/fuzz_$target" -merge=1 "$stored" "$collected" >/dev/null 2>&1
    fi
done
exit "$failed"
