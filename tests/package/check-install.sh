#!/usr/bin/env bash
# Installs the build into a scratch prefix, then builds and runs a consumer
# against it, once through find_package and once through pkg-config.
set -euo pipefail
build=$1 consumer=$2 work=$3
rm -rf "$work"
cmake --install "$build" --prefix "$work/prefix" > /dev/null
cmake -S "$consumer" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" > /dev/null
cmake --build "$work/cmake" > /dev/null
LD_LIBRARY_PATH="$work/prefix/lib" "$work/cmake/consumer"

export PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig"
g++ -std=c++17 "$consumer/main.cpp" -o "$work/pkgconfig-consumer" $(pkg-config --cflags --libs dvenv2)
LD_LIBRARY_PATH="$work/prefix/lib" "$work/pkgconfig-consumer"
