#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the Debian package and tests it in a fresh Debian 12: installs it, builds a bank, opens a project by its MIME
# type in the desktop program, builds programs with the installed engine, removes the package, and checks for leftovers.
#
# usage: scripts/test_package.sh [FOLDER]
#
# Needs root and the network. The system is installed in FOLDER; an existing system there is reused. Without FOLDER, it
# is installed in a temporary folder and removed at the end.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

install_packages "${build_packages[@]}" debootstrap dpkg-dev file lintian appstream desktop-file-utils man-db
build_preset release

target="${1:-}"
if [ -z "$target" ]; then
    target="$(mktemp -d)"
    trap 'umount "$target/proc" 2>/dev/null || true; rm -rf --one-file-system "$target"' EXIT
else
    trap 'umount "$target/proc" 2>/dev/null || true' EXIT
fi

say "Checking the contents of the package"
(cd "$root/build" && rm -f ./*.deb && cpack -G DEB >/dev/null)
package="$(echo "$root"/build/*.deb)"
lintian --fail-on error "$package"
desktop-file-validate "$root"/platforms/linux/desktop/*.desktop
appstreamcli validate --no-net "$root"/build/platforms/linux/desktop/*.metainfo.xml
pages="$(mktemp -d)"
ln -s "$root/docs" "$pages/man1"
for page in "$root"/docs/*.1; do
    problems="$(cd "$pages" && man --warnings -E UTF-8 -l -Tutf8 -Z "man1/$(basename "$page")" 2>&1 >/dev/null)"
    [ -z "$problems" ] || { say "$page: $problems"; exit 1; }
done
rm -r "$pages"

say "Installing a fresh Debian 12 in $target"
[ -e "$target/etc/debian_version" ] || debootstrap --variant=minbase bookworm "$target" >/dev/null
mountpoint -q "$target/proc" || mount -t proc proc "$target/proc"
cp /etc/resolv.conf "$target/etc/" 2>/dev/null || true
cp /etc/apt/sources.list "$target/etc/apt/" 2>/dev/null || true
cp /etc/apt/apt.conf.d/*proxy* "$target/etc/apt/apt.conf.d/" 2>/dev/null || true
cp "$package" "$target/tmp/tarnok.deb"
rm -rf "$target/tmp/samples" && cp -r "$root/samples" "$target/tmp/samples"
mkdir -p "$target/tmp/example"
cat >"$target/tmp/example/CMakeLists.txt" <<'EXAMPLE'
cmake_minimum_required(VERSION 3.25)
project(example CXX)
find_package(tarnok 2 REQUIRED)
add_executable(play_bank /usr/share/doc/tarnok/examples/play_bank.cpp)
target_compile_features(play_bank PRIVATE cxx_std_20)
target_link_libraries(play_bank PRIVATE tarnok::engine)
EXAMPLE

inside() {
    chroot "$target" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
        bash -euo pipefail -c "$1"
}

say "Installing the package: the console tools must work with its dependencies only"
inside '
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends /tmp/tarnok.deb >/dev/null
    cd /tmp && rm -rf work && mkdir work && cd work
    tarnokexcl ../samples/ -o bank.tnb -format vorbis | tail -n 1
    tnb validate bank.tnb
    QT_QPA_PLATFORM=offscreen timeout 5 tarnokex || test $? = 124'

say "Opening a project by its MIME type"
inside '
    apt-get install -y -qq --no-install-recommends xvfb xauth xdotool xdg-utils desktop-file-utils shared-mime-info \
        libfile-mimeinfo-perl bash-completion man-db g++ cmake make pkg-config >/dev/null
    cd /tmp/work
    tarnokexcl ../samples/ -o samples.tnproj -write_proj >/dev/null
    test "$(xdg-mime query filetype samples.tnproj)" = application/x-tarnok-project
    test "$(xdg-mime query filetype bank.tnb)" = application/x-tarnok-bank
    test "$(xdg-mime query default application/x-tarnok-project)" = org.tarnok.tarnokex.desktop
    cat >show.sh <<SCRIPT
        xdg-open samples.tnproj &
        for i in \$(seq 100); do
            sleep 0.2
            window=\$(xdotool search --name samples.tnproj | head -n 1)
            [ -n "\$window" ] && kill \$(xdotool getwindowpid \$window) && exit 0
        done
        exit 1
SCRIPT
    xvfb-run -a bash show.sh'

say "Building the example with the installed engine, and running it"
inside '
    cd /tmp/work
    g++ -std=c++20 /usr/share/doc/tarnok/examples/play_bank.cpp $(pkg-config --cflags --libs kess) -o by_pkg_config
    cmake -S ../example -B cmake >/dev/null && cmake --build cmake >/dev/null
    for player in ./by_pkg_config cmake/play_bank; do $player bank.tnb bell out.wav && test -s out.wav && rm out.wav; done
    cc -shared -fPIC $(pkg-config --cflags tarnok) /usr/share/doc/tarnok/examples/encoder_module.c -o tarnok_xma.so -lm'

say "Removing it"
inside '
    cd /
    dpkg -L tarnok | sort >/tmp/files
    apt-get purge -y -qq tarnok >/dev/null
    while read -r path; do
        if [ -e "$path" ] && ! dpkg -S "$path" >/dev/null 2>&1 && [ "$path" != /. ]; then echo "left: $path"; exit 1; fi
    done </tmp/files
    left="$(find / -xdev \( -path /proc -o -path /tmp -o -path /root \) -prune -o \( -iname "*tarnok*" -o -iname "*kess*L*" \) -print)"
    [ -z "$left" ] || { echo "left: $left"; exit 1; }'
say "The package installs, works, and removes all its files"
