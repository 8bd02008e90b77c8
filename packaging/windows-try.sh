# Tests the ZIP and the installer for Windows, each in a new Wine prefix; sourced by packaging/windows.sh, which sets
# `work`, `name`, `tree`, `version`, `toolchain` and `limit`.

prefix=""
end_wine() { [ -z "$prefix" ] || WINEPREFIX=$prefix wineserver -k 2>/dev/null || true; }
trap end_wine EXIT

fresh_wine() {
  end_wine
  prefix=$work/wine-$1
  rm -rf "$prefix"
  mkdir -p "$prefix"
  . "$ROOT/scripts/wine.sh"
  export WINEPREFIX=$prefix
  quietly "$work/wine-$1.log" "creating a new Wine prefix" "${limit[@]}" wine wineboot -i
  # Wait until the server ends: it inherited the output of this script.
  wineserver -w
}

# Runs a program and waits for all its processes: an installer may start another process and exit.
in_wine() {
  local code=0
  "${limit[@]}" wine "$@" </dev/null || code=$?
  wineserver -w
  return "$code"
}

# ---- the tree -----------------------------------------------------------------------------------------

# try_tree <folder>: runs the client, and builds and runs programs that use only this tree.
try_tree() {
  local at=$1 kind
  [ "$(in_wine "$at/bin/stgctl.exe" --version | tr -d '\r')" = "stgctl $version" ] ||
    die "'stgctl --version' of $at does not print $version"
  for kind in cmake command-line c; do
    cmake -D KIND=$kind -D COMPILER=x86_64-w64-mingw32-g++-posix -D "TOOLCHAIN=$toolchain" \
      -D "PREFIX=$at" -D "RUNTIME=$at/bin" -D "EMULATOR=wine" -D "SCRATCH=$work/consumer" \
      -P tests/consumer/run.cmake || die "the program '$kind' of tests/consumer does not work with $at: see above"
  done
  [ -f "$at/doc/index.html" ] || die "$at lacks the documentation: doc/index.html is missing"
}

# ---- planted DLLs -------------------------------------------------------------------------------------

# Builds a DLL that creates the file C:\planted when it is loaded.
make_plant() {
  cat >"$work/plant.c" <<'C'
#include <windows.h>
BOOL WINAPI DllMain(HINSTANCE self, DWORD reason, void *reserved) {
  (void)self, (void)reserved;
  if (reason == DLL_PROCESS_ATTACH)
    CloseHandle(CreateFileA("C:\\planted", GENERIC_WRITE, 0, 0, OPEN_ALWAYS, 0, 0));
  return TRUE;
}
C
  x86_64-w64-mingw32-gcc-posix -shared -o "$work/plant.dll" "$work/plant.c" || die "cannot build $work/plant.dll: see above"
}

# plant <folder> <DLL...>
plant() {
  local folder=$1 dll
  shift
  mkdir -p "$folder"
  for dll in "$@"; do cp "$work/plant.dll" "$folder/$dll"; done
  rm -f "$prefix/drive_c/planted"
}

# DLLs that the client needs, and other names that are common in attacks with planted DLLs.
planted_dlls=(vu_storage.dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll iphlpapi.dll ws2_32.dll
  version.dll uxtheme.dll dwmapi.dll profapi.dll cryptbase.dll shfolder.dll propsys.dll userenv.dll)

# The installer must not load a DLL from its own folder, and the client must not load one from the current folder.
try_planting() {
  local at=$prefix/drive_c/planting current=$prefix/drive_c/current code=0
  say "planted DLLs"
  make_plant
  plant "$current" "${planted_dlls[@]}"
  cp "$work/$name-setup.exe" "$current/"
  (cd "$current" && in_wine "C:\\current\\$name-setup.exe" /S '/D=C:\planting') ||
    die "the installer fails in a folder with planted DLLs: see above"
  [ ! -e "$prefix/drive_c/planted" ] || die "the installer loads a DLL from its folder"
  (cd "$current" && in_wine "$at/bin/stgctl.exe" --version >/dev/null) ||
    die "stgctl does not start in a folder with planted DLLs: see above"
  [ ! -e "$prefix/drive_c/planted" ] || die "stgctl loads a DLL from the current folder"
  # A check of this test: a client without its own DLLs must load the planted ones.
  mkdir -p "$prefix/drive_c/alone"
  cp "$at/bin/stgctl.exe" "$prefix/drive_c/alone/"
  (cd "$current" && in_wine 'C:\alone\stgctl.exe' --version >/dev/null 2>&1) || code=$?
  [ -e "$prefix/drive_c/planted" ] || die "this test detects no planted DLL (stgctl ended with $code): correct the test"
  in_wine "$at/uninstall.exe" /S || die "the uninstaller failed"
}

# ---- the installer ------------------------------------------------------------------------------------

readonly environment_of_user='HKCU\Environment'
readonly environment_of_machine='HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment'

path_of() { in_wine reg query "$1" /v Path 2>/dev/null | tr -d '\r' | sed -nE 's/^ *Path +(REG_[A-Z_]+) *(.*)/\1 \2/p'; }

# Prints the state of the machine: names of files and values of the registry.
snapshot() {
  local key
  (cd "$prefix/drive_c" && find . -path ./windows/temp -prune -o -path './users/*/Temp' -prune -o -print | sort)
  for key in 'HKCU\Software' 'HKLM\Software' "$environment_of_user" "$environment_of_machine"; do
    # Omits the values that Wine itself writes.
    in_wine reg query "$key" /s /reg:64 2>/dev/null | tr -d '\r' | grep -v -i -e 'RunMRU' -e 'Explorer' -e 'Software\\Wine' -e '^$'
  done
}

# try_for <what> <folder below drive C> <root of the registry> <key of PATH> <arguments...>
# Installs, installs again over it, checks the result, uninstalls. Afterwards the state of the machine must be as
# before, including a PATH that is longer than a string of NSIS.
try_for() {
  local what=$1 below=$2 root=$3 environment=$4 at before after
  shift 4
  at=$prefix/drive_c/$below
  say "the installer for $what"
  snapshot >"$work/before-$what"
  before=$(path_of "$environment")
  in_wine "$work/$name-setup.exe" /S /Path "$@" || die "the installer for $what failed"
  in_wine "$work/$name-setup.exe" /S "$@" || die "the installer for $what failed over an older installation"
  in_wine reg query "$root\\Software\\vu_storage" /v Version /reg:64 | grep -q "$version" ||
    die "the installer for $what did not write the version to the registry"
  in_wine reg query "$root\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\vu_storage" /reg:64 |
    grep -q "DisplayName.*vu_storage $version" || die "the installer for $what did not register the uninstaller"
  diff -r --exclude=uninstall.exe "$tree" "$at" || die "the installer for $what did not install exactly the tree: see above"
  after=$(path_of "$environment")
  [ "$after" = "$before;C:\\${below//\//\\}\\bin" ] || die "PATH is not the old value plus the folder; it ends with: ${after: -300}"
  python3 packaging/windows_pe.py "$version" "$at/uninstall.exe"
  [ "$what" = user ] || try_tree "$at"
  in_wine "$at/uninstall.exe" /S || die "the uninstaller for $what failed"
  snapshot >"$work/after-$what"
  diff "$work/before-$what" "$work/after-$what" || die "the uninstaller for $what did not restore the old state: see above"
}

# The uninstaller must keep the user's own files and folders in the installation folder.
try_own_files() {
  local at="$prefix/drive_c/place"
  in_wine "$work/$name-setup.exe" /S '/D=C:\place' || die "the installer failed with /D=C:\\place"
  mkdir "$at/tree of somebody"
  echo mine >"$at/bin/my.ini"
  in_wine "$at/uninstall.exe" /S || die "the uninstaller failed"
  (cd "$at" && find . -type f) | diff - <(echo ./bin/my.ini) || die "the uninstaller must leave only the user's file: see above"
  [ -d "$at/tree of somebody" ] || die "the uninstaller removed a folder of the user"
}

try_zip() {
  say "testing the ZIP in a new Wine prefix"
  fresh_wine zip
  (cd "$prefix/drive_c" && unzip -q "$work/$name.zip") || die "cannot unpack $work/$name.zip: see above"
  try_tree "$prefix/drive_c/$name"
}

try_installer() {
  say "testing the installer in a new Wine prefix"
  fresh_wine installer
  local user long
  user=$(cd "$prefix/drive_c/users" && ls -d -- */AppData | head -n 1)
  long=$(seq -s ';' -f 'C:\folder%04g\with a long name' 200)
  in_wine reg add "$environment_of_user" /v Path /t REG_EXPAND_SZ /d "$long" /f >/dev/null
  try_for user "users/$user/Local/Programs/vu_storage" HKCU "$environment_of_user"
  in_wine reg add "$environment_of_machine" /v Path /t REG_EXPAND_SZ /d "%SystemRoot%\\system32;$long" /f >/dev/null
  try_for machine "Program Files/vu_storage" HKLM "$environment_of_machine" /AllUsers
  try_own_files
  try_planting
}

# ---- signatures ---------------------------------------------------------------------------------------

# There must be no installer when the command fails for the uninstaller (its first call) or for the installer.
try_failing_signer() {
  local call
  say "testing a command that cannot sign"
  for call in 1 2; do
    rm -rf "$work/signing"
    mkdir -p "$work/signing"
    cat >"$work/signing/sign" <<SIGN
#!/bin/sh
echo "\$1" >>"$work/signing/calls"
[ "\$(wc -l <"$work/signing/calls")" != $call ]
SIGN
    chmod +x "$work/signing/sign"
    ! (VU_SIGN=$work/signing/sign make_installer "$tree" "$work/signing/$name-setup.exe") >"$work/signing/log" 2>&1 ||
      die "the installer is created although signing failed in call $call"
    [ "$(wc -l <"$work/signing/calls")" = $call ] || die "the command that signs was not called $call times: see $work/signing/log"
    [ ! -e "$work/signing/$name-setup.exe" ] || die "an unsigned installer remains: $work/signing/$name-setup.exe"
  done
}

# A release is signed by the command in VU_SIGN. This test creates an untrusted, temporary certificate instead.
try_signing() {
  say "testing a signed installer, with a temporary certificate"
  local signing=$work/signing at file
  rm -rf "$signing"
  mkdir -p "$signing"
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj '/CN=A trial' -addext extendedKeyUsage=codeSigning \
    -keyout "$signing/key.pem" -out "$signing/cert.pem" 2>"$signing/openssl.log" || die "cannot create a certificate: see $signing/openssl.log"
  cat >"$signing/sign" <<SIGN
#!/bin/sh -e
osslsigncode sign -certs "$signing/cert.pem" -key "$signing/key.pem" -h sha256 -n vu_storage -in "\$1" -out "\$1.signed" >>"$signing/sign.log"
mv "\$1.signed" "\$1"
SIGN
  chmod +x "$signing/sign"
  cp -r "$tree" "$signing/tree"
  VU_SIGN=$signing/sign sign_tree "$signing/tree"
  VU_SIGN=$signing/sign make_installer "$signing/tree" "$signing/$name-setup.exe"
  fresh_wine signed
  at=$prefix/drive_c/signed
  in_wine "$signing/$name-setup.exe" /S '/D=C:\signed' || die "the signed installer failed"
  for file in "$signing/$name-setup.exe" "$at"/uninstall.exe "$at"/bin/*.exe "$at"/bin/*.dll; do
    osslsigncode verify -CAfile "$signing/cert.pem" -in "$file" >"$signing/verify.log" 2>&1 ||
      die "$file has no valid signature: see $signing/verify.log"
  done
  [ "$(in_wine "$at/bin/stgctl.exe" --version | tr -d '\r')" = "stgctl $version" ] || die "the signed stgctl does not start"
  in_wine "$at/uninstall.exe" /S || die "the signed uninstaller failed"
  [ ! -e "$at" ] || die "the signed uninstaller left files in $at"
  say "signed and verified: the installer, the uninstaller, $(ls "$signing"/tree/bin/*.exe "$signing"/tree/bin/*.dll | wc -l) programs and DLLs"
}
