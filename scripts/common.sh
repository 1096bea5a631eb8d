# SPDX-License-Identifier: MIT
# Shared by the scripts, which source it: installs missing packages and builds a preset.

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

build_packages=(
    g++ cmake ninja-build pkg-config python3
    qt6-base-dev libgl-dev
    libsndfile1-dev libmpg123-dev libogg-dev libvorbis-dev libopus-dev libopusfile-dev
    libsoxr-dev libsodium-dev libxxhash-dev
    libavformat-dev libavcodec-dev libavutil-dev
    libcli11-dev nlohmann-json3-dev libexpected-dev
    libgtest-dev
)
test_packages=(ffmpeg python3-jsonschema)

say() {
    printf '== %s\n' "$*" >&2
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        say "Installing packages needs root or sudo: $*"
        return 1
    fi
}

# install_packages NAME...: installs those packages that aren't installed yet.
install_packages() {
    local missing=() name
    for name in "$@"; do
        if [ "$(dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null)" != installed ]; then
            missing+=("$name")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return
    say "Installing ${missing[*]}"
    as_root apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# build_folder PRESET: prints the build folder of the preset.
build_folder() {
    if [ "$1" = release ]; then echo "$root/build"; else echo "$root/build-$1"; fi
}

# configure_preset PRESET: configures the preset if that was not done yet.
configure_preset() {
    if [ ! -e "$(build_folder "$1")/build.ninja" ]; then
        (cd "$root" && cmake --preset "$1" >/dev/null)
    fi
}

# build_preset PRESET [TARGET...]: configures the preset and builds the targets or everything.
build_preset() {
    local preset="$1" folder
    shift
    folder="$(build_folder "$preset")"
    say "Building the preset $preset in ${folder#"$root"/}"
    configure_preset "$preset"
    (cd "$root" && cmake --build --preset "$preset" -- --quiet "$@" >&2)
}
