#!/usr/bin/env bash
# Tests the client's report in headless Chromium: scripts/report-test.sh
#
# Creates a tree, a report of it, and the client's figures as JSON. The browser opens the page in light and dark,
# wide and narrow; client/tests/report/probe.js compares the page with the figures. Keeps build/report/ with the page
# and its pictures, and docs/report.png.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

client=$BUILD/linux/bin/stgctl
kept=$BUILD/report
scratch=$(mktemp -d -t storage-report.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
rm -rf "$kept"
mkdir -p "$kept" "$scratch/data"
export STG_ROOT=$scratch/data

# ---- the tree: owners of different sizes, documents of all ages ----

document() { # <path> <bytes> <days ago>
  head -c "$2" /dev/zero >"$1"
  touch -d "$3 days ago 12:00" "$1"
}

fill_owner() { # <number> <name>
  local folder=$scratch/in/$2 i size
  mkdir -p "$folder/docs" "$folder/user"
  for ((i = 0; i < 26; i++)); do
    size=$((600 + (i * 7919 + $1 * 104729) % 97 * (4100 - $1 * 230)))
    document "$folder/docs/report-$i.kd${extensions:(i * 5 + $1) % 7:1}" "$size" $(((i * i * 3 + i * $1 * 11) % 1500))
  done
  for ((i = 0; i < 6; i++)); do
    document "$folder/user/note-$i.txt" $((2000 + (i * 6151 + $1 * 911) % 60000)) $((i * 23 + $1))
  done
  "$client" put "$folder/docs" --owner "$2" --yes >"$scratch/log"
  "$client" put "$folder/user" --area user --owner "$2" --yes >"$scratch/log"
}

extensions=abccdff
"$client" init --yes >"$scratch/log"
number=0
for owner in sales research accounts anna bert carla dora emil legal "R&D" press archive; do
  fill_owner "$number" "$owner"
  number=$((number + 1))
done
document "$scratch/in/letter.kdb" 180000 200
"$client" put "$scratch/in/letter.kdb" --as 'f4#f5#x#letter.kdb' --area mail --owner anna --yes >"$scratch/log"
mkdir -p "$STG_ROOT/storage/list/sales" "$STG_ROOT/storage/semlets"
document "$STG_ROOT/storage/list/sales/customers.lst" 260000 12
document "$STG_ROOT/storage/semlets/rules" 90000 700
# A sub-part of a document, and two findings for "check": an orphan and an empty document.
first_document() { find "$STG_ROOT/storage/docs/$1" -name '*.kd*' -type f | LC_ALL=C sort | sed -n 1p; }
file=$(first_document sales)
mkdir -p "${file}_/html/page"
document "${file}_/html/page/1.htm" 120000 3
echo 'of nobody' >"$STG_ROOT/storage/user/bert/stray.tmp"
: >"$(first_document dora)"

# ---- the page and the expected figures ----

"$client" report --html "$kept/report.html" --target-size 8M
stats() { "$client" stats --by "$1" --json; }
wanted() { # <scheme>
  printf 'const wanted = {"scheme": "%s", "stats": {"area": %s, "owner": %s, "ext": %s, "age": %s}, "curve": %s, "check": %s};\n' \
    "$1" "$(stats area)" "$(stats owner)" "$(stats ext)" "$(stats age)" \
    "$("$client" clean --what-if --json | tail -n 1)" "$("$client" check --json | tail -n 1)"
}

# The page forbids scripts; this copy of it allows them.
probe_page() { # <scheme>
  sed -e '/<meta http-equiv="Content-Security-Policy"/d' -e '/<\/body>/d' -e '/<\/html>/d' "$kept/report.html"
  printf '<script>\n'
  wanted "$1"
  cat "$ROOT/client/tests/report/probe.js"
  printf '</script>\n</body>\n</html>\n'
}

browser() { # <scheme> <window> <argument...>
  local scheme=$1 window=$2
  shift 2
  local -a sandbox=()
  [ "$(id -u)" -ne 0 ] || sandbox=(--no-sandbox)
  # preferredColorScheme: 0 is dark, 1 is light. The resolver rule blocks all network names.
  timeout -k 10 120 chromium --headless "${sandbox[@]}" --disable-gpu --disable-dev-shm-usage --no-first-run \
    --hide-scrollbars --user-data-dir="$scratch/profile" --host-resolver-rules='MAP * ~NOTFOUND' \
    --blink-settings=preferredColorScheme=$([ "$scheme" = dark ] && echo 0 || echo 1) \
    --window-size="$window" "$@" 2>>"$scratch/browser.log"
}

for scheme in light dark; do
  probe_page "$scheme" >"$scratch/probe-$scheme.html"
  for window in 1180,1000 420,900; do
    browser "$scheme" "$window" --dump-dom "file://$scratch/probe-$scheme.html" >"$scratch/dom.html" ||
      { tail -n 5 "$scratch/browser.log" >&2; die "chromium cannot open the page: see above"; }
    result=$(tr '\n' '\001' <"$scratch/dom.html" | sed -n 's/.*<pre id="probe">\([^<]*\)<\/pre>.*/\1/p' | tr '\001' '\n')
    case $result in
      PASSED*) say "$scheme, $window: $result" ;;
      *) die "$scheme, $window: ${result:-probe.js printed no result}" ;;
    esac
  done
  # The unchanged page, which forbids scripts.
  browser "$scheme" 1180,1000 --dump-dom "file://$kept/report.html" | grep -o '<tr data-table[^>]*>' >"$scratch/rows" || true
  grep -o '<tr data-table[^>]*>' "$kept/report.html" >"$scratch/rows-wanted"
  cmp "$scratch/rows" "$scratch/rows-wanted" || die "the browser changes the figures of the page: see above"
  browser "$scheme" 1180,2560 --screenshot="$kept/$scheme.png" "file://$kept/report.html"
  [ -s "$kept/$scheme.png" ] || die "chromium did not write $kept/$scheme.png: see above"
done
cp "$kept/light.png" "$ROOT/docs/report.png"
say "the report passed; the page and its pictures are in $kept, docs/report.png is updated"
