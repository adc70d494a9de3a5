#!/usr/bin/env bash
# Checks beyond the test suite: a Release build running each benchmark briefly, and the
# fuzz targets for a bounded time.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORVAL_WERROR=ON \
    -DQUORVAL_TESTS=OFF -DQUORVAL_BENCHMARKS=ON
cmake --build build/release -j"$(nproc)"
for bench in build/release/bench/bench_*; do
    [ -x "$bench" ] || continue
    echo "== $bench"
    # Every benchmark beside the private sound server: the audio ones need it.
    bash scripts/sound-server.sh "$bench" --benchmark_min_time=0.05
done

# The queue and stream code again under ThreadSanitizer.
if [ -f streams/CMakeLists.txt ]; then
    cmake -S . -B build/tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQUORVAL_WERROR=ON \
        -DQUORVAL_SANITIZE=thread
    cmake --build build/tsan -j"$(nproc)" --target streams_tests
    TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" build/tsan/streams/streams_tests
fi

if [ -f fuzz/CMakeLists.txt ]; then
    bash scripts/fuzz.sh 60
fi
