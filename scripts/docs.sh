#!/usr/bin/env bash
# Builds the reference and the guides as one site that opens offline: scripts/docs.sh [FOLDER]
# FOLDER is build/docs when none is named; index.html in it is the first page. A warning is an error.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$ROOT"

site=${1:-$BUILD/docs}
version=$(sed -n 's/^project(vu_storage VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
[ -n "$version" ] || die "CMakeLists.txt does not tell the project's version"

# Only a folder that this script made is ever removed.
[ ! -e "$site" ] || [ -f "$site/doxygen.css" ] || [ -z "$(ls -A "$site")" ] ||
  die "$site holds something else than the site; name an empty or a new folder"
rm -rf "$site"
mkdir -p "$site" "$BUILD"
# What the check of the members reads is no part of the site.
xml=$(mktemp -d)
trap 'rm -rf "$xml"' EXIT
# Warnings, all of them, and nothing else; they make it fail.
# The stated classes first, alone: of them every argument and every wait is told.
export XML=$xml VERSION=$version
mkdir "$xml/strict"
OUTPUT=$xml/strict doxygen docs/site/Doxyfile || die "the documentation has the faults above"
# Then all of it, with the C interface and its layers, whose files say at their head what holds for every call.
OUTPUT=$site doxygen docs/site/Doxyfile-site || die "the documentation has the faults above"
python3 docs/site/check_links.py "$site"
python3 docs/site/check_members.py "$xml"
