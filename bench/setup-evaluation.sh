#!/usr/bin/env bash
# Installs what the pitch evaluation and the speed comparison use beyond the build: fluidsynth and
# the General MIDI SoundFont for the instrument renders, Praat for its periodicity pitch column,
# and aubio for the side-by-side speed figures. Does nothing when all are there.
set -euo pipefail

packages=(fluidsynth fluid-soundfont-gm praat aubio-tools)
installed=$(dpkg-query -W -f='${Status}\n' "${packages[@]}" 2>/dev/null |
    grep -c "install ok installed" || true)
[ "$installed" -eq "${#packages[@]}" ] && exit 0

as_root=()
[ "$(id -u)" -ne 0 ] && as_root=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update
"${as_root[@]}" apt-get install -y --no-install-recommends "${packages[@]}"
