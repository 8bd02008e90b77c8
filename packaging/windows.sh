#!/usr/bin/env bash
# Makes a ZIP and an installer for 64-bit Windows, puts each into a fresh Wine, and builds and runs programs
# against what is there: packaging/windows.sh. Everything is below build/package/windows.
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"
cd "$ROOT"

work=$BUILD/package/windows
toolchain=$ROOT/cmake/mingw-w64.toolchain.cmake
version=$(sed -n 's/^project(vu_storage VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
name=vu_storage-$version-win64
tree=$work/$name

# Far more than a step takes; a program that hangs must not hang the caller.
limit=(timeout -k 10 300)

build() {
  say "building the Windows library and client"
  quietly "$work/configure.log" "configuring" cmake --preset mingw
  quietly "$work/build.log" "building" cmake --build --preset mingw --parallel "$JOBS" --target vu_storage stgctl
}

# licence_of <Debian package> <name of the file>
licence_of() {
  [ -r "/usr/share/doc/$1/copyright" ] || die "the licence of $1 is not in /usr/share/doc/$1"
  cp -L "/usr/share/doc/$1/copyright" "$tree/licences/$2.txt"
}

stage() {
  say "putting the tree together"
  rm -rf "$tree"
  mkdir -p "$tree/licences" "$tree/examples"
  quietly "$work/install.log" "installing" cmake --install build/mingw --prefix "$tree" --strip
  scripts/docs.sh "$work/site"
  cp -r "$work/site" "$tree/doc"
  local example
  for example in custom_trace_sink hello hello_classes host_minimal locked_document read_document store_versions sub_parts_and_preload two_processes; do
    cp "examples/$example.cpp" "$tree/examples/"
  done
  cp packaging/README-windows.txt "$tree/README.txt"
  sed -i 's/$/\r/' "$tree/README.txt"
  licence_of libpoco-dev poco
  licence_of libutfcpp-dev utfcpp
  licence_of libcli11-dev cli11
  licence_of nlohmann-json3-dev nlohmann-json
  licence_of libfmt-dev fmt
  licence_of libxxhash-dev xxhash
  licence_of gcc-mingw-w64-x86-64-posix-runtime gcc-runtime
  licence_of mingw-w64-x86-64-dev mingw-w64
  licence_of doxygen doxygen-jquery
  cp /usr/share/common-licenses/GPL-3 "$tree/licences/GPL-3.txt"
  local dll
  for dll in vu_storage libstdc++-6 libgcc_s_seh-1 libwinpthread-1; do
    [ -f "$tree/bin/$dll.dll" ] || die "$dll.dll is not in the tree"
  done
  python3 packaging/sbom.py write --kind windows --version "$version" "$tree" "$tree/vu_storage.spdx.json"
  python3 packaging/sbom.py check "$tree" "$tree/vu_storage.spdx.json"
}

pack() {
  rm -f "$work/$name.zip" "$work/$name-setup.exe"
  say "the ZIP"
  (cd "$work" && zip -q -X -r "$name.zip" "$name") || die "the ZIP could not be made"
  say "the installer"
  quietly "$work/nsis.log" "making the installer" makensis -V2 -WX -DVERSION="$version" -DTREE="$tree" \
    -DOUTPUT="$work/$name-setup.exe" packaging/windows.nsi
}

# ---- a fresh Windows each -----------------------------------------------------------------------------

prefix=""
end_wine() { [ -z "$prefix" ] || WINEPREFIX=$prefix wineserver -k 2>/dev/null || true; }
trap end_wine EXIT

fresh_wine() {
  end_wine
  prefix=$work/wine-$1
  rm -rf "$prefix"
  mkdir -p "$prefix"
  . "$ROOT/scripts/wine-env.sh"
  export WINEPREFIX=$prefix
  quietly "$work/wine-$1.log" "making a fresh Wine prefix" "${limit[@]}" wine wineboot -i
  # The server outlives the programs; until it is ended it must not hold this script's output.
  wineserver -w
}

# Until the last process of it has ended: an installer may start another one and leave.
in_wine() {
  local code=0
  "${limit[@]}" wine "$@" </dev/null || code=$?
  wineserver -w
  return "$code"
}

# try_tree <where it is, below drive C> : a client and programs that know nothing but this tree.
try_tree() {
  local at=$prefix/drive_c/$1 kind
  [ "$(in_wine "$at/bin/stgctl.exe" --version | tr -d '\r')" = "stgctl $version" ] ||
    die "stgctl in $at does not tell version $version"
  for kind in cmake command-line c; do
    cmake -D KIND=$kind -D COMPILER=x86_64-w64-mingw32-g++-posix -D "TOOLCHAIN=$toolchain" \
      -D "PREFIX=$at" -D "RUNTIME=$at/bin" -D "EMULATOR=wine" -D "SCRATCH=$work/consumer" \
      -P tests/consumer/run.cmake || die "a program ($kind) does not work with $at"
  done
  [ -f "$at/doc/index.html" ] || die "the documentation is not in $at"
}

try_zip() {
  say "the ZIP in a fresh Wine"
  fresh_wine zip
  (cd "$prefix/drive_c" && unzip -q "$work/$name.zip") || die "the ZIP cannot be unpacked"
  try_tree "$name"
}

try_installer() {
  say "the installer in a fresh Wine"
  fresh_wine installer
  local at="$prefix/drive_c/Program Files/vu_storage"
  in_wine "$work/$name-setup.exe" /S || die "the installer failed"
  [ -f "$at/bin/vu_storage.dll" ] || die "the installer did not install"
  in_wine reg query 'HKLM\Software\vu_storage' /v Version /reg:64 | grep -q "$version" ||
    die "the installer did not enter the version"
  diff -r --exclude=uninstall.exe "$tree" "$at" || die "the installer installs something else than the tree"
  try_tree "Program Files/vu_storage"
  mkdir "$at/tree of somebody"
  # With _? it works where it is, so that its end can be waited for.
  in_wine "$at/uninstall.exe" /S "_?=C:\\Program Files\\vu_storage" || die "the uninstaller failed"
  [ ! -e "$at/bin" ] && [ ! -e "$at/vu_storage.spdx.json" ] || die "the uninstaller leaves files behind"
  [ -d "$at/tree of somebody" ] || die "the uninstaller removed what it had not installed"
}

mkdir -p "$work"
build
stage
pack
try_zip
try_installer
end_wine
rm -rf "$work"/wine-zip "$work"/wine-installer
say "Windows packages: $work/$name.zip, $work/$name-setup.exe"
