#!/usr/bin/env bash
# Builds every C++ example of the README against the installed package. Each
# ```cpp block follows a marker line that says what it is:
#   <!-- example: program -->           a whole program: compiled and linked
#   <!-- example: file -->              a source file without main: compiled
#   <!-- example: fragment(PARAMS) -->  statements: its #include and using
#       lines go to the top, the rest into `void example(PARAMS)`, after the
#       umbrella header, FOX and <iostream>; compiled
# A block without a marker fails the test, so that no example goes unbuilt.
set -euo pipefail
readme=$1 prefix=$2 work=$3
rm -rf "$work" && mkdir -p "$work"
export PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name dvenv2.pc | head -n 1)")
flags=$(pkg-config --cflags --libs dvenv2)

status=0
# One file per block, named by the line its fence opens on: KIND-LINE.cpp,
# the fragment's parameters on the file's first line.
awk -v out="$work" '
  /^<!-- example: .* -->$/ { kind = $0; sub(/^<!-- example: /, "", kind); sub(/ -->$/, "", kind); next }
  /^```cpp$/ {
    inside = 1
    if (kind == "") { print "README.md:" NR ": C++ example without an example marker" > "/dev/stderr"; failed = 1; file = "/dev/null"; next }
    params = ""
    if (kind ~ /^fragment\(/) { params = kind; sub(/^fragment\(/, "", params); sub(/\)$/, "", params); kind = "fragment" }
    file = out "/" kind "-" NR ".cpp"
    if (kind == "fragment") print params > file
    kind = ""; next
  }
  inside && /^```$/ { inside = 0; close(file); next }
  inside { print > file; next }
  !/^[[:space:]]*$/ { kind = "" }
  END { exit failed }
' "$readme" || status=1

for source in "$work"/*.cpp; do
  name=$(basename "$source" .cpp)
  kind=${name%-*} line=${name##*-}
  case $kind in
    program) args=(-o "$work/$name") ;;
    file) args=(-c -o "$work/$name.o") ;;
    fragment)
      params=$(head -n 1 "$source")
      wrapped="$work/$name.wrapped.cpp"
      {
        printf '#include <dv/env.h>\n#include <fx.h>\n#include <iostream>\n'
        tail -n +2 "$source" | grep -E '^(#include|using) ' || true
        printf 'void example(%s) {\n' "$params"
        tail -n +2 "$source" | grep -vE '^(#include|using) ' || true
        printf '}\n'
      } > "$wrapped"
      source=$wrapped args=(-c -o "$work/$name.o") ;;
    *) echo "README.md:$line: unknown example kind '$kind'"; status=1; continue ;;
  esac
  # shellcheck disable=SC2086
  if ! g++ -std=c++17 -Wall -Wextra -Wno-unused-variable -Wno-unused-parameter "$source" "${args[@]}" $flags 2> "$work/$name.log"; then
    echo "README.md:$line: the $kind example does not build:"
    cat "$work/$name.log"
    status=1
  fi
done
[ "$status" -eq 0 ] && echo "README examples ok: $(ls "$work"/*-*.cpp | grep -vc wrapped) built"
exit $status
