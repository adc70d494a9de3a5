#!/usr/bin/env bash
# Installs what is needed, builds Quorval in Release, and runs it on the bundled demo sound.
# Extra arguments go to the program instead of the demo file.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORVAL_TESTS=OFF
cmake --build build/release -j"$(nproc)"

if [ "$#" -eq 0 ]; then
    set -- "$PWD/resources/demo.wav"
fi
if [ -x build/release/app/quorval ] && { [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; }; then
    exec build/release/app/quorval "$@"
fi
exec build/release/cli/quorval-cli notes "$@"
