#!/usr/bin/env bash
# Everything about Wine, which runs the Windows programs:
#
#   scripts/wine.sh PROGRAM.exe [ARGUMENT...]   runs a program; CTest calls this for every cross-built program
#   scripts/wine.sh --ready PRESET...           prepares staged headers, POCO and the Wine prefix for the Windows
#                                               builds; fast when nothing is missing; ignores presets of Linux
#   scripts/wine.sh --end                       ends the Wine server, unless a program of another run still uses it
#
# A script that sources this file gets only the environment of the programs. The prefix is build/wine; it is separate
# from the user's prefix.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# ---- the environment --------------------------------------------------------------------------------

# Required: ignores a WINEPREFIX of the caller, because make_prefix() deletes an incomplete prefix.
WINEPREFIX=$BUILD/wine
# Wine derives the ANSI code page from the locale: VU_WINE_LOCALE=ja_JP selects 932, in a separate prefix.
[ -z "${VU_WINE_LOCALE-}" ] || WINEPREFIX+=-$VU_WINE_LOCALE
WINEARCH=win64
# Wine's messages are off, because a test would take them for output of the program.
WINEDEBUG=${WINEDEBUG:--all}
# Suppresses the dialogs of the installers for .NET and HTML, and entries in the menu of the desktop.
WINEDLLOVERRIDES='mscoree,mshtml=;winemenubuilder.exe=d'
# Wine encodes file names in the encoding of the locale; the caller's may be plain ASCII.
LC_ALL=C.UTF-8
export WINEPREFIX WINEARCH WINEDEBUG WINEDLLOVERRIDES LC_ALL
# Without a display the programs open no window.
unset DISPLAY WAYLAND_DISPLAY

[ "${BASH_SOURCE[0]}" = "$0" ] || return 0

# ---- the prefix -------------------------------------------------------------------------------------

stamp=$WINEPREFIX/.complete

# Creates the prefix, once. Called in a subshell, whose end releases the lock of the step.
make_prefix() {
  local key
  key=$(wine --version)
  [ "$(cat "$stamp" 2>/dev/null)" != "$key" ] || return 0
  [ -z "${VU_WINE_LOCALE-}" ] || env -u VU_WINE_LOCALE "$ROOT/scripts/wine.sh" --prefix
  enter_step wine
  [ "$(cat "$stamp" 2>/dev/null)" != "$key" ] || return 0
  if [ -n "${VU_WINE_LOCALE-}" ]; then copy_prefix; else boot_prefix; fi
  echo "$key" >"$stamp"
}

boot_prefix() {
  say "Wine prefix (once, about ten seconds)"
  # The old prefix is incomplete or belongs to another version of Wine.
  wineserver -k 2>/dev/null || true
  rm -rf "$WINEPREFIX"
  mkdir -p "$WINEPREFIX"
  quietly "$BUILD/wine-prefix.log" "creating the Wine prefix" timeout 300 wine wineboot -i
  # The server writes the registry to disk when it ends.
  quietly "$BUILD/wine-prefix-end.log" "ending the Wine server" timeout 60 wineserver -w
  [ -f "$WINEPREFIX/system.reg" ] || die "Wine wrote no registry to $WINEPREFIX: see $BUILD/wine-prefix.log"
}

# A prefix for another locale shares drive_c with build/wine and has a separate registry.
copy_prefix() {
  local first=$BUILD/wine
  mkdir -p "$BUILD/locale" "$WINEPREFIX"
  quietly "$BUILD/locale-$VU_WINE_LOCALE.log" "creating the locale $VU_WINE_LOCALE" \
    localedef -f UTF-8 -i "$VU_WINE_LOCALE" "$BUILD/locale/$VU_WINE_LOCALE.UTF-8"
  cp -a "$first"/*.reg "$first/.update-timestamp" "$first/dosdevices" "$WINEPREFIX"
  ln -sfn "$first/drive_c" "$WINEPREFIX/drive_c"
}

make_ready() {
  "$ROOT/scripts/stage-headers.sh"
  case " $* " in *" mingw "* | *" mingw-clang "*) "$ROOT/scripts/poco-mingw.sh" mingw-w64 ;; esac
  case " $* " in *" mingw-ucrt "*) "$ROOT/scripts/poco-mingw.sh" mingw-ucrt ;; esac
  (make_prefix)
}

# ---- a program --------------------------------------------------------------------------------------

# The locks below are files beside the prefix. No program inherits their descriptors: the Wine server would keep
# the locks until it ends.

# make_prefix() creates missing locales in build/locale. Only Wine gets the locale, because bash would warn about it.
run_wine() {
  exec env ${VU_WINE_LOCALE:+"LOCPATH=$BUILD/locale" "LC_ALL=$VU_WINE_LOCALE.UTF-8"} wine "$@"
}

run_program() {
  [ -f "$stamp" ] || (make_prefix) >&2

  # Shared lock of each running program. end_server() ends the Wine server only when no program holds it.
  exec {use}<>"$BUILD/wine.use"
  flock -s "$use"

  # The first program starts the server and its services, and they inherit its output. A caller that reads the output
  # through a pipe would wait for their end. Therefore a first program without output starts them. They remain for a
  # minute after the last program, because starting them takes a second. Other programs wait for this lock during the
  # start: a server that already answers may not have started its services yet.
  exec {start}<>"$BUILD/wine.start"
  flock -x "$start"
  if ! wineserver -k0 2>/dev/null; then
    (
      exec {use}>&- {start}>&- </dev/null >/dev/null 2>&1
      wineserver -p60
      run_wine cmd /c exit
    ) || true
  fi
  exec {start}>&-

  local status=0
  (
    exec {use}>&-
    run_wine "$@"
  ) || status=$?
  return "$status"
}

end_server() {
  [ -d "$WINEPREFIX" ] || return 0
  exec {use}<>"$BUILD/wine.use"
  flock -n -x "$use" || return 0
  (
    exec {use}>&-
    wineserver -k 2>/dev/null
  ) || true
}

case ${1-} in
  --ready) make_ready "${@:2}" ;;
  --prefix) (make_prefix) ;;
  --end) end_server ;;
  "" | -*) die "unknown argument '${1-}': name a Windows program, --ready or --end" ;;
  *) run_program "$@" ;;
esac
