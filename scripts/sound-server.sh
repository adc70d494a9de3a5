#!/usr/bin/env bash
# Runs a command beside a private sound server with no hardware, then stops the server.
# Usage: scripts/sound-server.sh COMMAND [ARGUMENTS...]
#
# The server has a null sink whose monitor is remapped as the default source (the audio library
# hides monitor sources from its input list), with a silent source looped into the sink so that
# the monitor delivers data even when nothing plays. What is played into the sink comes back from
# the default source. XDG_RUNTIME_DIR and PULSE_SERVER point the command at it.
#
# When the server cannot be started the command still runs, without it, so that audio tests skip;
# with QUORVAL_REQUIRE_AUDIO=1 that is a failure instead.
#
# `scripts/sound-server.sh --restart`, run beside such a server (with its XDG_RUNTIME_DIR), stops
# it and starts it again as it was, as a sound server restarted under a running program.
set -uo pipefail

if [ "$#" -eq 0 ]; then
    echo "usage: $0 COMMAND [ARGUMENTS...] | $0 --restart" >&2
    exit 2
fi

# The running server's pid is kept in the runtime folder, so that a restarted one is stopped too.
stop_server_process() {
    local pid
    pid=$(cat "$runtime_dir/server.pid" 2>/dev/null)
    [ -n "$pid" ] || return 0
    kill "$pid" 2>/dev/null
    # Waits for this server only, by its own pid.
    for _ in $(seq 50); do
        kill -0 "$pid" 2>/dev/null || break
        sleep 0.1
    done
    kill -9 "$pid" 2>/dev/null
    rm -f "$runtime_dir/server.pid"
}

# Starts the server on the configuration in the runtime folder; ready when a recording from the
# default source hands back data.
launch_server() {
    rm -rf "$runtime_dir/pulse"
    mkdir -p "$runtime_dir/pulse"
    # -n: no default script, no hardware; no idle exit so that long runs keep it.
    pulseaudio -n --daemonize=no --exit-idle-time=-1 --disallow-exit=no --use-pid-file=no \
        --log-target=file:"$runtime_dir/server.log" -F "$runtime_dir/quorval.pa" \
        </dev/null >/dev/null 2>&1 &
    local pid=$!
    echo "$pid" >"$runtime_dir/server.pid"
    local probe="$runtime_dir/probe.raw"
    for _ in $(seq 40); do
        kill -0 "$pid" 2>/dev/null || break
        rm -f "$probe"
        timeout 1 parec --raw --format=s16le --channels=1 --rate=44100 >"$probe" 2>/dev/null
        if [ -s "$probe" ]; then
            return 0
        fi
    done
    echo "sound-server: the private server did not deliver sound" >&2
    [ -f "$runtime_dir/server.log" ] && tail -n 20 "$runtime_dir/server.log" >&2
    return 1
}

if [ "$1" = "--restart" ]; then
    runtime_dir="${XDG_RUNTIME_DIR:-}"
    if [ -z "$runtime_dir" ] || [ ! -f "$runtime_dir/quorval.pa" ]; then
        echo "sound-server: --restart runs beside a server this script started" >&2
        exit 2
    fi
    stop_server_process
    launch_server
    exit $?
fi

runtime_dir=$(mktemp -d "${TMPDIR:-/tmp}/quorval-sound.XXXXXX")
chmod 700 "$runtime_dir"

stop_server() {
    stop_server_process
    rm -rf "$runtime_dir"
}
trap stop_server EXIT
trap 'exit 130' INT TERM

start_server() {
    command -v pulseaudio >/dev/null && command -v parec >/dev/null || {
        echo "sound-server: pulseaudio or parec is not installed" >&2
        return 1
    }
    export XDG_RUNTIME_DIR="$runtime_dir"
    export PULSE_SERVER="unix:$runtime_dir/pulse/native"
    local config="$runtime_dir/quorval.pa"
    cat >"$config" <<EOF
load-module module-native-protocol-unix auth-anonymous=1 socket=$runtime_dir/pulse/native
load-module module-null-sink sink_name=quorval_sink sink_properties=device.description=QuorvalSink
load-module module-remap-source master=quorval_sink.monitor source_name=quorval_input source_properties=device.description=QuorvalInput
load-module module-null-source source_name=quorval_silence
load-module module-loopback source=quorval_silence sink=quorval_sink latency_msec=20
set-default-sink quorval_sink
set-default-source quorval_input
EOF
    launch_server
}

if ! start_server; then
    if [ "${QUORVAL_REQUIRE_AUDIO:-0}" = "1" ]; then
        echo "sound-server: QUORVAL_REQUIRE_AUDIO=1 and no sound server" >&2
        exit 1
    fi
    echo "sound-server: running without a sound server; audio tests will skip" >&2
    unset PULSE_SERVER
fi

"$@"
