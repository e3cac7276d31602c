#!/usr/bin/env bash
# dvenv.exe crashes under Wine, and the Linux dvenv-analyze reads its log:
# frame 0 names the faulting function, with the binary found at its own path
# (Wine's drive Z:) and in a --symbols folder after it has moved.
#   check-windows-dump.sh WINE-RUN DVENV.EXE ANALYZER WORKDIR
set -uo pipefail
run=$1 dvenv=$2 analyzer=$3 work=$4
[ -x "$analyzer" ] || { echo "skipped: no dvenv-analyze at $analyzer (the default preset builds it)"; exit 77; }
rm -rf "$work" && mkdir -p "$work/app" "$work/elsewhere"
fail() { echo "FAIL: $*"; exit 1; }

cp "$dvenv" "$work/app/dvenv.exe"
env -u DISPLAY "$run" "$work/app/dvenv.exe" crash --log "Z:$work/crash.log" > "$work/crash.out" 2>&1
grep -q 'Memory Mini-Dump End' "$work/crash.log" || fail "no dump in the log: $(cat "$work/crash.out")"
frame0='^  #0  +dvenv\.exe  dvenv::\(anonymous namespace\)::faultOnPurpose\(\) at CrashCommands\.cpp:[0-9]+$'

start=$(date +%s%N)
report=$(cd "$work/elsewhere" && "$analyzer" "$work/crash.log" 2>&1) || fail "status $?: $report"
echo "analysed in $(( ($(date +%s%N) - start) / 1000000 )) ms"
printf '%s\n' "$report" | grep -q '^Exception: c0000005 (bad memory access)$' || fail "no exception line: $report"
printf '%s\n' "$report" | grep -Eq "$frame0" || fail "frame 0 at the module's own path: $report"

mv "$work/app" "$work/symbols"
report=$(cd "$work/elsewhere" && "$analyzer" --symbols "$work/symbols" "$work/crash.log" 2>&1) || fail "status $?: $report"
printf '%s\n' "$report" | grep -Eq "$frame0" || fail "frame 0 from --symbols: $report"
printf '%s\n' "$report" | head -12
echo "Windows dump read ok"
