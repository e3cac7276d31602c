#!/usr/bin/env bash
# Builds and runs every test: the plain build (with its benchmarks' smoke run),
# then AddressSanitizer + UBSan, then ThreadSanitizer. GUI tests get a display
# from Xvfb.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
presets=(${DVENV2_PRESETS:-default asan tsan})
jobs=$(nproc)
for preset in "${presets[@]}"; do
  echo "=== $preset ==="
  cmake --preset "$preset" > /dev/null
  cmake --build --preset "$preset"
  # ThreadSanitizer's runtime of g++ 12 cannot map its shadow memory under the
  # kernel's full address-space randomisation; run it without randomisation.
  run=()
  [ "$preset" = tsan ] && run=(setarch "$(uname -m)" -R)
  "${run[@]}" xvfb-run -a -s '-screen 0 1280x1024x24' ctest --preset "$preset" -j "$jobs"
done
