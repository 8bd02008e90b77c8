#!/usr/bin/env bash
# Builds the reference and the guides as one site that opens offline: scripts/docs.sh [FOLDER]
# The default FOLDER is build/docs; the first page is index.html in it. A warning of Doxygen is an error.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$ROOT"

site=${1:-$BUILD/docs}
version=$(sed -n 's/^project(vu_storage VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
[ -n "$version" ] || die "CMakeLists.txt has no version: it needs a line 'project(vu_storage VERSION ...)'"

# Removes only a folder that is empty or that this script created.
[ ! -e "$site" ] || [ -f "$site/doxygen.css" ] || [ -z "$(ls -A "$site")" ] ||
  die "$site contains files of others: name an empty or a new folder"
rm -rf "$site"
mkdir -p "$site" "$BUILD"
# check.py reads this XML; it is not part of the site.
xml=$(mktemp -d)
trap 'rm -rf "$xml"' EXIT
# First only the exported classes: Doxygen requires a description of each argument there.
export XML=$xml VERSION=$version
mkdir "$xml/strict"
OUTPUT=$xml/strict doxygen docs/site/Doxyfile || die "Doxygen reports the faults above: correct the headers"
# Then the whole site: also the C interface with the C++ layer. These two describe common rules and arguments once, at
# the head of the file, so the checks for each function are off.
whole_site() {
  cat docs/site/Doxyfile - <<'SETTINGS'
FILE_PATTERNS         += *.hpp
RECURSIVE              = YES
EXCLUDE_SYMBOLS        = vu::detail*
PREDEFINED            += VU_C_API= __cplusplus=201703L
WARN_NO_PARAMDOC       = NO
WARN_IF_INCOMPLETE_DOC = NO
GENERATE_XML           = NO
SETTINGS
}
whole_site | OUTPUT=$site doxygen - || die "Doxygen reports the faults above: correct the headers or guides"
python3 docs/site/check.py "$site" "$xml"
