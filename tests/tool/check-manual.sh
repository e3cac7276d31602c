#!/usr/bin/env bash
# The manual page renders whole, without a warning of groff or man: every
# command on one line of its own with its arguments, the sections a user
# looks for, what saves the registry, and the same commands as the tool.
#   check-manual.sh PAGE DVENV
set -uo pipefail
page=$1 dvenv=$2
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

warnings=$(LC_ALL=C.UTF-8 groff -man -ww -z -Tutf8 "$page" 2>&1)
[ -z "$warnings" ] || fail "groff warns: $warnings"
text=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$page" 2>&1) || fail "man -l: status $?"
grep -q 'warning' <<<"$text" && fail "man warns: $(grep warning <<<"$text")"
for section in NAME SYNOPSIS DESCRIPTION COMMANDS 'SAVING THE REGISTRY' 'EXIT STATUS' ENVIRONMENT FILES EXAMPLES 'SEE ALSO'; do
  grep -qx "$section" <<<"$text" || fail "no section $section"
done
# Each command's usage as the tool's help gives it, whole on one line.
while read -r usage; do
  grep -qxF "       $usage" <<<"$text" || grep -qF "       $usage " <<<"$text" || fail "no line '$usage'"
done < <("$dvenv" --help | sed -n '/^commands:/,/^$/s/^  \([a-z].*\)/\1/p' | grep -v '^help ')
grep -qE '^ +set, reset, dialog and run --save save the registry, and only these\.' <<<"$text" || fail "what saves the registry"
[ "$failures" = 0 ] && echo "manual ok"
exit $((failures > 0))
