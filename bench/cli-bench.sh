#!/usr/bin/env bash
# Speed and memory of quorval-cli on long generated files: CPU and wall seconds for ten minutes
# of instrument-like tones with --jobs 1 and 2 (and the real-time factor), with "Refine pitch" off
# and on, beside aubio's yinfft tracker on the same file where aubiopitch is installed
# (bench/setup-evaluation.sh), and the peak memory for a 74-minute file. The files go to a
# temporary folder that is removed at the end.
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

# Runs a command under GNU time; prints wall and CPU seconds and the peak resident memory, and
# leaves the CPU seconds in $cpu.
run_timed() {
    local label=$1 seconds=$2
    shift 2
    /usr/bin/time -f "%e %U %S %M" -o "$work/time" "$@" >/dev/null
    read -r wall user system rss <"$work/time"
    cpu=$(awk -v u="$user" -v s="$system" 'BEGIN { print u + s }')
    awk -v l="$label" -v w="$wall" -v c="$cpu" -v r="$rss" -v a="$seconds" \
        'BEGIN { printf "%-34s wall %6.2f s  cpu %6.2f s  real time x%6.0f (cpu) x%6.0f (wall)  max RSS %6.1f MB\n", l, w, c, a / c, a / w, r / 1024 }'
}

measure() {
    local label=$1 seconds=$2
    shift 2
    run_timed "$label" "$seconds" "$cli" "$@"
}

"$maker" --make-sound 10 "$work/ten.wav"
measure "10 min, --jobs 1, refine off" 600 --jobs 1 --set "Refine pitch=false" pitches \
    "$work/ten.wav"
measure "10 min, --jobs 2" 600 --jobs 2 pitches "$work/ten.wav"
if command -v aubiopitch >/dev/null; then
    # A second of CPU varies by a tenth from run to run on a shared machine: the ratio is of the
    # least of three runs of each, taken in turn.
    refined=
    yinfft=
    for _ in 1 2 3; do
        measure "10 min, --jobs 1" 600 --jobs 1 pitches "$work/ten.wav"
        refined=$(awk -v a="$cpu" -v b="${refined:-$cpu}" 'BEGIN { print (a < b ? a : b) }')
        run_timed "10 min, aubiopitch yinfft" 600 aubiopitch -p yinfft -B 2048 -H 512 \
            -i "$work/ten.wav"
        yinfft=$(awk -v a="$cpu" -v b="${yinfft:-$cpu}" 'BEGIN { print (a < b ? a : b) }')
    done
    awk -v q="$refined" -v a="$yinfft" \
        'BEGIN { printf "CPU of quorval-cli --jobs 1 over aubio yinfft (least of three each): %.2f\n", q / a }'
else
    measure "10 min, --jobs 1" 600 --jobs 1 pitches "$work/ten.wav"
    echo "aubiopitch not found (bash bench/setup-evaluation.sh): no side-by-side figure"
fi
rm -f "$work/ten.wav"

"$maker" --make-sound 74 "$work/long.wav"
measure "74 min, --jobs 2, pitches" 4440 --jobs 2 pitches "$work/long.wav"
measure "74 min, --jobs 2, deviations" 4440 --jobs 2 deviations "$work/long.wav"
