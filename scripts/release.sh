#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes a release from the current commit: checks and tests it, tags it as v1.2.3, and writes the source archive, the
# packages and their checksums to build/release/. The version is that of the newest entry of CHANGELOG.
#
#     scripts/release.sh [--no-tag]
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

tag=1
case "${1-}" in
"") ;;
--no-tag) tag=0 ;;
*)
    say "Usage: scripts/release.sh [--no-tag]"
    exit 2
    ;;
esac

cd "$root"
version="$(sed -nE '1s/^tarnok \(([0-9.]+)\).*/\1/p' CHANGELOG)"
if [ -n "$(git status --porcelain)" ]; then
    say "There are uncommitted changes"
    exit 1
fi
if [ "$tag" -eq 1 ] && git rev-parse -q --verify "refs/tags/v$version" >/dev/null; then
    say "Version $version is already tagged: add a new entry to the start of CHANGELOG"
    exit 1
fi

bash .ci/run
scripts/package.sh

out="$root/build/release"
rm -rf "$out" && mkdir -p "$out"
git archive --prefix="tarnok-$version/" HEAD | xz -T0 >"$out/tarnok-$version.tar.xz"
cp "$root"/build/packages/*.deb "$out/"
(cd "$out" && sha256sum -- * >SHA256SUMS)
[ "$tag" -eq 0 ] || git tag -a "v$version" -m "Tarnok $version"
say "Version $version is in build/release"
