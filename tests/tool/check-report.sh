#!/usr/bin/env bash
# dvenv report: two runs append two reports to one log, each behind its
# separator; bad arguments and an unwritable log are refused.
set -euo pipefail
dvenv=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
log=$dir/support.log
[ "$("$dvenv" report --log "$log")" = "$log" ] || { echo "path not printed"; exit 1; }
"$dvenv" report --log "$log" > /dev/null
tool=$(readlink -f "$dvenv")
for text in '^-{47}$' "^AppLog {10}:[0-9]+ +${tool//./\\.} [0-9]+\.[0-9]+\.[0-9]+\.[0-9]+$" '/libdvenv2\.so\.[0-9]+ [0-9.]+$' \
            ' [A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] ' " $(uname -s) " ' CPU#0: .*\[[0-9.]+MHz\]$' ' Avail Virt RAM: [0-9.e+]+ MBytes$'; do
  [ "$(grep -cE -- "$text" "$log")" = 2 ] || { echo "expected twice: $text"; cat "$log"; exit 1; }
done
status=0; "$dvenv" report --log 2> /dev/null || status=$?
[ $status = 2 ] || { echo "missing FILE: status $status"; exit 1; }
status=0; "$dvenv" report --log "$dir/no/such/x.log" 2> "$dir/err" || status=$?
[ $status = 1 ] && grep -q "cannot write the log file '$dir/no/such/x.log'" "$dir/err" || { echo "unwritable log: status $status"; exit 1; }
