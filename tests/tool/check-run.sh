#!/usr/bin/env bash
# dvenv run: the road of one option, a command file fed back, saving only
# with --save, and bad input: every road stops before anything is applied.
# Runs in a home of its own, so the user's registry is not touched.
set -uo pipefail
dvenv=$1
export HOME=$(mktemp -d)
trap 'rm -rf "$HOME"' EXIT
unset DISPLAY
cd "$HOME"

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
# expect STATUS STDERR ARGUMENTS...: the status and the whole of standard error.
expect() {
  local want=$1 message=$2; shift 2
  local err status=0
  err=$("$dvenv" "$@" 2>&1 >/dev/null) || status=$?
  [ "$status" = "$want" ] && [ "$err" = "$message" ] || fail "dvenv $*: status $status (want $want), said '$err' (want '$message')"
}

expected=$'[Dravik]\nDvLoadDefaults=true\nToolArcPrecValue=64'
out=$("$dvenv" run -ToolArcPrecValue=64 2>/dev/null)
[ "$out" = "$expected" ] || fail "road: got '$out'"
[ "$("$dvenv" get ToolArcPrecValue)" = 32 ] || fail "run without --save saved"

# The text is a command file: fed back, it gives the same configuration, and
# with --save (before the application's arguments) it is kept.
printf '%s\n' "$out" > run.cmd
"$dvenv" set ToolArcPrecValue 5 > /dev/null
out=$("$dvenv" run --save -c run.cmd 2>/dev/null)
[ "$out" = "$expected" ] || fail "fed back: got '$out'"
[ "$("$dvenv" get ToolArcPrecValue)" = 64 ] || fail "run --save did not save"

# Bad input, on the command line and in command files nested two deep, with
# CR LF line ends: the file and line named, nothing saved.
printf '[Dravik]\r\nToolCropX0=2\r\nc=inner.cmd\r\n' > outer.cmd
printf '# settings\n[Other]\nToolArcPrecValue=lots\n[dravik]\nToolErrorMargin = 0.5\n\nToolArcPrecValue = "lots"\n' > inner.cmd
expect 2 "dvenv: inner.cmd:7: Invalid numeric parameter for option: ToolArcPrecValue (value 'lots')" run --save -c outer.cmd
printf '[Dravik]\nNoSuchOption=1\n' > unknown.cmd
expect 2 "dvenv: unknown.cmd:2: Unknown option: NoSuchOption" run --save -ToolCropX0=3 -c unknown.cmd
expect 2 "dvenv: Invalid numeric parameter for option: ToolArcPrecValue (value 'lots')" run --save -ToolArcPrecValue=lots
expect 2 "dvenv: Missing parameter for option: ToolArcPrecValue (value '')" run --save -ToolArcPrecValue
expect 2 "dvenv: Unknown option: NoSuchOption" run --save -NoSuchOption=1
expect 2 "dvenv: 'stray.gds' is not an option: options begin with '-' (-name=value)" run --save stray.gds
expect 1 "dvenv: cannot read the command file 'missing.cmd': No such file or directory" run --save -c missing.cmd
printf '[Dravik]\nc=gone.cmd\n' > names-missing.cmd
expect 1 "dvenv: cannot read the command file 'gone.cmd': No such file or directory" run --save -c names-missing.cmd
for option in ToolCropX0 ToolErrorMargin; do
  [ "$("$dvenv" options --changed --format=tsv | cut -f1 | grep -c "^$option$")" = 0 ] || fail "bad input stored $option"
done

# A file that reads itself is read once, as the library does.
printf '[Dravik]\nToolArcPrecValue=7\nc=self.cmd\n' > self.cmd
out=$("$dvenv" run -c self.cmd 2>/dev/null) || fail "self-reading file: status $?"
grep -qx 'ToolArcPrecValue=7' <<<"$out" || fail "self-reading file: got '$out'"

[ "$failures" = 0 ] && echo "run ok"
exit $((failures > 0))
