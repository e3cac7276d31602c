#!/usr/bin/env bash
# dvenv's exit statuses (0 done, 1 failed at run time, 2 bad usage or input),
# --help on every command, set and get through the library's own rules, and
# commands without options leaving the registry alone. A home of its own.
set -uo pipefail
dvenv=$1
export HOME=$(mktemp -d)
trap 'rm -rf "$HOME"' EXIT
unset DISPLAY

failures=0
# expect STATUS OUTPUT-PATTERN ARGUMENTS...: the status, and the pattern in
# standard output and error together.
expect() {
  local want=$1 pattern=$2; shift 2
  local out status=0
  out=$("$dvenv" "$@" 2>&1) || status=$?
  if [ "$status" != "$want" ] || ! grep -qE -- "$pattern" <<<"$out"; then
    echo "FAIL: dvenv $* gave $status (want $want, /$pattern/):"; echo "$out"
    failures=$((failures + 1))
  fi
}

# Commands that use no option neither read nor write the registry.
expect 0 'libdvenv2' version
expect 2 'usage: dvenv events FILE' events
[ ! -e "$HOME/.foxrc" ] || { echo "FAIL: version or events touched the registry"; failures=$((failures + 1)); }

expect 0 '^usage: dvenv COMMAND' --help
for command in options get set version run report dialog events crash dump-extract; do
  expect 0 "^usage: dvenv $command" "$command" --help
done
expect 2 "unknown command 'frobnicate'" frobnicate

# set takes what the command line takes, and says what it stored where.
expect 0 '^ToolArcPrecValue = 5$' set DvArcPrecValue 5
expect 0 '^5$' get dvarcprecvalue
expect 0 '^ToolCropX0 = 1\.5$' set ToolCropX0 1.5mm
expect 0 '^DvExitWhenFinished = true$' set q yes
expect 2 "unknown option 'NoSuchOption'" set NoSuchOption 1
expect 2 'Invalid numeric parameter for option: ToolArcPrecValue' set ToolArcPrecValue abc
expect 2 "'c' is a command, not an option: use dvenv run" set c file.cmd
expect 2 "'DvLoadDefaults' is a command" get DvLoadDefaults
expect 2 "unknown option 'NoSuchOption'" get NoSuchOption

# Files that cannot be read or written are failures at run time; a log
# without a dump is bad input.
expect 1 "cannot read '$HOME/missing.txt'" events "$HOME/missing.txt"
expect 1 "cannot read the log" dump-extract "$HOME/missing.log" "$HOME/out.dmp"
printf 'just a line\n' > "$HOME/plain.log"
expect 2 'holds no memory dump' dump-extract "$HOME/plain.log" "$HOME/out.dmp"

# A registry that cannot be saved fails the command that changed it.
rm -rf "$HOME/.foxrc" && printf 'not a directory\n' > "$HOME/.foxrc"
expect 1 'cannot save the registry' set ToolArcPrecValue 6

[ "$failures" = 0 ] && echo "exit statuses ok"
exit $((failures > 0))
