#!/usr/bin/env bash
# Installs the build into a scratch prefix, then builds and runs a consumer
# against it, once through find_package and once through pkg-config.
set -euo pipefail
build=$1 consumer=$2 work=$3
rm -rf "$work"
cmake --install "$build" --prefix "$work/prefix" > /dev/null
# lib/, or lib/<triplet>/ as under Debian's multiarch layout.
libdir=$(dirname "$(find "$work/prefix" -name libdvenv2.so | head -n 1)")
cmake -S "$consumer" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" > /dev/null
cmake --build "$work/cmake" > /dev/null
LD_LIBRARY_PATH="$libdir" "$work/cmake/consumer" "$libdir/dvenv2/dvenv-ask"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
g++ -std=c++17 "$consumer/main.cpp" -o "$work/pkgconfig-consumer" $(pkg-config --cflags --libs dvenv2)
LD_LIBRARY_PATH="$libdir" "$work/pkgconfig-consumer" "$libdir/dvenv2/dvenv-ask"
