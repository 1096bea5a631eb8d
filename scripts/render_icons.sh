#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Renders the drawings in resources/svg to PNG files: those that resources.qrc compiles into the desktop program, and
# those of the installed icon theme.
#
# usage: scripts/render_icons.sh            render, then check
#        scripts/render_icons.sh --check    only check the existing files (needs no renderer)
#
# Rendering needs rsvg-convert and optipng (Debian: librsvg2-bin, optipng). Unchanged pictures aren't written again, so
# a second run changes nothing. Exit status: 0 success, 1 a check failed, 2 wrong usage or a missing program.
set -euo pipefail

resources="$(cd "$(dirname "${BASH_SOURCE[0]}")/../resources" && pwd)"
toolbar_icons=(icon_new icon_open icon_save icon_addfiles icon_build icon_rebuild icon_cancel)
tree_icons=(treeicon_bank treeicon_subsound treeicon_sourcefile)
toolbar_size=128
tree_size=22

# Icons of the theme: drawing, then path in the theme.
theme_icons=(tarnokex:apps/tarnokex project:mimetypes/application-x-tarnok-project
    profile:mimetypes/application-x-tarnok-profile soundbank:mimetypes/application-x-tarnok-bank)
theme_sizes=(16 32 48 128)

need() {
    command -v "$1" >/dev/null || { echo "render_icons.sh: $1 is missing (Debian package $2)" >&2; exit 2; }
}

# Renders a drawing to a picture. Paths are relative to resources and have no extension.
render() { # drawing size picture
    rsvg-convert --width "$2" --height "$2" --output "$scratch/picture.png" "$resources/svg/$1.svg"
    optipng -quiet -strip all "$scratch/picture.png"
    if ! cmp --silent "$scratch/picture.png" "$resources/$3.png"; then
        install -D -m 644 "$scratch/picture.png" "$resources/$3.png"
        echo "rendered $3.png"
    fi
}

render_all() {
    need rsvg-convert librsvg2-bin
    need optipng optipng
    scratch="$(mktemp -d)"
    trap 'rm -rf "$scratch"' EXIT
    local name icon size
    for name in "${toolbar_icons[@]}"; do render "$name" "$toolbar_size" "$name"; done
    for name in "${tree_icons[@]}"; do render "$name" "$tree_size" "$name"; done
    for icon in "${theme_icons[@]}"; do
        for size in "${theme_sizes[@]}"; do render "${icon%%:*}" "$size" "theme/hicolor/${size}x$size/${icon#*:}"; done
    done
}

fail() {
    echo "render_icons.sh: $*" >&2
    failures=$((failures + 1))
}

# Checks the first 24 bytes of a PNG: signature, length and name of the header chunk, width, height (big-endian).
check_size() { # name size
    local file="$resources/$1.png" expected header
    [[ -f $file ]] || { fail "$1.png is missing"; return; }
    expected="$(printf '89504e470d0a1a0a0000000d49484452%08x%08x' "$2" "$2")"
    header="$(od -An -v -tx1 -N24 "$file" | tr -d ' \n')"
    [[ $header == "$expected" ]] || fail "$1.png is not a PNG of $2 by $2 pixels"
}

# A mismatch between the compiled and the rendered images would show only at run time, as an empty button.
check_resource_list() {
    local listed drawn
    listed="$(sed -n 's:.*<file>\(.*\)</file>.*:\1:p' "$resources/resources.qrc" | sort)"
    drawn="$(printf '%s.png\n' "${toolbar_icons[@]}" "${tree_icons[@]}" | sort)"
    [[ $listed == "$drawn" ]] || fail "resources.qrc does not list exactly the rendered images"
}

check_all() {
    failures=0
    local name icon size
    for name in "${toolbar_icons[@]}"; do check_size "$name" "$toolbar_size"; done
    for name in "${tree_icons[@]}"; do check_size "$name" "$tree_size"; done
    for icon in "${theme_icons[@]}"; do
        for size in "${theme_sizes[@]}"; do check_size "theme/hicolor/${size}x$size/${icon#*:}" "$size"; done
    done
    check_resource_list
    ((failures == 0))
}

case "${1-}" in
"") render_all ;;
--check) ;;
*) sed -n '2,9s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2; exit 2 ;;
esac
check_all || exit 1
