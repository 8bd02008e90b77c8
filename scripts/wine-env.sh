# The environment of every Windows program run here; sourced after lib.sh or on its own.
# Never a prefix from outside: ours is thrown away and made anew when it is incomplete.
WINEPREFIX=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/build/wine
WINEARCH=win64
# Wine's own messages would be taken for the program's.
WINEDEBUG=${WINEDEBUG:--all}
# No installer for .NET or HTML may ask, no menu entries, and no window is opened anywhere.
WINEDLLOVERRIDES='mscoree,mshtml=;winemenubuilder.exe=d'
export WINEPREFIX WINEARCH WINEDEBUG WINEDLLOVERRIDES
unset DISPLAY WAYLAND_DISPLAY
