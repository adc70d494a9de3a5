#!/usr/bin/env bash
# Installs what the pitch evaluation and the speed comparison use beyond the build: fluidsynth and
# the General MIDI SoundFont for the instrument renders, Praat for its periodicity pitch column,
# and aubio for the side-by-side speed figures; then prepares the real recordings (below). Does
# nothing that is already done.
set -euo pipefail
here="$(dirname "$0")"

install() {
    local installed
    installed=$(dpkg-query -W -f='${Status}\n' "$@" 2>/dev/null |
        grep -c "install ok installed" || true)
    [ "$installed" -eq "$#" ] && return 0
    local as_root=()
    [ "$(id -u)" -ne 0 ] && as_root=(sudo)
    export DEBIAN_FRONTEND=noninteractive
    "${as_root[@]}" apt-get update
    "${as_root[@]}" apt-get install -y --no-install-recommends "$@"
}
install fluidsynth fluid-soundfont-gm praat aubio-tools

# Bach10: ten four-part chorales, each part played alone (violin, clarinet, saxophone, bassoon),
# with an annotated pitch per part. Its licence does not let us ship it, so it is fetched into a
# cache outside the checkout, or taken from $QUORVAL_BACH10 (the data set's folder, or a git
# repository holding it). Without either (no network) this costs nothing and pitch_evaluation
# skips the group. The result: one plain-text pitch file per part, and parts.txt listing them,
# written last, so that a preparation cut short is done again.
url=https://github.com/flippy-fyp/Bach10_v1.1
cache="${XDG_CACHE_HOME:-$HOME/.cache}/quorval/bach10"
# The pitch files are made again when the converter has changed since.
converter=$(sha256sum "$here/convert-bach10.py" | cut -d' ' -f1)
[ -s "$cache/parts.txt" ] && [ "$(cat "$cache/converter" 2>/dev/null)" = "$converter" ] && exit 0
source="$cache/Bach10_v1.1"
if [ -n "${QUORVAL_BACH10:-}" ]; then
    source="$QUORVAL_BACH10"
    if ! ls -d "$source"/01-*/ > /dev/null 2>&1; then
        rm -rf "$cache/Bach10_v1.1"
        mkdir -p "$cache/Bach10_v1.1"
        git -C "$QUORVAL_BACH10" archive HEAD | tar -x -C "$cache/Bach10_v1.1"
        source="$cache/Bach10_v1.1"
    fi
elif [ ! -d "$source/10-NunBitten" ]; then
    # A short look first, so that a network that drops packets does not hold the run up.
    GIT_TERMINAL_PROMPT=0 timeout 20 git ls-remote "$url" HEAD > /dev/null 2>&1 || exit 0
    rm -rf "$source"
    mkdir -p "$cache"
    if ! GIT_TERMINAL_PROMPT=0 timeout 900 git clone --quiet --depth 1 "$url" "$source"; then
        rm -rf "$source"
        echo "Bach10 could not be fetched from $url: its group is skipped" >&2
        exit 0
    fi
fi
install python3-scipy
mkdir -p "$cache/truth"
# Debian's interpreter: the one python3-scipy is installed for.
/usr/bin/python3 "$here/convert-bach10.py" "$source" "$cache/truth" > "$cache/parts.txt.new"
mv "$cache/parts.txt.new" "$cache/parts.txt"
echo "$converter" > "$cache/converter"
