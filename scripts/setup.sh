#!/usr/bin/env bash
# Installs every Debian package Quorval needs to build, run and test. Safe to run again.
set -euo pipefail

packages=(
    g++ clang libclang-rt-14-dev cmake make pkgconf ninja-build clang-format
    qt6-base-dev qt6-multimedia-dev qt6-svg-dev libqt6svg6 qt6-l10n-tools
    libsndfile1-dev librubberband-dev libpulse-dev libgtest-dev libgmock-dev libbenchmark-dev
    gstreamer1.0-plugins-base gstreamer1.0-plugins-good
    pulseaudio pulseaudio-utils xvfb xauth
    sox libsox-fmt-mp3 python3
    desktop-file-utils appstream dpkg-dev ccache
)

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
    sudo_cmd=(sudo)
fi

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if [ "${#missing[@]}" -gt 0 ]; then
    export DEBIAN_FRONTEND=noninteractive
    "${sudo_cmd[@]}" apt-get update
    "${sudo_cmd[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
fi
