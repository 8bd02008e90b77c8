#!/usr/bin/env bash
# Creates the Wine prefix build/wine, once. It is separate from the user's prefix.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
. "$ROOT/scripts/wine-env.sh"

stamp=$WINEPREFIX/.complete
key=$(wine --version)

is_complete() { [ "$(cat "$stamp" 2>/dev/null)" = "$key" ]; }

is_complete && exit 0
enter_step wine
is_complete && exit 0

# A prefix for another locale shares drive_c with build/wine and has a separate registry.
if [ -n "${VU_WINE_LOCALE-}" ]; then
  first=$BUILD/wine
  env -u VU_WINE_LOCALE "$ROOT/scripts/wine-prefix.sh"
  mkdir -p "$BUILD/locale" "$WINEPREFIX"
  quietly "$BUILD/locale-$VU_WINE_LOCALE.log" "creating the locale $VU_WINE_LOCALE" \
    localedef -f UTF-8 -i "$VU_WINE_LOCALE" "$BUILD/locale/$VU_WINE_LOCALE.UTF-8"
  cp -a "$first"/*.reg "$first/.update-timestamp" "$first/dosdevices" "$WINEPREFIX"
  ln -sfn "$first/drive_c" "$WINEPREFIX/drive_c"
  echo "$key" >"$stamp"
  exit 0
fi

say "Wine prefix (once, about ten seconds)"
# The old prefix is incomplete or belongs to another version of Wine.
wineserver -k 2>/dev/null || true
rm -rf "$WINEPREFIX"
mkdir -p "$WINEPREFIX"
quietly "$BUILD/wine-prefix.log" "creating the Wine prefix" timeout 300 wine wineboot -i
# The server writes the registry to disk when it ends.
quietly "$BUILD/wine-prefix-end.log" "ending the Wine server" timeout 60 wineserver -w
[ -f "$WINEPREFIX/system.reg" ] || die "Wine wrote no registry to $WINEPREFIX: see $BUILD/wine-prefix.log"
echo "$key" >"$stamp"
