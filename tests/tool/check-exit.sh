#!/usr/bin/env bash
# dvenv's command line and exit statuses (0 done, 1 failed at run time, 2 bad
# usage or input): help and examples of every command, --version, both forms
# of an option's value, wrong usage named with a hint, set, get and reset
# through the library's own rules and the merging save, and commands without
# options leaving the registry alone. A home of its own.
set -uo pipefail
dvenv=$1
export HOME=$(mktemp -d)
trap 'rm -rf "$HOME"' EXIT
unset DISPLAY XDG_STATE_HOME

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
expect 2 'events: FILE is required' events
[ ! -e "$HOME/.foxrc" ] || { echo "FAIL: version or events touched the registry"; failures=$((failures + 1)); }

expect 0 '^dvenv [0-9]+\.[0-9]+\.[0-9]+\.[0-9]+$' --version
expect 0 '^usage: dvenv \[--version\]' --help
expect 0 '^  dump-extract LOG OUT' help
expect 2 '^usage: dvenv \[--version\]'
for command in options get set reset run version report dialog events crash dump-extract help; do
  # Each help starts with its usage line and ends with an example of it.
  for form in "$command --help" "help $command"; do
    # shellcheck disable=SC2086
    out=$("$dvenv" $form 2>&1)
    if ! head -n 1 <<<"$out" | grep -q "^usage: dvenv $command" || ! tail -n 1 <<<"$out" | grep -q "^  dvenv $command"; then
      echo "FAIL: dvenv $form:"; echo "$out"; failures=$((failures + 1))
    fi
  done
done
expect 0 'report \[--log FILE\]' --help
expect 0 "by default $HOME/\.local/state/dravik/dravik\.log" help report
XDG_STATE_HOME=$HOME/state expect 0 "by default $HOME/state/dravik/dravik\.log" crash --help
expect 2 "unknown command 'rnu'; did you mean 'run'\?" rnu
expect 2 "unknown command 'frobnicate' \(dvenv --help lists the commands\)" frobnicate
expect 2 "unknown option '--verison'; did you mean '--version'\?" --verison
expect 2 "report: unknown option '--lgo'; did you mean '--log'\? \(dvenv help report lists the options\)" report --lgo=x
expect 2 "report: --log: 1 required" report --log
expect 2 "get: unexpected argument 'two'" get one two
expect 2 "help: no command 'frob'" help frob
expect 2 "options: --format: .*xml" options --format=xml

# set takes what the command line takes, and says what it stored where; a
# negative number is a value, not an option.
expect 0 '^ToolArcPrecValue = 5$' set DvArcPrecValue 5
expect 0 '^5$' get dvarcprecvalue
expect 0 '^ToolCropX0 = 1\.5$' set ToolCropX0 1.5mm
expect 0 '^ToolCropY0 = -2$' set ToolCropY0 -2
expect 0 '^DvExitWhenFinished = true$' set q yes
expect 0 '^PsInPstoeditOptions = -dt -f svg$' set PsInPstoeditOptions '-dt -f svg'
expect 0 '^PsInPstoeditOptions = --flat$' set PsInPstoeditOptions -- --flat
expect 2 'set: VALUE is required' set PsInPstoeditOptions --
expect 2 "unknown option 'NoSuchOption'" set NoSuchOption 1
expect 2 "Invalid numeric parameter for option: ToolArcPrecValue \(value 'abc'\)" set ToolArcPrecValue abc
expect 2 "'c' is a command, not an option: use dvenv run" set c file.cmd
expect 2 "'DvLoadDefaults' is a command" get DvLoadDefaults
expect 2 "unknown option 'NoSuchOption'" get NoSuchOption

# reset: a mistyped name resets nothing; the others go back to the default.
expect 2 "unknown option 'NoSuchOption'" reset ToolArcPrecValue NoSuchOption
expect 0 '^5$' get ToolArcPrecValue
expect 0 '^ToolArcPrecValue = 32$' reset toolarcprecvalue
expect 2 'reset takes either option names or --all' reset
expect 2 'reset takes either option names or --all' reset --all ToolCropX0
expect 0 '' reset --all
expect 0 '^0$' get ToolCropX0
grep -q 'ToolCropX0\|DvExitWhenFinished' "$HOME/.foxrc/Dravik/Dravik" && { echo "FAIL: reset --all left entries"; failures=$((failures + 1)); }

# 20 instances setting 20 options at once: each save merges, all are kept.
names=$("$dvenv" options --format=tsv | awk -F'\t' '$2 == "Integer" && $5 == "persistent" { print $1 "\t" $3 + 1 }' | head -n 20)
while IFS=$'\t' read -r name value; do "$dvenv" set "$name" "$value" > /dev/null & done <<<"$names"
wait
kept=$("$dvenv" options --changed --format=tsv | awk -F'\t' '{ print $1 "\t" $4 }')
[ "$kept" = "$(sort <<<"$names")" ] || [ "$(sort <<<"$kept")" = "$(sort <<<"$names")" ] ||
  { echo "FAIL: of 20 concurrent sets, kept:"; echo "$kept"; failures=$((failures + 1)); }
"$dvenv" reset --all

# Values longer than FOX's file lines hold (search paths, converter options)
# come back whole in the next run, quotes, "=" and line feeds included; an
# argument holds at most 128 KiB.
font_path=$(for i in $(seq 1 400); do printf '/opt/fonts/"set %d"=x\n' "$i"; done)
converter=$(head -c 100000 /dev/zero | tr '\0' 'o')
for entry in "DvFontPath:$font_path" "PsInPstoeditOptions:-dt $converter"; do
  name=${entry%%:*} value=${entry#*:}
  "$dvenv" set "$name" "$value" > /dev/null 2>&1 || { echo "FAIL: set $name of ${#value} bytes: status $?"; failures=$((failures + 1)); }
  [ "$("$dvenv" get "$name" 2> /dev/null)" = "$value" ] || { echo "FAIL: $name of ${#value} bytes not read back whole"; failures=$((failures + 1)); }
done
"$dvenv" reset --all 2> /dev/null

# Files that cannot be read or written are failures at run time; a log
# without a dump is bad input.
expect 1 "cannot read '$HOME/missing.txt'" events "$HOME/missing.txt"
expect 1 "cannot read the log" dump-extract "$HOME/missing.log" "$HOME/out.dmp"
printf 'just a line\n' > "$HOME/plain.log"
expect 2 'holds no memory dump' dump-extract "$HOME/plain.log" "$HOME/out.dmp"

# analyze: dvenv-analyze beside dvenv or on PATH gets the arguments as given.
PATH=/usr/bin:/bin expect 1 'comes with the package dvenv2-support' analyze --help
mkdir "$HOME/bin" && printf '#!/bin/sh\nprintf "[%%s]" "$@"; exit 3\n' > "$HOME/bin/dvenv-analyze" && chmod +x "$HOME/bin/dvenv-analyze"
PATH=$HOME/bin:/usr/bin:/bin expect 3 '^\[--help\]\[a b\]$' analyze --help 'a b'

# A registry that cannot be saved fails the command that changed it, with the
# save's own account.
rm -rf "$HOME/.foxrc" && printf 'not a directory\n' > "$HOME/.foxrc"
expect 1 "^dvenv: .*not saved.*/\.foxrc/Dravik" set ToolArcPrecValue 6

[ "$failures" = 0 ] && echo "exit statuses ok"
exit $((failures > 0))
