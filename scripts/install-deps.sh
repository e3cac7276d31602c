#!/usr/bin/env bash
# Installs the Debian packages the project builds, tests and runs with. Only
# what is missing is installed; needs root (apt-get) the first time.
set -euo pipefail
packages=(
  build-essential cmake ninja-build pkg-config
  libfox-1.6-dev libboost-dev libboost-program-options-dev libcli11-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang-14 libclang-rt-14-dev xvfb xauth xdotool lldb-14 xdg-utils binutils locales man-db
  g++-mingw-w64-x86-64 wine64 wine
  liblldb-14-dev nlohmann-json3-dev python3
)
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then sudo=sudo; else sudo=; fi
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
