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
# The audio tests record and play through a private sound server started for the run.
bash scripts/sound-server.sh ctest --test-dir build/test --output-on-failure -j"$(nproc)" "$@"
