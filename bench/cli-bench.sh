#!/usr/bin/env bash
# Speed and memory of quorval-cli on long generated files: CPU and wall seconds for ten minutes
# of instrument-like tones with --jobs 1 and 2 (and the real-time factor), and the peak memory
# for a 74-minute file. The files go to a temporary folder that is removed at the end.
# Builds the Release tool and benchmarks in build/bench first.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORVAL_BENCHMARKS=ON \
    -DQUORVAL_TESTS=OFF >/dev/null
cmake --build build/bench -j2 --target quorval-cli bench_AnalysisBench >/dev/null
cli=build/bench/cli/quorval-cli
maker=build/bench/bench/bench_AnalysisBench

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Runs the tool under GNU time; prints wall and CPU seconds and the peak resident memory.
measure() {
    local label=$1 seconds=$2
    shift 2
    /usr/bin/time -f "%e %U %S %M" -o "$work/time" "$cli" "$@" >/dev/null
    read -r wall user system rss <"$work/time"
    awk -v l="$label" -v w="$wall" -v u="$user" -v s="$system" -v r="$rss" -v a="$seconds" \
        'BEGIN { c = u + s; printf "%-28s wall %6.2f s  cpu %6.2f s  real time x%6.0f (cpu) x%6.0f (wall)  max RSS %6.1f MB\n", l, w, c, a / c, a / w, r / 1024 }'
}

"$maker" --make-sound 10 "$work/ten.wav"
measure "10 min, --jobs 1" 600 --jobs 1 pitches "$work/ten.wav"
measure "10 min, --jobs 2" 600 --jobs 2 pitches "$work/ten.wav"
rm -f "$work/ten.wav"

"$maker" --make-sound 74 "$work/long.wav"
measure "74 min, --jobs 2, pitches" 4440 --jobs 2 pitches "$work/long.wav"
measure "74 min, --jobs 2, deviations" 4440 --jobs 2 deviations "$work/long.wav"
