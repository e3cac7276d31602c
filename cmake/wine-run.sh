#!/usr/bin/env bash
# Runs a Windows program under Wine in the build tree's own prefix
# (build/windows/wine unless WINEPREFIX is set), quietly. The prefix and Wine's
# background processes are made once by scripts/wine-prefix.sh.
set -euo pipefail
export WINEARCH=win64 WINEDEBUG=${WINEDEBUG:--all}
export WINEPREFIX=${WINEPREFIX:-$(cd "$(dirname "$0")/.." && pwd)/build/windows/wine}
exec /usr/lib/wine/wine64 "$@"
