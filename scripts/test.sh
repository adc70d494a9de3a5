#!/usr/bin/env bash
# Installs what is needed, builds Quorval with the address and undefined-behaviour sanitizers,
# and runs every test. Usage: scripts/test.sh [ctest arguments...]
set -euo pipefail
cd "$(dirname "$0")/.."
# Cached compiles are shared between checkouts: paths inside the checkout are hashed relative.
export CCACHE_BASEDIR="$PWD"

bash scripts/setup.sh test
cmake -S . -B build/test -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQUORVAL_WERROR=ON \
    -DQUORVAL_SANITIZE=address,undefined
cmake --build build/test -j"$(nproc)"
# The audio tests record and play through a private sound server started for the run. Their
# working files go to a folder of the run's own, which no unsaved take may outlive: one left
# behind would be offered for recovery at the next start of the program.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
TMPDIR="$scratch" bash scripts/sound-server.sh \
    ctest --test-dir build/test --output-on-failure -j"$(nproc)" "$@"
left=$(find "$scratch" -maxdepth 1 -name 'quorval-recording-*' -printf '%f\n')
if [ -n "$left" ]; then
    echo "test.sh: the tests left unsaved takes behind:" >&2
    echo "$left" >&2
    exit 1
fi
