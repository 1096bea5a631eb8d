#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes the Debian packages and tests them in a fresh Debian 12: installs the console tools alone and builds a bank, opens
# a project by its MIME type in the desktop program, builds programs with the installed engine, removes the packages and
# checks for leftovers, and upgrades from the single package that contained everything before 2.4.0.
#
# usage: scripts/test_package.sh [FOLDER]
#
# Needs root and the network. The system is installed in FOLDER; an existing system there is reused. Without FOLDER, it
# is installed in a temporary folder and removed at the end.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

install_packages debootstrap appstream desktop-file-utils man-db
"$root/scripts/package.sh"

target="${1:-}"
if [ -z "$target" ]; then
    target="$(mktemp -d)"
    trap 'umount "$target/proc" 2>/dev/null || true; rm -rf --one-file-system "$target"' EXIT
else
    trap 'umount "$target/proc" 2>/dev/null || true' EXIT
fi

say "Making a package of everything, as it was before 2.4.0"
former="$(mktemp -d)"
(cd "$root/build" && cpack -G DEB -B "$former" -D CPACK_DEB_COMPONENT_INSTALL=OFF -D CPACK_PACKAGE_VERSION=2.3.8 \
    -D CPACK_DEBIAN_PACKAGE_SHLIBDEPS=ON >/dev/null 2>&1)

say "Checking the contents of the packages"
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
rm -rf "$target/tmp/packages" && cp -r "$root/build/packages" "$target/tmp/packages"
cp "$former"/tarnok_2.3.8_*.deb "$target/tmp/former.deb" && rm -r "$former"
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

say "Installing the console tools: they must work with their dependencies only, without a window library"
inside '
    apt-get update -qq
    cd /tmp/packages
    apt-get install -y -qq --no-install-recommends ./libkess14_* ./libtarnok14_* ./tarnok-console_* >/dev/null
    cd /tmp && rm -rf work && mkdir work && cd work
    tarnokexcl ../samples/ -o bank.tnb -format vorbis | tail -n 1
    tnb validate bank.tnb
    windows="$(dpkg-query -W -f "\${db:Status-Status} \${Package}\n" \
        | grep -E "^installed (libqt6(gui|widgets)|libx11|libxcb|libwayland|libgl1|libglx|libegl)" || true)"
    [ -z "$windows" ] || { echo "installed with the console tools: $windows"; exit 1; }'

say "Installing the desktop program"
inside '
    apt-get install -y -qq --no-install-recommends /tmp/packages/*.deb >/dev/null
    cd /tmp/work
    QT_QPA_PLATFORM=offscreen timeout 5 tarnokex || test $? = 124'

say "Opening a project by its MIME type"
inside '
    apt-get install -y -qq --no-install-recommends xvfb xauth xdotool xdg-utils desktop-file-utils shared-mime-info \
        libfile-mimeinfo-perl bash-completion man-db g++ cmake make pkg-config python3 >/dev/null
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

say "Building the examples with the installed engine, and running them"
inside '
    cd /tmp/work
    python3 /usr/share/doc/tarnok/examples/list_bank.py bank.tnb | grep -q "^bell: "
    g++ -std=c++20 /usr/share/doc/tarnok/examples/play_bank.cpp $(pkg-config --cflags --libs kess) -o by_pkg_config
    cmake -S ../example -B cmake >/dev/null && cmake --build cmake >/dev/null
    for player in ./by_pkg_config cmake/play_bank; do $player bank.tnb bell out.wav && test -s out.wav && rm out.wav; done
    cc -shared -fPIC $(pkg-config --cflags tarnok) /usr/share/doc/tarnok/examples/encoder_module.c -o tarnok_xma.so -lm'

say "Building the example in C with the static library for banks"
inside '
    apt-get install -y -qq --no-install-recommends libvorbis-dev libopus-dev libsodium-dev libxxhash-dev >/dev/null
    cd /tmp/work
    cc -std=c99 /usr/share/doc/tarnok/examples/play_bank.c $(pkg-config --cflags --libs kess-bank) -o by_bank_library
    ! ldd by_bank_library | grep -E "kessL|sndfile|mpg123|opusfile"'

remove_all="$(cat <<'REMOVE'
    cd /
    packages="$(dpkg-query -W -f '${Package}\n' "*tarnok*" "libkess*")"
    dpkg -L $packages | sort -u >/tmp/files
    apt-get purge -y -qq $packages >/dev/null
    while read -r path; do
        if [ -e "$path" ] && ! dpkg -S "$path" >/dev/null 2>&1 && [ "$path" != /. ]; then echo "left: $path"; exit 1; fi
    done </tmp/files
    left="$(find / -xdev \( -path /proc -o -path /tmp -o -path /root \) -prune -o \( -iname "*tarnok*" -o -iname "*kess*L*" \) -print)"
    [ -z "$left" ] || { echo "left: $left"; exit 1; }
REMOVE
)"
say "Removing everything"
inside "$remove_all"

say "Playing a bank without any of our packages"
inside 'cd /tmp/work && ./by_bank_library bank.tnb bell | test "$(wc -c)" -gt 1000'

say "Upgrading from the single package, by apt and by dpkg"
for upgrade in "apt-get install -y -qq --no-install-recommends" "dpkg -i --auto-deconfigure"; do
    inside "
        apt-get install -y -qq --no-install-recommends /tmp/former.deb >/dev/null
        cd /tmp/work && tnb validate bank.tnb
        dpkg -L tarnok | xargs -I{} sh -c 'test -d {} || echo {}' | grep -v /doc/tarnok/c | sort >/tmp/before
        $upgrade /tmp/packages/*.deb >/dev/null
        test -z \"\$(dpkg --audit)\"
        while read -r file; do dpkg -S \"\$file\" >/dev/null; done </tmp/before
        tnb validate bank.tnb
        tarnokexcl ../samples/ -o again.tnb -format vorbis | tail -n 1
        cmp bank.tnb again.tnb"
    inside "$remove_all"
done
say "The packages install, work, upgrade, and remove all their files"
