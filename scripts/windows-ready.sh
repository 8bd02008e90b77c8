#!/usr/bin/env bash
# What the Windows builds need beside packages: staged headers, POCO, a Wine prefix. Quick when all is there.
# scripts/windows-ready.sh <preset...>: those of Linux need nothing of it.
here=$(dirname "${BASH_SOURCE[0]}")
set -e
"$here/stage-headers.sh"
case " $* " in *" mingw "* | *" mingw-clang "*) "$here/poco-mingw.sh" mingw-w64 ;; esac
case " $* " in *" mingw-ucrt "*) "$here/poco-mingw.sh" mingw-ucrt ;; esac
"$here/wine-prefix.sh"
