#!/usr/bin/env bash
# Builds the fuzz targets with clang-14, libFuzzer, AddressSanitizer and UBSan,
# and runs each for DVENV2_FUZZ_SECONDS (60 by default) from the seed corpus.
# Fails on any finding; its input is left in build/fuzz/findings/.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${DVENV2_FUZZ_SECONDS:-60}
build=build/fuzz
cmake -S . -B "$build" -G Ninja \
  -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DDVENV2_SANITIZE="address;undefined" -DDVENV2_FUZZ=ON \
  -DDVENV2_BUILD_TESTS=OFF -DDVENV2_BUILD_BENCH=OFF -DDVENV2_BUILD_TOOLS=OFF > /dev/null
cmake --build "$build" --target CommandFileFuzz SetOptionFuzz
mkdir -p "$build/findings"
status=0
for target in CommandFileFuzz:command-file SetOptionFuzz:set-option; do
  name=${target%%:*}
  seeds=fuzz/corpus/${target#*:}
  work=$build/corpus/$name
  mkdir -p "$work"
  echo "=== fuzzing $name for ${seconds}s"
  # New inputs go to the work corpus; the seeds in the repository stay as they are.
  if ! ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
      "$build/fuzz/$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=8192 \
      -artifact_prefix="$build/findings/$name-" -print_final_stats=1 "$work" "$seeds" 2> "$build/$name.log"; then
    tail -n 60 "$build/$name.log"
    echo "FINDING in $name: see $build/$name.log and $build/findings/"
    status=1
  else
    grep -E '^stat::number_of_executed_units|^stat::peak_rss_mb' "$build/$name.log" || true
  fi
done
exit $status
