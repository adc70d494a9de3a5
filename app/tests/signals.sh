#!/usr/bin/env bash
# Ends the real program with the signals a session sends at logout or a terminal at Ctrl-C: it
# must close as Quit does, exit 0, and leave no working file that holds nothing of the user's.
# Usage: signals.sh QUORVAL DEMO.wav
set -euo pipefail
program=$1 demo=$2
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
export QT_QPA_PLATFORM=offscreen
export QUORVAL_UPDATE_URL=http://127.0.0.1:1/
export XDG_CONFIG_HOME="$root/config" XDG_RUNTIME_DIR="$root/run" TMPDIR="$root/tmp"
mkdir -p "$XDG_CONFIG_HOME" "$TMPDIR"
mkdir -m 700 "$XDG_RUNTIME_DIR"

# Starts the program with the arguments given, waits for its working file of kind KIND, sends
# SIGNAL and checks that it exits 0 with nothing of its own left in the temporary folder.
end_with() {
    local signal=$1 kind=$2
    shift 2
    "$program" "$@" &
    local pid=$!
    local waited=0
    until compgen -G "$TMPDIR/quorval-$kind-$pid-*.wav" >/dev/null; do
        if ((waited >= 600)) || ! kill -0 "$pid" 2>/dev/null; then
            echo "signals: no $kind working file from quorval $*" >&2
            kill -KILL "$pid" 2>/dev/null || true
            return 1
        fi
        sleep 0.1
        waited=$((waited + 1))
    done
    kill "-$signal" "$pid"
    local status=0
    # The exit must come by itself; a program still running after 60 s is a failure.
    timeout 60 tail --pid="$pid" -f /dev/null || {
        echo "signals: quorval did not end on SIG$signal" >&2
        kill -KILL "$pid"
        return 1
    }
    wait "$pid" || status=$?
    if ((status != 0)); then
        echo "signals: quorval $* ended with status $status on SIG$signal" >&2
        return 1
    fi
    local left
    left=$(find "$TMPDIR" -mindepth 1 -name "quorval-*")
    if [[ -n $left ]]; then
        echo "signals: SIG$signal left $left" >&2
        return 1
    fi
}

# An opened file: its working copy goes.
end_with TERM copy "$demo"
# A new recording with nothing in it: not kept for recovery.
end_with HUP recording
end_with INT copy "$demo"
echo "signals: every ending signal closed quorval as Quit does"
