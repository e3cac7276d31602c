#!/usr/bin/env bash
# Builds the host tool and runs it with the given arguments:
#   bash scripts/dvenv.sh options
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh >&2
cmake --preset default > /dev/null
cmake --build --preset default --target dvenv > /dev/null
exec build/default/tools/dvenv/dvenv "$@"
