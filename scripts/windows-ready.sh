#!/usr/bin/env bash
# What the Windows build needs beside packages: staged headers, POCO, a Wine prefix. Quick when all is there.
here=$(dirname "${BASH_SOURCE[0]}")
set -e
"$here/stage-headers.sh"
"$here/poco-mingw.sh"
"$here/wine-prefix.sh"
