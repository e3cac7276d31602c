#!/usr/bin/env bash
# Arguments with Latin-1, CJK and emoji characters and blanks reach the
# library as the UTF-8 the user typed: a host's through Utf8Arguments, and
# every path and value of dvenv's commands (files read by run -c and events,
# logs written by report --log and dump-extract under their real names, a
# value set and read back byte for byte). On Windows under Wine, whose
# programs get a UTF-16 command line; on Linux the same holds unchanged.
#   check-utf8-arguments.sh DVENV HOST WORK [RUNNER]
set -uo pipefail
dvenv=$1 host=$2 work=$3 runner=${4:-}
export LC_ALL=C.UTF-8 HOME=$work/home
rm -rf "$work" && mkdir -p "$HOME"
unset DISPLAY
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
run() { if [ -n "$runner" ]; then "$runner" "$@"; else "$@"; fi | tr -d '\r'; }
# A path of $work as the program takes it: Wine's drive Z: is the root.
native() { if [ -n "$runner" ]; then printf 'Z:%s' "${1//\//\\}"; else printf '%s' "$1"; fi; }

names=("Jürgen café" "日本語 ファイル" "emoji 😀 ✓" "  blanks  around  ")
for i in "${!names[@]}"; do
  name=${names[$i]}
  value=$((40 + i))
  printf '[Dravik]\nToolArcPrecValue=%s\n' "$value" > "$work/$name.cmd"
  out=$(run "$dvenv" run -c "$(native "$work/$name.cmd")")
  grep -qx "ToolArcPrecValue=$value" <<<"$out" || fail "run -c '$name.cmd': $out"

  out=$(run "$dvenv" report --log "$(native "$work/$name.log")")
  [ -s "$work/$name.log" ] || fail "report --log '$name.log' wrote no such file: $out; $(ls "$work")"

  printf '8000007e\nLayer 12 has an open polygon\n' > "$work/$name.events"
  out=$(run "$dvenv" events "$(native "$work/$name.events")")
  grep -qx "entries: 1" <<<"$out" || fail "events '$name.events': $out"

  run "$dvenv" set CifOutHeader "$name ✓" > /dev/null
  [ "$(run "$dvenv" get CifOutHeader | od -An -tx1)" = "$(printf '%s ✓\n' "$name" | od -An -tx1)" ] ||
    fail "set and get '$name ✓': $(run "$dvenv" get CifOutHeader | od -An -tx1)"

  want=$(printf '%s' "$(native "$work/$name.gds")" | od -An -tx1 | tr -d ' \n')
  [ "$(run "$host" -i "$(native "$work/$name.gds")")" = "$want" ] || fail "the host's -i '$name.gds'"
done
# Under Wine the value went to the prefix's registry, which other tests share.
run "$dvenv" reset CifOutHeader > /dev/null

[ "$failures" = 0 ] && echo "UTF-8 arguments ok"
exit $((failures > 0))
