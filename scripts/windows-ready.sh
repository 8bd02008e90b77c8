#!/usr/bin/env bash
# Prepares staged headers, POCO and the Wine prefix for the Windows builds: scripts/windows-ready.sh <preset...>
# Fast when nothing is missing. Presets of Linux are ignored.
here=$(dirname "${BASH_SOURCE[0]}")
set -e
"$here/stage-headers.sh"
case " $* " in *" mingw "* | *" mingw-clang "*) "$here/poco-mingw.sh" mingw-w64 ;; esac
case " $* " in *" mingw-ucrt "*) "$here/poco-mingw.sh" mingw-ucrt ;; esac
"$here/wine-prefix.sh"
