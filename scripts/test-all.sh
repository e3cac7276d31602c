#!/usr/bin/env bash
# Builds and runs every test: the plain build (with its benchmarks' smoke run),
# then AddressSanitizer + UBSan, then ThreadSanitizer, then the Windows build
# under Wine (DVENV2_PRESETS=windows runs that alone), then the Debian
# packages (scripts/package-deb.sh, tests/package/check-deb.sh), then the fuzz
# targets (scripts/fuzz.sh). GUI tests get a display from Xvfb.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
presets=(${DVENV2_PRESETS:-default asan tsan windows})
jobs=$(nproc)
for preset in "${presets[@]}"; do
  echo "=== $preset ==="
  if [ "$preset" = windows ]; then
    # Cross-built with MinGW-w64 against FOX 1.6.57 (built once into the
    # build tree), tested under Wine inside Xvfb.
    bash scripts/build-fox-windows.sh
    cmake --preset windows > /dev/null
    cmake --build --preset windows
    xvfb-run -a -s '-screen 0 1280x1024x24 -noreset' \
      bash -c 'bash scripts/wine-prefix.sh && ctest --preset windows -j "$1"; status=$?; WINEPREFIX=$PWD/build/windows/wine /usr/lib/wine/wineserver -k; exit $status' \
      sh "$jobs"
    continue
  fi
  cmake --preset "$preset" > /dev/null
  cmake --build --preset "$preset"
  # ThreadSanitizer's runtime of g++ 12 cannot map its shadow memory under the
  # kernel's full address-space randomisation; run it without randomisation.
  run=()
  [ "$preset" = tsan ] && run=(setarch "$(uname -m)" -R)
  # -noreset: by default the server resets whenever its last client leaves,
  # and refuses the clients that arrive meanwhile.
  "${run[@]}" xvfb-run -a -s '-screen 0 1280x1024x24 -noreset' ctest --preset "$preset" -j "$jobs"
done
# The Debian packages: built (the plain tests run inside), checked by lintian,
# installed and used (DVENV2_DEB=0 skips this).
if [ "${DVENV2_DEB:-1}" != 0 ]; then
  echo "=== debian packages ==="
  bash scripts/package-deb.sh
  bash tests/package/check-deb.sh
fi
# Then each fuzz target for about a minute (DVENV2_FUZZ_SECONDS=0 skips this).
if [ "${DVENV2_FUZZ_SECONDS:-60}" != 0 ]; then
  echo "=== fuzz ==="
  bash scripts/fuzz.sh
fi
