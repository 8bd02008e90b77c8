#!/usr/bin/env bash
# Ends the Wine server of build/wine, unless a program of another run still uses it.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
. "$ROOT/scripts/wine-env.sh"

[ -d "$WINEPREFIX" ] || exit 0
exec {use}<>"$BUILD/wine.use"
flock -n -x "$use" || exit 0
(
  exec {use}>&-
  wineserver -k 2>/dev/null
) || true
