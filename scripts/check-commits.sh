#!/usr/bin/env bash
# Checks commit messages. The subject is "area: what changed", at most 72 characters. The body says why; its lines have
# at most 100 characters. Merge commits, and subjects with "Merge ", "Revert ", "fixup! " or "squash! ", always pass.
#
#   scripts/check-commits.sh                   the commits that the upstream branch lacks; if none is set, the last one
#   scripts/check-commits.sh RANGE             the commits of a range, such as main..topic
#   scripts/check-commits.sh --message FILE    one message; the hook of "./dev setup hook" runs this
#   scripts/check-commits.sh --template        prints the text with which a new message begins
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# complaints <message>: prints one line per fault.
complaints() {
  local subject body
  subject=$(sed -n '1p' <<<"$1")
  body=$(sed '1d' <<<"$1")
  case $subject in
    "Merge "* | "Revert "* | "fixup! "* | "squash! "*) return ;;
  esac
  [ "${#subject}" -le 72 ] || echo "the subject has ${#subject} characters: shorten it to 72"
  [[ $subject =~ ^[a-z0-9][^:]*:\ [^\ ] ]] || echo "the subject has no area: write 'area: what changed'"
  [ -z "$(sed -n '1p' <<<"$body")" ] || echo "the second line is not empty: put an empty line after the subject"
  grep -q '[^[:space:]]' <<<"$body" || echo "the body is empty: say why the change is made"
  awk 'length($0) > 100 { print "a line of the body has " length($0) " characters: wrap it at 100"; exit }' <<<"$body"
}

print_template() {
  cat <<'TEMPLATE'

# area: what changed                                     (at most 72 characters)
#
# The area is a folder or a program: index, client/admin, stgctl, docs, dev ...
#
# Say why the change is made, with the figure if there is one. Wrap at 100 characters.
# Example:
#
#   index: a listing reads the folder once
#
#   A list of 10,000 entries checked each file by itself: 10,000 system calls.
#   One listing answers all of them: 12 system calls.
TEMPLATE
}

if [ "${1-}" = --template ]; then
  print_template
  exit 0
fi
if [ "${1-}" = --message ]; then
  # "git commit -v" adds the diff below a scissors line. That line is a comment, so it is searched first.
  found=$(complaints "$(sed -E '/^[^ ]* ?-{8,} >8 -{8,}$/,$d' "$2" | git stripspace --strip-comments)")
  [ -z "$found" ] || {
    sed 's/^/commit message: /' <<<"$found" >&2
    exit 1
  }
  exit 0
fi

range=${1-}
if [ -z "$range" ]; then
  if git -C "$ROOT" rev-parse -q --verify '@{upstream}' >/dev/null 2>&1; then
    range='@{upstream}..HEAD'
  else
    range=$(git -C "$ROOT" rev-parse -q --verify HEAD~1 >/dev/null && echo HEAD~1..HEAD || echo HEAD)
  fi
fi
# A variable keeps git's exit code; a process substitution loses it.
commits=$(git -C "$ROOT" rev-list --no-merges "$range" --) ||
  die "git cannot list the commits of '$range': use a range such as main..topic"
bad=0
count=0
while read -r commit; do
  [ -n "$commit" ] || continue
  count=$((count + 1))
  found=$(complaints "$(git -C "$ROOT" show -s --format=%B "$commit")")
  [ -n "$found" ] || continue
  bad=$((bad + 1))
  git -C "$ROOT" show -s --format='%h %s' "$commit" >&2
  sed 's/^/  /' <<<"$found" >&2
done <<<"$commits"
[ -n "$commits" ] || [ $# -eq 0 ] || die "the range '$range' has no commit to check: use a range such as main..topic"
[ "$bad" -eq 0 ] || die "$bad of $count commit messages break the rules above: change them with 'git rebase -i'"
say "$count commit messages follow the rules"
