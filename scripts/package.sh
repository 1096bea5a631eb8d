#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes the Debian packages in build/packages/: installs what that needs, builds the programs, packs and checks them.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# cpack determines the dependencies with file and dpkg-dev.
install_packages "${build_packages[@]}" file dpkg-dev lintian
build_programs

packages="$root/build/packages"
say "Packing"
rm -rf "$packages"
(cd "$root/build" && cpack -G DEB -B "$packages" >cpack.log 2>&1) || { cat "$root/build/cpack.log" >&2; exit 1; }
rm -rf "$packages/_CPack_Packages"
say "Checking the packages"
lintian --allow-root --fail-on error,warning "$packages"/*.deb
(cd "$packages" && ls -1 -- *.deb)
