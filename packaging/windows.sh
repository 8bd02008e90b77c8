#!/usr/bin/env bash
# Creates a ZIP and an installer for 64-bit Windows, installs each in a new Wine prefix, and builds and runs programs
# with it: packaging/windows.sh. The results are below build/package/windows.
# VU_SIGN names a command that signs the file in its argument in place. It signs all programs and DLLs, the installer
# and the uninstaller.
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"
cd "$ROOT"

work=$BUILD/package/windows
toolchain=$ROOT/cmake/mingw-w64.toolchain.cmake
version=$(sed -n 's/^project(vu_storage VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
name=vu_storage-$version-win64
tree=$work/$name

# Much longer than a step takes; ends a program that hangs.
limit=(timeout -k 10 300)

build() {
  say "building the Windows library and client"
  quietly "$work/configure.log" "configuring" cmake --preset mingw
  quietly "$work/build.log" "building" cmake --build --preset mingw --parallel "$JOBS" --target vu_storage stgctl
}

# Copies the licence of a Debian package into the tree: licence_of <Debian package> <name of the file>
licence_of() {
  [ -r "/usr/share/doc/$1/copyright" ] || die "/usr/share/doc/$1/copyright is missing: install the Debian package $1"
  cp -L "/usr/share/doc/$1/copyright" "$tree/licences/$2.txt"
}

stage() {
  say "assembling the tree"
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
    [ -f "$tree/bin/$dll.dll" ] || die "$tree/bin/$dll.dll is missing: see $work/install.log"
  done
  sign_tree "$tree"
  local poco
  poco=$(cat "$DEPS/mingw/poco/version")
  python3 packaging/sbom.py write --kind windows --version "$version" --poco "$poco" "$tree" "$tree/vu_storage.spdx.json"
  python3 packaging/sbom.py check "$tree" "$tree/vu_storage.spdx.json"
}

# Signs the programs and DLLs of a tree with VU_SIGN. Without VU_SIGN they remain unsigned.
# sign_tree <folder>
sign_tree() {
  [ -n "${VU_SIGN-}" ] || return 0
  local file
  for file in "$1"/bin/*.exe "$1"/bin/*.dll; do
    "$VU_SIGN" "$file" || die "cannot sign $file: the command VU_SIGN ($VU_SIGN) failed"
  done
}

# make_installer <tree> <installer>
make_installer() {
  local -a sign=()
  [ -z "${VU_SIGN-}" ] || sign=(-DSIGN="\"$VU_SIGN\"")
  python3 packaging/windows_files.py "$1" "$work/files.nsh"
  # makensis leaves the installer when the command that signs it fails.
  (quietly "$work/nsis.log" "creating the installer" makensis -V2 -WX -DVERSION="$version" -DTREE="$1" \
    -DLIST="$work/files.nsh" -DOUTPUT="$2" "${sign[@]}" packaging/windows.nsi) || {
    rm -f "$2"
    exit 1
  }
}

pack() {
  rm -f "$work/$name.zip" "$work/$name-setup.exe"
  say "the ZIP"
  (cd "$work" && zip -q -X -r "$name.zip" "$name") || die "cannot create $work/$name.zip: see above"
  say "the installer"
  make_installer "$tree" "$work/$name-setup.exe"
  python3 packaging/windows_pe.py "$version" "$tree"/bin/{vu_storage.dll,stgctl.exe} "$work/$name-setup.exe"
}

. "$ROOT/packaging/windows-try.sh"
mkdir -p "$work"
build
stage
pack
try_zip
try_installer
try_signing
try_failing_signer
end_wine
rm -rf "$work"/wine-zip "$work"/wine-installer "$work"/wine-signed "$work/signing"
say "Windows packages: $work/$name.zip, $work/$name-setup.exe${VU_SIGN:+, signed by $VU_SIGN}"
