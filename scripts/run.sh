#!/usr/bin/env bash
# Installs what is needed, builds Quorval in Release, and runs it on the bundled demo sound.
# Extra arguments go to the program instead of the demo file. Without a display it shows the
# command-line report of the sound instead of the window.
set -euo pipefail
cd "$(dirname "$0")/.."
# Cached compiles are shared between checkouts: paths inside the checkout are hashed relative.
export CCACHE_BASEDIR="$PWD"

bash scripts/setup.sh run
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORVAL_TESTS=OFF
cmake --build build/release -j"$(nproc)"

if [ "$#" -eq 0 ]; then
    set -- "$PWD/resources/demo.wav"
fi
if [ -x build/release/app/quorval ] && { [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; }; then
    exec build/release/app/quorval "$@"
fi
echo "run: no display (DISPLAY and WAYLAND_DISPLAY are unset), so here is the command-line" \
    "report instead of the window: quorval-cli notes $*" >&2
exec build/release/cli/quorval-cli notes "$@"
