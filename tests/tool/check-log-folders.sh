#!/usr/bin/env bash
# The default log may hold a memory dump: under umask 022, with a fresh home,
# dvenv report and dvenv crash create its folders private to the user (0700)
# and the log 0600; folders that exist keep their mode. XDG_STATE_HOME moves
# the log; a relative one is ignored, as the XDG rules say.
set -uo pipefail
dvenv=$1
umask 022
unset DISPLAY XDG_STATE_HOME
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
mode() { stat -c %a "$1" 2>/dev/null || echo missing; }
homes=()
trap 'rm -rf "${homes[@]}"' EXIT

for command in report crash; do
  home=$(mktemp -d); homes+=("$home")
  HOME=$home "$dvenv" "$command" > /dev/null 2>&1 < /dev/null
  for folder in .local .local/state .local/state/dravik; do
    [ "$(mode "$home/$folder")" = 700 ] || fail "$command: $folder is $(mode "$home/$folder")"
  done
  [ "$(mode "$home/.local/state/dravik/dravik.log")" = 600 ] || fail "$command: the log is $(mode "$home/.local/state/dravik/dravik.log")"
done

# Existing folders are the user's business; the one missing is created 0700.
home=$(mktemp -d); homes+=("$home")
mkdir -m 755 "$home/state"
HOME=$home XDG_STATE_HOME=$home/state "$dvenv" report > /dev/null || fail "report under XDG_STATE_HOME: status $?"
[ "$(mode "$home/state")" = 755 ] || fail "an existing folder changed to $(mode "$home/state")"
[ "$(mode "$home/state/dravik")" = 700 ] || fail "state/dravik is $(mode "$home/state/dravik")"
[ ! -e "$home/.local" ] || fail "the log went under HOME despite XDG_STATE_HOME"
out=$(cd "$home" && HOME=$home XDG_STATE_HOME=relative "$dvenv" report)
[ "$out" = "$home/.local/state/dravik/dravik.log" ] && [ ! -e "$home/relative" ] || fail "a relative XDG_STATE_HOME was taken: $out"

# A folder that cannot be made is a failure at run time.
home=$(mktemp -d); homes+=("$home")
printf 'a file\n' > "$home/.local"
status=0; err=$(HOME=$home "$dvenv" report 2>&1 > /dev/null) || status=$?
[ "$status" = 1 ] && grep -qF "cannot create the folder '$home/.local/state/dravik'" <<<"$err" || fail "unmakeable folder: $status, '$err'"

[ "$failures" = 0 ] && echo "log folders ok"
exit $((failures > 0))
