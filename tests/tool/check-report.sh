#!/usr/bin/env bash
# dvenv report: two runs append two reports to one log, each behind its
# separator; bad arguments and an unwritable log are refused.
set -euo pipefail
dvenv=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
log=$dir/support.log

"$dvenv" report --log "$log" > "$dir/out"
"$dvenv" report --log "$log" > /dev/null
[ "$(cat "$dir/out")" = "$log" ] || { echo "path not printed"; exit 1; }
[ "$(grep -c '^-\{47\}$' "$log")" = 2 ] || { echo "expected two separators"; exit 1; }
tool=$(readlink -f "$dvenv")
sed -n 2p "$log" | grep -qE "^AppLog          :[0-9]+ +${tool//./\\.} [0-9]+\.[0-9]+\.[0-9]+\.[0-9]+$" \
  || { echo "first module line is not the tool with its version:"; sed -n 2p "$log"; exit 1; }
for text in '/libdvenv2\.so\.[0-9]+ [0-9.]+$' ' [A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] ' "^AppLog {10}:[0-9]+ +$(uname -s) " \
            ' CPU#0: .*\[[0-9.]+MHz\]$' ' Total Phys RAM: [0-9.]+ MBytes$' ' Avail Virt RAM: '; do
  [ "$(grep -cE -- "$text" "$log")" = 2 ] || { echo "expected twice: $text"; cat "$log"; exit 1; }
done

status=0; "$dvenv" report --log 2> /dev/null || status=$?
[ $status = 2 ] || { echo "missing FILE: status $status"; exit 1; }
status=0; "$dvenv" report "$dir/no/such/dir/x.log" --log 2> /dev/null || status=$?
[ $status = 2 ] || { echo "stray argument: status $status"; exit 1; }
status=0; "$dvenv" report --log "$dir/no/such/dir/x.log" 2> "$dir/err" || status=$?
[ $status = 1 ] && grep -q "cannot write the log file '$dir/no/such/dir/x.log'" "$dir/err" \
  || { echo "unwritable log: status $status"; cat "$dir/err"; exit 1; }
echo "report ok"
