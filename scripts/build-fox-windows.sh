#!/usr/bin/env bash
# Builds FOX 1.6.57 for 64-bit Windows (MinGW-w64, static library) from
# Debian's source package, once, into DIR (default build/windows-deps/fox).
# Nothing else is fetched: the source archive is Debian's own, checked
# against its .dsc by apt-get source.
#   scripts/build-fox-windows.sh [DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
version=1.6.57
debian_version=1.6.57-1
prefix=$(realpath -m "${1:-build/windows-deps/fox}")
[ -f "$prefix/lib/libFOX-1.6.a" ] && [ -f "$prefix/.version-$version" ] && exit 0

work=$(realpath -m "$prefix/../fox-source")
rm -rf "$work"
mkdir -p "$work/apt/lists/partial" "$work/apt/cache/archives/partial" "$work/apt/sources"
# The system has no deb-src entry: apt gets a private one, from the system's
# own Debian entry.
sed -e 's/^Types: deb$/Types: deb-src/' /etc/apt/sources.list.d/debian.sources > "$work/apt/sources/debian.sources"
apt_options=(-o "Dir::Etc::SourceParts=$work/apt/sources" -o "Dir::Etc::SourceList=/dev/null"
             -o "Dir::State::Lists=$work/apt/lists" -o "Dir::Cache=$work/apt/cache")
apt-get "${apt_options[@]}" update -qq
# Debian's patch tarball is gone from the archive (404) and the upstream
# source builds without it, so apt's failure on it is passed over; the
# upstream tarball is then checked against the .dsc here.
(cd "$work" && apt-get "${apt_options[@]}" source --download-only -qq "fox1.6=$debian_version" 2> /dev/null) || true
orig=fox1.6_"$version".orig.tar.gz
[ -f "$work/$orig" ] && [ -f "$work/fox1.6_$debian_version.dsc" ] || { echo "FOX $debian_version: no source from Debian's archive" >&2; exit 1; }
expected=$(sed -n '/^Checksums-Sha256:/,/^[^ ]/p' "$work/fox1.6_$debian_version.dsc" | awk -v f="$orig" '$3 == f {print $1}')
actual=$(sha256sum "$work/$orig" | cut -d' ' -f1)
[ -n "$expected" ] && [ "$expected" = "$actual" ] || { echo "FOX $debian_version: $orig does not match its .dsc" >&2; exit 1; }
tar -xzf "$work/$orig" -C "$work"
source_dir=$(find "$work" -maxdepth 1 -type d -name "fox*-$version" | head -1)

cd "$source_dir"
./configure -q --host=x86_64-w64-mingw32 --build=x86_64-pc-linux-gnu \
  CC=x86_64-w64-mingw32-gcc-posix CXX=x86_64-w64-mingw32-g++-posix CXXFLAGS="-O2 -w" \
  --prefix="$prefix" --enable-static --disable-shared --without-x --without-xft --without-opengl \
  --disable-jpeg --disable-png --disable-tiff --disable-zlib --disable-bz2lib --without-xshm \
  --without-shape --without-xcursor --without-xrender --without-xrandr --without-xfixes --without-xinput
# FOX's own sources give thousands of warnings; they go to a log, shown only
# if the build fails.
{ make -s -j"$(nproc)" -C src && make -s -C include install && make -s -C src install; } > "$work/build.log" 2>&1 \
  || { tail -n 50 "$work/build.log" >&2; echo "FOX $version: the build failed (log: $work/build.log)" >&2; exit 1; }
touch "$prefix/.version-$version"
rm -rf "$work"
echo "FOX $version for Windows in $prefix"
