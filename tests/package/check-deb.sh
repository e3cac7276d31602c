#!/usr/bin/env bash
# Installs the packages of build/deb (scripts/package-deb.sh makes them),
# builds a consumer against them through find_package and through
# pkg-config, runs it (it must find the dialog program where the package put
# it), runs dvenv from /usr/bin, and removes the packages again.
set -euo pipefail
cd "$(dirname "$0")/../.."
if [ "$(id -u)" -ne 0 ]; then sudo=sudo; else sudo=; fi
packages=$(sed -n 's/^Package: //p' debian/control)
work=$(mktemp -d)
cleanup() {
  DEBIAN_FRONTEND=noninteractive $sudo apt-get remove -y -qq --purge $packages > /dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --reinstall ./build/deb/*.deb > /dev/null

helper=/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)/dvenv2/dvenv-ask
[ -x "$helper" ] || { echo "FAIL: no dialog program at $helper"; exit 1; }

cmake -S tests/package/consumer -B "$work/cmake" -G Ninja > /dev/null
cmake --build "$work/cmake" > /dev/null
"$work/cmake/consumer" "$helper"

# The pkg-config file's directories hold the headers and the library, and
# the system's own folders are dropped, as for Debian's own packages.
flags=$(pkg-config --cflags --libs dvenv2)
case " $flags " in
  *" -I/usr/include "*|*" -L/usr/lib/"*|*/../*) echo "FAIL: pkg-config gives the system's folders: $flags"; exit 1 ;;
esac
for flag in $flags; do
  case $flag in
    -I*) [ -e "$(realpath -m "${flag#-I}")/dv/env.h" ] || [ -e "${flag#-I}/fx.h" ] ||
           { echo "FAIL: pkg-config's $flag holds neither dv/env.h nor fx.h"; exit 1; } ;;
    -L*) [ -e "$(realpath -m "${flag#-L}")/libdvenv2.so" ] || { echo "FAIL: pkg-config's $flag holds no libdvenv2.so"; exit 1; } ;;
  esac
done
g++ -std=c++17 tests/package/consumer/main.cpp -o "$work/pkgconfig-consumer" $flags
"$work/pkgconfig-consumer" "$helper"

out=$(/usr/bin/dvenv version)
found=$(sed -n 's/^dialog program: //p' <<<"$out")
[ -n "$found" ] && [ "$(readlink -f "$found")" = "$(readlink -f "$helper")" ] ||
  { echo "FAIL: dvenv version said:"; echo "$out"; exit 1; }
man -w dvenv > /dev/null || { echo "FAIL: no manual page for dvenv"; exit 1; }
bash -c 'source /usr/share/bash-completion/completions/dvenv && complete -p dvenv' > /dev/null ||
  { echo "FAIL: no bash completion of dvenv"; exit 1; }
doc=/usr/share/doc/libdvenv2-dev
[ -e "$doc/README.md" ] || [ -e "$doc/README.md.gz" ] || { echo "FAIL: no README in $doc"; exit 1; }
examples=$(ls "$doc/examples/"*.cpp 2> /dev/null | wc -l)
[ "$examples" = "$(grep -c '^```cpp$' README.md)" ] || { echo "FAIL: $examples examples in $doc/examples"; exit 1; }
for example in "$doc/examples/"*-program.cpp; do
  g++ -std=c++17 "$example" -o "$work/example" $flags || { echo "FAIL: $example does not build"; exit 1; }
done
echo "installed packages ok"
