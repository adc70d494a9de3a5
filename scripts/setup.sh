#!/usr/bin/env bash
# Installs the Debian packages Quorval needs for one purpose. Safe to run again.
# Usage: scripts/setup.sh [run|test|ci]
#   run   build it and run it (scripts/run.sh)
#   test  also build and pass the tests (scripts/test.sh)
#   ci    also the benchmarks, the fuzzers and the package checks (.ci/run; the default)
set -euo pipefail

purpose="${1:-ci}"

# Building: the compilers, Qt and the libraries Quorval links, the compiler cache, and what
# `cpack -G DEB` uses to make the package (dpkg-shlibdeps, file).
build=(
    g++ cmake make pkgconf ninja-build ccache
    qt6-base-dev qt6-multimedia-dev qt6-svg-dev libqt6svg6 qt6-l10n-tools libxkbcommon-dev
    libsndfile1-dev librubberband-dev libpulse-dev
    dpkg-dev file
)
# Running: what Qt loads at run time (the platform plugins, and GStreamer, without which Qt
# Multimedia fails to load).
run=(qt6-qpa-plugins gstreamer1.0-plugins-base gstreamer1.0-plugins-good)
# Testing: the test frameworks, the private sound server, the virtual display of the window's
# smoke test, the validators of the desktop files, and the formatter.
test=(
    libgtest-dev libgmock-dev
    pulseaudio pulseaudio-utils xvfb xauth
    sox libsox-fmt-mp3 python3
    desktop-file-utils appstream clang-format
)
# Continuous integration: the benchmarks, the fuzzers (clang's), the package's lint, the
# window manager, window, input and picture tools of the screenshots, and the reader of the
# evaluation's annotations (tested with the rest).
ci=(clang libclang-rt-14-dev libbenchmark-dev lintian openbox x11-utils xdotool imagemagick
    python3-scipy)

case "$purpose" in
run) packages=("${build[@]}" "${run[@]}") ;;
test) packages=("${build[@]}" "${run[@]}" "${test[@]}") ;;
ci) packages=("${build[@]}" "${run[@]}" "${test[@]}" "${ci[@]}") ;;
*)
    echo "usage: $0 [run|test|ci]" >&2
    exit 2
    ;;
esac

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
[ "${#missing[@]}" -eq 0 ] && exit 0

install=(apt-get install -y --no-install-recommends "${missing[@]}")
# Without root and without a working sudo, say what to install and how, instead of only failing.
ask_for_root() {
    echo "setup: $1. These Debian packages are missing:" >&2
    echo "    ${missing[*]}" >&2
    echo "Install them as root, then run this again:" >&2
    echo "    apt-get update && ${install[*]}" >&2
    exit 1
}

export DEBIAN_FRONTEND=noninteractive
if [ "$(id -u)" -eq 0 ]; then
    apt-get update
    "${install[@]}"
    exit 0
fi
command -v sudo >/dev/null || ask_for_root "not root, and sudo is not installed"
echo "setup: installing ${missing[*]} through sudo" >&2
sudo DEBIAN_FRONTEND=noninteractive apt-get update ||
    ask_for_root "not root, and sudo refused (or apt-get update failed)"
sudo DEBIAN_FRONTEND=noninteractive "${install[@]}" || ask_for_root "the installation through sudo failed"
