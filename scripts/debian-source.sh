#!/usr/bin/env bash
# Fetches a Debian source package and checks its signatures. The apt state of the system does not change.
#
#   scripts/debian-source.sh <package> <folder> [bookworm]
#
# Uses the machine's package sources, or with "bookworm" those of Debian 12 on the same servers. Their binary
# entries become source entries in a private list that only this call of apt-get reads.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

package=${1:?package}
folder=${2:?folder}
suite=${3-}
state=$DEPS/apt
mkdir -p "$state/sources" "$state/lists/partial" "$state/cache/archives/partial" "$folder"
rm -f "$state"/sources/*

# One-line entries: "deb [options] uri suite component..."
one_line_entries() { sed -nE 's/^[[:space:]]*deb([[:space:]])/deb-src\1/p' "$1"; }

# Prints the stanzas of a deb822 file that offer binary packages, changed to source packages. A stanza is a
# block of "Field: value" lines; blank lines separate stanzas.
stanzas() {
  awk 'BEGIN { RS = ""; ORS = "\n\n"; FS = "\n" }
    {
      stanza = ""; offers = 0; wanted = 1; types = 0
      for (i = 1; i <= NF; i++) {
        if ($i ~ /^#/) continue
        line = tolower($i)
        if (line ~ /^types:/) { types = 1; if (line ~ /[: \t]deb([ \t]|$)/) offers = 1; continue }
        if (line ~ /^enabled:[ \t]*(no|false|off|0)/) wanted = 0
        # A line that begins with a blank continues its field. The printf below writes a new Types field.
        if ($i !~ /^[ \t]/) types = 0
        if (types) { if (line ~ /[ \t]deb([ \t]|$)/) offers = 1; continue }
        stanza = stanza $i "\n"
      }
      if (offers && wanted) printf "Types: deb-src\n%s\n", stanza
    }' "$1"
}

etc=/etc/apt
if [ -n "$suite" ]; then
  package_sources "$suite" | sed 's/^/deb-src /; s/$/ main/' >"$state/sources/$suite.list"
  files=()
else
  files=("$etc"/sources.list "$etc"/sources.list.d/*.list "$etc"/sources.list.d/*.sources)
fi
for file in "${files[@]}"; do
  case $file in
    *.sources) [ ! -r "$file" ] || stanzas "$file" >"$state/sources/$(basename "$file")" ;;
    *) [ ! -r "$file" ] || one_line_entries "$file" >"$state/sources/$(basename "$file" .list).list" ;;
  esac
done
find "$state/sources" -type f -size 0 -delete
[ -n "$(ls "$state/sources")" ] ||
  die "no package source in $etc: add Debian's to $etc/sources.list and run this again"

# A configuration file, because "#clear" works only in a file. It removes the machine's update hooks.
cat >"$state/apt.conf" <<CONF
Dir::Etc::sourcelist "/dev/null";
Dir::Etc::sourceparts "$state/sources";
Dir::State::lists "$state/lists";
Dir::Cache "$state/cache";
Dir::Cache::archives "archives";
APT::Sandbox::User "root";
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
#clear Acquire::IndexTargets::deb-src::DEP-11;
CONF

# A failed update is no error yet: a third party's package source may lack source packages.
updated=yes
apt-get -c "$state/apt.conf" -q update >"$state/update.log" 2>&1 || updated=no
if ! (cd "$folder" && apt-get -c "$state/apt.conf" -q --download-only source "$package") \
  >"$state/source.log" 2>&1; then
  if [ "$updated" = yes ]; then lines_that_matter "$state/source.log" >&2; else lines_that_matter "$state/update.log" >&2; fi
  die "cannot fetch Debian's source package '$package': check the network and $etc/sources.list*"
fi
