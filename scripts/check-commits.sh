#!/usr/bin/env bash
# The rules for commit messages: a subject of at most 72 characters, "area: what changed", and a body that
# says why, with lines of at most 100.
#
#   scripts/check-commits.sh            the commits since the upstream branch, or the last one
#   scripts/check-commits.sh RANGE      those of a range, such as main..topic
#   scripts/check-commits.sh --message FILE    one message; the commit hook of ./dev setup calls it so
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# complaints <message>: what is wrong with it, a line each.
complaints() {
  local subject body
  subject=$(sed -n '1p' <<<"$1")
  body=$(sed '1d' <<<"$1")
  case $subject in
    "Merge "* | "Revert "* | "fixup! "* | "squash! "*) return ;;
  esac
  [ "${#subject}" -le 72 ] || echo "the subject has ${#subject} characters, at most 72 are wanted"
  [[ $subject =~ ^[a-z0-9][^:]*:\ [^\ ] ]] || echo "the subject is not of the form 'area: what changed'"
  [ -z "$(sed -n '1p' <<<"$body")" ] || echo "the second line is not empty"
  grep -q '[^[:space:]]' <<<"$body" || echo "there is no body that says why"
  awk 'length($0) > 100 { print "a line of the body has " length($0) " characters, at most 100 are wanted"; exit }' <<<"$body"
}

if [ "${1-}" = --message ]; then
  found=$(complaints "$(sed '/^#/d; /^-* >8 -*$/,$d' "$2")")
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
bad=0
count=0
while read -r commit; do
  count=$((count + 1))
  found=$(complaints "$(git -C "$ROOT" show -s --format=%B "$commit")")
  [ -n "$found" ] || continue
  bad=$((bad + 1))
  git -C "$ROOT" show -s --format='%h %s' "$commit" >&2
  sed 's/^/  /' <<<"$found" >&2
done < <(git -C "$ROOT" rev-list --no-merges "$range")
[ "$bad" -eq 0 ] || die "$bad of $count commits do not keep to the rules (CONTRIBUTING.md)"
say "$count commit messages keep to the rules"
