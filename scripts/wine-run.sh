#!/usr/bin/env bash
# Runs a Windows program: scripts/wine-run.sh <program.exe> <arguments...>
# CTest calls it for every cross-built program; it works by hand as well.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
. "$ROOT/scripts/wine-env.sh"

# A locale that the system does not have is in build/locale (wine-prefix.sh); bash need not know of it.
run_wine() {
  exec env ${VU_WINE_LOCALE:+"LOCPATH=$BUILD/locale" "LC_ALL=$VU_WINE_LOCALE.UTF-8"} wine "$@"
}

[ -f "$WINEPREFIX/.complete" ] || "$ROOT/scripts/wine-prefix.sh" >&2

# The locks below are files beside the prefix. No program gets their descriptors: the server would
# inherit them and hold the locks for as long as it lives.

# Whoever ends the Wine server waits until nobody holds this (see wine-end.sh).
exec {use}<>"$BUILD/wine.use"
flock -s "$use"

# The server and its services start with the first program and inherit its output: a caller that
# reads the output through a pipe would wait for their end. So a first program without any output
# starts them. They stay for a minute after the last program, since starting them takes a second.
# Whoever asks waits while they start: a server that answers may not have started its services yet.
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

status=0
(
  exec {use}>&-
  run_wine "$@"
) || status=$?
exit "$status"
