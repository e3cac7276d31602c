#!/usr/bin/env bash
# Under Wine, in the Windows registry (HKCU\Software\DravikTest\DravikTest):
# ten instances saving another option each at once keep all ten, and long
# values come back whole in the next run.
#   check-wine.sh WINE-RUN SETTINGSCHILD.EXE
set -uo pipefail
run=$1 child=$2
fail() { echo "FAIL: $*"; exit 1; }
out=$(mktemp -d) && trap 'rm -rf "$out"' EXIT
"$run" reg delete 'HKCU\Software\DravikTest\DravikTest' /f > /dev/null 2>&1

for i in $(seq 10 19); do
  "$run" "$child" set "Opt$i" "value $i" save > "$out/save-$i.txt" 2>&1 &
done
wait
for i in $(seq 10 19); do
  grep -q '^saved' "$out/save-$i.txt" || fail "instance $i: $(cat "$out/save-$i.txt")"
  "$run" reg query 'HKCU\Software\DravikTest\DravikTest\String' /v "Opt$i" 2> /dev/null \
    | grep -q "Opt$i *REG_SZ *value $i" || fail "Opt$i is not in the registry"
done
echo "10 of 10 kept"

"$run" "$child" set Opt30 untouched long Opt31 2000 plain long Opt32 5000 mixed long Opt33 1048576 mixed \
  long Opt34 1048576 plain save | tr -d '\r' | grep -q '^saved' || fail "long values not saved"
checked=$("$run" "$child" check Opt31 2000 plain check Opt32 5000 mixed check Opt33 1048576 mixed \
  check Opt34 1048576 plain get Opt30 get Opt15 2> /dev/null | tr -d '\r')
expected="Opt31 whole (2000 bytes)
Opt32 whole (5000 bytes)
Opt33 whole (1048576 bytes)
Opt34 whole (1048576 bytes)
untouchedvalue 15"
[ "$checked" = "$expected" ] || fail "read back: $checked"
"$run" reg delete 'HKCU\Software\DravikTest\DravikTest' /f > /dev/null 2>&1
echo "long values ok"
