#!/usr/bin/env bash
# A real crash read by the crash tools people use: Breakpad's
# minidump_stackwalk, with symbols from its dump_syms, must name the faulting
# function in the crashed thread. The tools come prebuilt in the npm package
# "minidump" and are fetched once into CACHE; where they cannot be had, the
# test is reported skipped (exit 77), never passed.
#   check-stackwalk.sh CRASH_CHILD DVENV CACHE
set -euo pipefail
child=$1 dvenv=$2 cache=$3
tools=$cache/node_modules/minidump/bin/linux-x64

skip() { echo "SKIPPED: $*"; exit 77; }

if [ ! -x "$tools/minidump_stackwalk" ] || [ ! -x "$tools/dump_syms" ]; then
  command -v npm > /dev/null || skip "npm is not installed"
  mkdir -p "$cache"
  npm install --prefix "$cache" --ignore-scripts --no-audit --no-fund --loglevel=error minidump@0.26.0 \
    > "$cache/npm.log" 2>&1 || skip "minidump@0.26.0 could not be fetched (see $cache/npm.log)"
  [ -x "$tools/minidump_stackwalk" ] || skip "minidump@0.26.0 has no Linux x64 tools"
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# No display and no terminal: the question is answered No at once.
env -u DISPLAY setsid -w "$child" "$work/crash.log" null-main < /dev/null > /dev/null 2>&1 || true
"$dvenv" dump-extract "$work/crash.log" "$work/crash.dmp" > /dev/null

# Symbols go where the walker looks: NAME/ID/NAME.sym.
"$tools/dump_syms" "$child" > "$work/child.sym" 2> /dev/null
read -r _ _ _ id name < "$work/child.sym"
mkdir -p "$work/symbols/$name/$id"
mv "$work/child.sym" "$work/symbols/$name/$id/$name.sym"

walked=$("$tools/minidump_stackwalk" "$work/crash.dmp" "$work/symbols" 2> /dev/null)
crashed=$(printf '%s\n' "$walked" | sed -n '/^Thread [0-9]* (crashed)/,/^$/p')
if ! printf '%s\n' "$crashed" | grep -q "^ 0  $name!writeThroughNullOnMainThread "; then
  echo "FAIL: the crashed thread's first frame is not writeThroughNullOnMainThread"
  printf '%s\n' "$walked" | head -40
  exit 1
fi
echo "stackwalk ok: $(printf '%s\n' "$crashed" | sed -n 2p)"
