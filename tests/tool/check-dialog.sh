#!/usr/bin/env bash
# dvenv dialog saves when it closes, through the merging save: a check button
# changed by keyboard is kept, and so is a value that another instance saved
# while the dialog was open (FOX's own write at exit would drop it).
# Needs a display (ctest runs under Xvfb) and xdotool.
set -uo pipefail
dvenv=$1
export HOME=$(mktemp -d)
trap 'kill $pid 2>/dev/null; rm -rf "$HOME"' EXIT
[ -n "${DISPLAY:-}" ] || { echo "no display"; exit 77; }
fail() { echo "FAIL: $*"; exit 1; }

"$dvenv" dialog > "$HOME/out" 2>&1 &
pid=$!
window=
for _ in $(seq 50); do
  window=$(xdotool search --name '^Dravik options$' 2>/dev/null | head -n 1) && [ -n "$window" ] && break
  sleep 0.2
done
[ -n "$window" ] || fail "no dialog window"
"$dvenv" set ToolArcPrecValue 9 > /dev/null || fail "set while the dialog is open"
# The first widget is the check button "Convert text".
xdotool windowactivate --sync "$window" 2>/dev/null || xdotool windowfocus --sync "$window"
xdotool key --window "$window" Tab space
sleep 0.5
xdotool key --window "$window" alt+c
for _ in $(seq 50); do kill -0 $pid 2>/dev/null || break; sleep 0.2; done
wait $pid; status=$?
[ "$status" = 0 ] || fail "dialog: status $status: $(cat "$HOME/out")"
grep -qx 'ToolConvertText = false' "$HOME/out" || fail "the check button did not change: $(cat "$HOME/out")"
[ "$("$dvenv" get ToolConvertText)" = false ] || fail "the change was not saved"
[ "$("$dvenv" get ToolArcPrecValue)" = 9 ] || fail "the other instance's value was lost"
echo "dialog ok"
