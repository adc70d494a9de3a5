#!/usr/bin/env bash
# Builds the fuzz targets with clang, writes the seed corpora and fuzzes the WAV reader, the
# options-file reader, the Scala tuning reader, then the import and segmentation path, for
# SECONDS each (default 60).
# Fails on any crash, sanitizer report, leak or input slower than its timeout.
# Usage: scripts/fuzz.sh [SECONDS] [extra libFuzzer options...]
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-60}"
shift || true
build=build/fuzz

CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DQUORVAL_FUZZ=ON -DQUORVAL_WERROR=ON -DQUORVAL_TESTS=OFF
cmake --build "$build" -j"$(nproc)"

seeds="$build/seeds"
rm -rf "$seeds"
mkdir -p "$seeds" "$build/artifacts" fuzz/corpus-run
"$build/fuzz/make_wav_seeds" "$seeds"

# The target's scratch files go to a private directory, in memory where there is one.
scratch_parent=/tmp
[ -d /dev/shm ] && [ -w /dev/shm ] && scratch_parent=/dev/shm
scratch="$(mktemp -d "$scratch_parent/quorval-fuzz.XXXXXX")"
trap 'rm -rf "$scratch"' EXIT

TMPDIR="$scratch" "$build/fuzz/wav_file_fuzz" \
    -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=4096 \
    -dict=fuzz/wav.dict -print_final_stats=1 -artifact_prefix="$build/artifacts/" \
    "$@" fuzz/corpus-run "$seeds"

# Inputs up to 512 KB, so that nesting far past the reader's depth limit can be built.
mkdir -p fuzz/corpus-options-run
TMPDIR="$scratch" "$build/fuzz/options_file_fuzz" \
    -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=524288 \
    -dict=fuzz/plist.dict -print_final_stats=1 -artifact_prefix="$build/artifacts/" \
    "$@" fuzz/corpus-options-run fuzz/options-seeds

# Scale files, with a keyboard mapping after a line "%%".
mkdir -p fuzz/corpus-scala-run
TMPDIR="$scratch" "$build/fuzz/scala_fuzz" \
    -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=16384 \
    -dict=fuzz/scala.dict -print_final_stats=1 -artifact_prefix="$build/artifacts/" \
    "$@" fuzz/corpus-scala-run fuzz/scala-seeds

# Whole short sounds, large enough for odd rates, many channels and the decoder's formats; the
# inputs that once failed (import-regressions) run first every time.
import_seeds="$build/import-seeds"
rm -rf "$import_seeds"
mkdir -p "$import_seeds" fuzz/corpus-import
"$build/fuzz/make_import_seeds" "$import_seeds"
TMPDIR="$scratch" "$build/fuzz/import_fuzz" \
    -max_total_time="$seconds" -timeout=30 -rss_limit_mb=4096 -max_len=65536 \
    -print_final_stats=1 -artifact_prefix="$build/artifacts/" \
    "$@" fuzz/corpus-import "$import_seeds" "$seeds" fuzz/import-regressions
