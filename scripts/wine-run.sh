#!/usr/bin/env bash
# Runs a Windows program: scripts/wine-run.sh <program.exe> <arguments...>
# CTest calls it for every cross-built program.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
. "$ROOT/scripts/wine-env.sh"

# wine-prefix.sh creates missing locales in build/locale. Only Wine gets the locale, because bash would warn about it.
run_wine() {
  exec env ${VU_WINE_LOCALE:+"LOCPATH=$BUILD/locale" "LC_ALL=$VU_WINE_LOCALE.UTF-8"} wine "$@"
}

[ -f "$WINEPREFIX/.complete" ] || "$ROOT/scripts/wine-prefix.sh" >&2

# The locks below are files beside the prefix. No program inherits their descriptors: the Wine server would keep
# the locks until it ends.

# Shared lock of each running program. wine-end.sh ends the Wine server only when no program holds it.
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

status=0
(
  exec {use}>&-
  run_wine "$@"
) || status=$?
exit "$status"
