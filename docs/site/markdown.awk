# Prepares a guide for Doxygen: awk -f markdown.awk docs/x.md
#
# Each heading gets the anchor that Git hosts use, with the name of the page in front. Links between guides lead to
# these anchors. Fenced blocks stay unchanged.

function page_of(path, name) {
  name = path
  sub(/^.*\//, "", name)
  sub(/\.md$/, "", name)
  return tolower(name)
}

# The anchor of a heading. Example: "NFS 4.2 of Linux" becomes "nfs-42-of-linux".
function slug(text) {
  text = tolower(text)
  gsub(/`/, "", text)
  gsub(/[^a-z0-9 _-]/, "", text)
  gsub(/ /, "-", text)
  return text
}

# Converts the target of a link to a page or picture into Doxygen's form. Other targets stay.
function target(link, at, path, anchor) {
  if (link ~ /^[a-z]+:/) return link
  at = index(link, "#")
  path = at ? substr(link, 1, at - 1) : link
  anchor = at ? substr(link, at + 1) : ""
  if (path != "" && path !~ /\.md$/) {
    sub(/^.*\//, "", path)
    return path
  }
  path = path == "" ? page : page_of(path)
  return "@ref guide-" path (anchor == "" ? "" : "-" anchor)
}

function with_links(line, result) {
  result = ""
  while (match(line, /\]\([^) ]+\)/)) {
    result = result substr(line, 1, RSTART + 1) target(substr(line, RSTART + 2, RLENGTH - 3)) ")"
    line = substr(line, RSTART + RLENGTH)
  }
  return result line
}

function with_bars(line, result, code) {
  result = ""
  while (match(line, /`[^`]*`/)) {
    code = substr(line, RSTART, RLENGTH)
    if (index(code, "\\|")) {
      code = substr(code, 2, RLENGTH - 2)
      gsub(/&/, "\\&amp;", code)
      gsub(/</, "\\&lt;", code)
      gsub(/--/, "\\--", code)
      code = "<code>" code "</code>"
    }
    result = result substr(line, 1, RSTART - 1) code
    line = substr(line, RSTART + RLENGTH)
  }
  return result line
}

FNR == 1 { page = page_of(FILENAME); fenced = 0; titled = 0 }
/^ *```/ { fenced = !fenced; print; next }
fenced { print; next }
/^# / && !titled { titled = 1; print $0 " {#guide-" page "}"; if (page != "readme") print "\n[TOC]"; next }
/^##+ / {
  text = $0
  sub(/^#+ /, "", text)
  print $0 " {#guide-" page "-" slug(text) "}"
  next
}
{
  line = with_links($0)
  # In tables a bar in code is escaped; Doxygen would show the escape.
  if (line ~ /^ *\|/) line = with_bars(line)
  print line
}
