#!/usr/bin/env bash
# Checks beyond the test suite: a Release build running each benchmark briefly and the pitch
# evaluation, the tests under ThreadSanitizer, the Debian package and its lint, and the fuzz
# targets for a bounded time.
set -euo pipefail
cd "$(dirname "$0")/.."
# Cached compiles are shared between checkouts: paths inside the checkout are hashed relative.
export CCACHE_BASEDIR="$PWD"

cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORVAL_WERROR=ON \
    -DQUORVAL_TESTS=OFF -DQUORVAL_BENCHMARKS=ON
cmake --build build/release -j"$(nproc)"
# Every benchmark beside one private sound server: the audio ones need it.
bash scripts/sound-server.sh bash -c '
    set -e
    for bench in build/release/bench/bench_*; do
        [ -x "$bench" ] || continue
        echo "== $bench"
        "$bench" --benchmark_min_time=0.05
    done'
# The pitch accuracy table on the generated tones and the instrument renders, with Praat's
# periodicity pitch beside ours; the real recordings only where the set-up could fetch them
# (without a network it leaves them out at once, and the table says so in one line).
bash bench/setup-evaluation.sh
echo "== pitch evaluation"
build/release/bench/pitch_evaluation --renders

# Every test target again under ThreadSanitizer; the streams and the audio tests (beside the
# sound server) run under it.
if [ -f streams/CMakeLists.txt ]; then
    cmake -S . -B build/tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQUORVAL_WERROR=ON \
        -DQUORVAL_SANITIZE=thread
    cmake --build build/tsan -j"$(nproc)"
    # The programs the tests start inherit the options.
    export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$PWD/streams/tests/tsan.supp"
    build/tsan/streams/streams_tests
    if [ -x build/tsan/audio/audio_tests ]; then
        # Slow practice playback must keep up in real time, which the sanitizer's slowdown does
        # not allow on a loaded machine; restarting the server mid-run leaves the audio library
        # of this one process reconnecting for longer than the tests after it wait. The ordinary
        # test build runs both, each test in a process of its own.
        bash scripts/sound-server.sh build/tsan/audio/audio_tests \
            --gtest_filter=-SoundServer.slowPlaybackKeepsThePitchAndStretchesTheTime:SoundServer.recordsAgainAfterTheServerRestarts
    fi
    # The window's tests are built above but not yet run here: their main queue hands work over
    # through Qt's event queue, which the sanitizer cannot see into, and it reports races there.
    unset TSAN_OPTIONS
fi

# The Debian package of the Release build: it must hold both programs and the desktop entry, and
# name its library dependencies.
if [ -f packaging/CMakeLists.txt ]; then
    rm -f build/release/quorval_*.deb
    (cd build/release && cpack -G DEB)
    deb=$(ls build/release/quorval_*.deb)
    # What a Debian packager would be told: no error and no warning is let through.
    lintian --pedantic --display-info "$deb" | tee build/release/lintian.txt
    if grep -q '^[EW]:' build/release/lintian.txt; then
        echo "lintian: errors or warnings in $deb" >&2
        exit 1
    fi
    dpkg-deb --info "$deb"
    dpkg-deb --field "$deb" Depends | grep -q libqt6widgets6
    contents=$(dpkg-deb --contents "$deb")
    for wanted in ./usr/bin/quorval-cli ./usr/share/applications/org.quorval.Quorval.desktop \
        ./usr/share/metainfo/org.quorval.Quorval.metainfo.xml ./usr/share/man/man1/quorval-cli.1.gz \
        ./usr/share/man/man1/quorval.1.gz ./usr/share/doc/quorval/copyright \
        ./usr/share/doc/quorval/changelog.Debian.gz; do
        grep -q " $wanted\$" <<<"$contents" || { echo "$deb lacks $wanted"; exit 1; }
    done
    if [ -f app/CMakeLists.txt ]; then
        grep -q " ./usr/bin/quorval\$" <<<"$contents" || { echo "$deb lacks quorval"; exit 1; }
        # Installed as a user installs it, started from its menu entry, removed again.
        if [ "$(id -u)" = 0 ]; then
            bash scripts/package-check.sh "$deb"
        fi
    fi
fi

if [ -f fuzz/CMakeLists.txt ]; then
    bash scripts/fuzz.sh 60
fi
