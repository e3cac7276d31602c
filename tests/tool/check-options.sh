#!/usr/bin/env bash
# dvenv options: every option once in each format, the name filter (a part of
# the name or a wildcard pattern, ignoring case), --changed against the
# typed value, and values with tabs, quotes and bytes that are not UTF-8
# kept one line (tsv) and valid JSON (read back by CMake's JSON parser).
set -uo pipefail
dvenv=$1
export HOME=$(mktemp -d)
trap 'rm -rf "$HOME"' EXIT
unset DISPLAY

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

table=$("$dvenv" options) || fail "options: status $?"
tsv=$("$dvenv" options --format tsv) || fail "options --format tsv: status $?"
count=$(wc -l <<<"$tsv")
[ "$(($(wc -l <<<"$table") - 1))" = "$count" ] || fail "the table and tsv list different numbers of options"
[ "$(cut -f1 <<<"$tsv" | sort -u | wc -l)" = "$count" ] || fail "an option listed twice"
awk -F'\t' 'NF != 5 || ($2 !~ /^(Integer|Real|String|Boolean)$/) || ($5 !~ /^(persistent|transient)$/) { exit 1 }' <<<"$tsv" ||
  fail "a tsv line without its five fields"
# The table's columns line up however long a value is: the kind starts at
# one column on every line.
[ "$(awk '{ print length($0) - length($NF) }' <<<"$table" | sort -u | wc -l)" = 1 ] || fail "the table's kinds do not line up"

[ "$("$dvenv" options ARCPREC --format=tsv | cut -f1)" = $'ToolArcPrecValue\nToolArcPrecUnits' ] || fail "part of a name"
[ "$("$dvenv" options 'tool?rc*value' --format=tsv | cut -f1)" = ToolArcPrecValue ] || fail "wildcards"
[ -z "$("$dvenv" options 'arcprec?' --format=tsv)" ] || fail "a wildcard pattern matches the whole name"
[ -z "$("$dvenv" options --changed --format=tsv)" ] || fail "a fresh registry has changed options"

"$dvenv" set ToolArcPrecValue 64 > /dev/null
"$dvenv" set ToolErrorMargin 2.50 > /dev/null
"$dvenv" set CifOutHeader $'tab\there "quoted" back\\slash \xff' > /dev/null
# The same value as the default, written as other text, is not a change.
"$dvenv" set DvExitWhenFinished no > /dev/null
changed=$("$dvenv" options --changed --format=tsv)
[ "$(cut -f1 <<<"$changed" | sort | tr '\n' ' ')" = "CifOutHeader ToolArcPrecValue ToolErrorMargin " ] ||
  fail "--changed gave: $changed"
grep -qxF $'CifOutHeader\tString\t(CIF written by Dravik);\ttab\\there "quoted" back\\\\slash \xff\tpersistent' <<<"$changed" ||
  fail "tsv escapes: $(grep CifOutHeader <<<"$changed" | cat -A)"

"$dvenv" options --format=json > "$HOME/all.json" || fail "json: status $?"
"$dvenv" options --changed --format=json > "$HOME/changed.json"
cat > "$HOME/read.cmake" <<'CMAKE'
file(READ "${file}" json)
string(JSON count LENGTH "${json}")
message("${count}")
math(EXPR last "${count} - 1")
foreach(i RANGE ${last})
  foreach(key name type default value persistent)
    string(JSON item GET "${json}" ${i} ${key})
    string(JSON kind TYPE "${json}" ${i} ${key})
    message("${key}=${kind}:${item}")
  endforeach()
endforeach()
CMAKE
out=$(cmake -Dfile="$HOME/all.json" -P "$HOME/read.cmake" 2>&1) || fail "json does not parse: $out"
[ "$(head -n 1 <<<"$out")" = "$count" ] || fail "json lists $(head -n 1 <<<"$out") options, tsv $count"
out=$(cmake -Dfile="$HOME/changed.json" -P "$HOME/read.cmake" 2>&1) || fail "changed json does not parse: $out"
for want in 'value=STRING:tab	here "quoted" back\slash �' 'value=NUMBER:64' 'default=NUMBER:32' 'value=NUMBER:2.5' \
            'default=NUMBER:1.5' 'persistent=BOOLEAN:ON' 'type=STRING:Real'; do
  grep -qxF -- "$want" <<<"$out" || fail "json lacks $want: $out"
done
[ "$("$dvenv" options --changed --format=json NoSuchName)" = "[]" ] || fail "an empty json list"

[ "$failures" = 0 ] && echo "options ok"
exit $((failures > 0))
