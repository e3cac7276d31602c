#!/usr/bin/env bash
# dvenv.exe crash under Wine, with no display (the question's box answers No
# at once): the process ends with the exception's code (0xC0000005, cut to 8
# bits by Wine: 5), the log holds the diagnosis and the dump, dvenv.exe
# dump-extract writes the dump out, and lldb-14 opens it with the faulting
# function in the backtrace.
#   check-crash.sh WINE-RUN DVENV.EXE WORKDIR
set -uo pipefail
run=$1 dvenv=$2 work=$3
rm -rf "$work" && mkdir -p "$work"
fail() { echo "FAIL: $*"; exit 1; }

env -u DISPLAY "$run" "$dvenv" crash --log "Z:$work/crash.log" > "$work/crash.out" 2>&1
status=$?
[ "$status" = 5 ] || fail "exit status $status, not 5 (0xC0000005)"
grep -q '^AppLog *:[0-9]* *Unhandled exception: c0000005' "$work/crash.log" || fail "no diagnosis in the log"
env -u DISPLAY "$run" "$dvenv" dump-extract "Z:$work/crash.log" "Z:$work/crash.dmp" | grep -q 'bytes written' \
  || fail "dump-extract wrote no dump"
trace=$(lldb-14 -b --core "$work/crash.dmp" "$dvenv" -o 'bt 6' 2> /dev/null)
printf '%s\n' "$trace" | grep -q 'stop reason = Exception 0xc0000005' || fail "lldb: $trace"
printf '%s\n' "$trace" | grep -q 'frame #0: .*faultOnPurpose() at CrashCommands.cpp:' || fail "lldb: $trace"
echo "crash under Wine ok"
