#!/usr/bin/env bash
# dvenv run: the road of one option, a command file fed back, and bad input.
# Runs in a home of its own, so the user's registry is not touched.
set -euo pipefail
dvenv=$1
export HOME=$(mktemp -d)
trap 'rm -rf "$HOME"' EXIT
unset DISPLAY

fail() { echo "FAIL: $*"; exit 1; }

expected=$'[Dravik]\nDvLoadDefaults=true\nToolArcPrecValue=64'
out=$("$dvenv" run -ToolArcPrecValue=64 2>/dev/null)
[ "$out" = "$expected" ] || fail "road: got '$out'"

# The text is a command file: fed back, it gives the same configuration.
printf '%s\n' "$out" > "$HOME/run.cmd"
"$dvenv" set ToolArcPrecValue 5 > /dev/null
out=$("$dvenv" run -c "$HOME/run.cmd" 2>/dev/null)
[ "$out" = "$expected" ] || fail "fed back: got '$out'"

# A rejected argument goes to standard error without a display.
err=$("$dvenv" run stray.gds 2>&1 >/dev/null)
[ "$err" = $'Invalid command line option\nInvalid option: "stray.gds"' ] || fail "rejected: got '$err'"

# A bad value is bad input.
status=0
err=$("$dvenv" run -ToolArcPrecValue=lots 2>&1 >/dev/null) || status=$?
[ "$status" = 2 ] || fail "bad value: status $status"
[ "$err" = "Invalid numeric parameter for option: ToolArcPrecValue" ] || fail "bad value: got '$err'"
echo "run ok"
