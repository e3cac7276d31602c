#!/usr/bin/env bash
# The option store on Windows is FOX's own registry, the Windows registry
# under HKCU\Software\Dravik\Dravik: dvenv.exe set writes there, and a later
# run reads it back.
#   check-registry.sh WINE-RUN DVENV.EXE
set -uo pipefail
run=$1 dvenv=$2
fail() { echo "FAIL: $*"; exit 1; }
"$run" "$dvenv" set ToolArcPrecValue 77 > /dev/null || fail "set"
"$run" reg query 'HKCU\Software\Dravik\Dravik\Integer' /v ToolArcPrecValue 2> /dev/null | grep -q 'ToolArcPrecValue *REG_SZ *77' \
  || fail "not in HKCU\\Software\\Dravik\\Dravik\\Integer"
[ "$("$run" "$dvenv" get ToolArcPrecValue | tr -d '\r')" = 77 ] || fail "not read back"
"$run" reg delete 'HKCU\Software\Dravik\Dravik\Integer' /v ToolArcPrecValue /f > /dev/null 2>&1
echo "registry ok"
