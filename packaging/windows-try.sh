# Tries the ZIP and the installer for Windows, each in a fresh Wine; sourced by packaging/windows.sh, which sets
# `work`, `name`, `tree`, `version`, `toolchain` and `limit`.

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

# ---- the tree -----------------------------------------------------------------------------------------

# try_tree <folder> : a client and programs that know nothing but this tree.
try_tree() {
  local at=$1 kind
  [ "$(in_wine "$at/bin/stgctl.exe" --version | tr -d '\r')" = "stgctl $version" ] ||
    die "stgctl in $at does not tell version $version"
  for kind in cmake command-line c; do
    cmake -D KIND=$kind -D COMPILER=x86_64-w64-mingw32-g++-posix -D "TOOLCHAIN=$toolchain" \
      -D "PREFIX=$at" -D "RUNTIME=$at/bin" -D "EMULATOR=wine" -D "SCRATCH=$work/consumer" \
      -P tests/consumer/run.cmake || die "a program ($kind) does not work with $at"
  done
  [ -f "$at/doc/index.html" ] || die "the documentation is not in $at"
}

# ---- DLLs of strangers --------------------------------------------------------------------------------

# make_plant : a DLL that leaves a file behind when it is loaded.
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
  x86_64-w64-mingw32-gcc-posix -shared -o "$work/plant.dll" "$work/plant.c" || die "the planted DLL cannot be made"
}

# plant <folder> <DLL...>
plant() {
  local folder=$1 dll
  shift
  mkdir -p "$folder"
  for dll in "$@"; do cp "$work/plant.dll" "$folder/$dll"; done
  rm -f "$prefix/drive_c/planted"
}

# What the client needs, and what others have been fooled by.
planted_dlls=(vu_storage.dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll iphlpapi.dll ws2_32.dll
  version.dll uxtheme.dll dwmapi.dll profapi.dll cryptbase.dll shfolder.dll propsys.dll userenv.dll)

# Nothing that lies beside the installer becomes part of that, and nothing in the current folder part of the client.
try_planting() {
  local at=$prefix/drive_c/planting current=$prefix/drive_c/current code=0
  say "DLLs of strangers"
  make_plant
  plant "$current" "${planted_dlls[@]}"
  cp "$work/$name-setup.exe" "$current/"
  (cd "$current" && in_wine "C:\\current\\$name-setup.exe" /S '/D=C:\planting') ||
    die "the installer fails in a folder with DLLs of others"
  [ ! -e "$prefix/drive_c/planted" ] || die "the installer loads a DLL from its folder"
  (cd "$current" && in_wine "$at/bin/stgctl.exe" --version >/dev/null) ||
    die "stgctl does not start in a folder with DLLs of others"
  [ ! -e "$prefix/drive_c/planted" ] || die "stgctl loads a DLL from the current folder"
  # What would be seen: a client without its own DLLs takes those.
  mkdir -p "$prefix/drive_c/alone"
  cp "$at/bin/stgctl.exe" "$prefix/drive_c/alone/"
  (cd "$current" && in_wine 'C:\alone\stgctl.exe' --version >/dev/null 2>&1) || code=$?
  [ -e "$prefix/drive_c/planted" ] || die "the trial of planted DLLs sees nothing (stgctl ended with $code)"
  in_wine "$at/uninstall.exe" /S || die "the uninstaller failed"
}

# ---- the installer ------------------------------------------------------------------------------------

readonly environment_of_user='HKCU\Environment'
readonly environment_of_machine='HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment'

path_of() { in_wine reg query "$1" /v Path 2>/dev/null | tr -d '\r' | sed -nE 's/^ *Path +(REG_[A-Z_]+) *(.*)/\1 \2/p'; }

# All that a user or a machine has: names of files, values of the registry.
snapshot() {
  local key
  (cd "$prefix/drive_c" && find . -path ./windows/temp -prune -o -path './users/*/Temp' -prune -o -print | sort)
  for key in 'HKCU\Software' 'HKLM\Software' "$environment_of_user" "$environment_of_machine"; do
    # What Wine writes for itself is not ours.
    in_wine reg query "$key" /s /reg:64 2>/dev/null | tr -d '\r' | grep -v -i -e 'RunMRU' -e 'Explorer' -e 'Software\\Wine' -e '^$'
  done
}

# try_for <what> <folder, as Wine has it below drive C> <root of the registry> <key of PATH> <arguments...>
# Installs, looks, installs over it, removes; afterwards everything must be as before, a PATH beyond what
# NSIS can hold included, and somebody's own files must lie where he has put them.
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
    die "the installer for $what did not enter the version"
  in_wine reg query "$root\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\vu_storage" /reg:64 |
    grep -q "DisplayName.*vu_storage $version" || die "the installer for $what does not say how to remove it"
  diff -r --exclude=uninstall.exe "$tree" "$at" || die "the installer for $what installs something else than the tree"
  after=$(path_of "$environment")
  [ "$after" = "$before;C:\\${below//\//\\}\\bin" ] || die "PATH is not what it was and the folder: ${after: -300}"
  python3 packaging/windows_pe.py "$version" "$at/uninstall.exe"
  [ "$what" = user ] || try_tree "$at"
  in_wine "$at/uninstall.exe" /S || die "the uninstaller for $what failed"
  snapshot >"$work/after-$what"
  diff "$work/before-$what" "$work/after-$what" || die "the uninstaller for $what leaves something behind"
}

# What somebody has put into the folder, beside what is installed and between it.
try_own_files() {
  local at="$prefix/drive_c/place"
  in_wine "$work/$name-setup.exe" /S '/D=C:\place' || die "the installer failed in a folder of choice"
  mkdir "$at/tree of somebody"
  echo mine >"$at/bin/my.ini"
  in_wine "$at/uninstall.exe" /S || die "the uninstaller failed"
  (cd "$at" && find . -type f) | diff - <(echo ./bin/my.ini) || die "other files are left than those of somebody"
  [ -d "$at/tree of somebody" ] || die "the uninstaller removed what it had not installed"
}

try_zip() {
  say "the ZIP in a fresh Wine"
  fresh_wine zip
  (cd "$prefix/drive_c" && unzip -q "$work/$name.zip") || die "the ZIP cannot be unpacked"
  try_tree "$prefix/drive_c/$name"
}

try_installer() {
  say "the installer in a fresh Wine"
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

# Whoever has a certificate says so with VU_SIGN; here one is made that nobody trusts, and goes again.
try_signing() {
  say "the same, signed with a certificate of this trial"
  local signing=$work/signing at file
  rm -rf "$signing"
  mkdir -p "$signing"
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj '/CN=A trial' -addext extendedKeyUsage=codeSigning \
    -keyout "$signing/key.pem" -out "$signing/cert.pem" 2>"$signing/openssl.log" || die "no certificate: $signing/openssl.log"
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
      die "$file is not signed; see $signing/verify.log"
  done
  [ "$(in_wine "$at/bin/stgctl.exe" --version | tr -d '\r')" = "stgctl $version" ] || die "the signed stgctl does not start"
  in_wine "$at/uninstall.exe" /S || die "the signed uninstaller failed"
  [ ! -e "$at" ] || die "the signed uninstaller leaves something behind"
  say "signed and verified: the installer, the uninstaller, $(ls "$signing"/tree/bin/*.exe "$signing"/tree/bin/*.dll | wc -l) programs and DLLs"
}
