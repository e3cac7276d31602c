#!/usr/bin/env bash
# Writes every C++ example of the README as a source file that builds on its
# own: for the test that builds them (tests/package/check-readme.sh) and for
# the examples folder of libdvenv2-dev. Each ```cpp block follows a marker
# line that says what it is:
#   <!-- example: program -->           a whole program
#   <!-- example: file -->              a source file without main
#   <!-- example: fragment(PARAMS) -->  statements: its #include and using
#       lines go to the top, the rest into `void example(PARAMS)`, after the
#       umbrella header, FOX and <iostream>
# The files are OUT/NN-KIND.cpp, NN counting the examples from 01. A block
# without a marker is reported (README.md:LINE) and the status is 1.
#   readme-examples.sh README.md OUT
set -euo pipefail
readme=$1 out=$2
mkdir -p "$out"
raw=$(mktemp -d)
trap 'rm -rf "$raw"' EXIT

status=0
awk -v out="$raw" '
  /^<!-- example: .* -->$/ { kind = $0; sub(/^<!-- example: /, "", kind); sub(/ -->$/, "", kind); next }
  /^```cpp$/ {
    inside = 1
    if (kind == "") { print "README.md:" NR ": C++ example without an example marker" > "/dev/stderr"; failed = 1; file = "/dev/null"; next }
    params = ""
    if (kind ~ /^fragment\(/) { params = kind; sub(/^fragment\(/, "", params); sub(/\)$/, "", params); kind = "fragment" }
    file = sprintf("%s/%02d-%s.cpp", out, ++count, kind)
    if (kind == "fragment") print params > file
    kind = ""; next
  }
  inside && /^```$/ { inside = 0; close(file); next }
  inside { print > file; next }
  !/^[[:space:]]*$/ { kind = "" }
  END { exit failed }
' "$readme" || status=1

for source in "$raw"/*.cpp; do
  [ -e "$source" ] || continue
  name=$(basename "$source")
  case $name in
    *-fragment.cpp)
      {
        printf '#include <dv/env.h>\n#include <fx.h>\n#include <iostream>\n'
        tail -n +2 "$source" | grep -E '^(#include|using) ' || true
        printf 'void example(%s) {\n' "$(head -n 1 "$source")"
        tail -n +2 "$source" | grep -vE '^(#include|using) ' || true
        printf '}\n'
      } > "$out/$name" ;;
    *) cp "$source" "$out/$name" ;;
  esac
done
exit $status
