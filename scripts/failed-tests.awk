# Reads CTest's output of a failed run. Prints two or three lines: the failed tests, and where and why the first failed.
BEGIN { most = 8 }
{ sub(/\r$/, "") }

# The output of a test follows the line with its result and ends at CTest's next line.
/^ *[0-9]+\/[0-9]+ Test +#[0-9]+: / {
  inside = /\*\*\*/ && !/\*\*\*Skipped/ && first == ""
  if (inside) {
    first = $4
    result = $0
    sub(/.*\*\*\*/, "", result)
    sub(/ +[0-9.]+ sec.*/, "", result)
  }
  next
}
/^ +Start +[0-9]+: / { inside = 0; next }
/^[0-9]+% tests passed/ { inside = 0; failed = $4; all = $NF; next }
# CTest prints the list of skipped tests before this list; it is discarded.
/^The following tests FAILED/ { named = 0; names = "" }
/^\t *[0-9]+ - / {
  if (++named <= most) names = names (named > 1 ? ", " : "") $3
  next
}
!inside { next }

# GoogleTest prints the place, the message up to an empty line, and the case. A reliability suite prints one line.
/^\[  FAILED  \] / && place != "" && name == "" { name = $4 }
/^\[/ || /^[ \t]*$/ { complete = place != ""; next }
place == "" && /: Failure$/ { place = $0; next }
place == "" && /^WRONG: / { place = $0; complete = 1; next }
place != "" && !complete { sub(/^ +/, ""); message = message " " $0 }
{ last = $0 }

END {
  printf "%s of %s tests failed: %s%s\n", failed, all, names, (named > most ? " ..." : "")
  printf "%s (%s): %s\n", name != "" ? name : first, result, substr(place != "" ? place : last, 1, 300)
  if (message != "") print " " substr(message, 1, 300)
}
