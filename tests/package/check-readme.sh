#!/usr/bin/env bash
# Builds every C++ example of the README against the installed package, as
# scripts/readme-examples.sh writes them out (a block without a marker fails
# the test, so that no example goes unbuilt): programs compiled and linked,
# source files and fragments compiled.
set -euo pipefail
readme=$1 prefix=$2 work=$3
rm -rf "$work" && mkdir -p "$work"
export PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name dvenv2.pc | head -n 1)")
flags=$(pkg-config --cflags --libs dvenv2)

status=0
bash "$(dirname "$0")/../../scripts/readme-examples.sh" "$readme" "$work" || status=1
for source in "$work"/*.cpp; do
  name=$(basename "$source" .cpp)
  case $name in
    *-program) args=(-o "$work/$name") ;;
    *) args=(-c -o "$work/$name.o") ;;
  esac
  # shellcheck disable=SC2086
  if ! g++ -std=c++17 -Wall -Wextra -Wno-unused-variable -Wno-unused-parameter "$source" "${args[@]}" $flags 2> "$work/$name.log"; then
    echo "README example $name does not build:"
    cat "$work/$name.log"
    status=1
  fi
done
[ "$status" -eq 0 ] && echo "README examples ok: $(ls "$work"/*.cpp | wc -l) built"
exit $status
