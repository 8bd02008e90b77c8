# The environment of every Windows program run here; sourced after lib.sh or on its own.
# Never a prefix from outside: ours is thrown away and made anew when it is incomplete.
WINEPREFIX=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/build/wine
# Wine takes the ANSI code page from the locale: VU_WINE_LOCALE=ja_JP gives 932, in a prefix of its own.
[ -z "${VU_WINE_LOCALE-}" ] || WINEPREFIX+=-$VU_WINE_LOCALE
WINEARCH=win64
# Wine's own messages would be taken for the program's.
WINEDEBUG=${WINEDEBUG:--all}
# No installer for .NET or HTML may ask, no menu entries, and no window is opened anywhere.
WINEDLLOVERRIDES='mscoree,mshtml=;winemenubuilder.exe=d'
# Wine reads and writes the names of files in the locale's encoding, which may be plain ASCII.
LC_ALL=C.UTF-8
export WINEPREFIX WINEARCH WINEDEBUG WINEDLLOVERRIDES LC_ALL
unset DISPLAY WAYLAND_DISPLAY
