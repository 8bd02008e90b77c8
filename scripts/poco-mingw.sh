#!/usr/bin/env bash
# Builds POCO Foundation as a static library for 64-bit Windows, once: scripts/poco-mingw.sh <mingw-w64|mingw-ucrt>
# The argument names a toolchain in cmake/. The result is in build/deps/mingw/poco or build/deps/mingw-ucrt/poco.
# Debian has no such package, so this builds Debian's source package. Its original archive contains PCRE and zlib,
# which Windows lacks.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

name=${1:?mingw-w64 or mingw-ucrt}
base=$ROOT/cmake/mingw-w64.toolchain.cmake
toolchain=$ROOT/cmake/$name.toolchain.cmake
folder=$DEPS/${name%-w64}
compiler=x86_64-w64-mingw32-g++-posix
[ "$name" != mingw-ucrt ] || compiler=x86_64-w64-mingw32ucrt-g++
prefix=$folder/poco
work=$folder/poco.work
stamp=$prefix/.complete
joined=$ROOT/cmake/poco-joined.cmake
key="$("$compiler" -dumpfullversion) $(content_key "$base" "$toolchain" "$joined" "${BASH_SOURCE[0]}" "$ROOT/scripts/debian-source.sh")"

is_complete() { [ "$(cat "$stamp" 2>/dev/null)" = "$key" ]; }

is_complete && exit 0
enter_step poco
is_complete && exit 0

say "POCO Foundation for Windows, $name (once, about a minute)"
rm -rf "$work"
mkdir -p "$work/source" "$work/shims"
# Not every server keeps the sources of this Debian release. Those of Debian 12 work as well.
if ! "$ROOT/scripts/debian-source.sh" poco "$work/fetched" 2>"$work/fetch.log"; then
  say "note: cannot fetch this Debian's source package of POCO; Debian 12's source package is used"
  rm -rf "$work/fetched"
  "$ROOT/scripts/debian-source.sh" poco "$work/fetched" bookworm
fi

archive=$(find "$work/fetched" -name 'poco_*.orig.tar.*' ! -name '*.asc' | head -n 1)
[ -n "$archive" ] || die "no poco_*.orig.tar.* in Debian's source package of POCO: $(ls "$work/fetched")"
tar -xf "$archive" -C "$work/source" --strip-components=1

version=$(sed -n 's/^Version: //p' "$work"/fetched/poco_*.dsc | grep -m 1 '^[0-9]')
[ -n "$version" ] || die "no version in Debian's source package of POCO: $(ls "$work/fetched")"

# Only Debian's security patches apply here. Its other patches are for its shared libraries.
patches=$(find "$work/fetched" -name 'poco_*.debian.tar.*' | head -n 1)
tar -xf "$patches" -C "$work"
for patch in "$work"/debian/patches/*CVE*; do
  [ ! -e "$patch" ] ||
    quietly "$work/patch.log" "the patch $(basename "$patch")" patch -d "$work/source" -p1 -i "$patch"
done

# POCO spells some system headers with capitals. Only a case-insensitive file system finds those names.
while read -r spelled real; do
  echo "#include <$real>" >"$work/shims/$spelled"
done <<'SHIMS'
Windows.h windows.h
Winsock2.h winsock2.h
WinSock2.h winsock2.h
Ws2tcpip.h ws2tcpip.h
WS2tcpip.h ws2tcpip.h
Iphlpapi.h iphlpapi.h
Mswsock.h mswsock.h
Wincrypt.h wincrypt.h
Shlobj.h shlobj.h
SHIMS

# POCO_UNBUNDLED is off: CMake must not search for the third-party libraries that are bundled.
# The inner quotation marks are for the shell of the build: the path may contain a blank.
# configure_poco <further definitions...>
configure_poco() {
  rm -rf "$work/build"
  cmake -S "$work/source" -B "$work/build" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
  -DCMAKE_INSTALL_PREFIX="$work/prefix" \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O1 -DNDEBUG" -DCMAKE_C_FLAGS_RELEASE="-O1 -DNDEBUG" \
  -DCMAKE_C_FLAGS="-w -I\"$work/shims\"" -DCMAKE_CXX_FLAGS="-w -I\"$work/shims\" -D_WIN32_WINNT=0x0A00" \
  -DBUILD_SHARED_LIBS=OFF -DPOCO_UNBUNDLED=OFF -DENABLE_TESTS=OFF -DENABLE_FOUNDATION=ON \
  -DENABLE_ENCODINGS=OFF -DENABLE_ENCODINGS_COMPILER=OFF -DENABLE_XML=OFF -DENABLE_JSON=OFF \
  -DENABLE_MONGODB=OFF -DENABLE_REDIS=OFF -DENABLE_PDF=OFF -DENABLE_UTIL=OFF -DENABLE_NET=OFF \
  -DENABLE_NETSSL=OFF -DENABLE_NETSSL_WIN=OFF -DENABLE_CRYPTO=OFF -DENABLE_JWT=OFF \
  -DENABLE_DATA=OFF -DENABLE_DATA_SQLITE=OFF -DENABLE_DATA_MYSQL=OFF \
  -DENABLE_DATA_POSTGRESQL=OFF -DENABLE_DATA_ODBC=OFF -DENABLE_ACTIVERECORD=OFF \
  -DENABLE_ACTIVERECORD_COMPILER=OFF -DENABLE_SEVENZIP=OFF -DENABLE_ZIP=OFF \
  -DENABLE_APACHECONNECTOR=OFF -DENABLE_CPPPARSER=OFF -DENABLE_POCODOC=OFF \
  -DENABLE_PAGECOMPILER=OFF -DENABLE_PAGECOMPILER_FILE2PAGE=OFF "$@"
}
build_poco() { cmake --build "$work/build" --parallel "$JOBS"; }
build_joined() {
  configure_poco -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=12 -DCMAKE_PROJECT_INCLUDE="$joined" &&
    build_poco
}
# Joined sources compile faster. Another version may have sources that cannot be joined.
if ! build_joined >"$work/joined.log" 2>&1; then
  quietly "$work/configure.log" "configuring POCO" configure_poco
  quietly "$work/build.log" "building POCO" build_poco
fi
quietly "$work/install.log" "installing POCO" cmake --install "$work/build" --strip

# POCO's public headers include some of these as well.
cp "$work"/shims/* "$work/prefix/include/"

# For the list of third-party software in a package.
echo "$version" >"$work/prefix/version"

# The new folder replaces the old one last, with its stamp inside, so that an interrupted run leaves no half result.
echo "$key" >"$work/prefix/.complete"
rm -rf "$prefix"
mv "$work/prefix" "$prefix"
rm -rf "$work"
