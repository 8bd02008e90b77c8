# The environment of every Windows program that the scripts run; sourced, with or without lib.sh.
# Required: ignores a WINEPREFIX of the caller, because wine-prefix.sh deletes an incomplete prefix.
WINEPREFIX=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/build/wine
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
