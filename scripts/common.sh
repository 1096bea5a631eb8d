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
)
test_packages=(libgtest-dev libsdl2-dev ffmpeg jq make meson python3-jsonschema)

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

# show_progress: prints its input. Lines such as "[ 45%] text" replace each other on a terminal; elsewhere, about one
# for every ten percent is printed.
show_progress() {
    local line percent next=0 width="${COLUMNS:-80}"
    while IFS= read -r line; do
        if [[ ! "$line" =~ ^\[\ *([0-9]+)%\] ]]; then
            [ ! -t 2 ] || printf '\r\033[K' >&2
            printf '%s\n' "$line" >&2
        elif [ -t 2 ]; then
            printf '\r\033[K%s' "${line:0:width - 1}" >&2
        else
            percent="${BASH_REMATCH[1]}"
            [ "$percent" -ge "$next" ] || [ "$percent" -lt $((next - 10)) ] || continue
            printf '%s\n' "$line" >&2
            next=$((percent / 10 * 10 + 10))
        fi
    done
    [ ! -t 2 ] || printf '\r\033[K' >&2
}

# apt_progress: turns the status lines of apt-get into lines for show_progress, and keeps the lines on sizes.
apt_progress() {
    sed -nuE -e 's/^(dl|pm)status:[^:]*:([0-9]+)[0-9.]*:(.*)/[\2%] \3/p' -e '/^(Need to get|After this operation)/p'
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
    # Status lines have a descriptor of their own, which sudo would close.
    as_root env DEBIAN_FRONTEND=noninteractive LC_ALL=C sh -c 'exec apt-get "$@" 3>&1' sh install -y -q \
        --no-install-recommends -o APT::Status-Fd=3 -o Dpkg::Use-Pty=0 "${missing[@]}" </dev/null \
        | apt_progress | show_progress
}

# build_folder PRESET: prints the build folder of the preset.
build_folder() {
    if [ "$1" = release ]; then echo "$root/build"; else echo "$root/build-$1"; fi
}

# configure_preset PRESET TESTS: configures the preset if that was not done yet. TESTS: ON or OFF. A folder with tests
# keeps them. One without gets them when they are needed; nothing is compiled again for that.
configure_preset() {
    local folder
    folder="$(build_folder "$1")"
    if [ ! -e "$folder/build.ninja" ] \
        || { [ "$2" = ON ] && grep -qx 'BUILD_TESTING:BOOL=OFF' "$folder/CMakeCache.txt"; }; then
        say "Configuring ${folder#"$root"/}"
        (cd "$root" && cmake --preset "$1" -DBUILD_TESTING="$2" >/dev/null)
    fi
}

# run_build PRESET [TARGET...]: builds in a configured preset.
run_build() {
    local preset="$1" folder
    shift
    folder="$(build_folder "$preset")"
    say "Building ${*:-everything} in ${folder#"$root"/}"
    (cd "$root" && NINJA_STATUS='[%p] ' cmake --build --preset "$preset" -- "$@") | show_progress
}

# build_preset PRESET [TARGET...]: builds the targets or everything, with tests and benchmarks.
build_preset() {
    configure_preset "$1" ON
    run_build "$@"
}

# build_programs: builds what is installed, in the preset release.
build_programs() {
    configure_preset release OFF
    run_build release programs
}
