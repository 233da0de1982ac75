#!/bin/bash
# display.sh SOURCES BUILD: the window on a real display, as somebody uses it with keyboard and mouse.
# Called by ctest, in the sandbox. A failure leaves a picture of the screen, BUILD/tests/window-display.xwd.
set -euo pipefail
build=$2
for needed in Xvfb xdotool openbox; do
    command -v $needed >/dev/null || { echo "skipped: no $needed here"; exit 77; }
done
cd "$HOME"
unset QT_QPA_PLATFORM WAYLAND_DISPLAY
mkdir -p screen
touch display xvfb.log window.log

fail() {
    echo "FAILED: $*" >&2
    cat window.log >&2
    "$build/bin/zojob" list >&2
    cp screen/Xvfb_screen0 "$build/tests/window-display.xwd" || true
    exit 1
}

# waits_for WHAT COMMAND...: until the command succeeds.
waits_for() {
    local what=$1
    shift
    for ((i = 0; i < 300; ++i)); do
        "$@" >/dev/null 2>&1 && return
        sleep 0.1
    done
    fail "$what"
}

Xvfb -displayfd 3 -screen 0 1280x800x24 -fbdir screen -nolisten tcp 3>display 2>xvfb.log &
xvfb=$!
window=
clean_up() {
    [[ -z $window ]] || kill "$window" 2>/dev/null || true
    "$build/bin/zojob" quit >/dev/null 2>&1 || true
    kill $xvfb 2>/dev/null || true
    wait || true
}
trap clean_up EXIT
waits_for "Xvfb does not start: $(<xvfb.log)" test -s display
DISPLAY=:$(<display)
export DISPLAY
# It ends when the display is not ready for it.
is_managed() {
    kill -0 "${manager:-}" || { openbox >>window.log 2>&1 & manager=$!; }
    xdotool get_num_desktops
}
waits_for "openbox does not manage the display" is_managed

# in_front NAME: the window with this name has the keyboard.
in_front() {
    local found
    found=$(xdotool search --onlyvisible --name "$1" | head -1)
    [[ $found ]] || return
    xdotool windowactivate "$found"
    [[ $(xdotool getwindowfocus getwindowname) =~ $1 ]]
}

"$build/bin/zojob-window" >window.log 2>&1 &
window=$!
waits_for "no window" in_front '^Jobs'

# A second call brings the first one to the front.
"$build/bin/zojob-window" || fail "a second call ends with $?"
[[ $(xdotool search --onlyvisible --name '^Jobs' | wc -l) == 1 ]] || fail "there are two windows"
waits_for "the window is not in front" in_front '^Jobs'

xdotool key ctrl+n
waits_for "no dialog" in_front '^New job'
xdotool type --delay 20 'for i in 1 2 3; do echo typed $i; done; sleep 3'
xdotool key ctrl+Return
runs() { "$build/bin/zojob" log last | grep -q 'typed 3'; }
waits_for "what was typed does not run and print" runs
"$build/bin/zojob" wait last
waits_for "the window is not in front" in_front '^Jobs'
xdotool key ctrl+q
ended() { ! kill -0 "$window"; }
waits_for "Ctrl+Q does not end the window" ended
window=
"$build/bin/zojob" remove last
