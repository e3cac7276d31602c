#!/usr/bin/env bash
# Builds the Debian packages (dpkg-buildpackage, which runs the plain tests
# under Xvfb), puts them into build/deb/ and checks them with lintian.
# Installs what the build needs (debian/control's Build-Depends) first.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" -ne 0 ]; then sudo=sudo; else sudo=; fi
tools=(dpkg-dev debhelper fakeroot lintian)
missing=()
for package in "${tools[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
if ! dpkg-checkbuilddeps > /dev/null 2>&1 || [ ${#missing[@]} -gt 0 ]; then
  $sudo apt-get update -qq
  [ ${#missing[@]} -eq 0 ] || DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
  DEBIAN_FRONTEND=noninteractive $sudo apt-get build-dep -y -qq ./
fi

dpkg-buildpackage -us -uc -b
version=$(dpkg-parsechangelog -S Version)
rm -rf build/deb && mkdir -p build/deb
for package in $(sed -n 's/^Package: //p' debian/control); do
  mv "../${package}_${version}_"*.deb build/deb/
done
mv "../dvenv2_${version}_"*.{buildinfo,changes} build/deb/
lintian --fail-on error,warning --info build/deb/*.deb
echo "packages in build/deb:"; ls build/deb/*.deb
