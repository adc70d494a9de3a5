#!/usr/bin/env bash
# Runs the real program in a real X window on the demo sound: it must draw the trace into its
# picture and close by itself. Usage: smoke.sh QUORVAL DEMO.wav OUTPUT_DIR
set -euo pipefail
program=$1 demo=$2 out=$3
mkdir -p "$out"
rm -f "$out/window.png"
# Options and working files of its own: a take another run left in the shared temporary folder
# would be offered for recovery, and nobody is there to answer.
export XDG_CONFIG_HOME="$out/config" TMPDIR="$out/tmp"
rm -rf "$TMPDIR"
mkdir -p "$XDG_CONFIG_HOME" "$TMPDIR"

"$program" --version | grep -q '^quorval '
"$program" --help | grep -q -- '--picture'
if ! command -v xvfb-run >/dev/null; then
    echo "smoke: xvfb-run is not installed" >&2
    exit 1
fi
timeout 120 xvfb-run -a -s "-screen 0 1280x800x24" "$program" --picture "$out/window.png" "$demo"
python3 "$(dirname "$0")/tracepixels.py" "$out/window.png"
