#!/usr/bin/env bash
# FaultChild.exe fails under Wine as CASE says, REPEAT times, with no display.
# Each run must end with STATUS (the code cut to 8 bits by Wine), ask the
# crash question once, and leave a log with one diagnosis of CODE and a dump
# that dvenv.exe dump-extract writes out and lldb-14 opens with FUNCTION in
# the faulting thread's frames. CODE "none": a fatal report, which leaves no
# diagnosis, no dump and no question.
#   check-faults.sh WINE-RUN DVENV.EXE FAULTCHILD.EXE WORKDIR CASE STATUS CODE FUNCTION [REPEAT]
set -uo pipefail
run=$1 dvenv=$2 child=$3 work=$4 case=$5 status=$6 code=$7 function=$8 repeat=${9:-1}
rm -rf "$work" && mkdir -p "$work"
fail() { echo "FAIL ($case, run $i): $*"; exit 1; }

for ((i = 1; i <= repeat; ++i)); do
  log=$work/$case-$i.log dump=$work/$case-$i.dmp
  env -u DISPLAY "$run" "$child" "Z:$log" "$case" > "$work/out" 2> "$work/err"
  got=$?
  [ "$got" = "$status" ] || fail "exit status $got, not $status"
  diagnoses=$(grep -c 'Unhandled exception: ' "$log")
  questions=$(grep -c '^question' "$work/err")
  if [ "$code" = none ]; then
    [ "$diagnoses" = 0 ] && [ "$questions" = 0 ] && ! grep -q 'Mini-Dump' "$log" \
      || fail "a fatal report taken for a crash"
    grep -q "$function" "$log" || fail "the reason is not in the log"
    continue
  fi
  [ "$diagnoses" = 1 ] || fail "$diagnoses diagnoses"
  grep -q "^AppLog *:[0-9]* *Unhandled exception: $code\$" "$log" || fail "no diagnosis of $code"
  [ "$questions" = 1 ] || fail "$questions questions"
  # Nothing of another thread between the diagnosis and the End marker; the
  # workers' numbers stay decimal.
  sed -n '/Unhandled exception/,/Mini-Dump End/p' "$log" | grep -q '^Worker' && fail "a worker's line inside the report"
  grep '^Worker' "$log" | grep -qv 'line [0-9]* of 255$' && fail "a worker's line out of form"
  env -u DISPLAY "$run" "$dvenv" dump-extract "Z:$log" "Z:$dump" | grep -q 'bytes written' || fail "dump-extract wrote no dump"
  trace=$(lldb-14 -b --core "$dump" "$child" -o 'thread backtrace all -c 12' 2> /dev/null)
  # The faulting thread is the first, and the one lldb stops in.
  first=$(printf '%s\n' "$trace" | awk '/^\* thread #/{on=1} /^  thread #/{on=0} on')
  printf '%s\n' "$first" | grep -q "^\* thread #1, stop reason = Exception 0x$code" || fail "lldb: $trace"
  printf '%s\n' "$first" | grep -q "frame #[0-9]*: .*$function" || fail "lldb, no $function: $trace"
done
echo "$case under Wine ok ($repeat runs)"
