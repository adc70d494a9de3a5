#!/usr/bin/env bash
# Pictures of every view, pane, dialog and menu of the real program on the demo, at 1x and at
# QT_SCALE_FACTOR=2, in a virtual X server with a window manager, driven by the keys and menus the
# help pages name. Fails only when the program crashes, or a picture is missing or blank.
# Usage: scripts/screenshots.sh [QUORVAL [OUTPUT_DIR]]
#   QUORVAL defaults to build/release/app/quorval, OUTPUT_DIR to build/artifacts/screenshots
#   (pictures in OUTPUT_DIR/1x and OUTPUT_DIR/2x).
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")

# One scale, inside the virtual display: session SCALE PROGRAM DEMO OUTPUT_DIR
if [ "${1:-}" = "--session" ]; then
    scale=$2 program=$3 demo=$4 out=$5
    mkdir -p "$out"
    openbox >/dev/null 2>&1 &
    wm=$!
    # A window mapped while the window manager is still starting can be left unmanaged and
    # unviewable: the program starts once the manager says it is running.
    for _ in $(seq 300); do
        xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' && break
        sleep 0.1
    done
    QT_SCALE_FACTOR=$scale "$program" "$demo" >"$out/quorval.log" 2>&1 &
    pid=$!
    trap 'kill "$pid" "$wm" 2>/dev/null || true' EXIT

    alive() {
        kill -0 "$pid" 2>/dev/null || {
            echo "screenshots: quorval ended during $1 (${scale}x); its output:" >&2
            tail -n 30 "$out/quorval.log" >&2
            exit 1
        }
    }
    # Waits up to SECONDS (20) for a visible window whose title matches; empty when none came.
    window_named() {
        { timeout "${2:-20}" xdotool search --sync --onlyvisible --name "$1" 2>/dev/null || true; } |
            head -n 1
    }
    # The whole screen, once what was asked has had time to draw.
    shot() {
        alive "$1"
        sleep 0.7
        import -window root "$out/$1.png"
        alive "$1"
    }
    keys() {
        xdotool key --clearmodifiers --delay 60 "$@"
    }

    # A loaded machine may take a while to show the first window.
    main=$(window_named '^Quorval|demo' 90)
    [ -n "$main" ] || {
        alive "start"
        import -window root "$out/no-window.png" || true
        echo "screenshots: no window (${scale}x); the screen is in $out/no-window.png; its output:" >&2
        tail -n 30 "$out/quorval.log" >&2
        # Where the program is, and which windows the server has.
        { xwininfo -root -tree && xdotool search --name . | xargs -rn1 xwininfo -id; } \
            >"$out/no-window-tree.txt" 2>&1 || true
        if command -v gdb >/dev/null; then
            gdb -p "$pid" -batch -ex 'thread apply all bt 20' >"$out/no-window-stacks.txt" 2>&1 || true
            grep -A20 '^Thread 1 ' "$out/no-window-stacks.txt" >&2 || true
        fi
        exit 1
    }
    xdotool windowactivate --sync "$main" 2>/dev/null || xdotool windowfocus --sync "$main"
    focus_main() { xdotool windowactivate --sync "$main" 2>/dev/null || true; }

    for view in c:composite r:rms-amplitude a:amplitude p:pitch q:quality s:spectrum; do
        focus_main
        keys v "${view%%:*}"
        shot "view-${view#*:}"
    done
    focus_main
    keys v c
    for pane in n:note-table l:live-readout; do
        keys v "${pane%%:*}"
        shot "pane-${pane#*:}"
        focus_main
        keys v "${pane%%:*}"
    done

    for menu in f:file e:edit v:view o:options h:help; do
        focus_main
        keys "alt+${menu%%:*}"
        shot "menu-${menu#*:}"
        keys Escape
    done

    # Dialogs: each opened by its key or through its menu, pictured, and closed.
    dialog() {
        local name=$1 title=$2
        shift 2
        focus_main
        keys "$@"
        local w
        w=$(window_named "$title")
        [ -n "$w" ] || { alive "$name"; echo "screenshots: no \"$title\" (${scale}x)" >&2; exit 1; }
        shot "dialog-$name"
        xdotool windowactivate --sync "$w" 2>/dev/null || true
        keys Escape
        timeout 10 bash -c "while xdotool search --onlyvisible --name '$title' >/dev/null; do
            sleep 0.1; done" || xdotool windowclose "$w" 2>/dev/null || true
    }
    dialog options '^Options$' o
    dialog deviations 'Deviations' ctrl+d
    dialog properties 'File Properties' alt+f p
    dialog about 'About Quorval' alt+h Up Up Return
    dialog help 'Help' F1

    focus_main
    keys ctrl+q
    timeout 30 tail --pid="$pid" -f /dev/null || { echo "screenshots: quorval did not quit" >&2; exit 1; }
    status=0
    wait "$pid" || status=$?
    ((status == 0)) || { echo "screenshots: quorval ended with $status (${scale}x)" >&2; exit 1; }
    exit 0
fi

program=$(realpath "${1:-$root/build/release/app/quorval}")
out=$(realpath -m "${2:-$root/build/artifacts/screenshots}")
[ -x "$program" ] || { echo "screenshots: no program at $program" >&2; exit 1; }
for tool in xvfb-run openbox xprop xwininfo xdotool import convert; do
    command -v "$tool" >/dev/null || { echo "screenshots: $tool is not installed" >&2; exit 1; }
done

# Options, working files and sound of its own: nothing of the user's is read or offered.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_CONFIG_HOME="$work/config" TMPDIR="$work/tmp" QUORVAL_UPDATE_URL=http://127.0.0.1:1/
mkdir -p "$XDG_CONFIG_HOME" "$TMPDIR"
cp "$root/resources/demo.wav" "$root/resources/demo.plist" "$work/" 2>/dev/null ||
    cp "$root/resources/demo.wav" "$work/"

rm -rf "$out"
for scale in 1 2; do
    screen=$((1280 * scale))x$((800 * scale))x24
    bash "$root/scripts/sound-server.sh" timeout 240 xvfb-run -a -s "-screen 0 $screen" \
        bash "$here/screenshots.sh" --session "$scale" "$program" "$work/demo.wav" "$out/${scale}x"
    # The composite view with the note names on the grid, from options of its own.
    names="$work/names-$scale"
    mkdir -p "$names/Quorval"
    printf '[General]\nShow%%20note%%20names%%20on%%20grid=true\n' >"$names/Quorval/Quorval.conf"
    XDG_CONFIG_HOME="$names" QT_SCALE_FACTOR=$scale bash "$root/scripts/sound-server.sh" \
        timeout 60 xvfb-run -a -s "-screen 0 $screen" \
        "$program" --picture "$out/${scale}x/view-note-names.png" "$work/demo.wav" ||
        echo "screenshots: the picture with note names failed (${scale}x)" >&2
done

# Every picture there and not blank: a screen of one colour has no spread.
missing=0
for scale in 1 2; do
    for name in view-composite view-rms-amplitude view-amplitude view-pitch view-quality \
        view-spectrum pane-note-table pane-live-readout menu-file menu-edit menu-view menu-options \
        menu-help dialog-options dialog-deviations dialog-properties dialog-about dialog-help \
        view-note-names; do
        png="$out/${scale}x/$name.png"
        if [ ! -s "$png" ]; then
            echo "screenshots: $png is missing" >&2
            missing=1
        elif [ "$(convert "$png" -format '%[fx:standard_deviation > 0.02]' info:)" != 1 ]; then
            echo "screenshots: $png is blank" >&2
            missing=1
        fi
    done
done
((missing == 0)) && echo "screenshots: $(ls "$out"/*/*.png | wc -l) pictures in $out"
exit "$missing"
