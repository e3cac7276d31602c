#!/usr/bin/env bash
# Installs the build into a scratch prefix, then builds and runs a consumer
# against it, once through find_package (the consumer asks for C++14; the
# target brings C++17) and once through pkg-config.
set -euo pipefail
build=$1 consumer=$2 work=$3
rm -rf "$work"
cmake --install "$build" --prefix "$work/prefix" > /dev/null
# lib/, or lib/<triplet>/ as under Debian's multiarch layout.
libdir=$(dirname "$(find "$work/prefix" -name libdvenv2.so | head -n 1)")
cmake -S "$consumer" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" > /dev/null
cmake --build "$work/cmake" > /dev/null
LD_LIBRARY_PATH="$libdir" "$work/cmake/consumer" "$libdir/dvenv2/dvenv-ask"

# The .pc file names the configured prefix as it is, like Debian's own; moved
# to the scratch prefix here, as a relocated install would be.
pc=$libdir/pkgconfig/dvenv2.pc
configured=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
grep -qx "prefix=$configured" "$pc" || { echo "FAIL: $pc does not name the prefix $configured:"; cat "$pc"; exit 1; }
grep -q '{pcfiledir}\|/\.\./' "$pc" && { echo "FAIL: $pc holds a relative path:"; cat "$pc"; exit 1; }
sed -i "s|^prefix=.*|prefix=$work/prefix|" "$pc"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
g++ -std=c++17 "$consumer/main.cpp" -o "$work/pkgconfig-consumer" $(pkg-config --cflags --libs dvenv2)
LD_LIBRARY_PATH="$libdir" "$work/pkgconfig-consumer" "$libdir/dvenv2/dvenv-ask"
